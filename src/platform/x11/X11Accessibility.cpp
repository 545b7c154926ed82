#include "platform/x11/X11Desktop.h"

#include "support/MainQueue.h"

namespace zelk::x11 {

using platform::AXError;
using platform::AXRef;
using platform::AXResult;
using platform::AXValue;

namespace {
bool onDesktop(const Client& c, std::uint32_t desktop) {
    return c.sticky || c.desktop == desktop;
}
}  // namespace

AXRef X11Accessibility::make(Kind kind, std::int32_t pid, std::uint32_t window) {
    return (AXRef(static_cast<std::uint8_t>(kind)) << 56) |
           (AXRef(static_cast<std::uint32_t>(pid) & 0xFFFFFF) << 32) | window;
}

AXRef X11Accessibility::applicationElement(std::int32_t pid) {
    return make(Kind::app, pid, 0);
}

AXRef X11Accessibility::systemWideElement() {
    return make(Kind::systemWide, 0, 0);
}

std::int32_t X11Accessibility::pidOf(AXRef element) {
    return static_cast<std::int32_t>((element >> 32) & 0xFFFFFF);
}

std::uint32_t X11Accessibility::windowNumber(AXRef window) {
    return kindOf(window) == Kind::window ? windowOf(window) : 0;
}

AXResult<AXValue> X11Accessibility::copyAttribute(AXRef element, const std::string& attr) {
    auto value = [](AXValue v) { return AXResult<AXValue>{AXError::success, std::move(v)}; };
    auto none = [] { return AXResult<AXValue>{AXError::noValue, std::nullopt}; };
    auto snap = d_.snapshot();
    std::int32_t pid = pidOf(element);
    const Client* active = snap->client(snap->active);
    switch (kindOf(element)) {
        case Kind::systemWide:
            if (attr == "AXFocusedApplication") {
                if (!active || active->pid <= 0) return none();
                return value(applicationElement(active->pid));
            }
            return {AXError::attributeUnsupported, std::nullopt};
        case Kind::app: {
            std::vector<const Client*> mine;  // front to back, on the current desktop
            for (auto it = snap->clients.rbegin(); it != snap->clients.rend(); ++it)
                if (it->pid == pid && onDesktop(*it, snap->currentDesktop)) mine.push_back(&*it);
            bool any = false;
            for (auto& c : snap->clients)
                if (c.pid == pid) any = true;
            if (!any) return {AXError::cannotComplete, std::nullopt};
            if (attr == "AXRole") return value(std::string("AXApplication"));
            if (attr == "AXFrontmost") return value(active && active->pid == pid);
            if (attr == "AXHidden") {
                bool shown = false;
                for (auto* c : mine)
                    shown = shown || !c->hidden;
                return value(!shown);
            }
            if (attr == "AXTitle") {
                for (auto& a : d_.apps(*snap))
                    if (a.pid == pid) return value(a.name);
                return none();
            }
            if (attr == "AXWindows") {
                std::vector<AXRef> refs;
                for (auto* c : mine)
                    refs.push_back(make(Kind::window, pid, c->id));
                return value(refs);
            }
            if (attr == "AXFocusedWindow" || attr == "AXMainWindow") {
                if (active && active->pid == pid) return value(make(Kind::window, pid, active->id));
                for (auto* c : mine)
                    if (!c->hidden) return value(make(Kind::window, pid, c->id));
                return none();
            }
            if (attr == "AXParent" || attr == "AXSubrole" || attr == "AXDescription") return none();
            return {AXError::attributeUnsupported, std::nullopt};
        }
        case Kind::window: {
            const Client* c = snap->client(windowOf(element));
            if (!c || c->pid != pid) return {AXError::invalidUIElement, std::nullopt};
            if (attr == "AXRole") return value(std::string("AXWindow"));
            if (attr == "AXSubrole") return value(std::string(c->dialog ? "AXDialog" : "AXStandardWindow"));
            if (attr == "AXTitle") return value(c->title);
            if (attr == "AXMinimized") return value(c->hidden);
            if (attr == "AXMain" || attr == "AXFocused") return value(snap->active == c->id);
            if (attr == "AXPosition") return value(Point{c->frame.x, c->frame.y});
            if (attr == "AXSize") return value(Size{c->frame.width, c->frame.height});
            if (attr == "AXFrame") return value(c->frame);
            if (attr == "AXParent") return value(applicationElement(pid));
            if (attr == "AXCloseButton") return value(make(Kind::closeButton, pid, c->id));
            if (attr == "AXDescription") return none();
            return {AXError::attributeUnsupported, std::nullopt};
        }
        case Kind::closeButton:
            if (attr == "AXRole") return value(std::string("AXButton"));
            if (attr == "AXSubrole") return value(std::string("AXCloseButton"));
            return none();
        default:
            return {AXError::invalidUIElement, std::nullopt};
    }
}

AXError X11Accessibility::setAttribute(AXRef element, const std::string& attr, const AXValue& v) {
    auto snap = d_.snapshot();
    if (kindOf(element) == Kind::app) {
        auto* ws = platform::Platform::current().workspace;
        if (attr == "AXFrontmost" && std::holds_alternative<bool>(v)) {
            if (std::get<bool>(v) && ws) ws->activate(pidOf(element), false);
            return AXError::success;
        }
        if (attr == "AXHidden" && std::holds_alternative<bool>(v) && ws) {
            std::get<bool>(v) ? ws->hide(pidOf(element)) : ws->unhide(pidOf(element));
            return AXError::success;
        }
        return AXError::attributeUnsupported;
    }
    if (kindOf(element) != Kind::window) return AXError::illegalArgument;
    const Client* c = snap->client(windowOf(element));
    if (!c || c->pid != pidOf(element)) return AXError::invalidUIElement;
    if (attr == "AXMinimized") {
        if (!std::holds_alternative<bool>(v)) return AXError::illegalArgument;
        // Restoring is activating: the window manager maps an iconic window it is asked to activate.
        std::get<bool>(v) ? d_.conn().minimize(c->id) : d_.conn().activate(c->id);
        return AXError::success;
    }
    if (attr == "AXMain" || attr == "AXFocused") {
        if (!std::holds_alternative<bool>(v)) return AXError::illegalArgument;
        if (std::get<bool>(v) && onDesktop(*c, snap->currentDesktop)) d_.conn().activate(c->id);
        return AXError::success;
    }
    if (attr == "AXPosition") {
        if (!std::holds_alternative<Point>(v)) return AXError::illegalArgument;
        Rect f = c->frame;
        f.x = std::get<Point>(v).x;
        f.y = std::get<Point>(v).y;
        d_.conn().moveResize(c->id, f);
        return AXError::success;
    }
    if (attr == "AXSize") {
        if (!std::holds_alternative<Size>(v)) return AXError::illegalArgument;
        Rect f = c->frame;
        f.width = std::get<Size>(v).width;
        f.height = std::get<Size>(v).height;
        d_.conn().moveResize(c->id, f);
        return AXError::success;
    }
    return AXError::attributeUnsupported;
}

AXError X11Accessibility::performAction(AXRef element, const std::string& action) {
    auto snap = d_.snapshot();
    const Client* c = snap->client(windowOf(element));
    if (kindOf(element) == Kind::window && action == "AXRaise") {
        if (!c || c->pid != pidOf(element)) return AXError::invalidUIElement;
        // X11 has no raise within the app that leaves focus alone: raising is activating.
        if (onDesktop(*c, snap->currentDesktop)) d_.conn().activate(c->id);
        return AXError::success;
    }
    if (kindOf(element) == Kind::closeButton && action == "AXPress") {
        if (!c) return AXError::invalidUIElement;
        d_.conn().close(c->id);
        return AXError::success;
    }
    return AXError::actionUnsupported;
}

AXResult<AXRef> X11Accessibility::elementAtPosition(AXRef, Point point) {
    auto snap = d_.snapshot();
    for (auto it = snap->clients.rbegin(); it != snap->clients.rend(); ++it)
        if (onDesktop(*it, snap->currentDesktop) && !it->hidden && it->frame.contains(point))
            return {AXError::success, make(Kind::window, it->pid, it->id)};
    return {AXError::noValue, std::nullopt};
}

std::uint64_t X11Accessibility::createObserver(std::int32_t pid, ObserverCallback callback) {
    if (pid <= 0) return 0;
    std::uint64_t id = nextObserver_++;
    observers_[id] = Observer{pid, std::move(callback), {}};
    return id;
}

AXError X11Accessibility::addNotification(std::uint64_t observer, AXRef element, const std::string& name) {
    auto it = observers_.find(observer);
    if (it == observers_.end()) return AXError::invalidUIElementObserver;
    if (!it->second.registrations.insert({element, name}).second)
        return AXError::notificationAlreadyRegistered;
    return AXError::success;
}

AXError X11Accessibility::removeNotification(std::uint64_t observer, AXRef element, const std::string& name) {
    auto it = observers_.find(observer);
    if (it == observers_.end()) return AXError::invalidUIElementObserver;
    return it->second.registrations.erase({element, name}) ? AXError::success
                                                           : AXError::notificationNotRegistered;
}

void X11Accessibility::fire(std::int32_t pid, std::uint32_t window, const std::string& notification) {
    AXRef appRef = applicationElement(pid);
    AXRef target = window ? make(Kind::window, pid, window) : appRef;
    std::vector<std::uint64_t> due;
    for (auto& [id, obs] : observers_)
        if (obs.pid == pid && (obs.registrations.count({appRef, notification}) ||
                               obs.registrations.count({target, notification})))
            due.push_back(id);
    // A callback may destroy observers, so each is looked up again before it runs.
    for (auto id : due)
        if (auto it = observers_.find(id); it != observers_.end()) {
            auto callback = it->second.callback;
            callback(target, notification);
        }
}

void X11Accessibility::dispatch(const Change& c) {
    using K = Change::Kind;
    switch (c.kind) {
        case K::windowCreated:
            fire(c.pid, c.window, "AXWindowCreated");
            break;
        case K::windowDestroyed:
            fire(c.pid, c.window, "AXUIElementDestroyed");
            break;
        case K::titleChanged:
            fire(c.pid, c.window, "AXTitleChanged");
            break;
        case K::frameChanged:
            fire(c.pid, c.window, "AXWindowMoved");
            fire(c.pid, c.window, "AXWindowResized");
            break;
        case K::minimized:
            fire(c.pid, c.window, "AXWindowMiniaturized");
            break;
        case K::restored:
            fire(c.pid, c.window, "AXWindowDeminiaturized");
            break;
        case K::focusedWindowChanged:
            fire(c.pid, c.window, "AXFocusedWindowChanged");
            fire(c.pid, c.window, "AXMainWindowChanged");
            break;
        case K::appActivated:
            if (c.previousPid) fire(c.previousPid, 0, "AXApplicationDeactivated");
            fire(c.pid, 0, "AXApplicationActivated");
            break;
        case K::appTerminated:
            for (auto it = observers_.begin(); it != observers_.end();)
                it = it->second.pid == c.pid ? observers_.erase(it) : std::next(it);
            break;
        default:
            break;
    }
}

}  // namespace zelk::x11
