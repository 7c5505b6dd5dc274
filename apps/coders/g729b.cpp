// ITU-T G.729 Annex B: voice activity detection, discontinuous transmission
// and comfort-noise generation, on top of the G.729 main body (g729b) or of
// Annex A (g729ab).
//
// Encoder, per 10 ms frame: the main coder's pre-processing and LP analysis
// (autocorrelations to lag 12), then the voice activity detector (full and
// low band energies, spectral distortion against the running mean LSFs,
// zero-crossing rate, and the multi-boundary decision with its hangover and
// smoothing).  An active frame is coded as in G.729.  An inactive frame runs
// the DTX logic: the averaged autocorrelations of the last frames give the
// current filter and the residual energy; the first inactive frame is a SID
// frame, later ones are sent as SID only when the filter (Itakura distance on
// the autocorrelations) or the quantised energy have changed, and never more
// often than every third frame.  The SID frame carries the LSFs (annex B
// quantiser) and the energy (5 bits).  Both sides then build the same
// comfort-noise excitation: a random pitch vector, Gaussian noise and four
// random pulses, scaled to the smoothed SID gain.
//
// Decoder: speech frames as G.729; SID and untransmitted frames decode the
// LSFs and gain of the last SID, generate the same excitation and synthesise;
// the post filter skips its long-term part on inactive frames.  A lost frame
// after speech is concealed as lost speech; after silence, as untransmitted.
//
// Q formats: energies in the log domain Q11 (VAD), autocorrelations 16-bit
// mantissas with a shift (DTX), gains Q0 as in the SID gain table, the pitch
// gain Q14.  The steps the library does not offer follow the Recommendation's
// saturating 16/32-bit basic operations.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "coders/g729.h"
#include "coders/g729_state.h"
#include "coders/g729b.h"
#include "coders/g729b_tables.h"

