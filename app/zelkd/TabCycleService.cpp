#include "TabCycleService.h"

#include <algorithm>
#include <map>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "input/OSDController.h"
#include "platform/Platform.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

using zelk::TabCycleScope;

namespace {

std::optional<TabCycleScope> scopeFrom(const std::optional<std::string>& name) {
    if (!name) return std::nullopt;
    for (auto s : {TabCycleScope::auto_, TabCycleScope::currentSpace, TabCycleScope::activeStage,
                   TabCycleScope::allWindows, TabCycleScope::sameApp})
        if (tabcycle::scopeName(s) == *name) return s;
    return std::nullopt;
}

// "2" for the second Space of its display.
std::map<std::uint64_t, std::string> spaceLabels() {
    std::map<std::uint64_t, std::string> labels;
    auto* server = platform::Platform::current().windowServer;
    auto all = server ? server->managedDisplaySpaces() : std::nullopt;
    if (!all) return labels;
    for (auto& display : *all)
        for (std::size_t i = 0; i < display.spaces.size(); ++i)
            labels[display.spaces[i].id64] = std::to_string(i + 1);
    return labels;
}

}  // namespace

TabCycleService::TabCycleService(windows::WindowManager& windows, KeyRouter& router,
                                 std::function<osd::OSDController*()> panel)
    : windows_(windows), router_(router), panel_(std::move(panel)) {
    subscriptions_.push_back(
        windows_.tracker().windowsObservable().subscribe([this](const auto&) { ++windowListGeneration_; }));
    cycle_ = std::make_unique<tabcycle::TabCycle>(InputManager::shared(), environment());
    // Changes that come without a key (a window closing, live focus, a refresh) reach the panel.
    subscriptions_.push_back(cycle_->changed.subscribe([this](const int&) {
        if (auto* p = panel_()) p->refresh();
    }));
}

TabCycleService::~TabCycleService() = default;

tabcycle::CycleSnapshot TabCycleService::snapshot() const {
    tabcycle::CycleSnapshot s;
    s.windows = windows_.windows();
    s.mru = windows_.windowMRU();
    for (std::uint32_t id : s.mru)
        if (auto t = windows_.mru().focusTime(id)) s.focusTimes[id] = *t;
    s.focused = windows_.focusedWindow();
    s.currentSpace = windows_.currentSpaceID();
    s.lastFocusChangeAt = windows_.mru().lastFocusChangeAt();
    s.now = ferrow::MainQueue::shared().now();
    if (activeStage_) s.activeStage = activeStage_();
    if (auto* ws = platform::Platform::current().workspace) {
        s.ownPid = ws->ownPID();
        s.ownBundleID = ws->ownBundleID();
        if (auto front = ws->frontmostApplication()) s.frontmostBundle = front->bundleID;
        for (auto& app : ws->runningApplications())
            if (app.hidden && !app.bundleID.empty()) s.hiddenBundles.insert(app.bundleID);
    }
    return s;
}

tabcycle::TabCycleEnvironment TabCycleService::environment() {
    tabcycle::TabCycleEnvironment env;
    env.snapshot = [this] { return snapshot(); };
    env.stampMissingSpaceIDs = [this] { windows_.tracker().stampMissingSpaceIDs(); };
    env.recentlyClosed = [this] {
        return closed_.rows ? closed_.rows() : std::vector<tabcycle::ClosedWindowRow>{};
    };
    env.reopenClosed = [this](const std::string& uuid) { return closed_.reopen && closed_.reopen(uuid); };
    env.forgetClosed = [this](const std::string& uuid) {
        if (closed_.forget) closed_.forget(uuid);
    };
    env.focusWindow = [this](std::uint32_t id) { return windows_.focusWindow(id); };
    // The tracked list is kept sorted by id.
    env.hasWindow = [this](std::uint32_t id) {
        const auto& list = windows_.windows();
        auto it = std::lower_bound(list.begin(), list.end(), id,
                                   [](const windows::ManagedWindow& w, std::uint32_t v) { return w.id < v; });
        return it != list.end() && it->id == id;
    };
    env.windowListGeneration = [this] { return windowListGeneration_; };
    env.mostRecent = [this] { return windows_.windowMRU(); };
    env.flushPendingMRU = [this] { windows_.flushPendingMRU(); };
    env.setSlot = [this](std::optional<windows::ManagedWindow> w) {
        windows_.focusPipeline().setSlot(std::move(w));
    };
    // The list is published inside a refresh: the cycle follows once that is done.
    env.observeWindows = [this](std::function<void()> changed) {
        return windows_.tracker().windowsObservable().subscribe(
            [changed](const auto&) { ferrow::mainAsync(changed); });
    };
    env.refetchWindows = [this] { windows_.refreshWindows(true); };
    env.mainDisplayID = [] {
        auto* screens = platform::Platform::current().screens;
        auto main = screens ? screens->mainScreen() : std::nullopt;
        return main ? std::optional<std::uint32_t>(main->displayID) : std::nullopt;
    };
    env.setAnchorDisplay = [this](std::optional<std::uint32_t> id) {
        if (auto* p = panel_()) p->osdAnchorDisplayID = id;
    };
    env.flash = [this](const std::string& icon, const std::string& label, std::int64_t ms) {
        if (auto* p = panel_()) p->showActionFlash(icon, label, ms);
    };
    env.clearFlash = [this] {
        if (auto* p = panel_()) p->clearActionFlash();
    };
    env.searchActive = [] { return InputManager::shared().searchActive; };
    env.rerunSearch = [this] { router_.services().runSearch(router_.searchBuffer.get()); };
    return env;
}

