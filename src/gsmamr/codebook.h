// Private pieces of the GSM AMR algebraic codebook (TS 26.090 fixed-point code): mode tables,
// the pulse-position tables of the low-rate modes and the Gray code of the position indices.
// Shared by the search (codebook_search.cpp) and the decoder (codebook_decode.cpp).
#pragma once

#include "kvosc_types.h"

namespace kvo::amr {

inline constexpr int kSubfr = 40;

// Modes the codebook steps accept (4.75 .. 12.2 and the comfort-noise marker).
constexpr bool cbModeValid(KvoSpeechRate m) {
    return m == 0 || m == 1 || m == 3 || m == 6 || m == 7 || m == 8 || m == 11 || m == 12 ||
           m == 25;
}

// 4.75/5.15: tracks of the two pulses by subframe and group (entry g*8 + sf*2 and + 1).
inline constexpr Kvo16s kStartPos[16] = {0, 2, 0, 3, 0, 2, 0, 3, 1, 3, 2, 4, 1, 4, 1, 4};
// 4.75/5.15: nonzero where the first pulse's track belongs to group 1.
inline constexpr Kvo16s kTrackTable[20] = {0, 1, 0, 1,  -1, 0, -1, 1,  0, 1,
                                           0, 1, 0, -1, 1,  0, 1,  -1, 0, 1};
// 5.90: track of the first and of the second pulse for each of the 8 combinations.
inline constexpr Kvo16s kStartPos1R59[8] = {1, 1, 1, 1, 3, 3, 3, 3};
inline constexpr Kvo16s kStartPos2R59[8] = {0, 1, 2, 4, 0, 1, 2, 4};
// 6.70: the 12 track triples.
inline constexpr Kvo16s kStartPosR67[3][12] = {{0, 2, 1, 0, 4, 1, 0, 2, 3, 0, 4, 3},
                                               {1, 0, 2, 1, 0, 4, 3, 0, 2, 3, 0, 4},
                                               {2, 1, 0, 4, 1, 0, 2, 3, 0, 4, 3, 0}};
// 7.40/7.95: the 8 track quadruples.
inline constexpr Kvo16s kStartPosR74[4][8] = {{0, 3, 2, 1, 0, 4, 2, 1},
                                              {1, 0, 3, 2, 1, 0, 4, 2},
                                              {2, 1, 0, 3, 2, 1, 0, 4},
                                              {3, 2, 1, 0, 4, 2, 1, 0}};
// 3-bit Gray code of a position index and its inverse.
inline constexpr Kvo16s kGray[8] = {0, 1, 3, 2, 6, 4, 5, 7};
inline constexpr Kvo16s kDgray[8] = {0, 1, 3, 2, 5, 6, 4, 7};

// Number of index words each mode writes.
constexpr int cbIndexWords(KvoSpeechRate m) {
    return m == 11 ? 7 : ((m == 12 || m == 25) ? 10 : 2);
}

// Decoder core (no argument checks): index words to the 40-sample code vector.
void fixedCodebookDecode(const Kvo16s* idx, Kvo16s* code, int subframe, KvoSpeechRate mode);

}  // namespace kvo::amr
