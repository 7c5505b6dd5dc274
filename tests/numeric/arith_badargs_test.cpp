// Argument checks of the exported arithmetic: every null pointer, lengths 0
// and -1, negative scales, the documented order of the checks, and that a
// refused call leaves every output as it was.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "kvosc.h"

namespace {

// Buffers of one call: inputs, outputs and in-out values, all canary-filled.
struct Args {
    Kvo16s in1[16], in2[16], out16[16], io16[16];
    Kvo32s out32[16], io32[16], scale, sfs;
    Kvo16s seed, pad = 0;  // no padding bytes: the record is compared with memcmp
    Args() {
        for (int i = 0; i < 16; ++i) in1[i] = in2[i] = Kvo16s(1000 * i - 7000);
        std::memset(out16, 0x5a, sizeof out16);
        std::memset(io16, 0x5a, sizeof io16);
        std::memset(out32, 0x5a, sizeof out32);
        std::memset(io32, 0x5a, sizeof io32);
        std::memset(&sfs, 0x5a, sizeof sfs);
        scale = 2;
        seed = 11111;
    }
};

struct Case {
    const char* what;
    KvoStatus want;
    std::function<KvoStatus(Args&)> call;
    bool negScale = false;  // the value behind pScale starts negative
};

void runCases(const char* fn, const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << fn << ": " << c.what);
        Args a;
        if (c.negScale) a.scale = -1;
        Args before = a;
        EXPECT_EQ(c.call(a), c.want);
        EXPECT_EQ(std::memcmp(&a, &before, sizeof a), 0) << "an output was written";
    }
}

}  // namespace

TEST(ArithBadArgs, ElementWiseProducts) {
    runCases("Mul_NR_Sfs", {
        {"null src1", kvoErrNullPtr, [](Args& a) { return kvosMul_NR_16s_Sfs(nullptr, a.in2, a.out16, 4, 1); }},
        {"null src2", kvoErrNullPtr, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, nullptr, a.out16, 4, 1); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, a.in2, nullptr, 4, 1); }},
        {"null before len", kvoErrNullPtr, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, a.in2, nullptr, 0, -1); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, a.in2, a.out16, 0, 1); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, a.in2, a.out16, -1, 1); }},
        {"len before scale", kvoErrSize, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, a.in2, a.out16, 0, -1); }},
        {"scale -1", kvoErrScaleRange, [](Args& a) { return kvosMul_NR_16s_Sfs(a.in1, a.in2, a.out16, 4, -1); }},
    });
    runCases("Mul_NR_ISfs", {
        {"null src", kvoErrNullPtr, [](Args& a) { return kvosMul_NR_16s_ISfs(nullptr, a.io16, 4, 1); }},
        {"null srcdst", kvoErrNullPtr, [](Args& a) { return kvosMul_NR_16s_ISfs(a.in1, nullptr, 4, 1); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosMul_NR_16s_ISfs(a.in1, a.io16, 0, 1); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosMul_NR_16s_ISfs(a.in1, a.io16, -1, -1); }},
        {"scale -1", kvoErrScaleRange, [](Args& a) { return kvosMul_NR_16s_ISfs(a.in1, a.io16, 4, -1); }},
    });
    runCases("MulC_NR_Sfs", {
        {"null src", kvoErrNullPtr, [](Args& a) { return kvosMulC_NR_16s_Sfs(nullptr, 3, a.out16, 4, 1); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosMulC_NR_16s_Sfs(a.in1, 3, nullptr, 0, 1); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosMulC_NR_16s_Sfs(a.in1, 3, a.out16, 0, -1); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosMulC_NR_16s_Sfs(a.in1, 3, a.out16, -1, 1); }},
        {"scale -1", kvoErrScaleRange, [](Args& a) { return kvosMulC_NR_16s_Sfs(a.in1, 3, a.out16, 4, -1); }},
    });
    runCases("MulC_NR_ISfs", {
        {"null srcdst", kvoErrNullPtr, [](Args&) { return kvosMulC_NR_16s_ISfs(3, nullptr, 0, -1); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosMulC_NR_16s_ISfs(3, a.io16, 0, -1); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosMulC_NR_16s_ISfs(3, a.io16, -1, 1); }},
        {"scale -1", kvoErrScaleRange, [](Args& a) { return kvosMulC_NR_16s_ISfs(3, a.io16, 4, -1); }},
    });
    // The weighted powers test the scale before the length.
    runCases("MulPowerC_NR", {
        {"null src", kvoErrNullPtr, [](Args& a) { return kvosMulPowerC_NR_16s_Sfs(nullptr, 3, a.out16, 4, 15); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosMulPowerC_NR_16s_Sfs(a.in1, 3, nullptr, 0, -1); }},
        {"scale before len", kvoErrScaleRange, [](Args& a) { return kvosMulPowerC_NR_16s_Sfs(a.in1, 3, a.out16, 0, -1); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosMulPowerC_NR_16s_Sfs(a.in1, 3, a.out16, 0, 15); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosMulPowerC_NR_16s_Sfs(a.in1, 3, a.out16, -1, 15); }},
    });
}

