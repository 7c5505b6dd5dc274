// Private data of the G.723.1 LP and filter steps.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Mean LSF vector of G.723.1 (Q7 grid positions), removed before the prediction.
extern const Kvo16s kG723LsfMean[10];

// Stepped square root of the G.723.1 post filter: the largest even s below
// 32768 with s * s <= x, built from 16384 down to 2 (x at or above 0).
Kvo16s g723StepSqrt_(Kvo32s x);

}  // namespace kvo
