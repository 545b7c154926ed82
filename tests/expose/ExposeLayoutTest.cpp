#include <gtest/gtest.h>

#include <cmath>

#include "expose/ExposeArrange.h"
#include "expose/ExposeLayout.h"
#include "expose/ExposeNavigation.h"
#include "expose/ExposeRelax.h"

using namespace zelk;
using namespace zelk::expose;

namespace {
void expectRect(const Rect& r, double x, double y, double w, double h) {
    EXPECT_NEAR(r.x, x, 1e-9);
    EXPECT_NEAR(r.y, y, 1e-9);
    EXPECT_NEAR(r.width, w, 1e-9);
    EXPECT_NEAR(r.height, h, 1e-9);
}
}  // namespace

TEST(ExposeTiles, BaseSizesFromFramesOrAspects) {
    EXPECT_EQ(baseSize({1, 2, {0, 0, 800, 600}}), (Size{800, 600}));
    EXPECT_EQ(baseSize({1, 0, {0, 0, 39, 600}}), (Size{930, 620}));  // too narrow, aspect 0
    EXPECT_EQ(baseSize({1, NAN, {}}), (Size{930, 620}));
    EXPECT_EQ(baseSize({1, -1, {}}), (Size{930, 620}));
    EXPECT_NEAR(baseSize({1, 0.1, {}}).width, 173.6, 1e-9);  // very tall: aspect 0.28
    EXPECT_NEAR(baseSize({1, 9, {}}).width, 3.8 * 620, 1e-9);
    EXPECT_EQ(baseSize({1, 2, {0, 0, INFINITY, 600}}), (Size{1240, 620}));
    EXPECT_EQ(fillScale({}, {0, 0, 100, 100}, 0.5), 0.2);
}

TEST(ExposeTiles, SmallTilesKeepNinetyThenTheRectRules) {
    // 100x50 at 0.1 is 10x5: raised to 90x45, which the rect leaves alone.
    Size t = tileSize({1, 0, {0, 0, 100, 50}}, 0.1, {0, 0, 1000, 1000});
    EXPECT_NEAR(t.width, 90, 1e-9);
    EXPECT_NEAR(t.height, 45, 1e-9);
    // In a 100x100 rect the shorter side may take only 46: 92x46.
    t = tileSize({1, 0, {0, 0, 100, 50}}, 0.1, {0, 0, 100, 100});
    EXPECT_NEAR(t.width, 86, 1e-9);  // then 86% of the width binds
    EXPECT_NEAR(t.height, 43, 1e-9);
}

TEST(ExposeNavigation, KeyboardPositions) {
    auto p = keyboardPosition("p");
    ASSERT_TRUE(p);
    EXPECT_NEAR(p->x, 0.95, 1e-12);
    EXPECT_NEAR(p->y, 0.3, 1e-12);
    EXPECT_NEAR(keyboardPosition("A")->x, 0.075, 1e-12);
    EXPECT_NEAR(keyboardPosition("a")->y, 0.55, 1e-12);
    EXPECT_NEAR(keyboardPosition("m")->x, 0.725, 1e-12);
    EXPECT_NEAR(keyboardPosition("m")->y, 0.8, 1e-12);
    EXPECT_NEAR(keyboardPosition("1")->x, 0.05, 1e-12);
    EXPECT_NEAR(keyboardPosition("0")->y, 0.08, 1e-12);
    EXPECT_FALSE(keyboardPosition("!"));
    EXPECT_FALSE(keyboardPosition(""));
    EXPECT_FALSE(keyboardPosition("é"));
    EXPECT_FALSE(keyboardPosition("ab"));
}

