// Synthesis, zero-state response, residual and weighting filters against the basic-operator
// chain model of filter_model.h, on random, loud and full-scale square-wave input.
#include <gtest/gtest.h>

#include <cstring>

#include "filter_model.h"
#include "kernels/filter.h"
#include "kvosc.h"

using namespace fmodel;

namespace {

// Input kinds: quiet, random full range, square wave at full scale.
Vec make_input(Rng& r, int kind, int n) {
    switch (kind) {
        case 0:
            return r.vec(n, 2000);
        case 1:
            return r.vec(n, 32768);
        default:
            return r.square(n);
    }
}
// Coefficient kinds: mild LP, strong LP, anything (including -32768).
Vec make_lpc(Rng& r, int kind, int order) {
    switch (kind) {
        case 0:
            return r.lpc(order, 4096);
        case 1:
            return r.lpc(order, 16000);
        default: {
            Vec a = r.vec(order + 1, 32768);
            if (r.uni(0, 3) == 0) a[r.uni(0, order)] = -32768;
            return a;
        }
    }
}

}  // namespace

TEST(Synthesis, MatchesChainModelWithHistory) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int sf = 12 + (seed & 1);
        const int len = r.uni(1, 90);
        const Vec a = make_lpc(r, seed % 3, 10);
        const Vec x = make_input(r, (seed / 3) % 3, len);
        const Vec mem = r.vec(10, seed % 2 ? 32768 : 500);
        bool ovf = false;
        const Vec want = syn(a.data(), 10, x.data(), len, mem, sf, &ovf);
        const KvoStatus want_st = ovf ? kvoWarnOverflow : kvoOk;

        Vec y(len);
        EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), len, sf, mem.data()),
                  want_st);
        EXPECT_EQ(y, want);
        Vec io = x;
        EXPECT_EQ(kvosSynthesisFilter_NR_16s_ISfs(a.data(), io.data(), len, sf, mem.data()),
                  want_st);
        EXPECT_EQ(io, want);
        if (sf == 12) {  // the annex E form at order 10 is the same filter
            y.assign(len, 0);
            EXPECT_EQ(
                kvosSynthesisFilter_G729E_16s(a.data(), 10, x.data(), y.data(), len, mem.data()),
                want_st);
            EXPECT_EQ(y, want);
        }
    }
}

TEST(Synthesis, AnyOrderMatchesChainModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 7919);
        const int order = r.uni(1, 24);
        const int len = r.uni(1, 70);
        const Vec a = make_lpc(r, seed % 3, order);
        const Vec x = make_input(r, (seed / 3) % 3, len);
        const Vec mem = r.vec(order, 32768);
        bool ovf = false;
        const Vec want = syn(a.data(), order, x.data(), len, mem, 12, &ovf);
        Vec io = x;
        EXPECT_EQ(kvosSynthesisFilter_G729E_16s_I(a.data(), order, io.data(), len, mem.data()),
                  ovf ? kvoWarnOverflow : kvoOk);
        EXPECT_EQ(io, want);
        // Null history: zero start, plain sums, low 16 bits, never a warning.
        const Vec zero(order, 0);
        Vec y(len);
        EXPECT_EQ(kvosSynthesisFilter_G729E_16s(a.data(), order, x.data(), y.data(), len, nullptr),
                  kvoOk);
        EXPECT_EQ(y, syn_wrap(a.data(), order, x.data(), len, zero, 12));
        // The order is taken as 16 bits.
        io = x;
        EXPECT_EQ(
            kvosSynthesisFilter_G729E_16s_I(a.data(), order + 0x10000, io.data(), len, mem.data()),
            ovf ? kvoWarnOverflow : kvoOk);
        EXPECT_EQ(io, want);
    }
}

TEST(Synthesis, WrappingFormsKeepLow16Bits) {
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed + 1000);
        const int sf = 12 + (seed & 1);
        const int len = r.uni(1, 80);
        const Vec a = make_lpc(r, seed % 3, 10);
        const Vec x = make_input(r, (seed / 3) % 3, len);
        const Vec mem = r.vec(10, 32768);
        const Vec zero(10, 0);
        Vec y(len);
        EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), len, sf, nullptr),
                  kvoOk);
        EXPECT_EQ(y, syn_wrap(a.data(), 10, x.data(), len, zero, sf));
        Vec io = x;
        EXPECT_EQ(kvosSynthesisFilterLow_NR_16s_ISfs(a.data(), io.data(), len, sf, mem.data()),
                  kvoOk);
        EXPECT_EQ(io, syn_wrap(a.data(), 10, x.data(), len, mem, sf));
    }
}

