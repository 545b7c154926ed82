#include "spaces/ISSManager.h"

#include <fmt/format.h>

#include <cstdlib>

#include "support/Log.h"

namespace zelk::spaces {

using ferrow::Log;

std::string_view methodName(SpaceSwitchMethod method) {
    return method == SpaceSwitchMethod::iss ? "iss" : "symbolicHotkey";
}

bool ISSManager::switchToSpace(int index, const std::optional<std::string>& display) {
    auto info = model_.spaceInfo(display);
    if (!info || info->spaceCount <= 0) {
        Log::error("switchToSpace: no space info (target index={} display={})", index,
                   display && !display->empty() ? *display : "<default>");
        return false;
    }
    if (!display) currentSpaceInfo_ = info;
    std::optional<std::string> identifier;
    if (!info->displayIdentifier.empty()) identifier = info->displayIdentifier;
    std::optional<Point> location;
    if (identifier) location = model_.displayCenter(*identifier);
    if (index < 0 || index >= info->spaceCount) {
        Log::error("switchToSpace: target index={} out of bounds [0..<{})", index, info->spaceCount);
        return false;
    }
    int source = model_.currentIndex(*info);
    if (index == source) {
        Log::debug("switchToSpace: already at index {}; no-op", index);
        return true;
    }
    if (predictActiveSpace) predictActiveSpace(index, identifier.value_or(""));
    OverlayState overlay = model_.overlayState();
    if (overlay == OverlayState::appExpose) {
        Log::info("switchToSpace: App Exposé active, skipping synthetic swipe");
        return false;
    }
    SwipeDirection direction = source < index ? SwipeDirection::right : SwipeDirection::left;
    int steps = std::abs(index - source);
    Log::info("switchToSpace: source={} (live={}) to={} steps={} direction={} display={} loc={} overlay={}",
              source, info->currentIndex, index, steps, direction == SwipeDirection::right ? "right" : "left",
              identifier.value_or("<unknown>"),
              location ? fmt::format("({}, {})", location->x, location->y) : std::string("nil"),
              overlayName(overlay));
    if (!osMajor_) osMajor_ = server_.osMajorVersion();
    bool ok = true;
    if (*osMajor_ > 26) {
        ok = swipe_.postDockSwipe27(direction, steps, location);
    } else if (overlay == OverlayState::missionControl) {
        for (int i = 0; i < steps && ok; ++i)
            ok = swipe_.postDockSwipeOverlay(direction, location);
    } else {
        ok = swipe_.postDockSwipeCompact(direction, steps, location);
    }
    if (!ok) return false;
    if (identifier) model_.predict(*identifier, index, info->spaceCount);
    if (identifier && didSwitchSpace) didSwitchSpace(*identifier);
    return true;
}

void ISSManager::recordExternalSpaceChange(int index, const std::optional<std::string>& display) {
    auto info = model_.spaceInfo(display);
    if (!info || info->displayIdentifier.empty()) return;
    model_.predict(info->displayIdentifier, index, info->spaceCount);
}

}  // namespace zelk::spaces
