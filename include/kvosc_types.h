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

/* ---- AMR-WB filters ------------------------------------------------------ */

/* State of the AMR-WB high-pass filter of order 2 or 3.  Outputs are kept as
 * double-precision pairs: high = y >> 16, low = (y >> 1) & 0x7fff.  Plain
 * values: the record may be copied. */
typedef struct {
    Kvo16s coefA[4]; /* denominator a[0..3]; a[0] is stored and never used */
    Kvo16s coefB[4]; /* numerator b[0..3] */
    Kvo16s yLow[3];  /* low parts of the last three outputs, newest first */
    Kvo16s yHigh[3]; /* high parts of the last three outputs, newest first */
    Kvo16s x[3];     /* last three inputs, newest first */
    Kvo32s scale;    /* block scale of the stored history (order 3 only) */
} KvoHighPassStateAMRWB;

/* State of the AMR-WB voice activity detector (172 bytes; plain values). */
typedef struct {
    Kvo16s bckrEst[12];    /* background noise estimate per band, starts at 150 */
    Kvo16s aveLevel[12];   /* slow average level for the stationarity test, 150 */
    Kvo16s oldLevel[12];   /* band levels of the previous frame, 150 */
    Kvo16s subLevel[12];   /* part of each band level that belongs to the next frame */
    Kvo16s mem5[10];       /* 5th-order section memories, stages 1 to 3 (5 pairs) */
    Kvo16s mem3[6];        /* 3rd-order section memories, stages 3 to 5 */
    Kvo16s burstCount;     /* consecutive speech frames */
    Kvo16s hangCount;      /* hangover frames left */
    Kvo16s statCount;      /* frames of fast noise update left */
    Kvo16s vadReg;         /* one decision bit a frame, newest in bit 14 */
    Kvo16s spEstCnt;       /* frames since the speech level was refreshed */
    Kvo16s spMax;          /* largest level of the running estimate */
    Kvo16s spMaxCnt;       /* frames that contributed to it */
    Kvo16s speechLevel;    /* estimated speech level, starts at 2050 */
    Kvo32s prevPower;      /* power of the previous frame */
    Kvo16s bandEnergy[12]; /* per-band energy of the frame, normalised by band width */
} KvoVADState_AMRWB;
/* ---- G.723.1 ------------------------------------------------------------ */

/* Memory of the G.723.1 input high-pass filter; cleared by the caller before the first frame. */
typedef struct {
    Kvo32s x1;  /* last input sample */
    Kvo32s acc; /* recursive output accumulator (Q16 of the output) */
} KvoHighPassStateG723;

/* Memory of the G.723.1 ten-tap pole-zero filters: past inputs, then past outputs, each group
 * oldest first; cleared by the caller before the first subframe. */
typedef struct {
    Kvo16s x[10];
    Kvo16s y[10];
} KvoIIRMemG723;
/* ---- AMR-WB algebraic codebook, pitch and gain ---------------------------- */

/* History of the AMR-WB adaptive codebook decoder (24 bytes, plain values). */
typedef struct {
    Kvo16s gainHistory[5]; /* pitch gains (Q14), newest last; start 0 */
    Kvo16s seed;           /* random generator of the lag concealment; start 21845 */
    Kvo16s lagHistory[5];  /* integer lags, newest first; start 64 */
    Kvo16s prevLag;        /* integer lag of the last good subframe; start 64 */
} KvoAdaptiveDecodeState_AMRWB;

/* ---- GSM full rate ------------------------------------------------------ */

/* Memory of the GSM 06.10 offset compensation (plain values, may be copied). */
typedef struct {
    Kvo32s z2; /* high-precision filter memory, starts at 0 */
    Kvo16s z1; /* previous input on the 13-bit grid, starts at 0 */
} KvoHighPassState_GSMFR;
/* ---- GSM AMR VAD and DTX ------------------------------------------------ */

/* State of the GSM AMR filter-bank voice activity detector (option 1).  The
 * caller lays it out, zeroes it and sets the start values of the standard's
 * reset (noise, old and average levels 150, fast correlation 13106). */
