#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "platform/draw/PanelPainter.h"

namespace zelk::draw {

// What the overview shows, ready to draw: per screen its dimmed backdrop, the Spaces bar, section
// and card labels, and the tiles with a window's picture or a placeholder. Global points.
struct OverviewPicture {
    struct Tile {
        std::uint32_t id = 0;
        Rect frame;
        std::string title;
        std::string app;
        std::string letter;
        bool selected = false;
        bool dimmed = false;  // minimized or of a hidden app
        // BGRA, premultiplied, `bytesPerRow` a row; no picture draws a placeholder.
        int pixelWidth = 0, pixelHeight = 0, bytesPerRow = 0;
        std::shared_ptr<const std::vector<std::uint8_t>> pixels;
    };
    struct Label {
        Rect frame;
        std::string text;
        std::string keycap;
    };
    struct BarCell {
        Rect frame;
        std::string title;
        bool active = false;
        std::vector<Rect> minis;
    };
    struct Screen {
        Rect frame;
        std::vector<Tile> tiles;
        std::vector<Label> labels;
        std::vector<BarCell> bar;
        std::string empty;  // "No windows on this display"
    };
    std::vector<Screen> screens;
    std::string banner;  // the toast or the question, at the bottom of each screen
    std::string notice;  // the missing-permission notice
    double opacity = 1;  // the entrance and exit fade
};

// Draws the overview over whatever the surface holds; `scale` and `origin` map global points to the
// surface's (as drawDesktop does). A pure function of the picture.
void drawOverview(Surface& surface, const OverviewPicture& picture, double scale, Point origin);

}  // namespace zelk::draw
