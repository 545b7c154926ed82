#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/x11/X11Desktop.h"
#include "support/Log.h"
#include "support/MainQueue.h"

extern char** environ;

namespace zelk::x11 {

using ferrow::Log;
using platform::WorkspaceEvent;
using platform::WorkspaceEventKind;

namespace {

bool onDesktop(const Client& c, std::uint32_t desktop) {
    return c.sticky || c.desktop == desktop;
}

platform::InstalledApp installedFrom(const DesktopEntry& e) {
    platform::InstalledApp i;
    i.path = e.path;
    i.bundleID = e.identifier();
    i.name = e.name;
    i.bundleName = e.name;
    auto args = execArguments(e.exec);
    i.executablePath = args.empty() ? "" : args.front();
    i.category = e.categories;
    i.isAgent = e.hidden;
    return i;
}

std::optional<DesktopEntry> readEntry(const std::string& path) {
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    return parseDesktopEntry(text.str(), path);
}

// Starts a program detached from zelk's own life; the child is reaped in the background.
std::optional<pid_t> spawnDetached(const std::vector<std::string>& arguments, std::string& error) {
    if (arguments.empty()) {
        error = "nothing to run";
        return std::nullopt;
    }
    std::vector<std::string> args = arguments;
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSID);
    pid_t pid = 0;
    int rc = posix_spawnp(&pid, args.front().c_str(), nullptr, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        error = std::string("cannot start ") + args.front() + ": " + std::strerror(rc);
        return std::nullopt;
    }
    std::thread([pid] { ::waitpid(pid, nullptr, 0); }).detach();
    return pid;
}

}  // namespace

std::vector<platform::RunningApp> X11Workspace::runningApplications() {
    return d_.apps(*d_.snapshot());
}

std::optional<platform::RunningApp> X11Workspace::frontmostApplication() {
    auto snap = d_.snapshot();
    const Client* c = snap->client(snap->active);
    if (!c) return std::nullopt;
    return runningApp(c->pid);
}

std::optional<platform::RunningApp> X11Workspace::runningApp(std::int32_t pid) {
    for (auto& a : runningApplications())
        if (a.pid == pid) return a;
    return std::nullopt;
}

std::int32_t X11Workspace::ownPID() {
    return static_cast<std::int32_t>(::getpid());
}

std::string X11Workspace::homeDirectory() {
    const char* home = std::getenv("HOME");
    return home ? home : "/";
}

bool X11Workspace::activate(std::int32_t pid, bool allWindows) {
    auto snap = d_.snapshot();
    std::vector<const Client*> mine;  // bottom to top, the current desktop's first choice last
    for (auto& c : snap->clients)
        if (c.pid == pid) mine.push_back(&c);
    if (mine.empty()) return false;
    const Client* target = nullptr;
    for (auto* c : mine)
        if (onDesktop(*c, snap->currentDesktop) && !c->hidden) target = c;
    if (!target)
        for (auto* c : mine)
            if (onDesktop(*c, snap->currentDesktop)) target = c;
    // An app with windows only elsewhere comes front where its top window is.
    if (!target) {
        target = mine.back();
        d_.conn().switchDesktop(target->desktop);
    }
    if (allWindows)
        for (auto* c : mine)
            if (c != target && onDesktop(*c, snap->currentDesktop)) d_.conn().activate(c->id);
    d_.conn().activate(target->id);
    return true;
}

bool X11Workspace::hide(std::int32_t pid) {
    bool any = false;
    for (auto& c : d_.snapshot()->clients)
        if (c.pid == pid && !c.hidden) {
            d_.conn().minimize(c.id);
            any = true;
        }
    return any;
}

bool X11Workspace::unhide(std::int32_t pid) {
    auto snap = d_.snapshot();
    bool any = false;
    for (auto& c : snap->clients)
        if (c.pid == pid && c.hidden && onDesktop(c, snap->currentDesktop)) {
            d_.conn().activate(c.id);
            any = true;
        }
    return any;
}

