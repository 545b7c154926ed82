#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "../app/ReplayHelpers.h"
#include "stages/WindowCapture.h"

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

namespace {

// A desk of every kind of window, with the editor's projects in a real folder (project markers are
// looked up on disk): Safari with two pages (one told by its script, one by accessibility), Terminal
// in a folder, VS Code on two projects, a Finder window (its folder told by its script) and Mail, a
// whole app.
struct WholeDesk {
    std::filesystem::path root;

    WholeDesk() {
        root = std::filesystem::temp_directory_path() /
               ("zelk-capture-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(root / "proj" / "src");
        std::filesystem::create_directories(root / "tool");
        std::ofstream(root / "proj" / "package.json") << "{}\n";
        std::ofstream(root / "proj" / "src" / "main.c") << "int main(void) { return 0; }\n";
        std::ofstream(root / "tool" / "Cargo.toml") << "[package]\n";
        std::ofstream(root / "tool" / "lib.rs") << "\n";
    }
    ~WholeDesk() {
        std::error_code ec;
        std::filesystem::remove_all(root, ec);
    }

    std::string path(const std::string& rel) const { return (root / rel).string(); }

    std::string world() const {
        using zelk::stages::wrapScriptTimeout;
        const std::string finderScript = wrapScriptTimeout(zelk::stages::finderPathScript(3031), 2);
        const std::string safariScript =
            wrapScriptTimeout(zelk::stages::safariURLScript("com.apple.Safari", 3002), 2);
        return R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
scripts:
  - {source: )" +
               json(finderScript).dump() +
               R"(, answer: "/Users/sim/Projects/"}
  - {source: )" +
               json(safariScript).dump() +
               R"(, answer: "https://news.example.com/today"}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    running: {pid: 101, windows: [
      {id: 3001, title: "Docs", frame: [720, 25, 720, 875], space: 1, document: "https://example.org/docs"},
      {id: 3002, title: "Today", frame: [0, 25, 720, 875], space: 1}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    path: /Applications/Utilities/Terminal.app
    running: {pid: 102, windows: [{id: 3011, title: "zsh", frame: [0, 25, 720, 437.5], space: 1,
                                   document: "file:///Users/sim/src"}]}
  - bundleID: com.microsoft.VSCode
    name: Visual Studio Code
    path: /Applications/Visual Studio Code.app
    running: {pid: 103, windows: [
      {id: 3021, title: "main.c — proj", frame: [0, 25, 720, 875], space: 1, document: "file://)" +
               path("proj/src/main.c") + R"("},
      {id: 3022, title: "lib.rs — tool", frame: [0, 25, 1440, 875], space: 1, document: "file://)" +
               path("tool/lib.rs") + R"("}]}
  - bundleID: com.apple.finder
    name: Finder
    path: /System/Library/CoreServices/Finder.app
    finder: true
    running: {pid: 104, windows: [{id: 3031, title: "Projects", frame: [720, 462.5, 720, 437.5], space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    path: /Applications/Mail.app
    running: {pid: 105, windows: [{id: 3041, title: "Inbox", frame: [100, 100, 900, 600], space: 1}]}
frontmost: com.apple.Safari
focusedWindow: 3001
settings:
  stageTriggerKeys: [rctrl]
)";
    }
};

const char* kSaveStage = R"(
- {at: 1000, flags: [rctrl]}
- {at: 1100, tap: equal}
- {at: 1200, flags: []}
)";

}  // namespace

TEST(StageCaptureReplay, EveryKindOfWindowGivesItsIdentityAndPlace) {
    WholeDesk desk;
    auto events = replay(desk.world(), std::string(kSaveStage) + R"(
- {at: 1500, command: {command: list-stages}}
- {at: 1600, end: true}
)");
    auto stages = replies(events).back()["stages"];
    ASSERT_EQ(stages.size(), 1u);
    std::vector<std::string> items;
    for (auto& item : stages[0]["items"])
        items.push_back(item["bundleID"].get<std::string>() + " " + item["spec"].get<std::string>() + " | " +
                        item.value("placement", std::string("-")));
    std::sort(items.begin(), items.end());
    EXPECT_EQ(items, (std::vector<std::string>{
                         "com.apple.Safari url:https://example.org/docs | right-half on builtin",
                         "com.apple.Safari url:https://news.example.com/today | left-half on builtin",
                         "com.apple.Terminal cwd:/Users/sim/src | top-left on builtin",
                         "com.apple.finder doc:/Users/sim/Projects/ | bottom-right on builtin",
                         "com.apple.mail app | 100,75,900,600 on builtin",
                         "com.microsoft.VSCode doc:" + desk.path("proj") + " | left-half on builtin",
                         "com.microsoft.VSCode doc:" + desk.path("tool") + " | maximized on builtin",
                     }));
}

TEST(StageCaptureReplay, RecallingTheDeskReopensClosedWindowsAtTheirTimesAndPlacesEveryWindow) {
    WholeDesk desk;
    // A page, both editor projects and the Finder window close; the terminal is moved.
    auto events = replay(desk.world(), std::string(kSaveStage) + R"(
- {at: 2000, closeWindow: 3002}
- {at: 2000, closeWindow: 3021}
- {at: 2000, closeWindow: 3022}
- {at: 2000, closeWindow: 3031}
- {at: 2100, command: {command: place-window, windowID: 3011, position: bottom-left}}
- {at: 3000, command: {command: activate-stage, stageKey: a}}
- {at: 9000, flags: [rctrl]}
- {at: 9100, tap: section}
- {at: 9200, flags: []}
- {at: 9500, end: true}
)",
                         true);
    EXPECT_EQ(replies(events)[1]["message"], "activated stage 'a'");
    std::map<std::string, json> opened;  // by title
    for (auto& e : events)
        if (e["kind"] == "window" && e.value("created", false)) opened[e["title"].get<std::string>()] = e;
    ASSERT_EQ(opened.size(), 4u) << json(opened).dump();
    // Apps open at once, one group per app; an editor's second project waits 500 ms after the first
    // window was placed (300 ms to open, 50 ms before placing).
    EXPECT_EQ(opened["news.example.com"]["t"], 3300);
    EXPECT_EQ(opened["Projects"]["t"], 3300);
    EXPECT_EQ(opened["proj"]["t"], 3300);
    EXPECT_EQ(opened["tool"]["t"], 3000 + 350 + 500 + 300);
    auto at = [&](const std::string& title) { return opened[title]["id"].get<std::uint32_t>(); };
    EXPECT_EQ(frameOf(events, at("news.example.com")), json::array({0, 25, 720, 875}));
    EXPECT_EQ(frameOf(events, at("Projects")), json::array({720, 462.5, 720, 437.5}));
    EXPECT_EQ(frameOf(events, at("proj")), json::array({0, 25, 720, 875}));
    EXPECT_EQ(frameOf(events, at("tool")), json::array({0, 25, 1440, 875}));
    // Hydration at 1 s finds the three windows open by then, at 3 s the late project.
    auto hydrated = logsStartingWith(events, "hydrateStage: resolved ");
    ASSERT_EQ(hydrated.size(), 2u);
    EXPECT_EQ(hydrated[0], "hydrateStage: resolved 3 window(s) for 'Stage A'");
    EXPECT_EQ(hydrated[1], "hydrateStage: resolved 1 window(s) for 'Stage A'");
    // The reposition key puts the windows that stayed open back in their places too.
    EXPECT_TRUE(hasLog(events, "repositionActiveStage: stage='Stage A' applied=7 skipped=0 total=7"));
    EXPECT_EQ(frameOf(events, 3011), json::array({0, 25, 720, 437.5}));
    // The page and Mail never left their places: the trace has no move of theirs.
    EXPECT_TRUE(frameOf(events, 3001).is_null());
    EXPECT_TRUE(frameOf(events, 3041).is_null());
}

namespace {

// Firefox tells its pages only through its accessibility tree: two windows with pages, one without.
const char* kFirefoxWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}
apps:
  - bundleID: org.mozilla.firefox
    name: Firefox
    path: /Applications/Firefox.app
    running: {pid: 201, windows: [
      {id: 4001, title: "Guide", frame: [0, 25, 720, 875], space: 1, webArea: "https://docs.example.org/guide"},
      {id: 4002, title: "Inbox", frame: [720, 25, 720, 875], space: 1, webArea: "https://mail.example.com/inbox"},
      {id: 4003, title: "New Tab", frame: [100, 100, 800, 600], space: 1}]}
frontmost: org.mozilla.firefox
focusedWindow: 4001
settings:
  stageTriggerKeys: [rctrl]
)";

}  // namespace

