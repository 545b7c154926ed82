#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "expose/ExposeModel.h"

// One screen of the overview laid out through the layout engine: the container under the top rules,
// the grouping (cards by app, sections by Space or by state), the Space filter, and the Spaces bar.
// Pure; coordinates are the panel's own, its top left at the screen's top left.
namespace zelk::expose {

inline constexpr double kContainerInsetX = 56;
inline constexpr double kContainerBottom = 80;
inline constexpr double kHiddenTileScale = 0.55;
inline constexpr double kSpaceFilterHeader = 26;

struct ScreenLayoutInput {
    Rect screenFrame;  // global
    double menuBarHeight = 0;
    bool spacesBar = true;
    ExposeGrouping grouping = ExposeGrouping::app;
    std::vector<ExposeGroup> groups;      // this screen's windows, by app
    std::vector<ExposeSpaceInfo> spaces;  // this screen's display's Spaces
    std::optional<std::string> filterBundleID;
    std::optional<std::uint64_t> filterSpaceID;
    std::map<std::string, Point> pinnedCenters;  // cards kept in place while the overview stays open
    std::uint64_t version = 0;
};

// Where the tiles go: the screen's width less 56 a side, below the top rule and 80 above the bottom.
Rect layoutContainer(const Rect& screenFrame, double menuBarHeight, bool spacesBar);
ExposeLayoutSnapshot layoutScreen(const ScreenLayoutInput& input);
// The card centres of a laid-out app grouping, to pin them for the next relayout.
std::map<std::string, Point> cardCenters(const ExposeLayoutSnapshot& layout);

}  // namespace zelk::expose
