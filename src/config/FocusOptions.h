#pragma once
#include <array>

#include "config/EnumCoding.h"

namespace zelk {

// Which window an application focus brings forward.
enum class FocusBehaviour { allWindows, mainWindow, sameSpaceWindow };

// When a letter under the trigger acts: at once, at trigger up, or at once unless more keys follow.
enum class ActivationMode { onPress, onRelease, adaptive };

// One Space per display in use, or several.
enum class SpaceMode { single, multi };

template <>
struct EnumCases<FocusBehaviour> {
    static constexpr std::string_view typeName = "FocusBehaviour";
    static constexpr std::array<EnumCase<FocusBehaviour>, 3> cases{{
        {FocusBehaviour::allWindows, "allWindows", "allWindows"},
        {FocusBehaviour::mainWindow, "mainWindow", "mainWindow"},
        {FocusBehaviour::sameSpaceWindow, "sameSpaceWindow", "sameSpaceWindow"},
    }};
};

template <>
struct EnumCases<ActivationMode> {
    static constexpr std::string_view typeName = "ActivationMode";
    static constexpr std::array<EnumCase<ActivationMode>, 3> cases{{
        {ActivationMode::onPress, "onPress", "onPress"},
        {ActivationMode::onRelease, "onRelease", "onRelease"},
        {ActivationMode::adaptive, "adaptive", "adaptive"},
    }};
};

template <>
struct EnumCases<SpaceMode> {
    static constexpr std::string_view typeName = "SpaceMode";
    static constexpr std::array<EnumCase<SpaceMode>, 2> cases{{
        {SpaceMode::single, "single", "single"},
        {SpaceMode::multi, "multi", "multi"},
    }};
};

}  // namespace zelk
