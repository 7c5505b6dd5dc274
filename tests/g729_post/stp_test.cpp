// Short-term post filter, tilt compensation and preemphasis against direct-form models with
// the same Q formats and the same order of saturation.
#include <gtest/gtest.h>

#include <cstring>

#include "g729/post_tables.h"
#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::i32;
using pmodel::i64;
using pmodel::Rng;
using pmodel::sat16;
using pmodel::Vec;

namespace {

// Weighted sets a(i) f[i] rounded to Q12.
Vec weigh(const Vec& a, const Kvo16s* f) {
    Vec w(11);
    for (int k = 0; k <= 10; ++k) w[k] = sat16((i64{a[k]} * f[k] + 16384) >> 15);
    return w;
}

// Short-term post filter: response of A(z/0.55)/A(z/0.7) (wrapping, zero state), input scaled
// by 1024/g when g = min(sum|h| >> 2, 32767) is above 1024, then the saturating chain.
void stpModel(const Vec& a, const Vec& x, const Vec& mem, Vec& y, Vec& h) {
    const Vec a1 = weigh(a, kvo::tab::facGamma1_pst), a2 = weigh(a, kvo::tab::facGamma2_pst);
    Vec in(20, 0), xs = x;
    std::copy(a2.begin(), a2.end(), in.begin());
    h.resize(20);
    pmodel::synthWrap(a1.data(), in.data(), h.data(), 20);
    i32 g = 0;
    for (i16 v : h) g += v == -32768 ? 32767 : std::abs(v);
    g = std::min(g >> 2, 32767);
    if (g > 1024)
        for (auto& v : xs) v = sat16((i64{v} * ((1 << 25) / g) + 16384) >> 15);
    y.resize(40);
    pmodel::synthChain(a1.data(), xs.data(), y.data(), 40, mem.data());
}

// Annex E tilt filter (the shared kernel, with the reference's saturation) driven by the
// first reflection coefficient of the response, -r1/r0 of the normalised autocorrelation.
Vec tiltModel(const Vec& h, const i16* src) {
    i64 e = 0, c = 0;
    for (int i = 0; i < 20; ++i) e += i64{h[i]} * h[i], c += i < 19 ? i64{h[i]} * h[i + 1] : 0;
    i32 r0 = INT32_MAX, r1 = pmodel::macChain(h.data(), h.data() + 1, 19);
    if (e <= 0x3fffffff) {
        int n = 0;
        while (((2 * e + 1) << n) < 0x40000000) ++n;
        r0 = static_cast<i32>((2 * e + 1) << n);
        r1 = pmodel::sat32(2 * c << n);
    }
    const i16 h0 = static_cast<i16>(r0 >> 16), h1 = static_cast<i16>(r1 >> 16);
    const i16 m = h1 == -32768 ? 32767 : static_cast<i16>(std::abs(h1));
    i16 k = h0 < m ? 0 : (m == h0 ? 32767 : static_cast<i16>((i32{m} << 15) / h0));
    if (h1 > 0 && h0 >= m) k = static_cast<i16>(-k);
    const i32 t = (i32{k} * (k <= 0 ? 29491 : 6554) + 16384) >> 15;
    const i16 q =
        static_cast<i16>((k <= 0 ? (1 << 26) : (1 << 29)) / (t ? 32768 - std::abs(t) : 32767));
    Vec y(40);
    for (int n = 0; n < 40; ++n) {
        const i16 u = sat16(src[n + 1] + ((i32{src[n]} * (t >> 1) + 8192) >> 14));
        y[n] = sat16((i64{u} * 2 * q + (k <= 0 ? 2048 : 16384)) >> (k <= 0 ? 12 : 15));
    }
    return y;
}

// Preemphasis with the memory before the first sample: x[n] - (g x[n-1] >> 15), saturated.
void preemphModel(i16 g, i16* x, int len) {
    for (int n = len; n >= 1; --n) x[n] = sat16(x[n] - sat16((i32{g} * x[n - 1]) >> 15));
}

}  // namespace

// Random stable sets at three levels (the loud one saturates, with its warning), and a sweep
// of first-order sets across the normalisation threshold (magnitude sum 4099 / 4100).
TEST(ShortTermPostFilter, MatchesDirectFormModel) {
    bool below = false, above = false;
    for (int c = 0; c < 800; ++c) {
        SCOPED_TRACE(c);
        Rng r(c);
        Vec a(11, 0), x, mem, y, h, buf(50), imp(20);
        if (c < 300) {
            a = pmodel::stableLpc(r, c % 5 ? 0.85 : 0.97);
            const double level = c % 7 == 0 ? 40000 : (c % 3 ? 5000 : 100);
            x = r.noise(40, level), mem = r.noise(10, level);
        } else {
            a[0] = 4096, a[1] = static_cast<i16>(c - 550);
            x = r.noise(40, 3000), mem = Vec(10, 0);
        }
        stpModel(a, x, mem, y, h);
        std::copy(mem.begin(), mem.end(), buf.begin());
        const KvoStatus st =
            kvosShortTermPostFilter_G729_16s(a.data(), x.data(), &buf[10], imp.data());
        ASSERT_EQ(imp, h);
        ASSERT_TRUE(std::equal(y.begin(), y.end(), &buf[10]));
        ASSERT_TRUE(std::equal(mem.begin(), mem.end(), buf.begin()));
        i32 sum = 0, peak = 0;
        for (i16 v : h) sum += std::abs(v);
        for (i16 v : y) peak = std::max<i32>(peak, std::abs(v));
        const bool clear = peak < 8000 || peak >= 32767;  // no saturation / saturated output
        EXPECT_TRUE(!clear || st == (peak < 8000 ? kvoOk : kvoWarnOverflow));
        below |= c >= 300 && sum == 4099, above |= c >= 300 && sum == 4100;
    }
    EXPECT_TRUE(below && above);
}

