// Echo-path noise filter: measured behaviour.  The suppressor is checked
// against a double-precision model where its gains are fixed (every frame
// declared noise makes the gain of each bin its floor), noise alone is
// attenuated by what the floors and the window imply, a speech-like signal in
// the detector takes noise, and the record carries all history.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "../support/alloc_count.h"
#include "kvosc.h"
#include "nf_util.h"

using namespace nftest;

namespace {

// Gains when every frame is declared noise: each bin's SNR is 1, so the gain is the
// strength (1/32) or the floor where that is higher; at level 4, the mean of the band
// and the bin SNRs times 1/256.
void floor_gains(int level, double* G) {
    const double low[6] = {0, 0.25, 0.003, 0.003, 0, 0.003};
    const double high[6] = {0, 0.4, 0.275, 0.275, 0, 0.275};
    for (int k = 0; k < 65; ++k)
        G[k] = level == 4 ? 1.0 / 256.0 : std::max(1.0 / 32.0, k < 3 ? low[level] : high[level]);
}

// The ramp that follows the first noise frame, in frames: sampleFreq/40 (or /100 at
// level 4) samples, from frame 7 on.  The model holds from this frame.
size_t settled_frame(int rate, int level) {
    return 8 + static_cast<size_t>(rate / (level == 4 ? 100 : 40)) / 16 + 4;
}

TEST(NoiseFilterEC, DeclaredNoiseMatchesTheFixedGainModel) {
    for (int rate : {8000, 22050}) {
        for (int level : {1, 2, 4}) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, level " << level);
            const std::vector<float> x = white(16 * 300, 1500.0, 3);
            Filter f(rate);
            ASSERT_EQ(kvosFilterNoiseLevel_EC_32f(level, f.st), kvoOk);
            const std::vector<float> y = run_declared(f, x, 1);
            double G[65];
            floor_gains(level, G);
            const std::vector<double> m = model_fixed_gain(x, G, level == 4, level == 4);
            // Single against double precision: 1e-5 of the output level.
            double worst = 0;
            for (size_t i = 16 * settled_frame(rate, level) + 64; i < x.size(); ++i)
                worst = std::max(worst, std::fabs(y[i] - m[i]));
            EXPECT_LT(worst, 1e-5 * 1500.0 * G[10] + 1e-3);
        }
    }
}

// The detector needs fill >= shortWin, then three candidate frames in a row: stationary
// low-pass noise is taken as noise at frame shortWin/16 + 2 (counting from 1) at the
// earliest and within 0.5 s; the estimate is that frame's power spectrum and the
// reported power the mean square of the last longWin samples (or of all, while fewer).
TEST(NoiseFilterEC, DetectorConvergesWithinItsRun) {
    for (int rate : kRates) {
        SCOPED_TRACE(rate);
        std::vector<float> x(static_cast<size_t>(rate) / 16 * 16);
        std::mt19937 g(21);
        std::normal_distribution<double> d(0.0, 300.0);
        double acc = 0;
        for (float& v : x) v = static_cast<float>(acc = 0.95 * acc + d(g));
        Filter f(rate);
        const KvoFilterNoise32fState* s = f.rec();
        const int first_possible = s->shortWin / 16 + 2;
        int first = 0, frame = 0, max_need = 0;
        for (size_t i = 0; i < x.size(); i += 16) {
            ++frame;
            Kvo64f np = 0;
            Kvo32f nm = 0;
            Kvo32s flag = 0;
            ASSERT_EQ(kvosFilterNoiseDetect_EC_32f64f(&x[i], &np, &nm, &flag, f.st), kvoOk);
            max_need = std::max(max_need, s->needRun);
            if (flag == 0) continue;
            if (first == 0) first = frame;
            const size_t end = i + 16, len = std::min<size_t>(end, static_cast<size_t>(s->longWin));
            double e = 0;
            for (size_t k = end - len; k < end; ++k) e += static_cast<double>(x[k]) * x[k];
            EXPECT_NEAR(np, e / static_cast<double>(len), 1e-9 * np);
            EXPECT_EQ(np, s->noisePower);
            EXPECT_EQ(std::memcmp(s->noiseSpec, s->powerSpec, sizeof(s->noiseSpec)), 0);
            for (int k = 0; k < 65; ++k)
                EXPECT_EQ(s->invNoiseSpec[k], 1.0 / std::max(s->noiseSpec[k], 1.0));
        }
        EXPECT_GE(first, first_possible);
        EXPECT_LE(first, rate / 2 / 16);
        // After a change of noise power the detector waits at most 3 (maxRunFactor + 1).
        EXPECT_LE(max_need, 3 * (rate * 3 / 8000 + 1));
    }
}

// Level 0: the output is the input block at once, apart from the start-up gain of the
// first 400 samples (no noise is known, so no ramp follows); in place it stays in place.
TEST(NoiseFilterEC, LevelZeroPassesWithoutDelay) {
    const std::vector<float> x = pink(16 * 60, 1000.0, 2);
    for (bool inPlace : {false, true}) {
        Filter f(16000);
        ASSERT_EQ(kvosFilterNoiseLevel_EC_32f(0, f.st), kvoOk);
        std::vector<float> y = x;
        for (size_t i = 0; i < x.size(); i += 16) {
            if (inPlace)
                ASSERT_EQ(kvosFilterNoise_EC_32f_I(&y[i], 0, f.st), kvoOk);
            else
                ASSERT_EQ(kvosFilterNoise_EC_32f(&x[i], &y[i], 0, f.st), kvoOk);
        }
        for (size_t i = 0; i < x.size(); ++i) ASSERT_EQ(y[i], x[i] * (i < 400 ? 0.5f : 1.0f)) << i;
    }
}

