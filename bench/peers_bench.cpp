// Reference timings of the peer libraries found at configure time, so every
// bench run records the machine's speed on the same tasks.  Family benches
// compare their steps against these peers with KVOSC_BENCH_PAIR.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "sample.h"

#if defined(KVOSC_HAVE_LIBGSM) && __has_include(<gsm.h>)
#include <gsm.h>

namespace {
// GSM 06.10 full rate: one 20 ms frame encoded and decoded.
void BM_Peer_GsmFr_EncodeDecodeFrame(benchmark::State& st) {
    std::vector<int16_t> pcm = kvosc::synth_speech(1.0, 8000);
    gsm enc = gsm_create(), dec = gsm_create();
    gsm_frame frame;
    gsm_signal out[160];
    size_t pos = 0;
    for (auto _ : st) {
        gsm_encode(enc, reinterpret_cast<gsm_signal*>(&pcm[pos]), frame);
        gsm_decode(dec, frame, out);
        benchmark::DoNotOptimize(out[0]);
        pos = (pos + 160) % (pcm.size() - 160);
    }
    gsm_destroy(enc);
    gsm_destroy(dec);
}
BENCHMARK(BM_Peer_GsmFr_EncodeDecodeFrame);
}  // namespace
#endif

#if defined(KVOSC_HAVE_FFTW) && __has_include(<fftw3.h>)
#include <fftw3.h>

namespace {
// Real forward FFT of 256 points, single precision.
void BM_Peer_Fftw_R2C_256(benchmark::State& st) {
    float* in = fftwf_alloc_real(256);
    fftwf_complex* out = fftwf_alloc_complex(129);
    for (int i = 0; i < 256; ++i) in[i] = static_cast<float>((i * 37) % 19) - 9.0f;
    fftwf_plan p = fftwf_plan_dft_r2c_1d(256, in, out, FFTW_ESTIMATE);
    for (auto _ : st) {
        fftwf_execute(p);
        benchmark::DoNotOptimize(out[0][0]);
    }
    fftwf_destroy_plan(p);
    fftwf_free(in);
    fftwf_free(out);
}
BENCHMARK(BM_Peer_Fftw_R2C_256);
}  // namespace
#endif
