#pragma once
#include <string_view>

#include "platform/Geometry.h"

namespace zelk::platform {

enum class MouseEventKind { leftMouseDown, leftMouseDragged, leftMouseUp, mouseMoved };

inline std::string_view mouseEventName(MouseEventKind kind) {
    switch (kind) {
        case MouseEventKind::leftMouseDown:
            return "leftMouseDown";
        case MouseEventKind::leftMouseDragged:
            return "leftMouseDragged";
        case MouseEventKind::leftMouseUp:
            return "leftMouseUp";
        case MouseEventKind::mouseMoved:
            return "mouseMoved";
    }
    return "mouse";
}

// Synthetic mouse events posted to the session tap, as the user's mouse would send them. The pointer
// goes where the event is. False when the event couldn't be created.
class MouseEvents {
  public:
    virtual ~MouseEvents() = default;
    virtual bool post(MouseEventKind kind, Point at) = 0;
};

}  // namespace zelk::platform
