// Takes apart arbitrary text as a header date and as a getTime text.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "tavik/tk_time.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An exact-size copy, so that any read past the terminator is caught.
    char* copy = new char[size + 1];
    memcpy(copy, data, size);
    copy[size] = '\0';

    tavik::string2date parsed(copy);
    if (parsed.mon < -1 || parsed.mon > 12) {
        __builtin_trap();
    }
    char* date = tavik::string2date::getDateString(copy);
    if (date != nullptr) {
        tavik::string2date again(date);
        (void)again;
    }
    tavik::datetime value;
    value.setTime(copy);
    value.getTime();
    delete[] copy;
    return 0;
}
