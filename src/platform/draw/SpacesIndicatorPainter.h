#pragma once
#include "platform/Geometry.h"
#include "platform/draw/PanelPainter.h"
#include "spaces/SpacesIndicatorModel.h"

namespace zelk::draw {

// Draws the strip of Spaces with its top-left corner at `origin` (the surface's points): the icon
// unless hidden, then each display's cells, the current one filled and the others outlined.
void drawSpacesIndicator(Surface& surface, const spaces::SpacesIndicatorModel& model, Point origin);

// The strip's place in a menu bar: right-aligned, 12 points in from the bar's right end, centred
// vertically in the bar.
Point spacesIndicatorOrigin(const spaces::SpacesIndicatorModel& model, const Rect& display,
                            double menuBarHeight);

}  // namespace zelk::draw
