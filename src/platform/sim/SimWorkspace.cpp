#include "platform/sim/SimWorkspace.h"

#include "support/MainQueue.h"

namespace zelk::sim {

using platform::WorkspaceEvent;
using platform::WorkspaceEventKind;

SimWorkspace::SimWorkspace(SimWorld& world) : world_(world) {
    lastRunning_ = world_.runningApps();
    subscription_ = world_.changes.subscribe([this](const WorldChange& c) { onChange(c); });
}
SimWorkspace::~SimWorkspace() = default;

bool SimWorkspace::activate(std::int32_t pid, bool) {
    return world_.activate(pid);
}

platform::InstalledApp SimWorkspace::installed(const SimApp& app) const {
    platform::InstalledApp i;
    i.path = app.path;
    i.bundleID = app.bundleID;
    i.name = app.name;
    i.bundleName = app.name;
    i.executablePath = app.path + "/Contents/MacOS/" + app.name;
    i.isAgent = app.kind != AppKind::regular;
    return i;
}

void SimWorkspace::openApplication(const std::string& path, const platform::OpenConfiguration& config,
                                   std::function<void(platform::LaunchResult)> completion) {
    SimApp* target = nullptr;
    for (auto& a : world_.apps())
        if (a.path == path) target = &a;
    auto finish = [completion](platform::LaunchResult r) {
        if (completion) ferrow::mainAsync([completion, r] { completion(r); });
    };
    if (!target || (!target->installed && !target->running)) {
        finish({std::nullopt, "The application can't be opened."});
        return;
    }
    std::string bundle = target->bundleID;
    world_.launch(bundle, config.activates, [this, finish](std::optional<std::int32_t> pid) {
        if (!pid) {
            finish({std::nullopt, "The application failed to launch."});
            return;
        }
        finish({world_.runningApp(*pid), ""});
    });
}

void SimWorkspace::open(const std::string& url, const std::string& appPath,
                        const platform::OpenConfiguration& config,
                        std::function<void(platform::LaunchResult)> completion) {
    opened.emplace_back(url, appPath);
    if (appPath.empty()) {
        if (completion) ferrow::mainAsync([completion] { completion({std::nullopt, ""}); });
        return;
    }
    openApplication(appPath, config, std::move(completion));
}

std::vector<std::string> SimWorkspace::applicationDirectories() {
    return {"/Applications", "/System/Applications", "/System/Applications/Utilities",
            "/Applications/Utilities"};
}

void SimWorkspace::queryInstalledApps(std::function<void(std::vector<platform::InstalledApp>)> results) {
    std::vector<platform::InstalledApp> list;
    for (auto& a : world_.apps())
        if (a.installed) list.push_back(installed(a));
    ferrow::mainAsync([results, list] { results(list); });
}

std::optional<platform::InstalledApp> SimWorkspace::bundleInfo(const std::string& path) {
    for (auto& a : world_.apps())
        if (a.path == path && a.installed) return installed(a);
    return std::nullopt;
}

std::optional<platform::FileIdentity> SimWorkspace::fileIdentity(const std::string& path) {
    for (auto& a : world_.apps())
        if (a.installed && (a.path == path || a.path + "/Contents/MacOS/" + a.name == path))
            return a.identity;
    return std::nullopt;
}

bool SimWorkspace::fileExists(const std::string& path) {
    for (auto& a : world_.apps())
        if (a.installed && a.path == path) return true;
    return false;
}

void SimWorkspace::onChange(const WorldChange& c) {
    using K = WorldChange::Kind;
    auto post = [this](WorkspaceEvent e) { ferrow::mainAsync([this, e] { publish(e); }); };
    auto appEvent = [&](WorkspaceEventKind kind) {
        WorkspaceEvent e{kind};
        e.app = world_.runningApp(c.pid);
        if (!e.app) {
            platform::RunningApp gone;
            gone.pid = c.pid;
            gone.bundleID = c.bundleID;
            gone.terminated = true;
            if (SimApp* a = world_.app(c.bundleID)) gone.name = a->name;
            e.app = gone;
        }
        post(e);
    };
    switch (c.kind) {
        case K::appRunning:
        case K::terminate: {
            appEvent(c.kind == K::appRunning ? WorkspaceEventKind::didLaunch
                                             : WorkspaceEventKind::didTerminate);
            WorkspaceEvent e{WorkspaceEventKind::runningApplicationsChanged};
            e.oldApps = lastRunning_;
            e.newApps = world_.runningApps();
            lastRunning_ = e.newApps;
            post(e);
            break;
        }
        case K::activate:
            appEvent(WorkspaceEventKind::didActivate);
            break;
        case K::hide:
            appEvent(WorkspaceEventKind::didHide);
            break;
        case K::unhide:
            appEvent(WorkspaceEventKind::didUnhide);
            break;
        case K::space:
            post(WorkspaceEvent{WorkspaceEventKind::activeSpaceDidChange});
            break;
        default:
            break;
    }
}

}  // namespace zelk::sim
