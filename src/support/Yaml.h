#pragma once
#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <map>
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

// Where each value of a parsed document starts, by JSON pointer ("/triggers/triggerKeys/0"), so that a
// reader that checks types after parsing can still say where a wrong value stands. Values copied by
// an alias are placed at the alias.
class YamlPlaces {
  public:
    struct Mark {
        std::size_t line = 0;  // 1-based
        std::size_t column = 0;
    };
    void set(std::string pointer, Mark mark) { marks_[std::move(pointer)] = mark; }
    // The place of the value at `pointer`, or of its nearest ancestor that has one.
    Mark find(std::string_view pointer) const;
    std::size_t size() const { return marks_.size(); }

  private:
    std::map<std::string, Mark, std::less<>> marks_;
};

// The same reader, also recording where every value starts.
std::optional<nlohmann::json> parseYaml(std::string_view text, YamlError* error, const YamlLimits& limits,
                                        YamlPlaces* places);

// Block-style YAML for a JSON value: keys in the value's order, strings quoted only where needed.
// Any string another reader could take for something else is quoted: booleans and nulls of every
// YAML version (`y`, `no`, `on`, `~`), and anything that starts like a number (`017`, `1e3`, `.5`,
// `12:30`). Lines never wrap; text outside ASCII is written as it is, and characters a YAML file
// can't hold raw (control characters) are escaped.
std::string emitYaml(const nlohmann::json& value);
// The same with the keys in the order the value was built in.
std::string emitYaml(const nlohmann::ordered_json& value);

}  // namespace ferrow
