// GSM full-rate Schur recursion, LTP lag search, weighting filter and APCM
// inverse quantisation: double-precision and int64 models, the standard's
// own form of the APCM formula, tie and edge rules, SSE2 against scalar.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "gsmfr/gsmfr.h"
#include "kvosc.h"

namespace {

// Reflection coefficients of autocorrelation r by Levinson-Durbin in double
// (sign convention of the analysis lattice: k1 = -r1/r0).
std::vector<double> levinson(const std::vector<double>& r, int order) {
    std::vector<double> a(order + 1, 0.0), k(order);
    a[0] = 1;
    double e = r[0];
    for (int i = 1; i <= order; ++i) {
        double acc = r[i];
        for (int j = 1; j < i; ++j) acc += a[j] * r[i - j];
        k[i - 1] = -acc / e;
        std::vector<double> b = a;
        for (int j = 1; j < i; ++j) b[j] = a[j] + k[i - 1] * a[i - j];
        b[i] = k[i - 1];
        a = b;
        e *= 1 - k[i - 1] * k[i - 1];
    }
    return k;
}

TEST(GsmFrSchur, FollowsLevinsonOnSpeechLikeSpectra) {
    std::mt19937 rng(31);
    std::normal_distribution<double> g(0, 1);
    for (int trial = 0; trial < 50; ++trial) {
        SCOPED_TRACE(trial);
        // A random stable AR(2) colouring of white noise, 160 samples.
        const double rho = 0.5 + 0.45 * (trial % 10) / 10.0, th = 0.2 + 0.25 * (trial % 7);
        std::vector<double> x(160);
        double y1 = 0, y2 = 0;
        for (double& v : x) {
            v = g(rng) + 2 * rho * std::cos(th) * y1 - rho * rho * y2;
            y2 = y1;
            y1 = v;
        }
        double peak = 0;
        for (double v : x) peak = std::max(peak, std::fabs(v));
        std::vector<Kvo16s> s(160);
        for (int i = 0; i < 160; ++i) s[i] = static_cast<Kvo16s>(std::lround(x[i] / peak * 2000));
        Kvo32s acf[9];
        std::vector<double> r(9);
        for (int k = 0; k < 9; ++k) {
            Kvo64s sum = 0;
            for (int i = k; i < 160; ++i) sum += s[i] * s[i - k];
            acf[k] = static_cast<Kvo32s>(sum * 2);
            r[k] = static_cast<double>(sum);
        }
        Kvo16s rc[8];
        ASSERT_EQ(kvosSchur_GSMFR_32s16s(acf, rc, 8), kvoOk);
        const auto k = levinson(r, 8);
        for (int i = 0; i < 8; ++i) EXPECT_NEAR(rc[i] / 32768.0, k[i], 0.02) << i;
        // Lower orders (general loop, order 4 form) give the first coefficients.
        for (int order = 1; order < 8; ++order) {
            Kvo16s lo[8];
            ASSERT_EQ(kvosSchur_GSMFR_32s16s(acf, lo, order), kvoOk);
            EXPECT_TRUE(std::equal(lo, lo + order, rc)) << order;
        }
    }
}

TEST(GsmFrSchur, EdgeStages) {
    Kvo16s rc[8];
    std::fill(rc, rc + 8, Kvo16s{99});
    const Kvo32s zero[9] = {};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(zero, rc, 8), kvoOk);
    for (Kvo16s v : rc) EXPECT_EQ(v, 0);
    // |P[1]| = P[0] twice: quotients -32767, -32767; the first stage leaves
    // P[0] = P[1] = 16384 - 16383 = 1, the second P[0] = 1 - 1 = 0 and
    // P[1] = 0.  The third quotient has a zero numerator and is 0 (not the
    // 32767 of equal terms), and the recursion then stops as unstable.
    const Kvo32s equal[9] = {1 << 20, 1 << 20, 1 << 20, 1 << 20};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(equal, rc, 8), kvoOk);
    EXPECT_EQ(rc[0], -32767);
    EXPECT_EQ(rc[1], -32767);
    for (int i = 2; i < 8; ++i) EXPECT_EQ(rc[i], 0) << i;
    const Kvo32s negative[3] = {1000, -1000, 0};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(negative, rc, 2), kvoOk);
    EXPECT_EQ(rc[0], 32767);
    // Unstable second stage: |P[1]| above P[0] zeroes from there on.
    std::fill(rc, rc + 8, Kvo16s{99});
    const Kvo32s unstable[9] = {1 << 24, 1 << 23, -(1 << 24) + 1, 5, 5, 5, 5, 5, 5};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(unstable, rc, 8), kvoOk);
    EXPECT_EQ(rc[0], -16384);  // 0.5 exactly
    // Stage 2: P0 = 16384 + mult_r(8192, -16384) = 12288 and
    // P1 = -16384 + mult_r(-16384, 8192) = -20480, so |P1| > P0.
    for (int i = 1; i < 8; ++i) EXPECT_EQ(rc[i], 0) << i;
    // A scale of the input that differs only below the kept 16 bits.
    const Kvo32s a[3] = {0x40000000, 0x20000000, 0}, b[3] = {0x4000ffff, 0x2000ffff, 0xffff};
    Kvo16s ra[2], rb[2];
    kvosSchur_GSMFR_32s16s(a, ra, 2);
    kvosSchur_GSMFR_32s16s(b, rb, 2);
    EXPECT_EQ(ra[0], rb[0]);
    EXPECT_EQ(ra[1], rb[1]);
}

