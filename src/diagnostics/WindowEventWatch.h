#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "windows/ManagedWindow.h"

namespace zelk::diagnostics {

// One change of the tracked windows seen during a watch.
struct WindowEvent {
    double atMs = 0;    // since the watch started
    std::string event;  // "created", "closed", "retitled", "minimized", "unminimized", "space", "focused"
    std::uint32_t id = 0;
    std::string title;
    std::string bundleID;
    bool operator==(const WindowEvent&) const = default;
};

// What happens to the windows while a watch runs: each new window list and focus is compared with the
// last, and the differences are kept until fetched. The watch ends by itself after its seconds; the
// tool builds its live view by fetching again and again.
class WindowEventWatch {
  public:
    static constexpr double kDefaultSeconds = 30;
    static constexpr std::size_t kMaxEvents = 10'000;  // older events go first past this

    void start(double seconds, double nowMs, const std::vector<windows::ManagedWindow>& windows,
               std::optional<std::uint32_t> focused);
    void windowsChanged(const std::vector<windows::ManagedWindow>& windows, double nowMs);
    void focusChanged(const std::optional<windows::ManagedWindow>& focused, double nowMs);
    // The events since the last fetch, and whether the watch still runs.
    nlohmann::json fetch(double nowMs);
    bool watching(double nowMs) const { return started_ && nowMs - startedAt_ <= seconds_ * 1000; }

  private:
    void add(double nowMs, const std::string& event, const windows::ManagedWindow& w);

    bool started_ = false;
    double startedAt_ = 0, seconds_ = 0;
    std::map<std::uint32_t, windows::ManagedWindow> last_;
    std::optional<std::uint32_t> focused_;
    std::vector<WindowEvent> pending_;
};

}  // namespace zelk::diagnostics
