#include "Agent.h"

#include <unistd.h>

#include "AppPanelCycle.h"
#include "DebugService.h"
#include "OverviewService.h"
#include "RecentlyClosedService.h"
#include "SearchService.h"
#include "Subsystems.h"
#include "TabCycleService.h"
#include "apps/AppManager.h"
#include "command/CommandService.h"
#include "command/ConfigCommands.h"
#include "command/DebugCommands.h"
#include "config/ConfigFileManager.h"
#include "diagnostics/WindowEventWatch.h"
#include "input/AppDelegate.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "input/OSDController.h"
#include "input/SelectionActions.h"
#include "platform/Platform.h"
#include "stages/StageService.h"
#include "support/MainQueue.h"
#include "windows/WindowKeyAssignments.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

namespace {
// On the socket, `status` names the process a user can signal; the replay bench keeps the simulated
// desktop's own pid so that its traces don't change from run to run.
command::StatusProviders statusProviders(Subsystems& subsystems, bool live) {
    auto p = subsystems.statusProviders();
    if (live) p.pid = [] { return static_cast<std::int32_t>(::getpid()); };
    return p;
}

// The overview stands in front of the router: while it is up, keys are its own.
void makeOverview(Subsystems& subsystems, KeyRouter& router, command::CommandService& commands) {
    auto overview = std::make_unique<OverviewService>(subsystems);
    overview->wire(InputManager::shared(), router, commands.dispatcher());
    subsystems.setOverview(std::move(overview));
}
}  // namespace

Agent::Agent(bool commandService)
    : delegate_(std::make_unique<AppDelegate>(AppDelegate::Options{commandService})),
      subsystems_(std::make_unique<Subsystems>()),
      router_(std::make_unique<KeyRouter>(InputManager::shared(), subsystems_->routingServices())),
      commands_(std::make_unique<command::CommandService>(statusProviders(*subsystems_, commandService))) {
    subsystems_->attach(*delegate_);
    commands_->attach(*delegate_);
    commands_->registerManagers(subsystems_->commandProviders());
    subsystems_->search().attachRouter(router_.get());
    commands_->registerSearch(subsystems_->search().commandProviders());
    commands_->registerStages(subsystems_->stageProviders());
    makeTabCycle();
    makeOverview(*subsystems_, *router_, *commands_);
    wirePanel();
    wireSelectionActions();
    wireAppCycle();
    wireDebug();
}

// The debug dump and the debug commands, made again whenever their folders or runner change.
void Agent::wireDebug() {
    DebugService::Options options;
    options.outputFolder = dumpFolder_;
    options.processes = dumpProcesses_;
    if (config_) {
        options.configFile = config_->configPath();
        options.searchCacheFile = config_->searchCachePath();
    }
    debug_.reset();
    debug_ = std::make_unique<DebugService>(*subsystems_, std::move(options));
    auto providers = debug_->providers();
    addAgentDebugRecords(providers);
    command::registerDebugCommands(commands_->dispatcher(), providers);
}

void Agent::useDebugDump(std::filesystem::path outputFolder, platform::Processes* processes) {
    dumpFolder_ = std::move(outputFolder);
    dumpProcesses_ = processes;
    wireDebug();
}

void Agent::makeTabCycle() {
    tabCycle_ =
        std::make_unique<TabCycleService>(subsystems_->windows(), *router_, [this] { return panel_.get(); });
    tabCycle_->wire(InputManager::shared());
    wireClosedRows();
    tabCycle_->setActiveStage([this]() -> std::optional<tabcycle::StageMembers> {
        auto& directory = subsystems_->stages().directory();
        const auto& key = directory.activeStageKey();
        if (!key) return std::nullopt;
        tabcycle::StageMembers members;
        members.key = *key;
        members.bundleIdentifiers = directory.activeStageBundleIDs();
        if (const auto* stage = directory.stage(*key))
            for (const auto& item : stage->items)
                if (auto w = subsystems_->stages().resolve(item)) members.windowIDs.insert(w->id);
        return members;
    });
}

