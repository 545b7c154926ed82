#include "windows/RefreshScheduler.h"

#include <algorithm>

namespace zelk::windows {

void RefreshScheduler::schedule(const std::string& key, const std::vector<double>& delays,
                                std::function<void()> step) {
    for (auto& item : pending_[key])
        item.cancel();
    pending_[key].clear();
    double longest = delays.empty() ? 0 : *std::max_element(delays.begin(), delays.end());
    deadline_[key] = ferrow::now() + ferrow::seconds(longest);
    for (double d : delays)
        pending_[key].push_back(ferrow::MainQueue::shared().asyncAfter(ferrow::seconds(d), step));
}

void RefreshScheduler::scheduleDelayedRefresh(std::int32_t pid, const std::vector<double>& delays) {
    schedule("app:" + std::to_string(pid), delays, [this, pid] {
        if (refreshApp) refreshApp(pid);
    });
}

void RefreshScheduler::scheduleGlobalRefresh(const std::vector<double>& delays) {
    schedule("global", delays, [this] {
        if (refreshAll) refreshAll();
    });
}

void RefreshScheduler::eventRefresh(std::int32_t pid) {
    ferrow::Nanos now = ferrow::now();
    auto last = lastEventRefreshAt_.find(pid);
    ferrow::Nanos since = last == lastEventRefreshAt_.end() ? kEventSpacing : now - last->second;
    if (since >= kEventSpacing) {
        if (auto p = pendingEventRefresh_.find(pid); p != pendingEventRefresh_.end()) {
            p->second.cancel();
            pendingEventRefresh_.erase(p);
        }
        lastEventRefreshAt_[pid] = now;
        if (refreshApp) refreshApp(pid);
        return;
    }
    if (trailingPending(pid)) return;
    pendingEventRefresh_[pid] = ferrow::MainQueue::shared().asyncAfter(kEventSpacing - since, [this, pid] {
        pendingEventRefresh_.erase(pid);
        lastEventRefreshAt_[pid] = ferrow::now();
        if (refreshApp) refreshApp(pid);
    });
}

void RefreshScheduler::forget(std::int32_t pid) {
    std::string key = "app:" + std::to_string(pid);
    for (auto& item : pending_[key])
        item.cancel();
    pending_.erase(key);
    deadline_.erase(key);
    if (auto p = pendingEventRefresh_.find(pid); p != pendingEventRefresh_.end()) {
        p->second.cancel();
        pendingEventRefresh_.erase(p);
    }
}

bool RefreshScheduler::anyLadderPending() const {
    for (auto& [key, items] : pending_)
        for (auto& item : items)
            if (item.isPending()) return true;
    return false;
}

bool RefreshScheduler::ladderPending(std::int32_t pid) const {
    auto it = deadline_.find("app:" + std::to_string(pid));
    return it != deadline_.end() && it->second > ferrow::now();
}

bool RefreshScheduler::trailingPending(std::int32_t pid) const {
    auto it = pendingEventRefresh_.find(pid);
    return it != pendingEventRefresh_.end() && it->second.isPending();
}

}  // namespace zelk::windows
