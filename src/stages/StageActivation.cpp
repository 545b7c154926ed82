#include "stages/StageActivation.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <coroutine>

#include "stages/BundleTables.h"
#include "support/Log.h"

namespace zelk::stages {

using ferrow::Log;
using windows::ManagedWindow;

namespace {

constexpr std::int64_t kActivatingGraceMs = 12'000;
constexpr std::int64_t kNewWindowTimeoutMs = 5'000;
constexpr std::int64_t kOtherSpaceToastMs = 4'000;
constexpr std::int64_t kHydrationDelaysMs[] = {1'000, 3'000, 6'000, 10'000};

bool isFullscreenPlacement(const StageItem& item) {
    if (!item.windowPlacement) return false;
    auto* semantic = std::get_if<SemanticPlacement>(&*item.windowPlacement);
    return semantic && semantic->position == SemanticPosition::fullscreen;
}

std::string appLabel(const StageItem& item) {
    return item.app ? item.app->name() : item.bundleID();
}

std::string spaceLabel(const std::optional<std::uint64_t>& space) {
    return space ? std::to_string(*space) : "nil";
}

// Waits for the first new window of an app, resumed on the main queue.
struct NewWindowWait {
    struct State {
        bool done = false;
        std::optional<std::uint32_t> result;
        std::coroutine_handle<> waiter;
    };
    std::shared_ptr<State> state = std::make_shared<State>();

