#include "stages/StageService.h"

#include <unistd.h>

#include <algorithm>

#include "config/SettingsCatalogue.h"
#include "stages/BundleTables.h"
#include "stages/FirefoxCapture.h"
#include "support/Log.h"
#include "support/MainQueue.h"
#include "windows/WindowManager.h"

namespace zelk::stages {

using windows::ManagedWindow;

std::optional<std::string> PlatformCaptureFacts::runScript(const std::string& source) {
    if (!p_.processes) return std::nullopt;
    std::string error;
    return p_.processes->runScript(wrapScriptTimeout(source, 2), &error);
}

std::optional<std::string> PlatformCaptureFacts::axDocument(std::int32_t pid, std::uint32_t windowID) {
    ManagedWindow window;
    window.appPid = pid;
    window.id = windowID;
    return AccessibilityWindowFacts(p_).axDocumentOf(window);
}

std::size_t PlatformCaptureFacts::trackedWindowCount(std::string_view bundleID) {
    std::size_t n = 0;
    for (const auto& w : windows_->windows())
        if (w.bundleIdentifier == bundleID) ++n;
    return n;
}

std::optional<std::string> PlatformCaptureFacts::firefoxURL(std::int32_t pid, std::uint32_t windowID) {
    return firefoxWebAreaURL(*p_.accessibility, pid, windowID);
}

std::optional<std::string> PlatformCaptureFacts::kittyCWD(std::uint32_t windowID) {
    auto table = kitty_->byWindow();
    auto it = table.find(windowID);
    if (it == table.end()) return std::nullopt;
    return it->second;
}

std::filesystem::path PlatformCaptureFacts::applicationSupportFolder() {
    return userApplicationSupportFolder();
}

namespace {

// kitty as this machine runs it: the running app from the workspace, its binary checked on disk, its
// child processes through the platform, time from the main queue's clock.
KittyCWDTable::Sources kittySources(const platform::Platform& p) {
    KittyCWDTable::Sources s;
    s.runningKitty = [workspace = p.workspace]() -> std::optional<platform::RunningApp> {
        for (auto& app : workspace->runningApplications())
            if (app.bundleID == "net.kovidgoyal.kitty" && !app.terminated) return app;
        return std::nullopt;
    };
    s.isExecutable = [](const std::string& path) { return ::access(path.c_str(), X_OK) == 0; };
    s.run = [processes = p.processes](const platform::ProcessRequest& request) {
        return processes ? processes->run(request) : platform::ProcessResult{};
    };
    s.now = [] { return ferrow::now(); };
    return s;
}

}  // namespace

bool AccessibilityWindowFacts::isAppRunning(std::string_view bundleID) {
    for (const auto& app : p_.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return true;
    return false;
}

std::optional<std::string> AccessibilityWindowFacts::script(const std::string& source) {
    if (!p_.processes) return std::nullopt;
    std::string error;
    auto answer = p_.processes->runScript(wrapScriptTimeout(source, 2), &error);
    if (!answer || answer->empty()) return std::nullopt;
    return answer;
}

std::optional<std::string> AccessibilityWindowFacts::documentOf(const ManagedWindow& window) {
    // The Finder tells its folder only to its script.
    if (window.bundleIdentifier == "com.apple.finder") return script(finderPathScript(window.id));
    return axDocumentOf(window);
}

std::optional<std::string> AccessibilityWindowFacts::axDocumentOf(const ManagedWindow& window) {
    platform::AXRef app = p_.accessibility->applicationElement(window.appPid);
    if (!app) return std::nullopt;
    p_.accessibility->setMessagingTimeout(app, 1.0);
    auto list = p_.accessibility->copyAttribute(app, "AXWindows");
    if (!list.ok() || !list.value) return std::nullopt;
    auto* elements = std::get_if<std::vector<platform::AXRef>>(&*list.value);
    if (!elements) return std::nullopt;
    for (auto element : *elements) {
        if (p_.accessibility->windowNumber(element) != window.id) continue;
        auto doc = p_.accessibility->copyAttribute(element, "AXDocument");
        if (!doc.ok() || !doc.value) return std::nullopt;
        auto* text = std::get_if<std::string>(&*doc.value);
        if (!text || text->empty()) return std::nullopt;
        // A file URL stands for its path; anything else is taken as it is.
        if (text->starts_with("file://")) return text->substr(7);
        return *text;
    }
    return std::nullopt;
}

std::optional<std::string> AccessibilityWindowFacts::browserURLOf(const ManagedWindow& window) {
    const std::string& bundle = window.bundleIdentifier;
    if (auto family = browserFamily(bundle)) {
        std::optional<std::string> url;
        if (*family == BrowserFamily::chromium) url = script(chromiumURLScript(bundle, window.id));
        if (*family == BrowserFamily::safari) url = script(safariURLScript(bundle, window.id));
        // The Firefox family answers only through the tree of its running process.
        if (*family == BrowserFamily::firefox && isAppRunning(bundle))
            url = firefoxWebAreaURL(*p_.accessibility, window.appPid, window.id);
        if (url) return url;
    }
    auto doc = axDocumentOf(window);
    if (doc && (doc->starts_with("http://") || doc->starts_with("https://"))) return doc;
    return std::nullopt;
}

std::optional<std::string> AccessibilityWindowFacts::terminalCWDOf(const ManagedWindow& window) {
    if (window.bundleIdentifier == "com.googlecode.iterm2")
        if (auto path = script(iTermSessionPathScript(window.id)); path && path->starts_with("/"))
            return path;
    if (window.bundleIdentifier == "net.kovidgoyal.kitty" && kitty_) {
        auto table = kitty_->byWindow();
        if (auto it = table.find(window.id); it != table.end() && it->second.starts_with("/"))
            return it->second;
    }
    auto doc = axDocumentOf(window);
    if (doc && doc->starts_with("/")) return doc;
    return std::nullopt;
}

StageService::StageService(windows::WindowManager& windows, Settings& settings,
                           const platform::Platform& platform)
    : windows_(&windows),
      platform_(platform),
      store_(settings),
      kitty_(kittySources(platform)),
      facts_(platform),
      placer_(WindowPlacer::Sources{platform.accessibility, platform.workspace, platform.screens,
                                    [this] { return windows_->windows(); },
                                    [this](const StageItem& item) { return resolve(item); }}),
      stash_(OffScreenStash::Sources{platform, &settings, [this] { return windows_->windows(); }}),
      toast_(platform.screens),
      captureFacts_(platform, windows, kitty_) {
    facts_.setKittyTable(&kitty_);
    // Parked windows from the last run come back under their records; those that are gone are dropped.
    stash_.load();
    stash_.reconcilePersistedStashes();

    opener_ = std::make_unique<StageWindowOpener>(
        StageWindowOpener::Sources{platform, [this](const std::string& bundleID, bool activates) {
                                       return hooks_.launchApp && hooks_.launchApp(bundleID, activates);
                                   }});
    ActivationEnvironment env;
    env.platform = platform;
    env.store = &store_;
    env.stash = &stash_;
    env.placer = &placer_;
    env.opener = opener_.get();
    env.windows = [this] { return windows_->windows(); };
    env.focusedWindow = [this] { return windows_->focusedWindow(); };
    env.resolve = [this](const StageItem& item) { return resolve(item); };
    env.focus = [this](const ManagedWindow& w) { return windows_->focus(w); };
    env.forceActivate = [this](const platform::RunningApp& app) { return windows_->forceActivate(app); };
    env.clearDeliberateFocus = [this] { windows_->focusPipeline().clearDeliberateFocus(); };
    env.awaitNewWindow = [this](const std::string& bundleID, ferrow::Nanos timeout,
                                std::function<void(std::optional<std::uint32_t>)> done) {
        windows_->awaitNewWindow(bundleID, timeout, [done](std::optional<windows::WindowCreated> created) {
            done(created ? std::optional(created->windowID) : std::nullopt);
        });
    };
    env.activeSpace = [this] { return platform_.windowServer->activeSpace(); };
    env.liveSpaceID = [this](std::uint32_t id) -> std::optional<std::uint64_t> {
        for (const auto& w : windows_->windows())
            if (w.id == id) return windows_->tracker().liveSpaceID(w);
        return std::nullopt;
    };
    env.userSpaces = [this] {
        std::vector<std::uint64_t> out;
        for (const auto& display : windows_->displaySpaces())
            for (const auto& space : display.spaces)
                if (space.type == 0) out.push_back(space.id64);
        return out;
    };
    env.occupiedSpaces = [this] {
        std::set<std::uint64_t> out;
        auto own = platform_.workspace->ownPID();
        for (const auto& w : windows_->windows()) {
            if (w.appPid == own) continue;
            if (auto space = windows_->tracker().liveSpaceID(w).value_or(w.spaceID.value_or(0)))
                out.insert(space);
        }
        return out;
    };
    env.switchToSpace = [this](std::uint64_t space) {
        return hooks_.switchToSpace && hooks_.switchToSpace(space);
    };
    env.setFrontOnSpace = [this](std::uint32_t windowID, std::uint64_t space) {
        auto* server = platform_.windowServer;
        auto owner = server->windowOwner(windowID);
        auto pid = owner ? server->connectionPID(*owner) : std::nullopt;
        auto psn = pid ? server->processForPID(*pid) : std::nullopt;
        if (psn) server->spaceSetFrontPSN(space, *psn);
    };
    env.createSpace = [this](std::function<void(std::optional<std::uint64_t>)> done) {
        if (hooks_.createSpace)
            hooks_.createSpace(std::move(done));
        else
            done(std::nullopt);
    };
    env.toast = [this](const std::string& title, const std::string& line, std::int64_t ms) {
        if (hooks_.toast) hooks_.toast(title, line, ms);
    };
    env.spaceMode = [] { return Settings::shared().get(keys::spaceMode); };
    env.reopenClosedItems = [] { return Settings::shared().get(keys::stageReopenClosedItems); };
    activator_ = std::make_unique<StageActivator>(std::move(env));
    // The active stage remembers the window focused inside it, and ends when its windows left the Space.
    focusWatch_ = windows_->focusPipeline().focusedWindowObservable().subscribe(
        [this](const std::optional<ManagedWindow>& w) {
            if (w) activator_->rememberFocusedWindow(w->id);
        });
}

StageService::~StageService() {
    focusWatch_.cancel();
    activator_.reset();
}

void StageService::attach(AgentHooks hooks) {
    hooks_ = std::move(hooks);
}

bool StageService::activateStage(const std::string& key) {
    if (!store_.stage(key)) return false;
    activator_->activateStage(key);
    return true;
}

std::vector<ManagedWindow> StageService::activeStageWindows() {
    return activator_->activeStageWindows();
}

StageCapture StageService::captureCurrentWindows() {
    StageCapture capture;
    std::uint64_t active = platform_.windowServer->activeSpace();
    capture.spaceID = active ? std::optional(active) : std::nullopt;
    auto own = platform_.workspace->ownPID();
    // Front to back: the most recently used first, then the rest in list order.
    std::vector<ManagedWindow> visible;
    for (const auto& w : windows_->windows()) {
        if (w.isMinimized || w.appPid == own || stash_.isStashed(w.id)) continue;
        if (w.spaceID && active && *w.spaceID != active) continue;
        visible.push_back(w);
    }
    const auto& mru = windows_->windowMRU();
    std::stable_sort(visible.begin(), visible.end(), [&mru](const ManagedWindow& a, const ManagedWindow& b) {
        auto rank = [&mru](std::uint32_t id) {
            auto it = std::find(mru.begin(), mru.end(), id);
            return it == mru.end() ? mru.size() : static_cast<std::size_t>(it - mru.begin());
        };
        return rank(a.id) < rank(b.id);
    });
    std::vector<CaptureSource> sources;
    for (const auto& w : visible)
        sources.push_back({w, platform_.windowServer->windowBounds(w.id)});
    auto screens = screenListFrom(platform_.screens->screens(), platform_.screens->mainScreen());
    capture.items = captureItems(
        sources, captureFacts_, files_,
        [this](const ManagedWindow& w) -> std::shared_ptr<apps::LaunchableApp> {
            if (hooks_.appFor) return hooks_.appFor(w);
            return nullptr;
        },
        [this](const std::string& bundleID) {
            return isAppLevelApp(bundleID, hooks_.categoryOf ? hooks_.categoryOf(bundleID) : std::string());
        },
        [&screens](const Rect& frame) -> std::optional<WindowPlacement> {
            return placementFor(frame, screens);
        });
    return capture;
}

std::optional<std::string> StageService::saveCurrentWindowsAsStage() {
    auto capture = captureCurrentWindows();
    auto items = dedupeItems(capture.items);
    if (items.empty()) return std::nullopt;
    std::string key;
    for (char c = 'a'; c <= 'z' && key.empty(); ++c)
        if (!store_.stage(std::string(1, c))) key = std::string(1, c);
    if (key.empty()) return std::nullopt;
    Stage stage;
    stage.key = key;
    stage.name = defaultStageName(key);
    stage.items = std::move(items);
    stage.spaceID = capture.spaceID;
    store_.putStage(stage);
    ferrow::Log::info("saveStage: key={} name='{}' items={} space={}", key, stage.name, stage.items.size(),
                      capture.spaceID ? std::to_string(*capture.spaceID) : std::string("nil"));
    return key;
}

void StageService::closeStage(const std::string& key) {
    const Stage* stage = store_.stage(key);
    if (stage) {
        auto action = Settings::shared().get(keys::stageCloseAction);
        auto* ax = platform_.accessibility;
        for (const auto& item : stage->items) {
            std::optional<ManagedWindow> window;
            if (item.windowID)
                for (const auto& w : windows_->windows())
                    if (w.id == *item.windowID) window = w;
            if (!window) window = resolve(item);
            if (!window) continue;
            if (action == StageCloseAction::moveOffScreen) {
                stash_.moveWindowOffScreen(*window);
                continue;
            }
            platform::AXRef element = placer_.windowElementFor(window->appPid, window->id);
            if (!element) continue;
            if (action == StageCloseAction::minimize) {
                ax->setAttribute(element, "AXMinimized", true);
            } else {
                auto button = ax->copyAttribute(element, "AXCloseButton");
                if (button.ok() && button.value)
                    if (auto* ref = std::get_if<platform::AXRef>(&*button.value))
                        ax->performAction(*ref, "AXPress");
            }
        }
    }
    activator_->stageClosed(key);
    if (store_.activeStageKey() == key) store_.clearActiveStage();
}

std::optional<ManagedWindow> StageService::resolve(const StageItem& item) {
    return resolveWindow(item, windows_->windows(), facts_, files_);
}

command::ZelkStageInfo StageService::stageInfo(const Stage& stage, bool includeWindows,
                                               const CommandHooks& hooks) {
    command::ZelkStageInfo info;
    info.key = stage.key;
    info.name = stage.name;
    info.spaceID = stage.spaceID;
    info.isActive = store_.activeStageKey() == stage.key;
    for (const auto& item : stage.items) {
        command::ZelkStageItemInfo row;
        row.appName = item.app ? item.app->name() : item.bundleID();
        row.bundleID = item.bundleID();
        row.spec = describe(item.windowSpec);
        if (!item.windowTitle.empty()) row.windowTitle = item.windowTitle;
        if (item.windowPlacement) row.placement = describePlacement(*item.windowPlacement);
        if (includeWindows) {
            if (auto w = resolve(item)) {
                row.resolvedWindowID = w->id;
                row.resolvedTitle = w->title;
                row.resolvedIsMinimized = w->isMinimized;
                if (hooks.windowInfo) {
                    auto windowRow = hooks.windowInfo(*w);
                    row.resolvedSpaceIndex = windowRow.spaceIndex;
                    row.resolvedDisplayName = windowRow.displayName;
                }
            }
        }
        info.items.push_back(std::move(row));
    }
    return info;
}

command::StageProviders StageService::commandProviders(CommandHooks hooks) {
    command::StageProviders p;
    p.stageExists = [this](const std::string& key) { return store_.stage(key) != nullptr; };
    p.listStages = [this, hooks](const std::optional<std::string>& key, bool includeWindows) {
        std::vector<command::ZelkStageInfo> out;
        for (const auto& stage : store_.stages())
            if (!key || stage.key == *key) out.push_back(stageInfo(stage, includeWindows, hooks));
        return out;
    };
    p.screenMatches = [this](const std::string& name) {
        return screenNameMatches(
            name, screenListFrom(platform_.screens->screens(), platform_.screens->mainScreen()));
    };
    p.placeTarget = [this, hooks](const command::ZelkRequest& r) -> std::optional<command::PlaceTarget> {
        std::optional<ManagedWindow> window;
        auto byID = [&](std::uint32_t id) -> std::optional<ManagedWindow> {
            for (const auto& w : windows_->windows())
                if (w.id == id) return w;
            return std::nullopt;
        };
        bool named = r.windowID || (r.query && !r.query->empty()) || (r.appQuery && !r.appQuery->empty());
        if (named) {
            auto request = r;
            if ((!request.query || request.query->empty()) && request.appQuery)
                request.query = request.appQuery;
            auto ids = hooks.findWindows(request);
            if (!ids.empty()) window = byID(ids.front());
        } else {
            window = windows_->focusedWindow();
        }
        if (!window) return std::nullopt;
        return command::PlaceTarget{window->id, window->appName, window->bundleIdentifier};
    };
    p.knowsApp = hooks.knowsApp;
    p.activeStageKey = [this] { return store_.activeStageKey(); };
    p.activateStage = [this](const std::string& key) { activateStage(key); };
    p.captureDebug = [this](const command::ZelkRequest& r) {
        auto capture = captureCurrentWindows();
        nlohmann::json items = nlohmann::json::array();
        for (const auto& item : capture.items) {
            if (r.appQuery && !r.appQuery->empty() && item.bundleID() != *r.appQuery &&
                !(item.app && item.app->name() == *r.appQuery))
                continue;
            auto row = toJson(item);
            if (item.windowID) row["windowID"] = *item.windowID;
            row["spec"] = describe(item.windowSpec);
            if (item.windowPlacement) row["placement"] = describePlacement(*item.windowPlacement);
            items.push_back(row);
        }
        nlohmann::json out{{"items", items}};
        if (capture.spaceID) out["spaceID"] = *capture.spaceID;
        return out;
    };
    p.stageDebug = [this](const command::ZelkRequest& r) {
        nlohmann::json out;
        const auto& active = store_.activeStageKey();
        out["activeStageKey"] = active ? nlohmann::json(*active) : nlohmann::json(nullptr);
        out["activeStageBundleIDs"] = store_.activeStageBundleIDs();
        out["lastFocusedWindowByStage"] = activator_->lastFocusedWindowByStage();
        const auto& activating = activator_->stageActivatingKey();
        out["stageActivatingKey"] = activating ? nlohmann::json(*activating) : nlohmann::json(nullptr);
        out["hydrationScheduled"] = activator_->hydrationScheduled();
        nlohmann::json stashed = nlohmann::json::array();
        for (const auto& [id, record] : stash_.windowsMovedOffScreen())
            stashed.push_back(toJson(record));
        out["stashed"] = stashed;
        nlohmann::json stored = nlohmann::json::array();
        for (const auto& s : store_.stages())
            stored.push_back(toJson(s));
        out["stages"] = stored;
        std::string key = r.stageKey && !r.stageKey->empty() ? *r.stageKey : active.value_or("");
        if (const Stage* stage = store_.stage(key)) {
            nlohmann::json resolved = nlohmann::json::array();
            for (const auto& item : stage->items) {
                auto w = resolve(item);
                resolved.push_back({{"spec", describe(item.windowSpec)},
                                    {"windowID", w ? nlohmann::json(w->id) : nlohmann::json(nullptr)}});
            }
            out["stage"] = {{"key", stage->key}, {"name", stage->name}, {"items", resolved}};
        }
        return out;
    };
    p.closeStage = [this](const std::string& key) { closeStage(key); };
    p.placeWindow = [this](std::uint32_t id, const WindowPlacement& placement) {
        for (const auto& w : windows_->windows())
            if (w.id == id) return placer_.placeWindow(w, placement);
        return false;
    };
    return p;
}

}  // namespace zelk::stages
