// "Ours against a peer, in the same run": one benchmark that times our call
// and the peer's call in alternating batches inside the same loop, so both
// see the same machine state, and reports
//   ours_ns     nanoseconds per call of ours,
//   peer_ns     nanoseconds per call of the peer,
//   peer/ours   the ratio (above 1: ours is faster).
// The benchmark's own time is ours (manual timing).
//
//   KVOSC_BENCH_PAIR(G729Autocorr, [] { kvosAutoCorr_NormE_16s32s(...); },
//                                  [] { peer_autocorr(...); });
//
// Both callables run `batch` times per iteration; keep them free of setup
// and make their results observable (benchmark::DoNotOptimize).
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

namespace kvosc::bench {

template <class Ours, class Peer>
benchmark::internal::Benchmark* register_pair(const std::string& name, Ours ours, Peer peer,
                                              int batch = 16) {
    auto run = [=](benchmark::State& st) {
        using clock = std::chrono::steady_clock;
        double t_ours = 0, t_peer = 0;
        long calls = 0;
        for (auto _ : st) {
            auto a = clock::now();
            for (int i = 0; i < batch; ++i) ours();
            auto b = clock::now();
            for (int i = 0; i < batch; ++i) peer();
            auto c = clock::now();
            double d_ours = std::chrono::duration<double>(b - a).count();
            t_ours += d_ours;
            t_peer += std::chrono::duration<double>(c - b).count();
            calls += batch;
            st.SetIterationTime(d_ours);
        }
        if (calls) {
            st.counters["ours_ns"] = t_ours * 1e9 / calls;
            st.counters["peer_ns"] = t_peer * 1e9 / calls;
            st.counters["peer/ours"] = t_ours > 0 ? t_peer / t_ours : 0;
        }
        st.SetItemsProcessed(calls);
    };
    return benchmark::RegisterBenchmark((name + "/ours_vs_peer").c_str(), run)->UseManualTime();
}

}  // namespace kvosc::bench

#define KVOSC_BENCH_PAIR_CAT2(a, b) a##b
#define KVOSC_BENCH_PAIR_CAT(a, b) KVOSC_BENCH_PAIR_CAT2(a, b)
// Registers a pair at start-up under the name `id`.
#define KVOSC_BENCH_PAIR(id, ours, peer)                                        \
    [[maybe_unused]] static auto* KVOSC_BENCH_PAIR_CAT(kvosc_pair_, __LINE__) = \
        ::kvosc::bench::register_pair(#id, ours, peer)
