#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/FocusOptions.h"
#include "config/Settings.h"
#include "platform/Platform.h"
#include "stages/OffScreenStash.h"
#include "stages/StageStore.h"
#include "stages/StageWindowOpener.h"
#include "stages/WindowPlacer.h"
#include "support/MainQueue.h"
#include "support/Task.h"
#include "windows/ManagedWindow.h"

// Bringing a stage on screen: its windows found, the missing ones opened and placed, the others of
// its apps parked off-screen, and late windows matched for ten seconds.
namespace zelk::stages {

// What activation needs of the rest of the agent. Every entry is set by the owner.
struct ActivationEnvironment {
    platform::Platform platform;
    StageStore* store = nullptr;
    OffScreenStash* stash = nullptr;
    WindowPlacer* placer = nullptr;
    StageWindowOpener* opener = nullptr;

    std::function<std::vector<windows::ManagedWindow>()> windows;  // tracked, in list order
    std::function<std::optional<windows::ManagedWindow>()> focusedWindow;
    std::function<std::optional<windows::ManagedWindow>(const StageItem&)> resolve;
    std::function<bool(const windows::ManagedWindow&)> focus;
    std::function<bool(const platform::RunningApp&)> forceActivate;
    // Forgets the window the user focused on purpose, so the stage's choice stands.
    std::function<void()> clearDeliberateFocus;
    // Calls back with the first window of the app created within the time-out, or nothing.
    std::function<void(const std::string& bundleID, ferrow::Nanos timeout,
                       std::function<void(std::optional<std::uint32_t>)>)>
        awaitNewWindow;

    // Spaces.
    std::function<std::uint64_t()> activeSpace;
    std::function<std::optional<std::uint64_t>(std::uint32_t windowID)> liveSpaceID;
    // The Spaces that are not a full-screen window's, over all displays, in order.
    std::function<std::vector<std::uint64_t>()> userSpaces;
    // The Spaces that hold a window of another program.
    std::function<std::set<std::uint64_t>()> occupiedSpaces;
    std::function<bool(std::uint64_t space)> switchToSpace;
    // Makes the window's app the front process of that Space before a switch.
    std::function<void(std::uint32_t windowID, std::uint64_t space)> setFrontOnSpace;
    // Adds a Space and calls back with it, or with nothing when that failed.
    std::function<void(std::function<void(std::optional<std::uint64_t>)>)> createSpace;

    // The stage toast: a title with the stage's name in bold, a second line, and how long it shows.
    std::function<void(const std::string& title, const std::string& line, std::int64_t ms)> toast;

    std::function<SpaceMode()> spaceMode;
    std::function<bool()> reopenClosedItems;
};

class StageActivator {
  public:
    explicit StageActivator(ActivationEnvironment env);
    ~StageActivator();
    StageActivator(const StageActivator&) = delete;
    StageActivator& operator=(const StageActivator&) = delete;

    // Recalls the stage on `key`; an unknown key does nothing.
    void activateStage(const std::string& key);
    // Matches the items still without a window; placement for those found.
    void hydrateStage(const std::string& key);
    // Notes the focused window for the active stage, or ends the stage when its windows left the Space.
    void rememberFocusedWindow(std::uint32_t windowID);
    // Re-applies the active stage's placements.
    void repositionActiveStage();
    // Ends the stage's bookkeeping when `key` is closed; closing the active stage brings back the
    // windows its activation parked off-screen.
    void stageClosed(const std::string& key);

    // Opens items grouped by app (groups at once, items of a group in order); an item with a
    // placement gets it on the window that appears for it. `waitForPlacement` (a stage that is fully
    // closed must come up) also brings the apps forward. An item whose open is still under way from
    // an earlier activation is not opened a second time.
    void openStageItems(std::vector<StageItem> items, bool waitForPlacement,
                        std::optional<std::uint64_t> pinnedSpaceID);

    // The live windows of the active stage's items (resolved now); empty while no stage is active.
    std::vector<windows::ManagedWindow> activeStageWindows();

    const std::map<std::string, std::uint32_t>& lastFocusedWindowByStage() const { return lastFocused_; }
    const std::optional<std::string>& stageActivatingKey() const { return activatingKey_; }
    bool hydrationScheduled() const { return !hydration_.empty(); }
    void cancelHydration();

  private:
    struct Resolved {
        windows::ManagedWindow window;
        std::size_t index = 0;
    };
    // The single-Space path.
    void activateInSingleSpace(Stage stage, const std::string& key);
    bool windowsOnAnotherSpace(const Stage& stage);
    std::vector<std::string> unhideAndResolve(Stage& stage, std::vector<Resolved>& resolved,
                                              std::vector<StageItem>& missing);
    void focusInOrder(const Stage& stage, const std::vector<Resolved>& resolved);
    void hideOtherApps(const Stage& stage);
    void stashOtherWindowsOfStageApps(const Stage& stage, const std::vector<Resolved>& resolved);
    void markActive(const Stage& stage, const std::string& key);

    // The multi-Space path.
    void activateStageInMultiSpace(Stage stage, const std::string& key);
    std::optional<std::uint64_t> resolveAndVote(Stage& stage, std::uint64_t active);
    std::optional<std::uint64_t> claimFreeSpace(Stage& stage, std::uint64_t active, const std::string& key,
                                                bool& createNew);
    void finishMulti(const std::string& key, std::uint64_t target, std::uint64_t active);
    void restoreStep(const Stage& stage);
    void focusStep(const Stage& stage, const std::string& key);
    void reopenStep(const Stage& stage);
    ferrow::Task<> fullyClosed(std::string key, std::shared_ptr<bool> alive);

    ferrow::Task<> openGroup(std::vector<StageItem> items, bool waitForPlacement,
                             std::optional<std::uint64_t> pinned, std::shared_ptr<bool> alive);
    ferrow::Task<> ensurePinnedSpace(std::optional<std::uint64_t> pinned, std::shared_ptr<bool> alive);
    void scheduleHydration(const std::string& key);

    std::optional<windows::ManagedWindow> tracked(std::uint32_t windowID) const;
    std::optional<platform::RunningApp> runningApp(const std::string& bundleID) const;
    bool liveMinimized(const windows::ManagedWindow& window) const;
    std::optional<std::uint32_t> systemFocusedWindow() const;

    ActivationEnvironment env_;
    std::map<std::string, std::uint32_t> lastFocused_;
    std::optional<std::string> activatingKey_;
    std::optional<ferrow::Nanos> activatingUntil_;
    std::vector<ferrow::WorkItem> hydration_;
    // Items whose window was asked for, by item id, with when the ask stops counting.
    std::map<std::string, ferrow::Nanos> opening_;
    // Windows of the stage's apps that its activation parked off-screen.
    std::set<std::uint32_t> parked_;
    // Stages whose Space Mission Control is adding now.
    std::set<std::string> makingSpaceFor_;
    ferrow::WorkItem pendingFinish_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::stages
