#include <gtest/gtest.h>

#include "tavik/tk_time.h"

#include <vector>

using tavik::string2date;

TEST(DateStringTest, ParsesHeaderDates) {
    const struct {
        const char* text;
        int day, mon, year, hour, min, sec;
        bool positive;
        int gmtHour, gmtMin;
    } cases[] = {
        {"Mon, 05 Mar 2026 14:07:09 +0900", 5, 3, 2026, 14, 7, 9, true, 9, 0},
        {"05 Mar 2026 14:07:09 -0530", 5, 3, 2026, 14, 7, 9, false, 5, 30},  // no weekday
        {"Thu, 31 Dec 1999 23:59:59 GMT", 31, 12, 1999, 23, 59, 59, true, 0, 0},
        // Seconds that end the text are the two characters after the last colon.
        {"05 Mar 2026 14:07:09", 5, 3, 2026, 14, 7, 9, true, 0, 0},
        {"05 Mar 2026 14:07:5", 5, 3, 2026, 14, 7, 5, true, 0, 0},
        {"05 Mar 2026 14:07:0912", 5, 3, 2026, 14, 7, 9, true, 0, 0},
        {"05 Mar 2026 14:07:09 +9", 5, 3, 2026, 14, 7, 9, true, 9, 0},
        {"05 mar 2026 14:07:09 +0900", 5, -1, 2026, 14, 7, 9, true, 9, 0},
        // Without seconds there is no offset, even when the text starts with a sign.
        {"05 Mar 2026 14:07 -0100", 5, 3, 2026, 14, 7, 0, false, 1, 0},
        {"-05 Mar 2026 14:07", -5, 3, 2026, 14, 7, 0, true, 0, 0},
        // Text without the expected blanks gives zeros.
        {"", 0, 0, 0, 0, 0, 0, true, 0, 0},
        {"Mon,05-Mar-2026", 0, 0, 0, 0, 0, 0, true, 0, 0},
        {"05 Mar 2026 14.07", 0, 0, 0, 0, 0, 0, true, 0, 0},
        {nullptr, 0, 0, 0, 0, 0, 0, true, 0, 0},
    };
    for (const auto& c : cases) {
        string2date d(c.text);
        EXPECT_EQ((std::vector<int>{c.day, c.mon, c.year, c.hour, c.min, c.sec, c.positive,
                                    c.gmtHour, c.gmtMin}),
                  (std::vector<int>{d.day, d.mon, d.year, d.hour, d.min, d.sec, d.positive,
                                    d.gmtHour, d.gmtMin}))
            << (c.text ? c.text : "(null)");
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
    string2date d("");
    try {
        d.getDate(nullptr);
        ADD_FAILURE() << "getDate returned";
    } catch (const char* text) {
        EXPECT_STREQ(text, "Invalid locale");
    }
    try {
        string2date::getString(nullptr);
        ADD_FAILURE() << "getString returned";
    } catch (const char* text) {
        EXPECT_STREQ(text, "invalid locale");
    }
}
