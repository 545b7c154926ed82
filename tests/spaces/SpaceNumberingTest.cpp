#include <gtest/gtest.h>

#include "spaces/SpaceNumbering.h"

using namespace zelk;
using namespace zelk::spaces;

namespace {
platform::DisplaySpaces display(const std::string& id, std::vector<std::pair<std::uint64_t, int>> spaces) {
    platform::DisplaySpaces d;
    d.displayIdentifier = id;
    for (auto [s, type] : spaces)
        d.spaces.push_back({s, type});
    d.currentSpace = d.spaces.front();
    return d;
}
}  // namespace

TEST(SpaceNumbering, UserSpacesCountAcrossDisplaysAndFullScreenOnesHaveNoNumber) {
    auto list = numberUserSpaces({display("A", {{1, 0}, {9, 4}, {2, 0}}), display("B", {{4, 0}, {5, 0}})});
    std::vector<NumberedSpace> expected{{1, "A", 0, 1}, {2, "A", 2, 2}, {4, "B", 0, 3}, {5, "B", 1, 4}};
    EXPECT_EQ(list, expected);
    EXPECT_EQ(numberedSpace(list, 3)->id, 4u);
    EXPECT_FALSE(numberedSpace(list, 0));
    EXPECT_FALSE(numberedSpace(list, 5));
    EXPECT_FALSE(numberedSpaceByID(list, 9)) << "a full-screen Space has no number";
    EXPECT_EQ(userSpacesOf({display("A", {{1, 0}, {9, 4}, {2, 0}})}, "A"),
              (std::vector<std::uint64_t>{1, 2}));
}

TEST(SpaceNumbering, TheDirectMoveIsBlockedFromTheReleasesThatRefuseIt) {
    EXPECT_TRUE(directMoveBlocked(14, 5));
    EXPECT_FALSE(directMoveBlocked(14, 4));
    EXPECT_TRUE(directMoveBlocked(13, 6));
    EXPECT_FALSE(directMoveBlocked(13, 5));
    EXPECT_TRUE(directMoveBlocked(12, 7));
    EXPECT_FALSE(directMoveBlocked(12, 6));
    EXPECT_TRUE(directMoveBlocked(15, 0));
    EXPECT_TRUE(directMoveBlocked(27, 0));
    EXPECT_FALSE(directMoveBlocked(11, 9));
}

TEST(SpaceNumbering, ATeleportedFrameKeepsItsRelativePlaceAndStaysInside) {
    const Rect source{0, 25, 1440, 875}, target{1440, 25, 1920, 1055};
    // The centre at the middle of the source lands at the middle of the target, size kept.
    Rect middle = teleportFrame({320, 162.5, 800, 600}, source, target);
    EXPECT_DOUBLE_EQ(middle.midX(), target.midX());
    EXPECT_DOUBLE_EQ(middle.midY(), target.midY());
    EXPECT_DOUBLE_EQ(middle.width, 800);
    // Too big for a small target: cut to it and held inside.
    Rect big = teleportFrame({0, 25, 1440, 875}, source, {1440, 0, 800, 600});
    EXPECT_EQ(big, (Rect{1440, 0, 800, 600}));
    // Hard against the right edge stays inside the target.
    Rect edge = teleportFrame({1300, 25, 600, 400}, source, {1440, 25, 1000, 800});
    EXPECT_LE(edge.maxX(), 2440);
    // A degenerate source divides by at least 1.
    Rect none = teleportFrame({0, 0, 10, 10}, {0, 0, 0, 0}, target);
    EXPECT_GE(none.x, target.x);
    EXPECT_LE(none.maxY(), target.maxY());
}

TEST(SpaceNumbering, TheGrabPointLiesInTheTitleBarRightOfTheButtons) {
    Point p = titleBarGrabPoint({100, 100, 800, 600}, {});
    EXPECT_EQ(p, (Point{180, 112}));
    Point past = titleBarGrabPoint({100, 100, 800, 600}, {{110, 104, 14, 14}, {150, 104, 40, 14}});
    EXPECT_EQ(past.x, 210);
    Point narrow = titleBarGrabPoint({100, 100, 50, 600}, {});
    EXPECT_LT(narrow.x, 150) << "never past the window's right edge";
}
