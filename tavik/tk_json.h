// JSON documents as a tree of nodes: jsonObject (a scalar kept as text), json (an object
// with keyed members kept in first-insertion order) and json::array (an ordered list).
// A json owns its keys and member nodes, an array its elements; add() takes ownership of
// the node passed. getDoc, getSafeDoubleQuotation and getDisplay return scratch texts
// (valid until a thousand more have been made; copy what you keep). A document is used by
// one thread at a time; nothing is locked.
// A parsed document keeps its nodes, texts, member records and list items together in memory
// it owns; a node taken out of it (json::array::remove) stays valid after it is gone. Change
// the members and elements of a parsed document through add and remove, not through the lists
// and the map themselves.
#pragma once

#include <stdint.h>

#include "tavik/tk_bytebuf.h"
#include "tavik/tk_hash.h"
#include "tavik/tk_list.h"
#include "tavik/tk_string.h"
#include "tavik/tk_vector.h"

namespace tavik {

class jsonBuilder;
class jsonWriter;
namespace jsonMemory {
class arena;
}

enum joType : int32_t {
    jotString = 0,  // scalar that was quoted text
    jotValue = 1,   // bare scalar: number, true/false, any unquoted word
    jotObject = 2,  // a json object
    jotArray = 3,   // a json::array
};

// A node. As a scalar it holds its text in p (owned; null for objects, arrays and a
// default-constructed node).
class jsonObject {
public:
    char* p;
    joType oType;

    jsonObject();
    jsonObject(const char* str, bool isValue);
    explicit jsonObject(long v);
    explicit jsonObject(long long v);
    explicit jsonObject(double v);
    explicit jsonObject(bool v);
    virtual ~jsonObject();
    virtual joType objType() { return oType; }

    char* get() { return p; }

    jsonObject(const jsonObject&) = delete;
    jsonObject& operator=(const jsonObject&) = delete;

    // Nodes come from the heap or from a parsed document's memory; delete frees either.
    static void* operator new(size_t size);
    static void* operator new(size_t, void* where) { return where; }
    static void operator delete(void* node);
    static void operator delete(void*, void*) {}

protected:
    // Deletes node and its subtree without recursing once per level.
    static void dispose(jsonObject* node);
    static bool parsedScalar(const jsonObject* node) { return node && node->_inlineText; }

private:
    friend class jsonBuilder;
    friend class jsonWriter;
    // A parsed scalar keeps its text right after itself; p is freed unless it points there.
    bool _inlineText = false;
};

class json : public jsonObject {
public:
    class array;
    // Every object of a document has its own map, so it starts empty (a thousand records
    // ahead would make a 1 MB document take hundreds of MB) and doubles as it fills; a parsed
    // object's map holds exactly its members. The map does not own the keys: each key text
    // lives with its keyTable item, so keyTable stays valid after remove().
    typedef hash<char*, jsonObject*, false, true, false, 4> memberMap;

    memberMap props;           // key -> node; owns the nodes
    list<char*> keyTable;      // the keys in first-insertion order; each key text lives in its item
    string latestWrongPacket;  // the text last rejected by generate
    static int displayAllDetails;

    json();
    // Parses text (see generate).
    explicit json(const char* text);
    ~json() override;
    joType objType() override { return jotObject; }

    // ---- members ----
    void reset();
    bool isEmpty() { return keyTable.getCount() == 0; }
    unsigned long getKeyCount() { return keyTable.getCount(); }
    char* getKey(unsigned long index);
    // New arrays owned by the caller: copies of the keys, and the text of each member's node
    // (an element stays null where a key has no node).
    strArr* getKeyArray();
    strArr* getValueArray();

    // Takes ownership of node (which may be null: a key with no node). An existing key keeps
    // its first position and gets the new node; the old node is deleted.
    void add(const char* key, jsonObject* node);
    void add(const char* key, char* value) { add(key, static_cast<const char*>(value)); }
    void add(const char* key, const char* value);
    void add(const char* key, int value) { add(key, static_cast<long>(value)); }
    void add(const char* key, long value);
    void add(const char* key, long long value);
    void add(const char* key, double value);
    void add(const char* key, bool value);
    // Deletes the member's node and its entry in props; the key stays in keyTable, so it is
    // still counted and visited (with no node) afterwards.
    void remove(const char* key);

