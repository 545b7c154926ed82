#pragma once
#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ferrow {

// The one YAML reader of the program: world files, replay scripts and the configuration file all go
// through parseYaml(). It reads libyaml's events one at a time and builds the JSON value itself, so
// every bound holds while parsing, before anything large is built:
// - the text is at most `maxBytes` long (checked before libyaml sees it);
// - sequences and mappings nest at most `maxDepth` deep (the first level too deep fails at once);
// - at most `maxNodes` values are built, where an alias counts every value it copies, and the
//   scalars built hold at most `maxTextBytes` bytes in all (so alias bombs fail early and small);
// - the stream holds one document (an empty stream is null);
// - mapping keys are scalars, and a key appears once per mapping.
// Plain scalars resolve as YAML 1.2 core types (null, booleans, integers, floats); quoted scalars and
// scalars tagged `!!str` are strings. Anchors, aliases and merge keys (`<<`) resolve.
struct YamlLimits {
    std::size_t maxBytes = 16u * 1024 * 1024;
    std::size_t maxDepth = 100;
    std::size_t maxNodes = 1'000'000;
    std::size_t maxTextBytes = 64u * 1024 * 1024;
};

struct YamlError {
    std::string message;
    std::size_t line = 0;  // 1-based; 0 when the error has no place (the text is too long)
    std::size_t column = 0;
    // "line 3, column 7: duplicate key 'id'", or the message alone when there is no place.
    std::string describe() const;
};

std::optional<nlohmann::json> parseYaml(std::string_view text, YamlError* error = nullptr,
                                        const YamlLimits& limits = {});

// Block-style YAML for a JSON value: keys in the value's order, strings quoted only where needed.
std::string emitYaml(const nlohmann::json& value);

}  // namespace ferrow
