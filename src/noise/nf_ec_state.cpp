// Echo-path noise filter: the record, its size query and initialisation, the
// suppression levels and the smoothing mode, and the helpers that the detector
// and the suppressor share (sample history, analysis FFT, band sum, noise
// spectrum update).
//
// Rates enter through three lengths, by integer division: shortWin =
// rate*128/8000, longWin = rate*1024/8000 and maxRunFactor = rate*3/8000.  The
// size is roundUp32(FFT fftSpec) + roundUp32(max(FFT init, FFT work)) + twice
// roundUp32(4*longWin) + 4992 bytes, the FFT sizes being those that the FFT
// size query reports (with their own alignment slack) for order 7, flag 2,
// hint 2.
#include <array>
#include <cmath>
#include <cstring>

#include <emmintrin.h>

#include "fft/fft.h"
#include "impl.h"
#include "noise/nf_ec.h"
#include "numeric/cpu.h"
#include "numeric/vector.h"

namespace kvo::nf {

namespace {

constexpr Kvo32s roundUp32(Kvo32s v) {
    return (v + 31) & ~Kvo32s{31};
}

// Band geometry: three bands of 14, 34 and 17 bins starting at bins 0, 14, 48.
constexpr Kvo32s kBandEdge1 = 14, kBandEdge2 = 48;
constexpr Kvo32s kBandWidth[3] = {14, 34, 17};
constexpr Kvo32s kBandSumWin = 7;

// Rate-dependent constants of the detector.
struct RateConsts {
    Kvo32s peakWin, zcFloor, unusedWin, zcLimit;
    Kvo32f longRatio;
};
constexpr RateConsts consts(Kvo32s rate) {
    return rate == 8000 ? RateConsts{4, 6, 12, 56, 1.08f} : RateConsts{6, 2, 6, 28, 1.3f};
}

constexpr std::array<Kvo32f, 64> makeWindow(float div) {
    std::array<Kvo32f, 64> w{};
    for (int i = 0; i < 32; ++i) {
        w[i] = static_cast<float>(ec_isbf_hann64_steps[i]) / div;
        w[63 - i] = w[i];
    }
    return w;
}

}  // namespace

// trunc(8192 sin^2(pi i / 63)), i = 0 .. 31.
constexpr Kvo16s ec_isbf_hann64_steps[32] = {
    0,    20,   81,   181,  321,  498,  711,  958,  1236, 1542, 1873, 2227, 2599, 2986, 3384, 3789,
    4198, 4605, 5007, 5400, 5780, 6144, 6487, 6806, 7098, 7361, 7591, 7786, 7944, 8065, 8146, 8186};

alignas(16) constexpr std::array<Kvo32f, 64> ec_isbf_hann64_32f = makeWindow(12288.0f);
alignas(16) constexpr std::array<Kvo32f, 64> ec_isbf_hann64_32f_low = makeWindow(16384.0f);

bool rateSupported(Kvo32s sampleFreq) {
    return sampleFreq == 8000 || sampleFreq == 16000 || sampleFreq == 22050 || sampleFreq == 32000;
}

KvoStatus layoutFor(Kvo32s sampleFreq, Layout* l) {
    Kvo32s fftSpec = 0, init = 0, work = 0;
    const KvoStatus st =
        kvosFFTGetSize_R_32f(kFftOrder, kFftFlag, kFftHint, &fftSpec, &init, &work);
    if (st != kvoOk) return st;
    l->shortWin = sampleFreq * 128 / 8000;
    l->longWin = sampleFreq * 1024 / 8000;
    l->maxRunFactor = sampleFreq * 3 / 8000;
    const Kvo32s bufBytes = roundUp32(4 * l->longWin);
    l->specOff = kRecordArea;
    l->workOff = l->specOff + roundUp32(fftSpec);
    l->bufOff = l->workOff + roundUp32(init > work ? init : work);
    l->refOff = l->bufOff + bufBytes;
    l->total =
        roundUp32(fftSpec) + roundUp32(init > work ? init : work) + 2 * bufBytes + kRecordBytes;
    return kvoOk;
}

KvoStatus checkRecord(const KvoFilterNoise32fState* s, bool withFilter) {
    const Kvo32s rate = s->sampleFreq;
    if (!rateSupported(rate)) return kvoErrOutOfRange;
    Layout l;
    if (layoutFor(rate, &l) != kvoOk) return kvoErrOutOfRange;
    const RateConsts c = consts(rate);
    if (s->shortWin != l.shortWin || s->longWin != l.longWin || s->maxRunFactor != l.maxRunFactor ||
        s->capacity != l.longWin || s->refCapacity != l.longWin || s->fill < 0 ||
        s->fill > s->capacity || s->refFill < 0 || s->refFill > s->refCapacity)
        return kvoErrOutOfRange;
    if (s->bandEdge1 != kBandEdge1 || s->bandEdge2 != kBandEdge2 ||
        s->bandWidth[0] != kBandWidth[0] || s->bandWidth[1] != kBandWidth[1] ||
        s->bandWidth[2] != kBandWidth[2] || s->peakWin != c.peakWin || s->bandSumWin != kBandSumWin)
        return kvoErrOutOfRange;
    // Pointers into the block: a block that has moved since Init fails here.
    const auto* base = reinterpret_cast<const Kvo8u*>(s);
    const auto specMem = reinterpret_cast<std::uintptr_t>(base + l.specOff);
    const auto* fftSpec =
        reinterpret_cast<const KvoFFTSpec32f*>((specMem + 63) & ~std::uintptr_t{63});
    if (s->pFFTSpec != fftSpec || s->pFFTWork != base + l.workOff ||
        s->pBuffer != reinterpret_cast<const Kvo32f*>(base + l.bufOff) ||
        s->pRefBuffer != reinterpret_cast<const Kvo32f*>(base + l.refOff))
        return kvoErrOutOfRange;
    for (int v = 0; v < 9; ++v)
        if (s->pSmooth[v] != s->kernels + v * v) return kvoErrOutOfRange;
    if (fftSpec->idTag != kFftSpec32fTag || fftSpec->self != fftSpec ||
        fftSpec->order != kFftOrder || fftSpec->invScaled != 1)
        return kvoErrOutOfRange;
    if (withFilter) {
        if (s->level < 0 || s->level > 5) return kvoErrOutOfRange;
        if (s->smoothMode < -1 || s->smoothMode > 1) return kvoErrOutOfRange;
        if (!(s->smoothLen >= 0.0 && s->smoothLen < 8.5)) return kvoErrOutOfRange;
    }
    return kvoOk;
}

void appendFrame(Kvo32f* buf, Kvo32s capacity, Kvo32s* pFill, const Kvo32f* src) {
    Kvo32s fill = *pFill;
    if (fill + kFrame > capacity) {
        const Kvo32s drop = fill + kFrame - capacity;
        std::memmove(buf, buf + drop, static_cast<std::size_t>(fill - drop) * sizeof(Kvo32f));
        fill -= drop;
    }
    std::memcpy(buf + fill, src, kFrame * sizeof(Kvo32f));
    *pFill = fill + kFrame;
}

void analyseBlock(KvoFilterNoise32fState* s, const Kvo32f* x) {
    auto* fftSpec = static_cast<const KvoFFTSpec32f*>(s->pFFTSpec);
    kvosFFTFwd_RToCCS_32f(x, &s->spectrum[0].re, fftSpec, s->pFFTWork);
    for (int k = 0; k < kBins; ++k) {
        const Kvo64f re = s->spectrum[k].re, im = s->spectrum[k].im;
        s->powerSpec[k] = re * re + im * im;
    }
}

void bandSum(const Kvo64f* src, Kvo64f* dst, Kvo32s W) {
    Kvo64f acc = 0.0;
    for (Kvo32s k = 0; k < W; ++k) acc += src[k];
    dst[0] = acc;
    for (Kvo32s k = 1; k <= kBins - W; ++k) dst[k] = dst[k - 1] + src[k + W - 1] - src[k - 1];
    for (Kvo32s k = kBins + 1 - W; k < kBins; ++k) dst[k] = dst[k - (W - 1)];
}

void takeNoiseSpectrum(KvoFilterNoise32fState* s) {
    std::memcpy(s->noiseSpec, s->powerSpec, sizeof(s->noiseSpec));
    kvosThreshold_LTInv_64f(s->powerSpec, s->invNoiseSpec, kBins, 1.0);
    alignas(16) Kvo64f band[kBins];
    bandSum(s->noiseSpec, band, s->bandSumWin);
    kvosThreshold_LTInv_64f(band, s->invNoiseBand, kBins, 1.0);
}

void resolveLevel(KvoFilterNoise32fState* s, Kvo64f power) {
    if (s->levelResolved != 0) return;
    s->level = std::sqrt(1.0 + power) < 4.0 ? 0 : 2;
    s->levelResolved = 1;
}

// Sixteen partial sums, one per index modulo 16, added pairwise at the end.  Each
// square of a float is exact in double precision, and for samples at integer values
// (16-bit audio) every partial sum is exact too, so there the result does not depend on
// the order of the additions; for other values it is within n * 2^-53 of the exact sum.
Kvo64f sumSquaresScalar(const Kvo32f* x, Kvo32s n) {
    Kvo64f a[16] = {};
    Kvo32s i = 0;
    for (; i + 16 <= n; i += 16)
        for (int j = 0; j < 16; ++j) a[j] += static_cast<Kvo64f>(x[i + j]) * x[i + j];
    for (; i < n; ++i) a[0] += static_cast<Kvo64f>(x[i]) * x[i];
    for (int w = 8; w >= 1; w /= 2)
        for (int j = 0; j < w; ++j) a[j] += a[j + w];
    return a[0];
}

Kvo64f sumSquaresSse2(const Kvo32f* x, Kvo32s n) {
    // The same sixteen partial sums in eight SSE2 registers (lanes 2r and 2r + 1 in
    // register r), so the result is that of the scalar loop bit for bit, with eight
    // independent addition chains instead of one per partial sum in turn.
    __m128d acc[8];
    for (__m128d& r : acc) r = _mm_setzero_pd();
    Kvo32s i = 0;
    for (; i + 16 <= n; i += 16) {
        for (int q = 0; q < 4; ++q) {
            const __m128 v = _mm_loadu_ps(x + i + 4 * q);
            const __m128d lo = _mm_cvtps_pd(v);
            const __m128d hi = _mm_cvtps_pd(_mm_movehl_ps(v, v));
            acc[2 * q] = _mm_add_pd(acc[2 * q], _mm_mul_pd(lo, lo));
            acc[2 * q + 1] = _mm_add_pd(acc[2 * q + 1], _mm_mul_pd(hi, hi));
        }
    }
    alignas(16) Kvo64f a[16];
    for (int r = 0; r < 8; ++r) _mm_store_pd(a + 2 * r, acc[r]);
    for (; i < n; ++i) a[0] += static_cast<Kvo64f>(x[i]) * x[i];
    for (int w = 8; w >= 1; w /= 2)
        for (int j = 0; j < w; ++j) a[j] += a[j + w];
    return a[0];
}

Kvo64f sumSquares(const Kvo32f* x, Kvo32s n) {
    static_assert(sizeof(Kvo64f) == 8);
    return cpuHasAvx2() ? sumSquaresAvx2(x, n) : sumSquaresSse2(x, n);
}

Kvo64f meanSquare(const Kvo32f* x, Kvo32s n) {
    const Kvo64f acc = sumSquares(x, n) / n;
    return acc < 1.0 ? 1.0 : acc;
}

Kvo16s truncSat16(Kvo64f v) {
    if (v != v) return 0;
    if (v >= 32767.0) return 32767;
    if (v <= -32768.0) return -32768;
    return static_cast<Kvo16s>(v);
}

Kvo64s truncSat64(Kvo64f v) {
    if (v != v) return 0;
    if (v >= 9.2233720368547758e18) return INT64_MAX;
    if (v <= -9.2233720368547758e18) return INT64_MIN;
    return static_cast<Kvo64s>(v);
}

}  // namespace kvo::nf

