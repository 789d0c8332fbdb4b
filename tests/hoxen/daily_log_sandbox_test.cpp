// The daily log under /var/log/quillo/hoxen, switched by /tmp/logging.dat (sandboxed).
#include <dirent.h>
#include <gtest/gtest.h>

#include <string>

#include "hoxen/hoxen.h"
#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

namespace {

void log_text(const std::string& text) {
    std::string copy = text;
    log(&copy[0]);
}

int open_descriptors() {
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
}

struct tm at(int year, int month, int day, int hour, int minute, int second) {
    struct tm when = {};
    when.tm_year = year - 1900;
    when.tm_mon = month - 1;
    when.tm_mday = day;
    when.tm_hour = hour;
    when.tm_min = minute;
    when.tm_sec = second;
    return when;
}

}  // namespace

TEST(DailyLog, FileNameFollowsTheLocalDate) {
    char name[128];
    format_log_file_name(name, sizeof(name), at(2026, 3, 5, 23, 59, 59));
    EXPECT_STREQ(name, "/var/log/quillo/hoxen/pushclient_20260305.log");
    format_log_file_name(name, sizeof(name), at(2026, 3, 6, 0, 0, 0));
    EXPECT_STREQ(name, "/var/log/quillo/hoxen/pushclient_20260306.log");
    format_log_file_name(name, sizeof(name), at(2027, 1, 1, 0, 0, 0));
    EXPECT_STREQ(name, "/var/log/quillo/hoxen/pushclient_20270101.log");
}

TEST(DailyLog, LineIsStampedAndALongOneKeepsItsEnd) {
    char line[256];
    EXPECT_EQ(format_log_line(line, sizeof(line), at(2026, 3, 5, 14, 7, 9), "100% %s %n"), 37u);
    EXPECT_STREQ(line, "[2026-03-05 14:07:09] : 100% %s %n \r\n");
    std::string longMessage(400, 'x');
    EXPECT_EQ(format_log_line(line, sizeof(line), at(2026, 3, 5, 14, 7, 9), longMessage.c_str()),
              255u);
    EXPECT_EQ(std::string(line).substr(0, 24), "[2026-03-05 14:07:09] : ");
    EXPECT_EQ(std::string(line).substr(252), " \r\n");
}

TEST(DailyLog, WritesOnlyWhileTheSwitchFileExists) {
    shell("rm -rf /var/log/quillo /tmp/logging.dat");
    log_text("[INFO] not recorded");
    EXPECT_FALSE(file_exists("/var/log/quillo"));

    write_file("/tmp/logging.dat", "");
    // The parent directory is made in the background, so the first lines may be lost.
    ASSERT_TRUE(wait_until([] { log_text("[INFO] first"); return file_exists(daily_log_path()); }, 5));
    log_text("[WARN] 50% of %s done");
    log_text(std::string(1000, 'y'));
    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "] : [WARN] 50% of %s done \r\n"), 1) << text;
    EXPECT_EQ(text.find("not recorded"), std::string::npos);
    size_t longLine = text.find(std::string(200, 'y'));
    ASSERT_NE(longLine, std::string::npos);
    EXPECT_EQ(text.substr(text.find_last_of('y') + 1), " \r\n");
    EXPECT_EQ(text.size() - text.rfind('['), 255u);

    shell("rm -f /tmp/logging.dat");
    log_text("[INFO] switched off");
    EXPECT_EQ(read_file(daily_log_path()).find("switched off"), std::string::npos);
}

TEST(DailyLog, LeavesNoDirectoryStreamOpen) {
    int before = open_descriptors();
    for (int i = 0; i < 50; ++i) log_text("[INFO] off");
    write_file("/tmp/logging.dat", "");
    for (int i = 0; i < 50; ++i) log_text("[INFO] on");
    shell("rm -f /tmp/logging.dat");
    EXPECT_EQ(open_descriptors(), before);
}
