#include "tavik/tk_time.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

using tavik::datetime;
using tavik::timespan;

namespace {

void setZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

struct TimeTest : ::testing::Test {
    void SetUp() override { setZone("UTC0"); }
};

datetime make(int y, int mo, int d, int h, int mi, int s) {
    datetime value;
    value.set(y, mo, d, h, mi, s, 0);
    return value;
}

// The value add(type, n) must give for `at`: the library's calendar (a leap year is divisible
// by 4 and not by 100) computed through day numbers rather than carries.
long long monthLength(long long y, long long m) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && y % 4 == 0 && y % 100 != 0 ? 29 : days[m - 1];
}

long long dayNumber(long long y, long long m, long long d) {
    long long n = y * 365 + (y + 3) / 4 - (y + 99) / 100 + d - 1;
    for (long long i = 1; i < m; i++) n += monthLength(y, i);
    return n;
}

time_t expectedAdd(time_t at, datetime::Type type, long long n) {
    struct tm t;
    localtime_r(&at, &t);
    long long y = t.tm_year + 1900LL, m = t.tm_mon + 1, d = t.tm_mday;
    if (type >= datetime::Month) {
        long long months = y * 12 + m - 1 + (type == datetime::Month ? n : n * 12);
        y = months / 12;
        m = months % 12 + 1;
        d = type == datetime::Month ? std::min(d, monthLength(y, m)) : d;
    }
    static const long long unit[] = {0, 1, 60, 3600, 86400, 0, 0};
    long long seconds =
        dayNumber(y, m, d) * 86400 + t.tm_hour * 3600LL + t.tm_min * 60 + t.tm_sec + n * unit[type];
    long long day = seconds / 86400;
    for (y = day / 366; dayNumber(y + 1, 1, 1) <= day;) ++y;
    day -= dayNumber(y, 1, 1);
    for (m = 1; day >= monthLength(y, m); ++m) day -= monthLength(y, m);
    struct tm out = {};
    out.tm_year = static_cast<int>(y - 1900);
    out.tm_mon = static_cast<int>(m - 1);
    out.tm_mday = static_cast<int>(day + 1);
    out.tm_sec = static_cast<int>(seconds % 86400);
    return mktime(&out);
}

}  // namespace

TEST_F(TimeTest, AddFollowsTheCalendarWithoutThe400YearRule) {
    EXPECT_EQ(28, datetime::getLastMonthDay(2000, 2));
    EXPECT_EQ(29, datetime::getLastMonthDay(2024, 2));
    const struct {
        int year, month, day, hour;
        datetime::Type type;
        int n;
        const char* result;
    } steps[] = {
        {2000, 1, 31, 10, datetime::Month, 1, "2000/02/28 10:00:00"},  // clamped to the month end
        {2024, 2, 29, 10, datetime::Year, 1, "2025/03/01 10:00:00"},   // not clamped
        {2024, 2, 29, 10, datetime::Year, INT_MAX, "2024/02/29 10:00:00"},  // beyond a year field
        // At or before the epoch nothing is added.
        {1970, 1, 1, 0, datetime::Day, 1, "1970/01/01 00:00:00"},
        {1969, 12, 31, 23, datetime::Day, 1, "1969/12/31 23:00:00"},
    };
    for (const auto& s : steps) {
        datetime d = make(s.year, s.month, s.day, s.hour, 0, 0);
        d.add(s.type, s.n);
        EXPECT_STREQ(d.getTime(), s.result);
    }
}

TEST_F(TimeTest, AddCarriesBothWaysLikeDayNumberArithmetic) {
    std::mt19937_64 random(20260305);
    const long long range[] = {0, 5000000, 1000000, 100000, 50000, 1500, 150};
    for (const char* tz : {"UTC0", "KST-9", "NST+3:30"}) {
        setZone(tz);
        for (int i = 0; i < 20000; i++) {
            time_t at = 1 + static_cast<time_t>(random() % 4102444800LL);
            auto type = static_cast<datetime::Type>(1 + random() % 6);
            long long n = static_cast<long long>(random() % (2 * range[type] + 1)) - range[type];
            if (i % 1000 == 0 && type != datetime::Year) {
                n = INT_MAX;
            }
            datetime d;
            d.at = at;
            d.add(type, static_cast<int>(n));
            ASSERT_EQ(expectedAdd(at, type, n), d.at)
                << tz << " at " << at << " type " << type << " n " << n;
        }
    }
}

TEST_F(TimeTest, GetTimeAndSetTimeRoundTrip) {
    setZone("KST-9");
    datetime d = make(2026, 3, 5, 14, 7, 9);
    EXPECT_EQ(d.getDayOfWeek(), 4);
    EXPECT_STREQ(d.getMonthName(), "Mar");
    EXPECT_STREQ(d.getTime(), "2026/03/05 14:07:09");
    datetime back;
    back.setTime("2026/03/05 14:07:09");
    EXPECT_TRUE(back == d);
    back.setTime("2026/03/05");  // too few pieces: unchanged
    back.setTime(static_cast<const char*>(nullptr));
    EXPECT_TRUE(back == d);

    datetime bad;
    bad.at = LLONG_MAX;
    EXPECT_EQ(bad.getYear(), 0);
    EXPECT_EQ(bad.getDayOfWeek(), -1);
    EXPECT_STREQ(bad.getMonthName(), "");
}

TEST_F(TimeTest, TimespanPartsTruncateTowardZero) {
    for (int sign : {1, -1}) {
        timespan span(sign * 90061.5);
        EXPECT_EQ((std::vector<long long>{1, 1, 1, 1, 25, 1501, 90061}),
                  (std::vector<long long>{sign * span.getDays(), sign * span.getHour(),
                                          sign * span.getMinute(), sign * span.getSecond(),
                                          sign * span.getHours(), sign * span.getMinutes(),
                                          sign * span.getSeconds()}));
    }
    timespan span(1e300);
    EXPECT_EQ(span.getSeconds(), LLONG_MAX);
}

TEST_F(TimeTest, EndTimerMeasuresFromTheSameStart) {
    datetime d;
    d.startTimer();
    long long first = d.endTimer();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_GE(first, 0);
    EXPECT_GE(d.endTimer(), first + 20);
}

TEST_F(TimeTest, GettersRunOnSeveralThreadsAtOnce) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; k++) {
        threads.emplace_back([k, &wrong] {
            datetime d = make(2020 + k, 1 + k, 10 + k, k, 2 * k, 3 * k);
            std::string expected = d.getTime();
            for (int i = 0; i < 2000; i++) {
                wrong += expected != d.getTime() || datetime::getCurrent()->getYear() < 2020;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(0, wrong);
}
