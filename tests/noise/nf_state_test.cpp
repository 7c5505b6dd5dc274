// Echo-path noise filter: the block size, the start state, the levels, the
// record's placement in the caller's block, and argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "../support/badargs.h"
#include "fft/fft.h"
#include "kvosc.h"
#include "nf_util.h"
#include "noise/nf_ec.h"

using namespace nftest;

namespace {

Kvo32s up32(Kvo32s v) {
    return (v + 31) / 32 * 32;
}

TEST(NoiseFilterEC, BlockSizeFollowsTheFftQueryAndTheRate) {
    Kvo32s fftSpec = 0, init = 0, work = 0;
    ASSERT_EQ(kvo::kvosFFTGetSize_R_32f(7, 2, 2, &fftSpec, &init, &work), kvoOk);
    for (int rate : kRates) {
        SCOPED_TRACE(rate);
        const Kvo32s longWin = rate * 1024 / 8000;
        Kvo32s size = -1;
        ASSERT_EQ(kvosFilterNoiseGetStateSize_EC_32f(rate, &size), kvoOk);
        EXPECT_EQ(size, up32(fftSpec) + up32(std::max(init, work)) + 2 * up32(4 * longWin) + 4992);
    }
    Kvo32s size = 77;
    for (int bad : {0, -8000, 11025, 44100, 48000, 7999})
        EXPECT_EQ(kvosFilterNoiseGetStateSize_EC_32f(bad, &size), kvoErrRange) << bad;
    EXPECT_EQ(size, 77);
}

TEST(NoiseFilterEC, SynthesisWindowsFollowTheirRule) {
    const std::vector<double> hi = window(false), lo = window(true);
    for (int i = 0; i < 64; ++i) {
        EXPECT_FLOAT_EQ(kvo::nf::ec_isbf_hann64_32f[i], static_cast<float>(hi[i])) << i;
        EXPECT_FLOAT_EQ(kvo::nf::ec_isbf_hann64_32f_low[i], static_cast<float>(lo[i])) << i;
    }
    // Overlap-added at a hop of 16 the taps sum to about 1.31 and 0.985.
    EXPECT_NEAR(std::sqrt(window_power_gain(false)), 1.31, 0.01);
    EXPECT_NEAR(std::sqrt(window_power_gain(true)), 0.985, 0.01);
}

TEST(NoiseFilterEC, LevelsAfterStartAndLevelFiveResolvesOnTheFirstNoise) {
    Filter f(16000);
    KvoFilterNoise32fState* s = f.rec();
    // Level 0 changes nothing but the level; after the first filter call the ramp stays.
    ASSERT_EQ(kvosFilterNoiseLevel_EC_32f(0, f.st), kvoOk);
    EXPECT_EQ(s->level, 0);
    EXPECT_EQ(s->strength, 0.03125f);
    float x[16] = {}, y[16];
    ASSERT_EQ(kvosFilterNoise_EC_32f(x, y, 0, f.st), kvoOk);
    ASSERT_EQ(kvosFilterNoiseLevel_EC_32f(4, f.st), kvoOk);
    EXPECT_EQ(s->rampCount, 16000 / 40);
    // A level above 5 is stored and refused; the suppressor then refuses the record.
    for (int bad : {6, -1}) {
        const KvoFilterNoise32fState before = *s;
        EXPECT_EQ(kvosFilterNoiseLevel_EC_32f(bad, f.st), kvoErrRange);
        EXPECT_EQ(s->level, bad);
        KvoFilterNoise32fState expect = before;
        expect.level = bad;
        EXPECT_EQ(std::memcmp(&expect, s, sizeof(expect)), 0);
        EXPECT_EQ(kvosFilterNoise_EC_32f(x, y, 0, f.st), kvoErrOutOfRange);
    }
    // Level 5 on a declared noise frame: quiet noise (sqrt(1 + P) < 4) selects 0, else 2.
    for (float amp : {3.0f, 4.0f}) {
        Filter g(8000);
        std::vector<float> sq(128 + 16);
        for (size_t i = 0; i < sq.size(); ++i) sq[i] = (i & 1) ? amp : -amp;
        run_declared(g, sq, 1);
        EXPECT_EQ(g.rec()->level, amp < 3.5f ? 0 : 2) << amp;
        EXPECT_EQ(g.rec()->levelResolved, 1);
    }
}

TEST(NoiseFilterEC, InitIgnoresFormerContentsAndAnyAddress) {
    for (int rate : {8000, 22050}) {
        SCOPED_TRACE(rate);
        const std::vector<float> x = pink(static_cast<size_t>(rate), 2000.0, 5);
        Filter a(rate, 0, 0x00), b(rate, 0, 0xff), c(rate, 1, 0xff), d(rate, 13, 0x5a);
        for (Filter* f : {&a, &b, &c, &d}) kvosFilterNoiseSetMode_EC_32f(-1, f->st);
        const Outcome ra = run_detect_filter(a, x), rb = run_detect_filter(b, x);
        const Outcome rc = run_detect_filter(c, x), rd = run_detect_filter(d, x);
        EXPECT_EQ(ra.flags, rb.flags);
        EXPECT_EQ(std::memcmp(ra.out.data(), rb.out.data(), 4 * x.size()), 0);
        EXPECT_EQ(std::memcmp(ra.out.data(), rc.out.data(), 4 * x.size()), 0);
        EXPECT_EQ(std::memcmp(ra.out.data(), rd.out.data(), 4 * x.size()), 0);
        // The record past its pointers holds the same values.
        const size_t ptrs = offsetof(KvoFilterNoise32fState, noiseSpec);
        EXPECT_EQ(std::memcmp(reinterpret_cast<uint8_t*>(a.rec()) + ptrs,
                              reinterpret_cast<uint8_t*>(c.rec()) + ptrs,
                              sizeof(KvoFilterNoise32fState) - ptrs),
                  0);
        // The block's last byte is its own: the record and regions fit at every offset.
        for (Filter* f : {&c, &d}) {
            const auto* end = reinterpret_cast<uint8_t*>(f->st) + f->bytes;
            const auto* last = reinterpret_cast<uint8_t*>(f->rec()->pRefBuffer + f->rec()->longWin);
            EXPECT_LE(last, end);
        }
    }
}

TEST(NoiseFilterEC, ArgumentChecks) {
    using kvosc::test::BadArgs;
    const Kvo32s bytes = [] {
        Kvo32s n = 0;
        kvosFilterNoiseGetStateSize_EC_32f(32000, &n);
        return n;
    }();
    // A record that has seen some frames, so that the calls have history to keep.
    auto prepared = [](void* p) {
        auto* s = static_cast<KvoFilterNoise32fState*>(p);
        ASSERT_EQ(kvosFilterNoiseInit_EC_32f(16000, s), kvoOk);
        const std::vector<float> x = pink(16 * 40, 1000.0, 1);
        for (size_t i = 0; i < x.size(); i += 16) {
            Kvo64f np;
            Kvo32f nm;
            Kvo32s fl;
            kvosFilterNoiseDetect_EC_32f64f(&x[i], &np, &nm, &fl, s);
            float y[16];
            kvosFilterNoise_EC_32f(&x[i], y, -1, s);
        }
    };
    {
        BadArgs t("kvosFilterNoiseGetStateSize_EC_32f");
        auto rate = t.value<Kvo32s>("sampleFreq", 22050, {{11025, kvoErrRange}, {0, kvoErrRange}});
        auto size = t.out<Kvo32s>("pSize", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoiseGetStateSize_EC_32f(c(rate), c(size));
        });
    }
    {
        BadArgs t("kvosFilterNoiseInit_EC_32f");
        auto rate = t.value<Kvo32s>("sampleFreq", 32000, {{-1, kvoErrRange}, {44100, kvoErrRange}});
        auto st = t.state("pState", static_cast<size_t>(bytes), [](void*) {});
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoiseInit_EC_32f(c(rate), static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosFilterNoiseSetMode_EC_32f");
        auto mode = t.value<Kvo32s>("smoothMode", -1, {{2, kvoErrBadArg}, {-2, kvoErrBadArg}});
        auto st = t.state("pState", static_cast<size_t>(bytes), prepared);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoiseSetMode_EC_32f(c(mode),
                                                 static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosFilterNoiseLevel_EC_32f");
        auto level = t.value<Kvo32s>("level", 3);
        auto st = t.state("pState", static_cast<size_t>(bytes), prepared);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoiseLevel_EC_32f(c(level),
                                               static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosFilterNoiseDetect_EC_32f64f");
        auto src = t.in<Kvo32f>("pSrc", 16);
        auto np = t.out<Kvo64f>("pNoisePower", 1);
        auto nm = t.out<Kvo32f>("pNoiseMean", 1);
        auto fl = t.out<Kvo32s>("pNoiseFlag", 1);
        auto st = t.state("pState", static_cast<size_t>(bytes), prepared);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoiseDetect_EC_32f64f(c(src), c(np), c(nm), c(fl),
                                                   static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosFilterNoiseDetectModerate_EC_32f64f");
        auto src = t.in<Kvo32f>("pSrc", 16);
        auto ref = t.in<Kvo32f>("pRefSrc", 16);
        auto np = t.out<Kvo64f>("pNoisePower", 1);
        auto nm = t.out<Kvo32f>("pNoiseMean", 1);
        auto fl = t.out<Kvo32s>("pNoiseFlag", 1);
        auto st = t.state("pState", static_cast<size_t>(bytes), prepared);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoiseDetectModerate_EC_32f64f(
                c(src), c(ref), c(np), c(nm), c(fl), static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosFilterNoise_EC_32f");
        auto src = t.in<Kvo32f>("pSrc", 16);
        auto dst = t.out<Kvo32f>("pDst", 16);
        auto flag = t.value<Kvo32s>("noiseFlag", 1);
        auto st = t.state("pState", static_cast<size_t>(bytes), prepared);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoise_EC_32f(c(src), c(dst), c(flag),
                                          static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosFilterNoise_EC_32f_I");
        auto sd = t.inout<Kvo32f>("pSrcDst", 16);
        auto flag = t.value<Kvo32s>("noiseFlag", -1);
        auto st = t.state("pState", static_cast<size_t>(bytes), prepared);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterNoise_EC_32f_I(c(sd), c(flag),
                                            static_cast<KvoFilterNoise32fState*>(c(st)));
        });
    }
}

// Damaged stored values: the per-frame calls refuse the record with kvoErrOutOfRange and
// write nothing, neither outputs nor anywhere in the block.
TEST(NoiseFilterEC, DamagedRecordIsRefused) {
    using Damage = void (*)(KvoFilterNoise32fState*);
    struct Case {
        const char* what;
        Damage damage;
        bool filterOnly;
    };
    const Case cases[] = {
        {"fill above capacity", [](KvoFilterNoise32fState* s) { s->fill = s->capacity + 1; },
         false},
        {"rate", [](KvoFilterNoise32fState* s) { s->sampleFreq = 11025; }, false},
        {"band edge", [](KvoFilterNoise32fState* s) { s->bandEdge2 = 60; }, false},
        {"history pointer", [](KvoFilterNoise32fState* s) { s->pBuffer += 1; }, false},
        {"FFT identity",
         [](KvoFilterNoise32fState* s) {
             static_cast<kvo::KvoFFTSpec32f*>(s->pFFTSpec)->idTag = 0;
         },
         false},
        {"level", [](KvoFilterNoise32fState* s) { s->level = 7; }, true},
        {"smoothing length NaN", [](KvoFilterNoise32fState* s) { s->smoothLen = std::nan(""); },
         true},
    };
    const std::vector<float> x = pink(16 * 50, 1000.0, 9);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Filter f(22050);
        run_detect_filter(f, x);
        c.damage(f.rec());
        const std::vector<uint8_t> before = f.mem;
        float in[16], out[16], out0[16];
        for (int i = 0; i < 16; ++i) in[i] = out[i] = out0[i] = static_cast<float>(i * 100);
        Kvo64f np = -1;
        Kvo32f nm = -1;
        Kvo32s fl = -1;
        const KvoStatus want = c.filterOnly ? kvoOk : kvoErrOutOfRange;
        if (!c.filterOnly) {
            EXPECT_EQ(kvosFilterNoiseDetect_EC_32f64f(in, &np, &nm, &fl, f.st), want);
            EXPECT_EQ(kvosFilterNoiseDetectModerate_EC_32f64f(in, in, &np, &nm, &fl, f.st), want);
            EXPECT_EQ(np, -1);
            EXPECT_EQ(fl, -1);
        }
        EXPECT_EQ(kvosFilterNoise_EC_32f(in, out, 0, f.st), kvoErrOutOfRange);
        EXPECT_EQ(kvosFilterNoise_EC_32f_I(out, -1, f.st), kvoErrOutOfRange);
        EXPECT_EQ(std::memcmp(out, out0, sizeof(out)), 0);
        EXPECT_TRUE(f.mem == before);
    }
    // A block moved after Init no longer matches its own pointers.
    Filter f(8000);
    std::vector<uint8_t> moved(f.mem.size() + 64);
    std::memcpy(moved.data() + 64, f.mem.data(), f.mem.size());
    auto* other = reinterpret_cast<KvoFilterNoise32fState*>(
        moved.data() + 64 + (reinterpret_cast<uint8_t*>(f.st) - f.mem.data()));
    float in[16] = {}, out[16];
    EXPECT_EQ(kvosFilterNoise_EC_32f(in, out, 0, other), kvoErrOutOfRange);
}

}  // namespace
