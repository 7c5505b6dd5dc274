// Private fixed-point arithmetic shared by the coder families: scalar log2,
// power of two and inverse square root of the G.729 reference arithmetic, the
// 32-to-16-bit conversions, small vector workers and the G.729 gain predictor.
//
// Names: the private workers keep their own names in namespace kvo.  Those
// whose own name starts with an underscore end in one here instead:
//   _kvosConvert_NR_32s16s_Sfs  -> kvo::kvosConvert_NR_32s16s_Sfs_
//   _kvosCopy_16s32s            -> kvo::kvosCopy_16s32s_
//   _kvosSumSquare_D2_16s32s    -> kvo::kvosSumSquare_D2_16s32s_
//   _kvosMul_D2D1_16s32s        -> kvo::kvosMul_D2D1_16s32s_
//   _kvosMul_D2D1Step_16s32s    -> kvo::kvosMul_D2D1Step_16s32s_
//   _kvosMul_D2_16s32s          -> kvo::kvosMul_D2_16s32s_
// Cnvrt_NR_32s16s is round16 of fixed.h under its worker name.
//
// None of these check their arguments: callers pass valid pointers, lengths
// of at least 1 (unless stated) and the ranges given with each function.
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"
#include "numeric/numeric_tables.h"

namespace kvo {

// ---- scalar operations --------------------------------------------------

// round16 under its worker name: 32767 at or above 0x7fff8000, else (x + 0x8000) >> 16.
constexpr Kvo16s Cnvrt_NR_32s16s(Kvo32s x) { return round16(x); }

// Base-2 logarithm of a positive Q0 value: integer part in *pExp, Q15
// fraction in *pFrac, by linear interpolation in Log2Table.  x <= 0 gives 0, 0.
inline void ownLog2(Kvo32s x, Kvo16s* pExp, Kvo16s* pFrac) {
    if (x <= 0) {
        *pExp = 0;
        *pFrac = 0;
        return;
    }
    const int n = norm32_pos(static_cast<Kvo32u>(x));
    const Kvo32s y = shl_wrap(x, n);
    const int i = (y >> 25) - 32;
    const Kvo32s a = (y >> 10) & 0x7fff;
    const Kvo32s t = tab::Log2Table[i];
    *pExp = static_cast<Kvo16s>(30 - n);
    *pFrac = static_cast<Kvo16s>(((t << 15) - a * (t - tab::Log2Table[i + 1])) >> 15);
}

// 2^(exp + frac/32768) as an integer: the mantissa 2^(frac/32768) in Q30,
// interpolated in tabpow, shifted right by 30 - exp with rounding (the last
// bit shifted out is added back).  frac is a Q15 fraction, 0..32767.  Shift counts above 31 give
// 0; a negative count (exp above 30) is a saturating left shift, unrounded.
inline Kvo32s ownPow2(Kvo16s exp, Kvo16s frac) {
    const int i = frac >> 10;
    const Kvo32s a = (Kvo32s{frac} << 6) & 0xfffe;
    const Kvo32s t = tab::tabpow[i];
    const Kvo32s y = (t << 16) - a * (t - tab::tabpow[i + 1]);
    const int sh = 30 - exp;
    if (sh > 31) return 0;
    if (sh > 0) return (y >> sh) + ((y >> (sh - 1)) & 1);
    if (sh == 0) return y;
    // y is always at least 2^30, so every left shift saturates.
    return ShiftL_32s(y, -sh > 31 ? 31 : -sh);
}

// 1/sqrt of a normalised value x (top bit at bit 30) with exponent *pExp:
// on return x is the Q31 mantissa of the inverse root and *pExp its new
// exponent.  x <= 0 gives x = 0x7fffffff and exponent 0.
inline void ownInvSqrt_32s16s_I(Kvo32s* pX, Kvo16s* pExp) {
    Kvo32s x = *pX;
    if (x <= 0) {
        *pX = INT32_MAX;
        *pExp = 0;
        return;
    }
    int e = *pExp;
    if (e & 1) x >>= 1;
    e = -((e - 1) >> 1);
    const int i = (x >> 25) - 16;
    *pX = tab::tabsqr[i] - tab::tabsqr_d[i] * ((x >> 10) & 0x7fff);
    *pExp = static_cast<Kvo16s>(e);
}

// ---- vector workers --------------------------------------------------------

// dst[i] = low 16 bits of mpy32(src1[i], src2[i]).
void ownMul_32s16s(const Kvo32s* pSrc1, const Kvo32s* pSrc2, Kvo16s* pDst, int len);
// dst[i] = (src1[i] * src2[i]) >> sf, low 16 bits; sf 0..31.
void ownMul_16s_NoS_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, int len, int sf);
// sf 0: sat16(x); sf 1..31: sat16(x >> sf).  (Counts above 31 act as 31.)
void ownConvert_32s16s_sfs(const Kvo32s* pSrc, Kvo16s* pDst, int len, int sf);
// sf > 0: sat16((x + 2^(sf-1)) >> sf); sf <= 0: sat16(x << -sf), the shift
// wrapping in 32 bits.  |sf| is clamped to 31.
void kvosConvert_NR_32s16s_Sfs_(const Kvo32s* pSrc, Kvo16s* pDst, int len, int sf);
// Block normalisation of 32-bit values to 15 bits with rounding.
void ownAutoScale_NR_32s16s(const Kvo32s* pSrc, Kvo16s* pDst, int len);
// Sign-extending copy.
void kvosCopy_16s32s_(const Kvo16s* pSrc, Kvo32s* pDst, int len);
// Sliding energies of count windows of len samples (plain 32-bit sums, wrapping).
void ownEnergy_16s32s(const Kvo16s* pSrc, int len, Kvo32s* pDst, int count);
// Median of n values (n odd, 1..63) by the reference selection rounds.
Kvo16s ownGmed_n(const Kvo16s* pSrc, int n);
// pDst[r] = sat32 of the exact energy of row r.
void kvosSumSquare_D2_16s32s_(const Kvo16s* pSrc, int rows, int rowLen, Kvo32s* pDst);
// pDst[r] = sat32(row r . pVec).
void kvosMul_D2D1_16s32s_(const Kvo16s* pSrc, int rows, const Kvo16s* pVec, Kvo32s* pDst,
                          int rowLen);