    // ---- reads ----
    // Path keys: "a:b:c" walks through member objects, "a[2]" through element 2 of array a.
    // Nodes of the wrong kind along the way are treated as missing.
    using jsonObject::get;
    // The member's own text (not a copy): null for an object or array member; defaultValue
    // when the key is absent or has no node. A bracketed step to a missing element gives null.
    char* get(const char* key, const char* defaultValue);
    int getInt(const char* key, int def);
    long getLong(const char* key, long def);
    long long getLongLong(const char* key, long long def);
    double getDouble(const char* key, double def);
    bool getBool(const char* key, bool def);
    json* getSubset(const char* key);
    array* getSubArray(const char* key);
    unsigned long getArraySize(const char* key);
    // Element of the array named by arrayKey. With a path, middle parts starting with the
    // byte 0x01 are plain member steps and the others bracketed steps, and the element taken
    // is the one at the last part's own position among the parts, not index.
    json* getSubset(const char* arrayKey, int index);

    // ---- parser ----
    // Clears the object and parses str; false when str is null, empty or does not start with
    // '{' after trimming blanks (then the text is kept in latestWrongPacket). The parser is
    // lenient: scalars inside arrays are dropped, null stores a key with no node, objects in
    // a row merge. Groups nested up to kMaxDepth levels (the outer braces are the first) are
    // read; a group deeper than that is dropped with everything in it, as if it were not in
    // the text. Parsing, writing, listing and deleting use a fixed amount of stack whatever
    // the depth. A thread keeps up to 4 MiB of parsing scratch between calls.
    bool generate(const char* str);
    bool generate(byteArr* data);
    static const int kMaxDepth = 10000;

    // Internal steps of the parser; each returns a new text or array owned by the caller.
    char* removeGabage(const char* str);
    strArr* getTokens(const char* str);
    json* subProcess(json* j, strArr* tokens);
    array* subProcess(array* a, strArr* tokens);
    bool isBraceString(const char* str, char open, char close);
    char* removeBrace(const char* data, char cStart, char cEnd, bool ignorePair);
    char* applyEscape(const char* str);

    // ---- writer and dump ----
    // One line of JSON text (scratch). A key without a node is written as "key":null.
    char* getDoc();
    // Scratch copy of value with every double quote preceded by a backslash; null for null.
    char* getSafeDoubleQuotation(const char* value);
    // Tab-indented, CRLF-terminated listing of the members (scratch).
    char* getDisplay();
    // Prints the listing with a "JSON: prompt" line, as much as the detail level allows
    // (0 nothing, 1 the prompt line, 2 also the top-level members, 3 also their contents).
    // "%%" in the listing prints as one '%'; any other '%' prints as it stands.
    void displayAll(const char* prompt);
    static void setDisplayAllDetail(int detail) { displayAllDetails = detail; }

    json(const json&) = delete;
    json& operator=(const json&) = delete;

private:
    memberMap::hashData* _record(const char* key);
    jsonObject* _member(const char* key, bool* found);
    jsonObject* _pathNode(const char* key, bool* found, bool* brokenIndex);
    void _add(const char* key, size_t n, jsonObject* node);
    void _displayAll(jsonWriter& out, const char* prompt);
    void _displayAll(jsonWriter& out, int tab, bool contents);
    friend class jsonBuilder;
    friend class jsonWriter;

    // The parsed document's memory, when the records of props and the first keyTable items
    // (_borrowedItems of them, from _firstItem on) come from it.
    jsonMemory::arena* _borrowed = nullptr;
    listitem* _firstItem = nullptr;
    size_t _borrowedItems = 0;
};

class json::array : public jsonObject {
public:
    list<jsonObject*> objList;  // elements in order; owned

    array() {}
    ~array() override;
    joType objType() override { return jotArray; }

    void add(jsonObject* node) { objList.addTail(node); }
    // Unlinks the first element equal to node without deleting it.
    void remove(jsonObject* node);
    jsonObject* getAt(unsigned long index);
    // The element at index when it is of that kind, else null.
    json* getJson(unsigned long index);
    array* getArray(unsigned long index);
    unsigned long size() { return objList.getCount(); }

private:
    friend class jsonBuilder;
    // The parsed document's memory, when the list items from _firstItem on (_borrowedItems of
    // them, contiguous) come from it.
    jsonMemory::arena* _borrowed = nullptr;
    listitem* _firstItem = nullptr;
    size_t _borrowedItems = 0;
};

}  // namespace tavik
