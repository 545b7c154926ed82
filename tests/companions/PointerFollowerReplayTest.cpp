#include "../app/ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Two displays; Safari has a window on each, Mail one on the first. The pointer follows focus.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
  - {id: 2, frame: [1440, 0, 1920, 1080], spaces: [{id: 101}, {id: 102}], currentSpace: 101}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple", frame: [100, 100, 800, 600], space: 1}
        - {id: 1002, title: "Docs", frame: [1540, 100, 1000, 800], space: 101}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [200, 200, 400, 300], space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {moveCursorToFocusedApp: true}
)";

std::vector<std::string> pointerWarps(const std::vector<json>& events) {
    return summary(events, {"pointer"});
}

}  // namespace

TEST(PointerFollowerReplay, TheWindowFocusedOnTheOtherDisplayGetsThePointer150msLater) {
    auto events = replay(kWorld, R"(
- {at: 500, command: {command: focus-window, windowID: 1002}}
- {at: 2000, end: true}
)");
    EXPECT_EQ(pointerWarps(events), (std::vector<std::string>{"650 pointer x=2040.0 y=500.0"}));
}

TEST(PointerFollowerReplay, AnActivatedAppAndASpaceSwitchMoveThePointerToo) {
    // Space #4 is the second display's second Space: the tool numbers user Spaces across displays.
    auto events = replay(kWorld, R"(
- {at: 500, command: {command: focus-app, bundleID: com.apple.mail}}
- {at: 1000, pointer: {x: 3000, y: 900}}
- {at: 1500, command: {command: switch-space, spaceIndex: 4}}
- {at: 3000, end: true}
)");
    EXPECT_EQ(pointerWarps(events),
              (std::vector<std::string>{"650 pointer x=400.0 y=350.0", "1000 pointer x=3000.0 y=900.0",
                                        "1650 pointer x=2400.0 y=540.0"}));
}

TEST(PointerFollowerReplay, WithTheSettingOffNothingWarps) {
    auto events = replay(kWorld, R"(
- {at: 100, setting: {moveCursorToFocusedApp: false}}
- {at: 500, command: {command: focus-window, windowID: 1002}}
- {at: 2000, end: true}
)");
    EXPECT_TRUE(pointerWarps(events).empty());
}

namespace {

// One display with two Spaces; Notes has a window off the middle of the second Space.
const char* kTwoSpacesWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [100, 100, 800, 600], space: 1}]}
  - bundleID: com.apple.Notes
    name: Notes
    running: {pid: 103, windows: [{id: 1031, title: "List", frame: [900, 500, 400, 300], space: 2}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {moveCursorToFocusedApp: true}
)";

}  // namespace

// The Space switch a focus makes on its way must not turn the warp into one to the display's middle.
TEST(PointerFollowerReplay, AWindowFocusedOnAnotherSpaceGetsThePointerNotTheDisplayMiddle) {
    auto events = replay(kTwoSpacesWorld, R"(
- {at: 500, command: {command: focus-window, windowID: 1031}}
- {at: 2000, end: true}
)");
    auto warps = pointerWarps(events);
    ASSERT_EQ(warps.size(), 1u);
    EXPECT_NE(warps.front().find("x=1100.0 y=650.0"), std::string::npos) << warps.front();
}
