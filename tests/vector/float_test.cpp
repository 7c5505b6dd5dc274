// Floating-point members of the vector layer: thresholds (worked values and
// status rules), conversions at their limits, sums and dot products against
// double or long double models, and the biased convolution against a double
// model and against its own generic path.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "numeric/vector.h"

using namespace kvo;

namespace {

std::vector<float> randf(std::mt19937& rng, int n, float lo = -1.0f, float hi = 1.0f) {
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (auto& x : v) x = d(rng);
    return v;
}

// ---- thresholds ---------------------------------------------------------------------

TEST(Threshold, InverseAtLevelZero) {
    const Kvo64f z[] = {0.0};
    const Kvo64f two[] = {2.0};
    Kvo64f out = 0.0;
    EXPECT_EQ(kvosThreshold_LTInv_64f(z, &out, 1, 0.0), kvoWarnInvZero);
    EXPECT_TRUE(std::isinf(out) && out > 0);
    EXPECT_EQ(kvosThreshold_LTInv_64f(two, &out, 1, 0.0), kvoOk);
    EXPECT_EQ(out, 0.5);
    const Kvo64f mix[] = {-4.0, -0.0, 8.0};
    Kvo64f o3[3];
    EXPECT_EQ(kvosThreshold_LTInv_64f(mix, o3, 3, 0.0), kvoWarnInvZero);
    EXPECT_EQ(o3[0], -0.25);
    EXPECT_TRUE(std::isinf(o3[1]) && o3[1] > 0);
    EXPECT_EQ(o3[2], 0.125);
}

TEST(Threshold, InverseHoldsMagnitudeAtLevel) {
    const Kvo64f in[] = {0.0, 0.1, -0.1, 0.5, -0.5, 0.25, -4.0, 1e-300};
    const Kvo64f want[] = {4.0, 4.0, -4.0, 2.0, -2.0, 4.0, -0.25, 4.0};
    Kvo64f out[8];
    ASSERT_EQ(kvosThreshold_LTInv_64f(in, out, 8, 0.25), kvoOk);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], want[i]) << i;
    EXPECT_EQ(kvosThreshold_LTInv_64f(in, out, 8, -1e-9), kvoErrThresholdNegative);
}

TEST(Threshold, ValueForms) {
    const Kvo32f in[] = {-3.0f, -1.0f, 0.0f, 1.0f, 2.0f, 3.0f};
    Kvo32f out[6];
    ASSERT_EQ(kvosThreshold_LTVal_32f(in, out, 6, 0.0f, 9.0f), kvoOk);
    const Kvo32f lt[] = {9.0f, 9.0f, 0.0f, 1.0f, 2.0f, 3.0f};
    EXPECT_EQ(0, std::memcmp(out, lt, sizeof lt));
    ASSERT_EQ(kvosThreshold_GTVal_32f(in, out, 6, 1.0f, -9.0f), kvoOk);
    const Kvo32f gt[] = {-3.0f, -1.0f, 0.0f, 1.0f, -9.0f, -9.0f};
    EXPECT_EQ(0, std::memcmp(out, gt, sizeof gt));
    // Equal levels: everything else replaced, elements equal to the level kept.
    ASSERT_EQ(kvosThreshold_LTValGTVal_32f(in, out, 6, 1.0f, -7.0f, 1.0f, 7.0f), kvoOk);
    const Kvo32f both[] = {-7.0f, -7.0f, -7.0f, 1.0f, 7.0f, 7.0f};
    EXPECT_EQ(0, std::memcmp(out, both, sizeof both));
    EXPECT_EQ(kvosThreshold_LTValGTVal_32f(in, out, 6, 1.5f, 0.0f, 1.0f, 0.0f),
              kvoErrThresholdOrder);
    const Kvo64f in64[] = {-2.0, 0.5, 2.0};
    Kvo64f o64[3];
    ASSERT_EQ(kvosThreshold_LTValGTVal_64f(in64, o64, 3, -1.0, -1.0, 1.0, 1.0), kvoOk);
    EXPECT_EQ(o64[0], -1.0);
    EXPECT_EQ(o64[1], 0.5);
    EXPECT_EQ(o64[2], 1.0);
    EXPECT_EQ(kvosThreshold_LTValGTVal_64f(in64, o64, 3, 2.0, 0, 1.0, 0), kvoErrThresholdOrder);
    ASSERT_EQ(kvosThreshold_GTVal_64f(in64, o64, 3, 0.0, 5.0), kvoOk);
    EXPECT_EQ(o64[0], -2.0);
    EXPECT_EQ(o64[2], 5.0);
}

