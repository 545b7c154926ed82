#include "DebugService.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "Subsystems.h"
#include "apps/AppManager.h"
#include "diagnostics/DebugDumpTexts.h"
#include "input/InputManager.h"
#include "platform/Platform.h"
#include "stages/StageService.h"
#include "support/Format.h"
#include "support/MainQueue.h"
#include "windows/AXReader.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

namespace {
using nlohmann::json;
namespace d = diagnostics;

std::string policyName(platform::ActivationPolicy p) {
    switch (p) {
        case platform::ActivationPolicy::regular:
            return "regular";
        case platform::ActivationPolicy::accessory:
            return "accessory";
        case platform::ActivationPolicy::prohibited:
            return "prohibited";
    }
    return "unknown";
}

json rectJson(const Rect& r) {
    return json{{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

// The window server's list, every row as its dictionary.
json windowServerList() {
    json out = json::array();
    auto* ws = platform::Platform::current().windowServer;
    if (!ws) return out;
    for (const auto& w : ws->windowList(0, 0)) {
        json row{
            {"number", w.number},         {"ownerPID", w.ownerPID},       {"ownerName", w.ownerName},
            {"layer", w.layer},           {"bounds", rectJson(w.bounds)}, {"alpha", w.alpha},
            {"isOnscreen", w.isOnscreen}, {"memoryUsage", w.memoryUsage}, {"sharingState", w.sharingState},
            {"storeType", w.storeType}};
        if (w.name) row["name"] = *w.name;
        out.push_back(std::move(row));
    }
    return out;
}

// Accessibility's windows of one process.
json axWindowsOf(std::int32_t pid) {
    json windows = json::array();
    auto* ax = platform::Platform::current().accessibility;
    if (!ax) return windows;
    windows::AXReader reader(*ax);
    platform::AXError error{};
    auto list = reader.windows(reader.application(pid), error);
    if (!list) return json{{"error", static_cast<int>(error)}};
    for (const auto& w : *list)
        windows.push_back(json{{"title", reader.string(w, "AXTitle").value_or("")},
                               {"role", reader.string(w, "AXRole").value_or("")},
                               {"subrole", reader.string(w, "AXSubrole").value_or("")},
                               {"minimized", reader.boolean(w, "AXMinimized").value_or(false)},
                               {"windowNumber", ax->windowNumber(w)}});
    return windows;
}

json axWindows(apps::AppManager& apps) {
    json out = json::array();
    for (const auto& e : apps.runningApps())
        out.push_back(json{{"bundleID", e.process.bundleID},
                           {"name", e.process.name},
                           {"pid", e.process.pid},
                           {"windows", axWindowsOf(e.process.pid)}});
    return out;
}

std::vector<d::DumpTrackedWindow> trackedWindows(windows::WindowManager& wm) {
    auto* ws = platform::Platform::current().windowServer;
    std::uint64_t active = ws ? ws->activeSpace() : 0;
    std::vector<d::DumpTrackedWindow> out;
    for (const auto& w : wm.windows()) {
        d::DumpTrackedWindow t;
        t.title = w.title;
        t.bundleIdentifier = w.bundleIdentifier;
        t.appName = w.appName;
        t.appPid = w.appPid;
        t.role = std::string(windows::roleName(w.role));
        t.subrole = std::string(windows::subroleName(w.subrole));
        t.isMinimized = w.isMinimized;
        t.isFocused = w.isFocused;
        t.spaceID = w.spaceID;
        t.isOnInactiveSpace = w.spaceID && active && *w.spaceID != active;
        out.push_back(std::move(t));
    }
    return out;
}

d::DumpApp dumpApp(const platform::RunningApp& p, const std::string& name) {
    return {name.empty() ? p.name : name, p.bundleID, p.pid, policyName(p.activationPolicy)};
}

d::DumpAppLists appLists(apps::AppManager& apps) {
    d::DumpAppLists lists;
    std::set<std::int32_t> relevantPIDs;
    for (const auto& e : apps.runningApps()) {
        lists.relevantRunning.push_back(dumpApp(e.process, e.app->name()));
        relevantPIDs.insert(e.process.pid);
    }
    for (const auto& app : apps.catalogue().apps()) {
        auto running = apps.runningApp(*app);
        if (!running)
            lists.launchableNotRunning.push_back(
                {app->name(), app->bundleIdentifier(), std::nullopt, std::nullopt});
        else if (!relevantPIDs.count(running->pid))
            lists.launchableFilteredOut.push_back(dumpApp(*running, app->name()));
    }
    for (const auto& p : apps.allRunningApps())
        if (!relevantPIDs.count(p.pid)) lists.runningNotRelevant.push_back(dumpApp(p, ""));
    return lists;
}

d::DumpAssignment dumpAssignment(const apps::AppKeyAssignment& a) {
    return {a.key, a.app ? a.app->name() : "", a.app ? a.app->bundleIdentifier() : "",
            std::to_string(zelk::rawValue(a.whenAlreadyFocusedAction)), a.launchIfNotRunning};
}

d::DumpAssignments assignments(apps::AppManager& apps, stages::StageService& stages) {
    d::DumpAssignments out;
    for (const auto& a : apps.appKeyAssignments())
        out.statics.push_back(dumpAssignment(a));
    for (const auto& a : apps.dynamicAppKeyAssignments())
        out.dynamics.push_back(dumpAssignment(a));
    if (const auto& focused = apps.focusedApp()) out.focusedAppName = focused->name;
    for (const auto& [key, rows] : apps.focusedAppWindowsByKey())
        for (const auto& w : rows)
            out.focusedAppWindows.push_back({key, w.title});
    for (const auto& s : stages.directory().stages()) {
        d::DumpStage stage{s.key, s.name, {}};
        for (const auto& item : s.items)
            stage.items.push_back(
                fmt::format("{} — {}", item.app ? item.app->name() : "?", stages::describe(item.windowSpec)));
        out.stages.push_back(std::move(stage));
    }
    return out;
}

d::DumpTapHealth tapHealth(apps::AppManager& apps, windows::WindowManager& wm) {
    auto& platform = platform::Platform::current();
    auto& input = InputManager::shared();
    auto& queue = ferrow::MainQueue::shared();
    d::DumpTapHealth h;
    if (auto* tap = platform.eventTap) {
        h.tapPresent = tap->tapExists();
        h.tapEnabled = h.tapPresent && tap->isTapEnabled();
        h.secureInputOn = tap->secureEventInputEnabled();
        if (h.secureInputOn)
            if (auto pid = tap->secureInputPID(); pid && platform.workspace)
                if (auto app = platform.workspace->runningApp(*pid)) h.secureInputHolder = app->name;
    }
    h.monitorActive = input.health().started();
    auto since = [&](ferrow::Nanos at) -> std::optional<std::int64_t> {
        if (at <= 0) return std::nullopt;
        return (queue.now() - at) / 1'000'000;
    };
    h.sinceTapFlagsChangedMs = since(input.lastTapFlagsChangedAt);
    h.sinceMonitorFlagsChangedMs = since(input.lastGlobalFlagsChangedAt);
    auto& ax = wm.tracker().health();
    for (const auto& e : apps.runningApps()) {
        if (ax.inCooldown(e.process.pid, queue.now())) h.axCooldownApps.push_back(e.process.name);
        if (ax.isSessionIgnored(e.process.bundleID)) h.axSessionIgnored.push_back(e.process.name);
    }
    h.axTrusted = platform.accessibility && platform.accessibility->isProcessTrusted();
    h.screenRecording = platform.windowServer && platform.windowServer->screenCaptureAccess();
    return h;
}

json tapRecord(const d::DumpTapHealth& h) {
    json r{{"tapPresent", h.tapPresent},
           {"tapEnabled", h.tapEnabled},
           {"healthMonitorActive", h.monitorActive},
           {"secureKeyboardEntry", h.secureInputOn},
           {"axCooldownApps", h.axCooldownApps},
           {"axSessionIgnored", h.axSessionIgnored},
           {"axTrusted", h.axTrusted},
           {"screenRecording", h.screenRecording}};
    if (h.sinceTapFlagsChangedMs) r["msSinceTapFlagsChanged"] = *h.sinceTapFlagsChangedMs;
    if (h.sinceMonitorFlagsChangedMs) r["msSinceMonitorFlagsChanged"] = *h.sinceMonitorFlagsChangedMs;
    if (h.secureInputHolder) r["secureKeyboardEntryHolder"] = *h.secureInputHolder;
    return r;
}

// Where no platform runs programs: every program is missing.
class NoProcesses final : public platform::Processes {
  public:
    platform::ProcessResult run(const platform::ProcessRequest&) override { return {}; }
    std::optional<std::string> runScript(const std::string&, std::string*) override { return std::nullopt; }
};

json assignmentJson(const apps::AppKeyAssignment& a) {
    return json{{"key", a.key},
                {"bundleID", a.app ? a.app->bundleIdentifier() : ""},
                {"appName", a.app ? a.app->name() : ""},
                {"whenAlreadyFocusedAction", zelk::rawValue(a.whenAlreadyFocusedAction)},
                {"launchIfNotRunning", a.launchIfNotRunning}};
}
}  // namespace

DebugService::DebugService(Subsystems& subsystems, Options options) : subsystems_(subsystems) {
    d::DebugDumpOptions o;
    std::error_code ec;
    o.outputFolder =
        options.outputFolder.empty() ? std::filesystem::temp_directory_path(ec) : options.outputFolder;
    o.configFile = options.configFile;
    o.searchCacheFile = options.searchCacheFile;
    platform::Processes* processes =
        options.processes ? options.processes : platform::Platform::current().processes;
    static NoProcesses none;
    if (!processes) processes = &none;
    dump_ = std::make_unique<d::DebugDump>([this] { return snapshot(); }, *processes, std::move(o));
}

DebugService::~DebugService() = default;

d::DebugDumpSnapshot DebugService::snapshot() {
    auto& apps = subsystems_.apps();
    auto& wm = subsystems_.windows();
    d::DebugDumpSnapshot s;
    s.cgWindowsData = windowServerList().dump(2);
    s.axWindowsData = axWindows(apps).dump(2);
    s.crossSpaceData = d::crossSpaceWindowsJson(trackedWindows(wm)).dump(2);
    s.appsText = d::appsText(appLists(apps));
    s.assignmentsText = d::assignmentsText(assignments(apps, subsystems_.stages()));
    s.tapHealthText = d::tapHealthText(tapHealth(apps, wm));
    return s;
}

command::DebugProviders DebugService::providers() {
    command::DebugProviders p;
    p.startDump = [this](std::optional<double> seconds) {
        if (!dump_->start(seconds)) return false;
        everStarted_ = true;
        return true;
    };
    p.dumpStatus = [this] {
        command::DebugDumpStatus s;
        s.everStarted = everStarted_;
        s.running = dump_->progress().isRunning;
        s.phase = dump_->progress().phase;
        if (auto outcome = dump_->lastOutcome(); outcome && !s.running) {
            s.ok = outcome->ok;
            s.archive = outcome->archive;
            s.folder = outcome->folder;
            s.error = outcome->error;
        }
        return s;
    };
    using command::DebugRecordAnswer;
    using command::ZelkCommand;
    auto& apps = subsystems_.apps();
    auto& wm = subsystems_.windows();
    p.records[ZelkCommand::debugTap] = [&apps, &wm](const command::ZelkRequest&) {
        return DebugRecordAnswer{tapRecord(tapHealth(apps, wm)), ""};
    };
    p.records[ZelkCommand::debugKeys] = [&apps](const command::ZelkRequest&) {
        json statics = json::array(), dynamics = json::array();
        for (const auto& a : apps.appKeyAssignments())
            statics.push_back(assignmentJson(a));
        for (const auto& a : apps.dynamicAppKeyAssignments())
            dynamics.push_back(assignmentJson(a));
        return DebugRecordAnswer{json{{"static", statics}, {"dynamic", dynamics}}, ""};
    };
    p.records[ZelkCommand::debugLiveWindows] = [&wm](const command::ZelkRequest&) {
        // What window tracking holds against what the window server lists right now.
        std::set<std::uint32_t> tracked, live;
        for (const auto& w : wm.windows())
            tracked.insert(w.id);
        if (auto* ws = platform::Platform::current().windowServer)
            for (const auto& w : ws->windowList(0, 0))
                if (w.layer == 0) live.insert(w.number);
        json missing = json::array(), untracked = json::array();
        for (auto id : tracked)
            if (!live.count(id)) missing.push_back(id);
        for (auto id : live)
            if (!tracked.count(id)) untracked.push_back(id);
        return DebugRecordAnswer{json{{"tracked", tracked.size()},
                                      {"live", live.size()},
                                      {"trackedButNotLive", missing},
                                      {"liveButNotTracked", untracked}},
                                 ""};
    };
    p.records[ZelkCommand::debugSpacesTree] = [](const command::ZelkRequest&) {
        json displays = json::array();
        auto* ws = platform::Platform::current().windowServer;
        if (!ws) return DebugRecordAnswer{std::nullopt, "no window server"};
        for (const auto& display :
             ws->managedDisplaySpaces().value_or(std::vector<platform::DisplaySpaces>{})) {
            json spaces = json::array();
            int index = 0;
            for (const auto& space : display.spaces)
                spaces.push_back(json{{"index", ++index},
                                      {"id", space.id64},
                                      {"type", space.type},
                                      {"isCurrent", space.id64 == display.currentSpace.id64},
                                      {"windows", ws->windowsOnSpace(space.id64, 0)}});
            displays.push_back(json{{"display", display.displayIdentifier}, {"spaces", spaces}});
        }
        return DebugRecordAnswer{json{{"activeSpace", ws->activeSpace()}, {"displays", displays}}, ""};
    };
    p.records[ZelkCommand::debugWindowKeys] = [&apps](const command::ZelkRequest&) {
        json rows = json::array();
        for (const auto& [key, windows] : apps.focusedAppWindowsByKey())
            for (const auto& w : windows)
                rows.push_back(
                    json{{"key", key}, {"windowID", w.id}, {"title", w.title}, {"focused", w.focused}});
        const auto& focused = apps.focusedApp();
        return DebugRecordAnswer{
            json{{"bundleID", focused ? json(focused->bundleID) : json(nullptr)}, {"rows", rows}}, ""};
    };
    p.records[ZelkCommand::debugAX] = [&apps](const command::ZelkRequest& r) {
        std::optional<platform::RunningApp> target = apps.focusedApp();
        std::string query = r.bundleID.value_or(r.query.value_or(r.appQuery.value_or("")));
        if (!query.empty()) {
            target.reset();
            for (const auto& e : apps.runningApps())
                if (e.process.bundleID == query || e.app->lowercasedName() == ferrow::toLowerAscii(query)) {
                    target = e.process;
                    break;
                }
        }
        if (!target)
            return DebugRecordAnswer{std::nullopt, query.empty() ? "no frontmost app" : "no matching app"};
        auto* ax = platform::Platform::current().accessibility;
        return DebugRecordAnswer{json{{"bundleID", target->bundleID},
                                      {"pid", target->pid},
                                      {"trusted", ax && ax->isProcessTrusted()},
                                      {"windows", axWindowsOf(target->pid)}},
                                 ""};
    };
    return p;
}

}  // namespace zelk::agent
