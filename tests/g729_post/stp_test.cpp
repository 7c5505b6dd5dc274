// Short-term post filter, tilt compensation and preemphasis against direct-form models with
// the same Q formats and the same order of saturation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "g729/post_tables.h"
#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::i32;
using pmodel::i64;
using pmodel::Rng;
using pmodel::Vec;

namespace {

// Model of the short-term post filter: weighted sets, impulse response of A(z/0.55)/A(z/0.7),
// input scaled by 1024/g when the response's magnitude sum g (Q12 -> >> 2, held at 32767) is
// above 1024, then the saturating synthesis chain with the ten past outputs.
struct StpModel {
    Vec h = Vec(20), y = Vec(40);
    bool ovf = false;
    i32 g = 0;
    StpModel(const Vec& a, const Vec& x, const Vec& mem) {
        i16 a1[11], a2[11];
        for (int k = 0; k <= 10; ++k) {
            a1[k] = pmodel::sat16((i64{a[k]} * kvo::tab::facGamma1_pst[k] + 16384) >> 15);
            a2[k] = pmodel::sat16((i64{a[k]} * kvo::tab::facGamma2_pst[k] + 16384) >> 15);
        }
        i16 in[20] = {};
        std::memcpy(in, a2, sizeof a2);
        pmodel::synthWrap(a1, 10, in, h.data(), 20);
        i32 sum = 0;
        for (i16 v : h) sum += v == -32768 ? 32767 : std::abs(v);
        g = std::min(sum >> 2, 32767);
        Vec xs = x;
        if (g > 1024) {
            const i32 inv = (1024 << 15) / g;
            for (auto& v : xs) v = pmodel::sat16((i64{v} * inv + 16384) >> 15);
        }
        ovf = pmodel::synthChain(a1, xs.data(), y.data(), 40, mem.data());
    }
};

KvoStatus runStp(const Vec& a, const Vec& x, const Vec& mem, Vec& y, Vec& h) {
    Vec buf(50);
    std::copy(mem.begin(), mem.end(), buf.begin());
    h.assign(20, 0);
    const KvoStatus st = kvosShortTermPostFilter_G729_16s(a.data(), x.data(), buf.data() + 10,
                                                          h.data());
    y.assign(buf.begin() + 10, buf.end());
    EXPECT_TRUE(std::equal(mem.begin(), mem.end(), buf.begin())) << "memory written";
    return st;
}

}  // namespace

TEST(ShortTermPostFilter, MatchesDirectFormModel) {
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const Vec a = pmodel::stableLpc(r, seed % 5 == 0 ? 0.97 : 0.85);
        const double level = seed % 7 == 0 ? 30000 : (seed % 3 == 0 ? 100 : 5000);
        Vec x(40), mem(10);
        for (auto& v : x) v = pmodel::sat16(std::lround(r.gauss() * level));
        for (auto& v : mem) v = pmodel::sat16(std::lround(r.gauss() * level));
        Vec y, h;
        const KvoStatus st = runStp(a, x, mem, y, h);
        const StpModel m(a, x, mem);
        ASSERT_EQ(h, m.h);
        ASSERT_EQ(y, m.y);
        if (!m.ovf) {
            EXPECT_EQ(st, kvoOk);
        }
    }
}

// A full-scale input through a resonant filter saturates: the output is held at the rails and
// the status says so; the model agrees sample by sample.
TEST(ShortTermPostFilter, FullScaleSaturatesWithWarning) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const Vec a = pmodel::stableLpc(r, 0.97);
        Vec x(40), mem(10, 32767);
        for (int n = 0; n < 40; ++n) x[n] = n % 2 ? 32767 : -32768;
        Vec y, h;
        const KvoStatus st = runStp(a, x, mem, y, h);
        const StpModel m(a, x, mem);
        EXPECT_EQ(y, m.y);
        bool railed = false;
        for (i16 v : y) railed |= v == 32767 || v == -32768;
        if (railed) {
            EXPECT_EQ(st, kvoWarnOverflow);
        }
    }
}

