// Internal vector layer: element-wise, conversion, companding, reduction,
// threshold and convolution operations on caller vectors.  Nothing here is
// exported; every coder family calls these directly.
//
// Conventions of the whole layer:
//  - A vector is a pointer and a Kvo32s length.  Every function tests its
//    pointers first (kvoErrNullPtr), then len < 1 (kvoErrSize), then its own
//    value arguments, and writes nothing on failure.  A vector of 0 elements
//    is an error, never a no-operation.
//  - Integer _Sfs results follow one rule (sfs_* below): the exact result is
//    held in a wide integer r; scale 0 saturates it, a positive scale s
//    rounds r / 2^s to nearest with ties to even and saturates, a negative
//    scale shifts left with saturation (zero stays zero).
//  - Element-wise operations run in plain index order; where operands
//    overlap, results are those of the plain forward loop.
//  - Sub forms subtract the FIRST operand from the SECOND (pSrc2 - pSrc1).
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvosc_types.h"

namespace kvo {

// ---- the integer scaling rule ---------------------------------------------------

// r / 2^s rounded to nearest, ties to even: (r + 2^(s-1) - 1 + ((r >> s) & 1)) >> s.
// Valid for 1 <= s <= 63 and |r| <= 2^62 (no intermediate overflow).
constexpr Kvo64s sfs_round_even(Kvo64s r, int s) {
    return (r + ((Kvo64s{1} << (s - 1)) - 1) + ((r >> s) & 1)) >> s;
}

// The same rounding in 32-bit arithmetic, for 1 <= s <= 30 and |r| <= 2^30.
constexpr Kvo32s sfs_round_even32(Kvo32s r, int s) {
    return (r + ((Kvo32s{1} << (s - 1)) - 1) + ((r >> s) & 1)) >> s;
}

// r * 2^n (n >= 1) saturated to [lo, hi], hi = 2^(w-1) - 1, lo = -2^(w-1), w <= 32:
// a result too large for the shift gives the extreme of its sign, zero stays zero.
constexpr Kvo64s sfs_shift_left_sat(Kvo64s r, int n, Kvo64s lo, Kvo64s hi) {
    if (r == 0) return 0;
    if (n >= 32) return r > 0 ? hi : lo;
    if (r > (hi >> n)) return hi;
    if (r < -((-lo) >> n)) return lo;
    return r * (Kvo64s{1} << n);
}

// The whole rule to the range [lo, hi], for any scale and |r| <= 2^62.
constexpr Kvo64s sfs_scale(Kvo64s r, int s, Kvo64s lo, Kvo64s hi) {
    if (s > 0) {
        // |r| <= 2^62 < 2^(s-1) for s >= 64: the quotient is below one half.
        r = s >= 64 ? 0 : sfs_round_even(r, s);
    } else if (s < 0) {
        return sfs_shift_left_sat(r, s < -32 ? 32 : -s, lo, hi);
    }
    return r > hi ? hi : (r < lo ? lo : r);
}
constexpr Kvo32s sfs_sat32(Kvo64s r, int s) {
    return static_cast<Kvo32s>(sfs_scale(r, s, INT32_MIN, INT32_MAX));
}
constexpr Kvo16s sfs_sat16(Kvo64s r, int s) {
    return static_cast<Kvo16s>(sfs_scale(r, s, INT16_MIN, INT16_MAX));
}

// Positive infinity, written by the inverse threshold for a zero element at level 0.
inline constexpr Kvo64f kvoConstantOfINF_64f = __builtin_inf();

// ---- byte-level workers ---------------------------------------------------------

void ownsZero_8u(Kvo8u* pDst, std::size_t nBytes);
void ownsSet_16u(Kvo16u val, Kvo16u* pDst, std::size_t len);
void ownsSet_32s(Kvo32s val, Kvo32s* pDst, std::size_t len);
void ownsSet_64s(Kvo64s val, Kvo64s* pDst, std::size_t len);
void ownsCopy_8u(const Kvo8u* pSrc, Kvo8u* pDst, std::size_t nBytes);

// ---- memory ---------------------------------------------------------------------

// All bits zero.
KvoStatus kvosZero_8u(Kvo8u* pDst, Kvo32s len);
KvoStatus kvosZero_16s(Kvo16s* pDst, Kvo32s len);
KvoStatus kvosZero_16sc(Kvo16sc* pDst, Kvo32s len);
KvoStatus kvosZero_32s(Kvo32s* pDst, Kvo32s len);
KvoStatus kvosZero_32f(Kvo32f* pDst, Kvo32s len);
KvoStatus kvosZero_32fc(Kvo32fc* pDst, Kvo32s len);
KvoStatus kvosZero_64s(Kvo64s* pDst, Kvo32s len);
KvoStatus kvosZero_64f(Kvo64f* pDst, Kvo32s len);
KvoStatus kvosZero_64fc(Kvo64fc* pDst, Kvo32s len);

// Every element takes val (bit pattern copy for the float forms).
KvoStatus kvosSet_16s(Kvo16s val, Kvo16s* pDst, Kvo32s len);
KvoStatus kvosSet_32s(Kvo32s val, Kvo32s* pDst, Kvo32s len);
KvoStatus kvosSet_32f(Kvo32f val, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosSet_64f(Kvo64f val, Kvo64f* pDst, Kvo32s len);

// Element copy; source and destination must not overlap.
KvoStatus kvosCopy_8u(const Kvo8u* pSrc, Kvo8u* pDst, Kvo32s len);
KvoStatus kvosCopy_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len);
KvoStatus kvosCopy_32s(const Kvo32s* pSrc, Kvo32s* pDst, Kvo32s len);
KvoStatus kvosCopy_32sc(const Kvo32sc* pSrc, Kvo32sc* pDst, Kvo32s len);
KvoStatus kvosCopy_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosCopy_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len);

