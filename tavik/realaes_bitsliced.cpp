// REALAES's kernels for CPUs without AES instructions, bitsliced: eight blocks at once in SSE
// registers (this file, compiled for SSSE3), or sixteen in AVX2 registers, two groups of eight
// side by side (realaes_bitsliced_avx2.cpp compiles this file once more for AVX2). Each copy
// is entered only after aesModes::choose has found its instructions on the CPU. No table
// lookups: the S-box is a Boolean circuit, so the timing does not depend on the data.
//
// Eight blocks are held as eight registers, one per bit of a byte: bit b of byte (row, column)
// of block j is bit j of byte 4 * row + column of register b. A byte-wise function is then a
// circuit over the eight registers (aes_sbox_circuits.h), and the rest are byte shuffles
// within each register.
// The round keys are spread into bit planes once per call. ECB and CBC decryption go through
// here; CBC encryption (one block after the other) and the blocks left over after the groups
// go to the vector-permute kernels.
#include "tavik/aes_modes.h"

#if defined(__x86_64__)  // elsewhere REALAES keeps to its table kernels

#include <immintrin.h>

#include <cstring>

#include "tavik/aes_kernel_level.h"
#include "tavik/aes_sbox_circuits.h"

namespace tavik {
namespace aesModes {
namespace TAVIK_AES_LEVEL {
namespace {

constexpr int Nr = 10;

#if defined(TAVIK_AES_AVX2)

using vec = __m256i;
constexpr int lanes = 16;

[[gnu::always_inline]] inline vec bytes(__m128i x) {
    return _mm256_broadcastsi128_si256(x);
}

// Register j holds blocks j and j + 8.
[[gnu::always_inline]] inline vec loadBlocks(const uint8_t* in, int j) {
    return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(in + 16 * (j + 8)),
                               reinterpret_cast<const __m128i*>(in + 16 * j));
}

[[gnu::always_inline]] inline void storeBlocks(uint8_t* out, int j, vec x) {
    _mm256_storeu2_m128i(reinterpret_cast<__m128i*>(out + 16 * (j + 8)),
                         reinterpret_cast<__m128i*>(out + 16 * j), x);
}

[[gnu::always_inline]] inline vec shuffle(vec x, vec order) {
    return _mm256_shuffle_epi8(x, order);
}

template <int n>
[[gnu::always_inline]] inline vec shiftDown(vec x) {
    return _mm256_srli_epi64(x, n);
}

template <int n>
[[gnu::always_inline]] inline vec shiftUp(vec x) {
    return _mm256_slli_epi64(x, n);
}

[[gnu::always_inline]] inline vec equal(vec x, vec y) {
    return _mm256_cmpeq_epi8(x, y);
}

template <int order>
[[gnu::always_inline]] inline vec dwords(vec x) {
    return _mm256_shuffle_epi32(x, order);
}

#else

using vec = __m128i;
constexpr int lanes = 8;

[[gnu::always_inline]] inline vec bytes(__m128i x) {
    return x;
}

[[gnu::always_inline]] inline vec loadBlocks(const uint8_t* in, int j) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 16 * j));
}

[[gnu::always_inline]] inline void storeBlocks(uint8_t* out, int j, vec x) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * j), x);
}

[[gnu::always_inline]] inline vec shuffle(vec x, vec order) {
    return _mm_shuffle_epi8(x, order);
}

template <int n>
[[gnu::always_inline]] inline vec shiftDown(vec x) {
    return _mm_srli_epi64(x, n);
}

template <int n>
[[gnu::always_inline]] inline vec shiftUp(vec x) {
    return _mm_slli_epi64(x, n);
}

[[gnu::always_inline]] inline vec equal(vec x, vec y) {
    return _mm_cmpeq_epi8(x, y);
}

template <int order>
[[gnu::always_inline]] inline vec dwords(vec x) {
    return _mm_shuffle_epi32(x, order);
}

#endif

using planes = vec[8];

// Rows are never shifted in the registers: after t ShiftRows (t counted mod 4) byte (row, col)
// of the state sits at column col + t * row of its row, and the byte orders below follow
// that. Each is a table of 32 bytes, one 16-byte order repeated for both halves of an AVX2
// register.
struct order {
    alignas(32) int8_t byte[32];
};

