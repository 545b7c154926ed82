#pragma once
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>

#include "platform/Geometry.h"
#include "stages/PlacementGeometry.h"
#include "stages/SemanticPosition.h"

namespace zelk::stages {

// Where a stage item's window belongs: a pixel rectangle relative to a screen's visible frame, or a
// named region of a screen.
struct PixelsPlacement {
    Rect rect;  // origin relative to the visible frame
    std::optional<std::string> screen;
    bool operator==(const PixelsPlacement&) const = default;
};

struct SemanticPlacement {
    SemanticPosition position = SemanticPosition::maximized;
    std::optional<std::string> screen;
    std::optional<double> padding;
    std::optional<Size> size;  // used by center
    bool operator==(const SemanticPlacement&) const = default;
};

using WindowPlacement = std::variant<PixelsPlacement, SemanticPlacement>;

// The absolute rectangle of a placement, on the screen its name resolves to; nothing without screens.
std::optional<Rect> placementRect(const WindowPlacement& placement, const ScreenList& screens);

// The placement that captures a window's rectangle: a named region when one fits, else pixels.
WindowPlacement placementFor(const Rect& rect, const ScreenList& screens);

// JSON form: {"type": "pixels"|"semantic", "rect", "position", "screen", "padding", "size"}, with a
// rectangle as {"x", "y", "width", "height"} and a size as {"width", "height"}.
nlohmann::json toJson(const WindowPlacement& placement);
// Fails with a short reason in `error`, such as "Unknown WindowPlacement type 'grid'".
std::optional<WindowPlacement> windowPlacementFromJson(const nlohmann::json& json, std::string& error);

}  // namespace zelk::stages
