// Shared helpers of the libFuzzer targets (fuzz/fuzz_*.cpp).
// - FuzzedDataProvider: clang's byte reader.
// - HeapBuf<T>: exactly n elements in their own heap block, so AddressSanitizer
//   reports any access one element past either end (spare capacity or a stack
//   array would hide it).
// - KVOSC_FUZZ_CHECK(cond): aborts with a message when an invariant breaks.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

#define KVOSC_FUZZ_CHECK(cond) kvosc::fuzz::check(cond, #cond, __FILE__, __LINE__)

namespace kvosc::fuzz {

inline void check(bool ok, const char* what, const char* file, int line) {
    if (ok) return;
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
    std::abort();
}

template <class T>
class HeapBuf {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    // n elements, zero-filled.  n == 0 gives a valid pointer to no element.
    explicit HeapBuf(size_t n) : n_(n), p_(static_cast<T*>(std::calloc(n ? n : 1, sizeof(T)))) {}
    // n elements taken from the fuzzer's bytes (zero when they run out).
    HeapBuf(FuzzedDataProvider& fdp, size_t n) : HeapBuf(n) {
        std::vector<uint8_t> b = fdp.ConsumeBytes<uint8_t>(n * sizeof(T));
        if (!b.empty()) std::memcpy(p_, b.data(), b.size());
    }
    ~HeapBuf() { std::free(p_); }
    HeapBuf(const HeapBuf&) = delete;
    HeapBuf& operator=(const HeapBuf&) = delete;

    T* data() { return p_; }
    operator T*() { return p_; }
    size_t size() const { return n_; }
    size_t bytes() const { return n_ * sizeof(T); }
    // Copy of the contents, to compare after a call that must not write.
    std::vector<uint8_t> snapshot() const {
        const auto* b = reinterpret_cast<const uint8_t*>(p_);
        return std::vector<uint8_t>(b, b + bytes());
    }
    bool same_as(const std::vector<uint8_t>& s) const {
        return s.size() == bytes() && (s.empty() || std::memcmp(s.data(), p_, s.size()) == 0);
    }
    bool same_as(const HeapBuf& o, size_t count) const {
        return count == 0 || std::memcmp(p_, o.p_, count * sizeof(T)) == 0;
    }

  private:
    size_t n_;
    T* p_;
};

}  // namespace kvosc::fuzz
