// Echo-path noise filter: the noise detector.  Frame by frame it decides
// whether the last samples are noise alone, from the shape of the 128-point
// power spectrum (the middle band not above the outer ones, no narrow peak in
// any band, enough slope changes), the zero-crossing count, the mean of the
// signal, and the stationarity of the short-term power over a run of
// candidate frames.  An accepted frame replaces the noise spectrum outright.
// The moderate form adds a gate on a second signal (the far end of an echo
// path): integer powers of both, smoothed with 312/16384 per group of 8
// samples, compared in tenths.
//
// Powers, spectra and their ratios are double precision; the running means
// (dcEstimate, noiseMean) are kept in single precision.  Zero crossings are
// the sign changes of products taken in double precision, which are exact for
// any pair of floats.  The peak measure of a band and the run length derived
// from the long-term power are truncated to integers; the comparisons are
// made on the untruncated values where that gives the same answer, and the
// run length saturates for powers beyond any 16-bit signal.
#include <cstdint>
#include <cstring>

#include <emmintrin.h>

#include "impl.h"
#include "noise/nf_ec.h"

namespace kvo::nf {

// Counts the sign changes between neighbours of x[0 .. n-1] less an offset: the places
// where the product of neighbours is negative.  The product of two floats is exact in
// double precision and never rounds to zero, so its sign is that of the two factors
// compared with zero (zeros and NaN count as no change either way).  Scalar form, the
// twin of the SSE2 one below.
Kvo32s zeroCrossingsScalar(const Kvo32f* x, Kvo32s n, Kvo32f offset) {
    Kvo32s z = 0;
    for (Kvo32s i = 1; i < n; ++i) {
        const Kvo32f a = x[i - 1] - offset, b = x[i] - offset;
        z += (a > 0.0f && b < 0.0f) || (a < 0.0f && b > 0.0f) ? 1 : 0;
    }
    return z;
}

// Four neighbour pairs per step: one above and the other below zero.
Kvo32s zeroCrossings(const Kvo32f* x, Kvo32s n, Kvo32f offset) {
    const __m128 off = _mm_set1_ps(offset), zero = _mm_setzero_ps();
    Kvo32s z = 0, i = 0;
    for (; i + 4 < n; i += 4) {
        const __m128 a = _mm_sub_ps(_mm_loadu_ps(x + i), off);
        const __m128 b = _mm_sub_ps(_mm_loadu_ps(x + i + 1), off);
        const __m128 c = _mm_or_ps(_mm_and_ps(_mm_cmpgt_ps(a, zero), _mm_cmplt_ps(b, zero)),
                                   _mm_and_ps(_mm_cmplt_ps(a, zero), _mm_cmpgt_ps(b, zero)));
        static constexpr Kvo8u kBits[16] = {0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};
        z += kBits[_mm_movemask_ps(c)];
    }
    return i + 1 < n ? z + zeroCrossingsScalar(x + i, n - i, offset) : z;
}

namespace {

Kvo64f mean(const Kvo32f* x, Kvo32s n) {
    Kvo64f acc = 0.0;
    for (Kvo32s i = 0; i < n; ++i) acc += x[i];
    return acc / n;
}

// Ratio limit and zero-crossing limit after the first noise frame, by whether the
// signal mean is small.
void limitRule(KvoFilterNoise32fState* s, bool small) {
    s->ratioLimit = small ? 1.065f : 1.025f;
    if (s->sampleFreq == 8000)
        s->zcLimit = small ? 42 : 21;
    else
        s->zcLimit = small ? 21 : 7;
}

bool smallMean(Kvo32f dc) {
    return dc > -50.0f && dc < 50.0f;
}

// Spectral shape test: the middle band's mean power not above 0.9375 times the sum of
// the outer bands' means, and no band with a narrow peak.
bool spectralCandidate(const KvoFilterNoise32fState* s) {
    const Kvo32s edge[3] = {0, s->bandEdge1, s->bandEdge2};
    Kvo64f M[3], R[3];
    for (int b = 0; b < 3; ++b) {
        const Kvo64f* p = s->powerSpec + edge[b];
        const Kvo32s B = s->bandWidth[b];
        const Kvo32s L = s->peakWin < B - 1 ? s->peakWin : B - 1;
        Kvo64f sum = 0.0;
        for (Kvo32s k = 0; k < B; ++k) sum += p[k];
        M[b] = (sum + 1.0) * s->invBandWidth[b];
        // The window sums, two neighbouring windows per SSE2 operation, each added from
        // 0.0 in the order of its bins; then the largest and the total in window order.
        alignas(16) Kvo64f win[kBins + 1];
        const Kvo32s nw = B - L + 1;
        for (Kvo32s j = 0; j < nw; j += 2) {
            __m128d w = _mm_setzero_pd();
            if (j + 1 < nw) {
                for (Kvo32s k = 0; k < L; ++k) w = _mm_add_pd(w, _mm_loadu_pd(p + j + k));
                _mm_store_pd(win + j, w);
            } else {
                Kvo64f w1 = 0.0;
                for (Kvo32s k = 0; k < L; ++k) w1 += p[j + k];
                win[j] = w1;
            }
        }
        Kvo64f largest = 0.0, total = 0.0;
        for (Kvo32s j = 0; j < nw; ++j) {
            const Kvo64f w = win[j];
            if (j == 0 || w > largest) largest = w;
            total += w;
        }
        // trunc(r) < n exactly when r < n, for an integer n.
        R[b] = largest * (B - s->peakWin) / (total + 1.0);
    }
    return M[1] < 0.9375 * (M[0] + M[2]) && R[0] < 6.0 && R[1] < 3.0 && R[2] < 3.0;
}

// Places k in 0..63 where the slope of the power spectrum changes sign, the slope
// being up where powerSpec[k] <= 0.99 * powerSpec[k + 1], and taken as up before bin 0.
Kvo32s slopeChanges(const Kvo64f* p) {
    Kvo32s c = 0;
    bool up = true;
    for (int k = 0; k < 64; ++k) {
        const bool next = p[k] <= 0.99 * p[k + 1];
        c += next != up ? 1 : 0;
        up = next;
    }
    return c;
}

void accept(KvoFilterNoise32fState* s, const Kvo32f* x, Kvo64f longPow, Kvo32s* pNoiseFlag) {
    *pNoiseFlag = 1;
    s->noiseMean = static_cast<Kvo32f>(0.955 * s->noiseMean + 0.045 * mean(x, s->shortWin));
    s->invLongPower = 1.0 / longPow;
    s->noisePower = longPow;
    s->noiseKnown = 1;
    s->startCount = 0;
    s->needRun = 3;
    s->run = 0;
    limitRule(s, smallMean(s->dcEstimate));
    takeNoiseSpectrum(s);
    resolveLevel(s, longPow);
}

// The decision on the analysed frame x (shortWin samples).  far: the moderate gate.
void decide(KvoFilterNoise32fState* s, const Kvo32f* x, Kvo64f shortPow, Kvo64f longPow, bool far,
            Kvo32s* pNoiseFlag) {
    const Kvo32s sw = s->shortWin;
    analyseBlock(s, x);
    bool candidate = spectralCandidate(s);
    const Kvo32s c = slopeChanges(s->powerSpec);
    const Kvo32s z = zeroCrossings(x, sw, 0.0f);

    if (c > 24 && z > s->zcLimit) {
        candidate = false;
    } else if (candidate) {
        const Kvo64f m = mean(x, sw < 256 ? sw : 256);
        s->dcEstimate = static_cast<Kvo32f>(0.955 * s->dcEstimate + 0.045 * m);
        if (s->noiseKnown != 0) limitRule(s, smallMean(s->dcEstimate) || far);
    }

    bool reject = false;
    if (smallMean(s->dcEstimate)) {
        if (c < 2) {
            reject = true;
        } else if (z >= s->zcFloor) {
            reject = !candidate;
        } else {
            // Few crossings: the spectral shape has no say, only the crossings around the
            // mean.
            const Kvo32s z2 = zeroCrossings(x, sw, s->dcEstimate);
            reject = c > 24 && z2 > s->zcFloor;
        }
    } else {
        const Kvo32s z2 = zeroCrossings(x, sw, s->dcEstimate);
        candidate = !(c > 24 && z2 > s->zcLimit);
        reject = c < 2 || !candidate;
    }

    if (!reject) {
        // Stationarity against the power at the start of the run.
        if (s->run == 0) s->runRefPower = shortPow;
        const Kvo64f r = s->ratioLimit;
        reject = !(s->runRefPower * r >= shortPow && shortPow * r >= s->runRefPower);
    }
    if (reject) {
        s->run = 0;
        s->needRun = 3;
        return;
    }
    if (s->run < INT32_MAX) ++s->run;
    if (s->run != s->needRun) return;
    if (s->noiseKnown != 0 && s->needRun == 3 &&
        (longPow > s->longRatio * s->noisePower || longPow < s->noisePower)) {
        // The long-term power has moved away from the last noise power: wait longer.
        const Kvo64f q = longPow * s->invLongPower;
        const Kvo32s f = !(q < s->maxRunFactor) ? s->maxRunFactor : (q > 0.0 ? Kvo32s(q) : 0);
        s->needRun = 3 * (f + 1);
        return;
    }
    accept(s, x, longPow, pNoiseFlag);
}

// Integer power of the last 16 samples of a history, smoothed per group of 8.
Kvo32s smoothPower(const Kvo32f* last16, Kvo32s P) {
    for (int g = 0; g < 2; ++g) {
        Kvo64s e = 0;
        for (int i = 0; i < 8; ++i) {
            const Kvo64s v = truncSat16(last16[8 * g + i]);
            e += v * v;
        }
        e >>= 3;
        P = static_cast<Kvo32s>((e * 312 + Kvo64s{P} * 16072) >> 14);
    }
    return P;
}

KvoStatus detect(const Kvo32f* pSrc, const Kvo32f* pRefSrc, Kvo64f* pNoisePower, Kvo32f* pNoiseMean,
                 Kvo32s* pNoiseFlag, KvoFilterNoise32fState* pState) {
    KvoFilterNoise32fState* s = recordOf(pState);
    const KvoStatus st = checkRecord(s, false);
    if (st != kvoOk) return st;
    *pNoiseFlag = 0;
    appendFrame(s->pBuffer, s->capacity, &s->fill, pSrc);
    if (pRefSrc != nullptr) appendFrame(s->pRefBuffer, s->refCapacity, &s->refFill, pRefSrc);

    const Kvo32s fill = s->fill, sw = s->shortWin, lw = s->longWin;
    const Kvo32f* buf = s->pBuffer;
    Kvo64f shortPow, longPow;
    if (fill >= lw) {
        // The short window is the end of the long one.
        const Kvo64f sShort = sumSquares(buf + fill - sw, sw);
        const Kvo64f sLong = sumSquares(buf + fill - lw, lw - sw) + sShort;
        shortPow = sShort / sw < 1.0 ? 1.0 : sShort / sw;
        longPow = sLong / lw < 1.0 ? 1.0 : sLong / lw;
    } else {
        shortPow = longPow = meanSquare(buf, fill);
    }
    s->shortPower = static_cast<Kvo32f>(0.8 * shortPow + 0.2 * s->shortPower);

    bool far = false;
    if (pRefSrc != nullptr) {
        s->refPower = smoothPower(s->pRefBuffer + s->refFill - kFrame, s->refPower);
        s->micPower = smoothPower(buf + fill - kFrame, s->micPower);
        // In 128 bits: the stored factors are plain 32-bit values.
        const __int128 ref = s->refPower, mic = s->micPower;
        far = 10 * ref > __int128{s->refFactor} * mic &&
              10 * mic > __int128{s->noiseFactor} * truncSat64(s->noisePower);
    }

    if (fill >= sw) decide(s, buf + fill - sw, shortPow, longPow, far, pNoiseFlag);
    *pNoisePower = s->noisePower;
    *pNoiseMean = s->noiseMean;
    return kvoOk;
}

}  // namespace

}  // namespace kvo::nf

namespace kvo::impl {

KvoStatus kvosFilterNoiseDetect_EC_32f64f(const Kvo32f* pSrc, Kvo64f* pNoisePower,
                                          Kvo32f* pNoiseMean, Kvo32s* pNoiseFlag,
                                          KvoFilterNoise32fState* pState) {
    if (pSrc == nullptr || pNoisePower == nullptr || pNoiseMean == nullptr ||
        pNoiseFlag == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    return nf::detect(pSrc, nullptr, pNoisePower, pNoiseMean, pNoiseFlag, pState);
}

KvoStatus kvosFilterNoiseDetectModerate_EC_32f64f(const Kvo32f* pSrc, const Kvo32f* pRefSrc,
                                                  Kvo64f* pNoisePower, Kvo32f* pNoiseMean,
                                                  Kvo32s* pNoiseFlag,
                                                  KvoFilterNoise32fState* pState) {
    if (pSrc == nullptr || pRefSrc == nullptr || pNoisePower == nullptr || pNoiseMean == nullptr ||
        pNoiseFlag == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    return nf::detect(pSrc, pRefSrc, pNoisePower, pNoiseMean, pNoiseFlag, pState);
}

}  // namespace kvo::impl
