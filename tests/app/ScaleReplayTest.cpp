// The whole agent on worlds of many running apps: what start-up and one letter press ask of the
// desktop grows with the world, not with its square. Counted, never timed.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ReplayHelpers.h"
#include "platform/sim/SimDesktop.h"

using namespace zelk::agent;
using namespace zelk::testing;

namespace {

// `count` running apps with one window each; their names begin with every letter in turn.
std::string manyAppsWorld(int count) {
    std::string yaml = "apps:\n";
    for (int i = 0; i < count; ++i) {
        const char first = static_cast<char>('A' + i % 26);
        yaml += fmt::format(
            "  - {{bundleID: com.example.app{0}, name: {1}pp{0}, running: {{pid: {2}, windows: [{{id: {3}, "
            "title: w{0}, frame: [0, 25, 800, 600]}}]}}}}\n",
            i, first, 1000 + i, 100000 + i);
    }
    yaml += "frontmost: com.example.app0\nfocusedWindow: 100000\n";
    return yaml;
}

const char* kOneLetter = R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: c}
- {at: 1200, flags: []}
)";

struct ScaleRun {
    std::uint64_t lookupCost = 0;
    std::vector<nlohmann::json> events;
};

ScaleRun startAndPressALetter(int apps) {
    ScaleRun run;
    std::stringstream trace;
    ReplayOptions options;
    options.jsonTrace = &trace;
    options.atEnd = [&](zelk::sim::SimDesktop& desktop) { run.lookupCost = desktop.world().lookupCost(); };
    std::string error;
    EXPECT_EQ(ReplayRunner().run(manyAppsWorld(apps), kOneLetter, options, error), 0) << error;
    std::string line;
    while (std::getline(trace, line))
        run.events.push_back(nlohmann::json::parse(line));
    return run;
}

// The app that came to the front after the letter went down, or "".
std::string focusedAfterTheLetter(const std::vector<nlohmann::json>& events) {
    for (const auto& e : events)
        if (e["kind"] == "focus" && e["t"].get<double>() >= 1100) return e.value("bundleID", "");
    return "";
}

}  // namespace

// A look-up that scans every app, made once per app, costs four times as much on twice the world.
TEST(ReplayScale, StartAndOneLetterCostLookUpsInProportionToTheWorld) {
    const ScaleRun small = startAndPressALetter(300);
    const ScaleRun large = startAndPressALetter(600);
    ASSERT_GT(small.lookupCost, 0u);
    EXPECT_LT(large.lookupCost, small.lookupCost * 5 / 2)
        << "300 apps: " << small.lookupCost << ", 600 apps: " << large.lookupCost;
    const std::string front = focusedAfterTheLetter(large.events);
    EXPECT_TRUE(front.starts_with("com.example.app") && front != "com.example.app0")
        << "the letter brings another app to the front: " << front;
}
