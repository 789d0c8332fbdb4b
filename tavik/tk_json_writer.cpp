// Writing a json back to one line of text (getDoc) and the tab-indented debug listing
// (getDisplay, displayAll). Both results go to the scratch pool. Objects and arrays are
// written from an explicit stack of the ones open, so a deep document needs heap, not stack.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

namespace tavik {

// A growing text buffer whose result is handed to the scratch pool. It doubles its room,
// so a large document is written in linear time; getDoc keeps one writer per thread, which
// sizes each new buffer by the last document written.
class jsonWriter {
public:
    jsonWriter() : _buf(new char[1024]), _len(0), _cap(1024) {}
    ~jsonWriter() { delete[] _buf; }

    void put(char c) {
        room(1);
        _buf[_len++] = c;
    }
    void put(const char* s, size_t n) {
        room(n);
        memcpy(_buf + _len, s, n);
        _len += n;
    }
    void put(const char* s) {
        if (s) {
            put(s, strlen(s));
        }
    }
    void tabs(int count) {
        // the indentation of the listing is at most nine TABs
        static const char kTabs[] = "\t\t\t\t\t\t\t\t\t";
        put(kTabs, static_cast<size_t>(count < 0 ? 0 : count > 9 ? 9 : count));
    }
    const char* text() const { return _buf; }

    // getDoc's writing of a node and everything under it.
    void document(jsonObject* root);
    // The text, handed to the scratch pool.
    char* toScratch() {
        put('\0');
        char* out = _buf;
        _buf = nullptr;
        return g_rav[out];
    }
    // getDoc: the document written into a buffer sized like the last one this writer wrote,
    // which then goes to the scratch pool as it is, or as a fitting copy when it is far too
    // big; writing the same kind of document again takes one allocation and no copy.
    char* documentToScratch(jsonObject* root) {
        delete[] _buf;
        _cap = _lastLength + _lastLength / 64 + 2 * kStep;
        _buf = new char[_cap];
        _len = 0;
        document(root);
        _lastLength = _len;
        put('\0');
        char* out = _buf;
        if (_cap - _len > _len / 4 + 256) {
            out = new char[_len];
            memcpy(out, _buf, _len);
            delete[] _buf;
        }
        _buf = nullptr;
        _cap = _len = 0;
        return g_rav[out];
    }

private:
    // getDoc writes through a cursor d into _buf (_len is behind it until the end), asking
    // for room before each step: enough for texts of up to kHead bytes whatever they hold.
    static const int kHead = 16;     // bytes of a text escaped one at a time
    static const size_t kSlack = 8;  // room left after a text, for what closes it
    static const size_t kStep = 2 + 3 * kHead + kSlack;
    static const size_t kAhead = 4;  // members ahead whose nodes are fetched early

    char* reserve(char* d, size_t n) {
        if (static_cast<size_t>(_buf + _cap - d) < n) {
            _len = static_cast<size_t>(d - _buf);
            room(n);
            d = _buf + _len;
        }
        return d;
    }
    static char* escape(char* d, char c, uint8_t e) {
        *d++ = '\\';
        *d++ = static_cast<char>(e);
        if (c == '"') {
            *d++ = '"';  // \" : the quote's escape, doubled
        }
        return d;
    }
    // Text as getDoc writes it: a value has its double quotes escaped first; then TAB, CR
    // and LF become two-character escapes and every backslash is doubled, so an escaped
    // quote comes out as two backslashes and a quote. Needs room for 3 * kHead + kSlack
    // bytes at d and leaves room for kSlack after the text.
    char* text(char* d, const char* s, const uint8_t* escapeOf) {
        if (!s) {
            return d;
        }
        // Most texts are short: their bytes one at a time, with room for whatever they are.
        for (int k = 0; k < kHead; k++, s++) {
            uint8_t e = escapeOf[static_cast<uint8_t>(*s)];
            if (!e) {
                *d++ = *s;
            } else if (!*s) {
                return d;
            } else {
                d = escape(d, *s, e);
            }
        }
        _len = static_cast<size_t>(d - _buf);
        longText(s, strlen(s), escapeOf);
        return _buf + _len;
    }
    void longText(const char* s, size_t n, const uint8_t* escapeOf);

    // For each byte, what follows the backslash it is written with, or 0 when it is written
    // as it is: in keys and in values (where a quote also gets one). The zero byte ends a text.
    struct escapes {
        uint8_t key[256] = {};
        uint8_t value[256] = {};
        escapes() {
            for (uint8_t* t : {key, value}) {
                t[0] = 1;  // the end of the text
                t[static_cast<uint8_t>('\n')] = 'n';
                t[static_cast<uint8_t>('\t')] = 't';
                t[static_cast<uint8_t>('\r')] = 'r';
                t[static_cast<uint8_t>('\\')] = '\\';
            }
            value[static_cast<uint8_t>('"')] = '\\';
        }
    };
    static const escapes kEscapes;

