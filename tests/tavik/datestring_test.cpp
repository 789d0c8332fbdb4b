#include "tavik/tk_time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <initializer_list>
#include <random>
#include <string>
#include <tuple>

using tavik::string2date;

namespace {

// Day, month, year, hour, minute, second, then the offset's sign, hours and minutes.
using Fields = std::tuple<int, int, int, int, int, int, bool, int, int>;
Fields fieldsOf(const string2date& d) {
    return {d.day, d.mon, d.year, d.hour, d.min, d.sec, d.positive, d.gmtHour, d.gmtMin};
}

// The parse step by step: positions are -1 when a search finds nothing (npos as a long);
// numbers are read by atoi from a to e (e = -1: to the end), stopping at the text's end.
Fields referenceParse(const std::string& t) {
    const long size = static_cast<long>(t.size());
    auto find = [&t](char c, long from) { return static_cast<long>(t.find(c, from)); };
    auto number = [&t, size](long a, long e) {
        return a >= size ? 0 : atoi(t.substr(a, e < 0 ? std::string::npos : e - a).c_str());
    };
    string2date d("");  // all fields 0, the offset positive
    int* const fields[] = {&d.day, &d.mon, &d.year, &d.hour};
    const std::string months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    long p = find(',', 0) < 0 ? 0 : find(' ', 0) + 1;
    for (int i = 0; i < 4; ++i) {  // day, month, year up to blanks, hour up to a colon
        const long e = find(i < 3 ? ' ' : ':', p);
        if (e < 0)
            return fieldsOf(string2date(""));
        const long m = e - p == 3 ? static_cast<long>(months.find(t.substr(p, 3))) : -1;
        *fields[i] = i != 1 ? number(p, e) : m % 3 == 0 ? int(m / 3 + 1) : -1;
        p = e + 1;
    }
    const bool seconds = find(':', p) >= 0;
    long end = find(seconds ? ':' : ' ', p);
    d.min = number(p, end);
    if (seconds) {
        p = end + 1;
        end = find(' ', p) < 0 ? p + 2 : find(' ', p);  // seconds ending the text: two digits
        d.sec = number(p, end);
    } else if (end < 0) {
        return fieldsOf(d);
    }
    p = end + 1;
    if (p >= size || (t[p] != '+' && t[p] != '-'))
        return fieldsOf(d);
    d.positive = t[p] == '+';
    d.gmtHour = number(p + 1, p + 3);
    d.gmtMin = number(p + 3, p + 5);
    return fieldsOf(d);
}

}  // namespace

TEST(DateStringTest, ParsesHeaderDates) {
    const std::pair<const char*, Fields> cases[] = {
        {"Mon, 05 Mar 2026 14:07:09 +0900", {5, 3, 2026, 14, 7, 9, true, 9, 0}},
        // A month name in other case is -1; seconds that end the text are two digits.
        {"05 mar 2026 14:07:0912", {5, -1, 2026, 14, 7, 9, true, 0, 0}},
        // Without seconds and a blank after the minutes there is no offset.
        {"-05 Mar 2026 14:07", {-5, 3, 2026, 14, 7, 0, true, 0, 0}},
        {"Mon,05-Mar-2026", {0, 0, 0, 0, 0, 0, true, 0, 0}},  // without the blanks: zeros
        {nullptr, {0, 0, 0, 0, 0, 0, true, 0, 0}},
    };
    for (const auto& [text, fields] : cases) {
        EXPECT_EQ(fields, fieldsOf(string2date(text))) << (text ? text : "(null)");
        EXPECT_EQ(fields, text ? referenceParse(text) : fields);
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
        ASSERT_EQ(referenceParse(t), fieldsOf(string2date(t.c_str()))) << "'" << t << "'";
    }
}

TEST(DateStringTest, GetDateStringFindsTheDatePartAndConversionsThrow) {
    // The first weekday name of the table that occurs wins, at its last occurrence; without
    // one the date follows "; ".
    const char* dates[][2] = {{"from a; Tue, 03 Mar 2026", "Tue, 03 Mar 2026"},
                              {"by b; 03 Mar 2026", "03 Mar 2026"},
                              {"Sun x Mon y MonMon z", "Mon z"},
                              {"x;y", nullptr},
                              {nullptr, nullptr}};
    for (auto& [text, date] : dates) EXPECT_STREQ(date, string2date::getDateString(text)) << text;

    // The conversions to and from a date-time are not there.
    EXPECT_THAT([] { string2date("").getDate(nullptr); },
                testing::Throws<const char*>(testing::StrEq("Invalid locale")));
    EXPECT_THAT([] { string2date::getString(nullptr); },
                testing::Throws<const char*>(testing::StrEq("invalid locale")));
}