TEST(TiltCompensation, MainBodyMatchesModel) {
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec h(20, 0), buf(50, 0);
        if (seed % 10 == 0) {
            h = r.noise(20, 30000);  // too loud for the normalised autocorrelation
        } else {
            const Vec a = pmodel::stableLpc(r);
            kvosShortTermPostFilter_G729_16s(a.data(), Vec(40, 0).data(), &buf[10], h.data());
        }
        const Vec sig = r.noise(41, seed % 4 ? 3000 : 20000);
        Vec io = sig;
        ASSERT_EQ(kvosTiltCompensation_G729_16s(h.data(), &io[1]), kvoOk);
        EXPECT_EQ(io[0], sig[0]);
        EXPECT_EQ(Vec(io.begin() + 1, io.end()), tiltModel(h, sig.data()));
    }
}

// Annex A: 22-sample response of the first set over the second, r0 and r1 the high halves of
// the doubled saturating sums, mu = 0.8 r1 / r0 as a preemphasis; r1 <= 0 only stores the last
// sample as the memory (the alternating response of 1 / (1 + 0.85 z^-1) for one).
TEST(TiltCompensation, AnnexAMatchesModel) {
    int filtered = 0;
    for (uint32_t seed = 1; seed <= 201; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec lpc = weigh(pmodel::stableLpc(r), kvo::tab::facGamma2_pst);
        const Vec a1 = weigh(pmodel::stableLpc(r), kvo::tab::facGamma1_pst);
        lpc.insert(lpc.end(), a1.begin(), a1.end());
        if (seed == 201) lpc.assign(22, 0), lpc[0] = lpc[11] = 4096, lpc[12] = 3500;
        Vec io = r.noise(41, seed % 5 ? 4000 : 40000), want = io, h(22), in(22, 0);
        std::copy(lpc.begin(), lpc.begin() + 11, in.begin());
        pmodel::synthWrap(&lpc[11], in.data(), h.data(), 22);
        const i16 r0 = static_cast<i16>(pmodel::macChain(h.data(), h.data(), 22) >> 16);
        const i16 r1 = static_cast<i16>(pmodel::macChain(h.data(), &h[1], 21) >> 16);
        if (r1 > 0) {
            const i16 m = static_cast<i16>((i32{r1} * 26214) >> 15);
            preemphModel(m >= r0 ? 32767 : static_cast<i16>((i32{m} << 15) / r0), want.data(), 40);
        }
        want[0] = io[40];
        filtered += r1 > 0;
        ASSERT_EQ(kvosTiltCompensation_G729A_16s(lpc.data(), &io[1]), kvoOk);
        EXPECT_EQ(io, want);
        EXPECT_TRUE(seed < 201 || r1 <= 0);
    }
    EXPECT_GT(filtered, 20);
}

// Both forms against the model on quiet and rail-to-rail data with any gamma, and in two
// pieces with the memory carried.  At the rails: -32768 - 32767 is held, and so is the
// product -1 * -1.
TEST(Preemphasis, MatchesModelAndChains) {
    for (uint32_t seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int len = r.uni(1, 90), cut = r.uni(0, len - 1);
        const i16 gamma = static_cast<i16>(seed % 9 ? r.uni(-32768, 32767) : -32768);
        Vec x(len + 1);
        for (auto& v : x)
            v = static_cast<i16>(seed % 3 ? r.uni(-3000, 3000) : r.uni(-32768, 32767));
        Vec want = x, y(len), io(x.begin() + 1, x.end()), parts(len);
        preemphModel(gamma, want.data(), len);
        i16 m1 = x[0], m2 = x[0], m3 = x[0];
        ASSERT_EQ(kvosPreemphasize_G729A_16s(gamma, &x[1], y.data(), len, &m1), kvoOk);
        ASSERT_EQ(kvosPreemphasize_G729A_16s_I(gamma, io.data(), len, &m2), kvoOk);
        kvosPreemphasize_G729A_16s(gamma, &x[1], parts.data(), cut ? cut : len, &m3);
        if (cut) kvosPreemphasize_G729A_16s(gamma, &x[1 + cut], &parts[cut], len - cut, &m3);
        const Vec w(want.begin() + 1, want.end());
        EXPECT_EQ(y, w);
        EXPECT_EQ(io, w);
        EXPECT_EQ(parts, w);
        EXPECT_TRUE(m1 == x[len] && m2 == x[len] && m3 == x[len]);
    }
    const i16 x[2] = {-32768, 32767};
    i16 y[2], mem = -32768;
    kvosPreemphasize_G729A_16s(-32768, x, y, 2, &mem);
    EXPECT_EQ(y[0], -32768);
    EXPECT_EQ(y[1], 0);
}
