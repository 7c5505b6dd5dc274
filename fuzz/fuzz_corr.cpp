// Fuzz target of the correlation kernels: arbitrary lengths, lag counts,
// steps, scales and samples for every export and private kernel, each vector
// exactly the size the function may touch.
#include "common.h"
#include "kernels/corr.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int which = fdp.ConsumeIntegralInRange(0, 22);
    const Kvo32s len = fdp.ConsumeIntegralInRange(-4, 700),
                 lags = fdp.ConsumeIntegralInRange(-2, 67);
    const Kvo32s sf = fdp.ConsumeIntegralInRange(-39, 39), step = fdp.ConsumeIntegralInRange(1, 6);
    const size_t n = len > 0 ? size_t(len) : 0, l = lags > 0 ? size_t(lags) : 0;
    const size_t slide = n + (l ? l - 1 : 0);  // sliding operand of the lag forms
    const Kvo32s asf = sf < 0 ? -sf : sf;
    Kvo32s norm = 0;
    Kvo16s norm16 = 0;
    if (which < 3) {
        HeapBuf<Kvo16s> src(fdp, n), d16(l);
        HeapBuf<Kvo32s> d32(l);
        if (which == 0) kvosAutoCorr_NormE_16s32s(src, len, d32, lags, &norm);
        if (which == 1) kvosAutoCorr_NormE_NR_16s(src, len, d16, lags, &norm);
        if (which == 2) kvosAutoCorr_16s32s(src, len, d32, lags);
    } else if (which < 6) {  // fixed frames
        HeapBuf<Kvo16s> src(fdp, which == 5 ? 240 : 180), d16(11);
        HeapBuf<Kvo32s> d32(13);
        if (which == 3) kvosAutoCorr_NormE_G723_16s(src, d16, &norm);
        if (which == 4) kvosAutoCorr_G723_16s(src, &norm16, d16);
        if (which == 5) kvosAutoCorr_G729B(src, &norm16, d32);
    } else if (which < 9) {
        HeapBuf<Kvo16s> a(fdp, n), b(fdp, slide), d16(l);
        HeapBuf<Kvo32s> d32(l);
        if (which == 6) kvosCrossCorr_NR_16s(a, b, len, d16, lags);
        if (which == 7) kvosCrossCorr_NR_16s_Sfs(a, b, len, d16, lags, asf);
        if (which == 8) kvosCrossCorr_NR_16s32s(a, b, len, d32, lags);
    } else if (which < 15) {  // triangular correlations and partial convolutions
        HeapBuf<Kvo16s> a(fdp, n), b(fdp, n), d16(n);
        HeapBuf<Kvo32s> d32(n);
        if (which == 9) kvosCrossCorr_16s32s_Sfs(a, b, len, d32, sf);
        if (which == 10) kvosCrossCorr_NormM_16s(a, b, len, d16);
        if (which == 11) kvosConvPartial_16s_Sfs(a, b, d16, len, sf);
        if (which == 12) kvosConvPartial_16s32s(a, b, d32, len);
        if (which == 13) kvosConvPartial_NR_16s(a, b, d16, len);
        if (which == 14) kvosConvPartial_NR_Low_16s(a, b, d16, len);
    } else if (n && l) {  // private kernels: no checks, so sizes of at least 1
        const bool lagA = which == 16, lagB = which >= 17 && which <= 19;
        HeapBuf<Kvo16s> a(fdp, lagA ? slide : n), b(fdp, lagB ? slide : n),
            d16(which == 22 ? n : l);
        HeapBuf<Kvo32s> d32(l);
        Kvo32s shift = sf % 8;
        if (which == 15) kvo::kvosAutoCorr_G729_16s32s_Sfs_(a, len, d32, lags, sf & 31, step - 1);
        if (which == 16) kvo::kvosAutoCorr_Inv_16s32s_(a + l - 1, len, d32, lags);
        if (which == 17) kvo::kvosCrossCorr_Fwd_16s32s_(a, b, len, d32, lags);
        if (which == 18) kvo::kvosCrossCorr_Fwd_Low_16s32s_(a, b, len, d32, lags);
        if (which == 19) kvo::kvosCrossCorr_Inv_16s32s_(a, b + l - 1, len, d32, lags);
        if (which == 20) kvo::kvosCrossCorr_Step_NR_Sfs_16s_(a, b, len, step, d16, lags, asf);
        if (which == 21) kvo::kvosAutoCorr_NormE_Step_NR_16s_(a, len, step, d16, lags, &norm);
        if (which == 22) kvo::kvosCrossCorr_Norm_16s_(a, b, d16, len, &shift);
    }
    return 0;
}
