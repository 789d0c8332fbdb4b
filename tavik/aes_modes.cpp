#include "tavik/aes_modes.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace tavik {
namespace aesModes {
namespace {

std::atomic<path> limit{path::aesInstructions};

// The CPU has AVX2 and the system saves its registers (XCR0 bits 1 and 2).
bool hasAvx2() {
#if defined(__x86_64__)
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0 || (ecx & bit_OSXSAVE) == 0) {
        return false;
    }
    unsigned xcr0 = 0, high = 0;
    __asm__("xgetbv" : "=a"(xcr0), "=d"(high) : "c"(0));
    return (xcr0 & 6) == 6 && __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 &&
           (ebx & bit_AVX2) != 0;
#else
    return false;
#endif
}

// The fastest path the CPU and the environment allow, asked once, on the first cipher call,
// so that programs that never encipher never read the environment variable.
path cpuPath() {
    static const path fastest = [] {
#if defined(__x86_64__)
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0 || (ecx & bit_SSSE3) == 0 ||
            ssse3::bitslicedKernels() == nullptr) {
            return path::tables;
        }
        const char* forced = std::getenv("TAVIK_AES_SOFTWARE");
        bool software = forced != nullptr && forced[0] != '\0' && std::strcmp(forced, "0") != 0;
        bool aes = (ecx & bit_AES) != 0 && (ecx & bit_SSE4_1) != 0 && aesniKernels(1) != nullptr;
        return aes && !software                                   ? path::aesInstructions
               : hasAvx2() && avx2::bitslicedKernels() != nullptr ? path::avx2
                                                                  : path::ssse3;
#else
        return path::tables;
#endif
    }();
    return fastest;
}

void clearPartialBlock(uint8_t* output, uint32_t length) {
    if (length % blockLen != 0) {
        std::memset(output + length / blockLen * blockLen, 0, length % blockLen);
    }
}

// A given iv starts a new chain; a null iv continues from where the previous call stopped.
void startChain(const uint8_t*& chain, const uint8_t* iv) {
    if (iv != nullptr) {
        chain = iv;
    } else if (chain == nullptr) {
        chain = zeroIv;
    }
}

}  // namespace

path fastestPath() {
    return std::max(cpuPath(), limit.load(std::memory_order_relaxed));
}

const kernels& choose(int rounds, const kernels* avx2, const kernels* ssse3,
                      const kernels& tables) {
    path p = fastestPath();
    if (p == path::aesInstructions) {
        return *aesniKernels(rounds);
    }
    if (p == path::avx2 && avx2 != nullptr) {
        return *avx2;
    }
    return p <= path::ssse3 && ssse3 != nullptr ? *ssse3 : tables;
}

void limitPath(path fastest) {
    limit.store(fastest, std::memory_order_relaxed);
}

void ecbBuffer(void (*transform)(const uint8_t*, uint8_t*, const uint8_t*, size_t),
               const uint8_t* roundKey, uint8_t* output, const uint8_t* input, uint32_t length) {
    if (length >= blockLen) {
        transform(roundKey, output, input, length / blockLen);
    }
    clearPartialBlock(output, length);
}

namespace {

// The whole blocks through one of the CBC kernels; the chain then points at the last block of
// the buffer given (the output when enciphering, the input when deciphering).
template <class Kernel>
void chained(Kernel kernel, const uint8_t* roundKey, uint8_t* output, uint8_t* input,
             uint32_t length, const uint8_t* iv, const uint8_t*& chain, const uint8_t* chainIn) {
    startChain(chain, iv);
    size_t blocks = length / blockLen;
    if (blocks != 0) {
        kernel(roundKey, output, input, blocks, chain);
        chain = chainIn + (blocks - 1) * blockLen;
    }
    clearPartialBlock(output, length);
}

}  // namespace

void cbcEncryptBuffer(const kernels& k, const uint8_t* roundKey, uint8_t* output, uint8_t* input,
                      uint32_t length, const uint8_t* iv, const uint8_t*& chain) {
    chained(k.cbcEncrypt, roundKey, output, input, length, iv, chain, output);
}

void cbcDecryptBuffer(const kernels& k, const uint8_t* roundKey, uint8_t* output, uint8_t* input,
                      uint32_t length, const uint8_t* iv, const uint8_t*& chain) {
    chained(k.cbcDecrypt, roundKey, output, input, length, iv, chain, input);
}

}  // namespace aesModes
}  // namespace tavik
