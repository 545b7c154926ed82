#include "WindowsFixture.h"
#include "windows/KeyWindowRoute.h"

namespace zelk::testing {
namespace {

using K = sim::WorldChange::Kind;

TEST(KeyWindowRecord, IsTheExact248Bytes) {
    auto r = windows::keyWindowRecord(2, 0xA1B2C3D4);
    std::vector<std::uint8_t> want(248, 0);
    want[0x04] = 0xF8;
    want[0x08] = 0x02;
    for (int i = 0x20; i <= 0x2F; ++i)
        want[static_cast<std::size_t>(i)] = 0xFF;
    want[0x3A] = 0x10;
    want[0x3C] = 0xD4;
    want[0x3D] = 0xC3;
    want[0x3E] = 0xB2;
    want[0x3F] = 0xA1;
    EXPECT_EQ(r, want);
    EXPECT_EQ(sim::validateKeyWindowRecord(windows::keyWindowRecord(1, 7), 1), "");
}

TEST_F(WindowsFixture, AWindowOnAnotherSpaceIsReachedBySwitchingSpaceThenFocusingIt) {
    std::string yaml = std::string("spaceSwitchLatencyMs: 200\n") + kThreeSpaces;
    startWith(yaml);
    changes.clear();
    ASSERT_TRUE(wm->focusWindow(12));
    runFor(1200);
    EXPECT_EQ(world().activeSpace(), 2u);
    EXPECT_EQ(world().focusedWindow(), 12u);
    long space = changeIndex([](auto& c) { return c.kind == K::space && c.space == 2; });
    long focus = changeIndex([](auto& c) { return c.kind == K::focus && c.window == 12; });
    ASSERT_GE(space, 0);
    ASSERT_GE(focus, 0);
    EXPECT_LT(space, focus);
    // The switch took one compact swipe; the key-window records were all well formed.
    EXPECT_TRUE(logs->contains("focusSpaceContainingWindow: 1 → 2 via iss"));
    ASSERT_FALSE(desktop.windowServer().records().empty());
    for (auto& r : desktop.windowServer().records())
        EXPECT_TRUE(r.valid);
    EXPECT_EQ(desktop.windowServer().spaceFrontCalls().front(),
              (std::pair<std::uint64_t, std::int32_t>{2, 101}));
    // The landing was seen at the tick at 200 ms; three wins in a row lock in at the third.
    EXPECT_EQ(wm->focusPipeline().reassertLoop().lastReason(), "locked in after 350ms");
    EXPECT_TRUE(logs->contains("focus: cross-space finalize (locked in after 350ms) wid=12 title='Docs'"));
    ASSERT_TRUE(wm->focusedWindow());
    EXPECT_EQ(wm->focusedWindow()->id, 12u);
    EXPECT_EQ(wm->currentSpaceID(), 2u);
    EXPECT_EQ(wm->previousSpaceID(), std::optional<std::uint64_t>(1));
}

TEST_F(WindowsFixture, AnInstantSwitchLocksInAtTheEarliestAfter150ms) {
    startWith(kThreeSpaces);
    wm->focusWindow(12);
    // Ticks run at 0, 50 and 100 ms; the third win comes at the tick counted as 150 ms.
    runFor(99);
    EXPECT_TRUE(wm->focusPipeline().reassertLoop().isRunning());
    runFor(1);
    EXPECT_EQ(wm->focusPipeline().reassertLoop().lastReason(), "locked in after 150ms");
    EXPECT_FALSE(wm->focusPipeline().reassertLoop().isRunning());
}

TEST_F(WindowsFixture, WhenTheSpaceNeverChangesTheLoopGivesUpAfterTwentyTicks) {
    startWith(kThreeSpaces);
    world().setOverlay(sim::Overlay::appExpose);
    wm->focusWindow(12);
    EXPECT_TRUE(logs->contains("switchToSpace: App Exposé active, skipping synthetic swipe"));
    runFor(500);
    // Meanwhile the tracker's reports are held back by the cross-Space guard.
    wm->focusPipeline().updateFocusedWindow();
    EXPECT_TRUE(logs->contains("updateFocusedWindow: skipped, cross-Space focus still in flight"));
    runFor(449);
    EXPECT_TRUE(wm->focusPipeline().reassertLoop().isRunning());
    runFor(1);
    EXPECT_EQ(wm->focusPipeline().reassertLoop().lastReason(),
              "exhausted 1000ms (sawSwitch=false, lastWins=0)");
    EXPECT_EQ(logCount("focus: cross-space reassert tick="), 20u);
    EXPECT_EQ(world().activeSpace(), 1u);
    // After 2.0 s the guard lets go.
    runFor(1100);
    logs->clear();
    wm->focusPipeline().updateFocusedWindow();
    EXPECT_FALSE(logs->contains("updateFocusedWindow: skipped, cross-Space focus still in flight"));
    EXPECT_FALSE(wm->spaceTracker().pendingCrossSpaceFocus());
}

TEST_F(WindowsFixture, ANewerFocusCancelsTheOlderReassertLoop) {
    startWith(kThreeSpaces);
    world().setOverlay(sim::Overlay::appExpose);
    wm->focusWindow(12);
    runFor(100);
    wm->focusWindow(31);
    runFor(2000);
    EXPECT_EQ(logCount("focus: cross-space finalize ("), 1u);
    EXPECT_TRUE(logs->containsSubstring(
        "focus: cross-space finalize (exhausted 1000ms (sawSwitch=false, lastWins=0)) wid=31"));
}

TEST_F(WindowsFixture, ADeliberateFocusIsProtectedFromAStaleRevertForFourTenths) {
    startWith(kThreeSpaces);
    ASSERT_TRUE(wm->focusWindow(21));
    EXPECT_EQ(wm->focusedWindow()->id, 21u);
    runFor(300);
    wm->focusPipeline().setFocusedWindow(*tracked(11));
    EXPECT_TRUE(
        logs->contains("updateFocusedWindow: deferring cross-app revert of deliberate focus #21 -> "
                       "#11[a.safari] (frontmost still settling)"));
    EXPECT_EQ(wm->focusedWindow()->id, 21u);
    runFor(200);
    wm->focusPipeline().setFocusedWindow(*tracked(11));
    EXPECT_EQ(wm->focusedWindow()->id, 11u);
}

TEST_F(WindowsFixture, AFocusThatRoutesBackIntoForceActivateDoesNotRecurse) {
    startWith(kThreeSpaces);
    Settings::shared().set(keys::focusBehaviourSingle, FocusBehaviour::sameSpaceWindow);
    ASSERT_TRUE(wm->focusWindow(21));
    EXPECT_TRUE(logs->contains("focus: target app a.mail not frontmost, forceActivate"));
    EXPECT_EQ(logCount("focus: target window #21"), 1u);
    runFor(100);
    EXPECT_EQ(world().focusedWindow(), 21u);
    // From the router the same behaviour does take the window path.
    logs->clear();
    ASSERT_TRUE(wm->focusApp("a.tasks"));
    EXPECT_TRUE(
        logs->contains("focusSameSpaceWindow: routing a.tasks -> wid=41 title='Today' space=1 (active=1)"));
    runFor(100);
    EXPECT_EQ(world().focusedWindow(), 41u);
}

TEST_F(WindowsFixture, FocusingAnAppWhoseWindowsAreAllElsewhereFollowsItsMainWindow) {
    startWith(kThreeSpaces);
    std::vector<spaces::ActiveSpaceChange> seen;
    auto sub =
        wm->activeSpaceDidChange().subscribe([&](const spaces::ActiveSpaceChange& c) { seen.push_back(c); });
    ASSERT_TRUE(wm->focusApp("a.notes"));
    EXPECT_TRUE(
        logs->contains("focusMainWindowIfOnInactiveSpace: routing a.notes -> wid=31 title='Shopping' space=3 "
                       "(active=1)"));
    runFor(500);
    EXPECT_EQ(world().activeSpace(), 3u);
    EXPECT_EQ(world().focusedWindow(), 31u);
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back().to, 3u);
    EXPECT_EQ(seen.back().previous, std::optional<std::uint64_t>(1));
    // An app with a window here falls through to plain activation.
    EXPECT_TRUE(wm->focusApp("a.notes"));
    EXPECT_TRUE(logs->contains(
        "focusMainWindowIfOnInactiveSpace: a.notes has 1 window(s) on active Space 3 (wids=31), "
        "falling through to plain activate"));
}

TEST_F(WindowsFixture, MostRecentOrderWaitsForTheTriggerToBeReleased) {
    startWith(kThreeSpaces);
    triggerHeld = true;
    wm->focusWindow(21);
    runFor(100);
    EXPECT_EQ(wm->windowMRU(), (std::vector<std::uint32_t>{11}));
    EXPECT_EQ(wm->mru().pendingDuringHold(), std::optional<std::uint32_t>(21));
    triggerHeld = false;
    wm->flushPendingMRU();
    EXPECT_EQ(wm->windowMRU(), (std::vector<std::uint32_t>{21, 11}));
    EXPECT_TRUE(logs->contains("recordWindowMRU: bump -> #21[a.mail] (was head=#11[a.safari])"));
}

TEST(MostRecentOrder, KeepsTwoHundredAndTheHeadDoesNotCountAsAChange) {
    auto clock = std::make_shared<ferrow::VirtualClock>();
    ferrow::MainQueue::install(clock);
    windows::MostRecentOrder mru([] { return false; });
    for (std::uint32_t id = 1; id <= 201; ++id)
        mru.recordWindowMRU(id);
    EXPECT_EQ(mru.ids().size(), 200u);
    EXPECT_EQ(mru.ids().front(), 201u);
    EXPECT_EQ(mru.ids().back(), 2u);
    auto changedAt = mru.lastFocusChangeAt();
    clock->advanceBy(ferrow::ms(500));
    mru.recordWindowMRU(201);
    EXPECT_EQ(mru.lastFocusChangeAt(), changedAt);
    EXPECT_EQ(mru.focusTime(201), clock->now());
    mru.suppressNextFocusRecency();
    mru.recordWindowMRU(5);
    EXPECT_EQ(mru.lastFocusChangeAt(), changedAt);
    EXPECT_EQ(mru.ids().front(), 5u);
    mru.recordWindowMRU(6);
    EXPECT_EQ(mru.lastFocusChangeAt(), clock->now());
    ferrow::MainQueue::reset();
}

TEST_F(WindowsFixture, FocusLastUsesTheSlotFirstThenTheMostRecentOrder) {
    startWith(kThreeSpaces);
    wm->focusWindow(41);
    runFor(100);
    ASSERT_EQ(wm->windowMRU(), (std::vector<std::uint32_t>{41, 11}));
    wm->focusPipeline().setSlot(*tracked(21));
    EXPECT_TRUE(wm->focusLastFocusedWindow());
    EXPECT_TRUE(logs->contains("focusLastFocusedWindow: consume slot -> #21[a.mail]"));
    runFor(100);
    EXPECT_EQ(wm->focusedWindow()->id, 21u);
    EXPECT_TRUE(wm->focusLastFocusedWindow());
    EXPECT_TRUE(logs->contains("focusLastFocusedWindow: MRU path -> #41[a.tasks]"));
    runFor(100);
    EXPECT_EQ(wm->focusedWindow()->id, 41u);
}

TEST_F(WindowsFixture, ACrossAppFocusChangeClearsTheSlotAndASameAppOneKeepsIt) {
    startWith(kThreeSpaces, false);
    world().openWindow("a.safari", sim::SimWindow{13, 0, "Second", {0, 25, 900, 600}, 1});
    world().setFrontmost("a.safari", 11);
    wm->start();
    wm->focusPipeline().setSlot(*tracked(21));
    wm->focusWindow(13);
    runFor(100);
    EXPECT_TRUE(wm->focusPipeline().slot());
    wm->focusWindow(41);
    runFor(100);
    EXPECT_FALSE(wm->focusPipeline().slot());
    EXPECT_TRUE(
        logs->contains("focusedWindow.didSet: cross-app focus change clears slot (old=#13[a.safari] "
                       "new=#41[a.tasks] slotWas=#21)"));
}

TEST_F(WindowsFixture, PreviousWindowInAnAppWithOneWindowChangesNothing) {
    startWith(kThreeSpaces);
    wm->focusWindow(41);
    runFor(100);
    changes.clear();
    EXPECT_FALSE(wm->focusPreviousWindowInCurrentApp());
    EXPECT_TRUE(
        logs->contains("focusPreviousWindowInCurrentApp: no other window for bundle=a.tasks "
                       "(sameAppWindows=1, windowsCount=5)"));
    EXPECT_TRUE(changes.empty());
}

TEST_F(WindowsFixture, FocusOnAnAppThatIsNotRunningFails) {
    startWith(kThreeSpaces);
    auto w = *tracked(41);
    world().terminate(104);
    EXPECT_FALSE(wm->focus(w));
    EXPECT_TRUE(logs->contains("focus: no running app for bundle=a.tasks"));
}

}  // namespace
}  // namespace zelk::testing
