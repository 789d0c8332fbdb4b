// The AES engines' kernels on the CPU's AES instructions. This file alone is compiled with
// the instruction-set flags for them, and it is entered only after aesModes::choose has
// found them on the CPU, so the library still runs on CPUs without them. It includes no
// header with inline code shared by other files, so that no copy of such code compiled
// for these instructions can be picked by the linker for use elsewhere.
//
// One AES round (AESENC) is SubBytes, ShiftRows, MixColumns and AddRoundKey; the last
// (AESENCLAST) leaves out MixColumns, so the one-round engine is a single AESENCLAST. The
// inverse rounds (AESDEC) apply InvMixColumns before the round key is added, so the
// deciphering round keys are the enciphering ones passed through InvMixColumns (AESIMC).
// Independent blocks (ECB, CBC decryption) go eight at a time to keep the AES unit busy.
#include "tavik/aes_modes.h"

#if defined(__x86_64__) && defined(__AES__)

#include <immintrin.h>

namespace tavik {
namespace aesModes {
namespace {

constexpr int lanes = 8;

inline __m128i load(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline void store(uint8_t* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// Round keys in the order a transformation uses them: k[0] first, k[Nr] in the last round.
template <int Nr>
struct schedule {
    __m128i k[Nr + 1];
};

template <int Nr>
schedule<Nr> encryptionKeys(const uint8_t* roundKey) {
    schedule<Nr> s;
    for (int i = 0; i <= Nr; ++i) {
        s.k[i] = load(roundKey + 16 * i);
    }
    return s;
}

template <int Nr>
schedule<Nr> decryptionKeys(const uint8_t* roundKey) {
    schedule<Nr> s;
    s.k[0] = load(roundKey + 16 * Nr);
    for (int i = 1; i < Nr; ++i) {
        s.k[i] = _mm_aesimc_si128(load(roundKey + 16 * (Nr - i)));
    }
    s.k[Nr] = load(roundKey);
    return s;
}

// The first Nr - 1 steps of a transformation on n blocks side by side: key 0, then the
// middle rounds. The last round is left to the caller, which may fold a XOR into its key.
template <int Nr, bool encipher, int n>
inline void middle(const schedule<Nr>& s, __m128i (&b)[n]) {
#pragma GCC unroll 8
    for (int j = 0; j < n; ++j) {
        b[j] = _mm_xor_si128(b[j], s.k[0]);
    }
#pragma GCC unroll 16
    for (int r = 1; r < Nr; ++r) {
#pragma GCC unroll 8
        for (int j = 0; j < n; ++j) {
            b[j] = encipher ? _mm_aesenc_si128(b[j], s.k[r]) : _mm_aesdec_si128(b[j], s.k[r]);
        }
    }
}

template <bool encipher>
inline __m128i last(__m128i b, __m128i key) {
    return encipher ? _mm_aesenclast_si128(b, key) : _mm_aesdeclast_si128(b, key);
}

template <int Nr, bool encipher, int n>
inline void ecbGroup(const schedule<Nr>& s, uint8_t* out, const uint8_t* in) {
    __m128i b[n];
#pragma GCC unroll 8
    for (int j = 0; j < n; ++j) {
        b[j] = load(in + 16 * j);
    }
    middle<Nr, encipher>(s, b);
#pragma GCC unroll 8
    for (int j = 0; j < n; ++j) {
        store(out + 16 * j, last<encipher>(b[j], s.k[Nr]));
    }
}

template <int Nr, bool encipher>
void ecb(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks) {
    const schedule<Nr> s = encipher ? encryptionKeys<Nr>(roundKey) : decryptionKeys<Nr>(roundKey);
    for (; blocks >= lanes; blocks -= lanes, in += 16 * lanes, out += 16 * lanes) {
        ecbGroup<Nr, encipher, lanes>(s, out, in);
    }
    for (; blocks > 0; --blocks, in += 16, out += 16) {
        ecbGroup<Nr, encipher, 1>(s, out, in);
    }
}

// Serial by nature; the chaining XOR and key 0 of the next block are folded into the last
// round's key, so the dependency chain is the AES rounds alone.
template <int Nr>
void cbcEncrypt(const uint8_t* roundKey, uint8_t* out, uint8_t* in, size_t blocks,
                const uint8_t* iv) {
    const schedule<Nr> s = encryptionKeys<Nr>(roundKey);
    const __m128i lastToFirst = _mm_xor_si128(s.k[Nr], s.k[0]);
    __m128i x = _mm_xor_si128(load(in), load(iv));
    store(in, x);
    x = _mm_xor_si128(x, s.k[0]);
    for (;; in += 16, out += 16) {
#pragma GCC unroll 16
        for (int r = 1; r < Nr; ++r) {
            x = _mm_aesenc_si128(x, s.k[r]);
        }
        if (--blocks == 0) {
            store(out, _mm_aesenclast_si128(x, s.k[Nr]));
            return;
        }
        const __m128i next = load(in + 16);
        // x becomes ciphertext ^ next ^ key 0: the next block's input to its first round.
        x = _mm_aesenclast_si128(x, _mm_xor_si128(lastToFirst, next));
        const __m128i xored = _mm_xor_si128(x, s.k[0]);
        store(out, _mm_xor_si128(xored, next));
        store(in + 16, xored);
    }
}

template <int Nr, int n>
inline void cbcDecryptGroup(const schedule<Nr>& s, uint8_t* out, const uint8_t* in,
                            __m128i& chain) {
    __m128i c[n], b[n];
#pragma GCC unroll 8
    for (int j = 0; j < n; ++j) {
        c[j] = b[j] = load(in + 16 * j);
    }
    middle<Nr, false>(s, b);
    store(out, _mm_aesdeclast_si128(b[0], _mm_xor_si128(s.k[Nr], chain)));
#pragma GCC unroll 8
    for (int j = 1; j < n; ++j) {
        store(out + 16 * j, _mm_aesdeclast_si128(b[j], _mm_xor_si128(s.k[Nr], c[j - 1])));
    }
    chain = c[n - 1];
}

template <int Nr>
void cbcDecrypt(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks,
                const uint8_t* iv) {
    const schedule<Nr> s = decryptionKeys<Nr>(roundKey);
    __m128i chain = load(iv);
    for (; blocks >= lanes; blocks -= lanes, in += 16 * lanes, out += 16 * lanes) {
        cbcDecryptGroup<Nr, lanes>(s, out, in, chain);
    }
    for (; blocks > 0; --blocks, in += 16, out += 16) {
        cbcDecryptGroup<Nr, 1>(s, out, in, chain);
    }
}

template <int Nr>
constexpr kernels kernelsFor = {ecb<Nr, true>, ecb<Nr, false>, cbcEncrypt<Nr>, cbcDecrypt<Nr>};

}  // namespace

const kernels* aesniKernels(int rounds) {
    return rounds == 1 ? &kernelsFor<1> : rounds == 10 ? &kernelsFor<10> : nullptr;
}

}  // namespace aesModes
}  // namespace tavik

#else  // no AES instructions in this build: the engines keep to their software kernels

namespace tavik {
namespace aesModes {

const kernels* aesniKernels(int) {
    return nullptr;
}

}  // namespace aesModes
}  // namespace tavik

#endif
