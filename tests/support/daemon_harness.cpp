#include "tests/support/daemon_harness.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace hoxen_test {

std::string read_file(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void write_file(const std::string& path, const std::string& text, mode_t mode) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    chmod(path.c_str(), mode);
}

bool file_exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

int shell(const std::string& command) {
    int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int count_of(const std::string& text, const std::string& piece) {
    int count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
        ++count;
    return count;
}

bool wait_until(const std::function<bool()>& done, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

std::string daily_log_path() {
    time_t now = time(nullptr);
    struct tm when;
    localtime_r(&now, &when);
    char name[64];
    strftime(name, sizeof(name), "/var/log/quillo/hoxen/pushclient_%Y%m%d.log", &when);
    return name;
}

std::vector<std::string> log_messages() {
    const std::string text = read_file(daily_log_path()), end = " \r\n";
    const size_t stamp = sizeof("[YYYY-MM-DD hh:mm:ss] : ") - 1;
    std::vector<std::string> messages;
    for (size_t at = 0, next; (next = text.find(end, at)) != std::string::npos;
         at = next + end.size()) {
        messages.push_back(text.substr(at + stamp, next - at - stamp));
    }
    return messages;
}

Child::Child(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return;
    _pid = fork();
    if (_pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    close(fds[1]);
    _out = fds[0];
    fcntl(_out, F_SETFL, O_NONBLOCK);
}

Child::~Child() {
    if (running()) {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    if (_out >= 0)
        close(_out);
}

const std::string& Child::output() {
    char chunk[4096];
    for (ssize_t n; _out >= 0 && (n = read(_out, chunk, sizeof(chunk))) > 0;)
        _text.append(chunk, n);
    return _text;
}

bool Child::wait_exit(double seconds, int* status) {
    if (_pid <= 0 || _reaped)
        return false;
    _reaped = wait_until([&] { return waitpid(_pid, status, WNOHANG) == _pid; }, seconds);
    output();
    return _reaped;
}

bool Child::running() {
    int status;
    if (_pid > 0 && !_reaped && waitpid(_pid, &status, WNOHANG) == _pid)
        _reaped = true;
    return _pid > 0 && !_reaped;
}

std::vector<std::string> daemon_command(const std::vector<std::string>& args) {
    std::vector<std::string> argv{HOXEN_BINARY_DIR "/hoxen"};
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
}

FakeCommands::FakeCommands(const std::string& dir) : _dir(dir) {
    EXPECT_EQ(shell("mkdir -p '" + dir + "'"), 0);
    const char* path = getenv("PATH");
    _oldPath = path != nullptr ? path : "/usr/bin:/bin";
    setenv("PATH", (_dir + ":" + _oldPath).c_str(), 1);
}

FakeCommands::~FakeCommands() {
    setenv("PATH", _oldPath.c_str(), 1);
}

void FakeCommands::prints(const std::string& name, const std::string& output) {
    write_file(_dir + "/" + name + ".out", output);
    runs(name, "cat '" + _dir + "/" + name + ".out'");
}

void FakeCommands::runs(const std::string& name, const std::string& body) {
    write_file(_dir + "/" + name, "#!/bin/sh\n" + body + "\n", 0755);
}

bool is_mount_point(const std::string& dir) {
    return read_file("/proc/self/mounts").find(" " + dir + " ") != std::string::npos;
}

QuilloMount::QuilloMount(const std::string& dir) : _dir(dir) {
    EXPECT_EQ(shell("mkdir -p '" + dir + "'"), 0);
    _fuse = std::make_unique<Child>(
        std::vector<std::string>{HOXEN_BINARY_DIR "/tools/quillo_fuse/quillo_fuse", "-f", "-s",
                                 "-o", "fsname=quillo,subtype=quillo", dir});
    EXPECT_TRUE(wait_until([&] { return mounted(); }, 10)) << "no quillo mount at " << dir;
}

QuilloMount::~QuilloMount() {
    if (mounted())
        unmount();
}

bool QuilloMount::mounted() const {
    return is_mount_point(_dir);
}

void QuilloMount::unmount() {
    EXPECT_EQ(shell("umount '" + _dir + "'"), 0) << "cannot unmount " << _dir;
    int status;
    _fuse->wait_exit(5, &status);
}

ConnectedDaemon::ConnectedDaemon(const std::string& mountDir, std::vector<std::string> args)
    : mount(mountDir) {
    EXPECT_TRUE(server.listen());
    args.insert(args.begin(), {"127.0.0.1", std::to_string(server.port())});
    daemon = std::make_unique<Child>(daemon_command(args));
    EXPECT_TRUE(server.waitForHandshake(0, std::chrono::seconds(10), &hello)) << daemon->output();
}

// The recording fake integrity checker: appends its arguments, one call a line, to `record`.
static void install_fake_checker(const std::string& record) {
    const std::string dir = "/brellium/orvaclient/integrity";
    EXPECT_EQ(shell("mkdir -p " + dir), 0);
    write_file(dir + "/integrity", "#!/bin/sh\necho \"$@\" >> '" + record + "'\n", 0755);
}

const char kCheckerRecord[] = "/tmp/checker.calls";

void start_scenario(bool logging) {
    // The log folder is made here: a first line racing the log's own background mkdir would
    // be lost (the daily log test covers that path).
    EXPECT_EQ(shell(std::string("rm -rf /var/log/quillo /tmp/logging.dat ") + kCheckerRecord +
                    " && mkdir -p /var/log/quillo/hoxen"),
              0);
    install_fake_checker(kCheckerRecord);
    if (logging)
        write_file("/tmp/logging.dat", "");
}

}  // namespace hoxen_test
