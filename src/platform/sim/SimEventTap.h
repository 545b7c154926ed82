#pragma once
#include <set>
#include <string>
#include <vector>

#include "platform/EventTap.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

// The physical modifier keys, by the names key scripts use.
struct ModifierKeyInfo {
    const char* name;
    std::uint16_t keyCode;
    std::uint64_t deviceBit;
    std::uint64_t genericBit;
};
const std::vector<ModifierKeyInfo>& modifierKeys();
const ModifierKeyInfo* modifierKey(const std::string& name);

// The keyboard and the session event tap of the simulated desktop. User input enters through
// setHeldModifiers() and key(); each event goes through the tap callback (when the tap lives and is
// enabled) and, when passed, to the frontmost app.
class SimEventTap final : public platform::EventTap {
  public:
    explicit SimEventTap(SimWorld& world) : world_(world) {}

    bool createTap(TapCallback callback) override;
    void destroyTap() override;
    bool tapExists() override { return static_cast<bool>(callback_); }
    void enableTap(bool enabled) override;
    bool isTapEnabled() override { return callback_ && enabled_; }
    std::uint64_t sourceFlagsState() override { return currentFlags(); }
    void postKeyEvent(std::uint16_t keyCode, bool down, std::uint64_t flags) override;
    void postKeyEventToPid(std::int32_t pid, std::uint16_t keyCode, bool down, std::uint64_t flags) override;
    bool postSyntheticKeyEvent(platform::PostRoute route, std::int32_t pid,
                               const platform::SyntheticKeyEvent& e) override;
    bool startCapsLockMonitor(std::function<void(bool held)> callback) override;
    bool capsLockState() override { return capsLockOn_; }
    void setCapsLockState(bool on) override { capsLockOn_ = on; }
    bool addFlagsMonitor(std::function<void(std::uint64_t flags)> callback) override;
    bool secureEventInputEnabled() override { return world_.faults.secureInputPID.has_value(); }
    std::optional<std::int32_t> secureInputPID() override { return world_.faults.secureInputPID; }
    bool screenLocked() override { return world_.faults.screenLocked; }
    std::optional<Key> key(std::uint16_t keyCode) override;
    std::optional<std::uint16_t> keyCode(Key key) override;

    // User input. The held set is exactly these modifier names afterwards; one flags-changed event
    // per changed key (caps lock also reaches the HID callback). Unknown names are ignored.
    void setHeldModifiers(const std::vector<std::string>& names);
    const std::set<std::string>& heldModifiers() const { return held_; }
    // A key by its Key; false when the layout has no physical key for it.
    bool key(Key key, bool down, bool autorepeat);
    // The system disables the tap (as for a callback over its budget) and tells the callback.
    void disableBySystem(bool byUserInput = false);

    struct Seen {
        platform::KeyEvent event;
        platform::TapDecision decision;
        bool reachedTap;
    };
    // Every event the keyboard produced, with the tap's answer.
    ferrow::Signal<Seen> events;
    std::uint64_t callbackCount() const { return callbacks_; }
    // True while the tap callback runs for an event the keyboard made.
    bool inCallback() const { return inCallback_; }

  private:
    std::uint64_t currentFlags() const;
    platform::TapDecision deliver(const platform::KeyEvent& event);
    void changeCapsLock(bool held);

    SimWorld& world_;
    TapCallback callback_;
    bool enabled_ = false;
    std::set<std::string> held_;
    bool capsLockOn_ = false;
    std::function<void(bool)> capsLockCallback_;
    std::vector<std::function<void(std::uint64_t)>> flagsMonitors_;
    std::uint64_t callbacks_ = 0;
    bool inCallback_ = false;
};

}  // namespace zelk::sim
