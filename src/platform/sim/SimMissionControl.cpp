#include "platform/sim/SimMissionControl.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

#include "platform/EventTap.h"
#include "support/MainQueue.h"

namespace zelk::sim {

using platform::AXRef;
using platform::AXValue;
using platform::MouseEventKind;

namespace {
std::string pointText(Point p) {
    return fmt::format("({:.0f}, {:.0f})", p.x, p.y);
}
}  // namespace

SimMissionControl::SimMissionControl(SimWorld& world, SimWindowServer& server, SimAccessibility& ax)
    : world_(world), server_(server), ax_(ax) {
    ax_.setElementTree(this);
    world_.systemShortcut = [this](std::uint16_t keyCode, std::uint64_t flags, bool down) {
        return onHotKey(keyCode, flags, down);
    };
    subscription_ = world_.changes.subscribe([this](const WorldChange& c) { onChange(c); });
}

SimMissionControl::~SimMissionControl() {
    ax_.setElementTree(nullptr);
    world_.systemShortcut = nullptr;
}

std::size_t SimMissionControl::find(const std::string& prefix, std::size_t from) const {
    for (std::size_t i = from; i < calls_.size(); ++i)
        if (calls_[i].rfind(prefix, 0) == 0) return i;
    return std::string::npos;
}

std::vector<Rect> SimMissionControl::buttonFrames() const {
    std::vector<Rect> out;
    if (world_.displays().empty()) return out;
    const SimDisplay& d = world_.displays()[world_.activeDisplay()];
    for (std::size_t i = 0; i < d.spaces.size(); ++i)
        out.push_back({d.frame.x + 100 + 170 * static_cast<double>(i), d.frame.y + 20, 150, 90});
    return out;
}

std::optional<Rect> SimMissionControl::addButtonFrame() const {
    if (!options.addButton || world_.displays().empty()) return std::nullopt;
    const SimDisplay& d = world_.displays()[world_.activeDisplay()];
    // The button only shows while the pointer is near the display's top right.
    Point p = world_.pointer();
    if (!d.frame.contains(p) || p.x < d.frame.maxX() - 300 || p.y > d.frame.y + 150) return std::nullopt;
    return Rect{d.frame.maxX() - 80, d.frame.y + 20, 60, 90};
}

std::vector<std::pair<std::uint32_t, Rect>> SimMissionControl::thumbnails() const {
    std::vector<std::pair<std::uint32_t, Rect>> out;
    if (!options.thumbnails || world_.displays().empty()) return out;
    const SimDisplay& d = world_.displays()[world_.activeDisplay()];
    for (auto id : world_.zOrder()) {
        const SimWindow* w = world_.window(id);
        if (!w || w->space != d.currentSpace || !world_.isWindowOnScreen(*w)) continue;
        const double k = static_cast<double>(out.size());
        out.push_back({id,
                       {d.frame.x + 60 + 320 * static_cast<double>(out.size() % 4),
                        d.frame.y + 220 + 240 * std::floor(k / 4), 280, 200}});
    }
    return out;
}

std::vector<std::uint32_t> SimMissionControl::roots() {
    if (!overlayShown()) return {};
    return {root};
}

std::optional<AXValue> SimMissionControl::attribute(std::uint32_t node, const std::string& attr) {
    if (!overlayShown()) return std::nullopt;
    auto children = [](std::vector<std::uint32_t> nodes) {
        return AXValue(std::vector<AXRef>(nodes.begin(), nodes.end()));
    };
    auto text = [](std::string s) { return AXValue(std::move(s)); };
    if (node == root) {
        if (attr == "AXRole") return text("AXGroup");
        if (attr == "AXTitle") return text("Mission Control");
        if (attr == "AXChildren") {
            std::vector<std::uint32_t> kids;
            if (options.spacesBar) kids.push_back(spacesBarGroup);
            kids.push_back(windowsGroup);
            kids.push_back(dockList);
            return children(kids);
        }
        return std::nullopt;
    }
    if (node == spacesBarGroup) {
        if (attr == "AXRole") return text("AXGroup");
        if (attr == "AXTitle") return text("Spaces Bar");
        if (attr == "AXChildren") return children({spacesBarList});
        return std::nullopt;
    }
    if (node == spacesBarList) {
        if (attr == "AXRole") return text("AXList");
        if (attr == "AXChildren") {
            // Listed last to first: only the frames tell the order.
            std::vector<std::uint32_t> kids;
            auto frames = buttonFrames();
            for (std::size_t i = frames.size(); i-- > 0;)
                kids.push_back(firstButton + static_cast<std::uint32_t>(i));
            if (addButtonFrame()) kids.push_back(addButton);
            return children(kids);
        }
        return std::nullopt;
    }
    if (node == addButton) {
        auto frame = addButtonFrame();
        if (!frame) return std::nullopt;
        if (attr == "AXRole") return text("AXButton");
        if (attr == "AXDescription") return text("add desktop");
        if (attr == "AXFrame") return *frame;
        return std::nullopt;
    }
    if (node == windowsGroup) {
        if (attr == "AXRole") return text("AXGroup");
        if (attr == "AXChildren") {
            std::vector<std::uint32_t> kids;
            for (auto& [id, frame] : thumbnails())
                kids.push_back(thumbnailBit | id);
            return children(kids);
        }
        return std::nullopt;
    }
    if (node == dockList) {
        if (attr == "AXRole") return text("AXList");
        if (attr == "AXTitle") return text("Dock");
        if (attr == "AXChildren") {
            std::vector<std::uint32_t> kids;
            for (auto& app : world_.apps())
                if (app.running && app.kind == AppKind::regular)
                    kids.push_back(dockItemBit | static_cast<std::uint32_t>(app.pid));
            return children(kids);
        }
        return std::nullopt;
    }
    if (node & thumbnailBit) {
        const std::uint32_t id = node & ~thumbnailBit;
        const SimWindow* w = world_.window(id);
        if (!w) return std::nullopt;
        if (attr == "AXRole") return text("AXButton");
        if (attr == "AXTitle") return text(w->title);
        if (attr == "AXIdentifier") {
            const SimApp* app = world_.appByPid(w->pid);
            return text(fmt::format("{}.window.{}", app ? app->bundleID : "", id));
        }
        if (attr == "AXFrame")
            for (auto& [tid, frame] : thumbnails())
                if (tid == id) return frame;
        return std::nullopt;
    }
    if (node & dockItemBit) {
        const SimApp* app = world_.appByPid(static_cast<std::int32_t>(node & ~dockItemBit));
        if (!app) return std::nullopt;
        if (attr == "AXRole") return text("AXDockItem");
        if (attr == "AXSubrole") return text("AXApplicationDockItem");
        if (attr == "AXTitle") return text(app->name);
        return std::nullopt;
    }
    if (node >= firstButton) {
        const std::size_t i = node - firstButton;
        auto frames = buttonFrames();
        if (i >= frames.size()) return std::nullopt;
        const SimDisplay& d = world_.displays()[world_.activeDisplay()];
        if (attr == "AXRole") return text("AXButton");
        if (attr == "AXTitle") {
            if (!d.spaces[i].fullscreen) {
                int n = 0;
                for (std::size_t j = 0; j <= i; ++j)
                    n += d.spaces[j].fullscreen ? 0 : 1;
                return text(fmt::format("Desktop {}", n));
            }
            return text("Full Screen");
        }
        if (attr == "AXFrame") return frames[i];
        return std::nullopt;
    }
    return std::nullopt;
}

bool SimMissionControl::press(std::uint32_t node) {
    if (!overlayShown()) return false;
    if (node == addButton && addButtonFrame()) {
        note(fmt::format("add space={}", world_.addSpace(world_.activeDisplay())));
        return true;
    }
    return false;
}

std::optional<std::uint32_t> SimMissionControl::hit(Point at) const {
    if (auto plus = addButtonFrame(); plus && plus->contains(at)) return addButton;
    if (options.spacesBar) {
        auto frames = buttonFrames();
        for (std::size_t i = 0; i < frames.size(); ++i)
            if (frames[i].contains(at)) return firstButton + static_cast<std::uint32_t>(i);
    }
    for (auto& [id, frame] : thumbnails())
        if (frame.contains(at)) return thumbnailBit | id;
    return std::nullopt;
}

std::uint32_t SimMissionControl::titleBarAt(Point at) const {
    for (auto id : world_.zOrder()) {
        const SimWindow* w = world_.window(id);
        if (!w || !world_.isWindowOnScreen(*w)) continue;
        if (!w->frame.contains(at)) continue;
        // The topmost window under the point takes the press; only its title bar holds it.
        return at.y < w->frame.y + kTitleBarHeight ? id : 0;
    }
    return 0;
}

bool SimMissionControl::post(MouseEventKind kind, Point at) {
    note(fmt::format("{} {}", platform::mouseEventName(kind), pointText(at)));
    world_.warpPointer(at);
    world_.noteMouseEvent(std::string(platform::mouseEventName(kind)), at);
    if (overlayShown()) {
        if (kind == MouseEventKind::leftMouseDown) pressed_ = hit(at).value_or(0);
        if (kind != MouseEventKind::leftMouseUp) return true;
        const std::uint32_t down = std::exchange(pressed_, 0);
        auto up = hit(at);
        const SimDisplay& d = world_.displays()[world_.activeDisplay()];
        if ((down & thumbnailBit) && up && *up >= firstButton && !(*up & thumbnailBit) && *up != addButton) {
            const std::uint64_t space = d.spaces[*up - firstButton].id;
            const std::uint32_t id = down & ~thumbnailBit;
            note(fmt::format("drop wid={} space={}", id, space));
            world_.moveWindowToSpace(id, space);
        } else if (down == addButton && up == addButton) {
            press(addButton);
        } else if (down >= firstButton && !(down & thumbnailBit) && up == down) {
            const std::uint64_t space = d.spaces[down - firstButton].id;
            world_.switchSpace(world_.activeDisplay(), space);
            world_.setOverlay(Overlay::none);
        }
        return true;
    }
    if (kind == MouseEventKind::leftMouseDown) held_ = titleBarAt(at);
    if (kind == MouseEventKind::leftMouseUp) held_ = 0;
    return true;
}

void SimMissionControl::onChange(const WorldChange& c) {
    if (c.kind == WorldChange::Kind::overlay) {
        note("overlay " + c.text1);
        pressed_ = 0;
    }
    if (c.kind == WorldChange::Kind::windowFrame) {
        // A window placed onto another display joins the Space that display shows.
        const SimWindow* w = world_.window(c.window);
        auto from = w ? world_.displayIndexOfSpace(w->space) : std::nullopt;
        const auto& displays = world_.displays();
        for (std::size_t i = 0; w && from && i < displays.size(); ++i)
            if (i != *from && displays[i].frame.contains(w->frame.center())) {
                note(fmt::format("display wid={} space={}", c.window, displays[i].currentSpace));
                world_.moveWindowToSpace(c.window, displays[i].currentSpace);
                break;
            }
        return;
    }
    if (c.kind != WorldChange::Kind::space) return;
    note(fmt::format("switch display={} space={}", c.display, c.space));
    const SimWindow* w = held_ ? world_.window(held_) : nullptr;
    if (!w) return;
    auto from = world_.displayIndexOfSpace(w->space);
    auto to = world_.displayIndexOfSpace(c.space);
    // A held window rides along with its display's switch.
    if (from && to && *from == *to && w->space != c.space) {
        note(fmt::format("carry wid={} space={}", held_, c.space));
        world_.moveWindowToSpace(held_, c.space);
    }
}

bool SimMissionControl::onHotKey(std::uint16_t keyCode, std::uint64_t flags, bool down) {
    for (int n = 0; n < 16; ++n) {
        auto it = server_.hotKeys().find(118 + n);
        if (it == server_.hotKeys().end() || !it->second.enabled || it->second.keyCode != keyCode) continue;
        if ((flags & it->second.modifiers) != it->second.modifiers || keyCode == 0) continue;
        if (!down) return true;
        note(fmt::format("hotkey {}", 118 + n));
        // "Switch to Desktop n" counts the user Spaces of the active display.
        if (world_.displays().empty()) return true;
        const std::size_t di = world_.activeDisplay();
        const SimDisplay& d = world_.displays()[di];
        int seen = 0;
        for (auto& s : d.spaces) {
            if (s.fullscreen || seen++ != n) continue;
            const std::uint64_t space = s.id;
            if (world_.spaceSwitchLatencyMs <= 0)
                world_.switchSpace(di, space);
            else
                ferrow::mainAsyncAfter(world_.spaceSwitchLatencyMs,
                                       [this, di, space] { world_.switchSpace(di, space); });
            break;
        }
        return true;
    }
    return false;
}

}  // namespace zelk::sim
