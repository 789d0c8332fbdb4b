#include "PushClient/PushClient.h"

#include "PushClient/Client.h"

namespace {

Client* sessionOf(void* client) {
    return static_cast<Client*>(client);
}

}  // namespace

PushClient::PushClient()
    : client(new Client(this)), serverAddress(), domain(), userId(), loginParam(), port(0) {}

PushClient::~PushClient() {
    delete sessionOf(client);
}

bool PushClient::connect(const char* serverAddress, int port, const char* domain,
                         const char* userId, const char* loginParam) {
    return sessionOf(client)->connect(serverAddress, port, domain, userId, loginParam);
}

bool PushClient::reconnect() {
    return sessionOf(client)->reconnect();
}

void PushClient::disconnect() {
    sessionOf(client)->disconnect();
}
