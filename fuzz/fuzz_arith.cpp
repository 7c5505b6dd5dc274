// Fuzz target of the exported fixed-point arithmetic, called through the
// implementations so they carry the fuzzer's coverage: arbitrary lengths,
// scales, data and misalignments; the vector paths are compared with their
// scalar twins.
#include "common.h"
#include "impl.h"
#include "numeric/arith.h"

using kvosc::fuzz::HeapBuf;
namespace impl = kvo::impl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int which = fdp.ConsumeIntegralInRange(0, 15);
    const Kvo32s len = fdp.ConsumeIntegralInRange(-1, 300), sf = fdp.ConsumeIntegralInRange(-2, 37);
    const Kvo16s v1 = fdp.ConsumeIntegral<Kvo16s>(), v2 = fdp.ConsumeIntegral<Kvo16s>();
    const size_t off = fdp.ConsumeIntegralInRange(0, 7), n = len > 0 ? size_t(len) : 1;
    HeapBuf<Kvo16s> a(fdp, n + off), b(fdp, n + off), d(n + off), e(n + off);
    HeapBuf<Kvo32s> w(fdp, n + 1), one(1);
    Kvo32s s = sf;
    Kvo16s seed = v1;
    const bool twin = len > 0 && sf >= 0;  // the scalar twins take no bad arguments
    const int m = sf & 31;
    // the twins: out-of-place forms, then the same call through the scalar loop
    if (which == 0) impl::kvosMul_NR_16s_Sfs(a, b + off, d + off, len, sf);
    if (which == 0 && twin) kvo::mulNR_16s_scalar(a, b + off, e + off, int(n), m);
    if (which == 1) impl::kvosMulC_NR_16s_Sfs(a + off, v1, d + off, len, sf);
    if (which == 1 && twin) kvo::mulCNR_16s_scalar(a + off, v1, e + off, int(n), m);
    if (which == 2) impl::kvosInterpolate_G729_16s(a + off, b, d + off, len);
    if (which == 2 && len > 0) kvo::interp_16s_scalar(a + off, b, e + off, int(n));
    if (which == 3) impl::kvosInterpolateC_G729_16s_Sfs(a, v1, b + off, v2, d + off, len, sf);
    if (which == 3 && twin) kvo::interpC_16s_scalar(a, v1, b + off, v2, e + off, int(n), m);
    if (which == 4) impl::kvosInterpolateC_NR_G729_16s_Sfs(a + off, v1, b, v2, d + off, len, sf);
    if (which == 4 && twin) kvo::interpCNR_16s_scalar(a + off, v1, b, v2, e + off, int(n), m);
    if (which <= 4 && (twin || (which == 2 && len > 0)))
        KVOSC_FUZZ_CHECK(std::memcmp(d + off, e + off, n * 2) == 0);
    if (which == 5) impl::kvosMul_NR_16s_ISfs(a, b + off, len, sf);
    if (which == 6) impl::kvosMulC_NR_16s_ISfs(v1, a + off, len, sf);
    if (which == 7) impl::kvosMulPowerC_NR_16s_Sfs(a, v1, d, len, sf);
    if (which == 8) impl::kvosAutoScale_16s(a, d, len, &s);
    if (which == 9) impl::kvosAutoScale_16s_I(a, len, &s);
    if (which == 10) impl::kvosDotProdAutoScale_16s32s_Sfs(a, b, len, one, &s);
    if (which == 11) impl::kvosDotProd_G729A_16s32s(a, b, len, one);
    if (which == 12) impl::kvosInvSqrt_32s_I(w, len);
    if (which == 13) impl::kvosLagWindow_G729_32s_I(w, len > 14 ? 14 : len);
    if (which == 14) impl::kvosRandomNoiseExcitation_G729B_16s(&seed, d, len);
    if (which == 15) {  // private workers
        kvo::ownAutoScale_NR_32s16s(w, d, int(n));
        Kvo16s ex = Kvo16s(v1 & 63), fr;
        kvo::ownLog2(w[0], &ex, &fr);
        (void)kvo::ownPow2(Kvo16s(v1 % 64), Kvo16s(v2 & 0x7fff));
        kvo::ownEnergy_16s32s(a, int(n / 2 + 1), w, int((n + 1) / 2));  // reads len + count - 1
    }
    return 0;
}
