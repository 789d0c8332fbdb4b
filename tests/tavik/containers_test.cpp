#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>
#include <cstdlib>
#include <cstring>

#include "tavik/tk_bytebuf.h"
#include "tavik/tk_common.h"
#include "tavik/tk_hash.h"
#include "tavik/tk_list.h"
#include "tavik/tk_string.h"

namespace {

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
    nocase.put(a, new Counted(&deaths));
    nocase.put(upper, new Counted(&deaths));  // replaces, also before any lookup has sorted
    EXPECT_EQ(2, deaths);
    EXPECT_TRUE(h.count == 1 && nocase.count == 1 && nocase.exist(a) && !h.exist(upper));
    EXPECT_EQ(second, h.get(a));
    EXPECT_TRUE(h.remove(a));
    EXPECT_EQ(3, deaths);
    EXPECT_EQ(nullptr, h.get(a));
    h.put(tavik::newString("A"), nullptr);
    h.put(nullptr, nullptr);  // a null key sorts first
    EXPECT_EQ(nullptr, h.at(0)->key);
}

TEST(HashTest, GrowsAtSizeMinusOneReservesRoomAheadAndAgreesWithStdMap) {
    tavik::hash<long long, long long*, false, true, false, 1000> h;
    std::map<long long, long long> model;
    for (long long i = 0; i < 999; ++i) h.put(i, nullptr);
    EXPECT_EQ(1000u, h._size);
    h.put(999, nullptr);  // the 1000th record
    EXPECT_EQ(2000u, h._size);
    // Room made ahead takes exactly that many appends, also when they just fill the table.
    h.reserve(1000);
    EXPECT_EQ(2001u, h._size);
    for (long long i = 1000; i < 2000; ++i) h.append(i, nullptr);
    EXPECT_EQ(2001u, h._size);
    EXPECT_TRUE(h.exist(0) && h.exist(1999));
    EXPECT_EQ(2000u, h.count);
    for (long long i = 0; i < 2000; ++i) model[i] = -1;  // a null value reads as -1
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        long long k = static_cast<long long>(rng() % 3000) - 1500;
        unsigned op = rng() % 100 < 99 ? rng() % 3 : 3;
        if (op == 3) {
            h.removeAll();
            model.clear();
        } else if (op == 0) {
            h.put(k, new long long(i));
            model[k] = i;
        } else if (op == 1) {
            EXPECT_EQ(model.erase(k) == 1, h.remove(k));
        } else {
            EXPECT_EQ(model.count(k) ? model[k] : -1, h.get(k) ? *h.get(k) : -1) << "key " << k;
        }
    }
    // In key order, also after sorting with the context-free callbacks, which reach the hash
    // through each record; searching with them finds what search() finds.
    std::qsort(h._data, h.count, sizeof *h._data, tavik::defaultHashkeyCompare);
    size_t i = 0;
    for (auto& [k, v] : model) {
        EXPECT_EQ(h.search(k), std::bsearch(&k, h._data, h.count, sizeof *h._data,
                                            tavik::defaultHashkeyCompare4search));
        ASSERT_EQ(k, h.at(i++)->key);
    }
    EXPECT_EQ(nullptr, h.at(i));
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
    EXPECT_EQ((std::vector<void*>{copy, a, nullptr}),
              (std::vector<void*>{l.getAt(0), l.getAt(1), l.getAt(2)}));
    tavik::listitem* end = nullptr;  // walking on from the end, or from no position, gives null
    EXPECT_TRUE(l.getNext(&end) == nullptr && l.getNext(nullptr) == nullptr);
    tavik::strArr texts(2);
    l.toClassArr(&texts);
    EXPECT_EQ((std::vector<std::string>{"key", "a"}),
              (std::vector<std::string>{texts[0], texts[1]}));
    l.removeAll();
    EXPECT_EQ(0u, l.count);
}

TEST(ByteBufTest, GrowsPastItsUnitByDoublingAndCopiesWhatWasPut) {
    EXPECT_EQ(1024u, tavik::bytebuf().size);  // the default unit, allocated at once
    tavik::bytebuf buf(4);
    EXPECT_EQ(nullptr, buf.getEx());
    buf.put(static_cast<unsigned char>('a'));
    EXPECT_STREQ("a", std::unique_ptr<char[]>(buf.getEx()).get());
    for (int i = 1; i < 1000; ++i) buf.put(static_cast<unsigned char>('a' + i % 26));
    buf.put("XYZ");
    EXPECT_EQ(1024u, buf.size);
    std::unique_ptr<char[]> copy(buf.getEx());
    EXPECT_EQ(1003u, strlen(copy.get()));
    EXPECT_STREQ("XYZ", copy.get() + 1000);
}

TEST(SmartPtrTest, DeletesOnReassignAndDestructionUnlessFrozen) {
    int deaths = 0;
    Counted* kept = new Counted(&deaths);
    {
        tavik::smartPtr<Counted> p(new Counted(&deaths)), frozen(kept), held(kept);
        p = new Counted(&deaths);
        EXPECT_EQ(1, deaths);
        EXPECT_EQ(kept, frozen.freeze());
        frozen = nullptr;  // a frozen pointer lets go without deleting
        held.freeze();     // nor deletes at its end
    }
    EXPECT_EQ(2, deaths);
    delete kept;
}

}  // namespace
