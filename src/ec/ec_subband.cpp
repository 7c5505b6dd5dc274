// Oversampled DFT filter bank of the subband echo canceller: analysis of a block of
// blockLen samples into one CCS vector of 2^(order-1)+1 complex subband samples, and
// synthesis of such a vector back into blockLen samples by overlap-add.
//
// The real prototype window of windowLen taps (a multiple of fftLen = 2^order) is
// folded onto one real FFT of fftLen points per block (weighted overlap-add form).
// Synthesis runs the window backwards.  Float family: single precision, forward FFT
// unscaled, inverse divided by fftLen.  16-bit family: samples Q0, window Q13, every
// window product rounded (h*w + 4096) >> 13 and each addition saturated to 16 bits;
// the FFTs take the caller's scaleFactor.
//
// Block layout from the first 16-byte boundary b of the caller's memory:
//   float:  record (40 bytes) | window, 4*windowLen | history, 4*windowLen | FFT record
//   16-bit: record (48 bytes) | window, roundUp16(2*windowLen) | history, the same | FFT
// The FFT record brings its own alignment slack in the size its query reports.
// Work buffer, from its first 16-byte boundary: the real block t of fftLen elements
// (4*fftLen bytes reserved, rounded up to 16 in the 16-bit family), then the FFT scratch.
//
// Sizes above the signed 32-bit range are refused with kvoErrBadArg by the queries.
#include <cstring>

#include "ec/ec_common.h"
#include "fft/fft.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo::impl {

namespace {

using ec::align16;
using ec::roundUp16;

constexpr int kFftFlag = 2;  // inverse divided by N
constexpr int kFftHint = 0;
constexpr std::int64_t kRec32f = 40;  // record share of the float block
constexpr std::int64_t kRec16s = 48;  // record share of the 16-bit block (16-byte multiple)
static_assert(sizeof(KvoSubbandProcess32fState) <= kRec32f);
static_assert(sizeof(KvoSubbandProcess16sState) <= kRec16s);

// windowLen a positive multiple of 2^order (order >= 1 already checked).
bool multipleOfFft(Kvo32s order, Kvo32s windowLen) {
    if (order >= 31) return false;
    return (windowLen & ((Kvo32s{1} << order) - 1)) == 0;
}

// Index of the built-in prototype for the triple, or -1.
int builtinFor(Kvo32s order, Kvo32s blockLen, Kvo32s windowLen) {
    if (order == 5 && blockLen == 24 && windowLen == 128) return 0;
    if (order == 6 && blockLen == 44 && windowLen == 256) return 1;
    return -1;
}

Kvo32f builtinTap(int which, int i) {
    const int len = which == 0 ? 128 : 256;
    const int j = i < len / 2 ? i : len - 1 - i;
    return which == 0 ? ec::kSubbandWindowHalf_5_24_128[j] : ec::kSubbandWindowHalf_6_44_256[j];
}

template <class SizeFn>
KvoStatus getSize(Kvo32s order, Kvo32s windowLen, Kvo32s* pSize, Kvo32s* pInitBufSize,
                  Kvo32s* pWorkBufSize, bool is16, SizeFn fftSize) {
    if (order < 1 || windowLen < 1) return kvoErrBadArg;
    if (pSize == nullptr || pInitBufSize == nullptr || pWorkBufSize == nullptr)
        return kvoErrNullPtr;
    if (!multipleOfFft(order, windowLen)) return kvoErrBadArg;
    Kvo32s fftBytes = 0, init = 0, work = 0;
    if (fftSize(order, kFftFlag, kFftHint, &fftBytes, &init, &work) != kvoOk) return kvoErrBadArg;
    const std::int64_t n = std::int64_t{1} << order;
    std::int64_t size, wsize;
    if (is16) {
        size = roundUp16(fftBytes) + 32 * ((2 * std::int64_t{windowLen} + 15) / 16) + 64;
        wsize = work + roundUp16(4 * n) + 16;
    } else {
        size = fftBytes + 8 * std::int64_t{windowLen} + 56;
        wsize = work + 4 * n + 16;
    }
    if (size > INT32_MAX || wsize > INT32_MAX) return kvoErrBadArg;
    *pSize = static_cast<Kvo32s>(size);
    *pInitBufSize = init;
    *pWorkBufSize = static_cast<Kvo32s>(wsize);
    return kvoOk;
}

// Tests shared by both Init functions, in their order.
KvoStatus initChecks(const void* pState, Kvo32s order, Kvo32s blockLen, Kvo32s windowLen,
                     const void* pWindow) {
    if (order < 1 || blockLen < 1 || windowLen < 1) return kvoErrBadArg;
    if (order < 31 && blockLen > (Kvo32s{1} << order)) return kvoErrBadArg;
    if (pState == nullptr) return kvoErrNullPtr;
    if (!multipleOfFft(order, windowLen)) return kvoErrBadArg;
    if (pWindow == nullptr && builtinFor(order, blockLen, windowLen) < 0) return kvoErrBadArg;
    return kvoOk;
}

}  // namespace

