// Software building blocks shared by the AES engines (AES and REALAES): the key expansion,
// blocks held as four column words, and the ECB and CBC loops over them. Each engine
// supplies its own round functions and constant tables. Plain functions on caller memory:
// any thread may use them on memory of its own.
#ifndef TAVIK_AES_SOFTWARE_H_
#define TAVIK_AES_SOFTWARE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace tavik {
namespace aesSoftware {

// Expands the 16-byte key into rounds + 1 round keys: every word after the key is the word
// four before XOR the previous one, which every fourth word is first rotated, substituted
// and XOR-ed with rcon[word / 4].
inline void expandKey(uint8_t* roundKey, const uint8_t* key, int rounds, const uint8_t* sbox,
                      const uint8_t* rcon) {
    std::memcpy(roundKey, key, 16);
    for (int i = 4; i < 4 * (rounds + 1); ++i) {
        uint8_t temp[4];
        std::memcpy(temp, roundKey + 4 * (i - 1), 4);
        if (i % 4 == 0) {
            uint8_t first = temp[0];
            temp[0] = sbox[temp[1]] ^ rcon[i / 4];
            temp[1] = sbox[temp[2]];
            temp[2] = sbox[temp[3]];
            temp[3] = sbox[first];
        }
        for (int j = 0; j < 4; ++j) {
            roundKey[4 * i + j] = roundKey[4 * (i - 4) + j] ^ temp[j];
        }
    }
}

// Little-endian whatever the machine's byte order: row 0 of a column is its low byte.
inline uint32_t load32(const uint8_t* p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint32_t w;
    std::memcpy(&w, p, 4);
    return w;
#else
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
#endif
}

inline void store32(uint8_t* p, uint32_t w) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    std::memcpy(p, &w, 4);
#else
    p[0] = static_cast<uint8_t>(w);
    p[1] = static_cast<uint8_t>(w >> 8);
    p[2] = static_cast<uint8_t>(w >> 16);
    p[3] = static_cast<uint8_t>(w >> 24);
#endif
}

// The byte in the given row of a column word, as a table index.
inline size_t byteOf(uint32_t w, int row) {
    return (w >> (8 * row)) & 0xff;
}

// One block of the state, column by column, as it lies in memory.
struct block {
    uint32_t c[4];
};

inline block loadBlock(const uint8_t* p) {
    return {{load32(p), load32(p + 4), load32(p + 8), load32(p + 12)}};
}

inline void storeBlock(uint8_t* p, const block& b) {
    for (int i = 0; i < 4; ++i) {
        store32(p + 4 * i, b.c[i]);
    }
}

inline void xorInto(block& b, const block& with) {
    for (int i = 0; i < 4; ++i) {
        b.c[i] ^= with.c[i];
    }
}

// The loops below take a transformation as a function object called on one or more blocks,
// which it transforms side by side: transform(block&...). Lanes is the number of blocks of
// the main loop: enough independent blocks to overlap their table lookups. The blocks are
// separate variables rather than an array, so that the compiler keeps them in registers.
template <class Transform, size_t... I>
inline void ecbGroup(const Transform& transform, uint8_t* out, const uint8_t* in,
                     std::index_sequence<I...>) {
    block b[sizeof...(I)] = {loadBlock(in + 16 * I)...};
    transform(b[I]...);
    (storeBlock(out + 16 * I, b[I]), ...);
}

template <size_t Lanes, class Transform>
void ecbBlocks(const Transform& transform, uint8_t* out, const uint8_t* in, size_t blocks) {
    for (; blocks >= Lanes; blocks -= Lanes, in += 16 * Lanes, out += 16 * Lanes) {
        ecbGroup(transform, out, in, std::make_index_sequence<Lanes>());
    }
    for (; blocks > 0; --blocks, in += 16, out += 16) {
        ecbGroup(transform, out, in, std::make_index_sequence<1>());
    }
}

template <class Transform>
void cbcEncryptBlocks(const Transform& encrypt, uint8_t* out, uint8_t* in, size_t blocks,
                      const uint8_t* iv) {
    block chain = loadBlock(iv);
    for (; blocks > 0; --blocks, in += 16, out += 16) {
        block b = loadBlock(in);
        xorInto(b, chain);
        storeBlock(in, b);
        encrypt(b);
        storeBlock(out, b);
        chain = b;
    }
}

// Deciphers blocks side by side; the first is chained to chain, each other one to the
// ciphertext before it, and chain moves to the last ciphertext.
template <class Transform, size_t... I>
inline void cbcDecryptGroup(const Transform& decrypt, uint8_t* out, const uint8_t* in, block& chain,
                            std::index_sequence<I...>) {
    constexpr size_t n = sizeof...(I);
    block c[n + 1] = {chain, loadBlock(in + 16 * I)...};
    block b[n] = {c[I + 1]...};
    decrypt(b[I]...);
    (xorInto(b[I], c[I]), ...);
    (storeBlock(out + 16 * I, b[I]), ...);
    chain = c[n];
}

template <size_t Lanes, class Transform>
void cbcDecryptBlocks(const Transform& decrypt, uint8_t* out, const uint8_t* in, size_t blocks,
                      const uint8_t* iv) {
    block chain = loadBlock(iv);
    for (; blocks >= Lanes; blocks -= Lanes, in += 16 * Lanes, out += 16 * Lanes) {
        cbcDecryptGroup(decrypt, out, in, chain, std::make_index_sequence<Lanes>());
    }
    for (; blocks > 0; --blocks, in += 16, out += 16) {
        cbcDecryptGroup(decrypt, out, in, chain, std::make_index_sequence<1>());
    }
}

}  // namespace aesSoftware
}  // namespace tavik

#endif  // TAVIK_AES_SOFTWARE_H_
