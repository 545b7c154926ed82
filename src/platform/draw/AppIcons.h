#pragma once
#include <string>

#include "config/OSDLook.h"
#include "platform/Geometry.h"

typedef struct _cairo cairo_t;

namespace zelk::draw {

// Where the panel's application icons come from. A backend that can read the system's icons draws
// them; the simulated desktop has none and draws generated ones.
class AppIconSource {
  public:
    virtual ~AppIconSource() = default;
    // Draws the icon of `bundleID` (named `name`) filling `box` on `cr`, in full colour; false when it
    // has none (the row then goes without).
    virtual bool draw(cairo_t* cr, const std::string& bundleID, const std::string& name, Rect box) const = 0;
};

// A picture per bundle id made up from the id alone: a rounded tile in two colours taken from a hash
// of the id, with the name's initial. The same id always looks the same, and different ids rarely alike.
class GeneratedAppIcons final : public AppIconSource {
  public:
    bool draw(cairo_t* cr, const std::string& bundleID, const std::string& name, Rect box) const override;
};

// The source the panel draws with when no backend gives one.
const AppIconSource& generatedAppIcons();

// Draws an icon from `source` into `box` in the look's icon style: grey for `grayscale`, and for
// `grayscaleUntilFocused` until the row is highlighted; `roundedRect` sets it on a rounded plate.
void drawAppIcon(cairo_t* cr, const AppIconSource& source, const std::string& bundleID,
                 const std::string& name, Rect box, IconStyle style, bool highlighted);

}  // namespace zelk::draw
