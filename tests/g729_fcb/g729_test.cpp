// The 32-bit-matrix forms the coders do not use: worked matrix values at both
// widths (unit pulse, saturating extreme), and all four searches recovering
// the code vector that made the target.
#include <gtest/gtest.h>

#include <vector>

#include "fcb_model.h"
#include "kvosc.h"

using namespace fcbmodel;

namespace {

TEST(G729FcbMatrix, WorkedValuesAtBothWidths) {
    Vec h{};
    h[0] = 4096;  // energy 2^24, normalised to 16384: diagonal 2^28, rest 0
    std::vector<Kvo32s> m(616);
    std::vector<Kvo16s> m16(616);
    kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
    kvosToeplizMatrix_G729_16s(h.data(), m16.data());
    for (int k = 0; k < 616; ++k) {
        EXPECT_EQ(m[k], k < 40 ? (1 << 28) : 0) << k;
        EXPECT_EQ(m16[k], k < 40 ? 8192 : 0) << k;
    }
    h.fill(-32768);  // halved to -16384; doubled running sums saturate
    kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
    kvosToeplizMatrix_G729_16s(h.data(), m16.data());
    EXPECT_EQ(m[0], 0x7fffffff >> 1);
    EXPECT_EQ(m16[0], 32767);
    EXPECT_EQ(m[7 + 32], 1 << 28);  // M(39,39): one term
    EXPECT_EQ(m16[7 + 32], 8192);
}

TEST(G729FcbSearch, AllFormsFindTheCodeVectorThatMadeTheTarget) {
    std::mt19937 g(729);
    std::uniform_int_distribution<int> idx(0, 7), coin(0, 1);
    Vec h{};
    h[0] = 4096;
    for (int r = 0; r < 50; ++r) {
        std::vector<Pulse> ps;
        for (int t = 0; t < 3; ++t) ps.push_back({t + 5 * idx(g), coin(g) ? 1 : -1});
        ps.push_back({3 + coin(g) + 5 * idx(g), coin(g) ? 1 : -1});
        const Vec x = target(ps, h, 3000);
        Vec d{};
        kvosCrossCorr_NormM_16s(h.data(), x.data(), L, d.data());
        for (int f = 0; f < 4; ++f) {
            std::vector<Kvo32s> m(616);
            std::vector<Kvo16s> m16(616);
            kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
            kvosToeplizMatrix_G729_16s(h.data(), m16.data());
            Vec c{};
            Kvo16s i[4], times = 0;
            const KvoStatus st =
                f == 0   ? kvosFixedCodebookSearch_G729_32s16s(d.data(), m.data(), c.data(), i,
                                                               &times, 0)
                : f == 1 ? kvosFixedCodebookSearch_G729_16s(d.data(), m16.data(), c.data(), i,
                                                            &times, 0)
                : f == 2 ? kvosFixedCodebookSearch_G729A_32s16s(d.data(), m.data(), c.data(), i)
                         : kvosFixedCodebookSearch_G729A_16s(d.data(), m16.data(), c.data(), i);
            ASSERT_EQ(st, kvoOk);
            EXPECT_EQ(c, code(ps, 8191, -8192)) << "form " << f << " trial " << r;
        }
    }
}

}  // namespace
