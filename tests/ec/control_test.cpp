// Controllers of the subband, fullband and double-talk echo cancellers: step sizes
// against double-precision models of the normalised step, the save/restore decisions
// on crafted error powers, the gain and convergence trajectories against their closed
// forms, agreement of the float and 16-bit families, and the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "ec/ec_control.h"
#include "kvosc.h"
#include "numeric/cpu.h"

namespace {

// Caller block of a record, deliberately 3 bytes past a 16-byte boundary so that the
// records' own alignment is exercised.
struct Block {
    std::vector<uint8_t> mem;
    explicit Block(Kvo32s bytes) : mem(static_cast<size_t>(bytes) + 32, 0xA5) {}
    template <class T>
    T* as() {
        auto a = reinterpret_cast<uintptr_t>(mem.data());
        return reinterpret_cast<T*>(((a + 15) & ~uintptr_t{15}) + 3);
    }
};

// Rows of complex samples with their pointer array.
template <class C>
struct Rows {
    std::vector<std::vector<C>> data;
    std::vector<C*> ptr;
    Rows(int rows, int n) : data(rows, std::vector<C>(n)), ptr(rows) {
        for (int r = 0; r < rows; ++r) ptr[r] = data[r].data();
    }
};

double stepValue(const KvoStepPair& p) { return std::ldexp(double(p.mantissa), -p.exponent); }

// ---- subband controllers -----------------------------------------------------------

struct SubbandPair {
    int n, segs, frame, fs;
};

class SubbandUpdate : public ::testing::TestWithParam<SubbandPair> {};

// The step of each frame is learningRate / (power of the last numSegments rows), the
// oldest row leaving the running sum after the frame; the 16-bit pair stands for 0.5/E.
TEST_P(SubbandUpdate, StepFollowsTheSlidingRowEnergy) {
    const auto g = GetParam();
    SCOPED_TRACE(::testing::Message() << "n=" << g.n << " segs=" << g.segs);
    Kvo32s bf = 0, bi = 0;
    ASSERT_EQ(kvosSubbandControllerGetSize_EC_32f(g.n, g.frame, g.segs, g.fs, &bf), kvoOk);
    ASSERT_EQ(kvosSubbandControllerGetSize_EC_16s(g.n, g.frame, g.segs, g.fs, &bi), kvoOk);
    EXPECT_EQ(bf, 16 * g.n + 112);
    EXPECT_EQ(bi, 5 * ((4 * g.n + 15) & ~15) + 128);
    Block mf(bf), mi(bi);
    auto* sf = mf.as<KvoSubbandController32fState>();
    auto* si = mi.as<KvoSubbandController16sState>();
    ASSERT_EQ(kvosSubbandControllerInit_EC_32f(sf, g.n, g.frame, g.segs, g.fs), kvoOk);
    ASSERT_EQ(kvosSubbandControllerInit_EC_16s(si, g.n, g.frame, g.segs, g.fs), kvoOk);

    std::mt19937 rng(5);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const int frames = 3 * g.segs + 5;
    std::vector<std::vector<Kvo32fc>> histF;  // newest first
    std::vector<std::vector<Kvo32sc>> histI;
    std::vector<Kvo64f> stepF(g.n);
    std::vector<KvoStepPair> stepI(g.n);
    const double floorF = 100000.0 * g.n * g.segs;
    for (int f = 0; f < frames; ++f) {
        // A level that rises and falls, crossing the energy floor.
        const double amp = 40.0 * std::pow(1.6, f % 12);
        std::vector<Kvo32fc> rf(g.n);
        std::vector<Kvo32sc> ri(g.n);
        for (int k = 0; k < g.n; ++k) {
            const double re = std::round(amp * gauss(rng)), im = std::round(amp * gauss(rng));
            rf[k] = {float(re), float(im)};
            ri[k] = {Kvo32s(re * 64), Kvo32s(im * 64)};  // 16-bit path at 64 times the level
        }
        histF.insert(histF.begin(), rf);
        histI.insert(histI.begin(), ri);
        std::vector<const Kvo32fc*> pf(g.segs);
        std::vector<const Kvo32sc*> pi(g.segs);
        std::vector<Kvo32fc> zf(g.n, {0, 0});
        std::vector<Kvo32sc> zi(g.n, {0, 0});
        for (int r = 0; r < g.segs; ++r) {
            pf[r] = r < int(histF.size()) ? histF[r].data() : zf.data();
            pi[r] = r < int(histI.size()) ? histI[r].data() : zi.data();
        }
        const float rate = f % 2 ? 0.5f : 0.25f;
        ASSERT_EQ(kvosSubbandAPControllerUpdate_EC_32f(pf.data(), nullptr, stepF.data(), sf, rate),
                  kvoOk);
        const Kvo16s blk = 0;
        ASSERT_EQ(kvosSubbandControllerUpdate_EC_16s(&blk, &blk, pi.data(), nullptr, stepI.data(), si),
                  kvoOk);
        for (int k = 0; k < g.n; ++k) {
            double e = 0;
            for (int r = 0; r < g.segs && r < int(histF.size()); ++r)
                e += double(histF[r][k].re) * histF[r][k].re + double(histF[r][k].im) * histF[r][k].im;
            if (e > floorF * 1.001) {
                EXPECT_NEAR(stepF[k], rate / e, rate / e * 1e-4) << "frame " << f << " k " << k;
                // 16-bit: the same energy at 64^2 times the scale, squares >> 10 per row.
                const double e16 = e * 4096.0;
                EXPECT_NEAR(stepValue(stepI[k]), 0.5 / e16, 0.5 / e16 * 2e-3)
                    << "frame " << f << " k " << k;
            } else if (e < floorF * 0.999) {
                EXPECT_FLOAT_EQ(float(stepF[k]), 0.05f / float(floorF));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Geometries, SubbandUpdate,
                         ::testing::Values(SubbandPair{17, 4, 24, 8000},
                                           SubbandPair{33, 9, 44, 16000},
                                           SubbandPair{1, 1, 24, 8000}));

// Drives one controller family with per-subband error levels and checks which
// subbands copy which way.
template <bool Fixed>
struct SubbandHarness {
    using C = std::conditional_t<Fixed, Kvo32sc, Kvo32fc>;
    using S = std::conditional_t<Fixed, KvoSubbandController16sState, KvoSubbandController32fState>;
    int n, segs;
    Block mem;
    S* st;
    Rows<C> ad, fx;
    SubbandHarness(int n_, int segs_, int frame, int fs)
        : n(n_), segs(segs_), mem(16 * n_ * 6 + 256), ad(segs_, n_), fx(segs_, n_) {
        st = mem.as<S>();
        if constexpr (Fixed)
            EXPECT_EQ(kvosSubbandControllerInit_EC_16s(st, n, frame, segs, fs), kvoOk);
        else
            EXPECT_EQ(kvosSubbandControllerInit_EC_32f(st, n, frame, segs, fs), kvoOk);
        for (int r = 0; r < segs; ++r)
            for (int k = 0; k < n; ++k) {
                ad.data[r][k].re = 1000 + 10 * r + k;
                ad.data[r][k].im = 0;
                fx.data[r][k] = {0, 0};
            }
    }
    // One frame with error amplitudes ea[k], ef[k]; returns the gain as a fraction.
    double frame(const std::vector<double>& ea, const std::vector<double>& ef) {
        std::vector<C> a(n), f(n);
        for (int k = 0; k < n; ++k) {
            a[k].re = decltype(a[k].re)(ea[k]);
            a[k].im = 0;
            f[k].re = decltype(f[k].re)(ef[k]);
            f[k].im = 0;
        }
        if constexpr (Fixed) {
            Kvo16s g = 0;
            EXPECT_EQ(kvosSubbandController_EC_16s(a.data(), f.data(), ad.ptr.data(), fx.ptr.data(),
                                                   &g, st),
                      kvoOk);
            return g / 32768.0;
        } else {
            Kvo32f g = 0;
            EXPECT_EQ(kvosSubbandController_EC_32f(a.data(), f.data(), ad.ptr.data(), fx.ptr.data(),
                                                   &g, st),
                      kvoOk);
            return g;
        }
    }
};

template <class T>
class SubbandDecisions : public ::testing::Test {};
using Families = ::testing::Types<std::false_type, std::true_type>;
TYPED_TEST_SUITE(SubbandDecisions, Families);

// Subband 0: adaptive error 20 dB under the fixed one, taps still: saved.  Subband 1:
// adaptive error 6 dB over: the fixed taps come back.  Subband 2: equal errors: no copy.
TYPED_TEST(SubbandDecisions, SaveRestoreAndHoldPerSubband) {
    SubbandHarness<TypeParam::value> h(3, 4, 24, 8000);
    // The coefficient energy must first settle (stillness test), with equal errors.
    for (int i = 0; i < 60; ++i) h.frame({30000, 30000, 30000}, {30000, 30000, 30000});
    for (int r = 0; r < 4; ++r)
        for (int k = 0; k < 3; ++k) ASSERT_EQ(h.fx.data[r][k].re, 0) << "copied too early";
    // Mark the fixed set of subband 1 so its restore is visible.
    for (int r = 0; r < 4; ++r) h.fx.data[r][1] = {7, 7};
    for (int i = 0; i < 40; ++i) h.frame({3000, 60000, 30000}, {30000, 30000, 30000});
    for (int r = 0; r < 4; ++r) {
        EXPECT_EQ(h.fx.data[r][0].re, h.ad.data[r][0].re) << "row " << r;  // saved
        EXPECT_EQ(h.ad.data[r][1].re, 7) << "row " << r;                  // restored
        EXPECT_EQ(h.fx.data[r][2].re, 0) << "row " << r;                  // untouched
        EXPECT_NE(h.ad.data[r][2].re, 0) << "row " << r;
    }
}

// The adaptive error drops 20 dB under the fixed one in every subband: a double model
// of the smoothed powers gives the frames that save, conv decays by aConv at each, and
// the gain follows gain*aGain + (1 - aGain)*[conv above 1/2] down to the mute.
TYPED_TEST(SubbandDecisions, GainMutesOnceTheFilterIsTrusted) {
    constexpr bool fixed = TypeParam::value;
    SubbandHarness<fixed> h(4, 2, 24, 8000);
    std::vector<double> big(4, 30000), small(4, 3000);
    for (int i = 0; i < 60; ++i) EXPECT_NEAR(h.frame(big, big), 1.0, 1e-4) << i;
    // Float: 1 - u + u^2/2 with u = 24 / (T * 8000); Q14: 16384 - 24 * (16384 / T) / 8000.
    const double aPow = fixed ? 13091 / 16384.0 : 0.82;
    const double aConv = fixed ? (16384 - 24 * 819200 / 8000) / 16384.0 : 1 - 0.15 + 0.01125;
    const double aGain = fixed ? (16384 - 24 * 1638400 / 8000) / 16384.0 : 1 - 0.3 + 0.045;
    double errA = 1.0, errF = 1.0, conv = 1.0, gain = 1.0;  // powers relative to big^2
    int saves = 0;
    for (int i = 0; i < 40; ++i) {
        const double g = h.frame(small, big);
        errA = errA * aPow + 0.01 * (1 - aPow);
        errF = errF * aPow + 1.0 * (1 - aPow);
        if (errF * 0.35 > errA) {
            errF = errA;
            conv *= aConv;
            ++saves;
        }
        const bool target = fixed ? conv >= 0.5 : conv > 0.5;
        gain = gain * aGain + (1 - aGain) * (target ? 1.0 : 0.0);
        EXPECT_NEAR(g, gain, fixed ? 2e-3 : 1e-4) << "frame " << i;
    }
    EXPECT_GT(saves, 30);
    EXPECT_LT(gain, 0.05);
}

// The row energy twin of the 16-bit subband controller against the exact power.
TEST(EcControlTwin, CoefficientEnergyRowsMatchTheExactPower) {
    if (!kvo::cpuHasAvx2()) GTEST_SKIP() << "no AVX2";
    std::mt19937 g(5);
    std::uniform_int_distribution<Kvo32s> any(INT32_MIN, INT32_MAX);
    const Kvo32s ext[] = {INT32_MIN, INT32_MAX, -1, 0};
    Rows<Kvo32sc> rows(7, 37);
    for (int r = 0; r < 7; ++r)
        for (int k = 0; k < 37; ++k)
            rows.data[r][k] = r < 3 ? Kvo32sc{any(g), any(g)} : Kvo32sc{ext[(r + k) % 4], ext[k % 4]};
    std::vector<Kvo64u> a(37, 0), b(37, 0);
    for (int r = 0; r < 7; ++r) {
        kvo::ec::coefEnergyRowAvx2(rows.ptr[r], a.data(), 37);
        for (int k = 0; k < 36; ++k) {  // groups of four only
            const __int128 re = rows.data[r][k].re, im = rows.data[r][k].im;
            b[k] += static_cast<Kvo64u>((re * re + im * im + 512) >> 10);
        }
    }
    EXPECT_EQ(a, b);
}

// ---- fullband controller -----------------------------------------------------------

struct FullGeom {
    int frame, taps, fs;
};
class FullbandUpdate : public ::testing::TestWithParam<FullGeom> {};

// Step per sample 0.5 / E over the tapLen samples before it; the 16-bit step, with the
// NLMS shifts (2^-39 overall), is the same value.
TEST_P(FullbandUpdate, StepIsHalfOverTheSlidingEnergy) {
    const auto g = GetParam();
    Kvo32s bf = 0, bi = 0;
    ASSERT_EQ(kvosFullbandControllerGetSize_EC_32f(g.frame, g.taps, g.fs, &bf), kvoOk);
    ASSERT_EQ(kvosFullbandControllerGetSize_EC_16s(g.frame, g.taps, g.fs, &bi), kvoOk);
    EXPECT_EQ(bf, 72);
    EXPECT_EQ(bi, 96);
    Block mf(bf), mi(bi);
    auto* sf = mf.as<KvoFullbandController32fState>();
    auto* si = mi.as<KvoFullbandController16sState>();
    ASSERT_EQ(kvosFullbandControllerInit_EC_32f(sf, g.frame, g.taps, g.fs), kvoOk);
    ASSERT_EQ(kvosFullbandControllerInit_EC_16s(si, g.frame, g.taps, g.fs), kvoOk);
    std::mt19937 rng(3);
    std::uniform_int_distribution<int> u(-20000, 20000);
    const int total = g.taps + 6 * g.frame;
    std::vector<Kvo16s> x(total);
    for (int i = 0; i < total; ++i) x[i] = Kvo16s(u(rng) * (i % 97 < 40 ? 1 : 0.01));
    std::vector<Kvo32f> xf(x.begin(), x.end());
    std::vector<Kvo32f> sfv(g.frame);
    std::vector<Kvo32s> siv(g.frame);
    const double floorF = 1500000.0 * g.taps;
    for (int start = g.taps; start + g.frame <= total; start += g.frame) {
        ASSERT_EQ(kvosFullbandControllerUpdate_EC_32f(&xf[start], &xf[start], sfv.data(), sf), kvoOk);
        ASSERT_EQ(kvosFullbandControllerUpdate_EC_16s(&x[start], &x[start], siv.data(), si), kvoOk);
        for (int i = 0; i < g.frame; ++i) {
            double e = 0;
            for (int t = 1; t <= g.taps; ++t) e += double(x[start + i - t]) * x[start + i - t];
            if (e > floorF * 1.01) {
                EXPECT_NEAR(sfv[i], 0.5 / e, 0.5 / e * 1e-3) << start + i;
                // The integer quotient 0x40000000 / E is coarse for loud references.
                EXPECT_NEAR(std::ldexp(double(siv[i]), -39), 0.5 / e,
                            0.5 / e * 2e-3 + std::ldexp(1.0, -39))
                    << start + i;
            } else if (e < floorF * 0.99) {
                EXPECT_FLOAT_EQ(sfv[i], 1.0f / float(floorF));
            }
        }
    }
}
INSTANTIATE_TEST_SUITE_P(Geometries, FullbandUpdate,
                         ::testing::Values(FullGeom{80, 256, 8000}, FullGeom{40, 64, 16000},
                                           FullGeom{1, 1, 8000}));

template <class T>
class FullbandDecisions : public ::testing::Test {};
TYPED_TEST_SUITE(FullbandDecisions, Families);

// Adaptive error 20 dB under the fixed one with still taps: the fixed taps take the
// adaptive ones and conv falls; adaptive error 2 dB over: the adaptive taps return.
// The gain mutes only once conv < 1/2 and the fixed error is 7 dB under the microphone.
TYPED_TEST(FullbandDecisions, SaveRestoreAndMute) {
    constexpr bool fixed = TypeParam::value;
    using T = std::conditional_t<fixed, Kvo16s, Kvo32f>;
    using S = std::conditional_t<fixed, KvoFullbandController16sState,
                                 KvoFullbandController32fState>;
    const int frame = 40, taps = 16;
    Block m(96);
    S* s = m.as<S>();
    std::vector<T> ad(taps), fx(taps, T(0)), ea(frame), ef(frame), mic(frame + taps);
    std::vector<std::conditional_t<fixed, Kvo32s, Kvo32f>> st(frame);
    for (int t = 0; t < taps; ++t) ad[t] = T(1000 + 50 * t);
    double gain = 0;
    Kvo32f gain_f = 0;
    auto run = [&](double aAmp, double fAmp, double micAmp) {
        for (int i = 0; i < frame + taps; ++i) {
            const double sg = i % 2 ? 1 : -1;
            if (i < frame) ea[i] = T(aAmp * sg), ef[i] = T(fAmp * sg);
            mic[i] = T(micAmp * sg);
        }
        if constexpr (fixed) {
            Kvo16s g = 0;
            EXPECT_EQ(kvosFullbandControllerUpdate_EC_16s(&mic[taps], &mic[taps], st.data(), s), kvoOk);
            EXPECT_EQ(kvosFullbandController_EC_16s(ea.data(), ef.data(), ad.data(), fx.data(), &g, s),
                      kvoOk);
            gain = g / 32768.0;
        } else {
            EXPECT_EQ(kvosFullbandControllerUpdate_EC_32f(&mic[taps], &mic[taps], st.data(), s), kvoOk);
            EXPECT_EQ(kvosFullbandController_EC_32f(ea.data(), ef.data(), ad.data(), fx.data(), &gain_f, s),
                      kvoOk);
            gain = gain_f;
        }
    };
    if constexpr (fixed)
        ASSERT_EQ(kvosFullbandControllerInit_EC_16s(s, frame, taps, 8000), kvoOk);
    else
        ASSERT_EQ(kvosFullbandControllerInit_EC_32f(s, frame, taps, 8000), kvoOk);

    for (int i = 0; i < 10; ++i) run(0, 0, 0);  // silent start: no decision
    EXPECT_NEAR(gain, 1.0, 1e-4);
    // Equal errors while the coefficient energy settles: no copy either way.
    for (int i = 0; i < 30; ++i) run(3000, 3000, 8000);
    EXPECT_EQ(fx[3], T(0));
    for (int i = 0; i < 60; ++i) run(300, 3000, 8000);
    EXPECT_EQ(fx[3], ad[3]);
    EXPECT_LT(gain, 0.1);  // trusted filter, fixed error far under the microphone
    // The adaptive filter goes astray: its taps are replaced by the saved ones.
    for (int t = 0; t < taps; ++t) ad[t] = T(-5);
    run(9000, 3000, 8000);
    EXPECT_EQ(ad[3], fx[3]);
}

// ---- double-talk controller --------------------------------------------------------

struct DtRig {
    int n, segs, frame;
    Block mem;
    KvoSubbandControllerDT16sState* st;
    Rows<Kvo32sc> ad, fx;
    std::vector<Kvo32sc> ref, mic, err;
    std::vector<KvoStepPair> step;
    Kvo32s dt = 0, low = 0;
    DtRig(int n_, int segs_, int frame_)
        : n(n_), segs(segs_), frame(frame_), mem(0), ad(segs_, n_), fx(segs_, n_), ref(n_),
          mic(n_), err(n_), step(n_) {
        Kvo32s bytes = 0;
        EXPECT_EQ(kvosSubbandControllerDTGetSize_EC_16s(n, frame, segs, 8000, &bytes), kvoOk);
        EXPECT_EQ(bytes, 11 * ((4 * n + 15) & ~15) + 2 * ((8 * n + 15) & ~15) + 208);
        mem = Block(bytes);
        auto a = reinterpret_cast<uintptr_t>(mem.mem.data());
        st = reinterpret_cast<KvoSubbandControllerDT16sState*>((a + 15) & ~uintptr_t{15});
        EXPECT_EQ(kvosSubbandControllerDTInit_EC_16s(st, n, frame, segs, 8000), kvoOk);
    }
    // One update with reference, microphone and error amplitudes per subband.
    void update(double r, double m, double e, int start = 0) {
        for (int k = 0; k < n; ++k) {
            ref[k] = {Kvo32s(r), Kvo32s(-r / 2)};
            mic[k] = {Kvo32s(m), Kvo32s(m / 3)};
            err[k] = {Kvo32s(e), Kvo32s(-e / 3)};
        }
        const Kvo32sc* rows[1] = {ref.data()};
        ASSERT_EQ(kvosSubbandControllerDTUpdate_EC_16s(rows, mic.data(), err.data(), step.data(), &dt,
                                                       &low, start, st),
                  kvoOk);
    }
    Kvo32s control(Kvo64s tracked, Kvo64s test, int valid, int keep, double ea = 0,
                   double ef = 0) {
        std::vector<Kvo32sc> a(n, Kvo32sc{Kvo32s(ea), 0}), f(n, Kvo32sc{Kvo32s(ef), 0});
        Kvo32s action = 7;
        EXPECT_EQ(kvosSubbandControllerDT_EC_16s(a.data(), f.data(), ad.ptr.data(), fx.ptr.data(),
                                                 &tracked, &action, test, valid, keep, 0, st),
                  kvoOk);
        return action;
    }
};

// Steady reference: the step converges to 0.9 / (numSegments * (P + f)) with P the
// power >> 14 and f = 80530 / numSegments, at the 2^-45 scale of the pair.
TEST(DoubleTalk, StepOfASteadyReference) {
    DtRig r(33, 8, 44);
    for (int i = 0; i < 300; ++i) r.update(400000, 1000, 100);
    const double P = (400000.0 * 400000.0 + 200000.0 * 200000.0) / 16384.0;
    const double f = 80530 / 8;
    const double want = double(0x73333333 / 8) / (P + f) * std::ldexp(1.0, -45);
    // 300 frames of 44 samples: 13200 calm samples, no lowering yet.
    EXPECT_NEAR(stepValue(r.step[5]), want, want * 1e-3);
    EXPECT_EQ(r.dt, 0);
    // Past 32000 and 40000 calm samples the step falls by 4, then 8.
    for (int i = 0; i < 450; ++i) r.update(400000, 1000, 100);
    EXPECT_NEAR(stepValue(r.step[5]), want / 4, want * 1e-3);
    for (int i = 0; i < 200; ++i) r.update(400000, 1000, 100);
    EXPECT_NEAR(stepValue(r.step[5]), want / 8, want * 1e-3);
}

// Echo alone at several echo-return losses never flags; near-end speech that lifts the
// error to the microphone level flags every subband and the frame at once, and the
// flags outlive the speech by at least their 32-frame hangover.
TEST(DoubleTalk, NearEndSpeechRaisesTheFlagsEchoAloneDoesNot) {
    for (int erleShift : {5, 7, 9}) {
        SCOPED_TRACE(erleShift);
        DtRig r(33, 4, 44);
        for (int i = 0; i < 300; ++i) {
            r.update(1 << 20, 1 << 19, (1 << 19) >> erleShift);
            ASSERT_EQ(r.dt, 0) << "false alarm in frame " << i;
            ASSERT_EQ(r.st->dtSubbands, 0);
        }
        r.update(1 << 20, 1 << 21, 1 << 21);  // talker: error as loud as the microphone
        EXPECT_EQ(r.dt, 1);
        EXPECT_EQ(r.low, 1);
        EXPECT_EQ(r.st->dtSubbands, 33);
        EXPECT_EQ(r.st->dtLowSubbands, 10);
        int held = 0;
        for (; held < 20000 && r.dt == 1; ++held) r.update(1 << 20, 1 << 19, (1 << 19) >> erleShift);
        EXPECT_GT(held, 32);
        EXPECT_LT(held, 20000) << "flags never clear";
        EXPECT_LT(r.st->dtSubbands, 33 / 4);
    }
}

TEST(DoubleTalk, ControllerSavesAndRestoresWholeRows) {
    DtRig r(6, 3, 40);
    auto fill = [&](Rows<Kvo32sc>& rows, Kvo32s v) {
        for (auto& row : rows.data)
            for (auto& c : row) c = {v, -v};
    };
    fill(r.ad, 11);
    fill(r.fx, 0);
    // keepChanges 0 and testPower 0: nothing but the reset of the action.
    EXPECT_EQ(r.control(1000, 0, 1, 0, 100, 100), 0);
    EXPECT_EQ(r.fx.data[2][5].re, 0);
    // Adaptive error 9 dB and more under the fixed one: save, a good save.
    Kvo32s act = 0;
    for (int i = 0; i < 30 && act != -1; ++i) act = r.control(1 << 20, 1 << 12, 1, 1, 1000, 100000);
    EXPECT_EQ(act, -1);
    EXPECT_EQ(r.fx.data[2][5].re, 11);
    EXPECT_EQ(r.st->goodSave, 1);
    // okCount reaches 10 with the adaptive error now above the saved one: restore.
    fill(r.ad, 99);
    act = 0;
    int frames = 0;
    for (; frames < 30 && act != 1; ++frames)
        act = r.control(1 << 20, 1 << 12, 1, 1, 200000, 1000);
    EXPECT_EQ(act, 1);
    EXPECT_EQ(r.ad.data[0][0].re, 11);
    EXPECT_EQ(r.st->goodSave, 0);
}

// ---- argument checks ---------------------------------------------------------------

TEST(EcControlArgs, ConfigurationBeforePointers) {
    Kvo32s sz = 0;
    Block m(4096);
    struct Case {
        int n, frame, segs, fs;
        KvoStatus want;
    };
    const Case cases[] = {{0, 24, 4, 8000, kvoErrBadArg},  {17, 0, 4, 8000, kvoErrBadArg},
                          {17, 24, 0, 8000, kvoErrBadArg}, {17, 24, 4, 11025, kvoErrRange},
                          {17, 24, 4, 0, kvoErrRange},     {17, 24, 4, 16000, kvoOk}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.n << " " << c.frame << " " << c.segs << " " << c.fs);
        EXPECT_EQ(kvosSubbandControllerGetSize_EC_32f(c.n, c.frame, c.segs, c.fs, nullptr),
                  c.want == kvoOk ? kvoErrNullPtr : c.want);
        EXPECT_EQ(kvosSubbandControllerGetSize_EC_16s(c.n, c.frame, c.segs, c.fs, &sz), c.want);
        EXPECT_EQ(kvosSubbandControllerDTGetSize_EC_16s(c.n, c.frame, c.segs, c.fs, &sz), c.want);
        EXPECT_EQ(kvosSubbandControllerInit_EC_32f(nullptr, c.n, c.frame, c.segs, c.fs),
                  c.want == kvoOk ? kvoErrNullPtr : c.want);
        EXPECT_EQ(kvosSubbandControllerInit_EC_16s(m.as<KvoSubbandController16sState>(), c.n,
                                                   c.frame, c.segs, c.fs),
                  c.want);
        EXPECT_EQ(kvosSubbandControllerDTInit_EC_16s(nullptr, c.n, c.frame, c.segs, c.fs),
                  c.want == kvoOk ? kvoErrNullPtr : c.want);
        // Fullband: the pointer comes first.
        EXPECT_EQ(kvosFullbandControllerGetSize_EC_32f(c.frame, c.segs, c.fs, nullptr),
                  kvoErrNullPtr);
        EXPECT_EQ(kvosFullbandControllerGetSize_EC_16s(c.frame, c.segs, c.fs, &sz),
                  c.n == 0 ? kvoOk : c.want);
        EXPECT_EQ(kvosFullbandControllerInit_EC_32f(m.as<KvoFullbandController32fState>(), c.frame,
                                                    c.segs, c.fs),
                  c.n == 0 ? kvoOk : c.want);
    }
}

TEST(EcControlArgs, FrameCallsRejectNullsAndWriteNothing) {
    Block m(4096);
    auto* s32 = m.as<KvoSubbandController32fState>();
    ASSERT_EQ(kvosSubbandControllerInit_EC_32f(s32, 2, 24, 1, 8000), kvoOk);
    Kvo32fc e[2] = {{1, 1}, {1, 1}}, c[2] = {{1, 1}, {1, 1}};
    Kvo32fc* rows[1] = {c};
    const Kvo32fc* crow[1] = {c};
    Kvo32f g = -5;
    Kvo64f st[2] = {-5, -5};
    EXPECT_EQ(kvosSubbandController_EC_32f(e, e, rows, rows, nullptr, s32), kvoErrNullPtr);
    EXPECT_EQ(kvosSubbandControllerUpdate_EC_32f(nullptr, &g, crow, e, st, s32), kvoErrNullPtr);
    EXPECT_EQ(kvosSubbandAPControllerUpdate_EC_32f(nullptr, e, st, s32, 0.5f), kvoErrNullPtr);
    EXPECT_EQ(kvosSubbandAPControllerUpdate_EC_32f(crow, nullptr, st, s32, 1.0000001f), kvoErrRange);
    EXPECT_EQ(kvosSubbandAPControllerUpdate_EC_32f(crow, nullptr, st, s32, -0.1f), kvoErrRange);
    EXPECT_EQ(kvosSubbandControllerReset_EC_32f(nullptr), kvoErrNullPtr);
    EXPECT_EQ(g, -5);
    EXPECT_EQ(st[0], -5);

    DtRig r(4, 2, 40);
    const Kvo32sc* rr[1] = {r.ref.data()};
    Kvo32s dt = 3, low = 3, act = 3;
    Kvo64s tp = 9;
    EXPECT_EQ(kvosSubbandControllerDTUpdate_EC_16s(rr, r.mic.data(), r.err.data(), r.step.data(),
                                                   &dt, &low, 5, r.st),
              kvoErrRange);
    EXPECT_EQ(kvosSubbandControllerDT_EC_16s(r.err.data(), r.err.data(), r.ad.ptr.data(),
                                             r.fx.ptr.data(), &tp, &act, 1, 1, 1, 5, r.st),
              kvoErrRange);
    EXPECT_EQ(kvosSubbandControllerDTReset_EC_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(dt, 3);
    EXPECT_EQ(act, 3);
    EXPECT_EQ(tp, 9);
}

// The fullband step at a window energy exactly on the floor is the floor step; the 16-bit
// floor of the squares rounded >> 8.
TEST(EcControlBoundaries, FullbandStepOnTheFloor) {
    // tapLen 4, samples of 1000: float E = 4e6 against the floor 1500000 * 4 = 6e6.
    // With samples of sqrt(1.5e6) the window energy equals the floor exactly.
    Block m(128), m16(128);
    auto* s = m.as<KvoFullbandController32fState>();
    auto* s16 = m16.as<KvoFullbandController16sState>();
    ASSERT_EQ(kvosFullbandControllerInit_EC_32f(s, 1, 4, 8000), kvoOk);
    ASSERT_EQ(kvosFullbandControllerInit_EC_16s(s16, 1, 4, 8000), kvoOk);
    const Kvo32f v = std::sqrt(1500000.0f);
    Kvo32f ref[5] = {v, v, v, v, 0}, step = 0;
    ASSERT_EQ(v * v * 4, 6000000.0f);
    ASSERT_EQ(kvosFullbandControllerUpdate_EC_32f(ref + 4, ref + 4, &step, s), kvoOk);
    EXPECT_EQ(step, kvo::ec::align16(s)->minStep);
    // 16 bits: the floor is (4*1500000 + 128) >> 8 = 23438; squares (r*r + 128) >> 8.
    // r = 4900: 93789 per sample, over the floor; r = 153: 91 per sample, under it.
    Kvo16s r16[5] = {4900, 4900, 4900, 4900, 0};
    Kvo32s st16 = 0;
    ASSERT_EQ(kvosFullbandControllerUpdate_EC_16s(r16 + 4, r16 + 4, &st16, s16), kvoOk);
    EXPECT_EQ(st16, 0x40000000 / (4 * ((4900 * 4900 + 128) >> 8)));
    Kvo16s q16[5] = {153, 153, 153, 153, 0};
    ASSERT_EQ(kvosFullbandControllerUpdate_EC_16s(q16 + 4, q16 + 4, &st16, s16), kvoOk);
    EXPECT_EQ(st16, 0x40000000 / 23438);
}

}  // namespace
