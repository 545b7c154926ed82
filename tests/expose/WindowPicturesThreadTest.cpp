// The capture queue on real threads. These tests also run under ThreadSanitizer (scripts/tsan.sh).
#include <gtest/gtest.h>

#include <thread>

#include "expose/PictureWindowServer.h"
#include "expose/WindowPictures.h"
#include "support/MainQueue.h"

namespace zelk::expose {
namespace {

struct WindowPicturesThreaded : ::testing::Test {
    ferrow::MainQueue* main = &ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
    testing::PictureWindowServer server;
    ThumbnailCache cache;

    void SetUp() override { main->adoptCurrentThread(); }
    void TearDown() override { ferrow::MainQueue::reset(); }

    // Serves the main queue until the pool has nothing queued or running and every hop its
    // operations made has run.
    void serveUntilIdle(ThreadPoolCaptureQueue& pool) {
        std::thread watcher([&] {
            pool.waitIdle();
            main->async([this] { main->stop(); });
        });
        main->run();
        watcher.join();
        // A stopped queue stays stopped: the next phase serves a fresh one.
        main = &ferrow::MainQueue::install(std::make_shared<ferrow::RealClock>());
        main->adoptCurrentThread();
    }

    static std::vector<std::uint32_t> windows(std::uint32_t count) {
        std::vector<std::uint32_t> out;
        for (std::uint32_t i = 1; i <= count; ++i)
            out.push_back(100 + i);
        return out;
    }
};

TEST_F(WindowPicturesThreaded, EveryPictureArrivesWithAtMostThreeCapturesAtOnce) {
    ThreadPoolCaptureQueue pool;
    WindowPictures pictures(server, pool, cache);
    pictures.setCaptureEpoch(1);
    int changes = 0;
    auto sub = pictures.changed.subscribe([&](std::uint32_t) { ++changes; });
    const auto ids = windows(24);
    pictures.request(ids, 1, {});
    serveUntilIdle(pool);

    EXPECT_EQ(changes, 24);
    EXPECT_EQ(cache.size(), 24u);
    EXPECT_LE(server.peakInside.load(), CaptureQueue::kMaxConcurrent);
    EXPECT_LE(pool.peakRunning(), CaptureQueue::kMaxConcurrent);
    EXPECT_GE(pool.peakRunning(), 1);
    for (auto id : ids) {
        const ExposeThumbnail* t = pictures.thumbnail(id);
        ASSERT_TRUE(t && t->image) << id;
        // The same bytes as a capture on one thread would give.
        EXPECT_EQ(t->pixelHash, downscaleAndHash(testing::PictureWindowServer::draw(id, 0), 1400).hash) << id;
    }
}

TEST_F(WindowPicturesThreaded, PicturesForAnEndedSessionReachOnlyTheCache) {
    ThreadPoolCaptureQueue pool;
    WindowPictures pictures(server, pool, cache);
    pictures.setCaptureEpoch(1);
    pictures.request(windows(9), 1, {});
    pictures.setCaptureEpoch(2);  // the overview closed while the captures ran
    serveUntilIdle(pool);

    EXPECT_EQ(cache.size(), 9u);
    for (auto id : windows(9))
        EXPECT_FALSE(pictures.thumbnail(id)->image) << id;
}

TEST_F(WindowPicturesThreaded, IdenticalPixelsTakenAgainLeaveThePicturesAlone) {
    ThreadPoolCaptureQueue pool;
    WindowPictures pictures(server, pool, cache);
    pictures.setCaptureEpoch(1);
    pictures.request(windows(6), 1, {});
    serveUntilIdle(pool);
    std::map<std::uint32_t, Picture> first;
    for (auto id : windows(6))
        first[id] = pictures.thumbnail(id)->image;

    int changes = 0;
    auto sub = pictures.changed.subscribe([&](std::uint32_t) { ++changes; });
    for (auto id : windows(6))
        pictures.captureOne(id, 1);
    serveUntilIdle(pool);
    EXPECT_EQ(changes, 0);
    for (auto id : windows(6))
        EXPECT_EQ(pictures.thumbnail(id)->image, first[id]) << id;

    server.generation = 1;  // every window draws anew
    for (auto id : windows(6))
        pictures.captureOne(id, 1);
    serveUntilIdle(pool);
    EXPECT_EQ(changes, 6);
}

}  // namespace
}  // namespace zelk::expose