// ---- LTP lag search ------------------------------------------------------
void lagModel(const Kvo16s* x, const Kvo16s* y, int len, int maxLag, Kvo32s& mx, Kvo32s& lag) {
    mx = 0;
    lag = maxLag;
    for (int k = 0; k <= maxLag; ++k) {  // ascending: ties go to the later (larger) lag
        Kvo64s s = 0;
        for (int i = 0; i < len; ++i) s += Kvo64s{x[i]} * y[i + k];
        const Kvo32s c = static_cast<Kvo32s>(std::clamp<Kvo64s>(s, INT32_MIN, INT32_MAX));
        if (c > mx || (c == mx && c > 0)) {
            mx = c;
            lag = k;
        }
    }
}

TEST(GsmFrLagSearch, MatchesInt64ModelOnRandomAndExtremeData) {
    std::mt19937 rng(4242);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int len = trial % 3 == 0 ? 40 : 1 + static_cast<int>(rng() % 70);
        const int maxLag = static_cast<int>(rng() % 100);
        const int amp = trial % 5 == 0 ? 32768 : (trial % 5 == 1 ? 3 : 600);
        std::uniform_int_distribution<int> d(-amp, amp - 1);
        std::vector<Kvo16s> x(len), y(len + maxLag);
        for (auto& v : x) v = static_cast<Kvo16s>(d(rng));
        for (auto& v : y) v = static_cast<Kvo16s>(trial % 7 == 0 ? -32768 : d(rng));
        Kvo32s m1, l1, m2, l2, m3, l3;
        lagModel(x.data(), y.data(), len, maxLag, m1, l1);
        ASSERT_EQ(kvosCrossCorrLagMax_16s(x.data(), y.data(), len, maxLag, &m2, &l2), kvoOk);
        kvo::gsmfr::crossCorrLagMaxScalar(x.data(), y.data(), len, maxLag, &m3, &l3);
        EXPECT_EQ(m2, m1);
        EXPECT_EQ(l2, l1);
        EXPECT_EQ(m3, m1);
        EXPECT_EQ(l3, l1);
    }
}

