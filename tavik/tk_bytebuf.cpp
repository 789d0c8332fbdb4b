#include "tavik/tk_bytebuf.h"

#include <stdio.h>
#include <string.h>

#include <new>

namespace tavik {

bytebuf::bytebuf(size_t unit)
    : buffer(nullptr), size(0), pos(0), limitSize(0), increaseSizeUnit(unit ? unit : 1) {
    reserve(increaseSizeUnit);
}

bytebuf::~bytebuf() {
    delete[] buffer;
}

bool bytebuf::reserve(size_t needed) {
    if (needed <= size) {
        return true;
    }
    // Grow by at least the unit, and at least double, so long texts stay linear.
    size_t grown = size + increaseSizeUnit;
    if (grown < size * 2) {
        grown = size * 2;
    }
    if (grown < needed) {
        grown = needed;
    }
    unsigned char* bigger = new (std::nothrow) unsigned char[grown]();
    if (bigger == nullptr) {
        puts("Exception occurred in bytebuf::put()\r");
        return false;
    }
    if (pos > 0) {
        memcpy(bigger, buffer, static_cast<size_t>(pos));
    }
    delete[] buffer;
    buffer = bigger;
    size = grown;
    return true;
}

void bytebuf::put(unsigned char c) {
    if (!reserve(static_cast<size_t>(pos) + 1)) {
        return;  // the byte is dropped
    }
    buffer[pos++] = c;
}

void bytebuf::put(const char* text) {
    if (text != nullptr) {
        put(text, strlen(text));
    }
}

void bytebuf::put(const char* bytes, size_t n) {
    if (n == 0 || !reserve(static_cast<size_t>(pos) + n)) {
        return;
    }
    memcpy(buffer + pos, bytes, n);
    pos += static_cast<long>(n);
}

char* bytebuf::getEx() const {
    if (pos <= 0) {
        return nullptr;  // like newString of zero bytes
    }
    char* copy = new char[static_cast<size_t>(pos) + 1];
    memcpy(copy, buffer, static_cast<size_t>(pos));
    copy[pos] = '\0';
    return copy;
}

void bytebuf::clear() {
    delete[] buffer;
    buffer = nullptr;
    size = 0;
    pos = 0;
}

}  // namespace tavik
