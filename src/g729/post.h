// Private helpers of the G.729 adaptive post-filter (long-term, short-term, tilt, gain
// control) and of the annex D phase dispersion: the 16-bit basic operations of the fixed-point
// reference coder that these stages use, with their saturation, and the backward lag search.
//
// All values are 16-bit samples (Q0) or Q15 fractions unless said otherwise.  None of these
// check their arguments.
#pragma once

#include <cstdint>

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo {

// Subframe length of every post-processing stage.
inline constexpr int kPostSubfr = 40;

// Fractional division of the reference coder for 0 <= num <= den: num/den in Q15, 32767 when
// num equals den (and, defensively, when den is not positive or num exceeds den).
constexpr Kvo16s postDivS(Kvo32s num, Kvo32s den) {
    if (den <= 0 || num >= den) return 32767;
    if (num <= 0) return 0;
    return static_cast<Kvo16s>((num << 15) / den);
}

// mult: (a b) >> 15, saturated (only -32768 * -32768 saturates).
constexpr Kvo16s postMult(Kvo16s a, Kvo16s b) {
    return sat16(mulQ15(a, b));
}
// mult_r: (a b + 16384) >> 15, saturated.
constexpr Kvo16s postMultR(Kvo16s a, Kvo16s b) {
    return sat16(mulQ15R(a, b));
}

// Arithmetic right shift of a 32-bit value by n >= 0; counts of 31 and more give the sign fill.
constexpr Kvo32s postShr32(Kvo32s x, int n) {
    return n >= 31 ? (x < 0 ? -1 : 0) : x >> n;
}

// 16-bit shift left by n >= 0 with saturation (the reference shl).
constexpr Kvo16s postShl16(Kvo16s x, int n) {
    if (x == 0) return 0;
    if (n >= 16) return x > 0 ? Kvo16s{32767} : Kvo16s{-32768};
    return sat16(static_cast<Kvo32s>(static_cast<Kvo32u>(Kvo32s{x}) << n));
}

// Count of left shifts that bring a positive 16-bit value to 16384 or above; 0 for 0.
constexpr int postNorm16(Kvo32s v) {
    return v <= 0 ? 0 : norm32_pos(static_cast<Kvo32u>(v)) - 16;
}

// Truncated product of a 32-bit double-precision value by a 16-bit one, doubled and saturated
// after each of its two terms: 2 (hi(x) d) + 2 ((lo(x) d) >> 15).
constexpr Kvo32s postMpy32x16(Kvo32s x, Kvo16s d) {
    Kvo32s s = sat32(2 * (Kvo64s{hi(x)} * d));
    return sat32(Kvo64s{s} + 2 * ((Kvo32s{lo(x)} * d) >> 15));
}

// Backward lag search: for lag from lower to upper (inclusive), the 32-bit sum of
// src[n] src[n - lag] over n < len, wrapping; a lag replaces the best only when its sum is
// strictly greater, so the lowest lag wins ties.  *pMax is double32 of the best sum and
// *pLag its lag; lower above upper gives 0x80000000 and lag 0.
void postLagMaxInv(const Kvo16s* src, int len, int lower, int upper, Kvo32s* pMax, int* pLag);

}  // namespace kvo
