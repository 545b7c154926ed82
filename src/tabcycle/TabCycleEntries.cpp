#include "tabcycle/TabCycleEntries.h"

#include <fmt/format.h>

#include <algorithm>

#include "search/FuzzyScore.h"
#include "support/Log.h"

namespace zelk::tabcycle {

using windows::ManagedWindow;

namespace {
// A lone window on a Space offers the last other app only while the user is actively switching.
constexpr ferrow::Nanos kSingleWindowRecency = 120 * ferrow::kNanosPerSecond;
// A filter keeps rows that score at least this much per typed character.
constexpr int kFilterScorePerCharacter = 6;

TabCycleEntry entryFor(const ManagedWindow& w, const CycleSnapshot& world) {
    TabCycleEntry e;
    e.id = w.id;
    e.title = w.title.empty() ? "(Untitled)" : w.title;
    e.appName = w.appName;
    e.bundleIdentifier = w.bundleIdentifier;
    if (auto t = world.focusTimes.find(w.id); t != world.focusTimes.end()) e.lastFocusedAt = t->second;
    e.spaceID = w.spaceID;
    e.minimised = w.isMinimized;
    return e;
}

std::optional<std::string> focusedBundle(const CycleSnapshot& world) {
    if (world.focused && !world.focused->bundleIdentifier.empty()) return world.focused->bundleIdentifier;
    return world.frontmostBundle;
}

std::string bundlesText(const std::optional<StageMembers>& stage) {
    if (!stage) return "[]";
    std::vector<std::string> b(stage->bundleIdentifiers.begin(), stage->bundleIdentifiers.end());
    return "[" + fmt::format("{}", fmt::join(b, ",")) + "]";
}

// The filters, in order; each answers whether the window stays.
struct Filters {
    const CycleSnapshot& world;
    TabCycleScope scope;
    bool forSearch;
    TabCycleFilter include;
    std::optional<std::string> sameAppBundle;
    const StageMembers* stage;

    bool notThisProcess(const ManagedWindow& w) const { return w.appPid != world.ownPid; }
    bool onTheSpace(const ManagedWindow& w) const {
        if (scope == TabCycleScope::allWindows || scope == TabCycleScope::sameApp) return true;
        return !w.spaceID || *w.spaceID == world.currentSpace;
    }
    bool minimisedAllowed(const ManagedWindow& w) const {
        return forSearch || include.contains(TabCycleFilter::minimized) || !w.isMinimized;
    }
    bool appShown(const ManagedWindow& w) const {
        if (forSearch || include.contains(TabCycleFilter::hidden)) return true;
        return !world.hiddenBundles.count(w.bundleIdentifier);
    }
    bool ofTheSameApp(const ManagedWindow& w) const {
        return scope != TabCycleScope::sameApp || w.bundleIdentifier == *sameAppBundle;
    }
    bool inTheStage(const ManagedWindow& w) const {
        return !stage || stage->bundleIdentifiers.count(w.bundleIdentifier) || stage->windowIDs.count(w.id);
    }
    bool keeps(const ManagedWindow& w) const {
        return notThisProcess(w) && onTheSpace(w) && minimisedAllowed(w) && appShown(w) && ofTheSameApp(w) &&
               inTheStage(w);
    }
};

// Most-recent ranks by window id: sorted once, looked up by halving (the lowest rank of an id wins).
class MRURanks {
  public:
    explicit MRURanks(const std::vector<std::uint32_t>& mru) : unknown_(mru.size()) {
        ranks_.reserve(mru.size());
        for (std::size_t i = 0; i < mru.size(); ++i)
            ranks_.emplace_back(mru[i], i);
        std::sort(ranks_.begin(), ranks_.end());
    }
    // Windows the order doesn't know come after every known one.
    std::size_t rankOf(std::uint32_t id) const {
        auto it =
            std::lower_bound(ranks_.begin(), ranks_.end(), std::pair<std::uint32_t, std::size_t>{id, 0});
        return it != ranks_.end() && it->first == id ? it->second : unknown_;
    }

