// G.723.1 open-loop pitch estimate and harmonic noise weighting search.
//
// Data: weighted speech, normalised by the caller (the encoder scales its
// 385-sample buffer with a block shift first).  Energies are sliding 32-bit
// sums of squares (undoubled); the open-loop correlations are doubled with
// saturation.  Each normalised cross square and energy is a 16-bit mantissa
// with an exponent; comparisons are by cross-multiplication, ties keep the
// earlier lag, and a lag 18 or more above the current best must beat it by a
// quarter.  The harmonic gain (Q15, at most 10240) is set only when the best
// cross square exceeds 3/8 of the target energy times the lag energy.
#include "frame/impl.h"
#include "g723/exc.h"
#include "kernels/corr.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int kMinLag = 18;
constexpr int kMaxLag = 142;
constexpr int kLags = kMaxLag - kMinLag + 1;  // 125
constexpr int kLen = 120;

struct NormCross {
    Kvo16s num;  // cross square mantissa
    Kvo16s den;  // energy mantissa
    int exp;     // exponent of num / den
};

// Normalised cross square over energy of one lag (the positive-cross form).
NormCross norm_cross_pos(Kvo32s cross, Kvo32s energy) {
    if (cross <= 0) return {0, 0, 31};
    const int n = norm32(cross);
    const Kvo32s c = round16(shl_wrap(cross, n));
    const Kvo32s q = c * c;
    int b = 0;
    Kvo32s num;
    if (q < 0x20000000) {
        num = q >> 14;
        b = 1;
    } else {
        num = q >> 15;
    }
    const Kvo32s e = double32(energy);
    const int m = norm32(e);
    const Kvo16s den = round16(shl_wrap(e, m));
    int x = b + 2 * n - m;
    Kvo16s nn = static_cast<Kvo16s>(num);
    if (nn >= den) {
        nn = static_cast<Kvo16s>(nn >> 1);
        --x;
    }
    return {nn, den, x};
}

// Rounded upper 16 bits of v << norm.
inline Kvo32s upper(Kvo32s v, int norm) {
    return round16(shl_wrap(v, norm));
}

}  // namespace

namespace impl {

KvoStatus kvosOpenLoopPitchSearch_G723_16s(const Kvo16s* pSrc, Kvo16s* pDstLag) {
    if (!pSrc || !pDstLag) return kvoErrNullPtr;
    alignas(16) Kvo32s energy[kLags];
    alignas(16) Kvo32s cross[kLags];
    // energy[j] belongs to lag 142 - j, cross[k] to lag 18 + k.
    ownEnergy_16s32s(pSrc - kMaxLag, kLen, energy, kLags);
    kvosCrossCorr_Inv_16s32s_(pSrc, pSrc - kMinLag, kLen, cross, kLags);

    int bestExp = 30, best = 0;
    Kvo32s bestNum = 16384, bestDen = 32767;
    for (int k = 0; k < kLags; ++k) {
        const NormCross c = norm_cross_pos(cross[k], energy[kLags - 1 - k]);
        if (c.exp > bestExp) continue;
        const int v = bestExp - c.exp;
        if (v < 2) {
            const Kvo32s a = bestDen * c.num;
            const Kvo32s b = (bestNum >> v) * c.den;
            if (a <= b) continue;
            if (k - best >= kMinLag && b >= a - (a >> 2)) continue;
        }
        best = k;
        bestExp = c.exp;
        bestNum = c.num;
        bestDen = c.den;
    }
    *pDstLag = static_cast<Kvo16s>(best + kMinLag);
    return kvoOk;
}

KvoStatus kvosHarmonicSearch_G723_16s(Kvo16s pitchLag, const Kvo16s* pSrc, Kvo16s* pDstLag,
                                      Kvo16s* pDstGain) {
    if (!pSrc || !pDstLag || !pDstGain) return kvoErrNullPtr;
    if (pitchLag < 18 || pitchLag > 145) return kvoErrSize;
    constexpr int kN = g723::kSubframe;

    const Kvo32s target = sat32(corrDotExact(pSrc, pSrc, kN));
    Kvo32s energy[7], cross[7];
    // energy[k] belongs to lag pitchLag + 3 - k, cross[j] to lag pitchLag - 3 + j.
    ownEnergy_16s32s(pSrc - pitchLag - 3, kN, energy, 7);
    kvosCrossCorr_Inv_16s32s_(pSrc, pSrc - (pitchLag - 3), kN, cross, 7);

    Kvo32s mx = target;
    for (int k = 0; k < 7; ++k) {
        if (energy[k] > mx) mx = energy[k];
        const Kvo32s h = Abs_32s(cross[k]) >> 1;
        if (h > mx) mx = h;
    }
    const int norm = norm32(mx);

    int index = -1;
    Kvo32s bestCross = 128, bestSq = 1, bestEnergy = 32767;
    for (int j = 0; j < 7; ++j) {
        if (cross[j] <= 0) continue;
        const Kvo32s c = upper(cross[j] >> 1, norm);
        const Kvo32s sq = (c * c + 16384) >> 15;
        const Kvo32s e = upper(energy[6 - j], norm);
        if (Kvo64s{sq} * bestEnergy > Kvo64s{bestSq} * e) {
            index = j;
            bestCross = c;
            bestSq = sq;
            bestEnergy = e;
        }
    }

    Kvo16s gain = 0;
    if (index < 0) {
        *pDstLag = pitchLag;
    } else {
        *pDstLag = static_cast<Kvo16s>(pitchLag + index - 3);
        // Doubled terms: 3/8 of 2 T E against 2 c^2.
        const Kvo32s w = sat32(2 * Kvo64s{upper(target, norm)} * bestEnergy);
        const Kvo64s c2 = 2 * Kvo64s{bestCross} * bestCross;
        if (Kvo64s{(w >> 2) + (w >> 3)} < c2) {
            if (bestEnergy <= bestCross)
                gain = 10240;
            else
                gain =
                    static_cast<Kvo16s>((((bestCross << 15) / bestEnergy) * 10240 + 16384) >> 15);
        }
    }
    *pDstGain = gain;
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
