// Counts heap allocations made on the calling thread while a guard is alive,
// to show that per-frame paths allocate nothing:
//
//   kvosc::test::AllocCounter count;
//   kvosFoo(...);
//   EXPECT_EQ(count.allocations(), 0);
//
// Every allocation entry of the C library is counted: malloc, calloc,
// realloc, posix_memalign, aligned_alloc, memalign (and so operator new,
// which allocates through malloc, and the core library's kvoMalloc).  In a
// plain build the test binary interposes those functions and forwards to the
// C library; in a sanitizer build, where the sanitizer owns them, the
// sanitizer's allocation hooks count instead.  Guards nest; counts are per
// thread.
#pragma once

#include <cstddef>

namespace kvosc::test {

class AllocCounter {
  public:
    AllocCounter();
    ~AllocCounter();
    AllocCounter(const AllocCounter&) = delete;
    AllocCounter& operator=(const AllocCounter&) = delete;

    long allocations() const;  // blocks obtained since the guard was made

  private:
    long alloc0_;
};

// True when allocations are observed in this build (always on glibc and under
// the sanitizers); tests that rely on the counter assert it first.
bool allocation_counting_available();

// Allocations made by f() on this thread.
template <class F>
long allocations_during(F&& f) {
    AllocCounter c;
    f();
    return c.allocations();
}

}  // namespace kvosc::test
