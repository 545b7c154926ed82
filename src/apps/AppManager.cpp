#include "apps/AppManager.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/AppCategories.h"
#include "apps/AppScoreFactors.h"
#include "platform/Platform.h"
#include "search/Graphemes.h"
#include "support/Log.h"

namespace zelk::apps {

namespace {
// Puts the rows of a key in a walk's order when they are still the walk's windows; otherwise they stay
// in id order.
void orderWindowKeyRows(std::vector<windows::AppWindow>& rows, const std::vector<std::uint32_t>& order) {
    if (rows.size() != order.size()) return;
    std::vector<windows::AppWindow> ordered;
    ordered.reserve(rows.size());
    for (std::uint32_t id : order) {
        auto row =
            std::find_if(rows.begin(), rows.end(), [id](const windows::AppWindow& w) { return w.id == id; });
        if (row == rows.end()) return;
        ordered.push_back(*row);
    }
    rows = std::move(ordered);
}
}  // namespace

using ferrow::Log;

namespace {
std::unique_ptr<AppManager>& instance() {
    static std::unique_ptr<AppManager> shared;
    return shared;
}

platform::Workspace* workspace() {
    return platform::Platform::installed() ? platform::Platform::current().workspace : nullptr;
}

std::vector<AppKeyAssignment> decodeAssignments(const nlohmann::json& list) {
    std::vector<AppKeyAssignment> out;
    if (!list.is_array()) return out;
    for (const auto& j : list)
        if (auto a = AppKeyAssignment::fromJson(j)) out.push_back(std::move(*a));
    return out;
}

nlohmann::json encodeAssignments(const std::vector<AppKeyAssignment>& list) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& a : list)
        out.push_back(a.toJson());
    return out;
}

bool sameRelated(const RelatedApps& a, const RelatedApps& b) {
    if (a.size() != b.size()) return false;
    for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib) {
        if (ia->first != ib->first || ia->second.size() != ib->second.size()) return false;
        for (std::size_t i = 0; i < ia->second.size(); ++i)
            if (ia->second[i]->identifier() != ib->second[i]->identifier()) return false;
    }
    return true;
}
}  // namespace

AppManager& AppManager::shared() {
    auto& p = instance();
    if (!p) p = std::make_unique<AppManager>();
    return *p;
}

void AppManager::reset() {
    instance().reset();
}

AppManager::AppManager() {
    launcher_.runningApp = [this](const LaunchableApp& app) { return runningApp(app); };
    launcher_.focus = [](const platform::RunningApp& process) {
        if (auto* ws = workspace()) ws->activate(process.pid, true);
    };
}

AppManager::~AppManager() {
    refreshThrottle_.cancel();
    catalogue_.stop();
}

void AppManager::start() {
    auto& settings = Settings::shared();
    ignoredApps_ = std::make_unique<Setting<StringSet>>(keys::ignoredApps, settings);
    selections_ = std::make_unique<Setting<std::map<std::string, SearchSelection>>>(
        keys::searchQueryAppSelections, settings);
    pins_ = std::make_unique<Setting<std::map<std::string, std::string>>>(keys::searchQueryPins, settings);
    matchMode_ = std::make_unique<Setting<SearchMatchMode>>(keys::searchMatchMode, settings);
    prefixes_ = std::make_unique<Setting<std::vector<std::string>>>(keys::searchOptionalPrefixes, settings);
    globalAction_ =
        std::make_unique<Setting<WhenAlreadyFocusedAction>>(keys::whenAlreadyFocusedAction, settings);

    auto lowerPrefixes = [this](const std::vector<std::string>& list) {
        lowercasedPrefixes_.clear();
        for (const auto& p : list)
            lowercasedPrefixes_.push_back(search::lowercased(p));
        ++prefixesStamp_;
    };
    subscriptions_.push_back(prefixes_->subscribe(
        [this, lowerPrefixes](const auto& list) {
            lowerPrefixes(list);
            scheduleDynamicRefresh();
        },
        false));
    lowerPrefixes(prefixes_->get());
    subscriptions_.push_back(matchMode_->subscribe([this](const auto&) { scheduleDynamicRefresh(); }, false));
    subscriptions_.push_back(
        globalAction_->subscribe([this](const auto&) { scheduleDynamicRefresh(); }, false));
    subscriptions_.push_back(ignoredApps_->subscribe(
        [this](const auto&) {
            refreshRunningApps();
            scheduleDynamicRefresh();
        },
        false));
    // A new learned pick can change which app a letter reaches.
    subscriptions_.push_back(selections_->subscribe(
        [this](const auto&) {
            deriver_.clearCache();
            refreshQueryChips();
            scheduleDynamicRefresh();
        },
        false));
    subscriptions_.push_back(pins_->subscribe([this](const auto&) { refreshQueryChips(); }, false));
    subscriptions_.push_back(settings.observe(keys::appKeyAssignments.name, [this] {
        if (writingStatics_) return;
        loadStaticAssignments();
        scheduleDynamicRefresh();
    }));
    subscriptions_.push_back(catalogue_.installed.subscribe([this] {
        refreshRunningApps();
        scheduleDynamicRefresh();
    }));

    loadStaticAssignments();
    deleted_ = decodeAssignments(settings.get(keys::deletedAppKeyAssignments));
    last_ = AppKeyAssignment::fromJson(settings.get(keys::lastAppKeyAssignment));
    if (auto f = AppKeyAssignment::fromJson(settings.get(keys::focusedAppKeyAssignment))) focused_ = *f;
    refreshQueryChips();

    if (auto* ws = workspace()) {
        subscriptions_.push_back(
            ws->observe([this](const platform::WorkspaceEvent& e) { onWorkspaceEvent(e); }));
        refreshRunningApps();
        // The app in front at start is the focused one, but not a recent one: right after start usage
        // decides between apps that share a letter.
        startFocus(ws->frontmostApplication());
    }
    runDynamicRefresh();
}

