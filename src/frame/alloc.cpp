#include "alloc.h"

#include "kvocore.h"

namespace kvo {

void* kvosMalloc_8u(Kvo32s len) { return len > 0 ? kvoMalloc(len) : nullptr; }

void* kvosMalloc_32f(Kvo32s len) {
    if (len <= 0 || len > 0x1fffffff) return nullptr;
    return kvoMalloc(4 * len);
}

void kvosFree(void* ptr) { kvoFree(ptr); }

}  // namespace kvo
