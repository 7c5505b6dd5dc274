// Private workers of the direct-form LP filters: synthesis 1/A(z) and residual A(z) of any
// order, in the saturating form of the published fixed-point coders and in the wrapping form
// for data known to stay in range.
//
// Data: coefficients Q12 (a[0] = 4096 is 1.0), samples Q0 in 16 bits.  The saturating form is
// the basic-operation chain of the reference coders: every product is doubled (sat32(2ab)),
// every partial sum is saturated to 32 bits in tap order (a[0] x[n] first, then k = 1, 2 ...),
// the sum is shifted left by 15 - scale with saturation and rounded to its high half.  Any
// saturation on the way raises the overflow flag.  The fast paths compute the plain sum when a
// bound on the magnitudes proves that no step of that chain could have saturated, and fall back
// to the ordered chain otherwise, so both give the same bits.
//
// History layout of the synthesis forms: mem[order - j] is the output j steps before y[0]
// (oldest first).  The residual forms read order samples before x[0].
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo {

// sat32(2ab): only -32768 * -32768 saturates.
inline Kvo32s chain_mult(Kvo16s a, Kvo16s b, bool& ovf) {
    Kvo32s p = Kvo32s{a} * b;
    if (p == 0x40000000) {
        ovf = true;
        return INT32_MAX;
    }
    return p * 2;
}
inline Kvo32s chain_add(Kvo32s s, Kvo32s p, bool& ovf) {
    Kvo64s r = Kvo64s{s} + p;
    if (r > INT32_MAX || r < INT32_MIN) ovf = true;
    return sat32(r);
}
inline Kvo32s chain_sub(Kvo32s s, Kvo32s p, bool& ovf) {
    Kvo64s r = Kvo64s{s} - p;
    if (r > INT32_MAX || r < INT32_MIN) ovf = true;
    return sat32(r);
}
// Saturating left shift by sh, then round to the high half (round16, whose own add saturates
// at 0x7fff8000 and above).
inline Kvo16s chain_finish(Kvo32s s, int sh, bool& ovf) {
    if (s > (INT32_MAX >> sh) || s < (INT32_MIN >> sh)) ovf = true;
    Kvo32s t = ShiftL_32s(s, sh);
    if (t >= 0x7fff8000) ovf = true;
    return round16(t);
}

// Saturating synthesis, scale 12 or 13; returns the overflow flag.  mem must hold order values.
// x and y may be the same vector.
bool synth_sat(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len, const Kvo16s* mem,
               int scale);
// The same chain sample by sample with no fast path (the twin the fast path is tested against).
bool synth_sat_ordered(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len,
                       const Kvo16s* mem, int scale);
// Wrapping synthesis: 32-bit sum with the rounding constant, shifted, low 16 bits kept.
// mem may be null for zero history.
void synth_wrap(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len, const Kvo16s* mem,
                int scale);
// The same by the plain tap loop for any order (twin of the order-10 vector form).
void synth_wrap_plain(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len,
                      const Kvo16s* mem, int scale);
// Zero-state impulse response of 1/A(z), order 10: y[0] = a[0], then the
// wrapping recursion with no input.  Plain is the tap-loop twin.
void zero_state_response(const Kvo16s* a, Kvo16s* y, int len, int scale);
void zero_state_response_plain(const Kvo16s* a, Kvo16s* y, int len, int scale);

// G.729 pre/post-processing high-pass (second order, double precision
// feedback) over x in place at scale 12 or 13, the record updated.  Plain is
// the general twin.
void highpass_g729(KvoHighPassState_G729& st, Kvo16s* x, int len, int scale);
void highpass_g729_plain(KvoHighPassState_G729& st, Kvo16s* x, int len, int scale);

// Saturating residual at scale 12: y[n] from x[n-order .. n].  y must not overlap x.
void residual_sat(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len);
void residual_sat_ordered(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len);
// Wrapping residual at scale 12, low 16 bits kept.
void residual_wrap(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len);

}  // namespace kvo
