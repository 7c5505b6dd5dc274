// G.722.1 modulated lapped transform: the windowing and folding that turn two
// frames of samples into the input of the type IV DCT, and the windowing with
// overlap-add that turns the inverse DCT output back into samples.
//
// Data: 16-bit samples; the windows are Q15 pairs (one pair per output word,
// the Recommendation's published window values rearranged).  Analysis rounds
// each two-product sum as round16(2 v) (R1), synthesis as round16(8 v) (R3),
// both saturating to 16 bits when the doubled sum leaves 32 bits.  The
// block-floating shift that the coder applies around the transform is the
// caller's and is not part of these steps.
#include <cstring>

#include "g72x/g7221.h"
#include "g72x/g7221_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// round16(2^shift * v) with saturation; v is a sum of two Q15 products.
template <int Shift>
inline Kvo16s roundScaled(Kvo64s v) {
    constexpr Kvo64s kMax = Kvo64s{0x7fffffff} >> Shift;
    constexpr Kvo64s kMin = -(Kvo64s{1} << (31 - Shift));
    if (v > kMax) return 32767;
    if (v < kMin) return -32768;
    return round16(static_cast<Kvo32s>(v << Shift));
}

template <int Len>
const Kvo16s* analysisWindow() {
    if constexpr (Len == 320)
        return &tab::cnstSamples2MLT_G722_7kHz[0][0];
    else
        return &tab::cnstSamples2MLT_G722_14kHz[0][0];
}

template <int Len>
const Kvo16s* synthesisWindow() {
    if constexpr (Len == 320)
        return &tab::cnstMLT2Samples_G722_7kHz[0][0];
    else
        return &tab::cnstMLT2Samples_G722_14kHz[0][0];
}

}  // namespace

template <int Len>
void g7221MltToDct(const Kvo16s* x, Kvo16s* m, Kvo16s* y) {
    constexpr int h = Len / 2;
    const Kvo16s* w = analysisWindow<Len>();
    for (int k = 0; k < h; ++k) {
        const Kvo64s v = Kvo32s{w[2 * k]} * m[h - 1 - k] + Kvo32s{w[2 * k + 1]} * m[h + k];
        y[k] = roundScaled<1>(v);
    }
    for (int k = 0; k < h; ++k) {
        const Kvo64s v =
            Kvo32s{w[Len + 2 * k]} * x[Len - 1 - k] + Kvo32s{w[Len + 2 * k + 1]} * x[k];
        y[h + k] = roundScaled<1>(v);
    }
    std::memmove(m, x, sizeof(Kvo16s) * Len);
}

template <int Len>
void g7221DctToMlt(const Kvo16s* x, Kvo16s* m, Kvo16s* y) {
    constexpr int h = Len / 2;
    const Kvo16s* w = synthesisWindow<Len>();
    alignas(16) Kvo16s out[Len];
    for (int k = 0; k < h; ++k) {
        const Kvo64s v = Kvo32s{w[2 * k]} * x[h - 1 - k] + Kvo32s{w[2 * k + 1]} * m[k];
        out[k] = roundScaled<3>(v);
    }
    for (int k = 0; k < h; ++k) {
        const Kvo64s v = Kvo32s{w[Len + 2 * k]} * m[h - 1 - k] + Kvo32s{w[Len + 2 * k + 1]} * x[k];
        out[h + k] = roundScaled<3>(v);
    }
    std::memmove(m, x + h, sizeof(Kvo16s) * h);
    std::memcpy(y, out, sizeof out);
}

template void g7221MltToDct<320>(const Kvo16s*, Kvo16s*, Kvo16s*);
template void g7221MltToDct<640>(const Kvo16s*, Kvo16s*, Kvo16s*);
template void g7221DctToMlt<320>(const Kvo16s*, Kvo16s*, Kvo16s*);
template void g7221DctToMlt<640>(const Kvo16s*, Kvo16s*, Kvo16s*);

namespace impl {

KvoStatus kvosDecomposeMLTToDCT_G7221_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst,
                                          Kvo32s len) {
    if (!pSrc || !pMem || !pDst) return kvoErrNullPtr;
    if (len == 320)
        g7221MltToDct<320>(pSrc, pMem, pDst);
    else if (len == 640)
        g7221MltToDct<640>(pSrc, pMem, pDst);
    else
        return kvoErrSize;
    return kvoOk;
}

KvoStatus kvosDecomposeMLTToDCT_G722_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst) {
    if (!pSrc || !pMem || !pDst) return kvoErrNullPtr;
    g7221MltToDct<320>(pSrc, pMem, pDst);
    return kvoOk;
}

KvoStatus kvosDecomposeDCTToMLT_G7221_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst,
                                          Kvo32s len) {
    if (!pSrc || !pMem || !pDst) return kvoErrNullPtr;
    if (len == 320)
        g7221DctToMlt<320>(pSrc, pMem, pDst);
    else if (len == 640)
        g7221DctToMlt<640>(pSrc, pMem, pDst);
    else
        return kvoErrSize;
    return kvoOk;
}

KvoStatus kvosDecomposeDCTToMLT_G722_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst) {
    if (!pSrc || !pMem || !pDst) return kvoErrNullPtr;
    g7221DctToMlt<320>(pSrc, pMem, pDst);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
