#include "tavik/tk_time.h"

#include <limits.h>
#include <stdlib.h>
#include <stdio.h>
#include <string.h>

#include "tavik/tk_common.h"
#include "tavik/tk_string.h"

namespace tavik {

namespace {

const char* const monthName[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int monthDays(long long year, long long month) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) {
        return 0;
    }
    if (month == 2 && year % 4 == 0 && year % 100 != 0) {
        return 29;
    }
    return days[month - 1];
}

// Moves whole multiples of base from field into next so that field ends in [0, base): the
// same result as stepping one unit at a time, without the steps.
void carry(long long& field, long long& next, long long base) {
    long long q = field / base;
    long long r = field % base;
    if (r < 0) {
        r += base;
        q--;
    }
    field = r;
    next += q;
}

// The calendar above repeats every 100 years, which hold 36524 days.
const long long daysPerCentury = 36524;

long long truncToward0(double v) {
    if (!(v == v)) {
        return 0;
    }
    if (v >= 9.2e18) {
        return LLONG_MAX;
    }
    if (v <= -9.2e18) {
        return LLONG_MIN;
    }
    return static_cast<long long>(v);
}

}  // namespace

datetime::datetime() : at(time(nullptr)), szTime{}, tb{}, nTimer(0), nFraction(0) {}

datetime* datetime::getCurrent() {
    // One per thread, so that a thread reading its value never sees another thread's update.
    thread_local datetime now;
    now.at = time(nullptr);
    return &now;
}

datetime& datetime::operator=(const datetime& other) {
    at = other.at;
    return *this;
}

double datetime::operator-(const datetime& other) const {
    return difftime(at, other.at);
}
bool datetime::operator>(const datetime& other) const {
    return difftime(at, other.at) > 0.0;
}
bool datetime::operator<(const datetime& other) const {
    return difftime(at, other.at) < 0.0;
}
bool datetime::operator==(const datetime& other) const {
    return difftime(at, other.at) == 0.0;
}
bool datetime::operator>=(const datetime& other) const {
    return difftime(at, other.at) >= 0.0;
}
bool datetime::operator<=(const datetime& other) const {
    return difftime(at, other.at) <= 0.0;
}
bool datetime::operator!=(const datetime& other) const {
    return difftime(at, other.at) != 0.0;
}

bool datetime::_local(struct tm* out) const {
    return localtime_r(&at, out) != nullptr;
}

int datetime::_field(int tm::*field, int offset, int fallback) const {
    struct tm t;
    return _local(&t) ? t.*field + offset : fallback;
}

const char* datetime::getMonthName() const {
    int month = getMonth();
    return month >= 1 && month <= 12 ? monthName[month - 1] : "";
}

void datetime::set(int year, int month, int day, int hour, int minute, int second, int fraction) {
    nFraction = fraction;
    long long tmYear = static_cast<long long>(year) - 1900;
    if (tmYear < INT_MIN || month == INT_MIN) {
        at = -1;
        return;
    }
    struct tm t = {};
    t.tm_year = static_cast<int>(tmYear);
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    t.tm_isdst = 0;
    at = mktime(&t);
}

void datetime::set(long long t) {
    time_t value = static_cast<time_t>(t);
    struct tm parts;
    at = localtime_r(&value, &parts) ? mktime(&parts) : value;
}

void datetime::setTime(int hour, int minute, int second) {
    struct tm t;
    if (!_local(&t)) {
        return;
    }
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    t.tm_isdst = 0;
    at = mktime(&t);
}

void datetime::setTime(const char* text) {
    if (text == nullptr) {
        return;
    }
    try {
        string whole(text);
        smartPtr<strArr> date(whole.split("/"));
        if (date->length < 3) {
            return;
        }
        string rest((*date)[2]);
        smartPtr<strArr> dayTime(rest.split(" "));
        if (dayTime->length < 2) {
            return;
        }
        string clock((*dayTime)[1]);
        smartPtr<strArr> hms(clock.split(":"));
        if (hms->length < 3) {
            return;
        }
        set(atoi((*date)[0]), atoi((*date)[1]), atoi((*dayTime)[0]), atoi((*hms)[0]),
            atoi((*hms)[1]), atoi((*hms)[2]), 0);
    } catch (...) {
        // Splitting failed to allocate: the value stays as it was.
    }
}

