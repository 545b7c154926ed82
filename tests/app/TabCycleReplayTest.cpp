// The tab cycle end to end on the simulated desktop: the ways in, stepping and its direction, the
// commit at release, Escape, the filter, windows closing under it, the latched cycle, and the panel
// that lists it.
#include "ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Safari in front; Mail and Notes were used before it (in that order back), so the most-recent order
// is Safari, Mail, Notes. Terminal stands on Space 2; Preview's only window is minimised.
std::string world(const std::string& settings) {
    return R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 1}]}
  - bundleID: com.apple.Notes
    name: Notes
    running: {pid: 104, windows: [{id: 1041, title: "Groceries", frame: [40, 60, 900, 700], space: 1}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    running: {pid: 103, windows: [{id: 1021, title: "zsh build", frame: [40, 60, 900, 700], space: 2}]}
  - bundleID: com.apple.Preview
    name: Preview
    running: {pid: 105, windows: [{id: 1051, title: "Invoice.pdf", frame: [40, 60, 900, 700], space: 1, minimized: true}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: )" +
           settings + "\n";
}

// Minimised windows are left out of the cycle's own rows unless a test says otherwise.
std::string leaveMinimisedOut(std::string settings) {
    if (settings.find("tabCycleInclude") != std::string::npos) return settings;
    return settings == "{}" ? "{tabCycleInclude: 0}" : "{tabCycleInclude: 0, " + settings.substr(1);
}

// Seeds the most-recent order: Notes, then Mail, then Safari came to the front.
const char* kUse = R"(
- {at: 300, activate: com.apple.Notes}
- {at: 400, activate: com.apple.mail}
- {at: 500, activate: com.apple.Safari}
)";

std::vector<json> run(const std::string& settings, const std::string& script, bool logs = true) {
    return replay(world(leaveMinimisedOut(settings)), std::string(kUse) + script, logs);
}

}  // namespace

TEST(TabCycleReplay, CmdTabStepsTwoBackAndCommitsOnRelease) {
    auto events = run("{hijackCommandTab: true}", R"(
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: tab}
- {at: 1200, tap: tab}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)");
    EXPECT_TRUE(hasLog(events,
                       "handleTabCycle: BEGIN reverse=false before=#1001[com.apple.Safari] entries=3 "
                       "mru=[1001,1011,1041"));
    auto first = lastPanelAt(events, 1100);
    EXPECT_EQ(first["view"], "TabCycleOSDView");
    // The current Space's visible windows, most recent first; the first Tab goes to the previous one.
    EXPECT_EQ(panelTitles(first), (std::vector<std::string>{"Apple", "Inbox", "Groceries"}));
    EXPECT_EQ(highlightedTitle(first), "Inbox");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1200)), "Groceries");
    // Nothing moves while the command key is held (focus waits for the release by default).
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1300 1041"}));
    EXPECT_TRUE(hasLog(events,
                       "resetTabCycle: stash slot=#1001[com.apple.Safari] landing=#1041[com.apple.Notes] "
                       "wasDeferred=true mru=[1041,1001,1011"));
    EXPECT_FALSE(lastPanelAt(events, 1300)["visible"].get<bool>());
    // Tab and its release were both taken.
    for (auto& line : summary(events, {"key"}))
        if (line.find("key=tab") != std::string::npos) {
            EXPECT_NE(line.find("swallowed"), std::string::npos) << line;
        }
}

// Shift with Tab walks back, and so does a lone tap of Shift with the command key held.
TEST(TabCycleReplay, ShiftStepsBack) {
    auto events = run("{hijackCommandTab: true}", R"(
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: tab}
- {at: 1200, tap: tab}
- {at: 1300, flags: [lcmd, lshift]}
- {at: 1350, tap: tab}
- {at: 1400, flags: [lcmd]}
- {at: 1500, tap: tab}
- {at: 1600, flags: [lcmd, rshift]}
- {at: 1650, flags: [lcmd]}
- {at: 1700, flags: []}
- {at: 2000, end: true}
)");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1350)), "Inbox");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1500)), "Groceries");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1650)), "Inbox");
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1700 1011"}));
}

