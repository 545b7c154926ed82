#include "platform/draw/StageToastPainter.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <glib.h>

#include "platform/draw/DrawText.h"

namespace zelk::draw {

namespace {

// The title as Pango markup: its bold runs in <b>, every run escaped.
std::string titleMarkup(const std::string& title) {
    std::string markup;
    for (const auto& span : stages::toastSpans(title)) {
        gchar* escaped = g_markup_escape_text(span.text.c_str(), -1);
        markup += span.bold ? "<b>" + std::string(escaped) + "</b>" : std::string(escaped);
        g_free(escaped);
    }
    return markup;
}

void markupInBox(cairo_t* cr, const std::string& markup, Rect box, double size, Colour colour) {
    PangoLayout* layout = fixedTextLayout(cr, size, false);  // the markup sets its own weight
    pango_layout_set_markup(layout, markup.c_str(), -1);
    pango_layout_set_width(layout, int(box.width * PANGO_SCALE));
    pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
    pango_layout_set_alignment(layout, PANGO_ALIGN_CENTER);
    int w = 0, h = 0;
    pango_layout_get_pixel_size(layout, &w, &h);
    fillColour(cr, colour);
    cairo_move_to(cr, box.x, box.y + (box.height - h) / 2);
    pango_cairo_show_layout(cr, layout);
    g_object_unref(layout);
}

}  // namespace

void drawStageToast(Surface& surface, const stages::StageToastModel& model) {
    if (!model.visible) return;
    cairo_t* cr = surface.context();
    cairo_save(cr);
    const Rect card = model.frame;
    roundedPath(cr, card, 14);
    fillColour(cr, {0.1, 0.1, 0.12, 0.9});
    cairo_fill(cr);
    // A thin accent at the left edge says "stage" at a glance.
    roundedPath(cr, {card.x + 10, card.y + 14, 4, card.height - 28}, 2);
    fillColour(cr, {0.95, 0.65, 0.25, 1});
    cairo_fill(cr);
    const double inset = 24;
    Rect titleBox{card.x + inset, card.y + 8, card.width - 2 * inset, card.height / 2 - 6};
    Rect lineBox{card.x + inset, card.y + card.height / 2, card.width - 2 * inset, card.height / 2 - 8};
    markupInBox(cr, titleMarkup(model.title), titleBox, 14, {0.97, 0.97, 0.98, 1});
    textInBox(cr, model.line, lineBox, 11.5, false, {0.78, 0.78, 0.82, 1}, true);
    cairo_restore(cr);
}

}  // namespace zelk::draw
