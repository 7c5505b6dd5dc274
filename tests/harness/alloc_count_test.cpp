// The allocation counter sees every way a block can be obtained, inside and
// outside the library, only on the guarded thread and only while guarded.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <thread>
#include <vector>

#include "kvocore.h"
#include "support/alloc_count.h"

namespace kt = kvosc::test;

namespace {

// Keeps the compiler from removing an allocation whose result is unused.
template <class T>
void keep(T* p) {
    asm volatile("" : : "r"(p) : "memory");
}

TEST(AllocCounter, CountsEveryAllocationEntry) {
    ASSERT_TRUE(kt::allocation_counting_available());
    kt::AllocCounter c;
    void* a = malloc(10);
    keep(a);
    void* b = calloc(3, 4);
    keep(b);
    a = realloc(a, 100);
    keep(a);
    void* d = nullptr;
    ASSERT_EQ(posix_memalign(&d, 64, 32), 0);
    keep(d);
    int* e = new int[5];
    keep(e);
    EXPECT_EQ(c.allocations(), 5);
    EXPECT_GE(c.bytes(), 10u + 12 + 100 + 32 + 5 * sizeof(int));
    free(a);
    free(b);
    free(d);
    delete[] e;
    free(nullptr);
    EXPECT_GE(c.frees(), 4);
}

TEST(AllocCounter, SeesTheCoreLibraryAllocator) {
    long n = kt::allocations_during([] {
        void* p = kvoMalloc(256);
        keep(p);
        kvoFree(p);
    });
    EXPECT_EQ(n, 1);
    EXPECT_EQ(kt::allocations_during([] { keep(kvoMalloc(0)); }), 0);
}

TEST(AllocCounter, ZeroForArithmeticAndOtherThreads) {
    volatile int sink = 0;
    EXPECT_EQ(kt::allocations_during([&] {
                  for (int i = 0; i < 1000; ++i) sink = sink + i;
              }),
              0);
    kt::AllocCounter c;
    std::thread th;  // created before counting would show the thread's own start-up
    {
        kt::AllocCounter outer;
        std::thread other([] {
            void* p = malloc(64);
            keep(p);
            free(p);
        });
        long before_join = outer.allocations();  // the thread object itself may allocate
        other.join();
        EXPECT_EQ(outer.allocations(), before_join);
    }
    // Nested guards count the same blocks.
    kt::AllocCounter outer;
    {
        kt::AllocCounter inner;
        std::vector<int> v(10);
        keep(v.data());
        EXPECT_EQ(inner.allocations(), 1);
    }
    EXPECT_EQ(outer.allocations(), 1);
}

}  // namespace
