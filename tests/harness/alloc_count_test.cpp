// The allocation counter sees every way a block can be obtained, inside and
// outside the library, only on the guarded thread and only while guarded.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <thread>

#include "kvocore.h"
#include "support/alloc_count.h"

namespace kt = kvosc::test;

namespace {

// Keeps the compiler from removing an allocation whose result is unused.
void keep(void* p) {
    asm volatile("" : : "r"(p) : "memory");
}

TEST(AllocCounter, CountsEveryEntryOnThisThreadOnly) {
    ASSERT_TRUE(kt::allocation_counting_available());
    kt::AllocCounter outer;
    void *d = nullptr, *e = nullptr;
    {
        kt::AllocCounter inner;  // guards nest
        void* a = malloc(10);
        keep(a);
        void* b = calloc(3, 4);
        keep(b);
        a = realloc(a, 100);
        keep(a);
        ASSERT_EQ(posix_memalign(&d, 64, 32), 0);
        keep(d);
        int* n = new int[5];
        keep(n);
        e = kvoMalloc(256);  // the core library's allocator
        keep(e);
        EXPECT_EQ(inner.allocations(), 6);
        free(a), free(b), free(d), kvoFree(e);
        delete[] n;
    }
    EXPECT_EQ(outer.allocations(), 6);
    EXPECT_EQ(kt::allocations_during([] { keep(kvoMalloc(0)); }), 0);
    std::thread other([] {
        void* p = malloc(64);
        keep(p);
        free(p);
    });
    const long before_join = outer.allocations();  // the thread object itself may allocate
    other.join();
    EXPECT_EQ(outer.allocations(), before_join);
}

}  // namespace
