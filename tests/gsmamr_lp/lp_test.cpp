// GSM AMR LP analysis: windowed autocorrelation against a 64-bit model,
// the recursion and the LSP conversions against double-precision models
// (root scan, round trip), interpolation, preemphasis and the
// adaptive-codebook gain against worked values and a double model.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "gsmamr/gsmamr_lp_tables.h"
#include "numeric/numeric_tables.h"
#include "kvosc.h"
#include "lpc/lpc_model.h"
#include "support/signals.h"

namespace {

// 64-bit model of one window: rounded windowing, scaling by 4 while the
// energy exceeds 2^30 - 1, lag 0 = (2E + 1) normalised, lags doubled with the
// same shift, then the lag window of the library's G.729 step.
std::vector<Kvo32s> autoCorrModel(const int16_t* x, const Kvo16s* win) {
    std::vector<int64_t> w(240);
    for (int i = 0; i < 240; ++i)
        w[i] = std::clamp<int64_t>((int64_t(x[i]) * win[i] + 16384) >> 15, -32768, 32767);
    auto dot = [&](int k) {
        int64_t s = 0;
        for (int i = 0; i + k < 240; ++i) s += w[i] * w[i + k];
        return s;
    };
    while (dot(0) > 0x3fffffff)
        for (auto& v : w) v >>= 2;
    const int64_t l = 2 * dot(0) + 1;
    int n = 0;
    while ((l << n) < (int64_t(1) << 30)) ++n;
    std::vector<Kvo32s> r(11);
    r[0] = static_cast<Kvo32s>(l << n);
    for (int k = 1; k <= 10; ++k) r[k] = static_cast<Kvo32s>((2 * dot(k)) << n);
    EXPECT_EQ(kvosLagWindow_G729_32s_I(&r[1], 10), kvoOk);
    return r;
}

struct AcCase {
    const char* name;
    double peak;
    KvoSpeechRate mode;
};

class AutoCorr : public ::testing::TestWithParam<AcCase> {};

TEST_P(AutoCorr, Matches64BitModel) {
    const AcCase c = GetParam();
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(::testing::Message() << c.name << " seed " << seed);
        auto x = kvosc::test::speech_like(240, seed, c.peak, 8000);
        std::vector<Kvo32s> r(22, 0x5a5a5a5a);
        ASSERT_EQ(kvosAutoCorr_GSMAMR_16s32s(x.data(), r.data(), c.mode), kvoOk);
        const bool two = c.mode == kvoRate12200;
        const auto m1 = autoCorrModel(x.data(), two ? kvo::tab::win160_80 : kvo::tab::hamwindow);
        for (int k = 0; k < 11; ++k) EXPECT_EQ(r[k], m1[k]) << "lag " << k;
        if (two) {
            const auto m2 = autoCorrModel(x.data(), kvo::tab::win232_8);
            for (int k = 0; k < 11; ++k) EXPECT_EQ(r[11 + k], m2[k]) << "second, lag " << k;
        } else {
            EXPECT_EQ(r[11], 0x5a5a5a5a) << "wrote past 11 values";
        }
    }
}

// Full scale (32767 peaks) runs the scaling loop more than once.
INSTANTIATE_TEST_SUITE_P(Levels, AutoCorr,
                         ::testing::Values(AcCase{"quiet", 300, kvoRate4750},
                                           AcCase{"fullscale", 32767, kvoRate10200},
                                           AcCase{"mr122full", 32767, kvoRate12200}),
                         [](const auto& i) { return std::string(i.param.name); });

