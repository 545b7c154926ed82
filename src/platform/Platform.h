#pragma once
#include <memory>
#include <string>

#include "platform/Accessibility.h"
#include "platform/EventTap.h"
#include "platform/MouseEvents.h"
#include "platform/Notifications.h"
#include "platform/Processes.h"
#include "platform/Screens.h"
#include "platform/SettingsStore.h"
#include "platform/WindowServer.h"
#include "platform/Workspace.h"

namespace zelk::platform {

// Everything the logic may ask of the machine, behind one installable set of interfaces.
struct Platform {
    std::string name;  // "simulated desktop", ...
    Accessibility* accessibility = nullptr;
    WindowServer* windowServer = nullptr;
    Workspace* workspace = nullptr;
    EventTap* eventTap = nullptr;
    Screens* screens = nullptr;
    Pointer* pointer = nullptr;
    Notifications* notifications = nullptr;
    SettingsStore* settings = nullptr;
    Processes* processes = nullptr;
    MouseEvents* mouse = nullptr;  // none: drags that need the mouse fail

    // The installed platform; reset between tests.
    static Platform& current();
    static void install(const Platform& platform);
    static void reset();
    static bool installed();
};

}  // namespace zelk::platform
