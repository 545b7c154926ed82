#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/LaunchableApp.h"
#include "stages/StageModel.h"
#include "stages/WindowPlacement.h"
#include "support/Clock.h"

// A window that closed and can be opened again, and the list of them kept in the settings.
namespace zelk::windows {

// What is known of a focused window so that it can be reopened once it is gone.
struct CapturedWindowState {
    stages::WindowSpec spec = stages::AppSpec{};
    std::optional<stages::WindowPlacement> placement;
    std::string title;
    std::shared_ptr<apps::LaunchableApp> app;
    ferrow::Nanos capturedAt = 0;
};

// Dates are wall-clock seconds since 1970, so the list means the same after a restart.
struct ClosedWindow {
    std::string id;  // a UUID in upper case
    std::shared_ptr<apps::LaunchableApp> app;
    stages::WindowSpec windowSpec = stages::AppSpec{};
    std::string windowTitle;
    std::optional<stages::WindowPlacement> windowPlacement;
    std::uint32_t originalWindowID = 0;
    double closedAt = 0;
    std::optional<double> lastFocusedAt;

    const std::string& bundleID() const;
};

// The list keeps at most this many entries, and drops those closed longer ago than the retention
// whenever a new one is recorded.
inline constexpr std::size_t kClosedWindowLimit = 20;
inline constexpr double kClosedWindowRetentionSeconds = 86'400;

nlohmann::json toJson(const ClosedWindow& entry);
std::optional<ClosedWindow> closedWindowFromJson(const nlohmann::json& json, std::string& error);
nlohmann::json toJson(const std::vector<ClosedWindow>& list);
// The stored list; anything that doesn't decode as a whole gives an empty list (and `error` says why).
std::vector<ClosedWindow> closedWindowsFromJson(const nlohmann::json& json, std::string& error);

// Same app and same identity: a document, address or folder closed again replaces its old entry.
bool sameClosedWindow(const ClosedWindow& a, const ClosedWindow& b);

// The list after recording `entry` at `now`: its older twin removed, entries past the retention
// dropped, the new one first, the oldest cut beyond the limit.
std::vector<ClosedWindow> withRecorded(std::vector<ClosedWindow> list, ClosedWindow entry, double now);

// "3m ago", "2h ago", "just now": how long ago a window closed, as its row words it.
std::string closedAgo(double closedAt, double now);

}  // namespace zelk::windows
