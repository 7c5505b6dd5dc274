// Synthesis, zero-state response, residual and weighting filters against the models of
// filter_model.h on quiet, full-range and full-scale input; the fast kernels against their
// plain ordered twins byte for byte.
#include <gtest/gtest.h>

#include <cstring>

#include "filter_model.h"
#include "kernels/filter.h"
#include "kvosc.h"

using namespace fmodel;

// Order 10 at scale 12 or 13 (saturating with a history, wrapping without one or in the Low
// form) and any order at scale 12 (the order taken as 16 bits).
TEST(Synthesis, EveryFormMatchesItsModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int sf = 12 + (seed & 1), len = r.uni(1, 80);
        const Vec a = r.coefs(seed % 3, 10), x = r.input((seed / 3) % 6, len);
        const Vec mem = r.vec(10, seed % 2 ? 32768 : 500), zero10(10, 0);
        bool ovf = false;
        const Vec want = syn(a.data(), 10, x.data(), len, mem, sf, &ovf);
        const KvoStatus st = ovf ? kvoWarnOverflow : kvoOk;
        Vec y(len), io = x;
        EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), len, sf, mem.data()),
                  st);
        EXPECT_EQ(y, want);
        EXPECT_EQ(kvosSynthesisFilter_NR_16s_ISfs(a.data(), io.data(), len, sf, mem.data()), st);
        EXPECT_EQ(io, want);
        EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), len, sf, nullptr),
                  kvoOk);
        EXPECT_EQ(y, syn_wrap(a.data(), 10, x.data(), len, zero10, sf));
        io = x;
        EXPECT_EQ(kvosSynthesisFilterLow_NR_16s_ISfs(a.data(), io.data(), len, sf, mem.data()),
                  kvoOk);
        EXPECT_EQ(io, syn_wrap(a.data(), 10, x.data(), len, mem, sf));

        const int order = seed % 4 ? r.uni(1, 24) : 10;
        const Vec b = r.coefs(seed % 3, order), mb = r.vec(order, 32768);
        const Vec wantE = syn(b.data(), order, x.data(), len, mb, 12, &ovf);
        io = x;
        EXPECT_EQ(kvosSynthesisFilter_G729E_16s_I(b.data(), order + (seed & 1) * 0x10000, io.data(),
                                                  len, mb.data()),
                  ovf ? kvoWarnOverflow : kvoOk);
        EXPECT_EQ(io, wantE);
        EXPECT_EQ(kvosSynthesisFilter_G729E_16s(b.data(), order, x.data(), y.data(), len, nullptr),
                  kvoOk);
        EXPECT_EQ(y, syn_wrap(b.data(), order, x.data(), len, Vec(order, 0), 12));
    }
}

// 1/(1 - z^-1) in Q12 accumulates its input: 1000 per step reaches 32000, then holds 32767;
// without a history the sum wraps instead; at scale 13 a step adds (4096000 + 4096) >> 13.
TEST(Synthesis, IntegratorWorkedValues) {
    Vec a(11, 0);
    a[0] = 4096;
    a[1] = -4096;
    const Vec x(40, 1000), mem(10, 0);
    Vec y(40);
    EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), 40, 12, mem.data()),
              kvoWarnOverflow);
    EXPECT_EQ(y[31], 32000);
    EXPECT_EQ(y[32], 32767);
    EXPECT_EQ(y[39], 32767);
    EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), 40, 12, nullptr), kvoOk);
    EXPECT_EQ(y[32], 33000 - 65536);
    EXPECT_EQ(kvosSynthesisFilter_NR_16s_Sfs(a.data(), x.data(), y.data(), 1, 13, mem.data()),
              kvoOk);
    EXPECT_EQ(y[0], 500);
}

TEST(Residual, MatchesChainModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 101);
        const int order = seed % 2 ? 10 : r.uni(1, 20), len = seed % 2 ? 40 : r.uni(order, 80);
        const Vec a = r.coefs(seed % 3, order), x = r.input((seed / 3) % 6, len + order);
        const Vec want = residu(a.data(), order, x.data() + order, len);
        Vec y(len);
        EXPECT_EQ(kvosResidualFilter_G729E_16s(a.data(), order, x.data() + order, y.data(), len),
                  kvoOk);
        EXPECT_EQ(y, want);
        if (order == 10) {
            EXPECT_EQ(kvosResidualFilter_G729_16s(x.data() + 10, a.data(), y.data()), kvoOk);
            EXPECT_EQ(y, want);
        }
    }
}

TEST(ZeroStateResponse, MatchesWideModel) {
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 3);
        const int sf = 12 + (seed & 1), len = r.uni(1, 60);
        const Vec a = r.coefs(seed % 3, 10);
        Vec x(len, 0), y(len + 1, 0x5a5a);
        x[0] = 1 << sf;  // a[0] * 2^sf >> sf: the impulse comes out as a[0]
        const Vec want = syn_wrap(a.data(), 10, x.data(), len, Vec(10, 0), sf);
        EXPECT_EQ(kvosSynthesisFilterZeroStateResponse_NR_16s(a.data(), y.data(), len, sf), kvoOk);
        EXPECT_EQ(Vec(y.begin(), y.begin() + len), want);
        EXPECT_EQ(y[len], 0x5a5a);
    }
}

