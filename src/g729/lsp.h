// Private workers of the G.729 LSP quantiser and decoders (main body, annexes B
// and E, G.729.1), shared with the floating-point twins and the coder tools.
//
// Data: LSF vectors of 10 Kvo16s, radians in Q13.  The MA history is four
// contiguous rows of 10 (row 0 the newest), each the code vector of one past
// frame after the gap passes and before prediction.  Predictor tables are
// passed as [4][10] (coefficients, Q15), [10] (one minus their sum, Q15) and
// [10] (its inverse, Q12).
//
// Every step follows the reference basic operators: 16-bit adds and subtracts
// saturate, fractional products are doubled and saturated, and multiply-add
// chains saturate after each term.
//
// Names (namespace kvo):
//   ownLspWeights        distance weights of an LSF vector
//   ownLspTarget         MA prediction residual (the search target)
//   ownLspExpand         one gap pass
//   ownLspGetQuant       code vector of an index set, after both gap passes
//   ownLspCompose        quantised LSF from a code vector and the history
//   ownLspStability      ordering and limit pass; returns the warning flags
//   ownLspPushHistory    history shift with a new row 0
//   ownLspFirstStage, ownLspSecondStage   the two codebook searches (and Plain twins)
//   ownRelspwed          two-predictor two-stage search of G.729 and annex E
//   ownMLSearch1, ownMLSearch2   the annex B silence-descriptor searches
//   _kvosLSFDecode_G729E_16s -> kvo::kvosLSFDecode_G729E_16s_
#pragma once

#include "kvosc_types.h"

namespace kvo {

inline constexpr int kLspOrder = 10;
inline constexpr int kLspHalf = 5;
inline constexpr int kLspAges = 4;
// Gaps of the two passes over a code vector (Q13).
inline constexpr Kvo16s kLspGap1 = 10;
inline constexpr Kvo16s kLspGap2 = 5;
// Limits of the stability pass (Q13): lowest LSF, highest LSF, least spacing.
inline constexpr Kvo16s kLsfLowLimit = 40;
inline constexpr Kvo16s kLsfHighLimit = 25681;
inline constexpr Kvo16s kLsfMinGap = 321;
// Stability flags returned by ownLspStability.
inline constexpr int kLsfFlagLow = 1;
inline constexpr int kLsfFlagHigh = 2;

using LspPredictor = Kvo16s[kLspAges][kLspOrder];

// Weights of the LSF distance: 1 where a neighbour pair is wider than 1 rad,
// growing as 1 + 10 (gap - 1)^2 where it is narrower, elements 4 and 5 times
// 1.2, then all normalised so that the largest has its top bit at bit 14.
void ownLspWeights(const Kvo16s* pLSF, Kvo16s* pW);

// r[j] = sat16((hi(L) fgSumInv[j]) >> 12), L = (x[j] << 16) - sum_k 2 h[k][j] fg[k][j]
// saturated after each term.
void ownLspTarget(const Kvo16s* pLSF, const Kvo16s* pHist, const LspPredictor& fg,
                  const Kvo16s* pFgSumInv, Kvo16s* pR);

// One gap pass: for j = 1..9, k = (y[j-1] - y[j] + gap) >> 1; if k > 0 the
// pair moves k apart each way.
void ownLspExpand(Kvo16s* pY, Kvo16s gap);

// y = LSPCode1[first] + LSPCode2[low] (elements 0..4) / LSPCode2[high] (5..9),
// saturated, then the gap passes with 10 and 5.  Indices must be in range.
void ownLspGetQuant(int first, int low, int high, Kvo16s* pOut);

// out[j] = hi(2 y[j] fgSum[j] + sum_k 2 h[k][j] fg[k][j]), saturated per term.
void ownLspCompose(const Kvo16s* pY, const Kvo16s* pHist, const LspPredictor& fg,
                   const Kvo16s* pFgSum, Kvo16s* pOut);

// One ordering sweep, the low limit, the least spacing, the high limit.
// Returns kLsfFlagLow | kLsfFlagHigh as the limits were applied.
int ownLspStability(Kvo16s* pLSF);

// Warning status of a flag set: kvoOk, kvoWarnLsfLow, kvoWarnLsfHigh, kvoWarnLsfLowAndHigh.
KvoStatus ownLspFlagStatus(int flags);

// Rows move one age back, the oldest is dropped, row 0 becomes pRow.
void ownLspPushHistory(Kvo16s* pHist, const Kvo16s* pRow);

// Search of the main quantiser over both predictors (fg, fgSum, fgSumInv
// indexed by predictor): weights, targets, first stage over 128 rows, second
// stage over 32 rows per half, gap passes, predictor choice (1 only when
// strictly better).  pIdx receives predictor, first, low, high index.
void ownRelspwed(const Kvo16s* pLSF, const LspPredictor* fg, const Kvo16s* pHist,
                 const Kvo16s (*fgSum)[kLspOrder], const Kvo16s (*fgSumInv)[kLspOrder],
                 Kvo16s* pIdx);

// First stage of the main quantiser: the LSPCode1 row nearest to the target
// pR by the saturated squared distance (the first of equals).  The Plain twin
// is the ordered scalar form; both give the same index for any input.
int ownLspFirstStage(const Kvo16s* pR);
int ownLspFirstStagePlain(const Kvo16s* pR);

// Second stage: the LSPCode2 rows nearest to pE on elements 0..4 (pLow) and
// 5..9 (pHigh) by the pW-weighted distance.  Weights must lie in 0..32767
// (as ownLspWeights gives them); Plain is the ordered scalar twin.
void ownLspSecondStage(const Kvo16s* pE, const Kvo16s* pW, int* pLow, int* pHigh);
void ownLspSecondStagePlain(const Kvo16s* pE, const Kvo16s* pW, int* pLow, int* pHigh);

// Annex B first stage: the four best (predictor, PtrTab_1 row) pairs by the
// Mp-weighted squared distance of targets pR[2][10].  pPred, pRow receive the
// survivors in order, pDiff their difference vectors (4 x 10).
void ownMLSearch1(const Kvo16s* pR, Kvo16s* pPred, Kvo16s* pRow, Kvo16s* pDiff);

// Annex B second stage: over the four survivors and the 16 PtrTab_2 pairs, the
// weighted distance; returns the winning survivor and writes its pair index.
int ownMLSearch2(const Kvo16s* pDiff, const Kvo16s* pPred, const Kvo16s* pW, Kvo16s* pIdx2);

// Annex E decoder step: code vector to pNewRow, quantised LSF (after the
// stability pass) to pOut, history read only.  Returns the stability flags.
int kvosLSFDecode_G729E_16s_(const Kvo16s* pIdx, const Kvo16s* pHist, Kvo16s* pOut,
                             Kvo16s* pNewRow);

}  // namespace kvo
