#include "spaces/SpaceModel.h"

#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::spaces {

std::string_view overlayName(OverlayState state) {
    switch (state) {
        case OverlayState::missionControl:
            return "missionControl";
        case OverlayState::appExpose:
            return "appExpose";
        case OverlayState::none:
            break;
    }
    return "none";
}

std::optional<std::string> SpaceModel::displayUnderPointer() {
    if (!screens_ || !pointer_) return std::nullopt;
    Point p = pointer_->location();
    for (auto& s : screens_->screens())
        if (s.frame.contains(p)) return s.uuid;
    return std::nullopt;
}

std::optional<SpaceInfo> SpaceModel::spaceInfo(const std::optional<std::string>& display) {
    std::optional<std::string> wanted;
    if (!display)
        wanted = displayUnderPointer();
    else if (display->empty())
        wanted = server_.activeMenuBarDisplayIdentifier();
    else
        wanted = display;
    if (server_.mainConnectionID() == 0) return std::nullopt;
    auto displays = server_.managedDisplaySpaces();
    if (!displays || displays->empty()) return std::nullopt;
    const platform::DisplaySpaces* entry = &displays->front();
    if (wanted)
        for (auto& d : *displays)
            if (d.displayIdentifier == *wanted) {
                entry = &d;
                break;
            }
    SpaceInfo info;
    info.currentSpaceID = entry->currentSpace.id64;
    info.currentSpaceType = entry->currentSpace.type;
    info.spaceCount = static_cast<int>(entry->spaces.size());
    info.displayIdentifier = entry->displayIdentifier;
    for (std::size_t i = 0; i < entry->spaces.size(); ++i)
        if (entry->spaces[i].id64 == info.currentSpaceID) {
            info.currentIndex = static_cast<int>(i);
            return info;
        }
    return std::nullopt;
}

int SpaceModel::currentIndex(const SpaceInfo& info) {
    if (info.displayIdentifier.empty()) return info.currentIndex;
    auto it = predictions_.find(info.displayIdentifier);
    if (it == predictions_.end()) return info.currentIndex;
    const PredictedSpace& p = it->second;
    if (ferrow::now() - p.updatedAt <= kPredictionTTL && p.spaceCount == info.spaceCount &&
        p.index != info.currentIndex && p.index >= 0 && p.index < info.spaceCount)
        return p.index;
    predictions_.erase(it);
    return info.currentIndex;
}

void SpaceModel::predict(const std::string& display, int index, int spaceCount) {
    predictions_[display] = PredictedSpace{index, spaceCount, ferrow::now()};
}

OverlayState SpaceModel::overlayState() {
    int a = 0, b = 0;
    for (auto& row : server_.windowList(platform::windowlist::onScreenOnly, 0)) {
        if (row.ownerName != "Dock") continue;
        if (row.layer == 20) ++a;
        if (row.layer == 18) ++b;
    }
    if (b == 0) return OverlayState::none;
    if (b < a) return OverlayState::missionControl;
    return a > 0 ? OverlayState::appExpose : OverlayState::none;
}

std::optional<Point> SpaceModel::displayCenter(const std::string& identifier) {
    if (screens_)
        for (auto& s : screens_->screens())
            if (s.uuid == identifier) return s.frame.center();
    ferrow::Log::error("displayCenter: cannot resolve CGDirectDisplayID for {}", identifier);
    return std::nullopt;
}

std::optional<std::pair<std::string, int>> SpaceModel::locate(std::uint64_t space) {
    auto displays = server_.managedDisplaySpaces();
    if (!displays) return std::nullopt;
    for (auto& d : *displays)
        for (std::size_t i = 0; i < d.spaces.size(); ++i)
            if (d.spaces[i].id64 == space) return std::make_pair(d.displayIdentifier, static_cast<int>(i));
    return std::nullopt;
}

}  // namespace zelk::spaces
