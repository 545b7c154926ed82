// The records of the `debug-*` commands that read what the agent itself holds (the tab cycle, the
// actions on a row, the window watch) rather than one manager.
#include <fmt/format.h>

#include "Agent.h"
#include "DebugService.h"
#include "Subsystems.h"
#include "TabCycleService.h"
#include "apps/AppManager.h"
#include "diagnostics/WindowEventWatch.h"
#include "input/SelectionActions.h"
#include "platform/Platform.h"
#include "stages/StageService.h"
#include "stages/WindowPlacer.h"
#include "support/Format.h"
#include "support/MainQueue.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

using command::DebugRecordAnswer;
using command::ZelkCommand;
using command::ZelkRequest;
using nlohmann::json;

namespace {

double nowMs() {
    return static_cast<double>(ferrow::MainQueue::shared().now()) / 1e6;
}

json rectJson(const Rect& r) {
    return json::array({r.x, r.y, r.width, r.height});
}

// The running app a request names (bundle identifier or name), else the one in front.
std::optional<platform::RunningApp> appOf(apps::AppManager& apps, const ZelkRequest& r) {
    const std::string query = r.bundleID.value_or(r.appQuery.value_or(r.query.value_or("")));
    if (query.empty()) return apps.focusedApp();
    for (const auto& e : apps.runningApps())
        if (e.process.bundleID == query || e.app->lowercasedName() == ferrow::toLowerAscii(query))
            return e.process;
    return std::nullopt;
}

// "0", "1", "2" or the route's name; none when it names no route.
std::optional<platform::PostRoute> routeOf(const std::optional<std::string>& mode) {
    const std::string m = mode.value_or("0");
    if (m == "0" || m == "hidTap") return platform::PostRoute::hidTap;
    if (m == "1" || m == "postToPid") return platform::PostRoute::toPid;
    if (m == "2" || m == "annotatedSessionTap") return platform::PostRoute::annotatedSessionTap;
    return std::nullopt;
}

}  // namespace

void Agent::addAgentDebugRecords(command::DebugProviders& p) {
    auto& cycle = tabCycle_->cycle();
    p.records[ZelkCommand::debugTabCycle] = [&cycle](const ZelkRequest&) {
        json rows = json::array();
        for (const auto& e : cycle.tabCycleEntries.get()) {
            json row{{"rowID", e.rowID()},
                     {"title", e.title},
                     {"app", e.appName},
                     {"bundleID", e.bundleIdentifier}};
            if (e.id) row["windowID"] = e.id;
            if (e.isClosed()) row["closed"] = true;
            if (e.minimised) row["minimized"] = true;
            rows.push_back(std::move(row));
        }
        json out{{"cycling", cycle.cycling()},
                 {"index", cycle.tabCycleIndex.get()},
                 {"filter", cycle.tabCycleSearchBuffer.get()},
                 {"searchDisabled", cycle.tabCycleSearchDisabled},
                 {"rows", std::move(rows)}};
        out["advanceKey"] = cycle.tabCycleAdvanceKey ? json(*cycle.tabCycleAdvanceKey) : json(nullptr);
        out["scopeOverride"] = cycle.tabCycleScopeOverride
                                   ? json(static_cast<int>(*cycle.tabCycleScopeOverride))
                                   : json(nullptr);
        return DebugRecordAnswer{std::move(out), ""};
    };

    auto& apps = subsystems_->apps();
    SelectionActions* actions = selection_.get();
    p.records[ZelkCommand::debugSendCmdN] = [&apps, actions](const ZelkRequest& r) {
        auto route = routeOf(r.mode);
        if (!route) return DebugRecordAnswer{std::nullopt, "debug-send-cmd-n: route must be 0, 1 or 2"};
        auto app = appOf(apps, r);
        if (!app) return DebugRecordAnswer{std::nullopt, "no matching app"};
        actions->postSyntheticCmdN(app->pid, *route);
        return DebugRecordAnswer{
            json{{"route", static_cast<int>(*route)}, {"pid", app->pid}, {"bundleID", app->bundleID}}, ""};
    };

    Subsystems& s = *subsystems_;
    p.records[ZelkCommand::debugPlace] = [&s](const ZelkRequest& r) {
        if (!r.position) return DebugRecordAnswer{std::nullopt, "debug-place: a position is needed"};
        auto placement = stages::placementFromText(*r.position, r.screen, r.padding);
        if (!placement)
            return DebugRecordAnswer{std::nullopt, fmt::format("unknown position '{}'", *r.position)};
        json out{{"placement", stages::describePlacement(*placement)}};
        auto target = s.stages().placer().targetRect(*placement);
        out["frame"] = target ? rectJson(*target) : json(nullptr);
        std::optional<std::uint32_t> id = r.windowID;
        if (!id)
            if (const auto& w = s.windows().focusedWindow()) id = w->id;
        out["windowID"] = id ? json(*id) : json(nullptr);
        auto* server = platform::Platform::current().windowServer;
        auto now = id && server ? server->windowBounds(*id) : std::nullopt;
        out["currentFrame"] = now ? rectJson(*now) : json(nullptr);
        return DebugRecordAnswer{std::move(out), ""};
    };

    if (!watch_) {
        watch_ = std::make_unique<diagnostics::WindowEventWatch>();
        auto& wm = subsystems_->windows();
        watchSubs_.push_back(wm.tracker().windowsObservable().subscribe(
            [w = watch_.get()](const std::vector<windows::ManagedWindow>& list) {
                w->windowsChanged(list, nowMs());
            }));
        watchSubs_.push_back(wm.focusPipeline().focusedWindowObservable().subscribe(
            [w = watch_.get()](const std::optional<windows::ManagedWindow>& f) {
                w->focusChanged(f, nowMs());
            }));
    }
    diagnostics::WindowEventWatch* watch = watch_.get();
    p.records[ZelkCommand::debugWatchStart] = [watch, &s](const ZelkRequest& r) {
        if (r.seconds && !(*r.seconds > 0 && *r.seconds <= 3600))
            return DebugRecordAnswer{std::nullopt,
                                     "debug-watch-start: seconds must be more than 0 and at most 3600"};
        const double seconds = r.seconds.value_or(diagnostics::WindowEventWatch::kDefaultSeconds);
        const auto& focused = s.windows().focusedWindow();
        watch->start(seconds, nowMs(), s.windows().windows(),
                     focused ? std::optional<std::uint32_t>(focused->id) : std::nullopt);
        return DebugRecordAnswer{json{{"watching", true}, {"seconds", seconds}, {"events", json::array()}},
                                 ""};
    };
    p.records[ZelkCommand::debugWatchFetch] = [watch](const ZelkRequest&) {
        return DebugRecordAnswer{watch->fetch(nowMs()), ""};
    };
}

}  // namespace zelk::agent
