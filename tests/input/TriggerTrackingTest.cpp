#include "AgentFixture.h"

using namespace zelk;
using zelk::testing::AgentFixture;
using zelk::testing::kBasicWorld;

TEST(TriggerSets, EventFlagsBecomeSidedKeysInFixedOrder) {
    namespace f = platform::flag;
    EXPECT_EQ(triggersFromEventFlags(f::rcmd | f::command), (TriggerList{TriggerKey::rightCommand}));
    // A generic bit alone counts as the left key.
    EXPECT_EQ(triggersFromEventFlags(f::shift), (TriggerList{TriggerKey::lshift}));
    EXPECT_EQ(triggersFromEventFlags(f::shift | f::rshift), (TriggerList{TriggerKey::rshift}));
    EXPECT_EQ(triggersFromEventFlags(f::command | f::rcmd | f::lshift | f::shift | f::fn),
              (TriggerList{TriggerKey::lshift, TriggerKey::rightCommand, TriggerKey::fn}));
    EXPECT_TRUE(sameSet({TriggerKey::rightCommand, TriggerKey::ralt},
                        {TriggerKey::ralt, TriggerKey::rightCommand, TriggerKey::ralt}));
    EXPECT_FALSE(sameSet({TriggerKey::rightCommand}, {TriggerKey::rightCommand, TriggerKey::rshift}));
}

TEST(TriggerSets, SelectionActionModifierByHands) {
    using T = TriggerKey;
    EXPECT_EQ(selectionActionModifier({T::rightCommand}), T::lcmd);
    EXPECT_EQ(selectionActionModifier({T::lcmd}), T::rightCommand);
    EXPECT_EQ(selectionActionModifier({T::lcmd, T::rightCommand}), std::nullopt);
    EXPECT_EQ(selectionActionModifier({T::ralt}), T::lcmd);
    EXPECT_EQ(selectionActionModifier({T::lalt}), T::rightCommand);
    EXPECT_EQ(selectionActionModifier({T::capsLock}), T::lcmd);
    EXPECT_EQ(selectionActionModifier({}), std::nullopt);
    EXPECT_TRUE(matchesActionCombo({T::lcmd, T::rightCommand}, {T::rightCommand}));
}

TEST_F(AgentFixture, SidedKeysKeepOrDropTheTriggerAndContaminateTheTap) {
    start(kBasicWorld);
    hold({"rightCommand"});
    EXPECT_TRUE(input().appTriggerKeysPressed.get());
    EXPECT_FALSE(input().appTriggerTapContaminated);
    hold({"rightCommand", "rshift"});
    EXPECT_TRUE(input().appTriggerKeysPressed.get());
    hold({"rightCommand", "lshift"});
    EXPECT_TRUE(input().appTriggerKeysPressed.get());  // either shift keeps the app trigger
    hold({"rightCommand", "rshift", "ralt"});
    EXPECT_FALSE(input().appTriggerKeysPressed.get());
    EXPECT_TRUE(input().appTriggerTapContaminated);
    hold({});
    EXPECT_FALSE(input().appTriggerTapContaminated);
    // The window trigger accepts only right Shift as the extra.
    hold({"ralt", "rshift"});
    EXPECT_TRUE(input().windowTriggerKeysPressed.get());
    hold({"ralt", "lshift"});
    EXPECT_FALSE(input().windowTriggerKeysPressed.get());
    EXPECT_TRUE(logs->contains("tap flagsChanged: triggers=[R⌘+R⇧] latched=false"));
}

TEST_F(AgentFixture, DoubleTapOpensWindowSearchOnlyUnderAQuarterSecond) {
    start(kBasicWorld);
    int searches = 0;
    input().enterWindowSearchHook = [&] { ++searches; };
    auto tapTrigger = [&](int holdMs) {
        hold({"rightCommand"});
        runFor(holdMs);
        hold({});
    };
    tapTrigger(100);
    runFor(240);  // release to next press: 0.24 s
    tapTrigger(100);
    EXPECT_EQ(searches, 1);
    hold({});
    runFor(1000);
    tapTrigger(100);
    runFor(250);  // exactly 0.25 s: too late
    tapTrigger(100);
    EXPECT_EQ(searches, 1);
    runFor(1000);
    tapTrigger(250);  // a first tap held 0.25 s is no tap
    runFor(10);
    tapTrigger(100);
    EXPECT_EQ(searches, 1);
    // A contaminated first tap doesn't count either.
    runFor(1000);
    hold({"rightCommand"});
    hold({"rightCommand", "ralt"});
    hold({"rightCommand"});
    hold({});
    runFor(10);
    tapTrigger(100);
    EXPECT_EQ(searches, 1);
}

