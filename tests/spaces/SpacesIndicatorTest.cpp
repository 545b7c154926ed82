#include <gtest/gtest.h>

#include "../platform/sim/SimFixture.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "spaces/ISSManager.h"
#include "spaces/SpacesIndicator.h"
#include "support/Log.h"

namespace zelk::testing {
namespace {

using spaces::IndicatorCell;
using spaces::IndicatorOptions;
using spaces::SpacesIndicator;

platform::DisplaySpaces display(std::string id, std::vector<std::pair<std::uint64_t, int>> spaces,
                                std::uint64_t current) {
    platform::DisplaySpaces d;
    d.displayIdentifier = std::move(id);
    for (auto [space, type] : spaces)
        d.spaces.push_back({space, type});
    d.currentSpace = {current, 0};
    return d;
}

// Display A: user Space 1, Safari full screen (Space 2), user Space 3. Display B: user Space 4, which a
// stage claims, and user Space 5, current.
spaces::IndicatorInputs twoDisplays() {
    spaces::IndicatorInputs in;
    in.displays = {display("A", {{1, 0}, {2, 4}, {3, 0}}, 1), display("B", {{4, 0}, {5, 0}}, 5)};
    in.stageKeyBySpace = {{4, "w"}};
    in.fullScreenKey = [](std::uint64_t space) { return space == 2 ? std::string("s") : std::string(); };
    return in;
}

TEST(SpacesIndicatorCells, UserSpacesCountAcrossDisplaysAndLettersStandForFullScreenAndStages) {
    auto cells = spaces::buildIndicatorCells(twoDisplays(), {});
    EXPECT_EQ(spaces::describeIndicator(cells), "[1] s 2 | w [4]");
    EXPECT_EQ(spaces::indicatorSignature(cells), "n1*lsn2|lwn4*");
    ASSERT_EQ(cells.size(), 5u);
    EXPECT_TRUE(cells[3].isStage);
    EXPECT_FALSE(cells[1].isStage);  // a full-screen app's key is not a stage
    EXPECT_EQ(cells[3].display, "B");
}

TEST(SpacesIndicatorCells, UnassignedFullScreenAppsAndLettersOffShowTheDot) {
    auto in = twoDisplays();
    in.fullScreenKey = [](std::uint64_t) { return std::string(); };
    EXPECT_EQ(spaces::describeIndicator(spaces::buildIndicatorCells(in, {})), "[1] · 2 | w [4]");
    // Without letters a stage's Space keeps its number and a full-screen Space has none.
    IndicatorOptions noLetters;
    noLetters.letters = false;
    auto cells = spaces::buildIndicatorCells(twoDisplays(), noLetters);
    EXPECT_EQ(spaces::describeIndicator(cells), "[1] · 2 | 3 [4]");
    EXPECT_EQ(spaces::indicatorSignature(cells), "n1*l·n2|n3n4*");
}

TEST(SpacesIndicatorCells, ActiveOnlyKeepsOneCellPerDisplayAndThePredictionMovesIt) {
    IndicatorOptions activeOnly;
    activeOnly.activeOnly = true;
    auto in = twoDisplays();
    EXPECT_EQ(spaces::describeIndicator(spaces::buildIndicatorCells(in, activeOnly)), "[1] | [4]");
    in.activeByDisplay["A"] = 3;
    EXPECT_EQ(spaces::describeIndicator(spaces::buildIndicatorCells(in, activeOnly)), "[2] | [4]");
}

TEST(SpacesIndicatorLayout, DisplaysAreNinePointsApartAndTwoDigitNumbersAreWide) {
    spaces::IndicatorInputs in;
    in.displays = {display("A", {{1, 0}, {2, 0}, {3, 0}}, 1), display("B", {{4, 0}, {5, 0}}, 4)};
    auto cells = spaces::buildIndicatorCells(in, {});
    EXPECT_EQ(spaces::describeIndicator(cells), "[1] 2 3 | [4] 5");
    auto layout = spaces::layoutIndicator(cells, true);
    ASSERT_EQ(layout.cells.size(), 5u);
    // Icon 18 + gap 6, then 16-point cells 3 apart; 9 points between the displays.
    EXPECT_EQ(layout.cells[0].x, 24);
    EXPECT_EQ(layout.cells[1].x, 43);
    EXPECT_EQ(layout.cells[2].x, 62);
    EXPECT_EQ(layout.cells[3].x, 62 + 16 + 9);
    EXPECT_EQ(layout.cells[0].height, 15);
    EXPECT_EQ(layout.width, 87 + 16 + 3 + 16);
    EXPECT_EQ(spaces::layoutIndicator(cells, false).cells[0].x, 0);

    std::vector<std::pair<std::uint64_t, int>> many;
    for (std::uint64_t i = 1; i <= 10; ++i)
        many.push_back({i, 0});
    spaces::IndicatorInputs ten;
    ten.displays = {display("A", many, 1)};
    auto wide = spaces::layoutIndicator(spaces::buildIndicatorCells(ten, {}), false);
    EXPECT_EQ(wide.cells[8].width, 16);
    EXPECT_EQ(wide.cells[9].width, 22);
}

TEST(SpacesIndicatorLayout, NoSpacesLeavesTheIconAlone) {
    auto layout = spaces::layoutIndicator({}, true);
    EXPECT_TRUE(layout.cells.empty());
    EXPECT_EQ(layout.width, 18);
}

// Two displays: the first with two user Spaces around Safari's full-screen Space, the second with two
// user Spaces; Notes' window stands on Space 4, where the stage "w" lives.
const char* kTwoDisplays = R"(
spaceSwitchLatencyMs: 300
displays:
  - id: 1
    uuid: DISPLAY-A
    frame: [0, 0, 1440, 900]
    spaces: [{id: 1}, {id: 2, fullscreen: true}, {id: 3}]
    currentSpace: 1
  - id: 2
    uuid: DISPLAY-B
    frame: [1440, 0, 1920, 1080]
    spaces: [{id: 4}, {id: 5}]
    currentSpace: 5
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Front page", frame: [0, 25, 1000, 700], space: 1}
        - {id: 12, title: "Film", frame: [0, 0, 1440, 900], space: 2}
  - bundleID: a.notes
    name: Notes
    running:
      pid: 103
      windows:
        - {id: 31, title: "Shopping", frame: [1500, 100, 800, 600], space: 4}
frontmost: a.safari
focusedWindow: 11
)";

struct SpacesIndicatorFixture : SimFixture {
    std::unique_ptr<spaces::ISSManager> iss;
    std::unique_ptr<SpacesIndicator> indicator;
    std::vector<spaces::IndicatorStage> stages;
    int resolves = 0;
    std::vector<std::string> rendered;
    ferrow::Subscription renderSub;

