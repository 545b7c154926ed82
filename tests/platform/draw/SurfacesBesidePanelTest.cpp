#include <gtest/gtest.h>

#include "platform/draw/LaunchPillPainter.h"
#include "platform/draw/SpacesIndicatorPainter.h"

namespace zelk::testing {
namespace {

std::uint32_t alphaAt(draw::ImageSurface& s, int x, int y) {
    auto pixels = s.pixels();
    return pixels[std::size_t(y) * std::size_t(s.size().width) + std::size_t(x)] >> 24;
}

spaces::SpacesIndicatorModel twoCells() {
    spaces::SpacesIndicatorModel m;
    m.enabled = true;
    m.showIcon = false;
    spaces::IndicatorCell current;
    current.glyph = 1;
    current.isCurrent = true;
    current.display = "A";
    spaces::IndicatorCell other = current;
    other.glyph = 2;
    other.isCurrent = false;
    m.cells = {current, other};
    return m;
}

TEST(SpacesIndicatorPainter, TheCurrentCellIsFilledAndTheOthersOnlyOutlined) {
    draw::ImageSurface s(60, 18);
    draw::drawSpacesIndicator(s, twoCells(), {0, 0});
    // Left of each cell's digit: inside the first cell's fill, inside the second cell's outline.
    EXPECT_EQ(alphaAt(s, 2, 9), 255u);
    EXPECT_EQ(alphaAt(s, 22, 9), 0u);
    EXPECT_GT(alphaAt(s, 19, 9), 0u);  // the second cell's stroke
    EXPECT_EQ(alphaAt(s, 17, 9), 0u);  // the spacing between them
}

TEST(SpacesIndicatorPainter, AnOffStripDrawsNothingAndTheStripSitsAtTheMenuBarsRightEnd) {
    draw::ImageSurface s(60, 18);
    auto model = twoCells();
    model.enabled = false;
    draw::drawSpacesIndicator(s, model, {0, 0});
    for (int x = 0; x < 60; ++x)
        EXPECT_EQ(alphaAt(s, x, 9), 0u);
    auto origin = draw::spacesIndicatorOrigin(twoCells(), {0, 0, 1440, 900}, 25);
    EXPECT_EQ(origin.x, 1440 - 12 - 35);
    EXPECT_EQ(origin.y, 3.5);
}

TEST(LaunchPillPainter, EachPillIsARowOfTheSurfaceAndNothingShowsWhenHidden) {
    companions::LaunchPillsModel m;
    m.visible = true;
    m.pills = {{"com.apple.mail", "Mail", "", companions::LaunchPill::Phase::launching},
               {"com.apple.notes", "Notes", "", companions::LaunchPill::Phase::slow}};
    m.frame = companions::launchPillsFrame({0, 0, 400, 200}, 2);
    draw::ImageSurface s(400, 200);
    draw::drawLaunchPills(s, m);
    const int x = int(m.frame.x) + 40;
    EXPECT_GT(alphaAt(s, x, int(m.frame.y) + 15), 0u);       // first row
    EXPECT_EQ(alphaAt(s, x, int(m.frame.y) + 33), 0u);       // the gap between rows
    EXPECT_GT(alphaAt(s, x, int(m.frame.y) + 36 + 15), 0u);  // second row
    EXPECT_EQ(alphaAt(s, x, int(m.frame.maxY()) + 5), 0u);   // below the surface

    m.visible = false;
    draw::ImageSurface hidden(400, 200);
    draw::drawLaunchPills(hidden, m);
    EXPECT_EQ(alphaAt(hidden, x, int(m.frame.y) + 15), 0u);
}

}  // namespace
}  // namespace zelk::testing