KvoStatus kvosSubbandProcessGetSize_32f(Kvo32s order, Kvo32s windowLen, Kvo32s* pSize,
                                        Kvo32s* pInitBufSize, Kvo32s* pWorkBufSize) {
    return getSize(order, windowLen, pSize, pInitBufSize, pWorkBufSize, false,
                   kvo::kvosFFTGetSize_R_32f);
}

KvoStatus kvosSubbandProcessGetSize_16s(Kvo32s order, Kvo32s windowLen, Kvo32s* pSize,
                                        Kvo32s* pInitBufSize, Kvo32s* pWorkBufSize) {
    return getSize(order, windowLen, pSize, pInitBufSize, pWorkBufSize, true,
                   kvo::kvosFFTGetSize_R_16s32s);
}

KvoStatus kvosSubbandProcessInit_32f(KvoSubbandProcess32fState* pState, Kvo32s order,
                                     Kvo32s blockLen, Kvo32s windowLen, const Kvo32f* pWindow,
                                     Kvo8u* pInitBuf) {
    KvoStatus st = initChecks(pState, order, blockLen, windowLen, pWindow);
    if (st != kvoOk) return st;
    // A transform that cannot be set up fails before anything is written.
    Kvo32s fftBytes = 0, init = 0, work = 0;
    if (kvo::kvosFFTGetSize_R_32f(order, kFftFlag, kFftHint, &fftBytes, &init, &work) != kvoOk ||
        (init > 0 && pInitBuf == nullptr))
        return kvoErrUnspecified;

    auto* base = align16<Kvo8u>(pState);
    auto* rec = reinterpret_cast<KvoSubbandProcess32fState*>(base);
    auto* win = reinterpret_cast<Kvo32f*>(base + kRec32f);
    Kvo32f* hist = win + windowLen;
    Kvo8u* fftMem = reinterpret_cast<Kvo8u*>(hist + windowLen);

    KvoFFTSpec32f* fft = nullptr;
    if (kvo::kvosFFTInit_R_32f(&fft, order, kFftFlag, kFftHint, fftMem, pInitBuf) != kvoOk)
        return kvoErrUnspecified;
    if (pWindow != nullptr) {
        std::memcpy(win, pWindow, sizeof(Kvo32f) * static_cast<std::size_t>(windowLen));
    } else {
        const int which = builtinFor(order, blockLen, windowLen);
        for (Kvo32s i = 0; i < windowLen; ++i) win[i] = builtinTap(which, i);
    }
    std::memset(hist, 0, sizeof(Kvo32f) * static_cast<std::size_t>(windowLen));
    rec->windowLen = windowLen;
    rec->fftLen = Kvo32s{1} << order;
    rec->blockLen = blockLen;
    rec->pHistory = hist;
    rec->pWindow = win;
    rec->pFFTSpec = fft;
    return kvoOk;
}

