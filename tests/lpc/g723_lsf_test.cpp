// G.723.1 conversions between Q13 LP coefficients and LSFs on the 256-step
// grid (Q7), against the double polynomial model of the line spectrum.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "lpc_model.h"
#include "numeric/arith.h"

namespace {

const double kPi = std::acos(-1.0);

// Ordered random LSFs (Q7) at least minGap apart, inside (lo, hi).
std::vector<Kvo16s> randomLsf(std::mt19937& g, int minGap, int lo = 300, int hi = 32400) {
    for (;;) {
        std::vector<Kvo16s> v(10);
        std::uniform_int_distribution<int> u(lo, hi);
        for (auto& x : v) x = Kvo16s(u(g));
        std::sort(v.begin(), v.end());
        bool ok = true;
        for (size_t i = 1; i < 10; ++i) ok = ok && v[i] - v[i - 1] >= minGap;
        if (ok) return v;
    }
}

// G.723.1 coefficients are the negated taps of A(z), Q13.
std::vector<double> expectedLpc(const std::vector<Kvo16s>& lsf) {
    std::vector<double> w(10);
    for (int i = 0; i < 10; ++i) w[size_t(i)] = kPi * lsf[size_t(i)] / 32768.0;
    const auto a = lpcmodel::lpcFromLsf(w);
    std::vector<double> out(10);
    for (int i = 0; i < 10; ++i) out[size_t(i)] = -a[size_t(i) + 1] * 8192;
    return out;
}

// The product polynomials are built in 32 bits with 1.0 at 2^(30 - n) after
// n factors: their coefficients must stay below 2^(n + 1).  Lines packed
// near 0 or pi exceed that and saturate.
bool productsFit(const std::vector<Kvo16s>& lsf) {
    for (int h = 0; h < 2; ++h) {
        std::vector<double> f{1.0};
        int n = 0;
        for (int i = h; i < 10; i += 2) {
            const double c = std::cos(kPi * lsf[size_t(i)] / 32768.0);
            std::vector<double> y(f.size() + 2, 0.0);
            for (size_t j = 0; j < f.size(); ++j) {
                y[j] += f[j];
                y[j + 1] -= 2 * c * f[j];
                y[j + 2] += f[j];
            }
            f = y;
            ++n;
            for (double v : f)
                if (n >= 2 && std::fabs(v) > 0.9 * std::ldexp(1.0, n + 1)) return false;
        }
    }
    return true;
}

TEST(LsfToLpcG723, MatchesTheProductOfLines) {
    std::mt19937 g(723);
    int checked = 0;
    for (int trial = 0; trial < 600; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 723 trial " << trial);
        const auto lsf = randomLsf(g, 400);
        if (!productsFit(lsf)) continue;
        const auto e = expectedLpc(lsf);
        if (*std::max_element(e.begin(), e.end()) > 32000 ||
            *std::min_element(e.begin(), e.end()) < -32000)
            continue;
        ++checked;
        Kvo16s out[10], inPlace[10];
        ASSERT_EQ(kvoOk, kvosLSFToLPC_G723_16s(lsf.data(), out));
        std::copy(lsf.begin(), lsf.end(), inPlace);
        ASSERT_EQ(kvoOk, kvosLSFToLPC_G723_16s_I(inPlace));
        EXPECT_EQ(0, std::memcmp(out, inPlace, sizeof out));
        for (int i = 0; i < 10; ++i)
            EXPECT_NEAR(e[size_t(i)], out[i], 12 + 2e-3 * std::fabs(e[size_t(i)])) << i;
    }
    EXPECT_GT(checked, 300);
}

// Random stable filter as G.723.1 coefficients (Q13) that fit the word, and
// the exact LSFs of its bandwidth-expanded version.
bool randomFilter(std::mt19937& g, double kmax, Kvo16s* lpc, std::vector<double>* w) {
    auto a = lpcmodel::stepUp(lpcmodel::randomRC(g, 10, kmax));
    for (int i = 1; i <= 10; ++i) {
        const double v = -a[size_t(i)] * 8192;
        if (std::fabs(v) > 32000) return false;
        lpc[i - 1] = Kvo16s(std::lround(v));
    }
    std::vector<double> ae(11);
    ae[0] = 1;
    for (int i = 1; i <= 10; ++i) ae[size_t(i)] = -lpc[i - 1] / 8192.0 * std::pow(0.994, i);
    *w = lpcmodel::lsf(ae);
    if (w->size() != 10) return false;
    for (size_t i = 1; i < 10; ++i)  // on separate grid rows
        if (int((*w)[i] / kPi * 256) == int((*w)[i - 1] / kPi * 256)) return false;
    return w->front() > kPi / 256 && w->back() < kPi * 254 / 256;
}

// The grid search in double, on the 16-bit polynomial coefficients the
// search works with: the sum polynomial without its root at z = -1 and the
// difference polynomial without its root at z = 1, from the bandwidth-expanded
// coefficients, scaled to 16 bits as one block; their cosine series sampled at
// rows r pi / 256; the root between rows r - 1 and r interpolated from the
// magnitudes there.
struct Polys {
    Kvo16s x[2][6];
};

Polys polys(const Kvo16s* lpc) {
    Kvo32s a[10], pq[12];
    for (int i = 0; i < 10; ++i)
        a[i] = (lpc[i] * Kvo32s(std::lround(32768 * std::pow(0.994, i + 1))) + 16384) >> 15;
    pq[0] = pq[1] = 8192;
    for (int i = 0; i < 5; ++i) {
        pq[2 * i + 2] = -pq[2 * i] - a[i] - a[9 - i];
        pq[2 * i + 3] = pq[2 * i + 1] - a[i] + a[9 - i];
    }
    for (int i = 0; i < 10; ++i) pq[i] *= 2;  // all but the middle term count twice
    Kvo16s s[12];
    kvo::ownAutoScale_NR_32s16s(pq, s, 12);
    Polys p;
    for (int m = 0; m < 6; ++m) {
        p.x[0][m] = s[2 * m];
        p.x[1][m] = s[2 * m + 1];
    }
    return p;
}

double rowValue(const Polys& p, int poly, int r) {
    double v = 0;
    for (int k = 0; k < 6; ++k) v += p.x[poly][5 - k] * std::cos(kPi * k * r / 256);
    return v;
}

// The root, and in *tol the error that the Q14 rounding of the cosines
// (half a unit in each of six terms) can cause in the interpolation.
double chordRoot(const Polys& p, int poly, double wExact, double* tol) {
    const int r = int(std::floor(wExact / kPi * 256)) + 1;
    const double u = std::fabs(rowValue(p, poly, r - 1)), v = std::fabs(rowValue(p, poly, r));
    double eps = 0;
    for (int k = 0; k < 6; ++k) eps += std::abs(p.x[poly][k]) / 32768.0;
    *tol = 3 + 128 * 2 * eps / (u + v);
    return (r - 1) * 128 + 128 * u / (u + v);
}

TEST(LpcToLsfG723, FindsTheLinesOfTheExpandedFilter) {
    std::mt19937 g(1723);
    const Kvo16s prev[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    int checked = 0;
    for (int trial = 0; trial < 600 && checked < 200; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 1723 trial " << trial);
        Kvo16s lpc[10];
        std::vector<double> w;
        if (!randomFilter(g, 0.9, lpc, &w)) continue;
        ++checked;
        Kvo16s lsf[10];
        ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(lpc, prev, lsf));
        ASSERT_NE(0, std::memcmp(lsf, prev, sizeof lsf));
        const Polys pp = polys(lpc);
        for (int i = 0; i < 10; ++i) {
            double tol;
            const double model = chordRoot(pp, i & 1, w[size_t(i)], &tol);
            EXPECT_NEAR(model, lsf[i], tol) << i;
            // The chord stays within half of its grid step of 128 units.
            EXPECT_NEAR(w[size_t(i)] / kPi * 32768, lsf[i], 64) << i;
        }
        for (int i = 1; i < 10; ++i) EXPECT_GT(lsf[i], lsf[i - 1]);
    }
    EXPECT_GT(checked, 100);
}

TEST(LpcToLsfG723, CloseLinesFallBackToTheRowByRowScan) {
    // Two lines within one four-row step: the coarse scan misses both, the
    // row-by-row scan must still find all ten.
    std::mt19937 g(3723);
    const Kvo16s prev[10] = {};
    int checked = 0;
    for (int trial = 0; trial < 20000 && checked < 20; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 3723 trial " << trial);
        Kvo16s lpc[10];
        std::vector<double> w;
        if (!randomFilter(g, 0.97, lpc, &w)) continue;
        bool close = false;
        for (size_t i = 1; i < 10; ++i) {
            const int r0 = int(w[i - 1] / kPi * 256), r1 = int(w[i] / kPi * 256);
            close = close || (r1 - r0 >= 1 && r1 - r0 <= 2);
        }
        if (!close) continue;
        ++checked;
        Kvo16s lsf[10];
        ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(lpc, prev, lsf));
        ASSERT_NE(0, std::memcmp(lsf, prev, sizeof lsf));
        const Polys pp = polys(lpc);
        for (int i = 0; i < 10; ++i) {
            double tol;
            const double model = chordRoot(pp, i & 1, w[size_t(i)], &tol);
            EXPECT_NEAR(model, lsf[i], tol) << i;
        }
    }
    EXPECT_GT(checked, 10);
}

TEST(LpcToLsfG723, TooFewRootsKeepsThePreviousVector) {
    const Kvo16s prev[10] = {1000, 4000, 7000, 10000, 13000, 16000, 19000, 22000, 25000, 28000};
    const Kvo16s bad[][10] = {
        {32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767},
        {-32768, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 30000},
    };
    for (const auto& a : bad) {
        Kvo16s out[10];
        ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(a, prev, out));
        EXPECT_EQ(0, std::memcmp(out, prev, sizeof out));
    }
    // The previous vector may be the output itself.
    Kvo16s same[10];
    std::memcpy(same, prev, sizeof same);
    ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(bad[0], same, same));
    EXPECT_EQ(0, std::memcmp(same, prev, sizeof same));
}

TEST(LpcToLsfG723, FlatFilter) {
    // A(z) = 1: lines at k pi / 11, k = 1 .. 10 (bandwidth expansion of zero
    // coefficients changes nothing).
    const Kvo16s lpc[10] = {};
    const Kvo16s prev[10] = {};
    Kvo16s lsf[10];
    ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(lpc, prev, lsf));
    for (int k = 1; k <= 10; ++k) EXPECT_NEAR(32768.0 * k / 11, lsf[k - 1], 4) << k;
}

}  // namespace
