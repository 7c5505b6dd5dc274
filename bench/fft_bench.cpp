// Real FFT, orders 5 to 10, forward (to Pack) and inverse, beside the single-precision
// real transform of FFTW when its header is present.  The library side calls the internal
// functions, so this file links against the internal archive.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "fft/fft.h"

namespace {

struct OwnFft {
    std::vector<Kvo8u> mem, init, work;
    kvo::KvoFFTSpec32f* fftSpec = nullptr;
    explicit OwnFft(int order) {
        Kvo32s s = 0, i = 0, w = 0;
        kvo::kvosFFTGetSize_R_32f(order, 8, 0, &s, &i, &w);
        mem.resize(s);
        init.resize(i + 1);
        work.resize(w + 1);
        kvo::kvosFFTInit_R_32f(&fftSpec, order, 8, 0, mem.data(), init.data());
    }
};

std::vector<float> signal(int n) {
    std::mt19937 g(1);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> x(n + 2);
    for (auto& v : x) v = d(g);
    return x;
}

void BM_FftFwdPack(benchmark::State& st) {
    const int order = static_cast<int>(st.range(0));
    OwnFft f(order);
    auto x = signal(1 << order);
    std::vector<float> y(x.size());
    for (auto _ : st) {
        kvo::kvosFFTFwd_RToPack_32f(x.data(), y.data(), f.fftSpec, f.work.data());
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_FftFwdPack)->DenseRange(5, 10);

void BM_FftInvPack(benchmark::State& st) {
    const int order = static_cast<int>(st.range(0));
    OwnFft f(order);
    auto x = signal(1 << order);
    std::vector<float> y(x.size());
    for (auto _ : st) {
        kvo::kvosFFTInv_PackToR_32f(x.data(), y.data(), f.fftSpec, f.work.data());
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_FftInvPack)->DenseRange(5, 10);

}  // namespace

#if __has_include(<fftw3.h>)
#include <fftw3.h>

namespace {

void BM_FftwR2C(benchmark::State& st) {
    const int n = 1 << st.range(0);
    float* in = fftwf_alloc_real(n);
    fftwf_complex* out = fftwf_alloc_complex(n / 2 + 1);
    fftwf_plan p = fftwf_plan_dft_r2c_1d(n, in, out, FFTW_MEASURE);
    auto x = signal(n);
    for (int i = 0; i < n; ++i) in[i] = x[i];
    for (auto _ : st) {
        fftwf_execute(p);
        benchmark::DoNotOptimize(out);
    }
    fftwf_destroy_plan(p);
    fftwf_free(in);
    fftwf_free(out);
}
BENCHMARK(BM_FftwR2C)->DenseRange(5, 10);

void BM_FftwC2R(benchmark::State& st) {
    const int n = 1 << st.range(0);
    float* out = fftwf_alloc_real(n);
    fftwf_complex* in = fftwf_alloc_complex(n / 2 + 1);
    fftwf_plan p = fftwf_plan_dft_c2r_1d(n, in, out, FFTW_MEASURE);
    auto x = signal(n + 2);
    for (auto _ : st) {
        // c2r destroys its input: refill it each time, as a caller would have fresh data.
        for (int i = 0; i <= n / 2; ++i) {
            in[i][0] = x[2 * i];
            in[i][1] = x[2 * i + 1];
        }
        fftwf_execute(p);
        benchmark::DoNotOptimize(out);
    }
    fftwf_destroy_plan(p);
    fftwf_free(in);
    fftwf_free(out);
}
BENCHMARK(BM_FftwC2R)->DenseRange(5, 10);

}  // namespace
#endif
