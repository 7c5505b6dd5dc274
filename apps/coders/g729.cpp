// ITU-T G.729 (8 kbit/s CS-ACELP) and its reduced-complexity Annex A, built
// from the library's exported steps in the order of the Recommendation's
// block diagrams.
//
// Encoder, per 10 ms frame: pre-processing high-pass (140 Hz, halving), LP
// analysis on the 240-sample asymmetric window with lag window and
// Levinson-Durbin, LSP conversion, quantisation and interpolation, perceptual
// weighting (adaptive gammas from the LARs and LSF spacing in G.729; fixed
// 0.75 with a 0.7 tilt in Annex A), open-loop pitch; then per 40-sample
// subframe: impulse response, target, closed-loop pitch, fixed codebook with
// pitch sharpening, gain quantisation, excitation and memory update.  At
// 11.8 kbit/s (Annex E forward mode) the LSP quantiser leaves the history
// shift to the coder, the fixed codebook places ten pulses (35 bits) with
// signs guided by the LTP residual, and the parity covers seven bits.
//
// Decoder: parity check of the first pitch index, LSP decode (or the erased
// frame's history update), adaptive and fixed vectors, gain decode,
// synthesis (the excitation history is scaled down by 4 and the subframe
// synthesised again when it overflows), post filter (long-term, short-term,
// tilt, gain control) and the 100 Hz post-processing high-pass.  An erased
// frame repeats the LSFs, the last pitch lag (growing by one per frame) and
// decaying gains, with random fixed codebook indices.
//
// Signals are Q0, LP coefficients Q12, LSPs Q15, gains Q14 (pitch) and Q1
// (code), the fixed code vector Q13.  The few operations that are not steps
// of the library (sharpening, taming, index coding, memory updates) follow
// the Recommendation's saturating 16/32-bit basic operations.
#include "coders/g729.h"
#include "coders/g729_state.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "coders/g729_filter_tables.h"
#include "coders/g729_tables.h"
#include "coders/g729d_tables.h"

