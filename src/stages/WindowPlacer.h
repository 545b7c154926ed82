#pragma once
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Accessibility.h"
#include "platform/Screens.h"
#include "platform/Workspace.h"
#include "stages/StageModel.h"
#include "windows/ManagedWindow.h"

// Putting windows where a placement says, through accessibility.
namespace zelk::stages {

// The screens as the placement geometry reads them (frames with the origin at the bottom left of
// the first screen), from the platform's top-left list.
ScreenList screenListFrom(const std::vector<platform::Screen>& screens,
                          const std::optional<platform::Screen>& main);

// Whether a screen name means one of the listed screens by its own rules, rather than through the
// fallback to the main screen.
bool screenNameMatches(std::string_view name, const ScreenList& list);

// The pixel form of a position: "x,y,width,height" relative to the screen's visible frame, numbers
// with an optional sign and fraction, spaces allowed around them. Width and height must be above 0.
std::optional<Rect> parsePixelPosition(std::string_view text);
std::string formatPixelPosition(const Rect& rect);

// A named region's raw value or the pixel form, with the screen and padding given separately.
std::optional<WindowPlacement> placementFromText(std::string_view position,
                                                 const std::optional<std::string>& screen,
                                                 const std::optional<double>& padding);
// "left-half", "left-half on builtin (padding 8)", "100,50,800,600 on 2": for lists and log lines.
std::string describePlacement(const WindowPlacement& placement);

class WindowPlacer {
  public:
    struct Sources {
        platform::Accessibility* ax = nullptr;
        platform::Workspace* workspace = nullptr;
        platform::Screens* screens = nullptr;
        // The tracked windows in list order.
        std::function<std::vector<windows::ManagedWindow>()> windows;
        // The live window an item means now.
        std::function<std::optional<windows::ManagedWindow>(const StageItem&)> resolve;
    };
    explicit WindowPlacer(Sources sources) : s_(std::move(sources)) {}

    // The absolute rectangle a placement means on today's screens; nothing without screens.
    std::optional<Rect> targetRect(const WindowPlacement& placement) const;

    // Moves and sizes one window (native full screen for `fullscreen`). False when the app or its
    // window element is gone, or accessibility refuses.
    bool placeWindow(const windows::ManagedWindow& window, const WindowPlacement& placement);

    // Applies an item's placement to its window: the remembered number while it is tracked, else the
    // resolved window, else (with `knownWindowIDs`) the newest window of the app outside that set.
    std::optional<std::uint32_t> restoreWindowPlacement(
        const StageItem& item, const std::optional<std::set<std::uint32_t>>& knownWindowIDs);

    // The accessibility element of a window of a process; 0 when there is none.
    platform::AXRef windowElementFor(std::int32_t pid, std::uint32_t windowID) const {
        return windowElement(pid, windowID);
    }

  private:
    std::optional<platform::RunningApp> runningApp(const std::string& bundleID) const;
    platform::AXRef windowElement(std::int32_t pid, std::uint32_t windowID) const;
    bool apply(const platform::RunningApp& app, std::uint32_t windowID, const WindowPlacement& placement,
               const Rect& target, const std::string& appName);

    Sources s_;
};

}  // namespace zelk::stages
