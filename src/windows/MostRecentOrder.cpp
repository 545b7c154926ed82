#include "windows/MostRecentOrder.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::windows {

void MostRecentOrder::noteFocusForMRU(std::uint32_t id) {
    if (triggerHeld_ && triggerHeld_()) {
        pendingDuringHold_ = id;
        return;
    }
    recordWindowMRU(id);
}

void MostRecentOrder::flushPendingMRU() {
    if (!pendingDuringHold_) return;
    std::uint32_t id = *pendingDuringHold_;
    pendingDuringHold_.reset();
    recordWindowMRU(id);
}

void MostRecentOrder::recordWindowMRU(std::uint32_t id) {
    auto list = mru_.get();
    std::optional<std::uint32_t> oldHead;
    if (!list.empty()) oldHead = list.front();
    std::erase(list, id);
    list.insert(list.begin(), id);
    if (list.size() > kCapacity) list.resize(kCapacity);
    mru_.set(std::move(list));
    focusTimes_[id] = ferrow::now();
    if (oldHead == id) return;
    bool suppressed = suppressNext_;
    if (suppressNext_)
        suppressNext_ = false;
    else
        lastFocusChangeAt_ = ferrow::now();
    auto name = [this](std::optional<std::uint32_t> w) {
        if (!w) return std::string("nil");
        return describe ? describe(*w) : fmt::format("#{}", *w);
    };
    ferrow::Log::debug("recordWindowMRU: bump -> {} (was head={}){}", name(id), name(oldHead),
                       suppressed ? " (recency suppressed)" : "");
}

void MostRecentOrder::remove(std::uint32_t id) {
    auto list = mru_.get();
    std::erase(list, id);
    mru_.set(std::move(list));
    focusTimes_.erase(id);
    if (pendingDuringHold_ == id) pendingDuringHold_.reset();
}

std::optional<ferrow::Nanos> MostRecentOrder::focusTime(std::uint32_t id) const {
    auto it = focusTimes_.find(id);
    if (it == focusTimes_.end()) return std::nullopt;
    return it->second;
}

}  // namespace zelk::windows
