// The vector LSP codebook searches against their ordered scalar twins: the
// same indices on random targets, full-scale and -32768 targets, alternating
// signs, targets on and next to codebook rows (exact ties and near ties), and
// random and extreme weights.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "g729/lsp.h"
#include "g729/lsp_tables.h"

namespace {

std::vector<std::vector<Kvo16s>> targets(unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> full(-32768, 32767), small(-40, 40), pick(0, 127);
    std::vector<std::vector<Kvo16s>> out;
    for (Kvo16s v : {Kvo16s{0}, Kvo16s{32767}, Kvo16s{-32768}, Kvo16s{-32767}, Kvo16s{16384}})
        out.push_back(std::vector<Kvo16s>(10, v));
    std::vector<Kvo16s> alt(10);
    for (int j = 0; j < 10; ++j) alt[j] = j & 1 ? -32768 : 32767;
    out.push_back(alt);
    for (int j = 0; j < 10; ++j) alt[j] = static_cast<Kvo16s>(-alt[j] - 1);
    out.push_back(alt);
    for (int n = 0; n < 3000; ++n) {
        std::vector<Kvo16s> v(10);
        const int kind = n % 4;
        const int row = pick(rng);
        for (int j = 0; j < 10; ++j) {
            if (kind == 0) {
                v[j] = static_cast<Kvo16s>(full(rng));
            } else if (kind == 1) {  // on a row, or one step off it
                v[j] =
                    static_cast<Kvo16s>(kvo::tab::LSPCode1[row][j] + (n % 8 == 1 ? 0 : small(rng)));
            } else if (kind == 2) {  // second-stage scale residuals
                v[j] = static_cast<Kvo16s>(kvo::tab::LSPCode2[row & 31][j] + small(rng));
            } else {  // near saturation of the differences
                v[j] = static_cast<Kvo16s>(full(rng) & 1 ? 32767 - (small(rng) & 15)
                                                         : -32768 + (small(rng) & 15));
            }
        }
        out.push_back(v);
    }
    return out;
}

TEST(G729LspSearchTwin, FirstStageMatchesOrderedSearch) {
    for (const auto& r : targets(729)) {
        SCOPED_TRACE(::testing::Message() << "seed 729 r0=" << r[0] << " r9=" << r[9]);
        ASSERT_EQ(kvo::ownLspFirstStage(r.data()), kvo::ownLspFirstStagePlain(r.data()));
    }
}

TEST(G729LspSearchTwin, SecondStageMatchesOrderedSearch) {
    std::mt19937 rng(4729);
    std::uniform_int_distribution<int> wd(0, 32767);
    const auto es = targets(5729);
    for (size_t n = 0; n < es.size(); ++n) {
        Kvo16s w[10];
        for (int j = 0; j < 10; ++j) {
            const int kind = n % 4;  // random, full, alternating, upper half
            w[j] = static_cast<Kvo16s>(kind == 0   ? wd(rng)
                                       : kind == 1 ? 32767
                                       : kind == 2 ? (j & 1 ? 0 : 32767)
                                                   : 16384 + (wd(rng) >> 1));
        }
        int lo = -1, hi = -1, plo = -2, phi = -2;
        kvo::ownLspSecondStage(es[n].data(), w, &lo, &hi);
        kvo::ownLspSecondStagePlain(es[n].data(), w, &plo, &phi);
        SCOPED_TRACE(::testing::Message() << "seed 5729 case " << n);
        ASSERT_TRUE(lo == plo && hi == phi);
    }
}

// Weights as the quantiser forms them, on ordered LSF vectors.
TEST(G729LspSearchTwin, SecondStageWithQuantiserWeights) {
    std::mt19937 rng(9729);
    std::uniform_int_distribution<int> gap(50, 2600), off(-3000, 3000);
    for (int n = 0; n < 2000; ++n) {
        Kvo16s x[10], w[10], e[10];
        int v = 0;
        for (int j = 0; j < 10; ++j) x[j] = static_cast<Kvo16s>(v += gap(rng));
        kvo::ownLspWeights(x, w);
        for (int j = 0; j < 10; ++j) e[j] = static_cast<Kvo16s>(off(rng));
        int lo, hi, plo, phi;
        kvo::ownLspSecondStage(e, w, &lo, &hi);
        kvo::ownLspSecondStagePlain(e, w, &plo, &phi);
        SCOPED_TRACE(::testing::Message() << "seed 9729 case " << n);
        ASSERT_TRUE(lo == plo && hi == phi);
    }
}

}  // namespace
