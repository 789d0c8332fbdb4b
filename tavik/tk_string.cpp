// tavik::string and tavik::strArr.
#include "tavik/tk_string.h"

#include <ctype.h>
#include <limits.h>
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <vector>

#include "tavik/tk_common.h"

namespace tavik {

namespace {

char s_emptyText[1] = {0};

char* heapCopy(const char* s, size_t n) {
    char* p = new char[n + 1];
    if (n > 0) {
        memcpy(p, s, n);
    }
    p[n] = 0;
    return p;
}

// n bytes of s as a scratch text, also when n is 0.
char* scratchCopy(const char* s, size_t n) {
    return g_rav[heapCopy(s, n)];
}

size_t clampIndex(long long i, size_t length) {
    if (i < 0) {
        return 0;
    }
    return static_cast<unsigned long long>(i) > length ? length : static_cast<size_t>(i);
}

// Calls piece(start, count) for each piece of text cut at delim, in order. Empty pieces
// inside and at the front are skipped; the rest after the last delimiter is always given.
template <typename Piece>
void cutPieces(const char* text, const char* delim, Piece piece) {
    const size_t delimLength = delim ? strlen(delim) : 0;
    const char* end = text + strlen(text);
    const char* cursor = text;
    const char* match = nullptr;
    if (delimLength > 0) {
        match = strstr(cursor, delim);
    } else if (delim != nullptr && end - text >= 2) {
        // An empty delimiter "matches" at every inner position: single characters.
        match = text + 1;
    }
    while (match) {
        if (match > cursor) {
            piece(cursor, static_cast<size_t>(match - cursor));
        }
        cursor = match + delimLength;
        if (delimLength > 0) {
            match = strstr(cursor, delim);
        } else {
            match = match + 1 < end ? match + 1 : nullptr;
        }
    }
    piece(cursor, static_cast<size_t>(end - cursor));
}

inline bool sameLetter(char a, char b) {
    return tolower(static_cast<unsigned char>(a)) == tolower(static_cast<unsigned char>(b));
}

// Whole-text wildcard match, run as a set of pattern positions over the text so that no
// pattern can make it exponential. A '*' reached at text position i < L lets the rest of the
// pattern start at every position from i to L - 1; a '*' reached at the end of the text, or
// one that ends the pattern, is a match.
bool wildmatch(const char* text, const char* pattern) {
    const size_t patternLength = pattern ? strlen(pattern) : 0;
    if (patternLength == 0) {
        return true;
    }
    const size_t textLength = strlen(text);
    const size_t states = patternLength + 1;
    std::vector<unsigned char> memory(3 * states, 0);
    unsigned char* cur = memory.data();
    unsigned char* next = cur + states;
    unsigned char* absorbing = next + states;
    cur[0] = 1;
    for (size_t i = 0;; ++i) {
        for (size_t j = 0; j < patternLength; ++j) {
            if (!cur[j] || pattern[j] != '*') {
                continue;
            }
            if (i == textLength || j + 1 == patternLength) {
                return true;
            }
            absorbing[j] = 1;
            cur[j + 1] = 1;
        }
        if (i == textLength) {
            return cur[patternLength] != 0;
        }
        memset(next, 0, states);
        const char c = text[i];
        for (size_t j = 0; j < patternLength; ++j) {
            if (!cur[j]) {
                continue;
            }
            const char p = pattern[j];
            if (p == '?' ? c != '.' : (p != '*' && sameLetter(p, c))) {
                next[j + 1] = 1;
            }
        }
        if (i + 1 < textLength) {
            for (size_t j = 0; j < patternLength; ++j) {
                if (absorbing[j]) {
                    next[j + 1] = 1;
                }
            }
        }
        unsigned char* swap = cur;
        cur = next;
        next = swap;
    }
}

}  // namespace

// ---- construction and assignment ----

string::string() : buffer(nullptr) {}

string::string(const char* s) : buffer(s ? heapCopy(s, strlen(s)) : nullptr) {}

string::string(const char* s, unsigned int n) : buffer(nullptr) {
    if (s != nullptr || n == 0) {
        _hold(heapCopy(s, n), n);
    }
}

string::string(int v) : buffer(newFormatString("%d", v)) {}

string::string(const string& other)
    : buffer(other.buffer ? heapCopy(other.buffer, strlen(other.buffer)) : nullptr) {}

string::~string() {
    _release();
}

void string::_hold(char* text, size_t n) {
    delete[] buffer;
    buffer = text;
    _held = text;
    _heldLength = n;
}

void string::_release() {
    _hold(nullptr, 0);
}

void string::_assign(const char* s, size_t n) {
    // Copy first: s may point into the text being replaced.
    _hold(heapCopy(s, n), n);
}

void string::set(const char* s, unsigned int n) {
    if (s == nullptr || n == 0) {
        _release();
        return;
    }
    _assign(s, n);
}

string& string::operator=(const char* s) {
    if (s == nullptr) {
        _release();
    } else {
        _assign(s, strlen(s));
    }
    return *this;
}

string& string::operator=(const string& other) {
    return *this = other.buffer;
}

void string::_append(const char* s, size_t n) {
    const size_t oldLength = getLength();
    char* joined = new char[oldLength + n + 1];
    if (oldLength > 0) {
        memcpy(joined, buffer, oldLength);
    }
    memcpy(joined + oldLength, s, n);
    joined[oldLength + n] = 0;
    _hold(joined, oldLength + n);
}

string& string::operator+=(const char* s) {
    if (s != nullptr) {
        _append(s, strlen(s));
    }
    return *this;
}

string& string::operator+=(char c) {
    if (c != 0) {
        _append(&c, 1);
    }
    return *this;
}

int string::format(const char* fmt, ...) {
    if (fmt == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, fmt);
    va_list measure;
    va_copy(measure, args);
    const int needed = vsnprintf(nullptr, 0, fmt, measure);
    va_end(measure);
    char* text = nullptr;
    if (needed >= 0) {
        text = new char[static_cast<size_t>(needed) + 1];
        vsnprintf(text, static_cast<size_t>(needed) + 1, fmt, args);
        if (strlen(text) != static_cast<size_t>(needed)) {
            // A %c of 0 cut the text short: keep an exact-size copy.
            char* exact = heapCopy(text, strlen(text));
            delete[] text;
            text = exact;
        }
    } else {
        text = heapCopy("-ERR-", 5);
    }
    va_end(args);
    _hold(text, strlen(text));
    return static_cast<int>(strlen(buffer));
}

// ---- reading ----

unsigned int string::getLength() const {
    return buffer ? static_cast<unsigned int>(strlen(buffer)) : 0;
}

char string::charAt(int i) const {
    if (buffer == nullptr || i < 0) {
        return 0;
    }
    // A text taken with an explicit length may hold NULs: its allocated length bounds the
    // read. A buffer of unknown size is read no further than its terminator.
    const size_t at = static_cast<size_t>(i);
    const bool inside = buffer == _held ? at < _heldLength : strnlen(buffer, at + 1) > at;
    return inside ? buffer[i] : 0;
}

char string::operator[](int i) const {
    return charAt(i);
}

int string::intValue() const {
    return buffer ? atoi(buffer) : 0;
}

long string::longValue() const {
    return buffer ? atol(buffer) : 0;
}

long long string::longlongValue() const {
    return buffer ? strtoll(buffer, nullptr, 10) : 0;
}

double string::doubleValue() const {
    return buffer ? atof(buffer) : 0.0;
}

bool string::boolValue() const {
    return buffer && strcasecmp(buffer, "true") == 0;
}

char* string::cloneText() const {
    return newString(buffer);
}

template <bool caseSensitive>
bool string::equals(const char* s) const {
    if (buffer == nullptr || s == nullptr) {
        return buffer == s;
    }
    return (caseSensitive ? strcmp(buffer, s) : strcasecmp(buffer, s)) == 0;
}

template <bool caseSensitive>
bool string::startsWith(const char* s, int from) const {
    if (buffer == nullptr || s == nullptr || from < 0 || static_cast<size_t>(from) > getLength()) {
        return false;
    }
    // strncmp stops at the text's terminator, so a short text is never read past.
    const size_t n = strlen(s);
    return (caseSensitive ? strncmp(buffer + from, s, n) : strncasecmp(buffer + from, s, n)) == 0;
}

template <bool caseSensitive>
bool string::endsWith(const char* s) const {
    const size_t length = getLength();
    if (length == 0 || s == nullptr) {
        return false;
    }
    const size_t n = strlen(s);
    if (length < n) {
        return false;
    }
    const char* tail = buffer + (length - n);
    return (caseSensitive ? memcmp(tail, s, n) : strncasecmp(tail, s, n)) == 0;
}

int string::indexOf(char c, int from) const {
    const size_t length = getLength();
    const size_t start = clampIndex(from, length);
    if (c == 0 || start >= length) {
        return -1;
    }
    const void* found = memchr(buffer + start, c, length - start);
    return found ? static_cast<int>(static_cast<const char*>(found) - buffer) : -1;
}

int string::lastIndexOf(char c) const {
    if (buffer == nullptr || c == 0) {
        return -1;
    }
    const char* found = strrchr(buffer, c);
    return found ? static_cast<int>(found - buffer) : -1;
}

template <bool caseSensitive>
int string::indexOf(const char* s, int from) const {
    if (buffer == nullptr || s == nullptr) {
        return -1;
    }
    const size_t length = getLength();
    const size_t n = strlen(s);
    const size_t start = from < 0 ? 0 : static_cast<size_t>(from);
    if (n > length || start > length - n) {
        return -1;
    }
    if (n == 0) {
        // Only the terminator compares equal to the empty text's first byte.
        return static_cast<int>(length);
    }
    const size_t last = length - n;
    if (caseSensitive) {
        for (size_t p = start; p <= last;) {
            const void* hit = memchr(buffer + p, s[0], last - p + 1);
            if (hit == nullptr) {
                return -1;
            }
            p = static_cast<size_t>(static_cast<const char*>(hit) - buffer);
            if (memcmp(buffer + p, s, n) == 0) {
                return static_cast<int>(p);
            }
            ++p;
        }
        return -1;
    }
    for (size_t p = start; p <= last; ++p) {
        if (sameLetter(buffer[p], s[0]) && strncasecmp(buffer + p, s, n) == 0) {
            return static_cast<int>(p);
        }
    }
    return -1;
}

template <bool caseSensitive>
int string::lastIndexOf(const char* s) const {
    int found = indexOf<caseSensitive>(s, 0);
    if (found < 0 || s[0] == 0) {
        return found;
    }
    const int n = static_cast<int>(strlen(s));
    for (int next = found; next >= 0; next = indexOf<caseSensitive>(s, found + n)) {
        found = next;
    }
    return found;
}

template bool string::equals<true>(const char*) const;
template bool string::equals<false>(const char*) const;
template bool string::startsWith<true>(const char*, int) const;
template bool string::startsWith<false>(const char*, int) const;
template bool string::endsWith<true>(const char*) const;
template bool string::endsWith<false>(const char*) const;
template int string::indexOf<true>(const char*, int) const;
template int string::indexOf<false>(const char*, int) const;
template int string::lastIndexOf<true>(const char*) const;
template int string::lastIndexOf<false>(const char*) const;

bool string::wildmask(const char* pattern) const {
    return wildmatch(buffer ? buffer : "", pattern);
}

bool string::_matches(const char* pattern, bool caseSensitive) const {
    regex_t compiled;
    const int flags = REG_EXTENDED | REG_NOSUB | (caseSensitive ? 0 : REG_ICASE);
    if (pattern == nullptr || regcomp(&compiled, pattern, flags) != 0) {
        throw "Can't compliation for given RegEx patterns";
    }
    const bool found = buffer && regexec(&compiled, buffer, 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

// ---- scratch results ----

char* string::substring(int begin, int end) const {
    if (begin == 0 && end == 0) {
        return s_emptyText;
    }
    if (buffer == nullptr) {
        return nullptr;
    }
    const size_t length = getLength();
    const size_t from = clampIndex(begin, length);
    const size_t to = end == -1 ? length : clampIndex(end, length);
    return scratchCopy(buffer + from, to > from ? to - from : 0);
}

char* string::left(size_t n) const {
    if (buffer == nullptr) {
        return nullptr;
    }
    const size_t length = getLength();
    return scratchCopy(buffer, n < length ? n : length);
}

char* string::right(size_t n) const {
    if (buffer == nullptr) {
        return nullptr;
    }
    const size_t length = getLength();
    const size_t count = n < length ? n : length;
    return scratchCopy(buffer + (length - count), count);
}

char* string::mid(int begin, size_t n) const {
    if (buffer == nullptr) {
        return nullptr;
    }
    const size_t length = getLength();
    const size_t from = clampIndex(begin, length);
    const size_t rest = length - from;
    return scratchCopy(buffer + from, n == 0 || n > rest ? rest : n);
}

char* string::cutTail(int n) const {
    // length - n in full width, then kept in int's range: substring clamps the rest, and its
    // special cases apply (n = length + 1 asks for the end -1, the whole text).
    const long long end = static_cast<long long>(getLength()) - n;
    return substring(0, static_cast<int>(std::clamp<long long>(end, INT_MIN, INT_MAX)));
}

char* string::trim() const {
    return buffer ? tavik::trim(buffer) : nullptr;
}

char* string::ltrim() const {
    return buffer ? tavik::ltrim(buffer) : nullptr;
}

char* string::rtrim() const {
    return buffer ? tavik::rtrim(buffer) : nullptr;
}

char* string::killToken(char c) const {
    return buffer ? tavik::killToken(buffer, c) : nullptr;
}

char* string::replaceWith(char from, char to) const {
    return buffer ? tavik::replaceWith(buffer, from, to) : nullptr;
}

char* string::toLower() {
    return buffer ? strlwr(buffer) : nullptr;
}

char* string::toCapital() {
    return buffer ? strupr(buffer) : nullptr;
}

// ---- splitting ----

strArr* string::split(const char* delim) const {
    strArr* pieces = new strArr(static_cast<size_t>(0));
    if (buffer == nullptr) {
        return pieces;
    }
    size_t count = 0;
    cutPieces(buffer, delim, [&count](const char*, size_t) { ++count; });
    pieces->_new(count);
    size_t i = 0;
    cutPieces(buffer, delim,
              [pieces, &i](const char* start, size_t n) { pieces->buffer[i++]._assign(start, n); });
    return pieces;
}

text_vector* string::split2vector(const char* delim) const {
    if (buffer == nullptr) {
        return nullptr;
    }
    text_vector* pieces = new text_vector();
    cutPieces(buffer, delim,
              [pieces](const char* start, size_t n) { pieces->add(heapCopy(start, n)); });
    if (pieces->size() == 0) {
        delete pieces;
        return nullptr;
    }
    return pieces;
}

// ---- strArr ----

strArr::strArr(size_t n) : buffer(nullptr), length(0) {
    _new(n);
}

strArr::strArr(const char* first, ...) : buffer(nullptr), length(0) {
    va_list args;
    va_start(args, first);
    _collect(first, args);
    va_end(args);
}

strArr::~strArr() {
    delete[] buffer;
}

void strArr::_new(size_t n) {
    delete[] buffer;
    buffer = new string[n];
    length = n;
}

void strArr::_collect(const char* first, va_list args) {
    va_list counting;
    va_copy(counting, args);
    size_t count = 0;
    for (const char* s = first; s != nullptr; s = va_arg(counting, const char*)) {
        ++count;
    }
    va_end(counting);
    _new(count);
    size_t i = 0;
    for (const char* s = first; s != nullptr; s = va_arg(args, const char*)) {
        buffer[i++] = s;
    }
}

void strArr::set(const char* first, ...) {
    va_list args;
    va_start(args, first);
    size_t i = 0;
    for (const char* s = first; s != nullptr && i < length; s = va_arg(args, const char*)) {
        buffer[i++] = s;
    }
    va_end(args);
}

strArr* newStrArr(const char* first, ...) {
    strArr* array = new strArr(static_cast<size_t>(0));
    va_list args;
    va_start(args, first);
    array->_collect(first, args);
    va_end(args);
    return array;
}

}  // namespace tavik
