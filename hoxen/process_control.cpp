#include "hoxen/process_control.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "hoxen/daily_log.h"
#include "tavik/tk_mutex.h"
#include "tavik/tk_thread.h"

namespace {

const int kLineSize = 256;
const int kMountLineSize = 512;
const int kStopPasses = 3;
const int kMountedMarker = 1000;

const char kHoxenLookup[] = "pidof -s hoxen";
const char kMountLookup[] = "mount | grep quillo";
const char kIntegrityProgram[] = "/brellium/orvaclient/integrity/integrity";
const char kIntegrityMode[] = "m";
const char kShell[] = "/bin/sh";
const char kNullDevice[] = "/dev/null";
const char kSequenceFile[] = "/tmp/hoxen_confirm.txt";
const useconds_t kForeignChildPause = 5000;

// Runs `command` and copies into `line` the first output line that holds `needle` and not
// "grep" (a pipeline finds its own grep otherwise). False when no line matched or the
// pipeline could not be started.
bool find_listed_line(const char* command, const char* needle, char* line, int size) {
    FILE* pipe = popen(command, "r");
    if (pipe == nullptr)
        return false;
    bool found = false;
    while (fgets(line, size, pipe) != nullptr) {
        if (strstr(line, needle) != nullptr && strstr(line, "grep") == nullptr) {
            found = true;
            break;
        }
    }
    pclose(pipe);
    return found;
}

// Pid of the first "ps -ef" line that holds `needle`, or -1.
int find_process_pid(const char* needle) {
    char cmd[kLineSize];
    char line[kLineSize];
    snprintf(cmd, sizeof(cmd), "ps -ef|grep \"%s\"", needle);
    if (!find_listed_line(cmd, needle, line, sizeof(line)))
        return -1;
    return getIntPid(line);
}

void kill_process(int pid) {
    char cmd[kLineSize];
    snprintf(cmd, sizeof(cmd), "kill -9 %d", pid);
    run_shell(cmd);
}

// The path comes from the mount listing, so it reaches the shell as one quoted word.
void unmount_lazily(const char* path) {
    char quoted[kMountLineSize * 4 + 3];
    if (!shell_quote(quoted, sizeof(quoted), path))
        return;
    char cmd[sizeof(quoted) + 16];
    snprintf(cmd, sizeof(cmd), "umount -l %s &", quoted);
    run_shell(cmd);
}

void log_pid(const char* format, int pid) {
    char buff[kLineSize];
    snprintf(buff, sizeof(buff), format, pid);
    log(buff);
}

// At most three passes, one second apart: look the process up, stop when it is gone, else
// kill it, logging `noteBefore` / `noteAfter` (a "%d" format, or null) around the kill.
void kill_found(int (*lookup)(), const char* noteAfter, const char* noteBefore) {
    for (int pass = 0; pass < kStopPasses; ++pass) {
        int pid = lookup();
        if (pid < 1)
            break;
        if (noteBefore != nullptr)
            log_pid(noteBefore, pid);
        kill_process(pid);
        if (noteAfter != nullptr)
            log_pid(noteAfter, pid);
        sleep(1);
    }
}

// The environment a shell hands its commands: ours, with PWD naming the working folder.
// The shell keeps an inherited PWD that is absolute and names the working folder, and else
// exports the physical path of it. `storage` owns the texts that the result points to.
std::vector<char*> shell_environment(std::string& storage) {
    std::vector<char*> env;
    const char* pwd = getenv("PWD");
    struct stat named, here;
    bool keep = pwd != nullptr && pwd[0] == '/' && stat(pwd, &named) == 0 &&
                stat(".", &here) == 0 && named.st_dev == here.st_dev &&
                named.st_ino == here.st_ino;
    char cwd[4096];
    if (!keep && getcwd(cwd, sizeof(cwd)) != nullptr)
        storage = std::string("PWD=") + cwd;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (storage.empty() || strncmp(*entry, "PWD=", 4) != 0)
            env.push_back(*entry);
    }
    if (!storage.empty())
        env.push_back(&storage[0]);
    env.push_back(nullptr);
    return env;
}

// Checkers started and not yet collected, and whether a reaper thread is collecting them.
// Never destroyed: a reaper may still run while the process exits.
struct Checkers {
    tavik::mutex lock;
    std::vector<pid_t> pids;
    bool reaping = false;
};
Checkers& checkers() {
    static Checkers* all = new Checkers;
    return *all;
}

