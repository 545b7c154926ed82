#include "AgentFixture.h"
#include "input/KeyRouter.h"

using namespace zelk;
using zelk::testing::AgentFixture;
using zelk::testing::kBasicWorld;

namespace {

// A world where Notes is installed but not running, to be launched by a static letter.
const char* kRouteWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}, {id: 1002, title: "News", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
  - bundleID: com.apple.Notes
    name: Notes
    launchDelayMs: 200
frontmost: com.apple.Safari
focusedWindow: 1001
)";

struct RouterFixture : AgentFixture {
    std::map<std::string, std::string> statics;  // letter -> bundle
    std::vector<std::string> calls;

    void begin(const nlohmann::json& settings = nlohmann::json::object()) {
        start(kRouteWorld, settings);
        auto& sv = agent->router().services();
        sv.staticAssignment = [this](const std::string& letter) -> std::optional<RoutedAssignment> {
            auto it = statics.find(letter);
            if (it == statics.end()) return std::nullopt;
            auto* app = world().app(it->second);
            RoutedAssignment a;
            a.key = letter;
            a.isStatic = true;
            a.app = {app->bundleID, app->name, app->running ? app->pid : 0};
            return a;
        };
        sv.windowCount = [this](const std::string& bundle) {
            auto* app = world().app(bundle);
            return app ? static_cast<int>(app->windowOrder.size()) : 0;
        };
        sv.launchApp = [this](const std::string& bundle) {
            calls.push_back("launch " + bundle);
            return world().launch(bundle, true);
        };
        sv.cycleToNextWindow = [this](const RoutedApp& app) {
            calls.push_back("cycle " + app.bundleID);
            return true;
        };
        sv.switchToSpace = [this](int index) {
            calls.push_back("space " + std::to_string(index));
            return true;
        };
        sv.focusLastFocusedWindow = [this] {
            calls.push_back("focusLast");
            return true;
        };
    }
    std::string front() {
        auto* a = world().appByPid(world().frontPid());
        return a ? a->bundleID : "";
    }
    std::size_t passedKeys() { return desktop.world().receivedKeys.size(); }
};

}  // namespace

TEST_F(RouterFixture, OnPressFocusesAtKeyDownAndSwallowsTheLetter) {
    begin({{"activationMode", "onPress"}});
    hold({"rightCommand"});
    desktop.eventTap().key(Key::m, true, false);
    EXPECT_EQ(front(), "com.apple.mail");
    EXPECT_EQ(passedKeys(), 0u);
    EXPECT_TRUE(logs->contains("tap keyDown: key=m triggers=[R⌘]"));
    EXPECT_TRUE(logs->contains("onPrimaryHotkey: ENTRY key=m low=m"));
    desktop.eventTap().key(Key::m, false, false);
    EXPECT_EQ(passedKeys(), 1u);  // the key up of a swallowed down passes
    hold({});
}

TEST_F(RouterFixture, OnReleaseActsAtTriggerUpAndEscapeCancels) {
    begin({{"activationMode", "onRelease"}});
    hold({"rightCommand"});
    press(Key::m);
    EXPECT_EQ(front(), "com.apple.Safari");  // nothing at key down
    hold({});
    EXPECT_EQ(front(), "com.apple.mail");
    // A static letter too, and Escape drops it.
    statics["n"] = "com.apple.mail";
    world().activate(world().app("com.apple.Safari")->pid);
    hold({"rightCommand"});
    press(Key::n);
    press(Key::escape);
    hold({});
    runFor(1000);
    EXPECT_EQ(front(), "com.apple.Safari");
}

TEST_F(RouterFixture, AdaptiveWaitsTheGraceForAnAppWithTwoWindowsThenCommits) {
    statics["s"] = "com.apple.Safari";
    begin({{"adaptiveFollowupGraceMs", 150}});
    world().activate(world().app("com.apple.mail")->pid);
    hold({"rightCommand"});
    press(Key::s);
    EXPECT_EQ(front(), "com.apple.mail");
    runFor(149);
    EXPECT_EQ(front(), "com.apple.mail");
    runFor(1);
    EXPECT_EQ(front(), "com.apple.Safari");  // the grace ran out: committed
    hold({});
    // One window, not ambiguous: at key down, no grace.
    statics["m"] = "com.apple.mail";
    hold({"rightCommand"});
    press(Key::m);
    EXPECT_EQ(front(), "com.apple.mail");
    hold({});
}

