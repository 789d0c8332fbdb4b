// AES, the one-round engine: it must undo itself and stay distinct from AES-128.
#include "tavik/aes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tavik/realaes.h"

namespace {

using bytes = std::vector<uint8_t>;

const bytes fipsKey = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
                       0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f};
const bytes fipsPlain = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                         0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};

TEST(OneRoundAesTest, IsOneRoundWithoutMixColumns) {
    tavik::AES engine;
    engine.setKey(fipsKey.data());
    bytes block(16);
    engine.AES128_ECB_encrypt(const_cast<uint8_t*>(fipsPlain.data()), block.data());
    // AddRoundKey, SubBytes, ShiftRows, AddRoundKey with the first two AES-128 round keys.
    const bytes expected = {0xb5, 0xf9, 0x94, 0x71, 0xdb, 0xcf, 0x93, 0xfe,
                            0x17, 0xd6, 0xcf, 0xa0, 0x6c, 0x61, 0xa6, 0x19};
    EXPECT_EQ(block, expected);
    EXPECT_EQ(tavik::AES::Nr, 1);

    // Without MixColumns and further rounds, every input byte reaches exactly one output byte.
    for (int i = 0; i < 16; ++i) {
        bytes changed = fipsPlain, out(16);
        changed[i] ^= 0x01;
        engine.AES128_ECB_encrypt(changed.data(), out.data());
        int differing = 0;
        for (int j = 0; j < 16; ++j) differing += out[j] != block[j];
        EXPECT_EQ(differing, 1) << "input byte " << i;
    }
}

TEST(OneRoundAesTest, DecryptsWhatItEncryptsAndDiffersFromRealAes) {
    std::mt19937 rng(11);
    tavik::AES one;
    tavik::REALAES real;
    for (int i = 0; i < 200; ++i) {
        bytes key(16), plain(16), a(16), b(16);
        for (auto& x : key) x = static_cast<uint8_t>(rng());
        for (auto& x : plain) x = static_cast<uint8_t>(rng());
        one.setKey(key.data());
        real.setKey(key.data());
        one.AES128_ECB_encrypt(plain.data(), a.data());
        real.AES128_ECB_encrypt(plain.data(), b.data());
        EXPECT_NE(a, b);
        one.AES128_ECB_decrypt(a.data(), a.data());
        EXPECT_EQ(a, plain);
    }
}

TEST(OneRoundAesTest, CbcRoundTripsAndChainsBlocks) {
    tavik::AES engine;
    engine.setKey(fipsKey.data());
    bytes iv(16, 0x5a), plain(64), input, cipher(64), back(64);
    for (int i = 0; i < 64; ++i) plain[i] = static_cast<uint8_t>(i % 16);  // repeated blocks
    input = plain;
    engine.AES128_CBC_encrypt_buffer(cipher.data(), input.data(), 64, iv.data());
    EXPECT_NE(bytes(cipher.begin(), cipher.begin() + 16),
              bytes(cipher.begin() + 16, cipher.begin() + 32));
    engine.AES128_CBC_decrypt_buffer(back.data(), cipher.data(), 64, iv.data());
    EXPECT_EQ(back, plain);
}

}  // namespace
