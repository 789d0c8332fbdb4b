// INI-style settings file: "[section]" lines holding "name=value" lines, "-" comment lines.
// A profile owns its sections and values; texts it hands out belong to those objects and live
// until the value is changed or removed. Names ignore case; sections and values are saved in
// name order. A profile is used by one thread at a time.
#ifndef TAVIK_TK_PROFILE_H
#define TAVIK_TK_PROFILE_H

#include <stdio.h>

#include "tavik/tk_hash.h"
#include "tavik/tk_string.h"

namespace tavik {

class profileValue {
public:
    string name;   // trimmed of blanks
    string value;  // trimmed of blanks, without line feeds (a carriage return stays)

    profileValue(const char* name, const char* value) : name(name), value(value) {}
    virtual ~profileValue() {}

    // Writes "name=value\n"; false when the stream failed.
    bool save(FILE* file);
};

class profileSection {
public:
    string name;  // trimmed of blanks
    // Keyed by each value's own name text; owns the values.
    hash<char*, profileValue*, false, true, true, 1000> valueTable;

    explicit profileSection(const char* name) : name(name) {}
    virtual ~profileSection() {}

    // Sets the value of that name, creating it when absent; returns it.
    profileValue* appendValue(const char* name, const char* value);
    profileValue* findValue(const char* name);
    // The value at an index in name order, or null past the end.
    profileValue* findValue(unsigned long index);
    bool removeValue(const char* name);
    unsigned long getValueCount() const { return valueTable.count; }
    void removeAllValues() { valueTable.removeAll(); }

    // Writes "[name]\n" and every value in name order; false when the stream failed.
    bool save(FILE* file);
};

class profile {
public:
    string _profile;  // path of the settings file
    hash<char*, profileSection*, false, true, true, 1000> sectionTable;
    profileSection* currentProfileSection;
    profileValue* currentProfileValue;
    bool loaded;
    bool allowChange;

    // Loads the file named by the environment variable envName.
    profile(const char* envName, bool allowChange);
    explicit profile(bool allowChange);
    // Saves (when loaded and allowed to change), then frees every section.
    virtual ~profile();

    profile(const profile&) = delete;
    profile& operator=(const profile&) = delete;

    void setAllowChange(bool allow) { allowChange = allow; }
    bool loadEnviron(const char* envName);
    bool loadDirect(const char* path);

    // Reads the file into memory, merging with what is there; a missing file is created
    // empty. A line longer than lineLimit bytes is read as several lines of at most that
    // many. Returns 0 when the file can be neither read nor created, or fails while read.
    int load();
    // Writes the file through "path.tmp", flushed to disk and renamed over the old file in
    // one step. Returns 0 and writes nothing unless loaded and allowed to change; returns 0
    // with the old file untouched and no temporary file left when any step fails.
    int save();
    virtual void reflush() { save(); }

    // Bytes read as one line, its line feed included.
    static const int lineLimit = 4095;

    // Removing the section or value the cursor is on clears the cursor; so does replacing
    // that section through a blank-padded name.
    profileSection* findSection(const char* name);
    profileSection* appendSection(const char* name);
    int removeSection(const char* name);
    void removeAllSections();

    // Cursor: section() selects (or creates) a section; operator[](name) selects (or creates
    // with "") a value of the current section; with no current section the current value
    // stays as it was, or stays null.
    profile& section(const char* name);
    profile& operator[](const char* name);
    profile& operator[](unsigned long index);
    char* Name();

    unsigned long getValueCount();
    bool isExistValue(const char* name);
    bool containsKey(const char* name) { return isExistValue(name); }
    bool removeValue(const char* name);
    // Takes key texts ended by a null pointer; returns a scratch copy of the first key that
    // the current section lacks, or null when all are present.
    char* checkContainsKey(const char* key, ...);

    // Typed reads of the current value: 0, or null for the texts, without a current value.
    operator long();
    operator unsigned long();
    operator int();
    operator unsigned int();
    operator char();
    operator float();
    operator double();
    operator char*();
    operator const char*();

    // Typed writes to the current value; no effect without one. Floating point values keep
    // two decimals.
    virtual profile& operator=(long v);
    virtual profile& operator=(unsigned long v);
    virtual profile& operator=(int v);
    virtual profile& operator=(unsigned int v);
    virtual profile& operator=(char v);
    virtual profile& operator=(float v);
    virtual profile& operator=(double v);
    virtual profile& operator=(char* v);
    profile& operator=(const char* v) { return operator=(const_cast<char*>(v)); }

private:
    template <class T>
    profile& _setCurrent(const char* format, T v) {
        if (currentProfileValue != nullptr) {
            currentProfileValue->value.format(format, v);
        }
        return *this;
    }
    bool _write(FILE* file);
    // The current value's text, or "" (which reads as 0) without one.
    const char* _readable();
};

}  // namespace tavik

#endif
