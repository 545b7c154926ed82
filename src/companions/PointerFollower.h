#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Geometry.h"
#include "support/MainQueue.h"
#include "windows/ManagedWindow.h"

namespace zelk::companions {

// Moves the pointer to the middle of whatever was just focused, when `moveCursorToFocusedApp` is on.
// Focus and Space code tell it each new target; only the last of a burst within the warp delay counts,
// and a pressed mouse button or a recent mouse-initiated focus keeps the pointer where it is.
class PointerFollower {
  public:
    static constexpr ferrow::Nanos kWarpDelay = 150 * ferrow::kNanosPerMs;
    // How long a focus made with the mouse keeps every warp away.
    static constexpr ferrow::Nanos kMouseFocusQuiet = 1500 * ferrow::kNanosPerMs;

    struct WindowTarget {
        std::uint32_t windowID = 0;
        bool operator==(const WindowTarget&) const = default;
    };
    struct AppTarget {
        std::int32_t pid = 0;
        bool operator==(const AppTarget&) const = default;
    };
    struct DisplayTarget {
        std::uint32_t displayID = 0;
        bool operator==(const DisplayTarget&) const = default;
    };
    using Target = std::variant<WindowTarget, AppTarget, DisplayTarget>;

    // What window tracking knows; empty functions mean nothing is tracked.
    struct WindowSource {
        std::function<std::vector<windows::ManagedWindow>()> trackedWindows;
        std::function<std::optional<windows::ManagedWindow>()> focusedWindow;
    };

    static PointerFollower& shared();
    static void reset();

    void setWindowSource(WindowSource source) { source_ = std::move(source); }

    void follow(const Target& target);
    // A focus made with the mouse: no warp for the next 1.5 s.
    void noteMouseInitiatedFocus();

    std::optional<ferrow::Nanos> skipNextWarpUntil;
    const std::optional<Target>& latestTarget() const { return latestTarget_; }
    bool warpPending() const { return pendingWarp_.isPending(); }

  private:
    void warp();
    void clear();
    std::optional<Point> resolve(const Target& target);
    std::optional<Point> windowPoint(std::uint32_t windowID);
    std::optional<Point> appPoint(std::int32_t pid);
    std::optional<Point> displayPoint(std::uint32_t displayID);
    std::optional<Point> displayUnderPointer();
    std::vector<windows::ManagedWindow> trackedWindows() const;

    WindowSource source_;
    std::optional<Target> latestTarget_;
    ferrow::WorkItem pendingWarp_;
    // Lets a queued warp see that its follower is gone (reset between tests).
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// "window#12", "app pid=101", "display#2" for log lines.
std::string describe(const PointerFollower::Target& target);

}  // namespace zelk::companions
