// G.729 post-processing edges the vector sets do not reach: silent vectors in
// the gain controls, the phase dispersion record, and the annex A preemphasis
// (no coder runs it) against a model.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

using i16 = int16_t;
using i32 = int32_t;
using Vec = std::vector<i16>;

i16 sat16(int64_t v) {
    return v > 32767 ? 32767 : (v < -32768 ? -32768 : i16(v));
}

struct Rng {
    std::mt19937 g;
    explicit Rng(uint32_t seed) : g(seed) {}
    int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
    Vec noise(int n, double level) {
        Vec v(n);
        for (auto& x : v) x = sat16(std::lround(std::normal_distribution<>(0, level)(g)));
        return v;
    }
};

// Silent reference: the gain decays by the smoothing on every sample (rounded
// in the main body, truncated in annex A). Silent output (annex A: |x| < 4):
// gain 0, vector kept.
TEST(GainControl, SilentVectors) {
    Vec zero(40, 0), ref(40), tiny(40, 3);
    for (int n = 0; n < 40; ++n) ref[n] = static_cast<i16>(std::lround(5000 * std::sin(0.233 * n)));
    Vec out = ref, outA = ref;
    i16 gain = 16384, gainA = 4096;
    kvosGainControl_G729_16s_I(zero.data(), out.data(), &gain);
    kvosGainControl_G729A_16s_I(zero.data(), outA.data(), &gainA);
    i32 g = 16384, ga = 4096;
    for (int n = 0; n < 40; ++n) {
        g = (g * 32358 + 16384) >> 15, ga = (ga * 29491) >> 15;
        EXPECT_EQ(out[n], (g * ref[n] + 8192) >> 14) << n;
        EXPECT_EQ(outA[n], (ga * ref[n]) >> 12) << n;
    }
    EXPECT_TRUE(gain == g && gainA == ga);
    Vec z = zero, t = tiny;
    gain = gainA = 12345;
    kvosGainControl_G729_16s_I(ref.data(), z.data(), &gain);
    kvosGainControl_G729A_16s_I(ref.data(), t.data(), &gainA);
    EXPECT_TRUE(gain == 0 && gainA == 0 && z == zero && t == tiny);
}

// The dispersion record: 20 bytes, fully written by Init (0x00 and 0xFF prefills end
// identical), and position-independent (a copied record continues identically).
TEST(PhaseDispersion, RecordIsFullyInitialisedAndMovable) {
    Kvo32s size = -1;
    ASSERT_EQ(kvosPhaseDispersionGetStateSize_G729D_16s(&size), kvoOk);
    ASSERT_EQ(size, 20);
    KvoPhaseDispersionState_G729D st[3];
    std::memset(&st[0], 0x00, sizeof st[0]);
    std::memset(&st[1], 0xff, sizeof st[1]);
    kvosPhaseDispersionInit_G729D_16s(&st[0]);
    kvosPhaseDispersionInit_G729D_16s(&st[1]);
    ASSERT_EQ(0, std::memcmp(&st[0], &st[1], sizeof st[0]));
    Rng r(5);
    for (int f = 0; f < 60; ++f) {
        const i16 pitch = static_cast<i16>(r.uni(0, 16384)), cb = static_cast<i16>(r.uni(0, 900));
        Vec inno(40, 0), exc = r.noise(40, 3000), out(40), out2(40);
        inno[r.uni(0, 39)] = 8191;
        Vec inno2 = inno;
        std::memcpy(&st[2], &st[0], sizeof st[0]);
        ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), cb, pitch, inno.data(),
                                                &st[0]),
                  kvoOk);
        kvosPhaseDispersion_G729D_16s(exc.data(), out2.data(), cb, pitch, inno2.data(), &st[2]);
        ASSERT_TRUE(out == out2 && inno == inno2) << f;
        ASSERT_EQ(0, std::memcmp(&st[0], &st[2], sizeof st[0])) << f;
    }
}

// Both forms against x[n] - (g x[n-1] >> 15), saturated, with any gamma, on
// quiet and rail-to-rail data, and in two pieces with the memory carried.
TEST(Preemphasis, MatchesModelAndChains) {
    for (uint32_t seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int len = r.uni(1, 90), cut = r.uni(0, len - 1);
        const i16 gamma = static_cast<i16>(seed % 9 ? r.uni(-32768, 32767) : -32768);
        Vec x(len + 1);
        for (auto& v : x)
            v = static_cast<i16>(seed % 3 ? r.uni(-3000, 3000) : r.uni(-32768, 32767));
        Vec w(len), y(len), io(x.begin() + 1, x.end()), parts(len);
        for (int n = 0; n < len; ++n) w[n] = sat16(x[n + 1] - sat16((i32{gamma} * x[n]) >> 15));
        i16 m1 = x[0], m2 = x[0], m3 = x[0];
        ASSERT_EQ(kvosPreemphasize_G729A_16s(gamma, &x[1], y.data(), len, &m1), kvoOk);
        ASSERT_EQ(kvosPreemphasize_G729A_16s_I(gamma, io.data(), len, &m2), kvoOk);
        kvosPreemphasize_G729A_16s(gamma, &x[1], parts.data(), cut ? cut : len, &m3);
        if (cut) kvosPreemphasize_G729A_16s(gamma, &x[1 + cut], &parts[cut], len - cut, &m3);
        EXPECT_EQ(y, w);
        EXPECT_EQ(io, w);
        EXPECT_EQ(parts, w);
        EXPECT_TRUE(m1 == x[len] && m2 == x[len] && m3 == x[len]);
    }
    const i16 x[2] = {-32768, 32767};
    i16 y[2], mem = -32768;
    kvosPreemphasize_G729A_16s(-32768, x, y, 2, &mem);
    EXPECT_EQ(y[0], -32768);  // -32768 - 32767 is held
    EXPECT_EQ(y[1], 0);       // and so is the product -1 * -1
}

}  // namespace
