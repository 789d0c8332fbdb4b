// tavik::encoder::hex: bytes to upper-case hexadecimal text and back. Both functions return
// new objects that the caller deletes (toHex with array delete). No state: any thread may
// call them.
#ifndef TAVIK_TK_ENCODING_H_
#define TAVIK_TK_ENCODING_H_

#include "tavik/tk_bytebuf.h"

namespace tavik {
namespace encoder {

class hex {
public:
    virtual ~hex() {}

    // Two upper-case digits per byte, high half first, no separators, NUL-terminated.
    // Null for null bytes.
    static char* toHex(typeArr<unsigned char, false>* bytes);

    // One byte per pair of digits; lower case is accepted and any other character counts
    // as 0. A trailing odd digit is ignored: the result holds strlen(text) / 2 bytes.
    // Null for a null text.
    static typeArr<unsigned char, true>* toBytes(const char* text);
};

}  // namespace encoder
}  // namespace tavik

#endif  // TAVIK_TK_ENCODING_H_
