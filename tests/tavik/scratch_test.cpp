#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tavik/tk_common.h"

namespace {

// The main thread's pooled texts, oldest first.
tavik::vector<char*, true>& mainSlots() {
    return tavik::g_rav.threadSlots.get(tavik::g_rav.mainThreadId)->slots;
}

TEST(ScratchPoolTest, EachThreadKeepsItsThousandNewestTextsUntilItEnds) {
    char* mine = tavik::makeString("(main)", 1, 4);
    for (int i = 0; i < 999; ++i) tavik::makeString("filler");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            char* first = tavik::makeFormatString("%d-first", t);
            for (int i = 0; i < 100000; ++i) {
                ASSERT_EQ('0' + t, tavik::makeFormatString("%d-%d", t, i)[0]);
                ASSERT_TRUE(i != 998 || first[0] == '0' + t);  // still valid after 999 more
            }
        });
    for (auto& th : threads) th.join();
    // The ended threads' slots are gone with their texts; the pool's own stays whole.
    EXPECT_EQ(1u, tavik::g_rav.threadSlots.count);  // joined: their exit has run
    EXPECT_EQ(mine, mainSlots().getFirstPos()->pData);
    EXPECT_STREQ("main", mine);
    EXPECT_STREQ("x=42", tavik::makeFormatString("%s=%d", "x", 42));  // the 1001st
    EXPECT_NE(mine, mainSlots().getFirstPos()->pData);
    EXPECT_EQ(1000u, mainSlots().size());
}

TEST(ScratchPoolTest, NewAndMakeFunctionsHonourTheirNullRules) {
    for (const char* p : {tavik::makeString("abc", size_t{0}), tavik::newString("abc", size_t{0}),
                          tavik::newString("abc", -1, 3), tavik::newFormatString(nullptr)})
        EXPECT_EQ(nullptr, p);
    EXPECT_STREQ("ab", tavik::makeString("abcd", 0, 2));
}

}  // namespace
