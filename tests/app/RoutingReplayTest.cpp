// Routing under the application trigger, end to end: the already-focused app stepping through its
// windows, hiding others only with the hide-others switch, Space keys, keys of features not built
// yet, the grace, repeats and double presses.
#include "ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Safari in front with two windows on Space 1 of three; Mail runs beside it.
std::string world(const std::string& settings) {
    return R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}
        - {id: 1002, title: "News", frame: [20, 45, 1200, 800], space: 1}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: )" +
           settings + "\n";
}

std::vector<json> panelsWithView(const std::vector<json>& events, const std::string& view) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "panel" && e["view"] == view) out.push_back(e);
    return out;
}

}  // namespace

TEST(RoutingReplay, TheFocusedAppsLetterStepsThroughItsWindowsWhenSetToCycle) {
    auto events = replay(world("{activationMode: onPress, whenAlreadyFocusedAction: 3}"), R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: s}
- {at: 1300, flags: []}
- {at: 2000, flags: [rightCommand]}
- {at: 2100, tap: s}
- {at: 2300, flags: []}
- {at: 3000, end: true}
)");
    auto focus = summary(events, {"focus"});
    ASSERT_EQ(focus.size(), 2u);
    EXPECT_EQ(focus[0], "1100 focus bundleID=com.apple.Safari pid=101 windowID=1002");
    EXPECT_EQ(focus[1], "2100 focus bundleID=com.apple.Safari pid=101 windowID=1001");
}

TEST(RoutingReplay, OthersHideOnlyWithTheHideOthersSwitchOn) {
    const char* script = R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
- {at: 3000, end: true}
)";
    auto alone = replay(world("{activationMode: onPress, alwaysHideOthers: true}"), script);
    EXPECT_TRUE(summary(alone, {"hide"}).empty());
    auto both = replay(
        world("{activationMode: onPress, alwaysHideOthers: true, enableHideOnFocusHotkey: true}"), script);
    auto hides = summary(both, {"hide"});
    ASSERT_FALSE(hides.empty());
    EXPECT_NE(hides[0].find("com.apple.Safari"), std::string::npos);
}

TEST(RoutingReplay, SpaceKeysStepToAdjacentSpacesAndRefuseBeyondTheEnds) {
    auto events =
        replay(world("{activationMode: onPress, spaceMode: multi, enableAdjacentSpaceSwitching: true}"),
               R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: rightBracket}
- {at: 1500, tap: rightBracket}
- {at: 1900, tap: rightBracket}
- {at: 2300, tap: nine}
- {at: 2500, flags: []}
- {at: 3000, end: true}
)",
               true);
    auto spaces = summary(events, {"space"});
    ASSERT_EQ(spaces.size(), 2u);
    EXPECT_EQ(spaces[0], "1100 space display=1 space=2");
    EXPECT_EQ(spaces[1], "1500 space display=1 space=3");
    EXPECT_TRUE(hasLog(events, "switchToSpace: target index=3 out of bounds [0..<3)"));
    EXPECT_TRUE(hasLog(events, "switchToSpace: target index=8 out of bounds [0..<3)"));
}

// With the already-focused action set to cycle, a slow second press of the letter opens the tab
// cycle over the app's windows, which focuses the next one as it steps; the letter pressed again
// steps on rather than filtering the cycle. Default grace.
TEST(RoutingReplay, ASlowRepeatOfTheFocusedAppsLetterStepsToTheNextWindow) {
    auto events = replay(world("{whenAlreadyFocusedAction: 3}"), R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: s}
- {at: 1500, tap: s}
- {at: 1600, tap: s}
- {at: 1700, flags: []}
- {at: 3000, end: true}
)");
    auto focus = summary(events, {"focus"});
    ASSERT_EQ(focus.size(), 3u);
    // Safari has two windows: the first press waits the default grace of 150 ms.
    EXPECT_EQ(focus[0], "1250 focus bundleID=com.apple.Safari pid=101 windowID=1002");
    EXPECT_EQ(focus[1], "1510 focus bundleID=com.apple.Safari pid=101 windowID=1001");
    EXPECT_EQ(focus[2], "1610 focus bundleID=com.apple.Safari pid=101 windowID=1002");
    auto cycle = panelsWithView(events, "TabCycleOSDView");
    EXPECT_FALSE(cycle.empty());
}

