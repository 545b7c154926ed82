#include <gtest/gtest.h>

#include "stages/PlacementGeometry.h"
#include "stages/WindowPlacement.h"

using namespace zelk;
using namespace zelk::stages;
using P = SemanticPosition;

namespace {

void expectRect(const Rect& r, double x, double y, double w, double h) {
    EXPECT_DOUBLE_EQ(r.x, x);
    EXPECT_DOUBLE_EQ(r.y, y);
    EXPECT_DOUBLE_EQ(r.width, w);
    EXPECT_DOUBLE_EQ(r.height, h);
}

// A 1440x900 built-in panel with a 25-point menu bar (frames with the origin at the bottom left).
ScreenRecord builtin() {
    return {1, "Built-in Retina Display", "AAAA-1111", {0, 0, 1440, 900}, {0, 0, 1440, 875}};
}
// A 2560x1440 display to the right, its top aligned with the panel's; no menu bar there.
ScreenRecord dell() {
    return {2, "DELL U2720Q", "BBBB-2222", {1440, -540, 2560, 1440}, {1440, -540, 2560, 1440}};
}

const Rect kV{0, 25, 1440, 875};  // the panel's visible frame, top-left

}  // namespace

TEST(PlacementGeometry, VisibleFramesInTopLeftCoordinates) {
    ScreenList list{{builtin(), dell()}, 1};
    expectRect(visibleFrame(list.screens[0], list), 0, 25, 1440, 875);
    expectRect(visibleFrame(list.screens[1], list), 1440, 0, 2560, 1440);
    expectRect(visibleFrame(builtin(), ScreenList{}), 0, 0, 1440, 875);  // no screens: as it is
}

TEST(PlacementGeometry, RectanglesOfEveryRegion) {
    expectRect(semanticRect(P::leftHalf, kV), 0, 25, 720, 875);
    expectRect(semanticRect(P::rightHalf, kV), 720, 25, 720, 875);
    expectRect(semanticRect(P::topHalf, kV), 0, 25, 1440, 437.5);
    expectRect(semanticRect(P::bottomHalf, kV), 0, 462.5, 1440, 437.5);
    expectRect(semanticRect(P::topLeft, kV), 0, 25, 720, 437.5);
    expectRect(semanticRect(P::topRight, kV), 720, 25, 720, 437.5);
    expectRect(semanticRect(P::bottomLeft, kV), 0, 462.5, 720, 437.5);
    expectRect(semanticRect(P::bottomRight, kV), 720, 462.5, 720, 437.5);
    expectRect(semanticRect(P::center, kV), 360, 243.75, 720, 437.5);  // no size: half and half
    expectRect(semanticRect(P::center, kV, std::nullopt, Size{900, 700}), 270, 112.5, 900, 700);
    expectRect(semanticRect(P::maximized, kV), 0, 25, 1440, 875);
    expectRect(semanticRect(P::fullscreen, kV), 0, 25, 1440, 875);
    expectRect(semanticRect(P::verticalThird1, kV), 0, 25, 480, 875);
    expectRect(semanticRect(P::verticalThird2, kV), 480, 25, 480, 875);
    expectRect(semanticRect(P::verticalThird3, kV), 960, 25, 480, 875);
    expectRect(semanticRect(P::horizontalThird1, kV), 0, 25, 1440, 875.0 / 3);
    expectRect(semanticRect(P::horizontalThird2, kV), 0, 25 + 875.0 / 3, 1440, 875.0 / 3);
    expectRect(semanticRect(P::horizontalThird3, kV), 0, 25 + 2 * 875.0 / 3, 1440, 875.0 / 3);
    expectRect(semanticRect(P::verticalQuarter1, kV), 0, 25, 360, 875);
    expectRect(semanticRect(P::verticalQuarter2, kV), 360, 25, 360, 875);
    expectRect(semanticRect(P::verticalQuarter3, kV), 720, 25, 360, 875);
    expectRect(semanticRect(P::verticalQuarter4, kV), 1080, 25, 360, 875);
    expectRect(semanticRect(P::horizontalQuarter1, kV), 0, 25, 1440, 218.75);
    expectRect(semanticRect(P::horizontalQuarter2, kV), 0, 243.75, 1440, 218.75);
    expectRect(semanticRect(P::horizontalQuarter3, kV), 0, 462.5, 1440, 218.75);
    expectRect(semanticRect(P::horizontalQuarter4, kV), 0, 681.25, 1440, 218.75);
}