// Running applications.

AppRef AppManager::launchableAppFor(const platform::RunningApp& process) {
    std::string identifier = process.bundleID;
    // A second instance of a bundle is a member of its own: the first running process of a bundle
    // (in the workspace's order) is the one found by index.
    if (!identifier.empty())
        if (auto first = runningByBundle_.find(process.bundleID);
            first != runningByBundle_.end() && first->second.pid != process.pid)
            identifier = fmt::format("/{}:{}/", process.bundleID, process.pid);
    AppRef record = process.bundleID.empty() ? nullptr : catalogue_.byBundleIdentifier(process.bundleID);
    std::shared_ptr<LaunchableApp> app;
    if (record) {
        app = std::make_shared<LaunchableApp>(record->path(), record->fullName(), record->useCount(),
                                              identifier);
        if (record->menuBarFlagKnown()) app->setMenuBarApp(record->isMenuBarApp());
    } else {
        std::string path = !process.bundlePath.empty() ? process.bundlePath : process.executablePath;
        app = std::make_shared<LaunchableApp>(path, process.name, 0, identifier);
        app->setMenuBarApp(process.activationPolicy != platform::ActivationPolicy::regular);
    }
    // A record for a process starts with no switches: its score, and so which letter it reaches by
    // usage, doesn't depend on switches that the stored catalogue may not have caught yet.
    return app;
}

bool AppManager::isIgnored(const std::string& bundleIdentifier) const {
    return ignoredApps_ && ignoredApps_->get().count(bundleIdentifier) > 0;
}

bool AppManager::finderRelevant() const {
    bool windowsKnown =
        std::any_of(windowCounts_.begin(), windowCounts_.end(), [](auto& kv) { return kv.second > 0; });
    if (!windowsKnown) return true;
    auto it = windowCounts_.find("com.apple.finder");
    return it != windowCounts_.end() && it->second > 0;
}

bool AppManager::relevantProcess(const platform::RunningApp& process, const AppRef& app) {
    if (process.bundleID == "com.apple.finder") return !isIgnored(process.bundleID) && finderRelevant();
    if (process.bundleID.empty() || process.bundlePath.empty()) return false;
    auto factor = appScoreFactorRow(process.bundleID);
    if (factor && *factor == 0) return false;
    return pathRelevance_(app->path()) && !isIgnored(process.bundleID);
}

void AppManager::refreshRunningApps() {
    auto* ws = workspace();
    allRunning_ = ws ? ws->runningApplications() : std::vector<platform::RunningApp>{};
    std::erase_if(allRunning_, [](const platform::RunningApp& a) { return a.terminated; });
    running_.clear();
    runningBundles_.clear();
    runningByBundle_.clear();
    runningByIdentifier_.clear();
    runningPids_.clear();
    for (const auto& process : allRunning_) {
        runningPids_.insert(process.pid);
        AppRef app = launchableAppFor(process);
        if (!process.bundleID.empty()) {
            runningBundles_.insert(process.bundleID);
            runningByBundle_.emplace(process.bundleID, process);
        }
        if (!app->identifier().empty()) runningByIdentifier_[app->identifier()] = process;
        if (relevantProcess(process, app)) running_.push_back({process, app});
    }
    deriver_.clearCache();
}

