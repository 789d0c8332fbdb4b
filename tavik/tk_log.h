// The library's process-wide logger. Each call appends one line "[hh:mm:ss] <letter> msg" to
// the daily file /var/log/quillo/YYYYMM/DD.log, creating the directories on demand; warn()
// writes only while the switch file /tmp/logging.dat exists, so by default it is silent.
// Any thread may call it: every line is written by its own open, one fputs and close.
#ifndef TAVIK_TK_LOG_H
#define TAVIK_TK_LOG_H

#include "tavik/tk_mutex.h"
#include "tavik/tk_string.h"

namespace tavik {

// Level of a log line; the letter that a line carries is given by levelLetter(). The type is
// int-sized so that any number converted to it is a valid value (written as level u).
enum log_type : int {
    log_none = 0,
    log_critical = 1,
    log_err = 2,
    log_warn = 3,
    log_info = 4,
    log_debug = 5,
    log_trace = 6,
};

class _log : private mutex4class<_log> {
public:
    // The single logger, made on first use and destroyed at process exit.
    static _log& instance();

    // Remembers the log directory; a path that does not exist is stored as the empty text.
    // The directory is informational: lines always go under /var/log/quillo.
    static void setPath(const char* p);

    // Writes msg as a warning when /tmp/logging.dat exists; otherwise does nothing.
    void warn(const char* msg);

    // Appends one line of the given level to today's file. A line that cannot be placed
    // (directory or file not creatable) is dropped without a report.
    virtual void writelog(log_type type, const char* msg);

    // The letter of a level: u c e w i d t for 0 to 6, u for anything else.
    static char levelLetter(log_type type);

    virtual ~_log();

    bool ignoreClassAndModule = true;
    string module;
    string classBig;
    string classSmall;
    string file;
    log_type log_type_level = log_trace;
    bool isOutputToConsole = true;

protected:
    _log();

private:
    _log(const _log&) = delete;
    _log& operator=(const _log&) = delete;

    static string path;
};

}  // namespace tavik

#endif  // TAVIK_TK_LOG_H
