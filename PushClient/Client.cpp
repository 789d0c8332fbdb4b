#include "PushClient/Client.h"

#include "PushClient/PushClient.h"

Client::Client(PushClient* owner) : pushClient(owner) {}

Client::~Client() {}

void Client::onDisconnected() {
    pushClient->onDisconnected();
}

void Client::onError(const char* message) {
    pushClient->onError(message);
}

void Client::onAuthResult(bool passed, const char* token) {
    pushClient->onAuthResult(passed, token);
}

void Client::onReceive(const char* message) {
    pushClient->onReceive(message);
}

void Client::onTick() {
    pushClient->onTick();
}
