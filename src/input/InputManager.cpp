#include "input/InputManager.h"

#include <algorithm>

#include "input/HotkeyRouter.h"
#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk {

using platform::EventType;
using platform::KeyEvent;
using platform::TapDecision;

namespace {
std::unique_ptr<InputManager>& slot() {
    static std::unique_ptr<InputManager> s;
    return s;
}
constexpr ferrow::Nanos kDoubleTapWindow = ferrow::seconds(0.25);
constexpr ferrow::Nanos kCapsLockTapLimit = ferrow::seconds(0.3);
constexpr ferrow::Nanos kTapDisableLogInterval = ferrow::seconds(5.0);
constexpr ferrow::Nanos kDeadTapWindow = ferrow::seconds(1.2);
constexpr std::int64_t kDeadTapCheckMs = 1200;
constexpr ferrow::Nanos kRecentKey = ferrow::seconds(1.0);
}  // namespace

InputManager::InputManager()
    : health_(std::make_unique<TapHealth>([this] { return settings_.warnOnSecureInput; })) {}

InputManager::~InputManager() {
    flagsChangedCheckWorkItem.cancel();
    if (tapRunning_) {
        if (auto* tap = platform::Platform::current().eventTap) tap->destroyTap();
    }
}

InputManager& InputManager::shared() {
    if (!slot()) slot() = std::make_unique<InputManager>();
    return *slot();
}

void InputManager::reset() {
    slot().reset();
}

ferrow::Nanos InputManager::now() const {
    return ferrow::MainQueue::shared().now();
}

void InputManager::reloadSettings() {
    settings_ = InputSettings::load();
    refreshTapSeesBareKeys();
}

// Derived values ------------------------------------------------------------------------------

bool InputManager::assignKeyCollides() const {
    return sameSet(settings_.assignKeyTriggerKeys, settings_.triggerKeys) ||
           sameSet(settings_.assignKeyTriggerKeys, settings_.windowTriggerKeys);
}
bool InputManager::hideOnFocusKeyCollides() const {
    const auto& h = settings_.hideOnFocusTriggerKeys;
    return sameSet(h, settings_.triggerKeys) || sameSet(h, settings_.windowTriggerKeys) ||
           sameSet(h, settings_.assignKeyTriggerKeys);
}
bool InputManager::stageKeyCollides() const {
    const auto& s = settings_.stageTriggerKeys;
    return sameSet(s, settings_.triggerKeys) || sameSet(s, settings_.windowTriggerKeys) ||
           sameSet(s, settings_.assignKeyTriggerKeys) || sameSet(s, settings_.hideOnFocusTriggerKeys);
}
bool InputManager::assignTriggerEnabled() const {
    return settings_.enableAssignHotkey && !settings_.assignKeyTriggerKeys.empty() && !assignKeyCollides();
}
bool InputManager::hideOnFocusTriggerEnabled() const {
    return settings_.enableHideOnFocusHotkey && !settings_.hideOnFocusTriggerKeys.empty() &&
           !hideOnFocusKeyCollides();
}
bool InputManager::stageTriggerEnabled() const {
    return !settings_.stageTriggerKeys.empty() && !stageKeyCollides();
}
bool InputManager::capsLockIsTrigger() const {
    return contains(settings_.triggerKeys, TriggerKey::capsLock) ||
           contains(settings_.windowTriggerKeys, TriggerKey::capsLock) ||
           contains(settings_.stageTriggerKeys, TriggerKey::capsLock);
}
bool InputManager::capsLockInAnySet() const {
    return capsLockIsTrigger() || contains(settings_.assignKeyTriggerKeys, TriggerKey::capsLock) ||
           contains(settings_.hideOnFocusTriggerKeys, TriggerKey::capsLock);
}

void InputManager::refreshTapSeesBareKeys() {
    tapSeesBareKeys_.store(capsLockInAnySet() || isLatched() || overlayVisible, std::memory_order_relaxed);
}

std::optional<std::string> InputManager::focusedBundleID() const {
    auto* ws = platform::Platform::current().workspace;
    if (!ws) return std::nullopt;
    auto front = ws->frontmostApplication();
    if (!front || front->bundleID.empty()) return std::nullopt;
    return front->bundleID;
}

