#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/Observable.h"

namespace zelk::platform {

enum class ActivationPolicy { regular, accessory, prohibited };

// Identity of an executable on disk: a second instance is only refused when it is the same file.
struct FileIdentity {
    std::uint64_t device = 0, inode = 0;
    std::int64_t modified = 0;
    bool operator==(const FileIdentity&) const = default;
};

struct RunningApp {
    std::int32_t pid = 0;
    std::string bundleID;  // empty when the app has none
    std::string name;
    std::string bundlePath;
    std::string executablePath;
    ActivationPolicy activationPolicy = ActivationPolicy::regular;
    bool hidden = false;
    bool terminated = false;
    bool finishedLaunching = true;
    double launchDate = 0;  // wall seconds
    std::optional<FileIdentity> executableIdentity;
    bool operator==(const RunningApp&) const = default;
};

// One result of the installed-application query, or what a bundle on disk says about itself.
struct InstalledApp {
    std::string path;
    std::string bundleID;
    std::string name;        // display name
    std::string bundleName;  // the bundle's own name
    std::string executablePath;
    std::int64_t useCount = 0;  // how often the system saw it opened; 0 unknown
    double lastUsed = 0;        // wall seconds; 0 unknown
    bool isAgent = false;       // a menu-bar or background app
    std::string category;       // the declared application category, empty when none
    bool operator==(const InstalledApp&) const = default;
};

// A change in a watched folder.
struct FolderEvent {
    static constexpr std::uint32_t kHistoryDone = 0x10;
    std::string path;
    std::uint32_t flags = 0;
};

// The handle of a started folder watch, or why it could not start.
struct FolderWatchHandle {
    ferrow::Subscription handle;
    std::string error;  // empty when watching
};

struct OpenConfiguration {
    bool activates = true;
    bool createsNewInstance = false;
    bool promptsUser = false;
    std::vector<std::string> arguments;
};

struct LaunchResult {
    std::optional<RunningApp> app;
    std::string error;  // empty on success
};

enum class WorkspaceEventKind {
    didLaunch,
    didTerminate,
    didActivate,
    didDeactivate,  // the app that was in front lost it; comes before the new one's didActivate
    didHide,
    didUnhide,
    activeSpaceDidChange,
    runningApplicationsChanged,
    screenParametersChanged,
};

struct WorkspaceEvent {
    WorkspaceEventKind kind;
    std::optional<RunningApp> app;
    std::vector<RunningApp> oldApps;  // for runningApplicationsChanged
    std::vector<RunningApp> newApps;
};

// Running and installed applications, as the workspace knows them. Notifications arrive on the main queue.
class Workspace {
  public:
    virtual ~Workspace() = default;
    virtual std::vector<RunningApp> runningApplications() = 0;
    virtual std::optional<RunningApp> frontmostApplication() = 0;
    virtual std::optional<RunningApp> runningApp(std::int32_t pid) = 0;
    virtual std::int32_t ownPID() = 0;
    virtual std::string ownBundleID() = 0;

    // Brings every window of the app forward and makes it frontmost.
    virtual bool activate(std::int32_t pid, bool allWindows) = 0;
    virtual bool hide(std::int32_t pid) = 0;
    virtual bool unhide(std::int32_t pid) = 0;
    virtual bool terminate(std::int32_t pid) = 0;
    virtual bool forceTerminate(std::int32_t pid) = 0;

    // Launches the app at `path`; the completion arrives on the main queue once it runs or failed.
    virtual void openApplication(const std::string& path, const OpenConfiguration& config,
                                 std::function<void(LaunchResult)> completion) = 0;
    // Opens a file or URL, with a given app when `appPath` isn't empty.
    virtual void open(const std::string& url, const std::string& appPath, const OpenConfiguration& config,
                      std::function<void(LaunchResult)> completion) = 0;

    virtual std::vector<std::string> applicationDirectories() = 0;
    virtual std::string homeDirectory() = 0;
    // The metadata query over every application bundle: the whole result list is delivered on the
    // main queue once gathering finishes and, when `live`, again after every later change. The query
    // runs while the handle lives.
    [[nodiscard]] virtual ferrow::Subscription queryInstalledApps(
        bool live, std::function<void(std::vector<InstalledApp>)> results) = 0;
    // Watches the folders (those that exist) for changes; events arrive on the main queue.
    virtual FolderWatchHandle watchFolders(const std::vector<std::string>& folders,
                                           std::function<void(const FolderEvent&)> changed) = 0;
    // Opening bundles is slow: this reads each bundle's menu-bar-only flag off the main thread and
    // calls back on the main queue with one flag per path.
    virtual void readMenuBarFlags(std::vector<std::string> bundlePaths,
                                  std::function<void(std::vector<bool>)> done) = 0;
    virtual std::optional<InstalledApp> bundleInfo(const std::string& path) = 0;
    // Where the system would launch the app with this bundle identifier from.
    virtual std::optional<std::string> urlForApplication(const std::string& bundleID) = 0;
    virtual std::optional<FileIdentity> fileIdentity(const std::string& path) = 0;
    virtual bool fileExists(const std::string& path) = 0;

    [[nodiscard]] ferrow::Subscription observe(std::function<void(const WorkspaceEvent&)> callback) {
        return events_.subscribe(std::move(callback));
    }

  protected:
    void publish(const WorkspaceEvent& event) { events_.emit(event); }

  private:
    ferrow::Signal<WorkspaceEvent> events_;
};

}  // namespace zelk::platform
