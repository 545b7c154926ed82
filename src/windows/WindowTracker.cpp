#include "windows/WindowTracker.h"

#include <algorithm>
#include <set>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "support/Format.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::windows {

using ferrow::Log;

WindowTracker::WindowTracker(WindowEnvironment& env)
    : env_(env),
      walk_(*env.windowServer),
      listReader_(*env.windowServer),
      enumerator_(*env.accessibility, *env.windowServer, *env.workspace, walk_, health_) {}

std::optional<ManagedWindow> WindowTracker::window(std::uint32_t id) const {
    const auto& list = windows_.get();
    auto it = std::lower_bound(list.begin(), list.end(), id,
                               [](const ManagedWindow& w, std::uint32_t v) { return w.id < v; });
    if (it == list.end() || it->id != id) return std::nullopt;
    return *it;
}

std::vector<ManagedWindow> WindowTracker::windowsOfApp(const std::string& bundleID) const {
    std::vector<ManagedWindow> out;
    for (auto& w : windows_.get())
        if (w.bundleIdentifier == bundleID) out.push_back(w);
    return out;
}

void WindowTracker::preserve(const platform::RunningApp& app, const char* reason,
                             std::vector<ManagedWindow>& into, int& preservedApps, int& preservedWindows) {
    int n = 0;
    for (auto& w : windows_.get())
        if (w.bundleIdentifier == app.bundleID) {
            into.push_back(w);
            preservedIDs_.insert(w.id);
            ++n;
        }
    ++preservedApps;
    preservedWindows += n;
    Log::debug("refreshWindows: preserving {} existing windows for {} ({})", n, app.bundleID, reason);
}

bool WindowTracker::refreshWindows(bool force) {
    ferrow::Nanos start = ferrow::now();
    if (!force && lastRefreshTime_ && start - *lastRefreshTime_ <= kThrottle) return false;
    lastRefreshTime_ = start;
    Log::debug("refreshWindows: starting full refresh");
    frontmostApp_ = env_.workspace->frontmostApplication();

    auto rows = listReader_.windowList();
    std::map<std::uint32_t, platform::WindowInfo> rowByNumber;
    for (auto& r : rows) {
        if (r.bounds.width > 0 && r.bounds.height > 0) lastKnownBounds_[r.number] = r.bounds;
        rowByNumber[r.number] = r;
    }
    auto cross = walk_.allWindowsAcrossSpaces(true, rowByNumber);
    std::map<std::int32_t, std::vector<CrossSpaceWindow>> crossByPid;
    for (auto& c : cross)
        crossByPid[c.pid].push_back(c);

    // Apps seen only through their windows that have turned into regular apps.
    std::vector<platform::RunningApp> apps = env_.trackedRunningApps();
    std::set<std::int32_t> trackedPids;
    for (auto& a : apps)
        trackedPids.insert(a.pid);
    std::set<std::int32_t> seenPids;
    for (auto& r : rows)
        seenPids.insert(r.ownerPID);
    for (auto& c : cross)
        seenPids.insert(c.pid);
    std::vector<std::string> adoptedNames;
    for (auto pid : seenPids) {
        if (pid < 1 || trackedPids.count(pid)) continue;
        auto app = env_.workspace->runningApp(pid);
        if (!app || !env_.adoptable(*app)) continue;
        if (adopted) adopted(*app);
        adoptedNames.push_back(app->bundleID.empty() ? std::to_string(pid) : app->bundleID);
        apps.push_back(*app);
    }
    if (!adoptedNames.empty())
        Log::info("refreshWindows: adopting dynamically-regular apps [{}]", ferrow::join(adoptedNames, ", "));

    ferrow::Nanos budgetStart = ferrow::now();
    std::vector<ManagedWindow> next;
    preservedIDs_.clear();
    int overBudget = 0, cooling = 0, ignored = 0, preservedApps = 0, preservedWindows = 0;
    for (auto& app : apps) {
        if (health_.isSessionIgnored(app.bundleID)) {
            ++ignored;
            preserve(app, "AX-timeout session-ignore", next, preservedApps, preservedWindows);
            continue;
        }
        if (health_.inCooldown(app.pid, ferrow::now())) {
            ++cooling;
            preserve(app, "slow-app cooldown", next, preservedApps, preservedWindows);
            continue;
        }
        if (ferrow::now() - budgetStart > kBudget) {
            ++overBudget;
            preserve(app, "refresh budget exhausted", next, preservedApps, preservedWindows);
            continue;
        }
        auto it = crossByPid.find(app.pid);
        auto result = enumerator_.getWindowsForApp(
            app, it == crossByPid.end() ? std::vector<CrossSpaceWindow>{} : it->second);
        if (!result) {
            preserve(app, "AX query returned nil", next, preservedApps, preservedWindows);
            continue;
        }
        if (answered) answered(app);
        for (auto& w : *result)
            next.push_back(std::move(w));
    }
    if (overBudget + cooling + ignored > 0)
        Log::error(
            "refreshWindows: skipped {} app(s) over {}s budget, {} in slow-app cooldown, {} session-ignored "
            "(elapsed {:.2f}s)",
            overBudget, ferrow::decimal(ferrow::toSeconds(kBudget)), cooling, ignored,
            ferrow::toSeconds(ferrow::now() - budgetStart));

    std::uint64_t active = env_.windowServer->activeSpace();
    int offSpace = 0;
    for (auto& w : next)
        if (w.spaceID && *w.spaceID != active) ++offSpace;
    Log::debug(
        "refreshWindows: collected {} windows from {} apps (offSpace={}, preservedApps={}, "
        "preservedWindows={})",
        next.size(), apps.size(), offSpace, preservedApps, preservedWindows);

    // Carry forward what per-app enumeration dropped while the window server still names it.
    std::set<std::uint32_t> nextIDs;
    for (auto& w : next)
        nextIDs.insert(w.id);
    std::set<std::string> runningBundles;
    auto running = env_.workspace->runningApplications();
    for (auto& a : running)
        runningBundles.insert(a.bundleID);
    std::vector<std::string> carried;
    for (auto& w : windows_.get()) {
        if (nextIDs.count(w.id) || !rowByNumber.count(w.id) || !runningBundles.count(w.bundleIdentifier))
            continue;
        next.push_back(w);
        carried.push_back(fmt::format("#{}[{}]", w.id, w.appName));
    }
    if (!carried.empty())
        Log::debug(
            "refreshWindows: carried forward {} window(s) dropped by per-app enumeration but still live in "
            "CGWindowList: {}",
            carried.size(), ferrow::join(carried, ","));

    // The window server's title wins over the accessibility title.
    for (auto& w : next) {
        auto r = rowByNumber.find(w.id);
        if (r == rowByNumber.end() || !r->second.name || r->second.name->empty() ||
            *r->second.name == w.title)
            continue;
        Log::debug("title changed for #{}[{}]: '{}' → '{}'", w.id, w.bundleIdentifier, w.title,
                   *r->second.name);
        w.title = *r->second.name;
    }
    next = dropGhostsAmongFresh(std::move(next), rows, running);
    publish(filtered(std::move(next)));
    return true;
}

