#include <algorithm>

#include "ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Notes in front on Space 1 of the built-in display, Mail on Space 3; a second display to the right
// with Spaces 4 and 5. `OS` and `EXTRA` are replaced per test.
const char* kWorld = R"(
OS
dock: true
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
  - {id: 2, frame: [1440, 0, 1920, 1080], spaces: [{id: 4}, {id: 5}], currentSpace: 4}
apps:
  - bundleID: com.apple.Notes
    name: Notes
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Groceries", frame: [100, 100, 800, 600], space: 1}
        - {id: 1002, title: "Recipes", frame: [200, 150, 800, 600], space: 1}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 3}]}
frontmost: com.apple.Notes
focusedWindow: 1001
EXTRA
)";

std::string world(const std::string& os, const std::string& extra = "") {
    std::string w = kWorld;
    w.replace(w.find("OS"), 2, os);
    w.replace(w.find("EXTRA"), 5, extra);
    return w;
}

const std::string kOpen = "osMajorVersion: 14\nosMinorVersion: 4";     // the direct move works
const std::string kBlocked = "osMajorVersion: 14\nosMinorVersion: 5";  // it refuses others' windows

std::string move(int n) {
    return "- {at: 500, command: {command: move-window-to-space, spaceIndex: " + std::to_string(n) + "}}\n";
}

std::optional<json> reply(const std::vector<json>& events) {
    for (auto& e : events)
        if (e["kind"] == "reply") return e["response"];
    return std::nullopt;
}

// Where the window is at the end, by the trace's last word on it.
std::uint64_t lastSpaceOf(const std::vector<json>& events, std::uint32_t id, std::uint64_t start) {
    std::uint64_t space = start;
    for (auto& e : events)
        if (e["kind"] == "window" && e["id"] == id && e.contains("space")) space = e["space"];
    return space;
}

// The focused window by the last `status` reply (each script ends with one).
std::optional<std::uint32_t> lastFocusedWindow(const std::vector<json>& events) {
    std::optional<std::uint32_t> id;
    for (auto& e : events)
        if (e["kind"] == "reply" && e["response"].contains("status")) {
            auto& status = e["response"]["status"];
            id = status.contains("focusedWindow")
                     ? std::optional<std::uint32_t>(status["focusedWindow"]["id"])
                     : std::nullopt;
        }
    return id;
}

std::string endAt(int ms) {
    return "- {at: " + std::to_string(ms - 100) +
           ", command: {command: status}}\n- {at: " + std::to_string(ms) + ", end: true}\n";
}

// The same desktop without the second display.
std::string oneDisplay(std::string w) {
    auto at = w.find("  - {id: 2,");
    return w.erase(at, w.find('\n', at) - at + 1);
}

std::uint64_t lastShown(const std::vector<json>& events, int display, std::uint64_t start) {
    std::uint64_t space = start;
    for (auto& e : events)
        if (e["kind"] == "space" && e["display"] == display) space = e["space"];
    return space;
}

std::size_t indexOf(const std::vector<json>& events, const std::function<bool(const json&)>& match,
                    std::size_t from = 0) {
    for (std::size_t i = from; i < events.size(); ++i)
        if (match(events[i])) return i;
    return events.size();
}

}  // namespace

TEST(SpaceMoveReplay, TheDirectMoveTakesTheFocusedWindowToSpaceThreeAndFocusFollows) {
    auto events = replay(world(kOpen), move(3) + endAt(3000), true);
    auto r = reply(events);
    ASSERT_TRUE(r);
    EXPECT_EQ((*r)["message"], "moved focused window to Space #3");
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 3u);
    EXPECT_EQ(lastSpaceOf(events, 1002, 1), 1u) << "only the focused window moves";
    EXPECT_EQ(lastShown(events, 1, 1), 3u);
    EXPECT_EQ(lastFocusedWindow(events), 1001u);
    EXPECT_TRUE(hasLog(events, "stampWindowsMovedToSpace: stamped 1/1 windows -> space=3"));
    // Nothing was dragged: the instant rung needs no mouse.
    EXPECT_EQ(indexOf(events, [](const json& e) { return e["kind"] == "mouse"; }), events.size());
}

TEST(SpaceMoveReplay, RefusedDirectMoveFallsToTheTitleBarDragInOrder) {
    // No bridged operation and the direct call refused: the window is held by its title bar while
    // the system's switch key changes Space.
    auto events = replay(world(kBlocked, "bridgedMoveAvailable: false"), move(3) + endAt(4000), true);
    auto r = reply(events);
    ASSERT_TRUE(r);
    EXPECT_EQ((*r)["message"], "moved focused window to Space #3");
    auto down =
        indexOf(events, [](const json& e) { return e["kind"] == "mouse" && e["event"] == "leftMouseDown"; });
    auto sw = indexOf(
        events, [](const json& e) { return e["kind"] == "space" && e["space"] == 3; }, down);
    auto up = indexOf(
        events, [](const json& e) { return e["kind"] == "mouse" && e["event"] == "leftMouseUp"; }, sw);
    ASSERT_LT(down, events.size());
    ASSERT_LT(sw, events.size()) << "the switch comes after the mouse down";
    ASSERT_LT(up, events.size()) << "the mouse up comes after the switch";
    // The grab is in the title bar (28 points under the frame's top edge).
    EXPECT_GE(events[down]["y"].get<double>(), 100);
    EXPECT_LT(events[down]["y"].get<double>(), 128);
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 3u);
    EXPECT_EQ(lastFocusedWindow(events), 1001u);
    EXPECT_TRUE(hasLog(events, "moveWindow: instant window moving requested but no SLS engine available"));
    EXPECT_TRUE(hasLog(events, "Move[done]: wid=1001 windowSpaceBefore=1 windowSpaceAfter=3"));
}

