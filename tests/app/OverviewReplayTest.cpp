// The overview on the replay bench, driven by keys, the mouse and the trackpad as a script sends them:
// windows on three Spaces and two displays, arrows and letters, a commit on another Space, a close
// with its question, a fling to the next Space, the hot corner and a window dragged to another Space.
// The layout model is read from the overview's `panel` lines, what the desktop was asked to do from
// the trace's `space`, `focus` and `window` lines.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "ReplayHelpers.h"
#include "platform/sim/WorldFile.h"

namespace zelk::testing {
namespace {

// Display 1 shows Space 1 (Space 2 beside it); display 2 shows Space 3. Safari and Terminal have a
// window on two Spaces each; Mail's window is on Space 1, Notes' on Space 3. Safari's "Apple" is focused.
const std::string kWorld = R"(
displays:
  - {id: 1, uuid: "D1", frame: [0, 0, 1440, 900], menuBarHeight: 25, spaces: [{id: 1}, {id: 2}], currentSpace: 1}
  - {id: 2, uuid: "D2", name: "Studio Display", frame: [1440, 0, 1920, 1080], spaces: [{id: 3}], currentSpace: 3}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1},
                                  {id: 1002, title: "News", frame: [100, 100, 900, 700], space: 2}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 1}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    running: {pid: 103, windows: [{id: 1021, title: "zsh", frame: [1500, 50, 800, 600], space: 3},
                                  {id: 1022, title: "build", frame: [200, 200, 700, 500], space: 2}]}
  - bundleID: com.apple.Notes
    name: Notes
    running: {pid: 104, windows: [{id: 1041, title: "Groceries", frame: [1700, 100, 600, 500], space: 3}]}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

const std::map<std::string, Point> kOrigins{{"D1", {0, 0}}, {"D2", {1440, 0}}};

std::vector<json> overviewLines(const std::vector<json>& events) {
    std::vector<json> out;
    for (const auto& e : events)
        if (e["kind"] == "panel" && e["view"] == "ExposeOverlayView") out.push_back(e);
    return out;
}

// The last overview line at or before `t`.
json overviewAt(const std::vector<json>& events, double t) {
    json last = nullptr;
    for (const auto& e : overviewLines(events))
        if (e["t"].get<double>() <= t) last = e;
    return last;
}

// A rectangle of an overview line, `[id, x, y, w, h]` in a screen's own points, in global points.
struct Placed {
    std::string display;
    Rect frame;
};
std::optional<Placed> find(const json& line, const char* list, std::uint64_t id) {
    if (!line.is_object() || !line.contains("screens")) return std::nullopt;
    for (const auto& s : line["screens"])
        for (const auto& r : s[list])
            if (r[0].get<std::uint64_t>() == id) {
                const Point o = kOrigins.at(s["display"]);
                return Placed{s["display"],
                              {o.x + r[1].get<double>(), o.y + r[2].get<double>(), r[3].get<double>(),
                               r[4].get<double>()}};
            }
    return std::nullopt;
}
Point centre(const Placed& p) {
    return {p.frame.midX(), p.frame.midY()};
}

std::vector<std::uint64_t> tilesOn(const json& line, const std::string& display) {
    std::vector<std::uint64_t> out;
    for (const auto& s : line["screens"])
        if (s["display"] == display)
            for (const auto& t : s["tiles"])
                out.push_back(t[0]);
    std::sort(out.begin(), out.end());
    return out;
}

// Each display's tiles stand inside its own container (56 in from the sides, under the bar, 80
// above the bottom); with `apart`, no two apps' tiles overlap either (the worlds here number an app's
// windows by tens).
void expectInside(const json& line, const std::map<std::string, Size>& sizes, bool apart) {
    ASSERT_TRUE(line.is_object() && line.contains("screens"));
    for (const auto& s : line["screens"]) {
        const Size size = sizes.at(s["display"]);
        std::vector<std::pair<std::uint64_t, Rect>> tiles;
        for (const auto& t : s["tiles"])
            tiles.emplace_back(t[0], Rect{t[1], t[2], t[3], t[4]});
        for (const auto& [id, r] : tiles) {
            EXPECT_GE(r.x, 55) << id;
            EXPECT_LE(r.maxX(), size.width - 55) << id;
            EXPECT_GE(r.y, 95) << id;
            EXPECT_LE(r.maxY(), size.height - 79) << id;
            for (const auto& [other, o] : tiles)
                if (apart && id / 10 != other / 10) {
                    EXPECT_FALSE(r.intersects(o)) << id << " and " << other;
                }
        }
    }
}

