#include "hoxen/process_control.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
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
const size_t kChildStack = 16384;
const size_t kLaunchBlocks = 64;

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
// exports the physical path of it. `storage` owns the texts that `env` points to.
void shell_environment(std::string& storage, std::vector<char*>& env) {
    storage.clear();
    env.clear();
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
}

// What a checker's process reads until its exec: arguments, environment, the caller's
// signal mask, and the stack it runs on. `pending` is not 0 from the start of the process
// until its exec or its end, when the kernel clears it (and wakes its futex waiters); only
// then may the block be filled again. The environment's texts are the C library's, which
// keeps even those that setenv replaced.
struct Launch {
    std::atomic<int> pending{0};
    unsigned long mask = 0;
    char* argv[3] = {};
    char* shellArgv[4] = {};
    char* const* envp = nullptr;  // env's data, read by the child (no call into std::vector)
    std::string pwd;
    std::vector<char*> env;
    alignas(16) char stack[kChildStack];
};
static_assert(sizeof(std::atomic<int>) == sizeof(int), "the kernel clears a plain int");

// Checkers started and not yet collected, whether a reaper thread is collecting them, and
// the launch blocks (at most kLaunchBlocks, reused). Never destroyed: a reaper may still run,
// and a checker may still read its block, while the process exits.
struct Checkers {
    tavik::mutex lock;
    std::vector<pid_t> pids;
    bool reaping = false;
    std::vector<std::unique_ptr<Launch>> launches;
    size_t turn = 0;
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

// Called with the lock held.
void note_launched(Checkers& c, pid_t pid) {
    c.pids.push_back(pid);
    if (c.reaping)
        return;
    Reaper* reaper = new Reaper;
    c.reaping = reaper->start(nullptr) != 0;
    if (!c.reaping)  // tried again at the next launch
        delete reaper;
}

// A block whose checker has exec'd or ended; with all of them still in use, waits for the
// next one in turn to exec. Called with the lock held.
Launch& free_launch(Checkers& c) {
    for (auto& launch : c.launches) {
        if (launch->pending.load(std::memory_order_acquire) == 0)
            return *launch;
    }
    if (c.launches.size() < kLaunchBlocks) {
        c.launches.emplace_back(new Launch);
        return *c.launches.back();
    }
    Launch& launch = *c.launches[c.turn++ % kLaunchBlocks];
    // The kernel's wake on clearing is a shared futex's.
    for (int v; (v = launch.pending.load(std::memory_order_acquire)) != 0;)
        syscall(SYS_futex, &launch.pending, FUTEX_WAIT, v, nullptr, nullptr, 0);
    return launch;
}

// The checker's process until its exec shares our memory: it writes nothing of ours (not
// even errno, which is the launching thread's), so it calls the kernel directly, and no
// sanitizer or stack protector code may run in it (it runs with no thread of the runtime's).
// (Clang's no_sanitize still lets ThreadSanitizer note function entries, in the thread's state.)
#if __has_attribute(disable_sanitizer_instrumentation)
#define HOXEN_BARE                                                                           \
    __attribute__((no_sanitize("address", "thread", "undefined"),                            \
                   disable_sanitizer_instrumentation, no_stack_protector))
#else
#define HOXEN_BARE __attribute__((no_sanitize("address", "thread", "undefined"), no_stack_protector))
#endif

#if defined(__x86_64__)
#define HOXEN_SHARED_LAUNCH 1
HOXEN_BARE inline long kernel_call(long n, long a, long b = 0, long c = 0, long d = 0) {
    register long r10 __asm__("r10") = d;
    long result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(n), "D"(a), "S"(b), "d"(c), "r"(r10)
                     : "rcx", "r11", "memory");
    return result;
}
#elif defined(__aarch64__)
#define HOXEN_SHARED_LAUNCH 1
HOXEN_BARE inline long kernel_call(long n, long a, long b = 0, long c = 0, long d = 0) {
    register long x8 __asm__("x8") = n;
    register long x0 __asm__("x0") = a;
    register long x1 __asm__("x1") = b;
    register long x2 __asm__("x2") = c;
    register long x3 __asm__("x3") = d;
    __asm__ volatile("svc #0" : "+r"(x0) : "r"(x8), "r"(x1), "r"(x2), "r"(x3) : "memory");
    return x0;
}
#else
// A vfork() child elsewhere: the C library's wrapper, as the caller waits anyway.
inline long kernel_call(long n, long a, long b = 0, long c = 0, long d = 0) {
    long result = syscall(n, a, b, c, d);
    return result < 0 ? -errno : result;
}
#endif

