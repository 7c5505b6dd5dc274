// G.729 Annex E hybrid window (fixed point): a double-precision model of the recursive window
// over many frames, worked single-impulse values, the decay of the state, the saturation
// limits of loud input, and the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "g729/hybrid_tables.h"
#include "kvosc.h"

namespace {

constexpr int kLen = 145;

struct Window {
    KvoG729EHybridState st;
    Window() { EXPECT_EQ(kvosWinHybridInit_G729E_16s(&st), kvoOk); }
    std::vector<Kvo32s> run(const std::vector<Kvo16s>& x) {
        std::vector<Kvo32s> r(31);
        EXPECT_EQ(kvosWinHybrid_G729E_16s32s(x.data(), r.data(), &st), kvoOk);
        return r;
    }
};

TEST(G729Hybrid, StateRecordAndNullPointers) {
    Kvo32s size = 0;
    EXPECT_EQ(kvosWinHybridGetStateSize_G729E_16s(&size), kvoOk);
    EXPECT_EQ(size, 31 * 4);
    KvoG729EHybridState st;
    std::memset(&st, 0x5a, sizeof st);
    EXPECT_EQ(kvosWinHybridInit_G729E_16s(&st), kvoOk);
    for (Kvo32s v : st.acc) EXPECT_EQ(v, 0);
    std::vector<Kvo16s> x(kLen, 100);
    std::vector<Kvo32s> r(31, 7);
    EXPECT_EQ(kvosWinHybridGetStateSize_G729E_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosWinHybridInit_G729E_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosWinHybrid_G729E_16s32s(nullptr, r.data(), &st), kvoErrNullPtr);
    EXPECT_EQ(kvosWinHybrid_G729E_16s32s(x.data(), nullptr, &st), kvoErrNullPtr);
    EXPECT_EQ(kvosWinHybrid_G729E_16s32s(x.data(), r.data(), nullptr), kvoErrNullPtr);
    for (Kvo32s v : r) EXPECT_EQ(v, 7);
    for (Kvo32s v : st.acc) EXPECT_EQ(v, 0);
}

// A single impulse in the non-recursive part gives its squared windowed value at lag 0 and
// nothing else; in the recursive part it enters the state, which then decays per call.
TEST(G729Hybrid, SingleImpulses) {
    Window w;
    std::vector<Kvo16s> x(kLen, 0);
    x[140] = 12000;
    const Kvo32s v = (12000 * kvo::tab::hw[140]) >> 15;
    auto r = w.run(x);
    EXPECT_EQ(r[0], v * v);
    for (int k = 1; k < 31; ++k) EXPECT_EQ(r[k], 0);

    Window w2;
    std::fill(x.begin(), x.end(), 0);
    x[60] = 20000;
    const Kvo32s u = (20000 * kvo::tab::hw[60]) >> 15;
    r = w2.run(x);
    EXPECT_EQ(r[0], u * u);
    EXPECT_EQ(w2.st.acc[0], u * u);
    // Zero input from now on: the state falls by 0.31640625 per call, within a unit.
    std::fill(x.begin(), x.end(), 0);
    double expect = double(u) * u;
    for (int call = 0; call < 6; ++call) {
        r = w2.run(x);
        expect *= 0.31640625;
        EXPECT_NEAR(r[0], expect, 4.0) << "call " << call;
        EXPECT_EQ(r[0], w2.st.acc[0]);
    }
}

// Moderate random speech-like frames moved on by 80 samples per call: the output follows a
// double model of the window (decayed recursive sums plus the non-recursive part) within
// the truncation of the windowed samples and of the decay products.
TEST(G729Hybrid, FollowsDoubleModel) {
    std::mt19937 rng(729);
    SCOPED_TRACE("seed 729");
    std::normal_distribution<double> nd(0.0, 1500.0);
    std::vector<Kvo16s> sig(80 * 40 + 65);
    double y = 0;
    for (auto& s : sig) {
        y = 0.8 * y + nd(rng);
        s = static_cast<Kvo16s>(std::clamp(y, -32768.0, 32767.0));
    }
    Window w;
    std::vector<double> state(31, 0.0);
    for (int f = 0; f < 40; ++f) {
        std::vector<Kvo16s> x(sig.begin() + 80 * f, sig.begin() + 80 * f + kLen);
        std::vector<double> ws(kLen);
        for (int i = 0; i < kLen; ++i) ws[i] = std::floor(double(x[i]) * kvo::tab::hw[i] / 32768.0);
        const auto r = w.run(x);
        for (int k = 0; k < 31; ++k) {
            double r1 = 0, r2 = 0;
            for (int i = 30; i < 110; ++i) r1 += ws[i] * ws[i - k];
            for (int i = 110; i < kLen; ++i) r2 += ws[i] * ws[i - k];
            state[k] = state[k] * 0.31640625 + r1;
            const double want = state[k] + r2;
            EXPECT_NEAR(r[k], want, 4.0 + 1e-7 * std::fabs(want)) << "frame " << f << " lag " << k;
        }
    }
}

// Full-scale input: the recursive sum stops at 2^30 - 1 and the output at 0x3FFFFFFF;
// an alternating full-scale sign gives negative odd lags, bounded below by -2^30.
TEST(G729Hybrid, LoudInputSaturates) {
    Window w;
    std::vector<Kvo16s> x(kLen, 32767);
    auto r = w.run(x);
    EXPECT_EQ(w.st.acc[0], 0x3fffffff);  // halved doubled-saturated recursive sum
    EXPECT_EQ(r[0], 0x3fffffff);
    r = w.run(x);
    EXPECT_EQ(w.st.acc[0], 0x3fffffff + 2 * ((0x3fff * 10368) + ((0x7fff * 10368) >> 15)));
    EXPECT_EQ(r[0], 0x3fffffff);
    // The state settles where the halved sum balances the decay, 2^30 / (1 - 0.31640625);
    // the doubled output saturates on the way.
    for (int i = 0; i < 30; ++i) r = w.run(x);
    EXPECT_NEAR(w.st.acc[0], 1073741823.0 / (1 - 0.31640625), 8.0);
    EXPECT_EQ(r[0], 0x3fffffff);

    Window alt;
    for (int i = 0; i < kLen; ++i) x[i] = (i & 1) ? -32768 : 32767;
    for (int i = 0; i < 4; ++i) r = alt.run(x);
    EXPECT_EQ(r[1], -0x40000000);
    EXPECT_EQ(r[2], 0x3fffffff);
}

}  // namespace
