#include "hoxen/process_control.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "hoxen/daily_log.h"

namespace {

const int kLineSize = 256;
const int kMountLineSize = 512;
const int kStopPasses = 3;
const int kMountedMarker = 1000;

const char kHoxenLookup[] = "pidof -s hoxen";
const char kMountLookup[] = "mount | grep quillo";
const char kIntegrityCommand[] = "/brellium/orvaclient/integrity/integrity m > /dev/null 2>&1 &";
const char kSequenceFile[] = "/tmp/hoxen_confirm.txt";

// Runs `command` and copies into `line` the first output line that holds `needle` and not
// "grep" (a pipeline finds its own grep otherwise). False when no line matched or the
// pipeline could not be started.
bool find_listed_line(const char* command, const char* needle, char* line, int size) {
    FILE* pipe = popen(command, "r");
    if (pipe == nullptr) return false;
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
    if (!find_listed_line(cmd, needle, line, sizeof(line))) return -1;
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
    if (!shell_quote(quoted, sizeof(quoted), path)) return;
    char cmd[sizeof(quoted) + 16];
    snprintf(cmd, sizeof(cmd), "umount -l %s &", quoted);
    run_shell(cmd);
}

void log_pid(const char* format, int pid) {
    char buff[kLineSize];
    snprintf(buff, sizeof(buff), format, pid);
    log(buff);
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
        if (n + length >= size) return false;
        memcpy(out + n, piece, length);
        n += length;
        return true;
    };
    if (size == 0) return false;
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
    if (*c == '\0') return -1;
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
    if (pipe == nullptr) return -1;
    if (fgets(line, sizeof(line), pipe) == nullptr) line[0] = '\0';
    pclose(pipe);
    int pid = static_cast<int>(strtoul(line, nullptr, 10));
    return pid > 2 ? pid : -1;
}

int get_integrity_pid() { return find_process_pid("integrity p"); }

int getQuillosHeartBitPid() { return find_process_pid("quillo -heartbit"); }

int getQuillosMountPid() {
    char line[kLineSize];
    return find_listed_line(kMountLookup, "fuse.quillo", line, sizeof(line)) ? kMountedMarker
                                                                             : -1;
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
    if (fgets(result, sizeof(result), pipe) == nullptr) result[0] = '\0';
    pclose(pipe);

    char* path = strstr(result, " on ");
    if (path == nullptr) return mount_path;
    path += 4;
    if (*path == '\0') return mount_path;
    char* blank = strchr(path, ' ');
    if (blank != nullptr) *blank = '\0';
    return path;
}

int get_saved_sequence() {
    FILE* file = fopen(kSequenceFile, "r");
    if (file == nullptr) return 0;
    char seq[kLineSize + 1] = {0};
    size_t length = fread(seq, 1, kLineSize, file);
    fclose(file);
    for (size_t i = 0; i < length; ++i) {
        if (seq[i] == '\r' || seq[i] == '\n' || seq[i] == ' ') seq[i] = '\0';
    }
    return atoi(seq);
}

void stop_quillo() {
    // Every pass lists the mounts afresh for the test, the log line and the command.
    for (int pass = 0; pass < kStopPasses; ++pass) {
        if (getMountPath()[0] == '\0') continue;
        char buff[kLineSize];
        snprintf(buff, sizeof(buff), "[INFO] fuse umount(%s) is stopped !", getMountPath());
        log(buff);
        unmount_lazily(getMountPath());
    }
    for (int pass = 0; pass < kStopPasses; ++pass) {
        int pid = getQuillosMountPid();
        if (pid < 1) break;
        kill_process(pid);
        log_pid("[INFO] quillo(pid=%d) is stopped !", pid);
        sleep(1);
    }
}

void stop_quillo_heartbit() {
    for (int pass = 0; pass < kStopPasses; ++pass) {
        int pid = getQuillosHeartBitPid();
        if (pid < 1) break;
        kill_process(pid);
        sleep(1);
    }
}

void stop_integrity() {
    for (int pass = 0; pass < kStopPasses; ++pass) {
        int pid = get_integrity_pid();
        if (pid < 1) break;
        kill_process(pid);
        log_pid("[INFO] integrity(pid=%d) is stopped !", pid);
        sleep(1);
    }
}

void stop_hoxen() {
    for (int pass = 0; pass < kStopPasses; ++pass) {
        int pid = get_hoxen_pid();
        if (pid < 1) break;
        // Logged before the kill: the pid is normally our own and the kill ends us.
        log_pid("[INFO] hoxen(pid=%d) is stopped !\r\n", pid);
        kill_process(pid);
        sleep(1);
    }
}

void start_integrity_check() { run_shell(kIntegrityCommand); }
