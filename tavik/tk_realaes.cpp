#include "tavik/tk_realaes.h"

#include <cstdlib>
#include <ctime>
#include <memory>

#include "tavik/tk_common.h"
#include "tavik/tk_ecbarray.h"
#include "tavik/tk_encoding.h"

namespace tavik {

void realaes::setKey(const unsigned char* key) {
    cipher.setKey(key);
}

char* realaes::generateKey() {
    static char key[REALAES::keyLen + 1];
    srand(static_cast<unsigned>(time(nullptr)));
    for (int i = 0; i < REALAES::keyLen; ++i) {
        char c;
        do {
            // Single precision on purpose: it fixes the character range at 0x22 to 0x7F.
            float r = static_cast<float>(rand());
            c = static_cast<char>(static_cast<int>(1.0f + (r / 2147483648.0f * 93.0f + 33.0f)));
        } while (c == ':');
        key[i] = c;
    }
    key[REALAES::keyLen] = '\0';
    return key;
}

typeArr<unsigned char, true>* realaes::encrypt(typeArr<unsigned char, false>* data) {
    return ecbPadded<REALAES, true>(cipher, data);
}

typeArr<unsigned char, true>* realaes::decrypt(typeArr<unsigned char, false>* data) {
    return ecbPadded<REALAES, false>(cipher, data);
}

char* realaes::encryptString(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    typeArr<unsigned char, false> plain(reinterpret_cast<unsigned char*>(const_cast<char*>(text)),
                                        strlen(text));
    std::unique_ptr<typeArr<unsigned char, true>> enciphered(encrypt(&plain));
    if (!enciphered) {
        return nullptr;
    }
    typeArr<unsigned char, false> view(enciphered->buffer, enciphered->length);
    std::unique_ptr<char[]> hexText(encoder::hex::toHex(&view));
    return hexText ? makeString(hexText.get()) : nullptr;
}

char* realaes::decryptString(const char* hexText) {
    std::unique_ptr<typeArr<unsigned char, true>> enciphered(encoder::hex::toBytes(hexText));
    if (!enciphered) {
        return nullptr;
    }
    typeArr<unsigned char, false> view(enciphered->buffer, enciphered->length);
    std::unique_ptr<typeArr<unsigned char, true>> plain(decrypt(&view));
    if (!plain) {
        return nullptr;
    }
    if (plain->length == 0) {
        return makeString("");  // the empty text stays a text, as it went in
    }
    return makeString(reinterpret_cast<char*>(plain->buffer), plain->length);
}

}  // namespace tavik
