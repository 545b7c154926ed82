#include "platform/x11/ChangeFeed.h"

#include <set>

namespace zelk::x11 {

namespace {
std::set<std::int32_t> pidsOf(const Snapshot& s) {
    std::set<std::int32_t> out;
    for (auto& c : s.clients)
        if (c.pid > 0) out.insert(c.pid);
    return out;
}
std::int32_t activePid(const Snapshot& s) {
    const Client* c = s.client(s.active);
    return c ? c->pid : 0;
}
}  // namespace

std::vector<Change> diffSnapshots(const Snapshot& before, const Snapshot& after) {
    using K = Change::Kind;
    std::vector<Change> out;
    std::set<std::int32_t> oldPids = pidsOf(before), newPids = pidsOf(after);
    for (auto pid : newPids)
        if (!oldPids.count(pid)) out.push_back({K::appLaunched, pid});
    for (auto& c : after.clients) {
        const Client* old = before.client(c.id);
        if (!old) {
            out.push_back({K::windowCreated, c.pid, c.id});
            continue;
        }
        if (old->title != c.title) out.push_back({K::titleChanged, c.pid, c.id});
        if (old->frame != c.frame) out.push_back({K::frameChanged, c.pid, c.id});
        if (old->hidden != c.hidden) out.push_back({c.hidden ? K::minimized : K::restored, c.pid, c.id});
    }
    for (auto& c : before.clients)
        if (!after.client(c.id)) out.push_back({K::windowDestroyed, c.pid, c.id});
    for (auto pid : oldPids)
        if (!newPids.count(pid)) out.push_back({K::appTerminated, pid});
    if (before.active != after.active) {
        std::int32_t oldPid = activePid(before), newPid = activePid(after);
        if (after.active && newPid) out.push_back({K::focusedWindowChanged, newPid, after.active});
        if (newPid && newPid != oldPid) out.push_back({K::appActivated, newPid, after.active, oldPid});
    }
    if (before.currentDesktop != after.currentDesktop) out.push_back({K::desktopChanged});
    return out;
}

}  // namespace zelk::x11
