#pragma once
#include <optional>
#include <string_view>

namespace zelk::apps {

// The weight of an app's use count in its score. Editors and terminals are reached by letter far more
// often than their use counts say; helpers and agents with a factor of 0 are hidden altogether.
// Returns the table's row, or nothing for an app the table doesn't list.
std::optional<double> appScoreFactorRow(std::string_view bundleIdentifier);
// The row, or 1.0.
double appScoreFactor(std::string_view bundleIdentifier);
// How many rows the table has.
std::size_t appScoreFactorCount();

}  // namespace zelk::apps
