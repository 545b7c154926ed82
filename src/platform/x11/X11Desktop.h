#pragma once
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/Platform.h"
#include "platform/x11/ChangeFeed.h"
#include "platform/x11/DesktopEntries.h"
#include "platform/x11/X11Connection.h"

namespace zelk::x11 {

class X11Desktop;

// Desktops are Spaces: desktop n is Space n + 1, so that no Space id is 0.
inline std::uint64_t spaceForDesktop(std::uint32_t desktop) {
    return std::uint64_t{desktop} + 1;
}
inline std::optional<std::uint32_t> desktopForSpace(std::uint64_t space, std::uint32_t count) {
    if (space == 0 || space > count) return std::nullopt;
    return static_cast<std::uint32_t>(space - 1);
}

// Apps with no desktop entry are known by their window class alone; their stand-in bundle path names
// the class, so the catalogue can list them, letters can reach them and the app commands find them.
constexpr std::string_view kClassPathPrefix = "x11-window-class:";

// A completed swipe in a posted gesture stream: +1 to the next desktop, -1 to the previous one.
class SwipeDecoder {
  public:
    int post(const platform::GestureEvent& event);

  private:
    bool began_ = false;
};

class X11WindowServer final : public platform::WindowServer {
  public:
    explicit X11WindowServer(X11Desktop& desktop) : d_(desktop) {}
    std::uint32_t mainConnectionID() override { return 1; }
    std::uint64_t activeSpace() override;
    std::optional<std::vector<platform::DisplaySpaces>> managedDisplaySpaces() override;
    std::optional<std::string> activeMenuBarDisplayIdentifier() override;
    std::vector<std::uint64_t> spacesForWindows(int selector,
                                                const std::vector<std::uint32_t>& windows) override;
    std::vector<std::uint32_t> windowsOnSpace(std::uint64_t space, int options) override;
    std::optional<std::uint32_t> windowOwner(std::uint32_t window) override;
    std::optional<std::int32_t> connectionPID(std::uint32_t connection) override;
    std::optional<std::string> windowTitle(std::uint32_t window) override;
    std::optional<Rect> windowBounds(std::uint32_t window) override;
    std::optional<std::int32_t> windowLevel(std::uint32_t window) override;
    std::vector<platform::WindowInfo> windowList(int option, std::uint32_t relativeTo) override;
    bool screenCaptureAccess() override { return true; }
    bool requestScreenCaptureAccess() override { return true; }
    std::optional<platform::ProcessSerialNumber> processForPID(std::int32_t pid) override;
    bool setFrontProcessWithOptions(platform::ProcessSerialNumber psn, std::uint32_t window,
                                    std::uint32_t mode) override;
    bool postEventRecordTo(platform::ProcessSerialNumber psn,
                           const std::vector<std::uint8_t>& record) override;
    bool spaceSetFrontPSN(std::uint64_t space, platform::ProcessSerialNumber psn) override;
    bool managedDisplaySetCurrentSpace(const std::string& display, std::uint64_t space) override;
    bool moveWindowsToManagedSpace(const std::vector<std::uint32_t>& windows, std::uint64_t space) override;
    bool bridgedMoveAvailable() override { return false; }
    bool bridgedMoveWindows(const std::vector<std::uint32_t>&, std::uint64_t) override { return false; }
    bool registerNotifyProc(int code, NotifyCallback callback) override;
    std::optional<platform::SymbolicHotKey> symbolicHotKeyValue(int) override { return std::nullopt; }
    bool isSymbolicHotKeyEnabled(int) override { return false; }
    bool setSymbolicHotKeyEnabled(int, bool) override { return false; }
    void coreDockSendNotification(const std::string& name) override;
    bool postGestureEvent(const platform::GestureEvent& event) override;
    std::vector<std::uint8_t> eventData(const platform::GestureEvent& event) override;
    std::optional<platform::GestureEvent> eventFromData(const std::vector<std::uint8_t>& data) override;
    std::vector<platform::WindowImage> captureWindows(const std::vector<std::uint32_t>&,
                                                      std::uint32_t) override {
        return {};
    }
    // Selects the compact swipe form, which this backend reads as desktop steps.
    int osMajorVersion() override { return 14; }

    void dispatch(const Change& change);

  private:
    X11Desktop& d_;
    SwipeDecoder swipes_;
    std::optional<std::uint32_t> requested_;  // the desktop a swipe asked for, until it shows
    std::multimap<int, NotifyCallback> notify_;
};

class X11Accessibility final : public platform::Accessibility {
  public:
    explicit X11Accessibility(X11Desktop& desktop) : d_(desktop) {}
    bool isProcessTrusted() override { return true; }
    bool isProcessTrustedWithPrompt(bool) override { return true; }
    platform::AXRef applicationElement(std::int32_t pid) override;
    platform::AXRef systemWideElement() override;
    void setMessagingTimeout(platform::AXRef, double) override {}
    platform::AXResult<platform::AXValue> copyAttribute(platform::AXRef element,
                                                        const std::string& attribute) override;
    platform::AXError setAttribute(platform::AXRef element, const std::string& attribute,
                                   const platform::AXValue& value) override;
    platform::AXError performAction(platform::AXRef element, const std::string& action) override;
    platform::AXResult<platform::AXRef> elementAtPosition(platform::AXRef application, Point point) override;
    std::uint32_t windowNumber(platform::AXRef window) override;
    std::int32_t pidOf(platform::AXRef element) override;
    std::uint64_t createObserver(std::int32_t pid, ObserverCallback callback) override;
    platform::AXError addNotification(std::uint64_t observer, platform::AXRef element,
                                      const std::string& notification) override;
    platform::AXError removeNotification(std::uint64_t observer, platform::AXRef element,
                                         const std::string& notification) override;
    void destroyObserver(std::uint64_t observer) override { observers_.erase(observer); }

