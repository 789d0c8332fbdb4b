#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "tavik/tk_bytebuf.h"
#include "tavik/tk_common.h"
#include "tavik/tk_hash.h"
#include "tavik/tk_list.h"
#include "tavik/tk_vector.h"

namespace {

// A value that counts its own destructions.
struct Counted {
    explicit Counted(int* deaths) : deaths(deaths) {}
    virtual ~Counted() { ++*deaths; }
    int* deaths;
};

using TextHash = tavik::hash<char*, Counted*, true, true, false, 1000>;
using NoCaseHash = tavik::hash<char*, Counted*, false, true, true, 1000>;

TEST(HashTest, PutOfExistingKeyReplacesAndFreesOwnedParts) {
    int deaths = 0;
    TextHash h;
    h.put(tavik::newString("a"), new Counted(&deaths));
    Counted* second = new Counted(&deaths);
    h.put(tavik::newString("a"), second);  // the old key text is freed: ASan would see a leak
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(1u, h.count);
    EXPECT_EQ(second, h.get(const_cast<char*>("a")));
    EXPECT_TRUE(h.remove(const_cast<char*>("a")));
    EXPECT_EQ(2, deaths);
    EXPECT_FALSE(h.exist(const_cast<char*>("a")));
    EXPECT_EQ(nullptr, h.get(const_cast<char*>("a")));
}

TEST(HashTest, GrowsWhenCountReachesSizeMinusOne) {
    tavik::hash<long long, Counted*, false, false, false, 1000> h;
    for (long long i = 0; i < 999; ++i) {
        h.put(i, nullptr);
    }
    EXPECT_EQ(1000u, h._size);
    h.put(999, nullptr);  // the 1000th record
    EXPECT_EQ(2000u, h._size);
    EXPECT_EQ(1000u, h.count);
}

TEST(HashTest, CaseInsensitiveInstancesIgnoreCaseOthersDoNot) {
    int deaths = 0;
    char key[] = "SECTION";
    NoCaseHash nocase;
    nocase.put(key, new Counted(&deaths));
    EXPECT_TRUE(nocase.exist(const_cast<char*>("Section")));
    TextHash exact;
    exact.put(tavik::newString("SECTION"), new Counted(&deaths));
    EXPECT_FALSE(exact.exist(const_cast<char*>("Section")));
    EXPECT_TRUE(exact.exist(const_cast<char*>("SECTION")));
}

TEST(HashTest, AgreesWithStdMapOverRandomOperations) {
    tavik::hash<long long, long long*, false, true, false, 1000> h;
    std::map<long long, long long> model;
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        long long k = rng() % 3000;
        switch (rng() % 3) {
            case 0:
                h.put(k, new long long(i));
                model[k] = i;
                break;
            case 1:
                EXPECT_EQ(model.erase(k) == 1, h.remove(k));
                break;
            default: {
                long long* v = h.get(k);
                auto it = model.find(k);
                ASSERT_EQ(it != model.end(), v != nullptr);
                if (v) {
                    EXPECT_EQ(it->second, *v);
                }
            }
        }
    }
    ASSERT_EQ(model.size(), h.count);
    size_t i = 0;
    for (auto& [k, v] : model) {  // records come out in key order
        EXPECT_EQ(k, h.at(i)->key);
        EXPECT_EQ(v, *h.at(i)->value);
        ++i;
    }
    EXPECT_EQ(nullptr, h.at(i));
    EXPECT_EQ(0, tavik::defaultHashkeyCompare(h.at(0), h.at(0)));
}

TEST(ListTest, KeepsOrderAndNeverFreesData) {
    char a[] = "a", b[] = "b", c[] = "c";
    tavik::list<char*> l;
    l.addTail(a);
    l.addTail(b);
    l.addTail(c);
    EXPECT_EQ(3u, l.getCount());
    tavik::listitem* pos = l.getHeadPosition();
    EXPECT_EQ(a, l.getNext(&pos));
    EXPECT_EQ(b, l.getNext(&pos));
    EXPECT_EQ(c, l.getNext(&pos));
    EXPECT_EQ(nullptr, pos);
    EXPECT_EQ(nullptr, l.getNext(&pos));
    EXPECT_TRUE(l.removeData(b));
    EXPECT_EQ(c, l.getAt(1));
    EXPECT_EQ(nullptr, l.getAt(2));
    l.removeAll();
    EXPECT_EQ(0u, l.getCount());
    EXPECT_STREQ("b", b);
}

TEST(VectorTest, RemoveFirstDeletesTheOldestOwnedText) {
    tavik::vector<char*, true> v;
    v.add(tavik::newString("one"));
    v.add(tavik::newString("two"));
    v.removeFirst();
    ASSERT_EQ(1u, v.size());
    tavik::vectoritem* pos = v.getFirstPos();
    EXPECT_STREQ("two", v.getNext(&pos));
    EXPECT_EQ(nullptr, v.getNext(&pos));
    v.removeFirst();
    v.removeFirst();  // empty: nothing happens
    EXPECT_EQ(nullptr, v.getFirstPos());
    v.add(tavik::newString("three"));  // freed by the destructor
}

TEST(ByteBufTest, GrowsPastItsUnitAndCopiesWhatWasPut) {
    tavik::bytebuf buf(4);
    EXPECT_EQ(nullptr, buf.getEx());
    for (int i = 0; i < 1000; ++i) {
        buf.put(static_cast<unsigned char>('a' + i % 26));
    }
    buf.put("XYZ");
    EXPECT_EQ(1003u, buf.getFilledSize());
    char* copy = buf.getEx();
    EXPECT_EQ(1003u, strlen(copy));
    EXPECT_STREQ("XYZ", copy + 1000);
    delete[] copy;
    buf.reset();
    EXPECT_EQ(0u, buf.getFilledSize());
    buf.clear();
    buf.put('q');
    EXPECT_EQ('q', buf.get()[0]);

    tavik::byteArr owned(3);
    EXPECT_EQ(0, owned.buffer[2]);
    unsigned char raw[2] = {1, 2};
    tavik::typeArr<unsigned char, false> view(raw, 2);
    EXPECT_EQ(raw, view.buffer);
}

}  // namespace
