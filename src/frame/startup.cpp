// Load-time set-up: query the processor once and record which merged code
// path it would take.  Nothing reads the index; it is the only writable word
// of the library.
#include "kvocore.h"

extern "C" {
__attribute__((visibility("hidden"))) Kvo32s kvoJumpIndexForMergedDLL = 0;
}

namespace {

__attribute__((constructor)) void kvo_startup() {
    kvoGetCpuFeatures(nullptr, nullptr);
    Kvo64u mask = kvoGetEnabledCpuFeatures();
    kvoJumpIndexForMergedDLL = ((mask & 0x30) == 0x30) ? 1 : 0;
}

}  // namespace
