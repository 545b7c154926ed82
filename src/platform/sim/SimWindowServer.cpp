#include "platform/sim/SimWindowServer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/EventTap.h"
#include "support/MainQueue.h"

namespace zelk::sim {

using platform::GestureEvent;

namespace {
constexpr int kDoubleTagBase = 0x2000;
constexpr int kLocationTag = 0x3F00;

void putHeader(std::vector<std::uint8_t>& out, int count, int kind, int tag) {
    out.push_back(static_cast<std::uint8_t>((count >> 8) & 0xFF));
    out.push_back(static_cast<std::uint8_t>(count & 0xFF));
    out.push_back(static_cast<std::uint8_t>(((kind & 3) << 6) | ((tag >> 8) & 0x3F)));
    out.push_back(static_cast<std::uint8_t>(tag & 0xFF));
}
void putLE64(std::vector<std::uint8_t>& out, std::uint64_t v) {
    for (int i = 0; i < 8; ++i)
        out.push_back(static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF));
}
std::uint64_t getLE64(const std::vector<std::uint8_t>& d, std::size_t at) {
    std::uint64_t v = 0;
    for (int i = 0; i < 8; ++i)
        v |= std::uint64_t(d[at + i]) << (8 * i);
    return v;
}
std::uint64_t bitsOf(double v) {
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}
double doubleOf(std::uint64_t b) {
    double v;
    std::memcpy(&v, &b, sizeof v);
    return v;
}
}  // namespace

std::vector<std::uint8_t> encodeSimEventData(const GestureEvent& e) {
    std::vector<std::uint8_t> out{0x00, 0x00, 0x00, 0x02};
    for (auto& [field, value] : e.integers) {
        putHeader(out, 1, 0, field);
        putLE64(out, static_cast<std::uint64_t>(value));
    }
    for (auto& [field, value] : e.doubles) {
        putHeader(out, 1, 0, kDoubleTagBase + field);
        putLE64(out, bitsOf(value));
    }
    if (e.location) {
        putHeader(out, 16, 0, kLocationTag);
        putLE64(out, bitsOf(e.location->x));
        putLE64(out, bitsOf(e.location->y));
    }
    return out;
}

std::optional<GestureEvent> decodeSimEventData(const std::vector<std::uint8_t>& d) {
    if (d.size() < 4) return std::nullopt;
    GestureEvent e;
    std::size_t at = 4;
    while (d.size() - at >= 8) {
        int count = (d[at] << 8) | d[at + 1];
        int kind = d[at + 2] >> 6;
        int tag = ((d[at + 2] & 0x3F) << 8) | d[at + 3];
        std::size_t size = kind == 0   ? (count == 1 ? 8 : static_cast<std::size_t>((count + 3) / 4 * 4))
                           : kind == 2 ? 0
                                       : static_cast<std::size_t>(count) * 4;
        if (at + 4 + size > d.size()) break;
        std::size_t payload = at + 4;
        if (kind == 0 && size == 8 && tag < kDoubleTagBase)
            e.integers[tag] = static_cast<std::int64_t>(getLE64(d, payload));
        else if (kind == 0 && size == 8 && tag >= kDoubleTagBase && tag < kLocationTag)
            e.doubles[tag - kDoubleTagBase] = doubleOf(getLE64(d, payload));
        else if (kind == 0 && size == 16 && tag == kLocationTag)
            e.location = Point{doubleOf(getLE64(d, payload)), doubleOf(getLE64(d, payload + 8))};
        at = payload + size;
    }
    e.data = d;
    return e;
}

std::string validateKeyWindowRecord(const std::vector<std::uint8_t>& r, int expectedKind) {
    if (r.size() != 0xF8) return "size " + std::to_string(r.size());
    for (std::size_t i = 0; i < r.size(); ++i) {
        std::uint8_t want = 0;
        if (i == 0x04)
            want = 0xF8;
        else if (i == 0x08)
            want = static_cast<std::uint8_t>(expectedKind);
        else if (i >= 0x20 && i <= 0x2F)
            want = 0xFF;
        else if (i == 0x3A)
            want = 0x10;
        else if (i >= 0x3C && i <= 0x3F)
            continue;  // the window id
        if (r[i] != want) return "byte " + std::to_string(i);
    }
    return "";
}

