// G.722 steps through the exports. The SB-ADPCM coder and the QMF bank are
// proven bit for bit by the vector sets (tests/conformance); here: quantizers
// on damaged records, mode decoding, streaming and record alignment, the QMF
// block forms against their scalar twins, the concealment helpers against
// models and worked values, and the argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "g72x/g722.h"
#include "g72x/g722_tables.h"
#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

std::vector<Kvo16s> noise(int n, int amp, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<Kvo16s> v(n);
    for (auto& x : v)
        x = amp >= 32768 ? ((rng() & 1) ? 32767 : -32768)
                         : static_cast<Kvo16s>(static_cast<int>(rng() % (2 * amp + 1)) - amp);
    return v;
}

// A coder record placed `offset` bytes past a 16-byte boundary.
struct Block {
    alignas(16) Kvo8u mem[sizeof(KvoG722State) + 48];
    Kvo8u* base;
    explicit Block(int offset = 0, bool dec = false) : base(mem + offset) {
        std::memset(mem, 0xA5, sizeof mem);
        dec ? kvosSBADPCMDecodeInit_G722_16s(base) : kvosSBADPCMEncodeInit_G722_16s(base);
    }
    KvoG722State* rec() { return kvo::g722State(base); }
};

// The (vectorised) quantizers against a linear scan of the decision levels, at
// scale factors beyond the coder's range too (a damaged record may hold any).
TEST(G722Adpcm, QuantizersMatchLinearSearch) {
    using namespace kvo::tab;
    for (int det : {8, 32, 777, 9999, 16384, 32767, -3}) {
        for (int e = -32768; e <= 32767; e += 7) {
            const int neg = e < 0, mag = neg ? (32767 - e) & 32767 : e;
            int k = 1;
            while (k < 30 && ((table_quant_q6[k] * det) >> 12) <= mag) ++k;
            ASSERT_EQ(kvo::g722QuantL(e, det), table_misil[neg ? 0 : 1][k]) << e << " " << det;
            const int pos = mag >= ((564 * det) >> 12);
            ASSERT_EQ(kvo::g722QuantH(e, det), neg ? (pos ? 0 : 1) : (pos ? 2 : 3))
                << e << " " << det;
        }
    }
}

TEST(G722Adpcm, ModeIsReadAsSixteenBits) {
    const auto x = noise(1600, 8000, 4);
    std::vector<Kvo16s> code(x.size());
    Block enc;
    kvosSBADPCMEncode_G722_16s(x.data(), code.data(), x.size(), enc.base);
    auto run = [&](Kvo32s mode) {
        Block dec(0, true);
        std::vector<Kvo16s> y(code.size());
        EXPECT_EQ(kvosSBADPCMDecode_G722_16s(code.data(), y.data(), y.size(), mode, dec.base),
                  kvoOk);
        return y;
    };
    const auto m1 = run(1), m2 = run(2), m3 = run(3);
    EXPECT_NE(m1, m2);
    EXPECT_NE(m2, m3);
    const std::pair<Kvo32s, const std::vector<Kvo16s>*> rows[] = {
        {0, &m1}, {0x10001, &m1}, {0x10002, &m2}, {-1, &m3}, {4, &m3}, {0x10000, &m1}};
    for (const auto& [mode, same] : rows) EXPECT_EQ(run(mode), *same) << mode;
}