typedef struct {
    Kvo16s subLevel[9];      /* part of each band level carried to the next frame */
    Kvo16s oldLevel[9];      /* band levels of the previous frame */
    Kvo16s aveLevel[9];      /* slow band level average (stationarity test) */
    Kvo16s bckrEst[9];       /* background noise estimate of each band */
    Kvo16s lp5Mem[3][2];     /* 5th-order sections: stage 1 (row 0), stage 2 (rows 1, 2) */
    Kvo16s lp3Mem[5];        /* 3rd-order sections of stages 3 and 4 */
    Kvo16s burstCount;       /* consecutive speech frames */
    Kvo16s hangCount;        /* hangover frames left */
    Kvo16s statCount;        /* frames of fast noise update left, 0 to 20 */
    Kvo16s vadReg;           /* decisions, newest in bit 14 */
    Kvo16s complexHigh;      /* high correlation threshold bits, newest in bit 14 */
    Kvo16s complexLow;       /* low correlation threshold bits, newest in bit 14 */
    Kvo16s complexHangTimer; /* frames with the correlation over 22936 */
    Kvo16s complexHangCount; /* frames the complex-signal override still holds */
    Kvo16s complexWarning;   /* complex signal seen in this frame */
    Kvo16s corrHpFast;       /* smoothed high-band correlation, Q15, at least 13106 */
    Kvo16s pitchReg;         /* voiced-frame bits, newest in bit 14; kept by the caller */
} KvoVAD1State_GSMAMR;

/* State of the GSM AMR spectral voice activity detector (option 2); zeroed
 * by the caller for a start.  Every count runs in 10 ms half frames. */
typedef struct {
    Kvo32s chEnrg[16];       /* smoothed channel energies */
    Kvo32s chNoise[16];      /* channel noise estimates */
    Kvo16s chEnrgLongDb[16]; /* long-term channel energies, dB Q7 */
    Kvo16s preEmphMem;       /* last input sample of the previous half frame, previous scale */
    Kvo16s updateCnt;        /* half frames since the last forced noise update */
    Kvo16s lastUpdateCnt;    /* update count of the previous half frame */
    Kvo16s histCnt;          /* half frames without a change of the update count */
    Kvo16s lastNormShift;    /* block scale of the previous half frame */
    Kvo16s shiftState;       /* 0 or 1: the scale of the energies */
    Kvo16s forcedUpdateFlag; /* 1 when the last update was forced */
    Kvo16s snr;              /* long-term SNR estimate, Q8 dB */
    Kvo16s negSnrVar;        /* variance of negative SNRs, at most 1024 */
    Kvo16s negSnrBias;       /* raises the decision threshold */
    Kvo16s burstCount;
    Kvo16s hangover;
    Kvo32s frameCount;       /* half frames, from 1 */
} KvoVAD2State_GSMAMR;

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
/* ---- G.728 ------------------------------------------------------------ */

/* State of one recursive hybrid-window analysis (G.728 backward adaptation).
 * Placed at the first 16-byte boundary at or after the caller's block (the
 * size query includes the slack); it holds the caller's window pointer and a
 * pointer to its own arrays (recursive memory, shared exponent, signal buffer,
 * block exponents), so the block must keep its address modulo 16. */
typedef struct {
    const Kvo16s* pWindow; /* the caller's window, Q15, entry 0 for the newest sample */
    Kvo16s order;          /* M: highest lag */
    Kvo16s frameLen;       /* L: new samples per call */
    Kvo16s nonRecLen;      /* N: samples windowed afresh on every call */
    Kvo16s blocksPerCall;  /* L / blockLen */
    Kvo16s blocksKept;     /* (M + N) / blockLen */
    Kvo16s blocksTotal;    /* (M + L + N) / blockLen, 0 without blocks */
    Kvo16s decayShift;     /* 14: decay 3/4, 15: decay 1/2 */
    Kvo16s reserved;
    Kvo16s* pArrays;       /* memory[M+1], exponent, signal[M+L+N], block exponents */
} KvoG728WinHybridState;

/* Weighting-filter (pole-zero, order 10) memory; also the short-term stage of
 * the post filter.  Newest first. */
typedef struct {
    Kvo16s inMem[10];  /* input memory */
    Kvo16s unused[6];  /* not used by any step; cleared by Init */
    Kvo16s outMem[10]; /* output memory */
} KvoG728IIRState;

typedef KvoG728IIRState KvoG728PostFilterState;

/* Order-50 synthesis filter memory in block floating point. */
typedef struct {
    Kvo16s memory[50];    /* past output, newest first, 10 blocks of 5 */
    Kvo16s exponents[10]; /* one per block, oldest block first */
    Kvo16s minExp;        /* smallest exponent of the last call */
} KvoG728SynthesisState;

/* Cascade of the order-50 synthesis filter and the perceptual weighting filter. */
typedef struct {
    Kvo16s memory[50];
    Kvo16s exponents[10];
    Kvo16s minExp;
    KvoG728IIRState weight;
} KvoG728CombinedState;

