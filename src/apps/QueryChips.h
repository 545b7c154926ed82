#pragma once
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/SearchSelection.h"

namespace zelk::apps {

// A learned or pinned query shown next to an app.
struct AppQueryChip {
    std::string query;
    bool pinned = false;
    int count = 0;
    std::optional<double> lastPickedAt;  // seconds since 1970
    bool operator==(const AppQueryChip&) const = default;
};

using QueryChips = std::map<std::string, std::vector<AppQueryChip>>;  // by bundle identifier

// Pins first, then more picks, then the later pick, then the query.
QueryChips queryChipsByBundleID(const std::map<std::string, std::string>& pins,
                                const std::map<std::string, SearchSelection>& selections);

// First letters that may still grow into a learned query: every pin's, and those of learned queries
// of two or three characters.
std::set<std::string> ambiguatingQueryLetters(const std::map<std::string, std::string>& pins,
                                              const std::map<std::string, SearchSelection>& selections);

}  // namespace zelk::apps
