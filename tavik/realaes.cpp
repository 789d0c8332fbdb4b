#include "tavik/realaes.h"

#include <cstring>

#include "tavik/aes_modes.h"
#include "tavik/aes_software.h"

namespace tavik {
namespace {

constexpr uint8_t sbox[256] = {
    0x63, 0x7c, 0x77, 0x7b, 0xf2, 0x6b, 0x6f, 0xc5, 0x30, 0x01, 0x67, 0x2b, 0xfe, 0xd7, 0xab, 0x76,
    0xca, 0x82, 0xc9, 0x7d, 0xfa, 0x59, 0x47, 0xf0, 0xad, 0xd4, 0xa2, 0xaf, 0x9c, 0xa4, 0x72, 0xc0,
    0xb7, 0xfd, 0x93, 0x26, 0x36, 0x3f, 0xf7, 0xcc, 0x34, 0xa5, 0xe5, 0xf1, 0x71, 0xd8, 0x31, 0x15,
    0x04, 0xc7, 0x23, 0xc3, 0x18, 0x96, 0x05, 0x9a, 0x07, 0x12, 0x80, 0xe2, 0xeb, 0x27, 0xb2, 0x75,
    0x09, 0x83, 0x2c, 0x1a, 0x1b, 0x6e, 0x5a, 0xa0, 0x52, 0x3b, 0xd6, 0xb3, 0x29, 0xe3, 0x2f, 0x84,
    0x53, 0xd1, 0x00, 0xed, 0x20, 0xfc, 0xb1, 0x5b, 0x6a, 0xcb, 0xbe, 0x39, 0x4a, 0x4c, 0x58, 0xcf,
    0xd0, 0xef, 0xaa, 0xfb, 0x43, 0x4d, 0x33, 0x85, 0x45, 0xf9, 0x02, 0x7f, 0x50, 0x3c, 0x9f, 0xa8,
    0x51, 0xa3, 0x40, 0x8f, 0x92, 0x9d, 0x38, 0xf5, 0xbc, 0xb6, 0xda, 0x21, 0x10, 0xff, 0xf3, 0xd2,
    0xcd, 0x0c, 0x13, 0xec, 0x5f, 0x97, 0x44, 0x17, 0xc4, 0xa7, 0x7e, 0x3d, 0x64, 0x5d, 0x19, 0x73,
    0x60, 0x81, 0x4f, 0xdc, 0x22, 0x2a, 0x90, 0x88, 0x46, 0xee, 0xb8, 0x14, 0xde, 0x5e, 0x0b, 0xdb,
    0xe0, 0x32, 0x3a, 0x0a, 0x49, 0x06, 0x24, 0x5c, 0xc2, 0xd3, 0xac, 0x62, 0x91, 0x95, 0xe4, 0x79,
    0xe7, 0xc8, 0x37, 0x6d, 0x8d, 0xd5, 0x4e, 0xa9, 0x6c, 0x56, 0xf4, 0xea, 0x65, 0x7a, 0xae, 0x08,
    0xba, 0x78, 0x25, 0x2e, 0x1c, 0xa6, 0xb4, 0xc6, 0xe8, 0xdd, 0x74, 0x1f, 0x4b, 0xbd, 0x8b, 0x8a,
    0x70, 0x3e, 0xb5, 0x66, 0x48, 0x03, 0xf6, 0x0e, 0x61, 0x35, 0x57, 0xb9, 0x86, 0xc1, 0x1d, 0x9e,
    0xe1, 0xf8, 0x98, 0x11, 0x69, 0xd9, 0x8e, 0x94, 0x9b, 0x1e, 0x87, 0xe9, 0xce, 0x55, 0x28, 0xdf,
    0x8c, 0xa1, 0x89, 0x0d, 0xbf, 0xe6, 0x42, 0x68, 0x41, 0x99, 0x2d, 0x0f, 0xb0, 0x54, 0xbb, 0x16,
};
constexpr uint8_t rsbox[256] = {
    0x52, 0x09, 0x6a, 0xd5, 0x30, 0x36, 0xa5, 0x38, 0xbf, 0x40, 0xa3, 0x9e, 0x81, 0xf3, 0xd7, 0xfb,
    0x7c, 0xe3, 0x39, 0x82, 0x9b, 0x2f, 0xff, 0x87, 0x34, 0x8e, 0x43, 0x44, 0xc4, 0xde, 0xe9, 0xcb,
    0x54, 0x7b, 0x94, 0x32, 0xa6, 0xc2, 0x23, 0x3d, 0xee, 0x4c, 0x95, 0x0b, 0x42, 0xfa, 0xc3, 0x4e,
    0x08, 0x2e, 0xa1, 0x66, 0x28, 0xd9, 0x24, 0xb2, 0x76, 0x5b, 0xa2, 0x49, 0x6d, 0x8b, 0xd1, 0x25,
    0x72, 0xf8, 0xf6, 0x64, 0x86, 0x68, 0x98, 0x16, 0xd4, 0xa4, 0x5c, 0xcc, 0x5d, 0x65, 0xb6, 0x92,
    0x6c, 0x70, 0x48, 0x50, 0xfd, 0xed, 0xb9, 0xda, 0x5e, 0x15, 0x46, 0x57, 0xa7, 0x8d, 0x9d, 0x84,
    0x90, 0xd8, 0xab, 0x00, 0x8c, 0xbc, 0xd3, 0x0a, 0xf7, 0xe4, 0x58, 0x05, 0xb8, 0xb3, 0x45, 0x06,
    0xd0, 0x2c, 0x1e, 0x8f, 0xca, 0x3f, 0x0f, 0x02, 0xc1, 0xaf, 0xbd, 0x03, 0x01, 0x13, 0x8a, 0x6b,
    0x3a, 0x91, 0x11, 0x41, 0x4f, 0x67, 0xdc, 0xea, 0x97, 0xf2, 0xcf, 0xce, 0xf0, 0xb4, 0xe6, 0x73,
    0x96, 0xac, 0x74, 0x22, 0xe7, 0xad, 0x35, 0x85, 0xe2, 0xf9, 0x37, 0xe8, 0x1c, 0x75, 0xdf, 0x6e,
    0x47, 0xf1, 0x1a, 0x71, 0x1d, 0x29, 0xc5, 0x89, 0x6f, 0xb7, 0x62, 0x0e, 0xaa, 0x18, 0xbe, 0x1b,
    0xfc, 0x56, 0x3e, 0x4b, 0xc6, 0xd2, 0x79, 0x20, 0x9a, 0xdb, 0xc0, 0xfe, 0x78, 0xcd, 0x5a, 0xf4,
    0x1f, 0xdd, 0xa8, 0x33, 0x88, 0x07, 0xc7, 0x31, 0xb1, 0x12, 0x10, 0x59, 0x27, 0x80, 0xec, 0x5f,
    0x60, 0x51, 0x7f, 0xa9, 0x19, 0xb5, 0x4a, 0x0d, 0x2d, 0xe5, 0x7a, 0x9f, 0x93, 0xc9, 0x9c, 0xef,
    0xa0, 0xe0, 0x3b, 0x4d, 0xae, 0x2a, 0xf5, 0xb0, 0xc8, 0xeb, 0xbb, 0x3c, 0x83, 0x53, 0x99, 0x61,
    0x17, 0x2b, 0x04, 0x7e, 0xba, 0x77, 0xd6, 0x26, 0xe1, 0x69, 0x14, 0x63, 0x55, 0x21, 0x0c, 0x7d,
};

constexpr uint8_t timesX(uint8_t x) {
    return static_cast<uint8_t>((x << 1) ^ (((x >> 7) & 1) * 0x1b));
}

// Round constants: Rcon[i] is x^(i-1) in GF(2^8); key word w uses Rcon[w / 4].
struct rconTable {
    uint8_t value[255];
};

constexpr rconTable makeRcon() {
    rconTable t{};
    t.value[0] = 0x8d;
    for (int i = 1; i < 255; ++i) {
        t.value[i] = timesX(t.value[i - 1]);
    }
    return t;
}

constexpr rconTable Rcon = makeRcon();

// Round tables: byRow[r][x] is the MixColumns column contributed by the S-box value of byte x in
// row r, packed with row 0 in the low byte. A middle round is then 16 lookups and XORs.
struct roundTables {
    uint32_t byRow[4][256];
};

constexpr roundTables makeRoundTables() {
    roundTables t{};
    for (int x = 0; x < 256; ++x) {
        uint32_t s = sbox[x];
        uint32_t s2 = timesX(sbox[x]);
        uint32_t s3 = s2 ^ s;
        uint32_t column = s2 | (s << 8) | (s << 16) | (s3 << 24);
        for (int r = 0; r < 4; ++r) {
            t.byRow[r][x] = r == 0 ? column : (column << (8 * r)) | (column >> (32 - 8 * r));
        }
    }
    return t;
}

constexpr roundTables Te = makeRoundTables();

constexpr uint8_t times(uint8_t x, uint8_t factor) {
    uint8_t product = 0;
    for (; factor != 0; factor >>= 1, x = timesX(x)) {
        if (factor & 1) {
            product ^= x;
        }
    }
    return product;
}

// Inverse round tables: byRow[r][x] is the InvMixColumns column contributed by the inverse
// S-box value of byte x in row r.
constexpr roundTables makeInvRoundTables() {
    roundTables t{};
    for (int x = 0; x < 256; ++x) {
        uint8_t s = rsbox[x];
        uint32_t column = times(s, 0x0e) | (times(s, 0x09) << 8) | (times(s, 0x0d) << 16) |
                          (static_cast<uint32_t>(times(s, 0x0b)) << 24);
        for (int r = 0; r < 4; ++r) {
            t.byRow[r][x] = r == 0 ? column : (column << (8 * r)) | (column >> (32 - 8 * r));
        }
    }
    return t;
}

constexpr roundTables Td = makeInvRoundTables();

// The software kernels below are table-based: their lookups are indexed by key-dependent
// bytes, so their timing depends on the key and the data (not constant-time).
using aesSoftware::block;
using aesSoftware::byteOf;
using aesSoftware::load32;

constexpr int Nr = REALAES::Nr;
constexpr size_t lanesAtOnce = 2;  // blocks side by side in ECB and CBC decryption

// SubBytes, ShiftRows and MixColumns for output column i, whose row r byte comes from
// column i + r: one table lookup per byte.
inline uint32_t roundColumn(const uint32_t (&c)[4], int i) {
    return (Te.byRow[0][byteOf(c[i], 0)] ^ Te.byRow[1][byteOf(c[(i + 1) & 3], 1)]) ^
           (Te.byRow[2][byteOf(c[(i + 2) & 3], 2)] ^ Te.byRow[3][byteOf(c[(i + 3) & 3], 3)]);
}

// SubBytes and ShiftRows alone: row r of byRow[r - 1] holds the plain S-box value.
inline uint32_t lastRoundColumn(const uint32_t (&c)[4], int i) {
    return (Te.byRow[3][byteOf(c[i], 0)] & 0x000000ff) |
           (Te.byRow[0][byteOf(c[(i + 1) & 3], 1)] & 0x0000ff00) |
           (Te.byRow[1][byteOf(c[(i + 2) & 3], 2)] & 0x00ff0000) |
           (Te.byRow[2][byteOf(c[(i + 3) & 3], 3)] & 0xff000000);
}

// InvShiftRows, InvSubBytes and InvMixColumns for output column i, whose row r byte comes
// from column i - r.
inline uint32_t invRoundColumn(const uint32_t (&c)[4], int i) {
    return (Td.byRow[0][byteOf(c[i], 0)] ^ Td.byRow[1][byteOf(c[(i + 3) & 3], 1)]) ^
           (Td.byRow[2][byteOf(c[(i + 2) & 3], 2)] ^ Td.byRow[3][byteOf(c[(i + 1) & 3], 3)]);
}

inline uint32_t invLastRoundColumn(const uint32_t (&c)[4], int i) {
    return static_cast<uint32_t>(rsbox[byteOf(c[i], 0)]) |
           (static_cast<uint32_t>(rsbox[byteOf(c[(i + 3) & 3], 1)]) << 8) |
           (static_cast<uint32_t>(rsbox[byteOf(c[(i + 2) & 3], 2)]) << 16) |
           (static_cast<uint32_t>(rsbox[byteOf(c[(i + 1) & 3], 3)]) << 24);
}

// One round on a block: column(c, i) for every column, then the round key.
template <class Column>
inline block round(const block& b, const uint32_t* key, Column column) {
    return {{column(b.c, 0) ^ key[0], column(b.c, 1) ^ key[1], column(b.c, 2) ^ key[2],
             column(b.c, 3) ^ key[3]}};
}

inline block addKey(const block& b, const uint32_t* key) {
    return {{b.c[0] ^ key[0], b.c[1] ^ key[1], b.c[2] ^ key[2], b.c[3] ^ key[3]}};
}

// Round keys as column words, in the order a transformation uses them.
struct keyWords {
    uint32_t w[4 * (Nr + 1)];
};

keyWords encryptionKeys(const uint8_t* roundKey) {
    keyWords k;
    for (int i = 0; i < 4 * (Nr + 1); ++i) {
        k.w[i] = load32(roundKey + 4 * i);
    }
    return k;
}

inline uint32_t rotateRight(uint32_t w, int bits) {
    return (w >> bits) | (w << (32 - bits));
}

// xtime on the four bytes of a word at once.
inline uint32_t timesX4(uint32_t w) {
    return ((w & 0x7f7f7f7f) << 1) ^ (((w >> 7) & 0x01010101) * 0x1b);
}

// InvMixColumns of one column word: the inverse polynomial is the forward one times
// {04}x^2 + {05}, so multiply by that first, then MixColumns.
inline uint32_t invMixColumn(uint32_t w) {
    w ^= timesX4(timesX4(w ^ rotateRight(w, 16)));
    uint32_t all = w ^ rotateRight(w, 8) ^ rotateRight(w, 16) ^ rotateRight(w, 24);
    return w ^ all ^ timesX4(w ^ rotateRight(w, 8));
}

// The inverse rounds add their key before InvMixColumns; since InvMixColumns is linear, the
// tables apply it to the state and the middle keys go through it here, once per call.
keyWords decryptionKeys(const uint8_t* roundKey) {
    keyWords k;
    for (int round = 0; round <= Nr; ++round) {
        for (int i = 0; i < 4; ++i) {
            uint32_t w = load32(roundKey + 16 * (Nr - round) + 4 * i);
            k.w[4 * round + i] = round == 0 || round == Nr ? w : invMixColumn(w);
        }
    }
    return k;
}

// The whole cipher (or inverse cipher) on blocks side by side, round by round, so that their
// lookups overlap.
template <bool encipher>
struct lanes {
    keyWords k;
    template <class... Blocks>
    void operator()(Blocks&... b) const {
        auto middle = [](const uint32_t(&c)[4], int i) {
            return encipher ? roundColumn(c, i) : invRoundColumn(c, i);
        };
        auto last = [](const uint32_t(&c)[4], int i) {
            return encipher ? lastRoundColumn(c, i) : invLastRoundColumn(c, i);
        };
        ((b = addKey(b, k.w)), ...);
        for (int r = 1; r < Nr; ++r) {
            ((b = round(b, k.w + 4 * r, middle)), ...);
        }
        ((b = round(b, k.w + 4 * Nr, last)), ...);
    }
};

void encryptBlocks(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks) {
    aesSoftware::ecbBlocks<lanesAtOnce>(lanes<true>{encryptionKeys(roundKey)}, out, in, blocks);
}

void decryptBlocks(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks) {
    aesSoftware::ecbBlocks<lanesAtOnce>(lanes<false>{decryptionKeys(roundKey)}, out, in, blocks);
}

void cbcEncryptBlocks(const uint8_t* roundKey, uint8_t* out, uint8_t* in, size_t blocks,
                      const uint8_t* iv) {
    aesSoftware::cbcEncryptBlocks(lanes<true>{encryptionKeys(roundKey)}, out, in, blocks, iv);
}

void cbcDecryptBlocks(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks,
                      const uint8_t* iv) {
    aesSoftware::cbcDecryptBlocks<lanesAtOnce>(lanes<false>{decryptionKeys(roundKey)}, out, in,
                                         blocks, iv);
}

constexpr aesModes::kernels software = {encryptBlocks, decryptBlocks, cbcEncryptBlocks,
                                        cbcDecryptBlocks};

const aesModes::kernels& kernels() {
    return aesModes::choose(Nr, aesModes::avx2::bitslicedKernels(),
                           aesModes::ssse3::bitslicedKernels(), software);
}

}  // namespace

void REALAES::setKey(const uint8_t* key) {
    Key = key != nullptr ? key : aesModes::zeroIv;
    KeyExpansion();
    Key = nullptr;  // the key bytes are consumed; no pointer to caller memory is kept
}

void REALAES::KeyExpansion() {
    aesSoftware::expandKey(RoundKey, Key, Nr, sbox, Rcon.value);
}

void REALAES::Cipher() {
    kernels().encrypt(RoundKey, (*state)[0], (*state)[0], 1);
}

void REALAES::InvCipher() {
    kernels().decrypt(RoundKey, (*state)[0], (*state)[0], 1);
}

void REALAES::AES128_ECB_encrypt(uint8_t* input, uint8_t* output) {
    std::memmove(output, input, blockLen);
    state = reinterpret_cast<state_t*>(output);
    Cipher();
}

void REALAES::AES128_ECB_decrypt(uint8_t* input, uint8_t* output) {
    std::memmove(output, input, blockLen);
    state = reinterpret_cast<state_t*>(output);
    InvCipher();
}

void REALAES::AES128_ECB_encrypt_buffer(uint8_t* output, const uint8_t* input, uint32_t length) {
    aesModes::ecbBuffer(kernels().encrypt, RoundKey, output, input, length);
}

void REALAES::AES128_ECB_decrypt_buffer(uint8_t* output, const uint8_t* input, uint32_t length) {
    aesModes::ecbBuffer(kernels().decrypt, RoundKey, output, input, length);
}

void REALAES::AES128_CBC_encrypt_buffer(uint8_t* output, uint8_t* input, uint32_t length,
                                        const uint8_t* iv) {
    aesModes::cbcEncryptBuffer(kernels(), RoundKey, output, input, length, iv, Iv);
}

void REALAES::AES128_CBC_decrypt_buffer(uint8_t* output, uint8_t* input, uint32_t length,
                                        const uint8_t* iv) {
    aesModes::cbcDecryptBuffer(kernels(), RoundKey, output, input, length, iv, Iv);
}

}  // namespace tavik
