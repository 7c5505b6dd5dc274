// SSE2 twins against their plain loops (bit for bit, all head/tail splits),
// and the memory family.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "numeric/vector.h"
#include "vec_model.h"

using namespace kvo;

namespace {

TEST(Simd, TwinsEqualPlainLoops) {
    std::mt19937 rng(31337);
    for (int rep = 0; rep < 3; ++rep) {
        // Extreme data every third round.
        auto src =
            rep == 2 ? std::vector<Kvo16s>(64, -32768) : vt::mixed<Kvo16s>(rng, 64, vt::kSpecial16);
        auto src2 = vt::mixed<Kvo16s>(rng, 64, vt::kSpecial16);
        for (int len = 1; len <= 25; ++len) {
            for (int off = 0; off < 16; ++off) {
                SCOPED_TRACE(testing::Message()
                             << "seed 31337 rep " << rep << " len " << len << " offset " << off);
                const Kvo16s* a = src.data() + off;
                const Kvo16s* b = src2.data() + (15 - off);
                alignas(16) Kvo16s d1[48], d2[48];
                std::memset(d1, 0x5a, sizeof d1);
                std::memset(d2, 0x5a, sizeof d2);
                vec_scalar::add_16s(a, b, d1 + off, len);
                vec_sse2::add_16s(a, b, d2 + off, len);
                ASSERT_EQ(0, std::memcmp(d1, d2, sizeof d1));
                vec_scalar::sub_16s(a, b, d1 + off, len);
                vec_sse2::sub_16s(a, b, d2 + off, len);
                ASSERT_EQ(0, std::memcmp(d1, d2, sizeof d1));
                for (Kvo16s v : {Kvo16s{-32768}, Kvo16s{32767}, Kvo16s{3}, Kvo16s{0}}) {
                    for (int sf : {0, 1, 15, 16, 30}) {
                        vec_scalar::mulc_16s_sfs(a, v, d1 + off, len, sf);
                        vec_sse2::mulc_16s_sfs(a, v, d2 + off, len, sf);
                        ASSERT_EQ(0, std::memcmp(d1, d2, sizeof d1)) << "val " << v << " sf " << sf;
                    }
                }
                ASSERT_EQ(vec_scalar::dotprod_16s64s(a, b, len),
                          vec_sse2::dotprod_16s64s(a, b, len));
            }
        }
    }
}

TEST(Memory, ZeroSetMove) {
    Kvo64fc z[3];
    std::memset(z, 0xff, sizeof z);
    ASSERT_EQ(kvosZero_64fc(z, 2), kvoOk);
    const Kvo8u* zb = reinterpret_cast<const Kvo8u*>(z);
    for (size_t i = 0; i < sizeof z; ++i) EXPECT_EQ(zb[i], i < 32 ? 0 : 0xff) << i;
    // Move handles overlap both ways.
    Kvo16s m[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    ASSERT_EQ(kvosMove_16s(m, m + 2, 8), kvoOk);
    const Kvo16s up[] = {0, 1, 0, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(0, std::memcmp(m, up, sizeof up));
    Kvo32f mf[6] = {0, 1, 2, 3, 4, 5};
    ASSERT_EQ(kvosMove_32f(mf + 1, mf, 5), kvoOk);
    EXPECT_EQ(mf[0], 1.0f);
    EXPECT_EQ(mf[4], 5.0f);
}

}  // namespace
