#include "search/AppMatching.h"

#include <algorithm>
#include <unordered_set>

#include "search/FuzzyScore.h"
#include "search/Graphemes.h"
#include "search/NameAnchors.h"
#include "search/TextMatch.h"

namespace zelk::search {

AppCandidate AppCandidate::make(std::string identifier, std::string_view originalName, std::string_view name,
                                bool isRunning, double usageScore) {
    return AppCandidate{std::move(identifier),
                        MatchText(originalName),
                        MatchText(lowercased(name)),
                        isRunning,
                        usageScore,
                        {},
                        0};
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
    }
    return app.anchors;
}

std::vector<AppMatch> uniqueByIdentifier(const std::vector<AppCandidate>& apps,
                                         std::vector<AppMatch> matches) {
    std::unordered_set<std::string_view> seen;
    std::vector<AppMatch> out;
    out.reserve(matches.size());
    for (const AppMatch& m : matches)
        if (seen.insert(apps[m.index].identifier).second) out.push_back(m);
    return out;
}

}  // namespace

std::vector<AppMatch> matchApps(const std::vector<AppCandidate>& apps, std::string_view q,
                                SearchMatchMode mode, const std::vector<std::string>& optionalPrefixes) {
    const MatchText query(lowercased(q));
    auto keys = query.lowerKeys();
    std::vector<AppMatch> matches;

    if (mode == SearchMatchMode::anchored) {
        const std::size_t key = prefixesKey(optionalPrefixes);
        for (std::size_t i = 0; i < apps.size(); ++i) {
            const AppCandidate& app = apps[i];
            if (!anchoredMatchAt(app.originalName, anchorsOf(app, optionalPrefixes, key), query)) continue;
            int score = fuzzyScore(query, app.lowercasedName);
            // Initials come from the name as written, so camel-case capitals count ("vb" for VirtualBox).
            if (score > 0) score += acronymBonus(query, app.originalName);
            matches.push_back({i, score, app.lowercasedName.hasPrefix(keys)});
        }
        std::stable_sort(matches.begin(), matches.end(), [&](const AppMatch& a, const AppMatch& b) {
            if (a.isPrefix != b.isPrefix) return a.isPrefix;
            if (a.score != b.score) return a.score > b.score;
            const AppCandidate &x = apps[a.index], &y = apps[b.index];
            if (x.isRunning != y.isRunning) return x.isRunning;
            return x.usageScore > y.usageScore;
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
        return x.usageScore > y.usageScore;
    };
    std::stable_sort(matches.begin(), matches.end(), byRunningThenUsage);
    std::stable_sort(boundary.begin(), boundary.end(), byRunningThenUsage);
    matches.insert(matches.end(), boundary.begin(), boundary.end());
    return uniqueByIdentifier(apps, std::move(matches));
}

}  // namespace zelk::search
