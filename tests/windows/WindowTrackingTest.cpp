#include "WindowsFixture.h"

namespace zelk::testing {
namespace {

using windows::Role;
using windows::Subrole;

TEST_F(WindowsFixture, RefreshMergesAccessibilityAndOtherSpaces) {
    startWith(kThreeSpaces);
    EXPECT_EQ(ids(), (std::vector<std::uint32_t>{11, 12, 21, 31, 41}));
    auto here = tracked(11);
    ASSERT_TRUE(here);
    EXPECT_EQ(here->role, Role::window);
    EXPECT_EQ(here->subrole, Subrole::standardWindow);
    EXPECT_EQ(here->spaceID, std::optional<std::uint64_t>(1));
    auto away = tracked(12);
    ASSERT_TRUE(away);
    EXPECT_EQ(away->role, Role::unknown);
    EXPECT_EQ(away->spaceID, std::optional<std::uint64_t>(2));
    EXPECT_FALSE(away->isFocused);
    EXPECT_TRUE(
        logs->contains("getWindowsForApp: a.safari add off-space wid=12 title='Docs' space=2 level=0"));
    EXPECT_TRUE(
        logs->contains("refreshWindows: collected 5 windows from 4 apps (offSpace=2, preservedApps=0, "
                       "preservedWindows=0)"));
    ASSERT_TRUE(wm->focusedWindow());
    EXPECT_EQ(wm->focusedWindow()->id, 11u);
    EXPECT_EQ(wm->windowMRU(), (std::vector<std::uint32_t>{11}));
}

TEST_F(WindowsFixture, UnforcedRefreshesWithinATenthOfASecondAreThrottled) {
    startWith(kThreeSpaces);
    runFor(50);
    EXPECT_FALSE(wm->refreshWindows(false));
    EXPECT_TRUE(wm->refreshWindows(true));
    runFor(50);
    EXPECT_TRUE(wm->refreshWindows(true));
    runFor(100);  // exactly 0.1 s since the last start still counts as too soon
    EXPECT_FALSE(wm->refreshWindows(false));
    runFor(1);
    EXPECT_TRUE(wm->refreshWindows(false));
}

TEST_F(WindowsFixture, HungAppCostsOneSecondThenCoolsDownThenIsIgnoredForTheSession) {
    startWith(kThreeSpaces);
    world().faults.axTimeout.insert("a.mail");
    auto before = clock->now();
    wm->refreshWindows(true);
    EXPECT_EQ(clock->now() - before, ferrow::seconds(1.0));
    EXPECT_TRUE(
        logs->contains("getWindowsForApp: a.mail AX timed out (cannotComplete) [1x]; cooling down for 5.0s"));
    EXPECT_TRUE(
        logs->contains("refreshWindows: preserving 1 existing windows for a.mail (AX query returned nil)"));
    EXPECT_TRUE(tracked(21));

    // Within the cooldown the app isn't asked: no time passes.
    runFor(4000);
    before = clock->now();
    wm->refreshWindows(true);
    EXPECT_EQ(clock->now(), before);
    EXPECT_TRUE(
        logs->contains("refreshWindows: preserving 1 existing windows for a.mail (slow-app cooldown)"));
    EXPECT_TRUE(
        logs->contains("refreshWindows: skipped 0 app(s) over 2.0s budget, 1 in slow-app cooldown, 0 "
                       "session-ignored (elapsed 0.00s)"));

    runFor(1001);
    wm->refreshWindows(true);
    EXPECT_TRUE(
        logs->contains("getWindowsForApp: a.mail AX timed out (cannotComplete) [2x]; cooling down for 5.0s"));
    runFor(5001);
    wm->refreshWindows(true);
    EXPECT_TRUE(
        logs->contains("getWindowsForApp: a.mail AX timed out 3x this session; skipping its window "
                       "enumeration until zelk restarts"));

    // From now on Mail is never asked again, even after its cooldown, and its window stays as it was.
    world().setMinimized(21, true);
    runFor(6000);
    logs->clear();
    before = clock->now();
    wm->refreshWindows(true);
    EXPECT_EQ(clock->now(), before);
    EXPECT_TRUE(logs->contains(
        "refreshWindows: preserving 1 existing windows for a.mail (AX-timeout session-ignore)"));
    ASSERT_TRUE(tracked(21));
    EXPECT_FALSE(tracked(21)->isMinimized);
}

TEST(AXHealth, AnAppWithoutBundleIsCooledDownButNeverSessionIgnored) {
    windows::AXHealth health;
    for (int i = 0; i < 5; ++i)
        health.noteTimeout(7, "", ferrow::seconds(i * 10.0));
    EXPECT_FALSE(health.isSessionIgnored(""));
    EXPECT_TRUE(health.inCooldown(7, ferrow::seconds(44.0)));
    EXPECT_FALSE(health.inCooldown(7, ferrow::seconds(45.0)));
    for (int i = 0; i < 2; ++i)
        health.noteTimeout(8, "b.app", 0);
    EXPECT_FALSE(health.isSessionIgnored("b.app"));
    EXPECT_EQ(health.noteTimeout(9, "b.app", 0), 3);  // counted per bundle, whatever the pid
    EXPECT_TRUE(health.isSessionIgnored("b.app"));
}

TEST_F(WindowsFixture, AfterTheBudgetTheRemainingAppsKeepExactlyTheirOldWindows) {
    startWith(kThreeSpaces);
    // Safari, Mail and Notes hang; Tasks comes after them.
    for (auto b : {"a.safari", "a.mail", "a.notes"})
        world().faults.axTimeout.insert(b);
    world().window(41)->subrole = "AXUnknown";  // only a real ask of Tasks would notice
    runFor(200);
    logs->clear();
    wm->refreshWindows(true);
    // The third hung app passed the check at exactly 2.0 s and still ran.
    EXPECT_TRUE(logs->contains(
        "getWindowsForApp: a.notes AX timed out (cannotComplete) [1x]; cooling down for 5.0s"));
    EXPECT_TRUE(logs->contains(
        "refreshWindows: preserving 1 existing windows for a.tasks (refresh budget exhausted)"));
    EXPECT_TRUE(
        logs->contains("refreshWindows: skipped 1 app(s) over 2.0s budget, 0 in slow-app cooldown, 0 "
                       "session-ignored (elapsed 3.00s)"));
    ASSERT_TRUE(tracked(41));
    EXPECT_EQ(tracked(41)->role, Role::window);
    // The next refresh starts again from the first app; the hung ones are cooling down, Tasks is asked.
    runFor(200);
    wm->refreshWindows(true);
    EXPECT_EQ(tracked(41)->role, Role::unknown);
}

TEST_F(WindowsFixture, AccessibilityFailureNeverEmptiesTheList) {
    startWith(kThreeSpaces);
    auto before = ids();
    world().permissions.accessibility = false;
    world().window(21)->subrole = "AXUnknown";
    runFor(200);
    wm->refreshWindows(true);
    EXPECT_TRUE(
        logs->contains("refreshWindows: preserving 1 existing windows for a.mail (AX query returned nil)"));
    EXPECT_TRUE(logs->contains("getWindowsForApp: error for a.mail: apiDisabled (-25211)"));
    EXPECT_EQ(ids(), before);
    // A per-app refresh that can't ask keeps everything too.
    wm->refreshApp(*world().runningApp(102));
    EXPECT_EQ(ids(), before);
}

TEST_F(WindowsFixture, ParseWindowKeepsOnlyListedSubrolesTitledAndLargeEnough) {
    startWith(kThreeSpaces, false);
    auto open = [&](std::uint32_t id, Rect frame, std::string subrole, std::string title = "W") {
        sim::SimWindow w{id, 0, title, frame, 1};
        w.subrole = subrole;
        world().openWindow("a.tasks", w);
    };
    open(51, {0, 0, 100, 100}, "AXStandardWindow");
    open(52, {0, 0, 99.9, 300}, "AXStandardWindow");
    open(53, {0, 0, 400, 300}, "AXSheet");
    open(54, {0, 0, 400, 300}, "AXDialog", "");
    open(55, {0, 0, 400, 300}, "AXFloatingWindow");
    wm->start();
    EXPECT_TRUE(tracked(51));
    EXPECT_FALSE(tracked(52));
    EXPECT_FALSE(tracked(53));
    EXPECT_FALSE(tracked(54));
    EXPECT_EQ(tracked(55)->subrole, Subrole::floatingWindow);
    EXPECT_TRUE(logs->contains(
        "parseWindow: drop a.tasks wid=52 title='W' subrole=standardWindow (too small 99.9×300)"));
    EXPECT_TRUE(logs->contains(
        "parseWindow: drop a.tasks wid=53 role=AXWindow subrole=AXSheet (not in allowedRoles)"));
    EXPECT_TRUE(logs->contains("parseWindow: drop a.tasks wid=54 (empty title) subrole=dialog"));
}

TEST_F(WindowsFixture, OffSpaceWindowsAtAnotherLevelAreSkippedByTheAppButKeptByTheWalk) {
    startWith(kThreeSpaces, false);
    sim::SimWindow w{61, 0, "Palette", {0, 0, 300, 300}, 3};
    w.level = 3;
    world().openWindow("a.notes", w);
    wm->start();
    EXPECT_FALSE(tracked(61));
    EXPECT_TRUE(logs->contains(
        "getWindowsForApp: a.notes skip off-space wid=61 level=3 title='Palette' (non-normal level)"));
    auto walk = wm->tracker().walk().allWindowsAcrossSpaces(true, {});
    EXPECT_TRUE(
        std::any_of(walk.begin(), walk.end(), [](auto& c) { return c.windowID == 61 && c.level == 3; }));
}

TEST_F(WindowsFixture, AWindowTheAppStopsReportingIsCarriedForwardWhileTheServerListsIt) {
    startWith(kThreeSpaces);
    // Mail keeps another window here, so the server's row for 21 isn't let through as the only knowledge.
    world().openWindow("a.mail", sim::SimWindow{23, 0, "Sent", {0, 0, 500, 500}, 1});
    runFor(500);
    world().window(21)->subrole = "AXUnknown";
    runFor(200);
    wm->refreshWindows(true);
    EXPECT_TRUE(tracked(21));
    EXPECT_TRUE(
        logs->contains("refreshWindows: carried forward 1 window(s) dropped by per-app enumeration but "
                       "still live in CGWindowList: #21[Mail]"));
    // The server's title wins over the accessibility title.
    world().retitle(11, "Renamed");
    runFor(200);
    wm->refreshWindows(true);
    EXPECT_EQ(tracked(11)->title, "Renamed");
}

TEST(DropOrderedOutGhosts, OnlyAnOffScreenUnminimisedActiveSpaceWindowOfAVisibleAppGoes) {
    auto win = [](std::uint32_t id, bool minimized, std::optional<std::uint64_t> space,
                  std::string bundle = "a") {
        windows::ManagedWindow w;
        w.id = id;
        w.title = "t";
        w.bundleIdentifier = bundle;
        w.isMinimized = minimized;
        w.spaceID = space;
        return w;
    };
    std::vector<windows::ManagedWindow> list{win(1, false, 1),           win(2, true, 1),
                                             win(3, false, 2),           win(4, false, std::nullopt),
                                             win(5, false, 1, "hidden"), win(6, false, 1)};
    platform::WindowInfo onScreen;
    onScreen.number = 6;
    onScreen.isOnscreen = true;
    platform::RunningApp hidden;
    hidden.bundleID = "hidden";
    hidden.hidden = true;
    auto kept = windows::WindowTracker::dropOrderedOutGhosts(list, {onScreen}, {hidden}, 1);
    std::vector<std::uint32_t> keptIDs;
    for (auto& w : kept)
        keptIDs.push_back(w.id);
    EXPECT_EQ(keptIDs, (std::vector<std::uint32_t>{2, 3, 5, 6}));
}

TEST_F(WindowsFixture, WithoutScreenRecordingGhostDroppingLeavesLiveWindowsAlone) {
    std::string yaml = std::string("permissions: {screenRecording: false}\n") + kThreeSpaces;
    startWith(yaml);
    EXPECT_EQ(ids(), (std::vector<std::uint32_t>{11, 12, 21, 31, 41}));
    EXPECT_FALSE(logs->containsSubstring("dropOrderedOutGhosts: drop"));
}

TEST_F(WindowsFixture, ClosedWindowsArePrunedByThePerAppRefreshAndLeaveTheMostRecentList) {
    startWith(kThreeSpaces);
    std::vector<std::uint32_t> closed;
    auto sub = wm->tracker().windowsClosed.subscribe([&](const std::vector<windows::ManagedWindow>& ws) {
        for (auto& w : ws)
            closed.push_back(w.id);
    });
    wm->focusWindow(21);
    runFor(100);
    EXPECT_EQ(wm->windowMRU().front(), 21u);
    world().closeWindow(21);
    runFor(10);
    EXPECT_FALSE(tracked(21));
    EXPECT_EQ(closed, (std::vector<std::uint32_t>{21}));
    EXPECT_EQ(std::count(wm->windowMRU().begin(), wm->windowMRU().end(), 21u), 0);
}

TEST_F(WindowsFixture, ASessionIgnoredAppsWindowsAreNeitherPrunedNorRecordedClosed) {
    startWith(kThreeSpaces);
    world().faults.axTimeout.insert("a.mail");
    for (int i = 0; i < 3; ++i) {
        runFor(5100);
        wm->refreshWindows(true);
    }
    ASSERT_TRUE(wm->tracker().health().isSessionIgnored("a.mail"));
    int closedCount = 0;
    auto sub = wm->tracker().windowsClosed.subscribe([&](auto&) { ++closedCount; });
    world().faults.axTimeout.erase("a.mail");
    // Asked now, Mail would answer without 21: its server row is skipped since 22 is seen here.
    world().openWindow("a.mail", sim::SimWindow{22, 0, "Draft", {0, 0, 500, 500}, 1});
    world().window(21)->subrole = "AXUnknown";
    runFor(1000);
    wm->refreshApp(*world().runningApp(102));
    EXPECT_TRUE(tracked(21));
    EXPECT_FALSE(tracked(22));
    EXPECT_EQ(closedCount, 0);
}

TEST_F(WindowsFixture, AHungAppsWindowsOutliveOtherAppsRefreshesForTheRestOfTheRun) {
    startWith(kThreeSpaces);
    world().faults.axTimeout.insert("a.mail");
    for (int i = 0; i < 3; ++i) {
        runFor(5100);
        wm->refreshWindows(true);
    }
    ASSERT_TRUE(wm->tracker().health().isSessionIgnored("a.mail"));
    // Minimised behind our back, 21 is off screen while its stored copy says it isn't minimised.
    world().setMinimized(21, true);
    runFor(1000);
    // Another app's window events refresh that app alone, with a fresh window list.
    world().openWindow("a.safari", sim::SimWindow{13, 0, "New tab", {0, 25, 1000, 700}, 1});
    runFor(1000);
    ASSERT_TRUE(tracked(13));
    EXPECT_TRUE(tracked(21));
    wm->refreshApp(*world().runningApp(104));
    EXPECT_TRUE(tracked(21));
    EXPECT_FALSE(logs->containsSubstring("dropOrderedOutGhosts: drop #21"));
    // Full refreshes later keep it too: the app is never asked again.
    for (int i = 0; i < 3; ++i) {
        runFor(6000);
        wm->refreshWindows(true);
    }
    ASSERT_TRUE(tracked(21));
    EXPECT_FALSE(tracked(21)->isMinimized);
}

TEST_F(WindowsFixture, AWindowPreservedInCooldownIsNotAGhostToAnotherAppsRefresh) {
    startWith(kThreeSpaces);
    world().faults.axTimeout.insert("a.mail");
    runFor(200);
    wm->refreshWindows(true);  // one time-out: Mail cools down, 21 preserved
    world().setMinimized(21, true);
    wm->refreshApp(*world().runningApp(104));
    EXPECT_TRUE(tracked(21));
    // Once Mail answers again its own refresh reads 21 afresh.
    world().faults.axTimeout.erase("a.mail");
    runFor(5100);
    wm->refreshApp(*world().runningApp(102));
    ASSERT_TRUE(tracked(21));
    EXPECT_TRUE(tracked(21)->isMinimized);
}

TEST_F(WindowsFixture, AnEmptyWindowListDropsNoGhosts) {
    startWith(kThreeSpaces);
    ASSERT_EQ(ids(), (std::vector<std::uint32_t>{11, 12, 21, 31, 41}));
    // The window server answers nothing at all: no rows, no Spaces.
    world().faults.noWindowServer = true;
    runFor(200);
    wm->refreshWindows(true);
    EXPECT_TRUE(tracked(11));
    EXPECT_TRUE(tracked(21));
    EXPECT_TRUE(tracked(41));
    wm->refreshApp(*world().runningApp(102));
    EXPECT_TRUE(tracked(21));
    EXPECT_FALSE(logs->containsSubstring("dropOrderedOutGhosts: drop"));
}

TEST_F(WindowsFixture, AnObserverThatFailedToStartIsStartedOnceTheAppAnswers) {
    startWith(std::string("faults: {axTimeout: [a.mail]}\n") + kThreeSpaces);
    std::int32_t mail = pidOf("a.mail");
    ASSERT_TRUE(logs->containsSubstring("Error starting observer for Mail"));
    EXPECT_FALSE(wm->hasObserver(mail));
    world().faults.axTimeout.erase("a.mail");
    runFor(5100);
    wm->refreshWindows(true);
    EXPECT_TRUE(wm->hasObserver(mail));
    EXPECT_EQ(desktop.accessibility().observerCount(mail), 1u);
    // Its window events are heard again.
    world().openWindow("a.mail", sim::SimWindow{22, 0, "Draft", {0, 0, 500, 500}, 1});
    runFor(400);
    EXPECT_TRUE(tracked(22));
}

TEST_F(WindowsFixture, ALongRunHoldsOnlyPendingWorkItems) {
    startWith(kThreeSpaces);
    // Windows that take a while to get a title each start a few delayed title reads.
    for (std::uint32_t i = 0; i < 60; ++i) {
        world().openWindow("a.tasks", sim::SimWindow{100 + i, 0, "", {0, 0, 500, 500}, 1});
        runFor(1000);
    }
    EXPECT_LE(wm->heldWorkItems(), 3u);
}

TEST_F(WindowsFixture, WindowEventsGiveOneRefreshPerThreeTenthsAndNeverLoseTheLast) {
    startWith(kThreeSpaces);
    runFor(1000);
    logs->clear();
    auto refreshes = [&] { return logCount("getWindowsForApp: a.tasks ax="); };
    wm->scheduler().eventRefresh(104);
    EXPECT_EQ(refreshes(), 1u);
    runFor(100);
    wm->scheduler().eventRefresh(104);
    runFor(100);
    wm->scheduler().eventRefresh(104);  // folded into the pending trailing refresh
    EXPECT_EQ(refreshes(), 1u);
    runFor(99);
    EXPECT_EQ(refreshes(), 1u);
    runFor(1);  // 0.3 s after the first
    EXPECT_EQ(refreshes(), 2u);
    runFor(300);
    wm->scheduler().eventRefresh(104);
    EXPECT_EQ(refreshes(), 3u);
}

TEST_F(WindowsFixture, ASecondWindowCreatedRestartsTheAppsLadder) {
    startWith(kThreeSpaces);
    runFor(1000);
    world().openWindow("a.tasks", sim::SimWindow{42, 0, "Later", {0, 0, 500, 500}, 1});
    runFor(100);
    world().openWindow("a.tasks", sim::SimWindow{43, 0, "Later still", {0, 0, 500, 500}, 1});
    runFor(1);
    EXPECT_TRUE(tracked(43));
    EXPECT_TRUE(wm->scheduler().trailingPending(104));
    EXPECT_TRUE(wm->scheduler().ladderPending(104));
    runFor(600);
    EXPECT_FALSE(wm->scheduler().trailingPending(104));
    EXPECT_FALSE(wm->scheduler().ladderPending(104));
}

TEST_F(WindowsFixture, NewWindowsArePublishedOnceTheyHaveATitle) {
    startWith(kThreeSpaces);
    std::optional<windows::WindowCreated> got;
    bool called = false;
    wm->awaitNewWindow("a.tasks", ferrow::seconds(2.0), [&](auto c) {
        got = c;
        called = true;
    });
    world().openWindow("a.tasks", sim::SimWindow{44, 0, "", {0, 0, 500, 500}, 1});
    runFor(60);
    EXPECT_FALSE(called);
    world().retitle(44, "Named");
    runFor(100);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->windowID, 44u);
    EXPECT_EQ(got->pid, 104);
    bool timedOut = false;
    wm->awaitNewWindow("a.mail", ferrow::seconds(1.0), [&](auto c) { timedOut = !c; });
    runFor(1000);
    EXPECT_TRUE(timedOut);
}

TEST_F(WindowsFixture, ServerCreatedWindowDuringALaunchLadderRefreshesNow) {
    startWith(kThreeSpaces);
    wm->scheduler().scheduleDelayedRefresh(104, {0.5, 1.5, 5.0, 10.0});
    runFor(100);
    world().openWindow("a.tasks", sim::SimWindow{45, 0, "Fresh", {0, 0, 500, 500}, 1});
    runFor(1);
    EXPECT_TRUE(
        logs->contains("SLS window 45 created for pid 104 with a refresh ladder pending, refreshing now"));
    EXPECT_TRUE(wm->scheduler().ladderPending(104));
    runFor(600);
    EXPECT_FALSE(wm->scheduler().ladderPending(104));  // 0.0, 0.5 replaced the 10 s ladder
}

TEST_F(WindowsFixture, AnAccessoryAppTurningRegularIsAdoptedAfterAPolicyCheck) {
    std::string yaml = std::string(kThreeSpaces) + R"(
  - bundleID: a.agent
    name: Agent
    kind: accessory
    running: {pid: 105}
)";
    // The extra app belongs to the apps list: put it before the frontmost line.
    std::string world = kThreeSpaces;
    world.insert(world.find("frontmost:"),
                 "  - bundleID: a.agent\n    name: Agent\n    kind: accessory\n    "
                 "running: {pid: 105}\n");
    (void)yaml;
    startWith(world);
    ASSERT_TRUE(wm->inPolicyCache(105));
    this->world().setKind("a.agent", sim::AppKind::regular);
    this->world().openWindow("a.agent", sim::SimWindow{71, 0, "Agent window", {0, 0, 500, 500}, 1});
    runFor(240);
    EXPECT_FALSE(tracked(71));
    runFor(20);
    EXPECT_TRUE(logs->contains(
        "activationPolicy: a.agent promoted to .regular without activating, adopting proactively"));
    EXPECT_TRUE(tracked(71));
    EXPECT_TRUE(wm->hasObserver(105));
}

TEST_F(WindowsFixture, ServerDestroyNotificationPrunesATrackedWindow) {
    startWith(kThreeSpaces);
    // Accessibility can't answer, so only the window server tells of the end.
    world().permissions.accessibility = false;
    world().closeWindow(31);
    runFor(1);
    EXPECT_TRUE(logs->contains("SLS window 31 destroyed [a.notes], pruning"));
    EXPECT_FALSE(tracked(31));
}

}  // namespace
}  // namespace zelk::testing
