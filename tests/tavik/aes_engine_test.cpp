// REALAES against published vectors and against OpenSSL's libcrypto as an independent oracle.
#include "tavik/realaes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace tavik {

// Reaches the single round steps, so each can be checked against the published states.
class REALAESProbe {
public:
    enum step { subBytes, shiftRows, mixColumns, invSubBytes, invShiftRows, invMixColumns };

    static std::vector<uint8_t> apply(step which, std::vector<uint8_t> block) {
        REALAES engine;
        engine.state = reinterpret_cast<REALAES::state_t*>(block.data());
        switch (which) {
            case subBytes:
                engine.SubBytes();
                break;
            case shiftRows:
                engine.ShiftRows();
                break;
            case mixColumns:
                engine.MixColumns();
                break;
            case invSubBytes:
                engine.InvSubBytes();
                break;
            case invShiftRows:
                engine.InvShiftRows();
                break;
            case invMixColumns:
                engine.InvMixColumns();
                break;
        }
        return block;
    }

    static std::vector<uint8_t> roundKey(const std::vector<uint8_t>& key, int round) {
        REALAES engine;
        engine.setKey(key.data());
        return std::vector<uint8_t>(engine.RoundKey + 16 * round,
                                    engine.RoundKey + 16 * round + 16);
    }
};

}  // namespace tavik

namespace {

using bytes = std::vector<uint8_t>;
using tavik::REALAES;
using tavik::REALAESProbe;

bytes fromHex(const std::string& hex) {
    bytes out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

bytes openssl(const EVP_CIPHER* type, bool encrypt, const bytes& key, const bytes& iv,
              const bytes& in) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    bytes out(in.size() + 16);
    int len = 0, tail = 0;
    EVP_CipherInit_ex(ctx, type, nullptr, key.data(), iv.empty() ? nullptr : iv.data(),
                      encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    EVP_CipherUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(in.size()));
    EVP_CipherFinal_ex(ctx, out.data() + len, &tail);
    EVP_CIPHER_CTX_free(ctx);
    out.resize(len + tail);
    return out;
}

bytes randomBytes(std::mt19937& rng, size_t n) {
    bytes out(n);
    for (auto& b : out) b = static_cast<uint8_t>(rng());
    return out;
}

TEST(RealAesTest, ReproducesFips197AppendixC1) {
    bytes key = fromHex("000102030405060708090a0b0c0d0e0f");
    bytes plain = fromHex("00112233445566778899aabbccddeeff");
    bytes block(16);
    REALAES engine;
    engine.setKey(key.data());
    engine.AES128_ECB_encrypt(plain.data(), block.data());
    EXPECT_EQ(block, fromHex("69c4e0d86a7b0430d8cdb78070b4c55a"));
    engine.AES128_ECB_decrypt(block.data(), block.data());  // in place
    EXPECT_EQ(block, plain);
}

TEST(RealAesTest, RoundStepsMatchPublishedIntermediateStates) {
    bytes start = fromHex("193de3bea0f4e22b9ac68d2ae9f84808");
    bytes subbed = fromHex("d42711aee0bf98f1b8b45de51e415230");
    bytes shifted = fromHex("d4bf5d30e0b452aeb84111f11e2798e5");
    bytes mixed = fromHex("046681e5e0cb199a48f8d37a2806264c");
    EXPECT_EQ(REALAESProbe::apply(REALAESProbe::subBytes, start), subbed);
    EXPECT_EQ(REALAESProbe::apply(REALAESProbe::shiftRows, subbed), shifted);
    EXPECT_EQ(REALAESProbe::apply(REALAESProbe::mixColumns, shifted), mixed);
    EXPECT_EQ(REALAESProbe::apply(REALAESProbe::invMixColumns, mixed), shifted);
    EXPECT_EQ(REALAESProbe::apply(REALAESProbe::invShiftRows, shifted), subbed);
    EXPECT_EQ(REALAESProbe::apply(REALAESProbe::invSubBytes, subbed), start);

    bytes key = fromHex("2b7e151628aed2a6abf7158809cf4f3c");
    EXPECT_EQ(REALAESProbe::roundKey(key, 1), fromHex("a0fafe1788542cb123a339392a6c7605"));
    EXPECT_EQ(REALAESProbe::roundKey(key, 10), fromHex("d014f9a8c9ee2589e13f0cc8b6630ca6"));
}

TEST(RealAesTest, ReproducesSp80038aCbcVectors) {
    bytes key = fromHex("2b7e151628aed2a6abf7158809cf4f3c");
    bytes iv = fromHex("000102030405060708090a0b0c0d0e0f");
    bytes plain = fromHex(
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    bytes cipher = fromHex(
        "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
        "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7");
    REALAES engine;
    engine.setKey(key.data());
    bytes input = plain, out(64);
    engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), 64, iv.data());
    EXPECT_EQ(out, cipher);
    bytes back(64);
    input = cipher;
    engine.AES128_CBC_decrypt_buffer(back.data(), input.data(), 64, iv.data());
    EXPECT_EQ(back, plain);
    EXPECT_EQ(input, cipher);  // decryption leaves its input alone
}

