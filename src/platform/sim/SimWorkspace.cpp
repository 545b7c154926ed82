#include "platform/sim/SimWorkspace.h"

#include <algorithm>

#include "support/MainQueue.h"

namespace zelk::sim {

using platform::WorkspaceEvent;
using platform::WorkspaceEventKind;

SimWorkspace::SimWorkspace(SimWorld& world) : world_(world) {
    lastRunning_ = world_.runningApps();
    subscription_ = world_.changes.subscribe([this](const WorldChange& c) { onChange(c); });
}

platform::RunningApp SimWorkspace::withLaunchIdentity(platform::RunningApp app) const {
    if (identityUnavailable.count(app.bundleID)) {
        app.executableIdentity.reset();
        return app;
    }
    auto it = launchIdentity_.find(app.pid);
    if (it != launchIdentity_.end()) app.executableIdentity = it->second;
    return app;
}

std::vector<platform::RunningApp> SimWorkspace::runningApplications() {
    auto apps = world_.runningApps();
    for (auto& a : apps) {
        // Apps started with the world ran before anyone watched: what runs is what was on disk then.
        if (!launchIdentity_.count(a.pid) && a.executableIdentity)
            launchIdentity_[a.pid] = *a.executableIdentity;
        a = withLaunchIdentity(a);
    }
    return apps;
}

std::optional<platform::RunningApp> SimWorkspace::runningApp(std::int32_t pid) {
    auto app = world_.runningApp(pid);
    if (!app) return std::nullopt;
    if (!launchIdentity_.count(pid) && app->executableIdentity)
        launchIdentity_[pid] = *app->executableIdentity;
    return withLaunchIdentity(*app);
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
    auto extras = bundleExtras.find(app.bundleID);
    if (extras != bundleExtras.end()) {
        i.useCount = extras->second.useCount;
        i.category = extras->second.category;
    }
    return i;
}

void SimWorkspace::openApplication(const std::string& path, const platform::OpenConfiguration& config,
                                   std::function<void(platform::LaunchResult)> completion) {
    openedApplications.push_back(path);
    auto atPath = world_.appsAtPath(path);
    SimApp* target = atPath.empty() ? nullptr : atPath.back();
    auto finish = [completion](platform::LaunchResult r) {
        if (completion) ferrow::mainAsync([completion, r] { completion(r); });
    };
    if (!target || (!target->installed && !target->running)) {
        finish({std::nullopt, "The application can't be opened."});
        return;
    }
    std::string bundle = target->bundleID;
    if (!config.arguments.empty() && config.arguments.front().find("://") != std::string::npos) {
        // A browser started with an address opens it in a window of its own.
        world_.openDocument(bundle, config.arguments.front(), config.activates);
        if (completion)
            ferrow::mainAsync([this, bundle, completion] {
                SimApp* app = world_.app(bundle);
                completion({app && app->running ? world_.runningApp(app->pid) : std::nullopt, ""});
            });
        return;
    }
    if (launchesWithoutPid.count(bundle)) {
        // The system accepted the open but names no process.
        platform::RunningApp none;
        none.pid = -1;
        none.bundleID = bundle;
        none.name = target->name;
        finish({none, ""});
        return;
    }
    if (target->running && !config.createsNewInstance) {
        // A running copy whose bundle on disk was replaced: the open starts the new binary. The
        // simulated process stays the same one, now running what is on disk.
        launchIdentity_[target->pid] = target->identity;
    }
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
    auto atPath = world_.appsAtPath(appPath);
    SimApp* target = atPath.empty() ? nullptr : atPath.back();
    if (target && !url.empty()) {
        // The app opens the document, URL or folder in a window of its own.
        std::string bundle = target->bundleID;
        if (!world_.openDocument(bundle, url, config.activates)) {
            if (completion)
                ferrow::mainAsync([completion] {
                    completion({std::nullopt, "The application can't be opened."});
                });
            return;
        }
        if (completion)
            ferrow::mainAsync([this, bundle, completion] {
                SimApp* app = world_.app(bundle);
                if (app && app->running)
                    completion({world_.runningApp(app->pid), ""});
                else
                    completion({std::nullopt, ""});
            });
        return;
    }
    openApplication(appPath, config, std::move(completion));
}

std::vector<std::string> SimWorkspace::applicationDirectories() {
    return {"/Applications", "/System/Applications", "/System/Applications/Utilities",
            "/Applications/Utilities"};
}

ferrow::Subscription SimWorkspace::queryInstalledApps(
    bool live, std::function<void(std::vector<platform::InstalledApp>)> results) {
    auto query = std::make_shared<Query>(Query{live, std::move(results)});
    queries_.push_back(query);
    deliver(query);
    std::weak_ptr<Query> weak = query;
    return ferrow::Subscription([this, weak] {
        auto q = weak.lock();
        std::erase(queries_, q);
    });
}

void SimWorkspace::deliver(std::weak_ptr<Query> weak) {
    // Gathering reads the index when it finishes, so a change during it is in the delivery.
    ferrow::mainAsyncAfter(queryGatherMs, [this, weak] {
        auto query = weak.lock();
        if (!query) return;
        std::vector<platform::InstalledApp> list;
        for (auto& a : world_.apps())
            if (a.installed) list.push_back(installed(a));
        if (!query->live) std::erase(queries_, query);
        query->results(list);
    });
}

int SimWorkspace::liveQueryCount() const {
    int n = 0;
    for (auto& q : queries_)
        n += q->live ? 1 : 0;
    return n;
}

void SimWorkspace::installedAppsChanged(const std::vector<std::string>& changedPaths) {
    for (auto& q : queries_)
        if (q->live) deliver(q);
    for (const auto& path : changedPaths) {
        auto slash = path.rfind('/');
        std::string folder = slash == std::string::npos ? path : path.substr(0, slash);
        for (auto& [id, watch] : watches_) {
            if (std::find(watch.folders.begin(), watch.folders.end(), folder) == watch.folders.end())
                continue;
            auto changed = watch.changed;
            platform::FolderEvent event{path, 0x100};
            int watchID = id;
            ferrow::mainAsync([this, watchID, changed, event] {
                if (watches_.count(watchID)) changed(event);
            });
        }
    }
}

bool SimWorkspace::folderExists(const std::string& folder) const {
    for (const auto& dir : const_cast<SimWorkspace*>(this)->applicationDirectories())
        if (dir == folder) return true;
    for (auto& a : world_.apps())
        if (a.installed && a.path.rfind(folder + "/", 0) == 0) return true;
    return extraFiles.count(folder) > 0;
}

platform::FolderWatchHandle SimWorkspace::watchFolders(
    const std::vector<std::string>& folders, std::function<void(const platform::FolderEvent&)> changed) {
    platform::FolderWatchHandle result;
    if (folderWatchFails) {
        result.error = "The folder watch could not be created.";
        return result;
    }
    Watch watch;
    for (const auto& f : folders)
        if (folderExists(f)) watch.folders.push_back(f);
    watch.changed = std::move(changed);
    int id = nextWatch_++;
    watches_[id] = std::move(watch);
    result.handle = ferrow::Subscription([this, id] { watches_.erase(id); });
    return result;
}

void SimWorkspace::readMenuBarFlags(std::vector<std::string> bundlePaths,
                                    std::function<void(std::vector<bool>)> done) {
    // The flags are those of the bundles when the read happens, at the end of the delay.
    ferrow::mainAsyncAfter(bundleReadDelayMs, [this, bundlePaths, done] {
        std::vector<bool> flags;
        for (const auto& path : bundlePaths) {
            auto atPath = world_.appsAtPath(path);
            flags.push_back(!atPath.empty() && atPath.back()->kind != AppKind::regular);
        }
        done(flags);
    });
}

std::optional<platform::InstalledApp> SimWorkspace::bundleInfo(const std::string& path) {
    for (auto* a : world_.appsAtPath(path))
        if (a->installed || a->running) return installed(*a);
    return std::nullopt;
}

std::optional<std::string> SimWorkspace::urlForApplication(const std::string& bundleID) {
    for (auto& a : world_.apps())
        if (a.bundleID == bundleID && a.installed) return a.path;
    return std::nullopt;
}

std::optional<platform::FileIdentity> SimWorkspace::fileIdentity(const std::string& path) {
    auto* a = world_.appAtFile(path, [](const SimApp& app) { return app.installed || app.running; });
    if (a) return a->identity;
    return std::nullopt;
}

bool SimWorkspace::fileExists(const std::string& path) {
    if (extraFiles.count(path)) return true;
    return world_.appAtFile(path, [](const SimApp& app) { return app.installed; }) != nullptr;
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
            if (c.kind == K::appRunning) {
                if (SimApp* a = world_.appByPid(c.pid)) launchIdentity_[c.pid] = a->identity;
            } else {
                launchIdentity_.erase(c.pid);
            }
            // A lost launch notice: the app runs, but nobody hears that it launched.
            if (c.kind == K::terminate || !world_.faults.launchNoticeLost.count(c.bundleID))
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
            // Leaving the front is heard first, and only from an app still running.
            if (c.previousPid && c.previousPid != c.pid)
                if (auto previous = world_.runningApp(c.previousPid)) {
                    WorkspaceEvent e{WorkspaceEventKind::didDeactivate};
                    e.app = previous;
                    post(e);
                }
            appEvent(WorkspaceEventKind::didActivate);
            break;
        case K::hide:
            appEvent(WorkspaceEventKind::didHide);
            break;
        case K::unhide:
            appEvent(WorkspaceEventKind::didUnhide);
            break;
        case K::space:
            if (!world_.faults.spaceNoticesLost)
                post(WorkspaceEvent{WorkspaceEventKind::activeSpaceDidChange});
            break;
        case K::screens:
            post(WorkspaceEvent{WorkspaceEventKind::screenParametersChanged});
            break;
        default:
            break;
    }
}

}  // namespace zelk::sim
