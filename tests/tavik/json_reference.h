// The JSON text parser written out step by step, plainly and slowly: clean the text, cut the
// top level into tokens, pair keys with values, cut every group again at its own level. With
// the writer, the listing, a comparison with the library and random texts heavy in the bytes
// the parser treats specially. Shared by json_parser_test and json_fuzz.
#pragma once

#include <stdint.h>

#include <algorithm>
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

    explicit node(kind_t k = object, const std::string& text = "") : kind(k), s(text) {}
    void add(const std::string& key, node&& n) {
        size_t i = std::find(keys.begin(), keys.end(), key) - keys.begin();
        if (i == keys.size()) keys.push_back(key);
        kids.resize(keys.size());
        kids[i] = std::move(n);
    }
};

inline std::string removeGabage(const std::string& s) {
    std::string out;
    bool inString = false;
    for (size_t i = 0; i < s.size(); i++) {
        inString ^= s[i] == '"';
        if (s[i] == '\\') {
            out += s.substr(i++, 2);
        } else if (inString || std::string("\r\n\t").find(s[i]) == std::string::npos) {
            out += !inString && s[i] == ',' ? ' ' : s[i];
        }
    }
    return out;
}

inline std::vector<std::string> getTokens(const std::string& s) {
    std::vector<std::string> tokens;
    std::string buf;
    int mode = 0, openCount = 0;  // 0 top level, 1 array, 2 object; +10 in a quoted string
    bool backSlashMode = false;
    auto emit = [&](const std::string& start) {
        if (!buf.empty()) tokens.push_back(buf);
        buf = start;
    };
    for (char c : s) {
        if (mode == 0 && !backSlashMode && std::string(" :\"[{").find(c) != std::string::npos) {
            emit(c == ' ' || c == ':' ? "" : std::string(1, c));
            if (c == ':') tokens.push_back(":");
            mode = c == '"' ? 10 : c == '[' ? 1 : c == '{' ? 2 : 0;
            openCount = 1;
            continue;
        }
        buf += c;
        const char* pair = mode == 1 ? "[]" : "{}";
        if (backSlashMode || c == '\\') {
            backSlashMode = !backSlashMode;
        } else if (mode >= 10 && c == '"') {
            if ((mode -= 10) == 0) emit("");
        } else if (mode == 1 || mode == 2) {
            mode += c == '"' ? 10 : 0;
            openCount += c == pair[0] ? 1 : c == pair[1] ? -1 : 0;
            if (openCount == 0) {
                emit("");
                mode = 0;
            }
        }
    }
    emit("");
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
    const std::string letters = "abfnrtv", controls = "\a\b\f\n\r\t\v";
    std::string out;
    bool inQuote = false;
    for (size_t i = 0; i < s.size(); i++) {
        inQuote ^= s[i] == '"';
        if (s[i] != '\\' || inQuote) {
            out += s[i];
        } else if (++i < s.size() && s[i] == 'x') {
            size_t end = std::min(s.find(' ', i), s.size());
            out += static_cast<char>(tavik::xtoi(s.substr(i + 1, end - i - 1).c_str()) & 0xFF);
            i = end - 1;
        } else if (i < s.size() && s[i] == 'u') {
            std::string four = s.substr(i + 1, 4);  // or as many as are left
            unsigned v = tavik::xtoi(four.c_str()) & 0xFFFF;
            std::string bytes{static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
            out += bytes.substr(0, bytes.find('\0'));
            i += four.size();
        } else if (i < s.size()) {  // a last backslash is dropped
            size_t k = letters.find(s[i]);
            out += k == std::string::npos ? s[i] : controls[k];
        }
    }
    return out.substr(0, out.find('\0'));  // a C text ends at a decoded zero byte
}

// Members of an object or elements of an array, from the tokens of its inside.
inline void subProcess(node& j, const std::vector<std::string>& tokens) {
    int mode = 0;  // 0: a key comes next, 1: its value
    std::string name;
    for (const std::string& t : tokens) {
        if (t.empty() || (t.size() == 1 && std::string(":,\n\r\t").find(t) != t.npos)) continue;
        node n(isBraceString(t, '{', '}')       ? node::object
               : isBraceString(t, '[', ']')     ? node::array
               : t == "null"                    ? node::none
               : t[0] == '"' && t.back() == '"' ? node::text
                                                : node::value);
        if (n.kind == node::object && j.kind == node::object && (name.empty() || mode == 0)) {
            subProcess(j, getTokens(t.substr(1, t.size() - 2)));  // merged into this object
        } else if (n.kind == node::object || n.kind == node::array) {
            subProcess(n, getTokens(t.substr(1, t.size() - 2)));
            j.kind == node::array ? j.kids.push_back(std::move(n)) : j.add(name, std::move(n));
            mode = 0;
        } else if (j.kind == node::array) {  // scalars in an array are dropped
        } else if (mode == 0) {
            name = applyEscape(removeBrace(t, '"', '"', false));
            mode = 1;
        } else {
            n.s = n.kind == node::none ? "" : applyEscape(removeBrace(t, '"', '"', false));
            j.add(name, std::move(n));
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
    r.accepted = from != std::string::npos && str[from] == '{';
    if (!r.accepted) r.wrong = str;
    std::string trimmed = r.accepted ? str.substr(from, str.find_last_not_of(' ') + 1 - from) : "";
    subProcess(r.doc, getTokens(removeGabage(trimmed)));
    return r;
}

// The writer: members written as they are, then one pass escapes line breaks, TABs and
// backslashes, the quotes of values having been escaped first.
inline void writeNode(const node& n, std::string& out) {
    const char* open[] = {"null", "\"", "", "{", "["};
    const char* close[] = {"", "\"", "", "}", "]"};
    out += open[n.kind];
    for (char c : n.kind == node::none ? "" : n.s) out += c == '"' ? "\\\"" : std::string(1, c);
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

// The first difference between the library and the reference on one text, or "".
inline std::string check(const std::string& text) {
    parsed want = generate(text);
    tavik::json j;
    if (j.generate(text.c_str()) != want.accepted) return "generate's result";
    if (getDoc(want.doc) != j.getDoc()) return "getDoc";
    // The listing of an empty document is the rejected text, if any.
    return display(want.doc, want.wrong, nullptr, 0) != j.getDisplay() ? "getDisplay" : "";
}

// The parser's separate steps on any text, the helpers also on each token, all on exact-size
// copies so that a read past a text is caught. Each result the library returns is freed.
inline std::string checkSteps(const std::string& text) {
    using owned = std::unique_ptr<char[]>;
    auto exact = [](const std::string& t) { return owned(tavik::newString(t.c_str())); };
    auto same = [](const std::string& want, char* got) { return want == owned(got).get(); };
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
            char o = p[0], c = p[1];
            bool pair = p[2] == 't', brace = isBraceString(t, o, c);  // pair: ignorePair
            if (brace != j.isBraceString(exact(t).get(), o, c)) return "isBraceString";
            if (!same(removeBrace(t, o, c, pair), j.removeBrace(exact(t).get(), o, c, pair))) {
                return "removeBrace";
            }
        }
        if (!same(applyEscape(t), j.applyEscape(exact(t).get()))) return "applyEscape";
    }
    node object, list(node::array);  // the array is written as a member of the object
    subProcess(object, tokens);
    subProcess(list, tokens);
    object.add("[]", std::move(list));
    j.subProcess(&j, got.getPtr())->add("[]", j.subProcess(new tavik::json::array, got.getPtr()));
    return getDoc(object) == j.getDoc() ? "" : "subProcess";
}

// Random texts: mostly documents of the usual shape, with the bytes the parser treats specially,
// repeated keys, null, unbalanced groups, trailing text, now and then hundreds of levels deep.

struct textGenerator {
    explicit textGenerator(uint32_t seed) : rnd(seed) {}
    std::string next() {
        groups = pick(100) == 0 ? 250 : 12;  // a deep text spends most on one chain
        messy = pick(3) != 0;
        std::string s = pick(12) ? "" : any({"  ", " [", "a", "\t", "\"x\""});
        s += pick(10) ? group('{') : noise(pick(60));
        if (pick(4) == 0) s += any({" ", "}", "]", "{", "\"k\" ", "\"", "\\"}) + group('{');
        return s + (pick(4) ? "" : noise(pick(8))) + (pick(10) ? "" : "  ");
    }

    std::mt19937 rnd;
    int groups = 0;     // groups this text may still open
    bool messy = true;  // stray bytes in values, unbalanced groups

    unsigned pick(unsigned n) { return rnd() % n; }
    template <size_t n>
    const char* any(const char* const (&options)[n]) { return options[pick(n)]; }
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
                      "\\u41", "\\u", "\\u0000", "\\z", "\\/", "\r\n", "\t", "null", "%d",
                      "\\x0000000000000000000000000000000000000000000000000000000000004142 "});
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
        if (choice == 1) return any({"1", "-2.5", "true", "nulz", "1e3", "\"null\""});
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
