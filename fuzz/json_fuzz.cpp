// Parses arbitrary bytes as a JSON document, writes the result back as text, parses that
// again, and lists and reads it, so that every step sees hostile input. The document must
// also be the one the parser's separate steps build, which cut every level again from its
// text instead of jumping over groups noted in one pass.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tavik/tk_json.h"

static void checkSteps(const char* text, tavik::json& built, bool accepted) {
    std::string trimmed(text);
    trimmed.erase(0, trimmed.find_first_not_of(' '));
    trimmed.erase(trimmed.find_last_not_of(' ') + 1);
    tavik::json steps;
    if (trimmed.empty() || trimmed[0] != '{') {
        if (accepted) {
            abort();
        }
        return;
    }
    char* cleaned = steps.removeGabage(trimmed.c_str());
    tavik::strArr* tokens = steps.getTokens(cleaned);
    steps.subProcess(&steps, tokens);
    delete tokens;
    delete[] cleaned;
    if (!accepted || strcmp(built.getDoc(), steps.getDoc()) != 0 ||
        strcmp(built.getDisplay(), steps.getDisplay()) != 0) {
        abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    unsigned char* copy = new unsigned char[size + 1];
    memcpy(copy, data, size);
    tavik::byteArr bytes(copy, size);
    tavik::json first;
    bool accepted = first.generate(&bytes);
    if (size > 0) {
        checkSteps(std::string(reinterpret_cast<const char*>(data), size).c_str(), first, accepted);
    }
    tavik::json second(first.getDoc());
    second.getDisplay();
    first.getDisplay();
    // Reads by every key, also as paths, and a removal in the middle.
    for (unsigned long i = 0; i < second.getKeyCount(); i++) {
        const char* key = second.getKey(i);
        second.get(key, "d");
        second.getArraySize(key);
        second.getSubset(key, 0);
    }
    if (second.getKeyCount() > 0) {
        second.remove(second.getKey(0));
        second.getDoc();
        second.getDisplay();
        delete second.getValueArray();
    }
    return 0;
}
