#include "tavik/tk_time.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <initializer_list>
#include <random>
#include <string>

using tavik::string2date;

namespace {

// Day.month.year hour:minute:second, then the offset's sign, hours and minutes.
std::string describe(const string2date& d) {
    char out[128];
    snprintf(out, sizeof out, "%d.%d.%d %d:%d:%d %c%d:%d", d.day, d.mon, d.year, d.hour, d.min,
             d.sec, d.positive ? '+' : '-', d.gmtHour, d.gmtMin);
    return out;
}

// The parse step by step: p and e are positions, -1 when a search finds nothing; numbers
// are read by atoi from a to e (e = -1: to the end), stopping at the end of the text.
std::string referenceParse(const std::string& t) {
    const size_t npos = std::string::npos;
    auto find = [&t](char c, long from) {
        return t.find(c, from) == npos ? -1L : static_cast<long>(t.find(c, from));
    };
    auto number = [&t](long a, long e) {
        const bool past = a >= static_cast<long>(t.size());
        return past ? 0 : atoi(t.substr(a, e < 0 ? npos : e - a).c_str());
    };
    string2date d("");  // all fields 0, the offset positive
    int* const fields[] = {&d.day, &d.mon, &d.year, &d.hour};
    const std::string months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    long p = t.find(',') == npos ? 0 : find(' ', 0) + 1;
    for (int i = 0; i < 4; ++i) {  // day, month, year up to blanks, hour up to a colon
        const long e = find(i < 3 ? ' ' : ':', p);
        if (e < 0)
            return describe(string2date(""));
        const std::string name = t.substr(p, e - p);
        const size_t m = name.size() == 3 ? months.find(name) : npos;
        *fields[i] = i != 1 ? number(p, e) : (m != npos && m % 3 == 0 ? int(m / 3 + 1) : -1);
        p = e + 1;
    }
    const bool seconds = find(':', p) >= 0;
    long end = find(seconds ? ':' : ' ', p);
    d.min = number(p, end);
    if (seconds) {
        p = end + 1;
        end = find(' ', p) < 0 ? p + 2 : find(' ', p);
        d.sec = number(p, end);
    } else if (end < 0) {
        return describe(d);
    }
    p = end + 1;
    if (p >= static_cast<long>(t.size()) || (t[p] != '+' && t[p] != '-'))
        return describe(d);
    d.positive = t[p] == '+';
    d.gmtHour = number(p + 1, p + 3);
    d.gmtMin = number(p + 3, p + 5);
    return describe(d);
}

}  // namespace

TEST(DateStringTest, ParsesHeaderDates) {
    const char* cases[][2] = {
        {"Mon, 05 Mar 2026 14:07:09 +0900", "5.3.2026 14:7:9 +9:0"},
        // Seconds that end the text are the two characters after the last colon.
        {"05 Mar 2026 14:07:0912", "5.3.2026 14:7:9 +0:0"},
        {"05 mar 2026 14:07:09 +0900", "5.-1.2026 14:7:9 +9:0"},
        // Without seconds there is no offset, even when the text starts with a sign.
        {"05 Mar 2026 14:07 -0100", "5.3.2026 14:7:0 -1:0"},
        {"-05 Mar 2026 14:07", "-5.3.2026 14:7:0 +0:0"},
        // Text without the expected blanks gives zeros.
        {"Mon,05-Mar-2026", "0.0.0 0:0:0 +0:0"},
        {nullptr, "0.0.0 0:0:0 +0:0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c[1], describe(string2date(c[0]))) << (c[0] ? c[0] : "(null)");
        EXPECT_EQ(c[1], c[0] ? referenceParse(c[0]) : c[1]);
    }

    // Header-like texts with pieces missing, doubled or out of place.
    std::mt19937 random(17);
    auto pick = [&random](std::initializer_list<const char*> options) {
        return std::string(options.begin()[random() % options.size()]);
    };
    for (int i = 0; i < 20000; ++i) {
        std::string t = pick({"", "Mon, ", "Tue,", ",", "x "}) + pick({"05", "-3", "", "31x"}) +
                        " " + pick({"Mar", "Dec", "mar", "", "Xyz"}) + " " +
                        pick({"2026", "99", ""}) + " " + pick({"14", "7", ""}) + ":" +
                        pick({"07", "5", ""}) + pick({"", ":09", ":5", ":0912", ":"}) +
                        pick({"", " ", " +0900", " -0530", " GMT", " +9", "-0100", "x+0100"});
        for (unsigned k = random() % 3; k > 0 && !t.empty(); --k)
            t[random() % t.size()] = " :,+-0"[random() % 6];
        ASSERT_EQ(referenceParse(t), describe(string2date(t.c_str()))) << "'" << t << "'";
    }
}

TEST(DateStringTest, GetDateStringFindsTheDatePartAndConversionsThrow) {
    EXPECT_STREQ(string2date::getDateString("Received: from a; Tue, 03 Mar 2026 10:00:00 +0000"),
                 "Tue, 03 Mar 2026 10:00:00 +0000");
    EXPECT_STREQ(string2date::getDateString("by b; 03 Mar 2026 10:00:00 +0000"),
                 "03 Mar 2026 10:00:00 +0000");
    // The first weekday name of the table that occurs wins, at its last occurrence.
    EXPECT_STREQ(string2date::getDateString("Sun x Mon y MonMon z"), "Mon z");
    EXPECT_EQ(string2date::getDateString("x;y"), nullptr);
    EXPECT_EQ(string2date::getDateString(nullptr), nullptr);

    // The conversions to and from a date-time are not there.
    auto thrown = [](auto call) -> std::string {
        try {
            call();
        } catch (const char* text) {
            return text;
        }
        return "nothing thrown";
    };
    EXPECT_EQ("Invalid locale", thrown([] { string2date("").getDate(nullptr); }));
    EXPECT_EQ("invalid locale", thrown([] { string2date::getString(nullptr); }));
}
