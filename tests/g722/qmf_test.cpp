// G.722 QMF bank: the block forms against the per-pair loops and a 64-bit
// model written from the filter definition, delay-line continuity across
// calls, and near-perfect reconstruction of analysis followed by synthesis.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "g72x/g722.h"
#include "kvosc.h"

namespace {

std::vector<Kvo16s> random_signal(int n, int amp, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<Kvo16s> v(n);
    for (auto& x : v) {
        if (amp >= 32768)
            x = (rng() & 1) ? 32767 : -32768;
        else
            x = static_cast<Kvo16s>(static_cast<int>(rng() % (2 * amp + 1)) - amp);
    }
    return v;
}

// Output of filter branch: sum of coef[k] * x(t - k) for the k of one parity,
// with x the interleaved time series whose newest element is `newest`.
int64_t branch(const std::vector<int>& x, long newest, int parity) {
    int64_t s = 0;
    for (int k = parity; k < 24; k += 2)
        if (newest - k >= 0) s += int64_t{kvo::kG722QmfCoef[k]} * x[newest - k];
    return s;
}

TEST(G722Qmf, AnalysisMatchesFilterDefinition) {
    for (int amp : {100, 16000, 32768}) {
        const auto in = random_signal(2000, amp, amp);
        std::vector<Kvo16s> out(in.size());
        Kvo16s delay[24] = {};
        ASSERT_EQ(kvosQMFEncode_G722_16s(in.data(), out.data(), in.size(), delay), kvoOk);
        // time series: pair i puts src[2i] then src[2i+1]; word 0 is the newer
        std::vector<int> x(in.begin(), in.end());
        for (size_t i = 0; i < in.size() / 2; ++i) {
            const int64_t a = branch(x, 2 * i + 1, 0), b = branch(x, 2 * i + 1, 1);
            const int64_t lo = std::clamp<int64_t>((a + b) >> 15, -16384, 16383);
            const int64_t hi = std::clamp<int64_t>((a - b) >> 15, -16384, 16383);
            ASSERT_EQ(out[2 * i], lo) << i;
            ASSERT_EQ(out[2 * i + 1], hi) << i;
        }
    }
}

TEST(G722Qmf, SynthesisMatchesFilterDefinition) {
    for (int amp : {100, 16384, 32768}) {
        const auto in = random_signal(2000, amp, amp + 1);
        std::vector<Kvo16s> out(in.size());
        Kvo16s delay[24] = {};
        ASSERT_EQ(kvosQMFDecode_G722_16s(in.data(), out.data(), in.size(), delay), kvoOk);
        // time series: xs = low + high (word 1), then xd = low - high (word 0)
        std::vector<int> x(in.size());
        for (size_t i = 0; i < in.size() / 2; ++i) {
            x[2 * i] = std::clamp(in[2 * i] + in[2 * i + 1], -32768, 32767);
            x[2 * i + 1] = std::clamp(in[2 * i] - in[2 * i + 1], -32768, 32767);
        }
        for (size_t i = 0; i < in.size() / 2; ++i) {
            const int64_t e = branch(x, 2 * i + 1, 0) >> 12, o = branch(x, 2 * i + 1, 1) >> 12;
            ASSERT_EQ(out[2 * i], std::clamp<int64_t>(e, -32768, 32767)) << i;
            ASSERT_EQ(out[2 * i + 1], std::clamp<int64_t>(o, -32768, 32767)) << i;
        }
    }
}

// Random lengths split the same stream; block and per-pair forms must agree
// on every output and on the delay line after every call, in place too.
TEST(G722Qmf, BlockFormsMatchPerPairLoops) {
    std::mt19937 rng(77);
    for (int amp : {3000, 32768}) {
        const auto in = random_signal(6000, amp, amp + 2);
        for (int dir = 0; dir < 2; ++dir) {
            SCOPED_TRACE(dir);
            Kvo16s d1[24], d2[24];
            for (int k = 0; k < 24; ++k) d1[k] = d2[k] = static_cast<Kvo16s>(rng());
            std::vector<Kvo16s> a(in.size()), b = in;
            for (size_t at = 0; at < in.size();) {
                const int pairs =
                    static_cast<int>(std::min<size_t>(1 + rng() % 300, (in.size() - at) / 2));
                if (dir == 0) {
                    kvo::g722QmfAnalysisScalar(&in[at], &a[at], pairs, d1);
                    ASSERT_EQ(kvosQMFEncode_G722_16s(&b[at], &b[at], 2 * pairs, d2), kvoOk);
                } else {
                    kvo::g722QmfSynthesisScalar(&in[at], &a[at], pairs, d1);
                    ASSERT_EQ(kvosQMFDecode_G722_16s(&b[at], &b[at], 2 * pairs, d2), kvoOk);
                }
                ASSERT_EQ(std::memcmp(d1, d2, sizeof d1), 0) << at;
                at += 2 * pairs;
            }
            EXPECT_EQ(a, b);
        }
    }
}

TEST(G722Qmf, AnalysisThenSynthesisReconstructs) {
    // A band-limited signal comes back delayed by 22 samples, within the
    // filter bank's small aliasing and rounding error.
    const int n = 8000;
    std::vector<Kvo16s> in(n), band(n), out(n);
    for (int i = 0; i < n; ++i)
        in[i] = static_cast<Kvo16s>(
            std::lround(5000 * std::sin(0.05 * i) + 3000 * std::sin(0.9 * i + 1)));
    Kvo16s da[24] = {}, ds[24] = {};
    ASSERT_EQ(kvosQMFEncode_G722_16s(in.data(), band.data(), n, da), kvoOk);
    ASSERT_EQ(kvosQMFDecode_G722_16s(band.data(), out.data(), n, ds), kvoOk);
    double e = 0, d = 0;
    for (int i = 100; i < n; ++i) {
        e += double(in[i - 22]) * in[i - 22];
        d += double(out[i] - in[i - 22]) * (out[i] - in[i - 22]);
    }
    EXPECT_GT(10 * std::log10(e / d), 35.0);
}

}  // namespace
