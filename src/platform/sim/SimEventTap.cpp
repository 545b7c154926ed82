#include "platform/sim/SimEventTap.h"

#include "platform/sim/SimKeyboardLayout.h"
#include "support/MainQueue.h"

namespace zelk::sim {

using namespace platform;

const std::vector<ModifierKeyInfo>& modifierKeys() {
    static const std::vector<ModifierKeyInfo> keys{
        {"lshift", 56, flag::lshift, flag::shift},
        {"lctrl", 59, flag::lctrl, flag::control},
        {"lalt", 58, flag::lalt, flag::option},
        {"lcmd", 55, flag::lcmd, flag::command},
        {"rightCommand", 54, flag::rcmd, flag::command},
        {"ralt", 61, flag::ralt, flag::option},
        {"rctrl", 62, flag::rctrl, flag::control},
        {"rshift", 60, flag::rshift, flag::shift},
        {"fn", 63, 0, flag::fn},
        {"capsLock", 57, 0, 0},
    };
    return keys;
}

const ModifierKeyInfo* modifierKey(const std::string& name) {
    for (auto& k : modifierKeys())
        if (name == k.name) return &k;
    return nullptr;
}

namespace {
// The system flips the caps lock state a few milliseconds after the press.
constexpr int kCapsLockFlipDelayMs = 5;
}  // namespace

bool SimEventTap::createTap(TapCallback callback) {
    if (!world_.permissions.accessibility) return false;
    callback_ = std::move(callback);
    enabled_ = true;
    return true;
}

void SimEventTap::destroyTap() {
    callback_ = nullptr;
    enabled_ = false;
}

void SimEventTap::enableTap(bool enabled) {
    if (callback_) enabled_ = enabled;
}

std::uint64_t SimEventTap::currentFlags() const {
    std::uint64_t flags = capsLockOn_ ? flag::capsLock : 0;
    for (auto& name : held_)
        if (auto* k = modifierKey(name)) flags |= k->deviceBit | k->genericBit;
    return flags;
}

std::optional<Key> SimEventTap::key(std::uint16_t code) {
    return SimKeyboardLayout::key(world_.keyboardLayout, code);
}

std::optional<std::uint16_t> SimEventTap::keyCode(Key k) {
    return SimKeyboardLayout::keyCode(world_.keyboardLayout, k);
}

TapDecision SimEventTap::deliver(const KeyEvent& event) {
    // Secure Keyboard Entry keeps key presses from every tap; modifier changes still come through.
    bool secured = world_.faults.secureInputPID && event.type != EventType::flagsChanged;
    bool reaches =
        callback_ && enabled_ && !world_.faults.tapDead && !secured && world_.permissions.accessibility;
    TapDecision decision = TapDecision::pass;
    if (reaches) {
        ++callbacks_;
        inCallback_ = true;
        decision = callback_(event);
        inCallback_ = false;
    }
    if (decision == TapDecision::pass && event.type != EventType::flagsChanged)
        world_.receivedKeys.push_back(
            {world_.frontPid(), event.keyCode, event.type == EventType::keyDown, event.flags});
    events.emit(Seen{event, decision, reaches});
    return decision;
}

void SimEventTap::changeCapsLock(bool held) {
    if (held) {
        ferrow::mainAsyncAfter(kCapsLockFlipDelayMs, [this] { capsLockOn_ = !capsLockOn_; });
    }
    // The HID layer sees the key before any event is made from it.
    if (capsLockCallback_) capsLockCallback_(held);
}

void SimEventTap::setHeldModifiers(const std::vector<std::string>& names) {
    std::set<std::string> wanted;
    for (auto& n : names)
        if (modifierKey(n)) wanted.insert(n);
    auto& clock = ferrow::MainQueue::shared().clock();
    auto sendChange = [&](const ModifierKeyInfo& k) {
        KeyEvent e;
        e.type = EventType::flagsChanged;
        e.keyCode = k.keyCode;
        e.flags = currentFlags();
        e.timestamp = clock.machAbsolute();
        deliver(e);
        if (world_.permissions.accessibility) {
            for (auto& monitor : flagsMonitors_) {
                auto m = monitor;
                std::uint64_t flags = e.flags;
                ferrow::mainAsync([m, flags] { m(flags); });
            }
        }
    };
    // Releases first, then presses, in a fixed order.
    for (auto& k : modifierKeys()) {
        if (held_.count(k.name) && !wanted.count(k.name)) {
            held_.erase(k.name);
            // Caps lock makes its one flags change on the press, when the lock toggles.
            if (std::string(k.name) == "capsLock") {
                changeCapsLock(false);
                continue;
            }
            sendChange(k);
        }
    }
    for (auto& k : modifierKeys()) {
        if (!held_.count(k.name) && wanted.count(k.name)) {
            held_.insert(k.name);
            if (std::string(k.name) == "capsLock") changeCapsLock(true);
            sendChange(k);
        }
    }
}

bool SimEventTap::key(Key k, bool down, bool autorepeat) {
    auto code = keyCode(k);
    if (!code) return false;
    KeyEvent e;
    e.type = down ? EventType::keyDown : EventType::keyUp;
    e.keyCode = *code;
    e.flags = currentFlags();
    e.autorepeat = autorepeat;
    e.timestamp = ferrow::MainQueue::shared().clock().machAbsolute();
    deliver(e);
    return true;
}

void SimEventTap::disableBySystem(bool byUserInput) {
    if (!callback_) return;
    enabled_ = false;
    KeyEvent e;
    e.type = byUserInput ? EventType::tapDisabledByUserInput : EventType::tapDisabledByTimeout;
    e.timestamp = ferrow::MainQueue::shared().clock().machAbsolute();
    ++callbacks_;
    callback_(e);
}

void SimEventTap::postKeyEvent(std::uint16_t keyCode, bool down, std::uint64_t flags) {
    // Posted events don't come back through our own tap; the system acts on its shortcuts.
    if (world_.systemShortcut && world_.systemShortcut(keyCode, flags, down)) return;
    if (down)
        world_.receivedKeys.push_back({world_.frontPid(), keyCode, true, flags});
    else
        world_.receivedKeys.push_back({world_.frontPid(), keyCode, false, flags});
}

void SimEventTap::postKeyEventToPid(std::int32_t pid, std::uint16_t keyCode, bool down, std::uint64_t flags) {
    world_.receivedKeys.push_back({pid, keyCode, down, flags});
}

// A made-up event is logged with its route and marker, and reaches the app a typed one would.
bool SimEventTap::postSyntheticKeyEvent(platform::PostRoute route, std::int32_t pid,
                                        const platform::SyntheticKeyEvent& e) {
    if (world_.faults.eventDataFails) return false;
    const std::int32_t to = route == platform::PostRoute::toPid ? pid : world_.frontPid();
    world_.notePostedEvent(
        {static_cast<int>(route), to, e.keyCode, e.down, e.flags, static_cast<std::uint64_t>(e.userData)});
    world_.receivedKeys.push_back({to, e.keyCode, e.down, e.flags});
    return true;
}

bool SimEventTap::startCapsLockMonitor(std::function<void(bool held)> callback) {
    capsLockCallback_ = std::move(callback);
    return true;
}

bool SimEventTap::addFlagsMonitor(std::function<void(std::uint64_t flags)> callback) {
    if (!world_.permissions.accessibility) return false;
    flagsMonitors_.push_back(std::move(callback));
    return true;
}

}  // namespace zelk::sim
