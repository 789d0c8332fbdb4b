// The text side of the JSON parser: the one-pass structure scan, cleaning, brace strings and
// escapes.
#include "tavik/tk_json_text.h"

#include <stdint.h>
#include <string.h>

#include "tavik/tk_common.h"

namespace tavik {
namespace jsonText {

namespace {

const size_t kNone = SIZE_MAX;

// Byte classes of the scan.
enum : uint8_t { kPlain, kQuote, kEscape, kDropped, kOpen, kClose };

struct byteClasses {
    uint8_t of[256] = {};
    byteClasses() {
        of[static_cast<uint8_t>('"')] = kQuote;
        of[static_cast<uint8_t>('\\')] = kEscape;
        of[static_cast<uint8_t>('\r')] = of[static_cast<uint8_t>('\n')] = kDropped;
        of[static_cast<uint8_t>('\t')] = kDropped;
        of[static_cast<uint8_t>('{')] = of[static_cast<uint8_t>('[')] = kOpen;
        of[static_cast<uint8_t>('}')] = of[static_cast<uint8_t>(']')] = kClose;
    }
};
const byteClasses kClasses;

// The scan of one text. Every '{' or '[' outside strings and escapes opens a group, and
// the groups not closed yet are nested one in the other: each is read, for now, as a level
// of its own. A closing character of a kind brings its kind's count down; when the count is
// back where it was before the innermost open group of that kind opened, that group ends
// there, and every group opened inside it since runs to the end of its inside: these are
// settled from the outside in (settle()).
class scanner {
public:
    scanner(size_t maxDepth, scanRoom& room)
        : _maxDepth(maxDepth), _groups(room.groups), _open(room.open), _ofKind(room.ofKind) {
        _groups.clear();
        _open.clear();
        _ofKind[0].clear();
        _ofKind[1].clear();
    }

    // Reads text[from, n), writing it to out from o on when out is given; returns where it
    // stopped: n, or the first dropped byte when out is null and clean is set.
    size_t run(const char* s, size_t from, size_t n, bool clean, char* out) {
        _text = out ? out : s;
        for (size_t i = from; i < n;) {
            uint8_t kind = kClasses.of[static_cast<uint8_t>(s[i])];
            if (kind == kPlain) {
                size_t start = i;
                while (++i < n && kClasses.of[static_cast<uint8_t>(s[i])] == kPlain) {
                }
                put(s + start, i - start, out);
            } else if (kind == kQuote) {
                i = string(s, i, n, out);
            } else if (kind == kEscape) {
                size_t pair = i + 1 < n ? 2 : 1;
                put(s + i, pair, out);
                i += pair;
            } else if (kind == kDropped && clean) {
                if (!out) {
                    return i;
                }
                i++;
            } else {
                if (kind == kOpen) {
                    open(s[i] == '{' ? 0 : 1);
                } else if (kind == kClose) {
                    close(s[i] == '}' ? 0 : 1);
                }
                put(s + i, 1, out);
                i++;
            }
        }
        return n;
    }

#if defined(__SSE2__)
    // run() without out, 64 bytes at a time: for a whole block, masks tell which bytes are
    // escaped and which lie inside strings, and only the brackets outside are visited.
    size_t runBlocks(const char* s, size_t n, bool clean) {
        _text = s;
        bool escapeCarry = false;  // the block before ended in an unpaired backslash
        uint64_t inString = 0;     // all ones when a string runs on from the block before
        for (size_t base = 0; base < n; base += 64) {
            char padded[64];
            const char* block = s + base;
            if (n - base < 64) {
                memset(padded, 0, sizeof padded);
                memcpy(padded, block, n - base);
                block = padded;
            }
            masks m = classify(block);
            uint64_t escaped = escapedBytes(m.backslashes, &escapeCarry);
            uint64_t strings = prefixXor(m.quotes & ~escaped) ^ inString;
            inString = 0 - (strings >> 63);
            uint64_t outside = ~strings & ~escaped;
            uint64_t dropped = clean ? m.dropped & outside : 0;
            if (dropped) {
                unsigned at = static_cast<unsigned>(__builtin_ctzll(dropped));
                brackets(block, base, m.brackets & outside & ((uint64_t{1} << at) - 1));
                _o = base + at;
                return base + at;
            }
            brackets(block, base, m.brackets & outside);
        }
        _o = n;
        return n;
    }
#endif

    // Settles the groups still open: they run to the end of the text.
    void finish() { settle(0, _o); }

    size_t length() const { return _o; }

private:
    // A counted bracket among the last ones, to take the counts back a few bytes.
    struct counted {
        size_t at;
        int kind;
        int step;
    };

#if defined(__SSE2__)
    // Bit i stands for byte i of a 64-byte block.
    struct masks {
        uint64_t quotes, backslashes, brackets, dropped;
    };

