#pragma once
#include <cstdint>
#include <functional>

#include "platform/Geometry.h"

namespace zelk::platform {

// What the mouse and the trackpad send to this program's own full-screen panels while they are up.
enum class PanelEventKind { mouseDown, mouseDragged, mouseUp, mouseMoved, scroll };

// The phases of a trackpad scroll, with the values the system gives them.
enum class PanelScrollPhase : std::uint8_t { began = 1, changed = 4, ended = 8, cancelled = 16 };

struct PanelEvent {
    PanelEventKind kind = PanelEventKind::mouseMoved;
    Point at;  // global top-left coordinates
    // Scroll only: the deltas in points, the phase, and whether the device's direction is inverted.
    double deltaX = 0, deltaY = 0;
    PanelScrollPhase phase = PanelScrollPhase::changed;
    bool invertedFromDevice = false;
};

// Implemented by a platform's pointer when its panels can take the mouse: found from the installed
// `Pointer` (a cast), so platforms without it need no change.
class PanelEventSource {
  public:
    virtual ~PanelEventSource() = default;
    // One receiver at a time; an empty callback removes it.
    virtual void setPanelEventHandler(std::function<void(const PanelEvent&)> callback) = 0;
};

}  // namespace zelk::platform
