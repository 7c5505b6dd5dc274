// AMR-WB algebraic codebook: the search's index words against the decoder, the 2-track
// search against an exhaustive double search, known pulse sets the 4-track searches must find,
// the filtered code against an integer model of the summed responses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "kvosc.h"
#include "support/badargs.h"
#include "support/signals.h"

namespace {

using kvosc::test::BadArgs;

struct ModeCase {
    KvoSpeechRate mode;
    int pulses;
    int perTrack[4];
    int words;
};

const ModeCase kModes[] = {
    {5, 2, {0, 0, 0, 0}, 1},   {25, 2, {0, 0, 0, 0}, 1},  {9, 4, {1, 1, 1, 1}, 4},
    {26, 4, {1, 1, 1, 1}, 4},  {27, 6, {2, 2, 1, 1}, 4},  {13, 8, {2, 2, 2, 2}, 4},
    {28, 8, {2, 2, 2, 2}, 4},  {15, 10, {3, 3, 2, 2}, 4}, {29, 10, {3, 3, 2, 2}, 4},
    {16, 12, {3, 3, 3, 3}, 4}, {30, 12, {3, 3, 3, 3}, 4}, {18, 16, {4, 4, 4, 4}, 8},
    {31, 16, {4, 4, 4, 4}, 8}, {19, 18, {5, 5, 4, 4}, 8}, {32, 18, {5, 5, 4, 4}, 8},
    {20, 24, {6, 6, 6, 6}, 8}, {21, 24, {6, 6, 6, 6}, 8}, {22, 24, {6, 6, 6, 6}, 8},
};

// A short decaying impulse response in Q12 with a dominant first tap.
std::vector<Kvo16s> response(uint32_t seed, double first) {
    std::mt19937 g(seed);
    std::uniform_real_distribution<double> u(-0.25, 0.25);
    std::vector<Kvo16s> h(64);
    double a = first;
    for (int i = 0; i < 64; ++i) {
        h[i] = static_cast<Kvo16s>(std::lround(4096 * (i == 0 ? a : a * u(g))));
        a *= 0.8;
    }
    return h;
}

// Sum of the shifted, signed responses of a code vector's pulses, the model of the filtered code.
std::vector<int> filteredModel(const Kvo16s* code, const std::vector<Kvo16s>& h, int shift) {
    std::vector<int> v(64, 0);
    for (int p = 0; p < 64; ++p) {
        const int k = code[p] / (512 >> shift);
        for (int n = p; n < 64; ++n) v[n] += k * (h[n - p] >> shift);
    }
    for (int& x : v) x = (x + 4) >> 3;
    return v;
}

// Search output: decode(indices) must give the same pulses, the pulse count must be the mode's,
// and the filtered code must be the summed responses.
void checkSearchConsistency(const ModeCase& m, const std::vector<Kvo16s>& x,
                            const std::vector<Kvo16s>& cn, const std::vector<Kvo16s>& h,
                            bool checkFiltered) {
    Kvo16s code[64], y[64], W[8], dec[64];
    ASSERT_EQ(
        kvosAlgebraicCodebookSearch_AMRWB_16s(x.data(), cn.data(), h.data(), code, y, m.mode, W),
        kvoOk);
    ASSERT_EQ(kvosAlgebraicCodebookDecode_AMRWB_16s(W, dec, m.mode), kvoOk);
    int amp = 0;
    for (int n = 0; n < 64; ++n)
        if (code[n] != 0) amp = amp == 0 ? std::abs(code[n]) : std::min(amp, std::abs(code[n]));
    ASSERT_TRUE(amp == 512 || amp == 256) << amp;
    const int shift = amp == 512 ? 0 : 1;
    int total = 0;
    for (int n = 0; n < 64; ++n) {
        ASSERT_EQ(dec[n], code[n] << shift) << "position " << n;
        total += std::abs(code[n]);
    }
    EXPECT_EQ(total, m.pulses * amp);
    if (!checkFiltered) return;  // coinciding strong responses saturate in the search's order
    const std::vector<int> want = filteredModel(code, h, shift);
    for (int n = 0; n < 64; ++n) ASSERT_EQ(y[n], want[n]) << "filtered " << n;
}

TEST(AmrwbCodebook, SearchAgreesWithDecoderAndFilteredModel) {
    for (const ModeCase& m : kModes) {
        for (uint32_t seed : {1u, 2u, 9u, 10u}) {
            SCOPED_TRACE(::testing::Message() << "mode " << m.mode << " seed " << seed);
            const std::vector<Kvo16s> x = kvosc::test::speech_like(64, seed, 4000, 12800);
            const std::vector<Kvo16s> cn = kvosc::test::speech_like(64, seed + 100, 3000, 12800);
            // Seeds above 8 give a strong response: the search halves it at 12 and more pulses.
            const std::vector<Kvo16s> h = response(seed, seed > 8 ? 5.0 : 1.0);
            checkSearchConsistency(m, x, cn, h, seed <= 8);
        }
        const std::vector<Kvo16s> zero(64, 0), h = response(3, 1.0);
        checkSearchConsistency(m, zero, zero, h, true);
    }
}

// The 2-track search is exhaustive: with a zero residual the signs follow the backward-filtered
// target, and the chosen pair must maximise (|d_i| + |d_j|)^2 / |s_i h_i + s_j h_j|^2 in a
// double-precision evaluation (up to the 16-bit rounding of the fixed-point criterion).
TEST(AmrwbCodebook, TwoTrackSearchIsOptimalForItsCriterion) {
    for (uint32_t seed = 1; seed <= 15; ++seed) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        const std::vector<Kvo16s> x = kvosc::test::speech_like(64, seed, 6000, 12800);
        const std::vector<Kvo16s> h = response(seed + 50, 1.0);
        const std::vector<Kvo16s> cn(64, 0);
        double d[64];
        for (int p = 0; p < 64; ++p) {
            d[p] = 0;
            for (int n = p; n < 64; ++n) d[p] += double(x[n]) * h[n - p];
        }
        auto crit = [&](int i, int j) {
            double num = std::fabs(d[i]) + std::fabs(d[j]);
            double den = 0;
            for (int n = 0; n < 64; ++n) {
                double v = 0;
                if (n >= i) v += (d[i] < 0 ? -1 : 1) * double(h[n - i]);
                if (n >= j) v += (d[j] < 0 ? -1 : 1) * double(h[n - j]);
                den += v * v;
            }
            return num * num / den;
        };
        double best = 0;
        for (int i = 0; i < 64; i += 2)
            for (int j = 1; j < 64; j += 2) best = std::max(best, crit(i, j));
        Kvo16s code[64], y[64], W[1];
        ASSERT_EQ(
            kvosAlgebraicCodebookSearch_AMRWB_16s(x.data(), cn.data(), h.data(), code, y, 5, W),
            kvoOk);
        int pi = -1, pj = -1;
        for (int n = 0; n < 64; ++n)
            if (code[n] != 0) (n & 1 ? pj : pi) = n;
        ASSERT_GE(pi, 0);
        ASSERT_GE(pj, 0);
        EXPECT_GE(crit(pi, pj), best * 0.995);
        EXPECT_EQ(code[pi] < 0, d[pi] < 0);
        EXPECT_EQ(code[pj] < 0, d[pj] < 0);
    }
}

