// The cycle's rows as pure functions of a snapshot: the filters, the most-recent order, the lone
// window's way out, closed rows, the filter threshold and the first step.
#include <gtest/gtest.h>

#include "support/Log.h"
#include "tabcycle/TabCycleEntries.h"

namespace zelk::tabcycle {
namespace {

windows::ManagedWindow window(std::uint32_t id, const std::string& bundle, std::uint64_t space,
                              bool minimised = false, std::int32_t pid = 100) {
    windows::ManagedWindow w;
    w.id = id;
    w.title = "w" + std::to_string(id);
    w.bundleIdentifier = bundle;
    w.appName = bundle;
    w.appPid = pid;
    w.spaceID = space;
    w.isMinimized = minimised;
    return w;
}

std::vector<std::uint32_t> ids(const std::vector<TabCycleEntry>& rows) {
    std::vector<std::uint32_t> out;
    for (auto& r : rows)
        out.push_back(r.id);
    return out;
}

struct TabCycleEntries : ::testing::Test {
    CycleSnapshot world;
    void SetUp() override {
        ferrow::Log::setConsole(false);
        world.currentSpace = 1;
        world.ownPid = 1;
        world.windows = {window(1, "safari", 1),      window(2, "mail", 1),           window(3, "safari", 2),
                         window(4, "notes", 1, true), window(5, "self", 1, false, 1), window(6, "hidden", 1)};
        world.hiddenBundles = {"hidden"};
        world.mru = {2, 1, 4};
        world.focused = world.windows[1];
        world.now = 1000 * ferrow::kNanosPerSecond;
        world.lastFocusChangeAt = world.now - ferrow::kNanosPerSecond;
    }
};

TEST_F(TabCycleEntries, FiltersInOrderAndSortsByRecency) {
    EntryRequest r;
    r.include = TabCycleFilter(0);
    // This process, the other Space, the minimised window and the hidden app are left out.
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2, 1}));
    r.include = TabCycleFilter(0x3);
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2, 1, 4, 6}));
    // All windows: every Space; windows the order doesn't know follow in list order.
    r.scope = TabCycleScope::allWindows;
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2, 1, 4, 3, 6}));
    // A search sees minimised windows and hidden apps whatever the setting.
    r.include = TabCycleFilter(0);
    r.forSearch = true;
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2, 1, 4, 3, 6}));
}

TEST_F(TabCycleEntries, SameAppFollowsTheFocusedWindowElseTheFrontmostApp) {
    EntryRequest r;
    r.scope = TabCycleScope::sameApp;
    world.focused = world.windows[0];
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{1, 3}));
    world.focused.reset();
    world.frontmostBundle = "mail";
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2}));
    world.frontmostBundle.reset();
    EXPECT_TRUE(computeTabCycleEntries(world, r).empty());
}

TEST_F(TabCycleEntries, TheStageScopeWithoutAStageIsEmptyAndAutoNarrowsToTheStage) {
    EntryRequest r;
    r.scope = TabCycleScope::activeStage;
    EXPECT_TRUE(computeTabCycleEntries(world, r).empty());
    world.activeStage = StageMembers{"w", {"mail"}, {1}};
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2, 1}));
    r.scope = TabCycleScope::auto_;
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{2, 1}));
    // Expanded, `auto` is all windows and the stage no longer narrows it.
    r.allWindowsExpanded = true;
    EXPECT_EQ(computeTabCycleEntries(world, r).size(), 6u - 1u);
}

TEST_F(TabCycleEntries, ALoneWindowOffersTheLastOtherAppWhileSwitchingIsRecent) {
    world.windows = {window(1, "safari", 1), window(2, "mail", 2), window(3, "notes", 2)};
    world.mru = {1, 3, 2};
    world.hiddenBundles.clear();
    EntryRequest r;
    EXPECT_EQ(ids(computeTabCycleEntries(world, r)), (std::vector<std::uint32_t>{1, 3}));
    // Unknown recency counts as recent; two minutes back does not.
    world.lastFocusChangeAt.reset();
    EXPECT_EQ(computeTabCycleEntries(world, r).size(), 2u);
    world.lastFocusChangeAt = world.now - 120 * ferrow::kNanosPerSecond;
    EXPECT_EQ(computeTabCycleEntries(world, r).size(), 1u);
    // Only `auto` does it.
    world.lastFocusChangeAt = world.now;
    r.scope = TabCycleScope::currentSpace;
    EXPECT_EQ(computeTabCycleEntries(world, r).size(), 1u);
}

