// REALAES: the AES-128 block cipher (10 rounds), ECB on single 16-byte blocks and over
// buffers, and CBC over buffers. Results are written into the caller's buffers; the engine
// holds no heap memory. It uses the CPU's AES instructions where the CPU has them, bitsliced
// AVX2 or SSE code and SSSE3 byte shuffles where it has those, and table lookups otherwise
// (see aes_modes.h); all give the same results.
// One object serves one thread at a time (every call writes its state and chaining pointer);
// separate objects are independent and the tables are constant.
#ifndef TAVIK_REALAES_H_
#define TAVIK_REALAES_H_

#include <cstdint>

namespace tavik {

class REALAES {
public:
    typedef uint8_t state_t[4][4];  // [column][row]

    static constexpr int Nr = 10;  // rounds
    static constexpr int keyLen = 16;
    static constexpr int blockLen = 16;

    REALAES() = default;
    virtual ~REALAES() {}

    // Expands the 16 key bytes at key into the round keys; must precede any enciphering.
    // The key bytes are read here only. A null key counts as 16 zero bytes.
    void setKey(const uint8_t* key);

    // One block: the 16 bytes at input are copied to output and transformed there;
    // input and output may be the same block.
    void AES128_ECB_encrypt(uint8_t* input, uint8_t* output);
    void AES128_ECB_decrypt(uint8_t* input, uint8_t* output);

    // ECB over length bytes, many blocks at once: every whole block of input is transformed
    // into the same place of output, which may be the input buffer itself (no other overlap).
    // The output bytes of a partial last block are set to zero.
    void AES128_ECB_encrypt_buffer(uint8_t* output, const uint8_t* input, uint32_t length);
    void AES128_ECB_decrypt_buffer(uint8_t* output, const uint8_t* input, uint32_t length);

    // CBC over length bytes. A non-null iv starts a chain; a null iv continues from the last
    // block of the previous call, which must still be alive and unchanged (an all-zero block
    // before any iv was given). Encryption XORs the caller's input blocks in place. Only whole
    // blocks are transformed; the output bytes of a partial last block are set to zero. output
    // may be the input buffer itself (no other overlap).
    void AES128_CBC_encrypt_buffer(uint8_t* output, uint8_t* input, uint32_t length,
                                   const uint8_t* iv);
    void AES128_CBC_decrypt_buffer(uint8_t* output, uint8_t* input, uint32_t length,
                                   const uint8_t* iv);

private:
    void KeyExpansion();
    void Cipher();  // the block at state, in place
    void InvCipher();

    state_t* state = nullptr;
    uint8_t RoundKey[176] = {};
    const uint8_t* Key = nullptr;
    const uint8_t* Iv = nullptr;
};

}  // namespace tavik

#endif  // TAVIK_REALAES_H_
