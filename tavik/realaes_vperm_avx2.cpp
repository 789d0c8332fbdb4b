// The vector-permute REALAES kernels once more, compiled for AVX2: VEX encoding.
#define TAVIK_AES_AVX2
#include "realaes_vperm.cpp"  // NOLINT(bugprone-suspicious-include): same code, other flags
