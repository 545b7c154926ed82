// The hotkey operations the routing chain calls.
#include <fmt/format.h>

#include <utility>

#include "input/KeyRouter.h"
#include "platform/Platform.h"
#include "support/Log.h"

namespace zelk {

using ferrow::Log;
using Mode = InputSettings::ActivationMode;
using SpaceMode = InputSettings::SpaceMode;

void KeyRouter::onPrimaryHotkey(Key key) {
    const auto& s = input_.settings();
    const std::string letter(lowQWERTYCharacter(key));
    Log::info("onPrimaryHotkey: ENTRY key={} low={}", keyName(key), letter);
    hideAllAppsDecaying.cancel();
    hidingAll = false;
    if (key == s.hideKey) {
        hideKeyAction();
        return;
    }
    input_.showOSD(false);
    appsThatWereHidden.clear();
    if (key == Key::zero && !(s.spaceMode == SpaceMode::single && services_.staticAssignment(letter))) {
        Log::info("hotkey: {}+0 -> focusLastFocusedWindow", describeTriggers(s.triggerKeys));
        services_.focusLastFocusedWindow();
        return;
    }
    bool hideOthers = s.alwaysHideOthers && s.enableHideOnFocusHotkey;
    bool launchPending = false;
    if (auto a = services_.staticAssignment(letter)) {
        bool digitRoute = digitsAreAssigned() && key >= Key::zero && key <= Key::nine;
        launchPending = a->launchIfNotRunning && !a->app.running() && !digitRoute;
    }
    // A static app that isn't running launches after the breakout threshold, so a quick second key can
    // still turn the letter into a search.
    if (launchPending && s.activationMode != Mode::onRelease) {
        armStaticLaunchGrace(letter, hideOthers);
        return;
    }
    // On release (and a launch that waits), the activation is stored for the trigger's release.
    if (s.activationMode == Mode::onRelease || launchPending) {
        runPending();
        input_.keyDownDispatchedRouteLetter = letter;
        pendingActivation = [this, letter, hideOthers] { activateLetter(letter, hideOthers); };
        return;
    }
    activateLetter(letter, hideOthers);
}

void KeyRouter::activateLetter(const std::string& letter, bool hideOthers) {
    auto staticA = services_.staticAssignment(letter);
    if (staticA && !staticA->app.running() && staticA->launchIfNotRunning) {
        services_.launchApp(staticA->app.bundleID);
        return;
    }
    if (staticA && staticA->app.running()) {
        focusAssignedApp(staticA->app, hideOthers, staticA);
        return;
    }
    auto dynamicA = services_.dynamicAssignment(letter);
    if (dynamicA && dynamicA->app.running()) {
        focusAssignedApp(dynamicA->app, hideOthers, dynamicA);
        return;
    }
    if (auto app = services_.nearestRunningApp(letter)) focusAssignedApp(*app, hideOthers, std::nullopt);
}

bool KeyRouter::focusAssignedApp(const RoutedApp& app, bool hideOthers,
                                 const std::optional<RoutedAssignment>& a) {
    auto* ws = platform::Platform::current().workspace;
    auto front = ws ? ws->frontmostApplication() : std::nullopt;
    if (front && front->bundleID == app.bundleID) {
        runAlreadyFocusedAction(app, a);
        return true;
    }
    return services_.focusApp(app, hideOthers);
}

FocusedAction KeyRouter::alreadyFocusedAction(const std::optional<RoutedAssignment>& a) const {
    if (a && a->action != FocusedAction::followGlobal) return a->action;
    return static_cast<FocusedAction>(input_.settings().whenAlreadyFocusedAction);
}

void KeyRouter::runAlreadyFocusedAction(const RoutedApp& app, const std::optional<RoutedAssignment>& a) {
    auto* ws = platform::Platform::current().workspace;
    switch (alreadyFocusedAction(a)) {
        case FocusedAction::hide:
            Log::info("Hiding assigned {}", app.bundleID);
            if (ws) ws->hide(app.pid);
            break;
        case FocusedAction::expose:
            if (auto* server = platform::Platform::current().windowServer)
                server->coreDockSendNotification("com.apple.expose.front.awake");
            break;
        case FocusedAction::cycleWindows: {
            // A slow repeat opens the tab cycle over the app's windows; without one it steps as any
            // other press does.
            bool toTabCycle = std::exchange(cycleWindowsRequestsTabCycleOSD, false) &&
                              services_.built.tabCycle && services_.startAppWindowCycle;
            if (toTabCycle)
                services_.startAppWindowCycle(a ? a->key : input_.keyDownDispatchedRouteLetter.value_or(""));
            else
                services_.cycleToNextWindow(app);
            break;
        }
        case FocusedAction::doNothing:
        case FocusedAction::followGlobal:
            services_.focusApp(app, false);
            break;
    }
}

void KeyRouter::hideKeyAction() {
    const auto& s = input_.settings();
    auto* ws = platform::Platform::current().workspace;
    if (!ws) return;
    if (s.hideOnlyFocusedAppOnMinus) {
        if (auto front = ws->frontmostApplication()) ws->hide(front->pid);
        return;
    }
    if (!appsThatWereHidden.empty()) {
        for (auto& app : appsThatWereHidden)
            ws->unhide(app.pid);
        appsThatWereHidden.clear();
        return;
    }
    hidingAll = true;
    std::vector<RoutedApp> hidden;
    std::optional<platform::RunningApp> finder;
    for (const auto& app : ws->runningApplications()) {
        if (app.activationPolicy != platform::ActivationPolicy::regular || app.hidden) continue;
        if (app.bundleID == ws->ownBundleID()) continue;
        if (app.bundleID == "com.apple.finder") {
            finder = app;
            continue;
        }
        hidden.push_back({app.bundleID, app.name, app.pid});
    }
    appsThatWereHidden = hidden;
    for (auto& app : hidden)
        ws->hide(app.pid);
    // Coming to the front ourselves draws focus away from Finder, which can then hide too.
    ws->activate(ws->ownPID(), false);
    if (finder) ws->hide(finder->pid);
    std::weak_ptr<bool> alive = alive_;
    hideAllAppsDecaying = ferrow::mainAsyncAfter(400, [this, alive] {
        if (alive.lock()) hidingAll = false;
    });
}

void KeyRouter::onRightShiftHotkey(Key key) {
    if (key != input_.settings().hideKey) return;
    auto* ws = platform::Platform::current().workspace;
    if (!ws) return;
    auto front = ws->frontmostApplication();
    if (front) ws->activate(front->pid, true);
    for (const auto& app : ws->runningApplications()) {
        if (app.activationPolicy != platform::ActivationPolicy::regular || app.hidden) continue;
        if ((front && app.pid == front->pid) || app.bundleID == ws->ownBundleID()) continue;
        ws->hide(app.pid);
    }
}

void KeyRouter::onHideOnFocusHotkey(Key key) {
    auto* ws = platform::Platform::current().workspace;
    if (key == input_.settings().hideKey) {
        if (!ws) return;
        for (const auto& app : ws->runningApplications())
            if (app.activationPolicy == platform::ActivationPolicy::regular && !app.hidden &&
                app.bundleID != ws->ownBundleID())
                ws->hide(app.pid);
        return;
    }
    activateLetter(std::string(lowQWERTYCharacter(key)), !input_.settings().alwaysHideOthers);
}

void KeyRouter::onSecondaryHotkey(Key key) {
    const auto& s = input_.settings();
    input_.hideOSD();
    if (key == s.windowAssignKey) {
        services_.showWindowAssignPanel();
        return;
    }
    if (key == s.windowMinimizeKey) {
        services_.minimizeFocusedApp(s.minimizeOnlyFocusedWindowOnMinus);
        return;
    }
    if (key == Key::zero) {
        Log::info("hotkey: {}+0 -> focusPreviousWindowInCurrentApp", describeTriggers(s.windowTriggerKeys));
        services_.focusPreviousWindowInCurrentApp();
        return;
    }
    services_.focusWindowByKey(std::string(lowQWERTYCharacter(key)));
}

void KeyRouter::onSecondaryRightShiftHotkey(Key key) {
    input_.hideOSD();
    if (key == input_.settings().windowMinimizeKey) services_.minimizeOthersOfFocusedApp();
}

void KeyRouter::onAssignHotkey(Key key) {
    auto* ws = platform::Platform::current().workspace;
    auto front = ws ? ws->frontmostApplication() : std::nullopt;
    if (!front) return;
    const std::string letter(lowQWERTYCharacter(key));
    // A letter bound to another app moves only on a second press soon after the first: one press
    // must not silently take a letter away from the app that has it.
    auto bound = services_.staticAssignment(letter);
    if (bound && bound->app.bundleID != front->bundleID) {
        const auto t = now();
        bool confirmed = pendingAssign_ && pendingAssign_->letter == letter &&
                         pendingAssign_->bundleID == front->bundleID &&
                         t - pendingAssign_->at <= kAssigningAlreadyAssigned;
        if (!confirmed) {
            pendingAssign_ = PendingAssign{letter, front->bundleID, t};
            Log::info("Press the hotkey again to assign it to {}", front->name);
            return;
        }
    }
    pendingAssign_.reset();
    services_.assignLetter({front->bundleID, front->name, front->pid}, letter);
}

bool KeyRouter::onSpecialHotkey() {
    return services_.specialHotkey();
}

void KeyRouter::saveStageHotkey() {
    services_.saveStage();
}

}  // namespace zelk
