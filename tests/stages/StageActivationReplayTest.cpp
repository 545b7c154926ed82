#include "../app/ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// TextEdit with the stage's note and another file, Terminal in the project folder, Mail (not in the
// stage), Safari and Notes not running. Stage "w": the note on the left half, Terminal at a pixel
// rectangle, a Safari page on the right half, and Notes as a whole app.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.TextEdit
    name: TextEdit
    path: /Applications/TextEdit.app
    running: {pid: 101, windows: [
      {id: 2001, title: "notes.txt", frame: [300, 200, 500, 400], space: 1, document: "file:///Users/sim/notes.txt"},
      {id: 2002, title: "other.txt", frame: [350, 250, 800, 400], space: 1, document: "file:///Users/sim/other.txt"}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    path: /Applications/Utilities/Terminal.app
    running: {pid: 102, windows: [{id: 2011, title: "zsh", frame: [50, 80, 600, 400], space: 1,
                                   document: "file:///Users/sim/src"}]}
  - bundleID: com.apple.mail
    name: Mail
    path: /Applications/Mail.app
    running: {pid: 103, windows: [{id: 2021, title: "Inbox", frame: [100, 100, 900, 600], space: 1}]}
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    launchDelayMs: 400
  - bundleID: com.apple.Notes
    name: Notes
    path: /System/Applications/Notes.app
frontmost: com.apple.mail
focusedWindow: 2021
settings:
  stageTriggerKeys: [rctrl]
  stageCloseAction: minimize
  stages:
    - key: w
      name: Work
      items:
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A60
          app: {path: /Applications/TextEdit.app, originalName: TextEdit, identifier: com.apple.TextEdit}
          windowSpec: {type: documentPath, path: /Users/sim/notes.txt}
          windowTitle: notes.txt
          windowPlacement: {type: semantic, position: left-half}
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A61
          app: {path: /Applications/Utilities/Terminal.app, originalName: Terminal, identifier: com.apple.Terminal}
          windowSpec: {type: terminalCWD, path: /Users/sim/src/app}
          windowTitle: ""
          windowPlacement: {type: pixels, rect: {x: 10, y: 20, width: 300, height: 200}}
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A62
          app: {path: /Applications/Safari.app, originalName: Safari, identifier: com.apple.Safari}
          windowSpec: {type: browserURL, url: "https://example.org/docs"}
          windowTitle: Docs
          windowPlacement: {type: semantic, position: right-half}
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A63
          app: {path: /System/Applications/Notes.app, originalName: Notes, identifier: com.apple.Notes}
          windowSpec: {type: app}
          windowTitle: ""
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

// The last frame the trace gave a window at or before `t`.
json frameOf(const std::vector<json>& events, std::uint32_t id, double t = 1e12) {
    json frame;
    for (auto& e : events)
        if (e["kind"] == "window" && e["id"] == id && e.contains("frame") && e["t"].get<double>() <= t)
            frame = e["frame"];
    return frame;
}

// The window the trace saw created for an app.
std::optional<json> createdWindow(const std::vector<json>& events, const std::string& bundleID) {
    for (auto& e : events)
        if (e["kind"] == "window" && e.value("created", false) && e["bundleID"] == bundleID) return e;
    return std::nullopt;
}

bool hidden(const std::vector<json>& events, const std::string& bundleID) {
    bool h = false;
    for (auto& e : events) {
        if (e.value("bundleID", "") != bundleID) continue;
        if (e["kind"] == "hide") h = true;
        if (e["kind"] == "unhide") h = false;
    }
    return h;
}

const json kLeftHalf = json::array({0, 25, 720, 875});
const json kRightHalf = json::array({720, 25, 720, 875});

}  // namespace

TEST(StageActivationReplay, ActivatingPlacesOpensMissingWindowsAndParksTheRest) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 12000, command: {command: list-stages, stageKey: w}}
- {at: 12500, end: true}
)",
                         true);
    auto r = replies(events);
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(text(r[0]), "activated stage 'w'");
    EXPECT_TRUE(r[1]["stages"][0]["isActive"].get<bool>());

    // Safari launches (400 ms) and opens the page (300 ms later): its window gets the right half,
    // 50 ms after it appeared.
    auto safari = createdWindow(events, "com.apple.Safari");
    ASSERT_TRUE(safari.has_value());
    EXPECT_EQ((*safari)["t"], 1700);
    EXPECT_EQ((*safari)["title"], "example.org");
    std::uint32_t safariID = (*safari)["id"];
    EXPECT_EQ(frameOf(events, safariID), kRightHalf);
    EXPECT_TRUE(hasLog(events, "openStageItems: placement applied to Safari window #"));
    // The whole-app item launches Notes.
    EXPECT_TRUE(createdWindow(events, "com.apple.Notes").has_value());
    EXPECT_TRUE(hasLog(events, "openStageWindow[.app]: launching bundle=com.apple.Notes"));

    // The windows already open keep their place in the stage; hydration places none of them twice,
    // and the other TextEdit file is parked past the bottom-right corner of the screen.
    EXPECT_EQ(frameOf(events, 2002), json::array({1440 + 800 - 5, 900 + 400 - 5, 800, 400}));
    EXPECT_TRUE(hidden(events, "com.apple.mail"));
    EXPECT_FALSE(hidden(events, "com.apple.TextEdit"));
    // The first item ends up in front.
    json lastFocus;
    for (auto& e : events)
        if (e["kind"] == "focus" && e["t"].get<double>() <= 1000) lastFocus = e;
    EXPECT_EQ(lastFocus["windowID"], 2001);
}

