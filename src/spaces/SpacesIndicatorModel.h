#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Geometry.h"
#include "platform/WindowServer.h"

// The menu-bar strip of Spaces as plain values: which cells, their text and their geometry. Pure.
namespace zelk::spaces {

// A cell shows a number (a user Space) or a letter (a stage's key, a full-screen app's key, or "·").
using IndicatorGlyph = std::variant<int, std::string>;

struct IndicatorCell {
    IndicatorGlyph glyph = 1;
    bool isCurrent = false;  // the active Space of its display: drawn filled
    bool isStage = false;    // the letter is a stage's key
    std::string display;     // the display's identifier
    std::uint64_t spaceID = 0;
    bool operator==(const IndicatorCell&) const = default;

    std::string text() const;
    // More than one character: the wide cell.
    bool wide() const;
};

struct IndicatorOptions {
    bool letters = true;      // letters for full-screen and stage Spaces; "·" for the unnumbered otherwise
    bool activeOnly = false;  // each display keeps only its current cell
    bool hideIcon = false;    // the strip starts with the cells, without the program's icon
    bool operator==(const IndicatorOptions&) const = default;
};

// What one refresh reads: the window server's displays and Spaces, the active Space of each display,
// the stage that lives on a Space, and the key of the app that fills a full-screen Space ("" for none).
struct IndicatorInputs {
    std::vector<platform::DisplaySpaces> displays;
    std::map<std::string, std::uint64_t> activeByDisplay;
    std::map<std::uint64_t, std::string> stageKeyBySpace;
    std::function<std::string(std::uint64_t space)> fullScreenKey;
};

inline constexpr const char* kUnnumberedGlyph = "\xC2\xB7";  // "·"

// One cell per Space of each display, in the displays' order; user Spaces numbered in one running
// count over all displays.
std::vector<IndicatorCell> buildIndicatorCells(const IndicatorInputs& inputs,
                                               const IndicatorOptions& options);

// "n1*n2" per display ("l" and the letter for a letter cell, "*" for the current one), displays joined
// by "|". Two strips that draw alike have the same signature.
std::string indicatorSignature(const std::vector<IndicatorCell>& cells);

// The readable form: "1 [2] 3 | a 4", the current cell in brackets.
std::string describeIndicator(const std::vector<IndicatorCell>& cells);

// The strip's geometry in points, from the left of its image.
struct IndicatorGeometry {
    static constexpr double kImageHeight = 18;
    static constexpr double kIconSize = 18;
    static constexpr double kIconTrailingGap = 6;
    static constexpr double kGlyphWidth = 16;
    static constexpr double kGlyphWidthWide = 22;
    static constexpr double kGlyphHeight = 15;
    static constexpr double kGlyphSpacing = 3;
    static constexpr double kDisplayGap = 9;
    static constexpr double kCornerRadius = 3.5;
    static constexpr double kStroke = 1.3;
    static constexpr double kFontSize = 12;
};

struct IndicatorLayout {
    std::optional<Rect> icon;
    std::vector<Rect> cells;  // one per cell, in order
    double width = 0;
};

IndicatorLayout layoutIndicator(const std::vector<IndicatorCell>& cells, bool showIcon);

// The strip as it was last rendered: what the menu bar shows.
struct SpacesIndicatorModel {
    bool enabled = false;
    bool showIcon = true;
    std::vector<IndicatorCell> cells;
    bool operator==(const SpacesIndicatorModel&) const = default;
};

}  // namespace zelk::spaces
