// The JSON text parser written out step by step, plainly and slowly: clean the text, cut the
// top level into tokens, pair keys with values, and cut every braced or bracketed token again
// at its own level. With the writer's text and the listing of what it builds, a comparison
// with what the library builds, and random texts heavy in the bytes the parser treats
// specially. Shared by json_parser_test and json_fuzz.
#pragma once

#include <stdint.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

namespace ref {

struct node {
    enum kind_t { none, text, value, object, array } kind = object;  // none: a key with no node
    std::string s;
    std::vector<std::string> keys;  // members in first-insertion order
    std::vector<node> kids;         // member nodes, or array elements

    void add(const std::string& key, node&& n) {
        for (size_t i = 0; i < keys.size(); i++) {
            if (keys[i] == key) return void(kids[i] = std::move(n));
        }
        keys.push_back(key);
        kids.push_back(std::move(n));
    }
};

inline std::string removeGabage(const std::string& s) {
    std::string out;
    bool inString = false;
    for (size_t i = 0; i < s.size(); i++) {
        inString ^= s[i] == '"';
        if (s[i] == '\\') {
            out += s.substr(i++, 2);
        } else if (inString || s[i] == '"' || std::string("\r\n\t").find(s[i]) == s.npos) {
            out += !inString && s[i] == ',' ? ' ' : s[i];
        }
    }
    return out;
}

inline std::vector<std::string> getTokens(const std::string& s) {
    std::vector<std::string> tokens;
    std::string buf;
    int mode = 0, openCount = 0;
    bool backSlashMode = false;
    auto emit = [&] {
        if (!buf.empty()) tokens.push_back(buf);
        buf.clear();
    };
    for (char c : s) {
        if (backSlashMode || c == '\\') {
            backSlashMode = !backSlashMode;
            buf += c;
        } else if (mode >= 10) {
            buf += c;
            if (c == '"' && mode == 10) emit();
            if (c == '"') mode -= 10;
        } else if (mode == 1 || mode == 2) {
            buf += c;
            if (c == '"') {
                mode += 10;
            } else if (c == (mode == 1 ? '[' : '{')) {
                openCount++;
            } else if (c == (mode == 1 ? ']' : '}') && --openCount == 0) {
                emit();
                mode = 0;
            }
        } else if (c == ' ' || c == ':') {
            emit();
            if (c == ':') tokens.push_back(":");
        } else if (c == '"' || c == '[' || c == '{') {
            emit();
            buf = c;
            mode = c == '"' ? 10 : c == '[' ? 1 : 2;
            openCount = 1;
        } else {
            buf += c;
        }
    }
    emit();
    return tokens;
}

inline bool isBraceString(const std::string& s, char open, char close) {
    if (s.empty() || s[0] != open || s.back() != close) return false;
    int count = 0;
    bool inString = false;
    for (size_t i = 1; i + 1 < s.size() && count >= 0; i++) {
        if (s[i] == '\\') {
            i++;
        } else if (s[i] == '"') {
            inString = !inString;
        } else if (!inString) {
            count += s[i] == open ? 1 : s[i] == close ? -1 : 0;
        }
    }
    return count == 0;
}

inline std::string removeBrace(const std::string& d, char cStart, char cEnd, bool ignorePair) {
    if (d.size() < 2 || d[0] != cStart || d.back() != cEnd) return d;
    int count = 0;
    for (size_t i = 1; i + 1 < d.size() && count >= 0 && !ignorePair && cStart != cEnd; i++) {
        if (d[i - 1] != '\\') count += d[i] == cStart ? 1 : d[i] == cEnd ? -1 : 0;
    }
    return count == 0 ? d.substr(1, d.size() - 2) : d;
}

inline std::string applyEscape(const std::string& s) {
    static const char table[][2] = {{'a', 0x07}, {'b', 0x08}, {'f', 0x0C}, {'n', 0x0A},
                                    {'r', 0x0D}, {'t', 0x09}, {'v', 0x0B}};
    std::string out;
    bool inQuote = false;
    for (size_t i = 0; i < s.size(); i++) {
        char c = s[i];
        if (c == '"') inQuote = !inQuote;
        if (c != '\\' || inQuote) {
            out += c;
            continue;
        }
        if (i + 1 == s.size()) break;
        char next = s[++i];
        if (next == 'x') {
            size_t end = std::min(s.find(' ', i + 1), s.size());
            out += static_cast<char>(tavik::xtoi(s.substr(i + 1, end - i - 1).c_str()) & 0xFF);
            i = end - 1;
        } else if (next == 'u') {
            std::string four = s.substr(i + 1, 4);  // or as many as are left
            unsigned v = tavik::xtoi(four.c_str()) & 0xFFFF;
            if (v & 0xFF) out += static_cast<char>(v & 0xFF);
            if ((v & 0xFF) && (v >> 8)) out += static_cast<char>(v >> 8);
            i += four.size();
        } else {
            for (auto& e : table) next = e[0] == next ? e[1] : next;
            out += next;
        }
    }
    return out.substr(0, out.find('\0'));  // a C text ends at a decoded zero byte
}

inline bool skipped(const std::string& t) {
    return t.empty() || (t.size() == 1 && std::string(":,\n\r\t").find(t[0]) != std::string::npos);
}

inline void subProcess(node& j, const std::vector<std::string>& tokens);
inline void subProcessArray(node& a, const std::vector<std::string>& tokens);

// A braced token as an object, a bracketed one as an array, filled from its inside.
inline node group(const std::string& t, bool isArray) {
    node n;
    n.kind = isArray ? node::array : node::object;
    (isArray ? subProcessArray : subProcess)(n, getTokens(t.substr(1, t.size() - 2)));
    return n;
}

inline void subProcessArray(node& a, const std::vector<std::string>& tokens) {
    for (const std::string& t : tokens) {
        bool isArray = isBraceString(t, '[', ']');
        if (skipped(t) || (!isArray && !isBraceString(t, '{', '}'))) continue;
        a.kids.push_back(group(t, isArray));
    }
}

inline void subProcess(node& j, const std::vector<std::string>& tokens) {
    int mode = 0;
    std::string name;
    for (const std::string& t : tokens) {
        if (skipped(t)) continue;
        bool isObject = isBraceString(t, '{', '}');
        bool isArray = !isObject && isBraceString(t, '[', ']');
        if (isObject && (name.empty() || mode == 0)) {
            subProcess(j, getTokens(t.substr(1, t.size() - 2)));
        } else if (isObject || isArray) {
            j.add(name, group(t, isArray));
            mode = 0;
        } else if (mode == 0) {
            name = applyEscape(removeBrace(t, '"', '"', false));
            mode = 1;
        } else {
            node child;
            child.kind = t == "null"                       ? node::none
                         : t[0] == '"' && t.back() == '"' ? node::text
                                                          : node::value;
            child.s = t == "null" ? "" : applyEscape(removeBrace(t, '"', '"', false));
            j.add(name, std::move(child));
            mode = 0;
        }
    }
}

struct parsed {
    bool accepted = false;
    std::string wrong;  // latestWrongPacket
    node doc;
};

inline parsed generate(const std::string& str) {
    parsed r;
    size_t from = str.find_first_not_of(' ');
    if (from == std::string::npos || str[from] != '{') {
        r.wrong = str;
        return r;
    }
    std::string trimmed = str.substr(from, str.find_last_not_of(' ') + 1 - from);
    subProcess(r.doc, getTokens(removeGabage(trimmed)));
    r.accepted = true;
    return r;
}

// The writer: members written as they are, then one pass escapes line breaks, TABs and
// backslashes, the quotes of values having been escaped first.
inline void writeNode(const node& n, std::string& out) {
    std::string quoted;
    for (char c : n.s) quoted += c == '"' ? "\\\"" : std::string(1, c);
    const char* open[] = {"null", "\"", "", "{", "["};
    const char* close[] = {"", "\"", "", "}", "]"};
    out += open[n.kind] + (n.kind == node::text || n.kind == node::value ? quoted : "");
    for (size_t i = 0; i < n.kids.size(); i++) {
        out += i ? "," : "";
        if (n.kind == node::object) out += "\"" + n.keys[i] + "\":";
        writeNode(n.kids[i], out);
    }
    out += close[n.kind];
}

inline std::string getDoc(const node& doc) {
    std::string raw, out;
    writeNode(doc, raw);
    for (char c : raw) {
        const char* e = c == '\n' ? "\\n" : c == '\t' ? "\\t" : c == '\r' ? "\\r" : nullptr;
        out += e ? std::string(e) : c == '\\' ? "\\\\" : std::string(1, c);
    }
    return out;
}

// The listing: one TAB per level, bare values left out. The top level lists the contents of
// its objects and arrays when asked; a nested level lists its array elements' numbers only.
inline void listMembers(const node& j, int tab, bool contents, std::string& out) {
    const std::string tabs(tab, '\t');
    static const char* kinds[] = {":null", "", "", ":object", ":array"};
    for (size_t i = 0; i < j.keys.size(); i++) {
        const node& n = j.kids[i];
        if (n.kind == node::value) continue;
        out += tabs + j.keys[i] + (n.kind == node::text ? ":" + n.s : kinds[n.kind]) + "\r\n";
        if (n.kind == node::object && contents) listMembers(n, tab + 1, false, out);
        bool elements = n.kind == node::array && (contents || tab > 1);
        for (size_t e = 0; elements && e < n.kids.size(); e++) {
            out += tabs + "\t[" + std::to_string(e) + "]\r\n";
            if (contents && n.kids[e].kind == node::object) {
                listMembers(n.kids[e], tab + 2, false, out);
            }
        }
    }
}

inline std::string display(const node& doc, const std::string& wrong, const char* prompt,
                           int detail) {
    std::string out = prompt && detail > 0 ? "JSON: " + std::string(prompt) + "\r\n" : "";
    if (prompt && detail <= 1) return out;
    if (doc.keys.empty() && !wrong.empty()) return out + wrong + "\r\n";
    listMembers(doc, 1, !prompt || detail >= 3, out);
    return out;
}

// ---- the library against the reference ----

inline bool operator==(const node& a, const node& b) {
    return a.kind == b.kind && a.s == b.s && a.keys == b.keys && a.kids == b.kids;
}

// What the library holds, as a reference node. A key missing from props (as after remove)
// has no node and is marked.
inline node toNode(tavik::jsonObject* got) {
    node n;
    n.kind = got ? static_cast<node::kind_t>(got->objType() + 1) : node::none;
    n.s = got && got->p ? got->p : "";
    if (n.kind == node::array) {
        auto& list = static_cast<tavik::json::array*>(got)->objList;
        for (auto pos = list.getHeadPosition(); pos;) {
            n.kids.push_back(toNode(list.getNext(&pos)));
        }
    } else if (n.kind == node::object) {
        auto* j = static_cast<tavik::json*>(got);
        for (auto pos = j->keyTable.getHeadPosition(); pos;) {
            n.keys.push_back(j->keyTable.getNext(&pos));
            auto* record = j->props.search(const_cast<char*>(n.keys.back().c_str()));
            n.kids.push_back(toNode(record ? record->value : nullptr));
            n.kids.back().s = record ? n.kids.back().s : "(not in props)";
        }
    }
    return n;
}

// The first difference between the library and the reference on one text, or "".
inline std::string check(const std::string& text) {
    parsed want = generate(text);
    tavik::json j;
    if (j.generate(text.c_str()) != want.accepted) return "generate's result";
    const char* wrong = j.latestWrongPacket.get();
    if (want.wrong != (wrong ? wrong : "")) return "latestWrongPacket";
    if (!(toNode(&j) == want.doc)) return "document";
    if (getDoc(want.doc) != j.getDoc()) return "getDoc";
    return display(want.doc, want.wrong, nullptr, 0) != j.getDisplay() ? "getDisplay" : "";
}

// The parser's separate steps on any text, the helpers also on each token, all on exact-size
// copies so that a read past a text is caught.
inline std::string checkSteps(const std::string& text) {
    auto exact = [](const std::string& t) {
        return std::unique_ptr<char[]>(tavik::newString(t.c_str()));
    };
    auto same = [](const std::string& want, char* got) {
        return want == std::unique_ptr<char[]>(got).get();
    };
    tavik::json j;
    if (!same(removeGabage(text), j.removeGabage(exact(text).get()))) return "removeGabage";
    std::vector<std::string> tokens = getTokens(text);
    tavik::smartPtr<tavik::strArr> got(j.getTokens(exact(text).get()));
    size_t count = got.getPtr() ? got->length : 0;
    if (count != tokens.size() || (got.getPtr() && count == 0)) return "getTokens";  // none: null
    for (size_t i = 0; i <= tokens.size(); i++) {
        const std::string& t = i < tokens.size() ? tokens[i] : text;
        if (i < tokens.size() && t != (*got)[i]) return "getTokens";
        for (const char* p : {"{}f", "[]t", "\"\"f"}) {
            bool ignorePair = p[2] == 't';
            if (isBraceString(t, p[0], p[1]) != j.isBraceString(exact(t).get(), p[0], p[1])) {
                return "isBraceString";
            }
            if (!same(removeBrace(t, p[0], p[1], ignorePair),
                      j.removeBrace(exact(t).get(), p[0], p[1], ignorePair))) {
                return "removeBrace";
            }
        }
        if (!same(applyEscape(t), j.applyEscape(exact(t).get()))) return "applyEscape";
    }
    node object, array;
    array.kind = node::array;
    subProcess(object, tokens);
    subProcessArray(array, tokens);
    tavik::json::array built;
    bool alike = toNode(j.subProcess(&j, got.getPtr())) == object &&
                 toNode(j.subProcess(&built, got.getPtr())) == array;
    return alike ? "" : "subProcess";
}

// ---- random texts: mostly documents of the usual shape, with the bytes the parser treats
// specially mixed in, repeated keys, null, unbalanced groups, text after the closing brace,
// and now and then a couple of hundred levels of nesting ----

class textGenerator {
public:
    explicit textGenerator(uint32_t seed) : rnd(seed) {}

