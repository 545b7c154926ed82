#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "command/BuiltinCommands.h"
#include "command/CLIClient.h"
#include "command/CLIService.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk::command {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

struct ToolRun {
    int exitCode = -1;
    std::string out, err;
};

// The built tool against a service in this process, on the simulated desktop.
struct ZelkToolTest : testing::SimFixture {
    fs::path dir;
    std::string socketPath;
    CommandDispatcher dispatcher;
    std::unique_ptr<CLIService> service;
    std::vector<json> received;  // requests seen by the recording handlers

    void SetUp() override {
        ferrow::Log::setConsole(false);
        char tmpl[] = "/tmp/zelk-tool-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        socketPath = (dir / "cli.sock").string();
        load(R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple"}]}
frontmost: com.apple.Safari
)");
        registerBuiltinCommands(dispatcher, platformStatusProviders());
        CLIServiceOptions o;
        o.location = SocketLocation{socketPath, false};
        o.clock = clock;
        service = std::make_unique<CLIService>(dispatcher, o);
        ASSERT_TRUE(service->start());
    }
    void TearDown() override {
        service.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
        SimFixture::TearDown();
    }
    // Every listed command answers with the request it got, so the tool's mapping can be checked.
    void record(std::initializer_list<ZelkCommand> commands) {
        for (ZelkCommand c : commands)
            dispatcher.registerHandler(c, [this](const ZelkRequest& r) {
                received.push_back(toJson(r));
                return ZelkResponse::success("done");
            });
    }
    ToolRun run(const std::string& args, const std::string& socket = "") {
        std::string errPath = (dir / "stderr.txt").string();
        std::string cmd = "ZELK_SOCKET='" + (socket.empty() ? socketPath : socket) + "' " + ZELK_PATH + " " +
                          args + " 2>'" + errPath + "'";
        ToolRun r;
        FILE* p = ::popen(cmd.c_str(), "r");
        if (!p) return r;
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
            r.out.append(buf, n);
        int status = ::pclose(p);
        r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::ifstream in(errPath);
        std::stringstream ss;
        ss << in.rdbuf();
        r.err = ss.str();
        return r;
    }
};

TEST_F(ZelkToolTest, StatusPrintsReadablyAndAsJson) {
    auto r = run("status");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("frontmost app:  Safari (com.apple.Safari)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("space:          1 of 2"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("version:        0.1.0"), std::string::npos) << r.out;

    r = run("--json status");
    EXPECT_EQ(r.exitCode, 0);
    json j = json::parse(r.out);
    EXPECT_EQ(j["ok"], true);
    EXPECT_EQ(j["status"]["totalSpaces"], 2);
}

TEST_F(ZelkToolTest, ListsAreAlignedTables) {
    dispatcher.registerHandler(ZelkCommand::listApps, [](const ZelkRequest&) {
        auto r = ZelkResponse::success();
        r.apps = std::vector<ZelkAppInfo>{{"Safari", "com.apple.Safari", 101, true, false, 2, {1}},
                                          {"Mail", "com.apple.mail", 102, false, true, 1, {1, 2}}};
        return r;
    });
    auto r = run("app list");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::istringstream lines(r.out);
    std::string header, first, second;
    std::getline(lines, header);
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(header.find("BUNDLE ID"), first.find("com.apple.Safari"));
    EXPECT_EQ(header.find("PID"), second.find("102"));
    EXPECT_EQ(header.find("STATE"), first.find("active"));
    EXPECT_EQ(header.find("STATE"), second.find("hidden"));
}

TEST_F(ZelkToolTest, ExitCodesTellRefusalUsageAndNoAgentApart) {
    auto refused = run("stage list");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, "zelk: not available yet\n");
    EXPECT_EQ(refused.out, "");

    auto badSurface = run("raw '{\"command\":\"osd\",\"surface\":\"x\"}'");
    EXPECT_EQ(badSurface.exitCode, 1);
    EXPECT_EQ(badSurface.err, "zelk: osd: expected one of app | window | hide\n");

    EXPECT_EQ(run("raw 'not json'").err, "zelk: invalid request\n");
    EXPECT_EQ(run("space switch").exitCode, 2);
    EXPECT_EQ(run("no-such-command").exitCode, 2);
    EXPECT_EQ(run("window focus --id 4294967296").exitCode, 2);
    EXPECT_EQ(run("").exitCode, 2);

    auto absent = run("status", (dir / "nobody.sock").string());
    EXPECT_EQ(absent.exitCode, 3);
    EXPECT_NE(absent.err.find("no agent is running"), std::string::npos);
    EXPECT_NE(absent.err.find("zelkd"), std::string::npos);
}

