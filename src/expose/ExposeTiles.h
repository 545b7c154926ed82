#pragma once
#include <cstdint>
#include <vector>

#include "platform/Geometry.h"

// The overview's tiles: how large one window is drawn at a given scale. Points in the overlay's own
// space, y growing downward.
namespace zelk::expose {

struct Item {
    std::uint32_t id = 0;  // window number
    double aspect = 0;     // width / height
    Rect frame;            // the window on its display; may be empty or unusable
};

struct Placed {
    std::uint32_t id = 0;
    Rect frame;  // tile
    bool operator==(const Placed&) const = default;
};

inline constexpr double kMinAspect = 0.28;
inline constexpr double kMaxAspect = 3.8;
inline constexpr double kReferenceHeight = 620;
inline constexpr double kUnknownWidth = 930;
inline constexpr double kSmallestUsableSide = 40;
inline constexpr double kMinTileSide = 90;

// A frame is usable when its sides are finite and at least 40.
bool isUsable(const Rect& frame);
// The size a window is drawn at scale 1: its own size when usable, else one made from its aspect.
Size baseSize(const Item& item);
// The scale at which the items' base areas fill `fill` of `rect`; 0.2 when there is nothing to fill.
double fillScale(const std::vector<Item>& items, const Rect& rect, double fill);
// One tile at scale `s` inside `rect`: at least 90 on its longer side, then held to the rect.
Size tileSize(const Item& item, double s, const Rect& rect);

// Small rectangle helpers.
Rect unionOf(const Rect& a, const Rect& b);
Rect centredRect(Point centre, Size size);
bool isFinite(const Rect& r);

}  // namespace zelk::expose
