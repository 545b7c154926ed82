// Icons on app rows: drawn from the source the painter is given, for app rows only, in the look's style.
#include <gtest/gtest.h>

#include <cairo.h>

#include <algorithm>

#include "platform/draw/AppIcons.h"
#include "platform/draw/PanelPainter.h"

namespace zelk::draw {
namespace {

using namespace osd;

// Records what it was asked to draw, and paints its box pure red.
class RecordingIcons final : public AppIconSource {
  public:
    bool draw(cairo_t* cr, const std::string& bundleID, const std::string& name, Rect box) const override {
        asked.push_back(bundleID + "/" + name);
        cairo_rectangle(cr, box.x, box.y, box.width, box.height);
        cairo_set_source_rgb(cr, 1, 0, 0);
        cairo_fill(cr);
        return true;
    }
    mutable std::vector<std::string> asked;
};

OSDModel panel(OSDView view) {
    OSDModel m;
    m.view = {view, 6};
    m.visibility = {false, true, 1.0, std::nullopt, true, 0};
    m.sections = {OSDSection{"",
                             {OSDRow{"com.apple.Safari", "s", "Safari", "", "", true, false, true},
                              OSDRow{"11", "", "Start Page", "Safari", "", false, false, true, false, true},
                              OSDRow{"com.apple.mail", "m", "Mail"}}}};
    return m;
}

std::vector<std::uint32_t> iconPixels(const AppIconSource& source, const std::string& id, IconStyle style,
                                      bool highlighted) {
    ImageSurface s(40, 40);
    drawAppIcon(s.context(), source, id, "Name", {4, 4, 32, 32}, style, highlighted);
    return s.pixels();
}

bool isGrey(std::uint32_t p) {
    const int r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
    return r == g && g == b;
}

TEST(AppIcons, AppRowsOfTheAppAndSearchPanelsDrawTheirIconWindowRowsNone) {
    for (OSDView view : {OSDView::appSwitcher, OSDView::search}) {
        RecordingIcons icons;
        ImageSurface s(420, 300);
        drawPanel(s, panel(view), {10, 10, 400, 280}, &icons);
        EXPECT_EQ(icons.asked, (std::vector<std::string>{"com.apple.Safari/Safari", "com.apple.mail/Mail"}));
    }
    RecordingIcons icons;
    ImageSurface s(420, 300);
    drawPanel(s, panel(OSDView::stage), {10, 10, 400, 280}, &icons);
    EXPECT_TRUE(icons.asked.empty());
}

TEST(AppIcons, GeneratedIconsAreTheSameForOneIdAndDifferForTwo) {
    const auto& icons = generatedAppIcons();
    const auto a = iconPixels(icons, "com.apple.Safari", IconStyle::native, false);
    EXPECT_EQ(a, iconPixels(icons, "com.apple.Safari", IconStyle::native, false));
    EXPECT_NE(a, iconPixels(icons, "com.apple.mail", IconStyle::native, false));
    EXPECT_FALSE(std::all_of(a.begin(), a.end(), isGrey));
}

TEST(AppIcons, GreyStylesTurnTheIconGreyUntilTheRowIsHighlighted) {
    RecordingIcons red;
    const auto grey = iconPixels(red, "x", IconStyle::grayscale, true);
    EXPECT_TRUE(std::all_of(grey.begin(), grey.end(), isGrey));
    EXPECT_NE(grey[20 * 40 + 20], 0u);  // something was drawn
    const auto waiting = iconPixels(red, "x", IconStyle::grayscaleUntilFocused, false);
    EXPECT_TRUE(std::all_of(waiting.begin(), waiting.end(), isGrey));
    const auto focused = iconPixels(red, "x", IconStyle::grayscaleUntilFocused, true);
    EXPECT_EQ(focused[20 * 40 + 20], 0xFFFF0000u);
}

}  // namespace
}  // namespace zelk::draw
