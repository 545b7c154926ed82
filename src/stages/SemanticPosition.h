#pragma once
#include <array>
#include <optional>
#include <string_view>

namespace zelk::stages {

// A named region of a screen. The order is the position's number, which the inference walks by.
enum class SemanticPosition {
    leftHalf,
    rightHalf,
    topHalf,
    bottomHalf,
    topLeft,
    topRight,
    bottomLeft,
    bottomRight,
    center,
    maximized,
    fullscreen,
    verticalThird1,
    verticalThird2,
    verticalThird3,
    horizontalThird1,
    horizontalThird2,
    horizontalThird3,
    verticalQuarter1,
    verticalQuarter2,
    verticalQuarter3,
    verticalQuarter4,
    horizontalQuarter1,
    horizontalQuarter2,
    horizontalQuarter3,
    horizontalQuarter4,
};

inline constexpr std::size_t kSemanticPositionCount = 25;

std::string_view rawValue(SemanticPosition position);
std::optional<SemanticPosition> semanticPositionFromRaw(std::string_view raw);

// Whether the editor places an item by region or by pixels.
enum class PlacementMode { semantic, pixels };

}  // namespace zelk::stages
