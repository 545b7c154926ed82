// A step of a running cycle checks its rows against the window list only when the list was published
// again since the last check; a published change still drops the vanished row under the highlight's
// window.
#include <gtest/gtest.h>

#include <set>

#include "input/InputManager.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"
#include "tabcycle/TabCycle.h"

namespace zelk::tabcycle {
namespace {

struct TabCycleStep : zelk::testing::SimFixture {
    CycleSnapshot world;
    std::set<std::uint32_t> live;
    std::uint64_t generation = 0;
    int checks = 0;
    std::vector<std::uint32_t> focused;

    void SetUp() override {
        ferrow::Log::setConsole(false);
        loadDefault();
        world.currentSpace = 1;
        world.ownPid = 1;
        for (std::uint32_t id : {1u, 2u, 3u, 4u}) {
            windows::ManagedWindow w;
            w.id = id;
            w.title = "w" + std::to_string(id);
            w.bundleIdentifier = "app" + std::to_string(id);
            w.appPid = 100;
            w.spaceID = 1;
            world.windows.push_back(w);
            world.mru.push_back(id);
            live.insert(id);
        }
        world.focused = world.windows.front();
    }
    void TearDown() override {
        InputManager::reset();
        SimFixture::TearDown();
    }
    TabCycleEnvironment environment(bool withGeneration) {
        TabCycleEnvironment env;
        env.snapshot = [this] { return world; };
        env.hasWindow = [this](std::uint32_t id) {
            ++checks;
            return live.count(id) > 0;
        };
        if (withGeneration) env.windowListGeneration = [this] { return generation; };
        env.focusWindow = [this](std::uint32_t id) {
            focused.push_back(id);
            return true;
        };
        return env;
    }
    // Window 3 closes: the list loses it (and is published again when `publish`).
    void close3(bool publish) {
        std::erase_if(world.windows, [](const windows::ManagedWindow& w) { return w.id == 3; });
        live.erase(3);
        if (publish) ++generation;
    }
    static std::vector<std::uint32_t> ids(const TabCycle& cycle) {
        std::vector<std::uint32_t> out;
        for (const auto& e : cycle.tabCycleEntries.get())
            out.push_back(e.id);
        return out;
    }
};

TEST_F(TabCycleStep, StepsCheckTheRowsOnlyAfterTheListWasPublished) {
    TabCycle cycle(InputManager::shared(), environment(true));
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    ASSERT_TRUE(cycle.cycling());
    EXPECT_EQ(cycle.tabCycleIndex.get(), 1u);
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    EXPECT_EQ(checks, 0);
    EXPECT_EQ(cycle.tabCycleIndex.get(), 3u);

    // Published: the next step checks once, drops window 3 and keeps the highlight on window 4
    // before stepping on from it (wrapping to the first row).
    close3(true);
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    EXPECT_GT(checks, 0);
    EXPECT_EQ(ids(cycle), (std::vector<std::uint32_t>{1, 2, 4}));
    EXPECT_EQ(cycle.tabCycleIndex.get(), 0u);
    const int afterChange = checks;
    cycle.handleTabCycle(true, TabCycleScope::allWindows);
    EXPECT_EQ(checks, afterChange);
    EXPECT_EQ(cycle.tabCycleIndex.get(), 2u);

    // Each step scheduled one live focus (the scope was asked for); only the last one runs.
    runFor(20);
    EXPECT_EQ(focused, (std::vector<std::uint32_t>{4}));
    cycle.resetTabCycle(false, false);
}

TEST_F(TabCycleStep, WithoutAGenerationEveryStepChecks) {
    TabCycle cycle(InputManager::shared(), environment(false));
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    EXPECT_GT(checks, 0);
    close3(false);
    cycle.handleTabCycle(false, TabCycleScope::allWindows);
    EXPECT_EQ(ids(cycle), (std::vector<std::uint32_t>{1, 2, 4}));
    cycle.resetTabCycle(false, false);
}

}  // namespace
}  // namespace zelk::tabcycle
