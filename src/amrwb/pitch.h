// Internal interface of the AMR-WB pitch steps, shared with the tests and the fuzz target.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Lag limits of a mode: smallest and largest lag, the starts of the half-sample and the
// integer-only ranges of the absolute index, and whether the mode uses the 8/5-bit indices
// (5, 9, 25).
struct LagLimits {
    int min, max, half, integer;
    bool lowRate;
};

// Limits of a bit-rate code with the AMR-WB+ lag adjustment adj (used by modes 26..32 only);
// false for a code outside 5, 9, 13, 15, 16, 18, 19, 20, 21, 25..32.
bool amrwbLagLimits(KvoSpeechRate mode, int adj, LagLimits* l);

// Adaptive vector of 65 samples written in place at exc from exc[-lag] at fraction frac
// (0..3): the 32-tap interpolator, (sum + 8192) >> 14 saturated.  Reads lag + 16 samples
// before exc.
void amrwbPredLt4(Kvo16s* exc, int lag, int frac);

}  // namespace kvo
