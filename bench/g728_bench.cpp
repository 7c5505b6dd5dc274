// G.728 at 16 kbit/s per 2.5 ms adaptation cycle (20 samples): the assembled
// encoder and decoder (with and without post filter) of the kvosc tool on a
// one-second signal.  No open peer implementation exists to compare with.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "coders/coder.h"

namespace {

const std::vector<int16_t>& signal() {
    static const std::vector<int16_t> s = [] {
        std::vector<int16_t> v(8000);
        uint32_t seed = 777;
        for (size_t i = 0; i < v.size(); ++i) {
            seed = seed * 1664525u + 1013904223u;
            const double t = i / 8000.0;
            v[i] = static_cast<int16_t>(
                6000 * std::sin(2 * M_PI * (150 + 50 * std::sin(5 * t)) * t) +
                2000 * std::sin(2 * M_PI * 1200 * t) + static_cast<int>(seed >> 24) - 128);
        }
        return v;
    }();
    return s;
}

const kvosc::coders::Coder& coder() {
    return *kvosc::coders::find_coder("g728");
}

void BM_G728Encode(benchmark::State& st) {
    std::vector<uint8_t> out;
    std::string err;
    for (auto _ : st) {
        coder().encode({}, signal(), out, err);
        benchmark::DoNotOptimize(out.data());
    }
    st.counters["us_per_cycle"] = benchmark::Counter(
        400.0 * st.iterations(), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_G728Encode)->Unit(benchmark::kMillisecond);

void BM_G728Decode(benchmark::State& st) {
    std::vector<uint8_t> bits;
    std::string err;
    coder().encode({}, signal(), bits, err);
    kvosc::coders::Options opt;
    opt.values = {{"postfilter", st.range(0) ? "on" : "off"}};
    std::vector<int16_t> pcm;
    for (auto _ : st) {
        coder().decode(opt, bits, pcm, err);
        benchmark::DoNotOptimize(pcm.data());
    }
    st.counters["us_per_cycle"] = benchmark::Counter(
        400.0 * st.iterations(), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_G728Decode)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
