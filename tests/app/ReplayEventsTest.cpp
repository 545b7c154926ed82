// The replay bench's script events as outside checks use them: what each event does to the desktop,
// what the trace says about it, the order of events at one time, and scripts that can't be read.
#include <algorithm>

#include "ReplayHelpers.h"
#include "ReplayScript.h"

using namespace zelk::agent;
using namespace zelk::testing;

namespace {

const char* kWorld = R"(
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
    launchDelayMs: 250
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {activationMode: onPress}
)";

std::vector<std::string> logMessages(const std::vector<json>& events) {
    std::vector<std::string> out;
    for (auto& e : events)
        if (e["kind"] == "log") out.push_back(e["message"]);
    return out;
}

bool anyLogContains(const std::vector<json>& events, const std::string& text) {
    auto logs = logMessages(events);
    return std::any_of(logs.begin(), logs.end(),
                       [&](const std::string& m) { return m.find(text) != std::string::npos; });
}

// The answers of the tap to the key downs, in order ("m=swallowed").
std::vector<std::string> keyDowns(const std::vector<json>& events) {
    std::vector<std::string> out;
    for (auto& e : events)
        if (e["kind"] == "key" && e["down"] == true)
            out.push_back((e["key"].is_string() ? e["key"].get<std::string>() : "?") + "=" +
                          e["action"].get<std::string>());
    return out;
}

}  // namespace

TEST(ReplayEvents, CrashAndQuitCloseTheWindowsThenEndTheAppAndHandFocusOn) {
    auto events = replay(kWorld, R"(
- {at: 100, crash: com.apple.Safari}
- {at: 200, quit: com.apple.mail}
- {at: 300, quit: com.apple.mail}
- {at: 400, end: true}
)");
    EXPECT_EQ(summary(events, {"window", "terminate", "focus", "script"}),
              (std::vector<std::string>{
                  "100 window closed=true id=1001",
                  "100 window closed=true id=1002",
                  "100 terminate bundleID=com.apple.Safari",
                  "100 focus bundleID=com.apple.mail pid=102 windowID=1011",
                  "200 window closed=true id=1011",
                  "200 terminate bundleID=com.apple.mail",
                  "200 focus bundleID= pid=0",
                  "300 script line=3 message=quit: com.apple.mail is not running",
              }));
}

TEST(ReplayEvents, HidingMinimisingAndPointerMovesAreTraced) {
    auto events = replay(kWorld, R"(
- {at: 100, minimize: 1001}
- {at: 200, hide: com.apple.Safari}
- {at: 300, unhide: com.apple.Safari}
- {at: 400, unminimize: 1001}
- {at: 500, pointer: {x: 10, y: 20.5}}
- {at: 600, activate: com.apple.Safari}
- {at: 700, end: true}
)");
    EXPECT_EQ(summary(events, {"window", "hide", "unhide", "focus", "pointer", "script"}),
              (std::vector<std::string>{
                  "100 window id=1001 minimized=true",
                  "100 focus bundleID=com.apple.Safari pid=101 windowID=1002",
                  "200 hide bundleID=com.apple.Safari",
                  "200 focus bundleID=com.apple.mail pid=102 windowID=1011",
                  "300 unhide bundleID=com.apple.Safari",
                  "400 window id=1001 minimized=false",
                  "500 pointer x=10.0 y=20.5",
                  "600 focus bundleID=com.apple.Safari pid=101 windowID=1001",
              }));
}

