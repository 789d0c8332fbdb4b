#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <string>

#include "tavik/tk_common.h"
#include "tavik/tk_os.h"

namespace {

TEST(UtilitiesTest, TextFiltersTouchOnlyTheirCharacters) {
    EXPECT_STREQ("", tavik::trim("   "));
    EXPECT_STREQ("a b \t", tavik::ltrim("  a b \t"));  // blanks only, and one side each
    EXPECT_STREQ("\t a b", tavik::rtrim("\t a b  "));
    EXPECT_STREQ("ab", tavik::killToken("a\nb\n", '\n'));
    EXPECT_STREQ("100%%", tavik::safeVF("100%"));
    char text[] = "MiXeD\xe9";
    EXPECT_STREQ("MIXED\xe9", tavik::strupr(text));
}

TEST(UtilitiesTest, NumberHelpersParseDigitsAndSplitLongLongs) {
    const std::pair<const char*, unsigned> hex[] = {
        {"ff", 255}, {"FF", 255}, {"1g", 0}, {"g1", 0}, {"", 0}, {"123456789", 0x23456789}};
    for (const auto& [in, out] : hex) EXPECT_EQ(out, tavik::xtoi(in)) << in;
    EXPECT_EQ(15u, tavik::otoi("17"));
    EXPECT_EQ(0u, tavik::otoi("18"));
    EXPECT_EQ(511, tavik::otoll("777"));
    EXPECT_EQ(0, tavik::otoll("79"));
    EXPECT_EQ(0x1f - 256, tavik::xtoll("g1f"));  // 'g' counts as -1 at 16^2
    EXPECT_EQ(-1, tavik::xtoll("z"));
    long long v = 5LL * (1LL << 32) + 7;
    EXPECT_EQ(5, tavik::getHighLong(v));
    EXPECT_EQ(v, tavik::getLongLong(7, 5));
    EXPECT_EQ(7, tavik::getLongLong(7, 1L << 32));  // only the low 32 bits of high count
}

TEST(UtilitiesTest, UniqueNamesCountUp) {
    std::string a = tavik::makeUniqueName("job"), b = tavik::makeUniqueName("job");
    ASSERT_EQ(0u, a.rfind("job", 0));
    EXPECT_EQ(atoll(a.c_str() + 3) + 1, atoll(b.c_str() + 3));
}

TEST(UtilitiesTest, SleepsTheWholeTimeOnBothSidesOfTheSecondSplit) {
    for (int ms : {1000, 1200, 0, -5}) {  // 1000 is one usleep, 1200 a sleep and a usleep
        auto start = std::chrono::steady_clock::now();
        tavik::linux_sleep(ms);
        auto took = std::chrono::steady_clock::now() - start;
        EXPECT_GE(took, std::chrono::milliseconds(ms)) << ms;
        EXPECT_LT(took, std::chrono::milliseconds(ms + 1000)) << ms;
    }
}

}  // namespace
