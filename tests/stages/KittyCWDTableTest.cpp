#include <gtest/gtest.h>

#include <vector>

#include "stages/KittyCWDTable.h"

using namespace zelk::stages;
using zelk::platform::ProcessRequest;
using zelk::platform::ProcessResult;

namespace {

// Two OS windows: the first with an active tab whose active window runs a program in another folder,
// the second with no active tab or window (the first of each counts) and no foreground process.
const char* kList = R"([
  {"platform_window_id": 7001, "tabs": [
     {"is_active": false, "windows": [{"is_active": true, "cwd": "/wrong/tab"}]},
     {"is_active": true, "windows": [
        {"is_active": false, "cwd": "/wrong/window"},
        {"is_active": true, "cwd": "/Users/ada", "foreground_processes": [{"cwd": "/Users/ada/src/app"}, {"cwd": "/x"}]}]}]},
  {"platform_window_id": 7002, "tabs": [
     {"windows": [{"cwd": "/Users/ada/notes", "foreground_processes": []}, {"cwd": "/second"}]},
     {"windows": [{"cwd": "/second/tab"}]}]}
])";

// A kitty at pid 310 and a machine whose programs answer from a table, on a clock the test moves.
struct KittyMachine {
    ferrow::Nanos now = 100 * ferrow::kNanosPerSecond;
    bool running = true;
    bool executable = true;
    ProcessResult lsof{0, "p310\nf12\nn->0x1\nn/tmp/kitty-310.sock\nn/tmp/other\n", "", false, true};
    ProcessResult ls{0, kList, "", false, true};
    std::vector<ProcessRequest> runs;

    KittyCWDTable table() {
        KittyCWDTable::Sources s;
        s.runningKitty = [this]() -> std::optional<zelk::platform::RunningApp> {
            if (!running) return std::nullopt;
            zelk::platform::RunningApp app;
            app.pid = 310;
            app.bundleID = "net.kovidgoyal.kitty";
            app.bundlePath = "/Applications/kitty.app";
            return app;
        };
        s.isExecutable = [this](const std::string& path) {
            return executable && path == "/Applications/kitty.app/Contents/MacOS/kitty";
        };
        s.run = [this](const ProcessRequest& r) {
            runs.push_back(r);
            return r.program == "/usr/sbin/lsof" ? lsof : ls;
        };
        s.now = [this] { return now; };
        return KittyCWDTable(std::move(s));
    }
};

}  // namespace

TEST(KittyWindowList, ActiveTabAndWindowAndTheForegroundProcessDecide) {
    auto table = parseKittyWindowList(kList);
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(*table, (std::map<std::uint32_t, std::string>{{7001, "/Users/ada/src/app"},
                                                            {7002, "/Users/ada/notes"}}));
    // Ids that don't fit a window number, records without tabs or windows, and a bad text.
    auto odd =
        parseKittyWindowList(R"([{"platform_window_id": 4294967296, "tabs": [{"windows": [{"cwd": "/a"}]}]},
        {"platform_window_id": -1, "tabs": [{"windows": [{"cwd": "/b"}]}]},
        {"platform_window_id": 5, "tabs": []}, {"platform_window_id": 6},
        {"platform_window_id": 4294967295, "tabs": [{"windows": [{"cwd": "/c"}]}]}])");
    ASSERT_TRUE(odd.has_value());
    EXPECT_EQ(*odd, (std::map<std::uint32_t, std::string>{{4294967295u, "/c"}}));
    EXPECT_EQ(parseKittyWindowList("{\"not\": \"a list\"}"), std::nullopt);
    EXPECT_EQ(parseKittyWindowList("[{"), std::nullopt);
}

TEST(KittyWindowList, TheSocketIsTheFirstNamePathOfLsof) {
    EXPECT_EQ(kittySocketFromLsof("p1\nn->0xabc\nn/tmp/a.sock\nn/tmp/b.sock\n"), "/tmp/a.sock");
    EXPECT_EQ(kittySocketFromLsof("  n/tmp/first  \n"), "/tmp/first");
    EXPECT_EQ(kittySocketFromLsof("p1\nnsocket\n"), std::nullopt);
    EXPECT_EQ(kittySocketFromLsof(""), std::nullopt);
}

TEST(KittyCWDTable, AsksKittyOverItsSocketAndKeepsTheAnswerForTwoSeconds) {
    KittyMachine m;
    auto table = m.table();
    EXPECT_EQ(table.byWindow().at(7001), "/Users/ada/src/app");
    ASSERT_EQ(m.runs.size(), 2u);
    EXPECT_EQ(m.runs[0].program, "/usr/sbin/lsof");
    EXPECT_EQ(m.runs[0].arguments, (std::vector<std::string>{"-U", "-a", "-p", "310", "-F", "n"}));
    EXPECT_EQ(m.runs[1].program, "/Applications/kitty.app/Contents/MacOS/kitty");
    EXPECT_EQ(m.runs[1].arguments, (std::vector<std::string>{"@", "--to", "unix:/tmp/kitty-310.sock", "ls"}));
    EXPECT_EQ(m.runs[1].timeoutSeconds, 5.0);
    // Younger than two seconds: no new question.
    m.now += ferrow::ms(1999);
    EXPECT_EQ(table.byWindow().size(), 2u);
    EXPECT_EQ(m.runs.size(), 2u);
    // At two seconds kitty is asked again, over the socket already known (lsof is not run again).
    m.now += ferrow::ms(1);
    m.ls.output = R"([{"platform_window_id": 7001, "tabs": [{"windows": [{"cwd": "/moved"}]}]}])";
    EXPECT_EQ(table.byWindow(), (std::map<std::uint32_t, std::string>{{7001, "/moved"}}));
    ASSERT_EQ(m.runs.size(), 3u);
    EXPECT_EQ(m.runs[2].arguments[0], "@");
}

TEST(KittyCWDTable, EveryFailureGivesAnEmptyTableAndTheNextCallAsksAgain) {
    KittyMachine m;
    auto table = m.table();
    m.running = false;
    EXPECT_TRUE(table.byWindow().empty());
    EXPECT_TRUE(m.runs.empty());
    m.running = true;
    m.executable = false;
    EXPECT_TRUE(table.byWindow().empty());
    EXPECT_TRUE(m.runs.empty());
    m.executable = true;
    m.lsof.output = "p310\n";  // no socket
    EXPECT_TRUE(table.byWindow().empty());
    EXPECT_EQ(m.runs.size(), 1u);
    m.lsof.output = "n/tmp/kitty.sock\n";
    m.ls.timedOut = true;
    EXPECT_TRUE(table.byWindow().empty());
    m.ls.timedOut = false;
    m.ls.output = "remote control is disabled";
    EXPECT_TRUE(table.byWindow().empty());
    m.ls.output = kList;
    m.ls.exitCode = 1;
    EXPECT_TRUE(table.byWindow().empty());
    // None of the failures was cached: the same instant asks again and succeeds.
    m.ls.exitCode = 0;
    const auto before = m.runs.size();
    EXPECT_EQ(table.byWindow().size(), 2u);
    EXPECT_EQ(m.runs.size(), before + 1);
}
