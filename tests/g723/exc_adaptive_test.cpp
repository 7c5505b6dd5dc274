// G.723.1 adaptive codebook: the decoder's vector against a 64-bit model of
// the five-tap sum over the periodically extended excitation; the search
// against an exact (double) evaluation of every candidate lag and allowed
// gain row, with the table sizes of the excitation-error test.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "exc_model.h"
#include "g723/g723_exc_tables.h"
#include "kvosc.h"

using namespace g723test;
using kvo::tab::AdCdbkGainTblHighRate;
using kvo::tab::AdCdbkGainTblLowRate;

namespace {

// History with the two samples before it that lags up to 145 reach.
struct History {
    std::vector<int16_t> buf;
    explicit History(std::mt19937& rng, int amp) : buf(random16(rng, 147, amp)) {}
    const int16_t* h() const { return buf.data() + 2; }
};

TEST(G723Adaptive, DecodeMatchesPeriodicExtensionModel) {
    std::mt19937 rng(723);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        History hist(rng, trial % 4 == 0 ? 32767 : 6000);
        const int rate = trial % 2 ? 4 : 2, lag = 18 + int(rng() % 126), delta = int(rng() % 4);
        if (lag + delta > 146) continue;
        const bool high = rate == 4 && lag < 58;
        const int gi = int(rng() % (high ? 85 : 170));
        std::vector<int16_t> out(60);
        ASSERT_EQ(kvosDecodeAdaptiveVector_G723_16s(int16_t(lag), int16_t(delta), int16_t(gi),
                                                    hist.h(), out.data(), rate),
                  kvoOk);
        const int16_t* row = high ? AdCdbkGainTblHighRate[gi] : AdCdbkGainTblLowRate[gi];
        const auto e = delayed(hist.h(), lag + delta - 1);
        for (int i = 0; i < 60; ++i) {
            int64_t s = 0;
            for (int k = 0; k < 5; ++k) s += int64_t(row[k]) * e[i + k];
            ASSERT_EQ(out[i], clamp16((4 * s + 32768) >> 16)) << i;  // 4S, rounded upper half
        }
    }
    // The short-lag table of 85 rows serves 6.3 kbit/s lags below 58.
    History hist(rng, 3000);
    std::vector<int16_t> out(60);
    EXPECT_EQ(kvosDecodeAdaptiveVector_G723_16s(57, 1, 85, hist.h(), out.data(), 4),
              kvoErrOutOfRange);
    EXPECT_EQ(kvosDecodeAdaptiveVector_G723_16s(58, 1, 85, hist.h(), out.data(), 4), kvoOk);
}

// Match value (2 g.c - g'Rg in table form) of every row the search may try:
// tap vectors by plain convolution, correlations 2 x.y_t, 2 y_t.y_t and
// 4 y_i.y_j in the table's pair order; NaN where a row is not allowed.
std::vector<double> model_matches(const int16_t* hist, const std::vector<int16_t>& x,
                                  const std::vector<int16_t>& h, int centre, int odd, int rate,
                                  int n85, int n170) {
    std::vector<double> m((3 + odd) * 170, std::nan(""));
    for (int k = 0; k < 3 + odd; ++k) {
        const int lag = centre - 1 + k;
        const auto e = delayed(hist, lag);
        double y[5][60] = {};
        for (int t = 0; t < 5; ++t)
            for (int i = 0; i < 60; ++i)
                for (int j = 0; j <= i; ++j) y[t][i] += double(e[t + j]) * h[i - j] / 32768.0;
        auto dot = [](const double* a, const double* b) {
            double s = 0;
            for (int i = 0; i < 60; ++i) s += a[i] * b[i];
            return s;
        };
        double xd[60], v[20];
        for (int i = 0; i < 60; ++i) xd[i] = x[i];
        for (int t = 0; t < 5; ++t) v[t] = 2 * dot(xd, y[t]), v[5 + t] = 2 * dot(y[t], y[t]);
        for (int i = 1, p = 10; i < 5; ++i)
            for (int j = 0; j < i; ++j) v[p++] = 4 * dot(y[i], y[j]);
        const bool high = rate == 4 && (odd ? centre < 58 : lag < 58);
        for (int r = 0; r < (high ? n85 : n170); ++r) {
            const int16_t* row = high ? AdCdbkGainTblHighRate[r] : AdCdbkGainTblLowRate[r];
            double s = 0;
            for (int j = 0; j < 20; ++j) s += row[j] * v[j];
            m[k * 170 + r] = s;
        }
    }
    return m;
}

