#include "config/Settings.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "config/Setting.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"
#include "platform/JsonFileSettingsStore.h"
#include "platform/Platform.h"

namespace zelk {
namespace {
using nlohmann::json;
using platform::JsonFileSettingsStore;
using platform::MemorySettingsStore;

class SettingsTest : public testing::SettingsTestBase {
  protected:
    MemorySettingsStore store;
    Settings settings{store};
};

// Writes one non-default value per key and remembers how to check it.
class EveryKey {
  public:
    explicit EveryKey(Settings& writer) : writer_(writer) {}

    template <typename T>
    void put(const SettingKey<T>& key, T value) {
        EXPECT_FALSE(SettingCodec<T>::same(value, writer_.defaultOf(key)))
            << key.name << " sample is the default";
        writer_.set(key, value);
        EXPECT_TRUE(names_.insert(key.name).second) << key.name << " twice";
        checks_.push_back([&key, value](Settings& reader) {
            EXPECT_TRUE(SettingCodec<T>::same(reader.get(key), value)) << key.name;
            EXPECT_TRUE(reader.isStored(key.name)) << key.name;
        });
    }
    void check(Settings& reader) const {
        for (auto& c : checks_)
            c(reader);
    }
    const std::set<std::string>& names() const { return names_; }

  private:
    Settings& writer_;
    std::set<std::string> names_;
    std::vector<std::function<void(Settings&)>> checks_;
};

void writeEveryKey(EveryKey& w) {
    namespace k = keys;
    using TK = TriggerKey;
    json app{{"identifier", "com.apple.Safari"}, {"path", "/Applications/Safari.app"}};
    json assignment{{"key", "s"},
                    {"app", app},
                    {"index", 0},
                    {"whenAlreadyFocusedAction", 3},
                    {"launchIfNotRunning", true}};
    w.put(k::stages, json::array({{{"key", "w"}, {"name", "Work"}}}));
    w.put(k::stashedOffScreenWindows, json::array({{{"windowID", 42}}}));
    w.put(k::ignoredApps, StringSet{"com.apple.finder", "com.x"});
    w.put(k::searchQueryAppSelections,
          std::map<std::string, SearchSelection>{{"sa", {"com.apple.Safari", 3, 1.7e9}}});
    w.put(k::searchQueryPins, std::map<std::string, std::string>{{"te", "com.apple.Terminal"}});
    w.put(k::pauseApps, StringSet{"com.vmware.fusion"});
    w.put(k::launchableApps, json::array({app}));
    w.put(k::appKeyAssignments, json::array({assignment}));
    w.put(k::dynamicAppKeyAssignments, json::array({assignment, assignment}));
    w.put(k::deletedAppKeyAssignments, json::array({assignment}));
    w.put(k::focusedAppKeyAssignment, assignment);
    w.put(k::lastAppKeyAssignment, assignment);
    w.put(k::launchCount, 17);
    w.put(k::recentlyClosedWindows, json::array({{{"title", "Inbox"}}}));
    w.put(k::windowKeyAssignments, json::array({{{"key", "m"}}}));
    w.put(k::windowKeyPatterns, std::vector<WindowKeyPattern>{{"com.a", "(.)"}});
    w.put(k::windowTitlePatterns, std::vector<WindowTitlePattern>{{"com.a", "(.+)"}});
    w.put(k::windowPatternGroups, std::vector<WindowPatternGroup>{{"g", "G", {"com.a"}, "(.)", ""}});
    w.put(k::ignoredKeys, StringSet{"q", "w"});
    w.put(k::triggerKeys, TriggerKeyList{TK::lcmd, TK::lalt});
    w.put(k::windowTriggerKeys, TriggerKeyList{TK::fn});
    w.put(k::assignKeyTriggerKeys, TriggerKeyList{TK::lctrl});
    w.put(k::hideOnFocusTriggerKeys, TriggerKeyList{});
    w.put(k::stageTriggerKeys, TriggerKeyList{TK::rctrl, TK::rshift});
    w.put(k::capsLockTapToggles, false);
    w.put(k::enableAssignHotkey, false);
    w.put(k::enableHideOnFocusHotkey, true);
    w.put(k::alwaysHideOthers, true);
    w.put(k::activateAllWindows, false);
    w.put(k::focusBehaviour, FocusBehaviour::allWindows);
    w.put(k::focusBehaviourSingle, FocusBehaviour::sameSpaceWindow);
    w.put(k::focusBehaviourMulti, FocusBehaviour::mainWindow);
    w.put(k::moveCursorToFocusedApp, true);
    w.put(k::hideStaticSettings, true);
    w.put(k::whenAlreadyFocusedAction, WhenAlreadyFocusedAction::cycleWindows);
    w.put(k::focusOnKeyUp, true);
    w.put(k::activationMode, ActivationMode::onRelease);
    w.put(k::adaptiveFollowupGraceMs, 90);
    w.put(k::staticBreakoutThresholdMs, 300);
    w.put(k::warnOnSecureInput, false);
    w.put(k::minimizeKey, Key::h);
    w.put(k::specialKey, Key::slash);
    w.put(k::exposeKey, Key::comma);
    w.put(k::windowMinimizeKey, Key::m);
    w.put(k::windowSpecialKey, Key::backslash);
    w.put(k::enableHideAndSettingsKeys, false);
    w.put(k::enableWindowSpecialKeys, false);
    w.put(k::hideOnlyFocusedAppOnMinus, true);
    w.put(k::minimizeOnlyFocusedWindowOnMinus, false);
    w.put(k::enableSelectionActionHotkeys, false);
    w.put(k::usedLeftCmdSelectionAction, true);
    w.put(k::usedRightCmdSelectionAction, true);
    w.put(k::showAppSwitcher, true);
    w.put(k::showWindowSwitcher, false);
    w.put(k::showStageSwitcher, false);
    w.put(k::switcherMode, SwitcherMode::switcher);
    w.put(k::windowSwitchOSDDelay, -1);
    w.put(k::windowOnlySwitchOSDDelay, 250);
    w.put(k::stageSwitchOSDDelay, 0);
    w.put(k::windowSwitcherAppearance, WindowSwitcherAppearance::dense);
    OSDLook look = OSDLook::preset(WindowSwitcherAppearance::compact);
    look.glassTint = ColorHex{"#102030"};
    look.backgroundStyle = BackgroundStyle::solid({"#000000CC"});
    w.put(k::osdLook, look);
    OSDTheme custom = defaultCustomTheme();
    custom.name = "Mine";
    custom.stagePlacement = ScreenCorner::left;
    w.put(k::customTheme, custom);
    w.put(k::activeThemeID, std::optional<std::string>("midnight"));
    w.put(k::applyThemeLayout, false);
    w.put(k::windowSwitcherFeatures, SwitcherFeatures(SwitcherFeatures::windows));
    w.put(k::appSwitcherFeatures,
          SwitcherFeatures(SwitcherFeatures::lastWindow | SwitcherFeatures::runningApps));
    w.put(k::windowSwitcherDimFocused, true);
    w.put(k::windowKeyMode, WindowKeyMode::noNumbers);
    w.put(k::switcherAppsOnly, true);
    w.put(k::appSort, AppSort::score);
    w.put(k::appSortReverse, true);
    w.put(k::switcherScreenPlacement, ScreenCorner::center);
    w.put(k::switcherScreenOffsetX, 12.5);
    w.put(k::switcherScreenOffsetY, -8.0);
    w.put(k::switcherScreenOffsetRefHeight, 1080.0);
    w.put(k::appSwitcherOSDWidth, 360.0);
    w.put(k::appSwitcherOSDHeight, 680.0);
    w.put(k::windowSearchOSDWidth, 600.0);
    w.put(k::windowSearchOSDHeight, 550.0);
    w.put(k::windowSwitcherMirrorAppPlacement, false);
    w.put(k::windowSwitcherPlacement, ScreenCorner::topLeft);
    w.put(k::windowSwitcherOffsetX, 1.0);
    w.put(k::windowSwitcherOffsetY, 2.0);
    w.put(k::windowSwitcherOffsetRefHeight, 900.0);
    w.put(k::stageSwitcherMirrorAppPlacement, false);
    w.put(k::stageSwitcherPlacement, ScreenCorner::top);
    w.put(k::stageSwitcherOffsetX, 3.0);
    w.put(k::stageSwitcherOffsetY, 4.0);
    w.put(k::stageSwitcherOffsetRefHeight, 1440.0);
    w.put(k::osdCurrentSpaceOnly, true);
    w.put(k::showLastFocusedTime, true);
    w.put(k::confirmSavedWindowDelete, false);
    w.put(k::enableRecentlyClosedWindows, false);
    w.put(k::fuzzySearch, false);
    w.put(k::searchMatchMode, SearchMatchMode::contains);
    w.put(k::searchOptionalPrefixes, std::vector<std::string>{"the"});
    w.put(k::showMenubarAppsInSearch, false);
    w.put(k::searchRunningAndStaticOnly, true);
    w.put(k::enableStickySpaceSearch, false);
    w.put(k::doubleTapSearchOpenWindows, false);
    w.put(k::searchOSDDwellMs, 250);
    w.put(k::enableTabCycle, false);
    w.put(k::tabCycleScope, TabCycleScope::sameApp);
    w.put(k::tabCycleSearchScope, TabCycleScope::activeStage);
    w.put(k::tabCycleInclude, TabCycleFilter(TabCycleFilter::hidden));
    w.put(k::tabCycleFocusOnKeyUp, false);
    w.put(k::appSwitcherTabCycleDwellMs, 500);
    w.put(k::windowCycleKey, Key::tab);
    w.put(k::enableWindowCycleKey, false);
    w.put(k::hijackWindowCycleHotkey, false);
    w.put(k::hijackCommandTab, true);
    w.put(k::stickyAppSwitcher, true);
    w.put(k::stickyAppSwitcherScope, StickyAppSwitcherScope::zelkAndSystem);
    w.put(k::stageSpecialKey, Key::zero);
    w.put(k::stageMinimizeKey, Key::nine);
    w.put(k::stageRepositionKey, Key::grave);
    w.put(k::stageCloseAction, StageCloseAction::moveOffScreen);
    w.put(k::stageReopenClosedItems, false);
    w.put(k::stagesCollapsed, true);
    w.put(k::enableStageMoveToSpaceShortcut, true);
    w.put(k::enableInstantSpaceSwitching, false);
    w.put(k::enableAdjacentSpaceSwitching, true);
    w.put(k::prevSpaceKey, Key::leftArrow);
    w.put(k::nextSpaceKey, Key::rightArrow);
    w.put(k::enableWindowMoveToSpaceShortcut, false);
    w.put(k::useInstantWindowMoving, false);
    w.put(k::spaceMode, SpaceMode::multi);
    w.put(k::createMissingSpaces, false);
    w.put(k::showSpacesIndicator, true);
    w.put(k::showSpacesIndicatorLetters, false);
    w.put(k::hideZelkIconInSpacesIndicator, true);
    w.put(k::spacesIndicatorActiveOnly, true);
    w.put(k::exposeOverlay, false);
    w.put(k::exposeGrouping, std::string("space"));
    w.put(k::exposeKeyboardLayout, std::string("iso"));
    w.put(k::exposeConfirmBlindDestructive, false);
    w.put(k::exposeAnimations, false);
    w.put(k::exposeHintBar, false);
    w.put(k::exposeSpacesBar, false);
    w.put(k::exposeInclude, ExposeFilter(ExposeFilter::minimized));
    w.put(k::exposeExtractedBGColors, json{{"com.apple.Safari", "#112233FF"}});
    w.put(k::exposeHotCorner, std::string("topLeft"));
    w.put(k::tactoraEnabled, true);
    w.put(k::tactoraInstalled, true);
    w.put(k::tactoraHoldDelayEnabled, false);
    w.put(k::tactoraHoldDelay, 0.4);
    w.put(k::tactoraHideOSDWhenShown, false);
    w.put(k::tactoraFillMode, TactoraFillMode::blank);
    w.put(k::tactoraOnlyRunningAndStatic, false);
    w.put(k::overrideUserDefaults, true);
    w.put(k::migrationVersion, 11);
    w.put(k::onboardingShownForVersion, 3);
    w.put(k::tutorialHidden, true);
    w.put(k::tutorialPreviewed, true);
    w.put(k::ignoredAppsCollapsed, false);
    w.put(k::accessibilityPermissionsGranted, true);
    w.put(k::accessibilityPermissionsNotified, true);
}

TEST_F(SettingsTest, EveryKeyWrittenIsReadBackAfterARestart) {
    testing::TempDir dir;
    auto file = dir.path() / "com.ferrowlabs.zelk.json";
    ferrow::LogCapture log;
    std::unique_ptr<EveryKey> written;
    {
        JsonFileSettingsStore first(file);
        Settings writer(first);
        written = std::make_unique<EveryKey>(writer);
        writeEveryKey(*written);
    }
    JsonFileSettingsStore second(file);
    Settings reader(second);
    written->check(reader);
    EXPECT_TRUE(log.lines().empty()) << log.lines().front().message;

    std::set<std::string> catalogue;
    for (auto& e : settingsCatalogue())
        catalogue.insert(e.name);
    EXPECT_EQ(written->names(), catalogue) << "a key of the catalogue has no sample here";
    EXPECT_EQ(catalogue.size(), settingsCatalogue().size()) << "a name appears twice in the catalogue";
}

TEST_F(SettingsTest, FreshInstallReadsTheDefaults) {
    EXPECT_EQ(settings.get(keys::triggerKeys), TriggerKeyList{TriggerKey::rightCommand});
    EXPECT_EQ(settings.get(keys::stageTriggerKeys), TriggerKeyList{TriggerKey::capsLock});
    EXPECT_EQ(settings.get(keys::assignKeyTriggerKeys),
              (TriggerKeyList{TriggerKey::rightCommand, TriggerKey::ralt}));
    EXPECT_EQ(settings.get(keys::whenAlreadyFocusedAction), WhenAlreadyFocusedAction::hide);
    EXPECT_EQ(settings.get(keys::windowSwitcherFeatures).rawValue, 0x39u);
    EXPECT_EQ(settings.get(keys::appSwitcherFeatures).rawValue, 0x26u);
    EXPECT_EQ(settings.get(keys::tabCycleInclude).rawValue, 3u);
    EXPECT_EQ(settings.get(keys::exposeInclude).rawValue, 7u);
    EXPECT_EQ(settings.get(keys::stageRepositionKey), Key::section);
    EXPECT_EQ(settings.get(keys::searchOptionalPrefixes).size(), 17u);
    EXPECT_EQ(settings.get(keys::searchOptionalPrefixes).back(), "3d");
    EXPECT_EQ(settings.get(keys::windowPatternGroups).size(), 4u);
    EXPECT_EQ(settings.get(keys::focusedAppKeyAssignment)["app"]["identifier"], "placeholder");
    EXPECT_EQ(settings.get(keys::focusedAppKeyAssignment)["key"], "§");
    EXPECT_TRUE(settings.get(keys::lastAppKeyAssignment).is_null());
    EXPECT_EQ(settings.get(keys::activeThemeID), std::nullopt);
    EXPECT_EQ(settings.get(keys::tactoraHoldDelay), 1.0);
    EXPECT_TRUE(store.keys().empty()) << "reads must not write";

    // Each catalogue default decodes as its own key's value.
    for (auto& e : settingsCatalogue())
        if (!e.defaultStored().is_null()) {
            EXPECT_TRUE(e.reads(e.defaultStored())) << e.name;
        }
}

TEST_F(SettingsTest, TheLookFollowsTheAppearanceUntilOneIsStored) {
    EXPECT_EQ(settings.get(keys::osdLook), OSDLook::preset(WindowSwitcherAppearance::comfortable));
    settings.set(keys::windowSwitcherAppearance, WindowSwitcherAppearance::dense);
    EXPECT_EQ(settings.get(keys::osdLook).appIconSize, 20);
    OSDLook own = OSDLook::preset(WindowSwitcherAppearance::compact);
    settings.set(keys::osdLook, own);
    settings.set(keys::windowSwitcherAppearance, WindowSwitcherAppearance::comfortable);
    EXPECT_EQ(settings.get(keys::osdLook), own);
}

TEST_F(SettingsTest, ABadValueReadsAsTheDefaultLogsOnceAndDisturbsNothingElse) {
    settings.set(keys::appSort, AppSort::score);
    settings.set(keys::triggerKeys, TriggerKeyList{TriggerKey::lcmd});
    struct Bad {
        std::string key;
        json value;
    };
    std::vector<Bad> bad{{"spaceMode", "triple"},
                         {"activationMode", 7},
                         {"fuzzySearch", "yes"},
                         {"windowSwitchOSDDelay", 0.15},
                         {"stageTriggerKeys", json{4, 99}},
                         {"minimizeKey", "notAKey"},
                         {"tabCycleInclude", json{"minimized", "sideways"}},
                         {"osdLook", json{{"density", 3}}},
                         {"windowSwitcherFeatures", 0x40},
                         {"ignoredApps", json{"a", 1}},
                         {"stages", json{{"key", "w"}}},
                         {"tactoraHoldDelay", nullptr}};
    for (auto& b : bad)
        store.write(b.key, b.value);

    ferrow::LogCapture log;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(settings.get(keys::spaceMode), SpaceMode::single);
        EXPECT_EQ(settings.get(keys::activationMode), ActivationMode::adaptive);
        EXPECT_TRUE(settings.get(keys::fuzzySearch));
        EXPECT_EQ(settings.get(keys::windowSwitchOSDDelay), 150);
        EXPECT_EQ(settings.get(keys::stageTriggerKeys), TriggerKeyList{TriggerKey::capsLock});
        EXPECT_EQ(settings.get(keys::minimizeKey), Key::minus);
        EXPECT_EQ(settings.get(keys::tabCycleInclude).rawValue, 3u);
        EXPECT_EQ(settings.get(keys::osdLook), OSDLook::preset(WindowSwitcherAppearance::comfortable));
        EXPECT_EQ(settings.get(keys::windowSwitcherFeatures).rawValue, 0x39u);
        EXPECT_TRUE(settings.get(keys::ignoredApps).empty());
        EXPECT_TRUE(settings.get(keys::stages).is_array());
        EXPECT_EQ(settings.get(keys::tactoraHoldDelay), 1.0);
        // The good neighbours keep their values.
        EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
        EXPECT_EQ(settings.get(keys::triggerKeys), TriggerKeyList{TriggerKey::lcmd});
    }
    EXPECT_EQ(log.lines().size(), bad.size()) << "one line per bad value, not per read";
    for (auto& line : log.lines())
        EXPECT_EQ(line.level, ferrow::LogLevel::error);
    EXPECT_TRUE(log.contains("read: spaceMode holds \"triple\", not a SpaceMode; using the default"));
    for (auto& b : bad)
        EXPECT_EQ(store.read(b.key), b.value) << "a bad value is read around, never overwritten";