namespace {
std::int64_t intField(const GestureEvent& e, int f, std::int64_t fallback = -1) {
    auto it = e.integers.find(f);
    return it == e.integers.end() ? fallback : it->second;
}
double doubleField(const GestureEvent& e, int f, double fallback = 0) {
    auto it = e.doubles.find(f);
    return it == e.doubles.end() ? fallback : it->second;
}
}  // namespace

bool GestureDecoder::post(const GestureEvent& e) {
    std::int64_t type = intField(e, 55);
    if (type == 29) return true;  // a plain gesture event carries nothing on its own
    if (type != 30 || intField(e, 110) != 23) return false;
    std::int64_t phase = intField(e, 132);
    bool newest = e.integers.count(134) > 0;
    bool overlay = e.integers.count(135) > 0;
    if (phase == 1) {
        began_ = true;
        return true;
    }
    if (phase == 2) return true;
    if (phase != 4 || !began_) return true;
    began_ = false;
    int direction = 0;  // +1 right (to the next Space), -1 left
    if (overlay) {
        std::int64_t code = intField(e, 135);
        direction = code == 1 ? 1 : code == 4 ? -1 : 0;
        if (world_.overlay() != Overlay::missionControl) direction = 0;
    } else if (newest) {
        double p = doubleField(e, 124);
        direction = p < 0 ? 1 : p > 0 ? -1 : 0;  // the newest form's sign is reversed
    } else {
        double p = doubleField(e, 124);
        direction = p > 0 ? 1 : p < 0 ? -1 : 0;
    }
    if (direction != 0) swipe(direction, e.location);
    return true;
}

void GestureDecoder::swipe(int direction, std::optional<Point> location) {
    ++swipes_;
    const auto& displays = world_.displays();
    if (displays.empty()) return;
    std::size_t d = world_.activeDisplay();
    if (location) {
        for (std::size_t i = 0; i < displays.size(); ++i)
            if (displays[i].frame.contains(*location)) d = i;
    }
    auto& spaces = displays[d].spaces;
    auto now = ferrow::MainQueue::shared().now();
    std::size_t from = 0;
    for (std::size_t i = 0; i < spaces.size(); ++i)
        if (spaces[i].id == displays[d].currentSpace) from = i;
    if (auto it = pending_.find(d); it != pending_.end() && it->second.second > now) from = it->second.first;
    long target = static_cast<long>(from) + direction;
    if (target < 0 || target >= static_cast<long>(spaces.size())) return;  // the Dock bounces at the ends
    std::uint64_t space = spaces[static_cast<std::size_t>(target)].id;
    ferrow::Nanos lands = now + ferrow::ms(world_.spaceSwitchLatencyMs);
    pending_[d] = {static_cast<std::size_t>(target), lands};
    if (world_.spaceSwitchLatencyMs <= 0) {
        world_.switchSpace(d, space);
        return;
    }
    ferrow::mainAsyncAfter(world_.spaceSwitchLatencyMs, [this, d, space] { world_.switchSpace(d, space); });
}

bool SimWindowServer::postGestureEvent(const GestureEvent& event) {
    posted_.push_back(event);
    return gestures_.post(event);
}

std::vector<std::uint8_t> SimWindowServer::eventData(const GestureEvent& event) {
    if (world_.faults.eventDataFails) return {};
    return encodeSimEventData(event);
}

std::optional<GestureEvent> SimWindowServer::eventFromData(const std::vector<std::uint8_t>& data) {
    if (world_.faults.eventDataFails) return std::nullopt;
    return decodeSimEventData(data);
}

SimWindowServer::SimWindowServer(SimWorld& world) : world_(world), gestures_(world) {
    using namespace platform;
    hotKeys_[27] = {50, flag::command, true};
    for (int n = 0; n < 16; ++n) {
        static const std::uint16_t digits[] = {18, 19, 20, 21, 23, 22, 26, 28, 25, 29};
        hotKeys_[118 + n] = {n < 10 ? digits[n] : std::uint16_t(0), flag::control, n < 4};
    }
    hotKeys_[79] = {123, flag::control, true};
    hotKeys_[81] = {124, flag::control, true};
    subscription_ = world_.changes.subscribe([this](const WorldChange& c) { onChange(c); });
}
SimWindowServer::~SimWindowServer() = default;

