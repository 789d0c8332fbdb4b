// What the daemon is doing, told to the service manager (systemd) through sd_notify: READY=1
// once it has started, a STATUS= line that follows the connection and counts messages and
// checker launches, and WATCHDOG=1 while its connect loops and its receive thread are alive.
// Active only when NOTIFY_SOCKET was set at start; otherwise every report returns at once,
// without formatting or a system call. Reports may come from any thread.
#ifndef HOXEN_SERVICE_STATUS_H
#define HOXEN_SERVICE_STATUS_H

// Reads NOTIFY_SOCKET and, when it is set, says that the daemon is ready and about to connect
// to ip:port. Call once, on the main thread before any other thread starts; reports made
// before it do nothing.
void service_ready(const char* ip, int port);

// A connect attempt begins: counted in the status and a sign of life. Returns the attempt's
// number for service_connected.
long service_connect_attempt();
// Attempt `attempt` has connected. Ignored when a later attempt has begun meanwhile: a new
// receive thread may lose its connection, and try again, before the handler that connected it
// reports.
void service_connected(long attempt);

// Counted at once, shown with the next tick: a burst of messages costs no formatting.
void service_message_received();
void service_checker_launched();

// The receive thread is alive: pings the watchdog (at most twice a second, however often it is
// called) and sends the status when it has changed.
void service_tick();

#endif  // HOXEN_SERVICE_STATUS_H
