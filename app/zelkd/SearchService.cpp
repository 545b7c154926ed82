#include "SearchService.h"

#include <unordered_map>
#include <unordered_set>

#include <algorithm>
#include <set>

#include "apps/AppManager.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "platform/Platform.h"
#include "search/Graphemes.h"
#include "support/Log.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

using ferrow::Log;

namespace {

apps::AppManager& apps() {
    return apps::AppManager::shared();
}

search::SearchApp searchApp(const apps::LaunchableApp& a, bool running) {
    return {a.identifier(), a.bundleIdentifier(), a.name(), a.lowercasedName(), running, a.usageScore()};
}

std::string firstCharacter(const std::string& q) {
    auto chars = search::splitGraphemes(q);
    return chars.empty() ? std::string() : chars.front();
}

const char* kindName(search::SearchResultKind kind) {
    switch (kind) {
        case search::SearchResultKind::app:
            return "app";
        case search::SearchResultKind::window:
            return "window";
        case search::SearchResultKind::closedWindow:
            break;
    }
    return "closedWindow";
}

}  // namespace

command::ZelkSearchResult searchReplyRow(const search::SearchResult& row, std::int64_t rank,
                                         std::vector<std::string> reasons) {
    command::ZelkSearchResult r;
    r.rank = rank;
    r.bundleID = row.bundleID();
    r.reasons = std::move(reasons);
    switch (row.kind) {
        case search::SearchResultKind::app:
            r.kind = "app";
            r.name = row.app().name;
            r.isRunning = row.app().running;
            break;
        case search::SearchResultKind::window:
            r.kind = "window";
            r.name = row.window().title;
            r.windowID = row.window().id;
            if (!row.window().key.empty()) r.key = row.window().key;
            r.isFocused = row.window().focused;
            r.isRunning = true;
            break;
        case search::SearchResultKind::closedWindow:
            // No live window stands behind it: no id, not focused, and its app may be gone.
            r.kind = "window";
            r.name = row.closed().title;
            r.isFocused = false;
            r.isRunning = false;
            break;
    }
    return r;
}

SearchService::SearchService(windows::WindowManager& windows)
    : windows_(windows),
      session_([this]() -> const search::SearchEngine& { return engine(); }, [this] { return state(); }),
      learning_(Settings::shared(), [] { return ferrow::MainQueue::shared().clock().wallSeconds(); }) {}

SearchService::~SearchService() {
    subscriptions_.clear();
}

void SearchService::start() {
    // The world changes with the apps, their letters and windows, and two settings; a query after
    // any of them gathers it again.
    subscriptions_.push_back(apps().assignmentsChanged.subscribe([this] { invalidate(); }));
    subscriptions_.push_back(apps().appWindowsChanged.subscribe([this] { invalidate(); }));
    subscriptions_.push_back(apps().catalogue().installed.subscribe([this] { invalidate(); }));
    subscriptions_.push_back(
        windows_.tracker().windowsObservable().subscribe([this](const auto&) { invalidate(); }));
    auto& settings = Settings::shared();
    for (const char* key : {"showMenubarAppsInSearch", "searchRunningAndStaticOnly", "appKeyAssignments"})
        subscriptions_.push_back(settings.observe(key, [this] { invalidate(); }));
    if (platform::Platform::installed())
        if (auto* ws = platform::Platform::current().workspace)
            subscriptions_.push_back(ws->observe([this](const platform::WorkspaceEvent&) { invalidate(); }));
    if (router_)
        // The search ended (or its buffer emptied): the panel's rows go with it.
        subscriptions_.push_back(router_->searchBuffer.subscribe([this](const std::string& buffer) {
            if (buffer.empty()) session_.clear();
        }));
}

const search::SearchEngine& SearchService::engine() {
    if (dirty_) {
        engine_ = search::SearchEngine(gatherWorld());
        dirty_ = false;
    }
    return engine_;
}

