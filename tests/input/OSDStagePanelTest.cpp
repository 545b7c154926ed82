// The stage panel lists what the stage listing offers: each stage with its key and whether it has
// open windows; with no stages it says how to save one.
#include <gtest/gtest.h>

#include "input/AgentFixture.h"
#include "input/OSDController.h"

namespace zelk::testing {
namespace {

using osd::OSDView;
using osd::StageListing;

TEST(OSDStageRows, EachStageIsARowWithItsKeyAndItsOpenWindowsNoted) {
    auto sections = osd::stageSections({{"1", "Writing", true}, {"2", "Mail and chat", false}});
    ASSERT_EQ(sections.size(), 1u);
    const auto& rows = sections[0].rows;
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].key, "1");
    EXPECT_EQ(rows[0].title, "Writing");
    EXPECT_EQ(rows[0].detail, "Has open windows");
    EXPECT_EQ(rows[1].detail, "");
    EXPECT_NE(rows[0].id, rows[1].id);
    EXPECT_TRUE(osd::stageSections({}).empty()) << "no stages: no rows, so the empty text shows";
}

struct OSDStagePanelTest : AgentFixture {};

TEST_F(OSDStagePanelTest, TheStagePanelShowsTheListingOrTheEmptyText) {
    start(kBasicWorld, {{"stageTriggerKeys", {"rctrl"}}});
    std::vector<StageListing> stages;
    osd::OSDEnvironment env;
    env.stages = [&stages] { return stages; };
    osd::OSDController panel(input(), agent->router(), env);
    hold({"rctrl"});
    runFor(0);
    panel.showOSD(true);
    ASSERT_EQ(panel.model().view.view, OSDView::stage);
    EXPECT_EQ(panel.model().rowCount(), 0u);
    EXPECT_EQ(panel.model().emptyText,
              "No stages saved yet.\nPress = to save the current windows as a stage.");
    stages = {{"1", "Writing", true}};
    panel.refresh();
    ASSERT_EQ(panel.model().rowCount(), 1u);
    EXPECT_EQ(panel.model().emptyText, "");
    const auto json = osd::toJson(panel.model());
    EXPECT_EQ(json["items"][0]["detail"], "Has open windows");
    EXPECT_NE(osd::describe(panel.model()).find("Writing (Has open windows)"), std::string::npos);
}

}  // namespace
}  // namespace zelk::testing
