// Calendar values, time spans and mail-header date strings.
// datetime holds seconds since the epoch and reads and writes them through the local time
// zone; timespan splits a difference of two datetimes into days, hours, minutes and seconds.
// The getters may run on several threads at once; one object is used by one thread at a time.
// Texts from getTime/getDaytime live in the object; getDateString returns a scratch text.
#ifndef TAVIK_TK_TIME_H
#define TAVIK_TK_TIME_H

#include <sys/timeb.h>
#include <time.h>

namespace tavik {

class datetime {
public:
    enum Type { Second = 1, Minute = 2, Hour = 3, Day = 4, Month = 5, Year = 6 };

    time_t at;
    char szTime[20];
    struct timeb tb;
    long long nTimer;
    int nFraction;

    datetime();
    datetime(const datetime&) = default;
    virtual ~datetime() {}

    // One object per thread, its value refreshed to the current time on every call.
    static datetime* getCurrent();

    virtual datetime& operator=(const datetime& other);
    virtual double operator-(const datetime& other) const;
    virtual bool operator>(const datetime& other) const;
    virtual bool operator<(const datetime& other) const;
    virtual bool operator==(const datetime& other) const;
    virtual bool operator>=(const datetime& other) const;
    virtual bool operator<=(const datetime& other) const;
    virtual bool operator!=(const datetime& other) const;

    // Local-time fields; 0 (getDayOfWeek -1) when the value cannot be converted.
    int getYear() const { return _field(&tm::tm_year, 1900, 0); }
    int getMonth() const { return _field(&tm::tm_mon, 1, 0); }
    int getDay() const { return _field(&tm::tm_mday, 0, 0); }
    int getHour() const { return _field(&tm::tm_hour, 0, 0); }
    int getMinute() const { return _field(&tm::tm_min, 0, 0); }
    int getSecond() const { return _field(&tm::tm_sec, 0, 0); }
    // 0 = Sunday to 6.
    int getDayOfWeek() const { return _field(&tm::tm_wday, 0, -1); }
    // "Jan" to "Dec"; "" when the value cannot be converted.
    const char* getMonthName() const;

    // Local standard time (no daylight saving); out-of-range fields are normalised.
    void set(int year, int month, int day, int hour, int minute, int second, int fraction);
    void set(long long t);
    void setTime(int hour, int minute, int second);
    // Reads the "YYYY/MM/DD hh:mm:ss" form of getTime; a text with fewer pieces leaves the
    // value unchanged.
    void setTime(const char* text);

    long getLong() const { return static_cast<long>(at); }
    // Milliseconds since the epoch, the fraction given to set included.
    long long getLongLong() const;

    // Both return szTime: valid until the next getTime/getDaytime on this object.
    char* getTime();
    char* getDaytime();

    // Stopwatch in milliseconds: endTimer measures from the last startTimer.
    void startTimer();
    long long endTimer();
    long long getMiliseconds();

    // Days in a month (1-12); February has 29 when the year is divisible by 4 and not by 100.
    static int getLastMonthDay(int year, int month);

    // Calendar arithmetic with carries; does nothing on a value at or before the epoch or
    // when the result cannot be represented. Adding months clamps the day to the month's end.
    void add(Type type, int n);

private:
    bool _local(struct tm* out) const;
    // A field of the local time plus offset, or fallback when the value cannot be converted.
    int _field(int tm::*field, int offset, int fallback) const;
    void _readClock();
};

// A difference of two datetimes in seconds. Every part truncates toward zero.
class timespan {
public:
    double diff;

    timespan() : diff(0) {}
    timespan(double d) : diff(d) {}
    virtual timespan& operator=(double d) {
        diff = d;
        return *this;
    }

    long long getDay() const;
    long long getDays() const { return getDay(); }
    long long getHours() const;
    long long getMinutes() const;
    long long getSeconds() const;
    long long getHour() const;
    long long getMinute() const;
    long long getSecond() const;
};

// The fields of a date such as "Mon, 05 Mar 2026 14:07:09 +0900". A text without the
// expected blanks and colon gives all fields 0; an unknown month name gives mon -1.
class string2date {
public:
    bool positive;
    int year, mon, day, hour, min, sec;
    int gmtHour, gmtMin;

    explicit string2date(const char* text);

    // The date part of a header line as a scratch text, or null.
    static char* getDateString(const char* text);
    // 1 to 12 for "Jan" to "Dec" (exact case), -1 otherwise.
    int getMonth(const char* name) const;

    // Not provided: both always throw a const char* text.
    [[noreturn]] void getDate(datetime* out);
    [[noreturn]] static char* getString(datetime* value);
};

}  // namespace tavik

#endif
