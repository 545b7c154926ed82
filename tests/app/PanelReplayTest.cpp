// The panel on the replay bench: when it shows, what it shows, where, and how latches end, read
// from the `panel` events and log lines of the trace.
#include <gtest/gtest.h>

#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

// Two displays; the focused window stands on the second, so that is the main screen.
const char* kPanelWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
  - {id: 2, frame: [1440, 0, 1920, 1080], spaces: [{id: 2}], currentSpace: 2}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 2}, {id: 1002, title: "News", space: 2}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {showAppSwitcher: true, stageTriggerKeys: [rctrl], appKeyAssignments: []}
)";

std::vector<json> panels(const std::vector<json>& events) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "panel") out.push_back(e);
    return out;
}

// The first panel event at or after `t` that is visible; null when none.
json firstVisible(const std::vector<json>& events, double from = 0) {
    for (auto& p : panels(events))
        if (p["t"].get<double>() >= from && p["visible"].get<bool>()) return p;
    return nullptr;
}

json lastPanelAtOrBefore(const std::vector<json>& events, double t) {
    json last = nullptr;
    for (auto& p : panels(events))
        if (p["t"].get<double>() <= t) last = p;
    return last;
}

std::vector<std::string> titles(const json& panel) {
    std::vector<std::string> out;
    for (auto& r : panel["items"])
        out.push_back(r["title"]);
    return out;
}

TEST(PanelDelays, AppPanelWaitsItsDelayWindowPanelShowsAtOnce) {
    auto events = replay(kPanelWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1400, flags: []}
- {at: 2000, flags: [ralt]}
- {at: 2300, flags: []}
- {at: 2500, end: true}
)");
    // The hold arms a show 150 ms out; the panel appears then, and goes with the trigger.
    auto pending = lastPanelAtOrBefore(events, 1000);
    ASSERT_FALSE(pending.is_null());
    EXPECT_FALSE(pending["visible"].get<bool>());
    EXPECT_EQ(pending["pending"]["kind"], "show");
    EXPECT_EQ(pending["pending"]["due"], 1150);
    EXPECT_EQ(pending["text"], "hidden, show due at 1150ms (AppSwitcherOSDView)");
    auto shown = firstVisible(events);
    ASSERT_FALSE(shown.is_null());
    EXPECT_EQ(shown["t"], 1150);
    EXPECT_EQ(shown["view"], "AppSwitcherOSDView");
    EXPECT_EQ(shown["row"], 6);
    EXPECT_FALSE(lastPanelAtOrBefore(events, 1400)["visible"].get<bool>());

    auto window = firstVisible(events, 2000);
    ASSERT_FALSE(window.is_null());
    EXPECT_EQ(window["t"], 2000);
    EXPECT_EQ(window["view"], "WindowSwitcherOSDView");
    EXPECT_EQ(window["row"], 7);
    EXPECT_EQ(titles(window), (std::vector<std::string>{"Apple", "News"}));
    EXPECT_EQ(window["rows"], json({"1001", "1002"}));
    EXPECT_EQ(window["items"][0]["highlighted"], true);
    EXPECT_EQ(window["items"][0]["section"], "Open windows");
    EXPECT_FALSE(lastPanelAtOrBefore(events, 2300)["visible"].get<bool>());
}

TEST(PanelDelays, QuickTapNeverPaintsAndASecondHoldWaitsAgain) {
    auto events = replay(kPanelWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1060, flags: []}
- {at: 2000, flags: [rightCommand]}
- {at: 2400, flags: []}
- {at: 3000, flags: [rightCommand]}
- {at: 3400, flags: []}
- {at: 3500, end: true}
)");
    EXPECT_TRUE(firstVisible(events).is_null() == false);
    EXPECT_GE(firstVisible(events)["t"].get<double>(), 2000);
    // After a hide the next hold passes its delay again rather than reappearing at once.
    EXPECT_EQ(firstVisible(events, 2000)["t"], 2150);
    EXPECT_EQ(firstVisible(events, 3000)["t"], 3150);
    auto afterTap = lastPanelAtOrBefore(events, 1999);
    EXPECT_FALSE(afterTap["visible"].get<bool>());
    EXPECT_FALSE(afterTap.contains("pending"));
}

TEST(PanelDelays, DelayedShowSkippedWhenTheTriggerWasPhysicallyReleased) {
    // The tap stops hearing events and misses the release: the hardware flags say released.
    auto events = replay(kPanelWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1050, fault: {tapDead: true}}
- {at: 1060, flags: []}
- {at: 1500, end: true}
)",
                         true);
    EXPECT_TRUE(firstVisible(events).is_null());
    auto retry = lastPanelAtOrBefore(events, 1150);
    EXPECT_EQ(retry["pending"]["kind"], "retry");
    EXPECT_EQ(retry["pending"]["due"], 1250);
    EXPECT_EQ(logsStartingWith(events, "showOSD: delayed show skipped"),
              std::vector<std::string>{"showOSD: delayed show skipped, trigger no longer physically held"});
}