    std::function<void(std::optional<std::uint32_t>)> callback() {
        return [state = state](std::optional<std::uint32_t> result) {
            state->done = true;
            state->result = result;
            if (auto h = std::exchange(state->waiter, nullptr)) ferrow::mainAsync([h] { h.resume(); });
        };
    }
    bool await_ready() const noexcept { return state->done; }
    void await_suspend(std::coroutine_handle<> h) { state->waiter = h; }
    std::optional<std::uint32_t> await_resume() const { return state->result; }
};

// Item ids and windows as log lines write them.
std::string resolvedList(const Stage& stage) {
    std::vector<std::string> ids;
    for (const auto& item : stage.items)
        if (item.windowID) ids.push_back(std::to_string(*item.windowID));
    return fmt::format("{}", fmt::join(ids, ", "));
}

bool sameStored(const Stage& a, const Stage& b) {
    if (a.key != b.key || a.name != b.name || a.spaceID != b.spaceID || a.items.size() != b.items.size())
        return false;
    for (std::size_t i = 0; i < a.items.size(); ++i)
        if (toJson(a.items[i]) != toJson(b.items[i])) return false;
    return true;
}

}  // namespace

StageActivator::StageActivator(ActivationEnvironment env) : env_(std::move(env)) {}

StageActivator::~StageActivator() {
    *alive_ = false;
    cancelHydration();
    pendingFinish_.cancel();
}

std::optional<ManagedWindow> StageActivator::tracked(std::uint32_t windowID) const {
    for (const auto& w : env_.windows())
        if (w.id == windowID) return w;
    return std::nullopt;
}

std::optional<platform::RunningApp> StageActivator::runningApp(const std::string& bundleID) const {
    for (const auto& app : env_.platform.workspace->runningApplications())
        if (app.bundleID == bundleID && !app.terminated) return app;
    return std::nullopt;
}

// ---- activateStage ------------------------------------------------------------------------------

void StageActivator::activateStage(const std::string& key) {
    const Stage* found = env_.store->stage(key);
    if (!found) return;
    Stage stage = *found;
    if (env_.clearDeliberateFocus) env_.clearDeliberateFocus();
    activatingKey_ = key;
    activatingUntil_ = ferrow::now() + ferrow::ms(kActivatingGraceMs);
    if (env_.spaceMode() == SpaceMode::multi) {
        activateStageInMultiSpace(std::move(stage), key);
        return;
    }
    activateInSingleSpace(std::move(stage), key);
}

// A stage shows on one Space: one of its windows elsewhere stops the activation with a toast.
bool StageActivator::windowsOnAnotherSpace(const Stage& stage) {
    std::uint64_t active = env_.activeSpace();
    for (const auto& item : stage.items) {
        auto window = env_.resolve(item);
        if (!window) continue;
        auto space = env_.liveSpaceID(window->id);
        if (!space) space = window->spaceID;
        if (space && *space != active) {
            if (env_.toast)
                env_.toast(fmt::format("Stage **{}** has windows on another Space.", stage.name),
                           "Switch to that Space first, or enable multi-space mode in Settings.",
                           kOtherSpaceToastMs);
            Log::info("activateStage: stage '{}' has window {} on Space {}, active {}; stopped", stage.name,
                      window->id, *space, active);
            return true;
        }
    }
    return false;
}

std::vector<std::string> StageActivator::unhideAndResolve(Stage& stage, std::vector<Resolved>& resolved,
                                                          std::vector<StageItem>& missing) {
    std::vector<std::string> runningMissing;
    for (std::size_t i = 0; i < stage.items.size(); ++i) {
        auto& item = stage.items[i];
        item.windowID.reset();
        auto app = runningApp(item.bundleID());
        if (!app) {
            missing.push_back(item);
            continue;
        }
        if (app->hidden) env_.platform.workspace->unhide(app->pid);
        auto window = env_.resolve(item);
        if (!window) {
            missing.push_back(item);
            runningMissing.push_back(item.bundleID());
            continue;
        }
        item.windowID = window->id;
        resolved.push_back({*window, i});
    }
    return runningMissing;
}

// Windows rise in reverse order so that the first item ends up in front.
void StageActivator::focusInOrder(const Stage& stage, const std::vector<Resolved>& resolved) {
    std::vector<Resolved> order;
    for (const auto& r : resolved)
        if (!isFullscreenPlacement(stage.items[r.index])) order.push_back(r);
    if (order.empty() && !resolved.empty()) {
        auto remembered = lastFocused_.find(stage.key);
        const Resolved* pick = &resolved.front();
        if (remembered != lastFocused_.end())
            for (const auto& r : resolved)
                if (r.window.id == remembered->second) pick = &r;
        order.push_back(*pick);
    }
    if (order.empty()) {
        if (!stage.items.empty())
            if (auto app = runningApp(stage.items.front().bundleID())) env_.forceActivate(*app);
        return;
    }
    for (std::size_t i = order.size(); i-- > 1;)
        env_.focus(order[i].window);
    env_.focus(order.front().window);
}

void StageActivator::hideOtherApps(const Stage& stage) {
    auto bundles = bundlesOf(stage);
    auto own = env_.platform.workspace->ownBundleID();
    for (const auto& app : env_.platform.workspace->runningApplications()) {
        if (app.hidden || app.terminated || app.activationPolicy != platform::ActivationPolicy::regular)
            continue;
        if (bundles.contains(app.bundleID) || app.bundleID == own) continue;
        env_.platform.workspace->hide(app.pid);
    }
}

void StageActivator::stashOtherWindowsOfStageApps(const Stage& stage, const std::vector<Resolved>& resolved) {
    auto bundles = bundlesOf(stage);
    std::set<std::uint32_t> keep;
    for (const auto& r : resolved)
        keep.insert(r.window.id);
    for (const auto& w : env_.windows())
        if (!keep.contains(w.id) && !w.isMinimized && bundles.contains(w.bundleIdentifier))
            if (env_.stash->moveWindowOffScreen(w)) parked_.insert(w.id);
}

void StageActivator::markActive(const Stage& stage, const std::string& key) {
    env_.store->setActiveStageBundleIDs(bundlesOf(stage));
    env_.store->setActiveStage(key);
}

void StageActivator::activateInSingleSpace(Stage stage, const std::string& key) {
    if (windowsOnAnotherSpace(stage)) return;
    env_.store->setActiveStageBundleIDs(bundlesOf(stage));
    env_.stash->restoreAllOffScreenWindows();
    parked_.clear();
    std::vector<Resolved> resolved;
    std::vector<StageItem> missing;
    auto runningMissing = unhideAndResolve(stage, resolved, missing);
    Log::info("activateStage: stage '{}' resolved={} missing={}", stage.name, resolved.size(),
              missing.size());
    if (!missing.empty() && env_.reopenClosedItems()) {
        openStageItems(missing, false, std::nullopt);
        for (const auto& bundle : runningMissing)
            if (auto app = runningApp(bundle)) env_.platform.workspace->activate(app->pid, false);
    }
    env_.store->putStage(stage);
    focusInOrder(stage, resolved);
    hideOtherApps(stage);
    stashOtherWindowsOfStageApps(stage, resolved);
    markActive(stage, key);
    scheduleHydration(key);
}

// ---- the multi-Space path -------------------------------------------------------------------------

std::optional<std::uint64_t> StageActivator::resolveAndVote(Stage& stage, std::uint64_t active) {
    std::vector<std::pair<std::uint64_t, int>> votes;  // in the order Spaces were first seen
    for (std::size_t i = 0; i < stage.items.size(); ++i) {
        auto& item = stage.items[i];
        item.windowID.reset();
        if (!runningApp(item.bundleID())) {
            Log::info("  resolve item[{}] {}: app not running", i, appLabel(item));
            continue;
        }
        auto window = env_.resolve(item);
        if (!window) {
            Log::info("  resolve item[{}] {}: no matching window", i, appLabel(item));
            continue;
        }
        item.windowID = window->id;
        std::uint64_t space = env_.liveSpaceID(window->id).value_or(window->spaceID.value_or(active));
        auto it = std::find_if(votes.begin(), votes.end(), [&](auto& v) { return v.first == space; });
        if (it == votes.end())
            votes.push_back({space, 1});
        else
            ++it->second;
        Log::info("  resolve item[{}] {}: {} on {}", i, appLabel(item), window->id, space);
    }
    std::optional<std::pair<std::uint64_t, int>> best;
    for (const auto& v : votes)
        if (!best || v.second > best->second) best = v;
    if (!best) return std::nullopt;
    return best->first;
}

// A Space no other program's window and no other stage holds; nothing when none is free.
std::optional<std::uint64_t> StageActivator::claimFreeSpace(Stage& stage, std::uint64_t active,
                                                            const std::string& key, bool& createNew) {
    createNew = false;
    auto occupied = env_.occupiedSpaces();
    std::set<std::uint64_t> claimed;
    for (const auto& other : env_.store->stages())
        if (other.key != key && other.spaceID) claimed.insert(*other.spaceID);
    auto isFree = [&](std::uint64_t s) { return !occupied.contains(s) && !claimed.contains(s); };
    auto userSpaces = env_.userSpaces();
    std::string reason;
    if (!stage.spaceID) {
        reason = "no-captured";
    } else if (std::find(userSpaces.begin(), userSpaces.end(), *stage.spaceID) == userSpaces.end()) {
        reason = "captured-gone";
    } else if (isFree(*stage.spaceID)) {
        Log::info("activate(multi) target: captured {} (still empty)", *stage.spaceID);
        return stage.spaceID;
    } else {
        reason = "captured-not-empty";
    }
    for (auto space : userSpaces) {
        if (space == active || !isFree(space)) continue;
        stage.spaceID = space;
        Log::info("activate(multi) target: empty-claim {} (reason: {})", space, reason);
        return space;
    }
    Log::info("activate(multi) target: create-new Space (reason: {})", reason);
    createNew = true;
    return std::nullopt;
}

void StageActivator::activateStageInMultiSpace(Stage stage, const std::string& key) {
    const Stage passedIn = stage;
    std::uint64_t active = env_.activeSpace();
    Log::info("activate(multi) \u2500\u2500 stage '{}' ({} items) \u2500\u2500 captured {}, active {}",
              stage.name, stage.items.size(), spaceLabel(stage.spaceID), active);
    for (std::size_t i = 0; i < stage.items.size(); ++i)
        Log::info("  item[{}] {} '{}' spec={}", i, appLabel(stage.items[i]), stage.items[i].windowTitle,
                  describe(stage.items[i].windowSpec));

    auto home = resolveAndVote(stage, active);
    bool allResolved = !stage.items.empty();
    for (const auto& item : stage.items)
        allResolved = allResolved && item.windowID.has_value();

    std::uint64_t target = active;
    if (home) {
        if (stage.spaceID != home) {
            Log::info("activate(multi) target: stage-home {}, self-heal (was {})", *home,
                      spaceLabel(stage.spaceID));
            stage.spaceID = home;
        } else {
            Log::info("activate(multi) target: stage-home {}", *home);
        }
        target = *home;
        auto focused = env_.focusedWindow();
        bool focusedInStage = false;
        if (focused)
            for (const auto& item : stage.items)
                focusedInStage = focusedInStage || item.windowID == focused->id;
        if (*home == active && focusedInStage) {
            Log::info("activate(multi) fast-path: {} already focused on home, skipping switch/focus/write",
                      focused->id);
            if (!sameStored(stage, passedIn)) env_.store->putStage(stage);
            markActive(stage, key);
            if (!allResolved)
                scheduleHydration(key);
            else
                Log::info("activate(multi) fast-path: skip hydration, stage already open");
            return;
        }
    } else {
        bool createNew = false;
        auto claimed = claimFreeSpace(stage, active, key, createNew);
        if (createNew) {
            if (!env_.createSpace) {
                Log::info("activateStageInMultiSpace: createNewSpaceViaMissionControl returned no spaceID");
                return;
            }
            // The Space under way is the stage's: a second one would be left empty.
            if (!makingSpaceFor_.insert(key).second) {
                Log::info(
                    "activateStageInMultiSpace: a Space is already being made for stage '{}', not "
                    "making another",
                    stage.name);
                return;
            }
            std::weak_ptr<bool> alive = alive_;
            env_.createSpace([this, alive, key](std::optional<std::uint64_t> space) {
                if (alive.expired()) return;
                makingSpaceFor_.erase(key);
                if (!space) {
                    Log::info(
                        "activateStageInMultiSpace: createNewSpaceViaMissionControl returned no spaceID");
                    return;
                }
                const Stage* current = env_.store->stage(key);
                if (!current) return;
                Stage bound = *current;
                Log::info("activate(multi) write[new-space cb]: stage '{}' bound to {}", bound.name, *space);
                bound.spaceID = *space;
                env_.store->putStage(bound);
                openStageItems(bound.items, true, *space);
                markActive(bound, key);
                scheduleHydration(key);
            });
            return;
        }
        target = *claimed;
    }

    // Write.
    if (sameStored(stage, passedIn)) {
        Log::info("activate(multi) skip-write[main]: stage '{}' unchanged", stage.name);
    } else {
        Log::info("activate(multi) write[main]: stage '{}' updated, persisting", stage.name);
    }
    env_.store->putStage(stage);  // keeps the resolved windows either way; an unchanged record isn't written

    // Switch.
    if (target != active) {
        std::optional<std::uint32_t> pick;
        if (auto it = lastFocused_.find(key); it != lastFocused_.end()) pick = it->second;
        if (!pick && !stage.items.empty()) pick = stage.items.front().windowID;
        if (pick && env_.setFrontOnSpace) env_.setFrontOnSpace(*pick, target);
        env_.switchToSpace(target);
    }

    // Finish: at once on the active Space, after the switch settles otherwise.
    Log::info("activateStage focus: stage '{}' lastFocused={} resolved=[{}]", stage.name,
              lastFocused_.contains(key) ? std::to_string(lastFocused_[key]) : std::string("<none>"),
              resolvedList(stage));
    if (target == active) {
        finishMulti(key, target, active);
    } else {
        std::weak_ptr<bool> alive = alive_;
        pendingFinish_.cancel();
        pendingFinish_ = ferrow::mainAsyncAfter(200, [this, alive, key, target, active] {
            if (!alive.expired()) finishMulti(key, target, active);
        });
    }
    markActive(stage, key);
    if (!allResolved)
        scheduleHydration(key);
    else
        Log::info("activate(multi): skip hydration, stage already open with all items resolved");
}

void StageActivator::finishMulti(const std::string& key, std::uint64_t, std::uint64_t) {
    const Stage* current = env_.store->stage(key);
    if (!current) return;
    Stage stage = *current;
    bool allUnresolved = true;
    for (const auto& item : stage.items)
        allUnresolved = allUnresolved && !item.windowID;
    if (allUnresolved && env_.reopenClosedItems()) {
        ferrow::spawn(fullyClosed(key, alive_));
        return;
    }
    restoreStep(stage);
    focusStep(stage, key);
    reopenStep(stage);
}

bool StageActivator::liveMinimized(const ManagedWindow& window) const {
    auto* ax = env_.platform.accessibility;
    auto app = ax->applicationElement(window.appPid);
    if (!app) return false;
    ax->setMessagingTimeout(app, 1.0);
    auto element = env_.placer->windowElementFor(window.appPid, window.id);
    if (!element) return false;
    auto value = ax->copyAttribute(element, "AXMinimized");
    if (!value.ok() || !value.value) return false;
    auto* flag = std::get_if<bool>(&*value.value);
    return flag && *flag;
}

void StageActivator::restoreStep(const Stage& stage) {
    auto known = env_.windows();
    Log::info("activateStage restore: items={} windows in WM={}", stage.items.size(), known.size());
    std::set<std::string> seen;
    for (const auto& item : stage.items) {
        if (!seen.insert(item.bundleID()).second) continue;
        if (auto app = runningApp(item.bundleID()); app && app->hidden) {
            env_.platform.workspace->unhide(app->pid);
            Log::info("  restore: unhid {}", appLabel(item));
        }
    }
    for (const auto& item : stage.items) {
        if (!item.windowID) {
            Log::info("  restore: {} '{}', no resolved windowID", appLabel(item), item.windowTitle);
            continue;
        }
        auto window = tracked(*item.windowID);
        if (!window) {
            Log::info("  restore: {}, not in WM.windows", *item.windowID);
            continue;
        }
        bool minCache = window->isMinimized;
        bool minLive = liveMinimized(*window);
        bool offScreen = env_.stash->isStashed(window->id);
        std::vector<std::string> flags;
        if (minCache) flags.push_back("minCache");
        if (minLive) flags.push_back("minLive");
        if (offScreen) flags.push_back("offScreen");
        Log::info("  restore: {}, {}", window->id,
                  flags.empty() ? std::string("ok") : fmt::format("{}", fmt::join(flags, ",")));
        if (offScreen) env_.stash->restoreWindowFromOffScreen(window->id);
        if (minLive) {
            auto element = env_.placer->windowElementFor(window->appPid, window->id);
            bool ok = element && env_.platform.accessibility->setAttribute(element, "AXMinimized", false) ==
                                     platform::AXError::success;
            Log::info("  restore: unminimize {}, {}", window->id, ok ? "ok" : "failed");
        }
    }
}

std::optional<std::uint32_t> StageActivator::systemFocusedWindow() const {
    auto* ax = env_.platform.accessibility;
    auto focusedApp = ax->copyAttribute(ax->systemWideElement(), "AXFocusedApplication");
    if (!focusedApp.ok() || !focusedApp.value) return std::nullopt;
    auto* app = std::get_if<platform::AXRef>(&*focusedApp.value);
    if (!app) return std::nullopt;
    auto window = ax->copyAttribute(*app, "AXFocusedWindow");
    if (!window.ok() || !window.value) return std::nullopt;
    auto* element = std::get_if<platform::AXRef>(&*window.value);
    if (!element) return std::nullopt;
    auto number = ax->windowNumber(*element);
    return number ? std::optional(number) : std::nullopt;
}

void StageActivator::focusStep(const Stage& stage, const std::string& key) {
    auto inItems = [&](std::uint32_t wid) {
        for (const auto& item : stage.items)
            if (item.windowID == wid) return true;
        return false;
    };
    if (auto live = systemFocusedWindow(); live && inItems(*live)) {
        Log::info("  focus: {} already in stage '{}' (live AX), skipping refocus", *live, stage.name);
        return;
    }
    if (auto cached = env_.focusedWindow(); cached && inItems(cached->id)) {
        Log::info("  focus: {} already in stage '{}' (cached), skipping refocus", cached->id, stage.name);
        return;
    }
    std::vector<const StageItem*> candidates;
    for (const auto& item : stage.items)
        if (!isFullscreenPlacement(item)) candidates.push_back(&item);
    bool allFullscreen = candidates.empty();
    if (allFullscreen)
        for (const auto& item : stage.items)
            candidates.push_back(&item);
    if (auto it = lastFocused_.find(key); it != lastFocused_.end()) {
        std::uint32_t preferred = it->second;
        bool inCandidates = false;
        for (auto* item : candidates)
            inCandidates = inCandidates || item->windowID == preferred;
        auto known = tracked(preferred);
        Log::info("  focus: preferred={} inCandidates={} resolvedKnown={} allFullscreen={}", preferred,
                  inCandidates, known.has_value(), allFullscreen);
        if (inCandidates && known) {
            Log::info("  focus: using preferred {}", preferred);
            env_.focus(*known);
            return;
        }
    } else {
        Log::info("  focus: no preferred window for stage '{}'", stage.name);
    }
    for (auto* item : candidates) {
        if (!item->windowID) continue;
        if (auto known = tracked(*item->windowID)) {
            Log::info("  focus: fallback to {} (allFullscreen={})", known->id, allFullscreen);
            env_.focus(*known);
            return;
        }
    }
    for (auto* item : candidates) {
        if (auto app = runningApp(item->bundleID())) {
            Log::info("  focus: forceActivating first candidate {}", appLabel(*item));
            env_.forceActivate(*app);
            return;
        }
    }
}

void StageActivator::reopenStep(const Stage& stage) {
    if (!env_.reopenClosedItems()) return;
    std::vector<StageItem> missing;
    for (const auto& item : stage.items) {
        if (item.windowID) continue;
        Log::info("  reopen missing: {} '{}' ({})", appLabel(item), item.windowTitle,
                  describe(item.windowSpec));
        missing.push_back(item);
    }
    if (!missing.empty()) openStageItems(missing, false, stage.spaceID);
}

ferrow::Task<> StageActivator::fullyClosed(std::string key, std::shared_ptr<bool> alive) {
    const Stage* current = env_.store->stage(key);
    if (!current) co_return;
    Log::info("activateStage: stage '{}' fully closed, opening all items then waiting for windows",
              current->name);
    openStageItems(current->items, true, current->spaceID);
    bool materialized = false;
    for (int poll = 1; poll <= 20 && !materialized; ++poll) {
        co_await ferrow::sleepMs(200);
        if (!*alive) co_return;
        const Stage* now = env_.store->stage(key);
        if (!now) co_return;
        Stage stage = *now;
        bool hit = false;
        for (auto& item : stage.items) {
            if (item.windowID || !runningApp(item.bundleID())) continue;
            if (auto window = env_.resolve(item)) {
                item.windowID = window->id;
                hit = true;
            }
        }
        if (hit) {
            Log::info("activateStage: windows materialized after {} poll(s) key={}", poll, key);
            env_.store->putStage(stage);
            materialized = true;
        }
    }
    if (!materialized) Log::error("activateStage: gave up waiting for stage windows to open key={}", key);
    if (const Stage* now = env_.store->stage(key)) {
        Stage stage = *now;
        restoreStep(stage);
        focusStep(stage, key);
    }
}

// ---- opening --------------------------------------------------------------------------------------

void StageActivator::openStageItems(std::vector<StageItem> items, bool waitForPlacement,
                                    std::optional<std::uint64_t> pinnedSpaceID) {
    auto now = ferrow::now();
    std::erase_if(opening_, [now](const auto& entry) { return entry.second <= now; });
    std::vector<std::string> order;
    std::map<std::string, std::vector<StageItem>> groups;
    for (auto& item : items) {
        if (opening_.contains(item.id)) {
            Log::info("openStageItems: {} '{}' is already opening, not opened again", appLabel(item),
                      item.windowTitle);
            continue;
        }
        opening_[item.id] = now + ferrow::ms(kActivatingGraceMs);
        if (!groups.contains(item.bundleID())) order.push_back(item.bundleID());
        groups[item.bundleID()].push_back(std::move(item));
    }
    for (const auto& bundle : order)
        ferrow::spawn(openGroup(std::move(groups[bundle]), waitForPlacement, pinnedSpaceID, alive_));
}

ferrow::Task<> StageActivator::ensurePinnedSpace(std::optional<std::uint64_t> pinned,
                                                 std::shared_ptr<bool> alive) {
    if (!pinned) co_return;
    std::uint64_t active = env_.activeSpace();
    if (active == *pinned) co_return;
    Log::info("ensurePinnedSpace: drift detected, active={} target={}, jumping back", active, *pinned);
    env_.switchToSpace(*pinned);
    for (int attempt = 0; attempt < 20; ++attempt) {
        if (env_.activeSpace() == *pinned) co_return;
        co_await ferrow::sleepMs(50);
        if (!*alive) co_return;
    }
    if (env_.activeSpace() != *pinned)
        Log::info("ensurePinnedSpace: jump did not settle within timeout, active={} target={}",
                  env_.activeSpace(), *pinned);
}

ferrow::Task<> StageActivator::openGroup(std::vector<StageItem> items, bool waitForPlacement,
                                         std::optional<std::uint64_t> pinned, std::shared_ptr<bool> alive) {
    const std::string bundle = items.front().bundleID();
    std::int64_t gapMs = isEditorBundle(bundle)                            ? 500
                         : browserFamily(bundle) == BrowserFamily::firefox ? 250
                                                                           : 0;
    bool activates = waitForPlacement;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0 && gapMs > 0) {
            co_await ferrow::sleepMs(gapMs);
            if (!*alive) co_return;
        }
        const StageItem& item = items[i];
        co_await ensurePinnedSpace(pinned, alive);
        if (!*alive) co_return;
        if (!item.windowPlacement) {
            env_.opener->openStageWindow(item, activates);
            if (pinned) {
                co_await ferrow::sleepMs(150);
                if (!*alive) co_return;
                co_await ensurePinnedSpace(pinned, alive);
                if (!*alive) co_return;
            }
            continue;
        }
        NewWindowWait wait;
        env_.awaitNewWindow(bundle, ferrow::ms(kNewWindowTimeoutMs), wait.callback());
        env_.opener->openStageWindow(item, activates);
        if (pinned) {
            co_await ferrow::sleepMs(150);
            if (!*alive) co_return;
            co_await ensurePinnedSpace(pinned, alive);
            if (!*alive) co_return;
        }
        auto windowID = co_await wait;
        if (!*alive) co_return;
        if (!windowID) {
            Log::info("openStageItems: no kAXWindowCreated for {} '{}' within timeout, placement skipped",
                      appLabel(item), item.windowTitle);
            continue;
        }
        co_await ferrow::sleepMs(50);
        if (!*alive) co_return;
        StageItem placed = item;
        placed.windowID = *windowID;
        auto known = std::set<std::uint32_t>{};
        for (const auto& w : env_.windows())
            if (w.id != *windowID) known.insert(w.id);
        if (env_.placer->restoreWindowPlacement(placed, known))
            Log::info("openStageItems: placement applied to {} window #{}", appLabel(item), *windowID);
        else
            Log::info("openStageItems: placement could not be applied to {} window #{}", appLabel(item),
                      *windowID);
    }
}