TEST(ReplayEvents, EventsAtOneTimeApplyInWrittenOrderAfterTheWorkDueThen) {
    // Notes finishes launching at exactly 350: its window can be opened by an event at 350.
    auto events = replay(kWorld, R"(
- {at: 100, launch: com.apple.Notes}
- {at: 350, openWindow: {bundleID: com.apple.Notes, id: 77, title: "Second"}}
- {at: 350, activate: com.apple.mail}
- {at: 350, activate: com.apple.Safari}
- {at: 350, retitle: {id: 77, title: "Renamed"}}
- {at: 350, switchSpace: {display: 1, space: 2}}
- {at: 350, switchSpace: {display: 1, space: 1}}
- {at: 400, end: true}
)");
    auto lines = summary(events, {"focus", "script", "space", "launch"});
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(lines[0], "100 launch activates=true bundleID=com.apple.Notes");
    std::vector<std::string> at350(lines.begin() + 1, lines.end());
    EXPECT_EQ(at350, (std::vector<std::string>{
                         "350 focus bundleID=com.apple.Notes pid=501 windowID=5001",
                         "350 focus bundleID=com.apple.Notes pid=501 windowID=77",
                         "350 focus bundleID=com.apple.mail pid=102 windowID=1011",
                         "350 focus bundleID=com.apple.Safari pid=101 windowID=1001",
                         "350 space display=1 space=2",
                         "350 focus bundleID=com.apple.Safari pid=101",
                         "350 space display=1 space=1",
                         "350 focus bundleID=com.apple.Safari pid=101 windowID=1001",
                     }));
    EXPECT_EQ(summary(events, {"window"}).back(), "350 window id=77 title=Renamed");
}

TEST(ReplayEvents, WindowEventsThatCannotApplyAreNotedNotGuessed) {
    auto events = replay(kWorld, R"(
- {at: 100, openWindow: {bundleID: com.apple.mail, id: 88, title: "Lost", space: 9}}
- {at: 200, openWindow: {bundleID: com.apple.Notes, title: "Not yet"}}
- {at: 300, retitle: {id: 4242, title: "x"}}
- {at: 400, switchSpace: {display: 2, space: 1}}
- {at: 500, minimize: 4242}
- {at: 600, end: true}
)");
    EXPECT_EQ(summary(events, {"script", "window", "space"}),
              (std::vector<std::string>{
                  "100 script line=1 message=openWindow: no Space 9",
                  "200 script line=2 message=openWindow: app is not running",
                  "300 script line=3 message=retitle: no such window",
                  "400 script line=4 message=switchSpace: no such display or Space",
                  "500 script line=5 message=minimize: no such window",
              }));
}

TEST(ReplayEvents, OverlayAndSecureInputFaultsTakeTheirDocumentedValues) {
    auto events = replay(kWorld, R"(
- {at: 100, fault: {missionControl: true}}
- {at: 200, fault: {missionControl: false}}
- {at: 300, fault: {appExpose: true}}
- {at: 400, fault: {missionControl: false}}
- {at: 500, fault: {appExpose: false}}
- {at: 600, fault: {secureInput: true}}
- {at: 3000, fault: {secureInput: false}}
- {at: 5000, fault: {sunspots: true}}
- {at: 6000, end: true}
)",
                         true);
    EXPECT_EQ(summary(events, {"overlay", "script"}),
              (std::vector<std::string>{
                  "100 overlay state=missionControl",
                  "200 overlay state=none",
                  "300 overlay state=appExpose",
                  "500 overlay state=none",
                  "5000 script line=8 message=fault: unknown fault 'sunspots'",
              }));
    // Secure input is engaged by the app in front.
    EXPECT_TRUE(anyLogContains(events, "Secure Keyboard Entry engaged by Safari (pid 101)"));
    EXPECT_TRUE(anyLogContains(events, "Secure Keyboard Entry released after"));
}

TEST(ReplayEvents, FaultsOnTheTapAndPermissionDecideWhatTheProgramSees) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1200, flags: []}
- {at: 2000, fault: {tapDisabled: true}}
- {at: 2100, flags: [rightCommand]}
- {at: 2200, tap: s}
- {at: 2300, flags: []}
- {at: 3000, fault: {tapDead: true}}
- {at: 3100, flags: [rightCommand]}
- {at: 3200, tap: m}
- {at: 3300, flags: []}
- {at: 4000, fault: {tapDead: false, permission: {accessibility: false}}}
- {at: 4100, flags: [rightCommand]}
- {at: 4200, tap: s}
- {at: 4300, flags: []}
- {at: 5000, end: true}
)",
                         true);
    // Taken while the tap works (also after the system disabled it and zelk re-enabled it); passed
    // unseen once the tap is dead or the permission is gone.
    EXPECT_EQ(keyDowns(events),
              (std::vector<std::string>{"m=swallowed", "s=swallowed", "m=passed", "s=passed"}));
    EXPECT_TRUE(anyLogContains(events, "key tap disabled by timeout"));
    EXPECT_TRUE(summary(events, {"script"}).empty());
}

