// G.722 SB-ADPCM encoder and decoder through the exports: against the block
// model of g722_model.h on random and extreme subband signals, worked values
// of the start state, mode selection, encoder/decoder tracking under
// overload, frame-free streaming and the alignment of the state record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "g722_model.h"
#include "g72x/g722.h"
#include "kvosc.h"

namespace {

struct Block {
    std::vector<Kvo8u> mem;
    explicit Block(int offset = 0) {
        Kvo32s size = 0;
        EXPECT_EQ(kvosSBADPCMEncodeStateSize_G722_16s(&size), kvoOk);
        mem.resize(size + 32);
        // place the block `offset` bytes past a 16-byte boundary
        auto a = reinterpret_cast<std::uintptr_t>(mem.data());
        base = mem.data() + ((16 - a % 16) % 16) + offset;
    }
    Kvo8u* base = nullptr;
    KvoG722State* rec() { return kvo::g722State(base); }
};

void expect_same_band(const KvoG722State& s, const g722model::Coder& m) {
    EXPECT_EQ(s.al1, m.lo.a1);
    EXPECT_EQ(s.al2, m.lo.a2);
    EXPECT_EQ(s.ah1, m.hi.a1);
    EXPECT_EQ(s.ah2, m.hi.a2);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(s.bl[i], m.lo.b[i + 1]) << i;
        EXPECT_EQ(s.bh[i], m.hi.b[i + 1]) << i;
        EXPECT_EQ(s.dlt[i], m.lo.d[i + 1]) << i;
        EXPECT_EQ(s.dh[i], m.hi.d[i + 1]) << i;
    }
    EXPECT_EQ(s.detl, m.lo.det);
    EXPECT_EQ(s.deth, m.hi.det);
    EXPECT_EQ(s.nbl, m.lo.nb);
    EXPECT_EQ(s.nbh, m.hi.nb);
    EXPECT_EQ(s.plt, m.lo.p);
    EXPECT_EQ(s.pht, m.hi.p);
    EXPECT_EQ(s.rlt, m.lo.r);
    EXPECT_EQ(s.rht, m.hi.r);
    EXPECT_EQ(s.plt1, m.lo.p1);
    EXPECT_EQ(s.plt2, m.lo.p2);
    EXPECT_EQ(s.rlt1, m.lo.r1);
    EXPECT_EQ(s.rlt2, m.lo.r2);
    EXPECT_EQ(s.dlt0, m.lo.d0);
    EXPECT_EQ(s.dht0, m.hi.d0);
    EXPECT_EQ(s.szl, m.lo.sz);
    EXPECT_EQ(s.szh, m.hi.sz);
    EXPECT_EQ(s.spl, m.lo.sp);
    EXPECT_EQ(s.sph, m.hi.sp);
    EXPECT_EQ(s.sl, m.lo.s);
    EXPECT_EQ(s.sh, m.hi.s);
}

// Subband test signals: random walks at several levels, bursts of full-scale
// values (beyond the QMF's range, to drive every saturation), silence.
std::vector<Kvo16s> subbands(int pairs, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<Kvo16s> v(2 * pairs);
    int lo = 0, hi = 0;
    for (int i = 0; i < pairs; ++i) {
        const int phase = (i / 400) % 5;
        const int amp = phase == 0 ? 300 : phase == 1 ? 4000 : phase == 2 ? 16383 : 0;
        if (phase == 3) {  // full-scale squares: the predictors run into the rails
            const int per = 1 + (i / 80) % 5;
            lo = (i / per) % 2 ? 32767 : -32768;
            hi = (i / (per + 1)) % 2 ? 32767 : -32768;
        } else if (amp == 0) {
            lo = hi = 0;
        } else {
            lo = std::clamp<int>(lo + static_cast<int>(rng() % (2 * amp + 1)) - amp, -amp, amp);
            hi = static_cast<int>(rng() % (2 * amp + 1)) - amp;
        }
        v[2 * i] = static_cast<Kvo16s>(lo);
        v[2 * i + 1] = static_cast<Kvo16s>(hi);
    }
    return v;
}

TEST(G722Adpcm, StartStateAndFirstPairOfSilence) {
    Block b;
    ASSERT_EQ(kvosSBADPCMEncodeInit_G722_16s(b.base), kvoOk);
    EXPECT_EQ(b.rec()->detl, 32);
    EXPECT_EQ(b.rec()->deth, 8);
    // the antilog table gives the same scale factors at NBL = NBH = 0
    EXPECT_EQ(kvo::tab::table_ila[64] * 4 + 4, 32);
    EXPECT_EQ(kvo::tab::table_ila[0] * 4 + 4, 8);
    const Kvo16s zero[2] = {0, 0};
    Kvo16s code[2];
    ASSERT_EQ(kvosSBADPCMEncode_G722_16s(zero, code, 2, b.base), kvoOk);
    EXPECT_EQ(code[0], 58);  // k = 4: levels 1..3 scale to 0 at DETL 32
    EXPECT_EQ(code[1], 3);
}

