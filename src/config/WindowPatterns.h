#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace zelk {

// A regular expression with one capture group, for the windows of one bundle id or bundle id prefix:
// the group's first character is the window's key.
struct WindowKeyPattern {
    std::string id;
    std::string pattern;
    bool operator==(const WindowKeyPattern&) const = default;
    nlohmann::json toJson() const;
    static std::optional<WindowKeyPattern> fromJson(const nlohmann::json& json);
};

// The same for the part of a window title that names it.
struct WindowTitlePattern {
    std::string id;
    std::string pattern;
    bool operator==(const WindowTitlePattern&) const = default;
    nlohmann::json toJson() const;
    static std::optional<WindowTitlePattern> fromJson(const nlohmann::json& json);
};

// Key and title patterns shared by a group of applications. An empty pattern means none.
struct WindowPatternGroup {
    std::string id;
    std::string name;
    std::vector<std::string> bundleIDs;
    std::string keyPattern;
    std::string titlePattern;
    bool operator==(const WindowPatternGroup&) const = default;
    nlohmann::json toJson() const;
    static std::optional<WindowPatternGroup> fromJson(const nlohmann::json& json);
};

// The groups a fresh install starts with: code editors, JetBrains IDEs, Safari, Xcode.
const std::vector<WindowPatternGroup>& defaultWindowPatternGroups();

// Groups that carry older per-application pattern lists: one group per id, with the key and the title
// pattern of that id, in order of first appearance.
std::vector<WindowPatternGroup> groupsFromPatterns(const std::vector<WindowKeyPattern>& keys,
                                                   const std::vector<WindowTitlePattern>& titles);

}  // namespace zelk
