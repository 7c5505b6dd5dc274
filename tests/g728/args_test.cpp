// Argument tests of the G.728 exports: nulls first, then sizes, ranges and
// scale; nothing written on an error.
#include <gtest/gtest.h>

#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

const std::vector<Kvo16s> kWindow(105, 20000);

TEST(G728Args, WindowSizeAndInit) {
    {
        BadArgs t("kvosWinHybridGetStateSize_G728_16s");
        auto m = t.value<Kvo32s>("order", 50, {{0, kvoErrSize}});
        auto l = t.value<Kvo32s>("frameLen", 20, {{0, kvoErrSize}, {-4, kvoErrSize}});
        auto n = t.value<Kvo32s>("nonRecLen", 35, {{0, kvoErrSize}});
        auto b = t.value<Kvo32s>("blockLen", 5);
        auto sz = t.out<Kvo32s>("pSize", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosWinHybridGetStateSize_G728_16s(c(m), c(l), c(n), c(b), c(sz));
        });
    }
    {
        BadArgs t("kvosWinHybridInit_G728_16s");
        auto w = t.in<Kvo16s>("pWindow", 105, kWindow);
        auto m = t.value<Kvo32s>("order", 50, {{51, kvoErrSize}, {0, kvoErrSize}});
        auto l = t.value<Kvo32s>("frameLen", 20, {{40, kvoErrSize}});
        auto n = t.value<Kvo32s>("nonRecLen", 35);
        auto b = t.value<Kvo32s>("blockLen", 5);
        auto d = t.value<Kvo32s>("decay", 12288);
        auto st = t.out<Kvo8u>("pState", 400);
        t.run([&](const BadArgs::Call& c) {
            return kvosWinHybridInit_G728_16s(c(w), c(m), c(l), c(n), c(b), c(d), c(st));
        });
    }
}

TEST(G728Args, WindowCalls) {
    auto init = [](void* p) {
        kvosWinHybridInit_G728_16s(kWindow.data(), 50, 20, 35, 5, 12288, static_cast<Kvo8u*>(p));
    };
    {
        BadArgs t("kvosWinHybridBlock_G728_16s");
        auto sl = t.value<Kvo32s>("shortLags", 0);
        auto src = t.in<Kvo16s>("pSrc", 20);
        auto ex = t.in<Kvo16s>("pExp", 4, std::vector<Kvo16s>{3, 4, 5, 40});
        auto dst = t.out<Kvo16s>("pDst", 51);
        auto st = t.state("pState", 400, init);
        t.valid_status(kvoWarnZeroEnergy);  // 20 samples from rest cannot reach lag 50
        t.run([&](const BadArgs::Call& c) {
            return kvosWinHybridBlock_G728_16s(c(sl), c(src), c(ex), c(dst),
                                               static_cast<Kvo8u*>(c(st)));
        });
    }
    {
        BadArgs t("kvosWinHybrid_G728_16s");
        auto sl = t.value<Kvo32s>("shortLags", 1);
        auto src = t.in<Kvo16s>("pSrc", 20);
        auto dst = t.out<Kvo16s>("pDst", 11);
        auto st = t.state("pState", 400, init);
        t.run([&](const BadArgs::Call& c) {
            return kvosWinHybrid_G728_16s(c(sl), c(src), c(dst), static_cast<Kvo8u*>(c(st)));
        });
    }
}

