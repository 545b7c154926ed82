#pragma once
#include <array>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

// Order of the application panel's rows.
enum class AppSort { key, name, score };

// Whether the application panel shows running applications first or serves as a launcher.
enum class SwitcherMode { switcher, launcher };

// Which keys window rows get: letters and digits, digits only, or letters only.
enum class WindowKeyMode { mixed, numbersOnly, noNumbers };

// Where on the screen a panel stands.
enum class ScreenCorner { bottomLeft, bottomRight, topLeft, topRight, top, bottom, left, right, center };

// The layout group the settings offer.
enum class OSDLayoutPreset { companion, launcher };

template <>
struct EnumCases<AppSort> {
    static constexpr std::string_view typeName = "AppSort";
    static constexpr std::array<EnumCase<AppSort>, 3> cases{{
        {AppSort::key, "key", "key"},
        {AppSort::name, "name", "name"},
        {AppSort::score, "score", "score"},
    }};
};

template <>
struct EnumCases<SwitcherMode> {
    static constexpr std::string_view typeName = "SwitcherMode";
    static constexpr std::array<EnumCase<SwitcherMode>, 2> cases{{
        {SwitcherMode::switcher, "switcher", "switcher"},
        {SwitcherMode::launcher, "launcher", "launcher"},
    }};
};

template <>
struct EnumCases<WindowKeyMode> {
    static constexpr std::string_view typeName = "WindowKeyMode";
    static constexpr std::array<EnumCase<WindowKeyMode>, 3> cases{{
        {WindowKeyMode::mixed, "mixed", "mixed"},
        {WindowKeyMode::numbersOnly, "numbersOnly", "numbersOnly"},
        {WindowKeyMode::noNumbers, "noNumbers", "noNumbers"},
    }};
};

template <>
struct EnumCases<ScreenCorner> {
    static constexpr std::string_view typeName = "ScreenCorner";
    static constexpr std::array<EnumCase<ScreenCorner>, 9> cases{{
        {ScreenCorner::bottomLeft, "bottomLeft", "bottomLeft"},
        {ScreenCorner::bottomRight, "bottomRight", "bottomRight"},
        {ScreenCorner::topLeft, "topLeft", "topLeft"},
        {ScreenCorner::topRight, "topRight", "topRight"},
        {ScreenCorner::top, "top", "top"},
        {ScreenCorner::bottom, "bottom", "bottom"},
        {ScreenCorner::left, "left", "left"},
        {ScreenCorner::right, "right", "right"},
        {ScreenCorner::center, "center", "center"},
    }};
};

template <>
struct EnumCases<OSDLayoutPreset> {
    static constexpr std::string_view typeName = "OSDLayoutPreset";
    static constexpr std::array<EnumCase<OSDLayoutPreset>, 2> cases{{
        {OSDLayoutPreset::companion, "companion", "companion"},
        {OSDLayoutPreset::launcher, "launcher", "launcher"},
    }};
};

struct SwitcherFeaturesFlags {
    static constexpr std::string_view typeName = "SwitcherFeatures";
    static constexpr std::array<OptionFlag, 6> flags{{
        {0x1, "lastWindow"},
        {0x2, "runningApps"},
        {0x4, "launchableApps"},
        {0x8, "windows"},
        {0x10, "windowActions"},
        {0x20, "bottomActions"},
    }};
};
// The sections a panel shows.
struct SwitcherFeatures : OptionSet<SwitcherFeaturesFlags> {
    using OptionSet::OptionSet;
    constexpr SwitcherFeatures(OptionSet<SwitcherFeaturesFlags> s) : OptionSet(s) {}
    static constexpr OptionSet<SwitcherFeaturesFlags> lastWindow{0x1};
    static constexpr OptionSet<SwitcherFeaturesFlags> runningApps{0x2};
    static constexpr OptionSet<SwitcherFeaturesFlags> launchableApps{0x4};
    static constexpr OptionSet<SwitcherFeaturesFlags> windows{0x8};
    static constexpr OptionSet<SwitcherFeaturesFlags> windowActions{0x10};
    static constexpr OptionSet<SwitcherFeaturesFlags> bottomActions{0x20};
};

}  // namespace zelk
