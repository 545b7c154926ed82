#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/x11/X11Connection.h"

namespace zelk::x11 {

// One difference between two reads of the desktop, in the terms the platform notifications use.
struct Change {
    enum class Kind {
        windowCreated,
        windowDestroyed,
        titleChanged,
        frameChanged,
        minimized,
        restored,
        focusedWindowChanged,  // the active client changed within or across apps
        appLaunched,
        appTerminated,
        appActivated,    // pid is the new front app, previousPid the one before
        desktopChanged,  // the current desktop
    };
    Kind kind;
    std::int32_t pid = 0;
    std::uint32_t window = 0;
    std::int32_t previousPid = 0;
    bool operator==(const Change&) const = default;
};

// What changed from `before` to `after`, windows first, then apps, focus and the desktop.
std::vector<Change> diffSnapshots(const Snapshot& before, const Snapshot& after);

}  // namespace zelk::x11
