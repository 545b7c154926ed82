#include "input/InputSettings.h"

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"

namespace zelk {

const std::vector<std::string>& InputSettings::keys() {
    static const std::vector<std::string> k{"triggerKeys",
                                            "windowTriggerKeys",
                                            "assignKeyTriggerKeys",
                                            "hideOnFocusTriggerKeys",
                                            "stageTriggerKeys",
                                            "ignoredKeys",
                                            "pauseApps",
                                            "enableAssignHotkey",
                                            "enableHideOnFocusHotkey",
                                            "enableSelectionActionHotkeys",
                                            "doubleTapSearchOpenWindows",
                                            "stickyAppSwitcher",
                                            "stickyAppSwitcherScope",
                                            "hijackCommandTab",
                                            "enableWindowCycleKey",
                                            "hijackWindowCycleHotkey",
                                            "windowCycleKey",
                                            "enableTabCycle",
                                            "capsLockTapToggles",
                                            "warnOnSecureInput",
                                            "tactoraEnabled",
                                            "tactoraHideOSDWhenShown",
                                            "activationMode",
                                            "whenAlreadyFocusedAction",
                                            "adaptiveFollowupGraceMs",
                                            "staticBreakoutThresholdMs",
                                            "showAppSwitcher",
                                            "windowSwitchOSDDelay",
                                            "spaceMode",
                                            "minimizeKey",
                                            "specialKey",
                                            "exposeKey",
                                            "windowMinimizeKey",
                                            "windowSpecialKey",
                                            "stageSpecialKey",
                                            "stageMinimizeKey",
                                            "stageRepositionKey",
                                            "prevSpaceKey",
                                            "nextSpaceKey",
                                            "enableHideAndSettingsKeys",
                                            "enableWindowSpecialKeys",
                                            "alwaysHideOthers",
                                            "hideOnlyFocusedAppOnMinus",
                                            "minimizeOnlyFocusedWindowOnMinus",
                                            "enableStickySpaceSearch",
                                            "enableAdjacentSpaceSwitching",
                                            "enableWindowMoveToSpaceShortcut",
                                            "enableStageMoveToSpaceShortcut",
                                            "exposeOverlay",
                                            "focusOnKeyUp",
                                            "switcherAppsOnly"};
    return k;
}

InputSettings InputSettings::load() {
    // Each key decodes on its own: a bad stored value reads as that key's default and leaves the
    // others alone.
    auto& st = Settings::shared();
    InputSettings s;
    s.triggerKeys = st.get(keys::triggerKeys);
    s.windowTriggerKeys = st.get(keys::windowTriggerKeys);
    s.assignKeyTriggerKeys = st.get(keys::assignKeyTriggerKeys);
    s.hideOnFocusTriggerKeys = st.get(keys::hideOnFocusTriggerKeys);
    s.stageTriggerKeys = st.get(keys::stageTriggerKeys);
    s.ignoredKeys = st.get(keys::ignoredKeys);
    s.pauseApps = st.get(keys::pauseApps);
    s.enableAssignHotkey = st.get(keys::enableAssignHotkey);
    s.enableHideOnFocusHotkey = st.get(keys::enableHideOnFocusHotkey);
    s.enableSelectionActionHotkeys = st.get(keys::enableSelectionActionHotkeys);
    s.doubleTapSearchOpenWindows = st.get(keys::doubleTapSearchOpenWindows);
    s.stickyAppSwitcher = st.get(keys::stickyAppSwitcher);
    s.stickyAppSwitcherScopeSystem =
        st.get(keys::stickyAppSwitcherScope) == StickyAppSwitcherScope::zelkAndSystem;
    s.hijackCommandTab = st.get(keys::hijackCommandTab);
    s.enableWindowCycleKey = st.get(keys::enableWindowCycleKey);
    s.hijackWindowCycleHotkey = st.get(keys::hijackWindowCycleHotkey);
    s.windowCycleKey = st.get(keys::windowCycleKey);
    s.enableTabCycle = st.get(keys::enableTabCycle);
    s.capsLockTapToggles = st.get(keys::capsLockTapToggles);
    s.warnOnSecureInput = st.get(keys::warnOnSecureInput);
    s.tactoraEnabled = st.get(keys::tactoraEnabled);
    s.tactoraHideOSDWhenShown = st.get(keys::tactoraHideOSDWhenShown);
    s.activationMode = st.get(keys::activationMode);
    // followGlobal is no global value: it reads as the default.
    auto action = st.get(keys::whenAlreadyFocusedAction);
    if (action != WhenAlreadyFocusedAction::followGlobal) s.whenAlreadyFocusedAction = rawValue(action);
    s.adaptiveFollowupGraceMs = st.get(keys::adaptiveFollowupGraceMs);
    s.staticBreakoutThresholdMs = st.get(keys::staticBreakoutThresholdMs);
    s.windowSwitchOSDDelay = st.get(keys::windowSwitchOSDDelay);
    s.showAppSwitcher = st.get(keys::showAppSwitcher);
    s.spaceMode = st.get(keys::spaceMode);
    s.hideKey = st.get(keys::minimizeKey);
    s.actionKey = st.get(keys::specialKey);
    s.exposeKey = st.get(keys::exposeKey);
    s.windowMinimizeKey = st.get(keys::windowMinimizeKey);
    s.windowAssignKey = st.get(keys::windowSpecialKey);
    s.stageAssignKey = st.get(keys::stageSpecialKey);
    s.stageCloseKey = st.get(keys::stageMinimizeKey);
    s.stageRepositionKey = st.get(keys::stageRepositionKey);
    s.prevSpaceKey = st.get(keys::prevSpaceKey);
    s.nextSpaceKey = st.get(keys::nextSpaceKey);
    s.enableHideAndActionKeys = st.get(keys::enableHideAndSettingsKeys);
    s.enableWindowMinimizeAndAssignKeys = st.get(keys::enableWindowSpecialKeys);
    s.alwaysHideOthers = st.get(keys::alwaysHideOthers);
    s.hideOnlyFocusedAppOnMinus = st.get(keys::hideOnlyFocusedAppOnMinus);
    s.minimizeOnlyFocusedWindowOnMinus = st.get(keys::minimizeOnlyFocusedWindowOnMinus);
    s.enableStickySpaceSearch = st.get(keys::enableStickySpaceSearch);
    s.enableAdjacentSpaceSwitching = st.get(keys::enableAdjacentSpaceSwitching);
    s.enableWindowMoveToSpaceShortcut = st.get(keys::enableWindowMoveToSpaceShortcut);
    s.enableStageMoveToSpaceShortcut = st.get(keys::enableStageMoveToSpaceShortcut);
    s.exposeOverlay = st.get(keys::exposeOverlay);
    s.focusOnKeyUp = st.get(keys::focusOnKeyUp);
    s.switcherAppsOnly = st.get(keys::switcherAppsOnly);
    return s;
}

}  // namespace zelk

namespace zelk {
std::int64_t InputSettings::staticBreakoutThresholdNanos() const {
    if (staticBreakoutThresholdMs >= 1)
        return static_cast<std::int64_t>(staticBreakoutThresholdMs) * 1'000'000;
    return showAppSwitcher ? 500'000'000 : 250'000'000;
}
}  // namespace zelk
