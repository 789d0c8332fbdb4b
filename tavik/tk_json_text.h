// Internal to the JSON facility: the text side of the parser.
//
// The parser reads a document the way its steps describe: clean the text, cut it into tokens,
// pair keys with values, and cut every braced or bracketed token again at its own level. Each
// level counts only its own kind of bracket, so a group ends where its kind's count returns to
// zero, or runs to the end of the level that holds it; such an unterminated group is read as
// a level only when it still ends with its closing character and its count is back at one just
// before that (a brace string), and as a word otherwise. scan() works all of that out in one
// pass, for every group at once; the builder then reads the text once, from the first byte to
// the last, descending into groups instead of cutting them again.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tavik {
namespace jsonText {

// A group: a '{' or '[' where a token may start, with everything up to its end.
struct group {
    size_t end;   // just past its token
    size_t next;  // the first group opening at or after end
    bool inside;  // a brace string: its inside is read as a level of its own
};

// A group not closed yet, during scan().
struct openGroup {
    size_t ordinal;  // in groups
    size_t at;       // its opening character
    long before;     // its kind's count before it opened
    int kind;        // 0 braces, 1 brackets
};

// What scan() works in, kept by the caller between scans.
struct scanRoom {
    std::vector<group> groups;  // the result
    std::string copy;           // the cleaned text, when cleaning drops anything
    std::vector<openGroup> open;
    std::vector<size_t> ofKind[2];  // indexes into open, by kind

    size_t bytes() const {
        return groups.capacity() * sizeof(group) + copy.capacity() +
               open.capacity() * sizeof(openGroup) +
               (ofKind[0].capacity() + ofKind[1].capacity()) * sizeof(size_t);
    }
};

// Fills room.groups with the groups of text[0, n) in the order they open, deeper than maxDepth
// levels left out (the groups a level maxDepth + 1 deep are there). With clean, the text is
// read as cleaned: line breaks and TABs outside strings are dropped, and when there are any
// the cleaned text is written to room.copy and *text and *n are set to it; commas stay (the
// builder takes those outside strings as blanks).
void scan(const char** text, size_t* n, bool clean, size_t maxDepth, scanRoom& room);

// The text's top-level tokens (quoted strings, colons, groups, words), given to take(s, n).
template <typename Take>
void cutTokens(const char* s, size_t n, Take take);

// Steps of the parser on plain texts.
size_t clean(const char* s, size_t n, char* out);  // out has room for n + 1; returns its length
bool isBraceString(const char* s, size_t n, char open, char close);
// Decodes the escapes of s[0, n) into out (room for n + 1), terminates it, returns the length
// up to the first zero byte.
size_t unescape(const char* s, size_t n, char* out);

// The first double quote or backslash in [p, end), or end. Most of a document is quoted text,
// so this is where the parser spends most of its reading: sixteen bytes at a time.
inline const char* findQuoteOrBackslash(const char* p, const char* end) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    for (; end - p >= 16; p += 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        int found = _mm_movemask_epi8(
            _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)));
        if (found) {
            return p + __builtin_ctz(static_cast<unsigned>(found));
        }
    }
#endif
    while (p < end && *p != '"' && *p != '\\') {
        p++;
    }
    return p;
}

// Index just past the quoted string whose opening quote is before i, or n when it runs to
// the end; *escapes tells whether it holds a backslash.
inline size_t stringEnd(const char* s, size_t i, size_t n, bool* escapes = nullptr) {
    for (;;) {
        i = static_cast<size_t>(findQuoteOrBackslash(s + i, s + n) - s);
        if (i >= n) {
            return n;
        }
        if (s[i] == '"') {
            return i + 1;
        }
        if (escapes) {
            *escapes = true;
        }
        i += 2;
        if (i >= n) {
            return n;
        }
    }
}

// ---- cutTokens ----

inline size_t skipGroup(const char* s, size_t i, size_t n, char open, char close) {
    for (int count = 1; i < n;) {
        char c = s[i];
        if (c == '"') {
            i = stringEnd(s, i + 1, n);
            continue;
        }
        i += c == '\\' ? 2 : 1;
        count += c == open ? 1 : c == close ? -1 : 0;
        if (count == 0) {
            return i;
        }
    }
    return n;
}

template <typename Take>
void cutTokens(const char* s, size_t n, Take take) {
    size_t start = 0;
    bool word = false;
    for (size_t i = 0; i < n;) {
        char c = s[i];
        if (c == ' ' || c == ':' || c == '"' || c == '[' || c == '{') {
            if (word) {
                take(s + start, i - start);
            }
            word = false;
            size_t end = c == '"'   ? stringEnd(s, i + 1, n)
                         : c == '[' ? skipGroup(s, i + 1, n, '[', ']')
                         : c == '{' ? skipGroup(s, i + 1, n, '{', '}')
                                    : i + 1;
            if (c != ' ') {
                take(s + i, (end < n ? end : n) - i);
            }
            i = end;
        } else {
            start = word ? start : i;
            word = true;
            i += c == '\\' ? 2 : 1;
        }
    }
    if (word) {
        take(s + start, n - start);
    }
}

}  // namespace jsonText
}  // namespace tavik