// This build has no settings window, so the service never reports one open; the rule stands ready.
TEST_F(TabCycleEntries, AnOpenSettingsWindowIsARowWhileZelkWasInFrontLately) {
    world.ownBundleID = "com.ferrowlabs.zelk";
    EntryRequest r;
    r.include = TabCycleFilter(0);
    auto titles = [&] {
        std::vector<std::string> out;
        for (const auto& e : computeTabCycleEntries(world, r))
            out.push_back(e.title);
        return out;
    };
    world.zelkAwareFrontmost = {"mail", "com.ferrowlabs.zelk"};
    EXPECT_EQ(titles(), (std::vector<std::string>{"w2", "w1"}));  // closed: no row
    world.settingsWindowOpen = true;
    // Frontmost last: first; one before: last; further back: none.
    EXPECT_EQ(titles(), (std::vector<std::string>{"zelk Settings", "w2", "w1"}));
    world.zelkAwareFrontmost = {"com.ferrowlabs.zelk", "mail"};
    EXPECT_EQ(titles(), (std::vector<std::string>{"w2", "w1", "zelk Settings"}));
    world.zelkAwareFrontmost = {"com.ferrowlabs.zelk", "mail", "safari"};
    EXPECT_EQ(titles(), (std::vector<std::string>{"w2", "w1"}));
    world.zelkAwareFrontmost = {"mail", "com.ferrowlabs.zelk"};
    const auto row = computeTabCycleEntries(world, r).front();
    EXPECT_EQ(row.appName, "zelk");
    EXPECT_EQ(row.bundleIdentifier, "com.ferrowlabs.zelk");
    EXPECT_EQ(row.id, 0u);
    // Not in the same-app scope.
    r.scope = TabCycleScope::sameApp;
    EXPECT_EQ(titles(), (std::vector<std::string>{"w2"}));
}

TEST_F(TabCycleEntries, ClosedRowsFollowTheLiveOnesAndTheFirstStepNeverLandsOnOne) {
    EntryRequest r;
    auto live = computeTabCycleEntries(world, r);
    std::vector<ClosedWindowRow> closed{{"u1", 9, "", "Old", "safari", 1},
                                        {"u2", 1, "dup", "Safari", "safari", 1},
                                        {"u3", 8, "away", "Mail", "mail", 2}};
    auto rows = computeClosedEntries(world, r, closed, live);
    ASSERT_EQ(rows.size(), 2u);  // the one still open is left out
    EXPECT_EQ(rows[0].rowID(), "rel-u1");
    EXPECT_EQ(rows[0].title, "(Untitled)");
    r.scope = TabCycleScope::currentSpace;
    EXPECT_EQ(computeClosedEntries(world, r, closed, live).size(), 1u);

    std::vector<TabCycleEntry> cycle{live[0], rows[0], live[1]};
    EXPECT_EQ(stepIndex(cycle, 0, false, true), 0u);  // stays on the start
    EXPECT_EQ(stepIndex(cycle, 0, false, false), 1u);
    EXPECT_EQ(stepIndex(cycle, 0, true, true), 2u);  // back wraps to the last
}

TEST(TabCycleFilter, TwoLettersNeedAScoreOfTwelve) {
    TabCycleEntry a, b;
    a.appName = "Terminal";
    a.title = "zsh build";
    b.appName = "Mail";
    b.title = "Inbox";
    EXPECT_EQ(filterEntries({a, b}, "").size(), 2u);
    auto hits = filterEntries({b, a}, "bu");
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(hits[0].appName, "Terminal");
    EXPECT_TRUE(filterEntries({a, b}, "qx").empty());
}

TEST(TabCycleRows, VanishedRowsLeaveAndTheHighlightKeepsItsWindow) {
    std::vector<TabCycleEntry> rows(4);
    for (std::uint32_t i = 0; i < 4; ++i)
        rows[i].id = 10 + i;
    rows[3].id = 0;
    rows[3].closedWindowID = "c";
    auto kept = dropVanished(rows, {11, 12});
    ASSERT_EQ(kept.size(), 3u);  // the closed row stays
    EXPECT_EQ(keepHighlight(kept, "win-12", 2), 1u);
    EXPECT_EQ(keepHighlight(kept, "win-10", 5), 2u);  // gone: clamped
}

}  // namespace
}  // namespace zelk::tabcycle
