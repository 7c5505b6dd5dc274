// One constant slot per export, holding the address of its implementation.
// The slots are relocated at load and then lie in RELRO memory: read-only for
// the life of the library.
#include <type_traits>

#include "impl.h"

#define KVO_PENDING(family, name)
#define KVO_EXPORT(family, name, fn)                                                 \
    static_assert(std::is_same_v<decltype(::name), decltype(kvo::impl::fn)>,        \
                  #name ": implementation type differs from the public prototype"); \
    extern "C" __attribute__((visibility("hidden"))) const void* const name##_arraddr = \
        reinterpret_cast<const void*>(&kvo::impl::fn);
#include "exports.def"