TEST(RealAesTest, AgreesWithOpensslOnRandomKeysAndBlocks) {
    std::mt19937 rng(20240611);
    REALAES engine;
    for (int i = 0; i < 1000; ++i) {
        bytes key = randomBytes(rng, 16), plain = randomBytes(rng, 16), block(16);
        engine.setKey(key.data());
        engine.AES128_ECB_encrypt(plain.data(), block.data());
        ASSERT_EQ(block, openssl(EVP_aes_128_ecb(), true, key, {}, plain)) << "block " << i;
        engine.AES128_ECB_decrypt(block.data(), block.data());
        ASSERT_EQ(block, plain) << "block " << i;
    }
}

TEST(RealAesTest, CbcAgreesWithOpensslOnRandomMultiBlockBuffers) {
    std::mt19937 rng(7);
    REALAES engine;
    for (int i = 0; i < 1000; ++i) {
        size_t n = 16 * (2 + rng() % 8);
        bytes key = randomBytes(rng, 16), iv = randomBytes(rng, 16), plain = randomBytes(rng, n);
        bytes input = plain, out(n), back(n);
        engine.setKey(key.data());
        engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), n, iv.data());
        ASSERT_EQ(out, openssl(EVP_aes_128_cbc(), true, key, iv, plain)) << "buffer " << i;
        engine.AES128_CBC_decrypt_buffer(back.data(), out.data(), n, iv.data());
        ASSERT_EQ(back, plain) << "buffer " << i;
    }
}

TEST(RealAesTest, CbcChainsThroughCallerMemory) {
    std::mt19937 rng(3);
    bytes key = randomBytes(rng, 16), iv = randomBytes(rng, 16), plain = randomBytes(rng, 48);
    bytes expected = openssl(EVP_aes_128_cbc(), true, key, iv, plain);
    REALAES engine;
    engine.setKey(key.data());

    // The input holds the blocks XOR-ed with their chaining blocks afterwards.
    bytes input = plain, out(48);
    engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), 16, iv.data());
    for (int i = 0; i < 16; ++i) EXPECT_EQ(input[i], plain[i] ^ iv[i]);
    // A null iv continues from the previous call's last output block.
    engine.AES128_CBC_encrypt_buffer(out.data() + 16, input.data() + 16, 32, nullptr);
    EXPECT_EQ(out, expected);

    // Decryption in place, and continued with a null iv from an unchanged earlier input.
    bytes cipher = expected, first(16);
    engine.AES128_CBC_decrypt_buffer(first.data(), cipher.data(), 16, iv.data());
    engine.AES128_CBC_decrypt_buffer(cipher.data() + 16, cipher.data() + 16, 32, nullptr);
    EXPECT_EQ(bytes(cipher.begin() + 16, cipher.end()), bytes(plain.begin() + 16, plain.end()));
    EXPECT_EQ(first, bytes(plain.begin(), plain.begin() + 16));
}

TEST(RealAesTest, CbcTransformsWholeBlocksOnlyAndStaysInsideTheBuffers) {
    std::mt19937 rng(5);
    bytes key = randomBytes(rng, 16), iv = randomBytes(rng, 16), plain = randomBytes(rng, 16);
    REALAES engine;
    engine.setKey(key.data());
    for (uint32_t n : {0u, 5u, 21u}) {
        // Exact-size heap buffers, so that any access past the end shows under AddressSanitizer.
        std::vector<uint8_t> input(plain.begin(), plain.end()), out(n, 0xAA);
        input.resize(n, 0x55);
        bytes whole = openssl(EVP_aes_128_cbc(), true, key, iv,
                              bytes(input.begin(), input.begin() + n / 16 * 16));
        engine.AES128_CBC_encrypt_buffer(out.data(), input.data(), n, iv.data());
        for (uint32_t i = 0; i < n; ++i) {
            EXPECT_EQ(out[i], i < n / 16 * 16 ? whole[i] : 0) << "length " << n << " byte " << i;
        }
        engine.AES128_CBC_decrypt_buffer(out.data(), out.data(), n, iv.data());
    }
    // A chain continued before any iv was given starts from zero bytes.
    REALAES fresh;
    fresh.setKey(key.data());
    bytes input = plain, out(16);
    fresh.AES128_CBC_encrypt_buffer(out.data(), input.data(), 16, nullptr);
    EXPECT_EQ(out, openssl(EVP_aes_128_ecb(), true, key, {}, plain));
}

}  // namespace
