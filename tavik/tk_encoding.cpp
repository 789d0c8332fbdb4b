#include "tavik/tk_encoding.h"

#include <cstdint>
#include <cstring>

namespace tavik {
namespace encoder {
namespace {

const char digits[] = "0123456789ABCDEF";

unsigned char digitValue(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned char>(c - '0');
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned char>(c - 'A' + 10);
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned char>(c - 'a' + 10);
    }
    return 0;
}

}  // namespace

char* hex::toHex(typeArr<unsigned char, false>* bytes) {
    if (bytes == nullptr || (bytes->buffer == nullptr && bytes->length != 0) ||
        bytes->length > (SIZE_MAX - 1) / 2) {
        return nullptr;
    }
    char* text = new char[2 * bytes->length + 1];
    for (size_t i = 0; i < bytes->length; ++i) {
        text[2 * i] = digits[bytes->buffer[i] >> 4];
        text[2 * i + 1] = digits[bytes->buffer[i] & 0x0f];
    }
    text[2 * bytes->length] = '\0';
    return text;
}

typeArr<unsigned char, true>* hex::toBytes(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    size_t length = strlen(text);
    auto* result = new typeArr<unsigned char, true>(length / 2);
    for (size_t i = 0; i < result->length; ++i) {
        result->buffer[i] =
            static_cast<unsigned char>(digitValue(text[2 * i]) * 16 + digitValue(text[2 * i + 1]));
    }
    return result;
}

}  // namespace encoder
}  // namespace tavik
