// The chain a key down goes through while a trigger is held: an ordered list of named rules. The
// first rule that claims the key decides (swallow or pass); a rule that isn't about this key answers
// "not mine" and the next one looks.
#include <algorithm>

#include "input/KeyRouter.h"
#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk {

using ferrow::Log;
using platform::TapDecision;
using Mode = InputSettings::ActivationMode;
using SpaceMode = InputSettings::SpaceMode;

namespace {
bool isDigitKey(Key k) {
    return k >= Key::zero && k <= Key::nine;
}
int digitValue(Key k) {
    return static_cast<int>(k) - static_cast<int>(Key::zero);
}
bool isLetterKey(Key k) {
    return k <= Key::z;
}
bool isArrow(Key k) {
    return k == Key::leftArrow || k == Key::rightArrow || k == Key::upArrow || k == Key::downArrow;
}
constexpr auto kSwallow = TapDecision::swallow;
constexpr auto kPass = TapDecision::pass;
}  // namespace

// Every key, whatever is held.
const std::vector<KeyRouter::Step>& KeyRouter::leadingRules() {
    static const std::vector<Step> rules{
        &KeyRouter::overlayDecides,
        &KeyRouter::anotherKeyEndsTheGrace,
        &KeyRouter::forwardDeleteIsDelete,
        &KeyRouter::sidewaysArrowsWidenTheTabCycle,
        &KeyRouter::arrowsPassWhenNothingUsesThem,
        &KeyRouter::noteTabArrowsAndCapsLock,
        &KeyRouter::repeatsOnlyTypeOrMove,
        &KeyRouter::commandKeysRunTheTakeOver,
        &KeyRouter::theTakeOverCycleTakesItsKeys,
        &KeyRouter::refreshUnderTheActionCombo,
        &KeyRouter::pinUnderTheActionCombo,
        &KeyRouter::selectionActionUnderTheActionCombo,
    };
    return rules;
}

// Under exactly the application trigger, or while a surface is latched.
const std::vector<KeyRouter::Step>& KeyRouter::applicationTriggerRules() {
    static const std::vector<Step> rules{
        &KeyRouter::latchedTabCycleTakesItsKeys,
        &KeyRouter::escapeCancelsThePinPick,
        &KeyRouter::escapeEndsTheSearchOrWhatWaits,
        &KeyRouter::otherKeyDropsTheAppCyclePick,
        &KeyRouter::optionReturnOpensTheMenuBarExtra,
        &KeyRouter::returnCommitsTheLatchedSearch,
        &KeyRouter::deleteEditsTheSearch,
        &KeyRouter::tabAndArrowsStepThePanelOrCycle,
        &KeyRouter::windowCycleKeyCyclesTheAppsWindows,
        &KeyRouter::tabCycleTakesItsKeys,
        &KeyRouter::spaceTogglesTheStickySearch,
        &KeyRouter::assignedDigitGoesStraightToItsApp,
        &KeyRouter::digitPicksASearchRow,
        &KeyRouter::periodExpandsTheHighlightedApp,
        &KeyRouter::switchedOffSpecialKeysReachTheApp,
        &KeyRouter::letterBreaksOutOfTheSearch,
        &KeyRouter::letterExtendsTheSearch,
        &KeyRouter::latchedSurfaceTakesTheRest,
        &KeyRouter::overviewKeyShowsTheOverview,
        &KeyRouter::digitSwitchesSpace,
        &KeyRouter::bracketSwitchesToTheNextSpace,
        &KeyRouter::actionKeyOpensTheMenu,
        &KeyRouter::letterCommitsUnderItsMode,
        &KeyRouter::letterReachesItsApp,
    };
    return rules;
}

// The other triggers, and the application trigger with a Shift.
const std::vector<KeyRouter::Step>& KeyRouter::otherTriggerRules() {
    static const std::vector<Step> rules{
        &KeyRouter::hideKeyUnderTheHideOnFocusTrigger,
        &KeyRouter::shiftTabStepsTheCycleBack,
        &KeyRouter::applicationTriggerWithShift,
        &KeyRouter::stageTriggerKeys,
        &KeyRouter::windowTriggerMovesTheWindowAcrossSpaces,
        &KeyRouter::windowTriggerKeyReachesAWindow,
        &KeyRouter::windowTriggerWithRightShift,
        &KeyRouter::assignTriggerBindsTheLetter,
        &KeyRouter::hideOnFocusTriggerFocusesTheLetter,
    };
    return rules;
}

