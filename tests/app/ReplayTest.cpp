#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ReplayHelpers.h"
#include "ReplayScript.h"

using namespace zelk::agent;
using nlohmann::json;
using namespace zelk::testing;

namespace {

const char* kWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    launchDelayMs: 300
    running: {pid: 101, windows: [{id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 2}]}
  - bundleID: com.apple.Notes
    name: Notes
    launchDelayMs: 250
frontmost: com.apple.Safari
focusedWindow: 1001
)";

}  // namespace

TEST(Replay, WorldEventsAppearInTheTraceInTimeOrder) {
    auto events = replay(kWorld, R"(
- {at: 100, launch: com.apple.Notes}
- {at: 1000, switchSpace: {display: 1, space: 2}}
- {at: 1500, activate: com.apple.Safari}
- {at: 2000, openWindow: {bundleID: com.apple.mail, id: 77, title: "Draft", frame: [10, 20, 300, 200], space: 2}}
- {at: 2100, retitle: {id: 77, title: "Re: lunch"}}
- {at: 2200, closeWindow: 77}
- {at: 3000, quit: com.apple.Notes}
- {at: 3500, end: true}
)");
    std::vector<std::string> expected{
        R"(100 launch activates=true bundleID=com.apple.Notes)",
        R"(350 window bundleID=com.apple.Notes created=true frame=[100.0,100.0,1000.0,700.0] id=5001 space=1 title=Notes)",
        R"(350 focus bundleID=com.apple.Notes pid=501 windowID=5001)",
        R"(1000 space display=1 space=2)",
        R"(1000 focus bundleID=com.apple.mail pid=102 windowID=1011)",
        R"(1500 space display=1 space=1)",
        R"(1500 focus bundleID=com.apple.Safari pid=101 windowID=1001)",
        R"(2000 window bundleID=com.apple.mail created=true frame=[10.0,20.0,300.0,200.0] id=77 space=2 title=Draft)",
        R"(2100 window id=77 title=Re: lunch)",
        R"(2200 window closed=true id=77)",
        R"(3000 window closed=true id=5001)",
        R"(3000 terminate bundleID=com.apple.Notes)",
    };
    EXPECT_EQ(summary(events, {"launch", "window", "focus", "space", "terminate"}), expected);
}

TEST(Replay, KeysAreTracedWithTheirAnswerAndTapsReleaseTenMsLater) {
    auto events = replay(kWorld, R"(
- {at: 100, tap: h}
- {at: 200, keyDown: j, repeat: true}
- {at: 5000, end: true}
)");
    auto keys = summary(events, {"key"});
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys[0].substr(0, 4), "100 ");
    EXPECT_NE(keys[0].find("key=h"), std::string::npos);
    EXPECT_NE(keys[0].find("down=true"), std::string::npos);
    EXPECT_EQ(keys[1].substr(0, 4), "110 ");
    EXPECT_NE(keys[1].find("down=false"), std::string::npos);
    EXPECT_NE(keys[2].find("repeat=true"), std::string::npos);
    for (auto& k : keys)
        EXPECT_NE(k.find("action=passed"), std::string::npos);  // bare typing
}

TEST(Replay, ScriptEventsThatCannotApplyAreNotedAndTheRunGoesOn) {
    auto events = replay(kWorld, R"(
- {at: 10, quit: com.example.nothing}
- {at: 20, closeWindow: 4242}
- {at: 30, activate: com.apple.mail}
)");
    auto notes = summary(events, {"script"});
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_NE(notes[0].find("not running"), std::string::npos);
    EXPECT_EQ(summary(events, {"focus"}).size(), 1u);
    // Without an end the run stops 5 s after the last event.
    double lastT = events.back()["t"].get<double>();
    EXPECT_LE(lastT, 5030);
}

TEST(Replay, AnHourOfVirtualTimeRuns) {
    std::string script;
    for (int minute = 0; minute < 60; ++minute) {
        script += "- {at: " + std::to_string(minute * 60000) + ", activate: com.apple.mail}\n";
        script += "- {at: " + std::to_string(minute * 60000 + 30000) + ", activate: com.apple.Safari}\n";
    }
    script += "- {at: 3600000, end: true}\n";
    auto events = replay(kWorld, script);
    EXPECT_EQ(summary(events, {"focus"}).size(), 120u);
}

