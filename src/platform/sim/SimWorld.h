#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/Geometry.h"
#include "platform/Workspace.h"
#include "support/Clock.h"
#include "support/Observable.h"

namespace zelk::sim {

enum class AppKind { regular, accessory, background };

struct SimWindow {
    std::uint32_t id = 0;
    std::int32_t pid = 0;
    std::string title;
    Rect frame;
    std::uint64_t space = 0;
    bool minimized = false;
    std::int32_t level = 0;
    std::string role = "AXWindow";
    std::string subrole = "AXStandardWindow";
    std::string document;     // what AXDocument answers (a file URL, or a web page's URL); empty: none
    std::string webArea;      // the URL of the page its accessibility tree shows; empty: no page
    bool fullscreen = false;  // in its own full-screen Space (AXFullScreen)
};

// A window an app opens when it launches.
struct WindowTemplate {
    std::uint32_t id = 0;  // 0: the world picks one
    std::string title;
    Rect frame{100, 100, 1000, 700};
    std::uint64_t space = 0;  // 0: the current Space of the main display
};

struct SimApp {
    std::string bundleID;
    std::string name;
    std::string path;
    AppKind kind = AppKind::regular;
    int launchDelayMs = 200;
    bool installed = true;
    std::vector<WindowTemplate> windowsOnLaunch;  // empty: one window named after the app
    bool finder = false;                          // takes the front when no other app can
    std::string menuExtra;                        // the title of its menu-bar extra; empty: none
    int openDelayMs = 300;                        // from an open of a document, URL or folder to its window
    platform::FileIdentity identity;

    // Running state.
    bool running = false;
    std::int32_t pid = 0;
    bool hidden = false;
    double launchDate = 0;
    std::vector<std::uint32_t> windowOrder;  // front first
    std::uint32_t focusedWindow = 0;
    bool launching = false;
};

struct SimSpace {
    std::uint64_t id = 0;
    bool fullscreen = false;
};

struct SimDisplay {
    std::uint32_t id = 0;
    std::string name;
    std::string uuid;
    Rect frame;
    double menuBarHeight = 25;
    bool builtin = false;
    std::vector<SimSpace> spaces;
    std::uint64_t currentSpace = 0;
};

enum class Overlay { none, missionControl, appExpose };

// Everything that happened on the desktop, whoever caused it; the trace and the backends' notifications
// are made from these.
struct WorldChange {
    enum class Kind {
        launch,      // a launch started: bundle, activates
        appRunning,  // the launched app runs: pid, bundle
        terminate,   // an app ended: pid, bundle (crash too)
        hide,
        unhide,
        activate,  // the frontmost app changed: pid
        focus,     // frontmost app or its focused window changed: pid, window (0: none)
        windowCreated,
        windowClosed,
        windowTitle,
        windowFrame,
        windowSpace,
        windowMinimized,
        space,         // a display now shows a Space: display, space
        pointer,       // a warp: point
        notification,  // a user notification: id, title, body
        overlay,       // Mission Control or App Exposé appeared or left
        keyPosted,     // a made-up key event was posted: pid (route 1), window = key code, flag = down,
                       // display = route, text1 = flags and text2 = user data (hex)
        menuExtra,     // an app's menu-bar extra was pressed open: pid, bundle, text1 = its title
        screens,       // a display changed its frame (resolution or arrangement): display, frame
        mouse,         // a synthetic mouse event was posted: text1 = its kind, point
    };
    Kind kind;
    std::int32_t pid = 0;
    std::string bundleID;
    std::uint32_t window = 0;
    bool flag = false;  // activates, minimized
    std::uint32_t display = 0;
    std::uint64_t space = 0;
    Rect frame;
    Point point;
    std::string text1, text2, text3;
    std::int32_t previousPid = 0;  // activate: the app that was in front before (0: none)
};

struct Permissions {
    bool accessibility = true;
    bool screenRecording = true;
};

struct Faults {
    std::set<std::string> axTimeout;    // bundle ids whose accessibility hangs until the time-out
    std::set<std::string> launchFails;  // bundle ids whose launch fails
    bool tapDead = false;               // the tap silently stops seeing events
    std::optional<std::int32_t> secureInputPID;
    bool screenLocked = false;
    bool noWindowServer = false;
    bool eventDataFails = false;             // events can't be turned into or made from their binary form
    std::set<std::string> launchNoticeLost;  // bundle ids that run without the launch notification
    bool spaceNoticesLost = false;           // Space changes happen without the active-Space notification
};

// What a child process run on the simulated desktop answers, found by its program and arguments.
struct ScriptedProcess {
    std::string output;
    int exitCode = 0;
    bool timesOut = false;
};

// How the window server pictures windows. Pixels are a pure function of a window's id, title and
// content generation, so a test changes a window's picture by bumping its generation.
struct PictureKnobs {
    std::set<std::uint32_t> none;  // windows the window server gives no picture of
    std::set<std::uint32_t> tiny;  // windows it pictures as 1 x 1
    std::int64_t latencyMs = 0;    // how long one capture operation takes on the virtual clock
    bool fallbackFails = false;    // the screenshot service finds no windows
    double pixelScale = 1;         // pixels per point of a window's frame
    std::map<std::uint32_t, std::uint32_t> generation;  // window -> content generation
    std::map<std::string, std::string> wallpapers;      // display uuid -> desktop picture path
    void bump(std::uint32_t window) { ++generation[window]; }
};

// The simulated desktop: displays and Spaces, installed and running apps, their windows, focus.
// Operations are what the system does in response to a request or a user action; each reports what
// changed through `changes`. Time comes from the main queue's clock.
class SimWorld {
  public:
    static constexpr std::int32_t kOwnPID = 999;
    static constexpr const char* kOwnBundleID = "com.ferrowlabs.zelk";
    static constexpr std::int32_t kDockPID = 90;
    static constexpr const char* kDockBundleID = "com.apple.dock";