// Body of the checker's process until its exec. It sets itself up as a non-interactive shell
// sets up a command started with "&", as it was started by a shell that the C library's
// posix_spawn started: SIGINT, SIGQUIT and the C library's own two signals ignored (the
// kernel's call: the C library refuses its two; the record is the kernel's for x86-64 and
// arm64, only its first field is not 0), the caller's signal mask, standard input on
// /dev/null; and here standard output and error on /dev/null too. Everything else of ours
// (socket, log, pipes) is closed, whoever opened it and however. It never returns.
[[noreturn]] HOXEN_BARE int run_checker(Launch* launch) {
    const long sigsetSize = sizeof(launch->mask);
    struct {
        void (*handler)(int);
        unsigned long flags;
        void (*restorer)();
        unsigned long mask;
    } ignore = {SIG_IGN, 0, nullptr, 0};
    const int ignored[] = {SIGINT, SIGQUIT, __SIGRTMIN, __SIGRTMIN + 1};
    for (size_t i = 0; i < sizeof(ignored) / sizeof(ignored[0]); ++i)
        kernel_call(SYS_rt_sigaction, ignored[i], reinterpret_cast<long>(&ignore), 0, sigsetSize);
    kernel_call(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
    // openat() takes the lowest free descriptor: the one just closed.
    kernel_call(SYS_close, STDIN_FILENO);
    kernel_call(SYS_openat, AT_FDCWD, reinterpret_cast<long>(kNullDevice), O_RDONLY);
    kernel_call(SYS_close, STDOUT_FILENO);
    kernel_call(SYS_openat, AT_FDCWD, reinterpret_cast<long>(kNullDevice),
                O_WRONLY | O_CREAT | O_TRUNC, 0666);
    kernel_call(SYS_dup3, STDOUT_FILENO, STDERR_FILENO, 0);
    kernel_call(SYS_rt_sigprocmask, SIG_SETMASK, reinterpret_cast<long>(&launch->mask), 0,
                sigsetSize);
    const long env = reinterpret_cast<long>(launch->envp);
    long failed = kernel_call(SYS_execve, reinterpret_cast<long>(launch->argv[0]),
                              reinterpret_cast<long>(launch->argv), env);
    // A file without "#!" is a shell script to a shell: it runs it with sh.
    if (failed == -ENOEXEC)
        kernel_call(SYS_execve, reinterpret_cast<long>(kShell),
                    reinterpret_cast<long>(launch->shellArgv), env);
    for (;;) kernel_call(SYS_exit_group, 127);
}

#ifdef HOXEN_SHARED_LAUNCH
// Starts run_checker(launch) in a process of its own that shares our memory and runs on the
// block's stack, and returns at once, without waiting for its exec. The kernel clears
// launch->pending when that process execs or ends. Returns its pid, or -errno.
pid_t start_sharing(Launch* launch) {
    const long flags = CLONE_VM | CLONE_CHILD_CLEARTID | SIGCHLD;
    char* top = launch->stack + sizeof(launch->stack);
    int (*body)(Launch*) = run_checker;
#if defined(__x86_64__)
    // The parent's pid and the thread area are not asked for: no argument for them.
    register long childTid __asm__("r10") = reinterpret_cast<long>(&launch->pending);
    long pid;
    // The child comes back from the call on the new stack with the same registers: it calls
    // the body with a cleared frame pointer and a 16-byte aligned stack.
    __asm__ volatile(
        "syscall\n\t"
        "test %%rax, %%rax\n\t"
        "jnz 1f\n\t"
        "xor %%ebp, %%ebp\n\t"
        "mov %[arg], %%rdi\n\t"
        "call *%[body]\n\t"
        "ud2\n"
        "1:"
        : "=a"(pid)
        : "a"(SYS_clone), "D"(flags), "S"(top), "r"(childTid),
          [arg] "r"(launch), [body] "r"(body)
        : "rcx", "r11", "memory");
#elif defined(__aarch64__)
    register long x8 __asm__("x8") = SYS_clone;
    register long pid __asm__("x0") = flags;
    register long x1 __asm__("x1") = reinterpret_cast<long>(top);
    register long x4 __asm__("x4") = reinterpret_cast<long>(&launch->pending);
    __asm__ volatile(
        "svc #0\n\t"
        "cbnz x0, 1f\n\t"
        "mov x29, #0\n\t"
        "mov x0, %[arg]\n\t"
        "blr %[body]\n\t"
        "brk #0\n"
        "1:"
        : "+r"(pid)
        : "r"(x8), "r"(x1), "r"(x4), [arg] "r"(launch), [body] "r"(body)
        : "x30", "memory");
#endif
    return static_cast<pid_t>(pid);
}
#endif

// Starts `program arg` the way the shell ran "program arg > /dev/null 2>&1 &", without the
// shell's own start-up: the same program, arguments (a file without "#!" runs as
// "/bin/sh program arg", as the shell ran it), environment (PWD included), signal mask and
// dispositions, standard descriptors and no other, process group and session. One thing
// differs: the shell's program was adopted by init, ours stays our child until it ends or we
// do. A program sees that only in its parent's pid (getppid, ps's PPID column), which no
// checker has a use for. A reaper thread collects it once it ends, so that none is left as a
// zombie. We wait neither for the program nor (on x86-64 and arm64) for its exec: the
// shell's "&" returned before its job had exec'd too, and the exec of a script is most of a
// launch's time. A program that cannot be started leaves no trace (its process ends at once
// and is collected as well): the shell's complaint went to /dev/null too.
void launch_in_background(const char* program, const char* arg) {
    Checkers& c = checkers();
    tavik::_objBlocking hold(&c.lock);
    Launch& launch = free_launch(c);
    shell_environment(launch.pwd, launch.env);
    launch.envp = launch.env.data();
    launch.argv[0] = launch.shellArgv[1] = const_cast<char*>(program);
    launch.argv[1] = launch.shellArgv[2] = const_cast<char*>(arg);
    launch.shellArgv[0] = const_cast<char*>(kShell);
#ifdef HOXEN_SHARED_LAUNCH
    // No signal handler of ours may run in the child, on its stack in our memory: all signals
    // stay blocked until the child restores the mask just before its exec (handlers end there).
    const unsigned long all = ~0UL;
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, &launch.mask, sizeof(all));
    launch.pending.store(1, std::memory_order_relaxed);
    pid_t pid = start_sharing(&launch);
    if (pid < 0)
        launch.pending.store(0, std::memory_order_relaxed);
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &launch.mask, nullptr, sizeof(all));
#else
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, nullptr, &launch.mask, sizeof(launch.mask));
    pid_t pid = vfork();  // the child runs on our stack while we wait for its exec
    if (pid == 0)
        run_checker(&launch);
#endif
    if (pid > 0)
        note_launched(c, pid);
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
