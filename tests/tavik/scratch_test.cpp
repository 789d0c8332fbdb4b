#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tavik/tk_common.h"

namespace {

bool pooled(const char* p) {
    auto* slot = tavik::g_rav.threadSlots.get(tavik::g_rav.mainThreadId);
    for (tavik::vectoritem* pos = slot->slots.getFirstPos(); pos;)
        if (slot->slots.getNext(&pos) == p)
            return true;
    return false;
}

TEST(ScratchPoolTest, KeepsExactlyTheThousandNewestTexts) {
    char* first = tavik::makeString("first");
    for (int i = 0; i < 999; ++i) tavik::makeString("filler");
    EXPECT_TRUE(pooled(first));
    EXPECT_STREQ("first", first);
    tavik::makeString("the 1001st");
    EXPECT_FALSE(pooled(first));
    EXPECT_EQ(1000u, tavik::g_rav.threadSlots.get(tavik::g_rav.mainThreadId)->slots.size());
}

TEST(ScratchPoolTest, ThreadsKeepTheirOwnTextsAndReleaseThemWhenTheyEnd) {
    char* mine = tavik::makeString("main");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            char* first = tavik::makeFormatString("%d-first", t);
            for (int i = 0; i < 100000; ++i) {
                ASSERT_EQ('0' + t, tavik::makeFormatString("%d-%d", t, i)[0]);
                ASSERT_TRUE(i != 998 || first[0] == '0' + t);  // still valid after 999 more
            }
        });
    }
    for (auto& th : threads) th.join();
    // The ended threads' slots are gone with their texts; the pool's own stays.
    tavik::g_rav.sync.lock();
    EXPECT_EQ(1u, tavik::g_rav.threadSlots.count);
    tavik::g_rav.sync.unlock();
    EXPECT_TRUE(pooled(mine));
    EXPECT_STREQ("main", mine);
}

TEST(ScratchPoolTest, NewAndMakeFunctionsHonourTheirNullRules) {
    EXPECT_EQ(nullptr, tavik::makeString("abc", size_t{0}));
    EXPECT_EQ(nullptr, tavik::newString("abc", size_t{0}));
    EXPECT_EQ(nullptr, tavik::newString("abc", -1, 3));
    EXPECT_EQ(nullptr, tavik::newFormatString(nullptr));
    EXPECT_STREQ("bc", tavik::makeString("abcd", 1, 2));
    EXPECT_STREQ("ab", tavik::makeString("abcd", 0, 2));
    EXPECT_STREQ("x=42", tavik::makeFormatString("%s=%d", "x", 42));
}

}  // namespace
