#include "expose/CapturedPictureSource.h"

namespace zelk::expose {

CapturedPictureSource::CapturedPictureSource(platform::WindowServer& server,
                                             std::unique_ptr<CaptureQueue> queue)
    : queue_(std::move(queue)), pictures_(std::make_unique<WindowPictures>(server, *queue_)) {}

// The pictures go first: they hold the queue.
CapturedPictureSource::~CapturedPictureSource() {
    queue_->cancelQueued();
    pictures_.reset();
}

void CapturedPictureSource::request(const std::vector<std::uint32_t>& windowIDs) {
    ++epoch_;
    pictures_->setCaptureEpoch(epoch_);
    pictures_->refreshScreenRecording();
    pictures_->beginCaptures(epoch_, windowIDs);
    // Every window already showing a picture is taken again after the first frame, so a second
    // opening starts from the cache and then catches up with what changed.
    std::set<std::uint32_t> refresh(windowIDs.begin(), windowIDs.end());
    pictures_->request(windowIDs, epoch_, refresh);
}

void CapturedPictureSource::cancel() {
    queue_->cancelQueued();
    pictures_->endCaptures();
    // A later hand-over of this session finds its epoch stale.
    pictures_->setCaptureEpoch(++epoch_);
}

std::optional<WindowPicture> CapturedPictureSource::picture(std::uint32_t windowID) const {
    const ExposeThumbnail* thumb = pictures_->thumbnail(windowID);
    if (!thumb || !thumb->image) return std::nullopt;
    const Picture& image = thumb->image;
    WindowPicture out;
    out.width = image->width;
    out.height = image->height;
    out.bytesPerRow = static_cast<int>(image->bytesPerRow);
    // Shares the image's pixels without copying them.
    out.bgra = std::shared_ptr<const std::vector<std::uint8_t>>(image, &image->pixels);
    return out;
}

bool CapturedPictureSource::permitted() const {
    return !pictures_->screenRecordingMissing();
}

}  // namespace zelk::expose
