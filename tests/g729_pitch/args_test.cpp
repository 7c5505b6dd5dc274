// Argument checks of the pitch exports: every pointer null, then the lag, fraction, open-loop
// delay, subframe and length values out of range; a refused call writes nothing, and no call
// writes outside its buffers.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "g729_pitch/signals.h"
#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

std::vector<Kvo16s> speech(int n, uint32_t seed) {
    return gsig::harmonic(n, 47.5, 4000, seed, 0.1);
}

TEST(G729PitchArgs, OpenLoopSearches) {
    for (int annexA = 0; annexA < 2; ++annexA) {
        BadArgs t(annexA ? "kvosOpenLoopPitchSearch_G729A_16s"
                         : "kvosOpenLoopPitchSearch_G729_16s");
        auto src = t.in<Kvo16s>("pSrc", 80, speech(223, 1), 143);
        auto dst = t.out<Kvo16s>("pDstOpenLoopDelay", 1);
        t.run([&](const BadArgs::Call& c) {
            return annexA ? kvosOpenLoopPitchSearch_G729A_16s(c(src), c(dst))
                          : kvosOpenLoopPitchSearch_G729_16s(c(src), c(dst));
        });
    }
}

TEST(G729PitchArgs, LagMaxima) {
    for (int fwd = 0; fwd < 2; ++fwd) {
        BadArgs t(fwd ? "kvosAutoCorrLagMax_Fwd_16s" : "kvosAutoCorrLagMax_Inv_16s");
        auto src = fwd ? t.in<Kvo16s>("pSrc", 80 + 40) : t.in<Kvo16s>("pSrc", 80, {}, 40);
        auto len = t.value<Kvo32s>("len", 80, {{0, kvoErrSize}, {-3, kvoErrSize}});
        auto lo = t.value<Kvo32s>("lowerLag", 20);
        auto hi = t.value<Kvo32s>("upperLag", 40);
        auto mx = t.out<Kvo32s>("pMax", 1);
        auto lag = t.out<Kvo32s>("pMaxLag", 1);
        t.run([&](const BadArgs::Call& c) {
            return fwd ? kvosAutoCorrLagMax_Fwd_16s(c(src), c(len), c(lo), c(hi), c(mx), c(lag))
                       : kvosAutoCorrLagMax_Inv_16s(c(src), c(len), c(lo), c(hi), c(mx), c(lag));
        });
    }
}

TEST(G729PitchArgs, ClosedLoopSearches) {
    for (int annexA = 0; annexA < 2; ++annexA) {
        BadArgs t(annexA ? "kvosAdaptiveCodebookSearch_G729A_16s"
                         : "kvosAdaptiveCodebookSearch_G729_16s");
        auto open = t.value<Kvo32s>("valOpenDelay", 60,
                                    {{17, kvoErrRange}, {146, kvoErrRange}, {-60, kvoErrRange}});
        auto x = t.in<Kvo16s>("pSrcAdptTarget", 40, speech(40, 2));
        auto h = t.in<Kvo16s>("pSrcImpulseResponse", 40);
        auto exc = t.inout<Kvo16s>("pSrcDstPrevExc", 194, speech(194, 3));
        auto delay = t.out<Kvo16s>("pDstDelay", 2);
        auto vec = t.out<Kvo16s>("pDstAdptVector", 40);
        auto sub = t.value<Kvo16s>("subFrame", 1, {{2, kvoErrRange}, {-1, kvoErrRange}});
        t.run([&](const BadArgs::Call& c) {
            return annexA ? kvosAdaptiveCodebookSearch_G729A_16s(c(open), c(x), c(h), c(exc),
                                                                 c(delay), c(vec), c(sub))
                          : kvosAdaptiveCodebookSearch_G729_16s(c(open), c(x), c(h), c(exc),
                                                                c(delay), c(vec), c(sub));
        });
    }
    // Annex D writes only the delay: the whole excitation buffer is read-only.
    BadArgs t("kvosAdaptiveCodebookSearch_G729D_16s");
    auto open = t.value<Kvo32s>("valOpenDelay", 145, {{17, kvoErrRange}, {146, kvoErrRange}});
    auto x = t.in<Kvo16s>("pSrcAdptTarget", 40, speech(40, 2));
    auto h = t.in<Kvo16s>("pSrcImpulseResponse", 40);
    auto exc = t.in<Kvo16s>("pSrcDstPrevExc", 194, speech(194, 3));
    auto sub = t.value<Kvo16s>("subFrame", 0, {{2, kvoErrRange}, {-1, kvoErrRange}});
    auto delay = t.out<Kvo16s>("pDstDelay", 2);
    t.run([&](const BadArgs::Call& c) {
        return kvosAdaptiveCodebookSearch_G729D_16s(c(open), c(x), c(h), c(exc), c(sub), c(delay));
    });
}

