// The AES S-box and its inverse as Boolean circuits of XOR and AND gates, for bitsliced
// kernels: each variable holds one bit of many bytes, so a gate acts on all of them at once
// and the timing cannot depend on the data. T is any type with ^ and &: an SSE register in
// the kernels, an unsigned in the check at the end, which compares both circuits with the
// S-box computed from its definition for all 256 inputs when this header is compiled.
// Bit b of a byte is x[b]; u0 (the top bit) to u7 name the bits from the top down.
//
// The forward circuit is Boyar and Peralta's low-depth one: a linear layer into 22 sums of
// input bits, a nonlinear middle that inverts in GF(2^8) over a tower of subfields (32 AND
// gates), and a linear layer out. The inverse circuit reuses the middle unchanged, with the
// two linear layers composed with the inverse of the S-box's affine map. Its linear layers
// (24 and 31 XORs) come from a shortest-linear-program search in Boyar and Peralta's manner
// and are checked like the rest: in the bitsliced decryption every XOR saved is a saved
// instruction in each of the ten rounds.
// Neither adds the affine constant 0x63: the kernels fold it into their round keys (on the
// output of SubBytes, on the input of InvSubBytes).
//
// The functions have internal linkage, so that copies compiled with different instruction
// sets can never be exchanged by the linker.
#ifndef TAVIK_AES_SBOX_CIRCUITS_H_
#define TAVIK_AES_SBOX_CIRCUITS_H_

#include <cstdint>

