// Fuzz target of the exported fixed-point arithmetic (called through the
// implementations, so that they carry the fuzzer's coverage): arbitrary lengths,
// scales and data through every export, and the vector paths checked
// against their scalar twins on the same input.
#include <cstdint>
#include <cstring>

#include "impl.h"
#include "numeric/arith.h"

namespace {

struct Reader {
    const uint8_t* p;
    size_t n;
    uint32_t u32() {
        uint32_t v = 0;
        for (int i = 0; i < 4 && n > 0; ++i, --n) v |= uint32_t(*p++) << (8 * i);
        return v;
    }
};

constexpr int kMax = 300;

void check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader r{data, size};
    const int which = int(r.u32() % 16);
    const Kvo32s len = Kvo32s(r.u32() % (kMax + 2)) - 1;  // -1 .. kMax
    const Kvo32s sf = Kvo32s(r.u32() % 40) - 2;           // -2 .. 37
    const Kvo16s v1 = Kvo16s(r.u32()), v2 = Kvo16s(r.u32());
    const int off = int(r.u32() % 8);
    alignas(16) Kvo16s a[kMax + 8] = {}, b[kMax + 8] = {}, d[kMax + 8], e[kMax + 8];
    alignas(16) Kvo32s w[kMax + 8] = {}, w2[kMax + 8];
    const size_t bytes = r.n < sizeof a ? r.n : sizeof a;
    std::memcpy(a, r.p, bytes);
    std::memcpy(b, r.p + bytes / 2, bytes / 2);
    std::memcpy(w, r.p, bytes);
    Kvo32s s = sf, sfs;
    Kvo16s seed = v1;
    const int n = len > 0 ? len : 1;
    const int m = sf & 31;
    switch (which) {
        case 0:
            kvo::impl::kvosMul_NR_16s_Sfs(a, b + off, d + off, len, sf);
            if (sf >= 0 && len > 0) {
                kvo::mulNR_16s_scalar(a, b + off, e + off, n, m);
                check(std::memcmp(d + off, e + off, sizeof(Kvo16s) * size_t(n)) == 0);
            }
            break;
        case 1:
            kvo::impl::kvosMul_NR_16s_ISfs(a, b + off, len, sf);
            break;
        case 2:
            kvo::impl::kvosMulC_NR_16s_Sfs(a + off, v1, d, len, sf);
            if (sf >= 0 && len > 0) {
                kvo::mulCNR_16s_scalar(a + off, v1, e, n, m);
                check(std::memcmp(d, e, sizeof(Kvo16s) * size_t(n)) == 0);
            }
            break;
        case 3:
            kvo::impl::kvosMulC_NR_16s_ISfs(v1, a + off, len, sf);
            break;
        case 4:
            kvo::impl::kvosMulPowerC_NR_16s_Sfs(a, v1, d, len, sf);
            break;
        case 5:
            kvo::impl::kvosAutoScale_16s(a, d, len, &s);
            break;
        case 6:
            kvo::impl::kvosAutoScale_16s_I(a, len, &s);
            break;
        case 7:
            kvo::impl::kvosDotProdAutoScale_16s32s_Sfs(a, b, len, w2, &sfs);
            break;
        case 8:
            kvo::impl::kvosDotProd_G729A_16s32s(a, b, len, w2);
            break;
        case 9:
            kvo::impl::kvosInvSqrt_32s_I(w, len);
            break;
        case 10:
            kvo::impl::kvosInterpolate_G729_16s(a + off, b, d, len);
            if (len > 0) {
                kvo::interp_16s_scalar(a + off, b, e, n);
                check(std::memcmp(d, e, sizeof(Kvo16s) * size_t(n)) == 0);
            }
            break;
        case 11:
            kvo::impl::kvosInterpolateC_G729_16s_Sfs(a, v1, b + off, v2, d + off, len, sf);
            if (sf >= 0 && len > 0) {
                kvo::interpC_16s_scalar(a, v1, b + off, v2, e + off, n, m);
                check(std::memcmp(d + off, e + off, sizeof(Kvo16s) * size_t(n)) == 0);
            }
            break;
        case 12:
            kvo::impl::kvosInterpolateC_NR_G729_16s_Sfs(a + off, v1, b, v2, d, len, sf);
            if (sf >= 0 && len > 0) {
                kvo::interpCNR_16s_scalar(a + off, v1, b, v2, e, n, m);
                check(std::memcmp(d, e, sizeof(Kvo16s) * size_t(n)) == 0);
            }
            break;
        case 13:
            kvo::impl::kvosLagWindow_G729_32s_I(w, len > 14 ? 14 : len);
            break;
        case 14:
            kvo::impl::kvosRandomNoiseExcitation_G729B_16s(&seed, d, len);
            break;
        default: {
            kvo::ownAutoScale_NR_32s16s(w, d, n);
            Kvo16s ex = Kvo16s(v1 & 63), fr;
            kvo::ownLog2(w[0], &ex, &fr);
            (void)kvo::ownPow2(Kvo16s(v1 % 64), Kvo16s(v2 & 0x7fff));
            kvo::ownEnergy_16s32s(a, n / 2 + 1, w2, n / 2 + 1);
            break;
        }
    }
    return 0;
}
