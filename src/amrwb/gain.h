// Internal interface of the AMR-WB gain steps, shared with the tests.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Predicted code gain G * 2^(E - 14) (G in 16384..32767) from the past quantised energies
// (Q10) and, when withEnergy, the doubled energy plus 1 of the Q9 code vector.
void amrwbPredictGain(const Kvo16s* past, Kvo32s codeEnergy, bool withEnergy, Kvo16s* G, int* E);
// The code gain of a Q11 correction factor c in Q16: 2 c G shifted by E - 10, saturated.
Kvo32s amrwbScaleCodeGain(Kvo16s G, int E, Kvo16s c);

}  // namespace kvo
