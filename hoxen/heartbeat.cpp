#include "hoxen/heartbeat.h"

#include <unistd.h>

#include <cstdio>

#include "hoxen/daily_log.h"
#include "hoxen/process_control.h"

std::atomic<long> check_count{0};

namespace {
const unsigned kPauseSeconds = 4;
}

void* check_heartbit(void* p) {
    (void)p;
    // Any failure of the lookup counts as an absent mount: the monitor errs on stopping.
    while (getQuillosMountPid() >= 1) {
        sleep(kPauseSeconds);
        check_count += kPauseSeconds;
    }
    char buff[256];
    snprintf(buff, sizeof(buff), "[CRIT] quillo process is stopped, kill all process!");
    log(buff);
    stop_quillo();
    stop_hoxen();
    return nullptr;
}
