// Argument checks of the exported arithmetic: every null pointer, lengths 0
// and -1, negative scales, the documented order of the checks, and that a
// refused call leaves every buffer as it was.
#include <gtest/gtest.h>

#include <cstring>

#include "kvosc.h"

namespace {

// Buffers of one call, canary-filled; no padding bytes, the record is
// compared with memcmp.
struct Args {
    Kvo16s in1[16], in2[16], out16[16], io16[16];
    Kvo32s out32[16], io32[16], scale, sfs;
    Kvo16s seed, pad = 0;
    Args() {
        std::memset(this, 0x5a, sizeof *this);
        scale = 2;
    }
};

// One argument set: the pointer at index nullAt (if any) is replaced by null.
struct Bad {
    int nullAt;
    Kvo32s len, sf;
    template <class T>
    T* p(int i, T* ptr) const {
        return i == nullAt ? nullptr : ptr;
    }
};

// Runs the standard cases of a function with nPtr pointers: each pointer null
// (also together with a bad length and scale), lengths 0 and -1, and, when the
// function takes a scale, a negative one, with the length-versus-scale order
// given by scaleFirst.  The scale goes either as an argument or behind pScale.
template <class Call>
void checkArgs(const char* fn, int nPtr, bool hasScale, bool scaleFirst, Call call) {
    struct Row {
        Bad b;
        KvoStatus want;
    } rows[16];
    int n = 0;
    for (int i = 0; i < nPtr; ++i) {
        rows[n++] = {{i, 4, 1}, kvoErrNullPtr};
        rows[n++] = {{i, 0, -1}, kvoErrNullPtr};
    }
    rows[n++] = {{-1, 0, 1}, kvoErrSize};
    rows[n++] = {{-1, -1, 1}, kvoErrSize};
    if (hasScale) {
        rows[n++] = {{-1, 4, -1}, kvoErrScaleRange};
        rows[n++] = {{-1, 0, -1}, scaleFirst ? kvoErrScaleRange : kvoErrSize};
    }
    for (int k = 0; k < n; ++k) {
        const Row& r = rows[k];
        SCOPED_TRACE(testing::Message() << fn << ": null at " << r.b.nullAt << ", len " << r.b.len
                                        << ", scale " << r.b.sf);
        Args a;
        a.scale = r.b.sf;  // for the functions that read the scale through a pointer
        const Args before = a;
        EXPECT_EQ(call(a, r.b), r.want);
        EXPECT_EQ(std::memcmp(&a, &before, sizeof a), 0) << "a buffer was written";
    }
}

}  // namespace

TEST(ArithBadArgs, EveryExport) {
    checkArgs("Mul_NR_Sfs", 3, true, false, [](Args& a, const Bad& b) {
        return kvosMul_NR_16s_Sfs(b.p(0, a.in1), b.p(1, a.in2), b.p(2, a.out16), b.len, b.sf);
    });
    checkArgs("Mul_NR_ISfs", 2, true, false, [](Args& a, const Bad& b) {
        return kvosMul_NR_16s_ISfs(b.p(0, a.in1), b.p(1, a.io16), b.len, b.sf);
    });
    checkArgs("MulC_NR_Sfs", 2, true, false, [](Args& a, const Bad& b) {
        return kvosMulC_NR_16s_Sfs(b.p(0, a.in1), 3, b.p(1, a.out16), b.len, b.sf);
    });
    checkArgs("MulC_NR_ISfs", 1, true, false, [](Args& a, const Bad& b) {
        return kvosMulC_NR_16s_ISfs(3, b.p(0, a.io16), b.len, b.sf);
    });
    checkArgs("MulPowerC_NR", 2, true, true, [](Args& a, const Bad& b) {
        return kvosMulPowerC_NR_16s_Sfs(b.p(0, a.in1), 3, b.p(1, a.out16), b.len, b.sf);
    });
    checkArgs("AutoScale", 3, true, false, [](Args& a, const Bad& b) {
        return kvosAutoScale_16s(b.p(0, a.in1), b.p(1, a.out16), b.len, b.p(2, &a.scale));
    });
    checkArgs("AutoScale_I", 2, true, false, [](Args& a, const Bad& b) {
        return kvosAutoScale_16s_I(b.p(0, a.io16), b.len, b.p(1, &a.scale));
    });
    checkArgs("DotProdAutoScale", 4, false, false, [](Args& a, const Bad& b) {
        return kvosDotProdAutoScale_16s32s_Sfs(b.p(0, a.in1), b.p(1, a.in2), b.len, b.p(2, a.out32),
                                               b.p(3, &a.sfs));
    });
    checkArgs("DotProd_G729A", 3, false, false, [](Args& a, const Bad& b) {
        return kvosDotProd_G729A_16s32s(b.p(0, a.in1), b.p(1, a.in2), b.len, b.p(2, a.out32));
    });
    checkArgs("InvSqrt", 1, false, false,
              [](Args& a, const Bad& b) { return kvosInvSqrt_32s_I(b.p(0, a.io32), b.len); });
    checkArgs("Interpolate", 3, false, false, [](Args& a, const Bad& b) {
        return kvosInterpolate_G729_16s(b.p(0, a.in1), b.p(1, a.in2), b.p(2, a.out16), b.len);
    });
    // The weighted interpolations test the scale before the length.
    checkArgs("InterpolateC", 3, true, true, [](Args& a, const Bad& b) {
        return kvosInterpolateC_G729_16s_Sfs(b.p(0, a.in1), 1, b.p(1, a.in2), 1, b.p(2, a.out16),
                                             b.len, b.sf);
    });
    checkArgs("InterpolateC_NR", 3, true, true, [](Args& a, const Bad& b) {
        return kvosInterpolateC_NR_G729_16s_Sfs(b.p(0, a.in1), 1, b.p(1, a.in2), 1, b.p(2, a.out16),
                                                b.len, b.sf);
    });
    checkArgs("LagWindow", 1, false, false, [](Args& a, const Bad& b) {
        return kvosLagWindow_G729_32s_I(b.p(0, a.io32), b.len);
    });
    checkArgs("RandomNoiseExcitation", 2, false, false, [](Args& a, const Bad& b) {
        return kvosRandomNoiseExcitation_G729B_16s(b.p(0, &a.seed), b.p(1, a.out16), b.len);
    });
    // Lag window: 12 lags at most; the range test follows the null test.
    Args a;
    const Args before = a;
    EXPECT_EQ(kvosLagWindow_G729_32s_I(a.io32, 13), kvoErrRange);
    EXPECT_EQ(kvosLagWindow_G729_32s_I(nullptr, 13), kvoErrNullPtr);
    EXPECT_EQ(std::memcmp(&a, &before, sizeof a), 0);
}
