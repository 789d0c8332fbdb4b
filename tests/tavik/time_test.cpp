#include "tavik/tk_time.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

using tavik::datetime;
using tavik::timespan;

namespace {

// Fixed offsets, half hours, and a zone with summer time.
const char* const zones[] = {"UTC0", "KST-9", "NST+3:30", "CET-1CEST,M3.5.0,M10.5.0/3"};

void setZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

datetime make(int y, int mo, int d, int h, int mi, int s) {
    datetime value;
    value.set(y, mo, d, h, mi, s, 0);
    return value;
}

// Days of a month counted from 0 = January.
long long monthLength(long long y, long long m) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 1 && y % 4 == 0 && y % 100 != 0 ? 29 : days[m];
}

// add(type, n) step by step: the local fields, n added to one of them, carries of single
// units, the day clamped for months only, the day walked into its month, then set.
time_t referenceAdd(time_t at, datetime::Type type, long long n) {
    struct tm t;
    localtime_r(&at, &t);
    long long f[] = {0, t.tm_sec, t.tm_min, t.tm_hour, t.tm_mday, t.tm_mon, t.tm_year + 1900LL};
    long long &day = f[4], &mon = f[5], &year = f[6];
    f[type] += n;
    for (int i : {1, 2, 3, 5}) {  // seconds, minutes, hours and months carry up from 0
        const long long count = i == 3 ? 24 : i == 5 ? 12 : 60;
        for (; f[i] >= count; f[i] -= count) ++f[i + 1];
        for (; f[i] < 0; f[i] += count) --f[i + 1];
    }
    if (type == datetime::Month && day > monthLength(year, mon))
        day = monthLength(year, mon);
    while (day > monthLength(year, mon)) {
        day -= monthLength(year, mon);
        if (++mon == 12)
            mon = 0, ++year;
    }
    while (day < 1) {
        if (--mon < 0)
            mon = 11, --year;
        day += monthLength(year, mon);
    }
    if (year > INT_MAX)
        return at;  // beyond what the fields can hold: unchanged
    datetime result;
    result.set(int(year), int(mon + 1), int(day), int(f[3]), int(f[2]), int(f[1]), 0);
    return result.at;
}

}  // namespace

TEST(TimeTest, AddCarriesLikeACalendarWithoutThe400YearRule) {
    setZone("UTC0");
    const std::tuple<const char*, const char*, datetime::Type, int> steps[] = {
        {"2000/02/28 10:20:30", "2000/03/01 10:20:30", datetime::Day, 1},
        {"2024/02/29 10:00:00", "2025/03/01 10:00:00", datetime::Year, 1},        // not clamped
        {"2024/02/29 10:00:00", "2024/02/29 10:00:00", datetime::Year, INT_MAX},  // too far
        {"2024/02/29 10:00:00", "2147483637/03/01 10", datetime::Year, INT_MAX - 2034},  // cut
        {"1970/01/01 00:00:00", "1970/01/01 00:00:00", datetime::Day, 1},  // unchanged at the epoch
        {"1969/12/31 23:00:00", "1969/12/31 23:00:00", datetime::Day, 1},  // and before it
    };
    for (const auto& [from, to, type, n] : steps) {
        datetime d;
        d.setTime(from);
        d.add(type, n);
        EXPECT_STREQ(d.getTime(), to) << from;
    }

    std::mt19937_64 random(20260305);
    const long long range[] = {0, 5000000, 1000000, 100000, 200000, 1500, 150};
    for (const char* tz : zones) {
        setZone(tz);
        for (int i = 0; i < 5000; i++) {
            const int y = 1900 + i % 256, m = i % 14;  // months 0 and 13 have no days
            ASSERT_EQ(m % 13 ? monthLength(y, m - 1) : 0, datetime::getLastMonthDay(y, m)) << y;
            time_t at = 1 + static_cast<time_t>(random() % 4102444800LL);
            auto type = static_cast<datetime::Type>(1 + random() % 6);
            long long n = static_cast<long long>(random() % (2 * range[type] + 1)) - range[type];
            if (i % 2500 == 0 && type != datetime::Year)
                n = INT_MAX;
            datetime d;
            d.at = at;
            d.add(type, static_cast<int>(n));
            ASSERT_EQ(referenceAdd(at, type, n), d.at)
                << tz << " at " << at << " type " << type << " n " << n;
        }
    }
}

