// Element-wise integer operations and integer reductions of the vector layer
// against a 128-bit model with ties-to-even rounding, over every scale from far
// below to far above each operation's bounds.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "numeric/vector.h"
#include "vec_model.h"

using namespace kvo;
using vt::i128;

namespace {

constexpr int kLen = 97;

// Every scale from far below to far above the bounds, and the extremes of the type.
const std::vector<int> kScales = [] {
    std::vector<int> v{INT32_MIN, -1000, 1000, INT32_MAX};
    for (int s = -66; s <= 66; s += (s > -34 && s < 34) ? 1 : 8) v.push_back(s);
    return v;
}();

// Each scaled operation against its exact wide result, rounded ties to even.
TEST(ScaledOps, MatchWideModelAtEveryScale) {
    std::mt19937 rng(1234);
    const auto a = vt::mixed<Kvo16s>(rng, kLen, vt::kSpecial16);
    const auto b = vt::mixed<Kvo16s>(rng, kLen, vt::kSpecial16);
    const auto x = vt::mixed<Kvo32s>(rng, kLen, vt::kSpecial32);
    const auto y = vt::mixed<Kvo32s>(rng, kLen, vt::kSpecial32);
    Kvo32s o32[kLen], m32[kLen];
    Kvo16s o16[3][kLen];
    for (Kvo16s v : {0, -1, 3, -32768, 32767})
        for (int s : kScales) {
            SCOPED_TRACE(testing::Message() << "seed 1234 val " << v << " scale " << s);
            ASSERT_EQ(kvosAdd_32s_Sfs(x.data(), y.data(), o32, kLen, s), kvoOk);
            ASSERT_EQ(kvosMul_16s32s_Sfs(a.data(), b.data(), m32, kLen, s), kvoOk);
            ASSERT_EQ(kvosSubC_16s_Sfs(a.data(), v, o16[0], kLen, s), kvoOk);
            ASSERT_EQ(kvosSubCRev_16s_Sfs(a.data(), v, o16[1], kLen, s), kvoOk);
            ASSERT_EQ(kvosMulC_16s_Sfs(a.data(), v, o16[2], kLen, s), kvoOk);
            for (size_t i = 0; i < kLen; ++i) {
                ASSERT_EQ(o32[i], vt::model32(i128{x[i]} + y[i], s)) << "Add " << i;
                ASSERT_EQ(m32[i], vt::model32(i128{a[i]} * b[i], s)) << "Mul " << i;
                ASSERT_EQ(o16[0][i], vt::model16(i128{a[i]} - v, s)) << "SubC " << i;
                ASSERT_EQ(o16[1][i], vt::model16(i128{v} - a[i], s)) << "SubCRev " << i;
                ASSERT_EQ(o16[2][i], vt::model16(i128{a[i]} * v, s)) << "MulC " << i;
            }
        }
}

TEST(MagSquared, TruncatesAndHoldsAtLimit) {
    std::mt19937 rng(77);
    auto re = vt::mixed<Kvo32s>(rng, 64, vt::kSpecial32);
    auto im = vt::mixed<Kvo32s>(rng, 64, vt::kSpecial32);
    re[0] = im[0] = INT32_MIN;  // 2^63, the unsigned maximum
    re[1] = im[1] = 0;
    std::vector<Kvo32sc> src(64);
    for (int i = 0; i < 64; ++i) src[i] = {re[i], im[i]};
    for (int s : kScales) {
        SCOPED_TRACE(testing::Message() << "seed 77 scale " << s);
        Kvo32s out[64];
        ASSERT_EQ(kvosMagSquared_32sc32s_Sfs(src.data(), out, 64, s), kvoOk);
        for (int i = 0; i < 64; ++i) {
            i128 m = i128{re[i]} * re[i] + i128{im[i]} * im[i];
            long ns = -static_cast<long>(s);
            i128 want = s >= 0 ? (s >= 100 ? 0 : m >> s)
                               : (m == 0 ? 0 : (ns >= 64 ? i128{1} << 64 : m << ns));
            ASSERT_EQ(out[i], static_cast<Kvo32s>(want > INT32_MAX ? INT32_MAX : want)) << i;
        }
    }
    Kvo32s out;
    ASSERT_EQ(kvosMagSquared_32sc32s_Sfs(src.data(), &out, 1, 63), kvoOk);
    EXPECT_EQ(out, 1);
}

TEST(IntegerReductions, SumsAndDotProductMatchModel) {
    std::mt19937 rng(99);
    for (int len : {1, 9, 70000}) {
        auto a = vt::mixed<Kvo16s>(rng, len, vt::kSpecial16);
        auto b = vt::mixed<Kvo16s>(rng, len, vt::kSpecial16);
        auto x = vt::mixed<Kvo32s>(rng, len, vt::kSpecial32);
        i128 sa = 0, sx = 0, dot = 0;
        for (int i = 0; i < len; ++i) {
            sa += a[i];
            sx += x[i];
            dot += i128{a[i]} * b[i];
        }
        for (int s : kScales) {
            SCOPED_TRACE(testing::Message() << "seed 99 len " << len << " scale " << s);
            Kvo32s r32;
            Kvo16s r16;
            ASSERT_EQ(kvosSum_16s32s_Sfs(a.data(), len, &r32, s), kvoOk);
            EXPECT_EQ(r32, vt::model32(sa, s));
            ASSERT_EQ(kvosSum_16s_Sfs(a.data(), len, &r16, s), kvoOk);
            EXPECT_EQ(r16,
                      static_cast<Kvo16s>(vt::scale_model(vt::model32(sa, s), 0, -32768, 32767)));
            ASSERT_EQ(kvosSum_32s_Sfs(x.data(), len, &r32, s), kvoOk);
            EXPECT_EQ(r32, vt::model32(sx, s < -31 ? -31 : (s > 63 ? 63 : s)));
            ASSERT_EQ(kvosDotProd_16s32s_Sfs(a.data(), b.data(), len, &r32, s), kvoOk);
            EXPECT_EQ(r32, vt::model32(dot, s < -31 ? -31 : (s > 31 ? 31 : s)));
        }
    }
}

TEST(IntegerReductions, ExtremesAndFirstIndex) {
    const Kvo32s v[] = {5, 9, 9}, neg32[] = {3, INT32_MIN, -7};
    const Kvo16s w[] = {4, -3, 7, -3, -3}, neg[] = {-32768};
    Kvo32s r = 0, at = -1;
    Kvo16s r16 = 0;
    ASSERT_EQ(kvosMaxIndx_32s(v, 3, &r, &at), kvoOk);  // the first of equal extremes
    EXPECT_EQ(r * 10 + at, 91);
    ASSERT_EQ(kvosMinIndx_16s(w, 5, &r16, &at), kvoOk);
    EXPECT_EQ(r16 * 10 + at, -29);
    ASSERT_EQ(kvosMaxAbs_16s(neg, 1, &r16), kvoOk);  // |-32768| saturates
    EXPECT_EQ(r16, 32767);
    ASSERT_EQ(kvosAbs_16s(neg, &r16, 1), kvoOk);
    EXPECT_EQ(r16, 32767);
    ASSERT_EQ(kvosMaxAbs_32s(neg32, 3, &r), kvoOk);
    EXPECT_EQ(r, INT32_MAX);
}

TEST(Shifts, CheckOrder) {
    Kvo16s s[4] = {1, 2, 3, 4}, d[4] = {9, 9, 9, 9};
    // Null, size, count; a left count >= 16 zeroes, after the same checks.
    EXPECT_EQ(kvosRShiftC_16s(nullptr, -1, d, 4), kvoErrNullPtr);
    EXPECT_EQ(kvosRShiftC_16s(s, -1, d, 0), kvoErrSize);
    EXPECT_EQ(kvosRShiftC_16s(s, -1, d, 4), kvoErrShiftCount);
    EXPECT_EQ(kvosLShiftC_16s(s, 16, nullptr, 4), kvoErrNullPtr);
    EXPECT_EQ(kvosLShiftC_16s(s, 99, d, 0), kvoErrSize);
    EXPECT_EQ(d[0], 9);
    ASSERT_EQ(kvosLShiftC_16s(s, 16, d, 4), kvoOk);
    EXPECT_EQ(d[3], 0);
}

TEST(Shifts, MatchModelForEveryCount) {
    std::mt19937 rng(5);
    auto a = vt::mixed<Kvo16s>(rng, 40, vt::kSpecial16);
    auto x = vt::mixed<Kvo32s>(rng, 40, vt::kSpecial32);
    for (int c : {0, 1, 7, 15, 16, 17, 31, 32, 40}) {
        SCOPED_TRACE(testing::Message() << "seed 5 count " << c);
        Kvo16s r[40], l[40];
        Kvo32s r32[40];
        ASSERT_EQ(kvosRShiftC_16s(a.data(), c, r, 40), kvoOk);
        ASSERT_EQ(kvosLShiftC_16s(a.data(), c, l, 40), kvoOk);
        ASSERT_EQ(kvosRShiftC_32s(x.data(), c, r32, 40), kvoOk);
        for (int i = 0; i < 40; ++i) {
            // floor division by 2^c; sign fill once the count reaches the width.
            i128 p16 = i128{1} << (c < 16 ? c : 16), p32 = i128{1} << (c < 32 ? c : 32);
            auto floordiv = [](i128 v, i128 d) { return v >= 0 ? v / d : -((-v + d - 1) / d); };
            EXPECT_EQ(r[i], static_cast<Kvo16s>(floordiv(a[i], p16)));
            EXPECT_EQ(r32[i], static_cast<Kvo32s>(floordiv(x[i], p32)));
            Kvo32u wrapped =
                c >= 16 ? 0 : (static_cast<Kvo32u>(static_cast<Kvo16u>(a[i])) * (1u << c)) & 0xffff;
            EXPECT_EQ(static_cast<Kvo16u>(l[i]), wrapped);
        }
    }
}

}  // namespace
