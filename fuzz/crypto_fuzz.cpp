// Hexadecimal decoding and text decryption on arbitrary text: neither may read or write out
// of bounds, and the round trips they promise must hold. The AES engines on arbitrary keys,
// chaining blocks and data: their paths (AES instructions, AVX2, SSSE3,
// tables) must agree.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tavik/aes.h"
#include "tavik/aes_modes.h"
#include "tavik/realaes.h"
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

// Every mode of one engine over the data, on the path in force: the outputs, the input as
// CBC encryption leaves it, and the CBC decryption.
template <class Engine>
std::vector<uint8_t> everyMode(const uint8_t* key, const uint8_t* iv, const uint8_t* data,
                               uint32_t n) {
    Engine e;
    e.setKey(key);
    std::vector<uint8_t> out(5 * n), input(data, data + n);
    e.AES128_ECB_encrypt_buffer(out.data(), data, n);
    e.AES128_ECB_decrypt_buffer(out.data() + n, data, n);
    e.AES128_CBC_encrypt_buffer(out.data() + 2 * n, input.data(), n, iv);
    e.AES128_CBC_decrypt_buffer(out.data() + 3 * n, out.data() + 2 * n, n, iv);
    std::copy(input.begin(), input.end(), out.begin() + 4 * n);
    return out;
}

template <class Engine>
void pathsAgree(const uint8_t* data, size_t size) {
    if (size < 32) {
        return;
    }
    uint32_t n = static_cast<uint32_t>(std::min<size_t>(size - 32, 4096));
    using tavik::aesModes::path;
    tavik::aesModes::limitPath(path::tables);
    std::vector<uint8_t> tables = everyMode<Engine>(data, data + 16, data + 32, n);
    for (path fastest : {path::ssse3, path::avx2, path::aesInstructions}) {
        tavik::aesModes::limitPath(fastest);
        check(everyMode<Engine>(data, data + 16, data + 32, n) == tables);
    }
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

    pathsAgree<tavik::REALAES>(data, size);
    pathsAgree<tavik::AES>(data, size);
    return 0;
}
