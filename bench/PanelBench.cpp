// The panel: building its model for 200 rows (target under 50 us), and drawing one frame.
#include <benchmark/benchmark.h>

#include <fmt/format.h>

#include "input/OSDModel.h"
#include "platform/draw/PanelPainter.h"

namespace {

using namespace zelk;
using namespace zelk::osd;

std::vector<OSDSection> rows(int n) {
    OSDSection s{"Open windows", {}};
    for (int i = 0; i < n; ++i)
        s.rows.push_back(OSDRow{std::to_string(1000 + i), std::string(1, char('a' + i % 26)),
                                fmt::format("Window number {} with a title of ordinary length", i), "Safari",
                                std::to_string(i % 4 + 1), i == 7, false, true, i % 9 == 0, true});
    return {s};
}

ModelInputs inputs() {
    ModelInputs in;
    in.view.appTriggerKeysPressed = true;
    in.view.showAppSwitcher = true;
    in.visibility = {false, true, 1.0, std::nullopt, true, 0};
    in.placement.frame = {1028, 288, 400, 600};
    in.texts.appFooter = true;
    return in;
}

void BM_BuildPanelModel200Rows(benchmark::State& state) {
    const auto source = rows(200);
    const auto in = inputs();
    for (auto _ : state) {
        // The rows arrive as a fresh list each time, as the providers hand them over.
        auto model = buildModel(in, source);
        benchmark::DoNotOptimize(model);
    }
}
BENCHMARK(BM_BuildPanelModel200Rows)->Unit(benchmark::kMicrosecond);

void BM_DrawPanelFrame(benchmark::State& state) {
    const auto model = buildModel(inputs(), rows(20));
    draw::ImageSurface surface(400, 600);
    for (auto _ : state) {
        draw::drawPanel(surface, model, {0, 0, 400, 600});
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DrawPanelFrame)->Unit(benchmark::kMillisecond);

void BM_DrawDesktopFrame(benchmark::State& state) {
    const auto model = buildModel(inputs(), rows(20));
    draw::DesktopPicture desktop;
    desktop.displays = {{{0, 0, 1440, 900}, "Built-in Retina Display"},
                        {{1440, 0, 2560, 1440}, "DELL U2720Q"}};
    for (int i = 0; i < 8; ++i)
        desktop.windows.push_back({{100.0 + i * 40, 80.0 + i * 30, 900, 600}, "Window", "App", i == 7});
    draw::ImageSurface surface(2000, 720);
    for (auto _ : state) {
        draw::drawDesktop(surface, desktop, model, 0.5);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DrawDesktopFrame)->Unit(benchmark::kMillisecond);

}  // namespace