// 1/(1 - z^-1) in Q12 accumulates its input: 1000 per step reaches 32000, then holds 32767.
TEST(Synthesis, IntegratorSaturatesAndWarns) {
    Vec a(11, 0);
    a[0] = 4096;
    a[1] = -4096;
    const Vec x(40, 1000);
    const Vec mem(10, 0);
    Vec y(40);
    EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), 40, 12, mem.data()),
              kvoWarnOverflow);
    for (int n = 0; n < 32; ++n) EXPECT_EQ(y[n], 1000 * (n + 1)) << n;
    for (int n = 32; n < 40; ++n) EXPECT_EQ(y[n], 32767) << n;
    // Without a history the sum is not saturated: 33000 wraps to 33000 - 65536.
    EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), 40, 12, nullptr), kvoOk);
    EXPECT_EQ(y[32], 33000 - 65536);
    // At scale 13 the same step adds half as much: (4096000 + 4096) >> 13.
    EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), 1, 13, mem.data()),
              kvoOk);
    EXPECT_EQ(y[0], 500);
}

TEST(Residual, FastPathEqualsOrderedChain) {
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 17);
        const int order = seed % 4 ? 10 : r.uni(1, 30);
        const int len = r.uni(1, 100);
        const Vec a = make_lpc(r, seed % 3, order);
        const Vec x = make_input(r, r.uni(0, 2), len + order);
        Vec y1(len), y2(len);
        kvo::residual_sat(a.data(), order, x.data() + order, y1.data(), len);
        kvo::residual_sat_ordered(a.data(), order, x.data() + order, y2.data(), len);
        EXPECT_EQ(0, std::memcmp(y1.data(), y2.data(), len * sizeof(int16_t)));
    }
}

TEST(Residual, MatchesChainModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 101);
        const Vec a = make_lpc(r, seed % 3, 10);
        const Vec x = make_input(r, (seed / 3) % 3, 50);
        const Vec want = residu(a.data(), 10, x.data() + 10, 40);
        Vec y(40);
        EXPECT_EQ(kvosResidualFilter_G729_16s(x.data() + 10, a.data(), y.data()), kvoOk);
        EXPECT_EQ(y, want);
        y.assign(40, 0);
        EXPECT_EQ(kvosResidualFilter_G729E_16s(a.data(), 10, x.data() + 10, y.data(), 40), kvoOk);
        EXPECT_EQ(y, want);

        const int order = r.uni(1, 20);
        const int len = r.uni(order, 80);
        const Vec b = make_lpc(r, seed % 3, order);
        const Vec z = make_input(r, seed % 3, len + order);
        y.assign(len, 0);
        EXPECT_EQ(kvosResidualFilter_G729E_16s(b.data(), order, z.data() + order, y.data(), len),
                  kvoOk);
        EXPECT_EQ(y, residu(b.data(), order, z.data() + order, len));
    }
}

TEST(ZeroStateResponse, MatchesWideModel) {
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 3);
        const int sf = 12 + (seed & 1);
        const int len = r.uni(1, 60);
        const Vec a = make_lpc(r, seed % 3, 10);
        Vec want(len);
        want[0] = a[0];
        for (int n = 1; n < len; ++n) {
            i64 acc = i64{1} << (sf - 1);
            for (int k = 1; k <= 10 && k <= n; ++k) acc -= i64{a[k]} * want[n - k];
            want[n] = low16(acc >> sf);
        }
        Vec y(len + 1, 0x5a5a);
        EXPECT_EQ(kvosSynthesisFilterZeroStateResponse_NR_16s(a.data(), y.data(), len, sf), kvoOk);
        EXPECT_EQ(Vec(y.begin(), y.begin() + len), want);
        EXPECT_EQ(y[len], 0x5a5a);
    }
}

// The weighting filter over a long signal in 40-sample subframes equals the residual and the
// synthesis models run over the whole signal.
TEST(WeightingIIR, SubframesEqualWholeSignalModel) {
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 13);
        Vec c = make_lpc(r, seed % 3, 10);
        const Vec den = make_lpc(r, (seed / 3) % 3, 10);
        c.insert(c.end(), den.begin(), den.end());
        const int total = 200;
        const Vec x = make_input(r, seed % 3, total + 10);
        const Vec mem0 = r.vec(10, 2000);

        const Vec t = residu(c.data(), 10, x.data() + 10, total);
        const Vec want = syn(c.data() + 11, 10, t.data(), total, mem0, 12, nullptr);
        const Vec tw = residu_wrap(c.data(), 10, x.data() + 10, total);
        const Vec want_low = syn_wrap(c.data() + 11, 10, tw.data(), total, mem0, 12);

        Vec mem = mem0, mem_low = mem0, y(total), y_low(total);
        for (int s = 0; s < total; s += 40) {
            EXPECT_EQ(kvosIIR16s_G729_16s(c.data(), x.data() + s, y.data() + s, mem.data()), kvoOk);
            EXPECT_EQ(
                kvosIIR16sLow_G729_16s(c.data(), x.data() + s, y_low.data() + s, mem_low.data()),
                kvoOk);
        }
        EXPECT_EQ(y, want);
        EXPECT_EQ(y_low, want_low);
        EXPECT_EQ(mem, Vec(want.end() - 10, want.end()));
    }
}

