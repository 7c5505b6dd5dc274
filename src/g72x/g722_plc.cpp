// G.722 frame-erasure concealment helpers: class update and peak limiting of
// the extrapolation signal, restart of the low-band predictor from the
// concealed signal, DC removal of the concealed high band, and the 4:1
// decimation that feeds the concealer's pitch analysis.
//
// Data: 16-bit samples; the DC-removal coefficients are Q15 (29212, 25656),
// the decimation filter Q16 (nine taps, gain close to 1), accumulated in
// 32 bits with saturation at every tap and rounded to 16 bits.
//
// The concealer's own zero-crossing test (which marks a frame unvoiced) sits
// between the class update and the limiter of the classification; a caller
// that has marked the frame unvoiced does not call the classification.
//
// Deliberate deviation: the high-band DC removal with an odd length (outside
// its contract of whole pairs) leaves the last, unpaired element alone
// instead of touching one element past the vector.
#include "g72x/g722.h"
#include "g72x/g722_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr Kvo16s kHbCoeff[2] = {29212, 25656};
constexpr Kvo16s kFirLp[9] = {3692, 6190, 8525, 10186, 10787, 10186, 8525, 6190, 3692};

inline int absSat(int x) {
    return x < 0 ? (x == -32768 ? 32767 : -x) : x;
}

}  // namespace

namespace impl {

KvoStatus kvosClassifyFrame_G722_16s_I(Kvo16s* pSrcDst, Kvo32s period, Kvo32s* pClass,
                                       const Kvo8u* pMem) {
    if (!pSrcDst || !pClass || !pMem) return kvoErrNullPtr;
    const int t0 = static_cast<Kvo16s>(period);
    if (t0 < 0 || t0 > 143) return kvoErrRange;
    const KvoG722State* st = g722State(pMem);

    // A high band louder than the low band marks a transient.
    if (st->nbh > st->nbl) *pClass = (*pClass == 0) ? 3 : 4;
    if (*pClass != 3 && *pClass != 4) return kvoOk;

    // Limit each sample one period ahead to the peak of the five samples
    // around its predecessor; count the large outliers.
    Kvo16s* x = pSrcDst;
    int outliers = 0;
    for (int n = 0; n < t0; ++n) {
        int m = absSat(x[n - 2]);
        for (int k = -1; k <= 2; ++k) {
            const int a = absSat(x[n + k]);
            if (a > m) m = a;
        }
        const int y = x[n + t0];
        const int ay = absSat(y);
        if (m < ay) {
            if (m <= (ay >> 3)) ++outliers;
            x[n + t0] = static_cast<Kvo16s>(y < 0 ? -m : m);
        }
    }
    if (outliers) *pClass = 2;
    return kvoOk;
}

KvoStatus kvosSBADPCMDecodeStateUpdate_G722_16s(const Kvo16s* pSrc, Kvo32s val, Kvo32s reset,
                                                Kvo8u* pMem) {
    if (!pSrc || !pMem) return kvoErrNullPtr;
    KvoG722State* st = g722State(pMem);
    for (int i = 0; i < 6; ++i) st->dlt[i] = 0;
    st->dlt0 = 0;
    st->plt1 = static_cast<Kvo16s>(pSrc[1] >> 1);
    st->plt2 = static_cast<Kvo16s>(pSrc[0] >> 1);
    st->rlt1 = pSrc[1];
    st->rlt2 = pSrc[0];
    const Kvo16s v = static_cast<Kvo16s>(val);
    st->sl = v;
    st->szl = static_cast<Kvo16s>(v >> 1);

    const int c = st->nbh >> 7;  // index of the halved NBH in the antilog table
    const Kvo16s h = static_cast<Kvo16s>(st->nbh >> 1);
    if (reset) {
        st->detl = 32;
        st->deth = 8;
        st->nbl = 0;
        st->nbh = 0;
        return kvoOk;
    }
    st->nbh = h;
    if (static_cast<unsigned>(c) >= 353u) return kvoErrOutOfRange;
    st->deth = static_cast<Kvo16s>(tab::table_ila[c] * 4 + 4);
    return kvoOk;
}

KvoStatus kvosFilterHighband_G722_16s_I(Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pFilterState) {
    if (!pSrcDst || !pFilterState) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    int u1 = pFilterState[0], y1 = pFilterState[1];
    for (int i = 1; i < len; i += 2) {
        const int u = (pSrcDst[i] * kHbCoeff[0] + 16384) >> 15;
        const int t = sat16(((y1 * kHbCoeff[1] + 16384) >> 15) - u1);
        const int y = sat16(u + t);
        u1 = u;
        y1 = y;
        pSrcDst[i] = static_cast<Kvo16s>(y);
    }
    pFilterState[0] = static_cast<Kvo16s>(u1);
    pFilterState[1] = static_cast<Kvo16s>(y1);
    return kvoOk;
}

KvoStatus kvosDownsampleFilter_G722_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    const int outs = len / 4;
    for (int k = 0; k < outs; ++k) {
        const Kvo16s* x = pSrc + 4 * k + 3;  // newest sample of this output
        Kvo32s s = 0;
        for (int j = 0; j < 9; ++j) s = sat32(Kvo64s{s} + Kvo32s{x[-j]} * kFirLp[j]);
        pDst[k] = round16(s);
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
