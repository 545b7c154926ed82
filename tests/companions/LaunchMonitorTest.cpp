#include <gtest/gtest.h>

#include <fmt/format.h>

#include "../platform/sim/SimFixture.h"
#include "apps/AppLauncher.h"
#include "companions/LaunchMonitor.h"
#include "support/Log.h"

namespace zelk::testing {
namespace {

using companions::LaunchMonitor;

// Mail and Notes installed, not running; their launch times are set per test.
const char* kApps = R"(
displays:
  - id: 1
    frame: [0, 0, 1440, 900]
apps:
  - {bundleID: a.finder, name: Finder, finder: true, running: {pid: 50}}
  - {bundleID: com.apple.mail, name: Mail}
  - {bundleID: com.apple.notes, name: Notes}
frontmost: a.finder
)";

// Launches through the app launcher, as zelk does, and writes down each change of the launch surface
// with its virtual time: "1500 Launching Mail", "3200 hidden".
struct LaunchMonitorFixture : SimFixture {
    std::unique_ptr<LaunchMonitor> monitor;
    apps::AppLauncher launcher;
    std::vector<std::string> seen;
    ferrow::Subscription sub;
    std::unique_ptr<ferrow::LogCapture> logs;

    void start(int mailDelayMs, int notesDelayMs = 200) {
        ferrow::Log::setConsole(false);
        logs = std::make_unique<ferrow::LogCapture>();
        load(kApps);
        world().app("com.apple.mail")->launchDelayMs = mailDelayMs;
        world().app("com.apple.notes")->launchDelayMs = notesDelayMs;
        auto p = desktop.platform();
        monitor = std::make_unique<LaunchMonitor>(p.workspace, p.screens);
        launcher.runningApp = [this](const apps::LaunchableApp& app) -> std::optional<platform::RunningApp> {
            for (auto& r : desktop.workspace().runningApplications())
                if (r.bundleID == app.bundleIdentifier()) return r;
            return std::nullopt;
        };
        launcher.launchStarted = [this](const apps::LaunchableApp& app) { monitor->track(app); };
        sub = monitor->model().subscribe([this](const companions::LaunchPillsModel& m) {
            std::vector<std::string> texts;
            for (auto& pill : m.pills)
                texts.push_back(companions::pillText(pill));
            seen.push_back(fmt::format("{} {}", elapsedMs(),
                                       m.visible ? fmt::format("{}", fmt::join(texts, "; ")) : "hidden"));
        });
    }
    void TearDown() override {
        sub.cancel();
        monitor.reset();
        logs.reset();
        SimFixture::TearDown();
    }
    void launch(const std::string& bundle, const std::string& name) {
        launcher.launch(
            std::make_shared<apps::LaunchableApp>("/Applications/" + name + ".app", name, 0, bundle), true);
    }
};

TEST_F(LaunchMonitorFixture, ALaunchInsideTheGraceShowsNothingAndItsEntryEndsAtTheDeadline) {
    start(1000);
    launch("com.apple.mail", "Mail");
    EXPECT_TRUE(logs->contains("LaunchMonitor: tracking launch of Mail [com.apple.mail]"));
    runFor(4999);
    EXPECT_TRUE(monitor->isTracking("com.apple.mail"));
    runFor(1);
    EXPECT_FALSE(monitor->isTracking("com.apple.mail"));
    EXPECT_TRUE(seen.empty());
}

TEST_F(LaunchMonitorFixture, ASlowLaunchShowsItsPillsAtTheirTimes) {
    start(2000);
    launch("com.apple.mail", "Mail");
    runFor(10'000);
    EXPECT_EQ(seen, (std::vector<std::string>{"1500 Launching Mail", "2000 Mail launched", "3200 hidden"}));
    EXPECT_FALSE(monitor->isTracking("com.apple.mail"));
}

TEST_F(LaunchMonitorFixture, AReportAfterTheDeadlineTurnsSlowIntoLaunchedWithItsOwnDelay) {
    start(6000);
    launch("com.apple.mail", "Mail");
    runFor(10'000);
    EXPECT_EQ(seen, (std::vector<std::string>{"1500 Launching Mail", "5000 Mail is taking a while",
                                              "6000 Mail launched", "7200 hidden"}));
}

TEST_F(LaunchMonitorFixture, ALostLaunchNotificationEndsInTakingAWhile) {
    start(3000);
    world().faults.launchNoticeLost.insert("com.apple.mail");
    launch("com.apple.mail", "Mail");
    runFor(10'000);
    EXPECT_TRUE(world().app("com.apple.mail")->running);
    EXPECT_EQ(seen, (std::vector<std::string>{"1500 Launching Mail", "5000 Mail is taking a while",
                                              "7500 hidden"}));
}

TEST_F(LaunchMonitorFixture, AnAppRunningByTheGraceCountsAsLaunchedWithoutItsNotification) {
    start(1000);
    world().faults.launchNoticeLost.insert("com.apple.mail");
    launch("com.apple.mail", "Mail");
    runFor(10'000);
    EXPECT_TRUE(seen.empty());
    EXPECT_FALSE(monitor->isTracking("com.apple.mail"));
}

TEST_F(LaunchMonitorFixture, AnAppQuittingAfterItsLaunchShowsHasQuitForItsOwnTime) {
    start(2000);
    launch("com.apple.mail", "Mail");
    runFor(2500);
    world().terminate(world().app("com.apple.mail")->pid);
    runFor(10'000);
    EXPECT_EQ(seen, (std::vector<std::string>{"1500 Launching Mail", "2000 Mail launched",
                                              "2500 Mail has quit", "4700 hidden"}));
}

TEST_F(LaunchMonitorFixture, AnAppQuittingSoonAfterAQuietLaunchStillSaysItQuit) {
    start(1000);
    launch("com.apple.mail", "Mail");
    runFor(1200);
    // Appeared without a pill: the quit is still worth saying, as its own pill.
    world().terminate(world().app("com.apple.mail")->pid);
    runFor(10'000);
    EXPECT_EQ(seen, (std::vector<std::string>{"1200 Mail has quit", "3400 hidden"}));
}

TEST_F(LaunchMonitorFixture, TwoLaunchesStandInOrderOfFirstAppearanceAndTheSurfaceStaysForTheLast) {
    start(4000, 3000);
    launch("com.apple.notes", "Notes");
    runFor(500);
    launch("com.apple.mail", "Mail");
    // A second launch of the same app keeps the first entry and its timers.
    runFor(200);
    launch("com.apple.notes", "Notes");
    runFor(10'000);
    EXPECT_EQ(seen, (std::vector<std::string>{"1500 Launching Notes", "2000 Launching Notes; Launching Mail",
                                              "3000 Notes launched; Launching Mail", "4200 Launching Mail",
                                              "4500 Mail launched", "5700 hidden"}));
}

TEST_F(LaunchMonitorFixture, TheSurfaceStandsInTheMainScreensTopRightCorner) {
    start(3000, 3000);
    launch("com.apple.mail", "Mail");
    launch("com.apple.notes", "Notes");
    runFor(1500);
    const auto& model = monitor->model().get();
    ASSERT_TRUE(model.visible);
    auto* screens = desktop.platform().screens;
    auto screen = screens->mainScreen();
    if (!screen) screen = screens->screens().front();
    EXPECT_EQ(model.frame.maxX(), screen->visibleFrame.maxX() - 12);
    EXPECT_EQ(model.frame.y, screen->visibleFrame.y + 14);
    EXPECT_EQ(model.frame.height, 2 * 30 + 6);
}

}  // namespace
}  // namespace zelk::testing
