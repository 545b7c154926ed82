// The overview end to end on the simulated desktop: opening over three Spaces on two displays, the
// keys while it is up, committing and closing windows, flings, the hot corner and drags. The layout
// model is read from the manager and what the desktop was asked to do from its change log.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "OverviewService.h"
#include "Subsystems.h"
#include "input/AgentFixture.h"
#include "platform/sim/SimDesktop.h"

namespace zelk::testing {
namespace {

using expose::ExposeManager;

// Display 1 shows Space 1 (Space 2 beside it); display 2 shows Space 3. Safari and Terminal have a
// window on two Spaces each; Mail's window is on Space 1, Notes' on Space 3. Safari's "Apple" is focused.
const char* kWorld = R"(
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

struct ExposeControllerTest : AgentFixture {
    std::vector<std::string> calls;
    ferrow::Subscription callSub;

    void open(const nlohmann::json& settings = nlohmann::json::object()) {
        start(kWorld, settings);
        runFor(500);
        callSub = world().changes.subscribe([this](const sim::WorldChange& c) { record(c); });
        manager().show();
        runFor(300);
    }
    void record(const sim::WorldChange& c) {
        using K = sim::WorldChange::Kind;
        switch (c.kind) {
            case K::space:
                calls.push_back(fmt::format("space {}", c.space));
                break;
            case K::focus:
                calls.push_back(fmt::format("focus {}", c.window));
                break;
            case K::windowClosed:
                calls.push_back(fmt::format("closed {}", c.window));
                break;
            case K::windowMinimized:
                calls.push_back(fmt::format("minimized {} {}", c.window, c.flag));
                break;
            case K::windowFrame:
                calls.push_back(fmt::format("frame {} [{},{},{},{}]", c.window, c.frame.x, c.frame.y,
                                            c.frame.width, c.frame.height));
                break;
            case K::windowSpace:
                calls.push_back(fmt::format("moved {} to {}", c.window, c.space));
                break;
            case K::terminate:
                calls.push_back("quit " + c.bundleID);
                break;
            default:
                break;
        }
    }
    ExposeManager& manager() { return agent->subsystems().overview().manager(); }
    void key(Key k, std::vector<std::string> mods = {}, bool repeat = false) {
        hold(mods);
        press(k, repeat);
        hold({});
    }
    std::string letterOf(const std::string& bundle) {
        for (const auto& g : manager().groups())
            if (g.bundleID == bundle) return g.letter;
        return "";
    }
    Key keyOfLetter(const std::string& bundle) { return *keyFromCharacter(letterOf(bundle)); }
    std::vector<std::uint32_t> tileIDs(const std::string& screen) {
        std::vector<std::uint32_t> out;
        if (const auto* l = manager().layout(screen))
            for (const auto& t : l->tiles)
                out.push_back(t.id);
        std::sort(out.begin(), out.end());
        return out;
    }
    // A tile's centre in global points.
    Point tileCentre(std::uint32_t id) {
        for (const auto& s : manager().panelScreens())
            if (const auto* l = manager().layout(s.uuid))
                if (auto f = l->tileFrame(id)) return {s.frame.x + f->midX(), s.frame.y + f->midY()};
        ADD_FAILURE() << "no tile " << id;
        return {};
    }
    bool has(const std::string& call) { return std::find(calls.begin(), calls.end(), call) != calls.end(); }
    void scroll(double dx, double dy) {
        manager().handleScroll({expose::ScrollPhase::began, 0, 0, false});
        manager().handleScroll({expose::ScrollPhase::changed, dx, dy, false});
        manager().handleScroll({expose::ScrollPhase::ended, 0, 0, false});
    }
};

TEST_F(ExposeControllerTest, OpeningLaysOutEveryWindowOnItsOwnDisplay) {
    open();
    auto& m = manager();
    ASSERT_TRUE(m.isVisible());
    EXPECT_TRUE(input().overlayVisible);
    // Display 1 holds Spaces 1 and 2, display 2 Space 3, each window tiled on its Space's display.
    EXPECT_EQ(tileIDs("D1"), (std::vector<std::uint32_t>{1001, 1002, 1011, 1022}));
    EXPECT_EQ(tileIDs("D2"), (std::vector<std::uint32_t>{1021, 1041}));
    ASSERT_EQ(m.spaces().size(), 3u);
    EXPECT_EQ(m.spaces()[1].userIndex, 2);
    EXPECT_EQ(m.spaces()[2].userIndex, 1);
    EXPECT_EQ(m.spaces()[2].displayName, "Studio Display");
    EXPECT_EQ(m.selectedWindowID(), 1001u);
    // Numbered per Space, in window order; grouped by app with the app's letter on every window.
    EXPECT_EQ(m.window(1001)->number, 1);
    EXPECT_EQ(m.window(1011)->number, 2);
    EXPECT_EQ(m.window(1002)->number, 1);
    EXPECT_EQ(m.window(1022)->number, 2);
    EXPECT_EQ(m.window(1041)->number, 2);
    ASSERT_EQ(m.groups().size(), 4u);
    for (const auto& g : m.groups())
        for (const auto& w : g.windows)
            EXPECT_EQ(w.letterKey, g.letter);
    // Every tile stands inside its screen's container, below the Spaces bar; the bar has a cell per
    // Space of the display.
    for (const auto& [screen, layout] : m.layouts()) {
        const Rect container{56, layout.spacesBar.empty() ? 0 : layout.spacesBar.front().frame.maxY(),
                             layout.containerSize.width, 10000};
        for (const auto& t : layout.tiles) {
            EXPECT_GE(t.frame.x, container.x - 0.5) << t.id;
            EXPECT_LE(t.frame.maxX(), container.maxX() + 0.5) << t.id;
            EXPECT_GE(t.frame.y, container.y) << t.id;
        }
        EXPECT_EQ(layout.spacesBar.size(), screen == "D1" ? 2u : 1u);
        EXPECT_EQ(layout.cards.size(), screen == "D1" ? 3u : 2u);
    }
    EXPECT_EQ(m.navOrder().size(), 6u);
    // The entrance starts each tile at its window and settles.
    EXPECT_EQ(m.phase(), expose::ExposePhase::shown);
    EXPECT_EQ(m.entranceFrames().at(1021), (Rect{60, 50, 800, 600}));
}

TEST_F(ExposeControllerTest, TheIncludeFilterAndTheSpacesBarFollowTheirSettings) {
    start(kWorld, {{"exposeInclude", nlohmann::json::array({"hidden"})}, {"exposeSpacesBar", false}});
    runFor(500);
    world().setMinimized(1011, true);
    runFor(300);
    manager().show();
    EXPECT_EQ(manager().window(1011), nullptr);
    EXPECT_NE(manager().window(1002), nullptr);
    for (const auto& [screen, layout] : manager().layouts())
        EXPECT_TRUE(layout.spacesBar.empty());
}

TEST_F(ExposeControllerTest, ArrowsTabAndLettersMoveTheSelection) {
    open();
    auto& m = manager();
    // Right from Safari's "Apple" lands on a tile whose centre is further right.
    const Point from = tileCentre(1001);
    key(Key::rightArrow);
    ASSERT_TRUE(m.selectedWindowID());
    EXPECT_NE(*m.selectedWindowID(), 1001u);
    EXPECT_GT(tileCentre(*m.selectedWindowID()).x, from.x);
    key(Key::leftArrow);
    EXPECT_EQ(m.selectedWindowID(), 1001u);
    // Tab walks the order and wraps; Shift-Tab walks back.
    const auto order = m.navOrder();
    for (std::size_t i = 0; i < order.size(); ++i)
        key(Key::tab);
    EXPECT_EQ(m.selectedWindowID(), 1001u);
    key(Key::tab, {"lshift"});
    auto pos = std::find(order.begin(), order.end(), 1001u) - order.begin();
    EXPECT_EQ(m.selectedWindowID(), order[(pos + order.size() - 1) % order.size()]);

    // Terminal's letter filters to its two windows, across both displays; again cycles them.
    key(keyOfLetter("com.apple.Terminal"));
    EXPECT_EQ(m.filterBundleID(), "com.apple.Terminal");
    EXPECT_EQ(tileIDs("D1"), (std::vector<std::uint32_t>{1022}));
    EXPECT_EQ(tileIDs("D2"), (std::vector<std::uint32_t>{1021}));
    const auto first = *m.selectedWindowID();
    key(keyOfLetter("com.apple.Terminal"));
    EXPECT_NE(*m.selectedWindowID(), first);
    // Escape clears the filter first, then closes.
    key(Key::escape);
    EXPECT_FALSE(m.filterBundleID());
    EXPECT_EQ(tileIDs("D1").size(), 4u);
    EXPECT_TRUE(calls.empty());
    key(Key::escape);
    runFor(200);
    EXPECT_FALSE(m.isVisible());
    EXPECT_FALSE(input().overlayVisible);
}

TEST_F(ExposeControllerTest, ReturnOnAWindowOfAnotherSpaceSwitchesSpaceThenFocuses) {
    open();
    auto& m = manager();
    // Safari's letter filters to its windows; the second press reaches "News" on Space 2.
    key(keyOfLetter("com.apple.Safari"));
    while (m.selectedWindowID() != 1002u)
        key(keyOfLetter("com.apple.Safari"));
    key(Key::return_);
    EXPECT_EQ(m.phase(), expose::ExposePhase::exiting);
    runFor(1000);
    EXPECT_FALSE(m.isVisible());
    auto space = std::find(calls.begin(), calls.end(), "space 2");
    auto focus = std::find(calls.begin(), calls.end(), "focus 1002");
    ASSERT_NE(space, calls.end());
    ASSERT_NE(focus, calls.end());
    EXPECT_LT(space, focus);
    EXPECT_EQ(world().focusedWindow(), 1002u);
}

TEST_F(ExposeControllerTest, CommandWClosesOnlyOnASecondPressForTheSameWindow) {
    open();
    auto& m = manager();
    key(Key::w, {"lcmd"});
    ASSERT_TRUE(m.confirm());
    EXPECT_EQ(m.confirm()->wid, 1001u);
    EXPECT_EQ(m.confirm()->text(), "press ⌘W again to close this window");
    EXPECT_FALSE(has("closed 1001"));
    // Another window's Command-W replaces the question.
    while (m.selectedWindowID() != 1011u)
        key(Key::tab);
    const auto other = *m.selectedWindowID();
    key(Key::w, {"lcmd"});
    ASSERT_TRUE(m.confirm());
    EXPECT_EQ(m.confirm()->wid, other);
    key(Key::w, {"lcmd"});
    EXPECT_TRUE(has(fmt::format("closed {}", other)));
    EXPECT_FALSE(has("closed 1001"));
    EXPECT_FALSE(m.confirm());
    EXPECT_EQ(m.window(other), nullptr);
    ASSERT_TRUE(m.toast());
    EXPECT_EQ(m.toast()->text, "Closed");
    // The toast leaves by itself.
    runFor(ExposeManager::kToastMs + 10);
    EXPECT_FALSE(m.toast());
    // Command-Shift-W isn't the overview's: it reaches the app in front.
    bool passed = false;
    auto sub = desktop.eventTap().events.subscribe([&](const sim::SimEventTap::Seen& s) {
        if (s.event.type == platform::EventType::keyDown && s.event.keyCode == 13)
            passed = s.decision == platform::TapDecision::pass;
    });
    key(Key::w, {"lcmd", "lshift"});
    EXPECT_TRUE(passed);
    EXPECT_FALSE(m.confirm());
}

TEST_F(ExposeControllerTest, AQuestionTimesOutAndTheSettingOffActsAtOnce) {
    open();
    key(Key::q, {"lcmd"});
    ASSERT_TRUE(manager().confirm());
    EXPECT_EQ(manager().confirm()->text(), "press ⌘Q again to quit Safari");
    runFor(ExposeManager::kConfirmMs + 10);
    EXPECT_FALSE(manager().confirm());
    key(Key::q, {"lcmd"});
    EXPECT_FALSE(has("quit com.apple.Safari"));

    desktop.settings().write("exposeConfirmBlindDestructive", false);
    key(Key::escape);
    runFor(300);
    manager().show();
    key(Key::q, {"lcmd"});
    EXPECT_TRUE(has("quit com.apple.Safari"));
    EXPECT_EQ(manager().window(1002), nullptr);
}

TEST_F(ExposeControllerTest, MinimizeAndPlacementKeysActOnTheSelection) {
    open({{"exposeKeyboardLayout", "iso"}});
    auto& m = manager();
    key(Key::m, {"lcmd"});
    EXPECT_TRUE(has("minimized 1001 true"));
    EXPECT_EQ(m.toast()->text, "Minimized");
    EXPECT_TRUE(m.window(1001)->isMinimized);
    key(Key::m, {"lcmd"});
    EXPECT_TRUE(has("minimized 1001 false"));
    EXPECT_EQ(m.toast()->text, "Restored");
    // "[" on an ISO keyboard is the primary half: the left half of a landscape screen.
    calls.clear();
    key(Key::leftBracket);
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back().rfind("frame 1001 [0,25,720", 0), 0u) << calls.back();
    EXPECT_EQ(m.toast()->text, "left half");
}

TEST_F(ExposeControllerTest, FlingsNeedDistanceAndDominance) {
    open();
    auto& m = manager();
    scroll(-80, 0);    // 80 to the right: short of the threshold
    scroll(-90, -70);  // 90 across with 70 down: not dominant enough
    EXPECT_TRUE(calls.empty());
    scroll(-90, -20);  // to the right
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back().rfind("frame 1001 [720,25,720", 0), 0u) << calls.back();
    calls.clear();
    scroll(20, 90);  // up: maximized
    EXPECT_EQ(m.toast()->text, "maximized");
}

