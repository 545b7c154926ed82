#include "windows/WindowManager.h"

#include <fmt/format.h>

#include "support/Format.h"
#include "support/Log.h"

namespace zelk::windows {

using ferrow::Log;
using platform::WorkspaceEventKind;

namespace {
const char* const kObservedNotifications[] = {"AXWindowCreated", "AXUIElementDestroyed",
                                              "AXFocusedWindowChanged", "AXWindowMiniaturized",
                                              "AXWindowDeminiaturized"};
constexpr std::int64_t kTitlePollSleepsMs[] = {50, 100, 200};

std::string appLabel(const platform::RunningApp& app) {
    return app.name.empty() ? std::string("Unknown") : app.name;
}

// Lets go of the work items that have run or were cancelled, so a long run holds only pending ones.
void dropFinished(std::vector<ferrow::WorkItem>& items) {
    std::erase_if(items, [](const ferrow::WorkItem& item) { return !item.isPending(); });
}
}  // namespace

WindowManager::WindowManager(WindowEnvironment env, spaces::ISSManager& iss)
    : env_([&] {
          env.fillDefaults();
          return env;
      }()),
      iss_(iss),
      tracker_(env_),
      mru_(env_.triggerHeld),
      spaces_(*env_.windowServer),
      focus_(env_, tracker_, mru_, spaces_, iss_) {
    mru_.describe = [this](std::uint32_t id) {
        if (auto w = tracker_.window(id)) return describe(*w);
        return fmt::format("#{}", id);
    };
    tracker_.afterPublish = [this] { afterPublish(); };
    tracker_.adopted = [this](const platform::RunningApp& app) {
        if (!app.terminated) startObserver(app);
    };
    tracker_.answered = [this](const platform::RunningApp& app) {
        if (failedObservers_.count(app.pid) && !app.terminated) startObserver(app);
    };
    closedSub_ = tracker_.windowsClosed.subscribe([this](const std::vector<ManagedWindow>& closed) {
        // Told before the focus times go: a closed window's record keeps when it last had focus.
        if (windowsPruned) windowsPruned(closed);
        for (auto& w : closed)
            focus_.forgetWindow(w.id);
    });
    scheduler_.refreshApp = [this](std::int32_t pid) {
        if (auto app = runningApp(pid)) tracker_.refreshApp(*app);
    };
    scheduler_.refreshAll = [this] { tracker_.refreshWindows(true); };
    spaces_.resolveFocus = [this] { focus_.updateFocusedWindow(); };
    spaces_.scheduleReresolve = [this](ferrow::Nanos delay) { focus_.scheduleReresolve(delay); };
    spaces_.dropSpaceCache = [this] { tracker_.walk().invalidate(); };
}

WindowManager::~WindowManager() {
    *alive_ = false;
    policyTimer_.cancel();
    for (auto& item : policyChecks_)
        item.cancel();
    for (auto& item : titlePolls_)
        item.cancel();
    for (auto& [pid, observer] : observers_)
        env_.accessibility->destroyObserver(observer);
}

std::optional<platform::RunningApp> WindowManager::runningApp(std::int32_t pid) {
    auto app = env_.workspace->runningApp(pid);
    if (!app || app->terminated) return std::nullopt;
    return app;
}

void WindowManager::start() {
    workspaceSub_ = env_.workspace->observe([this](const platform::WorkspaceEvent& e) { onWorkspace(e); });
    spaces_.attachMissionControlObserver(*env_.accessibility, *env_.workspace);
    startObservers();
    seedPolicyCache();
    std::weak_ptr<bool> alive = alive_;
    for (int code : {1325, 1326})
        env_.windowServer->registerNotifyProc(code,
                                              [this, alive](int c, const std::vector<std::uint8_t>& payload) {
                                                  ferrow::mainAsync([this, alive, c, payload] {
                                                      if (auto a = alive.lock(); a && *a)
                                                          onWindowServer(c, payload);
                                                  });
                                              });
    tracker_.refreshWindows(false);
}

void WindowManager::afterPublish() {
    focus_.updateFocusedWindow();
    if (firstRefreshDone_) return;
    firstRefreshDone_ = true;
    if (mru_.ids().empty() && focus_.focusedWindow()) {
        const auto& w = *focus_.focusedWindow();
        mru_.recordWindowMRU(w.id);
        Log::info("MRU seeded with frontmost #{}[{}] on first refresh", w.id, w.appName);
    }
}

bool WindowManager::focusApp(const std::string& bundleID) {
    for (auto& app : env_.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return focus_.forceActivate(app);
    Log::debug("focusApp: {} is not running", bundleID);
    return false;
}

bool WindowManager::focusWindow(std::uint32_t windowID) {
    auto w = tracker_.window(windowID);
    if (!w) {
        Log::debug("focus: wid={} is not a tracked window", windowID);
        return false;
    }
    return focus_.focus(*w);
}

std::vector<platform::DisplaySpaces> WindowManager::displaySpaces() {
    return env_.windowServer->managedDisplaySpaces().value_or(std::vector<platform::DisplaySpaces>{});
}

std::vector<spaces::SpaceInfo> WindowManager::spacesByDisplay() {
    std::vector<spaces::SpaceInfo> out;
    for (auto& d : displaySpaces())
        if (auto info = iss_.spaceInfo(d.displayIdentifier)) out.push_back(*info);
    return out;
}

bool WindowManager::switchToSpaceNumber(int n) {
    auto display = iss_.model().displayUnderPointer();
    auto all = displaySpaces();
    const platform::DisplaySpaces* entry = all.empty() ? nullptr : &all.front();
    for (auto& d : all)
        if (display && d.displayIdentifier == *display) entry = &d;
    if (!entry || n < 1) return false;
    int seen = 0;
    for (std::size_t i = 0; i < entry->spaces.size(); ++i) {
        if (entry->spaces[i].type != 0) continue;
        if (++seen == n) return iss_.switchToSpace(static_cast<int>(i), entry->displayIdentifier);
    }
    // Past the display's Spaces: the switch itself refuses, with its own words.
    return iss_.switchToSpace(static_cast<int>(entry->spaces.size()) + (n - seen) - 1,
                              entry->displayIdentifier);
}

void WindowManager::startObservers() {
    tracker_.refreshWindows(false);
    for (auto& app : env_.trackedRunningApps())
        if (!observers_.count(app.pid) && !app.terminated) startObserver(app);
}

void WindowManager::runningAppsDidChange() {
    tracker_.refreshWindows(false);
}

void WindowManager::startObserver(const platform::RunningApp& app) {
    if (observers_.count(app.pid)) return;
    auto& ax = *env_.accessibility;
    platform::AXRef element = ax.applicationElement(app.pid);
    ax.setMessagingTimeout(element, AXReader::kMessagingTimeout);
    std::int32_t pid = app.pid;
    std::uint64_t observer = ax.createObserver(pid, [this, pid](platform::AXRef e, const std::string& name) {
        if (auto live = runningApp(pid)) onAXEvent(*live, e, name);
    });
    if (!observer) {
        Log::error("Error starting observer for {}: {}", appLabel(app),
                   errorText(platform::AXError::failure));
        failedObservers_.insert(pid);
        return;
    }
    for (const char* name : kObservedNotifications) {
        auto result = ax.addNotification(observer, element, name);
        if (result != platform::AXError::success &&
            result != platform::AXError::notificationAlreadyRegistered) {
            Log::error("Error starting observer for {}: {}", appLabel(app), errorText(result));
            ax.destroyObserver(observer);
            failedObservers_.insert(pid);
            return;
        }
    }
    observers_[pid] = observer;
    failedObservers_.erase(pid);
}

void WindowManager::onAXEvent(const platform::RunningApp& app, platform::AXRef element,
                              const std::string& notification) {
    auto& ax = *env_.accessibility;
    AXReader reader(ax);
    bool created = notification == "AXWindowCreated";
    bool destroyed = notification == "AXUIElementDestroyed";
    if (notification == "AXFocusedWindowChanged") {
        if (spaces_.missionControlActive()) return;
        std::uint32_t wid = ax.windowNumber(element);
        if (wid != 0 && !app.bundleID.empty()) focus_.lastFocusedWindowByBundleID()[app.bundleID] = wid;
        if (focus_.restoreIfStashed)
            if (auto f = reader.focusedWindow(reader.application(app.pid)))
                focus_.restoreIfStashed(ax.windowNumber(*f));
    } else if (created) {
        ax.setMessagingTimeout(element, AXReader::kMessagingTimeout);
        auto subrole = reader.string(element, "AXSubrole");
        auto size = reader.size(element);
        std::uint32_t wid = ax.windowNumber(element);
        bool dialog = subrole == std::optional<std::string>("AXDialog") ||
                      subrole == std::optional<std::string>("AXSystemDialog");
        if (dialog && size && size->width > 0 && size->height > 0 &&
            (size->width < 100 || size->height < 100)) {
            Log::debug("startObserver: {} skip ghost dialog windowCreated wid={} ({}×{})", appLabel(app), wid,
                       size->width, size->height);
            return;
        }
        if (auto observer = observers_.find(app.pid); observer != observers_.end()) {
            auto result = ax.addNotification(observer->second, element, "AXUIElementDestroyed");
            if (result != platform::AXError::success)
                Log::error("Error watching window destroy: {}", errorText(result));
        }
        if (wid != 0 && !app.bundleID.empty())
            pollTitle(WindowCreated{app.pid, wid, app.bundleID}, element, 0);
    }
    if (created || destroyed) tracker_.walk().invalidate();
    scheduler_.eventRefresh(app.pid);
    if (created || destroyed) scheduler_.scheduleDelayedRefresh(app.pid, {0.3});
}

void WindowManager::pollTitle(WindowCreated created, platform::AXRef element, int attempt) {
    AXReader reader(*env_.accessibility);
    auto title = reader.string(element, "AXTitle");
    if ((title && !title->empty()) || attempt >= 3) {
        windowCreated_.emit(created);
        return;
    }
    dropFinished(titlePolls_);
    titlePolls_.push_back(ferrow::mainAsyncAfter(
        kTitlePollSleepsMs[attempt],
        [this, created, element, attempt] { pollTitle(created, element, attempt + 1); }));
}

void WindowManager::awaitNewWindow(const std::string& bundleID, ferrow::Nanos timeout,
                                   std::function<void(std::optional<WindowCreated>)> done) {
    struct Wait {
        ferrow::Subscription sub;
        ferrow::WorkItem timer;
        std::function<void(std::optional<WindowCreated>)> done;
        bool finished = false;
    };
    auto wait = std::make_shared<Wait>();
    wait->done = std::move(done);
    auto finish = [wait](std::optional<WindowCreated> result) {
        if (wait->finished) return;
        wait->finished = true;
        wait->timer.cancel();
        wait->sub.cancel();
        if (wait->done) wait->done(result);
    };
    wait->sub = windowCreated_.subscribe([finish, bundleID](const WindowCreated& c) {
        if (c.bundleID == bundleID) finish(c);
    });
    wait->timer = ferrow::MainQueue::shared().asyncAfter(timeout, [finish] { finish(std::nullopt); });
}

void WindowManager::onWorkspace(const platform::WorkspaceEvent& e) {
    switch (e.kind) {
        case WorkspaceEventKind::didLaunch: {
            if (!e.app) {
                tracker_.refreshWindows(false);
                return;
            }
            const auto& app = *e.app;
            if (env_.isProblematic(app.bundleID)) {
                Log::debug("workspace: ignoring the launch of problematic app {}", app.bundleID);
                return;
            }
            startObserver(app);
            if (app.activationPolicy == platform::ActivationPolicy::accessory && app.pid >= 1 &&
                !policyCache_.count(app.pid)) {
                policyCache_[app.pid] = false;
                ensurePolicyTimer();
            }
            scheduler_.scheduleDelayedRefresh(app.pid, {0.5, 1.5, 5.0, 10.0});
            if (app.bundleID == "com.apple.dock")
                spaces_.attachMissionControlObserver(*env_.accessibility, *env_.workspace);
            return;
        }
        case WorkspaceEventKind::didTerminate: {
            if (e.app) {
                std::int32_t pid = e.app->pid;
                if (auto it = observers_.find(pid); it != observers_.end()) {
                    env_.accessibility->destroyObserver(it->second);
                    observers_.erase(it);
                }
                failedObservers_.erase(pid);
                policyCache_.erase(pid);
                scheduler_.forget(pid);
                tracker_.health().forget(pid);
                // The quit of an app that keeps quitting and relaunching leaves nothing to refresh for.
                if (env_.isProblematic(e.app->bundleID)) return;
            }
            tracker_.refreshWindows(false);
            scheduler_.scheduleGlobalRefresh({0.5});
            return;
        }
        case WorkspaceEventKind::didActivate: {
            tracker_.setFrontmostApp(e.app);
            if (e.app && e.app->activationPolicy == platform::ActivationPolicy::regular) {
                bool tracked = false;
                for (auto& a : env_.trackedRunningApps())
                    tracked = tracked || a.bundleID == e.app->bundleID;
                if (!tracked) tracker_.refreshWindows(false);
            }
            focus_.updateFocusedWindow();
            return;
        }
        case WorkspaceEventKind::screenParametersChanged:
            tracker_.refreshWindows(false);
            return;
        case WorkspaceEventKind::activeSpaceDidChange:
            spaces_.activeSpaceDidChange();
            tracker_.refreshWindows(false);
            return;
        default:
            return;
    }
}

void WindowManager::onWindowServer(int code, const std::vector<std::uint8_t>& payload) {
    if (payload.size() < 12) return;
    std::uint32_t wid =
        payload[8] | (payload[9] << 8) | (payload[10] << 16) | (std::uint32_t(payload[11]) << 24);
    if (wid == 0) return;
    if (code == 1326) {
        if (auto w = tracker_.window(wid)) {
            Log::info("SLS window {} destroyed [{}], pruning", wid, w->bundleIdentifier);
            tracker_.pruneWindows({wid});
            tracker_.remove(wid);
            mru_.remove(wid);
        }
    }
    if (policyCache_.empty() && !scheduler_.anyLadderPending()) return;
    auto owner = env_.windowServer->windowOwner(wid);
    auto pid = owner ? env_.windowServer->connectionPID(*owner) : std::nullopt;
    if (!pid || *pid < 1) return;
    if (code == 1325 && scheduler_.ladderPending(*pid)) {
        Log::info("SLS window {} created for pid {} with a refresh ladder pending, refreshing now", wid,
                  *pid);
        scheduler_.scheduleDelayedRefresh(*pid, {0.0, 0.5});
    }
    if (auto cached = policyCache_.find(*pid); cached != policyCache_.end()) {
        bool isRegular = cached->second;
        if ((code == 1325 && isRegular) || (code == 1326 && !isRegular)) return;
        schedulePolicyCheck(*pid);
    }
}

void WindowManager::seedPolicyCache() {
    for (auto& app : env_.workspace->runningApplications())
        if (app.pid >= 1 && app.pid != env_.workspace->ownPID() &&
            app.activationPolicy == platform::ActivationPolicy::accessory)
            policyCache_[app.pid] = false;
    ensurePolicyTimer();
}

void WindowManager::ensurePolicyTimer() {
    if (policyCache_.empty() || policyTimer_.isPending()) return;
    policyTimer_ = ferrow::MainQueue::shared().asyncAfter(kPolicyPoll, [this] { pollPolicies(); });
}

void WindowManager::pollPolicies() {
    policyTimer_ = {};
    std::vector<std::pair<std::int32_t, bool>> changes;
    std::vector<std::int32_t> gone;
    for (auto& [pid, isRegular] : policyCache_) {
        auto app = env_.workspace->runningApp(pid);
        if (!app || app->terminated) {
            gone.push_back(pid);
            continue;
        }
        bool regular = app->activationPolicy == platform::ActivationPolicy::regular;
        if (regular != isRegular) changes.push_back({pid, regular});
    }
    for (auto pid : gone)
        policyCache_.erase(pid);
    for (auto& [pid, regular] : changes)
        applyPolicy(pid, regular);
    ensurePolicyTimer();
}

void WindowManager::schedulePolicyCheck(std::int32_t pid) {
    if (pendingPolicyChecks_.count(pid) || !policyCache_.count(pid)) return;
    pendingPolicyChecks_.insert(pid);
    dropFinished(policyChecks_);
    policyChecks_.push_back(ferrow::MainQueue::shared().asyncAfter(kPolicyCheckDelay, [this, pid] {
        pendingPolicyChecks_.erase(pid);
        auto app = env_.workspace->runningApp(pid);
        if (!app || app->terminated) {
            policyCache_.erase(pid);
            return;
        }
        bool regular = app->activationPolicy == platform::ActivationPolicy::regular;
        if (auto it = policyCache_.find(pid); it != policyCache_.end() && it->second != regular)
            applyPolicy(pid, regular);
    }));
}

void WindowManager::applyPolicy(std::int32_t pid, bool isRegular) {
    policyCache_[pid] = isRegular;
    auto app = env_.workspace->runningApp(pid);
    std::string name = app && !app->bundleID.empty() ? app->bundleID : std::to_string(pid);
    if (isRegular) {
        Log::info("activationPolicy: {} promoted to .regular without activating, adopting proactively", name);
        if (app && !observers_.count(pid)) startObserver(*app);
        tracker_.refreshWindows(false);
        scheduler_.scheduleDelayedRefresh(pid, {0.15, 0.4, 1.0, 2.0});
    } else {
        Log::info("activationPolicy: {} demoted from .regular, refreshing to drop its windows", name);
        tracker_.refreshWindows(false);
        scheduler_.scheduleGlobalRefresh({0.3});
    }
}

}  // namespace zelk::windows