PhysicalTrigger InputManager::physicalTriggerState(bool recentKeyGuard, bool includeCycle) const {
    // Caps lock shows in no modifier flags: a hold of a set with caps lock can't be checked. Sets of
    // triggers not held now are judged by their other keys (the default stage set is caps lock).
    bool capsLockHoldNow =
        (appTriggerKeysPressed.get() && contains(settings_.triggerKeys, TriggerKey::capsLock)) ||
        (windowTriggerKeysPressed.get() && contains(settings_.windowTriggerKeys, TriggerKey::capsLock)) ||
        (stageTriggerKeysPressed.get() && contains(settings_.stageTriggerKeys, TriggerKey::capsLock));
    if (capsLockHoldNow) return PhysicalTrigger::unknown;
    if (isLatched()) return PhysicalTrigger::held;
    if (recentKeyGuard && lastKeypressDuringHoldEventTS &&
        now() - *lastKeypressDuringHoldEventTS < kRecentKey)
        return PhysicalTrigger::held;
    auto* tap = platform::Platform::current().eventTap;
    TriggerList down = triggersFromEventFlags(tap ? tap->sourceFlagsState() : 0);
    auto counts = [&](const TriggerList& set) {
        return !set.empty() &&
               std::all_of(set.begin(), set.end(), [&](TriggerKey k) { return contains(down, k); });
    };
    bool anySet = counts(settings_.triggerKeys) || counts(settings_.windowTriggerKeys) ||
                  counts(settings_.stageTriggerKeys);
    bool hijackHeld =
        hijackCommandHeld && (contains(down, TriggerKey::lcmd) || contains(down, TriggerKey::rightCommand));
    if (anySet || hijackHeld || (includeCycle && tabCycling)) return PhysicalTrigger::held;
    return PhysicalTrigger::released;
}

bool InputManager::tabCycleBuilt() const {
    return router_ && router_->tabCycleBuilt();
}

bool InputManager::isPaused() const {
    if (settings_.pauseApps.empty()) return false;
    auto bundle = focusedBundleID();
    return bundle && settings_.pauseApps.count(*bundle);
}

// Panel operations ----------------------------------------------------------------------------

void InputManager::showOSD(bool immediate) {
    if (showOSDHook) showOSDHook(immediate);
}
void InputManager::hideOSD() {
    if (hideOSDHook) hideOSDHook();
}
void InputManager::resetTabCycle() {
    if (resetTabCycleHook) resetTabCycleHook();
    tabCycling = false;
    tabCycleScopeOverride.reset();
}
void InputManager::unlatch() {
    if (!isLatched()) return;
    if (unlatchHook) unlatchHook();
    latchedSurface.reset();
    refreshTapSeesBareKeys();
}

// The tap ---------------------------------------------------------------------------------------

void InputManager::startKeyTap() {
    auto& p = platform::Platform::current();
    if (!p.eventTap) return;
    if (!capsLockMonitorStarted_) {
        capsLockMonitorStarted_ =
            p.eventTap->startCapsLockMonitor([this](bool held) { capsLockChanged(held); });
    }
    if (tapRunning_) return;
    if (!p.eventTap->createTap([this](const KeyEvent& e) { return tapCallback(e); })) return;
    tapRunning_ = true;
    health_->start();
}

void InputManager::stopKeyTap() {
    auto* tap = platform::Platform::current().eventTap;
    if (tap && tapRunning_) tap->destroyTap();
    tapRunning_ = false;
}

void InputManager::startFlagsChangedMonitors() {
    if (monitorsStarted_) return;
    auto* tap = platform::Platform::current().eventTap;
    if (!tap) return;
    monitorsStarted_ = tap->addFlagsMonitor([this](std::uint64_t f) { flagsMonitorEvent(f); });
}

TapDecision InputManager::tapCallback(const KeyEvent& event) {
    // Bare typing never costs a hop to the main thread.
    if (!tapSeesBareKeys_.load(std::memory_order_relaxed) &&
        (event.type == EventType::keyDown || event.type == EventType::keyUp) &&
        !(event.flags & platform::flag::modifierMask))
        return TapDecision::pass;
    TapDecision decision = TapDecision::pass;
    ferrow::MainQueue::shared().sync([&] {
        decision = handleKeyEvent(event);
        if (keyEventHandledHook) keyEventHandledHook();
    });
    return decision;
}

