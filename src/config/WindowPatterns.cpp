#include "config/WindowPatterns.h"

#include <algorithm>

namespace zelk {
namespace {
using nlohmann::json;

std::optional<std::string> stringField(const json& j, const char* name) {
    auto it = j.find(name);
    if (it == j.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

template <typename P>
std::optional<P> patternFromJson(const json& j) {
    if (!j.is_object()) return std::nullopt;
    auto id = stringField(j, "id");
    auto pattern = stringField(j, "pattern");
    if (!id || !pattern) return std::nullopt;
    return P{*id, *pattern};
}
}  // namespace

json WindowKeyPattern::toJson() const {
    return {{"id", id}, {"pattern", pattern}};
}
std::optional<WindowKeyPattern> WindowKeyPattern::fromJson(const json& j) {
    return patternFromJson<WindowKeyPattern>(j);
}
json WindowTitlePattern::toJson() const {
    return {{"id", id}, {"pattern", pattern}};
}
std::optional<WindowTitlePattern> WindowTitlePattern::fromJson(const json& j) {
    return patternFromJson<WindowTitlePattern>(j);
}

json WindowPatternGroup::toJson() const {
    return {{"id", id},
            {"name", name},
            {"bundleIDs", bundleIDs},
            {"keyPattern", keyPattern},
            {"titlePattern", titlePattern}};
}

std::optional<WindowPatternGroup> WindowPatternGroup::fromJson(const json& j) {
    if (!j.is_object()) return std::nullopt;
    auto id = stringField(j, "id");
    if (!id) return std::nullopt;
    WindowPatternGroup g;
    g.id = *id;
    g.name = stringField(j, "name").value_or(*id);
    if (auto it = j.find("bundleIDs"); it != j.end() && it->is_array())
        for (auto& b : *it)
            if (b.is_string()) g.bundleIDs.push_back(b.get<std::string>());
    g.keyPattern = stringField(j, "keyPattern").value_or("");
    g.titlePattern = stringField(j, "titlePattern").value_or("");
    return g;
}

const std::vector<WindowPatternGroup>& defaultWindowPatternGroups() {
    static const std::vector<WindowPatternGroup> groups{
        {"code-editors",
         "Code editor project",
         {"com.microsoft.VSCode", "com.microsoft.VSCodeInsiders", "com.microsoft.VSCodiumInsiders",
          "com.microsoft.VSCod", "com.visualstudio.code", "com.visualstudio.code.oss", "com.sublimetext.4",
          "com.sublimetext.3", "com.sublimetext.2", "com.sublimetext.", "com.todesktop."},
         R"(.* — [^\w\d]*(.))",
         R"(.* — (.+)$)"},
        {"jetbrains", "JetBrains IDEs", {"com.jetbrains."}, "", R"(^(.+?)(?: \[.+\])? [–—] )"},
        {"safari", "Safari", {"com.apple.Safari"}, R"(^.+? — [^\w\d]*(.))", R"(^.+? — (.+)$)"},
        {"xcode", "Xcode", {"com.apple.dt.Xcode"}, "", R"(^(.+?) — )"},
    };
    return groups;
}

std::vector<WindowPatternGroup> groupsFromPatterns(const std::vector<WindowKeyPattern>& keys,
                                                   const std::vector<WindowTitlePattern>& titles) {
    std::vector<WindowPatternGroup> groups;
    auto groupFor = [&](const std::string& id) -> WindowPatternGroup& {
        auto it = std::find_if(groups.begin(), groups.end(), [&](auto& g) { return g.id == id; });
        if (it != groups.end()) return *it;
        groups.push_back({id, id, {id}, "", ""});
        return groups.back();
    };
    for (auto& k : keys)
        groupFor(k.id).keyPattern = k.pattern;
    for (auto& t : titles)
        groupFor(t.id).titlePattern = t.pattern;
    return groups;
}

}  // namespace zelk
