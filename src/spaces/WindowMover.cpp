#include "spaces/WindowMover.h"

#include <algorithm>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "support/Log.h"
#include "windows/WindowManager.h"

namespace zelk::spaces {

using ferrow::Log;
using ferrow::Task;
using platform::AXRef;
using platform::MouseEventKind;

namespace {

constexpr int kFirstSwitchHotKey = 118;  // "Switch to Desktop 1"; n is 118 + n - 1, up to 16

bool setting(const SettingKey<bool>& key) {
    return Settings::shared().get(key);
}

std::int64_t elapsedMs(ferrow::Nanos since) {
    return (ferrow::now() - since) / ferrow::kNanosPerMs;
}

MissionControlDriver::Environment driverEnvironment(const platform::Platform& p, windows::WindowManager& wm) {
    MissionControlDriver::Environment env;
    env.ax = p.accessibility;
    env.server = p.windowServer;
    env.workspace = p.workspace;
    env.mouse = p.mouse;
    env.screens = p.screens;
    env.overlayShown = [&wm] { return wm.iss().overlayState() == OverlayState::missionControl; };
    env.activeDisplayFrame = [p]() -> std::optional<Rect> {
        if (!p.screens || !p.windowServer) return std::nullopt;
        auto all = p.windowServer->managedDisplaySpaces();
        const std::uint64_t active = p.windowServer->activeSpace();
        if (all)
            for (auto& d : *all)
                if (d.currentSpace.id64 == active)
                    for (auto& s : p.screens->screens())
                        if (s.uuid == d.displayIdentifier) return s.frame;
        auto screens = p.screens->screens();
        if (screens.empty()) return std::nullopt;
        return screens.front().frame;
    };
    return env;
}

}  // namespace

WindowMover::WindowMover(windows::WindowManager& windows, const platform::Platform& platform)
    : windows_(windows), platform_(platform), mc_(driverEnvironment(platform, windows)) {}

WindowMover::~WindowMover() {
    *alive_ = false;
}

void WindowMover::done() {
    if (movesChanged) movesChanged();
}

std::vector<NumberedSpace> WindowMover::numbered() {
    return numberUserSpaces(windows_.displaySpaces());
}

std::uint64_t WindowMover::windowSpace(std::uint32_t wid) {
    auto spaces = platform_.windowServer->spacesForWindows(7, {wid});
    return spaces.empty() ? 0 : spaces.front();
}

std::optional<std::string> WindowMover::displayOfSpace(std::uint64_t space) {
    for (auto& d : windows_.displaySpaces())
        for (auto& s : d.spaces)
            if (s.id64 == space) return d.displayIdentifier;
    return std::nullopt;
}

std::optional<std::int32_t> WindowMover::ownerPid(std::uint32_t wid) {
    auto owner = platform_.windowServer->windowOwner(wid);
    auto pid = owner ? platform_.windowServer->connectionPID(*owner) : std::nullopt;
    if (!pid || *pid < 1) return std::nullopt;
    return pid;
}

std::optional<AXRef> WindowMover::resolveWindow(std::uint32_t wid) {
    auto pid = ownerPid(wid);
    if (!pid) return std::nullopt;
    auto& ax = *platform_.accessibility;
    AXRef app = ax.applicationElement(*pid);
    ax.setMessagingTimeout(app, 1.0);
    auto r = ax.copyAttribute(app, "AXWindows");
    if (!r.ok() || !r.value) return std::nullopt;
    if (auto* list = std::get_if<std::vector<AXRef>>(&*r.value))
        for (auto w : *list)
            if (ax.windowNumber(w) == wid) return w;
    return std::nullopt;
}

std::optional<Rect> WindowMover::axFrame(AXRef window) {
    auto& ax = *platform_.accessibility;
    auto pos = ax.copyAttribute(window, "AXPosition");
    auto size = ax.copyAttribute(window, "AXSize");
    if (!pos.ok() || !size.ok() || !pos.value || !size.value) return std::nullopt;
    auto* p = std::get_if<Point>(&*pos.value);
    auto* s = std::get_if<Size>(&*size.value);
    if (!p || !s) return std::nullopt;
    return Rect{p->x, p->y, s->width, s->height};
}

std::optional<WindowMover::Focused> WindowMover::focusedWindow(const char* op) {
    auto front = platform_.workspace->frontmostApplication();
    std::optional<AXRef> element;
    if (front) {
        AXRef app = platform_.accessibility->applicationElement(front->pid);
        platform_.accessibility->setMessagingTimeout(app, 1.0);
        auto r = platform_.accessibility->copyAttribute(app, "AXFocusedWindow");
        if (r.ok() && r.value)
            if (auto* w = std::get_if<AXRef>(&*r.value)) element = *w;
    }
    std::uint32_t wid = element ? platform_.accessibility->windowNumber(*element) : 0;
    if (element) {
        // A sheet stands for its window, never for itself.
        auto sub = platform_.accessibility->copyAttribute(*element, "AXRole");
        if (sub.ok() && sub.value && std::get_if<std::string>(&*sub.value) &&
            std::get<std::string>(*sub.value) == "AXSheet")
            wid = 0;
    }
    if (!element || wid == 0) {
        Log::info("{}: no focused window", op);
        return std::nullopt;
    }
    Focused f;
    f.wid = wid;
    f.element = *element;
    f.pid = front->pid;
    auto title = platform_.accessibility->copyAttribute(*element, "AXTitle");
    if (title.ok() && title.value && std::get_if<std::string>(&*title.value))
        f.title = std::get<std::string>(*title.value);
    f.space = windowSpace(wid);
    if (!f.space) f.space = platform_.windowServer->activeSpace();
    return f;
}

void WindowMover::stampWindowsMovedToSpace(const std::vector<std::uint32_t>& ids, std::uint64_t space) {
    std::size_t present = 0;
    for (auto& w : windows_.windows())
        present += std::count(ids.begin(), ids.end(), w.id) > 0 ? 1 : 0;
    windows_.tracker().stampWindowsMovedToSpace(ids, space);
    Log::info("stampWindowsMovedToSpace: stamped {}/{} windows -> space={}", present, ids.size(), space);
}

bool WindowMover::postSymbolicHotKey(int number, const char* prefix, bool* unavailable) {
    auto& server = *platform_.windowServer;
    const int hotKey = kFirstSwitchHotKey + number - 1;
    if (number < 1 || number > 16) {
        Log::error("{}: target index {} out of range", prefix, number);
        if (unavailable) *unavailable = true;
        return false;
    }
    auto value = server.symbolicHotKeyValue(hotKey);
    const bool enabled = server.isSymbolicHotKeyEnabled(hotKey);
    if (!value || value->keyCode == 0) {
        Log::error(
            "{}: hotkey #{} (Switch to Space {}) unavailable — result={} enabled={}. User may have unbound "
            "or customized to a non-readable shortcut.",
            prefix, hotKey, number, value ? 0 : -1, boolText(enabled));
        if (unavailable) *unavailable = true;
        return false;
    }
    if (!enabled) server.setSymbolicHotKeyEnabled(hotKey, true);
    Log::info("{}: posting hotkey={} (Switch to Space {}) keyCode=0x{:x} modifiers=0x{:x}", prefix, hotKey,
              number, value->keyCode, value->modifiers);
    auto* tap = platform_.eventTap;
    if (!tap) return false;
    tap->postKeyEvent(value->keyCode, true, value->modifiers);
    tap->postKeyEvent(value->keyCode, false, value->modifiers);
    return true;
}

// The Space's position among its display's user Spaces, as the system's own switch keys count.
static int numberOnDisplay(const std::vector<NumberedSpace>& list, const NumberedSpace& target) {
    int n = 0;
    for (auto& s : list) {
        if (s.display != target.display) continue;
        ++n;
        if (s.id == target.id) return n;
    }
    return 0;
}

bool WindowMover::switchTo(const NumberedSpace& target, const char* prefix) {
    if (setting(keys::enableInstantSpaceSwitching))
        return windows_.iss().switchToSpace(target.indexOnDisplay, target.display);
    return postSymbolicHotKey(numberOnDisplay(numbered(), target), prefix, nullptr);
}

void WindowMover::followToSpace(std::uint64_t space) {
    auto list = numbered();
    auto target = numberedSpaceByID(list, space);
    auto display = displayOfSpace(space);
    if (!display) return;
    const std::uint64_t active = platform_.windowServer->activeSpace();
    auto activeDisplay = displayOfSpace(active);
    if (activeDisplay && *display != *activeDisplay) {
        platform_.windowServer->managedDisplaySetCurrentSpace(*display, space);
        return;
    }
    if (active == space || !target) return;
    switchTo(*target, "followToSpace");
}

void WindowMover::holdFocus(std::uint32_t wid, std::uint64_t target) {
    windows_.focusPipeline().holdFocusOnMovedWindow(wid, target);
}

void WindowMover::afterMove(const std::vector<std::uint32_t>& ids, std::int32_t pid, std::uint64_t target) {
    if (auto psn = platform_.windowServer->processForPID(pid))
        platform_.windowServer->spaceSetFrontPSN(target, *psn);
    stampWindowsMovedToSpace(ids, target);
    followToSpace(target);
    if (!ids.empty()) holdFocus(ids.front(), target);
}

bool WindowMover::startDrag(Task<void> task) {
    if (*dragging_) {
        Log::info("moveWindow: a drag is already under way; ignoring");
        return false;
    }
    *dragging_ = true;
    ferrow::spawn(std::move(task));
    return true;
}

bool WindowMover::teleportWindow(std::uint32_t wid, AXRef window, const NumberedSpace& target) {
    (void)wid;
    auto frame = axFrame(window);
    if (!frame || !platform_.screens) return false;
    std::optional<Rect> source, dest;
    for (auto& s : platform_.screens->screens()) {
        if (s.frame.contains(frame->center())) source = s.visibleFrame;
        if (s.uuid == target.display) dest = s.visibleFrame;
    }
    if (!dest) return false;
    if (!source) source = platform_.screens->screens().front().visibleFrame;
    if (!platform_.windowServer->managedDisplaySetCurrentSpace(target.display, target.id)) return false;
    Rect to = teleportFrame(*frame, *source, *dest);
    auto& ax = *platform_.accessibility;
    auto e = ax.setAttribute(window, "AXPosition", Point{to.x, to.y});
    if (e == platform::AXError::success) e = ax.setAttribute(window, "AXSize", Size{to.width, to.height});
    if (e != platform::AXError::success) {
        Log::error("teleportWindow: AX set failed for window: {}", static_cast<int>(e));
        return false;
    }
    return true;
}

MoveResult WindowMover::crossDisplay(const Focused& f, const NumberedSpace& target, const char* op) {
    auto from = displayOfSpace(f.space);
    if (!from || *from == target.display) return MoveResult::failed;
    Log::info("{}: cross-display teleport wid={} digit={} -> display={} space={}", op, f.wid, target.number,
              target.display, target.id);
    if (teleportWindow(f.wid, f.element, target)) {
        afterMove({f.wid}, f.pid, target.id);
        return MoveResult::moved;
    }
    Log::info("{}: cross-display teleport failed, falling through to same-display pipeline", op);
    return MoveResult::failed;
}

MoveResult WindowMover::moveFocusedWindowToSpace(int digit) {
    if (digit < 1 || digit > 9) return MoveResult::failed;
    auto f = focusedWindow("moveFocusedWindowToSpace");
    if (!f) return MoveResult::noWindow;
    auto list = numbered();
    if (auto target = numberedSpace(list, digit)) {
        if (target->id == f->space) {
            Log::info("moveFocusedWindowToSpace: wid={} already on space={}", f->wid, target->id);
            return MoveResult::alreadyThere;
        }
        if (crossDisplay(*f, *target, "moveFocusedWindowToSpace") == MoveResult::moved) {
            done();
            return MoveResult::moved;
        }
    }
    return moveWindow(f->wid, f->title, digit);
}

MoveResult WindowMover::moveFocusedWindow(std::uint64_t toSpace) {
    auto f = focusedWindow("moveFocusedWindow");
    if (!f) return MoveResult::noWindow;
    auto list = numbered();
    auto target = numberedSpaceByID(list, toSpace);
    if (!target) {
        Log::info("moveFocusedWindow: target space={} not in userSpaces", toSpace);
        done();
        return MoveResult::failed;
    }
    if (target->id == f->space) return MoveResult::alreadyThere;
    if (crossDisplay(*f, *target, "moveFocusedWindow") == MoveResult::moved) {
        done();
        return MoveResult::moved;
    }
    return moveWindow(f->wid, f->title, target->number);
}

MoveResult WindowMover::moveFocusedWindowToAdjacentSpace(int direction) {
    auto f = focusedWindow("moveFocusedWindowToAdjacentSpace");
    if (!f) return MoveResult::noWindow;
    auto display = displayOfSpace(f->space);
    auto spaces = display ? userSpacesOf(windows_.displaySpaces(), *display) : std::vector<std::uint64_t>{};
    auto at = std::find(spaces.begin(), spaces.end(), f->space);
    const char* side = direction < 0 ? "left" : "right";
    long next = at == spaces.end() ? -1 : (at - spaces.begin()) + (direction < 0 ? -1 : 1);
    if (next < 0 || next >= static_cast<long>(spaces.size())) {
        Log::info("moveFocusedWindowToAdjacentSpace: no adjacent user Space to the {}", side);
        done();
        return MoveResult::failed;
    }
    const std::uint64_t space = spaces[static_cast<std::size_t>(next)];
    Log::info("moveFocusedWindowToAdjacentSpace: {} -> space={}", side, space);
    return moveFocusedWindow(space);
}

MoveResult WindowMover::moveFocusedWindowToPreviousSpace() {
    auto previous = windows_.previousSpaceID();
    if (!previous) {
        Log::info("moveFocusedWindowToPreviousSpace: no previousSpaceID recorded yet");
        done();
        return MoveResult::failed;
    }
    Log::info("moveFocusedWindowToPreviousSpace -> previous space={}", *previous);
    return moveFocusedWindow(*previous);
}

MoveResult WindowMover::moveWindow(std::uint32_t wid, const std::string& title, int digit) {
    if (digit < 1 || digit > 9 || wid == 0) return MoveResult::failed;
    auto& server = *platform_.windowServer;
    const bool blocked = directMoveBlocked(server.osMajorVersion(), server.osMinorVersion());
    auto list = numbered();
    auto target = numberedSpace(list, digit);
    if (!target) {
        MoveResult result = MoveResult::failed;
        if (!setting(keys::createMissingSpaces)) {
            Log::info("moveWindow: digit {} past userSpaces.end and createMissingSpaces is off", digit);
        } else if (server.osMajorVersion() >= 27 && server.bridgedMoveAvailable()) {
            Log::info("moveWindow: reliable create+move wid={} -> new Space", wid);
            if (startDrag(createSpaceAndMove({wid}))) result = MoveResult::moved;
        } else if (!blocked) {
            if (startDrag(createThenDirectMove(wid))) result = MoveResult::moved;
        } else if (title.empty()) {
            Log::info("moveWindow: empty title, cannot use MC drag fallback for new Space");
        } else {
            Log::info("moveWindow: combined create+move via MC, wid={} title='{}'", wid, title);
            MissionControlDragSpec spec{title, wid, ""};
            if (auto pid = ownerPid(wid))
                if (auto app = platform_.workspace->runningApp(*pid)) spec.bundleID = app->bundleID;
            if (startDrag(createAndMoveViaMissionControl({spec}))) result = MoveResult::moved;
        }
        done();
        return result;
    }
    Log::info("moveWindow: wid={} title='{}' -> space={}", wid, title, target->id);
    if (windowSpace(wid) == target->id) {
        done();
        return MoveResult::alreadyThere;
    }
    const std::int32_t pid = ownerPid(wid).value_or(0);
    if (!blocked) {
        const bool moved = server.moveWindowsToManagedSpace({wid}, target->id);
        if (moved) {
            afterMove({wid}, pid, target->id);
        } else {
            followToSpace(target->id);
        }
        done();
        return moved ? MoveResult::moved : MoveResult::failed;
    }
    if (setting(keys::enableInstantSpaceSwitching) && setting(keys::useInstantWindowMoving)) {
        if (server.bridgedMoveAvailable()) {
            if (server.bridgedMoveWindows({wid}, target->id)) {
                Log::info("moveWindow: wid={} bridged-moved -> space {}", wid, target->id);
                afterMove({wid}, pid, target->id);
                done();
                return MoveResult::moved;
            }
        } else if (server.moveWindowsToManagedSpace({wid}, target->id)) {
            Log::info("moveWindow: wid={} direct-SLS-moved -> space {}", wid, target->id);
            afterMove({wid}, pid, target->id);
            done();
            return MoveResult::moved;
        }
        Log::info(
            "moveWindow: instant window moving requested but no SLS engine available, falling back to "
            "symbolic");
    }
    auto window = resolveWindow(wid);
    if (!window) {
        Log::error("moveWindow: cannot resolve AXWindow for wid={}; aborting", wid);
        done();
        return MoveResult::failed;
    }
    const bool started = startDrag(titleBarDragTask(wid, *window, *target));
    if (!started) done();
    return started ? MoveResult::moved : MoveResult::failed;
}

Task<void> WindowMover::titleBarDragTask(std::uint32_t wid, AXRef window, NumberedSpace target) {
    auto alive = alive_;
    auto dragging = dragging_;
    co_await titleBarDrag(wid, window, target);
    *dragging = false;
    if (*alive) done();
}

Task<bool> WindowMover::titleBarDrag(std::uint32_t wid, AXRef window, NumberedSpace target) {
    auto alive = alive_;
    auto& ax = *platform_.accessibility;
    auto& server = *platform_.windowServer;
    auto* mouse = platform_.mouse;
    const ferrow::Nanos started = ferrow::now();
    auto frame = axFrame(window);
    if (!frame) {
        Log::error("Move: window has no frame, aborting");
        co_return false;
    }
    const std::int32_t pid = ax.pidOf(window);
    auto front = platform_.workspace->frontmostApplication();
    const bool wasActive = front && front->pid == pid;
    if (!wasActive) {
        Log::info("Move[prep]: activating pid={}", pid);
        platform_.workspace->activate(pid, false);
        co_await ferrow::sleepMs(kActivateWaitMs);
        if (!*alive) co_return false;
    }
    auto err = ax.setAttribute(window, "AXMain", true);
    Log::info("Move[prep]: appWasActive={} AXMain:=true err={}", boolText(wasActive), static_cast<int>(err));
    co_await ferrow::sleepMs(kActivateWaitMs);
    if (!*alive) co_return false;

    std::vector<Rect> buttons;
    for (const char* name : {"AXMinimizeButton", "AXFullScreenButton"}) {
        auto b = ax.copyAttribute(window, name);
        if (b.ok() && b.value)
            if (auto* ref = std::get_if<AXRef>(&*b.value))
                if (auto f = axFrame(*ref)) buttons.push_back(*f);
    }
    // The frame may have changed while the app came forward.
    if (auto again = axFrame(window)) frame = again;
    const Point grab = titleBarGrabPoint(*frame, buttons);
    auto list = numbered();
    const std::uint64_t activeBefore = server.activeSpace();
    auto activeNumbered = numberedSpaceByID(list, activeBefore);
    const int activeIndexBefore = activeNumbered ? activeNumbered->number : 0;
    const std::uint64_t windowBefore = windowSpace(wid);
    std::string title;
    if (auto t = ax.copyAttribute(window, "AXTitle");
        t.ok() && t.value && std::get_if<std::string>(&*t.value))
        title = std::get<std::string>(*t.value);
    Log::info(
        "Move[start]: wid={} pid={} title='{}' grab={} origin={} frame={} target={} activeIndexBefore={} "
        "activeSpaceBefore={} windowSpaceBefore={}",
        wid, pid, title, pointText(grab), pointText({frame->x, frame->y}), rectText(*frame), target.number,
        activeIndexBefore, activeBefore, windowBefore);

    auto post = [&](MouseEventKind kind, Point at, const char* name) {
        if (mouse && mouse->post(kind, at)) return true;
        Log::error("Move[event]: CGEvent creation failed for {} at {}", name, pointText(at));
        return false;
    };
    const bool down = post(MouseEventKind::leftMouseDown, grab, "leftMouseDown");
    co_await ferrow::sleepMs(kInitialDragMs);
    if (!*alive) co_return false;
    const bool drag =
        post(MouseEventKind::leftMouseDragged, {grab.x + 1, grab.y}, "leftMouseDragged(initial)");
    Log::info("Move[grab]: posted down={} drag={}", boolText(down), boolText(drag));
    co_await ferrow::sleepMs(kStepWaitMs);
    if (!*alive) co_return false;

    const ferrow::Nanos switchStart = ferrow::now();
    bool switched = false;
    if (setting(keys::enableInstantSpaceSwitching)) {
        switched = windows_.iss().switchToSpace(target.indexOnDisplay, target.display);
    } else {
        switched = postSymbolicHotKey(numberOnDisplay(list, target), "Move[symbolic]", nullptr);
    }
    Log::info("Move[switched]: ok={} elapsed={}", boolText(switched), elapsedMs(switchStart));
    if (!switched) Log::error("Move: switch step reported failure; releasing mouse anyway");
    co_await ferrow::sleepMs(kStepWaitMs);
    if (!*alive) co_return false;

    const bool up = post(MouseEventKind::leftMouseUp, grab, "leftMouseUp(@grab)");
    Log::info("Move[release]: up={} releasePoint={} elapsed={}", boolText(up), pointText(grab),
              elapsedMs(started));

    const std::uint64_t windowAfter = windowSpace(wid);
    auto activeAfter = numberedSpaceByID(numbered(), server.activeSpace());
    const bool moved = windowAfter == target.id;
    Log::info(
        "Move[done]: wid={} windowSpaceBefore={} windowSpaceAfter={} activeIndexBefore={} "
        "activeIndexAfter={} "
        "moved={} switched={} totalElapsed={}",
        wid, windowBefore, windowAfter, activeIndexBefore, activeAfter ? activeAfter->number : 0,
        boolText(moved), boolText(switched), elapsedMs(started));
    if (moved) {
        stampWindowsMovedToSpace({wid}, target.id);
        holdFocus(wid, target.id);
    }
    co_return moved;
}

Task<void> WindowMover::createSpaceAndMove(std::vector<std::uint32_t> ids) {
    auto alive = alive_;
    auto dragging = dragging_;
    auto before = numbered();
    const bool added = co_await mc_.createNewSpaceViaMissionControl();
    if (!*alive) co_return;
    std::optional<NumberedSpace> fresh;
    if (added)
        for (auto& s : numbered())
            if (!numberedSpaceByID(before, s.id)) fresh = s;
    if (!fresh) {
        Log::error("createSpaceAndMove: new Space was not created");
    } else {
        Log::info("createSpaceAndMove: newSpaceID={} count={}", fresh->id, ids.size());
        if (platform_.windowServer->bridgedMoveWindows(ids, fresh->id)) {
            Log::info("createSpaceAndMove: bridged-moved {} -> new space {}", ids.size(), fresh->id);
            afterMove(ids, ownerPid(ids.front()).value_or(0), fresh->id);
        } else {
            Log::error(
                "createSpaceAndMove: bridged move failed to dispatch; window(s) left on the source Space");
        }
    }
    *dragging = false;
    done();
}

Task<void> WindowMover::createThenDirectMove(std::uint32_t wid) {
    auto alive = alive_;
    auto dragging = dragging_;
    auto before = numbered();
    const bool added = co_await mc_.createNewSpaceViaMissionControl();
    if (!*alive) co_return;
    std::optional<NumberedSpace> fresh;
    if (added)
        for (auto& s : numbered())
            if (!numberedSpaceByID(before, s.id)) fresh = s;
    if (!fresh) {
        Log::error("createSpaceAndMove: new Space was not created");
    } else if (platform_.windowServer->moveWindowsToManagedSpace({wid}, fresh->id)) {
        afterMove({wid}, ownerPid(wid).value_or(0), fresh->id);
    }
    *dragging = false;
    done();
}

Task<void> WindowMover::createAndMoveViaMissionControl(std::vector<MissionControlDragSpec> specs) {
    auto alive = alive_;
    auto dragging = dragging_;
    auto before = numbered();
    const bool ok = co_await mc_.createAndMoveViaMissionControl(specs);
    if (!*alive) co_return;
    if (ok) {
        std::optional<NumberedSpace> fresh;
        for (auto& s : numbered())
            if (!numberedSpaceByID(before, s.id)) fresh = s;
        std::vector<std::uint32_t> moved;
        for (auto& spec : specs)
            if (spec.windowID && fresh && windowSpace(*spec.windowID) == fresh->id)
                moved.push_back(*spec.windowID);
        if (fresh && !moved.empty()) {
            stampWindowsMovedToSpace(moved, fresh->id);
            holdFocus(moved.front(), fresh->id);
        }
    }
    *dragging = false;
    done();
}

Task<void> WindowMover::missionControlBatch(std::vector<MissionControlDragSpec> specs, NumberedSpace target) {
    auto alive = alive_;
    auto dragging = dragging_;
    const bool ok = co_await mc_.missionControlDrag(specs, target.indexOnDisplay, true);
    if (!*alive) co_return;
    if (ok) {
        std::vector<std::uint32_t> moved;
        for (auto& spec : specs)
            if (spec.windowID && windowSpace(*spec.windowID) == target.id) moved.push_back(*spec.windowID);
        if (!moved.empty()) {
            stampWindowsMovedToSpace(moved, target.id);
            holdFocus(moved.front(), target.id);
        }
    }
    *dragging = false;
    done();
}

Task<void> WindowMover::symbolicBatch(std::vector<std::pair<std::uint32_t, AXRef>> list, NumberedSpace source,
                                      NumberedSpace target) {
    auto alive = alive_;
    auto dragging = dragging_;
    Log::info("MoveBatch[symbolic][start]: count={} source={} target={}", list.size(), source.number,
              target.number);
    int moved = 0;
    std::uint32_t last = 0;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i > 0) {
            // Back to the source so the next window can be held.
            if (setting(keys::enableInstantSpaceSwitching)) {
                Log::info(
                    "MoveBatch[symbolic][iter {}]: instant back-switch — recordExternalSpaceChange({}) + "
                    "ISSManager.switchToSpace({})",
                    i, target.indexOnDisplay, source.indexOnDisplay);
                windows_.iss().recordExternalSpaceChange(target.indexOnDisplay, target.display);
                windows_.iss().switchToSpace(source.indexOnDisplay, source.display);
            } else {
                Log::info(
                    "MoveBatch[symbolic][iter {}]: animated back-switch — postSpaceSwitchEvent(spaceNumber: "
                    "{})",
                    i, source.number);
                postSymbolicHotKey(numberOnDisplay(numbered(), source), "MoveBatch[symbolic]", nullptr);
            }
            co_await ferrow::sleepMs(kStepWaitMs);
            if (!*alive) co_return;
        }
        if (co_await titleBarDrag(list[i].first, list[i].second, target)) {
            ++moved;
            last = list[i].first;
        }
        if (!*alive) co_return;
    }
    Log::info("MoveBatch[symbolic][done]: moved={}", moved);
    if (last) holdFocus(last, target.id);
    *dragging = false;
    done();
}

