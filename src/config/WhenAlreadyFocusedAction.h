#pragma once
#include <optional>
#include <string_view>

namespace zelk {

// What an application's letter does when that application is already focused. Stored by its integer
// raw value; 2 belonged to a case that no longer exists and reads as no value at all.
enum class WhenAlreadyFocusedAction : int {
    hide = 0,
    expose = 1,
    cycleWindows = 3,
    doNothing = 4,
    // Only on a single assignment: defer to the global setting of the same name.
    followGlobal = 5,
};

constexpr int rawValue(WhenAlreadyFocusedAction action) {
    return static_cast<int>(action);
}
std::optional<WhenAlreadyFocusedAction> whenAlreadyFocusedActionFromRaw(long long raw);
std::string_view whenAlreadyFocusedActionName(WhenAlreadyFocusedAction action);
std::optional<WhenAlreadyFocusedAction> whenAlreadyFocusedActionFromName(std::string_view name);
// The action an assignment's own value leads to: `followGlobal` becomes the global one.
WhenAlreadyFocusedAction resolvedAction(WhenAlreadyFocusedAction own, WhenAlreadyFocusedAction global);

}  // namespace zelk
