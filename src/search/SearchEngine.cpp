#include "search/SearchEngine.h"

#include <unicode/coll.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <set>

#include "search/FuzzyScore.h"
#include "search/Graphemes.h"
#include "search/TextMatch.h"

namespace zelk::search {

namespace {

constexpr int kLargest = std::numeric_limits<int>::max();

std::string restAfterFirst(const MatchText& query) {
    std::string rest;
    for (std::size_t i = 1; i < query.characters().size(); ++i)
        rest += query.characters()[i];
    return rest;
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// Names in the order a person reads a list: locale-aware, case aside.
class NameOrder {
  public:
    NameOrder() {
        UErrorCode status = U_ZERO_ERROR;
        collator_.reset(icu::Collator::createInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) collator_.reset();
        if (collator_) collator_->setStrength(icu::Collator::SECONDARY);
    }
    bool operator()(const std::string& a, const std::string& b) const {
        if (!collator_) return lowercased(a) < lowercased(b);
        UErrorCode status = U_ZERO_ERROR;
        return collator_->compareUTF8(a, b, status) == UCOL_LESS;
    }

  private:
    std::unique_ptr<icu::Collator> collator_;
};

// Window ids seen, in a flat table (open addressing): a keystroke may list a thousand windows, and a
// node per id would cost more than the ranking.
class IdSet {
  public:
    explicit IdSet(std::size_t expected) { resize(expected); }
    // False when the id was there already.
    bool insert(std::uint32_t id) {
        if (2 * (size_ + 1) > slots_.size()) {
            std::vector<std::uint64_t> old = std::move(slots_);
            resize(old.size());
            for (std::uint64_t key : old)
                if (key) place(key);
        }
        return place(std::uint64_t{id} + 1);
    }
    bool contains(std::uint32_t id) const {
        const std::uint64_t key = std::uint64_t{id} + 1;
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t h = (static_cast<std::uint32_t>(key) * 0x9E3779B1u) & mask;; h = (h + 1) & mask) {
            if (slots_[h] == key) return true;
            if (slots_[h] == 0) return false;
        }
    }

  private:
    void resize(std::size_t expected) {
        std::size_t capacity = 16;
        while (capacity < 2 * expected + 2)
            capacity <<= 1;
        slots_.assign(capacity, 0);
        size_ = 0;
    }
    bool place(std::uint64_t key) {
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t h = (static_cast<std::uint32_t>(key) * 0x9E3779B1u) & mask;; h = (h + 1) & mask) {
            if (slots_[h] == key) return false;
            if (slots_[h] == 0) {
                slots_[h] = key;
                ++size_;
                return true;
            }
        }
    }
    std::vector<std::uint64_t> slots_;  // id + 1, 0 for an empty slot
    std::size_t size_ = 0;
};

// A query's windows in the order of the emitted rows, each window once.
class RowWriter {
  public:
    RowWriter(std::shared_ptr<const SearchWorld> world, std::size_t expected = 0)
        : world_(std::move(world)), windowIds_(expected) {
        rows_.reserve(expected);
    }
    void app(const SearchApp& a) {
        rows_.push_back(SearchResult::ofApp(std::shared_ptr<const SearchApp>(world_, &a)));
    }
    void window(const SearchWindow& w) {
        if (windowIds_.insert(w.id))
            rows_.push_back(SearchResult::ofWindow(std::shared_ptr<const SearchWindow>(world_, &w)));
    }
    void windows(const std::vector<const SearchWindow*>& list) {
        for (const SearchWindow* w : list)
            window(*w);
    }
    std::vector<SearchResult>& rows() { return rows_; }

  private:
    std::shared_ptr<const SearchWorld> world_;
    std::vector<SearchResult> rows_;
    IdSet windowIds_;
};

}  // namespace

