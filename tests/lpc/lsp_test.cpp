// G.729 and GSM AMR conversions between LP coefficients, LSPs and LSFs,
// against double models: polynomial roots found by a fine scan, cos and acos.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "lpc_model.h"
#include "numeric/numeric_tables.h"

namespace {

const double kPi = std::acos(-1.0);

// Random stable order-10 filter in Q12 whose coefficients fit the word.
std::vector<Kvo16s> randomLpc(std::mt19937& g, double kmax, std::vector<double>* exact = nullptr) {
    for (;;) {
        auto a = lpcmodel::stepUp(lpcmodel::randomRC(g, 10, kmax));
        bool fits = true;
        for (double x : a) fits = fits && std::fabs(x) < 7.9;
        if (!fits) continue;
        std::vector<Kvo16s> q(11);
        for (int i = 0; i <= 10; ++i) q[size_t(i)] = Kvo16s(std::lround(a[size_t(i)] * 4096));
        if (exact) {
            exact->assign(11, 0.0);
            for (int i = 0; i <= 10; ++i) (*exact)[size_t(i)] = q[size_t(i)] / 4096.0;
        }
        return q;
    }
}

// The search grid runs from cos = 32760 to -32760: lines beyond its ends are
// out of its reach.  Lines closer than a few units are a degenerate case too:
// a polynomial value of zero at a found root makes the walk find it again.
bool outsideGrid(const std::vector<double>& w) {
    if (w.size() != 10) return true;
    for (size_t i = 1; i < w.size(); ++i)
        if (32768 * (std::cos(w[i - 1]) - std::cos(w[i])) < 60) return true;
    const double edge = std::acos(32760.0 / 32768.0);
    return w.front() < 1.5 * edge || w.back() > kPi - 1.5 * edge;
}

// The root search of the G.729 coders in double arithmetic: the Chebyshev
// series of the two order-5 polynomials, walked over the same grid one point at
// a time, bisected, then linearly interpolated.  Returns false if fewer than
// ten roots are found.  tol[i] is the error that two units of the Q14 values at
// the ends of the final interval cause in the interpolated root, plus the chord
// error of a neighbouring interval.  Each walk after a root restarts from
// anchor[i] (the root under test), so that one unit of difference in a root
// does not shift every later bisection.
bool searchModel(const Kvo16s* q, const Kvo16s* grid, int gridSize, int bisections,
                 const Kvo16s* anchor, double* lsp, double* tol) {
    double f[2][6];
    f[0][0] = f[1][0] = 1.0;
    for (int i = 0; i < 5; ++i) {
        const double x = q[i + 1] / 4096.0, y = q[10 - i] / 4096.0;
        f[0][i + 1] = x + y - f[0][i];
        f[1][i + 1] = x - y + f[1][i];
    }
    // Values on the 16-bit scales of the search: x in Q15, y floored to Q14.
    auto cheb = [&](int p, int xi) {
        const double x = xi / 32768.0;
        double b2 = 1.0, b1 = 2 * x + f[p][1];
        for (int i = 2; i < 5; ++i) {
            const double b0 = 2 * x * b1 - b2 + f[p][i];
            b2 = b1;
            b1 = b0;
        }
        return std::clamp(std::floor((x * b1 - b2 + f[p][5] / 2) * 16384), -32768.0, 32767.0);
    };
    int nf = 0, p = 0;
    int xlow = grid[0];
    double ylow = cheb(p, xlow);
    for (int j = 1; j <= gridSize && nf < 10; ++j) {
        int xhigh = xlow;
        double yhigh = ylow;
        xlow = grid[j];
        ylow = cheb(p, xlow);
        if (ylow * yhigh > 0) continue;
        for (int b = 0; b < bisections; ++b) {
            const int xm = (xlow >> 1) + (xhigh >> 1);
            const double ym = cheb(p, xm);
            if (ylow * ym <= 0) {
                xhigh = xm;
                yhigh = ym;
            } else {
                xlow = xm;
                ylow = ym;
            }
        }
        const double x = yhigh == ylow ? xlow : xlow - ylow * (xhigh - xlow) / (yhigh - ylow);
        // Two units of y at the ends move the root by 2 dx / dy; a different
        // but equally valid bisection path moves it by the chord error, well
        // inside half the interval.
        const double dx = std::fabs(xhigh - xlow);
        tol[nf] = 6 + 2.0 * dx / std::max(1.0, std::fabs(yhigh - ylow) - 4) + 0.5 * dx;
        lsp[nf++] = x;
        p ^= 1;
        xlow = anchor[nf - 1];
        ylow = cheb(p, xlow);
    }
    return nf == 10;
}

struct SearchCase {
    const char* name;
    KvoStatus (*fn)(const Kvo16s*, const Kvo16s*, Kvo16s*);
    const Kvo16s* grid;
    int gridSize;
    int bisections;
    double tolExact;  // Q15 units from the true roots
};

class LpcToLsp : public ::testing::TestWithParam<SearchCase> {};

TEST_P(LpcToLsp, FindsTheRootsOfStableFilters) {
    const SearchCase c = GetParam();
    std::mt19937 g(2024);
    const Kvo16s prev[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    int found = 0;
    for (int trial = 0; trial < 250; ++trial) {
        SCOPED_TRACE(testing::Message() << c.name << " seed 2024 trial " << trial);
        std::vector<double> a;
        const auto q = randomLpc(g, 0.9, &a);
        const auto w = lpcmodel::lsf(a);
        if (outsideGrid(w)) continue;
        Kvo16s lsp[10];
        ASSERT_EQ(kvoOk, c.fn(q.data(), prev, lsp));
        if (std::memcmp(lsp, prev, sizeof lsp) == 0) continue;  // roots too close for the grid
        ++found;
        double model[10], tol[10];
        ASSERT_TRUE(searchModel(q.data(), c.grid, c.gridSize, c.bisections, lsp, model, tol));
        for (int i = 0; i < 10; ++i) {
            EXPECT_NEAR(model[i], lsp[i], tol[i]) << i;
            EXPECT_NEAR(32768 * std::cos(w[size_t(i)]), lsp[i], c.tolExact) << i;
        }
        for (int i = 1; i < 10; ++i) EXPECT_LT(lsp[i], lsp[i - 1]) << "order at " << i;
    }
    EXPECT_GT(found, 100);
}

INSTANTIATE_TEST_SUITE_P(Grids, LpcToLsp,
                         ::testing::Values(SearchCase{"G729", kvosLPCToLSP_G729_16s,
                                                      kvo::tab::w_eval_60, 60, 4, 150},
                                           SearchCase{"G729A", kvosLPCToLSP_G729A_16s,
                                                      kvo::tab::w_eval_50, 50, 2, 600}),
                         [](const ::testing::TestParamInfo<SearchCase>& p) { return std::string(p.param.name); });

TEST(LpcToLsp, FlatFilterGivesEquallySpacedLines) {
    // A(z) = 1: the lines lie at k pi / 11.
    const Kvo16s a[11] = {4096, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const Kvo16s prev[10] = {};
    Kvo16s lsp[10], lspA[10];
    ASSERT_EQ(kvoOk, kvosLPCToLSP_G729_16s(a, prev, lsp));
    ASSERT_EQ(kvoOk, kvosLPCToLSP_G729A_16s(a, prev, lspA));
    for (int k = 1; k <= 10; ++k) {
        EXPECT_NEAR(32768 * std::cos(k * kPi / 11), lsp[k - 1], 8) << k;
        EXPECT_NEAR(32768 * std::cos(k * kPi / 11), lspA[k - 1], 40) << k;
    }
}

TEST(LpcToLsp, TooFewRootsKeepsThePreviousVector) {
    // Zeros outside the unit circle: the polynomials have too few sign changes.
    const Kvo16s prev[10] = {31000, 28000, 22000, 15000, 8000, 0, -8000, -15000, -22000, -30000};
    const Kvo16s unstable[][11] = {
        {4096, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767},
        {4096, -16384, 24576, -16384, 4096, 0, 0, 0, 0, 0, 8000},
        {4096, 12000, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    };
    for (const auto& a : unstable) {
        Kvo16s out[10], outA[10];
        ASSERT_EQ(kvoOk, kvosLPCToLSP_G729_16s(a, prev, out));
        ASSERT_EQ(kvoOk, kvosLPCToLSP_G729A_16s(a, prev, outA));
        EXPECT_EQ(0, std::memcmp(out, prev, sizeof out));
        EXPECT_EQ(0, std::memcmp(outA, prev, sizeof outA));
    }
}

TEST(LpcToLsp, OverflowingCoefficientsUseTheCoarserPolynomials) {
    // Coefficients near the Q12 limit overflow the Q11 sum polynomial; the
    // conversion still finds the roots of this (stable) filter.
    std::mt19937 g(5);
    int checked = 0;
    for (int trial = 0; trial < 4000 && checked < 20; ++trial) {
        std::vector<double> a;
        const auto q = randomLpc(g, 0.97, &a);
        // f1 in Q11: any partial sum leaving 16 bits.
        int f1 = 2048, f2 = 2048;
        bool ovf = false;
        for (int i = 0; i < 5; ++i) {
            f1 = ((q[size_t(i) + 1] + q[size_t(10 - i)]) >> 1) - f1;
            f2 = ((q[size_t(i) + 1] - q[size_t(10 - i)]) >> 1) + f2;
            ovf = ovf || f1 > 32767 || f1 < -32768 || f2 > 32767 || f2 < -32768;
            f1 = std::clamp(f1, -32768, 32767);
            f2 = std::clamp(f2, -32768, 32767);
        }
        if (!ovf) continue;
        const Kvo16s prev[10] = {};
        Kvo16s lsp[10];
        ASSERT_EQ(kvoOk, kvosLPCToLSP_G729_16s(q.data(), prev, lsp));
        if (std::memcmp(lsp, prev, sizeof lsp) == 0) continue;
        ++checked;
        double model[10], tol[10];
        ASSERT_TRUE(searchModel(q.data(), kvo::tab::w_eval_60, 60, 4, lsp, model, tol));
        // The Q10 polynomials lose one bit of the Q14 values.
        for (int i = 0; i < 10; ++i) EXPECT_NEAR(model[i], lsp[i], 2 * tol[i]) << i;
    }
    EXPECT_GT(checked, 3);
}

// ---- LSP to LPC ---------------------------------------------------------------

// Largest coefficient of the two product polynomials of the lines, with
// their (1 +- z^-1) factors, in double.
double productPeak(const Kvo16s* lsp) {
    double peak = 0;
    for (int h = 0; h < 2; ++h) {
        std::vector<double> f{1.0};
        for (int i = h; i < 10; i += 2) {
            std::vector<double> y(f.size() + 2, 0.0);
            const double l = lsp[i] / 32768.0;
            for (size_t j = 0; j < f.size(); ++j) {
                y[j] += f[j];
                y[j + 1] -= 2 * l * f[j];
                y[j + 2] += f[j];
            }
            f = y;
        }
        for (double v : f) peak = std::max(peak, std::fabs(v));
        for (size_t j = f.size() - 1; j > 0; --j) f[j] += (h == 0 ? 1 : -1) * f[j - 1];
        for (double v : f) peak = std::max(peak, std::fabs(v));
    }
    return peak;
}

TEST(LspToLpc, RoundTripRestoresTheFilter) {
    std::mt19937 g(31337);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 31337 trial " << trial);
        std::vector<double> a;
        const auto q = randomLpc(g, 0.9, &a);
        if (outsideGrid(lpcmodel::lsf(a))) continue;
        const Kvo16s prev[10] = {};
        Kvo16s lsp[10], back[11];
        ASSERT_EQ(kvoOk, kvosLPCToLSP_G729_16s(q.data(), prev, lsp));
        if (std::memcmp(lsp, prev, sizeof lsp) == 0) continue;
        // The Q24 product polynomials hold coefficients below 128 only.
        if (productPeak(lsp) >= 127) continue;
        ASSERT_EQ(kvoOk, kvosLSPToLPC_G729_16s(lsp, back));
        EXPECT_EQ(4096, back[0]);
        for (int i = 1; i <= 10; ++i) EXPECT_NEAR(q[size_t(i)], back[i], 24) << i;
    }
}

TEST(LspToLpc, AgreesWithTheDoubleProductOfLines) {
    std::mt19937 g(8);
    for (int trial = 0; trial < 300; ++trial) {
        // Ordered random lines, kept apart as a quantiser leaves them.
        std::vector<double> w(10);
        std::uniform_real_distribution<double> u(0.05, kPi - 0.05);
        for (auto& x : w) x = u(g);
        std::sort(w.begin(), w.end());
        bool spaced = true;
        for (size_t i = 1; i < 10; ++i) spaced = spaced && w[i] - w[i - 1] > 0.02;
        if (!spaced) continue;
        Kvo16s lsp[10];
        std::vector<double> wq(10);
        for (int i = 0; i < 10; ++i) {
            lsp[i] = Kvo16s(std::lround(32767 * std::cos(w[size_t(i)])));
            wq[size_t(i)] = std::acos(lsp[i] / 32768.0);
        }
        const auto a = lpcmodel::lpcFromLsf(wq);
        if (*std::max_element(a.begin(), a.end()) > 7.9 || *std::min_element(a.begin(), a.end()) < -7.9)
            continue;
        Kvo16s out[11];
        ASSERT_EQ(kvoOk, kvosLSPToLPC_G729_16s(lsp, out));
        EXPECT_EQ(4096, out[0]);
        for (int i = 1; i <= 10; ++i) EXPECT_NEAR(a[size_t(i)] * 4096, out[i], 2) << i;
    }
}

TEST(LspToLpc, EquallySpacedLinesGiveTheFlatFilter) {
    Kvo16s lsp[10], out[11];
    for (int k = 1; k <= 10; ++k) lsp[k - 1] = Kvo16s(std::lround(32768 * std::cos(k * kPi / 11)));
    ASSERT_EQ(kvoOk, kvosLSPToLPC_G729_16s(lsp, out));
    EXPECT_EQ(4096, out[0]);
    for (int i = 1; i <= 10; ++i) EXPECT_NEAR(0, out[i], 2) << i;
}

// ---- LSF <-> LSP ----------------------------------------------------------------

// Linear interpolation of the cosine between the nodes i pi / 64 (the
// table's own construction), in double.
double cosChord(double f) {  // f: normalised frequency in units of pi / 64
    const int i = int(std::floor(f));
    const double c0 = std::min(32767.0, 32768 * std::cos(kPi * i / 64));
    const double c1 = std::min(32767.0, 32768 * std::cos(kPi * (i + 1) / 64));
    return c0 + (c1 - c0) * (f - i);
}

TEST(LsfToLsp, G729RadiansFollowTheCosine) {
    // Whole radian range 0 .. pi in Q13, ten at a time.
    for (int base = 0; base < 25736; base += 10) {
        Kvo16s lsf[10], lsp[10];
        for (int i = 0; i < 10; ++i) lsf[i] = Kvo16s(std::min(base + i, 25735));
        ASSERT_EQ(kvoOk, kvosLSFToLSP_G729_16s(lsf, lsp));
        for (int i = 0; i < 10; ++i) {
            // The frequency is first truncated to Q15 of the normalised scale.
            const double f = std::floor(lsf[i] * 20861.0 / 32768.0) / 256.0;
            ASSERT_NEAR(cosChord(f), lsp[i], 2) << lsf[i];
            ASSERT_NEAR(32768 * std::cos(lsf[i] / 8192.0), lsp[i], 13) << lsf[i];
        }
    }
}

TEST(LsfToLsp, GsmAmrNormalisedFollowsTheCosine) {
    for (int base = 0; base < 16384; base += 10) {
        Kvo16s lsf[10], lsp[10];
        for (int i = 0; i < 10; ++i) lsf[i] = Kvo16s(std::min(base + i, 16383));
        ASSERT_EQ(kvoOk, kvosLSFToLSP_GSMAMR_16s(lsf, lsp));
        for (int i = 0; i < 10; ++i) {
            ASSERT_NEAR(cosChord(lsf[i] / 256.0), lsp[i], 2) << lsf[i];
            // Chord error of 64 intervals, 32768 (pi/64)^2 / 8 < 10, plus the
            // floor and the first node held at 32767.
            ASSERT_NEAR(32768 * std::cos(kPi * lsf[i] / 16384.0), lsp[i], 12) << lsf[i];
        }
    }
    // Beyond pi (no clamp of the index): the cosine continues symmetrically.
    Kvo16s lsf[10], lsp[10];
    for (int i = 0; i < 10; ++i) lsf[i] = Kvo16s(16384 + 1600 * i + 37);
    ASSERT_EQ(kvoOk, kvosLSFToLSP_GSMAMR_16s(lsf, lsp));
    for (int i = 0; i < 10; ++i) EXPECT_NEAR(32768 * std::cos(kPi * lsf[i] / 16384.0), lsp[i], 12) << i;
}

TEST(LsfToLsp, G729HoldsTheIndexAtTheTableEnd) {
    // Above pi the G.729 lookup stays on the last table interval.
    Kvo16s lsf[10], lsp[10];
    for (int i = 0; i < 10; ++i) lsf[i] = Kvo16s(26000 + 600 * i);
    ASSERT_EQ(kvoOk, kvosLSFToLSP_G729_16s(lsf, lsp));
    for (int i = 0; i < 10; ++i) {
        EXPECT_LE(lsp[i], -32700) << i;
        EXPECT_GE(lsp[i], -32768) << i;
    }
}

TEST(LsfToLsp, NegativeFrequencyStopsWithEarlierOutputsWritten) {
    for (auto fn : {kvosLSFToLSP_G729_16s, kvosLSFToLSP_GSMAMR_16s}) {
        Kvo16s lsf[10] = {100, 200, 300, -1, 500, 600, 700, 800, 900, 1000};
        Kvo16s lsp[10];
        for (auto& v : lsp) v = 0x2222;
        EXPECT_EQ(kvoErrNegativeFreq, fn(lsf, lsp));
        for (int i = 0; i < 3; ++i) EXPECT_NE(0x2222, lsp[i]) << i;
        for (int i = 3; i < 10; ++i) EXPECT_EQ(0x2222, lsp[i]) << i;
        lsf[3] = -32768;
        lsf[0] = -5;
        for (auto& v : lsp) v = 0x2222;
        EXPECT_EQ(kvoErrNegativeFreq, fn(lsf, lsp));
        for (Kvo16s v : lsp) EXPECT_EQ(0x2222, v);
    }
}

// Arc cosine interpolated linearly between the table nodes, in units of
// pi / 64: the first node at or above x from the top of the table.
double acosChord(int x) {
    int i = 63;
    auto node = [](int k) { return std::min(32767.0, 32768 * std::cos(kPi * k / 64)); };
    while (i > 0 && node(i) < x) --i;
    return i + (x - node(i)) / (node(i + 1) - node(i));
}

TEST(LspToLsf, RadiansAndNormalisedFollowTheArcCosine) {
    // Ordered vectors sweeping the whole range from +1 to -1.
    for (int start = 32767; start > -32768 + 10 * 60; start -= 97) {
        Kvo16s lsp[10], rad[10], nrm[10];
        for (int i = 0; i < 10; ++i) lsp[i] = Kvo16s(start - 60 * i);
        ASSERT_EQ(kvoOk, kvosLSPToLSF_G729_16s(lsp, rad));
        ASSERT_EQ(kvoOk, kvosLSPToLSF_Norm_G729_16s(lsp, nrm));
        for (int i = 0; i < 10; ++i) {
            const double f = acosChord(lsp[i]);  // units of pi / 64
            EXPECT_NEAR(f * 256, nrm[i], 2) << lsp[i];
            EXPECT_NEAR(f * kPi / 64 * 8192, rad[i], 3) << lsp[i];
            // Away from +-1, where acos is steep, the chord is close to acos.
            if (std::abs(lsp[i]) < 31000) {
                const double w = std::acos(lsp[i] / 32768.0);
                EXPECT_NEAR(w / kPi * 16384, nrm[i], 6) << lsp[i];
            }
        }
    }
}

TEST(LspToLsf, DisorderedVectorSaturates) {
    // The first entry in reverse order is +1 and sends the index to 0; the
    // next, -1, is then far below cos15[0]: the offset saturates to -32768 and
    // the normalised form saturates to 32767 rather than wrapping.
    Kvo16s lsp[10] = {0, 0, 0, 0, 0, 0, 0, 0, -32768, 32767};
    Kvo16s nrm[10], rad[10];
    ASSERT_EQ(kvoOk, kvosLSPToLSF_Norm_G729_16s(lsp, nrm));
    ASSERT_EQ(kvoOk, kvosLSPToLSF_G729_16s(lsp, rad));
    EXPECT_EQ(0, nrm[9]);
    EXPECT_EQ(0, rad[9]);
    EXPECT_EQ(32767, nrm[8]);
    // Zero is below cos15[0] too: (0 - 32767) * acos12[0], rounded by 12 bits.
    EXPECT_EQ(32767, nrm[0]);
}

}  // namespace
