// Cross-correlation exports and private kernels against the int64 models.
#include <gtest/gtest.h>

#include "corr_model.h"
#include "kernels/corr.h"
#include "kvosc.h"

using namespace corrmodel;

namespace {

constexpr int kLens[] = {1, 2, 5, 8, 15, 16, 17, 40, 64, 80};

// Pairs (fixed, sliding) of every kind combination; the sliding one is long
// enough for `extra` further lags.
template <class F>
void forEachPair(uint32_t seed, int extra, F&& f) {
    std::mt19937 g(seed);
    for (Kind k1 : kAllKinds)
        for (Kind k2 : {Kind::Random, Kind::FullNeg, Kind::Alternate, Kind::Bursts})
            for (int len : kLens) {
                V16 a = make(k1, len, g), b = make(k2, len + extra, g);
                SCOPED_TRACE(::testing::Message() << "seed " << seed << " kinds " << int(k1) << "/"
                                                  << int(k2) << " len " << len);
                f(a, b);
            }
}

}  // namespace

TEST(CrossCorr, RoundedForms) {
    const int lags = 9;
    forEachPair(21, lags - 1, [&](const V16& a, const V16& b) {
        const int len = static_cast<int>(a.size());
        std::vector<int16_t> got(lags), want(lags);
        for (int k = 0; k < lags; ++k)
            want[k] = wrap16((i64{wrap32(dot(a.data(), b.data() + k, len))} + 16384) >> 15);
        ASSERT_EQ(kvosCrossCorr_NR_16s(a.data(), b.data(), len, got.data(), lags), kvoOk);
        EXPECT_EQ(got, want);
        for (int sf : {0, 1, 2, 7, 15, 16, 20, 31}) {
            for (int k = 0; k < lags; ++k) {
                i64 s = wrap32(dot(a.data(), b.data() + k, len));
                want[k] = s16((s + (sf ? i64{1} << (sf - 1) : 0)) >> sf);
            }
            ASSERT_EQ(kvosCrossCorr_NR_16s_Sfs(a.data(), b.data(), len, got.data(), lags, sf),
                      kvoOk);
            EXPECT_EQ(got, want) << "scale " << sf;
        }
    });
    // Ties round up; scale 0 adds nothing.
    V16 a{3}, b{1, -3};
    Kvo16s d[2];
    kvosCrossCorr_NR_16s_Sfs(a.data(), b.data(), 1, d, 2, 1);
    EXPECT_EQ(d[0], 2);   // 3 / 2 -> 2
    EXPECT_EQ(d[1], -4);  // -9 / 2 -> -4
    kvosCrossCorr_NR_16s_Sfs(a.data(), b.data(), 1, d, 2, 0);
    EXPECT_EQ(d[1], -9);
    // Q15 ties: 16384 rounds to 1, -16384 to 0, -16385 to -1.
    V16 u{128}, v{128, -128, -1};
    V16 w{-16385, 0};
    kvosCrossCorr_NR_16s(u.data(), v.data(), 1, d, 2);
    EXPECT_EQ(d[0], 1);
    EXPECT_EQ(d[1], 0);
    V16 one{1};
    kvosCrossCorr_NR_16s(one.data(), w.data(), 1, d, 1);
    EXPECT_EQ(d[0], -1);
}

TEST(CrossCorr, WideForms) {
    const int lags = 6;
    forEachPair(22, lags - 1, [&](const V16& a, const V16& b) {
        const int len = static_cast<int>(a.size());
        std::vector<int32_t> got(lags), want(lags);
        for (int k = 0; k < lags; ++k) want[k] = s32(dot(a.data(), b.data() + k, len));
        ASSERT_EQ(kvosCrossCorr_NR_16s32s(a.data(), b.data(), len, got.data(), lags), kvoOk);
        EXPECT_EQ(got, want);
        // Triangular, shifted either way.
        std::vector<int32_t> g2(len), w2(len);
        for (int sf : {-3, -1, 0, 1, 9, 31}) {
            for (int k = 0; k < len; ++k) {
                i64 s = wrap32(tri(a.data(), b.data(), len, k));
                w2[k] = sf >= 0 ? static_cast<int32_t>(s >> sf) : wrap32(s * (i64{1} << -sf));
            }
            ASSERT_EQ(kvosCrossCorr_16s32s_Sfs(a.data(), b.data(), len, g2.data(), sf), kvoOk);
            EXPECT_EQ(g2, w2) << "scale " << sf;
        }
        // Private doubled forms, forward and backward.
        std::vector<int32_t> fwd(lags), low(lags), inv(lags), wf(lags), wl(lags), wi(lags);
        const int16_t* mid = b.data() + lags - 1;  // lags - 1 samples of history before it
        const int invLen = len + 1 - lags > 0 ? len + 1 - lags : 1;
        for (int k = 0; k < lags; ++k) {
            i64 s = wrap32(dot(a.data(), b.data() + k, len));
            wf[k] = s32(2 * s);
            wl[k] = wrap32(2 * s);
            wi[k] = s32(2 * i64{wrap32(dot(a.data(), mid - k, invLen))});
        }
        kvo::kvosCrossCorr_Fwd_16s32s_(a.data(), b.data(), len, fwd.data(), lags);
        kvo::kvosCrossCorr_Fwd_Low_16s32s_(a.data(), b.data(), len, low.data(), lags);
        kvo::kvosCrossCorr_Inv_16s32s_(a.data(), mid, invLen, inv.data(), lags);
        EXPECT_EQ(fwd, wf);
        EXPECT_EQ(low, wl);
        EXPECT_EQ(inv, wi);
    });
}

