#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Geometry.h"
#include "stages/SemanticPosition.h"

// Where a placement puts a window: the rectangles of the named regions, the region a window's
// rectangle is nearest to, and which screen a stored name means. All results are in top-left
// coordinates (y grows downward from the top of the first screen).
namespace zelk::stages {

// One display as the screen list reports it: frames with the origin at the bottom left of the first
// screen, y growing upward.
struct ScreenRecord {
    std::uint32_t number = 0;  // the display number
    std::string localizedName;
    std::string uuid;  // upper case
    Rect frame;
    Rect visibleFrame;  // less the menu bar and the Dock
    bool operator==(const ScreenRecord&) const = default;
};

struct ScreenList {
    std::vector<ScreenRecord> screens;  // the first is the primary screen
    std::optional<std::size_t> main;    // index of the screen with the key window
    const ScreenRecord* mainScreen() const;
};

// A rectangle of the screen list in top-left coordinates; unconverted without any screen.
Rect topLeftRect(const Rect& bottomLeft, const ScreenList& list);
Rect visibleFrame(const ScreenRecord& screen, const ScreenList& list);

// The region's rectangle on visible frame `v`, inset by `padding` when that leaves something.
Rect semanticRect(SemanticPosition position, const Rect& v, std::optional<double> padding = std::nullopt,
                  std::optional<Size> size = std::nullopt);

struct SemanticMatch {
    SemanticPosition position = SemanticPosition::maximized;
    std::optional<double> padding;
    std::optional<Size> size;
    bool operator==(const SemanticMatch&) const = default;
};

// The named region `r` fills on visible frame `v`, allowing a little overhang and an even inset as
// padding; else `center` for a large window centred on the screen; else nothing.
std::optional<SemanticMatch> inferSemantic(const Rect& r, const Rect& v);

// The screen a stored name means; the main screen for an empty or unknown name, nothing without screens.
const ScreenRecord* screenNamed(std::string_view name, const ScreenList& list);

// The name a placement stores for a screen: "builtin" for the built-in panel, else its name.
std::string storedScreenName(const ScreenRecord& screen);

}  // namespace zelk::stages
