// Process lookups on controlled command output: fake mount, ps and pidof first on PATH.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "hoxen/hoxen.h"
#include "tests/support/daemon_harness.h"

using hoxen_test::FakeCommands;

class ProcessLookup : public ::testing::Test {
protected:
    void SetUp() override {
        std::string dir = testing::TempDir() + "hoxen_fakes_XXXXXX";
        ASSERT_NE(mkdtemp(&dir[0]), nullptr);
        fakes = std::make_unique<FakeCommands>(dir);
    }
    std::unique_ptr<FakeCommands> fakes;
};

TEST(GetIntPid, TakesTheFirstNumberThatStartsWithADigitOneToNine) {
    char root[] = "root      4242     1  0 10:00 ?  00:00:00 /usr/bin/quillo -heartbit";
    char user5[] = "user5     4242     1  0 10:00 ?  00:00:00 quillo";
    char zeros[] = "0 00 000 \t";
    char leadingZero[] = "abc 0012x";
    char highBytes[] = "\xb5\xc3\xa9 77";
    std::string digits(300, '7');
    EXPECT_EQ(getIntPid(root), 4242);
    EXPECT_EQ(getIntPid(user5), 5);
    EXPECT_EQ(getIntPid(zeros), -1);
    EXPECT_EQ(getIntPid(leadingZero), 12);
    EXPECT_EQ(getIntPid(highBytes), 77);
    getIntPid(&digits[0]);  // bounded copy: no overrun (checked by the sanitizers)
}

TEST_F(ProcessLookup, PsLinesOfTheOwnGrepAreSkipped) {
    fakes->prints("ps",
                  "root 11 1 0 10:00 ? 00:00:00 grep integrity p\n"
                  "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity p\n"
                  "root 654 1 0 10:00 ? 00:00:00 /usr/bin/quillo -heartbit\n");
    EXPECT_EQ(get_integrity_pid(), 321);
    EXPECT_EQ(getQuillosHeartBitPid(), 654);
    fakes->prints("ps", "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity m\n");
    EXPECT_EQ(get_integrity_pid(), -1);
    EXPECT_EQ(getQuillosHeartBitPid(), -1);
}

TEST_F(ProcessLookup, HoxenPidCountsLowPidsAndSilenceAsNotFound) {
    fakes->prints("pidof", "4321\n");
    EXPECT_EQ(get_hoxen_pid(), 4321);
    fakes->prints("pidof", "2\n");
    EXPECT_EQ(get_hoxen_pid(), -1);
    fakes->prints("pidof", "4321\n");
    EXPECT_EQ(get_hoxen_pid(), 4321);
    fakes->prints("pidof", "");  // the buffer of the previous call must not leak through
    EXPECT_EQ(get_hoxen_pid(), -1);
}

TEST_F(ProcessLookup, OnlyAFuseQuilloMountCountsAsMountedButAnyQuilloLineHasAPath) {
    fakes->prints("mount", "sysfs on /sys type sysfs (rw)\n"
                           "quillo on /mnt/data type fuse.quillo (rw,user_id=0)\n");
    EXPECT_EQ(getQuillosMountPid(), 1000);
    EXPECT_STREQ(getMountPath(), "/mnt/data");

    fakes->prints("mount", "quillo on /mnt/other type tmpfs (rw)\n");
    EXPECT_EQ(getQuillosMountPid(), -1);
    EXPECT_STREQ(getMountPath(), "/mnt/other");

    fakes->prints("mount", "quillo grep on /x type fuse.quillo (rw)\n");
    EXPECT_EQ(getQuillosMountPid(), -1);

    fakes->prints("mount", "");
    EXPECT_EQ(getQuillosMountPid(), -1);
    EXPECT_STREQ(getMountPath(), "");

    fakes->prints("mount", "quillo-without-marker\nquillo on /second type fuse.quillo\n");
    EXPECT_STREQ(getMountPath(), "");
    fakes->prints("mount", "quillo on /end\n");
    EXPECT_STREQ(getMountPath(), "/end\n");
}

TEST(ShellQuote, AnyTextReachesTheShellAsOneWord) {
    const char* texts[] = {"/mnt/plain", "/mnt/a;touch x", "/m/$(id)`id`", "it's \"q\" \\n", ""};
    for (const char* text : texts) {
        char quoted[256];
        ASSERT_TRUE(shell_quote(quoted, sizeof(quoted), text));
        std::string cmd = std::string("printf '%s' ") + quoted;
        FILE* pipe = popen(cmd.c_str(), "r");
        char back[256] = {0};
        size_t n = fread(back, 1, sizeof(back) - 1, pipe);
        pclose(pipe);
        EXPECT_EQ(std::string(back, n), text);
    }
    char small[8];
    EXPECT_FALSE(shell_quote(small, sizeof(small), "/mnt/long"));
    EXPECT_STREQ(small, "");
}
