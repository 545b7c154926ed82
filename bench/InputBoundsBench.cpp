// Hostile and large inputs end fast: each of these should stay in milliseconds, whatever the size
// of the input, because the readers stop at their bounds instead of building what the input asks for.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/sim/SimDesktop.h"
#include "platform/sim/WorldFile.h"
#include "support/BoundedJson.h"
#include "support/MainQueue.h"
#include "support/Yaml.h"

// 40,000 '[': refused at the depth cap, not parsed whole.
static void BM_YamlDeepNestingRefused(benchmark::State& state) {
    const std::string text(40'000, '[');
    for (auto _ : state) {
        ferrow::YamlError error;
        benchmark::DoNotOptimize(ferrow::parseYaml(text, &error));
    }
}
BENCHMARK(BM_YamlDeepNestingRefused)->Unit(benchmark::kMicrosecond);

// A billion-value alias bomb: refused once the copies pass the value budget.
static void BM_YamlAliasBombRefused(benchmark::State& state) {
    std::string bomb = "a: &a [x, x, x, x, x, x, x, x, x, x]\n";
    for (char c = 'b'; c <= 'j'; ++c) {
        std::string prev(1, static_cast<char>(c - 1));
        bomb += std::string(1, c) + ": &" + c + " [";
        for (int i = 0; i < 10; ++i)
            bomb += (i ? ", *" : "*") + prev;
        bomb += "]\n";
    }
    for (auto _ : state) {
        ferrow::YamlError error;
        benchmark::DoNotOptimize(ferrow::parseYaml(bomb, &error));
    }
}
BENCHMARK(BM_YamlAliasBombRefused)->Unit(benchmark::kMillisecond);

// A settings file of 100,000 nested arrays: refused at the depth bound.
static void BM_SettingsJsonDeepNestingRefused(benchmark::State& state) {
    const std::string text = std::string(100'000, '[') + std::string(100'000, ']');
    for (auto _ : state) {
        std::string problem;
        benchmark::DoNotOptimize(ferrow::parseJsonBounded(text, 64, problem));
    }
}
BENCHMARK(BM_SettingsJsonDeepNestingRefused)->Unit(benchmark::kMicrosecond);

// A world of 16,000 running apps: every app is found by index, not by a scan of the list.
static void BM_LoadWorldOfManyApps(benchmark::State& state) {
    std::string yaml = "apps:\n";
    for (int i = 0; i < state.range(0); ++i)
        yaml +=
            "  - {bundleID: com.example.app" + std::to_string(i) + ", running: {windows: [{title: w}]}}\n";
    ferrow::MainQueue::install(std::make_shared<ferrow::VirtualClock>());
    for (auto _ : state) {
        zelk::sim::SimDesktop desktop;
        zelk::sim::WorldExtras extras;
        std::string error;
        if (!zelk::sim::loadWorldText(yaml, desktop, extras, error)) state.SkipWithError(error.c_str());
    }
    ferrow::MainQueue::reset();
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_LoadWorldOfManyApps)->Arg(1000)->Arg(16000)->Unit(benchmark::kMillisecond)->Complexity();