// Random even pieces, in place, on a record 1 byte off alignment (the record
// then starts 15 bytes in, and nothing before it is touched).
TEST(G722Adpcm, StreamIsFrameFreeInPlaceAndAligned) {
    Kvo32s size = 0, dsize = 0;
    ASSERT_EQ(kvosSBADPCMEncodeStateSize_G722_16s(&size), kvoOk);
    ASSERT_EQ(kvosSBADPCMDecodeStateSize_G722_16s(&dsize), kvoOk);
    EXPECT_EQ(size, static_cast<Kvo32s>(sizeof(KvoG722State)) + 16);
    EXPECT_EQ(dsize, size);
    const auto x = noise(4000, 32768, 5);
    for (int dec = 0; dec < 2; ++dec) {
        SCOPED_TRACE(dec);
        std::vector<Kvo16s> whole(x.size()), io = x;
        Block a(0, dec), b(1, dec);
        EXPECT_EQ(reinterpret_cast<Kvo8u*>(b.rec()) - b.base, 15);
        auto step = [&](const Kvo16s* s, Kvo16s* d, int n, Kvo8u* m) {
            return dec ? kvosSBADPCMDecode_G722_16s(s, d, n, 2, m)
                       : kvosSBADPCMEncode_G722_16s(s, d, n, m);
        };
        ASSERT_EQ(step(x.data(), whole.data(), x.size(), a.base), kvoOk);
        std::mt19937 rng(6);
        for (size_t at = 0; at < io.size();) {
            const int n = static_cast<int>(std::min<size_t>(2 * (1 + rng() % 200), io.size() - at));
            ASSERT_EQ(step(&io[at], &io[at], n, b.base), kvoOk);
            at += n;
        }
        EXPECT_EQ(io, whole);
        for (int i = 0; i < 15; ++i) EXPECT_EQ(b.base[i], 0xA5) << i;
    }
}

// ---- QMF bank ------------------------------------------------------------------

// The (vectorised) block forms against the per-pair scalar loops, in place, in
// random pieces, comparing the delay line after every call.
TEST(G722Qmf, BlockFormsMatchScalarTwins) {
    std::mt19937 rng(77);
    for (int amp : {3000, 32768}) {
        const auto in = noise(6000, amp, amp + 2);
        for (int dir = 0; dir < 2; ++dir) {
            SCOPED_TRACE(dir);
            Kvo16s d1[24], d2[24];
            for (int k = 0; k < 24; ++k) d1[k] = d2[k] = static_cast<Kvo16s>(rng());
            std::vector<Kvo16s> a(in.size()), b = in;
            for (size_t at = 0; at < in.size();) {
                const int pairs =
                    static_cast<int>(std::min<size_t>(1 + rng() % 300, (in.size() - at) / 2));
                if (dir == 0) {
                    kvo::g722QmfAnalysisScalar(&in[at], &a[at], pairs, d1);
                    ASSERT_EQ(kvosQMFEncode_G722_16s(&b[at], &b[at], 2 * pairs, d2), kvoOk);
                } else {
                    kvo::g722QmfSynthesisScalar(&in[at], &a[at], pairs, d1);
                    ASSERT_EQ(kvosQMFDecode_G722_16s(&b[at], &b[at], 2 * pairs, d2), kvoOk);
                }
                ASSERT_EQ(std::memcmp(d1, d2, sizeof d1), 0) << at;
                at += 2 * pairs;
            }
            EXPECT_EQ(a, b);
        }
    }
}

// ---- concealment helpers -------------------------------------------------------

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

TEST(G722Plc, ClassifyMatchesModelAndOnlyReadsRecord) {
    std::mt19937 rng(21);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        Block r(3, true);
        r.rec()->nbl = static_cast<Kvo16s>(rng() % 20000);
        r.rec()->nbh = static_cast<Kvo16s>(rng() % 20000);
        const KvoG722State before = *r.rec();
        const int period = static_cast<int>(rng() % 144);
        const int amp = trial % 3 == 0 ? 32768 : 2000;
        std::vector<Kvo16s> v(2 + 2 * period + 3);
        for (auto& s : v) s = static_cast<Kvo16s>(static_cast<int>(rng() % (2 * amp)) - amp);
        for (int k = 0; k < 4; ++k)  // spikes one period ahead
            v[2 + period + rng() % (period + 1)] = (rng() & 1) ? -32768 : 30000;
        std::vector<int> m(v.begin(), v.end());
        Kvo32s cls = static_cast<Kvo32s>(rng() % 5);
        const int want = model_classify(m, 2, period, cls, before.nbl, before.nbh);
        ASSERT_EQ(kvosClassifyFrame_G722_16s_I(v.data() + 2, period, &cls, r.base), kvoOk);
        EXPECT_EQ(cls, want);
        EXPECT_TRUE(std::equal(v.begin(), v.end(), m.begin()));
        EXPECT_EQ(std::memcmp(r.rec(), &before, sizeof before), 0);
    }
}

