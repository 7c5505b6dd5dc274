// 16-bit FFT wrapper, float cross-correlation, pack-format conjugate product, reversal and the
// float to integer conversions.
#include <gtest/gtest.h>

#include <cfenv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "fft/fft.h"
#include "numeric/vector_fft.h"

namespace {

using kvo::KvoFFTSpec16s;
using kvo::KvoFFTSpec32f;

// Ties-to-even model: the default IEEE rounding of nearbyint, in double.
double nearestEven(double v) {
    EXPECT_EQ(std::fegetround(), FE_TONEAREST);
    return std::nearbyint(v);
}

template <typename T>
T satRound(double v) {
    const double r = nearestEven(v);
    if (r > double(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    if (r < double(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
    return static_cast<T>(r);
}

struct Both {
    std::vector<Kvo8u> m16, m32, init, w16, w32;
    KvoFFTSpec16s* s16 = nullptr;
    KvoFFTSpec32f* s32 = nullptr;
    Both(int order, int flag) {
        Kvo32s ss, is, ws;
        EXPECT_EQ(kvo::kvosFFTGetSize_R_16s32s(order, flag, 0, &ss, &is, &ws), kvoOk);
        EXPECT_GE(ws, 4 * ((1 << order) + 2) + 64);
        m16.resize(ss);
        w16.resize(ws);
        init.resize(is + 64);
        EXPECT_EQ(kvo::kvosFFTInit_R_16s32s(&s16, order, flag, 0, m16.data(), init.data()), kvoOk);
        EXPECT_EQ(kvo::kvosFFTGetSize_R_32f(order, flag, 0, &ss, &is, &ws), kvoOk);
        m32.resize(ss);
        w32.resize(ws + 1);
        EXPECT_EQ(kvo::kvosFFTInit_R_32f(&s32, order, flag, 0, m32.data(), init.data()), kvoOk);
    }
};

TEST(Fft16s, ForwardIsFloatTransformRoundedTiesToEven) {
    std::mt19937 g(21);
    std::uniform_int_distribution<int> d(-32768, 32767);
    for (int order : {0, 1, 2, 5, 10}) {
        const int N = 1 << order;
        for (int flag : {1, 8}) {
            Both b(order, flag);
            for (int sf : {-3, 0, 1, 20}) {
                SCOPED_TRACE(::testing::Message()
                             << "order " << order << " flag " << flag << " sf " << sf);
                std::vector<Kvo16s> x(N);
                for (auto& v : x) v = static_cast<Kvo16s>(order < 3 ? d(g) >> 12 : d(g));
                std::vector<float> xf(x.begin(), x.end()), perm(N);
                ASSERT_EQ(kvo::kvosFFTFwd_RToPerm_32f(xf.data(), perm.data(), b.s32, b.w32.data()),
                          kvoOk);
                std::vector<Kvo32s> y(N + 3, 0x5a5a5a5a), y2(N + 3, 0x5a5a5a5a);
                ASSERT_EQ(
                    kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(x.data(), y.data(), b.s16, sf, b.w16.data()),
                    kvoOk);
                ASSERT_EQ(
                    kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(x.data(), y2.data(), b.s16, sf, nullptr),
                    kvoOk);
                EXPECT_EQ(y, y2);
                std::vector<Kvo32s> want(N == 1 ? 2 : N + 2);
                auto q = [&](float v) { return satRound<Kvo32s>(std::ldexp(double(v), -sf)); };
                want[0] = q(perm[0]);
                if (N > 1) {
                    want[N] = q(perm[1]);
                    for (int i = 2; i < N; ++i) want[i] = q(perm[i]);
                }
                for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(y[i], want[i]) << i;
                EXPECT_EQ(y[want.size()], 0x5a5a5a5a);
            }
        }
    }
}

TEST(Fft16s, TiesRoundToEvenAndResultsSaturate) {
    Both b(2, 8);
    struct Case {
        Kvo16s x[4];
        Kvo32s sf;
        Kvo32s want[6];
    } cases[] = {
        // R0 = 3, X1 = 1 - 2j, R2 = -1: 1.5 -> 2, 0.5 -> 0, -1 -> -1, -0.5 -> 0
        {{1, 2, 0, 0}, 1, {2, 0, 0, -1, 0, 0}},
        // R0 = 10 at scale 2: 2.5 -> 2; R2 = -6: -1.5 -> -2
        {{2, 8, 0, 0}, 2, {2, 0, 0, -2, -2, 0}},
        // 4 * 32767 shifted left by 15 overflows 32 bits: held at the limits
        {{32767, 32767, 32767, 32767}, -15, {INT_MAX, 0, 0, 0, 0, 0}},
        {{-32768, 0, -32768, 0}, -15, {INT_MIN, 0, 0, 0, INT_MIN, 0}},
    };
    for (const auto& c : cases) {
        Kvo32s y[6];
        ASSERT_EQ(kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(c.x, y, b.s16, c.sf, b.w16.data()), kvoOk);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(y[i], c.want[i]) << "x0 " << c.x[0] << " i " << i;
    }
    // Inverse: ties to even, large values held at 16 bits.
    Both b1(1, 8);
    struct InvCase {
        Kvo32s fftSpec[4];
        Kvo32s sf;
        Kvo16s want[2];
    } inv[] = {
        {{5, 0, -2, 0}, 1, {2, 4}},  // 3 / 2 = 1.5 -> 2, 7 / 2 = 3.5 -> 4
        {{100000, 7, -3000000, 9}, 0, {-32768, 32767}},
    };
    for (const auto& c : inv) {
        Kvo16s y[2];
        ASSERT_EQ(kvo::kvosFFTInv_CCSToR_32s16s_Sfs(c.fftSpec, y, b1.s16, c.sf, nullptr), kvoOk);
        EXPECT_EQ(y[0], c.want[0]);
        EXPECT_EQ(y[1], c.want[1]);
    }
}

TEST(Fft16s, InverseMatchesFloatAndRoundTripIsExact) {
    std::mt19937 g(8);
    std::uniform_int_distribution<int> d(-32768, 32767);
    for (int order : {0, 1, 2, 5, 10}) {
        SCOPED_TRACE(order);
        const int N = 1 << order;
        Both b(order, 2);
        std::vector<Kvo16s> x(N), z(N);
        for (auto& v : x) v = static_cast<Kvo16s>(d(g));
        std::vector<Kvo32s> y(N + 2);
        ASSERT_EQ(kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(x.data(), y.data(), b.s16, 0, b.w16.data()),
                  kvoOk);
        ASSERT_EQ(kvo::kvosFFTInv_CCSToR_32s16s_Sfs(y.data(), z.data(), b.s16, 0, b.w16.data()),
                  kvoOk);
        EXPECT_EQ(z, x);
        // Scaled inverse equals the float inverse of the same integers, rounded.
        std::vector<float> yf(y.begin(), y.end()), zf(N);
        yf[N + 1] = 0;
        ASSERT_EQ(kvo::kvosFFTInv_CCSToR_32f(yf.data(), zf.data(), b.s32, b.w32.data()), kvoOk);
        ASSERT_EQ(kvo::kvosFFTInv_CCSToR_32s16s_Sfs(y.data(), z.data(), b.s16, 3, nullptr), kvoOk);
        for (int n = 0; n < N; ++n) ASSERT_EQ(z[n], satRound<Kvo16s>(zf[n] / 8.0)) << n;
    }
    // Record checks of the wrapper.
    Both b(3, 1);
    Kvo16s x[8] = {};
    Kvo32s y[10];
    EXPECT_EQ(kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(x, y, nullptr, 0, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(x, y, reinterpret_cast<const KvoFFTSpec16s*>(b.s32),
                                                0, nullptr),
              kvoErrContextMatch);
    EXPECT_EQ(kvo::kvosFFTInv_CCSToR_32s16s_Sfs(y, nullptr, b.s16, 0, nullptr), kvoErrNullPtr);
}

// ---- cross-correlation ------------------------------------------------------------------

std::vector<double> corrModel(const std::vector<float>& a, const std::vector<float>& b, int n,
                              int lowLag) {
    std::vector<double> r(n, 0.0);
    for (int k = 0; k < n; ++k) {
        const long long lag = static_cast<long long>(lowLag) + k;
        for (long long i = 0; i < (long long)a.size(); ++i) {
            const long long j = i + lag;
            if (j >= 0 && j < (long long)b.size()) r[k] += double(a[i]) * b[j];
        }
    }
    return r;
}

TEST(CrossCorr32f, MatchesDoubleModelOnEveryPath) {
    struct Case {
        int len1, len2, dstLen, lowLag;
        const char* path;
    } cases[] = {
        {1, 1, 1, 0, "direct, single term"},
        {37, 53, 100, -40, "direct, zeros on both sides"},
        {300, 90, 390, -299, "direct, second vector shorter"},
        {1100, 700, 1790, -1099, "one transform, full range"},
        {4000, 500, 4300, -3900, "blocks, exchanged vectors"},
        {600, 2500, 3500, -1000, "blocks, leading zeros"},
    };
    std::mt19937 g(77);
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.path << ": " << c.len1 << " " << c.len2 << " "
                                          << c.dstLen << " " << c.lowLag);
        std::uniform_real_distribution<float> d(-1.0f, 1.0f);
        std::vector<float> a(c.len1), b(c.len2);
        for (auto& v : a) v = d(g);
        for (auto& v : b) v = d(g);
        std::vector<float> y(c.dstLen + 1, NAN);
        ASSERT_EQ(kvo::kvosCrossCorr_32f(a.data(), c.len1, b.data(), c.len2, y.data(), c.dstLen,
                                         c.lowLag),
                  kvoOk);
        const auto want = corrModel(a, b, c.dstLen, c.lowLag);
        double na = 0, nb = 0;
        for (float v : a) na += double(v) * v;
        for (float v : b) nb += double(v) * v;
        const double tol = 4e-7 * (std::log2(double(c.len1 + c.len2)) + 2) * std::sqrt(na * nb);
        for (int k = 0; k < c.dstLen; ++k) {
            if (want[k] == 0.0) {
                ASSERT_EQ(y[k], 0.0f) << k;  // no overlap: exactly zero
            } else {
                ASSERT_NEAR(y[k], want[k], tol) << k;
            }
        }
        EXPECT_TRUE(std::isnan(y[c.dstLen]));
    }
}

TEST(CrossCorr32f, LagsOutsideOverlapAndArgumentChecks) {
    std::vector<float> a(50, 1.0f), b(60, 1.0f), y(10, NAN);
    for (int lowLag : {60, -59, INT_MIN, INT_MAX - 5}) {
        std::fill(y.begin(), y.end(), NAN);
        ASSERT_EQ(kvo::kvosCrossCorr_32f(a.data(), 50, b.data(), 60, y.data(), 10, lowLag), kvoOk);
        for (float v : y) EXPECT_EQ(v, 0.0f) << lowLag;
    }
    EXPECT_EQ(kvo::kvosCrossCorr_32f(nullptr, 0, b.data(), 60, y.data(), 10, 0), kvoErrNullPtr);
    EXPECT_EQ(kvo::kvosCrossCorr_32f(a.data(), 50, b.data(), 60, nullptr, 10, 0), kvoErrNullPtr);
    EXPECT_EQ(kvo::kvosCrossCorr_32f(a.data(), 0, b.data(), 60, y.data(), 10, 0), kvoErrSize);
    EXPECT_EQ(kvo::kvosCrossCorr_32f(a.data(), 50, b.data(), 60, y.data(), 0, 0), kvoErrSize);
}

// ---- pack product, reversal, conversions ------------------------------------------------

TEST(VectorFft, MulPackConjAndFlip) {
    std::mt19937 g(4);
    std::uniform_real_distribution<float> d(-2.0f, 2.0f);
    for (int len = 1; len <= 9; ++len) {
        std::vector<float> a(len), b(len), r(len);
        for (auto& v : a) v = d(g);
        for (auto& v : b) v = d(g);
        r = b;
        ASSERT_EQ(kvo::kvosMulPackConj_32f_I(a.data(), r.data(), len), kvoOk);
        const int pairsEnd = len % 2 ? len : len - 1;  // the last of an even length is real
        EXPECT_FLOAT_EQ(r[0], a[0] * b[0]);
        if (len % 2 == 0 && len > 1) {
            EXPECT_FLOAT_EQ(r[len - 1], a[len - 1] * b[len - 1]);
        }
        for (int k = 1; k + 1 < pairsEnd; k += 2) {
            // conj(a) * b, as complex numbers
            const double re = double(a[k]) * b[k] + double(a[k + 1]) * b[k + 1];
            const double im = double(a[k]) * b[k + 1] - double(a[k + 1]) * b[k];
            EXPECT_NEAR(r[k], re, 1e-5);
            EXPECT_NEAR(r[k + 1], im, 1e-5);
        }
        std::vector<float> f = a;
        ASSERT_EQ(kvo::kvosFlip_32f_I(f.data(), len), kvoOk);
        for (int i = 0; i < len; ++i) EXPECT_EQ(f[i], a[len - 1 - i]);
    }
}

TEST(VectorFft, ConvertRoundingModesScaleAndClamp) {
    struct Case {
        float x;
        int sf;
        Kvo32s zero, even, away;  // expected for rndMode 0, 1, 2
    } c32[] = {
        {-2.7f, 0, -2, -3, -3},
        {2.5f, 0, 2, 2, 3},
        {-2.5f, 0, -2, -2, -3},
        {5.0f, 1, 2, 2, 3},    // 2.5 after the scale
        {1.25f, -1, 2, 2, 3},  // left by one: 2.5
        {-3e9f, 0, INT_MIN, INT_MIN, INT_MIN},
        {2147483648.0f, 0, INT_MAX, INT_MAX, INT_MAX},
        {1.0f, -40, INT_MAX, INT_MAX, INT_MAX},
        {-1.0f, 200, 0, 0, 0},
        {NAN, 0, 0, 0, 0},
    };
    for (const auto& c : c32) {
        for (int mode = 0; mode < 3; ++mode) {
            Kvo32s y = 12345;
            ASSERT_EQ(kvo::kvosConvert_32f32s_Sfs(&c.x, &y, 1, mode == 2 ? 7 : mode, c.sf), kvoOk);
            EXPECT_EQ(y, mode == 0 ? c.zero : (mode == 1 ? c.even : c.away))
                << c.x << " sf " << c.sf << " mode " << mode;
        }
    }
    struct Case16 {
        float x;
        int sf;
        Kvo16s zero, even, away;
    } c16[] = {
        {32767.5f, 0, 32767, 32767, 32767},
        {-32768.5f, 0, -32768, -32768, -32768},
        {-32767.5f, 0, -32767, -32768, -32768},
        {6.0f, 2, 1, 2, 2},   // 1.5
        {10.0f, 2, 2, 2, 3},  // 2.5
    };
    for (const auto& c : c16) {
        for (int mode = 0; mode < 3; ++mode) {
            Kvo16s y = 123;
            ASSERT_EQ(kvo::kvosConvert_32f16s_Sfs(&c.x, &y, 1, mode, c.sf), kvoOk);
            EXPECT_EQ(y, mode == 0 ? c.zero : (mode == 1 ? c.even : c.away))
                << c.x << " sf " << c.sf << " mode " << mode;
        }
    }
    float x = 1.0f;
    Kvo16s y16;
    Kvo32s y32;
    EXPECT_EQ(kvo::kvosConvert_32f16s_Sfs(nullptr, &y16, 1, 0, 0), kvoErrNullPtr);
    EXPECT_EQ(kvo::kvosConvert_32f32s_Sfs(&x, &y32, 0, 0, 0), kvoErrSize);
}

}  // namespace
