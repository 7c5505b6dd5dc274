// Annex E searches (10 pulses in 35 bits, 12 in 44), which the vector sets do not
// reach: index layouts decoded back into code vectors, filtered vectors against a
// direct convolution, recovery of the code vector that made the target.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "fcb_model.h"
#include "kvosc.h"

using namespace fcbmodel;

namespace {
// Filtered code vector: +-h placed at each pulse in turn, saturating.
Vec filtered(const std::vector<Pulse>& ps, const Vec& h, int shift) {
    Vec y{};
    for (const Pulse& p : ps)
        for (int n = p.pos; n < L; ++n) y[n] = s16(y[n] + p.sign * i64{h[n - p.pos] >> shift});
    return y;
}
// ---- annex E ----------------------------------------------------------------------

struct OutE {
    Vec code{}, flt{};
    int16_t idx[5] = {};
};

OutE runE(int mode, const Vec& x, const Vec& res, const Vec& h) {
    OutE o;
    EXPECT_EQ(kvosFixedCodebookSearch_G729E_16s(static_cast<Kvo16s>(mode), x.data(), res.data(),
                                                h.data(), o.code.data(), o.flt.data(), o.idx),
              kvoOk);
    return o;
}

// Random code vectors of the annex E codebooks: pulses k on track (s + k) mod 5.
std::vector<Pulse> randomE(std::mt19937& g, int n) {
    std::uniform_int_distribution<int> idx(0, 7), coin(0, 1), st(0, 4);
    const int s = st(g);
    std::vector<Pulse> ps;
    for (int k = 0; k < n; ++k) {
        const int t = (s + k) % 5;
        ps.push_back({t + 5 * idx(g), coin(g) ? 1 : -1});
    }
    // Pulses on one position share a sign.
    for (auto& p : ps)
        for (const auto& q : ps)
            if (q.pos == p.pos) p.sign = q.sign;
    return ps;
}

TEST(G729FcbAnnexE, IndexWordsDecodeToTheCodeVectorAndFilteredVector) {
    std::mt19937 g(118);
    std::uniform_int_distribution<int> xv(-12000, 12000);
    for (int r = 0; r < 100; ++r) {
        SCOPED_TRACE(r);
        const Vec h = impulse(g);
        Vec x{}, res{};
        for (int i = 0; i < L; ++i) {
            x[i] = static_cast<int16_t>(xv(g));
            res[i] = static_cast<int16_t>(xv(g) >> (r % 5));
        }
        for (int mode : {0, 1, r % 2 ? -1 : 32767}) {  // any non-zero mode: 44 bits
            const OutE o = runE(mode, x, res, h);
            const auto ps = decodeG729E(mode != 0, o.idx);
            ASSERT_EQ(ps.size(), mode ? 12u : 10u);
            EXPECT_EQ(o.code, code(ps, 4096, -4096)) << mode;
            EXPECT_EQ(o.flt, filtered(ps, h, 1)) << mode;
            int count = 0;
            for (int p = 0; p < L; ++p) count += std::abs(o.code[p]) / 4096;
            EXPECT_EQ(count, mode ? 12 : 10);
        }
    }
}

TEST(G729FcbAnnexE, FindsTheTenPulseCodeVectorThatMadeTheTarget) {
    // Short impulse responses: the depth-first search then finds the code
    // vector of a target made of one.  (Ten pulses cannot saturate the 16-bit
    // correlation sum, whose five track maxima fit 14 bits; twelve can, and
    // the 44-bit search is checked through its index layout instead.)
    std::mt19937 g(35);
    std::uniform_real_distribution<double> rr(0.0, 0.5), ww(0.3, 2.8);
    for (int r = 0; r < 100; ++r) {
        SCOPED_TRACE(r);
        Vec h{};
        const double rho = rr(g), om = ww(g);
        for (int n = 0; n < L; ++n)
            h[n] = s16(std::lround(4096.0 * std::pow(rho, n) * std::cos(om * n)));
        const auto ps = randomE(g, 10);
        const Vec x = target(ps, h, 1500);
        const OutE o = runE(0, x, x, h);
        EXPECT_EQ(o.code, code(ps, 4096, -4096));
        EXPECT_EQ(code(decodeG729E(false, o.idx), 4096, -4096), o.code);
    }
}

TEST(G729FcbAnnexE, PulsesSharingAPositionAdd) {
    // A unit impulse and a target of one sample: both pulses of that track
    // go to its position (8192), the rest of the code stays consistent.
    Vec h{};
    h[0] = 4096;
    for (int s : {1, -1}) {
        Vec x{};
        x[17] = static_cast<int16_t>(9000 * s);
        for (int mode : {0, 1}) {
            const OutE o = runE(mode, x, x, h);
            EXPECT_EQ(o.code[17], (mode ? 12288 : 8192) * s) << mode;
            const auto ps = decodeG729E(mode != 0, o.idx);
            EXPECT_EQ(o.code, code(ps, 4096, -4096));
            EXPECT_EQ(o.flt, filtered(ps, h, 1));
        }
    }
}

}  // namespace