TEST(ExposeNavigation, NeighbourPrefersStraightAhead) {
    std::vector<std::pair<std::uint32_t, Rect>> frames = {
        {1, {0, 0, 100, 100}},
        {2, {200, 0, 100, 100}},
        {3, {100, 50, 100, 100}},
        {4, {0.5, 300, 100, 100}},
    };
    EXPECT_EQ(neighbour(1, Direction::right, frames), 2u);  // 200 straight ahead beats 100 + 2.6 * 50 = 230
    EXPECT_EQ(neighbour(2, Direction::left, frames), 1u);
    EXPECT_EQ(neighbour(1, Direction::down, frames), 4u);  // 300 + 2.6 * 0.5 = 301.3 beats 50 + 2.6 * 100
    EXPECT_FALSE(neighbour(1, Direction::up, frames));
    EXPECT_FALSE(neighbour(9, Direction::right, frames));
    // Ahead by no more than a point doesn't count.
    EXPECT_EQ(neighbour(4, Direction::up, frames), 1u);
    EXPECT_FALSE(neighbour(1, Direction::left, {{1, {0, 0, 10, 10}}, {2, {-1, 50, 10, 10}}}));
    // Equal scores: the first found.
    EXPECT_EQ(neighbour(1, Direction::right,
                        {{1, {0, 0, 10, 10}}, {5, {100, 10, 10, 10}}, {6, {100, -10, 10, 10}}}),
              5u);
}

TEST(ExposeArrange, GridCellsFitEachAspect) {
    const auto placed = gridArrange({{1, 2, {}}, {2, 0.1, {}}, {3, NAN, {}}, {4, 5, {}}}, {0, 0, 900, 600});
    ASSERT_EQ(placed.size(), 4u);
    expectRect(placed[0].frame, 5, 40, 440, 220);
    expectRect(placed[1].frame, 455 + (440 - 0.28 * 290) / 2, 5, 0.28 * 290, 290);
    expectRect(placed[2].frame, 7.5, 305, 435, 290);
    expectRect(placed[3].frame, 455, 305 + (290 - 440 / 3.8) / 2, 440, 440 / 3.8);
    EXPECT_EQ(placed[3].id, 4u);
    EXPECT_TRUE(gridArrange({}, {0, 0, 900, 600}).empty());
    // Five items: three columns, two rows.
    EXPECT_NEAR(gridArrange(std::vector<Item>(5, Item{1, 1, {}}), {0, 0, 900, 600})[4].frame.midX(), 450,
                1e-9);
}

TEST(ExposeRelax, SeparateTieRules) {
    // Identical centres, wide frames: y overlaps less beyond its allowance, so they part vertically,
    // the first going up.
    std::vector<Rect> wide = {{0, 0, 100, 50}, {0, 0, 100, 50}};
    EXPECT_EQ(separate(wide, 26, 0.34), 2);
    expectRect(wide[0], 0, -9, 100, 50);
    expectRect(wide[1], 0, 9, 100, 50);
    std::vector<Rect> tall = {{0, 0, 50, 100}, {0, 0, 50, 100}};
    separate(tall, 26, 0.34);
    expectRect(tall[0], -9, 0, 50, 100);
    // Equal excess: along x, the first to the left.
    std::vector<Rect> square = {{0, 0, 100, 100}, {0, 0, 100, 100}};
    separate(square, 1, 0.34);
    expectRect(square[0], -17.5, 0, 100, 100);
    expectRect(square[1], 17.5, 0, 100, 100);
    // Overlap within the allowance: untouched; fewer than two frames: nothing.
    std::vector<Rect> close = {{0, 0, 100, 100}, {40, 0, 100, 100}};
    EXPECT_EQ(separate(close, 26, 0.34), 1);
    expectRect(close[1], 40, 0, 100, 100);
    std::vector<Rect> one = {{0, 0, 1, 1}};
    EXPECT_EQ(separate(one, 26, 0.34), 0);
}