SearchEngine::SearchEngine(SearchWorld world)
    : world_(std::make_shared<const SearchWorld>(std::move(world))) {
    for (std::size_t i = 0; i < world_->candidates.size(); ++i)
        candidateByBundle_.emplace(world_->candidates[i].bundleID, i);
    for (std::size_t i = 0; i < world_->catalogue.size(); ++i)
        catalogueByBundle_.emplace(world_->catalogue[i].bundleID, i);
    for (const auto& [bundle, list] : world_->windowsByBundle) {
        if (list.size() < 2) continue;
        std::vector<WindowCandidate> own;
        for (const auto& w : list)
            own.push_back(WindowCandidate::make(w.title, w.key));
        ownWindows_.emplace(bundle, WindowCandidateList(std::move(own)));
    }
    appCandidates_.reserve(world_->candidates.size());
    for (const auto& a : world_->candidates)
        appCandidates_.push_back(
            AppCandidate::make(a.identifier, a.name, a.lowercasedName, a.running, a.usageScore));
    catalogueNames_.reserve(world_->catalogue.size());
    for (const auto& a : world_->catalogue)
        catalogueNames_.emplace_back(a.name);
    std::vector<WindowCandidate> rows;
    for (const auto& [bundle, list] : world_->windowsByBundle) {
        if (list.size() < 2) continue;
        for (const auto& w : list) {
            globalWindows_.push_back(&w);
            rows.push_back(WindowCandidate::make(w.title, ""));
        }
    }
    if (world_->settingsWindow) {
        globalWindows_.push_back(&*world_->settingsWindow);
        rows.push_back(WindowCandidate::make(world_->settingsWindow->title, ""));
    }
    globalList_ = WindowCandidateList(std::move(rows));
    for (const SearchWindow* w : globalWindows_)
        groupOf_.emplace(w->bundleIdentifier, 0);
    for (auto& [bundle, group] : groupOf_)
        groupBundles_.push_back(bundle);
    std::sort(groupBundles_.begin(), groupBundles_.end());
    for (std::uint32_t g = 0; g < groupBundles_.size(); ++g)
        groupOf_[groupBundles_[g]] = g;
    for (const SearchWindow* w : globalWindows_)
        globalGroup_.push_back(groupOf_.at(w->bundleIdentifier));
}

const SearchApp* SearchEngine::catalogueApp(const std::string& bundleID) const {
    auto it = catalogueByBundle_.find(bundleID);
    return it == catalogueByBundle_.end() ? nullptr : &world_->catalogue[it->second];
}

const SearchApp* SearchEngine::candidateApp(const std::string& bundleID) const {
    auto it = candidateByBundle_.find(bundleID);
    return it == candidateByBundle_.end() ? nullptr : &world_->candidates[it->second];
}

const LetterBinding* SearchEngine::assignmentFor(const std::string& letter) const {
    if (auto it = world_->dynamicByKey.find(letter); it != world_->dynamicByKey.end()) return &it->second;
    if (auto it = world_->staticByKey.find(letter); it != world_->staticByKey.end()) return &it->second;
    return nullptr;
}

int SearchEngine::appScore(const MatchText& query, const SearchApp& app) const {
    int score = fuzzyScore(query, MatchText(app.lowercasedName));
    if (score > 0) score += acronymBonus(query, MatchText(app.name));
    return score;
}

std::vector<SearchResult> SearchEngine::emptyQuery(const SearchState& state, bool appsOnly) const {
    if (!state.emptyQueryListsAll) return {};
    std::vector<const SearchApp*> apps;
    for (const auto& a : world_->candidates)
        apps.push_back(&a);
    NameOrder order;
    std::stable_sort(apps.begin(), apps.end(),
                     [&](const SearchApp* a, const SearchApp* b) { return order(a->name, b->name); });
    RowWriter out(world_);
    for (const SearchApp* a : apps) {
        out.app(*a);
        if (appsOnly) continue;
        auto it = world_->windowsByBundle.find(a->bundleID);
        if (it == world_->windowsByBundle.end() || it->second.size() < 2) continue;
        std::vector<const SearchWindow*> list;
        for (const auto& w : it->second)
            list.push_back(&w);
        std::stable_sort(list.begin(), list.end(),
                         [](const SearchWindow* x, const SearchWindow* y) { return x->title < y->title; });
        out.windows(list);
    }
    return std::move(out.rows());
}

