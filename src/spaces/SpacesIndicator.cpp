#include "spaces/SpacesIndicator.h"

#include <fmt/format.h>

#include "config/SettingsCatalogue.h"
#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::spaces {

using ferrow::Log;

namespace {

constexpr int kAllSpaces = 7;

ferrow::Nanos now() {
    return ferrow::MainQueue::shared().now();
}

// The Space most of a stage's windows are on; the first window's Space on a tie.
std::optional<std::uint64_t> commonSpace(platform::WindowServer& server,
                                         const std::vector<std::uint32_t>& windows) {
    std::map<std::uint64_t, int> counts;
    std::optional<std::uint64_t> best;
    for (auto id : windows) {
        auto spaces = server.spacesForWindows(kAllSpaces, {id});
        if (spaces.empty()) continue;
        int n = ++counts[spaces.front()];
        if (!best || n > counts[*best]) best = spaces.front();
    }
    return best;
}

}  // namespace

SpacesIndicator::SpacesIndicator(SpacesIndicatorEnvironment env) : env_(std::move(env)) {
    if (!env_.settings) return;
    // Settings subscriptions live as long as the strip; the system's only while it is on.
    for (const char* key : {"showSpacesIndicator", "spaceMode"})
        configObservers_.push_back(env_.settings->observe(key, [this] { setEnabledFromSettings(); }));
    for (const char* key :
         {"showSpacesIndicatorLetters", "hideZelkIconInSpacesIndicator", "spacesIndicatorActiveOnly"})
        configObservers_.push_back(env_.settings->observe(key, [this] { refresh(true); }));
}

SpacesIndicator::~SpacesIndicator() {
    configObservers_.clear();
    refreshObservers_.clear();
    refreshTimer_.reset();
    eventDebounce_.cancel();
}

void SpacesIndicator::setEnabledFromSettings() {
    bool on = env_.settings && env_.settings->get(keys::showSpacesIndicator) &&
              env_.settings->get(keys::spaceMode) == SpaceMode::multi;
    if (on == enabled_) return;
    enabled_ = on;
    Log::info("SpacesIndicator: {}", on ? "enabled" : "disabled");
    if (on)
        start();
    else
        stop();
}

void SpacesIndicator::start() {
    if (env_.workspace)
        refreshObservers_.push_back(env_.workspace->observe([this](const platform::WorkspaceEvent& e) {
            using K = platform::WorkspaceEventKind;
            if (e.kind == K::activeSpaceDidChange) {
                clearPrediction();
            } else if (e.kind == K::didActivate || e.kind == K::screenParametersChanged) {
                eventDebounce_.call([this] { refresh(false); });
            }
        }));
    if (env_.observeStages) refreshObservers_.push_back(env_.observeStages([this] { recomputeStageMap(); }));
    // What changes without any event (a Space added in Mission Control) shows within one interval.
    refreshTimer_ =
        std::make_unique<ferrow::Repeater>("SpacesIndicator refresh", kRefreshInterval, -1, [this] {
            if (env_.displayUnderPointer) checkCursorDisplay(env_.displayUnderPointer());
            refresh(false);
        });
    recomputeStageMap();
    refresh(true);
}

void SpacesIndicator::stop() {
    refreshObservers_.clear();
    refreshTimer_.reset();
    eventDebounce_.cancel();
    lastSignature_.clear();
    cachedStageKeyBySpace_.clear();
    resolvedWindowByItemID_.clear();
    ++stageMapGeneration_;
    isRecomputingStageMap_ = false;
    predictedActiveSpaceID_.reset();
    predictedActiveSpaceExpiry_.reset();
    lastCursorDisplayUUID_.reset();
    model_.set(SpacesIndicatorModel{});  // the plain icon
}

void SpacesIndicator::predictActiveSpace(std::uint64_t space) {
    if (!enabled_) return;
    predictedActiveSpaceID_ = space;
    predictedActiveSpaceExpiry_ = now() + kPredictionTTL;
    refresh(true);
}

void SpacesIndicator::predictActiveSpaceAt(int index, const std::string& display) {
    if (!enabled_ || !env_.server || index < 0) return;
    auto displays = env_.server->managedDisplaySpaces();
    if (!displays) return;
    for (const auto& d : *displays) {
        if (d.displayIdentifier != display && !(display.empty() && &d == &displays->front())) continue;
        if (index < static_cast<int>(d.spaces.size())) predictActiveSpace(d.spaces[std::size_t(index)].id64);
        return;
    }
}

void SpacesIndicator::checkCursorDisplay(const std::optional<std::string>& display) {
    if (!display || display == lastCursorDisplayUUID_) return;
    lastCursorDisplayUUID_ = display;
    refresh(false);
}

void SpacesIndicator::clearPrediction() {
    predictedActiveSpaceID_.reset();
    predictedActiveSpaceExpiry_.reset();
    refresh(false);
}

IndicatorOptions SpacesIndicator::options() const {
    IndicatorOptions o;
    if (!env_.settings) return o;
    o.letters = env_.settings->get(keys::showSpacesIndicatorLetters);
    o.activeOnly = env_.settings->get(keys::spacesIndicatorActiveOnly);
    o.hideIcon = env_.settings->get(keys::hideZelkIconInSpacesIndicator);
    return o;
}