TEST_F(AgentFixture, DoubleTapNeverFiresWithATwoKeyTrigger) {
    start(kBasicWorld, {{"triggerKeys", {4, 5}}});
    int searches = 0;
    input().enterWindowSearchHook = [&] { ++searches; };
    for (int i = 0; i < 2; ++i) {
        hold({"rightCommand", "ralt"});
        runFor(50);
        hold({});
        runFor(50);
    }
    EXPECT_EQ(searches, 0);
}

TEST_F(AgentFixture, CapsLockTriggerKeepsTheLightOffAndTapsToggleUnderThreeTenths) {
    start(kBasicWorld, {{"stageTriggerKeys", {13}}});
    auto& tap = desktop.eventTap();
    ASSERT_TRUE(input().capsLockIsTrigger());
    auto capsTap = [&](int holdMs) {
        hold({"capsLock"});
        runFor(holdMs);
        hold({});
        runFor(100);
    };
    capsTap(290);
    EXPECT_TRUE(tap.capsLockState());  // a short tap toggles from the state before the press
    capsTap(290);
    EXPECT_FALSE(tap.capsLockState());
    capsTap(300);
    EXPECT_FALSE(tap.capsLockState());  // 0.3 s is a hold
    // Through a hold the light stays off, even though the system flips it after the press.
    hold({"capsLock"});
    runFor(8);
    runFor(100);
    EXPECT_FALSE(tap.capsLockState());
    EXPECT_TRUE(input().stageTriggerKeysPressed.get());
    press(Key::k);  // used as a modifier: the release is no tap
    hold({});
    runFor(100);
    EXPECT_FALSE(tap.capsLockState());
}

TEST_F(AgentFixture, SecondCapsLockRecheckIsSkippedAfterANewerPress) {
    start(kBasicWorld, {{"capsLockTapToggles", false}});
    auto& tap = desktop.eventTap();
    hold({"capsLock"});  // clears, rechecks at 12 and 45 ms
    runFor(20);
    hold({});
    runFor(10);
    hold({"capsLock"});  // at 30 ms: a newer generation with rechecks at 42 and 75 ms
    runFor(14);
    EXPECT_FALSE(tap.capsLockState());  // the system's flip at 35 ms was undone at 42 ms
    tap.setCapsLockState(true);         // at 44 ms
    runFor(2);
    EXPECT_TRUE(tap.capsLockState());  // the first press's 45 ms recheck was skipped
    runFor(30);
    EXPECT_FALSE(tap.capsLockState());  // the newer press's own recheck at 75 ms
}

TEST_F(AgentFixture, DeadTapRestartsAboutOnePointTwoSecondsAfterAnUnseenModifier) {
    start(kBasicWorld);
    world().faults.tapDead = true;
    hold({"rightCommand"});
    runFor(1199);
    EXPECT_FALSE(logs->containsSubstring("Event tap not working anymore"));
    runFor(1);
    EXPECT_TRUE(logs->contains(
        "Event tap not working anymore (NSEvent monitor saw flags the tap did not), restarting: R⌘"));
    // Released and pressed again within the window: the check is postponed.
    logs->clear();
    hold({});
    runFor(600);
    hold({"rightCommand"});
    runFor(1000);
    EXPECT_FALSE(logs->containsSubstring("Event tap not working anymore"));
    runFor(200);
    EXPECT_TRUE(logs->containsSubstring("Event tap not working anymore"));
    // A live tap that saw the change: no restart.
    world().faults.tapDead = false;
    logs->clear();
    hold({});
    hold({"ralt"});
    runFor(3000);
    EXPECT_FALSE(logs->containsSubstring("Event tap not working anymore"));
}

TEST_F(AgentFixture, PausedAppsGetEveryKeyAndNoPanelButTriggerStateStillMoves) {
    start(kBasicWorld, {{"pauseApps", {"com.apple.Safari"}}});
    int panels = 0;
    input().showOSDHook = [&](bool) { ++panels; };
    hold({"rightCommand"});
    EXPECT_TRUE(input().appTriggerKeysPressed.get());
    EXPECT_EQ(panels, 0);
    hold({});
    world().activate(world().app("com.apple.mail")->pid);
    hold({"rightCommand"});
    EXPECT_EQ(panels, 1);
}

