// Items saved under a window key: how records are read, and which branch runs for an app.
#include <gtest/gtest.h>

#include "platform/sim/SimFixture.h"
#include "support/Log.h"
#include "windows/WindowKeyAssignments.h"

using namespace zelk;
using namespace zelk::windows;
using nlohmann::json;
using zelk::testing::SimFixture;

TEST(WindowKeyAssignment, RecordsReadTheirFieldsTheOlderFormAndRefuseABadApp) {
    auto a = WindowKeyAssignment::fromJson({{"key", "N"},
                                            {"appURL", "file:///Applications/Safari.app/"},
                                            {"actionKind", 0},
                                            {"webURL", "https://n.example"}});
    ASSERT_TRUE(a);
    EXPECT_EQ(a->key, "n");
    EXPECT_EQ(a->targetURL(), "https://n.example");
    auto older = WindowKeyAssignment::fromJson(
        {{"key", "d"}, {"appURL", "file:///A.app"}, {"url", "https://d.example"}});
    ASSERT_TRUE(older);
    EXPECT_EQ(older->actionKind, WindowKeyActionKind::url);
    EXPECT_EQ(older->targetURL(), "https://d.example");
    auto script = WindowKeyAssignment::fromJson({{"key", "s"},
                                                 {"appURL", "/Applications/A.app"},
                                                 {"actionKind", 2},
                                                 {"scriptPath", "/tmp/my script.sh"}});
    ASSERT_TRUE(script);
    EXPECT_EQ(script->appURL, "file:///Applications/A.app");
    EXPECT_EQ(script->targetURL(), "file:///tmp/my%20script.sh");
    EXPECT_EQ(pathOfFileURL(script->targetURL()), "/tmp/my script.sh");

    std::string error;
    EXPECT_FALSE(WindowKeyAssignment::fromJson({{"key", "x"}, {"appURL", "Safari"}}, &error));
    EXPECT_EQ(error, "appURL is not a URL");
    EXPECT_FALSE(WindowKeyAssignment::fromJson({{"key", "x"}, {"appURL", 7}}, &error));
    EXPECT_EQ(error, "appURL is not a URL");
    // Unreadable records are left out of the list; the rest stay.
    auto list = decodeWindowKeyAssignments(
        json::array({json{{"key", "x"}}, json{{"key", "y"}, {"appURL", "file:///A.app"}}}));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].key, "y");
}

namespace {

struct Runner : SimFixture {
    void SetUp() override {
        SimFixture::SetUp();
        load(R"(
apps:
  - {bundleID: com.apple.Safari, name: Safari, path: /Applications/Safari.app, running: {pid: 101}}
  - {bundleID: com.apple.TextEdit, name: TextEdit, path: /Applications/TextEdit.app, running: {pid: 102}}
)");
    }
    KeyedApp safari{"Safari", "com.apple.Safari", "/Applications/Safari.app"};
    std::vector<std::string> runs() {
        std::vector<std::string> out;
        for (auto& r : desktop.processes().requests) {
            std::string line = r.program;
            for (auto& a : r.arguments)
                line += " [" + a + "]";
            out.push_back(line);
        }
        return out;
    }
};

WindowKeyAssignment record(const std::string& key, const std::string& app, WindowKeyActionKind kind,
                           const std::string& target) {
    WindowKeyAssignment a;
    a.key = key;
    a.appURL = app;
    a.actionKind = kind;
    if (kind == WindowKeyActionKind::url) a.webURL = target;
    if (kind == WindowKeyActionKind::file) a.fileURL = target;
    if (kind == WindowKeyActionKind::script) a.scriptPath = target;
    return a;
}

}  // namespace

TEST_F(Runner, OnlyTheAppsOwnRecordRunsAndEachKindTakesItsBranch) {
    WindowKeyAssignmentRunner runner(desktop.workspace(), desktop.processes());
    std::vector<WindowKeyAssignment> saved{
        record("n", "file:///Applications/TextEdit.app/", WindowKeyActionKind::url, "https://other.example"),
        record("n", "file:///Applications/Safari.app/", WindowKeyActionKind::url, "https://news.example"),
        record("s", "file:///Applications/Safari.app/", WindowKeyActionKind::script, "/Users/me/build.sh"),
        record("f", "file:///Applications/Safari.app/", WindowKeyActionKind::file,
               "file:///Users/me/gone.html"),
        record("t", "file:///Applications/TextEdit.app/", WindowKeyActionKind::url, "https://t.example"),
    };
    ferrow::LogCapture logs;
    EXPECT_TRUE(runner.run("n", std::nullopt, safari, saved));
    EXPECT_TRUE(runner.run("s", std::nullopt, safari, saved));
    EXPECT_TRUE(runner.run("f", std::nullopt, safari, saved));
    EXPECT_FALSE(runner.run("t", std::nullopt, safari, saved));  // TextEdit's, not Safari's
    EXPECT_FALSE(runner.run("n", std::nullopt, std::nullopt, saved));
    EXPECT_EQ(
        runs(),
        (std::vector<std::string>{
            "/bin/zsh [-c] [open -na '/Applications/Safari.app' --args --new-window 'https://news.example']",
            "/bin/zsh [/Users/me/build.sh]",
            "/usr/bin/open [-a] [/Applications/Safari.app] [file:///Users/me/gone.html]",
        }));
    EXPECT_TRUE(
        logs.contains("runWindowKeyAssignments(key: n) — passedApp=nil focusedApp=Safari "
                      "matchingKeyAssignments=2 (of 5 total)"));
    EXPECT_TRUE(logs.contains(
        "runWindowKeyAssignments[open]: file access unavailable (restoreFileAccess/security-scope failed), "
        "falling back to open -a for /Users/me/gone.html"));
    EXPECT_TRUE(logs.contains(
        "runWindowKeyAssignments: no WindowKeyAssignment matched app=Safari bundle=com.apple.Safari. "
        "Candidates for key 't': [file:///Applications/TextEdit.app/]"));
    EXPECT_TRUE(logs.contains(
        "runWindowKeyAssignments: no app (passed nil and AM.focusedApp?.launchableApp is nil) — bailing"));
    EXPECT_EQ(runner.keysFor(safari, saved), (std::set<std::string>{"f", "n", "s"}));
}
