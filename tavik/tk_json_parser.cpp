// The lenient JSON text parser: generate and its separate steps. After the scan has settled
// where every group ends (tk_json_text.h), the builder reads the text once from the first
// byte to the last. At each level it pairs keys with values; at a group it descends into the
// group's inside (a brace string) or takes the group as a word. Levels are kept on an explicit
// stack. The members of an object are collected until it ends and then laid out at once: the
// node, its texts, the map's records and the key list's items all go to the document's arena.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"
#include "tavik/tk_json_arena.h"
#include "tavik/tk_json_text.h"

namespace tavik {

using jsonMemory::arena;
using jsonText::group;

namespace {

const size_t kKeptScratch = 4 << 20;  // parsing scratch a thread keeps between parses

struct member {
    const char* key;
    size_t keyLength;
    jsonObject* node;
};

struct level {
    enum kind_t { object, merge, array } kind;  // a merge level adds to the object around it
    size_t end;        // its text ends here
    size_t resume;     // the level around goes on from here
    size_t nextGroup;  // and with this group
    size_t first;      // where its members or elements start on their stack
    int mode;          // 0 expecting a key, 1 expecting a value
    const char* name;  // the current key
    size_t nameLength;
};

// A stack of plain values, doubling as it grows, whose push is small enough to inline.
template <typename T>
class pile {
public:
    pile() = default;
    pile(const pile&) = delete;
    pile& operator=(const pile&) = delete;
    ~pile() { delete[] _data; }

    void push(const T& v) {
        if (_size == _capacity) {
            grow();
        }
        _data[_size++] = v;
    }
    T* data() { return _data; }
    T& operator[](size_t i) { return _data[i]; }
    T& back() { return _data[_size - 1]; }
    size_t size() const { return _size; }
    void shrink(size_t n) { _size = n; }
    size_t bytes() const { return _capacity * sizeof(T); }
    void release() {
        delete[] _data;
        _data = nullptr;
        _size = _capacity = 0;
    }

private:
    void grow() {
        size_t capacity = _capacity ? 2 * _capacity : 64;
        T* data = new T[capacity];
        if (_size) {
            memcpy(static_cast<void*>(data), _data, _size * sizeof(T));
        }
        delete[] _data;
        _data = data;
        _capacity = capacity;
    }

    T* _data = nullptr;
    size_t _size = 0;
    size_t _capacity = 0;
};

// What parsing needs besides the document, kept per thread between parses.
struct scratch {
    jsonText::scanRoom scan;
    pile<level> levels;
    pile<member> members;
    pile<jsonObject*> elements;
    std::vector<size_t> order;
    std::string word;

    void trim() {
        size_t kept = scan.bytes() + levels.bytes() + members.bytes() + elements.bytes() +
                      order.capacity() * sizeof(size_t) + word.capacity();
        if (kept > kKeptScratch) {
            scan = jsonText::scanRoom();
            levels.release();
            members.release();
            elements.release();
            std::vector<size_t>().swap(order);
            std::string().swap(word);
        }
    }
};

thread_local scratch t_scratch;

bool sameKey(const member& a, const member& b) {
    return a.keyLength == b.keyLength &&
           (a.keyLength == 0 || (a.key[0] == b.key[0] && memcmp(a.key, b.key, a.keyLength) == 0));
}

}  // namespace

class jsonBuilder {
public:
    // Reads text[0, n), whose groups are given, into an empty object or array. With
    // separators, commas outside strings separate tokens as blanks do (the text is a
    // cleaned one but for its commas).
    jsonBuilder(arena* memory, const char* text, size_t n, bool separators, const group* groups,
                scratch& s)
        : _arena(memory), _t(text), _n(n), _separators(separators), _groups(groups), _s(s) {}

    void fill(json* j) {
        run(level::object);
        layOut(j, _s.members.data(), dedupe(0));
        _s.members.shrink(0);
    }
    void fill(json::array* a) {
        run(level::array);
        layOut(a, 0);
        _s.elements.shrink(0);
    }

private:
    arena* _arena;
    const char* _t;
    size_t _n;
    bool _separators;
    const group* _groups;
    scratch& _s;

    template <typename T>
    T* make(size_t extra = 0) {
        void* memory = _arena->take(jsonMemory::kNodeHeader + sizeof(T) + extra);
        void* at = static_cast<char*>(memory) + jsonMemory::kNodeHeader;
        jsonMemory::arenaOf(at) = _arena;
        _arena->retain();
        return new (at) T();
    }

    bool separator(char c) const { return c == ' ' || (c == ',' && _separators); }