TEST(StageCaptureReplay, FirefoxPagesComeFromTheTreeAndResolveByHost) {
    // The pages are retitled after the capture: only their hosts can find them again.
    auto events = replay(kFirefoxWorld, std::string(kSaveStage) + R"(
- {at: 1500, command: {command: list-stages}}
- {at: 2000, retitle: {id: 4001, title: "Guide, part 2"}}
- {at: 2000, retitle: {id: 4002, title: "Inbox, 3 new"}}
- {at: 2500, command: {command: list-stages, includeWindows: true}}
- {at: 2600, end: true}
)");
    auto lists = replies(events);
    ASSERT_GE(lists.size(), 2u);
    std::map<std::string, std::string> specByTitle;
    for (auto& item : lists[lists.size() - 2]["stages"][0]["items"])
        specByTitle[item["windowTitle"]] = item["spec"];
    EXPECT_EQ(specByTitle,
              (std::map<std::string, std::string>{{"Guide", "url:https://docs.example.org/guide"},
                                                  {"Inbox", "url:https://mail.example.com/inbox"},
                                                  {"New Tab", "url:"}}));
    std::map<std::string, std::uint32_t> resolved;
    for (auto& item : lists.back()["stages"][0]["items"])
        if (item.contains("resolvedWindowID")) resolved[item["spec"]] = item["resolvedWindowID"];
    EXPECT_EQ(resolved["url:https://docs.example.org/guide"], 4001u);
    EXPECT_EQ(resolved["url:https://mail.example.com/inbox"], 4002u);
    EXPECT_EQ(resolved["url:"], 4003u);  // no page: by its title
}