struct SearchCase {
    int subframe, rate;
    int32_t err;
    int16_t sine;
    int n85, n170;  // table sizes the excitation-error test must give
};

class G723AdaptiveSearch : public ::testing::TestWithParam<SearchCase> {};

TEST_P(G723AdaptiveSearch, ChoiceIsBestAmongAllowedRows) {
    const SearchCase sc = GetParam();
    std::mt19937 rng(100 + sc.subframe * 7 + sc.rate);
    const int odd = sc.subframe & 1;
    int tried = 0, exact = 0;
    for (int trial = 0; trial < 40; ++trial) {
        SCOPED_TRACE(trial);
        History hist(rng, 4000);
        const auto h = impulse(rng);
        const int centre = 20 + int(rng() % 100);
        // Target: a true five-tap pitch contribution plus noise.
        const auto e = delayed(hist.h(), centre - 1 + int(rng() % (3 + odd)));
        const int16_t* row = AdCdbkGainTblLowRate[rng() % 93];
        std::vector<int16_t> x(60);
        for (int i = 0; i < 60; ++i) {
            double s = 0;
            for (int j = 0; j <= i; ++j)
                for (int k = 0; k < 5; ++k)
                    s += row[k] * double(e[j + k]) * h[i - j] / (16384.0 * 16384);
            x[i] = clamp16(std::lround(s + int(rng() % 201) - 100));
        }
        std::vector<int32_t> err(5, sc.err);
        int16_t d = -1, g = -1;
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G723(int16_t(centre), x.data(), h.data(), hist.h(),
                                                  err.data(), &d, &g, int16_t(sc.subframe), sc.sine,
                                                  sc.rate),
                  kvoOk);
        const auto m = model_matches(hist.h(), x, h, centre, odd, sc.rate, sc.n85, sc.n170);
        double best = -1e300;
        for (double v : m)
            if (!std::isnan(v)) best = std::max(best, v);
        ASSERT_TRUE(d >= 0 && d < 3 + odd && g >= 0);
        const double got = m[d * 170 + g];
        ASSERT_FALSE(std::isnan(got)) << "row " << g << " beyond the allowed table size";
        if (best <= 0) continue;
        ++tried;
        EXPECT_GE(got, 0.99 * best) << "candidate " << d << " row " << g;
        exact += got == best;
    }
    EXPECT_GT(tried, 30);
    EXPECT_GT(exact, tried * 3 / 4);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, G723AdaptiveSearch,
    ::testing::Values(SearchCase{0, 4, 0, 0, 85, 170}, SearchCase{1, 4, 0, 0, 85, 170},
                      SearchCase{2, 2, 0, 0, 85, 170}, SearchCase{3, 2, 0, 0, 85, 170},
                      SearchCase{0, 4, 0x40000001, 0, 51, 93}, SearchCase{1, 2, 0, -1, 51, 93},
                      // (0x40000000 - 0x3f000000) >> 23 = 2: 59 and 109 rows
                      SearchCase{2, 4, 0x3f000000, 0, 59, 109}));

TEST(G723Adaptive, SilentTargetAndEvenSubframeLagClamps) {
    std::mt19937 rng(9);
    History hist(rng, 5000);
    const auto h = impulse(rng);
    std::vector<int16_t> zero(60, 0);
    std::vector<int32_t> err(5, 0);
    int16_t d = -1, g = -1;
    ASSERT_EQ(kvosAdaptiveCodebookSearch_G723(60, zero.data(), h.data(), hist.h(), err.data(), &d,
                                              &g, 1, 0, 4),
              kvoOk);
    EXPECT_EQ(d, 1);
    EXPECT_EQ(g, 0);
    const auto x = random16(rng, 60, 3000);
    for (auto [raw, clamped] : {std::pair{18, 19}, std::pair{142, 140}, std::pair{141, 140}}) {
        int16_t d1, g1, d2, g2;
        kvosAdaptiveCodebookSearch_G723(int16_t(raw), x.data(), h.data(), hist.h(), err.data(), &d1,
                                        &g1, 2, 0, 2);
        kvosAdaptiveCodebookSearch_G723(int16_t(clamped), x.data(), h.data(), hist.h(), err.data(),
                                        &d2, &g2, 2, 0, 2);
        EXPECT_EQ(d1 * 1000 + g1, d2 * 1000 + g2) << raw;
    }
}

}  // namespace
