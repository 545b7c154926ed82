// The replay bench's own speed: an hour of virtual time with a few thousand events.
#include <benchmark/benchmark.h>

#include <sstream>

#include "ReplayRunner.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"

static void BM_ReplayHourOfVirtualTime(benchmark::State& state) {
    std::string script;
    for (int i = 0; i < 3600; ++i) {
        script += "- {at: " + std::to_string(i * 1000) + ", tap: h}\n";
        if (i % 60 == 0)
            script += "- {at: " + std::to_string(i * 1000 + 500) + ", activate: com.apple.mail}\n";
        if (i % 60 == 30)
            script += "- {at: " + std::to_string(i * 1000 + 500) + ", activate: com.apple.Safari}\n";
    }
    script += "- {at: 3600000, end: true}\n";
    ferrow::Log::setConsole(false);
    std::size_t bytes = 0;
    for (auto _ : state) {
        std::stringstream out;
        zelk::agent::ReplayOptions options;
        options.jsonTrace = &out;
        std::string error;
        int rc = zelk::agent::ReplayRunner().run(zelk::sim::defaultWorldYaml(), script, options, error);
        if (rc != 0) state.SkipWithError(error.c_str());
        bytes = out.str().size();
    }
    state.counters["traceBytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_ReplayHourOfVirtualTime)->Unit(benchmark::kMillisecond);