TEST(Threshold, AbsKeepsSignZeroCountsPositive) {
    const Kvo32f in[] = {0.0f, -0.0f, 0.1f, -0.1f, 0.5f, -0.5f, 2.0f, -2.0f};
    const Kvo32f want[] = {0.5f, 0.5f, 0.5f, -0.5f, 0.5f, -0.5f, 2.0f, -2.0f};
    Kvo32f out[8];
    ASSERT_EQ(kvosThreshold_LTAbs_32f(in, out, 8, 0.5f), kvoOk);
    EXPECT_EQ(0, std::memcmp(out, want, sizeof want));
    EXPECT_EQ(kvosThreshold_LTAbs_32f(in, out, 8, -0.5f), kvoErrThresholdNegative);
}

// ---- conversions --------------------------------------------------------------------

TEST(Convert, LimitsAndRounding) {
    const Kvo64f d[] = {INFINITY, -INFINITY, 1e300, -1e300, 1.0 + 0x1p-30, -0.0};
    Kvo32f f[6];
    ASSERT_EQ(kvosConvert_64f32f(d, f, 6), kvoOk);
    EXPECT_EQ(f[0], FLT_MAX);
    EXPECT_EQ(f[1], -FLT_MAX);
    EXPECT_EQ(f[2], FLT_MAX);
    EXPECT_EQ(f[3], -FLT_MAX);
    EXPECT_EQ(f[4], 1.0f);
    EXPECT_TRUE(std::signbit(f[5]));
    const Kvo32s i[] = {16777217, INT32_MAX, INT32_MIN, -3};
    ASSERT_EQ(kvosConvert_32s32f(i, f, 4), kvoOk);
    EXPECT_EQ(f[0], 16777216.0f);
    EXPECT_EQ(f[1], 2147483648.0f);
    EXPECT_EQ(f[2], -2147483648.0f);
    EXPECT_EQ(f[3], -3.0f);
    const Kvo16s s[] = {-32768, 32767};
    Kvo32s w[2];
    ASSERT_EQ(kvosConvert_16s32s(s, w, 2), kvoOk);
    EXPECT_EQ(w[0], -32768);
    ASSERT_EQ(kvosConvert_16s32f(s, f, 2), kvoOk);
    EXPECT_EQ(f[1], 32767.0f);
}

// ---- element-wise -------------------------------------------------------------------

TEST(ElementWise, OperandOrderAndValues) {
    const Kvo32f a[] = {1.5f, -2.0f, 3.0f}, b[] = {0.5f, 4.0f, -1.0f};
    const Kvo32fc c[] = {{1.0f, -1.0f}, {2.0f, 0.5f}, {0.0f, 3.0f}};
    Kvo32f o[3];
    Kvo32fc oc[3];
    ASSERT_EQ(kvosSub_32f(a, b, o, 3), kvoOk);  // second minus first
    EXPECT_EQ(o[0], -1.0f);
    EXPECT_EQ(o[1], 6.0f);
    ASSERT_EQ(kvosSubC_32f(a, 1.0f, o, 3), kvoOk);
    EXPECT_EQ(o[2], 2.0f);
    ASSERT_EQ(kvosMul_32f32fc(a, c, oc, 3), kvoOk);
    EXPECT_EQ(oc[1].re, -4.0f);
    EXPECT_EQ(oc[1].im, -1.0f);
    Kvo32f acc[3] = {1.0f, 1.0f, 1.0f};
    ASSERT_EQ(kvosAddProduct_32f(a, b, acc, 3), kvoOk);
    EXPECT_EQ(acc[0], 1.75f);
    EXPECT_EQ(acc[1], -7.0f);
    ASSERT_EQ(kvosMulC_32f_I(2.0f, acc, 3), kvoOk);
    EXPECT_EQ(acc[2], -4.0f);
    const Kvo16s s1[] = {32767, -32768, 100}, s2[] = {1, 1, -300};
    Kvo16s so[3];
    ASSERT_EQ(kvosSub_16s(s1, s2, so, 3), kvoOk);
    EXPECT_EQ(so[0], -32766);
    EXPECT_EQ(so[1], 32767);
    EXPECT_EQ(so[2], -400);
}

// ---- float reductions ---------------------------------------------------------------

