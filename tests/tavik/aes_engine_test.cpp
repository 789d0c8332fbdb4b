// The AES engines on all their paths: REALAES against OpenSSL's libcrypto as an independent
// oracle, and AES, the one-round variant, against a model written from its definition.
#include "tavik/realaes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tavik/aes.h"
#include "tavik/aes_modes.h"

namespace {

using bytes = std::vector<uint8_t>;
using tavik::REALAES;

// OpenSSL's encryption of the whole blocks of in.
bytes openssl(const EVP_CIPHER* type, const bytes& key, const bytes& iv, const bytes& in) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    bytes out(in.size() + 16);
    int len = 0, tail = 0;
    EVP_EncryptInit_ex(ctx, type, nullptr, key.data(), iv.empty() ? nullptr : iv.data());
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    EVP_EncryptUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(in.size() / 16 * 16));
    EVP_EncryptFinal_ex(ctx, out.data() + len, &tail);
    EVP_CIPHER_CTX_free(ctx);
    out.resize(len + tail);
    return out;
}

// The one-round cipher written out from its definition: AddRoundKey(0), SubBytes, ShiftRows,
// AddRoundKey(1), with the S-box computed as the affine map of the inverse in GF(2^8).
uint8_t sbox(uint8_t x) {
    static const bytes table = [] {
        auto times = [](uint8_t a, uint8_t b) {
            uint8_t p = 0;
            for (; b != 0; b >>= 1, a = static_cast<uint8_t>((a << 1) ^ (a & 0x80 ? 0x1b : 0))) {
                if (b & 1) p ^= a;
            }
            return p;
        };
        bytes t(256);
        for (int x = 0; x < 256; ++x) {
            uint8_t inverse = 1, s = 0x63;
            for (int i = 0; i < 254; ++i) inverse = times(inverse, x);  // x^254, and 0 for 0
            for (int r = 0; r < 5; ++r) s ^= static_cast<uint8_t>(inverse << r | inverse >> (8 - r));
            t[x] = s;
        }
        return t;
    }();
    return table[x];
}

// The model over the whole blocks of in: ECB, or CBC from iv when one is given.
bytes oneRound(const bytes& key, const bytes& iv, const bytes& in) {
    uint8_t next[16];  // round key 1
    for (int i = 0; i < 16; ++i) {
        next[i] = key[i] ^ (i < 4 ? sbox(key[12 + (i + 1) % 4]) ^ (i == 0) : next[i - 4]);
    }
    bytes out(in.size() / 16 * 16), chain = iv.empty() ? bytes(16) : iv;
    for (size_t b = 0; b < out.size(); b += 16) {
        for (int i = 0; i < 16; ++i) {
            int from = (i + 4 * (i % 4)) % 16;  // ShiftRows: row r comes from column + r
            out[b + i] = sbox(in[b + from] ^ chain[from] ^ key[from]) ^ next[i];
        }
        if (!iv.empty()) chain.assign(&out[b], &out[b] + 16);
    }
    return out;
}

// What an engine makes of one case with the path in force: ECB over the buffer, undone in
// place; the first block alone, back, and as CBC before any iv (chained from zero bytes);
// CBC in two calls chained by a null iv, the input as CBC leaves it, and the CBC decryption
// in two calls, the second in place.
using outcome = std::vector<bytes>;

