// Bit-exactness of the pitch exports against the basic-operator model of the reference
// arithmetic, on random data of every level: quiet, speech-like, loud and full scale (which
// drives the saturating chains, the scaled paths and the interpolation's fallback order).
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "g729/pitch.h"
#include "g729_pitch/g729_model.h"
#include "g729_pitch/signals.h"
#include "kvosc.h"

namespace {

using gsig::Vec;

constexpr int kExc = 154 + 40;

Vec excitation(std::mt19937& rng) {
    Vec e = gsig::anyLevel(kExc, rng);
    if (rng() % 3 == 0) {  // a periodic past, as after voiced frames
        const int period = 20 + rng() % 124;
        Vec h = gsig::harmonic(kExc, period, 300 + rng() % 20000, rng());
        e = h;
    }
    return e;
}

TEST(G729PitchModel, OpenLoopBothCodersMatchReference) {
    std::mt19937 rng(1234);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        Vec s = trial % 2
                    ? gsig::anyLevel(223, rng)
                    : gsig::harmonic(223, 20 + (rng() % 1240) / 10.0,
                                     (trial % 7 == 0) ? 40000 : 50 + rng() % 9000, rng(), 0.2);
        Kvo16s t = 0, ta = 0;
        ASSERT_EQ(kvosOpenLoopPitchSearch_G729_16s(s.data() + 143, &t), kvoOk);
        ASSERT_EQ(kvosOpenLoopPitchSearch_G729A_16s(s.data() + 143, &ta), kvoOk);
        EXPECT_EQ(t, gmodel::Pitch_ol(s.data() + 143));
        EXPECT_EQ(ta, gmodel::Pitch_ol_fast(s.data() + 143));
    }
}

TEST(G729PitchModel, NormalisedCorrelationMatchesReference) {
    std::mt19937 rng(77);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        Vec exc = excitation(rng);
        Vec x = gsig::anyLevel(40, rng);
        Vec h = gsig::impulse(rng, trial % 17 == 0);
        const int lo = 16 + rng() % 120, hi = lo + static_cast<int>(rng() % 18);
        Kvo16s got[32], want[32];
        kvo::kvosMeanSquareWeightedError_16s_(exc.data() + 154, x.data(), h.data(), lo, hi, got,
                                              40);
        gmodel::Norm_Corr(exc.data() + 154, x.data(), h.data(), 40, lo, hi, want);
        for (int i = 0; i <= hi - lo; ++i) ASSERT_EQ(got[i], want[i]) << "lag " << lo + i;
    }
}

TEST(G729PitchModel, InterpolationOfCorrelationsMatchesReference) {
    std::mt19937 rng(5);
    for (int trial = 0; trial < 2000; ++trial) {
        Vec c = gsig::anyLevel(9, rng);
        for (int f = -2; f <= 2; ++f)
            ASSERT_EQ(kvo::ownInterpol_3(c.data() + 4, f), gmodel::Interpol_3(c.data() + 4, f))
                << trial << " fraction " << f;
    }
}

TEST(G729PitchModel, DecodeAdaptiveVectorMatchesReferenceAtEveryLag) {
    std::mt19937 rng(99);
    for (int lag = 18; lag <= 144; ++lag)
        for (int frac = -1; frac <= 1; ++frac)
            for (int rep = 0; rep < 3; ++rep) {
                Vec e = rep == 2 ? Vec(kExc, static_cast<int16_t>((lag & 1) ? 32767 : -32768))
                                 : excitation(rng);
                Vec m = e;
                const Kvo16s d[2] = {static_cast<Kvo16s>(lag), static_cast<Kvo16s>(frac)};
                Kvo16s out[40];
                ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s(d, e.data(), out), kvoOk);
                gmodel::Pred_lt_3(m.data() + 154, lag, frac, 40);
                ASSERT_EQ(e, m) << "lag " << lag << " fraction " << frac << " rep " << rep;
                ASSERT_EQ(0, std::memcmp(out, e.data() + 154, sizeof(out)));
            }
}

// Full-scale alternating excitation at fraction 0: the plain 64-bit sum of the 20 products and
// the reference's ordered saturating chain give different samples, and the chain is the one
// kept.
TEST(G729PitchModel, DecodeAdaptiveVectorKeepsTheSaturatingOrder) {
    Vec e(kExc);
    for (int i = 0; i < kExc; ++i) e[i] = static_cast<int16_t>((i / 2) % 2 ? -32768 : 32767);
    int differing = 0;
    for (int lag : {60, 61, 100}) {
        Vec m = e, w = e;
        const Kvo16s d[2] = {static_cast<Kvo16s>(lag), 0};
        ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(d, w.data()), kvoOk);
        gmodel::Pred_lt_3(m.data() + 154, lag, 0, 40);
        EXPECT_EQ(w, m);
        // The exact sum, saturated once, for comparison.
        for (int n = 0; n < 40; ++n) {
            const int16_t* x = e.data() + 154 - lag + n;
            int64_t s = 0;
            for (int i = 0; i < 10; ++i)
                s += int64_t{x[-i]} * kvo::tab::inter_3l[3 * i] +
                     int64_t{x[1 + i]} * kvo::tab::inter_3l[3 + 3 * i];
            s = 2 * s;
            const int32_t v = s > INT32_MAX ? INT32_MAX : (s < INT32_MIN ? INT32_MIN : int32_t(s));
            differing += kvo::round16(v) != w[154 + n];
        }
    }
    EXPECT_GT(differing, 0) << "the pattern no longer separates the two sums";
}

