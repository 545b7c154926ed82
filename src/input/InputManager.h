#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "input/InputSettings.h"
#include "input/TapHealth.h"
#include "input/TriggerSets.h"
#include "platform/EventTap.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk {

class HotkeyRouter;

// Whether the trigger keys are down on the keyboard itself, read from the hardware flags rather than
// from the events the tap saw (a lost key-up leaves those behind).
enum class PhysicalTrigger { held, released, unknown };

// Trigger state: which modifiers are down, which trigger set is pressed, and whether a key event goes
// on to the frontmost app or stops here. Owns the event tap and its filter. Main thread, except the
// filter, which runs on the tap thread.
class InputManager {
  public:
    InputManager();
    ~InputManager();
    InputManager(const InputManager&) = delete;
    InputManager& operator=(const InputManager&) = delete;

    static InputManager& shared();
    static void reset();

    // Tap life cycle.
    void startKeyTap();
    void stopKeyTap();
    void startFlagsChangedMonitors();
    bool tapRunning() const { return tapRunning_; }

    // The tap callback: bare typing returns at once; everything else hops to the main thread.
    platform::TapDecision tapCallback(const platform::KeyEvent& event);
    // The main-thread body of the tap.
    platform::TapDecision handleKeyEvent(const platform::KeyEvent& event);
    void handleFlagsChanged(const TriggerList& keys);
    void capsLockChanged(bool held);
    void flagsMonitorEvent(std::uint64_t flags);
    void updateWindowCycleHotkey();
    void suspendForOverlay();
    void resumeAfterOverlay();

    // Settings mirror; re-read when a settings key changes.
    const InputSettings& settings() const { return settings_; }
    void reloadSettings();

    // Derived values.
    bool assignKeyCollides() const;
    bool hideOnFocusKeyCollides() const;
    bool stageKeyCollides() const;
    bool assignTriggerEnabled() const;
    bool hideOnFocusTriggerEnabled() const;
    bool stageTriggerEnabled() const;
    bool capsLockIsTrigger() const;
    bool capsLockInAnySet() const;

    // Observable trigger state.
    ferrow::Observable<bool> rightCommand, ralt, rshift, rctrl, lcmd, lalt, lctrl, lshift, fn, capsLock;
    ferrow::Observable<TriggerList> flags;
    ferrow::Observable<bool> appTriggerKeysPressed{false}, windowTriggerKeysPressed{false},
        stageTriggerKeysPressed{false};
    // Times are uptime nanoseconds, so the 0.25 s and 0.3 s boundaries compare exactly.
    std::optional<ferrow::Nanos> appTriggerKeyPressTime, windowTriggerKeyPressTime, stageTriggerKeyPressTime;
    bool appTriggerKeyUsedDuringHold = false, windowTriggerKeyUsedDuringHold = false,
         stageTriggerKeyUsedDuringHold = false;
    std::optional<ferrow::Nanos> lastAppTriggerTapTime;
    bool appTriggerTapContaminated = false;
    TriggerList prevTriggerKeys;
    bool shiftReverseTapArmed = false;
    std::optional<std::string> focusedBundleIDAtTriggerPress;
    ferrow::Nanos currentKeydownEventTS = 0;
    bool currentKeyIsRepeat = false;  // the key down in hand is an auto-repeat

    // Caps lock and hyperkey.
    bool capsLockHeld = false;
    std::optional<ferrow::Nanos> capsLockPressedAt;
    bool capsLockStateBeforePress = false;
    bool capsLockUsedAsModifier = false;
    TriggerList hyperkeyModifierFlags;
    std::uint64_t capsLockClearGeneration = 0;

    // Take-over of Cmd-Tab and Cmd-backtick.
    bool hijackCommandHeld = false;
    TriggerList hijackCommandBase;
    std::uint16_t windowCycleHotkeyKeyCode = 50;
    bool didDisableWindowCycleHotkey = false;

    // The two views of modifier changes, for the dead-tap check.
    ferrow::Nanos lastGlobalFlagsChangedAt = 0, lastTapFlagsChangedAt = 0;
    std::uint64_t lastGlobalFlagsChanged = 0, lastTapFlagsChanged = 0;
    ferrow::WorkItem flagsChangedCheckWorkItem;
    std::optional<ferrow::Nanos> lastTapDisableLogAt;
    std::string lastLoggedTriggerDesc;

