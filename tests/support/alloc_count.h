// Counts heap allocations made on the calling thread while a guard is alive,
// to show that per-frame paths allocate nothing.  Every allocation entry of
// the C library is counted (and so operator new and the core library's
// allocator): a plain build interposes them, a sanitizer build counts through
// the sanitizer's allocation hooks.  Guards nest; counts are per thread.
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

// True when allocations are observed in this build; tests assert it first.
bool allocation_counting_available();

// Allocations made by f() on this thread.
template <class F>
long allocations_during(F&& f) {
    AllocCounter c;
    f();
    return c.allocations();
}

}  // namespace kvosc::test
