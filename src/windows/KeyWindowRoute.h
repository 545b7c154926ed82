#pragma once
#include <cstdint>
#include <vector>

#include "platform/WindowServer.h"

namespace zelk::windows {

// One 248-byte key-window record: `kind` 1 for the first of the pair, 2 for the second.
std::vector<std::uint8_t> keyWindowRecord(int kind, std::uint32_t windowID);

// The direct route through the window server: the process comes front with the window, no animation,
// and the window becomes key. Every step ignores its result; callers repeat the route instead.
class KeyWindowRoute {
  public:
    static constexpr std::uint32_t kFrontMode = 0x200;
    explicit KeyWindowRoute(platform::WindowServer& server) : server_(server) {}
    void run(std::int32_t pid, std::uint32_t windowID);

  private:
    platform::WindowServer& server_;
};

}  // namespace zelk::windows
