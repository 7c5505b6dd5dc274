// G.729 Annex E hybrid window (fixed point): a double-precision model of the recursive window
// over many frames (state decay included), the saturation limits of loud input, the record
// and the argument checks.
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
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(kvosWinHybrid_G729E_16s32s(k == 0 ? nullptr : x.data(), k == 1 ? nullptr : r.data(),
                                             k == 2 ? nullptr : &st),
                  kvoErrNullPtr);
    EXPECT_TRUE(r == std::vector<Kvo32s>(31, 7));
    for (Kvo32s v : st.acc) EXPECT_EQ(v, 0);
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