std::optional<platform::RunningApp> AppManager::runningAppByBundleIdentifier(
    const std::string& bundleIdentifier) const {
    auto it = runningByBundle_.find(bundleIdentifier);
    if (it == runningByBundle_.end()) return std::nullopt;
    return it->second;
}

std::optional<platform::RunningApp> AppManager::runningAppByIdentifier(const std::string& identifier) const {
    auto it = runningByIdentifier_.find(identifier);
    if (it == runningByIdentifier_.end()) return std::nullopt;
    return it->second;
}

bool AppManager::isRunning(const LaunchableApp& app) const {
    return runningBundles_.count(app.bundleIdentifier()) || runningByIdentifier_.count(app.identifier());
}

std::optional<platform::RunningApp> AppManager::runningApp(const LaunchableApp& app) const {
    if (auto r = runningAppByIdentifier(app.identifier())) return r;
    if (auto r = runningAppByBundleIdentifier(app.bundleIdentifier())) return r;
    return std::nullopt;
}

bool AppManager::isRelevant(const LaunchableApp& app) {
    if (isIgnored(app.bundleIdentifier())) return false;
    if (app.identifier() == "com.apple.finder") return finderRelevant();
    auto factor = appScoreFactorRow(app.bundleIdentifier());
    if (factor && *factor == 0) return false;
    return pathRelevance_(app.path());
}

std::vector<RunningEntry> AppManager::searchableRunningApps() {
    std::vector<RunningEntry> out;
    auto* ws = workspace();
    for (const auto& process : allRunning_) {
        if (process.bundleID.empty() || process.bundlePath.empty() || isIgnored(process.bundleID)) continue;
        auto exists = bundleExists_.find(process.bundlePath);
        if (exists == bundleExists_.end())
            exists =
                bundleExists_.emplace(process.bundlePath, ws && ws->bundleInfo(process.bundlePath)).first;
        if (!exists->second) continue;
        if (!pathRelevance_(process.bundlePath) &&
            process.bundlePath.find("/DerivedData/") == std::string::npos)
            continue;
        out.push_back({process, launchableAppFor(process)});
    }
    return out;
}

void AppManager::setAppWindowCounts(std::map<std::string, int> counts) {
    bool finderBefore = finderRelevant();
    windowCounts_ = std::move(counts);
    if (finderRelevant() != finderBefore) {
        refreshRunningApps();
        scheduleDynamicRefresh();
    }
}

void AppManager::setAppWindows(AppWindowRows rows) {
    if (rows == appWindows_) return;
    appWindows_ = std::move(rows);
    appWindowsChanged.emit();
}

AppManager::AppWindowRows AppManager::focusedAppWindowsByKey() const {
    AppWindowRows byKey;
    if (!focusedApp_) return byKey;
    auto it = appWindows_.find(focusedApp_->bundleID);
    if (it == appWindows_.end()) return byKey;
    for (const auto& row : it->second)
        if (!row.key.empty()) byKey[row.key].push_back(row);
    if (windowKeyOrder_ && windowKeyOrder_->bundleID == focusedApp_->bundleID) {
        auto rows = byKey.find(windowKeyOrder_->key);
        if (rows != byKey.end()) orderWindowKeyRows(rows->second, windowKeyOrder_->order);
    }
    return byKey;
}

void AppManager::keepWindowKeyOrder(const std::string& bundleID, const std::string& key,
                                    std::vector<std::uint32_t> order) {
    windowKeyOrder_ = WindowKeyOrder{bundleID, key, std::move(order)};
}

void AppManager::onWorkspaceEvent(const platform::WorkspaceEvent& event) {
    using K = platform::WorkspaceEventKind;
    switch (event.kind) {
        case K::didTerminate:
            // The running views wait for the running-apps watch; only the focused app is let go now.
            if (focusedApp_ && event.app && focusedApp_->pid == event.app->pid) focusedApp_.reset();
            break;
        case K::didActivate:
            frontmostChanged(event.app, true);
            break;
        default:
            break;
    }
}

void AppManager::runningAppsDidChange() {
    refreshRunningApps();
    scheduleDynamicRefresh();
}

void AppManager::scoresChanged() {
    deriver_.clearCache();
}

void AppManager::startFocus(const std::optional<platform::RunningApp>& process) {
    if (!process || process->terminated) return;
    focusedApp_ = process;
    appWindowsChanged.emit();
    AppRef app = launchableAppFor(*process);
    auto* ws = workspace();
    if (!app->firstNameLetter().empty() && !(ws && process->pid == ws->ownPID())) setFocusedAssignment(app);
}

