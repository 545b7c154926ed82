#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "search/MatchText.h"

namespace zelk::search {

// What the window filter needs of one window row; the lower-cased title is segmented once.
struct WindowCandidate {
    std::string title;
    MatchText lowercasedTitle;
    std::string key;  // the row's window key, lower-cased; empty when it has none
    // The title's first 8 bytes, big-endian: orders most titles without comparing strings. Zero (as
    // when left unset) leaves the order to the full comparison.
    std::uint64_t titleSortKey = 0;

    static WindowCandidate make(std::string_view title, std::string_view key);
};

struct WindowMatch {
    std::size_t index = 0;  // into the candidate list
    int score = 0;          // fuzzy score when scored, else 0
    bool operator==(const WindowMatch&) const = default;
};

// The windows whose title answers to the lower-cased query `q`, best first. An empty query keeps every
// window in its order. Without `fuzzy` the title must contain the query; with it, the fuzzy score must
// reach minScore. A window whose key is the query's first character leads when `useKeys` is set.
std::vector<WindowMatch> filterWindows(const std::vector<WindowCandidate>& windows, std::string_view q,
                                       bool fuzzy, bool useKeys);

}  // namespace zelk::search
