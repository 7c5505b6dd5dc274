// Correlation and partial convolution exports against int64 models on random
// and full-scale data (the coder-specific forms are proven by the G.723 and
// G.729 vector sets), worked values for the saturation order and overflow
// bounds, SIMD dot products against their scalar twins, and the argument
// checks of every export.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <functional>
#include "corr_model.h"
#include "kernels/corr.h"
#include "kvosc.h"

using namespace corrmodel;

namespace {

// Every kind pair at several lengths and levels; b is `extra` samples longer.
template <class F>
void forEach(uint32_t seed, int extra, F&& f) {
    std::mt19937 g(seed);
    for (Kind k1 : kAllKinds)
        for (Kind k2 : {Kind::Random, Kind::FullNeg, Kind::Alternate})
            for (int len : {1, 2, 7, 8, 9, 17, 40, 143})
                for (int down : {0, 6}) {
                    V16 a = make(k1, size_t(len), g), b = make(k2, size_t(len + extra), g);
                    for (auto& s : a) s = static_cast<int16_t>(s >> down);
                    SCOPED_TRACE(::testing::Message()
                                 << "seed " << seed << " kinds " << int(k1) << "/" << int(k2)
                                 << " len " << len << " down " << down);
                    f(a, b, len);
                }
}

}  // namespace

TEST(Corr, AutoCorrelations) {
    int overflows = 0;
    forEach(11, 0, [&](const V16& x, const V16&, int len) {
        for (int lags : {1, 11, len + 2}) {
            std::vector<int32_t> want, got(static_cast<size_t>(lags), 0x5a5a5a5a);
            int wantNorm = 0;
            Kvo32s n = -77;
            if (!autoNormE32(x, lags, want, wantNorm)) {  // overflow: nothing written
                ++overflows;
                EXPECT_EQ(kvosAutoCorr_NormE_16s32s(x.data(), len, got.data(), lags, &n),
                          kvoWarnOverflow);
                EXPECT_EQ(n, -77);
                EXPECT_EQ(got, std::vector<int32_t>(static_cast<size_t>(lags), 0x5a5a5a5a));
            } else {
                ASSERT_EQ(kvosAutoCorr_NormE_16s32s(x.data(), len, got.data(), lags, &n), kvoOk);
                EXPECT_EQ(n, wantNorm);
                EXPECT_EQ(got, want) << "lags " << lags;
            }
            std::vector<int16_t> w16, g16(static_cast<size_t>(lags));
            autoNormENR(x, lags, w16, wantNorm);
            ASSERT_EQ(kvosAutoCorr_NormE_NR_16s(x.data(), len, g16.data(), lags, &n), kvoOk);
            EXPECT_EQ(n, wantNorm);
            EXPECT_EQ(g16, w16) << "lags " << lags;
            want.assign(static_cast<size_t>(lags), 0);
            for (int k = 0; k < lags; ++k)
                want[size_t(k)] = wrap32(tri(x.data(), x.data(), len, k));
            ASSERT_EQ(kvosAutoCorr_16s32s(x.data(), len, got.data(), lags), kvoOk);
            EXPECT_EQ(got, want);
        }
    });
    EXPECT_GT(overflows, 20);
    // Overflow bound: energy 0x3fffffff passes (2E + 1 = 0x7fffffff), 2^30 does not.
    Kvo32s d[2], n = -1;
    V16 top{32767, 255, 22, 5}, big{-32768};
    ASSERT_EQ(kvosAutoCorr_NormE_16s32s(top.data(), 4, d, 1, &n), kvoOk);
    EXPECT_EQ(d[0], 0x7fffffff);
    EXPECT_EQ(kvosAutoCorr_NormE_16s32s(big.data(), 1, d, 1, &n), kvoWarnOverflow);
}