TEST(G728Args, Levinson) {
    const std::vector<Kvo16s> R = {30000, 20000, 9000, 2000, 100, 50, 20, 10, 5, 2, 1};
    {
        BadArgs t("kvosLevinsonDurbin_G728_16s_Sfs");
        auto src = t.in<Kvo16s>("pSrc", 11, R);
        auto ord = t.value<Kvo32s>("order", 10, {{-1, kvoErrRange}});
        auto a = t.out<Kvo16s>("pDstLPC", 10);
        auto rc = t.out<Kvo16s>("pDstRC", 1);
        auto res = t.out<Kvo16s>("pResidual", 1);
        auto sc = t.out<Kvo16s>("pScale", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosLevinsonDurbin_G728_16s_Sfs(c(src), c(ord), c(a), c(rc), c(res), c(sc));
        });
    }
    {
        BadArgs t("kvosLevinsonDurbin_G728_16s_ISfs");
        auto src = t.in<Kvo16s>("pSrc", 11, R);
        auto s0 = t.value<Kvo32s>("startOrder", 1, {{-1, kvoErrRange}, {11, kvoErrRange}});
        auto s1 = t.value<Kvo32s>("endOrder", 10);
        auto a = t.inout<Kvo16s>("pSrcDstLPC", 10, std::vector<Kvo16s>(10, 0));
        auto res = t.inout<Kvo16s>("pResidual", 1, std::vector<Kvo16s>{20000});
        auto sc = t.inout<Kvo16s>("pScale", 1, std::vector<Kvo16s>{15});
        t.run([&](const BadArgs::Call& c) {
            return kvosLevinsonDurbin_G728_16s_ISfs(c(src), c(s0), c(s1), c(a), c(res), c(sc));
        });
        // Scale outside 0..15 (as unsigned): -1 and 16.
        Kvo16s aa[10] = {}, r = 20000;
        for (Kvo16s bad : {Kvo16s{-1}, Kvo16s{16}}) {
            Kvo16s s = bad;
            EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R.data(), 1, 10, aa, &r, &s),
                      kvoErrScaleRange);
            EXPECT_EQ(s, bad);
        }
    }
    // Zero energy in pSrc[0].
    Kvo16s z[2] = {0, 0}, a[1], rc, res, sc;
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(z, 1, a, &rc, &res, &sc), kvoErrRange);
}

TEST(G728Args, Search) {
    {
        BadArgs t("kvosImpulseResponseEnergy_G728_16s");
        auto h = t.in<Kvo16s>("pSrc", 5);
        auto e = t.out<Kvo16s>("pDst", 128);
        t.run(
            [&](const BadArgs::Call& c) { return kvosImpulseResponseEnergy_G728_16s(c(h), c(e)); });
    }
    BadArgs t("kvosCodebookSearch_G728_16s");
    auto x = t.in<Kvo16s>("pSrc", 5);
    auto e = t.in<Kvo16s>("pEnergy", 128, std::vector<Kvo16s>(128, 300));
    auto sh = t.out<Kvo32s>("pShape", 1);
    auto g = t.out<Kvo32s>("pGain", 1);
    auto code = t.out<Kvo16s>("pCode", 1);
    auto rate = t.value<Kvo32s>("rate", 17, {{16, kvoErrRange}, {22, kvoErrRange}});
    t.run([&](const BadArgs::Call& c) {
        return kvosCodebookSearch_G728_16s(c(x), c(e), c(sh), c(g), c(code), c(rate));
    });
}

