// The assembled multi-rate G.729 coder (apps/coders/g729.cpp, exports only)
// per 10 ms frame at 6.4 kbit/s (Annex D), at 8 kbit/s for reference, and at
// 11.8 kbit/s (Annex E, forward mode), on the same synthetic speech.  No peer
// implements Annex D or E.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "coders/g729.h"
#include "sample.h"

namespace {

using namespace kvosc::coders;

constexpr int kFrames = 200;

const std::vector<int16_t>& speech() {
    static const std::vector<int16_t> s = kvosc::synth_speech(kFrames / 100.0, 8000);
    return s;
}

g729::Rate rate_arg(const benchmark::State& st) {
    return st.range(0) == 64   ? g729::Rate::k6k4
           : st.range(0) == 80 ? g729::Rate::k8k
                               : g729::Rate::k11k8;
}

void BM_G729D_EncodeFrame(benchmark::State& st) {
    g729::Encoder enc(false);
    int16_t prm[g729::kParamsMax];
    int f = 0;
    for (auto _ : st) {
        enc.frame(speech().data() + 80 * f, prm, rate_arg(st));
        benchmark::DoNotOptimize(prm);
        f = (f + 1) % kFrames;
    }
    st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_G729D_EncodeFrame)->ArgName("bits")->Arg(64)->Arg(80)->Arg(118);

void BM_G729D_DecodeFrame(benchmark::State& st) {
    std::vector<int16_t> prms(g729::kParamsMax * kFrames);
    {
        g729::Encoder enc(false);
        for (int f = 0; f < kFrames; ++f)
            enc.frame(speech().data() + 80 * f, prms.data() + g729::kParamsMax * f, rate_arg(st));
    }
    g729::Decoder dec(false);
    int16_t pcm[g729::kFrame];
    int f = 0;
    for (auto _ : st) {
        dec.frame(prms.data() + g729::kParamsMax * f, false, pcm, rate_arg(st));
        benchmark::DoNotOptimize(pcm);
        f = (f + 1) % kFrames;
    }
    st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_G729D_DecodeFrame)->ArgName("bits")->Arg(64)->Arg(80)->Arg(118);

}  // namespace
