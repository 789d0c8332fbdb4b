#include <gtest/gtest.h>

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>

#include "tavik/tk_common.h"
#include "tavik/tk_os.h"

namespace {

using namespace std::chrono;

// Digits as defined: from the last character (position 0) to the first, each digit times
// base^position added to a sum that wraps; a bad digit rejects the text or counts as -1.
unsigned long long referenceDigits(const std::string& s, int base, bool badAsMinusOne) {
    const std::string digits = std::string("0123456789abcdef").substr(0, base);
    unsigned long long sum = 0, power = 1;
    for (size_t i = s.size(); i-- > 0; power *= base) {
        const size_t d = digits.find(static_cast<char>(tolower(s[i])));
        if (d == std::string::npos && !badAsMinusOne)
            return 0;
        sum += (d == std::string::npos ? ~0ULL : d) * power;
    }
    return sum;
}

TEST(UtilitiesTest, NumberHelpersParseDigitsAndSplitLongLongs) {
    EXPECT_EQ(0, tavik::xtoll(nullptr) + tavik::otoi(nullptr));
    std::mt19937 random(5);
    const char* alphabets[] = {"01234567", "0123456789abcdefABCDEF", "07aFgG8"};
    for (int i = 0; i < 3000; ++i) {
        const std::string alphabet = alphabets[i % 3];
        std::string s;
        for (unsigned n = random() % 24; n > 0; --n) s += alphabet[random() % alphabet.size()];
        const char* p = s.c_str();
        ASSERT_EQ(static_cast<unsigned>(referenceDigits(s, 16, false)), tavik::xtoi(p)) << s;
        ASSERT_EQ(static_cast<long long>(referenceDigits(s, 16, true)), tavik::xtoll(p)) << s;
        ASSERT_EQ(static_cast<unsigned>(referenceDigits(s, 8, false)), tavik::otoi(p)) << s;
        ASSERT_EQ(static_cast<long long>(referenceDigits(s, 8, false)), tavik::otoll(p)) << s;
    }

    // The high half's low 32 bits, shifted, OR-ed with the low half as given.
    EXPECT_EQ(5LL << 32 | 7, tavik::getLongLong(7, 1L << 32 | 5));
    EXPECT_EQ(-1, tavik::getLongLong(-1, 0));
    EXPECT_EQ(static_cast<long long>(0xffffffff00000000ULL), tavik::getLongLong(0, -1));
    EXPECT_EQ(5, tavik::getHighLong(5LL << 32 | 7));
    EXPECT_EQ(0xffffffffL, tavik::getHighLong(-1));
    EXPECT_EQ(0x80000000L, tavik::getHighLong(LLONG_MIN));
    EXPECT_EQ(5LL << 32 | 7, tavik::getLowLong(5LL << 32 | 7));  // a long keeps all 64 bits
}

TEST(UtilitiesTest, UniqueNamesStartFromTheClockAndCountUp) {
    auto now = [] { return system_clock::now().time_since_epoch() / milliseconds(1); };
    const long long before = now();
    const std::string a = tavik::makeUniqueName("job"), b = tavik::makeUniqueName("job");
    // The process's first name is the time in milliseconds times 1000.
    const long long n = atoll(a.c_str() + 3);
    EXPECT_TRUE(n % 1000 == 0 && n / 1000 >= before && n / 1000 <= now()) << n;
    EXPECT_EQ("job" + std::to_string(n + 1), b);

    const std::string id = tavik::uuid::randomUUID();
    EXPECT_TRUE(id.size() == 32 && id.find_first_not_of("0123456789abcdef") == id.npos) << id;
    EXPECT_EQ('4', id[12]) << id;  // a random (version 4) UUID
    int doubled = 0;
    for (int i = 0; i < 32; i += 2) doubled += id[i] == id[i + 1];
    EXPECT_LT(doubled, 16) << id;
}

TEST(UtilitiesTest, MkdirUsesItsFixedModePathsUseSlashesAndSleepsTheWholeTime) {
    const char* dir = HOXEN_BINARY_DIR "/uni_mkdir_probe";
    rmdir(dir);
    const mode_t mask = umask(0);
    EXPECT_EQ(0, tavik::uni_mkdir(dir));
    EXPECT_EQ(-1, tavik::uni_mkdir(dir));
    umask(mask);
    struct stat made = {};
    EXPECT_TRUE(stat(dir, &made) == 0 && made.st_mode == 040077u) << std::oct << made.st_mode;
    rmdir(dir);
    EXPECT_EQ("//", tavik::pathtoken() + std::string(tavik::str_pathtoken()));
    for (int ms : {1000, 1998, 0, -5}) {  // 1000 is one usleep, 1998 a sleep and a usleep
        const auto start = steady_clock::now();
        tavik::linux_sleep(ms);
        const auto took = steady_clock::now() - start;
        EXPECT_TRUE(took >= milliseconds(ms) && took < milliseconds(ms + 1000)) << ms;
    }
}

}  // namespace