TEST(ExposeRelax, SpreadTieRulesAndDirection) {
    std::vector<Rect> same = {{0, 0, 100, 50}, {0, 0, 100, 50}};
    EXPECT_TRUE(spread(same, 18));
    const double step = 68 * 0.52 + 1;  // along y: ox 118 is not below oy 68
    expectRect(same[0], 0, -step, 100, 50);
    expectRect(same[1], 0, step, 100, 50);
    std::vector<Rect> squares = {{0, 0, 100, 100}, {0, 0, 100, 100}};
    spread(squares, 0);
    EXPECT_NEAR(squares[1].y, 53, 1e-9);  // equal overlaps: along y, 100 * 0.52 + 1
    std::vector<Rect> apart = {{0, 0, 100, 100}, {30, 40, 100, 100}};
    spread(apart, 18);
    const double s2 = 78 * 0.52 + 1;
    expectRect(apart[0], -0.6 * s2, -0.8 * s2, 100, 100);
    expectRect(apart[1], 30 + 0.6 * s2, 40 + 0.8 * s2, 100, 100);
    std::vector<Rect> clear = {{0, 0, 100, 100}, {117.6, 0, 100, 100}};
    EXPECT_FALSE(spread(clear, 18));  // overlap of 0.4 with the margin: below half a point
}

TEST(ExposeRelax, APassMovesOnlyWhenSomethingShiftsVisibly) {
    // 20 points from its anchor, the pull is 0.3 a pass: not a move, so relaxing stops after two passes.
    std::vector<Rect> near = {{0, 0, 100, 100}};
    auto run = relax(near, std::vector<Point>{{70, 50}}, 40, {-1000, -1000, 3000, 3000}, 18, 0.015);
    EXPECT_EQ(run.passes, 2);
    EXPECT_EQ(run.settle, 1);
    // 1000 points away it keeps pulling for all 40 passes.
    std::vector<Rect> far = {{0, 0, 100, 100}};
    run = relax(far, std::vector<Point>{{1050, 50}}, 40, {-1000, -1000, 3000, 3000}, 18, 0.015);
    EXPECT_EQ(run.passes, 40);
    EXPECT_NEAR(far[0].midX(), 1050 - 1000 * std::pow(0.985, 40), 1e-6);
    // Without anchors there is no settling, and a frame wider than the rect is centred on it.
    std::vector<Rect> wide = {{0, 0, 500, 10}};
    run = relax(wide, std::nullopt, 40, {0, 0, 300, 300}, 18, 0.015);
    EXPECT_EQ(run.settle, 0);
    EXPECT_NEAR(wide[0].midX(), 150, 1e-9);
}

TEST(ExposeLayout, NoCardsNoSections) {
    EXPECT_TRUE(layoutCards({}, {}, {}, {0, 0, 1440, 900}).cards.empty());
    auto sections = layoutSections({{"a", "A", "", {}, std::nullopt}}, {0, 0, 1440, 900}, 20, 16, false);
    EXPECT_TRUE(sections.sections.empty());
    EXPECT_TRUE(sections.placed.empty());
}

TEST(ExposeLayout, OneCardInA1440By900Container) {
    // A 1200x800 window: the tile's shorter side is held to 46% of 900, so 621x414 whatever the scale.
    const auto out = layoutCards({{"com.app", {{7, 1.5, {100, 50, 1200, 800}}}}}, {}, {}, {0, 0, 1440, 900});
    ASSERT_EQ(out.cards.size(), 1u);
    ASSERT_EQ(out.placed.size(), 1u);
    EXPECT_EQ(out.placed[0].id, 7u);
    expectRect(out.cards[0].frame, 397.5, 206, 645, 488);
    expectRect(out.cards[0].headerFrame, 397.5, 644, 645, 50);
    expectRect(out.placed[0].frame, 409.5, 218, 621, 414);
    EXPECT_EQ(out.passes.fitRounds, 2);
    EXPECT_EQ(out.passes.relaxPasses, 2);
}