std::string at(double t, const std::string& event) {
    return fmt::format("- {{at: {}, {}}}\n", t, event);
}
std::string point(const char* kind, double t, Point p) {
    return at(t, fmt::format("{}: {{x: {}, y: {}}}", kind, p.x, p.y));
}

// What the desktop did: Space switches, focus changes, moves between Spaces and closes, in order.
std::vector<std::string> desktopCalls(const std::vector<json>& events) {
    std::vector<std::string> out;
    for (const auto& e : events) {
        if (e["kind"] == "space")
            out.push_back(fmt::format("space {}", e["space"].dump()));
        else if (e["kind"] == "focus" && e.contains("windowID"))
            out.push_back(fmt::format("focus {}", e["windowID"].dump()));
        else if (e["kind"] == "window" && e.contains("closed"))
            out.push_back(fmt::format("closed {}", e["id"].dump()));
        else if (e["kind"] == "window" && e.contains("space") && !e.contains("created"))
            out.push_back(fmt::format("moved {} to {}", e["id"].dump(), e["space"].dump()));
    }
    return out;
}

const std::string kOpenByKey =
    at(1000, "flags: [rightCommand]") + at(1050, "tap: period") + at(1100, "flags: []");

TEST(OverviewReplay, OpensOverThreeSpacesAndTwoDisplaysAndIsDrivenByArrowsAndLetters) {
    auto events = replay(kWorld, kOpenByKey + at(1500, "tap: rightArrow") + at(1700, "tap: leftArrow") +
                                     at(2000, "tap: t") + at(2200, "tap: escape") + at(2400, "end: true"));
    const json open = overviewAt(events, 1400);
    ASSERT_TRUE(open.is_object());
    EXPECT_EQ(open["visible"], true);
    EXPECT_EQ(open["grouping"], "app");
    EXPECT_EQ(open["selected"], 1001);
    // Every window of every Space, each on its Space's display.
    EXPECT_EQ(tilesOn(open, "D1"), (std::vector<std::uint64_t>{1001, 1002, 1011, 1022}));
    EXPECT_EQ(tilesOn(open, "D2"), (std::vector<std::uint64_t>{1021, 1041}));
    EXPECT_EQ(open["rows"].size(), 6u);
    expectInside(open, {{"D1", {1440, 900}}, {"D2", {1920, 1080}}}, false);
    // The bar has a cell per Space of each display.
    EXPECT_TRUE(find(open, "bar", 1) && find(open, "bar", 2) && find(open, "bar", 3));
    EXPECT_EQ(find(open, "bar", 3)->display, "D2");

    // Right lands on a tile further right; left comes back.
    const json right = overviewAt(events, 1600);
    const auto moved = right["selected"].get<std::uint64_t>();
    ASSERT_NE(moved, 1001u);
    EXPECT_GT(centre(*find(right, "tiles", moved)).x, centre(*find(right, "tiles", 1001)).x);
    EXPECT_EQ(overviewAt(events, 1800)["selected"], 1001);

    // Terminal's letter keeps its two windows, one on each display; Escape clears the filter.
    const json filtered = overviewAt(events, 2100);
    EXPECT_EQ(filtered["filter"], "com.apple.Terminal");
    EXPECT_EQ(tilesOn(filtered, "D1"), (std::vector<std::uint64_t>{1022}));
    EXPECT_EQ(tilesOn(filtered, "D2"), (std::vector<std::uint64_t>{1021}));
    const json cleared = overviewAt(events, 2300);
    EXPECT_FALSE(cleared.contains("filter"));
    EXPECT_EQ(cleared["visible"], true);
    EXPECT_EQ(cleared["rows"].size(), 6u);
    // Looking around asks nothing of the desktop; the keys never reach the app.
    EXPECT_TRUE(desktopCalls(events).empty());
    for (const auto& e : events)
        if (e["kind"] == "key" && e["down"] == true && e["t"].get<double>() > 1400) {
            EXPECT_EQ(e["action"], "swallowed") << e.dump();
        }
}

