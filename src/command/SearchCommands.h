#pragma once
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "command/CommandDispatcher.h"
#include "command/ManagerCommands.h"

namespace zelk::search {
class QueryLearning;
}

namespace zelk::command {

// What the search commands need from the running search. Registered only when all are set.
struct SearchProviders {
    // The rows of a query, ranked, with their reasons.
    std::function<std::vector<ZelkSearchResult>(const std::string& query, bool windowsOnly)> search;
    // The app a request names: `bundleID` exactly, else `appQuery` by name; for a pin or a pick with
    // neither, the app the query leads to.
    std::function<std::optional<AppTarget>(const ZelkRequest&)> resolveApp;
    std::function<std::string(const std::string& bundleID)> appName;  // empty when unknown
    std::function<search::QueryLearning&()> learning;
    std::function<std::optional<std::string>(const std::string& letter)> staticBundleFor;
};

void registerSearchCommands(CommandDispatcher& dispatcher, const SearchProviders& providers);

}  // namespace zelk::command