// Recursion within 2 units (Q12) of a double Levinson-Durbin; LSPs within 32
// units (Q15) of the exact roots (polynomials held in Q10, grid search); LSP to
// LP back within 8 units.
TEST(LpChain, AgainstDoubleModels) {
    for (uint32_t seed = 1; seed <= 15; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        auto x = kvosc::test::speech_like(240, seed, 6000 + 400 * seed, 8000);
        Kvo32s r[11];
        ASSERT_EQ(kvosAutoCorr_GSMAMR_16s32s(x.data(), r, kvoRate7400), kvoOk);
        Kvo16s a[11];
        ASSERT_EQ(kvosLevinsonDurbin_GSMAMR_32s16s(r, a), kvoOk);
        std::vector<double> rd(11);
        for (int i = 0; i < 11; ++i) rd[i] = r[i];
        const auto lev = lpcmodel::levinson(rd, 10);
        EXPECT_EQ(a[0], 4096);
        for (int i = 1; i <= 10; ++i) {
            EXPECT_LE(std::abs(a[i] - int(std::lround(lev.a[i] * 4096))), 2) << i;
        }

        std::vector<double> ad(11);
        for (int i = 0; i < 11; ++i) ad[i] = a[i] / 4096.0;
        const auto w = lpcmodel::lsf(ad);
        ASSERT_EQ(w.size(), 10u);
        Kvo16s prev[10] = {}, lsp[10];
        ASSERT_EQ(kvosLPCToLSP_GSMAMR_16s(a, prev, lsp), kvoOk);
        for (int i = 0; i < 10; ++i) {
            EXPECT_LE(std::abs(lsp[i] - int(std::lround(std::cos(w[i]) * 32768))), 32) << i;
        }
        Kvo16s back[11];
        ASSERT_EQ(kvosLSPToLPC_GSMAMR_16s(lsp, back), kvoOk);
        for (int i = 0; i <= 10; ++i) EXPECT_LE(std::abs(back[i] - a[i]), 8) << i;
    }
}

TEST(Interpolate, QuarterAndThreeQuarters) {
    const Kvo16s a[] = {32767, -32768, 4, 5, -5, 0, 1000};
    const Kvo16s b[] = {32767, -32768, 0, -7, 8, -1, -1000};
    Kvo16s d[7];
    ASSERT_EQ(kvosInterpolate_GSMAMR_16s(a, b, d, 7), kvoOk);
    for (int i = 0; i < 7; ++i) {
        // Worked from the definition: a/4 + 3b/4 with both quarters floored.
        const int want = (a[i] >> 2) + b[i] - (b[i] >> 2);
        EXPECT_EQ(d[i], want) << i;
        EXPECT_NEAR(d[i], 0.25 * a[i] + 0.75 * b[i], 1.0) << i;
    }
}

TEST(Preemphasize, ModelMemoryAndInPlace) {
    std::mt19937 rng(5);
    std::uniform_int_distribution<int> u(-32768, 32767);
    for (Kvo16s gamma : {Kvo16s(-22282), Kvo16s(-32768)}) {
        SCOPED_TRACE(gamma);
        std::vector<Kvo16s> x(50);
        for (auto& v : x) v = static_cast<Kvo16s>(u(rng));
        Kvo16s mem = 1234, memIp = 1234;
        std::vector<Kvo16s> y(50), ip(x);
        ASSERT_EQ(kvosPreemphasize_GSMAMR_16s(gamma, x.data(), y.data(), 50, &mem), kvoOk);
        ASSERT_EQ(kvosPreemphasize_GSMAMR_16s(gamma, ip.data(), ip.data(), 50, &memIp), kvoOk);
        int64_t prev = 1234;
        for (int i = 0; i < 50; ++i) {
            const int64_t want =
                std::clamp<int64_t>(x[i] + ((int64_t(gamma) * prev) >> 15), -32768, 32767);
            EXPECT_EQ(y[i], want) << i;
            EXPECT_EQ(ip[i], y[i]) << i;
            prev = x[i];
        }
        EXPECT_EQ(mem, x[49]);
        EXPECT_EQ(memIp, x[49]);
    }
}