std::optional<std::vector<platform::DisplaySpaces>> SimWindowServer::managedDisplaySpaces() {
    if (world_.faults.noWindowServer) return std::nullopt;
    std::vector<platform::DisplaySpaces> out;
    for (auto& d : world_.displays()) {
        platform::DisplaySpaces ds;
        ds.displayIdentifier = d.uuid;
        for (auto& s : d.spaces) {
            platform::SpaceEntry e{s.id, s.fullscreen ? 4 : 0};
            ds.spaces.push_back(e);
            if (s.id == d.currentSpace) ds.currentSpace = e;
        }
        out.push_back(std::move(ds));
    }
    return out;
}

std::optional<std::string> SimWindowServer::activeMenuBarDisplayIdentifier() {
    if (world_.displays().empty()) return std::nullopt;
    return world_.displays()[world_.activeDisplay()].uuid;
}

std::vector<std::uint64_t> SimWindowServer::spacesForWindows(int, const std::vector<std::uint32_t>& windows) {
    std::vector<std::uint64_t> out;
    for (auto id : windows)
        if (const SimWindow* w = world_.window(id))
            if (std::find(out.begin(), out.end(), w->space) == out.end()) out.push_back(w->space);
    return out;
}

std::vector<std::uint32_t> SimWindowServer::windowsOnSpace(std::uint64_t space, int options) {
    std::vector<std::uint32_t> out;
    for (auto id : world_.zOrder()) {
        const SimWindow* w = world_.window(id);
        if (!w || w->space != space) continue;
        if (w->minimized && options == 2) continue;
        out.push_back(id);
    }
    return out;
}

std::optional<std::uint32_t> SimWindowServer::windowOwner(std::uint32_t window) {
    const SimWindow* w = world_.window(window);
    if (!w) return std::nullopt;
    return 0x10000u + static_cast<std::uint32_t>(w->pid);
}

std::optional<std::int32_t> SimWindowServer::connectionPID(std::uint32_t connection) {
    if (connection < 0x10000u) return std::nullopt;
    auto pid = static_cast<std::int32_t>(connection - 0x10000u);
    if (!world_.appByPid(pid)) return std::nullopt;
    return pid;
}

std::optional<std::string> SimWindowServer::windowTitle(std::uint32_t window) {
    const SimWindow* w = world_.window(window);
    if (!w) return std::nullopt;
    return w->title;
}

std::optional<Rect> SimWindowServer::windowBounds(std::uint32_t window) {
    const SimWindow* w = world_.window(window);
    if (!w) return std::nullopt;
    return w->frame;
}

std::optional<std::int32_t> SimWindowServer::windowLevel(std::uint32_t window) {
    const SimWindow* w = world_.window(window);
    if (!w) return std::nullopt;
    return w->level;
}

std::vector<platform::WindowInfo> SimWindowServer::windowList(int option, std::uint32_t relativeTo) {
    std::vector<platform::WindowInfo> rows;
    if (world_.faults.noWindowServer) return rows;
    bool onScreenOnly = option & platform::windowlist::onScreenOnly;
    bool single = option & platform::windowlist::includingWindow;
    // The Dock's overlay windows while Mission Control (more at layer 20) or App Exposé (equal) shows.
    if (world_.overlay() != Overlay::none && !single) {
        int a = world_.overlay() == Overlay::missionControl ? 2 : 1;
        int b = 1;
        auto dockRow = [&](std::uint32_t n, int layer) {
            platform::WindowInfo r;
            r.number = n;
            r.ownerName = "Dock";
            r.layer = layer;
            r.ownerPID = 90;
            r.isOnscreen = true;
            r.bounds = world_.displays().empty() ? Rect{} : world_.displays().front().frame;
            rows.push_back(r);
        };
        for (int i = 0; i < a; ++i)
            dockRow(90 + i, 20);
        for (int i = 0; i < b; ++i)
            dockRow(95 + i, 18);
    }
    for (auto id : world_.zOrder()) {
        if (single && id != relativeTo) continue;
        const SimWindow* w = world_.window(id);
        const SimApp* app = w ? world_.appByPid(w->pid) : nullptr;
        if (!w || !app) continue;
        bool onScreen = world_.isWindowOnScreen(*w);
        if (onScreenOnly && !onScreen) continue;
        platform::WindowInfo r;
        r.bounds = w->frame;
        r.number = id;
        r.ownerName = app->name;
        r.layer = w->level;
        r.ownerPID = w->pid;
        r.isOnscreen = onScreen;
        r.memoryUsage = 2048;
        if (world_.permissions.screenRecording) r.name = w->title;
        rows.push_back(r);
    }
    return rows;
}

