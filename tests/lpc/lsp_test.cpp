// G.729 and GSM AMR conversions between LP coefficients, LSPs and LSFs: the G.729 coders'
// vectors prove the G.729 paths bit for bit; here worked values, the refusal paths, and the
// cosine / arc-cosine chord models where the conversions reach beyond the coders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "kvosc.h"

namespace {

const double kPi = std::acos(-1.0);

// Cosine at the table nodes i pi / 64 (the first held at 32767).
double node(int i) {
    return std::min(32767.0, 32768 * std::cos(kPi * i / 64));
}

TEST(LspToLpc, EquallySpacedLinesGiveTheFlatFilter) {
    Kvo16s lsp[10], out[11];
    for (int k = 1; k <= 10; ++k) lsp[k - 1] = Kvo16s(std::lround(32768 * std::cos(k * kPi / 11)));
    ASSERT_EQ(kvoOk, kvosLSPToLPC_G729_16s(lsp, out));
    EXPECT_EQ(4096, out[0]);
    for (int i = 1; i <= 10; ++i) EXPECT_NEAR(0, out[i], 2) << i;
}

// The normalised GSM AMR form interpolates the cosine linearly between the nodes (within 2
// of that chord, within 12 of the cosine); beyond pi (no clamp of the index) the cosine
// continues symmetrically.
TEST(LsfToLsp, GsmAmrNormalisedFollowsTheCosine) {
    for (int base = 0; base < 16384 + 1600 * 9; base += 70) {
        Kvo16s lsf[10], lsp[10];
        const bool beyond = base >= 16384;
        for (int i = 0; i < 10; ++i)
            lsf[i] = Kvo16s(beyond ? base + 160 * i : std::min(base + i, 16383));
        ASSERT_EQ(kvoOk, kvosLSFToLSP_GSMAMR_16s(lsf, lsp));
        for (int i = 0; i < 10; ++i) {
            const double f = lsf[i] / 256.0;
            const int k = int(f);
            const double chord = node(k) + (node(k + 1) - node(k)) * (f - k);
            ASSERT_TRUE(beyond || std::fabs(chord - lsp[i]) <= 2) << lsf[i];
            ASSERT_NEAR(32768 * std::cos(kPi * lsf[i] / 16384.0), lsp[i], 12) << lsf[i];
        }
    }
}

// A negative frequency stops the conversion with the earlier outputs written.
TEST(LsfToLsp, NegativeFrequencyStopsWithEarlierOutputsWritten) {
    for (auto fn : {kvosLSFToLSP_G729_16s, kvosLSFToLSP_GSMAMR_16s})
        for (int at : {3, 0}) {
            Kvo16s lsf[10] = {100, 200, 300, 400, 500, 600, 700, 800, 900, 1000}, lsp[10];
            lsf[at] = at ? -1 : -32768;
            std::fill(lsp, lsp + 10, 0x2222);
            EXPECT_EQ(kvoErrNegativeFreq, fn(lsf, lsp));
            for (int i = 0; i < 10; ++i) EXPECT_EQ(i >= at, lsp[i] == 0x2222) << at << " " << i;
        }
}

// Both forms follow the arc cosine interpolated between the nodes (the first node at or
// above x from the top of the table), in units of pi / 64; away from +-1, where acos is
// steep, the chord is close to acos itself.
TEST(LspToLsf, RadiansAndNormalisedFollowTheArcCosine) {
    for (int start = 32767; start > -32768 + 10 * 60; start -= 397) {
        Kvo16s lsp[10], rad[10], nrm[10];
        for (int i = 0; i < 10; ++i) lsp[i] = Kvo16s(start - 60 * i);
        ASSERT_EQ(kvoOk, kvosLSPToLSF_G729_16s(lsp, rad));
        ASSERT_EQ(kvoOk, kvosLSPToLSF_Norm_G729_16s(lsp, nrm));
        for (int i = 0; i < 10; ++i) {
            int k = 63;
            while (k > 0 && node(k) < lsp[i]) --k;
            const double f = k + (lsp[i] - node(k)) / (node(k + 1) - node(k));
            EXPECT_NEAR(f * 256, nrm[i], 2) << lsp[i];
            EXPECT_NEAR(f * kPi / 64 * 8192, rad[i], 3) << lsp[i];
            const double w = std::acos(lsp[i] / 32768.0) / kPi * 16384;
            EXPECT_TRUE(std::abs(lsp[i]) >= 31000 || std::fabs(w - nrm[i]) <= 6) << lsp[i];
        }
    }
}

}  // namespace
