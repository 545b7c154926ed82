#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "spaces/MissionControlDriver.h"
#include "spaces/SpaceNumbering.h"
#include "support/Task.h"

namespace zelk::windows {
class WindowManager;
}

namespace zelk::spaces {

// The windows of the active stage, as the stages resolve them (off-Space ones included).
struct ActiveStageWindows {
    std::string name;
    std::vector<std::uint32_t> windowIDs;
};

enum class MoveResult {
    moved,         // moved, or a drag that moves it is under way
    alreadyThere,  // the window is on the target Space
    noWindow,      // no focused window
    failed,        // no means could move it; it stays where it was
};

// Moves windows between Spaces down a ladder of means, fastest first: the window server's direct
// move (refused for other processes' windows on recent releases), its bridged operation, then
// holding the window by its title bar while the Space switches, and Mission Control for new Spaces
// and batches. After a move the app comes front on the target Space, the window list is stamped
// and focus follows to the Space and is held on the window. Digits count the user Spaces of every
// display in display order.
class WindowMover {
  public:
    static constexpr int kActivateWaitMs = 200;
    static constexpr int kInitialDragMs = 10;
    static constexpr int kStepWaitMs = 100;

    WindowMover(windows::WindowManager& windows, const platform::Platform& platform);
    ~WindowMover();

    MoveResult moveFocusedWindowToSpace(int digit);
    MoveResult moveFocusedWindow(std::uint64_t toSpace);
    MoveResult moveFocusedWindowToAdjacentSpace(int direction);  // -1 left, 1 right
    MoveResult moveFocusedWindowToPreviousSpace();
    MoveResult moveActiveStageWindowsToSpace(int digit);
    // `wid` not 0 and `digit` 1 to 9; any other digit does nothing.
    MoveResult moveWindow(std::uint32_t wid, const std::string& title, int digit);

    bool teleportWindow(std::uint32_t wid, platform::AXRef window, const NumberedSpace& target);
    void stampWindowsMovedToSpace(const std::vector<std::uint32_t>& ids, std::uint64_t space);
    void followToSpace(std::uint64_t space);

    // A drag route is under way (one at a time).
    bool dragInFlight() const { return *dragging_; }
    MissionControlDriver& missionControl() { return mc_; }

    // The active stage's windows; none until stages say otherwise.
    std::function<std::optional<ActiveStageWindows>()> activeStageWindows = [] {
        return std::optional<ActiveStageWindows>();
    };
    // Told at each exit of a move (the Spaces indicator refreshes).
    std::function<void()> movesChanged;

  private:
    struct Focused {
        std::uint32_t wid = 0;
        platform::AXRef element = 0;
        std::int32_t pid = 0;
        std::string title;
        std::uint64_t space = 0;
    };
    std::optional<Focused> focusedWindow(const char* op);
    std::vector<NumberedSpace> numbered();
    std::uint64_t windowSpace(std::uint32_t wid);
    std::optional<std::string> displayOfSpace(std::uint64_t space);
    std::optional<std::int32_t> ownerPid(std::uint32_t wid);
    std::optional<platform::AXRef> resolveWindow(std::uint32_t wid);
    std::optional<Rect> axFrame(platform::AXRef window);
    MoveResult crossDisplay(const Focused& f, const NumberedSpace& target, const char* op);
    void afterMove(const std::vector<std::uint32_t>& ids, std::int32_t pid, std::uint64_t target);
    void holdFocus(std::uint32_t wid, std::uint64_t target);
    bool postSymbolicHotKey(int number, const char* prefix, bool* unavailable);
    bool switchTo(const NumberedSpace& target, const char* prefix);
    bool startDrag(ferrow::Task<void> task);
    std::string boolText(bool b) const { return b ? "true" : "false"; }
    void done();

    ferrow::Task<void> titleBarDragTask(std::uint32_t wid, platform::AXRef window, NumberedSpace target);
    ferrow::Task<bool> titleBarDrag(std::uint32_t wid, platform::AXRef window, NumberedSpace target);
    ferrow::Task<void> createSpaceAndMove(std::vector<std::uint32_t> windows);
    ferrow::Task<void> createThenDirectMove(std::uint32_t wid);
    ferrow::Task<void> createAndMoveViaMissionControl(std::vector<MissionControlDragSpec> specs);
    ferrow::Task<void> missionControlBatch(std::vector<MissionControlDragSpec> specs, NumberedSpace target);
    ferrow::Task<void> symbolicBatch(std::vector<std::pair<std::uint32_t, platform::AXRef>> windows,
                                     NumberedSpace source, NumberedSpace target);

    windows::WindowManager& windows_;
    platform::Platform platform_;
    MissionControlDriver mc_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::shared_ptr<bool> dragging_ = std::make_shared<bool>(false);
};

}  // namespace zelk::spaces
