// Argument tests of the G.728 exports: nulls first, then sizes, ranges and scale; nothing
// written on an error.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;
#define RUN(...) t.run([&](const BadArgs::Call& c) { return __VA_ARGS__; })

const std::vector<Kvo16s> kWindow(105, 20000), kCoef(50, 100), kWeight(20, 200);

// State record prepared by its Init function before every case, and its typed pointer.
template <class T>
std::function<void(void*)> init(KvoStatus (*f)(T*)) {
    return [f](void* p) { f(static_cast<T*>(p)); };
}
template <class T>
T* as(void* p) {
    return static_cast<T*>(p);
}
void winInit(void* p) {
    kvosWinHybridInit_G728_16s(kWindow.data(), 50, 20, 35, 5, 12288, static_cast<Kvo8u*>(p));
}

TEST(G728Args, HybridWindow) {
    {
        BadArgs t("kvosWinHybridGetStateSize_G728_16s");
        auto m = t.value<Kvo32s>("order", 50, {{0, kvoErrSize}});
        auto l = t.value<Kvo32s>("frameLen", 20, {{0, kvoErrSize}, {-4, kvoErrSize}});
        auto n = t.value<Kvo32s>("nonRecLen", 35, {{0, kvoErrSize}});
        auto sz = t.out<Kvo32s>("pSize", 1);
        RUN(kvosWinHybridGetStateSize_G728_16s(c(m), c(l), c(n), 5, c(sz)));
    }
    {
        BadArgs t("kvosWinHybridInit_G728_16s");
        auto w = t.in<Kvo16s>("pWindow", 105, kWindow);
        auto m = t.value<Kvo32s>("order", 50, {{51, kvoErrSize}, {0, kvoErrSize}});
        auto l = t.value<Kvo32s>("frameLen", 20, {{40, kvoErrSize}});
        auto st = t.out<Kvo8u>("pState", 400);
        RUN(kvosWinHybridInit_G728_16s(c(w), c(m), c(l), 35, 5, 12288, c(st)));
    }
    {
        BadArgs t("kvosWinHybridBlock_G728_16s");
        auto src = t.in<Kvo16s>("pSrc", 20);
        auto ex = t.in<Kvo16s>("pExp", 4, std::vector<Kvo16s>{3, 4, 5, 40});
        auto dst = t.out<Kvo16s>("pDst", 51);
        auto st = t.state("pState", 400, winInit);
        t.valid_status(kvoWarnZeroEnergy);  // 20 samples from rest cannot reach lag 50
        RUN(kvosWinHybridBlock_G728_16s(0, c(src), c(ex), c(dst), as<Kvo8u>(c(st))));
    }
    BadArgs t("kvosWinHybrid_G728_16s");
    auto src = t.in<Kvo16s>("pSrc", 20);
    auto dst = t.out<Kvo16s>("pDst", 11);
    auto st = t.state("pState", 400, winInit);
    RUN(kvosWinHybrid_G728_16s(1, c(src), c(dst), as<Kvo8u>(c(st))));
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
        RUN(kvosLevinsonDurbin_G728_16s_Sfs(c(src), c(ord), c(a), c(rc), c(res), c(sc)));
    }
    BadArgs t("kvosLevinsonDurbin_G728_16s_ISfs");
    auto src = t.in<Kvo16s>("pSrc", 11, R);
    auto s0 = t.value<Kvo32s>("startOrder", 1, {{-1, kvoErrRange}, {11, kvoErrRange}});
    auto a = t.inout<Kvo16s>("pSrcDstLPC", 10, std::vector<Kvo16s>(10, 0));
    auto res = t.inout<Kvo16s>("pResidual", 1, std::vector<Kvo16s>{20000});
    auto sc = t.inout<Kvo16s>("pScale", 1, std::vector<Kvo16s>{15});
    RUN(kvosLevinsonDurbin_G728_16s_ISfs(c(src), c(s0), 10, c(a), c(res), c(sc)));
    // Scale outside 0..15 (as unsigned): -1 and 16; zero energy in pSrc[0].
    Kvo16s aa[10] = {}, r = 20000, z[2] = {0, 0}, rc, sz;
    for (Kvo16s bad : {Kvo16s{-1}, Kvo16s{16}}) {
        Kvo16s s = bad;
        EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R.data(), 1, 10, aa, &r, &s), kvoErrScaleRange);
        EXPECT_EQ(s, bad);
    }
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(z, 1, aa, &rc, &r, &sz), kvoErrRange);
}

TEST(G728Args, Search) {
    {
        BadArgs t("kvosImpulseResponseEnergy_G728_16s");
        auto h = t.in<Kvo16s>("pSrc", 5);
        auto e = t.out<Kvo16s>("pDst", 128);
        RUN(kvosImpulseResponseEnergy_G728_16s(c(h), c(e)));
    }
    BadArgs t("kvosCodebookSearch_G728_16s");
    auto x = t.in<Kvo16s>("pSrc", 5);
    auto e = t.in<Kvo16s>("pEnergy", 128, std::vector<Kvo16s>(128, 300));
    auto sh = t.out<Kvo32s>("pShape", 1);
    auto g = t.out<Kvo32s>("pGain", 1);
    auto code = t.out<Kvo16s>("pCode", 1);
    auto rate = t.value<Kvo32s>("rate", 17, {{16, kvoErrRange}, {22, kvoErrRange}});
    RUN(kvosCodebookSearch_G728_16s(c(x), c(e), c(sh), c(g), c(code), c(rate)));
}

