#include "tavik/tk_profile.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tavik/tk_common.h"

namespace tavik {

profile::profile(const char* envName, bool allowChange)
    : currentProfileSection(nullptr),
      currentProfileValue(nullptr),
      loaded(false),
      allowChange(allowChange) {
    loadEnviron(envName);
}

profile::profile(bool allowChange)
    : _profile(""),
      currentProfileSection(nullptr),
      currentProfileValue(nullptr),
      loaded(false),
      allowChange(allowChange) {}

profile::~profile() {
    reflush();
    removeAllSections();
}

bool profile::loadEnviron(const char* envName) {
    const char* path = envName != nullptr ? getenv(envName) : nullptr;
    return loadDirect(path != nullptr ? path : "");
}

bool profile::loadDirect(const char* path) {
    _profile = path != nullptr ? path : "";
    loaded = load() == 1;
    return loaded;
}

int profile::load() {
    if (_profile.isEmpty()) {
        return 0;
    }
    FILE* file = fopen(_profile.get(), "rt");
    if (file == nullptr) {
        // A missing settings file starts out empty.
        file = fopen(_profile.get(), "wt");
        if (file == nullptr) {
            return 0;
        }
        return fclose(file) == 0 ? 1 : 0;
    }
    // A longer line comes in pieces of lineLimit bytes, each taken as a line of its own.
    char line[lineLimit + 1];
    profileSection* current = nullptr;
    while (fgets(line, sizeof line, file) != nullptr) {
        if (line[0] == '-') {
            continue;
        }
        if (line[0] == '[' && strlen(line) > 1) {
            char* close = strchr(line + 1, ']');
            if (close != nullptr) {
                *close = '\0';
                current = appendSection(line + 1);
            }
            continue;
        }
        char* equals = strchr(line, '=');
        if (equals != nullptr && current != nullptr) {
            *equals = '\0';
            current->appendValue(line, equals + 1);
        }
    }
    // A file that could not be read to its end stays unloaded, so that save never cuts it.
    bool whole = ferror(file) == 0;
    fclose(file);
    return whole ? 1 : 0;
}

bool profile::_write(FILE* file) {
    sectionTable.sort();
    for (size_t i = 0; i < sectionTable.count; i++) {
        if (!sectionTable._data[i].value->save(file)) {
            return false;
        }
    }
    return ferror(file) == 0;
}

int profile::save() {
    if (!loaded || !allowChange || _profile.isEmpty()) {
        return 0;
    }
    string temporary;
    temporary.format("%s.tmp", _profile.get());
    FILE* file = fopen(temporary.get(), "wt");
    if (file == nullptr) {
        return 0;
    }
    // The new file keeps the permissions of the one it replaces.
    struct stat old, opened;
    if (stat(_profile.get(), &old) == 0 && fstat(fileno(file), &opened) == 0 &&
        S_ISREG(opened.st_mode)) {
        (void)fchmod(fileno(file), old.st_mode & 07777);
    }
    bool written = _write(file) && fflush(file) == 0 && fsync(fileno(file)) == 0;
    bool closed = fclose(file) == 0;
    // One rename replaces the old file, so there is never a moment without a whole file.
    if (written && closed && rename(temporary.get(), _profile.get()) == 0) {
        return 1;
    }
    remove(temporary.get());
    return 0;
}

profileSection* profile::findSection(const char* name) {
    return name != nullptr ? sectionTable.get(const_cast<char*>(name)) : nullptr;
}

profileSection* profile::appendSection(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    profileSection* found = findSection(name);
    if (found != nullptr) {
        return found;
    }
    // A blank-padded name whose trimmed form exists replaces that section.
    char* trimmed = trim(name);
    if (currentProfileSection != nullptr && findSection(trimmed) == currentProfileSection) {
        currentProfileSection = nullptr;
        currentProfileValue = nullptr;
    }
    profileSection* created = new profileSection(trimmed);
    sectionTable.put(created->name.get(), created);
    return created;
}

int profile::removeSection(const char* name) {
    profileSection* found = findSection(name);
    if (found != nullptr) {
        if (found == currentProfileSection) {
            currentProfileSection = nullptr;
            currentProfileValue = nullptr;
        }
        sectionTable.remove(const_cast<char*>(name));
    }
    return 1;
}

void profile::removeAllSections() {
    currentProfileSection = nullptr;
    currentProfileValue = nullptr;
    sectionTable.removeAll();
}

profile& profile::section(const char* name) {
    profileSection* found = appendSection(name);
    if (found != nullptr) {
        currentProfileSection = found;
    }
    return *this;
}

profile& profile::operator[](const char* name) {
    if (currentProfileSection == nullptr || name == nullptr) {
        return *this;
    }
    currentProfileValue = currentProfileSection->findValue(name);
    if (currentProfileValue == nullptr) {
        currentProfileValue = currentProfileSection->appendValue(name, "");
    }
    return *this;
}

profile& profile::operator[](unsigned long index) {
    if (currentProfileSection != nullptr) {
        currentProfileValue = currentProfileSection->findValue(index);
    }
    return *this;
}

char* profile::Name() {
    return currentProfileValue != nullptr ? currentProfileValue->name.get() : nullptr;
}

unsigned long profile::getValueCount() {
    return currentProfileSection != nullptr ? currentProfileSection->getValueCount() : 0;
}

bool profile::isExistValue(const char* name) {
    return currentProfileSection != nullptr && currentProfileSection->findValue(name) != nullptr;
}

bool profile::removeValue(const char* name) {
    if (currentProfileSection == nullptr) {
        return false;
    }
    if (currentProfileValue != nullptr &&
        currentProfileSection->findValue(name) == currentProfileValue) {
        currentProfileValue = nullptr;
    }
    return currentProfileSection->removeValue(name);
}

char* profile::checkContainsKey(const char* key, ...) {
    va_list keys;
    va_start(keys, key);
    char* missing = nullptr;
    for (const char* k = key; k != nullptr; k = va_arg(keys, const char*)) {
        if (!containsKey(k)) {
            missing = makeString(k);
            break;
        }
    }
    va_end(keys);
    return missing;
}

const char* profile::_readable() {
    const char* text = currentProfileValue ? currentProfileValue->value.get() : nullptr;
    return text != nullptr ? text : "";
}

profile::operator long() {
    return atol(_readable());
}
profile::operator unsigned long() {
    return atol(_readable());
}
profile::operator int() {
    return atoi(_readable());
}
profile::operator unsigned int() {
    return atoi(_readable());
}
profile::operator char() {
    return _readable()[0];
}
profile::operator float() {
    return static_cast<float>(atof(_readable()));
}
profile::operator double() {
    return atof(_readable());
}
profile::operator char*() {
    return currentProfileValue ? currentProfileValue->value.get() : nullptr;
}
profile::operator const char*() {
    return operator char*();
}

profile& profile::operator=(long v) {
    return _setCurrent("%ld", v);
}
profile& profile::operator=(unsigned long v) {
    return _setCurrent("%ld", static_cast<long>(v));
}
profile& profile::operator=(int v) {
    return _setCurrent("%d", v);
}
profile& profile::operator=(unsigned int v) {
    return _setCurrent("%d", static_cast<int>(v));
}
profile& profile::operator=(char v) {
    return _setCurrent("%c", static_cast<int>(v));
}
profile& profile::operator=(float v) {
    return _setCurrent("%.2f", static_cast<double>(v));
}
profile& profile::operator=(double v) {
    return _setCurrent("%.2f", v);
}
profile& profile::operator=(char* v) {
    return v != nullptr ? _setCurrent("%s", v) : *this;
}

}  // namespace tavik
