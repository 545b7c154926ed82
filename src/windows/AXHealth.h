#pragma once
#include <map>
#include <set>
#include <string>

#include "support/Clock.h"

namespace zelk::windows {

// Which apps' accessibility is not asked right now: a time-out cools an app down for 5 s, and three
// time-outs of one bundle in a run stop asking it until the program restarts. Never persisted.
class AXHealth {
  public:
    static constexpr ferrow::Nanos kCooldown = 5 * ferrow::kNanosPerSecond;
    static constexpr int kSessionIgnoreThreshold = 3;

    // Records a time-out; returns the bundle's count so far.
    int noteTimeout(std::int32_t pid, const std::string& bundleID, ferrow::Nanos now);
    bool isSessionIgnored(const std::string& bundleID) const { return sessionIgnored_.count(bundleID) > 0; }
    // A cooldown in the future; an expired one is forgotten.
    bool inCooldown(std::int32_t pid, ferrow::Nanos now);
    int timeoutCount(const std::string& bundleID) const;
    void forget(std::int32_t pid) { slowUntil_.erase(pid); }

  private:
    std::map<std::int32_t, ferrow::Nanos> slowUntil_;
    std::map<std::string, int> timeoutCounts_;
    std::set<std::string> sessionIgnored_;
};

}  // namespace zelk::windows
