#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Key.h"

namespace zelk {

// An application as the router sees it.
struct RoutedApp {
    std::string bundleID;
    std::string name;
    std::int32_t pid = 0;  // 0: not running
    bool running() const { return pid > 0; }
};

// What already-focused action a letter's app gets: raw values of the setting.
enum class FocusedAction { hide = 0, expose = 1, cycleWindows = 3, doNothing = 4, followGlobal = 5 };

struct RoutedAssignment {
    std::string key;
    RoutedApp app;
    bool isStatic = false;
    FocusedAction action = FocusedAction::followGlobal;
    bool launchIfNotRunning = true;
};

// The features a route can lead to beyond routing itself. A route whose feature isn't built takes no
// key and switches off no system shortcut: its keys pass through to the app in front, so nothing
// captures typing for a surface nobody can see. Each feature turns its flag on where it is wired in.
struct BuiltFeatures {
    bool search = false;    // the typed search with results: sticky and window search, row digits, pins
    bool panel = false;     // the application panel: Tab and the arrows step its rows
    bool tabCycle = false;  // the tab cycle, and with it the take-over of Cmd-Tab and Cmd-backtick
    // Moving the focused window to another Space: digits, 0 and the brackets under the window trigger.
    bool spaceMoves = false;
};

// The operations the router calls in other subsystems. Each has a default that does nothing and says
// so (answering false), so the router works before every subsystem is in place; the agent wires the
// real ones.
struct RoutingServices {
    BuiltFeatures built;

    // Applications and their letters.
    std::function<std::optional<RoutedAssignment>(const std::string& letter)> staticAssignment;
    std::function<std::optional<RoutedAssignment>(const std::string& letter)> dynamicAssignment;
    std::function<std::optional<RoutedApp>(const std::string& letter)> nearestRunningApp;
    std::function<bool(const std::string& letter)> letterIsAmbiguating;  // begins more than one learned query
    std::function<std::optional<RoutedApp>(const std::string& query)> learnedAppFor;
    std::function<bool(const std::string& letter)> letterReachesLaunchable;
    std::function<bool(const std::string& bundleID)>
        launchApp;  // a static assignment's app that isn't running
    std::function<int(const std::string& bundleID)> windowCount;
    std::function<bool(const RoutedApp&, const std::string& key)> assignLetter;  // the assign trigger

    // Focus and windows.
    std::function<bool(const RoutedApp&, bool hideOthers)> focusApp;
    std::function<bool(const RoutedApp&)> cycleToNextWindow;
    std::function<bool()> focusLastFocusedWindow;
    std::function<bool()> focusPreviousWindowInCurrentApp;
    // The most-recent change held back while a trigger was down lands (trigger release).
    std::function<void()> applyPendingMRU;
    std::function<bool(bool onlyFocused)> minimizeFocusedApp;  // window trigger + minimize key
    std::function<bool()> minimizeOthersOfFocusedApp;
    std::function<bool(const std::string& key)> focusWindowByKey;  // window trigger + a window key
    std::function<void()> showWindowAssignPanel;                   // window trigger + the assign key

    // Spaces.
    std::function<bool(int index)> switchToSpace;  // 1-based
    std::function<bool(int delta)> switchAdjacentSpace;
    std::function<bool(int index)> moveFocusedWindowToSpace;
    std::function<bool()> moveFocusedWindowToPreviousSpace;
    std::function<bool(int delta)> moveFocusedWindowAdjacent;
    std::function<bool(int index)> moveActiveStageToSpace;  // the stage trigger + a digit

    // Panels, cycle, search, overview, stages.
    std::function<void(const std::string& query)> runSearch;
    // Acts on the highlighted search row at trigger up; false when there was nothing to act on.
    std::function<bool()> commitSearchSelection;
    std::function<void(bool reverse)> stepPanel;
    // The app cycle's pick ("app-" or "win-" row id) brought forward at the release.
    std::function<bool(const std::string& rowID)> activateAppCycleSelection;
    // The search's highlighted row: moved (wrapping; false without rows), acted on by its 1-based
    // number (false when there is no such row), or made the pin of the query (false when it is no app).
    std::function<bool(int delta)> stepSearchSelection;
    std::function<bool(std::size_t row)> commitSearchRow;
    std::function<bool(const std::string& query)> pinSearchSelection;
    // The highlighted running app's windows join the rows under it, the highlight on the first: true
    // when they did, false when the highlighted row is no running app with windows, nothing when the
    // search has no rows.
    std::function<std::optional<bool>()> expandSearchSelection;
    std::function<bool(const std::string& key)> runSelectionAction;
    // Option-Return on a latched panel's row: opens that app's menu-bar extra; false when none opened.
    std::function<bool()> pressMenuExtraOfSelection;
    std::function<bool()> toggleOverview;
    std::function<void(const std::string& surface)> latchSearch;
    std::function<bool(const std::string& key)> activateStage;
    std::function<bool()> saveStage;
    std::function<bool()> closeActiveStage;
    std::function<bool()> repositionActiveStage;
    std::function<bool()> specialHotkey;  // the action key opens the menu

    // The running tab cycle: a key it takes (true when taken), Left and Right widening `auto` to all
    // windows, the end of the cycle, its filter text, and the refresh of the listed windows.
    std::function<bool(Key key)> handleTabCycleKey;
    // The tab cycle over the focused app's windows that a slow repeat of its letter opens: no closed
    // rows and no filter, and the letter steps it on.
    std::function<void(const std::string& letter)> startAppWindowCycle;
    std::function<bool()> tabCycleCanWiden;
    std::function<void(bool expanded)> setAllWindowsExpanded;
    std::function<void(bool commit, bool cancel)> endTabCycle;
    std::function<std::string()> tabCycleFilter;
    std::function<void()> refreshOSDWindowList;
    // The application panel has been on screen long enough for Tab to walk it rather than start a cycle.
    std::function<bool()> appSwitcherShowsLongEnough;

    // Fills every empty entry with its "did nothing" default.
    void fillDefaults();
};

}  // namespace zelk