MoveResult WindowMover::moveActiveStageWindowsToSpace(int digit) {
    const char* op = "moveActiveStageWindowsToSpace";
    if (digit < 1 || digit > 9) return MoveResult::failed;
    auto stage = activeStageWindows ? activeStageWindows() : std::nullopt;
    if (!stage) {
        Log::info("{}: no active stage, no-op", op);
        done();
        return MoveResult::failed;
    }
    std::vector<std::uint32_t> ids;
    for (auto id : stage->windowIDs)
        for (auto& w : windows_.windows())
            if (w.id == id) ids.push_back(id);
    if (ids.empty()) {
        Log::info("{}: stage {} has no resolvable windows on any Space, no-op", op, stage->name);
        done();
        return MoveResult::failed;
    }
    auto& server = *platform_.windowServer;
    auto list = numbered();
    auto target = numberedSpace(list, digit);
    const std::uint64_t active = server.activeSpace();
    auto titleOf = [this](std::uint32_t id) {
        for (auto& w : windows_.windows())
            if (w.id == id) return w.title;
        return std::string();
    };
    auto specFor = [&](std::uint32_t id) {
        MissionControlDragSpec spec{titleOf(id), id, ""};
        if (auto pid = ownerPid(id))
            if (auto app = platform_.workspace->runningApp(*pid)) spec.bundleID = app->bundleID;
        return spec;
    };

    if (target) {
        auto activeDisplay = displayOfSpace(active);
        if (activeDisplay && *activeDisplay != target->display) {
            std::vector<std::uint32_t> landed;
            for (auto id : ids)
                if (auto w = resolveWindow(id); w && teleportWindow(id, *w, *target)) landed.push_back(id);
            Log::info("{}: cross-display teleport stage={} teleported={}/{} -> display={} space={}", op,
                      stage->name, landed.size(), ids.size(), target->display, target->id);
            if (!landed.empty()) {
                afterMove(landed, ownerPid(landed.front()).value_or(0), target->id);
                done();
                return MoveResult::moved;
            }
            Log::info("{}: cross-display teleport landed nothing, falling through", op);
        }
    }

    if (!target) {
        MoveResult result = MoveResult::failed;
        if (!setting(keys::createMissingSpaces)) {
            Log::info("{}: digit {} past userSpaces.end and createMissingSpaces is off, no-op", op, digit);
        } else if (server.osMajorVersion() >= 27 && server.bridgedMoveAvailable()) {
            Log::info("{}: stage={} reliable create+move for {} windows", op, stage->name, ids.size());
            if (startDrag(createSpaceAndMove(ids))) result = MoveResult::moved;
        } else {
            std::vector<MissionControlDragSpec> specs;
            for (auto id : ids) {
                auto spec = specFor(id);
                if (spec.title.empty()) {
                    Log::info("{}: window wid={} has empty title, skipping from create+move batch", op, id);
                    continue;
                }
                specs.push_back(spec);
            }
            if (specs.empty()) {
                Log::info("{}: no titled candidates for create+move batch, no-op", op);
            } else {
                Log::info("{}: stage={} creating new Space and dragging {} windows via MC", op, stage->name,
                          specs.size());
                if (startDrag(createAndMoveViaMissionControl(specs))) result = MoveResult::moved;
            }
        }
        done();
        return result;
    }

    if (setting(keys::useInstantWindowMoving) && setting(keys::enableInstantSpaceSwitching)) {
        std::size_t offSpace = 0;
        for (auto id : ids)
            offSpace += windowSpace(id) != active ? 1 : 0;
        const bool bridged = server.bridgedMoveAvailable();
        const bool ok = bridged ? server.bridgedMoveWindows(ids, target->id)
                                : server.moveWindowsToManagedSpace(ids, target->id);
        if (ok) {
            Log::info("{}: stage={} {} {} windows ({} off-space) -> existing space {}", op, stage->name,
                      bridged ? "bridged-moved" : "direct-SLS-moved", ids.size(), offSpace, target->id);
            afterMove(ids, ownerPid(ids.front()).value_or(0), target->id);
            done();
            return MoveResult::moved;
        }
        if (bridged)
            Log::info("{}: bridged move dispatch failed, falling back to MC/symbolic", op);
        else
            Log::info("{}: direct SLS move dispatch failed, falling back to MC/symbolic", op);
    }

    std::vector<std::pair<std::uint32_t, AXRef>> candidates;
    for (auto id : ids) {
        if (windowSpace(id) != active) continue;
        auto w = resolveWindow(id);
        if (!w) {
            Log::info("{}: cannot resolve AXWindow for wid={}, skipping", op, id);
            continue;
        }
        candidates.push_back({id, *w});
    }
    if (candidates.empty()) {
        Log::info("{}: no AX-resolvable active-Space candidates for MC/symbolic fallback, no-op", op);
        done();
        return MoveResult::failed;
    }
    if (candidates.size() > 1) {
        std::vector<MissionControlDragSpec> specs;
        for (auto& [id, w] : candidates) {
            auto spec = specFor(id);
            if (spec.title.empty()) {
                Log::info("{}: window wid={} has empty title, skipping from MC batch", op, id);
                continue;
            }
            specs.push_back(spec);
        }
        if (!specs.empty()) {
            Log::info("{}: stage={} MC-dragging {} windows -> existing space {}", op, stage->name,
                      specs.size(), target->id);
            const bool started = startDrag(missionControlBatch(specs, *target));
            if (!started) done();
            return started ? MoveResult::moved : MoveResult::failed;
        }
        Log::info("{}: multi-window MC batch had no titled candidates, falling back to symbolic", op);
    }
    Log::info("{}: stage={} symbolic-moving {} windows -> existing space {}", op, stage->name,
              candidates.size(), target->id);
    auto source = numberedSpaceByID(list, active);
    const bool started = startDrag(symbolicBatch(candidates, source.value_or(*target), *target));
    if (!started) done();
    return started ? MoveResult::moved : MoveResult::failed;
}

}  // namespace zelk::spaces
