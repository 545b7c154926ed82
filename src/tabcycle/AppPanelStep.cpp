#include "tabcycle/AppPanelStep.h"

#include <algorithm>

namespace zelk::tabcycle {

std::string appPanelRowID(const osd::OSDRow& row) {
    return (row.isWindow ? "win-" : "app-") + row.id;
}

std::vector<std::string> appPanelRowIDs(const std::vector<osd::OSDSection>& sections) {
    std::vector<std::string> ids;
    for (const auto& section : sections)
        for (const auto& row : section.rows)
            ids.push_back(appPanelRowID(row));
    return ids;
}

namespace {

std::optional<std::size_t> indexOf(const std::vector<std::string>& ids, const std::string& id) {
    auto it = std::find(ids.begin(), ids.end(), id);
    if (it == ids.end()) return std::nullopt;
    return static_cast<std::size_t>(it - ids.begin());
}

}  // namespace

std::optional<std::size_t> nextAppPanelRow(const std::vector<std::string>& ids,
                                           const std::optional<std::string>& selected,
                                           const std::vector<std::string>& focusedRows, bool reverse) {
    if (ids.empty()) return std::nullopt;
    const std::size_t n = ids.size();
    std::optional<std::size_t> from = selected ? indexOf(ids, *selected) : std::nullopt;
    for (std::size_t i = 0; !from && i < focusedRows.size(); ++i)
        from = indexOf(ids, focusedRows[i]);
    if (!from) return reverse ? n - 1 : 0;
    return reverse ? (*from + n - 1) % n : (*from + 1) % n;
}

}  // namespace zelk::tabcycle
