#include "platform/draw/SpacesIndicatorPainter.h"

#include <cairo.h>

#include "platform/draw/DrawText.h"

namespace zelk::draw {

namespace {
using G = spaces::IndicatorGeometry;
constexpr Colour kInk{0.1, 0.1, 0.12, 1};
constexpr Colour kStageInk{0.16, 0.36, 0.75, 1};
constexpr Colour kOnFill{0.97, 0.97, 0.98, 1};
}  // namespace

Point spacesIndicatorOrigin(const spaces::SpacesIndicatorModel& model, const Rect& display,
                            double menuBarHeight) {
    auto layout = spaces::layoutIndicator(model.cells, model.showIcon);
    return {display.maxX() - 12 - layout.width, display.y + (menuBarHeight - G::kImageHeight) / 2};
}

void drawSpacesIndicator(Surface& surface, const spaces::SpacesIndicatorModel& model, Point origin) {
    if (!model.enabled) return;
    cairo_t* cr = surface.context();
    auto layout = spaces::layoutIndicator(model.cells, model.showIcon);
    cairo_save(cr);
    cairo_translate(cr, origin.x, origin.y);
    if (layout.icon) {
        // The program's mark: a keycap with a "z".
        Rect icon = *layout.icon;
        roundedPath(cr, {icon.x + 1, icon.y + 1, icon.width - 2, icon.height - 2}, 4);
        fillColour(cr, kInk);
        cairo_fill(cr);
        textInBox(cr, "z", icon, 12, true, kOnFill, true);
    }
    for (std::size_t i = 0; i < model.cells.size(); ++i) {
        const auto& cell = model.cells[i];
        Rect r = layout.cells[i];
        // Inset by half the stroke so that it stays inside the cell.
        const double half = G::kStroke / 2;
        Rect inner{r.x + half, r.y + half, r.width - G::kStroke, r.height - G::kStroke};
        const Colour ink = cell.isStage ? kStageInk : kInk;
        roundedPath(cr, inner, G::kCornerRadius);
        fillColour(cr, ink);
        if (cell.isCurrent) {
            cairo_fill(cr);
        } else {
            cairo_set_line_width(cr, G::kStroke);
            cairo_stroke(cr);
        }
        textInBox(cr, cell.text(), r, G::kFontSize * 0.8, true, cell.isCurrent ? kOnFill : ink, true);
    }
    cairo_restore(cr);
}

}  // namespace zelk::draw
