#include "input/RoutingServices.h"

#include "support/Log.h"

namespace zelk {

namespace {
template <typename R, typename... A>
void orDefault(std::function<R(A...)>& f, const char* name, R answer) {
    if (f) return;
    f = [name, answer](A...) {
        ferrow::Log::debug("routing: {} not available yet", name);
        return answer;
    };
}
template <typename... A>
void orNothing(std::function<void(A...)>& f, const char* name) {
    if (f) return;
    f = [name](A...) { ferrow::Log::debug("routing: {} not available yet", name); };
}
}  // namespace

void RoutingServices::fillDefaults() {
    orDefault(staticAssignment, "staticAssignment", std::optional<RoutedAssignment>{});
    orDefault(dynamicAssignment, "dynamicAssignment", std::optional<RoutedAssignment>{});
    orDefault(nearestRunningApp, "nearestRunningApp", std::optional<RoutedApp>{});
    orDefault(letterIsAmbiguating, "ambiguatingQueryLetters", false);
    orDefault(learnedAppFor, "learnedAppFor", std::optional<RoutedApp>{});
    orDefault(letterReachesLaunchable, "letterReachesLaunchable", false);
    orDefault(launchApp, "launch", false);
    orDefault(windowCount, "windowCount", 0);
    orDefault(assignLetter, "assign", false);
    orDefault(focusApp, "focusAssignedApp", false);
    orDefault(cycleToNextWindow, "cycleWindows", false);
    orDefault(focusLastFocusedWindow, "focusLastFocusedWindow", false);
    orDefault(focusPreviousWindowInCurrentApp, "focusPreviousWindowInCurrentApp", false);
    orNothing(applyPendingMRU, "pendingMRUDuringHold");
    orDefault(minimizeFocusedApp, "minimize", false);
    orDefault(minimizeOthersOfFocusedApp, "minimizeOthers", false);
    orDefault(focusWindowByKey, "window keys", false);
    orNothing(showWindowAssignPanel, "window assign panel");
    orDefault(switchToSpace, "switchToSpace", false);
    orDefault(switchAdjacentSpace, "adjacent Space", false);
    orDefault(moveFocusedWindowToSpace, "moveFocusedWindowToSpace", false);
    orDefault(moveFocusedWindowToPreviousSpace, "moveFocusedWindowToPreviousSpace", false);
    orDefault(moveFocusedWindowAdjacent, "moveFocusedWindowAdjacent", false);
    orDefault(moveActiveStageToSpace, "moveActiveStageToSpace", false);
    orNothing(runSearch, "search");
    orDefault(commitSearchSelection, "search commit", false);
    orNothing(stepPanel, "panel step");
    orDefault(activateAppCycleSelection, "app cycle activation", false);
    orDefault(stepSearchSelection, "search selection step", false);
    orDefault(commitSearchRow, "search row", false);
    orDefault(pinSearchSelection, "search pin", false);
    orDefault(expandSearchSelection, "search expand", std::optional<bool>{});
    orDefault(runSelectionAction, "selection actions", false);
    orDefault(pressMenuExtraOfSelection, "menu bar extra of the selection", false);
    orDefault(toggleOverview, "overview", false);
    orNothing(latchSearch, "latched search");
    orDefault(activateStage, "activateStage", false);
    orDefault(saveStage, "saveStage", false);
    orDefault(closeActiveStage, "closeActiveStage", false);
    orDefault(repositionActiveStage, "repositionActiveStage", false);
    orDefault(specialHotkey, "onSpecialHotkey", false);
    orDefault(handleTabCycleKey, "tab cycle keys", false);
    orDefault(tabCycleCanWiden, "tab cycle widening", false);
    orNothing(setAllWindowsExpanded, "tab cycle widening");
    orNothing(endTabCycle, "tab cycle end");
    orDefault(tabCycleFilter, "tab cycle filter", std::string());
    orNothing(refreshOSDWindowList, "refreshOSDWindowList");
    orDefault(appSwitcherShowsLongEnough, "appSwitcherShowsLongEnough", false);
}

}  // namespace zelk