TEST(CrossCorr, StridedRounded) {
    forEachPair(23, 0, [&](const V16& a, const V16& b) {
        const int len = static_cast<int>(a.size());
        for (int step : {1, 2, 3})
            for (int sf : {0, 1, 15, 20}) {
                const int count = 7;
                std::vector<int16_t> got(count), want(count);
                for (int j = 0; j < count; ++j) {
                    i64 s = wrap32(tri(a.data(), b.data(), len, i64{j} * step));
                    want[j] = wrap16((s + (sf ? i64{1} << (sf - 1) : 0)) >> sf);
                }
                kvo::kvosCrossCorr_Step_NR_Sfs_16s_(a.data(), b.data(), len, step, got.data(),
                                                    count, sf);
                EXPECT_EQ(got, want) << "step " << step << " scale " << sf;
            }
    });
}

TEST(CrossCorr, NormMMatchesModel) {
    forEachPair(24, 0, [&](const V16& h, const V16& x) {
        const int len = static_cast<int>(h.size());
        std::vector<int16_t> want, got(len, 0x5a5a);
        crossNorm(h, x, 2, want);
        ASSERT_EQ(kvosCrossCorr_NormM_16s(h.data(), x.data(), len, got.data()), kvoOk);
        EXPECT_EQ(got, want);
        // The largest output fits 14 bits with its sign.
        for (auto v : got) EXPECT_TRUE(v >= -8192 && v <= 8191) << v;
        // Other headrooms through the private core, saturating for subframe sizes.
        for (int hr : {-3, 0, 1, 5, 20}) {
            Kvo32s shift = hr;
            kvo::kvosCrossCorr_Norm_16s_(h.data(), x.data(), got.data(), len, &shift);
            EXPECT_EQ(shift, crossNorm(h, x, hr, want)) << "headroom " << hr;
            EXPECT_EQ(got, want) << "headroom " << hr;
        }
    });
}

TEST(CrossCorr, NormMWorkedValues) {
    // Doubled sum 2^31 wraps to 0x80000000; its magnitude counts as
    // 0x7fffffff, so the shift is 18 and the other lag shrinks to -1.
    V16 h{1, -32768}, x{0, -32768};
    Kvo16s d[2];
    ASSERT_EQ(kvosCrossCorr_NormM_16s(h.data(), x.data(), 2, d), kvoOk);
    EXPECT_EQ(d[0], -8192);
    EXPECT_EQ(d[1], -1);
    // A zero target gives zeros; a unit impulse response gives the target
    // scaled by 2^-2 (shift 2 + 16 - 16, the norm held at 16).
    V16 h2{1, 0, 0, 0}, zero(4, 0), t{400, -401, 7, -8};
    Kvo16s e[4];
    ASSERT_EQ(kvosCrossCorr_NormM_16s(h2.data(), zero.data(), 4, e), kvoOk);
    for (auto v : e) EXPECT_EQ(v, 0);
    ASSERT_EQ(kvosCrossCorr_NormM_16s(h2.data(), t.data(), 4, e), kvoOk);
    EXPECT_EQ(e[0], 200);
    EXPECT_EQ(e[1], -201);  // -802 >> 2, toward minus infinity
    EXPECT_EQ(e[2], 3);
    EXPECT_EQ(e[3], -4);
}
