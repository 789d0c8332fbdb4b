// The cipher wrappers (aes, realaes) and hexadecimal encoding.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tavik/aes.h"
#include "tavik/tk_aes.h"
#include "tavik/tk_encoding.h"
#include "tavik/realaes.h"
#include "tavik/tk_realaes.h"

namespace {

using bytes = std::vector<unsigned char>;
using owned = std::unique_ptr<tavik::typeArr<unsigned char, true>>;
using tavik::encoder::hex;

const unsigned char fixedKey[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                    0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};

bytes take(tavik::typeArr<unsigned char, true>* result) {
    owned out(result);
    return out->length == 0 ? bytes() : bytes(out->buffer, out->buffer + out->length);
}

template <class Wrapper>
bytes run(Wrapper& w, bool encrypt, bytes data) {
    tavik::typeArr<unsigned char, false> view(data.data(), data.size());
    return take(encrypt ? w.encrypt(&view) : w.decrypt(&view));
}

template <class Engine>
bytes ecb(const uint8_t* key, bytes data) {
    Engine engine;
    engine.setKey(key);
    data.resize((data.size() + 15) / 16 * 16, 0);
    for (size_t i = 0; i < data.size(); i += 16) engine.AES128_ECB_encrypt(&data[i], &data[i]);
    return data;
}

TEST(CipherWrapperTest, EncryptsZeroPaddedWholeBlocksInEcb) {
    tavik::aes light;
    light.setKey("0123456789abcdef");
    tavik::realaes real;
    real.setKey(fixedKey);
    for (size_t n : {0, 1, 16, 17}) {
        bytes data(n, 'x'), padded = data;
        padded.resize((n + 15) / 16 * 16, 0);  // the padding zeros stay
        EXPECT_EQ(run(light, true, data),
                  ecb<tavik::AES>(reinterpret_cast<const uint8_t*>("0123456789abcdef"), data));
        EXPECT_EQ(run(light, false, run(light, true, data)), padded) << n;
        EXPECT_EQ(run(real, true, data), ecb<tavik::REALAES>(fixedKey, data)) << n;
        EXPECT_EQ(run(real, false, run(real, true, data)), padded) << n;
    }
    EXPECT_EQ(light.encrypt(nullptr), nullptr);
    EXPECT_EQ(real.decrypt(nullptr), nullptr);
}

TEST(CipherWrapperTest, ShortTextKeyIsZeroFilledAndReadOnlyToItsEnd) {
    // An exact-size heap text, so that a read past the NUL shows under AddressSanitizer.
    std::unique_ptr<char[]> shortKey(new char[4]);
    std::memcpy(shortKey.get(), "abc", 4);
    tavik::aes wrapper, null;
    wrapper.setKey(shortKey.get());
    null.setKey(nullptr);
    const uint8_t filled[16] = {'a', 'b', 'c'}, none[16] = {};
    bytes block(16, 0x42);
    EXPECT_EQ(run(wrapper, true, block), ecb<tavik::AES>(filled, block));
    EXPECT_EQ(run(null, true, block), ecb<tavik::AES>(none, block));
}

TEST(CipherWrapperTest, StringsRoundTripThroughUpperCaseHexWithGeneratedOrFixedKeys) {
    std::string high;
    for (int c = 1; c < 256; ++c) high += static_cast<char>(c);
    for (int i = 0; i < 20; ++i) {  // generated keys: 16 characters, never a colon
        const char* key = tavik::realaes::generateKey();
        ASSERT_EQ(std::strlen(key), 16u);
        EXPECT_EQ(std::strchr(key, ':'), nullptr) << key;
    }
    tavik::realaes generated, fixed;
    generated.setKey(reinterpret_cast<const unsigned char*>(tavik::realaes::generateKey()));
    fixed.setKey(fixedKey);
    for (tavik::realaes* w : {&generated, &fixed}) {
        for (const std::string& s : {std::string(), std::string("exactly 16 bytes"), high}) {
            std::string hexText = w->encryptString(s.c_str());
            EXPECT_EQ(hexText.size(), (s.size() + 15) / 16 * 32) << s;
            EXPECT_EQ(hexText.find_first_not_of("0123456789ABCDEF"), std::string::npos);
            EXPECT_STREQ(w->decryptString(hexText.c_str()), s.c_str());
        }
        EXPECT_EQ(w->encryptString(nullptr), nullptr);
        EXPECT_EQ(w->decryptString(nullptr), nullptr);
    }
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
        {"0aff009c", data}, {"0AfF009C", data}, {"zz", {0x00}}, {"g1 F", {0x01, 0x0f}},
        {"abc", {0xab}},    {"a", {}},          {"", {}},
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(take(hex::toBytes(in)), out) << in;
}

}  // namespace