TEST(Corr, CrossCorrelations) {
    const int lags = 6;
    forEach(21, lags - 1, [&](const V16& a, const V16& b, int len) {
        std::vector<int16_t> g16(lags), w16(lags);
        std::vector<int32_t> g32(lags), w32(lags);
        for (size_t k = 0; k < lags; ++k) {
            i64 s = wrap32(dot(a.data(), b.data() + k, len));
            w16[k] = wrap16((s + 16384) >> 15);
            w32[k] = s32(dot(a.data(), b.data() + k, len));
        }
        ASSERT_EQ(kvosCrossCorr_NR_16s(a.data(), b.data(), len, g16.data(), lags), kvoOk);
        EXPECT_EQ(g16, w16);
        ASSERT_EQ(kvosCrossCorr_NR_16s32s(a.data(), b.data(), len, g32.data(), lags), kvoOk);
        EXPECT_EQ(g32, w32);
        for (int sf : {0, 1, 15, 20, 31}) {
            for (size_t k = 0; k < lags; ++k)
                w16[k] = s16(
                    (wrap32(dot(a.data(), b.data() + k, len)) + (sf ? i64{1} << (sf - 1) : 0)) >>
                    sf);
            ASSERT_EQ(kvosCrossCorr_NR_16s_Sfs(a.data(), b.data(), len, g16.data(), lags, sf),
                      kvoOk);
            EXPECT_EQ(g16, w16) << "scale " << sf;
        }
        // Triangular, shifted either way.
        std::vector<int32_t> gt(static_cast<size_t>(len)), wt(static_cast<size_t>(len));
        for (int sf : {-3, 0, 9}) {
            for (int k = 0; k < len; ++k) {
                i64 s = wrap32(tri(a.data(), b.data(), len, k));
                wt[size_t(k)] =
                    sf >= 0 ? static_cast<int32_t>(s >> sf) : wrap32(s * (i64{1} << -sf));
            }
            ASSERT_EQ(kvosCrossCorr_16s32s_Sfs(a.data(), b.data(), len, gt.data(), sf), kvoOk);
            EXPECT_EQ(gt, wt) << "scale " << sf;
        }
        // Normalised by the maximum.
        std::vector<int16_t> want, got(static_cast<size_t>(len));
        crossNorm(a, b, 2, want);
        ASSERT_EQ(kvosCrossCorr_NormM_16s(a.data(), b.data(), len, got.data()), kvoOk);
        EXPECT_EQ(got, want);
    });
    // Doubled sum 2^31 wraps to 0x80000000, counted as 0x7fffffff: shift 18.
    V16 h{1, -32768}, x{0, -32768};
    Kvo16s d[2];
    ASSERT_EQ(kvosCrossCorr_NormM_16s(h.data(), x.data(), 2, d), kvoOk);
    EXPECT_EQ(d[0], -8192);
    EXPECT_EQ(d[1], -1);
}

TEST(Corr, PartialConvolutions) {
    forEach(31, 0, [&](const V16& a, const V16& b, int len) {
        std::vector<int32_t> g32(static_cast<size_t>(len)), w32(static_cast<size_t>(len));
        std::vector<int16_t> got(static_cast<size_t>(len)), want(static_cast<size_t>(len)),
            wnr(static_cast<size_t>(len));
        for (int n = 0; n < len; ++n) {
            w32[size_t(n)] = wrap32(convExact(a, b, n));
            want[size_t(n)] = wrap16((i64{w32[size_t(n)]} + 16384) >> 15);
            wnr[size_t(n)] = rnd16(convSat(a, b, n));
        }
        ASSERT_EQ(kvosConvPartial_16s32s(a.data(), b.data(), g32.data(), len), kvoOk);
        EXPECT_EQ(g32, w32);
        ASSERT_EQ(kvosConvPartial_NR_Low_16s(a.data(), b.data(), got.data(), len), kvoOk);
        EXPECT_EQ(got, want);
        ASSERT_EQ(kvosConvPartial_NR_16s(a.data(), b.data(), got.data(), len), kvoOk);
        EXPECT_EQ(got, wnr);
        for (int sf : {0, 1, 12, 15, 31, 40}) {
            for (int n = 0; n < len; ++n)
                want[size_t(n)] = s16(convSat(a, b, n) >> std::min(sf + 1, 63));
            ASSERT_EQ(kvosConvPartial_16s_Sfs(a.data(), b.data(), got.data(), len, sf), kvoOk);
            EXPECT_EQ(got, want) << "scale " << sf;
        }
    });
    // Saturation order: two 2 * 32767^2 products saturate before the negative
    // one (65535 -> 1); the reversed order gives 32765.  A doubled (-32768)^2
    // saturates on its own: -98304 + 0x7fffffff rounds to 32766.
    Kvo16s d[3];
    V16 a{32767, 32767, -32768}, ar{-32768, 32767, 32767}, b(3, 32767), c{3, -32768},
        h{-32768, -16384};
    ASSERT_EQ(kvosConvPartial_NR_16s(a.data(), b.data(), d, 3), kvoOk);
    EXPECT_EQ(d[2], 1);
    ASSERT_EQ(kvosConvPartial_NR_16s(ar.data(), b.data(), d, 3), kvoOk);
    EXPECT_EQ(d[2], 32765);
    ASSERT_EQ(kvosConvPartial_NR_16s(c.data(), h.data(), d, 2), kvoOk);
    EXPECT_EQ(d[1], 32766);
}

