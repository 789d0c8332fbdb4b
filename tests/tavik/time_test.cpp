#include "tavik/tk_time.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
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

// The calendar the library uses, computed through day numbers rather than carries: a year is
// a leap year when divisible by 4 and not by 100. Years from 1 on.
bool leap(long long y) {
    return y % 4 == 0 && y % 100 != 0;
}

long long monthLength(long long y, long long m) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leap(y) ? 29 : days[m - 1];
}

long long dayNumber(long long y, long long m, long long d) {
    long long n = y * 365 + (y + 3) / 4 - (y + 99) / 100;
    for (long long i = 1; i < m; i++) {
        n += monthLength(y, i);
    }
    return n + d - 1;
}

void fromDayNumber(long long n, long long* y, long long* m, long long* d) {
    *y = n / 365;
    while (dayNumber(*y, 1, 1) > n) {
        --*y;
    }
    while (dayNumber(*y + 1, 1, 1) <= n) {
        ++*y;
    }
    n -= dayNumber(*y, 1, 1);
    for (*m = 1; n >= monthLength(*y, *m); ++*m) {
        n -= monthLength(*y, *m);
    }
    *d = n + 1;
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
    long long clock = t.tm_hour * 3600LL + t.tm_min * 60 + t.tm_sec;
    if (type == datetime::Month || type == datetime::Year) {
        long long months = y * 12 + (m - 1) + (type == datetime::Month ? n : n * 12);
        y = floorDiv(months, 12);
        m = months - y * 12 + 1;
        if (type == datetime::Month && d > monthLength(y, m)) {
            d = monthLength(y, m);
        }
    }
    static const long long unit[] = {0, 1, 60, 3600, 86400};
    long long seconds = dayNumber(y, m, d) * 86400 + clock;
    if (type <= datetime::Day) {
        seconds += n * unit[type];
    }
    long long day = floorDiv(seconds, 86400);
    clock = seconds - day * 86400;
    fromDayNumber(day, &y, &m, &d);
    struct tm out = {};
    out.tm_year = static_cast<int>(y - 1900);
    out.tm_mon = static_cast<int>(m - 1);
    out.tm_mday = static_cast<int>(d);
    out.tm_sec = static_cast<int>(clock);
    return timegm(&out) - offset;
}

}  // namespace

TEST_F(TimeTest, LastMonthDayLeavesOutThe400YearRule) {
    EXPECT_EQ(datetime::getLastMonthDay(2024, 2), 29);
    EXPECT_EQ(datetime::getLastMonthDay(2023, 2), 28);
    EXPECT_EQ(datetime::getLastMonthDay(1900, 2), 28);
    EXPECT_EQ(datetime::getLastMonthDay(2000, 2), 28);
    EXPECT_EQ(datetime::getLastMonthDay(2023, 1), 31);
    EXPECT_EQ(datetime::getLastMonthDay(2023, 4), 30);
    EXPECT_EQ(datetime::getLastMonthDay(2023, 12), 31);
    EXPECT_EQ(datetime::getLastMonthDay(2023, 13), 0);
}

TEST_F(TimeTest, AddCarriesThroughTheCalendar) {
    struct step {
        int year, month, day, hour;
        datetime::Type type;
        int n;
        const char* result;
    } steps[] = {
        {2023, 1, 31, 10, datetime::Month, 1, "2023/02/28 10:00:00"},
        {2024, 1, 31, 10, datetime::Month, 1, "2024/02/29 10:00:00"},
        {2023, 3, 31, 0, datetime::Month, -1, "2023/02/28 00:00:00"},
        {2023, 2, 28, 0, datetime::Day, 1, "2023/03/01 00:00:00"},
        // The year 2000 has no 29 February here.
        {2000, 2, 28, 12, datetime::Day, 1, "2000/03/01 12:00:00"},
        {2024, 2, 29, 0, datetime::Year, 1, "2025/03/01 00:00:00"},
        {2023, 1, 1, 0, datetime::Second, -1, "2022/12/31 23:59:59"},
        {2023, 1, 1, 0, datetime::Hour, 24 * 365, "2024/01/01 00:00:00"},
    };
    datetime d;
    for (const step& s : steps) {
        d = make(s.year, s.month, s.day, s.hour, 0, 0);
        d.add(s.type, s.n);
        EXPECT_STREQ(d.getTime(), s.result);
    }
    d = make(2023, 12, 31, 23, 59, 59);
    time_t before = d.at;
    d.add(datetime::Second, 3600);
    EXPECT_EQ(d.at, before + 3600);
    d.add(datetime::Second, -3601);
    EXPECT_STREQ(d.getTime(), "2023/12/31 23:59:58");

    d.nFraction = 5;
    d.add(datetime::Minute, 0);
    EXPECT_EQ(d.nFraction, 0);

    d.at = 0;
    d.add(datetime::Day, 1);
    EXPECT_EQ(d.at, 0);
    d.at = -100;
    d.add(datetime::Day, 1);
    EXPECT_EQ(d.at, -100);

    d = make(2023, 5, 5, 0, 0, 0);
    before = d.at;
    d.add(datetime::Year, INT_MAX);  // beyond what a year field holds
    EXPECT_EQ(d.at, before);
}

