// G.729 LSP quantisation: the shared steps of the switched-MA predictive
// two-stage vector quantiser (weights, MA prediction residual, first and second
// stage searches, gap passes, reconstruction, stability pass, history shift).
//
// Data: LSF in radians Q13; weights normalised Q(11 + n); predictor
// coefficients Q15, their inverse sums Q12.
//
// Arithmetic: the order and saturation of the reference basic operators.
//  - Differences of 16-bit values saturate (the codebook distances included).
//  - Distances are the doubled sums of the reference multiply-add chain,
//    saturated at 0x7fffffff; all their terms are non-negative, so the chain
//    equals one wide sum clamped at the end.  A candidate wins only strictly
//    below the running best, which starts at 0x7fffffff; should every
//    candidate saturate, index 0 is kept.
//  - Weights: the squared term (b^2 >> 13) and the 2.5 and 1.2 steps saturate
//    to 16 bits, and so does the final + 2048.
#include "g729/lsp.h"

#include <emmintrin.h>

#include <cstring>

#include "g729/lsp_tables.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// Doubled product 2ab, saturated (only -32768 * -32768 overflows).
constexpr Kvo64s lmult(Kvo32s a, Kvo32s b) {
    const Kvo64s p = 2 * (Kvo64s{a} * b);
    return p > INT32_MAX ? INT32_MAX : p;
}
// A clamped sum of non-negative doubled terms.
constexpr Kvo32s clampDist(Kvo64s s) {
    return s > INT32_MAX ? INT32_MAX : static_cast<Kvo32s>(s);
}

// Unsigned sum of the four 32-bit lanes of a and the first two of b, exact in 64 bits.
inline Kvo64u laneSum64(__m128i a, __m128i b) {
    const __m128i z = _mm_setzero_si128();
    __m128i s = _mm_add_epi64(_mm_unpacklo_epi32(a, z), _mm_unpackhi_epi32(a, z));
    s = _mm_add_epi64(s, _mm_unpacklo_epi32(b, z));
    s = _mm_add_epi64(s, _mm_unpackhi_epi64(s, s));
    return static_cast<Kvo64u>(_mm_cvtsi128_si64(s));
}

// Ten Q13 values as eight lanes and two (the upper lanes of the second zero).
inline void load10(const Kvo16s* v, __m128i& v0, __m128i& v1) {
    Kvo32s tail;
    std::memcpy(&tail, v + 8, sizeof tail);
    v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v));
    v1 = _mm_cvtsi32_si128(tail);
}

// (w t) >> 15 per lane from the two halves of the 32-bit product; exact while
// the result fits 16 bits (w non-negative, as the distance weights are).
inline __m128i multQ15(__m128i w, __m128i t) {
    const __m128i lo = _mm_mullo_epi16(w, t), hi = _mm_mulhi_epi16(w, t);
    return _mm_or_si128(_mm_slli_epi16(hi, 1), _mm_srli_epi16(lo, 15));
}

// The distances below are doubled sums of non-negative terms S clamped at
// 0x7fffffff, and a candidate must beat the running best strictly, which
// starts at 0x7fffffff: a clamped distance (S >= 2^30) can never win, and
// below that 2S < 2S' exactly when S < S'.  The vector forms therefore compare
// the exact sums S against a best that starts at 2^30.
constexpr Kvo64u kDistSatHalf = Kvo64u{1} << 30;

}  // namespace

int ownLspFirstStagePlain(const Kvo16s* r) {
    Kvo32s best = INT32_MAX;
    int cand = 0;
    for (int i = 0; i < 128; ++i) {
        const Kvo16s* c = tab::LSPCode1[i];
        Kvo64s d = 0;
        for (int j = 0; j < kLspOrder; ++j) {
            const Kvo32s t = sub16(r[j], c[j]);
            d += lmult(t, t);
        }
        const Kvo32s dist = clampDist(d);
        if (dist < best) {
            best = dist;
            cand = i;
        }
    }
    return cand;
}