// Every byte takes the byte rows further down the same column of the state.
constexpr order rowsDown(int rows, int t) {
    order o{};
    for (int q = 0; q < 32; ++q) {
        int row = q % 16 / 4, col = q % 4;
        o.byte[q] = static_cast<int8_t>(4 * ((row + rows) & 3) + ((col + rows * t) & 3));
    }
    return o;
}

// Deciphering in SSE registers shifts the rows in place every round instead (t stays 0), so
// that the three column turns of a round are dword shuffles, which write a register of their
// own, where SSE's byte shuffle overwrites its input and keeping that costs a copy. With AVX2's
// three-operand forms the copies are free, and fixed rows save the shifts.
#if defined(TAVIK_AES_AVX2)
constexpr bool decipherShifts = false;
#else
constexpr bool decipherShifts = true;
#endif

// InvShiftRows on rows in place: row r turns right by r bytes.
constexpr order invShiftRows() {
    order o{};
    for (int q = 0; q < 32; ++q) {
        int row = q % 16 / 4, col = q % 4;
        o.byte[q] = static_cast<int8_t>(4 * row + ((col - row) & 3));
    }
    return o;
}

// Between a block in memory (column by column) and the registers' rows after t shifts.
constexpr order fromMemory(int t) {
    order o{};
    for (int q = 0; q < 32; ++q) {
        int row = q % 16 / 4, col = q % 4;
        o.byte[q] = static_cast<int8_t>(4 * ((col - t * row) & 3) + row);
    }
    return o;
}

constexpr order toMemory(int t) {
    order o{};
    for (int m = 0; m < 32; ++m) {
        int col = m % 16 / 4, row = m % 4;
        o.byte[m] = static_cast<int8_t>(4 * row + ((col + t * row) & 3));
    }
    return o;
}

constexpr order nextRow[4] = {rowsDown(1, 0), rowsDown(1, 1), rowsDown(1, 2), rowsDown(1, 3)};
constexpr order rowAfterNext[4] = {rowsDown(2, 0), rowsDown(2, 1), rowsDown(2, 2),
                                   rowsDown(2, 3)};
constexpr order keyOrder[4] = {fromMemory(0), fromMemory(1), fromMemory(2), fromMemory(3)};
// Both directions end after ten (inverse) shifts: t = 2 either way, unless shifted in place.
constexpr order blockOrder = fromMemory(0), outputOrder = toMemory(2),
                inPlaceOutputOrder = toMemory(0), inPlaceInvShift = invShiftRows();

[[gnu::always_inline]] inline vec reorder(vec x, const order& o) {
    return shuffle(x, *reinterpret_cast<const vec*>(o.byte));
}

// Swaps bit p + n of low with bit p of high, for the bit positions p in mask.
template <int n>
[[gnu::always_inline]] inline void swapBits(vec& low, vec& high, char mask) {
    const vec t = (shiftDown<n>(low) ^ high) & bytes(_mm_set1_epi8(mask));
    high ^= t;
    low ^= shiftUp<n>(t);
}

// In every byte position, bit b of register j trades places with bit j of register b: eight
// blocks become bit planes, and back (the transposition is its own inverse).
[[gnu::always_inline]] inline void transpose(planes& x) {
#pragma GCC unroll 8
    for (int j = 0; j < 8; j += 2) swapBits<1>(x[j], x[j + 1], 0x55);
#pragma GCC unroll 8
    for (int j = 0; j < 4; ++j) swapBits<2>(x[j / 2 * 4 + j % 2], x[j / 2 * 4 + j % 2 + 2], 0x33);
#pragma GCC unroll 8
    for (int j = 0; j < 4; ++j) swapBits<4>(x[j], x[j + 4], 0x0f);
}

// The round keys in bit planes, every block's bit alike: a byte of plane b is 0xff where the
// key byte has bit b set, in the byte order of the round that adds the key (key r comes after
// r shifts when enciphering, after 10 - r inverse shifts when deciphering). The S-box
// constant 0x63 is folded into the keys next to SubBytes (MixColumns keeps a constant in
// every byte as it is).
struct schedule {
    planes k[Nr + 1];
};