TEST(ExposeLayout, CardCentresPinnedNormalisedOrCentral) {
    const std::vector<CardSpec> cards = {{"a", {{1, 1.5, {}}}}, {"b", {{2, 1.5, {}}}}};
    // Pinned: the cards stay where pinned (far apart, so nothing pushes them), no stretching.
    auto out = layoutCards(cards, {{"a", {400, 300}}, {"b", {1100, 600}}}, {}, {0, 0, 1440, 900});
    EXPECT_NEAR(out.cards[0].frame.midX(), 400, 1e-9);
    EXPECT_NEAR(out.cards[1].frame.midY(), 600, 1e-9);
    EXPECT_EQ(out.passes.pushRounds, 0);
    // Normalised: keyboard positions mapped inside a 6% inset.
    const Point q = *keyboardPosition("q"), p = *keyboardPosition("p");
    out = layoutCards(cards, {}, {{"a", q}, {"b", p}}, {0, 0, 1440, 900});
    EXPECT_LT(out.cards[0].frame.midX(), out.cards[1].frame.midX());
    for (const auto& c : out.cards) {
        EXPECT_GE(c.frame.minX(), 0);
        EXPECT_LE(c.frame.maxX(), 1440);
    }
    // The tiles sit in their cards.
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_GE(out.placed[i].frame.minX(), out.cards[i].frame.minX());
        EXPECT_LE(out.placed[i].frame.maxX(), out.cards[i].frame.maxX());
    }
}

TEST(ExposeLayout, CardOfSeveralWindowsKeepsTheirArrangement) {
    // Left and right halves: the left window's tile stays on the left.
    const std::vector<Item> halves = {{1, 1, {0, 0, 720, 900}}, {2, 1, {720, 0, 720, 900}}};
    Card card = layoutCard(halves, 0.3, {0, 0, 1440, 900});
    ASSERT_EQ(card.placed.size(), 2u);
    EXPECT_LT(card.placed[0].frame.midX(), card.placed[1].frame.midX());
    EXPECT_NEAR(card.placed[0].frame.minX(), 0, 1e-9);  // the union starts at the origin
    // A window without a usable frame starts at the card's centre, not at the origin of the display:
    // beside a window far down-right it doesn't fling to the top left.
    const std::vector<Item> mixed = {{1, 1.5, {3000, 2000, 600, 400}}, {2, 1.5, {}}};
    card = layoutCard(mixed, 0.3, {0, 0, 1440, 900});
    const double w0 = card.placed[0].frame.width;
    // Both at centre 0: the second only staggered by 5% of its width and then separated sideways.
    EXPECT_LT(card.width, 3 * w0);
    EXPECT_NEAR(card.placed[0].frame.midY(), card.placed[1].frame.midY(), card.placed[0].frame.height);
}

TEST(ExposeLayout, StretchingNeverExceedsOnePointThree) {
    EXPECT_NEAR(expansionScale(1440, 720), 1.3, 1e-12);
    EXPECT_NEAR(expansionScale(1440, 1200), 1.2, 1e-12);
    EXPECT_NEAR(expansionScale(1440, 0.5), 1.3, 1e-12);  // a degenerate extent doesn't fling cards away
    EXPECT_NEAR(expansionScale(1440, 0), 1.3, 1e-12);
}

TEST(ExposeArrange, RowPackingCentresRowsAndAlignsBottoms) {
    // At a tiny scale every tile is raised to 90 on its longer side: 90x90, 90x90, 90x45 (2:1), 90x90.
    // Rows at most 300 wide with a gap of 10: 90 + 10 + 90 + 10 + 90 = 290, then the last alone.
    const std::vector<Item> items = {{1, 1, {}}, {2, 1, {}}, {3, 2, {}}, {4, 1, {}}};
    const auto rows = rowPack(items, 0.01, {0, 0, 2000, 2000}, 300, 10, 20);
    ASSERT_EQ(rows.placed.size(), 4u);
    EXPECT_NEAR(rows.width, 290, 1e-9);
    expectRect(rows.placed[0].frame, 0, 0, 90, 90);
    expectRect(rows.placed[1].frame, 100, 0, 90, 90);
    expectRect(rows.placed[2].frame, 200, 45, 90, 45);   // bottom-aligned in its row
    expectRect(rows.placed[3].frame, 100, 120, 90, 90);  // centred; below the caption and the gap
    EXPECT_NEAR(rows.height, 90 + 20 + 10 + 90 + 20, 1e-9);
    // A tile wider than a row still gets a row of its own.
    EXPECT_EQ(rowPack({{1, 1, {}}}, 0.01, {0, 0, 2000, 2000}, 50, 10, 20).placed.size(), 1u);
}

