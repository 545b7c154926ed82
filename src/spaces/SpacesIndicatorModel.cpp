#include "spaces/SpacesIndicatorModel.h"

#include <fmt/format.h>

namespace zelk::spaces {

namespace {

constexpr int kUserSpace = 0;

// Characters, not bytes: "·" is one.
std::size_t characterCount(const std::string& s) {
    std::size_t n = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

IndicatorCell fullScreenCell(const IndicatorInputs& in, const IndicatorOptions& options,
                             std::uint64_t space) {
    IndicatorCell cell;
    std::string key = options.letters && in.fullScreenKey ? in.fullScreenKey(space) : "";
    cell.glyph = key.empty() ? std::string(kUnnumberedGlyph) : key;
    return cell;
}

IndicatorCell userCell(const IndicatorInputs& in, const IndicatorOptions& options, std::uint64_t space,
                       int number) {
    IndicatorCell cell;
    cell.glyph = number;
    if (!options.letters) return cell;
    if (auto it = in.stageKeyBySpace.find(space); it != in.stageKeyBySpace.end() && !it->second.empty()) {
        cell.glyph = it->second;
        cell.isStage = true;
    }
    return cell;
}

}  // namespace

std::string IndicatorCell::text() const {
    if (auto* n = std::get_if<int>(&glyph)) return std::to_string(*n);
    return std::get<std::string>(glyph);
}

bool IndicatorCell::wide() const {
    return characterCount(text()) > 1;
}

std::vector<IndicatorCell> buildIndicatorCells(const IndicatorInputs& in, const IndicatorOptions& options) {
    std::vector<IndicatorCell> cells;
    int number = 0;
    for (const auto& display : in.displays) {
        auto active = in.activeByDisplay.find(display.displayIdentifier);
        const std::uint64_t current =
            active != in.activeByDisplay.end() ? active->second : display.currentSpace.id64;
        for (const auto& space : display.spaces) {
            // Full-screen Spaces take no number: the user's own Spaces count 1, 2, 3 over all displays.
            IndicatorCell cell = space.type == kUserSpace ? userCell(in, options, space.id64, ++number)
                                                          : fullScreenCell(in, options, space.id64);
            cell.isCurrent = space.id64 == current;
            cell.display = display.displayIdentifier;
            cell.spaceID = space.id64;
            if (options.activeOnly && !cell.isCurrent) continue;
            cells.push_back(std::move(cell));
        }
    }
    return cells;
}

std::string indicatorSignature(const std::vector<IndicatorCell>& cells) {
    std::string out;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i > 0 && cells[i].display != cells[i - 1].display) out += "|";
        const auto& c = cells[i];
        out += std::holds_alternative<int>(c.glyph) ? "n" : "l";
        out += c.text();
        if (c.isCurrent) out += "*";
    }
    return out;
}

std::string describeIndicator(const std::vector<IndicatorCell>& cells) {
    std::string out;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i > 0) out += cells[i].display != cells[i - 1].display ? " | " : " ";
        if (cells[i].isCurrent)
            out += fmt::format("[{}]", cells[i].text());
        else
            out += cells[i].text();
    }
    return out;
}

IndicatorLayout layoutIndicator(const std::vector<IndicatorCell>& cells, bool showIcon) {
    using G = IndicatorGeometry;
    IndicatorLayout layout;
    double x = 0;
    if (showIcon) {
        layout.icon = Rect{0, 0, G::kIconSize, G::kIconSize};
        x = G::kIconSize + G::kIconTrailingGap;
    }
    const double y = (G::kImageHeight - G::kGlyphHeight) / 2;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i > 0) x += cells[i].display != cells[i - 1].display ? G::kDisplayGap : G::kGlyphSpacing;
        const double w = cells[i].wide() ? G::kGlyphWidthWide : G::kGlyphWidth;
        layout.cells.push_back({x, y, w, G::kGlyphHeight});
        x += w;
    }
    // An icon with no cells after it keeps no trailing gap.
    layout.width = cells.empty() && showIcon ? G::kIconSize : x;
    return layout;
}

}  // namespace zelk::spaces