template <class Engine>
outcome run(const bytes& key, const bytes& iv, bytes plain, uint32_t split) {
    Engine e;
    e.setKey(key.data());
    uint32_t n = static_cast<uint32_t>(plain.size());
    bytes ecb(n, 0xAA), first(16), unchained(16), cbc(n, 0xAA), back(n, 0xAA);
    bytes head(plain.begin(), plain.begin() + 16);
    e.AES128_CBC_encrypt_buffer(unchained.data(), head.data(), 16, nullptr);
    e.AES128_ECB_encrypt_buffer(ecb.data(), plain.data(), n);
    bytes ecbBack = ecb;
    e.AES128_ECB_decrypt_buffer(ecbBack.data(), ecbBack.data(), n);
    e.AES128_ECB_encrypt(plain.data(), first.data());
    e.AES128_ECB_decrypt(first.data(), head.data());
    e.AES128_CBC_encrypt_buffer(cbc.data(), plain.data(), split, iv.data());
    e.AES128_CBC_encrypt_buffer(cbc.data() + split, plain.data() + split, n - split, nullptr);
    e.AES128_CBC_decrypt_buffer(back.data(), cbc.data(), split, iv.data());
    std::copy(cbc.begin() + split, cbc.end(), back.begin() + split);
    e.AES128_CBC_decrypt_buffer(back.data() + split, back.data() + split, n - split, nullptr);
    return {ecb, ecbBack, first, unchained, head, cbc, plain, back};
}

// Every path the CPU has (AES instructions, AVX2, SSSE3, tables) against OpenSSL for REALAES
// and the model for AES, so the paths also agree. Lengths run past the eight blocks taken at
// once and now and then end in a partial block (only whole blocks are enciphered, the rest
// zeroed); buffers are exactly n bytes, for AddressSanitizer. CTest runs this program again
// with TAVIK_AES_SOFTWARE=1, as on a CPU without the AES instructions.
TEST(RealAesTest, EveryPathMatchesOpensslAndTheOneRoundModelOnRandomCases) {
    using tavik::aesModes::path;
#if defined(__x86_64__)
    const bool aes = __builtin_cpu_supports("aes") && std::getenv("TAVIK_AES_SOFTWARE") == nullptr;
    const path cpu = aes                               ? path::aesInstructions
                     : __builtin_cpu_supports("avx2")  ? path::avx2
                     : __builtin_cpu_supports("ssse3") ? path::ssse3
                                                       : path::tables;
#else
    const path cpu = path::tables;
#endif
    std::mt19937 rng(20240611);
    for (int i = 0; i < 300; ++i) {
        size_t n = 16 * (1 + rng() % 40) + (i % 4 ? 0 : 1 + rng() % 15), whole = n / 16 * 16;
        uint32_t split = 16 * (rng() % (n / 16 + 1));
        bytes key(16), iv(16), plain(n);
        for (bytes* v : {&key, &iv, &plain}) std::generate(v->begin(), v->end(), std::ref(rng));
        bytes zeroed = plain;
        std::fill(zeroed.begin() + whole, zeroed.end(), 0);
        auto expected = [&](bytes ecb, bytes cbc) {
            bytes xored = plain, head(ecb.begin(), ecb.begin() + 16);
            for (size_t j = 0; j < whole; ++j) xored[j] ^= j < 16 ? iv[j] : cbc[j - 16];
            ecb.resize(n, 0);
            cbc.resize(n, 0);
            bytes plainHead(plain.begin(), plain.begin() + 16);
            return outcome{ecb, zeroed, head, head, plainHead, cbc, xored, zeroed};
        };
        outcome real = expected(openssl(EVP_aes_128_ecb(), key, {}, plain),
                                openssl(EVP_aes_128_cbc(), key, iv, plain));
        outcome one = expected(oneRound(key, {}, plain), oneRound(key, iv, plain));
        for (path limit : {path::aesInstructions, path::avx2, path::ssse3, path::tables}) {
            tavik::aesModes::limitPath(limit);
            ASSERT_EQ(tavik::aesModes::fastestPath(), std::max(cpu, limit));
            SCOPED_TRACE("round " + std::to_string(i) + " path " + std::to_string(int(limit)));
            ASSERT_EQ(run<REALAES>(key, iv, plain, split), real);
            ASSERT_EQ(run<tavik::AES>(key, iv, plain, split), one);
        }
    }
    tavik::aesModes::limitPath(path::aesInstructions);
}

}  // namespace
