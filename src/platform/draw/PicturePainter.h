#pragma once
#include "platform/Geometry.h"
#include "platform/WindowServer.h"

typedef struct _cairo cairo_t;

namespace zelk::draw {

enum class PictureFit {
    fit,   // the whole picture, centred, keeping its proportions (a window's tile)
    fill,  // covers the rectangle, centred, keeping its proportions, cut at the edges (a backdrop)
};

// The rectangle a picture of `pixels` takes inside `rect`.
Rect pictureFrame(Size pixels, Rect rect, PictureFit fit);

// Paints a window picture (premultiplied BGRA) into `rect` of the context, clipped to a rounded
// rectangle of `cornerRadius`. False, painting nothing, when the picture has no pixels or its bytes
// don't match its size.
bool paintPicture(cairo_t* cr, const platform::WindowImage& picture, Rect rect, double cornerRadius = 0,
                  PictureFit fit = PictureFit::fit);

}  // namespace zelk::draw
