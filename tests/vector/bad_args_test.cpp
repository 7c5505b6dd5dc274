// Argument checks of the vector layer, one member per argument shape and type:
// each null pointer gives kvoErrNullPtr, len 0 and negative give kvoErrSize,
// and nothing is written (every buffer is compared with its canary copy).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "numeric/vector.h"

using namespace kvo;

namespace {

struct BadCase {
    const char* name;
    int nptr;  // pointer arguments, in the order the call takes them
    std::function<KvoStatus(void* const*, Kvo32s)> call;
};

#define P(T, i) static_cast<T*>(p[i])
#define CASE(name, n, expr)                                                    \
    {                                                                          \
#name, n, [](void* const* p, Kvo32s len) -> KvoStatus { return expr; } \
    }

const BadCase kCases[] = {
    CASE(Zero_16s, 1, kvosZero_16s(P(Kvo16s, 0), len)),
    CASE(Set_32f, 1, kvosSet_32f(7, P(Kvo32f, 0), len)),
    CASE(Copy_16s, 2, kvosCopy_16s(P(Kvo16s, 0), P(Kvo16s, 1), len)),
    CASE(Move_16s, 2, kvosMove_16s(P(Kvo16s, 0), P(Kvo16s, 1), len)),
    CASE(Add_16s, 3, kvosAdd_16s(P(Kvo16s, 0), P(Kvo16s, 1), P(Kvo16s, 2), len)),
    CASE(Add_32s_Sfs, 3, kvosAdd_32s_Sfs(P(Kvo32s, 0), P(Kvo32s, 1), P(Kvo32s, 2), len, 1)),
    CASE(SubC_16s_Sfs, 2, kvosSubC_16s_Sfs(P(Kvo16s, 0), 3, P(Kvo16s, 1), len, 1)),
    CASE(Mul_16s32s_Sfs, 3, kvosMul_16s32s_Sfs(P(Kvo16s, 0), P(Kvo16s, 1), P(Kvo32s, 2), len, 1)),
    CASE(MagSquared, 2, kvosMagSquared_32sc32s_Sfs(P(Kvo32sc, 0), P(Kvo32s, 1), len, 1)),
    CASE(RShiftC_16s, 2, kvosRShiftC_16s(P(Kvo16s, 0), 3, P(Kvo16s, 1), len)),
    CASE(Add_32f, 3, kvosAdd_32f(P(Kvo32f, 0), P(Kvo32f, 1), P(Kvo32f, 2), len)),
    CASE(MulC_32f_I, 1, kvosMulC_32f_I(2.0f, P(Kvo32f, 0), len)),
    CASE(Mul_32f32fc, 3, kvosMul_32f32fc(P(Kvo32f, 0), P(Kvo32fc, 1), P(Kvo32fc, 2), len)),
    CASE(Convert_64f32f, 2, kvosConvert_64f32f(P(Kvo64f, 0), P(Kvo32f, 1), len)),
    CASE(LinToALaw, 2, kvosLinToALaw_16s8u(P(Kvo16s, 0), P(Kvo8u, 1), len)),
    CASE(MaxIndx_32s, 2, kvosMaxIndx_32s(P(Kvo32s, 0), len, P(Kvo32s, 1), nullptr)),
    CASE(Sum_16s32s_Sfs, 2, kvosSum_16s32s_Sfs(P(Kvo16s, 0), len, P(Kvo32s, 1), 0)),
    CASE(DotProd_16s32s_Sfs, 3,
         kvosDotProd_16s32s_Sfs(P(Kvo16s, 0), P(Kvo16s, 1), len, P(Kvo32s, 2), 0)),
    // Order and sign of the levels are tested after the lengths.
    CASE(LTValGTVal_32f, 2,
         kvosThreshold_LTValGTVal_32f(P(Kvo32f, 0), P(Kvo32f, 1), len, 2, 0, 1, 0)),
    CASE(LTAbs_32f, 2, kvosThreshold_LTAbs_32f(P(Kvo32f, 0), P(Kvo32f, 1), len, -1)),
    CASE(LTInv_64f, 2, kvosThreshold_LTInv_64f(P(Kvo64f, 0), P(Kvo64f, 1), len, -1)),
    CASE(ConvBiased_32f, 3,
         kvosConvBiased_32f(P(Kvo32f, 0), len, P(Kvo32f, 1), len, P(Kvo32f, 2), len, 0)),
};
#undef CASE
#undef P

class BadArgs : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadArgs, NullThenSizeAndNothingWritten) {
    const BadCase& c = GetParam();
    alignas(16) static Kvo8u buf[4][512], canary[4][512];
    for (int b = 0; b < 4; ++b)
        for (int i = 0; i < 512; ++i) buf[b][i] = canary[b][i] = static_cast<Kvo8u>(0x11 * b + i);
    void* p[4] = {buf[0], buf[1], buf[2], buf[3]};
    auto untouched = [&] { return std::memcmp(buf, canary, sizeof buf) == 0; };
    for (int k = 0; k < c.nptr; ++k) {
        void* q[4] = {p[0], p[1], p[2], p[3]};
        q[k] = nullptr;
        EXPECT_EQ(c.call(q, 4), kvoErrNullPtr) << "pointer " << k;
        EXPECT_EQ(c.call(q, 0), kvoErrNullPtr) << "pointer " << k << ", len 0";
        ASSERT_TRUE(untouched());
    }
    EXPECT_EQ(c.call(p, 0), kvoErrSize);
    EXPECT_EQ(c.call(p, -3), kvoErrSize);
    EXPECT_EQ(c.call(p, INT32_MIN), kvoErrSize);
    ASSERT_TRUE(untouched());
}

INSTANTIATE_TEST_SUITE_P(Vector, BadArgs, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<BadCase>& i) { return i.param.name; });

TEST(BadArgs, LevelsTestedAfterLengths) {
    Kvo32f f[4] = {1, 2, 3, 4}, o[4] = {9, 9, 9, 9};
    Kvo64f d[4] = {1, 2, 3, 4}, od[4] = {9, 9, 9, 9};
    EXPECT_EQ(kvosThreshold_LTValGTVal_32f(f, o, 4, 2, 0, 1, 0), kvoErrThresholdOrder);
    EXPECT_EQ(kvosThreshold_LTAbs_32f(f, o, 4, -1), kvoErrThresholdNegative);
    EXPECT_EQ(kvosThreshold_LTInv_64f(d, od, 4, -1), kvoErrThresholdNegative);
    EXPECT_TRUE(o[0] == 9.0f && o[3] == 9.0f && od[0] == 9.0 && od[3] == 9.0);
}

}  // namespace
