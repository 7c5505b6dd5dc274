// Argument checks of every post-processing export (nulls, sizes, ranges; nothing written on
// refusal or outside the buffers), and no allocation on the per-subframe path.
#include <gtest/gtest.h>

#include <vector>

#include "kvosc.h"
#include "support/alloc_count.h"
#include "support/badargs.h"

using kvosc::test::BadArgs;

namespace {

using St = KvoPhaseDispersionState_G729D;

St* rec(void* p) {
    return static_cast<St*>(p);
}

std::vector<Kvo16s> unitLpc(int sets) {
    std::vector<Kvo16s> a(11 * sets, 0);
    for (int s = 0; s < sets; ++s) a[11 * s] = 4096;
    return a;
}

}  // namespace

TEST(PostArgs, LongTermPostFilter) {
    BadArgs t("kvosLongTermPostFilter_G729_16s");
    auto gamma = t.value<Kvo16s>("gammaFactor", 16384,
                                 {{16385, kvoErrRange}, {-1, kvoErrRange}, {-32768, kvoErrRange}});
    auto delay = t.value<Kvo32s>(
        "delay", 60,
        {{17, kvoErrRange}, {144, kvoErrRange}, {-60, kvoErrRange}, {0x10000 + 60, kvoErrRange}});
    auto src = t.in<Kvo16s>("pSrc", 40, {}, 152);
    auto dst = t.out<Kvo16s>("pDst", 40);
    auto voice = t.out<Kvo16s>("pResultVoice", 1);
    t.run([&](const BadArgs::Call& c) {
        return kvosLongTermPostFilter_G729_16s(c(gamma), c(delay), c(src), c(dst), c(voice));
    });
}

TEST(PostArgs, LongTermPostFilterA) {
    BadArgs t("kvosLongTermPostFilter_G729A_16s");
    auto delay = t.value<Kvo32s>(
        "delay", 145, {{17, kvoErrRange}, {146, kvoErrRange}, {0x8000 + 60, kvoErrRange}});
    auto spch = t.in<Kvo16s>("pSrcSpch", 40, {}, 10);
    auto lpc = t.in<Kvo16s>("pSrcLPC", 11, unitLpc(1));
    auto res = t.inout<Kvo16s>("pSrcDstResidual", 194);
    auto dst = t.out<Kvo16s>("pDst", 40);
    t.run([&](const BadArgs::Call& c) {
        return kvosLongTermPostFilter_G729A_16s(c(delay), c(spch), c(lpc), c(res), c(dst));
    });
}

TEST(PostArgs, LongTermPostFilterB) {
    BadArgs t("kvosLongTermPostFilter_G729B_16s");
    auto delay = t.value<Kvo32s>(
        "delay", 143,
        {{144, kvoErrRange}, {0xffff, kvoErrRange}, {-1, kvoErrRange}, {17, kvoErrRange}});
    auto spch = t.in<Kvo16s>("pSrcSpch", 40, {}, 10);
    auto lpc = t.in<Kvo16s>("pSrcLPC", 11, unitLpc(1));
    auto res = t.inout<Kvo16s>("pSrcDstResidual", 194);
    auto dst = t.out<Kvo16s>("pDst", 40);
    auto voice = t.out<Kvo16s>("pVoice", 1);
    auto type = t.value<Kvo16s>("frameType", 1, {{-1, kvoErrRange}, {3, kvoErrRange}});
    t.run([&](const BadArgs::Call& c) {
        return kvosLongTermPostFilter_G729B_16s(c(delay), c(spch), c(lpc), c(res), c(dst), c(voice),
                                                c(type));
    });
    // Silence and SID frames accept any delay below 144, 0 included.
    Kvo16s sp[50] = {}, lp[11] = {4096}, rs[194] = {}, ou[40], vo;
    EXPECT_EQ(kvosLongTermPostFilter_G729B_16s(0, sp + 10, lp, rs, ou, &vo, 2), kvoOk);
}

