#include "platform/draw/LaunchPillPainter.h"

#include <cairo.h>

#include "platform/draw/DrawText.h"

namespace zelk::draw {

namespace {
using companions::LaunchPill;
using G = companions::LaunchPillsGeometry;

Colour accentOf(LaunchPill::Phase phase) {
    switch (phase) {
        case LaunchPill::Phase::launching:
            return {0.35, 0.55, 0.95, 1};
        case LaunchPill::Phase::launched:
            return {0.3, 0.75, 0.45, 1};
        case LaunchPill::Phase::quit:
            return {0.85, 0.35, 0.35, 1};
        case LaunchPill::Phase::slow:
            return {0.95, 0.65, 0.25, 1};
    }
    return {0.5, 0.5, 0.5, 1};
}
}  // namespace

void drawLaunchPills(Surface& surface, const companions::LaunchPillsModel& model) {
    if (!model.visible) return;
    cairo_t* cr = surface.context();
    cairo_save(cr);
    double y = model.frame.y;
    for (const auto& pill : model.pills) {
        Rect row{model.frame.x, y, model.frame.width, G::kRowHeight};
        roundedPath(cr, row, row.height / 2);
        fillColour(cr, {0.12, 0.12, 0.14, 0.88});
        cairo_fill(cr);
        // The icon's stand-in: the app's initial on the phase's colour.
        Rect icon{row.x + 5, row.y + 5, row.height - 10, row.height - 10};
        roundedPath(cr, icon, icon.height / 2);
        fillColour(cr, accentOf(pill.phase));
        cairo_fill(cr);
        textInBox(cr, pill.name.substr(0, 1), icon, 11, true, {1, 1, 1, 1}, true);
        Rect label{icon.maxX() + 8, row.y, row.maxX() - icon.maxX() - 20, row.height};
        textInBox(cr, companions::pillText(pill), label, 12, false, {0.95, 0.95, 0.97, 1}, false);
        y += G::kRowHeight + G::kRowGap;
    }
    cairo_restore(cr);
}

}  // namespace zelk::draw
