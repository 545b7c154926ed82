// The panel's gates on the whole agent: the onboarding flow's state, and what a hide leaves behind
// (a walk through a shared window key hands its order to the key's rows).
#include <gtest/gtest.h>

#include "Subsystems.h"
#include "apps/AppManager.h"
#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/AgentFixture.h"
#include "input/OSDController.h"

namespace zelk::testing {
namespace {

struct OSDGates : AgentFixture {
    osd::OSDController& panel() { return agent->panel(); }
    bool visible() { return panel().model().visibility.visible(); }
    Onboarding& onboarding() { return AppDelegate::shared()->onboarding(); }
    // The window trigger's panel, which shows at once by default.
    bool windowPanelShowsOnHold() {
        hold({"ralt"});
        runFor(300);
        const bool shown = visible();
        hold({});
        runFor(0);
        return shown;
    }
    bool latchedSearchShows() {
        panel().toggleLatchedSearch("app");
        runFor(300);
        const bool shown = visible();
        input().unlatch();
        runFor(0);
        return shown;
    }
};

TEST_F(OSDGates, OnboardingUpToItsPermissionStepLetsOnlyASearchOrACycleShow) {
    start(kBasicWorld);
    ASSERT_TRUE(windowPanelShowsOnHold());
    for (auto step : {OnboardingState::welcome, OnboardingState::requestPermissions}) {
        onboarding().moveTo(step);
        EXPECT_FALSE(windowPanelShowsOnHold());
        EXPECT_TRUE(latchedSearchShows());
    }
    // Beyond the permission step nothing shows, a search included.
    onboarding().moveTo(OnboardingState::tryIt);
    EXPECT_FALSE(windowPanelShowsOnHold());
    EXPECT_FALSE(latchedSearchShows());
    onboarding().close();
    EXPECT_TRUE(windowPanelShowsOnHold());
    EXPECT_TRUE(latchedSearchShows());
}

TEST_F(OSDGates, OpeningOnboardingRecordsTheVersionItWasShownFor) {
    start(kBasicWorld);
    EXPECT_TRUE(onboarding().due());
    EXPECT_FALSE(onboarding().isOpen());
    onboarding().open();
    EXPECT_EQ(Settings::shared().get(keys::onboardingShownForVersion), Onboarding::kVersion);
    EXPECT_FALSE(onboarding().due());
}

const char* kSharedKeyWorld = R"(
apps:
  - bundleID: com.apple.Safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple — Docs", frame: [0, 25, 1200, 800], space: 1}
        - {id: 1002, title: "Apple — Blog", frame: [20, 45, 1200, 800], space: 1}
        - {id: 1003, title: "Work — Drafts", frame: [40, 65, 1200, 800], space: 1}
frontmost: com.apple.Safari
focusedWindow: 1001
)";

std::vector<std::uint32_t> rowsOfKey(agent::Agent& agent, const std::string& key) {
    std::vector<std::uint32_t> ids;
    auto byKey = agent.subsystems().apps().focusedAppWindowsByKey();
    for (const auto& row : byKey[key])
        ids.push_back(row.id);
    return ids;
}

TEST_F(OSDGates, AHideHandsAWindowKeyWalkItsOrder) {
    start(kSharedKeyWorld);
    ASSERT_EQ(rowsOfKey(*agent, "d"), (std::vector<std::uint32_t>{1001, 1003}));
    hold({"ralt"});
    runFor(100);
    press(Key::d);
    runFor(100);
    // The walk went on from the focused window to 1003: the key's rows now read last shown first.
    panel().hideOSD(true);
    EXPECT_EQ(rowsOfKey(*agent, "d"), (std::vector<std::uint32_t>{1003, 1001}));
    hold({});
    runFor(100);
    EXPECT_EQ(rowsOfKey(*agent, "d"), (std::vector<std::uint32_t>{1003, 1001}));
    // A new hold walks on from the focused window in that order.
    hold({"ralt"});
    runFor(100);
    press(Key::d);
    runFor(100);
    hold({});
    runFor(100);
    EXPECT_EQ(rowsOfKey(*agent, "d"), (std::vector<std::uint32_t>{1001, 1003}));
}

}  // namespace
}  // namespace zelk::testing
