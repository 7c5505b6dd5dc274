// Fuzz target of the real FFT, its 16-bit wrapper, the float cross-correlation
// and the float-to-integer conversions.  Properties: a forward-inverse round
// trip gives the samples back, and every cross-correlation output is bounded
// by the Cauchy-Schwarz product of the inputs.
#include <cmath>

#include "common.h"
#include "fft/fft.h"
#include "numeric/vector_fft.h"

using kvosc::fuzz::HeapBuf;
using namespace kvo;

namespace {

float unit(FuzzedDataProvider& fdp) {
    return (fdp.ConsumeIntegral<uint8_t>() - 128) / 128.0f;
}

void roundTrip(FuzzedDataProvider& fdp) {
    const int order = fdp.ConsumeIntegralInRange(0, 12),
              flag = 1 << fdp.ConsumeIntegralInRange(0, 3);
    const int fmt = fdp.ConsumeIntegralInRange(0, 2), pad = fdp.ConsumeIntegralInRange(0, 63);
    const bool noWork = fdp.ConsumeBool();
    const int N = 1 << order;
    Kvo32s ss, is, ws;
    KVOSC_FUZZ_CHECK(kvosFFTGetSize_R_32f(order, flag, 0, &ss, &is, &ws) == kvoOk);
    HeapBuf<Kvo8u> mem{size_t(ss + pad)}, init{size_t(is)}, work{size_t(ws)};
    KvoFFTSpec32f* s = nullptr;
    KVOSC_FUZZ_CHECK(kvosFFTInit_R_32f(&s, order, flag, 0, mem + pad, init) == kvoOk);
    HeapBuf<float> x(N), y(N + 2), z(N + 2);
    for (int i = 0; i < N; ++i) x[i] = unit(fdp);
    Kvo8u* w = noWork ? nullptr : work.data();
    decltype(&kvosFFTFwd_RToPerm_32f) fwd[] = {kvosFFTFwd_RToPerm_32f, kvosFFTFwd_RToPack_32f,
                                               kvosFFTFwd_RToCCS_32f};
    decltype(&kvosFFTInv_PermToR_32f) inv[] = {kvosFFTInv_PermToR_32f, kvosFFTInv_PackToR_32f,
                                               kvosFFTInv_CCSToR_32f};
    KVOSC_FUZZ_CHECK(fwd[fmt](x, y, s, w) == kvoOk && inv[fmt](y, z, s, w) == kvoOk);
    const double back = flag == 8 ? N : 1.0, tol = 1e-5 * (order + 1) * back * std::sqrt(double(N));
    for (int i = 0; i < N; ++i) KVOSC_FUZZ_CHECK(std::fabs(z[i] - x[i] * back) <= tol);
    kvosFFTFree_R_32f(s);
}

void wrapper16(FuzzedDataProvider& fdp) {
    const int order = fdp.ConsumeIntegralInRange(0, 11),
              flag = 1 << fdp.ConsumeIntegralInRange(0, 3);
    const int sf = fdp.ConsumeIntegral<int8_t>(), N = 1 << order;
    Kvo32s ss, is, ws;
    KVOSC_FUZZ_CHECK(kvosFFTGetSize_R_16s32s(order, flag, 0, &ss, &is, &ws) == kvoOk);
    HeapBuf<Kvo8u> mem{size_t(ss)}, init{size_t(is)}, work{size_t(ws)};
    KvoFFTSpec16s* s = nullptr;
    KVOSC_FUZZ_CHECK(kvosFFTInit_R_16s32s(&s, order, flag, 0, mem, init) == kvoOk);
    HeapBuf<Kvo16s> x(fdp, N), z(N);
    HeapBuf<Kvo32s> y(N + 2);
    KVOSC_FUZZ_CHECK(kvosFFTFwd_RToCCS_16s32s_Sfs(x, y, s, sf, work) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosFFTInv_CCSToR_32s16s_Sfs(y, z, s, sf, nullptr) == kvoOk);
}

void crossCorr(FuzzedDataProvider& fdp) {
    const int len1 = fdp.ConsumeIntegralInRange(1, 3000),
              len2 = fdp.ConsumeIntegralInRange(1, 3000);
    const int dstLen = fdp.ConsumeIntegralInRange(1, 4000);
    const int32_t lowLag = fdp.ConsumeBool() ? fdp.ConsumeIntegral<int32_t>()
                                             : fdp.ConsumeIntegralInRange(-5999, 5999);
    HeapBuf<float> a(len1), b(len2), y(dstLen);
    double na = 0, nb = 0;
    for (int i = 0; i < len1; ++i) a[i] = unit(fdp), na += double(a[i]) * a[i];
    for (int i = 0; i < len2; ++i) b[i] = unit(fdp), nb += double(b[i]) * b[i];
    KVOSC_FUZZ_CHECK(kvosCrossCorr_32f(a, len1, b, len2, y, dstLen, lowLag) == kvoOk);
    const double bound = std::sqrt(na * nb) * (1 + 1e-4) + 1e-3;
    for (int i = 0; i < dstLen; ++i) KVOSC_FUZZ_CHECK(std::fabs(y[i]) <= bound);
}

void convert(FuzzedDataProvider& fdp) {
    const int mode = fdp.ConsumeIntegralInRange(0, 3), sf = fdp.ConsumeIntegral<int>();
    HeapBuf<float> v(fdp, 8);  // any bit pattern: NaN, infinities, denormals
    HeapBuf<Kvo16s> a(8);
    HeapBuf<Kvo32s> b(8);
    kvosConvert_32f16s_Sfs(v, a, 8, mode, sf);
    kvosConvert_32f32s_Sfs(v, b, 8, mode, sf);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    void (*const steps[])(FuzzedDataProvider&) = {roundTrip, wrapper16, crossCorr, convert};
    steps[fdp.ConsumeIntegralInRange(0, 3)](fdp);
    return 0;
}
