#include "input/KeyRouter.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "support/Format.h"
#include "support/Log.h"

namespace zelk {

using ferrow::Log;
using platform::TapDecision;
using Mode = InputSettings::ActivationMode;
using SpaceMode = InputSettings::SpaceMode;

namespace {
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

// Entering the chain --------------------------------------------------------------------------------------

TapDecision KeyRouter::routeKeyDown(Key key, const platform::KeyEvent& event, const TriggerList& keys,
                                    bool repeat) {
    ++routed_;
    input_.currentKeydownEventTS = event.timestamp ? static_cast<ferrow::Nanos>(event.timestamp) : now();
    Log::debug("tap keyDown: key={} triggers=[{}]", keyName(key), describeTriggers(keys));
    KeyPress press{key,
                   keys,
                   std::string(lowQWERTYCharacter(key)),
                   repeat,
                   input_.appTriggerKeysPressed.get(),
                   input_.windowTriggerKeysPressed.get(),
                   input_.stageTriggerKeysPressed.get()};
    currentEvent_ = &event;
    auto decision = route(press);
    currentEvent_ = nullptr;
    return decision;
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
        searchBuffer.set({});
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
    searchBuffer.set({});
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

// The pick latches the search, so the user can type to find the app with no key held; what the
// pick lists is apps only (the search reads pinPickQuery), and choosing a row pins instead of acting.
void KeyRouter::beginPinPick(const std::string& query) {
    if (!services_.built.search) return;
    Log::info("search: picking the app to pin \"{}\" to", query);
    pinPickQuery = query;
    searchDebounceWork.cancel();
    searchBuffer.set({});
    input_.stickyToggleHidden = false;
    input_.latchedSurface = "app";
    input_.searchActive = true;
    forceSearchMode = true;
    searchWindowsOnly = false;
    searchSelectionTouched = false;
    lastSearchEditWasBackspace = false;
    input_.refreshTapSeesBareKeys();
    services_.runSearch({});
    input_.showOSD(false);
}

void KeyRouter::endPinPick() {
    if (!pinPickQuery) return;
    const std::string query = std::exchange(pinPickQuery, std::nullopt).value();
    searchBuffer = query;
    searchSelectionTouched = false;
    services_.runSearch(query);
}

// Trigger up -------------------------------------------------------------------------------------

// One letter that a learned query answers (and no static key or the route of this hold claims):
// its learned app, when it runs, is the pick.
void KeyRouter::commitSingleLetterQuery() {
    const std::string letter = searchBuffer.get();
    if (services_.staticAssignment(letter) || input_.keyDownDispatchedRouteLetter == letter) return;
    auto app = services_.learnedAppFor(letter);
    if (!app || !app->running()) return;
    dropPending();
    Log::info("search commit: learned app {} for \"{}\"", app->bundleID, letter);
    if (input_.focusedBundleIDAtTriggerPress == app->bundleID) {
        auto dynamic = services_.dynamicAssignment(letter);
        if (dynamic && dynamic->app.bundleID != app->bundleID) dynamic.reset();
        runAlreadyFocusedAction(*app, dynamic);
    } else {
        services_.focusApp(*app, false);
    }
}

void KeyRouter::commitOnTriggerUp() {
    if (adaptiveGraceActive) cancelGrace(true);
    services_.applyPendingMRU();
    if (input_.appSwitcherCycleSelectedID) {
        const std::string picked = *std::exchange(input_.appSwitcherCycleSelectedID, std::nullopt);
        dropPending();
        if (!input_.pickCommittedByMouseDuringHold) services_.activateAppCycleSelection(picked);
        leaveSearch();
        input_.hideOSD();
        input_.pickCommittedByMouseDuringHold = false;
    } else if (input_.searchActive && input_.pickCommittedByMouseDuringHold) {
        dropPending();
        leaveSearch();
        input_.hideOSD();
        input_.pickCommittedByMouseDuringHold = false;
        return;
    } else if (input_.searchActive && isSingleLetterQuery()) {
        commitSingleLetterQuery();
        leaveSearch();
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