    void SetUp() override {
        ferrow::Log::setConsole(false);
        Settings::reset();
    }
    void TearDown() override {
        renderSub.cancel();
        indicator.reset();
        iss.reset();
        Settings::reset();
        SimFixture::TearDown();
    }
    void start(const std::string& yaml = kTwoDisplays, bool enable = true) {
        load(yaml);
        auto p = desktop.platform();
        iss = std::make_unique<spaces::ISSManager>(*p.windowServer, p.screens, p.pointer);
        spaces::SpacesIndicatorEnvironment env;
        env.server = p.windowServer;
        env.workspace = p.workspace;
        env.settings = &Settings::shared();
        env.keyForProcess = [](std::int32_t pid) { return pid == 101 ? std::string("s") : std::string(); };
        env.stages = [this] { return stages; };
        env.resolveItem = [this](const std::string&,
                                 const std::string& item) -> std::optional<std::uint32_t> {
            ++resolves;
            if (item == "NOTES") return 31u;
            return std::nullopt;
        };
        indicator = std::make_unique<SpacesIndicator>(std::move(env));
        iss->predictActiveSpace = [this](int index, const std::string& d) {
            indicator->predictActiveSpaceAt(index, d);
        };
        renderSub = indicator->model().subscribe([this](const spaces::SpacesIndicatorModel& m) {
            rendered.push_back(spaces::describeIndicator(m.cells));
        });
        if (enable) {
            Settings::shared().set(keys::spaceMode, SpaceMode::multi);
            Settings::shared().set(keys::showSpacesIndicator, true);
        }
        runFor(0);
    }
    std::string text() { return spaces::describeIndicator(indicator->model().get().cells); }
};

TEST_F(SpacesIndicatorFixture, TwoDisplaysWithAFullScreenAndAStageClaimedSpace) {
    stages = {{"w", std::nullopt, {"NOTES"}}};
    start();
    EXPECT_TRUE(indicator->enabled());
    EXPECT_EQ(text(), "[1] s 2 | w [4]");
    EXPECT_EQ(indicator->lastSignature(), "+n1*lsn2|lwn4*");
    // A stage assigned to a Space claims it before one whose windows merely stand there.
    stages = {{"w", std::nullopt, {"NOTES"}}, {"k", 5, {}}};
    indicator->recomputeStageMap();
    runFor(0);
    EXPECT_EQ(text(), "[1] s 2 | w [k]");
}

TEST_F(SpacesIndicatorFixture, OnlyMultiSpaceModeWithTheSettingOnShowsTheStrip) {
    start(kTwoDisplays, false);
    EXPECT_FALSE(indicator->enabled());
    Settings::shared().set(keys::showSpacesIndicator, true);
    EXPECT_FALSE(indicator->enabled());  // single-Space mode
    Settings::shared().set(keys::spaceMode, SpaceMode::multi);
    EXPECT_TRUE(indicator->enabled());
    EXPECT_EQ(text(), "[1] s 2 | 3 [4]");
    Settings::shared().set(keys::showSpacesIndicator, false);
    EXPECT_FALSE(indicator->enabled());
    EXPECT_FALSE(indicator->model().get().enabled);
    EXPECT_TRUE(indicator->model().get().cells.empty());
    // Stopped: switches and ticks render nothing.
    auto renders = indicator->renderCount();
    EXPECT_TRUE(iss->switchToSpace(2, std::string("DISPLAY-A")));
    runFor(6000);
    EXPECT_EQ(indicator->renderCount(), renders);
}

TEST_F(SpacesIndicatorFixture, OwnSwitchShowsAtOnceAndTheLandingDoesNotRenderAgain) {
    start();
    EXPECT_EQ(text(), "[1] s 2 | 3 [4]");
    auto renders = indicator->renderCount();
    EXPECT_TRUE(iss->switchToSpace(2, std::string("DISPLAY-A")));
    // Before the system has moved: the strip already shows the target.
    EXPECT_EQ(world().displays()[0].currentSpace, 1u);
    EXPECT_EQ(text(), "1 s [2] | 3 [4]");
    EXPECT_EQ(indicator->renderCount(), renders + 1);
    runFor(400);
    EXPECT_EQ(world().displays()[0].currentSpace, 3u);
    EXPECT_FALSE(indicator->predictedActiveSpaceID());  // the system's report cleared it
    EXPECT_EQ(indicator->renderCount(), renders + 1);   // same signature: nothing drawn again
    runFor(10'000);                                     // two refresh ticks
    EXPECT_EQ(indicator->renderCount(), renders + 1);
    EXPECT_EQ(rendered.back(), "1 s [2] | 3 [4]");
}

TEST_F(SpacesIndicatorFixture, AnOutsideSwitchWithoutNoticeShowsOnTheFiveSecondRefresh) {
    start();
    world().faults.spaceNoticesLost = true;
    runFor(1000);
    ASSERT_TRUE(world().switchSpace(1, 4, false));  // no app comes forward either
    runFor(3900);                                   // 4.9 s since the start: the first tick hasn't come
    EXPECT_EQ(text(), "[1] s 2 | 3 [4]");
    runFor(100);
    EXPECT_EQ(text(), "[1] s 2 | [3] 4");
}

TEST_F(SpacesIndicatorFixture, APredictionThatNeverLandsExpiresAfterOnePointFiveSeconds) {
    start();
    indicator->predictActiveSpace(3);
    EXPECT_EQ(text(), "1 s [2] | 3 [4]");
    runFor(1499);
    indicator->refresh(false);
    EXPECT_EQ(text(), "1 s [2] | 3 [4]");
    runFor(1);
    indicator->refresh(false);
    EXPECT_EQ(text(), "[1] s 2 | 3 [4]");
    EXPECT_FALSE(indicator->predictedActiveSpaceID());
}

TEST_F(SpacesIndicatorFixture, StageItemWindowsAreResolvedAgainOnlyAfterThirtySeconds) {
    stages = {{"w", std::nullopt, {"NOTES", "GONE"}}};
    start();
    EXPECT_EQ(text(), "[1] s 2 | w [4]");
    const int first = resolves;
    EXPECT_EQ(first, 2);
    runFor(29'000);
    indicator->recomputeStageMap();
    runFor(0);
    EXPECT_EQ(resolves, first + 1);  // only the unresolved item asks again
    // The window moves; the cached lookup still names it, and its Space is read anew.
    world().moveWindowToSpace(31, 5);
    runFor(1000);  // 30 s since the first lookup
    indicator->recomputeStageMap();
    runFor(0);
    EXPECT_EQ(resolves, first + 3);
    EXPECT_EQ(text(), "[1] s 2 | 3 [w]");
    // The last stage goes: so does its letter.
    stages.clear();
    indicator->recomputeStageMap();
    EXPECT_EQ(text(), "[1] s 2 | 3 [4]");
}

TEST_F(SpacesIndicatorFixture, WithoutTheWindowServersListOnlyTheIconShows) {
    start();
    world().faults.noWindowServer = true;
    runFor(5000);
    EXPECT_TRUE(indicator->model().get().enabled);
    EXPECT_TRUE(indicator->model().get().cells.empty());
    EXPECT_TRUE(indicator->model().get().showIcon);
}

}  // namespace
}  // namespace zelk::testing
