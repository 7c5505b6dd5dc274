// Floating-point members of the vector layer: worked values, and sums, dot
// products and the biased convolution against long double / double models.
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

// ---- thresholds: worked values ------------------------------------------------------

TEST(Threshold, WorkedValues) {
    const Kvo32f in[] = {-3.0f, -1.0f, 0.0f, -0.0f, 1.0f, 0.1f, -0.1f, 2.0f};
    Kvo32f out[8];
    auto expect = [&](std::vector<Kvo32f> want) {
        EXPECT_EQ(0, std::memcmp(out, want.data(), sizeof out));
    };
    ASSERT_EQ(kvosThreshold_LTVal_32f(in, out, 8, 0.0f, 9.0f), kvoOk);
    expect({9.0f, 9.0f, 0.0f, -0.0f, 1.0f, 0.1f, 9.0f, 2.0f});
    // Equal levels: elements equal to the level kept.
    ASSERT_EQ(kvosThreshold_LTValGTVal_32f(in, out, 8, 1.0f, -7.0f, 1.0f, 7.0f), kvoOk);
    expect({-7.0f, -7.0f, -7.0f, -7.0f, 1.0f, -7.0f, -7.0f, 7.0f});
    // Magnitude held at the level with the sign kept; zeros count as positive.
    ASSERT_EQ(kvosThreshold_LTAbs_32f(in, out, 8, 0.5f), kvoOk);
    expect({-3.0f, -1.0f, 0.5f, 0.5f, 1.0f, 0.5f, -0.5f, 2.0f});
    const Kvo64f d[] = {0.0, 0.1, -0.1, -4.0, 1e-300, -0.0};
    Kvo64f o[6];
    ASSERT_EQ(kvosThreshold_LTInv_64f(d, o, 5, 0.25), kvoOk);
    for (auto [i, w] : {std::pair{0, 4.0}, {1, 4.0}, {2, -4.0}, {3, -0.25}, {4, 4.0}})
        EXPECT_EQ(o[i], w) << i;
    // Level 0: the inverse of a zero of either sign is +inf, with a warning.
    ASSERT_EQ(kvosThreshold_LTInv_64f(d, o, 6, 0.0), kvoWarnInvZero);
    EXPECT_TRUE(std::isinf(o[0]) && o[0] > 0 && std::isinf(o[5]) && o[5] > 0);
    EXPECT_EQ(o[3], -0.25);
}

// ---- conversions --------------------------------------------------------------------

TEST(Convert, LimitsAndRounding) {
    const Kvo64f d[] = {INFINITY, -INFINITY, 1e300, -1e300, 1.0 + 0x1p-30, -0.0};
    Kvo32f f[6];
    ASSERT_EQ(kvosConvert_64f32f(d, f, 6), kvoOk);
    const Kvo32f want[] = {FLT_MAX, -FLT_MAX, FLT_MAX, -FLT_MAX, 1.0f, -0.0f};
    EXPECT_EQ(0, std::memcmp(f, want, sizeof want));
    const Kvo32s i[] = {16777217, INT32_MAX, INT32_MIN, -3};
    ASSERT_EQ(kvosConvert_32s32f(i, f, 4), kvoOk);
    const Kvo32f wi[] = {16777216.0f, 2147483648.0f, -2147483648.0f, -3.0f};
    EXPECT_EQ(0, std::memcmp(f, wi, sizeof wi));
}

// ---- element-wise: operand order -----------------------------------------------------

TEST(ElementWise, OperandOrderAndValues) {
    const Kvo32f a[] = {1.5f, -2.0f, 3.0f}, b[] = {0.5f, 4.0f, -1.0f};
    const Kvo32fc c[] = {{1.0f, -1.0f}, {2.0f, 0.5f}, {0.0f, 3.0f}};
    Kvo32f o[3], acc[3] = {1.0f, 1.0f, 1.0f};
    Kvo32fc oc[3];
    ASSERT_EQ(kvosSub_32f(a, b, o, 3), kvoOk);  // second minus first
    EXPECT_EQ(o[1], 6.0f);
    ASSERT_EQ(kvosMul_32f32fc(a, c, oc, 3), kvoOk);
    EXPECT_EQ(oc[1].re, -4.0f);
    EXPECT_EQ(oc[1].im, -1.0f);
    ASSERT_EQ(kvosAddProduct_32f(a, b, acc, 3), kvoOk);
    EXPECT_EQ(acc[1], -7.0f);
    const Kvo16s s1[] = {32767, -32768, 100}, s2[] = {1, 1, -300};
    Kvo16s so[3];
    ASSERT_EQ(kvosSub_16s(s1, s2, so, 3), kvoOk);  // saturated
    EXPECT_EQ(so[0], -32766);
    EXPECT_EQ(so[1], 32767);
}

// ---- float reductions ---------------------------------------------------------------

TEST(FloatReductions, SumsAndDotProductsCloseToExact) {
    std::mt19937 rng(2024);
    for (int len : {1, 7, 1025, 5000}) {
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
    const Kvo64f d[] = {1e16, 1.0, -1e16};
    Kvo64f r64;
    ASSERT_EQ(kvosSum_64f(d, 3, &r64), kvoOk);
    EXPECT_EQ(r64, (1e16 + 1.0) - 1e16);
}

// ---- biased convolution -------------------------------------------------------------

struct ConvShape {
    int len2, len1, dstLen, bias;
};
const ConvShape kShapes[] = {
    {45, 4, 41, 4}, {56, 16, 40, 16}, {40, 40, 40, 0}, {30, 7, 12, -4}, {5, 12, 30, 20}};

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

INSTANTIATE_TEST_SUITE_P(Vector, ConvBiased, ::testing::ValuesIn(kShapes));

}  // namespace