// t = r - c saturated per lane; t^2 summed in pairs is at most 2^31, exact as
// an unsigned lane (the -32768 pair included).
int ownLspFirstStage(const Kvo16s* r) {
    __m128i r0, r1;
    load10(r, r0, r1);
    Kvo64u best = kDistSatHalf;
    int cand = 0;
    for (int i = 0; i < 128; ++i) {
        __m128i c0, c1;
        load10(tab::LSPCode1[i], c0, c1);
        const __m128i t0 = _mm_subs_epi16(r0, c0), t1 = _mm_subs_epi16(r1, c1);
        const Kvo64u s = laneSum64(_mm_madd_epi16(t0, t0), _mm_madd_epi16(t1, t1));
        if (s < best) {
            best = s;
            cand = i;
        }
    }
    return cand;
}

void ownLspSecondStagePlain(const Kvo16s* e, const Kvo16s* w, int* pLow, int* pHigh) {
    Kvo32s bestLo = INT32_MAX, bestHi = INT32_MAX;
    int lo = 0, hi = 0;
    for (int i = 0; i < 32; ++i) {
        const Kvo16s* c = tab::LSPCode2[i];
        Kvo64s dl = 0, dh = 0;
        for (int j = 0; j < kLspHalf; ++j) {
            const Kvo32s t = sub16(e[j], c[j]);
            dl += lmult((Kvo32s{w[j]} * t) >> 15, t);
        }
        for (int j = kLspHalf; j < kLspOrder; ++j) {
            const Kvo32s t = sub16(e[j], c[j]);
            dh += lmult((Kvo32s{w[j]} * t) >> 15, t);
        }
        const Kvo32s l = clampDist(dl), h = clampDist(dh);
        if (l < bestLo) {
            bestLo = l;
            lo = i;
        }
        if (h < bestHi) {
            bestHi = h;
            hi = i;
        }
    }
    *pLow = lo;
    *pHigh = hi;
}

// u = (w t) >> 15 has the sign of t and |u t| < 2^30, so each term is one
// exact 32-bit product; elements 0..4 and 5..9 are summed apart in 64 bits.

void ownLspSecondStage(const Kvo16s* e, const Kvo16s* w, int* pLow, int* pHigh) {
    __m128i e0, e1, w0, w1;
    load10(e, e0, e1);
    load10(w, w0, w1);
    const __m128i lane0 = _mm_cvtsi32_si128(-1);
    Kvo64u bestLo = kDistSatHalf, bestHi = kDistSatHalf;
    int lo = 0, hi = 0;
    for (int i = 0; i < 32; ++i) {
        __m128i c0, c1;
        load10(tab::LSPCode2[i], c0, c1);
        const __m128i t0 = _mm_subs_epi16(e0, c0), t1 = _mm_subs_epi16(e1, c1);
        const __m128i u0 = multQ15(w0, t0), u1 = multQ15(w1, t1);
        const __m128i pl0 = _mm_mullo_epi16(u0, t0), ph0 = _mm_mulhi_epi16(u0, t0);
        const __m128i pl1 = _mm_mullo_epi16(u1, t1), ph1 = _mm_mulhi_epi16(u1, t1);
        const __m128i p03 = _mm_unpacklo_epi16(pl0, ph0);  // elements 0..3
        const __m128i p47 = _mm_unpackhi_epi16(pl0, ph0);  // elements 4..7
        const __m128i p89 = _mm_unpacklo_epi16(pl1, ph1);  // elements 8, 9, then zeros
        // Low half: 0..3 and 4; high half: 5..7 and 8, 9.
        const Kvo64u sl = laneSum64(p03, _mm_and_si128(p47, lane0));
        const Kvo64u sh = laneSum64(_mm_andnot_si128(lane0, p47), p89);
        if (sl < bestLo) {
            bestLo = sl;
            lo = i;
        }
        if (sh < bestHi) {
            bestHi = sh;
            hi = i;
        }
    }
    *pLow = lo;
    *pHigh = hi;
}