// ---- hydration, focus memory, reposition ---------------------------------------------------------

void StageActivator::cancelHydration() {
    for (auto& item : hydration_)
        item.cancel();
    hydration_.clear();
}

void StageActivator::scheduleHydration(const std::string& key) {
    cancelHydration();
    std::weak_ptr<bool> alive = alive_;
    for (auto delay : kHydrationDelaysMs)
        hydration_.push_back(ferrow::mainAsyncAfter(delay, [this, alive, key] {
            if (!alive.expired()) hydrateStage(key);
        }));
}

void StageActivator::hydrateStage(const std::string& key) {
    if (env_.store->activeStageKey() != key) return;
    const Stage* current = env_.store->stage(key);
    if (!current) return;
    Stage stage = *current;
    std::set<std::uint32_t> known;
    for (const auto& w : env_.windows())
        known.insert(w.id);
    int found = 0;
    for (auto& item : stage.items) {
        if (item.windowID && known.contains(*item.windowID)) continue;
        auto window = env_.resolve(item);
        if (!window) continue;
        item.windowID = window->id;
        ++found;
        if (item.windowPlacement)
            if (auto placed = env_.placer->restoreWindowPlacement(item, std::nullopt))
                Log::info("hydrateStage: placement applied to {} window #{}", appLabel(item), *placed);
    }
    if (found == 0) return;
    env_.store->putStage(stage);
    env_.store->setActiveStageBundleIDs(bundlesOf(stage));
    Log::info("hydrateStage: resolved {} window(s) for '{}'", found, stage.name);
}

