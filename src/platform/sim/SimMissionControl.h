#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/MouseEvents.h"
#include "platform/sim/SimAccessibility.h"
#include "platform/sim/SimWindowServer.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

// What the simulated system does with the mouse and the Mission Control overlay: a title bar held
// down carries its window along when the Space switches; while the overlay shows, the Dock's
// accessibility tree lists the window thumbnails, the Spaces bar's buttons and its "+" button, and
// drags and clicks on them move windows, switch or add Spaces. The symbolic hot keys "Switch to
// Desktop n" switch Space when posted. Every step goes into a call log that tests read.
class SimMissionControl final : public platform::MouseEvents, public SimElementTree {
  public:
    // What a world can take away, to test the failures.
    struct Options {
        bool spacesBar = true;   // the Spaces bar is in the tree
        bool addButton = true;   // the "+" button shows when the pointer is near the top right
        bool thumbnails = true;  // window thumbnails are in the tree
    };
    static constexpr double kTitleBarHeight = 28;

    SimMissionControl(SimWorld& world, SimWindowServer& server, SimAccessibility& ax);
    ~SimMissionControl() override;

    bool post(platform::MouseEventKind kind, Point at) override;

    std::int32_t ownerPid() const override { return SimWorld::kDockPID; }
    std::vector<std::uint32_t> roots() override;
    std::optional<platform::AXValue> attribute(std::uint32_t node, const std::string& attr) override;
    bool press(std::uint32_t node) override;

    // "leftMouseDown (x, y)", "switch display=1 space=3", "overlay missionControl", "add space=7", ...
    const std::vector<std::string>& calls() const { return calls_; }
    // The position of a call starting with `prefix` from `from` on; npos when none.
    std::size_t find(const std::string& prefix, std::size_t from = 0) const;
    std::uint32_t heldWindow() const { return held_; }
    Options options;

    // Frames in the overlay, on the active display.
    std::vector<Rect> buttonFrames() const;
    std::optional<Rect> addButtonFrame() const;
    std::vector<std::pair<std::uint32_t, Rect>> thumbnails() const;

  private:
    enum Node : std::uint32_t {
        root = 1,
        spacesBarGroup = 2,
        spacesBarList = 3,
        windowsGroup = 4,
        dockList = 5,
        addButton = 99,
        firstButton = 100,
        thumbnailBit = 0x80000000u,
        dockItemBit = 0x40000000u,
    };
    bool overlayShown() const { return world_.overlay() == Overlay::missionControl; }
    std::optional<std::uint32_t> hit(Point at) const;
    std::uint32_t titleBarAt(Point at) const;
    void onChange(const WorldChange& change);
    bool onHotKey(std::uint16_t keyCode, std::uint64_t flags, bool down);
    void note(std::string call) { calls_.push_back(std::move(call)); }

    SimWorld& world_;
    SimWindowServer& server_;
    SimAccessibility& ax_;
    std::vector<std::string> calls_;
    std::uint32_t held_ = 0;     // a window held by its title bar
    std::uint32_t pressed_ = 0;  // an overlay node the button went down on
    ferrow::Subscription subscription_;
};

}  // namespace zelk::sim
