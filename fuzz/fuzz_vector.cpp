// Fuzz target of the vector layer: an operation, a scale or shift count, a
// length and sample data, every buffer exactly the length used.  SIMD paths
// are compared with their plain loops.
#include "common.h"
#include "numeric/vector.h"

using kvosc::fuzz::HeapBuf;
using namespace kvo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int op = fdp.ConsumeIntegralInRange(0, 15);
    const Kvo32s scale = fdp.ConsumeIntegral<int8_t>(), len = fdp.ConsumeIntegralInRange(1, 300);
    const size_t n = size_t(len);
    HeapBuf<Kvo16s> a(fdp, n), b(fdp, n), d16(n), e16(n);
    HeapBuf<Kvo32s> x(fdp, n), d32(n);
    HeapBuf<Kvo32f> f(fdp, n), d32f(n);
    HeapBuf<Kvo8u> d8(n);
    Kvo32s r32 = 0, idx = 0;
    Kvo16s r16 = 0;
    Kvo32f rf = 0;
    if (op == 0) {
        vec_scalar::add_16s(a, b, d16, len);
        vec_sse2::add_16s(a, b, e16, len);
        KVOSC_FUZZ_CHECK(d16.same_as(e16, n));
        kvosSub_16s(a, b, d16, len);
    }
    if (op == 1 && scale >= 0 && scale <= 30) {
        vec_scalar::mulc_16s_sfs(a, b[0], d16, len, scale);
        vec_sse2::mulc_16s_sfs(a, b[0], e16, len, scale);
        KVOSC_FUZZ_CHECK(d16.same_as(e16, n));
    }
    if (op == 1) kvosMulC_16s_Sfs(a, b[0], a, len, scale);  // in place
    if (op == 2) {
        KVOSC_FUZZ_CHECK(vec_scalar::dotprod_16s64s(a, b, len) ==
                         vec_sse2::dotprod_16s64s(a, b, len));
        kvosDotProd_16s32s_Sfs(a, b, len, &r32, scale);
    }
    if (op == 3) kvosAdd_32s_Sfs(x, x, d32, len, scale), kvosSum_32s_Sfs(x, len, &r32, scale);
    if (op == 4) kvosSubC_16s_Sfs(a, b[0], d16, len, scale);
    if (op == 4) kvosSubCRev_16s_Sfs(a, b[0], d16, len, scale);
    if (op == 5) kvosMul_16s32s_Sfs(a, b, d32, len, scale);
    if (op == 6)
        kvosMagSquared_32sc32s_Sfs(reinterpret_cast<Kvo32sc*>(x.data()), d32, len / 2, scale);
    if (op == 7) kvosRShiftC_16s(a, scale, d16, len), kvosLShiftC_16s(a, scale, d16, len);
    if (op == 7) kvosRShiftC_32s(x, scale, d32, len);
    if (op == 8) kvosLinToALaw_16s8u(a, d8, len), kvosLinToMuLaw_16s8u(a, d8, len);
    if (op == 9) kvosSum_16s32s_Sfs(a, len, &r32, scale), kvosSum_16s_Sfs(a, len, &r16, scale);
    if (op == 10) {
        kvosMaxIndx_32s(x, len, &r32, &idx);
        KVOSC_FUZZ_CHECK(idx >= 0 && idx < len && x[idx] == r32);
        kvosMinIndx_16s(a, len, &r16, &idx);
        KVOSC_FUZZ_CHECK(idx >= 0 && idx < len && a[idx] == r16);
        kvosMaxAbs_16s(a, len, &r16);
        KVOSC_FUZZ_CHECK(r16 >= 0);
    }
    if (op == 11) kvosSum_32f(f, len, &rf, scale & 1), kvosDotProd_32f(f, f, len, &rf);
    if (op == 12) {  // pSrc2 `bias` elements into f, len2 covering the rest of f
        const Kvo32s bias = (scale & 0x7f) % len, l1 = 1 + (b[0] & 0x7fff) % len;
        kvosConvBiased_32f(f, l1, f + bias, len - bias, d32f, len, bias);
    }
    if (op == 13) kvosThreshold_LTAbs_32f(f, d32f, len, 0.5f);
    if (op == 13) kvosThreshold_LTValGTVal_32f(f, d32f, len, -1.0f, -1.0f, 1.0f, 1.0f);
    if (op == 14) {
        HeapBuf<Kvo64f> g(fdp, n), o(n);
        kvosThreshold_LTInv_64f(g, o, len, (scale & 1) ? 0.0 : 1e-3);
        kvosConvert_64f32f(g, d32f, len);
    }
    const Kvo32s shift = (scale & 15) % len;
    if (op == 15)
        kvosMove_16s(a, a + shift, len - shift), kvosAdd_16s(a, a + shift, a, len - shift);
    return 0;
}
