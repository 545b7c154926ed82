#pragma once
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "config/FocusOptions.h"
#include "input/TriggerKey.h"
#include "platform/Key.h"

namespace zelk {

// The settings the key path reads, kept as one snapshot so the tap path never decodes a stored value.
// Re-read whenever one of them changes.
struct InputSettings {
    std::vector<TriggerKey> triggerKeys{TriggerKey::rightCommand};
    std::vector<TriggerKey> windowTriggerKeys{TriggerKey::ralt};
    std::vector<TriggerKey> assignKeyTriggerKeys{TriggerKey::rightCommand, TriggerKey::ralt};
    std::vector<TriggerKey> hideOnFocusTriggerKeys{TriggerKey::rightCommand, TriggerKey::rshift};
    std::vector<TriggerKey> stageTriggerKeys{TriggerKey::capsLock};
    std::set<std::string> ignoredKeys;
    std::set<std::string> pauseApps;
    bool enableAssignHotkey = true;
    bool enableHideOnFocusHotkey = false;
    bool enableSelectionActionHotkeys = true;
    bool doubleTapSearchOpenWindows = true;
    bool stickyAppSwitcher = false;
    bool stickyAppSwitcherScopeSystem = false;  // stickyAppSwitcherScope is zelkAndSystem
    bool hijackCommandTab = false;
    bool enableWindowCycleKey = true;
    bool hijackWindowCycleHotkey = true;
    Key windowCycleKey = Key::grave;
    bool enableTabCycle = true;
    bool capsLockTapToggles = true;
    bool warnOnSecureInput = true;
    bool tactoraEnabled = false;
    bool tactoraHideOSDWhenShown = true;

    // Routing.
    using ActivationMode = zelk::ActivationMode;
    using SpaceMode = zelk::SpaceMode;
    ActivationMode activationMode = ActivationMode::adaptive;
    int whenAlreadyFocusedAction = 0;  // raw: hide 0, expose 1, cycleWindows 3, doNothing 4
    int adaptiveFollowupGraceMs = 150;
    int staticBreakoutThresholdMs = 0;
    bool showAppSwitcher = false;
    int windowSwitchOSDDelay = 150;
    SpaceMode spaceMode = SpaceMode::single;
    Key hideKey = Key::minus;    // minimizeKey
    Key actionKey = Key::equal;  // specialKey
    Key exposeKey = Key::period;
    Key windowMinimizeKey = Key::minus;
    Key windowAssignKey = Key::equal;  // windowSpecialKey
    Key stageAssignKey = Key::equal;   // stageSpecialKey
    Key stageCloseKey = Key::minus;    // stageMinimizeKey
    Key stageRepositionKey = Key::section;
    Key prevSpaceKey = Key::leftBracket;
    Key nextSpaceKey = Key::rightBracket;
    bool enableHideAndActionKeys = true;            // enableHideAndSettingsKeys
    bool enableWindowMinimizeAndAssignKeys = true;  // enableWindowSpecialKeys
    bool alwaysHideOthers = false;
    bool hideOnlyFocusedAppOnMinus = false;
    bool minimizeOnlyFocusedWindowOnMinus = true;
    bool enableStickySpaceSearch = true;
    bool enableAdjacentSpaceSwitching = false;
    bool enableWindowMoveToSpaceShortcut = true;
    bool enableStageMoveToSpaceShortcut = false;
    bool exposeOverlay = true;
    bool focusOnKeyUp = false;
    bool switcherAppsOnly = false;

    // The breakout threshold in nanoseconds: the setting when at least 1 ms, else 0.5 s with the app
    // panel on and 0.25 s with it off.
    std::int64_t staticBreakoutThresholdNanos() const;

    // The settings keys this snapshot reads.
    static const std::vector<std::string>& keys();
    // Reads the snapshot from the installed settings.
    static InputSettings load();
};

}  // namespace zelk
