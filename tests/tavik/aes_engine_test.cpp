// REALAES against published vectors and against OpenSSL's libcrypto as an independent oracle.
#include "tavik/realaes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

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

bytes openssl(const EVP_CIPHER* type, const bytes& key, const bytes& iv, const bytes& in) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    bytes out(in.size() + 16);
    int len = 0, tail = 0;
    EVP_EncryptInit_ex(ctx, type, nullptr, key.data(), iv.empty() ? nullptr : iv.data());
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    EVP_EncryptUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(in.size()));
    EVP_EncryptFinal_ex(ctx, out.data() + len, &tail);
    EVP_CIPHER_CTX_free(ctx);
    out.resize(len + tail);
    return out;
}

bytes randomBytes(std::mt19937& rng, size_t n) {
    bytes out(n);
    for (auto& b : out) b = static_cast<uint8_t>(rng());
    return out;
}

TEST(RealAesTest, ReproducesFips197AndSp80038aCbcVectors) {
    REALAES engine;
    bytes plain = fromHex("00112233445566778899aabbccddeeff"), block(16);
    engine.setKey(fromHex("000102030405060708090a0b0c0d0e0f").data());
    engine.AES128_ECB_encrypt(plain.data(), block.data());
    EXPECT_EQ(block, fromHex("69c4e0d86a7b0430d8cdb78070b4c55a"));
    engine.AES128_ECB_decrypt(block.data(), block.data());  // in place
    EXPECT_EQ(block, plain);

    bytes iv = fromHex("000102030405060708090a0b0c0d0e0f");
    plain = fromHex(
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    bytes cipher = fromHex(
        "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
        "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7");
    engine.setKey(fromHex("2b7e151628aed2a6abf7158809cf4f3c").data());
    bytes input = plain, out(64);
    engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), 64, iv.data());
    EXPECT_EQ(out, cipher);
    engine.AES128_CBC_decrypt_buffer(out.data(), cipher.data(), 64, iv.data());
    EXPECT_EQ(out, plain);
}

TEST(RealAesTest, AgreesWithOpensslOnRandomKeysInEcbAndMultiBlockCbc) {
    std::mt19937 rng(20240611);
    REALAES engine;
    for (int i = 0; i < 1000; ++i) {
        size_t n = 16 * (2 + rng() % 8);
        bytes key = randomBytes(rng, 16), iv = randomBytes(rng, 16), plain = randomBytes(rng, n);
        bytes first(plain.begin(), plain.begin() + 16), block(16), input = plain, out(n), back(n);
        engine.setKey(key.data());
        engine.AES128_ECB_encrypt(first.data(), block.data());
        ASSERT_EQ(block, openssl(EVP_aes_128_ecb(), key, {}, first)) << "round " << i;
        engine.AES128_ECB_decrypt(block.data(), block.data());
        ASSERT_EQ(block, first) << "round " << i;
        engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), n, iv.data());
        ASSERT_EQ(out, openssl(EVP_aes_128_cbc(), key, iv, plain)) << "round " << i;
        engine.AES128_CBC_decrypt_buffer(back.data(), out.data(), n, iv.data());
        ASSERT_EQ(back, plain) << "round " << i;
    }
}

TEST(RealAesTest, CbcChainsThroughCallerMemoryAndStaysInsideTheBuffers) {
    std::mt19937 rng(3);
    bytes key = randomBytes(rng, 16), iv = randomBytes(rng, 16), plain = randomBytes(rng, 48);
    REALAES fresh, engine;
    fresh.setKey(key.data());
    engine.setKey(key.data());
    // A chain continued before any iv was given starts from zero bytes.
    bytes input = plain, out(48);
    fresh.AES128_CBC_encrypt_buffer(out.data(), input.data(), 48, nullptr);
    EXPECT_EQ(out, openssl(EVP_aes_128_cbc(), key, bytes(16, 0), plain));
    // The input holds the blocks XOR-ed with their chaining blocks afterwards, and a null iv
    // continues from the previous call's last output block.
    input = plain;
    engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), 16, iv.data());
    for (int i = 0; i < 16; ++i) EXPECT_EQ(input[i], plain[i] ^ iv[i]);
    engine.AES128_CBC_encrypt_buffer(out.data() + 16, input.data() + 16, 32, nullptr);
    EXPECT_EQ(out, openssl(EVP_aes_128_cbc(), key, iv, plain));
    // Decryption continues from the earlier input, which stays unchanged.
    bytes first(16);
    engine.AES128_CBC_decrypt_buffer(first.data(), out.data(), 16, iv.data());
    engine.AES128_CBC_decrypt_buffer(out.data() + 16, out.data() + 16, 32, nullptr);
    std::copy(first.begin(), first.end(), out.begin());
    EXPECT_EQ(out, plain);
    // Only whole blocks are transformed, the rest zeroed; exact-size heap buffers let
    // AddressSanitizer see any access past the end.
    for (uint32_t n : {5u, 21u}) {
        bytes in = randomBytes(rng, n), o(n, 0xAA);
        bytes expected = openssl(EVP_aes_128_cbc(), key, iv, bytes(in.begin(), in.end() - 5));
        expected.resize(n, 0);
        engine.AES128_CBC_encrypt_buffer(o.data(), in.data(), n, iv.data());
        EXPECT_EQ(o, expected) << "length " << n;
        engine.AES128_CBC_decrypt_buffer(o.data(), o.data(), n, iv.data());
    }
}

}  // namespace