TEST(ReplayEvents, AHungAppTimesOutAloneAndTheRunGoesOn) {
    auto events = replay(kWorld, R"(
- {at: 1000, fault: {axTimeout: com.apple.mail}}
- {at: 1100, activate: com.apple.mail}
- {at: 4000, fault: {axRecover: com.apple.mail}}
- {at: 4100, activate: com.apple.Safari}
- {at: 4200, activate: com.apple.mail}
- {at: 6000, end: true}
)",
                         true);
    std::vector<std::string> timeouts;
    for (auto& m : logMessages(events))
        if (m.find("timed out") != std::string::npos) timeouts.push_back(m);
    EXPECT_EQ(
        timeouts,
        (std::vector<std::string>{
            "getWindowsForApp: com.apple.mail AX timed out (cannotComplete) [1x]; cooling down for 5.0s"}));
    EXPECT_EQ(summary(events, {"focus", "script"}),
              (std::vector<std::string>{"1100 focus bundleID=com.apple.mail pid=102 windowID=1011",
                                        "4100 focus bundleID=com.apple.Safari pid=101 windowID=1001",
                                        "4200 focus bundleID=com.apple.mail pid=102 windowID=1011"}));
    // Times never go back in the trace, even across the blocked calls.
    double last = 0;
    for (auto& e : events) {
        EXPECT_GE(e["t"].get<double>(), last) << e.dump();
        last = e["t"].get<double>();
    }
}

TEST(ReplayEvents, ALaunchThatFailsNeverRuns) {
    auto events = replay(kWorld, R"(
- {at: 100, fault: {launchFails: com.apple.Notes}}
- {at: 200, launch: com.apple.Notes}
- {at: 1000, activate: com.apple.Notes}
- {at: 1100, end: true}
)");
    EXPECT_EQ(summary(events, {"launch", "focus", "window", "script"}),
              (std::vector<std::string>{
                  "200 launch activates=true bundleID=com.apple.Notes",
                  "1000 script line=3 message=activate: com.apple.Notes is not running",
              }));
}

TEST(ReplayEvents, ASettingEventReachesTheRunningProgram) {
    // Right Control is no trigger until the settings store says so.
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rctrl]}
- {at: 1100, tap: m}
- {at: 1200, flags: []}
- {at: 2000, setting: {triggerKeys: [rctrl]}}
- {at: 3000, flags: [rctrl]}
- {at: 3100, tap: m}
- {at: 3200, flags: []}
- {at: 4000, end: true}
)");
    EXPECT_EQ(keyDowns(events), (std::vector<std::string>{"m=passed", "m=swallowed"}));
    EXPECT_EQ(summary(events, {"focus"}),
              (std::vector<std::string>{"3100 focus bundleID=com.apple.mail pid=102 windowID=1011"}));
}

TEST(ReplayEvents, KeysFollowTheWorldsLayoutAndRepeatsAreMarked) {
    std::string world = kWorld;
    world += "keyboardLayout: azerty\n";
    auto events = replay(world, R"(
- {at: 100, keyDown: a}
- {at: 110, keyDown: a, repeat: true}
- {at: 120, keyUp: a}
- {at: 200, tap: leftBracket}
- {at: 300, end: true}
)");
    auto keys = summary(events, {"key", "script"});
    EXPECT_EQ(keys, (std::vector<std::string>{
                        "100 key action=passed down=true key=a keyCode=12",
                        "110 key action=passed down=true key=a keyCode=12 repeat=true",
                        "120 key action=passed down=false key=a keyCode=12",
                        "200 script line=4 message=the azerty layout has no key for 'leftBracket'",
                        "210 script line=4 message=the azerty layout has no key for 'leftBracket'",
                    }));
}

