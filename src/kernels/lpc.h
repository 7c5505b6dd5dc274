// Private workers of the LPC recursions and spectral conversions, and the
// saturating basic operations they are written in.
//
// The 32-bit "double precision" values of the G.729 arithmetic are held as one
// Kvo32s whose bit 0 is clear (hi = x >> 16, lo = (x >> 1) & 0x7fff, see
// fixed.h); dp() is the recomposition (hi << 16) + (lo << 1).
//
// Names of private workers (namespace kvo):
//   ownLPCToLSP_G729_16s        root search of the G.729 / GSM AMR LSP conversion
//   ownLSFToLSP_16s             cosine-table lookup with linear interpolation
//   _kvosLPCToLSF_Norm_G723_16s -> kvo::kvosLPCToLSF_Norm_G723_16s_
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo {

// ---- saturating basic operations -----------------------------------------

// sat32(a - b).
constexpr Kvo32s Sub_32s(Kvo32s a, Kvo32s b) { return sat32(Kvo64s{a} - b); }
// |x| with 0x80000000 going to 0x7fffffff.
constexpr Kvo32s Abs_32s(Kvo32s x) { return x == INT32_MIN ? INT32_MAX : (x < 0 ? -x : x); }
// |x| with -32768 going to 32767.
constexpr Kvo16s Abs_16s(Kvo16s x) {
    return x == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(x < 0 ? -x : x);
}
// -x with -32768 going to 32767.
constexpr Kvo16s Neg_16s(Kvo16s x) {
    return x == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(-x);
}
// Fractional product sat32(2ab): only -32768 * -32768 saturates.
constexpr Kvo32s FMul_16s32s(Kvo16s a, Kvo16s b) { return sat32(2 * (Kvo64s{a} * b)); }
// acc + 2ab and acc - 2ab, the product saturated first, then the sum.
constexpr Kvo32s FMac_16s32s(Kvo32s acc, Kvo16s a, Kvo16s b) {
    return Add_32s(acc, FMul_16s32s(a, b));
}
constexpr Kvo32s FMsu_16s32s(Kvo32s acc, Kvo16s a, Kvo16s b) {
    return Sub_32s(acc, FMul_16s32s(a, b));
}
// x << n saturated, for any n >= 0 (counts of 31 and more saturate every
// non-zero value).
constexpr Kvo32s ShiftLSat_32s(Kvo32s x, int n) {
    if (n <= 0 || x == 0) return x;
    if (n > 30) return x > 0 ? INT32_MAX : INT32_MIN;
    return ShiftL_32s(x, n);
}
// Recomposed double precision value: bit 0 cleared.
constexpr Kvo32s dp(Kvo32s x) { return static_cast<Kvo32s>(static_cast<Kvo32u>(x) & ~1u); }
// Double precision times 16 bits: 2 hi(x) n + 2 ((lo(x) n) >> 15), saturated
// after the first product and after the sum.
constexpr Kvo32s mpy32_16(Kvo32s x, Kvo16s n) {
    return Add_32s(FMul_16s32s(hi(x), n), 2 * ((Kvo32s{lo(x)} * n) >> 15));
}
// 32 x 16 product of the G.723.1 arithmetic: ((x & 0xffff) v) >> 15 plus the
// saturated 2 hi(x) v.
constexpr Kvo32s mls_32s16s(Kvo32s x, Kvo16s v) {
    const Kvo32s low = static_cast<Kvo32s>((Kvo64s{x & 0xffff} * v) >> 15);
    return Add_32s(low, FMul_16s32s(static_cast<Kvo16s>(x >> 16), v));
}

// G.729 32-bit division: num / den in Q31 for a normalised den and
// 0 <= num <= den.  The reciprocal of den is refined once from the 16-bit
// first guess (0x1fff8000 / hi(den), kept to 16 bits) by Newton's step; the
// final product is multiplied by 4 with saturation, so a quotient of 1 or more
// comes out as 0x7fffffff.
constexpr Kvo32s div32(Kvo32s num, Kvo32s den) {
    const Kvo16s a = lo16(Kvo32s{0x1fff8000} / hi(den));
    Kvo32s t = mpy32_16(den, a);
    t = Sub_32s(INT32_MAX, t);
    t = mpy32_16(t, a);
    return ShiftL_32s(mpy32(num, t), 2);
}

// ---- private workers -------------------------------------------------------

// Root search of the LSP conversion: the roots of the symmetric and
// antisymmetric polynomials of the order-10 filter pLPC (Q12, 11 values),
// found on a cosine grid by sign change, bisection and linear interpolation,
// and stored in pLSP (Q15) in decreasing order.  First a walk two grid points
// at a time; if that misses roots, the walk one point at a time.
//   gridSize   60 or 50 (grid points beyond the first)
//   bisections 4 (G.729, GSM AMR) or 2 (G.729 annex A)
//   tableIndex 0: the 60-interval grid, 1: the 50-interval grid
//   coefShift  12: G.729 (Q11 polynomials, Q10 with a coarser evaluation if
//              a coefficient overflows); 13: GSM AMR (Q10 polynomials)
// Returns the number of roots found (10 on success); pLSP is fully written only
// then.
int ownLPCToLSP_G729_16s(int gridSize, int bisections, int tableIndex, const Kvo16s* pLPC,
                         Kvo16s* pLSP, int coefShift);

// Ten LSF-to-LSP lookups: i = x >> 8, out = cos15[i] + (((x & 255) pSlope[i]) >> shift),
// saturated.  Shift 12 (G.729, slope_cos) holds the index at 63; shift 8 (GSM
// AMR, slope_cos15) has no such clamp and continues the cosine past pi.  A
// negative value returns kvoErrNegativeFreq with the earlier outputs written.
KvoStatus ownLSFToLSP_16s(const Kvo16s* pSlope, int shift, const Kvo16s* pIn, Kvo16s* pOut);

// G.723.1 LPC (Q13, 10 values) to LSF (Q7 index of the 256-step grid).  Returns
// 0 with ten roots in pLSF, 1 otherwise (pLSF then holds partial results).
int kvosLPCToLSF_Norm_G723_16s_(const Kvo16s* pLPC, Kvo16s* pLSF);

}  // namespace kvo