TEST(PlacementGeometry, PaddingInsetsEveryRegionUnlessNothingIsLeft) {
    expectRect(semanticRect(P::leftHalf, kV, 10.0), 10, 35, 700, 855);
    expectRect(semanticRect(P::maximized, kV, 8.0), 8, 33, 1424, 859);
    expectRect(semanticRect(P::fullscreen, kV, 8.0), 8, 33, 1424, 859);
    expectRect(semanticRect(P::leftHalf, kV, 360.0), 0, 25, 720,
               875);  // exactly half the width: nothing left
    expectRect(semanticRect(P::leftHalf, kV, 500.0), 0, 25, 720, 875);
    expectRect(semanticRect(P::leftHalf, kV, 0.0), 0, 25, 720, 875);
    expectRect(semanticRect(P::leftHalf, kV, -5.0), 0, 25, 720, 875);
}

TEST(PlacementGeometry, InferenceFindsRegionsAndPadding) {
    EXPECT_EQ(inferSemantic({4, 29, 712, 867}, kV), (SemanticMatch{P::leftHalf, 4.0, std::nullopt}));
    EXPECT_EQ(inferSemantic({1, 26, 718, 873}, kV), (SemanticMatch{P::leftHalf, std::nullopt, std::nullopt}));
    EXPECT_EQ(inferSemantic({0, 25, 1440, 875}, kV),
              (SemanticMatch{P::maximized, std::nullopt, std::nullopt}));
    EXPECT_EQ(inferSemantic({720, 462.5, 720, 437.5}, kV)->position, P::bottomRight);
    EXPECT_EQ(inferSemantic({480, 25, 480, 875}, kV)->position, P::verticalThird2);
    EXPECT_EQ(inferSemantic({0, 681.25, 1440, 218.75}, kV)->position, P::horizontalQuarter4);
    EXPECT_FALSE(inferSemantic({0, 25, 0, 875}, kV));
}

TEST(PlacementGeometry, InferenceBoundaries) {
    // Overhang: 6 points past the edge still fits, 7 doesn't (and nothing else does).
    EXPECT_EQ(inferSemantic({-6, 25, 726, 875}, kV)->position, P::leftHalf);
    EXPECT_FALSE(inferSemantic({-7, 25, 727, 875}, kV));
    // Tolerance is 6% of 875 = 52.5: a bottom short by 35 errs by 52.5 and fits with padding 8.75;
    // short by 36 errs by 54 and doesn't.
    EXPECT_EQ(inferSemantic({0, 25, 720, 840}, kV), (SemanticMatch{P::leftHalf, 8.75, std::nullopt}));
    EXPECT_FALSE(inferSemantic({0, 25, 720, 839}, kV));
    // Larger than the visible frame by more than 5%: nothing, even where the overhang rule allows it.
    const Rect small{0, 0, 200, 200};
    EXPECT_EQ(inferSemantic({-5, 0, 210, 200}, small)->position, P::maximized);
    EXPECT_FALSE(inferSemantic({-6, 0, 212, 200}, small));
    EXPECT_FALSE(inferSemantic({0, 0, 200, 211}, small));
    // A window loosely inside a region, unevenly inset, is no region.
    EXPECT_FALSE(inferSemantic({110, 135, 500, 300}, kV));
}

TEST(PlacementGeometry, CentredWindowsAreCenterWithTheirSize) {
    EXPECT_EQ(inferSemantic({270, 112.5, 900, 700}, kV),
              (SemanticMatch{P::center, std::nullopt, Size{900, 700}}));
    // Off centre by the tolerance (3% of 875 = 26.25) still counts; by more doesn't.
    EXPECT_EQ(inferSemantic({296.25, 112.5, 900, 700}, kV)->position, P::center);
    EXPECT_FALSE(inferSemantic({297, 112.5, 900, 700}, kV));
    EXPECT_FALSE(inferSemantic({645, 387.5, 150, 150}, kV));  // too small
    EXPECT_EQ(inferSemantic({620, 362.5, 200, 200}, kV)->position, P::center);
}

TEST(PlacementGeometry, ScreenByNameWithMainNotFirst) {
    const ScreenList list{{builtin(), dell()}, 1};
    const ScreenRecord* panel = &list.screens[0];
    const ScreenRecord* external = &list.screens[1];
    EXPECT_EQ(screenNamed("", list), external);
    EXPECT_EQ(screenNamed("  \t", list), external);
    EXPECT_EQ(screenNamed("primary", list), panel);
    EXPECT_EQ(screenNamed("Main", list), panel);
    EXPECT_EQ(screenNamed("built-in", list), panel);
    EXPECT_EQ(screenNamed("Built_In", list), panel);
    EXPECT_EQ(screenNamed("internal", list), panel);
    EXPECT_EQ(screenNamed("external", list), external);
    EXPECT_EQ(screenNamed(" 2 ", list), external);
    EXPECT_EQ(screenNamed("1", list), panel);
    EXPECT_EQ(screenNamed("99", list), external);  // no such number, no such name: main
    EXPECT_EQ(screenNamed("aaaa-1111", list), panel);
    EXPECT_EQ(screenNamed("dell u2720q", list), external);
    EXPECT_EQ(screenNamed("u2720", list), external);
    EXPECT_EQ(screenNamed("Retina", list), panel);
    // A stored external display on a machine with only its panel: the main screen.
    const ScreenList alone{{builtin()}, 0};
    EXPECT_EQ(screenNamed("External Display", alone), &alone.screens[0]);
    EXPECT_EQ(screenNamed("external", alone), &alone.screens[0]);
    EXPECT_EQ(screenNamed("builtin", ScreenList{{dell()}, std::nullopt}),
              nullptr);  // no main to fall back on
    EXPECT_EQ(screenNamed("", ScreenList{}), nullptr);
}