TEST(TimeTest, SetBuildsStandardTimeAndGettersReadLocalTime) {
    setZone("KST-9");
    datetime d = make(2026, 3, 5, 14, 7, 19);
    EXPECT_STREQ(d.getTime(), "2026/03/05 14:07:19");
    EXPECT_STREQ(d.getDaytime(), "14:07:19");
    std::string names;
    for (int month = 1; month <= 12; month++) names += make(2026, month, 1, 0, 0, 0).getMonthName();
    EXPECT_EQ(names, "JanFebMarAprMayJunJulAugSepOctNovDec");
    EXPECT_EQ(d.getDayOfWeek(), 4);
    d.setTime(1, 2, 3);
    EXPECT_STREQ(d.getTime(), "2026/03/05 01:02:03");

    d.set(2026, INT_MIN, 1, 0, 0, 0, 0);  // fields no calendar can hold give the value -1
    EXPECT_EQ(-1, d.at);
    d.set(2026, 14, 1, 0, 0, 0, 123000000);  // month 14 is February of the next year
    EXPECT_STREQ(d.getTime(), "2027/02/01 00:00:00");
    EXPECT_EQ(d.getLong() * 1000LL + 123, d.getLongLong());
    datetime copy;
    copy = d;                          // only the value is copied
    copy.setTime("2026/03/05 14:07");  // too few pieces: unchanged
    copy.setTime(static_cast<const char*>(nullptr));
    EXPECT_TRUE(copy == d && copy.nFraction == 0);

    // Summer time is not applied: the value is an hour later than the fields asked for.
    setZone(zones[3]);
    d.set(2026, 7, 1, 12, 0, 0, 0);
    EXPECT_STREQ(d.getTime(), "2026/07/01 13:00:00");
    d.setTime(12, 0, 0);
    EXPECT_STREQ(d.getTime(), "2026/07/01 13:00:00");

    d.at = LLONG_MAX;  // beyond the calendar: fields 0, no weekday and no month name
    EXPECT_STREQ(d.getTime(), "0000/00/00 00:00:00");
    EXPECT_EQ(-1, d.getDayOfWeek());
    EXPECT_STREQ(d.getMonthName(), "");
}

TEST(TimeTest, ComparisonsDifferencesAndSpanPartsFollowTheValue) {
    datetime a, b;
    b.at = 2;
    std::string holds;
    for (time_t x : {1, 2, 3}) {
        a.at = x;
        holds += std::string(a < b ? "< " : "") + (a <= b ? "<= " : "") + (a == b ? "== " : "") +
                 (a != b ? "!= " : "") + (a >= b ? ">= " : "") + (a > b ? "> " : "") + "| ";
        EXPECT_EQ(static_cast<double>(x - 2), a - b);
    }
    EXPECT_EQ("< <= != | <= == >= | != >= > | ", holds);

    // The parts of a span truncate toward zero: days, hours, minutes, seconds, then hour,
    // minute and second of the day.
    const std::pair<double, std::vector<long long>> spans[] = {
        {90061.5, {1, 25, 1501, 90061, 1, 1, 1}}, {-90061.5, {-1, -25, -1501, -90061, -1, -1, -1}},
        {172800, {2, 48, 2880, 172800, 0, 0, 0}}, {7200, {0, 2, 120, 7200, 2, 0, 0}},
        {3720, {0, 1, 62, 3720, 1, 2, 0}},
    };
    for (const auto& [diff, parts] : spans) {
        timespan t(diff);
        EXPECT_EQ(parts,
                  (std::vector<long long>{t.getDays(), t.getHours(), t.getMinutes(), t.getSeconds(),
                                          t.getHour(), t.getMinute(), t.getSecond()}))
            << diff;
    }
    EXPECT_EQ(timespan(1e18).getSeconds(), 1000000000000000000LL);
    EXPECT_EQ(timespan(1e300).getSeconds(), LLONG_MAX);
}

TEST(TimeTest, ClockReadingsAreTheCurrentTime) {
    auto now = [] {
        timespec t;
        clock_gettime(CLOCK_REALTIME, &t);
        return t.tv_sec * 1000LL + t.tv_nsec / 1000000;
    };
    const time_t before = time(nullptr);
    datetime d;
    datetime::getCurrent()->at = 0;
    EXPECT_TRUE(d.at >= before && datetime::getCurrent()->at >= before);
    // A reading between two clock readings of the same millisecond is that millisecond; in
    // 200 ms some readings fall in the first microsecond of one, where rounding would show.
    int exact = 0;
    for (const long long end = now() + 200; now() < end;) {
        const long long first = now(), got = d.getMiliseconds(), last = now();
        ASSERT_TRUE(first != last || got == first) << got << " read within " << first;
        exact += first == last;
    }
    EXPECT_GT(exact, 0);

    d.startTimer();
    long long first = d.endTimer();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_GE(first, 0);
    EXPECT_GE(d.endTimer(), first + 20);  // measured from the same start
}

TEST(TimeTest, GettersRunOnSeveralThreadsAtOnce) {
    setZone("UTC0");  // first zone read here: the race checker cannot see the C library's lock
    std::vector<int> wrong(4);
    std::vector<std::thread> threads;
    for (int k = 0; k < 4; k++) {
        threads.emplace_back([k, &wrong] {
            datetime d = make(2020 + k, 1 + k, 10 + k, k, 2 * k, 3 * k);
            const std::string expected = d.getTime();
            for (int i = 0; i < 2000; i++)
                wrong[k] += expected != d.getTime() || datetime::getCurrent()->getYear() < 2020;
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(std::vector<int>(4), wrong);
}
