// tavik::aes: the one-round AES engine behind a byte-array interface, keyed with a text.
// encrypt and decrypt return new arrays that the caller deletes. An object serves one thread
// at a time; separate objects are independent.
#ifndef TAVIK_TK_AES_H_
#define TAVIK_TK_AES_H_

#include "tavik/aes.h"
#include "tavik/tk_bytebuf.h"

namespace tavik {

class aes {
public:
    virtual ~aes() {}

    // Keys the engine with the first 16 bytes of key. A shorter text is followed by zero
    // bytes up to 16 (its own NUL included), and nothing past its NUL is read; null counts
    // as the empty text.
    void setKey(const char* key);

    // ECB block by block with zero padding: the result is the data length rounded up to 16
    // bytes (an empty input gives an empty result). Decryption keeps the padding bytes.
    // Null for null data.
    typeArr<unsigned char, true>* encrypt(typeArr<unsigned char, false>* data);
    typeArr<unsigned char, true>* decrypt(typeArr<unsigned char, false>* data);

private:
    AES cipher;
};

}  // namespace tavik

#endif  // TAVIK_TK_AES_H_
