// Nodes of a JSON document: construction, members, arrays and the typed and path reads.
#include "tavik/tk_json.h"

#include <stdlib.h>
#include <string.h>

#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_json_arena.h"

namespace tavik {


int json::displayAllDetails = 0;

// ---- deleting ----

namespace {
// The nodes still to be deleted by the outermost dispose() running on this thread.
thread_local std::vector<jsonObject*>* pendingDeletes = nullptr;
const size_t kKeptPending = 1 << 16;
}  // namespace

void jsonObject::dispose(jsonObject* node) {
    if (!node) {
        return;
    }
    if (pendingDeletes) {
        pendingDeletes->push_back(node);  // deleted by the loop below, further up the stack
        return;
    }
    // Deleting a node deletes its children through dispose() again, which only adds them to
    // the list: however deep the subtree, the stack holds one deletion at a time.
    static thread_local std::vector<jsonObject*> pending;
    pendingDeletes = &pending;
    delete node;
    while (!pending.empty()) {
        jsonObject* next = pending.back();
        pending.pop_back();
        delete next;
    }
    pendingDeletes = nullptr;
    if (pending.capacity() > kKeptPending) {
        std::vector<jsonObject*>().swap(pending);
    }
}

// ---- scalar nodes ----

jsonObject::jsonObject() : p(nullptr), oType(jotString) {}

jsonObject::jsonObject(const char* str, bool isValue)
    : p(newString(str)), oType(isValue ? jotValue : jotString) {}

jsonObject::jsonObject(long v) : p(newFormatString("%ld", v)), oType(jotValue) {}

jsonObject::jsonObject(long long v) : p(newFormatString("%lld", v)), oType(jotValue) {}

jsonObject::jsonObject(double v) : p(newFormatString("%f", v)), oType(jotValue) {}

jsonObject::jsonObject(bool v) : p(newString(v ? "true" : "false")), oType(jotValue) {}

jsonObject::~jsonObject() {
    if (!_inlineText || p != reinterpret_cast<char*>(this) + sizeof(jsonObject)) {
        delete[] p;
    }
}

// ---- arrays ----

namespace {
// Whether item is one of the count items from first on, which belong to a parsed document.
bool borrowedItem(const listitem* item, const listitem* first, size_t count) {
    return first && item >= first && item < first + count;
}
}  // namespace

json::array::~array() {
    listitem* item = objList.itemHead;
    while (item) {
        listitem* next = item->next;
        dispose(static_cast<jsonObject*>(item->pData));
        if (!borrowedItem(item, _firstItem, _borrowedItems)) {
            delete item;
        }
        item = next;
    }
    objList.itemHead = objList.itemTail = nullptr;
    objList.count = 0;
    if (_borrowed) {
        _borrowed->release();
    }
}

void json::array::remove(jsonObject* node) {
    listitem* item = objList.unlinkData(node);
    if (!borrowedItem(item, _firstItem, _borrowedItems)) {
        delete item;
    }
}

jsonObject* json::array::getAt(unsigned long index) {
    return objList.getAt(index);
}

json* json::array::getJson(unsigned long index) {
    jsonObject* node = getAt(index);
    return node && node->objType() == jotObject ? static_cast<json*>(node) : nullptr;
}

json::array* json::array::getArray(unsigned long index) {
    jsonObject* node = getAt(index);
    return node && node->objType() == jotArray ? static_cast<array*>(node) : nullptr;
}

// ---- objects ----

json::json() : props(memberMap::noRecords()) {
    p = nullptr;
}

json::json(const char* text) : json() {
    generate(text);
}

json::~json() {
    reset();
}

void json::reset() {
    memberMap::hashData* records = props._data;
    size_t parsedScalars = 0;
    for (size_t i = 0; i < props.count; i++) {
        if (i + 8 < props.count) {
            __builtin_prefetch(records[i + 8].value);
        }
        jsonObject* node = records[i].value;
        if (parsedScalar(node) && jsonMemory::arenaOf(node) == _borrowed) {
            // A scalar of this document: it has nothing to free but a text put in its place,
            // and its memory goes with the document's.
            node->jsonObject::~jsonObject();
            parsedScalars++;
        } else {
            dispose(node);
        }
        records[i].value = nullptr;
    }
    props.removeAll();
    // The items the document lent come first and are never taken out one by one.
    listitem* item = _borrowedItems ? _firstItem[_borrowedItems - 1].next : keyTable.itemHead;
    while (item) {
        listitem* next = item->next;
        delete item;
        item = next;
    }
    keyTable.itemHead = keyTable.itemTail = nullptr;
    keyTable.count = 0;
    if (_borrowed) {
        props.adopt(nullptr, 0, 0);  // the records were the document's
        _borrowed->release(parsedScalars + 1);
        _borrowed = nullptr;
        _firstItem = nullptr;
        _borrowedItems = 0;
    }
}

char* json::getKey(unsigned long index) {
    return keyTable.getAt(index);
}

strArr* json::getKeyArray() {
    strArr* keys = new strArr(keyTable.getCount());
    size_t i = 0;
    auto pos = keyTable.getHeadPosition();
    while (pos) {
        keys->ref(i++) = keyTable.getNext(&pos);
    }
    return keys;
}

strArr* json::getValueArray() {
    strArr* values = new strArr(keyTable.getCount());
    size_t i = 0;
    auto pos = keyTable.getHeadPosition();
    while (pos) {
        jsonObject* node = _member(keyTable.getNext(&pos), nullptr);
        if (node && node->p) {
            values->ref(i) = node->p;
        }
        i++;
    }
    return values;
}

json::memberMap::hashData* json::_record(const char* key) {
    return props.find(const_cast<char*>(key));
}

jsonObject* json::_member(const char* key, bool* found) {
    auto* record = key ? props.search(const_cast<char*>(key)) : nullptr;
    if (found) {
        *found = record != nullptr;
    }
    return record ? record->value : nullptr;
}

void json::_add(const char* key, size_t n, jsonObject* node) {
    auto* record = _record(key);
    if (record) {
        // Replaced in place: the stored key, and so its position, stays.
        dispose(record->value);
        record->value = node;
        return;
    }
    char* stored = static_cast<char*>(keyTable.addTailText(key, n)->pData);
    props.append(stored, node);  // known to be absent
}

void json::add(const char* key, jsonObject* node) {
    if (!key) {
        delete node;
        return;
    }
    _add(key, strlen(key), node);
}

void json::add(const char* key, const char* value) {
    add(key, new jsonObject(value, false));
}
void json::add(const char* key, long value) {
    add(key, new jsonObject(value));
}
void json::add(const char* key, long long value) {
    add(key, new jsonObject(value));
}
void json::add(const char* key, double value) {
    add(key, new jsonObject(value));
}
void json::add(const char* key, bool value) {
    add(key, new jsonObject(value));
}

void json::remove(const char* key) {
    // The node goes; the key text lives in its keyTable item, which stays.
    if (key) {
        props.remove(const_cast<char*>(key));
    }
}

// ---- reads ----

json* json::getSubset(const char* key) {
    jsonObject* node = _member(key, nullptr);
    return node && node->objType() == jotObject ? static_cast<json*>(node) : nullptr;
}

json::array* json::getSubArray(const char* key) {
    jsonObject* node = _member(key, nullptr);
    return node && node->objType() == jotArray ? static_cast<array*>(node) : nullptr;
}

// Bracketed path step "name[n]" (or just "name", taken as element 0) from cursor.
static json* elementStep(json* cursor, const char* part) {
    const char* bracket = strchr(part, '[');
    if (!bracket) {
        json::array* arr = cursor->getSubArray(part);
        return arr ? arr->getJson(0) : nullptr;
    }
    string name(part, static_cast<unsigned int>(bracket - part));
    json::array* arr = cursor->getSubArray(name.get());
    int index = atoi(bracket + 1);
    return arr && index >= 0 ? arr->getJson(static_cast<unsigned long>(index)) : nullptr;
}

jsonObject* json::_pathNode(const char* key, bool* found, bool* brokenIndex) {
    *found = false;
    *brokenIndex = false;
    if (!strchr(key, ':')) {
        return _member(key, found);
    }
    string path(key);
    smartPtr<strArr> parts(path.split(":"));
    json* cursor = this;
    for (size_t i = 0; i < parts->length; i++) {
        const char* part = (*parts)[i];
        if (i + 1 == parts->length) {
            return cursor->_member(part, found);
        }
        if (strchr(part, '[')) {
            cursor = elementStep(cursor, part);
            *brokenIndex = cursor == nullptr;
        } else {
            cursor = cursor->getSubset(part);
        }
        if (!cursor) {
            return nullptr;
        }
    }
    return nullptr;
}

char* json::get(const char* key, const char* defaultValue) {
    if (!key) {
        return const_cast<char*>(defaultValue);
    }
    bool found, brokenIndex;
    jsonObject* node = _pathNode(key, &found, &brokenIndex);
    if (brokenIndex) {
        return nullptr;
    }
    return found && node ? node->p : const_cast<char*>(defaultValue);
}

int json::getInt(const char* key, int def) {
    const char* text = get(key, nullptr);
    return text ? atoi(text) : def;
}

long json::getLong(const char* key, long def) {
    const char* text = get(key, nullptr);
    return text ? atol(text) : def;
}

long long json::getLongLong(const char* key, long long def) {
    const char* text = get(key, nullptr);
    return text ? strtoll(text, nullptr, 10) : def;
}

double json::getDouble(const char* key, double def) {
    const char* text = get(key, nullptr);
    return text ? atof(text) : def;
}

bool json::getBool(const char* key, bool def) {
    const char* text = get(key, nullptr);
    return text ? strcmp(text, "true") == 0 : def;
}

unsigned long json::getArraySize(const char* key) {
    if (!key) {
        return 0;
    }
    bool found, brokenIndex;
    jsonObject* node = _pathNode(key, &found, &brokenIndex);
    return node && node->objType() == jotArray ? static_cast<array*>(node)->size() : 0;
}

json* json::getSubset(const char* arrayKey, int index) {
    if (!arrayKey) {
        return nullptr;
    }
    if (!strchr(arrayKey, ':')) {
        array* arr = getSubArray(arrayKey);
        return arr && index >= 0 ? arr->getJson(static_cast<unsigned long>(index)) : nullptr;
    }
    string path(arrayKey);
    smartPtr<strArr> parts(path.split(":"));
    json* cursor = this;
    for (size_t i = 0; i < parts->length; i++) {
        const char* part = (*parts)[i];
        if (i + 1 == parts->length) {
            array* arr = cursor->getSubArray(part);
            return arr ? arr->getJson(i) : nullptr;
        }
        cursor = part[0] == 0x01 ? cursor->getSubset(part) : elementStep(cursor, part);
        if (!cursor) {
            return nullptr;
        }
    }
    return nullptr;
}

}  // namespace tavik
