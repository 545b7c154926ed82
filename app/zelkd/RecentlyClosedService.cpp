#include "RecentlyClosedService.h"

#include "apps/AppManager.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "platform/Platform.h"
#include "stages/BundleTables.h"
#include "stages/StageService.h"
#include "stages/WindowPlacer.h"
#include "support/Log.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

using ferrow::Log;

RecentlyClosedService::RecentlyClosedService(windows::WindowManager& windows) : windows_(windows) {
    windows::RecentlyClosedWindows::Sources sources;
    sources.capture = [this](const windows::ManagedWindow& w) { return capture(w); };
    sources.focusTime = [this](std::uint32_t id) { return windows_.mru().focusTime(id); };
    sources.windowExists = [this](std::uint32_t id) { return windows_.tracker().window(id).has_value(); };
    sources.reopen = [this](const windows::ClosedWindow& e) { reopen(e); };
    closed_ = std::make_unique<windows::RecentlyClosedWindows>(Settings::shared(), std::move(sources));
    subscriptions_.push_back(windows_.focusPipeline().focusedWindowObservable().subscribe(
        [this](const std::optional<windows::ManagedWindow>& w) { closed_->captureLiveSpec(w); }));
    windows_.windowsPruned = [this](const std::vector<windows::ManagedWindow>& gone) {
        closed_->windowsPruned(gone);
    };
}

RecentlyClosedService::~RecentlyClosedService() {
    windows_.windowsPruned = nullptr;
}

stages::WindowSpec RecentlyClosedService::readSpec(const windows::ManagedWindow& w) {
    if (specReader_) return specReader_(w);
    const std::string& bundle = w.bundleIdentifier;
    if (bundle.empty() || stages::isNoCaptureBundle(bundle)) return stages::AppSpec{};
    stages::AccessibilityWindowFacts facts(platform::Platform::current());
    if (stages::isTerminalBundle(bundle)) {
        if (auto cwd = facts.terminalCWDOf(w); cwd && cwd->starts_with("/"))
            return stages::TerminalCWDSpec{*cwd};
        return stages::AppSpec{};
    }
    if (stages::isBrowserBundle(bundle)) {
        if (auto url = facts.browserURLOf(w); url && !url->empty()) return stages::BrowserURLSpec{*url};
        // Without an address, several windows of one browser are still told apart by title.
        if (windows_.windowsOfApp(bundle).size() > 1) return stages::BrowserURLSpec{""};
        return stages::AppSpec{};
    }
    auto doc = facts.documentOf(w);
    if (!doc || !doc->starts_with("/")) return stages::AppSpec{};
    if (stages::isEditorBundle(bundle))
        return stages::DocumentPathSpec{stages::projectRoot(*doc, stages::DiskFileView{})};
    return stages::DocumentPathSpec{*doc};
}

// The capture of a focused window: only apps that run and keep per-window identities, and only a
// window with an identity of its own.
std::optional<windows::CapturedWindowState> RecentlyClosedService::capture(const windows::ManagedWindow& w) {
    auto& apps = apps::AppManager::shared();
    auto running = apps.runningAppByBundleIdentifier(w.bundleIdentifier);
    if (!running) return std::nullopt;
    auto app = apps.launchableAppFor(*running);
    if (!app) return std::nullopt;
    auto& p = platform::Platform::current();
    std::string category;
    if (p.workspace)
        if (auto info = p.workspace->bundleInfo(app->path())) category = info->category;
    if (stages::isAppLevelApp(w.bundleIdentifier, category)) return std::nullopt;
    windows::CapturedWindowState state;
    state.spec = readSpec(w);
    if (stages::isAppSpec(state.spec)) return std::nullopt;
    state.title = w.title;
    state.app = app;
    if (p.windowServer && p.screens)
        if (auto bounds = p.windowServer->windowBounds(w.id);
            bounds && bounds->width > 0 && bounds->height > 0)
            state.placement = stages::placementFor(
                *bounds, stages::screenListFrom(p.screens->screens(), p.screens->mainScreen()));
    return state;
}

// The closed window comes back the way a stage opens a missing window: its document, address or
// folder with its app, or the app itself.
void RecentlyClosedService::reopen(const windows::ClosedWindow& e) {
    if (!e.app) return;
    stages::StageItem item;
    item.id = e.id;
    item.app = e.app;
    item.windowSpec = e.windowSpec;
    item.windowTitle = e.windowTitle;
    item.windowPlacement = e.windowPlacement;
    if (opener_) {
        opener_(item);
        return;
    }
    Log::info("reopenRecentlyClosedWindow: launching {}", e.bundleID());
    apps::AppManager::shared().launch(e.bundleID(), true);
}

std::vector<search::ClosedWindowEntry> RecentlyClosedService::searchEntries() const {
    std::vector<search::ClosedWindowEntry> out;
    const double now = ferrow::MainQueue::shared().clock().wallSeconds();
    for (const auto& e : closed_->entries()) {
        search::ClosedWindowEntry row;
        row.id = e.id;
        row.bundleIdentifier = e.bundleID();
        row.title = e.windowTitle;
        row.appName = e.app ? e.app->name() : "";
        row.age = windows::closedAgo(e.closedAt, now);
        out.push_back(std::move(row));
    }
    return out;
}

std::vector<tabcycle::ClosedWindowRow> RecentlyClosedService::tabCycleRows() const {
    std::vector<tabcycle::ClosedWindowRow> out;
    if (!Settings::shared().get(keys::enableRecentlyClosedWindows)) return out;
    for (const auto& e : closed_->entries()) {
        tabcycle::ClosedWindowRow row;
        row.uuid = e.id;
        row.windowID = e.originalWindowID;
        row.title = e.windowTitle;
        row.appName = e.app ? e.app->name() : "";
        row.bundleIdentifier = e.bundleID();
        out.push_back(std::move(row));
    }
    return out;
}

}  // namespace zelk::agent
