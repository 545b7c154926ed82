#pragma once
#include <memory>

#include "expose/WindowPictureSource.h"
#include "expose/WindowPictures.h"

namespace zelk::expose {

// The overview's pictures taken from the window server: each opening is a capture session of its own
// (a new epoch), so pictures still arriving from an earlier opening are dropped at the hand-over.
class CapturedPictureSource final : public WindowPictureSource {
  public:
    CapturedPictureSource(platform::WindowServer& server, std::unique_ptr<CaptureQueue> queue);
    ~CapturedPictureSource() override;

    void request(const std::vector<std::uint32_t>& windowIDs) override;
    void cancel() override;
    std::optional<WindowPicture> picture(std::uint32_t windowID) const override;
    bool permitted() const override;

    WindowPictures& pictures() { return *pictures_; }

  private:
    std::unique_ptr<CaptureQueue> queue_;
    std::unique_ptr<WindowPictures> pictures_;
    std::uint64_t epoch_ = 0;
};

}  // namespace zelk::expose