TEST_F(ExposeControllerTest, AFlingOverTheSpacesBarGoesToTheNextSpace) {
    open();
    auto& m = manager();
    // A copy: the Space switch lays the overview out again.
    const auto cell = m.layout("D1")->spacesBar.front();
    m.pointerMoved({cell.frame.midX(), cell.frame.midY()});
    EXPECT_EQ(m.hoveredBarSpaceID(), 1u);
    scroll(100, 0);  // leftward: the next Space
    runFor(500);
    EXPECT_TRUE(has("space 2"));
    EXPECT_TRUE(m.isVisible());
    // The overview follows: Space 2 is now the active one on display 1.
    EXPECT_TRUE(m.spaces()[1].isActive);
    // There is no Space after the last: nothing happens.
    calls.clear();
    m.pointerMoved({cell.frame.midX(), cell.frame.midY()});
    scroll(100, 0);
    runFor(500);
    EXPECT_TRUE(calls.empty());
}

TEST_F(ExposeControllerTest, TheHotCornerArmsAwayFromTheCornerAndFiresOnce) {
    start(kWorld, {{"exposeHotCorner", "topLeft"}});
    runFor(500);
    auto& m = manager();
    auto move = [&](Point p) {
        world().warpPointer(p);
        runFor(60);
    };
    move({300, 300});
    EXPECT_TRUE(m.hotCornerArmed());
    move({2, 2});
    EXPECT_TRUE(m.isVisible());
    // Staying in the corner doesn't toggle again; leaving past 40 points and coming back does.
    move({1, 0});
    move({30, 0});
    move({0, 0});
    EXPECT_NE(m.phase(), expose::ExposePhase::exiting);
    move({50, 10});
    move({0, 1});
    EXPECT_EQ(m.phase(), expose::ExposePhase::exiting);
    // Switched off, the corner does nothing.
    runFor(500);
    desktop.settings().write("exposeHotCorner", "off");
    move({300, 300});
    move({0, 0});
    EXPECT_FALSE(m.isVisible());
}

