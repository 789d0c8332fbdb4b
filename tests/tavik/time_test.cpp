#include "tavik/tk_time.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <time.h>

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

class TimeTest : public ::testing::Test {
protected:
    void SetUp() override { setZone("UTC0"); }
    void TearDown() override { setZone("UTC0"); }

    static datetime make(int y, int mo, int d, int h, int mi, int s) {
        datetime value;
        value.set(y, mo, d, h, mi, s, 0);
        return value;
    }
};

// The library's calendar computed through day numbers rather than carries: a leap year is
// divisible by 4 and not by 100.
long long monthLength(long long y, long long m) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && y % 4 == 0 && y % 100 != 0 ? 29 : days[m - 1];
}

long long dayNumber(long long y, long long m, long long d) {
    long long n = y * 365 + (y + 3) / 4 - (y + 99) / 100;
    for (long long i = 1; i < m; i++) {
        n += monthLength(y, i);
    }
    return n + d - 1;
}

long long floorDiv(long long a, long long b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

// The value add(type, n) must give for `at` in a zone `offset` seconds east of UTC.
time_t expectedAdd(time_t at, long offset, datetime::Type type, long long n) {
    time_t shifted = at + offset;
    struct tm t;
    gmtime_r(&shifted, &t);
    long long y = t.tm_year + 1900LL, m = t.tm_mon + 1, d = t.tm_mday;
    if (type >= datetime::Month) {
        long long months = y * 12 + (m - 1) + (type == datetime::Month ? n : n * 12);
        y = floorDiv(months, 12);
        m = months - y * 12 + 1;
        if (type == datetime::Month && d > monthLength(y, m)) {
            d = monthLength(y, m);
        }
    }
    static const long long unit[] = {0, 1, 60, 3600, 86400, 0, 0};
    long long seconds =
        dayNumber(y, m, d) * 86400 + t.tm_hour * 3600LL + t.tm_min * 60 + t.tm_sec + n * unit[type];
    long long day = floorDiv(seconds, 86400);
    for (y = day / 366; dayNumber(y + 1, 1, 1) <= day;) {
        ++y;
    }
    day -= dayNumber(y, 1, 1);
    for (m = 1; day >= monthLength(y, m); ++m) {
        day -= monthLength(y, m);
    }
    struct tm out = {};
    out.tm_year = static_cast<int>(y - 1900);
    out.tm_mon = static_cast<int>(m - 1);
    out.tm_mday = static_cast<int>(day + 1);
    out.tm_sec = static_cast<int>(seconds - floorDiv(seconds, 86400) * 86400);
    return timegm(&out) - offset;
}

}  // namespace

TEST_F(TimeTest, LastMonthDayLeavesOutThe400YearRule) {
    EXPECT_EQ(datetime::getLastMonthDay(2024, 2), 29);
    EXPECT_EQ(datetime::getLastMonthDay(1900, 2), 28);
    EXPECT_EQ(datetime::getLastMonthDay(2000, 2), 28);
}

TEST_F(TimeTest, AddCarriesThroughTheCalendar) {
    const struct {
        int year, month, day, hour;
        datetime::Type type;
        int n;
        const char* result;
    } steps[] = {
        {2023, 1, 31, 10, datetime::Month, 1, "2023/02/28 10:00:00"},
        {2023, 2, 28, 0, datetime::Day, 1, "2023/03/01 00:00:00"},
        {2000, 2, 28, 12, datetime::Day, 1, "2000/03/01 12:00:00"},
        {2024, 2, 29, 0, datetime::Year, 1, "2025/03/01 00:00:00"},
        {2023, 12, 31, 23, datetime::Second, 3600, "2024/01/01 00:00:00"},
        {2023, 5, 5, 0, datetime::Year, INT_MAX, "2023/05/05 00:00:00"},  // beyond a year field
    };
    for (const auto& s : steps) {
        datetime d = make(s.year, s.month, s.day, s.hour, 0, 0);
        d.add(s.type, s.n);
        EXPECT_STREQ(d.getTime(), s.result);
    }
    for (time_t at : {0, -100}) {
        datetime d;
        d.at = at;
        d.add(datetime::Day, 1);
        EXPECT_EQ(d.at, at);
    }
}

TEST_F(TimeTest, AddCarriesBothWaysLikeDayNumberArithmetic) {
    const struct {
        const char* tz;
        long offset;
    } zones[] = {{"UTC0", 0}, {"KST-9", 9 * 3600}, {"NST+3:30", -(3 * 3600 + 1800)}};
    std::mt19937_64 random(20260305);
    const long long range[] = {0, 5000000, 1000000, 100000, 50000, 1500, 150};
    int failures = 0;
    for (const auto& z : zones) {
        setZone(z.tz);
        for (int i = 0; i < 20000 && failures < 10; i++) {
            time_t at = 1 + static_cast<time_t>(random() % 4102444800LL);
            auto type = static_cast<datetime::Type>(1 + random() % 6);
            long long n = static_cast<long long>(random() % (2 * range[type] + 1)) - range[type];
            if (i % 1000 == 0 && type != datetime::Year) {
                n = INT_MAX;
            }
            datetime d;
            d.at = at;
            d.add(type, static_cast<int>(n));
            time_t expected = expectedAdd(at, z.offset, type, n);
            if (d.at != expected) {
                ADD_FAILURE() << z.tz << " at " << at << " type " << type << " n " << n << " gave "
                              << d.at << ", expected " << expected;
                failures++;
            }
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
    struct timespec pause = {0, 20 * 1000 * 1000};
    nanosleep(&pause, nullptr);
    EXPECT_GE(first, 0);
    EXPECT_GE(d.endTimer(), first + 20);
}

TEST_F(TimeTest, GettersRunOnSeveralThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::vector<int> wrong(4, 0);
    for (int k = 0; k < 4; k++) {
        threads.emplace_back([k, &wrong] {
            datetime d = make(2020 + k, 1 + k, 10 + k, k, 2 * k, 3 * k);
            std::string expected = d.getTime();
            for (int i = 0; i < 2000; i++) {
                if (expected != d.getTime() || datetime::getCurrent()->getYear() < 2020) {
                    wrong[k]++;
                }
            }
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}