TEST_F(AgentFixture, SystemDisabledTapIsReEnabledAndLoggedAtMostEveryFiveSeconds) {
    start(kBasicWorld);
    auto& tap = desktop.eventTap();
    tap.disableBySystem();
    EXPECT_TRUE(tap.isTapEnabled());
    tap.disableBySystem();
    EXPECT_EQ(logs->count(
                  "key tap disabled by timeout (tap callback exceeded the system budget, main thread likely "
                  "stalled), re-enabling"),
              1u);
    runFor(5000);
    tap.disableBySystem();
    EXPECT_EQ(logs->count(
                  "key tap disabled by timeout (tap callback exceeded the system budget, main thread likely "
                  "stalled), re-enabling"),
              2u);
}

TEST_F(AgentFixture, HealthTimerReEnablesAndTracksSecureInput) {
    start(kBasicWorld);
    auto& tap = desktop.eventTap();
    tap.enableTap(false);  // disabled without a notice
    runFor(2000);
    EXPECT_TRUE(tap.isTapEnabled());
    EXPECT_TRUE(logs->contains("tap health: key tap was disabled by the system, re-enabled"));
    world().faults.secureInputPID = world().app("com.apple.mail")->pid;
    runFor(500);
    EXPECT_TRUE(
        logs->contains("tap health: macOS Secure Keyboard Entry engaged by Mail (pid 102); key taps are "
                       "blind until it is released"));
    std::vector<std::string> banners;
    auto sub = world().changes.subscribe([&](const sim::WorldChange& c) {
        if (c.kind == sim::WorldChange::Kind::notification) banners.push_back(c.text1 + "|" + c.text3);
    });
    runFor(10000);
    ASSERT_EQ(banners.size(), 1u);
    EXPECT_EQ(banners[0],
              "secureInputBlocksTap|Mail turned on Secure Keyboard Entry, hiding key presses from zelk. "
              "Close its password field or turn its secure input off.");
    world().faults.secureInputPID.reset();
    runFor(500);
    EXPECT_TRUE(logs->containsSubstring("tap health: Secure Keyboard Entry released after 1"));
    // The same process warns once per run.
    world().faults.secureInputPID = world().app("com.apple.mail")->pid;
    runFor(20000);
    EXPECT_EQ(banners.size(), 1u);
}

TEST_F(AgentFixture, TakeOverStartsWithLeftCommandAndEndsOnRelease) {
    built.tabCycle = true;
    start(kBasicWorld, {{"hijackCommandTab", true}});
    std::vector<std::pair<bool, std::string>> cycles;
    input().handleTabCycleHook = [&](bool reverse, std::optional<std::string> scope) {
        cycles.push_back({reverse, scope.value_or("")});
        input().tabCycling = true;
    };
    int resets = 0;
    input().resetTabCycleHook = [&] { ++resets; };
    hold({"lcmd"});
    EXPECT_TRUE(input().hijackCommandHeld);
    desktop.eventTap().key(Key::tab, true, false);
    ASSERT_EQ(cycles.size(), 1u);
    EXPECT_EQ(cycles[0], std::make_pair(false, std::string()));
    EXPECT_EQ(world().receivedKeys.size(), 0u);  // swallowed
    desktop.eventTap().key(Key::tab, false, false);
    hold({"lcmd", "lshift"});
    desktop.eventTap().key(Key::grave, true, false);
    ASSERT_EQ(cycles.size(), 2u);
    EXPECT_EQ(cycles[1], std::make_pair(true, std::string("sameApp")));
    hold({});
    EXPECT_FALSE(input().hijackCommandHeld);
    EXPECT_EQ(resets, 1);
    // Only a left Shift with Tab: nothing starts, the key passes.
    hold({"lshift"});
    desktop.eventTap().key(Key::tab, true, false);
    EXPECT_EQ(cycles.size(), 2u);
    EXPECT_EQ(world().receivedKeys.back().keyCode, 48);
}

// Until the tab cycle exists the take-over has nowhere to send keys: the system's shortcut stays on
// and Cmd-backtick and Cmd-Tab reach the app.
TEST_F(AgentFixture, WithoutATabCycleNoShortcutIsTakenAndCommandKeysPass) {
    start(kBasicWorld, {{"hijackCommandTab", true}});
    EXPECT_TRUE(desktop.windowServer().hotKeys()[27].enabled);
    EXPECT_FALSE(input().didDisableWindowCycleHotkey);
    hold({"lcmd"});
    EXPECT_FALSE(input().hijackCommandHeld);
    desktop.eventTap().key(Key::grave, true, false);
    desktop.eventTap().key(Key::tab, true, false);
    EXPECT_EQ(world().receivedKeys.size(), 2u);
    hold({});
}

