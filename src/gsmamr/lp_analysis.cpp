// GSM AMR (TS 26.090) LP analysis steps: windowed autocorrelation with the
// AMR windows and lag window, the order-10 recursion, the conversions between
// LP coefficients and LSPs, LSP interpolation, preemphasis and the
// adaptive-codebook gain.
//
// Formats: speech Q0, windows Q15, autocorrelations normalised 32-bit values
// (lag 0 filling the word), LP coefficients Q12 with a[0] = 4096, LSPs Q15,
// gains Q14.
//
// The LP-to-LSP root search builds the sum and difference polynomials at 1024
// with the coefficients shifted right by 2 (saturated to 16 bits) and never
// tries the 2048 form of G.729; the Chebyshev series then runs in Q24.
#include "gsmamr/gsmamr_lp_tables.h"
#include "gsmamr/lp_private.h"
#include "impl.h"
#include "numeric/numeric_tables.h"
#include "kernels/corr.h"
#include "kernels/lpc.h"

namespace kvo {

bool gsmamrModeValid(KvoSpeechRate mode) {
    switch (mode) {
        case 0:
        case 1:
        case 3:
        case 6:
        case 7:
        case 8:
        case 11:
        case 12:
        case 25:
            return true;
        default:
            return false;
    }
}

namespace {

// Saturating accumulation s = start + sum 2 a[i] b[i] of the basic multiply-
// add; *pOverflow is set when a partial sum saturated.
Kvo32s macSat(Kvo32s start, const Kvo16s* a, const Kvo16s* b, int n, bool* pOverflow) {
    Kvo64s s = start;
    bool ovf = false;
    for (int i = 0; i < n; ++i) {
        s += 2 * (Kvo64s{a[i]} * b[i]);
        if (s > INT32_MAX || s < INT32_MIN) {
            ovf = true;
            s = sat32(s);
        }
    }
    *pOverflow = ovf;
    return static_cast<Kvo32s>(s);
}

// One window of the autocorrelation: 11 values.
void autoCorrWindow(const Kvo16s* x, const Kvo16s* win, Kvo32s* r) {
    Kvo16s w[240];
    for (int i = 0; i < 240; ++i) w[i] = sat16((Kvo32s{x[i]} * win[i] + 16384) >> 15);
    Kvo64s e = corrDotExact(w, w, 240);
    while (e > 0x3fffffff) {
        for (int i = 0; i < 240; ++i) w[i] = static_cast<Kvo16s>(w[i] >> 2);
        e = corrDotExact(w, w, 240);
    }
    const Kvo32s l = static_cast<Kvo32s>(2 * e + 1);
    const int n = norm32(l);
    r[0] = shl_wrap(l, n);
    kvosAutoCorr_G729_16s32s_Sfs_(w, 240, r + 1, 10, n + 1, 1);
    impl::kvosLagWindow_G729_32s_I(r + 1, 10);
}

}  // namespace

void ownAdaptiveCodebookGain_GSMAMR(const Kvo16s* x, const Kvo16s* y, Kvo16s* pGain,
                                    Kvo16s* pCoeffs) {
    Kvo16s ys[40];
    for (int i = 0; i < 40; ++i) ys[i] = static_cast<Kvo16s>(y[i] >> 2);

    // Energy of the filtered vector; on overflow of the saturating sum, of
    // the vector scaled down by 2 bits.
    bool ovf;
    Kvo32s s = macSat(1, y, y, 40, &ovf);
    int expYY = 0;
    if (ovf) {
        s = macSat(1, ys, ys, 40, &ovf);
        expYY = -4;
    }
    int n = norm32(s);
    const Kvo16s yy = round16(shl_wrap(s, n));
    expYY += n;

    // Correlation with the target; every partial sum is watched.
    s = macSat(1, x, y, 40, &ovf);
    int expXY = 0;
    if (ovf) {
        s = macSat(1, x, ys, 40, &ovf);
        expXY = -2;
    }
    n = norm32(s);
    const Kvo16s xy = round16(shl_wrap(s, n));
    expXY += n;

    pCoeffs[0] = yy;
    pCoeffs[1] = static_cast<Kvo16s>(15 - expYY);
    pCoeffs[2] = xy;
    pCoeffs[3] = static_cast<Kvo16s>(15 - expXY);

    if (xy < 4) {
        *pGain = 0;
        return;
    }
    // xy / 2 < yy always (yy is normalised), so the quotient fits Q15.
    Kvo32s g = yy > 0 ? ((Kvo32s{xy} >> 1) << 15) / yy : 32767;
    const int sh = expXY - expYY;
    if (sh >= 0)
        g >>= (sh > 15 ? 15 : sh);
    else
        g = sat16(ShiftLSat_32s(g, -sh));
    *pGain = static_cast<Kvo16s>(g > 19661 ? 19661 : g);
}

namespace impl {

KvoStatus kvosAutoCorr_GSMAMR_16s32s(const Kvo16s* pSrc, Kvo32s* pDst, KvoSpeechRate mode) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (!gsmamrModeValid(mode)) return kvoErrRange;
    if (mode == kvoRate12200) {
        autoCorrWindow(pSrc, tab::win160_80, pDst);
        autoCorrWindow(pSrc, tab::win232_8, pDst + 11);
    } else {
        autoCorrWindow(pSrc, tab::hamwindow, pDst);
    }
    return kvoOk;
}

KvoStatus kvosLevinsonDurbin_GSMAMR_32s16s(const Kvo32s* pSrc, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    Kvo16s rc[10];
    Kvo16s err;
    return kvosLevinsonDurbin_G729_32s16s(pSrc, 10, pDst, rc, &err);
}

KvoStatus kvosLPCToLSP_GSMAMR_16s(const Kvo16s* pLpc, const Kvo16s* pPrevLsp, Kvo16s* pLsp) {
    if (!pLpc || !pPrevLsp || !pLsp) return kvoErrNullPtr;
    Kvo16s lsp[10];
    const Kvo16s* src = ownLPCToLSP_G729_16s(60, 4, 0, pLpc, lsp, 13) == 10 ? lsp : pPrevLsp;
    for (int i = 0; i < 10; ++i) pLsp[i] = src[i];
    return kvoOk;
}

KvoStatus kvosLSPToLPC_GSMAMR_16s(const Kvo16s* pLsp, Kvo16s* pLpc) {
    if (!pLsp || !pLpc) return kvoErrNullPtr;
    return kvosLSPToLPC_G729_16s(pLsp, pLpc);
}

KvoStatus kvosInterpolate_GSMAMR_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                     Kvo32s len) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo32s b = pSrc2[i];
        pDst[i] = static_cast<Kvo16s>((pSrc1[i] >> 2) + b - (b >> 2));
    }
    return kvoOk;
}

KvoStatus kvosPreemphasize_GSMAMR_16s(Kvo16s gamma, const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                      Kvo16s* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo16s prev = *pMem;
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo16s cur = pSrc[i];
        pDst[i] = sat16(Kvo32s{cur} + ((Kvo32s{gamma} * prev) >> 15));
        prev = cur;
    }
    *pMem = prev;
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookGain_GSMAMR_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered,
                                              Kvo16s* pGain) {
    if (!pTarget || !pFiltered || !pGain) return kvoErrNullPtr;
    Kvo16s c[4];
    ownAdaptiveCodebookGain_GSMAMR(pTarget, pFiltered, pGain, c);
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookGainCoeffs_GSMAMR_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered,
                                                    Kvo16s* pGain, Kvo16s* pCoeffs) {
    if (!pTarget || !pFiltered || !pGain || !pCoeffs) return kvoErrNullPtr;
    Kvo16s g, c[4];
    ownAdaptiveCodebookGain_GSMAMR(pTarget, pFiltered, &g, c);
    *pGain = g;
    for (int i = 0; i < 4; ++i) pCoeffs[i] = c[i];
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