std::optional<platform::ProcessSerialNumber> SimWindowServer::processForPID(std::int32_t pid) {
    if (!world_.appByPid(pid)) return std::nullopt;
    return platform::ProcessSerialNumber{0, static_cast<std::uint32_t>(pid)};
}

bool SimWindowServer::setFrontProcessWithOptions(platform::ProcessSerialNumber psn, std::uint32_t window,
                                                 std::uint32_t) {
    ++frontCalls_;
    auto pid = static_cast<std::int32_t>(psn.low);
    if (!world_.appByPid(pid)) return false;
    const SimWindow* w = window ? world_.window(window) : nullptr;
    // The process comes front where it is: this route never changes the Space.
    return world_.activate(pid, w && w->pid == pid ? window : 0, false);
}

bool SimWindowServer::postEventRecordTo(platform::ProcessSerialNumber psn,
                                        const std::vector<std::uint8_t>& record) {
    auto pid = static_cast<std::int32_t>(psn.low);
    int kind = record.size() > 8 ? record[8] : 0;
    std::uint32_t window = 0;
    if (record.size() >= 0x40)
        window =
            record[0x3C] | (record[0x3D] << 8) | (record[0x3E] << 16) | (std::uint32_t(record[0x3F]) << 24);
    bool valid = (kind == 1 || kind == 2) && validateKeyWindowRecord(record, kind).empty();
    records_.push_back({pid, window, valid});
    if (!valid || !world_.appByPid(pid)) return false;
    const SimWindow* w = world_.window(window);
    if (kind == 2 && w && w->pid == pid && world_.isWindowOnVisibleSpace(*w)) world_.raiseWithinApp(window);
    return true;
}

bool SimWindowServer::spaceSetFrontPSN(std::uint64_t space, platform::ProcessSerialNumber psn) {
    auto pid = static_cast<std::int32_t>(psn.low);
    spaceFront_.push_back({space, pid});
    return world_.displayIndexOfSpace(space) && world_.appByPid(pid);
}

bool SimWindowServer::managedDisplaySetCurrentSpace(const std::string& display, std::uint64_t space) {
    auto d = world_.displayIndexByUUID(display);
    if (!d) return false;
    return world_.switchSpace(*d, space);
}

bool SimWindowServer::directMoveRefused() const {
    const int major = world_.osMajorVersion, minor = world_.osMinorVersion;
    return major > 14 || (major == 12 && minor >= 7) || (major == 13 && minor >= 6) ||
           (major == 14 && minor >= 5);
}

bool SimWindowServer::moveWindowsToManagedSpace(const std::vector<std::uint32_t>& windows,
                                                std::uint64_t space) {
    // A refused call reports success for our own windows only: others' stay where they are.
    bool foreign = std::any_of(windows.begin(), windows.end(), [this](std::uint32_t id) {
        const SimWindow* w = world_.window(id);
        return w && w->pid != SimWorld::kOwnPID;
    });
    if (directMoveRefused() && foreign) {
        moveCalls_.push_back({"direct refused", windows, space});
        return false;
    }
    moveCalls_.push_back({"direct", windows, space});
    bool all = true;
    for (auto id : windows)
        all = world_.moveWindowToSpace(id, space) && all;
    return all;
}

bool SimWindowServer::bridgedMoveWindows(const std::vector<std::uint32_t>& windows, std::uint64_t space) {
    if (!world_.bridgedMoveAvailable || !world_.displayIndexOfSpace(space)) return false;
    moveCalls_.push_back({"bridged", windows, space});
    auto land = [this, windows, space] {
        for (auto id : windows)
            world_.moveWindowToSpace(id, space);
    };
    if (world_.moveLatencyMs <= 0)
        land();
    else
        ferrow::mainAsyncAfter(world_.moveLatencyMs, land);
    return true;
}

bool SimWindowServer::registerNotifyProc(int code, NotifyCallback callback) {
    notify_.emplace(code, std::move(callback));
    return true;
}

std::optional<platform::SymbolicHotKey> SimWindowServer::symbolicHotKeyValue(int hotKey) {
    auto it = hotKeys_.find(hotKey);
    if (it == hotKeys_.end()) return std::nullopt;
    return platform::SymbolicHotKey{it->second.keyCode, it->second.modifiers};
}

bool SimWindowServer::isSymbolicHotKeyEnabled(int hotKey) {
    auto it = hotKeys_.find(hotKey);
    return it != hotKeys_.end() && it->second.enabled;
}

