// Private workers of the GSM AMR (TS 26.090) LSF quantisers, shared by the
// LSP quantiser and decoder and by the SID parameter computation of DTX.
//
// Formats: LSFs are normalised frequencies in Q15 (16384 = 4000 Hz, the
// Nyquist frequency), LSPs cosines in Q15, residuals in LSF units.  Every
// 16-bit sum saturates as in the standard's basic operations.
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo {

// LSF means of 12.2 kbit/s and of the other modes, the MA prediction factors
// of the other modes (Q15), and the 12.2 prediction factor (0.65).
extern const Kvo16s TableMeanLsf1[10];
extern const Kvo16s TableMeanLsf2[10];
extern const Kvo16s TablePredFac[10];
constexpr Kvo16s kPredFacMR122 = 21299;
constexpr Kvo16s kLsfGap = 205;


// Weights of the LSF error from the distances to the neighbours (Q13 after
// the final saturating left shift by 3).
void ownLsfWeight_GSMAMR(const Kvo16s* lsf, Kvo16s* wf);

// Raises the first n entries so that each lies at least gap above the last.
void ownReorderLsf_GSMAMR(Kvo16s* lsf, Kvo16s gap, int n);

// Weighted split search: over `count` rows of dim entries (every second row
// of the table when step2 is set), error = saturating sum of doubled squares
// of ((r - row) * w) >> 15; the first row of the smallest error wins.  The
// winning row overwrites r; the step index is returned.
int ownQuantSubVeq_GSMAMR(Kvo16s* r, const Kvo16s* table, const Kvo16s* w, int dim, int count,
                          bool step2);

// Error of one candidate as above (dim entries), exposed for the 12.2 signed split.
Kvo32s ownSubVeqError_GSMAMR(const Kvo16s* r, const Kvo16s* row, const Kvo16s* w, int dim,
                             int sign);

}  // namespace kvo
