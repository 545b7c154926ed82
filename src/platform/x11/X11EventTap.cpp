#include "platform/x11/X11EventTap.h"

#include <poll.h>
#include <unistd.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::x11 {

using ferrow::Log;
using platform::EventType;
using platform::KeyEvent;
using platform::TapDecision;

namespace {
constexpr std::uint32_t kSuperL = 0xffeb, kSuperR = 0xffec, kAltL = 0xffe9, kAltR = 0xffea, kAltGr = 0xfe03,
                        kNumLock = 0xff7f;
}  // namespace

X11EventTap::X11EventTap(std::string display) : display_(std::move(display)) {
    if (connect()) readKeymap();
}

X11EventTap::~X11EventTap() {
    destroyTap();
    if (conn_) xcb_disconnect(conn_);
    if (control_) xcb_disconnect(control_);
}

bool X11EventTap::connect() {
    int screen = 0;
    conn_ = xcb_connect(display_.empty() ? nullptr : display_.c_str(), &screen);
    if (!conn_ || xcb_connection_has_error(conn_)) {
        if (conn_) xcb_disconnect(conn_);
        conn_ = nullptr;
        return false;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(conn_));
    for (int i = 0; i < screen && it.rem; ++i)
        xcb_screen_next(&it);
    root_ = it.data->root;
    control_ = xcb_connect(display_.empty() ? nullptr : display_.c_str(), nullptr);
    if (xcb_connection_has_error(control_)) {
        xcb_disconnect(control_);
        control_ = nullptr;
    }
    return true;
}

bool X11EventTap::readKeymap() {
    const xcb_setup_t* setup = xcb_get_setup(conn_);
    std::uint8_t first = setup->min_keycode, last = setup->max_keycode;
    auto* map = xcb_get_keyboard_mapping_reply(
        conn_, xcb_get_keyboard_mapping(conn_, first, static_cast<std::uint8_t>(last - first + 1)), nullptr);
    std::vector<std::uint32_t> keysyms(256, 0);
    if (map) {
        auto* syms = xcb_get_keyboard_mapping_keysyms(map);
        int per = map->keysyms_per_keycode;
        for (int code = first; code <= last; ++code)
            keysyms[static_cast<std::size_t>(code)] = syms[(code - first) * per];
        std::free(map);
    }
    // Which modifier bits Super, Alt and Num Lock sit on in this server's modifier map.
    std::uint16_t superMask = 0, altMask = 0, numLockMask = 0;
    auto* mods = xcb_get_modifier_mapping_reply(conn_, xcb_get_modifier_mapping(conn_), nullptr);
    if (mods) {
        auto* codes = xcb_get_modifier_mapping_keycodes(mods);
        int per = mods->keycodes_per_modifier;
        for (int bit = 0; bit < 8; ++bit)
            for (int i = 0; i < per; ++i) {
                std::uint8_t code = codes[bit * per + i];
                if (!code) continue;
                std::uint32_t sym = keysyms[code];
                auto mask = static_cast<std::uint16_t>(1u << bit);
                if (sym == kSuperL || sym == kSuperR) superMask |= mask;
                if (sym == kAltL || sym == kAltR || sym == kAltGr) altMask |= mask;
                if (sym == kNumLock) numLockMask |= mask;
            }
        std::free(mods);
    }
    if (!superMask) superMask = XCB_MOD_MASK_4;
    if (!altMask) altMask = XCB_MOD_MASK_1;
    // The server announces a mapping each time another device (XTest's, say) starts typing, mostly
    // with the same map: only a real change is worth the thousands of grabs made again.
    if (keymap_ && keysyms == keysyms_ && superMask == superMask_ && altMask == altMask_ &&
        numLockMask == numLockMask_)
        return false;
    keysyms_ = std::move(keysyms);
    keymap_ = std::make_unique<KeyMap>(keysyms_);
    superMask_ = superMask;
    altMask_ = altMask;
    numLockMask_ = numLockMask;
    return true;
}

