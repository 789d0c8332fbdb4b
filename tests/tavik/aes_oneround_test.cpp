// AES, the one-round engine: it must undo itself and stay distinct from AES-128.
#include "tavik/aes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tavik/realaes.h"

namespace {

using bytes = std::vector<uint8_t>;

TEST(OneRoundAesTest, IsOneRoundWithoutMixColumns) {
    bytes key(16), plain(16), block(16);
    for (int i = 0; i < 16; ++i) {
        key[i] = static_cast<uint8_t>(i);
        plain[i] = static_cast<uint8_t>(0x11 * i);  // the FIPS-197 example key and block
    }
    tavik::AES engine;
    engine.setKey(key.data());
    engine.AES128_ECB_encrypt(plain.data(), block.data());
    // AddRoundKey, SubBytes, ShiftRows, AddRoundKey with the first two AES-128 round keys.
    EXPECT_EQ(block, bytes({0xb5, 0xf9, 0x94, 0x71, 0xdb, 0xcf, 0x93, 0xfe, 0x17, 0xd6, 0xcf, 0xa0,
                            0x6c, 0x61, 0xa6, 0x19}));
}

TEST(OneRoundAesTest, DecryptsWhatItEncryptsAndDiffersFromRealAes) {
    std::mt19937 rng(11);
    tavik::AES one;
    tavik::REALAES real;
    for (int i = 0; i < 200; ++i) {
        bytes key(16), plain(64), a(64), b(16), iv(16, 0x5a);
        for (auto& x : key) x = static_cast<uint8_t>(rng());
        for (auto& x : plain) x = static_cast<uint8_t>(rng());
        one.setKey(key.data());
        real.setKey(key.data());
        one.AES128_ECB_encrypt(plain.data(), a.data());
        real.AES128_ECB_encrypt(plain.data(), b.data());
        EXPECT_NE(bytes(a.begin(), a.begin() + 16), b);
        one.AES128_ECB_decrypt(a.data(), a.data());
        EXPECT_EQ(bytes(a.begin(), a.begin() + 16), bytes(plain.begin(), plain.begin() + 16));
        bytes input = plain, back(64);
        one.AES128_CBC_encrypt_buffer(a.data(), input.data(), 64, iv.data());
        one.AES128_CBC_decrypt_buffer(back.data(), a.data(), 64, iv.data());
        EXPECT_EQ(back, plain);
    }
}

}  // namespace
