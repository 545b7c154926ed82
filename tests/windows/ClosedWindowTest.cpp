#include "windows/ClosedWindow.h"

#include <gtest/gtest.h>

using namespace zelk;
using windows::ClosedWindow;

namespace {

ClosedWindow entry(const std::string& id, const std::string& bundle, const std::string& path,
                   double closedAt) {
    ClosedWindow e;
    e.id = id;
    e.app = std::make_shared<apps::LaunchableApp>("/Applications/" + bundle + ".app", bundle, 0, bundle);
    e.windowSpec = stages::DocumentPathSpec{path};
    e.windowTitle = path;
    e.closedAt = closedAt;
    e.originalWindowID = 7;
    return e;
}

std::vector<std::string> ids(const std::vector<ClosedWindow>& list) {
    std::vector<std::string> out;
    for (auto& e : list)
        out.push_back(e.id);
    return out;
}

}  // namespace

TEST(ClosedWindowList, TheTwentyFirstRecordDropsTheOldest) {
    std::vector<ClosedWindow> list;
    for (int i = 0; i < 21; ++i)
        list = windows::withRecorded(
            list, entry("E" + std::to_string(i), "com.a", "/doc" + std::to_string(i), 1000 + i), 1000 + i);
    ASSERT_EQ(list.size(), 20u);
    EXPECT_EQ(list.front().id, "E20");
    EXPECT_EQ(list.back().id, "E1");
}

TEST(ClosedWindowList, AnEntryPastTheRetentionGoesAtTheNextRecordNotBefore) {
    const double day = windows::kClosedWindowRetentionSeconds;
    std::vector<ClosedWindow> list = {entry("OLD", "com.a", "/old", 0), entry("EDGE", "com.a", "/edge", 1)};
    // At a new record an entry exactly 24 h old stays and one 24 h and 1 s old goes.
    auto kept = windows::withRecorded(list, entry("NEW", "com.a", "/new", day + 1), day + 1);
    EXPECT_EQ(ids(kept), (std::vector<std::string>{"NEW", "EDGE"}));
    auto later = windows::withRecorded(kept, entry("LATER", "com.a", "/later", day + 2), day + 2);
    EXPECT_EQ(ids(later), (std::vector<std::string>{"LATER", "NEW"}));
}

TEST(ClosedWindowList, TheSameDocumentClosedAgainLeavesOneEntryAtTheFront) {
    std::vector<ClosedWindow> list = {entry("B", "com.a", "/b", 10), entry("A", "com.a", "/a", 5)};
    auto next = windows::withRecorded(list, entry("A2", "com.a", "/a", 20), 20);
    EXPECT_EQ(ids(next), (std::vector<std::string>{"A2", "B"}));
    // Another app's window with the same path is a different window.
    auto other = windows::withRecorded(next, entry("X", "com.b", "/a", 21), 21);
    EXPECT_EQ(ids(other), (std::vector<std::string>{"X", "A2", "B"}));
}

TEST(ClosedWindowList, RoundTripsThroughJsonAndABadListReadsAsEmpty) {
    auto e = entry("ID1", "com.a", "/a", 1234.5);
    e.lastFocusedAt = 1200;
    e.windowPlacement = stages::PixelsPlacement{{10, 20, 300, 200}, std::string("Main")};
    std::string error;
    auto back = windows::closedWindowsFromJson(windows::toJson(std::vector<ClosedWindow>{e}), error);
    ASSERT_EQ(back.size(), 1u) << error;
    EXPECT_EQ(back[0].id, "ID1");
    EXPECT_EQ(back[0].bundleID(), "com.a");
    EXPECT_EQ(back[0].windowSpec, stages::WindowSpec{stages::DocumentPathSpec{"/a"}});
    EXPECT_EQ(back[0].closedAt, 1234.5);
    EXPECT_EQ(back[0].lastFocusedAt, 1200);
    EXPECT_EQ(back[0].windowPlacement, e.windowPlacement);

    auto bad = windows::toJson(std::vector<ClosedWindow>{e});
    bad.push_back({{"id", "X"}, {"windowSpec", {{"type", "hologram"}}}});
    EXPECT_TRUE(windows::closedWindowsFromJson(bad, error).empty());
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(windows::closedWindowsFromJson(nlohmann::json::object(), error).empty());
}

TEST(ClosedWindowList, AgeWording) {
    EXPECT_EQ(windows::closedAgo(100, 130), "just now");
    EXPECT_EQ(windows::closedAgo(0, 150), "2m ago");
    EXPECT_EQ(windows::closedAgo(0, 7300), "2h ago");
    EXPECT_EQ(windows::closedAgo(0, 200'000), "2d ago");
}
