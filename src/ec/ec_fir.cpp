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
//  - The rounded right shift (p + 2^(d-1)) >> d is evaluated without 64-bit overflow.
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

Kvo64s updateAddend(Kvo64s p, Kvo64s d) {
    if (d >= 64) return 0;
    if (d >= 0) {
        const __int128 c = d >= 2 ? (__int128{1} << (d - 1)) : 0;
        return static_cast<Kvo64s>((__int128{p} + c) >> d);
    }
    const Kvo64s L = -d;
    const Kvo64s lim = L >= 63 ? 0 : (INT64_MAX >> L);
    if (p >= lim) return 4294967294LL;
    if (p <= -lim) return -4294967296LL;
    return static_cast<Kvo64s>(static_cast<Kvo64u>(p) << L);
}

}  // namespace ec

namespace {

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

// Coefficient plus a 64-bit addend, saturated to 32 bits (the sum taken exactly).
inline Kvo32s addSat32(Kvo32s h, Kvo64s a) {
    const __int128 v = __int128{h} + a;
    return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : static_cast<Kvo32s>(v));
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
    for (int k = 0; k < numSubbands; ++k) {
        Kvo64s accR = 0, accI = 0;
        for (int r = 0; r < numSegments; ++r) {
            const Kvo64s xr = ppRefRows[r][k].re, xi = ppRefRows[r][k].im;
            const Kvo64s hr = ppCoefRows[r][k].re, hi = ppCoefRows[r][k].im;
            // |xr*hr - xi*hi| < 2^63 for 32-bit operands; the imaginary sum reaches 2^63
            // only for four operands of -2^31 and saturates there.
            const Kvo64s re = xr * hr - xi * hi;
            const Kvo64s im = addSat64(xr * hi, xi * hr);
            accR = addSat64(accR, re);
            accI = addSat64(accI, im);
        }
        pDst[k].re = scaleAcc(accR, scaleFactor);
        pDst[k].im = scaleAcc(accI, scaleFactor);
    }
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
    for (int k = 0; k < numSubbands; ++k) {
        const Kvo32s m = pStep[k].mantissa;
        const Kvo64s er = scaleErr(pErr[k].re, m), ei = scaleErr(pErr[k].im, m);
        const Kvo64s d = Kvo64s{pStep[k].exponent} - scaleFactor - 31;
        for (int r = 0; r < numSegments; ++r) {
            const Kvo64s xr = ppRefRows[r][k].re;
            const Kvo64s xi = negSat(ppRefRows[r][k].im);
            const Kvo64s pr = er * xr - ei * xi;
            const Kvo64s pi = ei * xr + er * xi;
            Kvo32sc& h = ppCoefRows[r][k];
            h.re = addSat32(h.re, ec::updateAddend(pr, d));
            h.im = addSat32(h.im, ec::updateAddend(pi, d));
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
    for (int k = startSubband; k < numSubbands; ++k) {
        const Kvo32s m = pStep[k].mantissa;  // not tested in this form
        const Kvo32s er = scaleErr(pErr[k].re, m), ei = scaleErr(pErr[k].im, m);
        pScaledErr[k].re = er;
        pScaledErr[k].im = ei;
        const Kvo64s d = Kvo64s{pStep[k].exponent} - scaleFactor - 31;
        for (int r = 0; r < numSegments; ++r) {
            const Kvo64s xr = ppRefRows[r][k].re;
            const Kvo64s xi = lo32(-Kvo64s{ppRefRows[r][k].im});  // plain 32-bit negation
            const Kvo64s pr = Kvo64s{er} * xr - Kvo64s{ei} * xi;
            const Kvo64s pi = Kvo64s{ei} * xr + Kvo64s{er} * xi;
            const Kvo64s ar = ec::updateAddend(pr, d), ai = ec::updateAddend(pi, d);
            Kvo32sc& h = ppCoefRows[r][k];
            if (d >= 0) {  // 32-bit wrap
                h.re =
                    lo32(static_cast<Kvo64s>(static_cast<Kvo64u>(h.re) + static_cast<Kvo64u>(ar)));
                h.im =
                    lo32(static_cast<Kvo64s>(static_cast<Kvo64u>(h.im) + static_cast<Kvo64u>(ai)));
            } else {
                h.re = addSat32(h.re, ar);
                h.im = addSat32(h.im, ai);
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