TEST(PanelWatchdog, ClosesAPanelWhoseReleaseWasLostAndCommits) {
    auto events = replay(kPanelWorld, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, fault: {tapDead: true}}
- {at: 1200, flags: []}
- {at: 2000, end: true}
)",
                         true);
    ASSERT_EQ(firstVisible(events)["t"], 1000);
    // Ticks at 1300 (first strike) and 1600 (second: force hide).
    EXPECT_EQ(lastPanelAtOrBefore(events, 1300)["strikes"], 1);
    EXPECT_TRUE(lastPanelAtOrBefore(events, 1599)["visible"].get<bool>());
    EXPECT_FALSE(lastPanelAtOrBefore(events, 1600)["visible"].get<bool>());
    auto stuck = logsStartingWith(events, "OSD stuck after trigger key release");
    ASSERT_EQ(stuck.size(), 1u);
    for (auto& e : events) {
        if (e["kind"] == "log" && e["message"].get<std::string>().starts_with("OSD stuck")) {
            EXPECT_EQ(e["t"], 1600);
        }
    }
}

TEST(PanelWatchdog, ACapsLockStageSetDoesNotBlindTheCheckOfAWindowHold) {
    // Only a held set with caps lock can't be checked; the default stage set doesn't stop the check
    // of a window-trigger hold.
    std::string world = kPanelWorld;
    world.replace(world.find("stageTriggerKeys: [rctrl]"), 25, "stageTriggerKeys: [capsLock]");
    auto events = replay(world, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, fault: {tapDead: true}}
- {at: 1200, flags: []}
- {at: 2500, end: true}
)",
                         true);
    EXPECT_FALSE(lastPanelAtOrBefore(events, 1600)["visible"].get<bool>());
    EXPECT_TRUE(hasLog(events, "OSD stuck after trigger key release, force hiding"));
}

TEST(PanelLatch, OsdCommandTogglesSurfacesAndHides) {
    auto events = replay(kPanelWorld, R"(
- {at: 1000, command: {command: osd, surface: window}}
- {at: 1100, command: {command: osd, surface: app}}
- {at: 1200, command: {command: osd, surface: app}}
- {at: 1300, command: {command: osd, surface: window}}
- {at: 1400, command: {command: osd, surface: hide}}
- {at: 1500, end: true}
)");
    auto window = lastPanelAtOrBefore(events, 1000);
    EXPECT_TRUE(window["visible"].get<bool>());
    EXPECT_EQ(window["latched"], "window");
    EXPECT_EQ(window["view"], "SearchOSDView");
    // The window surface takes the window panel's height.
    EXPECT_EQ(window["frame"][3], 420);
    auto app = lastPanelAtOrBefore(events, 1100);
    EXPECT_TRUE(app["visible"].get<bool>());
    EXPECT_EQ(app["latched"], "app");
    EXPECT_EQ(app["frame"][3], 600);
    // The same surface again closes it.
    EXPECT_FALSE(lastPanelAtOrBefore(events, 1200)["visible"].get<bool>());
    EXPECT_EQ(lastPanelAtOrBefore(events, 1300)["latched"], "window");
    auto hidden = lastPanelAtOrBefore(events, 1400);
    EXPECT_FALSE(hidden["visible"].get<bool>());
    EXPECT_FALSE(hidden.contains("latched"));
}

TEST(PanelLatch, TriggerPressAndOutsideClickUnlatch) {
    auto events = replay(kPanelWorld, R"(
- {at: 1000, command: {command: osd, surface: app}}
- {at: 1100, flags: [ralt]}
- {at: 1150, flags: []}
- {at: 2000, command: {command: osd, surface: app}}
- {at: 2100, click: {x: 3000, y: 900}}
- {at: 2200, click: {x: 100, y: 100}}
- {at: 2300, end: true}
)");
    EXPECT_EQ(lastPanelAtOrBefore(events, 1000)["latched"], "app");
    // A trigger press ends the latch (and shows its own panel while held).
    auto pressed = lastPanelAtOrBefore(events, 1100);
    EXPECT_FALSE(pressed.contains("latched"));
    EXPECT_EQ(pressed["view"], "WindowSwitcherOSDView");
    EXPECT_EQ(lastPanelAtOrBefore(events, 2000)["latched"], "app");
    // A click inside the panel (bottom right of display 2) is the panel's own.
    EXPECT_EQ(lastPanelAtOrBefore(events, 2150)["latched"], "app");
    auto clicked = lastPanelAtOrBefore(events, 2200);
    EXPECT_FALSE(clicked["visible"].get<bool>());
    EXPECT_FALSE(clicked.contains("latched"));
}

TEST(PanelPlacement, SecondDisplayWithOffsetsScaledByItsHeight) {
    std::string world = kPanelWorld;
    world.replace(
        world.find("settings: {"), 11,
        "settings: {switcherScreenPlacement: 2, switcherScreenOffsetX: 40, switcherScreenOffsetY: 30, "
        "switcherScreenOffsetRefHeight: 540, ");
    auto events = replay(world, R"(
- {at: 1000, flags: [ralt]}
- {at: 1100, flags: []}
- {at: 1200, end: true}
)");
    auto shown = firstVisible(events);
    ASSERT_FALSE(shown.is_null());
    EXPECT_EQ(shown["display"], 2);
    // Top left of display 2's visible frame (below its menu bar), inset 12, X by 40 and Y by 30 scaled
    // by 1080 / 540.
    EXPECT_EQ(shown["frame"], json({1440 + 12 + 40, 25 + 12 + 60, 480, 420}));
}

}  // namespace
}  // namespace zelk::testing
