// The heartbeat monitor: the body of the daemon's second thread. It watches the quillo
// storage daemon's FUSE mount every 4 seconds and, once the mount is gone, stops what is
// left of the storage daemon and then kills the daemon itself. Runs on one thread only.
#ifndef HOXEN_HEARTBEAT_H
#define HOXEN_HEARTBEAT_H

#include <atomic>

// Seconds watched so far: advanced by 4 after every pause of the monitor.
extern std::atomic<long> check_count;

// Thread start routine for pthread_create; the argument is ignored. Returns a null
// pointer only when the shutdown could not find or kill the daemon.
void* check_heartbit(void* p);

#endif  // HOXEN_HEARTBEAT_H