TEST_F(ExposeControllerTest, ADraggedWindowGoesToAnotherSpaceOrScreen) {
    open();
    auto& m = manager();
    // Onto Space 2's cell of the bar: the window moves there the way the move keys send it.
    const auto cell = m.layout("D1")->spacesBar[1];
    ASSERT_TRUE(m.beginDrag(1011, tileCentre(1011)));
    EXPECT_TRUE(m.drag());
    m.pointerMoved({cell.frame.midX(), cell.frame.midY()});
    m.endDrag({cell.frame.midX(), cell.frame.midY()});
    EXPECT_FALSE(m.drag());
    EXPECT_NE(std::find(calls.begin(), calls.end(), "moved 1011 to 2"), calls.end())
        << fmt::format("{}", fmt::join(calls, "; "));
    EXPECT_EQ(m.window(1011)->spaceID, 2u);
    ASSERT_TRUE(m.toast());
    EXPECT_EQ(m.toast()->text, "Moved to Space 2");
    // Onto the other screen: the window moves there, keeping its offset from the top left.
    ASSERT_TRUE(m.beginDrag(1011, tileCentre(1011)));
    m.endDrag({2400, 600});
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "frame 1011 [1480,60,900,700]");
    EXPECT_EQ(m.window(1011)->spaceID, 3u);
    EXPECT_EQ(tileIDs("D2"), (std::vector<std::uint32_t>{1011, 1021, 1041}));
    // Escape during a drag cancels it and keeps the overview up.
    ASSERT_TRUE(m.beginDrag(1001, tileCentre(1001)));
    key(Key::escape);
    EXPECT_FALSE(m.drag());
    EXPECT_TRUE(m.isVisible());
}

