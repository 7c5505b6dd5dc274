// G.722.1 region coder on regions the recorded coder never produces: power
// indices above 40, full-scale coefficients, the longest codes (six words),
// all-zero regions, and a bin index that wraps negative.  Expected streams come
// from the published code tables through a bit-string writer written here
// (one bit at a time, MSB first), with the bins worked out by hand or fixed by
// the coefficients (0 gives bin 0; full scale at power indices 28..40 gives
// at least the top bin of every category).
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "g72x/g7221_tables.h"
#include "kvosc.h"

namespace {

constexpr int kDim[7] = {2, 2, 2, 4, 4, 5, 5};
constexpr int kNum[7] = {10, 10, 10, 5, 5, 4, 4};
constexpr int kMaxBin[7] = {13, 9, 6, 4, 3, 2, 1};

const Kvo16s* bitcountTable(int c) {
    using namespace kvo::tab;
    const Kvo16s* t[7] = {cnstMltSqvhBitcountCtg0_G722, cnstMltSqvhBitcountCtg1_G722,
                          cnstMltSqvhBitcountCtg2_G722, cnstMltSqvhBitcountCtg3_G722,
                          cnstMltSqvhBitcountCtg4_G722, cnstMltSqvhBitcountCtg5_G722,
                          cnstMltSqvhBitcountCtg6_G722};
    return t[c];
}
const Kvo16u* codeTable(int c) {
    using namespace kvo::tab;
    const Kvo16u* t[7] = {cnstMltSqvhCodeCtg0_G722, cnstMltSqvhCodeCtg1_G722,
                          cnstMltSqvhCodeCtg2_G722, cnstMltSqvhCodeCtg3_G722,
                          cnstMltSqvhCodeCtg4_G722, cnstMltSqvhCodeCtg5_G722,
                          cnstMltSqvhCodeCtg6_G722};
    return t[c];
}

struct Stream {
    std::vector<bool> bits;
    void put(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) bits.push_back((v >> i) & 1);
    }
    std::vector<uint32_t> words() const {
        std::vector<uint32_t> w((bits.size() + 31) / 32, 0);
        for (size_t i = 0; i < bits.size(); ++i)
            if (bits[i]) w[i / 32] |= 1u << (31 - i % 32);
        return w;
    }
};

// Expected code of a region from its bins (before the top-bin limit) and
// coefficient signs: per vector, the table code of the limited digits, then
// one sign bit (1 for a positive coefficient) per non-zero bin.
Stream expectedStream(int cat, const std::vector<int>& bin, const Kvo16s* coef) {
    Stream s;
    for (int v = 0; v < kNum[cat]; ++v) {
        int index = 0;
        for (int j = 0; j < kDim[cat]; ++j) {
            const int b = bin[v * kDim[cat] + j];
            index = index * (kMaxBin[cat] + 1) + (b > kMaxBin[cat] ? kMaxBin[cat] : b);
        }
        s.put(codeTable(cat)[index], bitcountTable(cat)[index]);
        for (int j = 0; j < kDim[cat]; ++j)
            if (bin[v * kDim[cat] + j] != 0) s.put(coef[v * kDim[cat] + j] > 0, 1);
    }
    return s;
}

void expectCode(int cat, int pi, const std::vector<Kvo16s>& coef, const std::vector<int>& bin) {
    const Stream want = expectedStream(cat, bin, coef.data());
    Kvo32u words[7];
    std::fill(std::begin(words), std::end(words), 0xa5a5a5a5u);
    Kvo32s bits = -1;
    ASSERT_EQ(kvosHuffmanEncode_G722_16s32u(cat, pi, coef.data(), words, &bits), kvoOk);
    ASSERT_EQ(bits, static_cast<Kvo32s>(want.bits.size()));
    const auto w = want.words();
    for (size_t i = 0; i < w.size(); ++i) ASSERT_EQ(words[i], w[i]) << "word " << i;
    for (size_t i = w.size(); i < 7; ++i) ASSERT_EQ(words[i], 0xa5a5a5a5u) << "word " << i;
}

// Coefficients of 0 or full scale (either sign, -32768 included): bins 0 and
// "above the top" in every pattern, so every combination of the two digit
// values, code ends on and off word boundaries, and the sign of -32768 (0).
TEST(G7221Huffman, FullScaleAndZeroPatterns) {
    std::mt19937 rng(321);
    for (int cat = 0; cat < 7; ++cat)
        for (int r = 0; r < 150; ++r) {
            const int pi = 28 + static_cast<int>(rng() % 13);
            SCOPED_TRACE(::testing::Message()
                         << "category " << cat << " index " << pi << " #" << r);
            std::vector<Kvo16s> coef(20);
            std::vector<int> bin(20);
            for (int i = 0; i < 20; ++i) {
                const uint32_t k = rng() % 4;
                coef[i] = k == 0 ? 0 : (k == 1 ? 32767 : (k == 2 ? -32767 : -32768));
                bin[i] = k == 0 ? 0 : 99;
            }
            expectCode(cat, pi, coef, bin);
        }
}