TEST(GsmFrLagSearch, TiesNegativesAndSingleLag) {
    // A periodic target: equal maxima at every period; the largest lag wins.
    std::vector<Kvo16s> x(40), y(120);
    for (int i = 0; i < 40; ++i) x[i] = static_cast<Kvo16s>(i % 8 == 0 ? 1000 : 0);
    for (int i = 0; i < 120; ++i) y[i] = static_cast<Kvo16s>(i % 8 == 3 ? 500 : 0);
    Kvo32s mx, lag;
    ASSERT_EQ(kvosCrossCorrLagMax_16s(x.data(), y.data(), 40, 80, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, 5 * 1000 * 500);
    EXPECT_EQ(lag, 75);
    // Nothing positive: max 0 at maxLag.
    for (auto& v : y) v = static_cast<Kvo16s>(v ? -500 : 0);
    ASSERT_EQ(kvosCrossCorrLagMax_16s(x.data(), y.data(), 40, 80, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, 0);
    EXPECT_EQ(lag, 80);
    // maxLag 0 reads exactly len samples of pSrc2.
    std::vector<Kvo16s> one(40, 2);
    ASSERT_EQ(kvosCrossCorrLagMax_16s(one.data(), one.data(), 40, 0, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, 160);
    EXPECT_EQ(lag, 0);
    // Sums beyond 32 bits saturate.
    std::vector<Kvo16s> big(40, -32768);
    ASSERT_EQ(kvosCrossCorrLagMax_16s(big.data(), big.data(), 40, 0, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, INT32_MAX);
}

// ---- weighting filter ----------------------------------------------------
TEST(GsmFrWeighting, ElevenTapModelAndScalarTwin) {
    static const int H[11] = {-134, -374, 0, 2054, 5741, 8192, 5741, 2054, 0, -374, -134};
    std::mt19937 rng(8);
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        const int len = trial < 20 ? 40 : 1 + static_cast<int>(rng() % 60);
        const int amp = trial % 3 == 0 ? 32768 : 5000;
        std::uniform_int_distribution<int> d(-amp, amp - 1);
        std::vector<Kvo16s> buf(len + 10);
        for (auto& v : buf)
            v = static_cast<Kvo16s>(trial % 4 == 1 ? (d(rng) > 0 ? 32767 : -32768) : d(rng));
        std::vector<Kvo16s> y(len), z(len);
        ASSERT_EQ(kvosWeightingFilter_GSMFR_16s(buf.data() + 5, y.data(), len), kvoOk);
        kvo::gsmfr::weightingScalar(buf.data() + 5, z.data(), len);
        EXPECT_EQ(0, std::memcmp(y.data(), z.data(), len * sizeof(Kvo16s)));
        for (int i = 0; i < len; ++i) {
            Kvo64s s = 4096;
            for (int t = 0; t < 11; ++t) s += Kvo64s{H[t]} * buf[i + t];
            ASSERT_EQ(y[i], std::clamp<Kvo64s>(s >> 13, -32768, 32767)) << i;
        }
    }
    // A unit impulse gives back the taps, divided by 2^13 with rounding.
    Kvo16s imp[11] = {0, 0, 0, 0, 0, 8192, 0, 0, 0, 0, 0}, out[1];
    ASSERT_EQ(kvosWeightingFilter_GSMFR_16s(imp + 5, out, 1), kvoOk);
    EXPECT_EQ(out[0], 8192);
}

// ---- APCM inverse quantisation ---------------------------------------------
TEST(GsmFrApcm, EqualsTheStandardsFormOverEveryCodeMantissaAndExponent) {
    // The standard's form: temp = mult_r(FAC, (2c - 7) << 12); then add
    // 2^(e-1) and shift right by e.
    static const Kvo16s kFac[8] = {18431, 20479, 22527, 24575, 26623, 28671, 30719, 32767};
    Kvo16s codes[13];
    for (int mant = -1; mant < 8; ++mant) {
        const Kvo16s m = mant < 0 ? Kvo16s{-32768} : kFac[mant];
        for (Kvo16s e = 0; e <= 10; ++e)
            for (int c0 = 0; c0 < 8; ++c0) {
                for (int i = 0; i < 13; ++i) codes[i] = static_cast<Kvo16s>((c0 + i) % 8);
                Kvo16s out[13];
                ASSERT_EQ(kvosRPEQuantDecode_GSMFR_16s(codes, m, e, out), kvoOk);
                for (int i = 0; i < 13; ++i) {
                    const int t = (m * ((2 * codes[i] - 7) * 4096) + 16384) >> 15;
                    const int want = (t + (e ? 1 << (e - 1) : 0)) >> e;
                    ASSERT_EQ(out[i], want) << "mant " << mant << " e " << e << " c " << codes[i];
                }
            }
    }
    // Exponents from 16 on leave nothing.
    Kvo16s out[13];
    ASSERT_EQ(kvosRPEQuantDecode_GSMFR_16s(codes, 32767, 16, out), kvoOk);
    for (Kvo16s v : out) EXPECT_EQ(v, 0);
    ASSERT_EQ(kvosRPEQuantDecode_GSMFR_16s(codes, 32767, 32767, out), kvoOk);
    for (Kvo16s v : out) EXPECT_EQ(v, 0);
}

}  // namespace