    // Hold bookkeeping read by routing.
    bool pickCommittedByMouseDuringHold = false;
    bool cycleLatchArmed = false;
    std::optional<std::string> keyDownDispatchedRouteLetter;
    bool graceTargetsAlreadyFocusedAction = false;
    bool alreadyFocusedActionFiredThisHold = false;
    std::optional<ferrow::Nanos> lastKeypressDuringHoldEventTS;
    bool stickySearchSupersededByHold = false;
    bool stickyToggleHidden = false;

    // Surfaces this state machine drives; the panel keeps its own state.
    bool tabCycling = false;
    std::optional<std::string> tabCycleScopeOverride;
    std::optional<std::string> latchedSurface;  // "app", "window", "tabCycle", "appCycle"
    bool overlayVisible = false;
    bool searchActive = false;
    std::optional<std::string> appSwitcherCycleSelectedID;
    std::string cmdTabFilterBuffer;

    bool osdHidden = true;  // no panel shows
    // Keys bound for the application and window triggers (alphanumerics less the special keys).
    std::vector<Key> appSwitchKeys, windowSwitchKeys;

    bool isLatched() const { return latchedSurface.has_value(); }
    bool tapSeesBareKeys() const { return tapSeesBareKeys_.load(std::memory_order_relaxed); }
    void refreshTapSeesBareKeys();

    // Routing of key downs and the commit at trigger up (the router fills these).
    void setRouter(HotkeyRouter* router) { router_ = router; }
    HotkeyRouter* router() const { return router_; }
    // Held when every key of a non-empty trigger set (or the take-over's command key) is down now;
    // unknown while a held trigger's set has caps lock, which shows no modifier state. `recentKeyGuard`
    // counts a key routed in the last second as held; `includeCycle` counts a running tab cycle.
    PhysicalTrigger physicalTriggerState(bool recentKeyGuard, bool includeCycle) const;
    // The take-over and the system shortcut it switches off need a tab cycle to hand keys to.
    bool tabCycleBuilt() const;

    // Panel operations; the panel itself is drawn elsewhere.
    std::function<void(bool immediate)> showOSDHook;
    std::function<void()> hideOSDHook;
    std::function<void()> resetTabCycleHook;
    std::function<void()> unlatchHook;
    std::function<void()> latchTabCycleHook;
    std::function<void()> enterWindowSearchHook;
    std::function<void(bool reverse)> stepSelectionReverseHook;
    std::function<void(bool reverse, std::optional<std::string> scope)> handleTabCycleHook;
    // After each event the tap hands to the main thread (the panel re-reads the state).
    std::function<void()> keyEventHandledHook;
    // A key went down while a trigger is held: the companion keyboard's hold is decided by it.
    std::function<void()> companionKeyUsedHook;
    void showOSD(bool immediate = false);
    void hideOSD();
    void resetTabCycle();
    void unlatch();

    TapHealth& health() { return *health_; }
    std::size_t flagsChangeCount() const { return flagsChangeCount_; }

    // The take-over of Cmd-Tab or Cmd-backtick (no trigger down, only command and shift keys held);
    // true when it started and the key is taken.
    bool takeOverAtKeyDown(const platform::KeyEvent& event, const TriggerList& keys);

  private:
    // The steps of the trigger state machine, in the order they run on every flags change.
    struct TriggerMatches {
        bool application = false, window = false, stage = false;
    };
    void recordModifierFlags(const TriggerList& keys);
    TriggerMatches matchTriggers(const TriggerList& keys);
    void followApplicationTrigger(const TriggerList& keys, bool down, bool paused);
    void applicationTriggerWentDown(const TriggerList& keys, bool paused);
    void applicationTriggerWentUp();
    void followWindowTrigger(bool down, bool paused);
    void followStageTrigger(bool down, bool paused);
    void followCommandTakeOver(const TriggerList& keys);
    void followShiftTap(const TriggerList& keys);

    bool isPaused() const;
    void clearCapsLockState();
    void capsLockTapToggle();
    ferrow::Nanos now() const;
    std::optional<std::string> focusedBundleID() const;

    InputSettings settings_;
    std::atomic<bool> tapSeesBareKeys_{true};
    bool tapRunning_ = false;
    bool monitorsStarted_ = false;
    bool capsLockMonitorStarted_ = false;
    HotkeyRouter* router_ = nullptr;
    std::unique_ptr<TapHealth> health_;
    std::size_t flagsChangeCount_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk
