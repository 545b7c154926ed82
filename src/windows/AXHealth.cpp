#include "windows/AXHealth.h"

namespace zelk::windows {

int AXHealth::noteTimeout(std::int32_t pid, const std::string& bundleID, ferrow::Nanos now) {
    slowUntil_[pid] = now + kCooldown;
    int n = ++timeoutCounts_[bundleID];
    // An app without a bundle id can't be named again after a restart of it, so it is only cooled down.
    if (n >= kSessionIgnoreThreshold && !bundleID.empty()) sessionIgnored_.insert(bundleID);
    return n;
}

bool AXHealth::inCooldown(std::int32_t pid, ferrow::Nanos now) {
    auto it = slowUntil_.find(pid);
    if (it == slowUntil_.end()) return false;
    if (it->second > now) return true;
    slowUntil_.erase(it);
    return false;
}

int AXHealth::timeoutCount(const std::string& bundleID) const {
    auto it = timeoutCounts_.find(bundleID);
    return it == timeoutCounts_.end() ? 0 : it->second;
}

}  // namespace zelk::windows