/* Post-filter adapter: decimation low-pass, decimated residual, inverse filter. */
typedef struct {
    Kvo16s x1, x2, x3;     /* input delays of the decimation low-pass */
    Kvo16s y1, y2, y3;     /* output delays */
    Kvo16s decimated[60];  /* 4:1 decimated residual, oldest first */
    Kvo16s residualMem[10];/* input memory of the LPC inverse filter, newest first */
} KvoG728PostFilterAdapterState;

/* A 16-bit value with its exponent (real value = value * 2^-exp), passed by value. */
typedef struct {
    Kvo16s value;
    Kvo16s reserved;
    Kvo32s exp; /* only the low 16 bits are read */
} KvoG728ScaledValue;
/* ---- Echo canceller controllers ---------------------------------------- */

/* Records of the subband, fullband and double-talk controllers.  Their layout
 * is private: the caller allocates the bytes that the size query gives and
 * passes the same pointer to every call (the records sit at the first 16-byte
 * boundary of that block, except the double-talk record, which starts at the
 * pointer itself and wants 8-byte alignment). */
typedef struct KvoSubbandController32fState KvoSubbandController32fState;
typedef struct KvoSubbandController16sState KvoSubbandController16sState;
typedef struct KvoFullbandController32fState KvoFullbandController32fState;
typedef struct KvoFullbandController16sState KvoFullbandController16sState;
typedef struct KvoSubbandControllerDT16sState KvoSubbandControllerDT16sState;

/* ---- Noise filter (echo path) ------------------------------------------ */

/* Record of the echo-path noise filter: the detector, the noise estimate and
 * the spectral suppressor of one stream at 8000, 16000, 22050 or 32000 Hz, in
 * frames of 16 samples on a 128-point FFT grid.  The block the caller passes
 * (its size from kvosFilterNoiseGetStateSize_EC_32f) holds this record at its
 * start, followed by the FFT set-up record, the FFT work area and the two
 * sample histories; the pointers below point into that block, so the block
 * must not be moved after Init.  The record needs 8-byte alignment; a block
 * at a less aligned address is used from its next 8-byte boundary, the same
 * one at every call (the size covers that slack).  Spectra have 65 bins. */
typedef struct {
    void* pFFTSpec;            /* real FFT of order 7, inverse divided by 128 */
    Kvo8u* pFFTWork;           /* FFT scratch inside the block */
    Kvo32f* pSmooth[9];        /* smoothing kernels of 1, 3, ... 17 taps */
    Kvo32f* pBuffer;           /* sample history, longWin samples, newest last */
    Kvo32f* pRefBuffer;        /* history of the second signal (moderate detector) */
    Kvo64f noiseSpec[65];      /* noise power spectrum */
    Kvo64f invNoiseSpec[65];   /* its inverse, limited to 1 */
    Kvo64f invNoiseBand[65];   /* inverse of its running band sum */
    Kvo64f powerSpec[65];      /* power spectrum of the frame */
    Kvo64f snrAvg[65];         /* smoothed SNR per bin */
    Kvo32fc spectrum[65];      /* spectrum of the frame, bins 0 to 64 */
    Kvo32f olaOut[64];         /* overlap-add accumulator */
    Kvo32f bandSnrAvg[65];     /* smoothed band SNR per bin (level 4) */
    Kvo32f synthBlock[128];    /* inverse FFT output, or input FIFO at start-up */
    Kvo32f smoothBuf[32];      /* previous and current output blocks */
    Kvo32f kernels[81];        /* storage of pSmooth */
    Kvo64f noisePower;         /* long-term power at the last noise frame */
    Kvo64f runRefPower;        /* short-term power at the start of the run */
    Kvo64f meanSnr;            /* smoothed mean SNR (level 4) */
    Kvo64f invLongPower;       /* 1 / noisePower */
    Kvo64f smoothLen;          /* smoothed half-length of the output FIR */
    Kvo32f floorLow, floorHigh;  /* lowest gain of bins 0..2, and of the others */
    Kvo32f shortPower;         /* smoothed short-term power */
    Kvo32f guardGain, aGuard, bGuard; /* residual-noise guard (level 3) */
    Kvo32f ratioLimit;         /* allowed power ratio within a run */
    Kvo32f strength;           /* SNR to gain factor; 0 switches suppression off */
    Kvo32f powIn, powOut;      /* smoothed powers before and after suppression */
    Kvo32f rampLen;            /* nominal ramp length, 80 */
    Kvo32f gainStart, gainRamp, gainBase; /* start-up and ramp gains */
    Kvo32s needRun;            /* candidate frames in a row that make a noise frame */
    Kvo32s run;                /* candidate frames in a row so far */
    Kvo32s bandEdge1, bandEdge2; /* first bins of the middle and the upper band */
    Kvo32s capacity;           /* size of pBuffer */
    Kvo32s fill;               /* samples in pBuffer */
    Kvo32s noiseKnown;         /* a noise frame has been accepted */
    Kvo32s zcLimit;            /* limit of the zero-crossing count */
    Kvo32s sampleFreq;         /* Hz */
    Kvo32s refCapacity, refFill; /* size and fill of pRefBuffer */
    Kvo32s rampCount;          /* samples left of the ramp */
    Kvo32s startCount;         /* samples left of the start-up attenuation */
    Kvo32s levelResolved;      /* 0 while level 5 waits for the first noise frame */
    Kvo32s filterStarted;      /* set by the first filter call */
    Kvo32s shortWin, longWin, maxRunFactor; /* rate-dependent lengths */
    Kvo32s peakWin;            /* bins of the peak window of the band test */
    Kvo32s zcFloor;            /* lower limit of the zero-crossing count */
    Kvo32s unusedWin;          /* stored, never read */
    Kvo32s bandSumWin;         /* width of the running band sum */
    Kvo32s bandWidth[3];       /* bins per band */
    Kvo32f invBandWidth[3];
    Kvo32f minGainHist[4];     /* lowest gain of bins 3..63, last four frames, oldest first */
    Kvo32f noiseMean;          /* mean of the signal over noise frames */
    Kvo32f dcEstimate;         /* mean of the signal over candidate frames */
    Kvo32f longRatio;          /* allowed rise of the long-term power */
    Kvo32s level;              /* suppression level 0 to 5 */
    Kvo32s smoothMode;         /* -1 adaptive FIR, 0 fixed FIR, 1 no FIR */
    Kvo32s refPower, micPower; /* smoothed integer powers of the moderate detector */
    Kvo32s refFactor, noiseFactor; /* gate factors in tenths */
} KvoFilterNoise32fState;

