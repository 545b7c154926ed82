#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace zelk::platform {

struct Screen {
    std::uint32_t displayID = 0;
    std::string name;   // localised name, e.g. "Built-in Retina Display"
    std::string uuid;   // the display identifier the Space model uses
    Rect frame;         // global top-left coordinates
    Rect visibleFrame;  // less the menu bar and Dock
    double backingScale = 2;
    bool isBuiltin = false;
    bool operator==(const Screen&) const = default;
};

// Displays: `screens()` lists them with the first screen (origin, menu bar) first; `mainScreen()` is
// the one with the key window, which need not be the first.
class Screens {
  public:
    virtual ~Screens() = default;
    virtual std::vector<Screen> screens() = 0;
    virtual std::optional<Screen> mainScreen() = 0;
};

class Pointer {
  public:
    virtual ~Pointer() = default;
    virtual Point location() = 0;
    virtual void warp(Point to) = 0;
    virtual std::uint32_t pressedButtons() = 0;
    // A global monitor of left and right mouse downs outside this program's windows; one at a time,
    // an empty callback removes it. False where the platform has none.
    virtual bool setMouseDownMonitor(std::function<void(Point at)> callback) {
        (void)callback;
        return false;
    }
};

}  // namespace zelk::platform
