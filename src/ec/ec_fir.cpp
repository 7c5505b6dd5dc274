// Subband adaptive filter kernels of the echo canceller: the complex FIR across rows
// (echo estimate y[k] = sum_r X_r[k] * H_r[k]) and the normalised LMS coefficient updates
// (H_r[k] += step[k] * E[k] * conj(X_r[k])), plain, cheap ("Low") and affine-projection.
//
// Float family: Kvo32fc rows, products in double precision rounded to single before they
// are accumulated or added to a coefficient.  Fixed-point family: Kvo32sc rows in the Q
// format the application chooses through scaleFactor, 64-bit products.
//
// Argument tests: the outer pointers first, then the counts and scale as each kernel
// lists them; after those, every row pointer the call will touch is tested for null
// (kvoErrNullPtr) before anything is written.
//
// Deliberate choices:
//  - In the fixed-point updates the addend for a shift d = exponent - scaleFactor - 31 of
//    64 or more is 0 (the step is far below one unit of a coefficient): no adaptation.
//  - The rounded right shift (p + 2^(d-1)) >> d is evaluated without 64-bit overflow, as
//    (p >> d) + bit d-1 of p.
#include <algorithm>
#include <cstring>

#include "ec/ec_common.h"
#include "impl.h"
#include "numeric/cpu.h"
#include "numeric/fixed.h"

