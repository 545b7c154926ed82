#include "windows/WindowKeyWalk.h"

#include <algorithm>
#include <set>

namespace zelk::windows {

namespace {
std::set<std::uint32_t> idsOf(const std::vector<AppWindow>& rows) {
    std::set<std::uint32_t> ids;
    for (const auto& row : rows)
        ids.insert(row.id);
    return ids;
}
}  // namespace

std::optional<std::uint32_t> WindowKeyWalk::next(const std::string& key, const std::vector<AppWindow>& rows) {
    if (rows.empty()) {
        reset();
        return std::nullopt;
    }
    if (key_ == key && idsOf(rows_) == idsOf(rows)) {
        // Walking on: the window shown last goes to the back.
        std::rotate(rows_.begin(), rows_.begin() + 1, rows_.end());
        return rows_.front().id;
    }
    key_ = key;
    rows_ = rows;
    auto focused = std::find_if(rows_.begin(), rows_.end(), [](const AppWindow& w) { return w.focused; });
    auto first =
        focused == rows_.end() || std::next(focused) == rows_.end() ? rows_.begin() : std::next(focused);
    std::rotate(rows_.begin(), first, rows_.end());
    return rows_.front().id;
}

void WindowKeyWalk::reset() {
    key_.reset();
    rows_.clear();
}

}  // namespace zelk::windows
