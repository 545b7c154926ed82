#include "windows/FocusPipeline.h"

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk::windows {

using ferrow::Log;

namespace {
std::string spaceText(std::optional<std::uint64_t> s) {
    return s ? std::to_string(*s) : std::string("nil");
}
std::string idList(const std::vector<std::uint32_t>& ids) {
    std::vector<std::string> parts;
    for (auto id : ids)
        parts.push_back(std::to_string(id));
    return ferrow::join(parts, ",");
}
}  // namespace

FocusPipeline::FocusPipeline(WindowEnvironment& env, WindowTracker& tracker, MostRecentOrder& mru,
                             spaces::SpaceTracker& spaceTracker, spaces::ISSManager& iss)
    : env_(env),
      tracker_(tracker),
      mru_(mru),
      spaces_(spaceTracker),
      iss_(iss),
      ax_(*env.accessibility),
      route_(*env.windowServer),
      reassert_(*env.windowServer, *env.workspace, ax_, route_) {}

std::uint64_t FocusPipeline::activeSpace() {
    return env_.windowServer->activeSpace();
}

std::optional<platform::RunningApp> FocusPipeline::runningAppFor(const ManagedWindow& window) {
    // The window's own pid answers at once; the list of running apps is only walked when it has gone.
    if (auto app = env_.workspace->runningApp(window.appPid);
        app && !app->terminated &&
        (window.bundleIdentifier.empty() || app->bundleID == window.bundleIdentifier))
        return app;
    if (!window.bundleIdentifier.empty())
        for (auto& app : env_.trackedRunningApps())
            if (app.bundleID == window.bundleIdentifier) return app;
    return std::nullopt;
}

void FocusPipeline::scheduleReresolve(ferrow::Nanos delay) {
    reresolve_.cancel();
    reresolve_ = ferrow::MainQueue::shared().asyncAfter(delay, [this] { updateFocusedWindow(); });
}

bool FocusPipeline::focus(const ManagedWindow& window) {
    if (tellPointerFollower) tellPointerFollower(window);
    deliberateID_ = window.id;
    deliberateAt_ = ferrow::now();
    reassert_.cancel();
    if (cancelAllWindowsReassert) cancelAllWindowsReassert();
    std::uint64_t active = activeSpace();
    bool liveCrossSpace = window.spaceID && *window.spaceID != active;
    Log::info("focus: target window #{} [{}] '{}' on {}, active {}, liveCrossSpace={}", window.id,
              window.bundleIdentifier, window.title, spaceText(window.spaceID), active, liveCrossSpace);
    if (liveCrossSpace) {
        spaces_.pendingCrossSpaceFocus() =
            spaces::PendingCrossSpaceFocus{*window.spaceID, spaces_.currentSpaceID(), ferrow::now()};
        scheduleReresolve(kCrossSpaceReresolve);
    }
    if (restoreIfStashed) restoreIfStashed(window.id);
    auto app = runningAppFor(window);
    if (!app) {
        Log::error("focus: no running app for bundle={}", window.bundleIdentifier);
        return false;
    }
    auto front = env_.workspace->frontmostApplication();
    bool appWasFront = front && front->pid == app->pid;
    ++focusDepth_;
    struct DepthGuard {
        int& depth;
        ~DepthGuard() { --depth; }
    } guard{focusDepth_};

    if (liveCrossSpace) {
        if (auto psn = env_.windowServer->processForPID(window.appPid))
            env_.windowServer->spaceSetFrontPSN(*window.spaceID, *psn);
        if (Settings::shared().get(keys::enableInstantSpaceSwitching)) focusSpaceContainingWindow(window);
        reassert_.start(app->pid, window.id, window.spaceID);
    }
    ManagedWindow focusedCopy = window;
    focusedCopy.isFocused = true;
    auto fallback = [&] {
        route_.run(app->pid, window.id);
        assign(focusedCopy);
        activate(*app, liveCrossSpace, appWasFront);
        if (!liveCrossSpace) route_.run(app->pid, window.id);
        return true;
    };
    if (app->terminated) {
        Log::error("focus: no AXApplication for {}; using SLPS{} fallback", window.bundleIdentifier,
                   liveCrossSpace ? "" : "+activate");
        return fallback();
    }
    platform::AXRef appElement = ax_.application(app->pid);
    platform::AXError error = platform::AXError::success;
    auto axWindows = ax_.windows(appElement, error);
    if (!axWindows) {
        Log::error("focus: AX error for {}: {}", window.bundleIdentifier, errorText(error));
        return fallback();
    }
    std::optional<platform::AXRef> target;
    for (auto w : *axWindows)
        if (env_.accessibility->windowNumber(w) == window.id) target = w;
    if (!target) {
        Log::debug(
            "focus: AX did not surface wid={} (axWindowCount={}); falling through to SLPS-only path (likely "
            "off-space)",
            window.id, axWindows->size());
        return fallback();
    }
    env_.accessibility->setMessagingTimeout(*target, AXReader::kMessagingTimeout);
    if (window.isMinimized) env_.accessibility->setAttribute(*target, "AXMinimized", false);
    route_.run(app->pid, window.id);
    if (!appWasFront) activate(*app, liveCrossSpace, appWasFront);
    env_.accessibility->performAction(*target, "AXRaise");
    focusedCopy.isMinimized = false;
    assign(focusedCopy);
    if (appWasFront) activate(*app, liveCrossSpace, appWasFront);
    if (!liveCrossSpace) route_.run(app->pid, window.id);
    Log::debug("focus: AX raise OK for wid={}", window.id);
    return true;
}

void FocusPipeline::activate(const platform::RunningApp& app, bool liveCrossSpace, bool wasFront) {
    if (liveCrossSpace) {
        Log::debug(
            "focus: skipping NSRunningApplication.activate (liveCrossSpace=true) to avoid cross-space "
            "animation");
        return;
    }
    // The direct route went out just before and the system may not have answered yet, so what was front
    // when the focus began decides.
    if (wasFront) {
        env_.workspace->activate(app.pid, false);
        return;
    }
    Log::debug("focus: target app {} not frontmost, forceActivate", app.bundleID);
    forceActivate(app);
}

bool FocusPipeline::plainActivate(const platform::RunningApp& app) {
    reassert_.cancel();
    if (cancelAllWindowsReassert) cancelAllWindowsReassert();
    return env_.workspace->activate(app.pid, Settings::shared().get(keys::activateAllWindows));
}

bool FocusPipeline::forceActivate(const platform::RunningApp& app) {
    // Inside `focus` the window is already chosen: the window path would route back into `focus`.
    if (focusDepth_ > 0) return env_.workspace->activate(app.pid, false);
    // Told first: when a window path takes over below, its window target replaces this one.
    if (tellPointerFollowerOfApp) tellPointerFollowerOfApp(app.pid);
    auto& settings = Settings::shared();
    FocusBehaviour behaviour = settings.get(keys::spaceMode) == SpaceMode::multi
                                   ? settings.get(keys::focusBehaviourMulti)
                                   : settings.get(keys::focusBehaviourSingle);
    if (behaviour == FocusBehaviour::sameSpaceWindow && focusSameSpaceWindow(app.bundleID)) return true;
    if (behaviour == FocusBehaviour::mainWindow && focusMainWindowIfOnInactiveSpace(app.bundleID))
        return true;
    return plainActivate(app);
}

std::optional<ManagedWindow> FocusPipeline::pickWindow(const std::string& bundleID,
                                                       const std::vector<ManagedWindow>& candidates) {
    if (candidates.empty()) return std::nullopt;
    if (auto it = lastFocusedByBundle_.find(bundleID); it != lastFocusedByBundle_.end())
        for (auto& w : candidates)
            if (w.id == it->second) return w;
    if (auto pid = candidates.front().appPid; pid > 0) {
        platform::AXRef app = ax_.application(pid);
        if (auto main = ax_.element(app, "AXMainWindow")) {
            std::uint32_t number = env_.accessibility->windowNumber(*main);
            for (auto& w : candidates)
                if (w.id == number) return w;
        }
    }
    for (auto& w : candidates)
        if (!w.isMinimized) return w;
    return candidates.front();
}

bool FocusPipeline::focusSameSpaceWindow(const std::string& bundleID) {
    if (bundleID.empty()) {
        Log::debug("focusSameSpaceWindow: no bundleIdentifier, skipping");
        return false;
    }
    auto candidates = tracker_.windowsOfApp(bundleID);
    if (candidates.empty()) {
        Log::debug("focusSameSpaceWindow: no candidates for {}, skipping", bundleID);
        return false;
    }
    std::uint64_t active = activeSpace();
    std::erase_if(candidates, [&](const ManagedWindow& w) { return w.spaceID && *w.spaceID != active; });
    if (candidates.empty()) {
        Log::debug("focusSameSpaceWindow: {} has no window on active Space {}, falling through", bundleID,
                   active);
        return false;
    }
    auto pick = pickWindow(bundleID, candidates);
    if (!pick) {
        Log::debug("focusSameSpaceWindow: {} couldn't pick a window, falling through", bundleID);
        return false;
    }
    Log::info("focusSameSpaceWindow: routing {} -> wid={} title='{}' space={} (active={})", bundleID,
              pick->id, pick->title, spaceText(pick->spaceID), active);
    focus(*pick);
    return true;
}

bool FocusPipeline::focusMainWindowIfOnInactiveSpace(const std::string& bundleID) {
    if (bundleID.empty()) {
        Log::debug("focusMainWindowIfOnInactiveSpace: no bundleIdentifier, skipping");
        return false;
    }
    auto candidates = tracker_.windowsOfApp(bundleID);
    std::uint64_t active = activeSpace();
    Log::debug(
        "focusMainWindowIfOnInactiveSpace: bundle={} totalKnownWindows={} candidates={} activeSpace={}",
        bundleID, tracker_.windows().size(), candidates.size(), active);
    std::vector<ManagedWindow> inactive;
    std::vector<std::uint32_t> onActive;
    for (auto& w : candidates) {
        Log::debug("focusMainWindowIfOnInactiveSpace:   wid={} title='{}' space={} minimized={}", w.id,
                   w.title, w.spaceID ? std::to_string(*w.spaceID) : "active(spaceID=nil, assumed)",
                   w.isMinimized);
        if (!w.spaceID || *w.spaceID == active)
            onActive.push_back(w.id);
        else
            inactive.push_back(w);
    }
    if (candidates.empty()) {
        Log::debug(
            "focusMainWindowIfOnInactiveSpace: no candidates for {}, falling through to plain activate",
            bundleID);
        return false;
    }
    if (!onActive.empty()) {
        Log::debug(
            "focusMainWindowIfOnInactiveSpace: {} has {} window(s) on active Space {} (wids={}), falling "
            "through to plain activate",
            bundleID, onActive.size(), active, idList(onActive));
        return false;
    }
    auto pick = pickWindow(bundleID, inactive);
    if (!pick) {
        Log::debug(
            "focusMainWindowIfOnInactiveSpace: {} no inactive-space main window selectable, falling through",
            bundleID);
        return false;
    }
    Log::info("focusMainWindowIfOnInactiveSpace: routing {} -> wid={} title='{}' space={} (active={})",
              bundleID, pick->id, pick->title, spaceText(pick->spaceID), active);
    focus(*pick);
    return true;
}

void FocusPipeline::focusSpaceContainingWindow(const ManagedWindow& window) {
    auto spaces = env_.windowServer->spacesForWindows(7, {window.id});
    if (spaces.empty()) {
        Log::error("focusSpaceContainingWindow: no spaces found for wid={}", window.id);
        return;
    }
    auto located = iss_.model().locate(spaces.front());
    if (!located) {
        Log::error("focusSpaceContainingWindow: no spaces found for wid={}", window.id);
        return;
    }
    auto& [display, index] = *located;
    Log::debug("focusSpaceContainingWindow: target on display={}", display);
    auto info = iss_.spaceInfo(display);
    if (!info) return;
    Log::debug("focusSpaceContainingWindow: ISS index={} of {} on display={}", index, info->spaceCount,
               display);
    if (info->currentSpaceID == spaces.front()) {
        Log::debug("focusSpaceContainingWindow: {} already current on display={}, skipping switch",
                   spaces.front(), display);
        return;
    }
    iss_.switchToSpace(index, display);
    // The switch told the pointer follower its display; the window it was made for is the target.
    if (tellPointerFollower) tellPointerFollower(window);
    Log::info("focusSpaceContainingWindow: {} → {} via {}", info->currentSpaceID, spaces.front(),
              spaces::methodName(spaces::SpaceSwitchMethod::iss));
}

void FocusPipeline::holdFocusOnMovedWindow(std::uint32_t windowID, std::optional<std::uint64_t> targetSpace) {
    auto owner = env_.windowServer->windowOwner(windowID);
    auto pid = owner ? env_.windowServer->connectionPID(*owner) : std::nullopt;
    if (!pid || *pid < 1) {
        Log::error("holdFocusOnMovedWindow: no owner pid for wid={}, skipping reassert", windowID);
        return;
    }
    deliberateID_ = windowID;
    deliberateAt_ = ferrow::now();
    reassert_.start(*pid, windowID, targetSpace);
}

void FocusPipeline::updateFocusedWindow() {
    if (auto& pending = spaces_.pendingCrossSpaceFocus()) {
        if (activeSpace() != pending->spaceID &&
            ferrow::now() - pending->at < spaces::SpaceTracker::kCrossSpaceGuard) {
            Log::debug("updateFocusedWindow: skipped, cross-Space focus still in flight");
            return;
        }
        pending.reset();
    }
    if (spaces_.missionControlActive()) {
        Log::debug("updateFocusedWindow: skipped, Mission Control active");
        return;
    }
    auto front = env_.workspace->frontmostApplication();
    if (front) {
        platform::AXRef app = ax_.application(front->pid);
        if (auto w = ax_.focusedWindow(app)) {
            std::uint32_t number = env_.accessibility->windowNumber(*w);
            if (auto known = number ? tracker_.window(number) : std::nullopt) {
                if (front->pid != known->appPid) {
                    Log::debug(
                        "updateFocusedWindow: AX reports #{} [{} pid={}] but frontmost pid={}; distrusting "
                        "stale AX",
                        known->id, known->bundleIdentifier, known->appPid, front->pid);
                } else {
                    setFocusedWindow(*known);
                    return;
                }
            }
        }
    }
    if (!front) return;
    if (focused_.get() && focused_.get()->appPid == front->pid) return;
    auto mine = tracker_.windowsOfApp(front->bundleID);
    if (mine.empty()) return;
    if (auto it = lastFocusedByBundle_.find(front->bundleID); it != lastFocusedByBundle_.end())
        for (auto& w : mine)
            if (w.id == it->second) {
                setFocusedWindow(w);
                return;
            }
    for (auto& w : mine)
        if (!w.isMinimized) {
            setFocusedWindow(w);
            return;
        }
}

void FocusPipeline::setFocusedWindow(const ManagedWindow& next) {
    const auto& current = focused_.get();
    if (deliberateID_ && deliberateAt_ && ferrow::now() - *deliberateAt_ < kDeliberateProtection &&
        next.id != *deliberateID_ && current && current->id == *deliberateID_ &&
        next.appPid != current->appPid) {
        Log::debug(
            "updateFocusedWindow: deferring cross-app revert of deliberate focus #{} -> #{}[{}] (frontmost "
            "still settling)",
            *deliberateID_, next.id, next.bundleIdentifier);
        scheduleReresolve(kProtectedRevertDelay);
        return;
    }
    assign(next);
}

void FocusPipeline::assign(std::optional<ManagedWindow> next) {
    std::optional<ManagedWindow> old = focused_.get();
    bool changed = !old || !next || old->id != next->id;
    focused_.set(next);
    if (changed && old && next && old->bundleIdentifier != next->bundleIdentifier && slot_.get()) {
        Log::debug("focusedWindow.didSet: cross-app focus change clears slot (old={} new={} slotWas=#{})",
                   describe(*old), describe(*next), slot_.get()->id);
        slot_.set(std::nullopt);
    }
    // Every assignment of a window, the same one again included, refreshes its focus time.
    if (!next) return;
    lastFocusedByBundle_[next->bundleIdentifier] = next->id;
    mru_.noteFocusForMRU(next->id);
    if (appFocusedWindowChanged) appFocusedWindowChanged(*next);
}

void FocusPipeline::forgetWindow(std::uint32_t id) {
    mru_.remove(id);
    if (focused_.get() && focused_.get()->id == id) focused_.set(std::nullopt);
}

bool FocusPipeline::focusLastFocusedWindow() {
    std::vector<std::string> mruText;
    for (auto id : mru_.ids())
        mruText.push_back(std::to_string(id));
    Log::debug("focusLastFocusedWindow: current={} slot={} mru=[{}]", describe(focused_.get()),
               describe(slot_.get()), ferrow::join(mruText, ","));
    if (auto slot = slot_.get()) {
        slot_.set(std::nullopt);
        Log::debug("focusLastFocusedWindow: consume slot -> {}", describe(*slot));
        bool ok = focus(*slot);
        Log::debug("focusLastFocusedWindow: focus(slot) returned {}", ok);
        return ok;
    }
    std::optional<std::uint32_t> candidate;
    for (auto id : mru_.ids())
        if (!focused_.get() || id != focused_.get()->id) {
            candidate = id;
            break;
        }
    if (!candidate) {
        Log::debug("focusLastFocusedWindow: no MRU candidate (current={}, mruCount={})",
                   describe(focused_.get()), mru_.ids().size());
        return false;
    }
    auto w = tracker_.window(*candidate);
    if (!w) {
        Log::debug("focusLastFocusedWindow: MRU id {} not in live windows list (windowsCount={})", *candidate,
                   tracker_.windows().size());
        return false;
    }
    Log::debug("focusLastFocusedWindow: MRU path -> {}", describe(*w));
    bool ok = focus(*w);
    Log::debug("focusLastFocusedWindow: focus(mru) returned {}", ok);
    return ok;
}

bool FocusPipeline::focusPreviousWindowInCurrentApp() {
    std::string bundle;
    if (focused_.get())
        bundle = focused_.get()->bundleIdentifier;
    else if (auto front = env_.workspace->frontmostApplication())
        bundle = front->bundleID;
    if (bundle.empty()) {
        Log::debug("focusPreviousWindowInCurrentApp: no bundle identifier (current={})",
                   describe(focused_.get()));
        return false;
    }
    std::vector<std::string> mruText;
    for (auto id : mru_.ids())
        mruText.push_back(std::to_string(id));
    Log::debug("focusPreviousWindowInCurrentApp: bundle={} current={} mru=[{}]", bundle,
               describe(focused_.get()), ferrow::join(mruText, ","));
    std::uint32_t current = focused_.get() ? focused_.get()->id : 0;
    for (auto id : mru_.ids()) {
        if (id == current) continue;
        auto w = tracker_.window(id);
        if (!w || w->bundleIdentifier != bundle) continue;
        Log::debug("focusPreviousWindowInCurrentApp: MRU path -> {}", describe(*w));
        bool ok = focus(*w);
        Log::debug("focusPreviousWindowInCurrentApp: focus(mru) returned {}", ok);
        return ok;
    }
    auto same = tracker_.windowsOfApp(bundle);
    for (auto& w : same) {
        if (w.id == current) continue;
        Log::debug("focusPreviousWindowInCurrentApp: auto-designate fallback -> {}", describe(w));
        bool ok = focus(w);
        Log::debug("focusPreviousWindowInCurrentApp: focus(fallback) returned {}", ok);
        return ok;
    }
    Log::debug(
        "focusPreviousWindowInCurrentApp: no other window for bundle={} (sameAppWindows={}, windowsCount={})",
        bundle, same.size(), tracker_.windows().size());
    return false;
}

}  // namespace zelk::windows
