#include "expose/WindowPictures.h"

#include <algorithm>

#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::expose {

using ferrow::Log;

PixelSize screenshotSize(Size frame) {
    const double longest = std::max(frame.width, frame.height);
    double scale = pictures::kScreenshotScale;
    if (longest > 1) scale = std::min(pictures::kThumbnailLongestSide / longest, pictures::kScreenshotScale);
    return {std::max(2, static_cast<int>(frame.width * scale)),
            std::max(2, static_cast<int>(frame.height * scale))};
}

namespace {

CachedThumb entryFor(ScaledPicture scaled, ferrow::Nanos at) {
    const Size size{static_cast<double>(scaled.image->width), static_cast<double>(scaled.image->height)};
    return CachedThumb{std::move(scaled.image), size, at, scaled.hash};
}

// The window server's picture of one window, made ready for the overview and stored in the cache;
// nothing when the window server has no usable picture. Runs on a capture thread.
std::optional<CachedThumb> takePicture(platform::WindowServer& windowServer, ThumbnailCache& cache,
                                       const ferrow::Clock& clock, std::uint32_t window, int limit,
                                       std::uint32_t options) {
    auto images = windowServer.captureWindows({window}, options);
    if (images.empty() || !isUsefulPicture(images.front())) return std::nullopt;
    CachedThumb entry = entryFor(downscaleAndHash(images.front(), limit), clock.now());
    cache.store(window, entry);
    return entry;
}

}  // namespace

WindowPictures::WindowPictures(platform::WindowServer& windowServer, CaptureQueue& queue,
                               ThumbnailCache& cache)
    : windowServer_(windowServer), queue_(queue), cache_(cache), alive_(std::make_shared<bool>(true)) {}

WindowPictures::~WindowPictures() {
    for (auto& t : refreshTimers_)
        t.cancel();
}

ExposeThumbnail& WindowPictures::thumbnailFor(std::uint32_t window) {
    auto [it, added] = thumbnails_.try_emplace(window);
    if (added) it->second.id = window;
    return it->second;
}

const ExposeThumbnail* WindowPictures::thumbnail(std::uint32_t window) const {
    auto it = thumbnails_.find(window);
    return it == thumbnails_.end() ? nullptr : &it->second;
}

void WindowPictures::request(const std::vector<std::uint32_t>& windows, std::uint64_t epoch,
                             const std::set<std::uint32_t>& refresh) {
    queue_.cancelQueued();
    fallbacks_.clear();
    for (auto& t : refreshTimers_)
        t.cancel();
    refreshTimers_.clear();

    // Cached pictures first, for every window, so the first frame already shows them.
    for (auto window : windows) {
        ExposeThumbnail& t = thumbnailFor(window);
        if (t.image) continue;
        if (auto entry = cache_.lookup(window)) {
            t.image = entry->image;
            t.pixelSize = entry->pixelSize;
            t.pixelHash = entry->pixelHash;
            changed.emit(window);
        }
    }
    // Windows with no picture are taken at once; stale ones later, spaced out, so the opening
    // animation runs free of capture load.
    std::vector<std::uint32_t> stale;
    for (auto window : windows) {
        const ExposeThumbnail& t = thumbnails_.at(window);
        if (!t.image)
            enqueue({window, epoch});
        else if (refresh.count(window))
            stale.push_back(window);
    }
    std::weak_ptr<bool> alive = alive_;
    for (std::size_t i = 0; i < stale.size(); ++i) {
        const std::uint32_t window = stale[i];
        refreshTimers_.push_back(ferrow::mainAsyncAfter(refreshDelayMs(i), [this, alive, window, epoch] {
            if (alive.expired() || captureEpoch_ != epoch) return;
            enqueue({window, epoch});
        }));
    }
}

void WindowPictures::captureOne(std::uint32_t window, std::uint64_t epoch) {
    Job job{window, epoch};
    job.withFallback = false;
    enqueue(job);
}

void WindowPictures::captureHighResolution(const std::vector<std::uint32_t>& windows, std::uint64_t epoch,
                                           bool overviewOpen) {
    if (!overviewOpen || epoch != captureEpoch_) return;
    for (auto window : windows)
        enqueue({window, epoch, pictures::kHighResolutionLongestSide,
                 platform::capture::highResolutionOptions, false});
}

