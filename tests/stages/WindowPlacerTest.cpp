#include <gtest/gtest.h>

#include "stages/WindowPlacer.h"
#include "windows/WindowsFixture.h"

using namespace zelk;
using namespace zelk::stages;

namespace {

// A built-in panel and a display to its right, each with a window of its own app.
const char* kTwoScreens = R"(
displays:
  - id: 1
    frame: [0, 0, 1440, 900]
    spaces: [{id: 1}]
    currentSpace: 1
  - id: 2
    name: "DELL U2720Q"
    frame: [1440, 0, 2560, 1440]
    menuBarHeight: 0
    spaces: [{id: 2}]
    currentSpace: 2
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Front page", frame: [0, 25, 1000, 700], space: 1}
        - {id: 12, title: "Docs", frame: [50, 60, 700, 500], space: 1}
  - bundleID: a.mail
    name: Mail
    running:
      pid: 102
      windows:
        - {id: 21, title: "Inbox", frame: [1500, 100, 900, 600], space: 2}
frontmost: a.safari
focusedWindow: 11
)";

struct Placer : zelk::testing::WindowsFixture {
    std::unique_ptr<WindowPlacer> placer;
    void start() {
        startWith(kTwoScreens);
        auto p = desktop.platform();
        WindowPlacer::Sources s;
        s.ax = p.accessibility;
        s.workspace = p.workspace;
        s.screens = p.screens;
        s.windows = [this] { return wm->windows(); };
        s.resolve = [this](const StageItem& item) -> std::optional<windows::ManagedWindow> {
            for (auto& w : wm->windows())
                if (w.bundleIdentifier == item.bundleID() && w.title == item.windowTitle) return w;
            return std::nullopt;
        };
        placer = std::make_unique<WindowPlacer>(s);
    }
    Rect frame(std::uint32_t id) { return world().window(id)->frame; }
    StageItem item(std::string bundle, std::string title, WindowPlacement placement) {
        StageItem i;
        i.id = makeUUID();
        i.app = std::make_shared<apps::LaunchableApp>("/Applications/X.app", "X", 0, bundle);
        i.windowTitle = std::move(title);
        i.windowPlacement = std::move(placement);
        return i;
    }
};

}  // namespace

TEST(PlacementText, PixelFormAndNamedPositions) {
    EXPECT_EQ(parsePixelPosition("100,50,800,600"), (Rect{100, 50, 800, 600}));
    EXPECT_EQ(parsePixelPosition(" -10 , +5.5,800 ,600 "), (Rect{-10, 5.5, 800, 600}));
    for (const char* bad : {"", "100,50,800", "100,50,800,600,1", "100,50,0,600", "a,b,c,d", "100,,800,600"})
        EXPECT_FALSE(parsePixelPosition(bad)) << bad;
    EXPECT_EQ(formatPixelPosition({100, 50.5, 800, 600}), "100,50.5,800,600");
    auto named = placementFromText("left-half", std::string("builtin"), 8.0);
    ASSERT_TRUE(named);
    EXPECT_EQ(describePlacement(*named), "left-half on builtin (padding 8)");
    auto pixels = placementFromText("10,20,300,200", std::nullopt, 0.0);
    ASSERT_TRUE(pixels);
    EXPECT_EQ(describePlacement(*pixels), "10,20,300,200");
    EXPECT_FALSE(placementFromText("left-halves", std::nullopt, std::nullopt));
}

TEST(PlacementText, ScreenListFlipsToBottomLeftAndBack) {
    platform::Screen a{1, "Built-in", "A", {0, 0, 1440, 900}, {0, 25, 1440, 875}, 2, true};
    platform::Screen b{2, "DELL", "B", {1440, -200, 2560, 1440}, {1440, -200, 2560, 1440}, 1, false};
    auto list = screenListFrom({a, b}, b);
    EXPECT_EQ(list.main, 1u);
    EXPECT_EQ(list.screens[1].frame, (Rect{1440, -340, 2560, 1440}));
    EXPECT_EQ(visibleFrame(list.screens[0], list), a.visibleFrame);
    EXPECT_EQ(visibleFrame(list.screens[1], list), b.visibleFrame);
}

TEST_F(Placer, NamedAndPixelPlacementsOnScreensByNameOrNumber) {
    start();
    auto safari = *tracked(11);
    ASSERT_TRUE(
        placer->placeWindow(safari, SemanticPlacement{SemanticPosition::rightHalf, "builtin", 4.0, {}}));
    EXPECT_EQ(frame(11), (Rect{724, 29, 712, 867}));
    ASSERT_TRUE(placer->placeWindow(safari, SemanticPlacement{SemanticPosition::topLeft, "dell", {}, {}}));
    EXPECT_EQ(frame(11), (Rect{1440, 0, 1280, 720}));
    ASSERT_TRUE(placer->placeWindow(safari, PixelsPlacement{{10, 20, 300, 200}, "2"}));
    EXPECT_EQ(frame(11), (Rect{1450, 20, 300, 200}));
    // An unknown screen follows the main screen, as a stage does when a display is gone: the
    // focused window now lies on the second display (and its Space), which makes that one main.
    ASSERT_TRUE(placer->placeWindow(safari, PixelsPlacement{{10, 20, 300, 200}, "External Projector"}));
    EXPECT_EQ(frame(11), (Rect{1450, 20, 300, 200}));
}

TEST_F(Placer, AStageItemFindsItsWindowByNumberResolutionOrAsTheNewest) {
    start();
    auto byTitle =
        item("a.safari", "Docs", SemanticPlacement{SemanticPosition::maximized, "builtin", {}, {}});
    EXPECT_EQ(placer->restoreWindowPlacement(byTitle, std::nullopt), 12u);
    EXPECT_EQ(frame(12), (Rect{0, 25, 1440, 875}));
    // A remembered number that is still tracked wins over resolution.
    auto remembered = byTitle;
    remembered.windowID = 11;
    EXPECT_EQ(placer->restoreWindowPlacement(remembered, std::nullopt), 11u);
    // Nothing resolves: only with a known set does the newest other window take the placement.
    auto unknown = item("a.safari", "Gone", PixelsPlacement{{0, 0, 500, 400}, "builtin"});
    EXPECT_FALSE(placer->restoreWindowPlacement(unknown, std::nullopt));
    EXPECT_EQ(placer->restoreWindowPlacement(unknown, std::set<std::uint32_t>{12}), 11u);
    EXPECT_EQ(frame(11), (Rect{0, 25, 500, 400}));
    EXPECT_FALSE(placer->restoreWindowPlacement(unknown, std::set<std::uint32_t>{11, 12}));
    // Without a placement or a running app there is nothing to do.
    auto noPlacement = byTitle;
    noPlacement.windowPlacement.reset();
    EXPECT_FALSE(placer->restoreWindowPlacement(noPlacement, std::nullopt));
    EXPECT_FALSE(
        placer->restoreWindowPlacement(item("a.none", "Docs", *byTitle.windowPlacement), std::nullopt));
}
