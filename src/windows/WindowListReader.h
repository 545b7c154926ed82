#pragma once
#include <optional>
#include <vector>

#include "platform/WindowServer.h"

namespace zelk::windows {

// The window list with names, which needs the screen-recording permission. Without it every read asks
// for the permission again and gives nothing.
class WindowListReader {
  public:
    explicit WindowListReader(platform::WindowServer& server) : server_(server) {}
    std::vector<platform::WindowInfo> windowList(std::optional<std::int32_t> pid = std::nullopt);
    // Whether the last read had the permission (first use reads it).
    bool hasPermission();

  private:
    platform::WindowServer& server_;
    std::optional<bool> permitted_;
};

}  // namespace zelk::windows