TEST(G722Adpcm, QuantizersMatchLinearSearch) {
    // Every difference at a spread of scale factors, including the extremes.
    for (int det : {8, 32, 44, 100, 777, 4096, 9999, 16384, 32767, -3}) {
        for (int e = -32768; e <= 32767; e += 7) {
            ASSERT_EQ(kvo::g722QuantL(e, det), g722model::quant_low(e, det)) << e << " " << det;
            ASSERT_EQ(kvo::g722QuantH(e, det), g722model::quant_high(e, det)) << e << " " << det;
        }
    }
}

TEST(G722Adpcm, EncoderAndDecoderMatchModel) {
    for (uint32_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(seed);
        const auto x = subbands(4000, seed);
        Block enc;
        ASSERT_EQ(kvosSBADPCMEncodeInit_G722_16s(enc.base), kvoOk);
        std::vector<Kvo16s> code(x.size());
        ASSERT_EQ(kvosSBADPCMEncode_G722_16s(x.data(), code.data(), x.size(), enc.base), kvoOk);
        g722model::Coder me;
        for (size_t i = 0; i < x.size() / 2; ++i) {
            int il, ih;
            g722model::encode(me, x[2 * i], x[2 * i + 1], il, ih);
            ASSERT_EQ(code[2 * i], il) << "pair " << i;
            ASSERT_EQ(code[2 * i + 1], ih) << "pair " << i;
        }
        expect_same_band(*enc.rec(), me);

        // Decode random codes (all 256 values occur) at every mode.
        std::mt19937 rng(seed);
        for (auto& c : code) c = static_cast<Kvo16s>(rng());  // high bits must be masked
        for (int mode : {1, 2, 3}) {
            SCOPED_TRACE(mode);
            Block dec;
            ASSERT_EQ(kvosSBADPCMDecodeInit_G722_16s(dec.base), kvoOk);
            std::vector<Kvo16s> y(code.size());
            ASSERT_EQ(kvosSBADPCMDecode_G722_16s(code.data(), y.data(), y.size(), mode, dec.base),
                      kvoOk);
            g722model::Coder md;
            const int bits = mode == 1 ? 6 : mode == 2 ? 5 : 4;
            for (size_t i = 0; i < y.size() / 2; ++i) {
                int yl, yh;
                g722model::decode(md, code[2 * i], code[2 * i + 1], bits, yl, yh);
                ASSERT_EQ(y[2 * i], yl) << "pair " << i;
                ASSERT_EQ(y[2 * i + 1], yh) << "pair " << i;
            }
            expect_same_band(*dec.rec(), md);
        }
    }
}

// The decoder adapts on IL >> 2 at every rate and saturates PLT, RLT, PH and
// RH as the encoder does: fed the encoder's codes, its record equals the
// encoder's after every pair, also where SZ + D or S + D overflows 16 bits
// (a wrapping encoder would part from the decoder there).
TEST(G722Adpcm, DecoderTracksEncoderUnderOverload) {
    const auto x = subbands(6000, 9);
    Block enc;
    kvosSBADPCMEncodeInit_G722_16s(enc.base);
    std::vector<Block> dec(4);
    for (auto& d : dec) kvosSBADPCMDecodeInit_G722_16s(d.base);
    int overflows = 0;
    for (size_t i = 0; i < x.size(); i += 2) {
        const KvoG722State before = *enc.rec();
        Kvo16s code[2], y[2];
        ASSERT_EQ(kvosSBADPCMEncode_G722_16s(&x[i], code, 2, enc.base), kvoOk);
        const KvoG722State& e = *enc.rec();
        auto out = [](int v) { return v > 32767 || v < -32768; };
        overflows += out(before.szl + e.dlt0) || out(before.sl + e.dlt0) ||
                     out(before.szh + e.dht0) || out(before.sh + e.dht0);
        for (int mode = 0; mode < 4; ++mode) {
            ASSERT_EQ(kvosSBADPCMDecode_G722_16s(code, y, 2, mode, dec[mode].base), kvoOk);
            ASSERT_EQ(std::memcmp(dec[mode].rec(), enc.rec(), sizeof(KvoG722State)), 0)
                << "mode " << mode << ", pair " << i / 2;
        }
    }
    EXPECT_GT(overflows, 0);  // the signal did drive the sums past 16 bits
}

