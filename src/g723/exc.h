// Private workers and constants of the G.723.1 excitation searches.
//
// Legal C++ names of the private workers (underscore-led in the export
// grammar): a trailing underscore replaces the leading one.
//   _kvosExcitationDelay_G723_16s       -> kvo::kvosExcitationDelay_G723_16s_
//   _kvosPitchPredictor_G723_16s        -> kvo::kvosPitchPredictor_G723_16s_
//   _kvosAdaptiveCodebookDecode_G723_16s -> kvo::kvosAdaptiveCodebookDecode_G723_16s_
// None of them checks its arguments.
#pragma once

#include "kvosc_types.h"

namespace kvo {

namespace g723 {
constexpr int kSubframe = 60;
constexpr int kHistory = 145;    // excitation history, newest sample last
constexpr int kDelayed = 64;     // delayed excitation vector: 60 samples + 4 taps
constexpr int kRowLen = 20;      // gain row: 5 taps, 5 energies, 10 crosses
constexpr int kHighRows = 85;    // 6.3 kbit/s table for short lags
constexpr int kLowRows = 170;    // the other table
constexpr int kMatrixLen = 416;  // ACELP correlation matrix

// Multipulse amplitude levels.
inline constexpr Kvo16s GainDBLvls[24] = {1,   2,   3,    4,    6,    9,    13,   18,
                                          26,  38,  55,   80,   115,  166,  240,  348,
                                          502, 726, 1050, 1517, 2193, 3170, 4582, 6623};
// Pulses of the multipulse code by subframe.
inline constexpr Kvo16s PulsesPerSbfr[4] = {6, 5, 6, 5};

// CombTbl[r][j] = C(29 - j, 5 - r), 0 where 29 - j < 5 - r: the combinatorial
// position code of the multipulse search.
struct CombTable {
    Kvo32s v[6][30];
};
constexpr Kvo32s binomial(int n, int k) {
    if (k < 0 || n < k) return 0;
    Kvo64s r = 1;
    for (int i = 1; i <= k; ++i) r = r * (n - k + i) / i;
    return static_cast<Kvo32s>(r);
}
constexpr CombTable make_comb_table() {
    CombTable t{};
    for (int r = 0; r < 6; ++r)
        for (int j = 0; j < 30; ++j) t.v[r][j] = binomial(29 - j, 5 - r);
    return t;
}
inline constexpr CombTable CombTbl = make_comb_table();
}  // namespace g723

// Delayed excitation for lag L (L >= 1): e[0] = h[143 - L], e[1] = h[144 - L],
// e[k + 2] = h[145 - L + (k mod L)] for k < 62, h the 145-sample history.
// Lags above 143 read up to two samples before pHistory.
void kvosExcitationDelay_G723_16s_(const Kvo16s* pHistory, int lag, Kvo16s* pDst);

// The five filtered delayed vectors of one lag candidate: pDst[t] is the
// delayed vector from e[t] on, filtered by the impulse response h (Q15
// rounding, saturated); the last is the plain convolution, the others follow
// by the one-step recursion.
void kvosPitchPredictor_G723_16s_(const Kvo16s* pDelayed, const Kvo16s* pImpulse,
                                  Kvo16s (*pDst)[g723::kSubframe]);

// Five-tap adaptive vector of 60 samples from the delayed vector and a gain row.
void kvosAdaptiveCodebookDecode_G723_16s_(const Kvo16s* pDelayed, const Kvo16s* pRow, Kvo16s* pDst);

}  // namespace kvo
