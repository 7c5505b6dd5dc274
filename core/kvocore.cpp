// Stand-in for the core library: CPUID feature queries and 64-byte aligned
// allocation.
#include "kvocore.h"

#include <cpuid.h>
#include <stdlib.h>

namespace {

struct Regs {
    unsigned a = 0, b = 0, c = 0, d = 0;
};

Regs cpuid(unsigned leaf, unsigned sub) {
    Regs r;
    if (!__get_cpuid_count(leaf, sub, &r.a, &r.b, &r.c, &r.d)) r = Regs{};
    return r;
}

unsigned long long xgetbv0() {
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<unsigned long long>(hi) << 32) | lo;
}

Kvo64u cpu_mask(Regs* leaf1) {
    Regs r1 = cpuid(1, 0);
    Regs r7 = cpuid(0, 0).a >= 7 ? cpuid(7, 0) : Regs{};
    if (leaf1) *leaf1 = r1;
    Kvo64u m = 0;
    auto bit = [&](bool on, Kvo64u f) { if (on) m |= f; };
    bit(r1.d & (1u << 23), KVO_CPU_MMX);
    bit(r1.d & (1u << 25), KVO_CPU_SSE);
    bit(r1.d & (1u << 26), KVO_CPU_SSE2);
    bit(r1.c & (1u << 0), KVO_CPU_SSE3);
    bit(r1.c & (1u << 9), KVO_CPU_SSSE3);
    bit(r1.c & (1u << 19), KVO_CPU_SSE41);
    bit(r1.c & (1u << 20), KVO_CPU_SSE42);
    bit(r1.c & (1u << 28), KVO_CPU_AVX);
    bit(r1.c & (1u << 25), KVO_CPU_AES);
    bit(r1.c & (1u << 1), KVO_CPU_CLMUL);
    bit(r1.c & (1u << 29), KVO_CPU_F16C);
    bit(r1.c & (1u << 12), KVO_CPU_FMA);
    bit(r1.c & (1u << 23), KVO_CPU_POPCNT);
    bit(r7.b & (1u << 5), KVO_CPU_AVX2);
    bit(r7.b & (1u << 3), KVO_CPU_BMI1);
    bit(r7.b & (1u << 8), KVO_CPU_BMI2);
    bit(r7.b & (1u << 16), KVO_CPU_AVX512F);
    return m;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) KvoStatus kvoGetCpuFeatures(Kvo64u* pFeatureMask,
                                                                   Kvo32u* pCpuidRegs) {
    Regs r1;
    Kvo64u m = cpu_mask(&r1);
    if (pFeatureMask) *pFeatureMask = m;
    if (pCpuidRegs) {
        pCpuidRegs[0] = r1.a;
        pCpuidRegs[1] = r1.b;
        pCpuidRegs[2] = r1.c;
        pCpuidRegs[3] = r1.d;
    }
    return kvoOk;
}

__attribute__((visibility("default"))) Kvo64u kvoGetEnabledCpuFeatures(void) {
    Regs r1;
    Kvo64u m = cpu_mask(&r1);
    const Kvo64u avx_family = KVO_CPU_AVX | KVO_CPU_F16C | KVO_CPU_FMA | KVO_CPU_AVX2 |
                              KVO_CPU_AVX512F;
    bool osxsave = r1.c & (1u << 27);
    unsigned long long xcr0 = osxsave ? xgetbv0() : 0;
    if ((xcr0 & 0x6) != 0x6) m &= ~avx_family;           // XMM and YMM state
    if ((xcr0 & 0xe0) != 0xe0) m &= ~KVO_CPU_AVX512F;    // opmask and ZMM state
    return m;
}

__attribute__((visibility("default"))) void* kvoMalloc(Kvo32s len) {
    if (len < 1) return nullptr;
    void* p = nullptr;
    if (posix_memalign(&p, 64, static_cast<size_t>(len)) != 0) return nullptr;
    return p;
}

__attribute__((visibility("default"))) void kvoFree(void* ptr) { free(ptr); }

}  // extern "C"
