// Close, quit, hide and new window on the highlighted row of an open search, on the replay bench: what
// the desktop does, what the panel keeps (its rows, its highlight, the flash), and the made-up
// Command-N with its marker.
#include <gtest/gtest.h>

#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple", space: 1}
        - {id: 1002, title: "GitHub", space: 1}
  - bundleID: com.apple.Terminal
    name: Terminal
    running: {pid: 102, windows: [{id: 2001, title: "zsh", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    menuExtra: "Mail status"
    running: {pid: 103, windows: [{id: 3001, title: "Inbox", space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {activationMode: onPress}
)";

std::vector<json> panels(const std::vector<json>& events) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "panel") out.push_back(e);
    return out;
}

json lastPanelBefore(const std::vector<json>& events, double t) {
    json last = nullptr;
    for (auto& p : panels(events))
        if (p["t"].get<double>() < t) last = p;
    return last;
}

json lastPanelAtOrBefore(const std::vector<json>& events, double t) {
    json last = nullptr;
    for (auto& p : panels(events))
        if (p["t"].get<double>() <= t) last = p;
    return last;
}

std::optional<std::size_t> highlightedIndex(const json& panel) {
    const auto& items = panel["items"];
    for (std::size_t i = 0; i < items.size(); ++i)
        if (items[i].value("highlighted", false)) return i;
    return std::nullopt;
}

std::vector<std::string> rowIDs(const json& panel) {
    std::vector<std::string> out;
    for (auto& r : panel["rows"])
        out.push_back(r);
    return out;
}

// The held window search (a double tap of the trigger), one step down, then the action modifier.
std::string windowSearchThen(const std::string& key) {
    return R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, flags: []}
- {at: 1150, flags: [rightCommand]}
- {at: 1300, tap: tab}
- {at: 1400, flags: [rightCommand, lcmd]}
- {at: 1500, tap: )" +
           key + R"(}
- {at: 1600, flags: [rightCommand]}
- {at: 1700, flags: [rightCommand, lcmd]}
- {at: 2200, flags: []}
- {at: 3000, end: true}
)";
}

TEST(SelectionActionReplay, WClosesTheHighlightedWindowAndThePanelStaysOnTheNextRow) {
    auto events = replay(kWorld, windowSearchThen("w"), true);
    const json before = lastPanelBefore(events, 1500);
    ASSERT_FALSE(before.is_null());
    ASSERT_TRUE(before["visible"].get<bool>());
    const auto rows = rowIDs(before);
    ASSERT_GE(rows.size(), 3u);
    const auto index = highlightedIndex(before);
    ASSERT_EQ(index, std::optional<std::size_t>(1)) << "Tab moved the highlight to the second row";
    const std::string closed = rows[1];
    const std::string next = rows[2];

    EXPECT_EQ(summary(events, {"window"}),
              (std::vector<std::string>{"1500 window closed=true id=" + closed}));
    EXPECT_TRUE(hasLog(events, "hotkey w target=window id=" + closed));
    EXPECT_TRUE(hasLog(events, "closeWindowViaAX: wid=" + closed));

    const json after = lastPanelAtOrBefore(events, 1500);
    EXPECT_TRUE(after["visible"].get<bool>()) << "the panel stays open";
    auto left = rowIDs(after);
    EXPECT_EQ(std::count(left.begin(), left.end(), closed), 0) << "the closed window's row left";
    EXPECT_EQ(left.size(), rows.size() - 1);
    ASSERT_EQ(highlightedIndex(after), std::optional<std::size_t>(1)) << "the highlight keeps its place";
    EXPECT_EQ(left[1], next) << "which is now the next row";
    EXPECT_EQ(after["flash"], "Closed");
    EXPECT_EQ(after["flashIcon"], "xmark.circle.fill");

    // The flash lasts 0.45 s; the panel stays up with its rows.
    const json faded = lastPanelAtOrBefore(events, 1960);
    EXPECT_FALSE(faded.contains("flash"));
    EXPECT_TRUE(faded["visible"].get<bool>());
}

TEST(SelectionActionReplay, AHeldKeyActsOnceAndNoRowMeansTheKeyGoesOn) {
    // W held down: its repeat is swallowed, so one window closes.
    auto held = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, flags: []}
- {at: 1150, flags: [rightCommand]}
- {at: 1400, flags: [rightCommand, lcmd]}
- {at: 1500, keyDown: w}
- {at: 1600, keyDown: w, repeat: true}
- {at: 1650, keyDown: w, repeat: true}
- {at: 1700, keyUp: w}
- {at: 1800, flags: []}
- {at: 3000, end: true}
)");
    EXPECT_EQ(summary(held, {"window"}).size(), 1u);
    // No search, no row: the trigger and the modifier with W don't close anything here.
    auto bare = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1050, flags: [rightCommand, lcmd]}
