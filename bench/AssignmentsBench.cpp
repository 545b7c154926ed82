// One derivation of the dynamic letters over a large desktop: 300 installed apps, 60 of them
// running, a few static keys, learned picks and a recency list.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "apps/AppManager.h"
#include "config/Settings.h"
#include "platform/Platform.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace {

struct Desktop {
    std::shared_ptr<ferrow::VirtualClock> clock = std::make_shared<ferrow::VirtualClock>();
    zelk::sim::SimDesktop desktop;

    Desktop() {
        ferrow::Log::setConsole(false);
        ferrow::MainQueue::install(clock);
        zelk::Settings::reset();
        zelk::apps::AppManager::reset();
        static const char* kWords[] = {"Studio", "Notes",  "Player", "Mail",
                                       "Editor", "Viewer", "Sync",   "Tools"};
        static const char* kPrefixes[] = {"", "", "", "Google ", "Adobe ", "The ", "", "Microsoft "};
        const std::string initials = "abcdefghijklmnopqrstuvwxyz0123456789";
        nlohmann::json apps = nlohmann::json::array();
        for (int i = 0; i < 300; ++i) {
            std::string initial(1, initials[(i * 7) % initials.size()]);
            if (initial[0] >= 'a') initial[0] = static_cast<char>(initial[0] - 32);
            std::string name =
                std::string(kPrefixes[i % 8]) + initial + kWords[(i / 8) % 8] + " " + std::to_string(i);
            nlohmann::json a{{"bundleID", "com.example.app" + std::to_string(i)}, {"name", name}};
            if (i % 5 == 0) a["running"] = {{"pid", 1000 + i}, {"windows", nlohmann::json::array()}};
            apps.push_back(a);
        }
        zelk::sim::WorldExtras extras;
        std::string error;
        zelk::sim::loadWorld({{"apps", apps}}, desktop, extras, error);
        for (int i = 0; i < 300; ++i)
            desktop.workspace().bundleExtras["com.example.app" + std::to_string(i)].useCount = (i * 37) % 101;
        double now = clock->wallSeconds();
        nlohmann::json selections = nlohmann::json::object();
        for (int i = 0; i < 40; ++i)
            selections[fmt::format("{}{}", initials[i % 26], i)] = {
                {"bundleID", "com.example.app" + std::to_string(i * 5)},
                {"count", 1 + i % 4},
                {"lastPickedAt", now}};
        selections["k"] = {{"bundleID", "com.example.app25"}, {"count", 3}, {"lastPickedAt", now}};
        desktop.settings().write("searchQueryAppSelections", selections);
        zelk::platform::Platform::install(desktop.platform());
        auto& manager = zelk::apps::AppManager::shared();
        manager.start();
        manager.startInstalledAppsQuery();
        ferrow::MainQueue::shared().runUntil(ferrow::MainQueue::shared().now() + ferrow::ms(500));
        for (int i = 0; i < 3; ++i)
            manager.assign(manager.catalogue().byBundleIdentifier("com.example.app" + std::to_string(i * 10)),
                           std::string(1, initials[i]));
        for (int i = 0; i < 12; ++i)
            desktop.world().activate(1000 + i * 25);
        ferrow::MainQueue::shared().runUntil(ferrow::MainQueue::shared().now() + ferrow::ms(500));
    }
    ~Desktop() {
        zelk::apps::AppManager::reset();
        zelk::Settings::reset();
        zelk::platform::Platform::reset();
        ferrow::MainQueue::reset();
    }
};

// The throttled refresh: candidates sorted once per set of running apps, kept between refreshes.
void BM_DeriveAssignments(benchmark::State& state) {
    Desktop d;
    auto& manager = zelk::apps::AppManager::shared();
    state.counters["running"] = static_cast<double>(manager.runningApps().size());
    state.counters["installed"] = static_cast<double>(manager.catalogue().apps().size());
    std::size_t keys = 0;
    for (auto _ : state) {
        auto list = manager.computeDynamicAssignments(20);
        keys = list.size();
        benchmark::DoNotOptimize(list);
    }
    state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(BM_DeriveAssignments)->Unit(benchmark::kMicrosecond);

// After an activation or a launch: the candidates are sorted afresh.
void BM_DeriveAssignmentsAfterASwitch(benchmark::State& state) {
    Desktop d;
    auto& manager = zelk::apps::AppManager::shared();
    zelk::apps::AssignmentDeriver deriver;
    auto selections = zelk::Settings::shared().get(zelk::keys::searchQueryAppSelections);
    std::vector<std::string> prefixes{"google", "microsoft", "adobe", "the"};
    zelk::apps::DerivationContext context;
    context.running = &manager.runningApps();
    context.selections = &selections;
    context.recentApps = &manager.recentApps();
    context.statics = &manager.staticAssignments();
    context.optionalPrefixes = &prefixes;
    context.now = d.clock->wallSeconds();
    zelk::apps::RelatedApps related;
    for (auto _ : state) {
        deriver.clearCache();
        auto list =
            deriver.computeDynamicAssignments(context, 20, zelk::WhenAlreadyFocusedAction::hide, related);
        benchmark::DoNotOptimize(list);
    }
}
BENCHMARK(BM_DeriveAssignmentsAfterASwitch)->Unit(benchmark::kMicrosecond);

}  // namespace
