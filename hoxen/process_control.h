// Process lookup and shutdown: the daemon's one place for processes and the shell.
// Lookups run shell pipelines (pidof, ps, mount) and read their output; stop functions
// run kill and umount. Lookups return -1 when nothing is found. getMountPath returns
// static storage and must not be called from two threads at once; start_integrity_check
// keeps the checkers it started until a thread of its own has collected them.
#ifndef HOXEN_PROCESS_CONTROL_H
#define HOXEN_PROCESS_CONTROL_H

#include <cstddef>

// First decimal number of a text line that starts with a digit 1 to 9, or -1.
// Applied to a "ps -ef" line this is the process id, as long as the user name holds
// no digit 1 to 9.
int getIntPid(char* src);

// Pid of a running "hoxen" process (pidof -s), or -1; pids 0 to 2 count as not found.
int get_hoxen_pid();

// Pid of an integrity checker running in "p" mode, or -1.
int get_integrity_pid();

// 1000 while a file system of type fuse.quillo is mounted, else -1.
int getQuillosMountPid();

// Pid of the storage daemon's "-heartbit" process, or -1.
int getQuillosHeartBitPid();

// Mount point of the first mount line that mentions quillo, whatever its type; the empty
// text when there is none, "-1" when the listing cannot be started. Static storage,
// valid until the next call.
char* getMountPath();

// The number stored in /tmp/hoxen_confirm.txt, or 0.
int get_saved_sequence();

// Lazily unmounts whatever still mentions quillo (three passes), then kills the mounted
// storage daemon (at most three passes, one second apart). Logs each step.
void stop_quillo();
void stop_quillo_heartbit();
void stop_integrity();
// Logs and kills the running hoxen process, normally the caller itself.
void stop_hoxen();

// Starts the integrity checker in its manual mode, in the background, output discarded, as
// the shell did for "CHECKER m > /dev/null 2>&1 &" but without one: returns once the checker's
// process exists (as the shell did, possibly before its exec), never waits for it. The
// checker is our child (the shell's was init's); a thread of ours collects it once it ends,
// and never any other child. The checker gets none of our descriptors beyond 0, 1 and 2.
// Safe from any thread.
void start_integrity_check();

// Runs a fixed command line through the shell; the result is not examined.
void run_shell(const char* command);

// Writes `text` as one single-quoted shell word into `out` (each ' becomes '\'').
// Returns false, leaving `out` empty, when the quoted word does not fit.
bool shell_quote(char* out, size_t size, const char* text);

#endif  // HOXEN_PROCESS_CONTROL_H
