// The built-in tour runs to its end on the default desktop and shows what it says it shows.
#include "Demo.h"
#include "ReplayHelpers.h"
#include "platform/sim/WorldFile.h"

namespace zelk::testing {
namespace {

TEST(Demo, TheTourStepsATabCycleAndClosesAWindowFromIt) {
    auto events = replay(sim::defaultWorldYaml(), agent::demoScript());
    ASSERT_FALSE(events.empty());
    // The window closed from the cycle at 23700 was the highlighted row, and the cycle stayed open.
    auto before = lastPanelAt(events, 23650);
    ASSERT_EQ(before["view"], "TabCycleOSDView");
    const std::string closing = highlightedTitle(before);
    ASSERT_FALSE(closing.empty());
    std::vector<std::string> closed;
    for (auto& e : events)
        if (e["kind"] == "window" && e.value("closed", false) && e["t"] == 23700)
            closed.push_back(e["id"].dump());
    EXPECT_EQ(closed.size(), 1u);
    auto after = lastPanelAt(events, 23700);
    EXPECT_TRUE(after["visible"].get<bool>());
    EXPECT_EQ(after["flash"], "Closed");
    auto titles = panelTitles(after);
    EXPECT_EQ(std::count(titles.begin(), titles.end(), closing), 0) << closing;
}

TEST(Demo, TheStageLetterRecallsAStageAndAStageOnAnotherSpaceShowsTheToast) {
    auto events = replay(sim::defaultWorldYaml(), agent::demoScript(), true);
    EXPECT_TRUE(hasLog(events, "activate(multi) \u2500\u2500 stage 'Work' (2 items)"));
    json toast;
    for (auto& e : events)
        if (e["kind"] == "toast" && e["t"].get<double>() >= 33000 && e["visible"].get<bool>()) toast = e;
    ASSERT_FALSE(toast.is_null());
    EXPECT_EQ(toast["title"], "Stage **Editing** has windows on another Space.");
}

}  // namespace
}  // namespace zelk::testing
