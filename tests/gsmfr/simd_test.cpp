// AVX2 builds of the GSM full-rate kernels against their plain twins, bit for
// bit, on random, full-scale and -32768-laden data.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "gsmfr/gsmfr.h"

namespace {

Kvo16s draw(std::mt19937& rng, int kind) {
    switch (kind) {
        case 0:
            return static_cast<Kvo16s>(rng());  // anything
        case 1:
            return static_cast<Kvo16s>(rng() & 1 ? -32768 : 32767);  // rails
        case 2:
            return static_cast<Kvo16s>(static_cast<int>(rng() % 2001) - 1000);
        default:
            return static_cast<Kvo16s>(rng() % 3 == 0 ? -32768 : static_cast<Kvo16s>(rng()));
    }
}

TEST(GsmFrSimd, LatticesAndEmphasisEqualThePlainLoops) {
    if (!kvo::gsmfr::hasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(2026);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        const int kind = trial % 4, len = 1 + static_cast<int>(rng() % 170);
        Kvo16s rc[8], mem[9];
        for (auto& v : rc) v = draw(rng, kind == 2 ? 0 : kind);
        for (auto& v : mem) v = draw(rng, kind);
        std::vector<Kvo16s> x(len);
        for (auto& v : x) v = draw(rng, kind);

        std::vector<Kvo16s> a = x, b = x;
        Kvo16s ma[9], mb[9];
        std::memcpy(ma, mem, sizeof mem);
        std::memcpy(mb, mem, sizeof mem);
        kvo::gsmfr::analysisLatticeScalar(rc, a.data(), len, ma);
        kvo::gsmfr::analysisLatticeAvx2(rc, b.data(), len, mb);
        ASSERT_EQ(a, b);
        ASSERT_EQ(0, std::memcmp(ma, mb, 8 * sizeof(Kvo16s)));

        std::vector<Kvo16s> ya(len), yb(len);
        std::memcpy(ma, mem, sizeof mem);
        std::memcpy(mb, mem, sizeof mem);
        kvo::gsmfr::synthesisLatticeScalar(rc, x.data(), ya.data(), len, ma);
        kvo::gsmfr::synthesisLatticeAvx2(rc, x.data(), yb.data(), len, mb);
        ASSERT_EQ(ya, yb);
        ASSERT_EQ(0, std::memcmp(ma, mb, sizeof ma));

        a = x;
        b = x;
        Kvo16s pa = mem[1], pb = mem[1];
        kvo::gsmfr::preemphasisScalar(a.data(), a.data(), len, &pa);
        kvo::gsmfr::preemphasisAvx2(b.data(), b.data(), len, &pb);
        ASSERT_EQ(a, b);
        ASSERT_EQ(pa, pb);

        a = x;
        b = x;
        Kvo16s da = mem[0], db = mem[0];
        kvo::gsmfr::deemphasisScalar(a.data(), len, &da);
        kvo::gsmfr::deemphasisAvx2(b.data(), len, &db);
        ASSERT_EQ(a, b);
        ASSERT_EQ(da, db);
    }
}

TEST(GsmFrSimd, LagSearchEqualsThePlainLoop) {
    if (!kvo::gsmfr::hasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(99);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int maxLag = static_cast<int>(rng() % 90);
        std::vector<Kvo16s> x(40), y(40 + maxLag);
        // Magnitudes that keep 40 products below 2^31, as the dispatcher requires.
        for (auto& v : x) v = static_cast<Kvo16s>(static_cast<int>(rng() % 1024) - 512);
        for (auto& v : y)
            v = static_cast<Kvo16s>(trial % 5 == 0 ? (rng() & 1 ? 32767 : -32767)
                                                   : static_cast<int>(rng() % 20001) - 10000);
        if (trial % 7 == 0) y = std::vector<Kvo16s>(y.size(), 100);  // every lag ties
        Kvo32s m1, l1, m2, l2;
        kvo::gsmfr::crossCorrLagMaxScalar(x.data(), y.data(), 40, maxLag, &m1, &l1);
        kvo::gsmfr::lagMax40Avx2(x.data(), y.data(), maxLag, &m2, &l2);
        EXPECT_EQ(m1, m2);
        EXPECT_EQ(l1, l2);
    }
}

}  // namespace
