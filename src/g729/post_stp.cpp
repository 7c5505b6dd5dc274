// Short-term stages of the G.729 adaptive post-filter, one 40-sample subframe at a time:
//   - the short-term filter A(z/0.55)/A(z/0.7), its input normalised by the magnitude sum of
//     its 20-sample impulse response;
//   - tilt compensation: main body from the first reflection coefficient of that response
//     (through the annex E tilt filter), annex A as a first-order preemphasis with
//     mu = 0.8 r1/r0 of the 22-sample response;
//   - adaptive gain control: main body on magnitude sums (smoothing 0.9875, gain Q14), annex A
//     on energies with an inverse square root (smoothing 0.9, gain Q12).
//
// Data: LP coefficients Q12, samples Q0, gains as stated.  Deliberate choices where the
// reference arithmetic is sharper than a plain formula: the preemphasis saturates its product
// and its difference; the response magnitude sum is held at 32767 after its shift; the annex A
// energies and the correlations of the tilt are the doubled saturating sums of the reference;
// the annex A gain root is rounded from a saturating shift (at most 32767 before the factor);
// both gain recursions and the annex A output saturate.
#include <cstring>

#include "impl.h"
#include "kernels/corr.h"
#include "numeric/fixed.h"
#include "post.h"
#include "post_tables.h"

