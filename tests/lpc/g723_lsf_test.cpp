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

// The product polynomials are built in 32 bits with 1.0 at 2^(30 - n) after n factors: their
// coefficients must stay below 2^(n + 1).  Lines packed near 0 or pi exceed that and saturate.
bool productsFit(const std::vector<double>& w) {
    for (int h = 0; h < 2; ++h) {
        std::vector<double> f{1.0};
        for (int i = h, n = 1; i < 10; i += 2, ++n) {
            f.resize(f.size() + 2, 0.0);
            for (size_t j = f.size() - 1; j >= 2; --j)
                f[j] += f[j - 2] - 2 * std::cos(w[i]) * f[j - 1];
            f[1] -= 2 * std::cos(w[i]) * f[0];
            for (double v : f)
                if (n >= 2 && std::fabs(v) > 0.9 * std::ldexp(1.0, n + 1)) return false;
        }
    }
    return true;
}

// Ordered random LSFs (Q7) at least 400 apart; G.723.1 coefficients are the negated taps of
// A(z) in Q13.
TEST(LsfToLpcG723, MatchesTheProductOfLines) {
    std::mt19937 g(723);
    int checked = 0;
    for (int trial = 0; trial < 600; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 723 trial " << trial);
        Kvo16s lsf[10], out[10];
        bool spread = false;
        while (!spread) {
            for (auto& x : lsf) x = Kvo16s(300 + g() % 32100);
            std::sort(lsf, lsf + 10);
            spread = true;
            for (int i = 1; i < 10; ++i) spread = spread && lsf[i] - lsf[i - 1] >= 400;
        }
        std::vector<double> w(10), e(10);
        for (int i = 0; i < 10; ++i) w[size_t(i)] = kPi * lsf[i] / 32768.0;
        const auto a = lpcmodel::lpcFromLsf(w);
        for (int i = 0; i < 10; ++i) e[size_t(i)] = -a[size_t(i) + 1] * 8192;
        if (!productsFit(w) || *std::max_element(e.begin(), e.end()) > 32000 ||
            *std::min_element(e.begin(), e.end()) < -32000)
            continue;
        ++checked;
        ASSERT_EQ(kvoOk, kvosLSFToLPC_G723_16s(lsf, out));
        ASSERT_EQ(kvoOk, kvosLSFToLPC_G723_16s_I(lsf));
        EXPECT_EQ(0, std::memcmp(out, lsf, sizeof out));
        for (int i = 0; i < 10; ++i)
            EXPECT_NEAR(e[size_t(i)], out[i], 12 + 2e-3 * std::fabs(e[size_t(i)])) << i;
    }
    EXPECT_GT(checked, 300);
}

// Random stable filter as G.723.1 coefficients (Q13) that fit the word, and
// the exact LSFs of its bandwidth-expanded version.
bool randomFilter(std::mt19937& g, double kmax, Kvo16s* lpc, std::vector<double>* w) {
    std::vector<double> a;
    lpcmodel::stepUp(lpcmodel::randomRC(g, 10, kmax), &a);
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

// The grid search in double on the search's 16-bit polynomials (sum without its root at
// z = -1, difference without its root at z = 1, from the bandwidth-expanded coefficients,
// scaled to 16 bits as one block): cosine series sampled at rows r pi / 256, the root
// between rows r - 1 and r interpolated from the magnitudes there.
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
    for (int m = 0; m < 12; ++m) p.x[m & 1][m / 2] = s[m];
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

// Random filters, then (kmax 0.97) only those with two lines within one four-row step:
// the coarse scan misses both, the row-by-row scan must still find all ten.
TEST(LpcToLsfG723, FindsTheLinesOfTheExpandedFilter) {
    std::mt19937 g(1723);
    const Kvo16s prev[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    for (const bool closeOnly : {false, true}) {
        const int want = closeOnly ? 20 : 200;
        int checked = 0;
        for (int trial = 0; trial < 20000 && checked < want; ++trial) {
            SCOPED_TRACE(testing::Message()
                         << "seed 1723 close " << closeOnly << " trial " << trial);
            Kvo16s lpc[10], lsf[10];
            std::vector<double> w;
            if (!randomFilter(g, closeOnly ? 0.97 : 0.9, lpc, &w)) continue;
            bool close = false;
            for (size_t i = 1; i < 10; ++i) {
                const int gap = int(w[i] / kPi * 256) - int(w[i - 1] / kPi * 256);
                close = close || (gap >= 1 && gap <= 2);
            }
            if (closeOnly && !close) continue;
            ++checked;
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
        EXPECT_GT(checked, want / 2);
    }
}

// Too few roots keep the previous vector (which may be the output itself); the flat filter
// A(z) = 1 has its lines at k pi / 11, k = 1 .. 10.
TEST(LpcToLsfG723, TooFewRootsAndFlatFilter) {
    const Kvo16s prev[10] = {1000, 4000, 7000, 10000, 13000, 16000, 19000, 22000, 25000, 28000};
    const Kvo16s bad[][10] = {
        {32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767},
        {-32768, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 30000}};
    Kvo16s out[10];
    for (const auto& a : bad) {
        std::memcpy(out, prev, sizeof out);
        ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(a, &a == bad ? out : prev, out));
        EXPECT_EQ(0, std::memcmp(out, prev, sizeof out));
    }
    const Kvo16s flat[10] = {};
    ASSERT_EQ(kvoOk, kvosLPCToLSF_G723_16s(flat, prev, out));
    for (int k = 1; k <= 10; ++k) EXPECT_NEAR(32768.0 * k / 11, out[k - 1], 4) << k;
}

}  // namespace
