// tavik::string owns one exact-size, NUL-terminated heap text (a null buffer means "no text",
// distinct from ""); tavik::strArr is a fixed array of them. The slicing and filtering members
// (substring ... replaceWith) return scratch texts of the pool g_rav: read at once, never free,
// copy what you keep. split, split2vector, newStrArr and cloneText results belong to the caller.
// Not locked: one thread owns a string or strArr at a time.
#ifndef TAVIK_TK_STRING_H_
#define TAVIK_TK_STRING_H_

#include <cstddef>
#include <cstdarg>

#include "tavik/tk_vector.h"

namespace tavik {

class strArr;

// Owned texts (removing an item deletes its text); what split2vector returns.
typedef vector<char*, true> text_vector;

class string {
public:
    char* buffer;

    string();
    string(const char* s);
    // Copies exactly n bytes (embedded NULs included); string(nullptr, 0) is an allocated "".
    string(const char* s, unsigned int n);
    string(int v);
    string(const string& other);
    virtual ~string();

    // Releases the old text and copies n bytes of s; n = 0 or a null s leave the string null.
    void set(const char* s, unsigned int n);
    string& operator=(const char* s);
    string& operator=(const string& other);
    string& operator+=(const char* s);
    string& operator+=(char c);
    // Replaces the text with the formatted one and returns its length; "-ERR-" when the
    // format cannot be measured, 0 (text unchanged) for a null fmt.
    int format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    char* get() const { return buffer; }
    unsigned int getLength() const;
    unsigned int length() const { return getLength(); }
    bool isEmpty() const { return getLength() == 0; }
    // The byte at i, also past an embedded NUL of a text set with an explicit length; 0
    // outside the allocated text (up to the terminator for a buffer assigned from outside).
    char charAt(int i) const;
    virtual char operator[](int i) const;

    int intValue() const;
    long longValue() const;
    long long longlongValue() const;
    double doubleValue() const;
    // True exactly for "true" in any case.
    bool boolValue() const;
    // Heap copy of the text (null for no text); the caller frees it with delete[].
    char* cloneText() const;

    // <true> compares bytes, <false> ignores case. A null string equals only a null text.
    template <bool caseSensitive = true>
    bool equals(const char* s) const;
    // Whether s stands at offset from; false for a null string or an offset outside the text.
    template <bool caseSensitive = true>
    bool startsWith(const char* s, int from = 0) const;
    // False for a null or empty string and when the string is shorter than s.
    template <bool caseSensitive = true>
    bool endsWith(const char* s) const;

    int indexOf(char c, int from = 0) const;
    int lastIndexOf(char c) const;
    // First match at or after from, or -1. An empty s is found at the end of the text.
    template <bool caseSensitive = true>
    int indexOf(const char* s, int from = 0) const;
    // Start of the last match, searching on from the end of each match (no overlaps).
    template <bool caseSensitive = true>
    int lastIndexOf(const char* s) const;

    // Whole-text wildcard match ignoring case: '*' any run, '?' one character but never a
    // dot; an empty pattern matches anything and a '*' reached at the end of the text matches.
    bool wildmask(const char* pattern) const;
    // Unanchored POSIX extended regular-expression search. Throws the const char*
    // "Can't compliation for given RegEx patterns" when the pattern does not compile.
    bool _matches(const char* pattern, bool caseSensitive) const;

    // Scratch results (see the top of this file). Offsets and counts outside the text are
    // clamped to it; a null string gives null, except substring(0, 0).
    // substring(0, 0) is a static empty text; end = -1 means to the end of the text.
    char* substring(int begin, int end) const;
    char* left(size_t n) const;
    char* right(size_t n) const;
    // n = 0 means to the end of the text.
    char* mid(int begin, size_t n) const;
    // substring(0, length - n): the text without its last n bytes, with substring's special
    // cases (n = length gives the static empty text, n = length + 1 the whole text).
    char* cutTail(int n) const;
    // Only blanks (0x20) are trimmed.
    char* trim() const;
    char* ltrim() const;
    char* rtrim() const;
    char* killToken(char c) const;
    char* replaceWith(char from, char to) const;

    // Convert the string's own buffer in place and return it.
    char* toLower();
    char* toCapital();

    // Pieces between delimiters; empty pieces inside and at the front are dropped, the last
    // piece is always kept (even when empty). An empty delimiter cuts into single characters,
    // a null one keeps the text whole. The caller deletes the result; a null string gives an
    // empty array.
    strArr* split(const char* delim) const;
    // The same pieces as owned texts; null instead of an empty vector. The caller deletes it.
    text_vector* split2vector(const char* delim) const;

    // Takes n bytes of s as the new text (always allocated, also for n = 0).
    void _assign(const char* s, size_t n);

private:
    void _release();
    void _append(const char* s, size_t n);
    // Takes text (n bytes and a terminator, array new) as the buffer, releasing the old one.
    void _hold(char* text, size_t n);

    // The buffer whose allocated length is known, and that length without the terminator.
    const char* _held = nullptr;
    size_t _heldLength = 0;
};

// A fixed-length array of strings; indices are never checked against length by ref().
class strArr {
public:
    string* buffer;
    size_t length;

    explicit strArr(size_t n);
    // Copies the texts up to the terminating null pointer.
    strArr(const char* first, ...) __attribute__((sentinel));
    strArr(const strArr&) = delete;
    strArr& operator=(const strArr&) = delete;
    virtual ~strArr();

    // Assigns the texts up to the terminating null pointer to elements 0, 1, ...; texts
    // beyond length are ignored.
    void set(const char* first, ...) __attribute__((sentinel));
    // Destroys the old elements and allocates n fresh null strings.
    void _new(size_t n);
    // Resizes to the count of the listed texts and copies them.
    void _collect(const char* first, va_list args);

    // Element i, or null past the end.
    string* get(size_t i) const { return i < length ? &buffer[i] : nullptr; }
    string& ref(size_t i) { return buffer[i]; }
    // The text of element i (may be null); null past the end.
    virtual char* operator[](size_t i) { return i < length ? buffer[i].buffer : nullptr; }
};

// Heap array of copies of the texts up to the terminating null pointer; the caller deletes it.
strArr* newStrArr(const char* first, ...) __attribute__((sentinel));

}  // namespace tavik

#endif  // TAVIK_TK_STRING_H_
