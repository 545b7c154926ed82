#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "apps/AppKeyAssignment.h"
#include "apps/StaticAssignments.h"
#include "config/SearchOptions.h"
#include "config/SearchSelection.h"
#include "platform/Workspace.h"

namespace zelk::apps {

// A running application the program cares about, with its record.
struct RunningEntry {
    platform::RunningApp process;
    AppRef app;
};

// What one derivation reads. Everything is borrowed for the length of the call.
struct DerivationContext {
    const std::vector<RunningEntry>* running = nullptr;  // the relevant running apps
    const std::map<std::string, SearchSelection>* selections = nullptr;
    const std::vector<AppRef>* recentApps = nullptr;  // most recently activated first
    const StaticAssignments* statics = nullptr;
    SearchMatchMode mode = SearchMatchMode::anchored;
    const std::vector<std::string>* optionalPrefixes = nullptr;  // lowercased
    std::uint64_t prefixesStamp = 1;                             // changes whenever the prefixes do
    double now = 0;                                              // seconds since 1970
};

// Relation key -> the other apps a key could mean.
using RelatedApps = std::map<std::string, std::vector<AppRef>>;

// Whether `letter` can reach `app`: at a name anchor in anchored mode, else at the name's start.
bool letterMatches(const DerivationContext& context, const LaunchableApp& app, const std::string& letter);

// Which running app each free key reaches. Keeps the sorted candidates per set of running apps, so
// the 36 letters of a refresh share one sort.
class AssignmentDeriver {
  public:
    static constexpr double kLearnedPickLifetime = 259200;  // 3 days

    // The running app a letter reaches: a fresh learned pick, then the most recently active match,
    // then the best score. Apps whose identifier is in `excludedIDs` are never candidates.
    std::optional<RunningEntry> topRunningApp(const DerivationContext& context, const std::string& letter,
                                              const std::vector<std::string>& excludedIDs,
                                              std::optional<std::string> cacheKey = std::nullopt);
    // The other running apps a letter means, in the order repeated presses should offer them.
    std::vector<AppRef> relatedAppsFor(const DerivationContext& context, const std::string& letter,
                                       const std::vector<std::string>& excludedIDs,
                                       std::optional<std::string> cacheKey = std::nullopt);
    // Dynamic assignments for the keys without a static one, at most `limit`, digits before letters;
    // writes the alternatives of each reachable key into `related`.
    std::vector<AppKeyAssignment> computeDynamicAssignments(const DerivationContext& context, int limit,
                                                            WhenAlreadyFocusedAction action,
                                                            RelatedApps& related);

    // Scores and static keys changed: sorted candidates must be rebuilt.
    void clearCache() {
        cache_.clear();
        learnedFor_ = nullptr;
    }
    std::size_t cacheSize() const { return cache_.size(); }

  private:
    struct Candidate {
        const RunningEntry* entry;
        double score;
        bool hasStatic;
    };
    struct Candidates {
        std::vector<Candidate> sorted;  // score descending
        std::unordered_map<std::string, std::size_t> byIdentifier;
    };
    const Candidates& candidates(const DerivationContext& context,
                                 const std::vector<std::string>& excludedIDs, const std::string& cacheKey);
    std::vector<std::string> learnedOrder(const DerivationContext& context, const std::string& letter);

    // Learned queries, lowercased and in learned order (longer first, then by query), per selections.
    const std::map<std::string, SearchSelection>* learnedFor_ = nullptr;
    std::vector<std::pair<std::string, std::string>> learned_;  // query, bundle
    const std::vector<RunningEntry>* cachedFor_ = nullptr;
    std::unordered_map<std::string, Candidates> cache_;
};

}  // namespace zelk::apps