    // A different bad value is news and is reported again.
    store.write("spaceMode", "quad");
    settings.get(keys::spaceMode);
    EXPECT_EQ(log.count("read: spaceMode holds \"quad\", not a SpaceMode; using the default"), 1u);
}

TEST_F(SettingsTest, WhenAlreadyFocusedActionKeepsItsIntegerRawValues) {
    std::vector<std::pair<WhenAlreadyFocusedAction, int>> raw{{WhenAlreadyFocusedAction::hide, 0},
                                                              {WhenAlreadyFocusedAction::expose, 1},
                                                              {WhenAlreadyFocusedAction::cycleWindows, 3},
                                                              {WhenAlreadyFocusedAction::doNothing, 4}};
    for (auto [action, value] : raw) {
        settings.set(keys::whenAlreadyFocusedAction, action);
        EXPECT_EQ(store.read("whenAlreadyFocusedAction"), json(value));
        EXPECT_EQ(settings.get(keys::whenAlreadyFocusedAction), action);
    }
    ferrow::LogCapture log;
    store.write("whenAlreadyFocusedAction", 2);  // retired: absent, not cycleWindows
    EXPECT_EQ(settings.get(keys::whenAlreadyFocusedAction), WhenAlreadyFocusedAction::hide);
    EXPECT_FALSE(whenAlreadyFocusedActionFromRaw(2));
    store.write("whenAlreadyFocusedAction", 5);  // followGlobal only on one assignment
    EXPECT_EQ(settings.get(keys::whenAlreadyFocusedAction), WhenAlreadyFocusedAction::hide);
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(whenAlreadyFocusedActionFromRaw(5), WhenAlreadyFocusedAction::followGlobal);
    EXPECT_EQ(resolvedAction(WhenAlreadyFocusedAction::followGlobal, WhenAlreadyFocusedAction::expose),
              WhenAlreadyFocusedAction::expose);
    EXPECT_EQ(resolvedAction(WhenAlreadyFocusedAction::doNothing, WhenAlreadyFocusedAction::expose),
              WhenAlreadyFocusedAction::doNothing);
}

TEST_F(SettingsTest, OptionalValuesAndResetRemoveTheKey) {
    settings.set(keys::activeThemeID, std::optional<std::string>("paper"));
    EXPECT_EQ(store.read("activeThemeID"), json("paper"));
    settings.set(keys::activeThemeID, std::optional<std::string>());
    EXPECT_FALSE(store.read("activeThemeID"));

    settings.set(keys::appSort, AppSort::key);
    settings.set(keys::fuzzySearch, false);
    settings.set(keys::launchCount, 3);
    settings.reset(keys::appSort);
    EXPECT_FALSE(settings.isStored("appSort"));
    EXPECT_EQ(settings.get(keys::appSort), AppSort::name);
    settings.reset(std::vector<std::string>{"fuzzySearch", "launchCount"});
    EXPECT_TRUE(store.keys().empty());
}

TEST_F(SettingsTest, SharedAccessorIsInstalledResetAndOtherwiseFollowsThePlatform) {
    MemorySettingsStore installed;
    Settings::install(installed);
    Settings::shared().set(keys::launchCount, 5);
    EXPECT_EQ(installed.read("launchCount"), json(5));

    Settings::reset();
    MemorySettingsStore platformStore;
    platform::Platform p;
    p.settings = &platformStore;
    platform::Platform::install(p);
    Settings::shared().set(keys::launchCount, 6);
    EXPECT_EQ(platformStore.read("launchCount"), json(6));

    MemorySettingsStore another;
    p.settings = &another;
    platform::Platform::install(p);  // a new platform: the accessor rebinds
    EXPECT_EQ(Settings::shared().get(keys::launchCount), 0);
    platform::Platform::reset();
    Settings::shared().set(keys::launchCount, 7);  // no platform at all: a store in memory
    EXPECT_EQ(Settings::shared().get(keys::launchCount), 7);
    EXPECT_FALSE(another.read("launchCount"));
}

// The live mirror.
TEST_F(SettingsTest, SettingMirrorFollowsChangesFromInsideAndOutside) {
    Setting<SpaceMode> mode(keys::spaceMode, settings);
    std::vector<SpaceMode> seen;
    auto sub = mode.subscribe([&](const SpaceMode& m) { seen.push_back(m); });
    EXPECT_EQ(seen, std::vector<SpaceMode>{SpaceMode::single});  // the initial value

    mode.set(SpaceMode::multi);
    EXPECT_EQ(mode.get(), SpaceMode::multi);
    store.write("spaceMode", "single");  // someone else wrote the store
    store.write("spaceMode", "single");  // the same value again: no change
    store.write("appSort", "key");       // another key
    store.remove("spaceMode");           // back to default, which it already is
    store.write("spaceMode", json(1));   // an older index form of multi
    EXPECT_EQ(seen, (std::vector<SpaceMode>{SpaceMode::single, SpaceMode::multi, SpaceMode::single,
                                            SpaceMode::multi}));

    sub.cancel();
    mode.reset();
    EXPECT_EQ(mode.get(), SpaceMode::single);
    EXPECT_EQ(seen.size(), 4u);
}

TEST_F(SettingsTest, SettingMirrorSeesAReloadedFile) {
    testing::TempDir dir;
    auto file = dir.path() / "settings.json";
    JsonFileSettingsStore fileStore(file);
    Settings fileSettings(fileStore);
    Setting<int> delay(keys::windowSwitchOSDDelay, fileSettings);
    Setting<OSDLook> look(keys::osdLook, fileSettings);
    int delayChanges = 0, lookChanges = 0;
    auto s1 = delay.subscribe([&](const int&) { ++delayChanges; }, false);
    auto s2 = look.subscribe([&](const OSDLook&) { ++lookChanges; }, false);

    {
        // Another process changes the file.
        JsonFileSettingsStore other(file);
        Settings(other).set(keys::windowSwitchOSDDelay, 400);
        Settings(other).set(keys::windowSwitcherAppearance, WindowSwitcherAppearance::dense);
    }
    EXPECT_EQ(delay.get(), 150);  // not before the reload
    fileStore.reload();
    EXPECT_EQ(delay.get(), 400);
    EXPECT_EQ(delayChanges, 1);
    EXPECT_EQ(look->density, WindowSwitcherAppearance::dense) << "a computed default follows its source";
    EXPECT_EQ(lookChanges, 1);
}

TEST_F(SettingsTest, TriggerListsCompareAsSets) {
    Setting<TriggerKeyList> triggers(keys::assignKeyTriggerKeys, settings);
    int changes = 0;
    auto sub = triggers.subscribe([&](const TriggerKeyList&) { ++changes; }, false);
    settings.set(keys::assignKeyTriggerKeys, {TriggerKey::ralt, TriggerKey::rightCommand});
    settings.set(keys::assignKeyTriggerKeys, {TriggerKey::ralt, TriggerKey::rightCommand, TriggerKey::ralt});
    store.write("assignKeyTriggerKeys", json{4, 14, 5});  // 14 is "no key"
    EXPECT_EQ(changes, 0);
    settings.set(keys::assignKeyTriggerKeys, {TriggerKey::ralt});
    EXPECT_EQ(changes, 1);

    using Codec = SettingCodec<TriggerKeyList>;
    EXPECT_TRUE(Codec::same({TriggerKey::lcmd, TriggerKey::fn}, {TriggerKey::fn, TriggerKey::lcmd}));
    EXPECT_FALSE(Codec::same({TriggerKey::lcmd}, {TriggerKey::lcmd, TriggerKey::fn}));
    EXPECT_FALSE(Codec::same({TriggerKey::cmd}, {TriggerKey::lcmd}));
    EXPECT_TRUE(Codec::same({}, {}));
}

}  // namespace
}  // namespace zelk
