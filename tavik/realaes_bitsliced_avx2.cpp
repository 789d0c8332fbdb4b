// The bitsliced REALAES kernels once more, compiled for AVX2: sixteen blocks at once.
#define TAVIK_AES_AVX2
#include "realaes_bitsliced.cpp"  // NOLINT(bugprone-suspicious-include): same code, other flags