  private:
    std::vector<std::pair<std::uint32_t, std::size_t>> ranks_;
    std::size_t unknown_;
};

// The snapshot's windows by id, for walking the most-recent order without scanning the list per id.
std::vector<const ManagedWindow*> windowsByID(const CycleSnapshot& world) {
    std::vector<const ManagedWindow*> byID;
    byID.reserve(world.windows.size());
    for (const auto& w : world.windows)
        byID.push_back(&w);
    std::stable_sort(byID.begin(), byID.end(),
                     [](const ManagedWindow* a, const ManagedWindow* b) { return a->id < b->id; });
    return byID;
}

const ManagedWindow* findWindow(const std::vector<const ManagedWindow*>& byID, std::uint32_t id) {
    auto it = std::lower_bound(byID.begin(), byID.end(), id,
                               [](const ManagedWindow* w, std::uint32_t v) { return w->id < v; });
    return it != byID.end() && (*it)->id == id ? *it : nullptr;
}

// A Space holding one window still offers a way out: the last window of another app, wherever it is.
void surfaceLastOtherApp(std::vector<TabCycleEntry>& rows, const CycleSnapshot& world) {
    if (rows.size() != 1) return;
    if (world.lastFocusChangeAt && world.now - *world.lastFocusChangeAt >= kSingleWindowRecency) return;
    const std::string& bundle = rows.front().bundleIdentifier;
    const auto byID = windowsByID(world);
    for (std::uint32_t id : world.mru) {
        const ManagedWindow* it = findWindow(byID, id);
        if (!it || it->appPid == world.ownPid || it->bundleIdentifier == bundle) continue;
        rows.push_back(entryFor(*it, world));
        ferrow::Log::info(
            "computeTabCycleEntries: single-window auto Space, surfaced last app #{}[{}] so Tab isn't a "
            "no-op",
            it->id, it->title);
        return;
    }
}

// This program's settings window is a row of its own while it is open and was in front lately.
void addSettingsWindow(std::vector<TabCycleEntry>& rows, const CycleSnapshot& world) {
    if (!world.settingsWindowOpen) return;
    auto already = std::any_of(rows.begin(), rows.end(), [&](const TabCycleEntry& e) {
        return e.bundleIdentifier == world.ownBundleID && !e.isClosed();
    });
    if (already) return;
    const auto& recent = world.zelkAwareFrontmost;
    auto last = recent.size() > 2 ? recent.end() - 2 : recent.begin();
    if (std::find(last, recent.end(), world.ownBundleID) == recent.end()) return;
    TabCycleEntry e;
    e.title = "zelk Settings";
    e.appName = "zelk";
    e.bundleIdentifier = world.ownBundleID;
    if (!recent.empty() && recent.back() == world.ownBundleID)
        rows.insert(rows.begin(), std::move(e));
    else
        rows.push_back(std::move(e));
}

}  // namespace

std::string TabCycleEntry::rowID() const {
    return closedWindowID ? "rel-" + *closedWindowID : "win-" + std::to_string(id);
}

std::string scopeName(TabCycleScope scope) {
    switch (scope) {
        case TabCycleScope::auto_:
            return "auto";
        case TabCycleScope::currentSpace:
            return "currentSpace";
        case TabCycleScope::activeStage:
            return "activeStage";
        case TabCycleScope::allWindows:
            return "allWindows";
        case TabCycleScope::sameApp:
            return "sameApp";
    }
    return "auto";
}

TabCycleScope effectiveScope(const EntryRequest& request) {
    if (request.scope == TabCycleScope::auto_ && request.allWindowsExpanded) return TabCycleScope::allWindows;
    return request.scope;
}

std::vector<TabCycleEntry> computeTabCycleEntries(const CycleSnapshot& world, const EntryRequest& request) {
    const TabCycleScope scope = effectiveScope(request);
    const StageMembers* stage = nullptr;
    if (scope == TabCycleScope::auto_ || scope == TabCycleScope::activeStage) {
        if (world.activeStage && !world.activeStage->empty())
            stage = &*world.activeStage;
        else if (scope == TabCycleScope::activeStage)
            return {};
    }
    std::optional<std::string> sameAppBundle;
    if (scope == TabCycleScope::sameApp) {
        sameAppBundle = focusedBundle(world);
        if (!sameAppBundle) return {};
    }
    const Filters filters{world, scope, request.forSearch, request.include, sameAppBundle, stage};

    // Each kept window with its most-recent rank, taken once.
    const MRURanks ranks(world.mru);
    std::vector<std::pair<std::size_t, const ManagedWindow*>> kept;
    kept.reserve(world.windows.size());
    std::size_t missingSpace = 0;
    for (const auto& w : world.windows) {
        if (!w.spaceID) ++missingSpace;
        if (filters.keeps(w)) kept.emplace_back(ranks.rankOf(w.id), &w);
    }
    // Most recent first; windows the order doesn't know keep their list order after the known ones.
    std::stable_sort(kept.begin(), kept.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });

