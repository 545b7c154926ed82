#pragma once
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "input/OSDModel.h"
#include "platform/draw/ExposePainter.h"
#include "platform/sim/SimWorld.h"

namespace zelk::draw {
class Surface;
}

namespace zelk::agent {

// Pictures of a run: each time the panel's model changes, a PNG of the simulated desktop with the
// panel at its frame; at the end an index.html filmstrip with the virtual time under each frame.
class FrameWriter {
  public:
    explicit FrameWriter(std::filesystem::path directory);
    // False (with `error`) when the folder can't be made.
    bool open(std::string& error);
    void add(const sim::SimWorld& world, const osd::OSDModel& model, double atMs);
    // The overview over the desktop, each time what it shows changes.
    void addOverview(const sim::SimWorld& world, const draw::OverviewPicture& picture,
                     const std::string& caption, double atMs);
    bool finish(std::string& error);
    // Surfaces beside the panel (the menu-bar strip, the launch pills), drawn over every frame in
    // global points; a change of theirs adds a frame with the panel as it last was.
    void setOverlay(std::function<void(draw::Surface&)> overlay) { overlay_ = std::move(overlay); }
    void addOverlayChange(const sim::SimWorld& world, const std::string& caption, double atMs);
    std::size_t count() const { return frames_.size(); }

  private:
    struct Frame {
        std::string file;
        double atMs;
        std::string caption;
    };
    std::filesystem::path dir_;
    std::vector<Frame> frames_;
    std::string lastKey_;
    std::string lastOverviewKey_;
    std::optional<osd::OSDModel> lastModel_;
    std::function<void(draw::Surface&)> overlay_;
    void write(const sim::SimWorld& world, const osd::OSDModel& model, double atMs, std::string caption);
};

}  // namespace zelk::agent
