#include "tavik/tk_aes.h"

#include <cstring>

#include "tavik/tk_ecbarray.h"

namespace tavik {

void aes::setKey(const char* key) {
    uint8_t padded[AES::keyLen] = {};
    if (key != nullptr) {
        std::memcpy(padded, key, strnlen(key, AES::keyLen));
    }
    cipher.setKey(padded);
}

typeArr<unsigned char, true>* aes::encrypt(typeArr<unsigned char, false>* data) {
    return ecbPadded<AES, true>(cipher, data);
}

typeArr<unsigned char, true>* aes::decrypt(typeArr<unsigned char, false>* data) {
    return ecbPadded<AES, false>(cipher, data);
}

}  // namespace tavik