    std::string next() {
        groups = pick(100) == 0 ? 250 : 12;  // a deep text spends most on one chain
        messy = pick(3) != 0;
        std::string s = pick(12) ? "" : any({"  ", " [", "a", "\t", "\"x\""});
        s += pick(10) ? group('{') : noise(pick(60));
        if (pick(4) == 0) s += any({" ", "}", "]", "{", "\"k\" ", "\"", "\\"}) + group('{');
        return s + (pick(4) ? "" : noise(pick(8))) + (pick(10) ? "" : "  ");
    }

private:
    std::mt19937 rnd;
    int groups = 0;     // groups this text may still open
    bool messy = true;  // stray bytes in values, unbalanced groups

    unsigned pick(unsigned n) { return rnd() % n; }
    template <size_t n>
    const char* any(const char* const (&options)[n]) {
        return options[pick(n)];
    }
    std::string noise(unsigned n) {
        std::string s;
        while (n--) {
            s += any({"{", "}", "[", "]", "\"", "\\", ":", ",", " ", "\r", "\n", "\t", "a", "7",
                      "null", "\\x41 ", "\\u0041", "\\n", "\\\""});
        }
        return s;
    }
    std::string quoted() {
        std::string s = "\"";
        for (unsigned n = pick(5); n--;) {
            s += any({"a", "b", " ", ",", ":", "{", "}", "[", "]", "\\\"", "\\\\", "\\n", "\\t",
                      "\\a\\b\\f\\r\\v", "\\x41 ", "\\x4", "\\x", "\\x00 ", "\\u0041", "\\u4142",
                      "\\u41", "\\u", "\\u0000", "\\z", "\\/", "\r\n", "\t", "null", "%d"});
        }
        return s + (messy && pick(8) == 0 ? "\\\"" : "\"");
    }
    std::string key() {
        std::string k = any({"a", "b", "k", "", "n\\tm", "\\u0041", "x y", "#"});
        k = k == "#" ? "k" + std::to_string(pick(60)) : k;
        return pick(10) ? "\"" + k + "\"" : k;
    }
    std::string value() {
        if (groups > 20 || (groups > 0 && pick(4) == 0)) return group(pick(2) ? '{' : '[');
        unsigned choice = pick(6);
        if (choice == 0) return "null";
        if (choice == 1) return any({"1", "-2.5", "true", "word", "1e3", "\"null\""});
        return choice == 2 && messy ? noise(pick(4)) : quoted();
    }
    std::string group(char open) {
        groups--;
        std::string s(1, open);
        unsigned members = groups > 20 ? pick(2) + 1 : pick(200) == 0 ? 60 : pick(5);
        while (members--) {
            if (open == '{') s += key() + any({":", " : ", ":", "", "::"});
            s += value();
            s += members ? any({",", ", ", " ", "\r\n", "\t", "", " , ", "\n", ",,", " :"}) : "";
        }
        if (messy && pick(20) == 0) return s + any({"", "}}", "]]", "}", "]"});
        return s + (open == '{' ? "}" : "]");
    }
};

}  // namespace ref