TEST_F(ExposeControllerTest, SpaceGroupingDigitsFilterASpaceAndCommaCycles) {
    open();
    auto& m = manager();
    key(Key::comma);
    EXPECT_EQ(m.grouping(), expose::ExposeGrouping::space);
    ASSERT_EQ(m.layout("D1")->sectionHeaders.size(), 2u);
    EXPECT_EQ(m.layout("D1")->sectionHeaders[1].title, "Space 2");
    EXPECT_EQ(m.layout("D1")->sectionHeaders[1].keycap, "2");
    // 2 jumps to Space 2 (switching to it) and keeps only its windows.
    key(Key::two);
    runFor(500);
    EXPECT_TRUE(has("space 2"));
    EXPECT_EQ(m.filterSpaceID(), 2u);
    EXPECT_EQ(tileIDs("D1"), (std::vector<std::uint32_t>{1002, 1022}));
    EXPECT_EQ(m.layout("D1")->sectionHeaders.front().id, "spacefilter");
    key(Key::delete_);
    EXPECT_FALSE(m.filterSpaceID());
    key(Key::comma);
    EXPECT_EQ(m.grouping(), expose::ExposeGrouping::state);
    key(Key::comma);
    EXPECT_EQ(m.grouping(), expose::ExposeGrouping::app);
}