namespace kvo::impl {

using namespace kvo::nf;

KvoStatus kvosFilterNoiseGetStateSize_EC_32f(Kvo32s sampleFreq, Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    if (!rateSupported(sampleFreq)) return kvoErrRange;
    Layout l;
    const KvoStatus st = layoutFor(sampleFreq, &l);
    if (st != kvoOk) return st;
    *pSize = l.total;
    return kvoOk;
}

KvoStatus kvosFilterNoiseLevel_EC_32f(Kvo32s level, KvoFilterNoise32fState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    KvoFilterNoise32fState* s = recordOf(pState);
    s->level = level;
    if (static_cast<Kvo32u>(level) > 5u) return kvoErrRange;
    if (level == 0) return kvoOk;
    struct Row {
        Kvo32f strength, floorLow, floorHigh, guardGain, aGuard, bGuard, gainStart, gainRamp,
            gainBase;
        Kvo32s rampDiv, resolved;
    };
    static constexpr Row kRows[6] = {
        {},
        {0.03125f, 0.25f, 0.4f, 0.08f, 0.998f, 0.002f, 0.02f, 0.04f, 0.06f, 40, 1},
        {0.03125f, 0.003f, 0.275f, 1.0f, 0.991f, 0.009f, 0.5f, 0.2f, 0.3f, 40, 1},
        {0.03125f, 0.003f, 0.275f, 0.5f, 0.981f, 0.019f, 0.5f, 0.2f, 0.3f, 40, 1},
        {0.00390625f, 0.003f, 0.04f, 0.0625f, 0.981f, 0.019f, 0.015f, 0.04f, 0.6f, 100, 1},
        {0.03125f, 0.003f, 0.275f, 1.0f, 0.991f, 0.009f, 0.5f, 0.2f, 0.3f, 40, 0},
    };
    const Row& r = kRows[level];
    s->strength = r.strength;
    s->floorLow = r.floorLow;
    s->floorHigh = r.floorHigh;
    s->guardGain = r.guardGain;
    s->aGuard = r.aGuard;
    s->bGuard = r.bGuard;
    s->gainStart = r.gainStart;
    s->gainRamp = r.gainRamp;
    s->gainBase = r.gainBase;
    if (s->filterStarted == 0) s->rampCount = s->sampleFreq / r.rampDiv;
    s->levelResolved = r.resolved;
    return kvoOk;
}

KvoStatus kvosFilterNoiseSetMode_EC_32f(Kvo32s smoothMode, KvoFilterNoise32fState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    if (smoothMode < -1 || smoothMode > 1) return kvoErrBadArg;
    recordOf(pState)->smoothMode = smoothMode;
    return kvoOk;
}

KvoStatus kvosFilterNoiseInit_EC_32f(Kvo32s sampleFreq, KvoFilterNoise32fState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    if (!rateSupported(sampleFreq)) return kvoErrRange;
    Layout l;
    KvoStatus st = layoutFor(sampleFreq, &l);
    if (st != kvoOk) return st;
    KvoFilterNoise32fState* s = recordOf(pState);
    auto* base = reinterpret_cast<Kvo8u*>(s);
    KvoFFTSpec32f* fftSpec = nullptr;
    st = kvosFFTInit_R_32f(&fftSpec, kFftOrder, kFftFlag, kFftHint, base + l.specOff, nullptr);
    if (st != kvoOk) return st;

    // Every field, then the arrays and histories: the record needs no clearing beforehand.
    std::memset(s, 0, sizeof(*s));
    s->pFFTSpec = fftSpec;
    s->pFFTWork = base + l.workOff;
    s->pBuffer = reinterpret_cast<Kvo32f*>(base + l.bufOff);
    s->pRefBuffer = reinterpret_cast<Kvo32f*>(base + l.refOff);
    std::memset(s->pBuffer, 0, static_cast<std::size_t>(l.longWin) * sizeof(Kvo32f));
    std::memset(s->pRefBuffer, 0, static_cast<std::size_t>(l.longWin) * sizeof(Kvo32f));
    std::memset(s->pFFTWork, 0, static_cast<std::size_t>(l.bufOff - l.workOff));

    // Smoothing kernels: 2v + 1 taps, tap p = floor(min(p, 2v - p) / 2) + 0.5, normalised.
    for (int v = 0; v < 9; ++v) {
        Kvo32f* k = s->kernels + v * v;
        s->pSmooth[v] = k;
        Kvo32f sum = 0.0f;
        for (int p = 0; p <= 2 * v; ++p) {
            const int m = p < 2 * v - p ? p : 2 * v - p;
            k[p] = static_cast<Kvo32f>(m / 2) + 0.5f;
            sum += k[p];
        }
        for (int p = 0; p <= 2 * v; ++p) k[p] /= sum;
    }
    for (int k = 0; k < kBins; ++k) s->invNoiseSpec[k] = 1.0;
    for (int k = 0; k < 4; ++k) s->minGainHist[k] = 1.0f;

    const RateConsts c = consts(sampleFreq);
    s->sampleFreq = sampleFreq;
    s->shortWin = l.shortWin;
    s->longWin = l.longWin;
    s->maxRunFactor = l.maxRunFactor;
    s->capacity = l.longWin;
    s->refCapacity = l.longWin;
    s->smoothLen = 1.0;
    s->ratioLimit = 3.0f;
    s->rampLen = 80.0f;
    s->needRun = 3;
    s->bandEdge1 = kBandEdge1;
    s->bandEdge2 = kBandEdge2;
    s->zcLimit = c.zcLimit;
    s->startCount = 400;
    s->peakWin = c.peakWin;
    s->zcFloor = c.zcFloor;
    s->unusedWin = c.unusedWin;
    s->bandSumWin = kBandSumWin;
    for (int b = 0; b < 3; ++b) {
        s->bandWidth[b] = kBandWidth[b];
        s->invBandWidth[b] = 1.0f / static_cast<Kvo32f>(kBandWidth[b]);
    }
    s->longRatio = c.longRatio;
    s->smoothMode = 1;
    s->refFactor = 11;
    s->noiseFactor = 12;
    impl::kvosFilterNoiseLevel_EC_32f(5, s);
    return kvoOk;
}

}  // namespace kvo::impl