// The record carries the whole history: a stream gives the same output whether another
// stream's record is used between its frames or not, in place or not, and with the
// moderate detector fed a silent second signal as with the plain detector.
TEST(NoiseFilterEC, HistoryLivesInTheRecordOnly) {
    for (int rate : {8000, 32000}) {
        SCOPED_TRACE(rate);
        const std::vector<float> x = pink(static_cast<size_t>(rate) / 16 * 16, 1500.0, 8);
        const std::vector<float> other = white(x.size(), 500.0, 9);
        Filter a(rate), b(rate), c(rate), d(rate);
        for (Filter* f : {&a, &b, &c, &d}) kvosFilterNoiseSetMode_EC_32f(-1, f->st);
        const Outcome ra = run_detect_filter(a, x);
        std::vector<float> yb(x.size()), yd(x.size());
        const float zero[16] = {};
        for (size_t i = 0; i < x.size(); i += 16) {
            Kvo64f np, np2;
            Kvo32f nm, nm2;
            Kvo32s fl, fl2;
            ASSERT_EQ(kvosFilterNoiseDetect_EC_32f64f(&other[i], &np, &nm, &fl, c.st), kvoOk);
            ASSERT_EQ(kvosFilterNoiseDetect_EC_32f64f(&x[i], &np, &nm, &fl, b.st), kvoOk);
            float tmp[16];
            ASSERT_EQ(kvosFilterNoise_EC_32f(&other[i], tmp, -1, c.st), kvoOk);
            std::memcpy(&yb[i], &x[i], 64);
            ASSERT_EQ(kvosFilterNoise_EC_32f_I(&yb[i], -1, b.st), kvoOk);
            ASSERT_EQ(kvosFilterNoiseDetectModerate_EC_32f64f(&x[i], zero, &np2, &nm2, &fl2, d.st),
                      kvoOk);
            ASSERT_EQ(fl2, fl);
            ASSERT_EQ(np2, np);
            ASSERT_EQ(kvosFilterNoise_EC_32f(&x[i], &yd[i], -1, d.st), kvoOk);
        }
        EXPECT_EQ(std::memcmp(ra.out.data(), yb.data(), 4 * x.size()), 0);
        EXPECT_EQ(std::memcmp(ra.out.data(), yd.data(), 4 * x.size()), 0);
    }
}

// The moderate gate: a far signal well above the near one, and the near one above the
// noise, keeps the wider ratio limit (1.065) even with a large mean in the near signal.
TEST(NoiseFilterEC, ModerateGateWidensTheLimit) {
    std::vector<float> x(8000 * 2), ref(x.size());
    std::mt19937 g(12);
    std::normal_distribution<double> d(0.0, 1.0);
    double acc = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        acc = 0.95 * acc + d(g);
        x[i] = static_cast<float>(200.0 + 300.0 * acc);
        ref[i] = static_cast<float>(3000.0 * d(g));
    }
    Filter plain(8000), gated(8000);
    const KvoFilterNoise32fState *p = plain.rec(), *q = gated.rec();
    int widened = 0, narrow = 0;
    for (size_t i = 0; i < x.size(); i += 16) {
        Kvo64f np;
        Kvo32f nm;
        Kvo32s fl;
        kvosFilterNoiseDetect_EC_32f64f(&x[i], &np, &nm, &fl, plain.st);
        kvosFilterNoiseDetectModerate_EC_32f64f(&x[i], &ref[i], &np, &nm, &fl, gated.st);
        if (p->noiseKnown && p->dcEstimate >= 50.0f) narrow += p->ratioLimit == 1.065f;
        if (q->noiseKnown && q->dcEstimate >= 50.0f && fl == 0) widened += q->ratioLimit == 1.065f;
    }
    EXPECT_GT(q->refPower, q->micPower);
    EXPECT_EQ(narrow, 0);
    EXPECT_GT(widened, 0);
}

TEST(NoiseFilterEC, PerFrameCallsAllocateNothing) {
    ASSERT_TRUE(kvosc::test::allocation_counting_available());
    for (int rate : kRates) {
        const std::vector<float> x = pink(16 * 200, 1000.0, 3);
        Filter f(rate);
        const long n = kvosc::test::allocations_during([&] {
            float y[16];
            Kvo64f np;
            Kvo32f nm;
            Kvo32s fl;
            for (size_t i = 0; i < x.size(); i += 16) {
                kvosFilterNoiseLevel_EC_32f(static_cast<Kvo32s>(1 + (i / 16) % 5), f.st);
                kvosFilterNoiseSetMode_EC_32f(static_cast<Kvo32s>((i / 16) % 3) - 1, f.st);
                kvosFilterNoiseDetect_EC_32f64f(&x[i], &np, &nm, &fl, f.st);
                kvosFilterNoiseDetectModerate_EC_32f64f(&x[i], &x[i], &np, &nm, &fl, f.st);
                kvosFilterNoise_EC_32f(&x[i], y, static_cast<Kvo32s>(i % 3) - 1, f.st);
                kvosFilterNoise_EC_32f_I(y, -1, f.st);
            }
            kvosFilterNoiseInit_EC_32f(rate, f.st);
        });
        EXPECT_EQ(n, 0) << rate;
    }
}

}  // namespace