TEST(ReplayScript, RejectsBadScriptsWithTheEventNumber) {
    ReplayScript s;
    std::string error;
    EXPECT_FALSE(parseReplayScript(std::string("- {at: 10, tap: s}\n- {at: 5, tap: d}\n"), s, error));
    EXPECT_EQ(error, "event 2: 'at' 5 goes back in time (previous 10)");
    EXPECT_FALSE(parseReplayScript(std::string("- {at: 1, keyDown: banana}\n"), s, error));
    EXPECT_EQ(error, "event 1: unknown key 'banana'");
    EXPECT_FALSE(parseReplayScript(std::string("- {at: 1, dance: true}\n"), s, error));
    EXPECT_EQ(error, "event 1: unknown event 'dance'");
    EXPECT_FALSE(parseReplayScript(std::string("- {at: 1, flags: [leftPinky]}\n"), s, error));
    EXPECT_FALSE(parseReplayScript(std::string("- {tap: s}\n"), s, error));
    EXPECT_TRUE(parseReplayScript(std::string(""), s, error));
    EXPECT_EQ(s.endMs, 5000);
}

TEST(ReplayCli, UnreadableWorldOrScriptExitsTwoWithOneLine) {
    std::string dir = ::testing::TempDir();
    std::ofstream(dir + "/bad-world.yaml") << "apps: [\n";
    std::ofstream(dir + "/script.yaml") << "- {at: 0, activate: com.apple.mail}\n- {at: 10, end: true}\n";
    std::string cmd = std::string(ZELKD_PATH) + " --world " + dir + "/bad-world.yaml --replay " + dir +
                      "/script.yaml --trace " + dir + "/t.jsonl 2>" + dir + "/err.txt";
    int status = std::system(cmd.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2);
    std::ifstream err(dir + "/err.txt");
    std::string line;
    std::getline(err, line);
    EXPECT_EQ(line.rfind("zelkd: world: line", 0), 0u) << line;
    EXPECT_FALSE(std::getline(err, line));

    std::ofstream(dir + "/good-world.yaml") << kWorld;
    cmd = std::string(ZELKD_PATH) + " --world " + dir + "/good-world.yaml --replay " + dir +
          "/script.yaml --trace " + dir + "/t.jsonl";
    EXPECT_EQ(WEXITSTATUS(std::system(cmd.c_str())), 0);
    std::ifstream trace(dir + "/t.jsonl");
    ASSERT_TRUE(std::getline(trace, line));
    EXPECT_TRUE(json::parse(line).contains("t"));
}

TEST(ReplayScript, EveryFieldIsCheckedForTypeAndRange) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"- {at: 1, tap: s, repeat: \"yes\"}", "event 1: repeat: expected true or false"},
        {"- {at: .inf, tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: .nan, tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: 1e300, tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: 1000000000000, tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: 9300000000000000000, tap: s}",
         "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: -1, tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: \"5\", tap: s}", "event 1: at: expected milliseconds from 0 to 86400000 (24 hours)"},
        {"- {at: 1, pointer: {x: .inf, y: 0}}",
         "event 1: pointer.x: expected a finite number of points within ±10000000"},
        {"- {at: 1, openWindow: {bundleID: a, frame: [0, 0, .nan, 1]}}",
         "event 1: openWindow.frame: expected [x, y, w, h] of finite numbers within ±10000000"},
        {"- {at: 1, openWindow: {bundleID: a, id: 4294967296}}",
         "event 1: openWindow.id: expected a window id (0 to 4294967295)"},
        {"- {at: 1, fault: {secureInput: 99999999999}}",
         "event 1: fault.secureInput: expected true, false or a pid (1 to 2147483647)"},
        {"- {at: 1, fault: {secureInput: -4}}",
         "event 1: fault.secureInput: expected true, false or a pid (1 to 2147483647)"},
        {"- {at: 1, fault: {permission: {accessibility: 1}}}",
         "event 1: fault.permission.accessibility: expected true or false"},
        {"- {at: 1, closeWindow: 4294967296}",
         "event 1: closeWindow: expected a window id (0 to 4294967295)"},
        {"- {at: 1, switchSpace: {space: -1}}",
         "event 1: switchSpace.space: expected a Space id (a whole number of at least 0)"},
    };
    for (auto& [script, expected] : cases) {
        ReplayScript s;
        std::string error;
        EXPECT_NO_THROW(EXPECT_FALSE(parseReplayScript(script, s, error)) << script);
        EXPECT_EQ(error, expected) << script;
    }
    ReplayScript s;
    std::string error;
    ASSERT_TRUE(parseReplayScript(std::string("- {at: 86400000, end: true}\n"), s, error)) << error;
    EXPECT_EQ(s.endMs, kMaxReplayTimeMs);
}