bool X11EventTap::createTap(TapCallback callback) {
    if (running_.load()) destroyTap();
    if (!conn_ && !connect()) return false;
    readKeymap();
    auto* version = xcb_input_xi_query_version_reply(conn_, xcb_input_xi_query_version(conn_, 2, 2), nullptr);
    bool ok = version &&
              (version->major_version > 2 || (version->major_version == 2 && version->minor_version >= 1));
    std::free(version);
    auto* ext = xcb_get_extension_data(conn_, &xcb_input_id);
    if (!ok || !ext || !ext->present) {
        Log::error("tap: the X server has no XInput 2.1; the key tap can't see keys");
        return false;
    }
    xiOpcode_ = ext->major_opcode;
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } select{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
             XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE};
    xcb_input_xi_select_events(conn_, root_, 1, &select.head);
    grabKeys();
    if (::pipe(wake_) != 0) return false;
    callback_ = std::move(callback);
    enabled_.store(true);
    running_.store(true);
    thread_ = std::thread([this] { run(); });
    return true;
}

void X11EventTap::grabKeys() {
    ungrabbable_.clear();
    xcb_ungrab_key(conn_, XCB_GRAB_ANY, root_, XCB_MOD_MASK_ANY);
    // Each key with Super, Alt or both, with or without Shift and Control, whatever Caps Lock and Num
    // Lock say.
    const std::uint16_t shift = XCB_MOD_MASK_SHIFT, control = XCB_MOD_MASK_CONTROL, lock = XCB_MOD_MASK_LOCK;
    const std::vector<std::uint16_t> bases{superMask_, altMask_,
                                           static_cast<std::uint16_t>(superMask_ | altMask_)};
    const std::vector<std::uint16_t> extras{0, shift, control, static_cast<std::uint16_t>(shift | control)};
    const std::vector<std::uint16_t> ignored{0, lock, numLockMask_,
                                             static_cast<std::uint16_t>(lock | numLockMask_)};
    std::vector<std::uint16_t> combos;
    for (auto base : bases)
        for (auto extra : extras)
            for (auto ignore : ignored)
                combos.push_back(static_cast<std::uint16_t>(base | extra | ignore));
    std::sort(combos.begin(), combos.end());
    combos.erase(std::unique(combos.begin(), combos.end()), combos.end());
    std::vector<std::pair<std::uint8_t, xcb_void_cookie_t>> cookies;
    for (auto code : keymap_->typingKeyCodes())
        for (auto mods : combos)
            cookies.emplace_back(code, xcb_grab_key_checked(conn_, 1, root_, mods, code, XCB_GRAB_MODE_ASYNC,
                                                            XCB_GRAB_MODE_SYNC));
    for (auto& [code, cookie] : cookies)
        if (auto* error = xcb_request_check(conn_, cookie)) {
            ungrabbable_.insert(code);
            std::free(error);
        }
    if (!ungrabbable_.empty())
        Log::error("tap: {} keys are grabbed by another client with Super or Alt; they pass unseen",
                   ungrabbable_.size());
    xcb_flush(conn_);
}

