// Internal interface of the AMR-WB algebraic codebook (also used by the tests and the fuzz
// target): mode to pulse layout, the pulse indexing of the index words, and the search.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Pulse layout of a mode: number of pulses of the subframe (P2 is the 2-track design).
enum class CbLayout { Invalid, P2, P4, P6, P8, P10, P12, P16, P18, P24 };

// Layout of a bit-rate code (5, 9, 13, 15, 16, 18, 19, 20, 21, 22, 25 .. 32); Invalid otherwise.
CbLayout cbLayout(KvoSpeechRate mode);
// Number of index words of a layout (1, 4 or 8).
int cbWordCount(CbLayout l);
// Index words from the per-track entry lists (4 rows of 6, place + 16 for a negative pulse,
// in the order found); 4-track layouts only.
void cbEncodeWords(CbLayout l, const int* ind, Kvo16s* W);
// Code vector of 64 from the index words: +-512 per pulse, coinciding pulses add.
void cbDecodeWords(CbLayout l, const Kvo16s* W, Kvo16s* code);
// The search of the mode (no argument checks).
void cbSearch(CbLayout l, KvoSpeechRate mode, const Kvo16s* x, const Kvo16s* cn, const Kvo16s* h,
              Kvo16s* code, Kvo16s* y, Kvo16s* W);

}  // namespace kvo