TapDecision InputManager::handleKeyEvent(const KeyEvent& event) {
    auto& p = platform::Platform::current();
    if (event.type == EventType::tapDisabledByTimeout || event.type == EventType::tapDisabledByUserInput) {
        if (!p.accessibility || !p.accessibility->isProcessTrusted()) return TapDecision::pass;
        ferrow::Nanos t = now();
        if (!lastTapDisableLogAt || t - *lastTapDisableLogAt >= kTapDisableLogInterval) {
            lastTapDisableLogAt = t;
            std::string reason =
                event.type == EventType::tapDisabledByTimeout
                    ? "timeout (tap callback exceeded the system budget, main thread likely stalled)"
                    : "user input (Secure Keyboard Entry engaged by " + health_->holderDescription() + ")";
            ferrow::Log::info("key tap disabled by {}, re-enabling", reason);
        }
        if (p.eventTap) p.eventTap->enableTap(true);
        return TapDecision::pass;
    }

    TriggerList keys = without(triggersFromEventFlags(event.flags), TriggerKey::capsLock);
    if (capsLockHeld) {
        if (hyperkeyModifierFlags.empty())
            keys.push_back(TriggerKey::capsLock);
        else
            keys = hyperkeyModifierFlags;
    }

    if (event.type == EventType::flagsChanged) {
        lastTapFlagsChangedAt = now();
        lastTapFlagsChanged = event.flags;
        std::string desc = describeTriggers(keys);
        if (desc != lastLoggedTriggerDesc) {
            lastLoggedTriggerDesc = desc;
            ferrow::Log::debug("tap flagsChanged: triggers=[{}] latched={}", desc, isLatched());
        }
        if (event.keyCode == keycode::capsLock && capsLockIsTrigger()) {
            clearCapsLockState();
            return TapDecision::swallow;
        }
        if (!overlayVisible) handleFlagsChanged(keys);
        return TapDecision::pass;
    }

    if (event.type != EventType::keyDown && event.type != EventType::keyUp) return TapDecision::pass;
    if (keys.empty() && !isLatched() && !overlayVisible) return TapDecision::pass;
    if (isPaused() && !overlayVisible) return TapDecision::pass;

    // Key::none for a key code the layout doesn't map.
    const Key key = p.eventTap ? p.eventTap->key(event.keyCode).value_or(Key::none) : Key::none;
    if (event.type == EventType::keyDown) {
        if (key == Key::none) return TapDecision::pass;
        if (capsLockHeld) capsLockUsedAsModifier = true;
        currentKeyIsRepeat = event.autorepeat;
        if (router_) return router_->routeKeyDown(key, event, keys, event.autorepeat);
        // Without a router only the take-over can claim a key.
        if (takeOverAtKeyDown(event, keys)) return TapDecision::swallow;
        return TapDecision::pass;
    }
    // Key up: passes, except Tab or the window cycle key that ends a cycle step.
    if (tabCycling && (hijackCommandHeld || appTriggerKeysPressed.get()) && key != Key::none &&
        (key == Key::tab || key == settings_.windowCycleKey)) {
        showOSD(true);
        return TapDecision::swallow;
    }
    return TapDecision::pass;
}

bool InputManager::takeOverAtKeyDown(const KeyEvent& event, const TriggerList& keys) {
    if (appTriggerKeysPressed.get() || windowTriggerKeysPressed.get() || stageTriggerKeysPressed.get())
        return false;
    if (keys.empty() || !std::all_of(keys.begin(), keys.end(), isCommandOrShift)) return false;
    if (!tabCycleBuilt()) return false;
    bool reverse = contains(keys, TriggerKey::lshift) || contains(keys, TriggerKey::rshift);
    auto key = platform::Platform::current().eventTap->key(event.keyCode);
    bool cmdTab = settings_.hijackCommandTab && settings_.enableTabCycle && key == Key::tab &&
                  contains(keys, TriggerKey::lcmd);
    std::string cycleChar(lowQWERTYCharacter(settings_.windowCycleKey));
    bool windowCycle = settings_.enableWindowCycleKey && settings_.hijackWindowCycleHotkey &&
                       !settings_.ignoredKeys.count(cycleChar) &&
                       (contains(keys, TriggerKey::lcmd) || contains(keys, TriggerKey::rightCommand)) &&
                       event.keyCode == windowCycleHotkeyKeyCode;
    if (!cmdTab && !windowCycle) return false;
    hijackCommandHeld = true;
    hijackCommandBase = withoutShifts(keys);
    if (handleTabCycleHook)
        handleTabCycleHook(reverse, cmdTab ? std::nullopt : std::optional<std::string>("sameApp"));
    return true;
}

