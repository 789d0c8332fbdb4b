#include <gtest/gtest.h>
#include <string.h>

#include "tavik/tk_time.h"

using tavik::string2date;

namespace {

struct fields {
    int day, mon, year, hour, min, sec;
    bool positive;
    int gmtHour, gmtMin;
};

void expectFields(const char* text, const fields& f) {
    SCOPED_TRACE(text);
    string2date d(text);
    EXPECT_EQ(d.day, f.day);
    EXPECT_EQ(d.mon, f.mon);
    EXPECT_EQ(d.year, f.year);
    EXPECT_EQ(d.hour, f.hour);
    EXPECT_EQ(d.min, f.min);
    EXPECT_EQ(d.sec, f.sec);
    EXPECT_EQ(d.positive, f.positive);
    EXPECT_EQ(d.gmtHour, f.gmtHour);
    EXPECT_EQ(d.gmtMin, f.gmtMin);
}

}  // namespace

TEST(DateStringTest, ParsesHeaderDates) {
    expectFields("Mon, 05 Mar 2026 14:07:09 +0900", {5, 3, 2026, 14, 7, 9, true, 9, 0});
    expectFields("05 Mar 2026 14:07:09 -0530", {5, 3, 2026, 14, 7, 9, false, 5, 30});
    expectFields("Thu, 31 Dec 1999 23:59:59 GMT", {31, 12, 1999, 23, 59, 59, true, 0, 0});
    // Seconds that end the text are the two characters after the last colon.
    expectFields("05 Mar 2026 14:07:09", {5, 3, 2026, 14, 7, 9, true, 0, 0});
    expectFields("05 Mar 2026 14:07:5", {5, 3, 2026, 14, 7, 5, true, 0, 0});
    expectFields("05 Mar 2026 14:07:0912", {5, 3, 2026, 14, 7, 9, true, 0, 0});
    // An offset cut short reads what is there.
    expectFields("05 Mar 2026 14:07:09 +9", {5, 3, 2026, 14, 7, 9, true, 9, 0});
    expectFields("05 mar 2026 14:07:09 +0900", {5, -1, 2026, 14, 7, 9, true, 9, 0});
}

TEST(DateStringTest, MissingSecondsLeaveSecondsAndOffsetAlone) {
    expectFields("05 Mar 2026 14:07 GMT", {5, 3, 2026, 14, 7, 0, true, 0, 0});
    expectFields("05 Mar 2026 14:07 -0100", {5, 3, 2026, 14, 7, 0, false, 1, 0});
    // Nothing after the minutes: no offset, even when the text starts with a sign.
    expectFields("-05 Mar 2026 14:07", {-5, 3, 2026, 14, 7, 0, true, 0, 0});
}

TEST(DateStringTest, TextWithoutTheExpectedBlanksGivesZeros) {
    const fields zero = {0, 0, 0, 0, 0, 0, true, 0, 0};
    expectFields("", zero);
    expectFields("Mon,05-Mar-2026", zero);
    expectFields("05 Mar 2026", zero);
    expectFields("05 Mar 2026 14.07", zero);
    expectFields("Mon, 05 Mar 2026", zero);
    expectFields(nullptr, zero);
}

TEST(DateStringTest, GetDateStringFindsTheDatePart) {
    EXPECT_STREQ(string2date::getDateString("Received: from a; Tue, 03 Mar 2026 10:00:00 +0000"),
                 "Tue, 03 Mar 2026 10:00:00 +0000");
    EXPECT_STREQ(string2date::getDateString("by b; 03 Mar 2026 10:00:00 +0000"),
                 "03 Mar 2026 10:00:00 +0000");
    // The first weekday name of the table that occurs wins, at its last occurrence.
    EXPECT_STREQ(string2date::getDateString("Sun x Mon y MonMon z"), "Mon z");
    EXPECT_STREQ(string2date::getDateString("x;y"), nullptr);
    EXPECT_STREQ(string2date::getDateString("x; "), "");
    EXPECT_EQ(string2date::getDateString(nullptr), nullptr);
}

TEST(DateStringTest, MonthNamesAndUnfinishedConversions) {
    string2date d("");
    EXPECT_EQ(d.getMonth("Jan"), 1);
    EXPECT_EQ(d.getMonth("Dec"), 12);
    EXPECT_EQ(d.getMonth("DEC"), -1);
    EXPECT_EQ(d.getMonth("Dec "), -1);
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