void X11EventTap::destroyTap() {
    running_.store(false);
    if (!thread_.joinable()) return;
    char c = 0;
    [[maybe_unused]] auto n = ::write(wake_[1], &c, 1);
    // The tap thread may be inside the callback, waiting for the main queue: while it finishes, the
    // main thread keeps serving the queue instead of blocking on the join.
    auto& queue = ferrow::MainQueue::shared();
    while (!threadDone_.load()) {
        if (queue.onMainThread()) queue.runDue();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (thread_.joinable()) thread_.join();
    threadDone_.store(false);
    for (int& fd : wake_) {
        ::close(fd);
        fd = -1;
    }
    if (conn_) {
        xcb_ungrab_key(conn_, XCB_GRAB_ANY, root_, XCB_MOD_MASK_ANY);
        xcb_flush(conn_);
    }
    callback_ = nullptr;
}

void X11EventTap::run() {
    struct Done {
        std::atomic<bool>& done;
        ~Done() { done.store(true); }
    } done{threadDone_};
    pollfd fds[2] = {{xcb_get_file_descriptor(conn_), POLLIN, 0}, {wake_[0], POLLIN, 0}};
    while (running_.load()) {
        while (xcb_generic_event_t* e = xcb_poll_for_event(conn_)) {
            std::uint8_t type = e->response_type & 0x7F;
            if (type == XCB_GE_GENERIC) {
                auto* ge = reinterpret_cast<xcb_ge_generic_event_t*>(e);
                if (ge->extension == xiOpcode_ && (ge->event_type == XCB_INPUT_RAW_KEY_PRESS ||
                                                   ge->event_type == XCB_INPUT_RAW_KEY_RELEASE)) {
                    auto* raw = reinterpret_cast<xcb_input_raw_key_press_event_t*>(e);
                    onRawKey(static_cast<std::uint8_t>(raw->detail),
                             ge->event_type == XCB_INPUT_RAW_KEY_PRESS,
                             raw->flags & XCB_INPUT_KEY_EVENT_FLAGS_KEY_REPEAT);
                }
            } else if (type == XCB_KEY_PRESS) {
                onGrabbedPress(*reinterpret_cast<xcb_key_press_event_t*>(e));
            } else if (type == XCB_KEY_RELEASE) {
                // While a swallowed key's grab lasts, its release comes to the grab and not as a raw event.
                auto* release = reinterpret_cast<xcb_key_release_event_t*>(e);
                if (!keymap_->modifier(release->detail)) onRawKey(release->detail, false, false);
            } else if (type == XCB_MAPPING_NOTIFY) {
                auto* mapping = reinterpret_cast<xcb_mapping_notify_event_t*>(e);
                if (mapping->request != XCB_MAPPING_POINTER && readKeymap()) {
                    Log::info("tap: the keyboard map changed; grabbing the keys again");
                    grabKeys();
                    Log::debug("tap: keys grabbed again");
                }
            }
            std::free(e);
        }
        if (xcb_connection_has_error(conn_)) {
            Log::error("tap: the X connection closed");
            running_.store(false);
            return;
        }
        if (::poll(fds, 2, -1) < 0 && errno != EINTR) return;
        if (fds[1].revents) return;
    }
}

std::uint64_t X11EventTap::flagsLocked() const {
    std::uint64_t flags = 0;
    for (auto code : heldModifiers_)
        for (std::uint32_t sym : {0xffe1u, 0xffe2u, 0xffe3u, 0xffe4u, kAltL, kAltR, kSuperL, kSuperR})
            if (auto m = modifierForKeysym(sym); m && m->keyCode == code)
                flags |= m->deviceBit | m->genericBit;
    return flags;
}

std::uint64_t X11EventTap::sourceFlagsState() {
    std::uint64_t flags;
    {
        std::lock_guard lock(mutex_);
        flags = flagsLocked();
    }
    return flags | (capsLockState() ? platform::flag::capsLock : 0);
}

void X11EventTap::tellFlagsMonitors(std::uint64_t flags) {
    for (auto& monitor : flagsMonitors_) {
        auto m = monitor;
        ferrow::mainAsync([m, flags] { m(flags); });
    }
}

void X11EventTap::onRawKey(std::uint8_t code, bool down, bool repeat) {
    auto logical = keymap_->logicalCode(code);
    if (!logical) return;
    KeyEvent event;
    event.keyCode = *logical;
    event.timestamp = static_cast<std::uint64_t>(ferrow::MainQueue::shared().clock().machAbsolute());
    if (auto modifier = keymap_->modifier(code)) {
        std::function<void(bool)> capsCallback;
        {
            std::lock_guard lock(mutex_);
            if (modifier->keyCode == zelk::keycode::capsLock) {
                capsLockHeld_ = down;
                capsCallback = capsLockCallback_;
            } else if (down) {
                heldModifiers_.insert(modifier->keyCode);
            } else {
                heldModifiers_.erase(modifier->keyCode);
            }
            event.flags = flagsLocked();
        }
        if (capsCallback) ferrow::mainAsync([capsCallback, down] { capsCallback(down); });
        // Caps Lock makes its one flags change on the press, when the lock toggles.
        if (modifier->keyCode == zelk::keycode::capsLock && !down) return;
        event.type = EventType::flagsChanged;
        if (callback_ && enabled_.load() && running_.load()) callback_(event);
        tellFlagsMonitors(event.flags);
        return;
    }
    std::uint64_t flags;
    bool grabbed;
    {
        std::lock_guard lock(mutex_);
        flags = flagsLocked();
        grabbed = (flags & (platform::flag::command | platform::flag::option)) && !ungrabbable_.count(code);
        if (!down) {
            if (!down_.erase(code)) return;
        } else if (grabbed) {
            return;  // the grab brings this press, held until the callback answers
        } else {
            down_.insert(code);
        }
    }
    event.type = down ? EventType::keyDown : EventType::keyUp;
    event.flags = flags;
    event.autorepeat = repeat;
    // Not held by a grab: the client has the key already, whatever the answer.
    if (callback_ && enabled_.load() && running_.load()) callback_(event);
}

void X11EventTap::onGrabbedPress(const xcb_key_press_event_t& press) {
    TapDecision decision = TapDecision::pass;
    auto logical = keymap_->logicalCode(press.detail);
    if (logical && callback_ && enabled_.load() && running_.load() && !keymap_->modifier(press.detail)) {
        KeyEvent event;
        event.type = EventType::keyDown;
        event.keyCode = *logical;
        event.timestamp = static_cast<std::uint64_t>(ferrow::MainQueue::shared().clock().machAbsolute());
        {
            std::lock_guard lock(mutex_);
            event.flags = flagsLocked();
            event.autorepeat = down_.count(press.detail) > 0;
            down_.insert(press.detail);
        }
        decision = callback_(event);
    }
    // Replaying hands the held key to the focused client as if no grab were there; async drops it.
    xcb_allow_events(conn_,
                     decision == TapDecision::swallow ? XCB_ALLOW_ASYNC_KEYBOARD : XCB_ALLOW_REPLAY_KEYBOARD,
                     press.time);
    xcb_flush(conn_);
}

void X11EventTap::postKeyEvent(std::uint16_t keyCode, bool down, std::uint64_t) {
    if (!control_ || !keymap_) return;
    auto code = keymap_->xKeyCodeForLogical(keyCode);
    if (!code) return;
    xcb_test_fake_input(control_, down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, *code, XCB_CURRENT_TIME, XCB_NONE,
                        0, 0, 0);
    xcb_flush(control_);
}

void X11EventTap::postKeyEventToPid(std::int32_t, std::uint16_t keyCode, bool down, std::uint64_t flags) {
    postKeyEvent(keyCode, down, flags);
}

bool X11EventTap::startCapsLockMonitor(std::function<void(bool held)> callback) {
    std::lock_guard lock(mutex_);
    capsLockCallback_ = std::move(callback);
    return true;
}

bool X11EventTap::capsLockState() {
    if (!control_) return false;
    auto* r = xcb_query_pointer_reply(control_, xcb_query_pointer(control_, root_), nullptr);
    if (!r) return false;
    bool on = r->mask & XCB_MOD_MASK_LOCK;
    std::free(r);
    return on;
}

void X11EventTap::setCapsLockState(bool on) {
    if (capsLockState() == on) return;
    postKeyEvent(zelk::keycode::capsLock, true, 0);
    postKeyEvent(zelk::keycode::capsLock, false, 0);
}

bool X11EventTap::addFlagsMonitor(std::function<void(std::uint64_t flags)> callback) {
    flagsMonitors_.push_back(std::move(callback));
    return true;
}

std::optional<Key> X11EventTap::key(std::uint16_t code) {
    // Events carry the QWERTY code of the key the layout types, so the code names the key.
    return qwertyKey(code);
}

std::optional<std::uint16_t> X11EventTap::keyCode(Key key) {
    if (keymap_ && !keymap_->xKeyCode(key)) return std::nullopt;
    return qwertyKeyCode(key);
}

}  // namespace zelk::x11
