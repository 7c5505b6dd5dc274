// The coarse walks of the root searches return exactly what the one-step
// walks of the reference procedure return, whenever they find ten distinct
// roots.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "kernels/lpc.h"
#include "lpc_model.h"

namespace {

TEST(RootWalks, CoarseLspWalkAgreesWithTheSingleStepWalk) {
    struct Cfg {
        int grid, bisections, table, shift;
    };
    const Cfg cfgs[] = {{60, 4, 0, 12}, {50, 2, 1, 12}, {60, 4, 0, 13}};
    std::mt19937 g(606);
    int agreed = 0, fellBack = 0;
    for (int trial = 0; trial < 600; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 606 trial " << trial);
        auto a = lpcmodel::stepUp(lpcmodel::randomRC(g, 10, trial % 2 ? 0.99 : 0.8));
        Kvo16s q[11];
        bool fits = true;
        for (int i = 0; i <= 10; ++i) {
            fits = fits && std::fabs(a[size_t(i)]) < 7.9;
            q[i] = Kvo16s(std::lround(a[size_t(i)] * 4096));
        }
        if (!fits) continue;
        for (const Cfg& c : cfgs) {
            Kvo16s coarse[10], fine[10];
            const int nc = kvo::lspRootWalk_(2, c.grid, c.bisections, c.table, q, coarse, c.shift);
            const int nf = kvo::lspRootWalk_(1, c.grid, c.bisections, c.table, q, fine, c.shift);
            if (nc != 10) {
                ++fellBack;
                continue;
            }
            // A root found twice (a polynomial value of zero at a found root)
            // can make up for a pair of roots the coarse walk stepped over:
            // such degenerate results need not agree.
            bool distinct = true;
            for (int i = 1; i < 10; ++i) distinct = distinct && coarse[i] < coarse[i - 1];
            if (!distinct) continue;
            ASSERT_EQ(10, nf);
            ASSERT_EQ(0, std::memcmp(coarse, fine, sizeof coarse));
            ++agreed;
        }
    }
    EXPECT_GT(agreed, 600);
    EXPECT_GT(fellBack, 0);
}

TEST(RootWalks, CoarseG723ScanAgreesWithTheRowByRowScan) {
    std::mt19937 g(707);
    int agreed = 0, fellBack = 0;
    for (int trial = 0; trial < 800; ++trial) {
        SCOPED_TRACE(testing::Message() << "seed 707 trial " << trial);
        auto a = lpcmodel::stepUp(lpcmodel::randomRC(g, 10, trial % 2 ? 0.99 : 0.8));
        Kvo16s q[10];
        bool fits = true;
        for (int i = 1; i <= 10; ++i) {
            fits = fits && std::fabs(a[size_t(i)]) < 3.9;
            q[i - 1] = Kvo16s(std::lround(-a[size_t(i)] * 8192));
        }
        if (!fits) continue;
        Kvo16s coarse[10], fine[10];
        const int rc = kvo::g723LsfScan_(4, q, coarse);
        const int rf = kvo::g723LsfScan_(1, q, fine);
        if (rc != 0) {
            ++fellBack;
            continue;
        }
        ASSERT_EQ(0, rf);
        ASSERT_EQ(0, std::memcmp(coarse, fine, sizeof coarse));
        ++agreed;
    }
    EXPECT_GT(agreed, 400);
    EXPECT_GT(fellBack, 0);
}

}  // namespace
