// G.729 Annex E hybrid window (fixed point): the autocorrelation of lags 0 to 30 for the
// backward-adaptive LP analysis of order 30.  The 145 input samples (synthesised speech, Q0,
// oldest first) are windowed by the Q15 table `hw` (product >> 15, no rounding); the 80
// samples that enter the recursive part at this call are correlated (30 older samples as
// lagged partners) and added to the decayed state (decay 10368, 0.31640625 in Q15); the
// 35 newest samples form the non-recursive part.
//
// Reference arithmetic (saturating basic operations, in this order):
//  - recursive sum: a doubled multiply-accumulate saturating at every step, then halved, so
//    it lies in [-2^30, 2^30);
//  - state: the halved sum plus the doubled 32x16 product of the old state and the decay
//    (high half times decay plus the low 15 bits times decay >> 15), saturating;
//  - output: the doubled state (saturated) accumulates the non-recursive doubled products,
//    saturating at every step, then halved: at most 0x3FFFFFFF.
#include <cstring>

#include "hybrid_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr int kLen = 145;
constexpr int kLags = 31;
constexpr int kRecStart = 30;  // first sample entering the recursion
constexpr int kRecLen = 80;
constexpr int kNonRecStart = 110;
constexpr int kNonRecLen = 35;
constexpr Kvo32s kDecay = 10368;

// Doubled multiply-accumulate over len samples at lag k, saturating after each step.
inline Kvo32s macChain(Kvo32s acc, const Kvo16s* w, int len, int k) {
    for (int i = 0; i < len; ++i) acc = sat32(Kvo64s{acc} + 2 * (Kvo32s{w[i]} * w[i - k]));
    return acc;
}

}  // namespace

namespace impl {

KvoStatus kvosWinHybridGetStateSize_G729E_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoG729EHybridState));
    return kvoOk;
}

KvoStatus kvosWinHybridInit_G729E_16s(KvoG729EHybridState* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    return kvoOk;
}

KvoStatus kvosWinHybrid_G729E_16s32s(const Kvo16s* pSrc, Kvo32s* pDst,
                                     KvoG729EHybridState* pState) {
    if (!pSrc || !pDst || !pState) return kvoErrNullPtr;
    alignas(16) Kvo16s w[kLen];
    for (int i = 0; i < kLen; ++i) w[i] = static_cast<Kvo16s>((Kvo32s{pSrc[i]} * tab::hw[i]) >> 15);
    for (int k = 0; k < kLags; ++k) {
        const Kvo32s r1 = macChain(0, w + kRecStart, kRecLen, k) >> 1;
        const Kvo32s s = pState->acc[k];
        const Kvo32s h = s >> 16;
        const Kvo32s l = (s >> 1) & 0x7fff;
        const Kvo32s m = 2 * (h * kDecay + ((l * kDecay) >> 15));
        pState->acc[k] = sat32(Kvo64s{r1} + m);
        const Kvo32s acc = sat32(Kvo64s{pState->acc[k]} * 2);
        pDst[k] = macChain(acc, w + kNonRecStart, kNonRecLen, k) >> 1;
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
