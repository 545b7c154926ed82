// The stage subsystem's links to the rest of the agent: the catalogue's apps and launches, Space
// switches by id, the toast, and the stage trigger's keys.
#include <set>

#include "Subsystems.h"
#include "apps/AppManager.h"
#include "platform/Platform.h"
#include "spaces/WindowMover.h"
#include "stages/StageService.h"
#include "support/Log.h"
#include "support/Task.h"
#include "windows/WindowManager.h"

namespace zelk::agent {

namespace {

std::set<std::uint64_t> userSpaceIDs(windows::WindowManager& windows) {
    std::set<std::uint64_t> out;
    for (const auto& display : windows.displaySpaces())
        for (const auto& space : display.spaces)
            if (space.type == 0) out.insert(space.id64);
    return out;
}

// A stage that needs a Space of its own gets one through Mission Control's "+"; the new Space is the
// one that was not there before.
ferrow::Task<> createStageSpace(spaces::MissionControlDriver& missionControl, windows::WindowManager& windows,
                                std::function<void(std::optional<std::uint64_t>)> done) {
    auto before = userSpaceIDs(windows);
    const bool added = co_await missionControl.createNewSpaceViaMissionControl();
    std::optional<std::uint64_t> fresh;
    if (added)
        for (auto id : userSpaceIDs(windows))
            if (!before.contains(id)) fresh = id;
    done(fresh);
}

}  // namespace

void Subsystems::attachStageHooks() {
    stages::StageService::AgentHooks hooks;
    hooks.appFor = [this](const windows::ManagedWindow& w) -> std::shared_ptr<apps::LaunchableApp> {
        for (auto& entry : apps().runningApps())
            if (entry.process.pid == w.appPid) {
                auto app = apps().launchableAppFor(entry.process);
                if (app && !app->isPlaceholder()) return app;
            }
        return nullptr;
    };
    hooks.launchApp = [this](const std::string& bundleID, bool activates) {
        return apps().launch(bundleID, activates);
    };
    hooks.categoryOf = [](const std::string& bundleID) {
        auto* workspace = platform::Platform::current().workspace;
        auto path = workspace->urlForApplication(bundleID);
        auto info = path ? workspace->bundleInfo(*path) : std::nullopt;
        return info ? info->category : std::string();
    };
    hooks.switchToSpace = [this](std::uint64_t space) {
        for (auto& display : windows_->displaySpaces())
            for (std::size_t i = 0; i < display.spaces.size(); ++i)
                if (display.spaces[i].id64 == space)
                    return windows_->switchToSpaceIndex(static_cast<int>(i), display.displayIdentifier);
        return false;
    };
    // Mission Control drives one thing at a time: while a window is being dragged there, no Space is
    // made for a stage.
    hooks.createSpace = [this](std::function<void(std::optional<std::uint64_t>)> done) {
        if (!mover_ || mover_->dragInFlight()) {
            ferrow::Log::info("createStageSpace: Mission Control is busy with a move");
            done(std::nullopt);
            return;
        }
        ferrow::spawn(createStageSpace(mover_->missionControl(), *windows_, std::move(done)));
    };
    hooks.toast = [this](const std::string& title, const std::string& line, std::int64_t ms) {
        ferrow::Log::info("stage toast: {} {} ({} ms)", title, line, ms);
        stages_->toast().show(title, line, ms);
    };
    stages_->attach(std::move(hooks));
}

void Subsystems::fillStageRouting(RoutingServices& s) {
    s.activateStage = [this](const std::string& key) { return stages_->activateStage(key); };
    s.saveStage = [this] {
        if (stages_->saveCurrentWindowsAsStage()) return true;
        ferrow::Log::info("saveStageHotkey: No apps to capture for stage.");
        if (auto* notifications = platform::Platform::current().notifications)
            notifications->postUserNotification("zelk.stage-save", "No apps to capture for stage.", "");
        return false;
    };
    s.closeActiveStage = [this] {
        const auto& key = stages_->directory().activeStageKey();
        if (!key) return false;
        stages_->closeStage(std::string(*key));
        return true;
    };
    s.repositionActiveStage = [this] {
        stages_->activator().repositionActiveStage();
        return stages_->directory().activeStageKey().has_value();
    };
}

}  // namespace zelk::agent
