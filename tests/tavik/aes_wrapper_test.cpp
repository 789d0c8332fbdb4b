// The cipher wrappers (aes, realaes) and hexadecimal encoding.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tavik/aes.h"
#include "tavik/tk_aes.h"
#include "tavik/tk_encoding.h"
#include "tavik/tk_realaes.h"

namespace {

using bytes = std::vector<unsigned char>;
using owned = std::unique_ptr<tavik::typeArr<unsigned char, true>>;
using tavik::encoder::hex;

const unsigned char fixedKey[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                    0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};

template <class Wrapper>
owned run(Wrapper& w, bool encrypt, bytes data) {
    tavik::typeArr<unsigned char, false> view(data.data(), data.size());
    return owned(encrypt ? w.encrypt(&view) : w.decrypt(&view));
}

bytes contents(const owned& a) {
    return a->length == 0 ? bytes() : bytes(a->buffer, a->buffer + a->length);
}

template <class Wrapper>
void expectZeroPaddedBlocks(Wrapper& w) {
    for (size_t n : {0, 1, 15, 16, 17, 33}) {
        bytes data(n, 'x');
        owned enciphered = run(w, true, data);
        ASSERT_TRUE(enciphered);
        EXPECT_EQ(enciphered->length, (n + 15) / 16 * 16) << n;
        owned back = run(w, false, contents(enciphered));
        data.resize(enciphered->length, 0);  // the padding zeros stay
        EXPECT_EQ(contents(back), data) << n;
    }
    EXPECT_EQ(w.encrypt(nullptr), nullptr);
    EXPECT_EQ(w.decrypt(nullptr), nullptr);
}

TEST(CipherWrapperTest, EncryptsZeroPaddedWholeBlocks) {
    tavik::aes light;
    light.setKey("0123456789abcdef");
    expectZeroPaddedBlocks(light);
    tavik::realaes real;
    real.setKey(fixedKey);
    expectZeroPaddedBlocks(real);

    // realaes is AES-128 in ECB over the zero-padded data.
    bytes data = {'h', 'e', 'l', 'l', 'o'}, padded(16, 0), expected(16);
    std::memcpy(padded.data(), data.data(), data.size());
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int len = 0;
    EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr, fixedKey, nullptr);
    EVP_EncryptUpdate(ctx, expected.data(), &len, padded.data(), 16);
    EVP_CIPHER_CTX_free(ctx);
    EXPECT_EQ(contents(run(real, true, data)), expected);
}

TEST(CipherWrapperTest, ShortTextKeyIsZeroFilledAndReadOnlyToItsEnd) {
    // Exact-size heap texts, so that a read past the NUL shows under AddressSanitizer.
    std::unique_ptr<char[]> shortKey(new char[4]);
    std::memcpy(shortKey.get(), "abc", 4);
    tavik::aes wrapper;
    wrapper.setKey(shortKey.get());

    const uint8_t filled[16] = {'a', 'b', 'c'};
    tavik::AES engine;
    engine.setKey(filled);
    bytes block(16, 0x42), expected(16);
    engine.AES128_ECB_encrypt(block.data(), expected.data());
    EXPECT_EQ(contents(run(wrapper, true, block)), expected);

    // Only the first 16 bytes of a longer text count; null is the empty key.
    tavik::aes longer, prefix, empty, null;
    longer.setKey("0123456789abcdefXYZ");
    prefix.setKey("0123456789abcdef");
    EXPECT_EQ(contents(run(longer, true, block)), contents(run(prefix, true, block)));
    empty.setKey("");
    null.setKey(nullptr);
    EXPECT_EQ(contents(run(empty, true, block)), contents(run(null, true, block)));
}

TEST(CipherWrapperTest, StringsRoundTripThroughUpperCaseHex) {
    std::string high;
    for (int c = 1; c < 256; ++c) high += static_cast<char>(c);
    const std::string texts[] = {"", "a", "exactly 16 bytes", "seventeen bytes!!", high};

    tavik::realaes generated, fixed;
    char* key = tavik::realaes::generateKey();
    generated.setKey(reinterpret_cast<const unsigned char*>(key));
    fixed.setKey(fixedKey);
    for (tavik::realaes* w : {&generated, &fixed}) {
        for (const std::string& s : texts) {
            char* enciphered = w->encryptString(s.c_str());
            ASSERT_NE(enciphered, nullptr);
            std::string hexText = enciphered;
            EXPECT_EQ(hexText.size(), (s.size() + 15) / 16 * 32) << s;
            EXPECT_EQ(hexText.find_first_not_of("0123456789ABCDEF"), std::string::npos);
            char* back = w->decryptString(hexText.c_str());
            ASSERT_NE(back, nullptr);
            EXPECT_EQ(std::string(back), s);
        }
        EXPECT_EQ(w->encryptString(nullptr), nullptr);
        EXPECT_EQ(w->decryptString(nullptr), nullptr);
    }
}

TEST(CipherWrapperTest, GeneratedKeyIsSixteenCharactersWithoutColon) {
    for (int i = 0; i < 20; ++i) {
        char* key = tavik::realaes::generateKey();
        ASSERT_EQ(std::strlen(key), 16u);
        for (int j = 0; j < 16; ++j) {
            EXPECT_NE(key[j], ':');
            EXPECT_GE(static_cast<unsigned char>(key[j]), 0x22);
            EXPECT_LE(static_cast<unsigned char>(key[j]), 0x7f);
        }
    }
}

TEST(HexEncodingTest, WritesUpperCaseAndReadsEitherCase) {
    bytes data = {0x0a, 0xff, 0x00, 0x9c};
    tavik::typeArr<unsigned char, false> view(data.data(), data.size());
    std::unique_ptr<char[]> text(hex::toHex(&view));
    EXPECT_STREQ(text.get(), "0AFF009C");
    EXPECT_EQ(contents(owned(hex::toBytes("0aff009c"))), data);
    EXPECT_EQ(contents(owned(hex::toBytes("0AfF009C"))), data);

    tavik::typeArr<unsigned char, false> none(nullptr, 0);
    std::unique_ptr<char[]> emptyText(hex::toHex(&none));
    EXPECT_STREQ(emptyText.get(), "");
    EXPECT_EQ(hex::toHex(nullptr), nullptr);
}

TEST(HexEncodingTest, ForeignCharactersCountAsZeroAndOddDigitIsDropped) {
    EXPECT_EQ(contents(owned(hex::toBytes("zz"))), bytes{0x00});
    EXPECT_EQ(contents(owned(hex::toBytes("g1 F"))), bytes({0x01, 0x0f}));
    // The result holds exactly length / 2 bytes; a write past it shows under AddressSanitizer.
    EXPECT_EQ(contents(owned(hex::toBytes("abc"))), bytes{0xab});
    EXPECT_EQ(owned(hex::toBytes("a"))->length, 0u);
    EXPECT_EQ(owned(hex::toBytes(""))->length, 0u);
    EXPECT_EQ(hex::toBytes(nullptr), nullptr);
}

}  // namespace