TEST_F(RouterFixture, AdaptiveGraceCommitsAtTriggerUp) {
    statics["s"] = "com.apple.Safari";
    begin();
    world().activate(world().app("com.apple.mail")->pid);
    hold({"rightCommand"});
    press(Key::s);
    runFor(50);
    hold({});
    EXPECT_EQ(front(), "com.apple.Safari");
}

TEST_F(RouterFixture, SameLetterDuringAlreadyFocusedGraceRunsTheActionOnce) {
    statics["s"] = "com.apple.Safari";
    begin({{"whenAlreadyFocusedAction", 3}});  // cycleWindows
    hold({"rightCommand"});
    press(Key::s);  // Safari is in front with two windows: the already-focused action waits
    EXPECT_TRUE(calls.empty());
    runFor(20);
    press(Key::s);  // the same letter: the action at once
    EXPECT_EQ(calls, std::vector<std::string>{"cycle com.apple.Safari"});
    EXPECT_TRUE(input().alreadyFocusedActionFiredThisHold);
    runFor(500);
    hold({});
    EXPECT_EQ(calls, std::vector<std::string>{"cycle com.apple.Safari"});
}

TEST_F(RouterFixture, AlreadyFocusedActionHidesByDefault) {
    begin({{"activationMode", "onPress"}});
    hold({"rightCommand"});
    press(Key::s);
    hold({});
    EXPECT_TRUE(world().app("com.apple.Safari")->hidden);
    EXPECT_TRUE(logs->contains("Hiding assigned com.apple.Safari"));
}

TEST_F(RouterFixture, StaticLaunchWaitsForTheBreakoutThreshold) {
    statics["n"] = "com.apple.Notes";
    begin();  // threshold setting 0 and the panel off: 0.25 s
    hold({"rightCommand"});
    press(Key::n);
    runFor(249);
    EXPECT_TRUE(calls.empty());
    runFor(1);
    EXPECT_EQ(calls, std::vector<std::string>{"launch com.apple.Notes"});
    hold({});
    runFor(300);
    EXPECT_EQ(front(), "com.apple.Notes");
}

TEST_F(RouterFixture, AQuickSecondKeyBeforeTheThresholdDoesNotLaunch) {
    statics["n"] = "com.apple.Notes";
    begin();
    hold({"rightCommand"});
    press(Key::n);
    runFor(240);
    press(Key::o);  // inside 0.25 s: the letter turns into a search
    runFor(1000);
    EXPECT_TRUE(calls.empty());
    EXPECT_FALSE(world().app("com.apple.Notes")->running);
    // The release commits the search's highlighted row instead: "no" is Notes.
    hold({});
    runFor(1000);
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(world().app("com.apple.Notes")->running);
}

TEST_F(RouterFixture, ASlowSecondKeyLaunchesFirst) {
    statics["n"] = "com.apple.Notes";
    begin({{"staticBreakoutThresholdMs", 100}});
    hold({"rightCommand"});
    press(Key::n);
    runFor(99);
    EXPECT_TRUE(calls.empty());
    runFor(1);  // the timer at the configured threshold
    EXPECT_EQ(calls.size(), 1u);
    hold({});
}

TEST_F(RouterFixture, DigitsFollowTheSpaceMode) {
    statics["2"] = "com.apple.mail";
    begin({{"activationMode", "onPress"}});
    hold({"rightCommand"});
    press(Key::two);  // single mode: a plain assignment
    EXPECT_EQ(front(), "com.apple.mail");
    // The digit also started a query (Mail wasn't in front at the press): a fresh hold for 0.
    EXPECT_EQ(agent->router().searchBuffer.get(), "2");
    hold({});
    hold({"rightCommand"});
    press(Key::zero);  // no assignment for 0: the last focused window
    EXPECT_EQ(calls, std::vector<std::string>{"focusLast"});
    hold({});
    desktop.settings().write("spaceMode", "multi");
    hold({"rightCommand"});
    press(Key::two);
    hold({});
    EXPECT_EQ(calls.back(), "space 2");
}

