#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace zelk::platform {

struct SpaceEntry {
    std::uint64_t id64 = 0;
    int type = 0;  // 0 user Space; 4 full-screen
    bool operator==(const SpaceEntry&) const = default;
};

// One display's entry of the managed display Spaces.
struct DisplaySpaces {
    std::string displayIdentifier;  // the display's UUID
    std::vector<SpaceEntry> spaces;
    SpaceEntry currentSpace;
};

// One row of the window list (the kCGWindow... dictionary).
struct WindowInfo {
    Rect bounds;
    std::int64_t memoryUsage = 0;
    double alpha = 1;
    std::int64_t sharingState = 1;
    std::uint32_t number = 0;
    std::string ownerName;
    std::int64_t storeType = 1;
    std::int32_t layer = 0;
    std::int32_t ownerPID = 0;
    bool isOnscreen = false;
    std::optional<std::string> name;  // needs the screen-recording permission
};

namespace windowlist {
constexpr int onScreenOnly = 1;
constexpr int onScreenAboveWindow = 2;
constexpr int includingWindow = 8;
constexpr int excludeDesktopElements = 16;
}  // namespace windowlist

struct ProcessSerialNumber {
    std::uint32_t high = 0, low = 0;
    bool operator==(const ProcessSerialNumber&) const = default;
};

struct SymbolicHotKey {
    std::uint16_t keyCode = 0;
    std::uint64_t modifiers = 0;
};

// A synthetic event's fields by number, as set with the event field setters.
struct GestureEvent {
    std::map<int, std::int64_t> integers;
    std::map<int, double> doubles;
    std::optional<Point> location;
    // The binary form the event was made from (empty for an event built field by field).
    std::vector<std::uint8_t> data;
    bool operator==(const GestureEvent&) const = default;
};

// A window picture: 8 bits per component, alpha premultiplied and first, 32-bit little-endian (bytes B,
// G, R, A in memory). Rows are `bytesPerRow` apart, which may exceed width x 4: the bytes past a row's
// pixels are padding.
struct WindowImage {
    int width = 0, height = 0;
    std::size_t bytesPerRow = 0;
    std::vector<std::uint8_t> pixels;  // bytesPerRow x height
};

namespace capture {
constexpr std::uint32_t thumbnailOptions = 0x80a00;
constexpr std::uint32_t highResolutionOptions = 0x80900;
}  // namespace capture

// A window the screenshot service can picture, with its frame in points.
struct ShareableWindow {
    std::uint32_t windowID = 0;
    Rect frame;
};

// The window server's operations, across every Space. Results that the real calls give as a status
// code are optionals or bools here.
class WindowServer {
  public:
    virtual ~WindowServer() = default;
    virtual std::uint32_t mainConnectionID() = 0;  // 0: no window server
    virtual std::uint64_t activeSpace() = 0;
    virtual std::optional<std::vector<DisplaySpaces>> managedDisplaySpaces() = 0;
    virtual std::optional<std::string> activeMenuBarDisplayIdentifier() = 0;
    virtual std::vector<std::uint64_t> spacesForWindows(int selector,
                                                        const std::vector<std::uint32_t>& windows) = 0;
    virtual std::vector<std::uint32_t> windowsOnSpace(std::uint64_t space, int options) = 0;
    virtual std::optional<std::uint32_t> windowOwner(std::uint32_t window) = 0;
    virtual std::optional<std::int32_t> connectionPID(std::uint32_t connection) = 0;
    virtual std::optional<std::string> windowTitle(std::uint32_t window) = 0;
    virtual std::optional<Rect> windowBounds(std::uint32_t window) = 0;
    virtual std::optional<std::int32_t> windowLevel(std::uint32_t window) = 0;
    virtual std::vector<WindowInfo> windowList(int option, std::uint32_t relativeTo) = 0;

    virtual bool screenCaptureAccess() = 0;
    virtual bool requestScreenCaptureAccess() = 0;

    virtual std::optional<ProcessSerialNumber> processForPID(std::int32_t pid) = 0;
    virtual bool setFrontProcessWithOptions(ProcessSerialNumber psn, std::uint32_t window,
                                            std::uint32_t mode) = 0;
    virtual bool postEventRecordTo(ProcessSerialNumber psn, const std::vector<std::uint8_t>& record) = 0;
    virtual bool spaceSetFrontPSN(std::uint64_t space, ProcessSerialNumber psn) = 0;
    virtual bool managedDisplaySetCurrentSpace(const std::string& display, std::uint64_t space) = 0;
    virtual bool moveWindowsToManagedSpace(const std::vector<std::uint32_t>& windows,
                                           std::uint64_t space) = 0;
    virtual bool bridgedMoveAvailable() = 0;
    virtual bool bridgedMoveWindows(const std::vector<std::uint32_t>& windows, std::uint64_t space) = 0;

    // Window created (1325) / destroyed (1326) notifications; the payload is the raw bytes.
    using NotifyCallback = std::function<void(int code, const std::vector<std::uint8_t>& payload)>;
    virtual bool registerNotifyProc(int code, NotifyCallback callback) = 0;

    virtual std::optional<SymbolicHotKey> symbolicHotKeyValue(int hotKey) = 0;
    virtual bool isSymbolicHotKeyEnabled(int hotKey) = 0;
    virtual bool setSymbolicHotKeyEnabled(int hotKey, bool enabled) = 0;

    virtual void coreDockSendNotification(const std::string& name) = 0;
    // Posts a synthetic event to the session tap; false when it couldn't be created.
    virtual bool postGestureEvent(const GestureEvent& event) = 0;
    // The event's binary form (CGEventCreateData); empty on failure.
    virtual std::vector<std::uint8_t> eventData(const GestureEvent& event) = 0;
    // An event made from a binary form (CGEventCreateFromData); empty when the bytes don't make one.
    virtual std::optional<GestureEvent> eventFromData(const std::vector<std::uint8_t>& data) = 0;

    // Pictures of the given windows, in order, from the window server's own buffers (any Space,
    // minimized too). Windows with no picture are left out. Called from capture threads: safe to call
    // off the main thread.
    virtual std::vector<WindowImage> captureWindows(const std::vector<std::uint32_t>& windows,
                                                    std::uint32_t options) = 0;
    // The operating system's major version (decides the gesture form).
    virtual int osMajorVersion() = 0;

    // The screenshot service that stands in when the window server gives no picture (main thread).
    // The windows it can picture now; nothing when the service is missing or refuses.
    virtual std::optional<std::vector<ShareableWindow>> shareableWindows() { return std::nullopt; }
    // One window drawn at the given pixel size, no cursor, no shadow; nothing on failure.
    virtual std::optional<WindowImage> screenshotWindow(std::uint32_t window, int width, int height) {
        (void)window;
        (void)width;
        (void)height;
        return std::nullopt;
    }
    // The desktop picture's file for a display; nothing when it has none.
    virtual std::optional<std::string> desktopImagePath(std::uint32_t displayID) {
        (void)displayID;
        return std::nullopt;
    }
    // Loads a picture file. Called from a background queue: safe off the main thread.
    virtual std::optional<WindowImage> loadImage(const std::string& path) {
        (void)path;
        return std::nullopt;
    }
    // The minor part of the version (decides which private calls still work).
    virtual int osMinorVersion() { return 0; }
};

}  // namespace zelk::platform