    static masks classify(const char* block) {
        masks m = {0, 0, 0, 0};
        for (int k = 0; k < 4; k++) {
            __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 16 * k));
            __m128i folded = _mm_or_si128(bytes, _mm_set1_epi8(0x20));  // '[' ']' as '{' '}'
            auto is = [](__m128i v, char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
            auto bits = [k](__m128i found) {
                return static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(found)))
                       << (16 * k);
            };
            m.quotes |= bits(is(bytes, '"'));
            m.backslashes |= bits(is(bytes, '\\'));
            m.brackets |= bits(_mm_or_si128(is(folded, '{'), is(folded, '}')));
            m.dropped |= bits(_mm_or_si128(_mm_or_si128(is(bytes, '\r'), is(bytes, '\n')),
                                           is(bytes, '\t')));
        }
        return m;
    }

    // The bytes taken by the backslash before them; backslashes are rare, so a loop over them.
    static uint64_t escapedBytes(uint64_t backslashes, bool* carry) {
        uint64_t escaped = *carry ? 1 : 0;
        uint64_t left = backslashes & ~escaped;
        *carry = false;
        while (left) {
            unsigned i = static_cast<unsigned>(__builtin_ctzll(left));
            if (i == 63) {
                *carry = true;
                break;
            }
            escaped |= uint64_t{2} << i;
            left &= ~(uint64_t{3} << i);
        }
        return escaped;
    }

    // Bit i is the parity of the quotes up to byte i: set inside strings and on their
    // opening quotes.
    static uint64_t prefixXor(uint64_t x) {
        for (int shift = 1; shift < 64; shift *= 2) {
            x ^= x << shift;
        }
        return x;
    }

    void brackets(const char* block, size_t base, uint64_t found) {
        while (found) {
            unsigned i = static_cast<unsigned>(__builtin_ctzll(found));
            found &= found - 1;
            _o = base + i;
            char c = block[i];
            if (c == '{' || c == '[') {
                open(c == '{' ? 0 : 1);
            } else {
                close(c == '}' ? 0 : 1);
            }
        }
    }
#endif

    void put(const char* s, size_t n, char* out) {
        if (out) {
            memcpy(out + _o, s, n);
        }
        _o += n;
    }

    // Copies a quoted string from its opening quote at i; returns the index past it.
    size_t string(const char* s, size_t i, size_t n, char* out) {
        size_t end = stringEnd(s, i + 1, n);
        put(s + i, end - i, out);
        return end;
    }

    void note(int kind, int step) {
        _last[2] = _last[1];
        _last[1] = _last[0];
        _last[0] = {_o, kind, step};
        _count[kind] += step;
    }

    // The count of kind just after the byte at.
    long countAfter(int kind, size_t at) const {
        long count = _count[kind];
        for (const counted& c : _last) {
            if (c.step != 0 && c.at > at && c.kind == kind) {
                count -= c.step;
            }
        }
        return count;
    }

    void open(int kind) {
        if (_open.size() <= _maxDepth) {  // deeper ones only count
            _ofKind[kind].push_back(_open.size());
            _open.push_back({_groups.size(), _o, _count[kind], kind});
            _groups.push_back({0, 0, false});
        }
        note(kind, 1);
    }

    void close(int kind) {
        std::vector<size_t>& ofKind = _ofKind[kind];
        if (!ofKind.empty() && _open[ofKind.back()].before == _count[kind] - 1) {
            size_t index = ofKind.back();
            settle(index + 1, _o);
            const openGroup& g = _open[index];
            _groups[g.ordinal] = {_o + 1, _groups.size(), true};
            ofKind.pop_back();
            _open.pop_back();
        }
        note(kind, -1);
    }

    // The groups from _open[from] on run to end: each is a word, or a brace string whose
    // inside ends one byte earlier, where the next one then ends.
    void settle(size_t from, size_t end) {
        bool read = true;
        for (size_t k = from; k < _open.size(); k++) {
            const openGroup& g = _open[k];
            if (read) {
                char closing = g.kind == 0 ? '}' : ']';
                bool inside = end >= g.at + 2 && _text[end - 1] == closing &&
                              countAfter(g.kind, end - 2) == g.before + 1;
                _groups[g.ordinal] = {end, _groups.size(), inside};
                read = inside;
                end--;
            }
            _ofKind[g.kind].pop_back();
        }
        _open.resize(from);
    }

    size_t _maxDepth;
    std::vector<group>& _groups;
    const char* _text = nullptr;  // what the output positions refer to
    size_t _o = 0;                // output position
    long _count[2] = {0, 0};
    counted _last[3] = {{kNone, 0, 0}, {kNone, 0, 0}, {kNone, 0, 0}};
    std::vector<openGroup>& _open;
    std::vector<size_t>* _ofKind;  // indexes into _open, by kind
};

}  // namespace

