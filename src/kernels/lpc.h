// Private workers of the LPC recursions and spectral conversions (written in
// the saturating basic operations of numeric/fixed.h).
//
// The 32-bit "double precision" values of the G.729 arithmetic are held as one
// Kvo32s whose bit 0 is clear (hi = x >> 16, lo = (x >> 1) & 0x7fff, see
// fixed.h); dp() is the recomposition (hi << 16) + (lo << 1).
//
// Names of private workers (namespace kvo):
//   ownLPCToLSP_G729_16s        root search of the G.729 / GSM AMR LSP conversion
//   ownLSFToLSP_16s             cosine-table lookup with linear interpolation
//   _kvosLPCToLSF_Norm_G723_16s -> kvo::kvosLPCToLSF_Norm_G723_16s_
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo {

// ---- private workers -------------------------------------------------------

// Root search of the LSP conversion: the roots of the symmetric and
// antisymmetric polynomials of the order-10 filter pLPC (Q12, 11 values),
// found on a cosine grid by sign change, bisection and linear interpolation,
// and stored in pLSP (Q15) in decreasing order.  First a walk two grid points
// at a time; if that misses roots, the walk one point at a time.
//   gridSize   60 or 50 (grid points beyond the first)
//   bisections 4 (G.729, GSM AMR) or 2 (G.729 annex A)
//   tableIndex 0: the 60-interval grid, 1: the 50-interval grid
//   coefShift  12: G.729 (Q11 polynomials, Q10 with a coarser evaluation if
//              a coefficient overflows); 13: GSM AMR (Q10 polynomials)
// Returns the number of roots found (10 on success); pLSP is fully written only
// then.
int ownLPCToLSP_G729_16s(int gridSize, int bisections, int tableIndex, const Kvo16s* pLPC,
                         Kvo16s* pLSP, int coefShift);

// Ten LSF-to-LSP lookups: i = x >> 8, out = cos15[i] + (((x & 255) pSlope[i]) >> shift),
// saturated.  Shift 12 (G.729, slope_cos) holds the index at 63; shift 8 (GSM
// AMR, slope_cos15) has no such clamp and continues the cosine past pi.  A
// negative value returns kvoErrNegativeFreq with the earlier outputs written.
KvoStatus ownLSFToLSP_16s(const Kvo16s* pSlope, int shift, const Kvo16s* pIn, Kvo16s* pOut);

// The two walks of the searches above, one at a time, for tests of their
// agreement: step 2 (coarse) or 1 for the LSP search, step 4 (coarse) or 1
// for the G.723.1 scan.  Same arguments and results as the callers.
int lspRootWalk_(int step, int gridSize, int bisections, int tableIndex, const Kvo16s* pLPC,
                 Kvo16s* pLSP, int coefShift);
int g723LsfScan_(int step, const Kvo16s* pLPC, Kvo16s* pLSF);

// G.723.1 LPC (Q13, 10 values) to LSF (Q7 index of the 256-step grid).  Returns
// 0 with ten roots in pLSF, 1 otherwise (pLSF then holds partial results).
int kvosLPCToLSF_Norm_G723_16s_(const Kvo16s* pLPC, Kvo16s* pLSF);

}  // namespace kvo
