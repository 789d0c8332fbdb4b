// Parses arbitrary bytes as a JSON document, writes the result back as text, parses that
// again, and lists and reads it, so that every step sees hostile input.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "tavik/tk_json.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    unsigned char* copy = new unsigned char[size + 1];
    memcpy(copy, data, size);
    tavik::byteArr bytes(copy, size);
    tavik::json first;
    first.generate(&bytes);
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
