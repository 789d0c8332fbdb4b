// Byte-wise steps of the AES construction on a 4 by 4 state kept column by column, shared
// by the engines (AES and REALAES); each engine passes its own constant tables. Plain
// functions on caller memory: any thread may use them on memory of its own.
#ifndef TAVIK_AES_STEPS_H_
#define TAVIK_AES_STEPS_H_

#include <cstdint>
#include <cstring>

namespace tavik {
namespace aesSteps {

typedef uint8_t state_t[4][4];  // [column][row]

// Expands the 16-byte key into rounds + 1 round keys: every word after the key is the word
// four before XOR the previous one, which every fourth word is first rotated, substituted
// and XOR-ed with rcon[word / 4].
inline void expandKey(uint8_t* roundKey, const uint8_t* key, int rounds, const uint8_t* sbox,
                      const uint8_t* rcon) {
    std::memcpy(roundKey, key, 16);
    for (int i = 4; i < 4 * (rounds + 1); ++i) {
        uint8_t temp[4];
        std::memcpy(temp, roundKey + 4 * (i - 1), 4);
        if (i % 4 == 0) {
            uint8_t first = temp[0];
            temp[0] = sbox[temp[1]] ^ rcon[i / 4];
            temp[1] = sbox[temp[2]];
            temp[2] = sbox[temp[3]];
            temp[3] = sbox[first];
        }
        for (int j = 0; j < 4; ++j) {
            roundKey[4 * i + j] = roundKey[4 * (i - 4) + j] ^ temp[j];
        }
    }
}

inline void addRoundKey(state_t& state, const uint8_t* roundKey) {
    for (int c = 0; c < 4; ++c) {
        for (int r = 0; r < 4; ++r) {
            state[c][r] ^= roundKey[4 * c + r];
        }
    }
}

// Replaces every byte by its entry in table (the S-box or its inverse).
inline void substitute(state_t& state, const uint8_t* table) {
    for (int c = 0; c < 4; ++c) {
        for (int r = 0; r < 4; ++r) {
            state[c][r] = table[state[c][r]];
        }
    }
}

// Row r moves r columns to the left.
inline void shiftRows(state_t& state) {
    for (int r = 1; r < 4; ++r) {
        uint8_t row[4] = {state[0][r], state[1][r], state[2][r], state[3][r]};
        for (int c = 0; c < 4; ++c) {
            state[c][r] = row[(c + r) % 4];
        }
    }
}

inline void invShiftRows(state_t& state) {
    for (int r = 1; r < 4; ++r) {
        uint8_t row[4] = {state[0][r], state[1][r], state[2][r], state[3][r]};
        for (int c = 0; c < 4; ++c) {
            state[(c + r) % 4][r] = row[c];
        }
    }
}

}  // namespace aesSteps
}  // namespace tavik

#endif  // TAVIK_AES_STEPS_H_
