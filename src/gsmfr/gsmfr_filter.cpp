// GSM 06.10 full-rate filters on 16-bit samples.
//
// - Offset compensation: the 13-bit left-justified input is cut to its 13-bit
//   grid (times 4) and high-pass filtered with the pole at 32735/32768; the
//   memory is kept as a 32-bit value split into a 17-bit high part and a
//   15-bit low part, its sums held modulo 2^32.
// - Preemphasis (1 - 0.86 z^-1) and the decoder's deemphasis 1/(1 - 0.86 z^-1)
//   with upscaling by 2 and truncation to the 13-bit grid.
// - Short-term analysis and synthesis lattices with 8 Q15 reflection
//   coefficients: every product is mult_r ((a*b + 16384) >> 15, low 16 bits),
//   every sum saturated to 16 bits.
//
// Source and destination may be the same array in every filter here.  The
// lattices and the pre- and deemphasis have AVX2 builds chosen at run time.
#include "frame/impl.h"
#include "gsmfr/gsmfr.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// mult_r of two 16-bit values: (a*b + 16384) >> 15, low 16 bits.
inline Kvo32s multR(Kvo32s a, Kvo32s b) {
    return lo16((a * b + 16384) >> 15);
}

inline Kvo32s sat(Kvo32s x) {
    return x > 32767 ? 32767 : (x < -32768 ? -32768 : x);
}

}  // namespace

KvoStatus impl::kvosHighPassFilter_GSMFR_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                             KvoHighPassState_GSMFR* pState) {
    if (!pSrc || !pDst || !pState) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo32s z2 = pState->z2;
    Kvo32s z1 = pState->z1;
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo32s so = (pSrc[i] >> 3) * 4;
        const Kvo32s s1 = so - z1;
        z1 = so;
        const Kvo32s hi = lo16(z2 >> 15);
        const Kvo32s lo = z2 & 0x7fff;
        z2 = add_wrap(add_wrap(shl_wrap(s1, 15), hi * 32735), (lo * 32735 + 16384) >> 15);
        pDst[i] = lo16(add_wrap(z2, 16384) >> 15);
    }
    pState->z2 = z2;
    pState->z1 = static_cast<Kvo16s>(z1);
    return kvoOk;
}

KvoStatus impl::kvosPreemphasize_GSMFR_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                           Kvo16s* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (gsmfr::hasAvx2())
        gsmfr::preemphasisAvx2(pSrc, pDst, len, pMem);
    else
        gsmfr::preemphasisScalar(pSrc, pDst, len, pMem);
    return kvoOk;
}

namespace gsmfr {

void preemphasisScalar(const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem) {
    Kvo32s prev = *mem;
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo32s v = x[i];
        y[i] = static_cast<Kvo16s>(sat(v + multR(prev, -28180)));
        prev = v;
    }
    *mem = static_cast<Kvo16s>(prev);
}

void deemphasisScalar(Kvo16s* x, Kvo32s len, Kvo16s* mem) {
    Kvo32s m = *mem;
    for (Kvo32s i = 0; i < len; ++i) {
        m = sat(x[i] + multR(m, 28180));
        x[i] = static_cast<Kvo16s>(sat(2 * m) & ~7);
    }
    *mem = static_cast<Kvo16s>(m);
}

void analysisLatticeScalar(const Kvo16s* pRc, Kvo16s* x, Kvo32s len, Kvo16s* mem) {
    Kvo32s rc[8], u[8];
    for (int i = 0; i < 8; ++i) {
        rc[i] = pRc[i];
        u[i] = mem[i];
    }
    for (Kvo32s k = 0; k < len; ++k) {
        Kvo32s di = x[k];
        Kvo32s sav = di;
        for (int i = 0; i < 8; ++i) {
            const Kvo32s ui = u[i];
            u[i] = sav;
            sav = sat(ui + multR(rc[i], di));
            di = sat(di + multR(rc[i], ui));
        }
        x[k] = static_cast<Kvo16s>(di);
    }
    for (int i = 0; i < 8; ++i) mem[i] = static_cast<Kvo16s>(u[i]);
}

void synthesisLatticeScalar(const Kvo16s* pRc, const Kvo16s* x, Kvo16s* y, Kvo32s len,
                            Kvo16s* mem) {
    Kvo32s rc[8], v[9];
    for (int i = 0; i < 8; ++i) rc[i] = pRc[i];
    for (int i = 0; i < 9; ++i) v[i] = mem[i];
    for (Kvo32s k = 0; k < len; ++k) {
        Kvo32s sri = x[k];
        for (int i = 7; i >= 0; --i) {
            sri = sat(sri - multR(rc[i], v[i]));
            v[i + 1] = sat(v[i] + multR(rc[i], sri));
        }
        v[0] = sri;
        y[k] = static_cast<Kvo16s>(sri);
    }
    for (int i = 0; i < 9; ++i) mem[i] = static_cast<Kvo16s>(v[i]);
}

}  // namespace gsmfr

KvoStatus impl::kvosDeemphasize_GSMFR_16s_I(Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pMem) {
    if (!pSrcDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (gsmfr::hasAvx2())
        gsmfr::deemphasisAvx2(pSrcDst, len, pMem);
    else
        gsmfr::deemphasisScalar(pSrcDst, len, pMem);
    return kvoOk;
}

KvoStatus impl::kvosShortTermAnalysisFilter_GSMFR_16s_I(const Kvo16s* pRc, Kvo16s* pSrcDst,
                                                        Kvo32s len, Kvo16s* pMem) {
    if (!pRc || !pSrcDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (gsmfr::hasAvx2())
        gsmfr::analysisLatticeAvx2(pRc, pSrcDst, len, pMem);
    else
        gsmfr::analysisLatticeScalar(pRc, pSrcDst, len, pMem);
    return kvoOk;
}

KvoStatus impl::kvosShortTermSynthesisFilter_GSMFR_16s(const Kvo16s* pRc, const Kvo16s* pSrc,
                                                       Kvo16s* pDst, Kvo32s len, Kvo16s* pMem) {
    if (!pRc || !pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (gsmfr::hasAvx2())
        gsmfr::synthesisLatticeAvx2(pRc, pSrc, pDst, len, pMem);
    else
        gsmfr::synthesisLatticeScalar(pRc, pSrc, pDst, len, pMem);
    return kvoOk;
}

}  // namespace kvo
