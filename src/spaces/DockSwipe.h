#pragma once
#include <optional>

#include "platform/WindowServer.h"

namespace zelk::spaces {

enum class SwipeDirection { left = 0, right = 1 };

// Synthetic dock-swipe gestures, as if the user had swiped hard enough to finish: three forms by
// operating system and overlay.
class DockSwipe {
  public:
    explicit DockSwipe(platform::WindowServer& server) : server_(server) {}

    // Operating system 26 or below: one event re-posted as began then ended, once per step.
    bool postDockSwipeCompact(SwipeDirection direction, int steps, std::optional<Point> location);
    // One step while Mission Control shows.
    bool postDockSwipeOverlay(SwipeDirection direction, std::optional<Point> location);
    // Above 26: serialised pairs carrying a gesture record, 20 ms apart.
    bool postDockSwipe27(SwipeDirection direction, int steps, std::optional<Point> location);
    // The event with a fresh gesture record in its binary form; nullopt when the round trip fails.
    std::optional<platform::GestureEvent> serializeGestureEvent(const platform::GestureEvent& event);

  private:
    bool post(platform::GestureEvent event, std::optional<Point> location);
    platform::WindowServer& server_;
};

}  // namespace zelk::spaces
