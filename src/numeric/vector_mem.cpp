// Vector layer, memory family: zero, set, copy and move of caller vectors.
// All bit patterns are copied unchanged (float Set stores the value's bits).
#include <cstring>

#include "numeric/vector.h"

namespace kvo {

void ownsZero_8u(Kvo8u* pDst, std::size_t nBytes) {
    std::memset(pDst, 0, nBytes);
}

void ownsSet_16u(Kvo16u val, Kvo16u* pDst, std::size_t len) {
    for (std::size_t i = 0; i < len; ++i) pDst[i] = val;
}
void ownsSet_32s(Kvo32s val, Kvo32s* pDst, std::size_t len) {
    for (std::size_t i = 0; i < len; ++i) pDst[i] = val;
}
void ownsSet_64s(Kvo64s val, Kvo64s* pDst, std::size_t len) {
    for (std::size_t i = 0; i < len; ++i) pDst[i] = val;
}

void ownsCopy_8u(const Kvo8u* pSrc, Kvo8u* pDst, std::size_t nBytes) {
    std::memcpy(pDst, pSrc, nBytes);
}

namespace {

template <class T>
KvoStatus zero(T* pDst, Kvo32s len) {
    if (pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    ownsZero_8u(reinterpret_cast<Kvo8u*>(pDst), static_cast<std::size_t>(len) * sizeof(T));
    return kvoOk;
}

template <class T>
KvoStatus copy(const T* pSrc, T* pDst, Kvo32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    ownsCopy_8u(reinterpret_cast<const Kvo8u*>(pSrc), reinterpret_cast<Kvo8u*>(pDst),
                static_cast<std::size_t>(len) * sizeof(T));
    return kvoOk;
}

template <class T>
KvoStatus move(const T* pSrc, T* pDst, Kvo32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    std::memmove(pDst, pSrc, static_cast<std::size_t>(len) * sizeof(T));
    return kvoOk;
}

}  // namespace

KvoStatus kvosZero_8u(Kvo8u* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_16s(Kvo16s* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_16sc(Kvo16sc* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_32s(Kvo32s* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_32f(Kvo32f* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_32fc(Kvo32fc* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_64s(Kvo64s* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_64f(Kvo64f* pDst, Kvo32s len) {
    return zero(pDst, len);
}
KvoStatus kvosZero_64fc(Kvo64fc* pDst, Kvo32s len) {
    return zero(pDst, len);
}

KvoStatus kvosSet_16s(Kvo16s val, Kvo16s* pDst, Kvo32s len) {
    if (pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    ownsSet_16u(static_cast<Kvo16u>(val), reinterpret_cast<Kvo16u*>(pDst),
                static_cast<std::size_t>(len));
    return kvoOk;
}
KvoStatus kvosSet_32s(Kvo32s val, Kvo32s* pDst, Kvo32s len) {
    if (pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    ownsSet_32s(val, pDst, static_cast<std::size_t>(len));
    return kvoOk;
}
KvoStatus kvosSet_32f(Kvo32f val, Kvo32f* pDst, Kvo32s len) {
    if (pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo32s bits;
    std::memcpy(&bits, &val, sizeof bits);
    ownsSet_32s(bits, reinterpret_cast<Kvo32s*>(pDst), static_cast<std::size_t>(len));
    return kvoOk;
}
KvoStatus kvosSet_64f(Kvo64f val, Kvo64f* pDst, Kvo32s len) {
    if (pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo64s bits;
    std::memcpy(&bits, &val, sizeof bits);
    ownsSet_64s(bits, reinterpret_cast<Kvo64s*>(pDst), static_cast<std::size_t>(len));
    return kvoOk;
}

KvoStatus kvosCopy_8u(const Kvo8u* pSrc, Kvo8u* pDst, Kvo32s len) {
    return copy(pSrc, pDst, len);
}
KvoStatus kvosCopy_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len) {
    return copy(pSrc, pDst, len);
}
KvoStatus kvosCopy_32s(const Kvo32s* pSrc, Kvo32s* pDst, Kvo32s len) {
    return copy(pSrc, pDst, len);
}
KvoStatus kvosCopy_32sc(const Kvo32sc* pSrc, Kvo32sc* pDst, Kvo32s len) {
    return copy(pSrc, pDst, len);
}
KvoStatus kvosCopy_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len) {
    return copy(pSrc, pDst, len);
}
KvoStatus kvosCopy_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len) {
    return copy(pSrc, pDst, len);
}

KvoStatus kvosMove_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len) {
    return move(pSrc, pDst, len);
}
KvoStatus kvosMove_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len) {
    return move(pSrc, pDst, len);
}

}  // namespace kvo