// With focus following the highlight, Escape brings back the window the cycle began on.
TEST(TabCycleReplay, EscapeRestoresTheOriginalFocus) {
    auto events = run("{hijackCommandTab: true, tabCycleFocusOnKeyUp: false}", R"(
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: tab}
- {at: 1200, tap: tab}
- {at: 1300, tap: escape}
- {at: 1400, flags: []}
- {at: 2000, end: true}
)");
    // Live focus 10 ms after each step, then the original window.
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1110 1011", "1210 1041", "1300 1001"}));
    EXPECT_TRUE(hasLog(events, "resetTabCycle: cancel -> restore #1001[com.apple.Safari]"));
    EXPECT_FALSE(lastPanelAt(events, 1300)["visible"].get<bool>());
    // The steps on the way didn't reorder the most-recent list; the restore puts Safari back on top.
    for (auto& e : events)
        if (e["kind"] == "log" && e["t"].get<double>() >= 1000) {
            EXPECT_FALSE(e["message"].get<std::string>().starts_with("recordWindowMRU: bump -> #1011"))
                << e.dump();
        }
}

// Typing filters over all windows, so a window on another Space or a minimised one can be reached;
// the release lands there.
TEST(TabCycleReplay, TypingFiltersAndWidensToOtherSpacesAndMinimisedWindows) {
    auto events = run("{tabCycleInclude: 0}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, tap: b}
- {at: 1210, tap: u}
- {at: 1220, tap: i}
- {at: 1230, tap: l}
- {at: 1300, tap: d}
- {at: 1350, tap: delete}
- {at: 1360, tap: delete}
- {at: 1370, tap: delete}
- {at: 1380, tap: delete}
- {at: 1450, tap: delete}
- {at: 1500, tap: i}
- {at: 1510, tap: n}
- {at: 1520, tap: v}
- {at: 1530, tap: o}
- {at: 1540, tap: i}
- {at: 1550, tap: c}
- {at: 1600, tap: e}
- {at: 1700, flags: []}
- {at: 2500, end: true}
)");
    auto before = lastPanelAt(events, 1100);
    EXPECT_EQ(panelTitles(before), (std::vector<std::string>{"Apple", "Inbox", "Groceries"}));
    auto zs = lastPanelAt(events, 1300);
    EXPECT_EQ(zs["query"], "build");
    EXPECT_EQ(panelTitles(zs), (std::vector<std::string>{"zsh build"}));
    EXPECT_EQ(zs["items"][0]["space"], "2");
    // Deleting the filter back to nothing brings the cycle's own rows back.
    EXPECT_EQ(panelTitles(lastPanelAt(events, 1450)), panelTitles(before));
    auto inv = lastPanelAt(events, 1600);
    EXPECT_EQ(panelTitles(inv), (std::vector<std::string>{"Invoice.pdf"}));
    EXPECT_TRUE(inv["items"][0].value("minimised", false));
    // A filtered cycle focuses only at the end.
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1700 1051"}));
}

// A filter of two letters needs a score of 12: letters scattered across a title don't reach it.
TEST(TabCycleReplay, AFilterWithNoMatchSaysSo) {
    auto events = run("{}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, tap: q}
- {at: 1300, tap: x}
- {at: 1400, flags: []}
- {at: 2000, end: true}
)");
    auto p = lastPanelAt(events, 1300);
    EXPECT_TRUE(panelTitles(p).empty());
    EXPECT_EQ(p["empty"], "No matches for \"qx\"");
    EXPECT_TRUE(focusesAfter(events, 1000).empty());
}

// A window that closes during the cycle leaves its rows; the highlight stays on its window.
TEST(TabCycleReplay, AWindowClosingDuringTheCycleDropsItsRow) {
    auto events = run("{hijackCommandTab: true}", R"(
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: tab}
- {at: 1200, tap: tab}
- {at: 1300, closeWindow: 1001}
- {at: 1500, flags: []}
- {at: 2000, end: true}
)");
    auto after = lastPanelAt(events, 1400);
    EXPECT_EQ(panelTitles(after), (std::vector<std::string>{"Inbox", "Groceries"}));
    EXPECT_EQ(highlightedTitle(after), "Groceries");
    EXPECT_EQ(focusesAfter(events, 1450), (std::vector<std::string>{"1500 1041"}));
}