long long datetime::getLongLong() const {
    // Wraps instead of overflowing for values far beyond any real date.
    unsigned long long ms = static_cast<unsigned long long>(at) * 1000u;
    return static_cast<long long>(ms + static_cast<unsigned long long>(nFraction / 1000000));
}

char* datetime::getTime() {
    snprintf(szTime, sizeof(szTime), "%04d/%02d/%02d %02d:%02d:%02d", getYear(), getMonth(),
             getDay(), getHour(), getMinute(), getSecond());
    return szTime;
}

char* datetime::getDaytime() {
    snprintf(szTime, sizeof(szTime), "%02d:%02d:%02d", getHour(), getMinute(), getSecond());
    return szTime;
}

void datetime::_readClock() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tb.time = now.tv_sec;
    tb.millitm = static_cast<unsigned short>(now.tv_nsec / 1000000);
    tb.timezone = 0;
    tb.dstflag = 0;
}

void datetime::startTimer() {
    _readClock();
    nTimer = static_cast<long long>(tb.time) * 1000 + tb.millitm;
}

long long datetime::endTimer() {
    _readClock();
    return static_cast<long long>(tb.time) * 1000 + tb.millitm - nTimer;
}

long long datetime::getMiliseconds() {
    startTimer();
    return nTimer;
}

int datetime::getLastMonthDay(int year, int month) {
    return monthDays(year, month);
}

void datetime::add(Type type, int n) {
    struct tm t;
    if (at <= 0 || !_local(&t)) {
        return;
    }
    long long year = t.tm_year + 1900LL, month = t.tm_mon + 1, day = t.tm_mday;
    long long hour = t.tm_hour, minute = t.tm_min, second = t.tm_sec;
    switch (type) {
        case Second:
            second += n;
            break;
        case Minute:
            minute += n;
            break;
        case Hour:
            hour += n;
            break;
        case Day:
            day += n;
            break;
        case Month:
            month += n;
            break;
        case Year:
            year += n;
            break;
    }
    carry(second, minute, 60);
    carry(minute, hour, 60);
    carry(hour, day, 24);
    long long month0 = month - 1;
    carry(month0, year, 12);
    month = month0 + 1;

    if (type == Month && day > monthDays(year, month)) {
        day = monthDays(year, month);
    }
    while (day > monthDays(year, month)) {
        if (day > daysPerCentury + 31) {
            day -= daysPerCentury;
            year += 100;
            continue;
        }
        day -= monthDays(year, month);
        if (++month > 12) {
            month = 1;
            year++;
        }
    }
    while (day < 1) {
        if (day <= -daysPerCentury) {
            day += daysPerCentury;
            year -= 100;
            continue;
        }
        if (--month < 1) {
            month = 12;
            year--;
        }
        day += monthDays(year, month);
    }
    if (year > INT_MAX || year < INT_MIN + 1900LL) {
        return;
    }
    set(static_cast<int>(year), static_cast<int>(month), static_cast<int>(day),
        static_cast<int>(hour), static_cast<int>(minute), static_cast<int>(second), 0);
}

long long timespan::getDay() const {
    return truncToward0(diff / 86400.0);
}
long long timespan::getHours() const {
    return truncToward0(diff / 3600.0);
}
long long timespan::getMinutes() const {
    return truncToward0(diff / 60.0);
}
long long timespan::getSeconds() const {
    return truncToward0(diff);
}
long long timespan::getHour() const {
    return truncToward0(diff) % 86400 / 3600;
}
long long timespan::getMinute() const {
    return truncToward0(diff) % 3600 / 60;
}
long long timespan::getSecond() const {
    return truncToward0(diff) % 60;
}

}  // namespace tavik
