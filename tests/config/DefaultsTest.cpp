#include <gtest/gtest.h>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "input/InputManager.h"
#include "platform/SettingsStore.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk {
namespace {

// What a user who never opened the settings gets. Every other test sets what it relies on, so a
// changed default would go unnoticed without these: the values are written out here on purpose,
// not taken from the catalogue.
struct DefaultsTest : ::testing::Test {
    platform::MemorySettingsStore store;  // nothing stored
    Settings settings{store};
};

TEST_F(DefaultsTest, TriggersAndActivation) {
    using TK = TriggerKey;
    EXPECT_EQ(settings.get(keys::triggerKeys), (TriggerKeyList{TK::rightCommand}));
    EXPECT_EQ(settings.get(keys::windowTriggerKeys), (TriggerKeyList{TK::ralt}));
    EXPECT_EQ(settings.get(keys::stageTriggerKeys), (TriggerKeyList{TK::capsLock}));
    EXPECT_EQ(settings.get(keys::assignKeyTriggerKeys), (TriggerKeyList{TK::rightCommand, TK::ralt}));
    EXPECT_EQ(settings.get(keys::hideOnFocusTriggerKeys), (TriggerKeyList{TK::rightCommand, TK::rshift}));
    EXPECT_EQ(settings.get(keys::activationMode), ActivationMode::adaptive);
    EXPECT_EQ(settings.get(keys::adaptiveFollowupGraceMs), 150);
    EXPECT_EQ(settings.get(keys::staticBreakoutThresholdMs), 0);
    EXPECT_FALSE(settings.get(keys::focusOnKeyUp));
    EXPECT_TRUE(settings.get(keys::capsLockTapToggles));
    EXPECT_EQ(settings.get(keys::whenAlreadyFocusedAction), WhenAlreadyFocusedAction::hide);
}

TEST_F(DefaultsTest, PanelsAndTheirDelays) {
    EXPECT_EQ(settings.get(keys::windowSwitchOSDDelay), 150);
    EXPECT_EQ(settings.get(keys::windowOnlySwitchOSDDelay), 0);
    EXPECT_EQ(settings.get(keys::stageSwitchOSDDelay), 80);
    EXPECT_FALSE(settings.get(keys::showAppSwitcher));
    EXPECT_EQ(settings.get(keys::switcherMode), SwitcherMode::launcher);
    EXPECT_TRUE(settings.get(keys::doubleTapSearchOpenWindows));
    EXPECT_EQ(settings.get(keys::searchMatchMode), SearchMatchMode::anchored);
    EXPECT_EQ(settings.get(keys::appSort), AppSort::name);
}

TEST_F(DefaultsTest, SpecialKeysCyclesAndSpaces) {
    EXPECT_EQ(settings.get(keys::minimizeKey), Key::minus);
    EXPECT_EQ(settings.get(keys::specialKey), Key::equal);
    EXPECT_EQ(settings.get(keys::exposeKey), Key::period);
    EXPECT_TRUE(settings.get(keys::enableTabCycle));
    EXPECT_EQ(settings.get(keys::tabCycleScope), TabCycleScope::auto_);
    EXPECT_EQ(settings.get(keys::windowCycleKey), Key::grave);
    EXPECT_TRUE(settings.get(keys::hijackWindowCycleHotkey));
    EXPECT_FALSE(settings.get(keys::hijackCommandTab));
    EXPECT_FALSE(settings.get(keys::stickyAppSwitcher));
    EXPECT_EQ(settings.get(keys::spaceMode), SpaceMode::single);
    EXPECT_EQ(settings.get(keys::focusBehaviour), FocusBehaviour::sameSpaceWindow);
}

// The key path's own snapshot, read from an empty store: what routing really uses.
struct KeyPathDefaultsTest : testing::SimFixture {};

TEST_F(KeyPathDefaultsTest, TheRouterStartsFromTheSameDefaults) {
    ferrow::Log::setConsole(false);
    load("apps: []\n");
    auto& input = InputManager::shared();
    input.reloadSettings();
    const auto& s = input.settings();
    EXPECT_EQ(s.triggerKeys, (std::vector<TriggerKey>{TriggerKey::rightCommand}));
    EXPECT_EQ(s.windowTriggerKeys, (std::vector<TriggerKey>{TriggerKey::ralt}));
    EXPECT_EQ(s.stageTriggerKeys, (std::vector<TriggerKey>{TriggerKey::capsLock}));
    EXPECT_EQ(s.activationMode, ActivationMode::adaptive);
    EXPECT_EQ(s.adaptiveFollowupGraceMs, 150);
    EXPECT_EQ(s.windowSwitchOSDDelay, 150);
    EXPECT_EQ(s.whenAlreadyFocusedAction, 0);  // hide
    EXPECT_EQ(s.hideKey, Key::minus);
    EXPECT_EQ(s.windowCycleKey, Key::grave);
    EXPECT_TRUE(s.hijackWindowCycleHotkey);
    EXPECT_FALSE(s.hijackCommandTab);
    InputManager::reset();
}

}  // namespace
}  // namespace zelk
