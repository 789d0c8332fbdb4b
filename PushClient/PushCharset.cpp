#include "PushClient/PushCharset.h"

namespace {

// Room kept free at the end of the output for a multi-byte sequence.
const int outputHeadroom = 5;

}  // namespace

int ansi2utf(unsigned char* out, int* outLen, unsigned char* in, int* inLen) {
    int capacity = *outLen;
    int length = *inLen;
    int written = 0;
    int consumed = 0;
    int result = 0;
    while (consumed < length && written + outputHeadroom < capacity) {
        unsigned char c = in[consumed];
        // The handshake is 7-bit text: an encoder for wider characters is never needed, so
        // a byte above 0x7F ends the text where it stands.
        if (c > 0x7F) {
            result = -1;
            break;
        }
        out[written++] = c;
        ++consumed;
    }
    *outLen = written;
    *inLen = consumed;
    return result;
}

int utf2ansi(unsigned char* out, int* outLen, const unsigned char* in, int* inLen) {
    if (in == nullptr) {
        *outLen = 0;
        *inLen = 0;
        return 0;
    }
    int capacity = *outLen;
    int length = *inLen;
    int written = 0;
    int consumed = 0;
    int result = 0;
    while (consumed < length) {
        int pos = consumed;
        unsigned char lead = in[pos++];
        unsigned int value;
        int more;
        if (lead < 0x80) {
            value = lead;
            more = 0;
        } else if (lead < 0xC0 || lead >= 0xF8) {
            result = -2;
            break;
        } else if (lead < 0xE0) {
            value = lead & 0x1F;
            more = 1;
        } else if (lead < 0xF0) {
            value = lead & 0x0F;
            more = 2;
        } else {
            value = lead & 0x07;
            more = 3;
        }
        if (length - pos < more) {
            break;
        }
        for (int i = 0; i < more; ++i) {
            unsigned char next = in[pos++];
            // A byte that does not continue the sequence ends it; the partial value stands.
            if ((next & 0xC0) != 0x80) {
                break;
            }
            value = (value << 6) | (next & 0x3F);
        }
        if (value > 0x7F) {
            result = -2;
            break;
        }
        if (written >= capacity) {
            break;
        }
        out[written++] = static_cast<unsigned char>(value);
        consumed = pos;
    }
    *outLen = written;
    *inLen = consumed;
    return result;
}