// Default settings: an app not in front with two windows, its letter pressed twice inside the grace.
// The second press focuses it; the trigger's release must not then run the first press's stored
// activation, which would find the app in front and hide it.
TEST(RoutingReplay, AQuickDoublePressFocusesTheAppAndReleaseLeavesItShown) {
    auto events = replay(world("{}"), R"(
- {at: 500, activate: com.apple.mail}
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: s}
- {at: 1160, tap: s}
- {at: 1400, flags: []}
- {at: 3000, end: true}
)");
    EXPECT_TRUE(summary(events, {"hide"}).empty());
    auto focus = summary(events, {"focus"});
    ASSERT_FALSE(focus.empty());
    EXPECT_EQ(focus.back().substr(0, 36), "1160 focus bundleID=com.apple.Safari");
}

// A held letter auto-repeats: the press hides the focused app once, and the repeats neither show it
// again nor hide it again.
TEST(RoutingReplay, AHeldLetterRunsTheAlreadyFocusedActionOnce) {
    auto events = replay(world("{activationMode: onPress}"), R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, keyDown: s}
- {at: 1400, keyDown: s, repeat: true}
- {at: 1433, keyDown: s, repeat: true}
- {at: 1466, keyDown: s, repeat: true}
- {at: 1500, keyUp: s}
- {at: 1600, flags: []}
- {at: 3000, end: true}
)");
    auto hides = summary(events, {"hide", "unhide"});
    ASSERT_EQ(hides.size(), 1u) << hides.back();
    EXPECT_EQ(hides[0].substr(0, 9), "1100 hide");
    // Mail takes the front when Safari hides; Safari doesn't come back.
    for (const auto& focus : summary(events, {"focus"}))
        EXPECT_EQ(focus.find("com.apple.Safari"), std::string::npos) << focus;
    for (const auto& down : withoutKeyUps(events, {"key"}))
        EXPECT_NE(down.find("action=swallowed"), std::string::npos) << down;
}

// The trigger's key-up is lost (the tap stops seeing events) while a grace runs: the keyboard says
// the trigger is up, so the grace ends without focusing anything. Held, it commits at the default
// grace.
TEST(RoutingReplay, TheGraceCommitsOnlyWhileTheTriggerIsPhysicallyHeld) {
    const std::string start = R"(
- {at: 500, activate: com.apple.mail}
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: s}
)";
    auto held = replay(world("{}"), start + R"(
- {at: 1400, flags: []}
- {at: 2000, end: true}
)");
    auto focus = summary(held, {"focus"});
    ASSERT_EQ(focus.size(), 2u);  // Mail at 500, then Safari
    EXPECT_EQ(focus[1].substr(0, 36), "1250 focus bundleID=com.apple.Safari");

    auto lost = replay(world("{}"), start + R"(
- {at: 1120, fault: {tapDead: true}}
- {at: 1130, flags: []}
- {at: 2000, end: true}
)",
                       true);
    EXPECT_EQ(summary(lost, {"focus"}).size(), 1u);  // only Mail at 500
    EXPECT_TRUE(hasLog(lost, "graceExpired: trigger no longer physically held, pending activation dropped"));
}

TEST(RoutingReplay, ABoundAppLaunchesFromItsOwnRecordAndSaysWhenItsPathMoved) {
    auto events = replay(R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}]}
  - {bundleID: com.apple.mail, name: Mail, launchDelayMs: 300}
frontmost: com.apple.Safari
settings:
  activationMode: onPress
  appKeyAssignments:
    - {key: m, app: {path: /Applications/Old/Mail.app, originalName: Mail, identifier: com.apple.mail}, index: 0,
       whenAlreadyFocusedAction: 5, launchIfNotRunning: true}
)",
                         R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events,
                       "launch: stored path /Applications/Old/Mail.app is gone for com.apple.mail, "
                       "launching from /Applications/Mail.app instead"));
    EXPECT_FALSE(summary(events, {"launch"}).empty());
}