KvoStatus kvosSubbandProcessInit_16s(KvoSubbandProcess16sState* pState, Kvo32s order,
                                     Kvo32s blockLen, Kvo32s windowLen, const Kvo16s* pWindow,
                                     Kvo8u* pInitBuf) {
    KvoStatus st = initChecks(pState, order, blockLen, windowLen, pWindow);
    if (st != kvoOk) return st;
    Kvo32s fftBytes = 0, init = 0, work = 0;
    if (kvo::kvosFFTGetSize_R_16s32s(order, kFftFlag, kFftHint, &fftBytes, &init, &work) != kvoOk ||
        (init > 0 && pInitBuf == nullptr))
        return kvoErrUnspecified;

    auto* base = align16<Kvo8u>(pState);
    auto* rec = reinterpret_cast<KvoSubbandProcess16sState*>(base);
    const std::int64_t arr = roundUp16(2 * std::int64_t{windowLen});
    auto* win = reinterpret_cast<Kvo16s*>(base + kRec16s);
    auto* hist = reinterpret_cast<Kvo16s*>(base + kRec16s + arr);
    Kvo8u* fftMem = base + kRec16s + 2 * arr;

    KvoFFTSpec16s* fft = nullptr;
    if (kvo::kvosFFTInit_R_16s32s(&fft, order, kFftFlag, kFftHint, fftMem, pInitBuf) != kvoOk)
        return kvoErrUnspecified;
    if (pWindow != nullptr) {
        std::memcpy(win, pWindow, sizeof(Kvo16s) * static_cast<std::size_t>(windowLen));
    } else {
        // The Q13 table is the float one times 8192, truncated toward zero (exact in float).
        const int which = builtinFor(order, blockLen, windowLen);
        for (Kvo32s i = 0; i < windowLen; ++i)
            win[i] = static_cast<Kvo16s>(builtinTap(which, i) * 8192.0f);
    }
    std::memset(hist, 0, sizeof(Kvo16s) * static_cast<std::size_t>(windowLen));
    rec->pHistory = hist;
    rec->pWindow = win;
    rec->pFFTSpec = fft;
    rec->windowLen = windowLen;
    rec->fftLen = Kvo32s{1} << order;
    rec->blockLen = blockLen;
    return kvoOk;
}

KvoStatus kvosSubbandAnalysis_32f32fc(const Kvo32f* pSrc, Kvo32fc* pDst,
                                      KvoSubbandProcess32fState* pState, Kvo8u* pWorkBuf) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr || pWorkBuf == nullptr)
        return kvoErrNullPtr;
    auto* rec = align16<KvoSubbandProcess32fState>(pState);
    const int W = rec->windowLen, N = rec->fftLen, B = rec->blockLen;
    Kvo32f* h = rec->pHistory;
    const Kvo32f* w = rec->pWindow;
    auto* t = align16<Kvo32f>(pWorkBuf);

    std::memmove(h, h + B, sizeof(Kvo32f) * static_cast<std::size_t>(W - B));
    std::memcpy(h + (W - B), pSrc, sizeof(Kvo32f) * static_cast<std::size_t>(B));
    for (int j = 0; j < N; ++j) t[j] = h[j] * w[j];
    for (int base = N; base < W; base += N) {
        const Kvo32f* hb = h + base;
        const Kvo32f* wb = w + base;
        for (int j = 0; j < N; ++j) t[j] += hb[j] * wb[j];
    }
    const auto* fft = static_cast<const KvoFFTSpec32f*>(rec->pFFTSpec);
    if (kvo::kvosFFTFwd_RToCCS_32f(t, reinterpret_cast<Kvo32f*>(pDst), fft,
                                   reinterpret_cast<Kvo8u*>(t + N)) != kvoOk)
        return kvoErrUnspecified;
    return kvoOk;
}

KvoStatus kvosSubbandSynthesis_32fc32f(const Kvo32fc* pSrc, Kvo32f* pDst,
                                       KvoSubbandProcess32fState* pState, Kvo8u* pWorkBuf) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr || pWorkBuf == nullptr)
        return kvoErrNullPtr;
    auto* rec = align16<KvoSubbandProcess32fState>(pState);
    const int W = rec->windowLen, N = rec->fftLen, B = rec->blockLen;
    Kvo32f* h = rec->pHistory;
    const Kvo32f* w = rec->pWindow;
    auto* t = align16<Kvo32f>(pWorkBuf);

    const auto* fft = static_cast<const KvoFFTSpec32f*>(rec->pFFTSpec);
    if (kvo::kvosFFTInv_CCSToR_32f(reinterpret_cast<const Kvo32f*>(pSrc), t, fft,
                                   reinterpret_cast<Kvo8u*>(t + N)) != kvoOk)
        return kvoErrUnspecified;
    std::memmove(h, h + B, sizeof(Kvo32f) * static_cast<std::size_t>(W - B));
    std::memset(h + (W - B), 0, sizeof(Kvo32f) * static_cast<std::size_t>(B));
    for (int base = 0; base < W; base += N) {
        Kvo32f* hb = h + base;
        const Kvo32f* wr = w + (W - 1 - base);  // window backwards
        for (int j = 0; j < N; ++j) hb[j] += t[j] * wr[-j];
    }
    std::memcpy(pDst, h, sizeof(Kvo32f) * static_cast<std::size_t>(B));
    return kvoOk;
}

