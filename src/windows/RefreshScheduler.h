#pragma once
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/MainQueue.h"

namespace zelk::windows {

// The delayed refreshes: per-app ladders ("app:{pid}"), the global ladder, and the event-driven refresh
// that gives an app at most one refresh per 0.3 s without losing the last event.
class RefreshScheduler {
  public:
    static constexpr ferrow::Nanos kEventSpacing = 300 * ferrow::kNanosPerMs;

    // Runs the per-app refresh of a pid if it still resolves to a running app.
    std::function<void(std::int32_t pid)> refreshApp;
    std::function<void()> refreshAll;  // the forced full refresh

    void scheduleDelayedRefresh(std::int32_t pid, const std::vector<double>& delays);
    void scheduleGlobalRefresh(const std::vector<double>& delays);
    void eventRefresh(std::int32_t pid);
    // The pid left: its ladder and trailing refresh go.
    void forget(std::int32_t pid);

    bool anyLadderPending() const;
    // The absolute time at which the pid's ladder ends, if it lies in the future.
    bool ladderPending(std::int32_t pid) const;
    bool trailingPending(std::int32_t pid) const;

  private:
    void schedule(const std::string& key, const std::vector<double>& delays, std::function<void()> step);
    std::map<std::string, std::vector<ferrow::WorkItem>> pending_;
    std::map<std::string, ferrow::Nanos> deadline_;
    std::map<std::int32_t, ferrow::Nanos> lastEventRefreshAt_;
    std::map<std::int32_t, ferrow::WorkItem> pendingEventRefresh_;
};

}  // namespace zelk::windows
