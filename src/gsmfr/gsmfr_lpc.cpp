// GSM 06.10 reflection coefficients by the Schur recursion.
//
// Input: order + 1 autocorrelation values (32 bits, any scale); output: order
// reflection coefficients in Q15.  The values are normalised by the shift of
// the energy and kept in their upper 16 bits.  Each stage divides |P[1]| by
// P[0] (15 quotient bits, 32767 when they are equal, 0 when |P[1]| is 0 even
// if P[0] has reached 0), and updates P and K with mult_r and saturating
// 16-bit additions, as the reference arithmetic does.  An unstable stage
// (P[0] below |P[1]|) ends the recursion with the remaining outputs zero.
#include "frame/impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

inline Kvo32s multR(Kvo32s a, Kvo32s b) {
    return lo16((a * b + 16384) >> 15);
}
inline Kvo32s sat(Kvo32s x) {
    return x > 32767 ? 32767 : (x < -32768 ? -32768 : x);
}

// The body for one fixed or general order; the compiler unrolls the fixed ones.
template <int kOrder>
inline void schur(const Kvo32s* pSrc, Kvo16s* pDst, int order) {
    const int n = kOrder > 0 ? kOrder : order;
    const int shift = norm32(pSrc[0]);
    Kvo32s P[9], K[9];
    for (int i = 0; i <= n; ++i) P[i] = shl_wrap(pSrc[i], shift) >> 16;
    for (int i = 1; i < n; ++i) K[i] = P[i];
    for (int j = 0; j < n; ++j) {
        const Kvo32s m = P[1] < 0 ? (P[1] == -32768 ? 32767 : -P[1]) : P[1];
        if (P[0] < m) {
            for (int i = j; i < n; ++i) pDst[i] = 0;
            return;
        }
        Kvo32s r = m == 0 ? 0 : (m == P[0] ? 32767 : (m << 15) / P[0]);
        if (P[1] > 0) r = -r;
        pDst[j] = static_cast<Kvo16s>(r);
        if (j == n - 1) return;
        P[0] = sat(P[0] + multR(P[1], r));
        for (int i = 1; i < n - j; ++i) {
            const Kvo32s next = P[i + 1];
            P[i] = sat(next + multR(r, K[i]));
            K[i] = sat(K[i] + multR(r, next));
        }
    }
}

}  // namespace

KvoStatus impl::kvosSchur_GSMFR_32s16s(const Kvo32s* pSrc, Kvo16s* pDst, Kvo32s order) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (order < 1 || order > 8) return kvoErrSize;
    if (pSrc[0] == 0) {
        for (Kvo32s i = 0; i < order; ++i) pDst[i] = 0;
        return kvoOk;
    }
    if (order == 8)
        schur<8>(pSrc, pDst, 8);
    else if (order == 4)
        schur<4>(pSrc, pDst, 4);
    else
        schur<0>(pSrc, pDst, order);
    return kvoOk;
}

}  // namespace kvo