// The input normalisation starts when the response's magnitude sum exceeds 4099: a sweep of
// first-order sets crosses that edge, and both sides follow the model.
TEST(ShortTermPostFilter, NormalisationThreshold) {
    bool below = false, above = false;
    for (int c = -4096; c <= 4096; c += 8) {
        Vec a(11, 0);
        a[0] = 4096;
        a[1] = static_cast<i16>(c);
        Vec x(40), mem(10, 0);
        for (int n = 0; n < 40; ++n) x[n] = static_cast<i16>(3000 - 150 * n);
        Vec y, h;
        runStp(a, x, mem, y, h);
        const StpModel m(a, x, mem);
        ASSERT_EQ(y, m.y) << c;
        below |= m.g == 1024;
        above |= m.g == 1025;
    }
    EXPECT_TRUE(below);
    EXPECT_TRUE(above);
}

// ---- tilt compensation --------------------------------------------------------------

namespace {

// Annex E tilt filter with the reflection coefficient k (the shared kernel's formula, with
// the saturation of the reference on the sum and the output).
Vec tiltE(i16 k, const i16* src /* one sample before the subframe */) {
    const i32 t = k <= 0 ? (i32{k} * 29491 + 16384) >> 15 : (i32{k} * 6554 + 16384) >> 15;
    const i32 d = t == 0 ? 32767 : 32768 - std::abs(t);
    const i16 q = static_cast<i16>((k <= 0 ? (1 << 26) : (1 << 29)) / d);
    const i32 hh = t >> 1;
    const int s = k <= 0 ? 12 : 15;
    const i32 rnd = k <= 0 ? 2048 : 16384;
    Vec y(40);
    for (int n = 0; n < 40; ++n) {
        const i16 u = pmodel::sat16(src[n + 1] + ((i32{src[n]} * hh + 8192) >> 14));
        y[n] = pmodel::sat16((i64{u} * 2 * q + rnd) >> s);
    }
    return y;
}

// First reflection coefficient of a response as the main-body post filter takes it.
i16 parcor(const Vec& h) {
    i64 e = 0, c = 0;
    for (int i = 0; i < 20; ++i) e += i64{h[i]} * h[i];
    for (int i = 0; i < 19; ++i) c += i64{h[i]} * h[i + 1];
    i32 r0, r1;
    if (e > 0x3fffffff) {
        r0 = INT32_MAX;
        pmodel::Ops o;
        i32 s = 0;
        for (int i = 0; i < 19; ++i) s = o.L_mac(s, h[i], h[i + 1]);
        r1 = s;
    } else {
        const i32 v = static_cast<i32>(2 * e + 1);
        const int n = pmodel::norm32(v);
        r0 = v << n;
        r1 = pmodel::sat32(2 * c * (i64{1} << n));
    }
    const i16 a0 = static_cast<i16>(r0 >> 16), a1 = static_cast<i16>(r1 >> 16);
    const i16 m = a1 == -32768 ? 32767 : static_cast<i16>(std::abs(a1));
    if (a0 < m) return 0;
    const i16 q = m == a0 ? 32767 : static_cast<i16>((i32{m} << 15) / a0);
    return a1 > 0 ? static_cast<i16>(-q) : q;
}

}  // namespace

TEST(TiltCompensation, MainBodyMatchesModel) {
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec h(20);
        if (seed % 10 == 0) {
            for (auto& v : h) v = static_cast<i16>(r.uni(-32768, 32767));  // too loud to normalise
        } else {
            // Responses of real weighted filters.
            const Vec a = pmodel::stableLpc(r);
            Vec x, y, dummy(10, 0);
            x.assign(40, 0);
            runStp(a, x, dummy, y, h);
        }
        Vec sig(41);
        for (auto& v : sig) v = pmodel::sat16(std::lround(r.gauss() * (seed % 4 ? 3000 : 20000)));
        const i16 k = parcor(h);
        const Vec want = tiltE(k, sig.data());
        Vec io = sig;
        ASSERT_EQ(kvosTiltCompensation_G729_16s(h.data(), io.data() + 1), kvoOk);
        EXPECT_EQ(io[0], sig[0]);
        EXPECT_TRUE(std::equal(want.begin(), want.end(), io.begin() + 1));
    }
}

