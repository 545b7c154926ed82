#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "command/StageCommands.h"
#include "platform/Platform.h"
#include "stages/OffScreenStash.h"
#include "stages/StageStore.h"
#include "stages/WindowPlacer.h"
#include "stages/WindowResolve.h"

namespace zelk::windows {
class WindowManager;
}

namespace zelk::stages {

// Window facts read through accessibility: a window's document (a file URL read as its path).
// Browser URLs and terminal folders need scripts and child processes, which this reader does not
// run: those windows fall back to their titles.
class AccessibilityWindowFacts : public WindowFacts {
  public:
    explicit AccessibilityWindowFacts(const platform::Platform& platform) : p_(platform) {}
    bool isAppRunning(std::string_view bundleID) override;
    std::optional<std::string> documentOf(const windows::ManagedWindow& window) override;
    std::optional<std::string> browserURLOf(const windows::ManagedWindow& window) override;
    std::optional<std::string> terminalCWDOf(const windows::ManagedWindow& window) override;

  private:
    platform::Platform p_;
};

// The stage subsystem as the agent runs it: the saved stages, resolution against the tracked
// windows, and placement. Main thread only.
class StageService {
  public:
    StageService(windows::WindowManager& windows, Settings& settings, const platform::Platform& platform);

    StageStore& store() { return store_; }
    StageDirectory& directory() { return store_; }
    WindowPlacer& placer() { return placer_; }
    OffScreenStash& stash() { return stash_; }
    std::optional<windows::ManagedWindow> resolve(const StageItem& item);

    // Ends a stage and deals with its windows as `stageCloseAction` says: closed, minimised or parked
    // off-screen. Items whose window is gone are skipped.
    void closeStage(const std::string& key);

    // What the command providers need from the agent's other parts.
    struct CommandHooks {
        std::function<command::ZelkWindowInfo(const windows::ManagedWindow&)> windowInfo;
        std::function<std::vector<std::uint32_t>(const command::ZelkRequest&)> findWindows;
        std::function<bool(const std::string& bundleID)> knowsApp;
    };
    command::StageProviders commandProviders(CommandHooks hooks);

    // The list row of one stage.
    command::ZelkStageInfo stageInfo(const Stage& stage, bool includeWindows, const CommandHooks& hooks);

  private:
    windows::WindowManager* windows_;
    platform::Platform platform_;
    StageStore store_;
    AccessibilityWindowFacts facts_;
    DiskFileView files_;
    WindowPlacer placer_;
    OffScreenStash stash_;
};

}  // namespace zelk::stages
