#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "input/Onboarding.h"
#include "platform/Key.h"
#include "platform/Workspace.h"
#include "support/MainQueue.h"
#include "support/Observable.h"
#include "support/Timing.h"

namespace zelk {

// The holder of the program's top-level state: the start-up order, the subscriptions that live for the
// run, the watch on running apps, the wait for the accessibility permission, the reopen rules and the
// termination handler.
class AppDelegate {
  public:
    struct Options {
        bool startCommandService = true;  // the replay bench feeds commands itself
    };
    AppDelegate();
    explicit AppDelegate(Options options);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // The process-wide reference, set as launching finishes.
    static AppDelegate* shared();

    void applicationWillFinishLaunching();
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    void applicationDidBecomeActive();
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void applicationOpenURLs(const std::vector<std::string>& urls);
    void showPopoverFromReopen();

    // The wait for the accessibility permission; `permissionsGranted` starts the tap.
    void startAccessibilityWait(bool prompt, const std::string& notificationTitle);
    void permissionsGranted(const std::string& notificationTitle);
    bool accessibilityWaitRunning() const { return permissionsChecker_ != nullptr; }

    // The running-apps watch (debounced 500 ms from the workspace's change notification).
    void runningAppsChanged(const std::vector<platform::RunningApp>& oldApps,
                            const std::vector<platform::RunningApp>& newApps);
    const std::set<std::string>& problematicApps() const { return problematicApps_; }

    // Where the onboarding flow stands; the panel's gate reads it.
    Onboarding& onboarding() { return onboarding_; }

    // The application keys: alphanumerics less the hide key's character.
    const std::vector<std::string>& keys() const { return keys_; }
    void recomputeKeyLists();
    const std::vector<Key>& appSwitchKeys() const { return appSwitchKeys_; }
    const std::vector<Key>& windowSwitchKeys() const { return windowSwitchKeys_; }

    nlohmann::ordered_json handleCommand(const nlohmann::json& request);

    // Other parts join the run through these signals.
    ferrow::Signal<std::vector<platform::RunningApp>> runningAppsDidChange;
    ferrow::Signal<std::optional<platform::RunningApp>> frontmostAppDidChange;

    // Steps of the start and stop whose subsystems join later; each is optional.
    std::function<void()> startCommandServiceHook;
    std::function<void()> buildInstalledAppsHook;
    std::function<void()> preparePanelHook;
    std::function<void()> startConfigSyncHook;
    std::function<void()> startSpacesIndicatorHook;
    std::function<void()> flushConfigHook;
    std::function<void()> restoreStashedWindowsHook;
    std::function<void(const std::string& surface)> toggleLatchedSearchHook;
    std::function<nlohmann::ordered_json(const nlohmann::json&)> commandHandlerHook;
    // The window keys in use: of the keys the window trigger may take, the tap catches only these
    // (all of them until window keys exist).
    std::function<std::vector<Key>(const std::vector<Key>&)> windowKeysInUseHook;

    // State the hide key keeps (hotkey routing).
    std::vector<platform::RunningApp> appsThatWereHidden;
    ferrow::WorkItem hideAllAppsDecaying;
    bool didBecomeActiveAtLeastOnce = false;
    bool popoverVisible = false;
    bool osdHidden = true;
    int popoverRequests = 0;

  private:
    void singleInstanceRule();
    void setUpObservers();
    void onOSDNotification(const std::map<std::string, std::string>& userInfo);

    Options options_;
    std::vector<std::string> keys_;
    std::vector<Key> appSwitchKeys_, windowSwitchKeys_;
    std::set<std::string> problematicApps_;
    Onboarding onboarding_;
    std::map<std::string, int> possibleProblematicAppCounts_;
    std::map<std::string, ferrow::Nanos> possibleProblematicAppDates_;
    std::vector<ferrow::Subscription> observers_;
    std::unique_ptr<ferrow::Repeater> permissionsChecker_;
    ferrow::Debouncer runningAppsDebounce_{ferrow::ms(500)};
    ferrow::Debouncer frontmostDebounce_{ferrow::ms(10)};
    ferrow::Debouncer ignoredKeysDebounce_{ferrow::ms(30)};
    std::vector<platform::RunningApp> lastRunningApps_;
    bool launched_ = false;
    bool terminated_ = false;
};

}  // namespace zelk