    void run(level::kind_t kind) {
        pile<level>& levels = _s.levels;
        levels.shrink(0);
        levels.push({kind, _n, _n, 0, 0, 0, "", 0});
        size_t i = 0;
        size_t g = 0;  // the next group to meet
        for (;;) {
            level& l = levels.back();
            while (i < l.end && separator(_t[i])) {
                i++;
            }
            if (i >= l.end) {
                if (levels.size() == 1) {
                    return;
                }
                i = l.resume;
                g = l.nextGroup;
                endLevel();
                continue;
            }
            char c = _t[i];
            if (c == ':') {
                i++;  // a colon token is skipped
            } else if (c == '{' || c == '[') {
                const group& gr = _groups[g];
                if (!gr.inside) {
                    token(i, gr.end, true, true);
                } else if (levels.size() <= static_cast<size_t>(json::kMaxDepth)) {
                    beginLevel(c == '{', gr);
                    i++;
                    g++;
                    continue;
                }
                i = gr.end;  // a word, or too deep to read
                g = gr.next;
            } else {
                bool escapes = false;
                size_t end = c == '"' ? jsonText::stringEnd(_t, i + 1, l.end, &escapes)
                                      : wordEnd(i, l.end, &escapes);
                token(i, end, false, escapes);
                i = end;
            }
        }
    }

    size_t wordEnd(size_t i, size_t end, bool* escapes) const {
        while (i < end) {
            char c = _t[i];
            if (c == '\\') {
                *escapes = true;
                i += 2;
            } else if (separator(c) || c == ':' || c == '"' || c == '{' || c == '[') {
                return i;
            } else {
                i++;
            }
        }
        return end;
    }

    void beginLevel(bool braces, const group& gr) {
        level& around = _s.levels.back();
        level inner = {level::array, gr.end - 1, gr.end, gr.next, 0, 0, "", 0};
        if (braces && around.kind != level::array && (around.nameLength == 0 || around.mode == 0)) {
            inner.kind = level::merge;
        } else if (braces) {
            inner.kind = level::object;
            inner.first = _s.members.size();
        } else {
            inner.first = _s.elements.size();
        }
        _s.levels.push(inner);
    }

    void endLevel() {
        level done = _s.levels.back();
        _s.levels.shrink(_s.levels.size() - 1);
        if (done.kind == level::merge) {
            return;  // its members went to the object around it
        }
        jsonObject* node;
        if (done.kind == level::object) {
            json* j = make<json>();
            layOut(j, _s.members.data() + done.first, dedupe(done.first));
            _s.members.shrink(done.first);
            node = j;
        } else {
            json::array* a = make<json::array>();
            layOut(a, done.first);
            _s.elements.shrink(done.first);
            node = a;
        }
        level& around = _s.levels.back();
        if (around.kind == level::array) {
            _s.elements.push(node);
        } else {
            _s.members.push({around.name, around.nameLength, node});
            around.mode = 0;
        }
    }

    // A token other than a group read as a level; escapes tells whether it may hold a
    // backslash.
    void token(size_t from, size_t to, bool fromGroup, bool escapes) {
        level& l = _s.levels.back();
        size_t n = to - from;
        if (l.kind == level::array ||
            (n == 1 && (_t[from] == ',' || _t[from] == '\n' || _t[from] == '\r' || _t[from] == '\t'))) {
            return;  // scalars in arrays are dropped; so are these tokens anywhere
        }
        const char* s = _t + from;
        if (fromGroup && _separators) {
            s = cleanedWord(s, n);
        }
        if (l.mode == 0) {
            l.name = text(s, n, escapes, &l.nameLength);
            l.mode = 1;
            return;
        }
        jsonObject* node = nullptr;
        if (n != 4 || memcmp(s, "null", 4) != 0) {
            bool quoted = s[0] == '"' && s[n - 1] == '"';
            node = make<jsonObject>(n + 1);
            node->oType = quoted ? jotString : jotValue;
            node->p = reinterpret_cast<char*>(node) + sizeof(jsonObject);
            node->_inlineText = true;
            unquoted(&s, &n);
            decode(s, n, escapes, node->p);
        }
        _s.members.push({l.name, l.nameLength, node});
        l.mode = 0;
    }

    static void unquoted(const char** s, size_t* n) {
        if (*n >= 2 && (*s)[0] == '"' && (*s)[*n - 1] == '"') {
            ++*s;
            *n -= 2;
        }
    }

    static size_t decode(const char* s, size_t n, bool escapes, char* out) {
        if (escapes) {
            return jsonText::unescape(s, n, out);
        }
        memcpy(out, s, n);
        out[n] = 0;
        return n;
    }

    // A key: the token without its quotes, escapes decoded, kept in the arena.
    const char* text(const char* s, size_t n, bool escapes, size_t* length) {
        unquoted(&s, &n);
        char* out = _arena->room(n + 1);
        *length = decode(s, n, escapes, out);
        _arena->keep(*length + 1);
        return out;
    }

