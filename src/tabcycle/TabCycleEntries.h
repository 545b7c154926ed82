#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/TabCycleOptions.h"
#include "support/Clock.h"
#include "windows/ManagedWindow.h"

namespace zelk::tabcycle {

// One row of the tab cycle: a live window, or a recently closed one that can only be reopened.
struct TabCycleEntry {
    std::uint32_t id = 0;  // 0 for a row with no live window
    std::string title;
    std::string appName;
    std::string bundleIdentifier;
    std::optional<std::string> closedWindowID;
    std::optional<ferrow::Nanos> lastFocusedAt;
    std::optional<std::uint64_t> spaceID;
    bool minimised = false;
    bool operator==(const TabCycleEntry&) const = default;

    bool isClosed() const { return closedWindowID.has_value(); }
    // "win-{id}", or "rel-{uuid}" for a recently closed window.
    std::string rowID() const;
};

// A recently closed window as the cycle lists it.
struct ClosedWindowRow {
    std::string uuid;
    std::uint32_t windowID = 0;  // the id it had while open
    std::string title;
    std::string appName;
    std::string bundleIdentifier;
    std::optional<std::uint64_t> spaceID;
};

// The active stage's members, for the stage filter.
struct StageMembers {
    std::string key;
    std::set<std::string> bundleIdentifiers;
    std::set<std::uint32_t> windowIDs;
    bool empty() const { return bundleIdentifiers.empty() && windowIDs.empty(); }
};

// Everything the rows are computed from, read once per computation.
struct CycleSnapshot {
    std::vector<windows::ManagedWindow> windows;  // in the window manager's order
    std::vector<std::uint32_t> mru;               // most recent first
    std::map<std::uint32_t, ferrow::Nanos> focusTimes;
    std::optional<windows::ManagedWindow> focused;
    std::optional<std::string> frontmostBundle;
    std::set<std::string> hiddenBundles;  // running apps that are hidden
    std::int32_t ownPid = 0;
    std::string ownBundleID;
    std::uint64_t currentSpace = 0;
    std::optional<StageMembers> activeStage;
    std::optional<ferrow::Nanos> lastFocusChangeAt;
    ferrow::Nanos now = 0;
    bool settingsWindowOpen = false;
    std::vector<std::string> zelkAwareFrontmost;  // the last two frontmost bundle identifiers, oldest first
};

struct EntryRequest {
    TabCycleScope scope = TabCycleScope::auto_;
    bool forSearch = false;
    TabCycleFilter include{0x3};
    bool allWindowsExpanded = false;
};

// The scope a request resolves to: `auto` shows all windows while expanded.
TabCycleScope effectiveScope(const EntryRequest& request);

// The live rows: the filters in order (this process, Space, minimised, hidden apps, same app, stage),
// sorted by the most-recent order, with the single-window Space and settings-window rows.
std::vector<TabCycleEntry> computeTabCycleEntries(const CycleSnapshot& world, const EntryRequest& request);

// The recently closed rows of the scope, after the live ones, leaving out windows that are live.
std::vector<TabCycleEntry> computeClosedEntries(const CycleSnapshot& world, const EntryRequest& request,
                                                const std::vector<ClosedWindowRow>& closed,
                                                const std::vector<TabCycleEntry>& liveRows);

// The rows that match a typed filter: "{appName} - {title}" scoring at least 6 per character, best
// first, ties in their previous order.
std::vector<TabCycleEntry> filterEntries(const std::vector<TabCycleEntry>& rows, const std::string& query);

// One step from `from` (wrapping); the first step of a cycle never lands on a closed row.
std::size_t stepIndex(const std::vector<TabCycleEntry>& rows, std::size_t from, bool reverse, bool firstStep);

// Drops live rows whose window left the list (closed rows stay).
std::vector<TabCycleEntry> dropVanished(const std::vector<TabCycleEntry>& rows,
                                        const std::set<std::uint32_t>& liveIDs);

// Where the highlight goes after the rows changed: the same row by id, else clamped.
std::size_t keepHighlight(const std::vector<TabCycleEntry>& rows, const std::string& rowID,
                          std::size_t index);

std::string scopeName(TabCycleScope scope);

}  // namespace zelk::tabcycle
