// GSM 06.10 full-rate (RPE-LTP) steps: private kernels behind the exports.
//
// The exports test their arguments and call these; the SSE2 forms are tested
// against the plain loops by memcmp.
#pragma once

#include "kvosc_types.h"

namespace kvo::gsmfr {

// Largest positive correlation over lags maxLag .. 0 (ties keep the largest
// lag; none positive gives max 0 and lag maxLag).  Correlations are the exact
// sums saturated to 32 bits.
void crossCorrLagMax(const Kvo16s* x, const Kvo16s* y, Kvo32s len, Kvo32s maxLag, Kvo32s* pMax,
                     Kvo32s* pLag);
void crossCorrLagMaxScalar(const Kvo16s* x, const Kvo16s* y, Kvo32s len, Kvo32s maxLag,
                           Kvo32s* pMax, Kvo32s* pLag);

// RPE weighting filter over len outputs (5 samples readable each side).
void weighting(const Kvo16s* x, Kvo16s* y, Kvo32s len);
void weightingScalar(const Kvo16s* x, Kvo16s* y, Kvo32s len);

}  // namespace kvo::gsmfr
