// Fullband (time-domain) echo-canceller kernels: the FIR error e = mic - h * ref and the
// normalised LMS filter that merges the coefficient update of the previous sample with the
// filter pass of the present one, so that each coefficient is visited once per sample.
//
// Float: single precision, taps ascending.  16-bit: samples Q0, coefficients Q15, each
// product rounded on its own, (r*h + 16384) >> 15, into a 32-bit sum saturated after every
// addition.  NLMS 16-bit: coefficient step (ref*mu + 4096) >> 13 saturated to 16 bits,
// mu = (e*step + 1024) >> 11 held in 32 bits inside the call and saturated to 16 bits when
// it is stored for the next call.
//
// pRef points at the sample aligned with pMic[0]; the FIR reads tapLen - 1 samples before
// it, the NLMS filter tapLen (one more, for the update of the previous sample).
#include "ec/ec_common.h"
#include "impl.h"
#include "numeric/cpu.h"
#include "numeric/fixed.h"

namespace kvo::ec {

Kvo32s nlms16sSample(const Kvo16s* x, Kvo16s mic, Kvo32s step, Kvo16s* pCoefs, int tapLen,
                     Kvo32s mu, Kvo16s* pOut) {
    Kvo32s y = 0;
    for (int t = 0; t < tapLen; ++t) {
        pCoefs[t] = sat16(Kvo64s{pCoefs[t]} + ((Kvo64s{x[-1 - t]} * mu + 4096) >> 13));
        y = sat32(Kvo64s{y} + ((Kvo32s{pCoefs[t]} * x[-t] + 16384) >> 15));
    }
    const Kvo16s e = sat16(Kvo64s{mic} - y);
    *pOut = e;
    // The 48-bit product is rounded and kept in 32 bits (low word) inside the call.
    return lo32((Kvo64s{e} * step + 1024) >> 11);
}

void fir32fScalar(const Kvo32f* pRef, const Kvo32f* pMic, Kvo32f* pDst, int len,
                  const Kvo32f* pCoefs, int tapLen) {
    for (int i = 0; i < len; ++i) {
        const Kvo32f* x = pRef + i;
        Kvo32f y = 0.0f;
        for (int t = 0; t < tapLen; ++t) y += x[-t] * pCoefs[t];
        pDst[i] = pMic[i] - y;
    }
}

void fir16sScalar(const Kvo16s* pRef, const Kvo16s* pMic, Kvo16s* pDst, int len,
                  const Kvo16s* pCoefs, int tapLen) {
    for (int i = 0; i < len; ++i) {
        const Kvo16s* x = pRef + i;
        Kvo32s y = 0;
        for (int t = 0; t < tapLen; ++t)
            y = sat32(Kvo64s{y} + ((Kvo32s{x[-t]} * pCoefs[t] + 16384) >> 15));
        pDst[i] = sat16(Kvo64s{pMic[i]} - y);
    }
}

void nlms16sScalar(const Kvo16s* pRef, const Kvo16s* pMic, const Kvo32s* pStep, Kvo16s* pDst,
                   int len, Kvo16s* pCoefs, int tapLen, Kvo16s* pMuErr) {
    Kvo32s mu = *pMuErr;
    for (int i = 0; i < len; ++i)
        mu = nlms16sSample(pRef + i, pMic[i], pStep[i], pCoefs, tapLen, mu, pDst + i);
    *pMuErr = sat16(mu);
}

}  // namespace kvo::ec

namespace kvo::impl {

KvoStatus kvosFIR_EC_32f(const Kvo32f* pRef, const Kvo32f* pMic, Kvo32f* pDst, Kvo32s len,
                         const Kvo32f* pCoefs, Kvo32s tapLen) {
    if (pRef == nullptr || pMic == nullptr || pDst == nullptr || pCoefs == nullptr)
        return kvoErrNullPtr;
    if (len < 1 || tapLen < 1) return kvoErrBadArg;
    if (cpuHasAvx2())
        ec::fir32fAvx2(pRef, pMic, pDst, len, pCoefs, tapLen);
    else
        ec::fir32fScalar(pRef, pMic, pDst, len, pCoefs, tapLen);
    return kvoOk;
}

KvoStatus kvosFIR_EC_16s(const Kvo16s* pRef, const Kvo16s* pMic, Kvo16s* pDst, Kvo32s len,
                         const Kvo16s* pCoefs, Kvo32s tapLen) {
    if (pRef == nullptr || pMic == nullptr || pDst == nullptr || pCoefs == nullptr)
        return kvoErrNullPtr;
    if (len < 1 || tapLen < 1) return kvoErrBadArg;
    if (tapLen <= ec::kNlmsVectorMaxTaps && cpuHasAvx2())
        ec::fir16sAvx2(pRef, pMic, pDst, len, pCoefs, tapLen);
    else
        ec::fir16sScalar(pRef, pMic, pDst, len, pCoefs, tapLen);
    return kvoOk;
}

KvoStatus kvosNLMS_EC_32f(const Kvo32f* pRef, const Kvo32f* pMic, const Kvo32f* pStep, Kvo32f* pDst,
                          Kvo32s len, Kvo32f* pCoefs, Kvo32s tapLen, Kvo32f* pMuErr) {
    if (pRef == nullptr || pMic == nullptr || pStep == nullptr || pDst == nullptr ||
        pCoefs == nullptr || pMuErr == nullptr)
        return kvoErrNullPtr;
    if (len < 1 || tapLen < 1) return kvoErrBadArg;
    Kvo32f mu = *pMuErr;
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo32f* x = pRef + i;
        Kvo32f y = 0.0f;
        for (Kvo32s t = 0; t < tapLen; ++t) {
            pCoefs[t] += mu * x[-1 - t];
            y += x[-t] * pCoefs[t];
        }
        const Kvo32f e = pMic[i] - y;
        pDst[i] = e;
        mu = e * pStep[i];
    }
    *pMuErr = mu;
    return kvoOk;
}

KvoStatus kvosNLMS_EC_16s(const Kvo16s* pRef, const Kvo16s* pMic, const Kvo32s* pStep, Kvo16s* pDst,
                          Kvo32s len, Kvo16s* pCoefs, Kvo32s tapLen, Kvo16s* pMuErr) {
    if (pRef == nullptr || pMic == nullptr || pStep == nullptr || pDst == nullptr ||
        pCoefs == nullptr || pMuErr == nullptr)
        return kvoErrNullPtr;
    if (len < 1 || tapLen < 1) return kvoErrBadArg;
    if (tapLen <= ec::kNlmsVectorMaxTaps && cpuHasAvx2())
        ec::nlms16sAvx2(pRef, pMic, pStep, pDst, len, pCoefs, tapLen, pMuErr);
    else
        ec::nlms16sScalar(pRef, pMic, pStep, pDst, len, pCoefs, tapLen, pMuErr);
    return kvoOk;
}

}  // namespace kvo::impl
