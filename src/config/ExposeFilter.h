#pragma once
#include <array>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

struct ExposeFilterFlags {
    static constexpr std::string_view typeName = "ExposeFilter";
    static constexpr std::array<OptionFlag, 3> flags{{
        {0x1, "minimized"},
        {0x2, "hidden"},
        {0x4, "fullscreen"},
    }};
};
// Windows the overview includes: minimized windows, windows of hidden apps, full-screen windows.
struct ExposeFilter : OptionSet<ExposeFilterFlags> {
    using OptionSet::OptionSet;
    constexpr ExposeFilter(OptionSet<ExposeFilterFlags> s) : OptionSet(s) {}
    static constexpr OptionSet<ExposeFilterFlags> minimized{0x1};
    static constexpr OptionSet<ExposeFilterFlags> hidden{0x2};
    static constexpr OptionSet<ExposeFilterFlags> fullscreen{0x4};
};

}  // namespace zelk
