#pragma once
#include <cstdint>
#include <optional>

#include "platform/Accessibility.h"

namespace zelk::windows {

// Minimises and restores single windows through their accessibility elements. A window on another
// Space has no element, so it can't be minimised from here; the answer is then false.
class WindowMinimizer {
  public:
    explicit WindowMinimizer(platform::Accessibility& ax) : ax_(ax) {}

    bool setMinimized(std::int32_t pid, std::uint32_t windowID, bool minimized);
    // The app's focused window, minimised; false when it has none.
    bool minimizeFocusedWindow(std::int32_t pid);
    // Every other standard window of the app; answers how many were minimised.
    int minimizeOthers(std::int32_t pid, std::uint32_t keptWindowID);

  private:
    std::optional<platform::AXRef> element(std::int32_t pid, std::uint32_t windowID);

    platform::Accessibility& ax_;
};

}  // namespace zelk::windows