// The trigger state machine ----------------------------------------------------------------------

void InputManager::handleFlagsChanged(const TriggerList& keys) {
    ++flagsChangeCount_;
    const bool paused = isPaused();
    recordModifierFlags(keys);
    const TriggerMatches matches = matchTriggers(keys);
    followApplicationTrigger(keys, matches.application, paused);
    followWindowTrigger(matches.window, paused);
    followStageTrigger(matches.stage, paused);
    followCommandTakeOver(keys);
    followShiftTap(keys);
    if (keys.empty()) appTriggerTapContaminated = false;
    prevTriggerKeys = keys;
}

// The ten modifier flags and the list, rewritten on every change.
void InputManager::recordModifierFlags(const TriggerList& keys) {
    rightCommand = contains(keys, TriggerKey::rightCommand);
    ralt = contains(keys, TriggerKey::ralt);
    rshift = contains(keys, TriggerKey::rshift);
    rctrl = contains(keys, TriggerKey::rctrl);
    lcmd = contains(keys, TriggerKey::lcmd);
    lalt = contains(keys, TriggerKey::lalt);
    lctrl = contains(keys, TriggerKey::lctrl);
    lshift = contains(keys, TriggerKey::lshift);
    fn = contains(keys, TriggerKey::fn);
    capsLock = contains(keys, TriggerKey::capsLock);
    flags = keys;
}

// Which triggers the held keys make. The application trigger also holds for the trigger set plus one
// Shift, the action combo, and the assign and hide-on-focus sets (routing tells those apart at key
// down); while Cmd-Tab is taken over, both command keys together don't count as it. The window
// trigger accepts right Shift as its only extra. Any other keys spoil a tap of the application trigger.
InputManager::TriggerMatches InputManager::matchTriggers(const TriggerList& keys) {
    const auto& s = settings_;
    TriggerMatches m;
    m.window = !s.windowTriggerKeys.empty() && (sameSet(keys, s.windowTriggerKeys) ||
                                                sameSet(keys, plus(s.windowTriggerKeys, TriggerKey::rshift)));
    bool appMatch = !s.triggerKeys.empty() &&
                    (sameSet(keys, s.triggerKeys) || sameSet(keys, plus(s.triggerKeys, TriggerKey::rshift)) ||
                     sameSet(keys, plus(s.triggerKeys, TriggerKey::lshift)));
    bool actionMatch = s.enableSelectionActionHotkeys && matchesActionCombo(keys, s.triggerKeys);
    if (!keys.empty() && keys != s.triggerKeys) appTriggerTapContaminated = true;
    TriggerList noShift = withoutShifts(keys);
    bool bothCommandsInTakeOver = hijackCommandHeld && noShift.size() == 2 &&
                                  sameSet(noShift, {TriggerKey::lcmd, TriggerKey::rightCommand});
    m.application = !bothCommandsInTakeOver &&
                    (appMatch || actionMatch ||
                     (hideOnFocusTriggerEnabled() && sameSet(keys, s.hideOnFocusTriggerKeys)) ||
                     (assignTriggerEnabled() && sameSet(keys, s.assignKeyTriggerKeys)));
    m.stage = stageTriggerEnabled() && sameSet(keys, s.stageTriggerKeys);
    return m;
}

void InputManager::followApplicationTrigger(const TriggerList& keys, bool down, bool paused) {
    if (down && !appTriggerKeysPressed.get())
        applicationTriggerWentDown(keys, paused);
    else if (!down && appTriggerKeysPressed.get())
        applicationTriggerWentUp();
}

