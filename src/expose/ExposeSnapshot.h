#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/ExposeFilter.h"
#include "expose/ExposeModel.h"
#include "platform/Screens.h"
#include "platform/WindowServer.h"

// What the overview shows, gathered once per opening: the windows allowed by the include filter with
// their per-Space numbers, grouped by application with each app's letter, and the Spaces of every
// display. Pure: the controller hands in what window tracking and the window server said.
namespace zelk::expose {

// A window as window tracking knows it, with its frame from the window server.
struct SourceWindow {
    std::uint32_t id = 0;
    std::string title;
    std::string appName;
    std::string bundleID;
    std::int32_t pid = 0;
    std::optional<Rect> bounds;
    bool isMinimized = false;
    std::optional<std::uint64_t> spaceID;  // nothing: the active Space
};

struct AppLetter {
    std::string letter;
    bool derived = false;  // a letter the app earned by use rather than one the user set
};

struct SnapshotInput {
    std::vector<SourceWindow> windows;  // in window tracking's order
    std::set<std::int32_t> hiddenPids;
    std::set<std::uint64_t> fullscreenSpaces;
    std::optional<std::uint64_t> activeSpace;  // where a window without a Space stands
    std::optional<std::uint32_t> focusedWindowID;
    ExposeFilter include{0x7};
    std::function<std::optional<AppLetter>(const std::string& bundleID)> letterFor;
};

struct Snapshot {
    std::vector<ExposeWindow> flatWindows;  // allowed windows, in input order
    std::vector<ExposeGroup> groups;        // by first appearance
};

// Windows the include filter keeps: minimized ones, those of hidden apps and those on full-screen
// Spaces only when their flag is set.
bool includes(const ExposeFilter& include, const ExposeWindow& window);
Snapshot takeSnapshot(const SnapshotInput& input);

// Every display's Spaces in the window server's order, user Spaces numbered per display from 1.
std::vector<ExposeSpaceInfo> readSpaces(const std::vector<platform::DisplaySpaces>& displays,
                                        const std::vector<platform::Screen>& screens);

}  // namespace zelk::expose
