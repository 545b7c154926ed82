#include "platform/x11/X11Desktop.h"

#include <algorithm>

#include "platform/sim/SimWindowServer.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::x11 {

using ferrow::Log;

namespace {
std::int64_t intField(const platform::GestureEvent& e, int f) {
    auto it = e.integers.find(f);
    return it == e.integers.end() ? -1 : it->second;
}
double doubleField(const platform::GestureEvent& e, int f) {
    auto it = e.doubles.find(f);
    return it == e.doubles.end() ? 0 : it->second;
}
bool onDesktop(const Client& c, std::uint32_t desktop) {
    return c.sticky || c.desktop == desktop;
}
// Connection numbers stand for processes: the window's owner is its client's process.
constexpr std::uint32_t kConnectionBase = 0x10000;
}  // namespace

int SwipeDecoder::post(const platform::GestureEvent& e) {
    // Dock swipes are type 30 with gesture kind 23; a begin (phase 1) then an end (phase 4) is one step,
    // its direction the sign of the progress field (or the overlay's direction code).
    if (intField(e, 55) != 30 || intField(e, 110) != 23) return 0;
    std::int64_t phase = intField(e, 132);
    if (phase == 1) {
        began_ = true;
        return 0;
    }
    if (phase != 4 || !began_) return 0;
    began_ = false;
    if (e.integers.count(135)) {
        std::int64_t code = intField(e, 135);
        return code == 1 ? 1 : code == 4 ? -1 : 0;
    }
    double p = doubleField(e, 124);
    if (e.integers.count(134)) p = -p;  // the newest form's sign is reversed
    return p > 0 ? 1 : p < 0 ? -1 : 0;
}

std::uint64_t X11WindowServer::activeSpace() {
    return spaceForDesktop(d_.snapshot()->currentDesktop);
}

std::optional<std::vector<platform::DisplaySpaces>> X11WindowServer::managedDisplaySpaces() {
    auto snap = d_.snapshot();
    // The window manager switches every output's desktop at once: the desktops belong to the primary
    // display, and the others show whatever it shows.
    platform::DisplaySpaces ds;
    ds.displayIdentifier = d_.primaryDisplay();
    for (std::uint32_t i = 0; i < snap->desktopCount; ++i)
        ds.spaces.push_back({spaceForDesktop(i), 0});
    ds.currentSpace = {spaceForDesktop(snap->currentDesktop), 0};
    return std::vector<platform::DisplaySpaces>{ds};
}

std::optional<std::string> X11WindowServer::activeMenuBarDisplayIdentifier() {
    return d_.primaryDisplay();
}

std::vector<std::uint64_t> X11WindowServer::spacesForWindows(int, const std::vector<std::uint32_t>& windows) {
    auto snap = d_.snapshot();
    std::vector<std::uint64_t> out;
    auto add = [&](std::uint64_t s) {
        if (std::find(out.begin(), out.end(), s) == out.end()) out.push_back(s);
    };
    for (auto id : windows)
        if (const Client* c = snap->client(id)) {
            if (c->sticky)
                for (std::uint32_t i = 0; i < snap->desktopCount; ++i)
                    add(spaceForDesktop(i));
            else
                add(spaceForDesktop(c->desktop));
        }
    return out;
}

std::vector<std::uint32_t> X11WindowServer::windowsOnSpace(std::uint64_t space, int options) {
    auto snap = d_.snapshot();
    auto desktop = desktopForSpace(space, snap->desktopCount);
    std::vector<std::uint32_t> out;
    if (!desktop) return out;
    // Front to back, as the window server lists them.
    for (auto it = snap->clients.rbegin(); it != snap->clients.rend(); ++it) {
        if (!onDesktop(*it, *desktop)) continue;
        if (it->hidden && options == 2) continue;
        out.push_back(it->id);
    }
    return out;
}

std::optional<std::uint32_t> X11WindowServer::windowOwner(std::uint32_t window) {
    const Client* c = d_.snapshot()->client(window);
    if (!c || c->pid <= 0) return std::nullopt;
    return kConnectionBase + static_cast<std::uint32_t>(c->pid);
}

std::optional<std::int32_t> X11WindowServer::connectionPID(std::uint32_t connection) {
    if (connection <= kConnectionBase) return std::nullopt;
    return static_cast<std::int32_t>(connection - kConnectionBase);
}

std::optional<std::string> X11WindowServer::windowTitle(std::uint32_t window) {
    const Client* c = d_.snapshot()->client(window);
    if (!c) return std::nullopt;
    return c->title;
}

std::optional<Rect> X11WindowServer::windowBounds(std::uint32_t window) {
    const Client* c = d_.snapshot()->client(window);
    if (!c) return std::nullopt;
    return c->frame;
}

std::optional<std::int32_t> X11WindowServer::windowLevel(std::uint32_t window) {
    if (!d_.snapshot()->client(window)) return std::nullopt;
    return 0;
}

std::vector<platform::WindowInfo> X11WindowServer::windowList(int option, std::uint32_t relativeTo) {
    auto snap = d_.snapshot();
    auto apps = d_.apps(*snap);
    bool onScreenOnly = option & platform::windowlist::onScreenOnly;
    bool single = option & platform::windowlist::includingWindow;
    std::vector<platform::WindowInfo> rows;
    for (auto it = snap->clients.rbegin(); it != snap->clients.rend(); ++it) {
        if (single && it->id != relativeTo) continue;
        bool onScreen = onDesktop(*it, snap->currentDesktop) && !it->hidden;
        if (onScreenOnly && !onScreen) continue;
        platform::WindowInfo r;
        r.bounds = it->frame;
        r.number = it->id;
        r.ownerPID = it->pid;
        r.ownerName = it->cls;
        for (auto& a : apps)
            if (a.pid == it->pid) r.ownerName = a.name;
        r.layer = 0;
        r.isOnscreen = onScreen;
        r.name = it->title;
        rows.push_back(std::move(r));
    }
    return rows;
}

