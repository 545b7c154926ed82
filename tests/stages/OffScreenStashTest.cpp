#include <gtest/gtest.h>

#include "stages/OffScreenStash.h"
#include "windows/WindowsFixture.h"

using namespace zelk;
using namespace zelk::stages;

namespace {

struct Stash : zelk::testing::WindowsFixture {
    std::unique_ptr<OffScreenStash> stash;
    void start() {
        startWith(zelk::testing::kThreeSpaces);
        OffScreenStash::Sources s;
        s.platform = desktop.platform();
        s.settings = &Settings::shared();
        s.windows = [this] { return wm->windows(); };
        stash = std::make_unique<OffScreenStash>(s);
    }
    void TearDown() override {
        stash.reset();
        WindowsFixture::TearDown();
    }
    Rect frame(std::uint32_t id) { return world().window(id)->frame; }
};

}  // namespace

TEST_F(Stash, ParksPastTheCornerAndRestoresTheFrameExactly) {
    start();
    ASSERT_TRUE(stash->moveWindowOffScreen(*tracked(11)));
    // 0 + 1440 + 1000 - 5, 0 + 900 + 700 - 5; the size stays.
    EXPECT_EQ(frame(11), (Rect{2435, 1595, 1000, 700}));
    // A second move keeps the first rectangle.
    ASSERT_TRUE(stash->moveWindowOffScreen(*tracked(11)));
    EXPECT_EQ(stash->windowsMovedOffScreen().at(11), (StashedWindowRecord{11, "a.safari", 0, 25, 1000, 700}));
    ASSERT_TRUE(stash->restoreWindowFromOffScreen(11));
    EXPECT_EQ(frame(11), (Rect{0, 25, 1000, 700}));
    EXPECT_FALSE(stash->isStashed(11));
    EXPECT_FALSE(stash->restoreWindowFromOffScreen(11));
    EXPECT_TRUE(logs->contains("Attempting to move window 11 'Front page' off-screen"));
}

TEST_F(Stash, OnlyAWindowOnScreenCanBeParked) {
    start();
    EXPECT_FALSE(stash->moveWindowOffScreen(*tracked(12)));  // on Space 2
    EXPECT_TRUE(stash->windowsMovedOffScreen().empty());
}

TEST_F(Stash, RecordsPersistAfterTheDebounceAndStaleOnesAreDroppedAtReconcile) {
    start();
    ASSERT_TRUE(stash->moveWindowOffScreen(*tracked(11)));
    ASSERT_TRUE(stash->moveWindowOffScreen(*tracked(21)));
    runFor(1400);
    EXPECT_TRUE(Settings::shared().get(keys::stashedOffScreenWindows).empty());
    runFor(200);
    EXPECT_EQ(Settings::shared().get(keys::stashedOffScreenWindows).size(), 2u);
    // After a restart the records come back; a window that is gone by then is dropped.
    auto stored = Settings::shared().get(keys::stashedOffScreenWindows);
    stored.push_back(toJson(StashedWindowRecord{99, "a.safari", 1, 2, 3, 4}));
    Settings::shared().set(keys::stashedOffScreenWindows, stored);
    stash->load();
    ASSERT_EQ(stash->windowsMovedOffScreen().size(), 3u);
    stash->reconcilePersistedStashes();
    EXPECT_EQ(stash->windowsMovedOffScreen().size(), 2u);
    EXPECT_TRUE(logs->contains("reconcilePersistedStashes: dropping stale stash for window 99 (a.safari)"));
    stash->restoreAllOffScreenWindows();
    EXPECT_EQ(frame(21), (Rect{100, 100, 900, 600}));
    runFor(1500);
    EXPECT_TRUE(Settings::shared().get(keys::stashedOffScreenWindows).empty());
}