// The model's reflection coefficient of a first-order response h[n] = A rho^n is -r1/r0 of
// the 20-sample sums (close to -rho).
TEST(TiltCompensation, ParcorOfFirstOrderResponse) {
    for (double amp : {300.0, 4096.0, 7000.0}) {
        for (double rho : {-0.9, -0.5, -0.1, 0.0, 0.3, 0.8}) {
            Vec h(20);
            for (int n = 0; n < 20; ++n) h[n] = static_cast<i16>(std::lround(amp * std::pow(rho, n)));
            double r0 = 0, r1 = 0;
            for (int n = 0; n < 20; ++n) r0 += double(h[n]) * h[n];
            for (int n = 0; n < 19; ++n) r1 += double(h[n]) * h[n + 1];
            EXPECT_NEAR(parcor(h) / 32768.0, -r1 / r0, 2e-4) << rho;
            EXPECT_NEAR(parcor(h) / 32768.0, -rho, 0.01) << rho;
        }
    }
}

namespace {

// Model of the annex A tilt: 22-sample response of the first set over the second, r0 and r1
// as the high halves of the doubled saturating sums, mu = 0.8 r1 / r0, preemphasis.
void tiltA(const Vec& lpc, Vec& io /* 41: memory then subframe */) {
    i16 in[22] = {};
    std::memcpy(in, lpc.data(), 11 * sizeof(i16));
    i16 h[22];
    pmodel::synthWrap(lpc.data() + 11, 10, in, h, 22);
    pmodel::Ops o;
    i32 s0 = 0, s1 = 0;
    for (int i = 0; i < 22; ++i) s0 = o.L_mac(s0, h[i], h[i]);
    for (int i = 0; i < 21; ++i) s1 = o.L_mac(s1, h[i], h[i + 1]);
    const i16 r0 = static_cast<i16>(s0 >> 16), r1 = static_cast<i16>(s1 >> 16);
    if (r1 <= 0) {
        io[0] = io[40];
        return;
    }
    const i16 m = static_cast<i16>((i32{r1} * 26214) >> 15);
    const i16 g = m >= r0 ? 32767 : static_cast<i16>((i32{m} << 15) / r0);
    const i16 last = io[40];
    for (int n = 40; n >= 1; --n)
        io[n] = pmodel::sat16(i32{io[n]} - pmodel::sat16((i32{g} * io[n - 1]) >> 15));
    io[0] = last;
}

}  // namespace

TEST(TiltCompensation, AnnexAMatchesModel) {
    int filtered = 0;
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const Vec a = pmodel::stableLpc(r);
        Vec lpc(22);
        for (int k = 0; k <= 10; ++k) {
            lpc[k] = pmodel::sat16((i64{a[k]} * kvo::tab::facGamma2_pst[k] + 16384) >> 15);
            lpc[11 + k] = pmodel::sat16((i64{a[k]} * kvo::tab::facGamma1_pst[k] + 16384) >> 15);
        }
        if (seed % 2) std::swap_ranges(lpc.begin(), lpc.begin() + 11, lpc.begin() + 11);
        Vec io(41);
        for (auto& v : io) v = pmodel::sat16(std::lround(r.gauss() * (seed % 5 ? 4000 : 40000)));
        Vec want = io;
        tiltA(lpc, want);
        const Vec orig = io;
        ASSERT_EQ(kvosTiltCompensation_G729A_16s(lpc.data(), io.data() + 1), kvoOk);
        EXPECT_EQ(io, want);
        filtered += !std::equal(io.begin() + 1, io.end(), orig.begin() + 1);
    }
    EXPECT_GT(filtered, 20);
}

