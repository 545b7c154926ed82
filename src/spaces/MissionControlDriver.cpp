#include "spaces/MissionControlDriver.h"

#include <algorithm>
#include <cctype>

#include "spaces/SpaceNumbering.h"
#include "support/Format.h"
#include "support/Log.h"

namespace zelk::spaces {

using ferrow::Log;
using ferrow::Task;
using platform::AXRef;
using platform::MouseEventKind;

namespace {
constexpr const char* kOverlayToggle = "com.apple.expose.awake";
constexpr const char* kOwners[] = {"com.apple.dock", "com.apple.WindowManager"};
constexpr int kMaxDepth = 12;
}  // namespace

std::optional<std::string> MissionControlDriver::text(AXRef e, const char* attribute) {
    auto r = env_.ax->copyAttribute(e, attribute);
    if (!r.ok() || !r.value) return std::nullopt;
    if (auto* s = std::get_if<std::string>(&*r.value)) return *s;
    return std::nullopt;
}

std::optional<Rect> MissionControlDriver::frame(AXRef e) {
    auto r = env_.ax->copyAttribute(e, "AXFrame");
    if (r.ok() && r.value)
        if (auto* f = std::get_if<Rect>(&*r.value)) return *f;
    auto pos = env_.ax->copyAttribute(e, "AXPosition");
    auto size = env_.ax->copyAttribute(e, "AXSize");
    if (!pos.ok() || !size.ok() || !pos.value || !size.value) return std::nullopt;
    auto* p = std::get_if<Point>(&*pos.value);
    auto* s = std::get_if<Size>(&*size.value);
    if (!p || !s) return std::nullopt;
    return Rect{p->x, p->y, s->width, s->height};
}

std::vector<AXRef> MissionControlDriver::children(AXRef e) {
    auto r = env_.ax->copyAttribute(e, "AXChildren");
    if (!r.ok() || !r.value) return {};
    if (auto* list = std::get_if<std::vector<AXRef>>(&*r.value)) return *list;
    return {};
}

std::optional<AXRef> MissionControlDriver::overlayRoot() {
    if (!env_.ax || !env_.workspace) return std::nullopt;
    auto apps = env_.workspace->runningApplications();
    for (const char* owner : kOwners)
        for (auto& app : apps) {
            if (app.bundleID != owner) continue;
            AXRef element = env_.ax->applicationElement(app.pid);
            env_.ax->setMessagingTimeout(element, 1.0);
            // The owner is the one that carries the overlay's tree.
            if (!children(element).empty()) return element;
        }
    return std::nullopt;
}

std::vector<Rect> MissionControlDriver::spacesBarButtonFrames(AXRef root) {
    // Depth first for the element titled or described "Spaces Bar".
    std::optional<AXRef> bar;
    std::function<void(AXRef, int)> walk = [&](AXRef e, int depth) {
        if (bar || depth > kMaxDepth) return;
        if (text(e, "AXTitle") == "Spaces Bar" || text(e, "AXDescription") == "Spaces Bar") {
            bar = e;
            return;
        }
        for (auto c : children(e))
            walk(c, depth + 1);
    };
    walk(root, 0);
    if (!bar) {
        Log::error("spacesBarButtonFrames: 'Spaces Bar' element not found in Mission Control AX tree");
        return {};
    }
    std::optional<AXRef> list;
    for (auto c : children(*bar))
        if (!list && text(c, "AXRole") == "AXList") list = c;
    if (!list) {
        Log::error("spacesBarButtonFrames: AXList child of 'Spaces Bar' not found");
        return {};
    }
    std::vector<Rect> frames;
    int n = 0;
    for (auto c : children(*list)) {
        auto role = text(c, "AXRole").value_or("");
        auto title = text(c, "AXTitle").value_or("");
        auto desc = text(c, "AXDescription").value_or("");
        auto f = frame(c);
        Log::debug("spacesBarButtonFrames[{}] role={} title='{}' desc='{}' frame={}", n++, role, title, desc,
                   f ? rectText(*f) : "nil");
        // The "+" button ends the bar but is no Space.
        if (!f || desc == "add desktop" || title == "+") continue;
        frames.push_back(*f);
    }
    std::stable_sort(frames.begin(), frames.end(), [](const Rect& a, const Rect& b) { return a.x < b.x; });
    std::vector<std::string> parts;
    for (auto& f : frames)
        parts.push_back(rectText(f));
    Log::info("spacesBarButtonFrames sorted-by-x: count={} frames=[{}]", frames.size(),
              ferrow::join(parts, ", "));
    return frames;
}

std::optional<Rect> MissionControlDriver::addButtonFrame(AXRef root) {
    std::optional<Rect> found;
    std::function<void(AXRef, int)> walk = [&](AXRef e, int depth) {
        if (found || depth > kMaxDepth) return;
        if (text(e, "AXRole") == "AXButton" &&
            (text(e, "AXDescription") == "add desktop" || text(e, "AXTitle") == "+")) {
            found = frame(e);
            return;
        }
        for (auto c : children(e))
            walk(c, depth + 1);
    };
    walk(root, 0);
    return found;
}

std::optional<Rect> MissionControlDriver::findMissionControlThumbnail(AXRef root,
                                                                      const MissionControlDragSpec& spec) {
    struct Candidate {
        std::string identifier;
        Rect frame;
    };
    std::vector<Candidate> candidates;
    std::function<void(AXRef, int, bool)> walk = [&](AXRef e, int depth, bool inDock) {
        if (depth > kMaxDepth) return;
        auto role = text(e, "AXRole").value_or("");
        auto subrole = text(e, "AXSubrole").value_or("");
        auto title = text(e, "AXTitle").value_or("");
        auto desc = text(e, "AXDescription").value_or("");
        const bool dockItem = inDock || role == "AXDockItem" || subrole.find("DockItem") != std::string::npos;
        if (dockItem && depth > 0) {
            auto f = frame(e);
            Log::debug("findMissionControlThumbnail: SKIP dock-item depth={} title='{}' frame={}", depth,
                       title, f ? rectText(*f) : "nil");
            return;
        }
        const bool dockList = role == "AXList" && title == "Dock";
        if (!dockList && !spec.title.empty() &&
            (title.find(spec.title) != std::string::npos || desc.find(spec.title) != std::string::npos)) {
            if (auto f = frame(e)) {
                auto identifier = text(e, "AXIdentifier").value_or("");
                Log::debug(
                    "findMissionControlThumbnail: MATCH depth={} role={} title='{}' desc='{}' "
                    "identifier='{}' "
                    "frame={}",
                    depth, role, title, desc, identifier, rectText(*f));
                candidates.push_back({identifier, *f});
                return;
            }
        }
        for (auto c : children(e))
            walk(c, depth + 1, dockList);
    };
    walk(root, 0, false);
    if (candidates.empty()) return std::nullopt;
    if (candidates.size() == 1) return candidates.front().frame;
    const std::string wid = spec.windowID ? std::to_string(*spec.windowID) : "nil";
    Log::info("findMissionControlThumbnail: {} candidates for title='{}', disambiguating by windowID={}",
              candidates.size(), spec.title, wid);
    if (spec.windowID)
        for (auto& c : candidates) {
            // The id must stand as a whole number in the identifier, not inside a longer one.
            auto at = c.identifier.rfind(wid);
            bool whole = at != std::string::npos && at + wid.size() == c.identifier.size() &&
                         (at == 0 || !std::isdigit(static_cast<unsigned char>(c.identifier[at - 1])));
            if (whole) {
                Log::info("findMissionControlThumbnail: kAXIdentifier match wid={} frame={}", wid,
                          rectText(c.frame));
                return c.frame;
            }
        }
    if (!spec.bundleID.empty())
        for (auto& c : candidates)
            if (c.identifier.find(spec.bundleID) != std::string::npos) {
                Log::info("findMissionControlThumbnail: bundleID match '{}' wid={} frame={}", spec.bundleID,
                          wid, rectText(c.frame));
                return c.frame;
            }
    return candidates.front().frame;
}

void MissionControlDriver::dumpTree(AXRef root, const std::string& linePrefix) {
    std::function<void(AXRef, int)> walk = [&](AXRef e, int depth) {
        if (depth > kMaxDepth) return;
        auto f = frame(e);
        Log::debug("{}{}{} title='{}' desc='{}' frame={}", linePrefix,
                   std::string(static_cast<std::size_t>(depth) * 2, ' '), text(e, "AXRole").value_or("?"),
                   text(e, "AXTitle").value_or(""), text(e, "AXDescription").value_or(""),
                   f ? rectText(*f) : "nil");
        for (auto c : children(e))
            walk(c, depth + 1);
    };
    walk(root, 0);
}

bool MissionControlDriver::post(MouseEventKind kind, Point at) {
    if (!env_.mouse || !env_.mouse->post(kind, at)) {
        Log::error("Move[event]: CGEvent creation failed for {} at {}", platform::mouseEventName(kind),
                   pointText(at));
        return false;
    }
    return true;
}

Task<bool> MissionControlDriver::open() {
    if (env_.overlayShown && env_.overlayShown()) co_return true;
    env_.server->coreDockSendNotification(kOverlayToggle);
    auto alive = alive_;
    co_await ferrow::sleepMs(kOpenWaitMs);
    co_return *alive;
}

void MissionControlDriver::close() {
    // The toggle closes only an overlay that shows; otherwise it would open one.
    if (env_.overlayShown && !env_.overlayShown()) return;
    env_.server->coreDockSendNotification(kOverlayToggle);
}

Task<bool> MissionControlDriver::drag(Point from, Point to) {
    auto alive = alive_;
    if (!post(MouseEventKind::leftMouseDown, from)) co_return false;
    for (int i = 1; i <= kDragSteps; ++i) {
        co_await ferrow::sleepMs(kDragStepMs);
        if (!*alive) co_return false;
        const double t = static_cast<double>(i) / kDragSteps;
        post(MouseEventKind::leftMouseDragged, {from.x + (to.x - from.x) * t, from.y + (to.y - from.y) * t});
    }
    co_await ferrow::sleepMs(kHoverMs);
    if (!*alive) co_return false;
    co_return post(MouseEventKind::leftMouseUp, to);
}

Task<bool> MissionControlDriver::click(Point at) {
    if (!post(MouseEventKind::leftMouseDown, at)) co_return false;
    co_return post(MouseEventKind::leftMouseUp, at);
}

Task<bool> MissionControlDriver::dragSpecs(AXRef root, const std::vector<MissionControlDragSpec>& specs,
                                           int targetIndex, bool follow, const char* prefix) {
    auto alive = alive_;
    auto buttons = spacesBarButtonFrames(root);
    int dropped = 0;
    std::optional<Rect> target;
    for (auto& spec : specs) {
        auto thumb = findMissionControlThumbnail(root, spec);
        if (!thumb) {
            Log::info("{}: thumbnail not found for title='{}' (skipping)", prefix, spec.title);
            continue;
        }
        if (targetIndex < 0 || targetIndex >= static_cast<int>(buttons.size())) {
            Log::error("{}: spaces bar button at index={} not found, aborting batch", prefix, targetIndex);
            close();
            co_return false;
        }
        target = buttons[static_cast<std::size_t>(targetIndex)];
        Log::info("{}: thumbnail={} target={}", prefix, rectText(*thumb), rectText(*target));
        Point drop{target->midX(), target->y + target->height * kDropHeight};
        Log::info("{}: dropPoint={} (spaceFrame={})", prefix, pointText(drop), rectText(*target));
        bool ok = co_await drag(thumb->center(), drop);
        if (!*alive) co_return false;
        if (ok) ++dropped;
    }
    if (dropped == 0) {
        close();
        co_return false;
    }
    if (follow && target) {
        Point at = target->center();
        Log::info("{}: follow-click to focus target Space at {}", prefix, pointText(at));
        co_await click(at);
        if (!*alive) co_return false;
        // A click the overlay didn't take still must not leave it open.
        if (env_.overlayShown && env_.overlayShown()) close();
    } else {
        close();
    }
    co_return true;
}

Task<bool> MissionControlDriver::missionControlDrag(std::vector<MissionControlDragSpec> specs,
                                                    int targetIndex, bool follow) {
    auto alive = alive_;
    if (!co_await open()) co_return false;
    auto owner = overlayRoot();
    if (!owner) {
        Log::error("MC drag: Mission Control AX owner not running");
        close();
        co_return false;
    }
    Log::debug("MC drag: AX dump after pre-expand ↓");
    dumpTree(*owner, "");
    if (spacesBarButtonFrames(*owner).empty() && env_.activeDisplayFrame) {
        // The bar hides its buttons until the pointer reaches the top of the screen.
        if (auto f = env_.activeDisplayFrame()) {
            post(MouseEventKind::mouseMoved, {f->midX(), f->y + 2});
            co_await ferrow::sleepMs(kRevealWaitMs);
            if (!*alive) co_return false;
        }
    }
    co_return co_await dragSpecs(*owner, specs, targetIndex, follow, "MC drag");
}

Task<bool> MissionControlDriver::createNewSpaceViaMissionControl() {
    auto alive = alive_;
    bool added = co_await addSpace();
    if (*alive) close();
    co_return added;
}

Task<bool> MissionControlDriver::addSpace() {
    auto alive = alive_;
    auto before = env_.server->managedDisplaySpaces();
    std::size_t countBefore = 0;
    if (before)
        for (auto& d : *before)
            countBefore += d.spaces.size();
    if (!co_await open()) co_return false;
    auto root = overlayRoot();
    if (!root) {
        Log::error("MC +: Mission Control AX owner not running");
        close();
        co_return false;
    }
    auto display = env_.activeDisplayFrame ? env_.activeDisplayFrame() : std::nullopt;
    if (!display) {
        close();
        co_return false;
    }
    // "+" only shows while the pointer is near the display's top right.
    post(MouseEventKind::mouseMoved, {display->maxX() - 50, display->y + 60});
    co_await ferrow::sleepMs(kRevealWaitMs);
    if (!*alive) co_return false;
    std::optional<Point> at;
    if (auto plus = addButtonFrame(*root)) at = plus->center();
    if (!at && env_.server->osMajorVersion() >= 27) {
        at = Point{display->maxX() - 50, display->y + 60};
        Log::info("MC +: macOS 27 expanded-bar click point={}", pointText(*at));
    }
    if (!at) {
        Log::error("MC +: '+' button not found in Mission Control AX tree");
        close();
        co_return false;
    }
    co_await click(*at);
    co_await ferrow::sleepMs(kAfterAddWaitMs);
    if (!*alive) co_return false;
    auto after = env_.server->managedDisplaySpaces();
    std::size_t countAfter = 0;
    if (after)
        for (auto& d : *after)
            countAfter += d.spaces.size();
    co_return countAfter > countBefore;
}

Task<bool> MissionControlDriver::createAndMoveViaMissionControl(std::vector<MissionControlDragSpec> specs) {
    auto alive = alive_;
    if (!co_await addSpace()) {
        Log::error("MC create+move: new Space was not created");
        if (*alive) close();
        co_return false;
    }
    auto root = overlayRoot();
    if (!root) {
        Log::error("MC create+move: Mission Control AX owner not running");
        close();
        co_return false;
    }
    Log::debug("MC create+move: AX dump after + click ↓");
    dumpTree(*root, "[MC create+move] ");
    auto buttons = spacesBarButtonFrames(*root);
    if (buttons.empty()) {
        Log::error("MC create+move: no Spaces Bar buttons after +");
        close();
        co_return false;
    }
    const int target = static_cast<int>(buttons.size()) - 1;
    Log::info("MC create+move: dropping {} windows onto new Space index={} (total={})", specs.size(), target,
              buttons.size());
    co_return co_await dragSpecs(*root, specs, target, true, "MC create+move");
}

}  // namespace zelk::spaces
