#pragma once
#include <cstddef>
#include <string>
#include <string_view>

namespace zelk::command {

// Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view text);
// The text with every ill-formed sequence replaced by U+FFFD (one per maximal bad subpart).
std::string repairUtf8(std::string_view text);
// The deepest nesting of arrays and objects in JSON text, counting brackets outside strings only.
// A cheap guard run before parsing so that hostile input can't exhaust the stack.
std::size_t jsonNestingDepth(std::string_view text);

}  // namespace zelk::command
