#include "companions/PointerFollower.h"

#include <fmt/format.h>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "platform/Platform.h"
#include "support/Log.h"
#include "windows/AXReader.h"

namespace zelk::companions {

using ferrow::Log;
using platform::AXRef;

namespace {

std::unique_ptr<PointerFollower>& instance() {
    static std::unique_ptr<PointerFollower> follower;
    return follower;
}

template <typename T>
std::optional<T> attribute(platform::Accessibility& ax, AXRef element, const std::string& name) {
    auto r = ax.copyAttribute(element, name);
    if (!r.ok() || !r.value) return std::nullopt;
    if (auto* v = std::get_if<T>(&*r.value)) return *v;
    return std::nullopt;
}

// The middle of an accessibility window's frame, read from its position and size.
std::optional<Point> elementMiddle(platform::Accessibility& ax, AXRef window) {
    auto origin = attribute<Point>(ax, window, "AXPosition");
    auto size = attribute<Size>(ax, window, "AXSize");
    if (!origin || !size) return std::nullopt;
    return Rect{origin->x, origin->y, size->width, size->height}.center();
}

}  // namespace

PointerFollower& PointerFollower::shared() {
    auto& p = instance();
    if (!p) p = std::make_unique<PointerFollower>();
    return *p;
}

void PointerFollower::reset() {
    if (auto& p = instance()) p->pendingWarp_.cancel();
    instance().reset();
}

std::string describe(const PointerFollower::Target& target) {
    struct Text {
        std::string operator()(const PointerFollower::WindowTarget& t) const {
            return fmt::format("window#{}", t.windowID);
        }
        std::string operator()(const PointerFollower::AppTarget& t) const {
            return fmt::format("app pid={}", t.pid);
        }
        std::string operator()(const PointerFollower::DisplayTarget& t) const {
            return fmt::format("display#{}", t.displayID);
        }
    };
    return std::visit(Text{}, target);
}

void PointerFollower::noteMouseInitiatedFocus() {
    skipNextWarpUntil = ferrow::now() + kMouseFocusQuiet;
}

void PointerFollower::follow(const Target& target) {
    if (!Settings::shared().get(keys::moveCursorToFocusedApp)) return;
    if (skipNextWarpUntil && *skipNextWarpUntil > ferrow::now()) {
        Log::debug("PointerFollower: skip warp, mouse-initiated focus");
        return;
    }
    latestTarget_ = target;
    pendingWarp_.cancel();
    // Only the newest target of a burst is warped to: each one pushes the warp back.
    std::weak_ptr<bool> alive = alive_;
    pendingWarp_ = ferrow::mainAsyncAfter(kWarpDelay / ferrow::kNanosPerMs, [this, alive] {
        if (alive.lock()) warp();
    });
}

void PointerFollower::clear() {
    latestTarget_.reset();
    pendingWarp_ = {};
}

void PointerFollower::warp() {
    if (!latestTarget_) {
        pendingWarp_ = {};
        return;
    }
    auto* pointer = platform::Platform::current().pointer;
    if (!pointer) {
        clear();
        return;
    }
    // A warp during a drag would tear it; the target is dropped, not retried.
    if (std::uint32_t buttons = pointer->pressedButtons(); buttons != 0) {
        Log::debug("PointerFollower: skip warp, mouse buttons pressed bits={}", buttons);
        clear();
        return;
    }
    const Target target = *latestTarget_;
    std::optional<Point> point = resolve(target);
    if (!point && !std::holds_alternative<DisplayTarget>(target)) point = displayUnderPointer();
    if (!point) {
        Log::debug("PointerFollower: skip warp, could not resolve point for target={}", describe(target));
        clear();
        return;
    }
    Log::info("PointerFollower: warp -> ({:f}, {:f}) target={}", point->x, point->y, describe(target));
    // The backend's warp also re-associates the mouse with the pointer, so the next move starts here.
    pointer->warp(*point);
    clear();
}

std::optional<Point> PointerFollower::resolve(const Target& target) {
    if (auto* w = std::get_if<WindowTarget>(&target)) return windowPoint(w->windowID);
    if (auto* a = std::get_if<AppTarget>(&target)) return appPoint(a->pid);
    return displayPoint(std::get<DisplayTarget>(target).displayID);
}

std::vector<windows::ManagedWindow> PointerFollower::trackedWindows() const {
    return source_.trackedWindows ? source_.trackedWindows() : std::vector<windows::ManagedWindow>{};
}

// The tracked window's accessibility frame, else the window server's bounds for that one window.
std::optional<Point> PointerFollower::windowPoint(std::uint32_t windowID) {
    auto& p = platform::Platform::current();
    std::optional<windows::ManagedWindow> tracked;
    for (auto& w : trackedWindows())
        if (w.id == windowID) tracked = w;
    if (tracked && tracked->appPid > 0 && p.accessibility) {
        windows::AXReader reader(*p.accessibility);
        AXRef app = reader.application(tracked->appPid);
        platform::AXError error{};
        if (auto list = reader.windows(app, error))
            for (AXRef element : *list)
                if (p.accessibility->windowNumber(element) == windowID)
                    if (auto middle = elementMiddle(*p.accessibility, element)) return middle;
    }
    if (!p.windowServer) return std::nullopt;
    for (auto& row : p.windowServer->windowList(platform::windowlist::includingWindow, windowID))
        if (row.number == windowID) return row.bounds.center();
    return std::nullopt;
}

std::optional<Point> PointerFollower::appPoint(std::int32_t pid) {
    auto& p = platform::Platform::current();
    if (source_.focusedWindow)
        if (auto focused = source_.focusedWindow(); focused && focused->appPid == pid)
            return windowPoint(focused->id);
    if (!p.workspace) return std::nullopt;
    auto running = p.workspace->runningApp(pid);
    if (!running || running->terminated) return std::nullopt;
    if (p.accessibility) {
        windows::AXReader reader(*p.accessibility);
        AXRef app = reader.application(pid);
        if (auto main = reader.element(app, "AXMainWindow"))
            if (auto middle = elementMiddle(*p.accessibility, *main)) return middle;
    }
    for (auto& w : trackedWindows())
        if (w.appPid == pid && !w.isMinimized) return windowPoint(w.id);
    return std::nullopt;
}

std::optional<Point> PointerFollower::displayPoint(std::uint32_t displayID) {
    auto* screens = platform::Platform::current().screens;
    if (!screens) return std::nullopt;
    for (auto& s : screens->screens())
        if (s.displayID == displayID) return s.frame.center();
    return std::nullopt;
}

std::optional<Point> PointerFollower::displayUnderPointer() {
    auto& p = platform::Platform::current();
    if (!p.pointer || !p.screens) return std::nullopt;
    const Point at = p.pointer->location();
    for (auto& s : p.screens->screens())
        if (s.frame.contains(at)) return displayPoint(s.displayID);
    return std::nullopt;
}

}  // namespace zelk::companions