TEST(G729PitchModel, ClosedLoopSearchesMatchReference) {
    std::mt19937 rng(4242);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        Vec exc = excitation(rng);
        Vec x = trial % 3 ? gsig::anyLevel(40, rng) : Vec(exc.begin() + 100, exc.begin() + 140);
        Vec h = gsig::impulse(rng, trial % 23 == 0);
        const int sub = trial & 1;
        const int T = 18 + rng() % 128;
        int lo, hi;
        gmodel::window(T, sub, &lo, &hi);

        // Base coder.
        Vec e1 = exc, m1 = exc;
        Kvo16s delay[2], vec[40];
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G729_16s(T, x.data(), h.data(), e1.data(), delay, vec,
                                                      static_cast<Kvo16s>(sub)),
                  kvoOk);
        int frac;
        const int lag = gmodel::Pitch_fr3(m1.data() + 154, x.data(), h.data(), lo, hi, sub, &frac);
        gmodel::Pred_lt_3(m1.data() + 154, lag, frac, 40);
        EXPECT_EQ(delay[0], lag);
        EXPECT_EQ(delay[1], frac);
        EXPECT_EQ(e1, m1);
        EXPECT_EQ(0, std::memcmp(vec, e1.data() + 154, sizeof(vec)));

        // Annex A.
        Vec e2 = exc, m2 = exc;
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G729A_16s(T, x.data(), h.data(), e2.data(), delay, vec,
                                                       static_cast<Kvo16s>(sub)),
                  kvoOk);
        const int lagA =
            gmodel::Pitch_fr3_fast(m2.data() + 154, x.data(), h.data(), lo, hi, sub, &frac);
        EXPECT_EQ(delay[0], lagA);
        EXPECT_EQ(delay[1], frac);
        EXPECT_EQ(e2, m2);
        EXPECT_EQ(0, std::memcmp(vec, e2.data() + 154, sizeof(vec)));
    }
}

TEST(G729PitchModel, AdaptiveGainAndTargetUpdateMatchReference) {
    std::mt19937 rng(31337);
    for (int trial = 0; trial < 600; ++trial) {
        SCOPED_TRACE(trial);
        Vec x = gsig::anyLevel(40, rng);
        Vec v = gsig::anyLevel(40, rng);
        Vec h = gsig::impulse(rng, trial % 29 == 0);
        if (trial % 5 == 0) x = v;  // well-predicted target: large positive correlation
        Kvo16s y[40], g = -1;
        ASSERT_EQ(kvosAdaptiveCodebookGain_G729_16s(x.data(), h.data(), v.data(), y, &g), kvoOk);
        gmodel::Ops o;
        Kvo16s ym[40], coeff[4], cw[4], gw;
        gmodel::Convolve(o, v.data(), h.data(), ym, 40);
        ASSERT_EQ(0, std::memcmp(y, ym, sizeof(y)));
        EXPECT_EQ(g, gmodel::G_pitch(x.data(), ym, coeff, 40));
        kvo::kvosComputeAdaptiveCodebookGain_16s_(0, ym, x.data(), cw, &gw);
        EXPECT_EQ(0, std::memcmp(cw, coeff, sizeof(cw)));

        // Target update: sub(x, hi(L_shl(L_mult(y, g), 1))).
        Kvo16s xn2[40];
        const Kvo16s gain = trial % 4 == 0 ? static_cast<Kvo16s>(rng()) : g;
        ASSERT_EQ(kvosAdaptiveCodebookContribution_G729_16s(gain, y, x.data(), xn2), kvoOk);
        for (int i = 0; i < 40; ++i)
            ASSERT_EQ(xn2[i], o.sub(x[i], o.extract_h(o.L_shl(o.L_mult(y[i], gain), 1)))) << i;
    }
}

// The annex A gain filters with the saturating synthesis 1/A(z) of the reference (zero history).
TEST(G729PitchModel, AnnexAGainFiltersThroughSaturatingSynthesis) {
    std::mt19937 rng(8);
    const Kvo16s a[11] = {4096, -4915, 3277, -1966, 1311, -819, 492, -246, 123, -61, 31};
    for (int trial = 0; trial < 200; ++trial) {
        Vec x = gsig::anyLevel(40, rng), v = gsig::anyLevel(40, rng);
        Kvo16s y[40], g;
        ASSERT_EQ(kvosAdaptiveCodebookGain_G729A_16s(x.data(), a, v.data(), y, &g), kvoOk);
        gmodel::Ops o;
        Kvo16s ym[40], coeff[4];
        for (int n = 0; n < 40; ++n) {
            int32_t s = o.L_mult(v[n], a[0]);
            for (int j = 1; j <= 10; ++j)
                if (n - j >= 0) s = o.L_msu(s, a[j], ym[n - j]);
            ym[n] = o.round(o.L_shl(s, 3));
        }
        ASSERT_EQ(0, std::memcmp(y, ym, sizeof(y))) << trial;
        EXPECT_EQ(g, gmodel::G_pitch(x.data(), ym, coeff, 40)) << trial;
    }
}

}  // namespace
