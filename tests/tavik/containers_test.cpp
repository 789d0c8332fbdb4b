#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <cstring>

#include "tavik/tk_bytebuf.h"
#include "tavik/tk_common.h"
#include "tavik/tk_hash.h"
#include "tavik/tk_list.h"

namespace {

// A value that counts its own destructions.
struct Counted {
    explicit Counted(int* deaths) : deaths(deaths) {}
    virtual ~Counted() { ++*deaths; }
    int* deaths;
};

TEST(HashTest, PutOfExistingKeyReplacesAndFreesOwnedPartsAndOnlyNoCaseIgnoresCase) {
    int deaths = 0;
    char a[] = "a", upper[] = "A";
    tavik::hash<char*, Counted*, true, true, false, 1000> h;
    tavik::hash<char*, Counted*, false, true, true, 1000> nocase;
    h.put(tavik::newString("a"), new Counted(&deaths));
    Counted* second = new Counted(&deaths);
    h.put(tavik::newString("a"), second);  // the old key text is freed: ASan would see a leak
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(1u, h.count);
    EXPECT_EQ(second, h.get(a));
    EXPECT_FALSE(h.exist(upper));
    nocase.put(a, new Counted(&deaths));
    EXPECT_TRUE(nocase.exist(upper));
    EXPECT_TRUE(h.remove(a));
    EXPECT_EQ(2, deaths);
    EXPECT_EQ(nullptr, h.get(a));
}

TEST(HashTest, GrowsWhenCountReachesSizeMinusOneAndReservesRoomAhead) {
    tavik::hash<long long, Counted*, false, false, false, 1000> h;
    for (long long i = 0; i < 999; ++i) h.put(i, nullptr);
    EXPECT_EQ(1000u, h._size);
    h.put(999, nullptr);  // the 1000th record
    EXPECT_EQ(2000u, h._size);
    // Room made ahead holds the records and takes exactly that many appends.
    h.reserve(5000);
    EXPECT_EQ(6001u, h._size);
    for (long long i = 1000; i < 6000; ++i) h.append(i, nullptr);
    EXPECT_EQ(6001u, h._size);
    EXPECT_TRUE(h.exist(0) && h.exist(5999));
    EXPECT_EQ(6000u, h.count);
}

TEST(HashTest, AgreesWithStdMapOverRandomOperations) {
    tavik::hash<long long, long long*, false, true, false, 1000> h;
    std::map<long long, long long> model;
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        long long k = rng() % 3000;
        unsigned op = rng() % 3;
        if (op == 0) {
            h.put(k, new long long(i));
            model[k] = i;
        } else if (op == 1) {
            EXPECT_EQ(model.erase(k) == 1, h.remove(k));
        } else {
            long long* v = h.get(k);
            auto it = model.find(k);
            EXPECT_EQ(it == model.end() ? -1 : it->second, v ? *v : -1) << "key " << k;
        }
    }
    EXPECT_EQ(model.size(), h.count);
}

TEST(ListTest, CopiesTextsIntoItsItemsAndRemovesTheFirstItemHoldingData) {
    // A text carried by its item is a terminated copy, freed with the item; other data is
    // only pointed to, never freed (AddressSanitizer would see a stack text freed).
    char a[] = "a", source[] = "keyXYZ";
    tavik::list<char*> l;
    l.addTail(a);
    char* copy = static_cast<char*>(l.addTailText(source, 3)->pData);
    source[0] = '!';
    EXPECT_STREQ("key", copy);
    l.addTail(a);
    EXPECT_TRUE(l.removeData(a));
    EXPECT_EQ(copy, l.getAt(0));
    EXPECT_EQ(a, l.getAt(1));
    EXPECT_EQ(nullptr, l.getAt(2));
}

TEST(ByteBufTest, GrowsPastItsUnitAndCopiesWhatWasPut) {
    tavik::bytebuf buf(4);
    EXPECT_EQ(nullptr, buf.getEx());
    for (int i = 0; i < 1000; ++i) buf.put(static_cast<unsigned char>('a' + i % 26));
    buf.put("XYZ");
    std::unique_ptr<char[]> copy(buf.getEx());
    EXPECT_EQ(1003u, strlen(copy.get()));
    EXPECT_STREQ("XYZ", copy.get() + 1000);
}

}  // namespace
