#include "tavik/tk_log.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tavik {

namespace {

const char* const kLogRoot = "/var/log/quillo";
const char* const kSwitchFile = "/tmp/logging.dat";

bool pathExists(const char* p) {
    struct stat st;
    return stat(p, &st) == 0;
}

// Directories are made by the shell's mkdir; the paths are fixed text and digits only.
void shellMkdir(const char* dir) {
    string command;
    command.format("mkdir %s", dir);
    // The result is not needed: callers look for the directory themselves.
    [[maybe_unused]] int rc = std::system(command.get());
}

// Guards the shared path text, which warn() rewrites on every call.
mutex& pathLock() {
    static mutex lock;
    return lock;
}

}  // namespace

string _log::path;

_log::_log() : module("."), classBig("."), classSmall(".") {}

_log::~_log() {}

_log& _log::instance() {
    static _log logger;
    return logger;
}

void _log::setPath(const char* p) {
    _objBlocking guard(&pathLock());
    path = p;
    if (p != nullptr && *p != '\0' && !pathExists(p)) {
        path = "";
    }
}

char _log::levelLetter(log_type type) {
    static const char letters[] = "ucewidt";
    return (type >= log_critical && type <= log_trace) ? letters[type] : 'u';
}

void _log::warn(const char* msg) {
    if (!pathExists(kSwitchFile)) {
        return;
    }
    setPath(kLogRoot);
    writelog(log_warn, msg);
}

void _log::writelog(log_type type, const char* msg) {
    time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);

    char monthDir[64];
    char fileName[96];
    snprintf(monthDir, sizeof monthDir, "%s/%04d%02d", kLogRoot, t.tm_year + 1900, t.tm_mon + 1);
    snprintf(fileName, sizeof fileName, "%s/%02d.log", monthDir, t.tm_mday);

    // The whole line is built before the file is opened, so one fputs writes it and
    // nothing can fail while the file is open. The message is data, never a format.
    string line;
    line.format("[%02d:%02d:%02d] %c %s\n", t.tm_hour, t.tm_min, t.tm_sec, levelLetter(type),
                msg != nullptr ? msg : "");

    if (!pathExists(kLogRoot)) {
        shellMkdir(kLogRoot);
    }
    if (!pathExists(monthDir)) {
        shellMkdir(monthDir);
        if (!pathExists(monthDir)) {
            return;
        }
    }
    FILE* f = fopen(fileName, "ae");
    if (f == nullptr) {
        return;
    }
    fputs(line.get(), f);
    fclose(f);
}

}  // namespace tavik
