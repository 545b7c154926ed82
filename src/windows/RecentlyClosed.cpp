#include "windows/RecentlyClosed.h"

#include <algorithm>

#include "config/SettingsCatalogue.h"
#include "support/Log.h"

namespace zelk::windows {

using ferrow::Log;

RecentlyClosedWindows::RecentlyClosedWindows(Settings& settings, Sources sources)
    : settings_(settings), sources_(std::move(sources)) {
    settingSub_ = settings_.observe(keys::recentlyClosedWindows.name, [this] { changed.emit(); });
}

RecentlyClosedWindows::~RecentlyClosedWindows() {
    *alive_ = false;
    pendingWork_.cancel();
}

double RecentlyClosedWindows::wallNow() const {
    return ferrow::MainQueue::shared().clock().wallSeconds();
}

double RecentlyClosedWindows::wallAt(ferrow::Nanos t) const {
    return wallNow() - ferrow::toSeconds(ferrow::now() - t);
}

void RecentlyClosedWindows::captureLiveSpec(const std::optional<ManagedWindow>& window) {
    pendingWork_.cancel();
    pendingWID_.reset();
    if (!window || window->id == 0) return;
    pendingWID_ = window->id;
    std::weak_ptr<bool> alive = alive_;
    pendingWork_ = ferrow::MainQueue::shared().asyncAfter(kCaptureDelay, [this, alive, w = *window] {
        if (!alive.lock()) return;
        pendingWID_.reset();
        runCapture(w);
    });
}

void RecentlyClosedWindows::runCapture(const ManagedWindow& window) {
    if (!sources_.capture) return;
    auto state = sources_.capture(window);
    if (!state || stages::isAppSpec(state->spec)) return;
    if (sources_.windowExists)
        std::erase_if(cache_, [&](const auto& kv) { return !sources_.windowExists(kv.first); });
    state->capturedAt = ferrow::now();
    Log::debug("captureLiveSpec: wid={} spec={}", window.id, stages::describe(state->spec));
    cache_[window.id] = std::move(*state);
}

void RecentlyClosedWindows::windowsPruned(const std::vector<ManagedWindow>& gone) {
    for (const auto& w : gone) {
        // A window that closes before its capture ran leaves nothing behind.
        if (pendingWID_ == w.id) {
            pendingWork_.cancel();
            pendingWID_.reset();
        }
        auto it = cache_.find(w.id);
        if (it == cache_.end()) continue;
        CapturedWindowState state = std::move(it->second);
        cache_.erase(it);
        recordClosedWindow(state, w);
    }
}

std::vector<ClosedWindow> RecentlyClosedWindows::entries() const {
    std::string error;
    auto list = closedWindowsFromJson(settings_.get(keys::recentlyClosedWindows), error);
    if (!error.empty())
        Log::error("recentlyClosedWindows: can't read the stored list ({}), starting empty", error);
    return list;
}

std::optional<ClosedWindow> RecentlyClosedWindows::entry(const std::string& id) const {
    for (auto& e : entries())
        if (e.id == id) return e;
    return std::nullopt;
}

void RecentlyClosedWindows::store(const std::vector<ClosedWindow>& list) {
    settings_.set(keys::recentlyClosedWindows, toJson(list));
}

void RecentlyClosedWindows::recordClosedWindow(const CapturedWindowState& state,
                                               const ManagedWindow& window) {
    ClosedWindow entry;
    entry.id = stages::makeUUID();
    entry.app = state.app;
    entry.windowSpec = state.spec;
    entry.windowTitle = state.title;
    entry.windowPlacement = state.placement;
    entry.originalWindowID = window.id;
    const double now = wallNow();
    entry.closedAt = now;
    if (sources_.focusTime)
        if (auto t = sources_.focusTime(window.id)) entry.lastFocusedAt = wallAt(*t);
    auto list = withRecorded(entries(), std::move(entry), now);
    Log::info("recordClosedWindow: {} spec={} total={}", state.title, stages::describe(state.spec),
              list.size());
    store(list);
}

bool RecentlyClosedWindows::removeRecentlyClosedWindow(const std::string& id) {
    auto list = entries();
    auto it = std::find_if(list.begin(), list.end(), [&](const ClosedWindow& e) { return e.id == id; });
    if (it == list.end()) return false;
    std::string title = it->windowTitle;
    list.erase(it);
    Log::info("removeRecentlyClosedWindow: {} total={}", title, list.size());
    store(list);
    return true;
}

bool RecentlyClosedWindows::reopenRecentlyClosedWindow(const std::string& id) {
    auto list = entries();
    auto it = std::find_if(list.begin(), list.end(), [&](const ClosedWindow& e) { return e.id == id; });
    if (it == list.end()) return false;
    ClosedWindow e = *it;
    Log::info("reopenRecentlyClosedWindow: {} spec={}", e.windowTitle, stages::describe(e.windowSpec));
    if (sources_.reopen) sources_.reopen(e);
    // The entry goes whether or not the open succeeds: a failed open is logged where it happens.
    list = entries();
    std::erase_if(list, [&](const ClosedWindow& c) { return c.id == id; });
    store(list);
    return true;
}

}  // namespace zelk::windows