namespace {

// Weighted distance of a predictor's reconstruction y to its target r:
// t = mult(y - r, fgSum), then 2 t sat16((w t) >> 11) summed.
Kvo32s predictorDistance(const Kvo16s* w, const Kvo16s* y, const Kvo16s* r, const Kvo16s* fgSum) {
    Kvo64s d = 0;
    for (int j = 0; j < kLspOrder; ++j) {
        const Kvo32s t = (Kvo32s{sub16(y[j], r[j])} * fgSum[j]) >> 15;
        const Kvo32s u = sat16((Kvo32s{w[j]} * t) >> 11);
        d += lmult(u, t);
    }
    return clampDist(d);
}

}  // namespace

void ownLspWeights(const Kvo16s* x, Kvo16s* w) {
    // 9221 = 0.04 pi + 1 and 15485 = 0.92 pi - 1, in Q13.
    Kvo16s b[kLspOrder];
    b[0] = sub16(x[1], 9221);
    for (int i = 1; i < kLspOrder - 1; ++i) b[i] = sub16(sub16(x[i + 1], x[i - 1]), 8192);
    b[9] = sub16(15485, x[8]);
    for (int i = 0; i < kLspOrder; ++i) {
        if (b[i] > 0) {
            w[i] = 2048;
            continue;
        }
        // b^2 in Q13, saturated: 8 b^2 leaves 32 bits from b^2 = 2^28 on.
        const Kvo32s sq = Kvo32s{b[i]} * b[i];
        const Kvo32s t = sq >= (1 << 28) ? 32767 : sq >> 13;
        // 2.5 t (10 in Q11 times t, Q11), saturated from t = 13108 on.
        const Kvo64s u = Kvo64s{t} * 163840;
        const Kvo32s v = u > INT32_MAX ? 32767 : static_cast<Kvo32s>(u >> 16);
        w[i] = add16(v, 2048);
    }
    // Elements 4 and 5 times 1.2 (19661 in Q14), saturated.
    for (int i = 4; i <= 5; ++i) {
        const Kvo64s u = Kvo64s{w[i]} * 78644;
        w[i] = u > INT32_MAX ? Kvo16s{32767} : static_cast<Kvo16s>(u >> 16);
    }
    Kvo16s m = 0;
    for (int i = 0; i < kLspOrder; ++i)
        if (w[i] > m) m = w[i];
    int n = 0;
    if (m > 0)
        while ((m << n) < 16384) ++n;
    for (int i = 0; i < kLspOrder; ++i) w[i] = static_cast<Kvo16s>(w[i] << n);
}

void ownLspTarget(const Kvo16s* x, const Kvo16s* h, const LspPredictor& fg, const Kvo16s* fgSumInv,
                  Kvo16s* r) {
    for (int j = 0; j < kLspOrder; ++j) {
        Kvo32s acc = shl_wrap(x[j], 16);
        for (int k = 0; k < kLspAges; ++k)
            acc = sat32(Kvo64s{acc} - lmult(h[k * 10 + j], fg[k][j]));
        const Kvo32s t = hi(acc);
        r[j] = sat16((t * fgSumInv[j]) >> 12);
    }
}

void ownLspExpand(Kvo16s* y, Kvo16s gap) {
    for (int j = 1; j < kLspOrder; ++j) {
        const Kvo16s k = static_cast<Kvo16s>(add16(sub16(y[j - 1], y[j]), gap) >> 1);
        if (k > 0) {
            y[j - 1] = sub16(y[j - 1], k);
            y[j] = add16(y[j], k);
        }
    }
}

void ownLspGetQuant(int first, int low, int high, Kvo16s* y) {
    const Kvo16s* c1 = tab::LSPCode1[first];
    for (int j = 0; j < kLspHalf; ++j) y[j] = add16(c1[j], tab::LSPCode2[low][j]);
    for (int j = kLspHalf; j < kLspOrder; ++j) y[j] = add16(c1[j], tab::LSPCode2[high][j]);
    ownLspExpand(y, kLspGap1);
    ownLspExpand(y, kLspGap2);
}

