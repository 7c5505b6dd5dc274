// Echo-path noise filter: the suppressor.  Per frame of 16 samples:
//   1. analysis (a 128-point spectrum, unless a detector made it for the frame);
//   2. a real gain per bin from the frame's power over the noise spectrum, the
//      inverse FFT and a 64-tap windowed overlap-add at a hop of 16;
//   3. an optional short symmetric FIR whose length follows the depth of the
//      suppression over the last frames;
//   4. the start-up attenuation, the ramp after the first noise frame, and at
//      level 3 a guard that lowers residual noise.
// Stages 2 and 3 delay the signal by 56 samples; at level 0 they are skipped.
// Time signals, gains and windows are single precision; SNRs per bin and their
// means are double precision, rounded where the rule keeps them in single
// precision.  The ramp gain of a declared-noise stream is applied by truncating
// to 16-bit integers, as the published filter does.
#include <cstring>

#include <emmintrin.h>

#include "fft/fft.h"
#include "impl.h"
#include "noise/nf_ec.h"

namespace kvo::nf {

namespace {

Kvo64f clampSnr(Kvo64f g) {
    return g < 1.0 ? 1.0 : (g > 32767.0 ? 32767.0 : g);
}

const Kvo32f* windowOf(Kvo32s level) {
    return level == 3 || level == 4 ? ec_isbf_hann64_32f_low.data() : ec_isbf_hann64_32f.data();
}

void shiftOla(KvoFilterNoise32fState* s) {
    std::memmove(s->olaOut, s->olaOut + kFrame, (64 - kFrame) * sizeof(Kvo32f));
    std::memset(s->olaOut + 64 - kFrame, 0, kFrame * sizeof(Kvo32f));
}

// Saturation to 16-bit amplitude, then the low rule's dead zone (|x| < 0.5 gives 0) or
// the high rule's floor (|x| < 0.05 gives 0.05 with the sign, + for zero).  Scalar form,
// kept as the twin of the SSE2 one below.
void finishOlaScalar(Kvo32f* ola, bool high) {
    for (int i = 0; i < 64; ++i) {
        Kvo32f v = ola[i];
        v = v > 32767.0f ? 32767.0f : (v < -32768.0f ? -32768.0f : v);
        if (high) {
            if (v > -0.05f && v < 0.05f) v = v < 0.0f ? -0.05f : 0.05f;
        } else if (v > -0.5f && v < 0.5f) {
            v = 0.0f;
        }
        ola[i] = v;
    }
}

// The same with four samples at a time.  min(c, v) and max(c, v) return v when v is NaN,
// as the comparisons above leave it.
void finishOlaSse2(Kvo32f* ola, bool high) {
    const __m128 top = _mm_set1_ps(32767.0f), bottom = _mm_set1_ps(-32768.0f);
    const __m128 edge = _mm_set1_ps(high ? 0.05f : 0.5f), zero = _mm_setzero_ps();
    const __m128 nedge = _mm_set1_ps(high ? -0.05f : -0.5f);
    for (int i = 0; i < 64; i += 4) {
        __m128 v = _mm_max_ps(bottom, _mm_min_ps(top, _mm_loadu_ps(ola + i)));
        const __m128 in = _mm_and_ps(_mm_cmpgt_ps(v, nedge), _mm_cmplt_ps(v, edge));
        __m128 r = zero;
        if (high)
            r = _mm_or_ps(_mm_and_ps(_mm_cmplt_ps(v, zero), nedge),
                          _mm_andnot_ps(_mm_cmplt_ps(v, zero), edge));
        v = _mm_or_ps(_mm_and_ps(in, r), _mm_andnot_ps(in, v));
        _mm_storeu_ps(ola + i, v);
    }
}

void finishOla(KvoFilterNoise32fState* s, bool high) {
    finishOlaSse2(s->olaOut, high);
}

// Before the history holds 128 samples: the input runs through a 64-sample FIFO and the
// same window and overlap-add as the spectral path, with the same delay.
void startupPath(const Kvo32f* frame, KvoFilterNoise32fState* s, bool high) {
    const Kvo32f* w = windowOf(s->level);
    shiftOla(s);
    std::memmove(s->synthBlock, s->synthBlock + kFrame, 48 * sizeof(Kvo32f));
    std::memcpy(s->synthBlock + 48, frame, kFrame * sizeof(Kvo32f));
    for (int i = 0; i < 64; ++i) s->olaOut[i] += s->synthBlock[i] * w[i];
    finishOla(s, high);
}

// Applies the gains, records the smallest of bins 3..63, and overlap-adds the second half
// of the inverse transform.
void synthesise(KvoFilterNoise32fState* s, const Kvo32f* G, bool high) {
    for (int k = 0; k < kBins; ++k) {
        s->spectrum[k].re *= G[k];
        s->spectrum[k].im *= G[k];
    }
    Kvo32f least = G[3];
    for (int k = 4; k < 64; ++k) least = G[k] < least ? G[k] : least;
    s->minGainHist[0] = s->minGainHist[1];
    s->minGainHist[1] = s->minGainHist[2];
    s->minGainHist[2] = s->minGainHist[3];
    s->minGainHist[3] = least;
    kvosFFTInv_CCSToR_32f(&s->spectrum[0].re, s->synthBlock,
                          static_cast<const KvoFFTSpec32f*>(s->pFFTSpec), s->pFFTWork);
    const Kvo32f* w = windowOf(s->level);
    shiftOla(s);
    for (int i = 0; i < 64; ++i) s->olaOut[i] += s->synthBlock[64 + i] * w[i];
    finishOla(s, high);
}

// Output half of stage 3: the middle 16 samples of the two blocks, or their FIR.
void smoothOutput(KvoFilterNoise32fState* s, Kvo32f* y) {
    std::memcpy(s->smoothBuf, s->smoothBuf + kFrame, kFrame * sizeof(Kvo32f));
    std::memcpy(s->smoothBuf + kFrame, s->olaOut, kFrame * sizeof(Kvo32f));
    Kvo64f t = (1.0 - s->minGainHist[0]) * 8.0;
    if (t > 7.5) t = 8.0;
    s->smoothLen = 0.001 * (t > 1.0 ? t : 1.0) + 0.999 * s->smoothLen;
    const Kvo32f* mid = s->smoothBuf + 8;
    if (s->noiseKnown != 0 && s->noisePower < 2.0) {
        std::memcpy(y, mid, kFrame * sizeof(Kvo32f));
        return;
    }
    // The record check keeps smoothLen below 8.5, so v stays within the kernels.
    Kvo32s v = s->smoothMode == 0 ? 8 : static_cast<Kvo32s>(0.5 + s->smoothLen);
    if (v > 8) v = 8;
    if (v == 0 || s->smoothMode == 1) {
        std::memcpy(y, mid, kFrame * sizeof(Kvo32f));
        return;
    }
    const Kvo32f* k = s->pSmooth[v];
    for (int n = 0; n < kFrame; ++n) {
        const Kvo32f* x = mid + n - v;
        Kvo32f acc = 0.0f;
        for (Kvo32s p = 0; p <= 2 * v; ++p) acc += k[p] * x[p];
        y[n] = acc;
    }
}

void scale(Kvo32f* y, int n, Kvo32f g) {
    for (int i = 0; i < n; ++i) y[i] *= g;
}

// Stage 4: start-up attenuation, ramp, and the residual-noise guard of level 3.
void levelGain(KvoFilterNoise32fState* s, Kvo32f* y) {
    if (s->startCount >= 1) {
        scale(y, kFrame, s->gainStart);
        s->startCount -= kFrame;
    } else if (s->rampCount >= 1) {
        s->rampCount -= kFrame;
        if (s->shortPower * 1.07 > s->powIn) {
            scale(y, kFrame, s->gainRamp);
        } else if (s->noiseKnown != 0 && s->powIn < 1.07 * static_cast<Kvo32f>(s->noisePower)) {
            const Kvo32f q = s->gainBase + (s->rampLen - static_cast<Kvo32f>(s->rampCount)) *
                                               s->gainBase / s->rampLen;
            for (int i = 0; i < kFrame; ++i) y[i] = truncSat16(q * y[i]);
        }
    }
    if (s->level == 3 && s->fill >= 48) {
        for (int b = 0; b < 2; ++b) {
            const Kvo32f* x = s->pBuffer + s->fill - 48 + 8 * b;
            Kvo32f* yb = y + 8 * b;
            Kvo32f ex = 0.0f, ey = 0.0f;
            for (int i = 0; i < 8; ++i) {
                ex += x[i] * x[i];
                ey += yb[i] * yb[i];
            }
            s->powIn = s->aGuard * s->powIn + s->bGuard * ex / 8.0f;
            s->powOut = s->aGuard * s->powOut + s->bGuard * ey / 8.0f;
            if (s->startCount < 1 && s->rampCount < 1 && s->powIn > 2.3 * s->powOut)
                scale(yb, 8, s->guardGain);
        }
    }
}

KvoStatus filterFrame(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s noiseFlag,
                      KvoFilterNoise32fState* pState) {
    KvoFilterNoise32fState* s = recordOf(pState);
    const KvoStatus st = checkRecord(s, true);
    if (st != kvoOk) return st;
    alignas(16) Kvo32f in[kFrame];
    alignas(16) Kvo32f y[kFrame];
    std::memcpy(in, pSrc, sizeof(in));

    s->filterStarted = 1;
    if (noiseFlag != -1) {
        appendFrame(s->pBuffer, s->capacity, &s->fill, in);
        if (s->fill >= kFft) analyseBlock(s, s->pBuffer + s->fill - kFft);
    }
    if (noiseFlag == 1 && s->fill >= kFft) {
        // The caller declares the frame to be noise.
        takeNoiseSpectrum(s);
        s->noiseKnown = 1;
        s->startCount = 0;
        const Kvo32s n = s->fill >= s->shortWin ? s->shortWin : kFft;
        s->noisePower = meanSquare(s->pBuffer + s->fill - n, n);
        resolveLevel(s, s->noisePower);
    }
    if (s->level != 0) {
        if (s->level == 4)
            filterNoise_EC_32f_high(in, s);
        else
            filterNoise_EC_32f_low(in, s);
        smoothOutput(s, y);
    } else {
        std::memcpy(y, in, sizeof(y));
    }
    levelGain(s, y);
    std::memcpy(pDst, y, sizeof(y));
    return kvoOk;
}

}  // namespace

void lowGainsScalar(KvoFilterNoise32fState* s, Kvo32f* G) {
    for (int k = 0; k < kBins; ++k) {
        const Kvo64f g = clampSnr(s->powerSpec[k] * s->invNoiseSpec[k]);
        s->snrAvg[k] = static_cast<Kvo32f>((s->snrAvg[k] + g) * 0.5);
        Kvo32f gk = static_cast<Kvo32f>(s->snrAvg[k] * s->strength);
        const Kvo32f lowest = k < 3 ? s->floorLow : s->floorHigh;
        if (gk < lowest) gk = lowest;
        G[k] = gk > 1.0f ? 1.0f : gk;
    }
}

void lowGains(KvoFilterNoise32fState* s, Kvo32f* G) {
    // Two bins per SSE2 operation in double precision, four in single: the operations
    // and their order per bin are those of the scalar loop.
    const __m128d one = _mm_set1_pd(1.0), most = _mm_set1_pd(32767.0), half = _mm_set1_pd(0.5);
    const __m128d str = _mm_set1_pd(static_cast<Kvo64f>(s->strength));
    const __m128 high = _mm_set1_ps(s->floorHigh), onef = _mm_set1_ps(1.0f);
    auto two = [&](int k) {
        const __m128d p =
            _mm_mul_pd(_mm_loadu_pd(s->powerSpec + k), _mm_loadu_pd(s->invNoiseSpec + k));
        const __m128d g = _mm_min_pd(most, _mm_max_pd(one, p));
        const __m128 a32 =
            _mm_cvtpd_ps(_mm_mul_pd(_mm_add_pd(_mm_loadu_pd(s->snrAvg + k), g), half));
        const __m128d a = _mm_cvtps_pd(a32);
        _mm_storeu_pd(s->snrAvg + k, a);
        return _mm_cvtpd_ps(_mm_mul_pd(a, str));
    };
    for (int k = 0; k < 64; k += 4) {
        const __m128 gk = _mm_movelh_ps(two(k), two(k + 2));
        const __m128 lowest =
            k == 0 ? _mm_setr_ps(s->floorLow, s->floorLow, s->floorLow, s->floorHigh) : high;
        _mm_storeu_ps(G + k, _mm_min_ps(onef, _mm_max_ps(lowest, gk)));
    }
    const Kvo64f g = clampSnr(s->powerSpec[64] * s->invNoiseSpec[64]);
    s->snrAvg[64] = static_cast<Kvo32f>((s->snrAvg[64] + g) * 0.5);
    Kvo32f gk = static_cast<Kvo32f>(s->snrAvg[64] * s->strength);
    if (gk < s->floorHigh) gk = s->floorHigh;
    G[64] = gk > 1.0f ? 1.0f : gk;
}

void finishOlaTwins(Kvo32f* ola, bool high, bool simd) {
    if (simd)
        finishOlaSse2(ola, high);
    else
        finishOlaScalar(ola, high);
}

int filterNoise_EC_32f_low(const Kvo32f* frame, KvoFilterNoise32fState* s) {
    if (s->strength == 0.0f) return 0;
    if (s->fill < kFft) {
        startupPath(frame, s, false);
        return 0;
    }
    alignas(16) Kvo32f G[kBins];
    lowGains(s, G);
    synthesise(s, G, false);
    return 0;
}

int filterNoise_EC_32f_high(const Kvo32f* frame, KvoFilterNoise32fState* s) {
    if (s->strength == 0.0f) return 0;
    if (s->fill < kFft) {
        startupPath(frame, s, true);
        return 0;
    }
    constexpr Kvo64f a = 0.12f, b = 0.88f;
    Kvo64f t = 0.0;
    for (int k = 0; k < kBins; ++k) {
        const Kvo64f g = clampSnr(s->powerSpec[k] * s->invNoiseSpec[k]);
        s->snrAvg[k] = a * s->snrAvg[k] + b * g;
        t += s->snrAvg[k] < 2048.0 ? s->snrAvg[k] : 2048.0;
    }
    s->meanSnr = 0.98 * t / 65.0 + 0.02 * s->meanSnr;
    alignas(16) Kvo64f S[kBins];
    bandSum(s->powerSpec, S, s->bandSumWin);
    alignas(16) Kvo32f G[kBins];
    for (int k = 0; k < kBins; ++k) {
        const Kvo32f h = static_cast<Kvo32f>(clampSnr(S[k] * s->invNoiseBand[k]) * b);
        s->bandSnrAvg[k] = 0.12f * s->bandSnrAvg[k] + h;
        const Kvo32f gk = static_cast<Kvo32f>((s->bandSnrAvg[k] + s->meanSnr) * 0.5 * s->strength);
        G[k] = gk > 1.0f ? 1.0f : gk;
    }
    synthesise(s, G, true);
    return 0;
}

}  // namespace kvo::nf

namespace kvo::impl {

KvoStatus kvosFilterNoise_EC_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s noiseFlag,
                                 KvoFilterNoise32fState* pState) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr) return kvoErrNullPtr;
    return nf::filterFrame(pSrc, pDst, noiseFlag, pState);
}

KvoStatus kvosFilterNoise_EC_32f_I(Kvo32f* pSrcDst, Kvo32s noiseFlag,
                                   KvoFilterNoise32fState* pState) {
    if (pSrcDst == nullptr || pState == nullptr) return kvoErrNullPtr;
    return nf::filterFrame(pSrcDst, pSrcDst, noiseFlag, pState);
}

}  // namespace kvo::impl
