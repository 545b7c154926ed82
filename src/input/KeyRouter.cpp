#include "input/KeyRouter.h"

#include <fmt/format.h>

#include <algorithm>

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
constexpr ferrow::Nanos kSearchDebounce = ferrow::ms(90);
constexpr std::int64_t kHideAllDecayMs = 400;
}  // namespace

KeyRouter::KeyRouter(InputManager& input, RoutingServices services)
    : input_(input), services_(std::move(services)) {
    services_.fillDefaults();
    input_.setRouter(this);
    input_.enterWindowSearchHook = [this] { enterWindowSearch(); };
    // Unlatching ends the latched search and hides its panel.
    input_.unlatchHook = [this] {
        leaveSearch();
        input_.hideOSD();
    };
}

KeyRouter::~KeyRouter() {
    adaptiveGraceTimer.cancel();
    searchDebounceWork.cancel();
    onKeyUpFocuser.cancel();
    hideAllAppsDecaying.cancel();
    if (input_.router() == this) input_.setRouter(nullptr);
    input_.enterWindowSearchHook = nullptr;
    input_.unlatchHook = nullptr;
}

// Small predicates -------------------------------------------------------------------------------

std::optional<RoutedAssignment> KeyRouter::assignmentFor(const std::string& letter) const {
    if (auto s = services_.staticAssignment(letter)) return s;
    return services_.dynamicAssignment(letter);
}

bool KeyRouter::isIgnored(Key key) const {
    return input_.settings().ignoredKeys.count(std::string(lowQWERTYCharacter(key))) > 0;
}