TEST(ArithBadArgs, Interpolations) {
    runCases("Interpolate", {
        {"null src1", kvoErrNullPtr, [](Args& a) { return kvosInterpolate_G729_16s(nullptr, a.in2, a.out16, 4); }},
        {"null src2", kvoErrNullPtr, [](Args& a) { return kvosInterpolate_G729_16s(a.in1, nullptr, a.out16, 4); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosInterpolate_G729_16s(a.in1, a.in2, nullptr, 0); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosInterpolate_G729_16s(a.in1, a.in2, a.out16, 0); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosInterpolate_G729_16s(a.in1, a.in2, a.out16, -1); }},
    });
    using Fn = KvoStatus (*)(const Kvo16s*, Kvo16s, const Kvo16s*, Kvo16s, Kvo16s*, Kvo32s, Kvo32s);
    for (Fn f : {Fn(kvosInterpolateC_G729_16s_Sfs), Fn(kvosInterpolateC_NR_G729_16s_Sfs)}) {
        runCases(f == Fn(kvosInterpolateC_G729_16s_Sfs) ? "InterpolateC" : "InterpolateC_NR", {
            {"null src1", kvoErrNullPtr, [f](Args& a) { return f(nullptr, 1, a.in2, 1, a.out16, 4, 1); }},
            {"null src2", kvoErrNullPtr, [f](Args& a) { return f(a.in1, 1, nullptr, 1, a.out16, 4, 1); }},
            {"null dst", kvoErrNullPtr, [f](Args& a) { return f(a.in1, 1, a.in2, 1, nullptr, 0, -1); }},
            {"scale before len", kvoErrScaleRange, [f](Args& a) { return f(a.in1, 1, a.in2, 1, a.out16, 0, -1); }},
            {"len 0", kvoErrSize, [f](Args& a) { return f(a.in1, 1, a.in2, 1, a.out16, 0, 1); }},
            {"len -1", kvoErrSize, [f](Args& a) { return f(a.in1, 1, a.in2, 1, a.out16, -1, 1); }},
        });
    }
}