void StageActivator::rememberFocusedWindow(std::uint32_t windowID) {
    const auto& key = env_.store->activeStageKey();
    if (!key) {
        Log::debug("rememberFocusedWindow: window #{}, skip (no active stage)", windowID);
        return;
    }
    const Stage* stage = env_.store->stage(*key);
    if (!stage) {
        Log::info("rememberFocusedWindow: skip (stage '{}' missing)", *key);
        return;
    }
    if (windowID == 0) return;
    auto window = tracked(windowID);
    bool member = false;
    std::vector<std::string> stageWindows;
    for (const auto& item : stage->items) {
        if (item.windowID) stageWindows.push_back(std::to_string(*item.windowID));
        if (member || (window && item.bundleID() != window->bundleIdentifier)) continue;
        if (item.windowID == windowID)
            member = true;
        else if (window && !item.windowTitle.empty() && item.windowTitle == window->title)
            member = true;
        else if (auto resolved = env_.resolve(item); resolved && resolved->id == windowID)
            member = true;
    }
    std::string stageKey = *key;
    if (member) {
        Log::info("rememberFocusedWindow: stage '{}' \u2190 window #{}", stageKey, windowID);
        lastFocused_[stageKey] = windowID;
        return;
    }
    Log::info("rememberFocusedWindow: window #{} not in stage '{}', skip (stage windows: {})", windowID,
              stageKey, fmt::format("{}", fmt::join(stageWindows, ", ")));
    std::uint64_t active = env_.activeSpace();
    for (const auto& item : stage->items) {
        if (!item.windowID) continue;
        auto w = tracked(*item.windowID);
        if (!w) continue;
        std::uint64_t space = env_.liveSpaceID(w->id).value_or(w->spaceID.value_or(active));
        if (space == active) return;
    }
    if (activatingKey_ == stageKey && activatingUntil_ && *activatingUntil_ > ferrow::now()) {
        Log::info(
            "rememberFocusedWindow: stage '{}' has no windows on active Space, but activation in progress, "
            "keeping "
            "marker",
            stageKey);
        return;
    }
    Log::info("rememberFocusedWindow: stage '{}' has no windows on active Space, clearing marker", stageKey);
    env_.store->clearActiveStage();
    cancelHydration();
}