bool X11Workspace::terminate(std::int32_t pid) {
    // A polite quit: every window is asked to close (WM_DELETE_WINDOW through the window manager).
    bool any = false;
    for (auto& c : d_.snapshot()->clients)
        if (c.pid == pid) {
            d_.conn().close(c.id);
            any = true;
        }
    return any;
}

bool X11Workspace::forceTerminate(std::int32_t pid) {
    if (pid <= 1 || pid == ownPID()) return false;
    return ::kill(pid, SIGTERM) == 0;
}

void X11Workspace::openApplication(const std::string& path, const platform::OpenConfiguration& config,
                                   std::function<void(platform::LaunchResult)> completion) {
    auto finish = [completion](platform::LaunchResult r) {
        if (completion) ferrow::mainAsync([completion, r] { completion(r); });
    };
    if (path.starts_with(kClassPathPrefix)) {
        // Known by its windows only: nothing to start, but a running copy comes front.
        std::string cls = path.substr(kClassPathPrefix.size());
        for (auto& app : runningApplications())
            if (app.bundleID == cls) {
                activate(app.pid, false);
                finish({app, ""});
                return;
            }
        finish({std::nullopt, "The application can't be opened."});
        return;
    }
    auto entry = readEntry(path);
    if (!entry) {
        finish({std::nullopt, "The application can't be opened."});
        return;
    }
    auto args = execArguments(entry->exec);
    args.insert(args.end(), config.arguments.begin(), config.arguments.end());
    std::string error;
    auto pid = spawnDetached(args, error);
    if (!pid) {
        Log::error("launch: {}", error);
        finish({std::nullopt, "The application failed to launch."});
        return;
    }
    platform::RunningApp app;
    app.pid = *pid;
    app.bundleID = entry->identifier();
    app.name = entry->name;
    app.bundlePath = entry->path;
    app.finishedLaunching = false;
    finish({app, ""});
}

void X11Workspace::open(const std::string& url, const std::string& appPath,
                        const platform::OpenConfiguration& config,
                        std::function<void(platform::LaunchResult)> completion) {
    if (!appPath.empty()) {
        platform::OpenConfiguration withURL = config;
        withURL.arguments.push_back(url);
        openApplication(appPath, withURL, std::move(completion));
        return;
    }
    std::string error;
    auto pid = spawnDetached({"xdg-open", url}, error);
    if (completion)
        ferrow::mainAsync([completion, ok = pid.has_value(), error] {
            completion({std::nullopt, ok ? "" : error});
        });
}

ferrow::Subscription X11Workspace::queryInstalledApps(
    bool live, std::function<void(std::vector<platform::InstalledApp>)> results) {
    auto alive = std::make_shared<bool>(true);
    auto deliver = [this, alive, results] {
        if (!*alive) return;
        d_.rescanEntries();
        std::vector<platform::InstalledApp> list;
        for (auto& e : d_.entries())
            list.push_back(installedFrom(e));
        results(list);
    };
    ferrow::mainAsync(deliver);
    ferrow::Subscription watch;
    if (live) {
        // A live query gathers again whenever an applications folder changes.
        auto handle =
            watchFolders(applicationFolders(), [deliver](const platform::FolderEvent&) { deliver(); });
        watch = std::move(handle.handle);
    }
    auto shared = std::make_shared<ferrow::Subscription>(std::move(watch));
    return ferrow::Subscription([alive, shared] {
        *alive = false;
        shared->cancel();
    });
}