TapDecision KeyRouter::route(KeyPress& k) {
    auto run = [&](const std::vector<Step>& rules) -> std::optional<TapDecision> {
        for (Step rule : rules)
            if (auto decision = (this->*rule)(k)) return decision;
        return std::nullopt;
    };
    if (auto decision = run(leadingRules())) return *decision;
    bool underApplicationTrigger = k.appHeld && sameSet(k.keys, input_.settings().triggerKeys);
    if (input_.isLatched() || underApplicationTrigger)
        if (auto decision = run(applicationTriggerRules())) return *decision;
    if (auto decision = run(otherTriggerRules())) return *decision;
    return nothingClaimedIt(k);
}

// Leading rules --------------------------------------------------------------------------------------

KeyRouter::Verdict KeyRouter::overlayDecides(KeyPress&) {
    if (!input_.overlayVisible) return std::nullopt;
    if (input_.capsLockHeld) input_.capsLockUsedAsModifier = true;
    return kPass;
}

// The same letter again during an already-focused grace runs the action at once (and only once); a
// slow key after a static launch's letter launches first. Any other key ends the grace unrun. A held
// key's repeat is not another key: the grace runs on.
KeyRouter::Verdict KeyRouter::anotherKeyEndsTheGrace(KeyPress& k) {
    if (!adaptiveGraceActive || k.repeat) return std::nullopt;
    bool sameLetter =
        input_.graceTargetsAlreadyFocusedAction && input_.keyDownDispatchedRouteLetter == k.letter;
    bool slowKey = graceIsStaticLaunch && breakoutGap();
    cancelGrace(sameLetter || slowKey);
    if (!sameLetter) return std::nullopt;
    markUsed();
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::forwardDeleteIsDelete(KeyPress& k) {
    if (k.key == Key::forwardDelete && (input_.searchActive || input_.tabCycling)) k.key = Key::delete_;
    return std::nullopt;
}

// Left and Right belong to the app unless a tab cycle runs; Up and Down unless something latched,
// the hold already used a key, or the panel lists something to move through.
KeyRouter::Verdict KeyRouter::arrowsPassWhenNothingUsesThem(KeyPress& k) {
    if (!isArrow(k.key)) return std::nullopt;
    bool passable;
    if (input_.isLatched())
        passable = false;
    else if (input_.osdHidden)
        passable = true;
    else if (input_.appTriggerKeyUsedDuringHold || input_.tabCycling)
        passable = false;
    else
        passable = !forceSearchMode;
    bool sideways = k.key == Key::leftArrow || k.key == Key::rightArrow;
    if (sideways && !input_.tabCycling) return kPass;
    if (!sideways && passable) return kPass;
    // Arrow events carry fn: it isn't part of the chord unless a trigger uses it.
    if (!contains(input_.settings().triggerKeys, TriggerKey::fn)) k.keys = without(k.keys, TriggerKey::fn);
    return std::nullopt;
}

KeyRouter::Verdict KeyRouter::noteTabArrowsAndCapsLock(KeyPress& k) {
    if (k.key == Key::tab) input_.cycleLatchArmed = true;
    if (isArrow(k.key)) input_.cycleLatchArmed = false;
    input_.shiftReverseTapArmed = false;
    if (input_.capsLockHeld) input_.capsLockUsedAsModifier = true;
    if (k.anyTrigger() && input_.companionKeyUsedHook) input_.companionKeyUsedHook();
    return std::nullopt;
}

// While anything is active only Delete, Down, Up and letters repeat (in a tab cycle also Tab and
// the window cycle key); other repeats are swallowed.
KeyRouter::Verdict KeyRouter::repeatsOnlyTypeOrMove(KeyPress& k) {
    bool active = k.anyTrigger() || input_.tabCycling || input_.searchActive;
    if (!k.repeat || !active) return std::nullopt;
    bool allowed = k.key == Key::delete_ || k.key == Key::downArrow || k.key == Key::upArrow ||
                   isLetterKey(k.key) ||
                   (input_.tabCycling && (k.key == Key::tab || k.key == input_.settings().windowCycleKey));
    return allowed ? std::nullopt : Verdict(kSwallow);
}

// Command (and Shift) keys alone: Cmd-Tab and Cmd-backtick start the take-over; in it, Up and Down
// step the cycle.
KeyRouter::Verdict KeyRouter::commandKeysRunTheTakeOver(KeyPress& k) {
    if (k.anyTrigger() || k.keys.empty() || !std::all_of(k.keys.begin(), k.keys.end(), isCommandOrShift))
        return std::nullopt;
    if (currentEvent_ && input_.takeOverAtKeyDown(*currentEvent_, k.keys)) return kSwallow;
    if (input_.hijackCommandHeld && input_.tabCycling && (k.key == Key::upArrow || k.key == Key::downArrow)) {
        stepTabCycle(k.key == Key::upArrow, k.repeat);
        return kSwallow;
    }
    return std::nullopt;
}

// The action combo: the application trigger plus the selection action modifier, or left Command
// alone on a latched surface.
bool KeyRouter::underActionCombo(const KeyPress& k) const {
    bool latchCombo = input_.isLatched() && sameSet(k.keys, {TriggerKey::lcmd});
    return (k.appHeld || input_.isLatched()) &&
           (matchesActionCombo(k.keys, input_.settings().triggerKeys) || latchCombo);
}

KeyRouter::Verdict KeyRouter::refreshUnderTheActionCombo(KeyPress& k) {
    bool listShown = input_.tabCycling || (input_.searchActive && services_.built.search);
    if (k.key != Key::r || !listShown || !underActionCombo(k)) return std::nullopt;
    markUsed();
    if (!k.repeat) services_.refreshOSDWindowList();
    return kSwallow;
}

// P pins the query to the highlighted app (the pin itself belongs to learned queries).
KeyRouter::Verdict KeyRouter::pinUnderTheActionCombo(KeyPress& k) {
    if (k.key != Key::p || !services_.built.search || !input_.settings().enableSelectionActionHotkeys ||
        !input_.searchActive || searchWindowsOnly.get() || searchBuffer.get().empty() || !underActionCombo(k))
        return std::nullopt;
    markUsed();
    if (k.repeat) return kSwallow;
    // A highlighted app takes or gives up the pin at once; with anything else highlighted the user
    // picks the app. A one-letter query is a key's business, never a pin.
    const std::string query = searchBuffer.get();
    if (query.size() >= 2 && !services_.pinSearchSelection(query)) beginPinPick(query);
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::selectionActionUnderTheActionCombo(KeyPress& k) {
    if (!input_.settings().enableSelectionActionHotkeys || !underActionCombo(k)) return std::nullopt;
    // Closing, quitting, hiding and opening don't repeat.
    if (k.repeat && (k.key == Key::w || k.key == Key::q || k.key == Key::h || k.key == Key::o))
        return kSwallow;
    if (!services_.runSelectionAction(k.letter)) return std::nullopt;
    markUsed();
    return kSwallow;
}

// Application trigger rules -----------------------------------------------------------------------

// Escape in a pin pick goes back to the query being pinned.
KeyRouter::Verdict KeyRouter::escapeCancelsThePinPick(KeyPress& k) {
    if (k.key != Key::escape || !pinPickQuery || !input_.isLatched()) return std::nullopt;
    markUsed();
    endPinPick();
    return kSwallow;
}

// Escape leaves the search (or the latch), or drops an activation waiting for the release, so a
// letter followed by Escape focuses nothing.
KeyRouter::Verdict KeyRouter::escapeEndsTheSearchOrWhatWaits(KeyPress& k) {
    if (k.key != Key::escape || !(input_.searchActive || pendingActivation || adaptiveGraceActive))
        return std::nullopt;
    if (input_.isLatched()) {
        input_.unlatch();
    } else {
        cancelGrace(false);
        dropPending();
        leaveSearch();
    }
    markUsed();
    return kSwallow;
}

// Only Tab and the arrows walk the app cycle; any other key drops its pick and is routed as usual.
KeyRouter::Verdict KeyRouter::otherKeyDropsTheAppCyclePick(KeyPress& k) {
    if (input_.appSwitcherCycleSelectedID && k.key != Key::tab && k.key != Key::upArrow &&
        k.key != Key::downArrow)
        input_.appSwitcherCycleSelectedID.reset();
    return std::nullopt;
}

// Option-Return on a latched search or cycle opens the highlighted app's menu-bar extra; when there is
// none to open, Return goes on as a plain Return.
KeyRouter::Verdict KeyRouter::optionReturnOpensTheMenuBarExtra(KeyPress& k) {
    const auto& latched = input_.latchedSurface;
    const bool option = contains(k.keys, TriggerKey::lalt) || contains(k.keys, TriggerKey::ralt);
    if (k.key != Key::return_ || !option || !latched || pinPickQuery) return std::nullopt;
    if (!services_.pressMenuExtraOfSelection()) return std::nullopt;
    markUsed();
    return kSwallow;
}

// Return commits a latched search's highlighted row and ends the latch.
KeyRouter::Verdict KeyRouter::returnCommitsTheLatchedSearch(KeyPress& k) {
    if (k.key != Key::return_ || !services_.built.search || !input_.searchActive ||
        (input_.latchedSurface != "app" && input_.latchedSurface != "window"))
        return std::nullopt;
    markUsed();
    services_.commitSearchSelection();
    input_.unlatch();
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::deleteEditsTheSearch(KeyPress& k) {
    if (!input_.searchActive || k.key != Key::delete_) return std::nullopt;
    markUsed();
    // Nothing left to delete in a latched search: end the pin pick, or else the latch.
    if (input_.isLatched() && searchBuffer.get().empty()) {
        if (pinPickQuery)
            endPinPick();
        else
            input_.unlatch();
        return kSwallow;
    }
    backspaceSearch(k.repeat);
    return kSwallow;
}

// Tab starts or steps the tab cycle when the panel is off (or a cycle runs); otherwise Tab, Down and
// Up step the panel or the search's rows. Either target must be built to take the key.
KeyRouter::Verdict KeyRouter::tabAndArrowsStepThePanelOrCycle(KeyPress& k) {
    if (k.key != Key::tab && k.key != Key::downArrow && k.key != Key::upArrow) return std::nullopt;
    const auto& built = services_.built;
    // During a search the highlight moves through its rows, unless the panel shows a one-letter
    // query's apps instead.
    if (built.search && input_.searchActive && !input_.appSwitcherCycleSelectedID && !isSingleLetterQuery()) {
        markUsed();
        if (services_.stepSearchSelection(k.key == Key::upArrow ? -1 : 1)) searchSelectionTouched = true;
        return kSwallow;
    }
    bool toTabCycle = !input_.searchActive && k.key == Key::tab && !input_.appSwitcherCycleSelectedID &&
                      (input_.tabCycling || !input_.settings().showAppSwitcher ||
                       (input_.settings().enableTabCycle && !services_.appSwitcherShowsLongEnough()));
    if (toTabCycle && built.tabCycle && input_.handleTabCycleHook) {
        markUsed();
        input_.handleTabCycleHook(false, std::nullopt);
        return kSwallow;
    }
    // Down and Up walk a running cycle, whatever scope it runs in.
    if (k.key != Key::tab && input_.tabCycling && built.tabCycle) {
        markUsed();
        stepTabCycle(k.key == Key::upArrow, k.repeat);
        return kSwallow;
    }
    if (!toTabCycle && (built.panel || (input_.searchActive && built.search))) {
        markUsed();
        services_.stepPanel(k.key == Key::upArrow);
        return kSwallow;
    }
    return std::nullopt;
}

KeyRouter::Verdict KeyRouter::windowCycleKeyCyclesTheAppsWindows(KeyPress& k) {
    const auto& s = input_.settings();
    if (k.key != s.windowCycleKey || !services_.built.tabCycle || !s.enableWindowCycleKey ||
        input_.searchActive || isIgnored(k.key))
        return std::nullopt;
    markUsed();
    if (input_.handleTabCycleHook) input_.handleTabCycleHook(false, std::string("sameApp"));
    return kSwallow;
}

// Space latches the search with what was typed, or takes a latched one away; a Space that took the
// search away keeps the release from bringing it back.
KeyRouter::Verdict KeyRouter::spaceTogglesTheStickySearch(KeyPress& k) {
    if (k.key != Key::space || !services_.built.search || !input_.settings().enableStickySpaceSearch ||
        !k.appHeld || input_.tabCycling || input_.appSwitcherCycleSelectedID)
        return std::nullopt;
    if (input_.latchedSurface == "app" || input_.latchedSurface == "window") {
        input_.unlatch();
        input_.stickyToggleHidden = true;
        input_.appTriggerKeyUsedDuringHold = false;
        return kSwallow;
    }
    if (input_.isLatched() || forceSearchMode) return std::nullopt;
    if (input_.stickySearchSupersededByHold && !input_.appTriggerKeyUsedDuringHold) {
        input_.stickySearchSupersededByHold = false;
        input_.stickyToggleHidden = true;
        input_.appTriggerKeyUsedDuringHold = false;
        leaveSearch();
        input_.hideOSD();
        return kSwallow;
    }
    // The search latches with what was typed: it stays open, every letter goes to it, and Escape (or
    // a commit) ends it.
    input_.stickyToggleHidden = false;
    input_.latchedSurface = "app";
    input_.searchActive = true;
    forceSearchMode = true;
    searchWindowsOnly = false;
    pinPickQuery.reset();
    lastSearchEditWasBackspace = false;
    markUsed();
    input_.refreshTapSeesBareKeys();
    services_.latchSearch("app");
    return kSwallow;
}

// In single Space mode a digit with a static assignment goes straight to its app, even mid-search.
KeyRouter::Verdict KeyRouter::assignedDigitGoesStraightToItsApp(KeyPress& k) {
    if (input_.settings().spaceMode != SpaceMode::single || !isDigitKey(k.key)) return std::nullopt;
    auto assignment = services_.staticAssignment(k.letter);
    if (!assignment) return std::nullopt;
    return directRoute(k.key, *assignment, k.repeat);
}

// During a search, digits 1 to 9 pick rows (unless digits are app keys).
KeyRouter::Verdict KeyRouter::digitPicksASearchRow(KeyPress& k) {
    if (!services_.built.search || !input_.searchActive || !isDigitKey(k.key) || digitsAreAssigned() ||
        digitValue(k.key) < 1)
        return std::nullopt;
    markUsed();
    if (!k.repeat && services_.commitSearchRow(static_cast<std::size_t>(digitValue(k.key)))) {
        dropPending();
        if (input_.isLatched())
            input_.unlatch();
        else
            leaveSearch();
        input_.hideOSD();
    }
    return kSwallow;
}

// Period opens the highlighted running app into its windows, listed under it.
KeyRouter::Verdict KeyRouter::periodExpandsTheHighlightedApp(KeyPress& k) {
    if (k.key != Key::period || k.repeat || !services_.built.search || !input_.searchActive ||
        searchWindowsOnly.get())
        return std::nullopt;
    const auto expanded = services_.expandSearchSelection();
    if (!expanded) return std::nullopt;
    markUsed();
    if (*expanded) searchSelectionTouched = true;
    return kSwallow;
}

// The hide and action keys with their switch off, and the overview key with both its switches off,
// reach the app.
KeyRouter::Verdict KeyRouter::switchedOffSpecialKeysReachTheApp(KeyPress& k) {
    const auto& s = input_.settings();
    bool exposeOff = !s.enableHideAndActionKeys && !s.exposeOverlay;
    bool hideOrAction = !s.enableHideAndActionKeys && (k.key == s.hideKey || k.key == s.actionKey);
    if (!hideOrAction && !(exposeOff && k.key == s.exposeKey)) return std::nullopt;
    markUsed();
    input_.hideOSD();
    return kPass;
}

// A slow letter after a one-letter query goes straight to its app; so does the same letter pressed
// again with no panel up (a second press on its app, unless its binding only focuses).
KeyRouter::Verdict KeyRouter::letterBreaksOutOfTheSearch(KeyPress& k) {
    if (!input_.searchActive || forceSearchMode || !isLetterKey(k.key) || k.repeat) return std::nullopt;
    const auto& s = input_.settings();
    bool oneLetter = searchBuffer.get().size() == 1 && !lastSearchEditWasBackspace;
    bool breakout = oneLetter && breakoutGap();
    bool unrouted = !services_.staticAssignment(k.letter) &&
                    !(s.showAppSwitcher && services_.dynamicAssignment(k.letter));
    bool samePress = input_.osdHidden && searchBuffer.get() == k.letter && !lastSearchEditWasBackspace;
    auto assignment = assignmentFor(k.letter);
    if (!assignment) return std::nullopt;
    bool focusOnly = alreadyFocusedAction(assignment) == FocusedAction::doNothing;
    if ((breakout && !unrouted) || (samePress && !focusOnly))
        return directRoute(k.key, *assignment, k.repeat);
    return std::nullopt;
}

// A letter extends an active search; a held letter doesn't repeat the one-letter query it began.
KeyRouter::Verdict KeyRouter::letterExtendsTheSearch(KeyPress& k) {
    bool heldFirstLetter = k.repeat && !forceSearchMode && searchBuffer.get() == k.letter;
    if (!input_.searchActive || !appSwitchKeysHold(k.key) || heldFirstLetter) return std::nullopt;
    markUsed();
    appendToSearch(k.key, k.repeat);
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::latchedSurfaceTakesTheRest(KeyPress&) {
    return input_.isLatched() ? Verdict(kSwallow) : std::nullopt;
}

// The overview key toggles the overview when it is on and there; otherwise it opens the system's App
// Exposé.
KeyRouter::Verdict KeyRouter::overviewKeyShowsTheOverview(KeyPress& k) {
    const auto& s = input_.settings();
    if (k.key != s.exposeKey || !(s.exposeOverlay || s.enableHideAndActionKeys) || isIgnored(k.key))
        return std::nullopt;
    markUsed();
    input_.hideOSD();
    if (s.exposeOverlay && services_.toggleOverview()) return kSwallow;
    if (auto* ws = platform::Platform::current().windowServer)
        ws->coreDockSendNotification("com.apple.expose.front.awake");
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::digitSwitchesSpace(KeyPress& k) {
    if (input_.settings().spaceMode != SpaceMode::multi || !isDigitKey(k.key) || digitValue(k.key) < 1)
        return std::nullopt;
    markUsed();
    input_.hideOSD();
    services_.switchToSpace(digitValue(k.key));
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::bracketSwitchesToTheNextSpace(KeyPress& k) {
    const auto& s = input_.settings();
    if (s.spaceMode != SpaceMode::multi || !s.enableAdjacentSpaceSwitching ||
        (k.key != s.prevSpaceKey && k.key != s.nextSpaceKey) || isIgnored(k.key))
        return std::nullopt;
    markUsed();
    input_.hideOSD();
    services_.switchAdjacentSpace(k.key == s.prevSpaceKey ? -1 : 1);
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::actionKeyOpensTheMenu(KeyPress& k) {
    const auto& s = input_.settings();
    if (k.key != s.actionKey || !s.enableHideAndActionKeys || isIgnored(k.key)) return std::nullopt;
    if (!onSpecialHotkey()) return kPass;
    markUsed();
    input_.hideOSD();
    return kSwallow;
}

// Search versus focus: a static letter, the hide key, 0, or a dynamic letter that nothing else could
// mean commits under the activation mode; in a forced search every letter types.
KeyRouter::Verdict KeyRouter::letterCommitsUnderItsMode(KeyPress& k) {
    const auto& s = input_.settings();
    auto staticA = services_.staticAssignment(k.letter);
    auto dynamicA = services_.dynamicAssignment(k.letter);
    bool letterSearches =
        services_.letterReachesLaunchable(k.letter) || services_.letterIsAmbiguating(k.letter);
    bool deferFirstLetter = !s.showAppSwitcher && !staticA && dynamicA && !letterSearches;
    bool learnedRuns = false;
    if (!staticA && dynamicA) {
        auto learned = services_.learnedAppFor(k.letter);
        learnedRuns = learned && learned->running();
    }
    typedOverLearned = s.activationMode != Mode::onRelease && learnedRuns && !letterSearches;
    adaptiveBias = s.activationMode == Mode::adaptive && !s.showAppSwitcher && learnedRuns;
    if (forceSearchMode) {
        if (!appSwitchKeysHold(k.key)) return std::nullopt;
        markUsed();
        appendToSearch(k.key, k.repeat);
        return kSwallow;
    }
    bool hideKey = k.key == s.hideKey && s.enableHideAndActionKeys;
    if (hideKey || k.key == Key::zero || staticA || deferFirstLetter)
        return letterCommit(k.key, k.letter, k.repeat);
    return std::nullopt;
}

// A letter that reaches a running app (by a dynamic binding or by name) activates it; a letter with
// nothing to activate is no hotkey and reaches the app in front.
KeyRouter::Verdict KeyRouter::letterReachesItsApp(KeyPress& k) {
    if (!appSwitchKeysHold(k.key)) return std::nullopt;
    if (!services_.dynamicAssignment(k.letter) && !services_.nearestRunningApp(k.letter)) return std::nullopt;
    markUsed();
    if (!k.repeat) onPrimaryHotkey(k.key);  // holding the letter is one press
    return kSwallow;
}

// Other trigger rules ---------------------------------------------------------------------------------

// The hide key under the hide-on-focus trigger hides every app. It comes before the application
// trigger's Shift variant, whose keys the default hide-on-focus set equals, and it isn't one of the
// letter keys the hide-on-focus rule checks.
KeyRouter::Verdict KeyRouter::hideKeyUnderTheHideOnFocusTrigger(KeyPress& k) {
    const auto& s = input_.settings();
    if (!input_.hideOnFocusTriggerEnabled() || !sameSet(k.keys, s.hideOnFocusTriggerKeys) ||
        k.key != s.hideKey)
        return std::nullopt;
    markUsed();
    if (!k.repeat) onHideOnFocusHotkey(k.key);
    return kSwallow;
}

// The application trigger with right Shift: the hide key hides the others, Tab steps the panel back;
// with either Shift the window cycle key cycles back (and with left Shift, Tab steps back too).
KeyRouter::Verdict KeyRouter::applicationTriggerWithShift(KeyPress& k) {
    const auto& s = input_.settings();
    if (s.triggerKeys.empty()) return std::nullopt;
    bool right = sameSet(k.keys, plus(s.triggerKeys, TriggerKey::rshift));
    bool left = sameSet(k.keys, plus(s.triggerKeys, TriggerKey::lshift));
    if (!right && !left) return std::nullopt;
    if (right && k.key == s.hideKey && s.enableHideAndActionKeys) {
        markUsed();
        onRightShiftHotkey(k.key);
        return kSwallow;
    }
    if (right && k.key == Key::tab && services_.built.panel) {
        markUsed();
        services_.stepPanel(true);
        return kSwallow;
    }
    if (k.key == s.windowCycleKey && services_.built.tabCycle && s.enableWindowCycleKey &&
        !input_.searchActive && !isIgnored(k.key)) {
        markUsed();
        if (input_.handleTabCycleHook) input_.handleTabCycleHook(true, std::string("sameApp"));
        return kSwallow;
    }
    if (left && k.key == Key::tab && services_.built.panel) {
        markUsed();
        services_.stepPanel(true);
        return kSwallow;
    }
    return std::nullopt;
}

// The stage trigger: the save, close and reposition keys, and a stage's letter; any other key
// reaches the app.
KeyRouter::Verdict KeyRouter::stageTriggerKeys(KeyPress& k) {
    const auto& s = input_.settings();
    if (!k.stageHeld || !input_.stageTriggerEnabled() || !sameSet(k.keys, s.stageTriggerKeys))
        return std::nullopt;
    markUsed();
    if (isIgnored(k.key)) {
        input_.hideOSD();
        return kPass;
    }
    if (k.key == s.stageAssignKey) {
        saveStageHotkey();
        return kSwallow;
    }
    if (k.key == s.stageCloseKey) {
        services_.closeActiveStage();
        return kSwallow;
    }
    if (k.key == s.stageRepositionKey) {
        services_.repositionActiveStage();
        return kSwallow;
    }
    if (services_.built.spaceMoves && s.enableStageMoveToSpaceShortcut && s.spaceMode == SpaceMode::multi &&
        isDigitKey(k.key) && digitValue(k.key) >= 1) {
        services_.moveActiveStageToSpace(digitValue(k.key));
        return kSwallow;
    }
    if ((isLetterKey(k.key) || isDigitKey(k.key)) && services_.activateStage(k.letter)) return kSwallow;
    input_.hideOSD();
    return kPass;
}

bool KeyRouter::underWindowTrigger(const KeyPress& k) const {
    return k.windowHeld && sameSet(k.keys, input_.settings().windowTriggerKeys);
}

// With several Spaces, digits, 0 and the bracket keys under the window trigger move the focused
// window to that Space, the previous one or a neighbour.
KeyRouter::Verdict KeyRouter::windowTriggerMovesTheWindowAcrossSpaces(KeyPress& k) {
    const auto& s = input_.settings();
    if (!services_.built.spaceMoves || !underWindowTrigger(k) || !s.enableWindowMoveToSpaceShortcut ||
        s.spaceMode != SpaceMode::multi)
        return std::nullopt;
    if (isDigitKey(k.key) && digitValue(k.key) >= 1) {
        markUsed();
        services_.moveFocusedWindowToSpace(digitValue(k.key));
        return kSwallow;
    }
    if (k.key == Key::zero) {
        markUsed();
        Log::info("hotkey: {}+0 (multi-space) -> moveFocusedWindowToPreviousSpace",
                  describeTriggers(s.windowTriggerKeys));
        services_.moveFocusedWindowToPreviousSpace();
        return kSwallow;
    }
    if ((k.key == s.prevSpaceKey || k.key == s.nextSpaceKey) && !isIgnored(k.key)) {
        markUsed();
        services_.moveFocusedWindowAdjacent(k.key == s.prevSpaceKey ? -1 : 1);
        return kSwallow;
    }
    return std::nullopt;
}

// A window key (and the minimise and assign keys) under the window trigger.
KeyRouter::Verdict KeyRouter::windowTriggerKeyReachesAWindow(KeyPress& k) {
    const auto& s = input_.settings();
    if (!underWindowTrigger(k)) return std::nullopt;
    bool special =
        s.enableWindowMinimizeAndAssignKeys && (k.key == s.windowMinimizeKey || k.key == s.windowAssignKey);
    if (!windowSwitchKeysHold(k.key) && !special) return std::nullopt;
    markUsed();
    onSecondaryHotkey(k.key);
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::windowTriggerWithRightShift(KeyPress& k) {
    const auto& s = input_.settings();
    if (!k.windowHeld || !sameSet(k.keys, plus(s.windowTriggerKeys, TriggerKey::rshift))) return std::nullopt;
    bool special = s.enableWindowMinimizeAndAssignKeys && k.key == s.windowMinimizeKey;
    if (!windowSwitchKeysHold(k.key) && !special) return std::nullopt;
    markUsed();
    onSecondaryRightShiftHotkey(k.key);
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::assignTriggerBindsTheLetter(KeyPress& k) {
    const auto& s = input_.settings();
    if (!input_.assignTriggerEnabled() || !sameSet(k.keys, s.assignKeyTriggerKeys) || k.key == s.hideKey ||
        !appSwitchKeysHold(k.key))
        return std::nullopt;
    markUsed();
    if (!k.repeat) onAssignHotkey(k.key);  // holding the letter must not confirm a move
    return kSwallow;
}

KeyRouter::Verdict KeyRouter::hideOnFocusTriggerFocusesTheLetter(KeyPress& k) {
    if (!input_.hideOnFocusTriggerEnabled() || !sameSet(k.keys, input_.settings().hideOnFocusTriggerKeys) ||
        !appSwitchKeysHold(k.key))
        return std::nullopt;
    markUsed();
    if (!k.repeat) onHideOnFocusHotkey(k.key);
    return kSwallow;
}

// Nothing claimed the key: it reaches the app, and under the application or window trigger the hold
// counts as used and the panel closes.
TapDecision KeyRouter::nothingClaimedIt(KeyPress& k) {
    if (k.appHeld || k.windowHeld) {
        markUsed();
        input_.hideOSD();
    }
    return kPass;
}

}  // namespace zelk