namespace kvo {
namespace ec {

void firSubband32fcScalar(const Kvo32fc* const* ppRefRows, const Kvo32fc* const* ppCoefRows,
                          Kvo32fc* pDst, int numSegments, int numSubbands) {
    for (int k = 0; k < numSubbands; ++k) {
        Kvo32f accR = 0.0f, accI = 0.0f;
        for (int r = 0; r < numSegments; ++r) {
            const Kvo64f xr = ppRefRows[r][k].re, xi = ppRefRows[r][k].im;
            const Kvo64f hr = ppCoefRows[r][k].re, hi = ppCoefRows[r][k].im;
            accR += static_cast<Kvo32f>(xr * hr - xi * hi);
            accI += static_cast<Kvo32f>(xr * hi + xi * hr);
        }
        pDst[k].re = accR;
        pDst[k].im = accI;
    }
}

void coeffUpdate32fcScalar(const Kvo64f* pStep, const Kvo32fc* const* ppRefRows,
                           const Kvo32fc* pErr, Kvo32fc* const* ppCoefRows, int numSegments,
                           int numSubbands) {
    for (int r = 0; r < numSegments; ++r) {
        const Kvo32fc* x = ppRefRows[r];
        Kvo32fc* h = ppCoefRows[r];
        for (int k = 0; k < numSubbands; ++k) {
            const Kvo64f a = pStep[k] * pErr[k].re, b = pStep[k] * pErr[k].im;
            const Kvo64f xr = x[k].re;
            const Kvo64f xi = static_cast<Kvo32f>(0.0f - x[k].im);
            h[k].re += static_cast<Kvo32f>(a * xr - b * xi);
            h[k].im += static_cast<Kvo32f>(b * xr + a * xi);
        }
    }
}

}  // namespace ec

namespace {

// Subbands per chunk of the fixed-point kernels (rows walked once per chunk).
constexpr int kChunk = 64;

constexpr bool countsOk(Kvo32s numSubbands) {
    return numSubbands >= 1 && numSubbands <= ec::kMaxSubbands;
}
constexpr bool segmentsOk(Kvo32s numSegments) {
    return numSegments >= 1 && numSegments <= ec::kMaxSegments;
}

template <class T>
bool rowsPresent(T* const* rows, Kvo64s n) {
    for (Kvo64s r = 0; r < n; ++r)
        if (rows[r] == nullptr) return false;
    return true;
}

// Saturating 64-bit addition.
inline Kvo64s addSat64(Kvo64s a, Kvo64s b) {
    Kvo64s s;
    if (__builtin_add_overflow(a, b, &s)) return a < 0 ? INT64_MIN : INT64_MAX;
    return s;
}

// 64-bit accumulator to 32 bits: truncating division by 2^sf (sf > 0), saturating left
// shift (sf < 0), then saturation.
inline Kvo32s scaleAcc(Kvo64s v, int sf) {
    if (sf > 0) {
        const Kvo64s q = v >> sf;
        // Floor to truncation: a negative value with a remainder moves one step up.
        v = (v < 0 && (v & ((Kvo64s{1} << sf) - 1)) != 0) ? q + 1 : q;
    } else if (sf < 0) {
        const int L = -sf;
        const Kvo64s lim = Kvo64s{1} << (63 - L);
        if (v >= lim) return INT32_MAX;
        if (v <= -lim) return INT32_MIN;
        v = static_cast<Kvo64s>(static_cast<Kvo64u>(v) << L);
    }
    return sat32(v);
}

// Coefficient plus a 64-bit addend, saturated to 32 bits.  An addend beyond 2^33 in
// magnitude saturates whatever the coefficient; below that the 64-bit sum is exact.
inline Kvo32s addSat32(Kvo32s h, Kvo64s a) {
    if (a > (Kvo64s{1} << 33)) return INT32_MAX;
    if (a < -(Kvo64s{1} << 33)) return INT32_MIN;
    return sat32(Kvo64s{h} + a);
}

// The AVX2 update takes a chunk only when every shift of it lies in 0..63 (the rounded
// right shift): the groups of four directly, the last one to three subbands padded.
inline bool vectorShare(const Kvo64s* d, int n) {
    if (!cpuHasAvx2()) return false;
    for (int j = 0; j < n; ++j)
        if (d[j] < 0 || d[j] > 63) return false;
    return true;
}

// One row of a chunk through the AVX2 update: whole groups of four, then the rest padded
// to four with zero errors and shift 0 (an addend of 0 leaves the padding untouched).
inline void updateRowAvx2(const Kvo64s* er, const Kvo64s* ei, const Kvo64s* d,
                          const Kvo64s* padR, const Kvo64s* padI, const Kvo64s* padD,
                          const Kvo32sc* x, Kvo32sc* h, int n, bool low) {
    const int n4 = n & ~3;
    if (n4 > 0) ec::coeffUpdate32scRowAvx2(er, ei, d, x, h, n4, low);
    if (n4 == n) return;
    Kvo32sc px[4] = {}, ph[4] = {};
    for (int j = n4; j < n; ++j) px[j - n4] = x[j], ph[j - n4] = h[j];
    ec::coeffUpdate32scRowAvx2(padR, padI, padD, px, ph, 4, low);
    for (int j = n4; j < n; ++j) h[j] = ph[j - n4];
}

// Padded copies of the last n % 4 errors and shifts of a chunk.
inline void padTail(const Kvo64s* er, const Kvo64s* ei, const Kvo64s* d, int n, Kvo64s* padR,
                    Kvo64s* padI, Kvo64s* padD) {
    const int n4 = n & ~3;
    for (int j = 0; j < 4; ++j) {
        const bool in = n4 + j < n;
        padR[j] = in ? er[n4 + j] : 0;
        padI[j] = in ? ei[n4 + j] : 0;
        padD[j] = in ? d[n4 + j] : 0;
    }
}

// conj of the fixed-point reference: -Xi, with -2^31 going to 2^31 - 1.
inline Kvo64s negSat(Kvo32s x) {
    return x == INT32_MIN ? INT32_MAX : -Kvo64s{x};
}

// Scaled error of one subband: (E * m + 2^30) >> 31, taken as signed 32-bit.
inline Kvo32s scaleErr(Kvo32s e, Kvo32s m) {
    return lo32((Kvo64s{e} * m + (Kvo64s{1} << 30)) >> 31);
}

}  // namespace

namespace ec {

// Saturating sums of one subband k over all rows.
static void firSumSat(const Kvo32sc* const* x, const Kvo32sc* const* h, int k, int numSegments,
                      Kvo64s& accR, Kvo64s& accI) {
    Kvo64s sr = 0, si = 0;
    for (int r = 0; r < numSegments; ++r) {
        const Kvo64s xr = x[r][k].re, xi = x[r][k].im, hr = h[r][k].re, hi = h[r][k].im;
        // |xr*hr - xi*hi| < 2^63 for 32-bit operands; the imaginary sum reaches 2^63 only for
        // four operands of -2^31 and saturates there.
        sr = addSat64(sr, xr * hr - xi * hi);
        si = addSat64(si, addSat64(xr * hi, xi * hr));
    }
    accR = sr;
    accI = si;
}

void firSubband32scCore(const Kvo32sc* const* ppRefRows, const Kvo32sc* const* ppCoefRows,
                        Kvo32sc* pDst, int numSegments, int numSubbands, int scaleFactor,
                        bool avx2) {
    for (int k0 = 0; k0 < numSubbands; k0 += kChunk) {
        const int n = std::min(kChunk, numSubbands - k0);
        Kvo64s accR[kChunk], accI[kChunk];
        // The vector twin takes whole groups of four and the padded rest; subbands whose
        // 64-bit sums overflowed there (the only case where saturation matters) are summed
        // again here.
        int nv = avx2 ? (n & ~3) : 0;
        Kvo64u redo =
            nv > 0 ? firSubband32scAvx2(ppRefRows, ppCoefRows, k0, nv, numSegments, accR, accI)
                   : 0;
        if (avx2 && nv < n) {
            // The last one to three subbands, padded with zero rows to a group of four.
            Kvo32sc px[kMaxSegments][4], ph[kMaxSegments][4];
            const Kvo32sc* rx[kMaxSegments];
            const Kvo32sc* rh[kMaxSegments];
            for (int r = 0; r < numSegments; ++r) {
                for (int j = nv; j < nv + 4; ++j) {
                    px[r][j - nv] = j < n ? ppRefRows[r][k0 + j] : Kvo32sc{0, 0};
                    ph[r][j - nv] = j < n ? ppCoefRows[r][k0 + j] : Kvo32sc{0, 0};
                }
                rx[r] = px[r];
                rh[r] = ph[r];
            }
            Kvo64s tr[4], ti[4];
            const Kvo64u m = firSubband32scAvx2(rx, rh, 0, 4, numSegments, tr, ti);
            for (int j = nv; j < n; ++j) {
                accR[j] = tr[j - nv];
                accI[j] = ti[j - nv];
            }
            redo |= (m & 7) << nv;
            nv = n;
        }
        for (int j = 0; j < n; ++j)
            if (j >= nv || ((redo >> j) & 1) != 0)
                firSumSat(ppRefRows, ppCoefRows, k0 + j, numSegments, accR[j], accI[j]);
        for (int j = 0; j < n; ++j) {
            pDst[k0 + j].re = scaleAcc(accR[j], scaleFactor);
            pDst[k0 + j].im = scaleAcc(accI[j], scaleFactor);
        }
    }
}

}  // namespace ec

namespace impl {

KvoStatus kvosFIRSubband_EC_32fc(const Kvo32fc** ppRefRows, const Kvo32fc** ppCoefRows,
                                 Kvo32fc* pDst, Kvo32s numSegments, Kvo32s numSubbands) {
    if (ppRefRows == nullptr || ppCoefRows == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (!countsOk(numSubbands)) return kvoErrFilterLen;
    if (!segmentsOk(numSegments)) return kvoErrRange;
    if (!rowsPresent(ppRefRows, numSegments) || !rowsPresent(ppCoefRows, numSegments))
        return kvoErrNullPtr;
    if (cpuHasAvx2())
        ec::firSubband32fcAvx2(ppRefRows, ppCoefRows, pDst, numSegments, numSubbands);
    else
        ec::firSubband32fcSse2(ppRefRows, ppCoefRows, pDst, numSegments, numSubbands);
    return kvoOk;
}

KvoStatus kvosFIRSubband_EC_32sc_Sfs(const Kvo32sc** ppRefRows, const Kvo32sc** ppCoefRows,
                                     Kvo32sc* pDst, Kvo32s numSegments, Kvo32s numSubbands,
                                     Kvo32s scaleFactor) {
    if (ppRefRows == nullptr || ppCoefRows == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (!countsOk(numSubbands)) return kvoErrFilterLen;
    if (!segmentsOk(numSegments) || scaleFactor < -31 || scaleFactor > 31) return kvoErrRange;
    if (!rowsPresent(ppRefRows, numSegments) || !rowsPresent(ppCoefRows, numSegments))
        return kvoErrNullPtr;
    ec::firSubband32scCore(ppRefRows, ppCoefRows, pDst, numSegments, numSubbands, scaleFactor,
                           cpuHasAvx2());
    return kvoOk;
}

KvoStatus kvosFIRSubbandLow_EC_32sc_Sfs(const Kvo32sc** ppRefRows, const Kvo32sc** ppCoefRows,
                                        Kvo32s numSegments, Kvo32sc* pDst, Kvo32s startSubband,
                                        Kvo32s numSubbands, Kvo32s scaleFactor) {
    if (ppRefRows == nullptr || ppCoefRows == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (!segmentsOk(numSegments) || startSubband < 0 || startSubband > numSubbands)
        return kvoErrRange;
    if (!countsOk(numSubbands)) return kvoErrFilterLen;
    if (scaleFactor < 0 || scaleFactor > 31) return kvoErrRange;
    if (startSubband == numSubbands) return kvoOk;
    if (!rowsPresent(ppRefRows, numSegments) || !rowsPresent(ppCoefRows, numSegments))
        return kvoErrNullPtr;
    for (int k = startSubband; k < numSubbands; ++k) {
        Kvo64u accR = 0, accI = 0;  // sums wrap modulo 2^64
        for (int r = 0; r < numSegments; ++r) {
            const Kvo64s xr = ppRefRows[r][k].re, xi = ppRefRows[r][k].im;
            const Kvo64s hr = ppCoefRows[r][k].re, hi = ppCoefRows[r][k].im;
            accR += static_cast<Kvo64u>(xr * hr) - static_cast<Kvo64u>(xi * hi);
            accI += static_cast<Kvo64u>(xr * hi) + static_cast<Kvo64u>(xi * hr);
        }
        pDst[k].re = lo32(static_cast<Kvo64s>(accR) >> scaleFactor);
        pDst[k].im = lo32(static_cast<Kvo64s>(accI) >> scaleFactor);
    }
    return kvoOk;
}

KvoStatus kvosFIRSubbandCoeffUpdate_EC_32fc_I(const Kvo64f* pStep, const Kvo32fc** ppRefRows,
                                              const Kvo32fc* pErr, Kvo32fc** ppCoefRows,
                                              Kvo32s numSegments, Kvo32s numSubbands) {
    if (pStep == nullptr || ppRefRows == nullptr || pErr == nullptr || ppCoefRows == nullptr)
        return kvoErrNullPtr;
    if (!countsOk(numSubbands)) return kvoErrFilterLen;
    if (!segmentsOk(numSegments)) return kvoErrRange;
    for (int k = 0; k < numSubbands; ++k)
        if (pStep[k] < 0.0) return kvoErrSize;  // -0.0 and NaN pass
    if (!rowsPresent(ppRefRows, numSegments) || !rowsPresent(ppCoefRows, numSegments))
        return kvoErrNullPtr;
    if (cpuHasAvx2())
        ec::coeffUpdate32fcAvx2(pStep, ppRefRows, pErr, ppCoefRows, numSegments, numSubbands);
    else
        ec::coeffUpdate32fcSse2(pStep, ppRefRows, pErr, ppCoefRows, numSegments, numSubbands);
    return kvoOk;
}

KvoStatus kvosFIRSubbandCoeffUpdate_EC_32sc_I(const KvoStepPair* pStep, const Kvo32sc** ppRefRows,
                                              const Kvo32sc* pErr, Kvo32sc** ppCoefRows,
                                              Kvo32s numSegments, Kvo32s numSubbands,
                                              Kvo32s scaleFactor) {
    if (pStep == nullptr || ppRefRows == nullptr || pErr == nullptr || ppCoefRows == nullptr)
        return kvoErrNullPtr;
    if (!countsOk(numSubbands)) return kvoErrFilterLen;
    if (!segmentsOk(numSegments) || scaleFactor < 0 || scaleFactor > 31) return kvoErrRange;
    for (int k = 0; k < numSubbands; ++k)
        if (pStep[k].mantissa < 0) return kvoErrSize;
    if (!rowsPresent(ppRefRows, numSegments) || !rowsPresent(ppCoefRows, numSegments))
        return kvoErrNullPtr;
    // Subbands in chunks, rows in the middle loop: each row pointer is walked once per chunk.
    for (int k0 = 0; k0 < numSubbands; k0 += kChunk) {
        const int n = std::min(kChunk, numSubbands - k0);
        Kvo64s er[kChunk], ei[kChunk], d[kChunk];
        for (int j = 0; j < n; ++j) {
            const KvoStepPair st = pStep[k0 + j];
            er[j] = scaleErr(pErr[k0 + j].re, st.mantissa);
            ei[j] = scaleErr(pErr[k0 + j].im, st.mantissa);
            d[j] = Kvo64s{st.exponent} - scaleFactor - 31;
        }
        const bool vec = vectorShare(d, n);
        const int nv = vec ? n : 0;
        alignas(32) Kvo64s padR[4], padI[4], padD[4];
        if (vec) padTail(er, ei, d, n, padR, padI, padD);
        for (int r = 0; r < numSegments; ++r) {
            const Kvo32sc* x = ppRefRows[r] + k0;
            Kvo32sc* h = ppCoefRows[r] + k0;
            if (vec) updateRowAvx2(er, ei, d, padR, padI, padD, x, h, n, false);
            for (int j = nv; j < n; ++j) {
                const Kvo64s xr = x[j].re, xi = negSat(x[j].im);
                const Kvo64s pr = er[j] * xr - ei[j] * xi;
                const Kvo64s pi = ei[j] * xr + er[j] * xi;
                h[j].re = addSat32(h[j].re, ec::updateAddend(pr, d[j]));
                h[j].im = addSat32(h[j].im, ec::updateAddend(pi, d[j]));
            }
        }
    }
    return kvoOk;
}

KvoStatus kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(const Kvo32sc** ppRefRows, const Kvo32sc* pErr,
                                                 Kvo32sc** ppCoefRows, Kvo32s numSegments,
                                                 Kvo32sc* pScaledErr, const KvoStepPair* pStep,
                                                 Kvo32s startSubband, Kvo32s numSubbands,
                                                 Kvo32s scaleFactor) {
    if (ppRefRows == nullptr || pErr == nullptr || ppCoefRows == nullptr || pScaledErr == nullptr ||
        pStep == nullptr)
        return kvoErrNullPtr;
    if (!segmentsOk(numSegments) || startSubband < 0 || startSubband > numSubbands)
        return kvoErrRange;
    if (!countsOk(numSubbands)) return kvoErrFilterLen;
    if (scaleFactor < 0 || scaleFactor > 31) return kvoErrRange;
    if (startSubband == numSubbands) return kvoOk;
    if (!rowsPresent(ppRefRows, numSegments) || !rowsPresent(ppCoefRows, numSegments))
        return kvoErrNullPtr;
    for (int k0 = startSubband; k0 < numSubbands; k0 += kChunk) {
        const int n = std::min(kChunk, numSubbands - k0);
        Kvo64s er[kChunk], ei[kChunk], d[kChunk];
        for (int j = 0; j < n; ++j) {
            const KvoStepPair st = pStep[k0 + j];  // mantissa not tested in this form
            const Kvo32s e0 = scaleErr(pErr[k0 + j].re, st.mantissa);
            const Kvo32s e1 = scaleErr(pErr[k0 + j].im, st.mantissa);
            pScaledErr[k0 + j] = {e0, e1};
            er[j] = e0;
            ei[j] = e1;
            d[j] = Kvo64s{st.exponent} - scaleFactor - 31;
        }
        const bool vec = vectorShare(d, n);
        const int nv = vec ? n : 0;
        alignas(32) Kvo64s padR[4], padI[4], padD[4];
        if (vec) padTail(er, ei, d, n, padR, padI, padD);
        for (int r = 0; r < numSegments; ++r) {
            const Kvo32sc* x = ppRefRows[r] + k0;
            Kvo32sc* h = ppCoefRows[r] + k0;
            if (vec) updateRowAvx2(er, ei, d, padR, padI, padD, x, h, n, true);
            for (int j = nv; j < n; ++j) {
                const Kvo64s xr = x[j].re;
                const Kvo64s xi = lo32(-Kvo64s{x[j].im});  // plain 32-bit negation
                const Kvo64s pr = er[j] * xr - ei[j] * xi;
                const Kvo64s pi = ei[j] * xr + er[j] * xi;
                const Kvo64s ar = ec::updateAddend(pr, d[j]), ai = ec::updateAddend(pi, d[j]);
                if (d[j] >= 0) {  // 32-bit wrap
                    h[j].re = lo32(static_cast<Kvo64s>(static_cast<Kvo64u>(h[j].re) +
                                                       static_cast<Kvo64u>(ar)));
                    h[j].im = lo32(static_cast<Kvo64s>(static_cast<Kvo64u>(h[j].im) +
                                                       static_cast<Kvo64u>(ai)));
                } else {
                    h[j].re = addSat32(h[j].re, ar);
                    h[j].im = addSat32(h[j].im, ai);
                }
            }
        }
    }
    return kvoOk;
}

KvoStatus kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(const Kvo64f** ppStep, const Kvo32fc** ppRefRows,
                                                const Kvo32fc** ppErr, Kvo32fc** ppCoefRows,
                                                Kvo32u numSegments, Kvo32u numSubbands,
                                                Kvo32u apOrder) {
    if (ppStep == nullptr || ppRefRows == nullptr || ppErr == nullptr || ppCoefRows == nullptr)
        return kvoErrNullPtr;
    if (numSubbands == 0 || numSubbands > static_cast<Kvo32u>(ec::kMaxSubbands))
        return kvoErrFilterLen;
    if (numSegments == 0 || numSegments > static_cast<Kvo32u>(ec::kMaxSegments) || apOrder == 0)
        return kvoErrRange;
    const Kvo64s S = numSegments, K = numSubbands, P = apOrder;
    if (!rowsPresent(ppRefRows, S + P - 1) || !rowsPresent(ppCoefRows, S) ||
        !rowsPresent(ppStep, P) || !rowsPresent(ppErr, P))
        return kvoErrNullPtr;
    const Kvo64f invP = static_cast<Kvo32f>(1.0f / static_cast<Kvo32f>(apOrder));
    for (Kvo64s s = 0; s < S; ++s) {
        Kvo32fc* h = ppCoefRows[s];
        for (Kvo64s k = 0; k < K; ++k) {
            Kvo64f accR = 0.0, accI = 0.0;
            for (Kvo64s j = 0; j < P; ++j) {
                const Kvo32fc e = ppErr[j][k];
                const Kvo32fc x = ppRefRows[s + j][k];
                const Kvo64f m = ppStep[j][k];
                const Kvo64f xr = x.re, xi = static_cast<Kvo32f>(0.0f - x.im);
                const Kvo64f er = e.re, ei = e.im;
                accR += (er * xr - ei * xi) * m;
                accI += (xr * ei + er * xi) * m;
            }
            h[k].re += static_cast<Kvo32f>(accR * invP);
            h[k].im += static_cast<Kvo32f>(accI * invP);
        }
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
