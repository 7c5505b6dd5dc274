// State records of the G.729 / Annex A encoder and decoder, shared with the
// Annex B coder (g729b.cpp), which runs the same active-frame path and keeps
// these memories up to date through its inactive frames.
#pragma once

#include "coders/g729.h"

namespace kvosc::coders::g729 {

constexpr int kOrder = 10;
constexpr int kPitMin = 20;
constexpr int kPitMax = 143;
constexpr int kExcHistory = 154;  // largest lag 144 plus the interpolation reach
constexpr int kSharpMin = 3277;   // 0.2 in Q14
constexpr int kSharpMax = 13017;  // 0.8 in Q14

// The LSP vector both sides start from (the Recommendation's initial state).
constexpr Kvo16s kLspStart[kOrder] = {30000, 26000, 21000,  15000,  8000,
                                      0,     -8000, -15000, -21000, -26000};

struct EncoderState {
    bool annexA;
    KvoHighPassState_G729 hp;
    Kvo16s speech[240] = {};                // window; frame at 120, new samples at 160
    Kvo16s wsp[kPitMax + kFrame] = {};      // weighted speech, frame at 143
    Kvo16s exc[kExcHistory + kFrame] = {};  // excitation, frame at 154
    Kvo16s lpc[kOrder + 1] = {4096};        // last stable unquantised A(z)
    Kvo16s rc[2] = {};                      // its first two reflection coefficients
    Kvo16s lspOld[kOrder], lspOldQ[kOrder];
    Kvo16s prevFreq[4 * kOrder];
    Kvo16s energyErr[4] = {-14336, -14336, -14336, -14336};
    Kvo16s memW[kOrder] = {}, memW0[kOrder] = {}, memSyn[kOrder] = {};
    Kvo16s err[kOrder + kSubframe] = {};  // error signal; [0..9] is its filter memory
    Kvo16s sharp = kSharpMin;
    Kvo16s searchTimes = 0;
    Kvo32s excErr[4] = {0x4000, 0x4000, 0x4000, 0x4000};  // taming: worst gain products, Q14
    Kvo16s smooth = 1, larOld[2] = {};                    // G.729 weighting state
    // This frame's analysis: autocorrelations (lags 0..12) before and after the
    // lag window, with their exponent, for the voice activity detector.
    Kvo32s acfRaw[13] = {}, acf[13] = {};
    Kvo16s acfNorm = 0;

    explicit EncoderState(bool a);
};

struct DecoderState {
    bool annexA;
    Kvo16s exc[kExcHistory + kFrame] = {};
    Kvo16s synth[kOrder + kFrame] = {};  // [0..9]: the last synthesis samples of the last frame
    Kvo16s memSyn[kOrder] = {};
    Kvo16s lspOld[kOrder];
    Kvo16s prevFreq[4 * kOrder];
    Kvo16s prevLsf[kOrder];
    Kvo16s prevMa = 0;
    Kvo16s energyErr[4] = {-14336, -14336, -14336, -14336};
    Kvo16s gains[2] = {};
    Kvo16s sharp = kSharpMin;
    Kvo16s oldT0 = 60;
    Kvo16s seed = 21845;
    Kvo16s voicing = 60;
    // Post filter.
    Kvo16s res2[kExcHistory + kSubframe] = {};  // residual of A(z/0.55); subframe at 154
    Kvo16s stp[kOrder + kSubframe] = {};        // short-term filter output; [0..9] memory
    Kvo16s pre[1 + kSubframe] = {};             // Annex A tilt: [0] is its memory
    Kvo16s memSynPst[kOrder] = {};
    Kvo16s gainPrec;
    KvoHighPassState_G729 hp;
    KvoPhaseDispersionState_G729D phd;  // Annex D anti-sparseness
    Rate rate = Rate::k8k;              // rate of the last good frame

    explicit DecoderState(bool a);
};

}  // namespace kvosc::coders::g729
