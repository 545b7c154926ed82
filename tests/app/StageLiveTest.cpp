#include "LiveAgent.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// zelkd on its default desktop with one stage in its settings: "w", Mail as a whole app on the left
// half and Safari's "Apple" window (found by its title) on the right half.
struct StageLiveTest : zelk::testing::LiveAgentTest {
    fs::path settingsFile() override {
        auto path = dir / "settings.json";
        std::ofstream(path) << R"({"stages": [{"key": "w", "name": "Work", "items": [
  {"id": "5A1E0C1D-0000-4000-8000-000000000001", "windowTitle": "",
   "app": {"path": "/System/Applications/Mail.app", "originalName": "Mail", "identifier": "com.apple.mail"},
   "windowSpec": {"type": "app"}, "windowPlacement": {"type": "semantic", "position": "left-half"}},
  {"id": "5A1E0C1D-0000-4000-8000-000000000002", "windowTitle": "Apple",
   "app": {"path": "/Applications/Safari.app", "originalName": "Safari", "identifier": "com.apple.Safari"},
   "windowSpec": {"type": "browserURL", "url": ""},
   "windowPlacement": {"type": "semantic", "position": "right-half"}}]}]})";
        return path;
    }
};

TEST_F(StageLiveTest, StageListActivateAndCloseSpeakTheProtocolsTexts) {
    auto listed = zelk("stage list --windows");
    ASSERT_EQ(listed["ok"], true) << listed.dump();
    ASSERT_EQ(listed["stages"].size(), 1u);
    EXPECT_EQ(listed["stages"][0]["key"], "w");
    EXPECT_EQ(listed["stages"][0]["name"], "Work");
    EXPECT_EQ(listed["stages"][0]["isActive"], false);
    auto items = listed["stages"][0]["items"];
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[1]["placement"], "right-half");
    EXPECT_EQ(items[1]["resolvedWindowID"], 1001);
    EXPECT_EQ(items[1]["resolvedTitle"], "Apple");

    int code = 0;
    auto missing = zelk("stage list q", &code);
    EXPECT_EQ(missing["error"], "no stage assigned to 'q'");
    EXPECT_EQ(code, 1);
    EXPECT_EQ(zelk("stage close")["error"], "no active stage");
    EXPECT_EQ(zelk("stage activate q")["error"], "no stage assigned to 'q'");

    auto activated = zelk("stage activate w");
    EXPECT_EQ(activated["message"], "activated stage 'w'") << activated.dump();
    EXPECT_EQ(zelk("stage list w")["stages"][0]["isActive"], true);
    EXPECT_EQ(zelk("stage close")["message"], "close requested for active stage");
    EXPECT_EQ(zelk("stage list w")["stages"][0]["isActive"], false);
    EXPECT_EQ(zelk("stage close w")["message"], "close requested for stage 'w'");
}

TEST_F(StageLiveTest, WindowPlacePlacesByNameAndPixelsAndRefusesWhatItCant) {
    auto placed = zelk("window place left-half --id 1011 --padding 10");
    EXPECT_EQ(placed["message"], "placed window #1011 at left-half (padding 10)") << placed.dump();
    EXPECT_EQ(zelk("window place 100,50,640,480 --id 1001 --screen builtin")["message"],
              "placed window #1001 at 100,50,640,480 on builtin");
    int code = 0;
    auto bad = zelk("window place middle", &code);
    EXPECT_EQ(bad["error"], "invalid position 'middle'. See `zelk window place --help` for valid positions.");
    EXPECT_EQ(code, 1);
    EXPECT_EQ(zelk("window place left-half --screen Projector")["error"], "no screen matches 'Projector'");
    EXPECT_EQ(zelk("window place left-half --id 4242")["error"], "no target window");
}

}  // namespace