TEST(ReplayScriptBodies, MalformedEventsAreRejectedWithTheEventNumberAndField) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"- {at: 1, openWindow: {id: 5}}", "event 1: openWindow.bundleID: missing"},
        {"- {at: 1, openWindow: {bundleID: a, id: five}}",
         "event 1: openWindow.id: expected a window id (0 to 4294967295)"},
        {"- {at: 1, openWindow: {bundleID: a, frame: [1, 2, 3]}}",
         "event 1: openWindow.frame: expected [x, y, w, h] of finite numbers within ±10000000"},
        {"- {at: 1, openWindow: {bundleID: a, space: -2}}",
         "event 1: openWindow.space: expected a Space id (a whole number of at least 0)"},
        {"- {at: 1, retitle: {id: 5}}", "event 1: retitle.title: missing"},
        {"- {at: 1, retitle: {id: 5, title: [a]}}", "event 1: retitle.title: expected a string"},
        {"- {at: 1, switchSpace: {display: 1}}", "event 1: switchSpace.space: missing"},
        {"- {at: 1, switchSpace: {display: one, space: 2}}",
         "event 1: switchSpace.display: expected a display id (0 to 4294967295)"},
        {"- {at: 1, pointer: {x: 1}}", "event 1: pointer.y: missing"},
        {"- {at: 1, fault: {tapDead: 1}}", "event 1: fault.tapDead: expected true or false"},
        {"- {at: 1, fault: {axTimeout: [a]}}", "event 1: fault.axTimeout: expected a string"},
        {"- {at: 1, fault: {secureInput: on}}",
         "event 1: fault.secureInput: expected true, false or a pid (1 to 2147483647)"},
        {"- {at: 1, fault: {permission: {accessibility: nope}}}",
         "event 1: fault.permission.accessibility: expected true or false"},
        {"- {at: 1, closeWindow: -3}", "event 1: closeWindow: expected a window id (0 to 4294967295)"},
        {"- {at: 1, hide: 12}", "event 1: hide: expected a bundle identifier"},
        {"- {at: 1, activate: a, quit: a}", "event 1: two events in one entry ('activate' and 'quit')"},
        {"- {at: 5, tap: s}\n- {at: 4, tap: d}", "event 2: 'at' 4 goes back in time (previous 5)"},
        {"- {at: -1, tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
    };
    for (auto& [script, expected] : cases) {
        ReplayScript s;
        std::string error;
        EXPECT_FALSE(parseReplayScript(script, s, error)) << script;
        EXPECT_EQ(error, expected) << script;
        // The bench refuses it whole: exit 2 and the reason, no run.
        std::stringstream out;
        ReplayOptions options;
        options.jsonTrace = &out;
        EXPECT_EQ(ReplayRunner().run(kWorld, script, options, error), 2);
        EXPECT_EQ(error, "script: " + expected);
        EXPECT_TRUE(out.str().empty());
    }
}

TEST(ReplayScriptBodies, ATapsKeyUpKeepsTimeOrderAndDropsPastTheEnd) {
    ReplayScript s;
    std::string error;
    ASSERT_TRUE(parseReplayScript(std::string(R"(
- {at: 100, tap: s}
- {at: 105, keyDown: d}
- {at: 110, keyUp: d}
- {at: 200, tap: f}
- {at: 205, end: true}
)"),
                                  s, error))
        << error;
    std::vector<std::string> order;
    for (auto& e : s.events)
        order.push_back(std::to_string(e.atMs) + " " + e.kind + " " + e.value.dump());
    EXPECT_EQ(order, (std::vector<std::string>{"100 keyDown \"s\"", "105 keyDown \"d\"", "110 keyUp \"s\"",
                                               "110 keyUp \"d\"", "200 keyDown \"f\"", "205 end true"}));
    EXPECT_EQ(s.endMs, 205);
}