std::vector<SearchResult> SearchEngine::closedRows(const std::string& q,
                                                   const std::vector<SearchResult>& emitted,
                                                   bool force) const {
    std::vector<SearchResult> out;
    if (world_->closedWindows.empty()) return out;
    const MatchText query(q);
    if (!force && query.size() == 1) return out;
    std::set<std::string> shown;
    for (const auto& r : emitted)
        if (r.isWindow()) shown.insert(r.window().bundleIdentifier + "|" + r.window().title);
    for (const auto& entry : world_->closedWindows) {
        if (!q.empty()) {
            const SearchApp* app = catalogueApp(entry.bundleIdentifier);
            const std::string text =
                lowercased(app ? app->name : entry.appName) + " - " + lowercased(entry.title);
            const MatchText t(text);
            if (!t.contains(query.lowerKeys()) && fuzzyScore(query, t) < minScore(query)) continue;
        }
        if (shown.count(entry.bundleIdentifier + "|" + entry.title)) continue;
        out.push_back(SearchResult::ofClosed(std::shared_ptr<const ClosedWindowEntry>(world_, &entry)));
    }
    return out;
}

std::vector<SearchResult> SearchEngine::searchOpenWindows(const std::string& q,
                                                          const SearchState& state) const {
    const auto& windows = world_->openWindows;
    std::vector<SearchResult> out;
    if (windows.empty()) return out;
    // Regrouped by app, apps in order of their first (best) window.
    auto regroup = [&](const std::vector<const SearchWindow*>& list) {
        std::vector<std::string> order;
        std::map<std::string, std::vector<const SearchWindow*>> groups;
        for (const SearchWindow* w : list) {
            auto& g = groups[w->bundleIdentifier];
            if (g.empty()) order.push_back(w->bundleIdentifier);
            g.push_back(w);
        }
        for (const auto& bundle : order)
            for (const SearchWindow* w : groups[bundle])
                out.push_back(SearchResult::ofWindow(std::shared_ptr<const SearchWindow>(world_, w)));
    };
    if (q.empty()) {
        std::vector<const SearchWindow*> all;
        for (const auto& w : windows)
            all.push_back(&w);
        regroup(all);
        return out;
    }
    const MatchText query(q);
    struct Ranked {
        const SearchWindow* window;
        int rank;
        bool strong;
    };
    std::vector<Ranked> ranked;
    for (const auto& w : windows) {
        const std::string title = lowercased(w.title), app = lowercased(w.appName);
        const std::string text = app.empty() ? title : app + " - " + title;
        const MatchText t(text);
        if (startsWith(title, q) || (!app.empty() && startsWith(app, q)))
            ranked.push_back({&w, kLargest, true});
        else if (startsWith(text, q) || wordBoundaryMatch(t, query))
            ranked.push_back({&w, kLargest - 1, true});
        else if (title.find(q) != std::string::npos || (!app.empty() && app.find(q) != std::string::npos))
            ranked.push_back({&w, kLargest - 2, false});
        else if (state.mode == SearchMatchMode::anchored) {
            const int score = fuzzyScore(query, t);
            if (score >= minScore(query)) ranked.push_back({&w, score, false});
        }
    }
    std::stable_sort(ranked.begin(), ranked.end(), [](const Ranked& a, const Ranked& b) {
        if (a.strong != b.strong) return a.strong;
        return a.rank > b.rank;
    });
    std::vector<const SearchWindow*> list;
    for (const auto& r : ranked)
        list.push_back(r.window);
    regroup(list);
    return out;
}