void scan(const char** text, size_t* n, bool clean, size_t maxDepth, scanRoom& room) {
    scanner s(maxDepth, room);
#if defined(__SSE2__)
    size_t stop = s.runBlocks(*text, *n, clean);
#else
    size_t stop = s.run(*text, 0, *n, clean, nullptr);
#endif
    if (stop < *n) {
        // A line break or TAB to drop: go on writing the cleaned text.
        std::string& copy = room.copy;
        copy.resize(*n);
        memcpy(&copy[0], *text, stop);
        s.run(*text, stop, *n, clean, &copy[0]);
        copy.resize(s.length());
        *text = copy.data();
        *n = copy.size();
    }
    s.finish();
}

size_t clean(const char* s, size_t n, char* out) {
    size_t o = 0;
    bool inString = false;
    for (size_t i = 0; i < n; i++) {
        char c = s[i];
        if (c == '\\') {
            out[o++] = c;
            if (i + 1 < n) {
                out[o++] = s[++i];
            }
        } else if (c == '"') {
            out[o++] = c;
            inString = !inString;
        } else if (inString) {
            out[o++] = c;
        } else if (c == ',') {
            out[o++] = ' ';
        } else if (c != '\r' && c != '\n' && c != '\t') {
            out[o++] = c;
        }
    }
    out[o] = 0;
    return o;
}

bool isBraceString(const char* s, size_t n, char open, char close) {
    if (n == 0 || s[0] != open || s[n - 1] != close) {
        return false;
    }
    int count = 0;
    bool inString = false;
    for (size_t i = 1; i + 1 < n; i++) {
        char c = s[i];
        if (c == '\\') {
            i++;
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString) {
            if (c == open) {
                count++;
            } else if (c == close && --count < 0) {
                return false;
            }
        }
    }
    return count == 0;
}

namespace {
const char kEscapes[][2] = {{'a', 0x07}, {'b', 0x08}, {'f', 0x0C}, {'n', 0x0A},
                            {'r', 0x0D}, {'t', 0x09}, {'v', 0x0B}};

unsigned int hexValue(const char* s, size_t n) {
    char digits[64];
    if (n >= sizeof digits) {
        // Only the last two digits reach the low byte; a bad digit anywhere gives 0.
        for (size_t i = 0; i + 2 < n; i++) {
            if (!strchr("0123456789abcdefABCDEF", s[i]) || s[i] == 0) {
                return 0;
            }
        }
        s += n - 2;
        n = 2;
    }
    memcpy(digits, s, n);
    digits[n] = 0;
    return xtoi(digits);
}
}  // namespace

size_t unescape(const char* s, size_t n, char* out) {
    const char* backslash = static_cast<const char*>(memchr(s, '\\', n));
    if (!backslash) {
        memcpy(out, s, n);
        out[n] = 0;
        const char* zero = static_cast<const char*>(memchr(out, 0, n));
        return zero ? static_cast<size_t>(zero - out) : n;
    }
    size_t o = 0;
    bool inQuote = false;
    for (size_t i = 0; i < n; i++) {
        char c = s[i];
        if (c == '"') {
            inQuote = !inQuote;
        }
        if (c != '\\' || inQuote) {
            out[o++] = c;
            continue;
        }
        if (i + 1 == n) {
            break;  // a backslash at the very end is dropped
        }
        char next = s[++i];
        if (next == 'x') {
            size_t to = i + 1;
            while (to < n && s[to] != ' ') {
                to++;
            }
            out[o++] = static_cast<char>(hexValue(s + i + 1, to - i - 1) & 0xFF);
            i = to - 1;  // the blank after the digits is kept
        } else if (next == 'u') {
            // Four digits, or as many as the text still holds.
            size_t count = n - (i + 1) < 4 ? n - (i + 1) : 4;
            unsigned int v = hexValue(s + i + 1, count) & 0xFFFF;
            i += count;
            if (v & 0xFF) {
                out[o++] = static_cast<char>(v & 0xFF);
                if (v >> 8) {
                    out[o++] = static_cast<char>(v >> 8);
                }
            }
        } else {
            char mapped = next;
            for (const auto& e : kEscapes) {
                if (e[0] == next) {
                    mapped = e[1];
                    break;
                }
            }
            out[o++] = mapped;
        }
    }
    out[o] = 0;
    const char* zero = static_cast<const char*>(memchr(out, 0, o));
    return zero ? static_cast<size_t>(zero - out) : o;
}

}  // namespace jsonText
}  // namespace tavik
