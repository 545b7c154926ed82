#include <gtest/gtest.h>

#include "platform/draw/PanelPainter.h"
#include "platform/draw/PicturePainter.h"

namespace zelk::draw {
namespace {

platform::WindowImage red(int width, int height) {
    platform::WindowImage img;
    img.width = width;
    img.height = height;
    img.bytesPerRow = static_cast<std::size_t>(width) * 4 + 12;
    img.pixels.assign(img.bytesPerRow * static_cast<std::size_t>(height), 0x7F);  // padding: grey
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            auto* p =
                &img.pixels[img.bytesPerRow * static_cast<std::size_t>(y) + static_cast<std::size_t>(x) * 4];
            p[0] = 0, p[1] = 0, p[2] = 0xFF, p[3] = 0xFF;
        }
    return img;
}

TEST(PicturePainter, APictureFitsItsTileCentredOrFillsABackdrop) {
    EXPECT_EQ(pictureFrame({40, 20}, {10, 10, 80, 80}, PictureFit::fit), (Rect{10, 30, 80, 40}));
    EXPECT_EQ(pictureFrame({40, 20}, {10, 10, 80, 80}, PictureFit::fill), (Rect{-30, 10, 160, 80}));
    EXPECT_EQ(pictureFrame({0, 20}, {10, 10, 80, 80}, PictureFit::fit).width, 0);
}

TEST(PicturePainter, PaintsThePicturesPixelsInsideItsFrameOnly) {
    ImageSurface surface(100, 100);
    ASSERT_TRUE(paintPicture(surface.context(), red(40, 20), {10, 10, 80, 80}, 4));
    auto px = surface.pixels();
    EXPECT_EQ(px[50 * 100 + 50], 0xFFFF0000u);
    EXPECT_EQ(px[35 * 100 + 12], 0xFFFF0000u) << "the picture's edge, not its row padding";
    EXPECT_EQ(px[20 * 100 + 50], 0u) << "above the fitted frame";
    EXPECT_EQ(px[30 * 100 + 10], 0u) << "the rounded corner is clipped";
}

TEST(PicturePainter, ABrokenPicturePaintsNothing) {
    ImageSurface surface(20, 20);
    auto broken = red(10, 10);
    broken.pixels.resize(40);
    EXPECT_FALSE(paintPicture(surface.context(), broken, {0, 0, 20, 20}));
    EXPECT_FALSE(paintPicture(surface.context(), platform::WindowImage{}, {0, 0, 20, 20}));
    for (auto p : surface.pixels())
        ASSERT_EQ(p, 0u);
}

}  // namespace
}  // namespace zelk::draw
