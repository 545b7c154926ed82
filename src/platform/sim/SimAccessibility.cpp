#include "platform/sim/SimAccessibility.h"

#include "support/MainQueue.h"

namespace zelk::sim {

using platform::AXError;
using platform::AXRef;
using platform::AXResult;
using platform::AXValue;

namespace {
// The system's default when no time-out was set on an element.
constexpr double kDefaultMessagingTimeout = 6.0;
}  // namespace

SimAccessibility::SimAccessibility(SimWorld& world) : world_(world) {
    subscription_ = world_.changes.subscribe([this](const WorldChange& c) { onChange(c); });
}
SimAccessibility::~SimAccessibility() = default;

AXRef SimAccessibility::make(Kind kind, std::int32_t pid, std::uint32_t window) {
    return (AXRef(static_cast<std::uint8_t>(kind)) << 56) |
           (AXRef(static_cast<std::uint32_t>(pid) & 0xFFFFFF) << 32) | window;
}

AXRef SimAccessibility::windowElement(std::int32_t pid, std::uint32_t window) {
    return make(Kind::window, pid, window);
}

bool SimAccessibility::isProcessTrustedWithPrompt(bool prompt) {
    if (prompt && !world_.permissions.accessibility) ++prompts_;
    return world_.permissions.accessibility;
}

AXRef SimAccessibility::applicationElement(std::int32_t pid) {
    return make(Kind::app, pid, 0);
}

void SimAccessibility::setMessagingTimeout(AXRef element, double seconds) {
    timeouts_[element] = seconds;
}

AXError SimAccessibility::gate(AXRef element) {
    ++calls_;
    if (!world_.permissions.accessibility) return AXError::apiDisabled;
    if (kindOf(element) == Kind::systemWide) return AXError::success;
    const SimApp* app = world_.appByPid(pidOf(element));
    if (!app) return AXError::cannotComplete;  // dead peer
    if (world_.faults.axTimeout.count(app->bundleID)) {
        double timeout = kDefaultMessagingTimeout;
        if (auto it = timeouts_.find(element); it != timeouts_.end())
            timeout = it->second;
        else if (auto at = timeouts_.find(applicationElement(app->pid)); at != timeouts_.end())
            timeout = at->second;
        ferrow::MainQueue::shared().clock().block(ferrow::seconds(timeout));
        return AXError::cannotComplete;
    }
    return AXError::success;
}

const SimWindow* SimAccessibility::visibleWindow(AXRef element) const {
    const SimWindow* w = world_.window(windowOf(element));
    if (!w || w->pid != pidIn(element) || !world_.isWindowOnVisibleSpace(*w)) return nullptr;
    return w;
}

AXResult<AXValue> SimAccessibility::copyAttribute(AXRef element, const std::string& attr) {
    AXError g = gate(element);
    if (g != AXError::success) return {g, std::nullopt};
    auto value = [](AXValue v) { return AXResult<AXValue>{AXError::success, std::move(v)}; };
    auto none = [] { return AXResult<AXValue>{AXError::noValue, std::nullopt}; };
    switch (kindOf(element)) {
        case Kind::systemWide: {
            if (attr == "AXFocusedApplication") {
                if (!world_.frontPid()) return none();
                return value(applicationElement(world_.frontPid()));
            }
            return {AXError::attributeUnsupported, std::nullopt};
        }
        case Kind::app: {
            const SimApp* app = world_.appByPid(pidOf(element));
            if (attr == "AXRole") return value(std::string("AXApplication"));
            if (attr == "AXTitle") return value(app->name);
            if (attr == "AXFrontmost") return value(world_.frontPid() == app->pid);
            if (attr == "AXHidden") return value(app->hidden);
            if (attr == "AXWindows") {
                std::vector<AXRef> refs;
                for (auto id : app->windowOrder) {
                    const SimWindow* w = world_.window(id);
                    if (w && world_.isWindowOnVisibleSpace(*w)) refs.push_back(windowElement(app->pid, id));
                }
                return value(refs);
            }
            if (attr == "AXFocusedWindow" || attr == "AXMainWindow") {
                const SimWindow* w = world_.window(app->focusedWindow);
                if (!w || w->minimized || !world_.isWindowOnVisibleSpace(*w)) return none();
                return value(windowElement(app->pid, w->id));
            }
            if (attr == "AXChildren" && tree_ && tree_->ownerPid() == app->pid) {
                std::vector<AXRef> refs;
                for (auto node : tree_->roots())
                    refs.push_back(make(Kind::treeNode, app->pid, node));
                return value(refs);
            }
            if (attr == "AXParent" || attr == "AXSubrole" || attr == "AXDescription") return none();
            if (attr == "AXExtrasMenuBar") {
                if (app->menuExtra.empty()) return none();
                return value(make(Kind::extrasMenuBar, app->pid, 0));
            }
            return {AXError::attributeUnsupported, std::nullopt};
        }
        case Kind::extrasMenuBar:
            if (attr == "AXRole") return value(std::string("AXMenuBar"));
            if (attr == "AXChildren")
                return value(std::vector<AXRef>{make(Kind::menuExtra, pidOf(element), 0)});
            return none();
        case Kind::menuExtra: {
            const SimApp* app = world_.appByPid(pidOf(element));
            if (attr == "AXRole") return value(std::string("AXMenuBarItem"));
            if (attr == "AXTitle") return value(app->menuExtra);
            return none();
        }
        case Kind::window: {
            const SimWindow* w = visibleWindow(element);
            if (!w) return {AXError::invalidUIElement, std::nullopt};
            const SimApp* app = world_.appByPid(w->pid);
            if (attr == "AXRole") return value(w->role);
            if (attr == "AXSubrole") return value(w->subrole);
            if (attr == "AXTitle") return value(w->title);
            if (attr == "AXMinimized") return value(w->minimized);
            if (attr == "AXMain" || attr == "AXFocused") return value(app && app->focusedWindow == w->id);
            if (attr == "AXPosition") return value(Point{w->frame.x, w->frame.y});
            if (attr == "AXSize") return value(Size{w->frame.width, w->frame.height});
            if (attr == "AXFrame") return value(w->frame);
            if (attr == "AXParent") return value(applicationElement(w->pid));
            if (attr == "AXCloseButton") return value(make(Kind::closeButton, w->pid, w->id));
            if (attr == "AXDescription") return none();
            if (attr == "AXDocument") return w->document.empty() ? none() : value(w->document);
            if (attr == "AXFullScreen") return value(w->fullscreen);
            if (attr == "AXChildren" && !w->webArea.empty())
                return value(std::vector<AXRef>{make(Kind::webContent, w->pid, w->id)});
            return {AXError::attributeUnsupported, std::nullopt};
        }
        // A page shown in a window: a scroll area holding the web area, as browsers nest them.
        case Kind::webContent:
        case Kind::webArea: {
            const SimWindow* w = visibleWindow(element);
            if (!w || w->webArea.empty()) return {AXError::invalidUIElement, std::nullopt};
            const bool area = kindOf(element) == Kind::webArea;
            if (attr == "AXRole") return value(std::string(area ? "AXWebArea" : "AXScrollArea"));
            if (attr == "AXChildren")
                return value(area ? std::vector<AXRef>{}
                                  : std::vector<AXRef>{make(Kind::webArea, w->pid, w->id)});
            if (attr == "AXURL" && area) return value(w->webArea);
            return none();
        }
        case Kind::treeNode: {
            if (!tree_ || tree_->ownerPid() != pidOf(element))
                return {AXError::invalidUIElement, std::nullopt};
            auto v = tree_->attribute(windowOf(element), attr);
            if (!v) return none();
            // Child nodes travel as node numbers; they become elements of the same owner here.
            if (auto* nodes = std::get_if<std::vector<AXRef>>(&*v))
                for (auto& n : *nodes)
                    n = make(Kind::treeNode, pidOf(element), static_cast<std::uint32_t>(n));
            return value(*v);
        }
        case Kind::closeButton:
            if (attr == "AXRole") return value(std::string("AXButton"));
            if (attr == "AXSubrole") return value(std::string("AXCloseButton"));
            return none();
        default:
            return {AXError::invalidUIElement, std::nullopt};
    }
}

AXError SimAccessibility::setAttribute(AXRef element, const std::string& attr, const AXValue& v) {
    AXError g = gate(element);
    if (g != AXError::success) return g;
    if (kindOf(element) == Kind::app) {
        if (attr == "AXFrontmost" && std::holds_alternative<bool>(v)) {
            if (std::get<bool>(v)) world_.activate(pidOf(element));
            return AXError::success;
        }
        if (attr == "AXHidden" && std::holds_alternative<bool>(v)) {
            std::get<bool>(v) ? world_.hide(pidOf(element)) : world_.unhide(pidOf(element));
            return AXError::success;
        }
        return AXError::attributeUnsupported;
    }
    if (kindOf(element) != Kind::window) return AXError::illegalArgument;
    const SimWindow* w = visibleWindow(element);
    if (!w) return AXError::invalidUIElement;
    std::uint32_t id = w->id;
    if (attr == "AXMinimized") {
        if (!std::holds_alternative<bool>(v)) return AXError::illegalArgument;
        world_.setMinimized(id, std::get<bool>(v));
        return AXError::success;
    }
    if (attr == "AXMain" || attr == "AXFocused") {
        if (!std::holds_alternative<bool>(v)) return AXError::illegalArgument;
        if (std::get<bool>(v)) world_.raiseWithinApp(id);
        return AXError::success;
    }
    if (attr == "AXFullScreen") {
        if (!std::holds_alternative<bool>(v)) return AXError::illegalArgument;
        world_.setFullScreen(id, std::get<bool>(v));
        return AXError::success;
    }
    if (attr == "AXPosition") {
        if (!std::holds_alternative<Point>(v)) return AXError::illegalArgument;
        Rect f = w->frame;
        f.x = std::get<Point>(v).x;
        f.y = std::get<Point>(v).y;
        world_.setFrame(id, f);
        return AXError::success;
    }
    if (attr == "AXSize") {
        if (!std::holds_alternative<Size>(v)) return AXError::illegalArgument;
        Rect f = w->frame;
        f.width = std::get<Size>(v).width;
        f.height = std::get<Size>(v).height;
        world_.setFrame(id, f);
        return AXError::success;
    }
    return AXError::attributeUnsupported;
}

AXError SimAccessibility::performAction(AXRef element, const std::string& action) {
    AXError g = gate(element);
    if (g != AXError::success) return g;
    if (kindOf(element) == Kind::window && action == "AXRaise") {
        const SimWindow* w = visibleWindow(element);
        if (!w) return AXError::invalidUIElement;
        world_.raiseWithinApp(w->id);
        return AXError::success;
    }
    if (kindOf(element) == Kind::treeNode && action == "AXPress")
        return tree_ && tree_->press(windowOf(element)) ? AXError::success : AXError::cannotComplete;
    if (kindOf(element) == Kind::menuExtra && action == "AXPress")
        return world_.pressMenuExtra(pidOf(element)) ? AXError::success : AXError::cannotComplete;
    if (kindOf(element) == Kind::closeButton && action == "AXPress") {
        if (!visibleWindow(element)) return AXError::invalidUIElement;
        world_.closeWindow(windowOf(element));
        return AXError::success;
    }
    return AXError::actionUnsupported;
}

AXResult<AXRef> SimAccessibility::elementAtPosition(AXRef application, Point point) {
    AXError g = gate(application);
    if (g != AXError::success) return {g, std::nullopt};
    for (auto id : world_.zOrder()) {
        const SimWindow* w = world_.window(id);
        if (w && world_.isWindowOnScreen(*w) && w->frame.contains(point))
            return {AXError::success, windowElement(w->pid, id)};
    }
    return {AXError::noValue, std::nullopt};
}

std::uint32_t SimAccessibility::windowNumber(AXRef window) {
    if (kindOf(window) != Kind::window) return 0;
    return world_.window(windowOf(window)) ? windowOf(window) : 0;
}

std::uint64_t SimAccessibility::createObserver(std::int32_t pid, ObserverCallback callback) {
    if (!world_.permissions.accessibility || !world_.appByPid(pid)) return 0;
    std::uint64_t id = nextObserver_++;
    observers_[id] = Observer{pid, std::move(callback), {}};
    return id;
}

AXError SimAccessibility::addNotification(std::uint64_t observer, AXRef element, const std::string& name) {
    auto it = observers_.find(observer);
    if (it == observers_.end()) return AXError::invalidUIElementObserver;
    AXError g = gate(element);
    if (g != AXError::success) return g;
    if (!it->second.registrations.insert({element, name}).second)
        return AXError::notificationAlreadyRegistered;
    return AXError::success;
}

AXError SimAccessibility::removeNotification(std::uint64_t observer, AXRef element, const std::string& name) {
    auto it = observers_.find(observer);
    if (it == observers_.end()) return AXError::invalidUIElementObserver;
    return it->second.registrations.erase({element, name}) ? AXError::success
                                                           : AXError::notificationNotRegistered;
}

void SimAccessibility::destroyObserver(std::uint64_t observer) {
    observers_.erase(observer);
}

void SimAccessibility::fire(std::int32_t pid, std::uint32_t window, const std::string& notification) {
    AXRef appRef = applicationElement(pid);
    AXRef target = window ? windowElement(pid, window) : appRef;
    for (auto& [id, obs] : observers_) {
        if (obs.pid != pid) continue;
        if (!obs.registrations.count({appRef, notification}) &&
            !obs.registrations.count({target, notification}))
            continue;
        std::uint64_t observerID = id;
        ferrow::mainAsync([this, observerID, target, notification] {
            auto it = observers_.find(observerID);
            if (it != observers_.end()) it->second.callback(target, notification);
        });
    }
}

void SimAccessibility::onChange(const WorldChange& c) {
    using K = WorldChange::Kind;
    switch (c.kind) {
        case K::windowCreated:
            fire(c.pid, c.window, "AXWindowCreated");
            break;
        case K::windowClosed:
            fire(c.pid, c.window, "AXUIElementDestroyed");
            break;
        case K::windowTitle:
            fire(c.pid, c.window, "AXTitleChanged");
            break;
        case K::windowFrame:
            fire(c.pid, c.window, "AXWindowMoved");
            fire(c.pid, c.window, "AXWindowResized");
            break;
        case K::windowMinimized:
            fire(c.pid, c.window, c.flag ? "AXWindowMiniaturized" : "AXWindowDeminiaturized");
            break;
        case K::focus:
            if (c.window) {
                fire(c.pid, c.window, "AXFocusedWindowChanged");
                fire(c.pid, c.window, "AXMainWindowChanged");
            }
            break;
        case K::activate:
            if (c.previousPid && c.previousPid != c.pid) fire(c.previousPid, 0, "AXApplicationDeactivated");
            fire(c.pid, 0, "AXApplicationActivated");
            break;
        case K::hide:
            fire(c.pid, 0, "AXApplicationHidden");
            break;
        case K::unhide:
            fire(c.pid, 0, "AXApplicationShown");
            break;
        case K::overlay:
            // The Dock tells its observers when its overlays come and go.
            fire(SimWorld::kDockPID, 0,
                 c.text1 == "missionControl" ? "AXExposeShowAllWindows"
                 : c.text1 == "appExpose"    ? "AXExposeShowFrontWindows"
                                             : "AXExposeExit");
            break;
        case K::terminate: {
            for (auto it = observers_.begin(); it != observers_.end();)
                it = it->second.pid == c.pid ? observers_.erase(it) : std::next(it);
            break;
        }
        default:
            break;
    }
}

}  // namespace zelk::sim
