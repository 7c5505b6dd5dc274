// Partial convolutions against the int64 models, and the order of saturation
// of the saturating forms on worked values.
#include <gtest/gtest.h>

#include "corr_model.h"
#include "kvosc.h"

using namespace corrmodel;

namespace {

template <class F>
void forEachPair(uint32_t seed, F&& f) {
    std::mt19937 g(seed);
    for (Kind k1 : kAllKinds)
        for (Kind k2 : {Kind::Random, Kind::Small, Kind::FullNeg, Kind::Alternate, Kind::Bursts})
            for (int len : {1, 2, 3, 10, 40, 64}) {
                V16 a = make(k1, len, g), b = make(k2, len, g);
                SCOPED_TRACE(::testing::Message() << "seed " << seed << " kinds " << int(k1) << "/"
                                                  << int(k2) << " len " << len);
                f(a, b);
            }
}

}  // namespace

TEST(ConvPartial, MatchesModels) {
    forEachPair(31, [&](const V16& a, const V16& b) {
        const int len = static_cast<int>(a.size());
        std::vector<int32_t> g32(len), w32(len);
        std::vector<int16_t> got(len), want(len);
        for (int n = 0; n < len; ++n) w32[n] = wrap32(convExact(a, b, n));
        ASSERT_EQ(kvosConvPartial_16s32s(a.data(), b.data(), g32.data(), len), kvoOk);
        EXPECT_EQ(g32, w32);

        for (int n = 0; n < len; ++n) want[n] = wrap16((i64{w32[n]} + 16384) >> 15);
        ASSERT_EQ(kvosConvPartial_NR_Low_16s(a.data(), b.data(), got.data(), len), kvoOk);
        EXPECT_EQ(got, want);

        for (int n = 0; n < len; ++n) want[n] = rnd16(convSat(a, b, n));
        ASSERT_EQ(kvosConvPartial_NR_16s(a.data(), b.data(), got.data(), len), kvoOk);
        EXPECT_EQ(got, want);

        for (int sf : {0, 1, 12, 15, 30, 31, 40}) {
            for (int n = 0; n < len; ++n) {
                i64 acc = convSat(a, b, n);
                want[n] = s16(acc >> (sf + 1 > 63 ? 63 : sf + 1));
                // Wherever no partial sum saturates, this is sat16(S >> sf) of
                // the exact undoubled sum.
                i64 bound = 0;
                for (int k = 0; k <= n; ++k) bound += std::abs(i64{a[k]} * b[n - k]);
                if (2 * bound < kMax32) {
                    ASSERT_EQ(want[n], s16(convExact(a, b, n) >> sf));
                }
            }
            ASSERT_EQ(kvosConvPartial_16s_Sfs(a.data(), b.data(), got.data(), len, sf), kvoOk);
            EXPECT_EQ(got, want) << "scale " << sf;
        }
    });
}

// At scale 12 the G.729 adaptive-codebook filtering: saturating Q31
// accumulation, saturating left shift by 3, high half kept.
TEST(ConvPartial, Scale12IsTheG729Filtering) {
    forEachPair(32, [&](const V16& a, const V16& b) {
        const int len = static_cast<int>(a.size());
        std::vector<int16_t> got(len), want(len);
        for (int n = 0; n < len; ++n) {
            i64 acc = 0;
            for (int k = 0; k <= n; ++k) acc = mac(acc, a[k], b[n - k]);
            i64 shifted = s32(acc * 8);
            want[n] = static_cast<int16_t>(shifted >> 16);
        }
        ASSERT_EQ(kvosConvPartial_16s_Sfs(a.data(), b.data(), got.data(), len, 12), kvoOk);
        EXPECT_EQ(got, want);
    });
}

TEST(ConvPartial, SaturationOrderWorkedValues) {
    Kvo16s d[3];
    // Output 2: two products of 2 * 32767^2 saturate the accumulator before
    // the negative one brings it down to 65535 (round16 -> 1).  The exact sum
    // would give 32765.
    V16 a{32767, 32767, -32768}, b{32767, 32767, 32767};
    ASSERT_EQ(kvosConvPartial_NR_16s(a.data(), b.data(), d, 3), kvoOk);
    EXPECT_EQ(d[2], 1);
    ASSERT_EQ(kvosConvPartial_16s_Sfs(a.data(), b.data(), d, 3, 0), kvoOk);
    EXPECT_EQ(d[2], 32767);  // 65535 / 2 = 32767
    // Reversed order of the same terms never saturates: 32765.
    V16 ar{-32768, 32767, 32767};
    ASSERT_EQ(kvosConvPartial_NR_16s(ar.data(), b.data(), d, 3), kvoOk);
    EXPECT_EQ(d[2], 32765);
    // The doubled (-32768)^2 product saturates to 0x7fffffff on its own:
    // -98304 + 0x7fffffff = 0x7ffe7fff rounds to 32766 (2^31 would give 32767).
    V16 c{3, -32768}, h{-32768, -16384};
    ASSERT_EQ(kvosConvPartial_NR_16s(c.data(), h.data(), d, 2), kvoOk);
    EXPECT_EQ(d[1], 32766);
    // Low form wraps: 32767 * 32767 * 3 overflows 32 bits modulo 2^32.
    V16 f(3, 32767);
    ASSERT_EQ(kvosConvPartial_NR_Low_16s(f.data(), f.data(), d, 3), kvoOk);
    EXPECT_EQ(d[2], wrap16((i64{wrap32(3LL * 32767 * 32767)} + 16384) >> 15));
    EXPECT_EQ(d[0], 32766);  // (32767^2 + 16384) >> 15
}
