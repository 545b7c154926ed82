#pragma once
#include <set>
#include <string>
#include <vector>

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

    // The settings keys this snapshot reads.
    static const std::vector<std::string>& keys();
    // Reads the snapshot from the installed settings.
    static InputSettings load();
};

}  // namespace zelk