// The demo's desktop: a 2560 x 1440 second display with a Space of Terminal windows and a full-screen
// Space. Its tiles are large (two windows on a wide screen, each held to 46% of the container's
// shorter side) but stay apart and inside the container; what the demo's frame shows behind them is
// the desktop's own windows under the overview's translucent backdrop.
TEST(OverviewReplay, TheSecondDisplayOfTheDemoDesktopKeepsItsTilesApartInsideItsContainer) {
    auto events = replay(sim::defaultWorldYaml(),
                         at(1000, "command: {command: expose, mode: show}") + at(1500, "end: true"));
    const json open = overviewAt(events, 1400);
    ASSERT_TRUE(open.is_object());
    expectInside(open, {{"SIM-DISPLAY-1", {1440, 900}}, {"SIM-DISPLAY-2", {2560, 1440}}}, true);
    EXPECT_EQ(tilesOn(open, "SIM-DISPLAY-2"), (std::vector<std::uint64_t>{1021, 1022, 1061}));
}

TEST(OverviewReplay, ReturnOnAWindowOfAnotherSpaceSwitchesThereThenFocusesIt) {
    // Safari's letter filters to its windows; pressed again it reaches "News" on Space 2.
    auto events = replay(kWorld, kOpenByKey + at(1500, "tap: s") + at(1700, "tap: s") +
                                     at(1900, "tap: return") + at(3000, "end: true"));
    EXPECT_EQ(overviewAt(events, 1800)["selected"], 1002);
    EXPECT_EQ(desktopCalls(events), (std::vector<std::string>{"space 2", "focus 1002"}));
    const json after = overviewAt(events, 2900);
    EXPECT_EQ(after["visible"], false);
    EXPECT_EQ(after["text"], "overview hidden");
}

TEST(OverviewReplay, CommandWClosesTheSelectedWindowOnlyWhenAskedTwice) {
    auto events =
        replay(kWorld, kOpenByKey + at(1500, "tap: m") + at(1700, "flags: [lcmd]") + at(1750, "tap: w") +
                           at(1900, "tap: w") + at(2000, "flags: []") + at(2500, "end: true"));
    EXPECT_EQ(overviewAt(events, 1600)["selected"], 1011);
    const json asking = overviewAt(events, 1850);
    EXPECT_EQ(asking["confirm"], "press ⌘W again to close this window");
    EXPECT_EQ(desktopCalls(events), (std::vector<std::string>{"closed 1011"}));
    for (const auto& e : events)
        if (e["kind"] == "window" && e.contains("closed")) {
            EXPECT_GT(e["t"].get<double>(), 1850);
        }
    const json after = overviewAt(events, 2400);
    EXPECT_EQ(after["visible"], true);
    EXPECT_FALSE(after.contains("confirm"));
    // Mail's letter kept only its window; with it gone, the filter goes and the others show again.
    EXPECT_FALSE(after.contains("filter"));
    EXPECT_EQ(tilesOn(after, "D1"), (std::vector<std::uint64_t>{1001, 1002, 1022}));
}

