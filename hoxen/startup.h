// Start-up of the daemon: checks the command line, writes the start banner, connects
// to the push server (retrying every second), starts the heartbeat monitor and then
// sleeps for ever. Called once, from the process's first thread.
#ifndef HOXEN_STARTUP_H
#define HOXEN_STARTUP_H

#include <atomic>

// Ends the main loop when set. Nothing sets it; the process ends by being killed.
extern std::atomic<bool> stopRequested;
// Declared for the sequence bookkeeping; not used.
extern long mem_seq;

// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed, so that nothing the
// daemon opens later (its socket above all) takes the place of a standard stream. Call it
// first, before anything is opened.
void open_closed_standard_descriptors();

// The daemon's entry: hoxen A.B.C.D port domain device_id. Returns 0 after printing the
// usage text (three or fewer arguments counting the program name) and otherwise only
// if stopRequested is ever set.
int hoxen_main(int argc, char** argv);

#endif  // HOXEN_STARTUP_H
