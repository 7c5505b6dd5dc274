// Levinson-Durbin recursions of G.729 (orders 1 to 30, covering annex E's
// backward-adaptive order 30) and G.723.1.
//
// G.729: autocorrelations are 32-bit, normalised (R[0] near the top of the
// word); the running filter is Q27 in double precision (bit 0 clear); the
// reflection coefficients are Q15 and the LP coefficients Q12.  Every sum and
// shift saturates as in the reference basic operators; the division is the
// reciprocal-refinement div32 of lpc.h, with the numerator held at the
// denominator.  Nothing is written when the recursion gives up.
//
// G.723.1: 16-bit autocorrelations, Q13 coefficients, a 16-bit prediction
// error; the partial-correlation accumulator saturates per term and on the
// final times 4.  The coefficient updates saturate at every stage.
#include "impl.h"
#include "kernels/lpc.h"

namespace kvo {
namespace {

constexpr int kMaxOrderG729 = 30;

// 0x7fffffff - |K^2|, the factor (1 - K^2) of the prediction error.
constexpr Kvo32s one_minus_k2(Kvo32s k) { return Sub_32s(INT32_MAX, Abs_32s(mpy32(k, k))); }

constexpr Kvo32s magnitude(Kvo32s x) { return x < 0 ? (x == INT32_MIN ? INT32_MAX : -x) : x; }

}  // namespace

namespace impl {

KvoStatus kvosLevinsonDurbin_G729_32s16s(const Kvo32s* pSrcAutoCorr, Kvo32s order,
                                         Kvo16s* pDstLPC, Kvo16s* pDstRC,
                                         Kvo16s* pResultResidualEnergy) {
    if (!pSrcAutoCorr || !pDstLPC || !pDstRC || !pResultResidualEnergy) return kvoErrNullPtr;
    if (order < 1 || order > kMaxOrderG729) return kvoErrRange;

    const Kvo32s* R = pSrcAutoCorr;
    if (magnitude(R[0]) < 0x10000) return kvoWarnOverflow;

    Kvo32s A[kMaxOrderG729 + 1];
    Kvo32s An[kMaxOrderG729 + 1];
    Kvo16s rc[kMaxOrderG729];

    // First stage: K = -R[1] / R[0].
    const Kvo32s r0 = dp(R[0]);
    const Kvo32s r1 = dp(R[1]);
    Kvo32s num = Abs_32s(r1);
    if (num > r0) num = r0;
    Kvo32s K = div32(num, r0);
    if (r1 > 0) K = -K;
    rc[0] = hi(K);
    A[1] = dp(K >> 4);

    Kvo32s alpha = mpy32(r0, one_minus_k2(K));
    int e = norm32(alpha);
    alpha = shl_wrap(alpha, e);

    for (int i = 2; i <= order; ++i) {
        if (magnitude(alpha) < 0x10000) return kvoWarnOverflow;

        Kvo32s t = 0;
        for (int j = 1; j < i; ++j) t = Add_32s(t, mpy32(R[j], A[i - j]));
        t = ShiftL_32s(t, 4);
        t = Add_32s(t, dp(R[i]));

        const Kvo32s a = dp(alpha);
        num = Abs_32s(t);
        if (num > a) num = a;
        K = div32(num, a);
        if (t > 0) K = -K;
        K = ShiftLSat_32s(K, e);
        rc[i - 1] = hi(K);
        if (Abs_16s(hi(K)) > 32750) return kvoWarnOverflow;

        for (int j = 1; j < i; ++j) An[j] = dp(Add_32s(mpy32(K, A[i - j]), A[j]));
        An[i] = dp(K >> 4);
        for (int j = 1; j <= i; ++j) A[j] = An[j];

        alpha = mpy32(alpha, one_minus_k2(K));
        const int n = norm32(alpha);
        alpha = shl_wrap(alpha, n);
        e += n;
    }

    *pResultResidualEnergy = e >= 16 ? Kvo16s{0} : static_cast<Kvo16s>(hi(alpha) >> e);
    pDstLPC[0] = 4096;
    for (int i = 1; i <= order; ++i) pDstLPC[i] = sat16((Kvo64s{A[i]} + 16384) >> 15);
    for (int i = 0; i < order; ++i) pDstRC[i] = rc[i];
    return kvoOk;
}

// The caller keeps the last stable filter: on kvoWarnOverflow nothing here is
// written, and it substitutes its own saved coefficients.
KvoStatus kvosLevinsonDurbin_G729B(const Kvo32s* pSrcAutoCorr, Kvo16s* pDstLPC, Kvo16s* pDstRC,
                                   Kvo16s* pResultResidualEnergy) {
    if (!pDstRC) return kvoErrNullPtr;
    Kvo16s rc[10];
    const KvoStatus st =
        kvosLevinsonDurbin_G729_32s16s(pSrcAutoCorr, 10, pDstLPC, rc, pResultResidualEnergy);
    if (st == kvoOk) {
        pDstRC[0] = rc[0];
        pDstRC[1] = rc[1];
    }
    return st;
}

KvoStatus kvosLevinsonDurbin_G723_16s(const Kvo16s* pSrcAutoCorr, Kvo16s* pSineDetect,
                                      Kvo16s* pResultResidualEnergy, Kvo16s* pDstLPC) {
    if (!pSrcAutoCorr || !pSineDetect || !pResultResidualEnergy || !pDstLPC) return kvoErrNullPtr;

    const Kvo16s* R = pSrcAutoCorr;
    Kvo16s A[10] = {};
    Kvo16s err = R[0];
    Kvo16s k1 = 0;
    bool broke = false;

    for (int i = 0; i < 10; ++i) {
        // Partial correlation: (R[i+1] << 14) - 2 sum A[j] R[i-j], times 4.
        Kvo32s acc = Kvo32s{R[i + 1]} * 16384;
        for (int j = 0; j < i; ++j) acc = FMsu_16s32s(acc, A[j], R[i - j]);
        acc = ShiftL_32s(acc, 2);

        const Kvo32s mag = Abs_32s(acc);
        const Kvo32s errHi = Kvo32s{err} * 65536;
        if (mag >= errHi) {
            broke = true;
            break;
        }
        Kvo16s k = static_cast<Kvo16s>((mag >> 1) / err);
        if (acc >= 0) k = static_cast<Kvo16s>(-k);
        if (i == 1) k1 = k;

        Kvo16s prev[10];
        for (int j = 0; j < i; ++j) prev[j] = A[j];
        A[i] = static_cast<Kvo16s>((2 - Kvo32s{k}) >> 2);
        for (int j = 0; j < i; ++j)
            A[j] = round16(FMac_16s32s(Kvo32s{prev[j]} * 65536, k, prev[i - 1 - j]));

        // err = round16((err << 16) + acc k), the product by the 32 x 16 form.
        err = round16(Add_32s(mls_32s16s(acc, k), errHi));
    }

    // One history bit per call: 1 if the recursion broke down, else whether
    // the second reflection coefficient marks a pure tone.
    const int bit = broke ? 1 : (k1 > 31130 ? 1 : 0);
    *pSineDetect = lo16((Kvo32s{*pSineDetect} * 2) | bit);
    *pResultResidualEnergy = err;
    for (int i = 0; i < 10; ++i) pDstLPC[i] = A[i];
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
