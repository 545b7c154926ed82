#pragma once
#include <array>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

// Whether a query must match at word starts or anywhere in a name.
enum class SearchMatchMode { anchored, contains };

template <>
struct EnumCases<SearchMatchMode> {
    static constexpr std::string_view typeName = "SearchMatchMode";
    static constexpr std::array<EnumCase<SearchMatchMode>, 2> cases{{
        {SearchMatchMode::anchored, "anchored", "anchored"},
        {SearchMatchMode::contains, "contains", "contains"},
    }};
};

}  // namespace zelk