TEST(FloatReductions, SumsAndDotProductsCloseToExact) {
    std::mt19937 rng(2024);
    for (int len : {1, 7, 8, 1023, 1024, 1025, 5000}) {
        SCOPED_TRACE(testing::Message() << "seed 2024 len " << len);
        auto a = randf(rng, len), b = randf(rng, len);
        long double sa = 0, dot = 0;
        for (int i = 0; i < len; ++i) {
            sa += a[i];
            dot += static_cast<long double>(a[i]) * b[i];
        }
        Kvo32f r;
        Kvo64f r64;
        ASSERT_EQ(kvosSum_32f(a.data(), len, &r, 1), kvoOk);
        EXPECT_NEAR(r, sa, 1e-6 * len);
        ASSERT_EQ(kvosSum_32f(a.data(), len, &r, 0), kvoOk);
        EXPECT_EQ(r, static_cast<float>(static_cast<double>(sa)));  // double sum, one rounding
        ASSERT_EQ(kvosDotProd_32f(a.data(), b.data(), len, &r), kvoOk);
        EXPECT_NEAR(r, dot, 1e-6 * len);
        ASSERT_EQ(kvosDotProd_32f64f(a.data(), b.data(), len, &r64), kvoOk);
        EXPECT_NEAR(r64, dot, 1e-14 * len);
        Kvo32f mn;
        ASSERT_EQ(kvosMin_32f(a.data(), len, &mn), kvoOk);
        EXPECT_EQ(mn, *std::min_element(a.begin(), a.end()));
    }
    // Other hints add every element in double: no element is absorbed.
    std::vector<Kvo32f> v(2048, 1.0f);
    v[0] = 16777216.0f;
    Kvo32f r;
    ASSERT_EQ(kvosSum_32f(v.data(), 2048, &r, 0), kvoOk);
    EXPECT_EQ(r, 16777216.0f + 2048.0f);
    const Kvo64f d[] = {1e16, 1.0, -1e16};
    Kvo64f r64;
    ASSERT_EQ(kvosSum_64f(d, 3, &r64), kvoOk);
    EXPECT_EQ(r64, (1e16 + 1.0) - 1e16);
}

// ---- biased convolution -------------------------------------------------------------

struct ConvShape {
    int len2, len1, dstLen, bias;
};
const ConvShape kShapes[] = {{45, 4, 41, 4},   {50, 11, 40, 10},  {56, 16, 40, 16},
                             {70, 31, 40, 30}, {110, 31, 80, 30}, {40, 40, 40, 0},
                             {60, 60, 60, 0},  {13, 5, 20, 3},    {9, 9, 9, 0},
                             {30, 7, 12, -4},  {5, 12, 30, 20}};

class ConvBiased : public ::testing::TestWithParam<ConvShape> {};

TEST_P(ConvBiased, MatchesDoubleModel) {
    const ConvShape c = GetParam();
    std::mt19937 rng(c.len2 * 131 + c.len1);
    auto x = randf(rng, c.len1);
    auto h = randf(rng, c.len2);
    std::vector<float> y(c.dstLen + 1, 123.0f);
    ASSERT_EQ(
        kvosConvBiased_32f(x.data(), c.len1, h.data() + c.bias, c.len2, y.data(), c.dstLen, c.bias),
        kvoOk);
    for (int n = 0; n < c.dstLen; ++n) {
        double want = 0;
        for (int k = 0; k < c.len1; ++k) {
            int j = c.bias + n - k;  // index into the array behind pSrc2
            if (j >= 0 && j < c.len2) want += double{x[k]} * h[j];
        }
        EXPECT_NEAR(y[n], want, 1e-5) << "n " << n;
    }
    EXPECT_EQ(y[c.dstLen], 123.0f);  // nothing past dstLen
}

TEST_P(ConvBiased, FixedShapesAgreeWithGenericPath) {
    const ConvShape c = GetParam();
    std::mt19937 rng(c.len2);
    auto x = randf(rng, c.len1);
    auto h = randf(rng, c.len2 + 1);
    std::vector<float> fixed(c.dstLen), generic(c.dstLen);
    ASSERT_EQ(kvosConvBiased_32f(x.data(), c.len1, h.data() + c.bias, c.len2, fixed.data(),
                                 c.dstLen, c.bias),
              kvoOk);
    // One more (unused) element behind pSrc2 changes no term but leaves every shape.
    bool dense = c.bias + (c.dstLen - 1) < c.len2;
    if (!dense) GTEST_SKIP();
    ASSERT_EQ(kvosConvBiased_32f(x.data(), c.len1, h.data() + c.bias, c.len2 + 1, generic.data(),
                                 c.dstLen, c.bias),
              kvoOk);
    EXPECT_EQ(0, std::memcmp(fixed.data(), generic.data(), fixed.size() * sizeof(float)));
}

INSTANTIATE_TEST_SUITE_P(Vector, ConvBiased, ::testing::ValuesIn(kShapes));

TEST(ConvBiasedChecks, ShapesBeforeLengths) {
    float x[4] = {}, y[4] = {};
    EXPECT_EQ(kvosConvBiased_32f(nullptr, 4, x, 4, y, 4, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosConvBiased_32f(x, 0, x, 4, y, 4, 0), kvoErrSize);
    EXPECT_EQ(kvosConvBiased_32f(x, 4, x, 0, y, 4, 0), kvoErrSize);
    EXPECT_EQ(kvosConvBiased_32f(x, 4, x, 4, y, -1, 0), kvoErrSize);
}

}  // namespace
