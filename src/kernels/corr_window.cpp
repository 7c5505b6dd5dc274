// Windowed autocorrelation of one analysis frame for the G.723.1 and G.729
// Annex B LP analyses.
//
// - kvosAutoCorr_G723_16s: 180 samples block-normalised and brought three
//   bits down (headroom for the 180-term energy), Hamming-windowed in Q15,
//   then correlated with white-noise correction and lag window.  The scale
//   reported combines the block normalisation and the energy norm.
// - kvosAutoCorr_G729B: 240 samples windowed in Q15 by the G.729 analysis
//   window, then correlated; while the energy overflows, the windowed signal
//   is shifted right by 2 (arithmetic shift of each sample) and the exponent
//   grows by 4.  The reported exponent is 1 (the doubling) plus 4 per retry,
//   less the norm of the energy.
// Scratch vectors live on the stack.
#include "frame/impl.h"
#include "kernels/corr.h"
#include "kernels/kernel_tables.h"
#include "numeric/fixed.h"
#include "numeric/numeric_tables.h"

namespace kvo::impl {

KvoStatus kvosAutoCorr_G723_16s(const Kvo16s* pSrc, Kvo16s* pScale, Kvo16s* pDst) {
    constexpr Kvo32s kLen = 180;
    if (!pSrc || !pScale || !pDst) return kvoErrNullPtr;
    alignas(16) Kvo16s w[kLen];
    Kvo32s s = 3;  // extra right shift after the block normalisation
    kvosAutoScale_16s(pSrc, w, kLen, &s);
    kvosMul_NR_16s_ISfs(tab::HammingWindowTbl_G723, w, kLen, 15);
    Kvo32s n = 0;
    kvosAutoCorr_NormE_G723_16s(w, pDst, &n);
    *pScale = pDst[0] == 0 ? Kvo16s{40} : static_cast<Kvo16s>(n + 2 * s);
    return kvoOk;
}

KvoStatus kvosAutoCorr_G729B(const Kvo16s* pSrc, Kvo16s* pNorm, Kvo32s* pDst) {
    constexpr Kvo32s kLen = 240, kLags = 13;
    if (!pSrc || !pNorm || !pDst) return kvoErrNullPtr;
    alignas(16) Kvo16s w[kLen];
    kvosMul_NR_16s_Sfs(pSrc, tab::hamwindow, w, kLen, 15);
    Kvo32s exp = 1;
    Kvo32s n = 0;
    // Each retry divides the energy by about 16; a signal of 0 and -1 samples
    // cannot overflow, so the loop ends.
    while (kvosAutoCorr_NormE_16s32s(w, kLen, pDst, kLags, &n) == kvoWarnOverflow) {
        for (Kvo32s i = 0; i < kLen; ++i) w[i] = static_cast<Kvo16s>(w[i] >> 2);
        exp += 4;
    }
    *pNorm = static_cast<Kvo16s>(exp - n);
    return kvoOk;
}

}  // namespace kvo::impl