TEST(ArithBadArgs, ScalingAndDotProducts) {
    runCases("AutoScale", {
        {"null src", kvoErrNullPtr, [](Args& a) { return kvosAutoScale_16s(nullptr, a.out16, 4, &a.scale); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosAutoScale_16s(a.in1, nullptr, 4, &a.scale); }},
        {"null scale", kvoErrNullPtr, [](Args& a) { return kvosAutoScale_16s(a.in1, a.out16, 0, nullptr); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosAutoScale_16s(a.in1, a.out16, 0, &a.scale); }, true},
        {"len -1", kvoErrSize, [](Args& a) { return kvosAutoScale_16s(a.in1, a.out16, -1, &a.scale); }},
        {"negative scale", kvoErrScaleRange, [](Args& a) { return kvosAutoScale_16s(a.in1, a.out16, 4, &a.scale); }, true},
    });
    runCases("AutoScale_I", {
        {"null srcdst", kvoErrNullPtr, [](Args& a) { return kvosAutoScale_16s_I(nullptr, 4, &a.scale); }},
        {"null scale", kvoErrNullPtr, [](Args& a) { return kvosAutoScale_16s_I(a.io16, 4, nullptr); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosAutoScale_16s_I(a.io16, 0, &a.scale); }, true},
        {"len -1", kvoErrSize, [](Args& a) { return kvosAutoScale_16s_I(a.io16, -1, &a.scale); }},
        {"negative scale", kvoErrScaleRange, [](Args& a) { return kvosAutoScale_16s_I(a.io16, 4, &a.scale); }, true},
    });
    runCases("DotProdAutoScale", {
        {"null src1", kvoErrNullPtr, [](Args& a) { return kvosDotProdAutoScale_16s32s_Sfs(nullptr, a.in2, 4, a.out32, &a.sfs); }},
        {"null src2", kvoErrNullPtr, [](Args& a) { return kvosDotProdAutoScale_16s32s_Sfs(a.in1, nullptr, 4, a.out32, &a.sfs); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosDotProdAutoScale_16s32s_Sfs(a.in1, a.in2, 4, nullptr, &a.sfs); }},
        {"null sfs", kvoErrNullPtr, [](Args& a) { return kvosDotProdAutoScale_16s32s_Sfs(a.in1, a.in2, 0, a.out32, nullptr); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosDotProdAutoScale_16s32s_Sfs(a.in1, a.in2, 0, a.out32, &a.sfs); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosDotProdAutoScale_16s32s_Sfs(a.in1, a.in2, -1, a.out32, &a.sfs); }},
    });
    runCases("DotProd_G729A", {
        {"null src1", kvoErrNullPtr, [](Args& a) { return kvosDotProd_G729A_16s32s(nullptr, a.in2, 4, a.out32); }},
        {"null src2", kvoErrNullPtr, [](Args& a) { return kvosDotProd_G729A_16s32s(a.in1, nullptr, 4, a.out32); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosDotProd_G729A_16s32s(a.in1, a.in2, 0, nullptr); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosDotProd_G729A_16s32s(a.in1, a.in2, 0, a.out32); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosDotProd_G729A_16s32s(a.in1, a.in2, -1, a.out32); }},
    });
}

TEST(ArithBadArgs, RootsWindowsAndNoise) {
    runCases("InvSqrt", {
        {"null", kvoErrNullPtr, [](Args&) { return kvosInvSqrt_32s_I(nullptr, 0); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosInvSqrt_32s_I(a.io32, 0); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosInvSqrt_32s_I(a.io32, -1); }},
    });
    runCases("LagWindow", {
        {"null", kvoErrNullPtr, [](Args&) { return kvosLagWindow_G729_32s_I(nullptr, 13); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosLagWindow_G729_32s_I(a.io32, 0); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosLagWindow_G729_32s_I(a.io32, -1); }},
        {"len 13", kvoErrRange, [](Args& a) { return kvosLagWindow_G729_32s_I(a.io32, 13); }},
    });
    runCases("RandomNoiseExcitation", {
        {"null seed", kvoErrNullPtr, [](Args& a) { return kvosRandomNoiseExcitation_G729B_16s(nullptr, a.out16, 4); }},
        {"null dst", kvoErrNullPtr, [](Args& a) { return kvosRandomNoiseExcitation_G729B_16s(&a.seed, nullptr, 0); }},
        {"len 0", kvoErrSize, [](Args& a) { return kvosRandomNoiseExcitation_G729B_16s(&a.seed, a.out16, 0); }},
        {"len -1", kvoErrSize, [](Args& a) { return kvosRandomNoiseExcitation_G729B_16s(&a.seed, a.out16, -1); }},
    });
}
