// The fixed-point subband FIR with its AVX2 twin against the plain saturating sums:
// random rows, rows near the 64-bit limits (where the twin must hand subbands back) and
// every geometry edge, compared by memcmp; plus a wide-integer model of the saturated sum.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "ec/ec_common.h"
#include "kvosc.h"
#include "numeric/cpu.h"

namespace {

struct Rows {
    std::vector<std::vector<Kvo32sc>> x, h;
    std::vector<const Kvo32sc*> px, ph;
    Rows(int segs, int bands, std::mt19937& g, int kind) : x(segs), h(segs) {
        std::uniform_int_distribution<Kvo32s> any(INT32_MIN, INT32_MAX);
        std::uniform_int_distribution<Kvo32s> small(-(1 << 22), 1 << 22);
        std::uniform_int_distribution<int> pick(0, 3);
        const Kvo32s ext[4] = {INT32_MIN, INT32_MAX, INT32_MIN + 1, -1};
        auto val = [&]() -> Kvo32s {
            if (kind == 0) return small(g);                         // no saturation possible
            if (kind == 1) return any(g);                           // occasional overflow
            return pick(g) == 0 ? any(g) : ext[pick(g)];            // mostly extreme
        };
        for (int r = 0; r < segs; ++r) {
            x[r].resize(bands);
            h[r].resize(bands);
            for (auto& v : x[r]) v = {val(), val()};
            for (auto& v : h[r]) v = {val(), val()};
            px.push_back(x[r].data());
            ph.push_back(h[r].data());
        }
    }
};

// Saturated sum modelled with 128-bit integers: clamp after every addition.
Kvo64s clamp64(__int128 v) {
    return v > INT64_MAX ? INT64_MAX : v < INT64_MIN ? INT64_MIN : static_cast<Kvo64s>(v);
}

TEST(EcFirTwin, VectorAndScalarSumsAgreeByteForByte) {
    if (!kvo::cpuHasAvx2()) GTEST_SKIP() << "no AVX2";
    std::mt19937 g(1414);
    const int geo[][2] = {{1, 4}, {3, 5}, {16, 33}, {32, 64}, {8, 65}, {50, 129}, {2, 257}};
    for (int kind = 0; kind < 3; ++kind)
        for (const auto& gs : geo)
            for (int sf : {-31, -3, 0, 7, 31}) {
                SCOPED_TRACE(::testing::Message() << "kind " << kind << " segs " << gs[0]
                                                  << " bands " << gs[1] << " sf " << sf);
                Rows rows(gs[0], gs[1], g, kind);
                std::vector<Kvo32sc> a(gs[1]), b(gs[1]), c(gs[1]);
                kvo::ec::firSubband32scCore(rows.px.data(), rows.ph.data(), a.data(), gs[0],
                                            gs[1], sf, false);
                kvo::ec::firSubband32scCore(rows.px.data(), rows.ph.data(), b.data(), gs[0],
                                            gs[1], sf, true);
                ASSERT_EQ(kvosFIRSubband_EC_32sc_Sfs(rows.px.data(), rows.ph.data(), c.data(),
                                                     gs[0], gs[1], sf),
                          kvoOk);
                ASSERT_EQ(0, std::memcmp(a.data(), b.data(), a.size() * sizeof(Kvo32sc)));
                ASSERT_EQ(0, std::memcmp(a.data(), c.data(), a.size() * sizeof(Kvo32sc)));
            }
}

TEST(EcFirTwin, OverflowFlagsExactlyTheSubbandsThatLeave64Bits) {
    if (!kvo::cpuHasAvx2()) GTEST_SKIP() << "no AVX2";
    std::mt19937 g(77);
    for (int trial = 0; trial < 40; ++trial) {
        SCOPED_TRACE(trial);
        const int segs = 1 + trial % 9, bands = 8;
        Rows rows(segs, bands, g, trial % 2 + 1);
        Kvo64s accR[8], accI[8];
        const Kvo64u mask =
            kvo::ec::firSubband32scAvx2(rows.px.data(), rows.ph.data(), 0, bands, segs, accR, accI);
        for (int k = 0; k < bands; ++k) {
            __int128 wr = 0, wi = 0;
            Kvo64s sr = 0, si = 0;
            bool out = false;
            for (int r = 0; r < segs; ++r) {
                const __int128 xr = rows.x[r][k].re, xi = rows.x[r][k].im;
                const __int128 hr = rows.h[r][k].re, hi = rows.h[r][k].im;
                const __int128 ti = xr * hi + xi * hr;
                wr += xr * hr - xi * hi;
                wi += ti;
                out = out || ti != clamp64(ti) || wr != clamp64(wr) || wi != clamp64(wi);
                sr = clamp64(__int128{sr} + (xr * hr - xi * hi));
                si = clamp64(__int128{si} + clamp64(ti));
            }
            EXPECT_EQ(out, ((mask >> k) & 1) != 0) << "subband " << k;
            if (!out) {
                EXPECT_EQ(accR[k], sr);
                EXPECT_EQ(accI[k], si);
            }
        }
    }
}

// The coefficient update (vector groups of four, padded remainder, scalar when a shift
// leaves 0..63) against a 128-bit model: scaled error (E*m + 2^30) >> 31, conjugate
// reference with -2^31 negated to 2^31 - 1, rounded right shift, saturated sum.
TEST(EcFirTwin, UpdateMatchesTheWideModelOnEveryGeometry) {
    std::mt19937 g(2024);
    std::uniform_int_distribution<Kvo32s> mant(0, INT32_MAX);
    for (int kind = 0; kind < 3; ++kind)
        for (int bands : {1, 3, 4, 7, 17, 33, 70})
            for (int sf : {0, 9, 31}) {
                SCOPED_TRACE(::testing::Message() << "kind " << kind << " bands " << bands
                                                  << " sf " << sf);
                const int segs = 5;
                Rows rows(segs, bands, g, kind), err(1, bands, g, kind);
                std::vector<KvoStepPair> step(bands);
                // Shifts d = exponent - sf - 31 in 0..63, one chunk with a shift of 64+.
                for (int k = 0; k < bands; ++k)
                    step[k] = {mant(g), sf + 31 + (bands == 70 && k == 66 ? 70 : (k * 7) % 64)};
                auto want = rows.h;
                for (int r = 0; r < segs; ++r)
                    for (int k = 0; k < bands; ++k) {
                        const __int128 m = step[k].mantissa;
                        const __int128 er = Kvo32s((err.x[0][k].re * m + (__int128{1} << 30)) >> 31);
                        const __int128 ei = Kvo32s((err.x[0][k].im * m + (__int128{1} << 30)) >> 31);
                        const __int128 xr = rows.x[r][k].re;
                        const __int128 xi = rows.x[r][k].im == INT32_MIN ? INT32_MAX
                                                                          : -__int128{rows.x[r][k].im};
                        const int d = step[k].exponent - sf - 31;
                        auto add = [&](__int128 pr, Kvo32s& h) {
                            __int128 a = 0;
                            if (d < 64) a = d >= 2 ? (pr + (__int128{1} << (d - 1))) >> d : pr >> d;
                            const __int128 v = h + a;
                            h = v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : Kvo32s(v);
                        };
                        add(er * xr - ei * xi, want[r][k].re);
                        add(ei * xr + er * xi, want[r][k].im);
                    }
                std::vector<Kvo32sc*> hp;
                for (auto& row : rows.h) hp.push_back(row.data());
                ASSERT_EQ(kvosFIRSubbandCoeffUpdate_EC_32sc_I(step.data(), rows.px.data(),
                                                              err.x[0].data(), hp.data(), segs,
                                                              bands, sf),
                          kvoOk);
                for (int r = 0; r < segs; ++r)
                    ASSERT_EQ(0, std::memcmp(want[r].data(), rows.h[r].data(),
                                             sizeof(Kvo32sc) * bands))
                        << "row " << r;
            }
}

}  // namespace
