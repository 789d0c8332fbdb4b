// The library logger on its real fixed paths (/tmp/logging.dat, /var/log/quillo), which only
// the sandbox's private tmpfs mounts make safe to use; outside it every case is skipped.
#include "tavik/tk_log.h"
#include "tavik/tk_socket.h"
#include "tests/tavik/loopback_port.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

using tavik::_log;

namespace {

bool exists(const char* p) {
    struct stat st;
    return stat(p, &st) == 0;
}

std::string readFile(const std::string& p) {
    std::ifstream in(p);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
}

std::string formatTime(time_t when, const char* format) {
    struct tm t;
    localtime_r(&when, &t);
    char text[64];
    strftime(text, sizeof text, format, &t);
    return text;
}

std::string logFileFor(time_t when) {
    return formatTime(when, "/var/log/quillo/%Y%m/%d.log");
}

class LogSandboxTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (readFile("/proc/self/mounts").find("sandbox-var-log /var/log tmpfs") ==
            std::string::npos) {
            GTEST_SKIP() << "runs only inside tools/sandbox";
        }
        ASSERT_EQ(0, system("rm -rf /var/log/quillo /tmp/logging.dat"));
    }
    void switchOn() { std::ofstream("/tmp/logging.dat") << ""; }
};

}  // namespace

TEST_F(LogSandboxTest, WarnWithoutSwitchFileWritesNothing) {
    _log::instance().warn("nobody reads this");
    EXPECT_FALSE(exists("/var/log/quillo"));
}

TEST_F(LogSandboxTest, WarnAppendsStampedLineToDailyFile) {
    switchOn();
    time_t before = time(nullptr);
    _log::instance().warn("disk 100% full %s %n");
    _log::instance().warn("second");
    time_t after = time(nullptr);
    if (logFileFor(before) != logFileFor(after)) {
        GTEST_SKIP() << "the day changed during the test";
    }
    std::string text = readFile(logFileFor(before));
    std::smatch m;
    ASSERT_TRUE(std::regex_match(
        text, m,
        std::regex(R"(\[(\d\d:\d\d:\d\d)\] w disk 100% full %s %n\n\[[\d:]{8}\] w second\n)")))
        << text;
    EXPECT_GE(m[1].str(), formatTime(before, "%H:%M:%S"));
    EXPECT_LE(m[1].str(), formatTime(after, "%H:%M:%S"));
}

TEST_F(LogSandboxTest, LevelsCarryTheirLetters) {
    for (int level : {0, 1, 2, 3, 4, 5, 6, 42}) {
        _log::instance().writelog(static_cast<tavik::log_type>(level), "m");
    }
    std::string text = readFile(logFileFor(time(nullptr)));
    std::string letters;
    for (size_t at = text.find("] "); at != std::string::npos; at = text.find("] ", at + 1)) {
        letters += text[at + 2];
    }
    EXPECT_EQ("ucewidtu", letters) << text;
}

TEST_F(LogSandboxTest, LineIsDroppedWhenItCannotBePlaced) {
    std::ofstream("/var/log/quillo") << "a file where the directory belongs";
    _log::instance().writelog(tavik::log_warn, "lost");
    EXPECT_EQ("a file where the directory belongs", readFile("/var/log/quillo"));

    ASSERT_EQ(0, unlink("/var/log/quillo"));
    std::string file = logFileFor(time(nullptr));
    ASSERT_EQ(0, system(("mkdir -p " + file).c_str()));  // the day's file is a directory
    _log::instance().writelog(tavik::log_warn, "lost");
    EXPECT_TRUE(exists(file.c_str()));
}

TEST_F(LogSandboxTest, TimedConnectFailureIsLoggedAndLeaksNothing) {
    switchOn();
    LoopbackPort refused(false);
    unsigned int port = refused.port;

    int descriptors = openDescriptors();
    {
        tavik::socks s;
        EXPECT_EQ(0, s.connect("127.0.0.1", port, 1, 0));
        EXPECT_FALSE(s.connected);
        EXPECT_EQ(0, s.connect(nullptr, port, 0, 200000));
        s.disconnect();
        EXPECT_EQ(descriptors, openDescriptors());
        EXPECT_EQ(0, s.connect("127.0.0.1", port, 1, 0));
    }
    EXPECT_EQ(descriptors, openDescriptors());

    std::string text = readFile(logFileFor(time(nullptr)));
    std::string expected =
        "] w connect to 127.0.0.1:" + std::to_string(port) + " failed: Connection refused\n";
    size_t first = text.find(expected);
    ASSERT_NE(std::string::npos, first) << text;
    EXPECT_NE(std::string::npos, text.find(expected, first + 1)) << text;
}