namespace tavik {
namespace aesModes {
namespace {  // NOLINT: see above
namespace circuit {

// The sums of input bits that the middle multiplies.
template <class T>
struct sums {
    T t1, t2, t3, t4, t6, t8, t9, t10, t13, t14, t15, t16, t17, t19, t20, t22, t23, t24, t25, t26,
        t27, u7;
};

// The middle's products, which the output layer sums.
template <class T>
struct products {
    T m46, m47, m48, m49, m50, m51, m52, m53, m54, m55, m56, m57, m58, m59, m60, m61, m62, m63;
};

template <class T>
[[gnu::always_inline]] constexpr products<T> middle(const sums<T>& s) {
    const T t1 = s.t1, t2 = s.t2, t3 = s.t3, t4 = s.t4, t6 = s.t6, t8 = s.t8, t9 = s.t9;
    const T t10 = s.t10, t13 = s.t13, t14 = s.t14, t15 = s.t15, t16 = s.t16, t17 = s.t17;
    const T t19 = s.t19, t20 = s.t20, t22 = s.t22, t23 = s.t23, t24 = s.t24, t25 = s.t25;
    const T t26 = s.t26, t27 = s.t27, u7 = s.u7;
    const T m1 = t13 & t6, m2 = t23 & t8, m3 = t14 ^ m1, m4 = t19 & u7, m5 = m4 ^ m1;
    const T m6 = t3 & t16, m7 = t22 & t9, m8 = t26 ^ m6, m9 = t20 & t17, m10 = m9 ^ m6;
    const T m11 = t1 & t15, m12 = t4 & t27, m13 = m12 ^ m11, m14 = t2 & t10, m15 = m14 ^ m11;
    const T m16 = m3 ^ m2, m17 = m5 ^ t24, m18 = m8 ^ m7, m19 = m10 ^ m15, m20 = m16 ^ m13;
    const T m21 = m17 ^ m15, m22 = m18 ^ m13, m23 = m19 ^ t25, m24 = m22 ^ m23;
    const T m25 = m22 & m20, m26 = m21 ^ m25, m27 = m20 ^ m21, m28 = m23 ^ m25;
    const T m29 = m28 & m27, m30 = m26 & m24, m31 = m20 & m23, m32 = m27 & m31;
    const T m33 = m27 ^ m25, m34 = m21 & m22, m35 = m24 & m34, m36 = m24 ^ m25;
    const T m37 = m21 ^ m29, m38 = m32 ^ m33, m39 = m23 ^ m30, m40 = m35 ^ m36;
    const T m41 = m38 ^ m40, m42 = m37 ^ m39, m43 = m37 ^ m38, m44 = m39 ^ m40, m45 = m42 ^ m41;
    return {m44 & t6,  m40 & t8,  m39 & u7,  m43 & t16, m38 & t9,  m37 & t17,
            m42 & t15, m45 & t27, m41 & t10, m44 & t13, m40 & t23, m39 & t19,
            m43 & t3,  m38 & t22, m37 & t20, m42 & t1,  m45 & t4,  m41 & t2};
}

// SubBytes without the constant: x becomes S(x) ^ 0x63.
template <class T>
[[gnu::always_inline]] constexpr void subBytes(T (&x)[8]) {
    const T u0 = x[7], u1 = x[6], u2 = x[5], u3 = x[4], u4 = x[3], u5 = x[2], u6 = x[1];
    const T u7 = x[0];
    const T t1 = u0 ^ u3, t2 = u0 ^ u5, t3 = u0 ^ u6, t4 = u3 ^ u5, t5 = u4 ^ u6, t6 = t1 ^ t5;
    const T t7 = u1 ^ u2, t8 = u7 ^ t6, t9 = u7 ^ t7, t10 = t6 ^ t7, t11 = u1 ^ u5;
    const T t12 = u2 ^ u5, t13 = t3 ^ t4, t14 = t6 ^ t11, t15 = t5 ^ t11, t16 = t5 ^ t12;
    const T t17 = t9 ^ t16, t18 = u3 ^ u7, t19 = t7 ^ t18, t20 = t1 ^ t19, t21 = u6 ^ u7;
    const T t22 = t7 ^ t21, t23 = t2 ^ t22, t24 = t2 ^ t10, t25 = t20 ^ t17, t26 = t3 ^ t16;
    const T t27 = t1 ^ t12;
    const products<T> p = middle<T>({t1,  t2,  t3,  t4,  t6,  t8,  t9,  t10, t13, t14, t15,
                                     t16, t17, t19, t20, t22, t23, t24, t25, t26, t27, u7});
    const T c1 = p.m61 ^ p.m62, c2 = p.m56 ^ c1, c3 = p.m50 ^ c2, c4 = p.m49 ^ c3;
    const T c5 = p.m54 ^ p.m58, c6 = p.m47 ^ p.m55, c7 = p.m46 ^ p.m48, c8 = p.m46 ^ c6;
    const T c9 = p.m53 ^ c4, c10 = p.m51 ^ p.m59, c11 = p.m60 ^ c7, c12 = c5 ^ c11;
    const T c13 = c1 ^ c10;
    x[7] = p.m52 ^ p.m55 ^ c9;
    x[6] = p.m52 ^ p.m53 ^ c2 ^ c8;
    x[5] = p.m52 ^ p.m61 ^ p.m63 ^ c12;
    x[4] = c4 ^ c8;
    x[3] = p.m48 ^ p.m51 ^ c3 ^ c6;
    x[2] = p.m57 ^ c9 ^ c12;
    x[1] = p.m50 ^ p.m53 ^ c5 ^ c13;
    x[0] = p.m49 ^ p.m58 ^ c7 ^ c13;
}

// InvSubBytes without the constant: x becomes S^-1(x ^ 0x63).
template <class T>
[[gnu::always_inline]] constexpr void invSubBytes(T (&x)[8]) {
    const T a1 = x[4] ^ x[6], a2 = x[0] ^ x[1], a3 = x[3] ^ x[4], a4 = x[6] ^ x[7];
    const T a5 = a1 ^ a2, a6 = x[5] ^ a5, a7 = x[2] ^ x[7], a8 = a5 ^ a7, a9 = x[0] ^ a3;
    const T a10 = x[4] ^ a4, a11 = x[5] ^ a7, a12 = a9 ^ a10;
    const products<T> p =
        middle<T>({a3,         a4,       x[1] ^ a9, a3 ^ a4,   a10 ^ a11, a10, a9,      a12,
                   a2 ^ a4,    a3 ^ a8,  a8,        a6 ^ a9,   a6,        a5,  a3 ^ a5, a1,
                   x[6] ^ a10, a4 ^ a12, x[5] ^ a3, x[1] ^ a6, a8 ^ a12,  a11});
    const T b1 = p.m52 ^ p.m61, b2 = p.m59 ^ b1, b3 = p.m58 ^ b2, b4 = p.m62 ^ b3;
    const T b5 = p.m54 ^ b4, b6 = p.m49 ^ p.m50, b7 = p.m48 ^ p.m56, b8 = p.m46 ^ b5;
    const T b9 = p.m50 ^ p.m51, b10 = b5 ^ b6, b11 = p.m57 ^ p.m63, b12 = b7 ^ b10;
    const T b13 = p.m47 ^ b12, b14 = p.m60 ^ b13, b15 = b9 ^ b10, b16 = p.m48 ^ b8;
    const T b17 = p.m53 ^ p.m54, b18 = b8 ^ b9, b19 = b10 ^ b17, b20 = p.m47 ^ b18;
    const T b21 = p.m61 ^ b11, b22 = p.m55 ^ b21, b23 = p.m57 ^ p.m59, b24 = b14 ^ b23;
    const T b25 = b4 ^ b22, b26 = p.m52 ^ b25, b27 = b24 ^ b26, b28 = b7 ^ b11;
    const T b29 = b18 ^ b28, b30 = p.m62 ^ b17, b31 = b29 ^ b30;
    x[0] = b22;
    x[1] = b19;
    x[2] = b20;
    x[3] = b31;
    x[4] = b16;
    x[5] = b24;
    x[6] = b27;
    x[7] = b15;
}

// The check: the S-box from its definition, the affine map of the inverse in GF(2^8).
constexpr uint8_t times(uint8_t a, uint8_t b) {
    uint8_t p = 0;
    for (; b != 0; b >>= 1, a = static_cast<uint8_t>((a << 1) ^ (a & 0x80 ? 0x1b : 0))) {
        if (b & 1)
            p ^= a;
    }
    return p;
}

constexpr uint8_t sbox(uint8_t x) {
    uint8_t inverse = 1, s = 0x63;
    for (int i = 1; i < 8; ++i) {  // x^254 = x^2 x^4 ... x^128: 1/x, and 0 for 0
        x = times(x, x);
        inverse = times(inverse, x);
    }
    for (int r = 0; r < 5; ++r) s ^= static_cast<uint8_t>(inverse << r | inverse >> (8 - r));
    return s;
}

template <void (*circuit)(unsigned (&)[8])>
constexpr unsigned through(unsigned byte) {
    unsigned x[8] = {};
    for (int b = 0; b < 8; ++b) x[b] = byte >> b & 1;
    circuit(x);
    unsigned out = 0;
    for (int b = 0; b < 8; ++b) out |= (x[b] & 1) << b;
    return out;
}

constexpr bool matchesSbox() {
    for (unsigned v = 0; v < 256; ++v) {
        const unsigned s = sbox(static_cast<uint8_t>(v));
        if (through<subBytes<unsigned>>(v) != (s ^ 0x63) ||
            through<invSubBytes<unsigned>>(s ^ 0x63) != v) {
            return false;
        }
    }
    return true;
}

static_assert(matchesSbox(), "an S-box circuit differs from the S-box");

}  // namespace circuit
}  // namespace
}  // namespace aesModes
}  // namespace tavik

#endif  // TAVIK_AES_SBOX_CIRCUITS_H_
