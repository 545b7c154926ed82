#include "LiveAgent.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// zelkd in a home of its own, driven by the zelk tool over its socket.
struct SpaceMoveLiveTest : zelk::testing::LiveAgentTest {};

// The tool's `window move` against zelkd on its default desktop: Safari's "Apple" window is focused on
// Space 1 of the built-in display (Spaces 1-3), the second display's user Space is number 4.
TEST_F(SpaceMoveLiveTest, WindowMoveSpeaksTheProtocolsTexts) {
    auto moved = zelk("window move --space 2");
    EXPECT_EQ(moved["ok"], true) << moved.dump();
    EXPECT_EQ(moved["message"], "moved focused window to Space #2");
    auto again = zelk("window move --space 2");
    EXPECT_EQ(again["error"], "focused window already on Space #2");
    int code = 0;
    auto bad = zelk("window move --space 10", &code);
    EXPECT_EQ(bad["error"], "space index must be 1-9");
    EXPECT_EQ(code, 1);
    auto named = zelk("window move 3 apple");
    EXPECT_EQ(named["message"], "moved Apple to Space #3");
    auto none = zelk("window move --space 1 no-such-window-title");
    EXPECT_EQ(none["error"], "no matching window");
    auto listed = zelk("window list --app Safari");
    bool found = false;
    for (auto& w : listed["windows"])
        if (w["id"] == 1001) {
            found = true;
            EXPECT_EQ(w["spaceIndex"], 3);
        }
    EXPECT_TRUE(found) << listed.dump();
}

}  // namespace
