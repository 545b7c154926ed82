#include "search/AppMatching.h"

#include <algorithm>
#include <functional>

#include "search/FuzzyScore.h"
#include "search/Graphemes.h"
#include "search/NameAnchors.h"
#include "search/TextMatch.h"

namespace zelk::search {

AppCandidate AppCandidate::make(std::string identifier, std::string_view originalName, std::string_view name,
                                bool isRunning, double usageScore) {
    AppCandidate app{std::move(identifier), MatchText(originalName), MatchText(lowercased(name)), isRunning,
                     usageScore};
    app.acronymKeys = search::acronymKeys(app.originalName);
    app.identifierHash = std::hash<std::string>{}(app.identifier);
    return app;
}

namespace {

// One number for a set of optional prefixes (never 0, the mark of anchors not worked out yet).
std::size_t prefixesKey(const std::vector<std::string>& prefixes) {
    std::size_t h = 1469598103934665603ull;
    for (const auto& p : prefixes) {
        h ^= std::hash<std::string>{}(p) + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2);
    }
    return h == 0 ? 1 : h;
}

const std::vector<std::size_t>& anchorsOf(const AppCandidate& app, const std::vector<std::string>& prefixes,
                                          std::size_t key) {
    if (app.anchorsFor != key) {
        app.anchors = nameAnchors(app.originalName, prefixes);
        app.anchorsFor = key;
        app.anchorKeyMask = 0;
        const auto keys = app.originalName.lowerKeys();
        for (std::size_t anchor : app.anchors)
            if (anchor < keys.size()) app.anchorKeyMask |= keyBit(keys[anchor]);
    }
    return app.anchors;
}

// Repeats are rare and the lists short: the kept identifiers' hashes in a small open table, the
// identifiers compared only when two hashes agree.
std::vector<AppMatch> uniqueByIdentifier(const std::vector<AppCandidate>& apps,
                                         std::vector<AppMatch> matches) {
    std::size_t capacity = 16;
    while (capacity < 2 * matches.size())
        capacity <<= 1;
    std::vector<std::uint32_t> slots(capacity, 0);  // kept match + 1, 0 for an empty slot
    const std::size_t mask = capacity - 1;
    std::size_t kept = 0;
    for (const AppMatch& m : matches) {
        const AppCandidate& app = apps[m.index];
        bool repeat = false;
        std::size_t h = app.identifierHash & mask;
        for (; slots[h]; h = (h + 1) & mask) {
            const AppCandidate& other = apps[matches[slots[h] - 1].index];
            if (other.identifierHash == app.identifierHash && other.identifier == app.identifier) {
                repeat = true;
                break;
            }
        }
        if (repeat) continue;
        matches[kept] = m;
        slots[h] = static_cast<std::uint32_t>(++kept);
    }
    matches.resize(kept);
    return matches;
}

}  // namespace

std::vector<AppMatch> matchApps(const std::vector<AppCandidate>& apps, std::string_view q,
                                SearchMatchMode mode, const std::vector<std::string>& optionalPrefixes) {
    const MatchText query(lowercased(q));
    auto keys = query.lowerKeys();
    std::vector<AppMatch> matches;

    if (mode == SearchMatchMode::anchored) {
        const std::size_t key = prefixesKey(optionalPrefixes);
        // An empty query matches at any anchor, so it skips no app by the mask.
        const std::uint64_t first = keys.empty() ? ~std::uint64_t{0} : keyBit(keys.front());
        matches.reserve(apps.size());
        for (std::size_t i = 0; i < apps.size(); ++i) {
            const AppCandidate& app = apps[i];
            const auto& anchors = anchorsOf(app, optionalPrefixes, key);
            if (!(app.anchorKeyMask & first)) continue;
            if (!anchoredMatchAt(app.originalName, anchors, query)) continue;
            int score = fuzzyScore(query, app.lowercasedName);
            // Initials come from the name as written, so camel-case capitals count ("vb" for VirtualBox).
            if (score > 0) score += acronymBonus(keys, app.acronymKeys);
            matches.push_back({i, score, app.lowercasedName.hasPrefix(keys)});
        }
        // Stable by list order: the matches were taken in index order, so the index breaks ties (and
        // the sort needs no buffer).
        std::sort(matches.begin(), matches.end(), [&](const AppMatch& a, const AppMatch& b) {
            if (a.isPrefix != b.isPrefix) return a.isPrefix;
            if (a.score != b.score) return a.score > b.score;
            const AppCandidate &x = apps[a.index], &y = apps[b.index];
            if (x.isRunning != y.isRunning) return x.isRunning;
            if (x.usageScore != y.usageScore) return x.usageScore > y.usageScore;
            return a.index < b.index;
        });
        return uniqueByIdentifier(apps, std::move(matches));
    }

    std::vector<AppMatch> boundary;
    for (std::size_t i = 0; i < apps.size(); ++i) {
        const MatchText& name = apps[i].lowercasedName;
        if (name.hasPrefix(keys))
            matches.push_back({i, 0, true});
        else if (wordBoundaryMatch(name, query))
            boundary.push_back({i, 0, false});
    }
    auto byRunningThenUsage = [&](const AppMatch& a, const AppMatch& b) {
        const AppCandidate &x = apps[a.index], &y = apps[b.index];
        if (x.isRunning != y.isRunning) return x.isRunning;
        if (x.usageScore != y.usageScore) return x.usageScore > y.usageScore;
        return a.index < b.index;
    };
    std::sort(matches.begin(), matches.end(), byRunningThenUsage);
    std::sort(boundary.begin(), boundary.end(), byRunningThenUsage);
    matches.insert(matches.end(), boundary.begin(), boundary.end());
    return uniqueByIdentifier(apps, std::move(matches));
}

}  // namespace zelk::search