// As above over len elements, row r starting at pSrc + r * step.
void kvosMul_D2D1Step_16s32s_(const Kvo16s* pSrc, int rows, const Kvo16s* pVec, Kvo32s* pDst,
                              int len, int step);
// Energies e0..e(rows-1), then c10, c20, c21, c30, ... (row i . row j, j < i).
void kvosMul_D2_16s32s_(const Kvo16s* pSrc, int rows, Kvo32s* pDst, int rowLen);

// ---- G.729 gain prediction (past quantised energies in Q10) -------------------

// Predicted fixed-codebook gain: *pGain (Q14 mantissa) and *pExp.
void ownGainPredict(const Kvo16s* pPastEnergy, Kvo32s codeEnergy, Kvo16s* pGain, Kvo16s* pExp);
// Pushes the quantised energy 20 log10 of gainSquare.
void ownGainUpdate(Kvo16s* pPastEnergy, Kvo32s gainSquare);
// Pushes the decayed mean energy for an erased frame.
void ownGainUpdateErasure(Kvo16s* pPastEnergy);

// ---- element-wise kernels of the exports (scalar twins and dispatch) ------------

void mulNR_16s_scalar(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len, int sf);
void mulCNR_16s_scalar(const Kvo16s* src, Kvo16s val, Kvo16s* dst, int len, int sf);
void mulNR_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len, int sf);
void mulCNR_16s(const Kvo16s* src, Kvo16s val, Kvo16s* dst, int len, int sf);
void interp_16s_scalar(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len);
void interpC_16s_scalar(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst,
                        int len, int sf);
void interpCNR_16s_scalar(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst,
                          int len, int sf);
void interp_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len);
void interpC_16s(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst, int len,
                 int sf);
void interpCNR_16s(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst, int len,
                   int sf);

}  // namespace kvo
