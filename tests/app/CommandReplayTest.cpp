#include "ReplayHelpers.h"

using namespace zelk::testing;

namespace {

// Two Safari windows on Space 1, Mail on Space 2, a hidden Notes; Safari in front.
const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}, {id: 1002, title: "Éclair notes", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 2}]}
  - bundleID: com.apple.Notes
    name: Notes
    running: {pid: 103, hidden: true, windows: [{id: 1021, title: "Groceries", space: 1}]}
  - bundleID: com.example.MailMerge
    name: MailMerge
    running: {pid: 104, windows: [{id: 1031, title: "Letters", space: 3}]}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

struct Run {
    std::vector<json> events;
    std::vector<json> replies() const {
        std::vector<json> out;
        for (auto& e : events)
            if (e["kind"] == "reply") out.push_back(e["response"]);
        return out;
    }
    bool has(const std::string& line) const {
        auto lines = summary(events, {"space", "focus", "hide", "unhide", "terminate", "window"});
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
};

Run run(const std::string& script) {
    return Run{replay(kWorld, script)};
}

std::string text(const json& reply) {
    return reply.value("message", reply.value("error", ""));
}

}  // namespace

TEST(CommandReplay, ListsDescribeAppsWindowsAndSpacesAsTheDesktopHasThem) {
    auto r = run(R"(
- {at: 500, command: {command: list-apps}}
- {at: 600, command: {command: list-windows, appQuery: safari}}
- {at: 700, command: {command: status}}
)");
    auto replies = r.replies();
    ASSERT_EQ(replies.size(), 3u);
    std::map<std::string, json> apps;
    for (auto& a : replies[0]["apps"])
        apps[a["bundleID"]] = a;
    ASSERT_EQ(apps.size(), 4u);
    EXPECT_EQ(apps["com.apple.Safari"]["isActive"], true);
    EXPECT_EQ(apps["com.apple.Safari"]["windowCount"], 2);
    EXPECT_EQ(apps["com.apple.Notes"]["isHidden"], true);
    EXPECT_EQ(apps["com.apple.mail"]["spaceIndices"], json::array({2}));
    auto& windows = replies[1]["windows"];
    ASSERT_EQ(windows.size(), 2u);
    for (auto& w : windows)
        EXPECT_EQ(w["bundleID"], "com.apple.Safari");
    EXPECT_EQ(replies[2]["status"]["focusedWindow"]["id"], 1001);
    EXPECT_EQ(replies[2]["status"]["totalSpaces"], 3);
}

TEST(CommandReplay, AnAppQueryListsTheWindowsOfOneAppOnly) {
    auto r = run(R"(
- {at: 500, command: {command: list-windows, appQuery: mail}}
- {at: 600, command: {command: list-windows, appQuery: a}}
- {at: 700, command: {command: list-windows, appQuery: nothing-like-it}}
)");
    auto replies = r.replies();
    ASSERT_EQ(replies.size(), 3u);
    // "mail" is Mail's whole name: MailMerge's windows stay out.
    ASSERT_EQ(replies[0]["windows"].size(), 1u);
    EXPECT_EQ(replies[0]["windows"][0]["bundleID"], "com.apple.mail");
    EXPECT_EQ(replies[0]["windows"][0]["displayName"], "Built-in Retina Display");
    // A letter inside several names still means one app.
    std::set<std::string> bundles;
    for (auto& w : replies[1]["windows"])
        bundles.insert(w["bundleID"]);
    EXPECT_EQ(bundles.size(), 1u);
    EXPECT_TRUE(replies[2]["windows"].empty());
}

TEST(CommandReplay, AppsAreFoundByBundleThenWholeNameThenPrefix) {
    auto r = run(R"(
- {at: 500, command: {command: focus-app, query: MAIL}}
- {at: 1500, command: {command: focus-app, query: mailm}}
- {at: 2500, command: {command: focus-app, bundleID: com.apple.Notes}}
- {at: 3500, command: {command: focus-app, query: nothing-like-it}}
)");
    auto replies = r.replies();
    ASSERT_EQ(replies.size(), 4u);
    // "mail" is Mail's whole name, so it wins over MailMerge, which only begins with it.
    EXPECT_NE(text(replies[0]).find("focused Mail (pid 102"), std::string::npos) << replies[0];
    EXPECT_TRUE(r.has("500 focus bundleID=com.apple.mail pid=102 windowID=1011"));
    EXPECT_NE(text(replies[1]).find("focused MailMerge (pid 104"), std::string::npos) << replies[1];
    EXPECT_TRUE(r.has("1500 space display=1 space=3"));
    EXPECT_NE(text(replies[2]).find("focused Notes (pid 103"), std::string::npos) << replies[2];
    EXPECT_EQ(replies[3], (json{{"ok", false}, {"error", "no matching app for 'nothing-like-it'"}}));
}

