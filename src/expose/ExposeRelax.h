#pragma once
#include <optional>
#include <vector>

#include "platform/Geometry.h"

// Pushing overlapping rectangles apart, always within fixed pass counts: the bounded passes are what
// keep a relayout cheap, so none of these loops runs to convergence.
namespace zelk::expose {

// Pushes pairs apart until each overlaps the other by no more than `allowed` of the smaller side, for
// at most `passes` passes. Returns the passes run.
int separate(std::vector<Rect>& frames, int passes, double allowed);

// One pass pushing pairs that come closer than `margin`. Returns whether anything moved.
bool spread(std::vector<Rect>& frames, double margin);

// Keeps `frame` inside `rect` (centred on an axis where it is larger). Returns whether it moved by more
// than half a point.
bool clampInto(Rect& frame, const Rect& rect);

struct RelaxPasses {
    int passes = 0;  // spread, pull and clamp passes run
    int settle = 0;  // spread and clamp passes run after them
};

// Spreads the frames with `margin`, pulls them towards `anchors` (one per frame) by `pull` of the
// distance, and clamps them into `rect`, for at most `passes` passes; then, with anchors, at most 20
// passes of spreading and clamping. A pass counts as moving when a pair was pushed or a frame shifted
// by more than half a point.
RelaxPasses relax(std::vector<Rect>& frames, const std::optional<std::vector<Point>>& anchors, int passes,
                  const Rect& rect, double margin, double pull);

}  // namespace zelk::expose
