#include "platform/sim/SimFixture.h"
#include "spaces/MissionControlDriver.h"
#include "support/Format.h"
#include "support/Log.h"

using namespace zelk;
using namespace zelk::testing;
using spaces::MissionControlDragSpec;
using spaces::MissionControlDriver;

namespace {

// Two Notes windows share a title; Mail's window is alone; three Spaces on one display.
const char* kWorld = R"(
dock: true
displays:
  - {id: 1, frame: [0, 0, 1440, 900], spaces: [{id: 1}, {id: 2}, {id: 3}], currentSpace: 1}
apps:
  - bundleID: com.apple.Notes
    name: Notes
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Draft", space: 1}
        - {id: 1002, title: "Draft", space: 1}
  - bundleID: com.apple.mail
    name: Mail
    running: {pid: 102, windows: [{id: 1011, title: "Inbox", space: 1}]}
frontmost: com.apple.Notes
focusedWindow: 1001
)";

ferrow::Task<void> into(ferrow::Task<bool> task, std::shared_ptr<std::optional<bool>> out) {
    *out = co_await task;
}

struct MissionControlDriverTest : SimFixture {
    std::unique_ptr<MissionControlDriver> driver;
    ferrow::LogCapture logs;
    void SetUp() override {
        ferrow::Log::setConsole(false);
        load(kWorld);
        MissionControlDriver::Environment env;
        auto p = desktop.platform();
        env.ax = p.accessibility;
        env.server = p.windowServer;
        env.workspace = p.workspace;
        env.mouse = p.mouse;
        env.screens = p.screens;
        env.overlayShown = [this] { return world().overlay() == sim::Overlay::missionControl; };
        env.activeDisplayFrame = [this]() -> std::optional<Rect> { return world().displays()[0].frame; };
        driver = std::make_unique<MissionControlDriver>(env);
    }
    std::optional<bool> run(ferrow::Task<bool> task) {
        auto out = std::make_shared<std::optional<bool>>();
        ferrow::spawn(into(std::move(task), out));
        runFor(5000);
        return *out;
    }
    void openOverlay() { world().setOverlay(sim::Overlay::missionControl); }
    sim::SimMissionControl& mc() { return desktop.missionControl(); }
};

Rect thumbnailOf(sim::SimMissionControl& mc, std::uint32_t id) {
    for (auto& [tid, frame] : mc.thumbnails())
        if (tid == id) return frame;
    return {};
}

}  // namespace

TEST_F(MissionControlDriverTest, TheTreeHangsFromTheDockOnlyWhileTheOverlayShows) {
    EXPECT_FALSE(driver->overlayRoot());
    openOverlay();
    ASSERT_TRUE(driver->overlayRoot());
}

TEST_F(MissionControlDriverTest, SpacesBarButtonsComeInTheOrderOfTheirPlaceNotOfTheList) {
    openOverlay();
    auto frames = driver->spacesBarButtonFrames(*driver->overlayRoot());
    EXPECT_EQ(frames, mc().buttonFrames()) << "the sim lists them last to first";
    mc().options.spacesBar = false;
    EXPECT_TRUE(driver->spacesBarButtonFrames(*driver->overlayRoot()).empty());
    EXPECT_TRUE(
        logs.contains("spacesBarButtonFrames: 'Spaces Bar' element not found in Mission Control AX tree"));
}

TEST_F(MissionControlDriverTest, TwoThumbnailsWithOneTitleAreToldApartByTheWindowID) {
    openOverlay();
    auto root = *driver->overlayRoot();
    auto second = driver->findMissionControlThumbnail(root, {"Draft", 1002u, ""});
    ASSERT_TRUE(second);
    EXPECT_EQ(*second, thumbnailOf(mc(), 1002));
    auto first = driver->findMissionControlThumbnail(root, {"Draft", 1001u, ""});
    EXPECT_EQ(*first, thumbnailOf(mc(), 1001));
    EXPECT_TRUE(logs.contains(
        "findMissionControlThumbnail: 2 candidates for title='Draft', disambiguating by windowID=1001"));
    // The Dock's own items are never thumbnails, though "Mail" would match the app's dock item.
    EXPECT_FALSE(driver->findMissionControlThumbnail(root, {"Mail", std::nullopt, ""}));
}

TEST_F(MissionControlDriverTest, ASpecWithoutThumbnailIsSkippedAndTheOthersAreDragged) {
    auto ok = run(driver->missionControlDrag({{"Nowhere", 9999u, ""}, {"Inbox", 1011u, ""}}, 2, false));
    ASSERT_TRUE(ok);
    EXPECT_TRUE(*ok);
    EXPECT_EQ(world().window(1011)->space, 3u);
    EXPECT_EQ(world().overlay(), sim::Overlay::none) << "closed with the toggle";
    EXPECT_TRUE(logs.contains("MC drag: thumbnail not found for title='Nowhere' (skipping)"));
    // The drop lands at 0.55 of the button's height.
    auto target = mc().buttonFrames()[2];
    EXPECT_TRUE(logs.containsSubstring("MC drag: dropPoint=(" + ferrow::decimal(target.midX()) + ", " +
                                       ferrow::decimal(target.y + target.height * 0.55) + ")"));
}

TEST_F(MissionControlDriverTest, AMissingTargetButtonAbortsTheBatchAndClosesTheOverlay) {
    auto ok = run(driver->missionControlDrag({{"Inbox", 1011u, ""}}, 7, false));
    ASSERT_TRUE(ok);
    EXPECT_FALSE(*ok);
    EXPECT_EQ(world().window(1011)->space, 1u);
    EXPECT_EQ(world().overlay(), sim::Overlay::none);
    EXPECT_TRUE(logs.contains("MC drag: spaces bar button at index=7 not found, aborting batch"));
}

TEST_F(MissionControlDriverTest, FollowingEndsTheOverlayOnTheTargetSpace) {
    auto ok = run(driver->missionControlDrag({{"Inbox", 1011u, ""}}, 1, true));
    ASSERT_TRUE(ok && *ok);
    EXPECT_EQ(world().window(1011)->space, 2u);
    EXPECT_EQ(world().activeSpace(), 2u);
    EXPECT_EQ(world().overlay(), sim::Overlay::none);
}

TEST_F(MissionControlDriverTest, PlusAddsASpaceOnlyWhenItShowsAndTheOverlayAlwaysCloses) {
    auto ok = run(driver->createNewSpaceViaMissionControl());
    ASSERT_TRUE(ok && *ok);
    EXPECT_EQ(world().displays()[0].spaces.size(), 4u);
    EXPECT_EQ(world().overlay(), sim::Overlay::none);
    EXPECT_NE(mc().find("add space="), std::string::npos);

    mc().options.addButton = false;
    ok = run(driver->createNewSpaceViaMissionControl());
    ASSERT_TRUE(ok);
    EXPECT_FALSE(*ok);
    EXPECT_EQ(world().displays()[0].spaces.size(), 4u);
    EXPECT_EQ(world().overlay(), sim::Overlay::none);
}
