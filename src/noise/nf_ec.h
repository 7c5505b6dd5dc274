// Echo-path noise filter: shared layout, constants and workers of the detector
// (nf_ec_detect.cpp), the suppressor (nf_ec_filter.cpp) and the record set-up
// (nf_ec_state.cpp).
//
// The filter works in frames of 16 float samples at 16-bit amplitude, on a
// 128-point real FFT (order 7, inverse divided by 128) at every sampling rate;
// spectra have 65 bins.  Powers and spectral ratios are double precision, the
// time signal, gains and windows single precision.
//
// Block layout.  The caller's block holds, from the record's base b:
//   [0, kRecordArea)             KvoFilterNoise32fState
//   specOff                      FFT set-up record (its own 64-byte slack)
//   workOff                      FFT work area (its own 64-byte slack)
//   bufOff, refOff               the two sample histories, 4 * longWin bytes each
// b is the caller's pointer when that is 8-byte aligned (the record's widest
// field), else the next 8-byte boundary: the 8 bytes by which kRecordArea
// falls short of the 4992 of the size formula are that slack, so every region
// stays inside the size the query reports.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kvosc_types.h"

namespace kvo::nf {

inline constexpr int kFrame = 16;  // samples per call, at every rate
inline constexpr int kFft = 128;   // transform length
inline constexpr int kFftOrder = 7;
inline constexpr int kFftFlag = 2;  // inverse divided by N
inline constexpr int kFftHint = 2;
inline constexpr int kBins = 65;              // bins 0 .. N/2
inline constexpr Kvo32s kRecordBytes = 4992;  // record share of the size formula
inline constexpr Kvo32s kRecordArea = kRecordBytes - 8;

static_assert(sizeof(KvoFilterNoise32fState) <= static_cast<std::size_t>(kRecordArea),
              "record outgrows its share of the block");
static_assert(alignof(KvoFilterNoise32fState) <= 8, "record needs at most 8-byte alignment");

// Byte offsets of the regions from the record's base, for one rate.
struct Layout {
    Kvo32s specOff, workOff, bufOff, refOff;
    Kvo32s total;  // the size query's result (from the caller's pointer)
    Kvo32s shortWin, longWin, maxRunFactor;
};

// True for 8000, 16000, 22050 and 32000 Hz.
bool rateSupported(Kvo32s sampleFreq);
// Layout of a supported rate; the FFT size query's status otherwise (never fails for
// order 7).
KvoStatus layoutFor(Kvo32s sampleFreq, Layout* pLayout);

// The record inside the caller's block: its first 8-byte boundary.
inline KvoFilterNoise32fState* recordOf(KvoFilterNoise32fState* pState) {
    const auto a = reinterpret_cast<std::uintptr_t>(pState);
    return reinterpret_cast<KvoFilterNoise32fState*>((a + 7) & ~std::uintptr_t{7});
}

// Checks what a per-frame call relies on: the rate and its lengths, the fill counts,
// the fixed band geometry, the pointers into the block (a moved block fails) and the
// FFT set-up record's identity.  withFilter adds the fields of the suppressor: level
// 0 to 5, smoothing mode -1 to 1, and a smoothed FIR length from 0 to below 8.5.
// kvoOk, or kvoErrOutOfRange for a damaged record.
KvoStatus checkRecord(const KvoFilterNoise32fState* s, bool withFilter);

// Appends 16 samples to a history of `capacity` samples holding *pFill, the newest at
// the end; the oldest leave once it is full.
void appendFrame(Kvo32f* buf, Kvo32s capacity, Kvo32s* pFill, const Kvo32f* src);

// Forward FFT of 128 samples into s->spectrum (CCS), and s->powerSpec = re^2 + im^2.
void analyseBlock(KvoFilterNoise32fState* s, const Kvo32f* x);

// Running sum of width W (1 to 33) over 65 bins; the last W - 1 places repeat the
// block before them.
void bandSum(const Kvo64f* src, Kvo64f* dst, Kvo32s W);

// Takes powerSpec as the noise spectrum: noiseSpec, its inverse limited to 1, and
// the inverse of its band sum.
void takeNoiseSpectrum(KvoFilterNoise32fState* s);

// Level 5 resolved by the power of the first noise frame: 0 for quiet noise
// (sqrt(1 + power) < 4), else 2.
void resolveLevel(KvoFilterNoise32fState* s, Kvo64f power);

// Sum of the squares of n samples in double precision (SSE2), and its scalar twin with
// the same partial sums.
// sumSquares dispatches to the AVX2 form where the processor has it; all three forms keep
// sixteen partial sums in the same order and agree bit for bit.
Kvo64f sumSquares(const Kvo32f* x, Kvo32s n);
Kvo64f sumSquaresSse2(const Kvo32f* x, Kvo32s n);
Kvo64f sumSquaresAvx2(const Kvo32f* x, Kvo32s n);
Kvo64f sumSquaresScalar(const Kvo32f* x, Kvo32s n);
// Mean square of n samples in double precision, held at 1.0 from below.
Kvo64f meanSquare(const Kvo32f* x, Kvo32s n);

// The two forms of the spectral gain stage: the low rule (levels 1, 2, 3, 5) and the
// high rule (level 4).  frame: the 16 input samples (read only on the start-up path).
int filterNoise_EC_32f_low(const Kvo32f* frame, KvoFilterNoise32fState* s);
int filterNoise_EC_32f_high(const Kvo32f* frame, KvoFilterNoise32fState* s);

// Sign changes between neighbours of x[0 .. n-1] less an offset (SSE2), and the scalar
// twin.
Kvo32s zeroCrossings(const Kvo32f* x, Kvo32s n, Kvo32f offset);
Kvo32s zeroCrossingsScalar(const Kvo32f* x, Kvo32s n, Kvo32f offset);

// The low rule's gain per bin (updating snrAvg) with SSE2, and its scalar twin.
void lowGains(KvoFilterNoise32fState* s, Kvo32f* G);
void lowGainsScalar(KvoFilterNoise32fState* s, Kvo32f* G);
// The saturation and dead zone (or floor) of 64 overlap-added samples: SSE2 or scalar.
void finishOlaTwins(Kvo32f* ola, bool high, bool simd);

// Synthesis windows of 64 taps: levels 1, 2 and 5, and levels 3 and 4.
extern const std::array<Kvo32f, 64> ec_isbf_hann64_32f;
extern const std::array<Kvo32f, 64> ec_isbf_hann64_32f_low;
// trunc(8192 sin^2(pi i / 63)) for i = 0 .. 31: the first half of both windows.
extern const Kvo16s ec_isbf_hann64_steps[32];

// Saturating truncations of float values (NaN gives 0).
Kvo16s truncSat16(Kvo64f v);
Kvo64s truncSat64(Kvo64f v);

}  // namespace kvo::nf
