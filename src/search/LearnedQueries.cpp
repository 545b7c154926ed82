#include "search/LearnedQueries.h"

#include <algorithm>

#include "search/Graphemes.h"

namespace zelk::search {

std::size_t queryLength(std::string_view query) {
    if (isAscii(query)) return query.size();
    return splitGraphemes(query).size();
}

std::optional<SearchSelection> applicableSelection(const LearnedMap& selections, const PinMap& pins,
                                                   const std::string& q, double now) {
    if (pins.count(q)) return std::nullopt;
    auto it = selections.find(q);
    if (it == selections.end()) return std::nullopt;
    if (!isFresh(it->second, now) && !isStrong(it->second)) return std::nullopt;
    return it->second;
}

std::optional<std::string> learnedBundleFor(const LearnedMap& selections, const PinMap& pins,
                                            std::string_view query, double now) {
    const std::string q = lowercased(query);
    if (q.empty()) return std::nullopt;
    const bool oneLetter = queryLength(q) == 1;
    if (!oneLetter)
        if (auto pin = pins.find(q); pin != pins.end()) return pin->second;
    auto it = selections.find(q);
    if (it == selections.end()) return std::nullopt;
    const bool applies =
        oneLetter ? isFresh(it->second, now) : isFresh(it->second, now) || isStrong(it->second);
    if (!applies) return std::nullopt;
    return it->second.bundleID;
}

std::optional<LearnedMap> afterPick(const LearnedMap& selections, const PinMap& pins, const std::string& q,
                                    const std::string& bundleID,
                                    const std::optional<std::string>& staticBundleForLetter, double now) {
    if (q.empty() || bundleID.empty()) return std::nullopt;
    if (pins.count(q)) return std::nullopt;
    if (queryLength(q) == 1 && staticBundleForLetter && *staticBundleForLetter == bundleID)
        return std::nullopt;
    LearnedMap out = selections;
    auto it = out.find(q);
    if (it == out.end()) {
        out[q] = SearchSelection{bundleID, 1, now};
    } else if (it->second.bundleID == bundleID) {
        ++it->second.count;
        it->second.lastPickedAt = now;
    } else {
        // Another app takes the query over with half the strength the old one had.
        it->second = SearchSelection{bundleID, std::max(it->second.count / 2, 1), now};
    }
    return out;
}

LearnedMap withoutStale(const LearnedMap& selections, double now) {
    LearnedMap out;
    for (const auto& [q, s] : selections)
        if (!isStale(s, now)) out.emplace(q, s);
    return out;
}

std::size_t staleCount(const LearnedMap& selections, double now) {
    return static_cast<std::size_t>(std::count_if(selections.begin(), selections.end(),
                                                  [&](const auto& e) { return isStale(e.second, now); }));
}

}  // namespace zelk::search