// Copy that is safe for overlap in either direction.
KvoStatus kvosMove_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len);
KvoStatus kvosMove_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len);

// ---- element-wise integer -------------------------------------------------------

// Magnitude; -32768 gives 32767.
KvoStatus kvosAbs_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len);
// sat16(pSrc1[n] + pSrc2[n]).
KvoStatus kvosAdd_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len);
// sat16(pSrc2[n] - pSrc1[n]).
KvoStatus kvosSub_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len);
// 64-bit sum, scaled to 32 bits.
KvoStatus kvosAdd_32s_Sfs(const Kvo32s* pSrc1, const Kvo32s* pSrc2, Kvo32s* pDst, Kvo32s len,
                          Kvo32s scaleFactor);
// pSrc[n] - val, scaled to 16 bits.
KvoStatus kvosSubC_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                           Kvo32s scaleFactor);
// val - pSrc[n], scaled to 16 bits.
KvoStatus kvosSubCRev_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                              Kvo32s scaleFactor);
// pSrc[n] * val, scaled to 16 bits.
KvoStatus kvosMulC_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                           Kvo32s scaleFactor);
// pSrc1[n] * pSrc2[n], scaled to 32 bits.
KvoStatus kvosMul_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s* pDst, Kvo32s len,
                             Kvo32s scaleFactor);
// re^2 + im^2 as an unsigned 64-bit sum; a positive scale truncates, a negative
// one shifts left; the result is held at 0x7fffffff.
KvoStatus kvosMagSquared_32sc32s_Sfs(const Kvo32sc* pSrc, Kvo32s* pDst, Kvo32s len,
                                     Kvo32s scaleFactor);
// Arithmetic right shift.  Count 0 is the copy (with the copy's checks); otherwise
// null, then len < 1, then a negative count (kvoErrShiftCount).  A count at or
// above the element width gives the sign fill.
KvoStatus kvosRShiftC_16s(const Kvo16s* pSrc, Kvo32s count, Kvo16s* pDst, Kvo32s len);
KvoStatus kvosRShiftC_32s(const Kvo32s* pSrc, Kvo32s count, Kvo32s* pDst, Kvo32s len);
// Left shift, top bits lost.  Count 0 is the copy; a count of 16 or more zeroes
// pDst once pSrc is tested; otherwise null, len, then a negative count.
KvoStatus kvosLShiftC_16u(const Kvo16u* pSrc, Kvo32s count, Kvo16u* pDst, Kvo32s len);
KvoStatus kvosLShiftC_16s(const Kvo16s* pSrc, Kvo32s count, Kvo16s* pDst, Kvo32s len);

