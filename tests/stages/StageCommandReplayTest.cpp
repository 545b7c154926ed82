#include "../app/ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Safari with two windows and Terminal with one; one saved stage of a Safari window and Terminal.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [10, 40, 800, 600], space: 1},
                                  {id: 1002, title: "Docs", frame: [30, 60, 800, 600], space: 1}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    running: {pid: 102, windows: [{id: 1011, title: "zsh", frame: [50, 80, 600, 400], space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 1001
settings:
  stages:
    - key: w
      name: Work
      spaceID: 1
      items:
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B
          app: {path: /Applications/Safari.app, originalName: Safari, identifier: com.apple.Safari}
          windowSpec: {type: browserURL, url: ""}
          windowTitle: Docs
          windowPlacement: {type: semantic, position: left-half}
        - id: 1F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A6B
          app: {path: /Applications/Terminal.app, originalName: Terminal, identifier: com.apple.Terminal}
          windowSpec: {type: app}
          windowTitle: ""
          windowPlacement: {type: pixels, rect: {x: 10, y: 20, width: 300, height: 200}}
        - {id: broken}
)";

std::vector<json> replies(const std::vector<json>& events) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "reply") out.push_back(e["response"]);
    return out;
}

std::string text(const json& reply) {
    return reply.value("message", reply.value("error", ""));
}

}  // namespace

TEST(StageCommandReplay, ListStagesShowsItemsAndTheirLiveWindows) {
    auto r = replies(replay(kWorld, R"(
- {at: 500, command: {command: list-stages, includeWindows: true}}
- {at: 600, command: {command: list-stages, stageKey: w}}
- {at: 700, command: {command: list-stages, stageKey: q}}
)"));
    ASSERT_EQ(r.size(), 3u);
    auto& stage = r[0]["stages"][0];
    EXPECT_EQ(stage["key"], "w");
    EXPECT_EQ(stage["name"], "Work");
    EXPECT_EQ(stage["spaceID"], 1);
    EXPECT_EQ(stage["isActive"], false);
    ASSERT_EQ(stage["items"].size(), 2u);  // the broken item is dropped
    EXPECT_EQ(stage["items"][0]["spec"], "url:");
    EXPECT_EQ(stage["items"][0]["placement"], "left-half");
    EXPECT_EQ(stage["items"][0]["resolvedWindowID"], 1002);
    EXPECT_EQ(stage["items"][0]["resolvedSpaceIndex"], 1);
    EXPECT_EQ(stage["items"][1]["placement"], "10,20,300,200");
    EXPECT_EQ(stage["items"][1]["resolvedWindowID"], 1011);
    EXPECT_FALSE(r[1]["stages"][0]["items"][0].contains("resolvedWindowID"));
    EXPECT_EQ(text(r[2]), "no stage assigned to 'q'");
}

TEST(StageCommandReplay, PlaceWindowPlacesNamedAndPixelPositionsAndSaysWhyNot) {
    auto events = replay(kWorld, R"(
- {at: 500, command: {command: place-window, position: right-half, windowID: 1002, padding: 10}}
- {at: 600, command: {command: place-window, position: "100,50,640,480", screen: builtin}}
- {at: 700, command: {command: place-window, position: middle}}
- {at: 800, command: {command: place-window, position: left-half, screen: "Projector"}}
- {at: 900, command: {command: place-window, position: left-half, windowID: 4242}}
- {at: 950, command: {command: place-window, position: top-half, appQuery: terminal}}
)");
    auto r = replies(events);
    ASSERT_EQ(r.size(), 6u);
    EXPECT_EQ(text(r[0]), "placed window #1002 at right-half (padding 10)");
    EXPECT_EQ(text(r[1]), "placed window #1001 at 100,50,640,480 on builtin");
    EXPECT_EQ(text(r[2]), "invalid position 'middle'. See `zelk window place --help` for valid positions.");
    EXPECT_EQ(text(r[3]), "no screen matches 'Projector'");
    EXPECT_EQ(text(r[4]), "no target window");
    EXPECT_EQ(text(r[5]), "placed window #1011 at top-half");
    std::vector<std::string> frames;
    for (auto& e : events)
        if (e["kind"] == "window") frames.push_back(e.dump());
    std::string all;
    for (auto& f : frames)
        all += f + "\n";
    EXPECT_NE(all.find("[730.0,35.0,700.0,855.0]"), std::string::npos) << all;
    EXPECT_NE(all.find("[100.0,75.0,640.0,480.0]"), std::string::npos) << all;
    EXPECT_NE(all.find("[0.0,25.0,1440.0,437.5]"), std::string::npos) << all;
}

TEST(StageCommandReplay, CloseStageDealsWithItsWindowsByTheCloseAction) {
    auto r = replies(replay(kWorld, R"(
- {at: 500, command: {command: close-stage}}
- {at: 600, command: {command: close-stage, stageKey: q}}
- {at: 700, setting: {stageCloseAction: minimize}}
- {at: 800, command: {command: close-stage, stageKey: w}}
- {at: 900, command: {command: list-windows}}
- {at: 1000, setting: {stageCloseAction: close}}
- {at: 1100, command: {command: close-stage, stageKey: w}}
- {at: 1500, command: {command: list-windows}}
)"));
    ASSERT_EQ(r.size(), 6u);
    EXPECT_EQ(text(r[0]), "no active stage");
    EXPECT_EQ(text(r[1]), "no stage assigned to 'q'");
    EXPECT_EQ(text(r[2]), "close requested for stage 'w'");
    std::map<int, bool> minimised;
    for (auto& w : r[3]["windows"])
        minimised[w["id"]] = w["isMinimized"];
    EXPECT_EQ(minimised, (std::map<int, bool>{{1001, false}, {1002, true}, {1011, true}}));
    std::set<int> left;
    for (auto& w : r[5]["windows"])
        left.insert(w["id"].get<int>());
    EXPECT_EQ(left, (std::set<int>{1001}));
}
