// Fuzz target of the filter kernels: arbitrary lengths, orders, coefficients, histories and
// states, every buffer on the heap at exactly the size the call may touch, so that any read or
// write outside the documented span is caught.  The saturating fast paths are also checked
// against the plain ordered chain.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kernels/filter.h"
#include "kvosc.h"

namespace {

struct Input {
    const uint8_t* p;
    size_t n;
    uint8_t byte() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
    Kvo16s s16() { return static_cast<Kvo16s>(byte() | (byte() << 8)); }
};

// Exact-size heap vector filled from the input (one element for an empty span).
struct Buf {
    Kvo16s* v;
    Buf(Input& in, int n) {
        v = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * (n > 0 ? n : 1)));
        for (int i = 0; i < n; ++i) v[i] = in.s16();
    }
    ~Buf() { std::free(v); }
    Buf(const Buf&) = delete;
    Buf& operator=(const Buf&) = delete;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const int which = in.byte() % 13;
    const int len = in.byte() % 130 - 2;   // -2 .. 127
    const int order = in.byte() % 34 - 1;  // -1 .. 32
    const int sf = 11 + in.byte() % 4;     // 11 .. 14
    const bool with_mem = in.byte() & 1;
    const int n = len > 0 ? len : 0;
    const int m = order > 0 ? order : 0;
    switch (which) {
        case 0: {
            Buf a(in, 11), mem(in, 10), src(in, n), dst(in, n);
            kvosSynthesisFilter_NR_16s_Sfs(a.v, src.v, dst.v, len, sf, with_mem ? mem.v : nullptr);
            break;
        }
        case 1: {
            Buf a(in, 11), mem(in, 10), io(in, n);
            kvosSynthesisFilter_NR_16s_ISfs(a.v, io.v, len, sf, with_mem ? mem.v : nullptr);
            break;
        }
        case 2: {
            Buf a(in, 11), mem(in, 10), io(in, n);
            kvosSynthesisFilterLow_NR_16s_ISfs(a.v, io.v, len, sf, with_mem ? mem.v : nullptr);
            break;
        }
        case 3: {
            Buf a(in, m + 1), mem(in, m), src(in, n), dst(in, n);
            kvosSynthesisFilter_G729E_16s(a.v, order, src.v, dst.v, len,
                                          with_mem ? mem.v : nullptr);
            break;
        }
        case 4: {
            Buf a(in, m + 1), mem(in, m), io(in, n);
            kvosSynthesisFilter_G729E_16s_I(a.v, order, io.v, len, with_mem ? mem.v : nullptr);
            break;
        }
        case 5: {
            Buf a(in, 11), dst(in, n);
            kvosSynthesisFilterZeroStateResponse_NR_16s(a.v, dst.v, len, sf);
            break;
        }
        case 6: {
            Buf a(in, 11), src(in, 50), dst(in, 40);
            kvosResidualFilter_G729_16s(src.v + 10, a.v, dst.v);
            break;
        }
        case 7: {
            const int span = m <= n ? m + n : 0;  // refused when order > len
            Buf a(in, m + 1), src(in, span), dst(in, n);
            kvosResidualFilter_G729E_16s(a.v, order, src.v + (span ? m : 0), dst.v, len);
            break;
        }
        case 8: {
            Buf c(in, 22), src(in, 50), dst(in, 40), mem(in, 10);
            if (with_mem)
                kvosIIR16s_G729_16s(c.v, src.v, dst.v, mem.v);
            else
                kvosIIR16sLow_G729_16s(c.v, src.v, dst.v, mem.v);
            break;
        }
        case 9: {
            const int lag = m;
            Buf src(in, lag + n), dst(in, n);
            const Kvo16s val = in.s16();
            if (with_mem)
                kvosHarmonicFilter_NR_16s(val, lag, src.v + lag, dst.v, len);
            else
                kvosHarmonicFilter_16s_I(val, lag, src.v + lag, len);
            break;
        }
        case 10: {
            Buf c(in, 6), io(in, n);
            auto* st =
                static_cast<KvoHighPassState_G729*>(std::malloc(sizeof(KvoHighPassState_G729)));
            kvosHighPassFilterInit_G729(c.v, st);
            st->y1 = static_cast<Kvo32s>(static_cast<Kvo32u>(static_cast<Kvo16u>(in.s16())) << 16 |
                                         static_cast<Kvo16u>(in.s16()));
            st->y2 = static_cast<Kvo32s>(static_cast<Kvo32u>(static_cast<Kvo16u>(in.s16())) << 16 |
                                         static_cast<Kvo16u>(in.s16()));
            kvosHighPassFilter_G729_16s_ISfs(io.v, len, sf, st);
            std::free(st);
            break;
        }
        case 11: {
            Buf src(in, 41), dst(in, 40);
            kvosTiltCompensation_G729E_16s(in.s16(), src.v, dst.v);
            break;
        }
        default:
            if (n > 0 && m > 0) {
                Buf a(in, m + 1), mem(in, m), src(in, n + m), y1(in, n), y2(in, n);
                const int s = 12 + (sf & 1);
                const bool f1 = kvo::synth_sat(a.v, m, src.v + m, y1.v, n, mem.v, s);
                const bool f2 = kvo::synth_sat_ordered(a.v, m, src.v + m, y2.v, n, mem.v, s);
                if (f1 != f2 || std::memcmp(y1.v, y2.v, sizeof(Kvo16s) * n) != 0) std::abort();
                kvo::residual_sat(a.v, m, src.v + m, y1.v, n);
                kvo::residual_sat_ordered(a.v, m, src.v + m, y2.v, n);
                if (std::memcmp(y1.v, y2.v, sizeof(Kvo16s) * n) != 0) std::abort();
            }
            break;
    }
    return 0;
}
