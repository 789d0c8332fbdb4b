// Zero-padded ECB over byte arrays, the common body of the cipher wrappers (aes, realaes).
// The result is a new array that the caller deletes; the engine is borrowed for the call,
// so one engine serves one thread at a time.
#ifndef TAVIK_TK_ECBARRAY_H_
#define TAVIK_TK_ECBARRAY_H_

#include <cstdint>
#include <cstring>

#include "tavik/tk_bytebuf.h"

namespace tavik {

// Enciphers (or deciphers) data, many blocks at a time, into a new array of the data length
// rounded up to whole 16-byte blocks; the tail of the last block is taken as zero bytes, and
// nothing is removed again on the way back. Null for null data and for data of 4 GiB or more, whose
// padded length would not fit the 32-bit block arithmetic.
template <class Engine, bool encipher>
typeArr<unsigned char, true>* ecbPadded(Engine& engine, typeArr<unsigned char, false>* data) {
    constexpr size_t blockLen = 16;
    if (data == nullptr || (data->buffer == nullptr && data->length != 0) ||
        data->length > UINT32_MAX - (blockLen - 1)) {
        return nullptr;
    }
    size_t whole = data->length / blockLen * blockLen;
    size_t padded = whole + (whole < data->length ? blockLen : 0);
    auto* result = new typeArr<unsigned char, true>(padded);
    auto transform = [&engine](uint8_t* out, const uint8_t* in, uint32_t length) {
        if (encipher) {
            engine.AES128_ECB_encrypt_buffer(out, in, length);
        } else {
            engine.AES128_ECB_decrypt_buffer(out, in, length);
        }
    };
    transform(result->buffer, data->buffer, static_cast<uint32_t>(whole));
    if (whole < padded) {
        uint8_t last[blockLen] = {};
        std::memcpy(last, data->buffer + whole, data->length - whole);
        transform(result->buffer + whole, last, blockLen);
    }
    return result;
}

}  // namespace tavik

#endif  // TAVIK_TK_ECBARRAY_H_
