#include "../windows/WindowsFixture.h"
#include "companions/PointerFollower.h"

namespace zelk::testing {
namespace {

using companions::PointerFollower;
using K = sim::WorldChange::Kind;

// Two displays side by side, one Space each in view. Safari has a window on each display, Mail one on
// the first; Safari is in front.
const char* kTwoDisplays = R"(
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}], currentSpace: 1}
  - {id: 2, frame: [1440, 0, 1920, 1080], spaces: [{id: 101}, {id: 102}], currentSpace: 101}
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Front page", frame: [100, 100, 800, 600], space: 1}
        - {id: 12, title: "Docs", frame: [1540, 100, 1000, 800], space: 101}
  - bundleID: a.mail
    name: Mail
    running:
      pid: 102
      windows:
        - {id: 21, title: "Inbox", frame: [200, 200, 400, 300], space: 1}
frontmost: a.safari
focusedWindow: 11
)";

constexpr Point kMiddleOfDisplay1{720, 450};
constexpr Point kMiddleOfDisplay2{2400, 540};

struct PointerFollowerTest : WindowsFixture {
    void SetUp() override {
        WindowsFixture::SetUp();
        PointerFollower::reset();
        startWith(kTwoDisplays);
        follower().setWindowSource(
            {[this] { return wm->windows(); }, [this] { return wm->focusedWindow(); }});
        Settings::shared().set(keys::moveCursorToFocusedApp, true);
        changes.clear();
    }
    void TearDown() override {
        PointerFollower::reset();
        WindowsFixture::TearDown();
    }
    PointerFollower& follower() { return PointerFollower::shared(); }
    Point pointer() { return world().pointer(); }
    // Moves the pointer as the user would, without counting it as a warp.
    void movePointer(Point to) {
        world().warpPointer(to);
        changes.clear();
    }
    std::vector<Point> warps() const {
        std::vector<Point> out;
        for (auto& c : changes)
            if (c.kind == K::pointer) out.push_back(c.point);
        return out;
    }
    void follow(const PointerFollower::Target& t) { follower().follow(t); }
};

TEST_F(PointerFollowerTest, WithTheSettingOffThePointerStaysPut) {
    Settings::shared().set(keys::moveCursorToFocusedApp, false);
    follow(PointerFollower::WindowTarget{12});
    EXPECT_FALSE(follower().warpPending());
    runFor(1000);
    EXPECT_TRUE(warps().empty());
}

TEST_F(PointerFollowerTest, AWindowTargetWarpsToTheMiddleOfTheWindowOnceTheDelayHasPassed) {
    follow(PointerFollower::WindowTarget{12});
    runFor(149);
    EXPECT_TRUE(warps().empty());
    runFor(1);
    EXPECT_EQ(warps(), (std::vector<Point>{{2040, 500}}));
    EXPECT_TRUE(logs->contains("PointerFollower: warp -> (2040.000000, 500.000000) target=window#12"));
    EXPECT_FALSE(follower().latestTarget());
    EXPECT_FALSE(follower().warpPending());
    runFor(1000);
    EXPECT_EQ(warps().size(), 1u);
}

TEST_F(PointerFollowerTest, TwoTargetsWithinTheDelayWarpOnceToTheSecond) {
    follow(PointerFollower::WindowTarget{11});
    runFor(100);
    follow(PointerFollower::DisplayTarget{2});
    // The first target's time passes without a warp; the second counts from its own arrival.
    runFor(149);
    EXPECT_TRUE(warps().empty());
    runFor(1);
    EXPECT_EQ(warps(), (std::vector<Point>{kMiddleOfDisplay2}));
    runFor(1000);
    EXPECT_EQ(warps().size(), 1u);
}

