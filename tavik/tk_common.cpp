#include "tavik/tk_common.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <uuid/uuid.h>

#include <atomic>

namespace tavik {

charRav<1000>& g_rav = *new charRav<1000>();

namespace {

char* copyBytes(const char* s, size_t n) {
    char* out = new char[n + 1];
    memcpy(out, s, n);
    out[n] = '\0';
    return out;
}

}  // namespace

char* newString(const char* s) {
    return s ? copyBytes(s, strlen(s)) : nullptr;
}

char* newString(const char* s, size_t n) {
    return (s && n) ? copyBytes(s, n) : nullptr;
}

char* newString(const char* s, int from, size_t n) {
    return (s && n && from >= 0) ? copyBytes(s + from, n) : nullptr;
}

char* newFormatStringV(const char* fmt, va_list args) {
    if (fmt == nullptr) {
        return nullptr;
    }
    va_list measure;
    va_copy(measure, args);
    int len = vsnprintf(nullptr, 0, fmt, measure);
    va_end(measure);
    if (len < 0) {
        return nullptr;
    }
    char* out = new char[static_cast<size_t>(len) + 1];
    vsnprintf(out, static_cast<size_t>(len) + 1, fmt, args);
    return out;
}

char* newFormatString(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char* out = newFormatStringV(fmt, args);
    va_end(args);
    return out;
}

char* makeString(const char* s) {
    return g_rav[newString(s)];
}

char* makeString(const char* s, size_t n) {
    return n ? g_rav[newString(s, n)] : nullptr;
}

char* makeString(const char* s, int from, size_t n) {
    return n ? g_rav[newString(s, from, n)] : nullptr;
}

char* makeFormatString(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char* out = newFormatStringV(fmt, args);
    va_end(args);
    return g_rav[out];
}

char* ltrim(const char* s) {
    if (s == nullptr) {
        return nullptr;
    }
    while (*s == ' ') {
        ++s;
    }
    return g_rav[newString(s)];
}

char* rtrim(const char* s) {
    if (s == nullptr) {
        return nullptr;
    }
    size_t n = strlen(s);
    while (n > 0 && s[n - 1] == ' ') {
        --n;
    }
    return g_rav[copyBytes(s, n)];
}

char* trim(const char* s) {
    if (s == nullptr) {
        return nullptr;
    }
    while (*s == ' ') {
        ++s;
    }
    return rtrim(s);
}

char* replaceWith(const char* s, char from, char to) {
    if (s == nullptr) {
        return nullptr;
    }
    char* out = newString(s);
    for (char* p = out; *p; ++p) {
        if (*p == from) {
            *p = to;
        }
    }
    return g_rav[out];
}

char* safeVF(const char* s) {
    if (s == nullptr) {
        return nullptr;
    }
    char* out = new char[strlen(s) * 2 + 1];
    char* w = out;
    for (; *s; ++s) {
        *w++ = *s;
        if (*s == '%') {
            *w++ = '%';
        }
    }
    *w = '\0';
    return g_rav[out];
}

char* killToken(const char* s, char c) {
    if (s == nullptr) {
        return nullptr;
    }
    char* out = new char[strlen(s) + 1];
    char* w = out;
    for (; *s; ++s) {
        if (*s != c) {
            *w++ = *s;
        }
    }
    *w = '\0';
    return g_rav[out];
}

char* strupr(char* s) {
    for (char* p = s; p && *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (islower(c)) {
            *p = static_cast<char>(toupper(c));
        }
    }
    return s;
}

char* strlwr(char* s) {
    for (char* p = s; p && *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (isupper(c)) {
            *p = static_cast<char>(tolower(c));
        }
    }
    return s;
}

namespace {

// Value of one digit in base 16 or 8, or -1 when it is not one.
int digitValue(char c, int base) {
    const char* lower = "0123456789abcdef";
    const char* upper = "0123456789ABCDEF";
    for (int i = 0; i < base; ++i) {
        if (c == lower[i] || c == upper[i]) {
            return i;
        }
    }
    return -1;
}

// base^position modulo 2^64, computed exactly: powers past 64 bits wrap to 0.
uint64_t placeValue(int base, size_t position) {
    size_t bits = position * (base == 16 ? 4 : 3);
    return bits >= 64 ? 0 : uint64_t{1} << bits;
}

// Sum of digit * base^position, walking from the last character; a bad
// digit rejects the text (0) or, with badAsMinusOne, counts as -1.
uint64_t parseDigits(const char* s, int base, bool badAsMinusOne) {
    if (s == nullptr) {
        return 0;
    }
    uint64_t sum = 0;
    size_t len = strlen(s);
    for (size_t pos = 0; pos < len; ++pos) {
        int d = digitValue(s[len - 1 - pos], base);
        if (d < 0 && !badAsMinusOne) {
            return 0;
        }
        sum += static_cast<uint64_t>(static_cast<int64_t>(d)) * placeValue(base, pos);
    }
    return sum;
}

}  // namespace

unsigned int xtoi(const char* s) {
    return static_cast<unsigned int>(parseDigits(s, 16, false));
}

long long xtoll(const char* s) {
    return static_cast<long long>(parseDigits(s, 16, true));
}

unsigned int otoi(const char* s) {
    return static_cast<unsigned int>(parseDigits(s, 8, false));
}

long long otoll(const char* s) {
    return static_cast<long long>(parseDigits(s, 8, false));
}

long long getLongLong(long low, long high) {
    uint64_t hi = static_cast<uint64_t>(high) & 0xffffffffu;
    return static_cast<long long>((hi << 32) | static_cast<uint64_t>(low));
}

long getLowLong(long long v) {
    return static_cast<long>(v);
}

long getHighLong(long long v) {
    return static_cast<long>((static_cast<uint64_t>(v) >> 32) & 0xffffffffu);
}

char* makeUniqueName(const char* prefix) {
    // Starts at the current time in milliseconds times 1000, then counts up.
    static std::atomic<long long> counter{0};
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        counter = (static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000) * 1000 - 1;
    });
    thread_local char buffer[256];
    snprintf(buffer, sizeof buffer, "%s%lld", prefix ? prefix : "", ++counter);
    return buffer;
}

namespace uuid {

char* randomUUID() {
    uuid_t bytes;
    uuid_generate_random(bytes);
    char* text = new char[33]();
    for (int i = 0; i < 16; ++i) {
        char pair[4];
        snprintf(pair, sizeof pair, "%02x ", bytes[i]);
        text[2 * i] = pair[0];
        text[2 * i + 1] = pair[1];
    }
    return g_rav[text];
}

}  // namespace uuid

}  // namespace tavik