namespace kvosc::coders::g729b {

using namespace g729;

namespace {

// ---- the saturating basic operations of the Recommendation ----
inline Kvo16s s16(int64_t v) {
    return static_cast<Kvo16s>(std::clamp<int64_t>(v, -32768, 32767));
}
inline int32_t s32(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}
inline Kvo16s add(int a, int b) {
    return s16(int64_t{a} + b);
}
inline Kvo16s sub(int a, int b) {
    return s16(int64_t{a} - b);
}
inline Kvo16s mult(int a, int b) {
    return s16((int64_t{a} * b) >> 15);
}
inline Kvo16s multR(int a, int b) {
    return s16((int64_t{a} * b + 16384) >> 15);
}
inline int32_t lMult(int a, int b) {
    return s32(2 * int64_t{a} * b);
}
inline int32_t lAdd(int32_t a, int32_t b) {
    return s32(int64_t{a} + b);
}
inline int32_t lSub(int32_t a, int32_t b) {
    return s32(int64_t{a} - b);
}
inline int32_t lMac(int32_t acc, int a, int b) {
    return lAdd(acc, lMult(a, b));
}
inline int32_t lShl(int32_t v, int n) {
    if (n < 0) return n <= -32 ? (v < 0 ? -1 : 0) : v >> -n;
    return s32(int64_t{v} << std::min(n, 32));
}
inline int32_t lShr(int32_t v, int n) {
    return lShl(v, -n);
}
inline Kvo16s shl(int v, int n) {
    if (n < 0) return static_cast<Kvo16s>(n <= -16 ? (v < 0 ? -1 : 0) : v >> -n);
    return s16(int64_t{v} << std::min(n, 16));
}
inline Kvo16s shr(int v, int n) {
    return shl(v, -n);
}
inline Kvo16s shrR(int v, int n) {  // shift right with rounding (left for n < 0)
    if (n <= 0) return shl(v, -n);
    if (n > 15) return 0;
    return static_cast<Kvo16s>((v >> n) + ((v >> (n - 1)) & 1));
}
inline Kvo16s hi16(int32_t v) {
    return static_cast<Kvo16s>(v >> 16);
}
inline Kvo16s round16(int32_t v) {
    return hi16(lAdd(v, 0x8000));
}
inline Kvo16s absS(int v) {
    return v == -32768 ? 32767 : static_cast<Kvo16s>(std::abs(v));
}
inline int normL(int32_t v) {
    if (v == 0) return 0;
    if (v == -1) return 31;
    if (v < 0) v = ~v;
    int n = 0;
    while (v < 0x40000000) v <<= 1, ++n;
    return n;
}
inline int normS(int v) {
    if (v == 0) return 0;
    if (v == -1) return 15;
    if (v < 0) v = ~v;
    int n = 0;
    while (v < 0x4000) v <<= 1, ++n;
    return n;
}
// 32-bit value as the double-precision pair hi, lo (lo in Q15).
inline void lExtract(int32_t v, Kvo16s* h, Kvo16s* l) {
    *h = hi16(v);
    *l = static_cast<Kvo16s>(lSub(v >> 1, int32_t{*h} << 15));
}
inline int32_t mpy32x16(Kvo16s h, Kvo16s l, int n) {
    return lMac(lMult(h, n), mult(l, n), 1);
}
// log2 of a positive 32-bit value: exponent and Q15 fraction.
void log2(int32_t v, Kvo16s* exponent, Kvo16s* fraction) {
    if (v <= 0) {
        *exponent = *fraction = 0;
        return;
    }
    const int n = normL(v);
    v <<= n;
    *exponent = static_cast<Kvo16s>(30 - n);
    const int i = (v >> 25) - 32;
    const int a = (v >> 10) & 0x7fff;
    const int32_t y = lSub(int32_t{kvo::tab::Log2Table[i]} << 16,
                           lMult(sub(kvo::tab::Log2Table[i], kvo::tab::Log2Table[i + 1]), a));
    *fraction = hi16(y);
}
inline Kvo16s random(Kvo16s* seed) {
    *seed = static_cast<Kvo16s>(static_cast<uint16_t>(*seed * 31821 + 13849));
    return *seed;
}
inline bool ok(KvoStatus s) {
    return s >= kvoOk;
}

// Quantised filters of a frame's two subframes, interpolated between two LSP sets.
void interpolateLpc(const Kvo16s* lspOld, const Kvo16s* lspNew, Kvo16s* a) {
    Kvo16s lsp[kOrder];
    kvosInterpolate_G729_16s(lspNew, lspOld, lsp, kOrder);
    kvosLSPToLPC_G729_16s(lsp, a);
    kvosLSPToLPC_G729_16s(lspNew, a + kOrder + 1);
}

// ============================ SID gain ==================================

constexpr Kvo16s kSidGain[32] = {2,    5,    8,    13,   20,   32,   50,   64,    80,    101,  127,
                                 160,  201,  253,  318,  401,  505,  635,  800,   1007,  1268, 1596,
                                 2010, 2530, 3185, 4009, 5048, 6355, 8000, 10071, 12679, 15962};
constexpr int kGainFrames = 2;  // energies averaged into one SID gain

// Energy quantiser: the index of 2^10 log2(x 2^-sh), in steps of 4 dB below
// 14 dB and of 2 dB above; enerq receives the quantised level in dB.
Kvo16s quantEnergy(int32_t x, int sh, Kvo16s* enerq) {
    Kvo16s e, f;
    log2(x, &e, &f);
    Kvo16s t = shl(sub(e, sh), 10);
    t = add(t, multR(f, 1024));
    if (sub(t, -2721) <= 0) {  // -8 dB
        *enerq = -12;
        return 0;
    }
    if (sub(t, 22111) > 0) {  // 65 dB
        *enerq = 66;
        return 31;
    }
    if (sub(t, 4762) <= 0) {  // 14 dB
        Kvo16s index = mult(add(t, 3401), 24);
        if (index < 1) index = 1;
        *enerq = sub(shl(index, 2), 8);
        return index;
    }
    Kvo16s index = sub(shr(mult(sub(t, 340), 193), 2), 1);
    if (index < 6) index = 6;
    *enerq = add(shl(index, 1), 4);
    return index;
}

// SID gain index of the mean of n residual energies ener[i] 2^sh[i]; n = 0
// takes one frame's excitation energy (the decoder's lost first SID).
Kvo16s quantSidGain(const Kvo16s* ener, const Kvo16s* sh, int n, Kvo16s* enerq) {
    static constexpr Kvo16s kFact[kGainFrames + 1] = {410, 26, 13};
    static constexpr Kvo16s kMarg[kGainFrames + 1] = {0, 0, 1};
    Kvo16s h, l, sh1;
    int32_t x;
    if (n == 0) {
        lExtract(lShl(ener[0], sh[0]), &h, &l);
        x = mpy32x16(h, l, kFact[0]);
        sh1 = 0;
    } else {
        sh1 = sh[0];
        for (int i = 1; i < n; ++i) sh1 = std::min(sh1, sh[i]);
        sh1 = add(sh1, 16 - kMarg[n]);
        x = 0;
        for (int i = 0; i < n; ++i) x = lAdd(x, lShl(ener[i], sub(sh1, sh[i])));
        lExtract(x, &h, &l);
        x = mpy32x16(h, l, kFact[n]);
    }
    return quantEnergy(x, sh1, enerq);
}

// ======================= comfort-noise excitation =======================

// Integer square root of a 32-bit value, bit by bit (14 bits).
Kvo16s sqrt14(int32_t num) {
    Kvo16s rez = 0, e = 0x4000;
    for (int i = 0; i < 14; ++i) {
        const Kvo16s t = add(rez, e);
        if (lSub(num, lMult(t, t)) >= 0) rez = t;
        e = shr(e, 1);
    }
    return rez;
}

// One frame of comfort-noise excitation at gain g (Q0, as the SID table):
// per subframe a random lag (40..103, fraction -1..1) and pitch gain below
// 0.5, Gaussian noise scaled to half the target level, then four random
// pulses whose common gain solves for the target energy.  exc points at the
// frame in its buffer (154 samples of history before it).  The encoder passes
// its coder to keep the taming record up to date.
bool comfortNoise(Kvo16s g, Kvo16s* exc, Kvo16s* seed, Encoder* enc) {
    constexpr Kvo16s kFrac1 = 19043;  // sqrt(40) alpha / 2 - 1, Q15, alpha = 0.5
    constexpr Kvo16s kK0 = 24576;     // 1 - alpha^2, Q15
    constexpr Kvo16s kGMax = 5000;
    if (g == 0) {
        std::memset(exc, 0, kFrame * sizeof(Kvo16s));
        if (enc)
            for (int k = 0; k < 2; ++k) enc->updateTamingRecord(0, kSubframe + 1);
        return true;
    }
    for (int k = 0; k < 2; ++k) {
        Kvo16s* cur = exc + 40 * k;
        // Random adaptive and fixed codebook parameters.
        Kvo16s t = random(seed);
        Kvo16s frac = static_cast<Kvo16s>((t & 3) - 1);
        if (frac == 2) frac = 0;
        t = shr(t, 2);
        const Kvo16s t0 = static_cast<Kvo16s>((t & 63) + 40);
        t = shr(t, 6);
        int pos[4], sign[4];
        pos[0] = 5 * (t & 7);
        t = shr(t, 3);
        sign[0] = t & 1;
        t = shr(t, 1);
        pos[1] = 5 * (t & 7) + 1;
        t = shr(t, 3);
        sign[1] = t & 1;
        t = random(seed);
        pos[2] = 5 * (t & 7) + 2;
        t = shr(t, 3);
        sign[2] = t & 1;
        t = shr(t, 1);
        pos[3] = (t & 1) + 3 + 5 * ((t >> 1) & 7);
        t = shr(t, 4);
        sign[3] = t & 1;
        Kvo16s gp = static_cast<Kvo16s>(random(seed) & 0x1fff);  // below 0.5, Q14
        const Kvo16s gp2 = static_cast<Kvo16s>(gp << 1);

        // Gaussian excitation scaled to alpha g sqrt(40 / its energy).
        Kvo16s excg[kSubframe], excs[kSubframe];
        if (!ok(kvosRandomNoiseExcitation_G729B_16s(seed, excg, kSubframe))) return false;
        int32_t acc = 0;
        for (int i = 0; i < kSubframe; ++i) acc = lMac(acc, excg[i], excg[i]);
        Kvo32s inv = lShr(acc, 1);
        if (!ok(kvosInvSqrt_32s_I(&inv, 1))) return false;
        Kvo16s h, l;
        lExtract(inv, &h, &l);
        acc = mpy32x16(h, l, add(g, multR(g, kFrac1)));
        int sh = normL(acc);
        const Kvo16s fact = hi16(lShl(acc, sh));
        sh = sh - 14;
        for (int i = 0; i < kSubframe; ++i) excg[i] = shrR(multR(excg[i], fact), sh);

        // Random adaptive excitation plus the noise.
        const Kvo16s delay[2] = {t0, frac};
        if (!ok(kvosDecodeAdaptiveVector_G729_16s_I(delay, cur - kExcHistory))) return false;
        Kvo16s mx = 0;
        for (int i = 0; i < kSubframe; ++i) {
            cur[i] = add(multR(cur[i], gp2), excg[i]);
            mx = std::max(mx, absS(cur[i]));
        }
        sh = mx == 0 ? 0 : std::max(0, 3 - normS(mx));
        for (int i = 0; i < kSubframe; ++i) excs[i] = shr(cur[i], sh);

        // Pulse gain x: 4 x^2 + 2 b x + c = 0 with b the sum of the signed
        // excitation at the pulses and c its energy minus the target.
        int32_t ener = 0;
        for (int i = 0; i < kSubframe; ++i) ener = lMac(ener, excs[i], excs[i]);
        Kvo16s b = 0;
        for (int i = 0; i < 4; ++i) b = sign[i] ? add(b, excs[pos[i]]) : sub(b, excs[pos[i]]);
        const Kvo16s gl = static_cast<Kvo16s>(lShr(lMult(g, kSubframe), 6));  // low 16 bits
        const int32_t kk = lMult(g, gl);
        acc = lShr(kk, add(1, shl(static_cast<Kvo16s>(sh), 1)));
        acc = lSub(acc, ener);
        b = shr(b, 1);
        acc = lMac(acc, b, b);
        sh = sh + 1;
        if (acc < 0) {
            // No real root: drop the adaptive part and solve with the noise alone.
            std::memcpy(cur, excg, sizeof excg);
            const int bits =
                absS(excg[pos[0]]) | absS(excg[pos[1]]) | absS(excg[pos[2]]) | absS(excg[pos[3]]);
            sh = (bits & 0x4000) == 0 ? 1 : 2;
            b = 0;
            for (int i = 0; i < 4; ++i) {
                const Kvo16s v = shr(excg[pos[i]], sh);
                b = sign[i] ? add(b, v) : sub(b, v);
            }
            lExtract(kk, &h, &l);
            acc = lShr(mpy32x16(h, l, kK0), 2 * sh - 1);
            acc = lMac(acc, b, b);
            gp = 0;
        }
        const Kvo16s root = sqrt14(acc);
        Kvo16s x1 = sub(root, b);
        const Kvo16s x2 = static_cast<Kvo16s>(-add(b, root));
        if (absS(x2) < absS(x1)) x1 = x2;
        Kvo16s gc = shrR(x1, 2 - sh);
        gc = std::clamp<Kvo16s>(gc, -kGMax, kGMax);
        for (int i = 0; i < 4; ++i)
            cur[pos[i]] = sign[i] ? add(cur[pos[i]], gc) : sub(cur[pos[i]], gc);
        if (enc) enc->updateTamingRecord(gp, t0);
    }
    return true;
}

constexpr Kvo16s kInitSeed = 11111;
constexpr Kvo16s kGain0 = 28672;  // gain smoothing: 0.875 old + 0.125 SID, Q15
constexpr Kvo16s kGain1 = 4096;

// The initial comfort-noise LSPs (cos of k pi / 11).
constexpr Kvo16s kLspSidStart[kOrder] = {31441, 27566,  21458,  13612,  4663,
                                         -4663, -13612, -21458, -27566, -31441};

}  // namespace

// ============================ decoder ===================================

struct DecoderB::Cng {
    Kvo16s pastType = 1;
    Kvo16s sidSav = 0, shSidSav = 1;  // energy of the last good frame's excitation
    Kvo16s seed = kInitSeed;
    Kvo16s sidGain = kSidGain[0], curGain = 0;
    Kvo16s lspSid[kOrder];
    Cng() { std::memcpy(lspSid, kLspSidStart, sizeof lspSid); }
};

DecoderB::DecoderB(bool annexA) : dec_(annexA), c_(new Cng) {}
DecoderB::~DecoderB() {
    delete c_;
}

bool DecoderB::frame(const int16_t* prm, int type, bool erased, int16_t* pcm) {
    Cng& c = *c_;
    DecoderState& s = dec_.state();
    if (erased) type = c.pastType == 1 ? 1 : 0;
    Kvo16s az[2 * (kOrder + 1)];
    int t0[2];
    Kvo16s* exc = s.exc + kExcHistory;
    if (type == 1) {
        c.seed = kInitSeed;
        if (!dec_.synthesise(prm, erased, az, t0)) return false;
    } else {
        // SID frame: new LSFs and gain; a lost first SID takes the level of
        // the last speech frame's excitation.
        if (type == 2) {
            c.sidGain = kSidGain[prm[3] & 31];
            const Kvo16s idx[3] = {static_cast<Kvo16s>(prm[0] & 1),
                                   static_cast<Kvo16s>(prm[1] & 31),
                                   static_cast<Kvo16s>(prm[2] & 15)};
            Kvo16s lsf[kOrder];
            if (!ok(kvosLSFDecode_G729B_16s(idx, s.prevFreq, lsf))) return false;
            kvosLSFToLSP_G729_16s(lsf, c.lspSid);
        } else if (c.pastType == 1) {
            Kvo16s enerq;
            c.sidGain = kSidGain[quantSidGain(&c.sidSav, &c.shSidSav, 0, &enerq)];
        }
        c.curGain =
            c.pastType == 1 ? c.sidGain : add(multR(c.curGain, kGain0), multR(c.sidGain, kGain1));
        if (!comfortNoise(c.curGain, exc, &c.seed, nullptr)) return false;
        interpolateLpc(s.lspOld, c.lspSid, az);
        std::memcpy(s.lspOld, c.lspSid, sizeof c.lspSid);

        // Synthesis; on overflow the excitation history is scaled down and the subframe redone.
        Kvo16s* synth = s.synth + kOrder;
        for (int k = 0; k < 2; ++k) {
            const int i0 = 40 * k;
            const Kvo16s* a = az + 11 * k;
            if (kvosSynthesisFilter_NR_16s_Sfs(a, exc + i0, synth + i0, kSubframe, 12, s.memSyn) ==
                kvoWarnOverflow) {
                for (Kvo16s& e : s.exc) e = static_cast<Kvo16s>(e >> 2);
                kvosSynthesisFilter_NR_16s_Sfs(a, exc + i0, synth + i0, kSubframe, 12, s.memSyn);
            }
            std::memcpy(s.memSyn, synth + i0 + kSubframe - kOrder, sizeof s.memSyn);
            t0[k] = s.oldT0;
        }
        s.sharp = kSharpMin;
    }
    // Level of this frame's excitation, for a lost first SID frame.
    if (!erased) {
        int32_t e = 0;
        for (int i = 0; i < kFrame; ++i) e = lMac(e, exc[i], exc[i]);
        const int n = normL(e);
        c.sidSav = round16(lShl(e, n));
        c.shSidSav = static_cast<Kvo16s>(16 - n);
    }
    c.pastType = static_cast<Kvo16s>(type);
    return dec_.postProcess(az, t0, type, pcm);
}

// ============================ encoder ===================================

namespace {

constexpr int kNp = 12;  // autocorrelation lags the detector uses
constexpr int kInitFrame = 32;
constexpr int kInitCount = 20;
constexpr int kZcStart = 120, kZcEnd = 200;

// Autocorrelation of the detector's low-band filter (Q15).
constexpr Kvo16s kLbfCorr[kNp + 1] = {7869, 7011, 4838, 2299, 321, -660, -782,
                                      -484, -164, 3,    39,   21,  4};

// 32 / (32 - n) as a Q15 factor and a left shift, for the mean of the first
// frames when n of them were below the energy floor.
struct Factor {
    Kvo16s f;
    int shift;
};
Factor initFactor(int n) {
    if (n >= kInitFrame) return {0, 0};
    const double v = 32.0 / (32 - n);
    const int s = static_cast<int>(std::ceil(std::log2(v) - 1e-12));
    const double f = std::floor(32768.0 * v / std::ldexp(1.0, s) + 0.5);
    return {static_cast<Kvo16s>(std::min(f, 32767.0)), s};
}

}  // namespace

struct EncoderB::Vad {
    Kvo16s meanLsf[kOrder] = {};
    Kvo16s minBuffer[16] = {};
    Kvo16s prevMin = 0, nextMin = 0, min = 32767;
    Kvo16s meanE = 0, meanSE = 0, meanSLE = 0, meanSZC = 0;
    Kvo16s prevEnergy = 0;
    int countSil = 0, countUpdate = 0, countExt = 0, lessCount = 0;
    bool flag = true, vFlag = false;
};

struct EncoderB::Dtx {
    static constexpr int kCur = 2, kSum = 3;  // frames per current and per past average
    Kvo16s acf[kCur * (kOrder + 1)] = {}, shAcf[kCur] = {40, 40};
    Kvo16s sumAcf[kSum * (kOrder + 1)] = {}, shSumAcf[kSum] = {40, 40, 40};
    Kvo16s ener[kGainFrames] = {}, shEner[kGainFrames] = {40, 40};
    Kvo16s rCoeff[kOrder + 1] = {}, shRCoeff = 0;
    Kvo16s lspSidQ[kOrder];
    Kvo16s sidGain = 0, curGain = 0, prevEnergy = 0;
    int frCur = 0, countFr0 = 0, nbEner = 0;
    bool flagChange = false;
    Kvo16s seed = kInitSeed;
    int pastVad = 1, ppastVad = 1;
    int frame = 0;
    Dtx() { std::memcpy(lspSidQ, kLspSidStart, sizeof lspSidQ); }
};

namespace {

// The detector's multi-boundary decision on the four difference parameters
// (low-band energy, full-band energy, spectral distortion, zero crossings).
bool makeDecision(Kvo16s dSLE, Kvo16s dSE, Kvo16s SD, Kvo16s dSZC) {
    int32_t acc;
    // SD against dSZC.
    acc = lShr(lMac(lMult(dSZC, -14680), 8192, -28521), 8);
    if (lAdd(acc, int32_t{SD} << 16) > 0) return true;
    acc = lShr(lMac(lMult(dSZC, 19065), 8192, -19446), 7);
    if (lAdd(acc, int32_t{SD} << 16) > 0) return true;
    // dSE against dSZC.
    acc = lShr(lMac(lMult(dSZC, 20480), 8192, 16384), 2);
    if (lAdd(acc, int32_t{dSE} << 16) < 0) return true;
    acc = lShr(lMac(lMult(dSZC, -16384), 8192, 19660), 2);
    if (lAdd(acc, int32_t{dSE} << 16) < 0) return true;
    acc = lMac(lMult(dSE, 32767), 1024, 30802);
    if (acc < 0) return true;
    // dSE against SD.
    acc = lMac(lMac(lMult(SD, -28160), 64, 19988), dSE, 512);
    if (acc < 0) return true;
    acc = lMac(lMult(SD, 32767), 32, -30199);
    if (acc > 0) return true;
    // dSLE against dSZC.
    acc = lShr(lMac(lMult(dSZC, -20480), 8192, 22938), 2);
    if (lAdd(acc, int32_t{dSE} << 16) < 0) return true;
    acc = lShr(lMac(lMult(dSZC, 23831), 4096, 31576), 2);
    if (lAdd(acc, int32_t{dSE} << 16) < 0) return true;
    acc = lMac(lMult(dSE, 32767), 2048, 17367);
    if (acc < 0) return true;
    // dSLE against SD.
    acc = lMac(lMac(lMult(SD, -22400), 32, 25395), dSLE, 256);
    if (acc < 0) return true;
    // dSLE against dSE.
    acc = lMac(lMult(dSE, -30427), 256, -29959);
    if (lAdd(acc, int32_t{dSLE} << 16) > 0) return true;
    acc = lMac(lMult(dSE, -23406), 512, 28087);
    if (lAdd(acc, int32_t{dSLE} << 16) < 0) return true;
    acc = lMac(lMac(lMult(dSE, 24576), 1024, 29491), dSLE, 16384);
    if (acc < 0) return true;
    return false;
}

// Energy in the log domain (Q11) of a normalised autocorrelation value.
Kvo16s logEnergy(int32_t r0, Kvo16s expR0) {
    Kvo16s e, f;
    log2(r0, &e, &f);
    int32_t acc = mpy32x16(e, f, 9864);
    acc = lMac(acc, 9864, sub(sub(expR0, 1), 1));
    return sub(hi16(lShl(acc, 11)), 4875);
}

}  // namespace

// Voice activity decision of the frame (true: speech).
bool EncoderB::detect(const Kvo16s* lsf) {
    Vad& v = *v_;
    const EncoderState& s = enc_.state();
    const int frm = d_->frame;
    const Kvo16s rc = s.rc[1];
    Kvo16s rh[kNp + 1];
    for (int i = 0; i <= kNp; ++i) rh[i] = hi16(s.acf[i]);

    // Full-band and low-band energies, spectral distortion, zero crossings.
    const Kvo16s energy = logEnergy(s.acf[0], s.acfNorm);
    int32_t acc = 0;
    for (int i = 1; i <= kNp; ++i) acc = lMac(acc, rh[i], kLbfCorr[i]);
    acc = lShl(acc, 1);
    acc = lMac(acc, rh[0], kLbfCorr[0]);
    const Kvo16s energyLow = logEnergy(acc, s.acfNorm);
    acc = 0;
    for (int i = 0; i < kOrder; ++i) {
        const Kvo16s d = sub(lsf[i], v.meanLsf[i]);
        acc = lMac(acc, d, d);
    }
    const Kvo16s sd = hi16(acc);
    Kvo16s zc = 0;
    for (int i = kZcStart + 1; i <= kZcEnd; ++i)
        if (mult(s.speech[i - 1], s.speech[i]) < 0) zc = add(zc, 410);

    // Running minimum of the energy over the last 128 frames.
    if (frm < 129) {
        if (energy < v.min) {
            v.min = energy;
            v.prevMin = energy;
        }
        if ((frm & 7) == 0) {
            v.minBuffer[(frm >> 3) - 1] = v.min;
            v.min = 32767;
        }
    }
    if ((frm & 7) == 0) {
        v.prevMin = v.minBuffer[0];
        for (int i = 1; i < 16; ++i) v.prevMin = std::min(v.prevMin, v.minBuffer[i]);
    }
    if (frm >= 129) {
        if ((frm & 7) == 1) {
            v.min = v.prevMin;
            v.nextMin = 32767;
        }
        v.min = std::min(v.min, energy);
        v.nextMin = std::min(v.nextMin, energy);
        if ((frm & 7) == 0) {
            std::memmove(v.minBuffer, v.minBuffer + 1, 15 * sizeof(Kvo16s));
            v.minBuffer[15] = v.nextMin;
            v.prevMin = v.minBuffer[0];
            for (int i = 1; i < 16; ++i) v.prevMin = std::min(v.prevMin, v.minBuffer[i]);
        }
    }

    // Initial frames: the means of the loud ones.
    bool voice = true;
    if (frm <= kInitFrame) {
        if (energy < 3072) {
            voice = false;
            ++v.lessCount;
        } else {
            v.meanE = hi16(lMac(int32_t{v.meanE} << 16, energy, 1024));
            v.meanSZC = hi16(lMac(int32_t{v.meanSZC} << 16, zc, 1024));
            for (int i = 0; i < kOrder; ++i)
                v.meanLsf[i] = hi16(lMac(int32_t{v.meanLsf[i]} << 16, lsf[i], 1024));
        }
    }
    if (frm >= kInitFrame) {
        if (frm == kInitFrame) {
            const Factor f = initFactor(v.lessCount);
            v.meanE = hi16(lShl(lMult(v.meanE, f.f), f.shift));
            v.meanSZC = hi16(lShl(lMult(v.meanSZC, f.f), f.shift));
            for (int i = 0; i < kOrder; ++i)
                v.meanLsf[i] = hi16(lShl(lMult(v.meanLsf[i], f.f), f.shift));
            v.meanSE = sub(v.meanE, 2048);
            v.meanSLE = sub(v.meanE, 2458);
        }
        const Kvo16s dSE = sub(v.meanSE, energy);
        const Kvo16s dSLE = sub(v.meanSLE, energyLow);
        const Kvo16s dSZC = sub(v.meanSZC, zc);
        voice = energy < 3072 ? false : makeDecision(dSLE, dSE, sd, dSZC);

        // Smoothing: hangover after speech, and back to noise after long silence.
        v.vFlag = false;
        if (d_->pastVad && !voice && add(dSE, 410) < 0 && energy > 3072) {
            voice = true;
            v.vFlag = true;
        }
        if (v.flag) {
            if (d_->ppastVad && d_->pastVad && !voice && absS(sub(v.prevEnergy, energy)) <= 614) {
                ++v.countExt;
                voice = true;
                v.vFlag = true;
                if (v.countExt > 4) {
                    v.countExt = 0;
                    v.flag = false;
                }
            }
        } else {
            v.flag = true;
        }
        if (!voice) ++v.countSil;
        if (voice && v.countSil > 10 && sub(energy, v.prevEnergy) <= 614) {
            voice = false;
            v.countSil = 0;
        }
        if (voice) v.countSil = 0;
        if (sub(energy, 614) < v.meanSE && frm > 128 && !v.vFlag && rc < 19661) voice = false;

        // Background statistics, faster at first.
        if (sub(energy, 614) < v.meanSE && rc < 24576 && sd < 83) {
            ++v.countUpdate;
            struct Coefs {
                Kvo16s e, ce, zc, czc, sd, csd;
            };
            static constexpr Coefs kCoefs[6] = {
                {24576, 8192, 26214, 6554, 19661, 13017}, {31130, 1638, 30147, 2621, 21299, 11469},
                {31785, 983, 30802, 1966, 22938, 9830},   {32440, 328, 31457, 1311, 24576, 8192},
                {32604, 164, 32440, 328, 24576, 8192},    {32604, 164, 32702, 66, 24576, 8192}};
            const int stage = v.countUpdate < kInitCount        ? 0
                              : v.countUpdate < kInitCount + 10 ? 1
                              : v.countUpdate < kInitCount + 20 ? 2
                              : v.countUpdate < kInitCount + 30 ? 3
                              : v.countUpdate < kInitCount + 40 ? 4
                                                                : 5;
            const Coefs& c = kCoefs[stage];
            v.meanSE = hi16(lMac(lMult(c.e, v.meanSE), c.ce, energy));
            v.meanSLE = hi16(lMac(lMult(c.e, v.meanSLE), c.ce, energyLow));
            v.meanSZC = hi16(lMac(lMult(c.zc, v.meanSZC), c.czc, zc));
            for (int i = 0; i < kOrder; ++i)
                v.meanLsf[i] = hi16(lMac(lMult(c.sd, v.meanLsf[i]), c.csd, lsf[i]));
        }
        if (frm > 128 && ((v.meanSE < v.min && sd < 83) || sub(v.meanSE, v.min) > 2048)) {
            v.meanSE = v.min;
            v.countUpdate = 0;
        }
    }
    v.prevEnergy = energy;
    return voice;
}

namespace {

// Sum of nb autocorrelation vectors with their shifts, normalised to 16 bits.
void sumAcf(const Kvo16s* acf, const Kvo16s* sh, int nb, Kvo16s* sum, Kvo16s* shSum) {
    Kvo16s sh0 = sh[0];
    for (int i = 1; i < nb; ++i) sh0 = std::min(sh0, sh[i]);
    sh0 = add(sh0, 14);  // two bits of headroom
    int32_t t[kOrder + 1] = {};
    for (int i = 0; i < nb; ++i) {
        const Kvo16s d = sub(sh0, sh[i]);
        for (int j = 0; j <= kOrder; ++j) t[j] = lAdd(t[j], lShl(acf[i * (kOrder + 1) + j], d));
    }
    const int n = normL(t[0]);
    for (int j = 0; j <= kOrder; ++j) sum[j] = hi16(lShl(t[j], n));
    *shSum = add(sh0, n - 16);
}

// Autocorrelation of a filter's coefficients, normalised, with its shift.
void filterAcf(const Kvo16s* a, Kvo16s* r, Kvo16s* sh) {
    int32_t acc = 0;
    for (int j = 0; j <= kOrder; ++j) acc = lMac(acc, a[j], a[j]);
    const int n = normL(acc);
    r[0] = round16(lShl(acc, n));
    for (int i = 1; i <= kOrder; ++i) {
        acc = 0;
        for (int j = 0; j <= kOrder - i; ++j) acc = lMac(acc, a[j], a[j + i]);
        r[i] = round16(lShl(acc, n));
    }
    *sh = static_cast<Kvo16s>(n);
}

// Itakura distance test: true when the filter of autocorrelation rc no longer
// fits the signal of autocorrelation acf and residual energy alpha by the
// threshold.  The products are halved on overflow, alternately on each side.
bool filterChanged(const Kvo16s* rc, Kvo16s shR, const Kvo16s* acf, Kvo16s alpha, Kvo16s thresh) {
    int sh[2] = {0, 0}, ind = 1;
    int32_t acc;
    for (;;) {
        bool overflow = false;
        auto mac = [&](int32_t a, int x, int y) {
            const int64_t p = 2 * int64_t{x} * y;
            if (p > INT32_MAX) overflow = true;
            const int64_t r = int64_t{a} + s32(p);
            if (r > INT32_MAX || r < INT32_MIN) overflow = true;
            return s32(r);
        };
        acc = lShr(lMult(shr(rc[0], sh[0]), shr(acf[0], sh[1])), 1);
        for (int i = 1; i <= kOrder; ++i) acc = mac(acc, shr(rc[i], sh[0]), shr(acf[i], sh[1]));
        if (!overflow) break;
        ++sh[ind];
        ind = 1 - ind;
    }
    int32_t lim = int32_t{multR(alpha, thresh)} + alpha;
    lim = lShl(lim, shR + 9 - sh[0] - sh[1]);
    return lSub(acc, lim) > 0;
}

}  // namespace

// Levinson-Durbin of a 16-bit autocorrelation; the recursion's fall-back
// filter (the last stable one) is the main coder's.
void EncoderB::levinson(const Kvo16s* r16, Kvo16s* a, Kvo16s* err) {
    EncoderState& s = enc_.state();
    Kvo32s r[kOrder + 1];
    for (int i = 0; i <= kOrder; ++i) r[i] = int32_t{r16[i]} << 16;
    Kvo16s rc[kOrder];
    if (kvosLevinsonDurbin_G729_32s16s(r, kOrder, a, rc, err) == kvoOk) {
        std::memcpy(s.lpc, a, sizeof s.lpc);
        s.rc[0] = rc[0];
        s.rc[1] = rc[1];
    } else {
        std::memcpy(a, s.lpc, sizeof s.lpc);
    }
}

// Keeps the frame's autocorrelation (before the lag window) and, every second
// frame of speech, the sum of the last two in the past average.
void EncoderB::updateCng(bool voice) {
    Dtx& d = *d_;
    const EncoderState& s = enc_.state();
    std::memmove(d.acf + kOrder + 1, d.acf, (Dtx::kCur - 1) * (kOrder + 1) * sizeof(Kvo16s));
    std::memmove(d.shAcf + 1, d.shAcf, (Dtx::kCur - 1) * sizeof(Kvo16s));
    d.shAcf[0] = static_cast<Kvo16s>(-add(16, s.acfNorm));
    for (int i = 0; i <= kOrder; ++i) d.acf[i] = hi16(s.acfRaw[i]);
    if (++d.frCur == Dtx::kCur) {
        d.frCur = 0;
        if (voice) updateSumAcf();
    }
}

void EncoderB::updateSumAcf() {
    Dtx& d = *d_;
    std::memmove(d.sumAcf + kOrder + 1, d.sumAcf, (Dtx::kSum - 1) * (kOrder + 1) * sizeof(Kvo16s));
    std::memmove(d.shSumAcf + 1, d.shSumAcf, (Dtx::kSum - 1) * sizeof(Kvo16s));
    sumAcf(d.acf, d.shAcf, Dtx::kCur, d.sumAcf, d.shSumAcf);
}

// An inactive frame: DTX decision, SID parameters when one is sent, and the
// comfort-noise excitation and filters the decoder will use.  The frame type
// (2 SID, 0 untransmitted) goes to *type; false if a library call failed.
bool EncoderB::codeInactive(int16_t* prm, int* type, Kvo16s* aq) {
    constexpr Kvo16s kThresh1 = 4855, kThresh2 = 3161;
    constexpr int kSidMin = 3;
    Dtx& d = *d_;
    EncoderState& s = enc_.state();
    std::memmove(d.ener + 1, d.ener, (kGainFrames - 1) * sizeof(Kvo16s));
    std::memmove(d.shEner + 1, d.shEner, (kGainFrames - 1) * sizeof(Kvo16s));

    // Current filter and residual energy from the last two frames.
    Kvo16s cur[kOrder + 1], curCoeff[kOrder + 1];
    sumAcf(d.acf, d.shAcf, Dtx::kCur, cur, &d.shEner[0]);
    if (cur[0] == 0)
        d.ener[0] = 0;
    else
        levinson(cur, curCoeff, &d.ener[0]);

    Kvo16s energyq, gainIdx;
    if (d.pastVad) {
        *type = 2;
        d.countFr0 = 0;
        d.nbEner = 1;
        gainIdx = quantSidGain(d.ener, d.shEner, d.nbEner, &energyq);
    } else {
        d.nbEner = std::min(d.nbEner + 1, kGainFrames);
        gainIdx = quantSidGain(d.ener, d.shEner, d.nbEner, &energyq);
        if (filterChanged(d.rCoeff, d.shRCoeff, cur, d.ener[0], kThresh1)) d.flagChange = true;
        if (sub(absS(sub(d.prevEnergy, energyq)), 2) > 0) d.flagChange = true;
        if (++d.countFr0 < kSidMin) {
            *type = 0;
        } else {
            *type = d.flagChange ? 2 : 0;
            d.countFr0 = kSidMin;
        }
    }

    if (*type == 2) {
        d.countFr0 = 0;
        d.flagChange = false;
        // The past average filter, unless the current one departs from it.
        Kvo16s past[kOrder + 1], pastCoeff[kOrder + 1], sh;
        sumAcf(d.sumAcf, d.shSumAcf, Dtx::kSum, past, &sh);
        if (past[0] == 0) {
            std::memset(pastCoeff, 0, sizeof pastCoeff);
            pastCoeff[0] = 4096;
        } else {
            Kvo16s e;
            levinson(past, pastCoeff, &e);
        }
        filterAcf(pastCoeff, d.rCoeff, &d.shRCoeff);
        const Kvo16s* lpc = pastCoeff;
        if (filterChanged(d.rCoeff, d.shRCoeff, cur, d.ener[0], kThresh2)) {
            lpc = curCoeff;
            filterAcf(curCoeff, d.rCoeff, &d.shRCoeff);
        }
        // SID parameters: LSFs (conditioned for the quantiser) and energy.
        Kvo16s lspNew[kOrder], lsf[kOrder], lsfq[kOrder], idx[3];
        if (!ok(s.annexA ? kvosLPCToLSP_G729A_16s(lpc, s.lspOldQ, lspNew)
                         : kvosLPCToLSP_G729_16s(lpc, s.lspOldQ, lspNew)))
            return false;
        kvosLSPToLSF_G729_16s(lspNew, lsf);
        lsf[0] = std::max<Kvo16s>(lsf[0], 40);
        for (int i = 0; i < kOrder - 1; ++i)
            if (sub(lsf[i + 1], lsf[i]) < 642) lsf[i + 1] = add(lsf[i], 642);
        lsf[kOrder - 1] = std::min<Kvo16s>(lsf[kOrder - 1], 25681);
        if (lsf[kOrder - 1] < lsf[kOrder - 2]) lsf[kOrder - 2] = sub(lsf[kOrder - 1], 321);
        if (!ok(kvosLSFQuant_G729B_16s(lsf, s.prevFreq, lsfq, idx))) return false;
        kvosLSFToLSP_G729_16s(lsfq, d.lspSidQ);
        d.prevEnergy = energyq;
        prm[0] = idx[0];
        prm[1] = idx[1];
        prm[2] = idx[2];
        prm[3] = gainIdx;
        d.sidGain = kSidGain[gainIdx];
    }

    // Comfort noise at the smoothed gain, and the interpolated filters.
    d.curGain = d.pastVad ? d.sidGain : add(multR(d.curGain, kGain0), multR(d.sidGain, kGain1));
    if (!comfortNoise(d.curGain, s.exc + kExcHistory, &d.seed, &enc_)) return false;
    interpolateLpc(s.lspOldQ, d.lspSidQ, aq);
    std::memcpy(s.lspOldQ, d.lspSidQ, sizeof d.lspSidQ);
    if (d.frCur == 0) updateSumAcf();
    return true;
}

EncoderB::EncoderB(bool annexA) : enc_(annexA), v_(new Vad), d_(new Dtx) {}
EncoderB::~EncoderB() {
    delete v_;
    delete d_;
}

bool EncoderB::frame(const int16_t* pcm, int16_t* prm, int* type) {
    Dtx& d = *d_;
    d.frame = d.frame == 32767 ? 256 : d.frame + 1;
    Kvo16s lspNew[kOrder], lsf[kOrder];
    if (!enc_.analyse(pcm, lspNew)) return false;
    kvosLSPToLSF_Norm_G729_16s(lspNew, lsf);
    const bool voice = detect(lsf);
    updateCng(voice);
    if (!voice) {
        Kvo16s aq[2 * (kOrder + 1)];
        // The comfort noise's Levinson calls move the fall-back filter; the
        // weighting of this frame still sees the frame's own analysis.
        EncoderState& s = enc_.state();
        Kvo16s lpc[kOrder + 1], rc[2];
        std::memcpy(lpc, s.lpc, sizeof lpc);
        std::memcpy(rc, s.rc, sizeof rc);
        if (!codeInactive(prm, type, aq)) return false;
        Kvo16s lpcAfter[kOrder + 1], rcAfter[2];
        std::memcpy(lpcAfter, s.lpc, sizeof lpc);
        std::memcpy(rcAfter, s.rc, sizeof rc);
        std::memcpy(s.lpc, lpc, sizeof lpc);
        std::memcpy(s.rc, rc, sizeof rc);
        d.ppastVad = d.pastVad;
        d.pastVad = 0;
        enc_.updateInactive(lspNew, aq);
        std::memcpy(s.lpc, lpcAfter, sizeof lpc);
        std::memcpy(s.rc, rcAfter, sizeof rc);
        return true;
    }
    *type = 1;
    d.seed = kInitSeed;
    d.ppastVad = d.pastVad;
    d.pastVad = 1;
    return enc_.codeActive(lspNew, prm);
}

// ============================ bit streams ================================

const int kSidBits[kSidParams] = {1, 5, 4, 5};

void packSid(const int16_t* prm, uint8_t* bytes) {
    std::memset(bytes, 0, kSidBytes);
    int bit = 0;
    for (int p = 0; p < kSidParams; ++p)
        for (int b = kSidBits[p] - 1; b >= 0; --b, ++bit)
            if ((prm[p] >> b) & 1) bytes[bit >> 3] |= static_cast<uint8_t>(0x80 >> (bit & 7));
}

void unpackSid(const uint8_t* bytes, int16_t* prm) {
    int bit = 0;
    for (int p = 0; p < kSidParams; ++p) {
        int v = 0;
        for (int b = 0; b < kSidBits[p]; ++b, ++bit)
            v = (v << 1) | ((bytes[bit >> 3] >> (7 - (bit & 7))) & 1);
        prm[p] = static_cast<int16_t>(v);
    }
}

}  // namespace kvosc::coders::g729b