std::vector<ManagedWindow> WindowTracker::filtered(std::vector<ManagedWindow> list) const {
    std::erase_if(list, [&](const ManagedWindow& w) {
        return w.title.empty() || enumerator_.isIgnored(w.bundleIdentifier);
    });
    return list;
}

bool WindowTracker::isStale(const ManagedWindow& w, ferrow::Nanos now) {
    return preservedIDs_.count(w.id) || health_.isSessionIgnored(w.bundleIdentifier) ||
           health_.inCooldown(w.appPid, now);
}

std::vector<ManagedWindow> WindowTracker::dropGhostsAmongFresh(
    std::vector<ManagedWindow> list, const std::vector<platform::WindowInfo>& rows,
    const std::vector<platform::RunningApp>& running) {
    if (rows.empty() || !listReader_.hasPermission()) return list;
    const ferrow::Nanos now = ferrow::now();
    std::vector<ManagedWindow> stale;
    std::erase_if(list, [&](const ManagedWindow& w) {
        if (!isStale(w, now)) return false;
        stale.push_back(w);
        return true;
    });
    list = dropOrderedOutGhosts(std::move(list), rows, running, env_.windowServer->activeSpace());
    list.insert(list.end(), stale.begin(), stale.end());
    return list;
}

std::vector<ManagedWindow> WindowTracker::dropOrderedOutGhosts(
    std::vector<ManagedWindow> list, const std::vector<platform::WindowInfo>& rows,
    const std::vector<platform::RunningApp>& running, std::uint64_t activeSpace) {
    std::set<std::uint32_t> onScreen;
    for (auto& r : rows)
        if (r.isOnscreen) onScreen.insert(r.number);
    std::set<std::string> hidden;
    for (auto& a : running)
        if (a.hidden) hidden.insert(a.bundleID);
    std::erase_if(list, [&](const ManagedWindow& w) {
        if (onScreen.count(w.id) || w.isMinimized || (w.spaceID && *w.spaceID != activeSpace) ||
            hidden.count(w.bundleIdentifier))
            return false;
        Log::debug(
            "dropOrderedOutGhosts: drop #{}[{}] '{}' (off-screen, active-Space, not minimized, app not "
            "hidden → ordered-out ghost)",
            w.id, w.bundleIdentifier, w.title);
        return true;
    });
    return list;
}