// ---- element-wise floating point (IEEE, in the element's precision) -------------

KvoStatus kvosAdd_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosAdd_64f(const Kvo64f* pSrc1, const Kvo64f* pSrc2, Kvo64f* pDst, Kvo32s len);
// pSrc2[n] - pSrc1[n].
KvoStatus kvosSub_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosMul_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosMul_64f(const Kvo64f* pSrc1, const Kvo64f* pSrc2, Kvo64f* pDst, Kvo32s len);
KvoStatus kvosAddC_32f(const Kvo32f* pSrc, Kvo32f val, Kvo32f* pDst, Kvo32s len);
// pSrc[n] - val.
KvoStatus kvosSubC_32f(const Kvo32f* pSrc, Kvo32f val, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosMulC_32f(const Kvo32f* pSrc, Kvo32f val, Kvo32f* pDst, Kvo32s len);
KvoStatus kvosMulC_64f(const Kvo64f* pSrc, Kvo64f val, Kvo64f* pDst, Kvo32s len);
KvoStatus kvosMulC_32f_I(Kvo32f val, Kvo32f* pSrcDst, Kvo32s len);
// pSrcDst[n] += pSrc1[n] * pSrc2[n].
KvoStatus kvosAddProduct_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pSrcDst, Kvo32s len);
// Real times complex.
KvoStatus kvosMul_32f32fc(const Kvo32f* pSrc, const Kvo32fc* pSrc2, Kvo32fc* pDst, Kvo32s len);

// ---- conversions ----------------------------------------------------------------

KvoStatus kvosConvert_16s32s(const Kvo16s* pSrc, Kvo32s* pDst, Kvo32s len);
KvoStatus kvosConvert_16s32f(const Kvo16s* pSrc, Kvo32f* pDst, Kvo32s len);
// Nearest float (ties to even).
KvoStatus kvosConvert_32s32f(const Kvo32s* pSrc, Kvo32f* pDst, Kvo32s len);
// Clamped to the largest finite float of each sign, then narrowed to nearest.
KvoStatus kvosConvert_64f32f(const Kvo64f* pSrc, Kvo32f* pDst, Kvo32s len);

// ---- G.711 companding ------------------------------------------------------------

// 16-bit linear to A-law (even bits inverted) and to mu-law (all bits inverted),
// bit for bit as the G.711 reference encoder on the 13- and 14-bit magnitudes.
KvoStatus kvosLinToALaw_16s8u(const Kvo16s* pSrc, Kvo8u* pDst, Kvo32s len);
KvoStatus kvosLinToMuLaw_16s8u(const Kvo16s* pSrc, Kvo8u* pDst, Kvo32s len);

// ---- reductions -----------------------------------------------------------------

KvoStatus kvosMax_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult);
KvoStatus kvosMax_32s(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pResult);
KvoStatus kvosMin_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult);
KvoStatus kvosMin_32f(const Kvo32f* pSrc, Kvo32s len, Kvo32f* pResult);
// Extreme and the lowest index holding it; pIndex may be null.
KvoStatus kvosMaxIndx_32s(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pResult, Kvo32s* pIndex);
KvoStatus kvosMinIndx_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult, Kvo32s* pIndex);
// Largest magnitude, held at the positive limit (-32768 gives 32767).
KvoStatus kvosMaxAbs_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult);
KvoStatus kvosMaxAbs_32s(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pResult);
// Exact sum, scaled to 32 bits.
KvoStatus kvosSum_16s32s_Sfs(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pSum, Kvo32s scaleFactor);
// The 32-bit scaled sum, then sat16.
KvoStatus kvosSum_16s_Sfs(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pSum, Kvo32s scaleFactor);
// Exact sum, scaled to 32 bits with the scale held to -31 .. 63.
KvoStatus kvosSum_32s_Sfs(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pSum, Kvo32s scaleFactor);
// hint 1: single-precision lanes over blocks of 1024 elements, block results
// added in double; any other hint: every element added in double.
KvoStatus kvosSum_32f(const Kvo32f* pSrc, Kvo32s len, Kvo32f* pSum, Kvo32s hint);
KvoStatus kvosSum_64f(const Kvo64f* pSrc, Kvo32s len, Kvo64f* pSum);
// Single-precision accumulation.
KvoStatus kvosDotProd_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32s len, Kvo32f* pDp);
// Products and sum in double.
KvoStatus kvosDotProd_32f64f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32s len, Kvo64f* pDp);
// Exact 64-bit sum of products, scaled to 32 bits with the scale held to -31 .. 31.
KvoStatus kvosDotProd_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s* pDp,
                                 Kvo32s scaleFactor);

