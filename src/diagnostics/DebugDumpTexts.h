#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zelk::diagnostics {

// One app line of "apps.txt".
struct DumpApp {
    std::string name;
    std::string bundleID;
    std::optional<std::int32_t> pid;
    std::optional<std::string> activationPolicy;  // running apps only
};

// The four app lists of "apps.txt", in their order.
struct DumpAppLists {
    std::vector<DumpApp> relevantRunning;
    std::vector<DumpApp> launchableNotRunning;
    std::vector<DumpApp> launchableFilteredOut;  // running, but not among the relevant apps
    std::vector<DumpApp> runningNotRelevant;
};

struct DumpAssignment {
    std::string key;
    std::string appName;
    std::string bundleID;
    std::string whenAlreadyFocused;  // the action's raw value
    bool launchIfNotRunning = false;
};

struct DumpWindowRow {
    std::string key;  // empty when the window has none
    std::string title;
};

struct DumpStage {
    std::string key;
    std::string name;
    std::vector<std::string> items;  // "{app} — {spec}" each
};

// What "assignments.txt" lists.
struct DumpAssignments {
    std::vector<DumpAssignment> statics;
    std::vector<DumpAssignment> dynamics;
    std::string focusedAppName;  // empty without a focused app
    std::vector<DumpWindowRow> focusedAppWindows;
    std::vector<DumpStage> stages;
};

// The key tap's state when the dump is taken. Durations are milliseconds; none when never seen.
struct DumpTapHealth {
    bool tapPresent = false;
    bool tapEnabled = false;
    bool monitorActive = false;
    std::optional<std::int64_t> sinceTapFlagsChangedMs;
    std::optional<std::int64_t> sinceMonitorFlagsChangedMs;
    bool secureInputOn = false;
    std::optional<std::string> secureInputHolder;  // the holding process's name, when known
    std::vector<std::string> axCooldownApps;
    std::vector<std::string> axSessionIgnored;
    bool axTrusted = false;
    bool screenRecording = false;
};

// One tracked window of "cross-space-windows.json".
struct DumpTrackedWindow {
    std::string title, bundleIdentifier, appName;
    std::int32_t appPid = 0;
    std::string role, subrole;
    bool isMinimized = false, isFocused = false;
    std::optional<std::uint64_t> spaceID;
    bool isOnInactiveSpace = false;
};

std::string appsText(const DumpAppLists& lists);
std::string assignmentsText(const DumpAssignments& assignments);
std::string tapHealthText(const DumpTapHealth& health);
nlohmann::json crossSpaceWindowsJson(const std::vector<DumpTrackedWindow>& windows);

}  // namespace zelk::diagnostics
