// The whole agent on a desktop of many running apps: start-up of the managers (catalogue, running
// apps, assignments, window tracking) and one letter press, reported per app. Target: 16,000 apps
// within a second.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <sstream>
#include <string>

#include "ReplayRunner.h"
#include "support/Log.h"

namespace {

std::string manyAppsWorld(std::int64_t count) {
    std::string yaml = "apps:\n";
    for (std::int64_t i = 0; i < count; ++i)
        yaml += fmt::format(
            "  - {{bundleID: com.example.app{0}, name: {1}pp{0}, running: {{pid: {2}, windows: [{{id: {3}, "
            "title: w{0}, frame: [0, 25, 800, 600]}}]}}}}\n",
            i, static_cast<char>('A' + i % 26), 1000 + i, 100000 + i);
    return yaml + "frontmost: com.example.app0\nfocusedWindow: 100000\n";
}

}  // namespace

static void BM_AgentStartAndOneLetterOnManyApps(benchmark::State& state) {
    const std::string world = manyAppsWorld(state.range(0));
    const std::string script =
        "- {at: 1000, flags: [rightCommand]}\n- {at: 1100, tap: c}\n- {at: 1200, flags: []}\n";
    ferrow::Log::setConsole(false);
    for (auto _ : state) {
        std::stringstream out;
        zelk::agent::ReplayOptions options;
        options.jsonTrace = &out;
        std::string error;
        if (zelk::agent::ReplayRunner().run(world, script, options, error) != 0)
            state.SkipWithError(error.c_str());
    }
    // Seconds per app and iteration.
    state.counters["perApp"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_AgentStartAndOneLetterOnManyApps)
    ->Arg(1000)
    ->Arg(4000)
    ->Arg(16000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();
