#pragma once
#include <array>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

// Which windows the Tab cycle walks through.
enum class TabCycleScope { auto_, currentSpace, activeStage, allWindows, sameApp };

// Whether the sticky application cycle also takes over the system's switcher.
enum class StickyAppSwitcherScope { zelkOnly, zelkAndSystem };

template <>
struct EnumCases<TabCycleScope> {
    static constexpr std::string_view typeName = "TabCycleScope";
    static constexpr std::array<EnumCase<TabCycleScope>, 5> cases{{
        {TabCycleScope::auto_, "auto", "auto"},
        {TabCycleScope::currentSpace, "currentSpace", "currentSpace"},
        {TabCycleScope::activeStage, "activeStage", "activeStage"},
        {TabCycleScope::allWindows, "allWindows", "allWindows"},
        {TabCycleScope::sameApp, "sameApp", "sameApp"},
    }};
};

template <>
struct EnumCases<StickyAppSwitcherScope> {
    static constexpr std::string_view typeName = "StickyAppSwitcherScope";
    static constexpr std::array<EnumCase<StickyAppSwitcherScope>, 2> cases{{
        {StickyAppSwitcherScope::zelkOnly, "zelkOnly", "zelkOnly"},
        {StickyAppSwitcherScope::zelkAndSystem, "zelkAndSystem", "zelkAndSystem"},
    }};
};

struct TabCycleFilterFlags {
    static constexpr std::string_view typeName = "TabCycleFilter";
    static constexpr std::array<OptionFlag, 2> flags{{
        {0x1, "minimized"},
        {0x2, "hidden"},
    }};
};
// Windows the Tab cycle includes besides the visible ones.
struct TabCycleFilter : OptionSet<TabCycleFilterFlags> {
    using OptionSet::OptionSet;
    constexpr TabCycleFilter(OptionSet<TabCycleFilterFlags> s) : OptionSet(s) {}
    static constexpr OptionSet<TabCycleFilterFlags> minimized{0x1};
    static constexpr OptionSet<TabCycleFilterFlags> hidden{0x2};
};

}  // namespace zelk