// ============================ tool records ===============================
//
// Formats.  itu: the ITU serial words of each frame, sync 0x6b21 (0x6b20 for
// a frame flagged bad), a size word (80 speech, 16 SID, 0 untransmitted),
// then one word per bit (0x0081 for 1, 0x007f for 0; the SID frame's 16th
// bit is a zero pad).  packed: per frame one type octet (1 speech, 2 SID,
// 0 untransmitted) followed by 10 octets (speech, RFC 3551 order), 2 octets
// (SID: 15 bits MSB first and a zero pad bit) or nothing.

namespace kvosc::coders {
namespace {

using namespace g729b;

constexpr int16_t kSync = 0x6b21, kSyncBad = 0x6b20;

bool pickFormat(const Options& opt, std::string& format, std::string& error) {
    format = opt.get("format", "packed");
    if (format == "itu" || format == "packed") return true;
    error = "unknown --format '" + format + "' (itu or packed)";
    return false;
}

void putSerial(int type, const int16_t* prm, std::vector<int16_t>& words) {
    words.push_back(kSync);
    if (type == 1) {
        int16_t w[g729::kSerialWords];
        g729::pack_serial(prm, w);
        words.insert(words.end(), w + 1, w + g729::kSerialWords);
        return;
    }
    words.push_back(static_cast<int16_t>(type == 2 ? 16 : 0));
    if (type != 2) return;
    for (int p = 0; p < kSidParams; ++p)
        for (int b = kSidBits[p] - 1; b >= 0; --b)
            words.push_back(((prm[p] >> b) & 1) ? 0x0081 : 0x007f);
    words.push_back(0x007f);
}

bool encodeStream(bool annexA, const Options& opt, const std::vector<int16_t>& pcm,
                  std::vector<uint8_t>& stream, std::string& error) {
    std::string format;
    if (!pickFormat(opt, format, error)) return false;
    EncoderB enc(annexA);
    std::vector<int16_t> words;
    stream.clear();
    for (size_t at = 0; at < pcm.size(); at += g729::kFrame) {
        int16_t in[g729::kFrame] = {}, prm[g729::kParams] = {};
        std::copy(pcm.begin() + at, pcm.begin() + std::min(at + g729::kFrame, pcm.size()), in);
        int type = 1;
        if (!enc.frame(in, prm, &type)) {
            error = "encoder failed at frame " + std::to_string(at / g729::kFrame);
            return false;
        }
        if (format == "itu") {
            putSerial(type, prm, words);
            continue;
        }
        stream.push_back(static_cast<uint8_t>(type));
        uint8_t b[g729::kPackedBytes];
        if (type == 1) {
            g729::pack(prm, b);
            stream.insert(stream.end(), b, b + g729::kPackedBytes);
        } else if (type == 2) {
            packSid(prm, b);
            stream.insert(stream.end(), b, b + kSidBytes);
        }
    }
    if (format == "itu") stream = bytes_from_words(words);
    return true;
}

bool decodeStream(bool annexA, const Options& opt, const std::vector<uint8_t>& stream,
                  std::vector<int16_t>& pcm, std::string& error) {
    std::string format;
    if (!pickFormat(opt, format, error)) return false;
    DecoderB dec(annexA);
    pcm.clear();
    const std::vector<int16_t> words =
        format == "itu" ? words_from_bytes(stream) : std::vector<int16_t>();
    size_t at = 0;
    const size_t end = format == "itu" ? words.size() : stream.size();
    for (long f = 0; at < end; ++f) {
        int16_t prm[g729::kParams] = {}, out[g729::kFrame];
        int type;
        bool erased = false;
        if (format == "itu") {
            if (at + 2 > end || (words[at] != kSync && words[at] != kSyncBad)) {
                error = "frame " + std::to_string(f) + ": no sync word";
                return false;
            }
            const int n = words[at + 1];
            if ((n != 80 && n != 16 && n != 0) || at + 2 + n > end) {
                error = "frame " + std::to_string(f) + ": bad size word " + std::to_string(n);
                return false;
            }
            const int16_t* w = words.data() + at;
            type = n == 80 ? 1 : n == 16 ? 2 : 0;
            erased = w[0] == kSyncBad;
            for (int i = 0; i < n; ++i) erased |= w[2 + i] == 0;
            if (type == 1) {
                g729::unpack_serial(w, prm);
            } else if (type == 2) {
                int k = 2;
                for (int p = 0; p < kSidParams; ++p) {
                    int v = 0;
                    for (int b = 0; b < kSidBits[p]; ++b, ++k) v = (v << 1) | (w[k] == 0x0081);
                    prm[p] = static_cast<int16_t>(v);
                }
            }
            at += 2 + n;
        } else {
            type = stream[at];
            const size_t n = type == 1 ? g729::kPackedBytes : type == 2 ? kSidBytes : 0;
            if (type > 2 || at + 1 + n > end) {
                error = "frame " + std::to_string(f) + ": bad frame type or truncated frame";
                return false;
            }
            if (type == 1) g729::unpack(stream.data() + at + 1, prm);
            if (type == 2) unpackSid(stream.data() + at + 1, prm);
            at += 1 + n;
        }
        if (!dec.frame(prm, type, erased, out)) {
            error = "decoder failed at frame " + std::to_string(f);
            return false;
        }
        pcm.insert(pcm.end(), out, out + g729::kFrame);
    }
    return true;
}

VerifyRow compareWords(const std::string& name, const std::vector<int16_t>& got,
                       const std::vector<int16_t>& want, bool serial) {
    VerifyRow row;
    row.set = name;
    // Frames: serial frames are delimited by their size words, PCM by 80 samples.
    size_t a = 0;
    for (long f = 0; a < want.size(); ++f) {
        const size_t len = serial ? 2 + static_cast<size_t>(want[a + 1]) : g729::kFrame;
        ++row.frames;
        for (size_t i = 0; i < len && a + i < want.size(); ++i) {
            if (a + i < got.size() && got[a + i] == want[a + i]) continue;
            if (row.mismatched++ == 0)
                row.note = "first difference: frame " + std::to_string(f) + ", " +
                           (serial ? "word " : "sample ") + std::to_string(i) + " (" +
                           (a + i < got.size() ? std::to_string(got[a + i]) : "none") + " vs " +
                           std::to_string(want[a + i]) + ")";
            break;
        }
        a += len;
        if (serial && row.mismatched && a >= got.size()) break;
    }
    return row;
}

std::vector<VerifyRow> verifySets(bool annexA, const std::string& dir) {
    std::vector<VerifyRow> rows;
    Options itu;
    itu.values.push_back({"format", "itu"});
    const std::string suffix = annexA ? "a" : "";
    for (int n = 1; n <= 6; ++n) {
        const std::string set = "tstseq" + std::to_string(n);
        std::vector<uint8_t> in, bit, out;
        // Encoder: tstseqN.bin to tstseqN(a).bit.
        const bool haveBit = read_file(dir + "/" + set + suffix + ".bit", bit);
        if (read_file(dir + "/" + set + ".bin", in) && haveBit) {
            std::vector<int16_t> pcm = words_from_bytes(in);
            pcm.resize(pcm.size() / g729::kFrame * g729::kFrame);
            std::vector<uint8_t> got;
            std::string error;
            VerifyRow row;
            if (encodeStream(annexA, itu, pcm, got, error))
                row = compareWords(set + suffix + " encoder", words_from_bytes(got),
                                   words_from_bytes(bit), true);
            else
                row = {set + suffix + " encoder", 0, 1, error};
            rows.push_back(row);
        }
        // Decoder: tstseqN(a).bit (sets 5 and 6: tstseqN.bit) to tstseqN(a).out.
        std::vector<uint8_t> stream;
        const bool haveStream =
            read_file(dir + "/" + set + (n >= 5 ? "" : suffix) + ".bit", stream);
        const bool haveOut = read_file(dir + "/" + set + suffix + ".out", out);
        if (!haveStream || !haveOut) {
            VerifyRow row;
            row.set = set + suffix + " decoder";
            row.skipped = true;
            row.note = "bit stream or output file missing";
            rows.push_back(row);
            continue;
        }
        std::vector<int16_t> pcm;
        std::string error;
        VerifyRow row;
        if (decodeStream(annexA, itu, stream, pcm, error))
            row = compareWords(set + suffix + " decoder", pcm, words_from_bytes(out), false);
        else
            row = {set + suffix + " decoder", 0, 1, error};
        rows.push_back(row);
    }
    return rows;
}

}  // namespace

extern const Coder kG729B = {
    "g729b",
    "ITU-T G.729 with Annex B (VAD, DTX, comfort noise), 8 kbit/s",
    "--format packed|itu (packed: a type octet, then 10, 2 or 0 octets; itu: serial words)",
    8000,
    8.0,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encodeStream(false, o, p, s, e);
    },
    [](const Options& o, const std::vector<uint8_t>& s, std::vector<int16_t>& p, std::string& e) {
        return decodeStream(false, o, s, p, e);
    },
    [](const std::string& dir) { return verifySets(false, dir); },
};

extern const Coder kG729AB = {
    "g729ab",
    "ITU-T G.729 Annex A with Annex B (VAD, DTX, comfort noise), 8 kbit/s",
    "--format packed|itu (packed: a type octet, then 10, 2 or 0 octets; itu: serial words)",
    8000,
    8.0,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encodeStream(true, o, p, s, e);
    },
    [](const Options& o, const std::vector<uint8_t>& s, std::vector<int16_t>& p, std::string& e) {
        return decodeStream(true, o, s, p, e);
    },
    [](const std::string& dir) { return verifySets(true, dir); },
};

}  // namespace kvosc::coders
