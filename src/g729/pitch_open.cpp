// G.729 open-loop pitch search on one 80-sample frame of weighted speech (base coder and annex
// A), and the lag maximum of the autocorrelation in both directions.
//
// Data: weighted speech Q0, 143 samples of history before the frame.  The searches scale a
// working copy of the 223 samples by 1/8, 1 or 8 from its energy, as the reference does.  Their
// correlations and energies are the reference's doubled saturating chains; when the energy of the
// working copy is at most 2^30 - 1, no partial sum of any chain can saturate (each is bounded by
// twice the energy), and the exact sums stand in for the chains.  Equal correlations keep the
// lowest lag.
#include "frame/impl.h"
#include "g729/pitch.h"
#include "kernels/corr.h"
#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo {

namespace {

constexpr int kHist = 143;
constexpr int kFrame = 80;
constexpr int kSpan = kHist + kFrame;

// Working copy w[-143 .. 79] scaled by the reference rule from the energy test; returns whether
// the doubled chains over it are exact sums.
bool scaleSignal(const Kvo16s* pSrc, Kvo16s* w, bool overflow, bool plain) {
    const Kvo16s* s = pSrc - kHist;
    Kvo16s* d = w - kHist;
    if (overflow) {
        for (int i = 0; i < kSpan; ++i) d[i] = static_cast<Kvo16s>(s[i] >> 3);
    } else if (plain) {
        for (int i = 0; i < kSpan; ++i) d[i] = s[i];
    } else {
        for (int i = 0; i < kSpan; ++i) d[i] = sat16(Kvo32s{s[i]} * 8);
    }
    return ownDotProd_16s64s(d, d, kSpan) <= 0x3fffffff;
}

// Doubled chain of w[n] w[n - lag] over n = 0, step, 2 step, ... below 80.
Kvo32s corrAt(const Kvo16s* w, int lag, int step, bool exact) {
    if (exact) {
        if (step == 1) return static_cast<Kvo32s>(2 * corrDotExact(w, w - lag, kFrame));
        Kvo32s s = 0;
        for (int n = 0; n < kFrame; n += step) s += Kvo32s{w[n]} * w[n - lag];
        return 2 * s;
    }
    Kvo32s s = 0;
    for (int n = 0; n < kFrame; n += step) s = pitch::mac(s, w[n], w[n - lag]);
    return s;
}

// Energy chain of the delayed copy from start value s0 (non-negative terms: sat32 of the sum).
Kvo32s energyAt(const Kvo16s* w, int lag, int step, Kvo32s s0) {
    Kvo64s e = 0;
    for (int n = 0; n < kFrame; n += step) e += Kvo32s{w[n - lag]} * w[n - lag];
    return sat32(s0 + 2 * e);
}

// max / sqrt(energy): the correlation times the inverse root in double precision, low 16 bits.
Kvo16s normalise(Kvo32s max, Kvo32s energy) {
    impl::kvosInvSqrt_32s_I(&energy, 1);
    return lo16(mpy32(max, energy));
}

// Base coder section: lags lower .. upper, unit step, equal values keep the lowest lag.
int lagMaxBase(const Kvo16s* w, int lower, int upper, bool exact, Kvo16s* pNorm) {
    Kvo32s best = corrAt(w, lower, 1, exact);
    int lag = lower;
    for (int t = lower + 1; t <= upper; ++t) {
        const Kvo32s c = corrAt(w, t, 1, exact);
        if (c > best) {
            best = c;
            lag = t;
        }
    }
    *pNorm = normalise(best, energyAt(w, lag, 1, 0));
    return lag;
}

// Annex A section: even samples, lags lower, lower + step, ... below upper.
void lagMaxEven(const Kvo16s* w, int lower, int upper, int step, bool exact, Kvo32s* pMax,
                int* pLag) {
    Kvo32s best = INT32_MIN;
    int lag = lower < upper ? lower : 0;
    for (int t = lower; t < upper; t += step) {
        const Kvo32s c = corrAt(w, t, 2, exact);
        if (c > best) {
            best = c;
            lag = t;
        }
    }
    *pMax = best;
    *pLag = lag;
}

}  // namespace

void ownAutoCorrLagMax_G729A_16s(const Kvo16s* pSrc, int lowerLag, int upperLag, int step,
                                 Kvo32s* pMax, int* pMaxLag) {
    lagMaxEven(pSrc, lowerLag, upperLag, step, false, pMax, pMaxLag);
}

