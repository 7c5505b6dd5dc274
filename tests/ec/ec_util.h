// Helpers of the echo-canceller kernel tests: filter-bank streams, row sets, noise.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <type_traits>
#include <vector>

#include "kvosc.h"

namespace ectest {

// `off` bytes past the first 64-byte boundary of m (m carries 64 spare bytes).
inline uint8_t* at_offset(std::vector<uint8_t>& m, size_t off) {
    const auto a = reinterpret_cast<uintptr_t>(m.data());
    return reinterpret_cast<uint8_t*>(((a + 63) & ~uintptr_t{63}) + off);
}

// One filter-bank stream, float or 16-bit; record and work buffer at `offset`.
template <bool kFixed>
struct Bank {
    using St = std::conditional_t<kFixed, KvoSubbandProcess16sState, KvoSubbandProcess32fState>;
    using W = std::conditional_t<kFixed, Kvo16s, Kvo32f>;
    std::vector<uint8_t> mem, init, work;
    St* st;
    uint8_t* wb;
    int bands;
    bool ok;
    Bank(int order, int block, int win, const W* window = nullptr, size_t offset = 0)
        : bands((1 << (order - 1)) + 1) {
        Kvo32s s = 0, i = 0, w = 0;
        if constexpr (kFixed)
            kvosSubbandProcessGetSize_16s(order, win, &s, &i, &w);
        else
            kvosSubbandProcessGetSize_32f(order, win, &s, &i, &w);
        mem.resize(static_cast<size_t>(s) + offset + 64);
        init.resize(static_cast<size_t>(i) + 1);
        work.resize(static_cast<size_t>(w) + offset + 64);
        st = reinterpret_cast<St*>(at_offset(mem, offset));
        wb = at_offset(work, offset);
        if constexpr (kFixed)
            ok = kvosSubbandProcessInit_16s(st, order, block, win, window, init.data()) == kvoOk;
        else
            ok = kvosSubbandProcessInit_32f(st, order, block, win, window, init.data()) == kvoOk;
    }
};

// Rows of `bands` complex elements, each its own vector; ptr/cptr point at them.
template <class C>
struct Rows {
    std::vector<std::vector<C>> data;
    std::vector<C*> ptr;
    std::vector<const C*> cptr;
    Rows(int rows, int bands)
        : data(static_cast<size_t>(rows), std::vector<C>(static_cast<size_t>(bands))) {
        refresh();
    }
    void refresh() {
        ptr.clear();
        cptr.clear();
        for (auto& r : data) ptr.push_back(r.data()), cptr.push_back(r.data());
    }
    // Newest first: the last row's storage becomes row 0.
    void rotate() {
        std::rotate(data.begin(), data.end() - 1, data.end());
        refresh();
    }
};

inline std::vector<double> white(size_t n, double rms, uint32_t seed) {
    std::mt19937 g(seed);
    std::normal_distribution<double> d(0.0, rms);
    std::vector<double> x(n);
    for (auto& v : x) v = d(g);
    return x;
}

inline double db(double ratio) {
    return 10.0 * std::log10(ratio);
}

}  // namespace ectest