    void room(size_t n) {
        if (_len + n <= _cap) {
            return;
        }
        size_t cap = _cap * 2;
        while (cap < _len + n) {
            cap *= 2;
        }
        char* grown = new char[cap];
        memcpy(grown, _buf, _len);
        delete[] _buf;
        _buf = grown;
        _cap = cap;
    }

    // Writes node: a scalar or null at once, an object or array opened and pushed.
    char* value(char* d, jsonObject* node);
    char* member(char* d, const char* key, jsonObject* node);
    static size_t inStep(json* j);

    // An object or array being written, and where it has got to.
    struct openNode {
        json* object;    // null for an array
        listitem* next;  // the next key or element
        size_t record;   // objects: the record expected for the next key
        size_t records;  // objects read straight from their records: how many
        bool first;
    };
    std::vector<openNode> _open;

    char* _buf;
    size_t _len;
    size_t _cap;
    size_t _lastLength = 0;
};

const jsonWriter::escapes jsonWriter::kEscapes;

// ---- getDoc ----

// The rest of a text past its first bytes: n bytes, none of them zero. Runs with nothing to
// escape are copied sixteen bytes at a time.
void jsonWriter::longText(const char* s, size_t n, const uint8_t* escapeOf) {
    room(3 * n + kSlack);
    char* d = _buf + _len;
    const char* end = s + n;
#if defined(__SSE2__)
    auto is = [](__m128i v, char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
    const char quote = escapeOf[static_cast<uint8_t>('"')] ? '"' : '\\';
    while (end - s >= 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        __m128i special = _mm_or_si128(_mm_or_si128(is(bytes, '\\'), is(bytes, quote)),
                                       _mm_or_si128(_mm_or_si128(is(bytes, '\n'), is(bytes, '\t')),
                                                    is(bytes, '\r')));
        // there is room for sixteen bytes here whatever comes of them
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), bytes);
        int found = _mm_movemask_epi8(special);
        if (!found) {
            s += 16;
            d += 16;
            continue;
        }
        int at = __builtin_ctz(static_cast<unsigned>(found));
        s += at;
        d = escape(d + at, *s, escapeOf[static_cast<uint8_t>(*s)]);
        s++;
    }
#endif
    for (; s < end; s++) {
        uint8_t e = escapeOf[static_cast<uint8_t>(*s)];
        if (e) {
            d = escape(d, *s, e);
        } else {
            *d++ = *s;
        }
    }
    _len = static_cast<size_t>(d - _buf);
}

inline char* jsonWriter::value(char* d, jsonObject* node) {
    d = reserve(d, kStep);
    if (!node) {
        memcpy(d, "null", 4);
        return d + 4;
    }
    // A parsed scalar is a plain node: its kind is known without a call.
    joType type = node->_inlineText ? node->oType : node->objType();
    if (type == jotObject) {
        *d++ = '{';
        json* object = static_cast<json*>(node);
        size_t records = inStep(object);
        for (size_t k = 0; k < records && k < kAhead; k++) {
            __builtin_prefetch(object->props._data[k].value);
            __builtin_prefetch(object->props._data[k].key);
        }
        _open.push_back({object, object->keyTable.itemHead, 0, records, true});
    } else if (type == jotArray) {
        *d++ = '[';
        _open.push_back({nullptr, static_cast<json::array*>(node)->objList.itemHead, 0, 0, true});
    } else if (type == jotString) {
        *d++ = '"';
        d = text(d, node->p, kEscapes.value);
        *d++ = '"';
    } else {
        d = text(d, node->p, kEscapes.value);
    }
    return d;
}

inline char* jsonWriter::member(char* d, const char* key, jsonObject* node) {
    d = reserve(d, kStep);
    *d++ = '"';
    d = text(d, key, kEscapes.key);
    *d++ = '"';
    *d++ = ':';
    return value(d, node);
}

