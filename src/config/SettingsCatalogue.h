#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "config/ExposeFilter.h"
#include "config/FocusOptions.h"
#include "config/OSDLook.h"
#include "config/OSDTheme.h"
#include "config/SearchOptions.h"
#include "config/SearchSelection.h"
#include "config/SettingKey.h"
#include "config/StageOptions.h"
#include "config/SwitcherOptions.h"
#include "config/TabCycleOptions.h"
#include "config/TactoraOptions.h"
#include "config/WhenAlreadyFocusedAction.h"
#include "config/WindowPatterns.h"
#include "input/TriggerKey.h"
#include "platform/Key.h"

namespace zelk {

using TriggerKeyList = std::vector<TriggerKey>;
using StringSet = std::set<std::string>;

// Checks the catalogue uses for records whose modules own their decoding.
bool isJsonArray(const nlohmann::json& value);
bool isJsonObject(const nlohmann::json& value);
bool isJsonObjectOrNull(const nlohmann::json& value);
// The global action can't defer to itself.
bool isGlobalAction(const WhenAlreadyFocusedAction& action);

// The stored form of the placeholder assignment: the focused app's record before any app is focused.
nlohmann::json placeholderAppKeyAssignment();

// Every key of the preferences store, by stored name. Records that other modules define are kept as
// their JSON (`nlohmann::json`); the owner decodes them (or declares a typed key of the same name).
namespace keys {
// clang-format off

// Stores.
inline const SettingKey<nlohmann::json> stages{"stages", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<nlohmann::json> stashedOffScreenWindows{"stashedOffScreenWindows", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<StringSet> ignoredApps{"ignoredApps", {}};
inline const SettingKey<std::map<std::string, SearchSelection>> searchQueryAppSelections{"searchQueryAppSelections", {}};
inline const SettingKey<std::map<std::string, std::string>> searchQueryPins{"searchQueryPins", {}};
inline const SettingKey<StringSet> pauseApps{"pauseApps", {}};
inline const SettingKey<nlohmann::json> launchableApps{"launchableApps", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<nlohmann::json> appKeyAssignments{"appKeyAssignments", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<nlohmann::json> dynamicAppKeyAssignments{"dynamicAppKeyAssignments", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<nlohmann::json> deletedAppKeyAssignments{"deletedAppKeyAssignments", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<nlohmann::json> focusedAppKeyAssignment{"focusedAppKeyAssignment", placeholderAppKeyAssignment(), nullptr, isJsonObject};
inline const SettingKey<nlohmann::json> lastAppKeyAssignment{"lastAppKeyAssignment", nullptr, nullptr, isJsonObjectOrNull};
inline const SettingKey<int> launchCount{"launchCount", 0};
inline const SettingKey<nlohmann::json> recentlyClosedWindows{"recentlyClosedWindows", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<nlohmann::json> windowKeyAssignments{"windowKeyAssignments", nlohmann::json::array(), nullptr, isJsonArray};
inline const SettingKey<std::vector<WindowKeyPattern>> windowKeyPatterns{"windowKeyPatterns", {}};
inline const SettingKey<std::vector<WindowTitlePattern>> windowTitlePatterns{"windowTitlePatterns", {}};
inline const SettingKey<std::vector<WindowPatternGroup>> windowPatternGroups{"windowPatternGroups", defaultWindowPatternGroups()};
inline const SettingKey<StringSet> ignoredKeys{"ignoredKeys", {}};

// Hotkeys and routing.
inline const SettingKey<TriggerKeyList> triggerKeys{"triggerKeys", {TriggerKey::rightCommand}};
inline const SettingKey<TriggerKeyList> windowTriggerKeys{"windowTriggerKeys", {TriggerKey::ralt}};
inline const SettingKey<TriggerKeyList> assignKeyTriggerKeys{"assignKeyTriggerKeys", {TriggerKey::rightCommand, TriggerKey::ralt}};
inline const SettingKey<TriggerKeyList> hideOnFocusTriggerKeys{"hideOnFocusTriggerKeys", {TriggerKey::rightCommand, TriggerKey::rshift}};
inline const SettingKey<TriggerKeyList> stageTriggerKeys{"stageTriggerKeys", {TriggerKey::capsLock}};
inline const SettingKey<bool> capsLockTapToggles{"capsLockTapToggles", true};
inline const SettingKey<bool> enableAssignHotkey{"enableAssignHotkey", true};
inline const SettingKey<bool> enableHideOnFocusHotkey{"enableHideOnFocusHotkey", false};
inline const SettingKey<bool> alwaysHideOthers{"alwaysHideOthers", false};
inline const SettingKey<bool> activateAllWindows{"activateAllWindows", true};
inline const SettingKey<FocusBehaviour> focusBehaviour{"focusBehaviour", FocusBehaviour::sameSpaceWindow};
inline const SettingKey<FocusBehaviour> focusBehaviourSingle{"focusBehaviourSingle", FocusBehaviour::mainWindow};
inline const SettingKey<FocusBehaviour> focusBehaviourMulti{"focusBehaviourMulti", FocusBehaviour::sameSpaceWindow};
inline const SettingKey<bool> moveCursorToFocusedApp{"moveCursorToFocusedApp", false};
inline const SettingKey<bool> hideStaticSettings{"hideStaticSettings", false};
inline const SettingKey<WhenAlreadyFocusedAction> whenAlreadyFocusedAction{"whenAlreadyFocusedAction", WhenAlreadyFocusedAction::hide, nullptr, isGlobalAction};
inline const SettingKey<bool> focusOnKeyUp{"focusOnKeyUp", false};
inline const SettingKey<ActivationMode> activationMode{"activationMode", ActivationMode::adaptive};
inline const SettingKey<int> adaptiveFollowupGraceMs{"adaptiveFollowupGraceMs", 150};
inline const SettingKey<int> staticBreakoutThresholdMs{"staticBreakoutThresholdMs", 0};
inline const SettingKey<bool> warnOnSecureInput{"warnOnSecureInput", true};
inline const SettingKey<Key> minimizeKey{"minimizeKey", Key::minus};
inline const SettingKey<Key> specialKey{"specialKey", Key::equal};
inline const SettingKey<Key> exposeKey{"exposeKey", Key::period};
inline const SettingKey<Key> windowMinimizeKey{"windowMinimizeKey", Key::minus};
inline const SettingKey<Key> windowSpecialKey{"windowSpecialKey", Key::equal};
inline const SettingKey<bool> enableHideAndSettingsKeys{"enableHideAndSettingsKeys", true};
inline const SettingKey<bool> enableWindowSpecialKeys{"enableWindowSpecialKeys", true};
inline const SettingKey<bool> hideOnlyFocusedAppOnMinus{"hideOnlyFocusedAppOnMinus", false};
inline const SettingKey<bool> minimizeOnlyFocusedWindowOnMinus{"minimizeOnlyFocusedWindowOnMinus", true};
inline const SettingKey<bool> enableSelectionActionHotkeys{"enableSelectionActionHotkeys", true};
inline const SettingKey<bool> usedLeftCmdSelectionAction{"usedLeftCmdSelectionAction", false};
inline const SettingKey<bool> usedRightCmdSelectionAction{"usedRightCmdSelectionAction", false};

// Panels.
inline const SettingKey<bool> showAppSwitcher{"showAppSwitcher", false};
inline const SettingKey<bool> showWindowSwitcher{"showWindowSwitcher", true};
inline const SettingKey<bool> showStageSwitcher{"showStageSwitcher", true};
inline const SettingKey<SwitcherMode> switcherMode{"switcherMode", SwitcherMode::launcher};
inline const SettingKey<int> windowSwitchOSDDelay{"windowSwitchOSDDelay", 150};
inline const SettingKey<int> windowOnlySwitchOSDDelay{"windowOnlySwitchOSDDelay", 0};
inline const SettingKey<int> stageSwitchOSDDelay{"stageSwitchOSDDelay", 80};
inline const SettingKey<WindowSwitcherAppearance> windowSwitcherAppearance{"windowSwitcherAppearance", WindowSwitcherAppearance::comfortable};
OSDLook lookOfAppearanceInForce(const Settings& settings);
inline const SettingKey<OSDLook> osdLook{"osdLook", OSDLook::preset(WindowSwitcherAppearance::comfortable), lookOfAppearanceInForce, nullptr};
inline const SettingKey<OSDTheme> customTheme{"customTheme", defaultCustomTheme()};
inline const SettingKey<std::optional<std::string>> activeThemeID{"activeThemeID", std::nullopt};
inline const SettingKey<bool> applyThemeLayout{"applyThemeLayout", true};
inline const SettingKey<SwitcherFeatures> windowSwitcherFeatures{"windowSwitcherFeatures", SwitcherFeatures(0x39)};
inline const SettingKey<SwitcherFeatures> appSwitcherFeatures{"appSwitcherFeatures", SwitcherFeatures(0x26)};
inline const SettingKey<bool> windowSwitcherDimFocused{"windowSwitcherDimFocused", false};
inline const SettingKey<WindowKeyMode> windowKeyMode{"windowKeyMode", WindowKeyMode::mixed};
inline const SettingKey<bool> switcherAppsOnly{"switcherAppsOnly", false};
inline const SettingKey<AppSort> appSort{"appSort", AppSort::name};
inline const SettingKey<bool> appSortReverse{"appSortReverse", false};
inline const SettingKey<ScreenCorner> switcherScreenPlacement{"switcherScreenPlacement", ScreenCorner::bottomRight};
inline const SettingKey<double> switcherScreenOffsetX{"switcherScreenOffsetX", 0};
inline const SettingKey<double> switcherScreenOffsetY{"switcherScreenOffsetY", 0};
inline const SettingKey<double> switcherScreenOffsetRefHeight{"switcherScreenOffsetRefHeight", 0};
inline const SettingKey<double> appSwitcherOSDWidth{"appSwitcherOSDWidth", 400};
inline const SettingKey<double> appSwitcherOSDHeight{"appSwitcherOSDHeight", 600};
inline const SettingKey<double> windowSearchOSDWidth{"windowSearchOSDWidth", 480};
inline const SettingKey<double> windowSearchOSDHeight{"windowSearchOSDHeight", 420};
inline const SettingKey<bool> windowSwitcherMirrorAppPlacement{"windowSwitcherMirrorAppPlacement", true};
inline const SettingKey<ScreenCorner> windowSwitcherPlacement{"windowSwitcherPlacement", ScreenCorner::bottomRight};
inline const SettingKey<double> windowSwitcherOffsetX{"windowSwitcherOffsetX", 0};
inline const SettingKey<double> windowSwitcherOffsetY{"windowSwitcherOffsetY", 0};
inline const SettingKey<double> windowSwitcherOffsetRefHeight{"windowSwitcherOffsetRefHeight", 0};
inline const SettingKey<bool> stageSwitcherMirrorAppPlacement{"stageSwitcherMirrorAppPlacement", true};
inline const SettingKey<ScreenCorner> stageSwitcherPlacement{"stageSwitcherPlacement", ScreenCorner::bottomRight};
inline const SettingKey<double> stageSwitcherOffsetX{"stageSwitcherOffsetX", 0};
inline const SettingKey<double> stageSwitcherOffsetY{"stageSwitcherOffsetY", 0};
inline const SettingKey<double> stageSwitcherOffsetRefHeight{"stageSwitcherOffsetRefHeight", 0};
inline const SettingKey<bool> osdCurrentSpaceOnly{"osdCurrentSpaceOnly", false};
inline const SettingKey<bool> showLastFocusedTime{"showLastFocusedTime", false};
inline const SettingKey<bool> confirmSavedWindowDelete{"confirmSavedWindowDelete", true};
inline const SettingKey<bool> enableRecentlyClosedWindows{"enableRecentlyClosedWindows", true};

// Search.
inline const SettingKey<bool> fuzzySearch{"fuzzySearch", true};
inline const SettingKey<SearchMatchMode> searchMatchMode{"searchMatchMode", SearchMatchMode::anchored};
inline const SettingKey<std::vector<std::string>> searchOptionalPrefixes{"searchOptionalPrefixes",
    {"google", "microsoft", "adobe", "apple", "amazon", "affinity", "jetbrains", "nvidia", "parallels",
     "elgato", "logitech", "synology", "wondershare", "the", "4k", "8k", "3d"}};
inline const SettingKey<bool> showMenubarAppsInSearch{"showMenubarAppsInSearch", true};
inline const SettingKey<bool> searchRunningAndStaticOnly{"searchRunningAndStaticOnly", false};
inline const SettingKey<bool> enableStickySpaceSearch{"enableStickySpaceSearch", true};
inline const SettingKey<bool> doubleTapSearchOpenWindows{"doubleTapSearchOpenWindows", true};
inline const SettingKey<int> searchOSDDwellMs{"searchOSDDwellMs", 400};

// Tab cycle and sticky switcher.
inline const SettingKey<bool> enableTabCycle{"enableTabCycle", true};
inline const SettingKey<TabCycleScope> tabCycleScope{"tabCycleScope", TabCycleScope::auto_};
inline const SettingKey<TabCycleScope> tabCycleSearchScope{"tabCycleSearchScope", TabCycleScope::allWindows};
inline const SettingKey<TabCycleFilter> tabCycleInclude{"tabCycleInclude", TabCycleFilter(0x3)};
inline const SettingKey<bool> tabCycleFocusOnKeyUp{"tabCycleFocusOnKeyUp", true};
inline const SettingKey<int> appSwitcherTabCycleDwellMs{"appSwitcherTabCycleDwellMs", 800};
inline const SettingKey<Key> windowCycleKey{"windowCycleKey", Key::grave};
inline const SettingKey<bool> enableWindowCycleKey{"enableWindowCycleKey", true};
inline const SettingKey<bool> hijackWindowCycleHotkey{"hijackWindowCycleHotkey", true};
inline const SettingKey<bool> hijackCommandTab{"hijackCommandTab", false};
inline const SettingKey<bool> stickyAppSwitcher{"stickyAppSwitcher", false};
inline const SettingKey<StickyAppSwitcherScope> stickyAppSwitcherScope{"stickyAppSwitcherScope", StickyAppSwitcherScope::zelkOnly};

// Stages.
inline const SettingKey<Key> stageSpecialKey{"stageSpecialKey", Key::equal};
inline const SettingKey<Key> stageMinimizeKey{"stageMinimizeKey", Key::minus};
inline const SettingKey<Key> stageRepositionKey{"stageRepositionKey", Key::section};
inline const SettingKey<StageCloseAction> stageCloseAction{"stageCloseAction", StageCloseAction::close};
inline const SettingKey<bool> stageReopenClosedItems{"stageReopenClosedItems", true};
inline const SettingKey<bool> stagesCollapsed{"stagesCollapsed", false};
inline const SettingKey<bool> enableStageMoveToSpaceShortcut{"enableStageMoveToSpaceShortcut", false};

// Spaces.
inline const SettingKey<bool> enableInstantSpaceSwitching{"enableInstantSpaceSwitching", true};
inline const SettingKey<bool> enableAdjacentSpaceSwitching{"enableAdjacentSpaceSwitching", false};
inline const SettingKey<Key> prevSpaceKey{"prevSpaceKey", Key::leftBracket};
inline const SettingKey<Key> nextSpaceKey{"nextSpaceKey", Key::rightBracket};
inline const SettingKey<bool> enableWindowMoveToSpaceShortcut{"enableWindowMoveToSpaceShortcut", true};
inline const SettingKey<bool> useInstantWindowMoving{"useInstantWindowMoving", true};
inline const SettingKey<SpaceMode> spaceMode{"spaceMode", SpaceMode::single};
inline const SettingKey<bool> createMissingSpaces{"createMissingSpaces", true};
inline const SettingKey<bool> showSpacesIndicator{"showSpacesIndicator", false};
inline const SettingKey<bool> showSpacesIndicatorLetters{"showSpacesIndicatorLetters", true};
inline const SettingKey<bool> hideZelkIconInSpacesIndicator{"hideZelkIconInSpacesIndicator", false};
inline const SettingKey<bool> spacesIndicatorActiveOnly{"spacesIndicatorActiveOnly", false};

// Overview.
inline const SettingKey<bool> exposeOverlay{"exposeOverlay", true};
inline const SettingKey<std::string> exposeGrouping{"exposeGrouping", "app"};
inline const SettingKey<std::string> exposeKeyboardLayout{"exposeKeyboardLayout", "auto"};
inline const SettingKey<bool> exposeConfirmBlindDestructive{"exposeConfirmBlindDestructive", true};
inline const SettingKey<bool> exposeAnimations{"exposeAnimations", true};
inline const SettingKey<bool> exposeHintBar{"exposeHintBar", true};
inline const SettingKey<bool> exposeSpacesBar{"exposeSpacesBar", true};
inline const SettingKey<ExposeFilter> exposeInclude{"exposeInclude", ExposeFilter(0x7)};
inline const SettingKey<nlohmann::json> exposeExtractedBGColors{"exposeExtractedBGColors", nlohmann::json::object(), nullptr, isJsonObject};
inline const SettingKey<std::string> exposeHotCorner{"exposeHotCorner", "off"};

// Companion keyboard.
inline const SettingKey<bool> tactoraEnabled{"tactoraEnabled", false};
inline const SettingKey<bool> tactoraInstalled{"tactoraInstalled", false};
inline const SettingKey<bool> tactoraHoldDelayEnabled{"tactoraHoldDelayEnabled", true};
inline const SettingKey<double> tactoraHoldDelay{"tactoraHoldDelay", 1.0};
inline const SettingKey<bool> tactoraHideOSDWhenShown{"tactoraHideOSDWhenShown", true};
inline const SettingKey<TactoraFillMode> tactoraFillMode{"tactoraFillMode", TactoraFillMode::dim};
inline const SettingKey<bool> tactoraOnlyRunningAndStatic{"tactoraOnlyRunningAndStatic", true};

// State and bookkeeping.
inline const SettingKey<bool> overrideUserDefaults{"overrideUserDefaults", false};
inline const SettingKey<int> migrationVersion{"migrationVersion", 0};
inline const SettingKey<int> onboardingShownForVersion{"onboardingShownForVersion", 0};
inline const SettingKey<bool> tutorialHidden{"tutorialHidden", false};
inline const SettingKey<bool> tutorialPreviewed{"tutorialPreviewed", false};
inline const SettingKey<bool> ignoredAppsCollapsed{"ignoredAppsCollapsed", true};
inline const SettingKey<bool> accessibilityPermissionsGranted{"accessibilityPermissionsGranted", false};
inline const SettingKey<bool> accessibilityPermissionsNotified{"accessibilityPermissionsNotified", false};
// clang-format on
}  // namespace keys

// One key of the catalogue, without its type: for listing, resetting and checking stored values.
struct CatalogueEntry {
    std::string_view group;
    std::string name;
    std::string typeName;
    std::function<nlohmann::json()> defaultStored;     // the default in stored form (null: absent)
    std::function<bool(const nlohmann::json&)> reads;  // a stored value that decodes
};

// Every key, in catalogue order.
const std::vector<CatalogueEntry>& settingsCatalogue();
const CatalogueEntry* catalogueEntry(std::string_view name);

}  // namespace zelk
