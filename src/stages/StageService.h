#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "command/StageCommands.h"
#include "platform/Platform.h"
#include "stages/KittyCWDTable.h"
#include "stages/OffScreenStash.h"
#include "stages/StageActivation.h"
#include "stages/StageStore.h"
#include "stages/StageToast.h"
#include "stages/StageWindowOpener.h"
#include "stages/WindowCapture.h"
#include "stages/WindowPlacer.h"
#include "stages/WindowResolve.h"

namespace zelk::windows {
class WindowManager;
}

namespace zelk::stages {

// Window facts read as capture reads them: the Finder's folder, Chromium and Safari pages and iTerm
// folders through their scripts (2 s each), Firefox pages through the accessibility tree, everything else
// through the window's accessibility document (a file URL read as its path).
class AccessibilityWindowFacts : public WindowFacts {
  public:
    explicit AccessibilityWindowFacts(const platform::Platform& platform) : p_(platform) {}
    bool isAppRunning(std::string_view bundleID) override;
    std::optional<std::string> documentOf(const windows::ManagedWindow& window) override;
    std::optional<std::string> browserURLOf(const windows::ManagedWindow& window) override;
    std::optional<std::string> terminalCWDOf(const windows::ManagedWindow& window) override;
    // The window's AXDocument alone.
    std::optional<std::string> axDocumentOf(const windows::ManagedWindow& window);
    // kitty's own answer for its windows; none: kitty windows are read as other terminals.
    void setKittyTable(KittyCWDTable* table) { kitty_ = table; }

  private:
    std::optional<std::string> script(const std::string& source);
    platform::Platform p_;
    KittyCWDTable* kitty_ = nullptr;
};

// Capture's reads of the desktop: scripts with the 2 s time-out, the accessibility document, the
// tracked windows of an app.
class PlatformCaptureFacts : public CaptureFacts {
  public:
    PlatformCaptureFacts(const platform::Platform& platform, windows::WindowManager& windows,
                         KittyCWDTable& kitty)
        : p_(platform), windows_(&windows), kitty_(&kitty) {}
    std::optional<std::string> runScript(const std::string& source) override;
    std::optional<std::string> axDocument(std::int32_t pid, std::uint32_t windowID) override;
    std::size_t trackedWindowCount(std::string_view bundleID) override;
    std::optional<std::string> firefoxURL(std::int32_t pid, std::uint32_t windowID) override;
    std::optional<std::string> kittyCWD(std::uint32_t windowID) override;
    std::filesystem::path applicationSupportFolder() override;

  private:
    platform::Platform p_;
    windows::WindowManager* windows_;
    KittyCWDTable* kitty_;
};

// A capture of the current windows: the items and the Space they stand on.
struct StageCapture {
    std::vector<StageItem> items;
    std::optional<std::uint64_t> spaceID;
};

// The stage subsystem as the agent runs it: the saved stages, resolution against the tracked
// windows, placement, capture and activation. Main thread only.
class StageService {
  public:
    // What the agent lends the stage subsystem beyond the window manager.
    struct AgentHooks {
        // The catalogue's app record of a running app's window; nothing when it has none.
        std::function<std::shared_ptr<apps::LaunchableApp>(const windows::ManagedWindow&)> appFor;
        // The catalogue's launch of an app by identifier.
        std::function<bool(const std::string& bundleID, bool activates)> launchApp;
        // The declared category of an app (empty when unknown), for the whole-app rule.
        std::function<std::string(const std::string& bundleID)> categoryOf;
        // Switches the display that holds the Space to it.
        std::function<bool(std::uint64_t space)> switchToSpace;
        std::function<void(std::function<void(std::optional<std::uint64_t>)>)> createSpace;
        std::function<void(const std::string& title, const std::string& line, std::int64_t ms)> toast;
    };

    StageService(windows::WindowManager& windows, Settings& settings, const platform::Platform& platform);
    ~StageService();
    // Activation and capture are wired once the agent's other parts exist.
    void attach(AgentHooks hooks);

    StageStore& store() { return store_; }
    StageDirectory& directory() { return store_; }
    WindowPlacer& placer() { return placer_; }
    OffScreenStash& stash() { return stash_; }
    std::optional<windows::ManagedWindow> resolve(const StageItem& item);
    StageActivator& activator() { return *activator_; }
    // The toast a stage shows when it can't come up.
    StageToast& toast() { return toast_; }

    // Recalls a stage; false when no stage is on the key.
    bool activateStage(const std::string& key);
    // The live windows of the active stage, for moves of the stage between Spaces.
    std::vector<windows::ManagedWindow> activeStageWindows();
    // Opens the window one item stands for (its document, address, folder, or the app); recently
    // closed windows come back this way too.
    void openStageWindow(const StageItem& item, bool activates) { opener_->openStageWindow(item, activates); }

    // One item per visible window on the active Space, front to back by the most-recent order.
    StageCapture captureCurrentWindows();
    // Saves the current windows as a stage on the first free letter, named after it; nothing when
    // there is nothing to capture.
    std::optional<std::string> saveCurrentWindowsAsStage();

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
    KittyCWDTable kitty_;
    AccessibilityWindowFacts facts_;
    DiskFileView files_;
    WindowPlacer placer_;
    OffScreenStash stash_;
    AgentHooks hooks_;
    StageToast toast_;
    PlatformCaptureFacts captureFacts_;
    std::unique_ptr<StageWindowOpener> opener_;
    std::unique_ptr<StageActivator> activator_;
    ferrow::Subscription focusWatch_;
};

}  // namespace zelk::stages
