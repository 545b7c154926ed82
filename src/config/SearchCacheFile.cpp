#include "config/SearchCacheFile.h"

#include <fmt/format.h>

#include <cmath>

#include "support/Yaml.h"

namespace zelk::configfile {

using nlohmann::json;

namespace {
std::string escaped(const std::string& token) {
    std::string out;
    for (char c : token)
        out += c == '~' ? std::string("~0") : c == '/' ? std::string("~1") : std::string(1, c);
    return out;
}
}  // namespace

std::string searchCacheBody(const LearnedSelections& selections) {
    json map = json::object();
    for (auto& [query, s] : selections)
        map[query] = {{"bundleID", s.bundleID},
                      {"count", s.count},
                      {"lastPickedAt", static_cast<std::int64_t>(std::floor(s.lastPickedAt))}};
    return ferrow::emitYaml(json{{"searchQueryAppSelections", map}});
}

std::optional<LearnedSelections> decodeSearchCache(std::string_view text, std::string& error) {
    ferrow::YamlError yamlError;
    ferrow::YamlPlaces places;
    auto doc = ferrow::parseYaml(text, &yamlError, ferrow::YamlLimits{}, &places);
    if (!doc) {
        error = yamlError.describe();
        return std::nullopt;
    }
    auto at = [&](const std::string& pointer, const std::string& message) {
        auto mark = places.find(pointer);
        error = mark.line ? fmt::format("line {}, column {}: {}", mark.line, mark.column, message) : message;
        return std::nullopt;
    };
    LearnedSelections out;
    if (doc->is_null()) return out;
    if (!doc->is_object()) return at("", "expected a mapping with searchQueryAppSelections");
    auto it = doc->find("searchQueryAppSelections");
    if (it == doc->end() || it->is_null()) return out;
    if (!it->is_object())
        return at("/searchQueryAppSelections", "searchQueryAppSelections: expected a mapping");
    for (auto& [query, value] : it->items()) {
        auto selection = SearchSelection::fromJson(value);
        if (!selection)
            return at(
                "/searchQueryAppSelections/" + escaped(query),
                fmt::format("searchQueryAppSelections.{}: expected a learned pick with a bundleID", query));
        out.emplace(query, std::move(*selection));
    }
    return out;
}

}  // namespace zelk::configfile