// Fast path against the ordered chain (flag included) on inputs crossing the whole-vector
// bound part way: quiet then loud, resonance, -32768, alternating full scale.
TEST(Synthesis, FastPathEqualsOrderedChain) {
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 7919);
        const int sf = 12 + (seed & 1);
        const int len = r.uni(1, 80);
        const int order = seed % 4 ? 10 : r.uni(1, 30);
        Vec a = make_lpc(r, seed % 3, order);
        if (seed % 5 == 0 && order >= 2) {  // a sharp resonance: 1 - 1.9 z^-1 + 0.95 z^-2 in Q12
            a.assign(order + 1, 0);
            a[0] = 4096;
            a[1] = -7782;
            a[2] = 3891;
        }
        Vec x(len);
        const int burst = r.uni(0, len);
        for (int n = 0; n < len; ++n) {
            switch ((seed / 3) % 5) {
                case 0:
                    x[n] = static_cast<int16_t>(n < burst ? r.uni(-50, 50) : r.s16());
                    break;
                case 1:
                    x[n] = -32768;
                    break;
                case 2:
                    x[n] = static_cast<int16_t>(n & 1 ? -32768 : 32767);
                    break;
                case 3:
                    x[n] = static_cast<int16_t>(n < burst ? 0 : 32767 - r.uni(0, 20));
                    break;
                default:
                    x[n] = static_cast<int16_t>(r.uni(-300, 300));
                    break;
            }
        }
        const Vec mem = r.vec(order, seed % 4 == 0 ? 32768 : r.uni(0, 1) ? 3000 : 20);
        Vec y1(len), y2(len);
        const bool f1 = kvo::synth_sat(a.data(), order, x.data(), y1.data(), len, mem.data(), sf);
        const bool f2 =
            kvo::synth_sat_ordered(a.data(), order, x.data(), y2.data(), len, mem.data(), sf);
        EXPECT_EQ(f1, f2);
        ASSERT_EQ(0, std::memcmp(y1.data(), y2.data(), len * sizeof(int16_t)));
        Vec io = x;
        EXPECT_EQ(kvo::synth_sat(a.data(), order, io.data(), io.data(), len, mem.data(), sf), f2);
        ASSERT_EQ(0, std::memcmp(io.data(), y2.data(), len * sizeof(int16_t)));
    }
}

// The order-10 wrapping synthesis against its plain tap loop: any coefficients
// (-32768 included), full-scale, -32768 and alternating input, loud or null
// history, both scales, in place and out of place.
TEST(Synthesis, WrapOrder10EqualsPlainLoop) {
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 104729);
        const int sf = 12 + (seed & 1);
        const int len = r.uni(1, 60);
        Vec a = make_lpc(r, seed % 3, 10);
        if (seed % 7 == 0) a.assign(11, -32768);
        Vec x(len);
        for (int n = 0; n < len; ++n) {
            switch ((seed / 3) % 4) {
                case 0:
                    x[n] = r.s16();
                    break;
                case 1:
                    x[n] = -32768;
                    break;
                case 2:
                    x[n] = static_cast<int16_t>(n & 1 ? -32768 : 32767);
                    break;
                default:
                    x[n] = static_cast<int16_t>(r.uni(-500, 500));
                    break;
            }
        }
        const Vec mem = r.vec(10, seed % 2 ? 32768 : 100);
        const Kvo16s* m = seed % 5 == 0 ? nullptr : mem.data();
        Vec y1(len), y2(len);
        kvo::synth_wrap(a.data(), 10, x.data(), y1.data(), len, m, sf);
        kvo::synth_wrap_plain(a.data(), 10, x.data(), y2.data(), len, m, sf);
        ASSERT_EQ(0, std::memcmp(y1.data(), y2.data(), len * sizeof(int16_t)));
        Vec io = x;
        kvo::synth_wrap(a.data(), 10, io.data(), io.data(), len, m, sf);
        ASSERT_EQ(0, std::memcmp(io.data(), y2.data(), len * sizeof(int16_t)));
    }
}

// The order-10 zero-state response against its tap-loop twin on any
// coefficients, including all -32768 and full-scale alternating sets.
TEST(ZeroStateResponse, VectorFormEqualsPlainLoop) {
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 7727);
        const int sf = 12 + (seed & 1);
        const int len = r.uni(1, 64);
        Vec a = make_lpc(r, seed % 3, 10);
        if (seed % 7 == 0) a.assign(11, -32768);
        if (seed % 11 == 0)
            for (int k = 0; k <= 10; ++k) a[k] = static_cast<int16_t>(k & 1 ? -32768 : 32767);
        Vec y1(len), y2(len);
        kvo::zero_state_response(a.data(), y1.data(), len, sf);
        kvo::zero_state_response_plain(a.data(), y2.data(), len, sf);
        ASSERT_EQ(0, std::memcmp(y1.data(), y2.data(), len * sizeof(int16_t)));
    }
}
