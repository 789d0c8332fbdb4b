// Hexadecimal decoding and text decryption on arbitrary text: neither may read or write out
// of bounds, and the round trips they promise must hold.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "tavik/tk_encoding.h"
#include "tavik/tk_realaes.h"

namespace {

using owned = std::unique_ptr<tavik::typeArr<unsigned char, true>>;

void check(bool condition) {
    if (!condition) {
        abort();
    }
}

tavik::realaes& cipher() {
    static tavik::realaes instance = [] {
        tavik::realaes r;
        const unsigned char key[16] = {'f', 'u', 'z', 'z', 'k', 'e', 'y', '-',
                                       '0', '1', '2', '3', '4', '5', '6', '7'};
        r.setKey(key);
        return r;
    }();
    return instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An exact-size heap copy, so that reading past the terminator is caught.
    std::unique_ptr<char[]> text(new char[size + 1]);
    std::memcpy(text.get(), data, size);
    text[size] = '\0';
    size_t length = strlen(text.get());

    owned decoded(tavik::encoder::hex::toBytes(text.get()));
    check(decoded && decoded->length == length / 2);
    tavik::typeArr<unsigned char, false> view(decoded->buffer, decoded->length);
    std::unique_ptr<char[]> encoded(tavik::encoder::hex::toHex(&view));
    owned again(tavik::encoder::hex::toBytes(encoded.get()));
    check(again->length == decoded->length &&
          (decoded->length == 0 || memcmp(again->buffer, decoded->buffer, decoded->length) == 0));

    char* plain = cipher().decryptString(text.get());
    check(plain != nullptr);

    char* enciphered = cipher().encryptString(text.get());
    check(enciphered != nullptr && strlen(enciphered) == (length + 15) / 16 * 32);
    std::string hexText = enciphered;
    char* back = cipher().decryptString(hexText.c_str());
    check(back != nullptr && strcmp(back, text.get()) == 0);
    return 0;
}
