// The internal allocation wrappers: every length below 1 (and a float count
// whose byte size overflows 32 bits) gives null without reaching the core
// library; other lengths reach kvoMalloc with the byte count, and kvosFree
// hands the pointer to kvoFree.  The version query allocates nothing.
//
// This binary interposes kvoMalloc and kvoFree to watch the calls, and
// forwards them to the core library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "frame/alloc.h"
#include "kvocore.h"
#include "kvosc.h"
#include "support/alloc_count.h"

namespace {
int g_malloc_calls = 0, g_free_calls = 0;
Kvo32s g_last_len = 0;
void* g_last_freed = nullptr;
}  // namespace

extern "C" void* kvoMalloc(Kvo32s len) {
    ++g_malloc_calls;
    g_last_len = len;
    static auto real = reinterpret_cast<void* (*)(Kvo32s)>(dlsym(RTLD_NEXT, "kvoMalloc"));
    return real ? real(len) : nullptr;
}

extern "C" void kvoFree(void* p) {
    ++g_free_calls;
    g_last_freed = p;
    static auto real = reinterpret_cast<void (*)(void*)>(dlsym(RTLD_NEXT, "kvoFree"));
    if (real) real(p);
}

namespace {

TEST(Alloc, NonPositiveLengthsNeverReachTheCore) {
    const Kvo32s lens[] = {0, -1, -4096, INT32_MIN};
    for (Kvo32s len : lens) {
        SCOPED_TRACE(len);
        int before = g_malloc_calls;
        EXPECT_EQ(kvo::kvosMalloc_8u(len), nullptr);
        EXPECT_EQ(kvo::kvosMalloc_32f(len), nullptr);
        EXPECT_EQ(g_malloc_calls, before) << "kvoMalloc was called";
    }
    // 4 * len does not fit the core's signed 32-bit length.
    int before = g_malloc_calls;
    EXPECT_EQ(kvo::kvosMalloc_32f(0x20000000), nullptr);
    EXPECT_EQ(kvo::kvosMalloc_32f(INT32_MAX), nullptr);
    EXPECT_EQ(g_malloc_calls, before);
}

TEST(Alloc, LengthsReachTheCoreInBytesAndBlocksGoBack) {
    struct Row {
        bool floats;
        Kvo32s len, bytes;
    };
    const Row rows[] = {{false, 1, 1}, {false, 1000, 1000}, {true, 1, 4}, {true, 257, 1028}};
    for (const Row& r : rows) {
        SCOPED_TRACE(r.len);
        int calls = g_malloc_calls;
        void* p = r.floats ? kvo::kvosMalloc_32f(r.len) : kvo::kvosMalloc_8u(r.len);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(g_malloc_calls, calls + 1);
        EXPECT_EQ(g_last_len, r.bytes);
        // Aligned at least for the element type (the stand-in core gives 64).
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
        int frees = g_free_calls;
        kvo::kvosFree(p);
        EXPECT_EQ(g_free_calls, frees + 1);
        EXPECT_EQ(g_last_freed, p);
    }
}

TEST(Alloc, VersionQueryAllocatesNothing) {
    ASSERT_TRUE(kvosc::test::allocation_counting_available());
    EXPECT_EQ(kvosc::test::allocations_during([] {
                  for (int i = 0; i < 100; ++i) ASSERT_NE(kvoscGetLibVersion(), nullptr);
              }),
              0);
}

}  // namespace
