#pragma once
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "support/Clock.h"
#include "support/Observable.h"

namespace zelk::windows {

// Which windows were used last, most recent first, at most 200. While a trigger is held a head change
// waits, so that walking through windows in a held gesture doesn't reorder the list under the hand.
class MostRecentOrder {
  public:
    static constexpr std::size_t kCapacity = 200;

    explicit MostRecentOrder(std::function<bool()> triggerHeld) : triggerHeld_(std::move(triggerHeld)) {}

    void noteFocusForMRU(std::uint32_t id);
    void recordWindowMRU(std::uint32_t id);
    // The input side calls this when the held gesture ends.
    void flushPendingMRU();
    void remove(std::uint32_t id);

    const std::vector<std::uint32_t>& ids() const { return mru_.get(); }
    ferrow::Observable<std::vector<std::uint32_t>>& observable() { return mru_; }
    std::optional<std::uint32_t> pendingDuringHold() const { return pendingDuringHold_; }
    std::optional<ferrow::Nanos> lastFocusChangeAt() const { return lastFocusChangeAt_; }
    std::optional<ferrow::Nanos> focusTime(std::uint32_t id) const;
    // The next head change leaves the recency time alone (the tab cycle).
    void suppressNextFocusRecency() { suppressNext_ = true; }
    // How a window reads in the log lines ("#12[com.apple.Safari]").
    std::function<std::string(std::uint32_t)> describe;

  private:
    std::function<bool()> triggerHeld_;
    ferrow::Observable<std::vector<std::uint32_t>> mru_;
    std::map<std::uint32_t, ferrow::Nanos> focusTimes_;
    std::optional<ferrow::Nanos> lastFocusChangeAt_;
    std::optional<std::uint32_t> pendingDuringHold_;
    bool suppressNext_ = false;
};

}  // namespace zelk::windows
