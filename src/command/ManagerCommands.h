#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "command/CommandDispatcher.h"

namespace zelk::command {

struct AppTarget {
    std::string name;
    std::string bundleID;
    std::int32_t pid = 0;
};

// What the app, window and Space commands need from the managers that own that state. Each command
// is registered only when every provider it uses is set, so a missing manager still reads
// "not available yet". All of them run on the main thread.
struct ManagerProviders {
    std::function<std::vector<ZelkAppInfo>()> listApps;
    std::function<std::vector<ZelkWindowInfo>(const std::optional<std::string>& appQuery)> listWindows;
    std::function<std::vector<ZelkSpaceInfo>()> listSpaces;

    // The running apps a request names, best first: by `bundleID` when given, else from `query`.
    std::function<std::vector<AppTarget>(const ZelkRequest&)> findApps;
    std::function<bool(const AppTarget&)> focusApp;
    std::function<int(const AppTarget&)> hideOtherApps;  // how many it hid
    std::function<bool(const AppTarget&)> hideApp, unhideApp, quitApp;

    // The windows a request names, best first: `windowID` exactly, else `query` and `bundleID`.
    std::function<std::vector<std::uint32_t>(const ZelkRequest&)> findWindows;
    std::function<bool(std::uint32_t)> focusWindow, minimizeWindow, unminimizeWindow;
    std::function<void()> focusLastWindow, minimizeFocused;
    std::function<bool()> minimizeOthers;  // false when there is no frontmost app

    // 1-based index, or 0 for the previous Space; answers the index it switches to, 0 when there is
    // no such Space.
    std::function<std::int64_t(std::int64_t index)> switchSpace;
    // Called with an index already checked to be 1-9; answers the whole reply.
    std::function<ZelkResponse(const ZelkRequest&, std::int64_t index)> moveWindowToSpace;
};

void registerManagerCommands(CommandDispatcher& dispatcher, const ManagerProviders& providers);

}  // namespace zelk::command
