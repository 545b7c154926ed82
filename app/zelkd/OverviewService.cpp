#include "OverviewService.h"

#include <fmt/format.h>

#include "Subsystems.h"
#include "apps/AppManager.h"
#include "command/CommandDispatcher.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "expose/CapturedPictureSource.h"
#include "input/InputManager.h"
#include "input/KeyRouter.h"
#include "platform/PanelEvents.h"
#include "platform/Platform.h"
#include "spaces/SpaceNumbering.h"
#include "spaces/WindowMover.h"
#include "stages/StageService.h"
#include "support/Log.h"
#include "windows/WindowManager.h"
#include "windows/WindowMinimizer.h"

namespace zelk::agent {

using ferrow::Log;

namespace {

std::optional<platform::AXRef> refOf(const platform::AXResult<platform::AXValue>& r) {
    if (!r.ok() || !r.value || !std::holds_alternative<platform::AXRef>(*r.value)) return std::nullopt;
    return std::get<platform::AXRef>(*r.value);
}

std::optional<windows::ManagedWindow> tracked(Subsystems& s, std::uint32_t id) {
    return s.windows().tracker().window(id);
}

platform::AXRef elementOf(Subsystems& s, std::uint32_t id) {
    auto w = tracked(s, id);
    return w ? s.stages().placer().windowElementFor(w->appPid, id) : 0;
}

expose::SnapshotInput snapshotInput(Subsystems& s) {
    auto& p = platform::Platform::current();
    auto& wm = s.windows();
    wm.refreshWindows(true);
    wm.tracker().stampMissingSpaceIDs();
    expose::SnapshotInput in;
    for (const auto& w : wm.windows()) {
        expose::SourceWindow src{w.id,     w.title,      w.appName,     w.bundleIdentifier,
                                 w.appPid, std::nullopt, w.isMinimized, w.spaceID};
        if (p.windowServer) src.bounds = p.windowServer->windowBounds(w.id);
        if (!src.bounds)
            if (auto it = wm.tracker().lastKnownBounds().find(w.id);
                it != wm.tracker().lastKnownBounds().end())
                src.bounds = it->second;
        in.windows.push_back(std::move(src));
    }
    if (p.workspace)
        for (const auto& app : p.workspace->runningApplications())
            if (app.hidden) in.hiddenPids.insert(app.pid);
    for (const auto& d : wm.displaySpaces())
        for (const auto& space : d.spaces)
            if (space.type != 0) in.fullscreenSpaces.insert(space.id64);
    if (p.windowServer) in.activeSpace = p.windowServer->activeSpace();
    if (const auto& f = wm.focusedWindow()) in.focusedWindowID = f->id;
    in.letterFor = [](const std::string& bundleID) -> std::optional<expose::AppLetter> {
        auto& apps = apps::AppManager::shared();
        if (const auto* a = apps.assignmentForBundleIdentifier(bundleID))
            return expose::AppLetter{a->key, false};
        if (const auto* a = apps.dynamicAssignmentForIdentifier(bundleID))
            return expose::AppLetter{a->key, true};
        return std::nullopt;
    };
    return in;
}

command::ZelkResponse exposeCommand(expose::ExposeManager& m, const command::ZelkRequest& r) {
    const std::string mode = r.mode.value_or("toggle");
    if (mode == "toggle") {
        m.toggle();
    } else if (mode == "show") {
        m.show();
    } else if (mode == "hide") {
        m.hide(true);
    } else if (mode != "status") {
        return command::ZelkResponse::failure(
            fmt::format("unknown expose action {}; use toggle|show|hide|status", mode));
    }
    const bool up = m.isVisible() && m.phase() != expose::ExposePhase::exiting;
    if (mode == "status")
        return command::ZelkResponse::success(fmt::format("expose {} (windows={} grouping={})",
                                                          up ? "visible" : "hidden", m.flatWindows().size(),
                                                          expose::groupingName(m.grouping())));
    return command::ZelkResponse::success(fmt::format("expose {}", up ? "shown" : "hidden"));
}

// The installed pointer's panel events, where the platform has them.
platform::PanelEventSource* panelEventSource() {
    return dynamic_cast<platform::PanelEventSource*>(platform::Platform::current().pointer);
}

}  // namespace

// Pictures are taken on the main queue's clock, one operation after another as the queue allows: on
// the simulated desktop that keeps every run the same, and no capture thread outlives the main queue.
OverviewService::OverviewService(Subsystems& subsystems) : subsystems_(subsystems) {
    manager_ = std::make_unique<expose::ExposeManager>(environment());
    if (auto* server = platform::Platform::current().windowServer) {
        pictures_ = std::make_unique<expose::CapturedPictureSource>(
            *server, std::make_unique<expose::VirtualCaptureQueue>());
        manager_->setPictureSource(pictures_.get());
        subscriptions_.push_back(
            pictures_->pictures().changed.subscribe([this](std::uint32_t) { manager_->changed.emit(); }));
    }
}

// The picture cache lives as long as the program's one agent; an agent made again (tests, the replay
// bench) starts without the pictures of the last one's windows.
OverviewService::~OverviewService() {
    subscriptions_.clear();
    manager_.reset();
    pictures_.reset();
    expose::ThumbnailCache::reset();
}

expose::ExposeEnvironment OverviewService::environment() {
    auto& p = platform::Platform::current();
    Subsystems& s = subsystems_;
    expose::ExposeEnvironment env;
    env.snapshotInput = [&s] { return snapshotInput(s); };
    env.displaySpaces = [&s] { return s.windows().displaySpaces(); };
    env.screens = [screens = p.screens] {
        return screens ? screens->screens() : std::vector<platform::Screen>{};
    };
    env.focusWindow = [&s](std::uint32_t id) { return s.windows().focusWindow(id); };
    env.switchToSpace = [&s](std::uint64_t space) {
        auto where = s.iss().model().locate(space);
        return where && s.iss().switchToSpace(where->second, where->first);
    };
    // A window dropped on a Space goes there the way the move keys send it, by the Space's number.
    env.moveWindowToSpace = [&s](std::uint32_t id, std::uint64_t space) -> std::optional<std::string> {
        auto target = spaces::numberedSpaceByID(spaces::numberUserSpaces(s.windows().displaySpaces()), space);
        if (!target || target->number < 1 || target->number > 9)
            return "that Space can't be reached by number";
        auto w = tracked(s, id);
        auto result = s.mover().moveWindow(id, w ? w->title : "", target->number);
        if (result == spaces::MoveResult::moved || result == spaces::MoveResult::alreadyThere)
            return std::nullopt;
        return "Couldn't move the window";
    };
    auto* ax = p.accessibility;
    // The window's own element among its app's windows, and its close button pressed.
    env.closeWindow = [&s, ax](std::uint32_t id) {
        auto w = tracked(s, id);
        if (!ax || !w) return false;
        const auto app = ax->applicationElement(w->appPid);
        ax->setMessagingTimeout(app, 1.0);
        auto list = ax->copyAttribute(app, "AXWindows");
        if (!list.ok() || !list.value || !std::holds_alternative<std::vector<platform::AXRef>>(*list.value))
            return false;
        for (auto element : std::get<std::vector<platform::AXRef>>(*list.value)) {
            if (ax->windowNumber(element) != id) continue;
            auto button = refOf(ax->copyAttribute(element, "AXCloseButton"));
            return button && ax->performAction(*button, "AXPress") == platform::AXError::success;
        }
        return false;
    };
    env.setMinimized = [&s, ax](std::uint32_t id, bool minimized) {
        auto w = tracked(s, id);
        return ax && w && windows::WindowMinimizer(*ax).setMinimized(w->appPid, id, minimized);
    };
    env.setAppHidden = [ws = p.workspace](std::int32_t pid, bool hidden) {
        return ws && (hidden ? ws->hide(pid) : ws->unhide(pid));
    };
    env.quitApp = [ws = p.workspace](std::int32_t pid) { return ws && ws->terminate(pid); };
    env.setFullScreen = [&s, ax](std::uint32_t id, bool on) {
        const auto element = elementOf(s, id);
        return ax && element && ax->setAttribute(element, "AXFullScreen", on) == platform::AXError::success;
    };
    env.placeWindow = [&s](std::uint32_t id, const stages::WindowPlacement& placement) {
        auto w = tracked(s, id);
        return w && s.stages().placer().placeWindow(*w, placement);
    };
    env.setWindowFrame = [&s, ax](std::uint32_t id, const Rect& frame) {
        const auto element = elementOf(s, id);
        if (!ax || !element) return false;
        const bool moved =
            ax->setAttribute(element, "AXPosition", Point{frame.x, frame.y}) == platform::AXError::success;
        const bool sized = ax->setAttribute(element, "AXSize", Size{frame.width, frame.height}) ==
                           platform::AXError::success;
        return moved && sized;
    };
    env.bundleForKey = [](const std::string& key) -> std::optional<std::string> {
        auto& apps = apps::AppManager::shared();
        const auto* a = apps.assignmentForKey(key);
        if (!a) a = apps.dynamicAssignmentForKey(key);
        if (!a || !a->app) return std::nullopt;
        return a->app->bundleIdentifier();
    };
    env.beep = [] { Log::debug("expose: beep"); };
    env.keyboardTaken = [](bool taken) {
        auto& input = InputManager::shared();
        if (taken)
            input.suspendForOverlay();
        else
            input.resumeAfterOverlay();
    };
    env.keyForCode = [tap = p.eventTap](std::uint16_t code) -> std::optional<Key> {
        return tap ? tap->key(code) : qwertyKey(code);
    };
    return env;
}

void OverviewService::wire(InputManager& input, KeyRouter& router, command::CommandDispatcher& commands) {
    expose::ExposeManager& m = *manager_;
    input_ = &input;
    inner_ = input.router();
    input.setRouter(this);
    router.services().toggleOverview = [&m] { return m.toggle(); };
    commands.registerHandler(command::ZelkCommand::expose,
                             [&m](const command::ZelkRequest& r) { return exposeCommand(m, r); });
    subscriptions_.push_back(
        subsystems_.windows().activeSpaceDidChange().subscribe([&m](const auto&) { m.spacesChanged(); }));
    subscriptions_.push_back(m.changed.subscribe([this] { followPanelEvents(); }));
    subscriptions_.push_back(Settings::shared().store().observe([this](const std::string& key) {
        if (!key.starts_with("expose") && key != "spaceMode") return;
        manager_->reloadSettings();
        pollPointer();
    }));
    pollPointer();
}

void OverviewService::unwire(InputManager& input) {
    pointerPoll_.cancel();
    if (receivingPanelEvents_)
        if (auto* source = panelEventSource()) source->setPanelEventHandler(nullptr);
    receivingPanelEvents_ = false;
    subscriptions_.clear();
    if (input.router() == this) input.setRouter(inner_);
    input_ = nullptr;
}

// The hot corner follows the pointer by reading it while a corner is chosen: the platform layer
// offers no move monitor, and a read every 50 ms is enough for a corner 3 points wide to be hit.
void OverviewService::pollPointer() {
    pointerPoll_.cancel();
    auto* pointer = platform::Platform::current().pointer;
    if (!pointer || manager_->hotCorner() == expose::HotCorner::off) {
        lastPointer_.reset();
        return;
    }
    const Point at = pointer->location();
    if (at != lastPointer_) {
        lastPointer_ = at;
        manager_->pointerMoved(at);
    }
    pointerPoll_ = ferrow::mainAsyncAfter(kPointerPollMs, [this] { pollPointer(); });
}

void OverviewService::followPanelEvents() {
    auto* source = panelEventSource();
    const bool up = manager_->isVisible();
    if (!source || up == receivingPanelEvents_) return;
    receivingPanelEvents_ = up;
    if (up)
        source->setPanelEventHandler([this](const platform::PanelEvent& e) { panelEvent(e); });
    else
        source->setPanelEventHandler(nullptr);
}

void OverviewService::panelEvent(const platform::PanelEvent& e) {
    expose::ExposeManager& m = *manager_;
    switch (e.kind) {
        case platform::PanelEventKind::mouseMoved:
            // The hot corner's poll would see the same point again; it reads it from here instead.
            lastPointer_ = e.at;
            m.pointerMoved(e.at);
            break;
        case platform::PanelEventKind::mouseDown:
            m.mouseDown(e.at);
            break;
        case platform::PanelEventKind::mouseDragged:
            m.mouseDragged(e.at);
            break;
        case platform::PanelEventKind::mouseUp:
            m.mouseUp(e.at);
            break;
        case platform::PanelEventKind::scroll:
            m.handleScroll(
                {static_cast<expose::ScrollPhase>(e.phase), e.deltaX, e.deltaY, e.invertedFromDevice});
            break;
    }
}

platform::TapDecision OverviewService::routeKeyDown(Key key, const platform::KeyEvent& event,
                                                    const TriggerList& keys, bool isAutoRepeat) {
    if (input_ && input_->overlayVisible)
        return manager_->handleKey(key, event) ? platform::TapDecision::swallow : platform::TapDecision::pass;
    return inner_ ? inner_->routeKeyDown(key, event, keys, isAutoRepeat) : platform::TapDecision::pass;
}

void OverviewService::commitOnTriggerUp() {
    if (inner_) inner_->commitOnTriggerUp();
}

void OverviewService::showStagePanelIfAny() {
    if (inner_) inner_->showStagePanelIfAny();
}

void OverviewService::cancelForOverlay() {
    if (inner_) inner_->cancelForOverlay();
}

bool OverviewService::tabCycleBuilt() const {
    return inner_ && inner_->tabCycleBuilt();
}

nlohmann::json overviewEvent(const expose::ExposeManager& m) {
    nlohmann::json e;
    e["visible"] = m.isVisible();
    e["view"] = "ExposeOverlayView";
    auto rows = nlohmann::json::array();
    for (auto id : m.navOrder())
        rows.push_back(id);
    e["rows"] = rows;
    if (!m.isVisible()) {
        e["text"] = "overview hidden";
        return e;
    }
    const auto phase = std::string(expose::phaseName(m.phase()));
    e["phase"] = phase;
    e["grouping"] = std::string(expose::groupingName(m.grouping()));
    if (auto s = m.selectedWindowID()) e["selected"] = *s;
    if (m.filterBundleID()) e["filter"] = *m.filterBundleID();
    if (auto s = m.filterSpaceID()) e["filterSpace"] = *s;
    if (m.toast()) e["toast"] = m.toast()->text;
    if (m.confirm()) e["confirm"] = m.confirm()->text();
    auto screens = nlohmann::json::array();
    for (const auto& [key, layout] : m.layouts()) {
        auto tiles = nlohmann::json::array();
        for (const auto& t : layout.tiles)
            tiles.push_back({t.id, std::lround(t.frame.x), std::lround(t.frame.y), std::lround(t.frame.width),
                             std::lround(t.frame.height)});
        auto bar = nlohmann::json::array();
        for (const auto& c : layout.spacesBar)
            bar.push_back({c.id, std::lround(c.frame.x), std::lround(c.frame.y), std::lround(c.frame.width),
                           std::lround(c.frame.height)});
        screens.push_back({{"display", key}, {"tiles", tiles}, {"bar", bar}});
    }
    e["screens"] = screens;
    std::string text = fmt::format("overview {} {} windows={}", phase, e["grouping"].get<std::string>(),
                                   m.navOrder().size());
    if (auto s = m.selectedWindowID()) text += fmt::format(" selected=#{}", *s);
    if (m.filterBundleID()) text += " filter=" + *m.filterBundleID();
    if (m.confirm()) text += " \"" + m.confirm()->text() + "\"";
    if (m.toast()) text += " toast \"" + m.toast()->text + "\"";
    e["text"] = text;
    return e;
}

draw::OverviewPicture overviewPicture(const expose::ExposeManager& m) {
    draw::OverviewPicture p;
    if (m.toast())
        p.banner = m.toast()->text;
    else if (m.confirm())
        p.banner = m.confirm()->text();
    if (m.screenRecordingMissing()) p.notice = "Screen Recording permission is needed for window previews";
    p.opacity = m.phase() == expose::ExposePhase::exiting ? 0.5 : 1;
    for (const auto& screen : m.panelScreens()) {
        const auto* layout = m.layout(screen.uuid);
        if (!layout) continue;
        const Point o{screen.frame.x, screen.frame.y};
        auto global = [o](const Rect& r) { return Rect{r.x + o.x, r.y + o.y, r.width, r.height}; };
        draw::OverviewPicture::Screen s;
        s.frame = screen.frame;
        s.empty = "No windows on this display";
        for (const auto& t : layout->tiles) {
            const auto* w = m.window(t.id);
            if (!w) continue;
            draw::OverviewPicture::Tile tile;
            tile.id = t.id;
            tile.frame = global(t.frame);
            tile.title = w->title;
            tile.app = w->appName;
            tile.letter = w->letterKey;
            tile.selected = m.selectedWindowID() == t.id;
            tile.dimmed = w->isMinimized || w->appHidden;
            if (auto picture = m.pictures().picture(t.id)) {
                tile.pixelWidth = picture->width;
                tile.pixelHeight = picture->height;
                tile.bytesPerRow = picture->bytesPerRow;
                tile.pixels = picture->bgra;
            }
            s.tiles.push_back(std::move(tile));
        }
        for (const auto& c : layout->cards)
            for (const auto& g : m.groups())
                if (g.id == c.key) s.labels.push_back({global(c.headerFrame), g.appName, g.letter});
        for (const auto& h : layout->sectionHeaders)
            s.labels.push_back({global(h.frame),
                                h.subtitle.empty() ? h.title : h.title + " \u00b7 " + h.subtitle, h.keycap});
        for (const auto& cell : layout->spacesBar) {
            draw::OverviewPicture::BarCell bar;
            bar.frame = global(cell.frame);
            bar.title = cell.title;
            for (const auto& sp : m.spaces())
                if (sp.id == cell.id) bar.active = sp.isActive;
            for (const auto& mini : cell.minis)
                bar.minis.push_back(global(mini.frame));
            s.bar.push_back(std::move(bar));
        }
        p.screens.push_back(std::move(s));
    }
    return p;
}

}  // namespace zelk::agent
