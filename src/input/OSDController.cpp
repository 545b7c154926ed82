#include "input/OSDController.h"

#include <algorithm>

#include "config/OSDTheme.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "platform/Platform.h"
#include "support/Log.h"

namespace zelk::osd {

using ferrow::Log;

namespace {
constexpr std::int64_t kHideDelayMs = 100;
constexpr std::int64_t kRetryMs = 100;
constexpr std::int64_t kFloorMs = 150;
constexpr std::int64_t kForcedSearchCapMs = 150;
constexpr ferrow::Nanos kWatchdogInterval = ferrow::ms(300);
constexpr ferrow::Nanos kReplacementInterval = ferrow::ms(50);
constexpr int kReplacementRounds = 10;

std::int64_t toMs(ferrow::Nanos t) {
    return t / 1'000'000;
}
}  // namespace

PanelSettings PanelSettings::load(const Settings& st) {
    PanelSettings p;
    p.appDelay = st.get(keys::windowSwitchOSDDelay);
    p.windowDelay = st.get(keys::windowOnlySwitchOSDDelay);
    p.stageDelay = st.get(keys::stageSwitchOSDDelay);
    p.searchDwell = st.get(keys::searchOSDDwellMs);
    p.showApp = st.get(keys::showAppSwitcher);
    p.showWindow = st.get(keys::showWindowSwitcher);
    p.showStage = st.get(keys::showStageSwitcher);
    p.app = {st.get(keys::switcherScreenPlacement), st.get(keys::switcherScreenOffsetX),
             st.get(keys::switcherScreenOffsetY), st.get(keys::switcherScreenOffsetRefHeight), true};
    p.window = {st.get(keys::windowSwitcherPlacement), st.get(keys::windowSwitcherOffsetX),
                st.get(keys::windowSwitcherOffsetY), st.get(keys::windowSwitcherOffsetRefHeight),
                st.get(keys::windowSwitcherMirrorAppPlacement)};
    p.stage = {st.get(keys::stageSwitcherPlacement), st.get(keys::stageSwitcherOffsetX),
               st.get(keys::stageSwitcherOffsetY), st.get(keys::stageSwitcherOffsetRefHeight),
               st.get(keys::stageSwitcherMirrorAppPlacement)};
    p.appWidth = st.get(keys::appSwitcherOSDWidth);
    p.appHeight = st.get(keys::appSwitcherOSDHeight);
    p.windowWidth = st.get(keys::windowSearchOSDWidth);
    p.windowHeight = st.get(keys::windowSearchOSDHeight);
    p.appFeatures = st.get(keys::appSwitcherFeatures).rawValue;
    p.windowFeatures = st.get(keys::windowSwitcherFeatures).rawValue;
    p.switcherAppsOnly = st.get(keys::switcherAppsOnly);
    p.osdCurrentSpaceOnly = st.get(keys::osdCurrentSpaceOnly);
    p.showMenubarAppsInSearch = st.get(keys::showMenubarAppsInSearch);
    p.searchRunningAndStaticOnly = st.get(keys::searchRunningAndStaticOnly);
    p.enableSelectionActionHotkeys = st.get(keys::enableSelectionActionHotkeys);
    p.hideOnlyFocusedAppOnMinus = st.get(keys::hideOnlyFocusedAppOnMinus);
    p.look = st.get(keys::osdLook);
    return p;
}

void OSDEnvironment::fillDefaults() {
    auto none = [](const PanelSettings&) { return std::vector<OSDSection>{}; };
    if (!appPanel) appPanel = none;
    if (!windowPanel) windowPanel = none;
    if (!stages) stages = [] { return std::vector<StageListing>{}; };
    if (!stagePanel) stagePanel = [list = stages] { return stageSections(list()); };
    if (!tabCyclePanel) tabCyclePanel = [] { return std::vector<OSDSection>{}; };
    if (!tabCycleFilter) tabCycleFilter = [] { return std::string(); };
    if (!searchResults) searchResults = [] { return SearchContent{}; };
    if (!runSearch) runSearch = [](const std::string&) {};
    if (!hasAnyAssignment) hasAnyAssignment = [] { return false; };
    if (!isAssignedKey) isAssignedKey = [](const std::string&) { return false; };
    if (!overlayVisible) overlayVisible = [] { return false; };
    if (!dismissOverlay) dismissOverlay = [] {};
    if (!onboardingOpen) onboardingOpen = [] { return false; };
    if (!onboardingPastPermissions) onboardingPastPermissions = [] { return false; };
    if (!clearReorderedAppWindows) clearReorderedAppWindows = [] {};
}

OSDController::OSDController(InputManager& input, KeyRouter& router, OSDEnvironment env)
    : input_(input), router_(router), env_(std::move(env)) {
    env_.fillDefaults();
    epoch_ = now();
    reloadSettings();
    subscriptions_.push_back(Settings::shared().store().observe([this](const std::string&) {
        reloadSettings();
        scheduleRefresh();
    }));
    // The trigger and search state the view table reads; read once the change that moved it is done,
    // so a release and the hide it brings make one step.
    auto again = [this](const auto&) { scheduleRefresh(); };
    subscriptions_.push_back(input_.appTriggerKeysPressed.subscribe(again));
    subscriptions_.push_back(input_.windowTriggerKeysPressed.subscribe(again));
    subscriptions_.push_back(input_.stageTriggerKeysPressed.subscribe(again));
    subscriptions_.push_back(router_.searchBuffer.subscribe(again));
    subscriptions_.push_back(router_.searchWindowsOnly.subscribe(again));
    if (auto* ws = platform::Platform::current().workspace)
        subscriptions_.push_back(ws->observe([this](const platform::WorkspaceEvent& e) {
            if (e.kind == platform::WorkspaceEventKind::screenParametersChanged) screensChanged();
        }));
    refresh();
}

OSDController::~OSDController() {
    showOSDTask_.cancel();
    watchdog_.cancel();
    flashWork_.cancel();
    moveWindowTask_.reset();
    stopOutsideClickMonitor();
}

void OSDController::scheduleRefresh() {
    if (refreshQueued_) return;
    refreshQueued_ = true;
    std::weak_ptr<bool> alive = alive_;
    ferrow::mainAsync([this, alive] {
        if (!alive.lock()) return;
        refreshQueued_ = false;
        refresh();
    });
}

std::int64_t OSDController::sinceStartMs(ferrow::Nanos t) const {
    return toMs(t - epoch_);
}

ferrow::Nanos OSDController::now() const {
    return ferrow::MainQueue::shared().now();
}

void OSDController::reloadSettings() {
    settings_ = PanelSettings::load(Settings::shared());
}

// showOSD ---------------------------------------------------------------------------------------------

bool OSDController::onboardingAllows() const {
    if (!env_.onboardingOpen()) return true;
    if (env_.onboardingPastPermissions()) return false;
    return input_.searchActive || input_.tabCycling;
}

void OSDController::prepareOnce() {
    if (prepared_) return;
    prepared_ = true;
    orderedIn_ = true;  // ordered in once, at no alpha: later shows only change alpha and position
    alpha_ = 0;
    place();
}

void OSDController::showOSD(bool immediate) {
    if (!onboardingAllows()) return;
    prepareOnce();
    showOSDTask_.cancel();
    pending_.reset();
    startWatchdog();
    if (!hidden_ && orderedIn_ && alpha_ >= 1.0) {
        hidden_ = false;
        place();
        startReplacement();
        refresh();
        return;
    }
    bool presentNow = false;
    auto delay = delayFor(immediate, presentNow);
    if (presentNow || (delay && *delay < 1)) {
        presentOSD();
        return;
    }
    if (delay) scheduleShow(*delay, PendingKind::show);
    refresh();
}

std::int64_t OSDController::floorMs() const {
    return !settings_.showApp || settings_.appDelay > 0 ? kFloorMs : 0;
}

// The gates of the surface in front, in the table's order; none: nothing shows.
std::optional<std::int64_t> OSDController::delayFor(bool immediate, bool& presentNow) const {
    const auto& s = settings_;
    const auto& in = input_.settings();
    if (anythingLatched()) {
        presentNow = true;
        return 0;
    }
    if (input_.stageTriggerKeysPressed.get()) {
        if (!s.showStage || s.stageDelay < 0) return std::nullopt;
        return immediate ? 0 : s.stageDelay;
    }
    if (input_.windowTriggerKeysPressed.get()) {
        if (in.windowTriggerKeys.empty() || s.windowDelay < 0 || !s.showWindow) return std::nullopt;
        return immediate ? 0 : s.windowDelay;
    }
    if (input_.appTriggerKeysPressed.get()) return appTriggerDelay(immediate, presentNow);
    if (input_.tabCycling) return immediate ? 0 : std::max<std::int64_t>(s.appDelay, floorMs());
    return std::nullopt;
}

std::optional<std::int64_t> OSDController::appTriggerDelay(bool immediate, bool& presentNow) const {
    const auto& s = settings_;
    const bool searching = input_.searchActive, cycling = input_.tabCycling;
    const bool fastPanelBlocked = !s.showApp && !router_.forceSearchMode &&
                                  !router_.searchWindowsOnly.get() && !router_.lastSearchEditWasBackspace &&
                                  router_.searchBuffer.get().size() == 1;
    if (fastPanelBlocked || s.appDelay < 0) return std::nullopt;
    if (!s.showApp && !searching && !cycling) return std::nullopt;
    if (!env_.hasAnyAssignment() && !searching && !cycling) return std::nullopt;
    if (immediate) {
        presentNow = true;
        return 0;
    }
    const std::int64_t plain = std::max<std::int64_t>(s.appDelay, floorMs());
    const std::int64_t forced =
        std::max<std::int64_t>(floorMs(), std::min<std::int64_t>(s.appDelay, kForcedSearchCapMs));
    if (!searching) return plain;
    if (router_.forceSearchMode) return forced;
    if (!s.showApp) return s.searchDwell;
    const auto& buffer = router_.searchBuffer.get();
    return buffer.size() == 1 && env_.isAssignedKey(buffer) ? plain : forced;
}

void OSDController::scheduleShow(std::int64_t delayMs, PendingKind kind) {
    std::weak_ptr<bool> alive = alive_;
    const bool retry = kind == PendingKind::retry;
    showOSDTask_ = ferrow::mainAsyncAfter(delayMs, [this, alive, retry] {
        if (!alive.lock()) return;
        pending_.reset();
        delayedShow(retry);
    });
    pending_ = OSDPending{kind, sinceStartMs(now()) + delayMs};
}

// A release the tap missed shows in the hardware flags: the show waits one more round, then gives up.
void OSDController::delayedShow(bool isRetry) {
    if (input_.physicalTriggerState(false, false) != PhysicalTrigger::released) {
        presentOSD();
        return;
    }
    if (!isRetry) {
        scheduleShow(kRetryMs, PendingKind::retry);
        refresh();
        return;
    }
    Log::info("showOSD: delayed show skipped, trigger no longer physically held");
    refresh();
}

void OSDController::presentOSD() {
    prepareOnce();
    showOSDTask_.cancel();
    pending_.reset();
    hidden_ = false;
    paintedAt_ = now();
    orderedIn_ = true;
    alpha_ = 1.0;
    place();
    // A show that waited past the watchdog's first tick found it stopped (the panel was still hidden).
    startWatchdog();
    refresh();
}

// Placement -----------------------------------------------------------------------------------------------

PlacementGroup OSDController::effectiveGroup() const {
    if (input_.stageTriggerKeysPressed.get() && !settings_.stage.mirrorsApp) return PlacementGroup::stage;
    if (input_.windowTriggerKeysPressed.get() && !settings_.window.mirrorsApp) return PlacementGroup::window;
    return PlacementGroup::app;
}

std::optional<platform::Screen> OSDController::osdScreen() const {
    auto* screens = platform::Platform::current().screens;
    if (!screens) return std::nullopt;
    if (osdAnchorDisplayID && (input_.tabCycling || input_.appSwitcherCycleSelectedID))
        for (auto& s : screens->screens())
            if (s.displayID == *osdAnchorDisplayID) return s;
    return screens->mainScreen();
}

// The window-sized panel: window search, the window trigger, a tab cycle.
bool OSDController::windowHeight() const {
    const auto& latched = input_.latchedSurface;
    return latched == "window" || input_.windowTriggerKeysPressed.get() || input_.tabCycling ||
           (input_.appTriggerKeysPressed.get() && input_.searchActive && router_.searchWindowsOnly.get());
}

void OSDController::place() {
    auto screen = osdScreen();
    if (!screen) return;
    const PlacementGroup group = effectiveGroup();
    const auto& g = group == PlacementGroup::stage    ? settings_.stage
                    : group == PlacementGroup::window ? settings_.window
                                                      : settings_.app;
    PlacementInputs in;
    in.corner = g.corner;
    in.offsetX = g.offsetX;
    in.offsetY = g.offsetY;
    in.referenceHeight = g.referenceHeight;
    const bool wide = windowHeight();
    in.size = {wide ? settings_.windowWidth : settings_.appWidth,
               wide ? settings_.windowHeight : settings_.appHeight};
    in.screenFrame = screen->frame;
    in.visibleFrame = screen->visibleFrame;
    placement_ = {screen->displayID, group, g.corner, g.offsetX, scaledOffsetY(in), panelFrame(in)};
    screenSize_ = {screen->frame.width, screen->frame.height};
}

// A display changed (resolution, arrangement): a panel that is up moves to its place on the new frame
// and keeps being placed while the change settles; a hidden one is placed when it next shows.
void OSDController::screensChanged() {
    if (!prepared_) return;
    place();
    if (model_.visibility.visible()) startReplacement();
    refresh();
}

// Keeps placing the panel while its content settles.
void OSDController::startReplacement() {
    moveWindowTask_ = std::make_unique<ferrow::Repeater>("windowSwitcherOSD screen placement",
                                                         kReplacementInterval, kReplacementRounds, [this] {
                                                             place();
                                                             refresh();
                                                         });
}

// hideOSD ------------------------------------------------------------------------------------------------

void OSDController::hideOSD(bool immediate) {
    moveWindowTask_.reset();
    if (!immediate) {
        showOSDTask_.cancel();
        std::weak_ptr<bool> alive = alive_;
        showOSDTask_ = ferrow::mainAsyncAfter(kHideDelayMs, [this, alive] {
            if (!alive.lock()) return;
            pending_.reset();
            hideNow();
        });
        pending_ = OSDPending{PendingKind::hide, sinceStartMs(now()) + kHideDelayMs};
        refresh();
        return;
    }
    hideNow();
}

void OSDController::hideNow() {
    showOSDTask_.cancel();
    pending_.reset();
    stopWatchdog();
    hidden_ = true;
    paintedAt_.reset();
    // Ordered out at no alpha: the next show passes its gates and delays again.
    orderedIn_ = false;
    alpha_ = 0;
    env_.clearReorderedAppWindows();
    clearActionFlash();
    refresh();
}

// The stuck-panel watchdog
// -----------------------------------------------------------------------------------

void OSDController::startWatchdog() {
    if (watchdogRunning_) return;
    watchdogRunning_ = true;
    strikes_ = 0;
    std::weak_ptr<bool> alive = alive_;
    watchdog_ = ferrow::MainQueue::shared().asyncAfter(kWatchdogInterval, [this, alive] {
        if (alive.lock()) watchdogTick();
    });
}

void OSDController::stopWatchdog() {
    watchdog_.cancel();
    watchdogRunning_ = false;
    strikes_ = 0;
}

void OSDController::watchdogTick() {
    if (hidden_) {
        watchdogRunning_ = false;
        strikes_ = 0;
        refresh();
        return;
    }
    switch (input_.physicalTriggerState(true, true)) {
        case PhysicalTrigger::held:
            strikes_ = 0;
            break;
        case PhysicalTrigger::unknown:
            break;
        case PhysicalTrigger::released:
            if (strikes_ == 0) {
                strikes_ = 1;
                break;
            }
            forceHide();
            return;
    }
    std::weak_ptr<bool> alive = alive_;
    watchdog_ = ferrow::MainQueue::shared().asyncAfter(kWatchdogInterval, [this, alive] {
        if (alive.lock()) watchdogTick();
    });
    refresh();
}

// The release never reached the tap: close the panel and finish the hold as a release would.
void OSDController::forceHide() {
    Log::info("OSD stuck after trigger key release, force hiding");
    hideOSD(true);
    if (input_.hijackCommandHeld) {
        input_.hijackCommandHeld = false;
        input_.hijackCommandBase.clear();
        input_.resetTabCycle();
    }
    // The commit cancels a running grace first, committing it.
    struct Trigger {
        ferrow::Observable<bool>& pressed;
        std::optional<ferrow::Nanos>& pressTime;
    };
    for (Trigger t : {Trigger{input_.appTriggerKeysPressed, input_.appTriggerKeyPressTime},
                      Trigger{input_.windowTriggerKeysPressed, input_.windowTriggerKeyPressTime},
                      Trigger{input_.stageTriggerKeysPressed, input_.stageTriggerKeyPressTime}}) {
        if (!t.pressed.get()) continue;
        t.pressed = false;
        t.pressTime.reset();
        router_.commitOnTriggerUp();
    }
    refresh();
}

// Latching
// ------------------------------------------------------------------------------------------------------

bool OSDController::anythingLatched() const {
    return input_.isLatched();
}

void OSDController::latchSearchSurface(const std::string& surface) {
    if (env_.overlayVisible()) env_.dismissOverlay();
    if (input_.appTriggerKeysPressed.get() || input_.windowTriggerKeysPressed.get() ||
        input_.stageTriggerKeysPressed.get())
        return;
    input_.latchedSurface = surface;
    input_.searchActive = true;
    router_.forceSearchMode = true;
    router_.searchWindowsOnly = surface == "window";
    router_.searchBuffer = "";
    router_.pinPickQuery.reset();
    env_.runSearch("");
    searchLatchedByRouter();
}

void OSDController::latchSearchWithBuffer(const std::string& text) {
    if (env_.overlayVisible()) env_.dismissOverlay();
    input_.latchedSurface = "app";
    input_.searchActive = true;
    router_.forceSearchMode = true;
    router_.searchWindowsOnly = false;
    router_.pinPickQuery.reset();
    router_.lastSearchEditWasBackspace = false;
    if (input_.appTriggerKeysPressed.get()) input_.appTriggerKeyUsedDuringHold = true;
    router_.searchBuffer = text;
    env_.runSearch(text);
    searchLatchedByRouter();
}

void OSDController::searchLatchedByRouter() {
    input_.refreshTapSeesBareKeys();
    startOutsideClickMonitor();
    showOSD(false);
}

void OSDController::latchTabCycle() {
    if (env_.overlayVisible() || input_.latchedSurface == "tabCycle" || !input_.tabCycling) return;
    if (env_.tabCyclePanel().empty()) return;
    if (input_.appTriggerKeysPressed.get() || input_.windowTriggerKeysPressed.get() ||
        input_.stageTriggerKeysPressed.get())
        return;
    input_.latchedSurface = "tabCycle";
    input_.refreshTapSeesBareKeys();
    startOutsideClickMonitor();
    refresh();
}

void OSDController::toggleLatchedSearch(const std::string& surface) {
    if (input_.latchedSurface == surface) {
        input_.unlatch();
        return;
    }
    if (anythingLatched()) input_.unlatch();
    latchSearchSurface(surface);
}

void OSDController::unlatch() {
    const bool cycle = input_.latchedSurface == "appCycle";
    const bool tab = input_.latchedSurface == "tabCycle";
    input_.latchedSurface.reset();
    stopOutsideClickMonitor();
    if (cycle) {
        input_.appSwitcherCycleSelectedID.reset();
        input_.pickCommittedByMouseDuringHold = false;
        input_.cmdTabFilterBuffer.clear();
    }
    if (tab && input_.tabCycling) input_.resetTabCycle();
    router_.leaveSearch();
    hideOSD(true);
    input_.refreshTapSeesBareKeys();
}

void OSDController::startOutsideClickMonitor() {
    stopOutsideClickMonitor();
    auto* pointer = platform::Platform::current().pointer;
    if (!pointer) return;
    std::weak_ptr<bool> alive = alive_;
    clickMonitor_ = pointer->setMouseDownMonitor([this, alive](Point at) {
        ferrow::mainAsync([this, alive, at] {
            if (alive.lock()) mouseDown(at);
        });
    });
}

void OSDController::stopOutsideClickMonitor() {
    if (!clickMonitor_) return;
    clickMonitor_ = false;
    if (auto* pointer = platform::Platform::current().pointer) pointer->setMouseDownMonitor(nullptr);
}

void OSDController::mouseDown(Point at) {
    // A click in the panel itself is the panel's own; only one outside it ends a latch.
    if (!hidden_ && placement_.frame.contains(at)) return;
    if (anythingLatched()) {
        Log::info("osd: click outside the panel at {},{}, unlatching", at.x, at.y);
        input_.unlatch();
    }
}

// The action flash
// ------------------------------------------------------------------------------------------------

void OSDController::showActionFlash(const std::string& icon, const std::string& label,
                                    std::int64_t durationMs) {
    flashWork_.cancel();
    flash_ = OSDFlash{icon, label, ++flashSeq_};
    std::weak_ptr<bool> alive = alive_;
    flashWork_ = ferrow::mainAsyncAfter(durationMs, [this, alive] {
        if (!alive.lock()) return;
        flash_.reset();
        refresh();
    });
    refresh();
}

void OSDController::clearActionFlash() {
    flashWork_.cancel();
    flash_.reset();
}

// Theme and mode
// ---------------------------------------------------------------------------------------------------

void OSDController::applySwitcherMode(SwitcherMode mode) {
    auto& st = Settings::shared();
    const bool launcher = mode == SwitcherMode::launcher;
    st.set(keys::switcherMode, mode);
    st.set(keys::showAppSwitcher, launcher);
    st.set(keys::searchRunningAndStaticOnly, !launcher);
    st.set(keys::showMenubarAppsInSearch, launcher);
    st.set(keys::switcherAppsOnly, !launcher);
    st.set(keys::activationMode, launcher ? ActivationMode::onRelease : ActivationMode::adaptive);
    if (!launcher) st.set(keys::staticBreakoutThresholdMs, 150);
    Log::info("applySwitcherMode: {}", launcher ? "launcher" : "switcher");
    reloadSettings();
    refresh();
}

bool OSDController::applyThemeByID(const std::string& id) {
    std::optional<OSDTheme> theme = builtInTheme(id);
    auto& st = Settings::shared();
    if (!theme && st.get(keys::customTheme).id == id) theme = st.get(keys::customTheme);
    if (!theme) {
        Log::error("applyTheme: no theme {}", id);
        return false;
    }
    applyTheme(*theme, st);
    Log::info("applyTheme: {} ({})", theme->name, theme->id);
    reloadSettings();
    refresh();
    return true;
}

// The model
// ------------------------------------------------------------------------------------------------------

ViewInputs OSDController::viewInputs() const {
    ViewInputs v;
    if (input_.latchedSurface == "app" || input_.latchedSurface == "window")
        v.latchedSearchSurface = input_.latchedSurface;
    v.appSwitcherCycleLatched = input_.latchedSurface == "appCycle";
    v.tabCycling = input_.tabCycling;
    v.stageTriggerKeysPressed = input_.stageTriggerKeysPressed.get();
    v.appTriggerKeysPressed = input_.appTriggerKeysPressed.get();
    v.windowTriggerKeysPressed = input_.windowTriggerKeysPressed.get();
    v.searchActive = input_.searchActive;
    v.showAppSwitcher = settings_.showApp;
    v.showWindowSwitcher = settings_.showWindow;
    v.singleLetterQuery = router_.isSingleLetterQuery();
    v.bufferLength = router_.searchBuffer.get().size();
    v.forceSearchMode = router_.forceSearchMode;
    v.lastSearchEditWasBackspace = router_.lastSearchEditWasBackspace;
    return v;
}

std::vector<OSDSection> OSDController::contentFor(OSDView view) const {
    switch (view) {
        case OSDView::none:
            return {};
        case OSDView::appSwitcher:
            return env_.appPanel(settings_);
        case OSDView::windowSwitcher:
            return env_.windowPanel(settings_);
        case OSDView::stage:
            return env_.stagePanel();
        case OSDView::tabCycle:
            return env_.tabCyclePanel();
        case OSDView::search: {
            auto results = env_.searchResults();
            if (results.selected && *results.selected < results.rows.size())
                results.rows[*results.selected].highlighted = true;
            return {OSDSection{"", std::move(results.rows)}};
        }
    }
    return {};
}

PanelTexts OSDController::texts() const {
    const auto& in = input_.settings();
    PanelTexts t;
    t.buffer = router_.searchBuffer.get();
    t.pinPickQuery = router_.pinPickQuery;
    t.searchWindowsOnly = router_.searchWindowsOnly.get();
    t.showMenubarAppsInSearch = settings_.showMenubarAppsInSearch;
    t.searchRunningAndStaticOnly = settings_.searchRunningAndStaticOnly;
    t.enableSelectionActionHotkeys = settings_.enableSelectionActionHotkeys;
    t.hideOnlyFocusedAppOnMinus = settings_.hideOnlyFocusedAppOnMinus;
    t.actionSideIsLeft = contains(in.triggerKeys, TriggerKey::rightCommand);
    t.appFooter = settings_.appFeatures & kBottomActionsBit;
    t.hideKey = std::string(lowQWERTYCharacter(in.hideKey));
    t.exposeKey = std::string(lowQWERTYCharacter(in.exposeKey));
    t.stageSaveKey = std::string(lowQWERTYCharacter(in.stageAssignKey));
    t.windowMinimizeKey = std::string(lowQWERTYCharacter(in.windowMinimizeKey));
    t.windowAssignKey = std::string(lowQWERTYCharacter(in.windowAssignKey));
    if (input_.tabCycling) t.tabFilter = env_.tabCycleFilter();
    return t;
}

void OSDController::refresh() {
    ModelInputs in;
    in.view = viewInputs();
    in.visibility = {hidden_, orderedIn_, alpha_, pending_, watchdogRunning_, strikes_};
    in.placement = placement_;
    if (input_.latchedSurface == "app" || input_.latchedSurface == "window")
        in.latches.searchSurface = input_.latchedSurface;
    in.latches.tabCycle = input_.latchedSurface == "tabCycle";
    in.latches.appCycle = input_.latchedSurface == "appCycle";
    in.texts = texts();
    in.flash = flash_;
    in.look = settings_.look;
    const bool showsContent = in.visibility.visible() || pending_;
    std::vector<OSDSection> sections;
    if (showsContent) sections = contentFor(chooseView(in.view).view);
    OSDModel m = buildModel(in, std::move(sections));
    if (m == model_) return;
    model_ = std::move(m);
    changed.emit(model_);
}

}  // namespace zelk::osd