TEST(SpaceMoveReplay, ADragWhoseSwitchHasNoKeyStillReleasesTheMouseAndLeavesTheWindow) {
    // Switching by the system's keys, with "Switch to Desktop 3" unbound in this world.
    auto events = replay(world(kBlocked,
                               "bridgedMoveAvailable: false\nunboundSymbolicHotKeys: [120]\n"
                               "settings: {enableInstantSpaceSwitching: false}"),
                         move(3) + endAt(4000), true);
    auto up =
        indexOf(events, [](const json& e) { return e["kind"] == "mouse" && e["event"] == "leftMouseUp"; });
    EXPECT_LT(up, events.size());
    EXPECT_TRUE(hasLog(events, "Move: switch step reported failure; releasing mouse anyway"));
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 1u);
    EXPECT_EQ(lastShown(events, 1, 1), 1u);
}

TEST(SpaceMoveReplay, ASpaceOnTheOtherDisplayIsReachedByTeleport) {
    // Space 4 is the second display's first user Space.
    auto events = replay(world(kBlocked), move(4) + endAt(3000), true);
    auto r = reply(events);
    ASSERT_TRUE(r);
    EXPECT_EQ((*r)["message"], "moved focused window to Space #4");
    EXPECT_TRUE(hasLog(events, "moveFocusedWindowToSpace: cross-display teleport wid=1001 digit=4"));
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 4u);
    // The frame now lies on the second display.
    json frame;
    for (auto& e : events)
        if (e["kind"] == "window" && e["id"] == 1001 && e.contains("frame")) frame = e["frame"];
    ASSERT_TRUE(frame.is_array());
    EXPECT_GE(frame[0].get<double>(), 1440);
    EXPECT_EQ(lastFocusedWindow(events), 1001u);
}

TEST(SpaceMoveReplay, APastTheEndDigitCreatesTheSpaceThroughMissionControl) {
    // Three user Spaces exist; the fourth is made with "+" and the window is dragged onto it.
    auto events = replay(oneDisplay(world("osMajorVersion: 15")), move(4) + endAt(6000), true);
    auto r = reply(events);
    ASSERT_TRUE(r);
    EXPECT_EQ((*r)["message"], "moved focused window to Space #4");
    EXPECT_TRUE(hasLog(events, "moveWindow: combined create+move via MC, wid=1001 title='Groceries'"));
    auto opened = indexOf(
        events, [](const json& e) { return e["kind"] == "overlay" && e["state"] == "missionControl"; });
    auto closed = indexOf(
        events, [](const json& e) { return e["kind"] == "overlay" && e["state"] == "none"; }, opened);
    ASSERT_LT(opened, events.size());
    ASSERT_LT(closed, events.size()) << "the overlay closes at the end";
    EXPECT_TRUE(hasLog(events, "MC create+move: dropping 1 windows onto new Space index=3 (total=4)"));
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 4u) << "the new Space's id is one past the largest";
    EXPECT_EQ(lastShown(events, 1, 1), 4u);
    EXPECT_EQ(lastFocusedWindow(events), 1001u);
}

TEST(SpaceMoveReplay, AMissionControlFailureClosesTheOverlayAndLeavesTheWindow) {
    // The overlay shows no window thumbnails: nothing to drag.
    auto events = replay(oneDisplay(world("osMajorVersion: 15", "missionControl: {thumbnails: false}")),
                         move(4) + endAt(6000), true);
    auto opened = indexOf(
        events, [](const json& e) { return e["kind"] == "overlay" && e["state"] == "missionControl"; });
    auto closed = indexOf(
        events, [](const json& e) { return e["kind"] == "overlay" && e["state"] == "none"; }, opened);
    ASSERT_LT(opened, events.size());
    EXPECT_LT(closed, events.size());
    EXPECT_TRUE(hasLog(events, "MC create+move: thumbnail not found for title='Groceries' (skipping)"));
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 1u);
    EXPECT_EQ(lastFocusedWindow(events), 1001u);
}