TEST(G729PitchArgs, DecodeAdaptiveVector) {
    for (int copy = 0; copy < 2; ++copy) {
        BadArgs t(copy ? "kvosDecodeAdaptiveVector_G729_16s"
                       : "kvosDecodeAdaptiveVector_G729_16s_I");
        auto good = t.in<Kvo16s>("pDelay", 2, {144, 1});
        auto exc = t.inout<Kvo16s>("pSrcDstPrevExc", 194, speech(194, 4));
        if (copy) {
            auto dst = t.out<Kvo16s>("pDst", 40);
            t.run([&](const BadArgs::Call& c) {
                return kvosDecodeAdaptiveVector_G729_16s(c(good), c(exc), c(dst));
            });
        } else {
            t.run([&](const BadArgs::Call& c) {
                return kvosDecodeAdaptiveVector_G729_16s_I(c(good), c(exc));
            });
        }
        // Bad delay pairs (the pair is one pointer, so each is its own call).
        const Kvo16s bad[][2] = {{17, 0}, {145, 0}, {145, -1}, {60, 2}, {60, -2}, {-60, 0}};
        for (const auto& d : bad) {
            std::vector<Kvo16s> e = speech(194, 5), before = e;
            Kvo16s out[40] = {};
            const KvoStatus st = copy ? kvosDecodeAdaptiveVector_G729_16s(d, e.data(), out)
                                      : kvosDecodeAdaptiveVector_G729_16s_I(d, e.data());
            EXPECT_EQ(st, kvoErrOutOfRange) << d[0] << " " << d[1];
            EXPECT_EQ(e, before);
            for (Kvo16s v : out) EXPECT_EQ(v, 0);
        }
        // The four corners of the legal range are accepted.
        for (const auto& d : {std::pair{18, -1}, {18, 1}, {144, -1}, {144, 1}}) {
            std::vector<Kvo16s> e = speech(194, 6);
            const Kvo16s p[2] = {static_cast<Kvo16s>(d.first), static_cast<Kvo16s>(d.second)};
            EXPECT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(p, e.data()), kvoOk);
        }
    }
}

TEST(G729PitchArgs, GainsAndTargetUpdate) {
    {
        BadArgs t("kvosAdaptiveCodebookGain_G729_16s");
        auto x = t.in<Kvo16s>("pSrcAdptTarget", 40);
        auto h = t.in<Kvo16s>("pSrcImpulseResponse", 40);
        auto v = t.in<Kvo16s>("pSrcAdptVector", 40);
        auto y = t.out<Kvo16s>("pDstFltAdptVector", 40);
        auto g = t.out<Kvo16s>("pResultAdptGain", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosAdaptiveCodebookGain_G729_16s(c(x), c(h), c(v), c(y), c(g));
        });
    }
    {
        BadArgs t("kvosAdaptiveCodebookGain_G729A_16s");
        auto x = t.in<Kvo16s>("pSrcAdptTarget", 40);
        auto a = t.in<Kvo16s>("pSrcLPC", 11, {4096, -3000, 1500, -700, 300, -100, 50, 0, 0, 0, 0});
        auto v = t.in<Kvo16s>("pSrcAdptVector", 40);
        auto y = t.out<Kvo16s>("pDstFltAdptVector", 40);
        auto g = t.out<Kvo16s>("pResultAdptGain", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosAdaptiveCodebookGain_G729A_16s(c(x), c(a), c(v), c(y), c(g));
        });
    }
    {
        BadArgs t("kvosAdaptiveCodebookContribution_G729_16s");
        auto g = t.value<Kvo16s>("gain", 9000);
        auto y = t.in<Kvo16s>("pFltAdptVector", 40);
        auto x = t.in<Kvo16s>("pSrcAdptTarget", 40);
        auto d = t.out<Kvo16s>("pDstAdptTarget", 40);
        t.run([&](const BadArgs::Call& c) {
            return kvosAdaptiveCodebookContribution_G729_16s(c(g), c(y), c(x), c(d));
        });
    }
}

// Saturation corners of the lag maxima and of the target update.
TEST(G729PitchArgs, SaturationCorners) {
    // An empty lag range: 0x80000000 and lag 0.
    std::vector<Kvo16s> s(200, 7);
    Kvo32s mx = 0, lag = -1;
    ASSERT_EQ(kvosAutoCorrLagMax_Inv_16s(s.data() + 100, 80, 41, 40, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, INT32_MIN);
    EXPECT_EQ(lag, 0);
    // Equal sums keep the lowest lag; the maximum is doubled (80 * 49 * 2).
    ASSERT_EQ(kvosAutoCorrLagMax_Fwd_16s(s.data(), 80, 5, 30, &mx, &lag), kvoOk);
    EXPECT_EQ(lag, 5);
    EXPECT_EQ(mx, 80 * 49 * 2);
    // The sum wraps at 32 bits and the doubled maximum saturates.
    std::vector<Kvo16s> big(400, 32767);
    ASSERT_EQ(kvosAutoCorrLagMax_Fwd_16s(big.data(), 2, 1, 3, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, INT32_MAX);  // 2 * 32767^2 = 0x7ffe0002, doubled
    ASSERT_EQ(kvosAutoCorrLagMax_Fwd_16s(big.data(), 3, 1, 3, &mx, &lag), kvoOk);
    EXPECT_EQ(mx, INT32_MIN);  // 3 * 32767^2 wraps negative, doubled with saturation
    // Target update wraps nowhere: x - y g saturates.
    std::vector<Kvo16s> yy(40, 32767), xx(40, -32768), out(40);
    ASSERT_EQ(kvosAdaptiveCodebookContribution_G729_16s(19661, yy.data(), xx.data(), out.data()),
              kvoOk);
    for (Kvo16s o : out) EXPECT_EQ(o, -32768);
}

}  // namespace