// The panel answers the input state's show, hide and latch calls, and mirrors whether it is hidden
// where routing and the delegate read it.
void Agent::wirePanel() {
    auto& input = InputManager::shared();
    auto env = subsystems_->panelEnvironment();
    env.tabCyclePanel = [cycle = tabCycle_.get()] { return cycle->panelSections(); };
    env.tabCycleFilter = [cycle = tabCycle_.get()] { return cycle->filter(); };
    env.overlayVisible = [m = &subsystems_->overview().manager()] { return m->isVisible(); };
    env.dismissOverlay = [m = &subsystems_->overview().manager()] { m->hide(true); };
    env.onboardingOpen = [d = delegate_.get()] { return d->onboarding().isOpen(); };
    env.onboardingPastPermissions = [d = delegate_.get()] { return d->onboarding().pastPermissions(); };
    panel_ = std::make_unique<osd::OSDController>(input, *router_, std::move(env));
    osd::OSDController& panel = *panel_;
    input.showOSDHook = [&panel](bool immediate) { panel.showOSD(immediate); };
    // A hide without an argument is immediate: the panel leaves with the trigger.
    input.hideOSDHook = [&panel] { panel.hideOSD(true); };
    input.unlatchHook = [&panel] { panel.unlatch(); };
    if (!input.latchTabCycleHook) input.latchTabCycleHook = [&panel] { panel.latchTabCycle(); };
    input.keyEventHandledHook = [&panel] { panel.refresh(); };
    // The search (when built) fills its rows for the latched buffer first; the panel then shows them.
    router_->services().latchSearch =
        [&panel, searchLatch = router_->services().latchSearch](const std::string& surface) {
            if (searchLatch) searchLatch(surface);
            panel.searchLatchedByRouter();
        };
    delegate_->toggleLatchedSearchHook = [&panel](const std::string& surface) {
        panel.toggleLatchedSearch(surface);
    };
    // New rows of the search (a debounced run lands after its key) reach the panel as they come.
    searchRowsSub_ =
        subsystems_->search().session().searchResults.subscribe([&panel](const auto&) { panel.refresh(); });
    AppDelegate* delegate = delegate_.get();
    panelSub_ = panel.changed.subscribe([&input, delegate](const osd::OSDModel& m) {
        input.osdHidden = m.visibility.hidden;
        delegate->osdHidden = m.visibility.hidden;
    });
}

// Close, quit, hide and new window on the panel's highlighted row, with the panel's flash.
void Agent::wireSelectionActions() {
    auto env = subsystems_->selectionEnvironment();
    osd::OSDController& panel = *panel_;
    env.showFlash = [&panel](const std::string& icon, const std::string& label, std::int64_t ms) {
        panel.showActionFlash(icon, label, ms);
    };
    selection_ = std::make_unique<SelectionActions>(InputManager::shared(), *router_, std::move(env));
    SelectionActions* actions = selection_.get();
    actions->setTabCycleRows(tabCycle_->highlightedRows());
    router_->services().runSelectionAction = [actions](const std::string& key) {
        return actions->runSelectionAction(key);
    };
    router_->services().pressMenuExtraOfSelection = [actions] {
        return actions->pressMenuExtraOfSelection();
    };
}

void Agent::wireAppCycle() {
    AppPanelCycleEnvironment env;
    osd::OSDController& panel = *panel_;
    env.sections = [&panel, appPanel = subsystems_->panelEnvironment().appPanel] {
        return appPanel(panel.settings());
    };
    env.focusedRows = [this] {
        std::vector<std::string> rows;
        if (const auto& w = subsystems_->windows().focusedWindow())
            rows.push_back("win-" + std::to_string(w->id));
        if (const auto& app = subsystems_->apps().focusedApp()) rows.push_back("app-" + app->bundleID);
        return rows;
    };
    env.activateApp = [this](const std::string& bundleID) {
        if (subsystems_->apps().runningAppByBundleIdentifier(bundleID))
            return subsystems_->windows().focusApp(bundleID);
        return subsystems_->apps().launch(bundleID, true);
    };
    env.focusWindow = [this](std::uint32_t id) { return subsystems_->windows().focusWindow(id); };
    env.refreshPanel = [&panel] { panel.refresh(); };
    env.now = [] { return ferrow::MainQueue::shared().now(); };
    env.keyRepeatInterval = [] { return ferrow::ms(30); };
    auto& input = InputManager::shared();
    appCycle_ = std::make_unique<AppPanelCycle>(input, std::move(env));
    auto& s = router_->services();
    s.built.panel = true;
    s.stepPanel = [cycle = appCycle_.get(), &input](bool reverse) {
        cycle->stepAppPanel(reverse, input.currentKeyIsRepeat);
    };
    s.activateAppCycleSelection = [cycle = appCycle_.get()](const std::string& id) {
        return cycle->activateSelection(id);
    };
    selection_->setAppCycleRows(appCycle_->highlightedRows());
}

