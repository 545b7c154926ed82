// The configuration file both ways, for a large user's settings: 20 stages of four items and 200 key
// assignments (120 letters bound to apps, some letters to several, and 80 saved windows). Reading
// parses, checks and applies the file to settings that differ from it; writing builds the tree and
// its text. Target: each under 5 ms.
#include <benchmark/benchmark.h>

#include <fmt/format.h>

#include "config/ConfigSchema.h"
#include "config/SettingsCatalogue.h"
#include "platform/SettingsStore.h"
#include "support/Log.h"

namespace {

using nlohmann::json;
using namespace zelk;

json largeStages() {
    json stages = json::array();
    for (int s = 0; s < 20; ++s) {
        json items = json::array();
        for (int i = 0; i < 4; ++i)
            items.push_back({{"app", fmt::format("com.example.app{}", s * 4 + i)},
                             {"windowTitle", fmt::format("Project {} — window {}", s, i)},
                             {"position", i % 2 ? "left" : "right"}});
        stages.push_back({{"key", std::string(1, static_cast<char>('a' + s))},
                          {"name", fmt::format("Stage {} · Écriture", s)},
                          {"items", items}});
    }
    return stages;
}

void fill(platform::SettingsStore& store) {
    store.write("stages", largeStages());
    json assignments = json::array();
    const std::string letters = "abcdefghijklmnopqrstuvwxyz0123456789";
    for (int i = 0; i < 120; ++i)
        assignments.push_back({{"key", std::string(1, letters[static_cast<std::size_t>(i) % letters.size()])},
                               {"app",
                                {{"identifier", fmt::format("com.example.app{}", i)},
                                 {"path", fmt::format("/Applications/App {}.app", i)},
                                 {"originalName", fmt::format("App {}", i)}}},
                               {"index", 0},
                               {"whenAlreadyFocusedAction", i % 2 ? 5 : 3},
                               {"launchIfNotRunning", i % 3 != 0}});
    store.write("appKeyAssignments", assignments);
    json windows = json::array();
    for (int i = 0; i < 80; ++i)
        windows.push_back({{"key", std::string(1, letters[static_cast<std::size_t>(i) % letters.size()])},
                           {"appURL", fmt::format("file:///Applications/App%20{}.app", i / 20)},
                           {"name", fmt::format("Saved {}", i)},
                           {"actionKind", 0},
                           {"webURL", fmt::format("https://example.com/{}", i)}});
    store.write("windowKeyAssignments", windows);
    store.write("appSort", "score");
    store.write("searchQueryPins", {{"sa", "com.apple.Safari"}, {"te", "com.apple.Terminal"}});
}

void BM_ConfigReadAndApply(benchmark::State& state) {
    ferrow::Log::setConsole(false);
    platform::MemorySettingsStore source;
    fill(source);
    Settings sourceSettings(source);
    const std::string text = configfile::configText(sourceSettings);
    for (auto _ : state) {
        state.PauseTiming();
        platform::MemorySettingsStore target;
        Settings settings(target);
        state.ResumeTiming();
        std::string error;
        auto update = configfile::decodeConfig(text, settings, error);
        if (!update) state.SkipWithError(error.c_str());
        benchmark::DoNotOptimize(configfile::applyConfig(settings, *update));
    }
    state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(BM_ConfigReadAndApply)->Unit(benchmark::kMillisecond);

void BM_ConfigWrite(benchmark::State& state) {
    platform::MemorySettingsStore store;
    fill(store);
    Settings settings(store);
    for (auto _ : state)
        benchmark::DoNotOptimize(configfile::configText(settings));
}
BENCHMARK(BM_ConfigWrite)->Unit(benchmark::kMillisecond);

}  // namespace
