#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Accessibility.h"
#include "platform/MouseEvents.h"
#include "platform/Screens.h"
#include "platform/WindowServer.h"
#include "platform/Workspace.h"
#include "support/Task.h"

namespace zelk::spaces {

struct MissionControlDragSpec {
    std::string title;
    std::optional<std::uint32_t> windowID;
    std::string bundleID;  // tells apart thumbnails whose identifier names the app only
};

// Drives the system's Mission Control overlay where nothing else can move a window or add a Space:
// opens it with the Dock toggle, finds window thumbnails and the Spaces bar in the Dock's
// accessibility tree, drags with synthetic mouse events or presses "+", and always closes the overlay
// when a step fails. One drive at a time; the caller holds the task.
class MissionControlDriver {
  public:
    static constexpr int kOpenWaitMs = 700;
    static constexpr int kRevealWaitMs = 300;
    static constexpr int kAfterAddWaitMs = 350;
    static constexpr int kDragStepMs = 50;
    static constexpr int kDragSteps = 6;
    static constexpr int kHoverMs = 250;
    static constexpr double kDropHeight = 0.55;

    struct Environment {
        platform::Accessibility* ax = nullptr;
        platform::WindowServer* server = nullptr;
        platform::Workspace* workspace = nullptr;
        platform::MouseEvents* mouse = nullptr;
        platform::Screens* screens = nullptr;
        std::function<bool()> overlayShown;
        // The active display's frame, where the overlay draws.
        std::function<std::optional<Rect>()> activeDisplayFrame;
    };

    explicit MissionControlDriver(Environment env) : env_(std::move(env)) {}
    ~MissionControlDriver() { *alive_ = false; }

    // Drags each window onto the Space at `targetIndex` (0-based among the bar's buttons); with
    // `follow` ends on that Space. False when nothing was dropped or the bar had no such button.
    ferrow::Task<bool> missionControlDrag(std::vector<MissionControlDragSpec> specs, int targetIndex,
                                          bool follow);
    // Adds a Space with "+"; true when the display's Space count grew.
    ferrow::Task<bool> createNewSpaceViaMissionControl();
    // Adds a Space and drags the windows onto it.
    ferrow::Task<bool> createAndMoveViaMissionControl(std::vector<MissionControlDragSpec> specs);

    // The tree's owner's root element (the Dock, or the window manager process on some systems).
    std::optional<platform::AXRef> overlayRoot();
    std::vector<Rect> spacesBarButtonFrames(platform::AXRef root);
    std::optional<Rect> findMissionControlThumbnail(platform::AXRef root, const MissionControlDragSpec& spec);
    std::optional<Rect> addButtonFrame(platform::AXRef root);

  private:
    ferrow::Task<bool> open();
    // Presses "+" in the open overlay and leaves it open; true when a Space was added.
    ferrow::Task<bool> addSpace();
    void close();
    // Mouse down at `from`, interpolated moves, a pause over `to`, mouse up.
    ferrow::Task<bool> drag(Point from, Point to);
    ferrow::Task<bool> click(Point at);
    ferrow::Task<bool> dragSpecs(platform::AXRef root, const std::vector<MissionControlDragSpec>& specs,
                                 int targetIndex, bool follow, const char* prefix);
    void dumpTree(platform::AXRef root, const std::string& linePrefix);
    std::optional<std::string> text(platform::AXRef e, const char* attribute);
    std::optional<Rect> frame(platform::AXRef e);
    std::vector<platform::AXRef> children(platform::AXRef e);
    bool post(platform::MouseEventKind kind, Point at);

    Environment env_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::spaces
