#include "apps/StaticAssignments.h"

#include <algorithm>

namespace zelk::apps {

void StaticAssignments::setAll(std::vector<AppKeyAssignment> list) {
    list_ = std::move(list);
    rebuildIndexes();
}

void StaticAssignments::rebuildIndexes() {
    byKey_.clear();
    byID_.clear();
    byBundle_.clear();
    for (std::size_t i = 0; i < list_.size(); ++i) {
        const auto& a = list_[i];
        byKey_[lowercasedKey(a.key)] = i;
        byID_[a.id()] = i;
        if (a.app) byBundle_[a.app->bundleIdentifier()] = i;
    }
}

const AppKeyAssignment* StaticAssignments::find(const std::unordered_map<std::string, std::size_t>& index,
                                                const std::string& key) const {
    auto it = index.find(key);
    return it == index.end() ? nullptr : &list_[it->second];
}

const AppKeyAssignment* StaticAssignments::byKey(const std::string& key) const {
    return find(byKey_, key);
}
const AppKeyAssignment* StaticAssignments::byID(const std::string& id) const {
    return find(byID_, id);
}
const AppKeyAssignment* StaticAssignments::byBundleIdentifier(const std::string& bundleIdentifier) const {
    return find(byBundle_, bundleIdentifier);
}

std::vector<std::string> StaticAssignments::keys() const {
    std::vector<std::string> out;
    for (auto& [k, i] : byKey_)
        out.push_back(k);
    std::sort(out.begin(), out.end());
    return out;
}

AppKeyAssignment StaticAssignments::assign(const AppRef& app, const std::string& key) {
    std::string k = lowercasedKey(key);
    std::erase_if(list_, [&](const AppKeyAssignment& a) { return lowercasedKey(a.key) == k; });
    AppKeyAssignment record;
    record.key = k;
    record.app = app;
    record.index = 0;
    record.whenAlreadyFocusedAction = WhenAlreadyFocusedAction::followGlobal;
    record.launchIfNotRunning = true;
    list_.push_back(record);
    rebuildIndexes();
    return record;
}

AppKeyAssignment StaticAssignments::rebound(const AppKeyAssignment& record, const std::string& newKey) {
    AppKeyAssignment moved = record;
    moved.key = lowercasedKey(newKey);
    const std::string bundle = record.app ? record.app->bundleIdentifier() : std::string();
    std::vector<AppKeyAssignment> rewritten;
    for (const auto& a : list_) {
        bool sameApp = a.app && a.app->bundleIdentifier() == bundle;
        if (sameApp)
            rewritten.push_back(moved);
        else if (lowercasedKey(a.key) != moved.key)
            rewritten.push_back(a);
    }
    list_ = std::move(rewritten);
    rebuildIndexes();
    if (!byID(moved.id())) {
        list_.push_back(moved);
        rebuildIndexes();
    }
    return moved;
}

}  // namespace zelk::apps
