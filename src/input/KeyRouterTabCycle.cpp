// The tab cycle's rules in the key chain: widening with the sideways arrows, the keys of a cycle
// started by the command-key take-over, a latched cycle's keys, and the cycle's own keys under the
// application trigger.
#include <algorithm>

#include "input/KeyRouter.h"

namespace zelk {

using platform::TapDecision;

namespace {
bool isDigitKey(Key k) {
    return k >= Key::zero && k <= Key::nine;
}
bool isLetterKey(Key k) {
    return k <= Key::z;
}
bool holdsShift(const TriggerList& keys) {
    return contains(keys, TriggerKey::lshift) || contains(keys, TriggerKey::rshift);
}
}  // namespace

// Steps the running cycle in its own scope (a scope other than the running one would restart it).
void KeyRouter::stepTabCycle(bool reverse, bool repeat) {
    if (!input_.handleTabCycleHook) return;
    input_.currentKeyIsRepeat = repeat;
    input_.handleTabCycleHook(reverse, input_.tabCycleScopeOverride);
}

// Left and Right widen a cycle in the `auto` scope to all windows and narrow it back, while nothing
// is typed into its filter.
KeyRouter::Verdict KeyRouter::sidewaysArrowsWidenTheTabCycle(KeyPress& k) {
    if (k.key != Key::leftArrow && k.key != Key::rightArrow) return std::nullopt;
    if (!services_.built.tabCycle || !input_.tabCycling || input_.tabCycleScopeOverride ||
        !services_.tabCycleCanWiden() || !services_.tabCycleFilter().empty())
        return std::nullopt;
    markUsed();
    services_.setAllWindowsExpanded(k.key == Key::rightArrow);
    return TapDecision::swallow;
}

// With Cmd-Tab or Cmd-backtick taken over, the cycle's keys (Escape, Delete, digits, the filter)
// go to it while the command key stays down; the other Command key adds the refresh.
KeyRouter::Verdict KeyRouter::theTakeOverCycleTakesItsKeys(KeyPress& k) {
    if (!services_.built.tabCycle || !input_.hijackCommandHeld || !input_.tabCycling || k.anyTrigger())
        return std::nullopt;
    const TriggerList base = input_.hijackCommandBase;
    const TriggerList held = withoutShifts(k.keys);
    std::optional<TriggerKey> actionModifier;
    if (sameSet(base, {TriggerKey::lcmd})) actionModifier = TriggerKey::rightCommand;
    if (sameSet(base, {TriggerKey::rightCommand})) actionModifier = TriggerKey::lcmd;
    if (actionModifier && sameSet(held, plus(base, *actionModifier))) {
        if (k.key != Key::r) return std::nullopt;
        if (!k.repeat) services_.refreshOSDWindowList();
        return TapDecision::swallow;
    }
    if (!sameSet(held, base)) return std::nullopt;
    if (services_.handleTabCycleKey(k.key)) return TapDecision::swallow;
    return std::nullopt;
}

// A latched cycle takes its keys with no modifier held: Tab (back with Shift), Down and Up step;
// Return commits; Escape cancels; digits commit their row; Delete edits the filter and, with nothing
// left to delete, ends the latch; letters filter.
KeyRouter::Verdict KeyRouter::latchedTabCycleTakesItsKeys(KeyPress& k) {
    if (input_.latchedSurface != "tabCycle" || !input_.tabCycling) return std::nullopt;
    switch (k.key) {
        case Key::tab:
            stepTabCycle(holdsShift(k.keys), k.repeat);
            return TapDecision::swallow;
        case Key::downArrow:
        case Key::upArrow:
            stepTabCycle(k.key == Key::upArrow, k.repeat);
            return TapDecision::swallow;
        case Key::return_:
            services_.endTabCycle(true, false);
            input_.unlatch();
            return TapDecision::swallow;
        case Key::escape:
            // Escape cancels: the window the cycle began on comes back, then the latch ends.
            if (!services_.tabCycleFilter().empty()) {
                services_.handleTabCycleKey(k.key);
                return TapDecision::swallow;
            }
            services_.endTabCycle(true, true);
            input_.unlatch();
            return TapDecision::swallow;
        case Key::delete_:
            if (services_.tabCycleFilter().empty())
                input_.unlatch();
            else
                services_.handleTabCycleKey(k.key);
            return TapDecision::swallow;
        default:
            break;
    }
    if (!isDigitKey(k.key) && !isLetterKey(k.key)) return std::nullopt;
    if (k.repeat && isDigitKey(k.key)) return TapDecision::swallow;
    services_.handleTabCycleKey(k.key);
    // A digit commits and ends the cycle: the latch goes with it.
    if (!input_.tabCycling && input_.latchedSurface == "tabCycle") input_.unlatch();
    return TapDecision::swallow;
}

// Under the application trigger a running cycle takes Escape, Delete, digits and letters.
KeyRouter::Verdict KeyRouter::tabCycleTakesItsKeys(KeyPress& k) {
    if (!services_.built.tabCycle || !input_.tabCycling) return std::nullopt;
    if (!services_.handleTabCycleKey(k.key)) return std::nullopt;
    markUsed();
    return TapDecision::swallow;
}

// The application trigger with a Shift and Tab walks a running cycle back.
KeyRouter::Verdict KeyRouter::shiftTabStepsTheCycleBack(KeyPress& k) {
    const auto& s = input_.settings();
    if (k.key != Key::tab || !services_.built.tabCycle || !input_.tabCycling || s.triggerKeys.empty() ||
        !k.appHeld)
        return std::nullopt;
    if (!sameSet(k.keys, plus(s.triggerKeys, TriggerKey::rshift)) &&
        !sameSet(k.keys, plus(s.triggerKeys, TriggerKey::lshift)))
        return std::nullopt;
    markUsed();
    stepTabCycle(true, k.repeat);
    return TapDecision::swallow;
}

}  // namespace zelk
