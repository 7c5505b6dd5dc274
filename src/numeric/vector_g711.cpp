// Vector layer, G.711 companding: 16-bit linear samples to A-law and mu-law
// bytes, as the G.711 reference encoder computes them.
//
// A-law works on the 13-bit value (sample >> 3), negative values taking their
// one's complement; the code carries segment and 4-bit mantissa with the even
// bits inverted (xor 0x55, and the sign bit set for non-negative samples).
// Mu-law works on the 14-bit value (sample >> 2) with the bias of 33 added,
// held at 8191; the code is segment and mantissa with every bit inverted,
// the sign bit set for non-negative samples.
#include "numeric/vector.h"

namespace kvo {

namespace {

inline Kvo8u alaw(Kvo16s sample) {
    Kvo32s x = sample >> 3;
    Kvo32s mask = 0xd5;
    if (x < 0) {
        x = ~x;
        mask = 0x55;
    }
    // Segment ends 31, 63, 127 .. 4095 (255 .. 32767 on the 16-bit scale):
    // the segment is the bit length of x beyond 5, at least 0.
    int bits = 32 - __builtin_clz(static_cast<unsigned>(x) | 1u);
    int g = bits > 5 ? bits - 5 : 0;
    Kvo32s mant = (x >> (g < 2 ? 1 : g)) & 15;
    return static_cast<Kvo8u>((mant | (g << 4)) ^ mask);
}

inline Kvo8u mulaw(Kvo16s sample) {
    Kvo32s m = (sample >= 0 ? sample >> 2 : ~(sample >> 2)) + 33;
    m = m > 8191 ? 8191 : m;
    // k = 1 below 64, otherwise floor(log2 m) - 4.
    int k = 1;
    if (m >= 64) k = 31 - __builtin_clz(static_cast<unsigned>(m)) - 4;
    Kvo32s code = ((8 - k) << 4) | (15 - ((m >> k) & 15));
    return static_cast<Kvo8u>(sample >= 0 ? code | 0x80 : code);
}

}  // namespace

KvoStatus kvosLinToALaw_16s8u(const Kvo16s* pSrc, Kvo8u* pDst, Kvo32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) pDst[i] = alaw(pSrc[i]);
    return kvoOk;
}

KvoStatus kvosLinToMuLaw_16s8u(const Kvo16s* pSrc, Kvo8u* pDst, Kvo32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) pDst[i] = mulaw(pSrc[i]);
    return kvoOk;
}

}  // namespace kvo