TEST(SpaceMoveReplay, TheCommandAnswersWithItsTexts) {
    auto events = replay(world(kOpen, "settings: {createMissingSpaces: false}"), R"(
- {at: 500, command: {command: move-window-to-space, spaceIndex: 1}}
- {at: 600, command: {command: move-window-to-space, spaceIndex: 0}}
- {at: 700, command: {command: move-window-to-space, spaceIndex: 10}}
- {at: 800, command: {command: move-window-to-space, spaceIndex: 2, query: recipes}}
- {at: 900, command: {command: move-window-to-space, spaceIndex: 2, query: nothing-like-this}}
- {at: 1000, command: {command: move-window-to-space, spaceIndex: 3, windowID: 1011}}
- {at: 3000, end: true}
)");
    std::vector<std::string> texts;
    for (auto& e : events)
        if (e["kind"] == "reply")
            texts.push_back(e["response"]["ok"].get<bool>()
                                ? "ok " + e["response"]["message"].get<std::string>()
                                : "error " + e["response"]["error"].get<std::string>());
    std::vector<std::string> expected{
        "error focused window already on Space #1",
        "error space index must be 1-9",
        "error space index must be 1-9",
        "ok moved Recipes to Space #2",
        "error no matching window",
        "error Inbox already on Space #3",
    };
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(lastSpaceOf(events, 1002, 1), 2u);
}

TEST(SpaceMoveReplay, OneNumberingForSwitchListAndStatusAcrossAFullScreenSpaceAndTwoDisplays) {
    // Display 1: user, full screen, user. Display 2: user, user. Numbers: 1, 2 on display 1,
    // 3, 4 on display 2; the full-screen Space has none.
    const char* w = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 7, fullscreen: true}, {id: 2}], currentSpace: 1}
  - {id: 2, frame: [1440, 0, 1920, 1080], spaces: [{id: 4}, {id: 5}], currentSpace: 4}
apps:
  - bundleID: com.apple.Notes
    name: Notes
    running: {pid: 101, windows: [{id: 1001, title: "Groceries", frame: [100, 100, 800, 600], space: 2}]}
frontmost: com.apple.Notes
)";
    auto events = replay(w, R"(
- {at: 100, command: {command: switch-space, spaceIndex: 0}}
- {at: 200, command: {command: switch-space, spaceIndex: 2}}
- {at: 900, command: {command: list-spaces}}
- {at: 1000, command: {command: status}}
- {at: 1100, command: {command: switch-space, spaceIndex: 4}}
- {at: 1800, command: {command: status}}
- {at: 1900, command: {command: list-windows}}
- {at: 2000, command: {command: switch-space, spaceIndex: 5}}
- {at: 3000, end: true}
)");
    std::vector<json> replies;
    for (auto& e : events)
        if (e["kind"] == "reply") replies.push_back(e["response"]);
    ASSERT_EQ(replies.size(), 8u);
    EXPECT_FALSE(replies[0]["ok"].get<bool>());
    EXPECT_EQ(replies[0]["error"], "no previous space to switch to");
    EXPECT_EQ(replies[1]["message"], "switching to Space #2");
    EXPECT_EQ(lastShown(events, 1, 1), 2u) << "number 2 skips the full-screen Space";
    auto spaces = replies[2]["spaces"];
    ASSERT_EQ(spaces.size(), 4u);
    std::vector<std::uint64_t> ids;
    for (auto& s : spaces)
        ids.push_back(s["id"]);
    EXPECT_EQ(ids, (std::vector<std::uint64_t>{1, 2, 4, 5}));
    EXPECT_TRUE(spaces[1]["isActive"].get<bool>());
    EXPECT_EQ(replies[3]["status"]["activeSpace"]["index"], 2);
    EXPECT_EQ(replies[3]["status"]["totalSpaces"], 4);
    EXPECT_EQ(replies[4]["message"], "switching to Space #4");
    EXPECT_EQ(lastShown(events, 2, 4), 5u);
    EXPECT_EQ(replies[5]["status"]["activeSpace"]["index"], 4);
    EXPECT_EQ(replies[6]["windows"][0]["spaceIndex"], 2);
    EXPECT_FALSE(replies[7]["ok"].get<bool>());
    EXPECT_EQ(replies[7]["error"], "space #5 does not exist");
}

TEST(SpaceMoveReplay, TheWindowTriggerWithADigitMovesTheFocusedWindowAndZeroGoesBack) {
    auto events = replay(world(kOpen, "settings: {spaceMode: multi}"), R"(
- {at: 500, flags: [ralt]}
- {at: 600, tap: three}
- {at: 700, flags: []}
- {at: 1500, flags: [ralt]}
- {at: 1600, tap: zero}
- {at: 1700, flags: []}
- {at: 2900, command: {command: status}}
- {at: 3000, end: true}
)",
                         true);
    auto lines = summary(events, {"key", "window"});
    EXPECT_NE(
        std::find(lines.begin(), lines.end(), "600 key action=swallowed down=true key=three keyCode=20"),
        lines.end());
    EXPECT_TRUE(hasLog(events, "moveWindow: wid=1001 title='Groceries' -> space=3"));
    EXPECT_TRUE(hasLog(events, "moveFocusedWindowToPreviousSpace -> previous space=1"));
    EXPECT_EQ(lastSpaceOf(events, 1001, 1), 1u) << "3 took it away, 0 brought it back";
    EXPECT_EQ(lastShown(events, 1, 1), 1u);
    EXPECT_EQ(lastFocusedWindow(events), 1001u);
}
