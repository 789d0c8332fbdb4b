// ECB and CBC over caller buffers for the AES engines (AES and REALAES), and the run-time
// choice of the kernels that do the work: the CPU's AES instructions where the CPU has them,
// otherwise the engine's own software kernels. Results go into the caller's buffers; the
// chaining pointer refers to caller memory between calls, never to a copy. Not for
// concurrent use on one engine: every call moves the engine's chaining pointer. The choice
// itself is thread-safe.
#ifndef TAVIK_AES_MODES_H_
#define TAVIK_AES_MODES_H_

#include <cstddef>
#include <cstdint>

namespace tavik {
namespace aesModes {

constexpr uint32_t blockLen = 16;

// Chaining block used when a chain is continued (null iv) before any iv was ever given.
alignas(16) constexpr uint8_t zeroIv[blockLen] = {};

// One engine's block transformations over whole blocks, keyed with its byte schedule of
// round keys. out may be the very buffer at in; other overlaps are not supported. The
// chaining block at iv is read once, before anything is written.
struct kernels {
    void (*encrypt)(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks);
    void (*decrypt)(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks);
    // Each input block is XOR-ed with the chaining block in place, then enciphered into out;
    // the chaining block is then that output block.
    void (*cbcEncrypt)(const uint8_t* roundKey, uint8_t* out, uint8_t* in, size_t blocks,
                       const uint8_t* iv);
    // Each input block is deciphered into out and XOR-ed with the chaining block, which is
    // then that input block (as it was before the call).
    void (*cbcDecrypt)(const uint8_t* roundKey, uint8_t* out, const uint8_t* in, size_t blocks,
                       const uint8_t* iv);
};

// The paths to the kernels, fastest first: the CPU's AES instructions; for REALAES, bitsliced
// kernels in AVX2 or in SSE registers, with SSSE3 byte shuffles for what they leave; and the
// engine's table lookups, which run everywhere.
enum class path { aesInstructions, avx2, ssse3, tables };

// The kernels built for the CPU's AES instructions, for 1 or 10 rounds, and REALAES's kernels
// for AVX2 and for SSSE3; null where the library was built without them (other architectures).
// Each level has its bitsliced kernels and its byte-shuffle (vector-permute) kernels, one
// block after the other or four side by side, for CBC encryption and for the blocks that the
// bitsliced kernels leave over; the AVX2 copy of the latter is the same code in VEX encoding.
const kernels* aesniKernels(int rounds);
#if defined(__x86_64__)
namespace avx2 {
const kernels* bitslicedKernels();
const kernels* vectorPermuteKernels();
}  // namespace avx2
namespace ssse3 {
const kernels* bitslicedKernels();
const kernels* vectorPermuteKernels();
}  // namespace ssse3
#else
namespace avx2 {
inline const kernels* bitslicedKernels() { return nullptr; }
inline const kernels* vectorPermuteKernels() { return nullptr; }
}  // namespace avx2
namespace ssse3 {
inline const kernels* bitslicedKernels() { return nullptr; }
inline const kernels* vectorPermuteKernels() { return nullptr; }
}  // namespace ssse3
#endif

// The engine's kernels for this call: the fastest path that the CPU allows (asked once),
// that the engine has (avx2 and ssse3 may be null) and that no limit rules out.
// TAVIK_AES_SOFTWARE set to a value other than "0" rules out the AES instructions.
const kernels& choose(int rounds, const kernels* avx2, const kernels* ssse3, const kernels& tables);

// The path choose takes now for an engine that has all four.
path fastestPath();

// For tests and benchmarks: no path faster than fastest is taken from the next call on
// (path::aesInstructions lifts the limit).
void limitPath(path fastest);

// ECB over length bytes, whole blocks only; the output bytes of a partial last block are set
// to zero (they have no block of their own to go into).
void ecbBuffer(void (*transform)(const uint8_t*, uint8_t*, const uint8_t*, size_t),
               const uint8_t* roundKey, uint8_t* output, const uint8_t* input, uint32_t length);

// CBC over length bytes with the chaining pointer chain: a non-null iv starts a chain, a
// null one continues from where the previous call stopped (zero bytes before any iv).
// Whole blocks only, partial last block zeroed as in ecbBuffer. Encryption leaves the
// XOR-ed blocks in the caller's input and chain at the last output block; decryption leaves
// chain at the last input block.
void cbcEncryptBuffer(const kernels& k, const uint8_t* roundKey, uint8_t* output, uint8_t* input,
                      uint32_t length, const uint8_t* iv, const uint8_t*& chain);
void cbcDecryptBuffer(const kernels& k, const uint8_t* roundKey, uint8_t* output, uint8_t* input,
                      uint32_t length, const uint8_t* iv, const uint8_t*& chain);

}  // namespace aesModes
}  // namespace tavik

#endif  // TAVIK_AES_MODES_H_
