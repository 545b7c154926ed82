// The panel follows a display that changes under it: a new resolution while the panel is up moves it
// to its place on the new frame.
#include <gtest/gtest.h>

#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}, {id: 1002, title: "News", space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {windowSwitcherPlacement: 1, windowSwitcherMirrorAppPlacement: false, windowSwitcherOffsetY: 40,
           windowSwitcherOffsetRefHeight: 900}
)";

json lastPanelAtOrBefore(const std::vector<json>& events, double t) {
    json last = nullptr;
    for (auto& e : events)
        if (e["kind"] == "panel" && e["t"].get<double>() <= t) last = e;
    return last;
}

TEST(PanelScreens, APanelThatIsUpMovesWithItsDisplaysNewFrame) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [ralt]}
- {at: 1200, resizeDisplay: {display: 1, frame: [0, 0, 2560, 1440]}}
- {at: 1500, flags: []}
- {at: 2000, resizeDisplay: {display: 1, frame: [0, 0, 1280, 800]}}
- {at: 2100, flags: [ralt]}
- {at: 2300, flags: []}
- {at: 3000, end: true}
)");
    EXPECT_EQ(summary(events, {"screens"}).front(), "1200 screens display=1 frame=[0.0,0.0,2560.0,1440.0]");
    const json before = lastPanelAtOrBefore(events, 1199);
    const json after = lastPanelAtOrBefore(events, 1200);
    ASSERT_TRUE(before["visible"].get<bool>());
    ASSERT_TRUE(after["visible"].get<bool>());
    const auto f0 = before["frame"], f1 = after["frame"];
    // Bottom right on both: the right edge follows the display's, the bottom keeps its scaled offset.
    const double right0 = f0[0].get<double>() + f0[2].get<double>();
    const double right1 = f1[0].get<double>() + f1[2].get<double>();
    EXPECT_LE(right0, 1440);
    EXPECT_GT(right1, 1440) << "the panel moved to the larger frame at once";
    EXPECT_LE(right1, 2560);
    EXPECT_EQ(right1 - right0, 2560 - 1440) << "same margin from the right edge";
    const double bottomGap0 = 900 - (f0[1].get<double>() + f0[3].get<double>());
    const double bottomGap1 = 1440 - (f1[1].get<double>() + f1[3].get<double>());
    EXPECT_NEAR(bottomGap1 - bottomGap0, 40 * (1440.0 / 900 - 1), 0.01)
        << "the Y offset scales with the height";

    // A change while hidden is read when the panel next shows.
    const json later = lastPanelAtOrBefore(events, 2100);
    ASSERT_TRUE(later["visible"].get<bool>());
    EXPECT_LE(later["frame"][0].get<double>() + later["frame"][2].get<double>(), 1280);
}

}  // namespace
}  // namespace zelk::testing
