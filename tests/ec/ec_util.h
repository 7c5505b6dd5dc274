// Helpers of the echo-canceller kernel tests: filter-bank holders, row sets, signals.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "kvosc.h"

namespace ectest {

// Caller memory at a chosen offset from a 64-byte boundary.
struct Block {
    std::vector<uint8_t> mem;
    uint8_t* p = nullptr;
    Block(size_t bytes, size_t offset) : mem(bytes + offset + 64) {
        auto a = reinterpret_cast<uintptr_t>(mem.data());
        p = reinterpret_cast<uint8_t*>(((a + 63) & ~uintptr_t{63}) + offset);
    }
};

// One filter-bank stream, float or 16-bit.
template <bool kFixed>
struct Bank {
    using St = std::conditional_t<kFixed, KvoSubbandProcess16sState, KvoSubbandProcess32fState>;
    Block state, init, work;
    St* st;
    int block, bands;
    static Kvo32s sizes(int order, int win, Kvo32s* s, Kvo32s* i, Kvo32s* w) {
        if constexpr (kFixed)
            return kvosSubbandProcessGetSize_16s(order, win, s, i, w);
        else
            return kvosSubbandProcessGetSize_32f(order, win, s, i, w);
    }
    static Kvo32s size(int order, int win, int which) {
        Kvo32s s[3] = {};
        sizes(order, win, &s[0], &s[1], &s[2]);
        return s[which];
    }
    template <class W>
    Bank(int order, int blockLen, int win, const W* window = nullptr, size_t offset = 0)
        : state(size(order, win, 0), offset),
          init(size(order, win, 1), offset),
          work(size(order, win, 2), offset),
          st(reinterpret_cast<St*>(state.p)),
          block(blockLen),
          bands((1 << (order - 1)) + 1) {
        Kvo32s r;
        if constexpr (kFixed)
            r = kvosSubbandProcessInit_16s(st, order, blockLen, win,
                                           reinterpret_cast<const Kvo16s*>(window), init.p);
        else
            r = kvosSubbandProcessInit_32f(st, order, blockLen, win,
                                           reinterpret_cast<const Kvo32f*>(window), init.p);
        ok = r == kvoOk;
    }
    Bank(int order, int blockLen, int win) : Bank(order, blockLen, win, (const void*)nullptr) {}
    bool ok = false;
};

inline std::vector<double> white(size_t n, double rms, uint32_t seed) {
    std::mt19937 g(seed);
    std::normal_distribution<double> d(0.0, rms);
    std::vector<double> x(n);
    for (auto& v : x) v = d(g);
    return x;
}

inline double power(const double* x, size_t n) {
    double s = 0;
    for (size_t i = 0; i < n; ++i) s += x[i] * x[i];
    return s / static_cast<double>(n);
}

inline double db(double ratio) {
    return 10.0 * std::log10(ratio);
}

// Row pointer set: rows of `bands` complex elements, each its own vector.
template <class C>
struct Rows {
    std::vector<std::vector<C>> data;
    std::vector<C*> ptr;
    std::vector<const C*> cptr;
    Rows(int rows, int bands)
        : data(static_cast<size_t>(rows), std::vector<C>(static_cast<size_t>(bands))) {
        for (auto& r : data) ptr.push_back(r.data());
        for (auto& r : data) cptr.push_back(r.data());
    }
    // Newest first: the last row's storage becomes row 0.
    void rotate() {
        std::rotate(data.begin(), data.end() - 1, data.end());
        ptr.clear();
        cptr.clear();
        for (auto& r : data) ptr.push_back(r.data());
        for (auto& r : data) cptr.push_back(r.data());
    }
};

}  // namespace ectest