KvoStatus kvosSubbandAnalysis_16s32sc_Sfs(const Kvo16s* pSrc, Kvo32sc* pDst,
                                          KvoSubbandProcess16sState* pState, Kvo32s scaleFactor,
                                          Kvo8u* pWorkBuf) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr || pWorkBuf == nullptr)
        return kvoErrNullPtr;
    auto* rec = align16<KvoSubbandProcess16sState>(pState);
    const int W = rec->windowLen, N = rec->fftLen, B = rec->blockLen;
    Kvo16s* h = rec->pHistory;
    const Kvo16s* w = rec->pWindow;
    auto* t = align16<Kvo16s>(pWorkBuf);

    std::memmove(h, h + B, sizeof(Kvo16s) * static_cast<std::size_t>(W - B));
    std::memcpy(h + (W - B), pSrc, sizeof(Kvo16s) * static_cast<std::size_t>(B));
    for (int j = 0; j < N; ++j) t[j] = sat16((Kvo32s{h[j]} * w[j] + 4096) >> 13);
    for (int base = N; base < W; base += N) {
        const Kvo16s* hb = h + base;
        const Kvo16s* wb = w + base;
        for (int j = 0; j < N; ++j)
            t[j] = sat16(Kvo32s{t[j]} + ((Kvo32s{hb[j]} * wb[j] + 4096) >> 13));
    }
    const auto* fft = static_cast<const KvoFFTSpec16s*>(rec->pFFTSpec);
    Kvo8u* fftWork = reinterpret_cast<Kvo8u*>(t) + roundUp16(4 * std::int64_t{N});
    if (kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(t, reinterpret_cast<Kvo32s*>(pDst), fft, scaleFactor,
                                          fftWork) != kvoOk)
        return kvoErrUnspecified;
    return kvoOk;
}

KvoStatus kvosSubbandSynthesis_32sc16s_Sfs(const Kvo32sc* pSrc, Kvo16s* pDst,
                                           KvoSubbandProcess16sState* pState, Kvo32s scaleFactor,
                                           Kvo8u* pWorkBuf) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr || pWorkBuf == nullptr)
        return kvoErrNullPtr;
    auto* rec = align16<KvoSubbandProcess16sState>(pState);
    const int W = rec->windowLen, N = rec->fftLen, B = rec->blockLen;
    Kvo16s* h = rec->pHistory;
    const Kvo16s* w = rec->pWindow;
    auto* t = align16<Kvo16s>(pWorkBuf);

    const auto* fft = static_cast<const KvoFFTSpec16s*>(rec->pFFTSpec);
    Kvo8u* fftWork = reinterpret_cast<Kvo8u*>(t) + roundUp16(4 * std::int64_t{N});
    if (kvo::kvosFFTInv_CCSToR_32s16s_Sfs(reinterpret_cast<const Kvo32s*>(pSrc), t, fft,
                                          scaleFactor, fftWork) != kvoOk)
        return kvoErrUnspecified;
    std::memmove(h, h + B, sizeof(Kvo16s) * static_cast<std::size_t>(W - B));
    std::memset(h + (W - B), 0, sizeof(Kvo16s) * static_cast<std::size_t>(B));
    for (int base = 0; base < W; base += N) {
        Kvo16s* hb = h + base;
        const Kvo16s* wr = w + (W - 1 - base);
        for (int j = 0; j < N; ++j)
            hb[j] = sat16(Kvo32s{hb[j]} + ((Kvo32s{t[j]} * wr[-j] + 4096) >> 13));
    }
    std::memcpy(pDst, h, sizeof(Kvo16s) * static_cast<std::size_t>(B));
    return kvoOk;
}

}  // namespace kvo::impl
