#pragma once
#include <optional>
#include <vector>

#include "expose/ExposeTiles.h"

// Tiles for one area: a grid, a display's real arrangement, rows, and the minis of a Spaces-bar cell.
namespace zelk::expose {

// Fallback grid: ceil(sqrt(n)) columns, each tile the largest rectangle of the item's aspect in its
// cell inset by 5.
std::vector<Placed> gridArrange(const std::vector<Item>& items, const Rect& target);

// The windows where they stand on their display, scaled into `target`, each at least `minSide` and at
// most `maxFraction` of the target, then separated and kept inside.
std::vector<Placed> spatialArrange(const std::vector<Item>& items, const Rect& sourceBounds,
                                   const Rect& target, double minSide, double maxFraction);

struct RowPacking {
    std::vector<Placed> placed;  // relative to the content's top left
    double width = 0;            // the widest row
    double height = 0;           // rows with their captions and gaps
};

// Tiles at scale `s` (sized within `rect`) in rows no wider than `maxRowWidth`, each row centred,
// tiles bottom-aligned in a row so that their captions share a line.
RowPacking rowPack(const std::vector<Item>& items, double s, const Rect& rect, double maxRowWidth, double gap,
                   double captionHeight);

// The thumbnails inside one Spaces-bar cell, its caption kept clear below them.
std::vector<Placed> spacesBarMinis(const std::vector<Item>& items, const Rect& cell,
                                   const std::optional<Rect>& sourceBounds, double captionHeight);

}  // namespace zelk::expose
