// Fuzz target of the AMR-WB spectral and filter steps as a decoder drives them: arbitrary
// ISF index words, good and lost frames, in every mode; the decoded ISF go to ISP and LP
// coefficients, back to ISP, and through the synthesis, de-emphasis and high-pass filters.
// Invariants: statuses, every decoded ISF vector keeps its stability gap, nothing is read or
// written outside the buffers.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;
using B = HeapBuf<Kvo16s>;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    static const Kvo32s kModes[] = {5, 9, 13, 15, 16, 18, 19, 20, 21, 25};
    B mem(16), hist(48), prev(16), isf(16), isp(16), old(16), lpc(17), back(16);
    HeapBuf<Kvo32s> syn(16 + 64);
    B exc(64), out(64), demem(1);
    KvoHighPassStateAMRWB hp;
    const Kvo16s a[3] = {4096, 7807, -3733}, b[3] = {3798, -7596, 3798};
    KVOSC_FUZZ_CHECK(kvosHighPassFilterInit_AMRWB_16s(a, b, 2, &hp) == kvoOk);
    for (int i = 0; i < 16; ++i) prev[i] = static_cast<Kvo16s>(400 * (i + 1));
    while (fdp.remaining_bytes() > 2) {
        const Kvo32s mode = kModes[fdp.ConsumeIntegralInRange<int>(0, 9)];
        const int kind = fdp.ConsumeIntegralInRange<int>(0, 3);
        B idx(fdp, 7);
        KvoStatus st;
        if (kind == 0)
            st = kvosISFQuantDecodeDTX_AMRWB_16s(idx, isf);
        else if (kind == 1)
            st = kvosISFQuantDecode_AMRWBE_16s(idx, isf, mem, prev, hist, fdp.ConsumeBool(),
                                               fdp.ConsumeIntegral<Kvo32s>());
        else
            st = kvosISFQuantDecode_AMRWB_16s(idx, isf, mem, prev, hist, kind == 3, mode);
        KVOSC_FUZZ_CHECK(st == kvoOk);
        for (int i = 1; i < 15; ++i) KVOSC_FUZZ_CHECK(isf[i] - isf[i - 1] >= 128 || isf[i] == 32767);
        std::memcpy(prev, isf, 32);
        KVOSC_FUZZ_CHECK(kvosISFToISP_AMRWB_16s(isf, isp, 16) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosISPToLPC_AMRWB_16s(isp, lpc, 16) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosLPCToISP_AMRWB_16s(lpc, back, isp) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosISPToISF_Norm_AMRWB_16s(back, old, 16) == kvoOk);
        B e(fdp, 64);
        KVOSC_FUZZ_CHECK(kvosSynthesisFilter_AMRWB_16s32s_I(lpc, 16, e, syn + 16, 64) == kvoOk);
        std::memmove(syn, syn + 64, 16 * sizeof(Kvo32s));
        KVOSC_FUZZ_CHECK(kvosDeemphasize_AMRWB_32s16s(11141, syn + 16, out, 64, demem) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosHighPassFilter_AMRWB_16s_ISfs(out, 64, &hp, 14) == kvoOk);
    }
    return 0;
}