std::vector<SearchResult> SearchEngine::search(std::string_view rawQuery, const SearchState& state) const {
    const std::string q = lowercased(rawQuery);
    // Windows only: its own ranking, then every closed window that matches.
    if (state.windowsOnly) {
        auto rows = searchOpenWindows(q, state);
        auto closed = closedRows(q, rows, true);
        rows.insert(rows.end(), closed.begin(), closed.end());
        return rows;
    }
    const bool appsOnly = state.switcherAppsOnly || state.pinPickQuery.has_value();
    if (q.empty()) return emptyQuery(state, appsOnly);

    const MatchText query(q);
    const std::size_t length = query.size();
    const bool anchored = state.mode == SearchMatchMode::anchored;
    const std::string first = query.characters().front();

    // Apps by name.
    std::vector<Ranked> apps;
    for (const AppMatch& m : matchApps(appCandidates_, q, state.mode, state.optionalPrefixes))
        apps.push_back({&world_->candidates[m.index], m.score});
    auto positionOf = [&](const std::string& bundleID) -> std::optional<std::size_t> {
        for (std::size_t i = 0; i < apps.size(); ++i)
            if (apps[i].app->bundleID == bundleID) return i;
        return std::nullopt;
    };
    auto toFront = [&](std::size_t at) {
        std::rotate(apps.begin(), apps.begin() + at, apps.begin() + at + 1);
    };
    auto anyApp = [&](const std::string& bundleID) {
        const SearchApp* a = candidateApp(bundleID);
        return a ? a : catalogueApp(bundleID);
    };

    // The first letter's app, and its windows as a sub-query of the rest.
    const LetterBinding* assigned = assignmentFor(first);
    const auto staticFirst = world_->staticByKey.find(first);
    const bool firstIsStatic = staticFirst != world_->staticByKey.end();
    std::vector<const SearchWindow*> subWindows;
    bool weak = true;
    if (assigned) {
        auto it = world_->windowsByBundle.find(assigned->bundleID);
        if (it != world_->windowsByBundle.end() && it->second.size() >= 2) {
            const auto& own = it->second;
            if (length == 1) {
                for (const auto& w : own)
                    subWindows.push_back(&w);
            } else {
                const WindowCandidateList& rows = ownWindows_.at(assigned->bundleID);
                const std::string rest = restAfterFirst(query);
                for (const auto& m : filterWindows(rows, rest, false, true))
                    subWindows.push_back(&own[m.index]);
                if (!subWindows.empty()) {
                    weak = false;
                } else if (firstIsStatic) {
                    for (const auto& m : filterWindows(rows, rest, true, true))
                        subWindows.push_back(&own[m.index]);
                }
            }
        }
    }

    // Windows of every other app with several, by the whole query.
    struct Hit {
        const SearchWindow* window;
        int score;
        std::uint32_t group = 0;
    };
    std::vector<Hit> windowMatches;
    bool settingsMatches = false;
    if (world_->settingsWindow) {
        const MatchText title(world_->settingsWindow->title);
        settingsMatches = anchored ? anchoredMatch(title, query, state.optionalPrefixes)
                                   : MatchText(lowercased(title.text())).hasPrefix(query.lowerKeys()) ||
                                         wordBoundaryMatch(MatchText(lowercased(title.text())), query);
    }
    for (const auto& m : filterWindows(globalList_, q, anchored, false, globalScores_)) {
        const SearchWindow& w = *globalWindows_[m.index];
        const bool isSettings = world_->settingsWindow && m.index == globalWindows_.size() - 1;
        if (isSettings ? !settingsMatches : assigned && w.bundleIdentifier == assigned->bundleID) continue;
        windowMatches.push_back({&w, m.score, globalGroup_[m.index]});
    }

    // Letter priority for short queries.
    if (length < 4 && assigned) {
        std::optional<std::string> lead;
        if (length == 1) {
            lead = assigned->bundleID;
        } else if (auto rel = world_->relatedByKey.find(assigned->key); rel != world_->relatedByKey.end()) {
            for (const auto& bundle : rel->second) {
                const SearchApp* a = anyApp(bundle);
                if (a && (startsWith(a->lowercasedName, q) ||
                          wordBoundaryMatch(MatchText(a->lowercasedName), query))) {
                    lead = bundle;
                    break;
                }
            }
        }
        if (lead)
            if (auto p = positionOf(*lead); p && *p > 0) toFront(*p);
    }

    // What was learned for this query, and its pin.
    std::optional<std::string> pin;
    if (auto it = state.pins.find(q); it != state.pins.end()) pin = it->second;
    const auto selection = applicableSelection(state.selections, state.pins, q, state.now);
    if (selection) {
        const std::size_t rankLimit = selection->count < kStrongCount
                                          ? static_cast<std::size_t>(selection->count) * 5
                                          : std::numeric_limits<std::size_t>::max();
        if (auto p = positionOf(selection->bundleID); p && *p > 0 && *p < rankLimit) {
            const SearchApp& app = *apps[*p].app;
            // An app with a key of its own answers to that key; a weak pick of an app that isn't
            // running doesn't jump running apps.
            bool ownKeyElsewhere = false;
            for (const auto& [key, binding] : world_->staticByKey)
                if (binding.bundleID == app.bundleID && key != first) ownKeyElsewhere = true;
            bool runningBefore = false;
            for (std::size_t i = 0; i < *p; ++i)
                runningBefore = runningBefore || apps[i].app->running;
            const bool weakOffline = selection->count < kStrongCount && !app.running && runningBefore;
            if (!ownKeyElsewhere && !weakOffline) toFront(*p);
        }
    }
    if (pin) {
        if (auto p = positionOf(*pin)) {
            toFront(*p);
        } else if (const SearchApp* a = anyApp(*pin)) {
            apps.insert(apps.begin(), Ranked{a, kLargest});
        }
    }
    // A one-letter query leads with its static letter's app.
    if (length == 1 && firstIsStatic) {
        const LetterBinding& binding = staticFirst->second;
        if (auto p = positionOf(binding.bundleID)) {
            if (*p > 0) toFront(*p);
        } else if (!(state.runningAndStaticOnly && !binding.launchIfNotRunning)) {
            if (const SearchApp* a = anyApp(binding.bundleID))
                apps.insert(apps.begin(), Ranked{a, appScore(query, *a)});
        }
    }

    RowWriter out(world_, apps.size() + subWindows.size() + windowMatches.size());
    // The sub-query's windows first, unless something else clearly asked for another app.
    bool windowsFirst = false;
    if (assigned && !subWindows.empty()) {
        const bool strongOther =
            selection && isStrong(*selection) && selection->bundleID != assigned->bundleID;
        const bool pinOther = pin && *pin != assigned->bundleID;
        const SearchApp* assignedApp = anyApp(assigned->bundleID);
        const bool nameHit = length > 2 && assignedApp && startsWith(assignedApp->lowercasedName, q);
        windowsFirst = !strongOther && !pinOther && !nameHit && (length == 2 || !weak);
    }
    if (windowsFirst) out.windows(subWindows);

    // Windows that match better than their app's name climb above weaker apps.
    std::unordered_map<std::string_view, int> scores;
    std::vector<Hit> promoted;
    IdSet promotedIds(windowMatches.size());
    if (anchored && length >= 3) {
        for (const auto& r : apps)
            scores.emplace(r.app->bundleID, r.score);
        if (pin) scores[*pin] = kLargest;
        for (const Hit& h : windowMatches) {
            auto s = scores.find(h.window->bundleIdentifier);
            if (h.score > (s == scores.end() ? 0 : s->second) && promotedIds.insert(h.window->id))
                promoted.push_back(h);
        }
        if (!windowsFirst && assigned) {
            const SearchApp* app = anyApp(assigned->bundleID);
            auto own = world_->windowsByBundle.find(assigned->bundleID);
            if (app && app->running && own != world_->windowsByBundle.end()) {
                auto known = scores.find(app->bundleID);
                const int s = known != scores.end() ? known->second : appScore(query, *app);
                const auto prepared = ownWindows_.find(app->bundleID);
                for (std::size_t i = 0; i < own->second.size(); ++i) {
                    const SearchWindow& w = own->second[i];
                    const int score = prepared != ownWindows_.end()
                                          ? fuzzyScore(query, prepared->second.rows()[i].lowercasedTitle)
                                          : fuzzyScore(query, MatchText(lowercased(w.title)));
                    if (score >= minScore(query) && score > s && promotedIds.insert(w.id))
                        promoted.push_back({&w, score});
                }
            }
        }
        std::stable_sort(promoted.begin(), promoted.end(),
                         [](const Hit& a, const Hit& b) { return a.score > b.score; });
    }

    std::vector<std::vector<const SearchWindow*>> groups(groupBundles_.size());
    for (const Hit& h : windowMatches)
        groups[h.group].push_back(h.window);

    std::vector<char> seen(groupBundles_.size(), 0);
    std::size_t nextPromoted = 0;
    for (const auto& r : apps) {
        const auto known = scores.find(r.app->bundleID);
        const int appValue = known != scores.end() ? known->second : r.score;
        while (nextPromoted < promoted.size() && promoted[nextPromoted].score > appValue)
            out.window(*promoted[nextPromoted++].window);
        out.app(*r.app);
        if (!windowsFirst && assigned && r.app->bundleID == assigned->bundleID) out.windows(subWindows);
        if (auto g = groupOf_.find(r.app->bundleID); g != groupOf_.end()) {
            for (const SearchWindow* w : groups[g->second])
                if (!promotedIds.contains(w->id)) out.window(*w);
            seen[g->second] = 1;
        }
    }
    for (; nextPromoted < promoted.size(); ++nextPromoted)
        out.window(*promoted[nextPromoted].window);

    if (!windowsFirst && assigned && !subWindows.empty() && !positionOf(assigned->bundleID)) {
        if (const SearchApp* a = anyApp(assigned->bundleID)) out.app(*a);
        out.windows(subWindows);
    }

    // Other apps' matching windows, under their app's row.
    if (length > 1) {
        for (std::uint32_t g = 0; g < groups.size(); ++g) {
            const auto& bundle = groupBundles_[g];
            const auto& list = groups[g];
            if (seen[g] || list.empty()) continue;
            std::vector<const SearchWindow*> remaining;
            for (const SearchWindow* w : list)
                if (!promotedIds.contains(w->id)) remaining.push_back(w);
            if (remaining.empty()) continue;
            if (const SearchApp* a = catalogueApp(bundle)) out.app(*a);
            out.windows(remaining);
        }
    }

    auto& rows = out.rows();
    auto closed = closedRows(q, rows, false);
    rows.insert(rows.end(), closed.begin(), closed.end());
    if (appsOnly) std::erase_if(rows, [](const SearchResult& r) { return !r.isApp(); });
    return std::move(rows);
}