// A press unlatches what was latched (a latched search is then superseded by the hold), starts the
// hold's bookkeeping, opens window search on a double tap and arms the panel.
void InputManager::applicationTriggerWentDown(const TriggerList& keys, bool paused) {
    const auto& s = settings_;
    stickySearchSupersededByHold = isLatched() && (latchedSurface == "app" || latchedSurface == "window");
    stickyToggleHidden = false;
    if (isLatched()) unlatch();
    appTriggerKeysPressed = true;
    appTriggerKeyPressTime = now();
    appTriggerKeyUsedDuringHold = false;
    pickCommittedByMouseDuringHold = false;
    cycleLatchArmed = false;
    keyDownDispatchedRouteLetter.reset();
    graceTargetsAlreadyFocusedAction = false;
    alreadyFocusedActionFiredThisHold = false;
    lastKeypressDuringHoldEventTS.reset();
    focusedBundleIDAtTriggerPress = focusedBundleID();
    if (s.doubleTapSearchOpenWindows && s.triggerKeys.size() == 1 && sameSet(keys, s.triggerKeys) &&
        lastAppTriggerTapTime && now() - *lastAppTriggerTapTime < kDoubleTapWindow) {
        lastAppTriggerTapTime.reset();
        if (enterWindowSearchHook) enterWindowSearchHook();
    }
    bool companionStandsIn = s.tactoraEnabled && s.tactoraHideOSDWhenShown;
    if (!paused && !companionStandsIn) showOSD(false);
}

// A release leaves a latched surface alone, ends a hold that only took the sticky search away, notes
// a clean tap for the double tap, latches an armed tab cycle, or else commits.
void InputManager::applicationTriggerWentUp() {
    const auto& s = settings_;
    appTriggerKeysPressed = false;
    if (isLatched()) {
        appTriggerKeyPressTime.reset();
        return;
    }
    if (stickyToggleHidden && !appTriggerKeyUsedDuringHold) {
        stickyToggleHidden = false;
        appTriggerKeyPressTime.reset();
        resetTabCycle();
        hideOSD();
        return;
    }
    bool cleanTap = appTriggerKeyPressTime && now() - *appTriggerKeyPressTime < kDoubleTapWindow &&
                    !appTriggerKeyUsedDuringHold && !appTriggerTapContaminated;
    if (cleanTap)
        lastAppTriggerTapTime = now();
    else
        lastAppTriggerTapTime.reset();
    appTriggerKeyPressTime.reset();
    if (s.stickyAppSwitcher && cycleLatchArmed && tabCycling && !tabCycleScopeOverride &&
        !pickCommittedByMouseDuringHold) {
        if (latchTabCycleHook) latchTabCycleHook();
        return;
    }
    resetTabCycle();
    hideOSD();
    if (router_) router_->commitOnTriggerUp();
}

void InputManager::followWindowTrigger(bool down, bool paused) {
    if (down && !windowTriggerKeysPressed.get()) {
        if (isLatched()) unlatch();
        windowTriggerKeysPressed = true;
        windowTriggerKeyPressTime = now();
        windowTriggerKeyUsedDuringHold = false;
        pickCommittedByMouseDuringHold = false;
        if (!paused) showOSD(false);
    } else if (!down && windowTriggerKeysPressed.get()) {
        windowTriggerKeysPressed = false;
        windowTriggerKeyPressTime.reset();
        hideOSD();
        if (router_) router_->commitOnTriggerUp();
    }
}

void InputManager::followStageTrigger(bool down, bool paused) {
    if (down && !stageTriggerKeysPressed.get()) {
        if (isLatched()) unlatch();
        stageTriggerKeysPressed = true;
        stageTriggerKeyPressTime = now();
        stageTriggerKeyUsedDuringHold = false;
        pickCommittedByMouseDuringHold = false;
        if (!paused && router_) router_->showStagePanelIfAny();
    } else if (!down && stageTriggerKeysPressed.get()) {
        stageTriggerKeysPressed = false;
        stageTriggerKeyPressTime.reset();
        hideOSD();
        if (router_) router_->commitOnTriggerUp();
    }
}

