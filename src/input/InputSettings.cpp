#include "input/InputSettings.h"

#include <nlohmann/json.hpp>

#include "platform/Platform.h"

namespace zelk {

namespace {
using nlohmann::json;

std::optional<json> stored(const std::string& key) {
    auto* store = platform::Platform::current().settings;
    if (!store) return std::nullopt;
    return store->read(key);
}

void readTriggers(const char* key, std::vector<TriggerKey>& out) {
    auto v = stored(key);
    if (!v || !v->is_array()) return;
    std::vector<TriggerKey> list;
    for (auto& item : *v) {
        std::optional<TriggerKey> k;
        if (item.is_number_integer())
            k = triggerKeyFromRaw(item.get<int>());
        else if (item.is_string())
            k = triggerKeyFromName(item.get<std::string>());
        if (!k) return;  // one bad entry: the whole key reads as its default
        list.push_back(*k);
    }
    out = list;
}

void readBool(const char* key, bool& out) {
    auto v = stored(key);
    if (v && v->is_boolean()) out = v->get<bool>();
}

void readStringSet(const char* key, std::set<std::string>& out) {
    auto v = stored(key);
    if (!v || !v->is_array()) return;
    std::set<std::string> set;
    for (auto& item : *v) {
        if (!item.is_string()) return;
        set.insert(item.get<std::string>());
    }
    out = set;
}

void readKey(const char* key, Key& out) {
    auto v = stored(key);
    if (!v || !v->is_string()) return;
    if (auto k = keyFromName(v->get<std::string>())) out = *k;
}
}  // namespace

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
    InputSettings s;
    readTriggers("triggerKeys", s.triggerKeys);
    readTriggers("windowTriggerKeys", s.windowTriggerKeys);
    readTriggers("assignKeyTriggerKeys", s.assignKeyTriggerKeys);
    readTriggers("hideOnFocusTriggerKeys", s.hideOnFocusTriggerKeys);
    readTriggers("stageTriggerKeys", s.stageTriggerKeys);
    readStringSet("ignoredKeys", s.ignoredKeys);
    readStringSet("pauseApps", s.pauseApps);
    readBool("enableAssignHotkey", s.enableAssignHotkey);
    readBool("enableHideOnFocusHotkey", s.enableHideOnFocusHotkey);
    readBool("enableSelectionActionHotkeys", s.enableSelectionActionHotkeys);
    readBool("doubleTapSearchOpenWindows", s.doubleTapSearchOpenWindows);
    readBool("stickyAppSwitcher", s.stickyAppSwitcher);
    if (auto v = stored("stickyAppSwitcherScope"); v && v->is_string())
        s.stickyAppSwitcherScopeSystem = v->get<std::string>() == "zelkAndSystem";
    readBool("hijackCommandTab", s.hijackCommandTab);
    readBool("enableWindowCycleKey", s.enableWindowCycleKey);
    readBool("hijackWindowCycleHotkey", s.hijackWindowCycleHotkey);
    readKey("windowCycleKey", s.windowCycleKey);
    readBool("enableTabCycle", s.enableTabCycle);
    readBool("capsLockTapToggles", s.capsLockTapToggles);
    readBool("warnOnSecureInput", s.warnOnSecureInput);
    readBool("tactoraEnabled", s.tactoraEnabled);
    readBool("tactoraHideOSDWhenShown", s.tactoraHideOSDWhenShown);

    if (auto v = stored("activationMode")) {
        std::string m = v->is_string() ? v->get<std::string>() : "";
        if (v->is_number_integer())
            m = v->get<int>() == 0   ? "onPress"
                : v->get<int>() == 1 ? "onRelease"
                : v->get<int>() == 2 ? "adaptive"
                                     : "";
        if (m == "onPress")
            s.activationMode = ActivationMode::onPress;
        else if (m == "onRelease")
            s.activationMode = ActivationMode::onRelease;
        else if (m == "adaptive")
            s.activationMode = ActivationMode::adaptive;
    }
    if (auto v = stored("whenAlreadyFocusedAction")) {
        static const std::pair<const char*, int> names[] = {
            {"hide", 0}, {"expose", 1}, {"cycleWindows", 3}, {"doNothing", 4}};
        if (v->is_number_integer()) {
            int raw = v->get<int>();
            if (raw == 0 || raw == 1 || raw == 3 || raw == 4) s.whenAlreadyFocusedAction = raw;
        } else if (v->is_string()) {
            for (auto& [name, raw] : names)
                if (v->get<std::string>() == name) s.whenAlreadyFocusedAction = raw;
        }
    }
    if (auto v = stored("spaceMode"); v && v->is_string()) {
        if (v->get<std::string>() == "multi")
            s.spaceMode = SpaceMode::multi;
        else if (v->get<std::string>() == "single")
            s.spaceMode = SpaceMode::single;
    }
    auto readInt = [](const char* key, int& out) {
        auto v = stored(key);
        if (v && v->is_number_integer()) out = v->get<int>();
    };
    readInt("adaptiveFollowupGraceMs", s.adaptiveFollowupGraceMs);
    readInt("staticBreakoutThresholdMs", s.staticBreakoutThresholdMs);
    readInt("windowSwitchOSDDelay", s.windowSwitchOSDDelay);
    readBool("showAppSwitcher", s.showAppSwitcher);
    readKey("minimizeKey", s.hideKey);
    readKey("specialKey", s.actionKey);
    readKey("exposeKey", s.exposeKey);
    readKey("windowMinimizeKey", s.windowMinimizeKey);
    readKey("windowSpecialKey", s.windowAssignKey);
    readKey("stageSpecialKey", s.stageAssignKey);
    readKey("stageMinimizeKey", s.stageCloseKey);
    readKey("stageRepositionKey", s.stageRepositionKey);
    readKey("prevSpaceKey", s.prevSpaceKey);
    readKey("nextSpaceKey", s.nextSpaceKey);
    readBool("enableHideAndSettingsKeys", s.enableHideAndActionKeys);
    readBool("enableWindowSpecialKeys", s.enableWindowMinimizeAndAssignKeys);
    readBool("alwaysHideOthers", s.alwaysHideOthers);
    readBool("hideOnlyFocusedAppOnMinus", s.hideOnlyFocusedAppOnMinus);
    readBool("minimizeOnlyFocusedWindowOnMinus", s.minimizeOnlyFocusedWindowOnMinus);
    readBool("enableStickySpaceSearch", s.enableStickySpaceSearch);
    readBool("enableAdjacentSpaceSwitching", s.enableAdjacentSpaceSwitching);
    readBool("enableWindowMoveToSpaceShortcut", s.enableWindowMoveToSpaceShortcut);
    readBool("enableStageMoveToSpaceShortcut", s.enableStageMoveToSpaceShortcut);
    readBool("exposeOverlay", s.exposeOverlay);
    readBool("focusOnKeyUp", s.focusOnKeyUp);
    readBool("switcherAppsOnly", s.switcherAppsOnly);
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