platform::FolderWatchHandle X11Workspace::watchFolders(
    const std::vector<std::string>& folders, std::function<void(const platform::FolderEvent&)> changed) {
    platform::FolderWatchHandle result;
    int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    int wake[2];
    if (fd < 0 || ::pipe(wake) != 0) {
        if (fd >= 0) ::close(fd);
        result.error = "The folder watch could not be created.";
        return result;
    }
    std::map<int, std::string> paths;
    for (auto& f : folders) {
        int wd = ::inotify_add_watch(fd, f.c_str(),
                                     IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO);
        if (wd >= 0) paths[wd] = f;
    }
    auto alive = std::make_shared<std::atomic<bool>>(true);
    std::thread([fd, wakeFd = wake[0], paths, changed, alive] {
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
        alignas(inotify_event) char buf[4096];
        while (::poll(fds, 2, -1) >= 0 || errno == EINTR) {
            if (fds[1].revents) break;
            ssize_t n = ::read(fd, buf, sizeof buf);
            for (ssize_t at = 0; n > 0 && at < n;) {
                auto* ev = reinterpret_cast<inotify_event*>(buf + at);
                std::string path = paths.count(ev->wd) ? paths.at(ev->wd) : "";
                if (ev->len) {
                    path += '/';
                    path += ev->name;
                }
                ferrow::mainAsync([changed, alive, path] {
                    if (*alive) changed(platform::FolderEvent{path, 0});
                });
                at += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
            }
        }
        ::close(fd);
        ::close(wakeFd);
    }).detach();
    result.handle = ferrow::Subscription([alive, wakeWrite = wake[1]] {
        *alive = false;
        char c = 0;
        [[maybe_unused]] auto n = ::write(wakeWrite, &c, 1);
        ::close(wakeWrite);
    });
    return result;
}

void X11Workspace::readMenuBarFlags(std::vector<std::string> bundlePaths,
                                    std::function<void(std::vector<bool>)> done) {
    // Entries that ask not to be shown stand for background apps.
    std::vector<bool> flags;
    for (auto& p : bundlePaths) {
        auto e = readEntry(p);
        flags.push_back(e && e->hidden);
    }
    ferrow::mainAsync([done, flags] { done(flags); });
}

std::optional<platform::InstalledApp> X11Workspace::bundleInfo(const std::string& path) {
    if (path.starts_with(kClassPathPrefix)) {
        platform::InstalledApp i;
        i.path = path;
        i.bundleID = i.name = i.bundleName = path.substr(kClassPathPrefix.size());
        return i;
    }
    auto e = readEntry(path);
    if (!e) return std::nullopt;
    return installedFrom(*e);
}

std::optional<std::string> X11Workspace::urlForApplication(const std::string& bundleID) {
    for (auto& e : d_.entries())
        if (e.identifier() == bundleID) return e.path;
    for (auto& app : runningApplications())
        if (app.bundleID == bundleID) return app.bundlePath;
    return std::nullopt;
}

std::optional<platform::FileIdentity> X11Workspace::fileIdentity(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return platform::FileIdentity{static_cast<std::uint64_t>(st.st_dev),
                                  static_cast<std::uint64_t>(st.st_ino),
                                  static_cast<std::int64_t>(st.st_mtime)};
}

bool X11Workspace::fileExists(const std::string& path) {
    if (path.starts_with(kClassPathPrefix)) return bundleInfo(path).has_value();
    return ::access(path.c_str(), F_OK) == 0;
}

void X11Workspace::dispatch(const Change& change, const Snapshot& before) {
    using K = Change::Kind;
    auto appBefore = [&](std::int32_t pid) -> std::optional<platform::RunningApp> {
        for (auto& a : d_.apps(before))
            if (a.pid == pid) return a;
        return std::nullopt;
    };
    switch (change.kind) {
        case K::appLaunched: {
            auto app = runningApp(change.pid);
            if (!app) break;
            publish(WorkspaceEvent{WorkspaceEventKind::didLaunch, app, {}, {}});
            publish(WorkspaceEvent{WorkspaceEventKind::runningApplicationsChanged, std::nullopt, {}, {*app}});
            break;
        }
        case K::appTerminated: {
            auto app = appBefore(change.pid);
            if (!app) break;
            app->terminated = true;
            publish(WorkspaceEvent{WorkspaceEventKind::didTerminate, app, {}, {}});
            publish(WorkspaceEvent{WorkspaceEventKind::runningApplicationsChanged, std::nullopt, {*app}, {}});
            break;
        }
        case K::appActivated:
            if (auto app = runningApp(change.pid))
                publish(WorkspaceEvent{WorkspaceEventKind::didActivate, app, {}, {}});
            break;
        case K::desktopChanged:
            publish(WorkspaceEvent{WorkspaceEventKind::activeSpaceDidChange, std::nullopt, {}, {}});
            break;
        default:
            break;
    }
}

}  // namespace zelk::x11
