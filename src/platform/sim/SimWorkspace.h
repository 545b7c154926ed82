#pragma once
#include <map>
#include <memory>
#include <set>

#include "platform/Workspace.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

// The workspace over the simulated world. Its notifications arrive on the main queue, after the
// change, as the real ones do.
class SimWorkspace final : public platform::Workspace {
  public:
    explicit SimWorkspace(SimWorld& world);
    ~SimWorkspace() override;

    std::vector<platform::RunningApp> runningApplications() override;
    std::optional<platform::RunningApp> frontmostApplication() override {
        return runningApp(world_.frontPid());
    }
    std::optional<platform::RunningApp> runningApp(std::int32_t pid) override;
    std::int32_t ownPID() override { return SimWorld::kOwnPID; }
    std::string ownBundleID() override { return SimWorld::kOwnBundleID; }
    bool activate(std::int32_t pid, bool allWindows) override;
    bool hide(std::int32_t pid) override { return world_.hide(pid); }
    bool unhide(std::int32_t pid) override { return world_.unhide(pid); }
    bool terminate(std::int32_t pid) override { return world_.terminate(pid); }
    bool forceTerminate(std::int32_t pid) override { return world_.terminate(pid, true); }
    void openApplication(const std::string& path, const platform::OpenConfiguration& config,
                         std::function<void(platform::LaunchResult)> completion) override;
    void open(const std::string& url, const std::string& appPath, const platform::OpenConfiguration& config,
              std::function<void(platform::LaunchResult)> completion) override;
    std::vector<std::string> applicationDirectories() override;
    std::string homeDirectory() override { return "/Users/sim"; }
    [[nodiscard]] ferrow::Subscription queryInstalledApps(
        bool live, std::function<void(std::vector<platform::InstalledApp>)> results) override;
    platform::FolderWatchHandle watchFolders(
        const std::vector<std::string>& folders,
        std::function<void(const platform::FolderEvent&)> changed) override;
    void readMenuBarFlags(std::vector<std::string> bundlePaths,
                          std::function<void(std::vector<bool>)> done) override;
    std::optional<platform::InstalledApp> bundleInfo(const std::string& path) override;
    std::optional<std::string> urlForApplication(const std::string& bundleID) override;
    std::optional<platform::FileIdentity> fileIdentity(const std::string& path) override;
    bool fileExists(const std::string& path) override;

    // The installed apps changed (an app was added, moved, removed or updated in the world): the live
    // queries gather again and the watched folders of the changed paths report.
    void installedAppsChanged(const std::vector<std::string>& changedPaths = {});

    // What the world doesn't keep about a bundle: the system's use count and the declared category.
    struct BundleExtras {
        std::int64_t useCount = 0;
        std::string category;
    };
    std::map<std::string, BundleExtras> bundleExtras;  // by bundle identifier
    int queryGatherMs = 0;                             // from a query's start (or a change) to its delivery
    int bundleReadDelayMs = 100;                       // the background read of menu-bar flags
    bool folderWatchFails = false;
    std::set<std::string> launchesWithoutPid;  // bundles whose open reports pid -1 and doesn't run
    std::set<std::string>
        identityUnavailable;  // bundles whose running processes don't tell their executable's identity
    std::set<std::string> extraFiles;  // further paths that exist on disk
    // Opens handed to apps (URLs and documents), for tests.
    std::vector<std::pair<std::string, std::string>> opened;
    std::vector<std::string> openedApplications;  // paths given to openApplication
    int liveQueryCount() const;

  private:
    struct Query {
        bool live = false;
        std::function<void(std::vector<platform::InstalledApp>)> results;
    };
    struct Watch {
        std::vector<std::string> folders;
        std::function<void(const platform::FolderEvent&)> changed;
    };
    void onChange(const WorldChange& change);
    void deliver(std::weak_ptr<Query> query);
    platform::RunningApp withLaunchIdentity(platform::RunningApp app) const;
    platform::InstalledApp installed(const SimApp& app) const;
    bool folderExists(const std::string& folder) const;
    SimWorld& world_;
    std::vector<platform::RunningApp> lastRunning_;
    // The identity of each process's executable as it was when the process started: an update on
    // disk afterwards doesn't change what runs.
    std::map<std::int32_t, platform::FileIdentity> launchIdentity_;
    std::vector<std::shared_ptr<Query>> queries_;
    std::map<int, Watch> watches_;
    int nextWatch_ = 0;
    ferrow::Subscription subscription_;
};

}  // namespace zelk::sim