void StageActivator::repositionActiveStage() {
    const auto& key = env_.store->activeStageKey();
    const Stage* stage = key ? env_.store->stage(*key) : nullptr;
    if (!stage) {
        Log::info("repositionActiveStage: no active stage");
        return;
    }
    int applied = 0, skipped = 0;
    for (const auto& item : stage->items) {
        if (!item.windowPlacement) continue;
        if (auto wid = env_.placer->restoreWindowPlacement(item, std::nullopt)) {
            Log::info("repositionActiveStage: applied to {} wid={}", appLabel(item), *wid);
            ++applied;
        } else {
            Log::info("repositionActiveStage: no match for {} '{}'", appLabel(item), item.windowTitle);
            ++skipped;
        }
    }
    Log::info("repositionActiveStage: stage='{}' applied={} skipped={} total={}", stage->name, applied,
              skipped, stage->items.size());
}

void StageActivator::stageClosed(const std::string& key) {
    if (env_.store->activeStageKey() == key) {
        cancelHydration();
        for (auto id : parked_)
            if (env_.stash->isStashed(id)) env_.stash->restoreWindowFromOffScreen(id);
        parked_.clear();
    }
    if (activatingKey_ == key) {
        activatingKey_.reset();
        activatingUntil_.reset();
    }
}

std::vector<ManagedWindow> StageActivator::activeStageWindows() {
    std::vector<ManagedWindow> out;
    const auto& key = env_.store->activeStageKey();
    const Stage* stage = key ? env_.store->stage(*key) : nullptr;
    if (!stage) return out;
    std::set<std::uint32_t> seen;
    for (const auto& item : stage->items) {
        std::optional<ManagedWindow> window;
        if (item.windowID) window = tracked(*item.windowID);
        if (!window) window = env_.resolve(item);
        if (window && seen.insert(window->id).second) out.push_back(*window);
    }
    return out;
}

}  // namespace zelk::stages
