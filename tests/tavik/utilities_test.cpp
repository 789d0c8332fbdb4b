#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <set>
#include <string>

#include "tavik/tk_common.h"

namespace {

TEST(UtilitiesTest, TrimTouchesOnlyBlanks) {
    EXPECT_STREQ("a b", tavik::trim("  a b  "));
    EXPECT_STREQ("", tavik::trim("   "));
    EXPECT_STREQ("\tx", tavik::trim("\tx "));
    EXPECT_STREQ("a  ", tavik::ltrim("  a  "));
    EXPECT_STREQ("  a", tavik::rtrim("  a  "));
    EXPECT_EQ(nullptr, tavik::trim(nullptr));
}

TEST(UtilitiesTest, CharacterFiltersReturnChangedCopies) {
    EXPECT_STREQ("100%%", tavik::safeVF("100%"));
    EXPECT_STREQ("abc", tavik::killToken("a\nb\nc\n", '\n'));
    EXPECT_STREQ("a_b_c", tavik::replaceWith("a b c", ' ', '_'));
    char text[] = "MiXeD\xe9";
    EXPECT_STREQ("MIXED\xe9", tavik::strupr(text));
    EXPECT_STREQ("mixed\xe9", tavik::strlwr(text));
}

TEST(UtilitiesTest, DigitParsersRejectOrCountBadDigits) {
    EXPECT_EQ(255u, tavik::xtoi("ff"));
    EXPECT_EQ(255u, tavik::xtoi("FF"));
    EXPECT_EQ(0u, tavik::xtoi("1g"));
    EXPECT_EQ(0u, tavik::xtoi(""));
    EXPECT_EQ(0xdeadbeefu, tavik::xtoi("DeadBeef"));
    EXPECT_EQ(0x23456789u, tavik::xtoi("123456789"));  // wraps at 32 bits
    EXPECT_EQ(15u, tavik::otoi("17"));
    EXPECT_EQ(0u, tavik::otoi("8"));
    EXPECT_EQ(511, tavik::otoll("777"));
    EXPECT_EQ(0, tavik::otoll("79"));
    EXPECT_EQ(0x1f - 16, tavik::xtoll("g1f") + 256 - 16);  // 'g' counts as -1 at 16^2
    EXPECT_EQ(-1, tavik::xtoll("z"));
}

TEST(UtilitiesTest, LongLongSplitsAndJoins) {
    long long v = 5LL * (1LL << 32) + 7;
    EXPECT_EQ(5, tavik::getHighLong(v));
    EXPECT_EQ(v, tavik::getLowLong(v));
    EXPECT_EQ(v, tavik::getLongLong(7, 5));
    EXPECT_EQ(7, tavik::getLongLong(7, 1L << 32));  // only the low 32 bits of high count
}

TEST(UtilitiesTest, UniqueNamesCountUpByOne) {
    std::string a = tavik::makeUniqueName("job");
    std::string b = tavik::makeUniqueName("job");
    ASSERT_EQ(0u, a.rfind("job", 0));
    EXPECT_EQ(atoll(a.c_str() + 3) + 1, atoll(b.c_str() + 3));
    EXPECT_GT(atoll(a.c_str() + 3), 1000000000000000LL);  // milliseconds times 1000
}

TEST(UtilitiesTest, RandomUuidIsThirtyTwoLowerHexDigits) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const char* id = tavik::uuid::randomUUID();
        ASSERT_EQ(32u, strlen(id));
        EXPECT_EQ(strlen(id), strspn(id, "0123456789abcdef"));
        seen.insert(id);
    }
    EXPECT_EQ(100u, seen.size());
}

TEST(UtilitiesTest, SleepOfMoreThanASecondSplitsIntoSecondsAndRest) {
    auto start = std::chrono::steady_clock::now();
    tavik::linux_sleep(1200);
    tavik::linux_sleep(0);
    tavik::linux_sleep(-5);
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                  std::chrono::steady_clock::now() - start)
                  .count();
    EXPECT_GE(ms, 1200);
    EXPECT_LT(ms, 3000);
}

}  // namespace
