#include "expose/ExposeController.h"

#include <algorithm>
#include <cmath>

#include "config/FocusOptions.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "expose/ExposeNavigation.h"
#include "expose/ExposeScreenLayout.h"
#include "support/Log.h"

#include <fmt/format.h>

namespace zelk::expose {

using ferrow::Log;

namespace {

template <typename F, typename R>
void orDefault(F& f, R answer) {
    if (!f) f = [answer](auto&&...) { return answer; };
}

bool isDigit1to9(Key k) {
    return k >= Key::one && k <= Key::nine;
}
int digitOf(Key k) {
    return static_cast<int>(k) - static_cast<int>(Key::zero);
}
bool isLetter(Key k) {
    return k >= Key::a && k <= Key::z;
}

double menuBarHeight(const platform::Screen& s) {
    if (s.visibleFrame.isEmpty()) return 0;
    return std::max(0.0, s.visibleFrame.y - s.frame.y);
}

Rect offset(const Rect& r, const Rect& screen) {
    return {r.x + screen.x, r.y + screen.y, r.width, r.height};
}

}  // namespace

void ExposeEnvironment::fillDefaults() {
    if (!snapshotInput) snapshotInput = [] { return SnapshotInput{}; };
    if (!displaySpaces) displaySpaces = [] { return std::vector<platform::DisplaySpaces>{}; };
    if (!screens) screens = [] { return std::vector<platform::Screen>{}; };
    orDefault(focusWindow, false);
    orDefault(switchToSpace, false);
    orDefault(closeWindow, false);
    orDefault(setMinimized, false);
    orDefault(setAppHidden, false);
    orDefault(quitApp, false);
    orDefault(setFullScreen, false);
    orDefault(placeWindow, false);
    orDefault(setWindowFrame, false);
    if (!moveWindowToSpace)
        moveWindowToSpace = [](std::uint32_t, std::uint64_t) -> std::optional<std::string> {
            return "moving windows between Spaces is not available yet";
        };
    if (!bundleForKey)
        bundleForKey = [](const std::string&) -> std::optional<std::string> { return std::nullopt; };
    if (!beep) beep = [] {};
    if (!keyboardTaken) keyboardTaken = [](bool) {};
    orDefault(keyboardIsISO, false);
    if (!keyForCode) keyForCode = [](std::uint16_t code) { return qwertyKey(code); };
}

ExposeSettings ExposeSettings::read() {
    auto& st = Settings::shared();
    ExposeSettings s;
    s.include = st.get(keys::exposeInclude);
    s.spacesBar = st.get(keys::exposeSpacesBar);
    s.animations = st.get(keys::exposeAnimations);
    s.confirmBlindDestructive = st.get(keys::exposeConfirmBlindDestructive);
    s.keyboardLayout = st.get(keys::exposeKeyboardLayout);
    s.grouping = groupingFromName(st.get(keys::exposeGrouping)).value_or(ExposeGrouping::app);
    s.exposeKey = st.get(keys::exposeKey);
    s.multiSpace = st.get(keys::spaceMode) == SpaceMode::multi;
    const auto corner = st.get(keys::exposeHotCorner);
    s.hotCorner = hotCornerFromName(corner).value_or(HotCorner::off);
    if (!hotCornerFromName(corner)) Log::error("expose: unknown hot corner '{}', corner off", corner);
    return s;
}

ExposeManager::ExposeManager(ExposeEnvironment env) : env_(std::move(env)) {
    env_.fillDefaults();
    settings_ = ExposeSettings::read();
    grouping_ = settings_.grouping;
}

ExposeManager::~ExposeManager() {
    for (auto* t : {&toastTimer_, &confirmTimer_, &orderOutTimer_, &entranceTimer_, &placeTimer_})
        t->cancel();
}

void ExposeManager::setPictureSource(WindowPictureSource* source) {
    pictures_ = source ? source : &defaultPictures_;
}

const ExposeLayoutSnapshot* ExposeManager::layout(const std::string& key) const {
    for (const auto& [k, l] : layouts_)
        if (k == key) return &l;
    return nullptr;
}

const ExposeWindow* ExposeManager::window(std::uint32_t id) const {
    for (const auto& w : flatWindows_)
        if (w.id == id) return &w;
    return nullptr;
}

ExposeWindow* ExposeManager::mutableWindow(std::uint32_t id) {
    for (auto& w : flatWindows_)
        if (w.id == id) return &w;
    return nullptr;
}

// Opening and closing -------------------------------------------------------------------------------

bool ExposeManager::toggle() {
    if (visible_ && phase_ != ExposePhase::exiting)
        hide(true);
    else
        show();
    return true;
}

void ExposeManager::show() {
    if (visible_ && phase_ != ExposePhase::exiting) return;
    orderOutTimer_.cancel();
    Log::info("expose: open");
    settings_ = ExposeSettings::read();
    grouping_ = settings_.grouping;
    pinnedClusters_.clear();
    takeSnapshot();
    readSpaces();
    resetSelection();
    relayout();
    if (!selected_ && !navOrder_.empty()) selected_ = navOrder_.front();
    orderPanelsIn();
    startPicturesAndEntrance();
    Log::info("expose: shown windows={} groups={} spaces={} screens={}", flatWindows_.size(), groups_.size(),
              spaces_.size(), screens_.size());
    publish();
}

void ExposeManager::takeSnapshot() {
    SnapshotInput input = env_.snapshotInput();
    input.include = settings_.include;
    auto snapshot = expose::takeSnapshot(input);
    flatWindows_ = std::move(snapshot.flatWindows);
    groups_ = std::move(snapshot.groups);
}

void ExposeManager::readSpaces() {
    screens_ = env_.screens();
    spaces_ = expose::readSpaces(env_.displaySpaces(), screens_);
    activeSpaceIDs_.clear();
    for (const auto& s : spaces_)
        if (s.isActive) activeSpaceIDs_.insert(s.id);
}

void ExposeManager::resetSelection() {
    hovered_.reset();
    hoveredGroup_.reset();
    hoveredBarSpace_.reset();
    confirm_.reset();
    toast_.reset();
    filterBundleID_.reset();
    filterLetter_.reset();
    filterSpaceID_.reset();
    drag_.reset();
    selected_.reset();
    for (const auto& w : flatWindows_)
        if (w.isFocused) selected_ = w.id;
}

std::optional<platform::Screen> ExposeManager::screenOf(const ExposeWindow& w) const {
    if (screens_.empty()) return std::nullopt;
    if (w.spaceID)
        for (const auto& s : spaces_)
            if (s.id == *w.spaceID)
                for (const auto& screen : screens_)
                    if (screen.uuid == s.displayUUID) return screen;
    for (const auto& screen : screens_)
        if (screen.frame.contains(w.bounds.center())) return screen;
    return screens_.front();
}

std::optional<platform::Screen> ExposeManager::screenAt(Point p) const {
    for (const auto& s : screens_)
        if (s.frame.contains(p)) return s;
    return std::nullopt;
}

void ExposeManager::relayout() {
    ++layoutVersion_;
    layouts_.clear();
    navOrder_.clear();
    navFrames_.clear();
    for (const auto& screen : screens_) {
        ScreenLayoutInput in;
        in.screenFrame = screen.frame;
        in.menuBarHeight = menuBarHeight(screen);
        in.spacesBar = settings_.spacesBar;
        in.grouping = grouping_;
        in.filterBundleID = filterBundleID_;
        in.filterSpaceID = filterSpaceID_;
        in.version = layoutVersion_;
        for (const auto& s : spaces_)
            if (s.displayUUID == screen.uuid) in.spaces.push_back(s);
        for (const auto& g : groups_) {
            ExposeGroup mine = g;
            mine.windows.clear();
            for (const auto& w : flatWindows_)
                if (w.bundleID == g.bundleID && w.pid == g.pid) {
                    auto s = screenOf(w);
                    if (s && s->uuid == screen.uuid) mine.windows.push_back(w);
                }
            if (!mine.windows.empty()) in.groups.push_back(std::move(mine));
        }
        if (auto it = pinnedClusters_.find(screen.uuid); it != pinnedClusters_.end())
            in.pinnedCenters = it->second;
        auto layout = layoutScreen(in);
        if (grouping_ == ExposeGrouping::app && !filterBundleID_ && !filterSpaceID_)
            pinnedClusters_[screen.uuid] = cardCenters(layout);
        for (auto id : layout.order) {
            navOrder_.push_back(id);
            navFrames_.emplace_back(id, offset(*layout.tileFrame(id), screen.frame));
        }
        layouts_.emplace_back(screen.uuid, std::move(layout));
    }
}

void ExposeManager::orderPanelsIn() {
    visible_ = true;
    env_.keyboardTaken(true);
}

void ExposeManager::startPicturesAndEntrance() {
    std::vector<std::uint32_t> ids;
    for (const auto& w : flatWindows_)
        ids.push_back(w.id);
    pictures_->request(ids);
    entranceFrames_.clear();
    exitFrames_.clear();
    entranceTimer_.cancel();
    if (!settings_.animations) {
        phase_ = ExposePhase::shown;
        return;
    }
    // Each tile starts where its window stands on screen and moves to its tile.
    for (const auto& w : flatWindows_)
        if (auto s = screenOf(w))
            entranceFrames_[w.id] = {w.bounds.x - s->frame.x, w.bounds.y - s->frame.y, w.bounds.width,
                                     w.bounds.height};
    phase_ = ExposePhase::entering;
    entranceTimer_ = ferrow::mainAsyncAfter(kEntranceMs, [this] {
        if (phase_ != ExposePhase::entering) return;
        phase_ = ExposePhase::shown;
        publish();
    });
}

void ExposeManager::hide(bool keepFocus) {
    if (!visible_ || phase_ == ExposePhase::exiting) return;
    std::size_t remaining = 0;
    for (const auto& w : flatWindows_)
        if (!pictures_->picture(w.id)) ++remaining;
    Log::info("expose: capture interrupted={} remaining={}", remaining > 0, remaining);
    Log::info("expose: hide keepFocus={}", keepFocus);
    exitFrames_.clear();
    for (const auto& [key, layout] : layouts_)
        for (const auto& t : layout.tiles)
            exitFrames_[t.id] = t.frame;
    selected_.reset();
    hovered_.reset();
    hoveredGroup_.reset();
    hoveredBarSpace_.reset();
    filterBundleID_.reset();
    filterLetter_.reset();
    filterSpaceID_.reset();
    toast_.reset();
    confirm_.reset();
    drag_.reset();
    entranceTimer_.cancel();
    confirmTimer_.cancel();
    toastTimer_.cancel();
    pictures_->cancel();
    // The keyboard goes back at once; the panels leave when the exit phase is over.
    env_.keyboardTaken(false);
    phase_ = ExposePhase::exiting;
    orderOutTimer_.cancel();
    orderOutTimer_ = ferrow::mainAsyncAfter(kOrderOutMs, [this] { finishHide(); });
    publish();
}

void ExposeManager::finishHide() {
    visible_ = false;
    phase_ = ExposePhase::hidden;
    layouts_.clear();
    navOrder_.clear();
    navFrames_.clear();
    Log::info("expose: closed");
    publish();
}

void ExposeManager::spacesChanged() {
    if (!visible_ || phase_ == ExposePhase::exiting) return;
    readSpaces();
    relayout();
    publish();
}

// Keys ----------------------------------------------------------------------------------------------

const std::vector<ExposeManager::KeyStep>& ExposeManager::keySteps() {
    static const std::vector<KeyStep> steps{
        &ExposeManager::escapeClearsOrHides,
        &ExposeManager::overviewKeyHides,
        &ExposeManager::commandWCloses,
        &ExposeManager::commandMMinimizes,
        &ExposeManager::commandHHides,
        &ExposeManager::commandQQuits,
        &ExposeManager::commandEqualEntersFullScreen,
        &ExposeManager::commandMinusLeavesFullScreen,
        &ExposeManager::commandDigitMovesOnDisplay,
        &ExposeManager::optionDigitMovesToUserSpace,
        &ExposeManager::tabSteps,
        &ExposeManager::arrowsMove,
        &ExposeManager::deleteClearsFilter,
        &ExposeManager::spaceSelectsHovered,
        &ExposeManager::returnFocuses,
        &ExposeManager::clusterPlaces,
        &ExposeManager::commaCyclesGrouping,
        &ExposeManager::digitByContext,
        &ExposeManager::letterFilters,
    };
    return steps;
}

bool ExposeManager::handleKey(Key key, const platform::KeyEvent& event) {
    if (!visible_ || phase_ == ExposePhase::exiting) return false;
    KeyPress k{key, event.keyCode, modifiersFrom(event.flags), event.autorepeat};
    if (key != Key::escape && key != settings_.exposeKey && passesThrough(key, k.mods)) return false;
    if (drag_) {
        if (key == Key::escape && !k.repeat) {
            drag_->springBack = true;
            drag_.reset();
            publish();
        }
        return true;
    }
    if (confirm_) {
        const bool confirms =
            k.mods.command && ((key == Key::q && confirm_->kind == ExposeConfirmKind::quit) ||
                               (key == Key::w && confirm_->kind == ExposeConfirmKind::close));
        if (key == Key::escape) {
            confirm_.reset();
            publish();
            return true;
        }
        if (!confirms && !k.repeat) confirm_.reset();
    }
    for (KeyStep step : keySteps())
        if ((this->*step)(k)) break;
    publish();
    return true;
}

std::optional<std::uint32_t> ExposeManager::target() const {
    return selected_ ? selected_ : hovered_;
}

bool ExposeManager::escapeClearsOrHides(const KeyPress& k) {
    if (k.key != Key::escape) return false;
    if (k.repeat) return true;
    if (filterBundleID_) {
        filterBundleID_.reset();
        filterLetter_.reset();
        relayout();
    } else if (filterSpaceID_) {
        filterSpaceID_.reset();
        relayout();
    } else {
        hide(true);
    }
    return true;
}

bool ExposeManager::overviewKeyHides(const KeyPress& k) {
    if (k.key != settings_.exposeKey || !k.mods.none()) return false;
    if (!k.repeat) hide(true);
    return true;
}

bool ExposeManager::commandWCloses(const KeyPress& k) {
    if (!k.mods.command || k.key != Key::w) return false;
    destructive(ExposeConfirmKind::close);
    return true;
}

bool ExposeManager::commandQQuits(const KeyPress& k) {
    if (!k.mods.command || k.key != Key::q) return false;
    destructive(ExposeConfirmKind::quit);
    return true;
}

// Close and quit ask first when the setting says so: the first press shows what a second press will
// do; a second press on the same window while the question stands does it.
void ExposeManager::destructive(ExposeConfirmKind kind) {
    auto id = target();
    const ExposeWindow* w = id ? window(*id) : nullptr;
    if (!w) {
        env_.beep();
        return;
    }
    const bool confirmed = confirm_ && confirm_->kind == kind && confirm_->wid == w->id;
    if (settings_.confirmBlindDestructive && !confirmed) {
        confirm_ = ExposeConfirm{++confirmToken_, kind, w->id, w->bundleID, w->appName, w->title};
        Log::info("expose: confirm {} wid={}", kind == ExposeConfirmKind::close ? "close" : "quit", w->id);
        confirmTimer_.cancel();
        confirmTimer_ = ferrow::mainAsyncAfter(kConfirmMs, [this, token = confirmToken_] {
            if (!confirm_ || confirm_->id != token) return;
            confirm_.reset();
            publish();
        });
        return;
    }
    confirm_.reset();
    confirmTimer_.cancel();
    const ExposeWindow copy = *w;
    if (kind == ExposeConfirmKind::close)
        closeTarget(copy);
    else
        quitTarget(copy);
}

void ExposeManager::closeTarget(const ExposeWindow& w) {
    const bool ok = env_.closeWindow(w.id);
    Log::info("expose: close wid={} ok={}", w.id, ok);
    if (!ok) {
        showToast(w.id, "Couldn't close the window");
        return;
    }
    removeWindow(w.id);
    showToast(w.id, "Closed");
}

void ExposeManager::quitTarget(const ExposeWindow& w) {
    const bool ok = env_.quitApp(w.pid);
    Log::info("expose: quit pid={} bundle={} ok={}", w.pid, w.bundleID, ok);
    if (!ok) {
        showToast(w.id, w.appName + " refused to quit");
        return;
    }
    removeApp(w.pid);
    showToast(w.id, "Quit " + w.appName);
}

// A window that left takes its tile with it; the selection moves to the next tile in order.
void ExposeManager::removeWindow(std::uint32_t id) {
    auto pos = std::find(navOrder_.begin(), navOrder_.end(), id);
    std::optional<std::uint32_t> next;
    if (pos != navOrder_.end()) {
        if (pos + 1 != navOrder_.end())
            next = *(pos + 1);
        else if (pos != navOrder_.begin())
            next = *(pos - 1);
    }
    std::erase_if(flatWindows_, [&](const ExposeWindow& w) { return w.id == id; });
    for (auto& g : groups_)
        std::erase_if(g.windows, [&](const ExposeWindow& w) { return w.id == id; });
    std::erase_if(groups_, [](const ExposeGroup& g) { return g.windows.empty(); });
    if (selected_ == id) selected_ = next;
    if (hovered_ == id) hovered_.reset();
    // An app filter whose last window went would leave nothing on view: it goes too.
    if (filterBundleID_ && std::none_of(groups_.begin(), groups_.end(),
                                        [&](const ExposeGroup& g) { return g.id == *filterBundleID_; })) {
        filterBundleID_.reset();
        filterLetter_.reset();
    }
    relayout();
    if (!selected_ && !navOrder_.empty()) selected_ = navOrder_.front();
}

void ExposeManager::removeApp(std::int32_t pid) {
    std::vector<std::uint32_t> ids;
    for (const auto& w : flatWindows_)
        if (w.pid == pid) ids.push_back(w.id);
    for (auto id : ids)
        removeWindow(id);
}

void ExposeManager::showToast(std::uint32_t window, std::string text) {
    toast_ = ExposeToast{++toastToken_, window, std::move(text)};
    Log::info("expose: toast \"{}\"", toast_->text);
    toastTimer_.cancel();
    toastTimer_ = ferrow::mainAsyncAfter(kToastMs, [this, token = toastToken_] {
        if (!toast_ || toast_->id != token) return;
        toast_.reset();
        publish();
    });
}

bool ExposeManager::commandMMinimizes(const KeyPress& k) {
    if (!k.mods.command || k.key != Key::m) return false;
    auto id = target();
    if (auto* w = id ? mutableWindow(*id) : nullptr)
        toggleMinimized(*w);
    else
        env_.beep();
    return true;
}

void ExposeManager::toggleMinimized(ExposeWindow& w) {
    const bool minimize = !w.isMinimized;
    if (!env_.setMinimized(w.id, minimize)) {
        env_.beep();
        return;
    }
    w.isMinimized = minimize;
    for (auto& g : groups_)
        for (auto& gw : g.windows)
            if (gw.id == w.id) gw.isMinimized = minimize;
    const auto id = w.id;
    relayout();
    showToast(id, minimize ? "Minimized" : "Restored");
}

bool ExposeManager::commandHHides(const KeyPress& k) {
    if (!k.mods.command || k.key != Key::h) return false;
    auto id = target();
    if (const auto* w = id ? window(*id) : nullptr)
        toggleAppHidden(ExposeWindow(*w));
    else
        env_.beep();
    return true;
}

void ExposeManager::toggleAppHidden(const ExposeWindow& w) {
    const bool hide = !w.appHidden;
    if (!env_.setAppHidden(w.pid, hide)) {
        env_.beep();
        return;
    }
    for (auto& fw : flatWindows_)
        if (fw.pid == w.pid) fw.appHidden = hide;
    for (auto& g : groups_)
        if (g.pid == w.pid) {
            g.appHidden = hide;
            for (auto& gw : g.windows)
                gw.appHidden = hide;
        }
    relayout();
    showToast(w.id, hide ? "Hidden" : "Unhidden");
}

bool ExposeManager::commandEqualEntersFullScreen(const KeyPress& k) {
    if (!k.mods.command || k.key != Key::equal) return false;
    auto id = target();
    if (id && env_.setFullScreen(*id, true))
        showToast(*id, "Full Screen");
    else
        env_.beep();
    return true;
}

bool ExposeManager::commandMinusLeavesFullScreen(const KeyPress& k) {
    if (!k.mods.command || k.key != Key::minus) return false;
    auto id = target();
    if (id && env_.setFullScreen(*id, false))
        showToast(*id, "Exit Full Screen");
    else
        env_.beep();
    return true;
}

bool ExposeManager::commandDigitMovesOnDisplay(const KeyPress& k) {
    if (!k.mods.command || !isDigit1to9(k.key)) return false;
    auto id = target();
    const ExposeWindow* w = id ? window(*id) : nullptr;
    auto screen = w ? screenOf(*w) : std::nullopt;
    if (!w || !screen) {
        env_.beep();
        return true;
    }
    for (const auto& s : spaces_)
        if (s.displayUUID == screen->uuid && s.userIndex == digitOf(k.key)) {
            moveToSpace(w->id, s);
            return true;
        }
    env_.beep();
    return true;
}

bool ExposeManager::optionDigitMovesToUserSpace(const KeyPress& k) {
    if (!k.mods.option || k.mods.command || !isDigit1to9(k.key)) return false;
    auto id = target();
    int n = 0;
    for (const auto& s : spaces_) {
        if (s.isFullscreen) continue;
        if (++n == digitOf(k.key) && id) {
            moveToSpace(*id, s);
            return true;
        }
    }
    env_.beep();
    return true;
}

void ExposeManager::moveToSpace(std::uint32_t id, const ExposeSpaceInfo& space) {
    auto* w = mutableWindow(id);
    if (!w) return;
    if (w->spaceID == space.id) {
        showToast(id, fmt::format("Already on Space {}", space.userIndex));
        return;
    }
    if (auto error = env_.moveWindowToSpace(id, space.id)) {
        Log::info("expose: move wid={} to space={} failed: {}", id, space.id, *error);
        showToast(id, *error);
        return;
    }
    Log::info("expose: moved wid={} to space={}", id, space.id);
    w->spaceID = space.id;
    for (auto& g : groups_)
        for (auto& gw : g.windows)
            if (gw.id == id) gw.spaceID = space.id;
    relayout();
    showToast(id, fmt::format("Moved to Space {}", space.userIndex));
}

bool ExposeManager::tabSteps(const KeyPress& k) {
    if (k.key != Key::tab || navOrder_.empty()) return k.key == Key::tab;
    const int n = static_cast<int>(navOrder_.size());
    auto pos = selected_ ? std::find(navOrder_.begin(), navOrder_.end(), *selected_) : navOrder_.end();
    int i = pos == navOrder_.end() ? (k.mods.shift ? 0 : -1) : static_cast<int>(pos - navOrder_.begin());
    i = ((i + (k.mods.shift ? -1 : 1)) % n + n) % n;
    selected_ = navOrder_[static_cast<std::size_t>(i)];
    return true;
}

bool ExposeManager::arrowsMove(const KeyPress& k) {
    std::optional<Direction> d;
    if (k.key == Key::leftArrow) d = Direction::left;
    if (k.key == Key::rightArrow) d = Direction::right;
    if (k.key == Key::upArrow) d = Direction::up;
    if (k.key == Key::downArrow) d = Direction::down;
    if (!d) return false;
    const bool known =
        selected_ && std::find(navOrder_.begin(), navOrder_.end(), *selected_) != navOrder_.end();
    if (!known) {
        if (!navOrder_.empty()) selected_ = navOrder_.front();
        return true;
    }
    if (auto next = neighbour(*selected_, *d, navFrames_)) selected_ = *next;
    return true;
}

bool ExposeManager::deleteClearsFilter(const KeyPress& k) {
    if (k.key != Key::delete_) return false;
    if (k.repeat) return true;
    if (filterBundleID_) {
        filterBundleID_.reset();
        filterLetter_.reset();
    } else {
        filterSpaceID_.reset();
    }
    relayout();
    return true;
}

bool ExposeManager::spaceSelectsHovered(const KeyPress& k) {
    if (k.key != Key::space) return false;
    if (!k.repeat && !filterBundleID_ && hovered_) selected_ = hovered_;
    return true;
}

bool ExposeManager::returnFocuses(const KeyPress& k) {
    if (k.key != Key::return_ && k.key != Key::keypadEnter) return false;
    if (k.repeat) return true;
    if (auto id = target())
        focusAndHide(*id);
    else
        env_.beep();
    return true;
}

void ExposeManager::focusAndHide(std::uint32_t id) {
    hide(false);
    const bool ok = env_.focusWindow(id);
    Log::info("expose: focus wid={} ok={}", id, ok);
}

bool ExposeManager::clusterPlaces(const KeyPress& k) {
    if (!k.mods.none() && !(k.mods.shift && !k.mods.command)) return false;
    const auto role = clusterRole(k.keyCode, usesISOCluster(settings_.keyboardLayout, env_.keyboardIsISO()));
    if (!role) return false;
    // A cluster key that types a digit on this layout is a digit.
    if (auto typed = env_.keyForCode(k.keyCode); typed && *typed >= Key::zero && *typed <= Key::nine)
        return false;
    if (*role == ExposePlacementRole::pad) {
        pad();
        return true;
    }
    auto id = target();
    const ExposeWindow* w = id ? window(*id) : nullptr;
    auto screen = w ? screenOf(*w) : std::nullopt;
    const bool portrait = screen && screen->frame.height > screen->frame.width;
    if (auto position = positionFor(*role, portrait)) place(*position);
    return true;
}

void ExposeManager::place(stages::SemanticPosition position) {
    auto id = target();
    const ExposeWindow* w = id ? window(*id) : nullptr;
    if (!w) {
        env_.beep();
        return;
    }
    if (w->isFullscreen) {
        showToast(w->id, "Can't move a fullscreen window");
        return;
    }
    stages::SemanticPlacement placement;
    placement.position = position;
    if (auto screen = screenOf(*w)) placement.screen = screen->name;
    if (position == stages::SemanticPosition::center)
        placement.size = Size{w->bounds.width, w->bounds.height};
    const std::uint32_t wid = w->id;
    auto run = [this, wid, placement, position] {
        const bool ok = env_.placeWindow(wid, placement);
        Log::info("expose: place wid={} at {} ok={}", wid, stages::rawValue(position), ok);
        if (ok)
            showToast(wid, positionLabel(position));
        else
            env_.beep();
        publish();
    };
    // A window on a Space that isn't on screen is placed once its Space is.
    if (w->spaceID && !activeSpaceIDs_.count(*w->spaceID)) {
        env_.switchToSpace(*w->spaceID);
        placeTimer_.cancel();
        placeTimer_ = ferrow::mainAsyncAfter(kPlaceAfterSwitchMs, run);
        return;
    }
    run();
}

// Each press shrinks the window around its centre by a sixth of what is left of it.
void ExposeManager::pad() {
    auto id = target();
    ExposeWindow* w = id ? mutableWindow(*id) : nullptr;
    auto screen = w ? screenOf(*w) : std::nullopt;
    if (!w || !screen || w->bounds.isEmpty()) {
        env_.beep();
        return;
    }
    if (w->isFullscreen) {
        showToast(w->id, "Can't move a fullscreen window");
        return;
    }
    const Size size{w->bounds.width * 5 / 6, w->bounds.height * 5 / 6};
    const Rect frame{w->bounds.midX() - size.width / 2, w->bounds.midY() - size.height / 2, size.width,
                     size.height};
    if (!env_.setWindowFrame(w->id, frame)) {
        env_.beep();
        return;
    }
    w->bounds = frame;
    for (auto& g : groups_)
        for (auto& gw : g.windows)
            if (gw.id == w->id) gw.bounds = frame;
    showToast(w->id, fmt::format("{}% padding", paddingPercent(frame.width, screen->frame.width)));
}

bool ExposeManager::commaCyclesGrouping(const KeyPress& k) {
    if (k.key != Key::comma) return false;
    grouping_ = nextGrouping(grouping_);
    Log::info("expose: grouping {}", groupingName(grouping_));
    relayout();
    return true;
}

std::vector<const ExposeWindow*> ExposeManager::filteredWindows() const {
    std::vector<const ExposeWindow*> out;
    for (auto id : navOrder_)
        if (const auto* w = window(id)) out.push_back(w);
    return out;
}

bool ExposeManager::digitByContext(const KeyPress& k) {
    if (!isDigit1to9(k.key) || !k.mods.none()) return false;
    if (k.repeat) return true;
    const int n = digitOf(k.key);
    const bool anyFilter = filterBundleID_ || filterSpaceID_;
    if (grouping_ == ExposeGrouping::space && !anyFilter) {
        // Space n of the selected window's display (else the first display).
        const ExposeWindow* w = selected_ ? window(*selected_) : nullptr;
        auto screen = w ? screenOf(*w) : (screens_.empty() ? std::nullopt : std::optional(screens_.front()));
        for (const auto& s : spaces_)
            if (screen && s.displayUUID == screen->uuid && s.userIndex == n) {
                if (!activeSpaceIDs_.count(s.id)) env_.switchToSpace(s.id);
                filterSpaceID_ = s.id;
                relayout();
                if (!navOrder_.empty()) selected_ = navOrder_.front();
                return true;
            }
        env_.beep();
        return true;
    }
    if (anyFilter) {
        auto shown = filteredWindows();
        if (n <= static_cast<int>(shown.size()))
            focusAndHide(shown[static_cast<std::size_t>(n - 1)]->id);
        else
            env_.beep();
        return true;
    }
    if (settings_.multiSpace) {
        int seen = 0;
        const ExposeWindow* w = selected_ ? window(*selected_) : nullptr;
        auto screen = w ? screenOf(*w) : (screens_.empty() ? std::nullopt : std::optional(screens_.front()));
        for (const auto& s : spaces_)
            if (screen && s.displayUUID == screen->uuid && !s.isFullscreen && ++seen == n) {
                env_.switchToSpace(s.id);
                hide(true);
                return true;
            }
        env_.beep();
        return true;
    }
    // One Space mode: the digit is an app's key, as with the trigger held.
    auto bundle = env_.bundleForKey(std::string(lowQWERTYCharacter(k.key)));
    for (const auto& g : groups_)
        if (bundle && g.bundleID == *bundle && !g.windows.empty()) {
            selected_ = g.windows.front().id;
            focusAndHide(g.windows.front().id);
            return true;
        }
    env_.beep();
    return true;
}

bool ExposeManager::letterFilters(const KeyPress& k) {
    if (!isLetter(k.key) || !k.mods.none()) return false;
    if (k.repeat) return true;
    const std::string letter(lowQWERTYCharacter(k.key));
    for (const auto& g : groups_) {
        if (g.letter != letter) continue;
        if (filterBundleID_ == g.id) {
            // Again on the filtered app: the next of its windows.
            auto pos = std::find_if(g.windows.begin(), g.windows.end(),
                                    [&](const ExposeWindow& w) { return selected_ == w.id; });
            auto next = (pos == g.windows.end() || pos + 1 == g.windows.end()) ? g.windows.begin() : pos + 1;
            selected_ = next->id;
        } else {
            filterBundleID_ = g.id;
            filterLetter_ = letter;
            relayout();
            selected_ = navOrder_.empty() ? std::optional<std::uint32_t>() : navOrder_.front();
        }
        return true;
    }
    return true;
}

// Flings ---------------------------------------------------------------------------------------------

void ExposeManager::handleScroll(const ScrollEvent& e) {
    if (!visible_ || phase_ == ExposePhase::exiting || drag_) return;
    switch (e.phase) {
        case ScrollPhase::began:
            flingAccum_ = {};
            flingBarSpace_ = hoveredBarSpace_;
            flingWindow_ = flingBarSpace_ ? std::nullopt : target();
            flingGroup_ = hoveredGroup_;
            if (flingWindow_)
                if (const auto* w = window(*flingWindow_)) flingGroup_ = w->bundleID;
            return;
        case ScrollPhase::changed: {
            const double sign = e.invertedFromDevice ? 1 : -1;
            flingAccum_.x += e.deltaX * sign;
            flingAccum_.y += e.deltaY * sign;
            return;
        }
        case ScrollPhase::cancelled:
            flingAccum_ = {};
            return;
        case ScrollPhase::ended:
            break;
    }
    const Fling fling = evaluateFling(flingAccum_.x, flingAccum_.y);
    flingAccum_ = {};
    if (fling == Fling::none) return;
    Log::info("expose: fling {}", fling == Fling::up     ? "up"
                                  : fling == Fling::down ? "down"
                                  : fling == Fling::left ? "left"
                                                         : "right");
    const bool horizontal = fling == Fling::left || fling == Fling::right;
    if (flingBarSpace_) {
        // Over the Spaces bar, a sideways fling goes to the next or the previous Space.
        if (horizontal) switchAdjacentSpace(fling == Fling::left ? 1 : -1, *flingBarSpace_);
    } else if (flingWindow_ && window(*flingWindow_)) {
        const auto saved = selected_;
        selected_ = flingWindow_;
        if (fling == Fling::up)
            place(stages::SemanticPosition::maximized);
        else if (fling == Fling::down)
            toggleMinimized(*mutableWindow(*flingWindow_));
        else
            place(fling == Fling::left ? stages::SemanticPosition::leftHalf
                                       : stages::SemanticPosition::rightHalf);
        if (window(*flingWindow_)) selected_ = saved ? saved : flingWindow_;
    } else if (flingGroup_) {
        for (const auto& g : groups_)
            if (g.id == *flingGroup_ && !g.windows.empty()) {
                const ExposeWindow first = g.windows.front();
                if (fling != Fling::down) selected_ = first.id;
                if (fling != Fling::up && !first.appHidden) toggleAppHidden(first);
                break;
            }
    }
    publish();
}

void ExposeManager::switchAdjacentSpace(int delta, std::uint64_t fromBarSpace) {
    std::string display;
    for (const auto& s : spaces_)
        if (s.id == fromBarSpace) display = s.displayUUID;
    std::vector<const ExposeSpaceInfo*> onDisplay;
    int active = -1;
    for (const auto& s : spaces_)
        if (s.displayUUID == display) {
            if (s.isActive) active = static_cast<int>(onDisplay.size());
            onDisplay.push_back(&s);
        }
    const int to = active + delta;
    if (active < 0 || to < 0 || to >= static_cast<int>(onDisplay.size())) {
        env_.beep();
        return;
    }
    const auto* space = onDisplay[static_cast<std::size_t>(to)];
    Log::info("expose: switch to space={}", space->id);
    if (!env_.switchToSpace(space->id)) {
        env_.beep();
        return;
    }
    if (filterSpaceID_) filterSpaceID_ = space->id;
    spacesChanged();
}

// Pointer: hover, the hot corner, drags ----------------------------------------------------------------

void ExposeManager::pointerMoved(Point p) {
    if (settings_.hotCorner != HotCorner::off && !drag_) {
        auto screen = screenAt(p);
        if (!screen) {
            auto all = env_.screens();
            for (const auto& s : all)
                if (s.frame.contains(p)) screen = s;
        }
        if (screen && hotCorner_.move(p, cornerPoint(settings_.hotCorner, screen->frame))) {
            Log::info("expose: hot corner");
            toggle();
            return;
        }
    }
    if (!visible_ || phase_ == ExposePhase::exiting) return;
    if (drag_) {
        dragMoved(p);
        return;
    }
    auto screen = screenAt(p);
    std::optional<std::uint32_t> hovered;
    std::optional<std::string> group;
    std::optional<std::uint64_t> bar;
    if (screen)
        if (const auto* l = layout(screen->uuid)) {
            const Point local{p.x - screen->frame.x, p.y - screen->frame.y};
            for (const auto& t : l->tiles)
                if (t.frame.contains(local)) hovered = t.id;
            for (const auto& c : l->cards)
                if (c.headerFrame.contains(local)) group = c.key;
            for (const auto& cell : l->spacesBar)
                if (cell.frame.contains(local)) bar = cell.id;
        }
    if (hovered == hovered_ && group == hoveredGroup_ && bar == hoveredBarSpace_) return;
    hovered_ = hovered;
    hoveredGroup_ = group;
    hoveredBarSpace_ = bar;
    publish();
}

bool ExposeManager::beginDrag(std::uint32_t id, Point p) {
    if (!visible_ || phase_ == ExposePhase::exiting) return false;
    const ExposeWindow* w = window(id);
    auto screen = w ? screenOf(*w) : std::nullopt;
    const auto* l = screen ? layout(screen->uuid) : nullptr;
    auto tile = l ? l->tileFrame(id) : std::nullopt;
    if (!tile) return false;
    const Rect global = offset(*tile, screen->frame);
    drag_ = ExposeDrag{id, global, screen->uuid, p, {p.x - global.x, p.y - global.y}, false};
    confirm_.reset();
    publish();
    return true;
}

void ExposeManager::dragMoved(Point p) {
    if (!drag_) return;
    drag_->cursorGlobal = p;
    publish();
}

// A drop on a Space (a bar cell or a Space's section) moves the window there; on another screen, it
// moves to that screen; anywhere else the tile springs back.
void ExposeManager::endDrag(Point p) {
    if (!drag_) return;
    const ExposeDrag d = *drag_;
    drag_.reset();
    dragEndedAt_ = ferrow::MainQueue::shared().now();
    auto screen = screenAt(p);
    const auto* l = screen ? layout(screen->uuid) : nullptr;
    std::optional<std::uint64_t> space;
    if (l) {
        const Point local{p.x - screen->frame.x, p.y - screen->frame.y};
        for (const auto& cell : l->spacesBar)
            if (cell.frame.contains(local)) space = cell.id;
        for (const auto& region : l->spaceRegions)
            if (!space && region.frame.contains(local)) space = region.spaceID;
    }
    if (space) {
        for (const auto& s : spaces_)
            if (s.id == *space) moveToSpace(d.wid, s);
        publish();
        return;
    }
    auto* w = mutableWindow(d.wid);
    if (screen && w && screen->uuid != d.sourceScreenKey) {
        // The window keeps its place relative to its screen's top left, held inside the new screen.
        auto from = screenOf(*w);
        Rect frame = w->bounds;
        if (from) {
            frame.x = screen->frame.x + (w->bounds.x - from->frame.x);
            frame.y = screen->frame.y + (w->bounds.y - from->frame.y);
        }
        frame.width = std::min(frame.width, screen->frame.width);
        frame.height = std::min(frame.height, screen->frame.height);
        frame.x = std::clamp(frame.x, screen->frame.x, screen->frame.maxX() - frame.width);
        frame.y = std::clamp(frame.y, screen->frame.y, screen->frame.maxY() - frame.height);
        if (env_.setWindowFrame(d.wid, frame)) {
            Log::info("expose: moved wid={} to screen {}", d.wid, screen->name);
            w->bounds = frame;
            // The window now belongs to the Space on show on its new screen.
            for (const auto& s : spaces_)
                if (s.displayUUID == screen->uuid && s.isActive) w->spaceID = s.id;
            for (auto& g : groups_)
                for (auto& gw : g.windows)
                    if (gw.id == w->id) gw = *w;
            relayout();
            showToast(d.wid, "Moved to " + screen->name);
            publish();
            return;
        }
    }
    drag_.reset();
    Log::info("expose: drag of wid={} springs back", d.wid);
    publish();
}

// The mouse on the panels ---------------------------------------------------------------------------

std::optional<std::uint32_t> ExposeManager::tileAt(Point p) const {
    auto screen = screenAt(p);
    const auto* l = screen ? layout(screen->uuid) : nullptr;
    if (!l) return std::nullopt;
    const Point local{p.x - screen->frame.x, p.y - screen->frame.y};
    // The last tile drawn is the one on top.
    for (auto t = l->tiles.rbegin(); t != l->tiles.rend(); ++t)
        if (t->frame.contains(local)) return t->id;
    return std::nullopt;
}

std::optional<std::uint64_t> ExposeManager::barCellAt(Point p) const {
    auto screen = screenAt(p);
    const auto* l = screen ? layout(screen->uuid) : nullptr;
    if (!l) return std::nullopt;
    const Point local{p.x - screen->frame.x, p.y - screen->frame.y};
    for (const auto& cell : l->spacesBar)
        if (cell.frame.contains(local)) return cell.id;
    return std::nullopt;
}

void ExposeManager::mouseDown(Point p) {
    if (!visible_ || phase_ == ExposePhase::exiting || drag_) return;
    press_ = Press{p, tileAt(p)};
}

void ExposeManager::mouseDragged(Point p) {
    if (drag_) {
        dragMoved(p);
        return;
    }
    if (!press_ || !press_->tile) return;
    if (std::hypot(p.x - press_->at.x, p.y - press_->at.y) < kDragStartDistance) return;
    const std::uint32_t id = *press_->tile;
    const Point from = press_->at;
    press_.reset();
    if (beginDrag(id, from)) dragMoved(p);
}

void ExposeManager::mouseUp(Point p) {
    if (drag_) {
        press_.reset();
        endDrag(p);
        return;
    }
    if (!press_) return;
    const Press press = *press_;
    press_.reset();
    if (!visible_ || phase_ == ExposePhase::exiting) return;
    // The release of a drag that just ended is not a click.
    if (dragEndedAt_ && ferrow::MainQueue::shared().now() - *dragEndedAt_ < ferrow::ms(kDragClickGuardMs))
        return;
    if (std::hypot(p.x - press.at.x, p.y - press.at.y) >= kDragStartDistance) return;
    click(press.at);
}

void ExposeManager::click(Point p) {
    if (auto id = tileAt(p)) {
        Log::info("expose: click wid={}", *id);
        selected_ = *id;
        focusAndHide(*id);
        return;
    }
    if (auto space = barCellAt(p)) {
        if (activeSpaceIDs_.count(*space)) return;
        Log::info("expose: switch to space={}", *space);
        if (!env_.switchToSpace(*space)) {
            env_.beep();
            return;
        }
        if (filterSpaceID_) filterSpaceID_ = *space;
        spacesChanged();
        return;
    }
    // A card, a section or its header takes the click without acting; only the bare backdrop closes
    // the overview, like Escape.
    if (auto screen = screenAt(p))
        if (const auto* l = layout(screen->uuid)) {
            const Point local{p.x - screen->frame.x, p.y - screen->frame.y};
            for (const auto& c : l->cards)
                if (c.frame.contains(local)) return;
            for (const auto& h : l->sectionHeaders)
                if (h.frame.contains(local)) return;
            for (const auto& r : l->spaceRegions)
                if (r.frame.contains(local)) return;
        }
    hide(true);
}

}  // namespace zelk::expose
