// G.729 algebraic codebook: correlation matrices of the impulse response.
//
// h is Q12.  The matrix element of positions a and b is
//   M(a, b) = sum over n = max(a, b) .. 39 of h[n - a] h[n - b],
// computed on a scaled copy of h and stored without doubling.  Every element
// is a prefix of one lag chain: with d = |a - b| and j = 39 - max(a, b),
//   M(a, b) = C[j][d] = sum over m = 0 .. j of h[m] h[m + d].
// The reference arithmetic accumulates these chains as doubled, saturating
// sums from m = 0 upward; for a scaled h of energy below 2^30 no partial sum
// can reach the saturation (Cauchy-Schwarz), and the plain 32-bit sums are
// used.  Above that (only for h of extreme energy, halved rather than
// normalised) the saturating doubled chains are run and halved, so that the
// 16-bit elements (>> 15) equal those of the reference.
//
// Annex E keeps a 16-bit matrix of its own: diagonals (M + 32768) >> 16 (half
// scale, so that the energy is the sum of the diagonals plus each cross term
// once) and off-diagonal elements (M + 16384) >> 15 of the pairs of
// neighbouring tracks, computed on an h normalised to a fixed energy.
#include <cstring>

#include "g729/fcb.h"
#include "impl.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int L = kFcbSubframe;

// Flattened chain index C[j][d] = j * 40 + d of each matrix element.
struct MatrixMap {
    Kvo16u idx[kFcbMatrixSize];
};

constexpr Kvo16u chainIndex(int a, int b) {
    const int hi = a > b ? a : b;
    const int d = a > b ? a - b : b - a;
    return static_cast<Kvo16u>((L - 1 - hi) * L + d);
}

template <int NB>
constexpr MatrixMap makeMap(const int (&pairs)[NB][2]) {
    MatrixMap m{};
    for (int t = 0; t < 5; ++t)
        for (int i = 0; i < 8; ++i) m.idx[8 * t + i] = chainIndex(t + 5 * i, t + 5 * i);
    for (int k = 0; k < NB; ++k)
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 8; ++j)
                m.idx[kFcbBlockBase + 64 * k + 8 * i + j] =
                    chainIndex(pairs[k][0] + 5 * i, pairs[k][1] + 5 * j);
    return m;
}

constexpr MatrixMap kMapG729 = makeMap(kFcbPairs);
constexpr MatrixMap kMapG729D = makeMap(kFcbPairsD);
constexpr int kCountG729 = kFcbBlockBase + 9 * 64;
constexpr int kCountG729D = kFcbBlockBase + 8 * 64;

// All lag chains C[j][d], d = 0 .. 39 - j, of h as plain 32-bit sums (the
// caller guarantees an energy below 2^30, so nothing wraps).
void chainsPlain(const Kvo16s* h, Kvo32s* c) {
    // j = 0: the first term of every chain.
    for (int d = 0; d < L; ++d) c[d] = Kvo32s{h[0]} * h[d];
    for (int j = 1; j < L; ++j) {
        const Kvo32s hj = h[j];
        const Kvo32s* prev = c + (j - 1) * L;
        Kvo32s* cur = c + j * L;
        const Kvo16s* hd = h + j;
        const int n = L - j;
        for (int d = 0; d < n; ++d) cur[d] = prev[d] + hj * hd[d];
    }
}

// The same chains as the reference's doubled sums, saturated after each term
// (a product of -32768 by itself saturating too), then halved.
void chainsSaturating(const Kvo16s* h, Kvo32s* c) {
    for (int d = 0; d < L; ++d) {
        Kvo32s acc = 0;
        for (int j = 0; j + d < L; ++j) {
            Kvo64s p = 2 * (Kvo64s{h[j]} * h[j + d]);
            if (p > INT32_MAX) p = INT32_MAX;
            acc = sat32(Kvo64s{acc} + p);
            c[j * L + d] = acc >> 1;
        }
    }
}

Kvo64s energy64(const Kvo16s* h) {
    Kvo64s e = 0;
    for (int i = 0; i < L; ++i) e += Kvo32s{h[i]} * h[i];
    return e;
}

void chains(const Kvo16s* h, Kvo32s* c) {
    if (energy64(h) < (Kvo64s{1} << 30))
        chainsPlain(h, c);
    else
        chainsSaturating(h, c);
}

void fill(const Kvo32s* c, const MatrixMap& map, int count, Kvo32s* dst) {
    for (int k = 0; k < count; ++k) dst[k] = c[map.idx[k]];
}

}  // namespace

