// Private workers of the G.729 adaptive codebook (pitch) stage, shared with the G.723.1 and
// G.729.1 families and with the G.729 gain quantiser.
//
// Arithmetic: the G.729 reference works in basic operations that saturate at every step, and
// these workers keep that order wherever a saturation can change the result:
//   - a "doubled chain" is the multiply-accumulate of the reference: each product a*b is doubled
//     with 32-bit saturation (only -32768 * -32768 saturates), then added to the running sum with
//     32-bit saturation, term by term in the stated order;
//   - the 16-bit fractional product is mult16(a, b) = sat16((a*b) >> 15).
// Data formats: excitation and targets Q0, impulse responses Q12, gains Q14, correlations
// normalised to 16 bits.
//
// Legal C++ names of the underscore-led workers: a trailing underscore replaces the leading one
//   _kvosComputeAdaptiveCodebookGain_16s -> kvo::kvosComputeAdaptiveCodebookGain_16s_
//   _kvosMeanSquareWeightedError_16s     -> kvo::kvosMeanSquareWeightedError_16s_
//   _kvosClosedLoopPitchSearch_G729_16s  -> kvo::kvosClosedLoopPitchSearch_G729_16s_
//   _kvosCrossCorrLagMax_Inv_16s         -> kvo::kvosCrossCorrLagMax_Inv_16s_
// None of these check their arguments.
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo {

namespace pitch {

// Largest vector length the workers accept (G.729 subframes are 40, G.723.1 subframes 60).
inline constexpr int kMaxLen = 64;

// Excitation buffer of the G.729 pitch stage: 154 past samples, then the 40 of the subframe.
inline constexpr int kExcHistory = 154;
inline constexpr int kSubframe = 40;

// sat32(2ab): the doubled product of the reference; ovf is raised when it saturates.
inline Kvo32s mult2(Kvo16s a, Kvo16s b, bool& ovf) {
    const Kvo32s p = Kvo32s{a} * b;
    if (p == 0x40000000) {
        ovf = true;
        return INT32_MAX;
    }
    return p * 2;
}
inline Kvo32s mult2(Kvo16s a, Kvo16s b) {
    const Kvo32s p = Kvo32s{a} * b;
    return p == 0x40000000 ? INT32_MAX : p * 2;
}

// One step of the doubled chain: sat32(s + sat32(2ab)).
inline Kvo32s mac(Kvo32s s, Kvo16s a, Kvo16s b) {
    return sat32(Kvo64s{s} + mult2(a, b));
}
inline Kvo32s mac(Kvo32s s, Kvo16s a, Kvo16s b, bool& ovf) {
    const Kvo64s r = Kvo64s{s} + mult2(a, b, ovf);
    if (r > INT32_MAX || r < INT32_MIN) ovf = true;
    return sat32(r);
}

// x >> n for a 32-bit value with the count held to 31 (the reference's arithmetic shift for
// counts beyond the word), and a saturating left shift for a negative count.
constexpr Kvo32s shr32(Kvo32s x, int n) {
    if (n >= 0) return x >> (n > 31 ? 31 : n);
    return ShiftL_32s(x, -n > 31 ? 31 : -n);
}

// Doubled chain over n terms a[i] b[i], i ascending, from the start value s0.
Kvo32s dotChain(const Kvo16s* a, const Kvo16s* b, int n, Kvo32s s0 = 0);
// The same, raising ovf when any product or partial sum saturates.
Kvo32s dotChain(const Kvo16s* a, const Kvo16s* b, int n, Kvo32s s0, bool& ovf);

// Convolution of the reference (Convolve): y[n] = hi(sat32(chain(x[i] h[n - i], i = 0..n) << 3)),
// i.e. sat16 of the doubled chain over Q12 coefficients.  len at most kMaxLen.
void convolveQ12(const Kvo16s* x, const Kvo16s* h, Kvo16s* y, int len);

// Backward-filtered target of the annex A closed-loop search (40 samples): the
// doubled chains over j >= i of x[j] h[j - i], normalised so that the largest
// magnitude (0x80000000 counting as 0x7fffffff) fits 14 bits, low 16 bits of
// each shifted sum.  Plain is the ordered saturating twin.
void backwardTarget(const Kvo16s* h, const Kvo16s* x, Kvo16s* d);
void backwardTargetPlain(const Kvo16s* h, const Kvo16s* x, Kvo16s* d);

// Closed-loop lag window: subframe 0 searches T-3 .. T+3 from the open-loop lag T, subframe 1
// T-5 .. T+4 from the lag of subframe 0, both kept inside 20 .. 143.
inline void searchWindow(int T, int subFrame, int* pLower, int* pUpper) {
    const int below = subFrame == 0 ? 3 : 5;
    const int width = subFrame == 0 ? 6 : 9;
    int lower = T - below;
    if (lower < 20) lower = 20;
    int upper = lower + width;
    if (upper > 143) {
        upper = 143;
        lower = 143 - width;
    }
    *pLower = lower;
    *pUpper = upper;
}

// Adaptive-codebook vector at 1/3 resolution into pExc[0 .. len-1], pExc pointing at the
// subframe start of the excitation buffer: lag 1 .. 144 (any lag whose reads stay in the
// buffer), fraction -1, 0 or 1.  Outputs are written in turn; a short lag reads them back.
void decodeAdaptiveVector(Kvo16s* pExc, int lag, int fraction, int len = kSubframe);
// The same by the scalar sums (the twin of the vector form).
void decodeAdaptiveVectorPlain(Kvo16s* pExc, int lag, int fraction, int len = kSubframe);

// Integer lag of the largest normalised correlation over lower .. upper (pCorr[0] is the value of
// lag lower - 4); among equal values the highest lag wins.
int bestIntegerLag(const Kvo16s* pCorr, int lower, int upper);

}  // namespace pitch

// ---- workers of the published structure --------------------------------------------

// Gain worker: filtered vector y (pFlt) against target x (pTarget), len <= 64 samples.  pCoeffs
// receives the mantissas and exponent codes of y.y and x.y (m_y, 15 - exp_y, m_x, 15 - exp_x);
// pGain the gain x.y / y.y in Q14, 0 when m_x < 4, at most 19661 (1.2).  rounding is the start
// value of the x.y chain.
void kvosComputeAdaptiveCodebookGain_16s_(Kvo32s rounding, const Kvo16s* pFlt,
                                          const Kvo16s* pTarget, Kvo16s* pCoeffs, Kvo16s* pGain,
                                          int len = 40);

// Normalised correlation of the target with the filtered past excitation for every lag from
// lowerLag to upperLag: pDst[lag - lowerLag] = sat16((x . f_lag) / sqrt(f_lag . f_lag)), f_lag
// being the excitation at delay lag filtered by the Q12 impulse response.  pExc points at the
// subframe start; the function reads pExc[-upperLag .. len - 1 - lowerLag].  len <= 64.
void kvosMeanSquareWeightedError_16s_(const Kvo16s* pExc, const Kvo16s* pTarget,
                                      const Kvo16s* pImpulse, int lowerLag, int upperLag,
                                      Kvo16s* pDst, int len);

// Interpolated normalised correlation at fraction -2 .. 2 (thirds) around pCorr[0]; reads
// pCorr[-4 .. 4].
Kvo16s ownInterpol_3(const Kvo16s* pCorr, int fraction);

// Integer lag and fraction from the normalised correlations (pCorr[0] is lag lowerLag - 4):
// highest lag of the largest value, then the fractions -2 .. 2 unless subframe 0 has a lag above
// 84; -2 and 2 become +1 and -1 on the neighbouring lag.
void kvosClosedLoopPitchSearch_G729_16s_(const Kvo16s* pCorr, int subFrame, int lowerLag,
                                         int upperLag, Kvo16s* pFraction, Kvo16s* pLag);

// Annex A open-loop section: doubled chains over the 40 even samples n = 0, 2, .. 78 of
// pSrc[n] pSrc[n - lag], lags lowerLag, lowerLag + step, .. below upperLag; a strictly greater
// value replaces the best, from the start value 0x80000000 at lag lowerLag; an empty range gives
// 0x80000000 and lag 0.
void ownAutoCorrLagMax_G729A_16s(const Kvo16s* pSrc, int lowerLag, int upperLag, int step,
                                 Kvo32s* pMax, int* pMaxLag);

// Largest doubled-chain cross-correlation of pSrc1[n] with pSrc2[n - lag], n < len, lags
// lowerLag .. upperLag ascending; a strictly greater value replaces the best.  Writes nothing for
// an empty range.
void kvosCrossCorrLagMax_Inv_16s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, int len, int lowerLag,
                                  int upperLag, Kvo32s* pMax, int* pMaxLag);

}  // namespace kvo
