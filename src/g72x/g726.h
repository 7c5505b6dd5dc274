// Internal pieces of the G.726 ADPCM coder (ITU-T G.726, 16 to 40 kbit/s) that
// the tests reach directly: the floating multiply of the predictor, the
// quantizer logarithm and the G.711 compression of the decoder's output stage.
//
// Data: 16-bit two's complement signals on the 14-bit PCM scale; predictor
// coefficients in Q14 (B1..B6, A1, A2); floating words exponent * 64 plus a
// 6-bit mantissa, signs kept in separate words.
#pragma once

#include "kvosc_types.h"

namespace kvo::g726 {

// Bit length of v >= 0 (0 for 0, 1 for 1, 2 for 2 and 3, ...).
inline int bitLength(int v) {
    return 31 - __builtin_clz(static_cast<unsigned>(v) * 2u + 1u);
}

// Signed product of a Q14 predictor coefficient and a floating word with its
// sign (G.726 FMULT): 13-bit magnitude of coef >> 2, 6-bit mantissas, the
// rounded mantissa product scaled by the exponent sum, kept to 15 bits.
inline int floatMul(int coef, int word, int wordSign) {
    int m = coef >> 2;
    m = (m < 0 ? -m : m) & 0x1FFF;
    const int e = bitLength(m);
    const int mant = m != 0 ? (m << 6) >> e : 32;
    const int x = e + ((word >> 6) & 15);             // 0..28
    const int t = (mant * (word & 63) + 48) >> 4;     // 8 bits
    const int mag = ((t << 9) >> (28 - x)) & 0x7FFF;  // (t << 7) scaled by 2^(x - 26)
    const int neg = static_cast<int>(coef < 0) ^ wordSign;
    return (mag ^ -neg) + neg;
}

// Floating word of a magnitude 0..32767: bit length * 64 plus the 6-bit
// mantissa; a zero magnitude is exponent 0, mantissa 32.
inline int floatWord(int mag) {
    const int f = bitLength(mag);
    return mag != 0 ? (f << 6) + ((mag << 6) >> f) : 32;
}

// log2 of a difference magnitude in Q7 (exponent * 128 + 7-bit mantissa);
// a zero difference gives -128, below every decision level.  Branch-free: the
// sign of a difference is a coin toss to the branch predictor.
inline int logMag(int mag) {
    const int zero = mag == 0;
    const int v = mag | zero;
    const int k = 31 - __builtin_clz(static_cast<unsigned>(v));  // bit length - 1
    return (k << 7) + (((v << 7) >> k) & 127) - (zero << 7);
}

// Magnitude of a 16-bit value, -32768 held at 32767, without branches.
inline int satAbs16(int v) {
    const int s = v >> 31;
    const int m = (v ^ s) - s;
    return m - (m >> 15);
}

// G.711 mu-law byte of a 16-bit sample (all bits inverted on the line).
inline int muLawByte(int x) {
    int m = ((x >= 0 ? x : ~x) >> 2) + 33;
    if (m > 8191) m = 8191;
    const int k = 27 - __builtin_clz(static_cast<unsigned>(m));  // segment + 1, 1..8
    const int b = ((8 - k) << 4) | (15 - ((m >> k) & 15));
    return x >= 0 ? b | 0x80 : b;
}

// G.711 A-law byte of a 16-bit sample (even bits inverted on the line).
inline int aLawByte(int x) {
    int v = x >> 3;
    int mask = 0xD5;
    if (v < 0) {
        v = ~v;
        mask = 0x55;
    }
    int g = bitLength(v) - 5;  // segment 0..7
    if (g < 0) g = 0;
    const int q = (g < 2 ? v >> 1 : v >> g) & 15;
    return (q | (g << 4)) ^ mask;
}

// The exports' sample loops with the plain-C predictor instead of the SSE2 one
// (same results; for tests).  The record must be in range.
void encodeScalar(KvoG726EncodeState& st, const Kvo16s* src, Kvo8u* dst, int len);
void decodeScalar(KvoG726DecodeState& st, const Kvo8u* src, Kvo16s* dst, int len);

}  // namespace kvo::g726