    // A group taken as a word, with its commas outside strings made blanks as cleaning does.
    const char* cleanedWord(const char* s, size_t n) {
        std::string& w = _s.word;
        w.assign(s, n);
        bool inString = false;
        for (size_t i = 0; i < n; i++) {
            if (w[i] == '\\') {
                i++;
            } else if (w[i] == '"') {
                inString = !inString;
            } else if (w[i] == ',' && !inString) {
                w[i] = ' ';
            }
        }
        return w.data();
    }

    // Keeps the first position of each key and the last node given for it, deleting the
    // nodes replaced; returns how many members from first on remain.
    size_t dedupe(size_t first) {
        member* ms = _s.members.data() + first;
        size_t m = _s.members.size() - first;
        size_t kept = 0;
        if (m <= 16) {
            for (size_t i = 0; i < m; i++) {
                size_t k = 0;
                while (k < kept && !sameKey(ms[k], ms[i])) {
                    k++;
                }
                if (k < kept) {
                    jsonObject::dispose(ms[k].node);
                    ms[k].node = ms[i].node;
                } else {
                    ms[kept++] = ms[i];
                }
            }
            return kept;
        }
        std::vector<size_t>& order = _s.order;
        order.resize(m);
        for (size_t i = 0; i < m; i++) {
            order[i] = i;
        }
        std::sort(order.begin(), order.end(), [ms](size_t a, size_t b) {
            size_t n = std::min(ms[a].keyLength, ms[b].keyLength);
            int c = memcmp(ms[a].key, ms[b].key, n);
            if (c != 0 || ms[a].keyLength != ms[b].keyLength) {
                return c != 0 ? c < 0 : ms[a].keyLength < ms[b].keyLength;
            }
            return a < b;
        });
        for (size_t r = 0; r < m;) {
            // order[r] is the key's first position (ties sort by position), its last node
            // the one that stays there.
            size_t run = r + 1;
            while (run < m && sameKey(ms[order[r]], ms[order[run]])) {
                run++;
            }
            for (size_t k = r; k + 1 < run; k++) {
                jsonObject::dispose(ms[order[k]].node);
            }
            ms[order[r]].node = ms[order[run - 1]].node;
            for (size_t k = r + 1; k < run; k++) {
                ms[order[k]].key = nullptr;
            }
            r = run;
        }
        for (size_t i = 0; i < m; i++) {
            if (ms[i].key) {
                ms[kept++] = ms[i];
            }
        }
        return kept;
    }

    void layOut(json* j, const member* ms, size_t m) {
        if (m == 0) {
            return;
        }
        // The records and then the items, in one run (the writer relies on it).
        auto* records = static_cast<json::memberMap::hashData*>(
            _arena->take(m * (sizeof(json::memberMap::hashData) + sizeof(listitem))));
        listitem* items = reinterpret_cast<listitem*>(records + m);
        for (size_t k = 0; k < m; k++) {
            char* key = const_cast<char*>(ms[k].key);
            ::new (records + k) json::memberMap::hashData{&j->props, key, ms[k].node};
            ::new (items + k) listitem{key, k ? items + k - 1 : nullptr, k + 1 < m ? items + k + 1 : nullptr};
        }
        j->props.adopt(records, m, m);
        j->keyTable.itemHead = items;
        j->keyTable.itemTail = items + m - 1;
        j->keyTable.count = m;
        j->_borrowed = _arena;
        j->_firstItem = items;
        j->_borrowedItems = m;
        _arena->retain();
    }

