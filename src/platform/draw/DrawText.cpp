#include "platform/draw/DrawText.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

namespace zelk::draw {

void fillColour(cairo_t* cr, Colour c) {
    cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a);
}

void roundedPath(cairo_t* cr, Rect r, double radius) {
    radius = std::max(0.0, std::min({radius, r.width / 2, r.height / 2}));
    const double deg = M_PI / 180;
    cairo_new_sub_path(cr);
    cairo_arc(cr, r.maxX() - radius, r.y + radius, radius, -90 * deg, 0);
    cairo_arc(cr, r.maxX() - radius, r.maxY() - radius, radius, 0, 90 * deg);
    cairo_arc(cr, r.x + radius, r.maxY() - radius, radius, 90 * deg, 180 * deg);
    cairo_arc(cr, r.x + radius, r.y + radius, radius, 180 * deg, 270 * deg);
    cairo_close_path(cr);
}

PangoLayout* fixedTextLayout(cairo_t* cr, double size, bool bold) {
    PangoLayout* layout = pango_cairo_create_layout(cr);
    // The same picture on every machine: fixed hinting and antialiasing.
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(pango_layout_get_context(layout), options);
    cairo_font_options_destroy(options);
    pango_layout_context_changed(layout);
    PangoFontDescription* font = pango_font_description_new();
    pango_font_description_set_family(font, "DejaVu Sans");
    pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
    pango_font_description_set_weight(font, bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_layout_set_font_description(layout, font);
    pango_font_description_free(font);
    return layout;
}

void textInBox(cairo_t* cr, const std::string& text, Rect box, double size, bool bold, Colour colour,
               bool centred) {
    PangoLayout* layout = fixedTextLayout(cr, size, bold);
    pango_layout_set_text(layout, text.c_str(), -1);
    pango_layout_set_width(layout, int(box.width * PANGO_SCALE));
    pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
    pango_layout_set_alignment(layout, centred ? PANGO_ALIGN_CENTER : PANGO_ALIGN_LEFT);
    int w = 0, h = 0;
    pango_layout_get_pixel_size(layout, &w, &h);
    fillColour(cr, colour);
    cairo_move_to(cr, box.x, box.y + (box.height - h) / 2);
    pango_cairo_show_layout(cr, layout);
    g_object_unref(layout);
}

}  // namespace zelk::draw
