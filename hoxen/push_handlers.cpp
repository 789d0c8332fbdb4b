#include "hoxen/push_handlers.h"

#include <unistd.h>

#include <cstdio>

#include "hoxen/daily_log.h"
#include "hoxen/process_control.h"
#include "hoxen/service_status.h"

namespace {
const size_t kLineSize = 128;
}

Push::Push() : ip{}, domain{}, id{}, pw{}, port(0) {}

Push::~Push() {}

bool Push::tryConnect() {
    long attempt = service_connect_attempt();
    if (!connect(ip, port, domain, id, pw))
        return false;
    service_connected(attempt);
    return true;
}

void Push::_reconnect(char* warning) {
    // A reconnection that succeeds at once leaves no trace in the log.
    while (!tryConnect()) {
        log(warning);
        sleep(1);
    }
}

void Push::onDisconnected() {
    char buff[kLineSize];
    snprintf(buff, sizeof(buff), "[WARN] disconnected");
    _reconnect(buff);
}

void Push::onError(const char* cause) {
    char buff[kLineSize];
    snprintf(buff, sizeof(buff), "[WARN] error occurred: %s", cause != nullptr ? cause : "");
    _reconnect(buff);
}

void Push::onAuthResult(bool passed, const char* token) {
    const char* result = passed ? "passed" : "failed";
    if (token == nullptr)
        token = "";
    printf("Auth: %s, Token:%s\r\n", result, token);
    fflush(stdout);
    char buff[kLineSize];
    snprintf(buff, sizeof(buff), "[INFO] auth: %s, token:%s", result, token);
    log(buff);
}

void Push::onReceive(const char* message) {
    service_message_received();
    printf("Recevied Msg: %s\r\n", message != nullptr ? message : "");
    fflush(stdout);
    // Every message asks for a manual integrity check, whatever its text; the text
    // itself never reaches the shell.
    start_integrity_check();
    service_checker_launched();
    char buff[kLineSize];
    snprintf(buff, sizeof(buff), "[INFO] recieve message(%s)", "manual integrity check");
    log(buff);
}

void Push::onTick() {
    service_tick();
}
