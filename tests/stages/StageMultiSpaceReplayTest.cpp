#include "../app/ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Multi-Space mode with the Dock (so Mission Control can add a Space). Mail is in front on Space 1,
// Notes holds Space 2 when `NOTES` says so; TextEdit and Safari are not running (an app with a window
// elsewhere would pull the display to its Space when it comes forward). Stage "w" (TextEdit's plan on
// the left half, a Safari page on the right half) has no window open; `CAPTURED` is its stored Space.
const char* kWorld = R"(
dock: true
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.TextEdit
    name: TextEdit
    path: /Applications/TextEdit.app
  - bundleID: com.apple.mail
    name: Mail
    path: /Applications/Mail.app
    running: {pid: 103, windows: [{id: 2021, title: "Inbox", frame: [100, 100, 900, 600], space: 1}]}
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    launchDelayMs: 400
SAFARI
  - bundleID: com.apple.Notes
    name: Notes
    path: /System/Applications/Notes.app
NOTES
frontmost: com.apple.mail
focusedWindow: 2021
settings:
  spaceMode: multi
  stages:
    - key: w
      name: Work
CAPTURED
      items:
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A60
          app: {path: /Applications/TextEdit.app, originalName: TextEdit, identifier: com.apple.TextEdit}
          windowSpec: {type: documentPath, path: /Users/sim/plan.txt}
          windowTitle: plan.txt
          windowPlacement: {type: semantic, position: left-half}
        - id: 0F8E2A3C-7B1D-4E5F-9A6B-1C2D3E4F5A62
          app: {path: /Applications/Safari.app, originalName: Safari, identifier: com.apple.Safari}
          windowSpec: {type: browserURL, url: "https://example.org/docs"}
          windowTitle: Docs
          windowPlacement: {type: semantic, position: right-half}
)";

struct WorldOptions {
    bool notesOnSpaceTwo = false;
    std::optional<int> captured;
    std::optional<int> safariOpenDelayMs;
};

std::string world(const WorldOptions& o) {
    std::string w = kWorld;
    auto put = [&w](const std::string& mark, const std::string& text) {
        auto at = w.find(mark);
        w.replace(at, mark.size() + 1, text.empty() ? "" : text + "\n");
    };
    put("SAFARI", o.safariOpenDelayMs ? "    openDelayMs: " + std::to_string(*o.safariOpenDelayMs) : "");
    put("NOTES", o.notesOnSpaceTwo
                     ? "    running: {pid: 104, windows: [{id: 2031, title: \"List\", frame: [0, "
                       "25, 400, 400], space: 2}]}"
                     : "");
    put("CAPTURED", o.captured ? "      spaceID: " + std::to_string(*o.captured) : "");
    return w;
}

std::vector<json> replies(const std::vector<json>& events) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "reply") out.push_back(e["response"]);
    return out;
}

std::vector<json> created(const std::vector<json>& events, const std::string& bundleID) {
    std::vector<json> out;
    for (auto& e : events)
        if (e["kind"] == "window" && e.value("created", false) && e["bundleID"] == bundleID) out.push_back(e);
    return out;
}

json frameOf(const std::vector<json>& events, std::uint32_t id) {
    json frame;
    for (auto& e : events)
        if (e["kind"] == "window" && e["id"] == id && e.contains("frame")) frame = e["frame"];
    return frame;
}

// When the message was first logged at or after `from`.
std::optional<double> logTime(const std::vector<json>& events, const std::string& message, double from = 0) {
    for (auto& e : events)
        if (e["kind"] == "log" && e["message"] == message && e["t"].get<double>() >= from)
            return e["t"].get<double>();
    return std::nullopt;
}

const json kLeftHalf = json::array({0, 25, 720, 875});
const json kRightHalf = json::array({720, 25, 720, 875});

}  // namespace

TEST(StageMultiSpaceReplay, AClosedStageClaimsTheFirstFreeSpaceAndOpensItsWindowsThere) {
    auto events = replay(world({}), R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 8000, command: {command: list-stages, stageKey: w}}
- {at: 8500, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events, "activate(multi) target: empty-claim 2 (reason: no-captured)"));
    EXPECT_TRUE(hasLog(events, "activate(multi) write[main]: stage 'Work' updated, persisting"));
    // The switch comes first; the stage opens fully closed 200 ms later, on the claimed Space.
    EXPECT_EQ(logTime(events,
                      "activateStage: stage 'Work' fully closed, opening all items then waiting for "
                      "windows"),
              1200);
    auto stage = replies(events).back()["stages"][0];
    EXPECT_EQ(stage["spaceID"], 2);
    EXPECT_TRUE(stage["isActive"].get<bool>());

    auto documents = created(events, "com.apple.TextEdit");
    auto pages = created(events, "com.apple.Safari");
    ASSERT_EQ(documents.size(), 1u);
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_EQ(documents[0]["space"], 2);
    EXPECT_EQ(pages[0]["space"], 2);
    EXPECT_EQ(frameOf(events, documents[0]["id"]), kLeftHalf);
    EXPECT_EQ(frameOf(events, pages[0]["id"]), kRightHalf);
    EXPECT_FALSE(logsStartingWith(events, "activateStage: windows materialized after ").empty());
}

