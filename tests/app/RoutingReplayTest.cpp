// Routing under the application trigger, end to end: the already-focused app stepping through its
// windows, hiding others only with the hide-others switch, Space keys, and the sticky search.
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

TEST(RoutingReplay, TheStickySearchHoldsUntilEscapeAndThenKeysPassAgain) {
    auto events = replay(world("{activationMode: onPress}"), R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1300, flags: []}
- {at: 1500, tap: a}
- {at: 1700, tap: escape}
- {at: 1900, tap: a}
- {at: 3000, end: true}
)");
    auto downs = withoutKeyUps(events, {"key"});
    ASSERT_EQ(downs.size(), 4u);
    EXPECT_NE(downs[0].find("action=swallowed"), std::string::npos);  // space latches the search
    EXPECT_NE(downs[1].find("action=swallowed"), std::string::npos);  // a goes to the search
    EXPECT_NE(downs[2].find("action=swallowed"), std::string::npos);  // escape ends it
    EXPECT_NE(downs[3].find("action=passed"), std::string::npos);     // typing reaches the app again
}

TEST(RoutingReplay, TheCommandBacktickTakeOverIsRoutedLikeAnyKey) {
    auto events = replay(world("{activationMode: onPress}"), R"(
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: grave}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)",
                         true);
    // The key is logged at the start of routing before the take-over claims it.
    EXPECT_TRUE(hasLog(events, "tap keyDown: key=grave triggers=[L⌘]"));
    auto keys = summary(events, {"key"});
    ASSERT_FALSE(keys.empty());
    EXPECT_NE(keys[0].find("action=swallowed"), std::string::npos);
}

TEST(RoutingReplay, DeleteOnAnEmptyLatchedSearchEndsIt) {
    auto events = replay(world("{activationMode: onPress}"), R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1300, flags: []}
- {at: 1500, tap: delete}
- {at: 1700, tap: a}
- {at: 3000, end: true}
)");
    auto downs = withoutKeyUps(events, {"key"});
    ASSERT_EQ(downs.size(), 3u);
    EXPECT_NE(downs[1].find("action=swallowed"), std::string::npos);
    EXPECT_NE(downs[2].find("action=passed"), std::string::npos);
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
