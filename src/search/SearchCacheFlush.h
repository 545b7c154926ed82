#pragma once
#include <functional>

#include "config/Settings.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk::search {

// When learned picks reach their file: every change of the learned map (not the value at start)
// marks it dirty and moves the write to 300 s after that change, so a burst of picks ends in one
// write five minutes after the last. Quitting, a pin over a learned query and the clean-ups write at
// once. The writer answers false when the write failed, which leaves the map dirty. Main thread.
class SearchCacheFlush {
  public:
    static constexpr ferrow::Nanos kDelay = 300 * ferrow::kNanosPerSecond;

    SearchCacheFlush(Settings& settings, std::function<bool()> write);
    ~SearchCacheFlush() { pending_.cancel(); }
    SearchCacheFlush(const SearchCacheFlush&) = delete;
    SearchCacheFlush& operator=(const SearchCacheFlush&) = delete;

    bool dirty() const { return dirty_; }
    bool flushPending() const { return pending_.isPending(); }
    // Cancels a waiting flush and writes now.
    void writeNow();
    // At termination: writes only when something changed since the last write.
    void flushIfDirty();

  private:
    void changed();

    std::function<bool()> write_;
    bool dirty_ = false;
    ferrow::WorkItem pending_;
    ferrow::Subscription subscription_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::search