- {at: 1100, tap: w}
- {at: 1300, flags: []}
- {at: 3000, end: true}
)",
                       true);
    EXPECT_TRUE(summary(bare, {"window"}).empty());
    EXPECT_TRUE(hasLog(bare, "hotkey w ignored: no OSD selection target"));
}

TEST(SelectionActionReplay, QQuitsTheWindowsAppAndAllItsRowsLeave) {
    auto events = replay(kWorld, windowSearchThen("q"), true);
    const json before = lastPanelBefore(events, 1500);
    const auto rows = rowIDs(before);
    ASSERT_GE(rows.size(), 2u);
    const std::string target = rows[1];
    // Which app owns the highlighted window.
    const std::string app = before["items"][1]["app"];
    const std::string bundle = app == "Safari"     ? "com.apple.Safari"
                               : app == "Terminal" ? "com.apple.Terminal"
                                                   : "com.apple.mail";
    EXPECT_EQ(summary(events, {"terminate"}),
              (std::vector<std::string>{"1500 terminate bundleID=" + bundle}));
    const json after = lastPanelAtOrBefore(events, 1500);
    EXPECT_TRUE(after["visible"].get<bool>());
    EXPECT_EQ(after["flash"], "Quit");
    EXPECT_EQ(after["flashIcon"], "power.circle.fill");
    for (auto& item : after["items"])
        EXPECT_NE(item.value("app", ""), app) << "every row of the quit app left";
    EXPECT_TRUE(hasLog(events, "quit pid="));
}

TEST(SelectionActionReplay, HMinimisesAWindowAndHidesThenBringsBackAnApp) {
    auto window = replay(kWorld, windowSearchThen("h"), true);
    const json before = lastPanelBefore(window, 1500);
    const std::string target = rowIDs(before)[1];
    EXPECT_EQ(summary(window, {"window"}),
              (std::vector<std::string>{"1500 window id=" + target + " minimized=true"}));
    const json after = lastPanelAtOrBefore(window, 1500);
    EXPECT_EQ(after["flash"], "Minimized");
    EXPECT_EQ(after["flashIcon"], "minus.circle.fill");

    // A latched app search: left Command alone arms the actions; H twice hides and brings back.
    auto app = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: t}
- {at: 1350, tap: e}
- {at: 1400, tap: r}
- {at: 1500, flags: [lcmd]}
- {at: 1600, tap: h}
- {at: 1700, tap: h}
- {at: 1800, flags: []}
- {at: 3000, end: true}
)",
                      true);
    EXPECT_EQ(summary(app, {"hide", "unhide"}),
              (std::vector<std::string>{"1600 hide bundleID=com.apple.Terminal",
                                        "1700 unhide bundleID=com.apple.Terminal"}));
    EXPECT_TRUE(hasLog(app, "hide-toggle pid=102 bundle=com.apple.Terminal action=hide ok=true"));
    EXPECT_TRUE(hasLog(app, "hide-toggle pid=102 bundle=com.apple.Terminal action=unhide+forceActivate"));
    const json first = lastPanelAtOrBefore(app, 1600), second = lastPanelAtOrBefore(app, 1700);
    EXPECT_EQ(first["flash"], "Hidden");
    EXPECT_EQ(second["flash"], "Hidden") << "the same label both times";
    EXPECT_EQ(second["flashSeq"].get<int>(), first["flashSeq"].get<int>() + 1) << "so it animates again";
    EXPECT_EQ(first["latched"], "app") << "the latch stands through the actions";
    EXPECT_EQ(second["latched"], "app");
}

