#pragma once
#include <string>
#include <unordered_map>
#include <vector>

#include "apps/AppKeyAssignment.h"

namespace zelk::apps {

// The user's static assignments and their three indexes. Every index is unique by last: of two
// assignments on the same index key, the later one in the list wins.
class StaticAssignments {
  public:
    const std::vector<AppKeyAssignment>& all() const { return list_; }
    // Replaces the list and rebuilds the indexes.
    void setAll(std::vector<AppKeyAssignment> list);
    void rebuildIndexes();

    const AppKeyAssignment* byKey(const std::string& key) const;
    const AppKeyAssignment* byID(const std::string& id) const;
    const AppKeyAssignment* byBundleIdentifier(const std::string& bundleIdentifier) const;
    bool hasStaticKey(const std::string& bundleIdentifier) const {
        return byBundleIdentifier(bundleIdentifier) != nullptr;
    }
    std::vector<std::string> keys() const;

    // Binds `app` to `key`, replacing whatever had the key; returns the new record.
    AppKeyAssignment assign(const AppRef& app, const std::string& key);
    // Moves `record` to `newKey`: every entry of its app becomes it under the new key, another app's
    // entry under the new key goes. Returns the stored record.
    AppKeyAssignment rebound(const AppKeyAssignment& record, const std::string& newKey);

  private:
    const AppKeyAssignment* find(const std::unordered_map<std::string, std::size_t>& index,
                                 const std::string& key) const;
    std::vector<AppKeyAssignment> list_;
    std::unordered_map<std::string, std::size_t> byKey_, byID_, byBundle_;
};

}  // namespace zelk::apps
