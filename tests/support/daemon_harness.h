// Helpers shared by the daemon's tests: child processes with their output on a pipe, fake
// shell commands first on PATH, the quillo FUSE mount (tools/quillo_fuse), file and log
// readers. Meant for one test thread; what a helper launches it also reaps.
#ifndef HOXEN_TESTS_SUPPORT_DAEMON_HARNESS_H
#define HOXEN_TESTS_SUPPORT_DAEMON_HARNESS_H

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/pushserver/push_server.h"

namespace hoxen_test {

std::string read_file(const std::string& path);  // empty when missing
void write_file(const std::string& path, const std::string& text, mode_t mode = 0644);
bool file_exists(const std::string& path);
// Runs a test's own command line through sh; returns its exit status (-1 when killed).
int shell(const std::string& command);
// Number of (possibly overlapping) occurrences of `piece` in `text`.
int count_of(const std::string& text, const std::string& piece);
// Polls `done` every 20 ms for at most `seconds`; true once it held.
bool wait_until(const std::function<bool()>& done, double seconds);

// Today's daily log file of the daemon, by local time, and the messages of its lines
// (stamps and line ends removed), in order.
std::string daily_log_path();
std::vector<std::string> log_messages();

// A child process whose standard output the test reads through a pipe; its standard error
// stays the test's own. Destruction kills (SIGKILL) and reaps it if it still runs.
class Child {
public:
    explicit Child(const std::vector<std::string>& argv);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return _pid; }
    const std::string& output();  // everything written so far
    // Waits for the end of the child; true with its wait status once it ended.
    bool wait_exit(double seconds, int* status);
    bool running();

private:
    pid_t _pid = -1;
    int _out = -1;
    bool _reaped = false;
    std::string _text;
};

// The daemon binary's command line with `args` (program name excluded).
std::vector<std::string> daemon_command(const std::vector<std::string>& args);

// Shell scripts named like system commands in `dir` (made if missing), first on PATH until
// destruction.
class FakeCommands {
public:
    explicit FakeCommands(const std::string& dir);
    ~FakeCommands();
    // The command prints `output` (kept in a file beside it, so it may be changed).
    void prints(const std::string& name, const std::string& output);
    // The command runs `body` (sh).
    void runs(const std::string& name, const std::string& body);

private:
    std::string _dir;
    std::string _oldPath;
};

// The quillo FUSE mount at `dir` (made if missing), fsname and type quillo; unmounted at
// destruction if still mounted.
class QuilloMount {
public:
    explicit QuilloMount(const std::string& dir);
    ~QuilloMount();
    bool mounted() const;
    void unmount();

private:
    std::string _dir;
    std::unique_ptr<Child> _fuse;
};

// The daemon started with `args` against its own push server on 127.0.0.1, with the quillo
// mount up at `mountDir`; construction waits for the handshake (recorded in `hello`).
struct ConnectedDaemon {
    explicit ConnectedDaemon(const std::string& mountDir,
                             std::vector<std::string> args = {"BOX", "10"});

    QuilloMount mount;
    pushserver::PushServer server;
    std::unique_ptr<Child> daemon;
    pushserver::Handshake hello;
};

// True while /proc/self/mounts lists `dir` as a mount point.
bool is_mount_point(const std::string& dir);

// Where start_scenario's fake integrity checker records its calls.
extern const char kCheckerRecord[];
// Starts a daemon scenario afresh: an empty log folder, an empty checker record, the fake
// checker installed, and the log switch file present or not.
void start_scenario(bool logging);

}  // namespace hoxen_test

#endif  // HOXEN_TESTS_SUPPORT_DAEMON_HARNESS_H
