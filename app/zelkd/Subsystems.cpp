#include "Subsystems.h"

#include "OverviewService.h"
#include "RecentlyClosedService.h"
#include "SearchService.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "apps/AppManager.h"
#include "companions/LaunchMonitor.h"
#include "companions/PointerFollower.h"
#include "companions/TactoraManager.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/AppDelegate.h"
#include "input/InputManager.h"
#include "platform/Platform.h"
#include "search/Graphemes.h"
#include "spaces/ISSManager.h"
#include "spaces/SpaceNumbering.h"
#include "spaces/SpacesIndicator.h"
#include "spaces/WindowMover.h"
#include "stages/StageService.h"
#include "support/Log.h"
#include "windows/AppWindowKeys.h"
#include "windows/WindowKeyAssignments.h"
#include "windows/WindowManager.h"
#include "windows/WindowMinimizer.h"

namespace zelk::agent {

using command::AppTarget;

namespace {

platform::Workspace& workspace() {
    return *platform::Platform::current().workspace;
}

// The element after the current one, or the first when none is current or the current one is last:
// repeated presses step through a list and wrap.
template <typename T, typename IsCurrent>
const T& nextAfter(const std::vector<T>& list, IsCurrent isCurrent) {
    auto at = std::find_if(list.begin(), list.end(), isCurrent);
    return at == list.end() || std::next(at) == list.end() ? list.front() : *std::next(at);
}

// A tab cycle held by the command-key take-over is a held gesture too: the windows it focuses on
// its way don't reorder the most-recent list until it ends.
bool tabCycleTakeOverHeld() {
    auto& input = InputManager::shared();
    return input.hijackCommandHeld && input.tabCycling;
}

bool triggerHeld() {
    auto& input = InputManager::shared();
    return input.appTriggerKeysPressed.get() || input.windowTriggerKeysPressed.get() ||
           input.stageTriggerKeysPressed.get() || tabCycleTakeOverHeld();
}

RoutedApp routed(const apps::AppManager& manager, const apps::AppRef& app) {
    RoutedApp r{app->bundleIdentifier(), app->name(), 0};
    if (auto running = manager.runningAppByBundleIdentifier(app->bundleIdentifier())) r.pid = running->pid;
    return r;
}

std::optional<RoutedAssignment> routedAssignment(const apps::AppManager& manager,
                                                 const apps::AppKeyAssignment* a, bool isStatic) {
    if (!a || !a->app) return std::nullopt;
    RoutedAssignment r;
    r.key = a->key;
    r.app = routed(manager, a->app);
    r.isStatic = isStatic;
    r.action = static_cast<FocusedAction>(rawValue(a->whenAlreadyFocusedAction));
    r.launchIfNotRunning = a->launchIfNotRunning;
    return r;
}

// The app a request names: the bundle identifier exactly, else the query against the names of the
// relevant running apps (whole name, then its beginning, then anywhere), case aside.
std::vector<AppTarget> findApps(apps::AppManager& manager, const command::ZelkRequest& r) {
    std::vector<AppTarget> exact, prefix, inside;
    std::string q = r.query ? search::lowercased(*r.query) : "";
    for (auto& entry : manager.runningApps()) {
        const auto& p = entry.process;
        AppTarget t{p.name, p.bundleID, p.pid};
        if (r.bundleID && !r.bundleID->empty()) {
            if (p.bundleID == *r.bundleID) exact.push_back(t);
            continue;
        }
        if (q.empty()) continue;
        std::string name = search::lowercased(p.name);
        if (name == q || search::lowercased(p.bundleID) == q)
            exact.push_back(t);
        else if (name.rfind(q, 0) == 0)
            prefix.push_back(t);
        else if (name.find(q) != std::string::npos)
            inside.push_back(t);
    }
    exact.insert(exact.end(), prefix.begin(), prefix.end());
    exact.insert(exact.end(), inside.begin(), inside.end());
    return exact;
}

// The Space's number as the tool lists and switches by (full-screen Spaces have none).
std::optional<std::int64_t> spaceIndexOf(const std::vector<platform::DisplaySpaces>& all, std::uint64_t id) {
    auto s = spaces::numberedSpaceByID(spaces::numberUserSpaces(all), id);
    if (!s) return std::nullopt;
    return s->number;
}

}  // namespace

Subsystems::Subsystems() {
    auto& p = platform::Platform::current();
    iss_ = std::make_unique<spaces::ISSManager>(*p.windowServer, p.screens, p.pointer);
    auto env = windows::WindowEnvironment::fromPlatform(p);
    env.triggerHeld = triggerHeld;
    // Window tracking follows the relevant running apps of the catalogue once it knows them.
    env.trackedRunningApps = [] {
        std::vector<platform::RunningApp> list;
        for (auto& entry : apps::AppManager::shared().runningApps())
            list.push_back(entry.process);
        if (list.empty()) return workspace().runningApplications();
        return list;
    };
    env.isProblematic = [this](const std::string& bundleID) {
        return delegate_ && delegate_->problematicApps().count(bundleID) > 0;
    };
    env.fillDefaults();
    windows_ = std::make_unique<windows::WindowManager>(std::move(env), *iss_);
    minimizer_ = std::make_unique<windows::WindowMinimizer>(*p.accessibility);
    search_ = std::make_unique<SearchService>(*windows_);
    stages_ = std::make_unique<stages::StageService>(*windows_, Settings::shared(), p);
    attachStageHooks();
    mover_ = std::make_unique<spaces::WindowMover>(*windows_, p);
    followPointer();
    makeSpacesIndicator();
    makeLaunchMonitor();
    keepClosedWindows();
}

void Subsystems::makeSpacesIndicator() {
    auto& p = platform::Platform::current();
    spaces::SpacesIndicatorEnvironment env;
    env.server = p.windowServer;
    env.workspace = p.workspace;
    env.settings = &Settings::shared();
    env.keyForProcess = [this](std::int32_t pid) -> std::string {
        auto process = workspace().runningApp(pid);
        if (!process) return "";
        if (auto* a = apps().assignmentForBundleIdentifier(process->bundleID)) return a->key;
        auto app = apps().launchableAppFor(*process);
        auto* dynamic = app ? apps().dynamicAssignmentForIdentifier(app->identifier()) : nullptr;
        return dynamic ? dynamic->key : "";
    };
    env.stages = [this] {
        std::vector<spaces::IndicatorStage> list;
        for (const auto& stage : stages_->store().stages()) {
            spaces::IndicatorStage s{stage.key, stage.spaceID, {}};
            for (const auto& item : stage.items)
                s.itemIDs.push_back(item.id);
            list.push_back(std::move(s));
        }
        return list;
    };
    env.observeStages = [this](std::function<void()> changed) {
        return stages_->store().changed().subscribe([changed = std::move(changed)] { changed(); });
    };
    env.resolveItem = [this](const std::string& key,
                             const std::string& itemID) -> std::optional<std::uint32_t> {
        const auto* stage = stages_->store().stage(key);
        if (!stage) return std::nullopt;
        for (const auto& item : stage->items)
            if (item.id == itemID)
                if (auto window = stages_->resolve(item)) return window->id;
        return std::nullopt;
    };
    env.displayUnderPointer = [this] { return iss_->model().displayUnderPointer(); };
    spacesIndicator_ = std::make_unique<spaces::SpacesIndicator>(std::move(env));
    iss_->predictActiveSpace = [this](int index, const std::string& display) {
        spacesIndicator_->predictActiveSpaceAt(index, display);
    };
}

void Subsystems::makeLaunchMonitor() {
    auto& p = platform::Platform::current();
    launchMonitor_ = std::make_unique<companions::LaunchMonitor>(p.workspace, p.screens);
    apps().launcher().launchStarted = [this](const apps::LaunchableApp& app) { launchMonitor_->track(app); };
}

// Windows that close are kept for reopening; search lists them.
void Subsystems::keepClosedWindows() {
    recentlyClosed_ = std::make_unique<RecentlyClosedService>(*windows_);
    recentlyClosed_->setOpener(
        [this](const stages::StageItem& item) { stages_->openStageWindow(item, true); });
    auto* closed = recentlyClosed_.get();
    search_->setRecentlyClosed(
        [closed] { return closed->searchEntries(); },
        [closed](const std::string& id) { return closed->list().reopenRecentlyClosedWindow(id); });
    subscriptions_.push_back(closed->list().changed.subscribe([this] { search_->closedWindowsChanged(); }));
}

// The pointer follows window focus, app activation and Space switches.
void Subsystems::followPointer() {
    using companions::PointerFollower;
    auto& follower = PointerFollower::shared();
    follower.setWindowSource(
        {[this] { return windows_->windows(); }, [this] { return windows_->focusedWindow(); }});
    auto& focus = windows_->focusPipeline();
    focus.tellPointerFollower = [](const windows::ManagedWindow& w) {
        PointerFollower::shared().follow(PointerFollower::WindowTarget{w.id});
    };
    focus.tellPointerFollowerOfApp = [](std::int32_t pid) {
        PointerFollower::shared().follow(PointerFollower::AppTarget{pid});
    };
    iss_->didSwitchSpace = [](const std::string& display) {
        auto* screens = platform::Platform::current().screens;
        if (!screens) return;
        for (auto& s : screens->screens())
            if (s.uuid == display)
                PointerFollower::shared().follow(PointerFollower::DisplayTarget{s.displayID});
    };
}

Subsystems::~Subsystems() {
    subscriptions_.clear();
    overview_.reset();
    if (iss_) iss_->predictActiveSpace = nullptr;
    launchMonitor_.reset();
    spacesIndicator_.reset();
    companions::PointerFollower::reset();
    InputManager::shared().companionKeyUsedHook = nullptr;
    companion_.reset();
    recentlyClosed_.reset();
    stages_.reset();
    search_.reset();
    mover_.reset();
    windows_.reset();
    iss_.reset();
    apps::AppManager::reset();
}

void Subsystems::setOverview(std::unique_ptr<OverviewService> overview) {
    overview_ = std::move(overview);
}

apps::AppManager& Subsystems::apps() {
    return apps::AppManager::shared();
}

void Subsystems::attach(AppDelegate& delegate) {
    delegate_ = &delegate;
    delegate.buildInstalledAppsHook = [this] { start(); };
    delegate.windowKeysInUseHook = [this](const std::vector<Key>& candidates) {
        return windowKeysInUse(candidates);
    };
    // The managers follow the running-apps watch rather than every launch and quit.
    subscriptions_.push_back(delegate.runningAppsDidChange.subscribe([this](const auto&) {
        if (!started_) return;
        apps().runningAppsDidChange();
        windows_->runningAppsDidChange();
    }));
}

void Subsystems::refreshAppWindows() {
    if (!windowKeys_) return;
    auto& tracker = windows_->tracker();
    apps().setAppWindows(windowKeys_->rows(tracker.windows(), tracker.windowNumbersByBundle()));
}

std::optional<windows::KeyedApp> Subsystems::focusedKeyedApp() {
    const auto& front = apps().focusedApp();
    if (!front) return std::nullopt;
    auto app = apps().launchableAppFor(*front);
    if (!app) return std::nullopt;
    return windows::KeyedApp{app->name(), app->bundleIdentifier(), app->path()};
}

std::vector<windows::WindowKeyAssignment> Subsystems::savedWindowKeys() {
    return windows::decodeWindowKeyAssignments(Settings::shared().get(keys::windowKeyAssignments));
}

std::vector<Key> Subsystems::windowKeysInUse(const std::vector<Key>& candidates) {
    // Before window keys exist every candidate is caught, as at start.
    if (!windowKeys_) return candidates;
    auto inUse = apps().focusedAppWindowsByKey();
    std::set<std::string> saved;
    if (auto app = focusedKeyedApp()) saved = keyRunner_->keysFor(*app, savedWindowKeys());
    std::vector<Key> keys;
    for (Key key : candidates) {
        const std::string character(lowQWERTYCharacter(key));
        // 0 always reaches the previous window of the app.
        if (character == "0" || inUse.count(character) || saved.count(character)) keys.push_back(key);
    }
    return keys;
}

void Subsystems::showWindowAssignPanel() {
    const auto& front = apps().focusedApp();
    const std::string app = front ? front->name : "nil";
    const auto& focused = windows_->focusedWindow();
    ferrow::Log::info("showWindowAssignPanel(for:) called — app={} focusedApp={} focusedWindow={}", app, app,
                      focused ? std::to_string(focused->id) : "nil");
    std::string key = "a", title;
    const windows::AppWindow* row = nullptr;
    if (front && focused) {
        auto it = apps().appWindowsByBundleIdentifier().find(front->bundleID);
        if (it != apps().appWindowsByBundleIdentifier().end())
            for (const auto& w : it->second)
                if (w.id == focused->id) row = &w;
    }
    if (row) {
        ferrow::Log::info("showWindowAssignPanel(for:) — resolved AppWindow id={} key={} title={}", row->id,
                          row->key, row->title);
        if (!row->key.empty()) key = row->key;
        title = row->title;
    } else {
        ferrow::Log::info(
            "showWindowAssignPanel(for:) — no AppWindow resolved for {}; using defaults key=\"a\"", app);
    }
    if (!front || !apps().launchableAppFor(*front)) {
        ferrow::Log::info("showWindowAssignPanel(for:) — no resolvable LaunchableApp; aborting");
        return;
    }
    // Captured window specs come with stages; until then none is taken.
    ferrow::Log::info(
        "showWindowAssignPanel(for:) — no WindowSpec captured (managedWindow={}, runningApp={}, "
        "WM.windows.count={})",
        windows::describe(focused), front->bundleID, windows_->tracker().windows().size());
    ferrow::Log::info("showWindowAssignPanel(for:) — opening panel app={} key={} title={} hasSpec=false", app,
                      key, title);
}

bool Subsystems::focusWindowByKey(const std::string& key) {
    auto byKey = apps().focusedAppWindowsByKey();
    auto it = byKey.find(key);
    if (it == byKey.end() || it->second.empty())
        return keyRunner_->run(key, std::nullopt, focusedKeyedApp(), savedWindowKeys());
    // Repeated presses step through the windows that share the key, in the walk's own order: the
    // focused flags lag behind a quick second press.
    auto target = windowKeyWalk_.next(key, it->second);
    return target && windows_->focusWindow(*target);
}

void Subsystems::keepWindowKeyWalkOrder() {
    const auto& front = apps().focusedApp();
    if (!windowKeyWalk_.key() || windowKeyWalk_.rows().empty() || !front) return;
    std::vector<std::uint32_t> order;
    for (const auto& row : windowKeyWalk_.rows())
        order.push_back(row.id);
    apps().keepWindowKeyOrder(front->bundleID, *windowKeyWalk_.key(), std::move(order));
}

void Subsystems::endWindowKeyWalk() {
    keepWindowKeyWalkOrder();
    windowKeyWalk_.reset();
}

void Subsystems::start() {
    if (started_) return;
    started_ = true;
    apps().start();
    apps().startInstalledAppsQuery();
    // The catalogue's relevance of the Finder depends on whether it has windows.
    subscriptions_.push_back(windows_->tracker().windowsObservable().subscribe(
        [this](const std::vector<windows::ManagedWindow>& list) {
            std::map<std::string, int> counts;
            for (auto& w : list)
                ++counts[w.bundleIdentifier];
            apps().setAppWindowCounts(std::move(counts));
        }));
    // A walk through a shared window key lasts one hold of the window trigger.
    subscriptions_.push_back(InputManager::shared().windowTriggerKeysPressed.subscribe([this](bool held) {
        if (!held) endWindowKeyWalk();
    }));
    windowKeys_ = std::make_unique<windows::AppWindowKeys>();
    keyRunner_ = std::make_unique<windows::WindowKeyAssignmentRunner>(
        workspace(), *platform::Platform::current().processes);
    subscriptions_.push_back(
        windows_->tracker().windowsObservable().subscribe([this](const auto&) { refreshAppWindows(); }));
    subscriptions_.push_back(windowKeys_->settingsChanged.subscribe([this] {
        refreshAppWindows();
        // Saved items change the caught keys without changing any row.
        if (delegate_) delegate_->recomputeKeyLists();
    }));
    subscriptions_.push_back(apps().appWindowsChanged.subscribe([this] {
        if (delegate_) delegate_->recomputeKeyLists();
    }));
    // The launch guard's reactivation of a running app goes through the focus pipeline.
    apps().launcher().focus = [this](const platform::RunningApp& process) {
        windows_->forceActivate(process);
    };
    windows_->start();
    search_->start();
    // Last in the start-up order: the strip reads the catalogue's keys.
    spacesIndicator_->setEnabledFromSettings();
    wireCompanion();
}

companions::TactoraBindingInputs Subsystems::companionBindingInputs() {
    companions::TactoraBindingInputs in;
    in.bindingsOf = [this](const std::string& key) {
        std::vector<companions::TactoraBinding> list;
        auto add = [&](const apps::AppKeyAssignment* a, bool isStatic) {
            if (a && a->app)
                list.push_back({a->app->bundleIdentifier(), isStatic, apps().isRunning(*a->app)});
        };
        add(apps().assignmentForKey(key), true);
        add(apps().dynamicAssignmentForKey(key), false);
        return list;
    };
    if (auto info = iss_->spaceInfo(iss_->model().displayUnderPointer())) in.spaceCount = info->spaceCount;
    const auto& focused = windows_->focusedWindow();
    for (std::uint32_t id : windows_->windowMRU()) {
        if (focused && id == focused->id) continue;
        if (auto w = windows_->tracker().window(id)) {
            in.previousWindowBundleID = w->bundleIdentifier;
            break;
        }
    }
    return in;
}

void Subsystems::wireCompanion() {
    auto& p = platform::Platform::current();
    companions::TactoraManager::Sources sources;
    sources.notifications = p.notifications;
    sources.workspace = p.workspace;
    sources.bindingInputs = [this] { return companionBindingInputs(); };
    sources.hideOSD = [] { InputManager::shared().hideOSD(); };
    std::error_code ec;
    sources.temporaryDirectory = std::filesystem::temp_directory_path(ec);
    companion_ = std::make_unique<companions::TactoraManager>(Settings::shared(), std::move(sources));
    companion_->start();
    auto* companion = companion_.get();
    subscriptions_.push_back(InputManager::shared().appTriggerKeysPressed.subscribe([companion](bool held) {
        if (held)
            companion->hold();
        else
            companion->triggerReleased();
    }));
    InputManager::shared().companionKeyUsedHook = [companion] { companion->keyActed(); };
    subscriptions_.push_back(
        apps().assignmentsChanged.subscribe([companion] { companion->bindingsChanged(); }));
}

RoutingServices Subsystems::routingServices() {
    RoutingServices s;
    s.staticAssignment = [this](const std::string& letter) {
        return routedAssignment(apps(), apps().assignmentForKey(letter), true);
    };
    s.dynamicAssignment = [this](const std::string& letter) {
        return routedAssignment(apps(), apps().dynamicAssignmentForKey(letter), false);
    };
    s.nearestRunningApp = [this](const std::string& letter) -> std::optional<RoutedApp> {
        auto entry = apps().nearestRunningApp(letter);
        if (!entry) return std::nullopt;
        return RoutedApp{entry->process.bundleID, entry->process.name, entry->process.pid};
    };
    s.letterIsAmbiguating = [this](const std::string& letter) { return apps().isAmbiguatingLetter(letter); };
    // A letter reaches a launchable app when a relevant app that isn't running begins with it; with
    // the switcher limited to running apps, none does.
    s.letterReachesLaunchable = [this](const std::string& letter) {
        if (InputManager::shared().settings().switcherAppsOnly) return false;
        auto& m = apps();
        for (auto& app : m.catalogue().apps())
            if (app->firstNameLetter() == letter && !m.isRunning(*app) && m.isRelevant(*app)) return true;
        return false;
    };
    s.launchApp = [this](const std::string& bundleID) { return apps().launch(bundleID, true); };
    s.windowCount = [this](const std::string& bundleID) {
        return static_cast<int>(windows_->windowsOfApp(bundleID).size());
    };
    s.assignLetter = [this](const RoutedApp& app, const std::string& key) {
        auto running = apps().runningAppByBundleIdentifier(app.bundleID);
        if (!running) return false;
        auto ref = apps().launchableAppFor(*running);
        if (!ref) return false;
        // An app with a letter moves it to the new one; otherwise it gains one.
        if (const auto* record = apps().assignmentForBundleIdentifier(app.bundleID))
            apps().rebound(apps::AppKeyAssignment(*record), key);
        else
            apps().assign(ref, key);
        return true;
    };
    s.focusApp = [this](const RoutedApp& app, bool hideOthers) {
        bool ok = windows_->focusApp(app.bundleID);
        // The running views are as of the last running-apps change: whether an app is hidden is
        // asked now.
        if (ok && hideOthers)
            for (auto& other : apps().runningApps()) {
                auto live = workspace().runningApp(other.process.pid);
                if (live && live->pid != app.pid && !live->hidden) workspace().hide(live->pid);
            }
        return ok;
    };
    s.focusLastFocusedWindow = [this] { return windows_->focusLastFocusedWindow(); };
    s.focusPreviousWindowInCurrentApp = [this] { return windows_->focusPreviousWindowInCurrentApp(); };
    s.focusWindowByKey = [this](const std::string& key) { return focusWindowByKey(key); };
    s.applyPendingMRU = [this] { windows_->flushPendingMRU(); };
    s.showWindowAssignPanel = [this] { showWindowAssignPanel(); };
    // The already-focused app steps to its next window (in id order, wrapping), so repeated presses
    // visit every window.
    s.cycleToNextWindow = [this](const RoutedApp& app) {
        auto list = windows_->windowsOfApp(app.bundleID);
        if (list.empty()) return false;
        const auto& focused = windows_->focusedWindow();
        const auto& next =
            nextAfter(list, [&](const windows::ManagedWindow& w) { return focused && w.id == focused->id; });
        if (focused && next.id == focused->id) return false;
        return windows_->focus(next);
    };
    s.minimizeFocusedApp = [this](bool onlyFocused) {
        auto front = apps().frontmostApp();
        if (!front) return false;
        if (onlyFocused) return minimizer_->minimizeFocusedWindow(front->pid);
        bool any = false;
        for (auto& w : windows_->windowsOfApp(front->bundleID))
            if (!w.isMinimized) any = minimizer_->setMinimized(front->pid, w.id, true) || any;
        return any;
    };
    s.minimizeOthersOfFocusedApp = [this] {
        auto front = apps().frontmostApp();
        auto focused = windows_->focusedWindow();
        if (!front) return false;
        minimizer_->minimizeOthers(front->pid, focused ? focused->id : 0);
        return true;
    };
    s.switchToSpace = [this](int index) { return windows_->switchToSpaceNumber(index); };
    // The Space before or after the current one on the display under the pointer; past either end
    // the switch refuses (and says so).
    s.switchAdjacentSpace = [this](int delta) {
        auto display = iss_->model().displayUnderPointer();
        auto info = iss_->spaceInfo(display);
        if (!info) return false;
        return iss_->switchToSpace(iss_->currentIndex(*info) + delta, display);
    };
    search_->fill(s);
    fillStageRouting(s);
    wireSpaceMoves(s);
    return s;
}

namespace {
// Display names by display identifier, read once for a whole list of windows.
std::map<std::string, std::string> displayNames() {
    std::map<std::string, std::string> names;
    if (auto* screens = platform::Platform::current().screens)
        for (auto& screen : screens->screens())
            names[screen.uuid] = screen.name;
    return names;
}

command::ZelkWindowInfo windowInfo(const windows::ManagedWindow& w,
                                   const std::vector<platform::DisplaySpaces>& all,
                                   const std::map<std::string, std::string>& names) {
    command::ZelkWindowInfo info;
    info.id = w.id;
    info.title = w.title;
    info.appName = w.appName;
    info.bundleID = w.bundleIdentifier;
    info.pid = w.appPid;
    info.spaceID = w.spaceID;
    if (w.spaceID) {
        info.spaceIndex = spaceIndexOf(all, *w.spaceID);
        // The display that holds the window's Space names where that index counts.
        for (auto& d : all)
            for (auto& space : d.spaces)
                if (space.id64 == *w.spaceID)
                    if (auto name = names.find(d.displayIdentifier); name != names.end())
                        info.displayName = name->second;
    }
    info.isFocused = w.isFocused;
    info.isMinimized = w.isMinimized;
    return info;
}
}  // namespace

command::StatusProviders Subsystems::statusProviders() {
    auto p = command::platformStatusProviders();
    p.focusedWindow = [this]() -> std::optional<command::ZelkWindowInfo> {
        const auto& focused = windows_->focusedWindow();
        if (!focused) return std::nullopt;
        auto info = windowInfo(*focused, windows_->displaySpaces(), displayNames());
        info.isFocused = true;
        return info;
    };
    numberSpacesForStatus(p);
    return p;
}

command::ManagerProviders Subsystems::commandProviders() {
    command::ManagerProviders p;
    p.listApps = [this] {
        std::vector<command::ZelkAppInfo> out;
        auto all = windows_->displaySpaces();
        auto front = apps().frontmostApp();
        for (auto& entry : apps().runningApps()) {
            const auto& proc = entry.process;
            command::ZelkAppInfo info{proc.name, proc.bundleID, proc.pid};
            info.isActive = front && front->pid == proc.pid;
            auto live = workspace().runningApp(proc.pid);
            info.isHidden = live ? live->hidden : proc.hidden;
            auto ws = windows_->windowsOfApp(proc.bundleID);
            info.windowCount = static_cast<std::int64_t>(ws.size());
            for (auto& w : ws) {
                if (!w.spaceID) continue;
                if (auto i = spaceIndexOf(all, *w.spaceID);
                    i && std::find(info.spaceIndices.begin(), info.spaceIndices.end(), *i) ==
                             info.spaceIndices.end())
                    info.spaceIndices.push_back(*i);
            }
            std::sort(info.spaceIndices.begin(), info.spaceIndices.end());
            out.push_back(std::move(info));
        }
        return out;
    };
    p.listWindows = [this](const std::optional<std::string>& appQuery) {
        std::vector<command::ZelkWindowInfo> out;
        auto all = windows_->displaySpaces();
        // An app query names one app, found as the app commands find theirs.
        std::optional<std::string> bundle;
        if (appQuery && !appQuery->empty()) {
            command::ZelkRequest request;
            request.query = *appQuery;
            auto found = findApps(apps(), request);
            if (found.empty()) return out;
            bundle = found.front().bundleID;
        }
        const auto names = displayNames();
        for (auto& w : windows_->windows())
            if (!bundle || w.bundleIdentifier == *bundle) out.push_back(windowInfo(w, all, names));
        return out;
    };
    p.findApps = [this](const command::ZelkRequest& r) { return findApps(apps(), r); };
    p.focusApp = [this](const AppTarget& t) { return windows_->focusApp(t.bundleID); };
    p.hideOtherApps = [this](const AppTarget& t) {
        int n = 0;
        // Whether an app is hidden is asked now: the running views are as of the last change of the list.
        for (auto& other : apps().runningApps()) {
            auto live = workspace().runningApp(other.process.pid);
            if (live && live->pid != t.pid && !live->hidden && workspace().hide(live->pid)) ++n;
        }
        return n;
    };
    p.hideApp = [](const AppTarget& t) { return workspace().hide(t.pid); };
    p.unhideApp = [](const AppTarget& t) { return workspace().unhide(t.pid); };
    p.quitApp = [](const AppTarget& t) { return workspace().terminate(t.pid); };
    p.findWindows = [this](const command::ZelkRequest& r) {
        std::vector<std::uint32_t> ids;
        if (r.windowID) {
            for (auto& w : windows_->windows())
                if (w.id == *r.windowID) ids.push_back(w.id);
            return ids;
        }
        std::string q = r.query ? search::lowercased(*r.query) : "";
        if (q.empty() && !r.bundleID) return ids;
        for (auto& w : windows_->windows()) {
            if (r.bundleID && w.bundleIdentifier != *r.bundleID) continue;
            if (!q.empty() && search::lowercased(w.title).find(q) == std::string::npos &&
                search::lowercased(w.appName).find(q) == std::string::npos)
                continue;
            ids.push_back(w.id);
        }
        return ids;
    };
    auto pidOf = [this](std::uint32_t id) -> std::int32_t {
        for (auto& w : windows_->windows())
            if (w.id == id) return w.appPid;
        return 0;
    };
    p.focusWindow = [this](std::uint32_t id) { return windows_->focusWindow(id); };
    p.minimizeWindow = [this, pidOf](std::uint32_t id) {
        return minimizer_->setMinimized(pidOf(id), id, true);
    };
    p.unminimizeWindow = [this, pidOf](std::uint32_t id) {
        return minimizer_->setMinimized(pidOf(id), id, false);
    };
    p.focusLastWindow = [this] { windows_->focusLastFocusedWindow(); };
    p.minimizeFocused = [this] {
        if (auto front = apps().frontmostApp()) minimizer_->minimizeFocusedWindow(front->pid);
    };
    p.minimizeOthers = [this] {
        auto front = apps().frontmostApp();
        if (!front) return false;
        auto focused = windows_->focusedWindow();
        minimizer_->minimizeOthers(front->pid, focused ? focused->id : 0);
        return true;
    };
    addSpaceCommands(p);
    return p;
}

}  // namespace zelk::agent

namespace zelk::agent {

command::StageProviders Subsystems::stageProviders() {
    stages::StageService::CommandHooks hooks;
    hooks.windowInfo = [this](const windows::ManagedWindow& w) {
        return windowInfo(w, windows_->displaySpaces(), displayNames());
    };
    hooks.findWindows = commandProviders().findWindows;
    hooks.knowsApp = [this](const std::string& bundleID) {
        for (auto& entry : apps().runningApps())
            if (entry.process.bundleID == bundleID) {
                auto app = apps().launchableAppFor(entry.process);
                return app && !app->isPlaceholder();
            }
        return false;
    };
    return stages_->commandProviders(std::move(hooks));
}

}  // namespace zelk::agent
