#include "search/QueryLearning.h"

#include "config/SettingsCatalogue.h"
#include "search/Graphemes.h"
#include "support/Log.h"

namespace zelk::search {

LearnedMap SettingsLearnedStore::selections() const {
    return settings_.get(keys::searchQueryAppSelections);
}

void SettingsLearnedStore::setSelections(const LearnedMap& map) {
    settings_.set(keys::searchQueryAppSelections, map);
}

PinMap SettingsLearnedStore::pins() const {
    return settings_.get(keys::searchQueryPins);
}

void SettingsLearnedStore::setPins(const PinMap& map) {
    settings_.set(keys::searchQueryPins, map);
}

LearnedMap QueryLearning::selections() const {
    return store_->selections();
}

PinMap QueryLearning::pins() const {
    return store_->pins();
}

void QueryLearning::storeSelections(const LearnedMap& map, bool writeNow) {
    store_->setSelections(map);
    if (writeNow && writeCacheNow) writeCacheNow();
}

bool QueryLearning::recordPick(const std::string& query, const std::string& bundleID,
                               const std::optional<std::string>& staticBundleForLetter) {
    const std::string q = lowercased(query);
    auto next = afterPick(selections(), pins(), q, bundleID, staticBundleForLetter, now());
    if (!next) return false;
    const auto& s = next->at(q);
    ferrow::Log::info("recordPick: \"{}\" -> {} count={}", q, s.bundleID, s.count);
    storeSelections(*next, false);
    return true;
}

bool QueryLearning::pin(const std::string& query, const std::string& bundleID) {
    const std::string q = lowercased(query);
    if (queryLength(q) < kMinimumPinLength || bundleID.empty()) return false;
    // A pin replaces what was learned for the query, and the file hears of it before the pin lands.
    auto learned = selections();
    if (learned.erase(q)) storeSelections(learned, true);
    auto all = pins();
    all[q] = bundleID;
    store_->setPins(all);
    return true;
}

bool QueryLearning::unpin(const std::string& query) {
    auto all = pins();
    if (!all.erase(lowercased(query))) return false;
    store_->setPins(all);
    return true;
}

std::optional<PinFlash> QueryLearning::togglePin(const std::string& query, const std::string& bundleID,
                                                 const std::string& appName) {
    const std::string q = lowercased(query);
    if (queryLength(q) < kMinimumPinLength) return std::nullopt;
    auto all = pins();
    if (auto it = all.find(q); it != all.end() && it->second == bundleID) {
        unpin(q);
        return PinFlash{"Unpinned \"" + q + "\"", "pin.slash"};
    }
    pin(q, bundleID);
    return PinFlash{"Pinned \"" + q + "\" to " + (appName.empty() ? bundleID : appName), "pin.circle.fill"};
}

std::size_t QueryLearning::forgetStale() {
    const auto all = selections();
    const auto kept = withoutStale(all, now());
    storeSelections(kept, true);
    return all.size() - kept.size();
}

std::size_t QueryLearning::forgetAll() {
    const std::size_t n = selections().size();
    storeSelections({}, true);
    return n;
}

bool QueryLearning::forget(const std::string& query) {
    auto all = selections();
    if (!all.erase(lowercased(query))) return false;
    storeSelections(all, true);
    return true;
}

std::optional<std::string> QueryLearning::learnedBundleFor(const std::string& query) const {
    return search::learnedBundleFor(selections(), pins(), query, now());
}

}  // namespace zelk::search
