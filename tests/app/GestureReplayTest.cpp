#include "ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Safari in front on Space 1; Mail's only window is on Space 2; Notes is installed, not running.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", frame: [40, 60, 900, 700], space: 2}]}
  - bundleID: com.apple.Notes
    name: Notes
    launchDelayMs: 250
frontmost: com.apple.Safari
focusedWindow: 1001
settings: {activationMode: onPress}
)";

std::string world(const std::string& settings) {
    std::string w = kWorld;
    return w.replace(w.find("settings: {activationMode: onPress}"), 35, "settings: " + settings);
}

std::vector<std::string> gesture(const std::vector<json>& events) {
    return summary(events, {"key", "space", "focus", "launch", "hide"});
}

}  // namespace

TEST(GestureReplay, ALetterReachesAWindowOnAnotherSpaceBySwitchingThenFocusing) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
- {at: 3000, end: true}
)");
    auto lines = gesture(events);
    std::vector<std::string> expected{
        "1100 key action=swallowed down=true key=m keyCode=46",
        "1100 space display=1 space=2",
        "1100 focus bundleID=com.apple.mail pid=102 windowID=1011",
        "1110 key action=passed down=false key=m keyCode=46",
    };
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 4), expected);
}

TEST(GestureReplay, OnReleaseWaitsForTheTriggerToComeUp) {
    auto events = replay(world("{activationMode: onRelease}"), R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
- {at: 3000, end: true}
)");
    auto lines = gesture(events);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[0], "1100 key action=swallowed down=true key=m keyCode=46");
    EXPECT_EQ(lines[1], "1110 key action=passed down=false key=m keyCode=46");
    EXPECT_EQ(lines[2], "1300 space display=1 space=2");
    EXPECT_EQ(lines[3], "1300 focus bundleID=com.apple.mail pid=102 windowID=1011");
}

TEST(GestureReplay, TheFocusedAppsLetterHidesItAndAnUnboundLetterPasses) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: s}
- {at: 1300, flags: []}
- {at: 2000, flags: [rightCommand]}
- {at: 2100, tap: q}
- {at: 2300, flags: []}
- {at: 3000, end: true}
)");
    auto lines = gesture(events);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "1100 hide bundleID=com.apple.Safari"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "2100 key action=passed down=true key=q keyCode=12"),
              lines.end())
        << ::testing::PrintToString(lines);
}

TEST(GestureReplay, CommandsGoThroughTheProtocolAndActOnTheDesktop) {
    auto events = replay(kWorld, R"(
- {at: 500, command: {command: list-spaces}}
- {at: 600, command: {command: focus-app, query: mail}}
- {at: 700, command: {command: fly-away}}
- {at: 800, command: {command: focus-window, windowID: 4294967296}}
- {at: 900, command: {command: switch-space, spaceIndex: 1}}
- {at: 2000, end: true}
)");
    std::vector<json> replies;
    for (auto& e : events)
        if (e["kind"] == "reply") replies.push_back(e["response"]);
    ASSERT_EQ(replies.size(), 5u);
    EXPECT_EQ(replies[0]["ok"], true);
    ASSERT_EQ(replies[0]["spaces"].size(), 2u);
    EXPECT_EQ(replies[0]["spaces"][0]["isActive"], true);
    EXPECT_EQ(replies[1]["ok"], true);
    EXPECT_NE(replies[1]["message"].get<std::string>().find("focused Mail (pid 102"), std::string::npos)
        << replies[1].dump();
    EXPECT_EQ(replies[2], (json{{"ok", false}, {"error", "invalid request"}}));
    EXPECT_EQ(replies[3], (json{{"ok", false}, {"error", "invalid request"}}));
    EXPECT_EQ(replies[4]["ok"], true);
    auto lines = gesture(events);
    std::vector<std::string> moves{"600 space display=1 space=2",
                                   "600 focus bundleID=com.apple.mail pid=102 windowID=1011"};
    EXPECT_NE(std::search(lines.begin(), lines.end(), moves.begin(), moves.end()), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "900 space display=1 space=1"), lines.end());
}
