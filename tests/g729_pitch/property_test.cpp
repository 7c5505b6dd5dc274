// Behaviour of the pitch searches on signals of known period: the open-loop lag of harmonic sums
// and pulse trains, the closed-loop lag at 1/3 resolution, the sign of the fraction in the
// decoder, and the search window edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "g729_pitch/signals.h"
#include "kvosc.h"

namespace {

using gsig::Vec;

// Band-limited periodic signal s(t) of period P: equal harmonics below 2800 Hz at 8 kHz, so that
// its autocorrelation has one sharp peak per period.
struct Periodic {
    double P;
    std::vector<double> ph, g;
    Periodic(double period, uint32_t seed) : P(period) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> u(0, 6.283185307179586);
        const int nh = static_cast<int>(0.35 * P);
        for (int k = 1; k <= nh; ++k) ph.push_back(u(rng)), g.push_back(1.0 / std::sqrt(nh));
    }
    double operator()(double t) const {
        double s = 0;
        for (size_t k = 0; k < ph.size(); ++k)
            s += g[k] * std::cos(6.283185307179586 * (k + 1) * t / P + ph[k]);
        return s;
    }
};

TEST(G729PitchProperty, OpenLoopFindsThePeriod) {
    for (int P = 20; P <= 143; ++P) {
        SCOPED_TRACE(P);
        Vec h = gsig::harmonic(223, P, 3000, 1000 + P);
        Vec p = gsig::pulses(223, P, 9000, (143 + 60) % P);  // a pulse inside the frame
        for (const Vec* v : {&h, &p}) {
            Kvo16s t = 0, ta = 0;
            ASSERT_EQ(kvosOpenLoopPitchSearch_G729_16s(v->data() + 143, &t), kvoOk);
            EXPECT_EQ(t, P);
            // Annex A reads only even samples: a train of one short pulse per frame can fall
            // between them, so it is held to the harmonic sums.
            if (v == &p) continue;
            ASSERT_EQ(kvosOpenLoopPitchSearch_G729A_16s(v->data() + 143, &ta), kvoOk);
            EXPECT_LE(std::abs(ta - P), 1);
        }
    }
}

// Quiet and full-scale copies of one signal find the same lag: the scaling by 8 and by 1/8 keeps
// the search on the same shape.
TEST(G729PitchProperty, OpenLoopIsLevelIndependent) {
    for (int P : {23, 57, 101, 140}) {
        Vec loud = gsig::harmonic(223, P, 30000, P);
        Vec quiet(223), mid(223);
        for (int i = 0; i < 223; ++i) quiet[i] = loud[i] / 100, mid[i] = loud[i] / 8;
        for (const Vec* v : {&loud, &quiet, &mid}) {
            Kvo16s t = 0;
            ASSERT_EQ(kvosOpenLoopPitchSearch_G729_16s(v->data() + 143, &t), kvoOk);
            EXPECT_EQ(t, P);
        }
    }
}

// The decoder's delay: output n is the past excitation at n - (lag + fraction / 3).  Lags from
// 50 on read only the past (shorter ones read back their own output).
TEST(G729PitchProperty, DecodedVectorIsTheFractionallyDelayedPast) {
    const Periodic s(37.3, 5);
    Vec exc(194);
    for (int lag = 50; lag <= 144; lag += 3)
        for (int frac = -1; frac <= 1; ++frac) {
            for (int i = 0; i < 194; ++i) exc[i] = gsig::clip(2000 * s(i - 154.0));
            const Kvo16s d[2] = {static_cast<Kvo16s>(lag), static_cast<Kvo16s>(frac)};
            ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(d, exc.data()), kvoOk);
            double err = 0, ref = 0;
            for (int n = 0; n < 40; ++n) {
                const double want = 2000 * s(n - (lag + frac / 3.0));
                err += (exc[154 + n] - want) * (exc[154 + n] - want);
                ref += want * want;
            }
            EXPECT_LT(err, 0.01 * ref) << "lag " << lag << " fraction " << frac;
        }
}