void ownScaleImpulse_G729(const Kvo16s* pSrc, Kvo16s* pDst) {
    // c = the reference's doubled, saturated energy.
    const Kvo32s c = sat32(2 * energy64(pSrc));
    if ((c >> 16) > 32000) {
        for (int i = 0; i < L; ++i) pDst[i] = static_cast<Kvo16s>(pSrc[i] >> 1);
        return;
    }
    // The energy of h << k stays below 2^30, so no element leaves 16 bits.
    const int k = norm32(c) >> 1;
    for (int i = 0; i < L; ++i) pDst[i] = static_cast<Kvo16s>(pSrc[i] * (1 << k));
}

void ownToeplizMatrix_G729_32s(const Kvo16s* pH, Kvo32s* pDst) {
    alignas(32) Kvo32s c[L * L];
    chains(pH, c);
    fill(c, kMapG729, kCountG729, pDst);
}

void ownToeplizMatrix_G729D_32s(const Kvo16s* pH, Kvo32s* pDst) {
    alignas(32) Kvo32s c[L * L];
    chains(pH, c);
    fill(c, kMapG729D, kCountG729D, pDst);
}

void ownToeplizMatrix_G729_16s32s(const Kvo16s* pSrcImpulse, Kvo32s* pDst) {
    alignas(16) Kvo16s h[L];
    ownScaleImpulse_G729(pSrcImpulse, h);
    ownToeplizMatrix_G729_32s(h, pDst);
}

void ownToeplizMatrix_G729_16s(const Kvo16s* pSrcImpulse, Kvo16s* pDst) {
    alignas(32) Kvo32s m[kFcbMatrixSize];
    ownToeplizMatrix_G729_16s32s(pSrcImpulse, m);
    ownConvert_32s16s_sfs(m, pDst, kFcbMatrixSize, 15);
}

void kvosToeplizMatrix_G729D_16s32s_(const Kvo16s* pSrcImpulse, Kvo32s* pDst) {
    alignas(16) Kvo16s h[L];
    ownScaleImpulse_G729(pSrcImpulse, h);
    ownToeplizMatrix_G729D_32s(h, pDst);
}

// ---- annex E ----------------------------------------------------------------

void ownTakeSign_G729E_16s(const Kvo16s* pSign, FcbMatrixE* pM) {
    for (int t = 0; t < 5; ++t) {
        const int t2 = t == 4 ? 0 : t + 1;
        Kvo16s* b = pM->blk[t];
        for (int i = 0; i < 8; ++i) {
            const bool plus = pSign[t + 5 * i] >= 0;
            for (int j = 0; j < 8; ++j) {
                // Factor 32767 for equal signs, -32768 for opposite ones.
                const bool same = plus == (pSign[t2 + 5 * j] >= 0);
                const Kvo32s r = b[8 * i + j];
                b[8 * i + j] = same ? static_cast<Kvo16s>((r * 32767) >> 15) : sat16(-r);
            }
        }
    }
}

void kvosToeplizMatrix_G729E_16s_(const Kvo16s* pSrcImpulse, const Kvo16s* pSign, Kvo16s* pH,
                                  Kvo16s* pHNeg, FcbMatrixE* pM) {
    // Normalise h to a fixed energy: shift by half the norm of the doubled
    // energy, then multiply by the inverse square root of the shifted energy.
    const Kvo32s c = sat32(2 * energy64(pSrcImpulse));
    if (c == 0) {
        std::memset(pH, 0, L * sizeof(Kvo16s));
        std::memset(pHNeg, 0, L * sizeof(Kvo16s));
        std::memset(pM, 0, sizeof(*pM));
        return;
    }
    const int k = norm32(c) >> 1;
    const Kvo32s y = shl_wrap(c, 2 * k) >> 12;
    Kvo32s r = y;
    impl::kvosInvSqrt_32s_I(&r, 1);
    const Kvo32s g = lo16(r >> 8);
    for (int i = 0; i < L; ++i) {
        const Kvo32s hs = Kvo32s{pSrcImpulse[i]} * (1 << k);
        pH[i] = static_cast<Kvo16s>((hs * g) >> 15);
        pHNeg[i] = sat16(-Kvo32s{pH[i]});
    }

    // The normalised energy is about 2^25: the plain sums cannot wrap.
    alignas(32) Kvo32s ch[L * L];
    chainsPlain(pH, ch);
    for (int t = 0; t < 5; ++t)
        for (int i = 0; i < 8; ++i) {
            const int p = t + 5 * i;
            pM->diag[t][i] = static_cast<Kvo16s>((ch[(L - 1 - p) * L] + 32768) >> 16);
        }
    for (int t = 0; t < 5; ++t) {
        const int t2 = t == 4 ? 0 : t + 1;
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 8; ++j)
                pM->blk[t][8 * i + j] = static_cast<Kvo16s>(
                    (ch[chainIndex(t + 5 * i, t2 + 5 * j)] + 16384) >> 15);
    }
    ownTakeSign_G729E_16s(pSign, pM);
}

}  // namespace kvo
