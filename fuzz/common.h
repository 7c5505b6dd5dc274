// Shared helpers of the libFuzzer targets (fuzz/fuzz_*.cpp).
//
// - FuzzedDataProvider: clang's byte reader (ConsumeIntegral,
//   ConsumeIntegralInRange, ConsumeBool, ConsumeBytes, remaining_bytes ...);
//   a small stand-in with the same core calls when the header is missing.
// - HeapBuf<T>: a vector of exactly n elements in its own heap block, so
//   AddressSanitizer reports any access one element past either end (a
//   std::vector's spare capacity or a stack array would hide it).
// - KVOSC_FUZZ_CHECK(cond): aborts with a message when an invariant breaks
//   (libFuzzer then keeps the input that broke it).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#if __has_include(<fuzzer/FuzzedDataProvider.h>)
#include <fuzzer/FuzzedDataProvider.h>
#else
// Minimal stand-in of clang's provider: values from the front of the data.
class FuzzedDataProvider {
  public:
    FuzzedDataProvider(const uint8_t* data, size_t size) : p_(data), n_(size) {}
    template <class T>
    T ConsumeIntegral() {
        return ConsumeIntegralInRange<T>(std::numeric_limits<T>::min(),
                                         std::numeric_limits<T>::max());
    }
    template <class T>
    T ConsumeIntegralInRange(T lo, T hi) {
        uint64_t range = static_cast<uint64_t>(hi) - static_cast<uint64_t>(lo), v = 0;
        for (size_t used = 0; used < sizeof(T) && n_ && (range >> (8 * used)); ++used) {
            v = (v << 8) | p_[n_ - 1];
            --n_;
        }
        if (range != UINT64_MAX) v %= range + 1;
        return static_cast<T>(static_cast<uint64_t>(lo) + v);
    }
    bool ConsumeBool() { return ConsumeIntegral<uint8_t>() & 1; }
    template <class T>
    std::vector<T> ConsumeBytes(size_t count) {
        size_t bytes = std::min(count * sizeof(T), n_ - n_ % sizeof(T));
        std::vector<T> out(bytes / sizeof(T));
        std::memcpy(out.data(), p_, bytes);
        p_ += bytes;
        n_ -= bytes;
        return out;
    }
    size_t remaining_bytes() const { return n_; }

  private:
    const uint8_t* p_;
    size_t n_;
};
#endif

#define KVOSC_FUZZ_CHECK(cond)                                                            \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)

namespace kvosc::fuzz {

template <class T>
class HeapBuf {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    // n elements, zero-filled.  n == 0 gives a valid pointer to no element.
    explicit HeapBuf(size_t n) : n_(n), p_(static_cast<T*>(std::malloc(n ? n * sizeof(T) : 1))) {
        if (n) std::memset(p_, 0, n * sizeof(T));
    }
    // n elements taken from the fuzzer's bytes (zero when they run out).
    HeapBuf(FuzzedDataProvider& fdp, size_t n) : HeapBuf(n) {
        std::vector<uint8_t> b = fdp.ConsumeBytes<uint8_t>(n * sizeof(T));
        if (!b.empty()) std::memcpy(p_, b.data(), b.size());
    }
    ~HeapBuf() { std::free(p_); }
    HeapBuf(const HeapBuf&) = delete;
    HeapBuf& operator=(const HeapBuf&) = delete;

    T* data() { return p_; }
    const T* data() const { return p_; }
    size_t size() const { return n_; }
    size_t bytes() const { return n_ * sizeof(T); }
    T& operator[](size_t i) { return p_[i]; }
    // Copy of the contents, to compare after a call that must not write.
    std::vector<uint8_t> snapshot() const {
        const auto* b = reinterpret_cast<const uint8_t*>(p_);
        return std::vector<uint8_t>(b, b + bytes());
    }
    bool same_as(const std::vector<uint8_t>& s) const {
        return s.size() == bytes() && (s.empty() || std::memcmp(s.data(), p_, s.size()) == 0);
    }

  private:
    size_t n_;
    T* p_;
};

}  // namespace kvosc::fuzz
