#include "numeric/cpu.h"

#include <cpuid.h>

namespace kvo {
namespace {

bool answerYes() { return true; }
bool answerNo() { return false; }

// Runs during relocation, before any constructor or sanitizer set-up.
__attribute__((no_sanitize("address", "undefined"))) bool detectAvx2() {
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
    const bool osxsave = c & (1u << 27), avx = c & (1u << 28);
    if (!osxsave || !avx) return false;
    unsigned lo, hi;
    __asm__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    if ((lo & 0x6) != 0x6) return false;  // XMM and YMM state enabled
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
    return b & (1u << 5);
}

}  // namespace
}  // namespace kvo

extern "C" {
using KvoBoolQuery = bool (*)();
KvoBoolQuery kvoResolveAvx2();
__attribute__((no_sanitize("address", "undefined"), used, visibility("hidden"))) KvoBoolQuery
kvoResolveAvx2() {
    return kvo::detectAvx2() ? kvo::answerYes : kvo::answerNo;
}
}

namespace kvo {
bool cpuHasAvx2() __attribute__((ifunc("kvoResolveAvx2")));
}  // namespace kvo