// The decoder reads exactly 154 samples of past at lag 144 and fraction +1, one fewer at 0.
TEST(G729PitchProperty, DecoderReadsTheWholeHistoryOnlyAtTheLongestDelay) {
    Vec base(194, 1000);
    for (int frac = -1; frac <= 1; ++frac) {
        Vec a = base, b = base;
        b[0] = -20000;
        const Kvo16s d[2] = {144, static_cast<Kvo16s>(frac)};
        ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(d, a.data()), kvoOk);
        ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(d, b.data()), kvoOk);
        const bool changed = !std::equal(a.begin() + 154, a.end(), b.begin() + 154);
        EXPECT_EQ(changed, frac == 1) << frac;
    }
}

// Closed loop on an excitation that continues a periodic signal of fractional period: the
// chosen delay lies within 1/3 sample of the period.
TEST(G729PitchProperty, ClosedLoopFindsFractionalDelay) {
    std::mt19937 rng(21);
    const Vec delta = [] {
        Vec h(40, 0);
        h[0] = 4096;
        return h;
    }();
    for (int k = 0; k < 60; ++k) {
        const double P = 20.5 + (rng() % 6200) / 100.0;  // 20.5 .. 82.5: fractions searched
        SCOPED_TRACE(P);
        const Periodic s(P, k);
        Vec exc(194);
        for (int i = 0; i < 194; ++i) exc[i] = gsig::clip(4000 * s(i - 154.0));
        Vec h = k % 2 ? delta : gsig::impulse(rng);
        // Target: the continuation filtered by h.
        Vec x(40);
        for (int n = 0; n < 40; ++n) {
            double acc = 0;
            for (int i = 0; i <= n; ++i) acc += exc[154 + i] * (h[n - i] / 4096.0);
            x[n] = gsig::clip(acc);
        }
        const int T = static_cast<int>(std::lround(P));
        for (int coder = 0; coder < 3; ++coder) {
            Vec e = exc;
            Kvo16s d[2], v[40];
            KvoStatus st =
                coder == 0
                    ? kvosAdaptiveCodebookSearch_G729_16s(T, x.data(), h.data(), e.data(), d, v, 0)
                : coder == 1
                    ? kvosAdaptiveCodebookSearch_G729A_16s(T, x.data(), h.data(), e.data(), d, v, 0)
                    : kvosAdaptiveCodebookSearch_G729D_16s(T, x.data(), h.data(), e.data(), 0, d);
            ASSERT_EQ(st, kvoOk);
            const double delay = d[0] + d[1] / 3.0;
            // The normalised searches land on the nearest third or its neighbour (the
            // interpolated correlation is not exactly the true one).  Annex A maximises the raw
            // correlation, which the energy of a 40-sample segment can pull aside unless the
            // filter is flat, so it is held to the flat filter only.
            if (coder == 1 && h != delta) continue;
            EXPECT_LE(std::fabs(delay - P), coder == 1 ? 1.0 : 0.67)
                << "coder " << coder << " delay " << d[0] << " " << d[1];
        }
    }
}

// Window edges: 145 is accepted (window 137..143 in subframe 0), 18 starts the window at 20.
TEST(G729PitchProperty, WindowEdges) {
    std::mt19937 rng(17);
    Vec h = gsig::impulse(rng);
    for (int rep = 0; rep < 50; ++rep) {
        Vec exc = gsig::anyLevel(194, rng), x = gsig::anyLevel(40, rng);
        Kvo16s d[2], v[40];
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G729_16s(145, x.data(), h.data(), exc.data(), d, v, 0),
                  kvoOk);
        EXPECT_GE(d[0] * 3 + d[1], 137 * 3 - 1);
        EXPECT_EQ(d[1], 0);  // lags above 84 have no fraction in subframe 0
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G729_16s(18, x.data(), h.data(), exc.data(), d, v, 0),
                  kvoOk);
        EXPECT_GE(d[0] * 3 + d[1], 19 * 3 + 1);  // lag 20 at fraction -2 is 19 1/3
        EXPECT_LE(d[0] * 3 + d[1], 26 * 3 + 1);
    }
}

}  // namespace
