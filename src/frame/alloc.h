// Library-internal allocation: every allocation goes through the core library.
#pragma once

#include "kvosc_types.h"

namespace kvo {
void* kvosMalloc_8u(Kvo32s len);    // len bytes, null for len < 1
void* kvosMalloc_32f(Kvo32s len);   // len floats, null for len < 1
void kvosFree(void* ptr);
}  // namespace kvo