TEST_F(RouterFixture, HideKeyHidesAllAndThenRestoresExactlyThose) {
    begin();
    world().hide(world().app("com.apple.mail")->pid);  // hidden before: not ours to bring back
    hold({"rightCommand"});
    press(Key::minus);
    hold({});
    EXPECT_TRUE(world().app("com.apple.Safari")->hidden);
    EXPECT_EQ(front(), "com.ferrowlabs.zelk");
    hold({"rightCommand"});
    press(Key::minus);
    hold({});
    EXPECT_FALSE(world().app("com.apple.Safari")->hidden);
    EXPECT_TRUE(world().app("com.apple.mail")->hidden);
    EXPECT_TRUE(agent->router().appsThatWereHidden.empty());
}

TEST_F(RouterFixture, HideKeySwitchedOffReachesTheApp) {
    begin({{"enableHideAndSettingsKeys", false}});
    hold({"rightCommand"});
    press(Key::minus);
    hold({});
    EXPECT_FALSE(world().app("com.apple.Safari")->hidden);
    EXPECT_EQ(passedKeys(), 2u);
}

TEST_F(RouterFixture, UnboundLetterPassesAndMarksTheHoldUsed) {
    begin();
    hold({"rightCommand"});
    press(Key::q);
    EXPECT_EQ(passedKeys(), 2u);
    EXPECT_TRUE(input().appTriggerKeyUsedDuringHold);
    hold({});
}

TEST_F(RouterFixture, AutoRepeatLetsLettersOnAndSwallowsTheRest) {
    begin({{"activationMode", "onPress"}});
    hold({"rightCommand"});
    desktop.eventTap().key(Key::minus, true, true);  // a repeated non-letter under a trigger
    EXPECT_EQ(passedKeys(), 0u);
    EXPECT_EQ(front(), "com.apple.Safari");
    desktop.eventTap().key(Key::q, true, true);  // a repeated letter goes on: unbound, it reaches the app
    EXPECT_EQ(passedKeys(), 1u);
    press(Key::m);
    EXPECT_EQ(front(), "com.apple.mail");
    desktop.eventTap().key(Key::m, true, true);  // held, it is still the one press
    EXPECT_EQ(logs->count("onPrimaryHotkey: ENTRY key=m low=m"), 1u);
    hold({});
}

TEST_F(RouterFixture, WindowTriggerMinimizeKeyIsReachable) {
    begin();
    bool minimized = false;
    agent->router().services().minimizeFocusedApp = [&](bool onlyFocused) {
        minimized = onlyFocused;
        return true;
    };
    hold({"ralt"});
    press(Key::minus);
    hold({});
    EXPECT_TRUE(minimized);
    EXPECT_EQ(passedKeys(), 1u);  // only the key up
}

TEST_F(RouterFixture, TheAssignTriggerTakesALetterFromAnotherAppOnlyOnASecondPressSoonAfter) {
    statics["m"] = "com.apple.mail";
    begin();
    std::vector<std::string> assigned;
    agent->router().services().assignLetter = [&](const RoutedApp& app, const std::string& key) {
        assigned.push_back(key + " " + app.bundleID);
        return true;
    };
    const std::string front = this->front();
    hold({"rightCommand", "ralt"});
    press(Key::m);  // bound to Mail: only the message
    EXPECT_TRUE(assigned.empty());
    press(Key::m);  // again, at once: the letter moves
    ASSERT_EQ(assigned.size(), 1u);
    EXPECT_EQ(assigned[0], "m " + front);
    press(Key::m);
    runFor(2500);
    press(Key::m);  // too late for the first of these two: asks again
    EXPECT_EQ(assigned.size(), 1u);
    press(Key::z);  // a free letter is taken at once
    EXPECT_EQ(assigned.back(), "z " + front);
    hold({});
}

