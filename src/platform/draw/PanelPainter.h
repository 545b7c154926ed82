#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "input/OSDModel.h"
#include "platform/Geometry.h"
#include "platform/draw/AppIcons.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace zelk::draw {

// Something the panel can be drawn on: an image now, a window of a display server later. Drawing
// goes through its cairo context in the surface's own points.
class Surface {
  public:
    virtual ~Surface() = default;
    virtual cairo_t* context() = 0;
    virtual Size size() const = 0;
};

// An ARGB image in memory.
class ImageSurface final : public Surface {
  public:
    ImageSurface(int width, int height);
    ~ImageSurface() override;
    ImageSurface(const ImageSurface&) = delete;
    ImageSurface& operator=(const ImageSurface&) = delete;

    cairo_t* context() override { return cr_; }
    Size size() const override { return {double(width_), double(height_)}; }
    bool writePNG(const std::filesystem::path& path);
    // Pixels as 0xAARRGGBB, row by row (after drawing is flushed).
    std::vector<std::uint32_t> pixels();

  private:
    int width_, height_;
    cairo_surface_t* surface_;
    cairo_t* cr_;
};

// Reads a PNG into pixels; false when it can't be read.
bool readPNG(const std::filesystem::path& path, int& width, int& height, std::vector<std::uint32_t>& pixels);

// Draws the panel model in its look, filling `bounds` (the panel's own frame in the surface's points).
// A pure function of the model: the same model draws the same picture. App rows carry their icon from
// `icons`, generated ones when none is given.
void drawPanel(Surface& surface, const osd::OSDModel& model, Rect bounds,
               const AppIconSource* icons = nullptr);

// The simulated desktop behind the panel: displays with their menu bars, and windows front last.
struct DesktopPicture {
    struct Display {
        Rect frame;
        std::string name;
        double menuBarHeight = 25;
    };
    struct Window {
        Rect frame;
        std::string title;
        std::string app;
        bool focused = false;
    };
    std::vector<Display> displays;
    std::vector<Window> windows;
    Rect bounds() const;
};

// Draws the desktop and, when the model is visible, the panel at its frame; `scale` maps global
// points to the surface's.
void drawDesktop(Surface& surface, const DesktopPicture& desktop, const osd::OSDModel& model, double scale,
                 const AppIconSource* icons = nullptr);

}  // namespace zelk::draw