    void layOut(json::array* a, size_t first) {
        size_t m = _s.elements.size() - first;
        if (m == 0) {
            return;
        }
        listitem* items = static_cast<listitem*>(_arena->take(m * sizeof(listitem)));
        for (size_t k = 0; k < m; k++) {
            ::new (items + k) listitem{_s.elements[first + k], k ? items + k - 1 : nullptr,
                                      k + 1 < m ? items + k + 1 : nullptr};
        }
        a->objList.itemHead = items;
        a->objList.itemTail = items + m - 1;
        a->objList.count = m;
        a->_borrowed = _arena;
        a->_firstItem = items;
        a->_borrowedItems = m;
        _arena->retain();
    }
};

namespace {

// Parses text[0, n) as the inside of an empty object or array. With clean, as generate reads
// a document; without, as a level cut from a token is read.
template <typename Target>
void parseLevel(Target* target, const char* text, size_t n, bool clean) {
    scratch& s = t_scratch;
    jsonText::scan(&text, &n, clean, json::kMaxDepth, s.scan);
    arena* memory = arena::create(n * 6 + 256);
    jsonBuilder(memory, text, n, clean, s.scan.groups.data(), s).fill(target);
    memory->release();  // what was made keeps it
    s.trim();
}

}  // namespace

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
    parseLevel(this, str + from, to - from, true);
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

// ---- the separate steps ----

char* json::removeGabage(const char* str) {
    if (!str) {
        return nullptr;
    }
    size_t n = strlen(str);
    char* out = new char[n + 1];
    jsonText::clean(str, n, out);
    return out;
}

strArr* json::getTokens(const char* str) {
    if (!str) {
        return nullptr;
    }
    std::vector<std::pair<const char*, size_t>> cut;
    jsonText::cutTokens(str, strlen(str), [&](const char* s, size_t n) { cut.push_back({s, n}); });
    if (cut.empty()) {
        return nullptr;
    }
    strArr* out = new strArr(cut.size());
    for (size_t i = 0; i < cut.size(); i++) {
        out->ref(i).set(const_cast<char*>(cut[i].first), static_cast<unsigned int>(cut[i].second));
    }
    return out;
}

namespace {

bool skippedToken(const char* t) {
    return !*t || (!t[1] && strchr(":,\n\r\t", *t));
}

// The key or scalar text of a token: its surrounding quotes removed, escapes decoded.
std::string tokenText(const char* t) {
    size_t n = strlen(t);
    if (n >= 2 && t[0] == '"' && t[n - 1] == '"') {
        t++;
        n -= 2;
    }
    std::string out(n + 1, '\0');
    out.resize(jsonText::unescape(t, n, &out[0]));
    return out;
}

}  // namespace

json* json::subProcess(json* j, strArr* tokens) {
    if (!tokens || !j) {
        return j;
    }
    int mode = 0;
    std::string name;
    for (size_t i = 0; i < tokens->length; i++) {
        const char* t = (*tokens)[i] ? (*tokens)[i] : "";
        size_t n = strlen(t);
        if (skippedToken(t)) {
            continue;
        }
        if (jsonText::isBraceString(t, n, '{', '}') && (name.empty() || mode == 0)) {
            json part;  // merged: its members go to j in order
            parseLevel(&part, t + 1, n - 2, false);
            for (listitem* item = part.keyTable.itemHead; item; item = item->next) {
                auto* record = part._record(static_cast<char*>(item->pData));
                j->add(static_cast<char*>(item->pData), record->value);
                record->value = nullptr;
            }
        } else if (jsonText::isBraceString(t, n, '{', '}')) {
            json* child = new json();
            parseLevel(child, t + 1, n - 2, false);
            j->add(name.c_str(), child);
            mode = 0;
        } else if (jsonText::isBraceString(t, n, '[', ']')) {
            array* child = new array();
            parseLevel(child, t + 1, n - 2, false);
            j->add(name.c_str(), child);
            mode = 0;
        } else if (mode == 1) {
            bool quoted = t[0] == '"' && t[n - 1] == '"';
            j->add(name.c_str(), strcmp(t, "null") == 0
                                     ? nullptr
                                     : new jsonObject(tokenText(t).c_str(), !quoted));
            mode = 0;
        } else {
            name = tokenText(t);
            mode = 1;
        }
    }
    return j;
}

json::array* json::subProcess(array* a, strArr* tokens) {
    if (!tokens || !a) {
        return a;
    }
    for (size_t i = 0; i < tokens->length; i++) {
        const char* t = (*tokens)[i] ? (*tokens)[i] : "";
        size_t n = strlen(t);
        if (jsonText::isBraceString(t, n, '{', '}')) {
            json* child = new json();
            parseLevel(child, t + 1, n - 2, false);
            a->add(child);
        } else if (jsonText::isBraceString(t, n, '[', ']')) {
            array* child = new array();
            parseLevel(child, t + 1, n - 2, false);
            a->add(child);
        }
    }
    return a;
}

bool json::isBraceString(const char* str, char open, char close) {
    return str && jsonText::isBraceString(str, strlen(str), open, close);
}

char* json::removeBrace(const char* data, char cStart, char cEnd, bool ignorePair) {
    if (!data) {
        return nullptr;
    }
    size_t n = strlen(data);
    bool strip = n >= 2 && data[0] == cStart && data[n - 1] == cEnd;
    if (strip && !ignorePair && cStart != cEnd) {
        int depth = 0;
        for (size_t i = 1; i + 1 < n && depth >= 0; i++) {
            if (data[i - 1] != '\\') {
                depth += data[i] == cStart ? 1 : data[i] == cEnd ? -1 : 0;
            }
        }
        strip = depth == 0;
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
    jsonText::unescape(str, n, out);
    return out;
}

}  // namespace tavik