TEST(G728Args, Filters) {
    {
        BadArgs t("kvosSyntesisFilterZeroInput_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 50, kCoef);
        auto x = t.inout<Kvo16s>("pSrcDst", 5);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto ye = t.out<Kvo16s>("pDstExp", 1);
        auto st = t.state("pState", sizeof(KvoG728SynthesisState),
                          init(kvosSynthesisFilterInit_G728_16s));
        RUN(kvosSyntesisFilterZeroInput_G728_16s(c(a), c(x), 3, c(y), c(ye),
                                                 as<KvoG728SynthesisState>(c(st))));
    }
    const auto combInit = init(kvosCombinedFilterInit_G728_16s);
    {
        BadArgs t("kvosCombinedFilterZeroInput_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 50, kCoef);
        auto w = t.in<Kvo16s>("pWeight", 20, kWeight);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto st = t.state("pState", sizeof(KvoG728CombinedState), combInit);
        RUN(kvosCombinedFilterZeroInput_G728_16s(c(a), c(w), c(y),
                                                 as<KvoG728CombinedState>(c(st))));
    }
    {
        BadArgs t("kvosCombinedFilterZeroState_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 50, kCoef);
        auto w = t.in<Kvo16s>("pWeight", 20, kWeight);
        auto x = t.inout<Kvo16s>("pSrcDst", 5);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto ye = t.out<Kvo16s>("pDstExp", 1);
        auto st = t.state("pState", sizeof(KvoG728CombinedState), combInit);
        RUN(kvosCombinedFilterZeroState_G728_16s(c(a), c(w), c(x), 5, c(y), c(ye),
                                                 as<KvoG728CombinedState>(c(st))));
    }
    {
        BadArgs t("kvosIIR16s_G728_16s");
        auto w = t.in<Kvo16s>("pWeight", 20, kWeight);
        auto x = t.in<Kvo16s>("pSrc", 8);
        auto y = t.out<Kvo16s>("pDst", 8);
        auto len = t.value<Kvo32s>("len", 8, {{0, kvoErrSize}});
        auto st = t.state("pState", sizeof(KvoG728IIRState), init(kvosIIR16sInit_G728_16s));
        RUN(kvosIIR16s_G728_16s(c(w), c(x), c(y), c(len), as<KvoG728IIRState>(c(st))));
    }
    {
        BadArgs t("kvosPostFilter_G728_16s");
        auto a = t.in<Kvo16s>("pCoef", 20, kWeight);
        auto x = t.in<Kvo16s>("pSrc", 5, std::vector<Kvo16s>(45, 300), 40);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto st =
            t.state("pState", sizeof(KvoG728PostFilterState), init(kvosPostFilterInit_G728_16s));
        RUN(kvosPostFilter_G728_16s(14000, 2000, 40, -1000, c(a), c(x), c(y),
                                    as<KvoG728PostFilterState>(c(st))));
    }
    const auto adInit = init(kvosPostFilterAdapterStateInit_G728);
    {
        BadArgs t("kvosLPCInverseFilter_G728_16s");
        auto x = t.in<Kvo16s>("pSrc", 5);
        auto a = t.in<Kvo16s>("pCoef", 10);
        auto y = t.out<Kvo16s>("pDst", 5);
        auto st = t.state("pState", sizeof(KvoG728PostFilterAdapterState), adInit);
        RUN(kvosLPCInverseFilter_G728_16s(c(x), c(a), c(y),
                                          as<KvoG728PostFilterAdapterState>(c(st))));
    }
    {
        BadArgs t("kvosPitchPeriodExtraction_G728_16s");
        auto x = t.in<Kvo16s>("pSrc", 100, {}, 140);
        auto p = t.inout<Kvo32s>("pPitch", 1, std::vector<Kvo32s>{60});
        auto st = t.state("pState", sizeof(KvoG728PostFilterAdapterState), adInit);
        RUN(kvosPitchPeriodExtraction_G728_16s(c(x), c(p),
                                               as<KvoG728PostFilterAdapterState>(c(st))));
    }
    // Size queries and Init functions: null only.
    auto nulls = [](auto... f) { return ((f(nullptr) == kvoErrNullPtr) + ...); };
    EXPECT_EQ(
        10, nulls(kvosSynthesisFilterGetStateSize_G728_16s, kvosCombinedFilterGetStateSize_G728_16s,
                  kvosIIR16sGetStateSize_G728_16s, kvosPostFilterGetStateSize_G728_16s,
                  kvosPostFilterAdapterGetStateSize_G728, kvosSynthesisFilterInit_G728_16s,
                  kvosCombinedFilterInit_G728_16s, kvosIIR16sInit_G728_16s,
                  kvosPostFilterInit_G728_16s, kvosPostFilterAdapterStateInit_G728));
}

}  // namespace