TEST(ExposeLayout, SectionsStackWithTitlesAndSlack) {
    std::vector<SectionSpec> sections = {
        {"d1", "Display 1", "", {{1, 1.6, {}}, {2, 1.6, {}}}, std::nullopt},
        {"empty", "Nothing", "", {}, std::nullopt},
        {"d2", "", "", {{3, 1.6, {}}}, std::nullopt},
    };
    const Rect container{0, 0, 1440, 900};
    const auto out = layoutSections(sections, container, 20, 16, false);
    ASSERT_EQ(out.sections.size(), 2u);
    EXPECT_EQ(out.sections[0].key, "d1");
    EXPECT_EQ(out.sections[1].key, "d2");
    const Rect& h = out.sections[0].headerFrame;
    EXPECT_NEAR(h.height, 26, 1e-9);
    EXPECT_NEAR(h.width, 1440, 1e-9);
    EXPECT_NEAR(out.sections[0].frame.minY(), h.minY() + 60, 1e-9);
    EXPECT_TRUE(out.sections[1].headerFrame.isEmpty());
    EXPECT_NEAR(out.sections[0].frame.midX(), 720, 1e-9);
    // The second section begins 30 + slack below the first, with the same slack above the first.
    const double slack = h.minY();
    EXPECT_GT(slack, 0);
    EXPECT_LE(slack, 75);
    EXPECT_NEAR(out.sections[1].frame.minY(), out.sections[0].frame.maxY() + slack + 30, 1e-9);
    EXPECT_LE(out.passes.fitRounds, 14);
    for (const Placed& p : out.placed) {
        const Rect& f = (p.id == 3 ? out.sections[1] : out.sections[0]).frame;
        EXPECT_GE(p.frame.minX(), f.minX() - 1e-9);
        EXPECT_LE(p.frame.maxX(), f.maxX() + 1e-9);
        EXPECT_GE(p.frame.minY(), f.minY() - 1e-9);
        EXPECT_LE(p.frame.maxY(), f.maxY() + 1e-9);
    }
}

TEST(ExposeArrange, SpatialArrangementKeepsPlacesAndStaysInside) {
    const Rect display{0, 0, 1440, 900};
    const std::vector<Item> items = {{1, 1, {0, 0, 720, 900}}, {2, 1, {720, 0, 720, 900}}, {3, 0, {}}};
    const Rect target{100, 100, 720, 450};
    const auto placed = spatialArrange(items, display, target, 40, 0.6);
    ASSERT_EQ(placed.size(), 3u);
    // Halves scaled by 0.5 are 360x450, then held to 60% of the target: 216x270.
    EXPECT_NEAR(placed[0].frame.height, 270, 1e-9);
    EXPECT_LT(placed[0].frame.midX(), placed[1].frame.midX());
    for (const auto& p : placed) {
        EXPECT_GE(p.frame.minX(), target.minX() - 1e-9);
        EXPECT_LE(p.frame.maxX(), target.maxX() + 1e-9);
        EXPECT_GE(p.frame.minY(), target.minY() - 1e-9);
        EXPECT_LE(p.frame.maxY(), target.maxY() + 1e-9);
    }
    // Without source bounds: the grid.
    EXPECT_EQ(spatialArrange(items, {0, 0, 1, 1}, target, 40, 0.6), gridArrange(items, target));
    // Spaces-bar minis: nothing in a cell too small, something inside a usable one.
    EXPECT_TRUE(spacesBarMinis(items, {0, 0, 10, 40}, display, 12).empty());
    const auto minis = spacesBarMinis(items, {0, 0, 160, 100}, std::nullopt, 12);
    ASSERT_EQ(minis.size(), 3u);
    for (const auto& p : minis)
        EXPECT_LE(p.frame.maxY(), 100 - 16 + 1e-9);
}
