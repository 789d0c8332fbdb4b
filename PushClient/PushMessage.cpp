#include "PushClient/PushMessage.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

// atoi of the text between begin and end, with out-of-range values read as 0 (ignored).
int decimalValue(const char* begin, const char* end) {
    tavik::string digits(begin, static_cast<unsigned int>(end - begin));
    errno = 0;
    long value = strtol(digits.get(), nullptr, 10);
    if (errno == ERANGE || value < INT_MIN || value > INT_MAX) {
        return 0;
    }
    return static_cast<int>(value);
}

}  // namespace

PushMessage::PushMessage() : taskCode(0), message("") {}

PushMessage::~PushMessage() {}

void PushMessage::set(const char* text) {
    if (text == nullptr || *text == '\0') {
        return;
    }
    // The leading character of a body is never examined: servers put a marker there.
    const char* rest = text + 1;
    const char* colon = strchr(rest, ':');
    if (colon == nullptr) {
        return;
    }
    message = colon + 1;
    taskCode = decimalValue(rest, colon);
}
