#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "search/MatchText.h"

namespace zelk::search {

// Local alignment score of `query` in `text` (integer Smith-Waterman with boundary, case and run
// bonuses). Either side empty scores 0. Case bonuses and camel-case boundaries use the texts as given,
// so a caller that passes lower-cased text gets neither.
int fuzzyScore(const MatchText& query, const MatchText& text);
int fuzzyScore(std::string_view query, std::string_view text);

// A text seen through where each query character occurs in it, for a caller that indexes its texts
// itself (as the window candidates do, across all titles): per query character the set of the text's
// positions holding it (all-zero words where none, as noPositions()), and the text's boundary and lower-case
// positions, each as `words` 64-bit words, bit j of word j / 64 standing for position j.
struct PositionSets {
    const std::uint64_t* const* rows;
    const std::uint64_t* boundary;
    const std::uint64_t* lowercase;
    std::size_t words;
    std::size_t length;  // characters in the text
};

// Zero words for a query character the text lacks (enough for any text the sparse way takes).
const std::uint64_t* noPositions();

// The most query characters, and the longest text, the sparse way takes (positions and costs then
// stay within 16 bits).
inline constexpr std::size_t kMaxSparseRows = 64;
inline constexpr std::size_t kMaxSparseLength = 4096;

// fuzzyScore of a lower-cased `query` (every character its own lower case) against a text given by
// its position sets, scoring only the matches; nullopt when the query is too long or the matches too
// many for that to pay, and the caller should score the whole text instead.
std::optional<int> fuzzyScoreSparse(std::span<const CharKey> query, const PositionSets& text);

// A row of zeros as long as any text the sparse way takes (the row above the first, in byte rows).
const std::uint8_t* zeroByteRow();

// The alignment's steps: a mismatch, a step right or down, and the bonuses of a match whose case
// agrees and of a match right after the previous query character's.
inline constexpr int kMismatchScore = -4;
inline constexpr int kGapCost = 3;
inline constexpr int kExactCaseBonus = 1;
inline constexpr int kRunBonus = 4;

// The least score that counts as a fuzzy hit for a query of `queryLength` characters.
inline int minScore(std::size_t queryLength) {
    return 3 * static_cast<int>(queryLength > 0 ? queryLength : 1);
}
inline int minScore(const MatchText& query) {
    return minScore(query.size());
}

}  // namespace zelk::search