    SimWorld();

    // Set-up (before the program starts).
    void addDisplay(SimDisplay display);
    SimApp& addApp(SimApp app);
    // Starts an app as already running, with its windows.
    void startRunning(const std::string& bundleID, std::int32_t pid, bool hidden,
                      const std::vector<SimWindow>& windows);
    void setFrontmost(const std::string& bundleID, std::uint32_t focusedWindow);
    // The Dock runs as a background process (its accessibility carries the Mission Control notifications).
    void addDock();

    // Queries.
    const std::vector<SimDisplay>& displays() const { return displays_; }
    std::vector<SimApp>& apps() { return counted(apps_); }
    const std::vector<SimApp>& apps() const { return counted(apps_); }
    SimApp* app(const std::string& bundleID);
    SimApp* appByPid(std::int32_t pid);
    const SimApp* appByPid(std::int32_t pid) const;
    // The apps whose bundle is at `path`, in the order they were added.
    std::vector<SimApp*> appsAtPath(const std::string& path);
    // The app whose bundle or executable ("<bundle>/Contents/MacOS/<name>") is `path`, keeping only
    // apps for which `keep` holds; the first one added wins.
    SimApp* appAtFile(const std::string& path, const std::function<bool(const SimApp&)>& keep);
    SimWindow* window(std::uint32_t id);
    const SimWindow* window(std::uint32_t id) const;
    const std::map<std::uint32_t, SimWindow>& windows() const { return counted(windows_); }
    std::vector<std::uint32_t> zOrder() const { return counted(zOrder_); }  // front first
    // What answering queries has cost: an indexed look-up counts one, a whole list handed out or
    // walked counts its length. Tests compare it between worlds of different sizes, so a scan of the
    // list inside a per-app loop shows as growth faster than the world.
    std::uint64_t lookupCost() const { return lookupCost_; }
    std::int32_t frontPid() const { return frontPid_; }
    std::uint32_t focusedWindow() const;
    std::optional<std::size_t> displayIndexOfSpace(std::uint64_t space) const;
    std::optional<std::size_t> displayIndexById(std::uint32_t id) const;
    std::optional<std::size_t> displayIndexByUUID(const std::string& uuid) const;
    std::size_t activeDisplay() const { return activeDisplay_; }
    std::uint64_t activeSpace() const;
    // On a Space its display shows now.
    bool isWindowOnVisibleSpace(const SimWindow& w) const;
    bool isWindowOnScreen(const SimWindow& w) const;
    std::vector<platform::RunningApp> runningApps() const;
    std::optional<platform::RunningApp> runningApp(std::int32_t pid) const;
    platform::RunningApp describe(const SimApp& app) const;

    // What the system does.
    // The app comes to the front with its focused window; a hidden app unhides. With `window` set,
    // that window is focused. When the window lies on a Space no display shows, its display switches,
    // unless `followSpace` is false: then the app comes front on the Space shown.
    bool activate(std::int32_t pid, std::uint32_t window = 0, bool followSpace = true);
    // The app turns regular, accessory or background at run time, telling nobody.
    bool setKind(const std::string& bundleID, AppKind kind);
    // The window becomes its app's focused window and front within the app (the app stays where it is).
    bool raiseWithinApp(std::uint32_t window);
    bool hide(std::int32_t pid);
    bool unhide(std::int32_t pid);
    bool terminate(std::int32_t pid, bool crash = false);
    // Starts a launch; the app runs after its launch delay (or fails). Returns false when not installed.
    bool launch(const std::string& bundleID, bool activates,
                std::function<void(std::optional<std::int32_t>)> done = {});
    // Opens a document, URL or folder in the app: launched first when it doesn't run (then without
    // its launch windows, as an app started to open a file shows only that file), the window after
    // the app's open delay. The window carries `document` and a title made from it; it opens on the
    // Space shown then. False when the app isn't installed.
    bool openDocument(const std::string& bundleID, const std::string& document, bool activates);
    // The window enters or leaves its native full screen.
    bool setFullScreen(std::uint32_t id, bool fullscreen);
    std::uint32_t openWindow(const std::string& bundleID, SimWindow window);
    bool closeWindow(std::uint32_t id);
    bool retitle(std::uint32_t id, const std::string& title);
    bool setMinimized(std::uint32_t id, bool minimized);
    bool setFrame(std::uint32_t id, Rect frame);
    bool moveWindowToSpace(std::uint32_t id, std::uint64_t space);
    // The display takes a new frame (another resolution, or moved in the arrangement).
    bool resizeDisplay(std::uint32_t displayID, Rect frame);
    // With `focusTopmost`, the topmost window of the Space shown takes focus, as after a swipe.
    bool switchSpace(std::size_t displayIndex, std::uint64_t space, bool focusTopmost = true);
    void warpPointer(Point p);
    Point pointer() const { return pointer_; }
    void postNotification(const std::string& id, const std::string& title, const std::string& body);
    void setOverlay(Overlay overlay);
    Overlay overlay() const { return overlay_; }
    // Tells everyone of a synthetic mouse event (the trace writes it).
    void noteMouseEvent(const std::string& kind, Point at) {
        WorldChange c{WorldChange::Kind::mouse};
        c.text1 = kind;
        c.point = at;
        emit(c);
    }

