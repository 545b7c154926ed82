#pragma once
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

#include "config/OSDLook.h"
#include "config/SwitcherOptions.h"

namespace zelk {

class Settings;

// A look together with the placements and sizes of the three panels.
struct OSDTheme {
    std::string id;
    std::string name;
    OSDLook look;
    ScreenCorner appPlacement = ScreenCorner::bottomRight;
    double appOffsetX = 0;
    double appOffsetY = 0;
    double appWidth = 400;
    double appHeight = 600;
    bool windowMirrorsApp = true;
    ScreenCorner windowPlacement = ScreenCorner::bottomRight;
    double windowOffsetX = 0;
    double windowOffsetY = 0;
    double windowWidth = 480;
    double windowHeight = 420;
    bool stageMirrorsApp = true;
    ScreenCorner stagePlacement = ScreenCorner::bottomRight;
    double stageOffsetX = 0;
    double stageOffsetY = 0;

    bool operator==(const OSDTheme&) const = default;
    nlohmann::json toJson() const;
    // Lenient: only `id` is required; other fields a stored theme lacks keep the values above.
    static std::optional<OSDTheme> fromJson(const nlohmann::json& json);
};

// The user's own theme before any edit: the default look and the default placements.
OSDTheme defaultCustomTheme();

// The twelve themes that ship with the program, "Companion" first.
const std::vector<OSDTheme>& builtInThemes();
std::optional<OSDTheme> builtInTheme(const std::string& id);

// Applies a theme: its look always; its placements, offsets and sizes when `applyThemeLayout` is on.
// Names it as the active theme.
void applyTheme(const OSDTheme& theme, Settings& settings);

}  // namespace zelk
