// GSM 06.10 full-rate (RPE-LTP) steps: private kernels behind the exports.
//
// The exports test their arguments and call these; the SSE2 forms are tested
// against the plain loops by memcmp.
#pragma once

#include "numeric/cpu.h"

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

// Short-term lattices (8 coefficients; 8 and 9 words of memory) and the
// deemphasis: plain loops and AVX2 builds.
void analysisLatticeScalar(const Kvo16s* rc, Kvo16s* x, Kvo32s len, Kvo16s* mem);
void synthesisLatticeScalar(const Kvo16s* rc, const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem);
void deemphasisScalar(Kvo16s* x, Kvo32s len, Kvo16s* mem);
void analysisLatticeAvx2(const Kvo16s* rc, Kvo16s* x, Kvo32s len, Kvo16s* mem);
void synthesisLatticeAvx2(const Kvo16s* rc, const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem);
void deemphasisAvx2(Kvo16s* x, Kvo32s len, Kvo16s* mem);
void preemphasisScalar(const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem);
void preemphasisAvx2(const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem);
// 40-sample lag search, AVX2, for sums known to stay below 2^31.
void lagMax40Avx2(const Kvo16s* x, const Kvo16s* y, Kvo32s maxLag, Kvo32s* pMax, Kvo32s* pLag);

inline bool hasAvx2() { return cpuHasAvx2(); }

}  // namespace kvo::gsmfr
