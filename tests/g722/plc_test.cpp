// G.722 concealment helpers: classification and peak limiting, predictor
// restart after a lost frame, high-band DC removal and the 4:1 decimation,
// against models written in the test and worked values.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "g72x/g722.h"
#include "g72x/g722_tables.h"
#include "kvosc.h"

namespace {

struct Rec {
    alignas(16) Kvo8u mem[sizeof(KvoG722State) + 32];
    Kvo8u* base = mem + 3;  // deliberately off a 16-byte boundary
    KvoG722State* st() { return kvo::g722State(base); }
    Rec() { kvosSBADPCMDecodeInit_G722_16s(base); }
};

// ---- classification ------------------------------------------------------------

int model_classify(std::vector<int>& x, int off, int period, int cls, int nbl, int nbh) {
    auto mag = [](int v) { return std::min(std::abs(v), 32767); };
    if (nbh > nbl) cls = cls == 0 ? 3 : 4;
    if (cls != 3 && cls != 4) return cls;
    bool any = false;
    for (int n = 0; n < period; ++n) {
        int m = 0;
        for (int k = -2; k <= 2; ++k) m = std::max(m, mag(x[off + n + k]));
        const int y = x[off + n + period];
        if (m < mag(y)) {
            any |= m <= (mag(y) >> 3);
            x[off + n + period] = y < 0 ? -m : m;
        }
    }
    return any ? 2 : cls;
}

TEST(G722Plc, ClassifyMatchesModel) {
    std::mt19937 rng(21);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        Rec r;
        r.st()->nbl = static_cast<Kvo16s>(rng() % 20000);
        r.st()->nbh = static_cast<Kvo16s>(rng() % 20000);
        const int period = static_cast<int>(rng() % 144);
        std::vector<Kvo16s> v(2 + 2 * period + 3);
        const int amp = trial % 3 == 0 ? 32768 : 2000;
        for (auto& s : v) s = static_cast<Kvo16s>(static_cast<int>(rng() % (2 * amp)) - amp);
        // occasional spikes one period ahead
        for (int k = 0; k < 4; ++k)
            v[2 + period + rng() % (period + 1)] = (rng() & 1) ? -32768 : 30000;
        std::vector<int> m(v.begin(), v.end());
        Kvo32s cls = static_cast<Kvo32s>(rng() % 5);
        const int want = model_classify(m, 2, period, cls, r.st()->nbl, r.st()->nbh);
        ASSERT_EQ(kvosClassifyFrame_G722_16s_I(v.data() + 2, period, &cls, r.base), kvoOk);
        EXPECT_EQ(cls, want);
        EXPECT_TRUE(std::equal(v.begin(), v.end(), m.begin()));
    }
}

TEST(G722Plc, ClassifyWorkedCases) {
    Rec r;
    r.st()->nbl = 100;
    r.st()->nbh = 200;
    Kvo16s x[8] = {0, 0, 10, -10, 10, 1000, 0, 0};  // two samples of history first
    const struct {
        Kvo32s in, period, out;
        bool limited;
    } rows[] = {
        {0, 0, 3, false},  // period 0: class update only
        {5, 0, 4, false},
        {0, 3, 2, true},  // 1000 one period after 10 is limited to 10 and counted
        {4, 3, 2, true},
    };
    for (const auto& row : rows) {
        Kvo16s v[8];
        std::copy(x, x + 8, v);
        Kvo32s cls = row.in;
        ASSERT_EQ(kvosClassifyFrame_G722_16s_I(v + 2, row.period, &cls, r.base), kvoOk);
        EXPECT_EQ(cls, row.out);
        EXPECT_EQ(v[5], row.limited ? 10 : 1000);
    }
    // a quiet high band leaves a class other than 3 or 4 and the signal alone
    r.st()->nbh = 50;
    Kvo16s v[8];
    std::copy(x, x + 8, v);
    Kvo32s cls = 1;
    ASSERT_EQ(kvosClassifyFrame_G722_16s_I(v + 2, 3, &cls, r.base), kvoOk);
    EXPECT_EQ(cls, 1);
    EXPECT_EQ(v[5], 1000);
}

// ---- predictor restart -----------------------------------------------------------

TEST(G722Plc, StateUpdateRestartsTheLowBand) {
    const Kvo16s src[2] = {-301, 4001};
    for (int reset : {0, 1}) {
        SCOPED_TRACE(reset);
        Rec r;
        KvoG722State& s = *r.st();
        for (int i = 0; i < 6; ++i) s.dlt[i] = 100 + i, s.bl[i] = s.bh[i] = 7, s.dh[i] = 5;
        s.dlt0 = 9;
        s.nbl = 3000;
        s.detl = 500;
        s.nbh = 9000;
        s.deth = 300;
        s.al1 = 11;
        s.ah1 = 12;
        const KvoG722State before = s;
        ASSERT_EQ(kvosSBADPCMDecodeStateUpdate_G722_16s(src, 0x1234F0F1, reset, r.base), kvoOk);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(s.dlt[i], 0);
        EXPECT_EQ(s.dlt0, 0);
        EXPECT_EQ(s.plt1, 2000);
        EXPECT_EQ(s.plt2, -151);
        EXPECT_EQ(s.rlt1, 4001);
        EXPECT_EQ(s.rlt2, -301);
        EXPECT_EQ(s.sl, static_cast<Kvo16s>(0xF0F1));  // val read as 16 bits
        EXPECT_EQ(s.szl, static_cast<Kvo16s>(0xF0F1) >> 1);
        if (reset) {
            EXPECT_EQ(s.detl, 32);
            EXPECT_EQ(s.deth, 8);
            EXPECT_EQ(s.nbl, 0);
            EXPECT_EQ(s.nbh, 0);
        } else {
            EXPECT_EQ(s.nbl, 3000);
            EXPECT_EQ(s.detl, 500);
            EXPECT_EQ(s.nbh, 4500);
            EXPECT_EQ(s.deth, kvo::tab::table_ila[4500 >> 6] * 4 + 4);
        }
        // the high band and the predictor coefficients are not touched
        EXPECT_EQ(s.al1, before.al1);
        EXPECT_EQ(s.ah1, before.ah1);
        EXPECT_EQ(std::memcmp(s.bl, before.bl, sizeof s.bl), 0);
        EXPECT_EQ(std::memcmp(s.dh, before.dh, sizeof s.dh), 0);
    }
}

