// G.722.1 transform coder: internal workers behind the exports.
//
// The transform length is 320 (7 kHz mode) or 640 (14 kHz mode); the workers
// take it as a template argument so every loop bound is a constant.  Data are
// 16-bit words; windows, rotations and the ten-point matrices are Q15.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Rotation pairs (cos, -sin) of a stage of block size z (20, 40 ... 640) start
// at pair (z - 20) / 2 of the concatenated table: the stages before it hold
// 10 + 20 + ... pairs, that is z/2 - 10 in all.
constexpr int g7221RotationOffset(int z) {
    return z / 2 - 10;
}

// Largest coefficient magnitudes of the forward and inverse ten-point
// matrices: they bound the sums for the exact 32-bit path of the transform.
constexpr Kvo32s kDct10FwdMax = 10453;
constexpr Kvo32s kDct10InvMax = 29400;

// Window and fold len new samples against the len previous ones; mem := src.
template <int Len>
void g7221MltToDct(const Kvo16s* src, Kvo16s* mem, Kvo16s* dst);
// Window and overlap-add len transform outputs with len/2 saved ones;
// mem := src[len/2 .. len-1].
template <int Len>
void g7221DctToMlt(const Kvo16s* src, Kvo16s* mem, Kvo16s* dst);
// Forward and inverse type IV transforms (src and dst may be the same vector).
template <int Len>
void g7221DctFwd(const Kvo16s* src, Kvo16s* dst);
template <int Len>
void g7221DctInv(const Kvo16s* src, Kvo16s* dst);

// Quantizer step of the region coder: the 20 bin indices of one region, or
// false when a wrapped index came out negative (the scale is too large for
// the coefficients).  category 0..6, powerIndex 0..63.
bool g7221QuantizeRegion(int category, int powerIndex, const Kvo16s* src, Kvo16s* q);
// Vector Huffman code of a quantized region: packs into dst (at most 6 words)
// and returns the bit count; q entries must be >= 0.
int g7221PackRegion(int category, const Kvo16s* src, const Kvo16s* q, Kvo32u* dst);

extern const Kvo16s kG7221StepSizeInv[7];
extern const Kvo16s kG7221VecDim[7];
extern const Kvo16s kG7221VecNum[7];
extern const Kvo16s kG7221MaxBin[7];
extern const Kvo16s kG7221DeadZone[7];
extern const Kvo16s kG7221DeadZoneLowBits[7];
extern const Kvo16s* const kG7221BitcountTables[7];
extern const Kvo16u* const kG7221CodeTables[7];

}  // namespace kvo
