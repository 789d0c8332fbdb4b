// The hoxen daemon: a push client (Push) that starts the integrity checker on every
// message, a daily log, the process lookups and stop functions, and the heartbeat
// monitor that shuts everything down when the quillo storage mount disappears, and the
// reports that tell systemd what the daemon is doing.
// Include this one header to reach all of them.
#ifndef HOXEN_HOXEN_H
#define HOXEN_HOXEN_H

#include "hoxen/daily_log.h"
#include "hoxen/heartbeat.h"
#include "hoxen/process_control.h"
#include "hoxen/push_handlers.h"
#include "hoxen/service_status.h"
#include "hoxen/startup.h"

#endif  // HOXEN_HOXEN_H