/* ---- Echo cancellation ------------------------------------------------- */

/* Records of the subband filter bank.  The caller's block (its size from the
 * GetSize query) holds the record at its first 16-byte boundary, then the
 * window taps, the sample history and the FFT set-up record; the pointers
 * point into the block, so it must not be moved after Init. */
typedef struct {
    Kvo32s windowLen; /* prototype taps, a multiple of fftLen */
    Kvo32s fftLen;    /* 2^order */
    Kvo32s blockLen;  /* samples per call, 1 to fftLen */
    Kvo32f* pHistory; /* analysis: sliding input, oldest first; synthesis: overlap-add sum */
    Kvo32f* pWindow;  /* copy of the prototype */
    void* pFFTSpec;   /* real FFT, inverse divided by fftLen */
} KvoSubbandProcess32fState;

typedef struct {
    Kvo16s* pHistory; /* as in the float record */
    Kvo16s* pWindow;  /* Q13 */
    void* pFFTSpec;
    Kvo32s windowLen;
    Kvo32s fftLen;
    Kvo32s blockLen;
} KvoSubbandProcess16sState;

/* Records of the 2100 Hz tone detector (used at the first 16-byte boundary
 * of the caller's block). */
typedef struct {
    const Kvo32f* pIirCoefs; /* band-pass c0, c1, c2, c3 */
    Kvo32f powTone;          /* smoothed power of the band-pass output */
    Kvo32f powInput;         /* smoothed power of the input */
    Kvo32f x1, x2;           /* last two inputs */
    Kvo32f y1, y2;           /* last two outputs */
    Kvo32f aSmooth;          /* smoothing factor per sample */
    Kvo32s toneRun;          /* samples of tone since the last reversal */
    Kvo32s minRun, maxRun;   /* accepted distance of reversals, exclusive */
    Kvo32s dipRun;           /* samples in the present dip */
    Kvo32s maxDip;           /* longest dip */
    Kvo32s reversals;        /* reversals seen */
} KvoToneDetect32fState;

typedef struct {
    const Kvo16s* pIirCoefs; /* band-pass c0, c1, c2, c3, Q12 */
    Kvo32s powTone, powInput;
    Kvo32s toneRun, minRun, maxRun;
    Kvo16s x1, x2, y1, y2;
    Kvo32s dipRun, maxDip, reversals;
    Kvo16s aSmooth; /* Q14 */
} KvoToneDetect16sState;

#ifdef __cplusplus
}
#endif

#endif /* KVOSC_TYPES_H */
