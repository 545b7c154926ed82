#pragma once
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "spaces/ISSManager.h"
#include "spaces/SpaceTracker.h"
#include "windows/FocusPipeline.h"
#include "windows/MostRecentOrder.h"
#include "windows/RefreshScheduler.h"
#include "windows/WindowTracker.h"

namespace zelk::windows {

// A new window ready to be acted on.
struct WindowCreated {
    std::int32_t pid = 0;
    std::uint32_t windowID = 0;
    std::string bundleID;
};

// The one object that knows which windows exist, which is focused and which were used last. Owned by
// the agent for the whole run (tests make their own); it takes the Space switcher by reference.
class WindowManager {
  public:
    static constexpr ferrow::Nanos kPolicyPoll = 15 * ferrow::kNanosPerSecond;
    static constexpr ferrow::Nanos kPolicyCheckDelay = 250 * ferrow::kNanosPerMs;

    WindowManager(WindowEnvironment env, spaces::ISSManager& iss);
    ~WindowManager();
    WindowManager(const WindowManager&) = delete;
    WindowManager& operator=(const WindowManager&) = delete;

    // Registers the notifications, attaches the observers and runs the first refresh.
    void start();

    // What the hotkey router and the command service call.
    bool focusApp(const std::string& bundleID);
    bool forceActivate(const platform::RunningApp& app) { return focus_.forceActivate(app); }
    bool focus(const ManagedWindow& window) { return focus_.focus(window); }
    bool focusWindow(std::uint32_t windowID);
    bool focusLastFocusedWindow() { return focus_.focusLastFocusedWindow(); }
    bool focusPreviousWindowInCurrentApp() { return focus_.focusPreviousWindowInCurrentApp(); }
    const std::vector<std::uint32_t>& windowMRU() const { return mru_.ids(); }
    const std::vector<ManagedWindow>& windows() const { return tracker_.windows(); }
    std::vector<ManagedWindow> windowsOfApp(const std::string& bundleID) const {
        return tracker_.windowsOfApp(bundleID);
    }
    const std::optional<ManagedWindow>& focusedWindow() const { return focus_.focusedWindow(); }
    // Every display's Spaces, in display order.
    std::vector<spaces::SpaceInfo> spacesByDisplay();
    std::vector<platform::DisplaySpaces> displaySpaces();
    // `n` counts the user Spaces (full-screen ones have no digit) of the display under the pointer, from 1.
    bool switchToSpaceNumber(int n);
    bool switchToSpaceIndex(int index, const std::optional<std::string>& display = std::nullopt) {
        return iss_.switchToSpace(index, display);
    }
    ferrow::Signal<spaces::ActiveSpaceChange>& activeSpaceDidChange() { return spaces_.activeSpaceChanged; }
    std::uint64_t currentSpaceID() const { return spaces_.currentSpaceID(); }
    std::optional<std::uint64_t> previousSpaceID() const { return spaces_.previousSpaceID(); }
    // The input side calls this when a held gesture ends.
    void flushPendingMRU() { mru_.flushPendingMRU(); }

    // Window tracking.
    bool refreshWindows(bool force) { return tracker_.refreshWindows(force); }
    void refreshApp(const platform::RunningApp& app) { tracker_.refreshApp(app); }
    void pruneWindows(const std::vector<std::uint32_t>& ids) { tracker_.pruneWindows(ids); }
    // Windows pruned by a per-app refresh or a destroy from the window server, before their focus
    // times are forgotten.
    std::function<void(const std::vector<ManagedWindow>&)> windowsPruned;
    // At most one observer per app: a second start for an app already observed does nothing. An app
    // whose observer failed to start gets another try once its accessibility answers again.
    void startObserver(const platform::RunningApp& app);
    void startObservers();
    // The running-apps watch saw a change (debounced, problematic apps left out).
    void runningAppsDidChange();
    ferrow::Signal<WindowCreated>& windowCreatedSubject() { return windowCreated_; }
    // Calls back with the first new window of the bundle, or nullopt after the time-out.
    void awaitNewWindow(const std::string& bundleID, ferrow::Nanos timeout,
                        std::function<void(std::optional<WindowCreated>)> done);

    WindowTracker& tracker() { return tracker_; }
    FocusPipeline& focusPipeline() { return focus_; }
    MostRecentOrder& mru() { return mru_; }
    spaces::SpaceTracker& spaceTracker() { return spaces_; }
    RefreshScheduler& scheduler() { return scheduler_; }
    spaces::ISSManager& iss() { return iss_; }
    bool hasObserver(std::int32_t pid) const { return observers_.count(pid) > 0; }
    bool inPolicyCache(std::int32_t pid) const { return policyCache_.count(pid) > 0; }
    // Delayed work items still held (title polls and policy checks); finished ones are let go.
    std::size_t heldWorkItems() const { return policyChecks_.size() + titlePolls_.size(); }

  private:
    void onWorkspace(const platform::WorkspaceEvent& event);
    void onWindowServer(int code, const std::vector<std::uint8_t>& payload);
    void onAXEvent(const platform::RunningApp& app, platform::AXRef element, const std::string& notification);
    void pollTitle(WindowCreated created, platform::AXRef element, int attempt);
    std::optional<platform::RunningApp> runningApp(std::int32_t pid);
    void afterPublish();
    // Activation policy changes that no notification tells.
    void seedPolicyCache();
    void ensurePolicyTimer();
    void pollPolicies();
    void schedulePolicyCheck(std::int32_t pid);
    void applyPolicy(std::int32_t pid, bool isRegular);

    WindowEnvironment env_;
    spaces::ISSManager& iss_;
    WindowTracker tracker_;
    MostRecentOrder mru_;
    spaces::SpaceTracker spaces_;
    FocusPipeline focus_;
    RefreshScheduler scheduler_;
    std::map<std::int32_t, std::uint64_t> observers_;
    std::set<std::int32_t> failedObservers_;
    ferrow::Signal<WindowCreated> windowCreated_;
    ferrow::Subscription workspaceSub_, closedSub_;
    std::map<std::int32_t, bool> policyCache_;
    std::set<std::int32_t> pendingPolicyChecks_;
    ferrow::WorkItem policyTimer_;
    std::vector<ferrow::WorkItem> policyChecks_;
    std::vector<ferrow::WorkItem> titlePolls_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    bool firstRefreshDone_ = false;
};

}  // namespace zelk::windows
