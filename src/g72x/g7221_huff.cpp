// G.722.1 region coder: scalar quantization of the 20 MLT coefficients of one
// region with the category's step size and dead zone, then the category's
// vector Huffman code, packed into 32-bit words from the top bit down.
//
// Data: coefficients are 16-bit words; the scale is the Q15 inverse standard
// deviation of the region's power index times the category's inverse step
// size, split into a high part (>> 15) and two low bits (>> 13 & 3).  The
// low-bit term is formed as in the Recommendation's 16-bit arithmetic: the
// doubled product g * lo is kept to 16 bits before it is halved.  The bin
// index is kept to 16 bits too; when that wraps negative (a power index far too
// small for the coefficients) no table row exists and the call fails with
// kvoErrScaleRange.  Categories 0..6 only: category 7 regions carry no code.
#include <cstring>

#include "g72x/g7221.h"
#include "g72x/g7221_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

const Kvo16s kG7221StepSizeInv[7] = {23167, 16384, 11585, 8192, 5793, 4096, 2896};
const Kvo16s kG7221VecDim[7] = {2, 2, 2, 4, 4, 5, 5};
const Kvo16s kG7221VecNum[7] = {10, 10, 10, 5, 5, 4, 4};
const Kvo16s kG7221MaxBin[7] = {13, 9, 6, 4, 3, 2, 1};
const Kvo16s kG7221DeadZone[7] = {2457, 2703, 2949, 3195, 3440, 3686, 4096};
const Kvo16s kG7221DeadZoneLowBits[7] = {2, 1, 0, 0, 3, 2, 0};

const Kvo16s* const kG7221BitcountTables[7] = {
    tab::cnstMltSqvhBitcountCtg0_G722, tab::cnstMltSqvhBitcountCtg1_G722,
    tab::cnstMltSqvhBitcountCtg2_G722, tab::cnstMltSqvhBitcountCtg3_G722,
    tab::cnstMltSqvhBitcountCtg4_G722, tab::cnstMltSqvhBitcountCtg5_G722,
    tab::cnstMltSqvhBitcountCtg6_G722};
const Kvo16u* const kG7221CodeTables[7] = {
    tab::cnstMltSqvhCodeCtg0_G722, tab::cnstMltSqvhCodeCtg1_G722, tab::cnstMltSqvhCodeCtg2_G722,
    tab::cnstMltSqvhCodeCtg3_G722, tab::cnstMltSqvhCodeCtg4_G722, tab::cnstMltSqvhCodeCtg5_G722,
    tab::cnstMltSqvhCodeCtg6_G722};

bool g7221QuantizeRegion(int category, int powerIndex, const Kvo16s* src, Kvo16s* q) {
    const Kvo32s p =
        Kvo32s{tab::cnstStdDeviationInv_G722[powerIndex]} * kG7221StepSizeInv[category] + 4096;
    const Kvo32s hiPart = lo16(p >> 15);
    const Kvo32s loBits = (p >> 13) & 3;
    const Kvo32s dz = kG7221DeadZone[category];
    const Kvo32s dzLow = kG7221DeadZoneLowBits[category];
    bool ok = true;
    for (int i = 0; i < 20; ++i) {
        const Kvo32s g = Abs_16s(src[i]);
        Kvo32s t = lo16(2 * g * loBits);  // doubled product kept to 16 bits
        t >>= 1;
        t = (t + dzLow) >> 2;
        q[i] = lo16((g * hiPart + dz + t) >> 13);
        ok &= q[i] >= 0;
    }
    return ok;
}

int g7221PackRegion(int category, const Kvo16s* src, const Kvo16s* q, Kvo32u* dst) {
    const int dim = kG7221VecDim[category];
    const int num = kG7221VecNum[category];
    const Kvo32s maxBin = kG7221MaxBin[category];
    const Kvo16s* bitcount = kG7221BitcountTables[category];
    const Kvo16u* codes = kG7221CodeTables[category];
    Kvo32u word = 0;
    int free = 32, total = 0;
    for (int v = 0; v < num; ++v, src += dim, q += dim) {
        Kvo32s index = 0;
        Kvo32u signs = 0;
        int n = 0;
        for (int j = 0; j < dim; ++j) {
            Kvo32s k = q[j];
            if (k != 0) {
                signs = 2 * signs + (src[j] > 0 ? 1u : 0u);
                ++n;
                if (k > maxBin) k = maxBin;
            }
            index = index * (maxBin + 1) + k;
        }
        const int bits = bitcount[index] + n;
        const Kvo32u code = (Kvo32u{codes[index]} << n) + signs;
        total += bits;
        if (free - bits >= 0) {
            word += code << (free - bits);
            free -= bits;
        } else {
            *dst++ = word + (code >> (bits - free));
            free += 32 - bits;
            word = code << free;
        }
    }
    *dst = word;
    return total;
}

namespace impl {

KvoStatus kvosHuffmanEncode_G722_16s32u(Kvo32s category, Kvo32s powerIndex, const Kvo16s* pSrc,
                                        Kvo32u* pDst, Kvo32s* pBits) {
    if (!pSrc || !pDst || !pBits) return kvoErrNullPtr;
    if (category < 0 || category > 6 || powerIndex < 0 || powerIndex > 63) return kvoErrScaleRange;
    Kvo16s q[20];
    if (!g7221QuantizeRegion(category, powerIndex, pSrc, q)) return kvoErrScaleRange;
    *pBits = g7221PackRegion(category, pSrc, q, pDst);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
