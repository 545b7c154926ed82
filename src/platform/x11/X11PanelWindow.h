#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input/OSDModel.h"
#include "platform/Geometry.h"

namespace zelk::x11 {

// The room around the panel's frame that its shadow is drawn into.
constexpr double kPanelShadowMargin = 8;

// Where the window stands for a panel frame: the frame and its shadow margin, in whole pixels.
struct PanelGeometry {
    std::int32_t x = 0, y = 0;
    std::uint32_t width = 0, height = 0;
    bool operator==(const PanelGeometry&) const = default;
};
std::optional<PanelGeometry> panelGeometry(Rect frame);

// What showing a model asks of the window, against what it shows now.
struct PanelStep {
    bool unmap = false;          // hide it (it goes, or it moves and the desktop under it is read again)
    bool captureBehind = false;  // read the desktop under the new place before it covers it
    bool draw = false;           // paint the model
    bool map = false;            // show it
};
struct PanelShown {
    bool mapped = false;
    std::optional<PanelGeometry> geometry;
    std::optional<osd::OSDModel> drawn;
};
PanelStep planPanelStep(const PanelShown& now, const osd::OSDModel& model);

// The panel on an X11 display: an override-redirect ARGB window that the window manager never sees,
// standing at the model's frame while the model is visible, drawn by the panel painter. Holds its own
// connection, so it can be driven from the main thread while the desktop's threads use theirs.
class PanelWindow {
  public:
    // Connects to the display (empty: $DISPLAY); nullptr with `error` set when it can't.
    static std::unique_ptr<PanelWindow> open(const std::string& display, std::string& error);
    ~PanelWindow();
    PanelWindow(const PanelWindow&) = delete;
    PanelWindow& operator=(const PanelWindow&) = delete;

    // Shows, moves, redraws or hides the window as the model asks; unchanged models cost nothing.
    void show(const osd::OSDModel& model);
    bool mapped() const { return shown_.mapped; }

  private:
    struct Impl;
    explicit PanelWindow(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
    PanelShown shown_;
};

}  // namespace zelk::x11
