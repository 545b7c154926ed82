#include "platform/sim/SimWorld.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "support/MainQueue.h"

namespace zelk::sim {

SimWorld::SimWorld() {
    SimApp self;
    self.bundleID = kOwnBundleID;
    self.name = "zelk";
    self.path = "/Applications/zelk.app";
    self.kind = AppKind::accessory;
    self.installed = false;  // not offered by the catalogue of the simulated folders
    self.running = true;
    self.pid = kOwnPID;
    apps_.push_back(self);
    indexApp(0);
}

void SimWorld::addDisplay(SimDisplay display) {
    if (display.uuid.empty()) display.uuid = "SIM-DISPLAY-" + std::to_string(display.id);
    if (display.currentSpace == 0 && !display.spaces.empty())
        display.currentSpace = display.spaces.front().id;
    displays_.push_back(std::move(display));
}

SimApp& SimWorld::addApp(SimApp app) {
    if (app.identity.inode == 0) {
        app.identity.device = 1;
        app.identity.inode = 100000 + apps_.size();
        app.identity.modified = 1700000000;
    }
    apps_.push_back(std::move(app));
    indexApp(apps_.size() - 1);
    return apps_.back();
}

void SimWorld::indexApp(std::size_t index) {
    bundleIndex_.emplace(apps_[index].bundleID, index);  // the first app of a bundle id is the one found
    if (apps_[index].running && apps_[index].pid > 0) pidIndex_[apps_[index].pid] = index;
    pathIndex_[apps_[index].path].push_back(index);
}

void SimWorld::setPid(SimApp& app, std::int32_t pid) {
    if (auto it = pidIndex_.find(app.pid); it != pidIndex_.end() && &apps_[it->second] == &app)
        pidIndex_.erase(it);
    app.pid = pid;
    if (pid > 0) pidIndex_[pid] = static_cast<std::size_t>(&app - apps_.data());
}

std::int32_t SimWorld::nextPid() {
    std::int32_t pid;
    do {
        pid = ++pidCounter_;
    } while (appByPid(pid));
    return pid;
}

std::uint32_t SimWorld::nextWindowID() {
    std::uint32_t id;
    do {
        id = ++windowCounter_;
    } while (windows_.count(id));
    return id;
}

void SimWorld::startRunning(const std::string& bundleID, std::int32_t pid, bool hidden,
                            const std::vector<SimWindow>& windows) {
    SimApp* a = app(bundleID);
    if (!a) return;
    const bool wasRunning = a->running;
    a->running = true;
    setPid(*a, pid > 0 ? pid : nextPid());
    a->hidden = hidden;
    a->launchDate = ferrow::MainQueue::shared().clock().wallSeconds() - 3600;
    for (const auto& w : windows) {
        SimWindow copy = w;
        copy.pid = a->pid;
        if (copy.id == 0) copy.id = nextWindowID();
        if (copy.space == 0 && !displays_.empty()) copy.space = displays_.front().currentSpace;
        windows_[copy.id] = copy;
        a->windowOrder.push_back(copy.id);
        zOrder_.push_back(copy.id);
        windowCounter_ = std::max(windowCounter_, copy.id);
    }
    a->focusedWindow = nextFocusCandidate(*a);
    // A process that just started can't be in the order yet: only a restart needs the search.
    if (!wasRunning ||
        std::find(activationOrder_.begin(), activationOrder_.end(), a->pid) == activationOrder_.end())
        activationOrder_.push_back(a->pid);
}

void SimWorld::setFrontmost(const std::string& bundleID, std::uint32_t focused) {
    SimApp* a = app(bundleID);
    if (!a || !a->running) return;
    frontPid_ = a->pid;
    if (focused && windows_.count(focused) && windows_[focused].pid == a->pid) {
        a->focusedWindow = focused;
        auto& order = a->windowOrder;
        order.erase(std::remove(order.begin(), order.end(), focused), order.end());
        order.insert(order.begin(), focused);
        bringToFront(focused);
        if (auto d = displayIndexOfSpace(windows_[focused].space)) activeDisplay_ = *d;
    }
    noteActivation(a->pid);
    lastFocusPid_ = frontPid_;
    lastFocusWindow_ = focusedWindow();
}

// Both look-ups go through indexes kept at every change made here, so a world of thousands of apps
// starts and runs without scanning the list for each one.
SimApp* SimWorld::app(const std::string& bundleID) {
    ++lookupCost_;
    auto it = bundleIndex_.find(bundleID);
    if (it != bundleIndex_.end() && apps_[it->second].bundleID == bundleID) return &apps_[it->second];
    // A bundle id changed through apps() is found the slow way, once.
    lookupCost_ += apps_.size();
    for (std::size_t i = 0; i < apps_.size(); ++i)
        if (apps_[i].bundleID == bundleID) {
            bundleIndex_[bundleID] = i;
            return &apps_[i];
        }
    return nullptr;
}

SimApp* SimWorld::appByPid(std::int32_t pid) {
    if (pid <= 0) return nullptr;
    ++lookupCost_;
    auto it = pidIndex_.find(pid);
    if (it == pidIndex_.end()) return nullptr;
    SimApp& a = apps_[it->second];
    return a.running && a.pid == pid ? &a : nullptr;
}

const SimApp* SimWorld::appByPid(std::int32_t pid) const {
    return const_cast<SimWorld*>(this)->appByPid(pid);
}

// A path changed through apps() (an app moved on disk) is found by a scan and indexed again.
const std::vector<std::size_t>& SimWorld::indicesAtPath(const std::string& path) {
    ++lookupCost_;
    auto& indices = pathIndex_[path];
    std::erase_if(indices, [&](std::size_t i) { return apps_[i].path != path; });
    if (indices.empty()) {
        lookupCost_ += apps_.size();
        for (std::size_t i = 0; i < apps_.size(); ++i)
            if (apps_[i].path == path) indices.push_back(i);
    }
    return indices;
}

std::vector<SimApp*> SimWorld::appsAtPath(const std::string& path) {
    std::vector<SimApp*> out;
    for (auto index : indicesAtPath(path))
        out.push_back(&apps_[index]);
    return out;
}

SimApp* SimWorld::appAtFile(const std::string& path, const std::function<bool(const SimApp&)>& keep) {
    static constexpr std::string_view kExecutables = "/Contents/MacOS/";
    std::optional<std::size_t> best;
    auto consider = [&](const std::string& bundle, const std::string* name) {
        for (auto index : indicesAtPath(bundle)) {
            const SimApp& a = apps_[index];
            if ((!name || a.name == *name) && keep(a) && (!best || index < *best)) best = index;
        }
    };
    // A bundle's path never holds the executables' folder: such a path names an executable.
    const auto at = path.find(kExecutables);
    if (at == std::string::npos)
        consider(path, nullptr);
    else {
        const std::string name = path.substr(at + kExecutables.size());
        consider(path.substr(0, at), &name);
    }
    return best ? &apps_[*best] : nullptr;
}

SimWindow* SimWorld::window(std::uint32_t id) {
    ++lookupCost_;
    auto it = windows_.find(id);
    return it == windows_.end() ? nullptr : &it->second;
}
const SimWindow* SimWorld::window(std::uint32_t id) const {
    return const_cast<SimWorld*>(this)->window(id);
}

std::optional<std::size_t> SimWorld::displayIndexOfSpace(std::uint64_t space) const {
    for (std::size_t i = 0; i < displays_.size(); ++i)
        for (auto& s : displays_[i].spaces)
            if (s.id == space) return i;
    return std::nullopt;
}

std::optional<std::size_t> SimWorld::displayIndexById(std::uint32_t id) const {
    for (std::size_t i = 0; i < displays_.size(); ++i)
        if (displays_[i].id == id) return i;
    return std::nullopt;
}

std::optional<std::size_t> SimWorld::displayIndexByUUID(const std::string& uuid) const {
    for (std::size_t i = 0; i < displays_.size(); ++i)
        if (displays_[i].uuid == uuid) return i;
    return std::nullopt;
}

std::uint64_t SimWorld::activeSpace() const {
    if (displays_.empty()) return 0;
    return displays_[std::min(activeDisplay_, displays_.size() - 1)].currentSpace;
}

bool SimWorld::isWindowOnVisibleSpace(const SimWindow& w) const {
    auto d = displayIndexOfSpace(w.space);
    return d && displays_[*d].currentSpace == w.space;
}

bool SimWorld::isWindowOnScreen(const SimWindow& w) const {
    if (w.minimized || !isWindowOnVisibleSpace(w)) return false;
    const SimApp* a = appByPid(w.pid);
    return a && !a->hidden;
}

std::uint32_t SimWorld::focusedWindow() const {
    const SimApp* a = appByPid(frontPid_);
    if (!a || a->hidden || !a->focusedWindow) return 0;
    const SimWindow* w = window(a->focusedWindow);
    if (!w || w->minimized || !isWindowOnVisibleSpace(*w)) return 0;
    return w->id;
}

platform::RunningApp SimWorld::describe(const SimApp& a) const {
    platform::RunningApp r;
    r.pid = a.pid;
    r.bundleID = a.bundleID;
    r.name = a.name;
    r.bundlePath = a.path;
    r.executablePath = a.path + "/Contents/MacOS/" + a.name;
    r.activationPolicy = a.kind == AppKind::regular     ? platform::ActivationPolicy::regular
                         : a.kind == AppKind::accessory ? platform::ActivationPolicy::accessory
                                                        : platform::ActivationPolicy::prohibited;
    r.hidden = a.hidden;
    r.terminated = !a.running;
    r.finishedLaunching = true;
    r.launchDate = a.launchDate;
    r.executableIdentity = a.identity;
    return r;
}

std::vector<platform::RunningApp> SimWorld::runningApps() const {
    std::vector<platform::RunningApp> out;
    for (auto& a : counted(apps_))
        if (a.running) out.push_back(describe(a));
    return out;
}

std::optional<platform::RunningApp> SimWorld::runningApp(std::int32_t pid) const {
    const SimApp* a = appByPid(pid);
    if (!a) return std::nullopt;
    return describe(*a);
}

void SimWorld::bringToFront(std::uint32_t id) {
    zOrder_.erase(std::remove(zOrder_.begin(), zOrder_.end(), id), zOrder_.end());
    zOrder_.insert(zOrder_.begin(), id);
}

void SimWorld::noteActivation(std::int32_t pid) {
    activationOrder_.erase(std::remove(activationOrder_.begin(), activationOrder_.end(), pid),
                           activationOrder_.end());
    activationOrder_.insert(activationOrder_.begin(), pid);
}

std::uint32_t SimWorld::nextFocusCandidate(const SimApp& a) const {
    std::uint32_t fallback = 0;
    for (auto id : a.windowOrder) {
        const SimWindow* w = window(id);
        if (!w || w->minimized) continue;
        if (isWindowOnVisibleSpace(*w)) return id;
        if (!fallback) fallback = id;
    }
    return fallback;
}

void SimWorld::emitActivate(const SimApp& a, std::int32_t previous) {
    WorldChange c{WorldChange::Kind::activate, a.pid, a.bundleID};
    c.previousPid = previous;
    emit(c);
}

void SimWorld::checkFocus() {
    std::uint32_t w = focusedWindow();
    if (frontPid_ == lastFocusPid_ && w == lastFocusWindow_) return;
    lastFocusPid_ = frontPid_;
    lastFocusWindow_ = w;
    WorldChange c{WorldChange::Kind::focus};
    c.pid = frontPid_;
    if (const SimApp* a = appByPid(frontPid_)) c.bundleID = a->bundleID;
    c.window = w;
    emit(c);
}

void SimWorld::addDock() {
    if (app(kDockBundleID)) return;
    SimApp dock;
    dock.bundleID = kDockBundleID;
    dock.name = "Dock";
    dock.path = "/System/Library/CoreServices/Dock.app";
    dock.kind = AppKind::background;
    dock.installed = false;
    dock.running = true;
    dock.pid = kDockPID;
    apps_.push_back(dock);
    indexApp(apps_.size() - 1);
}

bool SimWorld::setKind(const std::string& bundleID, AppKind kind) {
    SimApp* a = app(bundleID);
    if (!a) return false;
    a->kind = kind;
    return true;
}

bool SimWorld::activate(std::int32_t pid, std::uint32_t windowID, bool followSpace) {
    SimApp* a = appByPid(pid);
    // An agent comes to the front only by activating itself (after turning into a regular app).
    if (!a || a->kind == AppKind::background || (a->kind == AppKind::accessory && pid != kOwnPID))
        return false;
    if (a->hidden) {
        a->hidden = false;
        emit({WorldChange::Kind::unhide, pid, a->bundleID});
    }
    if (windowID) {
        SimWindow* w = window(windowID);
        if (w && w->pid == pid) {
            a->focusedWindow = windowID;
            auto& order = a->windowOrder;
            order.erase(std::remove(order.begin(), order.end(), windowID), order.end());
            order.insert(order.begin(), windowID);
        }
    }
    if (!a->focusedWindow || !window(a->focusedWindow) || window(a->focusedWindow)->minimized) {
        a->focusedWindow = 0;
        for (auto id : a->windowOrder)
            if (!window(id)->minimized) {
                a->focusedWindow = id;
                break;
            }
    }
    // With no window on a shown Space, the system switches to the Space of the app's focused window.
    if (SimWindow* target = window(a->focusedWindow)) {
        bool anyVisible = isWindowOnVisibleSpace(*target) || windowID == 0;
        if (windowID == 0) {
            anyVisible = std::any_of(a->windowOrder.begin(), a->windowOrder.end(), [&](std::uint32_t id) {
                const SimWindow* w = window(id);
                return w && !w->minimized && isWindowOnVisibleSpace(*w);
            });
            if (anyVisible && !isWindowOnVisibleSpace(*target)) {
                for (auto id : a->windowOrder) {
                    const SimWindow* w = window(id);
                    if (w && !w->minimized && isWindowOnVisibleSpace(*w)) {
                        a->focusedWindow = id;
                        break;
                    }
                }
            }
        }
        target = window(a->focusedWindow);
        if (!isWindowOnVisibleSpace(*target) && followSpace) {
            if (auto d = displayIndexOfSpace(target->space)) switchSpace(*d, target->space, false);
        }
        if (isWindowOnVisibleSpace(*target))
            if (auto d = displayIndexOfSpace(target->space)) activeDisplay_ = *d;
    }
    std::int32_t previous = frontPid_;
    frontPid_ = pid;
    noteActivation(pid);
    // The app's windows come forward, keeping their own order.
    for (auto it = a->windowOrder.rbegin(); it != a->windowOrder.rend(); ++it)
        bringToFront(*it);
    if (previous != pid) emitActivate(*a, previous);
    checkFocus();
    return true;
}

bool SimWorld::raiseWithinApp(std::uint32_t id) {
    SimWindow* w = window(id);
    if (!w) return false;
    SimApp* a = appByPid(w->pid);
    if (!a) return false;
    a->focusedWindow = id;
    auto& order = a->windowOrder;
    order.erase(std::remove(order.begin(), order.end(), id), order.end());
    order.insert(order.begin(), id);
    bringToFront(id);
    checkFocus();
    return true;
}

void SimWorld::chooseNextFront(std::int32_t leaving) {
    for (auto pid : activationOrder_) {
        if (pid == leaving) continue;
        SimApp* a = appByPid(pid);
        if (!a || a->hidden || a->kind != AppKind::regular) continue;
        frontPid_ = pid;
        noteActivation(pid);
        emitActivate(*a, leaving);
        return;
    }
    // Nothing else can be in front: the Finder is, as on the real desktop (it shows itself if hidden).
    for (auto& a : apps_) {
        if (!a.finder || !a.running || a.pid == leaving) continue;
        if (a.hidden) {
            a.hidden = false;
            emit({WorldChange::Kind::unhide, a.pid, a.bundleID});
        }
        frontPid_ = a.pid;
        noteActivation(a.pid);
        emitActivate(a, leaving);
        return;
    }
    frontPid_ = 0;
}

bool SimWorld::hide(std::int32_t pid) {
    SimApp* a = appByPid(pid);
    if (!a || a->hidden) return false;
    a->hidden = true;
    emit({WorldChange::Kind::hide, pid, a->bundleID});
    if (frontPid_ == pid) chooseNextFront(pid);
    checkFocus();
    return true;
}

bool SimWorld::unhide(std::int32_t pid) {
    SimApp* a = appByPid(pid);
    if (!a || !a->hidden) return false;
    a->hidden = false;
    emit({WorldChange::Kind::unhide, pid, a->bundleID});
    checkFocus();
    return true;
}

void SimWorld::removeWindow(std::uint32_t id, bool emitClosed) {
    auto it = windows_.find(id);
    if (it == windows_.end()) return;
    std::int32_t pid = it->second.pid;
    windows_.erase(it);
    zOrder_.erase(std::remove(zOrder_.begin(), zOrder_.end(), id), zOrder_.end());
    if (SimApp* a = appByPid(pid)) {
        auto& order = a->windowOrder;
        order.erase(std::remove(order.begin(), order.end(), id), order.end());
        if (a->focusedWindow == id) a->focusedWindow = nextFocusCandidate(*a);
    }
    if (emitClosed) {
        WorldChange c{WorldChange::Kind::windowClosed, pid};
        c.window = id;
        emit(c);
    }
}

bool SimWorld::terminate(std::int32_t pid, bool crash) {
    SimApp* a = appByPid(pid);
    if (!a || pid == kOwnPID) return false;
    (void)crash;
    std::vector<std::uint32_t> ids = a->windowOrder;
    for (auto id : ids)
        removeWindow(id, true);
    std::string bundle = a->bundleID;
    a->running = false;
    a->hidden = false;
    a->focusedWindow = 0;
    setPid(*a, 0);
    activationOrder_.erase(std::remove(activationOrder_.begin(), activationOrder_.end(), pid),
                           activationOrder_.end());
    emit({WorldChange::Kind::terminate, pid, bundle});
    if (frontPid_ == pid) chooseNextFront(pid);
    checkFocus();
    return true;
}

bool SimWorld::launch(const std::string& bundleID, bool activates,
                      std::function<void(std::optional<std::int32_t>)> done) {
    SimApp* a = app(bundleID);
    if (!a || (!a->installed && !a->running)) return false;
    if (a->running) {
        if (activates) activate(a->pid);
        if (done) done(a->pid);
        return true;
    }
    WorldChange c{WorldChange::Kind::launch, 0, bundleID};
    c.flag = activates;
    emit(c);
    // A second open while the app starts waits for the same process.
    auto& pending = pendingLaunches_[bundleID];
    pending.activates = pending.activates || activates;
    if (done) pending.waiters.push_back(std::move(done));
    if (a->launching) return true;
    a->launching = true;
    ferrow::mainAsyncAfter(a->launchDelayMs + launchLatencyMs, [this, bundleID] {
        PendingLaunch launch = std::move(pendingLaunches_[bundleID]);
        pendingLaunches_.erase(bundleID);
        bool activates = launch.activates;
        auto done = [&launch](std::optional<std::int32_t> pid) {
            for (auto& waiter : launch.waiters)
                waiter(pid);
        };
        SimApp* app = this->app(bundleID);
        if (!app) return;
        app->launching = false;
        if (faults.launchFails.count(bundleID)) {
            done(std::nullopt);
            return;
        }
        app->running = true;
        setPid(*app, nextPid());
        app->hidden = false;
        app->launchDate = ferrow::MainQueue::shared().clock().wallSeconds();
        activationOrder_.push_back(app->pid);
        emit({WorldChange::Kind::appRunning, app->pid, bundleID});
        std::vector<WindowTemplate> templates = app->windowsOnLaunch;
        if (templates.empty() && app->kind == AppKind::regular) templates.push_back({0, app->name});
        if (launchWithoutWindows_.erase(bundleID)) templates.clear();
        std::int32_t pid = app->pid;
        for (auto& t : templates) {
            SimWindow w;
            w.id = t.id ? t.id : 0;
            w.title = t.title;
            w.frame = t.frame;
            w.space = t.space ? t.space : (displays_.empty() ? 0 : displays_[activeDisplay_].currentSpace);
            openWindow(bundleID, w);
        }
        if (activates) activate(pid);
        done(pid);
    });
    return true;
}

namespace {
// The title an app gives a window it opened for a document: the file or folder name, or the host.
std::string titleForDocument(const std::string& document) {
    std::string rest = document;
    auto scheme = rest.find("://");
    bool web = scheme != std::string::npos && rest.compare(0, scheme, "file") != 0;
    if (scheme != std::string::npos) rest = rest.substr(scheme + 3);
    if (web) return rest.substr(0, rest.find('/'));
    while (rest.size() > 1 && rest.back() == '/')
        rest.pop_back();
    auto slash = rest.rfind('/');
    return slash == std::string::npos || rest.size() == 1 ? rest : rest.substr(slash + 1);
}
}  // namespace

bool SimWorld::openDocument(const std::string& bundleID, const std::string& document, bool activates) {
    SimApp* a = app(bundleID);
    if (!a || (!a->installed && !a->running)) return false;
    auto openIt = [this, bundleID, document, activates](std::optional<std::int32_t> pid) {
        if (!pid) return;
        const SimApp* opener = app(bundleID);
        ferrow::mainAsyncAfter(opener ? opener->openDelayMs : 0, [this, bundleID, document, activates] {
            SimApp* target = app(bundleID);
            if (!target || !target->running) return;
            SimWindow w;
            w.title = titleForDocument(document);
            w.document = document;
            w.frame = {120, 120, 900, 650};
            std::uint32_t id = openWindow(bundleID, w);
            if (id && activates) activate(target->pid, id);
        });
    };
    if (a->running) {
        if (activates) activate(a->pid);
        openIt(a->pid);
        return true;
    }
    if (!a->launching) launchWithoutWindows_.insert(bundleID);
    return launch(bundleID, activates, openIt);
}

bool SimWorld::setFullScreen(std::uint32_t id, bool fullscreen) {
    SimWindow* w = window(id);
    if (!w) return false;
    if (w->fullscreen == fullscreen) return true;
    w->fullscreen = fullscreen;
    // Entering full screen fills the display the window is on.
    if (fullscreen)
        if (auto d = displayIndexOfSpace(w->space)) setFrame(id, displays_[*d].frame);
    return true;
}

std::uint32_t SimWorld::openWindow(const std::string& bundleID, SimWindow w) {
    SimApp* a = app(bundleID);
    if (!a || !a->running) return 0;
    if (w.space != 0 && !displayIndexOfSpace(w.space)) return 0;
    if (w.id == 0 || windows_.count(w.id)) w.id = nextWindowID();
    windowCounter_ = std::max(windowCounter_, w.id);
    w.pid = a->pid;
    if (w.space == 0 && !displays_.empty()) w.space = displays_[activeDisplay_].currentSpace;
    windows_[w.id] = w;
    a->windowOrder.insert(a->windowOrder.begin(), w.id);
    a->focusedWindow = w.id;
    bringToFront(w.id);
    WorldChange c{WorldChange::Kind::windowCreated, a->pid, bundleID};
    c.window = w.id;
    c.frame = w.frame;
    c.space = w.space;
    c.text1 = w.title;
    emit(c);
    checkFocus();
    return w.id;
}

void SimWorld::notePostedEvent(PostedEvent event) {
    event.at = ferrow::MainQueue::shared().now();
    postedEvents.push_back(event);
    WorldChange c{WorldChange::Kind::keyPosted};
    c.pid = event.pid;
    c.window = event.keyCode;
    c.flag = event.down;
    c.display = static_cast<std::uint32_t>(event.route);
    c.text1 = fmt::format("{:#x}", event.flags);
    c.text2 = fmt::format("{:#x}", event.userData);
    emit(c);
}

bool SimWorld::resizeDisplay(std::uint32_t displayID, Rect frame) {
    auto index = displayIndexById(displayID);
    if (!index) return false;
    displays_[*index].frame = frame;
    WorldChange c{WorldChange::Kind::screens};
    c.display = displayID;
    c.frame = frame;
    emit(c);
    return true;
}

bool SimWorld::pressMenuExtra(std::int32_t pid) {
    SimApp* app = appByPid(pid);
    if (!app || !app->running || app->menuExtra.empty()) return false;
    WorldChange c{WorldChange::Kind::menuExtra};
    c.pid = pid;
    c.bundleID = app->bundleID;
    c.text1 = app->menuExtra;
    emit(c);
    return true;
}

bool SimWorld::closeWindow(std::uint32_t id) {
    if (!window(id)) return false;
    removeWindow(id, true);
    checkFocus();
    return true;
}

bool SimWorld::retitle(std::uint32_t id, const std::string& title) {
    SimWindow* w = window(id);
    if (!w || w->title == title) return w != nullptr;
    w->title = title;
    WorldChange c{WorldChange::Kind::windowTitle, w->pid};
    c.window = id;
    c.text1 = title;
    emit(c);
    return true;
}

bool SimWorld::setMinimized(std::uint32_t id, bool minimized) {
    SimWindow* w = window(id);
    if (!w) return false;
    if (w->minimized == minimized) return true;
    w->minimized = minimized;
    SimApp* a = appByPid(w->pid);
    WorldChange c{WorldChange::Kind::windowMinimized, w->pid};
    c.window = id;
    c.flag = minimized;
    emit(c);
    if (a) {
        if (minimized && a->focusedWindow == id) {
            a->focusedWindow = nextFocusCandidate(*a);
        } else if (!minimized) {
            a->focusedWindow = id;
            bringToFront(id);
        }
    }
    checkFocus();
    return true;
}

bool SimWorld::setFrame(std::uint32_t id, Rect frame) {
    SimWindow* w = window(id);
    if (!w) return false;
    if (w->frame == frame) return true;
    w->frame = frame;
    WorldChange c{WorldChange::Kind::windowFrame, w->pid};
    c.window = id;
    c.frame = frame;
    emit(c);
    return true;
}

bool SimWorld::moveWindowToSpace(std::uint32_t id, std::uint64_t space) {
    SimWindow* w = window(id);
    if (!w || !displayIndexOfSpace(space)) return false;
    if (w->space == space) return true;
    w->space = space;
    WorldChange c{WorldChange::Kind::windowSpace, w->pid};
    c.window = id;
    c.space = space;
    emit(c);
    checkFocus();
    return true;
}

bool SimWorld::switchSpace(std::size_t index, std::uint64_t space, bool focusTopmost) {
    if (index >= displays_.size()) return false;
    auto& d = displays_[index];
    if (std::none_of(d.spaces.begin(), d.spaces.end(), [&](const SimSpace& s) { return s.id == space; }))
        return false;
    activeDisplay_ = index;
    if (d.currentSpace == space) return true;
    d.currentSpace = space;
    WorldChange c{WorldChange::Kind::space};
    c.display = d.id;
    c.space = space;
    emit(c);
    if (!focusTopmost) return true;
    for (auto id : zOrder_) {
        const SimWindow* w = window(id);
        if (!w || w->space != space || !isWindowOnScreen(*w)) continue;
        SimApp* a = appByPid(w->pid);
        if (!a || a->kind != AppKind::regular) continue;
        if (SimApp* front = appByPid(frontPid_)) {
            // The front app keeps focus when it has a window here.
            for (auto fid : front->windowOrder) {
                const SimWindow* fw = window(fid);
                if (fw && fw->space == space && isWindowOnScreen(*fw)) {
                    front->focusedWindow = fid;
                    checkFocus();
                    return true;
                }
            }
        }
        a->focusedWindow = id;
        if (frontPid_ != a->pid) {
            std::int32_t previous = frontPid_;
            frontPid_ = a->pid;
            noteActivation(a->pid);
            emitActivate(*a, previous);
        }
        break;
    }
    checkFocus();
    return true;
}

void SimWorld::warpPointer(Point p) {
    pointer_ = p;
    WorldChange c{WorldChange::Kind::pointer};
    c.point = p;
    emit(c);
}

void SimWorld::postNotification(const std::string& id, const std::string& title, const std::string& body) {
    WorldChange c{WorldChange::Kind::notification};
    c.text1 = id;
    c.text2 = title;
    c.text3 = body;
    emit(c);
}

std::uint64_t SimWorld::addSpace(std::size_t displayIndex) {
    if (displayIndex >= displays_.size()) return 0;
    std::uint64_t id = 1;
    for (auto& d : displays_)
        for (auto& s : d.spaces)
            id = std::max(id, s.id + 1);
    displays_[displayIndex].spaces.push_back({id, false});
    return id;
}

void SimWorld::setOverlay(Overlay overlay) {
    if (overlay_ == overlay) return;
    overlay_ = overlay;
    WorldChange c{WorldChange::Kind::overlay};
    c.text1 = overlay == Overlay::none             ? "none"
              : overlay == Overlay::missionControl ? "missionControl"
                                                   : "appExpose";
    emit(c);
}

}  // namespace zelk::sim
