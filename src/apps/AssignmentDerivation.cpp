#include "apps/AssignmentDerivation.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "search/Graphemes.h"
#include "support/Format.h"

namespace zelk::apps {

namespace {
bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string lowered(std::string_view text) {
    return search::isAscii(text) ? ferrow::toLowerAscii(text) : search::lowercased(text);
}

bool isOneCharacter(const std::string& letter) {
    if (letter.size() == 1) return true;
    return !search::isAscii(letter) && search::splitGraphemes(letter).size() == 1;
}

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// Keys drawn for dynamic assignments: digits, then letters.
constexpr std::string_view kDerivationKeys = "0123456789abcdefghijklmnopqrstuvwxyz";

std::vector<AppRef> recentFirst(const DerivationContext& context, const std::vector<AppRef>& matched);
std::vector<AppRef> learnedFirst(const std::vector<std::string>& learned, const std::vector<AppRef>& ordered);
}  // namespace

bool letterMatches(const DerivationContext& context, const LaunchableApp& app, const std::string& letter) {
    if (context.mode == SearchMatchMode::anchored && isOneCharacter(letter)) {
        static const std::vector<std::string> kNone;
        const auto& prefixes = context.optionalPrefixes ? *context.optionalPrefixes : kNone;
        return contains(app.nameLetters(prefixes, context.prefixesStamp), letter);
    }
    return startsWith(app.lowercasedName(), letter);
}

const AssignmentDeriver::Candidates& AssignmentDeriver::candidates(
    const DerivationContext& context, const std::vector<std::string>& excludedIDs,
    const std::string& cacheKey) {
    if (cachedFor_ != context.running) {
        cache_.clear();
        cachedFor_ = context.running;
    }
    auto it = cache_.find(cacheKey);
    if (it != cache_.end()) return it->second;
    Candidates built;
    for (const auto& entry : *context.running) {
        if (contains(excludedIDs, entry.app->identifier())) continue;
        bool hasStatic = context.statics && context.statics->hasStaticKey(entry.app->bundleIdentifier());
        built.sorted.push_back({&entry, entry.app->score(hasStatic), hasStatic});
    }
    std::stable_sort(built.sorted.begin(), built.sorted.end(),
                     [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
    for (std::size_t i = 0; i < built.sorted.size(); ++i)
        built.byIdentifier.emplace(built.sorted[i].entry->app->identifier(), i);
    return cache_.emplace(cacheKey, std::move(built)).first->second;
}

std::optional<RunningEntry> AssignmentDeriver::topRunningApp(const DerivationContext& context,
                                                             const std::string& letterIn,
                                                             const std::vector<std::string>& excludedIDs,
                                                             std::optional<std::string> cacheKey) {
    const std::string letter = lowered(letterIn);
    if (!cacheKey) {
        std::string key;
        for (const auto& e : *context.running)
            key += e.app->identifier();
        for (const auto& id : excludedIDs)
            key += id;
        cacheKey = std::move(key);
    }
    const Candidates& list = candidates(context, excludedIDs, *cacheKey);

    // A fresh learned pick for this very letter wins while its app runs.
    if (isOneCharacter(letter) && context.selections) {
        auto pick = context.selections->find(letter);
        if (pick != context.selections->end() &&
            context.now - pick->second.lastPickedAt < kLearnedPickLifetime) {
            for (const auto& c : list.sorted) {
                if (c.entry->app->bundleIdentifier() != pick->second.bundleID) continue;
                bool matches = context.mode == SearchMatchMode::contains ||
                               letterMatches(context, *c.entry->app, letter);
                if (matches && !c.entry->process.terminated) return *c.entry;
                break;
            }
        }
    }

    // The app most recently in front among those the letter can mean.
    if (context.recentApps) {
        for (const auto& recent : *context.recentApps) {
            auto at = list.byIdentifier.find(recent->identifier());
            if (at == list.byIdentifier.end()) continue;
            const Candidate& c = list.sorted[at->second];
            if (c.entry->app->url() != recent->url() || c.hasStatic) continue;
            if (!letterMatches(context, *recent, letter)) continue;
            if (!c.entry->process.terminated) return *c.entry;
            break;
        }
    }

    // Usage settles it for apps not activated since the start.
    for (const auto& c : list.sorted) {
        if (c.hasStatic || !letterMatches(context, *c.entry->app, letter)) continue;
        if (c.entry->process.terminated) return std::nullopt;
        return *c.entry;
    }
    return std::nullopt;
}

std::vector<std::string> AssignmentDeriver::learnedOrder(const DerivationContext& context,
                                                         const std::string& letter) {
    std::vector<std::string> order;
    if (!context.selections) return order;
    if (learnedFor_ != context.selections) {
        learned_.clear();
        for (const auto& [query, selection] : *context.selections)
            learned_.emplace_back(lowered(query), selection.bundleID);
        std::sort(learned_.begin(), learned_.end(), [](const auto& a, const auto& b) {
            if (a.first.size() != b.first.size()) return a.first.size() > b.first.size();
            return a.first < b.first;
        });
        learnedFor_ = context.selections;
    }
    auto exact = context.selections->find(letter);
    if (exact != context.selections->end()) order.push_back(exact->second.bundleID);
    for (const auto& [query, bundle] : learned_)
        if (query.size() > letter.size() && startsWith(query, letter)) order.push_back(bundle);
    return order;
}

std::vector<AppRef> AssignmentDeriver::relatedAppsFor(const DerivationContext& context,
                                                      const std::string& letterIn,
                                                      const std::vector<std::string>& excludedIDs,
                                                      std::optional<std::string> cacheKey) {
    const std::string letter = lowered(letterIn);
    // The full sorted list serves every letter; exclusions are applied while walking it.
    if (!cacheKey) {
        std::string allKey;
        for (const auto& e : *context.running)
            allKey += e.app->identifier();
        cacheKey = std::move(allKey);
    }
    const Candidates& list = candidates(context, {}, *cacheKey);

    // The sorted list walked from its last element to its first.
    std::vector<AppRef> matched;
    for (auto it = list.sorted.rbegin(); it != list.sorted.rend(); ++it) {
        const auto& c = *it;
        if (c.hasStatic || contains(excludedIDs, c.entry->app->identifier())) continue;
        if (letterMatches(context, *c.entry->app, letter)) matched.push_back(c.entry->app);
    }
    if (matched.empty()) return matched;

    // Many apps can share a letter, so the orderings index the matches instead of searching them.
    return learnedFirst(learnedOrder(context, letter), recentFirst(context, matched));
}

namespace {
// The matches of recently active apps first, most recent first, then the rest as given.
std::vector<AppRef> recentFirst(const DerivationContext& context, const std::vector<AppRef>& matched) {
    std::vector<AppRef> ordered;
    ordered.reserve(matched.size());
    std::unordered_set<const LaunchableApp*> placed;
    if (context.recentApps) {
        std::unordered_map<std::string_view, std::vector<std::size_t>> byIdentifier;
        for (std::size_t i = 0; i < matched.size(); ++i)
            byIdentifier[matched[i]->identifier()].push_back(i);
        for (const auto& recent : *context.recentApps) {
            auto at = byIdentifier.find(recent->identifier());
            if (at == byIdentifier.end()) continue;
            for (std::size_t i : at->second)
                if (placed.insert(matched[i].get()).second) ordered.push_back(matched[i]);
        }
    }
    for (const auto& app : matched)
        if (placed.insert(app.get()).second) ordered.push_back(app);
    return ordered;
}

// The apps of the letter's learned queries (bundles, in learned order) first, then the rest as given.
std::vector<AppRef> learnedFirst(const std::vector<std::string>& learned,
                                 const std::vector<AppRef>& ordered) {
    std::vector<AppRef> out;
    out.reserve(ordered.size());
    std::unordered_set<const LaunchableApp*> placed;
    if (!learned.empty()) {
        std::unordered_map<std::string_view, std::vector<std::size_t>> byBundle;
        for (std::size_t i = 0; i < ordered.size(); ++i)
            byBundle[ordered[i]->bundleIdentifier()].push_back(i);
        std::unordered_set<std::string_view> seenBundles;
        for (const auto& bundle : learned) {
            if (!seenBundles.insert(bundle).second) continue;
            auto at = byBundle.find(bundle);
            if (at == byBundle.end()) continue;
            for (std::size_t i : at->second)
                if (placed.insert(ordered[i].get()).second) out.push_back(ordered[i]);
        }
    }
    for (const auto& app : ordered)
        if (placed.insert(app.get()).second) out.push_back(app);
    return out;
}
}  // namespace

std::vector<AppKeyAssignment> AssignmentDeriver::computeDynamicAssignments(const DerivationContext& context,
                                                                           int limit,
                                                                           WhenAlreadyFocusedAction action,
                                                                           RelatedApps& related) {
    std::vector<std::string> runningIDs, staticIDs;
    std::string cacheKey;
    for (const auto& e : *context.running) {
        runningIDs.push_back(e.app->identifier());
        cacheKey += e.app->identifier();
    }
    const std::string allKey = cacheKey;
    for (const auto& e : *context.running)
        if (context.statics && context.statics->hasStaticKey(e.app->bundleIdentifier())) {
            staticIDs.push_back(e.app->identifier());
            cacheKey += e.app->identifier();
        }

    std::vector<AppKeyAssignment> added;
    for (char c : kDerivationKeys) {
        const std::string letter(1, c);
        if (context.statics && context.statics->byKey(letter)) continue;
        auto top = topRunningApp(context, letter, staticIDs, cacheKey);
        if (!top) continue;
        const AppRef& app = top->app;
        std::string relationKey = app->bundleIdentifier().empty() ? std::to_string(top->process.pid)
                                  : app->firstNameLetter().empty()
                                      ? app->identifier()
                                      : app->firstNameLetter() + "-" + app->identifier();
        auto alternatives = relatedAppsFor(context, letter, {app->identifier()}, allKey);
        related[relationKey] = alternatives;
        AppKeyAssignment a;
        a.key = letter;
        a.app = app;
        a.index = 0;
        a.whenAlreadyFocusedAction = action;
        a.launchIfNotRunning = true;
        // The key's own relation key too, so a key other than the first name letter finds its list.
        related[a.relationKey()] = std::move(alternatives);
        added.push_back(std::move(a));
    }
    std::stable_sort(added.begin(), added.end(),
                     [](const AppKeyAssignment& a, const AppKeyAssignment& b) { return a.key < b.key; });
    if (limit >= 0 && added.size() > static_cast<std::size_t>(limit)) added.resize(limit);
    for (std::size_t i = 0; i < added.size(); ++i) {
        added[i].index = static_cast<int>(i);
        added[i].key = lowercasedKey(added[i].key);
    }

    if (context.statics) {
        for (const auto& assignment : context.statics->all()) {
            if (!assignment.app) continue;
            const RunningEntry* runningEntry = nullptr;
            for (const auto& e : *context.running)
                if (e.app->bundleIdentifier() == assignment.app->bundleIdentifier()) {
                    runningEntry = &e;
                    break;
                }
            if (!runningEntry) continue;
            // The running identifiers that begin with the app's own are no alternative to it.
            std::vector<std::string> excluded;
            const std::string& own = runningEntry->app->identifier();
            for (const auto& e : *context.running)
                if (e.app->identifier().starts_with(own)) excluded.push_back(e.app->identifier());
            related[assignment.relationKey()] = relatedAppsFor(context, assignment.key, excluded, allKey);
        }
    }
    return added;
}

}  // namespace zelk::apps