void WindowTracker::publish(std::vector<ManagedWindow> list) {
    std::sort(list.begin(), list.end(),
              [](const ManagedWindow& a, const ManagedWindow& b) { return a.id < b.id; });
    list.erase(std::unique(list.begin(), list.end(),
                           [](const ManagedWindow& a, const ManagedWindow& b) { return a.id == b.id; }),
               list.end());
    // Digits first, so that whoever hears of the new list finds them in step.
    assignWindowNumbers(list);
    windows_.set(std::move(list));
    if (afterPublish) afterPublish();
}

void WindowTracker::assignWindowNumbers(const std::vector<ManagedWindow>& list) {
    // A window keeps its digit, so closing one renumbers none of the rest; a new one takes the lowest
    // free digit from 1 to 9, and none once all nine are used. The list is in id order.
    std::map<std::string, std::map<std::uint32_t, int>> next;
    for (auto& w : list) {
        auto& old = windowNumbers_[w.bundleIdentifier];
        if (auto it = old.find(w.id); it != old.end()) next[w.bundleIdentifier][w.id] = it->second;
    }
    for (auto& w : list) {
        auto& mine = next[w.bundleIdentifier];
        if (mine.count(w.id)) continue;
        std::set<int> used;
        for (auto& [id, n] : mine)
            used.insert(n);
        for (int n = 1; n <= 9; ++n)
            if (!used.count(n)) {
                mine[w.id] = n;
                break;
            }
    }
    windowNumbers_ = std::move(next);
}

void WindowTracker::refreshApp(const platform::RunningApp& app) {
    // An app whose accessibility isn't asked keeps its windows as they were: an empty answer here is no news.
    if (enumerator_.isIgnored(app.bundleID) || health_.isSessionIgnored(app.bundleID)) return;
    auto result = enumerator_.getWindowsForApp(app, std::nullopt);
    if (!result) return;
    if (answered) answered(app);
    auto belongs = [&](const ManagedWindow& w) {
        return app.bundleID.empty() ? w.appPid == app.pid : w.bundleIdentifier == app.bundleID;
    };
    std::set<std::uint32_t> fresh;
    for (auto& w : *result)
        fresh.insert(w.id);
    std::vector<std::uint32_t> gone;
    for (auto& w : windows_.get())
        if (belongs(w) && !fresh.count(w.id)) gone.push_back(w.id);
    if (!gone.empty()) pruneWindows(gone);
    std::vector<ManagedWindow> next;
    for (auto& w : windows_.get())
        if (!belongs(w)) next.push_back(w);
    for (auto& w : *result) {
        next.push_back(w);
        preservedIDs_.erase(w.id);  // read just now
    }
    if (listReader_.hasPermission())
        next = dropGhostsAmongFresh(std::move(next), listReader_.windowList(),
                                    env_.workspace->runningApplications());
    publish(filtered(std::move(next)));
}

void WindowTracker::pruneWindows(const std::vector<std::uint32_t>& ids) {
    std::set<std::uint32_t> gone(ids.begin(), ids.end());
    std::vector<ManagedWindow> closed, kept;
    for (auto& w : windows_.get())
        (gone.count(w.id) ? closed : kept).push_back(w);
    if (closed.empty()) return;
    windows_.set(std::move(kept));
    windowsClosed.emit(closed);
}

void WindowTracker::remove(std::uint32_t id) {
    auto list = windows_.get();
    std::erase_if(list, [&](const ManagedWindow& w) { return w.id == id; });
    windows_.set(std::move(list));
}

void WindowTracker::stampMissingSpaceIDs() {
    auto list = windows_.get();
    int n = 0;
    for (auto& w : list) {
        if (w.spaceID) continue;
        auto spaces = env_.windowServer->spacesForWindows(7, {w.id});
        if (spaces.empty()) continue;
        w.spaceID = spaces.front();
        ++n;
    }
    if (n == 0) return;
    windows_.set(std::move(list));
    Log::debug("stampMissingSpaceIDs: stamped {} windows via live SLS", n);
}

std::optional<std::uint64_t> WindowTracker::liveSpaceID(const ManagedWindow& window) {
    auto spaces = env_.windowServer->spacesForWindows(7, {window.id});
    if (spaces.empty()) return window.spaceID;
    std::uint64_t live = spaces.front();
    if (window.spaceID != live) {
        Log::debug("liveSpaceID: wid={} cache={} live={}", window.id,
                   window.spaceID ? std::to_string(*window.spaceID) : "nil", live);
        auto list = windows_.get();
        for (auto& w : list)
            if (w.id == window.id) w.spaceID = live;
        windows_.set(std::move(list));
    }
    return live;
}

void WindowTracker::stampWindowsMovedToSpace(const std::vector<std::uint32_t>& ids, std::uint64_t space) {
    std::set<std::uint32_t> moved(ids.begin(), ids.end());
    auto list = windows_.get();
    for (auto& w : list)
        if (moved.count(w.id)) w.spaceID = space;
    windows_.set(std::move(list));
}

}  // namespace zelk::windows
