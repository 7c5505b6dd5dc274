// Levinson-Durbin recursions: G.729 by a worked value (the coders' vectors prove the
// order-10 recursion bit for bit; order limits in args_test), G.723.1 against a word-length
// double model, and its breakdown and sine-detector paths.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kvosc.h"
#include "lpc_model.h"

namespace {

TEST(LevinsonG729, WorkedFirstOrder) {
    // R = [2^30, 2^29]: K = -0.5, alpha = 0.75 * 0.5 = 0.375 -> 0x60000000 >> 1.
    const Kvo32s R[2] = {0x40000000, 0x20000000};
    Kvo16s lpc[2], rc[1], res;
    ASSERT_EQ(kvoOk, kvosLevinsonDurbin_G729_32s16s(R, 1, lpc, rc, &res));
    EXPECT_EQ(4096, lpc[0]);
    EXPECT_EQ(-2048, lpc[1]);
    EXPECT_NEAR(-16384, rc[0], 1);
    EXPECT_NEAR(0x3000, res, 1);
}

// The G.723.1 recursion with its word lengths in double arithmetic: the reflection
// coefficient truncated to Q15, coefficients rounded to Q13 and the error to an integer at
// every stage; a stage with |numerator| >= error stops.
struct G723Model {
    double a[10] = {}, err = 0, k1 = 0;
};

G723Model g723Model(const Kvo16s* R) {
    G723Model m;
    m.err = R[0];
    auto rnd = [](double x) { return std::floor(x + 0.5); };
    for (int i = 0; i < 10; ++i) {
        double num = R[i + 1];
        for (int j = 0; j < i; ++j) num -= m.a[j] / 8192.0 * R[i - j];
        if (std::fabs(num) >= m.err) break;
        const double k = std::floor(std::fabs(num) / m.err * 32768.0) * (num >= 0 ? -1 : 1);
        if (i == 1) m.k1 = k;
        double prev[10];
        std::copy(m.a, m.a + i, prev);
        m.a[i] = rnd(-k / 4.0);
        for (int j = 0; j < i; ++j) m.a[j] = rnd(prev[j] + k * prev[i - 1 - j] / 32768.0);
        m.err = rnd(m.err - std::fabs(num) * std::fabs(k) / 32768.0);
    }
    return m;
}

TEST(LevinsonG723, MatchesWordLengthModel) {
    std::mt19937 g(4242);
    int tried = 0;
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 4242 trial " << trial);
        std::vector<double> a;
        const auto r = lpcmodel::stepUp(lpcmodel::randomRC(g, 10, 0.7), &a);
        bool fits = true;  // Q13 coefficients
        for (double x : a) fits = fits && std::fabs(x) < 3.5;
        if (!fits) continue;
        ++tried;
        const double scale = 16000 + double(g() % 16000);
        Kvo16s R[11], lpc[10], res, sine = 0;
        for (int i = 0; i <= 10; ++i) R[i] = Kvo16s(std::lround(r[size_t(i)] * scale));
        const G723Model m = g723Model(R);
        ASSERT_EQ(kvoOk, kvosLevinsonDurbin_G723_16s(R, &sine, &res, lpc));
        for (int i = 0; i < 10; ++i) EXPECT_NEAR(m.a[i], lpc[i], 4) << i;
        EXPECT_NEAR(m.err, res, 2);
        EXPECT_EQ(m.k1 > 31130 ? 1 : 0, sine);
    }
    EXPECT_GT(tried, 100);
}

TEST(LevinsonG723, BreakdownsAndSineDetector) {
    // A stage with |numerator| >= error stops the recursion: later coefficients zero, bit 1
    // shifted into the 16-bit detector history.  White input: bit 0.
    struct Row {
        Kvo16s R[3], sineIn, sineOut, lpc0, res;
    } rows[] = {
        {{1000, 1000, 0}, 0x0002, 0x0005, 0, 1000},         // stage 0 breaks
        {{0, 0, 0}, 0, 1, 0, 0},                            // zero energy
        {{16384, 8192, -16384}, 0, 1, 4096, 12288},         // stage 1 breaks, k0 = -0.5 kept
        {{20000, 0, 0}, Kvo16s(0x8001), 0x0002, 0, 20000},  // white
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.R[0]);
        Kvo16s R[11] = {r.R[0], r.R[1], r.R[2]}, lpc[10], res = -1, sine = r.sineIn;
        ASSERT_EQ(kvoOk, kvosLevinsonDurbin_G723_16s(R, &sine, &res, lpc));
        EXPECT_EQ(r.lpc0, lpc[0]);
        for (int i = 1; i < 10; ++i) EXPECT_EQ(0, lpc[i]);
        EXPECT_NEAR(r.res, res, 1);
        EXPECT_EQ(r.sineOut, sine);
    }
    // A tone with a little noise: k2 close to 1 (or a breakdown), bit 1.
    Kvo16s R[11], lpc[10], res, sine = 3;
    for (int i = 0; i <= 10; ++i)
        R[i] = Kvo16s(std::lround(16000 * (std::cos(0.9 * i) + (i ? 0 : 0.002))));
    ASSERT_EQ(kvoOk, kvosLevinsonDurbin_G723_16s(R, &sine, &res, lpc));
    EXPECT_EQ(7, sine);
}

}  // namespace
