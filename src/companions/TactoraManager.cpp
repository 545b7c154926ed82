#include "companions/TactoraManager.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "config/SettingsCatalogue.h"
#include "platform/Key.h"
#include "stages/StageModel.h"
#include "support/Log.h"

namespace zelk::companions {

using ferrow::Log;
namespace fs = std::filesystem;

std::string describe(const TactoraInstallState& s) {
    using K = TactoraInstallState::Kind;
    switch (s.kind) {
        case K::notInstalled:
            return "notInstalled";
        case K::downloading:
            return fmt::format("downloading({:.2f})", s.fraction);
        case K::extracting:
            return "extracting";
        case K::configuring:
            return "configuring";
        case K::installed:
            return "installed";
        case K::failed:
            return "failed(" + s.message + ")";
    }
    return "";
}

std::vector<std::string> parseThemeList(const std::string& text) {
    std::vector<std::string> names;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.starts_with(" *")) line = line.substr(2);
        auto first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos) continue;
        auto last = line.find_last_not_of(" \t\r");
        names.push_back(line.substr(first, last - first + 1));
    }
    return names;
}

TactoraManager::TactoraManager(Settings& settings, Sources sources)
    : settings_(settings), sources_(std::move(sources)) {}

TactoraManager::~TactoraManager() {
    *alive_ = false;
    holdWorkItem_.cancel();
    for (auto& w : later_)
        w.cancel();
}

bool TactoraManager::appExists() const {
    return sources_.workspace && sources_.workspace->fileExists(kAppPath);
}

void TactoraManager::start() {
    installState.set(appExists() ? TactoraInstallState{TactoraInstallState::Kind::installed}
                                 : TactoraInstallState{});
    auto isCompanion = [this] {
        if (!sources_.workspace) return false;
        for (const auto& app : sources_.workspace->runningApplications())
            if (app.bundleID == kBundleID && !app.terminated) return true;
        return false;
    };
    running.set(isCompanion());
    if (sources_.workspace)
        subscriptions_.push_back(
            sources_.workspace->observe([this, isCompanion](const platform::WorkspaceEvent& e) {
                if (e.app && e.app->bundleID == kBundleID) running.set(isCompanion());
            }));
    // The payload is built from these; any change means a rebuild, and a re-send while shown.
    for (const char* key :
         {"appKeyAssignments", "tactoraFillMode", "tactoraOnlyRunningAndStatic", "spaceMode",
          "createMissingSpaces", "enableHideAndSettingsKeys", "enableWindowSpecialKeys", "exposeOverlay",
          "enableTabCycle", "enableWindowCycleKey", "showAppSwitcher", "minimizeKey", "specialKey",
          "exposeKey", "windowCycleKey"})
        subscriptions_.push_back(settings_.observe(key, [this] { bindingsChanged(); }));
    if (sources_.notifications)
        subscriptions_.push_back(sources_.notifications->observeDistributed(
            "AppleInterfaceThemeChangedNotification",
            [this](const platform::UserInfo&) { bindingsChanged(); }));
    if (appExists()) {
        std::weak_ptr<bool> alive = alive_;
        later_.push_back(ferrow::mainAsyncAfter(0, [this, alive] {
            if (alive.lock()) importThemes();
        }));
    }
}

void TactoraManager::post(const std::string& name, const platform::UserInfo& info) {
    // No companion listening is no error: the notification simply reaches nobody.
    Log::debug("tactora: post {} ({} keys)", name, info.size());
    if (sources_.notifications) sources_.notifications->postDistributed(name, info);
}

TactoraPayload TactoraManager::bindings() {
    if (!cachedBindingsUserInfo_) {
        TactoraBindingInputs in = sources_.bindingInputs ? sources_.bindingInputs() : TactoraBindingInputs{};
        in.onlyRunningAndStatic = settings_.get(keys::tactoraOnlyRunningAndStatic);
        in.multiSpace = settings_.get(keys::spaceMode) == SpaceMode::multi;
        in.createMissingSpaces = settings_.get(keys::createMissingSpaces);
        in.hideAndSettingsKeys = settings_.get(keys::enableHideAndSettingsKeys);
        in.minimizeKey = std::string(lowQWERTYCharacter(settings_.get(keys::minimizeKey)));
        in.specialKey = std::string(lowQWERTYCharacter(settings_.get(keys::specialKey)));
        in.exposeOverlay = settings_.get(keys::exposeOverlay);
        in.exposeKey = std::string(lowQWERTYCharacter(settings_.get(keys::exposeKey)));
        in.tabCycle = settings_.get(keys::enableTabCycle);
        in.windowCycleKeyEnabled = settings_.get(keys::enableWindowCycleKey);
        in.windowCycleKey = std::string(lowQWERTYCharacter(settings_.get(keys::windowCycleKey)));
        cachedBindingsUserInfo_ = buildTactoraBindings(in);
    }
    return *cachedBindingsUserInfo_;
}

bool TactoraManager::show() {
    if (!settings_.get(keys::tactoraEnabled) || !appExists()) return false;
    if (sources_.inputSuppressed && sources_.inputSuppressed()) return false;
    const bool dark = sources_.darkAppearance && sources_.darkAppearance();
    post(kShow, tactoraShowPayload(bindings(), settings_.get(keys::tactoraFillMode), dark));
    keyboardCurrentlyShown = true;
    if (settings_.get(keys::tactoraHideOSDWhenShown) && settings_.get(keys::showAppSwitcher) && appExists() &&
        sources_.hideOSD)
        sources_.hideOSD();
    return true;
}

