#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "config/SearchSelection.h"

namespace zelk::search {

using LearnedMap = std::map<std::string, SearchSelection>;  // by lower-cased query
using PinMap = std::map<std::string, std::string>;          // lower-cased query to bundle id

// The limits of learned picks: a younger entry is fresh; an entry this strong applies at any age and
// rank; a pin needs at least this many characters (one letter is a key's business).
inline constexpr double kFreshnessSeconds = 259'200;  // 3 days
inline constexpr int kStrongCount = 3;
inline constexpr std::size_t kMinimumPinLength = 2;

inline bool isFresh(const SearchSelection& s, double now) {
    return now - s.lastPickedAt < kFreshnessSeconds;
}
inline bool isStrong(const SearchSelection& s) {
    return s.count >= kStrongCount;
}
// Old and weak: what forgetStale removes.
inline bool isStale(const SearchSelection& s, double now) {
    return !isFresh(s, now) && !isStrong(s);
}

// Characters (grapheme clusters) in a query.
std::size_t queryLength(std::string_view query);

// The learned entry that ranks a whole query: fresh or strong, and only when the query is not pinned.
std::optional<SearchSelection> applicableSelection(const LearnedMap& selections, const PinMap& pins,
                                                   const std::string& q, double now);

// The app a query reaches by a pin (two characters or more) or a learned entry. A one-letter query is a
// letter binding, where only a fresh entry counts, whatever its count.
std::optional<std::string> learnedBundleFor(const LearnedMap& selections, const PinMap& pins,
                                            std::string_view query, double now);

// The map after one pick of `bundleID` for the lower-cased query `q`, or nullopt when the pick
// teaches nothing: an empty or pinned query, or a one-letter query whose static key already reaches
// this app (`staticBundleForLetter`, the first static assignment of that letter).
std::optional<LearnedMap> afterPick(const LearnedMap& selections, const PinMap& pins, const std::string& q,
                                    const std::string& bundleID,
                                    const std::optional<std::string>& staticBundleForLetter, double now);

LearnedMap withoutStale(const LearnedMap& selections, double now);
std::size_t staleCount(const LearnedMap& selections, double now);

}  // namespace zelk::search
