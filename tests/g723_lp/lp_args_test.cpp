// Argument tests of the G.723.1 LP, filter and gain exports: every null
// pointer and every bad value in the documented order; a failed call writes
// nothing.
#include <gtest/gtest.h>

#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

using kvosc::test::BadArgs;

namespace {

std::vector<Kvo16s> ordered_lsf() {
    std::vector<Kvo16s> v(10);
    for (int i = 0; i < 10; ++i) v[i] = Kvo16s(2000 + 2800 * i);
    return v;
}

TEST(G723LpArgs, LsfSteps) {
    {
        BadArgs t("kvosLSFDecode_G723_16s");
        auto idx = t.value<Kvo32s>("index", 0x010203);
        auto prev = t.in<Kvo16s>("pPrevLSF", 10, ordered_lsf());
        auto er = t.value<Kvo32s>("erasure", 0);
        auto out = t.out<Kvo16s>("pLSF", 10);
        t.run([&](const BadArgs::Call& c) {
            return kvosLSFDecode_G723_16s(c(idx), c(prev), c(er), c(out));
        });
    }
    {
        BadArgs t("kvosLSFQuant_G723_16s32s");
        auto lsf = t.in<Kvo16s>("pLSF", 10, ordered_lsf());
        auto prev = t.in<Kvo16s>("pPrevLSF", 10, ordered_lsf());
        auto idx = t.out<Kvo32s>("pIndex", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosLSFQuant_G723_16s32s(c(lsf), c(prev), c(idx));
        });
    }
}

TEST(G723LpArgs, Filters) {
    {
        BadArgs t("kvosHighPassFilter_G723_16s");
        auto src = t.in<Kvo16s>("pSrc", 240);
        auto dst = t.out<Kvo16s>("pDst", 240);
        auto mem = t.state("pMem", sizeof(KvoHighPassStateG723),
                           [](void* p) { *static_cast<KvoHighPassStateG723*>(p) = {0, 0}; });
        t.run([&](const BadArgs::Call& c) {
            return kvosHighPassFilter_G723_16s(c(src), c(dst),
                                               static_cast<KvoHighPassStateG723*>(c(mem)));
        });
    }
    auto clear = [](void* p) { *static_cast<KvoIIRMemG723*>(p) = {}; };
    std::vector<Kvo16s> coef(20, 100);
    {
        BadArgs t("kvosIIR16s_G723_16s32s");
        auto cf = t.in<Kvo16s>("pCoef", 20, coef);
        auto src = t.in<Kvo16s>("pSrc", 60);
        auto dst = t.out<Kvo32s>("pDst", 60);
        auto mem = t.state("pMem", sizeof(KvoIIRMemG723), clear);
        t.run([&](const BadArgs::Call& c) {
            return kvosIIR16s_G723_16s32s(c(cf), c(src), c(dst),
                                          static_cast<KvoIIRMemG723*>(c(mem)));
        });
    }
    {
        BadArgs t("kvosIIR16s_G723_16s_I");
        auto cf = t.in<Kvo16s>("pCoef", 20, coef);
        auto sd = t.inout<Kvo16s>("pSrcDst", 60);
        auto mem = t.state("pMem", sizeof(KvoIIRMemG723), clear);
        t.run([&](const BadArgs::Call& c) {
            return kvosIIR16s_G723_16s_I(c(cf), c(sd), static_cast<KvoIIRMemG723*>(c(mem)));
        });
    }
    {
        BadArgs t("kvosIIR16s_G723_32s16s_Sfs");
        auto cf = t.in<Kvo16s>("pCoef", 20, coef);
        auto src = t.in<Kvo32s>("pSrc", 60);
        auto sf = t.value<Kvo32s>("scaleFactor", 1, {{-1, kvoErrScaleRange}});
        auto dst = t.out<Kvo16s>("pDst", 60);
        auto mem = t.state("pMem", sizeof(KvoIIRMemG723), clear);
        t.run([&](const BadArgs::Call& c) {
            return kvosIIR16s_G723_32s16s_Sfs(c(cf), c(src), c(sf), c(dst),
                                              static_cast<KvoIIRMemG723*>(c(mem)));
        });
    }
    {
        BadArgs t("kvosSynthesisFilter_G723_16s");
        auto lpc = t.in<Kvo16s>("pLPC", 10, std::vector<Kvo16s>(10, 300));
        auto src = t.in<Kvo16s>("pSrc", 60);
        auto mem = t.inout<Kvo16s>("pMem", 10);
        auto dst = t.out<Kvo16s>("pDst", 60);
        t.run([&](const BadArgs::Call& c) {
            return kvosSynthesisFilter_G723_16s(c(lpc), c(src), c(mem), c(dst));
        });
    }
    {
        BadArgs t("kvosSynthesisFilter_G723_16s32s");
        auto cf = t.in<Kvo16s>("pCoef", 11, std::vector<Kvo16s>(11, 300));
        auto src = t.in<Kvo16s>("pSrc", 60);
        auto dst = t.out<Kvo32s>("pDst", 60);
        auto mem = t.inout<Kvo16s>("pMem", 10);
        t.run([&](const BadArgs::Call& c) {
            return kvosSynthesisFilter_G723_16s32s(c(cf), c(src), c(dst), c(mem));
        });
    }
    {
        BadArgs t("kvosHarmonicNoiseSubtract_G723_16s_I");
        auto val = t.value<Kvo16s>("val", 5000);
        auto lag = t.value<Kvo32s>("lag", 40);
        auto src = t.in<Kvo16s>("pSrc", 60, {}, 40);
        auto sd = t.inout<Kvo16s>("pSrcDst", 60);
        t.run([&](const BadArgs::Call& c) {
            return kvosHarmonicNoiseSubtract_G723_16s_I(c(val), c(lag), c(src), c(sd));
        });
    }
}