TEST(Corr, DotProductSimdMatchesScalar) {
    std::mt19937 g(41);
    for (Kind ka : kAllKinds)
        for (Kind kb : kAllKinds) {
            V16 a = make(ka, 200, g), b = make(kb, 200, g);
            for (int off = 0; off < 9; ++off)
                for (int n = -1; n <= 150; ++n) {
                    const int16_t *pa = a.data() + off % 3, *pb = b.data() + off;
                    ASSERT_EQ(kvo::corrDotWrap(pa, pb, n), kvo::corrDotWrapScalar(pa, pb, n)) << n;
                    ASSERT_EQ(kvo::corrDotExact(pa, pb, n), kvo::corrDotExactScalar(pa, pb, n))
                        << n;
                }
        }
    // Past the 131072-sample block of the exact sum; (-32768)^2 pairs wrap a 16-bit madd.
    for (int n : {131072, 131080}) {
        V16 m(size_t(n), -32768);
        EXPECT_EQ(kvo::corrDotExact(m.data(), m.data(), n), i64{n} << 30) << n;
        EXPECT_EQ(kvo::corrDotWrap(m.data(), m.data(), n), wrap32(i64{n} << 30)) << n;
    }
}

// Argument checks: each null pointer (also with bad lengths: nulls first), then
// lengths and lag counts, then the convolution's scale (tested before its
// length); a refused call writes nothing.
namespace {
struct Bufs {
    Kvo16s src1[256], src2[256], d16[256];
    Kvo32s d32[256], norm32;
    Kvo16s norm16;
    void fill() {
        for (int i = 0; i < 256; ++i) src1[i] = src2[i] = static_cast<Kvo16s>(i * 37 - 900);
        std::memset(d16, 0xa5, sizeof d16);
        std::memset(d32, 0xa5, sizeof d32);
        norm32 = 0x5a5a5a5a;
        norm16 = 0x5a5a;
    }
};
struct Export {
    const char* name;
    int pointers;
    bool hasLen, hasLags, hasScale;
    std::function<KvoStatus(Bufs&, unsigned nullMask, Kvo32s len, Kvo32s lags, Kvo32s sf)> call;
};
// clang-format off
#define P(i, ptr) (((m >> i) & 1) ? nullptr : (ptr))
#define EXPORT(name, ptrs, hl, hg, hs, ...)                                        \
    Export{#name, ptrs, hl, hg, hs,                                                 \
           [](Bufs& b, unsigned m, Kvo32s len, Kvo32s lags, Kvo32s sf) -> KvoStatus { \
               (void)len, (void)lags, (void)sf;                                   \
               return name(__VA_ARGS__);                                          \
           }}

const Export kExports[] = {
    EXPORT(kvosAutoCorr_NormE_16s32s, 3, true, true, false, P(0, b.src1), len, P(1, b.d32), lags,
           P(2, &b.norm32)),
    EXPORT(kvosAutoCorr_NormE_NR_16s, 3, true, true, false, P(0, b.src1), len, P(1, b.d16), lags,
           P(2, &b.norm32)),
    EXPORT(kvosAutoCorr_16s32s, 2, true, true, false, P(0, b.src1), len, P(1, b.d32), lags),
    EXPORT(kvosAutoCorr_NormE_G723_16s, 3, false, false, false, P(0, b.src1), P(1, b.d16),
           P(2, &b.norm32)),
    EXPORT(kvosAutoCorr_G723_16s, 3, false, false, false, P(0, b.src1), P(1, &b.norm16),
           P(2, b.d16)),
    EXPORT(kvosAutoCorr_G729B, 3, false, false, false, P(0, b.src1), P(1, &b.norm16), P(2, b.d32)),
    EXPORT(kvosCrossCorr_NR_16s, 3, true, true, false, P(0, b.src1), P(1, b.src2), len, P(2, b.d16),
           lags),
    EXPORT(kvosCrossCorr_NR_16s_Sfs, 3, true, true, false, P(0, b.src1), P(1, b.src2), len,
           P(2, b.d16), lags, sf),
    EXPORT(kvosCrossCorr_NR_16s32s, 3, true, true, false, P(0, b.src1), P(1, b.src2), len,
           P(2, b.d32), lags),
    EXPORT(kvosCrossCorr_16s32s_Sfs, 3, true, false, false, P(0, b.src1), P(1, b.src2), len,
           P(2, b.d32), sf),
    EXPORT(kvosCrossCorr_NormM_16s, 3, true, false, false, P(0, b.src1), P(1, b.src2), len,
           P(2, b.d16)),
    EXPORT(kvosConvPartial_16s_Sfs, 3, true, false, true, P(0, b.src1), P(1, b.src2), P(2, b.d16),
           len, sf),
    EXPORT(kvosConvPartial_16s32s, 3, true, false, false, P(0, b.src1), P(1, b.src2), P(2, b.d32),
           len),
    EXPORT(kvosConvPartial_NR_16s, 3, true, false, false, P(0, b.src1), P(1, b.src2), P(2, b.d16),
           len),
    EXPORT(kvosConvPartial_NR_Low_16s, 3, true, false, false, P(0, b.src1), P(1, b.src2),
           P(2, b.d16), len),
};
// clang-format on
#undef EXPORT
#undef P
}  // namespace

