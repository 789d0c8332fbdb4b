#include "PushClient/PushUser.h"

#include "tavik/tk_common.h"

namespace {

const char* textOf(const tavik::string& s) {
    return s.get() != nullptr ? s.get() : "";
}

}  // namespace

PushUser::PushUser(const char* domain, const char* uuid, const char* userId)
    : domain(domain), uuid(uuid), userId(userId) {}

PushUser::~PushUser() {}

char* PushUser::toString() {
    if (uuid.isEmpty()) {
        return tavik::makeFormatString("%s:%s", textOf(domain), textOf(userId));
    }
    return tavik::makeFormatString("%s:(%s)%s", textOf(domain), textOf(uuid), textOf(userId));
}
