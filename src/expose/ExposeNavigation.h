#pragma once
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Geometry.h"

// Keyboard geometry of the overview: where a letter sits on a keyboard, and which tile an arrow reaches.
namespace zelk::expose {

// Position of a letter or digit on a keyboard, both coordinates 0 to 1; nothing for other characters.
std::optional<Point> keyboardPosition(std::string_view letter);

enum class Direction { left, right, up, down };

// The frame an arrow key moves to from `from`: ahead of it by more than a point, scored by distance
// ahead plus 2.6 times the distance across; the first of equal scores wins.
std::optional<std::uint32_t> neighbour(std::uint32_t from, Direction direction,
                                       const std::vector<std::pair<std::uint32_t, Rect>>& frames);

}  // namespace zelk::expose