void ownLspCompose(const Kvo16s* y, const Kvo16s* h, const LspPredictor& fg, const Kvo16s* fgSum,
                   Kvo16s* out) {
    for (int j = 0; j < kLspOrder; ++j) {
        Kvo32s acc = static_cast<Kvo32s>(lmult(y[j], fgSum[j]));
        for (int k = 0; k < kLspAges; ++k)
            acc = sat32(Kvo64s{acc} + lmult(h[k * 10 + j], fg[k][j]));
        out[j] = hi(acc);
    }
}

int ownLspStability(Kvo16s* v) {
    int flags = 0;
    for (int j = 0; j < kLspOrder - 1; ++j) {
        if (v[j + 1] < v[j]) {
            const Kvo16s t = v[j + 1];
            v[j + 1] = v[j];
            v[j] = t;
        }
    }
    if (v[0] < kLsfLowLimit) {
        v[0] = kLsfLowLimit;
        flags |= kLsfFlagLow;
    }
    for (int j = 0; j < kLspOrder - 1; ++j)
        if (Kvo32s{v[j + 1]} - v[j] < kLsfMinGap) v[j + 1] = add16(v[j], kLsfMinGap);
    if (v[9] > kLsfHighLimit) {
        v[9] = kLsfHighLimit;
        flags |= kLsfFlagHigh;
    }
    return flags;
}

KvoStatus ownLspFlagStatus(int flags) {
    switch (flags) {
        case kLsfFlagLow:
            return kvoWarnLsfLow;
        case kLsfFlagHigh:
            return kvoWarnLsfHigh;
        case kLsfFlagLow | kLsfFlagHigh:
            return kvoWarnLsfLowAndHigh;
        default:
            return kvoOk;
    }
}

void ownLspPushHistory(Kvo16s* h, const Kvo16s* row) {
    std::memmove(h + kLspOrder, h, sizeof(Kvo16s) * kLspOrder * (kLspAges - 1));
    std::memcpy(h, row, sizeof(Kvo16s) * kLspOrder);
}

void ownRelspwed(const Kvo16s* pLSF, const LspPredictor* fg, const Kvo16s* pHist,
                 const Kvo16s (*fgSum)[kLspOrder], const Kvo16s (*fgSumInv)[kLspOrder],
                 Kvo16s* pIdx) {
    Kvo16s w[kLspOrder];
    ownLspWeights(pLSF, w);
    Kvo32s dist[2];
    int cand[2], low[2], high[2];
    for (int p = 0; p < 2; ++p) {
        Kvo16s r[kLspOrder], e[kLspOrder], y[kLspOrder];
        ownLspTarget(pLSF, pHist, fg[p], fgSumInv[p], r);
        cand[p] = ownLspFirstStage(r);
        for (int j = 0; j < kLspOrder; ++j) e[j] = sub16(r[j], tab::LSPCode1[cand[p]][j]);
        ownLspSecondStage(e, w, &low[p], &high[p]);
        ownLspGetQuant(cand[p], low[p], high[p], y);
        dist[p] = predictorDistance(w, y, r, fgSum[p]);
    }
    const int p = dist[1] < dist[0] ? 1 : 0;
    pIdx[0] = static_cast<Kvo16s>(p);
    pIdx[1] = static_cast<Kvo16s>(cand[p]);
    pIdx[2] = static_cast<Kvo16s>(low[p]);
    pIdx[3] = static_cast<Kvo16s>(high[p]);
}

int kvosLSFDecode_G729E_16s_(const Kvo16s* pIdx, const Kvo16s* pHist, Kvo16s* pOut,
                             Kvo16s* pNewRow) {
    const int p = pIdx[0] & 1;
    Kvo16s y[kLspOrder];
    ownLspGetQuant(pIdx[1] & 127, pIdx[2] & 31, pIdx[3] & 31, y);
    ownLspCompose(y, pHist, tab::fg[p], tab::fg_sum[p], pOut);
    std::memcpy(pNewRow, y, sizeof y);
    return ownLspStability(pOut);
}

}  // namespace kvo