// Collects the checkers that ended. Called with the lock held.
void collect_ended(std::vector<pid_t>& pids) {
    for (size_t i = 0; i < pids.size();) {
        if (waitpid(pids[i], nullptr, WNOHANG) != 0)
            pids.erase(pids.begin() + i);
        else
            ++i;
    }
}

// Runs while checkers are outstanding. It sleeps until a child of ours ends, which it learns
// without collecting it (WNOWAIT): a checker it collects, another child (of system() or
// popen()) it leaves to the call that waits for it. A checker that never ends holds up none.
class Reaper : public tavik::thread<true> {
public:
    void run() override {
        Checkers& c = checkers();
        for (;;) {
            siginfo_t info;
            memset(&info, 0, sizeof(info));
            const bool ended = waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0;
            if (!ended && errno == EINTR)
                continue;
            {
                tavik::_objBlocking hold(&c.lock);
                auto it = std::find(c.pids.begin(), c.pids.end(), info.si_pid);
                if (ended && it != c.pids.end()) {
                    waitpid(info.si_pid, nullptr, 0);
                    c.pids.erase(it);
                    continue;
                }
                collect_ended(c.pids);
                if (c.pids.empty()) {
                    c.reaping = false;
                    return;
                }
            }
            // Someone else's child, which its own call collects in a moment (or no wait
            // could be made): a look again shortly, not a busy loop.
            usleep(kForeignChildPause);
        }
    }
};

void note_launched(pid_t pid) {
    Checkers& c = checkers();
    tavik::_objBlocking hold(&c.lock);
    c.pids.push_back(pid);
    if (c.reaping)
        return;
    Reaper* reaper = new Reaper;
    c.reaping = reaper->start(nullptr) != 0;
    if (!c.reaping)  // tried again at the next launch
        delete reaper;
}

// Sets `sig` to be ignored. The kernel's own call: the C library refuses its two internal
// signals. The record is the kernel's for x86-64 and arm64; only its first field is not 0.
void ignore_signal(int sig) {
    struct {
        void (*handler)(int);
        unsigned long flags;
        void (*restorer)();
        unsigned long mask;
    } action = {SIG_IGN, 0, nullptr, 0};
    syscall(SYS_rt_sigaction, sig, &action, nullptr, sizeof(action.mask));
}

// Body of the checker's process until its exec. It is a vfork() child: it runs on the caller's
// stack below the caller's frame and in our memory, while the caller waits and our other threads go
// on. So it touches nothing shared (no heap, no locks, no stdio), never returns, and ends in exec
// or _exit; signal dispositions and descriptors are its own. It sets itself up as a non-interactive
// shell sets up a command started with "&", as it was started by a shell that the C library's
// posix_spawn started: SIGINT, SIGQUIT and the C library's own two signals ignored, standard input
// on /dev/null; and here standard output and error on /dev/null too. Everything else of ours
// (socket, log, pipes) is closed, whoever opened it and however.
[[noreturn]] void run_checker(char* const argv[], char* const shellArgv[], char* const env[]) {
    for (int sig : {SIGINT, SIGQUIT, __SIGRTMIN, __SIGRTMIN + 1}) ignore_signal(sig);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    // open() takes the lowest free descriptor: the one just closed.
    close(STDIN_FILENO);
    open(kNullDevice, O_RDONLY);
    close(STDOUT_FILENO);
    open(kNullDevice, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(STDOUT_FILENO, STDERR_FILENO);
    execve(argv[0], argv, env);
    // A file without "#!" is a shell script to a shell: it runs it with sh.
    if (errno == ENOEXEC)
        execve(kShell, shellArgv, env);
    _exit(127);
}

// Starts `program arg` the way the shell ran "program arg > /dev/null 2>&1 &", without the
// shell's own start-up: the same program, arguments (a file without "#!" runs as
// "/bin/sh program arg", as the shell ran it), environment (PWD included), signal mask and
// dispositions, standard descriptors and no other, process group and session. One thing
// differs: the shell's program was adopted by init, ours stays our child until it ends or we
// do. A program sees that only in its parent's pid (getppid, ps's PPID column), which no
// checker has a use for. A reaper thread collects it once it ends, so that none is left as a
// zombie. We wait only for the exec, never for the program. A program that cannot be started
// leaves no trace (its process ends at once and is collected as well): the shell's complaint
// went to /dev/null too.
void launch_in_background(const char* program, const char* arg) {
    std::string pwd;
    std::vector<char*> env = shell_environment(pwd);
    char* const argv[] = {const_cast<char*>(program), const_cast<char*>(arg), nullptr};
    char* const shellArgv[] = {const_cast<char*>(kShell), const_cast<char*>(program),
                               const_cast<char*>(arg), nullptr};
    pid_t pid = vfork();
    if (pid == 0)
        run_checker(argv, shellArgv, env.data());
    if (pid > 0)
        note_launched(pid);
}

}  // namespace

