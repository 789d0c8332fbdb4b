// Writing a json back to one line of text (getDoc) and the tab-indented debug listing
// (getDisplay, displayAll). Both results go to the scratch pool. Objects and arrays are
// written from an explicit stack of the ones open, so a deep document needs heap, not stack.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

namespace tavik {

// A growing text buffer whose result is handed to the scratch pool. It doubles its room,
// so a large document is written in linear time, and getDoc keeps one per thread between
// calls, so that writing a large document again does not grow a fresh buffer.
class jsonWriter {
public:
    jsonWriter() : _buf(new char[1024]), _len(0), _cap(1024) {}
    ~jsonWriter() { delete[] _buf; }

    void clear() {
        _len = 0;
        if (_cap > kKept) {
            delete[] _buf;
            _buf = new char[1024];
            _cap = 1024;
        }
    }

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
    // Text as getDoc writes it: a value has its double quotes escaped first; then TAB, CR
    // and LF become two-character escapes and every backslash is doubled, so an escaped
    // quote comes out as two backslashes and a quote.
    void escaped(const char* s, bool quoteToo) {
        if (!s) {
            return;
        }
        // A run of at most 64 bytes at a time, for which there is room whatever they are.
        const uint8_t* escapeOf = quoteToo ? kEscapes.value : kEscapes.key;
        for (;;) {
            room(3 * 64);
            char* d = _buf + _len;
            for (int k = 0; k < 64; k++, s++) {
                uint8_t e = escapeOf[static_cast<uint8_t>(*s)];
                if (!e) {
                    *d++ = *s;
                    continue;
                }
                if (!*s) {
                    _len = static_cast<size_t>(d - _buf);
                    return;
                }
                *d++ = '\\';
                *d++ = static_cast<char>(e);
                if (*s == '"') {
                    *d++ = '"';  // \" : the quote's escape, doubled
                }
            }
            _len = static_cast<size_t>(d - _buf);
        }
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
    // A copy of the text, handed to the scratch pool; the buffer stays.
    char* copyToScratch() {
        char* out = new char[_len + 1];
        memcpy(out, _buf, _len);
        out[_len] = 0;
        return g_rav[out];
    }

private:
    static const size_t kKept = 1 << 22;

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
    void value(jsonObject* node);
    void member(const char* key, jsonObject* node);
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
};

const jsonWriter::escapes jsonWriter::kEscapes;

// ---- getDoc ----

void jsonWriter::value(jsonObject* node) {
    if (!node) {
        put("null", 4);
        return;
    }
    joType type = node->objType();
    if (type == jotObject) {
        put('{');
        json* object = static_cast<json*>(node);
        _open.push_back({object, object->keyTable.itemHead, 0, inStep(object), true});
    } else if (type == jotArray) {
        put('[');
        _open.push_back({nullptr, static_cast<json::array*>(node)->objList.itemHead, 0, 0, true});
    } else if (type == jotString) {
        put('"');
        escaped(node->p, true);
        put('"');
    } else {
        escaped(node->p, true);
    }
}

// Objects as {...} in keyTable order, arrays as [...], scalars quoted or bare by kind, and a
// missing node as null.
void jsonWriter::document(jsonObject* root) {
    _open.clear();
    value(root);
    while (!_open.empty()) {
        openNode& o = _open.back();
        if (o.records) {
            if (o.record == o.records) {
                put('}');
                _open.pop_back();
                continue;
            }
            const json::memberMap::hashData& r = o.object->props._data[o.record++];
            if (o.record > 1) {
                put(',');
            }
            member(r.key, r.value);  // may move o
            continue;
        }
        listitem* item = o.next;
        if (!item) {
            put(o.object ? '}' : ']');
            _open.pop_back();
            continue;
        }
        o.next = item->next;
        if (!o.first) {
            put(',');
        }
        o.first = false;
        if (!o.object) {
            value(static_cast<jsonObject*>(item->pData));  // may move o
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
        member(key, node);  // may move o
    }
}

void jsonWriter::member(const char* key, jsonObject* node) {
    put('"');
    escaped(key, false);
    put("\":", 2);
    value(node);
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
    static thread_local jsonWriter out;
    out.clear();
    out.document(this);
    return out.copyToScratch();
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
