#include "support/alloc_count.h"

#include <errno.h>
#include <stdlib.h>

#include <cstdint>

#if defined(__SANITIZE_ADDRESS__)
#define KVOSC_ALLOC_HOOKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || \
    __has_feature(thread_sanitizer)
#define KVOSC_ALLOC_HOOKS 1
#endif
#endif

#ifdef KVOSC_ALLOC_HOOKS
#include <sanitizer/allocator_interface.h>
#endif

namespace {

// Initial-exec TLS in the executable: reading it never allocates.
__attribute__((tls_model("initial-exec"))) thread_local long t_allocs = 0;
__attribute__((tls_model("initial-exec"))) thread_local int t_active = 0;

inline void note_alloc(size_t) {
    if (t_active) ++t_allocs;
}

}  // namespace

#ifdef KVOSC_ALLOC_HOOKS

namespace kvosc::test {
bool allocation_counting_available() {
    static const bool installed = __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void*, size_t n) { note_alloc(n); }, [](const volatile void*) {});
    return installed;
}
}  // namespace kvosc::test

#else

// Interposition: the executable's definitions win over the C library's for
// every object in the process, including libkvocore's posix_memalign.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);

static void* counted(void* p) {
    if (p) note_alloc(0);
    return p;
}
void* malloc(size_t n) {
    return counted(__libc_malloc(n));
}
void* calloc(size_t n, size_t m) {
    return counted(__libc_calloc(n, m));
}
void* realloc(void* old, size_t n) {
    return counted(__libc_realloc(old, n));
}  // a resize too
void* aligned_alloc(size_t align, size_t n) {
    return counted(__libc_memalign(align, n));
}
void* memalign(size_t align, size_t n) {
    return counted(__libc_memalign(align, n));
}
int posix_memalign(void** out, size_t align, size_t n) {
    if (align < sizeof(void*) || (align & (align - 1))) return EINVAL;
    void* p = counted(__libc_memalign(align, n));
    if (!p) return ENOMEM;
    *out = p;
    return 0;
}
}  // extern "C"

namespace kvosc::test {
bool allocation_counting_available() {
    return true;
}
}  // namespace kvosc::test

#endif

namespace kvosc::test {

AllocCounter::AllocCounter() {
    allocation_counting_available();
    alloc0_ = t_allocs;
    ++t_active;
}
AllocCounter::~AllocCounter() {
    --t_active;
}
long AllocCounter::allocations() const {
    return t_allocs - alloc0_;
}

}  // namespace kvosc::test
