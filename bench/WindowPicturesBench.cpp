// Cost of making one window picture ready for the overview: a 2880x1800 window (a full Retina
// display) brought down to 1400 pixels on its longest side and hashed, on a capture thread. Target:
// under 5 ms per picture. The hash alone is measured too: it reads at most 65,536 bytes whatever the size.
#include <benchmark/benchmark.h>

#include "expose/WindowPicturesScale.h"
#include "platform/sim/SimWindowServer.h"

namespace {

using namespace zelk;

void BM_DownscaleAndHash2880x1800(benchmark::State& state) {
    const auto source = sim::drawSimWindow(42, "A document", 3, 2880, 1800);
    for (auto _ : state) {
        auto scaled = expose::downscaleAndHash(source, expose::pictures::kThumbnailLongestSide);
        benchmark::DoNotOptimize(scaled.hash);
    }
    state.counters["outWidth"] = 1400;
}
BENCHMARK(BM_DownscaleAndHash2880x1800)->Unit(benchmark::kMillisecond);

void BM_SampledHashOf1400x875(benchmark::State& state) {
    const auto scaled = expose::downscaleAndHash(sim::drawSimWindow(42, "A document", 3, 2880, 1800), 1400);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            expose::sampledPixelHash(scaled.image->pixels.data(), scaled.image->pixels.size()));
}
BENCHMARK(BM_SampledHashOf1400x875)->Unit(benchmark::kMicrosecond);

}  // namespace