// With the tab cycle, the take-over is claimed inside routing, after the key is logged.
TEST_F(AgentFixture, TheTakeOverIsClaimedAfterTheKeyIsLogged) {
    built.tabCycle = true;
    start(kBasicWorld);
    input().handleTabCycleHook = [&](bool, std::optional<std::string>) { input().tabCycling = true; };
    hold({"lcmd"});
    desktop.eventTap().key(Key::grave, true, false);
    EXPECT_TRUE(logs->contains("tap keyDown: key=grave triggers=[L⌘]"));
    EXPECT_TRUE(world().receivedKeys.empty());
    hold({});
}

// A dead tap whose re-creation failed is tried again at the next modifier press it misses.
TEST_F(AgentFixture, AFailedTapRestartIsRetriedAtTheNextMissedPress) {
    start(kBasicWorld);
    world().faults.tapDead = true;
    hold({"rightCommand"});
    runFor(0);
    world().permissions.accessibility = false;  // the re-creation at the check fails
    runFor(1200);
    EXPECT_FALSE(input().tapRunning());
    world().permissions.accessibility = true;
    world().faults.tapDead = false;
    hold({});
    hold({"rightCommand"});  // missed: there is no tap
    runFor(1200);
    EXPECT_TRUE(input().tapRunning());
    hold({});
    hold({"rightCommand"});
    EXPECT_TRUE(input().appTriggerKeysPressed.get());
    hold({});
}

TEST_F(AgentFixture, WindowCycleShortcutIsTakenAndGivenBackOnlyIfTaken) {
    built.tabCycle = true;
    start(kBasicWorld);
    auto& hotKeys = desktop.windowServer().hotKeys();
    EXPECT_FALSE(hotKeys[27].enabled);
    EXPECT_TRUE(input().didDisableWindowCycleHotkey);
    desktop.settings().write("enableWindowCycleKey", false);
    EXPECT_TRUE(hotKeys[27].enabled);
    EXPECT_FALSE(input().didDisableWindowCycleHotkey);
    // Disabled by the user beforehand: left alone either way.
    hotKeys[27].enabled = false;
    desktop.settings().write("enableWindowCycleKey", true);
    EXPECT_FALSE(input().didDisableWindowCycleHotkey);
    desktop.settings().write("enableWindowCycleKey", false);
    EXPECT_FALSE(hotKeys[27].enabled);
}

TEST_F(AgentFixture, QuitGivesTheWindowCycleShortcutBack) {
    built.tabCycle = true;
    start(kBasicWorld);
    EXPECT_FALSE(desktop.windowServer().hotKeys()[27].enabled);
    agent->terminate();
    EXPECT_TRUE(desktop.windowServer().hotKeys()[27].enabled);
    EXPECT_TRUE(logs->contains("applicationWillTerminate: gave the system's window cycle shortcut back"));
}

TEST_F(AgentFixture, BareTypingStaysOnTheTapThreadUnlessCapsLockIsInASet) {
    start(kBasicWorld, {{"stageTriggerKeys", nlohmann::json::array()}});
    auto hops = queue->syncCount();
    press(Key::a);
    press(Key::b);
    EXPECT_EQ(queue->syncCount(), hops);
    EXPECT_EQ(world().receivedKeys.size(), 4u);
    desktop.settings().write("stageTriggerKeys", nlohmann::json::array({13}));
    EXPECT_TRUE(input().tapSeesBareKeys());
    press(Key::a);
    EXPECT_EQ(queue->syncCount(), hops + 2);
}

TEST_F(AgentFixture, TriggerSettingsReadNamesOrRawValuesAndABadValueSpoilsOnlyItsKey) {
    start(kBasicWorld, {{"triggerKeys", {"ralt", 1}},
                        {"windowTriggerKeys", "rightCommand"},
                        {"activationMode", "onRelease"},
                        {"whenAlreadyFocusedAction", 3}});
    const auto& s = input().settings();
    EXPECT_TRUE(sameSet(s.triggerKeys, {TriggerKey::ralt, triggerKeyFromRaw(1).value()}));
    // A string where a list belongs: that key alone falls back to its default.
    EXPECT_EQ(s.windowTriggerKeys, (TriggerList{TriggerKey::ralt}));
    EXPECT_EQ(s.activationMode, ActivationMode::onRelease);
    EXPECT_EQ(s.whenAlreadyFocusedAction, 3);
    desktop.settings().write("activationMode", 7.5);
    EXPECT_EQ(input().settings().activationMode, ActivationMode::adaptive);
    EXPECT_TRUE(sameSet(input().settings().triggerKeys, {TriggerKey::ralt, triggerKeyFromRaw(1).value()}));
}
