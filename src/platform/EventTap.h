#pragma once
#include <cstdint>
#include <functional>
#include <optional>

#include "platform/Key.h"
#include "support/Observable.h"

namespace zelk::platform {

// Event flag bits as key events carry them: device bits for the sided modifiers, generic bits,
// caps lock and the secondary fn bit.
namespace flag {
constexpr std::uint64_t lctrl = 0x1, lshift = 0x2, rshift = 0x4, lcmd = 0x8, rcmd = 0x10, lalt = 0x20,
                        ralt = 0x40, rctrl = 0x2000;
constexpr std::uint64_t capsLock = 0x10000, shift = 0x20000, control = 0x40000, option = 0x80000,
                        command = 0x100000, numericPad = 0x200000, help = 0x400000, fn = 0x800000;
// shift, control, option, command, secondary fn: a key event with none of these is bare typing.
constexpr std::uint64_t modifierMask = 0x9E0000;
constexpr std::uint64_t monitorMask = 0x1E0000;
}  // namespace flag

enum class EventType : std::int32_t {
    keyDown = 10,
    keyUp = 11,
    flagsChanged = 12,
    systemDefined = 14,
    tapDisabledByTimeout = -2,
    tapDisabledByUserInput = -1,
};

struct KeyEvent {
    EventType type = EventType::keyDown;
    std::uint16_t keyCode = 0;
    std::uint64_t flags = 0;
    bool autorepeat = false;
    std::uint64_t timestamp = 0;  // machine-absolute
};

// Where a made-up key event is posted: the HID tap, one process, or the annotated session tap.
enum class PostRoute : int { hidTap = 0, toPid = 1, annotatedSessionTap = 2 };

// A made-up key event, with the value of its user-data field (so a tap can tell it from a typed one).
struct SyntheticKeyEvent {
    std::uint16_t keyCode = 0;
    bool down = true;
    std::uint64_t flags = 0;
    std::int64_t userData = 0;
};

// What the tap callback answers: pass the event on, or swallow it.
enum class TapDecision { pass, swallow };

// The session event tap, the keyboard around it and the layout mapping. The tap callback runs on the
// tap thread; the flags monitor and caps lock callbacks run on the main queue.
class EventTap {
  public:
    virtual ~EventTap() = default;
    using TapCallback = std::function<TapDecision(const KeyEvent&)>;
    // Creates and enables the tap; false when it can't be created (no permission).
    virtual bool createTap(TapCallback callback) = 0;
    virtual void destroyTap() = 0;
    virtual bool tapExists() = 0;
    virtual void enableTap(bool enabled) = 0;
    virtual bool isTapEnabled() = 0;

    // The modifier flags state of the session right now.
    virtual std::uint64_t sourceFlagsState() = 0;
    virtual void postKeyEvent(std::uint16_t keyCode, bool down, std::uint64_t flags) = 0;
    virtual void postKeyEventToPid(std::int32_t pid, std::uint16_t keyCode, bool down,
                                   std::uint64_t flags) = 0;

    // Posts a made-up key event by `route` (`pid` is read by `toPid` only); false when the event can't
    // be created. Backends without a user-data field post the plain event.
    virtual bool postSyntheticKeyEvent(PostRoute route, std::int32_t pid, const SyntheticKeyEvent& e) {
        if (route == PostRoute::toPid)
            postKeyEventToPid(pid, e.keyCode, e.down, e.flags);
        else
            postKeyEvent(e.keyCode, e.down, e.flags);
        return true;
    }
    // Caps lock: the HID callback (held or not) and the lock state the light shows.
    virtual bool startCapsLockMonitor(std::function<void(bool held)> callback) = 0;
    virtual bool capsLockState() = 0;
    virtual void setCapsLockState(bool on) = 0;

    // The second, independent view of modifier changes (global and local event monitors).
    virtual bool addFlagsMonitor(std::function<void(std::uint64_t flags)> callback) = 0;

    // Secure Keyboard Entry.
    virtual bool secureEventInputEnabled() = 0;
    virtual std::optional<std::int32_t> secureInputPID() = 0;
    virtual bool screenLocked() = 0;

    // The active keyboard layout: which Key a physical key types, and back.
    virtual std::optional<Key> key(std::uint16_t keyCode) = 0;
    virtual std::optional<std::uint16_t> keyCode(Key key) = 0;
};

}  // namespace zelk::platform
