// G.729 gain decoders at 8 kbit/s and 6.4 kbit/s (annex D codebooks, as used by annex I): the
// coded indices through the inverse maps, the predicted code gain from the fixed vector's
// energy, and the moving-average predictor update; for an erased frame the previous gains are
// attenuated and the predictor takes the decayed mean.
//
// Data: energy of the fixed vector (undoubled sum of squares, Q26 for a Q13 vector); past
// quantised energies Q10; gains pitch Q14, code Q1.  The code gain saturates to 16 bits.
// Indices of the 6.4 kbit/s decoder outside 0 .. 7 are refused with kvoErrOutOfRange.
#include "frame/impl.h"
#include "g729/gain.h"
#include "g729/gain_tables.h"
#include "g729/pitch.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr Kvo16s kImap1[8] = {5, 1, 7, 4, 2, 0, 6, 3};
constexpr Kvo16s kImap2[16] = {2, 14, 3, 13, 0, 15, 1, 12, 6, 10, 7, 9, 4, 11, 5, 8};
constexpr Kvo16s kImap1_6k[8] = {0, 5, 4, 7, 1, 3, 2, 6};
constexpr Kvo16s kImap2_6k[8] = {0, 5, 7, 2, 1, 4, 6, 3};

}  // namespace

namespace impl {

KvoStatus kvosDecodeGain_G729_16s(Kvo32s energy, Kvo16s* pSrcDstEnergyErr, const Kvo16s* pIdx,
                                  Kvo16s* pSrcDstQGain) {
    if (!pSrcDstEnergyErr || !pSrcDstQGain) return kvoErrNullPtr;
    if (!pIdx) {
        pSrcDstQGain[0] = mult16(pSrcDstQGain[0], 29491);  // 0.9
        pSrcDstQGain[1] = mult16(pSrcDstQGain[1], 32111);  // 0.98
        ownGainUpdateErasure(pSrcDstEnergyErr);
        return kvoOk;
    }
    const Kvo16s* p1 = tab::gbk1[kImap1[pIdx[0] & 7]];
    const Kvo16s* p2 = tab::gbk2[kImap2[pIdx[1] & 15]];
    Kvo16s gcode0, exp;
    ownGainPredict(pSrcDstEnergyErr, energy, &gcode0, &exp);
    const Kvo32s S = Kvo32s{p1[1]} + p2[1];
    pSrcDstQGain[0] = sat16(Kvo32s{p1[0]} + p2[0]);
    pSrcDstQGain[1] = g729CodeGain(lo16(S >> 1), gcode0, exp, 4);
    ownGainUpdate(pSrcDstEnergyErr, S);
    return kvoOk;
}

KvoStatus kvosDecodeGain_G729I_16s(Kvo32s energy, Kvo16s gainAttenuation, Kvo16s* pSrcDstEnergyErr,
                                   const Kvo16s* pIdx, Kvo16s* pSrcDstQGain) {
    if (!pSrcDstEnergyErr || !pSrcDstQGain) return kvoErrNullPtr;
    if (!pIdx) {
        pSrcDstQGain[0] = mult16(pSrcDstQGain[0], gainAttenuation);
        pSrcDstQGain[1] = mult16(pSrcDstQGain[1], gainAttenuation);
        ownGainUpdateErasure(pSrcDstEnergyErr);
        return kvoOk;
    }
    if (pIdx[0] < 0 || pIdx[0] > 7 || pIdx[1] < 0 || pIdx[1] > 7) return kvoErrOutOfRange;
    const Kvo16s* p1 = tab::gbk1_6k[kImap1_6k[pIdx[0]]];
    const Kvo16s* p2 = tab::gbk2_6k[kImap2_6k[pIdx[1]]];
    Kvo16s gcode0, exp;
    ownGainPredict(pSrcDstEnergyErr, energy, &gcode0, &exp);
    const Kvo16s T = lo16((Kvo32s{p1[1]} + p2[1]) >> 1);
    pSrcDstQGain[0] = sat16(Kvo32s{p1[0]} + p2[0]);
    pSrcDstQGain[1] = g729CodeGain(T, gcode0, exp, 3);
    ownGainUpdate(pSrcDstEnergyErr, T);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
