#include "config/SettingsCatalogue.h"

#include "config/Settings.h"

namespace zelk {

bool isJsonArray(const nlohmann::json& value) {
    return value.is_array();
}
bool isJsonObject(const nlohmann::json& value) {
    return value.is_object();
}
bool isJsonObjectOrNull(const nlohmann::json& value) {
    return value.is_object() || value.is_null();
}
bool isGlobalAction(const WhenAlreadyFocusedAction& action) {
    return action != WhenAlreadyFocusedAction::followGlobal;
}

nlohmann::json placeholderAppKeyAssignment() {
    return {{"key", "§"},
            {"app",
             {{"path", "/"},
              {"originalName", ""},
              {"url", "file:///"},
              {"useCount", 0},
              {"identifier", "placeholder"},
              {"switchCount", 0}}},
            {"index", 0},
            {"whenAlreadyFocusedAction", rawValue(WhenAlreadyFocusedAction::followGlobal)},
            {"launchIfNotRunning", true}};
}

OSDLook keys::lookOfAppearanceInForce(const Settings& settings) {
    return OSDLook::preset(settings.get(keys::windowSwitcherAppearance));
}

namespace {
template <typename T>
CatalogueEntry entry(std::string_view group, const SettingKey<T>& key) {
    // The key objects live for the program, so the entry may refer to them.
    const SettingKey<T>* k = &key;
    return CatalogueEntry{
        group,
        key.name,
        SettingCodec<T>::typeName(),
        [k] { return SettingCodec<T>::encode(k->defaultValue); },
        [k](const nlohmann::json& stored) {
            auto v = SettingCodec<T>::decode(stored);
            return v.has_value() && (!k->valid || k->valid(*v));
        },
    };
}
}  // namespace

const std::vector<CatalogueEntry>& settingsCatalogue() {
    static const std::vector<CatalogueEntry> all{
        entry("Stores", keys::stages),
        entry("Stores", keys::stashedOffScreenWindows),
        entry("Stores", keys::ignoredApps),
        entry("Stores", keys::searchQueryAppSelections),
        entry("Stores", keys::searchQueryPins),
        entry("Stores", keys::pauseApps),
        entry("Stores", keys::launchableApps),
        entry("Stores", keys::appKeyAssignments),
        entry("Stores", keys::dynamicAppKeyAssignments),
        entry("Stores", keys::deletedAppKeyAssignments),
        entry("Stores", keys::focusedAppKeyAssignment),
        entry("Stores", keys::lastAppKeyAssignment),
        entry("Stores", keys::launchCount),
        entry("Stores", keys::recentlyClosedWindows),
        entry("Stores", keys::windowKeyAssignments),
        entry("Stores", keys::windowKeyPatterns),
        entry("Stores", keys::windowTitlePatterns),
        entry("Stores", keys::windowPatternGroups),
        entry("Stores", keys::ignoredKeys),
        entry("Hotkeys and routing", keys::triggerKeys),
        entry("Hotkeys and routing", keys::windowTriggerKeys),
        entry("Hotkeys and routing", keys::assignKeyTriggerKeys),
        entry("Hotkeys and routing", keys::hideOnFocusTriggerKeys),
        entry("Hotkeys and routing", keys::stageTriggerKeys),
        entry("Hotkeys and routing", keys::capsLockTapToggles),
        entry("Hotkeys and routing", keys::enableAssignHotkey),
        entry("Hotkeys and routing", keys::enableHideOnFocusHotkey),
        entry("Hotkeys and routing", keys::alwaysHideOthers),
        entry("Hotkeys and routing", keys::activateAllWindows),
        entry("Hotkeys and routing", keys::focusBehaviour),
        entry("Hotkeys and routing", keys::focusBehaviourSingle),
        entry("Hotkeys and routing", keys::focusBehaviourMulti),
        entry("Hotkeys and routing", keys::moveCursorToFocusedApp),
        entry("Hotkeys and routing", keys::hideStaticSettings),
        entry("Hotkeys and routing", keys::whenAlreadyFocusedAction),
        entry("Hotkeys and routing", keys::focusOnKeyUp),
        entry("Hotkeys and routing", keys::activationMode),
        entry("Hotkeys and routing", keys::adaptiveFollowupGraceMs),
        entry("Hotkeys and routing", keys::staticBreakoutThresholdMs),
        entry("Hotkeys and routing", keys::warnOnSecureInput),
        entry("Hotkeys and routing", keys::minimizeKey),
        entry("Hotkeys and routing", keys::specialKey),
        entry("Hotkeys and routing", keys::exposeKey),
        entry("Hotkeys and routing", keys::windowMinimizeKey),
        entry("Hotkeys and routing", keys::windowSpecialKey),
        entry("Hotkeys and routing", keys::enableHideAndSettingsKeys),
        entry("Hotkeys and routing", keys::enableWindowSpecialKeys),
        entry("Hotkeys and routing", keys::hideOnlyFocusedAppOnMinus),
        entry("Hotkeys and routing", keys::minimizeOnlyFocusedWindowOnMinus),
        entry("Hotkeys and routing", keys::enableSelectionActionHotkeys),
        entry("Hotkeys and routing", keys::usedLeftCmdSelectionAction),
        entry("Hotkeys and routing", keys::usedRightCmdSelectionAction),
        entry("Panels", keys::showAppSwitcher),
        entry("Panels", keys::showWindowSwitcher),
        entry("Panels", keys::showStageSwitcher),
        entry("Panels", keys::switcherMode),
        entry("Panels", keys::windowSwitchOSDDelay),
        entry("Panels", keys::windowOnlySwitchOSDDelay),
        entry("Panels", keys::stageSwitchOSDDelay),
        entry("Panels", keys::windowSwitcherAppearance),
        entry("Panels", keys::osdLook),
        entry("Panels", keys::customTheme),
        entry("Panels", keys::activeThemeID),
        entry("Panels", keys::applyThemeLayout),
        entry("Panels", keys::windowSwitcherFeatures),
        entry("Panels", keys::appSwitcherFeatures),
        entry("Panels", keys::windowSwitcherDimFocused),
        entry("Panels", keys::windowKeyMode),
        entry("Panels", keys::switcherAppsOnly),
        entry("Panels", keys::appSort),
        entry("Panels", keys::appSortReverse),
        entry("Panels", keys::switcherScreenPlacement),
        entry("Panels", keys::switcherScreenOffsetX),
        entry("Panels", keys::switcherScreenOffsetY),
        entry("Panels", keys::switcherScreenOffsetRefHeight),
        entry("Panels", keys::appSwitcherOSDWidth),
        entry("Panels", keys::appSwitcherOSDHeight),
        entry("Panels", keys::windowSearchOSDWidth),
        entry("Panels", keys::windowSearchOSDHeight),
        entry("Panels", keys::windowSwitcherMirrorAppPlacement),
        entry("Panels", keys::windowSwitcherPlacement),
        entry("Panels", keys::windowSwitcherOffsetX),
        entry("Panels", keys::windowSwitcherOffsetY),
        entry("Panels", keys::windowSwitcherOffsetRefHeight),
        entry("Panels", keys::stageSwitcherMirrorAppPlacement),
        entry("Panels", keys::stageSwitcherPlacement),
        entry("Panels", keys::stageSwitcherOffsetX),
        entry("Panels", keys::stageSwitcherOffsetY),
        entry("Panels", keys::stageSwitcherOffsetRefHeight),
        entry("Panels", keys::osdCurrentSpaceOnly),
        entry("Panels", keys::showLastFocusedTime),
        entry("Panels", keys::confirmSavedWindowDelete),
        entry("Panels", keys::enableRecentlyClosedWindows),
        entry("Search", keys::fuzzySearch),
        entry("Search", keys::searchMatchMode),
        entry("Search", keys::searchOptionalPrefixes),
        entry("Search", keys::showMenubarAppsInSearch),
        entry("Search", keys::searchRunningAndStaticOnly),
        entry("Search", keys::enableStickySpaceSearch),
        entry("Search", keys::doubleTapSearchOpenWindows),
        entry("Search", keys::searchOSDDwellMs),
        entry("Tab cycle and sticky switcher", keys::enableTabCycle),
        entry("Tab cycle and sticky switcher", keys::tabCycleScope),
        entry("Tab cycle and sticky switcher", keys::tabCycleSearchScope),
        entry("Tab cycle and sticky switcher", keys::tabCycleInclude),
        entry("Tab cycle and sticky switcher", keys::tabCycleFocusOnKeyUp),
        entry("Tab cycle and sticky switcher", keys::appSwitcherTabCycleDwellMs),
        entry("Tab cycle and sticky switcher", keys::windowCycleKey),
        entry("Tab cycle and sticky switcher", keys::enableWindowCycleKey),
        entry("Tab cycle and sticky switcher", keys::hijackWindowCycleHotkey),
        entry("Tab cycle and sticky switcher", keys::hijackCommandTab),
        entry("Tab cycle and sticky switcher", keys::stickyAppSwitcher),
        entry("Tab cycle and sticky switcher", keys::stickyAppSwitcherScope),
        entry("Stages", keys::stageSpecialKey),
        entry("Stages", keys::stageMinimizeKey),
        entry("Stages", keys::stageRepositionKey),
        entry("Stages", keys::stageCloseAction),
        entry("Stages", keys::stageReopenClosedItems),
        entry("Stages", keys::stagesCollapsed),
        entry("Stages", keys::enableStageMoveToSpaceShortcut),
        entry("Spaces", keys::enableInstantSpaceSwitching),
        entry("Spaces", keys::enableAdjacentSpaceSwitching),
        entry("Spaces", keys::prevSpaceKey),
        entry("Spaces", keys::nextSpaceKey),
        entry("Spaces", keys::enableWindowMoveToSpaceShortcut),
        entry("Spaces", keys::useInstantWindowMoving),
        entry("Spaces", keys::spaceMode),
        entry("Spaces", keys::createMissingSpaces),
        entry("Spaces", keys::showSpacesIndicator),
        entry("Spaces", keys::showSpacesIndicatorLetters),
        entry("Spaces", keys::hideZelkIconInSpacesIndicator),
        entry("Spaces", keys::spacesIndicatorActiveOnly),
        entry("Overview", keys::exposeOverlay),
        entry("Overview", keys::exposeGrouping),
        entry("Overview", keys::exposeKeyboardLayout),
        entry("Overview", keys::exposeConfirmBlindDestructive),
        entry("Overview", keys::exposeAnimations),
        entry("Overview", keys::exposeHintBar),
        entry("Overview", keys::exposeSpacesBar),
        entry("Overview", keys::exposeInclude),
        entry("Overview", keys::exposeExtractedBGColors),
        entry("Overview", keys::exposeHotCorner),
        entry("Companion keyboard", keys::tactoraEnabled),
        entry("Companion keyboard", keys::tactoraInstalled),
        entry("Companion keyboard", keys::tactoraHoldDelayEnabled),
        entry("Companion keyboard", keys::tactoraHoldDelay),
        entry("Companion keyboard", keys::tactoraHideOSDWhenShown),
        entry("Companion keyboard", keys::tactoraFillMode),
        entry("Companion keyboard", keys::tactoraOnlyRunningAndStatic),
        entry("State and bookkeeping", keys::overrideUserDefaults),
        entry("State and bookkeeping", keys::migrationVersion),
        entry("State and bookkeeping", keys::onboardingShownForVersion),
        entry("State and bookkeeping", keys::tutorialHidden),
        entry("State and bookkeeping", keys::tutorialPreviewed),
        entry("State and bookkeeping", keys::ignoredAppsCollapsed),
        entry("State and bookkeeping", keys::accessibilityPermissionsGranted),
        entry("State and bookkeeping", keys::accessibilityPermissionsNotified),
    };
    return all;
}

const CatalogueEntry* catalogueEntry(std::string_view name) {
    for (auto& e : settingsCatalogue())
        if (e.name == name) return &e;
    return nullptr;
}

}  // namespace zelk
