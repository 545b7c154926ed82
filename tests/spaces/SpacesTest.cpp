#include "../windows/WindowsFixture.h"
#include "spaces/GestureRecord.h"

namespace zelk::testing {
namespace {

using spaces::fixedPoint;
using spaces::GestureFields;
using spaces::rewriteGestureData;

TEST(GestureRecord, FixedPointNeverTurnsATinyValueIntoNothing) {
    EXPECT_EQ(fixedPoint(0.0), 0);
    EXPECT_EQ(fixedPoint(1e-6), 1);
    EXPECT_EQ(fixedPoint(-1e-6), -1);
    EXPECT_EQ(fixedPoint(1.0), 65536);
    EXPECT_EQ(fixedPoint(-0.02), -1310);  // -1310.72 truncated toward zero
}

std::vector<std::uint8_t> le(std::uint64_t v, int n) {
    std::vector<std::uint8_t> out;
    for (int i = 0; i < n; ++i)
        out.push_back(static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF));
    return out;
}

TEST(GestureRecord, BeginRecordIsByteExactWithoutTail) {
    GestureFields f;
    f.phase = 1;
    f.motion = 1;
    f.progress = 0.02;
    f.progressCopy = 0.02;
    f.field126 = 0.001;
    f.field115 = 4;
    f.timestamp = 0x1122334455667788ULL;
    std::vector<std::uint8_t> source{9, 8, 7, 6};
    auto out = rewriteGestureData(source, f);
    ASSERT_TRUE(out);
    std::vector<std::uint8_t> want{9, 8, 7, 6, 0x00, 0x44, 0x10, 0x6D};
    auto add = [&](std::vector<std::uint8_t> b) { want.insert(want.end(), b.begin(), b.end()); };
    add(le(0x1122334455667788ULL, 8));
    add(le(0x0000000100003416ULL, 8));
    add(le(0, 4));
    add(le(0, 4));
    add(le(1, 4));
    add(le(40, 4));
    add(le(23, 4));
    add(le(1u << 24, 4));
    add({0, 0, 0, 0});
    add(le(1310, 4));  // fixed(0.02)
    add(le(65, 4));    // fixed(0.001)
    add(le(0, 4));
    add(le(4, 4));
    add(le(1, 2));
    add(le(3, 2));
    add(le(1310, 4));
    EXPECT_EQ(*out, want);
    EXPECT_EQ(out->size() - 8, 0x44u);  // the header's count is the payload
}

TEST(GestureRecord, EndRecordCarriesTheTailAndOldGestureRecordsGo) {
    // Opening bytes, a kept record (tag 7, one 8-byte value), an old gesture record (tag 4205, 4 bytes).
    std::vector<std::uint8_t> source{1, 2, 3, 4, 0x00, 0x01, 0x00, 0x07, 1, 1, 1, 1,
                                     1, 1, 1, 1, 0x00, 0x04, 0x10, 0x6D, 5, 5, 5, 5};
    GestureFields f;
    f.phase = 4;
    f.motion = 1;
    f.progress = -0.001;
    f.velocity = -1000;
    f.velocityAcross = -1000;
    auto out = rewriteGestureData(source, f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->size(), 4u + 12u + 4u + 0x60u);
    EXPECT_TRUE(std::equal(source.begin(), source.begin() + 16, out->begin()));
    std::size_t rec = 16;
    EXPECT_EQ((*out)[rec + 1], 0x60);
    std::size_t tail = rec + 4 + 68;
    EXPECT_EQ(std::vector<std::uint8_t>(out->begin() + tail, out->begin() + tail + 16),
              (std::vector<std::uint8_t>{28, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(std::vector<std::uint8_t>(out->begin() + tail + 16, out->begin() + tail + 20),
              le(static_cast<std::uint32_t>(-65536000), 4));
    EXPECT_EQ(rewriteGestureData({1, 2, 3}, f), std::nullopt);
}

struct SpacesFixture : WindowsFixture {};

TEST_F(SpacesFixture, JumpsWithinPointEightSecondsCountFromThePredictedTarget) {
    std::string yaml = std::string("spaceSwitchLatencyMs: 300\n") + kThreeSpaces;
    startWith(yaml);
    auto& ws = desktop.windowServer();
    std::string display = world().displays()[0].uuid;
    EXPECT_TRUE(iss->switchToSpace(1, display));
    runFor(100);
    // Still sliding: the live index is 0, the prediction 1, so one more step right reaches 2.
    EXPECT_TRUE(iss->switchToSpace(2, display));
    EXPECT_TRUE(logs->contains("switchToSpace: source=1 (live=0) to=2 steps=1 direction=right display=" +
                               display + " loc=(720, 450) overlay=none"));
    runFor(600);
    EXPECT_EQ(world().activeSpace(), 3u);
    EXPECT_EQ(ws.postedEvents().size(), 4u);
    // After the landing and 0.8 s, the live index rules again.
    runFor(900);
    EXPECT_TRUE(iss->switchToSpace(0, display));
    EXPECT_TRUE(logs->contains("switchToSpace: source=2 (live=2) to=0 steps=2 direction=left display=" +
                               display + " loc=(720, 450) overlay=none"));
}

TEST_F(SpacesFixture, AStalePredictionIsDiscardedWhenTheSpaceCountChanges) {
    std::string yaml = std::string("spaceSwitchLatencyMs: 300\n") + kThreeSpaces;
    startWith(yaml);
    auto info = iss->spaceInfo(std::string(""));
    ASSERT_TRUE(info);
    iss->model().predict(info->displayIdentifier, 2, 4);  // made when there were four Spaces
    EXPECT_EQ(iss->currentIndex(*info), 0);
    iss->model().predict(info->displayIdentifier, 2, 3);
    EXPECT_EQ(iss->currentIndex(*info), 2);
    runFor(801);
    EXPECT_EQ(iss->currentIndex(*info), 0);
}

TEST_F(SpacesFixture, BoundsSameIndexAndAppExposeRefusal) {
    startWith(kThreeSpaces);
    std::string display = world().displays()[0].uuid;
    EXPECT_TRUE(iss->switchToSpace(0, display));
    EXPECT_TRUE(logs->contains("switchToSpace: already at index 0; no-op"));
    EXPECT_FALSE(iss->switchToSpace(3, display));
    EXPECT_TRUE(logs->contains("switchToSpace: target index=3 out of bounds [0..<3)"));
    world().setOverlay(sim::Overlay::appExpose);
    EXPECT_FALSE(iss->switchToSpace(1, display));
    EXPECT_TRUE(logs->contains("switchToSpace: App Exposé active, skipping synthetic swipe"));
    EXPECT_TRUE(desktop.windowServer().postedEvents().empty());
}

TEST_F(SpacesFixture, UnderMissionControlTheOverlayFormIsPostedStepByStep) {
    startWith(kThreeSpaces);
    world().setOverlay(sim::Overlay::missionControl);
    EXPECT_EQ(iss->overlayState(), spaces::OverlayState::missionControl);
    EXPECT_TRUE(iss->switchToSpace(2, world().displays()[0].uuid));
    auto& posted = desktop.windowServer().postedEvents();
    ASSERT_EQ(posted.size(), 14u);  // seven events per step
    EXPECT_EQ(posted[0].integers.at(55), 29);
    EXPECT_EQ(posted[1].integers.at(132), 1);
    EXPECT_EQ(posted[1].integers.at(135), 1);
    EXPECT_DOUBLE_EQ(posted[3].doubles.at(124), 0.5);
    EXPECT_DOUBLE_EQ(posted[6].doubles.at(124), 1.05);
    EXPECT_EQ(world().activeSpace(), 3u);
}

TEST_F(SpacesFixture, TheNewestFormCarriesAGestureRecordAndPausesBetweenSteps) {
    std::string yaml = std::string("osMajorVersion: 27\n") + kThreeSpaces;
    startWith(yaml);
    auto before = clock->now();
    EXPECT_TRUE(iss->switchToSpace(2, world().displays()[0].uuid));
    EXPECT_EQ(clock->now() - before, ferrow::ms(20));  // one pause between two steps, none after
    auto& posted = desktop.windowServer().postedEvents();
    ASSERT_EQ(posted.size(), 4u);
    for (std::size_t i = 0; i < posted.size(); ++i) {
        const auto& data = posted[i].data;
        ASSERT_GE(data.size(), 0x48u);
        std::size_t rec = data.size() - (i % 2 == 0 ? 0x48 : 0x64);
        EXPECT_EQ(data[rec + 1], i % 2 == 0 ? 0x44 : 0x60);
        EXPECT_EQ(data[rec + 3], 0x6D);
    }
    EXPECT_DOUBLE_EQ(posted[0].doubles.at(124), -0.02);  // right is negative in this form
    EXPECT_EQ(world().activeSpace(), 3u);
    world().faults.eventDataFails = true;
    EXPECT_FALSE(iss->switchToSpace(0, world().displays()[0].uuid));
    EXPECT_TRUE(logs->contains("postDockSwipe27: serializeGestureEvent failed (phase=1)"));
}

TEST_F(SpacesFixture, IntermediateSpacesOfACrossSpaceFocusLeaveThePreviousSpaceAlone) {
    startWith(kThreeSpaces);
    auto& tracker = wm->spaceTracker();
    tracker.pendingCrossSpaceFocus() = spaces::PendingCrossSpaceFocus{3, 1, clock->now()};
    world().switchSpace(0, 2, false);
    tracker.activeSpaceDidChange();
    EXPECT_EQ(tracker.currentSpaceID(), 2u);
    EXPECT_EQ(tracker.previousSpaceID(), std::nullopt);
    world().switchSpace(0, 3, false);
    tracker.activeSpaceDidChange();
    EXPECT_EQ(tracker.currentSpaceID(), 3u);
    EXPECT_EQ(tracker.previousSpaceID(), std::optional<std::uint64_t>(1));
    EXPECT_FALSE(tracker.pendingCrossSpaceFocus());
    // A plain change: the Space left becomes the previous one.
    world().switchSpace(0, 2, false);
    tracker.activeSpaceDidChange();
    EXPECT_EQ(tracker.previousSpaceID(), std::optional<std::uint64_t>(3));
}

TEST_F(SpacesFixture, MissionControlRollsBackATransientChangeAndReconcilesOnExit) {
    std::string yaml = std::string("dock: true\n") + kThreeSpaces;
    startWith(yaml);
    EXPECT_TRUE(logs->contains("MC observer: attached to Dock pid=90"));
    auto& tracker = wm->spaceTracker();
    // A change 0.2 s before the overlay opens was caused by the opening: undone.
    world().switchSpace(0, 2, false);
    runFor(200);
    ASSERT_EQ(tracker.currentSpaceID(), 2u);
    world().setOverlay(sim::Overlay::missionControl);
    runFor(1);
    EXPECT_TRUE(tracker.missionControlActive());
    EXPECT_EQ(tracker.currentSpaceID(), 1u);
    EXPECT_TRUE(logs->contains("MC enter: rolled back transient space change → currentSpaceID=1"));
    // While it shows, Space reports are held.
    world().switchSpace(0, 3, false);
    runFor(1);
    EXPECT_EQ(tracker.currentSpaceID(), 1u);
    // Leaving on another Space: the snapshot's Space becomes the previous one; the settle comes 0.6 s later.
    world().setOverlay(sim::Overlay::none);
    runFor(1);
    EXPECT_EQ(tracker.currentSpaceID(), 3u);
    EXPECT_EQ(tracker.previousSpaceID(), std::optional<std::uint64_t>(1));
    EXPECT_TRUE(logs->contains("MC exit: Space switched 1 → 3 (settle 0.6s)"));
    runFor(500);
    // Re-entering within the settle cancels it: the flag never drops.
    world().setOverlay(sim::Overlay::missionControl);
    runFor(200);
    EXPECT_TRUE(tracker.missionControlActive());
    world().setOverlay(sim::Overlay::none);
    runFor(1);
    EXPECT_TRUE(logs->contains("MC exit: no Space change, restored snapshot currentSpaceID=3 (settle 0.6s)"));
    EXPECT_EQ(tracker.previousSpaceID(), std::optional<std::uint64_t>(1));
    runFor(598);  // 0.599 s after the exit
    EXPECT_TRUE(tracker.missionControlActive());
    runFor(1);
    EXPECT_FALSE(tracker.missionControlActive());
    EXPECT_TRUE(logs->contains("MC settle: cleared missionControlActive, resolving focused window"));
}

TEST_F(SpacesFixture, AChangeWellBeforeMissionControlStands) {
    std::string yaml = std::string("dock: true\n") + kThreeSpaces;
    startWith(yaml);
    world().switchSpace(0, 2, false);
    runFor(400);
    world().setOverlay(sim::Overlay::missionControl);
    runFor(1);
    EXPECT_EQ(wm->spaceTracker().currentSpaceID(), 2u);
    EXPECT_TRUE(logs->contains("MC enter: snapshot currentSpaceID=2 previousSpaceID=1"));
}

TEST_F(SpacesFixture, SpaceNumbersCountUserSpacesOnly) {
    std::string yaml = kThreeSpaces;
    yaml.replace(yaml.find("{id: 2}"), 7, "{id: 2, fullscreen: true}");
    startWith(yaml);
    EXPECT_TRUE(wm->switchToSpaceNumber(2));  // the second user Space is id 3, at index 2
    runFor(10);
    EXPECT_EQ(world().activeSpace(), 3u);
    EXPECT_FALSE(wm->switchToSpaceNumber(3));
    auto infos = wm->spacesByDisplay();
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_EQ(infos[0].spaceCount, 3);
    EXPECT_EQ(infos[0].currentIndex, 2);
}

}  // namespace
}  // namespace zelk::testing