std::size_t defaultSelection(const std::vector<SearchResult>& rows, std::string_view query,
                             bool windowsOnly) {
    if (rows.empty()) return 0;
    std::size_t index = 0;
    if (MatchText(lowercased(query)).size() > 1 && rows.size() > 1 && rows[0].isApp() && rows[1].isWindow() &&
        rows[1].window().bundleIdentifier == rows[0].app().bundleID)
        index = 1;
    if (windowsOnly && rows[index].isApp())
        for (std::size_t i = 0; i < rows.size(); ++i)
            if (!rows[i].isApp()) return i;
    return index;
}

}  // namespace zelk::search

namespace zelk::search {

std::vector<std::vector<std::string>> SearchEngine::reasons(std::string_view rawQuery,
                                                            const SearchState& state,
                                                            const std::vector<SearchResult>& rows) const {
    const std::string q = lowercased(rawQuery);
    const MatchText query(q);
    const std::string first = query.empty() ? std::string() : query.characters().front();
    const LetterBinding* assigned = query.empty() ? nullptr : assignmentFor(first);
    const auto pin = state.pins.find(q);
    const auto learned = state.selections.find(q);
    std::vector<std::vector<std::string>> out;
    out.reserve(rows.size());
    for (const auto& row : rows) {
        std::vector<std::string> labels;
        if (row.kind == SearchResultKind::closedWindow) {
            labels.push_back("recently-closed");
            if (!row.closed().age.empty()) labels.push_back(row.closed().age);
        } else if (row.isApp()) {
            const SearchApp& app = row.app();
            if (pin != state.pins.end() && pin->second == app.bundleID)
                labels.push_back("pin[\"" + q + "\"]");
            if (auto s = world_->staticByKey.find(first);
                s != world_->staticByKey.end() && s->second.bundleID == app.bundleID)
                labels.push_back("static-assign[" + first + "]");
            if (auto d = world_->dynamicByKey.find(first);
                d != world_->dynamicByKey.end() && d->second.bundleID == app.bundleID)
                labels.push_back("dyn-assign[" + first + "]");
            if (learned != state.selections.end() && learned->second.bundleID == app.bundleID) {
                const SearchSelection& s = learned->second;
                std::string label = "user-pick[\"" + q + "\"×" + std::to_string(s.count);
                if (isStrong(s)) label += "+strong";
                if (!isFresh(s, state.now)) label += "+stale";
                labels.push_back(label + "]");
            }
            if (auto rel = world_->relatedByKey.find(first);
                rel != world_->relatedByKey.end() &&
                std::find(rel->second.begin(), rel->second.end(), app.bundleID) != rel->second.end())
                labels.push_back("related-to-dyn[" + first + "]");
            if (!q.empty()) {
                const MatchText name(app.lowercasedName);
                if (name.hasPrefix(query.lowerKeys()))
                    labels.push_back("name-prefix");
                else if (wordBoundaryMatch(name, query))
                    labels.push_back("name-word-boundary");
                else if (anchoredMatch(MatchText(app.name), query, state.optionalPrefixes))
                    labels.push_back("anchored");
            }
            if (app.running) labels.push_back("running");
        } else {
            const SearchWindow& w = row.window();
            if (state.windowsOnly)
                labels.push_back(q.empty() ? "windows-only: mru" : "windows-only");
            else if (assigned && w.bundleIdentifier == assigned->bundleID)
                labels.push_back(query.size() == 1 ? "dyn-app-window-list" : "dyn-app-window-subquery");
            else
                labels.push_back("global-window-match");
            if (!w.key.empty() && w.key == first) {
                std::string upper = w.key;
                std::transform(upper.begin(), upper.end(), upper.begin(),
                               [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
                labels.push_back("window-key=" + upper);
            }
            if (!q.empty()) {
                const std::string title = lowercased(w.title), app = lowercased(w.appName);
                const MatchText t(title);
                if (startsWith(title, q) || (!app.empty() && startsWith(app, q)))
                    labels.push_back("title-prefix");
                else if (wordBoundaryMatch(t, query))
                    labels.push_back("title-word-boundary");
                else if (title.find(q) != std::string::npos)
                    labels.push_back("contains");
                else if (state.mode == SearchMatchMode::anchored)
                    labels.push_back("fuzzy");
            }
        }
        out.push_back(std::move(labels));
    }
    return out;
}

}  // namespace zelk::search