TEST(StageMultiSpaceReplay, AStageWhoseSpaceIsTakenGetsANewSpaceThroughMissionControl) {
    auto events = replay(world({.notesOnSpaceTwo = true, .captured = 2}), R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 12000, command: {command: list-stages, stageKey: w}}
- {at: 12100, command: {command: list-spaces}}
- {at: 12500, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(events, "activate(multi) target: create-new Space (reason: captured-not-empty)"));
    EXPECT_TRUE(hasLog(events, "activate(multi) write[new-space cb]: stage 'Work' bound to 3"));
    EXPECT_TRUE(hasLog(events, "ensurePinnedSpace: drift detected, active=1 target=3, jumping back"));
    auto r = replies(events);
    EXPECT_EQ(r[0]["message"], "activated stage 'w'");
    EXPECT_EQ(r[1]["stages"][0]["spaceID"], 3);
    EXPECT_EQ(r[2]["spaces"].size(), 3u);
    auto documents = created(events, "com.apple.TextEdit");
    auto pages = created(events, "com.apple.Safari");
    ASSERT_EQ(documents.size(), 1u);
    ASSERT_EQ(pages.size(), 1u);
    EXPECT_EQ(documents[0]["space"], 3);
    EXPECT_EQ(pages[0]["space"], 3);
    EXPECT_EQ(frameOf(events, documents[0]["id"]), kLeftHalf);
    EXPECT_EQ(frameOf(events, pages[0]["id"]), kRightHalf);
}

TEST(StageMultiSpaceReplay, ASecondActivationWhileTheFirstIsOpeningNeitherOpensNorCreatesTwice) {
    // Claiming a free Space: the second activation finds the Space it claimed still empty.
    auto claimed = replay(world({}), R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 1300, command: {command: activate-stage, stageKey: w}}
- {at: 9000, end: true}
)",
                          true);
    EXPECT_TRUE(hasLog(claimed, "activate(multi) target: captured 2 (still empty)"));
    EXPECT_EQ(created(claimed, "com.apple.Safari").size(), 1u);
    EXPECT_EQ(created(claimed, "com.apple.TextEdit").size(), 1u);
    EXPECT_EQ(logsStartingWith(claimed, "openStageItems: Safari 'Docs' is already opening").size(), 1u);

    // Making a Space: the second activation comes while Mission Control is still adding it.
    auto making = replay(world({.notesOnSpaceTwo = true, .captured = 2}), R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 1300, command: {command: activate-stage, stageKey: w}}
- {at: 12000, command: {command: list-spaces}}
- {at: 12500, end: true}
)",
                         true);
    EXPECT_TRUE(hasLog(making, "activateStageInMultiSpace: a Space is already being made for stage 'Work'"));
    EXPECT_EQ(replies(making).back()["spaces"].size(), 3u);
    EXPECT_EQ(created(making, "com.apple.Safari").size(), 1u);
    EXPECT_EQ(created(making, "com.apple.TextEdit").size(), 1u);
}

TEST(StageMultiSpaceReplay, AWindowThatNeverAppearsIsGivenUpAndTheStageEndsAfterTheGrace) {
    // Safari takes a minute to open its page; TextEdit's document opens as usual.
    auto events = replay(world({.safariOpenDelayMs = 60000}), R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 6000, switchSpace: {display: 1, space: 1}}
- {at: 6100, activate: com.apple.mail}
- {at: 14000, openWindow: {bundleID: com.apple.mail, id: 2022, title: Draft, frame: [200, 200, 600, 400], space: 1}}
- {at: 14100, activate: com.apple.mail}
- {at: 14500, command: {command: list-stages, stageKey: w}}
- {at: 15000, end: true}
)",
                         true);
    // The window waited for with a placement: 5 s after Safari was asked for the page.
    auto skipped = logTime(events,
                           "openStageItems: no kAXWindowCreated for Safari 'Docs' within timeout, "
                           "placement skipped");
    ASSERT_TRUE(skipped.has_value());
    EXPECT_EQ(*skipped, 1200 + 5000);
    // Inside the 12 s grace a focus elsewhere keeps the stage; after it, the stage ends.
    auto kept = logTime(events,
                        "rememberFocusedWindow: stage 'w' has no windows on active Space, but "
                        "activation in progress, keeping marker",
                        6000);
    auto cleared = logTime(events,
                           "rememberFocusedWindow: stage 'w' has no windows on active Space, clearing "
                           "marker");
    ASSERT_TRUE(kept.has_value());
    ASSERT_TRUE(cleared.has_value());
    EXPECT_GE(*kept, 6000);
    EXPECT_LT(*kept, 1000 + 12000);
    EXPECT_GE(*cleared, 14000);
    EXPECT_FALSE(replies(events).back()["stages"][0]["isActive"].get<bool>());
    EXPECT_TRUE(created(events, "com.apple.Safari").empty());
}

TEST(StageMultiSpaceReplay, AStageWhoseWindowsNeverAppearGivesUpAfterTwentyPolls) {
    // Both windows take a minute: nothing materialises, the wait ends after 20 polls of 200 ms.
    std::string w = world({.safariOpenDelayMs = 60000});
    const std::string textEdit = "    path: /Applications/TextEdit.app\n";
    w.replace(w.find(textEdit), textEdit.size(), textEdit + "    openDelayMs: 60000\n");
    auto events = replay(w, R"(
- {at: 1000, command: {command: activate-stage, stageKey: w}}
- {at: 7000, end: true}
)",
                         true);
    auto gaveUp = logTime(events, "activateStage: gave up waiting for stage windows to open key=w");
    ASSERT_TRUE(gaveUp.has_value());
    EXPECT_EQ(*gaveUp, 1200 + 20 * 200);
    // Restore and focus still run.
    EXPECT_FALSE(logsStartingWith(events, "activateStage restore: items=2").empty());
}