std::optional<platform::ProcessSerialNumber> X11WindowServer::processForPID(std::int32_t pid) {
    for (auto& c : d_.snapshot()->clients)
        if (c.pid == pid) return platform::ProcessSerialNumber{0, static_cast<std::uint32_t>(pid)};
    return std::nullopt;
}

bool X11WindowServer::setFrontProcessWithOptions(platform::ProcessSerialNumber psn, std::uint32_t window,
                                                 std::uint32_t) {
    auto snap = d_.snapshot();
    auto pid = static_cast<std::int32_t>(psn.low);
    const Client* target = snap->client(window);
    if (target && target->pid != pid) target = nullptr;
    // Without a window, the process's topmost window on the current desktop comes front.
    if (!target)
        for (auto it = snap->clients.rbegin(); it != snap->clients.rend() && !target; ++it)
            if (it->pid == pid && onDesktop(*it, snap->currentDesktop)) target = &*it;
    if (!target) return false;
    // The route never changes the desktop: a window elsewhere waits for the desktop switch.
    if (!onDesktop(*target, snap->currentDesktop)) return true;
    d_.conn().activate(target->id);
    return true;
}

bool X11WindowServer::postEventRecordTo(platform::ProcessSerialNumber psn,
                                        const std::vector<std::uint8_t>& record) {
    if (record.size() < 0x40) return false;
    int kind = record[8];
    std::uint32_t window =
        record[0x3C] | (record[0x3D] << 8) | (record[0x3E] << 16) | (std::uint32_t(record[0x3F]) << 24);
    auto snap = d_.snapshot();
    const Client* c = snap->client(window);
    if (!c || c->pid != static_cast<std::int32_t>(psn.low)) return false;
    // The key-window record makes the window key: the window manager's activation does that.
    if (kind == 2 && onDesktop(*c, snap->currentDesktop)) d_.conn().activate(window);
    return true;
}

bool X11WindowServer::spaceSetFrontPSN(std::uint64_t space, platform::ProcessSerialNumber psn) {
    // Desktops have no front process of their own; activation on arrival decides.
    return desktopForSpace(space, d_.snapshot()->desktopCount) &&
           processForPID(static_cast<std::int32_t>(psn.low));
}

bool X11WindowServer::managedDisplaySetCurrentSpace(const std::string&, std::uint64_t space) {
    auto desktop = desktopForSpace(space, d_.snapshot()->desktopCount);
    if (!desktop) return false;
    d_.conn().switchDesktop(*desktop);
    return true;
}

bool X11WindowServer::moveWindowsToManagedSpace(const std::vector<std::uint32_t>& windows,
                                                std::uint64_t space) {
    auto snap = d_.snapshot();
    auto desktop = desktopForSpace(space, snap->desktopCount);
    if (!desktop) return false;
    bool all = true;
    for (auto id : windows) {
        if (!snap->client(id)) {
            all = false;
            continue;
        }
        d_.conn().moveToDesktop(id, *desktop);
    }
    return all;
}

bool X11WindowServer::registerNotifyProc(int code, NotifyCallback callback) {
    if (code != 1325 && code != 1326) return false;
    notify_.emplace(code, std::move(callback));
    return true;
}

void X11WindowServer::coreDockSendNotification(const std::string& name) {
    Log::info("coreDock: {} has no meaning on X11; ignored", name);
}

bool X11WindowServer::postGestureEvent(const platform::GestureEvent& event) {
    int step = swipes_.post(event);
    if (step == 0) return true;
    auto snap = d_.snapshot();
    // A second step in the same burst counts from where the first one lands, before the window
    // manager has said so.
    std::uint32_t from = requested_.value_or(snap->currentDesktop);
    long target = static_cast<long>(from) + step;
    // Like the end of a row of Spaces, the first and last desktop don't wrap.
    if (target < 0 || target >= static_cast<long>(snap->desktopCount)) return true;
    requested_ = static_cast<std::uint32_t>(target);
    d_.conn().switchDesktop(*requested_);
    return true;
}

// Gesture events keep the same field-tagged binary form the simulated desktop uses, so a record
// made here reads back field by field.
std::vector<std::uint8_t> X11WindowServer::eventData(const platform::GestureEvent& event) {
    return sim::encodeSimEventData(event);
}

std::optional<platform::GestureEvent> X11WindowServer::eventFromData(const std::vector<std::uint8_t>& data) {
    return sim::decodeSimEventData(data);
}

void X11WindowServer::dispatch(const Change& change) {
    if (change.kind == Change::Kind::desktopChanged) requested_.reset();
    int code = change.kind == Change::Kind::windowCreated     ? 1325
               : change.kind == Change::Kind::windowDestroyed ? 1326
                                                              : 0;
    if (!code) return;
    std::vector<std::uint8_t> payload(16, 0);
    for (int i = 0; i < 4; ++i)
        payload[8 + i] = static_cast<std::uint8_t>((change.window >> (8 * i)) & 0xFF);
    auto range = notify_.equal_range(code);
    for (auto it = range.first; it != range.second; ++it)
        it->second(code, payload);
}

}  // namespace zelk::x11
