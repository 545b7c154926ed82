#include <gtest/gtest.h>

#include "expose/WindowPictures.h"
#include "expose/WindowPicturesWallpaper.h"
#include "platform/sim/SimFixture.h"
#include "platform/sim/SimWindowServer.h"
#include "support/Log.h"

namespace zelk::expose {
namespace {

using ferrow::ms;

const char* kWorld = R"(
displays:
  - {id: 1, uuid: "abcd-0001", frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
  - {id: 2, uuid: "abcd-0002", frame: [1440, 0, 1920, 1080], spaces: [{id: 10}], currentSpace: 10}
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Here", frame: [0, 30, 1000, 700], space: 1}
        - {id: 12, title: "There", frame: [0, 30, 800, 600], space: 2}
        - {id: 13, title: "Big", frame: [0, 30, 1600, 1000], space: 1}
  - bundleID: a.mail
    name: Mail
    running:
      pid: 102
      windows:
        - {id: 21, title: "Inbox", frame: [1500, 50, 900, 500], space: 10}
        - {id: 22, title: "Draft", frame: [100, 100, 600, 400], space: 1, minimized: true}
frontmost: a.safari
)";

struct WindowPicturesSim : testing::SimFixture {
    ThumbnailCache cache;
    std::unique_ptr<VirtualCaptureQueue> captures;
    std::unique_ptr<WindowPictures> pictures;
    int changes = 0;
    ferrow::Subscription sub;

