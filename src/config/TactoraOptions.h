#pragma once
#include <array>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

// How the companion keyboard shows keys that reach nothing.
enum class TactoraFillMode { visible, dim, blank };

template <>
struct EnumCases<TactoraFillMode> {
    static constexpr std::string_view typeName = "TactoraFillMode";
    static constexpr std::array<EnumCase<TactoraFillMode>, 3> cases{{
        {TactoraFillMode::visible, "visible", "visible"},
        {TactoraFillMode::dim, "dim", "dim"},
        {TactoraFillMode::blank, "blank", "blank"},
    }};
};

}  // namespace zelk
