// Walking the application panel: once the panel has been on screen long enough, Tab and the arrows
// move a pick through its rows, and the release brings the picked app or window forward.
#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

// Safari in front with two windows; Mail and Notes run with one each.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}, {id: 1002, title: "News", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
  - bundleID: com.apple.Notes
    name: Notes
    running: {pid: 104, windows: [{id: 1041, title: "Groceries", space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {showAppSwitcher: true, appKeyAssignments: []}
)";

// The title `steps` rows after `from` in the panel's own order, wrapping.
std::string rowAfter(const std::vector<std::string>& titles, const std::string& from, int steps) {
    auto it = std::find(titles.begin(), titles.end(), from);
    if (it == titles.end()) return "";
    const int n = static_cast<int>(titles.size());
    const int at = static_cast<int>(it - titles.begin());
    return titles[static_cast<std::size_t>(((at + steps) % n + n) % n)];
}

}  // namespace

// The panel shows at 1150; Tab before the dwell opens the tab cycle, after it walks the panel.
TEST(AppCycleReplay, TabAfterTheDwellWalksThePanelAndTheReleaseActivatesThePick) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 2000, tap: tab}
- {at: 2100, tap: tab}
- {at: 2200, tap: downArrow}
- {at: 2300, tap: upArrow}
- {at: 2400, flags: []}
- {at: 3000, end: true}
)");
    auto before = lastPanelAt(events, 1999);
    ASSERT_EQ(before["view"], "AppSwitcherOSDView");
    const auto titles = panelTitles(before);
    ASSERT_GE(titles.size(), 6u);
    EXPECT_EQ(highlightedTitle(before), "Safari");
    // The first step takes the row after the focused window's.
    auto first = lastPanelAt(events, 2000);
    EXPECT_EQ(first["view"], "AppSwitcherOSDView");
    EXPECT_EQ(highlightedTitle(first), rowAfter(titles, "Apple", 1));
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 2100)), rowAfter(titles, "Apple", 2));
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 2200)), rowAfter(titles, "Apple", 3));
    const std::string picked = rowAfter(titles, "Apple", 2);
    EXPECT_EQ(highlightedTitle(lastPanelAt(events, 2300)), picked);
    // The release focuses what the pick stands for, and the panel goes.
    auto focuses = focusesAfter(events, 2400);
    ASSERT_EQ(focuses.size(), 1u) << picked;
    const std::map<std::string, std::string> windowOf{
        {"News", "1002"}, {"Mail", "1011"}, {"Inbox", "1011"}, {"Notes", "1041"}, {"Groceries", "1041"}};
    ASSERT_TRUE(windowOf.count(picked)) << picked;
    EXPECT_EQ(focuses[0], "2400 " + windowOf.at(picked));
    EXPECT_FALSE(lastPanelAt(events, 2400)["visible"].get<bool>());
}

TEST(AppCycleReplay, TabBeforeTheDwellStartsTheTabCycleInstead) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1300, tap: tab}
- {at: 1400, flags: []}
- {at: 2000, end: true}
)");
    EXPECT_EQ(lastPanelAt(events, 1300)["view"], "TabCycleOSDView");
}

// The trigger with Shift walks back from the focused row at once; any other key drops the pick, so
// the release does what it would have done without it.
TEST(AppCycleReplay, ShiftTabWalksBackAndAnotherKeyDropsThePick) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1200, flags: [rightCommand, rshift]}
- {at: 1250, tap: tab}
- {at: 1300, flags: [rightCommand]}
- {at: 1400, tap: escape}
- {at: 1500, flags: []}
- {at: 2000, end: true}
)");
    auto panel = lastPanelAt(events, 1250);
    const auto titles = panelTitles(panel);
    ASSERT_FALSE(titles.empty());
    EXPECT_EQ(highlightedTitle(panel), rowAfter(titles, "Apple", -1));
    EXPECT_TRUE(focusesAfter(events, 1400).empty());
}

}  // namespace zelk::testing
