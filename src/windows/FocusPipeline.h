#pragma once
#include <functional>
#include <map>
#include <optional>

#include "spaces/ISSManager.h"
#include "spaces/SpaceTracker.h"
#include "windows/MostRecentOrder.h"
#include "windows/ReassertLoop.h"
#include "windows/WindowTracker.h"

namespace zelk::windows {

// Brings one window to the front whichever Space it is on, and keeps what this program believes is
// focused safe from stale reports while the system settles.
class FocusPipeline {
  public:
    static constexpr ferrow::Nanos kDeliberateProtection = 400 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kProtectedRevertDelay = 200 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kCrossSpaceReresolve = 2200 * ferrow::kNanosPerMs;

    FocusPipeline(WindowEnvironment& env, WindowTracker& tracker, MostRecentOrder& mru,
                  spaces::SpaceTracker& spaceTracker, spaces::ISSManager& iss);

    // False only when the window's app isn't running.
    bool focus(const ManagedWindow& window);
    // The activation entry for an app: by focus behaviour, a window of it or plain activation.
    bool forceActivate(const platform::RunningApp& app);
    bool focusSameSpaceWindow(const std::string& bundleID);
    bool focusMainWindowIfOnInactiveSpace(const std::string& bundleID);
    void focusSpaceContainingWindow(const ManagedWindow& window);
    // With a target Space the loop only locks in once that Space shows.
    void holdFocusOnMovedWindow(std::uint32_t windowID,
                                std::optional<std::uint64_t> targetSpace = std::nullopt);
    void updateFocusedWindow();
    void setFocusedWindow(const ManagedWindow& window);
    bool focusLastFocusedWindow();
    bool focusPreviousWindowInCurrentApp();
    // Among candidates of one app: the last focused, the app's main window, the first not minimised.
    std::optional<ManagedWindow> pickWindow(const std::string& bundleID,
                                            const std::vector<ManagedWindow>& candidates);

    const std::optional<ManagedWindow>& focusedWindow() const { return focused_.get(); }
    ferrow::Observable<std::optional<ManagedWindow>>& focusedWindowObservable() { return focused_; }
    const std::optional<ManagedWindow>& slot() const { return slot_.get(); }
    void setSlot(std::optional<ManagedWindow> window) { slot_.set(std::move(window)); }
    std::map<std::string, std::uint32_t>& lastFocusedWindowByBundleID() { return lastFocusedByBundle_; }
    std::optional<std::uint32_t> lastDeliberateFocusID() const { return deliberateID_; }
    // Forgets the window focused on purpose (a stage's activation chooses the focus itself).
    void clearDeliberateFocus() {
        deliberateID_.reset();
        deliberateAt_.reset();
    }
    ReassertLoop& reassertLoop() { return reassert_; }
    void scheduleReresolve(ferrow::Nanos delay);
    void forgetWindow(std::uint32_t id);

    // Hooks to other subsystems; empty ones do nothing.
    std::function<void(const ManagedWindow&)> tellPointerFollower;
    // An app activated from outside a window focus (a window focus tells its window instead).
    std::function<void(std::int32_t pid)> tellPointerFollowerOfApp;
    std::function<void(std::uint32_t)> restoreIfStashed;
    std::function<void(const ManagedWindow&)> appFocusedWindowChanged;
    std::function<void()> cancelAllWindowsReassert;

  private:
    void assign(std::optional<ManagedWindow> next);
    void activate(const platform::RunningApp& app, bool liveCrossSpace, bool wasFront);
    bool plainActivate(const platform::RunningApp& app);
    std::optional<platform::RunningApp> runningAppFor(const ManagedWindow& window);
    std::uint64_t activeSpace();

    WindowEnvironment& env_;
    WindowTracker& tracker_;
    MostRecentOrder& mru_;
    spaces::SpaceTracker& spaces_;
    spaces::ISSManager& iss_;
    AXReader ax_;
    KeyWindowRoute route_;
    ReassertLoop reassert_;
    ferrow::Observable<std::optional<ManagedWindow>> focused_;
    ferrow::Observable<std::optional<ManagedWindow>> slot_;
    std::map<std::string, std::uint32_t> lastFocusedByBundle_;
    std::optional<std::uint32_t> deliberateID_;
    std::optional<ferrow::Nanos> deliberateAt_;
    ferrow::WorkItem reresolve_;
    int focusDepth_ = 0;
};

}  // namespace zelk::windows
