// The tab cycle: computing its rows over 400 tracked windows (target under 50 us), and one step of
// the highlight as the key router makes it on the running program (target under 10 us), beside the
// whole Tab press through the tap, which also rebuilds the panel's model.
#include <benchmark/benchmark.h>

#include <fmt/format.h>

#include "Agent.h"
#include "TabCycleService.h"
#include "input/InputManager.h"
#include "platform/Platform.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"
#include "support/MainQueue.h"
#include "tabcycle/TabCycle.h"

namespace {

using namespace zelk;
using namespace zelk::tabcycle;

constexpr std::size_t kWindows = 400;
constexpr std::size_t kApps = 40;
constexpr std::size_t kSpaces = 4;

// 400 windows of 40 apps over 4 Spaces, a tenth minimised, the most-recent order knowing 200 of them.
CycleSnapshot world(std::size_t n) {
    CycleSnapshot s;
    for (std::size_t i = 0; i < n; ++i) {
        windows::ManagedWindow w;
        w.id = static_cast<std::uint32_t>(1000 + i);
        w.title = fmt::format("Document {} with a title of ordinary length", i);
        w.bundleIdentifier = fmt::format("com.example.app{}", i % kApps);
        w.appName = fmt::format("App {}", i % kApps);
        w.appPid = static_cast<std::int32_t>(100 + i % kApps);
        w.isMinimized = i % 10 == 0;
        w.spaceID = 1 + i % kSpaces;
        s.windows.push_back(w);
    }
    for (std::size_t i = 0; i < 200; ++i)
        s.mru.push_back(static_cast<std::uint32_t>(1000 + (i * 7) % n));
    for (std::size_t i = 0; i < s.mru.size(); ++i)
        s.focusTimes[s.mru[i]] = static_cast<ferrow::Nanos>(1'000'000'000 - i);
    s.focused = s.windows[0];
    s.currentSpace = 1;
    s.ownPid = 1;
    s.hiddenBundles = {"com.example.app3", "com.example.app17"};
    return s;
}

void BM_TabCycleEntries400Windows(benchmark::State& state) {
    ferrow::Log::setConsole(false);
    const auto w = world(kWindows);
    EntryRequest request;
    request.scope = static_cast<TabCycleScope>(state.range(0));
    for (auto _ : state) {
        auto rows = computeTabCycleEntries(w, request);
        benchmark::DoNotOptimize(rows);
    }
    state.counters["rows"] = static_cast<double>(computeTabCycleEntries(w, request).size());
    state.SetLabel(scopeName(request.scope));
}
BENCHMARK(BM_TabCycleEntries400Windows)
    ->Arg(static_cast<int>(TabCycleScope::auto_))
    ->Arg(static_cast<int>(TabCycleScope::allWindows))
    ->Unit(benchmark::kMicrosecond);

// The same 400 windows as a world of the simulated desktop, on one display with four Spaces.
std::string worldYaml() {
    std::string yaml = "displays:\n  - {id: 1, frame: [0, 0, 1440, 900], spaces: [";
    for (std::size_t s = 0; s < kSpaces; ++s)
        yaml += fmt::format("{}{{id: {}}}", s ? ", " : "", s + 1);
    yaml += "], currentSpace: 1}\napps:\n";
    for (std::size_t a = 0; a < kApps; ++a) {
        yaml += fmt::format(
            "  - bundleID: com.example.app{0}\n    name: App {0}\n    running: {{pid: {1}, windows: [", a,
            100 + a);
        for (std::size_t i = a; i < kWindows; i += kApps)
            yaml += fmt::format(
                "{}{{id: {}, title: \"Document {} with a title of ordinary length\", frame: [40, 60, 900, "
                "700], "
                "space: {}, minimized: {}}}",
                i == a ? "" : ", ", 1000 + i, i, 1 + i % kSpaces, i % 10 == 0 ? "true" : "false");
        yaml += "]}\n";
    }
    return yaml +
           "frontmost: com.example.app1\nfocusedWindow: 1001\n"
           "settings: {hijackCommandTab: true, tabCycleScope: allWindows, tabCycleFocusOnKeyUp: false}\n";
}

// The running program on that desktop, with a Cmd-Tab cycle over all 400 windows under way (the
// panel up, the command key held, live focus on as the highlight moves).
struct CyclingProgram {
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    sim::SimDesktop desktop;
    std::unique_ptr<agent::Agent> agent;
    std::string error;

    CyclingProgram() {
        ferrow::Log::setConsole(false);
        ferrow::MainQueue::install(clock);
        sim::WorldExtras extras;
        if (!sim::loadWorldText(worldYaml(), desktop, extras, error)) return;
        for (auto& [key, value] : extras.settings.items())
            desktop.settings().write(key, value);
        platform::Platform::install(desktop.platform());
        agent = std::make_unique<agent::Agent>();
        agent->start();
        settle(ferrow::ms(1000));
        desktop.eventTap().setHeldModifiers({"lcmd"});
        settle(ferrow::ms(50));
        desktop.eventTap().key(Key::tab, true, false);
        desktop.eventTap().key(Key::tab, false, false);
        settle(ferrow::ms(300));
        if (!cycle().cycling()) error = "no tab cycle started";
    }
    ~CyclingProgram() {
        agent.reset();
        platform::Platform::reset();
        ferrow::MainQueue::reset();
    }
    TabCycle& cycle() { return agent->tabCycle().cycle(); }
    // Runs what is due in the next `t` (the live focus of the last step among it).
    void settle(ferrow::Nanos t) {
        ferrow::MainQueue::shared().runUntil(ferrow::MainQueue::shared().now() + t);
    }
};

// One step as the key router makes it for Tab or Down in a running cycle: the highlight moves and one
// live focus is scheduled. Every 256 steps, untimed, the queue runs the last live focus (its focus
// change publishes the window list again, so the next step checks its rows once).
void BM_TabCycleStep(benchmark::State& state) {
    CyclingProgram program;
    if (!program.error.empty()) {
        state.SkipWithError(program.error.c_str());
        return;
    }
    auto& input = InputManager::shared();
    std::size_t n = 0;
    for (auto _ : state) {
        input.currentKeyIsRepeat = false;
        input.handleTabCycleHook(false, input.tabCycleScopeOverride);
        benchmark::DoNotOptimize(program.cycle().tabCycleIndex.get());
        if (++n % 256 == 0) {
            state.PauseTiming();
            program.settle(ferrow::ms(20));
            state.ResumeTiming();
        }
    }
    state.counters["rows"] = static_cast<double>(program.cycle().tabCycleEntries.get().size());
}
BENCHMARK(BM_TabCycleStep)->Unit(benchmark::kMicrosecond);

// The whole Tab press (down and up) through the tap: routing, the step, and the panel's model built
// again for the moved highlight over its 400 rows.
void BM_TabCycleTabPressThroughTap(benchmark::State& state) {
    CyclingProgram program;
    if (!program.error.empty()) {
        state.SkipWithError(program.error.c_str());
        return;
    }
    auto& tap = program.desktop.eventTap();
    std::size_t n = 0;
    for (auto _ : state) {
        tap.key(Key::tab, true, false);
        tap.key(Key::tab, false, false);
        if (++n % 256 == 0) {
            state.PauseTiming();
            program.settle(ferrow::ms(20));
            state.ResumeTiming();
        }
    }
    state.counters["rows"] = static_cast<double>(program.cycle().tabCycleEntries.get().size());
}
BENCHMARK(BM_TabCycleTabPressThroughTap)->Unit(benchmark::kMicrosecond);

}  // namespace
