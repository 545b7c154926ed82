#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "expose/WindowPicturesCache.h"
#include "expose/WindowPicturesQueue.h"
#include "expose/WindowPicturesScale.h"
#include "platform/WindowServer.h"
#include "support/Observable.h"

namespace zelk::expose {

// The picture of one window as the overview shows it. `image` stays empty until the first picture.
struct ExposeThumbnail {
    std::uint32_t id = 0;
    Picture image;
    Size pixelSize;
    std::uint64_t pixelHash = 0;  // 0: unknown
};

namespace pictures {
constexpr std::int64_t kFirstRefreshMs = 450;
constexpr std::int64_t kRefreshSpacingMs = 120;
constexpr int kScreenshotServiceMinOS = 14;
constexpr double kScreenshotScale = 2.0;
}  // namespace pictures

// When the stale picture at `index` of the refresh list is taken again, after the request.
constexpr std::int64_t refreshDelayMs(std::size_t index) {
    return pictures::kFirstRefreshMs + pictures::kRefreshSpacingMs * static_cast<std::int64_t>(index);
}

// The pixel size the screenshot service is asked for, for a window frame in points: twice the frame,
// or less so that the longest side is 1400; each side at least 2.
PixelSize screenshotSize(Size frame);

// The overview's window pictures. The overview asks for pictures when it opens (`request`), and reads
// them from `thumbnail`; `changed` tells it which window's picture to redraw. Pictures are taken on
// the capture queue, kept in the process-wide cache, and handed to the main thread, where a picture
// for a session that has ended (its epoch is no longer `captureEpoch`) is dropped. Main thread only.
class WindowPictures {
  public:
    WindowPictures(platform::WindowServer& windowServer, CaptureQueue& queue,
                   ThumbnailCache& cache = ThumbnailCache::shared());
    ~WindowPictures();
    WindowPictures(const WindowPictures&) = delete;
    WindowPictures& operator=(const WindowPictures&) = delete;

    // The current overview session; raising it when the overview closes or reopens is what makes
    // late pictures stop at the hand-over.
    std::uint64_t captureEpoch() const { return captureEpoch_; }
    void setCaptureEpoch(std::uint64_t epoch) { captureEpoch_ = epoch; }

    // Asks for pictures of `windows` for the session `epoch`: queued work is cancelled, cached
    // pictures fill the thumbnails at once, windows with no picture are captured at once, and windows
    // in `refresh` that already show a picture are taken again 450 + 120 x i ms later.
    void request(const std::vector<std::uint32_t>& windows, std::uint64_t epoch,
                 const std::set<std::uint32_t>& refresh);
    // One capture of one window, without the screenshot fallback and without an epoch check first.
    void captureOne(std::uint32_t window, std::uint64_t epoch);
    // A later pass taking every window at up to 2800 pixels; does nothing when the overview isn't
    // open or `epoch` isn't the current session.
    void captureHighResolution(const std::vector<std::uint32_t>& windows, std::uint64_t epoch,
                               bool overviewOpen);

    const ExposeThumbnail* thumbnail(std::uint32_t window) const;
    const std::map<std::uint32_t, ExposeThumbnail>& thumbnails() const { return thumbnails_; }
    std::optional<CachedThumb> cached(std::uint32_t window) const { return cache_.lookup(window); }

    // A window's thumbnail took a new picture (identical pixels don't count).
    ferrow::Signal<std::uint32_t> changed;
    // Every picture delivered to the current session, changed or not (the per-app colour step).
    std::function<void(std::uint32_t window, const Picture& picture)> colourStep;

    // The `captures` interval of one session: it ends when every window asked for has arrived, or
    // when the overview closes first (`endCaptures`).
    void beginCaptures(std::uint64_t epoch, const std::vector<std::uint32_t>& windows);
    void endCaptures();
    bool capturesOpen() const { return capturesOpen_; }
    const std::set<std::uint32_t>& capturePendingIDs() const { return capturePendingIDs_; }

    // Re-reads the screen-recording permission (each opening); true when it is missing.
    bool refreshScreenRecording();
    bool screenRecordingMissing() const { return screenRecordingMissing_; }

    std::size_t pendingFallbacks() const { return fallbacks_.size(); }
    bool fallbackRunning() const { return fallbackRunning_; }

  private:
    struct Fallback {
        std::uint32_t window;
        std::uint64_t epoch;
    };
    struct Job {
        std::uint32_t window = 0;
        std::uint64_t epoch = 0;
        int limit = pictures::kThumbnailLongestSide;
        std::uint32_t options = platform::capture::thumbnailOptions;
        bool withFallback = true;
    };
    void enqueue(const Job& job);
    void handOver(std::uint32_t window, std::uint64_t epoch, const CachedThumb& picture);
    void startFallback(std::uint32_t window, std::uint64_t epoch);
    void runNextFallback();
    void recordFirstPixels(std::uint32_t window, std::uint64_t epoch);
    ExposeThumbnail& thumbnailFor(std::uint32_t window);

    platform::WindowServer& windowServer_;
    CaptureQueue& queue_;
    ThumbnailCache& cache_;
    std::shared_ptr<bool> alive_;
    std::map<std::uint32_t, ExposeThumbnail> thumbnails_;
    std::uint64_t captureEpoch_ = 0;
    std::vector<ferrow::WorkItem> refreshTimers_;
    std::vector<Fallback> fallbacks_;
    bool fallbackRunning_ = false;
    bool capturesOpen_ = false;
    std::uint64_t captureSignpostEpoch_ = 0;
    std::set<std::uint32_t> capturePendingIDs_;
    std::set<std::uint32_t> captureFirstPixelsSeen_;
    bool screenRecordingMissing_ = false;
};

}  // namespace zelk::expose