TEST(G722Plc, StateUpdateRestartsTheLowBand) {
    const Kvo16s src[2] = {-301, 4001};
    for (int reset : {0, 1}) {
        SCOPED_TRACE(reset);
        Block r(3, true);
        KvoG722State& s = *r.rec();
        for (int i = 0; i < 6; ++i) s.dlt[i] = 100 + i, s.bl[i] = s.bh[i] = 7, s.dh[i] = 5;
        s.dlt0 = 9, s.nbl = 3000, s.detl = 500, s.nbh = 9000, s.deth = 300, s.al1 = 11;
        const KvoG722State before = s;
        ASSERT_EQ(kvosSBADPCMDecodeStateUpdate_G722_16s(src, 0x1234F0F1, reset, r.base), kvoOk);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(s.dlt[i], 0);
        EXPECT_EQ(s.dlt0, 0);
        EXPECT_TRUE(s.plt1 == 2000 && s.plt2 == -151 && s.rlt1 == 4001 && s.rlt2 == -301);
        EXPECT_EQ(s.sl, static_cast<Kvo16s>(0xF0F1));  // val read as 16 bits
        EXPECT_EQ(s.szl, static_cast<Kvo16s>(0xF0F1) >> 1);
        EXPECT_EQ(s.nbl, reset ? 0 : 3000);
        EXPECT_EQ(s.detl, reset ? 32 : 500);
        EXPECT_EQ(s.nbh, reset ? 0 : 4500);
        EXPECT_EQ(s.deth, reset ? 8 : kvo::tab::table_ila[4500 >> 6] * 4 + 4);
        EXPECT_EQ(s.al1, before.al1);  // predictor coefficients and high band kept
        EXPECT_EQ(std::memcmp(s.bl, before.bl, sizeof s.bl), 0);
        EXPECT_EQ(std::memcmp(s.dh, before.dh, sizeof s.dh), 0);
    }
    // a negative high-band scale factor is refused after halving, before the rest
    Block r(3, true);
    r.rec()->nbh = -1000;
    r.rec()->deth = 77;
    EXPECT_EQ(kvosSBADPCMDecodeStateUpdate_G722_16s(src, 0, 0, r.base), kvoErrOutOfRange);
    EXPECT_EQ(r.rec()->nbh, -500);
    EXPECT_EQ(r.rec()->deth, 77);
}

TEST(G722Plc, HighbandFilterMatchesModel) {
    auto v = noise(4000, 32767, 5);
    const auto orig = v;
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
        u1 = u, y1 = y;
    }
    EXPECT_EQ(st[0], u1);
    EXPECT_EQ(st[1], y1);
}

TEST(G722Plc, DownsampleMatchesModel) {
    static const int f[9] = {3692, 6190, 8525, 10186, 10787, 10186, 8525, 6190, 3692};
    // full-scale input drives the 9-tap sum (gain 67973 / 65536) past 2^31
    for (int amp : {1000, 32768}) {
        const auto x = noise(5 + 403, amp, amp);
        std::vector<Kvo16s> y(101, 0x5555);
        ASSERT_EQ(kvosDownsampleFilter_G722_16s(x.data() + 5, 403, y.data()), kvoOk);
        for (int k = 0; k < 100; ++k) {
            int64_t s = 0;
            for (int j = 0; j < 9; ++j)
                s = std::clamp<int64_t>(s + int64_t{x[5 + 4 * k + 3 - j]} * f[j], INT32_MIN,
                                        INT32_MAX);
            ASSERT_EQ(y[k], s >= 0x7FFF8000 ? 32767 : static_cast<int>((s + 32768) >> 16)) << k;
        }
        EXPECT_EQ(y[100], 0x5555);  // len / 4 outputs
    }
    for (int v : {32767, -32768}) {
        std::vector<Kvo16s> full(13, static_cast<Kvo16s>(v)), y(2);
        ASSERT_EQ(kvosDownsampleFilter_G722_16s(full.data() + 5, 4, y.data()), kvoOk);
        EXPECT_EQ(y[0], v);
    }
}

// ---- argument checks -----------------------------------------------------------

constexpr size_t kState = sizeof(KvoG722State) + 16;
const std::initializer_list<std::pair<Kvo32s, KvoStatus>> kBadPairs = {
    {0, kvoErrSize}, {-2, kvoErrSize}, {3, kvoErrSize}};
