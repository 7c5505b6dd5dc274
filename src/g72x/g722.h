// G.722 sub-band ADPCM: internal pieces shared by the coder, the QMF and the
// concealment helpers, and reachable by the unit tests.
#pragma once

#include <cstdint>

#include "kvosc_types.h"

namespace kvo {

// The record inside the caller's block: first 16-byte boundary at or after p.
inline KvoG722State* g722State(void* p) {
    auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<KvoG722State*>(a + ((0 - a) & 15u));
}
inline const KvoG722State* g722State(const void* p) {
    auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<const KvoG722State*>(a + ((0 - a) & 15u));
}

inline constexpr Kvo32s kG722StateBytes = static_cast<Kvo32s>(sizeof(KvoG722State)) + 16;

// Start state of encoder and decoder records.
void g722StateInit(KvoG722State* st);

// QMF coefficients (the Recommendation's 24 values doubled), by delay word:
// even words carry the even branch, odd words the odd branch.
inline constexpr Kvo16s kG722QmfCoef[24] = {6,    -22,   -22,  106,  24,   -312, 64,    724,
                                            -420, -1610, 1902, 7752, 7752, 1902, -1610, -420,
                                            724,  64,    -312, 24,   106,  -22,  -22,   6};

// Plain per-pair QMF loops: the model the block-vector forms are checked against.
void g722QmfAnalysisScalar(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay);
void g722QmfSynthesisScalar(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay);
// Block forms used by the exports (SSE2).
void g722QmfAnalysis(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay);
void g722QmfSynthesis(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay);

// Low-band 6-bit quantizer: code IL of difference el at scale factor detl.
int g722QuantL(int el, int detl);
// High-band 2-bit quantizer: code IH of difference eh at scale factor deth.
int g722QuantH(int eh, int deth);

}  // namespace kvo