namespace {

// kitty with its binary on disk (it must be executable), its socket told by lsof and its windows'
// folders by "kitty @ ls"; the window has no accessibility document, so only kitty can tell.
struct KittyDesk {
    std::filesystem::path root;

    KittyDesk() {
        root = std::filesystem::temp_directory_path() /
               ("zelk-kitty-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        const auto binary = root / "kitty.app" / "Contents" / "MacOS" / "kitty";
        std::filesystem::create_directories(binary.parent_path());
        std::ofstream(binary) << "#!/bin/sh\nexit 1\n";
        std::filesystem::permissions(binary, std::filesystem::perms::owner_all);
    }
    ~KittyDesk() {
        std::error_code ec;
        std::filesystem::remove_all(root, ec);
    }

    // `lsExit`: the exit status of "kitty @ ls" (non-zero: the control socket refused).
    std::string world(const std::string& cwd, int lsExit = 0) const {
        const std::string app = (root / "kitty.app").string();
        const json list = json::array(
            {{{"platform_window_id", 5001},
              {"tabs", json::array({{{"is_active", true},
                                     {"windows", json::array({{{"is_active", true},
                                                               {"cwd", "/Users/sim"},
                                                               {"foreground_processes",
                                                                json::array({{{"cwd", cwd}}})}}})}}})}}});
        const json lsof = {{"command", "/usr/sbin/lsof -U -a -p 310 -F n"},
                           {"output", "p310\nn/tmp/kitty-310.sock\n"}};
        const json ls = {{"command", app + "/Contents/MacOS/kitty @ --to unix:/tmp/kitty-310.sock ls"},
                         {"output", list.dump()},
                         {"exitCode", lsExit}};
        return "displays:\n  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}], currentSpace: 1}\n"
               "processes:\n  - " +
               lsof.dump() + "\n  - " + ls.dump() +
               "\napps:\n  - bundleID: net.kovidgoyal.kitty\n    name: kitty\n    path: " + json(app).dump() +
               "\n    running: {pid: 310, windows: [{id: 5001, title: vim, frame: [0, 25, 720, 875], space: "
               "1}]}\n"
               "frontmost: net.kovidgoyal.kitty\nfocusedWindow: 5001\nsettings:\n  stageTriggerKeys: "
               "[rctrl]\n";
    }
};

}  // namespace

TEST(StageCaptureReplay, AKittyWindowIsCapturedByTheFolderKittyReports) {
    KittyDesk desk;
    auto events = replay(desk.world("/Users/sim/proj/src"), std::string(kSaveStage) + R"(
- {at: 1500, command: {command: list-stages, includeWindows: true}}
- {at: 1600, end: true}
)");
    auto items = replies(events).back()["stages"][0]["items"];
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0]["spec"], "cwd:/Users/sim/proj/src");
    EXPECT_EQ(items[0].value("resolvedWindowID", 0u), 5001u);
}

TEST(StageCaptureReplay, WithoutKittysAnswerItsWindowIsTheWholeApp) {
    KittyDesk desk;
    // The control socket refuses: no table, and the window has no document either.
    auto events = replay(desk.world("/Users/sim/proj", 1), std::string(kSaveStage) + R"(
- {at: 1500, command: {command: list-stages}}
- {at: 1600, end: true}
)");
    auto items = replies(events).back()["stages"][0]["items"];
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0]["spec"], "app");
}
