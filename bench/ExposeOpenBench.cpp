// Opening the overview with 200 windows over six Spaces on two displays, up to the first laid-out
// frame: the snapshot and its grouping by app, the Spaces, the selection, the layout of both screens
// and the picture request (our own work; the window sources answer from memory, and the captures the
// request starts run after the frame, outside the measure). Target: under 5 ms.
#include <benchmark/benchmark.h>

#include <random>

#include "../tests/expose/PictureWindowServer.h"
#include "expose/CapturedPictureSource.h"
#include "expose/ExposeController.h"
#include "expose/WindowPicturesCache.h"
#include "support/Clock.h"
#include "support/MainQueue.h"

namespace {

using namespace zelk;
using namespace zelk::expose;

struct Desktop {
    SnapshotInput input;
    std::vector<platform::DisplaySpaces> displays;
    std::vector<platform::Screen> screens;
};

Desktop makeDesktop(int windows) {
    Desktop d;
    d.screens.resize(2);
    d.screens[0] = {1, "Built-in", "D1", {0, 0, 1440, 900}, {0, 25, 1440, 875}, 2, true};
    d.screens[1] = {2, "Studio", "D2", {1440, 0, 2560, 1440}, {1440, 0, 2560, 1440}, 2, false};
    d.displays = {{"D1", {{1, 0}, {2, 0}, {3, 0}}, {1, 0}}, {"D2", {{4, 0}, {5, 0}, {6, 0}}, {4, 0}}};
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> x(0, 900), y(25, 500), w(300, 1400), h(200, 850);
    for (int i = 0; i < windows; ++i) {
        const int app = i % 40;
        const std::uint64_t space = static_cast<std::uint64_t>(1 + (i * 7) % 6);
        const double ox = space > 3 ? 1440 : 0;
        d.input.windows.push_back({static_cast<std::uint32_t>(1000 + i), "Window " + std::to_string(i),
                                   "App " + std::to_string(app), "com.example.app" + std::to_string(app),
                                   100 + app, Rect{ox + x(rng), y(rng), w(rng), h(rng)}, i % 17 == 0, space});
    }
    d.input.focusedWindowID = 1000;
    d.input.activeSpace = 1;
    d.input.letterFor = [](const std::string& bundle) -> std::optional<AppLetter> {
        const char c = static_cast<char>('a' + bundle.back() % 26);
        return AppLetter{std::string(1, c), true};
    };
    return d;
}

void BM_OpenOverview(benchmark::State& state) {
    auto clock = std::make_shared<ferrow::VirtualClock>();
    auto& queue = ferrow::MainQueue::install(clock);
    const Desktop desktop = makeDesktop(static_cast<int>(state.range(0)));
    ExposeEnvironment env;
    env.snapshotInput = [&] { return desktop.input; };
    env.displaySpaces = [&] { return desktop.displays; };
    env.screens = [&] { return desktop.screens; };
    zelk::testing::PictureWindowServer server;
    CapturedPictureSource pictures(server, std::make_unique<VirtualCaptureQueue>());
    ExposeManager manager(env);
    manager.setPictureSource(&pictures);
    std::size_t tiles = 0;
    for (auto _ : state) {
        // Every opening starts without pictures, as the first one after launch does: each window's
        // capture is queued at once.
        state.PauseTiming();
        ThumbnailCache::reset();
        state.ResumeTiming();
        manager.show();
        state.PauseTiming();
        tiles = 0;
        for (const auto& [key, layout] : manager.layouts())
            tiles += layout.tiles.size();
        manager.hide(true);
        queue.runUntil(queue.now() + ferrow::ms(500));
        state.ResumeTiming();
    }
    state.counters["tiles"] = static_cast<double>(tiles);
    manager.setPictureSource(nullptr);
    ThumbnailCache::reset();
    ferrow::MainQueue::reset();
}
BENCHMARK(BM_OpenOverview)->Arg(200)->Unit(benchmark::kMillisecond);

}  // namespace