void TabCycleService::wire(InputManager& input) {
    auto& s = router_.services();
    s.built.tabCycle = true;
    s.handleTabCycleKey = [this](Key key) { return cycle_->handleTabCycleKey(key); };
    s.startAppWindowCycle = [this](const std::string& letter) {
        std::optional<std::string> advance;
        if (!letter.empty()) advance = letter;
        cycle_->handleTabCycle(false, TabCycleScope::sameApp, true, std::move(advance), false);
    };
    s.tabCycleCanWiden = [this] {
        return cycle_->settings().scope == TabCycleScope::auto_ && !cycle_->tabCycleScopeOverride;
    };
    s.setAllWindowsExpanded = [this](bool expanded) { cycle_->setAllWindowsExpanded(expanded); };
    s.endTabCycle = [this](bool commit, bool cancel) { cycle_->resetTabCycle(commit, cancel); };
    s.tabCycleFilter = [this] { return cycle_->tabCycleSearchBuffer.get(); };
    s.refreshOSDWindowList = [this] { cycle_->refreshOSDWindowList(); };
    // Once the user has been looking at the application panel, Tab walks it instead.
    s.appSwitcherShowsLongEnough = [this, &input] {
        auto* p = panel_();
        if (!p || p->osdHidden() || !p->appSwitcherPaintedAt() || !input.appTriggerKeyPressTime) return false;
        const ferrow::Nanos now = ferrow::MainQueue::shared().now();
        const ferrow::Nanos dwell = ferrow::ms(Settings::shared().get(keys::appSwitcherTabCycleDwellMs));
        return now - *input.appTriggerKeyPressTime >= dwell &&
               now - *p->appSwitcherPaintedAt() >= ferrow::ms(200);
    };
    input.handleTabCycleHook = [this, &input](bool reverse, std::optional<std::string> scope) {
        cycle_->handleTabCycle(reverse, scopeFrom(scope), false, std::nullopt, input.currentKeyIsRepeat);
    };
    // A bare reset is the end of a gesture: it commits.
    input.resetTabCycleHook = [this] { cycle_->resetTabCycle(true, false); };
    // A Shift tap steps a running cycle back; otherwise whatever else listens for it.
    input.stepSelectionReverseHook = [this, &input, other = input.stepSelectionReverseHook](bool reverse) {
        if (cycle_->tabCycling)
            cycle_->handleTabCycle(reverse, cycle_->tabCycleScopeOverride);
        else if (other)
            other(reverse);
    };
    input.updateWindowCycleHotkey();
}

void TabCycleService::unwire(InputManager& input) {
    input.handleTabCycleHook = nullptr;
    input.resetTabCycleHook = nullptr;
    input.stepSelectionReverseHook = nullptr;
}

std::vector<osd::OSDSection> TabCycleService::panelSections() const {
    const auto& rows = cycle_->tabCycleEntries.get();
    if (!cycle_->tabCycling || rows.empty()) return {};
    const auto labels = spaceLabels();
    osd::OSDSection section;
    if (cycle_->tabCycleAllWindowsExpanded.get()) section.title = " \xE2\x86\x92 All Windows";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto& e = rows[i];
        osd::OSDRow row;
        row.id = e.isClosed() ? e.rowID() : std::to_string(e.id);
        row.key = i < 9 ? std::to_string(i + 1) : "";
        row.title = e.title;
        row.app = e.appName;
        if (e.spaceID)
            if (auto it = labels.find(*e.spaceID); it != labels.end()) row.space = it->second;
        row.highlighted = i == cycle_->tabCycleIndex.get();
        row.closed = e.isClosed();
        row.running = !e.isClosed();
        row.minimised = e.minimised;
        row.isWindow = true;
        section.rows.push_back(std::move(row));
    }
    return {std::move(section)};
}

HighlightedRows TabCycleService::highlightedRows() {
    HighlightedRows rows;
    rows.highlighted = [this]() -> std::optional<SelectionActionTarget> {
        if (!cycle_->cycling()) return std::nullopt;
        auto entry = cycle_->highlightedEntry();
        if (!entry || entry->isClosed() || entry->id == 0) return std::nullopt;
        auto target = SelectionActionTarget::window(entry->id, entry->bundleIdentifier);
        target.title = entry->title;
        return target;
    };
    rows.prune = [this](const RowMatch& match) {
        if (!cycle_->cycling()) return false;
        std::vector<std::string> stale;
        for (const auto& e : cycle_->tabCycleEntries.get()) {
            if (e.isClosed()) continue;
            if (match.matchesWindow(e.id) || match.matchesApp(e.bundleIdentifier)) stale.push_back(e.rowID());
        }
        bool dropped = false;
        for (const auto& id : stale)
            dropped = cycle_->dropEntry(id) || dropped;
        return dropped;
    };
    return rows;
}

}  // namespace zelk::agent