    void SetUp() override {
        load(kWorld);
        captures = std::make_unique<VirtualCaptureQueue>([this] { return ms(world().pictures.latencyMs); });
        pictures = std::make_unique<WindowPictures>(desktop.windowServer(), *captures, cache);
        pictures->setCaptureEpoch(1);
        sub = pictures->changed.subscribe([this](std::uint32_t) { ++changes; });
    }
    void TearDown() override {
        sub.cancel();
        pictures.reset();
        captures.reset();
        testing::SimFixture::TearDown();
    }
    const ExposeThumbnail& thumb(std::uint32_t id) {
        const ExposeThumbnail* t = pictures->thumbnail(id);
        EXPECT_NE(t, nullptr) << id;
        static const ExposeThumbnail none;
        return t ? *t : none;
    }
    // What the window server's picture of a window hashes to after the downscale.
    std::uint64_t expectedHash(std::uint32_t id, std::uint32_t generation, int width, int height) {
        return downscaleAndHash(sim::drawSimWindow(id, world().window(id)->title, generation, width, height),
                                1400)
            .hash;
    }
    CachedThumb fakeEntry(std::uint64_t hash) {
        auto img = std::make_shared<platform::WindowImage>(sim::drawSimWindow(999, "cached", 0, 40, 30));
        return CachedThumb{img, {40, 30}, clock->now(), hash};
    }
};

// --- The capture request ---

TEST_F(WindowPicturesSim, CachedPicturesFillTheFirstFrameAndOnlyWindowsWithoutOneAreCaptured) {
    cache.store(11, fakeEntry(77));
    pictures->request({11, 12}, 1, {});
    // Before any capture has run.
    EXPECT_EQ(thumb(11).pixelHash, 77u);
    EXPECT_EQ(thumb(11).pixelSize, (Size{40, 30}));
    EXPECT_FALSE(thumb(12).image);

    runFor(0);
    EXPECT_EQ(thumb(11).pixelHash, 77u) << "a cached window not asked to refresh is not taken again";
    ASSERT_TRUE(thumb(12).image);
    EXPECT_EQ(thumb(12).pixelSize, (Size{800, 600}));
    EXPECT_EQ(thumb(12).pixelHash, expectedHash(12, 0, 800, 600));
    auto entry = cache.lookup(12);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->capturedAt, clock->now());
    EXPECT_EQ(entry->image, thumb(12).image);
}

TEST_F(WindowPicturesSim, ASecondOpeningShowsThePicturesOfTheFirstAtOnce) {
    pictures->request({11, 21, 22}, 1, {});
    runFor(0);
    // A new session with fresh thumbnails: everything comes from the cache before anything runs.
    WindowPictures second(desktop.windowServer(), *captures, cache);
    second.setCaptureEpoch(2);
    second.request({11, 21, 22}, 2, {});
    for (std::uint32_t id : {11u, 21u, 22u}) {
        ASSERT_TRUE(second.thumbnail(id)->image) << id;
        EXPECT_EQ(second.thumbnail(id)->image, thumb(id).image) << id;
    }
    EXPECT_EQ(captures->queuedCount(), 0u);
}

TEST_F(WindowPicturesSim, StaleRefreshesAreStaggeredAndStopWhenTheSessionEnds) {
    pictures->request({11, 12, 13, 21}, 1, {});
    runFor(0);
    const ferrow::Nanos asked = clock->now();
    WindowPictures reopened(desktop.windowServer(), *captures, cache);
    reopened.setCaptureEpoch(2);
    reopened.request({11, 12, 13, 21}, 2, {11, 13, 21});

    runFor(449);
    EXPECT_EQ(cache.lookup(11)->capturedAt, asked) << "nothing is refreshed during the opening";
    runFor(1);
    EXPECT_EQ(cache.lookup(11)->capturedAt, asked + ms(450));
    runFor(120);
    EXPECT_EQ(cache.lookup(13)->capturedAt, asked + ms(570));
    EXPECT_EQ(cache.lookup(12)->capturedAt, asked) << "not in the refresh set";
    reopened.setCaptureEpoch(3);  // closed before the third refresh
    runFor(1000);
    EXPECT_EQ(cache.lookup(21)->capturedAt, asked);
    EXPECT_EQ(refreshDelayMs(0), 450);
    EXPECT_EQ(refreshDelayMs(2), 690);
}

TEST_F(WindowPicturesSim, AtMostThreeCapturesRunAndANewRequestDropsTheQueuedOnes) {
    world().pictures.latencyMs = 100;
    pictures->request({11, 12, 13, 21, 22}, 1, {});
    EXPECT_EQ(captures->running(), 3);
    EXPECT_EQ(captures->queuedCount(), 2u);
    runFor(100);
    EXPECT_EQ(cache.size(), 3u);
    runFor(100);
    EXPECT_EQ(cache.size(), 5u);
    EXPECT_EQ(captures->peakRunning(), 3);

    cache.clear();
    pictures->setCaptureEpoch(2);
    WindowPictures fresh(desktop.windowServer(), *captures, cache);
    fresh.setCaptureEpoch(2);
    fresh.request({11, 12, 13, 21, 22}, 2, {});
    fresh.request({}, 2, {});  // the next opening: the two not started are dropped
    runFor(1000);
    EXPECT_EQ(cache.size(), 3u);
    EXPECT_TRUE(cache.lookup(11) && cache.lookup(12) && cache.lookup(13));
}

// --- The hand-over ---

TEST_F(WindowPicturesSim, APictureForAnEndedSessionReachesTheCacheButNoThumbnail) {
    world().pictures.latencyMs = 50;
    pictures->request({11}, 1, {});
    runFor(20);
    pictures->setCaptureEpoch(2);  // the overview closed
    runFor(100);
    EXPECT_FALSE(thumb(11).image);
    EXPECT_EQ(changes, 0);
    ASSERT_TRUE(cache.lookup(11));
    EXPECT_EQ(cache.lookup(11)->pixelHash, expectedHash(11, 0, 1000, 700));
}

TEST_F(WindowPicturesSim, IdenticalPixelsLeaveThePictureUntouchedAndNewOnesReplaceIt) {
    int coloured = 0;
    pictures->colourStep = [&](std::uint32_t, const Picture&) { ++coloured; };
    pictures->request({11}, 1, {});
    runFor(0);
    ASSERT_TRUE(thumb(11).image);
    const Picture first = thumb(11).image;
    EXPECT_EQ(changes, 1);

    pictures->captureOne(11, 1);
    runFor(0);
    EXPECT_EQ(thumb(11).image, first) << "same pixels, same picture object: no redraw";
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(coloured, 2) << "every delivered picture passes the colour step";
    EXPECT_NE(cache.lookup(11)->image, first) << "the cache still takes the newer capture";

    world().pictures.bump(11);
    pictures->captureOne(11, 1);
    runFor(0);
    EXPECT_NE(thumb(11).image, first);
    EXPECT_EQ(thumb(11).pixelHash, expectedHash(11, 1, 1000, 700));
    EXPECT_EQ(changes, 2);
}

TEST_F(WindowPicturesSim, ARetitledWindowDrawsANewPicture) {
    pictures->request({12}, 1, {});
    runFor(0);
    const auto before = thumb(12).pixelHash;
    world().retitle(12, "Elsewhere");
    pictures->captureOne(12, 1);
    runFor(0);
    EXPECT_NE(thumb(12).pixelHash, before);
}

// --- No picture, and the screenshot fallback ---

TEST_F(WindowPicturesSim, ATinyPictureTakesTheScreenshotFallback) {
    world().pictures.tiny = {11};
    pictures->request({11}, 1, {});
    runFor(0);
    ASSERT_TRUE(thumb(11).image);
    // The screenshot service draws at min(1400 / 1000, 2) = 1.4 times the 1000 x 700 frame; 700 x 1.4
    // is 979.99... in floating point, truncated.
    EXPECT_EQ(thumb(11).pixelSize, (Size{1400, 979}));
    EXPECT_EQ(thumb(11).pixelHash, expectedHash(11, 0, 1400, 979));
    EXPECT_EQ(cache.lookup(11)->pixelSize, (Size{1400, 979}));
    EXPECT_FALSE(pictures->fallbackRunning());
}

TEST_F(WindowPicturesSim, NoFallbackOnOlderSystemsWhenItFailsOrForASingleCapture) {
    world().pictures.none = {11};
    world().pictures.tiny = {12};
    world().osMajorVersion = 13;
    pictures->request({11, 12}, 1, {});
    runFor(0);
    EXPECT_FALSE(thumb(11).image);
    EXPECT_FALSE(thumb(12).image);

    world().osMajorVersion = 15;
    world().pictures.fallbackFails = true;
    pictures->request({11, 12}, 1, {});
    runFor(0);
    EXPECT_FALSE(thumb(11).image);
    EXPECT_FALSE(thumb(12).image);
    EXPECT_FALSE(pictures->fallbackRunning());

    world().pictures.fallbackFails = false;
    pictures->captureOne(11, 1);
    runFor(0);
    EXPECT_FALSE(thumb(11).image) << "a single capture has no fallback";
    EXPECT_EQ(cache.size(), 0u);
}

TEST_F(WindowPicturesSim, AFailedCaptureKeepsTheOlderPicture) {
    pictures->request({11}, 1, {});
    runFor(0);
    const Picture older = thumb(11).image;
    world().pictures.none = {11};
    world().pictures.fallbackFails = true;
    pictures->captureOne(11, 1);
    runFor(0);
    EXPECT_EQ(thumb(11).image, older);
}

TEST_F(WindowPicturesSim, ANewRequestEmptiesThePendingFallbacksAndTheRunningBatchEnds) {
    world().pictures.tiny = {11, 12, 13};
    int delivered = 0;
    pictures->colourStep = [&](std::uint32_t, const Picture&) {
        if (++delivered == 1) {
            EXPECT_EQ(pictures->pendingFallbacks(), 2u);
            pictures->request({}, 1, {});  // the overview opens again mid-batch
        }
    };
    pictures->request({11, 12, 13}, 1, {});
    runFor(0);
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(pictures->pendingFallbacks(), 0u);
    EXPECT_FALSE(pictures->fallbackRunning());
    EXPECT_EQ(cache.size(), 1u);
}

TEST_F(WindowPicturesSim, TheFallbackDropsAnEntryWhoseSessionEndedMeanwhile) {
    world().pictures.tiny = {11, 12};
    pictures->colourStep = [&](std::uint32_t, const Picture&) { pictures->setCaptureEpoch(2); };
    pictures->request({11, 12}, 1, {});
    runFor(0);
    EXPECT_EQ(cache.size(), 1u) << "the second entry sees the new epoch and is dropped before any capture";
    EXPECT_FALSE(pictures->fallbackRunning());
}

// --- The high-resolution pass ---

TEST_F(WindowPicturesSim, TheHighResolutionPassTakesUpTo2800PixelsOnlyWhileItsSessionIsOpen) {
    world().pictures.pixelScale = 2;  // window 13: 3200 x 2000 pixels
    pictures->request({13}, 1, {});
    runFor(0);
    EXPECT_EQ(thumb(13).pixelSize, (Size{1400, 875}));
    pictures->captureHighResolution({13}, 1, false);
    pictures->captureHighResolution({13}, 7, true);
    runFor(0);
    EXPECT_EQ(thumb(13).pixelSize, (Size{1400, 875}));
    pictures->captureHighResolution({13}, 1, true);
    runFor(0);
    EXPECT_EQ(thumb(13).pixelSize, (Size{2800, 1750}));
}

// --- The captures interval and the permission ---

TEST_F(WindowPicturesSim, TheCapturesIntervalEndsWhenEveryWindowArrivedOrTheOverviewClosed) {
    ferrow::LogCapture log;
    pictures->beginCaptures(1, {11, 12});
    pictures->request({11, 12}, 1, {});
    runFor(0);
    EXPECT_TRUE(log.contains("captures: begin windows=2"));
    EXPECT_TRUE(log.contains("firstPixels: wid=11"));
    EXPECT_TRUE(log.contains("firstPixels: wid=12"));
    EXPECT_TRUE(log.contains("captures: end interrupted=false remaining=0"));
    EXPECT_FALSE(pictures->capturesOpen());

    log.clear();
    pictures->captureOne(11, 1);
    runFor(0);
    EXPECT_EQ(log.count("firstPixels: wid=11"), 0u) << "first pixels are told once a session";

    world().pictures.latencyMs = 100;
    pictures->setCaptureEpoch(2);
    pictures->beginCaptures(2, {11, 21, 22});
    pictures->request({21, 22}, 2, {});
    runFor(10);
    pictures->endCaptures();
    EXPECT_TRUE(log.contains("captures: end interrupted=true remaining=3"));
}

TEST_F(WindowPicturesSim, MissingScreenRecordingIsToldAndCachedPicturesStillShow) {
    pictures->request({11}, 1, {});
    runFor(0);
    EXPECT_FALSE(pictures->refreshScreenRecording());
    world().permissions.screenRecording = false;
    EXPECT_TRUE(pictures->refreshScreenRecording());
    WindowPictures reopened(desktop.windowServer(), *captures, cache);
    reopened.setCaptureEpoch(2);
    reopened.request({11, 12}, 2, {11});
    runFor(1000);
    EXPECT_TRUE(reopened.thumbnail(11)->image);
    EXPECT_FALSE(reopened.thumbnail(12)->image) << "drawn as an empty card";
}

// --- The wallpaper ---

TEST_F(WindowPicturesSim, WallpapersLoadInTheBackgroundAndAreKeptByDisplay) {
    WallpaperCache::reset();
    world().pictures.wallpapers["abcd-0002"] = "/Pictures/Hills.png";
    auto screens = desktop.platform().screens->screens();
    ASSERT_EQ(screens.size(), 2u);
    auto& wallpapers = WallpaperCache::shared();
    std::vector<std::string> ready;
    EXPECT_FALSE(
        wallpapers.wallpaperFor(screens[1], desktop.windowServer(), [&](auto& k) { ready.push_back(k); }));
    runFor(0);
    EXPECT_EQ(ready, std::vector<std::string>{"ABCD-0002"});
    auto image = wallpapers.wallpaperFor(screens[1], desktop.windowServer());
    ASSERT_TRUE(image);
    EXPECT_EQ(wallpapers.pathFor("ABCD-0002"), "/Pictures/Hills.png");

    // A new desktop picture replaces the old one once loaded.
    world().pictures.wallpapers["abcd-0002"] = "/Pictures/Sea.png";
    EXPECT_FALSE(wallpapers.wallpaperFor(screens[1], desktop.windowServer()));
    runFor(0);
    auto sea = wallpapers.wallpaperFor(screens[1], desktop.windowServer());
    ASSERT_TRUE(sea);
    EXPECT_NE((*sea)->pixels, (*image)->pixels);

    world().pictures.wallpapers["abcd-0001"] = "";  // no desktop picture
    EXPECT_FALSE(wallpapers.wallpaperFor(screens[0], desktop.windowServer()));
    runFor(0);
    EXPECT_FALSE(wallpapers.imageFor("ABCD-0001"));
    WallpaperCache::reset();
}

}  // namespace
}  // namespace zelk::expose