bool SimWindowServer::setSymbolicHotKeyEnabled(int hotKey, bool enabled) {
    auto it = hotKeys_.find(hotKey);
    if (it == hotKeys_.end()) return false;
    it->second.enabled = enabled;
    return true;
}

void SimWindowServer::coreDockSendNotification(const std::string& name) {
    if (name == "com.apple.expose.awake")
        world_.setOverlay(world_.overlay() == Overlay::none ? Overlay::missionControl : Overlay::none);
    else if (name == "com.apple.expose.front.awake")
        world_.setOverlay(world_.overlay() == Overlay::none ? Overlay::appExpose : Overlay::none);
}

namespace {

constexpr std::size_t kRowPadding = 16;

std::uint32_t mixBits(std::uint64_t v) {
    v ^= v >> 33;
    v *= 0xff51afd7ed558ccdULL;
    v ^= v >> 33;
    v *= 0xc4ceb9fe1a85ec53ULL;
    v ^= v >> 33;
    return static_cast<std::uint32_t>(v);
}

std::uint32_t textBits(const std::string& text) {
    std::uint64_t h = 1469598103934665603ULL;
    for (unsigned char c : text)
        h = (h ^ c) * 1099511628211ULL;
    return mixBits(h);
}

// One opaque BGRA pixel from the low 24 bits of a colour.
void putOpaque(std::uint8_t* p, std::uint32_t rgb) {
    p[0] = static_cast<std::uint8_t>(rgb & 0xFF);
    p[1] = static_cast<std::uint8_t>((rgb >> 8) & 0xFF);
    p[2] = static_cast<std::uint8_t>((rgb >> 16) & 0xFF);
    p[3] = 0xFF;
}

platform::WindowImage blankImage(int width, int height) {
    platform::WindowImage img;
    img.width = std::max(1, width);
    img.height = std::max(1, height);
    img.bytesPerRow = static_cast<std::size_t>(img.width) * 4 + kRowPadding;
    // Padding holds bytes no reader may mistake for pixels.
    img.pixels.assign(img.bytesPerRow * static_cast<std::size_t>(img.height), 0xEE);
    return img;
}

}  // namespace

platform::WindowImage drawSimWindow(std::uint32_t id, const std::string& title, std::uint32_t generation,
                                    int width, int height) {
    platform::WindowImage img = blankImage(width, height);
    const std::uint32_t body = mixBits(id) | 0x202020;
    const std::uint32_t band = textBits(title);
    const std::uint32_t stripe = mixBits((static_cast<std::uint64_t>(id) << 32) | generation);
    const int bandRows = std::min(img.height, std::max(1, img.height / 12));
    const std::size_t rowBytes = static_cast<std::size_t>(img.width) * 4;
    std::vector<std::uint8_t> bandRow(rowBytes), bodyRow(rowBytes);
    const int stripeOffset = static_cast<int>(generation * 7u % 32u);
    for (int x = 0; x < img.width; ++x) {
        putOpaque(&bandRow[static_cast<std::size_t>(x) * 4], band);
        const bool inStripe = ((x + stripeOffset) / 16) % 2 == 0;
        putOpaque(&bodyRow[static_cast<std::size_t>(x) * 4], inStripe ? stripe : body);
    }
    // The corners are clear (alpha 0, so premultiplied colour 0), as a rounded window's are.
    for (int y = 0; y < img.height; ++y) {
        std::uint8_t* row = img.pixels.data() + img.bytesPerRow * static_cast<std::size_t>(y);
        std::memcpy(row, y < bandRows ? bandRow.data() : bodyRow.data(), rowBytes);
        if ((y == 0 || y == img.height - 1) && img.width > 2) {
            std::memset(row, 0, 4);
            std::memset(row + rowBytes - 4, 0, 4);
        }
    }
    return img;
}

platform::WindowImage drawSimWallpaper(const std::string& path, int width, int height) {
    platform::WindowImage img = blankImage(width, height);
    const std::uint32_t top = textBits(path), bottom = mixBits(top);
    for (int y = 0; y < img.height; ++y) {
        std::uint8_t px[4];
        const int t = img.height > 1 ? y * 255 / (img.height - 1) : 0;
        std::uint32_t rgb = 0;
        for (int c = 0; c < 3; ++c) {
            const int a = static_cast<int>((top >> (8 * c)) & 0xFF),
                      b = static_cast<int>((bottom >> (8 * c)) & 0xFF);
            rgb |= static_cast<std::uint32_t>((a * (255 - t) + b * t) / 255) << (8 * c);
        }
        putOpaque(px, rgb);
        std::uint8_t* row = img.pixels.data() + img.bytesPerRow * static_cast<std::size_t>(y);
        for (int x = 0; x < img.width; ++x)
            std::memcpy(row + static_cast<std::size_t>(x) * 4, px, 4);
    }
    return img;
}