Agent::~Agent() {
    if (running()) terminate();
    commands_->detach(*delegate_);
    debug_.reset();
    commands_.reset();
    watchSubs_.clear();
    watch_.reset();
    dropConfigFolder();
    selection_.reset();
    appCycle_.reset();
    unwirePanel();
    subsystems_->overview().unwire(InputManager::shared());
    tabCycle_->unwire(InputManager::shared());
    tabCycle_.reset();
    router_.reset();
    subsystems_.reset();
    delegate_.reset();
    InputManager::reset();
}

void Agent::unwirePanel() {
    auto& input = InputManager::shared();
    input.showOSDHook = nullptr;
    input.hideOSDHook = nullptr;
    input.unlatchHook = nullptr;
    input.latchTabCycleHook = nullptr;
    input.keyEventHandledHook = nullptr;
    delegate_->toggleLatchedSearchHook = nullptr;
    panelSub_.cancel();
    panel_.reset();
}

void Agent::start() {
    if (started_) return;
    started_ = true;
    delegate_->applicationWillFinishLaunching();
    delegate_->applicationDidFinishLaunching();
}

void Agent::terminate() {
    if (!started_ || terminated_) return;
    terminated_ = true;
    delegate_->applicationWillTerminate();
    commands_->stopSocket();
}

namespace {
// The file names apps by bundle identifier; the catalogue and the workspace know their records and paths.
configfile::ConfigApps configApps() {
    configfile::ConfigApps apps;
    apps.appRecord = [](const std::string& bundle) -> std::optional<nlohmann::json> {
        if (auto app = apps::AppManager::shared().catalogue().byBundleIdentifier(bundle))
            return app->toJson();
        return std::nullopt;
    };
    apps.bundleForAppURL = [](const std::string& url) -> std::optional<std::string> {
        auto* ws = platform::Platform::current().workspace;
        auto path = windows::pathOfFileURL(url);
        if (!ws || !path) return std::nullopt;
        while (path->size() > 1 && path->back() == '/')
            path->pop_back();
        if (auto info = ws->bundleInfo(*path)) return info->bundleID;
        return std::nullopt;
    };
    apps.appURLForBundle = [](const std::string& bundle) -> std::optional<std::string> {
        auto* ws = platform::Platform::current().workspace;
        return ws ? ws->urlForApplication(bundle) : std::nullopt;
    };
    return apps;
}
}  // namespace

void Agent::useConfigFolder(const std::filesystem::path& folder) {
    configfile::ConfigFileManager::Options options;
    options.folder = folder;
    options.apps = configApps();
    config_ = std::make_unique<configfile::ConfigFileManager>(Settings::shared(), options);
    configfile::ConfigFileManager* config = config_.get();
    delegate_->startConfigSyncHook = [config] { config->setup(); };
    delegate_->flushConfigHook = [config] { config->flushAtTermination(); };
    subsystems_->search().learning().writeCacheNow = [config] { config->writeSearchCacheNow(); };
    command::registerConfigCommands(commands_->dispatcher(), *config);
    wireDebug();
}

void Agent::dropConfigFolder() {
    if (!config_) return;
    delegate_->startConfigSyncHook = nullptr;
    delegate_->flushConfigHook = nullptr;
    subsystems_->search().learning().writeCacheNow = nullptr;
    config_.reset();
}

void Agent::wireClosedRows() {
    auto* closed = &subsystems_->recentlyClosed();
    tabCycle_->setRecentlyClosed(
        {[closed] { return closed->tabCycleRows(); },
         [closed](const std::string& uuid) { return closed->list().reopenRecentlyClosedWindow(uuid); },
         [closed](const std::string& uuid) { closed->list().removeRecentlyClosedWindow(uuid); }});
}

nlohmann::ordered_json Agent::handleCommand(const nlohmann::json& request) {
    return delegate_->handleCommand(request);
}

}  // namespace zelk::agent
