#include <fmt/format.h>
#include <gtest/gtest.h>

#include "windows/WindowKeyWalk.h"

using zelk::windows::AppWindow;
using zelk::windows::WindowKeyWalk;

namespace {
std::vector<AppWindow> rows(std::vector<std::uint32_t> ids, std::uint32_t focused) {
    std::vector<AppWindow> out;
    for (auto id : ids)
        out.push_back({id, fmt::format("w{}", id), "com.example", id == focused, "d"});
    return out;
}
}  // namespace

TEST(WindowKeyWalk, StartsAfterTheFocusedWindowAndVisitsEveryWindowWithoutTheFlags) {
    WindowKeyWalk walk;
    // The flags never move (the focus change hasn't been heard): the walk still goes round.
    auto list = rows({1, 3, 5}, 3);
    EXPECT_EQ(walk.next("d", list), 5u);
    EXPECT_EQ(walk.next("d", list), 1u);
    EXPECT_EQ(walk.next("d", list), 3u);
    EXPECT_EQ(walk.next("d", list), 5u);
    EXPECT_EQ(walk.rows().front().id, 5u);  // last shown first
}

TEST(WindowKeyWalk, AnotherKeyChangedWindowsOrAResetStartAgain) {
    WindowKeyWalk walk;
    EXPECT_EQ(walk.next("d", rows({1, 3}, 0)), 1u);     // none focused: the first
    EXPECT_EQ(walk.next("e", rows({2, 4}, 4)), 2u);     // the focused one is last: wrap to the first
    EXPECT_EQ(walk.next("e", rows({2, 4, 6}, 4)), 6u);  // a window joined: start after the focused one
    walk.reset();
    EXPECT_FALSE(walk.key().has_value());
    EXPECT_EQ(walk.next("e", rows({2, 4, 6}, 2)), 4u);
    EXPECT_EQ(walk.next("e", {}), std::nullopt);
    EXPECT_FALSE(walk.key().has_value());
}