// r1 at or below 0 (a response that alternates in sign) leaves the subframe and keeps its last
// sample as the memory.
TEST(TiltCompensation, AnnexANegativeCorrelationOnlyUpdatesMemory) {
    Vec lpc(22, 0);
    lpc[0] = 4096;
    lpc[11] = 4096;
    lpc[12] = 3500;  // 1 / (1 + 0.85 z^-1): alternating response
    Vec io(41);
    for (int i = 0; i < 41; ++i) io[i] = static_cast<i16>(i * 500 - 9000);
    const Vec before = io;
    ASSERT_EQ(kvosTiltCompensation_G729A_16s(lpc.data(), io.data() + 1), kvoOk);
    EXPECT_EQ(io[0], before[40]);
    EXPECT_TRUE(std::equal(io.begin() + 1, io.end(), before.begin() + 1));
}

// ---- preemphasis ----------------------------------------------------------------------

TEST(Preemphasis, MatchesWideModelAndChains) {
    for (uint32_t seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int len = r.uni(1, 90);
        const i16 gamma = static_cast<i16>(seed % 9 == 0 ? -32768 : r.uni(-32768, 32767));
        const bool loud = seed % 3 == 0;
        Vec x(len);
        for (auto& v : x) v = static_cast<i16>(loud ? r.uni(-32768, 32767) : r.uni(-3000, 3000));
        const i16 mem0 = static_cast<i16>(r.uni(-32768, 32767));
        // Wide model: dst[n] = clamp(x[n] - clamp(floor(gamma x[n-1] / 2^15))).
        Vec want(len);
        for (int n = 0; n < len; ++n) {
            const i64 prev = n ? x[n - 1] : mem0;
            const i64 p = std::clamp<i64>((i64{gamma} * prev) >> 15, -32768, 32767);
            want[n] = static_cast<i16>(std::clamp<i64>(x[n] - p, -32768, 32767));
        }
        Vec y(len);
        i16 mem = mem0;
        ASSERT_EQ(kvosPreemphasize_G729A_16s(gamma, x.data(), y.data(), len, &mem), kvoOk);
        EXPECT_EQ(y, want);
        EXPECT_EQ(mem, x[len - 1]);

        Vec io = x;
        mem = mem0;
        ASSERT_EQ(kvosPreemphasize_G729A_16s_I(gamma, io.data(), len, &mem), kvoOk);
        EXPECT_EQ(io, want);
        EXPECT_EQ(mem, x[len - 1]);

        // Two calls with the memory carried equal one call over the whole vector.
        if (len >= 2) {
            const int cut = r.uni(1, len - 1);
            Vec parts(len);
            mem = mem0;
            kvosPreemphasize_G729A_16s(gamma, x.data(), parts.data(), cut, &mem);
            kvosPreemphasize_G729A_16s(gamma, x.data() + cut, parts.data() + cut, len - cut, &mem);
            EXPECT_EQ(parts, want);
        }
    }
}

// Worked values at the rails: the product and the difference saturate.
TEST(Preemphasis, SaturatesAtTheRails) {
    const i16 x[3] = {-32768, 32767, -32768};
    i16 y[3];
    i16 mem = -32768;
    ASSERT_EQ(kvosPreemphasize_G729A_16s(-32768, x, y, 3, &mem), kvoOk);
    EXPECT_EQ(y[0], -32768);  // -32768 - 32767: the difference is held
    EXPECT_EQ(y[1], 0);       // 32767 - 32767: the product (-1 * -1) is held at 32767
    EXPECT_EQ(y[2], -1);      // -32768 - (-32767)
    EXPECT_EQ(mem, -32768);
    const i16 up = 32767;
    i16 out;
    mem = -32768;
    ASSERT_EQ(kvosPreemphasize_G729A_16s(32767, &up, &out, 1, &mem), kvoOk);
    EXPECT_EQ(out, 32767);  // 32767 + 32767 held
}
