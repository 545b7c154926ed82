#include "apps/AppCatalogue.h"

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "platform/Platform.h"
#include "support/Log.h"

namespace zelk::apps {

using ferrow::Log;

namespace {
platform::Workspace* workspace() {
    return platform::Platform::installed() ? platform::Platform::current().workspace : nullptr;
}
}  // namespace

AppCatalogue::AppCatalogue() = default;

void AppCatalogue::loadIfNeeded() {
    if (loaded_) return;
    loaded_ = true;
    std::vector<AppRef> list;
    for (const auto& j : Settings::shared().get(keys::launchableApps))
        if (auto app = LaunchableApp::fromJson(j)) list.push_back(std::move(app));
    apps_ = std::move(list);
    byBundle_.clear();
    byIdentifier_.clear();
    for (const auto& app : apps_) {
        byBundle_[app->bundleIdentifier()] = app;
        byIdentifier_[app->identifier()] = app;
    }
}

const std::vector<AppRef>& AppCatalogue::apps() {
    loadIfNeeded();
    return apps_;
}

AppRef AppCatalogue::byBundleIdentifier(const std::string& bundleIdentifier) {
    loadIfNeeded();
    auto it = byBundle_.find(bundleIdentifier);
    return it == byBundle_.end() ? nullptr : it->second;
}

AppRef AppCatalogue::byIdentifier(const std::string& identifier) {
    loadIfNeeded();
    auto it = byIdentifier_.find(identifier);
    return it == byIdentifier_.end() ? nullptr : it->second;
}

std::vector<std::string> AppCatalogue::watchedFolders() const {
    auto* ws = workspace();
    std::string home = ws ? ws->homeDirectory() : std::string();
    return {"/Applications",
            "/System/Applications",
            home + "/Applications",
            "/Applications/Utilities",
            "/Applications/Setapp",
            "/System/Applications/Utilities",
            home + "/Applications/JetBrains Toolbox",
            home + "/Applications/Chrome Apps"};
}

void AppCatalogue::start() {
    auto* ws = workspace();
    if (!ws || query_) return;
    loadIfNeeded();
    query_ = ws->queryInstalledApps(true, [this](std::vector<platform::InstalledApp> results) {
        throttle_.call([this, results = std::move(results)] { deliver(results); });
    });
    auto watch =
        ws->watchFolders(watchedFolders(), [this](const platform::FolderEvent& e) { onFolderEvent(e); });
    if (!watch.error.empty())
        Log::error("Could not start FSevent. Error: {}", watch.error);
    else
        folderWatch_ = std::move(watch.handle);
}

void AppCatalogue::stop() {
    query_.cancel();
    rescan_.cancel();
    folderWatch_.cancel();
    throttle_.cancel();
}

void AppCatalogue::onFolderEvent(const platform::FolderEvent& event) {
    if (event.flags == 0 || (event.flags & platform::FolderEvent::kHistoryDone)) return;
    foldersChanged.emit();
    // The live query normally reports the change itself; a one-shot query makes sure a change it
    // missed still reaches the catalogue, through the same throttle.
    auto* ws = workspace();
    if (!ws || !query_) return;
    rescan_ = ws->queryInstalledApps(false, [this](std::vector<platform::InstalledApp> results) {
        throttle_.call([this, results = std::move(results)] { deliver(results); });
    });
}

void AppCatalogue::deliver(const std::vector<platform::InstalledApp>& installedApps) {
    loadIfNeeded();
    std::vector<AppRef> list;
    std::vector<AppRef> fresh;
    for (const auto& item : installedApps) {
        if (item.path.empty() || item.name.empty() || item.bundleID.empty()) continue;
        AppRef existing = byBundleIdentifier(item.bundleID);
        if (existing && existing->useCount() == item.useCount && existing->path() == item.path) {
            list.push_back(existing);
            // A record read from the settings has no menu-bar flag yet: the background pass reads it.
            if (!existing->menuBarFlagKnown()) fresh.push_back(existing);
            continue;
        }
        // A rebuilt record starts counting switches from zero, with a score of its own.
        auto app = std::make_shared<LaunchableApp>(item.path, item.name, item.useCount, item.bundleID);
        list.push_back(app);
        fresh.push_back(app);
    }
    auto* ws = workspace();
    if (fresh.empty() || !ws) {
        install(std::move(list));
        return;
    }
    std::uint64_t generation = ++generation_;
    std::vector<std::string> paths;
    for (const auto& app : fresh)
        paths.push_back(app->path());
    ws->readMenuBarFlags(
        paths, [this, generation, fresh, list = std::move(list)](std::vector<bool> flags) mutable {
            if (generation != generation_) {
                Log::debug("catalogue: dropping the menu-bar pass of build {}, build {} is newer", generation,
                           generation_);
                return;
            }
            for (std::size_t i = 0; i < fresh.size(); ++i)
                fresh[i]->setMenuBarApp(i < flags.size() && flags[i]);
            install(std::move(list));
        });
}

void AppCatalogue::install(std::vector<AppRef> list) {
    auto* ws = workspace();
    bool hasSafari = false;
    for (const auto& app : list)
        hasSafari = hasSafari || app->identifier() == "com.apple.Safari";
    // Safari lives in a cryptex the query doesn't index.
    if (!hasSafari && ws && ws->fileExists(kCryptexSafariPath)) {
        // The record made for it last time lives on, like any record the query reports unchanged.
        AppRef safari = byBundleIdentifier("com.apple.Safari");
        if (!safari || safari->path() != kCryptexSafariPath) {
            auto made = std::make_shared<LaunchableApp>(kCryptexSafariPath, "Safari", 0, "com.apple.Safari");
            made->setMenuBarApp(false);
            safari = made;
        }
        list.push_back(safari);
    }
    apps_ = std::move(list);
    byBundle_.clear();
    byIdentifier_.clear();
    nlohmann::json stored = nlohmann::json::array();
    for (const auto& app : apps_) {
        byBundle_[app->bundleIdentifier()] = app;
        byIdentifier_[app->identifier()] = app;
        stored.push_back(app->toJson());
    }
    Settings::shared().set(keys::launchableApps, stored);
    Log::info("catalogue: installed {} apps", apps_.size());
    installed.emit();
}

}  // namespace zelk::apps