TEST(G728Args, Filters) {
    const std::vector<Kvo16s> coef(50, 100), weight(20, 200);
    {
        BadArgs t("kvosSyntesisFilterZeroInput_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 50, coef);
        auto x = t.inout<Kvo16s>("pSrcDst", 5);
        auto ex = t.value<Kvo32s>("srcExp", 3);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto ye = t.out<Kvo16s>("pDstExp", 1);
        auto st = t.state("pState", sizeof(KvoG728SynthesisState), [](void* p) {
            kvosSynthesisFilterInit_G728_16s(static_cast<KvoG728SynthesisState*>(p));
        });
        t.run([&](const BadArgs::Call& c) {
            return kvosSyntesisFilterZeroInput_G728_16s(c(a), c(x), c(ex), c(y), c(ye),
                                                        static_cast<KvoG728SynthesisState*>(c(st)));
        });
    }
    auto combInit = [](void* p) {
        kvosCombinedFilterInit_G728_16s(static_cast<KvoG728CombinedState*>(p));
    };
    {
        BadArgs t("kvosCombinedFilterZeroInput_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 50, coef);
        auto w = t.in<Kvo16s>("pWeight", 20, weight);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto st = t.state("pState", sizeof(KvoG728CombinedState), combInit);
        t.run([&](const BadArgs::Call& c) {
            return kvosCombinedFilterZeroInput_G728_16s(c(a), c(w), c(y),
                                                        static_cast<KvoG728CombinedState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosCombinedFilterZeroState_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 50, coef);
        auto w = t.in<Kvo16s>("pWeight", 20, weight);
        auto x = t.inout<Kvo16s>("pSrcDst", 5);
        auto ex = t.value<Kvo32s>("srcExp", 5);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto ye = t.out<Kvo16s>("pDstExp", 1);
        auto st = t.state("pState", sizeof(KvoG728CombinedState), combInit);
        t.run([&](const BadArgs::Call& c) {
            return kvosCombinedFilterZeroState_G728_16s(c(a), c(w), c(x), c(ex), c(y), c(ye),
                                                        static_cast<KvoG728CombinedState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosIIR16s_G728_16s");
        auto w = t.in<Kvo16s>("pWeight", 20, weight);
        auto x = t.in<Kvo16s>("pSrc", 8);
        auto y = t.out<Kvo16s>("pDst", 8);
        auto len = t.value<Kvo32s>("len", 8, {{0, kvoErrSize}});
        auto st = t.state("pState", sizeof(KvoG728IIRState), [](void* p) {
            kvosIIR16sInit_G728_16s(static_cast<KvoG728IIRState*>(p));
        });
        t.run([&](const BadArgs::Call& c) {
            return kvosIIR16s_G728_16s(c(w), c(x), c(y), c(len),
                                       static_cast<KvoG728IIRState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosPostFilter_G728_16s");
        auto g = t.value<Kvo16s>("gain", 14000);
        auto gl = t.value<Kvo16s>("gainLag", 2000);
        auto lag = t.value<Kvo16s>("lag", 40);
        auto tilt = t.value<Kvo16s>("tilt", -1000);
        auto a = t.in<Kvo16s>("pCoef", 20, weight);
        auto x = t.in<Kvo16s>("pSrc", 5, std::vector<Kvo16s>(45, 300), 40);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto st = t.state("pState", sizeof(KvoG728PostFilterState), [](void* p) {
            kvosPostFilterInit_G728_16s(static_cast<KvoG728PostFilterState*>(p));
        });
        t.run([&](const BadArgs::Call& c) {
            return kvosPostFilter_G728_16s(c(g), c(gl), c(lag), c(tilt), c(a), c(x), c(y),
                                           static_cast<KvoG728PostFilterState*>(c(st)));
        });
    }
    auto adInit = [](void* p) {
        kvosPostFilterAdapterStateInit_G728(static_cast<KvoG728PostFilterAdapterState*>(p));
    };
    {
        BadArgs t("kvosLPCInverseFilter_G728_16s");
        auto x = t.in<Kvo16s>("pSrc", 5);
        auto a = t.in<Kvo16s>("pCoef", 10);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto st = t.state("pState", sizeof(KvoG728PostFilterAdapterState), adInit);
        t.run([&](const BadArgs::Call& c) {
            return kvosLPCInverseFilter_G728_16s(
                c(x), c(a), c(y), static_cast<KvoG728PostFilterAdapterState*>(c(st)));
        });
    }
    {
        BadArgs t("kvosPitchPeriodExtraction_G728_16s");
        auto x = t.in<Kvo16s>("pSrc", 100, {}, 140);
        auto p = t.inout<Kvo32s>("pPitch", 1, std::vector<Kvo32s>{60});
        auto st = t.state("pState", sizeof(KvoG728PostFilterAdapterState), adInit);
        t.run([&](const BadArgs::Call& c) {
            return kvosPitchPeriodExtraction_G728_16s(
                c(x), c(p), static_cast<KvoG728PostFilterAdapterState*>(c(st)));
        });
    }
    // Size queries and Init functions: null only.
    Kvo32s n = 0;
    EXPECT_EQ(kvosSynthesisFilterGetStateSize_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosCombinedFilterGetStateSize_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosIIR16sGetStateSize_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosPostFilterGetStateSize_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosPostFilterAdapterGetStateSize_G728(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosSynthesisFilterInit_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosCombinedFilterInit_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosIIR16sInit_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosPostFilterInit_G728_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosPostFilterAdapterStateInit_G728(nullptr), kvoErrNullPtr);
    ASSERT_EQ(kvosCombinedFilterGetStateSize_G728_16s(&n), kvoOk);
    EXPECT_EQ(n, static_cast<Kvo32s>(sizeof(KvoG728CombinedState)));
    ASSERT_EQ(kvosPostFilterAdapterGetStateSize_G728(&n), kvoOk);
    EXPECT_EQ(n, static_cast<Kvo32s>(sizeof(KvoG728PostFilterAdapterState)));
}

}  // namespace
