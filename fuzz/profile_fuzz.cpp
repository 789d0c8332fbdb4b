// Loads arbitrary bytes as a settings file, reads every value through the cursor, changes one
// and saves. The file lives in a private directory made at start-up and removed at exit.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "tavik/tk_profile.h"

namespace {

std::string directory;
std::string settings;

void removeDirectory() {
    remove(settings.c_str());
    remove((settings + ".tmp").c_str());
    rmdir(directory.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/profile_fuzz.XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
        perror("mkdtemp");
        abort();
    }
    directory = pattern;
    settings = directory + "/settings.ini";
    atexit(removeDirectory);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = fopen(settings.c_str(), "wb");
    if (file == nullptr || fwrite(data, 1, size, file) != size || fclose(file) != 0) {
        abort();
    }
    tavik::profile p(true);
    p.loadDirect(settings.c_str());
    size_t sections = p.sectionTable.count;
    for (size_t i = 0; i < sections; i++) {
        p.sectionTable.sort();
        const char* name = p.sectionTable._data[i].value->name.get();
        p.section(name);
        for (unsigned long j = 0; j < p.getValueCount(); j++) {
            p[j];
            const char* text = p;
            if (text == nullptr || p.Name() == nullptr || !p.containsKey(p.Name())) {
                abort();
            }
            volatile long number = static_cast<long>(p) + static_cast<int>(p);
            volatile double real = static_cast<double>(p);
            volatile char first = static_cast<char>(p);
            (void)number, (void)real, (void)first;
        }
    }
    p.section("fuzz")["value"] = 1.25;
    p.save();
    return 0;
}
