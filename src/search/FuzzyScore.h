#pragma once
#include <string_view>

#include "search/MatchText.h"

namespace zelk::search {

// Local alignment score of `query` in `text` (integer Smith-Waterman with boundary, case and run
// bonuses). Either side empty scores 0. Case bonuses and camel-case boundaries use the texts as given,
// so a caller that passes lower-cased text gets neither.
int fuzzyScore(const MatchText& query, const MatchText& text);
int fuzzyScore(std::string_view query, std::string_view text);

// The least score that counts as a fuzzy hit for a query of `queryLength` characters.
inline int minScore(std::size_t queryLength) {
    return 3 * static_cast<int>(queryLength > 0 ? queryLength : 1);
}
inline int minScore(const MatchText& query) {
    return minScore(query.size());
}

}  // namespace zelk::search
