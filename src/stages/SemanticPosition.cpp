#include "stages/SemanticPosition.h"

namespace zelk::stages {

namespace {
constexpr std::array<std::string_view, kSemanticPositionCount> kRaw = {
    "left-half",
    "right-half",
    "top-half",
    "bottom-half",
    "top-left",
    "top-right",
    "bottom-left",
    "bottom-right",
    "center",
    "maximized",
    "fullscreen",
    "vertical-third-1",
    "vertical-third-2",
    "vertical-third-3",
    "horizontal-third-1",
    "horizontal-third-2",
    "horizontal-third-3",
    "vertical-quarter-1",
    "vertical-quarter-2",
    "vertical-quarter-3",
    "vertical-quarter-4",
    "horizontal-quarter-1",
    "horizontal-quarter-2",
    "horizontal-quarter-3",
    "horizontal-quarter-4",
};
}  // namespace

std::string_view rawValue(SemanticPosition position) {
    return kRaw[static_cast<std::size_t>(position)];
}

std::optional<SemanticPosition> semanticPositionFromRaw(std::string_view raw) {
    for (std::size_t i = 0; i < kRaw.size(); ++i)
        if (kRaw[i] == raw) return static_cast<SemanticPosition>(i);
    return std::nullopt;
}

}  // namespace zelk::stages
