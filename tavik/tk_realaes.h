// tavik::realaes: AES-128 (the REALAES engine) behind a byte-array interface, keyed with 16
// bytes, with key generation and hexadecimal text helpers. encrypt and decrypt return new
// arrays that the caller deletes; the string functions return scratch texts of the pool.
// An object serves one thread at a time; generateKey is not for concurrent use at all.
#ifndef TAVIK_TK_REALAES_H_
#define TAVIK_TK_REALAES_H_

#include "tavik/realaes.h"
#include "tavik/tk_bytebuf.h"

namespace tavik {

class realaes {
public:
    virtual ~realaes() {}

    // Keys the engine with the 16 bytes at key (a generateKey text qualifies).
    void setKey(const unsigned char* key);

    // A new random key of 16 printable characters (0x22 to 0x7F, never ':') and a NUL, in a
    // static buffer that the next call overwrites. The C library generator is reseeded with
    // the current second on every call, so calls within one second give the same key.
    // Not thread-safe: it writes the static buffer and reseeds the process-wide rand().
    static char* generateKey();

    // ECB block by block with zero padding: the result is the data length rounded up to 16
    // bytes (an empty input gives an empty result). Decryption keeps the padding bytes.
    // Null for null data.
    typeArr<unsigned char, true>* encrypt(typeArr<unsigned char, false>* data);
    typeArr<unsigned char, true>* decrypt(typeArr<unsigned char, false>* data);

    // The enciphered text (its bytes up to the NUL) as upper-case hexadecimal, 32 digits per
    // started block of 16 bytes. Returns a scratch text of the pool: copy what you keep.
    // Null for a null text.
    char* encryptString(const char* text);

    // The text deciphered from hexadecimal digits (see encoder::hex::toBytes); the padding
    // zero bytes end it where it ended before encryption. Returns a scratch text of the
    // pool: copy what you keep. Null for a null text.
    char* decryptString(const char* hexText);

private:
    REALAES cipher;
};

}  // namespace tavik

#endif  // TAVIK_TK_REALAES_H_
