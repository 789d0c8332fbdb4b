// Writing a json back to one line of text (getDoc) and the tab-indented debug listing
// (getDisplay, displayAll). Both results go to the scratch pool.
#include <stdio.h>
#include <string.h>

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
        size_t n = strlen(s);
        room(3 * n);
        char* d = _buf + _len;
        for (size_t i = 0; i < n; i++) {
            char c = s[i];
            char e = c == '\n' ? 'n' : c == '\t' ? 't' : c == '\r' ? 'r' : c == '\\' ? '\\' : 0;
            if (e) {
                *d++ = '\\';
                *d++ = e;
                continue;
            }
            if (c == '"' && quoteToo) {
                *d++ = '\\';
                *d++ = '\\';
            }
            *d++ = c;
        }
        _len = static_cast<size_t>(d - _buf);
    }
    const char* text() const { return _buf; }

    // getDoc's writing of nodes.
    void members(json* j);
    void element(jsonObject* node);
    void scalar(jsonObject* node);
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

    char* _buf;
    size_t _len;
    size_t _cap;
};

// ---- getDoc ----

void jsonWriter::scalar(jsonObject* node) {
    if (node->objType() == jotString) {
        put('"');
        escaped(node->p, true);
        put('"');
    } else {
        escaped(node->p, true);
    }
}

void jsonWriter::members(json* j) {
    bool separator = false;
    // Until a lookup sorts them, the records of props follow keyTable (a parsed document's
    // do), and a record holds the very key text of its item: such a node is taken in step,
    // and only the others are looked up, without sorting.
    json::memberMap& props = j->props;
    size_t next = 0;
    auto pos = j->keyTable.getHeadPosition();
    while (pos) {
        char* key = j->keyTable.getNext(&pos);
        if (separator) {
            put(',');
        }
        separator = true;
        put('"');
        escaped(key, false);
        put("\":", 2);
        jsonObject* node = nullptr;
        if (next < props.count && props._data[next].key == key) {
            node = props._data[next++].value;
        } else if (auto* record = props.find(key)) {
            node = record->value;
        }
        element(node);
    }
}

// A member value or array element: objects as {...}, arrays as [...] (their elements written
// the same way), scalars quoted or bare by kind, and a missing node as null.
void jsonWriter::element(jsonObject* node) {
    if (!node) {
        put("null", 4);
        return;
    }
    switch (node->objType()) {
        case jotObject:
            put('{');
            members(static_cast<json*>(node));
            put('}');
            break;
        case jotArray: {
            put('[');
            auto* arr = static_cast<json::array*>(node);
            auto pos = arr->objList.getHeadPosition();
            for (bool first = true; pos; first = false) {
                if (!first) {
                    put(',');
                }
                element(arr->objList.getNext(&pos));
            }
            put(']');
            break;
        }
        default:
            scalar(node);
    }
}

char* json::getDoc() {
    static thread_local jsonWriter out;
    out.clear();
    out.element(this);
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
