// Echo canceller controllers: record layouts and shared arithmetic of the
// subband controllers (subband_control.cpp float, subband_control16.cpp 16-bit),
// the fullband controller (fullband_control.cpp) and the double-talk subband
// controller (dt_control.cpp).
//
// Formats.  Float records hold single-precision powers and factors.  The 16-bit
// records hold Q14 smoothing factors, a Q15 gain, a Q14 convergence state and
// integer powers: subband powers scaled down by 2^10 (|X|^2 >> 10), fullband
// powers by 16 (microphone and error) or 256 (reference).  Steps of the 16-bit
// subband paths are mantissa * 2^-exponent pairs with the mantissa from the
// normalised division below.
//
// Placement.  Subband and fullband records sit at the first 16-byte boundary of
// the caller's block, recomputed from the caller's pointer at every call; the
// arrays of a subband record follow it inside the block.  The double-talk
// record starts at the caller's pointer itself.
#pragma once

#include <cstdint>

#include "kvosc.h"

// The public header declares these records as incomplete types.
struct KvoSubbandController32fState {
    Kvo32s numSubbands;
    Kvo32s frameSize;
    Kvo32s numSegments;
    Kvo32s sampleFreq;
    Kvo32f* pErrPowAdaptive;  // smoothed power of the adaptive filter's error
    Kvo32f* pErrPowFixed;     // smoothed power of the fixed filter's error
    Kvo32f* pRefEnergy;       // running sum of the reference power over the rows
    Kvo32f* pCoefEnergy;      // smoothed energy of the adaptive coefficients
    Kvo32f micPower;          // smoothed total microphone power
    Kvo32f aPower, aCoef, aConv, aGain;
    Kvo32f gain;         // output gain of the last frame
    Kvo32f conv;         // 1: filter not trusted, toward 0 as saves succeed
    Kvo32f energyFloor;  // no normalised step at or below this reference energy
    Kvo32f minStep;      // the step below the floor
    Kvo32s micValid;     // an update has seen a microphone vector
};

struct KvoSubbandController16sState {
    Kvo32s numSubbands;
    Kvo32s frameSize;
    Kvo32s numSegments;
    Kvo32s sampleFreq;
    Kvo32s* pErrPowAdaptive;
    Kvo32s* pErrPowFixed;
    Kvo32s* pRefEnergy;
    Kvo32s* pScratch;  // work array, no lasting content
    Kvo32s* pCoefEnergy;
    Kvo32s stepNumerator;  // 0x40000000
    Kvo32s micPower;       // >> 10 scale
    Kvo32s aPower, aCoef, aConv, aGain;  // Q14
    Kvo32s gain;                         // Q15
    Kvo32s conv;                         // Q14
    Kvo32s energyFloor;                  // >> 10 scale
    Kvo32s minMantissa;
    Kvo32s minShift;  // -31
    Kvo32s micValid;
};

struct KvoFullbandController32fState {
    Kvo32f errPowAdaptive;
    Kvo32f errPowFixed;
    Kvo32f coefEnergy;
    Kvo32f micPower;
    Kvo32f aPower, aConv, aGain;
    Kvo32s frameSize, tapLen;
    Kvo32f gain;
    Kvo32f conv;
    Kvo32f energyFloor;
    Kvo32f minStep;
};

struct KvoFullbandController16sState {
    Kvo64s coefEnergy;  // stays within the 32-bit range
    Kvo32s errPowAdaptive, errPowFixed, micPower;  // sums of (x*x + 8) >> 4
    Kvo32s aPower, aConv, aGain;                   // Q14
    Kvo32s gain;                                   // Q15
    Kvo32s conv;                                   // Q14
    Kvo32s energyFloor;                            // sums of (r*r + 128) >> 8
    Kvo32s minStep;
    Kvo32s frameSize, tapLen;
};

struct KvoSubbandControllerDT16sState {
    Kvo64s* pPeakMic;    // decaying peak of the microphone power
    Kvo64s* pPeakErr;    // decaying peak of the error power
    Kvo32s* pDtCount;    // frames of detection, up to 17
    Kvo32s* pHangover;   // frames a flag outlives the detection
    Kvo32s* pDtFlag;     // per-subband double-talk flag
    Kvo32s* pThreshPeak;   // Q14 factor of the ratio test
    Kvo32s* pThreshLevel;  // Q14 factor of the level test
    Kvo32s* pMicLevel;   // learned microphone level
    Kvo32s* pErrLevel;   // learned error level
    Kvo32s* pRefPow;     // smoothed reference power
    Kvo32s* pMicPow;     // smoothed microphone power
    Kvo32s* pRefAvg;     // average reference power for the step
    Kvo32s* pEnergy;     // work array
    Kvo64s errPowAdaptive;
    Kvo64s savedPower;  // tracked power at the last save
    Kvo64s trackedAvg;  // smoothed tracked power
    Kvo64s errPowFixed;
    Kvo32s minMantissa;
    Kvo32s minShift;  // -31
    Kvo32s numSubbands, frameSize, numSegments, sampleFreq;
    Kvo32s aPower;  // Q14, 15 ms
    Kvo32s lowCount, okCount, highCount;
    Kvo32s doubleTalk, prevDoubleTalk;
    Kvo32s dtSubbands, dtLowSubbands;
    Kvo32s calmSamples;
    Kvo32s saveTimer;
    Kvo32s goodSave;
};