    std::vector<TabCycleEntry> rows;
    rows.reserve(kept.size() + 2);
    for (const auto& [rank, w] : kept)
        rows.push_back(entryFor(*w, world));
    if (scope == TabCycleScope::auto_ && !request.forSearch && !stage) surfaceLastOtherApp(rows, world);
    if (scope != TabCycleScope::sameApp) addSettingsWindow(rows, world);
    // The line's texts are built only while debug lines are read.
    if (ferrow::Log::enabled(ferrow::LogLevel::debug))
        ferrow::Log::debug(
            "computeTabCycleEntries: scope={} activeStage={} focused={} stageFilter={} candidates={}/{} "
            "(missingSpaceID={}, activeSpace={})",
            scopeName(scope), world.activeStage ? world.activeStage->key : "nil",
            world.focused ? std::to_string(world.focused->id) : "nil",
            bundlesText(stage ? world.activeStage : std::nullopt), rows.size(), world.windows.size(),
            missingSpace, world.currentSpace);
    return rows;
}

std::vector<TabCycleEntry> computeClosedEntries(const CycleSnapshot& world, const EntryRequest& request,
                                                const std::vector<ClosedWindowRow>& closed,
                                                const std::vector<TabCycleEntry>& liveRows) {
    if (closed.empty()) return {};
    const TabCycleScope scope = effectiveScope(request);
    const std::optional<StageMembers>& stage = world.activeStage;
    const auto sameAppBundle = focusedBundle(world);
    std::vector<std::uint32_t> live;
    live.reserve(liveRows.size());
    for (const auto& e : liveRows)
        if (!e.isClosed()) live.push_back(e.id);
    std::sort(live.begin(), live.end());
    auto keeps = [&](const ClosedWindowRow& c) {
        if (std::binary_search(live.begin(), live.end(), c.windowID)) return false;
        switch (scope) {
            case TabCycleScope::activeStage:
                return stage && stage->bundleIdentifiers.count(c.bundleIdentifier) > 0;
            case TabCycleScope::sameApp:
                return sameAppBundle && c.bundleIdentifier == *sameAppBundle;
            case TabCycleScope::auto_:
                return !stage || stage->empty() || stage->bundleIdentifiers.count(c.bundleIdentifier) > 0;
            case TabCycleScope::currentSpace:
                return !c.spaceID || *c.spaceID == world.currentSpace;
            case TabCycleScope::allWindows:
                return true;
        }
        return true;
    };
    std::vector<TabCycleEntry> rows;
    for (const auto& c : closed) {
        if (!keeps(c)) continue;
        TabCycleEntry e;
        e.title = c.title.empty() ? "(Untitled)" : c.title;
        e.appName = c.appName;
        e.bundleIdentifier = c.bundleIdentifier;
        e.closedWindowID = c.uuid;
        e.spaceID = c.spaceID;
        rows.push_back(std::move(e));
    }
    return rows;
}

std::vector<TabCycleEntry> filterEntries(const std::vector<TabCycleEntry>& rows, const std::string& query) {
    if (query.empty()) return rows;
    const int least = kFilterScorePerCharacter * static_cast<int>(query.size());
    std::vector<std::pair<int, std::size_t>> scored;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        int score = search::fuzzyScore(query, rows[i].appName + " - " + rows[i].title);
        if (score >= least) scored.emplace_back(score, i);
    }
    std::stable_sort(scored.begin(), scored.end(), [](auto& a, auto& b) { return a.first > b.first; });
    std::vector<TabCycleEntry> out;
    out.reserve(scored.size());
    for (auto& [score, i] : scored)
        out.push_back(rows[i]);
    return out;
}

std::size_t stepIndex(const std::vector<TabCycleEntry>& rows, std::size_t from, bool reverse,
                      bool firstStep) {
    const std::size_t n = rows.size();
    if (n == 0) return 0;
    from = std::min(from, n - 1);
    std::size_t next = reverse ? (from + n - 1) % n : (from + 1) % n;
    if (firstStep && rows[next].isClosed()) return from;
    return next;
}

std::vector<TabCycleEntry> dropVanished(const std::vector<TabCycleEntry>& rows,
                                        const std::set<std::uint32_t>& liveIDs) {
    std::vector<TabCycleEntry> out;
    out.reserve(rows.size());
    for (const auto& e : rows)
        if (e.isClosed() || e.id == 0 || liveIDs.count(e.id)) out.push_back(e);
    return out;
}

std::size_t keepHighlight(const std::vector<TabCycleEntry>& rows, const std::string& rowID,
                          std::size_t index) {
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (rows[i].rowID() == rowID) return i;
    if (rows.empty()) return 0;
    return std::min(index, rows.size() - 1);
}

}  // namespace zelk::tabcycle