// Gain and coefficients against doubles: gain = <x,y>/<y,y> in Q14, limited
// to 1.2 and 0 for a negative correlation; yy 2^c1 ~ <y,y>, xy 2^c3 ~ <x,y>.
TEST(AdaptiveCodebookGain, AgainstDoubleModel) {
    std::mt19937 rng(11);
    int cases = 0;
    for (int t = 0; t < 120; ++t) {
        SCOPED_TRACE(::testing::Message() << "seed 11 case " << t);
        const double ay = t % 4 == 3 ? 32767 : 200.0 * (1 + t % 40);
        const double ax = t % 5 == 4 ? 32767 : 150.0 * (1 + t % 30);
        std::normal_distribution<double> g(0, 1);
        Kvo16s x[40], y[40];
        const double corr = (t % 7) / 3.0 - 0.5;  // -0.5 .. 1.5
        for (int i = 0; i < 40; ++i) {
            const double yi = std::clamp(ay * g(rng) * 0.4, -32768.0, 32767.0);
            y[i] = static_cast<Kvo16s>(std::lround(yi));
            x[i] = static_cast<Kvo16s>(std::lround(
                std::clamp(corr * y[i] * ax / ay + 0.3 * ax * g(rng), -32768.0, 32767.0)));
        }
        double exy = 0, eyy = 0;
        for (int i = 0; i < 40; ++i) {
            exy += double(x[i]) * y[i];
            eyy += double(y[i]) * y[i];
        }
        Kvo16s gain = -1, c[4];
        ASSERT_EQ(kvosAdaptiveCodebookGainCoeffs_GSMAMR_16s(x, y, &gain, c), kvoOk);
        Kvo16s gain2 = -1;
        ASSERT_EQ(kvosAdaptiveCodebookGain_GSMAMR_16s(x, y, &gain2), kvoOk);
        EXPECT_EQ(gain, gain2);
        EXPECT_NEAR(c[0] * std::ldexp(1.0, c[1]), eyy, eyy * 1e-3 + 2);
        EXPECT_GE(gain, 0);
        EXPECT_LE(gain, 19661);
        // Beyond 2^32 even the correlation with y / 4 saturates, as in the
        // reference arithmetic: only the range is checked there.
        if (std::fabs(exy) >= 4294967296.0) continue;
        if (std::fabs(exy) > 1e5) {
            EXPECT_NEAR(c[2] * std::ldexp(1.0, c[3]), exy, std::fabs(exy) * 2e-3);
        }
        const double want = exy <= 0 ? 0 : std::min(exy / eyy, 19661 / 16384.0);
        EXPECT_NEAR(gain / 16384.0, want, 2e-3) << "exy " << exy << " eyy " << eyy;
        ++cases;
    }
    EXPECT_GT(cases, 90);
}

TEST(AdaptiveCodebookGain, WorkedValues) {
    Kvo16s y[40], x[40], g;
    // Energy just at 2^30: the saturating sum 1 + 2E overflows and the
    // scaled path gives the same unit gain.
    for (int i = 0; i < 40; ++i) y[i] = x[i] = (i < 1) ? 32767 : 0;
    y[1] = x[1] = 1;  // E = 32767^2 + 1 < 2^30: no scaling
    Kvo16s c[4];
    ASSERT_EQ(kvosAdaptiveCodebookGainCoeffs_GSMAMR_16s(x, y, &g, c), kvoOk);
    EXPECT_EQ(c[1], 15);  // 2E + 1 = 0x7ffe0005 needs no normalising shift
    EXPECT_EQ(c[0], 32766);
    for (int i = 0; i < 40; ++i) y[i] = x[i] = (i < 2) ? 23171 : 0;  // E = 1073774482 >= 2^30
    ASSERT_EQ(kvosAdaptiveCodebookGainCoeffs_GSMAMR_16s(x, y, &g, c), kvoOk);
    EXPECT_NEAR(g, 16384, 4);
    EXPECT_NEAR(c[0] * std::ldexp(1.0, c[1]), 2.0 * 23171 * 23171, 2.0 * 23171 * 23171 * 2e-3);
}

}  // namespace