// With the sticky switcher a release keeps the cycle open; Tab steps it with no key held and Return
// lands on the highlighted window.
TEST(TabCycleReplay, ALatchedCycleCommitsOnReturn) {
    auto events = run("{stickyAppSwitcher: true}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, flags: []}
- {at: 1300, tap: tab}
- {at: 1400, tap: return}
- {at: 2000, end: true}
)");
    auto latched = lastPanelAt(events, 1250);
    EXPECT_TRUE(latched["visible"].get<bool>());
    EXPECT_EQ(latched["latched"], "tabCycle");
    EXPECT_EQ(highlightedTitle(latched), "Inbox");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1300)), "Groceries");
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1400 1041"}));
    auto closed = lastPanelAt(events, 1400);
    EXPECT_FALSE(closed["visible"].get<bool>());
    for (auto& line : withoutKeyUps(events, {"key"}))
        if (line.find("key=tab") != std::string::npos) {
            EXPECT_NE(line.find("swallowed"), std::string::npos) << line;
        }
}

// A click outside the latched panel commits the cycle, as a release would have.
TEST(TabCycleReplay, ALatchedCycleCommitsOnAnOutsideClick) {
    auto events = run("{stickyAppSwitcher: true}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, flags: []}
- {at: 1300, click: {x: 5, y: 5}}
- {at: 2000, end: true}
)");
    EXPECT_EQ(lastPanelAt(events, 1250)["latched"], "tabCycle");
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1300 1011"}));
    EXPECT_FALSE(lastPanelAt(events, 1300)["visible"].get<bool>());
    EXPECT_TRUE(hasLog(events, "osd: click outside the panel"));
}

// Escape in a latched cycle cancels it (the window it began on keeps focus) and ends the latch.
TEST(TabCycleReplay, EscapeInALatchedCycleCancelsAndUnlatches) {
    auto events = run("{stickyAppSwitcher: true, tabCycleFocusOnKeyUp: false}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, flags: []}
- {at: 1300, tap: tab}
- {at: 1400, tap: escape}
- {at: 1500, tap: a}
- {at: 2000, end: true}
)");
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1110 1011", "1310 1041", "1400 1001"}));
    EXPECT_TRUE(hasLog(events, "resetTabCycle: cancel -> restore #1001[com.apple.Safari]"));
    auto after = lastPanelAt(events, 1400);
    EXPECT_FALSE(after["visible"].get<bool>());
    EXPECT_FALSE(after.contains("latched"));
    for (auto& line : summary(events, {"key"}))
        if (line.find("key=a ") != std::string::npos || line.ends_with("key=a")) {
            EXPECT_NE(line.find("passed"), std::string::npos) << line;
        }
}

// A digit lands on its row at once and ends the cycle: the window is focused once, not again by the
// commit that follows.
TEST(TabCycleReplay, ADigitCommitsItsRowWithOneFocus) {
    auto events = run("{}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, tap: three}
- {at: 1400, flags: []}
- {at: 2000, end: true}
)");
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1200 1041"}));
    EXPECT_EQ(logsStartingWith(events, "focus: target window #1041").size(), 1u);
    EXPECT_FALSE(lastPanelAt(events, 1200)["visible"].get<bool>());
}

// Right widens an `auto` cycle to every window (other Spaces, minimised ones), Left narrows it again,
// and the highlight keeps its window.
TEST(TabCycleReplay, RightAndLeftWidenAndNarrowTheCycle) {
    auto events = run("{}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, tap: rightArrow}
- {at: 1300, tap: leftArrow}
- {at: 1400, flags: []}
- {at: 2000, end: true}
)");
    auto wide = lastPanelAt(events, 1200);
    auto t = panelTitles(wide);
    EXPECT_EQ(t.size(), 4u);
    EXPECT_NE(std::find(t.begin(), t.end(), "zsh build"), t.end());
    EXPECT_EQ(highlightedTitle(wide), "Inbox");
    EXPECT_EQ(wide["items"][0]["section"], " \xE2\x86\x92 All Windows");
    EXPECT_EQ(panelTitles(lastPanelAt(events, 1300)).size(), 3u);
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1300)), "Inbox");
}

