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
        if (item.is_number_integer()) k = triggerKeyFromRaw(item.get<int>());
        else if (item.is_string()) k = triggerKeyFromName(item.get<std::string>());
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
    static const std::vector<std::string> k{
        "triggerKeys",        "windowTriggerKeys",      "assignKeyTriggerKeys",     "hideOnFocusTriggerKeys",
        "stageTriggerKeys",   "ignoredKeys",            "pauseApps",                "enableAssignHotkey",
        "enableHideOnFocusHotkey", "enableSelectionActionHotkeys", "doubleTapSearchOpenWindows",
        "stickyAppSwitcher",  "stickyAppSwitcherScope", "hijackCommandTab",         "enableWindowCycleKey",
        "hijackWindowCycleHotkey", "windowCycleKey",    "enableTabCycle",           "capsLockTapToggles",
        "warnOnSecureInput",  "tactoraEnabled",         "tactoraHideOSDWhenShown"};
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
    return s;
}

}  // namespace zelk
