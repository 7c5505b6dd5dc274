// G.729 post-processing steps that the vector sets do not run: the annex B
// long-term post filter, annex D phase dispersion and the annex A
// preemphasis, against models written here; and one exact check of the two
// gain controls (the vector sets prove the main-body and annex A post filters
// bit for bit).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "g729/post_tables.h"
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

// Annex B writes the A(z/0.55) residual, filters active frames exactly as the
// main filter at gamma 0.5 and copies the others; pVoice tells whether a
// delay was used.
TEST(LongTermPostFilterB, FrameTypesAndResidual) {
    for (uint32_t seed = 1; seed <= 18; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec a(11, 0);  // a stable set: a(z) = (1 - 0.9 z^-1) in Q12, with small higher taps
        a[0] = 4096, a[1] = static_cast<i16>(-3686 + r.uni(-200, 200)), a[2] = r.uni(-300, 300);
        const int P = r.uni(20, 143);
        const i16 type = static_cast<i16>(seed % 3);
        Vec full(194);
        if (seed % 2) {
            const Vec per = r.noise(P, 3000);
            for (int i = 0; i < 194; ++i) full[i] = per[i % P];
        } else {
            full = r.noise(194, 2000);
        }
        Vec res(full.begin(), full.begin() + 154), out(40), main(40);
        res.resize(194);
        i16 voice = -7, used = -1;
        const int delay = type == 1 ? P : r.uni(0, 143);
        ASSERT_EQ(kvosLongTermPostFilter_G729B_16s(delay, &full[154], a.data(), res.data(),
                                                   out.data(), &voice, type),
                  kvoOk);
        for (int n = 154; n < 194; ++n) {
            int64_t s = 2048;
            for (int k = 0; k <= 10; ++k)
                s += sat16((int64_t{a[k]} * kvo::tab::facGamma2_pst[k] + 16384) >> 15) *
                     int64_t{full[n - k]};
            ASSERT_EQ(res[n], sat16(s >> 12)) << n;
        }
        if (type == 1)
            ASSERT_EQ(kvosLongTermPostFilter_G729_16s(16384, delay, &res[154], main.data(), &used),
                      kvoOk);
        else
            main.assign(res.begin() + 154, res.end()), used = 0;
        EXPECT_EQ(out, main);
        EXPECT_EQ(voice, used != 0 ? 1 : 0);
    }
}

// Phase dispersion model: class decision from the pitch gain history and
// onsets, then the circular convolution of the innovation with one of three
// responses.
struct Model {
    int hist[6] = {}, prevClass = 0, prevCb = 0, onset = 0;
    void push(int pitch) {
        std::memmove(hist + 1, hist, 5 * sizeof(int));
        hist[0] = pitch;
    }
    void run(const Vec& exc, Vec& out, i16 cb, i16 pitch, Vec& inno) {
        int cls = pitch >= 14745 ? 2 : pitch > 9830 ? 1 : 0;
        push(pitch);
        onset = (cb >> 1) > prevCb ? 2 : std::max(onset - 1, 0);
        const auto low = std::count_if(hist, hist + 6, [](int v) { return v < 9830; });
        if (low > 2 && onset == 0) cls = 0;
        if (cls > prevClass + 1 && onset == 0) --cls;
        if (onset && cls < 2) ++cls;
        prevClass = cls, prevCb = cb;
        Vec ltp(40), disp(40, 0);
        for (int n = 0; n < 40; ++n)
            ltp[n] = sat16(exc[n] - sat16((i32{inno[n]} * cb + 8192) >> 14));
        for (int p = 0; p < 40; ++p)
            for (int k = 0; k < 40 && inno[p]; ++k) {
                const int j = (k - p + 40) % 40;
                const i32 h =
                    cls == 2 ? (j ? 0 : 32767) : (cls ? kvo::tab::phImpMid : kvo::tab::phImpLow)[j];
                disp[k] = sat16(disp[k] + sat16((h * inno[p]) >> 15));
            }
        inno = disp;
        for (int n = 0; n < 40; ++n)
            out[n] = sat16(sat16((i32{inno[n]} * cb + 8192) >> 14) + ltp[n]);
    }
};

// Dispersion and update calls with gains around the thresholds, onsets and
// full-scale pulses; the record is moved to another buffer now and then, and
// Init writes all of it (0x00 and 0xFF prefills end identical).
TEST(PhaseDispersion, LongRunFollowsModel) {
    Kvo32s size = -1;
    ASSERT_EQ(kvosPhaseDispersionGetStateSize_G729D_16s(&size), kvoOk);
    ASSERT_EQ(size, 20);
    KvoPhaseDispersionState_G729D st[2];
    std::memset(&st[0], 0x00, sizeof st[0]);
    std::memset(&st[1], 0xff, sizeof st[1]);
    kvosPhaseDispersionInit_G729D_16s(&st[0]);
    kvosPhaseDispersionInit_G729D_16s(&st[1]);
    ASSERT_EQ(0, std::memcmp(&st[0], &st[1], sizeof st[0]));
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        kvosPhaseDispersionInit_G729D_16s(&st[0]);
        Model m;
        int which = 0, classes[3] = {};
        const bool loud = seed % 2 == 0;
        for (int f = 0; f < 400; ++f) {
            SCOPED_TRACE(f);
            const int band = r.uni(0, 3);
            const i16 pitch = static_cast<i16>(band == 0   ? r.uni(0, 16384)
                                               : band == 1 ? r.uni(9000, 10500)
                                                           : r.uni(14000, 15500));
            const i16 cb = static_cast<i16>(r.uni(0, 4) ? r.uni(0, 600) : r.uni(0, 32767));
            if (r.uni(0, 9) == 0) {
                ASSERT_EQ(kvosPhaseDispersionUpdate_G729D_16s(pitch, cb, &st[which]), kvoOk);
                m.push(pitch), m.prevClass = 2, m.prevCb = cb, m.onset = 0;
            } else {
                Vec inno(40, 0), exc(40), out(40), want(40);
                for (int i = r.uni(0, 12); i > 0; --i)
                    inno[r.uni(0, 39)] = static_cast<i16>(r.uni(0, 1) ? (loud ? 32767 : 8191)
                                                                      : (loud ? -32768 : -8192));
                for (auto& v : exc)
                    v = static_cast<i16>(loud ? r.uni(-32768, 32767) : r.uni(-4000, 4000));
                Vec innoModel = inno;
                ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), cb, pitch,
                                                        inno.data(), &st[which]),
                          kvoOk);
                m.run(exc, want, cb, pitch, innoModel);
                ASSERT_EQ(inno, innoModel);
                ASSERT_EQ(out, want);
                ++classes[m.prevClass];
            }
            const auto& s = st[which];
            ASSERT_TRUE(std::equal(m.hist, m.hist + 6, s.gainHistory));
            ASSERT_TRUE(s.prevDispersion == m.prevClass && s.prevCbGain == m.prevCb &&
                        s.onset == m.onset);
            if (r.uni(0, 7) == 0) {
                std::memcpy(&st[1 - which], &st[which], sizeof st[0]);
                std::memset(&st[which], 0xcc, sizeof st[0]);
                which = 1 - which;
            }
        }
        EXPECT_TRUE(classes[0] > 10 && classes[1] > 10 && classes[2] > 10);
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
