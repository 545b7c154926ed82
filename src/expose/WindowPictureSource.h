#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// Where the overview gets its window pictures. The overview asks for pictures when it opens and stops
// asking when it closes; a tile draws whatever picture is there, or a placeholder without one. The
// default source has none.
namespace zelk::expose {

struct WindowPicture {
    int width = 0, height = 0;  // pixels
    int bytesPerRow = 0;
    std::shared_ptr<const std::vector<std::uint8_t>> bgra;  // premultiplied, `bytesPerRow` per row
};

class WindowPictureSource {
  public:
    virtual ~WindowPictureSource() = default;
    // The overview opened (or its windows changed) with these windows: start getting their pictures.
    virtual void request(const std::vector<std::uint32_t>& windowIDs) { (void)windowIDs; }
    // The overview closed: drop work not yet done.
    virtual void cancel() {}
    // The picture for one window, if one is there.
    virtual std::optional<WindowPicture> picture(std::uint32_t windowID) const {
        (void)windowID;
        return std::nullopt;
    }
    // Whether pictures can be taken at all (the screen-recording permission).
    virtual bool permitted() const { return true; }
};

}  // namespace zelk::expose
