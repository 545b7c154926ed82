#pragma once
#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ferrow {

// JSON text whose nesting is checked while it is parsed: the first array or object deeper than
// `maxDepth` stops the parser at once, so a file of a million '[' costs a few bytes of work, not a
// deep value that would later overflow the stack when it is written back or destroyed.
// On failure `problem` says why in a few words ("nested deeper than 64 levels", "not valid JSON").
std::optional<nlohmann::json> parseJsonBounded(std::string_view text, std::size_t maxDepth,
                                               std::string& problem);

}  // namespace ferrow