namespace kvosc::coders::g729 {

const int kParamBits[kParams] = {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7};
const int kParamBits6k[kParams] = {8, 10, 8, 0, 9, 2, 6, 4, 9, 2, 6};

namespace {

constexpr int kGpClip = 15564;  // 0.95 in Q14: pitch gain limit while taming

// ---- saturating basic operations for the steps the coder does itself ----
inline Kvo16s sat16(int64_t v) {
    return static_cast<Kvo16s>(std::clamp<int64_t>(v, -32768, 32767));
}
inline int32_t sat32(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}
inline Kvo16s add(int a, int b) {
    return sat16(int64_t{a} + b);
}
inline Kvo16s sub(int a, int b) {
    return sat16(int64_t{a} - b);
}
inline Kvo16s mult(int a, int b) {
    return sat16((int64_t{a} * b) >> 15);
}
// High half of the doubled product shifted left by n, saturated at each step.
inline Kvo16s multShlHigh(int a, int b, int n) {
    return static_cast<Kvo16s>(sat32((int64_t{a} * b * 2) << n) >> 16);
}
inline bool ok(KvoStatus s) {
    return s >= kvoOk;
}

// A(z/gamma): coefficient i times gamma^i, each factor rounded.
void weightAz(const Kvo16s* a, Kvo16s gamma, Kvo16s* ap) {
    kvosMulPowerC_NR_16s_Sfs(a, gamma, ap, kOrder + 1, 15);
}

// Interpolated LP filters of a frame's two subframes from the old and new LSPs.
void interpolateLpc(const Kvo16s* lspOld, const Kvo16s* lspNew, Kvo16s* a) {
    Kvo16s lsp[kOrder];
    kvosInterpolate_G729_16s(lspNew, lspOld, lsp, kOrder);
    kvosLSPToLPC_G729_16s(lsp, a);
    kvosLSPToLPC_G729_16s(lspNew, a + kOrder + 1);
}

// Parity of the six most significant bits of the first pitch index.
Kvo16s pitchParity(int index) {
    int sum = 1;
    for (int i = 2; i <= 7; ++i) sum += (index >> i) & 1;
    return static_cast<Kvo16s>(sum & 1);
}

// 11.8 kbit/s: parity of the seven most significant bits of the first pitch index.
Kvo16s pitchParity7(int index) {
    int sum = 1;
    for (int i = 1; i <= 7; ++i) sum += (index >> i) & 1;
    return static_cast<Kvo16s>(sum & 1);
}

// Pitch sharpening of an impulse response or code vector for a lag below the
// subframe: v[i] += sharp v[i - T0], sharp in Q14.
void sharpen(Kvo16s* v, int t0, Kvo16s sharp) {
    const Kvo16s g = static_cast<Kvo16s>(sharp << 1);
    for (int i = t0; i < kSubframe; ++i) v[i] = add(v[i], mult(v[i - t0], g));
}

// The pitch contribution gp v (gp Q14) of one sample, as the 11.8 kbit/s
// coder takes it from the LP residual: doubled product shifted left once,
// high half.
Kvo16s ltpPart(int v, int gp) {
    return multShlHigh(v, gp, 1);
}

// Pulse positions of a 17-bit fixed codebook index (13 position bits).
void pulsePositions(int index, int* pos) {
    pos[0] = (index & 7) * 5;
    pos[1] = ((index >> 3) & 7) * 5 + 1;
    pos[2] = ((index >> 6) & 7) * 5 + 2;
    pos[3] = ((index >> 10) & 7) * 5 + 3 + ((index >> 9) & 1);
}

// The four-pulse code vector (Q13, +-1 as 8191 / -8192) of a position and sign index.
void decodeFixedVector(int sign, int index, Kvo16s* code) {
    int pos[4];
    pulsePositions(index, pos);
    std::memset(code, 0, kSubframe * sizeof(Kvo16s));
    for (int j = 0; j < 4; ++j) code[pos[j]] = ((sign >> j) & 1) ? 8191 : -8192;
}

// Annex D two-pulse code vector: a 9-bit position index (Gray-coded 4-bit
// index into the odd positions of tracks 1 and 3, Gray-coded 5-bit index into
// tracks 0, 2, 4 and then track 1) and two sign bits; coinciding pulses add.
void decodeFixedVector6k(int sign, int index, Kvo16s* code) {
    auto gray = [](int g) {
        int v = 0;
        for (; g; g >>= 1) v ^= g;
        return v;
    };
    const int i0 = gray(index & 15), i1 = gray((index >> 4) & 31);
    const int pos0 = 5 * (i0 >> 1) + ((i0 & 1) ? 3 : 1);
    const int pos1 = i1 < 24 ? 5 * (i1 / 3) + 2 * (i1 % 3) : 5 * (i1 - 24) + 1;
    std::memset(code, 0, kSubframe * sizeof(Kvo16s));
    code[pos0] = (sign & 1) ? 8191 : -8192;
    code[pos1] = add(code[pos1], (sign & 2) ? 8191 : -8192);
}

// Annex E ten-pulse code vector: per track a 7-bit word, the low nibble one
// pulse (sign bit 3, position bits 0-2), bits 4-6 the other's position; the
// second pulse has the opposite sign when it lies after the first.
void decodeFixedVector35(const int16_t* idx, Kvo16s* code) {
    std::memset(code, 0, kSubframe * sizeof(Kvo16s));
    for (int t = 0; t < 5; ++t) {
        const int e = idx[t];
        const int p1 = (e & 7) * 5 + t, p2 = ((e >> 4) & 7) * 5 + t;
        int sign = (e & 8) ? -4096 : 4096;
        code[p1] = add(code[p1], sign);
        if (p2 > p1) sign = -sign;
        code[p2] = add(code[p2], sign);
    }
}

// Filtered code vector: signed impulse responses at the pulses, summed in pulse order.
void filteredFixedVector(int sign, int index, const Kvo16s* h, Kvo16s* y) {
    int pos[4];
    pulsePositions(index, pos);
    std::memset(y, 0, kSubframe * sizeof(Kvo16s));
    for (int j = 0; j < 4; ++j) {
        const bool plus = (sign >> j) & 1;
        for (int i = pos[j]; i < kSubframe; ++i) {
            const Kvo16s t = h[i - pos[j]];
            y[i] = add(y[i], plus ? t : (t == -32768 ? 32767 : -t));
        }
    }
}

// Energy of the fixed code vector, as the gain decoder expects it.
Kvo32s energy(const Kvo16s* v) {
    int64_t e = 0;
    for (int i = 0; i < kSubframe; ++i) e += int32_t{v[i]} * v[i];
    return sat32(e);
}

// The erased frame's random fixed codebook indices: s = 31821 s + 13849, 16 bits.
Kvo16s random(Kvo16s* seed) {
    *seed = static_cast<Kvo16s>(static_cast<uint16_t>(*seed * 31821 + 13849));
    return *seed;
}

void initHighPass(KvoHighPassState_G729* hp, const Kvo16s* a, const Kvo16s* b) {
    Kvo16s coeffs[6];
    std::memcpy(coeffs, a, 3 * sizeof(Kvo16s));
    std::memcpy(coeffs + 3, b, 3 * sizeof(Kvo16s));
    kvosHighPassFilterInit_G729(coeffs, hp);
}

void resetLsfHistory(Kvo16s* prevFreq) {
    for (int k = 0; k < 4; ++k)
        std::memcpy(prevFreq + kOrder * k, kvo::tab::freq_prev_reset, kOrder * sizeof(Kvo16s));
}

}  // namespace

// ============================ encoder ===================================

EncoderState::EncoderState(bool a) : annexA(a) {
    initHighPass(&hp, kvo::tab::a140, kvo::tab::b140);
    std::memcpy(lspOld, kLspStart, sizeof lspOld);
    std::memcpy(lspOldQ, kLspStart, sizeof lspOldQ);
    resetLsfHistory(prevFreq);
}

namespace {

// Taming: the subframes of the past excitation that a lag of t reaches, 0 the newest.
inline int zone(int delay) {
    return delay / kSubframe;
}

// True when the excitation that the chosen lag reads may already have built up
// an unstable pitch loop (worst accumulated gain above 60000 in Q14).
bool tamingNeeded(const EncoderState& s, int t0, int frac) {
    const int t1 = frac > 0 ? t0 + 1 : t0;
    const int zone1 = zone(std::max(t1 - kSubframe - 10, 0));
    const int zone2 = zone(t1 + 8);
    Kvo32s worst = -1;
    for (int i = zone2; i >= zone1; --i) worst = std::max(worst, s.excErr[i]);
    return worst > 983040000;
}

Kvo32s gainProduct(Kvo32s err, Kvo16s gain) {
    const Kvo16s hi = static_cast<Kvo16s>(err >> 16);
    const Kvo16s lo = static_cast<Kvo16s>((err >> 1) - (Kvo32s{hi} << 15));
    const int32_t p = sat32(2 * (int64_t{hi} * gain + ((int32_t{lo} * gain) >> 15)));
    return sat32(0x4000 + int64_t{sat32(int64_t{p} << 1)});
}

void updateTaming(EncoderState& s, Kvo16s gainPitch, int t0) {
    Kvo32s worst = -1;
    if (t0 < kSubframe) {
        const Kvo32s once = gainProduct(s.excErr[0], gainPitch);
        worst = std::max(worst, once);
        worst = std::max(worst, gainProduct(once, gainPitch));
    } else {
        for (int i = zone(t0 - kSubframe); i <= zone(t0 - 1); ++i)
            worst = std::max(worst, gainProduct(s.excErr[i], gainPitch));
    }
    for (int i = 3; i >= 1; --i) s.excErr[i] = s.excErr[i - 1];
    s.excErr[0] = worst;
}

// G.729 adaptive perceptual weighting: LARs of the first two reflection
// coefficients (piecewise linear, Q11; the first subframe takes the mean of
// the last and the new frame's), a flatness decision with hysteresis
// (non-flat below -1.74 and above 0.65, flat again above -1.52 or below
// 0.43), then fixed gammas (0.94, 0.6) for a flat spectrum, or gamma1 0.98
// with gamma2 falling with the smallest LSF spacing, held within 0.4 .. 0.7.
void perceptualGammas(EncoderState& s, const Kvo16s* lsfInt, const Kvo16s* lsfNew, Kvo16s* gamma1,
                      Kvo16s* gamma2) {
    Kvo16s lar[4];
    for (int i = 0; i < 2; ++i) {
        const int r = s.rc[i] == -32768 ? 32767 : std::abs(int{s.rc[i]});
        const int cur = r >> 4;
        int v = cur;
        if (cur > 1299) {
            const int half = cur >> 1;
            const int32_t slope = cur <= 1815 ? 4567 : cur <= 1944 ? 11776 : 27443;
            const int32_t icpt = cur <= 1815 ? 3271557 : cur <= 1944 ? 16357786 : 46808433;
            v = static_cast<Kvo16s>((2 * half * slope - icpt) >> 11);
        }
        lar[2 + i] = static_cast<Kvo16s>(s.rc[i] < 0 ? -v : v);
        lar[i] = static_cast<Kvo16s>(add(s.larOld[i], lar[2 + i]) >> 1);
        s.larOld[i] = lar[2 + i];
    }
    for (int k = 0; k < 2; ++k) {
        const Kvo16s l0 = lar[2 * k], l1 = lar[2 * k + 1];
        if (s.smooth) {
            if (l0 < -3562 && l1 > 1336) s.smooth = 0;
        } else if (l0 > -3116 || l1 < 890) {
            s.smooth = 1;
        }
        if (s.smooth) {
            gamma1[k] = 30802;
            gamma2[k] = 19661;
            continue;
        }
        // Smallest LSF spacing, on the scale where 1.0 is pi (twice the normalised
        // frequency); gamma2 = 1 - 6 pi d in Q10, then Q15.
        const Kvo16s* lsf = k == 0 ? lsfInt : lsfNew;
        int dmin = sub(lsf[1], lsf[0]);
        for (int i = 1; i < kOrder - 1; ++i) dmin = std::min<int>(dmin, sub(lsf[i + 1], lsf[i]));
        const Kvo16s t = sub(1024, mult(19302, add(dmin, dmin)));
        gamma1[k] = 32113;
        gamma2[k] = std::clamp<Kvo16s>(sat16(int32_t{t} << 5), 13107, 22938);
    }
}

// LP analysis of the window: autocorrelation, lag window, Levinson-Durbin
// (the previous filter is kept when the recursion gives up), LSPs.
bool lpAnalysis(EncoderState& s, Kvo16s* lspNew) {
    Kvo32s* r = s.acf;
    if (!ok(kvosAutoCorr_G729B(s.speech, &s.acfNorm, r))) return false;
    std::memcpy(s.acfRaw, r, sizeof s.acfRaw);
    if (!ok(kvosLagWindow_G729_32s_I(r + 1, 12))) return false;
    Kvo16s a[kOrder + 1], rc[kOrder], residual;
    if (kvosLevinsonDurbin_G729_32s16s(r, kOrder, a, rc, &residual) == kvoOk) {
        std::memcpy(s.lpc, a, sizeof a);
        s.rc[0] = rc[0];
        s.rc[1] = rc[1];
    }
    return ok(s.annexA ? kvosLPCToLSP_G729A_16s(s.lpc, s.lspOld, lspNew)
                       : kvosLPCToLSP_G729_16s(s.lpc, s.lspOld, lspNew));
}

// Weighted speech of the frame and the weighting filters of each subframe
// (ap: per subframe 22 coefficients).  G.729: W(z) = A(z/g1)/A(z/g2) on the
// unquantised filters a (the interpolated one, then the frame's own).
void weightedSpeech(EncoderState& s, const Kvo16s* lspNew, Kvo16s* a, Kvo16s* ap) {
    const Kvo16s* speech = s.speech + 120;
    Kvo16s* wsp = s.wsp + kPitMax;
    Kvo16s lspInt[kOrder], lsfInt[kOrder], lsfNew[kOrder], g1[2], g2[2];
    kvosInterpolate_G729_16s(lspNew, s.lspOld, lspInt, kOrder);
    kvosLSPToLPC_G729_16s(lspInt, a);
    std::memcpy(a + kOrder + 1, s.lpc, sizeof s.lpc);
    kvosLSPToLSF_Norm_G729_16s(lspInt, lsfInt);
    kvosLSPToLSF_Norm_G729_16s(lspNew, lsfNew);
    perceptualGammas(s, lsfInt, lsfNew, g1, g2);
    for (int k = 0; k < 2; ++k) {
        Kvo16s* w = ap + 22 * k;  // A(z/g1) then A(z/g2)
        weightAz(a + 11 * k, g1[k], w);
        weightAz(a + 11 * k, g2[k], w + 11);
        kvosIIR16s_G729_16s(w, speech + 40 * k - kOrder, wsp + 40 * k, s.memW);
    }
}

// Annex A: W(z) = A(z)/A(z/0.75) on the quantised filters aq; the open-loop
// search sees the LP residual through 1/(A(z/0.75)(1 - 0.7 z^-1)).  The
// residual stays in the excitation buffer for the subframes' targets.
void weightedSpeechA(EncoderState& s, const Kvo16s* aq, Kvo16s* ap) {
    const Kvo16s* speech = s.speech + 120;
    Kvo16s* wsp = s.wsp + kPitMax;
    Kvo16s* res = s.exc + kExcHistory;
    for (int k = 0; k < 2; ++k) {
        weightAz(aq + 11 * k, 24576, ap + 22 * k);
        kvosResidualFilter_G729_16s(speech + 40 * k, aq + 11 * k, res + 40 * k);
        Kvo16s a1[kOrder + 1];
        a1[0] = 4096;
        for (int i = 1; i <= kOrder; ++i)
            a1[i] = sub(ap[22 * k + i], mult(ap[22 * k + i - 1], 22938));
        kvosSynthesisFilter_NR_16s_Sfs(a1, res + 40 * k, wsp + 40 * k, kSubframe, 12, s.memW);
        std::memcpy(s.memW, wsp + 40 * k + kSubframe - kOrder, sizeof s.memW);
    }
}

}  // namespace

Encoder::Encoder(bool annexA) : s_(new EncoderState(annexA)) {}
Encoder::~Encoder() {
    delete s_;
}

bool Encoder::frame(const int16_t* pcm, int16_t* prm, Rate rate) {
    Kvo16s lspNew[kOrder];
    return analyse(pcm, lspNew) && codeActive(lspNew, prm, rate);
}

bool Encoder::analyse(const int16_t* pcm, Kvo16s* lspNew) {
    EncoderState& s = *s_;
    // Pre-processing: 140 Hz high-pass with the halving folded into its gains.
    std::memcpy(s.speech + 160, pcm, kFrame * sizeof(Kvo16s));
    if (!ok(kvosHighPassFilter_G729_16s_ISfs(s.speech + 160, kFrame, 12, &s.hp))) return false;
    return lpAnalysis(s, lspNew);
}

bool Encoder::codeActive(const Kvo16s* lspNew, int16_t* prmOut, Rate rate) {
    EncoderState& s = *s_;
    const bool low = rate == Rate::k6k4 && !s.annexA;
    // 11.8 kbit/s (forward mode): the 8 kbit/s words are gathered here and
    // the five track words of each subframe go to tracks[5 k ..].
    const bool high = rate == Rate::k11k8 && !s.annexA;
    int16_t p8[kParams] = {}, tracks[10] = {};
    int16_t* prm = high ? p8 : prmOut;
    Kvo16s* speech = s.speech + 120;
    Kvo16s* exc = s.exc + kExcHistory;

    // LSP quantisation and interpolation.
    Kvo16s lspNewQ[kOrder], code2[2];
    if (high) {
        // Annex E form: the quantiser leaves the predictor history alone; a
        // forward-mode frame pushes its code vector in, newest row first.
        Kvo16s row[kOrder];
        kvosLSPQuant_G729E_16s(lspNew, s.prevFreq, row, lspNewQ, code2);
        std::memmove(s.prevFreq + kOrder, s.prevFreq, 3 * kOrder * sizeof(Kvo16s));
        std::memcpy(s.prevFreq, row, sizeof row);
    } else {
        kvosLSPQuant_G729_16s(lspNew, s.prevFreq, lspNewQ, code2);
    }
    prm[0] = code2[0];
    prm[1] = code2[1];
    Kvo16s aq[2 * (kOrder + 1)], a[2 * (kOrder + 1)], ap[4 * (kOrder + 1)];
    interpolateLpc(s.lspOldQ, lspNewQ, aq);

    // Perceptual weighting filters, weighted speech, open-loop pitch.
    Kvo16s* wsp = s.wsp + kPitMax;
    if (!s.annexA)
        weightedSpeech(s, lspNew, a, ap);
    else
        weightedSpeechA(s, aq, ap);
    std::memcpy(s.lspOld, lspNew, kOrder * sizeof(Kvo16s));
    std::memcpy(s.lspOldQ, lspNewQ, sizeof lspNewQ);
    Kvo16s tOp;
    if (!ok(s.annexA ? kvosOpenLoopPitchSearch_G729A_16s(wsp, &tOp)
                     : kvosOpenLoopPitchSearch_G729_16s(wsp, &tOp)))
        return false;

    int t0Min = 0, t0First = tOp;
    for (int k = 0; k < 2; ++k) {
        const int i0 = 40 * k;
        const Kvo16s* aqk = aq + 11 * k;
        const Kvo16s* ap1 = ap + 22 * k;       // G.729: A(z/g1); Annex A: A(z/0.75)
        const Kvo16s* ap2 = ap + 22 * k + 11;  // G.729: A(z/g2)
        Kvo16s h[kSubframe], xn[kSubframe], zero[kOrder] = {}, lpRes[kSubframe] = {};

        // Impulse response of the weighted synthesis filter and the target signal.
        if (!s.annexA) {
            Kvo16s ai[kSubframe] = {};
            std::memcpy(ai, ap1, (kOrder + 1) * sizeof(Kvo16s));
            kvosSynthesisFilter_NR_16s_Sfs(aqk, ai, h, kSubframe, 12, zero);
            kvosSynthesisFilter_NR_16s_ISfs(ap2, h, kSubframe, 12, zero);
            kvosResidualFilter_G729_16s(speech + i0, aqk, exc + i0);
            std::memcpy(lpRes, exc + i0, sizeof lpRes);
            kvosSynthesisFilter_NR_16s_Sfs(aqk, exc + i0, s.err + kOrder, kSubframe, 12, s.err);
            kvosResidualFilter_G729_16s(s.err + kOrder, ap1, xn);
            kvosSynthesisFilter_NR_16s_ISfs(ap2, xn, kSubframe, 12, s.memW0);
        } else {
            kvosSynthesisFilterZeroStateResponse_NR_16s(ap1, h, kSubframe, 12);
            kvosSynthesisFilter_NR_16s_Sfs(ap1, exc + i0, xn, kSubframe, 12, s.memW0);
        }

        // Closed-loop pitch and its index (with parity in the first subframe).
        Kvo16s delay[2], adapt[kSubframe], y1[kSubframe], gp;
        const Kvo32s open = k == 0 ? tOp : t0First;
        Kvo16s* excK = exc + i0 - kExcHistory;
        if (low) {
            // Annex D: the search leaves the vector to the caller.
            if (!ok(kvosAdaptiveCodebookSearch_G729D_16s(open, xn, h, excK, k, delay)) ||
                !ok(kvosDecodeAdaptiveVector_G729_16s(delay, excK, adapt)))
                return false;
        } else if (!ok(s.annexA ? kvosAdaptiveCodebookSearch_G729A_16s(open, xn, h, excK, delay,
                                                                       adapt, k)
                                : kvosAdaptiveCodebookSearch_G729_16s(open, xn, h, excK, delay,
                                                                      adapt, k))) {
            return false;
        }
        const int t0 = delay[0], frac = delay[1];
        if (k == 0) {
            prm[2] = static_cast<Kvo16s>(t0 <= 85 ? 3 * t0 - 58 + frac : t0 + 112);
            prm[3] = low ? 0 : high ? pitchParity7(prm[2]) : pitchParity(prm[2]);
            t0First = t0;
            t0Min = std::max(t0 - 5, kPitMin);
            if (t0Min + 9 > kPitMax) t0Min = kPitMax - 9;
        } else if (low) {
            // 4 bits: whole lags at the window's ends, thirds in its middle.
            const int t = t0 - t0Min;
            prm[7] = static_cast<Kvo16s>(t < 3 ? t : t > 6 ? t + 6 : 3 * t + frac - 6);
        } else {
            prm[7] = static_cast<Kvo16s>(3 * (t0 - t0Min) + 2 + frac);
        }

        // Pitch gain (limited while taming) and the target of the fixed codebook.
        if (!ok(s.annexA ? kvosAdaptiveCodebookGain_G729A_16s(xn, ap1, adapt, y1, &gp)
                         : kvosAdaptiveCodebookGain_G729_16s(xn, h, adapt, y1, &gp)))
            return false;
        const bool tame = tamingNeeded(s, t0, frac);
        if (tame && gp > kGpClip) gp = kGpClip;
        Kvo16s xn2[kSubframe];
        kvosAdaptiveCodebookContribution_G729_16s(gp, y1, xn, xn2);

        // Fixed codebook on the sharpened impulse response.
        if (t0 < kSubframe) sharpen(h, t0, s.sharp);
        alignas(32) Kvo16s rr[616];
        Kvo16s dn[kSubframe], code[kSubframe], y2[kSubframe], fidx[2] = {};
        if (!high) kvosCrossCorr_NormM_16s(h, xn2, kSubframe, dn);
        if (high) {
            // 11.8 kbit/s: ten pulses in 35 bits; the signs follow the target
            // correlation and the LTP residual (the LP residual less the
            // pitch contribution).
            Kvo16s ltpRes[kSubframe];
            for (int i = 0; i < kSubframe; ++i) ltpRes[i] = sub(lpRes[i], ltpPart(adapt[i], gp));
            if (!ok(kvosFixedCodebookSearch_G729E_16s(0, xn2, ltpRes, h, code, y2, tracks + 5 * k)))
                return false;
        } else if (low) {
            // Annex D: two pulses, 11 bits; the search also filters its vector.
            if (!ok(kvosFixedCodebookSearch_G729D_16s(dn, h, code, y2, &fidx[0], &fidx[1])))
                return false;
        } else {
            kvosToeplizMatrix_G729_16s(h, rr);
            if (!ok(s.annexA
                        ? kvosFixedCodebookSearch_G729A_16s(dn, rr, code, fidx)
                        : kvosFixedCodebookSearch_G729_16s(dn, rr, code, fidx, &s.searchTimes, k)))
                return false;
            filteredFixedVector(fidx[0], fidx[1], h, y2);
        }
        if (t0 < kSubframe) sharpen(code, t0, s.sharp);
        prm[4 + 4 * k] = fidx[1];
        prm[5 + 4 * k] = fidx[0];

        // Gain quantisation.
        Kvo16s gains[2], gidx[2];
        if (low) {
            if (!ok(kvosGainQuant_G729D_16s(xn, y1, code, y2, s.energyErr, gains, gidx, tame)))
                return false;
            prm[6 + 4 * k] =
                static_cast<Kvo16s>((kvo::tab::map1_6k[gidx[0]] << 3) | kvo::tab::map2_6k[gidx[1]]);
        } else {
            if (!ok(kvosGainQuant_G729_16s(xn, y1, code, y2, s.energyErr, gains, gidx, tame)))
                return false;
            prm[6 + 4 * k] =
                static_cast<Kvo16s>((kvo::tab::map1[gidx[0]] << 4) | kvo::tab::map2[gidx[1]]);
        }
        updateTaming(s, gains[0], t0);
        s.sharp = std::clamp<Kvo16s>(gains[0], kSharpMin, kSharpMax);

        // Excitation, synthesis and the filter memories of the next target.
        kvosInterpolateC_NR_G729_16s_Sfs(exc + i0, gains[0], code, gains[1], exc + i0, kSubframe,
                                         14);
        Kvo16s synth[kSubframe];
        kvosSynthesisFilter_NR_16s_Sfs(aqk, exc + i0, synth, kSubframe, 12, s.memSyn);
        std::memcpy(s.memSyn, synth + kSubframe - kOrder, sizeof s.memSyn);
        for (int j = 0; j < kOrder; ++j) {
            const int i = kSubframe - kOrder + j;
            s.err[j] = sub(speech[i0 + i], synth[i]);
            s.memW0[j] =
                sub(xn[i], add(multShlHigh(y1[i], gains[0], 1), multShlHigh(y2[i], gains[1], 2)));
        }
    }

    if (high) {
        // mode 0 (forward), L0|L1, L2|L3, P1, P0, five track words, GA1|GB1,
        // P2, five track words, GA2|GB2.
        const int16_t out[18] = {0,         p8[0],     p8[1],     p8[2],     p8[3],     tracks[0],
                                 tracks[1], tracks[2], tracks[3], tracks[4], p8[6],     p8[7],
                                 tracks[5], tracks[6], tracks[7], tracks[8], tracks[9], p8[10]};
        std::memcpy(prmOut, out, sizeof out);
    }
    std::memmove(s.speech, s.speech + kFrame, (240 - kFrame) * sizeof(Kvo16s));
    std::memmove(s.wsp, s.wsp + kFrame, kPitMax * sizeof(Kvo16s));
    std::memmove(s.exc, s.exc + kFrame, kExcHistory * sizeof(Kvo16s));
    return true;
}

void Encoder::updateTamingRecord(Kvo16s gp, int t0) {
    updateTaming(*s_, gp, t0);
}

void Encoder::updateInactive(const Kvo16s* lspNew, const Kvo16s* aq) {
    EncoderState& s = *s_;
    const Kvo16s* speech = s.speech + 120;
    const Kvo16s* exc = s.exc + kExcHistory;
    if (!s.annexA) {
        // G.729: weighted speech through the adaptive weighting filters, then
        // the error signal of the comfort noise's synthesis and its weighted
        // version for the target memories.
        Kvo16s a[2 * (kOrder + 1)], ap[4 * (kOrder + 1)];
        weightedSpeech(s, lspNew, a, ap);
        for (int k = 0; k < 2; ++k) {
            const int i0 = 40 * k;
            Kvo16s synth[kSubframe], xn[kSubframe];
            kvosSynthesisFilter_NR_16s_Sfs(aq + 11 * k, exc + i0, synth, kSubframe, 12, s.memSyn);
            std::memcpy(s.memSyn, synth + kSubframe - kOrder, sizeof s.memSyn);
            for (int i = 0; i < kSubframe; ++i) s.err[kOrder + i] = sub(speech[i0 + i], synth[i]);
            kvosResidualFilter_G729_16s(s.err + kOrder, ap + 22 * k, xn);
            kvosSynthesisFilter_NR_16s_ISfs(ap + 22 * k + 11, xn, kSubframe, 12, s.memW0);
            std::memcpy(s.memW0, xn + kSubframe - kOrder, sizeof s.memW0);
            std::memcpy(s.err, s.err + kSubframe, kOrder * sizeof(Kvo16s));
        }
    } else {
        // Annex A: residual of the quantised filter through 1/(A(z/0.75)(1 - 0.7 z^-1))
        // for the weighted speech, and residual minus excitation through
        // 1/A(z/0.75) for the target memory.
        Kvo16s* wsp = s.wsp + kPitMax;
        for (int k = 0; k < 2; ++k) {
            const int i0 = 40 * k;
            Kvo16s res[kSubframe], ap[kOrder + 1], a1[kOrder + 1], xn[kSubframe], y[kSubframe];
            kvosResidualFilter_G729_16s(speech + i0, aq + 11 * k, res);
            weightAz(aq + 11 * k, 24576, ap);
            a1[0] = 4096;
            for (int i = 1; i <= kOrder; ++i) a1[i] = sub(ap[i], mult(ap[i - 1], 22938));
            kvosSynthesisFilter_NR_16s_Sfs(a1, res, wsp + i0, kSubframe, 12, s.memW);
            std::memcpy(s.memW, wsp + i0 + kSubframe - kOrder, sizeof s.memW);
            for (int i = 0; i < kSubframe; ++i) xn[i] = sub(res[i], exc[i0 + i]);
            kvosSynthesisFilter_NR_16s_Sfs(ap, xn, y, kSubframe, 12, s.memW0);
            std::memcpy(s.memW0, y + kSubframe - kOrder, sizeof s.memW0);
        }
    }
    std::memcpy(s.lspOld, lspNew, kOrder * sizeof(Kvo16s));
    s.sharp = kSharpMin;
    std::memmove(s.speech, s.speech + kFrame, (240 - kFrame) * sizeof(Kvo16s));
    std::memmove(s.wsp, s.wsp + kFrame, kPitMax * sizeof(Kvo16s));
    std::memmove(s.exc, s.exc + kFrame, kExcHistory * sizeof(Kvo16s));
}

// ============================ decoder ===================================

DecoderState::DecoderState(bool a) : annexA(a), gainPrec(a ? 4096 : 16384) {
    kvosPhaseDispersionInit_G729D_16s(&phd);
    std::memcpy(lspOld, kLspStart, sizeof lspOld);
    resetLsfHistory(prevFreq);
    std::memcpy(prevLsf, kvo::tab::freq_prev_reset, sizeof prevLsf);
    initHighPass(&hp, kvo::tab::a100, kvo::tab::b100);
}

namespace {

// Pitch lag and fraction of a received index.  The 4-bit second-subframe
// index of Annex D codes whole lags at the window's ends (t0Min + 0..2 and
// + 7..9) and thirds around its middle (t0Min + 3 to t0Min + 6).
void decodeLag(int index, int k, int* t0, int* frac, bool rate6k = false) {
    if (k == 0) {
        if (index < 197) {
            *t0 = ((index + 2) * 10923 >> 15) + 19;
            *frac = index - 3 * *t0 + 58;
        } else {
            *t0 = index - 112;
            *frac = 0;
        }
        return;
    }
    int t0Min = std::max(*t0 - 5, kPitMin);
    if (t0Min + 9 > kPitMax) t0Min = kPitMax - 9;
    if (rate6k) {
        if (index < 3 || index > 12) {
            *t0 = t0Min + (index < 3 ? index : index - 6);
            *frac = 0;
        } else {
            const int t = (index + 7) / 3;
            *t0 = t0Min + t;
            *frac = index + 6 - 3 * t;
        }
        return;
    }
    const int i = ((index + 2) * 10923 >> 15) - 1;
    *t0 = i + t0Min;
    *frac = index - 2 - 3 * i;
}

// G.729 post filter of one subframe: A(z/0.55) residual, long-term filter at
// 1/8 resolution, short-term filter with tilt compensation, gain control.
bool postFilter(DecoderState& s, const Kvo16s* syn, const Kvo16s* az, int t0, int frameType,
                Kvo16s* out, Kvo16s* voice) {
    Kvo16s ap2[kOrder + 1], ltp[kSubframe], h[20], mem[kOrder];
    Kvo16s* res = s.res2 + kExcHistory;
    if (frameType == 1) {
        weightAz(az, 18022, ap2);
        kvosResidualFilter_G729_16s(syn, ap2, res);
        if (!ok(kvosLongTermPostFilter_G729_16s(16384, t0, res, ltp, voice))) return false;
    } else if (!ok(kvosLongTermPostFilter_G729B_16s(t0, syn, az, s.res2, ltp, voice,
                                                    static_cast<Kvo16s>(frameType)))) {
        return false;  // an inactive frame: residual only, no long-term filter
    }
    kvosShortTermPostFilter_G729_16s(az, ltp, s.stp + kOrder, h);
    std::memcpy(mem, s.stp + kSubframe, sizeof mem);
    kvosTiltCompensation_G729_16s(h, s.stp + kOrder);
    kvosGainControl_G729_16s_I(syn, s.stp + kOrder, &s.gainPrec);
    std::memcpy(out, s.stp + kOrder, kSubframe * sizeof(Kvo16s));
    std::memcpy(s.stp, mem, sizeof mem);
    return true;
}

// Annex A post filter of one subframe: harmonic filter on the A(z/0.55)
// residual, tilt compensation, 1/A(z/0.7), gain control.
bool postFilterA(DecoderState& s, const Kvo16s* syn, const Kvo16s* az, int t0, int frameType,
                 Kvo16s* out) {
    Kvo16s ap[2 * (kOrder + 1)], voice;
    weightAz(az, 18022, ap);
    weightAz(az, 22938, ap + kOrder + 1);
    if (frameType == 1) {
        if (!ok(kvosLongTermPostFilter_G729A_16s(t0, syn, ap, s.res2, s.pre + 1))) return false;
    } else if (!ok(kvosLongTermPostFilter_G729B_16s(t0, syn, az, s.res2, s.pre + 1, &voice,
                                                    static_cast<Kvo16s>(frameType)))) {
        return false;  // an inactive frame: residual only, no harmonic filter
    }
    kvosTiltCompensation_G729A_16s(ap, s.pre + 1);
    kvosSynthesisFilter_NR_16s_Sfs(ap + kOrder + 1, s.pre + 1, out, kSubframe, 12, s.memSynPst);
    std::memcpy(s.memSynPst, out + kSubframe - kOrder, sizeof s.memSynPst);
    kvosGainControl_G729A_16s_I(syn, out, &s.gainPrec);
    return true;
}

}  // namespace

Decoder::Decoder(bool annexA) : s_(new DecoderState(annexA)) {}
Decoder::~Decoder() {
    delete s_;
}

bool Decoder::frame(const int16_t* prm, bool erased, int16_t* pcm, Rate rate) {
    Kvo16s az[2 * (kOrder + 1)];
    int t0Sub[2];
    return synthesise(prm, erased, az, t0Sub, rate) && postProcess(az, t0Sub, 1, pcm, rate);
}

bool Decoder::synthesise(const int16_t* prmIn, bool erased, Kvo16s* az, int* t0Sub, Rate rate) {
    DecoderState& s = *s_;
    // 11.8 kbit/s forward mode: the 8 kbit/s words plus ten 7-bit track words.
    const int16_t* tracks = nullptr;
    int16_t p8[kParams] = {};
    const int16_t* prm = prmIn;
    if (rate == Rate::k11k8) {
        if (!erased && prmIn[0] != 0) return false;  // backward mode: not available
        const int16_t m[kParams] = {prmIn[1],  prmIn[2],  prmIn[3], prmIn[4], 0,        0,
                                    prmIn[10], prmIn[11], 0,        0,        prmIn[17]};
        std::memcpy(p8, m, sizeof p8);
        prm = p8;
        tracks = prmIn + 5;
    }
    Kvo16s* exc = s.exc + kExcHistory;
    Kvo16s* synth = s.synth + kOrder;
    if (erased)
        rate = s.rate;
    else
        s.rate = rate;
    const bool low = rate == Rate::k6k4;
    const Kvo16s parity = rate == Rate::k11k8 ? pitchParity7(prm[2]) : pitchParity(prm[2]);
    const bool parityError = !erased && !low && ((parity ^ prm[3]) & 1);

    // LSP decode, or the erased frame's history update on the last LSFs.
    Kvo16s lsf[kOrder], lspNew[kOrder];
    if (!erased) {
        const Kvo16s idx[4] = {
            static_cast<Kvo16s>((prm[0] >> 7) & 1), static_cast<Kvo16s>(prm[0] & 127),
            static_cast<Kvo16s>((prm[1] >> 5) & 31), static_cast<Kvo16s>(prm[1] & 31)};
        if (!ok(kvosLSFDecode_G729_16s(idx, s.prevFreq, lsf))) return false;
        std::memcpy(s.prevLsf, lsf, sizeof lsf);
        s.prevMa = idx[0];
    } else {
        if (!ok(kvosLSFDecodeErased_G729_16s(s.prevMa, s.prevFreq, s.prevLsf))) return false;
        std::memcpy(lsf, s.prevLsf, sizeof lsf);
    }
    kvosLSFToLSP_G729_16s(lsf, lspNew);
    interpolateLpc(s.lspOld, lspNew, az);
    std::memcpy(s.lspOld, lspNew, sizeof lspNew);

    int t0 = s.oldT0, frac = 0;
    for (int k = 0; k < 2; ++k) {
        const int i0 = 40 * k;
        // Adaptive vector: decoded lag, or the last lag for a lost one.
        if (!erased && !(k == 0 && parityError)) {
            decodeLag(prm[2 + 5 * k], k, &t0, &frac, low);
            s.oldT0 = static_cast<Kvo16s>(t0);
        } else {
            t0 = s.oldT0;
            frac = 0;
            s.oldT0 = static_cast<Kvo16s>(std::min(s.oldT0 + 1, kPitMax));
        }
        t0Sub[k] = t0;
        const Kvo16s delay[2] = {static_cast<Kvo16s>(t0), static_cast<Kvo16s>(frac)};
        if (!ok(kvosDecodeAdaptiveVector_G729_16s_I(delay, exc + i0 - kExcHistory))) return false;

        // Fixed vector (random indices for a lost frame), sharpened.
        Kvo16s code[kSubframe];
        int cIdx = prm[4 + 4 * k], sIdx = prm[5 + 4 * k];
        if (erased) {
            cIdx = random(&s.seed) & (low ? 0x01ff : 0x1fff);
            sIdx = random(&s.seed) & (low ? 0x0003 : 0x000f);
        }
        if (tracks && !erased)
            decodeFixedVector35(tracks + 7 * k, code);
        else if (low)
            decodeFixedVector6k(sIdx, cIdx, code);
        else
            decodeFixedVector(sIdx, cIdx, code);
        if (t0 < kSubframe) sharpen(code, t0, s.sharp);

        // Gains.
        const int gw = prm[6 + 4 * k];
        const Kvo16s gidx[2] = {static_cast<Kvo16s>(low ? gw >> 3 : gw >> 4),
                                static_cast<Kvo16s>(low ? gw & 7 : gw & 15)};
        // A lost frame decays the gains by 0.9 and 0.98 at either rate.
        if (!ok(low && !erased
                    ? kvosDecodeGain_G729I_16s(energy(code), 0, s.energyErr, gidx, s.gains)
                    : kvosDecodeGain_G729_16s(energy(code), s.energyErr, erased ? nullptr : gidx,
                                              s.gains)))
            return false;
        s.sharp = std::clamp<Kvo16s>(s.gains[0], kSharpMin, kSharpMax);

        // Excitation: a lost G.729 frame keeps the adaptive part if the last
        // frame was voiced, the fixed part otherwise.
        Kvo16s gp = s.gains[0], gc = s.gains[1];
        if (erased && !s.annexA) (s.voicing ? gc : gp) = 0;
        kvosInterpolateC_NR_G729_16s_Sfs(exc + i0, gp, code, gc, exc + i0, kSubframe, 14);

        // Annex D: at 6.4 kbit/s the synthesis sees the excitation with its
        // innovation dispersed; the adaptive codebook keeps the plain one.
        Kvo16s excPh[kSubframe];
        const Kvo16s* excSyn = exc + i0;
        if (low) {
            if (!ok(kvosPhaseDispersion_G729D_16s(exc + i0, excPh, gc, gp, code, &s.phd)))
                return false;
            excSyn = excPh;
        } else {
            kvosPhaseDispersionUpdate_G729D_16s(gp, gc, &s.phd);
        }

        // Synthesis; on overflow the excitation history is scaled down and the subframe redone.
        const Kvo16s* a = az + 11 * k;
        if (kvosSynthesisFilter_NR_16s_Sfs(a, excSyn, synth + i0, kSubframe, 12, s.memSyn) ==
            kvoWarnOverflow) {
            for (Kvo16s& e : s.exc) e = static_cast<Kvo16s>(e >> 2);
            if (low)
                for (Kvo16s& e : excPh) e = static_cast<Kvo16s>(e >> 2);
            kvosSynthesisFilter_NR_16s_Sfs(a, excSyn, synth + i0, kSubframe, 12, s.memSyn);
        }
        std::memcpy(s.memSyn, synth + i0 + kSubframe - kOrder, sizeof s.memSyn);
    }

    return true;
}

bool Decoder::postProcess(const Kvo16s* az, const int* t0Sub, int frameType, int16_t* pcm,
                          Rate rate) {
    DecoderState& s = *s_;
    const bool perSubframeLag = rate == Rate::k11k8;
    Kvo16s* synth = s.synth + kOrder;
    // Post filter, subframe by subframe, and post-processing.
    Kvo16s voicing = 0;
    for (int k = 0; k < 2; ++k) {
        const int i0 = 40 * k;
        if (s.annexA) {
            if (!postFilterA(s, synth + i0, az + 11 * k, t0Sub[k], frameType, pcm + i0))
                return false;
        } else {
            Kvo16s v;
            // A second-subframe lag may reach 144; the post filter's search
            // window ends at 143 either way.
            const int t0 = std::min(t0Sub[perSubframeLag ? k : 0], kPitMax);
            if (!postFilter(s, synth + i0, az + 11 * k, t0, frameType, pcm + i0, &v)) return false;
            if (v != 0) voicing = v;
        }
        std::memmove(s.res2, s.res2 + kSubframe, kExcHistory * sizeof(Kvo16s));
    }
    s.voicing = voicing;
    std::memcpy(s.synth, s.synth + kFrame, kOrder * sizeof(Kvo16s));
    std::memmove(s.exc, s.exc + kFrame, kExcHistory * sizeof(Kvo16s));
    return ok(kvosHighPassFilter_G729_16s_ISfs(pcm, kFrame, 13, &s.hp));
}

// ============================ bit streams ================================

void pack(const int16_t* prm, uint8_t* bytes) {
    std::memset(bytes, 0, kPackedBytes);
    int bit = 0;
    for (int p = 0; p < kParams; ++p)
        for (int b = kParamBits[p] - 1; b >= 0; --b, ++bit)
            if ((prm[p] >> b) & 1) bytes[bit >> 3] |= static_cast<uint8_t>(0x80 >> (bit & 7));
}

void unpack(const uint8_t* bytes, int16_t* prm) {
    int bit = 0;
    for (int p = 0; p < kParams; ++p) {
        int v = 0;
        for (int b = 0; b < kParamBits[p]; ++b, ++bit)
            v = (v << 1) | ((bytes[bit >> 3] >> (7 - (bit & 7))) & 1);
        prm[p] = static_cast<int16_t>(v);
    }
}

void pack_serial(const int16_t* prm, int16_t* words) {
    words[0] = 0x6b21;
    words[1] = 80;
    int w = 2;
    for (int p = 0; p < kParams; ++p)
        for (int b = kParamBits[p] - 1; b >= 0; --b)
            words[w++] = ((prm[p] >> b) & 1) ? 0x0081 : 0x007f;
}

bool unpack_serial(const int16_t* words, int16_t* prm) {
    bool erased = false;
    int w = 2;
    for (int p = 0; p < kParams; ++p) {
        int v = 0;
        for (int b = 0; b < kParamBits[p]; ++b, ++w) {
            erased |= words[w] == 0;
            v = (v << 1) | (words[w] == 0x0081 ? 1 : 0);
        }
        prm[p] = static_cast<int16_t>(v);
    }
    return erased;
}

}  // namespace kvosc::coders::g729

