#pragma once
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "apps/AppCatalogue.h"
#include "apps/AppKeyAssignment.h"
#include "apps/AppLauncher.h"
#include "apps/AppRelevance.h"
#include "apps/AssignmentDerivation.h"
#include "apps/QueryChips.h"
#include "apps/StaticAssignments.h"
#include "config/Setting.h"
#include "config/SettingsCatalogue.h"
#include "platform/Workspace.h"
#include "support/Observable.h"
#include "support/Timing.h"
#include "windows/AppWindow.h"

namespace zelk::apps {

// Holds the catalogue, the running-application views and the key assignments. Main thread only.
// One per program (`shared()`), reset between tests; `start()` subscribes to the workspace and the
// settings, `startInstalledAppsQuery()` starts the catalogue's query and folder watch.
class AppManager {
  public:
    static constexpr int kDynamicLimit = 20;
    static constexpr std::int64_t kRefreshThrottleMs = 50;

    static AppManager& shared();
    static void reset();

    AppManager();
    ~AppManager();
    AppManager(const AppManager&) = delete;
    AppManager& operator=(const AppManager&) = delete;

    void start();
    void startInstalledAppsQuery() { catalogue_.start(); }
    AppCatalogue& catalogue() { return catalogue_; }

    // Running applications. The views are replaced whole when the running-apps watch reports a change
    // (debounced, with apps that keep launching and quitting left out), not on every launch or quit.
    void runningAppsDidChange();
    const std::vector<platform::RunningApp>& allRunningApps() const { return allRunning_; }
    // The relevant running apps, with their records, in the workspace's order.
    const std::vector<RunningEntry>& runningApps() const { return running_; }
    const std::set<std::string>& runningBundleIdentifiers() const { return runningBundles_; }
    std::optional<platform::RunningApp> runningAppByBundleIdentifier(
        const std::string& bundleIdentifier) const;
    std::optional<platform::RunningApp> runningAppByIdentifier(const std::string& identifier) const;
    const std::vector<AppRef>& recentApps() const { return recentApps_; }
    const std::optional<platform::RunningApp>& focusedApp() const { return focusedApp_; }
    std::optional<platform::RunningApp> frontmostApp() const { return focusedApp_; }
    // Running apps for the search with menu-bar apps shown: every running app with a bundle that
    // still exists on disk, in a relevant place or a build folder, and not ignored.
    std::vector<RunningEntry> searchableRunningApps();

    bool isRunning(const LaunchableApp& app) const;
    std::optional<platform::RunningApp> runningApp(const LaunchableApp& app) const;
    bool isRelevant(const LaunchableApp& app);
    bool isAppPathRelevant(const std::string& path) { return pathRelevance_(path); }
    // The record for a running process: the catalogue's when it knows the bundle.
    AppRef launchableAppFor(const platform::RunningApp& process);

    // False, and nothing changes, when the app has a static key.
    bool ignore(const LaunchableApp& app);
    void unignore(const LaunchableApp& app);

    void launch(const AppRef& app, bool activates = true);
    // The catalogue's (or a running) app with this bundle identifier; false when none is known.
    bool launch(const std::string& bundleIdentifier, bool activates = true);
    AppLauncher& launcher() { return launcher_; }

    bool isLowDocumentApp(const std::string& bundleIdentifier, std::optional<std::string> url = std::nullopt);

    // Windows known per bundle (window tracking fills this); decides whether Finder counts.
    void setAppWindowCounts(std::map<std::string, int> counts);

    // Window rows with their keys, per app; the window-key work publishes them.
    using AppWindowRows = std::map<std::string, std::vector<windows::AppWindow>>;
    const AppWindowRows& appWindowsByBundleIdentifier() const { return appWindows_; }
    void setAppWindows(AppWindowRows rows);
    // The focused app's rows by key (several windows may share one); keyless rows are left out.
    AppWindowRows focusedAppWindowsByKey() const;
    // A walk through a key shared by several windows of `bundleID` ended: that key's rows keep the
    // order the walk left them in (last shown first) while the key holds the same windows.
    void keepWindowKeyOrder(const std::string& bundleID, const std::string& key,
                            std::vector<std::uint32_t> order);
    // After every change of the rows or of the focused app.
    ferrow::Signal<> appWindowsChanged;

    // Static assignments.
    const std::vector<AppKeyAssignment>& appKeyAssignments() const { return statics_.all(); }
    const StaticAssignments& staticAssignments() const { return statics_; }
    const AppKeyAssignment* assignmentForKey(const std::string& key) const {
        return statics_.byKey(lowercasedKey(key));
    }
    const AppKeyAssignment* assignmentForBundleIdentifier(const std::string& bundleIdentifier) const {
        return statics_.byBundleIdentifier(bundleIdentifier);
    }
    const std::vector<AppKeyAssignment>& deletedAppKeyAssignments() const { return deleted_; }
    const std::optional<AppKeyAssignment>& lastAppKeyAssignment() const { return last_; }
    void setAppKeyAssignments(std::vector<AppKeyAssignment> list);
    void rebuildAssignmentIndexes();
    AppKeyAssignment assign(const AppRef& app, const std::string& key);
    AppKeyAssignment rebound(const AppKeyAssignment& record, const std::string& newKey);
    // Drops the static assignment, keeping it among the deleted ones.
    bool removeAssignment(const AppKeyAssignment& record);
    void restoreFromDeleted(const AppKeyAssignment& record);