void TactoraManager::hold() {
    if (!settings_.get(keys::tactoraEnabled) || !appExists()) return;
    holdWorkItem_.cancel();
    ferrow::Nanos delay = settings_.get(keys::tactoraHoldDelayEnabled)
                              ? ferrow::seconds(settings_.get(keys::tactoraHoldDelay))
                              : 0;
    delay = std::max(delay, kMinHoldDelay);
    std::weak_ptr<bool> alive = alive_;
    holdWorkItem_ = ferrow::MainQueue::shared().asyncAfter(delay, [this, alive] {
        if (!alive.lock() || suppressedThisCycle) return;
        show();
    });
}

void TactoraManager::hide() {
    if (keyboardCurrentlyShown && settings_.get(keys::tactoraEnabled)) {
        post(kHide, {});
        keyboardCurrentlyShown = false;
    }
}

void TactoraManager::triggerReleased() {
    holdWorkItem_.cancel();
    hide();
    suppressedThisCycle = false;
}

void TactoraManager::keyActed() {
    if (!settings_.get(keys::tactoraEnabled) || !appExists()) return;
    holdWorkItem_.cancel();
    hide();
    suppressedThisCycle = true;
}

void TactoraManager::dismiss() {
    holdWorkItem_.cancel();
    hide();
}

void TactoraManager::bindingsChanged() {
    cachedBindingsUserInfo_.reset();
    if (!keyboardCurrentlyShown || refreshScheduled) return;
    refreshScheduled = true;
    std::weak_ptr<bool> alive = alive_;
    later_.push_back(ferrow::mainAsyncAfter(0, [this, alive] {
        if (!alive.lock()) return;
        refreshScheduled = false;
        // The keyboard may have gone while the re-send waited.
        if (keyboardCurrentlyShown) show();
    }));
    std::erase_if(later_, [](const ferrow::WorkItem& w) { return !w.isPending(); });
}

void TactoraManager::install() {
    Log::info("tactora: install requested; the companion keyboard has no build for this system");
    installState.set(TactoraInstallState::failed("Tactora is not available on this system"));
}

void TactoraManager::uninstall() {
    std::error_code ec;
    fs::remove_all(kAppPath, ec);  // an error is swallowed: there may be nothing to remove
    settings_.set(keys::tactoraInstalled, false);
    settings_.set(keys::tactoraEnabled, false);
    installState.set(TactoraInstallState{});
    running.set(false);
}

void TactoraManager::listThemes(ferrow::Nanos timeout,
                                std::function<void(std::optional<std::vector<std::string>>)> done) {
    fs::path out = sources_.temporaryDirectory / ("zelk-tactora-listThemes-" + stages::makeUUID() + ".out");
    post(kListThemes, {{"file", out.string()}});
    pollThemeList(out, ferrow::now() + timeout, std::move(done));
}

void TactoraManager::pollThemeList(fs::path out, ferrow::Nanos deadline,
                                   std::function<void(std::optional<std::vector<std::string>>)> done) {
    std::error_code ec;
    std::weak_ptr<bool> alive = alive_;
    if (fs::exists(out, ec)) {
        // The companion may still be writing: one more short wait before reading.
        later_.push_back(ferrow::MainQueue::shared().asyncAfter(kFilePoll, [out, done] {
            std::ifstream in(out);
            std::stringstream text;
            text << in.rdbuf();
            std::error_code removeError;
            fs::remove(out, removeError);
            done(parseThemeList(text.str()));
        }));
        return;
    }
    if (ferrow::now() >= deadline) {
        done(std::nullopt);
        return;
    }
    later_.push_back(ferrow::MainQueue::shared().asyncAfter(kFilePoll, [this, alive, out, deadline, done] {
        if (!alive.lock()) return;
        pollThemeList(out, deadline, done);
    }));
    std::erase_if(later_, [](const ferrow::WorkItem& w) { return !w.isPending(); });
}

void TactoraManager::importThemes() {
    if (!appExists()) return;
    std::error_code ec;
    if (sources_.themesResource.empty() || !fs::exists(sources_.themesResource, ec)) {
        Log::error("Bundled tactora-themes.json not found");
        return;
    }
    std::weak_ptr<bool> alive = alive_;
    listThemes(kThemeListTimeout, [this, alive](std::optional<std::vector<std::string>> names) {
        if (!alive.lock()) return;
        if (!names) {
            Log::error("listThemes timed out; skipping theme import to avoid duplicates");
            return;
        }
        auto has = [&](const char* n) { return std::find(names->begin(), names->end(), n) != names->end(); };
        if (has("zelk light") && has("zelk dark")) return;
        fs::path staged =
            sources_.temporaryDirectory / ("zelk-tactora-themes-" + stages::makeUUID() + ".json");
        std::error_code copyError;
        fs::copy_file(sources_.themesResource, staged, fs::copy_options::overwrite_existing, copyError);
        if (copyError) {
            Log::error("Failed to stage themes JSON: {}", copyError.message());
            return;
        }
        post(kImportThemes, {{"file", staged.string()}});
        later_.push_back(ferrow::MainQueue::shared().asyncAfter(kStagedThemesLifetime, [staged] {
            std::error_code removeError;
            fs::remove(staged, removeError);
        }));
    });
}

}  // namespace zelk::companions