// ============================ tool records ===============================

namespace kvosc::coders {
namespace {

using namespace g729;

std::string pick_format(const Options& opt, const char* dflt, std::string& error) {
    std::string f = opt.get("format", dflt);
    if (f != "itu" && f != "packed") error = "unknown --format '" + f + "' (itu or packed)";
    return error.empty() ? f : std::string();
}

bool encode_stream(bool annexA, const Options& opt, const std::vector<int16_t>& pcm,
                   std::vector<uint8_t>& stream, std::string& error) {
    const std::string format = pick_format(opt, "packed", error);
    if (format.empty()) return false;
    Encoder enc(annexA);
    std::vector<int16_t> words;
    stream.clear();
    for (size_t at = 0; at < pcm.size(); at += kFrame) {
        int16_t in[kFrame] = {}, prm[kParams];
        std::copy(pcm.begin() + at, pcm.begin() + std::min(at + kFrame, pcm.size()), in);
        if (!enc.frame(in, prm)) {
            error = "encoder failed at frame " + std::to_string(at / kFrame);
            return false;
        }
        if (format == "packed") {
            uint8_t b[kPackedBytes];
            pack(prm, b);
            stream.insert(stream.end(), b, b + kPackedBytes);
        } else {
            int16_t w[kSerialWords];
            pack_serial(prm, w);
            words.insert(words.end(), w, w + kSerialWords);
        }
    }
    if (format == "itu") stream = bytes_from_words(words);
    return true;
}

bool decode_stream(bool annexA, const Options& opt, const std::vector<uint8_t>& stream,
                   std::vector<int16_t>& pcm, std::string& error) {
    const std::string format = pick_format(opt, "packed", error);
    if (format.empty()) return false;
    Decoder dec(annexA);
    pcm.clear();
    const std::vector<int16_t> words =
        format == "itu" ? words_from_bytes(stream) : std::vector<int16_t>();
    const size_t frames =
        format == "itu" ? words.size() / kSerialWords : stream.size() / kPackedBytes;
    if ((format == "itu" ? words.size() % kSerialWords : stream.size() % kPackedBytes) != 0) {
        error = "stream is not a whole number of frames";
        return false;
    }
    for (size_t f = 0; f < frames; ++f) {
        int16_t prm[kParams], out[kFrame];
        bool erased = false;
        if (format == "packed") {
            unpack(stream.data() + f * kPackedBytes, prm);
        } else {
            const int16_t* w = words.data() + f * kSerialWords;
            // Sync word 0x6b21 for a good frame, 0x6b20 for one flagged bad.
            if ((w[0] != 0x6b21 && w[0] != 0x6b20) || w[1] != 80) {
                error = "frame " + std::to_string(f) + ": not an 80-bit serial frame";
                return false;
            }
            erased = unpack_serial(w, prm) || w[0] == 0x6b20;
        }
        if (!dec.frame(prm, erased, out)) {
            error = "decoder failed at frame " + std::to_string(f);
            return false;
        }
        pcm.insert(pcm.end(), out, out + kFrame);
    }
    return true;
}

// The file of a set, its extension in capitals or in lower case.
std::string set_file(const std::string& dir, const std::string& set, std::string ext) {
    std::vector<uint8_t> probe;
    for (int pass = 0; pass < 2; ++pass) {
        const std::string path = dir + "/" + set + "." + ext;
        if (read_file(path, probe)) return path;
        for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    }
    return "";
}

// Frames that differ between two word sequences of frameWords words per frame.
VerifyRow compare(const std::string& name, const std::vector<int16_t>& got,
                  const std::vector<int16_t>& want, size_t frameWords, const char* what) {
    VerifyRow row;
    row.set = name;
    row.frames = static_cast<long>(want.size() / frameWords);
    if (got.size() < want.size()) {
        row.mismatched = row.frames;
        row.note = "output shorter than the reference";
        return row;
    }
    for (long f = 0; f < row.frames; ++f) {
        for (size_t i = 0; i < frameWords; ++i) {
            const size_t at = f * frameWords + i;
            if (got[at] == want[at]) continue;
            if (row.mismatched++ == 0)
                row.note = "first difference: frame " + std::to_string(f) + ", " + what + " " +
                           std::to_string(i) + " (" + std::to_string(got[at]) + " vs " +
                           std::to_string(want[at]) + ")";
            break;
        }
    }
    return row;
}

std::vector<VerifyRow> verify_sets(bool annexA, const std::string& dir) {
    static const char* const kSets[] = {"ALGTHM", "ERASURE", "FIXED",  "LSP",  "OVERFLOW",
                                        "PARITY", "PITCH",   "SPEECH", "TAME", "TEST"};
    std::vector<VerifyRow> rows;
    Options itu;
    itu.values.push_back({"format", "itu"});
    for (const char* set : kSets) {
        const std::string bitPath = set_file(dir, set, "BIT");
        if (bitPath.empty()) continue;
        std::vector<uint8_t> bit, in, pst;
        read_file(bitPath, bit);
        const std::vector<int16_t> bitWords = words_from_bytes(bit);
        std::string error;
        const std::string inPath = set_file(dir, set, "IN");
        if (!inPath.empty() && read_file(inPath, in)) {
            std::vector<int16_t> pcm = words_from_bytes(in);
            pcm.resize(pcm.size() / kFrame * kFrame);  // the reference codes whole frames only
            std::vector<uint8_t> out;
            VerifyRow row;
            if (encode_stream(annexA, itu, pcm, out, error))
                row = compare(std::string(set) + " encoder", words_from_bytes(out), bitWords,
                              kSerialWords, "word");
            else
                row = {std::string(set) + " encoder", 0, 1, error};
            rows.push_back(row);
        }
        const std::string pstPath = set_file(dir, set, "PST");
        if (pstPath.empty() || !read_file(pstPath, pst)) {
            VerifyRow row;
            row.set = std::string(set) + " decoder";
            row.skipped = true;
            row.note = "no .PST file";
            rows.push_back(row);
            continue;
        }
        std::vector<int16_t> pcm;
        VerifyRow row;
        if (decode_stream(annexA, itu, bit, pcm, error))
            row = compare(std::string(set) + " decoder", pcm, words_from_bytes(pst), kFrame,
                          "sample");
        else
            row = {std::string(set) + " decoder", 0, 1, error};
        rows.push_back(row);
    }
    if (rows.empty()) {
        VerifyRow row;
        row.set = dir;
        row.skipped = true;
        row.note = "no G.729 vector sets (.BIT files) found";
        rows.push_back(row);
    }
    return rows;
}

}  // namespace

extern const Coder kG729 = {
    "g729",
    "ITU-T G.729 CS-ACELP, 8 kbit/s",
    "--format packed|itu (packed: 10 octets per frame, RFC 3551; itu: serial words)",
    8000,
    8.0,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encode_stream(false, o, p, s, e);
    },
    [](const Options& o, const std::vector<uint8_t>& s, std::vector<int16_t>& p, std::string& e) {
        return decode_stream(false, o, s, p, e);
    },
    [](const std::string& dir) { return verify_sets(false, dir); },
};

extern const Coder kG729A = {
    "g729a",
    "ITU-T G.729 Annex A (reduced complexity), 8 kbit/s",
    "--format packed|itu (packed: 10 octets per frame, RFC 3551; itu: serial words)",
    8000,
    8.0,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encode_stream(true, o, p, s, e);
    },
    [](const Options& o, const std::vector<uint8_t>& s, std::vector<int16_t>& p, std::string& e) {
        return decode_stream(true, o, s, p, e);
    },
    [](const std::string& dir) { return verify_sets(true, dir); },
};

}  // namespace kvosc::coders