void encInit(void* p) {
    kvosSBADPCMEncodeInit_G722_16s(static_cast<Kvo8u*>(p));
}
void decInit(void* p) {
    kvosSBADPCMDecodeInit_G722_16s(static_cast<Kvo8u*>(p));
}

TEST(G722Args, EveryExport) {
    for (int dir = 0; dir < 2; ++dir) {
        BadArgs t(dir ? "kvosQMFDecode_G722_16s" : "kvosQMFEncode_G722_16s");
        auto s = t.in<Kvo16s>("pSrc", 8);
        auto d = t.out<Kvo16s>("pDst", 8);
        auto n = t.value<Kvo32s>("len", 8, kBadPairs);
        auto m = t.inout<Kvo16s>("pDelay", 24);
        t.run([&](const BadArgs::Call& c) {
            return dir ? kvosQMFDecode_G722_16s(c(s), c(d), c(n), c(m))
                       : kvosQMFEncode_G722_16s(c(s), c(d), c(n), c(m));
        });
    }
    for (int dir = 0; dir < 2; ++dir) {  // no mode is refused
        BadArgs t(dir ? "kvosSBADPCMDecode_G722_16s" : "kvosSBADPCMEncode_G722_16s");
        auto s = t.in<Kvo16s>("pSrc", 8);
        auto d = t.out<Kvo16s>("pDst", 8);
        auto n = t.value<Kvo32s>("len", 8, kBadPairs);
        auto m = t.state("pMem", kState, dir ? decInit : encInit);
        t.run([&](const BadArgs::Call& c) {
            auto* mem = static_cast<Kvo8u*>(c(m));
            return dir ? kvosSBADPCMDecode_G722_16s(c(s), c(d), c(n), 99, mem)
                       : kvosSBADPCMEncode_G722_16s(c(s), c(d), c(n), mem);
        });
    }
    {
        BadArgs t("kvosClassifyFrame_G722_16s_I");  // period read as 16 bits
        auto x = t.inout<Kvo16s>("pSrcDst", 290, {}, 2);
        auto p = t.value<Kvo32s>("period", 0x10002,
                                 {{-1, kvoErrRange}, {144, kvoErrRange}, {0x18000, kvoErrRange}});
        auto cls = t.inout<Kvo32s>("pClass", 1, {4});
        auto m = t.state("pMem", kState, decInit);
        t.run([&](const BadArgs::Call& c) {
            return kvosClassifyFrame_G722_16s_I(c(x), c(p), c(cls), static_cast<Kvo8u*>(c(m)));
        });
    }
    {
        BadArgs t("kvosSBADPCMDecodeStateUpdate_G722_16s");
        auto s = t.in<Kvo16s>("pSrc", 2);
        auto m = t.state("pMem", kState, decInit);
        t.run([&](const BadArgs::Call& c) {
            return kvosSBADPCMDecodeStateUpdate_G722_16s(c(s), 0, 0, static_cast<Kvo8u*>(c(m)));
        });
    }
    {
        BadArgs t("kvosFilterHighband_G722_16s_I");
        auto x = t.inout<Kvo16s>("pSrcDst", 4);
        auto n = t.value<Kvo32s>("len", 4, {{0, kvoErrSize}});
        auto st = t.inout<Kvo16s>("pState", 2);
        t.run([&](const BadArgs::Call& c) {
            return kvosFilterHighband_G722_16s_I(c(x), c(n), c(st));
        });
    }
    {
        BadArgs t("kvosDownsampleFilter_G722_16s");
        auto x = t.in<Kvo16s>("pSrc", 8, {}, 5);
        auto n = t.value<Kvo32s>("len", 8, {{0, kvoErrSize}});
        auto y = t.out<Kvo16s>("pDst", 2);
        t.run([&](const BadArgs::Call& c) {
            return kvosDownsampleFilter_G722_16s(c(x), c(n), c(y));
        });
    }
    EXPECT_EQ(kvosSBADPCMEncodeStateSize_G722_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosSBADPCMDecodeStateSize_G722_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosSBADPCMEncodeInit_G722_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosSBADPCMDecodeInit_G722_16s(nullptr), kvoErrNullPtr);
}

}  // namespace