TEST(PostArgs, ShortTermFilterAndTilt) {
    {
        BadArgs t("kvosShortTermPostFilter_G729_16s");
        auto lpc = t.in<Kvo16s>("pSrcLPC", 11, unitLpc(1));
        std::vector<Kvo16s> x(40);
        for (int n = 0; n < 40; ++n) x[n] = static_cast<Kvo16s>(n * 1500 - 30000);
        auto src = t.in<Kvo16s>("pSrc", 40, x);
        auto dst = t.inout<Kvo16s>("pDst", 40, std::vector<Kvo16s>(50, 7), 10);
        auto imp = t.out<Kvo16s>("pDstImpulseResponse", 20);
        t.run([&](const BadArgs::Call& c) {
            return kvosShortTermPostFilter_G729_16s(c(lpc), c(src), c(dst), c(imp));
        });
    }
    {
        BadArgs t("kvosTiltCompensation_G729_16s");
        auto imp = t.in<Kvo16s>("pSrcImpulseResponse", 20);
        auto io = t.inout<Kvo16s>("pSrcDst", 40, {}, 1);
        t.run([&](const BadArgs::Call& c) { return kvosTiltCompensation_G729_16s(c(imp), c(io)); });
    }
    {
        BadArgs t("kvosTiltCompensation_G729A_16s");
        auto lpc = t.in<Kvo16s>("pSrcLPC", 22);
        auto io = t.inout<Kvo16s>("pSrcDst", 40, {}, 1);
        t.run(
            [&](const BadArgs::Call& c) { return kvosTiltCompensation_G729A_16s(c(lpc), c(io)); });
    }
}

TEST(PostArgs, PreemphasisAndGainControls) {
    for (int inPlace = 0; inPlace < 2; ++inPlace) {
        BadArgs t(inPlace ? "kvosPreemphasize_G729A_16s_I" : "kvosPreemphasize_G729A_16s");
        auto gamma = t.value<Kvo16s>("gamma", -20000);
        auto src = t.in<Kvo16s>("pSrc", 40);
        auto io = t.inout<Kvo16s>(inPlace ? "pSrcDst" : "pDst", 40);
        auto len = t.value<Kvo32s>("len", 40, {{0, kvoErrSize}, {INT32_MIN, kvoErrSize}});
        auto mem = t.inout<Kvo16s>("pMem", 1);
        if (inPlace) t.optional(src);  // not an argument of the in-place form
        t.run([&](const BadArgs::Call& c) {
            return inPlace ? kvosPreemphasize_G729A_16s_I(c(gamma), c(io), c(len), c(mem))
                           : kvosPreemphasize_G729A_16s(c(gamma), c(src), c(io), c(len), c(mem));
        });
    }
    for (int annexA = 0; annexA < 2; ++annexA) {
        BadArgs t(annexA ? "kvosGainControl_G729A_16s_I" : "kvosGainControl_G729_16s_I");
        auto src = t.in<Kvo16s>("pSrc", 40);
        auto io = t.inout<Kvo16s>("pSrcDst", 40);
        auto gain = t.inout<Kvo16s>("pGain", 1);
        t.run([&](const BadArgs::Call& c) {
            return annexA ? kvosGainControl_G729A_16s_I(c(src), c(io), c(gain))
                          : kvosGainControl_G729_16s_I(c(src), c(io), c(gain));
        });
    }
    auto init = [](void* p) { kvosPhaseDispersionInit_G729D_16s(rec(p)); };
    {
        BadArgs t("kvosPhaseDispersion_G729D_16s");
        auto exc = t.in<Kvo16s>("pSrcExcSignal", 40);
        auto out = t.out<Kvo16s>("pDstFltExcSignal", 40);
        auto inno = t.inout<Kvo16s>("pSrcDstInnovation", 40);
        auto st = t.state("pState", 20, init);
        t.run([&](const BadArgs::Call& c) {
            return kvosPhaseDispersion_G729D_16s(c(exc), c(out), 400, 11000, c(inno), rec(c(st)));
        });
    }
    BadArgs t("kvosPhaseDispersionUpdate_G729D_16s");
    auto st = t.state("pState", 20, init);
    t.run([&](const BadArgs::Call& c) {
        return kvosPhaseDispersionUpdate_G729D_16s(11000, 400, rec(c(st)));
    });
    EXPECT_EQ(kvosPhaseDispersionInit_G729D_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosPhaseDispersionGetStateSize_G729D_16s(nullptr), kvoErrNullPtr);
}

// A whole post-filter subframe (long-term, short-term, tilt, gain control) allocates nothing.
TEST(PostArgs, SubframeAllocatesNothing) {
    ASSERT_TRUE(kvosc::test::allocation_counting_available());
    std::vector<Kvo16s> res(152 + 40), out(50, 0), imp(20), lpc = unitLpc(1);
    for (size_t i = 0; i < res.size(); ++i) res[i] = static_cast<Kvo16s>((i % 37) * 300 - 5000);
    Kvo16s voice, gain = 16384;
    const long n = kvosc::test::allocations_during([&] {
        kvosLongTermPostFilter_G729_16s(16384, 37, res.data() + 152, out.data() + 10, &voice);
        kvosShortTermPostFilter_G729_16s(lpc.data(), out.data() + 10, out.data() + 10, imp.data());
        kvosTiltCompensation_G729_16s(imp.data(), out.data() + 10);
        kvosGainControl_G729_16s_I(res.data() + 152, out.data() + 10, &gain);
    });
    EXPECT_EQ(n, 0);
}