// The window cycle key walks the focused app's windows, focusing each as it goes (a scope asked for
// at start follows the highlight even with focus on key up).
TEST(TabCycleReplay, TheWindowCycleKeyWalksTheAppsWindows) {
    auto events = replay(R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
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
)",
                         R"(
- {at: 1000, flags: [lcmd]}
- {at: 1100, tap: grave}
- {at: 1300, tap: escape}
- {at: 1400, flags: []}
- {at: 2000, end: true}
)",
                         true);
    auto p = lastPanelAt(events, 1100);
    EXPECT_EQ(panelTitles(p), (std::vector<std::string>{"Apple", "News"}));
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1110 1002", "1300 1001"}));
}

// The refresh combo (the trigger with the other Command key) refetches the windows and flashes.
TEST(TabCycleReplay, RefreshFlashesAndKeepsTheHighlight) {
    auto events = run("{}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1200, flags: [rightCommand, lcmd]}
- {at: 1250, tap: r}
- {at: 1300, flags: [rightCommand]}
- {at: 1900, flags: []}
- {at: 2500, end: true}
)");
    EXPECT_TRUE(hasLog(
        events, "refreshOSDWindowList: forcing full window refetch (tabCycling=true searchActive=false)"));
    auto flashed = lastPanelAt(events, 1250);
    ASSERT_TRUE(flashed.contains("flash")) << flashed.dump();
    EXPECT_EQ(flashed["flash"], "Refreshed");
    EXPECT_EQ(highlightedTitle(flashed), "Inbox");
    // The flash goes after 450 ms; the cycle stays.
    EXPECT_TRUE(lastPanelAt(events, 1699).contains("flash"));
    EXPECT_FALSE(lastPanelAt(events, 1700).contains("flash"));
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1700)), "Inbox");
    EXPECT_EQ(focusesAfter(events, 1000), (std::vector<std::string>{"1900 1011"}));
}

// A held Tab steps no faster than the key repeats: at most one step per 27 ms.
TEST(TabCycleReplay, AHeldTabStepsAtTheRepeatRate) {
    auto events = run("{}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, keyDown: tab}
- {at: 1110, keyDown: tab, repeat: true}
- {at: 1120, keyDown: tab, repeat: true}
- {at: 1130, keyDown: tab, repeat: true}
- {at: 1140, keyDown: tab, repeat: true}
- {at: 1150, keyUp: tab}
- {at: 1300, flags: []}
- {at: 2000, end: true}
)");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1100)), "Inbox");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1110)), "Groceries");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1130)), "Groceries");
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 1140)), "Apple");
}

// Under the trigger, the action modifier turns W into close on the cycle's highlighted window: the
// window closes, the cycle stays up with the highlight on the row that took its place, and flashes.
TEST(TabCycleReplay, WClosesTheHighlightedWindowAndTheCycleStaysOpen) {
    auto events = run("{}", R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: tab}
- {at: 1400, flags: [rightCommand, lcmd]}
- {at: 1500, tap: w}
- {at: 1600, flags: [rightCommand]}
- {at: 2500, end: true}
)");
    auto before = lastPanelAt(events, 1400);
    ASSERT_EQ(panelTitles(before), (std::vector<std::string>{"Apple", "Inbox", "Groceries"}));
    ASSERT_EQ(highlightedTitle(before), "Inbox");
    EXPECT_EQ(summary(events, {"window"}), (std::vector<std::string>{"1500 window closed=true id=1011"}));
    auto after = lastPanelAt(events, 1500);
    EXPECT_TRUE(after["visible"].get<bool>());
    EXPECT_EQ(panelTitles(after), (std::vector<std::string>{"Apple", "Groceries"}));
    EXPECT_EQ(highlightedTitle(after), "Groceries");
    EXPECT_EQ(after["flash"], "Closed");
}
