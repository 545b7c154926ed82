#include "diagnostics/DebugDumpTexts.h"

#include <fmt/format.h>

namespace zelk::diagnostics {

namespace {
std::string head(std::string_view title, std::size_t count) {
    return fmt::format("{}{})\n", title, count);
}

std::string appLine(const DumpApp& app) {
    std::string line = fmt::format("  {}  {}", app.name, app.bundleID.empty() ? "(no bundle)" : app.bundleID);
    if (app.pid) line += fmt::format("  pid={}", *app.pid);
    if (app.activationPolicy) line += fmt::format("  activationPolicy={}", *app.activationPolicy);
    line += '\n';
    return line;
}

std::string appSection(std::string_view title, const std::vector<DumpApp>& apps) {
    std::string out = head(title, apps.size());
    for (const auto& app : apps)
        out += appLine(app);
    return out;
}

std::string assignmentLine(const DumpAssignment& a, bool withOptions) {
    std::string line = fmt::format("  {}  {} ({}", a.key, a.appName, a.bundleID);
    if (withOptions)
        line += fmt::format("  whenAlreadyFocused={})  launchIfNotRunning={}", a.whenAlreadyFocused,
                            a.launchIfNotRunning);
    else
        line += ")";
    line += '\n';
    return line;
}

std::string yesNo(bool flag) {
    return flag ? "yes" : "no";
}

std::string duration(const std::optional<std::int64_t>& ms) {
    return ms ? fmt::format("{} ms", *ms) : std::string("never");
}

std::string joined(const std::vector<std::string>& list) {
    if (list.empty()) return "(none)";
    return fmt::format("{}", fmt::join(list, ", "));
}
}  // namespace

std::string appsText(const DumpAppLists& lists) {
    return fmt::format(
        "{}\n{}\n{}\n{}", appSection("# Relevant apps — RUNNING (", lists.relevantRunning),
        appSection("# Discovered launchable apps — NOT RUNNING (", lists.launchableNotRunning),
        appSection("# Discovered launchable apps — RUNNING but filtered out of relevantApps (",
                   lists.launchableFilteredOut),
        appSection("# All running applications — NOT in relevantApps (", lists.runningNotRelevant));
}

std::string assignmentsText(const DumpAssignments& a) {
    std::string out = head("# Static app assignments (", a.statics.size());
    for (const auto& s : a.statics)
        out += assignmentLine(s, true);
    out += '\n';
    out += head("# Dynamic app assignments (", a.dynamics.size());
    for (const auto& d : a.dynamics)
        out += assignmentLine(d, false);
    out += "\n# Focused-app windows (indented under app row in the OSD)\n";
    if (!a.focusedAppName.empty()) out += fmt::format("  {}\n", a.focusedAppName);
    for (const auto& w : a.focusedAppWindows)
        out += fmt::format("    {}  {}\n", w.key.empty() ? "-" : w.key, w.title);
    out += '\n';
    out += head("# Saved stages (", a.stages.size());
    for (const auto& s : a.stages) {
        out += fmt::format("  {}  {} ({} item(s))\n", s.key, s.name, s.items.size());
        for (const auto& item : s.items)
            out += fmt::format("    {}\n", item);
    }
    return out;
}

std::string tapHealthText(const DumpTapHealth& h) {
    std::string secure = "off";
    if (h.secureInputOn)
        secure = fmt::format("ON, held by {} (key taps are BLIND while this is on)",
                             h.secureInputHolder.value_or("an unknown process"));
    std::string out = "# Key tap health (at dump time)\n";
    out += fmt::format("{}{}\n", "  tap present:            ", yesNo(h.tapPresent));
    out += fmt::format("{}{}\n", "  tap enabled:            ", yesNo(h.tapEnabled));
    out += fmt::format("{}{}\n", "  health monitor active:  ", yesNo(h.monitorActive));
    out += fmt::format("{}{}\n", "  since last tap flagsChanged:     ", duration(h.sinceTapFlagsChangedMs));
    out +=
        fmt::format("{}{}\n", "  since last monitor flagsChanged: ", duration(h.sinceMonitorFlagsChangedMs));
    out += fmt::format("{}{}\n", "  Secure Keyboard Entry:  ", secure);
    out += fmt::format("{}{}\n", "  AX cooldown apps:       ", joined(h.axCooldownApps));
    out += fmt::format("{}{}\n", "  AX session-ignored:     ", joined(h.axSessionIgnored));
    out += fmt::format("{}{}\n", "  AX trusted:             ", yesNo(h.axTrusted));
    out += fmt::format("{}{}\n", "  screen recording:       ", yesNo(h.screenRecording));
    return out;
}

nlohmann::json crossSpaceWindowsJson(const std::vector<DumpTrackedWindow>& windows) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& w : windows) {
        nlohmann::json o;
        o["title"] = w.title;
        o["bundleIdentifier"] = w.bundleIdentifier;
        o["appName"] = w.appName;
        o["appPid"] = w.appPid;
        o["role"] = w.role;
        o["subrole"] = w.subrole;
        o["isMinimized"] = w.isMinimized;
        o["isFocused"] = w.isFocused;
        o["spaceID"] = w.spaceID ? nlohmann::json(*w.spaceID) : nlohmann::json(nullptr);
        o["isOnInactiveSpace"] = w.isOnInactiveSpace;
        out.push_back(std::move(o));
    }
    return out;
}

}  // namespace zelk::diagnostics
