#include "config/WhenAlreadyFocusedAction.h"

#include <array>
#include <utility>

namespace zelk {
namespace {
constexpr std::array<std::pair<WhenAlreadyFocusedAction, std::string_view>, 5> kNames{{
    {WhenAlreadyFocusedAction::hide, "hide"},
    {WhenAlreadyFocusedAction::expose, "expose"},
    {WhenAlreadyFocusedAction::cycleWindows, "cycleWindows"},
    {WhenAlreadyFocusedAction::doNothing, "doNothing"},
    {WhenAlreadyFocusedAction::followGlobal, "followGlobal"},
}};
}  // namespace

std::optional<WhenAlreadyFocusedAction> whenAlreadyFocusedActionFromRaw(long long raw) {
    for (auto& [action, _] : kNames)
        if (rawValue(action) == raw) return action;
    return std::nullopt;
}

std::string_view whenAlreadyFocusedActionName(WhenAlreadyFocusedAction action) {
    for (auto& [a, name] : kNames)
        if (a == action) return name;
    return {};
}

std::optional<WhenAlreadyFocusedAction> whenAlreadyFocusedActionFromName(std::string_view name) {
    for (auto& [action, n] : kNames)
        if (n == name) return action;
    return std::nullopt;
}

WhenAlreadyFocusedAction resolvedAction(WhenAlreadyFocusedAction own, WhenAlreadyFocusedAction global) {
    if (own != WhenAlreadyFocusedAction::followGlobal) return own;
    // A global value of followGlobal can't be stored; should one slip through, hide is the default.
    return global == WhenAlreadyFocusedAction::followGlobal ? WhenAlreadyFocusedAction::hide : global;
}

}  // namespace zelk