void AppManager::frontmostChanged(const std::optional<platform::RunningApp>& process, bool countSwitch) {
    if (!process || process->terminated) return;
    const bool otherApp = !focusedApp_ || focusedApp_->pid != process->pid;
    focusedApp_ = process;
    if (otherApp) appWindowsChanged.emit();
    if (!runningPids_.count(process->pid)) refreshRunningApps();
    AppRef app = launchableAppFor(*process);
    if (app->firstNameLetter().empty()) return;
    // The switch is counted on the catalogue's record, which keeps it for its life and stores it with
    // the catalogue.
    if (countSwitch)
        if (auto record = catalogue_.byBundleIdentifier(app->bundleIdentifier()))
            record->setSwitchCount(record->switchCount() + 1);
    std::erase_if(recentApps_, [&](const AppRef& r) { return r->identifier() == app->identifier(); });
    recentApps_.insert(recentApps_.begin(), app);
    scheduleDynamicRefresh();
    auto* ws = workspace();
    bool isSelf = ws && process->pid == ws->ownPID();
    if (!isSelf) setFocusedAssignment(app);
}

void AppManager::setFocusedAssignment(const AppRef& app) {
    if (app->firstNameLetter().empty() || !isRelevant(*app)) return;
    AppKeyAssignment a;
    a.key = app->firstNameLetter();
    a.app = app;
    a.index = 0;
    a.launchIfNotRunning = true;
    const AppKeyAssignment* own = statics_.byBundleIdentifier(app->bundleIdentifier());
    a.whenAlreadyFocusedAction = own ? own->whenAlreadyFocusedAction : globalAction_->get();
    focused_ = a;
    Settings::shared().set(keys::focusedAppKeyAssignment, a.toJson());
    assignmentsChanged.emit();
}

bool AppManager::ignore(const LaunchableApp& app) {
    if (statics_.hasStaticKey(app.bundleIdentifier())) return false;
    auto set = ignoredApps_->get();
    set.insert(app.bundleIdentifier());
    ignoredApps_->set(set);
    return true;
}

void AppManager::unignore(const LaunchableApp& app) {
    auto set = ignoredApps_->get();
    if (set.erase(app.bundleIdentifier())) ignoredApps_->set(set);
}

void AppManager::launch(const AppRef& app, bool activates) {
    launcher_.launch(app, activates);
}

bool AppManager::launch(const std::string& bundleIdentifier, bool activates) {
    // A bound app launches from its own record: when its stored path is gone the launcher says so and
    // takes the catalogue's.
    AppRef app;
    if (auto* a = statics_.byBundleIdentifier(bundleIdentifier)) app = a->app;
    if (!app) app = catalogue_.byBundleIdentifier(bundleIdentifier);
    if (!app)
        for (const auto& entry : running_)
            if (entry.app->bundleIdentifier() == bundleIdentifier) app = entry.app;
    if (!app) {
        Log::error("launch: no app known for {}", bundleIdentifier);
        return false;
    }
    launch(app, activates);
    return true;
}

bool AppManager::isLowDocumentApp(const std::string& bundleIdentifier, std::optional<std::string> url) {
    std::string category;
    if (!url)
        if (auto record = catalogue_.byBundleIdentifier(bundleIdentifier)) url = record->path();
    auto* ws = workspace();
    if (url && ws)
        if (auto info = ws->bundleInfo(*url)) category = info->category;
    return apps::isLowDocumentApp(bundleIdentifier, category);
}

// Static assignments.

void AppManager::loadStaticAssignments() {
    statics_.setAll(decodeAssignments(Settings::shared().get(keys::appKeyAssignments)));
    scoresChanged();
    assignmentsChanged.emit();
}

void AppManager::storeStaticAssignments() {
    writingStatics_ = true;
    Settings::shared().set(keys::appKeyAssignments, encodeAssignments(statics_.all()));
    writingStatics_ = false;
    scoresChanged();
    assignmentsChanged.emit();
}

void AppManager::setAppKeyAssignments(std::vector<AppKeyAssignment> list) {
    statics_.setAll(std::move(list));
    storeStaticAssignments();
    scheduleDynamicRefresh();
}

void AppManager::rebuildAssignmentIndexes() {
    statics_.rebuildIndexes();
    scoresChanged();
}

AppKeyAssignment AppManager::assign(const AppRef& app, const std::string& key) {
    AppKeyAssignment record = statics_.assign(app, key);
    storeStaticAssignments();
    last_ = record;
    Settings::shared().set(keys::lastAppKeyAssignment, record.toJson());
    Log::info("assign: {} -> {}", record.key, app->bundleIdentifier());
    scheduleDynamicRefresh();
    return record;
}