namespace kvo {
namespace {

constexpr int kImp = 20;   // impulse response length of the main-body filter
constexpr int kImpA = 22;  // impulse response length of the annex A tilt

// Saturating chain of doubled products a[i] b[i], i < n, in order (L_mac from 0).
Kvo32s macChain(const Kvo16s* a, const Kvo16s* b, int n) {
    Kvo32s acc = 0;
    for (int i = 0; i < n; ++i) {
        const Kvo32s p = sat32(2 * (Kvo64s{a[i]} * b[i]));
        acc = sat32(Kvo64s{acc} + p);
    }
    return acc;
}

// First-order preemphasis from the last sample down, so that src and dst may be one vector:
// dst[n] = src[n] - gamma src[n-1], product and difference saturated; src[-1] is *pMem,
// which takes the last input sample at the end.
void preemph(Kvo16s gamma, const Kvo16s* src, Kvo16s* dst, int len, Kvo16s* pMem) {
    const Kvo16s last = src[len - 1];
    for (int n = len - 1; n > 0; --n) dst[n] = sat16(Kvo32s{src[n]} - postMult(gamma, src[n - 1]));
    dst[0] = sat16(Kvo32s{src[0]} - postMult(gamma, *pMem));
    *pMem = last;
}

// Sum of the 16-bit magnitudes (-32768 counted as 32767).
Kvo32s absSum(const Kvo16s* x, int n) {
    Kvo32s s = 0;
    for (int i = 0; i < n; ++i) s += x[i] == -32768 ? 32767 : (x[i] < 0 ? -x[i] : x[i]);
    return s;
}

}  // namespace

namespace impl {

KvoStatus kvosShortTermPostFilter_G729_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrc, Kvo16s* pDst,
                                           Kvo16s* pDstImpulseResponse) {
    if (!pSrcLPC || !pSrc || !pDst || !pDstImpulseResponse) return kvoErrNullPtr;

    alignas(16) Kvo16s a1[11], a2[11];
    impl::kvosMul_NR_16s_Sfs(pSrcLPC, tab::facGamma1_pst, a1, 11, 15);
    impl::kvosMul_NR_16s_Sfs(pSrcLPC, tab::facGamma2_pst, a2, 11, 15);

    // Impulse response of A(z/0.55) / A(z/0.7), zero state, wrapping.
    alignas(16) Kvo16s imp[kImp] = {};
    std::memcpy(imp, a2, sizeof a2);
    impl::kvosSynthesisFilter_NR_16s_Sfs(a1, imp, pDstImpulseResponse, kImp, 12, nullptr);

    // Normalise the input by the magnitude sum of the response (Q12 -> sum >> 2, held at
    // 32767): scale by 1024 / g when g is above 1024.
    Kvo32s g = absSum(pDstImpulseResponse, kImp) >> 2;
    if (g > 32767) g = 32767;
    alignas(16) Kvo16s x[kPostSubfr];
    if (g > 1024) {
        const Kvo16s inv = static_cast<Kvo16s>(0x2000000 / g);
        impl::kvosMulC_NR_16s_Sfs(pSrc, inv, x, kPostSubfr, 15);
    } else {
        std::memcpy(x, pSrc, sizeof x);
    }
    // 1/A(z/0.7) with the ten past outputs before pDst.
    return impl::kvosSynthesisFilter_NR_16s_Sfs(a1, x, pDst, kPostSubfr, 12, pDst - 10);
}

KvoStatus kvosTiltCompensation_G729_16s(const Kvo16s* pSrcImpulseResponse, Kvo16s* pSrcDst) {
    if (!pSrcImpulseResponse || !pSrcDst) return kvoErrNullPtr;

    // First reflection coefficient of the response: -r1/r0 from the normalised
    // autocorrelation.  A response too loud for the normalised form takes the saturated
    // energy (r0 = 32767) and the saturating chain of the first lag instead.
    Kvo32s r[2];
    Kvo32s norm;
    if (impl::kvosAutoCorr_NormE_16s32s(pSrcImpulseResponse, kImp, r, 2, &norm) != kvoOk) {
        r[0] = INT32_MAX;
        r[1] = macChain(pSrcImpulseResponse, pSrcImpulseResponse + 1, kImp - 1);
    }
    const Kvo16s r0 = hi(r[0]), r1 = hi(r[1]);
    const Kvo16s a = r1 == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(r1 < 0 ? -r1 : r1);
    Kvo16s q = 0;
    if (r0 >= a) {
        q = postDivS(a, r0);
        if (r1 > 0) q = static_cast<Kvo16s>(-q);
    }
    alignas(16) Kvo16s y[kPostSubfr];
    impl::kvosTiltCompensation_G729E_16s(q, pSrcDst - 1, y);
    std::memcpy(pSrcDst, y, sizeof y);
    return kvoOk;
}

KvoStatus kvosTiltCompensation_G729A_16s(const Kvo16s* pSrcLPC, Kvo16s* pSrcDst) {
    if (!pSrcLPC || !pSrcDst) return kvoErrNullPtr;

    // Impulse response of the first set over the second, 22 samples, zero state, wrapping.
    alignas(16) Kvo16s h[kImpA] = {};
    std::memcpy(h, pSrcLPC, 11 * sizeof(Kvo16s));
    impl::kvosSynthesisFilter_NR_16s_ISfs(pSrcLPC + 11, h, kImpA, 12, nullptr);

    // r0, r1: high halves of the doubled saturating sums.
    const Kvo16s r0 = hi(sat32(2 * corrDotExact(h, h, kImpA)));
    const Kvo16s r1 = hi(macChain(h, h + 1, kImpA - 1));
    if (r1 <= 0) {
        pSrcDst[-1] = pSrcDst[kPostSubfr - 1];
        return kvoOk;
    }
    // mu = 0.8 r1 / r0.
    const Kvo16s m = postMult(r1, 26214);
    const Kvo16s gamma = r0 > 0 ? postDivS(m, r0) : Kvo16s{32767};
    preemph(gamma, pSrcDst, pSrcDst, kPostSubfr, pSrcDst - 1);
    return kvoOk;
}

KvoStatus kvosPreemphasize_G729A_16s(Kvo16s gamma, const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                     Kvo16s* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    preemph(gamma, pSrc, pDst, len, pMem);
    return kvoOk;
}

KvoStatus kvosPreemphasize_G729A_16s_I(Kvo16s gamma, Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pMem) {
    if (!pSrcDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    preemph(gamma, pSrcDst, pSrcDst, len, pMem);
    return kvoOk;
}

KvoStatus kvosGainControl_G729_16s_I(const Kvo16s* pSrc, Kvo16s* pSrcDst, Kvo16s* pGain) {
    if (!pSrc || !pSrcDst || !pGain) return kvoErrNullPtr;

    // g0 = (1 - 0.9875) sum|in| / sum|out|, Q14.
    Kvo16s g0 = 0;
    const Kvo32s si = absSum(pSrc, kPostSubfr);
    if (si != 0) {
        const int ni = norm32(si);
        const Kvo32s so = absSum(pSrcDst, kPostSubfr);
        if (so == 0) {
            *pGain = 0;
            return kvoOk;
        }
        const int no = norm32(so);
        const Kvo16s hin = hi(shl_wrap(si, ni));
        const Kvo16s hout = hi(shl_wrap(so, no));
        int k = ni - no + 1;
        Kvo16s q;
        if (hin < hout) {
            q = postDivS(hin, hout);
        } else {
            q = static_cast<Kvo16s>((postDivS(hin - hout, hout) >> 1) + 16384);
            k -= 1;
        }
        if (k > 0)
            q = k >= 15 ? Kvo16s{0} : static_cast<Kvo16s>(q >> k);
        else if (k < 0)
            q = postShl16(q, -k);
        g0 = postMultR(q, 410);
    }
    // gain(n) = 0.9875 gain(n-1) + g0; out = gain out, Q14, rounded.
    Kvo16s gain = *pGain;
    for (int n = 0; n < kPostSubfr; ++n) {
        gain = sat16(Kvo32s{postMultR(gain, 32358)} + g0);
        pSrcDst[n] = sat16((Kvo32s{gain} * pSrcDst[n] + 8192) >> 14);
    }
    *pGain = gain;
    return kvoOk;
}

KvoStatus kvosGainControl_G729A_16s_I(const Kvo16s* pSrc, Kvo16s* pSrcDst, Kvo16s* pGain) {
    if (!pSrc || !pSrcDst || !pGain) return kvoErrNullPtr;

    // Energies of the two vectors shifted right by 2, doubled with saturation.
    auto energy = [](const Kvo16s* x) {
        Kvo64s e = 0;
        for (int n = 0; n < kPostSubfr; ++n) {
            const Kvo32s v = x[n] >> 2;
            e += v * v;
        }
        return sat32(2 * e);
    };
    const Kvo32s eo = energy(pSrcDst);
    if (eo == 0) {
        *pGain = 0;
        return kvoOk;
    }
    Kvo16s g0 = 0;
    const Kvo32s ei = energy(pSrc);
    if (ei != 0) {
        // g0 = (1 - 0.9) sqrt(ei / eo), Q12.
        const int n0 = norm32(eo);
        const Kvo16s mo = hi((shl_wrap(eo, n0) >> 1) + 32768);
        const int n1 = norm32(ei);
        const Kvo16s mi = round16(shl_wrap(ei, n1));
        const Kvo32s q = postDivS(mo, mi);
        const int k = n1 - n0 + 8;
        Kvo32s r = k >= 0 ? ShiftL_32s(q, k > 31 ? 31 : k) : postShr32(q, -k);
        impl::kvosInvSqrt_32s_I(&r, 1);
        const Kvo16s root = round16(ShiftL_32s(r, 9));
        g0 = postMult(root, 3276);
    }
    // gain(n) = 0.9 gain(n-1) + g0; out = sat16((out gain) >> 12).
    Kvo16s gain = *pGain;
    for (int n = 0; n < kPostSubfr; ++n) {
        gain = sat16(Kvo32s{postMult(gain, 29491)} + g0);
        pSrcDst[n] = sat16((Kvo32s{pSrcDst[n]} * gain) >> 12);
    }
    *pGain = gain;
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
