// profileSection and profileValue of tk_profile.h: one section's values and their written form.
#include "tavik/tk_common.h"
#include "tavik/tk_profile.h"

namespace tavik {

namespace {

const char* textOf(const string& s) {
    return s.get() != nullptr ? s.get() : "";
}

}  // namespace

bool profileValue::save(FILE* file) {
    return fprintf(file, "%s=%s\n", textOf(name), textOf(value)) >= 0;
}

profileValue* profileSection::appendValue(const char* name, const char* value) {
    if (name == nullptr) {
        return nullptr;
    }
    char* text = trim(killToken(value != nullptr ? value : "", '\n'));
    char* key = trim(name);
    profileValue* found = valueTable.get(key);
    if (found != nullptr) {
        found->value = text;
        return found;
    }
    profileValue* created = new profileValue(key, text);
    valueTable.put(created->name.get(), created);
    return created;
}

profileValue* profileSection::findValue(const char* name) {
    return name != nullptr ? valueTable.get(const_cast<char*>(name)) : nullptr;
}

profileValue* profileSection::findValue(unsigned long index) {
    if (index >= valueTable.count) {
        return nullptr;
    }
    valueTable.sort();
    return valueTable._data[index].value;
}

bool profileSection::removeValue(const char* name) {
    if (findValue(name) == nullptr) {
        return false;
    }
    valueTable.remove(const_cast<char*>(name));
    return true;
}

bool profileSection::save(FILE* file) {
    if (fprintf(file, "[%s]\n", textOf(name)) < 0) {
        return false;
    }
    valueTable.sort();
    for (size_t i = 0; i < valueTable.count; i++) {
        if (!valueTable._data[i].value->save(file)) {
            return false;
        }
    }
    return true;
}

}  // namespace tavik
