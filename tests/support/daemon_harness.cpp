#include "tests/support/daemon_harness.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
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
    const time_t now = time(nullptr);
    struct tm when;
    char name[64];
    strftime(name, sizeof(name), "/var/log/quillo/hoxen/pushclient_%Y%m%d.log",
             localtime_r(&now, &when));
    return name;
}

std::string logged() {
    return std::regex_replace(read_file(daily_log_path()),
                              std::regex(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] : )"), "");
}

static const char kFakes[] = "/tmp/fakes";
static const char kCommandRecord[] = "/tmp/commands";

void fake(const std::string& name, const std::vector<std::string>& outputs, std::string then) {
    static const bool onPath =
        shell(std::string("mkdir -p ") + kFakes) == 0 &&
        setenv("PATH", (kFakes + (":" + std::string(getenv("PATH")))).c_str(), 1) == 0;
    EXPECT_TRUE(onPath);
    const std::string base = kFakes + ("/" + name), last = std::to_string(outputs.size() - 1);
    std::string script =
        "#!/bin/sh\necho \"$$ $(date +%s.%N) " + name + "${*:+ $*}\" >> " + kCommandRecord + "\n";
    for (size_t n = 0; n < outputs.size(); ++n)
        write_file(base + "." + std::to_string(n), outputs[n]);
    write_file(base + ".n", "0");
    if (!outputs.empty())
        script += "n=$(cat " + base + ".n); echo $((n + 1)) > " + base + ".n; cat " + base +
                  ".$((n < " + last + " ? n : " + last + "))\n";
    else if (then.empty())
        then = "PATH=${PATH#" + std::string(kFakes) + ":} exec " + name + " \"$@\"";
    write_file(base, script + then + "\n", 0755);
}

std::string commands(double start, double end) {
    std::map<long, std::pair<double, std::string>> calls;  // by process id: in launch order
    std::istringstream record(read_file(kCommandRecord));
    long pid;
    double at;
    for (std::string line; record >> pid >> at && std::getline(record, line);)
        calls[pid] = {at, line.substr(1) + "\n"};
    calls[LONG_MAX] = {end, ""};
    std::string text, pace;
    for (const auto& byPid : calls) {
        const double gap = byPid.second.first - start;
        start = byPid.second.first;
        text += byPid.second.second;
        pace += gap < 0.5 ? '.' : gap >= 0.8 && gap < 1.9 ? '1' : gap >= 3.5 && gap < 5 ? '4' : '?';
    }
    return text + pace;
}

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
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
        close_range(3, ~0U, 0);  // the program starts with none of the test's other descriptors
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
    return _pid > 0 && !_reaped && !wait_exit(0, &status);
}

const char kHoxen[] = HOXEN_BINARY_DIR "/hoxen";
const char kCheckerRecord[] = "/tmp/checker.calls";

void start_scenario(bool logging, int checkerSeconds) {
    // The log folder is made here, by /bin/mkdir (not a test's fake): a first line racing the
    // log's own background mkdir would be lost (the daily log test covers that path).
    const std::string checker = "/brellium/orvaclient/integrity";
    EXPECT_EQ(shell(std::string("rm -rf /var/log/quillo /tmp/logging.dat ") + kCheckerRecord + " " +
                    kCommandRecord + " && /bin/mkdir -p /var/log/quillo/hoxen " + checker),
              0);
    write_file(checker + "/integrity",
               "#!/bin/sh\necho \"out=$(readlink /proc/$$/fd/1) err=$(readlink /proc/$$/fd/2) "
               "args=$*\" >> " +
                   std::string(kCheckerRecord) + "\nsleep " + std::to_string(checkerSeconds) + "\n",
               0755);
    if (logging)
        write_file("/tmp/logging.dat", "");
    // Output, log and timing are those of a daemon that no service manager watches.
    unsetenv("NOTIFY_SOCKET");
}

static bool is_mount_point(const std::string& dir) {
    return read_file("/proc/self/mounts").find(" " + dir + " ") != std::string::npos;
}

ConnectedDaemon::ConnectedDaemon(const std::string& mountDir, std::vector<std::string> args,
                                 const std::vector<std::string>& launcher, bool serverDown)
    : mountDir(mountDir) {
    std::filesystem::create_directories(mountDir);
    fuse = std::make_unique<Child>(
        std::vector<std::string>{HOXEN_BINARY_DIR "/tools/quillo_fuse/quillo_fuse", "-f", "-s",
                                 "-o", "fsname=quillo,subtype=quillo", mountDir});
    EXPECT_TRUE(wait_until([&] { return is_mount_point(mountDir); }, 10)) << mountDir;
    EXPECT_TRUE(server.listen());
    if (serverDown)
        server.stopListening();
    args.insert(args.begin(), {kHoxen, "127.0.0.1", std::to_string(server.port())});
    args.insert(args.begin(), launcher.begin(), launcher.end());
    daemon = std::make_unique<Child>(args);
    EXPECT_TRUE(serverDown || server.waitForHandshake(0, std::chrono::seconds(10), &hello))
        << daemon->output();
}

ConnectedDaemon::~ConnectedDaemon() {
    daemon.reset();
    if (is_mount_point(mountDir))
        unmount();
}

void ConnectedDaemon::unmount() {
    // Not a fake umount: the tests record the daemon's commands only.
    EXPECT_EQ(shell("/bin/umount '" + mountDir + "'"), 0) << "cannot unmount " << mountDir;
    int status;
    fuse->wait_exit(5, &status);
}

int descriptor_count(pid_t pid) {
    std::error_code error;
    const std::string fds = "/proc/" + std::to_string(pid) + "/fd";
    return int(std::distance(std::filesystem::directory_iterator(fds, error), {}));
}

}  // namespace hoxen_test
