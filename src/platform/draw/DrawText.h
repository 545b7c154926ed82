#pragma once
#include <string>

#include "platform/Geometry.h"

typedef struct _cairo cairo_t;
typedef struct _PangoLayout PangoLayout;

// Small drawing helpers for the surfaces beside the panel.
namespace zelk::draw {

struct Colour {
    double r = 0, g = 0, b = 0, a = 1;
};

void fillColour(cairo_t* cr, Colour c);
// A text layout in DejaVu Sans at `size` points with fixed hinting and antialiasing, so text draws
// the same on every machine. The caller releases it with g_object_unref.
PangoLayout* fixedTextLayout(cairo_t* cr, double size, bool bold);
void roundedPath(cairo_t* cr, Rect r, double radius);
// One line of text in `box`, centred both ways or (centred false) left-aligned and vertically
// centred; ellipsised when wider than the box.
void textInBox(cairo_t* cr, const std::string& text, Rect box, double size, bool bold, Colour colour,
               bool centred);

}  // namespace zelk::draw