TEST_F(ExposeControllerTest, TheOverviewKeyOpensItFromRoutingAndClosesItAfterTheExitPhase) {
    start(kWorld);
    runFor(500);
    hold({"rightCommand"});
    press(Key::period);
    hold({});
    auto& m = manager();
    ASSERT_TRUE(m.isVisible());
    // While it is up, bare typing is its own and doesn't reach the app.
    key(Key::period);
    EXPECT_EQ(m.phase(), expose::ExposePhase::exiting);
    runFor(ExposeManager::kOrderOutMs - 10);
    EXPECT_TRUE(m.isVisible());
    runFor(20);
    EXPECT_FALSE(m.isVisible());
}

TEST_F(ExposeControllerTest, TheExposeCommandTogglesShowsHidesAndReports) {
    start(kWorld);
    runFor(500);
    auto reply = [&](const std::string& mode) {
        nlohmann::json r{{"command", "expose"}};
        if (!mode.empty()) r["mode"] = mode;
        return agent->handleCommand(r);
    };
    EXPECT_EQ(reply("show")["message"], "expose shown");
    EXPECT_EQ(reply("status")["message"], "expose visible (windows=6 grouping=app)");
    EXPECT_EQ(reply("hide")["message"], "expose hidden");
    EXPECT_EQ(reply("toggle")["message"], "expose shown");
    EXPECT_EQ(reply("")["message"], "expose hidden");
    auto bad = reply("open");
    EXPECT_EQ(bad["ok"], false);
    EXPECT_EQ(bad["error"], "unknown expose action open; use toggle|show|hide|status");
}

}  // namespace
}  // namespace zelk::testing