AppKeyAssignment AppManager::rebound(const AppKeyAssignment& record, const std::string& newKey) {
    AppKeyAssignment moved = statics_.rebound(record, newKey);
    storeStaticAssignments();
    last_ = moved;
    Settings::shared().set(keys::lastAppKeyAssignment, moved.toJson());
    Log::info("rebound: {} -> {} for {}", record.key, moved.key,
              moved.app ? moved.app->bundleIdentifier() : "");
    scheduleDynamicRefresh();
    return moved;
}

bool AppManager::removeAssignment(const AppKeyAssignment& record) {
    auto list = statics_.all();
    auto before = list.size();
    std::erase_if(list, [&](const AppKeyAssignment& a) { return a.id() == record.id(); });
    if (list.size() == before) return false;
    deleted_.push_back(record);
    Settings::shared().set(keys::deletedAppKeyAssignments, encodeAssignments(deleted_));
    setAppKeyAssignments(std::move(list));
    return true;
}

void AppManager::restoreFromDeleted(const AppKeyAssignment& record) {
    std::string key = lowercasedKey(record.key);
    std::string identifier = record.app ? record.app->identifier() : std::string();
    auto before = deleted_.size();
    std::erase_if(deleted_, [&](const AppKeyAssignment& a) {
        return lowercasedKey(a.key) == key && a.app && a.app->identifier() == identifier;
    });
    if (deleted_.size() != before)
        Settings::shared().set(keys::deletedAppKeyAssignments, encodeAssignments(deleted_));
}

// Dynamic assignments.

DerivationContext AppManager::context() {
    DerivationContext c;
    c.running = &running_;
    c.selections = selections_ ? &selections_->get() : nullptr;
    c.recentApps = &recentApps_;
    c.statics = &statics_;
    c.mode = matchMode_ ? matchMode_->get() : SearchMatchMode::anchored;
    static const std::vector<std::string> kNoPrefixes;
    // Without anchors the optional prefixes have no meaning.
    c.optionalPrefixes = c.mode == SearchMatchMode::contains ? &kNoPrefixes : &lowercasedPrefixes_;
    c.prefixesStamp = c.mode == SearchMatchMode::contains ? 0 : prefixesStamp_;
    c.now = ferrow::MainQueue::shared().clock().wallSeconds();
    return c;
}

std::optional<RunningEntry> AppManager::topRunningApp(const std::string& letter,
                                                      const std::vector<std::string>& excludedIDs) {
    return deriver_.topRunningApp(context(), letter, excludedIDs);
}

std::vector<AppRef> AppManager::relatedAppsFor(const std::string& letter,
                                               const std::vector<std::string>& excludedIDs) {
    return deriver_.relatedAppsFor(context(), letter, excludedIDs);
}

std::vector<AppKeyAssignment> AppManager::computeDynamicAssignments(int limit) {
    auto action = globalAction_ ? globalAction_->get() : WhenAlreadyFocusedAction::hide;
    auto result = deriver_.computeDynamicAssignments(context(), limit, action, relatedCache_);
    if (!sameRelated(relatedCache_, relatedApps_)) relatedApps_ = relatedCache_;
    return result;
}

void AppManager::scheduleDynamicRefresh() {
    refreshThrottle_.call([this] { runDynamicRefresh(); });
}

void AppManager::runDynamicRefresh() {
    dynamic_ = computeDynamicAssignments(kDynamicLimit);
    dynamicByIdentifier_.clear();
    for (std::size_t i = 0; i < dynamic_.size(); ++i)
        dynamicByIdentifier_[dynamic_[i].app->identifier()] = i;
    Settings::shared().set(keys::dynamicAppKeyAssignments, encodeAssignments(dynamic_));
    assignmentsChanged.emit();
}

const AppKeyAssignment* AppManager::dynamicAssignmentForKey(const std::string& key) const {
    std::string k = lowercasedKey(key);
    for (const auto& a : dynamic_)
        if (a.key == k) return &a;
    return nullptr;
}

const AppKeyAssignment* AppManager::dynamicAssignmentForIdentifier(const std::string& identifier) const {
    auto it = dynamicByIdentifier_.find(identifier);
    return it == dynamicByIdentifier_.end() ? nullptr : &dynamic_[it->second];
}

void AppManager::refreshQueryChips() {
    const auto& pins = pins_->get();
    const auto& selections = selections_->get();
    chips_ = apps::queryChipsByBundleID(pins, selections);
    ambiguating_ = apps::ambiguatingQueryLetters(pins, selections);
}

}  // namespace zelk::apps
