// Private workers of the G.729 gain quantisation shared by the encoders and decoders of both
// rates.  Data: gains Q14 (pitch) and Q1 (code), predicted gain gcode0 with its exponent from
// ownGainPredict, codebook code parts Q13 (8 kbit/s) or Q14 (6.4 kbit/s).  No argument checks.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Quantised code gain: the doubled product of halfSum (half the sum of the two code parts, Q12
// at 8 kbit/s, Q13 at 6.4 kbit/s) with gcode0, shifted left by shift - exp with 32-bit
// saturation (right for a negative count), high half.  shift is 4 at 8 kbit/s and 3 at 6.4.
Kvo16s g729CodeGain(Kvo16s halfSum, Kvo16s gcode0, int exp, int shift);

// Joint quantiser at 6.4 kbit/s on given correlations: pCode the fixed vector (40, Q13), pCorr
// and pExp the five terms g[i] 2^-e[i] of the distance g0 gp^2 + g1 gp + g2 gc^2 + g3 gc +
// g4 gp gc; writes the gains (Q14, Q1), the raw stage indices and the predictor update.
void Qua_gain_6k(const Kvo16s* pCode, const Kvo16s* pCorr, const Kvo16s* pExp, Kvo16s* pDstQGain,
                 Kvo16s* pDstQGainIndex, Kvo16s tameFlag, Kvo16s* pSrcDstEnergyErr);

}  // namespace kvo
