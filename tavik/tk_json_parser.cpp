// The lenient JSON text parser: the text is cleaned once (removeGabage), then cut into
// top-level tokens, and keys are paired with values while braced and bracketed tokens are
// cut again at their own level. Tokens are slices of the cleaned text rather than copies, and
// one token stack serves every level. While cleaning, generate notes where every group ends,
// so each level jumps over its groups instead of scanning them again: every byte is scanned
// a bounded number of times whatever the nesting, and copied only where a key or value is
// stored.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <string>
#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

namespace tavik {

namespace {

const size_t kNone = SIZE_MAX;

// Where a group of the cleaned text ends. Entries are kept in the order the groups open.
struct groupEnd {
    size_t close;  // index of the bracket closing the group, or kNone when none does
    size_t next;   // entry of the first group opening after that bracket
};

struct token {
    const char* s;
    size_t n;
    // The group was closed by its own bracket. Such a token is always a brace string of its
    // kind, so it need not be scanned again; an unterminated one still is.
    bool closed;
    size_t group = kNone;  // the group's entry, for groups cut from the cleaned text
    char last() const { return s[n - 1]; }
    bool is(char c) const { return n == 1 && s[0] == c; }
};

const char kColon[] = ":";
const size_t kKeptBuffers = 4 << 20;  // scratch a thread keeps between parses

// The tokenizer. Escapes come first everywhere (a backslash takes the next byte with it,
// unexamined); at the top level a blank ends a token, a colon is a token of its own, and a
// quoted string or a bracketed or braced group is one token with its delimiters. Inside a
// group only its own kind of bracket is counted, and quoted strings are skipped. Every byte
// of a token directly follows the previous one, so a token is a slice of the text.

// Index just past the string whose opening quote is before i, or n when it is unterminated.
size_t skipString(const char* s, size_t i, size_t n) {
    while (i < n) {
        char c = s[i];
        if (c == '\\') {
            i += 2;
        } else if (c == '"') {
            return i + 1;
        } else {
            i++;
        }
    }
    return n;
}

// Index just past the bracket closing the group opened before i, or n when it is unterminated.
size_t skipGroup(const char* s, size_t i, size_t n, char open, char close, bool* closed) {
    int openCount = 1;
    while (i < n) {
        char c = s[i];
        if (c == '\\') {
            i += 2;
        } else if (c == '"') {
            i = skipString(s, i + 1, n);
        } else if (c == open) {
            openCount++;
            i++;
        } else if (c == close && --openCount == 0) {
            *closed = true;
            return i + 1;
        } else {
            i++;
        }
    }
    return n;
}

// With ends (the group entries of the cleaned text, which starts offset bytes before s, and k
// the entry of the first group in s), a group is not scanned but looked up: the state of
// quotes and escapes at a byte does not depend on the level scanning it, and a group counts
// only its own kind of bracket, so its closing bracket is the one noted while cleaning, when
// that lies within s; otherwise the group runs to the end of s, as the scan would find.
void cutTokens(const char* s, size_t n, std::vector<token>& out, const groupEnd* ends = nullptr,
               size_t offset = 0, size_t k = 0) {
    size_t start = 0;
    bool filled = false;
    auto emit = [&](size_t end) {
        if (filled && end > start) {
            out.push_back({s + start, end - start, false});
        }
        filled = false;
    };
    size_t i = 0;
    while (i < n) {
        char c = s[i];
        if (c == ' ') {
            emit(i);
            i++;
        } else if (c == ':') {
            emit(i);
            out.push_back({kColon, 1, false});
            i++;
        } else if (c == '"' || c == '[' || c == '{') {
            emit(i);
            if (ends && c != '"') {
                const groupEnd& g = ends[k];
                bool closed = g.close != kNone && g.close - offset < n;
                size_t end = closed ? g.close - offset + 1 : n;
                out.push_back({s + i, end - i, closed, k});
                k = g.next;
                i = end;
                continue;
            }
            bool closed = false;
            size_t end = c == '"'   ? skipString(s, i + 1, n)
                         : c == '[' ? skipGroup(s, i + 1, n, '[', ']', &closed)
                                    : skipGroup(s, i + 1, n, '{', '}', &closed);
            out.push_back({s + i, (end < n ? end : n) - i, closed && c != '"'});
            i = end;
        } else {
            if (!filled) {
                start = i;
                filled = true;
            }
            i += c == '\\' ? 2 : 1;
        }
    }
    emit(n);
}

bool braced(const char* s, size_t n, char open, char close) {
    if (n == 0 || s[0] != open || s[n - 1] != close) {
        return false;
    }
    int depth = 0;
    bool inString = false;
    for (size_t i = 1; i + 1 < n; i++) {
        char c = s[i];
        if (c == '\\') {
            i++;
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString) {
            if (c == open) {
                depth++;
            } else if (c == close && --depth < 0) {
                return false;
            }
        }
    }
    return depth == 0;
}

// isBraceString on a token, trusting the tokenizer for groups it closed.
bool braced(const token& t, char open, char close) {
    if (t.closed) {
        return t.s[0] == open;
    }
    return braced(t.s, t.n, open, close);
}

bool quoted(const token& t) {
    return t.s[0] == '"' && t.last() == '"';
}

// One pair of surrounding double quotes removed (the parser's only use of removeBrace).
token unquote(const token& t) {
    if (t.n >= 2 && quoted(t)) {
        return {t.s + 1, t.n - 2, false};
    }
    return t;
}

const char kEscapes[][2] = {{'a', 0x07}, {'b', 0x08}, {'f', 0x0C}, {'n', 0x0A},
                            {'r', 0x0D}, {'t', 0x09}, {'v', 0x0B}};

unsigned int hexValue(const char* s, size_t n) {
    std::string digits(s, n);
    return xtoi(&digits[0]);
}

// Decodes the escapes of s[0, n) into out (which has room for n + 1 bytes), terminates it and
// returns its length. A decoded zero byte ends the text there, as it would for any C text.
size_t unescape(const char* s, size_t n, char* out) {
    if (!memchr(s, '\\', n)) {
        memcpy(out, s, n);
        out[n] = 0;
        return n;
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
            size_t from = i + 1;
            size_t to = from;
            while (to < n && s[to] != ' ') {
                to++;
            }
            out[o++] = static_cast<char>(hexValue(s + from, to - from) & 0xFF);
            i = to - 1;  // the blank after the digits is kept
        } else if (next == 'u') {
            // Four digits, or as many as the text still holds.
            size_t count = n - (i + 1) < 4 ? n - (i + 1) : 4;
            unsigned int v = hexValue(s + i + 1, count) & 0xFFFF;
            i += count;
            char low = static_cast<char>(v & 0xFF);
            char high = static_cast<char>(v >> 8);
            if (low) {
                out[o++] = low;
                if (high) {
                    out[o++] = high;
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
    return strlen(out);  // up to a decoded zero byte, if any
}

// A parsed scalar: its text lives in the node's own allocation, so a member costs one
// allocation fewer. It behaves as any scalar node, and text put into p from outside is
// still freed by the base.
class textNode final : public jsonObject {
public:
    static jsonObject* make(const char* s, size_t n, joType type) {
        void* room = ::operator new(sizeof(textNode) + n + 1);
        textNode* node = ::new (room) textNode();
        node->oType = type;
        node->p = node->text();
        unescape(s, n, node->p);
        return node;
    }
    ~textNode() override {
        if (p == text()) {
            p = nullptr;
        }
    }
    // Unsized, so the node is freed whole with its text.
    static void operator delete(void* room) { ::operator delete(room); }

private:
    textNode() = default;
    char* text() { return reinterpret_cast<char*>(this + 1); }
};

// The group entries of a cleaned text, and the entries of the groups still open, by kind.
struct groupMarks {
    std::vector<groupEnd> ends;
    std::vector<size_t> braces;
    std::vector<size_t> brackets;

    void open(char c) {
        (c == '{' ? braces : brackets).push_back(ends.size());
        ends.push_back({kNone, 0});
    }
    void close(char c, size_t at) {
        std::vector<size_t>& open = c == '}' ? braces : brackets;
        if (!open.empty()) {
            ends[open.back()] = {at, ends.size()};
            open.pop_back();
        }
    }
    void clear() {
        ends.clear();
        braces.clear();
        brackets.clear();
    }
    void release() {
        std::vector<groupEnd>().swap(ends);
        std::vector<size_t>().swap(braces);
        std::vector<size_t>().swap(brackets);
    }
};

// Copies s[0, n) to out (room for n + 1 bytes) with line breaks and TABs outside quoted
// strings dropped and commas there turned into blanks; returns the length written. A
// backslash takes the next byte with it unexamined. With marks, the groups of the cleaned
// text are noted as the tokenizer would find them: its quotes and escapes are these, and the
// bytes dropped or turned into blanks mean nothing to it.
size_t clean(const char* s, size_t n, char* out, groupMarks* marks = nullptr) {
    size_t o = 0;
    bool inString = false;
    for (size_t i = 0; i < n; i++) {
        if (inString) {
            // Inside a string only a quote or a backslash means anything.
            while (i < n && s[i] != '"' && s[i] != '\\') {
                out[o++] = s[i++];
            }
            if (i == n) {
                break;
            }
        }
        char c = s[i];
        if (c == '\\') {
            out[o++] = c;
            if (i + 1 < n) {
                out[o++] = s[++i];
            }
        } else if (c == '"') {
            out[o++] = c;
            inString = !inString;
        } else if (c == ',') {
            out[o++] = ' ';
        } else if (c != '\r' && c != '\n' && c != '\t') {
            if (marks) {
                if (c == '{' || c == '[') {
                    marks->open(c);
                } else if (c == '}' || c == ']') {
                    marks->close(c, o);
                }
            }
            out[o++] = c;
        }
    }
    out[o] = 0;
    return o;
}

}  // namespace

// Walks tokens and fills objects and arrays; groups nested deeper than json::kMaxDepth
// are dropped so that hostile input cannot exhaust the stack.
class jsonParser {
public:
    explicit jsonParser(std::vector<token>& stack, const char* text = nullptr,
                        const groupEnd* groups = nullptr)
        : tokens(stack), base(text), ends(groups) {}

    std::vector<token>& tokens;
    const char* base;      // the cleaned text the tokens were cut from, if any
    const groupEnd* ends;  // its group entries

    void object(json* j, size_t first, size_t end, int depth) {
        j->props.reserve(memberBound(first, end));
        int mode = 0;  // 0 expecting a key, 1 expecting a value
        std::string nameHere;
        for (size_t k = first; k < end; k++) {
            token t = tokens[k];
            if (skipped(t)) {
                continue;
            }
            int subMode = braced(t, '{', '}') ? 1 : braced(t, '[', ']') ? 2 : 0;
            if (subMode != 0) {
                if (depth >= json::kMaxDepth) {
                    continue;
                }
                if (subMode == 1 && (nameHere.empty() || mode == 0)) {
                    inside(t, [&](size_t a, size_t b) { object(j, a, b, depth + 1); });
                } else if (subMode == 1) {
                    inside(t, [&](size_t a, size_t b) {
                        json* child = new json(memberBound(a, b));
                        object(child, a, b, depth + 1);
                        j->_add(nameHere.data(), nameHere.size(), child);
                    });
                    mode = 0;
                } else {
                    json::array* child = new json::array();
                    inside(t, [&](size_t a, size_t b) { array(child, a, b, depth + 1); });
                    j->_add(nameHere.data(), nameHere.size(), child);
                    mode = 0;
                }
                continue;
            }
            if (mode == 1) {
                jsonObject* node = nullptr;
                if (t.n != 4 || memcmp(t.s, "null", 4) != 0) {
                    token text = unquote(t);
                    node = textNode::make(text.s, text.n, quoted(t) ? jotString : jotValue);
                }
                j->_add(nameHere.data(), nameHere.size(), node);
                mode = 0;
            } else {
                token text = unquote(t);
                nameHere.resize(text.n + 1);
                nameHere.resize(unescape(text.s, text.n, &nameHere[0]));
                mode = 1;
            }
        }
    }

    void array(json::array* a, size_t first, size_t end, int depth) {
        for (size_t k = first; k < end; k++) {
            token t = tokens[k];
            if (skipped(t) || depth >= json::kMaxDepth) {
                continue;
            }
            if (braced(t, '{', '}')) {
                inside(t, [&](size_t a2, size_t b2) {
                    json* child = new json(memberBound(a2, b2));
                    object(child, a2, b2, depth + 1);
                    a->add(child);
                });
            } else if (braced(t, '[', ']')) {
                json::array* child = new json::array();
                inside(t, [&](size_t a2, size_t b2) { array(child, a2, b2, depth + 1); });
                a->add(child);
            }
            // every other token is a scalar, and scalars inside arrays are dropped
        }
    }

private:
    static bool skipped(const token& t) {
        return t.n == 0 || t.is(':') || t.is(',') || t.is('\n') || t.is('\r') || t.is('\t');
    }

    // At most this many members come from tokens[first, end): each takes a key and a value.
    size_t memberBound(size_t first, size_t end) const {
        size_t used = 0;
        for (size_t k = first; k < end; k++) {
            used += !skipped(tokens[k]);
        }
        return used / 2;
    }

    // Cuts the inside of a braced token onto the token stack, lets fill walk it, and
    // takes the tokens off again.
    template <typename Fill>
    void inside(const token& t, Fill fill) {
        size_t first = tokens.size();
        if (t.group != kNone) {
            cutTokens(t.s + 1, t.n - 2, tokens, ends, static_cast<size_t>(t.s + 1 - base),
                      t.group + 1);
        } else {
            cutTokens(t.s + 1, t.n - 2, tokens);
        }
        fill(first, tokens.size());
        tokens.resize(first);
    }
};

// ---- generate ----

bool json::generate(const char* str) {
    latestWrongPacket = "";
    reset();
    if (!str || !*str) {
        return false;
    }
    size_t len = strlen(str);
    size_t from = 0;
    while (from < len && str[from] == ' ') {
        from++;
    }
    size_t to = len;
    while (to > from && str[to - 1] == ' ') {
        to--;
    }
    if (to == from || str[from] != '{') {
        latestWrongPacket = str;
        return false;
    }
    // The cleaned text, the token stack and the group marks are kept per thread between
    // parses, up to kKeptBuffers in all: parsing then costs no allocation for them, and no
    // large free in the middle of a parse makes the allocator give the heap back to the system
    // only to fault it in again for the next document.
    static thread_local std::string cleaned;
    static thread_local std::vector<token> stack;
    static thread_local groupMarks marks;
    cleaned.resize(to - from + 1);
    size_t n = clean(str + from, to - from, &cleaned[0], &marks);
    for (size_t open : marks.braces) {
        marks.ends[open].next = marks.ends.size();
    }
    for (size_t open : marks.brackets) {
        marks.ends[open].next = marks.ends.size();
    }
    jsonParser parser(stack, cleaned.data(), marks.ends.data());
    cutTokens(cleaned.data(), n, stack, marks.ends.data());
    parser.object(this, 0, stack.size(), 0);
    stack.clear();
    marks.clear();
    size_t kept = cleaned.capacity() + stack.capacity() * sizeof(token) +
                  marks.ends.capacity() * sizeof(groupEnd) +
                  (marks.braces.capacity() + marks.brackets.capacity()) * sizeof(size_t);
    if (kept > kKeptBuffers) {
        std::string().swap(cleaned);
        std::vector<token>().swap(stack);
        marks.release();
    }
    return true;
}

bool json::generate(byteArr* data) {
    if (!data || data->length == 0) {
        return false;
    }
    string text(reinterpret_cast<const char*>(data->buffer),
                static_cast<unsigned int>(data->length));
    return generate(text.get());
}

// ---- internal steps ----

char* json::removeGabage(const char* str) {
    if (!str) {
        return nullptr;
    }
    size_t n = strlen(str);
    char* out = new char[n + 1];
    clean(str, n, out);
    return out;
}

strArr* json::getTokens(const char* str) {
    if (!str) {
        return nullptr;
    }
    std::vector<token> cut;
    cutTokens(str, strlen(str), cut);
    if (cut.empty()) {
        return nullptr;
    }
    strArr* out = new strArr(cut.size());
    for (size_t i = 0; i < cut.size(); i++) {
        out->ref(i).set(const_cast<char*>(cut[i].s), static_cast<unsigned int>(cut[i].n));
    }
    return out;
}

// The strArr variants run the same walk over tokens given from outside.
template <typename Node, typename Walk>
static Node* walkGiven(Node* node, strArr* tokens, Walk walk) {
    if (tokens && node) {
        std::vector<token> stack;
        for (size_t i = 0; i < tokens->length; i++) {
            const char* t = (*tokens)[i];
            stack.push_back({t ? t : "", t ? strlen(t) : 0, false});
        }
        jsonParser parser(stack);
        walk(parser, node, stack.size());
    }
    return node;
}

json* json::subProcess(json* j, strArr* tokens) {
    return walkGiven(j, tokens, [](jsonParser& p, json* n, size_t end) { p.object(n, 0, end, 0); });
}

json::array* json::subProcess(array* a, strArr* tokens) {
    return walkGiven(a, tokens, [](jsonParser& p, array* n, size_t end) { p.array(n, 0, end, 0); });
}

bool json::isBraceString(const char* str, char open, char close) {
    return str && braced(str, strlen(str), open, close);
}

char* json::removeBrace(const char* data, char cStart, char cEnd, bool ignorePair) {
    if (!data) {
        return nullptr;
    }
    size_t n = strlen(data);
    if (n < 2 || data[0] != cStart || data[n - 1] != cEnd) {
        return newString(data);
    }
    bool strip = ignorePair || cStart == cEnd;
    if (!strip) {
        int depth = 0;
        strip = true;
        for (size_t i = 1; i + 1 < n; i++) {
            if (data[i - 1] == '\\') {
                continue;
            }
            if (data[i] == cStart) {
                depth++;
            } else if (data[i] == cEnd && --depth < 0) {
                strip = false;
                break;
            }
        }
        strip = strip && depth == 0;
    }
    if (!strip) {
        return newString(data);
    }
    char* out = new char[n - 1];
    memcpy(out, data + 1, n - 2);
    out[n - 2] = 0;
    return out;
}

char* json::applyEscape(const char* str) {
    if (!str) {
        return newString("");
    }
    size_t n = strlen(str);
    char* out = new char[n + 1];
    unescape(str, n, out);
    return out;
}

}  // namespace tavik
