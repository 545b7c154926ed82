#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/SearchOptions.h"
#include "search/MatchText.h"

namespace zelk::search {

// What the matcher needs of one application, segmented once and cached by the caller with its
// candidate list.
struct AppCandidate {
    std::string identifier;
    MatchText originalName;
    MatchText lowercasedName;
    bool isRunning = false;
    double usageScore = 0;
    // The lower-cased keys of the name's acronym, and a hash of the identifier (repeats are told apart
    // by it before their identifiers are compared): worked out once, read on every keystroke.
    std::vector<CharKey> acronymKeys;
    std::size_t identifierHash = 0;
    // The name's anchors, worked out at the first query under a set of optional prefixes and kept
    // until the set changes (`anchorsFor` tells which set).
    mutable std::vector<std::size_t> anchors;
    mutable std::size_t anchorsFor = 0;
    // The keyBit of the lower-cased character at each anchor, kept with them: an app none of whose
    // anchors holds the query's first character is passed over without reading its name.
    mutable std::uint64_t anchorKeyMask = 0;

    static AppCandidate make(std::string identifier, std::string_view originalName, std::string_view name,
                             bool isRunning, double usageScore);
};

struct AppMatch {
    std::size_t index = 0;  // into the candidate list
    int score = 0;          // fuzzy score plus acronym bonus (anchored mode only)
    bool isPrefix = false;  // the lower-cased name begins with the query
    bool operator==(const AppMatch&) const = default;
};

// The applications that answer to the lower-cased query `q`, best first, each identifier once.
std::vector<AppMatch> matchApps(const std::vector<AppCandidate>& apps, std::string_view q,
                                SearchMatchMode mode, const std::vector<std::string>& optionalPrefixes);

}  // namespace zelk::search
