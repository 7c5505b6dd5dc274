// Internal helpers of the G.728 family (block floating point).
#pragma once

#include "kvosc_types.h"

namespace kvo {

// G.728 rounding to 16 bits: 32767 at or above 0x7FFF8000, otherwise
// (v + 32768) >> 16; no test at the low end.
constexpr Kvo16s g728_round16(Kvo32s v) {
    return v >= 0x7FFF8000 ? Kvo16s{32767}
                           : static_cast<Kvo16s>((static_cast<Kvo64s>(v) + 32768) >> 16);
}

// Normalises a 32-bit value to [0x40000000, 0x7FFFFFFF] (positive) or
// [-0x80000000, -0x40000000) (negative) and returns the count of doublings;
// 0 gives count 31 and stays 0.
int g728_norm30(Kvo32s* x);

// Four-state trellis-coded quantisation of one 5-sample vector (40 kbit/s
// mode) with the decision levels xk (4 subsets of 16, ascending, last 32767)
// and reconstruction levels yk (16 x 4, column c for subset c) given by the
// caller.  pMem: 20 reconstructions, newest last; pQuant: 8 levels, newest
// last; pState: trellis state 0..3.  No argument checks.
KvoStatus g728TcqSearch(const Kvo16s* pSrc, const Kvo16s* pCoef, Kvo8u* pDst, Kvo16s* pMem,
                        Kvo16s* pQuant, Kvo32s* pState, KvoG728ScaledValue invGain,
                        KvoG728ScaledValue gain, const Kvo16s (*xk)[16], const Kvo16s (*yk)[4]);

}  // namespace kvo