schedule keyPlanes(const uint8_t* roundKey, bool encipher) {
    schedule s;
    for (int r = 0; r <= Nr; ++r) {
        __m128i key = _mm_loadu_si128(reinterpret_cast<const __m128i*>(roundKey + 16 * r));
        if (r > 0) {
            key = _mm_xor_si128(key, _mm_set1_epi8(0x63));
        }
        const int shifts = encipher ? r : decipherShifts ? 0 : r + 2;
        const vec k = reorder(bytes(key), keyOrder[shifts & 3]);
#pragma GCC unroll 8
        for (int b = 0; b < 8; ++b) {
            const vec bit = bytes(_mm_set1_epi8(static_cast<char>(1 << b)));
            s.k[r][b] = equal(k & bit, bit);
        }
    }
    return s;
}

[[gnu::always_inline]] inline void addRoundKey(planes& x, const planes& k) {
#pragma GCC unroll 8
    for (int b = 0; b < 8; ++b) x[b] ^= k[b];
}

// Every byte of x takes the byte one (or two) rows further down its column, after the given
// number of shifts, or with the rows shifted in place.
template <int rows, bool inPlace>
[[gnu::always_inline]] inline vec rowsDown(vec x, int shifts) {
    if (inPlace) {
        return dwords<(rows == 1 ? 0x39 : 0x4e)>(x);
    }
    return reorder(x, rows == 1 ? nextRow[shifts] : rowAfterNext[shifts]);
}

// 2 a0 + 3 a1 + a2 + a3 for each byte, ak being the byte k rows further down its column: with
// t = a0 + a1 that is 2 t + a1 + (a2 + a3). Doubling moves every bit up one plane and adds
// the top bit at the bits of 0x1b.
template <bool inPlace = false>
[[gnu::always_inline]] inline void mixColumns(planes& x, int shifts) {
    vec next[8], t[8];
#pragma GCC unroll 8
    for (int b = 0; b < 8; ++b) {
        next[b] = rowsDown<1, inPlace>(x[b], shifts);
        t[b] = x[b] ^ next[b];
    }
#pragma GCC unroll 8
    for (int b = 0; b < 8; ++b) {
        x[b] = next[b] ^ rowsDown<2, inPlace>(t[b], shifts) ^ t[(b + 7) & 7];
    }
    x[1] ^= t[7];
    x[3] ^= t[7];
    x[4] ^= t[7];
}

// InvMixColumns is MixColumns after multiplying each column by 4 x^2 + 5: b = a0 + 4 u with
// u = a0 + a2. Since b0 + b2 is u again, MixColumns of b is b + r + r1 with r = u + 2 b (r1
// one row down): a round needs only the rotations for u and r1, none for b.
template <bool inPlace>
[[gnu::always_inline]] inline void invMixColumns(planes& x, int shifts) {
    vec u[8];
#pragma GCC unroll 8
    for (int b = 0; b < 8; ++b) u[b] = x[b] ^ rowsDown<2, inPlace>(x[b], shifts);
    const vec u67 = u[6] ^ u[7];
    const vec times4[8] = {u[6],       u67,         u[0] ^ u[7], u[1] ^ u[6],
                           u[2] ^ u67, u[3] ^ u[7], u[4],        u[5]};
#pragma GCC unroll 8
    for (int b = 0; b < 8; ++b) x[b] ^= times4[b];
    // r = u + 2 b, doubling as in mixColumns.
    u[0] ^= x[7];
#pragma GCC unroll 8
    for (int b = 1; b < 8; ++b) u[b] ^= x[b - 1];
    u[1] ^= x[7];
    u[3] ^= x[7];
    u[4] ^= x[7];
#pragma GCC unroll 8
    for (int b = 0; b < 8; ++b) x[b] ^= u[b] ^ rowsDown<1, inPlace>(u[b], shifts);
}

[[gnu::always_inline]] inline void encryptPlanes(const schedule& s, planes& x) {
    addRoundKey(x, s.k[0]);
    for (int r = 1; r < Nr; ++r) {
        circuit::subBytes(x);
        mixColumns(x, r & 3);
        addRoundKey(x, s.k[r]);
    }
    circuit::subBytes(x);
    addRoundKey(x, s.k[Nr]);
}

