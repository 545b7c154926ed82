#include "diagnostics/DebugDump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <sstream>

#include "diagnostics/DebugDumpTexts.h"
#include "platform/HostProcesses.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk::testing {
namespace {

namespace fs = std::filesystem;
using diagnostics::DebugDump;
using diagnostics::DebugDumpSnapshot;

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> listing(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// A desktop whose programs answer as a script says: the log commands print a line, zip notes what
// the folder held and leaves an archive.
struct ScriptedProcesses : platform::Processes {
    std::vector<platform::ProcessRequest> requests;
    std::vector<std::string> zipped;  // the folder's files when zip ran
    std::function<void()> duringCapture;
    int zipStatus = 0;

    platform::ProcessResult run(const platform::ProcessRequest& r) override {
        requests.push_back(r);
        platform::ProcessResult result;
        result.started = true;
        result.exitCode = 0;
        if (r.program == "/usr/bin/log" && r.arguments.at(0) == "stream") {
            if (duringCapture) duringCapture();
            result.output = "live line\n";
            result.timedOut = true;
            result.exitCode = 15;
        } else if (r.program == "/usr/bin/log") {
            result.output = "history line\n";
        } else if (r.program == "/usr/bin/zip") {
            const fs::path parent = r.environment.at("PWD");
            zipped = listing(parent / r.arguments.back());
            std::ofstream(parent / r.arguments.at(2)) << "PK";
            result.exitCode = zipStatus;
        }
        return result;
    }
    std::optional<std::string> runScript(const std::string&, std::string*) override { return std::nullopt; }
};

DebugDumpSnapshot sampleSnapshot() {
    return {"[{\"number\": 1}]",
            "[]",
            "[]",
            "# Relevant apps — RUNNING (0)\n",
            "# Static app assignments (0)\n",
            "# Key tap health (at dump time)\n"};
}

struct DebugDumpTest : SimFixture {
    fs::path dir;
    std::unique_ptr<ferrow::LogCapture> logs;
    void SetUp() override {
        loadDefault();
        ferrow::Log::setConsole(false);
        logs = std::make_unique<ferrow::LogCapture>();
        char tmpl[] = "/tmp/zelk-dump-test-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        std::ofstream(dir / "config.yaml") << "version: 1\n";
    }
    void TearDown() override {
        logs.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
        SimFixture::TearDown();
    }
    diagnostics::DebugDumpOptions options(bool withSearchCache = false) {
        diagnostics::DebugDumpOptions o;
        o.outputFolder = dir / "out";
        o.configFile = dir / "config.yaml";
        o.searchCacheFile = dir / (withSearchCache ? "config.yaml" : "search-cache.yaml");
        return o;
    }
};

TEST_F(DebugDumpTest, TheSystemLogCommandsAndZipAreRunWithTheirExactArguments) {
    ScriptedProcesses processes;
    DebugDump dump([] { return sampleSnapshot(); }, processes, options());
    ASSERT_TRUE(dump.start());
    ASSERT_EQ(processes.requests.size(), 4u);
    const std::string predicate = "subsystem == \"com.ferrowlabs.zelk\"";
    EXPECT_EQ(processes.requests[0].program, "/usr/bin/log");
    EXPECT_EQ(processes.requests[0].arguments,
              (std::vector<std::string>{"stream", "--predicate", predicate, "--level", "debug", "--style",
                                        "compact"}));
    EXPECT_EQ(processes.requests[0].timeoutSeconds, 30);
    EXPECT_EQ(processes.requests[1].arguments,
              (std::vector<std::string>{"show", "--predicate", predicate, "--last", "24h", "--info",
                                        "--debug", "--style", "compact"}));
    const std::string name = DebugDump::folderName(clock->wallSeconds());
    EXPECT_EQ(processes.requests[2].program, "/usr/bin/zip");
    EXPECT_EQ(processes.requests[2].arguments, (std::vector<std::string>{"-q", "-r", name + ".zip", name}));
    EXPECT_EQ(processes.requests[2].environment.at("PWD"), (dir / "out").string());
    EXPECT_EQ(processes.requests[3].program, "xdg-open");

    // The archive holds every file but the search cache the program never wrote; the folder goes.
    EXPECT_EQ(processes.zipped,
              (std::vector<std::string>{"apps.txt", "assignments.txt", "ax-windows.json", "cg-windows.json",
                                        "config.yaml", "cross-space-windows.json", "oslog-historic-24h.log",
                                        "oslog-live-30s.log", "tap-health.txt"}));
    auto outcome = dump.lastOutcome();
    ASSERT_TRUE(outcome && outcome->ok);
    EXPECT_EQ(outcome->archive, (dir / "out" / (name + ".zip")).string());
    EXPECT_TRUE(fs::exists(outcome->archive));
    EXPECT_FALSE(fs::exists(dir / "out" / name));
    EXPECT_FALSE(dump.progress().isRunning);
    EXPECT_EQ(dump.progress().phase, "");
}

TEST_F(DebugDumpTest, ASecondStartDuringADumpDoesNothingAndTheSearchCacheIsCopiedWhenThere) {
    ScriptedProcesses processes;
    DebugDump dump([] { return sampleSnapshot(); }, processes, options(/*withSearchCache=*/true));
    bool secondStarted = true;
    std::string phaseDuringCapture;
    processes.duringCapture = [&] {
        phaseDuringCapture = dump.progress().phase;
        secondStarted = dump.start();
    };
    ASSERT_TRUE(dump.start(5));
    EXPECT_FALSE(secondStarted);
    EXPECT_EQ(phaseDuringCapture, "Capturing live logs… 5");
    EXPECT_EQ(processes.requests[0].timeoutSeconds, 5);
    EXPECT_EQ(std::count(processes.zipped.begin(), processes.zipped.end(), "search-cache.yaml"), 1);
    EXPECT_EQ(std::count_if(processes.requests.begin(), processes.requests.end(),
                            [](const auto& r) { return r.program == "/usr/bin/zip"; }),
              1);
    // Once it ended, a dump may start again.
    EXPECT_TRUE(dump.start());
}

// On the simulated desktop the system's log tool doesn't exist: the dump fails at the capture, says
// so with the tool's path and status, and leaves what it wrote where it was.
TEST_F(DebugDumpTest, AFailingStepLeavesThePartialFolderAndSaysWhy) {
    DebugDump dump([] { return sampleSnapshot(); }, desktop.processes(), options());
    ASSERT_TRUE(dump.start());
    EXPECT_TRUE(logs->contains("Debug dump failed: /usr/bin/log could not be started"));
    ASSERT_FALSE(desktop.processes().requests.empty());
    EXPECT_EQ(desktop.processes().requests.back().arguments.front(), "stream");
    auto outcome = dump.lastOutcome();
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->ok);
    EXPECT_EQ(outcome->error, "/usr/bin/log could not be started");
    EXPECT_EQ(listing(outcome->folder),
              (std::vector<std::string>{"apps.txt", "assignments.txt", "ax-windows.json", "cg-windows.json",
                                        "config.yaml", "cross-space-windows.json", "tap-health.txt"}));
    EXPECT_EQ(slurp(fs::path(outcome->folder) / "cg-windows.json"), "[{\"number\": 1}]");
    EXPECT_FALSE(dump.progress().isRunning);
}

TEST_F(DebugDumpTest, AFailingZipNamesItsStatusAndKeepsTheFolder) {
    ScriptedProcesses processes;
    processes.zipStatus = 12;
    DebugDump dump([] { return sampleSnapshot(); }, processes, options());
    ASSERT_TRUE(dump.start());
    EXPECT_TRUE(logs->contains("Debug dump failed: /usr/bin/zip exited with status 12"));
    EXPECT_TRUE(fs::is_directory(dump.lastOutcome()->folder));
    EXPECT_EQ(slurp(fs::path(dump.lastOutcome()->folder) / "oslog-live-30s.log"), "live line\n");
    EXPECT_EQ(slurp(fs::path(dump.lastOutcome()->folder) / "oslog-historic-24h.log"), "history line\n");
}

TEST(DebugDumpTexts, TapHealthLinesAndTheSecureInputHolder) {
    diagnostics::DumpTapHealth h;
    h.tapPresent = h.tapEnabled = true;
    h.sinceTapFlagsChangedMs = 1200;
    h.secureInputOn = true;
    h.secureInputHolder = "Terminal";
    h.axCooldownApps = {"Mail", "Notes"};
    const std::string text = diagnostics::tapHealthText(h);
    EXPECT_EQ(text,
              "# Key tap health (at dump time)\n"
              "  tap present:            yes\n"
              "  tap enabled:            yes\n"
              "  health monitor active:  no\n"
              "  since last tap flagsChanged:     1200 ms\n"
              "  since last monitor flagsChanged: never\n"
              "  Secure Keyboard Entry:  ON, held by Terminal (key taps are BLIND while this is on)\n"
              "  AX cooldown apps:       Mail, Notes\n"
              "  AX session-ignored:     (none)\n"
              "  AX trusted:             no\n"
              "  screen recording:       no\n");
    h.secureInputHolder.reset();
    EXPECT_NE(diagnostics::tapHealthText(h).find("  Secure Keyboard Entry:  ON, held by an unknown process "
                                                 "(key taps are BLIND while this is on)\n"),
              std::string::npos);
}

TEST(DebugDumpTexts, AppAndAssignmentSectionsInTheirOrder) {
    diagnostics::DumpAppLists lists;
    lists.relevantRunning = {{"Mail", "com.apple.mail", 12, "regular"}};
    lists.launchableNotRunning = {{"Notes", "com.apple.Notes", std::nullopt, std::nullopt}};
    lists.runningNotRelevant = {{"Dock", "com.apple.dock", 3, "accessory"}, {"Agent", "", 4, "prohibited"}};
    const std::string apps = diagnostics::appsText(lists);
    auto at = [&](const std::string& s) { return apps.find(s); };
    EXPECT_LT(at("# Relevant apps — RUNNING (1)\n  Mail  com.apple.mail  pid=12  activationPolicy=regular\n"),
              at("# Discovered launchable apps — NOT RUNNING (1)\n  Notes  com.apple.Notes\n"));
    EXPECT_LT(at("# Discovered launchable apps — NOT RUNNING (1)"),
              at("# Discovered launchable apps — RUNNING but filtered out of relevantApps (0)\n"));
    EXPECT_LT(at("# Discovered launchable apps — RUNNING but filtered out of relevantApps (0)"),
              at("# All running applications — NOT in relevantApps (2)\n"));
    EXPECT_NE(at("  Dock  com.apple.dock  pid=3  activationPolicy=accessory\n"), std::string::npos);

    diagnostics::DumpAssignments a;
    a.statics = {{"m", "Mail", "com.apple.mail", "1", false}};
    a.dynamics = {{"s", "Safari", "com.apple.Safari", "0", true}};
    a.focusedAppName = "Safari";
    a.focusedAppWindows = {{"1", "Start Page"}};
    a.stages = {{"w", "Work", {"Mail — app"}}};
    EXPECT_EQ(diagnostics::assignmentsText(a),
              "# Static app assignments (1)\n"
              "  m  Mail (com.apple.mail  whenAlreadyFocused=1)  launchIfNotRunning=false\n"
              "\n# Dynamic app assignments (1)\n"
              "  s  Safari (com.apple.Safari)\n"
              "\n# Focused-app windows (indented under app row in the OSD)\n"
              "  Safari\n"
              "    1  Start Page\n"
              "\n# Saved stages (1)\n"
              "  w  Work (1 item(s))\n"
              "    Mail — app\n");
}

TEST(HostProcessesLog, TheLastDayOfTheLogFileKeepsContinuationLinesWithTheirLine) {
    const std::string text =
        "2020-01-01 10:00:00.000 [com.ferrowlabs.zelk] info old\n"
        "  old continuation\n"
        "2999-01-01 10:00:00.000 [com.ferrowlabs.zelk] info new\n"
        "  new continuation\n";
    // Anything after 2021 counts as the last day here.
    std::tm tm{};
    tm.tm_year = 121;
    tm.tm_mday = 1;
    tm.tm_isdst = -1;
    double since = static_cast<double>(std::mktime(&tm));
    EXPECT_EQ(platform::HostProcesses::linesSince(text, since),
              "2999-01-01 10:00:00.000 [com.ferrowlabs.zelk] info new\n  new continuation\n");
}

}  // namespace
}  // namespace zelk::testing
