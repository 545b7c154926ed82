#pragma once
#include <functional>
#include <optional>
#include <string>

#include "spaces/DockSwipe.h"
#include "spaces/SpaceModel.h"

namespace zelk::spaces {

enum class SpaceSwitchMethod { symbolicHotkey, iss };

// Switches Spaces at once by posting finished dock swipes; several jumps in a row count from where the
// previous one is going. One per run, owned by the agent.
class ISSManager {
  public:
    ISSManager(platform::WindowServer& server, platform::Screens* screens, platform::Pointer* pointer)
        : server_(server), model_(server, screens, pointer), swipe_(server) {}

    // `index` is 0-based among the display's Spaces; no display: the one under the pointer. True when
    // the events went out (or the target is already current); nothing verifies the landing.
    bool switchToSpace(int index, const std::optional<std::string>& display = std::nullopt);
    // A switch made another way (a window move, the system's keys): later jumps count from there.
    void recordExternalSpaceChange(int index, const std::optional<std::string>& display = std::nullopt);

    std::optional<SpaceInfo> spaceInfo(const std::optional<std::string>& display) {
        return model_.spaceInfo(display);
    }
    int currentIndex(const SpaceInfo& info) { return model_.currentIndex(info); }
    OverlayState overlayState() { return model_.overlayState(); }
    const std::optional<SpaceInfo>& currentSpaceInfo() const { return currentSpaceInfo_; }
    SpaceModel& model() { return model_; }
    DockSwipe& swipe() { return swipe_; }

    // The Spaces indicator hears the target just before a switch.
    std::function<void(int index, const std::string& display)> predictActiveSpace;
    // A switch went out on this display (its identifier); the pointer follower hears it.
    std::function<void(const std::string& display)> didSwitchSpace;

  private:
    platform::WindowServer& server_;
    SpaceModel model_;
    DockSwipe swipe_;
    std::optional<SpaceInfo> currentSpaceInfo_;
    std::optional<int> osMajor_;
};

std::string_view methodName(SpaceSwitchMethod method);

}  // namespace zelk::spaces
