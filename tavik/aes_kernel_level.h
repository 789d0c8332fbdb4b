// For the REALAES kernel files that are compiled once per instruction set (the copy for AVX2
// defines TAVIK_AES_AVX2 and includes the SSSE3 file): TAVIK_AES_LEVEL names the namespace of
// this copy. A copy compiled without its instructions does not build: the intrinsics refuse
// to inline.
#ifndef TAVIK_AES_KERNEL_LEVEL_H_
#define TAVIK_AES_KERNEL_LEVEL_H_

#if defined(TAVIK_AES_AVX2)
#define TAVIK_AES_LEVEL avx2
#else
#define TAVIK_AES_LEVEL ssse3
#endif

#endif  // TAVIK_AES_KERNEL_LEVEL_H_
