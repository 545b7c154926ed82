#include "input/SelectionActions.h"

#include <algorithm>
#include <cctype>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "platform/Accessibility.h"
#include "platform/Platform.h"
#include "support/Log.h"

namespace zelk {

using ferrow::Log;

std::string SelectionActionTarget::describe() const {
    if (isWindow()) return fmt::format("window id={} bundle={}", windowID, bundleID);
    return fmt::format("app bundle={}", bundleID);
}

namespace {
constexpr double kMessagingTimeout = 1.0;

std::optional<platform::AXRef> axRef(const platform::AXResult<platform::AXValue>& r) {
    if (!r.ok() || !r.value || !std::holds_alternative<platform::AXRef>(*r.value)) return std::nullopt;
    return std::get<platform::AXRef>(*r.value);
}
std::optional<std::vector<platform::AXRef>> axRefs(const platform::AXResult<platform::AXValue>& r) {
    if (!r.ok() || !r.value || !std::holds_alternative<std::vector<platform::AXRef>>(*r.value))
        return std::nullopt;
    return std::get<std::vector<platform::AXRef>>(*r.value);
}

// The window's accessibility element among its app's windows.
std::optional<platform::AXRef> windowElement(platform::Accessibility& ax, std::int32_t pid,
                                             std::uint32_t id) {
    const auto app = ax.applicationElement(pid);
    ax.setMessagingTimeout(app, kMessagingTimeout);
    auto windows = axRefs(ax.copyAttribute(app, "AXWindows"));
    if (!windows) return std::nullopt;
    for (auto w : *windows)
        if (ax.windowNumber(w) == id) return w;
    return std::nullopt;
}

// The modifier a take-over of the Command keys arms the actions with: the other Command key.
std::optional<TriggerKey> hijackActionModifier(const TriggerList& base) {
    if (sameSet(base, {TriggerKey::lcmd})) return TriggerKey::rightCommand;
    if (sameSet(base, {TriggerKey::rightCommand})) return TriggerKey::lcmd;
    return std::nullopt;
}
}  // namespace

SelectionActions::SelectionActions(InputManager& input, KeyRouter& router, SelectionEnvironment env)
    : input_(input), router_(router), env_(std::move(env)) {}

SelectionActions::~SelectionActions() = default;

// The highlighted row of the panel in front: a latched app cycle's pick, the search's row, the tab
// cycle's row.
std::optional<SelectionActionTarget> SelectionActions::selectionTarget() const {
    auto ask = [](const HighlightedRows& rows) -> std::optional<SelectionActionTarget> {
        return rows.highlighted ? rows.highlighted() : std::nullopt;
    };
    if (input_.latchedSurface == "appCycle" && input_.appSwitcherCycleSelectedID) return ask(env_.appCycle);
    if (input_.searchActive) return ask(env_.search);
    if (input_.tabCycling) return ask(env_.tabCycle);
    return std::nullopt;
}

bool SelectionActions::runSelectionAction(const std::string& key) {
    if (!input_.settings().enableSelectionActionHotkeys) {
        Log::info("hotkey ignored: feature disabled");
        return false;
    }
    auto target = selectionTarget();
    if (!target) {
        Log::info("hotkey {} ignored: no OSD selection target", key);
        return false;
    }
    std::string k = key;
    std::transform(k.begin(), k.end(), k.begin(), [](unsigned char c) { return std::tolower(c); });
    if (k != "w" && k != "q" && k != "h" && k != "o") return false;
    Log::info("hotkey {} target={}", key, target->describe());
    recordSelectionActionSide();
    if (k == "w") {
        closeSelectionTarget(*target);
        flash("xmark.circle.fill", "Closed");
    } else if (k == "q") {
        quitSelectionTarget(*target);
        flash("power.circle.fill", "Quit");
    } else if (k == "h") {
        minimizeOrHideSelectionTarget(*target);
        if (target->isWindow())
            flash("minus.circle.fill", "Minimized");
        else
            flash("eye.slash.circle.fill", "Hidden");
    } else {
        newWindowForSelectionTarget(*target);
    }
    return true;
}

void SelectionActions::flash(const std::string& icon, const std::string& label) {
    if (env_.showFlash) env_.showFlash(icon, label, kFlashMs);
}

// Which Command key armed the action, so the hint stops teaching a side once it has been used.
void SelectionActions::recordSelectionActionSide() {
    std::optional<TriggerKey> modifier;
    if (input_.isLatched())
        modifier = TriggerKey::lcmd;
    else if (input_.hijackCommandHeld)
        modifier = hijackActionModifier(input_.hijackCommandBase);
    else
        modifier = selectionActionModifier(input_.settings().triggerKeys);
    if (!modifier) return;
    auto& settings = Settings::shared();
    if (*modifier == TriggerKey::lcmd && !settings.get(keys::usedLeftCmdSelectionAction))
        settings.set(keys::usedLeftCmdSelectionAction, true);
    if (*modifier == TriggerKey::rightCommand && !settings.get(keys::usedRightCmdSelectionAction))
        settings.set(keys::usedRightCmdSelectionAction, true);
}

std::optional<platform::RunningApp> SelectionActions::runningAppOf(
    const SelectionActionTarget& target) const {
    auto* ws = platform::Platform::current().workspace;
    if (!ws) return std::nullopt;
    std::int32_t pid = target.pid;
    if (target.isWindow() && !pid && env_.trackedWindow)
        if (auto w = env_.trackedWindow(target.windowID)) pid = w->pid;
    if (pid) {
        auto app = ws->runningApp(pid);
        if (app && !app->terminated) return app;
        return std::nullopt;
    }
    if (target.bundleID.empty()) return std::nullopt;
    for (auto& app : ws->runningApplications())
        if (app.bundleID == target.bundleID && !app.terminated) return app;
    return std::nullopt;
}

// Close ---------------------------------------------------------------------------------------------

bool SelectionActions::closeWindowViaAX(std::int32_t pid, std::uint32_t windowID, const std::string& title) {
    auto* ax = platform::Platform::current().accessibility;
    if (!ax) return false;
    const auto app = ax->applicationElement(pid);
    ax->setMessagingTimeout(app, kMessagingTimeout);
    auto windows = axRefs(ax->copyAttribute(app, "AXWindows"));
    if (!windows) {
        Log::info("closeWindowViaAX: pid={} no AXWindows", pid);
        return false;
    }
    auto it = std::find_if(windows->begin(), windows->end(),
                           [&](platform::AXRef w) { return ax->windowNumber(w) == windowID; });
    if (it == windows->end()) {
        Log::info("closeWindowViaAX: pid={} wid={} not found in AXWindows", pid, windowID);
        return false;
    }
    auto button = axRef(ax->copyAttribute(*it, "AXCloseButton"));
    if (!button) {
        Log::info("closeWindowViaAX: wid={} no close button", windowID);
        return false;
    }
    const auto code = ax->performAction(*button, "AXPress");
    Log::info("closeWindowViaAX: wid={} title='{}' press={}", windowID, title, static_cast<int>(code));
    return code == platform::AXError::success;
}

// A window that has gone still leaves the panel, so the panel matches the desktop.
void SelectionActions::closeSelectionTarget(const SelectionActionTarget& target) {
    if (target.isWindow()) {
        auto w = env_.trackedWindow ? env_.trackedWindow(target.windowID) : std::nullopt;
        if (!w) {
            Log::info("close: window id={} not in WM.windows", target.windowID);
        } else {
            Log::info("close window id={} title={}", w->id, w->title);
            closeWindowViaAX(w->pid, w->id, w->title);
        }
        pruneRowsAfterAction({target.windowID, std::nullopt});
        return;
    }
    auto app = runningAppOf(target);
    if (!app) {
        Log::info("close: no NSRunningApplication for target");
        return;
    }
    auto windows = env_.windowsOfPid ? env_.windowsOfPid(app->pid) : std::vector<ActionWindow>{};
    Log::info("close app pid={} bundle={} windowCount={}", app->pid, app->bundleID, windows.size());
    for (auto& w : windows) {
        closeWindowViaAX(w.pid, w.id, w.title);
        pruneRowsAfterAction({w.id, std::nullopt});
    }
}

// Quit, minimise or hide ----------------------------------------------------------------------------

void SelectionActions::quitSelectionTarget(const SelectionActionTarget& target) {
    auto app = runningAppOf(target);
    auto* ws = platform::Platform::current().workspace;
    if (!app || !ws) {
        Log::info("quit: no NSRunningApplication for target");
        return;
    }
    const bool ok = ws->terminate(app->pid);
    Log::info("quit pid={} bundle={} ok={}", app->pid, app->bundleID, ok);
    if (!app->bundleID.empty()) pruneRowsAfterAction({std::nullopt, app->bundleID});
}

void SelectionActions::minimizeOrHideSelectionTarget(const SelectionActionTarget& target) {
    if (target.isWindow()) {
        auto w = env_.trackedWindow ? env_.trackedWindow(target.windowID) : std::nullopt;
        auto* ax = platform::Platform::current().accessibility;
        if (!w) {
            Log::info("minimize: window id={} not in WM.windows", target.windowID);
        } else {
            Log::info("minimize window id={} title={}", w->id, w->title);
            if (ax)
                if (auto element = windowElement(*ax, w->pid, w->id))
                    ax->setAttribute(*element, "AXMinimized", true);
        }
        pruneRowsAfterAction({target.windowID, std::nullopt});
        return;
    }
    auto app = runningAppOf(target);
    auto* ws = platform::Platform::current().workspace;
    if (!app || !ws) {
        Log::info("hide: no NSRunningApplication for target");
        return;
    }
    // A second H brings a hidden app back, in front.
    if (app->hidden) {
        if (env_.forceActivate) env_.forceActivate(*app);
        Log::info("hide-toggle pid={} bundle={} action=unhide+forceActivate", app->pid, app->bundleID);
        return;
    }
    const bool ok = ws->hide(app->pid);
    Log::info("hide-toggle pid={} bundle={} action=hide ok={}", app->pid, app->bundleID, ok);
}

// New window ------------------------------------------------------------------------------------------

// The app comes to the front, the panel ends, and Command-N follows once the app has the keyboard.
void SelectionActions::newWindowForSelectionTarget(const SelectionActionTarget& target) {
    auto app = runningAppOf(target);
    if (!app) {
        Log::info("new-window: no NSRunningApplication for target");
        return;
    }
    if (env_.forceActivate) env_.forceActivate(*app);
    Log::info("new-window: forceActivate pid={}; posting Cmd-N in {}ms", app->pid, kNewWindowDelayMs);
    std::weak_ptr<bool> alive = alive_;
    const std::int32_t pid = app->pid;
    ferrow::mainAsyncAfter(kNewWindowDelayMs, [this, alive, pid] {
        if (alive.lock()) postSyntheticCmdN(pid, platform::PostRoute::hidTap);
    });
    if (input_.tabCycling) input_.resetTabCycle();
    if (input_.isLatched()) {
        input_.unlatch();
    } else {
        router_.leaveSearch();
        input_.hideOSD();
    }
}

void SelectionActions::postSyntheticCmdN(std::int32_t pid, platform::PostRoute route) {
    auto* tap = platform::Platform::current().eventTap;
    // The key that types N in the active layout, so another layout still means N.
    auto code = tap ? tap->keyCode(Key::n) : std::nullopt;
    if (!code) {
        Log::error("postSyntheticCmdN: failed to create CGEvent");
        return;
    }
    platform::SyntheticKeyEvent down{*code, true, platform::flag::command, kSyntheticEventMarker};
    platform::SyntheticKeyEvent up = down;
    up.down = false;
    static constexpr const char* kRouteNames[] = {".cghidEventTap", "postToPid",
                                                  ".cgAnnotatedSessionEventTap"};
    if (!tap->postSyntheticKeyEvent(route, pid, down)) {
        Log::error("postSyntheticCmdN: failed to create CGEvent");
        return;
    }
    tap->postSyntheticKeyEvent(route, pid, up);
    Log::info("postSyntheticCmdN(pid={}) via {}", pid, kRouteNames[static_cast<int>(route)]);
}

// Pruning -----------------------------------------------------------------------------------------------

void SelectionActions::pruneRowsAfterAction(const RowMatch& matches) {
    if (input_.searchActive && env_.search.prune) env_.search.prune(matches);
    if (env_.tabCycle.prune) env_.tabCycle.prune(matches);
    if (env_.appCycle.prune) env_.appCycle.prune(matches);
}

// Option-Return ----------------------------------------------------------------------------------------

bool SelectionActions::pressMenuExtraOfSelection() {
    std::optional<SelectionActionTarget> row;
    const auto& latched = input_.latchedSurface;
    if ((latched == "app" || latched == "window") && env_.search.highlighted)
        row = env_.search.highlighted();
    else if (latched == "tabCycle" && env_.tabCycle.highlighted)
        row = env_.tabCycle.highlighted();
    else if (input_.appSwitcherCycleSelectedID && env_.appCycle.highlighted)
        row = env_.appCycle.highlighted();
    if (!row) return false;
    auto app = runningAppOf(SelectionActionTarget::app(row->bundleID));
    auto* ax = platform::Platform::current().accessibility;
    if (!app || !ax) return false;
    const auto element = ax->applicationElement(app->pid);
    ax->setMessagingTimeout(element, kMessagingTimeout);
    auto bar = axRef(ax->copyAttribute(element, "AXExtrasMenuBar"));
    auto children = bar ? axRefs(ax->copyAttribute(*bar, "AXChildren")) : std::nullopt;
    if (!children || children->empty()) {
        Log::info("pressMenuExtra: {} has no menu bar extra", app->bundleID);
        return false;
    }
    const auto code = ax->performAction(children->front(), "AXPress");
    Log::info("pressMenuExtra: pid={} bundle={} press={}", app->pid, app->bundleID, static_cast<int>(code));
    if (code != platform::AXError::success) return false;
    if (latched == "tabCycle") input_.resetTabCycle();
    input_.unlatch();
    return true;
}

}  // namespace zelk
