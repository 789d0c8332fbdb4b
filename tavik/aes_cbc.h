// Cipher-block chaining over caller buffers, shared by the AES engines (AES and REALAES).
// The engine supplies its single-block transformation; results go into the caller's output
// buffer and the chaining pointer refers to caller memory between calls, never to a copy.
// Not for concurrent use on one engine: every call moves the engine's chaining pointer.
#ifndef TAVIK_AES_CBC_H_
#define TAVIK_AES_CBC_H_

#include <cstdint>
#include <cstring>

namespace tavik {
namespace cbc {

constexpr uint32_t blockLen = 16;

// Chaining block used when a chain is continued (null iv) before any iv was ever given.
alignas(16) constexpr uint8_t zeroIv[blockLen] = {};

// Copies one block; output may be the very block at input.
inline void BlockCopy(uint8_t* output, const uint8_t* input) {
    std::memmove(output, input, blockLen);
}

inline void XorWithIv(uint8_t* buffer, const uint8_t* iv) {
    for (uint32_t i = 0; i < blockLen; ++i) {
        buffer[i] ^= iv[i];
    }
}

// A given iv starts a new chain; a null iv continues from where the previous call stopped.
inline void startChain(const uint8_t*& chain, const uint8_t* iv) {
    if (iv != nullptr) {
        chain = iv;
    } else if (chain == nullptr) {
        chain = zeroIv;
    }
}

// Only whole blocks are enciphered. The output bytes of a partial last block are zeroed:
// they have no block of their own to go into, and leaving plaintext or stale bytes there
// would be worse.
inline void clearPartialBlock(uint8_t* output, uint32_t length) {
    if (length % blockLen != 0) {
        std::memset(output, 0, length % blockLen);
    }
}

// Each input block is XOR-ed with the chaining block in place (the caller's input holds the
// XOR-ed blocks afterwards), copied to output and enciphered there; the chain then points at
// that output block. encipher(block) transforms 16 bytes in place.
template <class Encipher>
void encryptBuffer(uint8_t* output, uint8_t* input, uint32_t length, const uint8_t* iv,
                   const uint8_t*& chain, Encipher encipher) {
    startChain(chain, iv);
    for (uint32_t block = 0; block < length / blockLen; ++block) {
        XorWithIv(input, chain);
        BlockCopy(output, input);
        encipher(output);
        chain = output;
        input += blockLen;
        output += blockLen;
    }
    clearPartialBlock(output, length);
}

// Each input block is copied to output, deciphered there and XOR-ed with the chaining block;
// the chain then points at that input block. The ciphertext is also kept in a local copy
// while the call runs, so that output may be the same buffer as input.
template <class Decipher>
void decryptBuffer(uint8_t* output, uint8_t* input, uint32_t length, const uint8_t* iv,
                   const uint8_t*& chain, Decipher decipher) {
    startChain(chain, iv);
    uint8_t saved[2][blockLen];
    const uint8_t* lastInput = nullptr;
    for (uint32_t block = 0; block < length / blockLen; ++block) {
        uint8_t* ciphertext = saved[block & 1];
        BlockCopy(ciphertext, input);
        BlockCopy(output, input);
        decipher(output);
        XorWithIv(output, chain);
        chain = ciphertext;
        lastInput = input;
        input += blockLen;
        output += blockLen;
    }
    if (lastInput != nullptr) {
        chain = lastInput;
    }
    clearPartialBlock(output, length);
}

}  // namespace cbc
}  // namespace tavik

#endif  // TAVIK_AES_CBC_H_
