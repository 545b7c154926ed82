#include "AppsFixture.h"

namespace zelk::testing {
namespace {

struct LaunchTest : AppsFixture {
    void SetUp() override {
        AppsFixture::SetUp();
        makeWorld({{"com.apple.Safari", "Safari", 101, 40},
                   {"com.apple.mail", "Mail", 102, 20},
                   {"com.example.notes", "Notes", 0, 5}},
                  "com.apple.mail");
        startWithCatalogue();
        logs->clear();
    }
    sim::SimWorkspace& ws() { return desktop.workspace(); }
};

TEST_F(LaunchTest, ARunningAppWithItsBinaryOnDiskIsOnlyReactivated) {
    manager().launch("com.apple.Safari");
    runFor(500);
    std::string inode = std::to_string(world().app("com.apple.Safari")->identity.inode);
    EXPECT_TRUE(logs->contains("runningBinaryMatchesBundle: com.apple.Safari running 1:" + inode +
                               " disk 1:" + inode + " match=true"))
        << allLogs();
    EXPECT_TRUE(
        logs->contains("launch: com.apple.Safari already running (pid=101) runningBinaryMatchesDisk=true "
                       "path=/Applications/Safari.app"));
    EXPECT_TRUE(
        logs->contains("launch: skipping openApplication for com.apple.Safari to avoid a duplicate instance, "
                       "reactivating the running one"));
    EXPECT_TRUE(ws().openedApplications.empty());
    EXPECT_EQ(world().frontPid(), 101);
}

TEST_F(LaunchTest, ABundleReplacedOnDiskIsOpened) {
    std::string inode = std::to_string(world().app("com.apple.Safari")->identity.inode);
    world().app("com.apple.Safari")->identity.inode = 777;  // an update replaced the binary
    manager().launch("com.apple.Safari");
    runFor(500);
    EXPECT_TRUE(logs->contains("runningBinaryMatchesBundle: com.apple.Safari running 1:" + inode +
                               " disk 1:777 match=false"))
        << allLogs();
    EXPECT_TRUE(logs->containsSubstring("runningBinaryMatchesDisk=false"));
    EXPECT_TRUE(
        logs->contains("LaunchableApp.launch: NSWorkspace.openApplication app=<LaunchableApp Safari> "
                       "bundle=com.apple.Safari activates=true"));
    EXPECT_EQ(ws().openedApplications, std::vector<std::string>{"/Applications/Safari.app"});
    EXPECT_TRUE(logs->contains("LaunchableApp.launch: bundle=com.apple.Safari completed pid=101"));
}

TEST_F(LaunchTest, WithoutTheRunningIdentityTheLaunchDateDecides) {
    ws().identityUnavailable.insert("com.apple.Safari");
    std::string inode = std::to_string(world().app("com.apple.Safari")->identity.inode);
    manager().launch("com.apple.Safari");
    runFor(100);
    EXPECT_TRUE(logs->contains("runningBinaryMatchesBundle: com.apple.Safari disk=1:" + inode +
                               " running=nil inode unavailable, launch-date fallback=true"))
        << allLogs();
    EXPECT_TRUE(ws().openedApplications.empty());

    // Modified on disk after the process started: a different binary.
    auto* safari = world().app("com.apple.Safari");
    safari->identity.modified = static_cast<std::int64_t>(safari->launchDate) + 60;
    logs->clear();
    manager().launch("com.apple.Safari");
    runFor(100);
    EXPECT_TRUE(logs->containsSubstring("inode unavailable, launch-date fallback=false")) << allLogs();
    EXPECT_EQ(ws().openedApplications.size(), 1u);
}

TEST_F(LaunchTest, AnAppThatIsntRunningIsOpenedAndRuns) {
    manager().launch("com.example.notes");
    runFor(500);
    EXPECT_TRUE(
        logs->contains("LaunchableApp.launch: NSWorkspace.openApplication app=<LaunchableApp Notes> "
                       "bundle=com.example.notes activates=true"));
    EXPECT_TRUE(world().app("com.example.notes")->running);
    EXPECT_TRUE(logs->contains("LaunchableApp.launch: bundle=com.example.notes completed pid=" +
                               std::to_string(pidOf("com.example.notes"))));
    EXPECT_TRUE(manager().isRunning(*record("com.example.notes")));
}

TEST_F(LaunchTest, AStalePathLaunchesFromWhereTheAppIsNow) {
    world().app("com.example.notes")->path = "/Applications/Tools/Notes.app";
    manager().launch("com.example.notes");
    runFor(500);
    EXPECT_TRUE(
        logs->contains("launch: stored path /Applications/Notes.app is gone for com.example.notes, launching "
                       "from /Applications/Tools/Notes.app instead"));
    EXPECT_EQ(ws().openedApplications, std::vector<std::string>{"/Applications/Tools/Notes.app"});
    EXPECT_TRUE(world().app("com.example.notes")->running);
}

TEST_F(LaunchTest, ARunningCopyElsewhereIsTargeted) {
    // A record that remembers an older copy of the app.
    auto stored =
        std::make_shared<apps::LaunchableApp>("/Volumes/Backup/Mail.app", "Mail", 0, "com.apple.mail");
    manager().launch(stored);
    runFor(100);
    EXPECT_TRUE(
        logs->contains("launch: com.apple.mail is running from /Applications/Mail.app, targeting it instead "
                       "of stored /Volumes/Backup/Mail.app"))
        << allLogs();
    EXPECT_TRUE(logs->containsSubstring("runningBinaryMatchesDisk=true path=/Applications/Mail.app"));
    EXPECT_TRUE(ws().openedApplications.empty());
}

TEST_F(LaunchTest, NoProcessFromTheOpenFallsBackToTheOpenCommand) {
    ws().launchesWithoutPid.insert("com.example.notes");
    manager().launch("com.example.notes");
    runFor(100);
    EXPECT_TRUE(logs->contains("LaunchableApp.launch: bundle=com.example.notes completed pid=-1"));
    EXPECT_TRUE(logs->contains(
        "LaunchableApp.launch: pid=-1, falling back to /usr/bin/open /Applications/Notes.app"));
    ASSERT_EQ(desktop.processes().requests.size(), 1u);
    EXPECT_EQ(desktop.processes().requests[0].program, "/usr/bin/open");
    runFor(500);
    EXPECT_TRUE(world().app("com.example.notes")->running);
}

TEST_F(LaunchTest, AFailedLaunchOnlyLogs) {
    world().faults.launchFails.insert("com.example.notes");
    manager().launch("com.example.notes");
    runFor(500);
    EXPECT_TRUE(logs->contains("Failed to launch <LaunchableApp Notes>: The application failed to launch."));
    EXPECT_TRUE(logs->contains(
        "LaunchableApp.launch: bundle=com.example.notes failed: The application failed to launch."));
    EXPECT_FALSE(manager().launch("com.example.unknown"));
}

TEST_F(LaunchTest, ALaunchCancelsAPendingHide) {
    auto notes = record("com.example.notes");
    bool hidden = false;
    notes->hider = ferrow::mainAsyncAfter(300, [&] { hidden = true; });
    manager().launch(notes);
    runFor(1000);
    EXPECT_FALSE(hidden);
}

}  // namespace
}  // namespace zelk::testing