namespace impl {

// Base coder: energy test over the 223 samples (doubled chain: a saturation means the copy is
// scaled by 1/8; below 2^20 it is scaled by 8), the lag maxima of 80..143, 40..79 and 20..39,
// each normalised by its delayed energy, then the lower sections win unless a longer lag is
// better than 0.85 times them.
KvoStatus kvosOpenLoopPitchSearch_G729_16s(const Kvo16s* pSrc, Kvo16s* pDstOpenLoopDelay) {
    if (!pSrc || !pDstOpenLoopDelay) return kvoErrNullPtr;
    const Kvo64s e = ownDotProd_16s64s(pSrc - kHist, pSrc - kHist, kSpan);
    alignas(16) Kvo16s buf[kSpan + 1];
    Kvo16s* w = buf + kHist;
    const bool exact = scaleSignal(pSrc, w, e > 0x3fffffff, e >= 0x80000);

    Kvo16s max1, max2, max3;
    int t1 = lagMaxBase(w, 80, 143, exact, &max1);
    const int t2 = lagMaxBase(w, 40, 79, exact, &max2);
    const int t3 = lagMaxBase(w, 20, 39, exact, &max3);

    if (mulQ15(max1, 27853) < max2) {
        max1 = max2;
        t1 = t2;
    }
    if (mulQ15(max1, 27853) < max3) t1 = t3;
    *pDstOpenLoopDelay = static_cast<Kvo16s>(t1);
    return kvoOk;
}

// Annex A: the energy test reads every other sample from -143 (so the odd samples of the frame
// grid), the correlations the even samples of the frame.  Sections 20..39 and 40..79 at unit
// step, 80..142 at step 2 with a refinement at T3 + 1 then T3 - 1 (both measured around the
// section's own maximum).  Energies are chains from 1.  Multiples of a shorter lag add a bonus
// (16-bit saturating sums): max2 += max3 / 4 when T3 is near 2 T2 or 3 T2, and max1 += 0.2 max2
// when T2 is near 2 T1 or 3 T1.  The largest wins, ties going to the shorter lag.
KvoStatus kvosOpenLoopPitchSearch_G729A_16s(const Kvo16s* pSrc, Kvo16s* pDstOpenLoopDelay) {
    if (!pSrc || !pDstOpenLoopDelay) return kvoErrNullPtr;
    Kvo64s e = 0;
    for (int i = -kHist; i < kFrame; i += 2) e += Kvo32s{pSrc[i]} * pSrc[i];
    alignas(16) Kvo16s buf[kSpan + 1];
    Kvo16s* w = buf + kHist;
    const bool exact = scaleSignal(pSrc, w, 2 * e > INT32_MAX, 2 * e >= 0x100000);

    Kvo32s c1, c2, c3;
    int t1, t2, t3;
    lagMaxEven(w, 20, 40, 1, exact, &c1, &t1);
    Kvo16s max1 = normalise(c1, energyAt(w, t1, 2, 1));
    lagMaxEven(w, 40, 80, 1, exact, &c2, &t2);
    Kvo16s max2 = normalise(c2, energyAt(w, t2, 2, 1));
    lagMaxEven(w, 80, 143, 2, exact, &c3, &t3);
    const int center = t3;
    const Kvo32s up = corrAt(w, center + 1, 2, exact);
    if (up > c3) {
        c3 = up;
        t3 = center + 1;
    }
    const Kvo32s down = corrAt(w, center - 1, 2, exact);
    if (down > c3) {
        c3 = down;
        t3 = center - 1;
    }
    const Kvo16s max3 = normalise(c3, energyAt(w, t3, 2, 1));

    auto absi = [](int v) { return v < 0 ? -v : v; };
    if (absi(2 * t2 - t3) < 5 || absi(3 * t2 - t3) < 7) max2 = sat16(Kvo32s{max2} + (max3 >> 2));
    if (absi(2 * t1 - t2) < 5 || absi(3 * t1 - t2) < 7)
        max1 = sat16(Kvo32s{max1} + mult16(max2, 6554));

    int t = t1;
    if (max1 < max2) {
        max1 = max2;
        t = t2;
    }
    if (max1 < max3) t = t3;
    *pDstOpenLoopDelay = static_cast<Kvo16s>(t);
    return kvoOk;
}

// Lag maxima of the plain 32-bit (wrapping) autocorrelation: Inv pairs n with n - lag, Fwd with
// n + lag.  Lags ascend; a strictly greater sum replaces the best, starting from 0x80000000 and
// lag 0.  pMax receives the best sum doubled with saturation.
KvoStatus kvosAutoCorrLagMax_Inv_16s(const Kvo16s* pSrc, Kvo32s len, Kvo32s lowerLag,
                                     Kvo32s upperLag, Kvo32s* pMax, Kvo32s* pMaxLag) {
    if (!pSrc || !pMax || !pMaxLag) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo32s best = INT32_MIN, lag = 0;
    for (Kvo32s t = lowerLag; t <= upperLag; ++t) {
        const Kvo32s c = corrDotWrap(pSrc, pSrc - t, len);
        if (c > best) {
            best = c;
            lag = t;
        }
        if (t == INT32_MAX) break;
    }
    *pMax = double32(best);
    *pMaxLag = lag;
    return kvoOk;
}

KvoStatus kvosAutoCorrLagMax_Fwd_16s(const Kvo16s* pSrc, Kvo32s len, Kvo32s lowerLag,
                                     Kvo32s upperLag, Kvo32s* pMax, Kvo32s* pMaxLag) {
    if (!pSrc || !pMax || !pMaxLag) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo32s best = INT32_MIN, lag = 0;
    for (Kvo32s t = lowerLag; t <= upperLag; ++t) {
        const Kvo32s c = corrDotWrap(pSrc, pSrc + t, len);
        if (c > best) {
            best = c;
            lag = t;
        }
        if (t == INT32_MAX) break;
    }
    *pMax = double32(best);
    *pMaxLag = lag;
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
