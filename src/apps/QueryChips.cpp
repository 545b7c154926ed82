#include "apps/QueryChips.h"

#include <algorithm>

#include "search/Graphemes.h"

namespace zelk::apps {

QueryChips queryChipsByBundleID(const std::map<std::string, std::string>& pins,
                                const std::map<std::string, SearchSelection>& selections) {
    QueryChips chips;
    for (const auto& [query, bundle] : pins)
        chips[bundle].push_back({query, true, 0, std::nullopt});
    for (const auto& [query, selection] : selections) {
        if (pins.count(query)) continue;
        chips[selection.bundleID].push_back({query, false, selection.count, selection.lastPickedAt});
    }
    for (auto& [bundle, list] : chips) {
        std::sort(list.begin(), list.end(), [](const AppQueryChip& a, const AppQueryChip& b) {
            if (a.pinned != b.pinned) return a.pinned;
            if (a.count != b.count) return a.count > b.count;
            if (a.lastPickedAt && b.lastPickedAt && *a.lastPickedAt != *b.lastPickedAt)
                return *a.lastPickedAt > *b.lastPickedAt;
            return a.query < b.query;
        });
    }
    return chips;
}

std::set<std::string> ambiguatingQueryLetters(const std::map<std::string, std::string>& pins,
                                              const std::map<std::string, SearchSelection>& selections) {
    std::set<std::string> letters;
    auto firstLetter = [](const std::vector<std::string>& graphemes) {
        return search::lowercased(graphemes.front());
    };
    for (const auto& [query, bundle] : pins) {
        auto g = search::splitGraphemes(query);
        if (!g.empty()) letters.insert(firstLetter(g));
    }
    for (const auto& [query, selection] : selections) {
        auto g = search::splitGraphemes(query);
        if (g.size() == 2 || g.size() == 3) letters.insert(firstLetter(g));
    }
    return letters;
}

}  // namespace zelk::apps