TEST(OverviewReplay, AFlingOverTheSpacesBarGoesToTheNextSpace) {
    const std::string open = at(1000, "command: {command: expose, mode: show}");
    auto probe = replay(kWorld, open + at(1500, "end: true"));
    const auto cell = find(overviewAt(probe, 1400), "bar", 1);
    ASSERT_TRUE(cell);
    // Over Space 1's cell: a short fling does nothing, a long one leftward shows Space 2.
    auto events =
        replay(kWorld, open + point("pointer", 1500, centre(*cell)) + at(1600, "fling: {dx: 80, dy: 0}") +
                           at(1800, "fling: {dx: 120, dy: 10}") + at(2500, "end: true"));
    // Space 2 shows (and its front window takes the focus, as on any Space switch).
    const auto calls = desktopCalls(events);
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front(), "space 2");
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "space 2"), 1);
    for (const auto& e : events)
        if (e["kind"] == "space") {
            EXPECT_GE(e["t"].get<double>(), 1800);
        }
    // The overview stays up, every window still on view.
    const json after = overviewAt(events, 2400);
    EXPECT_EQ(after["visible"], true);
    EXPECT_NE(after["phase"], "exiting");
    EXPECT_EQ(after["rows"].size(), 6u);
}

TEST(OverviewReplay, TheHotCornerArmsFartherThan40PointsAwayAndFiresWithin3) {
    const std::string world = kWorld + "settings: {exposeHotCorner: topLeft}\n";
    // The pointer starts far from the corner, which arms it: into the corner, the overview opens.
    // Staying there or leaving by less than 40 points doesn't toggle; 4 points off isn't the corner.
    auto events = replay(world, point("pointer", 1000, {2, 2}) + point("pointer", 1100, {1, 0}) +
                                    point("pointer", 1200, {30, 0}) + point("pointer", 1300, {0, 0}) +
                                    point("pointer", 1400, {60, 10}) + point("pointer", 1500, {4, 0}) +
                                    point("pointer", 1600, {0, 1}) + at(2500, "end: true"));
    auto visibleAt = [&](double t) {
        const json line = overviewAt(events, t);
        return line.is_object() && line["visible"] == true && line["phase"] != "exiting";
    };
    EXPECT_FALSE(visibleAt(999));
    EXPECT_TRUE(visibleAt(1099));
    EXPECT_TRUE(visibleAt(1399));
    EXPECT_TRUE(visibleAt(1599));
    EXPECT_FALSE(visibleAt(1699));
    EXPECT_EQ(logsStartingWith(replay(world, point("pointer", 1000, {2, 2}) + at(1500, "end: true"), true),
                               "expose: hot corner")
                  .size(),
              1u);
    // Switched off, the corner does nothing.
    auto off = replay(kWorld, point("pointer", 1000, {2, 2}) + at(1500, "end: true"));
    EXPECT_TRUE(overviewLines(off).empty());
}

TEST(OverviewReplay, AWindowDraggedOntoAnotherSpacesCellMovesThere) {
    const std::string open = at(1000, "command: {command: expose, mode: show}");
    auto probe = replay(kWorld, open + at(1500, "end: true"));
    const json shown = overviewAt(probe, 1400);
    const auto tile = find(shown, "tiles", 1011);
    const auto cell = find(shown, "bar", 2);
    ASSERT_TRUE(tile && cell);
    const Point from = centre(*tile), to = centre(*cell);
    const Point halfway{(from.x + to.x) / 2, (from.y + to.y) / 2};
    auto events =
        replay(kWorld, open + point("mouseDown", 1500, from) + point("mouseDrag", 1550, halfway) +
                           point("mouseDrag", 1600, to) + point("mouseUp", 1650, to) + at(2500, "end: true"));
    // The move between Spaces carries the window along a Space switch, as the move keys do.
    const auto calls = desktopCalls(events);
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front(), "moved 1011 to 2");
    const json after = overviewAt(events, 1700);
    EXPECT_EQ(after["visible"], true);
    EXPECT_EQ(after["toast"], "Moved to Space 2");
    // Still on display 1, now among Space 2's windows.
    EXPECT_EQ(tilesOn(after, "D1"), (std::vector<std::uint64_t>{1001, 1002, 1011, 1022}));
}