search::SearchWorld SearchService::gatherWorld() {
    auto& m = apps();
    auto& settings = Settings::shared();
    const bool showMenubar = settings.get(keys::showMenubarAppsInSearch);
    const bool runningAndStaticOnly = settings.get(keys::searchRunningAndStaticOnly);
    search::SearchWorld w;

    // Running apps first, then the catalogue's relevant apps that aren't running.
    std::set<std::string> seen;
    const auto running = showMenubar ? m.searchableRunningApps() : m.runningApps();
    for (const auto& entry : running) {
        if (!entry.app) continue;
        const bool menuBar = entry.app->isMenuBarApp() ||
                             entry.process.activationPolicy != platform::ActivationPolicy::regular;
        if (!showMenubar && menuBar) continue;
        if (!seen.insert(entry.app->bundleIdentifier()).second) continue;
        w.candidates.push_back(searchApp(*entry.app, true));
    }
    for (const auto& app : m.catalogue().apps()) {
        if (!app) continue;
        const bool isRunning = m.isRunning(*app);
        w.catalogue.push_back(searchApp(*app, isRunning));
        if (isRunning || seen.count(app->bundleIdentifier()) || !m.isRelevant(*app)) continue;
        if (!showMenubar && app->isMenuBarApp()) continue;
        if (runningAndStaticOnly) {
            const auto* a = m.assignmentForBundleIdentifier(app->bundleIdentifier());
            if (!a || !a->launchIfNotRunning) continue;
        }
        w.candidates.push_back(searchApp(*app, false));
    }

    for (const auto& a : m.appKeyAssignments())
        if (a.app)
            w.staticByKey.emplace(
                a.key, search::LetterBinding{a.key, a.app->bundleIdentifier(), a.launchIfNotRunning});
    for (const auto& a : m.dynamicAppKeyAssignments())
        if (a.app)
            w.dynamicByKey.emplace(
                a.key, search::LetterBinding{a.key, a.app->bundleIdentifier(), a.launchIfNotRunning});
    for (const auto& [key, list] : m.relatedApps()) {
        auto& out = w.relatedByKey[key];
        for (const auto& app : list)
            if (app) out.push_back(app->bundleIdentifier());
    }

    std::map<std::string, std::string> names;  // by bundle id, from the tracked windows
    for (const auto& mw : windows_.windows())
        names.emplace(mw.bundleIdentifier, mw.appName);
    for (const auto& [bundle, rows] : m.appWindowsByBundleIdentifier()) {
        auto& out = w.windowsByBundle[bundle];
        for (const auto& r : rows)
            out.push_back({r.id, r.title, r.bundleIdentifier, r.focused, r.key, names[bundle]});
    }

    // Windows only: the tracked windows, most recently used first.
    // Indexed by id, so thousands of windows cost a pass each instead of a scan per window.
    std::vector<const windows::ManagedWindow*> order;
    std::unordered_map<std::uint32_t, std::vector<const windows::ManagedWindow*>> byID;
    for (const auto& mw : windows_.windows())
        byID[mw.id].push_back(&mw);
    std::unordered_set<const windows::ManagedWindow*> placed;
    for (std::uint32_t id : windows_.windowMRU())
        if (auto at = byID.find(id); at != byID.end())
            for (const auto* mw : at->second) {
                order.push_back(mw);
                placed.insert(mw);
            }
    for (const auto& mw : windows_.windows())
        if (!placed.count(&mw)) order.push_back(&mw);
    for (const auto* mw : order)
        w.openWindows.push_back({mw->id, mw->title, mw->bundleIdentifier, mw->isFocused, "", mw->appName});
    if (closedEntries_) w.closedWindows = closedEntries_();
    return w;
}

search::SearchState SearchService::state() const {
    auto& settings = Settings::shared();
    search::SearchState st;
    st.mode = settings.get(keys::searchMatchMode);
    for (const auto& p : settings.get(keys::searchOptionalPrefixes))
        st.optionalPrefixes.push_back(search::lowercased(p));
    st.switcherAppsOnly = settings.get(keys::switcherAppsOnly);
    st.runningAndStaticOnly = settings.get(keys::searchRunningAndStaticOnly);
    if (router_) {
        st.windowsOnly = router_->searchWindowsOnly.get();
        st.pinPickQuery = router_->pinPickQuery;
    }
    st.emptyQueryListsAll = InputManager::shared().isLatched();
    st.selections = learning_.selections();
    st.pins = learning_.pins();
    st.now = learning_.now();
    return st;
}

std::optional<std::string> SearchService::staticBundleFor(const std::string& letter) const {
    const auto* a = apps().assignmentForKey(letter);
    if (!a || !a->app) return std::nullopt;
    return a->app->bundleIdentifier();
}

std::optional<RoutedApp> SearchService::learnedAppFor(const std::string& query) {
    auto bundle = learning_.learnedBundleFor(query);
    if (!bundle) return std::nullopt;
    RoutedApp app{*bundle, *bundle, 0};
    if (auto running = apps().runningAppByBundleIdentifier(*bundle)) {
        app.name = running->name;
        app.pid = running->pid;
    } else {
        for (const auto& a : apps().catalogue().apps())
            if (a && a->bundleIdentifier() == *bundle) app.name = a->name();
    }
    return app;
}