TEST(G723LpArgs, PostFilter) {
    {
        BadArgs t("kvosPitchPostFilter_G723_16s");
        auto lag = t.value<Kvo16s>("lag", 60, {{17, kvoErrSize}, {146, kvoErrSize}});
        auto src = t.in<Kvo16s>("pSrc", 240, {}, 145);
        auto d = t.out<Kvo16s>("pDelay", 1);
        auto g = t.out<Kvo16s>("pGain", 1);
        auto s = t.out<Kvo16s>("pScale", 1);
        auto sf = t.value<Kvo32s>("subframe", 1, {{-1, kvoErrSize}, {4, kvoErrSize}});
        auto rate = t.value<KvoSpeechRate>("rate", 4, {{3, kvoErrSize}, {5, kvoErrSize}});
        t.run([&](const BadArgs::Call& c) {
            return kvosPitchPostFilter_G723_16s(c(lag), c(src), c(d), c(g), c(s), c(sf),
                                                c(rate));
        });
    }
    {
        BadArgs t("kvosTiltCompensation_G723_32s16s");
        auto val = t.value<Kvo16s>("val", -2000);
        auto src = t.in<Kvo32s>("pSrc", 61);
        auto dst = t.out<Kvo16s>("pDst", 60);
        t.run([&](const BadArgs::Call& c) {
            return kvosTiltCompensation_G723_32s16s(c(val), c(src), c(dst));
        });
    }
    {
        BadArgs t("kvosGainControl_G723_16s_I");
        auto en = t.value<Kvo32s>("energy", 100000, {{-1, kvoErrBadArg}});
        auto sd = t.inout<Kvo16s>("pSrcDst", 60);
        auto g = t.inout<Kvo16s>("pGain", 1, {4096});
        t.run([&](const BadArgs::Call& c) {
            return kvosGainControl_G723_16s_I(c(en), c(sd), c(g));
        });
    }
}

}  // namespace