TEST(G722Plc, StateUpdateRejectsDamagedScaleFactor) {
    Rec r;
    r.st()->nbh = -1000;
    r.st()->deth = 77;
    const Kvo16s src[2] = {1, 2};
    EXPECT_EQ(kvosSBADPCMDecodeStateUpdate_G722_16s(src, 0, 0, r.base), kvoErrOutOfRange);
    EXPECT_EQ(r.st()->nbh, -500);  // already halved
    EXPECT_EQ(r.st()->deth, 77);   // the rest of the step not done
    // with reset the damaged value is simply cleared
    r.st()->nbh = -1000;
    EXPECT_EQ(kvosSBADPCMDecodeStateUpdate_G722_16s(src, 0, 1, r.base), kvoOk);
    EXPECT_EQ(r.st()->nbh, 0);
}

// ---- high-band DC removal -------------------------------------------------------

TEST(G722Plc, HighbandFilterMatchesModel) {
    std::mt19937 rng(5);
    std::vector<Kvo16s> v(4000);
    for (auto& s : v) s = static_cast<Kvo16s>(rng());
    std::vector<Kvo16s> orig = v;
    Kvo16s st[2] = {0, 0};
    for (size_t at = 0; at < v.size(); at += 400)
        ASSERT_EQ(kvosFilterHighband_G722_16s_I(&v[at], 400, st), kvoOk);
    int64_t u1 = 0, y1 = 0;
    for (size_t i = 0; i < v.size(); i += 2) {
        EXPECT_EQ(v[i], orig[i]);  // low band untouched
        const int64_t u = (int64_t{orig[i + 1]} * 29212 + 16384) >> 15;
        const int64_t t = std::clamp<int64_t>(((y1 * 25656 + 16384) >> 15) - u1, -32768, 32767);
        const int64_t y = std::clamp<int64_t>(u + t, -32768, 32767);
        ASSERT_EQ(v[i + 1], y) << i;
        u1 = u;
        y1 = y;
    }
    EXPECT_EQ(st[0], u1);
    EXPECT_EQ(st[1], y1);
}

TEST(G722Plc, HighbandFilterRemovesDc) {
    std::vector<Kvo16s> v(4000, 3000);
    Kvo16s st[2] = {0, 0};
    ASSERT_EQ(kvosFilterHighband_G722_16s_I(v.data(), v.size(), st), kvoOk);
    EXPECT_LT(std::abs(v.back()), 8);
}

// ---- decimation -----------------------------------------------------------------

TEST(G722Plc, DownsampleMatchesModel) {
    static const int f[9] = {3692, 6190, 8525, 10186, 10787, 10186, 8525, 6190, 3692};
    std::mt19937 rng(8);
    for (int amp : {1000, 32768}) {
        std::vector<Kvo16s> x(5 + 403);
        for (auto& s : x)
            s = amp == 32768 ? ((rng() & 3) ? -32768 : 32767)
                             : static_cast<Kvo16s>(static_cast<int>(rng() % 2001) - 1000);
        std::vector<Kvo16s> y(100, 0x5555);
        ASSERT_EQ(kvosDownsampleFilter_G722_16s(x.data() + 5, 403, y.data()), kvoOk);
        for (int k = 0; k < 100; ++k) {
            int64_t s = 0;
            for (int j = 0; j < 9; ++j)
                s = std::clamp<int64_t>(s + int64_t{x[5 + 4 * k + 3 - j]} * f[j], INT32_MIN,
                                        INT32_MAX);
            const int want = s >= 0x7FFF8000 ? 32767 : static_cast<int>((s + 32768) >> 16);
            ASSERT_EQ(y[k], want) << k;
        }
    }
    // nine full-scale taps pass 2^31 (the gain is 67973 / 65536): the sum
    // saturates and rounds to the rail
    for (int v : {32767, -32768}) {
        std::vector<Kvo16s> full(13, static_cast<Kvo16s>(v)), y(2);
        ASSERT_EQ(kvosDownsampleFilter_G722_16s(full.data() + 5, 4, y.data()), kvoOk);
        EXPECT_EQ(y[0], v);
    }
}

TEST(G722Plc, DownsampleOutputCount) {
    std::vector<Kvo16s> x(5 + 8, 1000);
    for (int len : {1, 2, 3, 7, 8}) {
        Kvo16s y[3] = {-1, -1, -1};
        ASSERT_EQ(kvosDownsampleFilter_G722_16s(x.data() + 5, len, y), kvoOk);
        const int outs = len / 4;
        for (int k = 0; k < 3; ++k) EXPECT_EQ(y[k] != -1, k < outs) << len << " " << k;
    }
}

}  // namespace
