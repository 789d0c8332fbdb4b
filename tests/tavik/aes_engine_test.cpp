// The AES engines: REALAES against published vectors and against OpenSSL's libcrypto as an
// independent oracle, and AES, the one-round variant, against its definition and REALAES.
#include "tavik/realaes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tavik/aes.h"

namespace {

using bytes = std::vector<uint8_t>;
using tavik::REALAES;

bytes fromHex(const std::string& hex) {
    bytes out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

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

TEST(RealAesTest, ReproducesFips197AndSp80038aCbcVectorsAndAesIsOneRound) {
    REALAES engine;
    bytes key = fromHex("000102030405060708090a0b0c0d0e0f");
    bytes plain = fromHex("00112233445566778899aabbccddeeff"), block(16);
    bytes expected = fromHex("69c4e0d86a7b0430d8cdb78070b4c55a");
    engine.setKey(key.data());
    engine.AES128_ECB_encrypt(plain.data(), block.data());
    EXPECT_EQ(block, expected);
    engine.AES128_ECB_decrypt(block.data(), block.data());  // in place
    EXPECT_EQ(block, plain);
    // A chain continued before any iv was given starts from zero bytes: the block as in ECB.
    engine.AES128_CBC_encrypt_buffer(block.data(), plain.data(), 16, nullptr);
    EXPECT_EQ(block, expected);
    // AES: AddRoundKey, SubBytes, ShiftRows, AddRoundKey with the first two AES-128 round keys.
    tavik::AES one;
    one.setKey(key.data());
    one.AES128_ECB_encrypt(plain.data(), block.data());
    EXPECT_EQ(block, fromHex("b5f99471dbcf93fe17d6cfa06c61a619"));

    // SP 800-38A CBC-AES128 in two calls: a null iv continues from the previous call's last
    // block, which stays in the caller's memory. Its iv holds the bytes of the key above.
    const bytes& iv = key;
    plain = fromHex(
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    bytes cipher = fromHex(
        "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
        "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7");
    engine.setKey(fromHex("2b7e151628aed2a6abf7158809cf4f3c").data());
    bytes input = plain, out(64);
    engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), 16, iv.data());
    for (int i = 0; i < 16; ++i) EXPECT_EQ(input[i], plain[i] ^ iv[i]);  // XOR-ed in place
    engine.AES128_CBC_encrypt_buffer(out.data() + 16, input.data() + 16, 48, nullptr);
    EXPECT_EQ(out, cipher);
    engine.AES128_CBC_decrypt_buffer(input.data(), out.data(), 16, iv.data());
    engine.AES128_CBC_decrypt_buffer(out.data() + 16, out.data() + 16, 48, nullptr);  // in place
    std::copy(input.begin(), input.begin() + 16, out.begin());
    EXPECT_EQ(out, plain);
}

TEST(RealAesTest, AgreesWithOpensslOnRandomKeysWhereAesDiffersAndUndoesItself) {
    std::mt19937 rng(20240611);
    auto randomBytes = [&rng](size_t n) {
        bytes out(n);
        for (auto& b : out) b = static_cast<uint8_t>(rng());
        return out;
    };
    REALAES engine;
    tavik::AES one;
    for (int i = 0; i < 1000; ++i) {
        // Now and then a partial last block: only whole blocks are enciphered, the rest zeroed.
        // The buffers are exactly n bytes, so AddressSanitizer sees any access past them.
        size_t n = 16 * (2 + rng() % 8) + (i % 8 ? 0 : 1 + rng() % 15);
        bytes key = randomBytes(16), iv = randomBytes(16), plain = randomBytes(n);
        bytes first(plain.begin(), plain.begin() + 16), block(16), input = plain;
        bytes out(n, 0xAA), back(n, 0xAA), ecb = openssl(EVP_aes_128_ecb(), key, {}, first);
        bytes cbc = openssl(EVP_aes_128_cbc(), key, iv, plain), whole = plain;
        cbc.resize(n, 0);
        std::fill(whole.begin() + n / 16 * 16, whole.end(), 0);
        engine.setKey(key.data());
        engine.AES128_ECB_encrypt(first.data(), block.data());
        ASSERT_EQ(block, ecb) << "round " << i;
        engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), n, iv.data());
        ASSERT_EQ(out, cbc) << "round " << i;
        engine.AES128_CBC_decrypt_buffer(back.data(), out.data(), n, iv.data());
        ASSERT_EQ(back, whole) << "round " << i;

        one.setKey(key.data());
        one.AES128_ECB_encrypt(first.data(), block.data());
        ASSERT_NE(block, ecb) << "round " << i;
        input = plain;
        one.AES128_CBC_encrypt_buffer(out.data(), input.data(), n, iv.data());
        one.AES128_CBC_decrypt_buffer(back.data(), out.data(), n, iv.data());
        ASSERT_EQ(back, whole) << "round " << i;
    }
}

}  // namespace