bool SearchService::commitSelection(bool chosenRow) {
    session_.flushPending();
    const std::string q = session_.query();
    auto row = session_.selected();
    if (!row) {
        Log::info("search commit: nothing highlighted for \"{}\"", q);
        return false;
    }
    if (router_ && router_->pinPickQuery) return commitPinPick(*row);
    auto& input = InputManager::shared();
    switch (row->kind) {
        case search::SearchResultKind::app:
            return commitApp(row->app(), q, chosenRow || input.isLatched());
        case search::SearchResultKind::window:
            Log::info("search commit: window #{} query=\"{}\"", row->window().id, q);
            windows_.focusWindow(row->window().id);
            return true;
        case search::SearchResultKind::closedWindow:
            Log::info("search commit: {} \"{}\" query=\"{}\"", kindName(row->kind), row->closed().title, q);
            if (reopenClosed_) reopenClosed_(row->closed().id);
            return true;
    }
    return false;
}

// The letter's own route acted on its app at key down; an app row of that app for a one-letter
// query is left to it, unless the row was chosen (by its number, or in a latched search, where the
// letter took no route).
bool SearchService::commitApp(const search::SearchApp& app, const std::string& q, bool chosen) {
    auto& input = InputManager::shared();
    const std::string first = firstCharacter(q);
    if (!chosen && search::queryLength(q) == 1 && letterReaches(first, app.bundleID)) return false;
    learning_.recordPick(q, app.bundleID, staticBundleFor(first));
    const bool wasInFront = input.focusedBundleIDAtTriggerPress == app.bundleID;
    Log::info("search commit: app {} query=\"{}\" running={} inFront={}", app.bundleID, q, app.running,
              wasInFront);
    if (!app.running) {
        apps().launch(app.bundleID, true);
        return true;
    }
    if (!wasInFront) {
        windows_.focusApp(app.bundleID);
        return true;
    }
    // The app in front: its already-focused action, unless the letter's route (a static key, or
    // the letter this hold routed) already ran it.
    const bool routed = apps().assignmentForKey(first) || input.keyDownDispatchedRouteLetter == first;
    if (!routed && router_)
        router_->runAlreadyFocusedActionOf(routedApp(app.bundleID), ownAssignment(app.bundleID));
    return true;
}

// Choosing a row in a pin pick pins the waiting query to the row's app, whatever the row's kind.
bool SearchService::commitPinPick(const search::SearchResult& row) {
    const std::string query = *router_->pinPickQuery;
    const std::string& bundle = row.bundleID();
    if (!learning_.pin(query, bundle)) return false;
    if (learning_.writeCacheNow) learning_.writeCacheNow();
    router_->pinPickQuery.reset();
    Log::info("search commit: pinned \"{}\" to {}", query, bundle);
    Log::info("flash: Pinned \"{}\" to {} (pin.circle.fill)", search::lowercased(query), appName(bundle));
    return true;
}

bool SearchService::letterReaches(const std::string& letter, const std::string& bundleID) const {
    const auto* s = apps().assignmentForKey(letter);
    const auto* d = apps().dynamicAssignmentForKey(letter);
    return (s && s->app && s->app->bundleIdentifier() == bundleID) ||
           (d && d->app && d->app->bundleIdentifier() == bundleID);
}

RoutedApp SearchService::routedApp(const std::string& bundleID) const {
    RoutedApp app{bundleID, appName(bundleID), 0};
    if (auto running = apps().runningAppByBundleIdentifier(bundleID)) {
        app.name = running->name;
        app.pid = running->pid;
    }
    return app;
}

// The app's own key, for its already-focused action (its override, else the global setting).
std::optional<RoutedAssignment> SearchService::ownAssignment(const std::string& bundleID) const {
    const auto* a = apps().assignmentForBundleIdentifier(bundleID);
    if (!a || !a->app) return std::nullopt;
    RoutedAssignment r;
    r.key = a->key;
    r.app = routedApp(bundleID);
    r.isStatic = true;
    r.action = static_cast<FocusedAction>(rawValue(a->whenAlreadyFocusedAction));
    r.launchIfNotRunning = a->launchIfNotRunning;
    return r;
}

std::string SearchService::appName(const std::string& bundleID) const {
    for (const auto& a : apps().catalogue().apps())
        if (a && a->bundleIdentifier() == bundleID) return a->name();
    return bundleID;
}

