#pragma once
#include <functional>
#include <vector>

#include "platform/Platform.h"

namespace zelk::windows {

// What the window code takes from outside its folder, in one place so that each source can be swapped:
// the running apps come from the workspace until the application manager takes over, and "a trigger is
// held" comes from the input side.
struct WindowEnvironment {
    platform::Accessibility* accessibility = nullptr;
    platform::WindowServer* windowServer = nullptr;
    platform::Workspace* workspace = nullptr;
    platform::Screens* screens = nullptr;

    // The running apps whose windows are tracked, in enumeration order.
    std::function<std::vector<platform::RunningApp>()> trackedRunningApps;
    // An app seen only through its windows is adopted when this holds (user-facing, regular, valid binary).
    std::function<bool(const platform::RunningApp&)> adoptable;
    // True while the user holds a trigger: most-recent changes wait for its end.
    std::function<bool()> triggerHeld;
    // Bundles the running-apps watch has set aside for launching and quitting in a loop: their
    // launches and quits make no work here.
    std::function<bool(const std::string& bundleID)> isProblematic;

    // The installed platform, with the workspace as the source of running apps and no trigger held.
    static WindowEnvironment fromPlatform(const platform::Platform& platform);
    // Fills empty sources with the workspace defaults.
    void fillDefaults();
};

}  // namespace zelk::windows