TEST_F(ZelkToolTest, SubcommandsSendTheRequestsTheyName) {
    record({ZelkCommand::switchSpace, ZelkCommand::focusApp, ZelkCommand::minimizeWindow,
            ZelkCommand::minimizeFocused, ZelkCommand::minimizeOthers, ZelkCommand::focusLastWindow,
            ZelkCommand::searchUnlearn, ZelkCommand::search, ZelkCommand::searchPin, ZelkCommand::placeWindow,
            ZelkCommand::moveWindowToSpace, ZelkCommand::listStages, ZelkCommand::expose,
            ZelkCommand::configImport, ZelkCommand::listWindows, ZelkCommand::debugSendCmdN});
    std::ofstream(dir / "settings.json") << R"({"activationMode":"onPress"})";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"space switch 0", R"({"command":"switch-space","spaceIndex":0})"},
        {"app focus Mail --hide-others", R"({"command":"focus-app","query":"Mail","hideOthers":true})"},
        {"app focus --bundle-id com.apple.mail", R"({"command":"focus-app","bundleID":"com.apple.mail"})"},
        {"window minimize --id 1021", R"({"command":"minimize-window","windowID":1021})"},
        {"window minimize --focused", R"({"command":"minimize-focused"})"},
        {"window minimize --others", R"({"command":"minimize-others"})"},
        {"window focus --last", R"({"command":"focus-last-window"})"},
        {"window list --app Safari", R"({"command":"list-windows","appQuery":"Safari"})"},
        {"window place left-half --screen main --padding 8 --id 7",
         R"({"command":"place-window","position":"left-half","screen":"main","padding":8.0,"windowID":7})"},
        {"window move 3", R"({"command":"move-window-to-space","spaceIndex":3})"},
        {"window move --space 4 grocery list",
         R"({"command":"move-window-to-space","spaceIndex":4,"query":"grocery list"})"},
        {"window move 2 --id 1001", R"({"command":"move-window-to-space","spaceIndex":2,"windowID":1001})"},
        {"search unlearn --stale", R"({"command":"search-unlearn","mode":"stale"})"},
        {"search unlearn --all", R"({"command":"search-unlearn","mode":"all"})"},
        {"search pin sf --app Safari", R"({"command":"search-pin","query":"sf","appQuery":"Safari"})"},
        {"search safari tabs --windows", R"({"command":"search","query":"safari tabs","windowsOnly":true})"},
        {"search -- pin", R"({"command":"search","query":"pin"})"},
        {"stage list a --windows", R"({"command":"list-stages","stageKey":"a","includeWindows":true})"},
        {"expose show", R"({"command":"expose","mode":"show"})"},
        {"expose", R"({"command":"expose","mode":"toggle"})"},
        {"debug send-cmd-n --app Mail --route 1",
         R"({"command":"debug-send-cmd-n","appQuery":"Mail","mode":"1"})"},
        {"config import " + (dir / "settings.json").string(),
         R"({"command":"config-import","body":"{\"activationMode\":\"onPress\"}"})"},
    };
    for (auto& [args, expected] : cases) {
        received.clear();
        auto r = run(args);
        EXPECT_EQ(r.exitCode, 0) << args << ": " << r.err;
        EXPECT_EQ(r.out, "done\n") << args;
        ASSERT_EQ(received.size(), 1u) << args;
        EXPECT_EQ(received[0], json::parse(expected)) << args;
    }
}

TEST_F(ZelkToolTest, OsdReachesThePanelNotification) {
    std::vector<std::string> seen;
    auto sub = desktop.notifications().observeDistributed(
        "com.ferrowlabs.zelk.osd",
        [&](const platform::UserInfo& info) { seen.push_back(info.at("surface")); });
    EXPECT_EQ(run("osd window").out, "osd window\n");
    runFor(0);
    EXPECT_EQ(seen, std::vector<std::string>{"window"});
}

