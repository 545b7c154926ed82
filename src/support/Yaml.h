#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace ferrow {

// YAML documents as JSON values, through libyaml. Plain scalars resolve as YAML 1.2 core types
// (null, booleans, integers, floats); quoted scalars are always strings. Anchors and aliases resolve.
struct YamlError {
    std::string message;
    std::size_t line = 0;  // 1-based
    std::size_t column = 0;
};

std::optional<nlohmann::json> parseYaml(std::string_view text, YamlError* error = nullptr);
// Every document of a stream (an empty stream gives none).
std::optional<std::vector<nlohmann::json>> parseYamlDocuments(std::string_view text,
                                                              YamlError* error = nullptr);

// Block-style YAML for a JSON value: keys in the value's order, strings quoted only where needed.
std::string emitYaml(const nlohmann::json& value);

}  // namespace ferrow