// The take-over holds while only a command key (with Shift) is down, no trigger and nothing latched;
// when it ends, an armed cycle latches (with the sticky scope that covers the system's keys) or the
// cycle closes.
void InputManager::followCommandTakeOver(const TriggerList& keys) {
    const auto& s = settings_;
    TriggerList base = withoutShifts(keys);
    bool wanted =
        tabCycleBuilt() && (s.hijackCommandTab || (s.enableWindowCycleKey && s.hijackWindowCycleHotkey));
    bool anyTrigger =
        appTriggerKeysPressed.get() || windowTriggerKeysPressed.get() || stageTriggerKeysPressed.get();
    bool baseFits =
        (base.size() == 1 && (base[0] == TriggerKey::lcmd || base[0] == TriggerKey::rightCommand)) ||
        (hijackCommandHeld && base.size() == 2 &&
         sameSet(base, {TriggerKey::lcmd, TriggerKey::rightCommand}));
    if (wanted && !anyTrigger && !isLatched() && baseFits) {
        if (!hijackCommandHeld) {
            hijackCommandHeld = true;
            hijackCommandBase = base;
        }
        return;
    }
    if (!hijackCommandHeld) return;
    hijackCommandHeld = false;
    hijackCommandBase.clear();
    if (s.stickyAppSwitcher && s.stickyAppSwitcherScopeSystem && cycleLatchArmed && tabCycling &&
        !tabCycleScopeOverride && !pickCommittedByMouseDuringHold) {
        if (latchTabCycleHook) latchTabCycleHook();
    } else if (tabCycling) {
        resetTabCycle();
        hideOSD();
    }
}

// A lone Shift tap on top of the trigger (or the take-over's command key) steps the search, the tab
// cycle or the panel's selection back by one.
void InputManager::followShiftTap(const TriggerList& keys) {
    TriggerList b = hijackCommandHeld ? hijackCommandBase : settings_.triggerKeys;
    if (b.empty()) return;
    auto isBPlusOneShift = [&](const TriggerList& l) {
        return sameSet(l, plus(b, TriggerKey::lshift)) || sameSet(l, plus(b, TriggerKey::rshift));
    };
    if (isBPlusOneShift(keys) && !contains(b, TriggerKey::lshift) && !contains(b, TriggerKey::rshift) &&
        sameSet(prevTriggerKeys, b) && !prevTriggerKeys.empty()) {
        shiftReverseTapArmed = true;
        return;
    }
    if (sameSet(keys, b) && isBPlusOneShift(prevTriggerKeys) && shiftReverseTapArmed) {
        bool cycleSelection = appSwitcherCycleSelectedID.has_value();
        if (searchActive || tabCycling || cycleSelection) {
            appTriggerKeyUsedDuringHold = true;
            cycleLatchArmed = true;
            if (stepSelectionReverseHook) stepSelectionReverseHook(true);
        }
    }
    shiftReverseTapArmed = false;
}

// Caps lock --------------------------------------------------------------------------------------

void InputManager::capsLockChanged(bool held) {
    capsLockHeld = held;
    if (!held) {
        hyperkeyModifierFlags.clear();
        if (capsLockIsTrigger() && settings_.capsLockTapToggles) capsLockTapToggle();
    } else if (capsLockIsTrigger()) {
        auto* tap = platform::Platform::current().eventTap;
        capsLockStateBeforePress = tap && tap->capsLockState();
        capsLockPressedAt = now();
        capsLockUsedAsModifier = false;
        clearCapsLockState();
    }
    TriggerList keys = flags.get();
    if (held) {
        if (!contains(keys, TriggerKey::capsLock)) keys.push_back(TriggerKey::capsLock);
    } else {
        keys = without(keys, TriggerKey::capsLock);
    }
    if (!overlayVisible) handleFlagsChanged(keys);
}

void InputManager::clearCapsLockState() {
    auto* tap = platform::Platform::current().eventTap;
    if (!tap) return;
    std::uint64_t generation = ++capsLockClearGeneration;
    tap->setCapsLockState(false);
    std::weak_ptr<bool> alive = alive_;
    for (int delay : {12, 45}) {
        ferrow::mainAsyncAfter(delay, [this, alive, generation] {
            if (!alive.lock() || generation != capsLockClearGeneration) return;
            auto* t = platform::Platform::current().eventTap;
            if (t && t->capsLockState()) t->setCapsLockState(false);
        });
    }
}