TEST_F(PointerFollowerTest, AMouseInitiatedFocusKeepsEveryWarpAwayFor1500ms) {
    movePointer({2000, 500});
    follower().noteMouseInitiatedFocus();
    follow(PointerFollower::WindowTarget{11});
    EXPECT_TRUE(logs->contains("PointerFollower: skip warp, mouse-initiated focus"));
    EXPECT_FALSE(follower().latestTarget());
    runFor(1499);
    follow(PointerFollower::AppTarget{102});
    EXPECT_EQ(logs->count("PointerFollower: skip warp, mouse-initiated focus"), 2u);
    runFor(1);
    EXPECT_TRUE(warps().empty());
    // Once the quiet time is over, focuses warp again.
    follow(PointerFollower::DisplayTarget{1});
    runFor(150);
    EXPECT_EQ(warps(), (std::vector<Point>{kMiddleOfDisplay1}));
}

TEST_F(PointerFollowerTest, APressedButtonAtWarpTimeDropsTheWarpForGood) {
    follow(PointerFollower::WindowTarget{12});
    runFor(100);
    desktop.pointer().buttons = 1;
    runFor(50);
    EXPECT_TRUE(logs->contains("PointerFollower: skip warp, mouse buttons pressed bits=1"));
    EXPECT_FALSE(follower().latestTarget());
    desktop.pointer().buttons = 0;
    runFor(2000);
    EXPECT_TRUE(warps().empty());
    // A button released before the warp fires doesn't stop it.
    follow(PointerFollower::WindowTarget{12});
    desktop.pointer().buttons = 2;
    runFor(100);
    desktop.pointer().buttons = 0;
    runFor(50);
    EXPECT_EQ(warps(), (std::vector<Point>{{2040, 500}}));
}

TEST_F(PointerFollowerTest, AWindowThatLeftNoBoundsSendsThePointerToTheMiddleOfTheDisplayUnderIt) {
    movePointer({3000, 900});
    follow(PointerFollower::WindowTarget{11});
    ASSERT_TRUE(world().closeWindow(11));
    runFor(150);
    EXPECT_EQ(warps(), (std::vector<Point>{kMiddleOfDisplay2}));
    EXPECT_TRUE(logs->contains("PointerFollower: warp -> (2400.000000, 540.000000) target=window#11"));
    // A number nobody knows goes the same way.
    movePointer({10, 10});
    follow(PointerFollower::WindowTarget{999});
    runFor(150);
    EXPECT_EQ(warps(), (std::vector<Point>{kMiddleOfDisplay1}));
}

TEST_F(PointerFollowerTest, AnAppTargetUsesTheFocusedWindowThenTheMainWindowThenTheDisplayUnderThePointer) {
    // Safari owns the focused window.
    follow(PointerFollower::AppTarget{101});
    runFor(150);
    // Mail's main window, read through accessibility.
    follow(PointerFollower::AppTarget{102});
    runFor(150);
    EXPECT_EQ(warps(), (std::vector<Point>{{500, 400}, {400, 350}}));
    // A quit app has no point of its own.
    movePointer({3000, 900});
    ASSERT_TRUE(world().terminate(102));
    follow(PointerFollower::AppTarget{102});
    runFor(150);
    EXPECT_EQ(warps(), (std::vector<Point>{kMiddleOfDisplay2}));
}

TEST_F(PointerFollowerTest, ADisplayTargetGoesToThatDisplaysMiddleAndAnUnknownDisplayIsSkipped) {
    follow(PointerFollower::DisplayTarget{2});
    runFor(150);
    EXPECT_EQ(warps(), (std::vector<Point>{kMiddleOfDisplay2}));
    // No fallback for a display: the pointer stays where it is.
    follow(PointerFollower::DisplayTarget{9});
    runFor(150);
    EXPECT_EQ(warps().size(), 1u);
    EXPECT_TRUE(logs->contains("PointerFollower: skip warp, could not resolve point for target=display#9"));
    EXPECT_FALSE(follower().latestTarget());
    // Nor when the pointer is off every display.
    movePointer({-500, -500});
    follow(PointerFollower::WindowTarget{999});
    runFor(150);
    EXPECT_TRUE(warps().empty());
    EXPECT_TRUE(logs->contains("PointerFollower: skip warp, could not resolve point for target=window#999"));
}

}  // namespace
}  // namespace zelk::testing
