// The library logger on its real fixed paths (/tmp/logging.dat, /var/log/quillo), which only
// the sandbox's private tmpfs mounts make safe to use; outside it every case is skipped.
#include "tavik/tk_log.h"
#include "tavik/tk_socket.h"
#include "tests/tavik/loopback_port.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

using tavik::_log;

namespace {

std::string readFile(const std::string& p) {
    std::ifstream in(p);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string formatTime(time_t when, const char* format) {
    struct tm t;
    localtime_r(&when, &t);
    char text[64];
    strftime(text, sizeof text, format, &t);
    return text;
}

struct LogSandboxTest : ::testing::Test {
    void SetUp() override {
        if (readFile("/proc/self/mounts").find("sandbox-var-log /var/log tmpfs") ==
            std::string::npos) {
            GTEST_SKIP() << "runs only inside tools/sandbox";
        }
        ASSERT_EQ(0, system("rm -rf /var/log/quillo /tmp/logging.dat"));
    }
    void switchOn() { std::ofstream("/tmp/logging.dat") << ""; }
    std::string today() {
        return readFile(formatTime(time(nullptr), "/var/log/quillo/%Y%m/%d.log"));
    }
};

}  // namespace

TEST_F(LogSandboxTest, WarnWritesOnlyWithTheSwitchFileAndLevelsCarryTheirLetters) {
    _log::instance().warn("nobody reads this");
    EXPECT_NE(0, access("/var/log/quillo", F_OK));

    switchOn();
    time_t before = time(nullptr);
    _log::instance().warn("disk 100% full %s %n");
    for (int level : {0, 1, 2, 3, 4, 5, 6, 42}) {
        _log::instance().writelog(static_cast<tavik::log_type>(level), "m");
    }
    time_t after = time(nullptr);
    if (formatTime(before, "%d") != formatTime(after, "%d")) {
        GTEST_SKIP() << "the day changed during the test";
    }
    std::string text = today(), pattern = R"(\[([\d:]{8})\] w disk 100% full %s %n\n)";
    for (char c : std::string("ucewidtu")) pattern += std::string(R"(\[[\d:]{8}\] )") + c + " m\n";
    std::smatch m;
    ASSERT_TRUE(std::regex_match(text, m, std::regex(pattern))) << text;
    EXPECT_GE(m[1].str(), formatTime(before, "%H:%M:%S"));
    EXPECT_LE(m[1].str(), formatTime(after, "%H:%M:%S"));
}

TEST_F(LogSandboxTest, LineIsDroppedWhenItCannotBePlaced) {
    std::ofstream("/var/log/quillo") << "a file where the directory belongs";
    _log::instance().writelog(tavik::log_warn, "lost");
    EXPECT_EQ("a file where the directory belongs", readFile("/var/log/quillo"));
    ASSERT_EQ(0, unlink("/var/log/quillo"));
    // The day's file is a directory.
    ASSERT_EQ(0, system(formatTime(time(nullptr), "mkdir -p /var/log/quillo/%Y%m/%d.log").c_str()));
    _log::instance().writelog(tavik::log_warn, "lost");
}

TEST_F(LogSandboxTest, RefusedTimedConnectsAreLoggedEachTime) {
    switchOn();
    LoopbackPort refused(false);
    tavik::socks s;
    EXPECT_EQ(0, s.connect("127.0.0.1", refused.port, 1, 0));
    EXPECT_EQ(0, s.connect(nullptr, refused.port, 0, 200000));
    std::string line = R"(\[[\d:]{8}\] w connect to 127\.0\.0\.1:)" + std::to_string(refused.port) +
                       " failed: Connection refused\n";
    EXPECT_TRUE(std::regex_match(today(), std::regex(line + line))) << today();
}