TEST_F(ZelkToolTest, NumbersOutsideTheirBoundsAreUsageErrorsWithAShortBound) {
    for (const char* bad : {"--timeout 1e10", "--timeout nan", "--timeout inf", "--timeout 0", "--timeout -1",
                            "--timeout 1e400", "--timeout 3x"}) {
        auto r = run(std::string(bad) + " status");
        EXPECT_EQ(r.exitCode, 2) << bad;
        EXPECT_NE(r.err.find("expected seconds from 0.001 to 3600"), std::string::npos)
            << bad << ": " << r.err;
        EXPECT_LT(r.err.size(), 300u) << bad;  // no 309-digit bound
    }
    EXPECT_EQ(run("--timeout 3600 status").exitCode, 0);
    EXPECT_EQ(run("--timeout 0.5 status").exitCode, 0);
    for (const char* bad : {"window place left-half --padding nan", "window place left-half --padding -1",
                            "debug stage --seconds inf", "debug stage --seconds 1e300"}) {
        auto r = run(bad);
        EXPECT_EQ(r.exitCode, 2) << bad;
        EXPECT_NE(r.err.find("expected"), std::string::npos) << bad << ": " << r.err;
    }
}

TEST_F(ZelkToolTest, AnUnknownCommandIsNamed) {
    auto top = run("no-such-command");
    EXPECT_EQ(top.exitCode, 2);
    EXPECT_EQ(top.err, "zelk: unknown command 'no-such-command'; `zelk --help` lists the commands\n");
    auto nested = run("window frobnicate");
    EXPECT_EQ(nested.exitCode, 2);
    EXPECT_EQ(nested.err,
              "zelk window: unknown command 'frobnicate'; `zelk window --help` lists the commands\n");
    // A missing one is still said as such.
    auto missing = run("window");
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_NE(missing.err.find("subcommand is required"), std::string::npos) << missing.err;
}

TEST_F(ZelkToolTest, AppCommandsWithoutAnAppAreRefusedBeforeAsking) {
    record({ZelkCommand::focusApp, ZelkCommand::hideApp, ZelkCommand::unhideApp, ZelkCommand::quitApp});
    for (const char* verb : {"focus", "hide", "unhide", "quit"}) {
        auto r = run(std::string("app ") + verb);
        EXPECT_EQ(r.exitCode, 2) << verb;
        EXPECT_EQ(r.err, std::string("zelk app ") + verb +
                             ": name the app (part of its name) or give --bundle-id\n");
    }
    EXPECT_TRUE(received.empty());
    EXPECT_EQ(run("app focus --hide-others").exitCode, 2);
    EXPECT_EQ(run("app quit --bundle-id com.apple.mail").exitCode, 0);
    EXPECT_EQ(received.size(), 1u);
}

TEST_F(ZelkToolTest, ABusyAgentExitsThreeWithAHint) {
    service.reset();
    CLIServiceOptions o;
    o.location = SocketLocation{socketPath, false};
    o.clock = clock;
    o.maxConnections = 1;
    service = std::make_unique<CLIService>(dispatcher, o);
    ASSERT_TRUE(service->start());
    CLIClient stalled;
    ASSERT_EQ(stalled.connect(socketPath), ClientStatus::ok);
    ASSERT_EQ(stalled.sendRaw(std::string("\0\0\0\x20{", 5)), ClientStatus::ok);

    auto r = run("status");
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.err.find("the agent is busy"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Try again"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
}

TEST_F(ZelkToolTest, HelpAndCompletionsExplainTheCommands) {
    auto help = run("window place --help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("left-half"), std::string::npos);
    EXPECT_NE(help.out.find("horizontal-quarter-1..4"), std::string::npos);
    auto config = run("config help");
    EXPECT_EQ(config.exitCode, 0);
    EXPECT_NE(config.out.find("restore"), std::string::npos);
    auto bash = run("completions bash");
    EXPECT_NE(bash.out.find("complete -F _zelk zelk"), std::string::npos);
    EXPECT_NE(bash.out.find("\"window place\") words=\"--help --help-all --screen"), std::string::npos);
    auto zsh = run("completions zsh");
    EXPECT_NE(zsh.out.find("#compdef zelk"), std::string::npos);
    EXPECT_NE(zsh.out.find("\"search\") reply=("), std::string::npos);
}

}  // namespace
}  // namespace zelk::command
