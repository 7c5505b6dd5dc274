// Cost of the export path: a call through the exported name (stub, slot,
// indirect jump) against a direct call of the implementation.
#include <benchmark/benchmark.h>

#include "frame/impl.h"
#include "kvosc.h"
#include "ratio.h"

namespace {

void BM_VersionThroughExport(benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(kvoscGetLibVersion());
}
BENCHMARK(BM_VersionThroughExport);

// The "peer" here is the direct call: the ratio is the stub's overhead.
KVOSC_BENCH_PAIR(
    ExportStub, [] { benchmark::DoNotOptimize(kvoscGetLibVersion()); },
    [] { benchmark::DoNotOptimize(kvo::impl::kvoscGetLibVersion()); });

}  // namespace
