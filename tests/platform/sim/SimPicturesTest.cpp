#include <gtest/gtest.h>

#include "platform/sim/SimFixture.h"
#include "platform/sim/SimWindowServer.h"

namespace zelk::testing {
namespace {

const char* kPictureWorld = R"(
displays:
  - {id: 1, uuid: "d-1", frame: [0, 0, 1440, 900]}
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Here", frame: [0, 30, 640, 480]}
        - {id: 12, title: "There", frame: [0, 30, 300, 200]}
        - {id: 13, title: "Gone", frame: [0, 30, 300, 200]}
pictures:
  none: [13]
  tiny: [12]
  latencyMs: 35
  fallbackFails: true
  pixelScale: 2
  wallpapers: {d-1: "/Pictures/Dunes.png"}
)";

struct SimPictures : SimFixture {
    void SetUp() override { load(kPictureWorld); }
    sim::SimWindowServer& server() { return desktop.windowServer(); }
};

TEST_F(SimPictures, TheWorldFileSetsHowWindowsArePictured) {
    const auto& k = world().pictures;
    EXPECT_EQ(k.none, (std::set<std::uint32_t>{13}));
    EXPECT_EQ(k.tiny, (std::set<std::uint32_t>{12}));
    EXPECT_EQ(k.latencyMs, 35);
    EXPECT_TRUE(k.fallbackFails);
    EXPECT_EQ(k.pixelScale, 2);
    EXPECT_EQ(server().desktopImagePath(1), "/Pictures/Dunes.png");
}

TEST_F(SimPictures, WindowsAreDrawnAtTheirPixelSizeWithPaddedRows) {
    auto images = server().captureWindows({11, 12, 13, 99}, platform::capture::thumbnailOptions);
    ASSERT_EQ(images.size(), 2u) << "no picture of 13, and 99 doesn't exist";
    EXPECT_EQ(images[0].width, 1280);
    EXPECT_EQ(images[0].height, 960);
    EXPECT_GT(images[0].bytesPerRow, 1280u * 4);
    EXPECT_EQ(images[0].pixels.size(), images[0].bytesPerRow * 960);
    EXPECT_EQ(images[1].width, 1);
    EXPECT_EQ(images[1].height, 1);
}

TEST_F(SimPictures, PixelsFollowTheIdTitleAndGenerationOnly) {
    auto first = server().captureWindows({11}, 0).at(0);
    EXPECT_EQ(server().captureWindows({11}, 0).at(0).pixels, first.pixels);
    world().setFrame(11, {200, 200, 640, 480});  // moved, same size
    EXPECT_EQ(server().captureWindows({11}, 0).at(0).pixels, first.pixels);
    world().pictures.bump(11);
    auto bumped = server().captureWindows({11}, 0).at(0);
    EXPECT_NE(bumped.pixels, first.pixels);
    world().retitle(11, "Elsewhere");
    EXPECT_NE(server().captureWindows({11}, 0).at(0).pixels, bumped.pixels);
    // Every pixel is premultiplied: no colour component exceeds its alpha.
    for (std::size_t y = 0; y < static_cast<std::size_t>(bumped.height); y += 97)
        for (std::size_t x = 0; x < static_cast<std::size_t>(bumped.width); ++x) {
            const std::uint8_t* p = &bumped.pixels[y * bumped.bytesPerRow + x * 4];
            ASSERT_LE(std::max({p[0], p[1], p[2]}), p[3]) << x << "," << y;
        }
}

TEST_F(SimPictures, WithoutScreenRecordingOrWhenFailingThereAreNoPictures) {
    EXPECT_FALSE(server().shareableWindows()) << "fallbackFails";
    EXPECT_FALSE(server().screenshotWindow(11, 100, 80));
    world().pictures.fallbackFails = false;
    auto shot = server().screenshotWindow(11, 100, 80);
    ASSERT_TRUE(shot);
    EXPECT_EQ(shot->width, 100);
    auto content = server().shareableWindows();
    ASSERT_TRUE(content);
    EXPECT_EQ(content->size(), 3u);
    world().permissions.screenRecording = false;
    EXPECT_TRUE(server().captureWindows({11}, 0).empty());
    EXPECT_FALSE(server().shareableWindows());
}

TEST(SimPicturesFile, BadPictureKeysAreOneLineErrors) {
    struct Case {
        const char* yaml;
        const char* error;
    };
    for (const Case& c : std::initializer_list<Case>{
             {"pictures: {none: 3}", "pictures.none: expected a list of window ids"},
             {"pictures: {tiny: [-1]}", "pictures.tiny[0]: expected a window id"},
             {"pictures: {pixelScale: 0}", "pictures.pixelScale: expected a number above 0 and at most 4"},
             {"pictures: {wallpapers: [a]}",
              "pictures.wallpapers: expected a mapping of display uuid to path"},
             {"pictures: 5", "pictures: expected a mapping"},
         }) {
        auto clock = std::make_shared<ferrow::VirtualClock>();
        ferrow::MainQueue::install(clock);
        sim::SimDesktop desktop;
        sim::WorldExtras extras;
        std::string error;
        EXPECT_FALSE(sim::loadWorldText(std::string("apps: []\n") + c.yaml, desktop, extras, error))
            << c.yaml;
        EXPECT_EQ(error, c.error) << c.yaml;
        ferrow::MainQueue::reset();
    }
}

}  // namespace
}  // namespace zelk::testing