void SearchService::fill(RoutingServices& s) {
    s.runSearch = [this](const std::string& query) { session_.rerunSearch(query); };
    s.commitSearchSelection = [this] { return commitSelection(); };
    s.learnedAppFor = [this](const std::string& query) { return learnedAppFor(query); };
    s.stepSearchSelection = [this](int delta) {
        if (session_.searchResults.get().empty()) return false;
        session_.step(delta);
        return true;
    };
    s.commitSearchRow = [this](std::size_t row) {
        session_.flushPending();
        if (row == 0 || row > session_.searchResults.get().size()) return false;
        session_.select(row - 1);
        return commitSelection(true);
    };
    s.pinSearchSelection = [this](const std::string& query) { return pinSelection(query); };
    s.expandSearchSelection = [this] { return session_.expandSelected(); };
    // The sticky search latches with what was typed: its rows are those of the buffer.
    s.latchSearch = [this](const std::string&) {
        if (router_) session_.rerunSearch(router_->searchBuffer.get());
    };
    s.built.search = true;
}

bool SearchService::pinSelection(const std::string& query) {
    auto row = session_.selected();
    if (!row || !row->isApp()) return false;
    const std::string& bundle = row->bundleID();
    auto flash = learning_.togglePin(query, bundle, appName(bundle));
    if (flash) Log::info("flash: {} ({})", flash->text, flash->symbol);
    return true;
}

std::optional<command::AppTarget> SearchService::resolveApp(const command::ZelkRequest& r) const {
    auto target = [](const apps::LaunchableApp& a) {
        std::int32_t pid = 0;
        if (auto running = apps().runningAppByBundleIdentifier(a.bundleIdentifier())) pid = running->pid;
        return command::AppTarget{a.name(), a.bundleIdentifier(), pid};
    };
    const auto& all = apps().catalogue().apps();
    if (r.bundleID && !r.bundleID->empty()) {
        for (const auto& a : all)
            if (a && a->bundleIdentifier() == *r.bundleID) return target(*a);
        if (auto running = apps().runningAppByBundleIdentifier(*r.bundleID))
            return command::AppTarget{running->name, running->bundleID, running->pid};
        return std::nullopt;
    }
    std::string q;
    if (r.appQuery && !r.appQuery->empty()) q = search::lowercased(*r.appQuery);
    if (q.empty()) return std::nullopt;
    // The whole name, then its beginning, then anywhere in it.
    const apps::LaunchableApp *exact = nullptr, *prefix = nullptr, *inside = nullptr;
    for (const auto& a : all) {
        if (!a) continue;
        const std::string name = a->lowercasedName();
        if (name == q || search::lowercased(a->bundleIdentifier()) == q) {
            if (!exact) exact = a.get();
        } else if (name.rfind(q, 0) == 0) {
            if (!prefix) prefix = a.get();
        } else if (name.find(q) != std::string::npos && !inside) {
            inside = a.get();
        }
    }
    const apps::LaunchableApp* found = exact ? exact : prefix ? prefix : inside;
    if (!found) return std::nullopt;
    return target(*found);
}

command::SearchProviders SearchService::commandProviders() {
    command::SearchProviders p;
    p.search = [this](const std::string& query, bool windowsOnly) {
        auto st = state();
        st.windowsOnly = windowsOnly;
        // The tool asks outside any panel: an empty query isn't asked, and no pin pick is under way.
        st.pinPickQuery.reset();
        const auto& e = engine();
        auto rows = e.search(query, st);
        auto why = e.reasons(query, st, rows);
        std::vector<command::ZelkSearchResult> out;
        for (std::size_t i = 0; i < rows.size(); ++i)
            out.push_back(searchReplyRow(rows[i], static_cast<std::int64_t>(i) + 1, why[i]));
        return out;
    };
    p.resolveApp = [this](const command::ZelkRequest& r) -> std::optional<command::AppTarget> {
        if ((r.bundleID && !r.bundleID->empty()) || (r.appQuery && !r.appQuery->empty()))
            return resolveApp(r);
        // Neither given: the app the query leads to now.
        if (!r.query || r.query->empty()) return std::nullopt;
        auto st = state();
        st.windowsOnly = false;
        for (const auto& row : engine().search(*r.query, st))
            if (row.isApp()) {
                command::ZelkRequest byBundle;
                byBundle.bundleID = row.app().bundleID;
                return resolveApp(byBundle);
            }
        return std::nullopt;
    };
    p.appName = [](const std::string& bundleID) -> std::string {
        for (const auto& a : apps().catalogue().apps())
            if (a && a->bundleIdentifier() == bundleID) return a->name();
        return "";
    };
    p.learning = [this]() -> search::QueryLearning& { return learning_; };
    p.staticBundleFor = [this](const std::string& letter) { return staticBundleFor(letter); };
    return p;
}

}  // namespace zelk::agent