    // Dynamic assignments.
    const std::vector<AppKeyAssignment>& dynamicAppKeyAssignments() const { return dynamic_; }
    const AppKeyAssignment* dynamicAssignmentForKey(const std::string& key) const;
    const AppKeyAssignment* dynamicAssignmentForIdentifier(const std::string& identifier) const;
    const RelatedApps& relatedApps() const { return relatedApps_; }
    const AppKeyAssignment& focusedAppKeyAssignment() const { return focused_; }
    void scheduleDynamicRefresh();
    std::vector<AppKeyAssignment> computeDynamicAssignments(int limit);
    std::optional<RunningEntry> topRunningApp(const std::string& letter,
                                              const std::vector<std::string>& excludedIDs = {});
    // The running app a letter reaches, for keys without a binding.
    std::optional<RunningEntry> nearestRunningApp(const std::string& letter) { return topRunningApp(letter); }
    std::vector<AppRef> relatedAppsFor(const std::string& letter,
                                       const std::vector<std::string>& excludedIDs = {});

    // Learned and pinned queries.
    const QueryChips& queryChipsByBundleID() const { return chips_; }
    const std::set<std::string>& ambiguatingQueryLetters() const { return ambiguating_; }
    bool isAmbiguatingLetter(const std::string& letter) const {
        return ambiguating_.count(lowercasedKey(letter)) > 0;
    }

    // After every change of the static or dynamic assignments, the related apps or the focused
    // app's record.
    ferrow::Signal<> assignmentsChanged;

  private:
    DerivationContext context();
    void refreshRunningApps();
    void onWorkspaceEvent(const platform::WorkspaceEvent& event);
    void frontmostChanged(const std::optional<platform::RunningApp>& app, bool countSwitch);
    void startFocus(const std::optional<platform::RunningApp>& app);
    void setFocusedAssignment(const AppRef& app);
    void loadStaticAssignments();
    void storeStaticAssignments();
    void runDynamicRefresh();
    void refreshQueryChips();
    bool relevantProcess(const platform::RunningApp& process, const AppRef& app);
    bool finderRelevant() const;
    bool isIgnored(const std::string& bundleIdentifier) const;
    void scoresChanged();

    AppCatalogue catalogue_;
    AppLauncher launcher_;
    AssignmentDeriver deriver_;
    StaticAssignments statics_;
    PathRelevanceCache pathRelevance_;
    std::unordered_map<std::string, bool> bundleExists_;  // by bundle path

    std::vector<platform::RunningApp> allRunning_;
    std::vector<RunningEntry> running_;
    std::set<std::string> runningBundles_;
    std::unordered_map<std::string, platform::RunningApp> runningByBundle_, runningByIdentifier_;
    std::unordered_set<std::int32_t> runningPids_;  // of allRunning_
    std::vector<AppRef> recentApps_;
    std::optional<platform::RunningApp> focusedApp_;
    std::map<std::string, int> windowCounts_;
    AppWindowRows appWindows_;
    struct WindowKeyOrder {
        std::string bundleID, key;
        std::vector<std::uint32_t> order;
    };
    std::optional<WindowKeyOrder> windowKeyOrder_;

    std::vector<AppKeyAssignment> dynamic_, deleted_;
    std::unordered_map<std::string, std::size_t> dynamicByIdentifier_;
    std::optional<AppKeyAssignment> last_;
    AppKeyAssignment focused_ = AppKeyAssignment::placeholder();
    RelatedApps relatedCache_, relatedApps_;
    QueryChips chips_;
    std::set<std::string> ambiguating_;
    std::uint64_t prefixesStamp_ = 1;
    bool writingStatics_ = false;

    std::unique_ptr<Setting<StringSet>> ignoredApps_;
    std::unique_ptr<Setting<std::map<std::string, SearchSelection>>> selections_;
    std::unique_ptr<Setting<std::map<std::string, std::string>>> pins_;
    std::unique_ptr<Setting<SearchMatchMode>> matchMode_;
    std::unique_ptr<Setting<std::vector<std::string>>> prefixes_;
    std::unique_ptr<Setting<WhenAlreadyFocusedAction>> globalAction_;
    std::vector<std::string> lowercasedPrefixes_;
    std::vector<ferrow::Subscription> subscriptions_;
    ferrow::Throttler refreshThrottle_{ferrow::ms(kRefreshThrottleMs)};
};

}  // namespace zelk::apps
