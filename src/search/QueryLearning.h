#pragma once
#include <functional>
#include <optional>
#include <string>

#include "config/Settings.h"
#include "search/LearnedQueries.h"

namespace zelk::search {

// What a pin toggle shows in the panel's action flash.
struct PinFlash {
    std::string text;
    std::string symbol;
    double seconds = 0.9;
    bool operator==(const PinFlash&) const = default;
};

// The learned picks and pins as the user changes them: each operation reads the settings, applies
// its rule and stores the result, so every subscriber (letters, chips, the cache file) follows.
class QueryLearning {
  public:
    QueryLearning(Settings& settings, std::function<double()> now)
        : settings_(settings), now_(std::move(now)) {}

    // Runs when a change must reach the cache file at once (a pin that removed a learned entry, a
    // clean-up), not at the next flush. The configuration-file work sets it.
    std::function<void()> writeCacheNow;

    LearnedMap selections() const;
    PinMap pins() const;

    // Learns from a search that ended in an app. False when the pick teaches nothing.
    bool recordPick(const std::string& query, const std::string& bundleID,
                    const std::optional<std::string>& staticBundleForLetter);
    // False for a query under two characters.
    bool pin(const std::string& query, const std::string& bundleID);
    // False when the query wasn't pinned.
    bool unpin(const std::string& query);
    // The pin key and the chip: unpins the query from this app, or pins it. Nothing for a one-letter
    // query. `appName` names the app in the flash.
    std::optional<PinFlash> togglePin(const std::string& query, const std::string& bundleID,
                                      const std::string& appName);
    // How many entries each removed.
    std::size_t forgetStale();
    std::size_t forgetAll();
    // False when the query wasn't learned.
    bool forget(const std::string& query);

    std::optional<std::string> learnedBundleFor(const std::string& query) const;
    double now() const { return now_(); }

  private:
    void storeSelections(const LearnedMap& map, bool writeNow);

    Settings& settings_;
    std::function<double()> now_;
};

}  // namespace zelk::search
