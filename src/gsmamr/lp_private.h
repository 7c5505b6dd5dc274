// Private workers of the GSM AMR (TS 26.090) LP analysis steps.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// True for the rate codes the GSM AMR steps accept: 0, 1, 3, 6, 7, 8, 11, 12, 25.
bool gsmamrModeValid(KvoSpeechRate mode);

// Adaptive-codebook gain of a 40-sample subframe (target x, filtered
// adaptive vector y): gain Q14 (0 .. 19661) and the coefficients yy, 15 -
// exp(yy), xy, 15 - exp(xy).  Energy scaling starts when the saturating sum
// 1 + 2 E overflows (E >= 0x40000000), correlation scaling when any partial
// sum 1 + 2 C overflows; both then use y >> 2.  A 12.2 kbit/s caller clears
// the two low bits of the gain itself.
void ownAdaptiveCodebookGain_GSMAMR(const Kvo16s* x, const Kvo16s* y, Kvo16s* pGain,
                                    Kvo16s* pCoeffs);

// The 128-point real FFT of VAD option 2, in place (no argument checks).
void ownFFTFwd_RToPerm_GSMAMR(Kvo16s* x);

}  // namespace kvo