TEST(Replay, NullOptionalFieldsAreAbsentFields) {
    auto events =
        replay(kWorld,
               "- {at: 10, openWindow: {bundleID: com.apple.mail, id: ~, title: ~, space: ~, frame: ~}}\n"
               "- {at: 20, switchSpace: {display: ~, space: 2}}\n"
               "- {at: 30, end: true}\n");
    EXPECT_FALSE(summary(events, {"window"}).empty());
}

// zelkd's exit codes: 2 for what it was asked to read or do wrongly, 1 for a trace it couldn't write.
TEST(ReplayCli, BadInputsAndOutputsEndInOneLineAndANonZeroExit) {
    const std::string dir = ::testing::TempDir() + "zelkd-cli-" + std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    std::ofstream(dir + "/world.yaml") << kWorld;
    std::ofstream(dir + "/script.yaml") << "- {at: 0, activate: com.apple.mail}\n- {at: 10, end: true}\n";
    std::ofstream(dir + "/typo.yaml") << "- {at: 0, tap: s, repeat: \"yes\"}\n";
    auto run = [&](const std::string& args, std::string& firstLine, bool oneLine = true) {
        std::string cmd =
            std::string(ZELKD_PATH) + " " + args + " >" + dir + "/out.txt 2>" + dir + "/err.txt";
        int status = std::system(cmd.c_str());
        std::ifstream err(dir + "/err.txt");
        firstLine.clear();
        std::getline(err, firstLine);
        std::string more;
        if (oneLine) {
            EXPECT_FALSE(std::getline(err, more)) << args << ": " << more;
        }
        return WEXITSTATUS(status);
    };
    const std::string world = "--world " + dir + "/world.yaml ";
    std::string line;
    EXPECT_EQ(run(world + "--replay /dev/zero", line), 2);
    EXPECT_EQ(line, "zelkd: script: /dev/zero is longer than 16777216 bytes");
    EXPECT_EQ(run("--world /dev/zero --replay " + dir + "/script.yaml", line), 2);
    EXPECT_EQ(line, "zelkd: world: /dev/zero is longer than 16777216 bytes");
    EXPECT_EQ(run("--world " + dir + " --replay " + dir + "/script.yaml", line), 2);
    EXPECT_EQ(line, "zelkd: world: " + dir + " is a folder, not a file");
    EXPECT_EQ(run(world + "--replay " + dir + "/typo.yaml", line), 2);
    EXPECT_EQ(line, "zelkd: script: event 1: repeat: expected true or false");
    EXPECT_EQ(run(world + "--replay " + dir + "/script.yaml --trace /dev/full", line), 1);
    EXPECT_EQ(line, "zelkd: can't write the trace to /dev/full");
    EXPECT_EQ(run(world + "--replay " + dir + "/script.yaml --log-file " + dir + "/world.yaml/log", line), 2);
    EXPECT_EQ(line, "zelkd: can't write the log file " + dir + "/world.yaml/log");
    EXPECT_EQ(run("--no-such-option", line, /*oneLine=*/false), 2);
    EXPECT_EQ(run(world + "--replay " + dir + "/script.yaml --trace " + dir + "/t.jsonl", line), 0);
    std::filesystem::remove_all(dir);
}