// Objects as {...} in keyTable order, arrays as [...], scalars quoted or bare by kind, and a
// missing node as null.
void jsonWriter::document(jsonObject* root) {
    _open.clear();
    char* d = value(_buf + _len, root);
    while (!_open.empty()) {
        openNode& o = _open.back();
        d = reserve(d, kSlack);
        if (o.records) {
            if (o.record == o.records) {
                *d++ = '}';
                _open.pop_back();
                continue;
            }
            const json::memberMap::hashData* records = o.object->props._data;
            if (o.record + kAhead < o.records) {
                // the next members' nodes are seldom in the cache yet
                __builtin_prefetch(records[o.record + kAhead].value);
                __builtin_prefetch(records[o.record + kAhead].key);
            }
            const json::memberMap::hashData& r = records[o.record++];
            if (o.record > 1) {
                *d++ = ',';
            }
            d = member(d, r.key, r.value);  // may move o
            continue;
        }
        listitem* item = o.next;
        if (!item) {
            *d++ = o.object ? '}' : ']';
            _open.pop_back();
            continue;
        }
        o.next = item->next;
        if (!o.first) {
            *d++ = ',';
        }
        o.first = false;
        if (!o.object) {
            if (item->next) {
                __builtin_prefetch(item->next->pData);
            }
            d = value(d, static_cast<jsonObject*>(item->pData));  // may move o
            continue;
        }
        // A record that holds the very key text of its item is taken in step; the others
        // are looked up, without sorting.
        char* key = static_cast<char*>(item->pData);
        json::memberMap& props = o.object->props;
        jsonObject* node = nullptr;
        if (o.record < props.count && props._data[o.record].key == key) {
            node = props._data[o.record++].value;
        } else if (auto* record = props.find(key)) {
            node = record->value;
        }
        d = member(d, key, node);  // may move o
    }
    _len = static_cast<size_t>(d - _buf);
}

// How many records to write straight from the map, without walking keyTable: all of them
// when they are still as the parser laid them out, in keyTable order next to its items (no
// lookup has sorted them and no key has been added or removed), else none.
size_t jsonWriter::inStep(json* j) {
    size_t n = j->_borrowedItems;
    auto* laidOut = reinterpret_cast<json::memberMap::hashData*>(j->_firstItem) - n;
    bool same = n && j->props.neededSort && j->props.count == n && j->keyTable.count == n &&
                j->props._data == laidOut;
    return same ? n : 0;
}

char* json::getDoc() {
    static thread_local jsonWriter out;  // keeps the stack of open nodes and the last length
    return out.documentToScratch(this);
}

char* json::getSafeDoubleQuotation(const char* value) {
    if (!value) {
        return nullptr;
    }
    jsonWriter out;
    for (const char* s = value; *s; s++) {
        if (*s == '"') {
            out.put('\\');
        }
        out.put(*s);
    }
    return out.toScratch();
}

// ---- dump ----

// The member lines of one object indented by tab TABs. Only the top level (tab 1) goes on to
// list the contents of object members and array elements, so a nested listing shows one
// level; array element lines are left out only at the top level without contents.
void json::_displayAll(jsonWriter& out, int tab, bool contents) {
    bool top = tab == 1;
    auto pos = keyTable.getHeadPosition();
    while (pos) {
        char* key = keyTable.getNext(&pos);
        jsonObject* node = _member(key, nullptr);
        if (node && node->objType() == jotValue) {
            continue;  // bare values are not listed
        }
        out.tabs(tab);
        out.put(key);
        if (!node) {
            out.put(":null\r\n");
        } else if (node->objType() == jotString) {
            out.put(':');
            out.put(node->p);
            out.put("\r\n");
        } else if (node->objType() == jotObject) {
            out.put(":object\r\n");
            if (top && contents) {
                static_cast<json*>(node)->_displayAll(out, tab + 1, false);
            }
        } else {
            out.put(":array\r\n");
            if (top && !contents) {
                continue;
            }
            auto* arr = static_cast<array*>(node);
            unsigned long i = 0;
            auto item = arr->objList.getHeadPosition();
            while (item) {
                jsonObject* element = arr->objList.getNext(&item);
                out.tabs(tab + 1);
                char line[32];
                snprintf(line, sizeof line, "[%lu]\r\n", i++);
                out.put(line);
                if (top && element && element->objType() == jotObject) {
                    static_cast<json*>(element)->_displayAll(out, tab + 2, false);
                }
            }
        }
    }
}

void json::_displayAll(jsonWriter& out, const char* prompt) {
    if (prompt) {
        if (displayAllDetails == 0) {
            return;
        }
        out.put("JSON: ");
        out.put(prompt);
        out.put("\r\n");
        if (displayAllDetails == 1) {
            return;
        }
    }
    if (getKeyCount() == 0 && !latestWrongPacket.isEmpty()) {
        out.put(latestWrongPacket.get());
        out.put("\r\n");
        latestWrongPacket = "";  // shown once
        return;
    }
    _displayAll(out, 1, !prompt || displayAllDetails >= 3);
}

char* json::getDisplay() {
    jsonWriter out;
    _displayAll(out, static_cast<const char*>(nullptr));
    return out.toScratch();
}

void json::displayAll(const char* prompt) {
    jsonWriter listing;
    _displayAll(listing, prompt);
    listing.put('\0');
    // "%%" prints as one '%', as a formatted print of the listing would; nothing in the
    // listing is ever taken as a conversion.
    jsonWriter out;
    for (const char* s = listing.text(); *s; s++) {
        out.put(*s);
        if (s[0] == '%' && s[1] == '%') {
            s++;
        }
    }
    out.put('\0');
    fputs(out.text(), stdout);
}

}  // namespace tavik
