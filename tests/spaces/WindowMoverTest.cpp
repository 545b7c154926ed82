#include "Subsystems.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/AgentFixture.h"
#include "spaces/WindowMover.h"
#include "windows/WindowManager.h"

using namespace zelk;
using namespace zelk::testing;
using spaces::MoveResult;

namespace {

// Notes has two windows on Space 1 (a stage of two), Mail one; three Spaces on one display.
const char* kWorld = R"(
OS
dock: true
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
apps:
  - bundleID: com.apple.Notes
    name: Notes
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Groceries", frame: [100, 100, 800, 600], space: 1}
        - {id: 1002, title: "Recipes", frame: [300, 200, 800, 600], space: 1}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 1}]}
frontmost: com.apple.Notes
focusedWindow: 1001
)";

struct WindowMoverTest : AgentFixture {
    void startWith(const std::string& os, const nlohmann::json& settings = nlohmann::json::object()) {
        std::string w = kWorld;
        w.replace(w.find("OS"), 2, os);
        start(w, settings);
    }
    spaces::WindowMover& mover() { return agent->subsystems().mover(); }
    void stage(std::vector<std::uint32_t> ids) {
        mover().activeStageWindows = [ids] {
            return std::optional<spaces::ActiveStageWindows>({"Work", ids});
        };
    }
    std::uint64_t spaceOf(std::uint32_t id) { return world().window(id)->space; }
};

}  // namespace

TEST_F(WindowMoverTest, AStagesWindowsMoveTogetherByTheBridgedOperation) {
    startWith("osMajorVersion: 15\nmoveLatencyMs: 200");
    stage({1001, 1002});
    EXPECT_EQ(mover().moveActiveStageWindowsToSpace(3), MoveResult::moved);
    // Stamped at once, before the operation lands.
    for (auto& w : agent->subsystems().windows().windows())
        if (w.id == 1001 || w.id == 1002) {
            EXPECT_EQ(w.spaceID, 3u);
        }
    EXPECT_TRUE(
        logs->contains("moveActiveStageWindowsToSpace: stage=Work bridged-moved 2 windows (0 off-space) -> "
                       "existing space 3"));
    runFor(2000);
    EXPECT_EQ(spaceOf(1001), 3u);
    EXPECT_EQ(spaceOf(1002), 3u);
    EXPECT_EQ(spaceOf(1011), 1u);
    EXPECT_EQ(world().activeSpace(), 3u);
    EXPECT_EQ(world().focusedWindow(), 1001u);
}

TEST_F(WindowMoverTest, WithoutInstantMeansAStageIsDraggedThroughMissionControl) {
    startWith("osMajorVersion: 15\nbridgedMoveAvailable: false");
    stage({1001, 1002});
    EXPECT_EQ(mover().moveActiveStageWindowsToSpace(2), MoveResult::moved);
    EXPECT_TRUE(mover().dragInFlight());
    // A second drag waits for none: it is refused while the first holds the mouse.
    EXPECT_EQ(mover().moveFocusedWindowToSpace(3), MoveResult::failed);
    runFor(6000);
    EXPECT_FALSE(mover().dragInFlight());
    EXPECT_EQ(spaceOf(1001), 2u);
    EXPECT_EQ(spaceOf(1002), 2u);
    EXPECT_EQ(world().overlay(), sim::Overlay::none);
    EXPECT_EQ(world().activeSpace(), 2u);
    auto f = world().focusedWindow();
    EXPECT_TRUE(f == 1001u || f == 1002u) << f;
}

TEST_F(WindowMoverTest, NoActiveStageOrNoDigitMovesNothing) {
    startWith("osMajorVersion: 14\nosMinorVersion: 4");
    EXPECT_EQ(mover().moveActiveStageWindowsToSpace(2), MoveResult::failed);
    EXPECT_TRUE(logs->contains("moveActiveStageWindowsToSpace: no active stage, no-op"));
    EXPECT_EQ(mover().moveFocusedWindowToSpace(0), MoveResult::failed);
    EXPECT_EQ(mover().moveFocusedWindowToSpace(10), MoveResult::failed);
    Settings::shared().set(keys::createMissingSpaces, false);
    EXPECT_EQ(mover().moveFocusedWindowToSpace(4), MoveResult::failed);
    EXPECT_EQ(world().displays()[0].spaces.size(), 3u);
    EXPECT_EQ(spaceOf(1001), 1u);
}

TEST_F(WindowMoverTest, AdjacentMovesStopAtTheEndsAndPreviousNeedsAPreviousSpace) {
    startWith("osMajorVersion: 14\nosMinorVersion: 4");
    EXPECT_EQ(mover().moveFocusedWindowToPreviousSpace(), MoveResult::failed);
    EXPECT_TRUE(logs->contains("moveFocusedWindowToPreviousSpace: no previousSpaceID recorded yet"));
    EXPECT_EQ(mover().moveFocusedWindowToAdjacentSpace(-1), MoveResult::failed);
    EXPECT_TRUE(logs->contains("moveFocusedWindowToAdjacentSpace: no adjacent user Space to the left"));
    EXPECT_EQ(mover().moveFocusedWindowToAdjacentSpace(1), MoveResult::moved);
    runFor(1500);
    EXPECT_EQ(spaceOf(1001), 2u);
    EXPECT_EQ(world().activeSpace(), 2u);
    EXPECT_EQ(mover().moveFocusedWindowToAdjacentSpace(1), MoveResult::moved);
    runFor(1500);
    EXPECT_EQ(spaceOf(1001), 3u);
    EXPECT_EQ(mover().moveFocusedWindowToAdjacentSpace(1), MoveResult::failed) << "no wrap past the last";
    EXPECT_EQ(mover().moveFocusedWindowToPreviousSpace(), MoveResult::moved);
    runFor(1500);
    EXPECT_EQ(spaceOf(1001), 2u);
    EXPECT_EQ(world().focusedWindow(), 1001u);
}
