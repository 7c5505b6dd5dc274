// 16-bit real FFT wrapper: 16-bit samples in, 32-bit CCS spectrum out (and back), computed
// by the single-precision transform.  The integer results are the float results divided by
// 2^scaleFactor, saturated and rounded to nearest with ties to even; they differ from the
// float transform only by that final rounding.
//
// Memory: the 16-bit record sits at the first 64-byte boundary of pMem, the float record in
// the next 64 bytes behind it.  The work buffer holds N + 2 floats (from its first 64-byte
// boundary), followed by the float transform's own scratch.
#include <cstdint>

#include "fft/fft.h"
#include "frame/alloc.h"
#include "numeric/vector_fft.h"

namespace kvo {

namespace {

constexpr std::int64_t roundUp64(std::int64_t v) {
    return (v + 63) & ~std::int64_t{63};
}

template <typename T>
T* align64(void* p) {
    auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<T*>((a + 63) & ~std::uintptr_t{63});
}

bool spec16Valid(const KvoFFTSpec16s* s) {
    return s->idTag == kFftSpec16sTag && s->self == s && s->pSpec32f != nullptr;
}

// Float data area of the work buffer, in bytes.
std::int64_t dataBytes(Kvo32s order) {
    return roundUp64(4 * ((std::int64_t{1} << order) + 2));
}

// Scratch of one call: the caller's work buffer or a temporary one.
struct Scratch {
    void* owned = nullptr;
    ~Scratch() {
        if (owned != nullptr) kvosFree(owned);
    }
};

}  // namespace

KvoStatus kvosFFTGetSize_R_16s32s(Kvo32s order, Kvo32s flag, Kvo32s hint, Kvo32s* pSpecSize,
                                  Kvo32s* pInitSize, Kvo32s* pWorkSize) {
    if (static_cast<Kvo32u>(order) > 30u) return kvoErrFftOrder;
    if (pSpecSize == nullptr || pInitSize == nullptr || pWorkSize == nullptr) return kvoErrNullPtr;
    if (flag != 1 && flag != 2 && flag != 4 && flag != 8) return kvoErrFftFlag;
    if (order > 28) return kvoErrFftOrder;
    Kvo32s fftSpec = 0, init = 0, work = 0;
    const KvoStatus st = kvosFFTGetSize_R_32f(order, flag, hint, &fftSpec, &init, &work);
    if (st != kvoOk) return st;
    const std::int64_t s = 64 + 64 + std::int64_t{fftSpec};
    const std::int64_t w = dataBytes(order) + (work > 0 ? work : 0) + 64;
    if (s > INT32_MAX || w > INT32_MAX) return kvoErrFftOrder;
    *pSpecSize = static_cast<Kvo32s>(s);
    *pInitSize = init;
    *pWorkSize = static_cast<Kvo32s>(w);
    return kvoOk;
}

KvoStatus kvosFFTInit_R_16s32s(KvoFFTSpec16s** ppSpec, Kvo32s order, Kvo32s flag, Kvo32s hint,
                               Kvo8u* pMem, Kvo8u* pInitBuf) {
    if (ppSpec == nullptr) return kvoErrNullPtr;
    if (static_cast<Kvo32u>(order) > 28u) return kvoErrFftOrder;
    if (pMem == nullptr || (order > 10 && pInitBuf == nullptr)) return kvoErrNullPtr;
    if (flag != 1 && flag != 2 && flag != 4 && flag != 8) return kvoErrFftFlag;
    auto* s = align64<KvoFFTSpec16s>(pMem);
    KvoFFTSpec32f* inner = nullptr;
    const KvoStatus st =
        kvosFFTInit_R_32f(&inner, order, flag, hint, reinterpret_cast<Kvo8u*>(s) + 64, pInitBuf);
    if (st != kvoOk) return st;
    Kvo32s innerWork = 0;
    kvosFFTGetBufSize_R_32f(inner, &innerWork);
    s->order = order;
    s->hint = hint;
    s->workSize = static_cast<Kvo32s>(dataBytes(order) + innerWork);
    s->allocated = 0;
    s->reserved = 0;
    s->pSpec32f = inner;
    s->self = s;
    s->idTag = kFftSpec16sTag;
    *ppSpec = s;
    return kvoOk;
}

KvoStatus kvosFFTFwd_RToCCS_16s32s_Sfs(const Kvo16s* pSrc, Kvo32s* pDst, const KvoFFTSpec16s* pSpec,
                                       Kvo32s scaleFactor, Kvo8u* pWork) {
    if (pSpec == nullptr) return kvoErrNullPtr;
    if (!spec16Valid(pSpec)) return kvoErrContextMatch;
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    Scratch sc;
    if (pWork == nullptr) {
        sc.owned = kvosMalloc_8u(pSpec->workSize + 64);
        if (sc.owned == nullptr) return kvoErrMemAlloc;
        pWork = static_cast<Kvo8u*>(sc.owned);
    }
    const Kvo32s order = pSpec->order;
    const Kvo32s N = Kvo32s{1} << order;
    float* buf = align64<float>(pWork);
    Kvo8u* innerWork = reinterpret_cast<Kvo8u*>(buf) + dataBytes(order);
    for (Kvo32s n = 0; n < N; ++n) buf[n] = static_cast<float>(pSrc[n]);
    KvoStatus st = kvosFFTFwd_RToPerm_32f(buf, buf, pSpec->pSpec32f, innerWork);
    if (st != kvoOk) return st;
    st = kvosConvert_32f32s_Sfs(buf, pDst, N, 1, scaleFactor);
    if (st != kvoOk) return st;
    // Perm to CCS: R[N/2] from place 1 to place N, zero imaginary parts at 0 and N/2.
    if (N == 1) {
        pDst[1] = 0;
    } else {
        pDst[N] = pDst[1];
        pDst[1] = 0;
        pDst[N + 1] = 0;
    }
    return kvoOk;
}

KvoStatus kvosFFTInv_CCSToR_32s16s_Sfs(const Kvo32s* pSrc, Kvo16s* pDst, const KvoFFTSpec16s* pSpec,
                                       Kvo32s scaleFactor, Kvo8u* pWork) {
    if (pSpec == nullptr) return kvoErrNullPtr;
    if (!spec16Valid(pSpec)) return kvoErrContextMatch;
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    Scratch sc;
    if (pWork == nullptr) {
        sc.owned = kvosMalloc_8u(pSpec->workSize + 64);
        if (sc.owned == nullptr) return kvoErrMemAlloc;
        pWork = static_cast<Kvo8u*>(sc.owned);
    }
    const Kvo32s order = pSpec->order;
    const Kvo32s N = Kvo32s{1} << order;
    float* buf = align64<float>(pWork);
    Kvo8u* innerWork = reinterpret_cast<Kvo8u*>(buf) + dataBytes(order);
    // The imaginary part of bin N/2 is not read.
    for (Kvo32s n = 0; n < N + 1; ++n) buf[n] = static_cast<float>(pSrc[n]);
    buf[N + 1] = 0.0f;
    KvoStatus st = kvosFFTInv_CCSToR_32f(buf, buf, pSpec->pSpec32f, innerWork);
    if (st != kvoOk) return st;
    return kvosConvert_32f16s_Sfs(buf, pDst, N, 1, scaleFactor);
}

}  // namespace kvo
