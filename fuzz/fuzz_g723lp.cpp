// Fuzz target of the G.723.1 LP, filter and post-filter steps with arbitrary
// data: the LSF decoder (an unsettled vector is the previous one), the LSF
// quantiser (index fields within their bands), the filters on saturating
// input, and the post-filter decision (offset inside the searched lags, gain
// within the rate's limit).
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

void lsf(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> prev(fdp, 10), out(10), lsfIn(fdp, 10);
    const int32_t index = fdp.ConsumeIntegral<int32_t>();
    const int32_t erased = fdp.ConsumeIntegralInRange<int32_t>(0, 1);
    const KvoStatus st = kvosLSFDecode_G723_16s(index, prev, erased, out);
    KVOSC_FUZZ_CHECK(st == kvoOk || st == kvoWarnLsfLow);
    if (st == kvoWarnLsfLow)
        for (int i = 0; i < 10; ++i) KVOSC_FUZZ_CHECK(out[i] == prev[i]);
    int32_t q = -1;
    KVOSC_FUZZ_CHECK(kvosLSFQuant_G723_16s32s(lsfIn, prev, &q) == kvoOk);
    KVOSC_FUZZ_CHECK(q >= 0 && q <= 0xffffff);
}

void filters(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> coef(fdp, 20), x(fdp, 240), y(240);
    HeapBuf<int32_t> wide(fdp, 61), y32(60);
    KvoHighPassStateG723 hp = {fdp.ConsumeIntegral<int16_t>(), fdp.ConsumeIntegral<int32_t>()};
    KVOSC_FUZZ_CHECK(kvosHighPassFilter_G723_16s(x, y, &hp) == kvoOk);
    KvoIIRMemG723 m = {};
    KVOSC_FUZZ_CHECK(kvosIIR16s_G723_16s32s(coef, x, y32, &m) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosIIR16s_G723_16s_I(coef, y, &m) == kvoOk);
    const int32_t sf = fdp.ConsumeIntegralInRange<int32_t>(0, 40);
    KVOSC_FUZZ_CHECK(kvosIIR16s_G723_32s16s_Sfs(coef, wide, sf, y, &m) == kvoOk);
    int16_t mem[10] = {};
    KVOSC_FUZZ_CHECK(kvosSynthesisFilter_G723_16s(coef, x, mem, y) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosSynthesisFilter_G723_16s32s(coef, x, y32, mem) == kvoOk);
    const int32_t lag = fdp.ConsumeIntegralInRange<int32_t>(0, 120);
    KVOSC_FUZZ_CHECK(kvosHarmonicNoiseSubtract_G723_16s_I(coef[0], lag, x + 120, y) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosTiltCompensation_G723_32s16s(coef[1], wide, y) == kvoOk);
    int16_t g = fdp.ConsumeIntegral<int16_t>();
    const int32_t energy = fdp.ConsumeIntegral<int32_t>();
    const KvoStatus st = kvosGainControl_G723_16s_I(energy, y, &g);
    KVOSC_FUZZ_CHECK(energy < 0 ? st == kvoErrBadArg : st == kvoOk);
}

void postFilter(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> exc(fdp, 145 + 240);
    const int16_t lag = fdp.ConsumeIntegralInRange<int16_t>(18, 145);
    const int32_t sf = fdp.ConsumeIntegralInRange<int32_t>(0, 3);
    const int32_t rate = fdp.ConsumeBool() ? 2 : 4;
    int16_t d = 0, g = 0, s = 0;
    KVOSC_FUZZ_CHECK(kvosPitchPostFilter_G723_16s(lag, exc + 145, &d, &g, &s, sf, rate) == kvoOk);
    const int L = lag < 142 ? lag : 142;
    KVOSC_FUZZ_CHECK(d == 0 || (d < 0 ? (-d >= L - 3 && -d <= L + 3) : (d >= L - 3 && d <= L + 3)));
    KVOSC_FUZZ_CHECK(g >= 0 && g <= (rate == 2 ? 8192 : 6144));
    KVOSC_FUZZ_CHECK(s >= 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: lsf(fdp); break;
        case 1: filters(fdp); break;
        default: postFilter(fdp); break;
    }
    return 0;
}
