#pragma once
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/TactoraOptions.h"

// What the companion keyboard is told to show: pure over the bindings and settings it is given.
namespace zelk::companions {

using TactoraPayload = std::map<std::string, std::string>;

// One key's app binding as the key assignments have it.
struct TactoraBinding {
    std::string bundleID;
    bool isStatic = false;
    bool running = false;
};

struct TactoraBindingInputs {
    // The app bindings of one key, the static one first; empty when none.
    std::function<std::vector<TactoraBinding>(const std::string& key)> bindingsOf;
    bool onlyRunningAndStatic = true;
    bool multiSpace = false;  // digits switch Spaces
    int spaceCount = 0;       // Spaces of the current display
    bool createMissingSpaces = true;
    // The app of the most recent window other than the focused one.
    std::optional<std::string> previousWindowBundleID;
    // The special keys, each with its feature's switch and its key's character.
    bool hideAndSettingsKeys = true;
    std::string minimizeKey = "-";
    std::string specialKey = "=";
    bool exposeOverlay = true;
    std::string exposeKey = ".";
    bool tabCycle = true;
    bool windowCycleKeyEnabled = true;
    std::string windowCycleKey = "`";
};

// Key to "a:{bundle}" or a symbol label, for letters, digits and the special keys.
TactoraPayload buildTactoraBindings(const TactoraBindingInputs& in);

// The bindings with the fixed layout keys of the show notification.
TactoraPayload tactoraShowPayload(TactoraPayload bindings, TactoraFillMode fill, bool darkAppearance);

}  // namespace zelk::companions
