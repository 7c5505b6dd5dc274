// Fuzz target of the filter kernels: arbitrary lengths, orders, coefficients,
// histories and states, every buffer exactly the size the call may touch.  The
// saturating fast paths are also checked against the plain ordered chain.
#include "common.h"
#include "kernels/filter.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;
using B = HeapBuf<Kvo16s>;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int which = fdp.ConsumeIntegralInRange(0, 12), len = fdp.ConsumeIntegralInRange(-2, 127);
    const int order = fdp.ConsumeIntegralInRange(-1, 32), sf = fdp.ConsumeIntegralInRange(11, 14);
    const bool flag = fdp.ConsumeBool();
    const Kvo16s val = fdp.ConsumeIntegral<Kvo16s>();
    const size_t n = len > 0 ? size_t(len) : 0, m = order > 0 ? size_t(order) : 0;
    const bool anyOrder = which == 3 || which == 4 || which == 7 || which == 12;
    B a(fdp, anyOrder ? m + 1 : 11), mem(fdp, anyOrder ? m : 10);
    Kvo16s* mp = flag ? mem.data() : nullptr;
    // src doubles as the in-place vector; history (order or lag) lies before the pointer
    const size_t span = m <= n ? m + n : 0;  // refused when order > len
    size_t srcN = n, dstN = n, lead = 0;
    if (which == 6 || which == 8) srcN = 50, dstN = 40, lead = which == 6 ? 10 : 0;
    if (which == 11) srcN = 41, dstN = 40;
    if (which == 7) srcN = span, lead = span ? m : 0;
    if (which == 9 || which == 12) srcN = m + n, lead = m;
    B src(fdp, srcN), dst(dstN), y2(n), c(fdp, which == 8 ? 22 : 6);
    Kvo16s* x = src + lead;
    if (which == 0) kvosSynthesisFilter_NR_16s_Sfs(a, x, dst, len, sf, mp);
    if (which == 1) kvosSynthesisFilter_NR_16s_ISfs(a, x, len, sf, mp);
    if (which == 2) kvosSynthesisFilterLow_NR_16s_ISfs(a, x, len, sf, mp);
    if (which == 3) kvosSynthesisFilter_G729E_16s(a, order, x, dst, len, mp);
    if (which == 4) kvosSynthesisFilter_G729E_16s_I(a, order, x, len, mp);
    if (which == 5) kvosSynthesisFilterZeroStateResponse_NR_16s(a, dst, len, sf);
    if (which == 6) kvosResidualFilter_G729_16s(x, a, dst);
    if (which == 7) kvosResidualFilter_G729E_16s(a, order, x, dst, len);
    if (which == 8) (flag ? kvosIIR16s_G729_16s : kvosIIR16sLow_G729_16s)(c, x, dst, mem);
    if (which == 9 && flag) kvosHarmonicFilter_NR_16s(val, Kvo32s(m), x, dst, len);
    if (which == 9 && !flag) kvosHarmonicFilter_16s_I(val, Kvo32s(m), x, len);
    if (which == 11) kvosTiltCompensation_G729E_16s(val, x, dst);
    if (which == 10) {
        HeapBuf<KvoHighPassState_G729> st(1);
        kvosHighPassFilterInit_G729(c, st);
        st[0].y1 = fdp.ConsumeIntegral<Kvo32s>(), st[0].y2 = fdp.ConsumeIntegral<Kvo32s>();
        kvosHighPassFilter_G729_16s_ISfs(x, len, sf, st);
    }
    if (which == 12 && n && m) {  // the fast saturating chains against the ordered ones
        const int s = 12 + (sf & 1);
        const bool f1 = kvo::synth_sat(a, int(m), x, dst, int(n), mem, s);
        KVOSC_FUZZ_CHECK(f1 == kvo::synth_sat_ordered(a, int(m), x, y2, int(n), mem, s));
        KVOSC_FUZZ_CHECK(dst.same_as(y2, n));
        kvo::residual_sat(a, int(m), x, dst, int(n));
        kvo::residual_sat_ordered(a, int(m), x, y2, int(n));
        KVOSC_FUZZ_CHECK(dst.same_as(y2, n));
    }
    return 0;
}