    Permissions permissions;
    Faults faults;
    PictureKnobs pictures;
    // Keyed by the program and its arguments joined by single spaces.
    std::map<std::string, ScriptedProcess> processes;
    std::string keyboardLayout = "qwerty";
    int osMajorVersion = 15;
    int osMinorVersion = 0;
    // How long a bridged window move takes to land after it is dispatched.
    int moveLatencyMs = 0;
    // The system's own shortcuts: a posted key it takes (true) never reaches an app; it acts on the down.
    std::function<bool(std::uint16_t keyCode, std::uint64_t flags, bool down)> systemShortcut;
    // A new user Space at the end of the display's list; its id, 0 for no such display.
    std::uint64_t addSpace(std::size_t displayIndex);
    int spaceSwitchLatencyMs = 0;
    int launchLatencyMs = 0;  // added to every app's own launch delay: a busy machine
    bool bridgedMoveAvailable = true;

    ferrow::Signal<WorldChange> changes;

    // Keys delivered to apps (passed by the tap): for tests.
    struct ReceivedKey {
        std::int32_t pid;
        std::uint16_t keyCode;
        bool down;
        std::uint64_t flags;
    };
    std::vector<ReceivedKey> receivedKeys;
    // Key events posted by the program (made up, not typed), in order, with the time they were posted.
    struct PostedEvent {
        int route = 0;  // 0 the HID tap, 1 one process, 2 the annotated session tap
        std::int32_t pid = 0;
        std::uint16_t keyCode = 0;
        bool down = true;
        std::uint64_t flags = 0;
        std::uint64_t userData = 0;
        ferrow::Nanos at = 0;
    };
    std::vector<PostedEvent> postedEvents;
    void notePostedEvent(PostedEvent event);
    // The app's menu-bar extra opens; false when it has none or doesn't run.
    bool pressMenuExtra(std::int32_t pid);

    std::uint32_t nextWindowID();

  private:
    void emit(WorldChange change) { changes.emit(change); }
    void checkFocus();
    void bringToFront(std::uint32_t window);
    void removeWindow(std::uint32_t id, bool emitClosed);
    std::int32_t nextPid();
    void indexApp(std::size_t index);
    void setPid(SimApp& app, std::int32_t pid);  // keeps the pid index in step
    void chooseNextFront(std::int32_t leaving);
    void noteActivation(std::int32_t pid);
    void emitActivate(const SimApp& app, std::int32_t previous);
    // The window that takes an app's focus when its focused window goes: the frontmost one that is
    // shown, else the frontmost one not minimised.
    std::uint32_t nextFocusCandidate(const SimApp& app) const;

    std::vector<SimDisplay> displays_;
    std::vector<SimApp> apps_;
    std::unordered_map<std::string, std::size_t> bundleIndex_;
    std::unordered_map<std::int32_t, std::size_t> pidIndex_;  // running apps only
    std::unordered_map<std::string, std::vector<std::size_t>> pathIndex_;
    mutable std::uint64_t lookupCost_ = 0;
    const std::vector<std::size_t>& indicesAtPath(const std::string& path);
    template <typename List>
    List& counted(List& list) const {
        lookupCost_ += list.size();
        return list;
    }
    std::map<std::uint32_t, SimWindow> windows_;
    std::vector<std::uint32_t> zOrder_;
    std::vector<std::int32_t> activationOrder_;  // most recent first
    // Launches under way: everyone who asked hears the result; any asker wanting it in front wins.
    struct PendingLaunch {
        bool activates = false;
        std::vector<std::function<void(std::optional<std::int32_t>)>> waiters;
    };
    std::map<std::string, PendingLaunch> pendingLaunches_;
    std::set<std::string> launchWithoutWindows_;  // launched to open a document
    std::int32_t frontPid_ = 0;
    std::size_t activeDisplay_ = 0;
    Point pointer_{720, 450};
    Overlay overlay_ = Overlay::none;
    std::int32_t pidCounter_ = 500;
    std::uint32_t windowCounter_ = 5000;
    std::int32_t lastFocusPid_ = -1;
    std::uint32_t lastFocusWindow_ = 0;
};

}  // namespace zelk::sim