TEST(WindowPlacement, CaptureAndResolve) {
    const ScreenList list{{builtin(), dell()}, 1};
    // A padded left half of the panel is stored by region with the panel's stored name.
    WindowPlacement p = placementFor({4, 29, 712, 867}, list);
    EXPECT_EQ(p, WindowPlacement(SemanticPlacement{P::leftHalf, "builtin", 4.0, std::nullopt}));
    expectRect(*placementRect(p, list), 4, 29, 712, 867);
    // An odd rectangle on the external display: pixels relative to its visible frame.
    p = placementFor({1500, 100, 640, 480}, list);
    EXPECT_EQ(p, WindowPlacement(PixelsPlacement{{60, 100, 640, 480}, "DELL U2720Q"}));
    expectRect(*placementRect(p, list), 1500, 100, 640, 480);
    // Larger than any screen by more than 5%: pixels.
    EXPECT_TRUE(std::holds_alternative<PixelsPlacement>(placementFor({0, 25, 1600, 875}, list)));
    // Off every screen: the main screen's terms.
    p = placementFor({-3000, 100, 640, 480}, list);
    EXPECT_EQ(std::get<PixelsPlacement>(p).screen, "DELL U2720Q");
    // No screens at all.
    EXPECT_EQ(placementFor({1, 2, 3, 4}, ScreenList{}),
              WindowPlacement(PixelsPlacement{{1, 2, 3, 4}, std::nullopt}));
    EXPECT_FALSE(placementRect(p, ScreenList{}));
    // A stored screen that is gone follows the main screen.
    expectRect(
        *placementRect(SemanticPlacement{P::maximized, "Studio Display", std::nullopt, std::nullopt}, list),
        1440, 0, 2560, 1440);
}

TEST(WindowPlacement, JsonRoundTripAndErrors) {
    const WindowPlacement semantic = SemanticPlacement{P::center, "builtin", 6.0, Size{900, 700}};
    const nlohmann::json j = toJson(semantic);
    EXPECT_EQ(
        j, nlohmann::json::parse(R"({"type":"semantic","position":"center","screen":"builtin","padding":6.0,
                                           "size":{"width":900.0,"height":700.0}})"));
    std::string error;
    EXPECT_EQ(windowPlacementFromJson(j, error), semantic);
    const WindowPlacement pixels = PixelsPlacement{{10, 20, 300, 400}, std::nullopt};
    EXPECT_EQ(toJson(pixels),
              nlohmann::json::parse(R"({"type":"pixels","rect":{"x":10,"y":20,"width":300,"height":400}})"));
    EXPECT_EQ(windowPlacementFromJson(toJson(pixels), error), pixels);
    // The nested-array rectangle form reads too; optional fields may be absent.
    EXPECT_EQ(windowPlacementFromJson(
                  nlohmann::json::parse(R"({"type":"pixels","rect":[[10,20],[300,400]]})"), error),
              pixels);
    EXPECT_EQ(
        windowPlacementFromJson(nlohmann::json::parse(R"({"type":"semantic","position":"vertical-third-2"})"),
                                error),
        WindowPlacement(SemanticPlacement{P::verticalThird2, std::nullopt, std::nullopt, std::nullopt}));

    EXPECT_FALSE(windowPlacementFromJson(nlohmann::json::parse(R"({"type":"grid"})"), error));
    EXPECT_EQ(error, "Unknown WindowPlacement type 'grid'");
    EXPECT_FALSE(windowPlacementFromJson(nlohmann::json::parse(R"({"type":"pixels","screen":"x"})"), error));
    EXPECT_FALSE(
        windowPlacementFromJson(nlohmann::json::parse(R"({"type":"semantic","position":"middle"})"), error));
    EXPECT_FALSE(windowPlacementFromJson(nlohmann::json::parse(R"([1,2])"), error));
    for (std::size_t i = 0; i < kSemanticPositionCount; ++i) {
        const auto position = static_cast<SemanticPosition>(i);
        EXPECT_EQ(semanticPositionFromRaw(rawValue(position)), position);
    }
}
