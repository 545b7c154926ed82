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

// One row of the alignment table of a lower-cased query against a text indexed as a candidate list
// indexes it, as bytes (one per text position, in `vectors` blocks of 16): the row of a query
// character from the row above it. `hitBase` holds each position's match score before the run bonus
// (position, boundary and case bonuses); `positions` the text's positions holding the row's
// character and `previous` those holding the character before it (noPositions() for the first row),
// 64 to a word. Bytes saturate, so the caller stops using rows once a row's best passes
// kMaxByteRowValue and scores that text whole. Answers the row's best value.
inline constexpr unsigned kMaxByteRowValue = 255 - 24;
// A row whose values are all at most this fades out in one row: the row below it is zero where it has
// no match.
inline constexpr unsigned kFadingRowValue = 3;
unsigned alignByteRow(const std::uint8_t* hitBase, const std::uint64_t* positions,
                      const std::uint64_t* previous, std::size_t vectors, const std::uint8_t* above,
                      std::uint8_t* row);
// A row of zeros as long as any text a candidate list indexes (the row above the first).
const std::uint8_t* zeroByteRow();
// The positions one byte row takes, rounded up to its blocks of 16.
inline std::size_t byteRowVectors(std::size_t length) {
    return (length + 15) / 16;
}

// The least score that counts as a fuzzy hit for a query of `queryLength` characters.
inline int minScore(std::size_t queryLength) {
    return 3 * static_cast<int>(queryLength > 0 ? queryLength : 1);
}
inline int minScore(const MatchText& query) {
    return minScore(query.size());
}

}  // namespace zelk::search
