#include "../input/AgentFixture.h"
#include "Subsystems.h"
#include "apps/AppManager.h"
#include "windows/WindowManager.h"

namespace zelk::testing {
namespace {

// The basic desk, with two apps installed but not running: one well-behaved, one that crashes and
// relaunches in a loop.
const char* kChurnWorld = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running: {pid: 101, windows: [{id: 1001, title: "Apple", space: 1}]}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
  - bundleID: com.apple.Terminal
    name: Terminal
    running: {pid: 103, windows: [{id: 1021, title: "zsh", space: 2}]}
  - {bundleID: com.example.notes, name: Notes}
  - {bundleID: com.example.crashy, name: Crashy}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

struct RunningAppsWatch : AgentFixture {
    apps::AppManager& apps() { return apps::AppManager::shared(); }
    windows::WindowManager& windows() { return agent->subsystems().windows(); }
    bool listed(const std::string& bundle) {
        for (auto& entry : apps().runningApps())
            if (entry.process.bundleID == bundle) return true;
        return false;
    }
    std::size_t logCount(std::string_view part) const {
        std::size_t n = 0;
        for (auto& l : logs->lines())
            if (l.message.find(part) != std::string::npos) ++n;
        return n;
    }
    // Launches the app without bringing it forward, lets it run, and quits it.
    void churn(const std::string& bundle) {
        world().launch(bundle, false);
        runFor(800);
        world().terminate(world().app(bundle)->pid);
        runFor(800);
    }
};

TEST_F(RunningAppsWatch, TheManagersFollowTheWatchHalfASecondAfterTheChange) {
    start(kChurnWorld);
    runFor(1000);
    world().launch("com.example.notes", false);
    runFor(200);  // running now
    ASSERT_TRUE(world().app("com.example.notes")->running);
    EXPECT_FALSE(listed("com.example.notes"));
    runFor(499);
    EXPECT_FALSE(listed("com.example.notes"));
    runFor(2);
    EXPECT_TRUE(listed("com.example.notes"));
    EXPECT_TRUE(logs->contains("Added apps: [com.example.notes]")) << logs->lines().size();
    // The window list follows: the new app's window is tracked.
    runFor(200);
    EXPECT_FALSE(windows().windowsOfApp("com.example.notes").empty());
}

TEST_F(RunningAppsWatch, AnAppCrashingInALoopStopsGeneratingWork) {
    start(kChurnWorld);
    runFor(1000);
    for (int i = 0; i < 4; ++i)
        churn("com.example.crashy");
    ASSERT_TRUE(logs->contains("Problematic app keeps launching/quitting: com.example.crashy"));
    runFor(11000);  // every ladder of the earlier launches has run out
    logs->clear();
    for (int i = 0; i < 3; ++i) {
        world().launch("com.example.crashy", false);
        runFor(800);
        std::int32_t pid = world().app("com.example.crashy")->pid;
        EXPECT_FALSE(listed("com.example.crashy"));
        EXPECT_FALSE(windows().hasObserver(pid));
        world().terminate(pid);
        runFor(800);
    }
    EXPECT_TRUE(logs->containsSubstring("Ignoring problematic apps: [com.example.crashy]"));
    EXPECT_EQ(logCount("refreshWindows: starting full refresh"), 0u);
    EXPECT_EQ(logCount("getWindowsForApp: com.example.crashy"), 0u);
    // Other apps are still followed.
    world().launch("com.example.notes", false);
    runFor(1000);
    EXPECT_TRUE(listed("com.example.notes"));
}

TEST_F(RunningAppsWatch, ReopeningARunningAppGoesThroughTheFocusPipeline) {
    start(kChurnWorld);
    runFor(1000);
    logs->clear();
    // Terminal's only window is on Space 2; the launch guard reactivates the running copy.
    apps().launch("com.apple.Terminal");
    runFor(500);
    EXPECT_TRUE(logs->containsSubstring(
        "launch: skipping openApplication for com.apple.Terminal to avoid a duplicate instance"));
    EXPECT_TRUE(
        logs->containsSubstring("focusMainWindowIfOnInactiveSpace: routing com.apple.Terminal -> wid=1021"));
    EXPECT_EQ(world().frontPid(), 103);
    EXPECT_EQ(world().focusedWindow(), 1021u);
}

TEST_F(RunningAppsWatch, AnAppAdoptedBeforeItsLaunchNoticeKeepsOneObserver) {
    start(kChurnWorld);
    runFor(1000);
    world().launch("com.example.notes", false);
    // A full refresh runs after the app starts and before its launch notice is handled: the catalogue
    // doesn't list the app yet, so the refresh adopts it.
    auto refresh = ferrow::mainAsyncAfter(200, [this] { windows().refreshWindows(true); });
    runFor(300);
    std::int32_t pid = world().app("com.example.notes")->pid;
    ASSERT_TRUE(
        logs->containsSubstring("refreshWindows: adopting dynamically-regular apps [com.example.notes]"));
    EXPECT_TRUE(windows().hasObserver(pid));
    EXPECT_EQ(desktop.accessibility().observerCount(pid), 1u);
}

}  // namespace
}  // namespace zelk::testing
