#pragma once
#include <map>

#include "platform/WindowServer.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

// The simulated binary form of an event: 4 opening bytes, then records with a 4-byte header (big-endian
// count, 2-bit kind and 14-bit tag) and their payload. Integer fields travel under their own number as
// tag, doubles under 0x2000 + number, the location under 0x3F00; records with other tags (the gesture
// record 4205 among them) are carried along untouched.
std::vector<std::uint8_t> encodeSimEventData(const platform::GestureEvent& event);
std::optional<platform::GestureEvent> decodeSimEventData(const std::vector<std::uint8_t>& data);

// Checks a 248-byte key-window record; empty text when valid, else what is wrong.
std::string validateKeyWindowRecord(const std::vector<std::uint8_t>& record, int expectedKind);

// Turns posted dock-swipe events into Space switches, as the Dock does for a finished swipe: the
// compact form (one event re-posted with phases began/ended), the overlay form (while Mission Control
// shows) and the newest form (serialised pairs with phase copies). A swipe lands after the world's
// latency; swipes made while one is sliding count from where it will end.
class GestureDecoder {
  public:
    explicit GestureDecoder(SimWorld& world) : world_(world) {}
    // False for an event the Dock would ignore.
    bool post(const platform::GestureEvent& event);
    int swipesSeen() const { return swipes_; }

  private:
    void swipe(int direction, std::optional<Point> location);
    SimWorld& world_;
    bool began_ = false;
    int swipes_ = 0;
    std::map<std::size_t, std::pair<std::size_t, ferrow::Nanos>>
        pending_;  // display -> (target index, lands at)
};

// The simulated window server's drawing of a window: a body colour from the id, a title band from the
// title, stripes that move with the content generation. Rows carry 16 bytes of padding.
platform::WindowImage drawSimWindow(std::uint32_t id, const std::string& title, std::uint32_t generation,
                                    int width, int height);
// A desktop picture drawn from its path alone.
platform::WindowImage drawSimWallpaper(const std::string& path, int width, int height);

class SimWindowServer final : public platform::WindowServer {
  public:
    explicit SimWindowServer(SimWorld& world);
    ~SimWindowServer() override;

    std::uint32_t mainConnectionID() override { return world_.faults.noWindowServer ? 0 : kConnection; }
    std::uint64_t activeSpace() override { return world_.activeSpace(); }
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
    bool screenCaptureAccess() override { return world_.permissions.screenRecording; }
    bool requestScreenCaptureAccess() override { return world_.permissions.screenRecording; }
    std::optional<platform::ProcessSerialNumber> processForPID(std::int32_t pid) override;
    bool setFrontProcessWithOptions(platform::ProcessSerialNumber psn, std::uint32_t window,
                                    std::uint32_t mode) override;
    bool postEventRecordTo(platform::ProcessSerialNumber psn,
                           const std::vector<std::uint8_t>& record) override;
    bool spaceSetFrontPSN(std::uint64_t space, platform::ProcessSerialNumber psn) override;
    bool managedDisplaySetCurrentSpace(const std::string& display, std::uint64_t space) override;
    bool moveWindowsToManagedSpace(const std::vector<std::uint32_t>& windows, std::uint64_t space) override;
    bool bridgedMoveAvailable() override { return world_.bridgedMoveAvailable; }
    bool bridgedMoveWindows(const std::vector<std::uint32_t>& windows, std::uint64_t space) override;
    bool registerNotifyProc(int code, NotifyCallback callback) override;
    std::optional<platform::SymbolicHotKey> symbolicHotKeyValue(int hotKey) override;
    bool isSymbolicHotKeyEnabled(int hotKey) override;
    bool setSymbolicHotKeyEnabled(int hotKey, bool enabled) override;
    void coreDockSendNotification(const std::string& name) override;
    bool postGestureEvent(const platform::GestureEvent& event) override;
    std::vector<std::uint8_t> eventData(const platform::GestureEvent& event) override;
    std::optional<platform::GestureEvent> eventFromData(const std::vector<std::uint8_t>& data) override;
    std::vector<platform::WindowImage> captureWindows(const std::vector<std::uint32_t>& windows,
                                                      std::uint32_t options) override;
    int osMajorVersion() override { return world_.osMajorVersion; }
    std::optional<std::vector<platform::ShareableWindow>> shareableWindows() override;
    std::optional<platform::WindowImage> screenshotWindow(std::uint32_t window, int width,
                                                          int height) override;
    std::optional<std::string> desktopImagePath(std::uint32_t displayID) override;
    std::optional<platform::WindowImage> loadImage(const std::string& path) override;
    int osMinorVersion() override { return world_.osMinorVersion; }
    // From these releases on the direct move refuses windows of other processes.
    bool directMoveRefused() const;
    // Window moves asked of the window server, in order: "direct", "direct refused", "bridged".
    struct MoveCall {
        std::string means;
        std::vector<std::uint32_t> windows;
        std::uint64_t space = 0;
    };
    const std::vector<MoveCall>& moveCalls() const { return moveCalls_; }

    // Symbolic hot keys: 27 "move focus to next window", 118+n "switch to Desktop n+1", 79/81 left/right.
    struct HotKey {
        std::uint16_t keyCode;
        std::uint64_t modifiers;
        bool enabled;
    };
    std::map<int, HotKey>& hotKeys() { return hotKeys_; }
    const GestureDecoder& gestures() const { return gestures_; }
    // Key-window records received, with whether they were valid.
    struct RecordSeen {
        std::int32_t pid;
        std::uint32_t window;
        bool valid;
    };
    const std::vector<RecordSeen>& records() const { return records_; }
    std::size_t frontProcessCalls() const { return frontCalls_; }
    // Every gesture event posted, in order, as it reached the session tap.
    const std::vector<platform::GestureEvent>& postedEvents() const { return posted_; }
    // Processes made front on a Space (SLSSpaceSetFrontPSN): (space, pid).
    const std::vector<std::pair<std::uint64_t, std::int32_t>>& spaceFrontCalls() const { return spaceFront_; }

    static constexpr std::uint32_t kConnection = 0x5A31;

  private:
    void onChange(const WorldChange& change);
    SimWorld& world_;
    GestureDecoder gestures_;
    std::map<int, HotKey> hotKeys_;
    std::multimap<int, NotifyCallback> notify_;
    std::vector<RecordSeen> records_;
    std::vector<platform::GestureEvent> posted_;
    std::vector<std::pair<std::uint64_t, std::int32_t>> spaceFront_;
    std::vector<MoveCall> moveCalls_;
    std::size_t frontCalls_ = 0;
    ferrow::Subscription subscription_;
};

}  // namespace zelk::sim
