// Costs of window tracking and focus on the simulated desktop with instant platform answers: a full
// refresh of 60 apps with 400 windows on 6 Spaces, and one focus call.
#include <benchmark/benchmark.h>

#include "platform/Platform.h"
#include "platform/sim/SimDesktop.h"
#include "spaces/ISSManager.h"
#include "support/Log.h"
#include "support/MainQueue.h"
#include "windows/WindowManager.h"

namespace {

struct Desk {
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    zelk::sim::SimDesktop desktop;
    std::unique_ptr<zelk::spaces::ISSManager> iss;
    std::unique_ptr<zelk::windows::WindowManager> wm;

    Desk() {
        ferrow::Log::setConsole(false);
        ferrow::MainQueue::install(clock);
        auto& world = desktop.world();
        zelk::sim::SimDisplay display;
        display.id = 1;
        display.frame = {0, 0, 1440, 900};
        for (std::uint64_t s = 1; s <= 6; ++s)
            display.spaces.push_back({s, false});
        world.addDisplay(display);
        std::uint32_t nextWindow = 1000;
        for (int a = 0; a < 60; ++a) {
            zelk::sim::SimApp app;
            app.bundleID = "bench.app" + std::to_string(a);
            app.name = "App " + std::to_string(a);
            world.addApp(app);
            std::vector<zelk::sim::SimWindow> windows;
            int count = a < 40 ? 7 : 6;  // 40 × 7 + 20 × 6 = 400
            for (int w = 0; w < count; ++w) {
                zelk::sim::SimWindow win;
                win.id = ++nextWindow;
                win.title = app.name + " window " + std::to_string(w);
                win.frame = {double(10 * w), 30, 800, 600};
                win.space = 1 + static_cast<std::uint64_t>((a + w) % 6);
                windows.push_back(win);
            }
            world.startRunning(app.bundleID, 2000 + a, false, windows);
        }
        world.setFrontmost("bench.app0", 0);
        zelk::platform::Platform::install(desktop.platform());
        auto p = desktop.platform();
        iss = std::make_unique<zelk::spaces::ISSManager>(*p.windowServer, p.screens, p.pointer);
        wm = std::make_unique<zelk::windows::WindowManager>(zelk::windows::WindowEnvironment::fromPlatform(p), *iss);
        wm->start();
        ferrow::MainQueue::shared().runDue();
    }
    ~Desk() {
        wm.reset();
        iss.reset();
        zelk::platform::Platform::reset();
        ferrow::MainQueue::reset();
    }
};

void BM_FullRefresh60Apps400Windows6Spaces(benchmark::State& state) {
    Desk desk;
    for (auto _ : state) {
        desk.wm->tracker().walk().invalidate();
        benchmark::DoNotOptimize(desk.wm->refreshWindows(true));
    }
    state.counters["windows"] = static_cast<double>(desk.wm->windows().size());
}
BENCHMARK(BM_FullRefresh60Apps400Windows6Spaces)->Unit(benchmark::kMicrosecond);

void BM_FocusSameSpaceWindow(benchmark::State& state) {
    Desk desk;
    // Two windows of different apps on the active Space.
    std::vector<zelk::windows::ManagedWindow> targets;
    for (auto& w : desk.wm->windows())
        if (w.spaceID == std::optional<std::uint64_t>(1) && (targets.empty() || targets[0].bundleIdentifier != w.bundleIdentifier))
            if (targets.size() < 2) targets.push_back(w);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(desk.wm->focus(targets[i++ % 2]));
        state.PauseTiming();
        ferrow::MainQueue::shared().runUntil(ferrow::MainQueue::shared().now() + ferrow::ms(500));
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FocusSameSpaceWindow)->Unit(benchmark::kMicrosecond);

}  // namespace
