#pragma once
#include "companions/LaunchMonitor.h"
#include "platform/draw/PanelPainter.h"

namespace zelk::draw {

// Draws the launch surface at its frame (global points, as the surface is drawn): one rounded pill
// per launch, in order, each with the app's initial and its text.
void drawLaunchPills(Surface& surface, const companions::LaunchPillsModel& model);

}  // namespace zelk::draw
