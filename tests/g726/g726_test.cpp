// G.726 through the exports. Bit-exactness against the Recommendation's
// sequences (every rate and law, tandem output) is in the conformance test;
// here: argument and record checks, stream splitting, code width,
// the reconstruction of SR = -32768, G.711 compression, and the SSE2 predictor
// against its plain twin.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "g72x/g726.h"
#include "g72x/g726_tables.h"
#include "kvosc.h"

namespace {

const KvoSpeechRate kRates[] = {kvoRate16000, kvoRate24000, kvoRate32000, kvoRate40000};

KvoG726EncodeState encoder(int r) {
    KvoG726EncodeState s;
    EXPECT_EQ(kvosEncodeInit_G726_16s8u(&s, kRates[r]), kvoOk);
    return s;
}
KvoG726DecodeState decoder(int r, int law) {
    KvoG726DecodeState s;
    EXPECT_EQ(kvosDecodeInit_G726_8u16s(&s, kRates[r], law), kvoOk);
    return s;
}

// One row: a call on marked records and buffers, and the status it must give.
#define ROW(expr, want)                                                                   \
    {                                                                                     \
        [](E& e, D& d, Kvo16s* x, Kvo8u* c) -> KvoStatus {                                \
            (void)e, (void)d, (void)x, (void)c;                                           \
            return expr;                                                                  \
        },                                                                                \
            want                                                                          \
    }

TEST(G726Args, ChecksInOrderAndWritesNothingOnFailure) {
    using E = KvoG726EncodeState;
    using D = KvoG726DecodeState;
    using Call = KvoStatus (*)(E&, D&, Kvo16s*, Kvo8u*);
    // clang-format off
    const std::pair<Call, KvoStatus> cases[] = {
        ROW(kvosEncodeGetStateSize_G726_16s8u(nullptr), kvoErrNullPtr),
        ROW(kvosDecodeGetStateSize_G726_8u16s(nullptr), kvoErrNullPtr),
        ROW(kvosEncodeInit_G726_16s8u(nullptr, 99), kvoErrNullPtr),
        ROW(kvosEncodeInit_G726_16s8u(&e, 16), kvoErrRange),
        ROW(kvosEncodeInit_G726_16s8u(&e, 25), kvoErrRange),
        ROW(kvosDecodeInit_G726_8u16s(nullptr, 99, 9), kvoErrNullPtr),
        ROW(kvosDecodeInit_G726_8u16s(&d, 14, 9), kvoErrRange),
        ROW(kvosDecodeInit_G726_8u16s(&d, 23, 3), kvoErrRange),
        ROW(kvosDecodeInit_G726_8u16s(&d, 23, -1), kvoErrRange),
        ROW(kvosEncode_G726_16s8u(nullptr, x, c, 0), kvoErrNullPtr),
        ROW(kvosEncode_G726_16s8u(&e, nullptr, c, 4), kvoErrNullPtr),
        ROW(kvosEncode_G726_16s8u(&e, x, nullptr, 4), kvoErrNullPtr),
        ROW(kvosEncode_G726_16s8u(&e, x, c, 0), kvoErrSize),
        ROW(kvosEncode_G726_16s8u(&e, x, c, -5), kvoOk),
        ROW(kvosDecode_G726_8u16s(nullptr, c, x, 0), kvoErrNullPtr),
        ROW(kvosDecode_G726_8u16s(&d, nullptr, x, 4), kvoErrNullPtr),
        ROW(kvosDecode_G726_8u16s(&d, c, nullptr, 4), kvoErrNullPtr),
        ROW(kvosDecode_G726_8u16s(&d, c, x, 0), kvoErrSize),
        ROW(kvosDecode_G726_8u16s(&d, c, x, -1), kvoOk),
        // damaged records
        ROW((e.rateIndex = 4, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.yu = 543, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.yu = 5121, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.yl = 34815, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.yl = 327681, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.ap = 513, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.td = 2, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.dqSign[3] = 2, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((e.pk1 = -1, kvosEncode_G726_16s8u(&e, x, c, 4)), kvoErrOutOfRange),
        ROW((d.law = 3, kvosDecode_G726_8u16s(&d, c, x, 4)), kvoErrOutOfRange),
        ROW((d.core.yu = 0, kvosDecode_G726_8u16s(&d, c, x, 4)), kvoErrOutOfRange),
    };
    // clang-format on
    const Kvo16s pcm[4] = {1, 2, 3, 4};
    const Kvo8u codes[4] = {1, 2, 3, 4};
    int row = 0;
    for (const auto& [call, want] : cases) {
        SCOPED_TRACE(row++);
        KvoG726EncodeState e = encoder(2);
        KvoG726DecodeState d = decoder(2, 1);
        e.dms = 77;  // marks the records, so that a write would show
        d.core.dml = 99;
        Kvo16s x[4];
        Kvo8u k[4];
        std::memcpy(x, pcm, sizeof x);
        std::memcpy(k, codes, sizeof k);
        EXPECT_EQ(call(e, d, x, k), want);
        EXPECT_EQ(std::memcmp(x, pcm, sizeof x), 0);
        EXPECT_EQ(std::memcmp(k, codes, sizeof k), 0);
        EXPECT_EQ(e.dms, 77);
        EXPECT_EQ(d.core.dml, 99);
    }
#undef ROW
    Kvo32s size = 0;
    EXPECT_EQ(kvosEncodeGetStateSize_G726_16s8u(&size), kvoOk);
    EXPECT_EQ(size, static_cast<Kvo32s>(sizeof(KvoG726EncodeState)));
    EXPECT_EQ(kvosDecodeGetStateSize_G726_8u16s(&size), kvoOk);
    EXPECT_EQ(size, static_cast<Kvo32s>(sizeof(KvoG726DecodeState)));
}

// Any split of the stream gives the same codes and samples; the decoder masks
// the bits above the code width.
TEST(G726Stream, SplitsAndHighBitsDoNotMatter) {
    std::mt19937 rng(2);
    std::vector<Kvo16s> x(3000);
    for (auto& v : x) v = static_cast<Kvo16s>(static_cast<int>(rng() % 16384) - 8192);
    for (int r = 0; r < 4; ++r) {
        SCOPED_TRACE(r);
        KvoG726EncodeState whole = encoder(r), parts = encoder(r);
        std::vector<Kvo8u> c1(x.size()), c2(x.size());
        ASSERT_EQ(kvosEncode_G726_16s8u(&whole, x.data(), c1.data(), (int)x.size()), kvoOk);
        for (size_t at = 0; at < x.size();) {
            const int n = std::min<int>(1 + rng() % 97, (int)(x.size() - at));
            ASSERT_EQ(kvosEncode_G726_16s8u(&parts, &x[at], &c2[at], n), kvoOk);
            at += n;
        }
        EXPECT_EQ(c1, c2);
        EXPECT_EQ(std::memcmp(&whole, &parts, sizeof whole), 0);
        for (Kvo8u code : c1) ASSERT_LT(code, 4 << r);
        for (size_t i = 0; i < c2.size(); ++i) c2[i] |= static_cast<Kvo8u>(rng() << (r + 2));
        for (int law = 0; law < 3; ++law) {
            KvoG726DecodeState dw = decoder(r, law), dp = decoder(r, law);
            std::vector<Kvo16s> y1(x.size()), y2(x.size());
            ASSERT_EQ(kvosDecode_G726_8u16s(&dw, c1.data(), y1.data(), (int)x.size()), kvoOk);
            for (size_t at = 0; at < x.size();) {
                const int n = std::min<int>(1 + rng() % 61, (int)(x.size() - at));
                ASSERT_EQ(kvosDecode_G726_8u16s(&dp, &c2[at], &y2[at], n), kvoOk);
                at += n;
            }
            EXPECT_EQ(y1, y2) << "law " << law;
        }
    }
}

// SR = -32768 needs |DQ| above 16384 (40 kbit/s, high scale factor); a random
// search finds it from the stored SR1 ("negative zero": exponent 0, mantissa
// 32, sign 1). Linear output limits it to -8192; A-law compresses -2 (byte
// 0x55, or one tandem step from it); mu-law gives byte 127, 126 or 255.
TEST(G726Reconstruction, MostNegativeSignalInEachLaw) {
    std::mt19937 rng(6);
    int found = 0;
    for (int trial = 0; trial < 40000 && found < 8; ++trial) {
        KvoG726DecodeState d = decoder(3, 2);
        KvoG726EncodeState& s = d.core;
        s.yu = 5120;
        s.yl = s.yu * 64;
        s.ap = static_cast<Kvo16s>(rng() % 513);
        for (int i = 0; i < 6; ++i) {
            s.b[i] = static_cast<Kvo16s>(rng());
            s.dq[i] = static_cast<Kvo16s>(((rng() % 16) << 6) | (32 + rng() % 32));
            s.dqSign[i] = static_cast<Kvo16s>(rng() & 1);
        }
        for (int i = 0; i < 2; ++i) {
            s.a[i] = static_cast<Kvo16s>(static_cast<int>(rng() % 24577) - 12288);
            s.sr[i] = static_cast<Kvo16s>(((rng() % 16) << 6) | (32 + rng() % 32));
            s.srSign[i] = static_cast<Kvo16s>(rng() & 1);
        }
        for (int code = 0; code < 32; ++code) {
            const Kvo8u c = static_cast<Kvo8u>(code);
            KvoG726DecodeState lin = d, a = d, u = d;
            Kvo16s out, outA, outU;
            ASSERT_EQ(kvosDecode_G726_8u16s(&lin, &c, &out, 1), kvoOk);
            if (!(lin.core.sr[0] == 32 && lin.core.srSign[0] == 1)) continue;
            ++found;
            EXPECT_EQ(out, -8192);
            a.law = 1;
            u.law = 0;
            ASSERT_EQ(kvosDecode_G726_8u16s(&a, &c, &outA, 1), kvoOk);
            ASSERT_EQ(kvosDecode_G726_8u16s(&u, &c, &outU, 1), kvoOk);
            EXPECT_TRUE(outA == 0x55 || outA == kvo::tab::a2LT[0x55] ||
                        outA == kvo::tab::a2GT[0x55])
                << outA;
            EXPECT_TRUE(outU == 127 || outU == 126 || outU == 255) << outU;
            EXPECT_EQ(std::memcmp(&a.core, &lin.core, sizeof a.core), 0);
        }
    }
    EXPECT_GE(found, 3);
}

// Every byte's level compresses back to that byte (mu-law: both zeros to
// 255), and samples between levels go to one of the two levels around them.
TEST(G726G711, CompressionPicksANeighbouringLevel) {
    std::mt19937 rng(3);
    for (int law = 0; law < 2; ++law) {
        SCOPED_TRACE(law);
        const Kvo16s* expand = law ? kvo::tab::a2l : kvo::tab::u2l;
        auto compress = [&](int x) {
            return law ? kvo::g726::aLawByte(x) : kvo::g726::muLawByte(x);
        };
        for (int b = 0; b < 256; ++b)
            EXPECT_EQ(compress(expand[b]), (!law && b == 127) ? 255 : b) << b;
        for (int t = 0; t < 3000; ++t) {
            const int x = t < 2 ? (t ? 32767 : -32768) : static_cast<Kvo16s>(rng());
            int below = -32768, above = 32767;
            for (int b = 0; b < 256; ++b) {
                if (expand[b] <= x) below = std::max<int>(below, expand[b]);
                if (expand[b] >= x) above = std::min<int>(above, expand[b]);
            }
            const int c = compress(x);
            ASSERT_TRUE(expand[c] == below || expand[c] == above) << x;
            ASSERT_FALSE((expand[c] > 0 && x < 0) || (expand[c] < 0 && x >= 0)) << x;
        }
    }
    EXPECT_EQ(kvo::g726::muLawByte(0), 0xFF);
    EXPECT_EQ(kvo::g726::aLawByte(0), 0xD5);
}

// The SSE2 predictor against its plain twin on random in-range records.
TEST(G726Twins, Sse2PredictorEqualsPlain) {
    std::mt19937 rng(7);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        const int n = 1 + static_cast<int>(rng() % 300), kind = trial % 3;
        std::vector<Kvo16s> x(n);
        std::vector<Kvo8u> c(n);
        for (int i = 0; i < n; ++i) {
            x[i] = kind == 0   ? static_cast<Kvo16s>(rng())
                   : kind == 1 ? static_cast<Kvo16s>(((i / 7) & 1) ? 8191 : -8192)
                               : static_cast<Kvo16s>(static_cast<int>(rng() % 16384) - 8192);
            c[i] = static_cast<Kvo8u>(rng());
        }
        KvoG726EncodeState s = encoder(trial % 4);
        s.pk0 = rng() & 1, s.pk1 = rng() & 1, s.pk2 = rng() & 1, s.td = rng() & 1;
        s.yu = static_cast<Kvo16s>(544 + rng() % 4577);
        s.yl = 34816 + static_cast<Kvo32s>(rng() % 292865);
        s.ap = static_cast<Kvo16s>(rng() % 513);
        s.dms = static_cast<Kvo16s>(rng()), s.dml = static_cast<Kvo16s>(rng());
        for (int i = 0; i < 6; ++i)
            s.b[i] = rng(), s.dq[i] = rng() & 0x3FF, s.dqSign[i] = rng() & 1;
        for (int i = 0; i < 2; ++i)
            s.a[i] = rng(), s.sr[i] = rng() & 0x3FF, s.srSign[i] = rng() & 1;

        KvoG726EncodeState e1 = s, e2 = s;
        std::vector<Kvo8u> c1(n), c2(n);
        ASSERT_EQ(kvosEncode_G726_16s8u(&e1, x.data(), c1.data(), n), kvoOk);
        kvo::g726::encodeScalar(e2, x.data(), c2.data(), n);
        ASSERT_EQ(c1, c2);
        ASSERT_EQ(std::memcmp(&e1, &e2, sizeof e1), 0);
        for (int law = 0; law < 3; ++law) {
            KvoG726DecodeState d1;
            d1.core = s;
            d1.law = static_cast<Kvo16s>(law);
            KvoG726DecodeState d2 = d1;
            std::vector<Kvo16s> y1(n), y2(n);
            ASSERT_EQ(kvosDecode_G726_8u16s(&d1, c.data(), y1.data(), n), kvoOk);
            kvo::g726::decodeScalar(d2, c.data(), y2.data(), n);
            ASSERT_EQ(y1, y2) << law;
            ASSERT_EQ(std::memcmp(&d1.core, &d2.core, sizeof d1.core), 0) << law;
        }
    }
}

}  // namespace