namespace kvo::ec {

inline constexpr Kvo32s roundUp16(Kvo32s n) { return (n + 15) & ~15; }

// First 16-byte boundary at or after p.
template <class T>
inline T* align16(T* p) {
    const auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<T*>((a + 15) & ~std::uintptr_t{15});
}

inline bool rateOk(Kvo32s sampleFreq) { return sampleFreq == 8000 || sampleFreq == 16000; }

// Float smoothing factor of time constant 1/invT seconds: the second-order expansion of
// exp(-u), u = frameSize / (T * sampleFreq), in double precision, stored single.
inline Kvo32f smoothFactor(Kvo32s frameSize, Kvo32s sampleFreq, double invT) {
    const double u = static_cast<double>(frameSize) * invT / static_cast<double>(sampleFreq);
    return static_cast<Kvo32f>(1.0 - u + 0.5 * u * u);
}

// Q14 smoothing factor 16384 - frameSize*k / sampleFreq, the product and the division on
// unsigned 32 bits (k = 16384 / T rounded).  Frames longer than about 1/100 of a second
// give 0 or a negative factor; the value is kept as it comes.
inline Kvo32s smoothFactorQ14(Kvo32s frameSize, Kvo32s sampleFreq, Kvo32u k) {
    const Kvo32u v = static_cast<Kvo32u>(frameSize) * k / static_cast<Kvo32u>(sampleFreq);
    return static_cast<Kvo32s>(16384u - v);
}

// Left shifts that bring a positive value to bit 30.
inline int normShift(Kvo32s v) {
    int s = 0;
    while ((v & 0x40000000) == 0) {
        v = static_cast<Kvo32s>(static_cast<Kvo32u>(v) << 1);
        ++s;
    }
    return s;
}

// Normalised division of n by d, both with bit 30 set: (n/d) * 2^30 to about 6e-8,
// from a division by the 16-bit head of d and one Newton step.
Kvo32s normDiv(Kvo32s n, Kvo32s d);

// 64-bit power of a complex 32-bit sample, re*re + im*im, without overflow: the sum of
// two squares of -2^31 (2^63) is held at INT64_MAX.
inline Kvo64s cpow64(const Kvo32sc& x) {
    const Kvo64u s = static_cast<Kvo64u>(Kvo64s{x.re} * x.re) +
                     static_cast<Kvo64u>(Kvo64s{x.im} * x.im);
    return s > static_cast<Kvo64u>(INT64_MAX) ? INT64_MAX : static_cast<Kvo64s>(s);
}

// (re*re + im*im + round) >> shift of a complex 32-bit sample, exact.
inline Kvo64s cpowShift(const Kvo32sc& x, int shift) {
    const Kvo64u s = static_cast<Kvo64u>(Kvo64s{x.re} * x.re) +
                     static_cast<Kvo64u>(Kvo64s{x.im} * x.im) + (Kvo64u{1} << (shift - 1));
    return static_cast<Kvo64s>(s >> shift);
}

// Saturation of a wide intermediate to 32 and 64 bits.
inline Kvo32s sat32w(__int128 v) {
    return v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<Kvo32s>(v);
}
inline Kvo64s sat64w(__int128 v) {
    return v > INT64_MAX ? INT64_MAX : v < INT64_MIN ? INT64_MIN : static_cast<Kvo64s>(v);
}

// Q14 first-order smoothing sat32((old*a + x*(16384 - a) + 8192) >> 14); the
// intermediate is exact, so a power beyond the 64-bit product range saturates rather
// than wraps.
inline Kvo32s smoothQ14(Kvo64s old, Kvo64s x, Kvo32s a) {
    const __int128 v = static_cast<__int128>(old) * a + static_cast<__int128>(x) * (16384 - a) +
                       8192;
    return sat32w(v >> 14);
}

// AVX2: acc[j] += (|h[j]|^2 + 512) >> 10 for the groups of four among j < n (the 16-bit
// subband controller's coefficient energy, one row at a time).
void coefEnergyRowAvx2(const Kvo32sc* h, Kvo64u* acc, int n);

}  // namespace kvo::ec