// A target that is the filtered form of a known pulse set (the residual equal to the code) is
// the unique maximum of the criterion: every design must find those pulses.
TEST(AmrwbCodebook, SearchRecoversAKnownPulseSet) {
    std::mt19937 g(7);
    for (const ModeCase& m : kModes) {
        for (int trial = 0; trial < 3; ++trial) {
            SCOPED_TRACE(::testing::Message() << "mode " << m.mode << " trial " << trial);
            std::vector<int> c(64, 0);
            if (m.pulses == 2) {
                c[2 * (g() % 32)] = (g() & 1) ? 1 : -1;
                c[2 * (g() % 32) + 1] = (g() & 1) ? 1 : -1;
            } else {
                for (int t = 0; t < 4; ++t) {
                    // Distinct places, so that the code has exactly the mode's pulses.
                    int places[16];
                    for (int p = 0; p < 16; ++p) places[p] = p;
                    std::shuffle(places, places + 16, g);
                    for (int k = 0; k < m.perTrack[t]; ++k)
                        c[4 * places[k] + t] = (g() & 1) ? 1 : -1;
                }
            }
            std::vector<Kvo16s> h(64, 0);
            h[0] = 4096, h[1] = 1200, h[2] = -300, h[3] = 100;
            std::vector<Kvo16s> x(64), cn(64);
            for (int n = 0; n < 64; ++n) {
                int v = 0;
                for (int p = 0; p <= n; ++p) v += c[p] * h[n - p];
                x[n] = static_cast<Kvo16s>(v / 4);
                cn[n] = static_cast<Kvo16s>(c[n] * 1000);
            }
            Kvo16s code[64], y[64], W[8];
            ASSERT_EQ(kvosAlgebraicCodebookSearch_AMRWB_16s(x.data(), cn.data(), h.data(), code, y,
                                                            m.mode, W),
                      kvoOk);
            for (int n = 0; n < 64; ++n) EXPECT_EQ(code[n], 512 * c[n]) << "position " << n;
        }
    }
}

TEST(AmrwbCodebook, ArgumentChecks) {
    const std::vector<Kvo16s> h = response(1, 1.0), x(64, 100);
    Kvo16s code[64], y[64], W[8];
    std::fill(code, code + 64, Kvo16s{77});
    EXPECT_EQ(kvosAlgebraicCodebookSearch_AMRWB_16s(x.data(), nullptr, h.data(), code, y, 0, W),
              kvoErrNullPtr);
    for (KvoSpeechRate bad : {0, 4, 6, 10, 12, 14, 17, 23, 24, 33, -1})
        EXPECT_EQ(
            kvosAlgebraicCodebookSearch_AMRWB_16s(x.data(), x.data(), h.data(), code, y, bad, W),
            kvoErrRange);
    EXPECT_EQ(code[0], 77);
    BadArgs t("kvosAlgebraicCodebookDecode_AMRWB_16s");
    auto w = t.in<Kvo16s>("pSrcIndices", 8);
    auto c = t.out<Kvo16s>("pDstCode", 64);
    auto mode = t.value<KvoSpeechRate>(
        "mode", 18, {{11, kvoErrRange}, {4, kvoErrRange}, {17, kvoErrRange}, {33, kvoErrRange}});
    t.run([&](const BadArgs::Call& a) {
        return kvosAlgebraicCodebookDecode_AMRWB_16s(a(w), a(c), a(mode));
    });
}

}  // namespace
