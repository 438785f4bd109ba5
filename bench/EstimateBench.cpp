// The cost of one GetStreamerPerformance call on a filled rate table (target: under a microsecond).
#include "perf/PerfTable.h"

#include <framefeed/framefeed.h>

#include <benchmark/benchmark.h>

namespace {

void Estimate(benchmark::State& state) {
    PerfTable& table = ThePerfTable();
    for (size_t i = 0; i < PerfTable::cellCount; ++i) table.cells[i] = 100000000 + i;
    StreamConfig config{};
    config.format = PixelFormat::BayerRGGB;
    config.bitDepth = 12;
    config.bitsPerPixel = 12;
    config.inputCompression = CompressionCode::Raw;
    config.width = 1920;
    config.height = 1080;
    StreamParameters parameters{};
    parameters.scale = 2;
    parameters.demosaic = 1;
    parameters.compression = CompressionCode::Jpeg;
    for (auto _ : state) {
        benchmark::DoNotOptimize(config);
        benchmark::DoNotOptimize(GetStreamerPerformance(&config, &parameters));
    }
}
BENCHMARK(Estimate);

}  // namespace

BENCHMARK_MAIN();
