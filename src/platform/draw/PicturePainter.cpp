#include "platform/draw/PicturePainter.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>

namespace zelk::draw {

Rect pictureFrame(Size pixels, Rect rect, PictureFit fit) {
    if (pixels.width <= 0 || pixels.height <= 0 || rect.width <= 0 || rect.height <= 0)
        return {rect.x, rect.y, 0, 0};
    const double sx = rect.width / pixels.width, sy = rect.height / pixels.height;
    const double scale = fit == PictureFit::fit ? std::min(sx, sy) : std::max(sx, sy);
    const double w = pixels.width * scale, h = pixels.height * scale;
    return {rect.x + (rect.width - w) / 2, rect.y + (rect.height - h) / 2, w, h};
}

namespace {

void roundedRect(cairo_t* cr, Rect r, double radius) {
    radius = std::clamp(radius, 0.0, std::min(r.width, r.height) / 2);
    if (radius <= 0) {
        cairo_rectangle(cr, r.x, r.y, r.width, r.height);
        return;
    }
    const double right = r.x + r.width, bottom = r.y + r.height;
    cairo_new_sub_path(cr);
    cairo_arc(cr, right - radius, r.y + radius, radius, -M_PI / 2, 0);
    cairo_arc(cr, right - radius, bottom - radius, radius, 0, M_PI / 2);
    cairo_arc(cr, r.x + radius, bottom - radius, radius, M_PI / 2, M_PI);
    cairo_arc(cr, r.x + radius, r.y + radius, radius, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

}  // namespace

bool paintPicture(cairo_t* cr, const platform::WindowImage& picture, Rect rect, double cornerRadius,
                  PictureFit fit) {
    if (picture.width < 1 || picture.height < 1) return false;
    if (picture.bytesPerRow < static_cast<std::size_t>(picture.width) * 4 || picture.bytesPerRow % 4 != 0 ||
        picture.pixels.size() < picture.bytesPerRow * static_cast<std::size_t>(picture.height))
        return false;
    const Rect frame = pictureFrame({double(picture.width), double(picture.height)}, rect, fit);
    if (frame.width <= 0 || frame.height <= 0) return false;
    // The picture's layout is cairo's premultiplied ARGB32 on a little-endian machine; cairo only reads it.
    cairo_surface_t* source = cairo_image_surface_create_for_data(
        const_cast<unsigned char*>(picture.pixels.data()), CAIRO_FORMAT_ARGB32, picture.width, picture.height,
        static_cast<int>(picture.bytesPerRow));
    if (cairo_surface_status(source) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(source);
        return false;
    }
    cairo_save(cr);
    roundedRect(cr, fit == PictureFit::fit ? frame : rect, cornerRadius);
    cairo_clip(cr);
    cairo_translate(cr, frame.x, frame.y);
    cairo_scale(cr, frame.width / picture.width, frame.height / picture.height);
    cairo_set_source_surface(cr, source, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
    cairo_paint(cr);
    cairo_restore(cr);
    cairo_surface_destroy(source);
    return true;
}

}  // namespace zelk::draw
