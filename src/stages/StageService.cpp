#include "stages/StageService.h"

#include "config/SettingsCatalogue.h"
#include "windows/WindowManager.h"

namespace zelk::stages {

using windows::ManagedWindow;

bool AccessibilityWindowFacts::isAppRunning(std::string_view bundleID) {
    for (const auto& app : p_.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return true;
    return false;
}

std::optional<std::string> AccessibilityWindowFacts::documentOf(const ManagedWindow& window) {
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
    auto doc = documentOf(window);
    if (doc && (doc->starts_with("http://") || doc->starts_with("https://"))) return doc;
    return std::nullopt;
}

std::optional<std::string> AccessibilityWindowFacts::terminalCWDOf(const ManagedWindow& window) {
    auto doc = documentOf(window);
    if (doc && doc->starts_with("/")) return doc;
    return std::nullopt;
}

StageService::StageService(windows::WindowManager& windows, Settings& settings,
                           const platform::Platform& platform)
    : windows_(&windows),
      platform_(platform),
      store_(settings),
      facts_(platform),
      placer_(WindowPlacer::Sources{platform.accessibility, platform.workspace, platform.screens,
                                    [this] { return windows_->windows(); },
                                    [this](const StageItem& item) { return resolve(item); }}),
      stash_(OffScreenStash::Sources{platform, &settings, [this] { return windows_->windows(); }}) {
    // Parked windows from the last run come back under their records; those that are gone are dropped.
    stash_.load();
    stash_.reconcilePersistedStashes();
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
    p.closeStage = [this](const std::string& key) { closeStage(key); };
    p.placeWindow = [this](std::uint32_t id, const WindowPlacement& placement) {
        for (const auto& w : windows_->windows())
            if (w.id == id) return placer_.placeWindow(w, placement);
        return false;
    };
    return p;
}

}  // namespace zelk::stages
