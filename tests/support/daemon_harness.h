// Helpers shared by the daemon's tests and benchmarks: child processes, fake commands, logs,
// the daemon against its own push server with a quillo FUSE mount (tools/quillo_fuse).
// Meant for one test thread; what a helper launches it also reaps.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/pushserver/push_server.h"

namespace hoxen_test {

std::string read_file(const std::string& path);  // empty when missing
void write_file(const std::string& path, const std::string& text, mode_t mode = 0644);
bool file_exists(const std::string& path);
int shell(const std::string& command);  // through sh: the exit status, -1 when killed
// Occurrences of `piece` in `text`, overlapping ones included.
int count_of(const std::string& text, const std::string& piece);
// Polls `done` every 20 ms for at most `seconds`; true once it held.
bool wait_until(const std::function<bool()>& done, double seconds);
std::string daily_log_path();  // today's, by local time
int descriptor_count(pid_t pid = getpid());

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
    bool wait_exit(double seconds, int* status);  // true, with the wait status, once it ended
    bool running();

private:
    pid_t _pid = -1;
    int _out = -1;
    bool _reaped = false;
    std::string _text;
};

std::string logged();  // today's log without the "[YYYY-MM-DD hh:mm:ss] : " stamps

// Installs a fake command `name`, first on PATH (of this process and what it starts) from the
// first call on. Each call is recorded, then prints outputs[n] on its n-th call (the last
// output again after them), then runs the shell code `then`; with neither, the real command.
void fake(const std::string& name, const std::vector<std::string>& outputs = {},
          std::string then = "");
// The fakes' calls so far, "name args" a line, in the order they were started (by process id),
// then their pace: for each gap from `start` through the calls to `end` (wall-clock seconds),
// '.' under 0.5 s, '1' from 0.8 to 1.9 s, '4' from 3.5 to 5 s, else '?'.
std::string commands(double start, double end);
double now();  // wall-clock seconds, as commands() takes them

extern const char kHoxen[];          // the daemon binary of this build
extern const char kCheckerRecord[];  // the fake integrity checker's calls, one a line
// Starts a scenario afresh: an empty log folder, no command or checker record, the log switch
// file present or not, no NOTIFY_SOCKET. The fake checker records "out=X err=Y args=ARGS"
// (where its standard output and error go), then sleeps `checkerSeconds`.
void start_scenario(bool logging, int checkerSeconds = 0);

// The daemon started with `args` against its own push server on 127.0.0.1, with a quillo
// FUSE mount (fsname and type quillo) at `mountDir`; construction waits for the handshake
// (recorded in `hello`). Destruction ends the daemon, then the mount. `launcher` goes in front
// of the daemon's command line (strace, say). With `serverDown` the server keeps its port but
// listens only once the test calls server.listen(port), and no handshake is awaited.
struct ConnectedDaemon {
    explicit ConnectedDaemon(const std::string& mountDir,
                             std::vector<std::string> args = {"BOX", "10"},
                             const std::vector<std::string>& launcher = {},
                             bool serverDown = false);
    ~ConnectedDaemon();
    void unmount();  // removes the mount and waits for its FUSE helper to end

    std::string mountDir;
    std::unique_ptr<Child> fuse;
    pushserver::PushServer server;
    std::unique_ptr<Child> daemon;
    pushserver::Handshake hello;
};

}  // namespace hoxen_test