TEST(CommandReplay, HideUnhideAndQuitActOnTheNamedApp) {
    auto r = run(R"(
- {at: 500, command: {command: hide-app, query: safari}}
- {at: 600, command: {command: unhide-app, bundleID: com.apple.Notes}}
- {at: 700, command: {command: quit-app, query: mailmerge}}
- {at: 800, command: {command: hide-app, bundleID: com.example.none}}
- {at: 900, command: {command: focus-app, query: safari, hideOthers: true}}
)");
    auto replies = r.replies();
    ASSERT_EQ(replies.size(), 5u);
    EXPECT_TRUE(r.has("500 hide bundleID=com.apple.Safari"));
    EXPECT_TRUE(r.has("600 unhide bundleID=com.apple.Notes"));
    EXPECT_TRUE(r.has("700 terminate bundleID=com.example.MailMerge"));
    EXPECT_EQ(text(replies[2]), "quit MailMerge");
    EXPECT_EQ(replies[3], (json{{"ok", false}, {"error", "no matching app"}}));
    EXPECT_TRUE(r.has("900 hide bundleID=com.apple.mail"));
    EXPECT_TRUE(r.has("900 hide bundleID=com.apple.Notes"));
}

TEST(CommandReplay, WindowsAreMinimisedAndRestoredOnTheActiveSpaceOnly) {
    auto r = run(R"(
- {at: 500, command: {command: minimize-window, windowID: 1002}}
- {at: 600, command: {command: unminimize-window, windowID: 1002}}
- {at: 700, command: {command: minimize-others}}
- {at: 800, command: {command: minimize-window, windowID: 1011}}
- {at: 900, command: {command: minimize-window, windowID: 4242}}
- {at: 1000, command: {command: minimize-focused}}
)");
    auto replies = r.replies();
    ASSERT_EQ(replies.size(), 6u);
    EXPECT_EQ(text(replies[0]), "minimized window #1002");
    EXPECT_TRUE(r.has("500 window id=1002 minimized=true"));
    EXPECT_EQ(text(replies[1]), "unminimized window #1002");
    EXPECT_TRUE(r.has("600 window id=1002 minimized=false"));
    // The focused window stays; Safari's other window goes.
    EXPECT_EQ(text(replies[2]), "minimized other windows of frontmost app");
    EXPECT_TRUE(r.has("700 window id=1002 minimized=true"));
    EXPECT_FALSE(r.has("700 window id=1001 minimized=true"));
    // Mail's window is on Space 2: no element to minimise there.
    EXPECT_EQ(replies[3], (json{{"ok", false}, {"error", "minimize failed"}}));
    EXPECT_EQ(replies[4], (json{{"ok", false}, {"error", "no matching window"}}));
    EXPECT_EQ(text(replies[5]), "minimize-focused requested");
    EXPECT_TRUE(r.has("1000 window id=1001 minimized=true"));
}

TEST(CommandReplay, SpaceSwitchesByNumberAndBackToThePreviousWithZero) {
    auto r = run(R"(
- {at: 500, command: {command: switch-space, spaceIndex: 3}}
- {at: 1500, command: {command: switch-space, spaceIndex: 0}}
- {at: 2500, command: {command: switch-space, spaceIndex: 10}}
- {at: 2600, command: {command: focus-window, query: inbox}}
- {at: 3600, command: {command: minimize-window, query: éclair}}
)");
    auto replies = r.replies();
    ASSERT_EQ(replies.size(), 5u);
    EXPECT_EQ(text(replies[0]), "switching to Space #3");
    EXPECT_TRUE(r.has("500 space display=1 space=3"));
    EXPECT_EQ(text(replies[1]), "switching to Space #1");
    EXPECT_TRUE(r.has("1500 space display=1 space=1"));
    EXPECT_EQ(replies[2], (json{{"ok", false}, {"error", "space index must be 0-9 (0 = previous)"}}));
    EXPECT_EQ(text(replies[3]), "focused window #1011");
    EXPECT_TRUE(r.has("2600 space display=1 space=2"));
    // Titles are matched without regard to case beyond ASCII; Safari's window is on Space 1, now
    // behind, so it can't be minimised from here.
    EXPECT_EQ(replies[4], (json{{"ok", false}, {"error", "minimize failed"}}));
}

TEST(CommandReplay, RepliesInTheTraceKeepTheProtocolsFieldOrder) {
    std::stringstream out;
    zelk::agent::ReplayOptions options;
    options.jsonTrace = &out;
    std::string error;
    ASSERT_EQ(zelk::agent::ReplayRunner().run(kWorld, R"(
- {at: 500, command: {command: no-such-command}}
- {at: 600, command: {command: osd, surface: app}}
)",
                                              options, error),
              0)
        << error;
    std::vector<std::string> replies;
    for (std::string line; std::getline(out, line);)
        if (line.find("\"kind\":\"reply\"") != std::string::npos) replies.push_back(line);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_NE(replies[0].find("\"response\":{\"ok\":false,\"error\":\"invalid request\"}"), std::string::npos)
        << replies[0];
    EXPECT_NE(replies[1].find("\"response\":{\"ok\":true,\"message\":"), std::string::npos) << replies[1];
}