TEST(Corr, BadArgumentsWriteNothing) {
    static Bufs b, ref;
    ref.fill();
    for (const Export& e : kExports) {
        auto check = [&](unsigned mask, Kvo32s len, Kvo32s lags, Kvo32s sf, KvoStatus want) {
            b.fill();
            EXPECT_EQ(e.call(b, mask, len, lags, sf), want)
                << e.name << " mask " << mask << " len " << len << " lags " << lags << " sf " << sf;
            EXPECT_EQ(std::memcmp(&b, &ref, sizeof b), 0) << e.name;
        };
        for (int p = 0; p < e.pointers; ++p) {
            check(1u << p, 8, 4, 0, kvoErrNullPtr);
            check(1u << p, 0, 0, -1, kvoErrNullPtr);
        }
        if (e.hasLen)
            for (Kvo32s len : {0, -1, INT32_MIN}) check(0, len, 4, 0, kvoErrSize);
        if (e.hasLags)
            for (Kvo32s lags : {0, -1}) check(0, 8, lags, 0, kvoErrSize);
        if (e.hasScale) {
            check(0, 8, 4, -1, kvoErrBadArg);
            check(0, 0, 4, -1, kvoErrBadArg);
        }
        b.fill();
        EXPECT_GE(e.call(b, 0, 8, 4, 1), kvoOk) << e.name;
    }
    // Only the convolution tests its scale: the others take any.
    EXPECT_EQ(kvosCrossCorr_16s32s_Sfs(b.src1, b.src2, 8, b.d32, -5), kvoOk);
    EXPECT_EQ(kvosCrossCorr_NR_16s_Sfs(b.src1, b.src2, 8, b.d16, 4, 40), kvoOk);
}
