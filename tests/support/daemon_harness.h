// Helpers shared by the daemon's tests: child processes with their output on a pipe,
// fake shell commands first on PATH, the FUSE stand-in for the quillo mount, and file
// and log readers. Meant for one test thread; what a helper launches it also reaps.
#ifndef HOXEN_TESTS_SUPPORT_DAEMON_HARNESS_H
#define HOXEN_TESTS_SUPPORT_DAEMON_HARNESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace hoxen_test {

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& text, mode_t mode = 0644);
bool file_exists(const std::string& path);
// Runs a test's own command line through sh; returns its exit status.
int shell(const std::string& command);
// Number of (possibly overlapping) occurrences of `piece` in `text`.
int count_of(const std::string& text, const std::string& piece);

// Polls `done` every 20 ms for at most `seconds`; true once it held.
bool wait_until(const std::function<bool()>& done, double seconds);

// Today's daily log file of the daemon, by local time.
std::string daily_log_path();

// A child process whose standard output the test reads through a pipe; its standard
// error stays the test's own, so diagnostics show in the test log.
class Child {
public:
    explicit Child(const std::vector<std::string>& argv);
    ~Child();  // kills the child (SIGKILL) if it still runs, and reaps it
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return _pid; }
    // Everything the child has written so far.
    const std::string& output();
    // Waits for the end of the child; true with its wait status once it ended.
    bool wait_exit(double seconds, int* status);
    bool running();

private:
    pid_t _pid = -1;
    int _out = -1;
    bool _reaped = false;
    std::string _text;
};

// The daemon binary started with `args` (program name excluded).
std::vector<std::string> daemon_command(const std::vector<std::string>& args);

// Shell scripts named like system commands in a fresh folder put first on PATH.
class FakeCommands {
public:
    explicit FakeCommands(const std::string& dir);
    ~FakeCommands();  // restores PATH
    // The command prints `output` (kept in a file beside it, so it may be changed).
    void prints(const std::string& name, const std::string& output);
    // The command runs `body` (sh).
    void runs(const std::string& name, const std::string& body);
    const std::string& dir() const { return _dir; }

private:
    std::string _dir;
    std::string _oldPath;
};

// The quillo_fuse stand-in mounted at `dir` (made if missing) as fsname and type quillo.
class QuilloMount {
public:
    explicit QuilloMount(const std::string& dir);
    ~QuilloMount();  // unmounts if still mounted
    bool mounted() const;
    void unmount();

private:
    std::string _dir;
    Child* _fuse = nullptr;
};

// True while `mount` lists `dir` as a mount point.
bool is_mount_point(const std::string& dir);

// Writes the recording fake integrity checker: it appends its arguments, one call a
// line, to `record`.
void install_fake_checker(const std::string& record);

// The messages of today's daily log lines, stamps and line ends removed, in order.
std::vector<std::string> log_messages();

// Where the fake integrity checker records its calls.
extern const char kCheckerRecord[];

// Starts a daemon scenario afresh: an empty log folder, an empty checker record, the
// fake checker installed, and the log switch file present or not.
void start_scenario(bool logging);

}  // namespace hoxen_test

#endif  // HOXEN_TESTS_SUPPORT_DAEMON_HARNESS_H