// Workers behind the dot products (len >= 1, pointers valid).
Kvo64s ownDotProd_16s64s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len);
Kvo32f ownDotProd_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32s len);

// ---- thresholds (pSrc, pDst, len, then the levels) --------------------------------

// Element below level becomes value.
KvoStatus kvosThreshold_LTVal_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f level,
                                  Kvo32f value);
// Element above level becomes value.
KvoStatus kvosThreshold_GTVal_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f level,
                                  Kvo32f value);
KvoStatus kvosThreshold_GTVal_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len, Kvo64f level,
                                  Kvo64f value);
// Both; levelLT above levelGT is kvoErrThresholdOrder.
KvoStatus kvosThreshold_LTValGTVal_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f levelLT,
                                       Kvo32f valueLT, Kvo32f levelGT, Kvo32f valueGT);
KvoStatus kvosThreshold_LTValGTVal_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len, Kvo64f levelLT,
                                       Kvo64f valueLT, Kvo64f levelGT, Kvo64f valueGT);
// Magnitude below level becomes level with the element's sign (zero counts as
// positive); a negative level is kvoErrThresholdNegative.
KvoStatus kvosThreshold_LTAbs_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f level);
// Inverse with the magnitude held at or above level (result limited to 1/level,
// element's sign).  Level 0: a zero element gives +infinity and the call returns
// kvoWarnInvZero.  A negative level is kvoErrThresholdNegative.
KvoStatus kvosThreshold_LTInv_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len, Kvo64f level);

// ---- biased convolution -----------------------------------------------------------

// pDst[n] = sum over k < len1 of pSrc1[k] * pSrc2[n - k], keeping only the terms
// with 0 <= bias + n - k < len2 (pSrc2 points bias elements into its array).
// Single-precision sums, each output accumulated in increasing k.  Fixed
// shapes (len2, len1, dstLen, bias) run unrolled without bound tests and
// before the length checks.
KvoStatus kvosConvBiased_32f(const Kvo32f* pSrc1, Kvo32s len1, const Kvo32f* pSrc2, Kvo32s len2,
                             Kvo32f* pDst, Kvo32s dstLen, Kvo32s bias);

// ---- SIMD twins, exposed so tests can compare them with the plain loops -----------

namespace vec_scalar {
void add_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len);
void sub_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len);
void mulc_16s_sfs(const Kvo16s* a, Kvo16s val, Kvo16s* d, Kvo32s len, Kvo32s sf);
Kvo64s dotprod_16s64s(const Kvo16s* a, const Kvo16s* b, Kvo32s len);
}  // namespace vec_scalar
namespace vec_sse2 {
void add_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len);
void sub_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len);
void mulc_16s_sfs(const Kvo16s* a, Kvo16s val, Kvo16s* d, Kvo32s len, Kvo32s sf);
Kvo64s dotprod_16s64s(const Kvo16s* a, const Kvo16s* b, Kvo32s len);
}  // namespace vec_sse2

}  // namespace kvo

// The FFT-backed members of the layer (cross-correlation, pack-spectrum product,
// flip and float-to-integer conversions) live with the FFT engine.
#if __has_include("numeric/vector_fft.h")
#include "numeric/vector_fft.h"
#endif