void run_shell(const char* command) {
    int status = system(command);
    (void)status;
}

bool shell_quote(char* out, size_t size, const char* text) {
    size_t n = 0;
    auto put = [&](const char* piece) {
        size_t length = strlen(piece);
        if (n + length >= size)
            return false;
        memcpy(out + n, piece, length);
        n += length;
        return true;
    };
    if (size == 0)
        return false;
    bool fits = put("'");
    for (const char* c = text; fits && *c != '\0'; ++c) {
        const char plain[2] = {*c, '\0'};
        fits = put(*c == '\'' ? "'\\''" : plain);
    }
    fits = fits && put("'");
    out[fits ? n : 0] = '\0';
    return fits;
}

int getIntPid(char* src) {
    char spid[64] = {0};
    const char* c = src;
    while (*c != '\0' && !(*c > '0' && *c <= '9')) ++c;
    if (*c == '\0')
        return -1;
    size_t n = 0;
    while (n < sizeof(spid) - 1 && c[n] >= '0' && c[n] <= '9') {
        spid[n] = c[n];
        ++n;
    }
    return atoi(spid);
}

int get_hoxen_pid() {
    char line[kLineSize] = {0};
    FILE* pipe = popen(kHoxenLookup, "r");
    if (pipe == nullptr)
        return -1;
    if (fgets(line, sizeof(line), pipe) == nullptr)
        line[0] = '\0';
    pclose(pipe);
    int pid = static_cast<int>(strtoul(line, nullptr, 10));
    return pid > 2 ? pid : -1;
}

int get_integrity_pid() {
    return find_process_pid("integrity p");
}

int getQuillosHeartBitPid() {
    return find_process_pid("quillo -heartbit");
}

int getQuillosMountPid() {
    char line[kLineSize];
    return find_listed_line(kMountLookup, "fuse.quillo", line, sizeof(line)) ? kMountedMarker : -1;
}

char* getMountPath() {
    static char result[kMountLineSize];
    static char mount_path[kLineSize];
    memset(result, 0, sizeof(result));
    memset(mount_path, 0, sizeof(mount_path));

    FILE* pipe = popen(kMountLookup, "r");
    if (pipe == nullptr) {
        strcpy(result, "-1");
        return result;
    }
    if (fgets(result, sizeof(result), pipe) == nullptr)
        result[0] = '\0';
    pclose(pipe);

    char* path = strstr(result, " on ");
    if (path == nullptr)
        return mount_path;
    path += 4;
    if (*path == '\0')
        return mount_path;
    char* blank = strchr(path, ' ');
    if (blank != nullptr)
        *blank = '\0';
    return path;
}

int get_saved_sequence() {
    FILE* file = fopen(kSequenceFile, "r");
    if (file == nullptr)
        return 0;
    char seq[kLineSize + 1] = {0};
    size_t length = fread(seq, 1, kLineSize, file);
    fclose(file);
    for (size_t i = 0; i < length; ++i) {
        if (seq[i] == '\r' || seq[i] == '\n' || seq[i] == ' ')
            seq[i] = '\0';
    }
    return atoi(seq);
}

void stop_quillo() {
    // Every pass lists the mounts afresh for the test, the log line and the command.
    for (int pass = 0; pass < kStopPasses; ++pass) {
        if (getMountPath()[0] == '\0')
            continue;
        char buff[kLineSize];
        snprintf(buff, sizeof(buff), "[INFO] fuse umount(%s) is stopped !", getMountPath());
        log(buff);
        unmount_lazily(getMountPath());
    }
    kill_found(getQuillosMountPid, "[INFO] quillo(pid=%d) is stopped !", nullptr);
}

void stop_quillo_heartbit() {
    kill_found(getQuillosHeartBitPid, nullptr, nullptr);
}

void stop_integrity() {
    kill_found(get_integrity_pid, "[INFO] integrity(pid=%d) is stopped !", nullptr);
}

void stop_hoxen() {
    // Noted before the kill: the pid is normally our own and the kill ends us.
    kill_found(get_hoxen_pid, nullptr, "[INFO] hoxen(pid=%d) is stopped !\r\n");
}

void start_integrity_check() {
    launch_in_background(kIntegrityProgram, kIntegrityMode);
}