// The sticky search, once the search is built: Space latches it, typing goes to it until Escape (or
// Delete on an empty query) ends it, and then keys reach the app again.
TEST_F(RouterFixture, TheStickySearchHoldsUntilEscapeOrDeleteAndThenKeysPassAgain) {
    built.search = true;
    begin({{"activationMode", "onPress"}});
    auto downPasses = [&](Key k) {
        auto before = passedKeys();
        desktop.eventTap().key(k, true, false);
        bool passed = passedKeys() > before;
        desktop.eventTap().key(k, false, false);
        return passed;
    };
    hold({"rightCommand"});
    EXPECT_FALSE(downPasses(Key::space));
    hold({});
    EXPECT_TRUE(input().isLatched());
    EXPECT_FALSE(downPasses(Key::a));
    EXPECT_EQ(agent->router().searchBuffer.get(), "a");
    EXPECT_FALSE(downPasses(Key::escape));
    EXPECT_TRUE(downPasses(Key::a));
    // Delete on an empty latched search ends it too.
    hold({"rightCommand"});
    EXPECT_FALSE(downPasses(Key::space));
    hold({});
    EXPECT_FALSE(downPasses(Key::delete_));
    EXPECT_FALSE(input().isLatched());
    EXPECT_TRUE(downPasses(Key::a));
}

// Without the search, Space under the trigger and a double tap of the trigger take nothing: the
// letters that follow keep their own routes.
TEST_F(RouterFixture, WithoutTheSearchNeitherSpaceNorADoubleTapCapturesTyping) {
    statics["m"] = "com.apple.mail";
    begin({{"activationMode", "onPress"}});
    hold({"rightCommand"});
    press(Key::space);
    EXPECT_EQ(passedKeys(), 2u);
    hold({});
    EXPECT_FALSE(input().isLatched());
    hold({"rightCommand"});
    hold({});
    hold({"rightCommand"});  // a double tap: window search would take every letter
    press(Key::m);
    EXPECT_EQ(front(), "com.apple.mail");
    hold({});
}

// A route whose feature isn't built lets its key through: trigger + Shift + Tab walks the application
// panel only once the panel can be walked.
TEST_F(RouterFixture, KeysOfFeaturesNotBuiltYetPassThrough) {
    begin();
    auto tabDownPasses = [&] {
        auto before = passedKeys();
        desktop.eventTap().key(Key::tab, true, false);
        bool passed = passedKeys() > before;
        desktop.eventTap().key(Key::tab, false, false);
        return passed;
    };
    agent->router().services().built.panel = false;
    hold({"rightCommand", "rshift"});
    EXPECT_TRUE(tabDownPasses());
    EXPECT_FALSE(input().appSwitcherCycleSelectedID);
    agent->router().services().built.panel = true;
    EXPECT_FALSE(tabDownPasses());
    EXPECT_TRUE(input().appSwitcherCycleSelectedID);
    hold({});
}

// A second quick press of a letter whose binding only focuses (already-focused action "do nothing")
// has nothing to add, so the letter extends the query instead of routing the app again.
TEST_F(RouterFixture, ASecondQuickPressOfAFocusOnlyBindingTypesOn) {
    statics["s"] = "com.apple.Safari";
    begin({{"activationMode", "onPress"}, {"whenAlreadyFocusedAction", 4}});
    hold({"rightCommand"});
    press(Key::s);
    runFor(20);
    press(Key::s);
    EXPECT_EQ(agent->router().searchBuffer.get(), "ss");
    EXPECT_EQ(logs->count("onPrimaryHotkey: ENTRY key=s low=s"), 1u);
    hold({});
    // With an action of its own, the second press routes the app again.
    desktop.settings().write("whenAlreadyFocusedAction", 3);
    hold({"rightCommand"});
    press(Key::s);
    runFor(20);
    press(Key::s);
    EXPECT_EQ(calls, (std::vector<std::string>{"cycle com.apple.Safari", "cycle com.apple.Safari"}));
    hold({});
}

// The hide key under the hide-on-focus trigger hides every app, although its default keys are also
// the application trigger plus right Shift.
TEST_F(RouterFixture, TheHideOnFocusTriggerReachesTheHideKey) {
    begin({{"enableHideOnFocusHotkey", true}});
    hold({"rightCommand", "rshift"});
    press(Key::minus);
    hold({});
    EXPECT_TRUE(world().app("com.apple.Safari")->hidden);
    EXPECT_TRUE(world().app("com.apple.mail")->hidden);
    EXPECT_EQ(passedKeys(), 1u);  // only the key up
}

// The key-0 log names the real triggers.
TEST_F(RouterFixture, TheZeroKeyLogNamesTheTrigger) {
    begin({{"activationMode", "onPress"}});
    hold({"rightCommand"});
    press(Key::zero);
    hold({});
    EXPECT_TRUE(logs->contains("hotkey: R⌘+0 -> focusLastFocusedWindow"));
}
