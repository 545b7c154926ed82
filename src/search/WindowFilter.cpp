#include "search/WindowFilter.h"

#include <algorithm>
#include <limits>

#include "search/FuzzyScore.h"
#include "search/Graphemes.h"

namespace zelk::search {

WindowCandidate WindowCandidate::make(std::string_view title, std::string_view key) {
    std::uint64_t sortKey = 0;
    for (std::size_t i = 0; i < 8; ++i)
        sortKey = (sortKey << 8) | (i < title.size() ? static_cast<unsigned char>(title[i]) : 0u);
    return WindowCandidate{std::string(title), MatchText(lowercased(title)), lowercased(key), sortKey};
}

std::vector<WindowMatch> filterWindows(const std::vector<WindowCandidate>& windows, std::string_view q,
                                       bool fuzzy, bool useKeys) {
    std::vector<WindowMatch> out;
    const MatchText query(lowercased(q));
    if (query.empty()) {
        out.reserve(windows.size());
        for (std::size_t i = 0; i < windows.size(); ++i)
            out.push_back({i, 0});
        return out;
    }
    auto keys = query.lowerKeys();
    const std::string& firstLetter = query.characters().front();
    const int threshold = minScore(query);

    // Key match first, then prefix, then the higher score, folded into one number compared at once.
    struct Ranked {
        WindowMatch match;
        std::uint64_t rank;
        std::uint64_t titleKey;
    };
    auto rankOf = [](bool keyMatch, bool prefix, int score) {
        return (std::uint64_t{!keyMatch} << 33) | (std::uint64_t{!prefix} << 32) |
               static_cast<std::uint32_t>(std::numeric_limits<int>::max() - score);
    };
    std::vector<Ranked> ranked;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const WindowCandidate& w = windows[i];
        int score = 0;
        if (fuzzy) {
            score = fuzzyScore(query, w.lowercasedTitle);
            if (score < threshold) continue;
        } else if (!w.lowercasedTitle.contains(keys)) {
            continue;
        }
        ranked.push_back({{i, score},
                          rankOf(useKeys && w.key == firstLetter, w.lowercasedTitle.hasPrefix(keys), score),
                          w.titleSortKey});
    }
    std::stable_sort(ranked.begin(), ranked.end(), [&](const Ranked& a, const Ranked& b) {
        if (a.rank != b.rank) return a.rank < b.rank;
        // Two set keys that differ order the titles as the strings would (padding sorts before any byte).
        if (a.titleKey && b.titleKey && a.titleKey != b.titleKey) return a.titleKey < b.titleKey;
        return windows[a.match.index].title < windows[b.match.index].title;
    });
    out.reserve(ranked.size());
    for (const Ranked& r : ranked)
        out.push_back(r.match);
    return out;
}

}  // namespace zelk::search