TEST(SelectionActionReplay, OFocusesTheAppEndsThePanelAndPostsCommandNEightyMillisecondsLater) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: t}
- {at: 1350, tap: e}
- {at: 1400, tap: r}
- {at: 1500, flags: [lcmd]}
- {at: 1600, tap: o}
- {at: 1800, flags: []}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_EQ(summary(events, {"focus"}).back(),
              "1600 focus bundleID=com.apple.Terminal pid=102 windowID=2001");
    EXPECT_EQ(
        summary(events, {"posted"}),
        (std::vector<std::string>{
            "1680 posted down=true flags=0x100000 key=n keyCode=45 route=hidTap userData=0x7a656c6b5f73796e",
            "1680 posted down=false flags=0x100000 key=n keyCode=45 route=hidTap "
            "userData=0x7a656c6b5f73796e"}));
    EXPECT_TRUE(hasLog(events, "new-window: forceActivate pid=102; posting Cmd-N in 80ms"));
    EXPECT_TRUE(hasLog(events, "postSyntheticCmdN(pid=102) via .cghidEventTap"));
    const json after = lastPanelAtOrBefore(events, 1600);
    EXPECT_FALSE(after["visible"].get<bool>()) << "a new window ends the panel";
    EXPECT_FALSE(after.contains("latched"));
}

TEST(SelectionActionReplay, CommandNFollowsTheLayoutsKeyForN) {
    std::string world = kWorld;
    world.insert(0, "keyboardLayout: dvorak\n");
    auto events = replay(world, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: t}
- {at: 1350, tap: e}
- {at: 1400, tap: r}
- {at: 1500, flags: [lcmd]}
- {at: 1600, tap: o}
- {at: 1800, flags: []}
- {at: 3000, end: true}
)");
    auto posted = summary(events, {"posted"});
    ASSERT_EQ(posted.size(), 2u);
    // On Dvorak the key that types N is the one QWERTY calls L (key code 37).
    EXPECT_NE(posted[0].find("keyCode=37 "), std::string::npos) << posted[0];
    EXPECT_NE(posted[0].find("key=n"), std::string::npos) << posted[0];
}

TEST(SelectionActionReplay, OptionReturnOpensTheMenuBarExtraOrCommitsWithoutOne) {
    // Mail has a menu-bar extra: Option-Return opens it and ends the latch.
    auto extra = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: m}
- {at: 1350, tap: a}
- {at: 1400, tap: i}
- {at: 1500, flags: [lalt]}
- {at: 1600, tap: return}
- {at: 1700, flags: []}
- {at: 3000, end: true}
)",
                        true);
    EXPECT_EQ(summary(extra, {"menuExtra"}),
              (std::vector<std::string>{"1600 menuExtra bundleID=com.apple.mail title=Mail status"}));
    EXPECT_TRUE(summary(extra, {"focus"}).empty()) << "the extra opens instead of the app";
    EXPECT_FALSE(lastPanelAtOrBefore(extra, 1600)["visible"].get<bool>());
    // Terminal has none: the same keys commit the row as a plain Return does.
    auto plain = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: space}
- {at: 1200, flags: []}
- {at: 1300, tap: t}
- {at: 1350, tap: e}
- {at: 1400, tap: r}
- {at: 1500, flags: [lalt]}
- {at: 1600, tap: return}
- {at: 1700, flags: []}
- {at: 3000, end: true}
)");
    EXPECT_TRUE(summary(plain, {"menuExtra"}).empty());
    EXPECT_EQ(summary(plain, {"focus"}).back(),
              "1600 focus bundleID=com.apple.Terminal pid=102 windowID=2001");
}

}  // namespace
}  // namespace zelk::testing

namespace zelk::testing {
namespace {

TEST(SelectionActionReplay, TheOsdCommandOpensASearchWithRowsToActOn) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: osd, surface: window}}
- {at: 1200, flags: [lcmd]}
- {at: 1300, tap: w}
- {at: 1500, flags: []}
- {at: 2000, end: true}
)");
    const json opened = lastPanelAtOrBefore(events, 1000);
    ASSERT_TRUE(opened["visible"].get<bool>());
    EXPECT_EQ(opened["latched"], "window");
    EXPECT_GE(opened["rows"].size(), 4u) << "every open window is listed";
    EXPECT_EQ(summary(events, {"window"}).size(), 1u) << "so W has a row to close";
}

}  // namespace
}  // namespace zelk::testing
