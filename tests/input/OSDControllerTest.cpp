// The panel controller on the whole agent: the stage panel's delay, theme and mode application,
// the decisions about hides without an argument and the watchdog after a long delay.
#include <gtest/gtest.h>

#include "config/OSDTheme.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/AgentFixture.h"
#include "input/KeyRouter.h"
#include "input/OSDController.h"

namespace zelk::testing {
namespace {

using osd::OSDView;

struct OSDControllerTest : AgentFixture {
    osd::OSDController& panel() { return agent->panel(); }
    const osd::OSDModel& model() { return panel().model(); }
};

TEST_F(OSDControllerTest, StagePanelWaitsItsEightyMilliseconds) {
    start(kBasicWorld, {{"stageTriggerKeys", {"rctrl"}}});
    hold({"rctrl"});
    runFor(0);
    ASSERT_TRUE(input().stageTriggerKeysPressed.get());
    // The stage route shows its panel once stages exist; the panel's own timing is here.
    panel().showOSD(false);
    ASSERT_TRUE(model().visibility.pending);
    const auto due = model().visibility.pending->dueMs;
    runFor(79);
    EXPECT_FALSE(model().visibility.visible());
    runFor(1);
    EXPECT_TRUE(model().visibility.visible());
    EXPECT_EQ(model().view.view, OSDView::stage);
    EXPECT_EQ(model().emptyText, "No stages saved yet.\nPress = to save the current windows as a stage.");
    EXPECT_GT(due, 0);
    hold({});
    runFor(0);
    EXPECT_FALSE(model().visibility.visible());
}

TEST_F(OSDControllerTest, NegativeDelayKeepsEveryHeldPanelAwayButALatchStillShows) {
    start(kBasicWorld, {{"windowSwitchOSDDelay", -1}, {"showAppSwitcher", true}});
    hold({"rightCommand"});
    runFor(1000);
    EXPECT_FALSE(model().visibility.visible());
    EXPECT_FALSE(model().visibility.pending);
    hold({});
    runFor(0);
    panel().toggleLatchedSearch("app");
    EXPECT_TRUE(model().visibility.visible());
}

TEST_F(OSDControllerTest, ASecondShowWhileVisibleOnlyMovesIt) {
    start(kBasicWorld);
    hold({"ralt"});
    runFor(0);
    ASSERT_TRUE(model().visibility.visible());
    panel().showOSD(false);
    EXPECT_TRUE(model().visibility.visible());
    EXPECT_FALSE(model().visibility.pending);
}

TEST_F(OSDControllerTest, DelayedHideKeepsThePanelVisibleUntilItFires) {
    start(kBasicWorld);
    hold({"ralt"});
    runFor(0);
    panel().hideOSD(false);
    EXPECT_TRUE(model().visibility.visible());
    ASSERT_TRUE(model().visibility.pending);
    EXPECT_EQ(model().visibility.pending->kind, osd::PendingKind::hide);
    runFor(99);
    EXPECT_TRUE(model().visibility.visible());
    runFor(1);
    EXPECT_FALSE(model().visibility.visible());
}

TEST_F(OSDControllerTest, WatchdogRunsForAPanelShownAfterALongDelay) {
    // A show that waits past the watchdog's first tick still gets a watchdog when it paints.
    start(kBasicWorld, {{"windowOnlySwitchOSDDelay", 500}, {"stageTriggerKeys", {"rctrl"}}});
    hold({"ralt"});
    runFor(500);
    ASSERT_TRUE(model().visibility.visible());
    EXPECT_TRUE(model().visibility.watchdogRunning);
    desktop.world().faults.tapDead = true;
    hold({});
    runFor(600);
    EXPECT_FALSE(model().visibility.visible());
    EXPECT_FALSE(input().windowTriggerKeysPressed.get());
}

TEST_F(OSDControllerTest, ThemeApplicationReachesLookPlacementAndSize) {
    start(kBasicWorld);
    ASSERT_TRUE(panel().applyThemeByID("midnight"));
    auto theme = *builtInTheme("midnight");
    EXPECT_EQ(model().look, theme.look);
    hold({"ralt"});
    runFor(0);
    EXPECT_EQ(model().placement.corner, theme.windowMirrorsApp ? theme.appPlacement : theme.windowPlacement);
    EXPECT_EQ(model().placement.frame.width, theme.windowWidth);
    EXPECT_EQ(Settings::shared().get(keys::activeThemeID), std::optional<std::string>("midnight"));
    EXPECT_FALSE(panel().applyThemeByID("no-such-theme"));
    EXPECT_EQ(model().look, theme.look);
}

TEST_F(OSDControllerTest, SwitcherModeWritesItsSettings) {
    start(kBasicWorld);
    auto& st = Settings::shared();
    panel().applySwitcherMode(SwitcherMode::switcher);
    EXPECT_FALSE(st.get(keys::showAppSwitcher));
    EXPECT_TRUE(st.get(keys::searchRunningAndStaticOnly));
    EXPECT_FALSE(st.get(keys::showMenubarAppsInSearch));
    EXPECT_TRUE(st.get(keys::switcherAppsOnly));
    EXPECT_EQ(st.get(keys::activationMode), ActivationMode::adaptive);
    EXPECT_EQ(st.get(keys::staticBreakoutThresholdMs), 150);
    st.set(keys::staticBreakoutThresholdMs, 300);
    panel().applySwitcherMode(SwitcherMode::launcher);
    EXPECT_TRUE(st.get(keys::showAppSwitcher));
    EXPECT_FALSE(st.get(keys::switcherAppsOnly));
    EXPECT_EQ(st.get(keys::activationMode), ActivationMode::onRelease);
    EXPECT_EQ(st.get(keys::staticBreakoutThresholdMs), 300) << "the launcher leaves the threshold alone";
    EXPECT_TRUE(panel().settings().showApp) << "the panel re-read its settings";
}

TEST_F(OSDControllerTest, SpaceLatchesTheSearchTheReleaseKeepsItEscapeEndsIt) {
    start(kBasicWorld);
    // Space latches only once the search is there to take the typing.
    agent->router().services().built.search = true;
    hold({"rightCommand"});
    runFor(50);
    press(Key::space);
    runFor(0);
    EXPECT_TRUE(model().visibility.visible());
    EXPECT_EQ(model().view, (osd::ViewChoice{OSDView::search, 1}));
    EXPECT_EQ(model().latches.searchSurface, std::optional<std::string>("app"));
    // An empty latched query lists the apps to pick from.
    ASSERT_FALSE(model().sections.empty());
    EXPECT_FALSE(model().sections.front().rows.empty());
    EXPECT_EQ(model().emptyText, "");
    hold({});
    runFor(500);
    EXPECT_TRUE(model().visibility.visible()) << "the release leaves a latched panel standing";
    EXPECT_FALSE(model().visibility.pending);
    press(Key::escape);
    runFor(0);
    EXPECT_FALSE(model().visibility.visible());
    EXPECT_FALSE(model().latches.any());
    EXPECT_FALSE(input().isLatched());
}

TEST_F(OSDControllerTest, SpacePassesThroughWhileTheSearchIsNotBuilt) {
    start(kBasicWorld);
    hold({"rightCommand"});
    runFor(50);
    press(Key::space);
    runFor(0);
    EXPECT_FALSE(model().latches.any());
    EXPECT_FALSE(model().visibility.visible());
}

TEST_F(OSDControllerTest, LatchIsRefusedWhileATriggerIsHeld) {
    start(kBasicWorld);
    hold({"ralt"});
    runFor(0);
    panel().latchSearchSurface("app");
    EXPECT_FALSE(model().latches.any());
    EXPECT_EQ(model().view.view, OSDView::windowSwitcher);
}

}  // namespace
}  // namespace zelk::testing