void InputManager::capsLockTapToggle() {
    if (!capsLockPressedAt) return;
    ferrow::Nanos pressedAt = *capsLockPressedAt;
    capsLockPressedAt.reset();
    if (capsLockUsedAsModifier) return;
    if (now() - pressedAt >= kCapsLockTapLimit) return;
    ++capsLockClearGeneration;
    if (auto* tap = platform::Platform::current().eventTap) tap->setCapsLockState(!capsLockStateBeforePress);
}

// The second view of modifiers: hyperkey and the dead-tap check --------------------------------

void InputManager::flagsMonitorEvent(std::uint64_t f) {
    if (capsLockHeld) {
        TriggerList mods =
            without(triggersFromEventFlags(f & platform::flag::monitorMask), TriggerKey::capsLock);
        if (!mods.empty()) {
            hyperkeyModifierFlags = mods;
            capsLockUsedAsModifier = true;
            handleFlagsChanged(mods);
        }
    } else if (!hyperkeyModifierFlags.empty()) {
        hyperkeyModifierFlags.clear();
    }
    flagsChangedCheckWorkItem.cancel();
    if (!(f & platform::flag::monitorMask)) return;
    ferrow::Nanos stamp = now();
    lastGlobalFlagsChangedAt = stamp;
    lastGlobalFlagsChanged = f;
    std::weak_ptr<bool> alive = alive_;
    flagsChangedCheckWorkItem = ferrow::mainAsyncAfter(kDeadTapCheckMs, [this, alive, stamp, f] {
        if (!alive.lock()) return;
        if (lastGlobalFlagsChangedAt != stamp) return;
        if (std::abs(lastTapFlagsChangedAt - stamp) <= kDeadTapWindow) return;
        // Stop, then start, whether or not the tap is marked running: a re-creation that failed last
        // time is tried again at the next modifier press the tap misses.
        ferrow::Log::info(
            "Event tap not working anymore (NSEvent monitor saw flags the tap did not), restarting: {}",
            describeTriggers(triggersFromEventFlags(f)));
        stopKeyTap();
        startKeyTap();
    });
}

// The system's window cycle shortcut --------------------------------------------------------------

void InputManager::updateWindowCycleHotkey() {
    auto* ws = platform::Platform::current().windowServer;
    if (!ws) return;
    constexpr int kHotKey = 27;
    if (auto value = ws->symbolicHotKeyValue(kHotKey)) windowCycleHotkeyKeyCode = value->keyCode;
    std::string cycleChar(lowQWERTYCharacter(settings_.windowCycleKey));
    // Without a tab cycle the system's shortcut stays on: switching it off would leave the key dead.
    if (tabCycleBuilt() && settings_.enableWindowCycleKey && settings_.hijackWindowCycleHotkey &&
        !settings_.ignoredKeys.count(cycleChar)) {
        if (ws->isSymbolicHotKeyEnabled(kHotKey)) {
            ws->setSymbolicHotKeyEnabled(kHotKey, false);
            didDisableWindowCycleHotkey = true;
        }
    } else if (didDisableWindowCycleHotkey) {
        ws->setSymbolicHotKeyEnabled(kHotKey, true);
        didDisableWindowCycleHotkey = false;
    }
}

// The overlay ------------------------------------------------------------------------------------

void InputManager::suspendForOverlay() {
    unlatch();
    if (router_) router_->cancelForOverlay();
    resetTabCycle();
    hijackCommandHeld = false;
    hijackCommandBase.clear();
    appSwitcherCycleSelectedID.reset();
    cmdTabFilterBuffer.clear();
    appTriggerKeysPressed = false;
    windowTriggerKeysPressed = false;
    stageTriggerKeysPressed = false;
    appTriggerKeyPressTime.reset();
    windowTriggerKeyPressTime.reset();
    stageTriggerKeyPressTime.reset();
    hideOSD();
    overlayVisible = true;
    tapSeesBareKeys_.store(true, std::memory_order_relaxed);
}

void InputManager::resumeAfterOverlay() {
    overlayVisible = false;
    refreshTapSeesBareKeys();
    auto* tap = platform::Platform::current().eventTap;
    TriggerList keys =
        without(triggersFromEventFlags(tap ? tap->sourceFlagsState() : 0), TriggerKey::capsLock);
    if (capsLockHeld) keys.push_back(TriggerKey::capsLock);
    handleFlagsChanged(keys);
}

}  // namespace zelk
