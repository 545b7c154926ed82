#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "input/HotkeyRouter.h"
#include "input/InputManager.h"
#include "input/RoutingServices.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk {

class AppDelegate;

// What one key does while a trigger is held: the ordered chain of tests (the first that matches claims
// the key), the three activation modes with their grace, the typed search's entry points, and the
// commit when the trigger comes up. Also the hotkey operations the chain calls. Main thread.
class KeyRouter final : public HotkeyRouter {
  public:
    KeyRouter(InputManager& input, RoutingServices services);
    ~KeyRouter() override;

    platform::TapDecision routeKeyDown(Key key, const platform::KeyEvent& event, const TriggerList& keys,
                                       bool isAutoRepeat) override;
    void commitOnTriggerUp() override;
    void cancelForOverlay() override;
    bool tabCycleBuilt() const override { return services_.built.tabCycle; }

    // Hotkey operations.
    void onPrimaryHotkey(Key key);
    void onSecondaryHotkey(Key key);
    void onSecondaryRightShiftHotkey(Key key);
    void onRightShiftHotkey(Key key);
    void onAssignHotkey(Key key);
    void onHideOnFocusHotkey(Key key);
    bool onSpecialHotkey();
    void saveStageHotkey();
    void activateLetter(const std::string& letter, bool hideOthers);

    // The typed search.
    void appendToSearch(Key key, bool repeat);
    void backspaceSearch(bool repeat);
    void leaveSearch();
    void enterWindowSearch();
    // Picking the app a query is pinned to: the query waits while the latched search lists apps to
    // choose from; ending the pick brings the query back.
    void beginPinPick(const std::string& query);
    void endPinPick();
    // A search's pick of the app that was in front at the trigger press gets that app's
    // already-focused action, as its letter would.
    void runAlreadyFocusedActionOf(const RoutedApp& app, const std::optional<RoutedAssignment>& a) {
        runAlreadyFocusedAction(app, a);
    }

    // State.
    ferrow::Observable<std::string> searchBuffer;
    ferrow::Observable<bool> searchWindowsOnly{false};
    bool forceSearchMode = false;
    std::optional<std::string> pinPickQuery;
    bool lastSearchEditWasBackspace = false;
    bool searchSelectionTouched = false;
    ferrow::WorkItem searchDebounceWork;
    ferrow::WorkItem adaptiveGraceTimer;
    bool adaptiveGraceActive = false;
    bool graceIsStaticLaunch = false;
    bool cycleWindowsRequestsTabCycleOSD = false;
    std::function<void()> pendingActivation;
    bool typedOverLearned = false;
    bool adaptiveBias = false;
    ferrow::WorkItem onKeyUpFocuser;

    // The hide key's state (kept on the delegate in spirit: the list hidden by the hide key).
    std::vector<RoutedApp> appsThatWereHidden;
    bool hidingAll = false;
    ferrow::WorkItem hideAllAppsDecaying;

    bool searchActive() const { return input_.searchActive; }
    // One letter typed that a learned query answers: the app panel keeps standing.
    bool isSingleLetterQuery() const;
    RoutingServices& services() { return services_; }
    std::size_t routedCount() const { return routed_; }

  private:
    using Decision = platform::TapDecision;

    // One key down as the chain sees it; rules may rewrite the key (forward Delete) and the held keys
    // (fn on arrows).
    struct KeyPress {
        Key key;
        TriggerList keys;
        std::string letter;  // the key's lower-case QWERTY character, empty for non-characters
        bool repeat = false;
        bool appHeld = false, windowHeld = false, stageHeld = false;
        bool anyTrigger() const { return appHeld || windowHeld || stageHeld; }
    };
    // A rule's answer: swallow or pass when it claims the key, nothing when the key isn't its own.
    using Verdict = std::optional<Decision>;
    using Step = Verdict (KeyRouter::*)(KeyPress&);

    // The chain, in order (the first rule that claims a key decides).
    Decision route(KeyPress& k);
    static const std::vector<Step>& leadingRules();
    static const std::vector<Step>& applicationTriggerRules();
    static const std::vector<Step>& otherTriggerRules();

