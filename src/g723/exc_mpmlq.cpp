// G.723.1 6.3 kbit/s multipulse maximum-likelihood quantisation (MP-MLQ).
//
// One grid of 30 positions at a time (even or odd samples), at half
// resolution: the target correlation w and the impulse autocorrelation rh
// count in steps of two samples.  rh is normalised to 16 bits (Q15 of the
// halved response's energy), the target correlation to the matching 32-bit
// scale.  Pulses are placed one by one on the largest remaining magnitude
// after taking out the previous pulse's contribution; the amplitude level is
// tried around the quantised largest correlation (four levels).  The
// criterion 2 x.y - y.y saturates at each step; the best starts at
// 0xC0000000 in the subframe search.  The pulse train option adds the code
// vector (and the response) to itself at multiples of the pitch lag.
#include <cstring>

#include "frame/impl.h"
#include "g723/exc.h"
#include "kernels/corr.h"
#include "numeric/fixed.h"

namespace kvo {

using namespace g723;

namespace {

constexpr Kvo32s kErrorStart = -0x40000000;  // 0xC0000000

// Level index (before the step down) of the largest correlation: the level
// i from 22 down to 2 whose 2 G[i] rh0 is nearest, the first of equals.
int max_amplitude(const Kvo32s* w, Kvo16s rh0, int* pIndex) {
    Kvo32s largest = 0;
    int at = 0;
    for (int k = 0; k < 30; ++k) {
        const Kvo32s a = Abs_32s(w[k]);
        if (a >= largest) {
            largest = a;
            at = k;
        }
    }
    *pIndex = at;
    Kvo32s bestDiff = 0x40000000;
    int level = 22;
    for (int i = 22; i >= 2; --i) {
        const Kvo32s d = Abs_32s(Sub_32s(FMul_16s32s(GainDBLvls[i], rh0), largest));
        if (d < bestDiff) {
            bestDiff = d;
            level = i;
        }
    }
    return level - 1;
}

// w[m] = sat32(w[m] - 2 amp r[m]) for the 30 grid slots.  The product fits
// 32 bits (at most 2 x 6623 x 32768); the saturating subtraction is written
// branch-free so that it vectorises.
void sub_pulse(Kvo32s* __restrict w, const Kvo16s* __restrict r, Kvo16s amp) {
    for (int m = 0; m < 30; ++m) {
        const Kvo32u a = static_cast<Kvo32u>(w[m]);
        const Kvo32u b = static_cast<Kvo32u>(2 * (Kvo32s{amp} * r[m]));
        const Kvo32u d = a - b;
        const bool over = static_cast<Kvo32s>((a ^ b) & (a ^ d)) < 0;
        const Kvo32u satv = static_cast<Kvo32u>((static_cast<Kvo32s>(a) >> 31) ^ INT32_MAX);
        w[m] = static_cast<Kvo32s>(over ? satv : d);
    }
}

// Adds the vector to itself at lag, 2 lag, ... below 60, saturating.
void pulse_train(const Kvo16s* src, Kvo16s* dst, int lag) {
    Kvo16s tmp[kSubframe];
    std::memcpy(tmp, src, sizeof(tmp));
    if (dst != src) std::memcpy(dst, src, sizeof(tmp));
    for (int t = lag; t < kSubframe; t += lag)
        for (int i = t; i < kSubframe; ++i) dst[i] = sat16(Kvo32s{dst[i]} + tmp[i - t]);
}

void gain_quant(const Kvo16s* h, const Kvo16s* x, Kvo16s* pPos, Kvo16s* pAmp, Kvo32s* pMaxError,
                Kvo16s* pGrid, Kvo16s* pAmpIndex, int np, Kvo32s* pImproved) {
    Kvo16s h2[kSubframe];
    for (int i = 0; i < kSubframe; ++i) h2[i] = static_cast<Kvo16s>(h[i] >> 1);
    Kvo16s rh[30];
    Kvo32s xn = 0;
    kvosAutoCorr_NormE_Step_NR_16s_(h2, kSubframe, 2, rh, 30, &xn);
    // rh mirrored: rhm[29 + d] = rh[|d|].
    Kvo16s rhm[59];
    for (int d = 0; d < 30; ++d) rhm[29 + d] = rhm[29 - d] = rh[d];
    Kvo32s c[kSubframe];
    impl::kvosCrossCorr_16s32s_Sfs(h, x, kSubframe, c, 3 - xn);

    *pImproved = 0;
    for (int g = 0; g < 2; ++g) {
        Kvo32s w0[30];
        for (int k = 0; k < 30; ++k) w0[k] = c[g + 2 * k];
        int first = 0;
        const int l = max_amplitude(w0, rh[0], &first);
        for (int d = 0; d < 4; ++d) {
            const int a = l + d - 1;
            const Kvo16s G = GainDBLvls[a];
            Kvo32s w[30];
            bool used[30] = {};
            std::memcpy(w, w0, sizeof(w));
            int idx[6];
            Kvo16s amp[6];
            idx[0] = first;
            amp[0] = w[first] < 0 ? static_cast<Kvo16s>(-G) : G;
            used[first] = true;
            for (int k = 1; k < np; ++k) {
                // Take out the previous pulse (the values at taken positions
                // are never read again, so every position is updated).
                sub_pulse(w, rhm + 29 - idx[k - 1], amp[k - 1]);
                Kvo32s mx = INT32_MIN;
                int at = 0;
                for (int m = 0; m < 30; ++m) {
                    const Kvo32s mag = used[m] ? -1 : Abs_32s(w[m]);
                    if (mag > mx) {
                        mx = mag;
                        at = m;
                    }
                }
                idx[k] = at;
                amp[k] = w[at] < 0 ? static_cast<Kvo16s>(-G) : G;
                used[at] = true;
            }
            // Filtered code vector and criterion.
            // At most 6 x 6623 x 32768 in magnitude: 32 bits hold the sums.
            Kvo32s acc[kSubframe] = {};
            for (int k = 0; k < np; ++k) {
                const int p = 2 * idx[k] + g;
                const Kvo32s ak = amp[k];
                for (int i = p; i < kSubframe; ++i) acc[i] += ak * h[i - p];
            }
            Kvo32s e = 0;
            for (int i = 0; i < kSubframe; ++i) {
                const Kvo32s y = sat16(acc[i] >> 13);
                e = Add_32s(e, sat32(2 * Kvo64s{x[i]} * y));
                e = Sub_32s(e, y * y);
            }
            if (e > *pMaxError) {
                *pMaxError = e;
                *pGrid = static_cast<Kvo16s>(g);
                *pAmpIndex = static_cast<Kvo16s>(a);
                *pImproved = 1;
                for (int k = 0; k < np; ++k) {
                    pPos[k] = static_cast<Kvo16s>(2 * idx[k] + g);
                    pAmp[k] = amp[k];
                }
            }
        }
    }
}

}  // namespace

namespace impl {

KvoStatus kvosGainQuant_G723_16s(const Kvo16s* pImpulse, const Kvo16s* pTarget,
                                 Kvo16s* pDstPositions, Kvo16s* pDstAmplitudes, Kvo32s* pMaxError,
                                 Kvo16s* pDstGrid, Kvo16s* pDstAmpIndex, Kvo32s pulses,
                                 Kvo32s* pImproved) {
    if (!pImpulse || !pTarget || !pDstPositions || !pDstAmplitudes || !pMaxError || !pDstGrid ||
        !pDstAmpIndex || !pImproved)
        return kvoErrNullPtr;
    if (pulses != 5 && pulses != 6) return kvoErrBadArg;
    gain_quant(pImpulse, pTarget, pDstPositions, pDstAmplitudes, pMaxError, pDstGrid, pDstAmpIndex,
               pulses, pImproved);
    return kvoOk;
}

KvoStatus kvosMPMLQFixedCodebookSearch_G723(Kvo16s pitchLag, const Kvo16s* pImpulse,
                                            const Kvo16s* pTarget, Kvo16s* pCode, Kvo16s* pDstGrid,
                                            Kvo16s* pDstTrainFlag, Kvo16s* pDstAmpIndex,
                                            Kvo16s* pDstSignMask, Kvo32s* pDstPosition,
                                            Kvo16s subframe) {
    if (!pImpulse || !pTarget || !pCode || !pDstGrid || !pDstTrainFlag || !pDstAmpIndex ||
        !pDstSignMask || !pDstPosition)
        return kvoErrNullPtr;
    if (pitchLag < 18 || pitchLag > 145 || subframe < 0 || subframe > 3) return kvoErrRange;

    const int np = PulsesPerSbfr[subframe];
    Kvo32s maxError = kErrorStart;
    // Should no candidate score above the start (only saturating data can do
    // that), the code keeps the first slots of grid 0 at the lowest level, so
    // that the packed parameters still describe it.
    Kvo16s pos[6] = {0, 2, 4, 6, 8, 10}, amp[6] = {1, 1, 1, 1, 1, 1}, grid = 0, ampIndex = 0;
    Kvo32s improved = 0;
    gain_quant(pImpulse, pTarget, pos, amp, &maxError, &grid, &ampIndex, np, &improved);
    Kvo16s train = 0;
    if (pitchLag < 58) {
        Kvo16s ht[kSubframe];
        pulse_train(pImpulse, ht, pitchLag);
        gain_quant(ht, pTarget, pos, amp, &maxError, &grid, &ampIndex, np, &improved);
        if (improved) train = 1;
    }

    Kvo16s code[kSubframe] = {};
    for (int k = 0; k < np; ++k) code[pos[k]] = amp[k];

    // Combinatorial position code and sign mask over the chosen grid.
    Kvo16s mask = 0;
    Kvo32s position = 0;
    int r = 6 - np;
    for (int j = 0; j < 30; ++j) {
        const Kvo16s v = code[grid + 2 * j];
        if (v != 0) {
            mask = static_cast<Kvo16s>((mask << 1) | (v < 0 ? 1 : 0));
            if (++r == 6) break;
        } else {
            position += CombTbl.v[r][j];
        }
    }
    if (train) pulse_train(code, code, pitchLag);

    std::memcpy(pCode, code, sizeof(code));
    *pDstGrid = grid;
    *pDstTrainFlag = train;
    *pDstAmpIndex = ampIndex;
    *pDstSignMask = mask;
    *pDstPosition = position;
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
