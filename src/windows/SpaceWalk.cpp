#include "windows/SpaceWalk.h"

#include <fmt/format.h>

#include <set>

#include "support/Format.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::windows {

using ferrow::Log;

namespace {
std::string joinIDs(const std::vector<platform::SpaceEntry>& spaces) {
    std::vector<std::uint64_t> ids;
    for (auto& s : spaces)
        ids.push_back(s.id64);
    return fmt::format("[{}]", fmt::join(ids, ","));
}
std::string boundsText(const std::optional<Rect>& r) {
    if (!r) return "<no-bounds>";
    return fmt::format("({},{},{},{})", r->x, r->y, r->width, r->height);
}
}  // namespace

std::vector<CrossSpaceWindow> SpaceWalk::allWindowsAcrossSpaces(
    bool includeAll, const std::map<std::uint32_t, platform::WindowInfo>& known) {
    if (server_.mainConnectionID() == 0) {
        Log::error("allWindowsAcrossSpaces: SLSMainConnectionID returned 0");
        return {};
    }
    std::uint64_t active = server_.activeSpace();
    ferrow::Nanos now = ferrow::now();
    if (cache_ && cache_->key == includeAll && cache_->activeSpace == active &&
        now - cache_->time < kCacheLife)
        return cache_->value;

    auto displays = server_.managedDisplaySpaces();
    if (!displays) {
        Log::error("allWindowsAcrossSpaces: SLSCopyManagedDisplaySpaces returned no array");
        return {};
    }
    std::vector<std::uint64_t> order;
    for (auto& d : *displays) {
        Log::debug("allWindowsAcrossSpaces: display {} spaces={}",
                   d.displayIdentifier.empty() ? "<no-id>" : d.displayIdentifier, joinIDs(d.spaces));
        for (auto& s : d.spaces)
            order.push_back(s.id64);
    }
    Log::debug("allWindowsAcrossSpaces: walking {} spaces across {} display(s), active={}", order.size(),
               displays->size(), active);

    std::vector<CrossSpaceWindow> out;
    std::set<std::uint32_t> seen;
    int droppedNoOwner = 0, droppedNoPID = 0;
    for (auto space : order) {
        auto ids = server_.windowsOnSpace(space, includeAll ? 7 : 2);
        bool isActive = space == active;
        Log::debug("allWindowsAcrossSpaces: space={} ({}) returned {} wids", space,
                   isActive ? "active" : "inactive", ids.size());
        for (auto id : ids) {
            if (!seen.insert(id).second) continue;  // a window on several Spaces counts on the first walked
            CrossSpaceWindow w;
            w.windowID = id;
            w.spaceID = space;
            w.isOnActiveSpace = isActive;
            if (auto row = known.find(id); row != known.end()) {
                const auto& r = row->second;
                if (r.ownerPID < 1 || r.layer < 0 || r.layer > 5 || r.bounds.width < 100 ||
                    r.bounds.height < 100 || !r.name || r.name->empty())
                    continue;
                w.pid = r.ownerPID;
                w.title = r.name;
                w.bounds = r.bounds;
                w.level = r.layer;
                Log::debug("  wid={} pid={} space={} level={} title='{}' [CGWindowList]", id, w.pid, space,
                           w.level, *w.title);
                out.push_back(std::move(w));
                continue;
            }
            auto owner = server_.windowOwner(id);
            if (!owner) {
                ++droppedNoOwner;
                continue;
            }
            std::optional<std::int32_t> pid;
            if (auto c = pidByConnection_.find(*owner); c != pidByConnection_.end())
                pid = c->second;
            else if ((pid = server_.connectionPID(*owner)))
                pidByConnection_[*owner] = *pid;
            if (!pid) {
                ++droppedNoPID;
                continue;
            }
            auto level = server_.windowLevel(id).value_or(0);
            if (level < 0 || level > 5) continue;
            auto bounds = server_.windowBounds(id);
            if (bounds && (bounds->width < 100 || bounds->height < 100)) continue;
            auto title = server_.windowTitle(id);
            if (!title || title->empty()) continue;
            w.pid = *pid;
            w.title = title;
            w.bounds = bounds;
            w.level = level;
            Log::debug("  wid={} pid={} space={} level={} title='{}' bounds={}", id, w.pid, space, w.level,
                       *w.title, boundsText(w.bounds));
            out.push_back(std::move(w));
        }
    }
    Log::debug("allWindowsAcrossSpaces: {} windows total (droppedNoOwner={}, droppedNoPID={})", out.size(),
               droppedNoOwner, droppedNoPID);
    cache_ = Cache{includeAll, active, now, out};
    return out;
}

}  // namespace zelk::windows
