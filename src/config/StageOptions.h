#pragma once
#include <array>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

// What closing a stage does to its windows.
enum class StageCloseAction { close, minimize, moveOffScreen };

template <>
struct EnumCases<StageCloseAction> {
    static constexpr std::string_view typeName = "StageCloseAction";
    static constexpr std::array<EnumCase<StageCloseAction>, 3> cases{{
        {StageCloseAction::close, "close", "close"},
        {StageCloseAction::minimize, "minimize", "minimize"},
        {StageCloseAction::moveOffScreen, "moveOffScreen", "moveOffScreen"},
    }};
};

}  // namespace zelk
