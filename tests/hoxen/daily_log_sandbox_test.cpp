// The daily log under /var/log/quillo/hoxen, switched by /tmp/logging.dat (sandboxed).
#include <dirent.h>
#include <gtest/gtest.h>

#include <string>

#include "hoxen/hoxen.h"
#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

namespace {

void log_text(std::string text) {
    log(&text[0]);
}

// Local time as struct tm, fields from the seconds up: {s, min, h, day, month - 1, year - 1900}.
const struct tm kMarch5 = {9, 7, 14, 5, 2, 126, 0, 0, 0, 0, nullptr};
const struct tm kNewYear = {0, 0, 0, 1, 0, 127, 0, 0, 0, 0, nullptr};

int descriptors() {
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
}

}  // namespace

TEST(DailyLog, NameFollowsTheLocalDateAndALongLineKeepsItsStampAndEnd) {
    char text[256];
    format_log_file_name(text, sizeof(text), kMarch5);
    EXPECT_STREQ(text, "/var/log/quillo/hoxen/pushclient_20260305.log");
    format_log_file_name(text, sizeof(text), kNewYear);
    EXPECT_STREQ(text, "/var/log/quillo/hoxen/pushclient_20270101.log");

    EXPECT_EQ(format_log_line(text, sizeof(text), kMarch5, "100% %s %n"), 37u);
    EXPECT_STREQ(text, "[2026-03-05 14:07:09] : 100% %s %n \r\n");
    std::string message(400, 'x');
    EXPECT_EQ(format_log_line(text, sizeof(text), kMarch5, message.c_str()), 255u);
    EXPECT_EQ(std::string(text), "[2026-03-05 14:07:09] : " + std::string(228, 'x') + " \r\n");
}

TEST(DailyLog, WritesOnlyWhileTheSwitchFileExistsAndLeavesNoStreamOpen) {
    shell("rm -rf /var/log/quillo /tmp/logging.dat");
    const int before = descriptors();
    log_text("[INFO] not recorded");
    EXPECT_FALSE(file_exists("/var/log/quillo"));

    write_file("/tmp/logging.dat", "");
    // The parent directory is made in the background, so the first lines may be lost.
    ASSERT_TRUE(wait_until(
        [] {
            log_text("[INFO] first");
            return file_exists(daily_log_path());
        },
        5));
    log_text("[WARN] 50% of %s done");
    log_text(std::string(1000, 'y'));
    for (int i = 0; i < 50; ++i) log_text("[INFO] on");
    shell("rm -f /tmp/logging.dat");
    log_text("[INFO] switched off");
    EXPECT_EQ(descriptors(), before);

    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "] : [WARN] 50% of %s done \r\n"), 1) << text;
    EXPECT_EQ(count_of(text, "] : " + std::string(228, 'y') + " \r\n"), 1);
    EXPECT_EQ(text.find("not recorded"), std::string::npos);
    EXPECT_EQ(text.find("switched off"), std::string::npos);
}
