#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace zelk {

// One learned query: the application it leads to, how often it was picked and when last.
struct SearchSelection {
    std::string bundleID;
    int count = 1;              // at least 1
    double lastPickedAt = 0.0;  // seconds since 1970

    bool operator==(const SearchSelection&) const = default;
    nlohmann::json toJson() const;
    // Lenient: a count below 1 reads as 1, a missing time as 0; no bundle id, no record. An array of
    // selections, the older shape of a learned query, reads as its strongest entry.
    static std::optional<SearchSelection> fromJson(const nlohmann::json& json);
};

}  // namespace zelk
