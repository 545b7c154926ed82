// The overview's stateless rules: which keys reach the app in front, the placement cluster of either
// keyboard, flings, the hot corner, the include filter and per-Space numbering, and one screen's
// layout under the top rules.
#include <gtest/gtest.h>

#include "expose/ExposeInput.h"
#include "expose/ExposeScreenLayout.h"
#include "expose/ExposeSnapshot.h"

namespace zelk::expose {
namespace {

ExposeModifiers mods(bool cmd, bool opt = false, bool shift = false, bool ctrl = false) {
    return {cmd, opt, shift, ctrl};
}

TEST(ExposeKeys, PassThroughFollowsTheModifiers) {
    EXPECT_FALSE(passesThrough(Key::w, mods(true)));
    EXPECT_TRUE(passesThrough(Key::w, mods(true, false, true)));  // Command-Shift-W is the app's
    EXPECT_TRUE(passesThrough(Key::c, mods(true)));
    EXPECT_FALSE(passesThrough(Key::equal, mods(true)));
    EXPECT_FALSE(passesThrough(Key::nine, mods(true)));
    EXPECT_TRUE(passesThrough(Key::zero, mods(true)));
    EXPECT_TRUE(passesThrough(Key::w, mods(true, true)));
    EXPECT_FALSE(passesThrough(Key::three, mods(false, true)));
    EXPECT_TRUE(passesThrough(Key::a, mods(false, true)));
    EXPECT_TRUE(passesThrough(Key::three, mods(false, true, true)));
    EXPECT_TRUE(passesThrough(Key::a, mods(false, false, false, true)));
    EXPECT_FALSE(passesThrough(Key::a, mods(false)));
    EXPECT_FALSE(passesThrough(Key::tab, mods(false, false, true)));
}

TEST(ExposeKeys, TheClusterSwapsHalvesAndThirdsBetweenLayouts) {
    EXPECT_TRUE(usesISOCluster("iso", false));
    EXPECT_FALSE(usesISOCluster("ansi", true));
    EXPECT_TRUE(usesISOCluster("auto", true));
    EXPECT_FALSE(usesISOCluster("auto", false));
    EXPECT_EQ(clusterRole(33, true), ExposePlacementRole::halfPrimary);
    EXPECT_EQ(clusterRole(33, false), ExposePlacementRole::third1);
    EXPECT_EQ(clusterRole(39, false), ExposePlacementRole::halfSecondary);
    EXPECT_EQ(clusterRole(42, false), ExposePlacementRole::third3);
    EXPECT_EQ(clusterRole(27, true), ExposePlacementRole::pad);
    EXPECT_FALSE(clusterRole(0, true));
    EXPECT_EQ(positionFor(ExposePlacementRole::halfPrimary, true), stages::SemanticPosition::topHalf);
    EXPECT_EQ(positionFor(ExposePlacementRole::third2, false), stages::SemanticPosition::verticalThird2);
    EXPECT_FALSE(positionFor(ExposePlacementRole::pad, false));
    EXPECT_EQ(positionLabel(stages::SemanticPosition::rightHalf), "right half");
    EXPECT_EQ(positionLabel(stages::SemanticPosition::verticalThird1), "vertical third 1");
    EXPECT_EQ(paddingPercent(1200, 1440), 10);
    EXPECT_EQ(paddingPercent(1440, 1440), 0);
}

TEST(ExposeFlings, NeedEightyFivePointsAndToDominateByOnePointThree) {
    EXPECT_EQ(evaluateFling(80, 0), Fling::none);
    EXPECT_EQ(evaluateFling(90, 70), Fling::none);  // 70 * 1.3 = 91: not dominant
    EXPECT_EQ(evaluateFling(90, 60), Fling::right);
    EXPECT_EQ(evaluateFling(-90, 0), Fling::left);
    EXPECT_EQ(evaluateFling(60, 90), Fling::down);
    EXPECT_EQ(evaluateFling(70, -90), Fling::none);
    EXPECT_EQ(evaluateFling(0, -86), Fling::up);
    EXPECT_EQ(evaluateFling(10, 200), Fling::down);
}

TEST(ExposeHotCorner, ArmsBeyondFortyAndFiresWithinThreeOnce) {
    HotCornerTracker t;
    const Point corner = cornerPoint(HotCorner::bottomRight, {0, 0, 1440, 900});
    EXPECT_EQ(corner, (Point{1440, 900}));
    EXPECT_FALSE(t.move({1439, 899}, corner));  // not armed yet
    EXPECT_FALSE(t.move({1410, 880}, corner));  // 36 away: still not armed
    EXPECT_FALSE(t.armed());
    EXPECT_FALSE(t.move({1400, 860}, corner));
    EXPECT_TRUE(t.armed());
    EXPECT_FALSE(t.move({1436, 896}, corner));  // 5.7 away
    EXPECT_TRUE(t.move({1438, 898}, corner));
    EXPECT_FALSE(t.move({1439, 899}, corner));
    EXPECT_FALSE(hotCornerFromName("middle"));
    EXPECT_EQ(hotCornerFromName("topLeft"), HotCorner::topLeft);
}

SnapshotInput snapshotWorld() {
    SnapshotInput in;
    in.windows = {
        {1, "a", "A", "com.a", 10, Rect{0, 0, 800, 600}, false, 5},
        {2, "b", "B", "com.b", 20, Rect{0, 0, 800, 600}, true, 5},
        {3, "a2", "A", "com.a", 10, Rect{0, 0, 800, 600}, false, std::nullopt},
        {4, "c", "C", "com.c", 30, Rect{0, 0, 800, 600}, false, 9},
        {5, "a3", "A", "com.a", 10, Rect{0, 0, 800, 600}, false, 6},
    };
    in.hiddenPids = {30};
    in.fullscreenSpaces = {6};
    in.activeSpace = 5;
    in.focusedWindowID = 3;
    in.letterFor = [](const std::string& b) -> std::optional<AppLetter> {
        if (b == "com.a") return AppLetter{"a", false};
        if (b == "com.b") return AppLetter{"q", true};
        return std::nullopt;
    };
    return in;
}

TEST(ExposeSnapshot, FiltersNumbersPerSpaceAndGroupsWithLetters) {
    auto in = snapshotWorld();
    auto all = takeSnapshot(in);
    ASSERT_EQ(all.flatWindows.size(), 5u);
    // A window without a Space is on the active one and numbered there.
    EXPECT_EQ(all.flatWindows[2].spaceID, 5u);
    EXPECT_EQ(all.flatWindows[0].number, 1);
    EXPECT_EQ(all.flatWindows[1].number, 2);
    EXPECT_EQ(all.flatWindows[2].number, 3);
    EXPECT_EQ(all.flatWindows[3].number, 1);
    EXPECT_TRUE(all.flatWindows[2].isFocused);
    EXPECT_TRUE(all.flatWindows[3].appHidden);
    EXPECT_TRUE(all.flatWindows[4].isFullscreen);
    ASSERT_EQ(all.groups.size(), 3u);
    EXPECT_EQ(all.groups[0].windows.size(), 3u);
    EXPECT_EQ(all.groups[1].letter, "q");
    EXPECT_TRUE(all.groups[1].letterIsDerived);
    EXPECT_EQ(all.groups[2].letter, "");

    in.include = ExposeFilter(0);
    auto none = takeSnapshot(in);
    std::vector<std::uint32_t> ids;
    for (const auto& w : none.flatWindows)
        ids.push_back(w.id);
    EXPECT_EQ(ids, (std::vector<std::uint32_t>{1, 3}));
    EXPECT_EQ(none.flatWindows[1].number, 2);  // numbers count only what is shown
}

TEST(ExposeSnapshot, SpacesAreNumberedPerDisplayAndFullScreenOnesAreNot) {
    std::vector<platform::DisplaySpaces> displays{
        {"D1", {{1, 0}, {7, 4}, {2, 0}}, {2, 0}},
        {"D2", {{3, 0}}, {3, 0}},
    };
    std::vector<platform::Screen> screens(2);
    screens[0].uuid = "D1";
    screens[1].uuid = "D2";
    screens[1].name = "Side";
    auto spaces = readSpaces(displays, screens);
    ASSERT_EQ(spaces.size(), 4u);
    EXPECT_EQ(spaces[0].userIndex, 1);
    EXPECT_EQ(spaces[1].userIndex, 0);
    EXPECT_TRUE(spaces[1].isFullscreen);
    EXPECT_EQ(spaces[2].userIndex, 2);
    EXPECT_TRUE(spaces[2].isActive);
    EXPECT_FALSE(spaces[0].isActive);
    EXPECT_EQ(spaces[3].userIndex, 1);
    EXPECT_EQ(spaces[3].displayIndex, 1);
    EXPECT_EQ(spaces[3].displayName, "Side");
}

TEST(ExposeScreenLayout, TheContainerKeepsClearOfTheMenuBarAndTheBar) {
    const Rect screen{0, 0, 1440, 900};
    EXPECT_EQ(layoutContainer(screen, 25, true), (Rect{56, 96, 1328, 724}));
    EXPECT_EQ(layoutContainer(screen, 40, true), (Rect{56, 102, 1328, 718}));
    EXPECT_EQ(layoutContainer(screen, 25, false), (Rect{56, 52, 1328, 768}));
    EXPECT_EQ(layoutContainer({0, 0, 100, 100}, 25, true).height, 0);
}

TEST(ExposeScreenLayout, HiddenAndMinimizedTilesShrinkAndPinnedCardsStay) {
    auto snap = takeSnapshot(snapshotWorld());
    ScreenLayoutInput in;
    in.screenFrame = {0, 0, 1440, 900};
    in.menuBarHeight = 25;
    in.groups = snap.groups;
    auto first = layoutScreen(in);
    ASSERT_EQ(first.tiles.size(), 5u);
    EXPECT_EQ(first.order.size(), 5u);
    // Minimized window 2 and hidden window 4 are not drawn at full size.
    EXPECT_EQ(first.visible, (std::vector<std::uint32_t>{1, 3, 5}));
    ASSERT_EQ(first.cards.size(), 3u);
    // The same cards pinned at their centres lay out in the same places.
    in.pinnedCenters = cardCenters(first);
    auto again = layoutScreen(in);
    for (std::size_t i = 0; i < first.cards.size(); ++i) {
        EXPECT_NEAR(again.cards[i].frame.midX(), first.cards[i].frame.midX(), 0.5);
        EXPECT_NEAR(again.cards[i].frame.midY(), first.cards[i].frame.midY(), 0.5);
    }
    // By state: three sections in order, the hidden app's window last.
    in.grouping = ExposeGrouping::state;
    auto byState = layoutScreen(in);
    ASSERT_EQ(byState.sectionHeaders.size(), 3u);
    EXPECT_EQ(byState.sectionHeaders[2].title, "Hidden");
    EXPECT_EQ(byState.order.back(), 4u);
}

TEST(ExposeGroupings, CommaCyclesAllThreeAndBack) {
    auto g = ExposeGrouping::app;
    g = nextGrouping(g);
    EXPECT_EQ(g, ExposeGrouping::space);
    g = nextGrouping(g);
    EXPECT_EQ(g, ExposeGrouping::state);
    EXPECT_EQ(nextGrouping(g), ExposeGrouping::app);
    EXPECT_EQ(groupingFromName("space"), ExposeGrouping::space);
    EXPECT_FALSE(groupingFromName("grid"));
}

}  // namespace
}  // namespace zelk::expose
