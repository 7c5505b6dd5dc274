// The vector test of the candidate scan against its plain twin, on random
// and extreme 16-bit values, including scans that must take a later
// candidate after an earlier one.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "g729/fcb.h"

namespace {

TEST(G729FcbSimd, ScanOfEightMatchesThePlainScan) {
    std::mt19937 g(88);
    std::uniform_int_distribution<int> sqd(-1, 32767), alpd(-32768, 32767), small(0, 40),
        pick(0, 5);
    const Kvo32s extremes[] = {-32768, -32767, -1, 0, 1, 2, 32766, 32767};
    for (int r = 0; r < 100000; ++r) {
        Kvo32s sq[8], alp[8];
        const int mode = pick(g) % 3;  // full range, close ratios, extremes
        for (int k = 0; k < 8; ++k) {
            sq[k] = mode == 0 ? sqd(g) : mode == 1 ? 1000 + small(g) : std::max(-1, extremes[g() % 8]);
            alp[k] = mode == 0 ? alpd(g) : mode == 1 ? 500 + small(g) : extremes[g() % 8];
        }
        Kvo32s bs0 = r % 3 == 0 ? -1 : sqd(g), ba0 = r % 3 == 0 ? 1 : alpd(g);
        if (r % 7 == 0) {
            bs0 = std::max(-1, extremes[g() % 8]);
            ba0 = extremes[g() % 8];
        }
        Kvo32s bs1 = bs0, ba1 = ba0, bs2 = bs0, ba2 = ba0;
        const int w1 = kvo::ownScanBest8(sq, alp, bs1, ba1);
        const int w2 = kvo::ownScanBest8_Scalar(sq, alp, bs2, ba2);
        // The definition: every candidate in turn against the best so far.
        int64_t bs3 = bs0, ba3 = ba0;
        int w3 = -1;
        for (int k = 0; k < 8; ++k)
            if (int64_t{sq[k]} * ba3 > bs3 * alp[k]) {
                bs3 = sq[k];
                ba3 = alp[k];
                w3 = k;
            }
        ASSERT_TRUE(w1 == w3 && w2 == w3 && bs1 == bs3 && ba1 == ba3 && bs2 == bs3 && ba2 == ba3)
            << r;
    }
}

}  // namespace