TEST(StageActivationReplay, RepositionPlacesTheResolvedWindowsAndCloseBringsParkedWindowsBack) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 12000, flags: [rctrl]}
- {at: 12100, tap: section}
- {at: 12200, flags: []}
- {at: 13000, command: {command: close-stage}}
- {at: 13500, end: true}
)",
                         true);
    EXPECT_EQ(frameOf(events, 2001), kLeftHalf);
    // Terminal's pixel rectangle is relative to the visible frame (below the menu bar).
    EXPECT_EQ(frameOf(events, 2011), json::array({10, 45, 300, 200}));
    EXPECT_TRUE(hasLog(events, "repositionActiveStage: stage='Work' applied=3 skipped=0 total=4"));
    auto r = replies(events);
    EXPECT_EQ(text(r.back()), "close requested for active stage");
    // The parked file comes back where it was; the stage's own windows are minimised by the setting.
    EXPECT_EQ(frameOf(events, 2002), json::array({350, 250, 800, 400}));
    bool minimized = false;
    for (auto& e : events)
        if (e["kind"] == "window" && e["id"] == 2001 && e.value("minimized", false)) minimized = true;
    EXPECT_TRUE(minimized);
}

TEST(StageActivationReplay, TheStageTriggerLetterActivatesAndOtherLettersPass) {
    auto events = replay(kWorld, R"(
- {at: 1000, flags: [rctrl]}
- {at: 1100, tap: q}
- {at: 1200, tap: w}
- {at: 1300, flags: []}
- {at: 3000, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events, "activateStage: stage 'Work' resolved=2 missing=2"));
    EXPECT_TRUE(createdWindow(events, "com.apple.Safari").has_value());
}

TEST(StageActivationReplay, ASecondActivationWhileWindowsOpenDoesNotOpenThemTwice) {
    auto events = replay(kWorld, R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 1200, command: {command: activate-stage, stageKey: w}}
- {at: 12000, end: true}
)",
                         true);
    int safariWindows = 0;
    for (auto& e : events)
        if (e["kind"] == "window" && e.value("created", false) && e["bundleID"] == "com.apple.Safari")
            ++safariWindows;
    EXPECT_EQ(safariWindows, 1);
    EXPECT_EQ(logsStartingWith(events, "openStageItems: Safari 'Docs' is already opening").size(), 1u);
}

TEST(StageActivationReplay, AWindowThatNeverAppearsSkipsItsPlacementAfterFiveSeconds) {
    std::string world = kWorld;
    world.replace(world.find("    launchDelayMs: 400"), 22, "    launchDelayMs: 400\n    openDelayMs: 9000");
    auto events = replay(world, R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 7000, end: true}
)",
                         true);
    bool skipped = false;
    for (auto& e : events)
        if (e["kind"] == "log" &&
            e["message"] ==
                "openStageItems: no kAXWindowCreated for Safari 'Docs' within timeout, placement skipped") {
            skipped = true;
            EXPECT_EQ(e["t"], 6000);
        }
    EXPECT_TRUE(skipped);
}

TEST(StageActivationReplay, SingleSpaceModeStopsWithAToastWhenAWindowIsOnAnotherSpace) {
    std::string world = kWorld;
    // The terminal window stands on Space 2; the item finds it by its title (accessibility sees only
    // the windows of the Space shown).
    const std::string onOne = "frame: [50, 80, 600, 400], space: 1";
    world.replace(world.find(onOne), onOne.size(), "frame: [50, 80, 600, 400], space: 2");
    const std::string untitled = "path: /Users/sim/src/app}\n          windowTitle: \"\"";
    ASSERT_NE(world.find(untitled), std::string::npos);
    world.replace(world.find(untitled), untitled.size(),
                  "path: /Users/sim/src/app}\n          windowTitle: zsh");
    auto events = replay(world, R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 2000, command: {command: list-stages}}
- {at: 5500, end: true}
)",
                         true);
    // The toast shows on the main screen for 4 s, then leaves.
    std::vector<json> toasts;
    for (auto& e : events)
        if (e["kind"] == "toast") toasts.push_back(e);
    ASSERT_EQ(toasts.size(), 2u);
    EXPECT_EQ(toasts[0]["t"], 1000);
    EXPECT_TRUE(toasts[0]["visible"].get<bool>());
    EXPECT_EQ(toasts[0]["title"], "Stage **Work** has windows on another Space.");
    EXPECT_EQ(toasts[0]["body"], "Switch to that Space first, or enable multi-space mode in Settings.");
    EXPECT_EQ(toasts[0]["text"],
              "Stage Work has windows on another Space. Switch to that Space first, or enable multi-space "
              "mode in Settings.");
    EXPECT_EQ(toasts[0]["frame"], json::array({490, 73, 460, 64}));
    EXPECT_EQ(toasts[1]["t"], 5000);
    EXPECT_FALSE(toasts[1]["visible"].get<bool>());
    EXPECT_FALSE(replies(events).back()["stages"][0]["isActive"].get<bool>());
    EXPECT_FALSE(createdWindow(events, "com.apple.Safari").has_value());
}
