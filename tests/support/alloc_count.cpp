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
struct Counts {
    long allocs, frees;
    size_t bytes;
};
__attribute__((tls_model("initial-exec"))) thread_local Counts t_counts = {0, 0, 0};
__attribute__((tls_model("initial-exec"))) thread_local int t_active = 0;

inline void note_alloc(size_t n) {
    if (t_active) {
        ++t_counts.allocs;
        t_counts.bytes += n;
    }
}
inline void note_free(const void* p) {
    if (t_active && p) ++t_counts.frees;
}

}  // namespace

#ifdef KVOSC_ALLOC_HOOKS

namespace {
void on_malloc(const volatile void*, size_t n) {
    note_alloc(n);
}
void on_free(const volatile void* p) {
    note_free(const_cast<const void*>(p));
}
bool install_hooks() {
    return __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free) != 0;
}
}  // namespace

namespace kvosc::test {
bool allocation_counting_available() {
    static const bool installed = install_hooks();
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
void __libc_free(void*);

void* malloc(size_t n) {
    void* p = __libc_malloc(n);
    if (p) note_alloc(n);
    return p;
}
void* calloc(size_t n, size_t m) {
    void* p = __libc_calloc(n, m);
    if (p) note_alloc(n * m);
    return p;
}
void* realloc(void* old, size_t n) {
    void* p = __libc_realloc(old, n);
    // A resize is an allocation; realloc(p, 0) that frees is a free.
    if (p) {
        note_alloc(n);
        if (old) note_free(old);
    } else if (old && n == 0) {
        note_free(old);
    }
    return p;
}
void free(void* p) {
    note_free(p);
    __libc_free(p);
}
int posix_memalign(void** out, size_t align, size_t n) {
    if (align < sizeof(void*) || (align & (align - 1))) return EINVAL;
    void* p = __libc_memalign(align, n);
    if (!p) return ENOMEM;
    note_alloc(n);
    *out = p;
    return 0;
}
void* aligned_alloc(size_t align, size_t n) {
    void* p = __libc_memalign(align, n);
    if (p) note_alloc(n);
    return p;
}
void* memalign(size_t align, size_t n) {
    void* p = __libc_memalign(align, n);
    if (p) note_alloc(n);
    return p;
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
    alloc0_ = t_counts.allocs;
    free0_ = t_counts.frees;
    bytes0_ = t_counts.bytes;
    ++t_active;
}
AllocCounter::~AllocCounter() {
    --t_active;
}
long AllocCounter::allocations() const {
    return t_counts.allocs - alloc0_;
}
long AllocCounter::frees() const {
    return t_counts.frees - free0_;
}
size_t AllocCounter::bytes() const {
    return t_counts.bytes - bytes0_;
}

}  // namespace kvosc::test