TEST_F(TimeTest, AddMatchesDayNumberArithmeticOverRandomValues) {
    struct zone {
        const char* tz;
        long offset;
    } zones[] = {{"UTC0", 0}, {"KST-9", 9 * 3600}, {"NST+3:30", -(3 * 3600 + 1800)}};
    std::mt19937_64 random(20260305);
    const long long range[] = {0, 5000000, 1000000, 100000, 50000, 1500, 150};
    int failures = 0;
    for (const zone& z : zones) {
        setZone(z.tz);
        for (int i = 0; i < 20000 && failures < 10; i++) {
            time_t at = 1 + static_cast<time_t>(random() % 4102444800LL);
            auto type = static_cast<datetime::Type>(1 + random() % 6);
            long long span = range[type];
            long long n = static_cast<long long>(random() % (2 * span + 1)) - span;
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

TEST_F(TimeTest, FieldsAndTextsRoundTrip) {
    setZone("KST-9");
    datetime d = make(2026, 3, 5, 14, 7, 9);
    EXPECT_EQ(d.at, 1772687229);
    EXPECT_EQ(d.getYear(), 2026);
    EXPECT_EQ(d.getMonth(), 3);
    EXPECT_EQ(d.getDay(), 5);
    EXPECT_EQ(d.getDayOfWeek(), 4);
    EXPECT_STREQ(d.getMonthName(), "Mar");
    EXPECT_STREQ(d.getTime(), "2026/03/05 14:07:09");
    EXPECT_STREQ(d.getDaytime(), "14:07:09");

    datetime back;
    back.setTime("2026/03/05 14:07:09");
    EXPECT_TRUE(back == d);
    back.setTime(8, 30, 0);
    EXPECT_STREQ(back.getTime(), "2026/03/05 08:30:00");
    time_t kept = back.at;
    back.setTime("2026/03/05");
    back.setTime("14:07:09");
    back.setTime(static_cast<const char*>(nullptr));
    EXPECT_EQ(back.at, kept);

    EXPECT_DOUBLE_EQ(d - back, 20229.0);
    EXPECT_TRUE(d > back && back < d && d >= back && back <= d && d != back);
    EXPECT_FALSE(d == back || d < back);

    d.set(2026, 3, 5, 14, 7, 9, 123456789);
    EXPECT_EQ(d.getLongLong(), 1772687229123LL);
    d.set(1772687229LL);
    EXPECT_EQ(d.getLong(), 1772687229L);

    datetime bad;
    bad.at = LLONG_MAX;
    EXPECT_EQ(bad.getYear(), 0);
    EXPECT_EQ(bad.getDayOfWeek(), -1);
    EXPECT_STREQ(bad.getMonthName(), "");
}

TEST_F(TimeTest, TimespanPartsTruncateTowardZero) {
    timespan span(90061.5);
    EXPECT_EQ(span.getDays(), 1);
    EXPECT_EQ(span.getHour(), 1);
    EXPECT_EQ(span.getMinute(), 1);
    EXPECT_EQ(span.getSecond(), 1);
    EXPECT_EQ(span.getHours(), 25);
    EXPECT_EQ(span.getMinutes(), 1501);
    EXPECT_EQ(span.getSeconds(), 90061);
    span = -90061.5;
    EXPECT_EQ(span.getDay(), -1);
    EXPECT_EQ(span.getHour(), -1);
    EXPECT_EQ(span.getMinute(), -1);
    EXPECT_EQ(span.getSecond(), -1);
    EXPECT_EQ(span.getHours(), -25);
    EXPECT_EQ(span.getSeconds(), -90061);
    span = 1e300;
    EXPECT_EQ(span.getSeconds(), LLONG_MAX);
}

TEST_F(TimeTest, EndTimerMeasuresFromTheSameStart) {
    datetime d;
    d.startTimer();
    long long start = d.nTimer;
    EXPECT_NEAR(static_cast<double>(start), time(nullptr) * 1000.0, 2000.0);
    long long first = d.endTimer();
    struct timespec pause = {0, 20 * 1000 * 1000};
    nanosleep(&pause, nullptr);
    long long second = d.endTimer();
    EXPECT_EQ(d.nTimer, start);
    EXPECT_GE(first, 0);
    EXPECT_GE(second, first + 20);
    EXPECT_GE(d.getMiliseconds(), start + 20);
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