namespace {

struct WindowSnapshot {
    std::uint32_t id = 0;
    std::string title;
    std::uint32_t generation = 0;
    int width = 0, height = 0;
    bool tiny = false;
};

int pixelsOf(double points, double scale) {
    return std::max(1, static_cast<int>(points * scale));
}

}  // namespace

std::vector<platform::WindowImage> SimWindowServer::captureWindows(const std::vector<std::uint32_t>& windows,
                                                                   std::uint32_t) {
    // The world belongs to the main thread: read what the pictures depend on there, draw here.
    std::vector<WindowSnapshot> shots;
    ferrow::MainQueue::shared().sync([&] {
        if (!world_.permissions.screenRecording || world_.faults.noWindowServer) return;
        const PictureKnobs& knobs = world_.pictures;
        for (auto id : windows) {
            const SimWindow* w = world_.window(id);
            if (!w || knobs.none.count(id)) continue;
            auto gen = knobs.generation.find(id);
            shots.push_back({id, w->title, gen == knobs.generation.end() ? 0u : gen->second,
                             pixelsOf(w->frame.width, knobs.pixelScale),
                             pixelsOf(w->frame.height, knobs.pixelScale), knobs.tiny.count(id) > 0});
        }
    });
    std::vector<platform::WindowImage> out;
    out.reserve(shots.size());
    for (const auto& s : shots)
        out.push_back(s.tiny ? drawSimWindow(s.id, s.title, s.generation, 1, 1)
                             : drawSimWindow(s.id, s.title, s.generation, s.width, s.height));
    return out;
}

std::optional<std::vector<platform::ShareableWindow>> SimWindowServer::shareableWindows() {
    if (!world_.permissions.screenRecording || world_.pictures.fallbackFails) return std::nullopt;
    std::vector<platform::ShareableWindow> out;
    for (const auto& [id, w] : world_.windows())
        out.push_back({id, w.frame});
    return out;
}

std::optional<platform::WindowImage> SimWindowServer::screenshotWindow(std::uint32_t window, int width,
                                                                       int height) {
    if (!world_.permissions.screenRecording || world_.pictures.fallbackFails) return std::nullopt;
    const SimWindow* w = world_.window(window);
    if (!w || width < 1 || height < 1) return std::nullopt;
    auto gen = world_.pictures.generation.find(window);
    return drawSimWindow(window, w->title, gen == world_.pictures.generation.end() ? 0u : gen->second, width,
                         height);
}

std::optional<std::string> SimWindowServer::desktopImagePath(std::uint32_t displayID) {
    auto index = world_.displayIndexById(displayID);
    if (!index) return std::nullopt;
    const std::string& uuid = world_.displays()[*index].uuid;
    auto it = world_.pictures.wallpapers.find(uuid);
    if (it != world_.pictures.wallpapers.end())
        return it->second.empty() ? std::nullopt : std::optional<std::string>(it->second);
    return std::string("/Library/Desktop Pictures/Default.png");
}

std::optional<platform::WindowImage> SimWindowServer::loadImage(const std::string& path) {
    if (path.empty()) return std::nullopt;
    // A pure function of the path: safe on any thread.
    return drawSimWallpaper(path, 320, 200);
}

void SimWindowServer::onChange(const WorldChange& c) {
    int code = c.kind == WorldChange::Kind::windowCreated  ? 1325
               : c.kind == WorldChange::Kind::windowClosed ? 1326
                                                           : 0;
    if (!code || notify_.count(code) == 0) return;
    std::vector<std::uint8_t> payload(16, 0);
    for (int i = 0; i < 4; ++i)
        payload[8 + i] = static_cast<std::uint8_t>((c.window >> (8 * i)) & 0xFF);
    auto range = notify_.equal_range(code);
    for (auto it = range.first; it != range.second; ++it) {
        auto cb = it->second;
        ferrow::mainAsync([cb, code, payload] { cb(code, payload); });
    }
}

}  // namespace zelk::sim
