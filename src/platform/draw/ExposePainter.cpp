#include "platform/draw/ExposePainter.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <cmath>

namespace zelk::draw {

namespace {

void rounded(cairo_t* cr, const Rect& r, double radius) {
    const double deg = M_PI / 180;
    radius = std::min({radius, r.width / 2, r.height / 2});
    cairo_new_sub_path(cr);
    cairo_arc(cr, r.maxX() - radius, r.y + radius, radius, -90 * deg, 0);
    cairo_arc(cr, r.maxX() - radius, r.maxY() - radius, radius, 0, 90 * deg);
    cairo_arc(cr, r.x + radius, r.maxY() - radius, radius, 90 * deg, 180 * deg);
    cairo_arc(cr, r.x + radius, r.y + radius, radius, 180 * deg, 270 * deg);
    cairo_close_path(cr);
}

// One line of text, its left edge at x and centred on y, cut with an ellipsis past `maxWidth`.
void text(cairo_t* cr, const std::string& s, double x, double y, double size, bool bold, double maxWidth,
          double alpha = 1) {
    if (s.empty()) return;
    PangoLayout* layout = pango_cairo_create_layout(cr);
    PangoFontDescription* font = pango_font_description_from_string(bold ? "Sans Bold" : "Sans");
    pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
    pango_layout_set_font_description(layout, font);
    pango_layout_set_text(layout, s.c_str(), -1);
    if (maxWidth > 0) {
        pango_layout_set_width(layout, static_cast<int>(maxWidth * PANGO_SCALE));
        pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
    }
    int w = 0, h = 0;
    pango_layout_get_pixel_size(layout, &w, &h);
    cairo_set_source_rgba(cr, 1, 1, 1, alpha);
    cairo_move_to(cr, x, y - h / 2.0);
    pango_cairo_show_layout(cr, layout);
    pango_font_description_free(font);
    g_object_unref(layout);
}

void drawPicture(cairo_t* cr, const OverviewPicture::Tile& t) {
    cairo_surface_t* image =
        cairo_image_surface_create_for_data(const_cast<unsigned char*>(t.pixels->data()), CAIRO_FORMAT_ARGB32,
                                            t.pixelWidth, t.pixelHeight, t.bytesPerRow);
    cairo_save(cr);
    rounded(cr, t.frame, 8);
    cairo_clip(cr);
    cairo_translate(cr, t.frame.x, t.frame.y);
    cairo_scale(cr, t.frame.width / t.pixelWidth, t.frame.height / t.pixelHeight);
    cairo_set_source_surface(cr, image, 0, 0);
    cairo_paint(cr);
    cairo_restore(cr);
    cairo_surface_destroy(image);
}

bool hasPicture(const OverviewPicture::Tile& t) {
    return t.pixels && t.pixelWidth > 0 && t.pixelHeight > 0 && t.bytesPerRow >= t.pixelWidth * 4 &&
           t.pixels->size() >=
               static_cast<std::size_t>(t.bytesPerRow) * static_cast<std::size_t>(t.pixelHeight);
}

void drawTile(cairo_t* cr, const OverviewPicture::Tile& t) {
    const double alpha = t.dimmed ? 0.55 : 1;
    if (hasPicture(t)) {
        drawPicture(cr, t);
    } else {
        // The placeholder: the window's chrome with its app and title.
        rounded(cr, t.frame, 8);
        cairo_set_source_rgba(cr, 0.93, 0.93, 0.95, alpha);
        cairo_fill(cr);
        rounded(cr, {t.frame.x, t.frame.y, t.frame.width, std::min(22.0, t.frame.height)}, 8);
        cairo_set_source_rgba(cr, 0.82, 0.84, 0.88, alpha);
        cairo_fill(cr);
        cairo_save(cr);
        const double size = std::clamp(t.frame.height * 0.22, 10.0, 40.0);
        text(cr, t.app.empty() ? "?" : t.app.substr(0, 1), t.frame.midX() - size * 0.3, t.frame.midY(), size,
             true, 0, 0.35);
        cairo_restore(cr);
    }
    rounded(cr, t.frame, 8);
    if (t.selected) {
        cairo_set_source_rgba(cr, 0.28, 0.56, 1, 1);
        cairo_set_line_width(cr, 4);
    } else {
        cairo_set_source_rgba(cr, 1, 1, 1, 0.25);
        cairo_set_line_width(cr, 1);
    }
    cairo_stroke(cr);
    text(cr, t.title, t.frame.x + 4, t.frame.maxY() + 10, 11, t.selected, t.frame.width - 8, alpha);
}

void drawScreen(cairo_t* cr, const OverviewPicture::Screen& s) {
    cairo_rectangle(cr, s.frame.x, s.frame.y, s.frame.width, s.frame.height);
    cairo_set_source_rgba(cr, 0.05, 0.06, 0.08, 0.82);
    cairo_fill(cr);
    for (const auto& cell : s.bar) {
        rounded(cr, cell.frame, 6);
        cairo_set_source_rgba(cr, 1, 1, 1, cell.active ? 0.22 : 0.1);
        cairo_fill(cr);
        for (const auto& m : cell.minis) {
            cairo_rectangle(cr, m.x, m.y, m.width, m.height);
            cairo_set_source_rgba(cr, 0.9, 0.9, 0.95, 0.6);
            cairo_fill(cr);
        }
        text(cr, cell.title, cell.frame.x + 6, cell.frame.maxY() - 7, 10, cell.active, cell.frame.width - 12);
    }
    for (const auto& l : s.labels) {
        double x = l.frame.x + 4;
        if (!l.keycap.empty()) {
            rounded(cr, {x, l.frame.midY() - 10, 20, 20}, 4);
            cairo_set_source_rgba(cr, 1, 1, 1, 0.2);
            cairo_fill(cr);
            text(cr, l.keycap, x + 6, l.frame.midY(), 12, true, 0);
            x += 28;
        }
        text(cr, l.text, x, l.frame.midY(), 13, true, l.frame.width - (x - l.frame.x));
    }
    for (const auto& t : s.tiles)
        drawTile(cr, t);
    if (s.tiles.empty() && !s.empty.empty())
        text(cr, s.empty, s.frame.midX() - 90, s.frame.midY(), 16, false, 0, 0.7);
}

}  // namespace

void drawOverview(Surface& surface, const OverviewPicture& picture, double scale, Point origin) {
    cairo_t* cr = surface.context();
    cairo_save(cr);
    cairo_scale(cr, scale, scale);
    cairo_translate(cr, -origin.x, -origin.y);
    cairo_push_group(cr);
    for (const auto& s : picture.screens) {
        drawScreen(cr, s);
        const std::string bottom = !picture.banner.empty() ? picture.banner : picture.notice;
        if (!bottom.empty()) {
            const Rect pill{s.frame.midX() - 180, s.frame.maxY() - 60, 360, 32};
            rounded(cr, pill, 16);
            cairo_set_source_rgba(cr, 0.15, 0.16, 0.2, 0.95);
            cairo_fill(cr);
            text(cr, bottom, pill.x + 16, pill.midY(), 13, false, pill.width - 32);
        }
    }
    cairo_pop_group_to_source(cr);
    cairo_paint_with_alpha(cr, std::clamp(picture.opacity, 0.0, 1.0));
    cairo_restore(cr);
}

}  // namespace zelk::draw