TEST(OverviewReplay, AClickOnATileFocusesItsWindowAndAPressThatStaysPutIsNoDrag) {
    const std::string open = at(1000, "command: {command: expose, mode: show}");
    auto probe = replay(kWorld, open + at(1500, "end: true"));
    const auto tile = find(overviewAt(probe, 1400), "tiles", 1041);
    ASSERT_TRUE(tile);
    const Point c = centre(*tile);
    // Two points of travel while held is still a click.
    auto events =
        replay(kWorld, open + point("mouseDown", 1500, c) + point("mouseDrag", 1520, {c.x + 2, c.y}) +
                           point("mouseUp", 1540, {c.x + 2, c.y}) + at(2500, "end: true"));
    EXPECT_EQ(desktopCalls(events), (std::vector<std::string>{"focus 1041"}));
    EXPECT_EQ(overviewAt(events, 2400)["visible"], false);
    // A click on the bare backdrop closes the overview without focusing anything.
    auto backdrop = replay(kWorld, open + point("mouseDown", 1500, {1440 + 1900, 1070}) +
                                       point("mouseUp", 1520, {1440 + 1900, 1070}) + at(2500, "end: true"));
    EXPECT_TRUE(desktopCalls(backdrop).empty());
    EXPECT_EQ(overviewAt(backdrop, 2400)["visible"], false);
}

TEST(OverviewReplay, ATileDroppedOnNothingSpringsBackAndTheNextClickWaitsForTheGuard) {
    const std::string open = at(1000, "command: {command: expose, mode: show}");
    auto probe = replay(kWorld, open + at(1500, "end: true"));
    const auto tile = find(overviewAt(probe, 1400), "tiles", 1041);
    ASSERT_TRUE(tile);
    const Point c = centre(*tile), backdrop{1440 + 1900, 1070};
    // Dropped on the backdrop: nothing moves. A click 50 ms after the drop is no click; 250 ms after, it is.
    auto events = replay(kWorld, open + point("mouseDown", 1500, c) + point("mouseDrag", 1550, backdrop) +
                                     point("mouseUp", 1600, backdrop) + point("mouseDown", 1640, c) +
                                     point("mouseUp", 1650, c) + point("mouseDown", 1840, c) +
                                     point("mouseUp", 1850, c) + at(2500, "end: true"));
    EXPECT_EQ(desktopCalls(events), (std::vector<std::string>{"focus 1041"}));
    for (const auto& e : events)
        if (e["kind"] == "focus") {
            EXPECT_EQ(e["t"], 1850);
        }
    EXPECT_TRUE(hasLog(replay(kWorld,
                              open + point("mouseDown", 1500, c) + point("mouseDrag", 1550, backdrop) +
                                  point("mouseUp", 1600, backdrop) + at(2000, "end: true"),
                              true),
                       "expose: drag of wid=1041 springs back"));
}

TEST(OverviewReplay, MouseAndTrackpadEventsAreCheckedBeforeTheRun) {
    std::string error;
    std::stringstream out;
    agent::ReplayOptions options;
    options.jsonTrace = &out;
    EXPECT_EQ(agent::ReplayRunner().run(kWorld, at(10, "scroll: {phase: sideways}"), options, error), 2);
    EXPECT_EQ(error, "script: event 1: scroll.phase: expected began, changed, ended or cancelled");
    EXPECT_EQ(agent::ReplayRunner().run(kWorld, at(10, "mouseDown: {x: 1}"), options, error), 2);
    EXPECT_EQ(error, "script: event 1: mouseDown.y: missing");
    EXPECT_EQ(agent::ReplayRunner().run(kWorld, at(10, "fling: {dx: left}"), options, error), 2);
    EXPECT_EQ(error, "script: event 1: fling.dx: expected a finite number of points within ±10000000");
    // Without the overview up they only move the pointer.
    auto events = replay(kWorld, at(100, "fling: {dx: 200}") + point("mouseDrag", 200, {5, 5}) +
                                     point("mouseUp", 300, {5, 5}) + at(500, "end: true"));
    EXPECT_TRUE(overviewLines(events).empty());
    EXPECT_TRUE(desktopCalls(events).empty());
}

}  // namespace
}  // namespace zelk::testing
