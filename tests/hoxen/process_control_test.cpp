// Process lookups on controlled command output: fake mount, ps and pidof first on PATH.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>

#include "hoxen/hoxen.h"
#include "tests/support/daemon_harness.h"

class ProcessLookup : public ::testing::Test {
protected:
    void SetUp() override {
        std::string dir = testing::TempDir() + "hoxen_fakes_XXXXXX";
        ASSERT_NE(mkdtemp(&dir[0]), nullptr);
        fakes = std::make_unique<hoxen_test::FakeCommands>(dir);
    }
    std::unique_ptr<hoxen_test::FakeCommands> fakes;
};

TEST(GetIntPid, TakesTheFirstNumberThatStartsWithADigitOneToNine) {
    for (auto [text, pid] :
         {std::pair<std::string, int>{"root 4242 1 0 10:00 ? 00:00:00 quillo", 4242},
          {"user5     4242     1", 5},
          {"0 00 000 \t", -1},
          {"abc 0012x", 12},
          {"\xb5\xc3\xa9 77", 77}}) {
        EXPECT_EQ(getIntPid(&text[0]), pid) << text;
    }
    std::string digits(300, '7');
    getIntPid(&digits[0]);  // bounded copy: no overrun (checked by the sanitizers)
}

TEST_F(ProcessLookup, PsLookupsSkipTheirOwnGrepAndWantTheirMode) {
    fakes->prints("ps",
                  "root 11 1 0 10:00 ? 00:00:00 grep integrity p\n"
                  "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity p\n"
                  "root 654 1 0 10:00 ? 00:00:00 /usr/bin/quillo -heartbit\n");
    EXPECT_EQ(get_integrity_pid(), 321);
    EXPECT_EQ(getQuillosHeartBitPid(), 654);
    fakes->prints("ps",
                  "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity m\n");
    EXPECT_EQ(get_integrity_pid(), -1);
    EXPECT_EQ(getQuillosHeartBitPid(), -1);
}

TEST_F(ProcessLookup, HoxenPidCountsLowPidsAndSilenceAsNotFound) {
    // Silence right after a hit: the previous call's buffer must not leak through.
    for (auto [out, pid] : {std::pair{"4321\n", 4321}, {"2\n", -1}, {"4321\n", 4321}, {"", -1}}) {
        fakes->prints("pidof", out);
        EXPECT_EQ(get_hoxen_pid(), pid) << out;
    }
}

TEST_F(ProcessLookup, OnlyAFuseQuilloMountCountsButAnyQuilloLineHasAPath) {
    // Each listing, the mount lookup's answer and the path found (null: not checked).
    std::tuple<const char*, int, const char*> cases[] = {
        {"sysfs on /sys type sysfs (rw)\nquillo on /mnt/data type fuse.quillo (rw)\n", 1000,
         "/mnt/data"},
        {"quillo on /mnt/other type tmpfs (rw)\n", -1, "/mnt/other"},
        {"quillo grep on /x type fuse.quillo (rw)\n", -1, nullptr},
        {"", -1, ""},
        {"quillo-without-marker\nquillo on /second type fuse.quillo\n", 1000, ""},
        {"quillo on /end\n", -1, "/end\n"},
    };
    for (auto [listing, pid, path] : cases) {
        fakes->prints("mount", listing);
        EXPECT_EQ(getQuillosMountPid(), pid) << listing;
        if (path != nullptr) {
            EXPECT_STREQ(getMountPath(), path) << listing;
        }
    }
}

TEST(ShellQuote, AWordThatDoesNotFitIsNotWrittenAtAll) {
    // What fits is checked through stop_quillo with a hostile mount path (sandbox test).
    char small[8];
    EXPECT_FALSE(shell_quote(small, sizeof(small), "/mnt/long"));
    EXPECT_STREQ(small, "");
}