void WindowPictures::enqueue(const Job& job) {
    std::weak_ptr<bool> alive = alive_;
    platform::WindowServer* windowServer = &windowServer_;
    ThumbnailCache* cache = &cache_;
    std::shared_ptr<ferrow::Clock> clock = ferrow::MainQueue::shared().clockPtr();
    queue_.add([this, alive, windowServer, cache, clock, job] {
        // An operation that has begun always completes its cache write; the epoch is looked at on the
        // main thread only.
        auto picture = takePicture(*windowServer, *cache, *clock, job.window, job.limit, job.options);
        ferrow::mainAsync([this, alive, job, picture = std::move(picture)] {
            if (alive.expired()) return;
            if (picture)
                handOver(job.window, job.epoch, *picture);
            else if (job.withFallback)
                startFallback(job.window, job.epoch);
        });
    });
}

void WindowPictures::handOver(std::uint32_t window, std::uint64_t epoch, const CachedThumb& picture) {
    // The session this picture was meant for is gone; the cache keeps it for the next one.
    if (epoch != captureEpoch_) return;
    if (colourStep) colourStep(window, picture.image);
    ExposeThumbnail& t = thumbnailFor(window);
    const bool samePixels = picture.pixelHash != 0 && t.image && t.pixelHash == picture.pixelHash;
    if (!samePixels) {
        t.image = picture.image;
        t.pixelSize = picture.pixelSize;
        t.pixelHash = picture.pixelHash;
        changed.emit(window);
    }
    recordFirstPixels(window, epoch);
}

void WindowPictures::startFallback(std::uint32_t window, std::uint64_t epoch) {
    if (epoch != captureEpoch_ || windowServer_.osMajorVersion() < pictures::kScreenshotServiceMinOS) return;
    fallbacks_.push_back({window, epoch});
    if (fallbackRunning_) return;  // the running batch takes it up
    fallbackRunning_ = true;
    std::weak_ptr<bool> alive = alive_;
    ferrow::mainAsync([this, alive] {
        if (!alive.expired()) runNextFallback();
    });
}

// One entry per turn of the main queue, until the list is empty (a new request empties it).
void WindowPictures::runNextFallback() {
    if (fallbacks_.empty()) {
        fallbackRunning_ = false;
        return;
    }
    const Fallback entry = fallbacks_.front();
    fallbacks_.erase(fallbacks_.begin());
    auto content = windowServer_.shareableWindows();
    if (content && entry.epoch == captureEpoch_) {
        auto found = std::find_if(content->begin(), content->end(), [&](const platform::ShareableWindow& w) {
            return w.windowID == entry.window;
        });
        if (found != content->end()) {
            const PixelSize size = screenshotSize({found->frame.width, found->frame.height});
            if (auto image = windowServer_.screenshotWindow(entry.window, size.width, size.height)) {
                CachedThumb picture =
                    entryFor(downscaleAndHash(*image, pictures::kThumbnailLongestSide), ferrow::now());
                cache_.store(entry.window, picture);
                handOver(entry.window, entry.epoch, picture);
            }
        }
    }
    std::weak_ptr<bool> alive = alive_;
    ferrow::mainAsync([this, alive] {
        if (!alive.expired()) runNextFallback();
    });
}

void WindowPictures::beginCaptures(std::uint64_t epoch, const std::vector<std::uint32_t>& windows) {
    captureSignpostEpoch_ = epoch;
    capturePendingIDs_ = std::set<std::uint32_t>(windows.begin(), windows.end());
    captureFirstPixelsSeen_.clear();
    capturesOpen_ = true;
    Log::debug("captures: begin windows={}", capturePendingIDs_.size());
    if (capturePendingIDs_.empty()) {
        capturesOpen_ = false;
        Log::debug("captures: end interrupted=false remaining=0");
    }
}

void WindowPictures::endCaptures() {
    if (!capturesOpen_) return;
    capturesOpen_ = false;
    Log::debug("captures: end interrupted=true remaining={}", capturePendingIDs_.size());
}

void WindowPictures::recordFirstPixels(std::uint32_t window, std::uint64_t epoch) {
    if (epoch != captureSignpostEpoch_ || !captureFirstPixelsSeen_.insert(window).second) return;
    Log::debug("firstPixels: wid={}", window);
    if (capturePendingIDs_.erase(window) && capturePendingIDs_.empty() && capturesOpen_) {
        capturesOpen_ = false;
        Log::debug("captures: end interrupted=false remaining=0");
    }
}

bool WindowPictures::refreshScreenRecording() {
    screenRecordingMissing_ = !windowServer_.screenCaptureAccess();
    return screenRecordingMissing_;
}

}  // namespace zelk::expose
