#include "platform/draw/AppIcons.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "search/Graphemes.h"

namespace zelk::draw {

namespace {

// FNV-1a: stable across runs and builds, unlike std::hash.
std::uint32_t stableHash(const std::string& text) {
    std::uint32_t h = 2166136261u;
    for (unsigned char c : text)
        h = (h ^ c) * 16777619u;
    return h;
}

struct Colour {
    double r, g, b;
};

// A hue from the hash at a fixed lightness and saturation, so every tile reads equally well.
Colour fromHue(double hue, double saturation, double lightness) {
    const double c = (1 - std::abs(2 * lightness - 1)) * saturation;
    const double h = std::fmod(hue, 360.0) / 60.0;
    const double x = c * (1 - std::abs(std::fmod(h, 2.0) - 1));
    double r = 0, g = 0, b = 0;
    if (h < 1)
        r = c, g = x;
    else if (h < 2)
        r = x, g = c;
    else if (h < 3)
        g = c, b = x;
    else if (h < 4)
        g = x, b = c;
    else if (h < 5)
        r = x, b = c;
    else
        r = c, b = x;
    const double m = lightness - c / 2;
    return {r + m, g + m, b + m};
}

void roundedSquare(cairo_t* cr, Rect box, double radius) {
    const double r = std::min(radius, std::min(box.width, box.height) / 2);
    cairo_new_sub_path(cr);
    cairo_arc(cr, box.maxX() - r, box.y + r, r, -M_PI / 2, 0);
    cairo_arc(cr, box.maxX() - r, box.maxY() - r, r, 0, M_PI / 2);
    cairo_arc(cr, box.x + r, box.maxY() - r, r, M_PI / 2, M_PI);
    cairo_arc(cr, box.x + r, box.y + r, r, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

std::string initialOf(const std::string& name, const std::string& bundleID) {
    const auto characters = search::splitGraphemes(name.empty() ? bundleID : name);
    for (const auto& c : characters)
        if (search::charClass(c) & (search::kLetter | search::kNumber)) return c;
    return characters.empty() ? std::string("?") : characters.front();
}

// Luminance in place of colour, alpha kept (premultiplied pixels stay premultiplied).
void desaturate(cairo_surface_t* image) {
    cairo_surface_flush(image);
    unsigned char* data = cairo_image_surface_get_data(image);
    const int stride = cairo_image_surface_get_stride(image);
    const int width = cairo_image_surface_get_width(image), height = cairo_image_surface_get_height(image);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(data + std::size_t(y) * stride);
        for (int x = 0; x < width; ++x) {
            const std::uint32_t p = row[x];
            const std::uint32_t a = p >> 24, r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
            const std::uint32_t l = (r * 54 + g * 183 + b * 19) >> 8;
            row[x] = a << 24 | l << 16 | l << 8 | l;
        }
    }
    cairo_surface_mark_dirty(image);
}

}  // namespace

bool GeneratedAppIcons::draw(cairo_t* cr, const std::string& bundleID, const std::string& name,
                             Rect box) const {
    const std::uint32_t h = stableHash(bundleID);
    const double hue = h % 360;
    const Colour top = fromHue(hue, 0.62, 0.58), bottom = fromHue(hue + 24 + (h >> 9) % 40, 0.66, 0.42);
    cairo_save(cr);
    roundedSquare(cr, box, box.width * 0.23);
    cairo_pattern_t* g = cairo_pattern_create_linear(box.x, box.y, box.x, box.maxY());
    cairo_pattern_add_color_stop_rgb(g, 0, top.r, top.g, top.b);
    cairo_pattern_add_color_stop_rgb(g, 1, bottom.r, bottom.g, bottom.b);
    cairo_set_source(cr, g);
    cairo_fill(cr);
    cairo_pattern_destroy(g);

    PangoLayout* layout = pango_cairo_create_layout(cr);
    PangoFontDescription* font = pango_font_description_from_string("Sans Bold");
    pango_font_description_set_absolute_size(font, box.height * 0.55 * PANGO_SCALE);
    pango_layout_set_font_description(layout, font);
    std::string initial = initialOf(name, bundleID);
    if (initial.size() == 1 && initial[0] >= 'a' && initial[0] <= 'z')
        initial[0] = char(initial[0] - 'a' + 'A');
    pango_layout_set_text(layout, initial.c_str(), -1);
    int w = 0, hgt = 0;
    pango_layout_get_pixel_size(layout, &w, &hgt);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.95);
    cairo_move_to(cr, box.midX() - w / 2.0, box.midY() - hgt / 2.0);
    pango_cairo_show_layout(cr, layout);
    pango_font_description_free(font);
    g_object_unref(layout);
    cairo_restore(cr);
    return true;
}

const AppIconSource& generatedAppIcons() {
    static const GeneratedAppIcons icons;
    return icons;
}

void drawAppIcon(cairo_t* cr, const AppIconSource& source, const std::string& bundleID,
                 const std::string& name, Rect box, IconStyle style, bool highlighted) {
    cairo_save(cr);
    if (style == IconStyle::roundedRect) {
        roundedSquare(cr, {box.x - 2, box.y - 2, box.width + 4, box.height + 4}, box.width * 0.3);
        cairo_set_source_rgba(cr, 1, 1, 1, 0.12);
        cairo_fill(cr);
        roundedSquare(cr, box, box.width * 0.25);
        cairo_clip(cr);
    }
    const bool grey =
        style == IconStyle::grayscale || (style == IconStyle::grayscaleUntilFocused && !highlighted);
    if (!grey) {
        source.draw(cr, bundleID, name, box);
        cairo_restore(cr);
        return;
    }
    // Drawn apart at twice the size, turned grey, then set in place.
    const int side = std::max(1, static_cast<int>(std::ceil(std::max(box.width, box.height) * 2)));
    cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, side, side);
    cairo_t* icr = cairo_create(image);
    const bool drawn = source.draw(icr, bundleID, name, {0, 0, double(side), double(side)});
    cairo_destroy(icr);
    if (drawn) {
        desaturate(image);
        cairo_translate(cr, box.x, box.y);
        cairo_scale(cr, box.width / side, box.height / side);
        cairo_set_source_surface(cr, image, 0, 0);
        cairo_paint_with_alpha(cr, 0.85);
    }
    cairo_surface_destroy(image);
    cairo_restore(cr);
}

}  // namespace zelk::draw
