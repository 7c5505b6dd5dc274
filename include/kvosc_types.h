/* kvosc: element types, status codes and shared records.
 * C99 and C++ compatible. */
#ifndef KVOSC_TYPES_H
#define KVOSC_TYPES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t  Kvo8u;
typedef int16_t  Kvo16s;
typedef uint16_t Kvo16u;
typedef int32_t  Kvo32s;
typedef uint32_t Kvo32u;
typedef int64_t  Kvo64s;
typedef uint64_t Kvo64u;
typedef float    Kvo32f;
typedef double   Kvo64f;

/* Complex pairs, real part first. */
typedef struct { Kvo16s re, im; } Kvo16sc;
typedef struct { Kvo32s re, im; } Kvo32sc;
typedef struct { Kvo32f re, im; } Kvo32fc;
typedef struct { Kvo64f re, im; } Kvo64fc;

/* Status of every export: 0 success, negative error (nothing written),
 * positive warning (outputs written). */
typedef Kvo32s KvoStatus;
enum {
    kvoOk = 0,
    kvoWarnNoOperation = 1,
    kvoWarnInvZero = 4,
    kvoWarnOverflow = 12,
    kvoWarnLsfLow = 13,
    kvoWarnLsfHigh = 14,
    kvoWarnLsfLowAndHigh = 15,
    kvoWarnZeroEnergy = 17,
    kvoErrUnspecified = -2,
    kvoErrBadArg = -5,
    kvoErrSize = -6,
    kvoErrRange = -7,
    kvoErrNullPtr = -8,
    kvoErrMemAlloc = -9,
    kvoErrOutOfRange = -11,
    kvoErrNegativeFreq = -12,
    kvoErrScaleRange = -13,
    kvoErrFftOrder = -15,
    kvoErrFftFlag = -16,
    kvoErrContextMatch = -17,
    kvoErrThresholdOrder = -18,
    kvoErrThresholdNegative = -19,
    kvoErrShiftCount = -32,
    kvoErrRootsNotFound = -114,
    kvoErrFilterUnstable = -117,
    kvoErrFilterLen = -119
};

/* Constant record returned by kvoscGetLibVersion. */
typedef struct {
    Kvo32s versionMajor;
    Kvo32s versionMinor;
    Kvo32s buildMajor;
    Kvo32s revision;
    char cpuTag[4];
    const char* nameText;
    const char* versionText;
    const char* dateText;
} KvoLibraryVersion;

/* Bit-rate code shared by G.723.1, GSM AMR, AMR-WB, G.726 and G.728. */
typedef Kvo32s KvoSpeechRate;
enum {
    kvoRate4750 = 0,
    kvoRate5150 = 1,
    kvoRate5300 = 2,
    kvoRate5900 = 3,
    kvoRate6300 = 4,
    kvoRate6600 = 5,
    kvoRate6700 = 6,
    kvoRate7400 = 7,
    kvoRate7950 = 8,
    kvoRate8850 = 9,
    kvoRate9600 = 10,
    kvoRate10200 = 11,
    kvoRate12200 = 12,
    kvoRate12650 = 13,
    kvoRate12800 = 14,
    kvoRate14250 = 15,
    kvoRate15850 = 16,
    kvoRate16000 = 17,
    kvoRate18250 = 18,
    kvoRate19850 = 19,
    kvoRate23050 = 20,
    kvoRate23850 = 21,
    kvoRate24000 = 22,
    kvoRate32000 = 23,
    kvoRate40000 = 24,
    kvoRateSID = 25
};

/* Step size of the fixed-point echo-canceller kernels: mantissa * 2^-exponent. */
typedef struct {
    Kvo32s mantissa;
    Kvo32s exponent;
} KvoStepPair;

/* ---- Filter kernels -------------------------------------------------- */

/* State of the G.729 second-order high-pass filter (pre- and post-processing).
 * Plain values: the record may be moved by copying. */
typedef struct {
    Kvo32s y1; /* output one step back, full precision */
    Kvo32s y2; /* output two steps back */
    Kvo16s x0; /* input one step back */
    Kvo16s x1; /* input two steps back */
    Kvo16s a0; /* first denominator coefficient, stored only */
    Kvo16s a1; /* feedback coefficients */
    Kvo16s a2;
    Kvo16s b0; /* feed-forward coefficients */
    Kvo16s b1;
    Kvo16s b2;
} KvoHighPassState_G729;

/* ---- G.729 post-processing ------------------------------------------- */

/* State of the G.729D phase dispersion (anti-sparseness) stage.  Plain values. */
typedef struct {
    Kvo16s gainHistory[6]; /* pitch gains, Q14, newest first */
    Kvo16s prevDispersion; /* filter class of the last subframe: 0, 1 or 2 */
    Kvo16s prevCbGain;     /* fixed-codebook gain of the last subframe */
    Kvo16s onset;          /* onset hang-over counter, 2 down to 0 */
    Kvo16s reserved;       /* pads the record to its 20 bytes; cleared by Init */
} KvoPhaseDispersionState_G729D;

#ifdef __cplusplus
}
#endif

#endif /* KVOSC_TYPES_H */
