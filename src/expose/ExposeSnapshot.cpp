#include "expose/ExposeSnapshot.h"

#include <algorithm>

namespace zelk::expose {

bool includes(const ExposeFilter& include, const ExposeWindow& w) {
    if (w.isMinimized && !include.contains(ExposeFilter::minimized)) return false;
    if (w.appHidden && !include.contains(ExposeFilter::hidden)) return false;
    if (w.isFullscreen && !include.contains(ExposeFilter::fullscreen)) return false;
    return true;
}

namespace {

ExposeWindow exposeWindow(const SourceWindow& s, const SnapshotInput& in) {
    ExposeWindow w;
    w.id = s.id;
    w.title = s.title;
    w.appName = s.appName;
    w.bundleID = s.bundleID;
    w.pid = s.pid;
    w.bounds = s.bounds.value_or(Rect{});
    w.isMinimized = s.isMinimized;
    w.appHidden = in.hiddenPids.count(s.pid) > 0;
    w.spaceID = s.spaceID ? s.spaceID : in.activeSpace;
    w.isFullscreen = w.spaceID && in.fullscreenSpaces.count(*w.spaceID) > 0;
    w.isFocused = in.focusedWindowID && *in.focusedWindowID == s.id;
    return w;
}

std::string groupID(const ExposeWindow& w) {
    return w.bundleID.empty() ? "pid:" + std::to_string(w.pid) : w.bundleID;
}

}  // namespace

Snapshot takeSnapshot(const SnapshotInput& in) {
    Snapshot out;
    std::map<std::uint64_t, int> numberBySpace;
    std::map<std::string, std::size_t> groupIndex;
    for (const auto& source : in.windows) {
        ExposeWindow w = exposeWindow(source, in);
        if (!includes(in.include, w)) continue;
        w.number = ++numberBySpace[w.spaceID.value_or(0)];
        const std::string gid = groupID(w);
        auto [it, fresh] = groupIndex.try_emplace(gid, out.groups.size());
        if (fresh) {
            ExposeGroup g;
            g.id = gid;
            g.appName = w.appName;
            g.bundleID = w.bundleID;
            g.pid = w.pid;
            g.appHidden = w.appHidden;
            if (auto letter = in.letterFor && !w.bundleID.empty() ? in.letterFor(w.bundleID) : std::nullopt) {
                g.letter = letter->letter;
                g.letterIsDerived = letter->derived;
            }
            out.groups.push_back(std::move(g));
        }
        ExposeGroup& g = out.groups[it->second];
        w.letterKey = g.letter;
        g.windows.push_back(w);
        out.flatWindows.push_back(std::move(w));
    }
    return out;
}

std::vector<ExposeSpaceInfo> readSpaces(const std::vector<platform::DisplaySpaces>& displays,
                                        const std::vector<platform::Screen>& screens) {
    std::vector<ExposeSpaceInfo> out;
    for (std::size_t d = 0; d < displays.size(); ++d) {
        const auto& display = displays[d];
        std::string name;
        for (const auto& s : screens)
            if (s.uuid == display.displayIdentifier) name = s.name;
        int userIndex = 0;
        for (const auto& entry : display.spaces) {
            ExposeSpaceInfo info;
            info.id = entry.id64;
            info.isFullscreen = entry.type != 0;
            info.userIndex = info.isFullscreen ? 0 : ++userIndex;
            info.displayUUID = display.displayIdentifier;
            info.displayName = name;
            info.displayIndex = static_cast<int>(d);
            info.isActive = entry.id64 == display.currentSpace.id64;
            out.push_back(std::move(info));
        }
    }
    return out;
}

}  // namespace zelk::expose
