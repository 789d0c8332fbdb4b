#include "hoxen/startup.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>

#include <cstdio>
#include <cstdlib>

#include "hoxen/daily_log.h"
#include "hoxen/heartbeat.h"
#include "hoxen/push_handlers.h"
#include "hoxen/service_status.h"

std::atomic<bool> stopRequested{false};
long mem_seq = 0;

namespace {

const char kLoginParam[] = "vintrago";
const unsigned kIdleSeconds = 200;

void log_text(const char* text) {
    char line[256];
    snprintf(line, sizeof(line), "%s", text);
    log(line);
}

void write_banner(const char* ip, const char* port, const char* domain, const char* id) {
    const char* rule = " ============================================";
    log_text(rule);
    log_text(" ============ HOXEN is Started!! ============");
    log_text(rule);
    char buffer[256];
    snprintf(buffer, sizeof(buffer), "  --- %s %s %s %s ***", ip, port, domain, id);
    log(buffer);
}

// Arguments longer than a field are cut to fit it.
template <size_t N>
void copy_field(char (&field)[N], const char* text) {
    snprintf(field, N, "%s", text);
}

}  // namespace

void open_closed_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // The lower ones are open by now, so open() returns this very descriptor.
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF)
            open("/dev/null", O_RDWR);
    }
}

int hoxen_main(int argc, char** argv) {
    int cp = 3600;
    pthread_t id;
    Push push;

    // Three arguments pass on purpose; the missing device identifier is then empty.
    if (argc <= 3) {
        printf("Usage: ./hoxen A.B.C.D port domain device_id");
        printf("        -- ./hoxen 192.0.2.10 10099 BOX 10");
        fflush(stdout);
        return 0;
    }
    const char* deviceId = argc > 4 ? argv[4] : "";
    write_banner(argv[1], argv[2], argv[3], deviceId);

    copy_field(push.ip, argv[1]);
    push.port = atoi(argv[2]);
    copy_field(push.domain, argv[3]);
    copy_field(push.id, deviceId);
    copy_field(push.pw, kLoginParam);

    // Ready before the first connect: a box whose server is out of reach has still started.
    service_ready(push.ip, push.port);
    while (!push.tryConnect()) {
        puts("Can't connect with the server\r");
        fflush(stdout);
        sleep(1);
    }
    pthread_create(&id, nullptr, check_heartbit, &cp);

    while (!stopRequested) sleep(kIdleSeconds);
    return 0;
}
