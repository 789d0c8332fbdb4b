#include "hoxen/daily_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "hoxen/process_control.h"

namespace {

const char kSwitchFile[] = "/tmp/logging.dat";
const char kParentDir[] = "/var/log/quillo";
const char kLogDir[] = "/var/log/quillo/hoxen";
const char kFilePrefix[] = "/var/log/quillo/hoxen/pushclient";
const char kLineEnd[] = " \r\n";

// Tests whether `path` can be opened as a directory (as opendir opens one), closing it again.
bool directory_opens(const char* path) {
    int dir = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_DIRECTORY);
    if (dir < 0)
        return false;
    close(dir);
    return true;
}

// The parent is made in the background, so the foreground mkdir of the log directory may
// race it and fail on a first call; the next call repeats the creation.
void create_log_directories(char* cmd, size_t size) {
    if (!directory_opens(kParentDir)) {
        snprintf(cmd, size, "mkdir %s &", kParentDir);
        run_shell(cmd);
    }
    if (!directory_opens(kLogDir)) {
        snprintf(cmd, size, "mkdir %s &", kLogDir);
        run_shell(cmd);
    }
    snprintf(cmd, size, "mkdir %s", kLogDir);
    run_shell(cmd);
}

}  // namespace

void format_log_file_name(char* out, size_t size, const struct tm& when) {
    snprintf(out, size, "%s_%4d%02d%02d.log", kFilePrefix, when.tm_year + 1900, when.tm_mon + 1,
             when.tm_mday);
}

size_t format_log_line(char* out, size_t size, const struct tm& when, const char* message) {
    if (size == 0)
        return 0;
    int length = snprintf(out, size, "[%4d-%02d-%02d %02d:%02d:%02d] : %s%s", when.tm_year + 1900,
                          when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec,
                          message, kLineEnd);
    if (length < 0) {
        out[0] = '\0';
        return 0;
    }
    if (static_cast<size_t>(length) < size)
        return static_cast<size_t>(length);
    // Cut the message, not the line end, so that a long line still ends where it should.
    const size_t endLength = sizeof(kLineEnd) - 1;
    const size_t kept = size - 1;
    if (kept >= endLength)
        memcpy(out + kept - endLength, kLineEnd, endLength);
    return kept;
}

void log(char* message) {
    time_t now = time(nullptr);
    struct tm when;
    localtime_r(&now, &when);

    // Without the switch file the directory test has no consequence: it is left out.
    struct stat st;
    if (stat(kSwitchFile, &st) != 0)
        return;

    char path[128];
    char cmd[256];
    if (!directory_opens(kLogDir))
        create_log_directories(cmd, sizeof(cmd));

    format_log_file_name(path, sizeof(path), when);
    // As fopen's "a+" opens it; the line goes out in one write, as stdio's buffer sent it.
    int file = open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0)
        return;
    size_t length = format_log_line(cmd, sizeof(cmd), when, message != nullptr ? message : "");
    ssize_t written = write(file, cmd, length);
    (void)written;  // a line that cannot be written is lost, as any failure here
    close(file);
}
