// G.729 and GSM AMR conversions between LP coefficients, LSPs and LSFs: the
// G.729 coders' vectors prove the G.729 paths bit for bit; here worked values,
// the refusal paths, and the cosine / product-of-lines models where the
// conversions reach beyond the coders (the GSM AMR and normalised forms).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "lpc_model.h"
#include "numeric/numeric_tables.h"

namespace {

const double kPi = std::acos(-1.0);

// ---- LSP to LPC ---------------------------------------------------------------

TEST(LspToLpc, EquallySpacedLinesGiveTheFlatFilter) {
    Kvo16s lsp[10], out[11];
    for (int k = 1; k <= 10; ++k) lsp[k - 1] = Kvo16s(std::lround(32768 * std::cos(k * kPi / 11)));
    ASSERT_EQ(kvoOk, kvosLSPToLPC_G729_16s(lsp, out));
    EXPECT_EQ(4096, out[0]);
    for (int i = 1; i <= 10; ++i) EXPECT_NEAR(0, out[i], 2) << i;
}

// ---- LSF <-> LSP ----------------------------------------------------------------

// Linear interpolation of the cosine between the nodes i pi / 64 (the
// table's own construction), in double.
double cosChord(double f) {  // f: normalised frequency in units of pi / 64
    const int i = int(std::floor(f));
    const double c0 = std::min(32767.0, 32768 * std::cos(kPi * i / 64));
    const double c1 = std::min(32767.0, 32768 * std::cos(kPi * (i + 1) / 64));
    return c0 + (c1 - c0) * (f - i);
}

TEST(LsfToLsp, GsmAmrNormalisedFollowsTheCosine) {
    for (int base = 0; base < 16384; base += 70) {
        Kvo16s lsf[10], lsp[10];
        for (int i = 0; i < 10; ++i) lsf[i] = Kvo16s(std::min(base + i, 16383));
        ASSERT_EQ(kvoOk, kvosLSFToLSP_GSMAMR_16s(lsf, lsp));
        for (int i = 0; i < 10; ++i) {
            ASSERT_NEAR(cosChord(lsf[i] / 256.0), lsp[i], 2) << lsf[i];
            // Chord error of 64 intervals, 32768 (pi/64)^2 / 8 < 10, plus the
            // floor and the first node held at 32767.
            ASSERT_NEAR(32768 * std::cos(kPi * lsf[i] / 16384.0), lsp[i], 12) << lsf[i];
        }
    }
    // Beyond pi (no clamp of the index): the cosine continues symmetrically.
    Kvo16s lsf[10], lsp[10];
    for (int i = 0; i < 10; ++i) lsf[i] = Kvo16s(16384 + 1600 * i + 37);
    ASSERT_EQ(kvoOk, kvosLSFToLSP_GSMAMR_16s(lsf, lsp));
    for (int i = 0; i < 10; ++i)
        EXPECT_NEAR(32768 * std::cos(kPi * lsf[i] / 16384.0), lsp[i], 12) << i;
}

TEST(LsfToLsp, NegativeFrequencyStopsWithEarlierOutputsWritten) {
    for (auto fn : {kvosLSFToLSP_G729_16s, kvosLSFToLSP_GSMAMR_16s}) {
        Kvo16s lsf[10] = {100, 200, 300, -1, 500, 600, 700, 800, 900, 1000};
        Kvo16s lsp[10];
        for (auto& v : lsp) v = 0x2222;
        EXPECT_EQ(kvoErrNegativeFreq, fn(lsf, lsp));
        for (int i = 0; i < 3; ++i) EXPECT_NE(0x2222, lsp[i]) << i;
        for (int i = 3; i < 10; ++i) EXPECT_EQ(0x2222, lsp[i]) << i;
        lsf[3] = -32768;
        lsf[0] = -5;
        for (auto& v : lsp) v = 0x2222;
        EXPECT_EQ(kvoErrNegativeFreq, fn(lsf, lsp));
        for (Kvo16s v : lsp) EXPECT_EQ(0x2222, v);
    }
}

// Arc cosine interpolated linearly between the table nodes, in units of
// pi / 64: the first node at or above x from the top of the table.
double acosChord(int x) {
    int i = 63;
    auto node = [](int k) { return std::min(32767.0, 32768 * std::cos(kPi * k / 64)); };
    while (i > 0 && node(i) < x) --i;
    return i + (x - node(i)) / (node(i + 1) - node(i));
}

TEST(LspToLsf, RadiansAndNormalisedFollowTheArcCosine) {
    // Ordered vectors sweeping the whole range from +1 to -1.
    for (int start = 32767; start > -32768 + 10 * 60; start -= 397) {
        Kvo16s lsp[10], rad[10], nrm[10];
        for (int i = 0; i < 10; ++i) lsp[i] = Kvo16s(start - 60 * i);
        ASSERT_EQ(kvoOk, kvosLSPToLSF_G729_16s(lsp, rad));
        ASSERT_EQ(kvoOk, kvosLSPToLSF_Norm_G729_16s(lsp, nrm));
        for (int i = 0; i < 10; ++i) {
            const double f = acosChord(lsp[i]);  // units of pi / 64
            EXPECT_NEAR(f * 256, nrm[i], 2) << lsp[i];
            EXPECT_NEAR(f * kPi / 64 * 8192, rad[i], 3) << lsp[i];
            // Away from +-1, where acos is steep, the chord is close to acos.
            if (std::abs(lsp[i]) < 31000) {
                const double w = std::acos(lsp[i] / 32768.0);
                EXPECT_NEAR(w / kPi * 16384, nrm[i], 6) << lsp[i];
            }
        }
    }
}

}  // namespace
