#include "tavik/tk_time.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

using tavik::string2date;

TEST(DateStringTest, ParsesHeaderDates) {
    // Day.month.year hour:minute:second, then the offset's sign, hours and minutes.
    const char* cases[][2] = {
        {"Mon, 05 Mar 2026 14:07:09 +0900", "5.3.2026 14:7:9 +9:0"},
        {"05 Mar 2026 14:07:09 -0530", "5.3.2026 14:7:9 -5:30"},  // no weekday
        {"Thu, 31 Dec 1999 23:59:59 GMT", "31.12.1999 23:59:59 +0:0"},
        // Seconds that end the text are the two characters after the last colon.
        {"05 Mar 2026 14:07:09", "5.3.2026 14:7:9 +0:0"},
        {"05 Mar 2026 14:07:5", "5.3.2026 14:7:5 +0:0"},
        {"05 Mar 2026 14:07:0912", "5.3.2026 14:7:9 +0:0"},
        {"05 Mar 2026 14:07:09 +9", "5.3.2026 14:7:9 +9:0"},
        {"05 mar 2026 14:07:09 +0900", "5.-1.2026 14:7:9 +9:0"},
        // Without seconds there is no offset, even when the text starts with a sign.
        {"05 Mar 2026 14:07 -0100", "5.3.2026 14:7:0 -1:0"},
        {"-05 Mar 2026 14:07", "-5.3.2026 14:7:0 +0:0"},
        // Text without the expected blanks gives zeros.
        {"", "0.0.0 0:0:0 +0:0"},
        {"Mon,05-Mar-2026", "0.0.0 0:0:0 +0:0"},
        {"05 Mar 2026 14.07", "0.0.0 0:0:0 +0:0"},
        {nullptr, "0.0.0 0:0:0 +0:0"},
    };
    for (const auto& c : cases) {
        string2date d(c[0]);
        char got[128];
        snprintf(got, sizeof got, "%d.%d.%d %d:%d:%d %c%d:%d", d.day, d.mon, d.year, d.hour, d.min,
                 d.sec, d.positive ? '+' : '-', d.gmtHour, d.gmtMin);
        EXPECT_STREQ(c[1], got) << (c[0] ? c[0] : "(null)");
    }
}

TEST(DateStringTest, GetDateStringFindsTheDatePart) {
    EXPECT_STREQ(string2date::getDateString("Received: from a; Tue, 03 Mar 2026 10:00:00 +0000"),
                 "Tue, 03 Mar 2026 10:00:00 +0000");
    EXPECT_STREQ(string2date::getDateString("by b; 03 Mar 2026 10:00:00 +0000"),
                 "03 Mar 2026 10:00:00 +0000");
    // The first weekday name of the table that occurs wins, at its last occurrence.
    EXPECT_STREQ(string2date::getDateString("Sun x Mon y MonMon z"), "Mon z");
    EXPECT_EQ(string2date::getDateString("x;y"), nullptr);
    EXPECT_EQ(string2date::getDateString(nullptr), nullptr);
}

TEST(DateStringTest, ConversionsThrowInvalidLocale) {
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