TEST(G722Adpcm, ModeIsReadAsSixteenBits) {
    const auto x = subbands(800, 4);
    std::vector<Kvo16s> code(x.size());
    Block enc;
    kvosSBADPCMEncodeInit_G722_16s(enc.base);
    kvosSBADPCMEncode_G722_16s(x.data(), code.data(), x.size(), enc.base);
    auto run = [&](Kvo32s mode) {
        Block dec;
        kvosSBADPCMDecodeInit_G722_16s(dec.base);
        std::vector<Kvo16s> y(code.size());
        EXPECT_EQ(kvosSBADPCMDecode_G722_16s(code.data(), y.data(), y.size(), mode, dec.base),
                  kvoOk);
        return y;
    };
    const auto m1 = run(1), m2 = run(2), m3 = run(3);
    EXPECT_NE(m1, m2);
    EXPECT_NE(m1, m3);
    EXPECT_NE(m2, m3);
    const struct {
        Kvo32s mode;
        const std::vector<Kvo16s>* same;
    } rows[] = {
        {0, &m1}, {0x10001, &m1}, {0x10002, &m2}, {-1, &m3}, {4, &m3}, {32767, &m3}, {0x10000, &m1},
    };
    for (const auto& r : rows) EXPECT_EQ(run(r.mode), *r.same) << r.mode;
}

TEST(G722Adpcm, StreamIsFrameFreeAndMayRunInPlace) {
    const auto x = subbands(3000, 5);
    std::vector<Kvo16s> whole(x.size());
    Block a;
    kvosSBADPCMEncodeInit_G722_16s(a.base);
    kvosSBADPCMEncode_G722_16s(x.data(), whole.data(), x.size(), a.base);

    // the same stream in random even pieces, in place
    std::mt19937 rng(6);
    std::vector<Kvo16s> io = x;
    Block b;
    kvosSBADPCMEncodeInit_G722_16s(b.base);
    for (size_t at = 0; at < io.size();) {
        const size_t n = std::min<size_t>(2 * (1 + rng() % 200), io.size() - at);
        ASSERT_EQ(kvosSBADPCMEncode_G722_16s(&io[at], &io[at], n, b.base), kvoOk);
        at += n;
    }
    EXPECT_EQ(io, whole);

    std::vector<Kvo16s> y1(x.size());
    Block d1, d2;
    kvosSBADPCMDecodeInit_G722_16s(d1.base);
    kvosSBADPCMDecodeInit_G722_16s(d2.base);
    kvosSBADPCMDecode_G722_16s(whole.data(), y1.data(), whole.size(), 2, d1.base);
    for (size_t at = 0; at < io.size();) {
        const size_t n = std::min<size_t>(2 * (1 + rng() % 200), io.size() - at);
        ASSERT_EQ(kvosSBADPCMDecode_G722_16s(&io[at], &io[at], n, 2, d2.base), kvoOk);
        at += n;
    }
    EXPECT_EQ(io, y1);
}

TEST(G722Adpcm, RecordSitsAtTheNextSixteenByteBoundary) {
    Kvo32s size = 0, dsize = 0;
    ASSERT_EQ(kvosSBADPCMEncodeStateSize_G722_16s(&size), kvoOk);
    ASSERT_EQ(kvosSBADPCMDecodeStateSize_G722_16s(&dsize), kvoOk);
    EXPECT_EQ(size, static_cast<Kvo32s>(sizeof(KvoG722State)) + 16);
    EXPECT_EQ(dsize, size);

    const auto x = subbands(500, 8);
    std::vector<Kvo16s> ref(x.size()), got(x.size()), yref(x.size()), ygot(x.size());
    Block aligned(0), off(1);
    // the record of the offset block starts 15 bytes in, and the block's
    // last byte is within the reported size
    EXPECT_EQ(reinterpret_cast<Kvo8u*>(off.rec()) - off.base, 15);
    EXPECT_LE(15 + static_cast<int>(sizeof(KvoG722State)), size);
    std::memset(off.base, 0xA5, size);
    ASSERT_EQ(kvosSBADPCMEncodeInit_G722_16s(aligned.base), kvoOk);
    ASSERT_EQ(kvosSBADPCMEncodeInit_G722_16s(off.base), kvoOk);
    for (size_t at = 0; at < x.size(); at += 100) {
        ASSERT_EQ(kvosSBADPCMEncode_G722_16s(&x[at], &ref[at], 100, aligned.base), kvoOk);
        ASSERT_EQ(kvosSBADPCMEncode_G722_16s(&x[at], &got[at], 100, off.base), kvoOk);
    }
    EXPECT_EQ(got, ref);
    ASSERT_EQ(kvosSBADPCMDecodeInit_G722_16s(aligned.base), kvoOk);
    ASSERT_EQ(kvosSBADPCMDecodeInit_G722_16s(off.base), kvoOk);
    for (size_t at = 0; at < x.size(); at += 100) {
        ASSERT_EQ(kvosSBADPCMDecode_G722_16s(&ref[at], &yref[at], 100, 1, aligned.base), kvoOk);
        ASSERT_EQ(kvosSBADPCMDecode_G722_16s(&ref[at], &ygot[at], 100, 1, off.base), kvoOk);
    }
    EXPECT_EQ(ygot, yref);
    // bytes before the record were never touched
    for (int i = 0; i < 15; ++i) EXPECT_EQ(off.base[i], 0xA5) << i;
}

}  // namespace