[[gnu::always_inline]] inline void invShiftInPlace(planes& x) {
    if (decipherShifts) {
#pragma GCC unroll 8
        for (int b = 0; b < 8; ++b) x[b] = reorder(x[b], inPlaceInvShift);
    }
}

// The inverse rounds as the cipher defines them: InvShiftRows, InvSubBytes, AddRoundKey,
// then InvMixColumns, so the round keys need no transformation.
[[gnu::always_inline]] inline void decryptPlanes(const schedule& s, planes& x) {
    addRoundKey(x, s.k[Nr]);
    for (int r = Nr - 1; r > 0; --r) {
        invShiftInPlace(x);
        circuit::invSubBytes(x);
        addRoundKey(x, s.k[r]);
        invMixColumns<decipherShifts>(x, (r + 2) & 3);
    }
    invShiftInPlace(x);
    circuit::invSubBytes(x);
    addRoundKey(x, s.k[0]);
}

// One group of blocks from in, transformed, in registers by block again.
template <bool encipher>
[[gnu::always_inline]] inline void group(const schedule& s, planes& x, const uint8_t* in) {
#pragma GCC unroll 8
    for (int j = 0; j < 8; ++j) x[j] = reorder(loadBlocks(in, j), blockOrder);
    transpose(x);
    if (encipher) {
        encryptPlanes(s, x);
    } else {
        decryptPlanes(s, x);
    }
    transpose(x);
#pragma GCC unroll 8
    for (int j = 0; j < 8; ++j) {
        x[j] = reorder(x[j], encipher || !decipherShifts ? outputOrder : inPlaceOutputOrder);
    }
}

template <bool encipher>
void ecb(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks) {
    if (blocks >= lanes) {
        const schedule s = keyPlanes(roundKey, encipher);
        for (; blocks >= lanes; blocks -= lanes, in += 16 * lanes, out += 16 * lanes) {
            planes x;
            group<encipher>(s, x, in);
#pragma GCC unroll 8
            for (int j = 0; j < 8; ++j) storeBlocks(out, j, x[j]);
        }
    }
    if (blocks > 0) {
        const kernels* rest = vectorPermuteKernels();
        (encipher ? rest->encrypt : rest->decrypt)(roundKey, out, in, blocks);
    }
}

void cbcEncrypt(const uint8_t* roundKey, uint8_t* out, uint8_t* in, size_t blocks,
                const uint8_t* iv) {
    vectorPermuteKernels()->cbcEncrypt(roundKey, out, in, blocks, iv);
}

// Each group's plaintexts are XOR-ed with the ciphertexts before them, all read before any
// output is written, since out may be in.
void cbcDecrypt(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks,
                const uint8_t* iv) {
    uint8_t chain[16];
    std::memcpy(chain, iv, 16);
    if (blocks >= lanes) {
        const schedule s = keyPlanes(roundKey, false);
        for (; blocks >= lanes; blocks -= lanes, in += 16 * lanes, out += 16 * lanes) {
            planes x;
            group<false>(s, x, in);
            vec previous[8];
#if defined(TAVIK_AES_AVX2)
            previous[0] = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(in + 16 * 7),
                                              reinterpret_cast<const __m128i*>(chain));
#else
            previous[0] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(chain));
#endif
#pragma GCC unroll 8
            for (int j = 1; j < 8; ++j) previous[j] = loadBlocks(in, j - 1);
            std::memcpy(chain, in + 16 * (lanes - 1), 16);
#pragma GCC unroll 8
            for (int j = 0; j < 8; ++j) storeBlocks(out, j, x[j] ^ previous[j]);
        }
    }
    if (blocks > 0) {
        vectorPermuteKernels()->cbcDecrypt(roundKey, out, in, blocks, chain);
    }
}

constexpr kernels bitsliced = {ecb<true>, ecb<false>, cbcEncrypt, cbcDecrypt};

}  // namespace

const kernels* bitslicedKernels() {
    return &bitsliced;
}

}  // namespace TAVIK_AES_LEVEL
}  // namespace aesModes
}  // namespace tavik

#endif