// Category 0 at power index 24 (scale 32767 * 23167 + 4096 = 759117185:
// high part 23166, low bits 1): |3| lands in bin 8 ((3 * 23166 + 2457 + 1)
// >> 13), |5| in bin 14, limited to 13.  Index 8 * 14 + 13 = 125 has the
// longest code of the table, 16 bits, plus two signs: 180 bits, six words.
TEST(G7221Huffman, LongestRegionFillsSixWords) {
    std::mt19937 rng(8);
    for (int r = 0; r < 20; ++r) {
        std::vector<Kvo16s> coef(20);
        std::vector<int> bin(20);
        for (int i = 0; i < 20; ++i) {
            coef[i] = static_cast<Kvo16s>((i % 2 ? 5 : 3) * ((rng() & 1) ? 1 : -1));
            bin[i] = i % 2 ? 14 : 8;
        }
        ASSERT_EQ(bitcountTable(0)[125], 16);
        expectCode(0, 24, coef, bin);
        Kvo32u words[6];
        Kvo32s bits = 0;
        ASSERT_EQ(kvosHuffmanEncode_G722_16s32u(0, 24, coef.data(), words, &bits), kvoOk);
        EXPECT_EQ(bits, 180);
    }
}

// Category 0 at power index 47 (inverse deviation 11: scale 258933, high
// part 7, low bits 3).  The low-bit term is formed in 16 bits: for 5461 the
// doubled product 2 * 5461 * 3 = 32766 fits and the bin is 5; for 5462 it is
// 32772, kept as -32764, and the bin drops to 4.
TEST(G7221Huffman, LowBitTermWrapsForLargeCoefficients) {
    ASSERT_EQ(kvo::tab::cnstStdDeviationInv_G722[47], 11);
    struct Case {
        Kvo16s x;
        int bin;
    };
    for (const Case& c : {Case{5461, 5}, Case{5462, 4}, Case{-5462, 4}, Case{-5461, 5}}) {
        SCOPED_TRACE(c.x);
        std::vector<Kvo16s> coef(20, 0);
        std::vector<int> bin(20, 0);
        coef[4] = c.x;  // first coefficient of the third vector
        bin[4] = c.bin;
        expectCode(0, 47, coef, bin);
    }
}

// From power index 57 on the scale is 0: only the dead zone acts, every bin is
// 0 and each vector takes the code of index 0 with no sign bits.  An all-zero
// region gives the same code at any power index.
TEST(G7221Huffman, ZeroScaleAndZeroRegions) {
    std::mt19937 rng(57);
    for (int cat = 0; cat < 7; ++cat) {
        const std::vector<int> zeros(20, 0);
        for (int pi = 57; pi < 64; ++pi) {
            std::vector<Kvo16s> coef(20);
            for (auto& v : coef) v = static_cast<Kvo16s>(rng());
            coef[0] = -32768;
            coef[1] = 32767;
            expectCode(cat, pi, coef, zeros);
        }
        for (int pi = 0; pi < 64; ++pi) expectCode(cat, pi, std::vector<Kvo16s>(20, 0), zeros);
    }
}

// Category 0 at power index 0 (high part 23166): the bin index is kept to 16
// bits.  32767 gives 92661, kept as 27125, a positive bin limited to 13; 20000
// gives 56557, kept as -8979, which has no table row: the call is refused and
// writes nothing.
TEST(G7221Huffman, NegativeWrappedBinIsRefused) {
    std::vector<Kvo16s> coef(20, 0);
    std::vector<int> bin(20, 0);
    coef[7] = 32767;
    bin[7] = 27125;
    expectCode(0, 0, coef, bin);
    coef[7] = -32768;  // same magnitude, sign bit 0
    expectCode(0, 0, coef, bin);

    for (Kvo16s bad : {Kvo16s{20000}, Kvo16s{-20000}, Kvo16s{11600}}) {
        coef[19] = bad;
        Kvo32u words[6] = {1, 2, 3, 4, 5, 6};
        Kvo32s bits = 77;
        EXPECT_EQ(kvosHuffmanEncode_G722_16s32u(0, 0, coef.data(), words, &bits), kvoErrScaleRange)
            << bad;
        EXPECT_EQ(bits, 77);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(words[i], Kvo32u(i + 1));
    }
}

}  // namespace
