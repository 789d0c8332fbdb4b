// The integrity checker's launch, called in this process inside tools/sandbox: the checker
// sees what the shell's "CHECKER m > /dev/null 2>&1 &" gave it (but its parent), gets none of
// our descriptors, is never waited for and never left as our zombie.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "hoxen/process_control.h"
#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

namespace {

const char kChecker[] = "/brellium/orvaclient/integrity/integrity";

// Installs a checker without "#!" (a shell runs such a file with sh).
void install_checker(const std::string& body) {
    shell("rm -rf /tmp/seen && mkdir -p /tmp/seen /brellium/orvaclient/integrity");
    write_file(kChecker, body, 0755);
}

// The checker writes to /tmp/seen/NAME what it was given: arguments, environment, signal
// state (read before sh's first wait changes its mask), group and session, umask, folder,
// standard input and error; and to NAME.fds every descriptor it had open at its start, with
// its target (sh moves standard output to 11 while the listing is written).
const char kReportingChecker[] =
    "while read -r k v; do case $k in Sig[BIC]??:) echo \"$k $v\";; esac\n"
    "  done < /proc/$$/status > /tmp/seen/sig.$$\n"
    "ls -l /proc/$$/fd > /tmp/seen/fds.$$\n"
    "out=/tmp/seen/$(cat /tmp/seen/next)\n"
    "{ echo \"$0 $*\"; tr '\\0' '\\n' < /proc/$$/environ | sort\n"
    "  cat /tmp/seen/sig.$$; cut -d' ' -f5,6 /proc/$$/stat\n"
    "  umask; readlink /proc/$$/cwd\n"
    "  for fd in 0 2; do readlink /proc/$$/fd/$fd; grep flags /proc/$$/fdinfo/$fd; done\n"
    "} > $out.tmp\n"
    "awk '/ -> /{print $(NF-2), $NF}' /tmp/seen/fds.$$ > $out.fds\n"
    "mv $out.tmp $out\n";

std::string seen(const std::string& name) {
    write_file("/tmp/seen/next", name);
    return "/tmp/seen/" + name;
}

}  // namespace

TEST(CheckerLaunch, GivesTheCheckerWhatTheShellGaveItAndNoneOfOurDescriptors) {
    install_checker(kReportingChecker);
    // A stale PWD, which the shell replaced, one that names our folder through a link, which
    // it kept, and a descriptor of ours that a child would inherit.
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
    shell(std::string("mkdir -p /tmp/elsewhere && ln -sfn ") + cwd + " /tmp/here");
    const int ours = open("/tmp/ours", O_RDONLY | O_CREAT, 0644);
    ASSERT_GE(ours, 3);
    std::string byUs;
    for (std::string pwd : {"/tmp/here", "/tmp/elsewhere"}) {
        setenv("PWD", pwd.c_str(), 1);
        const std::string byShell = seen("shell" + pwd.substr(5));
        ASSERT_EQ(shell(std::string(kChecker) + " m > /dev/null 2>&1 &"), 0);
        ASSERT_TRUE(wait_until([&] { return file_exists(byShell); }, 15));
        byUs = seen("us" + pwd.substr(5));
        start_integrity_check();
        ASSERT_TRUE(wait_until([&] { return file_exists(byUs); }, 15));
        EXPECT_EQ(read_file(byUs), read_file(byShell)) << pwd;
    }
    close(ours);
    sigset_t mask;  // the caller's own mask is as it was
    EXPECT_TRUE(pthread_sigmask(SIG_BLOCK, nullptr, &mask) == 0 && !sigismember(&mask, SIGINT));
    EXPECT_NE(read_file(byUs).find(std::string("\nPWD=") + cwd + "\n"), std::string::npos);
    // Only /dev/null, and what sh itself opened: the script and the listing.
    const std::string fds = read_file(byUs + ".fds");
    const std::string allowed = std::string("(/dev/null|") + kChecker + "|/tmp/seen/\\S+)";
    EXPECT_TRUE(std::regex_match(fds, std::regex("(\\d+ " + allowed + "\n){5}"))) << fds;
}

TEST(CheckerLaunch, NeverWaitsForTheCheckerAndLeavesNoZombieAtAnyRate) {
    // The first one, and only it, never ends (for the test's length).
    install_checker("[ -e /tmp/seen/sleep ] && rm /tmp/seen/sleep && exec sleep 30\n"
                    "echo \"$LAUNCH m\" >> /tmp/seen/calls\n");
    const auto collected = [] {  // no child of ours ended and left unreaped
        siginfo_t info = {};
        return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0;
    };
    ASSERT_TRUE(wait_until(collected, 5));
    write_file("/tmp/seen/sleep", "");
    const double start = now();
    start_integrity_check();
    EXPECT_LT(now() - start, 2);
    ASSERT_TRUE(wait_until([] { return !file_exists("/tmp/seen/sleep"); }, 10));

    const int launches = 300;
    const auto calls = [] { return count_of(read_file("/tmp/seen/calls"), "m\n"); };
    for (int i = 0; i < launches; ++i) {  // each one with the environment of its own launch
        setenv("LAUNCH", std::to_string(i).c_str(), 1);
        start_integrity_check();
    }
    EXPECT_TRUE(wait_until([&] { return calls() == launches; }, 60)) << calls();
    EXPECT_EQ(shell("test $(sort -u /tmp/seen/calls | wc -l) = " + std::to_string(launches)), 0);
    // Those that ended are collected while the first one still runs; children of system()
    // are left to it, with their exit status.
    EXPECT_TRUE(wait_until(collected, 2));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(shell("exit 3"), 3);

    // A missing checker starts nothing, says nothing and leaves nothing.
    shell(std::string("rm -f ") + kChecker);
    start_integrity_check();
    EXPECT_TRUE(wait_until(collected, 2));
}
