#pragma once
#include <string>
#include <string_view>
#include <unordered_map>

namespace zelk::apps {

// Whether an application at `path` counts at all: bundles nested in frameworks, helpers and
// services don't, a few known places do even so.
bool isAppPathRelevant(std::string_view path);

// The same test, cached per path: it runs for every running app on every refresh.
class PathRelevanceCache {
  public:
    bool operator()(const std::string& path);
    std::size_t size() const { return cache_.size(); }

  private:
    std::unordered_map<std::string, bool> cache_;
};

}  // namespace zelk::apps
