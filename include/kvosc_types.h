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

/* ---- GSM full rate ------------------------------------------------------ */

/* Memory of the GSM 06.10 offset compensation (plain values, may be copied). */
typedef struct {
    Kvo32s z2; /* high-precision filter memory, starts at 0 */
    Kvo16s z1; /* previous input on the 13-bit grid, starts at 0 */
} KvoHighPassState_GSMFR;
/* ---- G.722 SB-ADPCM --------------------------------------------------- */

/* State of a G.722 sub-band ADPCM encoder or decoder, the same layout for
 * both.  It is placed at the first 16-byte boundary at or after the block the
 * caller passes (the size query includes that slack), so the block must keep
 * its address modulo 16.  Plain values otherwise.  Low band first in each
 * pair of fields. */
typedef struct {
    Kvo16s al1, al2, ah1, ah2;   /* pole predictor coefficients */
    Kvo16s bl[6];                /* zero predictor coefficients BL1..BL6 */
    Kvo16s bh[6];                /* BH1..BH6 */
    Kvo16s detl;                 /* low-band quantizer scale factor */
    Kvo16s deth;                 /* high-band quantizer scale factor */
    Kvo16s nbl, nbh;             /* logarithmic scale factors */
    Kvo32s dlt[6];               /* delayed low-band quantized differences, newest first */
    Kvo32s dh[6];                /* delayed high-band quantized differences */
    Kvo16s plt, pht, rlt, rht;   /* partial and reconstructed signal of the last pair */
    Kvo16s plt1, plt2, pht1, pht2; /* delayed partial signals */
    Kvo16s rlt1, rlt2, rht1, rht2; /* delayed reconstructed signals */
    Kvo16s dlt0, dht0;           /* quantized differences of the last pair */
    Kvo16s szl, szh;             /* zero-section predictor outputs */
    Kvo16s spl, sph;             /* pole-section predictor outputs */
    Kvo16s sl, sh;               /* signal estimates for the next pair */
} KvoG722State;

/* ---- G.729 post-processing ------------------------------------------- */

/* State of the G.729D phase dispersion (anti-sparseness) stage.  Plain values. */
typedef struct {
    Kvo16s gainHistory[6]; /* pitch gains, Q14, newest first */
    Kvo16s prevDispersion; /* filter class of the last subframe: 0, 1 or 2 */
    Kvo16s prevCbGain;     /* fixed-codebook gain of the last subframe */
    Kvo16s onset;          /* onset hang-over counter, 2 down to 0 */
    Kvo16s reserved;       /* pads the record to its 20 bytes; cleared by Init */
} KvoPhaseDispersionState_G729D;

/* ---- G.729 hybrid window ---------------------------------------------- */

/* Recursive part of the G.729E backward LPC hybrid window: one accumulator per
 * lag 0..30 (Q0 sums of windowed-sample products). */
typedef struct {
    Kvo32s acc[31];
} KvoG729EHybridState;

/* ---- G.726 ADPCM ------------------------------------------------------- */

/* State of the G.726 encoder.  Plain values, no pointers: a copy is a snapshot
 * of the coder.  Floating words hold exponent * 64 + 6-bit mantissa; their
 * signs are kept apart (1 = negative); a zero magnitude is exponent 0,
 * mantissa 32. */
typedef struct {
    Kvo16s pk0;       /* sign of DQ + SEZ of the current sample, 1 = negative */
    Kvo16s pk1;       /* pk0 one sample back */
    Kvo16s pk2;       /* pk0 two samples back */
    Kvo16s rateIndex; /* 0..3 for 16, 24, 32, 40 kbit/s */
    Kvo16s yu;        /* fast quantizer scale factor */
    Kvo16s ap;        /* unlimited speed control parameter */
    Kvo32s yl;        /* slow quantizer scale factor, 6 more fraction bits than yu */
    Kvo16s dms;       /* short-term average of F[I] */
    Kvo16s dml;       /* long-term average of F[I] */
    Kvo16s td;        /* tone detected */
    Kvo16s sez;       /* partial signal estimate of the last sample */
    Kvo16s b[6];      /* zero-section predictor coefficients B1..B6 */
    Kvo16s a[2];      /* pole-section predictor coefficients A1, A2 */
    Kvo16s dq[6];     /* quantized differences DQ1..DQ6, floating words */
    Kvo16s sr[2];     /* reconstructed signals SR1, SR2, floating words */
    Kvo16s dqSign[6]; /* signs of DQ1..DQ6 */
    Kvo16s srSign[2]; /* signs of SR1, SR2 */
} KvoG726EncodeState;

/* State of the G.726 decoder: the encoder's record and the output law
 * (0 mu-law, 1 A-law, 2 linear). */
typedef struct {
    KvoG726EncodeState core;
    Kvo16s law;
} KvoG726DecodeState;

/* ---- G.169 automatic level control ------------------------------------- */

/* State of the level control; amplitudes are on the 16-bit sample scale. */
typedef struct {
    Kvo32f targetLevel;  /* target amplitude */
    Kvo32f maxLevel;     /* amplitude ceiling of the output */
    Kvo32f minNoise;     /* lowest noise level */
    Kvo32f maxNoise;     /* highest noise level */
    Kvo32f maxGain;      /* highest gain */
    Kvo32f minRateStart; /* lowest rate between talkspurts */
    Kvo32f minRate;      /* lowest rate of the talker power average */
    Kvo32f hangBlocks;   /* blocks after which a talkspurt ends */
    Kvo32f gainSlew;     /* factor of the gain step */
    Kvo16s hangCount;    /* blocks since the envelope last passed the talk threshold */
    Kvo16s talkCount;    /* talkspurts so far */
    Kvo16s activeBlocks; /* blocks of the present talkspurt above the threshold */
    Kvo16s talking;      /* a talkspurt is on */
    Kvo32f env;          /* fast envelope */
    Kvo32f peakEnv;      /* decaying peak of env */
    Kvo32f speechPeak;   /* peak level of the talker */
    Kvo32f noiseEnv;     /* noise level */
    Kvo32f noisePeak;    /* slow follower of env, at least noiseEnv */
    Kvo32f speechPow;    /* long-term mean square of the talker */
    Kvo32f rate;         /* adaptation rate of speechPow */
    Kvo32f speechLevel;  /* sqrt(speechPow) * crest */
    Kvo32f crest;        /* factor from RMS to level */
    Kvo32f gainTarget;   /* gain that the level logic wants */
    Kvo32f slew;         /* present step factor of gainTarget */
    Kvo32f gain;         /* gain in use */
    Kvo32f gainRate;     /* share of the distance to gainTarget that gain moves per block */
    Kvo32f savedPow;     /* speechPow at the start of the talkspurt */
    Kvo32f savedGain;    /* gainTarget at the start of the talkspurt */
    Kvo32f savedRate;    /* rate at the start of the talkspurt */
    Kvo32f reserved[4];  /* unused room that completes the record's 124 bytes */
} KvoALCState;

#ifdef __cplusplus
}
#endif

#endif /* KVOSC_TYPES_H */