bool KeyRouter::appSwitchKeysHold(Key key) const {
    const auto& keys = input_.appSwitchKeys;
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

bool KeyRouter::windowSwitchKeysHold(Key key) const {
    const auto& keys = input_.windowSwitchKeys;
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

bool KeyRouter::digitsAreAssigned() const {
    if (input_.settings().spaceMode != SpaceMode::single) return false;
    for (char c = '0'; c <= '9'; ++c)
        if (services_.staticAssignment(std::string(1, c))) return true;
    return false;
}

bool KeyRouter::breakoutGap() const {
    return input_.lastKeypressDuringHoldEventTS &&
           input_.currentKeydownEventTS - *input_.lastKeypressDuringHoldEventTS >=
               input_.settings().staticBreakoutThresholdNanos();
}

// Straight to a bound key's app during a search; when the app wasn't the one in front at the trigger
// press, the key also starts a new query, so typing on searches from it.
KeyRouter::Decision KeyRouter::directRoute(Key key, const RoutedAssignment& assignment, bool repeat) {
    const bool breakout = breakoutGap();
    // The route acts now: what an earlier press of this hold stored is stale and must not run at
    // the trigger's release (it would find the app it just focused and hide it).
    cancelGrace(false);
    dropPending();
    markUsed();
    input_.lastKeypressDuringHoldEventTS = input_.currentKeydownEventTS;
    leaveSearch();
    const auto& front = input_.focusedBundleIDAtTriggerPress;
    const bool alreadyFocused = front && *front == assignment.app.bundleID;
    if (alreadyFocused && breakout) cycleWindowsRequestsTabCycleOSD = true;
    onPrimaryHotkey(key);
    if (!alreadyFocused) appendToSearch(key, repeat);
    return TapDecision::swallow;
}

bool KeyRouter::isSingleLetterQuery() const {
    return input_.searchActive && !forceSearchMode && !searchWindowsOnly.get() &&
           searchBuffer.get().size() == 1 && services_.learnedAppFor(searchBuffer.get()).has_value();
}

void KeyRouter::markUsed() {
    if (input_.appTriggerKeysPressed.get()) input_.appTriggerKeyUsedDuringHold = true;
    if (input_.windowTriggerKeysPressed.get()) input_.windowTriggerKeyUsedDuringHold = true;
    if (input_.stageTriggerKeysPressed.get()) input_.stageTriggerKeyUsedDuringHold = true;
}

// The chain --------------------------------------------------------------------------------------

TapDecision KeyRouter::routeKeyDown(Key key, const platform::KeyEvent& event, const TriggerList& keys,
                                    bool repeat) {
    ++routed_;
    input_.currentKeydownEventTS = event.timestamp ? static_cast<ferrow::Nanos>(event.timestamp) : now();
    Log::debug("tap keyDown: key={} triggers=[{}]", keyName(key), describeTriggers(keys));
    currentEvent_ = &event;
    auto decision = route(key, keys, repeat);
    currentEvent_ = nullptr;
    return decision;
}

TapDecision KeyRouter::route(Key key, const TriggerList& keysIn, bool repeat) {
    const auto& s = input_.settings();
    TriggerList keys = keysIn;
    const std::string letter(lowQWERTYCharacter(key));
    const bool appHeld = input_.appTriggerKeysPressed.get();
    const bool windowHeld = input_.windowTriggerKeysPressed.get();
    const bool stageHeld = input_.stageTriggerKeysPressed.get();
    const bool anyTrigger = appHeld || windowHeld || stageHeld;
    const auto& built = services_.built;

    // 3. The overlay decides while it is up.
    if (input_.overlayVisible) {
        if (input_.capsLockHeld) input_.capsLockUsedAsModifier = true;
        return TapDecision::pass;
    }
    // 4. A running grace: the same letter again (already-focused action) or a slow key commits it.
    // A held key's repeat is not a second key: the grace runs on.
    if (adaptiveGraceActive && !repeat) {
        bool sameLetter =
            input_.graceTargetsAlreadyFocusedAction && input_.keyDownDispatchedRouteLetter == letter;
        bool slowKey = graceIsStaticLaunch && breakoutGap();
        cancelGrace(sameLetter || slowKey);
        // The same letter fired the already-focused action: it must not run twice.
        if (sameLetter) {
            markUsed();
            return TapDecision::swallow;
        }
    }
    // 5.
    if (key == Key::forwardDelete && (input_.searchActive || input_.tabCycling)) key = Key::delete_;
    // 6. Arrows.
    bool arrow =
        key == Key::leftArrow || key == Key::rightArrow || key == Key::upArrow || key == Key::downArrow;
    if (arrow) {
        bool passable;
        if (input_.isLatched())
            passable = false;
        else if (input_.osdHidden)
            passable = true;
        else if (input_.appTriggerKeyUsedDuringHold || input_.tabCycling)
            passable = false;
        else
            passable = !forceSearchMode;
        if ((key == Key::leftArrow || key == Key::rightArrow) && !input_.tabCycling) return TapDecision::pass;
        if ((key == Key::upArrow || key == Key::downArrow) && passable) return TapDecision::pass;
        if (!contains(s.triggerKeys, TriggerKey::fn)) keys = without(keys, TriggerKey::fn);
    }
    // 7.
    if (key == Key::tab) input_.cycleLatchArmed = true;
    if (arrow) input_.cycleLatchArmed = false;
    input_.shiftReverseTapArmed = false;
    if (input_.capsLockHeld) input_.capsLockUsedAsModifier = true;
    // 9. Auto-repeat under an active state: only Delete, Down, Up and single letters go on.
    bool active = anyTrigger || input_.tabCycling || input_.searchActive;
    if (repeat && active) {
        bool allowed = key == Key::delete_ || key == Key::downArrow || key == Key::upArrow ||
                       isLetterKey(key) ||
                       (input_.tabCycling && (key == Key::tab || key == s.windowCycleKey));
        if (!allowed) return TapDecision::swallow;
    }
    // 11. Command or shift keys alone: the take-over's keys.
    if (!anyTrigger && !keys.empty() && std::all_of(keys.begin(), keys.end(), isCommandOrShift)) {
        if (currentEvent_ && input_.takeOverAtKeyDown(*currentEvent_, keys)) return TapDecision::swallow;
        if (input_.hijackCommandHeld && input_.tabCycling && (key == Key::upArrow || key == Key::downArrow)) {
            if (input_.handleTabCycleHook) input_.handleTabCycleHook(key == Key::upArrow, std::nullopt);
            return TapDecision::swallow;
        }
    }
    // 12.-14. Refresh, pin and the selection actions under the action combo.
    bool latchCombo = input_.isLatched() && sameSet(keys, {TriggerKey::lcmd});
    bool actionCombo = matchesActionCombo(keys, s.triggerKeys) || latchCombo;
    if (key == Key::r && (appHeld || input_.isLatched()) &&
        (input_.tabCycling || (input_.searchActive && built.search)) && actionCombo) {
        markUsed();
        return TapDecision::swallow;
    }
    // 13. P pins the query to the highlighted app (the pin itself belongs to learned queries).
    if (key == Key::p && built.search && s.enableSelectionActionHotkeys && input_.searchActive &&
        !searchWindowsOnly.get() && !searchBuffer.get().empty() && actionCombo &&
        (appHeld || input_.isLatched())) {
        markUsed();
        if (!repeat) services_.pinSearchSelection(searchBuffer.get());
        return TapDecision::swallow;
    }
    if (s.enableSelectionActionHotkeys && actionCombo && (appHeld || input_.isLatched())) {
        if (repeat && (key == Key::w || key == Key::q || key == Key::h || key == Key::o))
            return TapDecision::swallow;
        if (services_.runSelectionAction(letter)) {
            markUsed();
            return TapDecision::swallow;
        }
    }
    // 15. Unless latched, only the exact application trigger goes through the search and letter steps.
    bool exactApp = sameSet(keys, s.triggerKeys) && appHeld;
    if (input_.isLatched() || exactApp) {
        // 19. Escape leaves the search, or drops what waits for the trigger's release.
        if (key == Key::escape && (input_.searchActive || pendingActivation || adaptiveGraceActive)) {
            if (input_.isLatched()) {
                input_.unlatch();
            } else {
                cancelGrace(false);
                dropPending();
                leaveSearch();
            }
            markUsed();
            return TapDecision::swallow;
        }
        // Return commits a latched search's highlighted row and ends the latch.
        if (key == Key::return_ && built.search && input_.searchActive &&
            (input_.latchedSurface == "app" || input_.latchedSurface == "window")) {
            markUsed();
            services_.commitSearchSelection();
            input_.unlatch();
            return TapDecision::swallow;
        }
        // 22. Delete edits the search.
        if (input_.searchActive && key == Key::delete_) {
            markUsed();
            // Nothing left to delete in a latched search: end the pin pick, or else the latch.
            if (input_.isLatched() && searchBuffer.get().empty()) {
                if (pinPickQuery)
                    pinPickQuery.reset();
                else
                    input_.unlatch();
                return TapDecision::swallow;
            }
            backspaceSearch(repeat);
            return TapDecision::swallow;
        }
        // 23.-24. Tab, Down and Up step the panel.
        if (key == Key::tab || key == Key::downArrow || key == Key::upArrow) {
            bool back = key == Key::upArrow;
            // During a search the highlight moves through its rows, unless the panel shows a
            // one-letter query's apps instead.
            if (built.search && input_.searchActive && !input_.appSwitcherCycleSelectedID &&
                !isSingleLetterQuery()) {
                markUsed();
                if (services_.stepSearchSelection(back ? -1 : 1)) searchSelectionTouched = true;
                return TapDecision::swallow;
            }
            bool toTabCycle =
                !input_.searchActive && key == Key::tab && (input_.tabCycling || !s.showAppSwitcher);
            if (toTabCycle && built.tabCycle && input_.handleTabCycleHook) {
                markUsed();
                input_.handleTabCycleHook(false, std::nullopt);
                return TapDecision::swallow;
            }
            if (!toTabCycle && (built.panel || (input_.searchActive && built.search))) {
                markUsed();
                services_.stepPanel(back);
                return TapDecision::swallow;
            }
        }
        // 25. The window cycle key.
        if (key == s.windowCycleKey && built.tabCycle && s.enableWindowCycleKey && !input_.searchActive &&
            !isIgnored(key)) {
            markUsed();
            if (input_.handleTabCycleHook) input_.handleTabCycleHook(false, std::string("sameApp"));
            return TapDecision::swallow;
        }
        // 27. Sticky search on Space.
        if (key == Key::space && built.search && s.enableStickySpaceSearch && appHeld && !input_.tabCycling &&
            !input_.appSwitcherCycleSelectedID) {
            if (input_.latchedSurface == "app" || input_.latchedSurface == "window") {
                input_.unlatch();
                input_.stickyToggleHidden = true;
                input_.appTriggerKeyUsedDuringHold = false;
                return TapDecision::swallow;
            }
            if (!input_.isLatched() && !forceSearchMode) {
                if (input_.stickySearchSupersededByHold && !input_.appTriggerKeyUsedDuringHold) {
                    input_.stickySearchSupersededByHold = false;
                    input_.stickyToggleHidden = true;
                    input_.appTriggerKeyUsedDuringHold = false;
                    leaveSearch();
                    input_.hideOSD();
                } else {
                    // The search latches with what was typed: it stays open, every letter goes to it,
                    // and Escape (or a commit) ends it.
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
                }
                return TapDecision::swallow;
            }
        }
        // 28. A digit with a static assignment: straight to it, even during a search.
        if (s.spaceMode == SpaceMode::single && isDigitKey(key)) {
            if (auto assignment = services_.staticAssignment(letter))
                return directRoute(key, *assignment, repeat);
        }
        // 30. A digit during a search picks a row (the panel's rows).
        if (built.search && input_.searchActive && isDigitKey(key) && !digitsAreAssigned() &&
            digitValue(key) >= 1) {
            markUsed();
            if (!repeat && services_.commitSearchRow(static_cast<std::size_t>(digitValue(key)))) {
                dropPending();
                if (input_.isLatched())
                    input_.unlatch();
                else
                    leaveSearch();
                input_.hideOSD();
            }
            return TapDecision::swallow;
        }
        // 32. Hide, action and overview keys switched off reach the app.
        // The overview key has a switch of its own (the overlay): it passes only with both off.
        bool exposeOff = !s.enableHideAndActionKeys && !s.exposeOverlay;
        if ((!s.enableHideAndActionKeys && (key == s.hideKey || key == s.actionKey)) ||
            (exposeOff && key == s.exposeKey)) {
            markUsed();
            input_.hideOSD();
            return TapDecision::pass;
        }
        // 33. Search-to-focus breakout: a slow letter after a one-letter search goes straight to its app.
        if (input_.searchActive && !forceSearchMode && isLetterKey(key)) {
            bool oneLetter = searchBuffer.get().size() == 1 && !lastSearchEditWasBackspace;
            bool breakout = oneLetter && breakoutGap();
            bool unrouted = !services_.staticAssignment(letter) &&
                            !(s.showAppSwitcher && services_.dynamicAssignment(letter));
            // With no panel up, the same letter pressed again quickly is a second press on its app,
            // not a two-letter query.
            bool samePress = input_.osdHidden && searchBuffer.get() == letter && !lastSearchEditWasBackspace;
            auto assignment = assignmentFor(letter);
            // A binding whose second press only focuses again has nothing to add: the letter types on.
            bool focusOnly = assignment && alreadyFocusedAction(assignment) == FocusedAction::doNothing;
            // A held letter's repeat is neither slow typing nor a second press.
            if (!repeat && assignment && ((breakout && !unrouted) || (samePress && !focusOnly)))
                return directRoute(key, *assignment, repeat);
        }
        // 34. A letter extends an active search (a held letter doesn't repeat the one-letter query it began).
        bool heldFirstLetter = repeat && !forceSearchMode && searchBuffer.get() == letter;
        if (input_.searchActive && appSwitchKeysHold(key) && !heldFirstLetter) {
            markUsed();
            appendToSearch(key, repeat);
            return TapDecision::swallow;
        }
        // 35.
        if (input_.isLatched()) return TapDecision::swallow;
        // 36. The overview key.
        if (key == s.exposeKey && (s.exposeOverlay || s.enableHideAndActionKeys) && !isIgnored(key)) {
            markUsed();
            input_.hideOSD();
            if (s.exposeOverlay && services_.toggleOverview()) return TapDecision::swallow;
            if (auto* ws = platform::Platform::current().windowServer)
                ws->coreDockSendNotification("com.apple.expose.front.awake");
            return TapDecision::swallow;
        }
        // 37.-38. Digits and adjacent keys switch Spaces in multi mode.
        if (s.spaceMode == SpaceMode::multi && isDigitKey(key) && digitValue(key) >= 1) {
            markUsed();
            input_.hideOSD();
            services_.switchToSpace(digitValue(key));
            return TapDecision::swallow;
        }
        if (s.spaceMode == SpaceMode::multi && s.enableAdjacentSpaceSwitching &&
            (key == s.prevSpaceKey || key == s.nextSpaceKey) && !isIgnored(key)) {
            markUsed();
            input_.hideOSD();
            services_.switchAdjacentSpace(key == s.prevSpaceKey ? -1 : 1);
            return TapDecision::swallow;
        }
        // 39. The action key.
        if (key == s.actionKey && s.enableHideAndActionKeys && !isIgnored(key)) {
            if (onSpecialHotkey()) {
                markUsed();
                input_.hideOSD();
                return TapDecision::swallow;
            }
            return TapDecision::pass;
        }
        // 40.-41. Search versus focus.
        auto staticA = services_.staticAssignment(letter);
        auto dynamicA = services_.dynamicAssignment(letter);
        bool letterSearches =
            services_.letterReachesLaunchable(letter) || services_.letterIsAmbiguating(letter);
        bool deferFirstLetter = !s.showAppSwitcher && !staticA && dynamicA && !letterSearches;
        typedOverLearned = false;
        if (s.activationMode != Mode::onRelease && !staticA && dynamicA) {
            auto learned = services_.learnedAppFor(letter);
            if (learned && learned->running() && !letterSearches) typedOverLearned = true;
        }
        adaptiveBias = false;
        if (s.activationMode == Mode::adaptive && !s.showAppSwitcher && !staticA && dynamicA) {
            auto learned = services_.learnedAppFor(letter);
            adaptiveBias = learned && learned->running();
        }
        if (forceSearchMode) {
            if (appSwitchKeysHold(key)) {
                markUsed();
                appendToSearch(key, repeat);
                return TapDecision::swallow;
            }
        } else {
            bool hideKey = key == s.hideKey && s.enableHideAndActionKeys;
            if (hideKey || key == Key::zero || staticA || deferFirstLetter)
                return letterCommit(key, letter, repeat);
        }
        // 42. A letter that reaches an app.
        if (appSwitchKeysHold(key)) {
            // A letter with nothing to activate is no hotkey: it reaches the app (step 49).
            if (dynamicA || services_.nearestRunningApp(letter)) {
                markUsed();
                if (!repeat) onPrimaryHotkey(key);
                return TapDecision::swallow;
            }
        }
    }

    // The hide key under the hide-on-focus trigger hides every app. It comes before the application
    // trigger's Shift variant, whose keys the default hide-on-focus set equals, and it isn't one of the
    // letter keys the step below it checks.
    if (input_.hideOnFocusTriggerEnabled() && sameSet(keys, s.hideOnFocusTriggerKeys) && key == s.hideKey) {
        markUsed();
        if (!repeat) onHideOnFocusHotkey(key);
        return TapDecision::swallow;
    }
    // 43. The application trigger with one Shift.
    if (!s.triggerKeys.empty() && sameSet(keys, plus(s.triggerKeys, TriggerKey::rshift))) {
        if (key == s.hideKey && s.enableHideAndActionKeys) {
            markUsed();
            onRightShiftHotkey(key);
            return TapDecision::swallow;
        }
        if (key == Key::tab && built.panel) {
            markUsed();
            services_.stepPanel(true);
            return TapDecision::swallow;
        }
    }
    if (!s.triggerKeys.empty() && (sameSet(keys, plus(s.triggerKeys, TriggerKey::rshift)) ||
                                   sameSet(keys, plus(s.triggerKeys, TriggerKey::lshift)))) {
        if (key == s.windowCycleKey && built.tabCycle && s.enableWindowCycleKey && !input_.searchActive &&
            !isIgnored(key)) {
            markUsed();
            if (input_.handleTabCycleHook) input_.handleTabCycleHook(true, std::string("sameApp"));
            return TapDecision::swallow;
        }
        if (key == Key::tab && built.panel && sameSet(keys, plus(s.triggerKeys, TriggerKey::lshift))) {
            markUsed();
            services_.stepPanel(true);
            return TapDecision::swallow;
        }
    }
    // 44. The stage trigger.
    if (stageHeld && input_.stageTriggerEnabled() && sameSet(keys, s.stageTriggerKeys)) {
        markUsed();
        if (isIgnored(key)) {
            input_.hideOSD();
            return TapDecision::pass;
        }
        if (key == s.stageAssignKey) {
            saveStageHotkey();
            return TapDecision::swallow;
        }
        if (key == s.stageCloseKey) {
            services_.closeActiveStage();
            return TapDecision::swallow;
        }
        if (key == s.stageRepositionKey) {
            services_.repositionActiveStage();
            return TapDecision::swallow;
        }
        if (isLetterKey(key) || isDigitKey(key)) {
            if (services_.activateStage(letter)) return TapDecision::swallow;
        }
        input_.hideOSD();
        return TapDecision::pass;
    }
    // 45. The window trigger.
    if (windowHeld && sameSet(keys, s.windowTriggerKeys)) {
        if (s.enableWindowMoveToSpaceShortcut && s.spaceMode == SpaceMode::multi) {
            if (isDigitKey(key) && digitValue(key) >= 1) {
                markUsed();
                services_.moveFocusedWindowToSpace(digitValue(key));
                return TapDecision::swallow;
            }
            if (key == Key::zero) {
                markUsed();
                Log::info("hotkey: {}+0 (multi-space) -> moveFocusedWindowToPreviousSpace",
                          describeTriggers(s.windowTriggerKeys));
                services_.moveFocusedWindowToPreviousSpace();
                return TapDecision::swallow;
            }
        }
        if ((key == s.prevSpaceKey || key == s.nextSpaceKey) && !isIgnored(key) &&
            s.spaceMode == SpaceMode::multi && s.enableWindowMoveToSpaceShortcut) {
            markUsed();
            services_.moveFocusedWindowAdjacent(key == s.prevSpaceKey ? -1 : 1);
            return TapDecision::swallow;
        }
        bool special =
            s.enableWindowMinimizeAndAssignKeys && (key == s.windowMinimizeKey || key == s.windowAssignKey);
        if (windowSwitchKeysHold(key) || special) {
            markUsed();
            onSecondaryHotkey(key);
            return TapDecision::swallow;
        }
    }
    // 46.
    if (windowHeld && sameSet(keys, plus(s.windowTriggerKeys, TriggerKey::rshift))) {
        bool special = s.enableWindowMinimizeAndAssignKeys && key == s.windowMinimizeKey;
        if (windowSwitchKeysHold(key) || special) {
            markUsed();
            onSecondaryRightShiftHotkey(key);
            return TapDecision::swallow;
        }
    }
    // 47. Assign.
    if (input_.assignTriggerEnabled() && sameSet(keys, s.assignKeyTriggerKeys) && key != s.hideKey &&
        appSwitchKeysHold(key)) {
        markUsed();
        if (!repeat) onAssignHotkey(key);  // holding the letter must not confirm a move
        return TapDecision::swallow;
    }
    // 48. Hide on focus.
    if (input_.hideOnFocusTriggerEnabled() && sameSet(keys, s.hideOnFocusTriggerKeys) &&
        appSwitchKeysHold(key)) {
        markUsed();
        if (!repeat) onHideOnFocusHotkey(key);
        return TapDecision::swallow;
    }
    // 49. Nothing claimed it.
    if (appHeld || windowHeld) {
        markUsed();
        input_.hideOSD();
    }
    return TapDecision::pass;
}

// The letter commit ------------------------------------------------------------------------------

TapDecision KeyRouter::letterCommit(Key key, const std::string& letter, bool repeat) {
    const auto& s = input_.settings();
    // Holding the letter is one press: its repeats don't run the activation (or the already-focused
    // action) again.
    if (repeat) {
        markUsed();
        return TapDecision::swallow;
    }
    bool hideKey = key == s.hideKey;
    if (appSwitchKeysHold(key)) {
        markUsed();
        if ((hideKey || key == Key::zero) && !s.showAppSwitcher) input_.hideOSD();
    } else if (key == Key::zero) {
        Log::info("appTriggerKeys+0: key '0' not in appSwitchKeys (count={}, hideKey={}, forceSearchMode={})",
                  input_.appSwitchKeys.size(), keyName(s.hideKey), forceSearchMode);
        markUsed();
        if (!s.showAppSwitcher) input_.hideOSD();
    } else {
        markUsed();
    }
    auto assignment = assignmentFor(letter);
    bool alreadyFocused = assignment && assignment->app.running() && input_.focusedBundleIDAtTriggerPress &&
                          *input_.focusedBundleIDAtTriggerPress == assignment->app.bundleID;
    bool adaptiveDefers = shouldDeferForAdaptive(key, letter, assignment, alreadyFocused);
    if (!adaptiveDefers && !typedOverLearned) {
        onPrimaryHotkey(key);
    } else {
        input_.keyDownDispatchedRouteLetter = letter;
        adaptiveGraceActive = true;
        input_.graceTargetsAlreadyFocusedAction = alreadyFocused;
        graceIsStaticLaunch = false;
        bool hideOthers = s.alwaysHideOthers && s.enableHideOnFocusHotkey;
        pendingActivation = [this, letter, hideOthers] { activateLetter(letter, hideOthers); };
        adaptiveGraceTimer.cancel();
        std::weak_ptr<bool> alive = alive_;
        adaptiveGraceTimer =
            ferrow::MainQueue::shared().asyncAfter(ferrow::ms(s.adaptiveFollowupGraceMs), [this, alive] {
                if (alive.lock()) graceExpired();
            });
    }
    // The letter feeds the search behind the commit.
    if (assignment && appSwitchKeysHold(key)) appendToSearch(key, repeat);
    return TapDecision::swallow;
}

bool KeyRouter::shouldDeferForAdaptive(Key key, const std::string& letter,
                                       const std::optional<RoutedAssignment>& a, bool alreadyFocused) const {
    const auto& s = input_.settings();
    if (s.activationMode != Mode::adaptive) return false;
    if (key == s.hideKey || key == Key::zero || !a || !a->app.running()) return false;
    int n = services_.windowCount(a->app.bundleID);
    if (!alreadyFocused) return n >= 2 || services_.letterIsAmbiguating(letter);
    return n >= 2 && !input_.alreadyFocusedActionFiredThisHold;
}

void KeyRouter::cancelGrace(bool commit) {
    adaptiveGraceTimer.cancel();
    adaptiveGraceTimer = {};
    bool targeted = input_.graceTargetsAlreadyFocusedAction;
    adaptiveGraceActive = false;
    graceIsStaticLaunch = false;
    input_.graceTargetsAlreadyFocusedAction = false;
    if (commit && pendingActivation) {
        runPending();
        if (targeted) input_.alreadyFocusedActionFiredThisHold = true;
    }
}

void KeyRouter::graceExpired() {
    if (!adaptiveGraceActive || !pendingActivation) return;
    // A trigger that is up on the keyboard while the tap never saw it go (a lost key-up) ends the
    // hold: what it stored is dropped, not committed now nor at some later release.
    if (input_.physicalTriggerState(false, true) == PhysicalTrigger::released) {
        Log::info("graceExpired: trigger no longer physically held, pending activation dropped");
        cancelGrace(false);
        dropPending();
        return;
    }
    cancelGrace(true);
}

void KeyRouter::armStaticLaunchGrace(const std::string& letter, bool hideOthers) {
    input_.keyDownDispatchedRouteLetter = letter;
    adaptiveGraceActive = true;
    graceIsStaticLaunch = true;
    input_.graceTargetsAlreadyFocusedAction = false;
    pendingActivation = [this, letter, hideOthers] { activateLetter(letter, hideOthers); };
    adaptiveGraceTimer.cancel();
    std::weak_ptr<bool> alive = alive_;
    adaptiveGraceTimer = ferrow::MainQueue::shared().asyncAfter(
        input_.settings().staticBreakoutThresholdNanos(), [this, alive] {
            if (alive.lock()) graceExpired();
        });
}

void KeyRouter::runPending() {
    auto work = std::move(pendingActivation);
    pendingActivation = nullptr;
    if (work) work();
}

// The typed search -------------------------------------------------------------------------------

void KeyRouter::appendToSearch(Key key, bool repeat) {
    const auto& s = input_.settings();
    std::string ch(lowQWERTYCharacter(key));
    if (ch.empty()) return;
    bool rapid = input_.lastKeypressDuringHoldEventTS &&
                 input_.currentKeydownEventTS - *input_.lastKeypressDuringHoldEventTS <
                     s.staticBreakoutThresholdNanos();
    if (!forceSearchMode && !rapid && searchBuffer.get().size() == 1 && !searchSelectionTouched)
        searchBuffer = "";
    input_.lastKeypressDuringHoldEventTS = input_.currentKeydownEventTS;
    searchBuffer = searchBuffer.get() + ch;
    input_.searchActive = true;
    lastSearchEditWasBackspace = false;
    searchDebounceWork.cancel();
    if (repeat) {
        std::weak_ptr<bool> alive = alive_;
        searchDebounceWork = ferrow::MainQueue::shared().asyncAfter(kSearchDebounce, [this, alive] {
            if (alive.lock()) services_.runSearch(searchBuffer.get());
        });
    } else {
        services_.runSearch(searchBuffer.get());
    }
    bool fastPanelBlocked = !s.showAppSwitcher && !forceSearchMode && !searchWindowsOnly.get() &&
                            !lastSearchEditWasBackspace && searchBuffer.get().size() == 1;
    if (!fastPanelBlocked) input_.showOSD(!s.showAppSwitcher);
}

void KeyRouter::backspaceSearch(bool) {
    std::string buffer = searchBuffer.get();
    if (!buffer.empty()) buffer.pop_back();
    searchBuffer = buffer;
    lastSearchEditWasBackspace = true;
    if (buffer.empty() && !forceSearchMode && !input_.isLatched()) {
        dropPending();
        leaveSearch();
        return;
    }
    services_.runSearch(buffer);
}

void KeyRouter::leaveSearch() {
    searchDebounceWork.cancel();
    searchBuffer = "";
    pinPickQuery.reset();
    input_.searchActive = false;
    searchWindowsOnly = false;
    forceSearchMode = false;
    searchSelectionTouched = false;
}

void KeyRouter::enterWindowSearch() {
    // Without the search there is nothing to type into: the letters keep their own routes.
    if (!services_.built.search) return;
    input_.searchActive = true;
    forceSearchMode = true;
    searchWindowsOnly = true;
    input_.lastAppTriggerTapTime.reset();
    services_.runSearch("");
}

// Trigger up -------------------------------------------------------------------------------------

void KeyRouter::commitOnTriggerUp() {
    if (adaptiveGraceActive) cancelGrace(true);
    services_.applyPendingMRU();
    if (input_.appSwitcherCycleSelectedID) {
        input_.appSwitcherCycleSelectedID.reset();
        dropPending();
        leaveSearch();
        input_.hideOSD();
        input_.pickCommittedByMouseDuringHold = false;
    } else if (input_.searchActive && input_.pickCommittedByMouseDuringHold) {
        dropPending();
        leaveSearch();
        input_.hideOSD();
        input_.pickCommittedByMouseDuringHold = false;
        return;
    } else if (input_.searchActive) {
        // Typing on past the letter hands the decision to the search's highlighted row. While the
        // buffer still holds only the letter that stored an activation, that activation stands: a
        // search commit that had nothing to act on must not swallow it.
        bool typedOn = searchBuffer.get() != input_.keyDownDispatchedRouteLetter.value_or(searchBuffer.get());
        if (services_.commitSearchSelection() || typedOn) dropPending();
        leaveSearch();
    }
    runPending();
    input_.pickCommittedByMouseDuringHold = false;
}

void KeyRouter::cancelForOverlay() {
    cancelGrace(false);
    dropPending();
    leaveSearch();
}

}  // namespace zelk
