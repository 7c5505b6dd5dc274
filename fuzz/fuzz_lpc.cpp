// Fuzz target of the LPC recursions and spectral conversions: arbitrary
// coefficient, line and autocorrelation vectors, including disordered,
// negative and saturating values.  The conversions that cannot fail return
// kvoOk, and the in-place form agrees with the out-of-place one.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    HeapBuf<Kvo16s> a(fdp, 11), prev(fdp, 10), out(11), out2(11), lpc(31), rc(30), res(1);
    HeapBuf<Kvo32s> R(fdp, 31);
    const Kvo32s order = fdp.ConsumeIntegralInRange(0, 31);
    Kvo16s sine = prev[0];
    KVOSC_FUZZ_CHECK(kvosLPCToLSP_G729_16s(a, prev, out) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosLPCToLSP_G729A_16s(a, prev, out) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosLSPToLPC_G729_16s(a, out) == kvoOk && out[0] == 4096);
    KVOSC_FUZZ_CHECK(kvosLSPToLSF_G729_16s(a, out) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosLSPToLSF_Norm_G729_16s(a, out) == kvoOk);
    for (auto f : {kvosLSFToLSP_G729_16s, kvosLSFToLSP_GSMAMR_16s}) {
        const KvoStatus s = f(a, out);
        KVOSC_FUZZ_CHECK(s == kvoOk || s == kvoErrNegativeFreq);
    }
    KVOSC_FUZZ_CHECK(kvosLSFToLPC_G723_16s(a, out) == kvoOk);
    std::memcpy(out2, a, 22);
    KVOSC_FUZZ_CHECK(kvosLSFToLPC_G723_16s_I(out2) == kvoOk && out.same_as(out2, 10));
    KVOSC_FUZZ_CHECK(kvosLPCToLSF_G723_16s(a, prev, out) == kvoOk);
    const KvoStatus s3 = kvosLevinsonDurbin_G729_32s16s(R, order, lpc, rc, res);
    KVOSC_FUZZ_CHECK(order < 1 || order > 30 ? s3 == kvoErrRange
                                             : (s3 == kvoOk || s3 == kvoWarnOverflow));
    const KvoStatus s4 = kvosLevinsonDurbin_G729B(R, lpc, rc, res);
    KVOSC_FUZZ_CHECK(s4 == kvoOk || s4 == kvoWarnOverflow);
    KVOSC_FUZZ_CHECK(kvosLevinsonDurbin_G723_16s(a, &sine, res, lpc) == kvoOk);
    return 0;
}