    void dispatch(const Change& change);

  private:
    enum class Kind : std::uint8_t { none, app, window, systemWide, closeButton };
    static platform::AXRef make(Kind kind, std::int32_t pid, std::uint32_t window);
    static Kind kindOf(platform::AXRef r) { return static_cast<Kind>(r >> 56); }
    static std::uint32_t windowOf(platform::AXRef r) { return static_cast<std::uint32_t>(r & 0xFFFFFFFF); }
    void fire(std::int32_t pid, std::uint32_t window, const std::string& notification);
    struct Observer {
        std::int32_t pid;
        ObserverCallback callback;
        std::set<std::pair<platform::AXRef, std::string>> registrations;
    };
    X11Desktop& d_;
    std::map<std::uint64_t, Observer> observers_;
    std::uint64_t nextObserver_ = 1;
};

class X11Workspace final : public platform::Workspace {
  public:
    explicit X11Workspace(X11Desktop& desktop) : d_(desktop) {}
    std::vector<platform::RunningApp> runningApplications() override;
    std::optional<platform::RunningApp> frontmostApplication() override;
    std::optional<platform::RunningApp> runningApp(std::int32_t pid) override;
    std::int32_t ownPID() override;
    std::string ownBundleID() override { return "com.ferrowlabs.zelk"; }
    bool activate(std::int32_t pid, bool allWindows) override;
    bool hide(std::int32_t pid) override;
    bool unhide(std::int32_t pid) override;
    bool terminate(std::int32_t pid) override;
    bool forceTerminate(std::int32_t pid) override;
    void openApplication(const std::string& path, const platform::OpenConfiguration& config,
                         std::function<void(platform::LaunchResult)> completion) override;
    void open(const std::string& url, const std::string& appPath, const platform::OpenConfiguration& config,
              std::function<void(platform::LaunchResult)> completion) override;
    std::vector<std::string> applicationDirectories() override { return applicationFolders(); }
    std::string homeDirectory() override;
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

    void dispatch(const Change& change, const Snapshot& before);

  private:
    X11Desktop& d_;
};

class X11Screens final : public platform::Screens {
  public:
    explicit X11Screens(X11Desktop& desktop) : d_(desktop) {}
    std::vector<platform::Screen> screens() override;
    std::optional<platform::Screen> mainScreen() override;

  private:
    X11Desktop& d_;
};

class X11Pointer final : public platform::Pointer {
  public:
    explicit X11Pointer(X11Desktop& desktop) : d_(desktop) {}
    Point location() override;
    void warp(Point to) override;
    std::uint32_t pressedButtons() override;

  private:
    X11Desktop& d_;
};

// Banners through the freedesktop notification service (`notify-send`) when it is installed, else the
// log; distributed notifications travel between observers of this process.
class X11Notifications final : public platform::Notifications {
  public:
    void postUserNotification(const std::string& identifier, const std::string& title,
                              const std::string& body) override;
    void postDistributed(const std::string& name, const platform::UserInfo& userInfo) override;
    ferrow::Subscription observeDistributed(const std::string& name,
                                            std::function<void(const platform::UserInfo&)> callback) override;

  private:
    std::map<std::string, std::shared_ptr<ferrow::Signal<platform::UserInfo>>> channels_;
};

// Child processes, run for real.
class X11Processes final : public platform::Processes {
  public:
    platform::ProcessResult run(const platform::ProcessRequest& request) override;
    std::optional<std::string> runScript(const std::string& source, std::string* error) override;
};

class X11EventTap;

// The X11 desktop behind every platform interface: one connection for reads and requests, one for the
// key tap, and a thread that turns the server's events into the notifications the logic listens to.
class X11Desktop {
  public:
    // Connects to the display (empty: $DISPLAY); nullptr with `error` set when it can't.
    static std::unique_ptr<X11Desktop> open(const std::string& display, std::string& error);
    ~X11Desktop();
    platform::Platform platform(platform::SettingsStore* settings);

    Connection& conn() { return *conn_; }
    std::shared_ptr<const Snapshot> snapshot() { return conn_->snapshot(); }
    // Running apps: clients grouped by process, named by their desktop entries.
    std::vector<platform::RunningApp> apps(const Snapshot& snapshot);
    std::vector<DesktopEntry> entries();
    void rescanEntries();
    std::vector<platform::Screen> screens();
    // The display that shows the desktops (the primary output).
    std::string primaryDisplay();
    const std::string& displayName() const { return displayName_; }
    X11WindowServer& windowServer() { return windowServer_; }

  private:
    X11Desktop() = default;
    void startPump();
    void pump();
    void watchClients(const Snapshot& snapshot);

    std::string displayName_;
    std::unique_ptr<Connection> conn_;
    std::shared_ptr<Connection> events_;
    X11WindowServer windowServer_{*this};
    X11Accessibility accessibility_{*this};
    X11Workspace workspace_{*this};
    X11Screens screens_{*this};
    X11Pointer pointer_{*this};
    X11Notifications notifications_;
    X11Processes processes_;
    std::unique_ptr<X11EventTap> eventTap_;
    std::mutex entriesMutex_;
    std::vector<DesktopEntry> entries_;
    std::shared_ptr<const Snapshot> last_;
    std::set<std::uint32_t> watched_;
    std::mutex watchMutex_;
    std::vector<std::uint32_t> toWatch_;  // clients the listening thread is to select events on
    std::thread thread_;
    int wake_[2] = {-1, -1};
    std::atomic<bool> pumpQueued_{false};
    std::atomic<bool> stopping_{false};
};

}  // namespace zelk::x11
