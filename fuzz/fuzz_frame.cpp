// Fuzz target of the library frame: the version record is constant and
// self-consistent, and the allocation wrappers give null for every
// non-positive length and a usable block otherwise.
#include "common.h"
#include "frame/alloc.h"
#include "kvosc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const KvoLibraryVersion* v = kvoscGetLibVersion();
    KVOSC_FUZZ_CHECK(v && v == kvoscGetLibVersion());
    char text[64];
    std::snprintf(text, sizeof text, "%d.%d.%d (r%d)", v->versionMajor, v->versionMinor,
                  v->buildMajor, v->revision);
    KVOSC_FUZZ_CHECK(std::strcmp(text, v->versionText) == 0);
    const int32_t len = fdp.ConsumeIntegralInRange<int32_t>(-(1 << 20), 1 << 16);
    const bool floats = fdp.ConsumeBool();
    void* p = floats ? kvo::kvosMalloc_32f(len) : kvo::kvosMalloc_8u(len);
    KVOSC_FUZZ_CHECK((p != nullptr) == (len > 0));
    if (p) std::memset(p, 0x5a, size_t(len) * (floats ? 4 : 1)), kvo::kvosFree(p);  // all usable
    return 0;
}
