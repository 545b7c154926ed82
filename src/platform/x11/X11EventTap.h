#pragma once
#include <xcb/xcb.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/EventTap.h"
#include "platform/x11/KeyMap.h"

namespace zelk::x11 {

// The key tap over X11. XInput2 raw events show every key and which side of a modifier went down;
// synchronous passive grabs hold each key pressed with Super or Alt until the tap callback has
// answered, then replay it to the focused client (pass) or drop it (swallow). Keys typed with no
// such modifier are never held: they reach the client at once and the callback only hears of them.
class X11EventTap final : public platform::EventTap {
  public:
    explicit X11EventTap(std::string display);
    ~X11EventTap() override;

    bool createTap(TapCallback callback) override;
    void destroyTap() override;
    bool tapExists() override { return running_.load(); }
    void enableTap(bool enabled) override { enabled_.store(enabled); }
    bool isTapEnabled() override { return running_.load() && enabled_.load(); }
    std::uint64_t sourceFlagsState() override;
    void postKeyEvent(std::uint16_t keyCode, bool down, std::uint64_t flags) override;
    // X11 has no delivery to one process: the key goes to the focused client.
    void postKeyEventToPid(std::int32_t pid, std::uint16_t keyCode, bool down, std::uint64_t flags) override;
    bool startCapsLockMonitor(std::function<void(bool held)> callback) override;
    bool capsLockState() override;
    void setCapsLockState(bool on) override;
    bool addFlagsMonitor(std::function<void(std::uint64_t flags)> callback) override;
    // Secure keyboard entry has no X11 counterpart: any client may grab the keyboard, and then no key
    // reaches the tap at all.
    bool secureEventInputEnabled() override { return false; }
    std::optional<std::int32_t> secureInputPID() override { return std::nullopt; }
    bool screenLocked() override { return false; }
    std::optional<Key> key(std::uint16_t keyCode) override;
    std::optional<std::uint16_t> keyCode(Key key) override;

  private:
    bool connect();
    // Reads the keyboard and modifier maps; false when they are what they were.
    bool readKeymap();
    void grabKeys();
    void run();
    void onRawKey(std::uint8_t code, bool down, bool repeat);
    void onGrabbedPress(const xcb_key_press_event_t& event);
    std::uint64_t flagsLocked() const;
    void tellFlagsMonitors(std::uint64_t flags);

    std::string display_;
    // The tap thread alone reads the tap connection: a reply awaited on it from another thread would
    // pull the thread's events into the queue unseen. Requests from the main thread use `control_`.
    xcb_connection_t* conn_ = nullptr;
    xcb_connection_t* control_ = nullptr;
    xcb_window_t root_ = 0;
    std::uint8_t xiOpcode_ = 0;
    std::unique_ptr<KeyMap> keymap_;
    std::vector<std::uint32_t> keysyms_;  // what keymap_ was made from
    std::uint16_t superMask_ = 0, altMask_ = 0, numLockMask_ = 0;
    std::set<std::uint8_t> ungrabbable_;  // taken by another client

    mutable std::mutex mutex_;               // guards the state below, read by the main thread too
    std::set<std::uint16_t> heldModifiers_;  // the logic's key codes
    std::set<std::uint8_t> down_;            // keys whose press reached the callback
    bool capsLockHeld_ = false;
    std::function<void(bool)> capsLockCallback_;
    std::vector<std::function<void(std::uint64_t)>> flagsMonitors_;

    TapCallback callback_;
    std::atomic<bool> running_{false};
    std::atomic<bool> enabled_{false};
    std::atomic<bool> threadDone_{false};
    std::thread thread_;
    int wake_[2] = {-1, -1};
};

}  // namespace zelk::x11
