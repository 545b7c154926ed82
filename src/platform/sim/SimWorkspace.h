#pragma once
#include "platform/Workspace.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

// The workspace over the simulated world. Its notifications arrive on the main queue, after the
// change, as the real ones do.
class SimWorkspace final : public platform::Workspace {
  public:
    explicit SimWorkspace(SimWorld& world);
    ~SimWorkspace() override;

    std::vector<platform::RunningApp> runningApplications() override { return world_.runningApps(); }
    std::optional<platform::RunningApp> frontmostApplication() override {
        return world_.runningApp(world_.frontPid());
    }
    std::optional<platform::RunningApp> runningApp(std::int32_t pid) override {
        return world_.runningApp(pid);
    }
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
    void queryInstalledApps(std::function<void(std::vector<platform::InstalledApp>)> results) override;
    std::optional<platform::InstalledApp> bundleInfo(const std::string& path) override;
    std::optional<platform::FileIdentity> fileIdentity(const std::string& path) override;
    bool fileExists(const std::string& path) override;

    // Opens handed to apps (URLs and documents), for tests.
    std::vector<std::pair<std::string, std::string>> opened;

  private:
    void onChange(const WorldChange& change);
    platform::InstalledApp installed(const SimApp& app) const;
    SimWorld& world_;
    std::vector<platform::RunningApp> lastRunning_;
    ferrow::Subscription subscription_;
};

}  // namespace zelk::sim