// The weighting filters over 200 samples in 40-sample subframes equal the residual and
// synthesis models run over the whole signal.
TEST(WeightingIIR, SubframesEqualWholeSignalModel) {
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 13);
        Vec c = r.coefs(seed % 3, 10);
        const Vec den = r.coefs((seed / 3) % 3, 10), x = r.input(seed % 6, 210);
        const Vec mem0 = r.vec(10, 2000);
        c.insert(c.end(), den.begin(), den.end());
        const Vec t = residu(c.data(), 10, x.data() + 10, 200);
        const Vec want = syn(c.data() + 11, 10, t.data(), 200, mem0, 12, nullptr);
        const Vec tw = residu(c.data(), 10, x.data() + 10, 200, true);
        const Vec want_low = syn_wrap(c.data() + 11, 10, tw.data(), 200, mem0, 12);
        Vec mem = mem0, mem_low = mem0, y(200), y_low(200);
        for (int s = 0; s < 200; s += 40) {
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

// Fast kernels against their plain ordered twins (flags, outputs, in place, high-pass record)
// on any coefficients, histories and states, -32768 and full scale included.
TEST(Kernels, FastFormsEqualPlainTwins) {
    auto same = [](const Vec& u, const Vec& v) {
        return u.size() == v.size() && std::memcmp(u.data(), v.data(), 2 * u.size()) == 0;
    };
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 7919);
        const int sf = 12 + (seed & 1), len = r.uni(1, 80), order = seed % 4 ? 10 : r.uni(1, 30);
        Vec a = r.coefs(seed % 3, order);
        if (seed % 7 == 0) a.assign(order + 1, -32768);
        if (seed % 5 == 0 && order >= 2) a = {4096, -7782, 3891};  // 1 - 1.9 z^-1 + 0.95 z^-2
        a.resize(order + 1);
        const Vec x = r.input((seed / 3) % 6, len + order);
        const Vec mem = r.vec(order, seed % 4 == 0 ? 32768 : (r.uni(0, 1) ? 3000 : 20));
        const Kvo16s* xs = x.data() + order;
        Vec y1(len), y2(len), io(xs, xs + len);
        const bool f2 = kvo::synth_sat_ordered(a.data(), order, xs, y2.data(), len, mem.data(), sf);
        EXPECT_EQ(kvo::synth_sat(a.data(), order, xs, y1.data(), len, mem.data(), sf), f2);
        EXPECT_TRUE(same(y1, y2));
        EXPECT_EQ(kvo::synth_sat(a.data(), order, io.data(), io.data(), len, mem.data(), sf), f2);
        EXPECT_TRUE(same(io, y2));
        kvo::residual_sat(a.data(), order, xs, y1.data(), len);
        kvo::residual_sat_ordered(a.data(), order, xs, y2.data(), len);
        EXPECT_TRUE(same(y1, y2));
        if (order != 10) continue;
        const Kvo16s* m = seed % 5 == 1 ? nullptr : mem.data();
        io.assign(xs, xs + len);
        kvo::synth_wrap(a.data(), 10, xs, y1.data(), len, m, sf);
        kvo::synth_wrap_plain(a.data(), 10, xs, y2.data(), len, m, sf);
        EXPECT_TRUE(same(y1, y2));
        kvo::synth_wrap(a.data(), 10, io.data(), io.data(), len, m, sf);
        EXPECT_TRUE(same(io, y2));
        kvo::zero_state_response(a.data(), y1.data(), len, sf);
        kvo::zero_state_response_plain(a.data(), y2.data(), len, sf);
        EXPECT_TRUE(same(y1, y2));

        KvoHighPassState_G729 st{};
        ASSERT_EQ(kvosHighPassFilterInit_G729(r.vec(6, 32768).data(), &st), kvoOk);
        st.y1 = static_cast<Kvo32s>(r.uni(-32768, 32767)) * 65536 + r.uni(0, 65535);
        st.y2 = seed % 3 == 0 ? INT32_MIN : static_cast<Kvo32s>(r.uni(-32768, 32767)) * 65536;
        st.x0 = r.s16();
        st.x1 = r.s16();
        KvoHighPassState_G729 s1 = st, s2 = st;
        Vec h1(x.begin(), x.begin() + len), h2 = h1;
        for (int n0 = 0; n0 < len; n0 += 40) {
            kvo::highpass_g729(s1, h1.data() + n0, std::min(40, len - n0), sf);
            kvo::highpass_g729_plain(s2, h2.data() + n0, std::min(40, len - n0), sf);
        }
        EXPECT_TRUE(same(h1, h2));
        EXPECT_EQ(0, std::memcmp(&s1, &s2, sizeof s1));
    }
}
