// The tab cycle: computing its rows over 400 tracked windows (target under 50 us), and one step of
// the highlight, with its check of the rows against the live list (target under 10 us).
#include <benchmark/benchmark.h>

#include <fmt/format.h>

#include <algorithm>

#include "input/InputManager.h"
#include "platform/Platform.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"
#include "support/MainQueue.h"
#include "tabcycle/TabCycle.h"

namespace {

using namespace zelk;
using namespace zelk::tabcycle;

// 400 windows of 40 apps over 4 Spaces, a tenth minimised, the most-recent order knowing 200 of them.
CycleSnapshot world(std::size_t n) {
    CycleSnapshot s;
    for (std::size_t i = 0; i < n; ++i) {
        windows::ManagedWindow w;
        w.id = static_cast<std::uint32_t>(1000 + i);
        w.title = fmt::format("Document {} with a title of ordinary length", i);
        w.bundleIdentifier = fmt::format("com.example.app{}", i % 40);
        w.appName = fmt::format("App {}", i % 40);
        w.appPid = static_cast<std::int32_t>(100 + i % 40);
        w.isMinimized = i % 10 == 0;
        w.spaceID = 1 + i % 4;
        s.windows.push_back(w);
    }
    for (std::size_t i = 0; i < 200; ++i)
        s.mru.push_back(static_cast<std::uint32_t>(1000 + (i * 7) % n));
    s.focused = s.windows[0];
    s.currentSpace = 1;
    s.ownPid = 1;
    s.hiddenBundles = {"com.example.app3", "com.example.app17"};
    return s;
}

void BM_TabCycleEntries400Windows(benchmark::State& state) {
    ferrow::Log::setConsole(false);
    const auto w = world(400);
    EntryRequest request;
    request.scope = static_cast<TabCycleScope>(state.range(0));
    for (auto _ : state) {
        auto rows = computeTabCycleEntries(w, request);
        benchmark::DoNotOptimize(rows);
    }
    state.counters["rows"] = static_cast<double>(computeTabCycleEntries(w, request).size());
}
BENCHMARK(BM_TabCycleEntries400Windows)
    ->Arg(static_cast<int>(TabCycleScope::auto_))
    ->Arg(static_cast<int>(TabCycleScope::allWindows))
    ->Unit(benchmark::kMicrosecond);

// A running cycle over all 400 windows on the simulated desktop's settings: one Tab.
void BM_TabCycleStep(benchmark::State& state) {
    ferrow::Log::setConsole(false);
    auto clock = std::make_shared<ferrow::VirtualClock>();
    ferrow::MainQueue::install(clock);
    sim::SimDesktop desktop;
    sim::WorldExtras extras;
    std::string error;
    sim::loadWorldText(sim::defaultWorldYaml(), desktop, extras, error);
    platform::Platform::install(desktop.platform());
    {
        const auto w = world(400);
        TabCycleEnvironment env;
        env.snapshot = [&w] { return w; };
        env.hasWindow = [&w](std::uint32_t id) {
            auto it =
                std::lower_bound(w.windows.begin(), w.windows.end(), id,
                                 [](const windows::ManagedWindow& m, std::uint32_t v) { return m.id < v; });
            return it != w.windows.end() && it->id == id;
        };
        TabCycle cycle(InputManager::shared(), env);
        cycle.handleTabCycle(false, TabCycleScope::allWindows);
        for (auto _ : state) {
            cycle.handleTabCycle(false, TabCycleScope::allWindows);
            benchmark::DoNotOptimize(cycle.tabCycleIndex.get());
        }
        state.counters["rows"] = static_cast<double>(cycle.tabCycleEntries.get().size());
        cycle.resetTabCycle(false, false);
    }
    InputManager::reset();
    platform::Platform::reset();
    ferrow::MainQueue::reset();
}
BENCHMARK(BM_TabCycleStep)->Unit(benchmark::kMicrosecond);

}  // namespace
