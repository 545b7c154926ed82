#pragma once
#include "platform/draw/PanelPainter.h"
#include "stages/StageToast.h"

namespace zelk::draw {

// Draws the stage toast at its frame (global points, as the surface is drawn): a dark rounded card
// with the title, the stage's name in bold, over the second line.
void drawStageToast(Surface& surface, const stages::StageToastModel& model);

}  // namespace zelk::draw
