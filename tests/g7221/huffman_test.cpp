// G.722.1 region coder on regions the recorded coder never produces. Expected
// streams come from the published code tables through a bit writer written
// here (MSB first), with the bins worked out by hand or fixed by the
// coefficients (0 gives bin 0; full scale at power indices 28..40 gives at
// least the top bin of every category).
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "g72x/g7221_tables.h"
#include "kvosc.h"

namespace {

constexpr int kDim[7] = {2, 2, 2, 4, 4, 5, 5};
constexpr int kMaxBin[7] = {13, 9, 6, 4, 3, 2, 1};

// Expected words and bit count of a region from its bins (before the top-bin
// limit): per vector the table code of the limited digits, then one sign bit
// (1 for a positive coefficient) per non-zero bin.
void expectCode(int cat, int pi, const std::vector<Kvo16s>& coef, const std::vector<int>& bin) {
    using namespace kvo::tab;
#define CTG(k) \
    { cnstMltSqvhBitcountCtg##k##_G722, cnstMltSqvhCodeCtg##k##_G722 }
    const std::pair<const Kvo16s*, const Kvo16u*> tab[7] = {CTG(0), CTG(1), CTG(2), CTG(3),
                                                            CTG(4), CTG(5), CTG(6)};
#undef CTG
    std::vector<bool> bits;
    auto put = [&](uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) bits.push_back((v >> i) & 1);
    };
    const int d = kDim[cat];
    for (int v = 0; v < 20 / d; ++v) {
        int index = 0;
        for (int j = 0; j < d; ++j)
            index = index * (kMaxBin[cat] + 1) + std::min(bin[v * d + j], kMaxBin[cat]);
        put(tab[cat].second[index], tab[cat].first[index]);
        for (int j = 0; j < d; ++j)
            if (bin[v * d + j] != 0) put(coef[v * d + j] > 0, 1);
    }
    std::vector<Kvo32u> want((bits.size() + 31) / 32, 0);
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) want[i / 32] |= 1u << (31 - i % 32);
    Kvo32u words[7] = {0xa5a5a5a5u, 0xa5a5a5a5u, 0xa5a5a5a5u, 0xa5a5a5a5u,
                       0xa5a5a5a5u, 0xa5a5a5a5u, 0xa5a5a5a5u};
    Kvo32s n = -1;
    ASSERT_EQ(kvosHuffmanEncode_G722_16s32u(cat, pi, coef.data(), words, &n), kvoOk);
    ASSERT_EQ(n, static_cast<Kvo32s>(bits.size()));
    for (size_t i = 0; i < 7; ++i)
        ASSERT_EQ(words[i], i < want.size() ? want[i] : 0xa5a5a5a5u) << "word " << i;
}

// Coefficients of 0 or full scale (-32768 included, sign bit 0): every
// combination of the two digit values, codes ending on and off word
// boundaries. From power index 57 on the scale is 0: every bin is 0 whatever
// the coefficients; an all-zero region gives the same code at any index.
TEST(G7221Huffman, FullScaleZeroScaleAndZeroRegions) {
    std::mt19937 rng(321);
    const std::vector<int> zeros(20, 0);
    for (int cat = 0; cat < 7; ++cat) {
        SCOPED_TRACE(cat);
        for (int r = 0; r < 60; ++r) {
            std::vector<Kvo16s> coef(20);
            std::vector<int> bin(20);
            for (int i = 0; i < 20; ++i) {
                const uint32_t k = rng() % 4;
                coef[i] = k == 0 ? 0 : (k == 1 ? 32767 : (k == 2 ? -32767 : -32768));
                bin[i] = k == 0 ? 0 : 99;
            }
            expectCode(cat, 28 + static_cast<int>(rng() % 13), coef, bin);
        }
        for (int pi = 57; pi < 64; ++pi) {
            std::vector<Kvo16s> coef(20);
            for (auto& v : coef) v = static_cast<Kvo16s>(rng());
            coef[0] = -32768;
            coef[1] = 32767;
            expectCode(cat, pi, coef, zeros);
        }
        for (int pi : {0, 24, 40, 63}) expectCode(cat, pi, std::vector<Kvo16s>(20, 0), zeros);
    }
}

// Worked bins. Category 0, power index 24 (scale high part 23166): |3| lands in
// bin 8, |5| in bin 14, limited to 13; index 125 has the longest code (16 bits)
// and ten of them with signs fill six words (180 bits). Power index 47 (high
// part 7, low bits 3): the low-bit term is formed in 16 bits, 2 * 5461 * 3 =
// 32766 gives bin 5 but 32772 wraps and 5462 drops to bin 4. Power index 0: the
// bin index is kept in 16 bits, 32767 gives 92661, kept as 27125 (limited to 13).
TEST(G7221Huffman, WorkedBins) {
    std::vector<Kvo16s> coef(20);
    std::vector<int> bin(20);
    for (int i = 0; i < 20; ++i) {
        coef[i] = static_cast<Kvo16s>((i % 2 ? 5 : 3) * (i % 3 ? 1 : -1));
        bin[i] = i % 2 ? 14 : 8;
    }
    expectCode(0, 24, coef, bin);
    for (auto [x, b] : {std::pair{5461, 5}, {5462, 4}, {-5462, 4}, {-5461, 5}}) {
        std::vector<Kvo16s> c(20, 0);
        std::vector<int> bn(20, 0);
        c[4] = static_cast<Kvo16s>(x), bn[4] = b;
        expectCode(0, 47, c, bn);
    }
    std::vector<Kvo16s> c(20, 0);
    std::vector<int> bn(20, 0);
    bn[7] = 27125;
    for (Kvo16s x : {Kvo16s{32767}, Kvo16s{-32768}}) {
        c[7] = x;
        expectCode(0, 0, c, bn);
    }
    // 20000 gives 56557, kept as -8979: no table row, the call is refused
    for (Kvo16s bad : {Kvo16s{20000}, Kvo16s{-20000}, Kvo16s{11600}}) {
        c[19] = bad;
        Kvo32u words[6] = {1, 2, 3, 4, 5, 6};
        Kvo32s bits = 77;
        EXPECT_EQ(kvosHuffmanEncode_G722_16s32u(0, 0, c.data(), words, &bits), kvoErrScaleRange);
        EXPECT_EQ(bits, 77);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(words[i], Kvo32u(i + 1));
    }
}

}  // namespace
