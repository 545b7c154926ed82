#pragma once
#include <map>
#include <optional>
#include <string>

#include "platform/Screens.h"
#include "platform/WindowServer.h"
#include "support/Clock.h"

namespace zelk::spaces {

// The Spaces of one display.
struct SpaceInfo {
    int currentIndex = 0;
    int spaceCount = 0;
    std::uint64_t currentSpaceID = 0;
    int currentSpaceType = 0;
    std::string displayIdentifier;
    bool operator==(const SpaceInfo&) const = default;
};

struct PredictedSpace {
    int index = 0;
    int spaceCount = 0;
    ferrow::Nanos updatedAt = 0;
};

enum class OverlayState { none = 0, missionControl = 1, appExpose = 2 };

// What the window server says about the Spaces of each display, with a short-lived prediction of where
// the last switch is going, so that a second jump counts from where the first will end.
class SpaceModel {
  public:
    static constexpr ferrow::Nanos kPredictionTTL = 800 * ferrow::kNanosPerMs;

    SpaceModel(platform::WindowServer& server, platform::Screens* screens, platform::Pointer* pointer)
        : server_(server), screens_(screens), pointer_(pointer) {}

    // No display: the one under the pointer; an empty identifier: the one with the active menu bar.
    std::optional<SpaceInfo> spaceInfo(const std::optional<std::string>& display);
    int currentIndex(const SpaceInfo& info);
    void predict(const std::string& display, int index, int spaceCount);
    OverlayState overlayState();
    std::optional<Point> displayCenter(const std::string& identifier);
    // The display whose Spaces hold a Space, and that Space's position among them.
    std::optional<std::pair<std::string, int>> locate(std::uint64_t space);
    std::optional<std::string> displayUnderPointer();

  private:
    platform::WindowServer& server_;
    platform::Screens* screens_;
    platform::Pointer* pointer_;
    std::map<std::string, PredictedSpace> predictions_;
};

std::string_view overlayName(OverlayState state);

}  // namespace zelk::spaces