std::map<std::string, std::uint64_t> SpacesIndicator::activeSpaces(
    const std::vector<platform::DisplaySpaces>& displays) {
    std::map<std::string, std::uint64_t> active;
    for (const auto& d : displays)
        active[d.displayIdentifier] = d.currentSpace.id64;
    if (!predictedActiveSpaceID_) return active;
    if (predictedActiveSpaceExpiry_ && *predictedActiveSpaceExpiry_ > now()) {
        // The prediction stands for the display that holds the predicted Space.
        for (const auto& d : displays)
            for (const auto& s : d.spaces)
                if (s.id64 == *predictedActiveSpaceID_) active[d.displayIdentifier] = s.id64;
        return active;
    }
    predictedActiveSpaceID_.reset();
    predictedActiveSpaceExpiry_.reset();
    return active;
}

std::string SpacesIndicator::fullScreenKey(std::uint64_t space) {
    if (!env_.server || !env_.keyForProcess) return "";
    // The frontmost window on the Space names the app that fills it.
    auto windows = env_.server->windowsOnSpace(space, 0);
    if (windows.empty()) return "";
    auto connection = env_.server->windowOwner(windows.front());
    if (!connection) return "";
    auto pid = env_.server->connectionPID(*connection);
    return pid ? env_.keyForProcess(*pid) : "";
}

void SpacesIndicator::refresh(bool force) {
    if (!enabled_ || !env_.server || isRefreshing_) return;
    isRefreshing_ = true;
    IndicatorInputs in;
    if (auto displays = env_.server->managedDisplaySpaces()) in.displays = std::move(*displays);
    in.activeByDisplay = activeSpaces(in.displays);
    in.stageKeyBySpace = cachedStageKeyBySpace_;
    in.fullScreenKey = [this](std::uint64_t space) { return fullScreenKey(space); };
    IndicatorOptions opts = options();
    auto cells = buildIndicatorCells(in, opts);
    // The icon's presence is part of what is drawn, so it is part of the signature.
    std::string signature = (opts.hideIcon ? "-" : "+") + indicatorSignature(cells);
    if (force || signature != lastSignature_) {
        lastSignature_ = signature;
        render(std::move(cells));
    }
    isRefreshing_ = false;
}

void SpacesIndicator::render(std::vector<IndicatorCell> cells) {
    ++renderCount_;
    SpacesIndicatorModel next;
    next.enabled = true;
    next.showIcon = !options().hideIcon;
    Log::debug("SpacesIndicator: render {}", describeIndicator(cells));
    next.cells = std::move(cells);
    model_.set(std::move(next));
}

std::optional<std::uint32_t> SpacesIndicator::itemWindow(const IndicatorStage& stage,
                                                         const std::string& itemID) {
    auto cached = resolvedWindowByItemID_.find(itemID);
    if (cached != resolvedWindowByItemID_.end() && cached->second.expiry > now())
        return cached->second.windowID;
    if (!env_.resolveItem) return std::nullopt;
    auto window = env_.resolveItem(stage.key, itemID);
    if (window)
        resolvedWindowByItemID_[itemID] = {*window, now() + kItemWindowTTL};
    else
        resolvedWindowByItemID_.erase(itemID);
    return window;
}

std::map<std::uint64_t, std::string> SpacesIndicator::computeStageMap() {
    std::map<std::uint64_t, std::string> map;
    auto stages = env_.stages ? env_.stages() : std::vector<IndicatorStage>{};
    // A stage assigned to a Space claims it before any stage whose windows merely stand there.
    for (const auto& stage : stages)
        if (stage.spaceID && !map.count(*stage.spaceID)) map[*stage.spaceID] = stage.key;
    for (const auto& stage : stages) {
        if (stage.spaceID || !env_.server) continue;
        std::vector<std::uint32_t> windows;
        for (const auto& item : stage.itemIDs)
            if (auto w = itemWindow(stage, item)) windows.push_back(*w);
        if (auto space = commonSpace(*env_.server, windows); space && !map.count(*space))
            map[*space] = stage.key;
    }
    return map;
}

void SpacesIndicator::recomputeStageMap() {
    if (!enabled_ || isRecomputingStageMap_) return;
    bool noStages = !env_.stages || env_.stages().empty();
    if (noStages) {
        // The last stage went: its letters go with it.
        if (!cachedStageKeyBySpace_.empty()) {
            cachedStageKeyBySpace_.clear();
            refresh(true);
        }
        return;
    }
    isRecomputingStageMap_ = true;
    const std::uint64_t generation = ++stageMapGeneration_;
    // Off the refresh's path: the map lands on a later turn of the queue; a stop in between drops it.
    ferrow::mainAsync([this, alive = std::weak_ptr<bool>(alive_), generation] {
        if (alive.expired() || generation != stageMapGeneration_) return;
        auto map = computeStageMap();
        isRecomputingStageMap_ = false;
        if (map == cachedStageKeyBySpace_) return;
        cachedStageKeyBySpace_ = std::move(map);
        refresh(true);
    });
}

}  // namespace zelk::spaces
