#include "tabcycle/TabCycle.h"

#include <fmt/format.h>

#include <algorithm>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "support/Log.h"

namespace zelk::tabcycle {

using ferrow::Log;

namespace {
bool isDigit(Key k) {
    return k >= Key::zero && k <= Key::nine;
}
bool isLetter(Key k) {
    return k <= Key::z;
}
}  // namespace

void TabCycleEnvironment::fillDefaults() {
    if (!snapshot) snapshot = [] { return CycleSnapshot{}; };
    if (!stampMissingSpaceIDs) stampMissingSpaceIDs = [] {};
    if (!focusWindow) focusWindow = [](std::uint32_t) { return false; };
    if (!hasWindow) hasWindow = [](std::uint32_t) { return true; };
    if (!flushPendingMRU) flushPendingMRU = [] {};
    if (!mostRecent) mostRecent = [snapshot = snapshot] { return snapshot().mru; };
    if (!setSlot) setSlot = [](std::optional<windows::ManagedWindow>) {};
    if (!recentlyClosed) recentlyClosed = [] { return std::vector<ClosedWindowRow>{}; };
    if (!reopenClosed) reopenClosed = [](const std::string&) { return false; };
    if (!forgetClosed) forgetClosed = [](const std::string&) {};
    if (!observeWindows) observeWindows = [](std::function<void()>) { return ferrow::Subscription{}; };
    if (!refetchWindows) refetchWindows = [] {};
    if (!mainDisplayID) mainDisplayID = [] { return std::optional<std::uint32_t>{}; };
    if (!setAnchorDisplay) setAnchorDisplay = [](std::optional<std::uint32_t>) {};
    if (!flash) flash = [](const std::string&, const std::string&, std::int64_t) {};
    if (!clearFlash) clearFlash = [] {};
    if (!searchActive) searchActive = [] { return false; };
    if (!rerunSearch) rerunSearch = [] {};
    if (!keyRepeatInterval) keyRepeatInterval = [] { return ferrow::ms(30); };
}

TabCycleSettings TabCycleSettings::load() {
    auto& st = Settings::shared();
    TabCycleSettings s;
    s.enableTabCycle = st.get(keys::enableTabCycle);
    s.scope = st.get(keys::tabCycleScope);
    s.searchScope = st.get(keys::tabCycleSearchScope);
    s.include = st.get(keys::tabCycleInclude);
    s.focusOnKeyUp = st.get(keys::tabCycleFocusOnKeyUp);
    s.showAppSwitcher = st.get(keys::showAppSwitcher);
    s.appSwitcherDelay = st.get(keys::windowSwitchOSDDelay);
    return s;
}

TabCycle::TabCycle(InputManager& input, TabCycleEnvironment env) : input_(input), env_(std::move(env)) {
    env_.fillDefaults();
    settings_ = TabCycleSettings::load();
}

TabCycle::~TabCycle() {
    pendingTabCycleFocusWork.cancel();
    tabCycleWindowsObserver_.cancel();
}

ferrow::Nanos TabCycle::now() const {
    return ferrow::MainQueue::shared().now();
}

std::optional<TabCycleEntry> TabCycle::highlightedEntry() const {
    const auto& rows = tabCycleEntries.get();
    if (!tabCycling || tabCycleIndex.get() >= rows.size()) return std::nullopt;
    return rows[tabCycleIndex.get()];
}

TabCycleScope TabCycle::configuredScope() const {
    return tabCycleScopeOverride.value_or(settings_.scope);
}

EntryRequest TabCycle::request(TabCycleScope scope, bool forSearch) const {
    return {scope, forSearch, settings_.include, tabCycleAllWindowsExpanded.get()};
}

std::vector<TabCycleEntry> TabCycle::rowsWithClosed(TabCycleScope scope, const CycleSnapshot& world,
                                                    bool forSearch) const {
    auto rows = computeTabCycleEntries(world, request(scope, forSearch));
    if (!tabCycleSearchDisabled) {
        auto closed = computeClosedEntries(world, request(scope, forSearch), env_.recentlyClosed(), rows);
        rows.insert(rows.end(), closed.begin(), closed.end());
    }
    return rows;
}

std::string TabCycle::mruText(const std::vector<std::uint32_t>& mru, std::size_t limit) {
    const auto end = mru.begin() + static_cast<std::ptrdiff_t>(std::min(limit, mru.size()));
    return fmt::format("{}", fmt::join(mru.begin(), end, ","));
}

// Live focus belongs to the end of the cycle when the setting asks for it (unless a scope was asked
// for at start) and once the user filtered.
bool TabCycle::liveFocusOff() const {
    return (settings_.focusOnKeyUp && !tabCycleScopeOverride) || tabCycleSearchTouched;
}

void TabCycle::setRows(std::vector<TabCycleEntry> rows, std::size_t index) {
    tabCycleEntries = std::move(rows);
    tabCycleIndex = index;
}

// Starting and stepping ------------------------------------------------------------------------------

void TabCycle::handleTabCycle(bool reverse, std::optional<TabCycleScope> scope, bool skipClosed,
                              std::optional<std::string> advanceKey, bool isRepeat) {
    if (!tabCycling) settings_ = TabCycleSettings::load();
    if (!settings_.enableTabCycle && !scope) return;
    if (tabCycling && tabCycleScopeOverride != scope) resetTabCycle(false, false);
    if (tabCycling)
        step(reverse, isRepeat);
    else
        start(reverse, scope, skipClosed, std::move(advanceKey));
}

void TabCycle::step(bool reverse, bool isRepeat) {
    syncWithLiveWindows();
    const auto& rows = tabCycleEntries.get();
    if (rows.size() < 2) return;
    if (isRepeat) {
        input_.showOSD(true);
        // A held key steps no faster than the system repeats it.
        const ferrow::Nanos least = env_.keyRepeatInterval() * 9 / 10;
        if (now() - lastTabCycleRepeatStepAt < least) {
            scheduleLiveFocus(true);
            return;
        }
        lastTabCycleRepeatStepAt = now();
    }
    const std::size_t n = rows.size(), i = std::min(tabCycleIndex.get(), n - 1);
    tabCycleIndex = reverse ? (i + n - 1) % n : (i + 1) % n;
    scheduleLiveFocus(isRepeat);
}

void TabCycle::start(bool reverse, std::optional<TabCycleScope> scope, bool skipClosed,
                     std::optional<std::string> advanceKey) {
    env_.stampMissingSpaceIDs();
    const CycleSnapshot world = env_.snapshot();
    markChecked();
    tabCycleSearchDisabled = skipClosed;
    const TabCycleScope configured = scope.value_or(settings_.scope);
    tabCycleAllWindowsExpanded = false;
    auto rows = rowsWithClosed(configured, world, false);
    if (rows.size() < 2) {
        tabCycleSearchDisabled = false;
        Log::debug("handleTabCycle: {} row(s), nothing to cycle", rows.size());
        return;
    }
    tabCycleScopeOverride = scope;
    input_.tabCycleScopeOverride = scope ? std::optional<std::string>(scopeName(*scope)) : std::nullopt;
    tabCycleAllEntries = rows;
    if (!scope && settings_.searchScope != settings_.scope)
        tabCycleSearchAllEntries = rowsWithClosed(settings_.searchScope, world, true);
    else
        tabCycleSearchAllEntries = rows;
    tabCycleSearchBuffer.set(std::string());
    tabCycleSearchTouched = false;
    windowBeforeTabCycle = world.focused;
    Log::info("handleTabCycle: BEGIN reverse={} before={} entries={} mru=[{}]", reverse,
              windows::describe(world.focused), rows.size(), mruText(world.mru, 8));
    tabCycleAdvanceKey = std::move(advanceKey);
    tabCycling = true;
    input_.tabCycling = true;
    env_.setAnchorDisplay(env_.mainDisplayID());

    const TabCycleScope effective = effectiveScope(request(configured, false));
    const std::size_t from = startRow(rows, world, effective);
    setRows(std::move(rows), 0);
    tabCycleIndex = stepIndex(tabCycleEntries.get(), from, reverse, true);

    std::weak_ptr<bool> alive = alive_;
    tabCycleWindowsObserver_ = env_.observeWindows([this, alive] {
        if (!alive.lock() || !tabCycling) return;
        syncWithLiveWindows();
        changed.emit(0);
    });
    scheduleLiveFocus(false);
    input_.showOSD(!settings_.showAppSwitcher || settings_.appSwitcherDelay == 0);
}

// The focused window's row; when it isn't listed (minimised, another Space) the first row of its app.
std::size_t TabCycle::startRow(const std::vector<TabCycleEntry>& rows, const CycleSnapshot& world,
                               TabCycleScope effective) const {
    if (!world.focused) return 0;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (!rows[i].isClosed() && rows[i].id == world.focused->id) return i;
    const bool narrow = effective == TabCycleScope::auto_ || effective == TabCycleScope::currentSpace ||
                        effective == TabCycleScope::activeStage;
    if (narrow)
        for (std::size_t i = 0; i < rows.size(); ++i)
            if (!rows[i].isClosed() && rows[i].bundleIdentifier == world.focused->bundleIdentifier) return i;
    return 0;
}

void TabCycle::scheduleLiveFocus(bool isRepeat) {
    if (liveFocusOff() || !tabCycling) return;
    const auto& rows = tabCycleEntries.get();
    if (tabCycleIndex.get() >= rows.size()) return;
    const TabCycleEntry& entry = rows[tabCycleIndex.get()];
    if (entry.isClosed() || entry.id == 0) return;
    pendingTabCycleFocusWork.cancel();
    std::weak_ptr<bool> alive = alive_;
    const std::uint32_t id = entry.id;
    pendingTabCycleFocusWork =
        ferrow::mainAsyncAfter(isRepeat ? kLiveFocusRepeatMs : kLiveFocusMs, [this, alive, id] {
            if (!alive.lock()) return;
            pendingTabCycleFocusWork = {};
            if (tabCycling) env_.focusWindow(id);
        });
}

// Following the window list ----------------------------------------------------------------------------

// The rows were checked against the list as it stands now.
void TabCycle::markChecked() {
    if (env_.windowListGeneration) checkedGeneration_ = env_.windowListGeneration();
}

void TabCycle::syncWithLiveWindows() {
    if (!tabCycling) return;
    // A list published since the last check is checked once; steps in between cost nothing.
    if (env_.windowListGeneration) {
        const std::uint64_t generation = env_.windowListGeneration();
        if (checkedGeneration_ == generation) return;
        checkedGeneration_ = generation;
    }
    // Most checks find every row still there; only a change rebuilds the lists.
    auto gone = [&](const std::vector<TabCycleEntry>& list) {
        return std::any_of(list.begin(), list.end(), [&](const TabCycleEntry& e) {
            return !e.isClosed() && e.id != 0 && !env_.hasWindow(e.id);
        });
    };
    if (!gone(tabCycleEntries.get()) && !gone(tabCycleAllEntries) && !gone(tabCycleSearchAllEntries)) return;
    std::set<std::uint32_t> live;
    for (const auto& w : env_.snapshot().windows)
        live.insert(w.id);
    const auto& rows = tabCycleEntries.get();
    const std::string highlighted =
        tabCycleIndex.get() < rows.size() ? rows[tabCycleIndex.get()].rowID() : "";
    auto kept = dropVanished(rows, live);
    tabCycleAllEntries = dropVanished(tabCycleAllEntries, live);
    tabCycleSearchAllEntries = dropVanished(tabCycleSearchAllEntries, live);
    if (kept.size() == rows.size()) return;
    const std::size_t index = keepHighlight(kept, highlighted, tabCycleIndex.get());
    setRows(std::move(kept), index);
}

bool TabCycle::dropEntry(const std::string& rowID) {
    if (!tabCycling) return false;
    auto drop = [&](std::vector<TabCycleEntry>& list) {
        std::erase_if(list, [&](const TabCycleEntry& e) { return e.rowID() == rowID; });
    };
    auto rows = tabCycleEntries.get();
    const std::size_t before = rows.size();
    drop(rows);
    drop(tabCycleAllEntries);
    drop(tabCycleSearchAllEntries);
    if (rows.size() == before) return false;
    const std::size_t index = rows.empty() ? 0 : std::min(tabCycleIndex.get(), rows.size() - 1);
    setRows(std::move(rows), index);
    return true;
}

// Keys of a running cycle ---------------------------------------------------------------------------------

bool TabCycle::handleTabCycleKey(Key key) {
    if (!tabCycling) return false;
    if (key == Key::escape) {
        if (!tabCycleSearchBuffer.get().empty()) {
            tabCycleSearchBuffer.set(std::string());
            refilter();
            return true;
        }
        resetTabCycle(true, true);
        input_.hideOSD();
        return true;
    }
    if (key == Key::delete_ || key == Key::forwardDelete) {
        if (!tabCycleSearchBuffer.get().empty()) {
            std::string buffer = tabCycleSearchBuffer.get();
            buffer.pop_back();
            tabCycleSearchBuffer.set(std::move(buffer));
            refilter();
        } else {
            removeHighlightedEntry();
        }
        return true;
    }
    const std::string character(lowQWERTYCharacter(key));
    const auto count = tabCycleEntries.get().size();
    if (isDigit(key) && key != Key::zero &&
        static_cast<std::size_t>(key) - static_cast<std::size_t>(Key::zero) <= count) {
        tabCycleIndex = static_cast<std::size_t>(key) - static_cast<std::size_t>(Key::zero) - 1;
        auto entry = highlightedEntry();
        // The digit focuses at once; the commit that follows doesn't focus the same window again.
        if (entry && !entry->isClosed() && entry->id != 0) {
            env_.focusWindow(entry->id);
            landedByDigit_ = true;
        }
        resetTabCycle(true, false);
        input_.hideOSD();
        return true;
    }
    if (!isDigit(key) && !isLetter(key)) return false;
    if (tabCycleSearchDisabled) {
        if (tabCycleAdvanceKey && character == *tabCycleAdvanceKey) {
            syncWithLiveWindows();
            if (tabCycleEntries.get().size() >= 2) {
                const auto n = tabCycleEntries.get().size();
                tabCycleIndex = (tabCycleIndex.get() + 1) % n;
                scheduleLiveFocus(false);
            }
            return true;
        }
        resetTabCycle(false, false);
        input_.hideOSD();
        return false;
    }
    std::string typed = tabCycleSearchBuffer.get();
    typed.append(character);
    tabCycleSearchBuffer.set(std::move(typed));
    refilter();
    return true;
}

// A filter searches the wider rows; its commit focuses at the end (live focus stops).
void TabCycle::refilter() {
    tabCycleSearchTouched = true;
    pendingTabCycleFocusWork.cancel();
    const std::string& buffer = tabCycleSearchBuffer.get();
    if (buffer.empty()) {
        setRows(tabCycleAllEntries, 0);
        return;
    }
    const auto& pool = tabCycleSearchAllEntries.empty() ? tabCycleAllEntries : tabCycleSearchAllEntries;
    setRows(filterEntries(pool, buffer), 0);
}

void TabCycle::removeHighlightedEntry() {
    auto entry = highlightedEntry();
    if (!entry) return;
    if (!entry->isClosed()) return;  // a live window stays listed: Delete doesn't close it
    env_.forgetClosed(*entry->closedWindowID);
    dropEntry(entry->rowID());
    if (tabCycleEntries.get().empty()) {
        resetTabCycle(true, false);
        input_.hideOSD();
    }
}

void TabCycle::setAllWindowsExpanded(bool expanded) {
    if (!tabCycling || tabCycleAllWindowsExpanded.get() == expanded) return;
    tabCycleAllWindowsExpanded = expanded;
    const auto world = env_.snapshot();
    auto rows = rowsWithClosed(configuredScope(), world, false);
    const auto& current = tabCycleEntries.get();
    const std::string highlighted =
        tabCycleIndex.get() < current.size() ? current[tabCycleIndex.get()].rowID() : "";
    tabCycleAllEntries = rows;
    const std::size_t index = keepHighlight(rows, highlighted, tabCycleIndex.get());
    setRows(std::move(rows), index);
}

void TabCycle::refreshOSDWindowList() {
    const bool searching = env_.searchActive();
    Log::info("refreshOSDWindowList: forcing full window refetch (tabCycling={} searchActive={})", tabCycling,
              searching);
    env_.refetchWindows();
    env_.stampMissingSpaceIDs();
    env_.flash("checkmark.circle.fill", "Refreshed", kRefreshedFlashMs);
    if (tabCycling) {
        const auto world = env_.snapshot();
        markChecked();
        const auto& current = tabCycleEntries.get();
        const std::string highlighted =
            tabCycleIndex.get() < current.size() ? current[tabCycleIndex.get()].rowID() : "";
        tabCycleAllEntries = rowsWithClosed(configuredScope(), world, false);
        if (!tabCycleScopeOverride && settings_.searchScope != settings_.scope)
            tabCycleSearchAllEntries = rowsWithClosed(settings_.searchScope, world, true);
        else
            tabCycleSearchAllEntries = tabCycleAllEntries;
        const std::string& buffer = tabCycleSearchBuffer.get();
        auto rows = buffer.empty()
                        ? tabCycleAllEntries
                        : filterEntries(tabCycleSearchAllEntries.empty() ? tabCycleAllEntries
                                                                         : tabCycleSearchAllEntries,
                                        buffer);
        const std::size_t index = keepHighlight(rows, highlighted, tabCycleIndex.get());
        setRows(std::move(rows), index);
    } else if (searching) {
        env_.rerunSearch();
    }
    changed.emit(0);
}

// Ending ------------------------------------------------------------------------------------------------

void TabCycle::clearCycle() {
    tabCycling = false;
    input_.tabCycling = false;
    env_.setAnchorDisplay(std::nullopt);
    tabCycleScopeOverride.reset();
    input_.tabCycleScopeOverride.reset();
    tabCycleAllWindowsExpanded = false;
    tabCycleSearchDisabled = false;
    tabCycleAdvanceKey.reset();
    tabCycleAllEntries.clear();
    tabCycleSearchAllEntries.clear();
    tabCycleSearchBuffer.set(std::string());
    tabCycleSearchTouched = false;
    setRows({}, 0);
    tabCycleWindowsObserver_.cancel();
    checkedGeneration_.reset();
}

void TabCycle::resetTabCycle(bool commit, bool cancel) {
    pendingTabCycleFocusWork.cancel();
    env_.clearFlash();
    const bool landedByDigit = std::exchange(landedByDigit_, false);
    if (!tabCycling && tabCycleEntries.get().empty()) return;
    const auto entry = highlightedEntry();
    const bool deferred = liveFocusOff();
    clearCycle();

    if (cancel) {
        const auto world = env_.snapshot();
        const bool stands = windowBeforeTabCycle &&
                            std::any_of(world.windows.begin(), world.windows.end(),
                                        [&](const auto& w) { return w.id == windowBeforeTabCycle->id; });
        if (stands) {
            Log::info("resetTabCycle: cancel -> restore {}", windows::describe(windowBeforeTabCycle));
            env_.focusWindow(windowBeforeTabCycle->id);
        }
        windowBeforeTabCycle.reset();
        return;
    }
    std::optional<windows::ManagedWindow> landing;
    if (commit && entry) {
        if (entry->isClosed()) {
            env_.reopenClosed(*entry->closedWindowID);
        } else if (entry->id != 0) {
            if (deferred && !landedByDigit)
                env_.focusWindow(entry->id);
            else
                env_.flushPendingMRU();
            windows::ManagedWindow w;
            w.id = entry->id;
            w.title = entry->title;
            w.bundleIdentifier = entry->bundleIdentifier;
            w.appName = entry->appName;
            for (const auto& live : env_.snapshot().windows)
                if (live.id == entry->id) w = live;
            landing = w;
        }
    }
    const std::string mru = mruText(env_.mostRecent(), 8);
    if (windowBeforeTabCycle && (!landing || landing->id != windowBeforeTabCycle->id)) {
        env_.setSlot(windowBeforeTabCycle);
        Log::info("resetTabCycle: stash slot={} landing={} wasDeferred={} mru=[{}]",
                  windows::describe(windowBeforeTabCycle), windows::describe(landing), deferred, mru);
    } else {
        Log::info("resetTabCycle: no slot stash (before={} landing={}) mru=[{}]",
                  windows::describe(windowBeforeTabCycle), windows::describe(landing), mru);
    }
    windowBeforeTabCycle.reset();
}

}  // namespace zelk::tabcycle
