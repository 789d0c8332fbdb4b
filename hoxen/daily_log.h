// The daemon's daily log: one time-stamped line per call, appended to
// /var/log/quillo/hoxen/pushclient_YYYYMMDD.log, and only while the switch file
// /tmp/logging.dat exists. Every call opens, appends and closes the file by itself, so
// it may be called from any thread; whole lines end up one after another.
#ifndef HOXEN_DAILY_LOG_H
#define HOXEN_DAILY_LOG_H

#include <cstddef>
#include <ctime>

// Appends "[YYYY-MM-DD hh:mm:ss] : <log> \r\n" (local time) to today's file, creating the
// log directories first when they are missing. The text is written as it is, never used
// as a format. Failures are silent.
void log(char* log);

// Writes today's file name for the local time `when` into `out` ("..._YYYYMMDD.log").
void format_log_file_name(char* out, size_t size, const struct tm& when);

// Writes the stamped line for `message` into `out`. A line too long for `out` keeps its
// stamp and its " \r\n" end and loses the tail of the message. Returns the line's length.
size_t format_log_line(char* out, size_t size, const struct tm& when, const char* message);

#endif  // HOXEN_DAILY_LOG_H
