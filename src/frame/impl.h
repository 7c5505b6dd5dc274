// Declarations of the implementations behind the exports.  Each one takes the
// type of its public prototype, so a definition with another signature is a
// missing-declaration error and an unresolved symbol at link time.
#pragma once

#include "kvosc.h"

namespace kvo::impl {
#define KVO_PENDING(family, name)
#define KVO_EXPORT(family, name, fn) decltype(::name) fn;
#include "exports.def"
#undef KVO_EXPORT
#undef KVO_PENDING
}  // namespace kvo::impl
