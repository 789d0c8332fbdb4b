// The lenient JSON text parser: the text is cleaned once (removeGabage), then cut into
// top-level tokens, and keys are paired with values while braced and bracketed tokens are
// cut again at their own level. Tokens are slices of the cleaned text rather than copies, and
// one token stack serves every level, so a nested text is scanned once per level and copied
// only where a key or value is stored.
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

namespace tavik {

namespace {

struct token {
    const char* s;
    size_t n;
    char last() const { return s[n - 1]; }
    bool is(char c) const { return n == 1 && s[0] == c; }
};

const char kColon[] = ":";

// The token state machine. Every byte that goes to the token buffer directly follows the
// previous one (blanks and colons at the top level end a token and are not kept), so a
// token is the slice [start, i).
void cutTokens(const char* s, size_t n, std::vector<token>& out) {
    enum { top = 0, inArray = 1, inObject = 2, inString = 10 };
    int mode = top;
    int openCount = 0;
    bool backSlash = false;
    size_t start = 0;
    bool filled = false;
    auto emit = [&](size_t end) {
        if (filled && end > start) {
            out.push_back({s + start, end - start});
        }
        filled = false;
    };
    auto take = [&](size_t i) {
        if (!filled) {
            start = i;
            filled = true;
        }
    };
    for (size_t i = 0; i < n; i++) {
        char c = s[i];
        if (backSlash || c == '\\') {
            backSlash = !backSlash;
            take(i);
            continue;
        }
        if (mode >= inString) {
            take(i);
            if (c == '"') {
                if (mode == inString + top) {
                    emit(i + 1);
                }
                mode -= inString;
            }
            continue;
        }
        if (mode == inObject || mode == inArray) {
            take(i);
            char open = mode == inObject ? '{' : '[';
            char close = mode == inObject ? '}' : ']';
            if (c == '"') {
                mode += inString;
            } else if (c == open) {
                openCount++;
            } else if (c == close && --openCount == 0) {
                emit(i + 1);
                mode = top;
            }
            continue;
        }
        switch (c) {
            case ' ':
                emit(i);
                break;
            case ':':
                emit(i);
                out.push_back({kColon, 1});
                break;
            case '"':
            case '[':
            case '{':
                emit(i);
                take(i);
                mode = c == '"' ? inString + top : c == '[' ? inArray : inObject;
                openCount = 1;
                break;
            default:
                take(i);
        }
    }
    emit(n);
}

bool braced(const char* s, size_t n, char open, char close) {
    if (n == 0 || s[0] != open || s[n - 1] != close || n < 2) {
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

bool quoted(const token& t) { return t.s[0] == '"' && t.last() == '"'; }

// One pair of surrounding double quotes removed (the parser's only use of removeBrace).
token unquote(const token& t) {
    if (t.n >= 2 && quoted(t)) {
        return {t.s + 1, t.n - 2};
    }
    return t;
}

const char kEscapes[][2] = {{'a', 0x07}, {'b', 0x08}, {'f', 0x0C}, {'n', 0x0A},
                            {'r', 0x0D}, {'t', 0x09}, {'v', 0x0B}};

unsigned int hexValue(const char* s, size_t n) {
    std::string digits(s, n);
    return xtoi(&digits[0]);
}

// Decodes the escapes of s[0, n) into out (which has room for n + 1 bytes) and terminates it.
// A decoded zero byte ends the text there, as it would for any C text.
void unescape(const char* s, size_t n, char* out) {
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
}

char* unescapeToNew(const char* s, size_t n) {
    char* out = new char[n + 1];
    if (!memchr(s, '\\', n)) {
        memcpy(out, s, n);
        out[n] = 0;
    } else {
        unescape(s, n, out);
    }
    return out;
}

// Copies s[0, n) to out (room for n + 1 bytes) with line breaks and TABs outside quoted
// strings dropped and commas there turned into blanks; returns the length written. A
// backslash takes the next byte with it unexamined.
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

}  // namespace

// Walks tokens and fills objects and arrays; groups nested deeper than json::kMaxDepth
// are dropped so that hostile input cannot exhaust the stack.
class jsonParser {
public:
    std::vector<token> tokens;

    void object(json* j, size_t first, size_t end, int depth) {
        int mode = 0;  // 0 expecting a key, 1 expecting a value
        std::string nameHere;
        for (size_t k = first; k < end; k++) {
            token t = tokens[k];
            if (skipped(t)) {
                continue;
            }
            int subMode = braced(t.s, t.n, '{', '}') ? 1 : braced(t.s, t.n, '[', ']') ? 2 : 0;
            if (subMode != 0) {
                if (depth >= json::kMaxDepth) {
                    continue;
                }
                if (subMode == 1 && (nameHere.empty() || mode == 0)) {
                    inside(t, [&](size_t a, size_t b) { object(j, a, b, depth + 1); });
                } else if (subMode == 1) {
                    json* child = new json();
                    inside(t, [&](size_t a, size_t b) { object(child, a, b, depth + 1); });
                    j->add(nameHere.c_str(), child);
                    mode = 0;
                } else {
                    json::array* child = new json::array();
                    inside(t, [&](size_t a, size_t b) { array(child, a, b, depth + 1); });
                    j->add(nameHere.c_str(), child);
                    mode = 0;
                }
                continue;
            }
            if (mode == 1) {
                if (t.n == 4 && memcmp(t.s, "null", 4) == 0) {
                    j->add(nameHere.c_str(), static_cast<jsonObject*>(nullptr));
                } else {
                    jsonObject* node = new jsonObject();
                    node->oType = quoted(t) ? jotString : jotValue;
                    token text = unquote(t);
                    node->p = unescapeToNew(text.s, text.n);
                    j->add(nameHere.c_str(), node);
                }
                mode = 0;
            } else {
                token text = unquote(t);
                char* key = unescapeToNew(text.s, text.n);
                nameHere = key;
                delete[] key;
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
            if (braced(t.s, t.n, '{', '}')) {
                json* child = new json();
                inside(t, [&](size_t a2, size_t b2) { object(child, a2, b2, depth + 1); });
                a->add(child);
            } else if (braced(t.s, t.n, '[', ']')) {
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

    // Cuts the inside of a braced token onto the token stack, lets fill walk it, and
    // takes the tokens off again.
    template <typename Fill>
    void inside(const token& t, Fill fill) {
        size_t base = tokens.size();
        cutTokens(t.s + 1, t.n - 2, tokens);
        size_t end = tokens.size();
        if (end > base) {
            fill(base, end);
        }
        tokens.resize(base);
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
    char* cleaned = new char[to - from + 1];
    size_t n = clean(str + from, to - from, cleaned);
    jsonParser parser;
    cutTokens(cleaned, n, parser.tokens);
    parser.object(this, 0, parser.tokens.size(), 0);
    delete[] cleaned;
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
static void loadTokens(jsonParser& parser, strArr* tokens) {
    for (size_t i = 0; i < tokens->length; i++) {
        const char* t = (*tokens)[i];
        parser.tokens.push_back({t ? t : "", t ? strlen(t) : 0});
    }
}

json* json::subProcess(json* j, strArr* tokens) {
    if (tokens && j) {
        jsonParser parser;
        loadTokens(parser, tokens);
        parser.object(j, 0, parser.tokens.size(), 0);
    }
    return j;
}

json::array* json::subProcess(array* a, strArr* tokens) {
    if (tokens && a) {
        jsonParser parser;
        loadTokens(parser, tokens);
        parser.array(a, 0, parser.tokens.size(), 0);
    }
    return a;
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
