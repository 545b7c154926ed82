#include "windows/AppWindowKeys.h"

#include <array>
#include <string_view>

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"
#include "platform/Key.h"

namespace zelk::windows {

namespace {
constexpr std::array<std::string_view, 7> kKeySettings = {
    "windowPatternGroups", "windowKeyMode",     "spaceMode",       "enableWindowMoveToSpaceShortcut",
    "windowCycleKey",      "windowMinimizeKey", "windowSpecialKey"};
}  // namespace

AppWindowKeys::AppWindowKeys() {
    storeSub_ = Settings::shared().store().observe([this](const std::string& changed) {
        for (auto name : kKeySettings)
            if (changed == name) {
                settingsChanged.emit();
                return;
            }
    });
}

WindowKeyOptions AppWindowKeys::currentOptions() {
    auto& s = Settings::shared();
    WindowKeyOptions options;
    options.mode = s.get(keys::windowKeyMode);
    // The digits move windows to Spaces when there are several and the shortcut is on.
    options.blockDigitKeys =
        s.get(keys::spaceMode) == SpaceMode::multi && s.get(keys::enableWindowMoveToSpaceShortcut);
    for (const auto& key : {keys::windowCycleKey, keys::windowMinimizeKey, keys::windowSpecialKey}) {
        std::string character(lowQWERTYCharacter(s.get(key)));
        if (!character.empty()) options.reserved.insert(character);
    }
    return options;
}

WindowKeyPatterns& AppWindowKeys::patterns() {
    auto groups = Settings::shared().get(keys::windowPatternGroups);
    if (!compiledGroups_ || *compiledGroups_ != groups) {
        patterns_ = WindowKeyPatterns(groups);
        compiledGroups_ = std::move(groups);
    }
    return patterns_;
}

std::map<std::string, std::vector<AppWindow>> AppWindowKeys::rows(
    const std::vector<ManagedWindow>& windows,
    const std::map<std::string, std::map<std::uint32_t, int>>& numbers) {
    std::vector<KeyedWindowSource> sources;
    sources.reserve(windows.size());
    for (const auto& w : windows)
        sources.push_back({w.id, w.title, w.bundleIdentifier, w.isFocused});
    return assignWindowKeys(sources, currentOptions(), patterns(), numbers);
}

}  // namespace zelk::windows
