#pragma once
#include <functional>
#include <memory>
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

// Where learned picks and pins are kept. The settings store holds them (the live truth every
// subscriber follows); a store of another kind can stand in, as long as each write is whole.
class LearnedStore {
  public:
    virtual ~LearnedStore() = default;
    virtual LearnedMap selections() const = 0;
    virtual void setSelections(const LearnedMap& map) = 0;
    virtual PinMap pins() const = 0;
    virtual void setPins(const PinMap& map) = 0;
};

// The settings store's keys `searchQueryAppSelections` and `searchQueryPins`.
class SettingsLearnedStore final : public LearnedStore {
  public:
    explicit SettingsLearnedStore(Settings& settings) : settings_(settings) {}
    LearnedMap selections() const override;
    void setSelections(const LearnedMap& map) override;
    PinMap pins() const override;
    void setPins(const PinMap& map) override;

  private:
    Settings& settings_;
};

// The learned picks and pins as the user changes them: each operation reads the settings, applies
// its rule and stores the result, so every subscriber (letters, chips, the cache file) follows.
class QueryLearning {
  public:
    QueryLearning(std::shared_ptr<LearnedStore> store, std::function<double()> now)
        : store_(std::move(store)), now_(std::move(now)) {}
    QueryLearning(Settings& settings, std::function<double()> now)
        : QueryLearning(std::make_shared<SettingsLearnedStore>(settings), std::move(now)) {}

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

    std::shared_ptr<LearnedStore> store_;
    std::function<double()> now_;
};

}  // namespace zelk::search
