#pragma once
#include <map>
#include <optional>
#include <vector>

#include "platform/WindowServer.h"
#include "support/Clock.h"
#include "windows/ManagedWindow.h"

namespace zelk::windows {

// The window server's windows on every Space of every display, walked one Space at a time, cached for
// 0.25 s because refresh, per-app enumeration and the switcher ask within one gesture.
class SpaceWalk {
  public:
    explicit SpaceWalk(platform::WindowServer& server) : server_(server) {}

    std::vector<CrossSpaceWindow> allWindowsAcrossSpaces(
        bool includeAll, const std::map<std::uint32_t, platform::WindowInfo>& known);
    // Window creation or destruction makes the cached walk stale.
    void invalidate() { cache_.reset(); }

    static constexpr ferrow::Nanos kCacheLife = 250 * ferrow::kNanosPerMs;

  private:
    struct Cache {
        bool key = false;
        std::uint64_t activeSpace = 0;
        ferrow::Nanos time = 0;
        std::vector<CrossSpaceWindow> value;
    };
    platform::WindowServer& server_;
    std::optional<Cache> cache_;
    std::map<std::uint32_t, std::int32_t> pidByConnection_;
};

}  // namespace zelk::windows
