#include "../app/ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// A document window, a web page, a terminal in a folder and a mail window (a whole app); no stages.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.TextEdit
    name: TextEdit
    path: /Applications/TextEdit.app
    running: {pid: 101, windows: [{id: 2001, title: "notes.txt", frame: [300, 200, 500, 400], space: 1,
                                   document: "file:///Users/sim/notes.txt"}]}
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    running: {pid: 102, windows: [{id: 2011, title: "Docs", frame: [720, 25, 720, 875], space: 1,
                                   document: "https://example.org/docs"}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    path: /Applications/Utilities/Terminal.app
    running: {pid: 103, windows: [{id: 2021, title: "zsh", frame: [0, 25, 720, 875], space: 1,
                                   document: "file:///Users/sim/src"}]}
  - bundleID: com.apple.mail
    name: Mail
    path: /Applications/Mail.app
    running: {pid: 104, windows: [{id: 2031, title: "Inbox", frame: [100, 100, 900, 600], space: 1},
                                  {id: 2032, title: "Draft", frame: [120, 120, 600, 400], space: 1}]}
frontmost: com.apple.TextEdit
focusedWindow: 2001
settings:
  stageTriggerKeys: [rctrl]
)";

std::vector<json> replies(const std::vector<json>& events) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "reply") out.push_back(e["response"]);
    return out;
}

json frameOf(const std::vector<json>& events, std::uint32_t id) {
    json frame;
    for (auto& e : events)
        if (e["kind"] == "window" && e["id"] == id && e.contains("frame")) frame = e["frame"];
    return frame;
}

}  // namespace

TEST(StageCaptureReplay, TheSaveKeyCapturesTheDeskAsAStage) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rctrl]}
- {at: 1100, tap: equal}
- {at: 1200, flags: []}
- {at: 1500, command: {command: list-stages}}
- {at: 1600, end: true}
)");
    auto stages = replies(events).back()["stages"];
    ASSERT_EQ(stages.size(), 1u);
    EXPECT_EQ(stages[0]["key"], "a");
    EXPECT_EQ(stages[0]["name"], "Stage A");
    EXPECT_EQ(stages[0]["spaceID"], 1);
    std::map<std::string, json> byApp;
    for (auto& item : stages[0]["items"])
        byApp[item["bundleID"]] = item;
    ASSERT_EQ(byApp.size(), 4u);
    EXPECT_EQ(stages[0]["items"].size(), 4u);  // one whole-app item for both mail windows
    EXPECT_EQ(byApp["com.apple.TextEdit"]["spec"], "doc:/Users/sim/notes.txt");
    EXPECT_EQ(byApp["com.apple.TextEdit"]["placement"], "300,175,500,400 on builtin");
    EXPECT_EQ(byApp["com.apple.Safari"]["spec"], "url:https://example.org/docs");
    EXPECT_EQ(byApp["com.apple.Safari"]["placement"].get<std::string>().substr(0, 10), "right-half");
    EXPECT_EQ(byApp["com.apple.Terminal"]["spec"], "cwd:/Users/sim/src");
    EXPECT_EQ(byApp["com.apple.mail"]["spec"], "app");
}

TEST(StageCaptureReplay, ACapturedStageComesBackAfterItsWindowsClosedAndMoved) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rctrl]}
- {at: 1100, tap: equal}
- {at: 1200, flags: []}
- {at: 2000, closeWindow: 2001}
- {at: 2100, command: {command: place-window, windowID: 2011, position: top-left}}
- {at: 3000, command: {command: activate-stage, stageKey: a}}
- {at: 9000, end: true}
)");
    EXPECT_EQ(replies(events)[1]["message"], "activated stage 'a'");
    std::optional<std::uint32_t> reopened;
    for (auto& e : events)
        if (e["kind"] == "window" && e.value("created", false) && e["bundleID"] == "com.apple.TextEdit")
            reopened = e["id"].get<std::uint32_t>();
    ASSERT_TRUE(reopened.has_value());
    EXPECT_EQ(frameOf(events, *reopened), json::array({300, 200, 500, 400}));
    // A window that is open keeps where the user put it; the reposition key applies the stage's places.
    EXPECT_EQ(frameOf(events, 2011), json::array({0, 25, 720, 437.5}));
}
