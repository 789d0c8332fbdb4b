// The cipher wrappers (aes, realaes) and hexadecimal encoding.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "tavik/aes.h"
#include "tavik/tk_aes.h"
#include "tavik/tk_common.h"
#include "tavik/tk_encoding.h"
#include "tavik/realaes.h"
#include "tavik/tk_realaes.h"

namespace {

using bytes = std::vector<unsigned char>;
using tavik::encoder::hex;

bytes take(tavik::typeArr<unsigned char, true>* result) {
    std::unique_ptr<tavik::typeArr<unsigned char, true>> out(result);
    return out->length == 0 ? bytes() : bytes(out->buffer, out->buffer + out->length);
}

template <class Wrapper>
bytes run(Wrapper& w, bool encrypt, bytes data) {
    tavik::typeArr<unsigned char, false> view(data.data(), data.size());
    return take(encrypt ? w.encrypt(&view) : w.decrypt(&view));
}

// The data zero-padded to whole blocks, each block through the engine itself.
template <class Engine>
bytes ecb(const uint8_t* key, bytes data, bool encrypt = true) {
    Engine engine;
    engine.setKey(key);
    data.resize((data.size() + 15) / 16 * 16, 0);
    auto step = encrypt ? &Engine::AES128_ECB_encrypt : &Engine::AES128_ECB_decrypt;
    for (size_t i = 0; i < data.size(); i += 16) (engine.*step)(&data[i], &data[i]);
    return data;
}

TEST(CipherWrapperTest, EncryptsZeroPaddedWholeBlocksInEcbWithTextKeysZeroFilled) {
    // A short text key is zero-filled and read no further than its NUL (an exact-size heap
    // text, for AddressSanitizer); a long one gives its first 16 bytes; null counts as empty.
    std::unique_ptr<char[]> shortKey(tavik::newString("abc"));
    const uint8_t filled[16] = {'a', 'b', 'c'}, none[16] = {};
    const char* longKey = "0123456789abcdef and more";
    tavik::aes light, full, null;
    light.setKey(shortKey.get());
    full.setKey(longKey);
    null.setKey(nullptr);
    tavik::realaes real;
    real.setKey(filled);
    for (size_t n : {0, 1, 16, 17}) {  // deciphering pads too: the padding zeros stay
        bytes data(n, 'x');
        EXPECT_EQ(run(light, true, data), ecb<tavik::AES>(filled, data)) << n;
        EXPECT_EQ(run(light, false, data), ecb<tavik::AES>(filled, data, false)) << n;
        EXPECT_EQ(run(real, true, data), ecb<tavik::REALAES>(filled, data)) << n;
        EXPECT_EQ(run(real, false, data), ecb<tavik::REALAES>(filled, data, false)) << n;
    }
    bytes block(16, 'x');
    EXPECT_EQ(run(full, true, block),
              ecb<tavik::AES>(reinterpret_cast<const uint8_t*>(longKey), block));
    EXPECT_EQ(run(null, true, block), ecb<tavik::AES>(none, block));
    EXPECT_EQ(light.encrypt(nullptr), nullptr);
    EXPECT_EQ(real.decrypt(nullptr), nullptr);
}

// The key generateKey makes within second t: 16 draws of a generator seeded with t, each
// 1 + (r / 2^31 * 93 + 33) in single precision, redrawn while it is a colon.
std::string keyOfSecond(time_t t) {
    srand(static_cast<unsigned>(t));
    std::string key;
    while (key.size() < 16) {
        int c = static_cast<int>(1.0f + (rand() / 2147483648.0f * 93.0f + 33.0f));
        if (c != ':') key += static_cast<char>(c);
    }
    return key;
}

TEST(CipherWrapperTest, StringsRoundTripThroughUpperCaseHexWithAGeneratedKey) {
    time_t t;
    const char* key;
    do {  // again when the second turns in between
        t = time(nullptr);
        key = tavik::realaes::generateKey();
    } while (time(nullptr) != t);
    EXPECT_EQ(keyOfSecond(t), key);
    tavik::realaes w;
    w.setKey(reinterpret_cast<const unsigned char*>(key));
    for (std::string s : {"", "exactly 16 bytes", "\x01\x7f\x80\xff and high bytes"}) {
        std::string hexText = w.encryptString(s.c_str());
        EXPECT_EQ(hexText.size(), (s.size() + 15) / 16 * 32) << s;
        EXPECT_EQ(hexText.find_first_not_of("0123456789ABCDEF"), std::string::npos);
        EXPECT_STREQ(w.decryptString(hexText.c_str()), s.c_str());
    }
    EXPECT_EQ(w.encryptString(nullptr), nullptr);
    EXPECT_EQ(w.decryptString(nullptr), nullptr);
}

TEST(HexEncodingTest, WritesUpperCaseAndReadsForeignCharactersAsZero) {
    bytes data = {0x0a, 0xff, 0x00, 0x9c};
    tavik::typeArr<unsigned char, false> view(data.data(), data.size());
    std::unique_ptr<char[]> text(hex::toHex(&view));
    EXPECT_STREQ(text.get(), "0AFF009C");
    EXPECT_EQ(hex::toHex(nullptr), nullptr);
    EXPECT_EQ(hex::toBytes(nullptr), nullptr);
    // The result holds exactly length / 2 bytes; a write past it shows under AddressSanitizer.
    const std::pair<const char*, bytes> cases[] = {
        {"0afF009C", data}, {"g1 F", {0x01, 0x0f}}, {"abc", {0xab}}, {"a", {}}, {"", {}}};
    for (const auto& [in, out] : cases) EXPECT_EQ(take(hex::toBytes(in)), out) << in;
}

}  // namespace