    // Every key.
    Verdict overlayDecides(KeyPress& k);
    Verdict anotherKeyEndsTheGrace(KeyPress& k);
    Verdict forwardDeleteIsDelete(KeyPress& k);
    Verdict arrowsPassWhenNothingUsesThem(KeyPress& k);
    Verdict noteTabArrowsAndCapsLock(KeyPress& k);
    Verdict repeatsOnlyTypeOrMove(KeyPress& k);
    Verdict commandKeysRunTheTakeOver(KeyPress& k);
    Verdict refreshUnderTheActionCombo(KeyPress& k);
    Verdict pinUnderTheActionCombo(KeyPress& k);
    Verdict selectionActionUnderTheActionCombo(KeyPress& k);
    // Under exactly the application trigger, or while something is latched.
    Verdict escapeCancelsThePinPick(KeyPress& k);
    Verdict escapeEndsTheSearchOrWhatWaits(KeyPress& k);
    Verdict otherKeyDropsTheAppCyclePick(KeyPress& k);
    Verdict optionReturnOpensTheMenuBarExtra(KeyPress& k);
    Verdict returnCommitsTheLatchedSearch(KeyPress& k);
    Verdict deleteEditsTheSearch(KeyPress& k);
    Verdict tabAndArrowsStepThePanelOrCycle(KeyPress& k);
    Verdict windowCycleKeyCyclesTheAppsWindows(KeyPress& k);
    Verdict spaceTogglesTheStickySearch(KeyPress& k);
    Verdict assignedDigitGoesStraightToItsApp(KeyPress& k);
    Verdict digitPicksASearchRow(KeyPress& k);
    Verdict periodExpandsTheHighlightedApp(KeyPress& k);
    Verdict switchedOffSpecialKeysReachTheApp(KeyPress& k);
    Verdict letterBreaksOutOfTheSearch(KeyPress& k);
    Verdict letterExtendsTheSearch(KeyPress& k);
    Verdict latchedSurfaceTakesTheRest(KeyPress& k);
    Verdict overviewKeyShowsTheOverview(KeyPress& k);
    Verdict digitSwitchesSpace(KeyPress& k);
    Verdict bracketSwitchesToTheNextSpace(KeyPress& k);
    Verdict actionKeyOpensTheMenu(KeyPress& k);
    Verdict letterCommitsUnderItsMode(KeyPress& k);
    Verdict letterReachesItsApp(KeyPress& k);
    // The other triggers, and the application trigger with a Shift.
    Verdict hideKeyUnderTheHideOnFocusTrigger(KeyPress& k);
    Verdict applicationTriggerWithShift(KeyPress& k);
    Verdict stageTriggerKeys(KeyPress& k);
    Verdict windowTriggerMovesTheWindowAcrossSpaces(KeyPress& k);
    Verdict windowTriggerKeyReachesAWindow(KeyPress& k);
    Verdict windowTriggerWithRightShift(KeyPress& k);
    Verdict assignTriggerBindsTheLetter(KeyPress& k);
    Verdict hideOnFocusTriggerFocusesTheLetter(KeyPress& k);
    Decision nothingClaimedIt(KeyPress& k);
    // The tab cycle's keys.
    Verdict sidewaysArrowsWidenTheTabCycle(KeyPress& k);
    Verdict theTakeOverCycleTakesItsKeys(KeyPress& k);
    Verdict latchedTabCycleTakesItsKeys(KeyPress& k);
    Verdict tabCycleTakesItsKeys(KeyPress& k);
    Verdict shiftTabStepsTheCycleBack(KeyPress& k);
    void stepTabCycle(bool reverse, bool repeat);

    bool underActionCombo(const KeyPress& k) const;
    bool underWindowTrigger(const KeyPress& k) const;

    const platform::KeyEvent* currentEvent_ = nullptr;  // the key down being routed
    Decision directRoute(Key key, const RoutedAssignment& assignment, bool repeat);

    // The first press of the assign trigger on a letter bound elsewhere, waiting for its second.
    static constexpr ferrow::Nanos kAssigningAlreadyAssigned = 2 * ferrow::kNanosPerSecond;
    struct PendingAssign {
        std::string letter;
        std::string bundleID;
        ferrow::Nanos at = 0;
    };
    std::optional<PendingAssign> pendingAssign_;
    Decision letterCommit(Key key, const std::string& letter, bool repeat);
    void markUsed();
    void commitSingleLetterQuery();
    bool shouldDeferForAdaptive(Key key, const std::string& letter, const std::optional<RoutedAssignment>& a,
                                bool alreadyFocused) const;
    void cancelGrace(bool commit);
    void graceExpired();
    void armStaticLaunchGrace(const std::string& letter, bool hideOthers);
    void runPending();
    void dropPending() { pendingActivation = nullptr; }
    bool focusAssignedApp(const RoutedApp& app, bool hideOthers, const std::optional<RoutedAssignment>& a);
    void runAlreadyFocusedAction(const RoutedApp& app, const std::optional<RoutedAssignment>& a);
    // The assignment's own already-focused action, else the global setting.
    FocusedAction alreadyFocusedAction(const std::optional<RoutedAssignment>& a) const;
    void hideKeyAction();
    std::optional<RoutedAssignment> assignmentFor(const std::string& letter) const;
    bool isIgnored(Key key) const;
    bool appSwitchKeysHold(Key key) const;
    bool windowSwitchKeysHold(Key key) const;
    bool digitsAreAssigned() const;
    bool breakoutGap() const;
    ferrow::Nanos now() const { return ferrow::MainQueue::shared().now(); }

    InputManager& input_;
    RoutingServices services_;
    std::size_t routed_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk
